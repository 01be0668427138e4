#include "IsisRoutes/Routes.h"

#include <algorithm>
#include <limits>
#include <queue>
#include <random>
#include <set>
#include <tuple>
#include <unordered_map>
#include <utility>

#include "IgpCommon/FlagSets.h"
#include "IgpCommon/Neighbor.h"
#include "IgpCommon/NodeAttrCollections.h"
#include "IgpCommon/Prefix.h"
#include "IgpCommon/SrCapabilities.h"

namespace Routing::IsisRoutes {

namespace detail {

constexpr std::uint64_t unreached = std::numeric_limits<std::uint64_t>::max();
constexpr std::uint32_t none = std::numeric_limits<std::uint32_t>::max();
// RFC 5305 3: a link at the largest wide metric takes no part in the shortest paths.
constexpr std::uint32_t maxLinkMetric = 0xFFFFFF;
// RFC 5305 4: a prefix above this metric is not installed.
constexpr std::uint32_t maxPathMetric = 0xFE000000;
// A first hop through one of the root's LANs, resolved when the LAN's
// pseudonode is expanded: the bit marks a pseudonode index, not an adjacency.
constexpr std::uint32_t viaLan = 0x80000000;

// Prefix SID flags (RFC 8667 2.1.1).
constexpr std::uint8_t sidNoPhp = 0x20;
constexpr std::uint8_t sidExplicitNull = 0x10;
// RFC 3032 2.1: the explicit null labels.
constexpr std::uint32_t ipv4ExplicitNull = 0;
constexpr std::uint32_t ipv6ExplicitNull = 2;

struct PrefixHash {
    std::uint32_t seed;
    std::size_t operator()(const Lumo::IpGenPrefix& p) const noexcept { return p.hash(seed); }
};

struct Edge {
    std::uint32_t to;
    std::uint32_t metric;
};

// A first hop of the root: a neighbor router, directly or across one of the root's LANs.
struct Adjacency {
    std::uint32_t router;
    std::uint32_t lan;  // pseudonode vertex, or `none`
};

bool isAbsoluteLabel(const IC::PrefixSid& sid) {
    return (sid.flags() & IC::PrefixSid::labelFlagsMask) == IC::PrefixSid::labelFlagsMask;
}

// The label of `index` in a node's SRGB: its ranges taken one after the other (RFC 8667 3.1).
std::optional<std::uint32_t> srgbLabel(const IC::Node* node, std::uint32_t index) {
    if (node == nullptr || !node->srCapabilities()) {
        return std::nullopt;
    }
    const auto& caps = *node->srCapabilities();
    const unsigned count = std::min<unsigned>(caps.numRanges(), 8);
    for (unsigned i = 0; i < count; ++i) {
        const auto& r = caps.sidLabelRange(IC::SrSidRangeIndex(i));
        if (index < r.range()) {
            return r.startingSid().value() + index;
        }
        index -= r.range();
    }
    return std::nullopt;
}

Lumo::IpGenPrefix defaultPrefix(Family f) {
    return f == Family::ipv4 ? Lumo::IpGenPrefix(Lumo::IpAddr(0), 0) : Lumo::IpGenPrefix(Lumo::Ip6Addr(), 0);
}

}  // namespace detail

using namespace detail;

IC::IgpMultiTopologyId topologyOf(const IC::IgpLspDatabase& db, const IC::IgpNodeId& root, Family family) {
    if (family == Family::ipv6) {
        const auto entry = db.lsp(root);
        if (entry && entry->node() && entry->node()->mtIdCol() &&
            entry->node()->mtIdCol()->mtIdValueHas(IC::IgpMultiTopologyId(2))) {
            return IC::IgpMultiTopologyId(2);
        }
    }
    return IC::IgpMultiTopologyId(0);
}

namespace detail {

// One advertisement of a prefix by a reached vertex.
struct Candidate {
    std::uint32_t vertex;
    const IC::Prefix* prefix;  // null for the derived default route
    unsigned rank;             // lower wins before the metric is compared
    std::uint64_t metric;
};

}  // namespace detail

struct RouteTable::State {
    State(std::uint32_t seed, Family f, IC::IgpLevel l, Options o)
        : family(f), level(l), options(o), advertisers(16, PrefixHash{seed}) {}

