// Canonical text pieces (the CharRange readers), bounded indexes and the arrays they address:
// Kest::Array (fixed, index-typed) and Kest::DynArray (growable).
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <sstream>
#include <string>

#include "IgpCommon/IgpNodeId.h"
#include "IgpCommon/framework/Array.h"
#include "IgpCommon/framework/BoundedIndex.h"
#include "IgpCommon/framework/Text.h"
#include "tests/support/TextHelpers.h"

namespace {

using Routing::IgpCommon::IgpNodeIdIndex;
using testsupport::messageOf;
using testsupport::parse;

const std::string nodeIdIndexRangeMessage =
    "Routing::IgpCommon::IgpNodeIdIndex::value < Routing::IgpCommon::IgpNodeIdIndex::min or > "
    "Routing::IgpCommon::IgpNodeIdIndex::max not allowed";

/// An index type whose bounds (2..9) reach past the arrays it addresses.
struct Mid : Kest::BoundedIndex<Mid, 2, 9> {
    static constexpr const char kestTypeName[] = "Test::Mid";
    using BoundedIndex::BoundedIndex;
};

TEST(CharRangeTest, ConsumeAndExpectAdvanceOnlyOnAMatchAndErrorsQuoteAtMost24Characters) {
    Kest::CharRange r(std::string_view("abc:def"));
    EXPECT_TRUE(r.peek() == 'a' && !r.consume("abd") && r.offset() == 0 && r.consume("abc"));
    EXPECT_EQ(messageOf<Kest::ParseException>([&] { r.expect(": "); }),
              "expected \": \" at offset 3 (before \":def\")");
    EXPECT_EQ(r.offset(), 3u);
    r.expect(":");
    EXPECT_EQ(messageOf<Kest::ParseException>([&] { r.checkAllConsumed(); }),
              "unexpected text after the value at offset 4 (before \"def\")");
    r.advance(3);
    EXPECT_TRUE(r.atEnd() && r.peek() == '\0' && !r.consume("x") && r.consume(""));
    EXPECT_NO_THROW(r.checkAllConsumed());
    Kest::CharRange longer(std::string_view("0123456789abcdefghijklmnopqrstuvwxyz"));
    EXPECT_EQ(messageOf<Kest::ParseException>([&] { longer.fail("oops"); }),
              "oops at offset 0 (before \"0123456789abcdefghijklmn\")");
}

TEST(CharRangeTest, NumbersBooleansAndIdentifiersReadExactlyAndRefuseWhatDoesNotFit) {
    Kest::CharRange r(std::string_view("255,256"));
    EXPECT_EQ(Kest::readUnsignedBits(r, 8), 255u);
    r.expect(",");
    EXPECT_EQ(messageOf<Kest::RangeException>([&] { Kest::readUnsignedBits(r, 8); }),
              "number 256 does not fit in 8 bits");
    for (const char* bad : {"", "x1", "+1", " 1", "-1"}) {
        Kest::CharRange b{std::string_view(bad)};
        EXPECT_THROW(Kest::readUnsignedBits(b, 32), Kest::ParseException) << '"' << bad << '"';
        EXPECT_EQ(b.offset(), 0u);
    }
    EXPECT_EQ(parse<std::uint64_t>("18446744073709551615"), ~std::uint64_t{0});
    EXPECT_EQ(parse<std::int8_t>("-128") + parse<std::int8_t>("127"), -1);
    EXPECT_EQ(parse<std::int64_t>("-9223372036854775808"), INT64_MIN);
    EXPECT_THROW(parse<std::uint64_t>("18446744073709551616"), Kest::RangeException);
    EXPECT_THROW(parse<std::int8_t>("128"), Kest::RangeException);
    EXPECT_EQ(messageOf<Kest::RangeException>([] { parse<std::int8_t>("-129"); }),
              "number -129 does not fit in 8 signed bits");
    EXPECT_THROW(parse<std::int8_t>("-"), Kest::ParseException);
    EXPECT_EQ(parse<bool>("True"), !parse<bool>("False"));
    for (const char* bad : {"true", "Truex"}) {
        EXPECT_THROW(parse<bool>(bad), Kest::ParseException) << bad;
    }
    Kest::CharRange id(std::string_view("igp_Level2-x"));
    EXPECT_EQ(Kest::readIdentifier(id), "igp_Level2");
    EXPECT_EQ(id.rest(), "-x");
    EXPECT_EQ(Kest::readIdentifier(id), "");
}

TEST(BoundedIndexTest, TextAndCheckedRefuseOutOfRangeValuesWithTheTypesMessageWithoutTruncating) {
    EXPECT_EQ(parse<IgpNodeIdIndex>("6").value(), 6);
    EXPECT_EQ(Kest::strep(IgpNodeIdIndex(4)), "4");
    EXPECT_EQ(messageOf<Kest::RangeException>([] { parse<IgpNodeIdIndex>("7"); }), nodeIdIndexRangeMessage);
    EXPECT_EQ(messageOf<Kest::RangeException>([] { parse<IgpNodeIdIndex>("99999999999999999999"); }),
              "number 99999999999999999999 does not fit in 64 bits");
    for (const char* bad : {"6x", "", "-1"}) {
        EXPECT_THROW(parse<IgpNodeIdIndex>(bad), Kest::ParseException) << bad;
    }
    EXPECT_EQ(messageOf<Kest::RangeException>([] { IgpNodeIdIndex::checked(7); }), nodeIdIndexRangeMessage);
    EXPECT_THROW(IgpNodeIdIndex::checked((std::uint64_t{1} << 40) + 3), Kest::RangeException);  // not 3
    EXPECT_EQ(messageOf<Kest::RangeException>([] { Mid::checked(1); }),
              "Test::Mid::value < Test::Mid::min or > Test::Mid::max not allowed");
    EXPECT_EQ(Mid::checked(2).value() + Mid::checked(9).value(), 11);
    EXPECT_THROW(Mid::checked(10), Kest::RangeException);
    EXPECT_EQ(Mid(200).value(), 200) << "the plain constructor does not check";
}

TEST(ArrayTest, EveryAccessorRefusesAnIndexOutsideTheSlotsWithTheFixedMessageAndChangesNothing) {
    Kest::Array<std::uint8_t, IgpNodeIdIndex, 7> bytes;
    Kest::Array<int, Mid, 8> wide;
    Kest::Array<int, Mid, 4, 2> offset;  // indexes 2..5
    bytes.set(IgpNodeIdIndex(6), 0xab);
    wide.set(Mid(7), 70);
    offset.set(Mid(2), 20);
    offset.set(Mid(5), 50);
    const std::pair<std::function<void()>, std::string> refused[] = {
        {[&] { (void)bytes[IgpNodeIdIndex(7)]; }, "index 7 of an array with size 7"},
        {[&] { (void)bytes.at(IgpNodeIdIndex(255)); }, "index 255 of an array with size 7"},
        {[&] { bytes.set(IgpNodeIdIndex(7), 1); }, "index 7 of an array with size 7"},
        {[&] { (void)bytes.present(IgpNodeIdIndex(7)); }, "index 7 of an array with size 7"},
        {[&] { wide.set(Mid(8), 1); }, "index 8 of an array with size 8"},  // a valid Mid
        {[&] { (void)wide[Mid(9)]; }, "index 9 of an array with size 8"},
        {[&] { (void)offset[Mid(1)]; }, "index 1 of an array with size 4"},
        {[&] { (void)offset.at(Mid(6)); }, "index 6 of an array with size 4"},
    };
    EXPECT_EQ(Mid::checked(8).value(), 8) << "the index is valid: only the array refuses it";
    for (const auto& [access, message] : refused) {
        EXPECT_EQ(messageOf<Kest::RangeException>(access), "cannot access " + message);
    }
    std::ostringstream os;
    os << std::hex << bytes;  // the text stays decimal
    EXPECT_EQ(os.str(), "[0, 0, 0, 0, 0, 0, 171]");
    EXPECT_EQ(testsupport::text(wide), "[0, 0, 0, 0, 0, 0, 0, 70]");
    EXPECT_EQ(testsupport::text(offset), "[20, 0, 0, 50]");
    EXPECT_TRUE(offset.has(Mid(5)) && offset.has(Mid(2)) && bytes.present(IgpNodeIdIndex(6)));
    EXPECT_FALSE(offset.has(Mid(1)) || offset.has(Mid(6)) || bytes.present(IgpNodeIdIndex(5)))
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
