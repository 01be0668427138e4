// Hand-built databases for what the lab does not show: failed two-way checks,
// the largest metric, overloaded transit and attached routers, the up/down
// bit, a second SRGB range, LANs, and the incremental updates.

#include <gtest/gtest.h>

#include <string_view>
#include <tuple>

#include "IgpCommon/LspDatabase.h"
#include "IgpCommon/SrCapabilities.h"
#include "IsisRoutes/Routes.h"

namespace {

namespace IC = Routing::IgpCommon;
namespace IR = Routing::IsisRoutes;

IC::IgpNodeId rtr(unsigned n, std::uint8_t pseudonode = 0) {
    const std::uint8_t bytes[7] = {0, 0, 0, 0, 0, static_cast<std::uint8_t>(n), pseudonode};
    return IC::IgpNodeId::fromBytes(bytes);
}

Lumo::IpGenPrefix pfx(std::string_view text) {
    Kest::CharRange r(text);
    return Lumo::IpGenPrefix(r);
}

// The loopback of router n: 10.0.0.n/32.
Lumo::IpGenPrefix loop(unsigned n) {
    return Lumo::IpGenPrefix(Lumo::IpAddr(0x0A000000u + n), 32);
}

class Domain {
public:
    explicit Domain(IC::IgpLevel level = IC::igpLevelIsisLevel2) : db(IC::igpLspDatabaseFactory(level)) {}

    IC::IgpLsp& router(const IC::IgpNodeId& id) {
        if (auto e = db->lsp(id)) {
            return *e;
        }
        auto e = IC::igpLspFactory(id);
        e->nodeIs(IC::nodeFactory(id));
        db->lspIs(e);
        return *e;
    }
    IC::IgpLsp& router(unsigned n) { return router(rtr(n)); }
    void halfLink(const IC::IgpNodeId& from, const IC::IgpNodeId& to, std::uint32_t metric) {
        auto nbr = IC::neighborFactory(IC::NeighborKey(to, IC::IgpMultiTopologyId(0)));
        nbr->igpMetricIs(metric);
        router(from).neighborIs(nbr->key(), nbr);
    }
    void halfLink(unsigned from, unsigned to, std::uint32_t metric) { halfLink(rtr(from), rtr(to), metric); }
    void link(unsigned a, unsigned b, std::uint32_t metric) {
        halfLink(a, b, metric);
        halfLink(b, a, metric);
    }
    IC::Prefix& prefix(unsigned n, const Lumo::IpGenPrefix& p, std::uint32_t metric) {
        auto x = IC::prefixFactory(IC::PrefixKey(p, IC::IgpMultiTopologyId(0)));
        x->metricIs(metric);
        x->hasValidReachabilityIs(true);
        router(n).prefixIs(x->prefixKey(), x);
        return *router(n).prefix(x->prefixKey());
    }
    void flags(unsigned n, bool overload, bool attached) {
        IC::NodeFlags f;
        f.overloadBitIs(overload);
        f.attachedBitIs(attached);
        router(n).node()->flagsIs(f);
    }

