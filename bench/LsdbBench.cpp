// Benchmarks of the database at IGP scale: ingest, first build, refresh,
// churn, look-ups and dump, with the baselines they are judged against,
// measured in the same run. See bench/README section of the top-level README
// for how to run them and read the counters; bench/report.py turns a run into
// the ratios against the targets.
//
// Every scenario is registered per size as "<Scenario>/<routers>" (1k, 10k,
// 50k), sizes in ascending order, so that one size's world is built once;
// --benchmark_filter=/1k runs one size.
//
// `--memory=<routers>` (handled before Google Benchmark sees the arguments)
// measures memory in a fresh process instead: bytes per node, neighbor and
// prefix from the allocator's accounting, and the peak RSS of the build.

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <absl/container/flat_hash_map.h>
#include <absl/container/flat_hash_set.h>

#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#else
// Without valgrind's headers --count-pass runs, but counts nothing.
#define CALLGRIND_TOGGLE_COLLECT
#define CALLGRIND_START_INSTRUMENTATION
#define CALLGRIND_STOP_INSTRUMENTATION
#endif

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fstream>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "AllocCounter.h"
#include "IsisDecoder/Decoder.h"
#include "IsisDecoder/LspKeeper.h"
#include "gen/Encoder.h"
#include "gen/Generator.h"

namespace {

using namespace IgpBench;
using Content = Poldo::Ptr<IC::IsisLspParsedContent>;

constexpr std::uint64_t topologySeed = 20240917;
constexpr std::uint64_t churnSeed = 7;
constexpr std::uint32_t churnPercent = 1;

// ---- accounting ------------------------------------------------------------------

/// Allocations: the heap (operator new, which Neighbor and parsed contents
/// use too) plus the slab entities, counted by their trackers; and, apart,
/// the SID/label bindings, which every merge of a binding replaces on purpose.
struct AllocSnapshot {
    std::uint64_t heap = 0;
    std::uint64_t slab = 0;
    std::uint64_t bindings = 0;
    std::uint64_t model = 0;  // entities of every tracked type, slab and heap alike

    // Walking the trackers allocates a snapshot vector: the heap count is
    // read after the walk when starting and before it when finishing, so
    // that neither walk is counted.
    static AllocSnapshot start() {
        AllocSnapshot s = trackers();
        s.heap = AllocCounter::allocations();
        return s;
    }
    static AllocSnapshot finish() {
        const std::uint64_t heap = AllocCounter::allocations();
        AllocSnapshot s = trackers();
        s.heap = heap;
        return s;
    }
    static AllocSnapshot trackers() {
        AllocSnapshot s;
        std::uint64_t tracked = 0;
        Drimm::AllocTracker::forEach([&](const Drimm::AllocTracker& t) { tracked += t.allocations(); });
        // Heap entities are in the operator new count already.
        s.slab = tracked - IC::Neighbor::allocTracker().allocations() -
                 IC::IsisLspParsedContent::allocTracker().allocations();
        s.bindings = IC::SidLabelBinding::allocTracker().allocations();
        s.model = tracked;
        return s;
    }
    std::uint64_t total() const noexcept { return heap + slab; }
};

/// Bytes the process holds for the library's objects: heap blocks as glibc
/// accounts them (slab chunks excluded) plus the slab blocks in use.
std::int64_t footprint() {
    return AllocCounter::liveBytes() - AllocCounter::slabChunkBytes() +
           static_cast<std::int64_t>(Drimm::Slab::bytesInUse());
}

class CountingObserver final : public Poldo::Observer {
public:
    void onChange(const Poldo::Notification& n) override {
        ++all;
        if (n.entity<IC::Prefix>() != nullptr && n.attr() == IC::Prefix::Attr::sidLabelBinding) {
            ++bindings;
        }
    }
    std::uint64_t all = 0;
    std::uint64_t bindings = 0;
};

// ---- the reference hash map --------------------------------------------------------

// Our keys with our collections' own hashes and seeds, so that only the table differs.
struct NodeIdHash {
    std::size_t operator()(const IC::IgpNodeId& k) const noexcept {
        return IC::IgpLspDatabase::LspMap::hashOf(k);
    }
};
struct NeighborKeyHash {
    std::size_t operator()(const IC::NeighborKey& k) const noexcept {
        return IC::IgpLsp::NeighborMap::hashOf(k);
    }
};
struct PrefixKeyHash {
    std::size_t operator()(const IC::PrefixKey& k) const noexcept { return IC::IgpLsp::PrefixMap::hashOf(k); }
};

/// The absl baseline, laid out as our tables are: the members are pointers to
/// objects that hold their own keys, found by key through absl's
/// heterogeneous look-up. Only the table differs.
template <class Object, class Map, auto KeyOf>
struct ByOwnKey {
    using Key = typename Map::key_type;
    static const Key& key(const Key& k) noexcept { return k; }
    static const Key& key(const Object* o) noexcept { return (o->*KeyOf)(); }

