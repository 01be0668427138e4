// Stateful merges driven by arbitrary bytes: a program of up to 64 steps over one database (merge a
// parsed content drawn from small pools, again or not; delete; replace; re-insert; delete all).
// README.md lists what is checked after each step and at the end of the input.
#include <fuzzer/FuzzedDataProvider.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "EntryMirror.h"
#include "FuzzSupport.h"

namespace {

using namespace Routing::IgpCommon;
using IgpFuzz::check;
using Lumo::Ip6Addr;
using Lumo::IpAddr;
using Lumo::IpGenAddr;
using Lumo::IpGenPrefix;
using In = FuzzedDataProvider;

IgpNodeId nodeIdOf(std::uint8_t sysLast, std::uint8_t pseudonode, std::uint8_t fill = 0x10) {
    const std::array<std::uint8_t, 7> b{0x19, 0x21, 0x68, 0x00, fill, sysLast, pseudonode};
    return IgpNodeId::fromBytes(b.data());
}
Ip6Addr v6(std::uint8_t first, std::uint8_t last) {
    std::array<std::uint8_t, 16> b{};
    b[0] = first;
    b[15] = last;
    return Ip6Addr::fromBytes(b.data());
}

// Entries: two systems, a pseudonode of the first and the all-zero id; neighbors add a
// pseudonode of the second system and the all-ones id.
const std::array<IgpNodeId, 4> entryIds{nodeIdOf(1, 0), nodeIdOf(1, 1), nodeIdOf(2, 0), IgpNodeId()};
const std::array<std::uint8_t, 7> allOnes{0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff};
const std::array<IgpNodeId, 6> neighborIds{nodeIdOf(1, 0), nodeIdOf(1, 1),
                                           nodeIdOf(2, 0), nodeIdOf(2, 0xff),
                                           IgpNodeId(),    IgpNodeId::fromBytes(allOnes.data())};
const std::array<IpAddr, 4> v4Pool{IpAddr(0), IpAddr(0x0a000001u), IpAddr(0x0a000002u), IpAddr(0xffffffffu)};
const std::array<Ip6Addr, 3> v6Pool{Ip6Addr(), v6(0xfe, 1), v6(0xff, 0xff)};
const std::array<std::uint16_t, 4> mtPool{0, 2, 4095, 0xffff};
using Limits = std::numeric_limits<float>;
// The default prefix, zero-length ones, host bits set (10.0.0.1/8 is another key than 10.0.0.0/8).
using P = IpGenPrefix;
// clang-format off
const std::array<float, 9> floatPool{0.0f, -0.0f, 1e9f, Limits::infinity(), -Limits::infinity(), Limits::quiet_NaN(),
                                     Limits::max(), Limits::denorm_min(), -1.0f};
const std::array<P, 8> prefixPool{P(), P(IpAddr(0), 0), P(IpAddr(0x0a000000u), 8), P(IpAddr(0x0a000001u), 32),
                                  P(IpAddr(0x0a000001u), 8), P(Ip6Addr(), 0), P(v6(0x20, 0), 32),
                                  P(v6(0xff, 0xff), 128)};
// clang-format on
// SRLG records: the empty address (matched by neighbors without local addresses) and some local
// addresses that neighbor keys draw.
const std::array<IpGenAddr, 6> srlgAddrPool{IpGenAddr(),          IpGenAddr(v4Pool[0]), IpGenAddr(v4Pool[1]),
                                            IpGenAddr(v4Pool[3]), IpGenAddr(v6Pool[0]), IpGenAddr(v6Pool[1])};

// A NaN never equals itself, so every merge that carries one publishes a change.
bool nanDrawn = false;

template <class T, std::size_t N>
const T& pick(In& in, const std::array<T, N>& pool) {
    return pool[in.ConsumeIntegralInRange<std::size_t>(0, N - 1)];
}
float pickFloat(In& in) {
    const float f = pick(in, floatPool);
    nanDrawn = nanDrawn || std::isnan(f);
    return f;
}
unsigned upTo(In& in, unsigned n) {
    return in.ConsumeIntegralInRange(0u, n);
}

NeighborKey neighborKey(In& in) {
    NeighborKey k(pick(in, neighborIds), IgpMultiTopologyId(pick(in, mtPool)));
    const auto sets = in.ConsumeIntegral<std::uint16_t>();
    for (unsigned i = 0; i < 4; ++i) {
        if (sets & (1u << i))
            k.localIpv4AddrIs(v4Pool[i]);
        if (sets & (1u << (i + 4)))
            k.remoteIpv4AddrIs(v4Pool[i]);
        if (i < 3 && (sets & (1u << (i + 8))))
            k.localIpv6AddrIs(v6Pool[i]);
        if (i < 3 && (sets & (1u << (i + 11))))
            k.remoteIpv6AddrIs(v6Pool[i]);
    }
    return k;
}

PrefixSid prefixSid(In& in) {
    return PrefixSid(in.ConsumeIntegral<std::uint8_t>(), upTo(in, 2) == 2 ? 0xffffffffu : 100,
                     in.ConsumeIntegralInRange<std::uint8_t>(0, 129), in.ConsumeBool());
}

Poldo::Ptr<SrCapabilities> srCapabilities(In& in) {
    if (!in.ConsumeBool()) {
        return nullptr;
    }
    auto caps = srCapabilitiesFactory();
    caps->srCapFlagIs(SrCapabilityFlags(in.ConsumeIntegral<std::uint8_t>() & 3));
    // The dump refuses more than the eight ranges a capability can hold, so no producer sets more.
    const auto ranges = in.ConsumeIntegralInRange<std::uint8_t>(0, 8);
    for (std::uint8_t i = 0; i < ranges; ++i) {
        caps->sidLabelRangeIs(SrSidRangeIndex(i),
                              SrSidRange(in.ConsumeIntegral<std::uint32_t>(),
                                         Lumo::MplsLabel(upTo(in, Lumo::MplsLabel::luWithdraw))));
    }
    caps->numRangesIs(ranges);
    return caps;
}

/// A collection made by `make` and filled `upTo(in, most)` times by `add`, or none.
template <class Make, class Add>
auto maybeCollection(In& in, unsigned most, Make&& make, Add&& add) {
    decltype(make()) c;
    if (in.ConsumeBool()) {
        c = make();
        for (unsigned n = upTo(in, most); n > 0; --n) {
            add(*c);
        }
    }
    return c;
}

// A value of each type a neighbor, node or prefix attribute holds, for IgpTest::drawState; small pools for
// members, so that merges meet equal ones.
template <class T>
using Of = std::type_identity<T>;
struct Draw {
    In& in;