    Poldo::Ptr<IC::IgpLspDatabase> db;
};

std::vector<IC::IgpNodeId> hops(const IR::Route* r) {
    std::vector<IC::IgpNodeId> out;
    for (const auto& nh : r->nextHops) {
        out.push_back(nh.systemId);
    }
    return out;
}

TEST(RouteTable, PathsUseTwoWayLinksBelowTheLargestMetricAndNoOverloadedTransit) {
    Domain d;
    // 1 reaches 3 at 20 through 2 and through 4.
    d.link(1, 2, 10);
    d.link(2, 3, 10);
    d.link(1, 4, 10);
    d.link(4, 3, 10);
    d.prefix(3, loop(3), 5);
    // 5 does not list 1 back; 6 is behind the largest metric; 7 is behind
    // overloaded 8, whose own prefix stays reachable; links to a node
    // without an entry, and to oneself, lead nowhere.
    d.halfLink(1, 5, 1);
    d.halfLink(1, 9, 1);
    d.halfLink(2, 2, 1);
    d.link(1, 6, 0xFFFFFF);
    d.link(1, 8, 10);
    d.link(8, 7, 10);
    d.flags(8, true, false);
    for (const unsigned n : {5u, 6u, 7u, 8u}) {
        d.prefix(n, loop(n), 1);
    }
    // A LAN between 1 and 2 at the same cost: still one next hop.
    for (const unsigned n : {1u, 2u}) {
        d.halfLink(rtr(n), rtr(1, 1), 10);
        d.halfLink(rtr(1, 1), rtr(n), 0);
    }
    d.prefix(2, loop(2), 1);

    IR::RouteTable t(d.db, rtr(1), IR::Family::ipv4);
    const IR::Route* r3 = t.route(loop(3));
    ASSERT_NE(r3, nullptr);
    EXPECT_EQ(std::tuple(r3->metric, hops(r3), r3->originators),
              std::tuple(25u, std::vector{rtr(2), rtr(4)}, std::vector{rtr(3)}));
    EXPECT_EQ(hops(t.route(loop(2))), std::vector{rtr(2)});
    EXPECT_TRUE(!t.route(loop(5)) && !t.route(loop(6)) && !t.route(loop(7)));
    EXPECT_EQ(t.route(loop(8)) ? t.route(loop(8))->metric : 0u, 11u);

    std::vector<IC::IgpNodeId> order;
    for (const auto& v : t.vertices()) {
        order.push_back(v.id);
    }
    // By distance, then identifier.
    EXPECT_EQ(order, (std::vector{rtr(1), rtr(1, 1), rtr(2), rtr(4), rtr(8), rtr(3)}));
    EXPECT_EQ(t.vertices().back().parents, (std::vector{rtr(2), rtr(4)}));
    EXPECT_TRUE(t.vertices()[4].overloaded);
}

TEST(RouteTable, LevelOnePrefersAreaRoutesToLeakedOnesAndDefaultsToTheNearestUsableAttachedRouter) {
    Domain d(IC::igpLevelIsisLevel1);
    d.link(1, 2, 10);
    d.link(1, 3, 30);
    d.link(1, 4, 5);
    // 2 leaks the prefix down from level 2 (up/down bit set) much cheaper than 3 has it.
    IC::PrefixFlags down;
    down.isisDownIs(true);
    d.prefix(2, pfx("192.0.2.0/24"), 1).flagsIs(down);
    d.prefix(3, pfx("192.0.2.0/24"), 50);
    // 2 and 3 are attached; 4 is nearer but overloaded; 2 also advertises a default route.
    d.flags(2, false, true);
    d.flags(3, false, true);
    d.flags(4, true, true);
    d.prefix(2, pfx("0.0.0.0/0"), 0);

    IR::RouteTable t(d.db, rtr(1), IR::Family::ipv4);
    const IR::Route* leak = t.route(pfx("192.0.2.0/24"));
    ASSERT_NE(leak, nullptr);
    EXPECT_EQ(std::tuple(leak->metric, hops(leak)), std::tuple(80u, std::vector{rtr(3)}));
    const IR::Route* def = t.route(pfx("0.0.0.0/0"));
    ASSERT_NE(def, nullptr);
    EXPECT_EQ(std::tuple(def->isDefault, def->metric, hops(def), def->originators),
              std::tuple(true, 10u, std::vector{rtr(2)}, std::vector{rtr(2)}));
    // An attached root derives none: only 2's advertisement is left.
    d.flags(1, false, true);
    ASSERT_NE(t.route(pfx("0.0.0.0/0")), nullptr);
    EXPECT_FALSE(t.route(pfx("0.0.0.0/0"))->isDefault);
}

TEST(RouteTable, IndexBeyondTheFirstSrgbRangeTakesTheNextRange) {
    Domain d;
    d.link(1, 2, 10);
    d.link(2, 3, 10);
    for (const unsigned n : {1u, 2u}) {
        auto caps = IC::srCapabilitiesFactory();
        caps->numRangesIs(2);
        caps->sidLabelRangeIs(IC::SrSidRangeIndex(0), IC::SrSidRange(100, Lumo::MplsLabel(16000 + 1000 * n)));
        caps->sidLabelRangeIs(IC::SrSidRangeIndex(1), IC::SrSidRange(100, Lumo::MplsLabel(30000 + 1000 * n)));
        d.router(n).node()->srCapabilitiesIs(caps);
    }
    // Index 100 is one past the first range: the second range's first label.
    d.prefix(3, loop(3), 1).prefixSidIs(IC::PrefixSid(0x40, 100, 0, true));
    IR::RouteTable t(d.db, rtr(1), IR::Family::ipv4);
    const IR::Route* r = t.route(loop(3));
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(r->inLabel, 31000u);
    ASSERT_EQ(r->nextHops.size(), 1u);
    EXPECT_EQ(std::tuple(r->nextHops[0].op, r->nextHops[0].outLabel), std::tuple(IR::LabelOp::swap, 32000u));
}

// After each change the table must hold what a table built afresh holds,
// having re-run the shortest paths only when links changed.
TEST(RouteTable, PrefixChangesUpdateRoutesWithoutARunAndLinkChangesRunAgain) {
    Domain d;
    d.link(1, 2, 10);
    d.link(2, 3, 10);
    d.link(1, 3, 40);
    d.prefix(3, loop(3), 1);
    d.prefix(2, loop(2), 1);
    d.prefix(4, loop(4), 1);  // not linked yet
    IR::RouteTable t(d.db, rtr(1), IR::Family::ipv4);
    const auto same = [&] { return t.routes() == IR::RouteTable(d.db, rtr(1), IR::Family::ipv4).routes(); };
    d.router(3).prefix(IC::PrefixKey(loop(3), {}))->metricIs(7);
    EXPECT_TRUE(same());
    EXPECT_EQ(t.route(loop(3))->metric, 27u);
    d.prefix(3, pfx("198.51.100.0/24"), 2);
    EXPECT_TRUE(same());
    d.router(2).prefixDel(IC::PrefixKey(loop(2), {}));
    EXPECT_TRUE(same());
    EXPECT_EQ(t.route(loop(2)), nullptr);
    EXPECT_EQ(t.counters().fullRuns, 1u);
    EXPECT_EQ(t.counters().prefixUpdates, 3u);

    // Links: the paths run again, and only the moved vertices' prefixes are re-routed.
    d.router(1).neighbor(IC::NeighborKey(rtr(3), {}))->igpMetricIs(5);
    EXPECT_TRUE(same());
    EXPECT_EQ(hops(t.route(loop(3))), std::vector{rtr(3)});
    EXPECT_EQ(t.counters().spfRuns, 2u);
    EXPECT_EQ(t.counters().prefixUpdates, 5u);  // 3's two prefixes
    // 4 was there all along, unreachable; a link brings it in, another takes 2 out.
    d.link(3, 4, 10);
    EXPECT_TRUE(same());
    EXPECT_EQ(t.route(loop(4))->metric, 16u);
    d.prefix(2, loop(2), 1);
    d.router(1).neighborDel(IC::NeighborKey(rtr(2), {}));
    EXPECT_TRUE(same());
    EXPECT_EQ(t.route(loop(2))->metric, 16u);
    EXPECT_EQ(t.counters().fullRuns, 1u);

    // A node's flags change every route's premises: a full run, which
    // covers the prefix changed with them.
    const auto updates = t.counters().prefixUpdates;
    d.router(4).prefix(IC::PrefixKey(loop(4), {}))->metricIs(3);
    d.flags(3, true, false);
    EXPECT_TRUE(same());
    EXPECT_EQ(t.route(loop(4)), nullptr);
    t.update();
    EXPECT_EQ(t.counters().fullRuns, 2u);
    EXPECT_EQ(t.counters().prefixUpdates, updates);
    t.recomputeAll();
    EXPECT_EQ(t.counters().fullRuns, 3u);
}

}  // namespace
