// NeighborKey: equality, hash and order against models over random keys built through different
// histories, keys that unkeyed digests would merge, the text forms, copyFrom and the two-way check.
#include "IgpCommon/NeighborKey.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

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

template <class S>
auto members(const S& s) {
    std::vector<typename S::key_type> out;
    for (auto it = s.uncheckedBegin(); it != s.uncheckedEnd(); ++it) {
        out.push_back(*it);
    }
    return out;
}
template <class F>
void forEachSet(const NeighborKey& k, F&& f) {
    f(k.remoteIpv4Addr());
    f(k.remoteIpv6Addr());
    f(k.localIpv4Addr());
    f(k.localIpv6Addr());
}

std::uint32_t expectedHash(const NeighborKey& k, std::uint32_t seed) {
    Kest::HashState s(seed);
    forEachSet(k, [&s](const auto& set) { s.mix8(static_cast<std::uint8_t>(set.size())); });
    forEachSet(k, [&s](const auto& set) {
        for (const auto& a : members(set)) {
            if constexpr (std::is_same_v<std::remove_cvref_t<decltype(a)>, IpAddr>) {
                s.mix32(a.value());
            } else {
                for (const std::uint8_t byte : a.bytes()) {
                    s.mix8(byte);
                }
            }
        }
    });
    for (std::uint8_t i = 0; i < 7; ++i) {
        s.mix8(k.nodeId().byte(Routing::IgpCommon::IgpNodeIdIndex(i)));
    }
    return s.mix16(k.mtId().value()).result();
}

// Node id, then each set (size, then members in step), the topology last.
std::strong_ordering orderModel(const NeighborKey& a, const NeighborKey& b) {
    const auto setOrder = [](const auto& x, const auto& y) {
        const auto mx = members(x), my = members(y);
        return x.size() != y.size()
                   ? x.size() <=> y.size()
                   : std::lexicographical_compare_three_way(mx.begin(), mx.end(), my.begin(), my.end());
    };
    const std::strong_ordering steps[] = {
        a.nodeId().toU64() <=> b.nodeId().toU64(),        setOrder(a.remoteIpv4Addr(), b.remoteIpv4Addr()),
        setOrder(a.remoteIpv6Addr(), b.remoteIpv6Addr()), setOrder(a.localIpv4Addr(), b.localIpv4Addr()),
        setOrder(a.localIpv6Addr(), b.localIpv6Addr()),   a.mtId() <=> b.mtId()};
    const auto first = std::find_if(std::begin(steps), std::end(steps), [](auto c) { return c != 0; });
    return first == std::end(steps) ? std::strong_ordering::equal : *first;
}

// Small pools, so that random keys often tie on the node and on some sets. Plainly in order, or
// scrambled: fields last and written twice, addresses shuffled and repeated, after decoys that grow
// a set past its inline slot and are deleted again.
struct Recipe {
    std::uint8_t node = 0;
    std::uint16_t mtId = 0;
    std::array<std::vector<unsigned>, 4> sets;

    explicit Recipe(std::mt19937& rng)
        : node(static_cast<std::uint8_t>(rng() % 2)), mtId(static_cast<std::uint16_t>(rng() % 2)) {
        for (auto& set : sets) {
            for (unsigned n = rng() % 4; set.size() < n;) {
                if (const unsigned a = 1 + rng() % 4; std::find(set.begin(), set.end(), a) == set.end()) {
                    set.push_back(a);
                }
            }
        }
    }
    NeighborKey build(std::mt19937& rng, bool scrambled) const {
        NeighborKey k = scrambled ? NeighborKey(nodeId(9), IgpMultiTopologyId(7))
                                  : NeighborKey(nodeId(node), IgpMultiTopologyId(mtId));
        for (int set : {3, 0, 2, 1}) {
            std::vector<unsigned> order = sets[set];
            const unsigned decoys = scrambled ? rng() % 13 : 0;
            for (unsigned d = 0; d < decoys; ++d) {
                put(k, set, 1000 + d);
            }
            std::shuffle(order.begin(), order.end(), rng);
            for (unsigned a : order) {
                put(k, set, a);
                put(k, set, a);
            }
            for (unsigned d = 0; d < decoys; ++d) {
                put(k, set, 1000 + d, true);
            }
        }
        if (scrambled) {
            k.mtIdIs(IgpMultiTopologyId(mtId));
            k.nodeIdIs(nodeId(node));
        }
        return k;
    }
};

TEST(NeighborKey, EqualityHashAndOrderFollowTheModelsWhateverTheHistory) {
    std::mt19937 rng(20240611);
    NeighborKey previous;
    int unequal = 0;
    for (int round = 0; round < 400; ++round) {
        const Recipe recipe(rng);
        const NeighborKey a = recipe.build(rng, false);
        const NeighborKey b = recipe.build(rng, true);
        SCOPED_TRACE(a.toStrep() + " against " + previous.toStrep());
        ASSERT_TRUE(a == b);
        EXPECT_EQ(a <=> b, std::strong_ordering::equal);
        for (const std::uint32_t seed : {0u, 0x9e3779b9u, Kest::HashHelper::hashSeed32()}) {
            EXPECT_EQ(a.hash(seed), b.hash(seed));
            EXPECT_EQ(a.hash(seed), expectedHash(a, seed));
        }
        const auto model = orderModel(a, previous);
        EXPECT_EQ(a <=> previous, model);
        EXPECT_EQ(previous <=> a, orderModel(previous, a));
        EXPECT_EQ(a == previous, model == 0);
        if (model != 0) {
            ++unequal;
            EXPECT_NE(a.hash(5), previous.hash(5));  // a 32-bit collision is not expected
        }
        previous = b;
    }
    EXPECT_GT(unequal, 300);
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

TEST(NeighborKey, TextFormsCopyFromAndTruth) {
    NeighborKey many(nodeId(1), IgpMultiTopologyId(0));
    for (unsigned i = 1; i <= 4; ++i) {
        many.remoteIpv6AddrIs(v6n(i));
    }
    EXPECT_EQ(many.toStrep(),
              "1921.6800.1001;rv6" + testsupport::text(*many.remoteIpv6Addr().uncheckedBegin()))
        << "of a set, only the first address shows";
    EXPECT_EQ(testsupport::text(nbrKey(1, {"10.0.0.1"}, {"2001:db8::2"}, 2)),
              "Value('Routing::IgpCommon::NeighborKey', ** {'nodeId': [25, 33, 104, 0, 16, 1, 0], "
              "'remoteIpv4Addr': [], 'remoteIpv6Addr': [2001:db8::2], 'localIpv4Addr': [10.0.0.1], "
              "'localIpv6Addr': [], 'mtId': 2})");
    EXPECT_DEATH(Kest::strepToValue(Poldo::String("Value('Routing::IgpCommon::NeighborKey', ** {})"),
                                    static_cast<NeighborKey*>(nullptr)),
                 "No String constructor for NeighborKey - has collection");

    // copyFrom takes node and topology and adds the addresses.
    NeighborKey k = nbrKey(3, {"10.0.0.1"}, {"2001:db8::9"}, 1);
    k.copyFrom(nbrKey(1, {"10.0.0.5", "10.0.0.1"}, {"2001:db8::2", "10.0.0.6"}, 3));
    k.copyFrom(k);
    EXPECT_EQ(k, nbrKey(1, {"10.0.0.5", "10.0.0.1"}, {"2001:db8::2", "10.0.0.6", "2001:db8::9"}, 3));

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
