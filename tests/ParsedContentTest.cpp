// IsisLspParsedContent: find-or-create of neighbors, prefixes and SRLG records by their own key,
// hand-back on deletion, and no publication anywhere.
#include "IgpCommon/ParsedContent.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>

#include "support/RecordingObserver.h"

namespace {

using namespace Routing::IgpCommon;
using Lumo::IpAddr;
using Lumo::IpGenAddr;

IgpNodeId nodeId(std::uint8_t last) {
    const std::array<std::uint8_t, 7> b{0x19, 0x21, 0x68, 0x00, 0x10, last, 0};
    return IgpNodeId::fromBytes(b.data());
}

NeighborKey nbrKey(std::uint8_t node, std::uint32_t localV4) {
    NeighborKey k(nodeId(node), IgpMultiTopologyId(0));
    k.localIpv4AddrIs(IpAddr(localV4));
    return k;
}

PrefixKey pfxKey(std::uint32_t addr, std::uint8_t len, std::uint16_t mt = 0) {
    return PrefixKey(Lumo::IpGenPrefix(IpAddr(addr), len), IgpMultiTopologyId(mt));
}

// The parsed content is scratch: nothing may observe it.
template <class T>
concept HasPublisher = requires(const T& t) {
    t.publisher();
};
static_assert(!HasPublisher<IsisLspParsedContent>);
static_assert(!HasPublisher<NeighborSrlg>);

TEST(IsisLspParsedContent, BuildingTheSameNeighborKeyTwiceYieldsOneMember) {
    auto parsed = isisLspParsedContentFactory();
    auto first = parsed->neighborIs(nbrKey(2, 0x0a000001));
    first->igpMetricIs(30);
    IgpTest::RecordingObserver<> onNeighbor(first->publisher());

    // An equal key built separately, not the same object.
    auto again = parsed->neighborIs(nbrKey(2, 0x0a000001));

    EXPECT_EQ(again, first);
    EXPECT_EQ(again->igpMetric(), 30u) << "find-or-create must not reset the found neighbor";
    EXPECT_EQ(parsed->neighbor().size(), 1u);
    EXPECT_TRUE(onNeighbor.empty());
    EXPECT_EQ(parsed->neighbor(nbrKey(2, 0x0a000001)), first);

    auto other = parsed->neighborIs(nbrKey(2, 0x0a000002));
    EXPECT_NE(other, first);
    EXPECT_EQ(other->key(), nbrKey(2, 0x0a000002));
    EXPECT_EQ(parsed->neighbor().size(), 2u);
}

TEST(IsisLspParsedContent, BuildingTheSamePrefixKeyTwiceYieldsOneMemberAndMtIdSeparates) {
    auto parsed = isisLspParsedContentFactory();
    auto p = parsed->prefixIs(pfxKey(0x0a010000, 16));
    p->metricIs(7);

    EXPECT_EQ(parsed->prefixIs(pfxKey(0x0a010000, 16)), p);
    EXPECT_EQ(p->metric(), 7u);
    EXPECT_EQ(parsed->prefix().size(), 1u);

    auto mt2 = parsed->prefixIs(pfxKey(0x0a010000, 16, 2));
    auto longer = parsed->prefixIs(pfxKey(0x0a010000, 24));
    EXPECT_NE(mt2, p);
    EXPECT_NE(longer, p);
    EXPECT_EQ(parsed->prefix().size(), 3u);
    ASSERT_NE(p->prefixMetric(), nullptr) << "a created prefix has its per-algorithm metric object";
}

TEST(IsisLspParsedContent, EmptyAddressIsAnOrdinarySrlgKeyDistinctFromZeroAddresses) {
    auto parsed = isisLspParsedContentFactory();
    EXPECT_EQ(parsed->parsedSrLg(IpGenAddr()), nullptr);

    auto none = parsed->parsedSrLgIs(IpGenAddr());
    ASSERT_NE(none, nullptr);
    EXPECT_TRUE(none->localAddr().isNone());
    EXPECT_TRUE(none->srlgValue().empty());
    EXPECT_EQ(parsed->parsedSrLg(IpGenAddr()), none);
    EXPECT_EQ(parsed->parsedSrLgIs(IpGenAddr()), none);

    auto zero4 = parsed->parsedSrLgIs(IpGenAddr(IpAddr(0)));
    auto zero6 = parsed->parsedSrLgIs(IpGenAddr(Lumo::Ip6Addr()));
    EXPECT_NE(zero4, none);
    EXPECT_NE(zero6, none);
    EXPECT_NE(zero4, zero6);
    EXPECT_EQ(parsed->parsedSrLg().size(), 3u);
}

TEST(IsisLspParsedContent, SrlgValueSetIgnoresPresentValuesAndAbsentDeletions) {
    auto parsed = isisLspParsedContentFactory();
    auto rec = parsed->parsedSrLgIs(IpGenAddr(IpAddr(0x0a000001)));
    rec->srlgValueIs(5);
    rec->srlgValueIs(9);

    rec->srlgValueIs(5);
    EXPECT_EQ(rec->srlgValue().size(), 2u);
    EXPECT_TRUE(rec->srlgValueHas(5));
    EXPECT_TRUE(rec->srlgValueHas(9));

    rec->srlgValueDel(77);
    EXPECT_EQ(rec->srlgValue().size(), 2u);
    rec->srlgValueDel(5);
    EXPECT_FALSE(rec->srlgValueHas(5));
    EXPECT_EQ(rec->srlgValue().size(), 1u);
    // The record found again is the one changed.
    EXPECT_EQ(parsed->parsedSrLgIs(IpGenAddr(IpAddr(0x0a000001)))->srlgValue().size(), 1u);
}

TEST(IsisLspParsedContent, DeletionsHandBackTheMemberAndAbsentKeysGiveNull) {
    auto parsed = isisLspParsedContentFactory();
    Neighbor* nbr = parsed->neighborIs(nbrKey(2, 0x0a000001)).get();
    Prefix* pfx = parsed->prefixIs(pfxKey(0x0a010000, 16)).get();
    NeighborSrlg* srlg = parsed->parsedSrLgIs(IpGenAddr(IpAddr(0x0a000001))).get();
    ASSERT_EQ(nbr->useCount(), 1u);
    ASSERT_EQ(pfx->useCount(), 1u);
    ASSERT_EQ(srlg->useCount(), 1u);

    EXPECT_EQ(parsed->neighborDel(nbrKey(3, 0x0a000001)), nullptr);
    EXPECT_EQ(parsed->prefixDel(pfxKey(0x0a010000, 17)), nullptr);
    EXPECT_EQ(parsed->parsedSrLgDel(IpGenAddr()), nullptr);
    EXPECT_EQ(parsed->neighbor().size(), 1u);
    EXPECT_EQ(parsed->prefix().size(), 1u);
    EXPECT_EQ(parsed->parsedSrLg().size(), 1u);

    const auto n = parsed->neighborDel(nbrKey(2, 0x0a000001));
    const auto p = parsed->prefixDel(pfxKey(0x0a010000, 16));
    const auto s = parsed->parsedSrLgDel(IpGenAddr(IpAddr(0x0a000001)));
    EXPECT_EQ(n.get(), nbr);
    EXPECT_EQ(p.get(), pfx);
    EXPECT_EQ(s.get(), srlg);
    // The content's own reference moved to the caller: nothing else holds them.
    EXPECT_EQ(n->useCount(), 1u);
    EXPECT_EQ(p->useCount(), 1u);
    EXPECT_EQ(s->useCount(), 1u);
    EXPECT_TRUE(parsed->neighbor().empty());
    EXPECT_TRUE(parsed->prefix().empty());
    EXPECT_TRUE(parsed->parsedSrLg().empty());
    EXPECT_EQ(parsed->neighborDel(nbrKey(2, 0x0a000001)), nullptr);
}

}  // namespace