    Neighbor::NeighborAttrsPresent operator()(Of<Neighbor::NeighborAttrsPresent>) const {
        return Neighbor::NeighborAttrsPresent(in.ConsumeIntegral<std::uint8_t>() & 0x7f);
    }
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
        for (unsigned e = upTo(in, 3); e > 0; --e) {
            m[AdminGroupIndex(in.ConsumeIntegralInRange<std::uint8_t>(0, 63))] =
                in.ConsumeIntegral<std::uint32_t>();
        }
        return m;
    }
    template <class T>
    std::map<T, T> operator()(Of<std::map<T, T>>) const {
        std::map<T, T> m;
        for (unsigned s = upTo(in, 2); s > 0; --s) {
            const T v = member(Of<T>());
            m[v] = v;
        }
        return m;
    }
    std::uint32_t member(Of<std::uint32_t>) const { return in.ConsumeIntegral<std::uint32_t>(); }
    AdjacencySid member(Of<AdjacencySid>) const {
        return AdjacencySid(in.ConsumeIntegral<std::uint8_t>(), upTo(in, 3),
                            in.ConsumeIntegralInRange<std::uint8_t>(0, 1));
    }
    LanAdjacencySid member(Of<LanAdjacencySid>) const {
        return LanAdjacencySid(
            in.ConsumeIntegral<std::uint8_t>(), upTo(in, 3), 0,
            Routing::Isis::SystemId({1, 2, 3, 4, 5, in.ConsumeIntegralInRange<std::uint8_t>(0, 1)}));
    }
    bool operator()(Of<bool>) const { return in.ConsumeBool(); }
    std::uint32_t operator()(Of<std::uint32_t>) const { return in.ConsumeIntegral<std::uint32_t>(); }
    NodeFlags operator()(Of<NodeFlags>) const { return NodeFlags(in.ConsumeIntegral<std::uint8_t>() & 3); }
    PrefixFlags operator()(Of<PrefixFlags>) const {
        return PrefixFlags(in.ConsumeIntegral<std::uint8_t>() & 1);
    }
    Poldo::String operator()(Of<Poldo::String>) const { return in.ConsumeRandomLengthString(12); }
    IpAddr operator()(Of<IpAddr>) const { return pick(in, v4Pool); }
    Ip6Addr operator()(Of<Ip6Addr>) const { return pick(in, v6Pool); }
    PrefixSid operator()(Of<PrefixSid>) const { return prefixSid(in); }
    Poldo::Ptr<SrCapabilities> operator()(Of<Poldo::Ptr<SrCapabilities>>) const { return srCapabilities(in); }
    std::map<std::uint8_t, std::uint32_t> operator()(Of<std::map<std::uint8_t, std::uint32_t>>) const {
        std::map<std::uint8_t, std::uint32_t> m;
        for (unsigned n = upTo(in, 3); n > 0; --n) {
            m[in.ConsumeIntegralInRange<std::uint8_t>(127, 130)] = in.ConsumeIntegral<std::uint32_t>();
        }
        return m;
    }
    Poldo::Ptr<SidLabelBinding> operator()(Of<Poldo::Ptr<SidLabelBinding>>) const {
        if (!in.ConsumeBool()) {
            return nullptr;
        }
        auto b = sidLabelBindingFactory();
        b->flagsIs(SidLabelBinding::SidLabelBindingFlags(in.ConsumeIntegral<std::uint8_t>() & 0x1f));
        b->rangeIs(in.ConsumeIntegral<std::uint16_t>());
        b->baseLabelSidIs(LabelSid(in.ConsumeIntegral<std::uint8_t>(), upTo(in, 2), in.ConsumeBool()));
        b->basePrefixSidIs(prefixSid(in));
        b->lspFragmentIdIs(in.ConsumeIntegral<std::uint8_t>());
        return b;
    }
    Poldo::Ptr<IsisAreaIdCol> operator()(Of<Poldo::Ptr<IsisAreaIdCol>>) const {
        static const std::array<std::uint8_t, 13> area{0x49, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
        return maybeCollection(in, 3, isisAreaIdColFactory, [&](IsisAreaIdCol& c) {
            const std::size_t length =
                std::array<std::size_t, 4>{0, 1, 3, 13}[in.ConsumeIntegral<std::uint8_t>() % 4];
            c.areaIdIs(
                length ? Routing::Isis::AreaId::fromBytes(area.data(), length) : Routing::Isis::AreaId(),
                in.ConsumeBool());
        });
    }
    Poldo::Ptr<IgpMsdCol> operator()(Of<Poldo::Ptr<IgpMsdCol>>) const {
        return maybeCollection(in, 3, igpMsdColFactory, [&](IgpMsdCol& c) {
            c.msdIs(upTo(in, 4),
                    IgpMsd(in.ConsumeIntegral<std::uint8_t>(), in.ConsumeIntegral<std::uint8_t>()));
        });
    }
    Poldo::Ptr<IgpFlexAlgoDefinitionCol> operator()(Of<Poldo::Ptr<IgpFlexAlgoDefinitionCol>>) const {
        return maybeCollection(in, 2, igpFlexAlgoDefinitionColFactory, [&](IgpFlexAlgoDefinitionCol& c) {
            IgpFlexAlgoDefinition d;
            d.flexAlgoIs(in.ConsumeIntegralInRange<std::uint8_t>(128, 130));
            d.metricTypeIs(in.ConsumeIntegral<std::uint8_t>());
            d.priorityIs(in.ConsumeIntegral<std::uint8_t>());
            for (unsigned w = upTo(in, 2); w > 0; --w) {
                d.excludeAny()->valuePush(in.ConsumeIntegral<std::uint32_t>());
                d.excludeSrlg()->valueIs(in.ConsumeIntegral<std::uint32_t>());
            }
            c.fadIs(d.flexAlgo(), d);
        });
    }
    Poldo::Ptr<IgpMultiTopologyIdCol> operator()(Of<Poldo::Ptr<IgpMultiTopologyIdCol>>) const {
        return maybeCollection(in, 2, igpMultiTopologyIdColFactory, [&](IgpMultiTopologyIdCol& c) {
            c.mtIdValueIs(IgpMultiTopologyId(pick(in, mtPool)));
        });
    }
};

Poldo::Ptr<IsisLspParsedContent> parsedContent(const IgpNodeId& id, const std::vector<std::uint8_t>& recipe) {
    In in(recipe.data(), recipe.size());
    auto parsed = isisLspParsedContentFactory();
    auto node = nodeFactory(id);
    IgpTest::applyState(*node, IgpTest::drawState<Node>(Draw{in}));
    parsed->nodeIs(node);
    // neighborIs and prefixIs find or create: a key drawn twice fills the same object again.
    for (unsigned n = upTo(in, 6); n > 0; --n) {
        IgpTest::applyState(*parsed->neighborIs(neighborKey(in)), IgpTest::drawState<Neighbor>(Draw{in}));
    }
    for (unsigned n = upTo(in, 6); n > 0; --n) {
        Prefix& p = *parsed->prefixIs(PrefixKey(pick(in, prefixPool), IgpMultiTopologyId(pick(in, mtPool))));
        auto s = IgpTest::drawState<Prefix>(Draw{in});
        // A producer gives an unreachable prefix no metric, SID or flex-algo metrics; a key drawn
        // twice drops the flex-algo metrics of its first fill.
        if (!std::get<bool>(s)) {
            std::get<std::uint32_t>(s) = 0;
            std::get<PrefixSid>(s) = PrefixSid();
            std::get<std::map<std::uint8_t, std::uint32_t>>(s).clear();
        }
        p.prefixMetric()->metricDelAll();
        IgpTest::applyState(p, s);
    }
    for (unsigned s = upTo(in, 4); s > 0; --s) {
        auto rec = parsed->parsedSrLgIs(pick(in, srlgAddrPool));
        for (unsigned v = upTo(in, 3); v > 0; --v) {
            rec->srlgValueIs(upTo(in, 2) == 2 ? 0xffffffffu : upTo(in, 4));
        }
    }
    return parsed;
}

// ---- comparing and mirroring -------------------------------------------------------------------

/// Bandwidths compare with `!=`, so a zero of the other sign is no change and is not written.
bool same(const Neighbor& a, const Neighbor& b) {
    auto x = IgpTest::snap(a), y = IgpTest::snap(b);
    IgpTest::unsignZeros(x);
    IgpTest::unsignZeros(y);
    return IgpTest::sameState(x, y);
}
/// Flex-algo metrics aside (their contents never publish, and a reachable prefix keeps those a new
/// one lacks); the binding by value.
bool same(const IgpTest::PrefixState& a, const IgpTest::PrefixState& b) {
    const auto bound = [](const IgpTest::PrefixState& s) {
        const auto& x = s.binding.value_or(IgpTest::BindingState{});
        return std::tuple{s.flags, s.metric,   s.sid,   s.reachable, x.flags,
                          x.range, x.fragment, x.label, x.prefixSid};
    };
    return a.binding.has_value() == b.binding.has_value() && bound(a) == bound(b);
}

/// A node's attributes, collections by identity (the tuple's `==`): a merge replaces them whole.
using NodeState = IgpTest::AttrState<Node>;

/// Hears a publisher: `f` re-reads what each notification names.
template <class Owner>
class Watcher final : public Poldo::Observer {
public:
    using OnChange = void (*)(Watcher&, const Poldo::Notification&);
    Watcher(const Poldo::Ptr<Owner>& o, OnChange f) : owner(o), f_(f) {
        owner->publisher().observerIs(*this);
    }
    ~Watcher() override { owner->publisher().observerDel(*this); }
    void onChange(const Poldo::Notification& n) override {
        ++heard;
        f_(*this, n);
    }

