// Prefix: defaults, the reachable and unreachable merges (per-algorithm metrics, SID, binding
// objects) with their notifications and allocations, and the dump line.
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
using testsupport::formatted;
using BindingPtr = Poldo::Ptr<SidLabelBinding>;
using MetricPtr = Poldo::Ptr<IgpFlexAlgoPrefixMetric>;
using Rec = IgpTest::RecordingObserver<PrefixFlags, std::uint32_t, PrefixSid, MetricPtr, bool, BindingPtr>;
using A = Prefix::Attr;

const PrefixFlags down(1);

Poldo::Ptr<Prefix> unreachable(std::uint16_t mt = 0) {
    return prefixFactory(testsupport::pfxKey("10.0.0.0/8", mt));
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

BindingPtr binding(std::uint16_t range) {
    auto b = sidLabelBindingFactory();
    b->rangeIs(range);
    b->lspFragmentIdIs(3);
    b->basePrefixSidIs(PrefixSid(0x40, 100, 0, true));
    return b;
}

std::vector<std::pair<unsigned, std::uint32_t>> metrics(const Prefix& p) {
    std::vector<std::pair<unsigned, std::uint32_t>> v;
    for (const auto& [algo, m] : p.prefixMetric()->metric()) {
        v.emplace_back(algo, m);
    }
    return v;
}

TEST(PrefixDefaults, UnreachableWithNoMetricNoSidNoBindingAndAMetricCollectionOfItsOwn) {
    auto a = unreachable();
    auto b = Prefix::PrefixIs(testsupport::pfxKey("10.0.0.0/8"));
    ASSERT_TRUE(a->prefixMetric() && b->prefixMetric());
    EXPECT_NE(a->prefixMetric().get(), b->prefixMetric().get());
    EXPECT_EQ(a->prefixMetric()->metricCount(), 0u);
    EXPECT_FALSE(a->hasValidReachability());
    EXPECT_EQ(a->metric(), 0u);
    EXPECT_EQ(a->prefixSid(), PrefixSid());
    EXPECT_FALSE(a->sidLabelBinding());
    EXPECT_EQ(a->flags(), PrefixFlags());
    EXPECT_EQ(a->prefixKey(), testsupport::pfxKey("10.0.0.0/8"));
}

TEST(PrefixUpdateAttr, ReachableMergeOverwritesItsAlgorithmsAndKeepsOurOthers) {
    auto mine = reachable({{128, 5}, {129, 6}});
    auto other = reachable({{128, 50}});
    other->metricIs(20);
    other->flagsIs(down);
    other->prefixSidIs(PrefixSid(0x40, 2, 0, true));
    const MetricPtr ourMetrics = mine->prefixMetric();
    Rec rec(mine->publisher());
    mine->updateAttr(other);
    EXPECT_THAT(metrics(*mine), ElementsAre(std::pair(128u, 50u), std::pair(129u, 6u)));
    EXPECT_EQ(mine->prefixMetric(), ourMetrics);
    EXPECT_EQ(mine->metric(), 20u);
    EXPECT_EQ(mine->flags(), down);
    EXPECT_EQ(mine->prefixSid(), PrefixSid(0x40, 2, 0, true));
    EXPECT_THAT(rec.attrs(), ElementsAre(A::flags, A::metric, A::prefixSid));
    EXPECT_EQ(*rec[1].oldAs<std::uint32_t>(), 10u);
    EXPECT_EQ(*rec[2].oldAs<PrefixSid>(), PrefixSid(0x40, 1, 0, true));
}

TEST(PrefixUpdateAttr, UnreachableMergeResetsReachabilityDataButCopiesTheFlags) {
    auto mine = reachable({{128, 5}, {129, 6}});
    auto other = unreachable();
    other->flagsIs(down);
    other->metricIs(99);  // an unreachable prefix's metric is not taken
    other->prefixSidIs(PrefixSid(0x40, 7, 0, true));
    Rec rec(mine->publisher());
    mine->updateAttr(other);
    EXPECT_FALSE(mine->hasValidReachability());
    EXPECT_EQ(mine->flags(), down);
    EXPECT_EQ(mine->metric(), 0u);
    EXPECT_EQ(mine->prefixSid(), PrefixSid());
    ASSERT_TRUE(mine->prefixMetric());
    EXPECT_EQ(mine->prefixMetric()->metricCount(), 0u);
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

    // Merging itself still installs a new object with the same contents, and loses no metric.
    mine->updateAttr(mine);
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
        const std::uint64_t drimmBefore = testsupport::trackedAllocations();
        const testsupport::AllocationScope heap;
        mine->updateAttr(other);
        const std::uint64_t heapAllocations = heap.count();
        EXPECT_EQ(heapAllocations, 0u);
        EXPECT_EQ(testsupport::trackedAllocations(), drimmBefore);
        EXPECT_TRUE(rec.empty());
        EXPECT_EQ(formatted(*mine), formatted(*other));
    }
}

