// What the lab does not show: ties, one-way links, the largest metric,
// overload, the up/down bit, a second SRGB range, incremental updates.

#include <gtest/gtest.h>

#include <array>

#include "IgpCommon/LspDatabase.h"
#include "IgpCommon/SrCapabilities.h"
#include "IsisRoutes/Routes.h"

namespace {

namespace IC = Routing::IgpCommon;
namespace IR = Routing::IsisRoutes;

IC::IgpNodeId rtr(unsigned n) {
    const std::uint8_t bytes[7] = {0, 0, 0, 0, 0, static_cast<std::uint8_t>(n), 0};
    return IC::IgpNodeId::fromBytes(bytes);
}

Lumo::IpGenPrefix net(std::uint32_t address, unsigned length) {
    return Lumo::IpGenPrefix(Lumo::IpAddr(address), length);
}

Lumo::IpGenPrefix loop(unsigned n) {  // 10.0.0.n/32
    return net(0x0A000000u + n, 32);
}

struct Domain {
    explicit Domain(IC::IgpLevel level = IC::igpLevelIsisLevel2) : db(IC::igpLspDatabaseFactory(level)) {}

    IC::IgpLsp& router(unsigned n) {
        const auto id = rtr(n);
        if (!db->lsp(id)) {
            auto e = IC::igpLspFactory(id);
            e->nodeIs(IC::nodeFactory(id));
            db->lspIs(e);
        }
        return *db->lsp(id);
    }
    void halfLink(unsigned from, unsigned to, std::uint32_t metric) {
        auto nbr = IC::neighborFactory(IC::NeighborKey(rtr(to), IC::IgpMultiTopologyId(0)));
        nbr->igpMetricIs(metric);
        router(from).neighborIs(nbr->key(), nbr);
    }
    // Two-way links: {a, b, metric} each.
    void links(std::initializer_list<std::array<std::uint32_t, 3>> all) {
        for (const auto& [a, b, metric] : all) {
            halfLink(a, b, metric);
            halfLink(b, a, metric);
        }
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

std::string num(const IC::IgpNodeId& id) {
    return std::to_string(id.byte(IC::IgpNodeIdIndex(5)));
}

// "metric via hop[:swapped label]... from originator... [in label] [default]", or "-".
std::string text(const IR::Route* r) {
    if (r == nullptr) {
        return "-";
    }
    std::string s = std::to_string(r->metric) + " via";
    for (const auto& nh : r->nextHops) {
        s.append(" ").append(num(nh.systemId));
        if (nh.op == IR::LabelOp::swap) {
            s.append(":").append(std::to_string(nh.outLabel));
        }
    }
    s.append(" from");
    for (const auto& o : r->originators) {
        s.append(" ").append(num(o));
    }
    if (r->inLabel) {
        s.append(" in ").append(std::to_string(*r->inLabel));
    }
    return r->isDefault ? s.append(" default") : s;
}

TEST(RouteTable, TiesOneWayLinksLargestMetricOverloadLansAndSecondSrgbRange) {
    Domain d;
    // 1 reaches 3 at 20 through 2 and through 4.
    d.links({{1, 2, 10}, {2, 3, 10}, {1, 4, 10}, {4, 3, 10}});
    // 5 does not list 1 back; 6 is behind the largest metric; 7 is behind
    // overloaded 8, whose own prefix stays reachable; links to a node
    // without an entry, and to oneself, lead nowhere.
    d.halfLink(1, 5, 1);
    d.halfLink(1, 9, 1);
    d.halfLink(2, 2, 1);
    d.links({{1, 6, 0xFFFFFF}, {1, 8, 10}, {8, 7, 10}});
    d.flags(8, true, false);
    for (const unsigned n : {2u, 5u, 6u, 7u, 8u}) {
        d.prefix(n, loop(n), 1);
    }
    // Index 100 is one past the first SRGB range: the second range's first label.
    for (const unsigned n : {1u, 2u, 4u}) {
        auto caps = IC::srCapabilitiesFactory();
        caps->numRangesIs(2);
        caps->sidLabelRangeIs(IC::SrSidRangeIndex(0), IC::SrSidRange(100, Lumo::MplsLabel(16000 + 1000 * n)));
        caps->sidLabelRangeIs(IC::SrSidRangeIndex(1), IC::SrSidRange(100, Lumo::MplsLabel(30000 + 1000 * n)));
        d.router(n).node()->srCapabilitiesIs(caps);
    }
    d.prefix(3, loop(3), 5).prefixSidIs(IC::PrefixSid(0x40, 100, 0, true));

    IR::RouteTable t(d.db, rtr(1), IR::Family::ipv4);
    std::string got, want;
    for (const unsigned n : {2u, 3u, 5u, 6u, 7u, 8u}) {
        got.append(text(t.route(loop(n)))).append("\n");
    }
    EXPECT_EQ(got, "11 via 2 from 2\n25 via 2:32000 4:34000 from 3 in 31000\n-\n-\n-\n11 via 8 from 8\n");
    for (const auto& v : t.vertices()) {  // by distance, then identifier
        want.append(num(v.id)).append(v.overloaded ? "o " : " ");
    }
    EXPECT_EQ(want, "1 2 4 8o 3 ");
    EXPECT_EQ(t.vertices().back().parents, (std::vector{rtr(2), rtr(4)}));
}

TEST(RouteTable, LevelOnePrefersAreaRoutesToLeakedOnesAndDefaultsToTheNearestUsableAttachedRouter) {
    Domain d(IC::igpLevelIsisLevel1);
    d.links({{1, 2, 10}, {1, 3, 30}, {1, 4, 5}});
    // 2 leaks the prefix down from level 2 (up/down bit set) much cheaper than 3 has it.
    IC::PrefixFlags down;
    down.isisDownIs(true);
    d.prefix(2, net(0xC0000200u, 24), 1).flagsIs(down);
    d.prefix(3, net(0xC0000200u, 24), 50);
    // 2 and 3 are attached; 4 is nearer but overloaded; 2 also advertises a default route.
    d.prefix(2, net(0, 0), 0);
    d.flags(2, false, true);
    d.flags(3, false, true);
    d.flags(4, true, true);
    IR::RouteTable t(d.db, rtr(1), IR::Family::ipv4);
    EXPECT_EQ(text(t.route(net(0xC0000200u, 24))), "80 via 3 from 3");
    EXPECT_EQ(text(t.route(net(0, 0))), "10 via 2 from 2 default");
    // An attached root derives none: only 2's own advertisement is left.
    d.flags(1, false, true);
    EXPECT_EQ(text(t.route(net(0, 0))), "10 via 2 from 2");
}

// After each change the table must hold what a table built afresh holds,
// having re-run the shortest paths only when links changed.
TEST(RouteTable, PrefixChangesUpdateRoutesWithoutARunAndLinkChangesRunAgain) {
    Domain d;
    d.links({{1, 2, 10}, {2, 3, 10}, {1, 3, 40}});
    d.prefix(3, loop(3), 1);
    d.prefix(2, loop(2), 1);
    d.prefix(4, loop(4), 1);  // not linked yet
    IR::RouteTable t(d.db, rtr(1), IR::Family::ipv4);
    const auto same = [&] { return t.routes() == IR::RouteTable(d.db, rtr(1), IR::Family::ipv4).routes(); };
    const auto counts = [&] {
        const auto& c = t.counters();
        return std::to_string(c.spfRuns) + "/" + std::to_string(c.fullRuns) + "/" +
               std::to_string(c.prefixUpdates);
    };
    d.router(3).prefix(IC::PrefixKey(loop(3), {}))->metricIs(7);
    d.prefix(3, net(0xC6336400u, 24), 2);
    d.router(2).prefixDel(IC::PrefixKey(loop(2), {}));
    EXPECT_TRUE(same());
    EXPECT_EQ(text(t.route(loop(3))) + text(t.route(loop(2))), "27 via 2 from 3-");
    EXPECT_EQ(counts(), "1/1/3");

    // Links: the paths run again, and only the moved vertices' prefixes are re-routed.
    d.router(1).neighbor(IC::NeighborKey(rtr(3), {}))->igpMetricIs(5);
    EXPECT_TRUE(same());
    EXPECT_EQ(text(t.route(loop(3))), "12 via 3 from 3");
    EXPECT_EQ(counts(), "2/1/5");  // 3's two prefixes
    // 4 was there all along, unreachable; a link brings it in, another takes 2 out.
    d.links({{3, 4, 10}});
    d.prefix(2, loop(2), 1);
    d.router(1).neighborDel(IC::NeighborKey(rtr(2), {}));
    EXPECT_TRUE(same());
    EXPECT_EQ(text(t.route(loop(4))) + text(t.route(loop(2))), "16 via 3 from 416 via 3 from 2");
    EXPECT_EQ(counts(), "3/1/7");
    // A node's flags change every route's premises: a full run, which covers
    // the prefix changed with them.
    d.router(4).prefix(IC::PrefixKey(loop(4), {}))->metricIs(3);
    d.flags(3, true, false);
    EXPECT_TRUE(same());
    EXPECT_EQ(text(t.route(loop(4))), "-");
    t.update();
    EXPECT_EQ(counts(), "4/2/7");
    t.recomputeAll();
    EXPECT_EQ(counts(), "5/3/7");
}

}  // namespace
