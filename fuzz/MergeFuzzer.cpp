// Stateful merges driven by arbitrary bytes. The input is a program of steps over one database:
// merge a parsed content (neighbors with address sets, prefixes, SRLG records, node attributes,
// built from small pools so that keys recur, with duplicates, empty keys, pseudonodes and extreme
// values) into a node's entry, merge the same content again, delete an entry, replace one by a new
// object, insert the very object held, or delete them all. A step changes at most the entry it
// names (or, deleting them all, every entry), so the checks after a step look at that entry and at
// the database's shape; every entry is compared in whole once, at the end of the input.
// After every merge:
//   - the entry holds exactly the parsed keys, each member under its own key; members whose key
//     was there before are the same objects, now with the parsed attributes, new ones are the
//     parsed objects themselves; the entry's node prints like the parsed node.
// After every step:
//   - every entry sits under its own node id; the database, its count, a database observer's
//     mirror and the entries the fuzzer put there are the same set of objects;
//   - the observers that rebuild the step's entry and its node from notifications alone equal them.
// At the end of the input:
//   - the same for every entry, and the database dumps.
// After teardown no tracked object of any type is alive.
#include <fuzzer/FuzzedDataProvider.h>

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "EntryState.h"
#include "FuzzSupport.h"
#include "IgpCommon/IgpLsp.h"