// ---- described attributes: deep comparison and the union of fragments -----------------------

TEST(PrefixAttributes, ComparisonLooksThroughPointersAndNamesTheFirstAttributeThatDiffers) {
    auto a = reachable({{128, 5}});
    auto b = reachable({{128, 5}});
    a->sidLabelBindingIs(binding(4));
    b->sidLabelBindingIs(binding(4));
    EXPECT_EQ(Kest::firstDifference(*a, *b), "");
    b->sidLabelBinding()->rangeIs(5);
    EXPECT_EQ(Kest::firstDifference(*a, *b), "sidLabelBinding");
    b->prefixMetric()->metricIs(128, 6);
    EXPECT_EQ(Kest::firstDifference(*a, *b), "prefixMetric");
    b->sidLabelBindingIs(nullptr);
    b->prefixMetric()->metricIs(128, 5);
    EXPECT_EQ(Kest::firstDifference(*a, *b), "sidLabelBinding");
}

TEST(PrefixAttributes, UnionTakesEachAttributeFromTheFirstFragmentThatCarriesIt) {
    // Reachability brings its flags and metric along; a valid SID, each algorithm's metric and
    // a binding come from the first that has them.
    auto whole = reachable({{128, 5}});
    whole->flagsIs(down);
    whole->sidLabelBindingIs(binding(4));
    auto u = unreachable();
    u->flagsIs(PrefixFlags());
    Kest::uniteAttrs(*u, *whole);
    EXPECT_EQ(Kest::firstDifference(*u, *whole), "");

    auto later = reachable({{128, 50}, {129, 6}});
    later->metricIs(99);
    later->prefixSidIs(PrefixSid(0x40, 9, 0, true));
    later->sidLabelBindingIs(binding(8));
    Kest::uniteAttrs(*u, *later);
    EXPECT_THAT(metrics(*u), ElementsAre(std::pair(128u, 5u), std::pair(129u, 6u)));
    whole->prefixMetric()->metricIs(129, 6);
    EXPECT_EQ(Kest::firstDifference(*u, *whole), "");

    // An unreachable fragment still brings a valid SID and a binding, never its flags or metric.
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
    ASSERT_TRUE(reach->sidLabelBinding());
    EXPECT_EQ(reach->sidLabelBinding()->range(), 4u);
}

// ---- dump text -------------------------------------------------------------------------------

TEST(PrefixFormat, UnreachableShowsOnlyItsKeyReachableItsFlagsMetricAndValidSid) {
    auto p = unreachable();
    p->metricIs(10);
    p->flagsIs(down);
    std::string text = formatted(*p) + formatted(*unreachable(2));
    p->hasValidReachabilityIs(true);
    p->flagsIs(PrefixFlags());
    text += formatted(*p);
    p->flagsIs(down);
    p->prefixSidIs(PrefixSid(0x40, 1, 0, true));
    text += formatted(*p);
    p->prefixSidIs(PrefixSid(0x40, 1, 0, false));
    text += formatted(*p);
    EXPECT_EQ(text,
              "          prefix=10.0.0.0/8\n"
              "          prefix=10.0.0.0/8, mtId=2\n"
              "          prefix=10.0.0.0/8, flags=<>, metric=10\n"
              "          prefix=10.0.0.0/8, flags=<down>, metric=10, PrefixSID={1, flags=0x40, algo=0}\n"
              "          prefix=10.0.0.0/8, flags=<down>, metric=10\n");
}

TEST(PrefixFormat, BindingPrintsWhetherReachableOrNot) {
    auto p = unreachable();
    p->sidLabelBindingIs(binding(4));
    const std::string b =
        ", sidLabelBinding={flags=-, range=4, lspFragmentId=3, PrefixSID={100, flags=0x40, algo=0}}\n";
    EXPECT_EQ(formatted(*p), "          prefix=10.0.0.0/8" + b);
    p->hasValidReachabilityIs(true);
    p->metricIs(10);
    EXPECT_EQ(formatted(*p), "          prefix=10.0.0.0/8, flags=<>, metric=10" + b);
}

TEST(PrefixFormat, AlgorithmIsARawByteAndWithAllAlgorithmsTheEightBitCounterWrapsLeavingASeparator) {
    auto p = reachable({{128, 20}, {129, 30}});
    p->prefixSidIs(PrefixSid());
    EXPECT_EQ(
        formatted(*p),
        std::string(
            "          prefix=10.0.0.0/8, flags=<>, metric=10, prefixMetrics=[ (\x80, 20), (\x81, 30)]\n"));
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
