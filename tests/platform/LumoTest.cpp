// Network value types: addresses, prefixes and MPLS labels (text, readers' errors, order, hashes).
#include "IgpCommon/platform/Lumo.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/TextHelpers.h"

namespace {

using Lumo::Ip6Addr;
using Lumo::IpAddr;
using Lumo::IpGenAddr;
using Lumo::IpGenPrefix;
using Lumo::MplsLabel;
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
    for (const std::string& text : split(tooBig)) {
        EXPECT_NE(messageOf<Kest::RangeException>([&] { parse<T>(text); }).find(type), std::string::npos)
            << text;
    }
}

/// Each value sorts strictly before the next and hashes differently.
template <class T>
void expectAscending(const std::vector<T>& sorted) {
    for (std::size_t i = 0; i + 1 < sorted.size(); ++i) {
        EXPECT_LT(sorted[i], sorted[i + 1]) << i;
        EXPECT_NE(sorted[i].hash(5), sorted[i + 1].hash(5)) << i;
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
    const std::uint8_t wire[4] = {192, 168, 255, 254};
    EXPECT_EQ(IpAddr::fromBytes(wire).value(), 0xc0a8fffeu);
    EXPECT_EQ(IpAddr(0x0a000001).bytes(), (std::array<std::uint8_t, 4>{10, 0, 0, 1}));
    expectRoundTrips<IpAddr>("0.0.0.0|255.255.255.255|1.22.233.4|192.168.255.254");
    EXPECT_EQ(restAfter<IpAddr>("10.1.2.3/24"), "/24");  // a prefix reader goes on from here
    expectAscending<IpAddr>({parse<IpAddr>("9.255.255.255"), parse<IpAddr>("10.0.0.0")});  // not textual
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
    const std::array<std::uint8_t, 16> want = {0x20, 0x01, 0x0d, 0xb8, 0, 0,    0,    0,
                                               0,    0,    0xff, 0,    0, 0x42, 0x83, 0x29};
    EXPECT_EQ(a.bytes(), want);
    EXPECT_EQ(Ip6Addr::fromBytes(want.data()), a);
    expectAscending<Ip6Addr>({parse<Ip6Addr>("7fff::"), parse<Ip6Addr>("8000::")});  // unsigned bytes
    for (const char* text : {"2001:db8::/32", "::/32", "::ffff:1.2.3.4/32", "1:2:3:4:5:6:7:8/32"}) {
        EXPECT_EQ(restAfter<Ip6Addr>(text), "/32") << text;
    }
    expectErrors<Ip6Addr>(
        "|:|:::|1::2::3|::1::|1:2:3:4:5:6:7:8:9|1:2:3:4:5:6:7|1:2:3:4:5:6:7:8::|::1:2:3:4:5:6:7:8|:1::|1:|"
        "1::2:|g::1|2001:db8:: "
        "1|::ffff:1.2.3|::ffff:1.2.3.4.5|1:2:3:4:5:6:7:1.2.3.4|::1.2.3.4:5|::ab.1.2.3|[::1]",
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
    EXPECT_TRUE(parse<IpGenAddr>("::ffff:10.0.0.1").isIpv6());  // a ':' anywhere makes it IPv6
    EXPECT_TRUE(parse<IpGenAddr>("0.0.0.0").isIpv4());
    EXPECT_TRUE(parse<IpGenAddr>("2001:db8::1").ipv4().isZero());
    expectErrors<IpGenAddr>("|None|nonex|10.0.0|1::2::3", "300.0.0.1");
    // The look-ahead for a ':' stays inside the range: the text after it is not this reader's.
    const std::string_view withTail = "10.0.0.1:179";
    Kest::CharRange head(withTail.data(), withTail.data() + 8);
    EXPECT_EQ(IpGenAddr(head), IpGenAddr(IpAddr(0x0a000001)));
    // Family first: none < IPv4 < IPv6; 0.0.0.0 is an address, not the absence of one.
    const std::vector<IpGenAddr> sorted = {IpGenAddr(), IpGenAddr(IpAddr()), IpGenAddr(IpAddr(0xffffffff)),
                                           IpGenAddr(Ip6Addr()), IpGenAddr(parse<Ip6Addr>("::1"))};
    expectAscending(sorted);
    EXPECT_NE(sorted[1].hash(5), sorted[3].hash(5)) << "the zero address of each family";
    EXPECT_EQ(sorted[4].hash(), parse<Ip6Addr>("::1").hash());
}

TEST(LumoIpGenPrefix, TextLengthLimitsErrorsOrderAndMasking) {
    expectRoundTrips<IpGenPrefix>(
        "none|10.0.0.0/8|0.0.0.0/0|10.1.2.3/32|2001:db8::/32|::/0|::ffff:10.0.0.0/104");
    EXPECT_EQ(parse<IpGenPrefix>("2001:db8::/32").family() * 10 + parse<IpGenPrefix>("10.0.0.0/8").family(),
              21);
    EXPECT_EQ(IpGenPrefix().family(), 0);
    EXPECT_NO_THROW(IpGenPrefix(Ip6Addr(), 128));
    EXPECT_EQ(messageOf<Kest::RangeException>([] { IpGenPrefix(IpAddr(), 33); }),
              "Lumo::IpGenPrefix::length 33 > 32 not allowed for an IPv4 prefix");
    EXPECT_EQ(messageOf<Kest::RangeException>([] { IpGenPrefix(Ip6Addr(), 129); }),
              "Lumo::IpGenPrefix::length 129 > 128 not allowed for an IPv6 prefix");
    expectErrors<IpGenPrefix>(
        "|10.0.0.0|10.0.0.0/|10.0.0.0/ 8|/8|none/0|10.0.0.0/8/8|10.0.0.0/-1|2001:db8::/x",
        "10.0.0.0/33|::/129|::/99999999999999999999999");
    expectAscending<IpGenPrefix>({IpGenPrefix(), parse<IpGenPrefix>("10.0.0.0/8"),
                                  parse<IpGenPrefix>("10.0.0.0/16"),
                                  parse<IpGenPrefix>("10.0.0.1/8"),  // the address decides before the length
                                  parse<IpGenPrefix>("192.168.0.0/16"), parse<IpGenPrefix>("::/0"),
                                  parse<IpGenPrefix>("2001:db8::/32")});
    // Host bits are kept, and count in equality, until masked.
    EXPECT_NE(parse<IpGenPrefix>("10.1.2.3/8"), parse<IpGenPrefix>("10.0.0.0/8"));
    const std::pair<const char*, const char*> masked[] = {{"10.1.2.3/8", "10.0.0.0/8"},
                                                          {"10.1.2.3/0", "0.0.0.0/0"},
                                                          {"10.1.2.3/32", "10.1.2.3/32"},
                                                          {"10.1.255.3/20", "10.1.240.0/20"},
                                                          {"2001:db8:abcd:1234::1/36", "2001:db8:a000::/36"},
                                                          {"ffff::ffff/0", "::/0"},
                                                          {"ffff::ffff/128", "ffff::ffff/128"},
                                                          {"fe80::1/127", "fe80::/127"},
                                                          {"none", "none"}};
    for (const auto& [in, out] : masked) {
        EXPECT_EQ(Kest::strep(parse<IpGenPrefix>(in).masked()), out) << in;
    }
}

TEST(LumoMplsLabel, RangeTextAndPrettyStrings) {
    const std::string message =
        "Lumo::MplsLabel::value < Lumo::MplsLabel::min or > Lumo::MplsLabel::luWithdraw not allowed";
    EXPECT_EQ(MplsLabel(MplsLabel::luWithdraw).value(), 0x800000u);
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

}  // namespace
