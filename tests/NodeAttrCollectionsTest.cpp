// The per-node attribute collections (flex-algo definitions, MSDs, topology ids, area addresses,
// per-algorithm prefix metrics), and the creators and trackers of every attribute entity.
#include "IgpCommon/NodeAttrCollections.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "IgpCommon/SidLabelBinding.h"
#include "IgpCommon/SrCapabilities.h"
#include "tests/support/Builders.h"
#include "tests/support/RecordingObserver.h"

namespace {

using namespace Routing::IgpCommon;  // NOLINT(google-build-using-namespace)
using Routing::Isis::AreaId;
using ::testing::ElementsAre;
using testsupport::eag;
using testsupport::parse;

/// A definition whose numbers are derived from `algo`, with fresh constraint objects.
IgpFlexAlgoDefinition definition(std::uint8_t algo,
                                 std::initializer_list<std::uint32_t> excludeAny = {1, 2}) {
    IgpFlexAlgoDefinition d;
    d.flexAlgoIs(algo);
    d.metricTypeIs(1);
    d.priorityIs(100);
    d.excludeAnyIs(eag(excludeAny));
    d.excludeSrlgIs(testsupport::srlg({77}));
    return d;
}

bool isDefaultDefinition(const IgpFlexAlgoDefinition& d) {
    return d.flexAlgo() == 0 && d.metricType() == 0 && d.calcType() == 0 && d.priority() == 0 &&
           d.lspFragmentId() == 0 && d.excludeAny()->valueCount() == 0 && d.includeAny()->valueCount() == 0 &&
           d.includeAll()->valueCount() == 0 && d.excludeSrlg()->value().size() == 0;
}

// ---- IgpFlexAlgoDefinitionCol ---------------------------------------------------------------

using FadRecorder = IgpTest::RecordingObserver<std::uint8_t, IgpFlexAlgoDefinition>;

TEST(IgpFlexAlgoDefinitionCol, InsertionPublishesADefaultOldDefinitionButOnlyWhenObserved) {
    const IgpFlexAlgoDefinition d = definition(128);
    auto unobserved = igpFlexAlgoDefinitionColFactory();
    const std::uint64_t eagsBefore = IgpFlexAlgoEag::allocTracker().allocations();
    unobserved->fadIs(128, d);
    EXPECT_EQ(IgpFlexAlgoEag::allocTracker().allocations(), eagsBefore) << "a default definition was built";
    EXPECT_TRUE(IgpFlexAlgoDefinition::isEq(unobserved->fad(128), d));

    auto col = igpFlexAlgoDefinitionColFactory();
    FadRecorder rec(col->publisher());
    col->fadIs(128, d);
    ASSERT_EQ(rec.size(), 1u);
    EXPECT_EQ(rec[0].attr, IgpFlexAlgoDefinitionCol::Attr::fad);
    EXPECT_EQ(*rec[0].keyAs<std::uint8_t>(), 128u);
    ASSERT_NE(rec[0].oldAs<IgpFlexAlgoDefinition>(), nullptr);
    EXPECT_TRUE(isDefaultDefinition(*rec[0].oldAs<IgpFlexAlgoDefinition>()));
}

TEST(IgpFlexAlgoDefinitionCol, IdentityDecidesWhetherAWriteIsAChange) {
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
    EXPECT_TRUE(IgpFlexAlgoDefinition::isEq(*rec[0].oldAs<IgpFlexAlgoDefinition>(), stored));
    EXPECT_TRUE(IgpFlexAlgoDefinition::isEq(col->fad(128), changed));

    col->fadIs(128, definition(128));  // equal content in new objects
    EXPECT_EQ(rec.size(), 2u);
    EXPECT_EQ(col->fadCount(), 1u);
}

TEST(IgpFlexAlgoDefinitionCol, AbsentAlgorithmReadsAsDefaultAndDeletionsPublishTheOldDefinitionInOrder) {
    auto col = igpFlexAlgoDefinitionColFactory();
    EXPECT_TRUE(isDefaultDefinition(col->fad(200)));
    for (std::uint8_t a : {std::uint8_t{130}, std::uint8_t{128}, std::uint8_t{129}, std::uint8_t{131}}) {
        col->fadIs(a, definition(a));
    }
    const IgpFlexAlgoDefinition stored = col->fad(131);
    FadRecorder rec(col->publisher());
    col->fadDel(200);
    EXPECT_TRUE(rec.empty());
    col->fadDel(131);
    ASSERT_EQ(rec.size(), 1u);
    EXPECT_TRUE(IgpFlexAlgoDefinition::isEq(*rec[0].oldAs<IgpFlexAlgoDefinition>(), stored));

    col->fadDelAll();
    EXPECT_EQ(col->fadCount(), 0u);
    ASSERT_EQ(rec.size(), 4u);
    for (unsigned i = 1; i < 4; ++i) {
        EXPECT_EQ(*rec[i].keyAs<std::uint8_t>(), 127u + i);
    }
}

TEST(IgpFlexAlgoDefinitionCol, CompareLooksAtContentNotAtTheFragmentAndTakesAbsentAsDefault) {
    auto a = igpFlexAlgoDefinitionColFactory();
    auto b = igpFlexAlgoDefinitionColFactory();
    EXPECT_TRUE(a->compareFadCol(b.get())) << "two empty collections";
    a->fadIs(128, definition(128));
    EXPECT_FALSE(a->compareFadCol(b.get())) << "different counts";
    EXPECT_FALSE(b->compareFadCol(a.get()));
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
    b->fadIs(128, definition(128, {2, 1}));
    EXPECT_FALSE(a->compareFadCol(b.get())) << "word order matters";

    b->fadDel(128);
    b->fadIs(129, definition(129));
    EXPECT_FALSE(a->compareFadCol(b.get()));
    a->fadIs(128, IgpFlexAlgoDefinition());  // equal to a default one in every compared field
    EXPECT_TRUE(a->compareFadCol(b.get())) << "an absent algorithm compares as a default definition";
}

// ---- IgpMsdCol, IgpMultiTopologyIdCol ---------------------------------------------------------

TEST(IgpMsdCol, WritingBeyondTheBoundExtendsTheSpanDeletingNeverShrinksItAndCompareSeesEveryPosition) {
    auto col = igpMsdColFactory();
    IgpTest::RecordingObserver<std::uint32_t, IgpMsd> rec(col->publisher());
    col->msdIs(2, IgpMsd(1, 8));
    EXPECT_EQ(col->span(), 3u);
    EXPECT_EQ(col->msd(1), IgpMsd(0, 0));
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

    auto a = igpMsdColFactory();
    auto b = igpMsdColFactory();
    a->msdIs(2, IgpMsd(1, 8));
    b->msdIs(2, IgpMsd(1, 8));
    EXPECT_TRUE(a->compareMsdCol(b.get()));
    EXPECT_EQ(a->msdDel(2), IgpMsd(1, 8));
    EXPECT_EQ(a->span(), 3u) << "deleting never lowers the bound";
    EXPECT_EQ(a->msd(2), IgpMsd());
    EXPECT_FALSE(a->compareMsdCol(igpMsdColFactory().get())) << "spans differ";
    EXPECT_FALSE(a->compareMsdCol(b.get()));

    // The walk visits the present MSDs only, in position order, and may delete as it goes.
    auto walked = igpMsdColFactory();
    walked->msdIs(4, IgpMsd(2, 3));
    walked->msdIs(1, IgpMsd(1, 8));
    walked->msdIs(6, IgpMsd());
    std::vector<std::pair<std::uint32_t, IgpMsd>> seen;
    for (auto it = walked->begin(); it != walked->end(); ++it) {
        seen.emplace_back((*it).position, (*it).msd);
        EXPECT_EQ(walked->msdDel(it), (*it).position == 1 ? IgpMsd(1, 8) : IgpMsd(2, 3));
    }
    EXPECT_EQ(seen, (std::vector<std::pair<std::uint32_t, IgpMsd>>{{1, IgpMsd(1, 8)}, {4, IgpMsd(2, 3)}}));
    EXPECT_EQ(walked->begin(), walked->end()) << "everything deleted";
    EXPECT_EQ(walked->span(), 7u);

    const std::string text = "Value('Routing::IgpCommon::IgpMsd', ** {'msdType': 1, 'msdValue': 8})";
    EXPECT_EQ(Kest::strep(IgpMsd(1, 8)), text);
    EXPECT_EQ(parse<IgpMsd>(text), IgpMsd(1, 8));
}

TEST(IgpMultiTopologyIdCol, APresentIdIsNoChangeTextIsSortedAndCompareIsSetEquality) {
    auto a = igpMultiTopologyIdColFactory();
    IgpTest::RecordingObserver<IgpMultiTopologyId> rec(a->publisher());
    for (std::uint16_t id : {7, 0, 2, 7}) {
        a->mtIdValueIs(IgpMultiTopologyId(id));
    }
    ASSERT_EQ(rec.size(), 3u);
    EXPECT_EQ(*rec[1].keyAs<IgpMultiTopologyId>(), IgpMultiTopologyId(0));
    EXPECT_EQ(a->toStrep(), "[0, 2, 7]");
    EXPECT_EQ(a->mtIdValue().size(), 3u);

    auto b = igpMultiTopologyIdColFactory();
    b->mtIdValueIs(IgpMultiTopologyId(7));
    b->mtIdValueIs(IgpMultiTopologyId(0));
    EXPECT_FALSE(a->compareMtIdCol(nullptr));
    EXPECT_FALSE(a->compareMtIdCol(b.get()));
    EXPECT_FALSE(b->compareMtIdCol(a.get()));
    b->mtIdValueIs(IgpMultiTopologyId(3));
    EXPECT_FALSE(a->compareMtIdCol(b.get())) << "same count, different ids";
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

TEST(IsisAreaIdCol, OrdersByTextOverwritesTheFlagOfAPresentAreaAndComparesWithoutTheFlags) {
    auto col = isisAreaIdColFactory();
    col->areaIdIs(parse<AreaId>("49.0002"), false);
    col->areaIdIs(parse<AreaId>("39.0840.0001"), false);
    col->areaIdIs(parse<AreaId>("49.0001"), true);
    std::vector<std::string> order;
    for (const auto& [id, flag] : col->areaId()) {
        order.push_back(id.stringValue());
    }
    EXPECT_THAT(order, ElementsAre("39.0840.0001", "49.0001", "49.0002"));
    col->areaIdIs(parse<AreaId>("49.0001"), false);
    EXPECT_FALSE(col->areaId(parse<AreaId>("49.0001")));
    col->areaIdIs(parse<AreaId>("49.0002"), true);
    EXPECT_TRUE(col->areaId(parse<AreaId>("49.0002")));
    EXPECT_EQ(col->areaId().size(), 3u);
    EXPECT_FALSE(col->areaId(parse<AreaId>("49.0003"))) << "absent reads false";

    auto a = isisAreaIdColFactory();
    auto b = isisAreaIdColFactory();
    a->areaIdIs(parse<AreaId>("49.0001"), true);
    b->areaIdIs(parse<AreaId>("49.0001"), false);
    EXPECT_TRUE(a->compareAreaIds(b.get()));
    b->areaIdIs(parse<AreaId>("49.0002"), true);
    EXPECT_FALSE(a->compareAreaIds(b.get()));
    a->areaIdIs(parse<AreaId>("49.0003"), true);
    EXPECT_FALSE(a->compareAreaIds(b.get())) << "same count, different areas";

    EXPECT_EQ(parse<AreaIdIndex>("2").value(), 2u);
    EXPECT_EQ(testsupport::messageOf<Kest::RangeException>([] { parse<AreaIdIndex>("3"); }),
              "Routing::IgpCommon::AreaIdIndex::value < Routing::IgpCommon::AreaIdIndex::min or > "
              "Routing::IgpCommon::AreaIdIndex::max not allowed");
}

TEST(IgpFlexAlgoPrefixMetric, AbsentIsZeroRewritingIsInvisibleAndIterationAscends) {
    auto m = igpFlexAlgoPrefixMetricFactory();
    EXPECT_EQ(m->metric(5), 0u);
    m->metricIs(130, 30);
    m->metricIs(128, 10);
    m->metricIs(128, 10);
    EXPECT_EQ(m->metricCount(), 2u);
    std::vector<std::pair<unsigned, std::uint32_t>> seen;
    for (const auto& [algo, metric] : m->metric()) {
        seen.emplace_back(algo, metric);
    }
    EXPECT_THAT(seen, ElementsAre(std::pair<unsigned, std::uint32_t>(128, 10),
                                  std::pair<unsigned, std::uint32_t>(130, 30)));
}

// ---- creation -------------------------------------------------------------------------------

template <class T, class Static, class Factory>
void expectSoleReferenceAndBalancedTracker(Static viaStatic, Factory viaFactory) {
    SCOPED_TRACE(T::typeData().name);
    const std::uint64_t start = T::allocTracker().live();
    {
        Poldo::Ptr<T> a = viaStatic();
        Poldo::Ptr<T> b = viaFactory();
        EXPECT_EQ(a->useCount(), 1u);
        EXPECT_EQ(b->useCount(), 1u);
        EXPECT_EQ(T::allocTracker().live(), start + 2);
    }
    EXPECT_EQ(T::allocTracker().live(), start);
}

TEST(AttributeEntityLifetime, CreatorsHandOutTheOnlyReferenceAndTrackersReturnToTheirStart) {
    expectSoleReferenceAndBalancedTracker<IgpFlexAlgoDefinitionCol>(
        &IgpFlexAlgoDefinitionCol::IgpFlexAlgoDefinitionColIs, &igpFlexAlgoDefinitionColFactory);
    expectSoleReferenceAndBalancedTracker<IgpMsdCol>(&IgpMsdCol::IgpMsdColIs, &igpMsdColFactory);
    expectSoleReferenceAndBalancedTracker<IgpMultiTopologyIdCol>(
        &IgpMultiTopologyIdCol::IgpMultiTopologyIdColIs, &igpMultiTopologyIdColFactory);
    expectSoleReferenceAndBalancedTracker<IsisAreaIdCol>(&IsisAreaIdCol::IsisAreaIdColIs,
                                                         &isisAreaIdColFactory);
    expectSoleReferenceAndBalancedTracker<IgpFlexAlgoPrefixMetric>(
        &IgpFlexAlgoPrefixMetric::IgpFlexAlgoPrefixMetricIs, &igpFlexAlgoPrefixMetricFactory);
    expectSoleReferenceAndBalancedTracker<SrCapabilities>(&SrCapabilities::SrCapabilitiesIs,
                                                          &srCapabilitiesFactory);
    expectSoleReferenceAndBalancedTracker<SidLabelBinding>(&SidLabelBinding::SidLabelBindingIs,
                                                           &sidLabelBindingFactory);
    expectSoleReferenceAndBalancedTracker<IgpFlexAlgoEag>(&IgpFlexAlgoEag::IgpFlexAlgoEagIs,
                                                          &igpFlexAlgoEagFactory);
    expectSoleReferenceAndBalancedTracker<IgpFlexAlgoSrlg>(&IgpFlexAlgoSrlg::IgpFlexAlgoSrlgIs,
                                                           &igpFlexAlgoSrlgFactory);

    // A definition owns its four constraint objects alone, whether built or read, and a filled
    // collection releases them with it.
    const std::uint64_t eags = IgpFlexAlgoEag::allocTracker().live();
    const std::uint64_t srlgs = IgpFlexAlgoSrlg::allocTracker().live();
    {
        const IgpFlexAlgoDefinition d;
        const IgpFlexAlgoDefinition read = parse<IgpFlexAlgoDefinition>(Kest::strep(d));
        for (const auto* def : {&d, &read}) {
            EXPECT_EQ(def->excludeAny()->useCount(), 1u);
            EXPECT_EQ(def->includeAll()->useCount(), 1u);
            EXPECT_EQ(def->excludeSrlg()->useCount(), 1u);
        }
        EXPECT_EQ(IgpFlexAlgoEag::allocTracker().live(), eags + 6);
        EXPECT_EQ(IgpFlexAlgoSrlg::allocTracker().live(), srlgs + 2);
        auto col = igpFlexAlgoDefinitionColFactory();
        col->fadIs(128, definition(128));
        col->fadIs(129, definition(129));
    }
    EXPECT_EQ(IgpFlexAlgoEag::allocTracker().live(), eags);
    EXPECT_EQ(IgpFlexAlgoSrlg::allocTracker().live(), srlgs);
}

}  // namespace
