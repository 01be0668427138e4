// Random sequences of LSP merges into one entry (fixed seeds, small key spaces so that keys recur).
// After every merge: history does not matter (the entry equals a fresh merge of the last LSP, but
// for the metrics a reachable prefix keeps), and no change goes unpublished (a mirror fed by
// notifications alone equals the entry).
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "IgpCommon/LspDatabase.h"
#include "IgpCommon/ParsedContent.h"
#include "IgpCommon/framework/Hash.h"
#include "support/EntryMirror.h"
#include "tests/support/Builders.h"

namespace {

using namespace Routing::IgpCommon;
using IgpTest::FlexMetrics;
using Lumo::Ip6Addr;
using Lumo::IpAddr;
using Lumo::IpGenAddr;

using testsupport::nodeId;
IpAddr v4(std::uint8_t last) {
    return IpAddr(0x0a000000u | last);
}
Ip6Addr v6(std::uint8_t last) {
    std::array<std::uint8_t, 16> b{0xfe, 0x80};
    b[15] = last;
    return Ip6Addr::fromBytes(b.data());
}

template <class E>
struct Recipe {
    std::size_t key = 0;  // index into the key pool
    IgpTest::AttrState<E> attrs;
};
using FlexMap = std::map<std::uint8_t, std::uint32_t>;
struct LspRecipe {
    std::vector<Recipe<Neighbor>> neighbors;
    std::vector<Recipe<Prefix>> prefixes;
    std::vector<std::pair<IpGenAddr, std::vector<std::uint32_t>>> srlgRecords;
};

class Generator {
public:
    explicit Generator(std::uint32_t seed) : rng_(seed) {
        // Six neighbor keys over three nodes, two topologies and a handful of addresses.
        while (neighborKeys_.size() < 6) {
            NeighborKey k(nodeId(static_cast<std::uint8_t>(2 + below(3))),
                          IgpMultiTopologyId(chance(3) ? 2 : 0));
            for (unsigned n = below(3); n > 0; --n)
                k.localIpv4AddrIs(v4(static_cast<std::uint8_t>(1 + below(3))));
            if (chance(2))
                k.localIpv6AddrIs(v6(static_cast<std::uint8_t>(1 + below(2))));
            if (chance(2))
                k.remoteIpv4AddrIs(v4(9));
            if (chance(3))
                k.remoteIpv6AddrIs(v6(9));
            if (std::find(neighborKeys_.begin(), neighborKeys_.end(), k) == neighborKeys_.end()) {
                neighborKeys_.push_back(k);
            }
        }
        const Lumo::IpGenPrefix p16(IpAddr(0x0a010000), 16), p24(IpAddr(0x0a010000), 24),
            q16(IpAddr(0x0a020000), 16);
        const Lumo::IpGenPrefix p6(
            Ip6Addr::fromBytes(std::array<std::uint8_t, 16>{0x20, 0x01, 0x0d, 0xb8}.data()), 32);
        const std::array<std::pair<Lumo::IpGenPrefix, std::uint16_t>, 6> keys{
            {{p16, 0}, {p24, 0}, {p16, 2}, {q16, 0}, {p6, 0}, {p6, 2}}};
        for (const auto& [p, mt] : keys) {
            prefixKeys_.emplace_back(p, IgpMultiTopologyId(mt));
        }
    }

    const std::vector<NeighborKey>& neighborKeys() const { return neighborKeys_; }
    const std::vector<PrefixKey>& prefixKeys() const { return prefixKeys_; }

    LspRecipe lsp() {
        LspRecipe r;
        for (std::size_t i = 0; i < neighborKeys_.size(); ++i) {
            if (below(5) < 3)
                r.neighbors.push_back({i, IgpTest::drawState<Neighbor>([this](auto t) { return draw(t); })});
        }
        for (std::size_t i = 0; i < prefixKeys_.size(); ++i) {
            if (below(5) < 3)
                r.prefixes.push_back(prefix(i));
        }
        const IpGenAddr addrs[] = {IpGenAddr(), v4(1), v4(2), v4(3), v6(1), v6(2)};
        for (const auto& a : addrs) {
            if (below(5) < 2) {
                std::vector<std::uint32_t> values{1 + below(6)};
                if (chance(2))
                    values.push_back(1 + below(6));
                r.srlgRecords.emplace_back(a, values);
            }
        }
        return r;
    }

private:
    unsigned below(unsigned n) { return static_cast<unsigned>(rng_() % n); }
    bool chance(unsigned oneIn) { return below(oneIn) == 0; }
    template <class T, std::size_t N>
    T pick(const T (&v)[N]) {
        return v[below(N)];
    }

