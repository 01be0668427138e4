// IS-IS identifiers: system identifier and area address (text, readers' errors, limits, order).
#include "IgpCommon/platform/Isis.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/support/TextHelpers.h"

namespace {

using Routing::Isis::AreaId;
using Routing::Isis::SystemId;
using testsupport::messageOf;
using testsupport::parse;

AreaId area(std::vector<std::uint8_t> bytes) {
    return AreaId::fromBytes(bytes.data(), bytes.size());
}

TEST(IsisSystemId, TextReaderOrderAndHash) {
    const std::uint8_t wire[6] = {0xab, 0xcd, 0xef, 0x01, 0x23, 0x45};
    EXPECT_EQ(Kest::strep(SystemId::fromBytes(wire)), "abcd.ef01.2345");
    EXPECT_EQ(parse<SystemId>("AbCd.eF01.2345"), SystemId::fromBytes(wire));
    Kest::CharRange r(std::string_view("0000.0000.0001.00-00"));
    EXPECT_EQ(SystemId(r).byte(5), 1);
    EXPECT_EQ(r.rest(), ".00-00");                                     // an LSP ID reader goes on from here
    for (const char* tooLong : {"1921.6800.10011", "192168001001"}) {  // dots left out: one long group
        EXPECT_NE(messageOf<Kest::RangeException>([&] {
                      parse<SystemId>(tooLong);
                  }).find("Routing::Isis::SystemId"),
                  std::string::npos);
    }
    for (const char* bad :
         {"", "192.6800.1001", "1921.680.1001", "1921.6800.100", "1921-6800-1001", "1921.6800",
          "g921.6800.1001", "1921.6800.1001.", " 1921.6800.1001", "1921..6800.1001"}) {
        EXPECT_THROW(parse<SystemId>(bad), Kest::ParseException) << bad;
    }
    // Order is the big-endian number over unsigned bytes; every byte reaches the hash.
    EXPECT_LT(parse<SystemId>("0000.0000.00ff"), parse<SystemId>("0000.0000.0100"));
    EXPECT_LT(parse<SystemId>("7fff.ffff.ffff"), parse<SystemId>("8000.0000.0000"));
    EXPECT_NE(parse<SystemId>("1921.6800.1001").hash(4), parse<SystemId>("1921.6800.1002").hash(4));
}

TEST(IsisAreaId, ConventionalTextForEveryLengthLimitsAndOrder) {
    const std::pair<std::vector<std::uint8_t>, std::string> table[] = {
        {{0x49}, "49"},
        {{0x49, 0x00}, "49.00"},
        {{0x49, 0x00, 0x01, 0x02}, "49.0001.02"},
        {{0x39, 0x08, 0x40, 0x00, 0x01}, "39.0840.0001"},
        {{0x47, 0x00, 0x05, 0x80, 0xff, 0xf8, 0x00, 0x00, 0x00, 0x01, 0x23, 0xab, 0xcd},
         "47.0005.80ff.f800.0000.0123.abcd"}};
    for (const auto& [bytes, text] : table) {
        const AreaId a = area(bytes);
        EXPECT_TRUE(std::equal(a.bytes().begin(), a.bytes().end(), bytes.begin(), bytes.end()));
        EXPECT_EQ(Kest::strep(a), text);
        EXPECT_EQ(parse<AreaId>(text), a) << text;
    }
    EXPECT_EQ(parse<AreaId>("49.ABCD.Ef"), area({0x49, 0xab, 0xcd, 0xef}));
    // The empty area means none: not the one-byte area 00, in text, equality, order or hash.
    EXPECT_EQ(Kest::strep(AreaId()), "none");
    EXPECT_EQ(parse<AreaId>("none"), AreaId());
    EXPECT_LT(AreaId(), area({0x00}));
    EXPECT_NE(AreaId().hash(9), area({0x00}).hash(9));
    const std::uint8_t zeros[14] = {};
    EXPECT_THROW(AreaId::fromBytes(zeros, 0), Kest::RangeException);
    EXPECT_THROW(AreaId::fromBytes(zeros, 14), Kest::RangeException);
    EXPECT_EQ(AreaId::fromBytes(zeros, 13).length(), 13u);
    EXPECT_EQ(messageOf<Kest::RangeException>([] { parse<AreaId>("49.0001.0002.0003.0004.0005.0006.07"); }),
              "Routing::Isis::AreaId of more than 13 bytes not allowed");
    for (const char* bad : {"", "4", "490", "4.0001", "49.", "49.0", "49.001", "49.00001", "49.01.0001",
                            "49.0001.", "49..0001", "49,0001", "x9.0001", " 49.0001", "49.0001 ", "None"}) {
        EXPECT_THROW(parse<AreaId>(bad), Kest::ParseException) << bad;
    }
    // Order by length, then unsigned bytes.
    EXPECT_LT(area({0xff}), area({0x00, 0x00}));
    EXPECT_LT(area({0x49, 0x7f, 0xff}), area({0x49, 0x80, 0x00}));
    EXPECT_FALSE(AreaId::isEq(area({0x49, 0x00, 0x01}), area({0x49, 0x00, 0x01, 0x00})));
    EXPECT_NE(area({0x49, 0x00, 0x01}).hash(2), area({0x49, 0x00, 0x01, 0x00}).hash(2));
}

}  // namespace