    Poldo::Ptr<Owner> owner;
    NodeState nodeState;                         // a node's watcher
    std::map<IgpNodeId, const IgpLsp*> entries;  // a database's watcher
    unsigned heard = 0;

private:
    OnChange f_;
};

void onNode(Watcher<Node>& w, const Poldo::Notification& n) {
    check(IgpTest::rereadAttr(w.nodeState, *w.owner, n), "a node notification of an unknown attribute");
}
void onDatabase(Watcher<IgpLspDatabase>& w, const Poldo::Notification& n) {
    const IgpNodeId* key = n.key<IgpNodeId>();
    check(n.attr() == IgpLspDatabase::Attr::lsp && key != nullptr,
          "a database notification without an lsp key");
    if (const auto entry = w.owner->lsp(*key)) {
        w.entries[*key] = entry.get();
    } else {
        w.entries.erase(*key);
    }
}

struct Watched {
    std::unique_ptr<IgpTest::Mirror> entry;
    std::unique_ptr<Watcher<Node>> node;
};

/// The merged members: each under its own key, one per parsed key, the object held before under
/// that key or else the parsed one, equal to the parsed one by `same`.
template <class Coll, class Before, class Find, class KeyOf, class Same>
void checkMerged(const Coll& merged, std::size_t parsedSize, const Before& before, Find&& parsed,
                 KeyOf&& keyOf, Same&& same) {
    check(merged.size() == parsedSize, "the entry's members are not the parsed ones");
    for (auto it = merged.begin(); it != merged.end(); ++it) {
        check(keyOf(*it->value) == it->key, "a member sits under another key");
        const auto theirs = parsed(it->key);
        check(theirs != nullptr, "the entry holds a member the parsed content lacks");
        const auto held = before.find(it->key);
        check(it->value.get() == (held != before.end() ? held->second : theirs.get()),
              "a member did not keep its identity");
        check(same(*it->value, *theirs), "a kept member did not take the parsed attributes");
    }
}

template <class Coll>
auto objectsOf(const Coll& c) {
    std::map<std::remove_cvref_t<decltype(c.begin()->key)>, const void*> m;
    for (auto it = c.begin(); it != c.end(); ++it) {
        m[it->key] = it->value.get();
    }
    return m;
}

class World {
public:
    World() : db_(igpLspDatabaseFactory(igpLevelIsisLevel2)), dbWatcher_(db_, onDatabase) {}

