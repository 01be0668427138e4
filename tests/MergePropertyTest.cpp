// Random sequences of LSP merges into one entry (fixed seeds, small key spaces so that keys
// recur). Two properties after every merge of every sequence:
//  1. history does not matter: the entry equals, attribute by attribute, a fresh entry that
//     merged only the last LSP, except for what the library deliberately keeps (see
//     checkAgainstFreshMerge);
//  2. no change goes unpublished: an observer that rebuilds the entry from notifications alone
//     ends equal to it in every attribute that publishes.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "IgpCommon/LspDatabase.h"
#include "IgpCommon/ParsedContent.h"
#include "IgpCommon/framework/Hash.h"
#include "tests/support/Builders.h"

namespace {

using namespace Routing::IgpCommon;
using Lumo::IpGenAddr;
using testsupport::nodeId;
using FlexMetrics = std::map<unsigned, std::uint32_t>;

Lumo::IpAddr v4(unsigned last) {
    return Lumo::IpAddr(0x0a000000u | last);
}
Lumo::Ip6Addr v6(unsigned last) {
    std::array<std::uint8_t, 16> b{0xfe, 0x80};
    b[15] = static_cast<std::uint8_t>(last);
    return Lumo::Ip6Addr::fromBytes(b.data());
}

// ---- random LSPs over small key pools ------------------------------------------------------

using Rng = std::mt19937;
unsigned below(Rng& rng, unsigned n) {
    return static_cast<unsigned>(rng() % n);
}
bool chance(Rng& rng, unsigned oneIn) {
    return below(rng, oneIn) == 0;
}
template <class T, std::size_t N>
T pick(Rng& rng, const T (&v)[N]) {
    return v[below(rng, N)];
}

class Generator {
public:
    explicit Generator(std::uint32_t seed) {
        Rng rng(seed);
        // Six neighbor keys over three nodes, two topologies and a handful of addresses.
        while (neighborKeys_.size() < 6) {
            NeighborKey k(nodeId(static_cast<std::uint8_t>(2 + below(rng, 3))),
                          IgpMultiTopologyId(chance(rng, 3) ? 2 : 0));
            for (unsigned n = below(rng, 3); n > 0; --n) {
                k.localIpv4AddrIs(v4(1 + below(rng, 3)));
            }
            if (chance(rng, 2)) {
                k.localIpv6AddrIs(v6(1 + below(rng, 2)));
            }
            if (chance(rng, 2)) {
                k.remoteIpv4AddrIs(v4(9));
            }
            if (chance(rng, 3)) {
                k.remoteIpv6AddrIs(v6(9));
            }
            if (std::find(neighborKeys_.begin(), neighborKeys_.end(), k) == neighborKeys_.end()) {
                neighborKeys_.push_back(k);
            }
        }
        for (const char* p : {"10.1.0.0/16", "10.1.0.0/24", "10.2.0.0/16", "2001:db8::/32"}) {
            prefixKeys_.push_back(testsupport::pfxKey(p));
        }
        prefixKeys_.push_back(testsupport::pfxKey("10.1.0.0/16", 2));
        prefixKeys_.push_back(testsupport::pfxKey("2001:db8::/32", 2));
    }

