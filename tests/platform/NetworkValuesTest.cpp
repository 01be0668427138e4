// Network value types: addresses, prefixes, MPLS labels and IS-IS identifiers (text, readers'
// errors, limits, order, hashes).
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "IgpCommon/platform/Isis.h"
#include "IgpCommon/platform/Lumo.h"
#include "tests/support/TextHelpers.h"

namespace {

using Lumo::Ip6Addr;
using Lumo::IpAddr;
using Lumo::IpGenAddr;
using Lumo::IpGenPrefix;
using Lumo::MplsLabel;
using Routing::Isis::AreaId;
using Routing::Isis::SystemId;
using testsupport::messageOf;
using testsupport::parse;

std::vector<std::string> split(std::string_view list) {
    std::vector<std::string> out;
    for (std::size_t i = 0, j = 0; i <= list.size(); i = j + 1) {
        j = std::min(list.find('|', i), list.size());
        out.emplace_back(list.substr(i, j - i));
    }
    return out;
}

/// Every '|'-separated text of `canonical` reads as a T and writes back unchanged.
template <class T>
void expectRoundTrips(std::string_view canonical) {
    for (const std::string& text : split(canonical)) {
        EXPECT_EQ(Kest::strep(parse<T>(text)), text);
    }
}

/// Every '|'-separated text in `bad` raises a parse error when read as a T; every one in `tooBig` a
/// range error whose message holds `type`.
template <class T>
void expectErrors(std::string_view bad, std::string_view tooBig, const char* type = "") {
    for (const std::string& text : split(bad)) {
        EXPECT_THROW(parse<T>(text), Kest::ParseException) << text;
    }
    for (const std::string& text : tooBig.empty() ? std::vector<std::string>() : split(tooBig)) {
        EXPECT_NE(messageOf<Kest::RangeException>([&] { parse<T>(text); }).find(type), std::string::npos)
            << text;
    }
}

/// Each '|'-separated value sorts strictly before the next and hashes differently.
template <class T>
void expectAscending(std::string_view list) {
    const std::vector<std::string> sorted = split(list);
    for (std::size_t i = 0; i + 1 < sorted.size(); ++i) {
        EXPECT_LT(parse<T>(sorted[i]), parse<T>(sorted[i + 1])) << sorted[i];
        EXPECT_NE(parse<T>(sorted[i]).hash(5), parse<T>(sorted[i + 1]).hash(5)) << sorted[i];
    }
}

/// The rest of `text` once a T has been read from its start.
template <class T>
std::string_view restAfter(std::string_view text) {
    Kest::CharRange r(text);
    (void)T(r);
    return r.rest();
}

TEST(LumoIpAddr, TextReaderOrderAndHash) {
    expectRoundTrips<IpAddr>("0.0.0.0|255.255.255.255|1.22.233.4|192.168.255.254");
    EXPECT_EQ(restAfter<IpAddr>("10.1.2.3/24"), "/24");  // a prefix reader goes on from here
    expectAscending<IpAddr>("9.255.255.255|10.0.0.0");   // not textual
    expectErrors<IpAddr>("|10.0.0|10..0.1|a.b.c.d|10.0.0.1 | 10.0.0.1|10.0.0.1.5|01.2.3.4|10,0,0,1|-1.0.0.0",
                         "256.0.0.1|1.2.3.99999999999999999999999", "Lumo::IpAddr");
    EXPECT_EQ(IpAddr(1).hash(), 0x514e28b7u);  // the published murmur3 fmix32 of 1
    EXPECT_EQ(Kest::HashHelper::hash(IpAddr(7), 11), Kest::HashState(11).mix32(7).result());
}

// Each row: the canonical text, then other ways to write the same address.
const char* const ip6Table[] = {
    "2001:db8::1|2001:0db8:0000:0000:0000:0000:0000:0001|2001:db8::0:1|2001:db8:0::1|2001:DB8::1",
    "2001:db8:0:1:1:1:1:1|2001:0db8:0000:0001:0001:0001:0001:0001",
    "2001:db8::1:0:0:1|2001:db8:0:0:1:0:0:1",  // the first of two equal runs
    "2001:0:0:1::1|2001:0:0:1:0:0:0:1",        // the longer run
    "2001:db8:aaaa:bbbb:cccc:dddd:eeee:aaaa|2001:DB8:AAAA:BBBB:CCCC:DDDD:EEEE:AAAA",
    "::|0:0:0:0:0:0:0:0|::0|0::", "::1|0:0:0:0:0:0:0:1|0::1", "1::|1:0:0:0:0:0:0:0", "0:1::|0:1:0:0:0:0:0:0",
    "1::2:0:3|1:0:0:0:0:2:0:3",
    // A single zero group stays as "0", even where a reader accepts "::" for it.
    "1:2:3:4:5:6:7:0|1:2:3:4:5:6:7::", "0:2:3:4:5:6:7:8|::2:3:4:5:6:7:8", "1:2:3:4:5:6:0:8|1:2:3:4:5:6::8",
    "1:2:3:4:5:6::|1:2:3:4:5:6:0:0",
    "::ffff:192.0.2.1|::ffff:c000:201|0:0:0:0:0:FFFF:192.0.2.1|::FFFF:C000:0201", "::ffff:0.0.0.0|::ffff:0:0",
    "::c000:201|::192.0.2.1", "::ffff:0:c000:201|::ffff:0:192.0.2.1",
    "1:2:3:4:5:6:102:304|1:2:3:4:5:6:1.2.3.4"};

// RFC 5952 sections 4 and 5, RFC 4291 section 2.2.
TEST(LumoIp6Addr, CanonicalTextTable) {
    for (const char* row : ip6Table) {
        const std::vector<std::string> forms = split(row);
        const Ip6Addr a = parse<Ip6Addr>(forms[0]);
        EXPECT_EQ(Kest::strep(a), forms[0]);
        for (const std::string& form : forms) {
            EXPECT_EQ(parse<Ip6Addr>(form), a) << form;
        }
    }
}

TEST(LumoIp6Addr, BytesOrderReaderStopsErrorsAndHash) {
    const Ip6Addr a = parse<Ip6Addr>("2001:db8::ff00:42:8329");
    expectAscending<Ip6Addr>("7fff::|8000::");  // unsigned bytes
    for (const char* text : {"2001:db8::/32", "::/32", "::ffff:1.2.3.4/32", "1:2:3:4:5:6:7:8/32"}) {
        EXPECT_EQ(restAfter<Ip6Addr>(text), "/32") << text;
    }
    expectErrors<Ip6Addr>(
        "|:|:::|1::2::3|::1::|1:2:3:4:5:6:7:8:9|1:2:3:4:5:6:7|1:2:3:4:5:6:7:8::|::1:2:3:4:5:6:7:8|:1::|1:|"
        "1::2:|g::1|2001:db8:: 1|::ffff:1.2.3|::ffff:1.2.3.4.5|1:2:3:4:5:6:7:1.2.3.4|::1.2.3.4:5|::ab.1.2.3|"
        "[::1]",
        "2001:db8::12345|::ffff:1.2.3.256", "Lumo::Ip");
    // Every bit of every byte reaches the hash.
    std::set<std::uint32_t> seen{a.hash()};
    for (std::size_t i = 0; i < 128; ++i) {
        std::array<std::uint8_t, 16> b = a.bytes();
        b[i / 8] = static_cast<std::uint8_t>(b[i / 8] ^ (1u << (i % 8)));
        seen.insert(Ip6Addr::fromBytes(b.data()).hash());
    }
    EXPECT_EQ(seen.size(), 129u);
    // MurmurHash3 x86_32 of the 16 bytes with seed 0, from an independent implementation.
    EXPECT_EQ(parse<Ip6Addr>("2001:db8::1").hash(), 0xbc42cf98u);
    EXPECT_NE(a.hash(1), a.hash(2));
}

TEST(LumoIpGenAddr, FamiliesTextAndOrder) {
    expectRoundTrips<IpGenAddr>("none|10.0.0.1|0.0.0.0|::|2001:db8::1|::ffff:10.0.0.1");
    expectErrors<IpGenAddr>("|None|nonex|10.0.0|1::2::3", "300.0.0.1");
    // The look-ahead for a ':' stays inside the range: the text after it is not this reader's.
    const std::string_view withTail = "10.0.0.1:179";
    Kest::CharRange head(withTail.data(), withTail.data() + 8);
    EXPECT_EQ(IpGenAddr(head), IpGenAddr(IpAddr(0x0a000001)));
    // Family first: none < IPv4 < IPv6; 0.0.0.0 is an address, not the absence of one.
    expectAscending<IpGenAddr>("none|0.0.0.0|255.255.255.255|::|::1");
    EXPECT_NE(IpGenAddr(IpAddr()).hash(5), IpGenAddr(Ip6Addr()).hash(5)) << "the zero address of each family";
    EXPECT_EQ(parse<IpGenAddr>("::1").hash(), parse<Ip6Addr>("::1").hash());
}

TEST(LumoIpGenPrefix, TextLengthLimitsErrorsOrderAndMasking) {
    expectRoundTrips<IpGenPrefix>(
        "none|10.0.0.0/8|0.0.0.0/0|10.1.2.3/32|2001:db8::/32|::/0|::ffff:10.0.0.0/104");
    EXPECT_NO_THROW(IpGenPrefix(Ip6Addr(), 128));
    EXPECT_EQ(messageOf<Kest::RangeException>([] { IpGenPrefix(IpAddr(), 33); }),
              "Lumo::IpGenPrefix::length 33 > 32 not allowed for an IPv4 prefix");
    EXPECT_EQ(messageOf<Kest::RangeException>([] { IpGenPrefix(Ip6Addr(), 129); }),
              "Lumo::IpGenPrefix::length 129 > 128 not allowed for an IPv6 prefix");
    expectErrors<IpGenPrefix>(
        "|10.0.0.0|10.0.0.0/|10.0.0.0/ 8|/8|none/0|10.0.0.0/8/8|10.0.0.0/-1|2001:db8::/x",
        "10.0.0.0/33|::/129|::/99999999999999999999999");
    // The address decides before the length.
    expectAscending<IpGenPrefix>(
        "none|10.0.0.0/8|10.0.0.0/16|10.0.0.1/8|10.0.0.2/8|::/0|2001:db8::/32|2001:db9::/32");
    // Host bits are kept, and count in equality, until masked.
    EXPECT_NE(parse<IpGenPrefix>("10.1.2.3/8"), parse<IpGenPrefix>("10.0.0.0/8"));
    for (const std::string& row :
         split("10.1.2.3/8>10.0.0.0/8|10.1.2.3/0>0.0.0.0/0|10.1.2.3/32>10.1.2.3/32|"
               "10.1.255.3/20>10.1.240.0/20|2001:db8:abcd:1234::1/36>2001:db8:a000::/36|"
               "ffff::ffff/0>::/0|ffff::ffff/128>ffff::ffff/128|fe80::1/127>fe80::/127|none>none")) {
        const std::size_t arrow = row.find('>');
        EXPECT_EQ(Kest::strep(parse<IpGenPrefix>(row.substr(0, arrow)).masked()), row.substr(arrow + 1))
            << row;
    }
}

TEST(LumoMplsLabel, RangeTextAndPrettyStrings) {
    const std::string message =
        "Lumo::MplsLabel::value < Lumo::MplsLabel::min or > Lumo::MplsLabel::luWithdraw not allowed";
    EXPECT_EQ(messageOf<Kest::RangeException>([] { MplsLabel(0x800001); }), message);
    expectErrors<MplsLabel>("|-1|0x10| 3|3 |three", "8388609|123456789012345678901234567890",
                            message.c_str());
    std::string all;
    for (const std::uint32_t v : {0u, 1u, 2u, 3u, 4u, 7u, 13u, 14u, 15u, 16u, 1048575u, 8388608u}) {
        EXPECT_EQ(parse<MplsLabel>(MplsLabel(v).stringValue()), MplsLabel(v));
        all += MplsLabel(v).prettyString() + "|";
    }
    EXPECT_EQ(
        all,
        "0 (ipv4-explicit-null)|1 (router-alert)|2 (ipv6-explicit-null)|3 (implicit-null)|4|"
        "7 (entropy-label-indicator)|13 (gal)|14 (oam-alert)|15 (extension)|16|1048575|8388608 (withdraw)|");
    std::ostringstream os;
    os << std::hex << MplsLabel(16);
    EXPECT_EQ(os.str(), "16");  // the text form stays decimal in a stream left in hex
    EXPECT_NE(MplsLabel(16).hash(8), MplsLabel(17).hash(8));
}

TEST(IsisSystemId, TextReaderOrderAndHash) {
    const std::uint8_t wire[6] = {0xab, 0xcd, 0xef, 0x01, 0x23, 0x45};
    EXPECT_EQ(Kest::strep(SystemId::fromBytes(wire)), "abcd.ef01.2345");
    EXPECT_EQ(parse<SystemId>("AbCd.eF01.2345"), SystemId::fromBytes(wire));
    EXPECT_EQ(restAfter<SystemId>("0000.0000.0001.00-00"), ".00-00");  // an LSP ID reader goes on from here
    expectErrors<SystemId>(
        "|192.6800.1001|1921.680.1001|1921.6800.100|1921-6800-1001|1921.6800|g921.6800.1001|"
        "1921.6800.1001.| 1921.6800.1001|1921..6800.1001",
        "1921.6800.10011|192168001001", "Routing::Isis::SystemId");  // dots left out: one group
    // The big-endian number over unsigned bytes; every byte reaches the hash.
    expectAscending<SystemId>(
        "0000.0000.00ff|0000.0000.0100|1921.6800.1001|1921.6800.1002|7fff.ffff.ffff|8000.0000.0000");
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
        const AreaId a = AreaId::fromBytes(bytes.data(), bytes.size());
        EXPECT_TRUE(std::equal(a.bytes().begin(), a.bytes().end(), bytes.begin(), bytes.end()));
        EXPECT_EQ(Kest::strep(a), text);
        EXPECT_EQ(parse<AreaId>(text), a) << text;
    }
    EXPECT_EQ(Kest::strep(parse<AreaId>("49.ABCD.Ef")), "49.abcd.ef");
    EXPECT_EQ(Kest::strep(AreaId()), "none");
    const std::uint8_t zeros[14] = {};
    EXPECT_THROW(AreaId::fromBytes(zeros, 0), Kest::RangeException);
    EXPECT_THROW(AreaId::fromBytes(zeros, 14), Kest::RangeException);
    EXPECT_EQ(AreaId::fromBytes(zeros, 13).length(), 13u);
    EXPECT_EQ(messageOf<Kest::RangeException>([] { parse<AreaId>("49.0001.0002.0003.0004.0005.0006.07"); }),
              "Routing::Isis::AreaId of more than 13 bytes not allowed");
    expectErrors<AreaId>(
        "|4|490|4.0001|49.|49.0|49.001|49.00001|49.01.0001|49.0001.|49..0001|49,0001|x9.0001|"
        " 49.0001|49.0001 |None",
        "");
    // By length, then unsigned bytes; the empty area (none) is not the one-byte area 00.
    expectAscending<AreaId>("none|00|ff|00.00|49.7fff|49.8000|49.0001.00");
}

}  // namespace