    const Family family;
    const IC::IgpLevel level;
    const Options options;
    IC::IgpMultiTopologyId mt;
    // The graph: one vertex per entry with a node, links after the two-way check.
    std::vector<Poldo::Ptr<IC::IgpLsp>> lsps;
    std::unordered_map<std::uint64_t, std::uint32_t> index;
    std::vector<std::uint32_t> edgeStart;
    std::vector<Edge> edges;
    std::uint32_t root = none;
    // The tree.
    std::vector<std::uint64_t> dist;
    std::vector<std::vector<std::uint32_t>> firstHops;  // adjacency numbers, ascending
    std::vector<std::vector<std::uint32_t>> parents;
    std::vector<Adjacency> adjacencies;
    std::vector<std::uint32_t> reached;  // in the order they left the tentative list
    // Reached vertices advertising each prefix of the family (any topology; filtered on use).
    std::unordered_map<Lumo::IpGenPrefix, std::vector<std::uint32_t>, PrefixHash> advertisers;
    // What each vertex's routes were computed from: its distance and first hops.
    struct Reach {
        std::uint64_t dist;
        std::vector<std::tuple<std::uint32_t, std::uint32_t, std::optional<Lumo::IpAddr>>> hops;
        friend bool operator==(const Reach&, const Reach&) = default;
    };
    std::vector<Reach> reach;
    // Pending work: everything (nodes or entries changed), the paths (links
    // changed), or single prefixes.
    bool topologyDirty = true;
    bool linksDirty = false;
    std::set<Lumo::IpGenPrefix> dirtyPrefixes;

    const IC::Node* node(std::uint32_t v) const { return lsps[v]->nodeRawPtr(); }
    bool isPseudonode(std::uint32_t v) const { return lsps[v]->nodeId().isPnodeId(); }
    std::uint32_t find(const IC::IgpNodeId& id) const {
        const auto it = index.find(id.toU64());
        return it == index.end() ? none : it->second;
    }
    // Topology of a vertex's links: pseudonodes list their members in the
    // standard topology for every topology (RFC 5120 8.2).
    IC::IgpMultiTopologyId linkTopology(std::uint32_t v) const {
        return isPseudonode(v) ? IC::IgpMultiTopologyId(0) : mt;
    }

    void build(const IC::IgpLspDatabase& db, const IC::IgpNodeId& rootId);
    void run();
    std::uint32_t adjacency(std::uint32_t router, std::uint32_t lan);
    std::optional<Lumo::IpAddr> address(const Adjacency& a) const;

