// Canonical text forms: CharRange pieces, the generic value form, bounded indexes.
#include "IgpCommon/framework/Text.h"

#include <gtest/gtest.h>

#include "tests/support/TextHelpers.h"

#include <cstdint>
#include <sstream>
#include <string>
#include <tuple>

#include "IgpCommon/IgpNodeId.h"
#include "IgpCommon/framework/BoundedIndex.h"

namespace {

using Routing::IgpCommon::IgpNodeIdIndex;

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
    friend std::ostream& operator<<(std::ostream& os, const Sample& s);

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

    explicit Outer(Kest::CharRange& r);
    Outer() = default;
    friend std::ostream& operator<<(std::ostream& os, const Outer& o);

    static constexpr const char kestTypeName[] = "Test::Outer";
    static constexpr auto kestAttrs() {
        return std::tuple{Kest::attr("delta", &Outer::delta), Kest::attr("inner", &Outer::inner)};
    }
};

/// A value type with one attribute: written bare.
struct Single {
    std::uint32_t value = 0;
    explicit Single(Kest::CharRange& r);
    Single() = default;
    explicit Single(std::uint32_t v) : value(v) {}
    friend std::ostream& operator<<(std::ostream& os, const Single& s);
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

using testsupport::messageOf;

// ---- pieces --------------------------------------------------------------------------

TEST(CharRangeTest, ConsumeAndExpectAdvanceOnlyOnAMatch) {
    Kest::CharRange r(std::string_view("abc:def"));
    EXPECT_EQ(r.peek(), 'a');
    EXPECT_FALSE(r.consume("abd"));
    EXPECT_EQ(r.offset(), 0u);
    EXPECT_TRUE(r.consume("abc"));
    EXPECT_EQ(r.offset(), 3u);
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
}

TEST(CharRangeTest, ErrorMessagesShowAtMost24CharactersOfWhatFollows) {
    Kest::CharRange r(std::string_view("0123456789abcdefghijklmnopqrstuvwxyz"));
    EXPECT_EQ(messageOf<Kest::ParseException>([&] { r.fail("oops"); }),
              "oops at offset 0 (before \"0123456789abcdefghijklmn\")");
}

TEST(CharRangeTest, NumbersReadDigitsOnlyAndRefuseWhatDoesNotFit) {
    Kest::CharRange r(std::string_view("255,256"));
    EXPECT_EQ(Kest::readUnsignedBits(r, 8), 255u);
    EXPECT_EQ(r.rest(), ",256");
    r.expect(",");
    EXPECT_EQ(messageOf<Kest::RangeException>([&] { Kest::readUnsignedBits(r, 8); }),
              "number 256 does not fit in 8 bits");

    Kest::CharRange huge(std::string_view("18446744073709551616"));
    EXPECT_THROW(Kest::readUnsignedBits(huge, 64), Kest::RangeException);
    Kest::CharRange max64(std::string_view("18446744073709551615"));
    EXPECT_EQ(Kest::readUnsignedBits(max64, 64), ~std::uint64_t{0});

    for (const char* bad : {"", "x1", "+1", " 1", "-1"}) {
        Kest::CharRange b{std::string_view(bad)};
        EXPECT_THROW(Kest::readUnsignedBits(b, 32), Kest::ParseException) << '"' << bad << '"';
        EXPECT_EQ(b.offset(), 0u);
    }

    const auto signedOf = [](const char* text, unsigned bits) {
        Kest::CharRange s{std::string_view(text)};
        return Kest::readSignedBits(s, bits);
    };
    EXPECT_EQ(signedOf("-128", 8), -128);
    EXPECT_EQ(signedOf("127", 8), 127);
    EXPECT_EQ(signedOf("-9223372036854775808", 64), INT64_MIN);
    EXPECT_THROW(signedOf("128", 8), Kest::RangeException);
    EXPECT_THROW(signedOf("-129", 8), Kest::RangeException);
    EXPECT_THROW(signedOf("-", 8), Kest::ParseException);
}

TEST(CharRangeTest, BooleansAndIdentifiersReadExactly) {
    Kest::CharRange r(std::string_view("TrueFalse"));
    EXPECT_TRUE(Kest::readBool(r));
    EXPECT_FALSE(Kest::readBool(r));
    Kest::CharRange lower(std::string_view("true"));
    EXPECT_THROW(Kest::readBool(lower), Kest::ParseException);

    Kest::CharRange id(std::string_view("igp_Level2-x"));
    EXPECT_EQ(Kest::readIdentifier(id), "igp_Level2");
    EXPECT_EQ(id.rest(), "-x");
    EXPECT_EQ(Kest::readIdentifier(id), "");
}

// ---- the generic value form -----------------------------------------------------------

TEST(ValueFormTest, WritesEveryAttributeInDeclarationOrder) {
    EXPECT_EQ(Kest::strep(Sample(300, true, 5)), sampleText);
    EXPECT_EQ(Kest::strep(Sample()), "Value('Test::Sample', ** {'metric': 0, 'up': False, 'index': 0})");
    Outer o;
    o.delta = -3;
    o.inner = Sample(1, false, 2);
    EXPECT_EQ(
        Kest::strep(o),
        "Value('Test::Outer', ** {'delta': -3, 'inner': Value('Test::Sample', ** {'metric': 1, 'up': False, "
        "'index': 2})})");
}

TEST(ValueFormTest, ReadsBackWhatItWrote) {
    for (const Sample& s : {Sample(), Sample(65535, true, 6), Sample(7, false, 1)}) {
        EXPECT_EQ(Kest::strepToValue(Kest::strep(s), static_cast<Sample*>(nullptr)), s) << Kest::strep(s);
    }
    const Outer o = Kest::strepToValue(
        std::string("Value('Test::Outer', ** {'delta': -128, 'inner': ") + sampleText + "})",
        static_cast<Outer*>(nullptr));
    EXPECT_EQ(o.delta, -128);
    EXPECT_EQ(o.inner, Sample(300, true, 5));
}

TEST(ValueFormTest, NumbersAreWrittenInDecimalEvenWhenTheStreamIsInHex) {
    std::ostringstream os;
    os << std::hex << std::showbase;
    os << Sample(300, true, 5) << ' ';
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
        EXPECT_THROW(Kest::strepToValue(std::string(text), static_cast<Sample*>(nullptr)),
                     Kest::ParseException)
            << text;
    }
}

