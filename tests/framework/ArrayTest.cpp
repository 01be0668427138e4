// Kest::Array (fixed, index-typed) and Kest::DynArray (growable).
#include "IgpCommon/framework/Array.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <sstream>
#include <string>

#include "IgpCommon/IgpNodeId.h"
#include "tests/support/TextHelpers.h"

namespace {

using Routing::IgpCommon::IgpNodeIdIndex;
using testsupport::messageOf;

/// An index type whose bounds (0..9) reach past the arrays it addresses.
struct WideIndex : Kest::BoundedIndex<WideIndex, 0, 9> {
    static constexpr const char kestTypeName[] = "Test::WideIndex";
    using BoundedIndex::BoundedIndex;
};

TEST(ArrayTest, EveryAccessorRefusesAnIndexOutsideTheSlotsWithTheFixedMessageAndChangesNothing) {
    Kest::Array<std::uint8_t, IgpNodeIdIndex, 7> bytes;
    Kest::Array<int, WideIndex, 8> wide;
    Kest::Array<int, WideIndex, 4, 2> offset;  // indexes 2..5
    bytes.set(IgpNodeIdIndex(6), 0xab);
    wide.set(WideIndex(7), 70);
    offset.set(WideIndex(2), 20);
    offset.set(WideIndex(5), 50);
    const std::pair<std::function<void()>, std::string> refused[] = {
        {[&] { (void)bytes[IgpNodeIdIndex(7)]; }, "index 7 of an array with size 7"},
        {[&] { (void)bytes.at(IgpNodeIdIndex(255)); }, "index 255 of an array with size 7"},
        {[&] { bytes.set(IgpNodeIdIndex(7), 1); }, "index 7 of an array with size 7"},
        {[&] { (void)bytes.present(IgpNodeIdIndex(7)); }, "index 7 of an array with size 7"},
        {[&] { wide.set(WideIndex(8), 1); }, "index 8 of an array with size 8"},  // a valid WideIndex
        {[&] { (void)wide[WideIndex(9)]; }, "index 9 of an array with size 8"},
        {[&] { (void)offset[WideIndex(1)]; }, "index 1 of an array with size 4"},
        {[&] { (void)offset.at(WideIndex(6)); }, "index 6 of an array with size 4"},
    };
    EXPECT_EQ(WideIndex::checked(8).value(), 8) << "the index is valid: only the array refuses it";
    for (const auto& [access, message] : refused) {
        EXPECT_EQ(messageOf<Kest::RangeException>(access), "cannot access " + message);
    }
    std::ostringstream os;
    os << std::hex << bytes;  // the text stays decimal
    EXPECT_EQ(os.str(), "[0, 0, 0, 0, 0, 0, 171]");
    EXPECT_EQ(testsupport::text(wide), "[0, 0, 0, 0, 0, 0, 0, 70]");
    EXPECT_EQ(testsupport::text(offset), "[20, 0, 0, 50]");
    EXPECT_TRUE(offset.has(WideIndex(5)) && offset.has(WideIndex(2)) && bytes.present(IgpNodeIdIndex(6)));
    EXPECT_FALSE(offset.has(WideIndex(1)) || offset.has(WideIndex(6)) || bytes.present(IgpNodeIdIndex(5)))
        << "outside the slots, or a default element: absent";
}

TEST(DynArrayTest, GrowsByIndexPlusFourFirstThenByDoublingOrToTheIndexAndCopiesAreIndependent) {
    Kest::DynArray<std::string> d;
    EXPECT_EQ(d.get(4000000), "") << "reading beyond the storage gives the default";
    EXPECT_EQ(d.capacity(), 0u) << "and does not grow";
    // {index written, capacity after}: 2 + 4, fits, max(2 * 6, 7), max(24, 41), max(82, 42)
    const std::pair<std::size_t, std::size_t> steps[] = {{2, 6}, {5, 6}, {6, 12}, {40, 41}, {41, 82}};
    for (const auto& [index, capacity] : steps) {
        d.at(index) = std::to_string(index);
        EXPECT_EQ(d.capacity(), capacity) << "after writing index " << index;
    }
    EXPECT_EQ(d.get(2) + d.get(3) + d.get(41), "241");
    Kest::DynArray<std::string> assigned;
    assigned.at(0) = "old";
    assigned = d;
    assigned.at(2) = "changed";
    assigned.at(100) = "grown";
    EXPECT_EQ(d.get(2), "2");
    EXPECT_EQ(d.capacity(), 82u);
    const Kest::DynArray<std::string> moved = std::move(assigned);
    EXPECT_EQ(moved.get(2) + moved.get(100) + moved.get(0), "changedgrown");
}

// The limit used to be checked only when an index made the storage grow.
TEST(DynArrayDeathTest, TheLastIndexIs2003002WhateverTheStorageSize) {
    Kest::DynArray<std::uint8_t> d;
    d.at(2003002) = 42;
    EXPECT_EQ(d.get(2003002), 42);
    EXPECT_DEATH(d.at(2003003) = 1, "newEntries < 2003004");
    Kest::DynArray<std::uint8_t> small;
    EXPECT_DEATH(small.at(4000000000u) = 1, "newEntries < 2003004");
    small.at(1500000) = 1;
    small.at(1500004) = 1;  // doubles the storage
    EXPECT_LE(small.capacity(), 2003003u);
    EXPECT_DEATH(small.at(2500000) = 1, "newEntries < 2003004");
}

}  // namespace