namespace {

using namespace Routing::IgpCommon;
using IgpFuzz::formatted;
using IgpFuzz::same;
using Lumo::Ip6Addr;
using Lumo::IpAddr;
using Lumo::IpGenAddr;
using Lumo::IpGenPrefix;

// ---- pools ------------------------------------------------------------------------------------

IgpNodeId nodeIdOf(std::uint8_t sysLast, std::uint8_t pseudonode, std::uint8_t fill = 0x10) {
    const std::array<std::uint8_t, 7> b{0x19, 0x21, 0x68, 0x00, fill, sysLast, pseudonode};
    return IgpNodeId::fromBytes(b.data());
}

// Entries: two systems, a pseudonode of the first, and the all-zero id.
const std::array<IgpNodeId, 4> entryIds{nodeIdOf(1, 0), nodeIdOf(1, 1), nodeIdOf(2, 0), IgpNodeId()};
// Neighbors: the entries, a pseudonode of the second system and the all-ones id.
const std::array<IgpNodeId, 6> neighborIds{
    nodeIdOf(1, 0),
    nodeIdOf(1, 1),
    nodeIdOf(2, 0),
    nodeIdOf(2, 0xff),
    IgpNodeId(),
    IgpNodeId::fromBytes(std::array<std::uint8_t, 7>{0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff}.data())};
const std::array<IpAddr, 4> v4Pool{IpAddr(0), IpAddr(0x0a000001u), IpAddr(0x0a000002u), IpAddr(0xffffffffu)};
Ip6Addr v6(std::uint8_t first, std::uint8_t last) {
    std::array<std::uint8_t, 16> b{};
    b[0] = first;
    b[15] = last;
    return Ip6Addr::fromBytes(b.data());
}
const std::array<Ip6Addr, 3> v6Pool{Ip6Addr(), v6(0xfe, 1), v6(0xff, 0xff)};
const std::array<std::uint16_t, 4> mtPool{0, 2, 4095, 0xffff};
const std::array<float, 9> floatPool{0.0f,
                                     -0.0f,
                                     1e9f,
                                     std::numeric_limits<float>::infinity(),
                                     -std::numeric_limits<float>::infinity(),
                                     std::numeric_limits<float>::quiet_NaN(),
                                     std::numeric_limits<float>::max(),
                                     std::numeric_limits<float>::denorm_min(),
                                     -1.0f};

// A NaN never equals itself, so every merge that carries one publishes a change.
bool nanDrawn = false;

float pickFloat(FuzzedDataProvider& in);

IpGenPrefix prefixOf(unsigned i) {
    switch (i % 8) {
        case 0:
            return IpGenPrefix();
        case 1:
            return IpGenPrefix(IpAddr(0), 0);
        case 2:
            return IpGenPrefix(IpAddr(0x0a000000u), 8);
        case 3:
            return IpGenPrefix(IpAddr(0x0a000001u), 32);
        case 4:
            return IpGenPrefix(IpAddr(0x0a000001u), 8);  // host bits set: another key than case 2
        case 5:
            return IpGenPrefix(Ip6Addr(), 0);
        case 6:
            return IpGenPrefix(v6(0x20, 0), 32);
        default:
            return IpGenPrefix(v6(0xff, 0xff), 128);
    }
}

// SRLG records: the empty address (matched by neighbors without local addresses) and some of the
// local addresses that neighbor keys draw.
IpGenAddr srlgAddrOf(unsigned i) {
    const std::array<IpGenAddr, 6> pool{IpGenAddr(),          IpGenAddr(v4Pool[0]), IpGenAddr(v4Pool[1]),
                                        IpGenAddr(v4Pool[3]), IpGenAddr(v6Pool[0]), IpGenAddr(v6Pool[1])};
    return pool[i % pool.size()];
}

Routing::Isis::AreaId areaOf(unsigned i) {
    static const std::array<std::uint8_t, 13> bytes{0x49, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
    const std::array<std::size_t, 4> lengths{0, 1, 3, 13};
    const std::size_t length = lengths[i % 4];
    return length == 0 ? Routing::Isis::AreaId() : Routing::Isis::AreaId::fromBytes(bytes.data(), length);
}

// ---- building a parsed content from bytes ------------------------------------------------------

template <class T, std::size_t N>
const T& pick(FuzzedDataProvider& in, const std::array<T, N>& pool) {
    return pool[in.ConsumeIntegralInRange<std::size_t>(0, N - 1)];
}

float pickFloat(FuzzedDataProvider& in) {
    const float f = pick(in, floatPool);
    nanDrawn = nanDrawn || std::isnan(f);
    return f;
}

NeighborKey neighborKey(FuzzedDataProvider& in) {
    NeighborKey k(pick(in, neighborIds), IgpMultiTopologyId(pick(in, mtPool)));
    const auto sets = in.ConsumeIntegral<std::uint16_t>();
    for (unsigned i = 0; i < v4Pool.size(); ++i) {
        if (sets & (1u << i)) {
            k.localIpv4AddrIs(v4Pool[i]);
        }
        if (sets & (1u << (i + 4))) {
            k.remoteIpv4AddrIs(v4Pool[i]);
        }
    }
    for (unsigned i = 0; i < v6Pool.size(); ++i) {
        if (sets & (1u << (i + 8))) {
            k.localIpv6AddrIs(v6Pool[i]);
        }
        if (sets & (1u << (i + 11))) {
            k.remoteIpv6AddrIs(v6Pool[i]);
        }
    }
    return k;
}

// A value of each type a neighbor attribute holds, drawn from the input; small pools for members,
// so that merges meet equal ones.
template <class T>
using Of = std::type_identity<T>;
struct NeighborDraw {
    FuzzedDataProvider& in;

    Neighbor::NeighborAttrsPresent operator()(Of<Neighbor::NeighborAttrsPresent>) const {
        return Neighbor::NeighborAttrsPresent(in.ConsumeIntegral<std::uint8_t>() & 0x7f);
    }
    std::uint32_t operator()(Of<std::uint32_t>) const { return in.ConsumeIntegral<std::uint32_t>(); }
    float operator()(Of<float>) const { return pickFloat(in); }
    LinkDelay operator()(Of<LinkDelay>) const {
        return in.ConsumeBool() ? LinkDelay() : LinkDelay::fromWord(in.ConsumeIntegral<std::uint32_t>());
    }
    std::map<BwIndex, float> operator()(Of<std::map<BwIndex, float>>) const {
        std::map<BwIndex, float> m;
        for (auto mask = in.ConsumeIntegral<std::uint8_t>(); mask != 0; mask &= mask - 1) {
            m[BwIndex(static_cast<std::uint8_t>(__builtin_ctz(mask)))] = pickFloat(in);
        }
        return m;
    }
    std::map<AdminGroupIndex, std::uint32_t> operator()(Of<std::map<AdminGroupIndex, std::uint32_t>>) const {
        std::map<AdminGroupIndex, std::uint32_t> m;
        for (unsigned e = in.ConsumeIntegralInRange(0u, 3u); e > 0; --e) {
            m[AdminGroupIndex(in.ConsumeIntegralInRange<std::uint8_t>(0, 63))] =
                in.ConsumeIntegral<std::uint32_t>();
        }
        return m;
    }
    template <class T>
    std::map<T, T> operator()(Of<std::map<T, T>>) const {
        std::map<T, T> m;
        for (unsigned s = in.ConsumeIntegralInRange(0u, 2u); s > 0; --s) {
            const T v = member(Of<T>());
            m[v] = v;
        }
        return m;
    }
    std::uint32_t member(Of<std::uint32_t>) const { return in.ConsumeIntegral<std::uint32_t>(); }
    AdjacencySid member(Of<AdjacencySid>) const {
        return AdjacencySid(in.ConsumeIntegral<std::uint8_t>(), in.ConsumeIntegralInRange(0u, 3u),
                            in.ConsumeIntegralInRange<std::uint8_t>(0, 1));
    }
    LanAdjacencySid member(Of<LanAdjacencySid>) const {
        return LanAdjacencySid(
            in.ConsumeIntegral<std::uint8_t>(), in.ConsumeIntegralInRange(0u, 3u), 0,
            Routing::Isis::SystemId({1, 2, 3, 4, 5, in.ConsumeIntegralInRange<std::uint8_t>(0, 1)}));
    }
};

void fillNeighbor(FuzzedDataProvider& in, Neighbor& n) {
    IgpTest::applyState(n, IgpTest::drawState<Neighbor>(NeighborDraw{in}));
}

PrefixSid prefixSid(FuzzedDataProvider& in) {
    return PrefixSid(in.ConsumeIntegral<std::uint8_t>(),
                     in.ConsumeIntegralInRange(0u, 2u) == 2 ? 0xffffffffu : 100,
                     in.ConsumeIntegralInRange<std::uint8_t>(0, 129), in.ConsumeBool());
}

void fillPrefix(FuzzedDataProvider& in, Prefix& p) {
    const bool reachable = in.ConsumeBool();
    p.hasValidReachabilityIs(reachable);
    p.flagsIs(PrefixFlags(in.ConsumeIntegral<std::uint8_t>() & 1));
    if (reachable) {
        p.metricIs(in.ConsumeIntegral<std::uint32_t>());
        p.prefixSidIs(prefixSid(in));
        for (unsigned m = in.ConsumeIntegralInRange(0u, 3u); m > 0; --m) {
            p.prefixMetric()->metricIs(in.ConsumeIntegralInRange<std::uint8_t>(127, 130),
                                       in.ConsumeIntegral<std::uint32_t>());
        }
    } else {
        // A producer gives an unreachable prefix no metric, SID or flex-algo metrics (a key drawn
        // twice may have had them from its first fill).
        p.metricIs(0);
        p.prefixSidIs(PrefixSid());
        p.prefixMetric()->metricDelAll();
    }
    if (in.ConsumeBool()) {
        auto b = sidLabelBindingFactory();
        b->flagsIs(SidLabelBinding::SidLabelBindingFlags(in.ConsumeIntegral<std::uint8_t>() & 0x1f));
        b->rangeIs(in.ConsumeIntegral<std::uint16_t>());
        b->baseLabelSidIs(LabelSid(in.ConsumeIntegral<std::uint8_t>(), in.ConsumeIntegralInRange(0u, 2u),
                                   in.ConsumeBool()));
        b->basePrefixSidIs(prefixSid(in));
        b->lspFragmentIdIs(in.ConsumeIntegral<std::uint8_t>());
        p.sidLabelBindingIs(b);
    }
}

Poldo::Ptr<SrCapabilities> srCapabilities(FuzzedDataProvider& in) {
    if (!in.ConsumeBool()) {
        return nullptr;
    }
    auto caps = srCapabilitiesFactory();
    caps->srCapFlagIs(SrCapabilityFlags(in.ConsumeIntegral<std::uint8_t>() & 3));
    // The dump refuses more than the eight ranges a capability can hold, so no producer sets more.
    const auto ranges = in.ConsumeIntegralInRange<std::uint8_t>(0, 8);
    for (std::uint8_t i = 0; i < ranges; ++i) {
        caps->sidLabelRangeIs(
            SrSidRangeIndex(i),
            SrSidRange(in.ConsumeIntegral<std::uint32_t>(),
                       Lumo::MplsLabel(in.ConsumeIntegralInRange(0u, Lumo::MplsLabel::luWithdraw))));
    }
    caps->numRangesIs(ranges);
    return caps;
}

Poldo::Ptr<Node> node(FuzzedDataProvider& in, const IgpNodeId& id) {
    auto n = nodeFactory(id);
    n->flagsIs(NodeFlags(in.ConsumeIntegral<std::uint8_t>() & 3));
    n->hostNameIs(in.ConsumeRandomLengthString(12));
    if (in.ConsumeBool()) {
        auto areas = isisAreaIdColFactory();
        for (unsigned a = in.ConsumeIntegralInRange(0u, 3u); a > 0; --a) {
            areas->areaIdIs(areaOf(in.ConsumeIntegral<std::uint8_t>()), in.ConsumeBool());
        }
        n->isisAreaIdColIs(areas);
    }
    n->ipv4RouterIdIs(pick(in, v4Pool));
    n->ipv6RouterIdIs(pick(in, v6Pool));
    n->srCapabilitiesIs(srCapabilities(in));
    n->srlbIs(srCapabilities(in));
    if (in.ConsumeBool()) {
        auto msd = igpMsdColFactory();
        for (unsigned m = in.ConsumeIntegralInRange(0u, 3u); m > 0; --m) {
            msd->msdIs(in.ConsumeIntegralInRange(0u, 4u),
                       IgpMsd(in.ConsumeIntegral<std::uint8_t>(), in.ConsumeIntegral<std::uint8_t>()));
        }
        n->msdColIs(msd);
    }
    if (in.ConsumeBool()) {
        auto fads = igpFlexAlgoDefinitionColFactory();
        for (unsigned f = in.ConsumeIntegralInRange(0u, 2u); f > 0; --f) {
            IgpFlexAlgoDefinition d;
            d.flexAlgoIs(in.ConsumeIntegralInRange<std::uint8_t>(128, 130));
            d.metricTypeIs(in.ConsumeIntegral<std::uint8_t>());
            d.priorityIs(in.ConsumeIntegral<std::uint8_t>());
            for (unsigned w = in.ConsumeIntegralInRange(0u, 2u); w > 0; --w) {
                d.excludeAny()->valuePush(in.ConsumeIntegral<std::uint32_t>());
                d.excludeSrlg()->valueIs(in.ConsumeIntegral<std::uint32_t>());
            }
            fads->fadIs(d.flexAlgo(), d);
        }
        n->fadColIs(fads);
    }
    if (in.ConsumeBool()) {
        auto mts = igpMultiTopologyIdColFactory();
        for (unsigned m = in.ConsumeIntegralInRange(0u, 2u); m > 0; --m) {
            mts->mtIdValueIs(IgpMultiTopologyId(pick(in, mtPool)));
        }
        n->mtIdColIs(mts);
    }
    return n;
}

Poldo::Ptr<IsisLspParsedContent> parsedContent(FuzzedDataProvider& in, const IgpNodeId& id) {
    auto parsed = isisLspParsedContentFactory();
    parsed->nodeIs(node(in, id));
    // neighborIs and prefixIs find or create: a key drawn twice fills the same object again.
    for (unsigned n = in.ConsumeIntegralInRange(0u, 6u); n > 0; --n) {
        fillNeighbor(in, *parsed->neighborIs(neighborKey(in)));
    }
    for (unsigned p = in.ConsumeIntegralInRange(0u, 6u); p > 0; --p) {
        fillPrefix(in, *parsed->prefixIs(PrefixKey(prefixOf(in.ConsumeIntegral<std::uint8_t>()),
                                                   IgpMultiTopologyId(pick(in, mtPool)))));
    }
    for (unsigned s = in.ConsumeIntegralInRange(0u, 4u); s > 0; --s) {
        auto rec = parsed->parsedSrLgIs(srlgAddrOf(in.ConsumeIntegral<std::uint8_t>()));
        for (unsigned v = in.ConsumeIntegralInRange(0u, 3u); v > 0; --v) {
            rec->srlgValueIs(in.ConsumeIntegralInRange(0u, 2u) == 2 ? 0xffffffffu
                                                                    : in.ConsumeIntegralInRange(0u, 4u));
        }
    }
    return parsed;
}

// ---- mirrors ----------------------------------------------------------------------------------

/// The database's entries as its notifications tell them.
class DatabaseMirror final : public Poldo::Observer {
public:
    explicit DatabaseMirror(const Poldo::Ptr<IgpLspDatabase>& db) : db_(db) {
        db_->publisher().observerIs(*this);
    }
    ~DatabaseMirror() override { db_->publisher().observerDel(*this); }
    DatabaseMirror(const DatabaseMirror&) = delete;
    DatabaseMirror& operator=(const DatabaseMirror&) = delete;

    void onChange(const Poldo::Notification& n) override {
        ++notifications;
        const IgpNodeId* key = n.key<IgpNodeId>();
        IgpFuzz::check(n.attr() == IgpLspDatabase::Attr::lsp && key != nullptr,
                       "a database notification without an lsp key");
        if (const auto entry = db_->lsp(*key)) {
            entries[*key] = entry.get();
        } else {
            entries.erase(*key);
        }
    }

    std::map<IgpNodeId, const IgpLsp*> entries;
    unsigned notifications = 0;

private:
    Poldo::Ptr<IgpLspDatabase> db_;
};

/// A node's attributes as its notifications tell them; collections by identity (they are replaced
/// whole, never changed in place by a merge).
struct NodeState {
    unsigned flags = 0;
    std::string hostName;
    IpAddr v4;
    Ip6Addr v6;
    const void* areas = nullptr;
    const void* srCap = nullptr;
    const void* srlb = nullptr;
    const void* msd = nullptr;
    const void* fads = nullptr;
    const void* mts = nullptr;

    static NodeState of(const Node& n) {
        return {n.flags().value(),       n.hostName(),
                n.ipv4RouterId(),        n.ipv6RouterId(),
                n.isisAreaIdCol().get(), n.srCapabilities().get(),
                n.srlb().get(),          n.msdCol().get(),
                n.fadCol().get(),        n.mtIdCol().get()};
    }
    bool operator==(const NodeState&) const = default;
};

class NodeMirror final : public Poldo::Observer {
public:
    explicit NodeMirror(const Poldo::Ptr<Node>& node) : node_(node), state_(NodeState::of(*node)) {
        node_->publisher().observerIs(*this);
    }
    ~NodeMirror() override { node_->publisher().observerDel(*this); }
    NodeMirror(const NodeMirror&) = delete;
    NodeMirror& operator=(const NodeMirror&) = delete;

    void onChange(const Poldo::Notification& n) override {
        ++notifications_;
        const NodeState now = NodeState::of(*node_);
        using A = Node::Attr;
        switch (n.attr()) {
            case A::flags:
                state_.flags = now.flags;
                break;
            case A::hostName:
                state_.hostName = now.hostName;
                break;
            case A::ipv4RouterId:
                state_.v4 = now.v4;
                break;
            case A::ipv6RouterId:
                state_.v6 = now.v6;
                break;
            case A::isisAreaIdCol:
                state_.areas = now.areas;
                break;
            case A::srCapabilities:
                state_.srCap = now.srCap;
                break;
            case A::srlb:
                state_.srlb = now.srlb;
                break;
            case A::msdCol:
                state_.msd = now.msd;
                break;
            case A::fadCol:
                state_.fads = now.fads;
                break;
            case A::mtIdCol:
                state_.mts = now.mts;
                break;
            default:
                IgpFuzz::fail("a node notification of an unknown attribute");
        }
    }
    bool matches() const { return state_ == NodeState::of(*node_); }
    unsigned notifications() const { return notifications_; }

private:
    Poldo::Ptr<Node> node_;
    NodeState state_;
    unsigned notifications_ = 0;
};

// ---- the world --------------------------------------------------------------------------------

// Bandwidths compare with the ordinary `!=`, so a zero of the other sign is no change and is not
// written: compare neighbor attributes with both zeros as one.
IgpTest::NeighborState attributesOf(const Neighbor& n) {
    IgpTest::NeighborState s = IgpTest::snap(n);
    IgpTest::unsignZeros(s);
    return s;
}

struct Watched {
    std::unique_ptr<IgpTest::Mirror> entry;
    std::unique_ptr<NodeMirror> node;
};

class World {
public:
    World() : db_(igpLspDatabaseFactory(igpLevelIsisLevel2)), dbMirror_(db_) {}

    void step(FuzzedDataProvider& in) {
        const IgpNodeId id = pick(in, entryIds);
        switch (in.ConsumeIntegralInRange(0, 5)) {
            case 0:
            case 1:
                merge(in, id);
                break;
            case 2: {
                const auto held = db_->lsp(id);
                const auto removed = db_->lspDel(id);
                IgpFuzz::check(removed == held, "lspDel returned another entry than the one held");
                watched_.erase(id);
                break;
            }
            case 3:
                replace(in, id);
                break;
            case 4: {
                const unsigned before = dbMirror_.notifications;
                if (const auto held = db_->lsp(id)) {
                    db_->lspIs(held);
                }
                IgpFuzz::check(dbMirror_.notifications == before,
                               "inserting the entry held published a change");
                break;
            }
            default:
                db_->lspDelAll();
                watched_.clear();
                break;
        }
        checkCounts();
        checkHeld(id);
        checkEntry(id);
    }

private:
    /// A new entry for `id` with its node, watched from the start.
    Poldo::Ptr<IgpLsp> newEntry(const IgpNodeId& id) {
        auto entry = igpLspFactory(id);
        entry->nodeIs(nodeFactory(id));
        watched_[id] =
            Watched{std::make_unique<IgpTest::Mirror>(entry), std::make_unique<NodeMirror>(entry->node())};
        return entry;
    }

    void merge(FuzzedDataProvider& in, const IgpNodeId& id) {
        Poldo::Ptr<IgpLsp> entry = db_->lsp(id);
        if (!entry) {
            entry = newEntry(id);
            db_->lspIs(entry);
        }
        const auto recipe = in.ConsumeBytes<std::uint8_t>(in.ConsumeIntegralInRange<std::size_t>(0, 400));
        nanDrawn = false;
        const auto content = mergeInto(*entry, build(id, recipe));
        switch (in.ConsumeIntegralInRange(0, 2)) {
            case 1: {
                // The same LSP flooded again: every key is held, so every object keeps its identity,
                // and nothing changes but the bindings, which a merge always replaces.
                const Watched& w = watched_.at(id);
                const unsigned heard = w.entry->notifications() - w.entry->bindingNotifications();
                const unsigned nodeHeard = w.node->notifications();
                mergeInto(*entry, build(id, recipe));
                if (!nanDrawn) {
                    IgpFuzz::check(w.entry->notifications() - w.entry->bindingNotifications() == heard,
                                   "merging an unchanged LSP again published a change");
                    IgpFuzz::check(w.node->notifications() == nodeHeard,
                                   "merging an unchanged LSP again published a node change");
                }
                break;
            }
            case 2:
                // The very content merged again: each member merges from itself.
                mergeInto(*entry, content);
                break;
            default:
                break;
        }
    }

    static Poldo::Ptr<IsisLspParsedContent> build(const IgpNodeId& id,
                                                  const std::vector<std::uint8_t>& recipe) {
        FuzzedDataProvider in(recipe.data(), recipe.size());
        return parsedContent(in, id);
    }

    void replace(FuzzedDataProvider& in, const IgpNodeId& id) {
        watched_.erase(id);
        auto entry = newEntry(id);
        mergeInto(*entry,
                  build(id, in.ConsumeBytes<std::uint8_t>(in.ConsumeIntegralInRange<std::size_t>(0, 400))));
        db_->lspIs(entry);
        IgpFuzz::check(db_->lsp(id) == entry, "lspIs did not replace the entry");
    }

    /// Merges `parsed` into `entry` as an agent does and checks the outcome; returns `parsed`.
    Poldo::Ptr<IsisLspParsedContent> mergeInto(IgpLsp& entry,
                                               const Poldo::Ptr<IsisLspParsedContent>& parsed) {
        std::map<NeighborKey, const Neighbor*> neighborsBefore;
        for (auto it = entry.neighbor().begin(); it != entry.neighbor().end(); ++it) {
            neighborsBefore[it->key] = it->value.get();
        }
        std::map<PrefixKey, const Prefix*> prefixesBefore;
        for (auto it = entry.prefix().begin(); it != entry.prefix().end(); ++it) {
            prefixesBefore[it->key] = it->value.get();
        }

        entry.updateNeighbors(parsed);
        entry.updatePrefixes(parsed);
        entry.node()->updateNodeAttrs(parsed->nodeRawPtr());

        IgpFuzz::check(entry.neighbor().size() == parsed->neighbor().size(),
                       "the entry's neighbors are not the parsed ones");
        for (auto it = entry.neighbor().begin(); it != entry.neighbor().end(); ++it) {
            const auto key = [&] { return it->key.toStrep(); };
            IgpFuzz::check(it->value->key() == it->key, "a neighbor sits under another key", key);
            const auto theirs = parsed->neighbor(it->key);
            IgpFuzz::check(theirs != nullptr, "the entry holds a neighbor the parsed content lacks", key);
            const auto before = neighborsBefore.find(it->key);
            const Neighbor* expected = before != neighborsBefore.end() ? before->second : theirs.get();
            IgpFuzz::check(it->value.get() == expected, "a neighbor did not keep its identity", key);
            const IgpTest::NeighborState mine = attributesOf(*it->value);
            const IgpTest::NeighborState wanted = attributesOf(*theirs);
            IgpFuzz::check(same(mine, wanted), "a kept neighbor did not take the parsed attributes", [&] {
                return key() + ": " + IgpTest::text(mine) + " vs parsed " + IgpTest::text(wanted);
            });
        }
        IgpFuzz::check(entry.prefix().size() == parsed->prefix().size(),
                       "the entry's prefixes are not the parsed ones");
        for (auto it = entry.prefix().begin(); it != entry.prefix().end(); ++it) {
            IgpFuzz::check(it->value->prefixKey() == it->key, "a prefix sits under another key");
            const auto theirs = parsed->prefix(it->key);
            IgpFuzz::check(theirs != nullptr, "the entry holds a prefix the parsed content lacks");
            const auto before = prefixesBefore.find(it->key);
            const Prefix* expected = before != prefixesBefore.end() ? before->second : theirs.get();
            IgpFuzz::check(it->value.get() == expected, "a prefix did not keep its identity");
            // Flex-algo metrics aside (a reachable prefix keeps those the new one lacks).
            const IgpTest::PrefixState mine = IgpTest::snap(*it->value);
            const IgpTest::PrefixState wanted = IgpTest::snap(*theirs);
            IgpFuzz::check(same(mine, wanted), "a kept prefix did not take the parsed attributes",
                           [&] { return IgpTest::text(mine) + " vs parsed " + IgpTest::text(wanted); });
        }
        // A node with the parsed node's attributes and collection objects prints like it; only one
        // that kept a collection of its own (found equal) needs printing to compare contents.
        if (!(NodeState::of(*entry.node()) == NodeState::of(*parsed->node()))) {
            const std::string mergedNode = formatted(*entry.node());
            const std::string parsedNode = formatted(*parsed->node());
            IgpFuzz::check(mergedNode == parsedNode, "the merged node differs from the parsed one",
                           [&] { return mergedNode + " vs parsed " + parsedNode; });
        }
        return parsed;
    }

    /// The database's shape: each entry under its own id; the database, its count, its observer's
    /// mirror and the watched entries are one set of objects.
    void checkShape() const {
        std::size_t held = 0;
        for (auto it = db_->lsp().begin(); it != db_->lsp().end(); ++it) {
            const IgpLsp* entry = it->get();
            IgpFuzz::check(db_->lsp(entry->nodeId()).get() == entry,
                           "an entry is not found under its own node id");
            const auto mirrored = dbMirror_.entries.find(entry->nodeId());
            IgpFuzz::check(mirrored != dbMirror_.entries.end() && mirrored->second == entry,
                           "the database differs from its observer's mirror");
            IgpFuzz::check(watched_.contains(entry->nodeId()),
                           "an entry is held that the fuzzer did not put there");
            ++held;
        }
        IgpFuzz::check(held == db_->lspCount(), "the database counts another number of entries");
        IgpFuzz::check(held == dbMirror_.entries.size(), "the database differs from its observer's mirror");
        IgpFuzz::check(held == watched_.size(), "a watched entry is gone");
    }

    /// The database, its count, its observer's mirror and the watched entries have one size.
    void checkCounts() const {
        IgpFuzz::check(db_->lspCount() == dbMirror_.entries.size(),
                       "the database differs from its observer's mirror");
        IgpFuzz::check(db_->lspCount() == watched_.size(),
                       "the database holds other entries than the fuzzer put there");
    }

    /// The entry of `id` is the object its observer's mirror and the fuzzer know, under its own id.
    void checkHeld(const IgpNodeId& id) const {
        const auto entry = db_->lsp(id);
        const auto mirrored = dbMirror_.entries.find(id);
        IgpFuzz::check((mirrored == dbMirror_.entries.end() ? nullptr : mirrored->second) == entry.get(),
                       "the database differs from its observer's mirror");
        IgpFuzz::check(watched_.contains(id) == (entry != nullptr),
                       "the database holds other entries than the fuzzer put there");
        IgpFuzz::check(entry == nullptr || entry->nodeId() == id,
                       "an entry is not found under its own node id");
    }

    /// The entry of `id` (when held) equals what its observers rebuilt from notifications.
    void checkEntry(const IgpNodeId& id) const {
        const auto w = watched_.find(id);
        if (w == watched_.end()) {
            return;
        }
        const auto entry = db_->lsp(id);
        IgpFuzz::check(entry != nullptr, "a watched entry is gone");
        IgpFuzz::check(w->second.node->matches(), "the node differs from its observer's mirror");
        checkMirror(*entry, *w->second.entry);
    }

public:
    /// Every entry in whole, and the dump (which needs every entry to have a node).
    void checkWhole() const {
        checkShape();
        for (const auto& [id, w] : watched_) {
            checkEntry(id);
        }
        auto sink = Umbo::DumpContext::discardingDumpContextIs();
        db_->dumpState(sink, 0);
    }

private:
    static void checkMirror(const IgpLsp& entry, const IgpTest::Mirror& mirror) {
        IgpFuzz::check(mirror.unexpected() == 0, "a notification the mirror could not place");
        IgpFuzz::check(mirror.fromDetached() == 0, "an object changed after it left the entry");
        IgpFuzz::check(mirror.neighbors().size() == entry.neighbor().size(),
                       "the mirror has other neighbors");
        for (const auto& member : mirror.neighbors()) {
            // Named, not bound: clang 14 lambdas cannot capture structured bindings.
            const NeighborKey& k = member.first;
            const IgpTest::NeighborState& s = member.second;
            const auto n = entry.neighbor(k);
            IgpFuzz::check(n != nullptr, "the mirror has a neighbor the entry lacks",
                           [&] { return k.toStrep(); });
            const IgpTest::NeighborState now = IgpTest::snap(*n);
            IgpFuzz::check(same(s, now), "an unpublished neighbor change", [&] {
                return k.toStrep() + ": " + IgpTest::text(s) + " vs " + IgpTest::text(now);
            });
        }
        IgpFuzz::check(mirror.prefixes().size() == entry.prefix().size(), "the mirror has other prefixes");
        for (const auto& member : mirror.prefixes()) {
            const IgpTest::PrefixState& s = member.second;
            const auto p = entry.prefix(member.first);
            IgpFuzz::check(p != nullptr, "the mirror has a prefix the entry lacks");
            const IgpTest::PrefixState now = IgpTest::snap(*p);
            IgpFuzz::check(same(s, now), "an unpublished prefix change",
                           [&] { return IgpTest::text(s) + " vs " + IgpTest::text(now); });
        }
    }

    Poldo::Ptr<IgpLspDatabase> db_;
    DatabaseMirror dbMirror_;
    std::map<IgpNodeId, Watched> watched_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const IgpFuzz::Census before = IgpFuzz::Census::now();
    {
        FuzzedDataProvider in(data, size);
        World world;
        for (int steps = 0; steps < 64 && in.remaining_bytes() > 0; ++steps) {
            world.step(in);
        }
        world.checkWhole();
    }
    const std::string leftAlive = IgpFuzz::Census::now().differenceFrom(before);
    IgpFuzz::check(leftAlive.empty(), "objects alive after teardown", leftAlive);
    return 0;
}
