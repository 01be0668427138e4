// The merge model of the property test and the fuzzer: parsed contents drawn from a source with
// FuzzedDataProvider's interface, what a merge must leave, and a mirror that rebuilds an entry from
// notifications alone (whatever it lacks after a merge was changed without being published).
#pragma once

#include <array>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <string>
#include <type_traits>
#include <vector>

#include "AttrState.h"
#include "IgpCommon/LspDatabase.h"
#include "IgpCommon/ParsedContent.h"

namespace IgpTest {

using namespace Routing::IgpCommon;
using FlexMap = std::map<std::uint8_t, std::uint32_t>;

namespace pools {
using Lumo::Ip6Addr;
using Lumo::IpAddr;
using P = Lumo::IpGenPrefix;
inline IgpNodeId nodeIdOf(std::uint8_t sysLast, std::uint8_t pseudonode) {
    const std::array<std::uint8_t, 7> b{0x19, 0x21, 0x68, 0x00, 0x10, sysLast, pseudonode};
    return IgpNodeId::fromBytes(b.data());
}
inline Ip6Addr v6(std::uint8_t first, std::uint8_t last) {
    const std::array<std::uint8_t, 16> b{first, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, last};
    return Ip6Addr::fromBytes(b.data());
}
inline const std::array<std::uint8_t, 7> allOnes{0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff};
// Neighbors: two systems, a pseudonode of each, the all-zero and the all-ones id.
inline const std::array<IgpNodeId, 6> neighborIds{nodeIdOf(1, 0), nodeIdOf(1, 1),
                                                  nodeIdOf(2, 0), nodeIdOf(2, 0xff),
                                                  IgpNodeId(),    IgpNodeId::fromBytes(allOnes.data())};
inline const std::array<IpAddr, 4> v4{IpAddr(0), IpAddr(0x0a000001u), IpAddr(0x0a000002u),
                                      IpAddr(0xffffffffu)};
inline const std::array<Ip6Addr, 3> v6s{Ip6Addr(), v6(0xfe, 1), v6(0xff, 0xff)};
inline const std::array<std::uint16_t, 4> mt{0, 2, 4095, 0xffff};
using L = std::numeric_limits<float>;
inline const std::array<float, 9> floats{
    0.0f, -0.0f, 1e9f, L::infinity(), -L::infinity(), L::quiet_NaN(), L::max(), L::denorm_min(), -1.0f};
// The default prefix, zero-length ones, host bits set (10.0.0.1/8 is another key than 10.0.0.0/8).
// clang-format off
inline const std::array<P, 8> prefixes{P(), P(IpAddr(0), 0), P(IpAddr(0x0a000000u), 8), P(IpAddr(0x0a000001u), 32),
                                       P(IpAddr(0x0a000001u), 8), P(Ip6Addr(), 0), P(v6(0x20, 0), 32),
                                       P(v6(0xff, 0xff), 128)};
// clang-format on
// SRLG records: the empty address (neighbors without local addresses) and local addresses keys draw.
inline const std::array<Lumo::IpGenAddr, 6> srlgAddrs{Lumo::IpGenAddr(),       Lumo::IpGenAddr(v4[0]),
                                                      Lumo::IpGenAddr(v4[1]),  Lumo::IpGenAddr(v4[3]),
                                                      Lumo::IpGenAddr(v6s[0]), Lumo::IpGenAddr(v6s[1])};
}  // namespace pools

/// A value of each type an attribute of a neighbor, node or prefix holds, for drawState. Small pools
/// for keys and members, so that merges meet equal ones.
template <class In>
struct Draw {
    In& in;
    /// Set when a NaN was drawn: it never equals itself, so a merge that carries one always publishes.
    static inline bool nanDrawn = false;

    template <class T>
    using Of = std::type_identity<T>;
    template <class T, std::size_t N>
    const T& pick(const std::array<T, N>& pool) const {
        return pool[in.template ConsumeIntegralInRange<std::size_t>(0, N - 1)];
    }
    unsigned upTo(unsigned n) const { return in.ConsumeIntegralInRange(0u, n); }
    template <class T>
    T any() const {
        return in.template ConsumeIntegral<T>();
    }

    NeighborKey neighborKey() const {
        NeighborKey k(pick(pools::neighborIds), IgpMultiTopologyId(pick(pools::mt)));
        const auto sets = any<std::uint16_t>();
        for (unsigned i = 0; i < 4; ++i) {
            if (sets & (1u << i))
                k.localIpv4AddrIs(pools::v4[i]);
            if (sets & (1u << (i + 4)))
                k.remoteIpv4AddrIs(pools::v4[i]);
            if (i < 3 && (sets & (1u << (i + 8))))
                k.localIpv6AddrIs(pools::v6s[i]);
            if (i < 3 && (sets & (1u << (i + 11))))
                k.remoteIpv6AddrIs(pools::v6s[i]);
        }
        return k;
    }

