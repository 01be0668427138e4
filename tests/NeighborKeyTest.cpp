// NeighborKey: order, equality, text and hash of each key form and of the same key built through
// another history (copyFrom), keys that unkeyed digests would merge, truth and the two-way check.
#include "IgpCommon/NeighborKey.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <iterator>

#include "tests/support/AllocationCounter.h"
#include "tests/support/Builders.h"
#include "tests/support/UnseededTwins.h"

namespace {

using Lumo::IpAddr;
using Routing::IgpCommon::IgpMultiTopologyId;
using Routing::IgpCommon::NeighborKey;
using testsupport::nbrKey;
using testsupport::nodeId;

IpAddr v4n(unsigned i) {
    return IpAddr(0x0a000000u + i);
}
Lumo::Ip6Addr v6n(unsigned i) {
    std::array<std::uint8_t, 16> b{0x20, 0x01, 0x0d, 0xb8};
    b[14] = static_cast<std::uint8_t>(i >> 8);
    b[15] = static_cast<std::uint8_t>(i);
    return Lumo::Ip6Addr::fromBytes(b.data());
}

// The four address sets in the order the hash and the order take them.
void put(NeighborKey& k, int set, unsigned a, bool del = false) {
    switch (set) {
        case 0:
            return del ? k.remoteIpv4AddrDel(v4n(a)) : k.remoteIpv4AddrIs(v4n(a));
        case 1:
            return del ? k.remoteIpv6AddrDel(v6n(a)) : k.remoteIpv6AddrIs(v6n(a));
        case 2:
            return del ? k.localIpv4AddrDel(v4n(a)) : k.localIpv4AddrIs(v4n(a));
        default:
            return del ? k.localIpv6AddrDel(v6n(a)) : k.localIpv6AddrIs(v6n(a));
    }
}

// Key forms in ascending order: the node first, then each set (remote IPv4, remote IPv6, local IPv4,
// local IPv6) by size and then members, the topology last; and their short texts, which show the
// first member of each set (null where that depends on the seed).
const struct {
    NeighborKey key;
    const char* text;
} kAscending[] = {
    {nbrKey(1), "1921.6800.1001"},
    {nbrKey(1, {}, {}, 2), "1921.6800.1001;mtId 2"},
    {nbrKey(1, {"2001:db8::1"}), "1921.6800.1001;lv62001:db8::1"},
    {nbrKey(1, {"10.0.0.1"}, {}, 1), "1921.6800.1001;lv410.0.0.1;mtId 1"},
    {nbrKey(1, {"10.0.0.2"}), "1921.6800.1001;lv410.0.0.2"},
    {nbrKey(1, {"10.0.0.3", "10.0.0.1"}), nullptr},
    {nbrKey(1, {}, {"2001:db8::1"}), "1921.6800.1001;rv62001:db8::1"},
    {nbrKey(1, {"2001:db8::1"}, {"10.0.0.1"}), "1921.6800.1001;rv410.0.0.1;lv62001:db8::1"},
    {nbrKey(1, {}, {"10.0.0.1", "10.0.0.2"}), nullptr},
    {nbrKey(2), "1921.6800.1002"},
};

// The same key built through another history: fields last, addresses repeated, after decoys that
// grow a set past its inline slot and are deleted again.
NeighborKey rebuilt(const NeighborKey& k) {
    NeighborKey r(nodeId(9), IgpMultiTopologyId(7));
    for (const bool del : {false, true}) {
        for (int set = 0; set < 4; ++set) {
            for (unsigned d = 0; d < 12; ++d) {
                put(r, set, 1000 + d, del);
            }
        }
        r.copyFrom(k);
    }
    return r;
}

TEST(NeighborKey, OrderEqualityTextAndHashOfEachForm) {
    for (std::size_t i = 0; i < std::size(kAscending); ++i) {
        const NeighborKey& a = kAscending[i].key;
        SCOPED_TRACE(a.toStrep());
        if (kAscending[i].text != nullptr) {
            EXPECT_EQ(a.toStrep(), kAscending[i].text);
        }
        const NeighborKey twin = rebuilt(a);
        EXPECT_TRUE(twin == a);
        EXPECT_EQ(twin.hash(Kest::HashHelper::hashSeed32()), a.hash(Kest::HashHelper::hashSeed32()));
        for (std::size_t j = 0; j < std::size(kAscending); ++j) {
            const NeighborKey& b = kAscending[j].key;
            EXPECT_EQ(a <=> b, i <=> j) << j;
            EXPECT_EQ(a == b, i == j) << j;
            EXPECT_EQ(a.hash(5) == b.hash(5), i == j) << j;
        }
    }
}

// Keys that hashed alike under every seed while the key mixed digests: addresses with one unseeded
// hash, an address that moves to the next set, and (past 254 members, where a size takes a word) a
// member moved to another set.
TEST(NeighborKey, KeysThatDigestsWouldMergeHashApartAndHashingAllocatesNothing) {
    const auto [a, b] = testsupport::unseededHashTwins();
    NeighborKey withA(nodeId(1), IgpMultiTopologyId(0));
    NeighborKey withB = withA;
    withA.remoteIpv6AddrIs(a);
    withB.remoteIpv6AddrIs(b);
    NeighborKey many(nodeId(1), IgpMultiTopologyId(0));
    for (unsigned i = 0; i < 300; ++i) {
        many.remoteIpv4AddrIs(v4n(i));
    }
    NeighborKey fewer = many;
    fewer.remoteIpv4AddrDel(v4n(299));
    fewer.localIpv4AddrIs(v4n(299));
    for (const std::uint32_t seed : {0u, 1u, 0xdeadbeefu}) {
        EXPECT_NE(withA.hash(seed), withB.hash(seed));
        EXPECT_NE(nbrKey(1, {}, {"10.0.0.1"}).hash(seed), nbrKey(1, {"10.0.0.1"}).hash(seed));
        EXPECT_NE(many.hash(seed), fewer.hash(seed));
    }
    const testsupport::AllocationScope comparing;
    const std::uint32_t sink = many.hash(0) + fewer.hash(0x12345678u) +
                               (NeighborKey::isEq(many, fewer) ? 1u : 0u) + ((many <=> fewer) < 0 ? 1u : 0u);
    EXPECT_EQ(comparing.count(), 0u);
    EXPECT_NE(sink, 0u);
}

// A key holds collections, so no text reads back as one; it is true once anything is set.
TEST(NeighborKey, NoTextReaderAndTruth) {
    EXPECT_DEATH(Kest::strepToValue(Poldo::String("Value('Routing::IgpCommon::NeighborKey', ** {})"),
                                    static_cast<NeighborKey*>(nullptr)),
                 "No String constructor for NeighborKey - has collection");
    EXPECT_FALSE(NeighborKey());
    EXPECT_TRUE(NeighborKey(Routing::IgpCommon::IgpNodeId(), IgpMultiTopologyId(2)));
    NeighborKey onlyAddr;
    onlyAddr.localIpv4AddrIs(IpAddr(0));  // the zero address is still an address
    EXPECT_TRUE(onlyAddr);
}

// A key matches another when one of its local addresses is among the other's remote ones, or when
// one of them has no address and the other local addresses of one family only.
TEST(NeighborKeyTwoWay, LocalAddressAmongTheOthersRemoteOnesInTheSameTopology) {
    const struct {
        const char* what;
        NeighborKey a, b;
        bool aToB, bToA;
    } cases[] = {
        {"empty keys", nbrKey(1), nbrKey(1), true, true},
        {"empty keys across topologies", nbrKey(1), nbrKey(1, {}, {}, 2), false, false},
        {"matching addresses across topologies", nbrKey(1, {"10.0.0.1"}, {"10.0.0.2"}, 1),
         nbrKey(1, {"10.0.0.2"}, {"10.0.0.1"}, 2), false, false},
        {"no addresses against IPv4 only", nbrKey(1), nbrKey(1, {"10.0.0.1"}, {"10.0.0.2"}), true, true},
        {"no addresses against IPv6 only", nbrKey(1), nbrKey(1, {"2001:db8::1"}), true, true},
        {"no addresses against both families", nbrKey(1), nbrKey(1, {"10.0.0.1", "2001:db8::1"}), false,
         false},
        {"no addresses against remote only", nbrKey(1), nbrKey(1, {}, {"10.0.0.2", "2001:db8::2"}), false,
         false},
        {"IPv4 crosses, IPv6 not", nbrKey(1, {"10.0.0.1", "2001:db8::1"}, {"10.0.0.2", "2001:db8::2"}),
         nbrKey(1, {"10.0.0.2", "2001:db8::9"}, {"10.0.0.1", "2001:db8::8"}), true, true},
        {"IPv6 crosses, IPv4 not", nbrKey(1, {"10.0.0.1", "2001:db8::1"}, {"10.0.0.9", "2001:db8::2"}),
         nbrKey(1, {"10.0.0.2", "2001:db8::2"}, {"10.0.0.8", "2001:db8::1"}), true, true},
        {"among several remote ones", nbrKey(1, {"10.0.0.7", "2001:db8::7"}),
         nbrKey(1, {"10.0.0.3", "2001:db8::3"}, {"10.0.0.4", "10.0.0.5", "10.0.0.6", "10.0.0.7"}), true,
         false},
        {"equal remote addresses", nbrKey(1, {"10.0.0.1"}, {"10.0.0.5"}),
         nbrKey(1, {"10.0.0.2"}, {"10.0.0.5"}), false, false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.a.twoWayCheckAddrCmp(c.b), c.aToB) << c.what;
        EXPECT_EQ(c.b.twoWayCheckAddrCmp(c.a), c.bToA) << c.what;
    }
}

}  // namespace