    /// A random LSP drawn from `rng`: the same state gives the same contents.
    Poldo::Ptr<IsisLspParsedContent> lsp(Rng& rng) const {
        auto parsed = isisLspParsedContentFactory();
        for (const NeighborKey& k : neighborKeys_) {
            if (below(rng, 5) < 3) {
                neighbor(rng, *parsed->neighborIs(k));
            }
        }
        for (const PrefixKey& k : prefixKeys_) {
            if (below(rng, 5) < 3) {
                prefix(rng, *parsed->prefixIs(k));
            }
        }
        for (const IpGenAddr& a : {IpGenAddr(), IpGenAddr(v4(1)), IpGenAddr(v4(2)), IpGenAddr(v4(3)),
                                   IpGenAddr(v6(1)), IpGenAddr(v6(2))}) {
            if (below(rng, 5) < 2) {
                auto rec = parsed->parsedSrLgIs(a);
                rec->srlgValueIs(1 + below(rng, 6));
                if (chance(rng, 2)) {
                    rec->srlgValueIs(1 + below(rng, 6));
                }
            }
        }
        return parsed;
    }

private:
    static void neighbor(Rng& rng, Neighbor& n) {
        n.attrsPresentIs(Neighbor::NeighborAttrsPresent(chance(rng, 2)
                                                            ? static_cast<std::uint8_t>(below(rng, 128))
                                                            : pick<std::uint8_t>(rng, {0, 0x21})));
        n.adminGroupIs(pick<std::uint32_t>(rng, {0, 1, 5}));
        n.maxLinkBwIs(pick<float>(rng, {0.0f, 1e9f, 2.5e9f}));
        n.maxReserveLinkBwIs(pick<float>(rng, {0.0f, 1e9f}));
        for (std::uint8_t i = 0; i < 8; ++i) {
            n.unreservedBwIs(BwIndex(i), pick<float>(rng, {0.0f, 0.0f, 1e8f, 5e8f}));
        }
        for (unsigned e = below(rng, 4); e > 0; --e) {
            const auto i = AdminGroupIndex(static_cast<std::uint8_t>(below(rng, 6)));
            n.extAdminGroupIs(i, pick<std::uint32_t>(rng, {0, 1, 0xff}));
        }
        n.teDefMetricIs(pick<std::uint32_t>(rng, {0, 10, 20}));
        n.igpMetricIs(pick<std::uint32_t>(rng, {1, 10, 100}));
        if (chance(rng, 5)) {
            n.srlgValuesIs(1 + below(rng, 6));
        }
        for (const AdjacencySid& s : {AdjacencySid(0x30, 24001, 0), AdjacencySid(0x30, 24002, 0),
                                      AdjacencySid(0x20, 24001, 1), AdjacencySid(0x30, 24001, 1)}) {
            if (chance(rng, 3)) {
                n.adjSidIs(s);
            }
        }
        for (std::uint8_t last : {6, 7}) {
            if (chance(rng, 3)) {
                n.lanAdjSidIs(
                    LanAdjacencySid(0x30, 24100, 0, Routing::Isis::SystemId({1, 2, 3, 4, 5, last})));
            }
        }
    }

    static void prefix(Rng& rng, Prefix& p) {
        p.hasValidReachabilityIs(below(rng, 4) != 0);
        p.flagsIs(PrefixFlags(static_cast<unsigned char>(below(rng, 2))));
        if (p.hasValidReachability()) {
            p.metricIs(pick<std::uint32_t>(rng, {10, 20, 30}));
            p.prefixSidIs(pick<PrefixSid>(
                rng, {PrefixSid(), PrefixSid(0x40, 100, 0, true), PrefixSid(0x40, 101, 0, true)}));
            for (const std::uint8_t algo : {128, 129, 130}) {
                if (chance(rng, 2)) {
                    p.prefixMetric()->metricIs(algo, pick<std::uint32_t>(rng, {10, 20}));
                }
            }
        }
        if (chance(rng, 3)) {
            auto b = sidLabelBindingFactory();
            b->flagsIs(SidLabelBinding::SidLabelBindingFlags(pick<std::uint8_t>(rng, {0, 0x10, 0x03})));
            b->rangeIs(pick<std::uint16_t>(rng, {1, 4}));
            b->baseLabelSidIs(pick<LabelSid>(rng, {LabelSid(), LabelSid(0x80, 16000, true)}));
            b->basePrefixSidIs(pick<PrefixSid>(rng, {PrefixSid(), PrefixSid(0x40, 7, 0, true)}));
            b->lspFragmentIdIs(pick<std::uint8_t>(rng, {0, 1}));
            p.sidLabelBindingIs(b);
        }
    }

