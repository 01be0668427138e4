// Neighbor: what its collections publish on writes and bulk deletions, the attribute merge (its
// order, and that a no-op merge allocates nothing), and the dump text.
#include "IgpCommon/Neighbor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <sstream>
#include <string>

#include "tests/support/AllocationCounter.h"
#include "tests/support/Builders.h"
#include "tests/support/RecordingObserver.h"

namespace {

using namespace Routing::IgpCommon;  // NOLINT(google-build-using-namespace)
using ::testing::ElementsAre;
using testsupport::formatted;
using testsupport::messageOf;
using testsupport::nbrKey;
using Attrs = Neighbor::NeighborAttrsPresent;
using Rec =
    IgpTest::RecordingObserver<std::uint32_t, float, BwIndex, AdminGroupIndex, AdjacencySid, LanAdjacencySid>;
using A = Neighbor::Attr;

Routing::Isis::SystemId sysId(std::uint8_t last) {
    return Routing::Isis::SystemId({0, 0, 0, 0, 0, last});
}

TEST(NeighborSetters, NaNIsAlwaysAChangeIndexEightIsRefusedAndAbsentMembersPublishNothing) {
    auto n = testsupport::fullNeighbor();
    Rec rec(n->publisher());
    const float nan = std::numeric_limits<float>::quiet_NaN();
    n->maxLinkBwIs(nan);
    n->maxLinkBwIs(nan);
    ASSERT_EQ(rec.size(), 2u);
    EXPECT_TRUE(std::isnan(*rec[1].oldAs<float>()));
    rec.clear();
    const auto before = n->unreservedBw();
    EXPECT_EQ(messageOf<Kest::RangeException>([&] { n->unreservedBwIs(BwIndex(8), 1.0f); }),
              "cannot access index 8 of an array with size 8");
    EXPECT_EQ(n->unreservedBw(), before);
    n->unreservedBwDel(BwIndex(2));
    n->srlgValuesDel(43);
    n->adjSidDel(AdjacencySid(0x30, 16001, 1));  // another weight: another member
    n->extAdminGroupDel(AdminGroupIndex(2));
    EXPECT_TRUE(rec.empty());
    n->extAdminGroupDel(AdminGroupIndex(40));  // a stored zero is a member
    n->unreservedBwDelAll();
    ASSERT_EQ(rec.size(), 3u);
    EXPECT_EQ(*rec[0].oldAs<std::uint32_t>(), 0u);
    EXPECT_EQ(rec[1].keyAs<BwIndex>()->value(), 0u) << "only the non-zero entries";
    EXPECT_EQ(*rec[2].oldAs<float>(), 500.0f);
}

TEST(NeighborDelAll, OnceObservedPublishesEveryMemberEvenAfterTheObserverLeft) {
    auto n = neighborFactory(nbrKey(1));
    for (std::uint8_t i = 0; i < 10; ++i) {
        n->extAdminGroupIs(AdminGroupIndex(static_cast<std::uint8_t>(i * 6)), i);
        n->srlgValuesIs(100u + i);
        n->adjSidIs(AdjacencySid(0x30, 16000u + i, i));
        n->lanAdjSidIs(LanAdjacencySid(0x30, 17000u + i, 0, sysId(i)));
    }
    { Rec gone(n->publisher()); }  // observed once: every later removal publishes
    Rec rec(n->publisher());
    n->extAdminGroupDelAll();
    n->srlgValuesDelAll();
    n->adjSidDelAll();
    n->lanAdjSidDelAll();
    EXPECT_TRUE(n->extAdminGroup().empty() && n->srlgValues().empty() && n->adjSid().empty() &&
                n->lanAdjSid().empty());
    ASSERT_EQ(rec.size(), 40u);
    const Kest::AttrId attrs[] = {A::extAdminGroup, A::srlgValues, A::adjSid, A::lanAdjSid};
    for (std::size_t i = 0; i < rec.size(); ++i) {
        ASSERT_EQ(rec[i].attr, attrs[i / 10]) << i;
        ASSERT_TRUE(rec[i].hasOldValue) << i;
    }
}

TEST(NeighborUpdateAttr, FromAnIdenticalNeighborPublishesAndAllocatesNothing) {
    auto mine = testsupport::fullNeighbor();
    const Poldo::Ptr<const Neighbor> other = testsupport::fullNeighbor();
    Rec rec(mine->publisher());
    const std::uint64_t tracked = testsupport::trackedAllocations();
    const testsupport::AllocationScope heap;
    mine->updateAttr(other);
    EXPECT_EQ(heap.count(), 0u);
    EXPECT_EQ(testsupport::trackedAllocations(), tracked);
    EXPECT_TRUE(rec.empty());
}

TEST(NeighborUpdateAttr, PublishesScalarsThenEachCollectionsAdditionsBeforeItsRemovals) {
    auto mine = testsupport::fullNeighbor();
    auto other = testsupport::fullNeighbor();
    other->attrsPresentIs(Attrs());
    other->igpMetricIs(5);
    other->unreservedBwIs(BwIndex(2), 20.0f);
    other->unreservedBwDel(BwIndex(5));
    other->extAdminGroupIs(AdminGroupIndex(2), 0x22);
    other->extAdminGroupDel(AdminGroupIndex(1));
    other->srlgValuesIs(11);
    other->srlgValuesDel(7);
    other->adjSidIs(AdjacencySid(0x30, 16001, 5));
    other->adjSidDel(AdjacencySid(0x30, 16001, 0));
    other->lanAdjSidDelAll();
    other->lanAdjSidIs(LanAdjacencySid(0x30, 16003, 1, sysId(3)));
    other->linkDelayIs(LinkDelay(9, true));
    Rec rec(mine->publisher());
    mine->updateAttr(other);
    EXPECT_THAT(rec.attrs(), ElementsAre(A::attrsPresent, A::igpMetric, A::unreservedBw, A::unreservedBw,
                                         A::extAdminGroup, A::extAdminGroup, A::srlgValues, A::srlgValues,
                                         A::adjSid, A::adjSid, A::lanAdjSid, A::lanAdjSid, A::linkDelay));
    ASSERT_EQ(rec.size(), 13u);
    EXPECT_EQ(rec[2].keyAs<BwIndex>()->value(), 2u);
    for (std::size_t first : {4u, 6u, 8u, 10u}) {
        EXPECT_FALSE(rec[first].hasOldValue) << first;
        EXPECT_TRUE(rec[first + 1].hasOldValue) << first;
    }
    EXPECT_EQ(formatted(*mine), formatted(*other));
}

TEST(NeighborUpdateAttr, CollectionsEndEqualWhateverTheirIterationOrder) {
    auto mine = testsupport::fullNeighbor();
    auto other = neighborFactory(nbrKey(1));
    for (std::uint32_t i = 0; i < 60; ++i) {
        if (i % 3 != 0) {
            mine->srlgValuesIs(1000 + i * 7);
            mine->extAdminGroupIs(AdminGroupIndex(static_cast<std::uint8_t>(i)), i);
        }
        if (i % 2 != 0) {
            other->srlgValuesIs(1000 + i * 7);
            other->extAdminGroupIs(AdminGroupIndex(static_cast<std::uint8_t>(i)), i % 4 == 1 ? i : i + 1);
        }
    }
    mine->updateAttr(other);
    EXPECT_EQ(Kest::firstDifference(*mine, *other), "");
}

// ---- dump text -------------------------------------------------------------------------------

// The flags alone decide (a flagged default prints, an unflagged value not); SRLGs follow the set;
// the SIDs' hex flags leave the stream decimal.
TEST(NeighborFormat, FlaggedAttributesOnlyAndTheStreamIsDecimalAfterwards) {
    auto n = neighborFactory(nbrKey(1, {"10.0.0.1", "2001:db8::1"}, {"10.0.0.2", "2001:db8::2"}));
    n->adminGroupIs(1);
    n->attrsPresentIs(Attrs(0x12));
    n->srlgValuesIs(77);
    n->linkDelayIs(LinkDelay::fromWord(0xFF000000u | 1500));  // reserved bits ignored
    n->lanAdjSidIs(LanAdjacencySid(0x30, 16002, 1, sysId(2)));
    std::string zeros = "0";
    for (int i = 1; i < 64; ++i) {
        zeros += ", 0";
    }
    std::ostringstream os;
    n->formatContent(os);
    os << 255;
    EXPECT_EQ(os.str(),
              "          ngb=1921.6800.1001, localIpv4Addr=[ 10.0.0.1 ], localIpv6Addr=[ 2001:db8::1 ], "
              "remoteIpv4Addr=[ 10.0.0.2 ], remoteIpv6Addr=[ 2001:db8::2 ]\n"
              "                    igpMetric=0, maxLinkBw=0, extAdminGroup=[" +
                  zeros +
                  "], linkDelay=1500 (anomalous), srlg=[77], "
                  "lanAdjSid=[{16002, flags=0x30, wt=1, sysID=0000.0000.0002}]\n255");
}

}  // namespace