    void step(In& in) {
        const IgpNodeId id = pick(in, entryIds);
        switch (in.ConsumeIntegralInRange(0, 5)) {
            case 0:
            case 1:
                merge(in, id);
                break;
            case 2: {
                const auto held = db_->lsp(id);
                check(db_->lspDel(id) == held, "lspDel returned another entry than the one held");
                watched_.erase(id);
                break;
            }
            case 3: {
                watched_.erase(id);
                auto entry = newEntry(id);
                mergeInto(*entry, parsedContent(id, recipe(in)));
                db_->lspIs(entry);
                check(db_->lsp(id) == entry, "lspIs did not replace the entry");
                break;
            }
            case 4: {
                const unsigned before = dbWatcher_.heard;
                if (const auto held = db_->lsp(id)) {
                    db_->lspIs(held);
                }
                check(dbWatcher_.heard == before, "inserting the entry held published a change");
                break;
            }
            default:
                db_->lspDelAll();
                watched_.clear();
        }
        checkEntry(id);
    }

    /// Every entry, the database's shape, and the dump (which needs every entry to have a node).
    void checkWhole() const {
        std::size_t held = 0;
        for (auto it = db_->lsp().begin(); it != db_->lsp().end(); ++it, ++held) {
            check(db_->lsp((*it)->nodeId()) == *it, "an entry is not found under its own node id");
            checkEntry((*it)->nodeId());
        }
        check(held == db_->lspCount(), "the database counts another number of entries");
        for (const auto& [id, w] : watched_) {
            checkEntry(id);
        }
        auto sink = Umbo::DumpContext::discardingDumpContextIs();
        db_->dumpState(sink, 0);
    }

private:
    static std::vector<std::uint8_t> recipe(In& in) {
        return in.ConsumeBytes<std::uint8_t>(in.ConsumeIntegralInRange<std::size_t>(0, 400));
    }

