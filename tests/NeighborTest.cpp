// Neighbor: what its collections publish on writes and bulk deletions, the attribute merge (its
// order, and that a no-op merge allocates nothing), and the dump text.
#include "IgpCommon/Neighbor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/AllocationCounter.h"
#include "tests/support/Builders.h"
#include "tests/support/RecordingObserver.h"

namespace {

using namespace Routing::IgpCommon;  // NOLINT(google-build-using-namespace)
using ::testing::ElementsAre;
using testsupport::formatted;
using testsupport::nbrKey;
using Attrs = Neighbor::NeighborAttrsPresent;
using Rec =
    IgpTest::RecordingObserver<std::uint32_t, float, BwIndex, AdminGroupIndex, AdjacencySid, LanAdjacencySid>;
using A = Neighbor::Attr;

Routing::Isis::SystemId sysId(std::uint8_t last) {
    return Routing::Isis::SystemId({0, 0, 0, 0, 0, last});
}

TEST(NeighborSetters, NaNBandwidthIsAChangeEveryTime) {
    auto n = neighborFactory(nbrKey(1));
    Rec rec(n->publisher());
    const float nan = std::numeric_limits<float>::quiet_NaN();
    n->maxLinkBwIs(nan);
    n->maxLinkBwIs(nan);
    ASSERT_EQ(rec.size(), 2u);
    ASSERT_NE(rec[1].oldAs<float>(), nullptr);
    EXPECT_TRUE(std::isnan(*rec[1].oldAs<float>()));
}

TEST(NeighborSetters, UnreservedBwRefusesIndexEightAndDeletionPublishesOnlyNonZeroEntries) {
    auto n = neighborFactory(nbrKey(1));
    n->unreservedBwIs(BwIndex(1), 10.0f);
    n->unreservedBwIs(BwIndex(6), 60.0f);
    const auto before = n->unreservedBw();
    Rec rec(n->publisher());
    const auto refused = ::testing::ThrowsMessage<Kest::RangeException>(
        ::testing::StrEq("cannot access index 8 of an array with size 8"));
    EXPECT_THAT([&] { n->unreservedBwIs(BwIndex(8), 1.0f); }, refused);
    EXPECT_THAT([&] { n->unreservedBwDel(BwIndex(8)); }, refused);
    EXPECT_EQ(n->unreservedBw(), before);
    n->unreservedBwDel(BwIndex(2));
    EXPECT_TRUE(rec.empty());
    n->unreservedBwDel(BwIndex(1));
    n->unreservedBwIs(BwIndex(0), 5.0f);
    n->unreservedBwDelAll();
    ASSERT_EQ(rec.size(), 4u);
    const std::pair<unsigned, float> expected[] = {{1, 10.0f}, {0, 0.0f}, {0, 5.0f}, {6, 60.0f}};
    for (std::size_t i = 0; i < rec.size(); ++i) {
        EXPECT_EQ(rec[i].keyAs<BwIndex>()->value(), expected[i].first) << i;
        EXPECT_EQ(*rec[i].oldAs<float>(), expected[i].second) << i;
    }
    EXPECT_EQ(n->unreservedBw(), Neighbor::UnreservedBwArray());
}

TEST(NeighborSetters, AStoredZeroAdminGroupIsPresentAndRemovingAnAbsentMemberPublishesNothing) {
    auto n = testsupport::fullNeighbor();
    Rec rec(n->publisher());
    n->extAdminGroupIs(AdminGroupIndex(5), 0);
    EXPECT_TRUE(n->extAdminGroup().contains(AdminGroupIndex(5)));
    ASSERT_EQ(rec.size(), 1u);
    EXPECT_FALSE(rec[0].hasOldValue);
    rec.clear();
    n->srlgValuesDel(43);
    n->adjSidDel(AdjacencySid(0x30, 16001, 1));  // another weight: another member
    n->extAdminGroupDel(AdminGroupIndex(2));
    EXPECT_TRUE(rec.empty());
    n->extAdminGroupDel(AdminGroupIndex(5));
    ASSERT_EQ(rec.size(), 1u);
    EXPECT_EQ(*rec[0].oldAs<std::uint32_t>(), 0u);
}

TEST(NeighborDelAll, EmptiesEveryCollectionAndOnceObservedPublishesEveryMember) {
    for (const bool observed : {false, true}) {
        auto n = neighborFactory(nbrKey(1));
        for (std::uint8_t i = 0; i < 10; ++i) {
            n->extAdminGroupIs(AdminGroupIndex(static_cast<std::uint8_t>(i * 6)), i);
            n->srlgValuesIs(100u + i);
            n->adjSidIs(AdjacencySid(0x30, 16000u + i, i));
            n->lanAdjSidIs(LanAdjacencySid(0x30, 17000u + i, 0, sysId(i)));
        }
        std::optional<Rec> rec;
        if (observed) {
            { Rec gone(n->publisher()); }  // observed once: every later removal publishes
            rec.emplace(n->publisher());
        }
        ASSERT_EQ(n->publisher().initialState(), !observed);
        n->extAdminGroupDelAll();
        n->srlgValuesDelAll();
        n->adjSidDelAll();
        n->lanAdjSidDelAll();
        EXPECT_TRUE(n->extAdminGroup().empty() && n->srlgValues().empty() && n->adjSid().empty() &&
                    n->lanAdjSid().empty());
        if (!observed) {
            continue;
        }
        ASSERT_EQ(rec->size(), 40u);
        std::set<std::uint32_t> srlgs;
        for (std::size_t i = 0; i < rec->size(); ++i) {
            const auto& r = (*rec)[i];
            ASSERT_TRUE(r.hasOldValue) << i;
            const Kest::AttrId attrs[] = {A::extAdminGroup, A::srlgValues, A::adjSid, A::lanAdjSid};
            ASSERT_EQ(r.attr, attrs[i / 10]) << i;
            if (r.attr == A::srlgValues) {
                srlgs.insert(*r.oldAs<std::uint32_t>());
            } else if (r.attr == A::extAdminGroup) {
                EXPECT_EQ(*r.oldAs<std::uint32_t>() * 6, r.keyAs<AdminGroupIndex>()->value());
            }
        }
        EXPECT_EQ(srlgs.size(), 10u);
        EXPECT_EQ(*srlgs.begin(), 100u);
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
    EXPECT_EQ(formatted(*mine), formatted(*other));

    // The counters move when a merge grows a collection: the checks above can fail.
    auto grown = neighborFactory(nbrKey(1));
    for (std::uint32_t i = 0; i < 16; ++i) {
        grown->srlgValuesIs(100 + i);
    }
    const testsupport::AllocationScope growing;
    mine->updateAttr(grown);
    EXPECT_GT(growing.count(), 0u);
}

TEST(NeighborUpdateAttr, PublishesScalarsThenEachCollectionsAdditionsBeforeItsRemovals) {
    auto mine = testsupport::fullNeighbor();
    auto other = testsupport::fullNeighbor();
    other->attrsPresentIs(Attrs());
    other->adminGroupIs(1);
    other->maxLinkBwIs(2.0f);
    other->teDefMetricIs(4);
    other->igpMetricIs(5);
    other->unreservedBwIs(BwIndex(2), 20.0f);
    other->unreservedBwDel(BwIndex(5));
    other->extAdminGroupIs(AdminGroupIndex(2), 0x22);
    other->extAdminGroupDel(AdminGroupIndex(1));
    other->srlgValuesIs(11);
    other->srlgValuesDel(7);
    other->adjSidIs(AdjacencySid(0x30, 16001, 5));
    other->adjSidDel(AdjacencySid(0x30, 16001, 0));
    other->lanAdjSidIs(LanAdjacencySid(0x30, 16003, 1, sysId(3)));
    other->lanAdjSidDelAll();
    other->lanAdjSidIs(LanAdjacencySid(0x30, 16003, 1, sysId(3)));
    other->linkDelayIs(LinkDelay(9, true));

    Rec rec(mine->publisher());
    mine->updateAttr(other);
    EXPECT_THAT(rec.attrs(), ElementsAre(A::attrsPresent, A::adminGroup, A::maxLinkBw, A::igpMetric,
                                         A::teDefMetric, A::unreservedBw, A::unreservedBw,  // 2, 5
                                         A::extAdminGroup, A::extAdminGroup, A::srlgValues, A::srlgValues,
                                         A::adjSid, A::adjSid, A::lanAdjSid, A::lanAdjSid, A::linkDelay));
    ASSERT_EQ(rec.size(), 16u);
    EXPECT_EQ(rec[5].keyAs<BwIndex>()->value(), 2u);
    EXPECT_EQ(rec[6].keyAs<BwIndex>()->value(), 5u);
    for (std::size_t first : {7u, 9u, 11u, 13u}) {
        EXPECT_FALSE(rec[first].hasOldValue) << first;
        EXPECT_TRUE(rec[first + 1].hasOldValue) << first;
    }
    EXPECT_EQ(*rec[11].keyAs<AdjacencySid>(), AdjacencySid(0x30, 16001, 5));
    EXPECT_EQ(*rec[12].oldAs<AdjacencySid>(), AdjacencySid(0x30, 16001, 0));
    EXPECT_EQ(formatted(*mine), formatted(*other));
}

TEST(NeighborUpdateAttr, CollectionsEndEqualWhateverTheirIterationOrderAndClearFlagsStopNoCopy) {
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
    other->teDefMetricIs(9);
    Rec rec(mine->publisher());
    mine->updateAttr(other);
    EXPECT_EQ(Kest::firstDifference(*mine, *other), "");
    EXPECT_EQ(mine->attrsPresent(), Attrs());
    rec.clear();
    mine->updateAttr(other);
    EXPECT_TRUE(rec.empty());
}

// ---- dump text -------------------------------------------------------------------------------

const std::string kLine1 =
    "          ngb=1921.6800.1001, localIpv4Addr=[ ], localIpv6Addr=[ ], remoteIpv4Addr=[ ], "
    "remoteIpv6Addr=[ ]\n";
const std::string kPad = "                    ";

TEST(NeighborFormat, KeyLineWithEveryAddressFollowedByOneBlank) {
    auto n = neighborFactory(nbrKey(1, {"10.0.0.1", "2001:db8::1"}, {"10.0.0.2", "2001:db8::2"}));
    EXPECT_EQ(formatted(*n),
              "          ngb=1921.6800.1001, localIpv4Addr=[ 10.0.0.1 ], localIpv6Addr=[ 2001:db8::1 ], "
              "remoteIpv4Addr=[ 10.0.0.2 ], remoteIpv6Addr=[ 2001:db8::2 ]\n" +
                  kPad + "igpMetric=0\n");
}

TEST(NeighborFormat, FlaggedTeAttributesInTheirOrderWithAll64AdminGroupWords) {
    auto n = neighborFactory(nbrKey(1));
    n->attrsPresentIs(Attrs(0x7b));  // all but the reservable bandwidth
    n->igpMetricIs(10);
    n->adminGroupIs(255);
    n->maxLinkBwIs(1.25e9f);
    n->teDefMetricIs(20);
    n->unreservedBwIs(BwIndex(0), 1.25e9f);
    n->unreservedBwIs(BwIndex(7), 100.0f);
    n->extAdminGroupIs(AdminGroupIndex(0), 3);
    n->extAdminGroupIs(AdminGroupIndex(63), 4294967295u);
    n->linkDelayIs(LinkDelay::fromWord(0xFF000000u | 1500));  // reserved bits ignored
    std::string groups = "3";
    for (int i = 1; i < 63; ++i) {
        groups += ", 0";
    }
    EXPECT_EQ(formatted(*n), kLine1 + kPad +
                                 "igpMetric=10, adminGroup=255, maxLinkBw=1.25e+09, teDefMetric=20, "
                                 "unreservedBw=[1.25e+09, 0, 0, 0, 0, 0, 0, 100], extAdminGroup=[" +
                                 groups + ", 4294967295], linkDelay=1500 (anomalous)\n");
    // The flags alone decide (a flagged default prints, an unflagged value not); SRLGs follow the set.
    auto bare = neighborFactory(nbrKey(1));
    bare->adminGroupIs(1);
    bare->attrsPresentIs(Attrs(0x52));
    std::string zeros = "0";
    for (int i = 1; i < 64; ++i) {
        zeros += ", 0";
    }
    EXPECT_EQ(formatted(*bare), kLine1 + kPad + "igpMetric=0, maxLinkBw=0, extAdminGroup=[" + zeros + "]\n");
    bare->attrsPresentIs(Attrs());
    bare->srlgValuesIs(77);
    EXPECT_EQ(formatted(*bare), kLine1 + kPad + "igpMetric=0, srlg=[77]\n");
}

TEST(NeighborFormat, SidsPrintTheirFlagsInHexAndTheStreamIsDecimalAfterwards) {
    auto n = neighborFactory(nbrKey(1));
    n->igpMetricIs(10);
    n->adjSidIs(AdjacencySid(0x30, 16001, 0));
    n->lanAdjSidIs(LanAdjacencySid(0x30, 16002, 1, sysId(2)));
    std::ostringstream os;
    n->formatContent(os);
    os << 255;
    EXPECT_EQ(os.str(), kLine1 + kPad +
                            "igpMetric=10, adjSid=[{16001, flags=0x30, wt=0}], "
                            "lanAdjSid=[{16002, flags=0x30, wt=1, sysID=0000.0000.0002}]\n255");
}

}  // namespace