    Neighbor::NeighborAttrsPresent operator()(Of<Neighbor::NeighborAttrsPresent>) const {
        return Neighbor::NeighborAttrsPresent(any<std::uint8_t>() & 0x7f);
    }
    float operator()(Of<float>) const {
        const float f = pick(pools::floats);
        nanDrawn = nanDrawn || std::isnan(f);
        return f;
    }
    LinkDelay operator()(Of<LinkDelay>) const {
        return in.ConsumeBool() ? LinkDelay() : LinkDelay::fromWord(any<std::uint32_t>());
    }
    std::map<BwIndex, float> operator()(Of<std::map<BwIndex, float>>) const {
        std::map<BwIndex, float> m;
        for (auto mask = any<std::uint8_t>(); mask != 0; mask &= static_cast<std::uint8_t>(mask - 1)) {
            m[BwIndex(static_cast<std::uint8_t>(__builtin_ctz(mask)))] = (*this)(Of<float>());
        }
        return m;
    }
    /// Up to `most` members, each key drawn before its value.
    template <class K, class V>
    std::map<K, V> mapOf(unsigned most, auto&& key, auto&& value) const {
        std::map<K, V> m;
        for (unsigned n = upTo(most); n > 0; --n) {
            const K k = key();
            m[k] = value(k);
        }
        return m;
    }
    std::map<AdminGroupIndex, std::uint32_t> operator()(Of<std::map<AdminGroupIndex, std::uint32_t>>) const {
        return mapOf<AdminGroupIndex, std::uint32_t>(
            3, [&] { return AdminGroupIndex(in.template ConsumeIntegralInRange<std::uint8_t>(0, 63)); },
            [&](auto) { return any<std::uint32_t>(); });
    }
    template <class T>
    std::map<T, T> operator()(Of<std::map<T, T>>) const {  // a set: each member maps to itself
        return mapOf<T, T>(
            2, [&] { return member(Of<T>()); }, [](const T& k) { return k; });
    }
    std::uint32_t member(Of<std::uint32_t>) const { return any<std::uint32_t>(); }
    AdjacencySid member(Of<AdjacencySid>) const {
        return AdjacencySid(any<std::uint8_t>(), upTo(3),
                            in.template ConsumeIntegralInRange<std::uint8_t>(0, 1));
    }
    LanAdjacencySid member(Of<LanAdjacencySid>) const {
        return LanAdjacencySid(
            any<std::uint8_t>(), upTo(3), 0,
            Routing::Isis::SystemId({1, 2, 3, 4, 5, in.template ConsumeIntegralInRange<std::uint8_t>(0, 1)}));
    }
    bool operator()(Of<bool>) const { return in.ConsumeBool(); }
    std::uint32_t operator()(Of<std::uint32_t>) const { return any<std::uint32_t>(); }
    NodeFlags operator()(Of<NodeFlags>) const { return NodeFlags(any<std::uint8_t>() & 3); }
    PrefixFlags operator()(Of<PrefixFlags>) const { return PrefixFlags(any<std::uint8_t>() & 1); }
    Poldo::String operator()(Of<Poldo::String>) const { return in.ConsumeRandomLengthString(12); }
    Lumo::IpAddr operator()(Of<Lumo::IpAddr>) const { return pick(pools::v4); }
    Lumo::Ip6Addr operator()(Of<Lumo::Ip6Addr>) const { return pick(pools::v6s); }
    PrefixSid operator()(Of<PrefixSid>) const {
        return PrefixSid(any<std::uint8_t>(), upTo(2) == 2 ? 0xffffffffu : 100,
                         in.template ConsumeIntegralInRange<std::uint8_t>(0, 129), in.ConsumeBool());
    }
    FlexMap operator()(Of<FlexMap>) const {
        return mapOf<std::uint8_t, std::uint32_t>(
            3, [&] { return in.template ConsumeIntegralInRange<std::uint8_t>(127, 130); },
            [&](auto) { return any<std::uint32_t>(); });
    }
    Poldo::Ptr<SidLabelBinding> operator()(Of<Poldo::Ptr<SidLabelBinding>>) const {
        if (!in.ConsumeBool()) {
            return nullptr;
        }
        auto b = sidLabelBindingFactory();
        b->flagsIs(SidLabelBinding::SidLabelBindingFlags(any<std::uint8_t>() & 0x1f));
        b->rangeIs(any<std::uint16_t>());
        b->baseLabelSidIs(LabelSid(any<std::uint8_t>(), upTo(2), in.ConsumeBool()));
        b->basePrefixSidIs((*this)(Of<PrefixSid>()));
        b->lspFragmentIdIs(any<std::uint8_t>());
        return b;
    }
    /// The node's collections have their own tests: merges meet them absent only.
    template <class C>
    Poldo::Ptr<C> operator()(Of<Poldo::Ptr<C>>) const {
        return nullptr;
    }
};

/// A parsed LSP of `id`: a node, up to six neighbors and prefixes (a key drawn twice fills the same
/// object again) and up to four SRLG records.
template <class In>
Poldo::Ptr<IsisLspParsedContent> drawLsp(const IgpNodeId& id, In& in) {
    const Draw<In> draw{in};
    auto parsed = isisLspParsedContentFactory();
    auto node = nodeFactory(id);
    applyState(*node, drawState<Node>(draw));
    parsed->nodeIs(node);
    for (unsigned n = draw.upTo(6); n > 0; --n) {
        applyState(*parsed->neighborIs(draw.neighborKey()), drawState<Neighbor>(draw));
    }
    for (unsigned n = draw.upTo(6); n > 0; --n) {
        Prefix& p = *parsed->prefixIs(
            PrefixKey(draw.pick(pools::prefixes), IgpMultiTopologyId(draw.pick(pools::mt))));
        auto s = drawState<Prefix>(draw);
        // A producer gives an unreachable prefix no metric, SID or per-algorithm metrics.
        if (!std::get<bool>(s)) {
            std::get<std::uint32_t>(s) = 0;
            std::get<PrefixSid>(s) = PrefixSid();
            std::get<FlexMap>(s).clear();
        }
        p.prefixMetric()->metricDelAll();
        applyState(p, s);
    }
    for (unsigned s = draw.upTo(4); s > 0; --s) {
        auto rec = parsed->parsedSrLgIs(draw.pick(pools::srlgAddrs));
        for (unsigned v = draw.upTo(3); v > 0; --v) {
            rec->srlgValueIs(draw.upTo(2) == 2 ? 0xffffffffu : draw.upTo(4));
        }
    }
    return parsed;
}

/// Merges `parsed` into `entry` as an agent does (members, then the node when both have one), and
/// says what the result breaks, or nothing: the entry holds exactly the parsed keys, each member
/// under its own key and the object held before under that key or else the parsed one, equal to the
/// parsed one; a reachable prefix merged into a held one keeps the per-algorithm metrics the new
/// one lacks, an unreachable one has none, an adopted one has its own.
std::string mergeFault(IgpLsp& entry, const Poldo::Ptr<IsisLspParsedContent>& parsed);

/// Registers with the entry, its node and every neighbor, prefix and binding it learns of, and keeps
/// a pointer to each so that all of them outlive it.
class Mirror final : public Poldo::Observer {
public:
    explicit Mirror(const Poldo::Ptr<IgpLsp>& entry);
    ~Mirror() override;
    Mirror(const Mirror&) = delete;
    Mirror& operator=(const Mirror&) = delete;

    /// Notifications heard, and those among them about SID/label bindings (which every merge of a
    /// prefix that carries one replaces, changed or not).
    unsigned notifications() const { return notifications_; }
    unsigned bindingNotifications() const { return bindingNotifications_; }
    void onChange(const Poldo::Notification& n) override;

    /// What differs between the mirror and the entry: a notification it could not place, one from an
    /// object the entry no longer holds, or an attribute changed without being published.
    std::string fault() const;

private:
    template <class E>
    void watch(const Poldo::Ptr<E>& e) {
        if (e) {
            e->publisher().observerIs(*this);
            unwatch_.push_back([this, e] { e->publisher().observerDel(*this); });
        }
    }
    AttrState<Prefix> snapPrefix(const Prefix& p);

    Poldo::Ptr<IgpLsp> entry_;
    AttrState<Node> node_;
    std::map<NeighborKey, AttrState<Neighbor>> neighbors_;
    std::map<PrefixKey, AttrState<Prefix>> prefixes_;  // with copies of the bindings
    std::vector<std::function<void()>> unwatch_;
    unsigned unexpected_ = 0, fromDetached_ = 0, notifications_ = 0, bindingNotifications_ = 0;
};

}  // namespace IgpTest