    /// A new entry for `id` with its node, watched from the start.
    Poldo::Ptr<IgpLsp> newEntry(const IgpNodeId& id) {
        auto entry = igpLspFactory(id);
        entry->nodeIs(nodeFactory(id));
        auto node = std::make_unique<Watcher<Node>>(entry->node(), onNode);
        node->nodeState = IgpTest::snapAttrs(*entry->node());
        watched_[id] = Watched{std::make_unique<IgpTest::Mirror>(entry), std::move(node)};
        return entry;
    }

    void merge(In& in, const IgpNodeId& id) {
        Poldo::Ptr<IgpLsp> entry = db_->lsp(id);
        if (!entry) {
            db_->lspIs(entry = newEntry(id));
        }
        const auto bytes = recipe(in);
        nanDrawn = false;
        const auto content = parsedContent(id, bytes);
        mergeInto(*entry, content);
        const unsigned again = in.ConsumeIntegralInRange(0, 2);
        if (again == 1) {
            // The same LSP flooded again: every key is held, so every object keeps its identity.
            const Watched& w = watched_.at(id);
            const unsigned heard = w.entry->notifications() - w.entry->bindingNotifications();
            const unsigned nodeHeard = w.node->heard;
            mergeInto(*entry, parsedContent(id, bytes));
            check(nanDrawn || w.entry->notifications() - w.entry->bindingNotifications() == heard,
                  "merging an unchanged LSP again published a change");
            check(nanDrawn || w.node->heard == nodeHeard,
                  "merging an unchanged LSP again published a node change");
        } else if (again == 2) {
            mergeInto(*entry, content);  // each member merges from itself
        }
    }

