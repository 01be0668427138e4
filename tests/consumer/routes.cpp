// Smallest route computation built against an installed IgpCommon with its route component: two
// routers that list each other, and the route to the second one's loopback from the first.
#include <cstdio>

#include "IgpCommon/IgpLsp.h"
#include "IsisRoutes/Routes.h"

namespace IC = Routing::IgpCommon;

IC::IgpNodeId router(unsigned n) {
    const std::uint8_t bytes[7] = {0x19, 0x21, 0x68, 0x00, 0x10, static_cast<std::uint8_t>(n), 0};
    return IC::IgpNodeId::fromBytes(bytes);
}

int main() {
    auto db = IC::igpLspDatabaseFactory(IC::igpLevelIsisLevel2);
    for (const unsigned n : {1u, 2u}) {
        auto entry = IC::igpLspFactory(router(n));
        entry->nodeIs(IC::nodeFactory(router(n)));
        auto nbr = IC::neighborFactory(IC::NeighborKey(router(3 - n), IC::IgpMultiTopologyId(0)));
        nbr->igpMetricIs(10);
        entry->neighborIs(nbr->key(), nbr);
        db->lspIs(entry);
    }
    const Lumo::IpGenPrefix loopback(Lumo::IpAddr(0x0A000002), 32);
    auto pfx = IC::prefixFactory(IC::PrefixKey(loopback, IC::IgpMultiTopologyId(0)));
    pfx->metricIs(1);
    pfx->hasValidReachabilityIs(true);
    db->lsp(router(2))->prefixIs(pfx->prefixKey(), pfx);

    Routing::IsisRoutes::RouteTable table(db, router(1), Routing::IsisRoutes::Family::ipv4);
    const auto* r = table.route(loopback);
    const bool ok =
        r != nullptr && r->metric == 11 && r->nextHops.size() == 1 && r->nextHops[0].systemId == router(2);
    std::puts(ok ? "IgpCommon routes consumer: ok" : "IgpCommon routes consumer: unexpected result");
    return ok ? 0 : 1;
}
