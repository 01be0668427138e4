// What a built database costs: the sizes of the hot types, and the merge of a realistic LSP into
// a fresh entry, which must size each member table once and copy no key.
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "IgpCommon/LspDatabase.h"
#include "IgpCommon/ParsedContent.h"
#include "support/AllocationCounter.h"

namespace {

using namespace Routing::IgpCommon;

// The x86-64 sizes the memory budget rests on (at most 320 bytes per neighbor and 160 per prefix
// of a built database, everything included): a neighbor fits the 224-byte slab class, a prefix
// the 80-byte one and its per-algorithm metrics the 32-byte one.
TEST(MemoryLayout, HotTypesKeepTheirSizes) {
    const struct {
        const char* type;
        std::size_t size;
        std::size_t budget;
    } rows[] = {
        {"Neighbor", sizeof(Neighbor), 232},
        {"NeighborKey", sizeof(NeighborKey), 76},
        {"NeighborKey::LocalIpv4AddrSet", sizeof(NeighborKey::LocalIpv4AddrSet), 12},
        {"NeighborKey::LocalIpv6AddrSet", sizeof(NeighborKey::LocalIpv6AddrSet), 20},
        {"AdjacencySid", sizeof(AdjacencySid), 16},
        {"Prefix", sizeof(Prefix), 80},
        {"PrefixSid", sizeof(PrefixSid), 16},
        {"IgpFlexAlgoPrefixMetric", sizeof(IgpFlexAlgoPrefixMetric), 32},
        {"IgpLsp::NeighborMap", sizeof(IgpLsp::NeighborMap), 16},
    };
    for (const auto& r : rows) {
        EXPECT_LE(r.size, r.budget) << r.type;
    }
}

IgpNodeId nodeId(std::uint8_t last) {
    const std::array<std::uint8_t, 7> b{0x19, 0x21, 0x68, 0x00, 0x10, last, 0};
    return IgpNodeId::fromBytes(b.data());
}

TEST(MemoryLayout, MergingIntoAFreshEntrySizesEachTableOnceAndCopiesNoKey) {
    auto parsed = isisLspParsedContentFactory();
    for (std::uint8_t i = 1; i <= 8; ++i) {
        NeighborKey k(nodeId(i), IgpMultiTopologyId(0));
        k.localIpv4AddrIs(Lumo::IpAddr(0x0a000000u + 4u * i + 1));
        k.remoteIpv4AddrIs(Lumo::IpAddr(0x0a000000u + 4u * i + 2));
        std::array<std::uint8_t, 16> a{0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, i, 1};
        k.localIpv6AddrIs(Lumo::Ip6Addr::fromBytes(a.data()));
        a[15] = 2;
        k.remoteIpv6AddrIs(Lumo::Ip6Addr::fromBytes(a.data()));
        const auto n = parsed->neighborIs(k);
        n->adjSidIs(AdjacencySid(0x30, 16000u + i, 0));
        n->adjSidIs(AdjacencySid(0x20, 17000u + i, 0));
        parsed->parsedSrLgIs(Lumo::IpGenAddr(Lumo::IpAddr(0x0a000000u + 4u * i + 1)))->srlgValueIs(i);
    }
    for (std::uint32_t i = 0; i < 20; ++i) {
        const auto p = parsed->prefixIs(
            PrefixKey(Lumo::IpGenPrefix(Lumo::IpAddr(0x64000000u + (i << 8)), 24), IgpMultiTopologyId(0)));
        p->hasValidReachabilityIs(true);
        p->prefixSidIs(PrefixSid(0x40, i, 0, true));
        p->prefixMetric()->metricIs(128, 10 + i);
    }
    const auto entry = igpLspFactory(nodeId(0));

    const testsupport::AllocationScope scope;
    entry->updateNeighbors(parsed);
    entry->updatePrefixes(parsed);
    EXPECT_EQ(scope.count(), 2u) << "one table per member collection; SIDs, SRLGs and metrics in place";

    ASSERT_EQ(entry->neighbor().size(), 8u);
    ASSERT_EQ(entry->prefix().size(), 20u);
    for (const auto& e : entry->neighbor()) {
        EXPECT_EQ(&e.key, &e.value->key()) << "the entry reads the neighbor's own key";
        EXPECT_EQ(e.value->srlgValues().size(), 1u);
    }
    for (const auto& e : entry->prefix()) {
        EXPECT_EQ(&e.key, &e.value->prefixKey());
    }
}

}  // namespace
