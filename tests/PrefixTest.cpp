// Prefix: the reachable and unreachable merges (per-algorithm metrics, SID, binding objects) with
// their notifications and allocations, what fragments carry, and the dump line.
#include "IgpCommon/Prefix.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/AllocationCounter.h"
#include "tests/support/Builders.h"
#include "tests/support/RecordingObserver.h"

namespace {

using namespace Routing::IgpCommon;  // NOLINT(google-build-using-namespace)
using ::testing::ElementsAre;
using testsupport::binding;
using testsupport::formatted;
using BindingPtr = Poldo::Ptr<SidLabelBinding>;
using Rec = IgpTest::RecordingObserver<std::uint32_t, PrefixSid, bool, BindingPtr>;
using A = Prefix::Attr;

const PrefixFlags down(1);

Poldo::Ptr<Prefix> unreachable() {
    return prefixFactory(testsupport::pfxKey("10.0.0.0/8"));
}

/// A reachable prefix with metric 10, a valid SID and the given per-algorithm metrics.
Poldo::Ptr<Prefix> reachable(std::initializer_list<std::pair<std::uint8_t, std::uint32_t>> metrics) {
    auto p = unreachable();
    p->hasValidReachabilityIs(true);
    p->metricIs(10);
    p->prefixSidIs(PrefixSid(0x40, 1, 0, true));
    for (const auto& [algo, m] : metrics) {
        p->prefixMetric()->metricIs(algo, m);
    }
    return p;
}

std::vector<std::pair<unsigned, std::uint32_t>> metrics(const Prefix& p) {
    std::vector<std::pair<unsigned, std::uint32_t>> v;
    for (const auto& [algo, m] : p.prefixMetric()->metric()) {
        v.emplace_back(algo, m);
    }
    return v;
}

TEST(PrefixUpdateAttr, ReachableMergeOverwritesItsAlgorithmsAndKeepsOurOthers) {
    auto mine = reachable({{128, 5}, {129, 6}});
    auto other = reachable({{128, 50}});
    other->metricIs(20);
    other->flagsIs(down);
    other->prefixSidIs(PrefixSid(0x40, 2, 0, true));
    const auto ourMetrics = mine->prefixMetric();
    Rec rec(mine->publisher());
    mine->updateAttr(other);
    EXPECT_THAT(metrics(*mine), ElementsAre(std::pair(128u, 50u), std::pair(129u, 6u)));
    EXPECT_EQ(mine->prefixMetric(), ourMetrics);
    auto expected = reachable({{128, 50}, {129, 6}});
    expected->metricIs(20);
    expected->flagsIs(down);
    expected->prefixSidIs(PrefixSid(0x40, 2, 0, true));
    EXPECT_EQ(Kest::firstDifference(*mine, *expected), "");
    EXPECT_THAT(rec.attrs(), ElementsAre(A::flags, A::metric, A::prefixSid));
    EXPECT_EQ(*rec[1].oldAs<std::uint32_t>(), 10u);
}

TEST(PrefixUpdateAttr, UnreachableMergeResetsReachabilityDataButCopiesTheFlags) {
    auto mine = reachable({{128, 5}, {129, 6}});
    auto other = unreachable();
    other->flagsIs(down);
    other->metricIs(99);  // an unreachable prefix's metric is not taken
    other->prefixSidIs(PrefixSid(0x40, 7, 0, true));
    Rec rec(mine->publisher());
    mine->updateAttr(other);
    auto expected = unreachable();
    expected->flagsIs(down);
    EXPECT_EQ(Kest::firstDifference(*mine, *expected), "");
    EXPECT_THAT(rec.attrs(), ElementsAre(A::hasValidReachability, A::flags, A::metric, A::prefixSid));
    EXPECT_EQ(*rec[0].oldAs<bool>(), true);
}

TEST(PrefixUpdateAttr, EveryMergeFromABoundPrefixInstallsACopyOfItsBindingAndAnUnboundOneRemovesOurs) {
    auto mine = reachable({{128, 5}});
    Rec rec(mine->publisher());
    const std::uint64_t before = SidLabelBinding::allocTracker().allocations();
    std::vector<BindingPtr> installed;
    for (int i = 0; i < 2; ++i) {
        auto other = reachable({});
        other->sidLabelBindingIs(binding(4));
        mine->updateAttr(other);
        installed.push_back(mine->sidLabelBinding());
        ASSERT_TRUE(installed.back());
        EXPECT_NE(installed.back(), other->sidLabelBinding());
        EXPECT_EQ(installed.back()->toStrep(), other->sidLabelBinding()->toStrep());
    }
    EXPECT_EQ(SidLabelBinding::allocTracker().allocations(), before + 4);  // two given, two copies
    EXPECT_NE(installed[0], installed[1]);
    mine->updateAttr(mine);  // itself: still a new object, and no metric lost
    EXPECT_THAT(metrics(*mine), ElementsAre(std::pair(128u, 5u)));
    EXPECT_NE(mine->sidLabelBinding(), installed[1]);
    EXPECT_EQ(mine->sidLabelBinding()->toStrep(), installed[1]->toStrep());
    const BindingPtr third = mine->sidLabelBinding();
    mine->updateAttr(reachable({}));
    EXPECT_FALSE(mine->sidLabelBinding());
    ASSERT_THAT(rec.attrs(),
                ElementsAre(A::sidLabelBinding, A::sidLabelBinding, A::sidLabelBinding, A::sidLabelBinding));
    EXPECT_FALSE(*rec[0].oldAs<BindingPtr>());
    EXPECT_EQ(*rec[1].oldAs<BindingPtr>(), installed[0]);
    EXPECT_EQ(*rec[3].oldAs<BindingPtr>(), third);
}

TEST(PrefixUpdateAttr, MergingAnIdenticalUnboundPrefixPublishesAndAllocatesNothing) {
    for (bool reach : {true, false}) {
        SCOPED_TRACE(reach ? "reachable" : "unreachable");
        auto mine = reach ? reachable({{128, 5}, {129, 6}}) : unreachable();
        auto other = reach ? reachable({{128, 5}, {129, 6}}) : unreachable();
        Rec rec(mine->publisher());
        const std::uint64_t tracked = testsupport::trackedAllocations();
        const testsupport::AllocationScope heap;
        mine->updateAttr(other);
        EXPECT_EQ(heap.count(), 0u);
        EXPECT_EQ(testsupport::trackedAllocations(), tracked);
        EXPECT_TRUE(rec.empty());
    }
}

TEST(PrefixAttributes, ComparisonLooksThroughPointersAndAnUnreachableFragmentBringsOnlyItsSidAndBinding) {
    auto a = testsupport::fullPrefix();
    auto b = testsupport::fullPrefix();
    EXPECT_EQ(Kest::firstDifference(*a, *b), "");
    b->sidLabelBinding()->rangeIs(5);
    EXPECT_EQ(Kest::firstDifference(*a, *b), "sidLabelBinding");
    b->prefixMetric()->metricIs(128, 6);
    EXPECT_EQ(Kest::firstDifference(*a, *b), "prefixMetric");

    auto reach = reachable({});
    reach->prefixSidIs(PrefixSid());
    auto bound = unreachable();
    bound->flagsIs(down);
    bound->metricIs(99);
    bound->prefixSidIs(PrefixSid(0x40, 9, 0, true));
    bound->sidLabelBindingIs(binding(4));
    Kest::uniteAttrs(*reach, *bound);
    EXPECT_EQ(reach->flags(), PrefixFlags());
    EXPECT_EQ(reach->metric(), 10u);
    EXPECT_EQ(reach->prefixSid(), PrefixSid(0x40, 9, 0, true));
    EXPECT_EQ(reach->sidLabelBinding(), bound->sidLabelBinding());
}

TEST(PrefixFormat, UnreachableShowsOnlyItsKeyAndBindingReachableItsFlagsMetricAndValidSid) {
    auto p = unreachable();
    p->metricIs(10);
    p->flagsIs(down);
    std::string text = formatted(*p) + formatted(*prefixFactory(testsupport::pfxKey("10.0.0.0/8", 2)));
    p->hasValidReachabilityIs(true);
    p->flagsIs(PrefixFlags());
    text += formatted(*p);
    p->flagsIs(down);
    p->prefixSidIs(PrefixSid(0x40, 1, 0, true));
    text += formatted(*p);
    p->prefixSidIs(PrefixSid(0x40, 1, 0, false));
    p->sidLabelBindingIs(binding(4));
    text += formatted(*p);
    p->hasValidReachabilityIs(false);
    text += formatted(*p);
    const std::string b =
        ", sidLabelBinding={flags=-, range=4, lspFragmentId=3, PrefixSID={100, flags=0x40, algo=0}}\n";
    EXPECT_EQ(text,
              "          prefix=10.0.0.0/8\n"
              "          prefix=10.0.0.0/8, mtId=2\n"
              "          prefix=10.0.0.0/8, flags=<>, metric=10\n"
              "          prefix=10.0.0.0/8, flags=<down>, metric=10, PrefixSID={1, flags=0x40, algo=0}\n"
              "          prefix=10.0.0.0/8, flags=<down>, metric=10" +
                  b + "          prefix=10.0.0.0/8" + b);
}

TEST(PrefixFormat, AlgorithmIsARawByteAndWithAllAlgorithmsTheEightBitCounterWrapsLeavingASeparator) {
    auto p = reachable({{128, 20}, {129, 30}});
    p->prefixSidIs(PrefixSid());
    EXPECT_EQ(formatted(*p), std::string("          prefix=10.0.0.0/8, flags=<>, metric=10, prefixMetrics=[ "
                                         "(\x80, 20), (\x81, 30)]\n"));
    for (unsigned a = 0; a < 256; ++a) {
        p->prefixMetric()->metricIs(static_cast<std::uint8_t>(a), a + 1);
    }
    const std::string text = formatted(*p);
    const std::string tail = ", (\xff, 256), ]\n";
    ASSERT_GE(text.size(), tail.size());
    EXPECT_EQ(text.substr(text.size() - tail.size()), tail);
    EXPECT_NE(text.find(std::string("prefixMetrics=[ (") + '\0' + ", 1), (\x01, 2), "), std::string::npos);
}

}  // namespace
