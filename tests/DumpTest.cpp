// IgpLspDatabase::dumpState: what it writes for each entry, how it indents, and its refusal of
// an entry without a node.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>

#include "IgpCommon/LspDatabase.h"
#include "IgpCommon/platform/Umbo.h"

namespace {

using namespace Routing::IgpCommon;
using Lumo::Ip6Addr;
using Lumo::IpAddr;

IgpNodeId nodeId(std::uint8_t last) {
    const std::array<std::uint8_t, 7> b{0x19, 0x21, 0x68, 0x00, 0x10, last, 0};
    return IgpNodeId::fromBytes(b.data());
}
Ip6Addr v6(std::uint16_t first, std::uint16_t second, std::uint8_t last) {
    std::array<std::uint8_t, 16> b{static_cast<std::uint8_t>(first >> 8), static_cast<std::uint8_t>(first),
                                   static_cast<std::uint8_t>(second >> 8), static_cast<std::uint8_t>(second)};
    b[15] = last;
    return Ip6Addr::fromBytes(b.data());
}

std::string dump(const IgpLspDatabase& db, unsigned indent) {
    auto ctx = Umbo::DumpContext::dumpContextIs();
    db.dumpState(ctx, indent);
    return ctx->text();
}

// Entry A: a router with one numbered IPv4 neighbor carrying TE attributes and one reachable prefix.
Poldo::Ptr<IgpLsp> entryA() {
    auto e = igpLspFactory(nodeId(1));
    auto node = nodeFactory(nodeId(1));
    NodeFlags flags;
    flags.overloadBitIs(true);
    node->flagsIs(flags);
    node->hostNameIs("r1");
    node->ipv4RouterIdIs(IpAddr(0x01010101));
    e->nodeIs(node);

    NeighborKey k(nodeId(2), IgpMultiTopologyId(0));
    k.localIpv4AddrIs(IpAddr(0x0a000001));
    k.remoteIpv4AddrIs(IpAddr(0x0a000002));
    auto n = neighborFactory(k);
    n->attrsPresentIs(Neighbor::NeighborAttrsPresent(0x21));  // adminGroup and teDefMetric
    n->adminGroupIs(5);
    n->teDefMetricIs(20);
    n->igpMetricIs(10);
    n->maxLinkBwIs(1e9f);  // not flagged present: left out
    n->srlgValuesIs(7);
    n->adjSidIs(AdjacencySid(0x30, 24001, 0));
    e->neighborIs(k, n);

    const PrefixKey pk(Lumo::IpGenPrefix(IpAddr(0x0a010000), 16), IgpMultiTopologyId(0));
    auto p = prefixFactory(pk);
    p->hasValidReachabilityIs(true);
    p->metricIs(10);
    p->prefixSidIs(PrefixSid(0x40, 100, 0, true));
    e->prefixIs(pk, p);
    return e;
}

// Entry B: an attached router with an IPv6 neighbor in topology 2 and an unreachable prefix
// that carries a binding.
Poldo::Ptr<IgpLsp> entryB() {
    auto e = igpLspFactory(nodeId(2));
    auto node = nodeFactory(nodeId(2));
    NodeFlags flags;
    flags.attachedBitIs(true);
    node->flagsIs(flags);
    e->nodeIs(node);

    NeighborKey k(nodeId(1), IgpMultiTopologyId(2));
    k.localIpv6AddrIs(v6(0xfe80, 0, 1));
    k.remoteIpv6AddrIs(v6(0xfe80, 0, 2));
    auto n = neighborFactory(k);
    n->igpMetricIs(10);
    e->neighborIs(k, n);

    const PrefixKey pk(Lumo::IpGenPrefix(v6(0x2001, 0x0db8, 0), 32), IgpMultiTopologyId(2));
    auto p = prefixFactory(pk);
    p->metricIs(77);  // an unreachable prefix shows no metric
    auto binding = sidLabelBindingFactory();
    binding->rangeIs(4);
    binding->baseLabelSidIs(LabelSid(0x80, 16000, true));
    p->sidLabelBindingIs(binding);
    e->prefixIs(pk, p);
    return e;
}

// The texts of each entry in dump order (node, neighbors, prefixes), each its own string.
const std::array<std::string, 3> kTextsA{
    "  node=1921.6800.1001, flags=<overload>, hostname=r1, v4rtrid=1.1.1.1\n",
    "          ngb=1921.6800.1002, localIpv4Addr=[ 10.0.0.1 ], localIpv6Addr=[ ], remoteIpv4Addr=[ 10.0.0.2 "
    "], "
    "remoteIpv6Addr=[ ]\n"
    "                    igpMetric=10, adminGroup=5, teDefMetric=20, srlg=[7], adjSid=[{24001, flags=0x30, "
    "wt=0}]\n",
    "          prefix=10.1.0.0/16, flags=<>, metric=10, PrefixSID={100, flags=0x40, algo=0}\n",
};
const std::array<std::string, 3> kTextsB{
    "  node=1921.6800.1002, flags=<, attached>\n",
    "          ngb=1921.6800.1001, localIpv4Addr=[ ], localIpv6Addr=[ fe80::1 ], remoteIpv4Addr=[ ], "
    "remoteIpv6Addr=[ fe80::2 ]\n"
    "                    igpMetric=10\n",
    "          prefix=2001:db8::/32, mtId=2, sidLabelBinding={flags=-, range=4, lspFragmentId=0, "
    "LabelSID={mpls=16000}}\n",
};

std::string indented(const std::array<std::string, 3>& texts, const std::string& pad) {
    std::string out;
    for (const auto& t : texts) {
        out += pad + t;
    }
    return out;
}

TEST(IgpLspDatabaseDump, EmptyDatabaseWritesNothing) {
    auto db = igpLspDatabaseFactory(igpLevelIsisLevel2);
    for (const unsigned indent : {0u, 6u, 4294967294u, 4294967295u}) {
        auto ctx = Umbo::DumpContext::dumpContextIs();
        db->dumpState(ctx, indent);
        EXPECT_EQ(ctx->bytesWritten(), 0u) << "indent " << indent;
        EXPECT_EQ(ctx->text(), "");
    }
}

TEST(IgpLspDatabaseDump, EntryWithoutMembersWritesOnlyItsNodeText) {
    auto db = igpLspDatabaseFactory(igpLevelIsisLevel2);
    auto e = igpLspFactory(nodeId(9));
    e->nodeIs(nodeFactory(nodeId(9)));
    db->lspIs(e);

    EXPECT_EQ(dump(*db, 0), "    node=1921.6800.1009, flags=<>\n");
    EXPECT_EQ(dump(*db, 3), "       node=1921.6800.1009, flags=<>\n");
}

// Entry order follows the hash seed, so either order of the two entries is right; within an
// entry the order is fixed: node, neighbors, prefixes.
struct IndentCase {
    unsigned indentCount;
    std::string pad;
};

TEST(IgpLspDatabaseDump, TwoEntriesGoldenTextAtEachIndentationIncludingTheWrappedWidths) {
    auto db = igpLspDatabaseFactory(igpLevelIsisLevel2);
    db->lspIs(entryA());
    db->lspIs(entryB());
    const IndentCase cases[] = {
        {0u, "  "},
        {4u, "      "},
        {4294967294u, ""},   // 2^32 - 2 + 2 wraps to a width of 0: no indentation at all
        {4294967295u, " "},  // wraps to 1
    };
    for (const auto& c : cases) {
        SCOPED_TRACE("indentCount " + std::to_string(c.indentCount));
        const std::string a = indented(kTextsA, c.pad);
        const std::string b = indented(kTextsB, c.pad);
        const std::string text = dump(*db, c.indentCount);
        EXPECT_TRUE(text == a + b || text == b + a) << "got:\n"
                                                    << text << "expected, in either entry order:\n"
                                                    << a << b;
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
