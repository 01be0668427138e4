// The key of a node's adjacency: the neighbor's node identifier, the link's
// interface addresses as seen from both ends, and the topology. Parallel links
// to one neighbor are told apart by their addresses.
#pragma once

#include <compare>
#include <cstdint>
#include <ostream>
#include <tuple>

#include "IgpCommon/Identifiers.h"
#include "IgpCommon/IgpNodeId.h"
#include "IgpCommon/framework/HashMap2018.h"
#include "IgpCommon/framework/String.h"
#include "IgpCommon/framework/Text.h"
#include "IgpCommon/framework/TypeData.h"
#include "IgpCommon/platform/Lumo.h"

namespace Routing::IgpCommon {

class NeighborKey {
public:
    // One address per family and side is the norm, so each set keeps one
    // member inline and a key allocates nothing until a link has more.
    using RemoteIpv4AddrSet = Kest::HashSet<Lumo::IpAddr, 0x62cbda91, 1>;
    using RemoteIpv6AddrSet = Kest::HashSet<Lumo::Ip6Addr, 0xebe20ed8, 1>;
    using LocalIpv4AddrSet = Kest::HashSet<Lumo::IpAddr, 0xc6d157cd, 1>;
    using LocalIpv6AddrSet = Kest::HashSet<Lumo::Ip6Addr, 0x1632b8d5, 1>;

    NeighborKey() noexcept = default;
    NeighborKey(const IgpNodeId& nodeId, IgpMultiTopologyId mtId) noexcept : nodeId_(nodeId), mtId_(mtId) {}
    /// Not supported: a key holds collections and is built field by field.
    /// Stops the process with "No String constructor for NeighborKey - has collection".
    explicit NeighborKey(Kest::CharRange& range);

    const IgpNodeId& nodeId() const noexcept { return nodeId_; }
    void nodeIdIs(const IgpNodeId& v) & noexcept { nodeId_ = v; }
    IgpMultiTopologyId mtId() const noexcept { return mtId_; }
    void mtIdIs(IgpMultiTopologyId v) & noexcept { mtId_ = v; }

    // The address sets. Adding an address that is present changes nothing.
    const RemoteIpv4AddrSet& remoteIpv4Addr() const noexcept { return remoteIpv4Addr_; }
    void remoteIpv4AddrIs(Lumo::IpAddr a) & { remoteIpv4Addr_.insert(a); }
    void remoteIpv4AddrDel(Lumo::IpAddr a) & { remoteIpv4Addr_.erase(a); }
    void remoteIpv4AddrDelAll() & noexcept { remoteIpv4Addr_.clear(); }
    bool remoteIpv4AddrHas(Lumo::IpAddr a) const noexcept { return remoteIpv4Addr_.contains(a); }

    const RemoteIpv6AddrSet& remoteIpv6Addr() const noexcept { return remoteIpv6Addr_; }
    void remoteIpv6AddrIs(const Lumo::Ip6Addr& a) & { remoteIpv6Addr_.insert(a); }
    void remoteIpv6AddrDel(const Lumo::Ip6Addr& a) & { remoteIpv6Addr_.erase(a); }
    void remoteIpv6AddrDelAll() & noexcept { remoteIpv6Addr_.clear(); }
    bool remoteIpv6AddrHas(const Lumo::Ip6Addr& a) const noexcept { return remoteIpv6Addr_.contains(a); }

    const LocalIpv4AddrSet& localIpv4Addr() const noexcept { return localIpv4Addr_; }
    void localIpv4AddrIs(Lumo::IpAddr a) & { localIpv4Addr_.insert(a); }
    void localIpv4AddrDel(Lumo::IpAddr a) & { localIpv4Addr_.erase(a); }
    void localIpv4AddrDelAll() & noexcept { localIpv4Addr_.clear(); }
    bool localIpv4AddrHas(Lumo::IpAddr a) const noexcept { return localIpv4Addr_.contains(a); }

    const LocalIpv6AddrSet& localIpv6Addr() const noexcept { return localIpv6Addr_; }
    void localIpv6AddrIs(const Lumo::Ip6Addr& a) & { localIpv6Addr_.insert(a); }
    void localIpv6AddrDel(const Lumo::Ip6Addr& a) & { localIpv6Addr_.erase(a); }
    void localIpv6AddrDelAll() & noexcept { localIpv6Addr_.clear(); }
    bool localIpv6AddrHas(const Lumo::Ip6Addr& a) const noexcept { return localIpv6Addr_.contains(a); }

    /// Takes the other key's node identifier and topology and adds its
    /// addresses to this key's sets (addresses already here stay).
    void copyFrom(const NeighborKey& other) &;
    bool addressesEmpty() const noexcept;
    /// Whether `other`, as advertised by the neighbor, describes the same link
    /// seen from the other end. Deliberately one-sided: it looks for this key's
    /// local addresses among the other's remote ones, never the reverse; call
    /// it on both keys for both directions.
    bool twoWayCheckAddrCmp(const NeighborKey& other) const noexcept;

    std::uint32_t hash(std::uint32_t seed) const noexcept;
    /// Node identifier, topology, then each set by size and members in step.
    static bool isEq(const NeighborKey& a, const NeighborKey& b) noexcept;
    friend bool operator==(const NeighborKey& a, const NeighborKey& b) noexcept { return isEq(a, b); }
    /// Node identifier, then the sets (the smaller first, then member by
    /// member), then the topology.
    friend std::strong_ordering operator<=>(const NeighborKey& a, const NeighborKey& b) noexcept;
    /// True when the key differs from a default key.
    explicit operator bool() const noexcept {
        return static_cast<bool>(nodeId_) || static_cast<bool>(mtId_) || !addressesEmpty();
    }

    /// "1921.6800.1001;lv410.0.0.1;rv410.0.0.2;mtId 2": the first address of
    /// each non-empty set only; for logs and dumps, not for parsing.
    Poldo::String toStrep() const;
    /// The generic text form.
    friend std::ostream& operator<<(std::ostream& os, const NeighborKey& k);

    static constexpr const char kestTypeName[] = "Routing::IgpCommon::NeighborKey";
    static constexpr auto kestAttrs() {
        return std::tuple{Kest::attr("nodeId", &NeighborKey::nodeId_),
                          Kest::attr("remoteIpv4Addr", &NeighborKey::remoteIpv4Addr_),
                          Kest::attr("remoteIpv6Addr", &NeighborKey::remoteIpv6Addr_),
                          Kest::attr("localIpv4Addr", &NeighborKey::localIpv4Addr_),
                          Kest::attr("localIpv6Addr", &NeighborKey::localIpv6Addr_),
                          Kest::attr("mtId", &NeighborKey::mtId_)};
    }
    static const Kest::TypeData& typeData() noexcept;
    const Kest::TypeData& fwkType() const noexcept { return typeData(); }

private:
    IgpNodeId nodeId_;
    RemoteIpv4AddrSet remoteIpv4Addr_;
    RemoteIpv6AddrSet remoteIpv6Addr_;
    LocalIpv4AddrSet localIpv4Addr_;
    LocalIpv6AddrSet localIpv6Addr_;
    IgpMultiTopologyId mtId_;
};

}  // namespace Routing::IgpCommon