    bool wants(const Lumo::IpGenPrefix& p) const { return p.isIpv4() == (family == Family::ipv4); }
    IC::IgpMultiTopologyId prefixTopology() const {
        return family == Family::ipv4 ? IC::IgpMultiTopologyId(0) : mt;
    }
    // ISO 10589 7.2.9.2: a level-1 router that is not attached itself sends
    // what it cannot route to the nearest attached level-1-2 router.
    bool derivesDefault() const {
        return level == IC::igpLevelIsisLevel1 && root != none && !node(root)->flags().attachedBit();
    }
    void rebuildRoutes(RouteMap& routes);
    Reach reachOf(std::uint32_t v) const;
    // Re-runs the paths after links changed; false when the entries changed too.
    bool rerunPaths(const IC::IgpLspDatabase& db, const IC::IgpNodeId& rootId);
    std::optional<Route> routeOf(const Lumo::IpGenPrefix& p, const std::vector<std::uint32_t>* adv);
    void labels(Route& r, const std::vector<Candidate>& best) const;
    std::vector<Vertex> vertices() const;
};

void RouteTable::State::build(const IC::IgpLspDatabase& db, const IC::IgpNodeId& rootId) {
    lsps.clear();
    index.clear();
    for (const auto& entry : db.lsp()) {
        if (entry->node()) {
            index.emplace(entry->nodeId().toU64(), static_cast<std::uint32_t>(lsps.size()));
            lsps.push_back(entry);
        }
    }
    root = find(rootId);
    const auto n = static_cast<std::uint32_t>(lsps.size());
    // Every advertised link in its topology, the best metric per neighbor.
    std::vector<std::uint32_t> rawStart(n + 1, 0);
    std::vector<Edge> raw;
    for (std::uint32_t u = 0; u < n; ++u) {
        rawStart[u] = static_cast<std::uint32_t>(raw.size());
        const auto topo = linkTopology(u);
        for (const auto& m : lsps[u]->neighbor()) {
            if (m.key.mtId() != topo) {
                continue;
            }
            const std::uint32_t v = find(m.key.nodeId());
            if (v != none && v != u) {
                raw.push_back({v, m.value->igpMetric()});
            }
        }
        auto first = raw.begin() + rawStart[u];
        std::sort(first, raw.end(), [](const Edge& a, const Edge& b) {
            return a.to != b.to ? a.to < b.to : a.metric < b.metric;
        });
        raw.erase(std::unique(first, raw.end(), [](const Edge& a, const Edge& b) { return a.to == b.to; }),
                  raw.end());
    }
    rawStart[n] = static_cast<std::uint32_t>(raw.size());
    // ISO 10589 7.2.8.2 / RFC 5305 3: a link counts when both ends list each other.
    const auto lists = [&](std::uint32_t from, std::uint32_t to) {
        const auto first = raw.begin() + rawStart[from];
        const auto last = raw.begin() + rawStart[from + 1];
        const auto it =
            std::lower_bound(first, last, to, [](const Edge& e, std::uint32_t t) { return e.to < t; });
        return it != last && it->to == to;
    };
    edgeStart.assign(n + 1, 0);
    edges.clear();
    for (std::uint32_t u = 0; u < n; ++u) {
        edgeStart[u] = static_cast<std::uint32_t>(edges.size());
        for (std::uint32_t i = rawStart[u]; i < rawStart[u + 1]; ++i) {
            if (raw[i].metric < maxLinkMetric && lists(raw[i].to, u)) {
                edges.push_back(raw[i]);
            }
        }
    }
    edgeStart[n] = static_cast<std::uint32_t>(edges.size());
}

std::uint32_t RouteTable::State::adjacency(std::uint32_t router, std::uint32_t lan) {
    for (std::uint32_t i = 0; i < adjacencies.size(); ++i) {
        if (adjacencies[i].router == router && adjacencies[i].lan == lan) {
            return i;
        }
    }
    adjacencies.push_back({router, lan});
    return static_cast<std::uint32_t>(adjacencies.size() - 1);
}

// The neighbor's address on the link: the root's link names it (RFC 5305 3.3),
// or else the neighbor's own link towards the root or the LAN carries it as
// its interface address (RFC 5305 3.2).
std::optional<Lumo::IpAddr> RouteTable::State::address(const Adjacency& a) const {
    if (a.lan == none) {
        for (const auto& m : lsps[root]->neighbor()) {
            if (m.key.nodeId() == lsps[a.router]->nodeId() && !m.key.remoteIpv4Addr().empty()) {
                return *m.key.remoteIpv4Addr().begin();
            }
        }
    }
    const IC::IgpNodeId& towards = lsps[a.lan == none ? root : a.lan]->nodeId();
    for (const auto& m : lsps[a.router]->neighbor()) {
        if (m.key.nodeId() == towards && !m.key.localIpv4Addr().empty()) {
            return *m.key.localIpv4Addr().begin();
        }
    }
    return std::nullopt;
}

// Dijkstra over the graph (ISO 10589 Annex C.2): equal-cost paths merge their
// first hops; an overloaded router is reached but not passed through
// (ISO 10589 7.2.8.1); pseudonodes leave the tentative list before routers at
// the same distance, so the members of a LAN see every path to it.
void RouteTable::State::run() {
    const auto n = static_cast<std::uint32_t>(lsps.size());
    dist.assign(n, unreached);
    firstHops.assign(n, {});
    parents.assign(n, {});
    adjacencies.clear();
    reached.clear();
    if (root == none) {
        return;
    }
    using Item = std::pair<std::uint64_t, std::uint64_t>;  // distance, (router bit << 32) | vertex
    std::priority_queue<Item, std::vector<Item>, std::greater<>> tent;
    std::vector<bool> done(n, false);
    const auto keyOf = [&](std::uint32_t v) { return (std::uint64_t(isPseudonode(v) ? 0 : 1) << 32) | v; };
    dist[root] = 0;
    tent.push({0, keyOf(root)});
    std::vector<std::uint32_t> hops;
    while (!tent.empty()) {
        const auto [d, key] = tent.top();
        tent.pop();
        const auto u = static_cast<std::uint32_t>(key & 0xFFFFFFFF);
        if (done[u] || d != dist[u]) {
            continue;
        }
        done[u] = true;
        reached.push_back(u);
        if (u != root && !isPseudonode(u) && node(u)->flags().overloadBit()) {
            continue;
        }
        for (std::uint32_t i = edgeStart[u]; i < edgeStart[u + 1]; ++i) {
            const Edge& e = edges[i];
            const std::uint32_t v = e.to;
            if (done[v]) {
                continue;
            }
            hops.clear();
            if (u == root) {
                hops.push_back(isPseudonode(v) ? (viaLan | v) : adjacency(v, none));
            } else {
                for (const std::uint32_t h : firstHops[u]) {
                    hops.push_back((h & viaLan) != 0 && !isPseudonode(v) ? adjacency(v, h & ~viaLan) : h);
                }
            }
            // Still ascending: a LAN's first hops, resolved here, are the newest adjacencies.
            const std::uint64_t nd = d + e.metric;
            if (nd < dist[v]) {
                dist[v] = nd;
                firstHops[v] = hops;
                parents[v] = {u};
                tent.push({nd, keyOf(v)});
            } else if (nd == dist[v]) {
                std::vector<std::uint32_t> merged;
                std::set_union(firstHops[v].begin(), firstHops[v].end(), hops.begin(), hops.end(),
                               std::back_inserter(merged));
                firstHops[v] = std::move(merged);
                parents[v].push_back(u);
            }
        }
    }
}

RouteTable::RouteTable(Poldo::Ptr<IC::IgpLspDatabase> db, const IC::IgpNodeId& root, Family family,
                       Options options)
    : db_(std::move(db)),
      root_(root),
      family_(family),
      options_(options),
      state_(std::make_unique<State>(std::random_device{}(), family, db_->level(), options)) {
    watchAll();
    update();
}

RouteTable::~RouteTable() {
    db_->publisher().observerDel(*this);
    for (const auto& entry : db_->lsp()) {
        unwatchEntry(*entry);
    }
}

void RouteTable::watchAll() {
    db_->publisher().observerIs(*this);
    for (const auto& entry : db_->lsp()) {
        watchEntry(*entry);
    }
}

namespace {

// Every publisher of an entry whose changes can move a route: the entry's,
// its node's and each member's.
template <class Fn>
void forEachPublisher(const IC::IgpLsp& entry, Fn&& fn) {
    fn(entry.publisher());
    if (entry.node()) {
        fn(entry.node()->publisher());
    }
    for (const auto& m : entry.neighbor()) {
        fn(m.value->publisher());
    }
    for (const auto& m : entry.prefix()) {
        fn(m.value->publisher());
    }
}

}  // namespace

void RouteTable::watchEntry(const IC::IgpLsp& entry) {
    forEachPublisher(entry, [&](auto& p) { p.observerIs(*this); });
}

void RouteTable::unwatchEntry(const IC::IgpLsp& entry) noexcept {
    forEachPublisher(entry, [&](auto& p) { p.observerDel(*this); });
}

void RouteTable::onChange(const Poldo::Notification& n) {
    State& s = *state_;
    if (n.entity<IC::IgpLspDatabase>() != nullptr) {
        if (const auto* old = n.oldValue<Poldo::Ptr<IC::IgpLsp>>(); old != nullptr && *old) {
            unwatchEntry(**old);
        }
        if (const auto* id = n.key<IC::IgpNodeId>()) {
            if (const auto entry = db_->lsp(*id)) {
                watchEntry(*entry);
            }
        }
        s.topologyDirty = true;
    } else if (const auto* entry = n.entity<IC::IgpLsp>()) {
        switch (n.attr()) {
            case IC::IgpLsp::Attr::node:
                if (const auto* old = n.oldValue<Poldo::Ptr<IC::Node>>(); old != nullptr && *old) {
                    (*old)->publisher().observerDel(*this);
                }
                if (entry->node()) {
                    entry->node()->publisher().observerIs(*this);
                }
                s.topologyDirty = true;
                break;
            case IC::IgpLsp::Attr::neighbor:
                if (const auto* old = n.oldValue<Poldo::Ptr<IC::Neighbor>>(); old != nullptr && *old) {
                    (*old)->publisher().observerDel(*this);
                }
                if (const auto* key = n.key<IC::NeighborKey>()) {
                    if (const auto nbr = entry->neighbor(*key)) {
                        nbr->publisher().observerIs(*this);
                    }
                }
                s.linksDirty = true;
                break;
            case IC::IgpLsp::Attr::prefix:
                if (const auto* old = n.oldValue<Poldo::Ptr<IC::Prefix>>(); old != nullptr && *old) {
                    (*old)->publisher().observerDel(*this);
                }
                if (const auto* key = n.key<IC::PrefixKey>()) {
                    if (const auto pfx = entry->prefix(*key)) {
                        pfx->publisher().observerIs(*this);
                    }
                    const Lumo::IpGenPrefix& p = key->prefix();
                    if (s.wants(p) && !s.topologyDirty) {
                        const std::uint32_t v = s.find(entry->nodeId());
                        if (v != none) {
                            auto& list = s.advertisers[p];
                            if (std::find(list.begin(), list.end(), v) == list.end()) {
                                list.push_back(v);
                            }
                        }
                        s.dirtyPrefixes.insert(p);
                    }
                }
                break;
            default:
                break;
        }
    } else if (n.entity<IC::Node>() != nullptr) {
        // Flags, topologies and the SRGB all bear on paths or labels; the host name on nothing.
        if (n.attr() != IC::Node::Attr::hostName) {
            s.topologyDirty = true;
        }
    } else if (n.entity<IC::Neighbor>() != nullptr) {
        if (n.attr() == IC::Neighbor::Attr::igpMetric) {
            s.linksDirty = true;
        }
    } else if (const auto* pfx = n.entity<IC::Prefix>()) {
        if (n.attr() != IC::Prefix::Attr::sidLabelBinding && s.wants(pfx->prefixKey().prefix())) {
            s.dirtyPrefixes.insert(pfx->prefixKey().prefix());
        }
    }
}

void RouteTable::State::rebuildRoutes(RouteMap& routes) {
    routes.clear();
    advertisers.clear();
    // Every vertex's prefixes, reached or not: a change of links may reach it later.
    for (std::uint32_t v = 0; v < lsps.size(); ++v) {
        if (isPseudonode(v)) {
            continue;
        }
        for (const auto& m : lsps[v]->prefix()) {
            if (wants(m.key.prefix())) {
                auto& list = advertisers[m.key.prefix()];
                if (list.empty() || list.back() != v) {
                    list.push_back(v);
                }
            }
        }
    }
    if (derivesDefault()) {
        advertisers.try_emplace(defaultPrefix(family));
    }
    for (const auto& [p, list] : advertisers) {
        if (auto r = routeOf(p, &list)) {
            routes.emplace(p, std::move(*r));
        }
    }
}

std::optional<Route> RouteTable::State::routeOf(const Lumo::IpGenPrefix& p,
                                                const std::vector<std::uint32_t>* adv) {
    std::vector<Candidate> cands;
    if (adv != nullptr) {
        const IC::PrefixKey key(p, prefixTopology());
        for (const std::uint32_t v : *adv) {
            const auto pfx = lsps[v]->prefix(key);
            if (dist[v] == unreached || !pfx || !pfx->hasValidReachability() ||
                pfx->metric() > maxPathMetric) {
                continue;
            }
            if (v == root) {
                const bool yields = family == Family::ipv4 && options.remoteOverOwnIpv4;
                cands.push_back({v, pfx.get(), yields ? 9u : 0u, 0});
            } else {
                // RFC 5302 3.3: in level 1, a route leaked down from level 2
                // (up/down bit set) loses to any route of the area.
                const unsigned rank =
                    1 + (level == IC::igpLevelIsisLevel1 && pfx->flags().isisDown() ? 1 : 0);
                cands.push_back({v, pfx.get(), rank, dist[v] + pfx->metric()});
            }
        }
    }
    if (p.length() == 0 && p == defaultPrefix(family) && derivesDefault()) {
        for (const std::uint32_t v : reached) {
            if (v != root && !isPseudonode(v) && node(v)->flags().attachedBit() &&
                !node(v)->flags().overloadBit()) {
                cands.push_back({v, nullptr, 1, dist[v]});
            }
        }
    }
    if (cands.empty()) {
        return std::nullopt;
    }
    const auto better = [](const Candidate& a, const Candidate& b) {
        return a.rank != b.rank ? a.rank < b.rank : a.metric < b.metric;
    };
    const Candidate top = *std::min_element(cands.begin(), cands.end(), better);
    std::vector<Candidate> best;
    for (const Candidate& c : cands) {
        if (c.rank == top.rank && c.metric == top.metric) {
            best.push_back(c);
        }
    }
    Route r;
    r.prefix = p;
    r.metric = top.metric;
    r.local = top.vertex == root;
    std::vector<std::uint32_t> hops;
    for (const Candidate& c : best) {
        if (r.local && c.vertex != root) {
            continue;
        }
        r.originators.push_back(lsps[c.vertex]->nodeId());
        r.isDefault = r.isDefault || c.prefix == nullptr;
        if (c.vertex != root) {
            hops.insert(hops.end(), firstHops[c.vertex].begin(), firstHops[c.vertex].end());
        }
    }
    std::sort(r.originators.begin(), r.originators.end());
    r.originators.erase(std::unique(r.originators.begin(), r.originators.end()), r.originators.end());
    std::sort(hops.begin(), hops.end());
    hops.erase(std::unique(hops.begin(), hops.end()), hops.end());
    for (const std::uint32_t h : hops) {
        if ((h & viaLan) != 0) {
            continue;  // a prefix of a pseudonode: never advertised
        }
        const Adjacency& a = adjacencies[h];
        r.nextHops.push_back(
            {lsps[a.router]->nodeId(), family == Family::ipv4 ? address(a) : std::nullopt, LabelOp::none, 0});
    }
    std::sort(r.nextHops.begin(), r.nextHops.end(), [](const NextHop& a, const NextHop& b) {
        return a.systemId != b.systemId ? a.systemId < b.systemId : a.address < b.address;
    });
    r.nextHops.erase(std::unique(r.nextHops.begin(), r.nextHops.end()), r.nextHops.end());
    labels(r, best);
    return r;
}

// RFC 8667 2.1: the incoming label is the root's SRGB plus the index (or the
// absolute label); a next hop that advertises the prefix itself is the last
// hop, so the root pops the label (implicit null), keeps it (no-PHP flag) or
// swaps it to explicit null (E flag); any other next hop receives its own
// SRGB plus the index. An absolute label means something to its originator
// only, so only the originator's neighbors can use it.
void RouteTable::State::labels(Route& r, const std::vector<Candidate>& best) const {
    const IC::PrefixSid* sid = nullptr;
    IC::IgpNodeId sidFrom;
    for (const Candidate& c : best) {
        if (c.prefix != nullptr && c.prefix->prefixSid().isValid() &&
            c.prefix->prefixSid().algorithm() == 0 &&
            (sid == nullptr || lsps[c.vertex]->nodeId() < sidFrom)) {
            sid = &c.prefix->prefixSid();
            sidFrom = lsps[c.vertex]->nodeId();
        }
    }
    if (sid == nullptr) {
        return;
    }
    const bool absolute = isAbsoluteLabel(*sid);
    const auto labelAt = [&](const IC::Node* n) {
        return absolute ? std::optional<std::uint32_t>(sid->value()) : srgbLabel(n, sid->value());
    };
    if (r.local) {
        // The root receives its own label only when its neighbors keep it.
        if ((sid->flags() & sidNoPhp) != 0 && (sid->flags() & sidExplicitNull) == 0) {
            r.inLabel = labelAt(node(root));
            if (r.inLabel && !absolute) {
                r.sidIndex = sid->value();
            }
        }
        return;
    }
    r.inLabel = labelAt(node(root));
    if (!r.inLabel) {
        return;
    }
    bool used = false;
    for (NextHop& nh : r.nextHops) {
        const Candidate* last = nullptr;
        for (const Candidate& c : best) {
            if (c.prefix != nullptr && lsps[c.vertex]->nodeId() == nh.systemId) {
                last = &c;
            }
        }
        const std::uint32_t v = find(nh.systemId);
        if (last != nullptr) {
            const IC::PrefixSid& own = last->prefix->prefixSid().isValid() ? last->prefix->prefixSid() : *sid;
            if ((own.flags() & sidExplicitNull) != 0) {
                nh.op = LabelOp::swap;
                nh.outLabel = family == Family::ipv4 ? ipv4ExplicitNull : ipv6ExplicitNull;
            } else if ((own.flags() & sidNoPhp) != 0) {
                if (const auto l = labelAt(node(v))) {
                    nh.op = LabelOp::swap;
                    nh.outLabel = *l;
                }
            } else {
                nh.op = LabelOp::pop;
            }
        } else if (!absolute) {
            if (const auto l = srgbLabel(node(v), sid->value())) {
                nh.op = LabelOp::swap;
                nh.outLabel = *l;
            }
        }
        used = used || nh.op != LabelOp::none;
    }
    if (absolute && !used) {
        r.inLabel.reset();
        return;
    }
    if (!absolute) {
        r.sidIndex = sid->value();
    }
}

std::vector<Vertex> RouteTable::State::vertices() const {
    std::vector<Vertex> out;
    for (const std::uint32_t v : reached) {
        Vertex x;
        x.id = lsps[v]->nodeId();
        x.distance = dist[v];
        for (const std::uint32_t h : firstHops[v]) {
            if ((h & viaLan) == 0) {
                x.nextHops.push_back(lsps[adjacencies[h].router]->nodeId());
            }
        }
        std::sort(x.nextHops.begin(), x.nextHops.end());
        x.nextHops.erase(std::unique(x.nextHops.begin(), x.nextHops.end()), x.nextHops.end());
        for (const std::uint32_t p : parents[v]) {
            x.parents.push_back(lsps[p]->nodeId());
        }
        std::sort(x.parents.begin(), x.parents.end());
        x.parents.erase(std::unique(x.parents.begin(), x.parents.end()), x.parents.end());
        if (!isPseudonode(v)) {
            x.overloaded = node(v)->flags().overloadBit();
            x.attached = node(v)->flags().attachedBit();
        }
        out.push_back(std::move(x));
    }
    std::stable_sort(out.begin(), out.end(), [](const Vertex& a, const Vertex& b) {
        return a.distance != b.distance ? a.distance < b.distance : a.id < b.id;
    });
    return out;
}

RouteTable::State::Reach RouteTable::State::reachOf(std::uint32_t v) const {
    Reach r{dist[v], {}};
    for (const std::uint32_t h : firstHops[v]) {
        if ((h & viaLan) == 0) {
            const Adjacency& a = adjacencies[h];
            r.hops.emplace_back(a.router, a.lan, family == Family::ipv4 ? address(a) : std::nullopt);
        }
    }
    std::sort(r.hops.begin(), r.hops.end());
    return r;
}

bool RouteTable::State::rerunPaths(const IC::IgpLspDatabase& db, const IC::IgpNodeId& rootId) {
    const std::vector<Poldo::Ptr<IC::IgpLsp>> before = lsps;
    build(db, rootId);
    if (lsps != before) {
        return false;
    }
    run();
    // Only the prefixes of vertices whose distance or first hops moved can
    // route differently; the derived default route follows the attached ones.
    bool attachedMoved = false;
    for (std::uint32_t v = 0; v < lsps.size(); ++v) {
        Reach now = reachOf(v);
        if (now == reach[v]) {
            continue;
        }
        reach[v] = std::move(now);
        if (isPseudonode(v)) {
            continue;
        }
        attachedMoved = attachedMoved || node(v)->flags().attachedBit();
        for (const auto& m : lsps[v]->prefix()) {
            if (wants(m.key.prefix())) {
                dirtyPrefixes.insert(m.key.prefix());
            }
        }
    }
    if (attachedMoved && derivesDefault()) {
        dirtyPrefixes.insert(defaultPrefix(family));
    }
    return true;
}

void RouteTable::update() {
    State& s = *state_;
    if (s.linksDirty && !s.topologyDirty) {
        s.linksDirty = false;
        ++counters_.spfRuns;
        s.topologyDirty = !s.rerunPaths(*db_, root_);
        if (s.topologyDirty) {
            --counters_.spfRuns;  // counted once, below
        }
    }
    if (s.topologyDirty) {
        s.mt = topologyOf(*db_, root_, family_);
        s.build(*db_, root_);
        s.run();
        s.rebuildRoutes(routes_);
        s.reach.resize(s.lsps.size());
        for (std::uint32_t v = 0; v < s.lsps.size(); ++v) {
            s.reach[v] = s.reachOf(v);
        }
        s.topologyDirty = false;
        s.linksDirty = false;
        s.dirtyPrefixes.clear();
        ++counters_.spfRuns;
        ++counters_.fullRuns;
        return;
    }
    for (const Lumo::IpGenPrefix& p : s.dirtyPrefixes) {
        const auto it = s.advertisers.find(p);
        auto r = s.routeOf(p, it == s.advertisers.end() ? nullptr : &it->second);
        if (r) {
            routes_.insert_or_assign(p, std::move(*r));
        } else {
            routes_.erase(p);
        }
        ++counters_.prefixUpdates;
    }
    s.dirtyPrefixes.clear();
}

void RouteTable::recomputeAll() {
    state_->topologyDirty = true;
    update();
}

const RouteTable::RouteMap& RouteTable::routes() {
    update();
    return routes_;
}

const Route* RouteTable::route(const Lumo::IpGenPrefix& prefix) {
    update();
    const auto it = routes_.find(prefix);
    return it == routes_.end() ? nullptr : &it->second;
}

std::vector<Vertex> RouteTable::vertices() {
    update();
    return state_->vertices();
}

IC::IgpMultiTopologyId RouteTable::topology() {
    update();
    return state_->mt;
}

}  // namespace Routing::IsisRoutes