    std::vector<NeighborKey> neighborKeys_;
    std::vector<PrefixKey> prefixKeys_;
};

// ---- snapshots: every attribute that publishes, one entry per scalar or collection member ----
//
// An entry is named after the attribute, plus "/<key>" for a collection member, exactly as a
// notification names it, so that a notification can refresh exactly its own entry.

using State = std::map<std::string, std::string>;

template <class T>
std::string str(const T& v) {
    std::ostringstream os;
    os << v;
    return os.str();
}

std::string member(const char* attr, const std::string& key) {
    return std::string(attr) + "/" + key;
}

State snap(const Neighbor& n) {
    State s{{"attrsPresent", str(unsigned{n.attrsPresent().value()})},
            {"adminGroup", str(n.adminGroup())},
            {"maxLinkBw", str(n.maxLinkBw())},
            {"maxReserveLinkBw", str(n.maxReserveLinkBw())},
            {"teDefMetric", str(n.teDefMetric())},
            {"igpMetric", str(n.igpMetric())}};
    for (std::uint8_t i = 0; i < 8; ++i) {
        s[member("unreservedBw", Kest::strep(BwIndex(i)))] = str(n.unreservedBw(BwIndex(i)));
    }
    for (auto it = n.extAdminGroup().begin(); it != n.extAdminGroup().end(); ++it) {
        s[member("extAdminGroup", Kest::strep(it->key))] = str(it->value);
    }
    for (auto it = n.srlgValues().begin(); it != n.srlgValues().end(); ++it) {
        s[member("srlgValues", Kest::strep(*it))] = "";
    }
    for (auto it = n.adjSid().begin(); it != n.adjSid().end(); ++it) {
        s[member("adjSid", Kest::strep(*it))] = "";
    }
    for (auto it = n.lanAdjSid().begin(); it != n.lanAdjSid().end(); ++it) {
        s[member("lanAdjSid", Kest::strep(*it))] = "";
    }
    return s;
}

const std::string kBinding = "sidLabelBinding";

State snap(const Prefix& p) {
    State s{{"flags", str(p.flags())},
            {"metric", str(p.metric())},
            {"prefixSid", Kest::strep(p.prefixSid())},
            {"hasValidReachability", str(p.hasValidReachability())}};
    if (const auto& b = p.sidLabelBinding()) {
        // The binding's own attributes, under the prefix (its notifications come from the binding).
        s[kBinding + ".flags"] = str(b->flags());
        s[kBinding + ".range"] = str(b->range());
        s[kBinding + ".baseLabelSid"] = Kest::strep(b->baseLabelSid());
        s[kBinding + ".basePrefixSid"] = Kest::strep(b->basePrefixSid());
        s[kBinding + ".lspFragmentId"] = str(unsigned{b->lspFragmentId()});
    }
    return s;
}

FlexMetrics flexOf(const Prefix& p) {
    FlexMetrics m;
    for (const auto& [algo, metric] : p.prefixMetric()->metric()) {
        m[algo] = metric;
    }
    return m;
}

/// The key of a member notification as text, or none for a scalar one.
std::optional<std::string> keyText(const Poldo::Notification& n) {
    if (!n.hasKey()) {
        return std::nullopt;
    }
    if (const auto* k = n.key<BwIndex>()) {
        return Kest::strep(*k);
    }
    if (const auto* k = n.key<AdminGroupIndex>()) {
        return Kest::strep(*k);
    }
    if (const auto* k = n.key<std::uint32_t>()) {
        return Kest::strep(*k);
    }
    if (const auto* k = n.key<AdjacencySid>()) {
        return Kest::strep(*k);
    }
    if (const auto* k = n.key<LanAdjacencySid>()) {
        return Kest::strep(*k);
    }
    return "?";  // a key of no expected type: refreshes nothing, so its real change shows as stale
}

// ---- the mirror: rebuilds the entry from notifications alone --------------------------------

class Mirror final : public Poldo::Observer {
public:
    explicit Mirror(const Poldo::Ptr<IgpLsp>& entry) : entry_(entry) { watch(entry); }
    ~Mirror() override {
        for (const auto& unwatch : unwatch_) {
            unwatch();
        }
    }
    Mirror(const Mirror&) = delete;
    Mirror& operator=(const Mirror&) = delete;

    const std::map<NeighborKey, State>& neighbors() const { return neighbors_; }
    const std::map<PrefixKey, State>& prefixes() const { return prefixes_; }
    /// Notifications the mirror could not place: an attribute it does not expect, or a key missing.
    unsigned unexpected() const { return unexpected_; }
    /// Notifications from objects that are no longer the entry's (nothing should change them).
    unsigned fromDetached() const { return fromDetached_; }