    // Small pools of each type an attribute holds: merges meet equal and unequal values.
    using Attrs = Neighbor::NeighborAttrsPresent;
    template <class T>
    using Of = std::type_identity<T>;
    Attrs draw(Of<Attrs>) {
        return Attrs(chance(2) ? static_cast<std::uint8_t>(below(128)) : pick<std::uint8_t>({0, 0x21}));
    }
    std::uint32_t draw(Of<std::uint32_t>) { return pick<std::uint32_t>({0, 1, 5, 10, 20, 100}); }
    float draw(Of<float>) { return pick<float>({0.0f, 0.0f, 1e8f, 5e8f, 1e9f, 2.5e9f}); }
    LinkDelay draw(Of<LinkDelay>) {
        return chance(2) ? LinkDelay() : LinkDelay(pick<std::uint32_t>({800, 1500}), chance(4));
    }
    BwIndex draw(Of<BwIndex>) { return BwIndex(static_cast<std::uint8_t>(below(8))); }
    AdminGroupIndex draw(Of<AdminGroupIndex>) { return AdminGroupIndex(static_cast<std::uint8_t>(below(6))); }
    std::uint8_t draw(Of<std::uint8_t>) { return static_cast<std::uint8_t>(128 + below(3)); }  // an algorithm
    AdjacencySid draw(Of<AdjacencySid>) {
        return pick<AdjacencySid>({{0x30, 24001, 0}, {0x30, 24002, 0}, {0x20, 24001, 1}, {0x30, 24001, 1}});
    }
    LanAdjacencySid draw(Of<LanAdjacencySid>) {
        return pick<LanAdjacencySid>({{0x30, 24100, 0, Routing::Isis::SystemId({1, 2, 3, 4, 5, 6})},
                                      {0x30, 24100, 0, Routing::Isis::SystemId({1, 2, 3, 4, 5, 7})}});
    }
    // A collection: up to three members from the pools (a set's members map to themselves).
    template <class K, class V>
    std::map<K, V> draw(Of<std::map<K, V>>) {
        std::map<K, V> m;
        for (unsigned e = below(4); e > 0; --e) {
            const K k = draw(Of<K>{});
            if constexpr (std::is_same_v<K, V>) {
                m[k] = k;
            } else {
                m[k] = draw(Of<V>{});
            }
        }
        return m;
    }

    PrefixFlags draw(Of<PrefixFlags>) { return PrefixFlags(static_cast<unsigned char>(below(2))); }
    bool draw(Of<bool>) { return below(4) != 0; }
    PrefixSid draw(Of<PrefixSid>) {
        return pick<PrefixSid>({PrefixSid(), PrefixSid(0x40, 100, 0, true), PrefixSid(0x40, 101, 0, true)});
    }
    Poldo::Ptr<SidLabelBinding> draw(Of<Poldo::Ptr<SidLabelBinding>>) {
        if (!chance(3))
            return nullptr;
        auto b = sidLabelBindingFactory();
        b->flagsIs(SidLabelBinding::SidLabelBindingFlags(pick<std::uint8_t>({0, 0x10, 0x03})));
        b->rangeIs(pick<std::uint16_t>({1, 4}));
        b->baseLabelSidIs(pick<LabelSid>({LabelSid(), LabelSid(0x80, 16000, true)}));
        b->basePrefixSidIs(pick<PrefixSid>({PrefixSid(), PrefixSid(0x40, 7, 0, true)}));
        b->lspFragmentIdIs(pick<std::uint8_t>({0, 1}));
        return b;
    }

    Recipe<Prefix> prefix(std::size_t key) {
        Recipe<Prefix> p{key, IgpTest::drawState<Prefix>([this](auto type) { return draw(type); })};
        if (!std::get<bool>(p.attrs)) {  // unreachable: no metric, SID or per-algorithm metric
            std::get<std::uint32_t>(p.attrs) = 0;
            std::get<PrefixSid>(p.attrs) = PrefixSid();
            std::get<FlexMap>(p.attrs).clear();
        }
        return p;
    }

