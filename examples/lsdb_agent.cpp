// A small routing agent built on the library: it keeps one database per
// IS-IS level, merges hand-made LSPs into them, watches every change with one
// observer, re-merges an updated LSP, withdraws a node and dumps both levels.
//
// The LSPs mimic a small network: routers r1..r3 with segment routing, a
// flexible algorithm, TE links with SRLGs, a LAN whose designated router r1
// originates the pseudonode 0000.0000.0001.01, and a SID/label binding.
//
// Run it with IGPCOMMON_HASH_SEED set for an output that does not change
// from one run to the next.

#include <cstdint>
#include <iostream>
#include <string>

#include "IgpCommon/IgpLsp.h"

namespace {

using namespace Routing::IgpCommon;

IgpNodeId router(std::uint8_t n, std::uint8_t pseudonode = 0) {
    const std::uint8_t bytes[7] = {0, 0, 0, 0, 0, n, pseudonode};
    return IgpNodeId::fromBytes(bytes);
}

Lumo::IpAddr v4(const char* text) {
    return Kest::strepToValue(text, static_cast<Lumo::IpAddr*>(nullptr));
}
Lumo::Ip6Addr v6(const char* text) {
    return Kest::strepToValue(text, static_cast<Lumo::Ip6Addr*>(nullptr));
}
Lumo::IpGenPrefix prefix(const char* text) {
    return Kest::strepToValue(text, static_cast<Lumo::IpGenPrefix*>(nullptr));
}
Routing::Isis::AreaId area(const char* text) {
    return Kest::strepToValue(text, static_cast<Routing::Isis::AreaId*>(nullptr));
}

// ---- watching changes ----------------------------------------------------------

// Prints every change of every object it watches, and starts watching the
// neighbors, prefixes and nodes that appear, so one observer sees everything.
class ChangeLog final : public Poldo::Observer {
public:
    void watch(const IgpLspDatabase& db) { db.publisher().observerIs(*this); }

    void onChange(const Poldo::Notification& n) override {
        std::cout << "  " << n.entityType().name.substr(n.entityType().name.rfind(':') + 1) << '.'
                  << n.attrName();
        if (const auto* entry = n.entity<IgpLsp>()) {
            std::cout << " of " << entry->nodeId().toStrep();
        } else if (const auto* nbr = n.entity<Neighbor>()) {
            std::cout << " of neighbor " << nbr->key().toStrep();
        } else if (const auto* pfx = n.entity<Prefix>()) {
            std::cout << " of prefix " << pfx->prefixKey().prefix();
        } else if (const auto* node = n.entity<Node>()) {
            std::cout << " of node " << node->nodeId().toStrep();
        }
        describeKey(n);
        describeOld(n);
        std::cout << '\n';
        follow(n);
    }

private:
    static void describeKey(const Poldo::Notification& n) {
        if (const auto* k = n.key<IgpNodeId>()) {
            std::cout << " [" << k->toStrep() << ']';
        } else if (const auto* k = n.key<NeighborKey>()) {
            std::cout << " [" << k->toStrep() << ']';
        } else if (const auto* k = n.key<PrefixKey>()) {
            std::cout << " [" << k->prefix() << ']';
        } else if (const auto* k = n.key<std::uint32_t>()) {
            std::cout << " [" << *k << ']';
        } else if (const auto* k = n.key<AdjacencySid>()) {
            std::cout << " [adjSid " << k->value() << ']';
        }
    }

    static void describeOld(const Poldo::Notification& n) {
        if (!n.hasOldValue()) {
            std::cout << ": added";
        } else if (const auto* v = n.oldValue<std::uint32_t>()) {
            std::cout << ": was " << *v;
        } else if (const auto* v = n.oldValue<float>()) {
            std::cout << ": was " << *v;
        } else if (const auto* v = n.oldValue<Neighbor::NeighborAttrsPresent>()) {
            std::cout << ": was " << unsigned{v->value()};
        } else if (n.oldValue<Poldo::Ptr<Neighbor>>() || n.oldValue<Poldo::Ptr<Prefix>>() ||
                   n.oldValue<Poldo::Ptr<IgpLsp>>()) {
            std::cout << ": removed";
        } else {
            std::cout << ": changed";
        }
    }