TEST(ValueFormTest, ARangeErrorInAnAttributeNamesTheAttribute) {
    try {
        Kest::strepToValue(std::string("Value('Test::Sample', ** {'metric': 300, 'up': True, 'index': 7})"),
                           static_cast<Sample*>(nullptr));
        ADD_FAILURE() << "no exception";
    } catch (const Kest::AttributeParseException& e) {
        EXPECT_EQ(e.attribute(), "index");
        EXPECT_EQ(e.cause(), nodeIdIndexRangeMessage);
        EXPECT_EQ(std::string(e.what()), "attribute 'index': " + nodeIdIndexRangeMessage);
    }
    try {
        Kest::strepToValue(std::string("Value('Test::Sample', ** {'metric': 65536, 'up': True, 'index': 1})"),
                           static_cast<Sample*>(nullptr));
        ADD_FAILURE() << "no exception";
    } catch (const Kest::AttributeParseException& e) {
        EXPECT_EQ(e.attribute(), "metric");
        EXPECT_EQ(std::string(e.what()), "attribute 'metric': number 65536 does not fit in 16 bits");
    }
}

TEST(ValueFormTest, ARangeErrorTwoLevelsDownNamesTheInnermostAttribute) {
    const std::string text =
        "Value('Test::Outer', ** {'delta': 1, 'inner': Value('Test::Sample', ** {'metric': 1, 'up': True, "
        "'index': 9})})";
    try {
        Kest::strepToValue(text, static_cast<Outer*>(nullptr));
        ADD_FAILURE() << "no exception";
    } catch (const Kest::AttributeParseException& e) {
        // The inner attribute error is a parse error, not a range error: it passes the outer level unchanged.
        EXPECT_EQ(e.attribute(), "index");
        EXPECT_EQ(std::string(e.what()), "attribute 'index': " + nodeIdIndexRangeMessage);
    }
}

