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
    EXPECT_EQ(mine->prefixSid(), other->prefixSid());
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
    auto other = reachable({});
    other->sidLabelBindingIs(binding(4));
    mine->updateAttr(other);
    const BindingPtr first = mine->sidLabelBinding();
    ASSERT_TRUE(first);
    EXPECT_NE(first, other->sidLabelBinding());
    EXPECT_EQ(first->toStrep(), other->sidLabelBinding()->toStrep());
    mine->updateAttr(mine);  // itself: still a new object, and no metric lost
    EXPECT_THAT(metrics(*mine), ElementsAre(std::pair(128u, 5u)));
    EXPECT_NE(mine->sidLabelBinding(), first);
    mine->updateAttr(reachable({}));
    EXPECT_FALSE(mine->sidLabelBinding());
    ASSERT_THAT(rec.attrs(), ElementsAre(A::sidLabelBinding, A::sidLabelBinding, A::sidLabelBinding));
    EXPECT_EQ(*rec[1].oldAs<BindingPtr>(), first);
}

TEST(PrefixUpdateAttr, MergingAnIdenticalUnboundPrefixPublishesAndAllocatesNothing) {
    for (bool reach : {true, false}) {
        SCOPED_TRACE(reach ? "reachable" : "unreachable");
        auto mine = reach ? reachable({{128, 5}, {129, 6}}) : unreachable();
        auto other = reach ? reachable({{128, 5}, {129, 6}}) : unreachable();
        Rec rec(mine->publisher());
        const testsupport::AllocationScope heap;
        mine->updateAttr(other);
        EXPECT_EQ(heap.count(), 0u);
        EXPECT_TRUE(rec.empty());
    }
}

TEST(PrefixAttributes, ComparisonLooksThroughPointersAndAnUnreachableFragmentBringsOnlyItsSidAndBinding) {
    auto a = testsupport::fullPrefix();
    auto b = testsupport::fullPrefix();
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
    EXPECT_EQ(reach->prefixSid(), PrefixSid(0x40, 9, 0, true));
    EXPECT_EQ(reach->sidLabelBinding(), bound->sidLabelBinding());
}

// An unreachable prefix shows only its key and binding; an algorithm is its raw byte, and with all
// 256 of them the eight-bit counter wraps, leaving a separator.
TEST(PrefixFormat, UnreachableShowsOnlyKeyAndBindingAndAlgorithmsAreRawBytes) {
    auto p = unreachable();
    p->metricIs(10);
    p->flagsIs(down);
    p->sidLabelBindingIs(binding(4));
    EXPECT_EQ(
        formatted(*p) + formatted(*prefixFactory(testsupport::pfxKey("10.0.0.0/8", 2))),
        "          prefix=10.0.0.0/8, sidLabelBinding={flags=-, range=4, lspFragmentId=3, PrefixSID={100, "
        "flags=0x40, algo=0}}\n"
        "          prefix=10.0.0.0/8, mtId=2\n");
    auto r = reachable({});
    r->prefixSidIs(PrefixSid(0x40, 1, 0, false));
    for (unsigned algo = 0; algo < 256; ++algo) {
        r->prefixMetric()->metricIs(static_cast<std::uint8_t>(algo), algo + 1);
    }
    const std::string text = formatted(*r);
    const std::string head =
        std::string("          prefix=10.0.0.0/8, flags=<>, metric=10, prefixMetrics=[ (") + '\0' +
        ", 1), (\x01, 2), ";
    const std::string tail = ", (\xff, 256), ]\n";
    EXPECT_EQ(text.substr(0, head.size()), head);
    EXPECT_EQ(text.substr(text.size() - tail.size()), tail);
}

}  // namespace