    // New entries, neighbors, prefixes and nodes get watched as they arrive.
    void follow(const Poldo::Notification& n) {
        if (n.hasOldValue()) {
            return;
        }
        if (const auto* db = n.entity<IgpLspDatabase>()) {
            if (const auto entry = db->lsp(*n.key<IgpNodeId>())) {
                entry->publisher().observerIs(*this);
                if (entry->node()) {
                    entry->node()->publisher().observerIs(*this);
                }
                for (const auto& m : entry->neighbor()) {
                    m.value->publisher().observerIs(*this);
                }
                for (const auto& m : entry->prefix()) {
                    m.value->publisher().observerIs(*this);
                }
            }
        } else if (const auto* entry = n.entity<IgpLsp>()) {
            if (const auto* key = n.key<NeighborKey>()) {
                entry->neighbor(*key)->publisher().observerIs(*this);
            } else if (const auto* key = n.key<PrefixKey>()) {
                entry->prefix(*key)->publisher().observerIs(*this);
            }
        }
    }
};

// ---- building LSP contents, as a decoder would --------------------------------

struct Link {
    IgpNodeId to;
    const char* local;
    const char* remote;
    std::uint32_t metric;
};

void addLink(IsisLspParsedContent& lsp, const Link& l, std::uint32_t adjSidLabel, std::uint32_t srlg) {
    NeighborKey key(l.to, IgpMultiTopologyId(0));
    key.localIpv4AddrIs(v4(l.local));
    key.remoteIpv4AddrIs(v4(l.remote));
    const auto nbr = lsp.neighborIs(key);
    nbr->igpMetricIs(l.metric);
    nbr->teDefMetricIs(l.metric);
    nbr->maxLinkBwIs(1.25e9f);
    for (std::uint8_t p = 0; p < 8; ++p) {
        nbr->unreservedBwIs(BwIndex(p), 1.25e9f);
    }
    Neighbor::NeighborAttrsPresent present;
    present.maxLinkBwIs(true);
    present.unreservedBwIs(true);
    present.teDefMetricIs(true);
    nbr->attrsPresentIs(present);
    nbr->adjSidIs(AdjacencySid(0x30, adjSidLabel, 0));
    // SRLGs arrive in their own TLV, keyed by the link's local address.
    lsp.parsedSrLgIs(Lumo::IpGenAddr(v4(l.local)))->srlgValueIs(srlg);
}

void addPrefix(IsisLspParsedContent& lsp, const char* text, std::uint32_t metric, std::uint32_t sidIndex) {
    const auto pfx = lsp.prefixIs(PrefixKey(prefix(text), IgpMultiTopologyId(0)));
    pfx->hasValidReachabilityIs(true);
    pfx->metricIs(metric);
    if (sidIndex != 0) {
        pfx->prefixSidIs(PrefixSid(0x40, sidIndex, 0, true));
        pfx->prefixMetric()->metricIs(128, metric * 2);
    }
}

Poldo::Ptr<Node> routerNode(std::uint8_t n, const char* name, const char* areaText, const char* routerId) {
    auto node = nodeFactory(router(n));
    node->hostNameIs(name);
    node->ipv4RouterIdIs(v4(routerId));
    node->ipv6RouterIdIs(v6(("2001:db8::" + std::to_string(n)).c_str()));
    auto areas = isisAreaIdColFactory();
    areas->areaIdIs(area(areaText), true);
    node->isisAreaIdColIs(areas);

    auto srgb = srCapabilitiesFactory();
    srgb->srCapFlagIs(SrCapabilityFlags(3));
    srgb->sidLabelRangeIs(SrSidRangeIndex(0), SrSidRange(8000, Lumo::MplsLabel(16000)));
    srgb->numRangesInc(1);
    node->srCapabilitiesIs(srgb);
    auto srlb = srCapabilitiesFactory();
    srlb->sidLabelRangeIs(SrSidRangeIndex(0), SrSidRange(1000, Lumo::MplsLabel(15000)));
    srlb->numRangesInc(1);
    node->srlbIs(srlb);

    auto msd = igpMsdColFactory();
    msd->msdIs(0, IgpMsd(1, 10));
    node->msdColIs(msd);

    IgpFlexAlgoDefinition fad;
    fad.flexAlgoIs(128);
    fad.priorityIs(100);
    fad.excludeAny()->valuePush(0x1);
    auto fads = igpFlexAlgoDefinitionColFactory();
    fads->fadIs(128, fad);
    node->fadColIs(fads);
    return node;
}

Poldo::Ptr<IsisLspParsedContent> r1Lsp(std::uint32_t linkMetric, bool withR6Loopback) {
    auto lsp = isisLspParsedContentFactory();
    lsp->nodeIs(routerNode(1, "r1", "49.0002", "10.0.0.1"));
    addLink(*lsp, {router(6), "10.16.0.1", "10.16.0.6", linkMetric}, 24001, 1001);
    lsp->neighborIs(NeighborKey(router(1, 1), IgpMultiTopologyId(0)))->igpMetricIs(10);
    addPrefix(*lsp, "10.0.0.1/32", 0, 1);
    addPrefix(*lsp, "10.16.0.0/24", linkMetric, 0);
    if (withR6Loopback) {
        addPrefix(*lsp, "10.0.0.6/32", 20, 0);
    }
    // A mapping-server style binding on a prefix of its own.
    const auto bound = lsp->prefixIs(PrefixKey(prefix("10.99.0.0/24"), IgpMultiTopologyId(0)));
    auto binding = sidLabelBindingFactory();
    binding->rangeIs(16);
    binding->basePrefixSidIs(PrefixSid(0, 500, 0, true));
    bound->sidLabelBindingIs(binding);
    return lsp;
}

Poldo::Ptr<IsisLspParsedContent> pseudonodeLsp() {
    auto lsp = isisLspParsedContentFactory();
    lsp->nodeIs(nodeFactory(router(1, 1)));
    for (std::uint8_t r : {1, 2, 3}) {
        lsp->neighborIs(NeighborKey(router(r), IgpMultiTopologyId(0)));
    }
    return lsp;
}

Poldo::Ptr<IsisLspParsedContent> level1Lsp(std::uint8_t n, const char* name, const char* routerId) {
    auto lsp = isisLspParsedContentFactory();
    lsp->nodeIs(routerNode(n, name, "49.0001", routerId));
    addLink(
        *lsp,
        {router(n == 2 ? 3 : 2), n == 2 ? "10.23.0.2" : "10.23.0.3", n == 2 ? "10.23.0.3" : "10.23.0.2", 10},
        24000 + n, 2000 + n);
    addPrefix(*lsp, routerId == std::string("10.0.0.2") ? "10.0.0.2/32" : "10.0.0.3/32", 0, n);
    return lsp;
}

// ---- the agent's receive path ------------------------------------------------------

void receive(IgpLspDatabase& db, const Poldo::Ptr<IsisLspParsedContent>& lsp) {
    db.lspMerge(lsp);
}

}  // namespace

