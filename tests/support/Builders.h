// Short builders for the identifiers, addresses, keys and constraint objects that the entity
// and merge tests keep making, and the text an entity's formatContent writes.
#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>
#include <sstream>
#include <string>
#include <string_view>

#include "IgpCommon/FlexAlgo.h"
#include "IgpCommon/IgpNodeId.h"
#include "IgpCommon/NeighborKey.h"
#include "IgpCommon/PrefixKey.h"
#include "tests/support/TextHelpers.h"

namespace testsupport {

/// 1921.6800.10<last as two hex digits>, with the given pseudonode byte.
inline Routing::IgpCommon::IgpNodeId nodeId(std::uint8_t last, std::uint8_t pseudonode = 0) {
    const std::array<std::uint8_t, 7> b{0x19, 0x21, 0x68, 0x00, 0x10, last, pseudonode};
    return Routing::IgpCommon::IgpNodeId::fromBytes(b.data());
}

inline Lumo::IpAddr v4(const char* text) {
    return parse<Lumo::IpAddr>(text);
}
inline Lumo::Ip6Addr v6(const char* text) {
    return parse<Lumo::Ip6Addr>(text);
}

/// A key to node `node` in topology `mt`; an address with a ':' goes to the IPv6 set of its side.
inline Routing::IgpCommon::NeighborKey nbrKey(std::uint8_t node,
                                              std::initializer_list<const char*> local = {},
                                              std::initializer_list<const char*> remote = {},
                                              std::uint16_t mt = 0) {
    Routing::IgpCommon::NeighborKey k(nodeId(node), Routing::IgpCommon::IgpMultiTopologyId(mt));
    for (const char* a : local) {
        if (std::string_view(a).find(':') != std::string_view::npos) {
            k.localIpv6AddrIs(v6(a));
        } else {
            k.localIpv4AddrIs(v4(a));
        }
    }
    for (const char* a : remote) {
        if (std::string_view(a).find(':') != std::string_view::npos) {
            k.remoteIpv6AddrIs(v6(a));
        } else {
            k.remoteIpv4AddrIs(v4(a));
        }
    }
    return k;
}

inline Routing::IgpCommon::PrefixKey pfxKey(const char* prefix, std::uint16_t mt = 0) {
    return Routing::IgpCommon::PrefixKey(parse<Lumo::IpGenPrefix>(prefix),
                                         Routing::IgpCommon::IgpMultiTopologyId(mt));
}

/// An admin-group list holding `words` in order.
inline Poldo::Ptr<Routing::IgpCommon::IgpFlexAlgoEag> eag(std::initializer_list<std::uint32_t> words) {
    auto e = Routing::IgpCommon::igpFlexAlgoEagFactory();
    for (std::uint32_t w : words) {
        e->valuePush(w);
    }
    return e;
}

inline Poldo::Ptr<Routing::IgpCommon::IgpFlexAlgoSrlg> srlg(std::initializer_list<std::uint32_t> values) {
    auto s = Routing::IgpCommon::igpFlexAlgoSrlgFactory();
    for (std::uint32_t v : values) {
        s->valueIs(v);
    }
    return s;
}

/// What `formatContent` writes for an entity.
template <class T>
std::string formatted(const T& entity) {
    std::ostringstream os;
    entity.formatContent(os);
    return os.str();
}

}  // namespace testsupport