    struct Hash {
        using is_transparent = void;
        template <class T>
        std::size_t operator()(const T& v) const noexcept {
            return Map::hashOf(key(v));
        }
    };
    struct Eq {
        using is_transparent = void;
        template <class A, class B>
        bool operator()(const A& a, const B& b) const noexcept {
            return key(a) == key(b);
        }
    };
    using Set = absl::flat_hash_set<const Object*, Hash, Eq>;
};

struct AbslLsp {
    IC::IgpNodeId id;
    ByOwnKey<IC::Neighbor, IC::IgpLsp::NeighborMap, &IC::Neighbor::key>::Set neighbors;
    ByOwnKey<IC::Prefix, IC::IgpLsp::PrefixMap, &IC::Prefix::prefixKey>::Set prefixes;
    const IC::IgpNodeId& nodeId() const noexcept { return id; }
};
using AbslLspSet = ByOwnKey<AbslLsp, IC::IgpLspDatabase::LspMap, &AbslLsp::nodeId>::Set;

/// The same look-ups in absl with key copies in its slots: what our entries
/// would cost if they stored every key twice (the memory they save).
struct AbslKeyCopies {
    absl::flat_hash_map<IC::NeighborKey, IC::Neighbor*, NeighborKeyHash> neighbors;
    absl::flat_hash_map<IC::PrefixKey, IC::Prefix*, PrefixKeyHash> prefixes;
};

// ---- the dense shape ------------------------------------------------------------------

/// The dense shape, registered as "/dense": the domain of 2,000 routers, each
/// with 16 more point-to-point links to random peers (both ends advertise
/// them, with TE attributes, adjacency SIDs and their subnets) and 100
/// external routes of each family: about 40 neighbors and 290 prefixes per
/// router, LSPs of about seven fragments instead of two.
constexpr std::uint32_t denseShape = 2000;

Lumo::Ip6Addr denseV6(std::uint16_t g2, std::uint16_t g3, std::uint32_t low) {
    std::uint8_t b[16] = {0x20, 0x01, 0x0d, 0xb8};
    b[4] = static_cast<std::uint8_t>(g2 >> 8);
    b[5] = static_cast<std::uint8_t>(g2);
    b[6] = static_cast<std::uint8_t>(g3 >> 8);
    b[7] = static_cast<std::uint8_t>(g3);
    b[12] = static_cast<std::uint8_t>(low >> 24);
    b[13] = static_cast<std::uint8_t>(low >> 16);
    b[14] = static_cast<std::uint8_t>(low >> 8);
    b[15] = static_cast<std::uint8_t>(low);
    return Lumo::Ip6Addr::fromBytes(b);
}

Topology denseTopology() {
    // Address plan beside the generator's: extra link L 172.16.0.0 + 2L /31 and
    // 2001:db8:4::2L /127; externals of router i 10.160.0.0 + 128i + k /32 and
    // 2001:db8:5:i::k /128; adjacency SIDs from 15500 in the local block.
    constexpr std::uint32_t extraLinksPerRouter = 16;
    constexpr std::uint32_t externalsPerFamily = 100;
    Topology t = generate(denseShape, topologySeed);
    Rng rng(topologySeed + 1);
    const std::uint32_t routers = t.routers;
    std::vector<std::uint32_t> nextLabel(routers, 15500);
    std::uint32_t link = 0;
    for (std::uint32_t a = 0; a < routers; ++a) {
        for (std::uint32_t k = 0; k < extraLinksPerRouter; ++k, ++link) {
            std::uint32_t b = rng.below(routers - 1);
            b += b >= a ? 1 : 0;
            const std::uint32_t metric = 10 * (1 + rng.below(20));
            const std::uint32_t adminGroup = 1u << rng.below(8);
            for (int side = 0; side < 2; ++side) {
                const std::uint32_t self = side == 0 ? a : b;
                const std::uint32_t peer = side == 0 ? b : a;
                const auto s = static_cast<std::uint32_t>(side);
                LinkPlan l;
                l.neighbor = t.lsps[peer].id;
                l.metric = metric;
                l.localV4 = Lumo::IpAddr(0xAC100000u + 2 * link + s);
                l.remoteV4 = Lumo::IpAddr(0xAC100000u + 2 * link + 1 - s);
                l.localV6 = denseV6(4, 0, 2 * link + s);
                l.remoteV6 = denseV6(4, 0, 2 * link + 1 - s);
                l.te = true;
                l.adminGroup = adminGroup;
                l.maxBw = 1.25e10f;
                l.maxRsvBw = 1.25e10f * 0.75f;
                l.unrsvBw.fill(l.maxRsvBw);
                l.teMetric = metric + 5;
                l.adjSids.emplace_back(0x30, nextLabel[self]++, 0);
                l.adjSids.emplace_back(0xB0, nextLabel[self]++, 0);
                LspPlan& lsp = t.lsps[self];
                lsp.links.push_back(l);
                PrefixPlan sub4;
                sub4.prefix = Lumo::IpGenPrefix(Lumo::IpAddr(0xAC100000u + 2 * link), 31);
                sub4.metric = metric;
                lsp.prefixes.push_back(sub4);
                PrefixPlan sub6;
                sub6.prefix = Lumo::IpGenPrefix(denseV6(4, 0, 2 * link), 127);
                sub6.metric = metric;
                lsp.prefixes.push_back(sub6);
            }
        }
    }
    for (std::uint32_t i = 0; i < routers; ++i) {
        LspPlan& lsp = t.lsps[i];
        for (std::uint32_t k = 0; k < externalsPerFamily; ++k) {
            PrefixPlan e4;
            e4.prefix = Lumo::IpGenPrefix(Lumo::IpAddr(0x0AA00000u + 128 * i + k), 32);
            e4.metric = 1000 + rng.below(1000);
            lsp.prefixes.push_back(e4);
            PrefixPlan e6;
            e6.prefix = Lumo::IpGenPrefix(denseV6(5, static_cast<std::uint16_t>(i), k), 128);
            e6.metric = e4.metric;
            lsp.prefixes.push_back(e6);
        }
    }
    t.neighbors = 0;
    t.prefixes = 0;
    for (const LspPlan& s : t.lsps) {
        t.neighbors += s.links.size();
        t.prefixes += s.prefixEntries();
    }
    return t;
}

/// The topology a world of that size (or of the dense shape) holds.
Topology shapeTopology(std::uint32_t routers) {
    return routers == denseShape ? denseTopology() : generate(routers, topologySeed);
}

// ---- the world of one size ------------------------------------------------------------

struct LspKeys {
    IC::IgpNodeId id;
    std::vector<IC::NeighborKey> neighbors;
    std::vector<IC::PrefixKey> prefixes;
};

struct World {
    // First: observers must outlive every publisher that knows them.
    CountingObserver observer;
    std::uint32_t routers = 0;
    Topology topology;
    std::vector<Bytes> pdus;
    Poldo::Ptr<IC::IgpLspDatabase> db;
    std::vector<Content> refresh;  // the same content again, separate objects
    std::vector<LspKeys> keys;     // key copies, held in no collection
    Churn churn;
    std::vector<Content> churned, restored;
    std::deque<AbslLsp> abslLsps;  // what `absl` points into
    AbslLspSet absl;
    absl::flat_hash_map<IC::IgpNodeId, AbslKeyCopies, NodeIdHash> abslKeyCopies;

    bool heapWarm = false;

