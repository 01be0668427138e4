// Kest::Array (fixed, index-typed) and Kest::DynArray (growable).
#include "IgpCommon/framework/Array.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>

#include "IgpCommon/IgpNodeId.h"
#include "tests/support/TextHelpers.h"

namespace {

using Routing::IgpCommon::IgpNodeIdIndex;
using testsupport::messageOf;

/// An index type whose bounds (0..9) reach past the array it addresses (8 slots).
struct WideIndex : Kest::BoundedIndex<WideIndex, 0, 9> {
    static constexpr const char kestTypeName[] = "Test::WideIndex";
    using BoundedIndex::BoundedIndex;
};

TEST(ArrayTest, EveryAccessorRefusesAnIndexOutsideTheSlotsWithTheFixedMessageAndChangesNothing) {
    Routing::IgpCommon::IgpNodeId::Bytes bytes;
    bytes.set(IgpNodeIdIndex(6), 0xab);
    const std::string msg = "cannot access index 7 of an array with size 7";
    EXPECT_EQ(messageOf<Kest::RangeException>([&] { (void)bytes[IgpNodeIdIndex(7)]; }), msg);
    EXPECT_EQ(messageOf<Kest::RangeException>([&] { (void)bytes.at(IgpNodeIdIndex(7)); }), msg);
    EXPECT_EQ(messageOf<Kest::RangeException>([&] { bytes.set(IgpNodeIdIndex(7), 1); }), msg);
    EXPECT_EQ(messageOf<Kest::RangeException>([&] { (void)bytes.present(IgpNodeIdIndex(7)); }), msg);
    EXPECT_EQ(messageOf<Kest::RangeException>([&] { (void)bytes.at(IgpNodeIdIndex(255)); }),
              "cannot access index 255 of an array with size 7");
    EXPECT_EQ(bytes.at(IgpNodeIdIndex(6)), 0xab);
    EXPECT_FALSE(bytes.has(IgpNodeIdIndex(7)));
    EXPECT_TRUE(bytes.has(IgpNodeIdIndex(6)));

    // 8 is a valid WideIndex (its bounds are 0..9): only the 8-slot array refuses it.
    EXPECT_EQ(WideIndex::checked(8).value(), 8);
    Kest::Array<int, WideIndex, 8> wide;
    wide.set(WideIndex(7), 70);
    EXPECT_EQ(wide[WideIndex(7)], 70);
    EXPECT_EQ(messageOf<Kest::RangeException>([&] { wide.set(WideIndex(8), 1); }),
              "cannot access index 8 of an array with size 8");
    EXPECT_EQ(messageOf<Kest::RangeException>([&] { (void)wide[WideIndex(9)]; }),
              "cannot access index 9 of an array with size 8");
    for (std::size_t i = 0; i < 7; ++i) {
        EXPECT_EQ(wide.slot(i), 0) << i;
    }

    Kest::Array<int, WideIndex, 4, 2> offset;  // indexes 2..5
    offset.set(WideIndex(2), 20);
    offset.set(WideIndex(5), 50);
    EXPECT_EQ(offset.slot(0), 20);
    EXPECT_EQ(offset.slot(3), 50);
    EXPECT_EQ(messageOf<Kest::RangeException>([&] { (void)offset[WideIndex(1)]; }),
              "cannot access index 1 of an array with size 4");
    EXPECT_EQ(messageOf<Kest::RangeException>([&] { (void)offset[WideIndex(6)]; }),
              "cannot access index 6 of an array with size 4");
    EXPECT_FALSE(offset.has(WideIndex(1)));
    EXPECT_TRUE(offset.has(WideIndex(5)));
}

TEST(ArrayTest, DefaultElementsCountAsAbsentEqualityComparesEverySlotAndTextIsDecimal) {
    Kest::Array<std::uint8_t, IgpNodeIdIndex, 7> a;
    Kest::Array<std::uint8_t, IgpNodeIdIndex, 7> b;
    a.set(IgpNodeIdIndex(3), 9);
    EXPECT_TRUE(a.present(IgpNodeIdIndex(3)));
    EXPECT_NE(a, b);
    b.set(IgpNodeIdIndex(3), 9);
    EXPECT_EQ(a, b);
    a.set(IgpNodeIdIndex(3), 0);
    EXPECT_FALSE(a.present(IgpNodeIdIndex(3)));

    a.set(IgpNodeIdIndex(0), 255);
    a.set(IgpNodeIdIndex(2), 10);
    std::ostringstream os;
    os << std::hex << a;
    EXPECT_EQ(os.str(), "[255, 0, 10, 0, 0, 0, 0]");
}

TEST(DynArrayTest, GrowsByIndexPlusFourFirstThenByDoublingOrToTheIndexKeepingWhatWasStored) {
    Kest::DynArray<std::uint8_t> d;
    EXPECT_EQ(d.get(4000000), 0) << "reading beyond the storage gives the default";
    EXPECT_EQ(d.capacity(), 0u) << "and does not grow";
    const std::pair<std::size_t, std::size_t> steps[] = {
        {2, 6},    // 2 + 4
        {5, 6},    // fits
        {6, 12},   // max(2 * 6, 7)
        {40, 41},  // max(24, 41)
        {41, 82},  // max(82, 42)
    };
    for (const auto& [index, capacity] : steps) {
        d.at(index) = static_cast<std::uint8_t>(index);
        EXPECT_EQ(d.capacity(), capacity) << "after writing index " << index;
    }
    for (const auto& [index, capacity] : steps) {
        EXPECT_EQ(d.get(index), index);
    }
    EXPECT_EQ(d.get(3), 0);
    EXPECT_EQ(d.get(500), 0);
    EXPECT_EQ(d.capacity(), 82u);
    Kest::DynArray<int> big;
    big.at(100) = 7;
    EXPECT_EQ(big.capacity(), 104u);
}

TEST(DynArrayTest, CopiesAreIndependentAndMovesTakeTheStorage) {
    Kest::DynArray<std::string> a;
    a.at(3) = "three";
    Kest::DynArray<std::string> b = a;
    b.at(3) = "changed";
    b.at(20) = "grown";
    EXPECT_EQ(a.get(3), "three");
    EXPECT_EQ(a.capacity(), 7u);
    Kest::DynArray<std::string> c;
    c.at(0) = "old";
    c = b;
    EXPECT_EQ(c.get(3), "changed");
    EXPECT_EQ(c.get(20), "grown");
    EXPECT_EQ(c.capacity(), b.capacity());
    Kest::DynArray<std::string> d = std::move(c);
    EXPECT_EQ(d.get(20), "grown");
    const Kest::DynArray<std::string> empty;
    d = empty;
    EXPECT_EQ(d.capacity(), 0u);
    EXPECT_EQ(d.get(3), "");
}

TEST(DynArrayTest, TheLastAcceptedIndexIs2003002) {
    Kest::DynArray<std::uint8_t> d;
    d.at(2003002) = 42;
    EXPECT_EQ(d.get(2003002), 42);
    EXPECT_GE(d.capacity(), 2003003u);
}

// The limit used to be checked only when an index made the storage grow.
TEST(DynArrayDeathTest, AnIndexFrom2003003UpAbortsWhateverTheStorageSize) {
    Kest::DynArray<std::uint8_t> d;
    EXPECT_DEATH(d.at(2003003) = 1, "newEntries < 2003004");
    EXPECT_DEATH(d.at(4000000000u) = 1, "newEntries < 2003004");
    d.at(1500000) = 1;
    d.at(1500004) = 1;  // doubles the storage
    EXPECT_LE(d.capacity(), 2003003u);
    EXPECT_DEATH(d.at(2500000) = 1, "newEntries < 2003004");
}

}  // namespace
