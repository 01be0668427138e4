// Kest::Array (fixed, index-typed) and Kest::DynArray (growable).
#include "IgpCommon/framework/Array.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>

#include "IgpCommon/IgpNodeId.h"

namespace {

using Routing::IgpCommon::IgpNodeIdIndex;

/// An index type whose bounds (0..9) reach past the array it addresses (8 slots).
struct WideIndex : Kest::BoundedIndex<WideIndex, 0, 9> {
    static constexpr const char kestTypeName[] = "Test::WideIndex";
    using BoundedIndex::BoundedIndex;
};

template <class F>
std::string rangeMessage(F&& f) {
    try {
        f();
    } catch (const Kest::RangeException& e) {
        return e.what();
    }
    return "no Kest::RangeException";
}

TEST(ArrayTest, EveryAccessorRefusesAnIndexPastTheEndWithTheFixedMessage) {
    Routing::IgpCommon::IgpNodeId::Bytes bytes;
    bytes.set(IgpNodeIdIndex(6), 0xab);
    const std::string msg = "cannot access index 7 of an array with size 7";
    EXPECT_EQ(rangeMessage([&] { (void)bytes[IgpNodeIdIndex(7)]; }), msg);
    EXPECT_EQ(rangeMessage([&] { (void)bytes.at(IgpNodeIdIndex(7)); }), msg);
    EXPECT_EQ(rangeMessage([&] { bytes.set(IgpNodeIdIndex(7), 1); }), msg);
    EXPECT_EQ(rangeMessage([&] { (void)bytes.present(IgpNodeIdIndex(7)); }), msg);
    EXPECT_EQ(rangeMessage([&] { (void)bytes.at(IgpNodeIdIndex(255)); }),
              "cannot access index 255 of an array with size 7");
    EXPECT_EQ(bytes.at(IgpNodeIdIndex(6)), 0xab);
    EXPECT_FALSE(bytes.has(IgpNodeIdIndex(7)));
    EXPECT_TRUE(bytes.has(IgpNodeIdIndex(6)));

    // 8 is a valid WideIndex (its bounds are 0..9): only the 8-slot array refuses it.
    EXPECT_EQ(WideIndex::checked(8).value(), 8);
    Kest::Array<int, WideIndex, 8> wide;
    wide.set(WideIndex(7), 70);
    EXPECT_EQ(wide[WideIndex(7)], 70);
    EXPECT_EQ(rangeMessage([&] { wide.set(WideIndex(8), 1); }),
              "cannot access index 8 of an array with size 8");
    EXPECT_EQ(rangeMessage([&] { (void)wide[WideIndex(9)]; }),
              "cannot access index 9 of an array with size 8");
    // The failed writes changed nothing.
    for (std::size_t i = 0; i < 7; ++i) {
        EXPECT_EQ(wide.slot(i), 0) << i;
    }
}

TEST(ArrayTest, AnArrayStartingAtAnOffsetMapsIndexesToSlotsAndRefusesBelowTheStart) {
    Kest::Array<int, WideIndex, 4, 2> a;  // indexes 2..5
    a.set(WideIndex(2), 20);
    a.set(WideIndex(5), 50);
    EXPECT_EQ(a.slot(0), 20);
    EXPECT_EQ(a.slot(3), 50);
    EXPECT_EQ(rangeMessage([&] { (void)a[WideIndex(1)]; }), "cannot access index 1 of an array with size 4");
    EXPECT_EQ(rangeMessage([&] { (void)a[WideIndex(6)]; }), "cannot access index 6 of an array with size 4");
    EXPECT_FALSE(a.has(WideIndex(1)));
    EXPECT_TRUE(a.has(WideIndex(5)));
}

TEST(ArrayTest, DefaultElementsCountAsAbsentAndEqualityComparesEverySlot) {
    Kest::Array<std::uint8_t, IgpNodeIdIndex, 7> a;
    Kest::Array<std::uint8_t, IgpNodeIdIndex, 7> b;
    EXPECT_FALSE(a.present(IgpNodeIdIndex(3)));
    a.set(IgpNodeIdIndex(3), 9);
    EXPECT_TRUE(a.present(IgpNodeIdIndex(3)));
    EXPECT_NE(a, b);
    b.set(IgpNodeIdIndex(3), 9);
    EXPECT_EQ(a, b);
    a.set(IgpNodeIdIndex(3), 0);
    EXPECT_FALSE(a.present(IgpNodeIdIndex(3)));
}

TEST(ArrayTest, TextFormListsEverySlotInDecimalWhateverTheStreamBase) {
    Kest::Array<std::uint8_t, IgpNodeIdIndex, 7> a;
    a.set(IgpNodeIdIndex(0), 255);
    a.set(IgpNodeIdIndex(2), 10);
    std::ostringstream os;
    os << std::hex << a;
    EXPECT_EQ(os.str(), "[255, 0, 10, 0, 0, 0, 0]");
}

TEST(DynArrayTest, GrowsByIndexPlusFourFirstThenByDoublingOrToTheIndex) {
    Kest::DynArray<std::uint8_t> d;
    EXPECT_EQ(d.capacity(), 0u);
    d.at(2) = 1;
    EXPECT_EQ(d.capacity(), 6u);  // 2 + 4
    d.at(5) = 2;
    EXPECT_EQ(d.capacity(), 6u);  // fits
    d.at(6) = 3;
    EXPECT_EQ(d.capacity(), 12u);  // max(2 * 6, 7)
    d.at(40) = 4;
    EXPECT_EQ(d.capacity(), 41u);  // max(24, 41)
    d.at(41) = 5;
    EXPECT_EQ(d.capacity(), 82u);  // max(82, 42)
    // Growth keeps what was stored.
    EXPECT_EQ(d.get(2), 1);
    EXPECT_EQ(d.get(5), 2);
    EXPECT_EQ(d.get(6), 3);
    EXPECT_EQ(d.get(40), 4);
    EXPECT_EQ(d.get(41), 5);
    EXPECT_EQ(d.get(3), 0);

    Kest::DynArray<int> big;
    big.at(100) = 7;
    EXPECT_EQ(big.capacity(), 104u);
}

TEST(DynArrayTest, ReadingBeyondTheStorageGivesTheDefaultAndDoesNotGrow) {
    Kest::DynArray<std::string> d;
    EXPECT_EQ(d.get(0), "");
    EXPECT_EQ(d.get(4000000), "");
    EXPECT_EQ(d.capacity(), 0u);
    d.at(1) = "one";
    EXPECT_EQ(d.get(1), "one");
    EXPECT_EQ(d.get(5), "");
    EXPECT_EQ(d.get(500), "");
    EXPECT_EQ(d.capacity(), 5u);
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

TEST(DynArrayDeathTest, AnIndexNeedingMoreThan2003003EntriesAborts) {
    Kest::DynArray<std::uint8_t> d;
    EXPECT_DEATH(d.at(2003003) = 1, "newEntries < 2003004");
    d.at(10) = 1;
    EXPECT_DEATH(d.at(4000000000u) = 1, "newEntries < 2003004");
}

TEST(DynArrayDeathTest, AnIndexPastTheLimitAbortsEvenWhenTheStorageHappensToBeLargeEnough) {
    Kest::DynArray<std::uint8_t> d;
    d.at(1500000) = 1;
    d.at(1500004) = 1;  // doubles the storage
    EXPECT_LE(d.capacity(), 2003003u);
    EXPECT_DEATH(d.at(2500000) = 1, "newEntries < 2003004");
}

}  // namespace