    std::size_t lsps() const noexcept { return topology.lsps.size(); }
    std::size_t elements() const noexcept { return topology.neighbors + topology.prefixes; }
};

std::vector<Content> buildAll(const std::vector<LspPlan>& plans) {
    std::vector<Content> out;
    out.reserve(plans.size());
    for (const LspPlan& s : plans) {
        out.push_back(buildContent(s));
    }
    return out;
}

void observeAll(IC::IgpLspDatabase& db, Poldo::Observer& o) {
    db.publisher().observerIs(o);
    for (auto it = db.lsp().begin(); it != db.lsp().end(); ++it) {
        IC::IgpLsp& entry = **it;
        entry.publisher().observerIs(o);
        entry.node()->publisher().observerIs(o);
        for (auto n = entry.neighbor().begin(); n != entry.neighbor().end(); ++n) {
            n->value->publisher().observerIs(o);
        }
        for (auto p = entry.prefix().begin(); p != entry.prefix().end(); ++p) {
            p->value->publisher().observerIs(o);
        }
    }
}

std::unique_ptr<World> makeWorld(std::uint32_t routers) {
    auto w = std::make_unique<World>();
    w->routers = routers;
    w->topology = shapeTopology(routers);
    w->pdus = encodeTopology(w->topology);
    w->db = IC::igpLspDatabaseFactory(IC::igpLevelIsisLevel2);
    for (const LspPlan& s : w->topology.lsps) {
        mergeContent(*w->db, buildContent(s));
    }
    w->refresh = buildAll(w->topology.lsps);
    for (const Content& c : w->refresh) {
        LspKeys k{c->node()->nodeId(), {}, {}};
        for (auto it = c->neighbor().begin(); it != c->neighbor().end(); ++it) {
            k.neighbors.push_back((*it)->key());
        }
        for (auto it = c->prefix().begin(); it != c->prefix().end(); ++it) {
            k.prefixes.push_back((*it)->prefixKey());
        }
        w->keys.push_back(std::move(k));
    }
    w->churn = makeChurn(w->topology, churnPercent, churnSeed);
    w->churned = buildAll(w->churn.changed);
    for (const std::size_t i : w->churn.lspIndex) {
        w->restored.push_back(buildContent(w->topology.lsps[i]));
    }
    for (auto it = w->db->lsp().begin(); it != w->db->lsp().end(); ++it) {
        const IC::IgpLsp& entry = **it;
        AbslLsp& a = w->abslLsps.emplace_back();
        a.id = entry.nodeId();
        w->absl.insert(&a);
        AbslKeyCopies& c = w->abslKeyCopies[entry.nodeId()];
        for (auto n = entry.neighbor().begin(); n != entry.neighbor().end(); ++n) {
            a.neighbors.insert(n->value.get());
            c.neighbors.emplace(n->key, n->value.get());
        }
        for (auto p = entry.prefix().begin(); p != entry.prefix().end(); ++p) {
            a.prefixes.insert(p->value.get());
            c.prefixes.emplace(p->key, p->value.get());
        }
    }
    observeAll(*w->db, w->observer);
    return w;
}

constexpr std::uint32_t referenceRouters = 1000;

/// The world of that size. The 1k world stays built, as the reference the
/// larger sizes are compared with; of the others one at a time (the large
/// ones take gigabytes together).
World& world(std::uint32_t routers) {
    static std::unique_ptr<World> reference;
    static std::unique_ptr<World> current;
    // The reference is built first, on a fresh heap as the larger worlds
    // are: built after a large one, among the holes its construction left,
    // its members lie scattered and its refresh per LSP costs twice as much.
    if (routers != referenceRouters && !reference) {
        world(referenceRouters);
    }
    std::unique_ptr<World>& slot = routers == referenceRouters ? reference : current;
    if (!slot || slot->routers != routers) {
        slot.reset();
        slot = makeWorld(routers);
    }
    return *slot;
}

/// Gives the heap, once per world, as much memory as a full set of parsed
/// contents takes: the scenarios that allocate then start from a warm heap at
/// every size, as a small size does by itself after its first iteration.
void warmHeap(World& w) {
    if (!w.heapWarm) {
        buildAll(w.topology.lsps);
        w.heapWarm = true;
    }
}

// Time per LSP and per element, derived from the iteration time.
void perUnit(benchmark::State& state, std::size_t lsps, std::size_t elements) {
    using C = benchmark::Counter;
    state.counters["lsps"] = C(static_cast<double>(lsps));
    state.counters["per_lsp"] = C(static_cast<double>(lsps), C::kIsIterationInvariantRate | C::kInvert);
    state.counters["per_elem"] = C(static_cast<double>(elements), C::kIsIterationInvariantRate | C::kInvert);
}

double perIteration(benchmark::State& state, double total, double units) {
    return total / (static_cast<double>(state.iterations()) * units);
}

// ---- scenarios ---------------------------------------------------------------------

/// The content baseline: building the parsed contents, which an agent's decoder does anyway.
void contentBuild(benchmark::State& state, std::uint32_t routers) {
    World& w = world(routers);
    warmHeap(w);
    std::vector<Content> out;
    out.reserve(w.lsps());
    for (auto _ : state) {
        for (const LspPlan& s : w.topology.lsps) {
            out.push_back(buildContent(s));
        }
        state.PauseTiming();
        out.clear();
        state.ResumeTiming();
    }
    perUnit(state, w.lsps(), w.elements());
}

/// Decoding every PDU of the capture, results dropped.
void decode(benchmark::State& state, std::uint32_t routers) {
    World& w = world(routers);
    for (auto _ : state) {
        for (const Bytes& pdu : w.pdus) {
            const auto r = Routing::IsisDecoder::decodeLsp(pdu);
            if (!r) {
                state.SkipWithError(r.error().message().c_str());
                return;
            }
        }
    }
    perUnit(state, w.lsps(), w.elements());
    state.counters["pdus"] = static_cast<double>(w.pdus.size());
}

/// Decode plus the keeper's merge of every PDU into a fresh database.
void ingest(benchmark::State& state, std::uint32_t routers) {
    World& w = world(routers);
    warmHeap(w);
    for (auto _ : state) {
        auto keeper = std::make_unique<Routing::IsisDecoder::LspKeeper>(IC::igpLevelIsisLevel2);
        for (const Bytes& pdu : w.pdus) {
            keeper->receive(Routing::IsisDecoder::decodeLsp(pdu).lsp());
        }
        state.PauseTiming();
        if (keeper->database()->lspCount() != w.lsps()) {
            state.SkipWithError("the keeper's database lacks entries");
        }
        keeper.reset();
        state.ResumeTiming();
    }
    perUnit(state, w.lsps(), w.elements());
}

// ---- passes: one full run of a scenario's work ---------------------------------------

double threadCpuSeconds() {
    timespec ts{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

/// Allocations of a first build: building the parsed contents, merging them.
struct BuildAllocs {
    std::uint64_t contents = 0;
    std::uint64_t merges = 0;
};

/// The first build: every content merged into an empty database (adopting
/// its objects). Returns the CPU seconds of the merges alone; counts the
/// allocations into `allocs` when given.
double buildPass(const World& w, BuildAllocs* allocs = nullptr) {
    const AllocSnapshot c0 = allocs ? AllocSnapshot::start() : AllocSnapshot{};
    std::vector<Content> contents = buildAll(w.topology.lsps);
    auto db = IC::igpLspDatabaseFactory(IC::igpLevelIsisLevel2);
    const AllocSnapshot c1 = allocs ? AllocSnapshot::finish() : AllocSnapshot{};
    const AllocSnapshot m0 = allocs ? AllocSnapshot::start() : AllocSnapshot{};
    const double t0 = threadCpuSeconds();
    for (const Content& c : contents) {
        mergeContent(*db, c);
    }
    const double t1 = threadCpuSeconds();
    if (allocs) {
        const AllocSnapshot m1 = AllocSnapshot::finish();
        allocs->contents += c1.total() - c0.total();
        allocs->merges += m1.total() - m0.total();
    }
    if (db->lspCount() != w.lsps()) {
        std::abort();  // the generator gave two LSPs one node identifier
    }
    return t1 - t0;
}

/// The hot path: identical content merged into every entry of an observed database.
void refreshPass(World& w) {
    for (const Content& c : w.refresh) {
        mergeContent(*w.db, c);
    }
}

/// The refresh floor: what a refresh cannot avoid: for each parsed content, find
/// its entry and look each of its neighbor and prefix keys up once in the
/// entry's collections; nothing else. Returns the keys found.
std::size_t refreshFloorPass(const World& w) {
    std::size_t found = 0;
    for (const Content& c : w.refresh) {
        const auto* e = w.db->lsp().find(c->node()->nodeId());
        const IC::IgpLsp& entry = **e;
        const auto& nbrs = c->neighbor();
        for (auto it = nbrs.begin(); it != nbrs.end(); ++it) {
            found += entry.neighbor().find((*it)->key()).has_value();
        }
        const auto& pfxs = c->prefix();
        for (auto it = pfxs.begin(); it != pfxs.end(); ++it) {
            found += entry.prefix().find((*it)->prefixKey()).has_value();
        }
    }
    return found;
}

/// Every neighbor and prefix key looked up in our collections (no pointer copies).
std::size_t lookupFloorPass(const World& w) {
    std::size_t found = 0;
    for (const LspKeys& k : w.keys) {
        const IC::IgpLsp& entry = **w.db->lsp().find(k.id);
        for (const auto& key : k.neighbors) {
            found += entry.neighbor().find(key).has_value();
        }
        for (const auto& key : k.prefixes) {
            found += entry.prefix().find(key).has_value();
        }
    }
    return found;
}

/// Every key looked up in one of the absl layouts; `entryOf` finds a node's entry.
template <class EntryOf>
std::size_t abslLookups(const World& w, EntryOf entryOf) {
    std::size_t found = 0;
    for (const LspKeys& k : w.keys) {
        const auto& entry = entryOf(k.id);
        for (const auto& key : k.neighbors) {
            found += entry.neighbors.contains(key);
        }
        for (const auto& key : k.prefixes) {
            found += entry.prefixes.contains(key);
        }
    }
    return found;
}

/// The absl baseline: the same look-ups in absl, laid out as our tables are.
std::size_t lookupAbslPass(const World& w) {
    return abslLookups(w, [&](const IC::IgpNodeId& id) -> const AbslLsp& { return **w.absl.find(id); });
}

/// The same look-ups in absl with key copies in its slots.
std::size_t lookupAbslKeyCopiesPass(const World& w) {
    return abslLookups(
        w, [&](const IC::IgpNodeId& id) -> const AbslKeyCopies& { return w.abslKeyCopies.find(id)->second; });
}

/// The same look-ups through the public API, as an agent writes them
/// (counted pointers returned by value).
std::size_t lookupPass(const World& w) {
    std::size_t found = 0;
    for (const LspKeys& k : w.keys) {
        const Poldo::Ptr<IC::IgpLsp> entry = w.db->lsp(k.id);
        for (const auto& key : k.neighbors) {
            found += static_cast<bool>(entry->neighbor(key));
        }
        for (const auto& key : k.prefixes) {
            found += static_cast<bool>(entry->prefix(key));
        }
    }
    return found;
}

// ---- scenarios built on the passes ------------------------------------------------------

void build(benchmark::State& state, std::uint32_t routers) {
    World& w = world(routers);
    warmHeap(w);
    BuildAllocs allocs;
    for (auto _ : state) {
        state.SetIterationTime(buildPass(w, &allocs));
    }
    perUnit(state, w.lsps(), w.elements());
    const auto lsps = static_cast<double>(w.lsps());
    // The merges' own (the entry and its tables: the rest is adopted), and the parsed contents'.
    state.counters["allocs_per_lsp"] = perIteration(state, static_cast<double>(allocs.merges), lsps);
    state.counters["content_allocs_per_lsp"] =
        perIteration(state, static_cast<double>(allocs.contents), lsps);
}

void refresh(benchmark::State& state, std::uint32_t routers) {
    World& w = world(routers);
    const AllocSnapshot before = AllocSnapshot::start();
    const std::uint64_t notifiedBefore = w.observer.all;
    const std::uint64_t bindingsNotifiedBefore = w.observer.bindings;
    for (auto _ : state) {
        refreshPass(w);
    }
    const AllocSnapshot after = AllocSnapshot::finish();
    perUnit(state, w.lsps(), w.elements());
    const double lsps = static_cast<double>(w.lsps());
    const auto allocs = static_cast<double>(after.total() - before.total());
    const auto bindings = static_cast<double>(after.bindings - before.bindings);
    const auto notified = static_cast<double>(w.observer.all - notifiedBefore);
    const auto bindingsNotified = static_cast<double>(w.observer.bindings - bindingsNotifiedBefore);
    state.counters["allocs_per_lsp"] = perIteration(state, allocs, lsps);
    state.counters["allocs_nonbinding_per_lsp"] = perIteration(state, allocs - bindings, lsps);
    state.counters["notif_per_lsp"] = perIteration(state, notified, lsps);
    state.counters["notif_nonbinding_per_lsp"] = perIteration(state, notified - bindingsNotified, lsps);
}

/// Every LSP flooded again unchanged, with the next sequence number, to a
/// keeper that holds them all: an agent's refresh interval as it reaches the
/// database. `Pdus`: through receivePdu(), which takes an unchanged copy
/// without decoding; otherwise decoded first, then received. Allocations are
/// split into the model's own objects (counted by their trackers: decoded
/// content, which the merge then drops) and every other heap block.
template <bool Pdus>
void reflood(benchmark::State& state, std::uint32_t routers) {
    World& w = world(routers);
    CountingObserver observer;  // first: it outlives the keeper's publishers
    Routing::IsisDecoder::LspKeeper keeper(IC::igpLevelIsisLevel2);
    std::vector<Bytes> pdus = w.pdus;
    const auto receive = [&keeper](const Bytes& pdu) {
        if constexpr (Pdus) {
            keeper.receivePdu(pdu);
        } else {
            keeper.receive(Routing::IsisDecoder::decodeLsp(pdu).lsp());
        }
    };
    for (const Bytes& pdu : pdus) {
        receive(pdu);
    }
    observeAll(*keeper.database(), observer);
    const AllocSnapshot before = AllocSnapshot::start();
    for (auto _ : state) {
        state.PauseTiming();
        for (Bytes& pdu : pdus) {
            // The sequence number: octets 20 to 23 of an LSP PDU.
            for (std::size_t i = 23; ++pdu[i] == 0 && i > 20; --i) {
            }
            fillLspChecksum(pdu);
        }
        state.ResumeTiming();
        for (const Bytes& pdu : pdus) {
            receive(pdu);
        }
    }
    const AllocSnapshot after = AllocSnapshot::finish();
    const std::uint64_t model = after.model - before.model;
    perUnit(state, w.lsps(), w.elements());
    const auto n = static_cast<double>(pdus.size());
    const auto all = static_cast<double>(after.total() - before.total());
    state.counters["allocs_per_pdu"] = perIteration(state, all, n);
    state.counters["allocs_model_per_pdu"] = perIteration(state, static_cast<double>(model), n);
    state.counters["allocs_other_per_pdu"] = perIteration(state, all - static_cast<double>(model), n);
    state.counters["notif_nonbinding_per_lsp"] = perIteration(
        state, static_cast<double>(observer.all - observer.bindings), static_cast<double>(w.lsps()));
    if (keeper.ignoredCount() != 0) {
        state.SkipWithError("the keeper ignored a refreshed fragment");
    }
}

/// A look-up scenario: `pass` must find every key, every time.
template <std::size_t (*Pass)(const World&)>
void lookupScenario(benchmark::State& state, std::uint32_t routers) {
    World& w = world(routers);
    std::size_t found = 0;
    for (auto _ : state) {
        found += Pass(w);
        benchmark::DoNotOptimize(found);
    }
    if (found != state.iterations() * w.elements()) {
        state.SkipWithError("a key was not found");
    }
    perUnit(state, w.lsps(), w.elements());
}

/// 1% of neighbors change their metric and 1% of prefixes go, then
/// everything comes back: the changed LSPs merged twice per iteration.
void churn(benchmark::State& state, std::uint32_t routers) {
    World& w = world(routers);
    const std::uint64_t notifiedBefore = w.observer.all;
    const std::uint64_t bindingsNotifiedBefore = w.observer.bindings;
    for (auto _ : state) {
        for (const Content& c : w.churned) {
            mergeContent(*w.db, c);
        }
        for (const Content& c : w.restored) {
            mergeContent(*w.db, c);
        }
    }
    const double merged = 2.0 * static_cast<double>(w.churned.size());
    const double changes = 2.0 * static_cast<double>(w.churn.metricChanges + w.churn.prefixRemovals);
    using C = benchmark::Counter;
    state.counters["lsps"] = C(merged);
    state.counters["per_lsp"] = C(merged, C::kIsIterationInvariantRate | C::kInvert);
    state.counters["changes"] = C(changes);
    state.counters["per_change"] = C(changes, C::kIsIterationInvariantRate | C::kInvert);
    const auto notified = static_cast<double>(w.observer.all - notifiedBefore);
    const auto bindingsNotified = static_cast<double>(w.observer.bindings - bindingsNotifiedBefore);
    // One notification per real change is the expectation.
    state.counters["notif_nonbinding_per_change"] = perIteration(state, notified - bindingsNotified, changes);
}

/// The whole database dumped into a sink that only counts bytes.
void dump(benchmark::State& state, std::uint32_t routers) {
    World& w = world(routers);
    const auto sink = Umbo::DumpContext::discardingDumpContextIs();
    for (auto _ : state) {
        w.db->dumpState(sink, 0);
    }
    perUnit(state, w.lsps(), w.elements());
    state.counters["bytes_per_lsp"] =
        perIteration(state, static_cast<double>(sink->bytesWritten()), static_cast<double>(w.lsps()));
}

// ---- pairs: two passes in turns, one ratio --------------------------------------------

/// Runs `a` and `b` in turns (which one goes first alternates), each
/// returning its CPU seconds, and reports `ratio`: a's time per unit over
/// b's. The two share every second of the run, so a neighbour's load weighs
/// on both alike; separate benchmarks seconds or minutes apart do not.
template <class A, class B>
void paired(benchmark::State& state, A a, B b, double unitsA, double unitsB) {
    double ta = 0, tb = 0;
    bool aFirst = true;
    for (auto _ : state) {
        double sa = 0, sb = 0;
        if (aFirst) {
            sa = a();
            sb = b();
        } else {
            sb = b();
            sa = a();
        }
        aFirst = !aFirst;
        ta += sa;
        tb += sb;
        state.SetIterationTime(sa + sb);
    }
    const auto n = static_cast<double>(state.iterations());
    state.counters["a_per_unit"] = ta / (n * unitsA);
    state.counters["b_per_unit"] = tb / (n * unitsB);
    state.counters["ratio"] = (ta / unitsA) / (tb / unitsB);
}

template <class F>
double timed(F f) {
    const double t0 = threadCpuSeconds();
    f();
    return threadCpuSeconds() - t0;
}

/// Refresh over its floor, per element.
void refreshVsFloor(benchmark::State& state, std::uint32_t routers) {
    World& w = world(routers);
    const auto e = static_cast<double>(w.elements());
    std::size_t found = 0;
    paired(
        state, [&] { return timed([&] { refreshPass(w); }); },
        [&] { return timed([&] { found += refreshFloorPass(w); }); }, e, e);
    benchmark::DoNotOptimize(found);
}

/// Two look-up passes in turns, per key: ours over absl's, in one layout or the other.
template <std::size_t (*A)(const World&), std::size_t (*B)(const World&)>
void lookupsPaired(benchmark::State& state, std::uint32_t routers) {
    World& w = world(routers);
    const auto e = static_cast<double>(w.elements());
    std::size_t found = 0;
    paired(
        state, [&] { return timed([&] { found += A(w); }); }, [&] { return timed([&] { found += B(w); }); },
        e, e);
    benchmark::DoNotOptimize(found);
}

/// Refresh per LSP at this size over the same at 1k routers.
void refreshVs1k(benchmark::State& state, std::uint32_t routers) {
    World& small = world(referenceRouters);
    World& w = world(routers);
    paired(
        state, [&] { return timed([&] { refreshPass(w); }); },
        [&] { return timed([&] { refreshPass(small); }); }, static_cast<double>(w.lsps()),
        static_cast<double>(small.lsps()));
}

/// First build per LSP at this size over the same at 1k routers.
void buildVs1k(benchmark::State& state, std::uint32_t routers) {
    World& small = world(referenceRouters);
    World& w = world(routers);
    warmHeap(small);
    warmHeap(w);
    paired(
        state, [&] { return buildPass(w); }, [&] { return buildPass(small); }, static_cast<double>(w.lsps()),
        static_cast<double>(small.lsps()));
}

// ---- memory ----------------------------------------------------------------------------

/// A database built LSP by LSP from generated content, the content dropped
/// after each merge, as an agent does.
Poldo::Ptr<IC::IgpLspDatabase> buildStreaming(const Topology& t, BuildParts parts) {
    auto db = IC::igpLspDatabaseFactory(IC::igpLevelIsisLevel2);
    for (const LspPlan& s : t.lsps) {
        mergeContent(*db, buildContent(s, parts));
    }
    return db;
}

struct MemoryStages {
    double perNode = 0, perNeighbor = 0, perPrefix = 0;
    // Live objects per element, by type (only filled when asked for).
    std::map<std::string, double> objectsPerNode, objectsPerNeighbor, objectsPerPrefix;
};

std::map<std::string, std::int64_t> liveObjects() {
    std::map<std::string, std::int64_t> live;
    Drimm::AllocTracker::forEach(
        [&](const Drimm::AllocTracker& t) { live[t.typeName()] = static_cast<std::int64_t>(t.live()); });
    return live;
}

/// Bytes per entry (node), per neighbor and per prefix, from three databases
/// that hold nodes only, nodes and neighbors, and everything, each measured
/// around its own build by `measure`. With `keep` the databases stay alive
/// (needed when freed memory would be reused unseen, as slab blocks are).
template <class Measure>
MemoryStages memoryStages(const Topology& t, Measure measure,
                          std::vector<Poldo::Ptr<IC::IgpLspDatabase>>* keep, bool countObjects = false) {
    double bytes[3] = {};
    std::map<std::string, std::int64_t> objects[3];
    const BuildParts parts[3] = {{false, false}, {true, false}, {true, true}};
    for (int k = 0; k < 3; ++k) {
        const auto liveBefore = countObjects ? liveObjects() : std::map<std::string, std::int64_t>{};
        const auto before = measure();
        auto db = buildStreaming(t, parts[k]);
        bytes[k] = static_cast<double>(measure() - before);
        if (countObjects) {
            for (const auto& [type, n] : liveObjects()) {
                const auto it = liveBefore.find(type);
                objects[k][type] = n - (it == liveBefore.end() ? 0 : it->second);
            }
        }
        if (keep != nullptr) {
            keep->push_back(std::move(db));
        }
    }
    MemoryStages s;
    const auto lsps = static_cast<double>(t.lsps.size());
    const auto neighbors = static_cast<double>(t.neighbors);
    const auto prefixes = static_cast<double>(t.prefixes);
    s.perNode = bytes[0] / lsps;
    s.perNeighbor = (bytes[1] - bytes[0]) / neighbors;
    s.perPrefix = (bytes[2] - bytes[1]) / prefixes;
    for (const auto& [type, n] : objects[2]) {
        const auto nodes = static_cast<double>(objects[0][type]);
        const auto withNeighbors = static_cast<double>(objects[1][type]);
        const auto all = static_cast<double>(n);
        if (nodes != 0) {
            s.objectsPerNode[type] = nodes / lsps;
        }
        if (withNeighbors != nodes) {
            s.objectsPerNeighbor[type] = (withNeighbors - nodes) / neighbors;
        }
        if (all != withNeighbors) {
            s.objectsPerPrefix[type] = (all - withNeighbors) / prefixes;
        }
    }
    return s;
}

/// Memory of a built database, from the exact live accounting (runs once).
void memory(benchmark::State& state, std::uint32_t routers) {
    World& w = world(routers);
    MemoryStages s;
    for (auto _ : state) {
        s = memoryStages(w.topology, footprint, nullptr);
    }
    state.counters["bytes_per_node"] = s.perNode;
    state.counters["bytes_per_neighbor"] = s.perNeighbor;
    state.counters["bytes_per_prefix"] = s.perPrefix;
}

long currentRssKb() {
    std::ifstream statm("/proc/self/statm");
    long pages = 0, resident = 0;
    statm >> pages >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

long peakRssKb() {
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    return u.ru_maxrss;
}

std::string jsonObject(const std::map<std::string, double>& m) {
    std::string out = "{";
    char buf[64];
    for (const auto& [k, v] : m) {
        std::snprintf(buf, sizeof buf, "%.3f", v);
        out += (out.size() > 1 ? ", \"" : "\"") + k + "\": " + buf;
    }
    return out + "}";
}

/// `--memory=<routers>`: in this fresh process, the peak RSS of building the
/// full database, then bytes per element from glibc's own accounting
/// (mallinfo2, heap and mmapped blocks) and from the live accounting, with
/// the library's objects per element; prints one JSON object.
int memoryMode(std::uint32_t routers) {
    const Topology t = generate(routers, topologySeed);
    const long rssBefore = currentRssKb();
    const auto heap = [] {
        const struct mallinfo2 m = mallinfo2();
        return static_cast<std::int64_t>(m.uordblks + m.hblkhd);
    };
    const std::int64_t heapBefore = heap();
    auto full = buildStreaming(t, BuildParts{});
    const long peakAfterBuild = peakRssKb();
    const std::int64_t heapFull = heap() - heapBefore;
    // Everything stays alive: slab blocks freed here would be reused by the
    // stages below without glibc seeing any allocation.
    std::vector<Poldo::Ptr<IC::IgpLspDatabase>> keep{full};
    const MemoryStages byMallinfo = memoryStages(t, heap, &keep);
    const MemoryStages byLive = memoryStages(t, footprint, nullptr, true);
    std::printf(
        "{\"routers\": %u, \"lsps\": %zu, \"neighbors\": %zu, \"prefixes\": %zu,\n"
        " \"rss_before_build_kb\": %ld, \"peak_rss_build_kb\": %ld, \"heap_full_build_bytes\": %lld,\n"
        " \"mallinfo\": {\"bytes_per_node\": %.1f, \"bytes_per_neighbor\": %.1f, \"bytes_per_prefix\": "
        "%.1f},\n"
        " \"live\": {\"bytes_per_node\": %.1f, \"bytes_per_neighbor\": %.1f, \"bytes_per_prefix\": %.1f},\n"
        " \"objects_per_node\": %s,\n \"objects_per_neighbor\": %s,\n \"objects_per_prefix\": %s,\n"
        " \"sizeof\": {\"Neighbor\": %zu, \"NeighborKey\": %zu, \"neighbor_map_member\": %zu, \"Prefix\": "
        "%zu, "
        "\"PrefixKey\": %zu, \"prefix_map_member\": %zu, \"IgpLsp\": %zu, \"Node\": %zu}}\n",
        routers, t.lsps.size(), t.neighbors, t.prefixes, rssBefore, peakAfterBuild,
        static_cast<long long>(heapFull), byMallinfo.perNode, byMallinfo.perNeighbor, byMallinfo.perPrefix,
        byLive.perNode, byLive.perNeighbor, byLive.perPrefix, jsonObject(byLive.objectsPerNode).c_str(),
        jsonObject(byLive.objectsPerNeighbor).c_str(), jsonObject(byLive.objectsPerPrefix).c_str(),
        sizeof(IC::Neighbor), sizeof(IC::NeighborKey), sizeof(IC::IgpLsp::NeighborMap::member_type),
        sizeof(IC::Prefix), sizeof(IC::PrefixKey), sizeof(IC::IgpLsp::PrefixMap::member_type),
        sizeof(IC::IgpLsp), sizeof(IC::Node));
    return 0;
}

/// "1k", "50k": a size's name, so that a filter such as '/1k' selects it alone.
std::string sizeName(std::uint32_t routers) {
    if (routers == denseShape) {
        return "dense";
    }
    return routers % 1000 == 0 ? std::to_string(routers / 1000) + "k" : std::to_string(routers);
}

// ---- the receive path: PDU octets through LspKeeper::receivePdu --------------------------

/// Set by --count-pass: the measured region of each pass toggles callgrind's
/// collection, so that instruction counts cover that region and nothing else.
bool collectInstructions = false;

/// CPU seconds of `f`, the region whose instructions --count-pass counts.
template <class F>
double measured(F f) {
    if (collectInstructions) {
        CALLGRIND_TOGGLE_COLLECT;
    }
    const double t0 = threadCpuSeconds();
    f();
    const double t = threadCpuSeconds() - t0;
    if (collectInstructions) {
        CALLGRIND_TOGGLE_COLLECT;
    }
    return t;
}

/// The next sequence number and a checksum to match: the periodic refresh of an unchanged fragment.
void bumpSequence(std::vector<Bytes>& pdus) {
    for (Bytes& pdu : pdus) {
        // The sequence number: octets 20 to 23 of an LSP PDU.
        for (std::size_t i = 23; ++pdu[i] == 0 && i > 20; --i) {
        }
        fillLspChecksum(pdu);
    }
}

/// Every PDU through receivePdu() into a fresh keeper. Returns the CPU
/// seconds of the receives; `keeper` holds the result afterwards (its
/// destruction is not timed). False in `ok` when a PDU was not installed.
double receiveAll(const std::vector<Bytes>& pdus, std::unique_ptr<Routing::IsisDecoder::LspKeeper>& keeper,
                  bool& ok) {
    using Routing::IsisDecoder::LspKeeper;
    keeper.reset();
    std::size_t installed = 0;
    const double t = measured([&] {
        keeper = std::make_unique<LspKeeper>(IC::igpLevelIsisLevel2);
        for (const Bytes& pdu : pdus) {
            installed += keeper->receivePdu(pdu) == LspKeeper::Outcome::installed;
        }
    });
    ok = installed == pdus.size();
    return t;
}

/// The ingest of a whole capture: the receive path the floor is set against.
double ingestPass(const World& w, bool& ok) {
    std::unique_ptr<Routing::IsisDecoder::LspKeeper> keeper;
    const double t = receiveAll(w.pdus, keeper, ok);
    ok = ok && keeper->database()->lspCount() == w.lsps();
    return t;
}

/// Keys the ingest floor found and did not find.
struct FloorKeys {
    std::size_t found = 0;
    std::size_t missed = 0;
};

/// The floor of ingest for one PDU: the entry of its node found once in the
/// built database, then its TLVs walked just far enough to build each
/// element's key (neighbor or prefix) on the stack, each key looked up once
/// in that entry. Nothing is decoded beyond the keys; lengths are checked
/// only so that the walk stays inside the PDU.
void ingestFloorPdu(const IC::IgpLspDatabase& db, const Bytes& pdu, FloorKeys& keys) {
    // ISO 10589 9.9: PDU length at octet 8, LSP ID at 12, TLVs from 27.
    constexpr std::size_t tlvsAt = 27;
    if (pdu.size() < tlvsAt) {
        ++keys.missed;
        return;
    }
    const std::size_t end = std::min<std::size_t>(pdu.size(), std::size_t{pdu[8]} << 8 | pdu[9]);
    const auto* found = db.lsp().find(IC::IgpNodeId::fromBytes(pdu.data() + 12));
    if (found == nullptr) {
        ++keys.missed;
        return;
    }
    const IC::IgpLsp& entry = **found;
    const std::uint8_t* p = pdu.data();
    const auto lookUpPrefix = [&](const Lumo::IpGenPrefix& prefix, std::uint16_t mt) {
        const bool hit = entry.prefix().find(IC::PrefixKey(prefix, IC::IgpMultiTopologyId(mt))).has_value();
        keys.found += hit;
        keys.missed += !hit;
    };
    // A prefix of `len` bits in the fewest octets (RFC 5305 4, RFC 5308 2); false if it does not fit.
    const auto readPrefix = [&](std::size_t at, std::size_t stop, std::uint8_t len, bool v6,
                                Lumo::IpGenPrefix& out) {
        const std::size_t n = (len + 7u) / 8u;
        if (len > (v6 ? 128 : 32) || at + n > stop) {
            return false;
        }
        std::uint8_t buf[16] = {};
        std::memcpy(buf, p + at, n);
        out = v6 ? Lumo::IpGenPrefix(Lumo::Ip6Addr::fromBytes(buf), len).masked()
                 : Lumo::IpGenPrefix(Lumo::IpAddr::fromBytes(buf), len).masked();
        return true;
    };
    for (std::size_t at = tlvsAt; at + 2 <= end;) {
        const std::uint8_t type = p[at];
        std::size_t v = at + 2;
        const std::size_t stop = v + p[at + 1];
        if (stop > end) {
            ++keys.missed;
            return;
        }
        at = stop;
        std::uint16_t mt = 0;
        if (type == 222 || type == 235 || type == 237 || type == 150) {  // RFC 5120 7: MT ID first
            if (v + 2 > stop) {
                continue;
            }
            mt = static_cast<std::uint16_t>((p[v] << 8 | p[v + 1]) & 0x0FFF);
            v += 2;
        }
        switch (type) {
            case 22:
            case 222:  // RFC 5305 3: node ID, metric, sub-TLVs; the addresses belong to the key
                while (v + 11 <= stop) {
                    IC::NeighborKey key(IC::IgpNodeId::fromBytes(p + v), IC::IgpMultiTopologyId(mt));
                    std::size_t s = v + 11;
                    const std::size_t subEnd = std::min(stop, s + p[v + 10]);
                    for (; s + 2 <= subEnd && s + 2 + p[s + 1] <= subEnd; s += 2 + p[s + 1]) {
                        const std::uint8_t subType = p[s];
                        const std::uint8_t subLen = p[s + 1];
                        if (subType == 6 && subLen == 4) {  // RFC 5305 3.2, 3.3; RFC 6119 4.2, 4.3
                            key.localIpv4AddrIs(Lumo::IpAddr::fromBytes(p + s + 2));
                        } else if (subType == 8 && subLen == 4) {
                            key.remoteIpv4AddrIs(Lumo::IpAddr::fromBytes(p + s + 2));
                        } else if (subType == 12 && subLen == 16) {
                            key.localIpv6AddrIs(Lumo::Ip6Addr::fromBytes(p + s + 2));
                        } else if (subType == 13 && subLen == 16) {
                            key.remoteIpv6AddrIs(Lumo::Ip6Addr::fromBytes(p + s + 2));
                        }
                    }
                    v = subEnd;
                    const bool hit = entry.neighbor().find(key).has_value();
                    keys.found += hit;
                    keys.missed += !hit;
                }
                break;
            case 135:
            case 235:  // RFC 5305 4: metric, control (S bit, length), prefix, sub-TLVs
                while (v + 5 <= stop) {
                    const std::uint8_t control = p[v + 4];
                    Lumo::IpGenPrefix prefix;
                    if (!readPrefix(v + 5, stop, control & 0x3F, false, prefix)) {
                        break;
                    }
                    v += 5 + (std::size_t{control & 0x3Fu} + 7) / 8;
                    if ((control & 0x40) != 0 && v < stop) {
                        v += 1 + p[v];
                    }
                    lookUpPrefix(prefix, mt);
                }
                break;
            case 236:
            case 237:  // RFC 5308 2: metric, control (S bit), length, prefix, sub-TLVs
                while (v + 6 <= stop) {
                    const std::uint8_t control = p[v + 4];
                    const std::uint8_t len = p[v + 5];
                    Lumo::IpGenPrefix prefix;
                    if (!readPrefix(v + 6, stop, len, true, prefix)) {
                        break;
                    }
                    v += 6 + (len + 7u) / 8u;
                    if ((control & 0x20) != 0 && v < stop) {
                        v += 1 + p[v];
                    }
                    lookUpPrefix(prefix, mt);
                }
                break;
            case 149:
            case 150: {  // RFC 8667 2.4: flags (F: IPv6), reserved, range, prefix; sub-TLVs follow
                Lumo::IpGenPrefix prefix;
                if (v + 5 <= stop && readPrefix(v + 5, stop, p[v + 4], (p[v] & 0x80) != 0, prefix)) {
                    lookUpPrefix(prefix, mt);
                }
                break;
            }
            default:
                break;
        }
    }
}

FloorKeys ingestFloorPass(const World& w, double& seconds) {
    FloorKeys keys;
    seconds = measured([&] {
        for (const Bytes& pdu : w.pdus) {
            ingestFloorPdu(*w.db, pdu, keys);
        }
    });
    return keys;
}

/// Ingest over its floor, per element: a fresh keeper receiving every PDU of
/// the capture, and the floor's key look-ups for the same PDUs in the built
/// database, in turns.
void ingestVsFloor(benchmark::State& state, std::uint32_t routers) {
    World& w = world(routers);
    warmHeap(w);
    bool ok = true;
    FloorKeys keys;
    const auto e = static_cast<double>(w.elements());
    paired(
        state,
        [&] {
            bool passOk = false;
            const double t = ingestPass(w, passOk);
            ok = ok && passOk;
            return t;
        },
        [&] {
            double t = 0;
            const FloorKeys k = ingestFloorPass(w, t);
            keys.found += k.found;
            keys.missed += k.missed;
            return t;
        },
        e, e);
    if (!ok) {
        state.SkipWithError("the keeper did not install every PDU");
    } else if (keys.missed != 0 || keys.found < state.iterations() * w.elements()) {
        state.SkipWithError("the floor missed a key");
    }
    state.counters["lsps"] = static_cast<double>(w.lsps());
    state.counters["pdus"] = static_cast<double>(w.pdus.size());
}

/// Once: what the ingest of the capture through receivePdu() leaves on the
/// heap and how many allocations it makes, per LSP (node), set against the
/// objects the database alone keeps once the keeper is gone.
void ingestHeap(benchmark::State& state, std::uint32_t routers) {
    using Routing::IsisDecoder::LspKeeper;
    World& w = world(routers);
    // Heap blocks plus slab entities alive (the heap-allocated entities are among the blocks).
    const auto liveObjects = [] {
        std::int64_t slab = 0;
        Drimm::AllocTracker::forEach(
            [&](const Drimm::AllocTracker& t) { slab += static_cast<std::int64_t>(t.live()); });
        slab -= static_cast<std::int64_t>(IC::Neighbor::allocTracker().live() +
                                          IC::IsisLspParsedContent::allocTracker().live());
        return AllocCounter::liveBlocks() + slab;
    };
    double allocs = 0, keptAll = 0, keptDb = 0, bytesAll = 0, bytesDb = 0;
    for (auto _ : state) {
        const std::int64_t objectsBefore = liveObjects();
        const std::int64_t bytesBefore = footprint();
        const AllocSnapshot before = AllocSnapshot::start();
        auto keeper = std::make_unique<LspKeeper>(IC::igpLevelIsisLevel2);
        std::size_t installed = 0;
        for (const Bytes& pdu : w.pdus) {
            installed += keeper->receivePdu(pdu) == LspKeeper::Outcome::installed;
        }
        const AllocSnapshot after = AllocSnapshot::finish();
        allocs = static_cast<double>(after.total() - before.total());
        keptAll = static_cast<double>(liveObjects() - objectsBefore);
        bytesAll = static_cast<double>(footprint() - bytesBefore);
        const Poldo::Ptr<IC::IgpLspDatabase> db = keeper->database();
        keeper.reset();
        keptDb = static_cast<double>(liveObjects() - objectsBefore);
        bytesDb = static_cast<double>(footprint() - bytesBefore);
        if (installed != w.pdus.size() || db->lspCount() != w.lsps()) {
            state.SkipWithError("the keeper did not install every PDU");
        }
    }
    const auto lsps = static_cast<double>(w.lsps());
    state.counters["lsps"] = lsps;
    state.counters["pdus_per_lsp"] = static_cast<double>(w.pdus.size()) / lsps;
    state.counters["allocs_per_lsp"] = allocs / lsps;
    state.counters["objects_kept_per_lsp"] = keptAll / lsps;
    state.counters["db_objects_per_lsp"] = keptDb / lsps;
    state.counters["heap_bytes_per_lsp"] = bytesAll / lsps;
    state.counters["db_heap_bytes_per_lsp"] = bytesDb / lsps;
}

// ---- one node of 256 fragments against 256 nodes of one fragment ----------------------

/// The same prefixes (IPv4 /32 and IPv6 /128 in turns, each with a prefix
/// SID) as the 256 fragments of one node, as full as 1492 octets allow, and
/// spread evenly over 256 nodes of one fragment each.
struct FragmentWorld {
    std::size_t prefixes = 0;
    std::vector<Bytes> oneNode;
    std::vector<Bytes> nodes;
};

constexpr std::uint32_t fragmentShape = 256;

LspPlan prefixNode(std::uint32_t node, std::size_t first, std::size_t count) {
    const std::uint8_t id[7] = {
        0x19, 0x22, 0x00, static_cast<std::uint8_t>(node >> 8), static_cast<std::uint8_t>(node), 0x01, 0x00};
    LspPlan plan;
    plan.id = IC::IgpNodeId::fromBytes(id);
    for (std::size_t i = first; i < first + count; ++i) {
        const auto n = static_cast<std::uint32_t>(i);
        PrefixPlan p;
        p.metric = 10 + n % 100;
        p.sid = IC::PrefixSid(0, 1000 + n, 0, true);
        p.prefix = i % 2 == 0 ? Lumo::IpGenPrefix(Lumo::IpAddr(0x0AC80000u + n), 32)
                              : Lumo::IpGenPrefix(denseV6(6, 0, n), 128);
        plan.prefixes.push_back(p);
    }
    return plan;
}

const FragmentWorld& fragmentWorld() {
    static const FragmentWorld fw = [] {
        FragmentWorld f;
        // The most prefixes that fit 256 fragments.
        std::size_t lo = fragmentShape, hi = std::size_t{fragmentShape} * 256;
        while (lo < hi) {
            const std::size_t mid = (lo + hi + 1) / 2;
            try {
                encodeLsp(prefixNode(0, 0, mid));
                lo = mid;
            } catch (const std::length_error&) {
                hi = mid - 1;
            }
        }
        f.prefixes = lo;
        f.oneNode = encodeLsp(prefixNode(0, 0, lo));
        for (std::uint32_t k = 0; k < fragmentShape; ++k) {
            const std::size_t first = lo * k / fragmentShape;
            const std::size_t next = lo * (k + 1) / fragmentShape;
            std::vector<Bytes> one = encodeLsp(prefixNode(k + 1, first, next - first));
            if (one.size() != 1) {
                std::abort();  // a 256th of the prefixes fills more than one fragment
            }
            f.nodes.push_back(std::move(one.front()));
        }
        if (f.oneNode.size() != fragmentShape) {
            std::abort();
        }
        return f;
    }();
    return fw;
}

/// Ingest: a fresh keeper receives the node's 256 fragments, and another
/// the 256 nodes, in turns; `ratio` is the first's time over the second's.
void fragmentsIngestVsNodes(benchmark::State& state, std::uint32_t) {
    const FragmentWorld& f = fragmentWorld();
    std::unique_ptr<Routing::IsisDecoder::LspKeeper> keeper;
    bool ok = true;
    const auto receive = [&](const std::vector<Bytes>& pdus) {
        bool passOk = false;
        const double t = receiveAll(pdus, keeper, passOk);
        ok = ok && passOk;
        keeper.reset();
        return t;
    };
    const auto n = static_cast<double>(f.prefixes);
    paired(
        state, [&] { return receive(f.oneNode); }, [&] { return receive(f.nodes); }, n, n);
    if (!ok) {
        state.SkipWithError("the keeper did not install every PDU");
    }
    state.counters["prefixes"] = n;
}

/// Refresh fragment by fragment: every fragment again, unchanged with the
/// next sequence number, to a keeper holding the node's 256 fragments, and
/// the same to one holding the 256 nodes, in turns.
void fragmentsRefreshVsNodes(benchmark::State& state, std::uint32_t) {
    using Routing::IsisDecoder::LspKeeper;
    const FragmentWorld& f = fragmentWorld();
    std::vector<Bytes> oneNode = f.oneNode, nodes = f.nodes;
    std::unique_ptr<LspKeeper> oneNodeKeeper, nodesKeeper;
    bool ok = true;
    receiveAll(oneNode, oneNodeKeeper, ok);
    receiveAll(nodes, nodesKeeper, ok);
    const auto refresh = [&](std::vector<Bytes>& pdus, LspKeeper& keeper) {
        bumpSequence(pdus);
        std::size_t refreshed = 0;
        const double t = measured([&] {
            for (const Bytes& pdu : pdus) {
                refreshed += keeper.receivePdu(pdu) == LspKeeper::Outcome::refreshed;
            }
        });
        ok = ok && refreshed == pdus.size();
        return t;
    };
    const auto n = static_cast<double>(f.prefixes);
    paired(
        state, [&] { return refresh(oneNode, *oneNodeKeeper); }, [&] { return refresh(nodes, *nodesKeeper); },
        n, n);
    if (!ok) {
        state.SkipWithError("a fragment was not installed, or a refresh not taken as one");
    }
    state.counters["prefixes"] = n;
}

// ---- --count-pass: one pass under callgrind ---------------------------------------------

/// `--count-pass=<Pass>/<shape>`: builds what the pass needs, runs it once
/// unmeasured, then once more with callgrind collecting over the measured
/// region only (run under `valgrind --tool=callgrind --instr-atstart=no
/// --collect-atstart=no`, as bench/callgrind.sh does), and prints the units
/// to divide the count by. Passes: Ingest, IngestFloor, Reflood (on 1k, 10k,
/// 50k or dense), FragmentsIngest, NodesIngest, FragmentsRefresh,
/// NodesRefresh (on 256).
int countPassMode(const std::string& passAndShape) {
    const std::size_t slash = passAndShape.find('/');
    const std::string pass = passAndShape.substr(0, slash);
    const std::string shape = slash == std::string::npos ? "" : passAndShape.substr(slash + 1);
    const auto start = [] {
        CALLGRIND_START_INSTRUMENTATION;
        collectInstructions = true;
    };
    bool ok = true;
    std::size_t lsps = 0, pdus = 0, elements = 0;
    if (shape == "256") {
        const FragmentWorld& f = fragmentWorld();
        const bool one = pass.rfind("Fragments", 0) == 0;
        std::vector<Bytes> input = one ? f.oneNode : f.nodes;
        lsps = one ? 1 : f.nodes.size();
        pdus = input.size();
        elements = f.prefixes;
        std::unique_ptr<Routing::IsisDecoder::LspKeeper> keeper;
        if (pass == "FragmentsIngest" || pass == "NodesIngest") {
            receiveAll(input, keeper, ok);
            start();
            receiveAll(input, keeper, ok);
        } else if (pass == "FragmentsRefresh" || pass == "NodesRefresh") {
            receiveAll(input, keeper, ok);
            for (int round = 0; round < 2; ++round) {
                bumpSequence(input);
                if (round == 1) {
                    start();
                }
                measured([&] {
                    for (const Bytes& pdu : input) {
                        keeper->receivePdu(pdu);
                    }
                });
            }
            ok = ok && keeper->refreshedCount() == 2 * input.size();
        } else {
            std::fprintf(stderr, "unknown pass %s\n", pass.c_str());
            return 2;
        }
    } else {
        std::uint32_t routers = 0;
        for (const std::uint32_t r : {1000u, 10000u, 50000u, denseShape}) {
            routers = sizeName(r) == shape ? r : routers;
        }
        if (routers == 0) {
            std::fprintf(stderr, "unknown shape %s (1k, 10k, 50k, dense, 256)\n", shape.c_str());
            return 2;
        }
        const std::unique_ptr<World> w = makeWorld(routers);
        lsps = w->lsps();
        pdus = w->pdus.size();
        elements = w->elements();
        if (pass == "Ingest") {
            ingestPass(*w, ok);
            start();
            ingestPass(*w, ok);
        } else if (pass == "IngestFloor") {
            double t = 0;
            ingestFloorPass(*w, t);
            start();
            const FloorKeys k = ingestFloorPass(*w, t);
            ok = k.missed == 0 && k.found >= elements;
        } else if (pass == "Reflood") {
            std::vector<Bytes> input = w->pdus;
            std::unique_ptr<Routing::IsisDecoder::LspKeeper> keeper;
            receiveAll(input, keeper, ok);
            for (int round = 0; round < 2; ++round) {
                bumpSequence(input);
                if (round == 1) {
                    start();
                }
                measured([&] {
                    for (const Bytes& pdu : input) {
                        keeper->receivePdu(pdu);
                    }
                });
            }
            ok = ok && keeper->refreshedCount() == 2 * input.size();
        } else {
            std::fprintf(stderr, "unknown pass %s\n", pass.c_str());
            return 2;
        }
    }
    collectInstructions = false;
    CALLGRIND_STOP_INSTRUMENTATION;
    std::printf("units lsps=%zu pdus=%zu elements=%zu\n", lsps, pdus, elements);
    if (!ok) {
        std::fprintf(stderr, "the pass did not do its work (a PDU not installed or a key missed)\n");
        return 1;
    }
    return 0;
}

void registerAll(std::uint32_t routers) {
    using Fn = void (*)(benchmark::State&, std::uint32_t);
    struct Scenario {
        const char* name;
        Fn fn;
        bool manualTime;  // the scenario times itself on the thread's CPU clock
    };
    static constexpr Scenario scenarios[] = {
        {"ContentBuild", contentBuild, false},
        {"Decode", decode, false},
        {"Ingest", ingest, false},
        {"Reflood", reflood<true>, false},
        {"RefloodDecoded", reflood<false>, false},
        {"Build", build, true},
        {"Refresh", refresh, false},
        {"RefreshFloor", lookupScenario<refreshFloorPass>, false},
        {"Lookup", lookupScenario<lookupPass>, false},
        {"LookupFloor", lookupScenario<lookupFloorPass>, false},
        {"LookupAbsl", lookupScenario<lookupAbslPass>, false},
        {"LookupAbslKeyCopies", lookupScenario<lookupAbslKeyCopiesPass>, false},
        {"Churn", churn, false},
        {"Dump", dump, false},
    };
    for (const Scenario& s : scenarios) {
        const std::string name = std::string(s.name) + "/" + sizeName(routers);
        auto* b = benchmark::RegisterBenchmark(name.c_str(), s.fn, routers)->Unit(benchmark::kMillisecond);
        if (s.manualTime) {
            b->UseManualTime();
        }
    }
    std::vector<Scenario> pairs = {
        {"RefreshVsFloor", refreshVsFloor, true},
        {"LookupVsAbsl", lookupsPaired<lookupFloorPass, lookupAbslPass>, true},
        {"LookupVsAbslKeyCopies", lookupsPaired<lookupFloorPass, lookupAbslKeyCopiesPass>, true}};
    if (routers != referenceRouters) {
        pairs.push_back({"RefreshVs1k", refreshVs1k, true});
        pairs.push_back({"BuildVs1k", buildVs1k, true});
    }
    for (const Scenario& s : pairs) {
        const std::string name = std::string(s.name) + "/" + sizeName(routers);
        // Long enough for a few turns of each order even at 50k routers.
        benchmark::RegisterBenchmark(name.c_str(), s.fn, routers)
            ->UseManualTime()
            ->MinTime(2.0)
            ->Unit(benchmark::kMillisecond);
    }
    const std::string name = "Memory/" + sizeName(routers);
    benchmark::RegisterBenchmark(name.c_str(), memory, routers)->Iterations(1)->Unit(benchmark::kMillisecond);
}

/// The receive path's scenarios of one shape (1k, 10k, 50k or dense).
void registerReceivePath(std::uint32_t routers) {
    const std::string size = std::string("/").append(sizeName(routers));
    // Long enough for a few turns of each order even at 50k routers.
    benchmark::RegisterBenchmark(("IngestVsFloor" + size).c_str(), ingestVsFloor, routers)
        ->UseManualTime()
        ->MinTime(2.0)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(("IngestHeap" + size).c_str(), ingestHeap, routers)
        ->Iterations(1)
        ->Unit(benchmark::kMillisecond);
    if (routers == denseShape) {
        benchmark::RegisterBenchmark(("Reflood" + size).c_str(), reflood<true>, routers)
            ->Unit(benchmark::kMillisecond);
    }
}

/// One node of 256 fragments against 256 nodes, registered as "/256".
void registerFragments() {
    using Fn = void (*)(benchmark::State&, std::uint32_t);
    const std::pair<const char*, Fn> pairs[] = {{"FragmentsIngestVsNodes/256", fragmentsIngestVsNodes},
                                                {"FragmentsRefreshVsNodes/256", fragmentsRefreshVsNodes}};
    for (const auto& [name, fn] : pairs) {
        benchmark::RegisterBenchmark(name, fn, fragmentShape)
            ->UseManualTime()
            ->MinTime(2.0)
            ->Unit(benchmark::kMillisecond);
    }
}

}  // namespace

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strncmp(argv[i], "--memory=", 9) == 0) {
            return memoryMode(static_cast<std::uint32_t>(std::strtoul(argv[i] + 9, nullptr, 10)));
        }
        if (std::strncmp(argv[i], "--count-pass=", 13) == 0) {
            mallopt(M_TRIM_THRESHOLD, INT_MAX);
            mallopt(M_MMAP_THRESHOLD, INT_MAX);
            return countPassMode(argv[i] + 13);
        }
    }
    // Memory freed by one iteration stays with the process for the next: a
    // small database is rebuilt in recycled memory anyway, so a large one
    // must be too, or its per-LSP cost would be the kernel's page faults
    // rather than the library's (the memory mode keeps glibc's defaults).
    mallopt(M_TRIM_THRESHOLD, INT_MAX);
    mallopt(M_MMAP_THRESHOLD, INT_MAX);
    for (const std::uint32_t routers : {1000u, 10000u, 50000u}) {
        registerAll(routers);
        registerReceivePath(routers);
    }
    registerReceivePath(denseShape);
    registerFragments();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