    std::mt19937 rng_;
    std::vector<NeighborKey> neighborKeys_;
    std::vector<PrefixKey> prefixKeys_;
};

Poldo::Ptr<IsisLspParsedContent> build(const LspRecipe& r, const Generator& g) {
    auto parsed = isisLspParsedContentFactory();
    for (const auto& nr : r.neighbors) {
        IgpTest::applyState(*parsed->neighborIs(g.neighborKeys()[nr.key]), nr.attrs);
    }
    for (const auto& pr : r.prefixes) {
        IgpTest::applyState(*parsed->prefixIs(g.prefixKeys()[pr.key]), pr.attrs);
    }
    for (const auto& [addr, values] : r.srlgRecords) {
        auto rec = parsed->parsedSrLgIs(addr);
        for (const auto v : values)
            rec->srlgValueIs(v);
    }
    return parsed;
}

using IgpTest::flexOf;
using IgpTest::Mirror;
using IgpTest::snap;
using IgpTest::text;

template <class Map>
auto entryKeys(const Map& m) {
    std::set<std::remove_cvref_t<decltype(m.begin()->key)>> keys;
    for (auto it = m.begin(); it != m.end(); ++it)
        keys.insert(it->key);
    return keys;
}
template <class Map>
auto mapKeys(const Map& m) {
    std::set<typename Map::key_type> keys;
    for (const auto& [k, v] : m)
        keys.insert(k);
    return keys;
}

// `expectedFlex`: a reachable prefix merged into one already held keeps the per-algorithm metrics
// the new one lacks; any other merge leaves exactly the parsed metrics.
void checkAgainstFreshMerge(const IgpLsp& entry, const IgpLsp& fresh,
                            const std::map<PrefixKey, FlexMetrics>& expectedFlex) {
    ASSERT_EQ(entryKeys(entry.neighbor()), entryKeys(fresh.neighbor()));
    ASSERT_EQ(entryKeys(entry.prefix()), entryKeys(fresh.prefix()));
    for (auto it = fresh.neighbor().begin(); it != fresh.neighbor().end(); ++it) {
        EXPECT_EQ(text(snap(*entry.neighbor(it->key))), text(snap(*it->value)))
            << "neighbor " << it->key.toStrep();
    }
    for (auto it = fresh.prefix().begin(); it != fresh.prefix().end(); ++it) {
        const Prefix& mine = *entry.prefix(it->key);
        EXPECT_EQ(text(snap(mine)), text(snap(*it->value))) << "prefix " << it->key;
        EXPECT_EQ(text(flexOf(mine)), text(expectedFlex.at(it->key))) << "prefix " << it->key;
    }
}

void checkMirror(const IgpLsp& entry, const Mirror& mirror) {
    EXPECT_EQ(mirror.unexpected(), 0u);
    EXPECT_EQ(mirror.fromDetached(), 0u);
    ASSERT_EQ(entryKeys(entry.neighbor()), mapKeys(mirror.neighbors()));
    ASSERT_EQ(entryKeys(entry.prefix()), mapKeys(mirror.prefixes()));
    for (const auto& [k, s] : mirror.neighbors()) {
        EXPECT_EQ(text(s), text(snap(*entry.neighbor(k))))
            << "unpublished change of neighbor " << k.toStrep();
    }
    for (const auto& [k, s] : mirror.prefixes()) {
        EXPECT_EQ(text(s), text(snap(*entry.prefix(k)))) << "unpublished change of prefix " << k;
    }
}

enum class Property { historyDoesNotMatter, everyChangeIsPublished };

void runSequences(Property property, std::uint32_t seed, int iterations) {
    SCOPED_TRACE("generator seed " + std::to_string(seed) + ", hash seed " +
                 std::to_string(Kest::HashHelper::hashSeed32()) + " (IGPCOMMON_HASH_SEED reproduces it)");
    Generator gen(seed);
    std::mt19937 lengths(seed ^ 0x5bd1e995u);
    for (int iteration = 0; iteration < iterations; ++iteration) {
        auto entry = igpLspFactory(nodeId(1));
        std::optional<Mirror> mirror;
        if (property == Property::everyChangeIsPublished) {
            mirror.emplace(entry);
        }
        std::map<PrefixKey, FlexMetrics> expectedFlex;
        const int merges = 1 + static_cast<int>(lengths() % 5);
        for (int m = 0; m < merges; ++m) {
            SCOPED_TRACE("iteration " + std::to_string(iteration) + ", merge " + std::to_string(m));
            const LspRecipe recipe = gen.lsp();

            std::map<PrefixKey, FlexMetrics> nextFlex;
            for (const auto& pr : recipe.prefixes) {
                const PrefixKey& k = gen.prefixKeys()[pr.key];
                const auto held = expectedFlex.find(k);
                FlexMetrics f =
                    (held != expectedFlex.end() && std::get<bool>(pr.attrs)) ? held->second : FlexMetrics{};
                if (held == expectedFlex.end() || std::get<bool>(pr.attrs)) {
                    for (const auto& [algo, metric] : std::get<FlexMap>(pr.attrs))
                        f[algo] = metric;
                }
                nextFlex[k] = f;
            }
            expectedFlex = nextFlex;

            auto parsed = build(recipe, gen);
            entry->updateNeighbors(parsed);
            entry->updatePrefixes(parsed);
            parsed.reset();

            if (property == Property::historyDoesNotMatter) {
                auto fresh = igpLspFactory(nodeId(1));
                auto again = build(recipe, gen);
                fresh->updateNeighbors(again);
                fresh->updatePrefixes(again);
                checkAgainstFreshMerge(*entry, *fresh, expectedFlex);
            } else {
                checkMirror(*entry, *mirror);
            }
            if (::testing::Test::HasFailure()) {
                return;  // one reported sequence is enough to reproduce
            }
        }
    }
}

TEST(IgpLspMergeProperty, AfterAnySequenceTheEntryEqualsAFreshMergeOfTheLastLsp) {
    runSequences(Property::historyDoesNotMatter, 0x1D6A7u, 300);
}

TEST(IgpLspMergeProperty, AMirrorFedOnlyByNotificationsEndsEqualToTheEntry) {
    runSequences(Property::everyChangeIsPublished, 20240611u, 300);
}

}  // namespace
