#include "IgpCommon/PrefixKey.h"

#include <gtest/gtest.h>

#include "support/UnseededTwins.h"

#include <sstream>
#include <string>

namespace {

using Lumo::IpGenPrefix;
using Routing::IgpCommon::IgpMultiTopologyId;
using Routing::IgpCommon::PrefixKey;

IpGenPrefix prefix(const char* text) {
    return Kest::strepToValue(Poldo::String(text), static_cast<IpGenPrefix*>(nullptr));
}
PrefixKey key(const char* p, std::uint16_t mt) {
    return PrefixKey(prefix(p), IgpMultiTopologyId(mt));
}
PrefixKey parseKey(const std::string& text) {
    return Kest::strepToValue(text, static_cast<PrefixKey*>(nullptr));
}
std::string text(const PrefixKey& k) {
    std::ostringstream os;
    os << k;
    return os.str();
}

// The documented hash, written out independently of the library.
std::uint32_t expectedHash(const PrefixKey& k, std::uint32_t seed) {
    Kest::HashState s(seed);
    if (k.prefix().isIpv4()) {
        s.mix32(k.prefix().ipv4Addr().value());
    } else if (k.prefix().isIpv6()) {
        for (const std::uint8_t b : k.prefix().ipv6Addr().bytes()) {
            s.mix8(b);
        }
    }
    return s.mix8(k.prefix().family()).mix8(k.prefix().length()).mix16(k.mtId().value()).result();
}

TEST(PrefixKey, TopologyAndLengthMakeDifferentKeys) {
    const PrefixKey mt0 = key("10.0.0.0/8", 0);
    const PrefixKey mt2 = key("10.0.0.0/8", 2);
    EXPECT_NE(mt0, mt2);
    EXPECT_FALSE(PrefixKey::isEq(mt0, mt2));
    EXPECT_LT(mt0, mt2);
    EXPECT_NE(mt0.hash(0), mt2.hash(0));

    const PrefixKey len8 = key("10.0.0.0/8", 0);
    const PrefixKey len16 = key("10.0.0.0/16", 0);
    EXPECT_NE(len8, len16);
    EXPECT_NE(len8.hash(0), len16.hash(0));
    EXPECT_NE(len8.hash(0xabcdef01u), len16.hash(0xabcdef01u));
    EXPECT_LT(len8, len16);

    EXPECT_EQ(key("10.0.0.0/8", 2), mt2);
    EXPECT_EQ(key("10.0.0.0/8", 2) <=> mt2, std::strong_ordering::equal);
    EXPECT_EQ(key("10.0.0.0/8", 2).hash(77), mt2.hash(77));
    // Host bits are kept: 10.1.0.0/8 is not 10.0.0.0/8.
    EXPECT_NE(key("10.1.0.0/8", 0), len8);
}

TEST(PrefixKey, OrderIsPrefixFirstThenTopology) {
    EXPECT_LT(key("10.0.0.0/8", 5), key("11.0.0.0/8", 0));
    EXPECT_GT(key("11.0.0.0/8", 0), key("10.0.0.0/8", 5));
    EXPECT_LT(key("none", 9), key("0.0.0.0/0", 0));           // no family before IPv4
    EXPECT_LT(key("255.255.255.255/32", 9), key("::/0", 0));  // IPv4 before IPv6
    EXPECT_LT(key("2001:db8::/32", 3), key("2001:db8::/48", 1));
    EXPECT_EQ(key("none", 0), PrefixKey());
}

TEST(PrefixKey, HashIsEveryByteOfTheKeyThroughTheSeededHash) {
    const char* prefixes[] = {"10.0.0.0/8",         "10.0.0.0/16",   "192.0.2.1/32",    "0.0.0.0/0",
                              "255.255.255.255/32", "2001:db8::/32", "2001:db8::1/128", "::/0",
                              "fe80::/10",          "none"};
    for (const char* p : prefixes) {
        for (const std::uint16_t mt : {0, 2, 4095}) {
            const PrefixKey k = key(p, mt);
            for (const std::uint32_t seed : {0u, 1u, 0xdeadbeefu}) {
                EXPECT_EQ(k.hash(seed), expectedHash(k, seed)) << p << " mt " << mt << " seed " << seed;
            }
        }
    }
}

// Keys that an unkeyed step before the seed made collide under every seed: a length folded into the
// address word (10.0.0.0/8 and 10.0.0.24/16 once shared it), and addresses with one unseeded hash.
TEST(PrefixKey, KeysThatAnUnkeyedDigestWouldMergeHashApart) {
    const auto [a, b] = testsupport::unseededHashTwins();
    ASSERT_NE(a, b);
    ASSERT_EQ(a.hash(), b.hash());
    for (const std::uint32_t seed : {0u, 1u, 0xdeadbeefu}) {
        EXPECT_NE(key("10.0.0.0/8", 0).hash(seed), key("10.0.0.24/16", 0).hash(seed)) << seed;
        EXPECT_NE(PrefixKey(IpGenPrefix(a, 128), IgpMultiTopologyId(0)).hash(seed),
                  PrefixKey(IpGenPrefix(b, 128), IgpMultiTopologyId(0)).hash(seed))
            << seed;
    }
}

TEST(PrefixKey, TextFormAndRoundTrips) {
    EXPECT_EQ(text(key("10.0.0.0/8", 2)),
              "Value('Routing::IgpCommon::PrefixKey', ** {'prefix': 10.0.0.0/8, 'mtId': 2})");
    EXPECT_EQ(text(PrefixKey()), "Value('Routing::IgpCommon::PrefixKey', ** {'prefix': none, 'mtId': 0})");
    EXPECT_EQ(text(key("2001:DB8:0:0::/32", 65535)),
              "Value('Routing::IgpCommon::PrefixKey', ** {'prefix': 2001:db8::/32, 'mtId': 65535})");
    for (const PrefixKey& k : {key("10.0.0.0/8", 2), key("192.0.2.77/24", 0), key("2001:db8::1/128", 4095),
                               key("::/0", 1), PrefixKey(), key("none", 7)}) {
        const PrefixKey back = parseKey(text(k));
        EXPECT_EQ(back, k) << text(k);
        EXPECT_EQ(back.hash(11), k.hash(11));
    }
}

TEST(PrefixKey, TextReaderNamesTheBadAttribute) {
    try {
        parseKey("Value('Routing::IgpCommon::PrefixKey', ** {'prefix': 10.0.0.0/33, 'mtId': 2})");
        ADD_FAILURE() << "a /33 IPv4 prefix was read";
    } catch (const Kest::AttributeParseException& e) {
        EXPECT_EQ(e.attribute(), "prefix");
    }
    try {
        parseKey("Value('Routing::IgpCommon::PrefixKey', ** {'prefix': 2001:db8::/129, 'mtId': 2})");
        ADD_FAILURE() << "a /129 IPv6 prefix was read";
    } catch (const Kest::AttributeParseException& e) {
        EXPECT_EQ(e.attribute(), "prefix");
    }
    try {
        parseKey("Value('Routing::IgpCommon::PrefixKey', ** {'prefix': 10.0.0.0/8, 'mtId': 70000})");
        ADD_FAILURE() << "topology 70000 was read";
    } catch (const Kest::AttributeParseException& e) {
        EXPECT_EQ(e.attribute(), "mtId");
        EXPECT_NE(std::string(e.what()).find("attribute 'mtId'"), std::string::npos) << e.what();
    }
}

TEST(PrefixKey, MalformedTextDoesNotParse) {
    const char* bad[] = {
        "Value('Routing::IgpCommon::PrefixKey', ** {'mtId': 2, 'prefix': 10.0.0.0/8})",   // wrong order
        "Value('Routing::IgpCommon::PrefixKey', ** {'prefix': 10.0.0.0/8})",              // mtId missing
        "Value('Routing::IgpCommon::PrefixKey', ** {'prefix': 10.0.0.0/8, 'mtId': 2}) ",  // trailing space
        "Value('Routing::IgpCommon::NeighborKey', ** {'prefix': 10.0.0.0/8, 'mtId': 2})",
        "Value('Routing::IgpCommon::PrefixKey', ** {'prefix': 10.0.0.0, 'mtId': 2})",  // no length
        "Value('Routing::IgpCommon::PrefixKey', ** {'prefix': 10.0.0.0/8, 'mtId': -1})",
        "10.0.0.0/8",
    };
    for (const char* t : bad) {
        EXPECT_THROW(parseKey(t), Kest::ParseException) << t;
    }
    // The order fault is a plain parse error, not a range error of an attribute.
    try {
        parseKey(bad[0]);
    } catch (const Kest::AttributeParseException& e) {
        ADD_FAILURE() << "wrong order reported as an attribute range error: " << e.what();
    } catch (const Kest::ParseException&) {
    }
}

}  // namespace
