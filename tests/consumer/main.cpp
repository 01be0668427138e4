// Smallest agent built against an installed IgpCommon: it must compile with only the installed
// headers, link against libIgpCommon.so and run. It merges one LSP, observes a change and dumps.
#include "IgpCommon/IgpLsp.h"

#include <cstdio>
#include <string>

int main() {
    using namespace Routing::IgpCommon;
    const std::uint8_t bytes[7] = {0x19, 0x21, 0x68, 0x00, 0x10, 0x01, 0x00};
    const IgpNodeId id = IgpNodeId::fromBytes(bytes);

    auto db = igpLspDatabaseFactory(igpLevelIsisLevel2);
    int changes = 0;
    Poldo::FunctionObserver count([&changes](const Poldo::Notification&) { ++changes; });
    db->publisher().observerIs(count);

    auto lsp = isisLspParsedContentFactory();
    lsp->nodeIs(nodeFactory(id));
    lsp->neighborIs(NeighborKey(id, IgpMultiTopologyId(0)))->igpMetricIs(10);
    auto entry = igpLspFactory(id);
    entry->nodeIs(lsp->node());
    entry->updateNeighbors(lsp);
    db->lspIs(entry);

    auto out = Umbo::DumpContext::dumpContextIs();
    db->dumpState(out, 0);
    db->publisher().observerDel(count);
    const bool ok = changes == 1 && out->text().find("    node=1921.6800.1001") == 0;
    std::puts(ok ? "IgpCommon consumer: ok" : "IgpCommon consumer: unexpected result");
    return ok ? 0 : 1;
}
