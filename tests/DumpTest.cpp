// IgpLspDatabase::dumpState: what it writes for an entry (node, neighbors, prefixes), how it indents,
// and its refusal of an entry without a node.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>

#include "IgpCommon/LspDatabase.h"
#include "IgpCommon/platform/Umbo.h"
#include "tests/support/Builders.h"

namespace {

using namespace Routing::IgpCommon;
using testsupport::nbrKey;
using testsupport::nodeId;

std::string dump(const IgpLspDatabase& db, unsigned indent) {
    auto ctx = Umbo::DumpContext::dumpContextIs();
    db.dumpState(ctx, indent);
    return ctx->text();
}

Poldo::Ptr<IgpLsp> entry(std::uint8_t id, NodeFlags flags) {
    auto e = igpLspFactory(nodeId(id));
    e->nodeIs(nodeFactory(nodeId(id)));
    e->node()->flagsIs(flags);
    return e;
}

Poldo::Ptr<IgpLsp> entryA() {
    auto e = entry(1, NodeFlags(1));
    e->node()->hostNameIs("r1");
    e->node()->ipv4RouterIdIs(testsupport::v4("1.1.1.1"));
    const NeighborKey k = nbrKey(2, {"10.0.0.1"}, {"10.0.0.2"});
    auto n = neighborFactory(k);
    n->attrsPresentIs(Neighbor::NeighborAttrsPresent(0x21));  // adminGroup and teDefMetric
    n->adminGroupIs(5);
    n->teDefMetricIs(20);
    n->igpMetricIs(10);
    n->maxLinkBwIs(1e9f);  // not flagged present: left out
    n->srlgValuesIs(7);
    n->adjSidIs(AdjacencySid(0x30, 24001, 0));
    e->neighborIs(k, n);
    auto p = prefixFactory(testsupport::pfxKey("10.1.0.0/16"));
    p->hasValidReachabilityIs(true);
    p->metricIs(10);
    p->prefixSidIs(PrefixSid(0x40, 100, 0, true));
    e->prefixIs(p->prefixKey(), p);
    return e;
}

const std::array<std::string, 3> kTextsA{
    "  node=1921.6800.1001, flags=<overload>, hostname=r1, v4rtrid=1.1.1.1\n",
    "          ngb=1921.6800.1002, localIpv4Addr=[ 10.0.0.1 ], localIpv6Addr=[ ], remoteIpv4Addr=[ 10.0.0.2 "
    "], "
    "remoteIpv6Addr=[ ]\n"
    "                    igpMetric=10, adminGroup=5, teDefMetric=20, srlg=[7], adjSid=[{24001, flags=0x30, "
    "wt=0}]\n",
    "          prefix=10.1.0.0/16, flags=<>, metric=10, PrefixSID={100, flags=0x40, algo=0}\n",
};
std::string indented(const std::array<std::string, 3>& texts, const std::string& pad) {
    std::string out;
    for (const auto& t : texts) {
        out += pad + t;
    }
    return out;
}

TEST(IgpLspDatabaseDump, GoldenTextAtEachIndentationIncludingTheWrappedWidths) {
    auto db = igpLspDatabaseFactory(igpLevelIsisLevel2);
    db->lspIs(entryA());
    const struct {
        unsigned indentCount;
        std::string pad;
    } cases[] = {
        {0u, "  "},
        {4u, "      "},
        {4294967294u, ""},   // 2^32 - 2 + 2 wraps to a width of 0: no indentation at all
        {4294967295u, " "},  // wraps to 1
    };
    for (const auto& c : cases) {
        SCOPED_TRACE("indentCount " + std::to_string(c.indentCount));
        EXPECT_EQ(dump(*db, c.indentCount), indented(kTextsA, c.pad));
    }
}

TEST(IgpLspDatabaseDumpDeathTest, EntryWithoutNodeStopsTheProcess) {
    const std::string savedStyle = GTEST_FLAG_GET(death_test_style);
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    auto db = igpLspDatabaseFactory(igpLevelIsisLevel2);
    db->lspIs(igpLspFactory(nodeId(1)));
    auto ctx = Umbo::DumpContext::dumpContextIs();
    EXPECT_DEATH(db->dumpState(ctx, 0), "a dumped entry has a node");
    GTEST_FLAG_SET(death_test_style, savedStyle);
}

}  // namespace
