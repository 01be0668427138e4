// Canonical text forms: CharRange pieces, the generic value form, bounded indexes.
#include "IgpCommon/framework/Text.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>
#include <tuple>

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

/// A value type with three attributes: a number, a flag and a nested value.
struct Sample {
    std::uint16_t metric = 0;
    bool up = false;
    IgpNodeIdIndex index;

    Sample() = default;
    Sample(std::uint16_t m, bool u, std::uint8_t i) : metric(m), up(u), index(i) {}
    explicit Sample(Kest::CharRange& r);
    friend bool operator==(const Sample&, const Sample&) = default;

    static constexpr const char kestTypeName[] = "Test::Sample";
    static constexpr auto kestAttrs() {
        return std::tuple{Kest::attr("metric", &Sample::metric), Kest::attr("up", &Sample::up),
                          Kest::attr("index", &Sample::index)};
    }
};

/// A value type that holds a Sample: range errors two levels down.
struct Outer {
    std::int8_t delta = 0;
    Sample inner;

    Outer() = default;
    explicit Outer(Kest::CharRange& r);
    static constexpr const char kestTypeName[] = "Test::Outer";
    static constexpr auto kestAttrs() {
        return std::tuple{Kest::attr("delta", &Outer::delta), Kest::attr("inner", &Outer::inner)};
    }
};

/// A value type with one attribute: written bare.
struct Single {
    std::uint32_t value = 0;
    Single() = default;
    explicit Single(std::uint32_t v) : value(v) {}
    explicit Single(Kest::CharRange& r);
    static constexpr const char kestTypeName[] = "Test::Single";
    static constexpr auto kestAttrs() { return std::tuple{Kest::attr("value", &Single::value)}; }
};

// Defined after the classes: they need kestAttrs() complete.
Sample::Sample(Kest::CharRange& r) : Sample(Kest::readValue<Sample>(r)) {}
Outer::Outer(Kest::CharRange& r) : Outer(Kest::readValue<Outer>(r)) {}
Single::Single(Kest::CharRange& r) : Single(Kest::readValue<Single>(r)) {}
std::ostream& operator<<(std::ostream& os, const Sample& s) {
    return Kest::writeValue(os, s);
}
std::ostream& operator<<(std::ostream& os, const Outer& o) {
    return Kest::writeValue(os, o);
}
std::ostream& operator<<(std::ostream& os, const Single& s) {
    return Kest::writeValue(os, s);
}

struct Mid : Kest::BoundedIndex<Mid, 3, 5> {
    static constexpr const char kestTypeName[] = "Test::Mid";
    using BoundedIndex::BoundedIndex;
};

const std::string sampleText = "Value('Test::Sample', ** {'metric': 300, 'up': True, 'index': 5})";

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

// ---- the generic value form -----------------------------------------------------------

TEST(ValueFormTest, WritesEveryAttributeInDeclarationOrderInDecimalAndReadsItBack) {
    EXPECT_EQ(Kest::strep(Sample()), "Value('Test::Sample', ** {'metric': 0, 'up': False, 'index': 0})");
    Outer o;
    o.delta = -3;
    o.inner = Sample(1, false, 2);
    EXPECT_EQ(Kest::strep(o),
              "Value('Test::Outer', ** {'delta': -3, 'inner': Value('Test::Sample', ** {'metric': 1, 'up': "
              "False, 'index': 2})})");
    for (const Sample& s : {Sample(), Sample(65535, true, 6), Sample(300, true, 5)}) {
        EXPECT_EQ(parse<Sample>(Kest::strep(s)), s) << Kest::strep(s);
    }
    const Outer back = parse<Outer>("Value('Test::Outer', ** {'delta': -128, 'inner': " + sampleText + "})");
    EXPECT_EQ(back.delta, -128);
    EXPECT_EQ(back.inner, Sample(300, true, 5));

    std::ostringstream os;
    os << std::hex << std::showbase << Sample(300, true, 5) << ' ';
    Kest::writeText(os, 255u);
    os << ' ';
    Kest::writeText(os, std::int64_t{-16});
    os << ' ' << IgpNodeIdIndex(6);
    EXPECT_EQ(os.str(), sampleText + " 255 -16 6");
}

TEST(ValueFormTest, StrictReaderRefusesReorderedMisnamedOrLooselySpacedText) {
    const char* bad[] = {
        "Value('Test::Sample', ** {'up': True, 'metric': 300, 'index': 5})",   // attributes out of order
        "Value('Test::Other', ** {'metric': 300, 'up': True, 'index': 5})",    // wrong type name
        "Value('Test::Sample', ** {'metric': 300, 'up': True})",               // one missing
        "Value('Test::Sample', ** {'metric':300, 'up': True, 'index': 5})",    // no space after the colon
        "Value('Test::Sample', ** {'metric': 300, 'up': true, 'index': 5})",   // lower-case bool
        "Value('Test::Sample', ** {'metric': 300, 'up': True, 'index': 5}",    // unterminated
        "Value('Test::Sample', ** {'metric': 300, 'up': True, 'index': 5}) ",  // left over
        "",
    };
    for (const char* text : bad) {
        EXPECT_THROW(parse<Sample>(text), Kest::ParseException) << text;
    }
}

TEST(ValueFormTest, ARangeErrorInAnAttributeNamesTheInnermostAttributeAndOtherErrorsPassUnchanged) {
    try {
        parse<Sample>("Value('Test::Sample', ** {'metric': 300, 'up': True, 'index': 7})");
        ADD_FAILURE() << "no exception";
    } catch (const Kest::AttributeParseException& e) {
        EXPECT_EQ(e.attribute(), "index");
        EXPECT_EQ(e.cause(), nodeIdIndexRangeMessage);
        EXPECT_EQ(std::string(e.what()), "attribute 'index': " + nodeIdIndexRangeMessage);
    }
    EXPECT_EQ(messageOf<Kest::AttributeParseException>([] {
                  parse<Sample>("Value('Test::Sample', ** {'metric': 65536, 'up': True, 'index': 1})");
              }),
              "attribute 'metric': number 65536 does not fit in 16 bits");
    // The inner error is a parse error by then, not a range error: it passes the outer level unchanged.
    EXPECT_EQ(messageOf<Kest::AttributeParseException>([] {
                  parse<Outer>(
                      "Value('Test::Outer', ** {'delta': 1, 'inner': Value('Test::Sample', ** {'metric': 1, "
                      "'up': True, 'index': 9})})");
              }),
              "attribute 'index': " + nodeIdIndexRangeMessage);
    // Not wrapped: the exact text has no attribute prefix.
    EXPECT_EQ(messageOf<Kest::ParseException>([] {
                  parse<Sample>("Value('Test::Sample', ** {'metric': 300, 'up': Maybe, 'index': 5})");
              }),
              "expected True or False at offset 47 (before \"Maybe, 'index': 5})\")");
}

TEST(ValueFormTest, AValueWithOneAttributeIsWrittenAndReadBareAndKeepsItsRangeError) {
    EXPECT_EQ(Kest::strep(Single(42)), "42");
    EXPECT_EQ(parse<Single>("4294967295").value, 4294967295u);
    EXPECT_THROW(parse<Single>("Value('Test::Single', ** {'value': 4})"), Kest::ParseException);
    EXPECT_THROW(parse<Single>("42 "), Kest::ParseException);
    // A bare value has no attribute to name: the range error stays a range error.
    EXPECT_EQ(messageOf<Kest::RangeException>([] { parse<Single>("4294967296"); }),
              "number 4294967296 does not fit in 32 bits");
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