TEST(ValueFormTest, OtherParseErrorsInAnAttributePassThroughUnchanged) {
    const std::string text = "Value('Test::Sample', ** {'metric': 300, 'up': Maybe, 'index': 5})";
    try {
        Kest::strepToValue(text, static_cast<Sample*>(nullptr));
        ADD_FAILURE() << "no exception";
    } catch (const Kest::AttributeParseException& e) {
        ADD_FAILURE() << "a parse error was wrapped: " << e.what();
    } catch (const Kest::ParseException& e) {
        EXPECT_EQ(std::string(e.what()),
                  "expected True or False at offset 47 (before \"Maybe, 'index': 5})\")");
    }
}

TEST(ValueFormTest, AValueWithOneAttributeIsWrittenAndReadBare) {
    EXPECT_EQ(Kest::strep(Single(42)), "42");
    EXPECT_EQ(Kest::strepToValue(std::string("4294967295"), static_cast<Single*>(nullptr)).value,
              4294967295u);
    EXPECT_THROW(Kest::strepToValue(std::string("Value('Test::Single', ** {'value': 4})"),
                                    static_cast<Single*>(nullptr)),
                 Kest::ParseException);
    EXPECT_THROW(Kest::strepToValue(std::string("42 "), static_cast<Single*>(nullptr)), Kest::ParseException);
    // A bare value has no attribute to name: the range error stays a range error.
    EXPECT_EQ(messageOf<Kest::RangeException>(
                  [] { Kest::strepToValue(std::string("4294967296"), static_cast<Single*>(nullptr)); }),
              "number 4294967296 does not fit in 32 bits");
}

TEST(ValueFormTest, StrepToValueReadsPlainNumbersAndBooleansWhole) {
    EXPECT_EQ(Kest::strepToValue(std::string("-5"), static_cast<std::int32_t*>(nullptr)), -5);
    EXPECT_EQ(Kest::strepToValue(std::string("True"), static_cast<bool*>(nullptr)), true);
    EXPECT_THROW(Kest::strepToValue(std::string("Truex"), static_cast<bool*>(nullptr)), Kest::ParseException);
    EXPECT_THROW(Kest::strepToValue(std::string("300"), static_cast<std::uint8_t*>(nullptr)),
                 Kest::RangeException);
}

// ---- bounded indexes ------------------------------------------------------------------

TEST(BoundedIndexTest, TextReaderChecksTheBoundsAndTheWholeText) {
    const auto read = [](const char* text) {
        return Kest::strepToValue(std::string(text), static_cast<IgpNodeIdIndex*>(nullptr));
    };
    EXPECT_EQ(read("6").value(), 6);
    EXPECT_EQ(read("0").value(), 0);
    EXPECT_EQ(messageOf<Kest::RangeException>([&] { read("7"); }), nodeIdIndexRangeMessage);
    EXPECT_EQ(messageOf<Kest::RangeException>([&] { read("256"); }), nodeIdIndexRangeMessage);
    EXPECT_EQ(messageOf<Kest::RangeException>([&] { read("99999999999999999999"); }),
              "number 99999999999999999999 does not fit in 64 bits");
    EXPECT_THROW(read("6x"), Kest::ParseException);
    EXPECT_THROW(read(""), Kest::ParseException);
    EXPECT_THROW(read("-1"), Kest::ParseException);
    EXPECT_EQ(Kest::strep(IgpNodeIdIndex(4)), "4");
}

TEST(BoundedIndexTest, CheckedRefusesOutOfRangeIntegersWithoutTruncating) {
    EXPECT_EQ(IgpNodeIdIndex::checked(6).value(), 6);
    EXPECT_EQ(messageOf<Kest::RangeException>([] { IgpNodeIdIndex::checked(7); }), nodeIdIndexRangeMessage);
    // 2^40 + 3 must not wrap to 3.
    EXPECT_THROW(IgpNodeIdIndex::checked((std::uint64_t{1} << 40) + 3), Kest::RangeException);
    EXPECT_THROW(IgpNodeIdIndex::checked(259), Kest::RangeException);

    EXPECT_EQ(messageOf<Kest::RangeException>([] { Mid::checked(2); }),
              "Test::Mid::value < Test::Mid::min or > Test::Mid::max not allowed");
    EXPECT_EQ(Mid::checked(3).value(), 3);
    EXPECT_EQ(Mid::checked(5).value(), 5);
    EXPECT_THROW(Mid::checked(6), Kest::RangeException);
    // The plain constructor does not check: users report the index they were given.
    EXPECT_EQ(Mid(200).value(), 200);
}

}  // namespace