    /// Merges `parsed` into `entry` as an agent does and checks the outcome.
    static void mergeInto(IgpLsp& entry, const Poldo::Ptr<IsisLspParsedContent>& parsed) {
        const auto neighborsBefore = objectsOf(entry.neighbor());
        const auto prefixesBefore = objectsOf(entry.prefix());
        entry.updateNeighbors(parsed);
        entry.updatePrefixes(parsed);
        entry.node()->updateNodeAttrs(parsed->nodeRawPtr());

        checkMerged(
            entry.neighbor(), parsed->neighbor().size(), neighborsBefore,
            [&](const auto& k) { return parsed->neighbor(k); }, [](const Neighbor& n) { return n.key(); },
            [](const Neighbor& a, const Neighbor& b) { return same(a, b); });
        checkMerged(
            entry.prefix(), parsed->prefix().size(), prefixesBefore,
            [&](const auto& k) { return parsed->prefix(k); }, [](const Prefix& p) { return p.prefixKey(); },
            [](const Prefix& a, const Prefix& b) { return same(IgpTest::snap(a), IgpTest::snap(b)); });
        // A node that kept a collection of its own (found equal) prints like the parsed one.
        if (!(IgpTest::snapAttrs(*entry.node()) == IgpTest::snapAttrs(*parsed->node()))) {
            const std::string mine = IgpFuzz::formatted(*entry.node());
            const std::string theirs = IgpFuzz::formatted(*parsed->node());
            check(mine == theirs, "the merged node differs from the parsed one",
                  [&] { return mine + " vs " + theirs; });
        }
    }

    /// The entry of `id`: the object the database's mirror and the fuzzer know, under its own id,
    /// equal to what its mirrors rebuilt from notifications.
    void checkEntry(const IgpNodeId& id) const {
        check(db_->lspCount() == dbWatcher_.entries.size() && db_->lspCount() == watched_.size(),
              "the database, its observer's mirror and the fuzzer's entries differ in size");
        const auto entry = db_->lsp(id);
        const auto mirrored = dbWatcher_.entries.find(id);
        check((mirrored == dbWatcher_.entries.end() ? nullptr : mirrored->second) == entry.get(),
              "the database differs from its observer's mirror");
        check(watched_.contains(id) == (entry != nullptr),
              "the database holds other entries than the fuzzer put there");
        if (!entry) {
            return;
        }
        check(entry->nodeId() == id, "an entry is not found under its own node id");
        const Watched& w = watched_.at(id);
        check(w.node->nodeState == IgpTest::snapAttrs(*entry->node()), "an unpublished node change");
        const IgpTest::Mirror& m = *w.entry;
        check(m.unexpected() == 0, "a notification the mirror could not place");
        check(m.fromDetached() == 0, "an object changed after it left the entry");
        check(
            m.neighbors().size() == entry->neighbor().size() && m.prefixes().size() == entry->prefix().size(),
            "the mirror has other members");
        for (const auto& [k, s] : m.neighbors()) {
            const auto n = entry->neighbor(k);
            check(n && IgpTest::sameState(s, IgpTest::snap(*n)), "an unpublished neighbor change",
                  [&, &k = k] { return k.toStrep(); });
        }
        for (const auto& [k, s] : m.prefixes()) {
            const auto p = entry->prefix(k);
            check(p && same(s, IgpTest::snap(*p)), "an unpublished prefix change");
        }
    }

    Poldo::Ptr<IgpLspDatabase> db_;
    Watcher<IgpLspDatabase> dbWatcher_;
    std::map<IgpNodeId, Watched> watched_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    IgpFuzz::leavesNothingAlive("objects alive after teardown", [&] {
        In in(data, size);
        World world;
        for (int steps = 0; steps < 64 && in.remaining_bytes() > 0; ++steps) {
            world.step(in);
        }
        world.checkWhole();
    });
    return 0;
}
