// Routes computed from one level's link-state database, as a chosen router
// (the root) computes them: shortest paths (ISO 10589 Annex C, RFC 1195 C,
// RFC 5305, RFC 5120), equal-cost next hops, a level-1 router's default route
// towards the nearest attached level-1-2 router, and the segment-routing
// label operations of the prefix SIDs (RFC 8667).
//
// A RouteTable observes its database and keeps its routes current: a change
// of links re-runs the shortest paths and re-routes the prefixes of the
// vertices whose distance or first hops moved; a change of nodes (flags,
// topologies, SRGB) or of the set of entries rebuilds every route; a change
// of prefixes updates those prefixes' routes only.
//
//     Routing::IsisRoutes::RouteTable v4(db, rootId, Routing::IsisRoutes::Family::ipv4);
//     for (const auto& [prefix, route] : v4.routes()) { ... }
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "IgpCommon/IgpNodeId.h"
#include "IgpCommon/LspDatabase.h"
#include "IgpCommon/framework/Ptr.h"
#include "IgpCommon/framework/Publisher.h"
#include "IgpCommon/platform/Lumo.h"

namespace Routing::IsisRoutes {

namespace IC = Routing::IgpCommon;

enum class Family : std::uint8_t { ipv4, ipv6 };

/// What a next hop does with the prefix SID's label.
enum class LabelOp : std::uint8_t {
    none,  // no label: the prefix has no usable SID, or the next hop has no SRGB to hold it
    pop,   // penultimate hop: implicit null
    swap,  // swap to `outLabel` (the next hop's label, or an explicit null)
};

struct NextHop {
    /// The neighbor router the traffic leaves to (pseudonode byte 0).
    IC::IgpNodeId systemId;
    /// IPv4 routes: the neighbor's IPv4 address on the link, when the LSPs
    /// say it. IPv6 next hops are link-local addresses, which LSPs never carry.
    std::optional<Lumo::IpAddr> address;
    LabelOp op = LabelOp::none;
    std::uint32_t outLabel = 0;  // with LabelOp::swap

    friend bool operator==(const NextHop&, const NextHop&) = default;
};

struct Route {
    Lumo::IpGenPrefix prefix;
    std::uint64_t metric = 0;
    /// The root advertises the prefix itself: no next hops.
    bool local = false;
    /// Derived from the attached bits (ISO 10589 7.2.9.2), not advertised.
    bool isDefault = false;
    /// The routers whose advertisements give the route its metric, ascending.
    std::vector<IC::IgpNodeId> originators;
    std::vector<NextHop> nextHops;  // by system identifier
    /// The prefix SID's index, when it has one the root uses.
    std::optional<std::uint32_t> sidIndex;
    /// The label the root receives for the prefix: its SRGB plus the index,
    /// or the SID's absolute label.
    std::optional<std::uint32_t> inLabel;

    friend bool operator==(const Route&, const Route&) = default;
};

/// One vertex of the shortest-path tree: a router or a pseudonode.
struct Vertex {
    IC::IgpNodeId id;
    std::uint64_t distance = 0;
    std::vector<IC::IgpNodeId> nextHops;  // first-hop routers, ascending
    std::vector<IC::IgpNodeId> parents;   // ascending
    bool overloaded = false;
    bool attached = false;
};

struct Options {
    /// Some routers let another router's advertisement of an IPv4 prefix the
    /// root also originates (its LAN subnets, an anycast address) replace the
    /// root's own route; set this to compute what they list.
    bool remoteOverOwnIpv4 = false;
};

/// How the table has been brought up to date so far.
struct Counters {
    std::uint64_t spfRuns = 0;        // shortest paths re-run
    std::uint64_t fullRuns = 0;       // of which every route was rebuilt (nodes or entries changed)
    std::uint64_t prefixUpdates = 0;  // single prefixes re-routed: changed, or behind a vertex that moved
};

/// The multi-topology the root computes `family` in: IPv4 in the standard
/// topology; IPv6 in topology 2 when the root advertises it (RFC 5120),
/// otherwise in the standard topology.
IC::IgpMultiTopologyId topologyOf(const IC::IgpLspDatabase& db, const IC::IgpNodeId& root, Family family);

class RouteTable final : public Poldo::Observer {
public:
    using RouteMap = std::map<Lumo::IpGenPrefix, Route>;

    /// Computes the routes of `root` (a router's node identifier) at once and
    /// watches `db` from then on. A root absent from the database has no routes.
    RouteTable(Poldo::Ptr<IC::IgpLspDatabase> db, const IC::IgpNodeId& root, Family family,
               Options options = {});
    ~RouteTable() override;
    RouteTable(const RouteTable&) = delete;
    RouteTable& operator=(const RouteTable&) = delete;

    /// Applies what changed in the database since the last call (done by
    /// every reader below as well).
    void update();
    /// Re-runs the shortest paths and rebuilds every route now, as a change
    /// of nodes would.
    void recomputeAll();

    const RouteMap& routes();
    /// The route of `prefix`, or null.
    const Route* route(const Lumo::IpGenPrefix& prefix);
    /// The tree's vertices by distance, then node identifier; the root first.
    std::vector<Vertex> vertices();
    IC::IgpMultiTopologyId topology();
    const Counters& counters() const noexcept { return counters_; }

    void onChange(const Poldo::Notification& n) override;

private:
    struct State;

    void watchAll();
    void watchEntry(const IC::IgpLsp& entry);
    void unwatchEntry(const IC::IgpLsp& entry) noexcept;

    Poldo::Ptr<IC::IgpLspDatabase> db_;
    IC::IgpNodeId root_;
    Family family_;
    Options options_;
    Counters counters_;
    std::unique_ptr<State> state_;
    RouteMap routes_;
};

}  // namespace Routing::IsisRoutes
