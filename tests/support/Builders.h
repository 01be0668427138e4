// Identifiers, keys, constraint objects and sample entities the tests share.
#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>
#include <sstream>
#include <string>
#include <string_view>

#include "IgpCommon/FlexAlgo.h"
#include "IgpCommon/IgpNodeId.h"
#include "IgpCommon/Neighbor.h"
#include "IgpCommon/NeighborKey.h"
#include "IgpCommon/Prefix.h"
#include "IgpCommon/PrefixKey.h"
#include "tests/support/TextHelpers.h"

namespace testsupport {

namespace ic = Routing::IgpCommon;

inline ic::IgpNodeId nodeId(std::uint8_t last, std::uint8_t pseudonode = 0) {
    const std::array<std::uint8_t, 7> b{0x19, 0x21, 0x68, 0x00, 0x10, last, pseudonode};
    return ic::IgpNodeId::fromBytes(b.data());
}
inline Lumo::IpAddr v4(const char* text) {
    return parse<Lumo::IpAddr>(text);
}
inline Lumo::Ip6Addr v6(const char* text) {
    return parse<Lumo::Ip6Addr>(text);
}

/// An address with a ':' goes to the IPv6 set of its side.
inline ic::NeighborKey nbrKey(std::uint8_t node, std::initializer_list<const char*> local = {},
                              std::initializer_list<const char*> remote = {}, std::uint16_t mt = 0) {
    ic::NeighborKey k(nodeId(node), ic::IgpMultiTopologyId(mt));
    for (const char* a : local) {
        std::string_view(a).find(':') != std::string_view::npos ? k.localIpv6AddrIs(v6(a))
                                                                : k.localIpv4AddrIs(v4(a));
    }
    for (const char* a : remote) {
        std::string_view(a).find(':') != std::string_view::npos ? k.remoteIpv6AddrIs(v6(a))
                                                                : k.remoteIpv4AddrIs(v4(a));
    }
    return k;
}
inline ic::PrefixKey pfxKey(const char* prefix, std::uint16_t mt = 0) {
    return ic::PrefixKey(parse<Lumo::IpGenPrefix>(prefix), ic::IgpMultiTopologyId(mt));
}

inline Poldo::Ptr<ic::IgpFlexAlgoEag> eag(std::initializer_list<std::uint32_t> words) {
    auto e = ic::igpFlexAlgoEagFactory();
    for (std::uint32_t w : words) {
        e->valuePush(w);
    }
    return e;
}
inline Poldo::Ptr<ic::IgpFlexAlgoSrlg> srlg(std::initializer_list<std::uint32_t> values) {
    auto s = ic::igpFlexAlgoSrlgFactory();
    for (std::uint32_t v : values) {
        s->valueIs(v);
    }
    return s;
}

/// A neighbor with every attribute flagged present, most holding a value.
inline Poldo::Ptr<ic::Neighbor> fullNeighbor() {
    using namespace Routing::IgpCommon;  // NOLINT(google-build-using-namespace)
    auto n = neighborFactory(nbrKey(1));
    n->attrsPresentIs(Neighbor::NeighborAttrsPresent(Neighbor::NeighborAttrsPresent::validMask));
    n->adminGroupIs(0xff);
    n->teDefMetricIs(20);
    n->igpMetricIs(10);
    n->unreservedBwIs(BwIndex(0), 100.0f);
    n->unreservedBwIs(BwIndex(5), 500.0f);
    n->extAdminGroupIs(AdminGroupIndex(1), 0x11);
    n->extAdminGroupIs(AdminGroupIndex(40), 0);
    n->srlgValuesIs(7);
    n->srlgValuesIs(9);
    n->adjSidIs(AdjacencySid(0x30, 16001, 0));
    n->lanAdjSidIs(LanAdjacencySid(0x30, 16002, 1, Routing::Isis::SystemId({0, 0, 0, 0, 0, 2})));
    n->linkDelayIs(LinkDelay(1500, false));
    return n;
}

inline Poldo::Ptr<ic::SidLabelBinding> binding(std::uint16_t range) {
    auto b = ic::sidLabelBindingFactory();
    b->rangeIs(range);
    b->lspFragmentIdIs(3);
    b->basePrefixSidIs(ic::PrefixSid(0x40, 100, 0, true));
    return b;
}

/// A reachable prefix of 10.0.0.0/8 with metric 10, a valid SID and a binding of range 4.
inline Poldo::Ptr<ic::Prefix> fullPrefix() {
    auto p = ic::prefixFactory(pfxKey("10.0.0.0/8"));
    p->hasValidReachabilityIs(true);
    p->metricIs(10);
    p->prefixSidIs(ic::PrefixSid(0x40, 1, 0, true));
    p->prefixMetric()->metricIs(128, 5);
    p->sidLabelBindingIs(binding(4));
    return p;
}

template <class T>
std::string formatted(const T& entity) {
    std::ostringstream os;
    entity.formatContent(os);
    return os.str();
}

}  // namespace testsupport