    void onChange(const Poldo::Notification& n) override {
        if (n.entity<IgpLsp>() != nullptr) {
            onEntry(n);
        } else if (const Neighbor* nbr = n.entity<Neighbor>()) {
            const auto it = neighbors_.find(nbr->key());
            if (it == neighbors_.end() || entry_->neighbor(nbr->key()).get() != nbr) {
                ++fromDetached_;
            } else {
                refresh(it->second, snap(*nbr), n, "");
            }
        } else if (const Prefix* pfx = n.entity<Prefix>()) {
            const auto it = prefixes_.find(pfx->prefixKey());
            if (it == prefixes_.end() || entry_->prefix(pfx->prefixKey()).get() != pfx) {
                ++fromDetached_;
            } else if (n.attr() == Prefix::Attr::sidLabelBinding) {
                // A new binding object: take all of it, and hear its changes from now on.
                std::erase_if(it->second, [](const auto& e) { return e.first.starts_with(kBinding); });
                it->second.merge(snap(*pfx));
                if (const auto& b = pfx->sidLabelBinding()) {
                    watch(b);
                }
            } else {
                refresh(it->second, snap(*pfx), n, "");
            }
        } else if (const SidLabelBinding* b = n.entity<SidLabelBinding>()) {
            const auto owner = std::find_if(prefixes_.begin(), prefixes_.end(), [&](const auto& e) {
                const auto current = entry_->prefix(e.first);
                return current && current->sidLabelBinding().get() == b;
            });
            if (owner == prefixes_.end()) {
                ++fromDetached_;
            } else {
                refresh(owner->second, snap(*entry_->prefix(owner->first)), n, kBinding + ".");
            }
        } else {
            ++unexpected_;
        }
    }

private:
    template <class T>
    void watch(const Poldo::Ptr<T>& entity) {
        entity->publisher().observerIs(*this);
        unwatch_.push_back([this, entity] { entity->publisher().observerDel(*this); });
    }

    void onEntry(const Poldo::Notification& n) {
        if (n.attr() == IgpLsp::Attr::neighbor && n.key<NeighborKey>() != nullptr) {
            const NeighborKey& k = *n.key<NeighborKey>();
            if (const auto nbr = entry_->neighbor(k)) {
                neighbors_[k] = snap(*nbr);
                watch(nbr);
            } else {
                neighbors_.erase(k);
            }
        } else if (n.attr() == IgpLsp::Attr::prefix && n.key<PrefixKey>() != nullptr) {
            const PrefixKey& k = *n.key<PrefixKey>();
            if (const auto pfx = entry_->prefix(k)) {
                prefixes_[k] = snap(*pfx);
                watch(pfx);
                if (pfx->sidLabelBinding()) {
                    watch(pfx->sidLabelBinding());
                }
            } else {
                prefixes_.erase(k);
            }
        } else {
            ++unexpected_;
        }
    }

    /// Copies into `mine` the one entry `n` names (present in `now` or gone from it), nothing else.
    void refresh(State& mine, const State& now, const Poldo::Notification& n, const std::string& prefix) {
        static const std::set<std::string> expected = {
            "attrsPresent",  "adminGroup",  "maxLinkBw",    "maxReserveLinkBw", "unreservedBw",
            "extAdminGroup", "teDefMetric", "igpMetric",    "srlgValues",       "adjSid",
            "lanAdjSid",     "flags",       "metric",       "prefixSid",        "hasValidReachability",
            "prefixMetric",  "range",       "baseLabelSid", "basePrefixSid",    "lspFragmentId"};
        const std::string attr(n.attrName());
        if (expected.count(attr) == 0) {
            ++unexpected_;
            return;
        }
        const std::optional<std::string> key = keyText(n);
        const std::string name = prefix + (key ? member(attr.c_str(), *key) : attr);
        if (const auto it = now.find(name); it != now.end()) {
            mine[name] = it->second;
        } else {
            mine.erase(name);
        }
    }

