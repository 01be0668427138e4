// IsisLspParsedContent: find-or-create of neighbors, prefixes and SRLG records by their own key,
// hand-back on deletion, and no publication anywhere.
#include "IgpCommon/ParsedContent.h"

#include <gtest/gtest.h>

#include "tests/support/Builders.h"
#include "tests/support/RecordingObserver.h"

namespace {

using namespace Routing::IgpCommon;
using Lumo::IpGenAddr;
using testsupport::nbrKey;
using testsupport::pfxKey;
using testsupport::v4;

// The parsed content is scratch: nothing may observe it.
template <class T>
concept HasPublisher = requires(const T& t) {
    t.publisher();
};
static_assert(!HasPublisher<IsisLspParsedContent>);
static_assert(!HasPublisher<NeighborSrlg>);

TEST(IsisLspParsedContent, BuildingAnEqualKeyAgainFindsTheMemberWithoutResettingIt) {
    auto parsed = isisLspParsedContentFactory();
    auto first = parsed->neighborIs(nbrKey(2, {"10.0.0.1"}));
    first->igpMetricIs(30);
    IgpTest::RecordingObserver<> onNeighbor(first->publisher());
    EXPECT_EQ(parsed->neighborIs(nbrKey(2, {"10.0.0.1"})), first);  // an equal key built separately
    EXPECT_EQ(first->igpMetric(), 30u);
    EXPECT_TRUE(onNeighbor.empty());
    auto other = parsed->neighborIs(nbrKey(2, {"10.0.0.2"}));
    EXPECT_NE(other, first);
    EXPECT_EQ(other->key(), nbrKey(2, {"10.0.0.2"}));
    EXPECT_EQ(parsed->neighbor().size(), 2u);

    auto p = parsed->prefixIs(pfxKey("10.1.0.0/16"));
    p->metricIs(7);
    EXPECT_EQ(parsed->prefixIs(pfxKey("10.1.0.0/16")), p);
    EXPECT_EQ(p->metric(), 7u);
    EXPECT_NE(parsed->prefixIs(pfxKey("10.1.0.0/16", 2)), p);
    EXPECT_NE(parsed->prefixIs(pfxKey("10.1.0.0/24")), p);
    EXPECT_EQ(parsed->prefix().size(), 3u);
    ASSERT_NE(p->prefixMetric(), nullptr) << "a created prefix has its per-algorithm metric object";
}

TEST(IsisLspParsedContent, TheEmptyAddressIsAnOrdinarySrlgKeyDistinctFromZeroAddresses) {
    auto parsed = isisLspParsedContentFactory();
    EXPECT_EQ(parsed->parsedSrLg(IpGenAddr()), nullptr);
    auto none = parsed->parsedSrLgIs(IpGenAddr());
    ASSERT_NE(none, nullptr);
    EXPECT_TRUE(none->localAddr().isNone());
    EXPECT_TRUE(none->srlgValue().empty());
    EXPECT_EQ(parsed->parsedSrLg(IpGenAddr()), none);
    EXPECT_EQ(parsed->parsedSrLgIs(IpGenAddr()), none);
    auto zero4 = parsed->parsedSrLgIs(IpGenAddr(Lumo::IpAddr(0)));
    auto zero6 = parsed->parsedSrLgIs(IpGenAddr(Lumo::Ip6Addr()));
    EXPECT_NE(zero4, none);
    EXPECT_NE(zero6, none);
    EXPECT_NE(zero4, zero6);
    EXPECT_EQ(parsed->parsedSrLg().size(), 3u);

    // The record's values are a set: present values and absent deletions change nothing.
    none->srlgValueIs(5);
    none->srlgValueIs(9);
    none->srlgValueIs(5);
    none->srlgValueDel(77);
    EXPECT_EQ(none->srlgValue().size(), 2u);
    none->srlgValueDel(5);
    EXPECT_FALSE(none->srlgValueHas(5));
    EXPECT_TRUE(none->srlgValueHas(9));
    EXPECT_EQ(parsed->parsedSrLgIs(IpGenAddr())->srlgValue().size(), 1u)
        << "the record found again is the one changed";
}

TEST(IsisLspParsedContent, DeletionsHandBackTheMemberAndAbsentKeysGiveNull) {
    auto parsed = isisLspParsedContentFactory();
    Neighbor* nbr = parsed->neighborIs(nbrKey(2, {"10.0.0.1"})).get();
    Prefix* pfx = parsed->prefixIs(pfxKey("10.1.0.0/16")).get();
    NeighborSrlg* srlg = parsed->parsedSrLgIs(IpGenAddr(v4("10.0.0.1"))).get();
    EXPECT_EQ(parsed->neighborDel(nbrKey(3, {"10.0.0.1"})), nullptr);
    EXPECT_EQ(parsed->prefixDel(pfxKey("10.1.0.0/17")), nullptr);
    EXPECT_EQ(parsed->parsedSrLgDel(IpGenAddr()), nullptr);
    EXPECT_EQ(parsed->neighbor().size() + parsed->prefix().size() + parsed->parsedSrLg().size(), 3u);

    const auto n = parsed->neighborDel(nbrKey(2, {"10.0.0.1"}));
    const auto p = parsed->prefixDel(pfxKey("10.1.0.0/16"));
    const auto s = parsed->parsedSrLgDel(IpGenAddr(v4("10.0.0.1")));
    EXPECT_EQ(n.get(), nbr);
    EXPECT_EQ(p.get(), pfx);
    EXPECT_EQ(s.get(), srlg);
    // The content's own reference moved to the caller: nothing else holds them.
    EXPECT_EQ(n->useCount() + p->useCount() + s->useCount(), 3u);
    EXPECT_TRUE(parsed->neighbor().empty() && parsed->prefix().empty() && parsed->parsedSrLg().empty());
    EXPECT_EQ(parsed->neighborDel(nbrKey(2, {"10.0.0.1"})), nullptr);
}

}  // namespace
