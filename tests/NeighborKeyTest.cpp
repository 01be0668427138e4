// NeighborKey: equality, hash and order against models over random keys built through different
// histories, the text forms, copyFrom, and the two-way address check.
#include "IgpCommon/NeighborKey.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <random>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "tests/support/AllocationCounter.h"
#include "tests/support/Builders.h"
#include "tests/support/UnseededTwins.h"

namespace {

using Lumo::Ip6Addr;
using Lumo::IpAddr;
using Routing::IgpCommon::IgpMultiTopologyId;
using Routing::IgpCommon::IgpNodeId;
using Routing::IgpCommon::NeighborKey;
using testsupport::nbrKey;
using testsupport::nodeId;
using NodeBytes = std::array<std::uint8_t, 7>;

IgpNodeId node(const NodeBytes& b) {
    return IgpNodeId::fromBytes(b.data());
}
IpAddr v4n(unsigned i) {
    return IpAddr(0x0a000000u + i);
}
Ip6Addr v6n(unsigned i) {
    std::array<std::uint8_t, 16> b{0x20, 0x01, 0x0d, 0xb8};
    b[14] = static_cast<std::uint8_t>(i >> 8);
    b[15] = static_cast<std::uint8_t>(i);
    return Ip6Addr::fromBytes(b.data());
}

// The four address sets in the order the hash and the order take them.
enum Set { remote4, remote6, local4, local6 };
void put(NeighborKey& k, int set, unsigned a, bool remove = false) {
    switch (set) {
        case remote4:
            remove ? k.remoteIpv4AddrDel(v4n(a)) : k.remoteIpv4AddrIs(v4n(a));
            break;
        case remote6:
            remove ? k.remoteIpv6AddrDel(v6n(a)) : k.remoteIpv6AddrIs(v6n(a));
            break;
        case local4:
            remove ? k.localIpv4AddrDel(v4n(a)) : k.localIpv4AddrIs(v4n(a));
            break;
        default:
            remove ? k.localIpv6AddrDel(v6n(a)) : k.localIpv6AddrIs(v6n(a));
            break;
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

std::uint32_t expectedHash(const NeighborKey& k, std::uint32_t seed) {
    Kest::HashState s(seed);
    for (const auto n : {k.remoteIpv4Addr().size(), k.remoteIpv6Addr().size(), k.localIpv4Addr().size(),
                         k.localIpv6Addr().size()}) {
        s.mix8(static_cast<std::uint8_t>(n));
    }
    const auto mix = [&s](const auto& set) {
        for (const auto& a : members(set)) {
            if constexpr (std::is_same_v<std::remove_cvref_t<decltype(a)>, IpAddr>) {
                s.mix32(a.value());
            } else {
                for (const std::uint8_t b : a.bytes()) {
                    s.mix8(b);
                }
            }
        }
    };
    mix(k.remoteIpv4Addr());
    mix(k.remoteIpv6Addr());
    mix(k.localIpv4Addr());
    mix(k.localIpv6Addr());
    for (std::uint8_t i = 0; i < 7; ++i) {
        s.mix8(k.nodeId().byte(Routing::IgpCommon::IgpNodeIdIndex(i)));
    }
    return s.mix16(k.mtId().value()).result();
}

template <class S>
std::strong_ordering setOrder(const S& a, const S& b) {
    if (a.size() != b.size()) {
        return a.size() <=> b.size();
    }
    const auto ma = members(a);
    const auto mb = members(b);
    return std::lexicographical_compare_three_way(ma.begin(), ma.end(), mb.begin(), mb.end());
}

// Node id, the four sets (size, then members in step), the topology last.
std::strong_ordering orderModel(const NeighborKey& a, const NeighborKey& b) {
    if (const auto c = a.nodeId().toU64() <=> b.nodeId().toU64(); c != 0) {
        return c;
    }
    for (const auto c :
         {setOrder(a.remoteIpv4Addr(), b.remoteIpv4Addr()), setOrder(a.remoteIpv6Addr(), b.remoteIpv6Addr()),
          setOrder(a.localIpv4Addr(), b.localIpv4Addr()), setOrder(a.localIpv6Addr(), b.localIpv6Addr())}) {
        if (c != 0) {
            return c;
        }
    }
    return a.mtId() <=> b.mtId();
}

struct Recipe {
    NodeBytes node{};
    std::uint16_t mtId = 0;
    std::array<std::vector<unsigned>, 4> sets;  // address numbers, distinct within a set
};

Recipe randomRecipe(std::mt19937& rng) {
    Recipe r;
    for (auto& b : r.node) {
        b = static_cast<std::uint8_t>(rng() % 3 == 0 ? 0 : rng());
    }
    r.mtId = static_cast<std::uint16_t>(rng() % 3 == 0 ? 0 : rng() % 4096);
    for (auto& set : r.sets) {
        for (unsigned n = rng() % 5; set.size() < n;) {
            const unsigned a = 1 + rng() % 10;  // a small pool: the sets often share addresses
            if (std::find(set.begin(), set.end(), a) == set.end()) {
                set.push_back(a);
            }
        }
    }
    return r;
}

// Plainly in order; or scrambled: fields last and written twice, addresses shuffled and repeated,
// after decoys that grow a set past its inline slot and are deleted again.
NeighborKey build(const Recipe& r, std::mt19937& rng, bool scrambled) {
    NeighborKey k;
    if (!scrambled) {
        k.nodeIdIs(node(r.node));
        k.mtIdIs(IgpMultiTopologyId(r.mtId));
    }
    for (int set : {local6, remote4, local4, remote6}) {
        std::vector<unsigned> order = r.sets[set];
        const unsigned decoys = scrambled ? rng() % 13 : 0;
        for (unsigned d = 0; d < decoys; ++d) {
            put(k, set, 1000 + d);
        }
        if (scrambled) {
            std::shuffle(order.begin(), order.end(), rng);
        }
        for (unsigned a : order) {
            put(k, set, a);
            put(k, set, a);
        }
        for (unsigned d = 0; d < decoys; ++d) {
            put(k, set, 1000 + d, true);
        }
    }
    if (scrambled) {
        k.mtIdIs(IgpMultiTopologyId(static_cast<std::uint16_t>(r.mtId + 1)));
        k.mtIdIs(IgpMultiTopologyId(r.mtId));
        IgpNodeId id;
        for (unsigned i = 7; i-- > 0;) {
            id.byteIs(static_cast<std::uint8_t>(i), r.node[i]);
        }
        k.nodeIdIs(id);
    }
    return k;
}

// Changes exactly one field of the recipe; returns what, for messages.
std::string mutate(Recipe& r, std::mt19937& rng) {
    const unsigned what = rng() % 10;
    if (what < 7) {
        r.node[what] = static_cast<std::uint8_t>(r.node[what] + 1 + rng() % 255);
        return "node byte " + std::to_string(what);
    }
    if (what == 7) {
        r.mtId = static_cast<std::uint16_t>(r.mtId + 1 + rng() % 100);
        return "mtId";
    }
    auto& set = r.sets[rng() % 4];
    if (what == 9 && !set.empty()) {
        set.erase(set.begin() + rng() % set.size());
        return "removed an address";
    }
    set.push_back(11 + rng() % 10);  // outside the pool
    return "added an address";
}

TEST(NeighborKey, KeysBuiltThroughDifferentHistoriesAgreeAndOneChangedFieldMakesThemDiffer) {
    std::mt19937 rng(20240611);
    int hashChangesChecked = 0;
    for (int round = 0; round < 300; ++round) {
        Recipe recipe = randomRecipe(rng);
        const NeighborKey a = build(recipe, rng, false);
        const NeighborKey b = build(recipe, rng, true);
        SCOPED_TRACE("round " + std::to_string(round) + ": " + a.toStrep());
        ASSERT_TRUE(a == b);
        EXPECT_EQ(a <=> b, std::strong_ordering::equal);
        for (const std::uint32_t seed : {0u, 0x9e3779b9u, Kest::HashHelper::hashSeed32()}) {
            EXPECT_EQ(a.hash(seed), b.hash(seed));
            EXPECT_EQ(a.hash(seed), expectedHash(a, seed));
        }
        NeighborKey assigned = build(randomRecipe(rng), rng, true);
        assigned = NeighborKey(b);
        EXPECT_EQ(assigned.hash(7), a.hash(7));

        const std::string what = mutate(recipe, rng);
        const NeighborKey m = build(recipe, rng, round % 2 == 0);
        SCOPED_TRACE("changed " + what + ": " + m.toStrep());
        EXPECT_FALSE(a == m);
        EXPECT_EQ(a <=> m, orderModel(a, m));
        EXPECT_EQ(m <=> a, orderModel(m, a));
        EXPECT_EQ(m.hash(5), expectedHash(m, 5));
        if (what == "mtId" || what.starts_with("added")) {
            EXPECT_NE(a.hash(5), m.hash(5));  // a 32-bit collision is not expected
            ++hashChangesChecked;
        }
    }
    EXPECT_GT(hashChangesChecked, 50);
}

// Keys that hashed alike under every seed while the key mixed digests: addresses with one unseeded
// hash, an address that moves to the next set, node ids that differ only in where their zeros are,
// and (past 254 members, where a size takes a word) a member moved to another set.
TEST(NeighborKey, KeysThatDigestsWouldMergeHashApart) {
    const auto [a, b] = testsupport::unseededHashTwins();
    NeighborKey withA(nodeId(1), IgpMultiTopologyId(0));
    NeighborKey withB = withA;
    withA.remoteIpv6AddrIs(a);
    withB.remoteIpv6AddrIs(b);
    const NeighborKey zerosFirst(node({1, 0, 2, 0, 0, 0, 0}), IgpMultiTopologyId(0));
    const NeighborKey zerosLast(node({1, 2, 0, 0, 0, 0, 0}), IgpMultiTopologyId(0));
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
        EXPECT_NE(zerosFirst.hash(seed), zerosLast.hash(seed));
        EXPECT_NE(many.hash(seed), fewer.hash(seed));
    }
}

TEST(NeighborKey, HashAndComparisonAllocateNothing) {
    NeighborKey a(nodeId(1), IgpMultiTopologyId(2));
    for (unsigned i = 1; i <= 3; ++i) {  // three addresses leave the inline slot
        for (int set : {remote4, remote6, local4, local6}) {
            put(a, set, i);
        }
    }
    NeighborKey c = a;
    c.mtIdIs(IgpMultiTopologyId(3));
    std::uint32_t sink = 0;
    const testsupport::AllocationScope comparing;
    sink += a.hash(0) + c.hash(0x12345678u) + (NeighborKey::isEq(a, c) ? 1u : 0u) + ((a <=> c) < 0 ? 1u : 0u);
    EXPECT_EQ(comparing.count(), 0u);
    EXPECT_NE(sink, 0u);
}

TEST(NeighborKey, TextFormsCopyFromAndTruth) {
    // Of a set, only the first address shows.
    NeighborKey many(nodeId(1), IgpMultiTopologyId(0));
    for (unsigned i = 1; i <= 4; ++i) {
        many.remoteIpv6AddrIs(v6n(i));
    }
    EXPECT_EQ(many.toStrep(),
              "1921.6800.1001;rv6" + testsupport::text(*many.remoteIpv6Addr().uncheckedBegin()));
    EXPECT_EQ(testsupport::text(nbrKey(1, {"10.0.0.1"}, {"2001:db8::2"}, 2)),
              "Value('Routing::IgpCommon::NeighborKey', ** {'nodeId': [25, 33, 104, 0, 16, 1, 0], "
              "'remoteIpv4Addr': [], 'remoteIpv6Addr': [2001:db8::2], 'localIpv4Addr': [10.0.0.1], "
              "'localIpv6Addr': [], 'mtId': 2})");
    EXPECT_DEATH(Kest::strepToValue(Poldo::String("Value('Routing::IgpCommon::NeighborKey', ** {})"),
                                    static_cast<NeighborKey*>(nullptr)),
                 "No String constructor for NeighborKey - has collection");

    // copyFrom takes node and topology and adds the addresses.
    NeighborKey k = nbrKey(3, {"10.0.0.1"}, {"2001:db8::9"}, 1);
    const NeighborKey other = nbrKey(1, {"10.0.0.5", "10.0.0.1"}, {"2001:db8::2", "10.0.0.6"}, 3);
    k.copyFrom(other);
    EXPECT_EQ(k, nbrKey(1, {"10.0.0.5", "10.0.0.1"}, {"2001:db8::2", "10.0.0.6", "2001:db8::9"}, 3));
    k.copyFrom(k);
    EXPECT_EQ(k, nbrKey(1, {"10.0.0.5", "10.0.0.1"}, {"2001:db8::2", "10.0.0.6", "2001:db8::9"}, 3));

    EXPECT_FALSE(NeighborKey());
    EXPECT_TRUE(NeighborKey(IgpNodeId(), IgpMultiTopologyId(2)));
    NeighborKey onlyAddr;
    onlyAddr.localIpv4AddrIs(IpAddr(0));  // the zero address is still an address
    EXPECT_TRUE(onlyAddr);
}

// A key matches another when one of its local addresses is among the other's remote ones, or when
// one of them has no address and the other local addresses of one family only.
TEST(NeighborKeyTwoWay, LocalAddressAmongTheOthersRemoteOnesInTheSameTopology) {
    struct Case {
        const char* what;
        NeighborKey a, b;
        bool aToB, bToA;
    };
    const Case cases[] = {
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
        {"locals without a match", nbrKey(1, {"10.0.0.1"}, {"10.0.0.9"}),
         nbrKey(1, {"10.0.0.2"}, {"10.0.0.8"}), false, false},
        {"equal remote addresses", nbrKey(1, {"10.0.0.1"}, {"10.0.0.5"}),
         nbrKey(1, {"10.0.0.2"}, {"10.0.0.5"}), false, false},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(c.a.twoWayCheckAddrCmp(c.b), c.aToB) << c.what;
        EXPECT_EQ(c.b.twoWayCheckAddrCmp(c.a), c.bToA) << c.what;
    }
}

}  // namespace