    Poldo::Ptr<IgpLsp> entry_;
    std::map<NeighborKey, State> neighbors_;
    std::map<PrefixKey, State> prefixes_;
    // One per registration; each holds its entity, so that every publisher outlives the mirror.
    std::vector<std::function<void()>> unwatch_;
    unsigned unexpected_ = 0;
    unsigned fromDetached_ = 0;
};

// ---- the checks -----------------------------------------------------------------------------

template <class Map>
auto entryKeys(const Map& m) {
    std::set<std::remove_cvref_t<decltype(m.begin()->key)>> keys;
    for (auto it = m.begin(); it != m.end(); ++it) {
        keys.insert(it->key);
    }
    return keys;
}
template <class Map>
auto mapKeys(const Map& m) {
    std::set<typename Map::key_type> keys;
    for (const auto& [k, v] : m) {
        keys.insert(k);
    }
    return keys;
}

// Property 1. `expectedFlex` models the one deliberate exception: a reachable prefix merged
// into one already held keeps the per-algorithm metrics that the new prefix lacks; every other
// merge (a new member, an unreachable prefix) leaves exactly the parsed metrics.
void checkAgainstFreshMerge(const IgpLsp& entry, const IgpLsp& fresh,
                            const std::map<PrefixKey, FlexMetrics>& expectedFlex) {
    ASSERT_EQ(entryKeys(entry.neighbor()), entryKeys(fresh.neighbor()));
    ASSERT_EQ(entryKeys(entry.prefix()), entryKeys(fresh.prefix()));
    for (auto it = fresh.neighbor().begin(); it != fresh.neighbor().end(); ++it) {
        EXPECT_EQ(snap(*entry.neighbor(it->key)), snap(*it->value)) << "neighbor " << it->key.toStrep();
    }
    for (auto it = fresh.prefix().begin(); it != fresh.prefix().end(); ++it) {
        const Prefix& mine = *entry.prefix(it->key);
        EXPECT_EQ(snap(mine), snap(*it->value)) << "prefix " << it->key;
        EXPECT_EQ(flexOf(mine), expectedFlex.at(it->key)) << "prefix " << it->key;
    }
}

// Property 2.
void checkMirror(const IgpLsp& entry, const Mirror& mirror) {
    EXPECT_EQ(mirror.unexpected(), 0u);
    EXPECT_EQ(mirror.fromDetached(), 0u);
    ASSERT_EQ(entryKeys(entry.neighbor()), mapKeys(mirror.neighbors()));
    ASSERT_EQ(entryKeys(entry.prefix()), mapKeys(mirror.prefixes()));
    for (const auto& [k, s] : mirror.neighbors()) {
        EXPECT_EQ(s, snap(*entry.neighbor(k))) << "unpublished change of neighbor " << k.toStrep();
    }
    for (const auto& [k, s] : mirror.prefixes()) {
        EXPECT_EQ(s, snap(*entry.prefix(k))) << "unpublished change of prefix " << k;
    }
}

enum class Property { historyDoesNotMatter, everyChangeIsPublished };

void runSequences(Property property, std::uint32_t seed, int iterations) {
    SCOPED_TRACE("generator seed " + std::to_string(seed) + ", hash seed " +
                 std::to_string(Kest::HashHelper::hashSeed32()) + " (IGPCOMMON_HASH_SEED reproduces it)");
    const Generator gen(seed);
    Rng rng(seed ^ 0x5bd1e995u);
    for (int iteration = 0; iteration < iterations; ++iteration) {
        auto entry = igpLspFactory(nodeId(1));
        std::optional<Mirror> mirror;
        if (property == Property::everyChangeIsPublished) {
            mirror.emplace(entry);
        }
        std::map<PrefixKey, FlexMetrics> expectedFlex;
        const int merges = 1 + static_cast<int>(rng() % 5);
        for (int m = 0; m < merges; ++m) {
            SCOPED_TRACE("iteration " + std::to_string(iteration) + ", merge " + std::to_string(m));
            const Rng before = rng;
            auto parsed = gen.lsp(rng);

            std::map<PrefixKey, FlexMetrics> nextFlex;
            for (auto it = parsed->prefix().begin(); it != parsed->prefix().end(); ++it) {
                const Prefix& p = **it;
                const auto held = expectedFlex.find(p.prefixKey());
                FlexMetrics f =
                    held != expectedFlex.end() && p.hasValidReachability() ? held->second : FlexMetrics{};
                if (held == expectedFlex.end() || p.hasValidReachability()) {
                    for (const auto& [algo, metric] : flexOf(p)) {
                        f[algo] = metric;
                    }
                }
                nextFlex[p.prefixKey()] = f;
            }
            expectedFlex = nextFlex;

            entry->updateNeighbors(parsed);
            entry->updatePrefixes(parsed);
            parsed.reset();

            if (property == Property::historyDoesNotMatter) {
                Rng same = before;
                auto again = gen.lsp(same);
                auto fresh = igpLspFactory(nodeId(1));
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
