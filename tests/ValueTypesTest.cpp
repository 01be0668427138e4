// The value types: identifiers, node ids, prefix keys, SIDs and flag sets - their text forms and
// errors, order, and hashes written out against the seeded mixer.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "IgpCommon/FlagSets.h"
#include "IgpCommon/Identifiers.h"
#include "IgpCommon/IgpNodeId.h"
#include "IgpCommon/PrefixKey.h"
#include "IgpCommon/SidLabelBinding.h"
#include "IgpCommon/SidValues.h"
#include "IgpCommon/framework/Hash.h"
#include "tests/support/TextHelpers.h"
#include "tests/support/UnseededTwins.h"

namespace {

using namespace Routing::IgpCommon;  // NOLINT(google-build-using-namespace)
using Routing::Isis::SystemId;
using testsupport::messageOf;
using testsupport::parse;
using testsupport::text;

IgpNodeId idOf(std::array<std::uint8_t, 7> b) {
    return IgpNodeId::fromBytes(b.data());
}
PrefixKey key(const char* p, std::uint16_t mt) {
    return PrefixKey(parse<Lumo::IpGenPrefix>(p), IgpMultiTopologyId(mt));
}
const SystemId kSys(std::array<std::uint8_t, 6>{0x19, 0x21, 0x68, 0x00, 0x10, 0x01});
Kest::HashState h(std::uint32_t seed) {
    return Kest::HashState(seed);
}

TEST(Identifiers, TopologyLevelAndProtocolTextsAndTheirErrors) {
    EXPECT_THROW(parse<IgpMultiTopologyId>("65536"), Kest::RangeException);
    EXPECT_EQ(parse<IgpLevel>(Kest::strep(igpLevelIsisLevel1)), igpLevelIsisLevel1);
    EXPECT_EQ(messageOf<Kest::RangeException>([] { IgpLevelInstance(3u); }),
              "3 is no enumerator of Routing::IgpCommon::IgpLevel");
    EXPECT_EQ(messageOf<Kest::ParseException>([] { IgpLevelInstance(std::string("igpLevelIsisLevel3")); }),
              "\"igpLevelIsisLevel3\" is no enumerator of Routing::IgpCommon::IgpLevel");
    Kest::CharRange r(std::string_view("igpProtoOspf2, rest"));
    IgpProto out = igpProtoIsis;
    EXPECT_EQ(sequenceToValue(r, &out), igpProtoOspf2);
    EXPECT_EQ(r.rest(), ", rest");
    Kest::CharRange longer(std::string_view("igpProtoIsisX"));
    EXPECT_EQ(
        messageOf<Kest::ParseException>([&] { sequenceToValue(longer, &out); }),
        "expected an enumerator of Routing::IgpCommon::IgpProto at offset 0 (before \"igpProtoIsisX\")");
}

TEST(IgpNodeIdTest, TextNumericFormBytesAndHash) {
    IgpNodeId id = idOf({0xab, 0xcd, 0xef, 0xff, 0x0a, 0x0b, 0x00});
    EXPECT_FALSE(id.isPnodeId());
    EXPECT_EQ(id.toStrep(), "abcd.efff.0a0b");
    id.byteIs(IgpNodeIdIndex(6), 0x300 + 0xfe);  // stored as a byte
    EXPECT_TRUE(id.isPnodeId());
    EXPECT_EQ(id.toStrep(), "abcd.efff.0a0b.fe");
    EXPECT_LT(idOf({1, 0, 0, 0, 0, 0, 0xff}), idOf({1, 0, 0, 0, 0, 1, 0}));
    EXPECT_TRUE(idOf({0, 0, 0, 0, 0, 0, 1})) << "a pseudonode byte alone makes a node";
    IgpNodeId full = idOf({1, 2, 3, 4, 5, 6, 7});
    EXPECT_EQ(messageOf<Kest::RangeException>([&] { full.byteIs(IgpNodeIdIndex(7), 9); }),
              "cannot access index 7 of an array with size 7");

    // Skipping zeros made these two alike under every seed.
    const IgpNodeId a = idOf({1, 0, 2, 0, 0, 0, 0});
    for (std::uint32_t seed : {0u, 0xdeadbeefu}) {
        EXPECT_EQ(a.hash(seed), h(seed).mix32(0x00020001u).mix16(0).mix8(0).result());
        EXPECT_NE(a.hash(seed), idOf({1, 2, 0, 0, 0, 0, 0}).hash(seed));
    }
}

TEST(PrefixKey, HashOrderAndText) {
    for (const char* p : {"10.0.0.0/8", "2001:db8::/32"}) {
        const PrefixKey k = key(p, 4095);
        Kest::HashState s(0xdeadbeefu);
        if (k.prefix().isIpv4()) {
            s.mix32(k.prefix().ipv4Addr().value());
        } else {
            s.mixBytes(k.prefix().ipv6Addr().bytes().data(), 16);
        }
        EXPECT_EQ(k.hash(0xdeadbeefu),
                  s.mix8(k.prefix().family()).mix8(k.prefix().length()).mix16(4095).result())
            << p;
        EXPECT_EQ(parse<PrefixKey>(text(k)), k);
    }
    // Unkeyed digests made these collide under every seed: a length folded into the address word,
    // and addresses with one unseeded hash.
    const auto [a, b] = testsupport::unseededHashTwins();
    EXPECT_NE(key("10.0.0.0/8", 0).hash(1), key("10.0.0.24/16", 0).hash(1));
    EXPECT_NE(PrefixKey(Lumo::IpGenPrefix(a, 128), {}).hash(1),
              PrefixKey(Lumo::IpGenPrefix(b, 128), {}).hash(1));
    EXPECT_NE(key("10.1.0.0/8", 0), key("10.0.0.0/8", 0));  // host bits are kept
    EXPECT_LT(key("10.0.0.0/8", 5), key("11.0.0.0/8", 0));  // the prefix first, then the topology
    EXPECT_LT(key("255.255.255.255/32", 9), key("::/0", 0));
    EXPECT_EQ(text(key("2001:DB8:0:0::/32", 65535)),
              "Value('Routing::IgpCommon::PrefixKey', ** {'prefix': 2001:db8::/32, 'mtId': 65535})");
    EXPECT_EQ(messageOf<Kest::AttributeParseException>([] {
                  parse<PrefixKey>(
                      "Value('Routing::IgpCommon::PrefixKey', ** {'prefix': 10.0.0.0/8, 'mtId': 70000})");
              }).substr(0, 16),
              "attribute 'mtId'");
}

// RFC 8667 2.1, 2.2: the V and L flags together mean a 3-octet label, otherwise a 4-octet index.
TEST(Sids, ValueLengthOrderHashAndText) {
    EXPECT_EQ((std::vector<unsigned>{
                  AdjacencySid(0x30, 16, 0).valueLength(), AdjacencySid(0x20, 16, 0).valueLength(),
                  AdjacencySid(0x10, 16, 0).valueLength(), PrefixSid(0x0c, 16, 0, true).valueLength(),
                  PrefixSid(0x08, 16, 0, true).valueLength(), PrefixSid(0x04, 16, 0, true).valueLength(),
                  LabelSid(0x80, 16, true).valueLength(), LabelSid(0x00, 16, true).valueLength()}),
              (std::vector<unsigned>{3, 4, 4, 3, 4, 4, 3, 4}));
    EXPECT_DEATH((void)SrSid(0x30, 16).valueLength(), "Not implemented");

    EXPECT_LT(AdjacencySid(0x10, 1000, 9), AdjacencySid(0x30, 1, 0));
    EXPECT_LT(LanAdjacencySid(0x30, 1, 1, SystemId({0xff, 0xff, 0xff, 0xff, 0xff, 0xff})),
              LanAdjacencySid(0x30, 1, 2, SystemId({0, 0, 0, 0, 0, 0})));
    EXPECT_LT(PrefixSid(0x40, 100, 0, true), PrefixSid(0x40, 100, 1, false));
    EXPECT_NE(LanAdjacencySid(0x30, 100, 7, kSys),
              LanAdjacencySid(0x30, 100, 7, SystemId({1, 2, 3, 4, 5, 6})));
    EXPECT_EQ(LanAdjacencySid(0x30, 24001, 9, kSys).hash(5),
              h(5).mix8(0x30).mix32(24001).mix8(9).mixBytes(kSys.bytes().data(), 6).result());
    EXPECT_EQ(PrefixSid(0x40, 100, 1, true).hash(5), h(5).mix8(0x40).mix32(100).mix8(1).mix8(1).result());

    EXPECT_EQ(PrefixSid(0x4c, 16000, 10, false).toStrep(), "PrefixSID={16000, flags=0x4c, algo=10}");
    EXPECT_EQ(LabelSid(0x00, 0x800001, true).toStrep(), "LabelSID={index=8388609}");
    EXPECT_EQ(LabelSid(0x80, 0x800000, true).toStrep(), "LabelSID={mpls=8388608 (withdraw)}");
    EXPECT_EQ(text(LanAdjacencySid(48, 24001, 5, kSys)),
              "Value('Routing::IgpCommon::LanAdjacencySid', ** {'flags': 48, 'value': 24001, 'weight': 5, "
              "'systemId': 1921.6800.1001})");
    EXPECT_EQ(parse<PrefixSid>(text(PrefixSid(0x4c, 16000, 128, false))), PrefixSid(0x4c, 16000, 128, false));
    EXPECT_EQ(messageOf<Kest::AttributeParseException>([] {
                  parse<PrefixSid>(
                      "Value('Routing::IgpCommon::PrefixSid', ** {'flags': 256, 'value': 1, "
                      "'algorithm': 0, 'isValid': True})");
              }),
              "attribute 'flags': number 256 does not fit in 8 bits");
}

template <class T>
class FlagSet : public ::testing::Test {};
using AllFlagSets = ::testing::Types<NodeFlags, SrCapabilityFlags, PrefixFlags,
                                     SidLabelBinding::SidLabelBindingFlags, detail::NeighborAttrsPresent>;
TYPED_TEST_SUITE(FlagSet, AllFlagSets);

TYPED_TEST(FlagSet, ValidValuesRoundTripHashTheirByteAndTheAlgebraStaysWithinTheFlags) {
    constexpr unsigned max = TypeParam::validMask;
    EXPECT_EQ(max, (1u << TypeParam::flagCount) - 1);
    for (unsigned a = 0; a <= max; ++a) {
        const TypeParam fa(static_cast<unsigned char>(a));
        EXPECT_EQ(parse<TypeParam>(text(fa)).value(), a) << text(fa);
        EXPECT_EQ(fa.hash(3), h(3).mix8(static_cast<std::uint8_t>(a)).result());
        EXPECT_EQ((~fa).value(), max & ~a);
        for (unsigned b = 0; b <= max; ++b) {
            const TypeParam fb(static_cast<unsigned char>(b));
            EXPECT_EQ((fa | fb).value() + (fa & fb).value() * 256 + (fa ^ fb).value() * 65536,
                      (a | b) + (a & b) * 256 + (a ^ b) * 65536);
            EXPECT_EQ(fa.difference(fb).value(), a & ~b & max);
            EXPECT_EQ(fa <=> fb, a <=> b);
        }
    }
    const std::string name = TypeParam::kestTypeName;
    EXPECT_EQ(messageOf<Kest::RangeException>([] { TypeParam(static_cast<unsigned char>(max + 1)); }),
              name + "::value < " + name + "::min or > " + name + "::max not allowed");
    TypeParam f;
    f.template flagIs<TypeParam::flagCount - 1>(true);
    EXPECT_EQ(f.value(), 1u << (TypeParam::flagCount - 1));
    EXPECT_TRUE(f.template flag<TypeParam::flagCount - 1>());
}

TEST(FlagSetText, NamesInBitOrderAndPrefixFlagsIsABareBoolean) {
    using Flags = SidLabelBinding::SidLabelBindingFlags;
    EXPECT_EQ(text(NodeFlags(2)),
              "Value('Routing::IgpCommon::NodeFlags', ** {'overloadBit': False, 'attachedBit': True})");
    EXPECT_EQ(text(PrefixFlags(1)), "True");
    EXPECT_THROW(parse<PrefixFlags>("true"), Kest::ParseException);
    // RFC 8667 2.4: the first flag is the octet's most significant bit; the low three are reserved.
    EXPECT_EQ(Flags::fromProtocolOctet(0x07), Flags());
    EXPECT_EQ(Flags(0x01).protocolOctet(), 0x80u);
}

TEST(SidLabelBindingText, ShowsFlagLettersRangeFragmentAndOnlyTheValidSids) {
    auto b = SidLabelBinding::SidLabelBindingIs();
    b->flagsIs(SidLabelBinding::SidLabelBindingFlags(0x1f));
    b->rangeIs(4);
    b->lspFragmentIdIs(65);  // 'A' if it were streamed as a character
    b->baseLabelSidIs(LabelSid(0x80, 16000, true));
    b->basePrefixSidIs(PrefixSid(0x40, 7, 0, false));
    EXPECT_EQ(b->toStrep(),
              "sidLabelBinding={flags=FMSDA, range=4, lspFragmentId=65, LabelSID={mpls=16000}}");
}

}  // namespace
