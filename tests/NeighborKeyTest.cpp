#include "IgpCommon/NeighborKey.h"

#include <gtest/gtest.h>

#include "support/AllocationCounter.h"
#include "support/UnseededTwins.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

using Lumo::Ip6Addr;
using Lumo::IpAddr;
using Routing::IgpCommon::IgpMultiTopologyId;
using Routing::IgpCommon::IgpNodeId;
using Routing::IgpCommon::NeighborKey;

using NodeBytes = std::array<std::uint8_t, 7>;

IgpNodeId node(const NodeBytes& b) {
    return IgpNodeId::fromBytes(b.data());
}
IpAddr v4(const char* text) {
    return Kest::strepToValue(Poldo::String(text), static_cast<IpAddr*>(nullptr));
}
Ip6Addr v6(const char* text) {
    return Kest::strepToValue(Poldo::String(text), static_cast<Ip6Addr*>(nullptr));
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

constexpr NodeBytes kNode{0x19, 0x21, 0x68, 0x00, 0x10, 0x01, 0x00};

template <class Set>
auto members(const Set& s) {
    std::vector<typename Set::key_type> out;
    for (auto it = s.uncheckedBegin(); it != s.uncheckedEnd(); ++it) {
        out.push_back(*it);
    }
    return out;
}

std::uint32_t expectedHash(const NeighborKey& k, std::uint32_t seed) {
    Kest::HashState s(seed);
    s.mix8(static_cast<std::uint8_t>(k.remoteIpv4Addr().size()));
    s.mix8(static_cast<std::uint8_t>(k.remoteIpv6Addr().size()));
    s.mix8(static_cast<std::uint8_t>(k.localIpv4Addr().size()));
    s.mix8(static_cast<std::uint8_t>(k.localIpv6Addr().size()));
    const auto mix6 = [&s](const Ip6Addr& a) {
        for (const std::uint8_t b : a.bytes()) {
            s.mix8(b);
        }
    };
    for (const auto& a : members(k.remoteIpv4Addr()))
        s.mix32(a.value());
    for (const auto& a : members(k.remoteIpv6Addr()))
        mix6(a);
    for (const auto& a : members(k.localIpv4Addr()))
        s.mix32(a.value());
    for (const auto& a : members(k.localIpv6Addr()))
        mix6(a);
    for (std::uint8_t i = 0; i < 7; ++i) {
        s.mix8(k.nodeId().byte(Routing::IgpCommon::IgpNodeIdIndex(i)));
    }
    return s.mix16(k.mtId().value()).result();
}

template <class Set>
std::strong_ordering compareSetModel(const Set& a, const Set& b) {
    if (a.size() != b.size()) {
        return a.size() <=> b.size();
    }
    const auto ma = members(a);
    const auto mb = members(b);
    return std::lexicographical_compare_three_way(ma.begin(), ma.end(), mb.begin(), mb.end());
}

// The documented order: node id, the four sets (size, then members in step), the topology last.
std::strong_ordering orderModel(const NeighborKey& a, const NeighborKey& b) {
    const auto na = a.nodeId().bytes();
    const auto nb = b.nodeId().bytes();
    for (std::size_t i = 0; i < 7; ++i) {
        if (na.slot(i) != nb.slot(i)) {
            return na.slot(i) <=> nb.slot(i);
        }
    }
    for (const auto c : {compareSetModel(a.remoteIpv4Addr(), b.remoteIpv4Addr()),
                         compareSetModel(a.remoteIpv6Addr(), b.remoteIpv6Addr()),
                         compareSetModel(a.localIpv4Addr(), b.localIpv4Addr()),
                         compareSetModel(a.localIpv6Addr(), b.localIpv6Addr())}) {
        if (c != 0) {
            return c;
        }
    }
    return a.mtId() <=> b.mtId();
}

std::string streamed(const NeighborKey& k) {
    std::ostringstream os;
    os << k;
    return os.str();
}

// ---- randomly built keys ---------------------------------------------------------------------

struct Recipe {
    NodeBytes node{};
    std::uint16_t mtId = 0;
    std::vector<IpAddr> rv4, lv4;
    std::vector<Ip6Addr> rv6, lv6;
};

template <class Addr>
std::vector<Addr> pickDistinct(std::mt19937& rng, Addr (*make)(unsigned), unsigned count) {
    std::vector<Addr> out;
    while (out.size() < count) {
        const Addr a = make(1 + rng() % 10);  // a small pool: local and remote sets often share addresses
        if (std::find(out.begin(), out.end(), a) == out.end()) {
            out.push_back(a);
        }
    }
    return out;
}

Recipe randomRecipe(std::mt19937& rng) {
    Recipe r;
    for (std::size_t i = 0; i < 6; ++i) {
        r.node[i] = static_cast<std::uint8_t>(rng() % 3 == 0 ? 0 : rng());
    }
    r.node[6] = static_cast<std::uint8_t>(rng() % 2 == 0 ? 0 : 1 + rng() % 5);
    r.mtId = static_cast<std::uint16_t>(rng() % 3 == 0 ? 0 : rng() % 4096);
    r.rv4 = pickDistinct(rng, v4n, rng() % 5);
    r.lv4 = pickDistinct(rng, v4n, rng() % 5);
    r.rv6 = pickDistinct(rng, v6n, rng() % 5);
    r.lv6 = pickDistinct(rng, v6n, rng() % 5);
    return r;
}

// Fills one set: plainly in the given order, or shuffled with duplicates, and with decoy
// addresses that grow the set past its inline slot and are deleted again in between.
template <class Addr, class Add, class Del>
void fillSet(const std::vector<Addr>& want, Addr (*make)(unsigned), std::mt19937& rng, bool scrambled,
             Add add, Del del) {
    if (!scrambled) {
        for (const Addr& a : want)
            add(a);
        return;
    }
    std::vector<Addr> decoys;
    for (unsigned i = 0, n = rng() % 13; i < n; ++i) {  // up to 12: the table grows more than once
        decoys.push_back(make(1000 + i));               // outside the pool of wanted addresses
    }
    std::vector<Addr> order = want;
    std::shuffle(order.begin(), order.end(), rng);
    for (const Addr& d : decoys)
        add(d);
    for (std::size_t i = 0; i < order.size(); ++i) {
        add(order[i]);
        if (i % 2 == 0) {
            add(order[i]);  // present already: no change
        }
        if (i < decoys.size()) {
            del(decoys[i]);
        }
    }
    std::shuffle(decoys.begin(), decoys.end(), rng);
    for (const Addr& d : decoys)
        del(d);
}

NeighborKey build(const Recipe& r, std::mt19937& rng, bool scrambled) {
    NeighborKey k;
    if (!scrambled) {
        k.nodeIdIs(node(r.node));
        k.mtIdIs(IgpMultiTopologyId(r.mtId));
    }
    fillSet(
        r.lv6, v6n, rng, scrambled, [&](const Ip6Addr& a) { k.localIpv6AddrIs(a); },
        [&](const Ip6Addr& a) { k.localIpv6AddrDel(a); });
    fillSet(
        r.rv4, v4n, rng, scrambled, [&](IpAddr a) { k.remoteIpv4AddrIs(a); },
        [&](IpAddr a) { k.remoteIpv4AddrDel(a); });
    fillSet(
        r.lv4, v4n, rng, scrambled, [&](IpAddr a) { k.localIpv4AddrIs(a); },
        [&](IpAddr a) { k.localIpv4AddrDel(a); });
    fillSet(
        r.rv6, v6n, rng, scrambled, [&](const Ip6Addr& a) { k.remoteIpv6AddrIs(a); },
        [&](const Ip6Addr& a) { k.remoteIpv6AddrDel(a); });
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

template <class Addr>
Addr absentFrom(const std::vector<Addr>& v, Addr (*make)(unsigned), std::mt19937& rng) {
    for (;;) {
        const Addr a = make(1 + rng() % 20);
        if (std::find(v.begin(), v.end(), a) == v.end()) {
            return a;
        }
    }
}

// Adds, replaces or removes one address of a set.
template <class Addr>
std::string changeSet(std::vector<Addr>& v, Addr (*make)(unsigned), std::mt19937& rng,
                      const std::string& name) {
    switch (v.empty() ? 0 : rng() % 3) {
        case 0:
            v.push_back(absentFrom(v, make, rng));
            return "added " + name;
        case 1:
            v[rng() % v.size()] = absentFrom(v, make, rng);
            return "replaced " + name;
        default:
            v.erase(v.begin() + rng() % v.size());
            return "removed " + name;
    }
}

// Changes exactly one field of the recipe; returns what was changed, for messages.
std::string mutate(Recipe& r, std::mt19937& rng) {
    switch (rng() % 8) {
        case 0: {
            const unsigned i = rng() % 6;
            r.node[i] = static_cast<std::uint8_t>(r.node[i] + 1 + rng() % 255);
            return "node byte " + std::to_string(i);
        }
        case 1:
            r.node[6] = static_cast<std::uint8_t>(r.node[6] + 1 + rng() % 255);
            return "pseudonode byte";
        case 2:
            r.mtId = static_cast<std::uint16_t>(r.mtId + 1 + rng() % 100);
            return "mtId";
        case 3:
            return changeSet(r.rv4, v4n, rng, "remote IPv4");
        case 4:
            return changeSet(r.rv6, v6n, rng, "remote IPv6");
        case 5:
            return changeSet(r.lv4, v4n, rng, "local IPv4");
        case 6:
            return changeSet(r.lv6, v6n, rng, "local IPv6");
        default:  // move a local address to the remote set of its family
            if (!r.lv4.empty()) {
                const IpAddr a = r.lv4.back();
                r.lv4.pop_back();
                if (std::find(r.rv4.begin(), r.rv4.end(), a) == r.rv4.end())
                    r.rv4.push_back(a);
                return "moved local IPv4 to remote";
            }
            if (!r.lv6.empty()) {
                const Ip6Addr a = r.lv6.back();
                r.lv6.pop_back();
                if (std::find(r.rv6.begin(), r.rv6.end(), a) == r.rv6.end())
                    r.rv6.push_back(a);
                return "moved local IPv6 to remote";
            }
            return changeSet(r.lv6, v6n, rng, "local IPv6");
    }
}

// ---- equality, hash, text and order over random keys ------------------------------------------

TEST(NeighborKey, KeysBuiltThroughDifferentHistoriesAgreeAndOneChangedFieldMakesThemDiffer) {
    std::mt19937 rng(20240611);
    const std::uint32_t seeds[] = {0, 1, 0x9e3779b9u, Kest::HashHelper::hashSeed32()};
    int hashChangesChecked = 0;
    for (int round = 0; round < 300; ++round) {
        Recipe recipe = randomRecipe(rng);
        const NeighborKey a = build(recipe, rng, false);
        const NeighborKey b = build(recipe, rng, true);
        SCOPED_TRACE("round " + std::to_string(round) + ": " + a.toStrep());

        ASSERT_TRUE(NeighborKey::isEq(a, b));
        EXPECT_TRUE(a == b);
        EXPECT_FALSE(a != b);
        EXPECT_EQ(a <=> b, std::strong_ordering::equal);
        EXPECT_EQ(b <=> a, std::strong_ordering::equal);
        for (const std::uint32_t seed : seeds) {
            EXPECT_EQ(a.hash(seed), b.hash(seed));
            EXPECT_EQ(a.hash(seed), expectedHash(a, seed));
        }
        EXPECT_EQ(a.toStrep(), b.toStrep());
        EXPECT_EQ(streamed(a), streamed(b));
        // Copies and moves keep equality and hash, whether the sets are inline or on the heap.
        NeighborKey copy = b;
        EXPECT_EQ(copy, a);
        EXPECT_EQ(copy.hash(7), a.hash(7));
        const NeighborKey moved = std::move(copy);
        EXPECT_EQ(moved, a);
        EXPECT_EQ(moved.hash(7), a.hash(7));
        NeighborKey assigned = build(randomRecipe(rng), rng, true);
        assigned = moved;
        EXPECT_EQ(assigned, a);
        EXPECT_EQ(assigned.toStrep(), a.toStrep());

        const std::string what = mutate(recipe, rng);
        const NeighborKey m = build(recipe, rng, round % 2 == 0);
        SCOPED_TRACE("changed " + what + ": " + m.toStrep());
        EXPECT_FALSE(NeighborKey::isEq(a, m));
        EXPECT_FALSE(a == m);
        EXPECT_NE(a <=> m, std::strong_ordering::equal);
        EXPECT_EQ(a <=> m, orderModel(a, m));
        EXPECT_EQ(m <=> a, orderModel(m, a));
        EXPECT_EQ(m.hash(5), expectedHash(m, 5));
        if (what == "mtId" || what.starts_with("added")) {
            // A topology or an extra item enters the hash input: a 32-bit collision is not expected.
            EXPECT_NE(a.hash(5), m.hash(5));
            ++hashChangesChecked;
        }
    }
    EXPECT_GT(hashChangesChecked, 50);
}

// Keys that hashed alike under every seed while the key mixed digests: addresses with one unseeded
// hash, an address that moves to the next set, node ids that differ only in where their zeros are.
TEST(NeighborKey, KeysThatDigestsWouldMergeHashApart) {
    const auto [a, b] = testsupport::unseededHashTwins();
    NeighborKey withA(node(kNode), IgpMultiTopologyId(0));
    NeighborKey withB = withA;
    withA.remoteIpv6AddrIs(a);
    withB.remoteIpv6AddrIs(b);
    NeighborKey remote(node(kNode), IgpMultiTopologyId(0));
    NeighborKey local = remote;
    remote.remoteIpv4AddrIs(v4("10.0.0.1"));
    local.localIpv4AddrIs(v4("10.0.0.1"));
    const NeighborKey zerosFirst(node({1, 0, 2, 0, 0, 0, 0}), IgpMultiTopologyId(0));
    const NeighborKey zerosLast(node({1, 2, 0, 0, 0, 0, 0}), IgpMultiTopologyId(0));
    // Past 254 members the sizes take one word each; moving a member to another set still counts.
    NeighborKey many(node(kNode), IgpMultiTopologyId(0));
    for (unsigned i = 0; i < 300; ++i) {
        many.remoteIpv4AddrIs(v4n(i));
    }
    NeighborKey fewer = many;
    fewer.remoteIpv4AddrDel(v4n(299));
    fewer.localIpv4AddrIs(v4n(299));
    for (const std::uint32_t seed : {0u, 1u, 0xdeadbeefu}) {
        SCOPED_TRACE(seed);
        EXPECT_NE(withA.hash(seed), withB.hash(seed));
        EXPECT_NE(remote.hash(seed), local.hash(seed));
        EXPECT_NE(zerosFirst.hash(seed), zerosLast.hash(seed));
        EXPECT_NE(many.hash(seed), fewer.hash(seed));
    }
}

TEST(NeighborKey, HashAndComparisonAllocateNothing) {
    NeighborKey a(node(kNode), IgpMultiTopologyId(2));
    const auto beforeBuild = testsupport::allocationCount();
    for (unsigned i = 1; i <= 3; ++i) {
        a.remoteIpv4AddrIs(v4n(i));
        a.localIpv4AddrIs(v4n(10 + i));
        a.remoteIpv6AddrIs(v6n(i));
        a.localIpv6AddrIs(v6n(10 + i));
    }
    // Three addresses do not fit the inline slot: the counter must see the sets grow.
    EXPECT_GT(testsupport::allocationCount() - beforeBuild, 0u);
    NeighborKey b = a;
    b.localIpv6AddrDel(v6n(13));
    b.localIpv6AddrIs(v6n(13));
    NeighborKey c = a;
    c.mtIdIs(IgpMultiTopologyId(3));

    std::uint32_t sink = 0;
    const auto before = testsupport::allocationCount();
    sink += a.hash(0) + b.hash(1) + c.hash(0x12345678u);
    sink += NeighborKey::isEq(a, b) ? 1u : 0u;
    sink += (a == c) ? 1u : 0u;
    sink += (a <=> b) == 0 ? 1u : 0u;
    sink += (a <=> c) < 0 ? 1u : 0u;
    const auto after = testsupport::allocationCount();
    EXPECT_EQ(after - before, 0u);
    EXPECT_NE(sink, 0u);
}

TEST(NeighborKey, OrderComparesNodeIdThenSetsThenTopologyLast) {
    NeighborKey low(node({0x01, 0, 0, 0, 0, 1, 0}), IgpMultiTopologyId(9));
    low.remoteIpv4AddrIs(v4n(1));
    low.remoteIpv4AddrIs(v4n(2));
    const NeighborKey high(node({0x02, 0, 0, 0, 0, 0, 0}), IgpMultiTopologyId(0));
    EXPECT_LT(low, high);  // node id decides before addresses and topology
    EXPECT_GT(high, low);

    const NeighborKey mt0(node(kNode), IgpMultiTopologyId(0));
    const NeighborKey mt2(node(kNode), IgpMultiTopologyId(2));
    EXPECT_LT(mt0, mt2);
    NeighborKey withRemote(node(kNode), IgpMultiTopologyId(0));
    withRemote.remoteIpv4AddrIs(v4("10.0.0.2"));
    EXPECT_GT(withRemote, mt2);  // the extra address outranks a larger topology
    EXPECT_LT(mt2, withRemote);

    NeighborKey one(node(kNode), IgpMultiTopologyId(5)), two(node(kNode), IgpMultiTopologyId(0));
    one.remoteIpv4AddrIs(v4("10.0.0.1"));
    two.remoteIpv4AddrIs(v4("10.0.0.2"));
    EXPECT_LT(one, two);  // same size: the addresses decide, not the topology

    NeighborKey v6a(node(kNode), IgpMultiTopologyId(0)), v6b(node(kNode), IgpMultiTopologyId(0));
    v6a.localIpv6AddrIs(v6("2001:db8::1"));
    v6b.localIpv6AddrIs(v6("fe80::1"));
    EXPECT_LT(v6a, v6b);  // bytewise address order

    NeighborKey pseudo(node({0x19, 0x21, 0x68, 0x00, 0x10, 0x01, 0x03}), IgpMultiTopologyId(0));
    EXPECT_GT(pseudo, mt2);  // the pseudonode byte is the least significant byte of the node id
    EXPECT_LT(pseudo, NeighborKey(node({0x19, 0x21, 0x68, 0x00, 0x10, 0x02, 0x00}), IgpMultiTopologyId(0)));
}

// ---- text -------------------------------------------------------------------------------------

TEST(NeighborKey, ToStrepShowsFirstAddressOfEachSetAndNonZeroTopology) {
    NeighborKey k(node(kNode), IgpMultiTopologyId(2));
    k.localIpv4AddrIs(v4("10.0.0.1"));
    k.remoteIpv4AddrIs(v4("10.0.0.2"));
    EXPECT_EQ(k.toStrep(), "1921.6800.1001;lv410.0.0.1;rv410.0.0.2;mtId 2");

    EXPECT_EQ(NeighborKey(node(kNode), IgpMultiTopologyId(0)).toStrep(), "1921.6800.1001");
    EXPECT_EQ(NeighborKey(node({0x19, 0x21, 0x68, 0x00, 0x10, 0x01, 0x03}), IgpMultiTopologyId(0)).toStrep(),
              "1921.6800.1001.03");
    EXPECT_EQ(NeighborKey().toStrep(), "0000.0000.0000");

    NeighborKey all(node({0xab, 0xcd, 0, 0, 0, 0x0f, 0x1a}), IgpMultiTopologyId(4095));
    all.remoteIpv6AddrIs(v6("2001:db8::2"));
    all.localIpv6AddrIs(v6("2001:db8::1"));
    all.remoteIpv4AddrIs(v4("192.0.2.2"));
    all.localIpv4AddrIs(v4("192.0.2.1"));
    EXPECT_EQ(all.toStrep(),
              "abcd.0000.000f.1a;lv4192.0.2.1;rv4192.0.2.2;lv62001:db8::1;rv62001:db8::2;mtId 4095");

    // With several addresses only the first in iteration order shows.
    NeighborKey many(node(kNode), IgpMultiTopologyId(0));
    for (unsigned i = 1; i <= 4; ++i)
        many.remoteIpv6AddrIs(v6n(i));
    std::ostringstream first;
    first << *many.remoteIpv6Addr().uncheckedBegin();
    EXPECT_EQ(many.toStrep(), "1921.6800.1001;rv6" + first.str());
}

TEST(NeighborKey, GenericTextListsEveryAttribute) {
    NeighborKey k(node(kNode), IgpMultiTopologyId(2));
    k.localIpv4AddrIs(v4("10.0.0.1"));
    k.remoteIpv6AddrIs(v6("2001:db8::2"));
    EXPECT_EQ(streamed(k),
              "Value('Routing::IgpCommon::NeighborKey', ** {'nodeId': [25, 33, 104, 0, 16, 1, 0], "
              "'remoteIpv4Addr': [], 'remoteIpv6Addr': [2001:db8::2], 'localIpv4Addr': [10.0.0.1], "
              "'localIpv6Addr': [], 'mtId': 2})");
}

TEST(NeighborKeyDeathTest, TextConstructorStopsTheProcess) {
    EXPECT_DEATH(Kest::strepToValue(Poldo::String("Value('Routing::IgpCommon::NeighborKey', ** {})"),
                                    static_cast<NeighborKey*>(nullptr)),
                 "No String constructor for NeighborKey - has collection");
}

// ---- copyFrom and operator bool ---------------------------------------------------------------

TEST(NeighborKey, CopyFromTakesNodeAndTopologyAndAddsAddresses) {
    NeighborKey k(node({0, 0, 0, 0, 0, 1, 0}), IgpMultiTopologyId(1));
    k.localIpv4AddrIs(v4("10.0.0.1"));
    k.remoteIpv6AddrIs(v6("2001:db8::9"));
    NeighborKey other(node(kNode), IgpMultiTopologyId(3));
    other.localIpv4AddrIs(v4("10.0.0.5"));
    other.localIpv4AddrIs(v4("10.0.0.1"));  // present in both
    other.remoteIpv6AddrIs(v6("2001:db8::2"));
    other.remoteIpv4AddrIs(v4("10.0.0.6"));

    k.copyFrom(other);
    EXPECT_EQ(k.nodeId(), node(kNode));
    EXPECT_EQ(k.mtId(), IgpMultiTopologyId(3));
    EXPECT_EQ(k.localIpv4Addr().size(), 2u);
    EXPECT_TRUE(k.localIpv4AddrHas(v4("10.0.0.1")));
    EXPECT_TRUE(k.localIpv4AddrHas(v4("10.0.0.5")));
    EXPECT_EQ(k.remoteIpv6Addr().size(), 2u);
    EXPECT_TRUE(k.remoteIpv6AddrHas(v6("2001:db8::9")));  // kept
    EXPECT_TRUE(k.remoteIpv6AddrHas(v6("2001:db8::2")));
    EXPECT_EQ(k.remoteIpv4Addr().size(), 1u);
    EXPECT_TRUE(k.localIpv6Addr().empty());
    EXPECT_NE(k, other);  // the kept address makes it a superset, not a copy

    NeighborKey blank;
    blank.copyFrom(other);
    EXPECT_EQ(blank, other);
    EXPECT_EQ(blank.hash(3), other.hash(3));

    const NeighborKey before = k;
    k.copyFrom(k);
    EXPECT_EQ(k, before);
}

TEST(NeighborKey, IsTrueUnlessDefault) {
    EXPECT_FALSE(static_cast<bool>(NeighborKey()));
    EXPECT_FALSE(static_cast<bool>(NeighborKey(IgpNodeId(), IgpMultiTopologyId(0))));
    EXPECT_TRUE(static_cast<bool>(NeighborKey(node(kNode), IgpMultiTopologyId(0))));
    EXPECT_TRUE(static_cast<bool>(NeighborKey(IgpNodeId(), IgpMultiTopologyId(2))));
    EXPECT_TRUE(static_cast<bool>(NeighborKey(node({0, 0, 0, 0, 0, 0, 1}), IgpMultiTopologyId(0))));
    NeighborKey onlyAddr;
    onlyAddr.remoteIpv6AddrIs(v6("::1"));
    EXPECT_TRUE(static_cast<bool>(onlyAddr));
    onlyAddr.remoteIpv6AddrDelAll();
    EXPECT_FALSE(static_cast<bool>(onlyAddr));
    NeighborKey onlyLocal;
    onlyLocal.localIpv4AddrIs(v4("0.0.0.0"));  // the zero address is still an address
    EXPECT_TRUE(static_cast<bool>(onlyLocal));
}

// ---- the two-way check ------------------------------------------------------------------------

NeighborKey keyWith(std::uint16_t mt, std::vector<const char*> lv4, std::vector<const char*> rv4,
                    std::vector<const char*> lv6 = {}, std::vector<const char*> rv6 = {}) {
    NeighborKey k(node(kNode), IgpMultiTopologyId(mt));
    for (const char* a : lv4)
        k.localIpv4AddrIs(v4(a));
    for (const char* a : rv4)
        k.remoteIpv4AddrIs(v4(a));
    for (const char* a : lv6)
        k.localIpv6AddrIs(v6(a));
    for (const char* a : rv6)
        k.remoteIpv6AddrIs(v6(a));
    return k;
}

TEST(NeighborKeyTwoWay, EmptyKeysMatchOnlyInTheSameTopology) {
    EXPECT_TRUE(keyWith(0, {}, {}).twoWayCheckAddrCmp(keyWith(0, {}, {})));
    EXPECT_TRUE(keyWith(2, {}, {}).twoWayCheckAddrCmp(keyWith(2, {}, {})));
    EXPECT_FALSE(keyWith(0, {}, {}).twoWayCheckAddrCmp(keyWith(2, {}, {})));
    // Even perfectly matching addresses fail across topologies.
    const NeighborKey a = keyWith(1, {"10.0.0.1"}, {"10.0.0.2"});
    const NeighborKey b = keyWith(2, {"10.0.0.2"}, {"10.0.0.1"});
    EXPECT_FALSE(a.twoWayCheckAddrCmp(b));
    EXPECT_FALSE(b.twoWayCheckAddrCmp(a));
}

TEST(NeighborKeyTwoWay, KeyWithoutAddressesMatchesOnlyLocalAddressesOfOneFamily) {
    const NeighborKey none = keyWith(0, {}, {});
    const NeighborKey v4Only = keyWith(0, {"10.0.0.1"}, {"10.0.0.2"});
    const NeighborKey v6Only = keyWith(0, {}, {}, {"2001:db8::1"});
    const NeighborKey both = keyWith(0, {"10.0.0.1"}, {}, {"2001:db8::1"});
    const NeighborKey remoteOnly = keyWith(0, {}, {"10.0.0.2"}, {}, {"2001:db8::2"});
    for (const NeighborKey* k : {&v4Only, &v6Only}) {
        EXPECT_TRUE(k->twoWayCheckAddrCmp(none)) << k->toStrep();
        EXPECT_TRUE(none.twoWayCheckAddrCmp(*k)) << k->toStrep();
    }
    EXPECT_FALSE(both.twoWayCheckAddrCmp(none));
    EXPECT_FALSE(none.twoWayCheckAddrCmp(both));
    EXPECT_FALSE(remoteOnly.twoWayCheckAddrCmp(none));
    EXPECT_FALSE(none.twoWayCheckAddrCmp(remoteOnly));
}

TEST(NeighborKeyTwoWay, LocalAddressAmongTheOthersRemoteAddressesMatches) {
    // IPv4 cross-matches, IPv6 does not: still a match.
    const NeighborKey a = keyWith(0, {"10.0.0.1"}, {"10.0.0.2"}, {"2001:db8::1"}, {"2001:db8::2"});
    const NeighborKey b = keyWith(0, {"10.0.0.2"}, {"10.0.0.1"}, {"2001:db8::9"}, {"2001:db8::8"});
    EXPECT_TRUE(a.twoWayCheckAddrCmp(b));
    EXPECT_TRUE(b.twoWayCheckAddrCmp(a));

    // Only IPv6 cross-matches, and both have non-matching local IPv4.
    const NeighborKey c = keyWith(0, {"10.0.0.1"}, {"10.0.0.9"}, {"2001:db8::1"}, {"2001:db8::2"});
    const NeighborKey d = keyWith(0, {"10.0.0.2"}, {"10.0.0.8"}, {"2001:db8::2"}, {"2001:db8::1"});
    EXPECT_TRUE(c.twoWayCheckAddrCmp(d));
    EXPECT_TRUE(d.twoWayCheckAddrCmp(c));

    // A match among several remote addresses, once the set has grown out of its inline slot.
    const NeighborKey e = keyWith(0, {"10.0.0.7"}, {}, {"2001:db8::7"});
    const NeighborKey f =
        keyWith(0, {"10.0.0.3"}, {"10.0.0.4", "10.0.0.5", "10.0.0.6", "10.0.0.7"}, {"2001:db8::3"});
    EXPECT_TRUE(e.twoWayCheckAddrCmp(f));
}

TEST(NeighborKeyTwoWay, LocalAddressesOnBothSidesWithoutMatchFail) {
    const NeighborKey a = keyWith(0, {"10.0.0.1"}, {"10.0.0.9"});
    const NeighborKey b = keyWith(0, {"10.0.0.2"}, {"10.0.0.8"});
    EXPECT_FALSE(a.twoWayCheckAddrCmp(b));
    EXPECT_FALSE(b.twoWayCheckAddrCmp(a));
    // A remote address equal to the other's remote address is no match either.
    const NeighborKey c = keyWith(0, {"10.0.0.1"}, {"10.0.0.5"});
    const NeighborKey d = keyWith(0, {"10.0.0.2"}, {"10.0.0.5"});
    EXPECT_FALSE(c.twoWayCheckAddrCmp(d));
}

TEST(NeighborKeyTwoWay, CheckLooksOnlyForThisKeysLocalAmongTheOthersRemote) {
    // A's local IPv4 is among B's remote ones; B's locals are among none of A's remotes.
    const NeighborKey a = keyWith(0, {"10.0.0.1"}, {}, {"2001:db8::1"});
    const NeighborKey b = keyWith(0, {"10.0.0.2"}, {"10.0.0.1"}, {"2001:db8::2"});
    EXPECT_TRUE(a.twoWayCheckAddrCmp(b));
    EXPECT_FALSE(b.twoWayCheckAddrCmp(a));
}

}  // namespace
