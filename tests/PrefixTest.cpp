// Prefix: defaults, the reachable and unreachable merges (per-algorithm metrics, SID, binding
// objects) with their notifications and allocations, and the dump line.
#include "IgpCommon/Prefix.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "support/AllocationCounter.h"
#include "support/RecordingObserver.h"

namespace {

using namespace Routing::IgpCommon;  // NOLINT(google-build-using-namespace)
using ::testing::ElementsAre;
using BindingPtr = Poldo::Ptr<SidLabelBinding>;
using MetricPtr = Poldo::Ptr<IgpFlexAlgoPrefixMetric>;
using Rec = IgpTest::RecordingObserver<PrefixFlags, std::uint32_t, PrefixSid, MetricPtr, bool, BindingPtr>;
using A = Prefix::Attr;

std::uint64_t drimmAllocations() {
    std::uint64_t n = 0;
    Drimm::AllocTracker::forEach([&n](const Drimm::AllocTracker& t) { n += t.allocations(); });
    return n;
}

PrefixKey key(std::uint16_t mt = 0) {
    return PrefixKey(
        Kest::strepToValue(Poldo::String("10.0.0.0/8"), static_cast<Lumo::IpGenPrefix*>(nullptr)),
        IgpMultiTopologyId(mt));
}

PrefixFlags down() {
    PrefixFlags f;
    f.isisDownIs(true);
    return f;
}

/// A reachable prefix with a metric, a valid SID and the given per-algorithm metrics.
Poldo::Ptr<Prefix> reachable(std::initializer_list<std::pair<std::uint8_t, std::uint32_t>> metrics) {
    auto p = prefixFactory(key());
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

std::string dump(const Prefix& p) {
    std::ostringstream os;
    p.formatContent(os);
    return os.str();
}

// ---- defaults --------------------------------------------------------------------------------

TEST(PrefixDefaults, UnreachableWithNoMetricNoSidNoBindingAndItsOwnMetricCollection) {
    auto a = prefixFactory(key());
    auto b = Prefix::PrefixIs(key());
    ASSERT_TRUE(a->prefixMetric());
    ASSERT_TRUE(b->prefixMetric());
    EXPECT_NE(a->prefixMetric().get(), b->prefixMetric().get());
    EXPECT_EQ(a->prefixMetric()->metricCount(), 0u);
    EXPECT_FALSE(a->hasValidReachability());
    EXPECT_EQ(a->metric(), 0u);
    EXPECT_EQ(a->prefixSid(), PrefixSid());
    EXPECT_FALSE(a->prefixSid().isValid());
    EXPECT_FALSE(a->sidLabelBinding());
    EXPECT_EQ(a->flags(), PrefixFlags());
    EXPECT_EQ(a->useCount(), 1u);
    EXPECT_EQ(a->prefixKey(), key());
}

// ---- updateAttr ------------------------------------------------------------------------------

TEST(PrefixUpdateAttr, ReachableMergeOverwritesItsAlgorithmsAndKeepsOurOthers) {
    auto mine = reachable({{128, 5}, {129, 6}});
    auto other = reachable({{128, 50}});
    other->metricIs(20);
    other->flagsIs(down());
    other->prefixSidIs(PrefixSid(0x40, 2, 0, true));
    const MetricPtr ourMetrics = mine->prefixMetric();
    Rec rec(mine->publisher());
    mine->updateAttr(other);
    EXPECT_THAT(metrics(*mine), ElementsAre(std::pair(128u, 50u), std::pair(129u, 6u)));
    EXPECT_EQ(mine->prefixMetric(), ourMetrics);
    EXPECT_EQ(mine->metric(), 20u);
    EXPECT_EQ(mine->flags(), down());
    EXPECT_EQ(mine->prefixSid(), PrefixSid(0x40, 2, 0, true));
    EXPECT_THAT(rec.attrs(), ElementsAre(A::flags, A::metric, A::prefixSid));
    EXPECT_EQ(*rec[1].oldAs<std::uint32_t>(), 10u);
    EXPECT_EQ(*rec[2].oldAs<PrefixSid>(), PrefixSid(0x40, 1, 0, true));
}

TEST(PrefixUpdateAttr, UnreachableMergeResetsReachabilityDataButCopiesTheFlags) {
    auto mine = reachable({{128, 5}, {129, 6}});
    auto other = prefixFactory(key());
    other->flagsIs(down());
    other->metricIs(99);  // an unreachable prefix's metric is not taken
    other->prefixSidIs(PrefixSid(0x40, 7, 0, true));
    Rec rec(mine->publisher());
    mine->updateAttr(other);
    EXPECT_FALSE(mine->hasValidReachability());
    EXPECT_EQ(mine->flags(), down());
    EXPECT_EQ(mine->metric(), 0u);
    EXPECT_EQ(mine->prefixSid(), PrefixSid());
    ASSERT_TRUE(mine->prefixMetric());
    EXPECT_EQ(mine->prefixMetric()->metricCount(), 0u);
    EXPECT_THAT(rec.attrs(), ElementsAre(A::hasValidReachability, A::flags, A::metric, A::prefixSid));
    EXPECT_EQ(*rec[0].oldAs<bool>(), true);
}

TEST(PrefixUpdateAttr, EveryMergeFromABoundPrefixInstallsANewBindingObject) {
    auto mine = reachable({});
    auto first = reachable({});
    auto second = reachable({});
    first->sidLabelBindingIs(binding(4));
    second->sidLabelBindingIs(binding(4));
    Rec rec(mine->publisher());

    const std::uint64_t before = SidLabelBinding::allocTracker().allocations();
    mine->updateAttr(first);
    const BindingPtr afterFirst = mine->sidLabelBinding();
    mine->updateAttr(second);
    const BindingPtr afterSecond = mine->sidLabelBinding();
    EXPECT_EQ(SidLabelBinding::allocTracker().allocations(), before + 2);

    ASSERT_TRUE(afterFirst);
    ASSERT_TRUE(afterSecond);
    EXPECT_NE(afterFirst.get(), afterSecond.get());
    EXPECT_NE(afterFirst.get(), first->sidLabelBinding().get());
    EXPECT_NE(afterSecond.get(), second->sidLabelBinding().get());
    for (const BindingPtr& b : {afterFirst, afterSecond}) {
        EXPECT_EQ(b->range(), 4u);
        EXPECT_EQ(b->lspFragmentId(), 3u);
        EXPECT_EQ(b->basePrefixSid(), PrefixSid(0x40, 100, 0, true));
    }
    ASSERT_EQ(rec.size(), 2u);
    EXPECT_EQ(rec[0].attr, A::sidLabelBinding);
    EXPECT_EQ(rec[1].attr, A::sidLabelBinding);
    ASSERT_NE(rec[0].oldAs<BindingPtr>(), nullptr);
    EXPECT_FALSE(*rec[0].oldAs<BindingPtr>());
    EXPECT_EQ(*rec[1].oldAs<BindingPtr>(), afterFirst);
}

TEST(PrefixUpdateAttr, MergingItselfKeepsTheBindingContents) {
    auto p = reachable({{128, 5}});
    p->sidLabelBindingIs(binding(9));
    const BindingPtr old = p->sidLabelBinding();
    p->updateAttr(p);
    ASSERT_TRUE(p->sidLabelBinding());
    EXPECT_NE(p->sidLabelBinding().get(), old.get());
    EXPECT_EQ(p->sidLabelBinding()->range(), 9u);
    EXPECT_EQ(p->sidLabelBinding()->basePrefixSid(), PrefixSid(0x40, 100, 0, true));
    EXPECT_THAT(metrics(*p), ElementsAre(std::pair(128u, 5u)));
}

TEST(PrefixUpdateAttr, MergeFromAnUnboundPrefixRemovesOurBinding) {
    auto mine = reachable({});
    mine->sidLabelBindingIs(binding(4));
    const BindingPtr old = mine->sidLabelBinding();
    auto other = reachable({});
    Rec rec(mine->publisher());
    mine->updateAttr(other);
    EXPECT_FALSE(mine->sidLabelBinding());
    ASSERT_EQ(rec.size(), 1u);
    EXPECT_EQ(rec[0].attr, A::sidLabelBinding);
    EXPECT_EQ(*rec[0].oldAs<BindingPtr>(), old);
}

TEST(PrefixUpdateAttr, MergingAnIdenticalUnboundPrefixPublishesAndAllocatesNothing) {
    for (bool reach : {true, false}) {
        SCOPED_TRACE(reach ? "reachable" : "unreachable");
        auto mine = reach ? reachable({{128, 5}, {129, 6}}) : prefixFactory(key());
        auto other = reach ? reachable({{128, 5}, {129, 6}}) : prefixFactory(key());
        Rec rec(mine->publisher());
        const std::uint64_t drimmBefore = drimmAllocations();
        const testsupport::AllocationScope heap;
        mine->updateAttr(other);
        const std::uint64_t heapAllocations = heap.count();
        EXPECT_EQ(heapAllocations, 0u);
        EXPECT_EQ(drimmAllocations(), drimmBefore);
        EXPECT_TRUE(rec.empty());
        EXPECT_EQ(dump(*mine), dump(*other));
    }
}

// ---- dump text -------------------------------------------------------------------------------

TEST(PrefixFormat, UnreachablePrefixPrintsOnlyItsKey) {
    auto p = prefixFactory(key());
    p->metricIs(10);
    p->flagsIs(down());
    EXPECT_EQ(dump(*p), "          prefix=10.0.0.0/8\n");
    EXPECT_EQ(dump(*prefixFactory(key(2))), "          prefix=10.0.0.0/8, mtId=2\n");
}

TEST(PrefixFormat, ReachablePrefixPrintsFlagsMetricAndSid) {
    auto p = prefixFactory(key());
    p->hasValidReachabilityIs(true);
    p->metricIs(10);
    EXPECT_EQ(dump(*p), "          prefix=10.0.0.0/8, flags=<>, metric=10\n");
    p->flagsIs(down());
    p->prefixSidIs(PrefixSid(0x40, 1, 0, true));
    EXPECT_EQ(dump(*p),
              "          prefix=10.0.0.0/8, flags=<down>, metric=10, PrefixSID={1, flags=0x40, algo=0}\n");
    p->prefixSidIs(PrefixSid(0x40, 1, 0, false));
    EXPECT_EQ(dump(*p), "          prefix=10.0.0.0/8, flags=<down>, metric=10\n");
}

TEST(PrefixFormat, AlgorithmIsWrittenAsARawByte) {
    auto p = reachable({{128, 20}});
    p->prefixSidIs(PrefixSid());
    EXPECT_EQ(dump(*p),
              std::string("          prefix=10.0.0.0/8, flags=<>, metric=10, prefixMetrics=[ (\x80, 20)]\n"));
    p->prefixMetric()->metricIs(129, 30);
    EXPECT_EQ(
        dump(*p),
        std::string(
            "          prefix=10.0.0.0/8, flags=<>, metric=10, prefixMetrics=[ (\x80, 20), (\x81, 30)]\n"));
}

TEST(PrefixFormat, WithAllAlgorithmsTheEightBitCounterWrapsAndLeavesATrailingSeparator) {
    auto p = reachable({});
    for (unsigned a = 0; a < 256; ++a) {
        p->prefixMetric()->metricIs(static_cast<std::uint8_t>(a), a + 1);
    }
    const std::string text = dump(*p);
    const std::string tail = ", (\xff, 256), ]\n";
    ASSERT_GE(text.size(), tail.size());
    EXPECT_EQ(text.substr(text.size() - tail.size()), tail);
    EXPECT_NE(text.find(std::string("prefixMetrics=[ (") + '\0' + ", 1), (\x01, 2), "), std::string::npos);
}

TEST(PrefixFormat, BindingPrintsWhetherReachableOrNot) {
    auto p = prefixFactory(key());
    p->sidLabelBindingIs(binding(4));
    const std::string b =
        ", sidLabelBinding={flags=-, range=4, lspFragmentId=3, PrefixSID={100, flags=0x40, algo=0}}\n";
    EXPECT_EQ(dump(*p), "          prefix=10.0.0.0/8" + b);
    p->hasValidReachabilityIs(true);
    p->metricIs(10);
    EXPECT_EQ(dump(*p), "          prefix=10.0.0.0/8, flags=<>, metric=10" + b);
}

}  // namespace
