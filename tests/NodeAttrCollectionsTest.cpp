// The per-node attribute collections: flex-algo definitions, MSDs, topology ids,
// area addresses and per-algorithm prefix metrics.
#include "IgpCommon/NodeAttrCollections.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "support/RecordingObserver.h"

namespace {

using namespace Routing::IgpCommon;  // NOLINT(google-build-using-namespace)
using Routing::Isis::AreaId;
using ::testing::ElementsAre;
using ::testing::StrEq;
using ::testing::ThrowsMessage;

Poldo::Ptr<IgpFlexAlgoEag> eag(std::initializer_list<std::uint32_t> words) {
    auto e = igpFlexAlgoEagFactory();
    for (std::uint32_t w : words) {
        e->valuePush(w);
    }
    return e;
}

/// A definition whose numbers are derived from `algo`, with fresh constraint objects.
IgpFlexAlgoDefinition definition(std::uint8_t algo,
                                 std::initializer_list<std::uint32_t> excludeAny = {1, 2}) {
    IgpFlexAlgoDefinition d;
    d.flexAlgoIs(algo);
    d.metricTypeIs(1);
    d.priorityIs(100);
    d.excludeAnyIs(eag(excludeAny));
    d.excludeSrlgIs(igpFlexAlgoSrlgFactory());
    d.excludeSrlg()->valueIs(77);
    return d;
}

bool isDefaultDefinition(const IgpFlexAlgoDefinition& d) {
    return d.flexAlgo() == 0 && d.metricType() == 0 && d.calcType() == 0 && d.priority() == 0 &&
           d.lspFragmentId() == 0 && d.excludeAny()->valueCount() == 0 && d.includeAny()->valueCount() == 0 &&
           d.includeAll()->valueCount() == 0 && d.excludeSrlg()->value().size() == 0;
}

AreaId area(const char* text) {
    return Kest::strepToValue(std::string(text), static_cast<AreaId*>(nullptr));
}

// ---- IgpFlexAlgoDefinitionCol ---------------------------------------------------------------

using FadRecorder = IgpTest::RecordingObserver<std::uint8_t, IgpFlexAlgoDefinition>;

TEST(IgpFlexAlgoDefinitionCol, InsertionPublishesADefaultOldDefinitionUnderTheAlgorithm) {
    auto col = igpFlexAlgoDefinitionColFactory();
    FadRecorder rec(col->publisher());
    col->fadIs(128, definition(128));
    ASSERT_EQ(rec.size(), 1u);
    EXPECT_EQ(rec[0].attr, IgpFlexAlgoDefinitionCol::Attr::fad);
    ASSERT_NE(rec[0].keyAs<std::uint8_t>(), nullptr);
    EXPECT_EQ(*rec[0].keyAs<std::uint8_t>(), 128u);
    ASSERT_NE(rec[0].oldAs<IgpFlexAlgoDefinition>(), nullptr);
    EXPECT_TRUE(isDefaultDefinition(*rec[0].oldAs<IgpFlexAlgoDefinition>()));
}

TEST(IgpFlexAlgoDefinitionCol, InsertionNobodyObservesBuildsNoDefaultDefinition) {
    auto col = igpFlexAlgoDefinitionColFactory();
    const IgpFlexAlgoDefinition d = definition(128);
    const std::uint64_t eagsBefore = IgpFlexAlgoEag::allocTracker().allocations();
    col->fadIs(128, d);
    EXPECT_EQ(IgpFlexAlgoEag::allocTracker().allocations(), eagsBefore);
    EXPECT_TRUE(IgpFlexAlgoDefinition::isEq(col->fad(128), d));
}

TEST(IgpFlexAlgoDefinitionCol, SameNumbersAndSharedObjectsIsNoChangeButADifferenceReplaces) {
    auto col = igpFlexAlgoDefinitionColFactory();
    col->fadIs(128, definition(128));
    const IgpFlexAlgoDefinition stored = col->fad(128);
    FadRecorder rec(col->publisher());

    IgpFlexAlgoDefinition same = stored;  // shares the stored constraint objects
    same.priorityIs(stored.priority());
    col->fadIs(128, same);
    EXPECT_TRUE(rec.empty());

    IgpFlexAlgoDefinition changed = stored;
    changed.priorityIs(101);
    col->fadIs(128, changed);
    ASSERT_EQ(rec.size(), 1u);
    ASSERT_NE(rec[0].oldAs<IgpFlexAlgoDefinition>(), nullptr);
    EXPECT_TRUE(IgpFlexAlgoDefinition::isEq(*rec[0].oldAs<IgpFlexAlgoDefinition>(), stored));
    EXPECT_TRUE(IgpFlexAlgoDefinition::isEq(col->fad(128), changed));
    EXPECT_EQ(col->fadCount(), 1u);

    // Equal content in new objects is a change too: identity decides.
    col->fadIs(128, definition(128));
    EXPECT_EQ(rec.size(), 2u);
}

TEST(IgpFlexAlgoDefinitionCol, AbsentAlgorithmReadsAsDefaultAndDeletesAsNoOp) {
    auto col = igpFlexAlgoDefinitionColFactory();
    EXPECT_TRUE(isDefaultDefinition(col->fad(200)));
    col->fadIs(128, definition(128));
    FadRecorder rec(col->publisher());

    col->fadDel(200);
    EXPECT_TRUE(rec.empty());
    EXPECT_EQ(col->fadCount(), 1u);

    const IgpFlexAlgoDefinition stored = col->fad(128);
    col->fadDel(128);
    ASSERT_EQ(rec.size(), 1u);
    EXPECT_TRUE(IgpFlexAlgoDefinition::isEq(*rec[0].oldAs<IgpFlexAlgoDefinition>(), stored));
    EXPECT_EQ(col->fadCount(), 0u);
}

TEST(IgpFlexAlgoDefinitionCol, DelAllWhenObservedPublishesEveryRemovalInAlgorithmOrder) {
    auto col = igpFlexAlgoDefinitionColFactory();
    for (std::uint8_t a : {std::uint8_t{130}, std::uint8_t{128}, std::uint8_t{129}}) {
        col->fadIs(a, definition(a));
    }
    FadRecorder rec(col->publisher());
    col->fadDelAll();
    EXPECT_EQ(col->fadCount(), 0u);
    ASSERT_EQ(rec.size(), 3u);
    EXPECT_EQ(*rec[0].keyAs<std::uint8_t>(), 128u);
    EXPECT_EQ(*rec[1].keyAs<std::uint8_t>(), 129u);
    EXPECT_EQ(*rec[2].keyAs<std::uint8_t>(), 130u);
}

class FadColCompare : public ::testing::Test {
protected:
    Poldo::Ptr<IgpFlexAlgoDefinitionCol> a = igpFlexAlgoDefinitionColFactory();
    Poldo::Ptr<IgpFlexAlgoDefinitionCol> b = igpFlexAlgoDefinitionColFactory();
};

TEST_F(FadColCompare, ContentDecidesAndTheFragmentTakesNoPart) {
    EXPECT_TRUE(a->compareFadCol(b.get())) << "two empty collections";
    a->fadIs(128, definition(128));
    IgpFlexAlgoDefinition twin = definition(128);  // equal words in separate objects
    twin.lspFragmentIdIs(9);
    b->fadIs(128, twin);
    EXPECT_TRUE(a->compareFadCol(b.get()));
    EXPECT_TRUE(b->compareFadCol(a.get()));

    IgpFlexAlgoDefinition other = definition(128);
    other.calcTypeIs(1);
    b->fadIs(128, other);
    EXPECT_FALSE(a->compareFadCol(b.get()));

    other = definition(128);
    other.excludeSrlg()->valueIs(78);
    b->fadIs(128, other);
    EXPECT_FALSE(a->compareFadCol(b.get())) << "SRLG sets differ";
}

TEST_F(FadColCompare, WordOrderMatters) {
    a->fadIs(128, definition(128, {1, 2}));
    b->fadIs(128, definition(128, {2, 1}));
    EXPECT_FALSE(a->compareFadCol(b.get()));
}

TEST_F(FadColCompare, DifferentCountsDiffer) {
    a->fadIs(128, definition(128));
    EXPECT_FALSE(a->compareFadCol(b.get()));
    EXPECT_FALSE(b->compareFadCol(a.get()));
}

TEST_F(FadColCompare, AnAlgorithmMissingOnTheOtherSideComparesAgainstADefaultDefinition) {
    a->fadIs(128, definition(128));
    b->fadIs(129, definition(129));
    EXPECT_FALSE(a->compareFadCol(b.get()));

    // A definition equal to a default one in every compared field matches an absent one.
    a->fadIs(128, IgpFlexAlgoDefinition());
    EXPECT_TRUE(a->compareFadCol(b.get()));
}

// ---- IgpMsdCol ------------------------------------------------------------------------------

using MsdRecorder = IgpTest::RecordingObserver<std::uint32_t, IgpMsd>;

TEST(IgpMsdCol, WritingBeyondTheBoundExtendsTheSpanAndPublishesAnInsertion) {
    auto col = igpMsdColFactory();
    MsdRecorder rec(col->publisher());
    col->msdIs(2, IgpMsd(1, 8));
    EXPECT_EQ(col->span(), 3u);
    EXPECT_EQ(col->msd(0), IgpMsd(0, 0));
    EXPECT_EQ(col->msd(1), IgpMsd(0, 0));
    EXPECT_EQ(col->msd(2), IgpMsd(1, 8));
    ASSERT_EQ(rec.size(), 1u);
    EXPECT_EQ(*rec[0].keyAs<std::uint32_t>(), 2u);
    EXPECT_FALSE(rec[0].hasOldValue);

    col->msdIs(2, IgpMsd(1, 8));
    EXPECT_EQ(rec.size(), 1u) << "an equal value within the bound is no change";
    col->msdIs(2, IgpMsd(1, 9));
    ASSERT_EQ(rec.size(), 2u);
    EXPECT_EQ(*rec[1].oldAs<IgpMsd>(), IgpMsd(1, 8));

    col->msdIs(5, IgpMsd());  // the default value, but beyond the bound
    ASSERT_EQ(rec.size(), 3u);
    EXPECT_FALSE(rec[2].hasOldValue);
    EXPECT_EQ(col->span(), 6u);
}

TEST(IgpMsdCol, CompareLooksAtTheSpanAndEveryPositionInIt) {
    auto a = igpMsdColFactory();
    auto b = igpMsdColFactory();
    a->msdIs(2, IgpMsd(1, 8));
    b->msdIs(2, IgpMsd(1, 8));
    EXPECT_TRUE(a->compareMsdCol(b.get()));

    MsdRecorder rec(a->publisher());
    EXPECT_EQ(a->msdDel(2), IgpMsd(1, 8));
    ASSERT_EQ(rec.size(), 1u);
    EXPECT_EQ(a->span(), 3u) << "deleting never lowers the bound";
    EXPECT_EQ(a->msd(2), IgpMsd());
    EXPECT_FALSE(a->compareMsdCol(igpMsdColFactory().get()));
    EXPECT_FALSE(a->compareMsdCol(b.get()));
}

TEST(IgpMsd, TextRoundTrips) {
    const std::string text = "Value('Routing::IgpCommon::IgpMsd', ** {'msdType': 1, 'msdValue': 8})";
    EXPECT_EQ(Kest::strep(IgpMsd(1, 8)), text);
    EXPECT_EQ(Kest::strepToValue(text, static_cast<IgpMsd*>(nullptr)), IgpMsd(1, 8));
}

// ---- IgpMultiTopologyIdCol --------------------------------------------------------------------

TEST(IgpMultiTopologyIdCol, PresentIdIsANoOpAndTextIsSorted) {
    auto col = igpMultiTopologyIdColFactory();
    IgpTest::RecordingObserver<IgpMultiTopologyId> rec(col->publisher());
    for (std::uint16_t id : {7, 0, 2, 7}) {
        col->mtIdValueIs(IgpMultiTopologyId(id));
    }
    EXPECT_EQ(rec.size(), 3u);
    EXPECT_EQ(*rec[0].keyAs<IgpMultiTopologyId>(), IgpMultiTopologyId(7));
    EXPECT_EQ(col->mtIdValue().size(), 3u);
    EXPECT_EQ(col->toStrep(), "[0, 2, 7]");
}

TEST(IgpMultiTopologyIdCol, CompareIsSetEqualityAndFalseAgainstNullOrOtherCount) {
    auto a = igpMultiTopologyIdColFactory();
    auto b = igpMultiTopologyIdColFactory();
    a->mtIdValueIs(IgpMultiTopologyId(2));
    a->mtIdValueIs(IgpMultiTopologyId(7));
    b->mtIdValueIs(IgpMultiTopologyId(7));
    EXPECT_FALSE(a->compareMtIdCol(nullptr));
    EXPECT_FALSE(a->compareMtIdCol(b.get()));
    EXPECT_FALSE(b->compareMtIdCol(a.get()));
    b->mtIdValueIs(IgpMultiTopologyId(3));
    EXPECT_FALSE(a->compareMtIdCol(b.get()));
    b->mtIdValueDel(IgpMultiTopologyId(3));
    b->mtIdValueIs(IgpMultiTopologyId(2));
    EXPECT_TRUE(a->compareMtIdCol(b.get()));
}

// ---- IsisAreaIdCol, IgpFlexAlgoPrefixMetric, AreaIdIndex ----------------------------------------

template <class T>
concept HasPublisher = requires(T& t) {
    t.publisher();
};
static_assert(HasPublisher<IgpMsdCol>, "the detector sees an observed collection's publisher");
static_assert(!HasPublisher<IsisAreaIdCol>, "IsisAreaIdCol publishes nothing");
static_assert(!HasPublisher<IgpFlexAlgoPrefixMetric>, "IgpFlexAlgoPrefixMetric publishes nothing");

TEST(IsisAreaIdCol, OrdersByTextAndOverwritesTheFlagOfAPresentArea) {
    auto col = isisAreaIdColFactory();
    col->areaIdIs(area("49.0002"), false);
    col->areaIdIs(area("39.0840.0001"), false);
    col->areaIdIs(area("49.0001"), true);
    std::vector<std::string> order;
    for (const auto& [id, flag] : col->areaId()) {
        order.push_back(id.stringValue());
    }
    EXPECT_THAT(order, ElementsAre("39.0840.0001", "49.0001", "49.0002"));

    EXPECT_TRUE(col->areaId(area("49.0001")));
    col->areaIdIs(area("49.0001"), false);
    EXPECT_FALSE(col->areaId(area("49.0001")));
    col->areaIdIs(area("49.0002"), true);
    EXPECT_TRUE(col->areaId(area("49.0002")));
    EXPECT_EQ(col->areaId().size(), 3u);
    EXPECT_FALSE(col->areaId(area("49.0003"))) << "absent reads false";
}

TEST(IsisAreaIdCol, CompareIgnoresTheFlags) {
    auto a = isisAreaIdColFactory();
    auto b = isisAreaIdColFactory();
    a->areaIdIs(area("49.0001"), true);
    b->areaIdIs(area("49.0001"), false);
    EXPECT_TRUE(a->compareAreaIds(b.get()));
    b->areaIdIs(area("49.0002"), true);
    EXPECT_FALSE(a->compareAreaIds(b.get()));
    a->areaIdIs(area("49.0003"), true);
    EXPECT_FALSE(a->compareAreaIds(b.get())) << "same count, different areas";
}

TEST(IgpFlexAlgoPrefixMetric, AbsentIsZeroRewritingIsInvisibleAndIterationAscends) {
    auto m = igpFlexAlgoPrefixMetricFactory();
    EXPECT_EQ(m->metric(5), 0u);
    m->metricIs(130, 30);
    m->metricIs(128, 10);
    m->metricIs(128, 10);
    EXPECT_EQ(m->metricCount(), 2u);
    EXPECT_EQ(m->metric(128), 10u);
    std::vector<std::pair<unsigned, std::uint32_t>> seen;
    for (const auto& [algo, metric] : m->metric()) {
        seen.emplace_back(algo, metric);
    }
    EXPECT_THAT(seen, ElementsAre(std::pair<unsigned, std::uint32_t>(128, 10),
                                  std::pair<unsigned, std::uint32_t>(130, 30)));
}

TEST(AreaIdIndex, TextRefusesThreeWithItsOwnMessage) {
    EXPECT_EQ(Kest::strepToValue(std::string("2"), static_cast<AreaIdIndex*>(nullptr)).value(), 2u);
    EXPECT_THAT([] { (void)Kest::strepToValue(std::string("3"), static_cast<AreaIdIndex*>(nullptr)); },
                ThrowsMessage<Kest::RangeException>(StrEq(
                    "Routing::IgpCommon::AreaIdIndex::value < Routing::IgpCommon::AreaIdIndex::min or > "
                    "Routing::IgpCommon::AreaIdIndex::max not allowed")));
}

// ---- creation -------------------------------------------------------------------------------

template <class T, class Static, class Factory>
void expectSoleReferenceAndBalancedTracker(Static viaStatic, Factory viaFactory) {
    const std::uint64_t start = T::allocTracker().live();
    {
        Poldo::Ptr<T> a = viaStatic();
        Poldo::Ptr<T> b = viaFactory();
        EXPECT_EQ(a->useCount(), 1u) << T::typeData().name;
        EXPECT_EQ(b->useCount(), 1u) << T::typeData().name;
        EXPECT_EQ(T::allocTracker().live(), start + 2) << T::typeData().name;
    }
    EXPECT_EQ(T::allocTracker().live(), start) << T::typeData().name;
}

TEST(NodeAttrCollectionsLifetime, CreatorsHandOutTheOnlyReferenceAndTrackersReturnToTheirStart) {
    expectSoleReferenceAndBalancedTracker<IgpFlexAlgoDefinitionCol>(
        &IgpFlexAlgoDefinitionCol::IgpFlexAlgoDefinitionColIs, &igpFlexAlgoDefinitionColFactory);
    expectSoleReferenceAndBalancedTracker<IgpMsdCol>(&IgpMsdCol::IgpMsdColIs, &igpMsdColFactory);
    expectSoleReferenceAndBalancedTracker<IgpMultiTopologyIdCol>(
        &IgpMultiTopologyIdCol::IgpMultiTopologyIdColIs, &igpMultiTopologyIdColFactory);
    expectSoleReferenceAndBalancedTracker<IsisAreaIdCol>(&IsisAreaIdCol::IsisAreaIdColIs,
                                                         &isisAreaIdColFactory);
    expectSoleReferenceAndBalancedTracker<IgpFlexAlgoPrefixMetric>(
        &IgpFlexAlgoPrefixMetric::IgpFlexAlgoPrefixMetricIs, &igpFlexAlgoPrefixMetricFactory);

    // A filled collection releases its definitions' constraint objects with it.
    const std::uint64_t eags = IgpFlexAlgoEag::allocTracker().live();
    {
        auto col = igpFlexAlgoDefinitionColFactory();
        col->fadIs(128, definition(128));
        col->fadIs(129, definition(129));
        EXPECT_GT(IgpFlexAlgoEag::allocTracker().live(), eags);
    }
    EXPECT_EQ(IgpFlexAlgoEag::allocTracker().live(), eags);
}

}  // namespace
