// The node identifier: bytes, text, numeric form, order and hash.
#include "IgpCommon/IgpNodeId.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/TextHelpers.h"

namespace {

using Routing::IgpCommon::IgpNodeId;
using Routing::IgpCommon::IgpNodeIdIndex;
using testsupport::messageOf;

IgpNodeId idOf(std::array<std::uint8_t, 7> b) {
    return IgpNodeId::fromBytes(b.data());
}

const std::string rangeText = "cannot access index 7 of an array with size 7";

TEST(IgpNodeIdTest, TextAndNumericFormPutTheSystemIdFirstAndThePseudonodeLast) {
    const IgpNodeId none;
    EXPECT_FALSE(none);
    EXPECT_FALSE(none.isPnodeId());
    EXPECT_EQ(none.toStrep(), "0000.0000.0000");
    EXPECT_EQ(none.toU64(), 0u);
    IgpNodeId id = idOf({0x19, 0x21, 0x68, 0x00, 0x10, 0x01, 0x00});
    EXPECT_TRUE(id);
    EXPECT_FALSE(id.isPnodeId());
    EXPECT_EQ(id.toStrep(), "1921.6800.1001");
    id.byteIs(IgpNodeIdIndex(6), 3);
    EXPECT_TRUE(id.isPnodeId());
    EXPECT_EQ(id.toStrep(), "1921.6800.1001.03");
    EXPECT_EQ(idOf({0xab, 0xcd, 0xef, 0xff, 0x0a, 0x0b, 0xfe}).toStrep(), "abcd.efff.0a0b.fe");

    EXPECT_EQ(idOf({1, 2, 3, 4, 5, 6, 7}).toU64(), 0x0102030405060700u);
    EXPECT_EQ(idOf({0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff}).toU64(), 0xffffffffffffff00u);
    EXPECT_EQ(idOf({0, 0, 0, 0, 0, 0, 1}).toU64(), 0x100u);
    EXPECT_TRUE(idOf({0, 0, 0, 0, 0, 0, 1})) << "a pseudonode byte alone makes a node";
}

TEST(IgpNodeIdTest, ByteAccessorsRefuseIndexSevenAndChangeNothing) {
    IgpNodeId id = idOf({1, 2, 3, 4, 5, 6, 7});
    const IgpNodeId before = id;
    EXPECT_EQ(IgpNodeId::byteCount(), IgpNodeId::Bytes::size());
    const IgpNodeIdIndex past(7);
    EXPECT_EQ(messageOf<Kest::RangeException>([&] { id.byteIs(past, 9); }), rangeText);
    EXPECT_EQ(messageOf<Kest::RangeException>([&] { id.byteDel(past); }), rangeText);
    EXPECT_EQ(messageOf<Kest::RangeException>([&] { (void)id.byte(past); }), rangeText);
    EXPECT_EQ(id, before);
    EXPECT_FALSE(IgpNodeId::byteHas(IgpNodeIdIndex(7)));
    EXPECT_TRUE(IgpNodeId::byteHas(IgpNodeIdIndex(6)));
}

TEST(IgpNodeIdTest, ByteWritesAndDeletionsReturnWhatWasThere) {
    IgpNodeId id;
    id.byteIs(IgpNodeIdIndex(0), 0xfe);
    id.byteIs(IgpNodeIdIndex(3), 0x300 + 0x42);  // stored as a byte
    EXPECT_EQ(id.byte(IgpNodeIdIndex(0)), 0xfe);
    EXPECT_EQ(id.byte(IgpNodeIdIndex(3)), 0x42);
    EXPECT_EQ(id.byteDel(IgpNodeIdIndex(3)), 0x42);
    EXPECT_EQ(id.byte(IgpNodeIdIndex(3)), 0);
    EXPECT_EQ(id.byteDel(IgpNodeIdIndex(3)), 0) << "deleting a zero byte returns 0";
    EXPECT_EQ(id.byteDel(IgpNodeIdIndex(5)), 0);
    EXPECT_EQ(id.toU64(), 0xfe00000000000000u);

    IgpNodeId full = idOf({1, 2, 3, 4, 5, 6, 7});
    full.byteDelAll();
    EXPECT_EQ(full, IgpNodeId());
    EXPECT_FALSE(full);
}

// Random ids with many zero and high-bit bytes, so that sign errors and ties both show.
TEST(IgpNodeIdTest, OrderAgreesWithToU64OverManyRandomIds) {
    std::mt19937 rng(1234u);
    std::vector<IgpNodeId> ids;
    for (int i = 0; i < 2000; ++i) {
        std::array<std::uint8_t, 7> b{};
        for (auto& x : b) {
            const unsigned r = rng() % 4;
            x = static_cast<std::uint8_t>(r == 0 ? 0 : r == 1 ? 0x80 | (rng() & 0x7f) : rng());
        }
        ids.push_back(idOf(b));
    }
    for (std::size_t i = 0; i + 1 < ids.size(); ++i) {
        const IgpNodeId& x = ids[i];
        const IgpNodeId& y = ids[i + 1];
        ASSERT_EQ(x <=> y, x.toU64() <=> y.toU64()) << x.toStrep() << " vs " << y.toStrep();
        ASSERT_EQ(x == y, x.toU64() == y.toU64());
    }
    std::vector<IgpNodeId> byOrder = ids;
    std::sort(byOrder.begin(), byOrder.end());
    std::vector<IgpNodeId> byU64 = ids;
    std::sort(byU64.begin(), byU64.end(),
              [](const IgpNodeId& x, const IgpNodeId& y) { return x.toU64() < y.toU64(); });
    EXPECT_TRUE(byOrder == byU64);
    EXPECT_EQ(ids[0] <=> ids[0], std::strong_ordering::equal);  // the same object
}

TEST(IgpNodeIdTest, HashMixesAllSevenBytesZerosIncluded) {
    const IgpNodeId a = idOf({1, 0, 2, 0, 0, 0, 0});
    const IgpNodeId b = idOf({1, 2, 0, 0, 0, 0, 0});
    for (std::uint32_t seed : {0u, 1u, 0xdeadbeefu}) {
        // Skipping zeros made these two alike under every seed.
        EXPECT_NE(a.hash(seed), b.hash(seed));
        EXPECT_EQ(a.hash(seed), Kest::HashState(seed).mix32(0x00020001u).mix16(0).mix8(0).result());
    }
    EXPECT_NE(a.hash(1), a.hash(2));
    EXPECT_EQ(IgpNodeId().hash(9), Kest::HashState(9).mix32(0).mix16(0).mix8(0).result());
}

TEST(IgpNodeIdTest, StreamOperatorWritesTheGenericByteArray) {
    std::ostringstream os;
    os << std::hex << idOf({0x19, 0x21, 0x68, 0x00, 0x10, 0x01, 0x03});
    EXPECT_EQ(os.str(), "[25, 33, 104, 0, 16, 1, 3]");
    EXPECT_EQ(Kest::strep(IgpNodeId()), "[0, 0, 0, 0, 0, 0, 0]");
}

TEST(IgpNodeIdDeathTest, TheTextConstructorStopsTheProcess) {
    EXPECT_DEATH(
        {
            Kest::CharRange r(std::string_view("1921.6800.1001"));
            IgpNodeId id(r);
        },
        "No String constructor for IgpNodeId - has collection");
    EXPECT_DEATH(Kest::strepToValue(std::string("[1, 2, 3, 4, 5, 6, 7]"), static_cast<IgpNodeId*>(nullptr)),
                 "No String constructor for IgpNodeId - has collection");
}

}  // namespace
