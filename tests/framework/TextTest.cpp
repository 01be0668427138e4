// Canonical text pieces: the CharRange readers and bounded indexes.
#include "IgpCommon/framework/Text.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "IgpCommon/IgpNodeId.h"
#include "IgpCommon/framework/BoundedIndex.h"
#include "tests/support/TextHelpers.h"

namespace {

using Routing::IgpCommon::IgpNodeIdIndex;
using testsupport::messageOf;
using testsupport::parse;

const std::string nodeIdIndexRangeMessage =
    "Routing::IgpCommon::IgpNodeIdIndex::value < Routing::IgpCommon::IgpNodeIdIndex::min or > "
    "Routing::IgpCommon::IgpNodeIdIndex::max not allowed";

struct Mid : Kest::BoundedIndex<Mid, 3, 5> {
    static constexpr const char kestTypeName[] = "Test::Mid";
    using BoundedIndex::BoundedIndex;
};

// ---- pieces --------------------------------------------------------------------------

TEST(CharRangeTest, ConsumeAndExpectAdvanceOnlyOnAMatchAndErrorsQuoteAtMost24Characters) {
    Kest::CharRange r(std::string_view("abc:def"));
    EXPECT_EQ(r.peek(), 'a');
    EXPECT_FALSE(r.consume("abd"));
    EXPECT_EQ(r.offset(), 0u);
    EXPECT_TRUE(r.consume("abc"));
    EXPECT_EQ(r.rest(), ":def");
    EXPECT_EQ(messageOf<Kest::ParseException>([&] { r.expect(": "); }),
              "expected \": \" at offset 3 (before \":def\")");
    EXPECT_EQ(r.offset(), 3u);
    r.expect(":");
    EXPECT_EQ(messageOf<Kest::ParseException>([&] { r.checkAllConsumed(); }),
              "unexpected text after the value at offset 4 (before \"def\")");
    r.advance(3);
    EXPECT_TRUE(r.atEnd());
    EXPECT_EQ(r.peek(), '\0');
    EXPECT_FALSE(r.consume("x"));
    EXPECT_TRUE(r.consume(""));
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
    EXPECT_THROW(parse<std::uint8_t>("300"), Kest::RangeException);
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

// ---- bounded indexes ------------------------------------------------------------------

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
    EXPECT_EQ(messageOf<Kest::RangeException>([] { Mid::checked(2); }),
              "Test::Mid::value < Test::Mid::min or > Test::Mid::max not allowed");
    EXPECT_EQ(Mid::checked(3).value() + Mid::checked(5).value(), 8);
    EXPECT_THROW(Mid::checked(6), Kest::RangeException);
    EXPECT_EQ(Mid(200).value(), 200) << "the plain constructor does not check";
}

}  // namespace