int main() {
    auto level1 = igpLspDatabaseFactory(igpLevelIsisLevel1);
    auto level2 = igpLspDatabaseFactory(igpLevelIsisLevel2);
    ChangeLog log;
    log.watch(*level1);
    log.watch(*level2);

    std::cout << "== first flooding\n";
    receive(*level2, r1Lsp(10, true));
    receive(*level2, pseudonodeLsp());
    receive(*level1, level1Lsp(2, "r2", "10.0.0.2"));
    receive(*level1, level1Lsp(3, "r3", "10.0.0.3"));

    std::cout << "== r1 floods the same LSP again (a binding is replaced on every merge that carries one)\n";
    receive(*level2, r1Lsp(10, true));

    std::cout << "== r1 raises its metric to r6 and withdraws 10.0.0.6/32\n";
    receive(*level2, r1Lsp(30, false));

    std::cout << "== the pseudonode is purged\n";
    level2->lspDel(router(1, 1));

    std::cout << "== level-1 database (" << level1->lspCount() << " LSPs)\n";
    level1->dumpState(Umbo::DumpContext::dumpContextIs(std::cout), 0);
    std::cout << "== level-2 database (" << level2->lspCount() << " LSPs)\n";
    level2->dumpState(Umbo::DumpContext::dumpContextIs(std::cout), 0);
    return 0;
}
