// The attribute entities a node or prefix holds: flex-algo constraints and definitions and their
// collection, MSDs, topology ids, areas, SR capabilities, SID/label bindings, and the parsed
// content's find-or-create - what each publishes, compares and writes, and what it owns.
#include "IgpCommon/NodeAttrCollections.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "IgpCommon/ParsedContent.h"
#include "IgpCommon/SidLabelBinding.h"
#include "IgpCommon/SrCapabilities.h"
#include "tests/support/Builders.h"
#include "tests/support/RecordingObserver.h"

namespace {

using namespace Routing::IgpCommon;  // NOLINT(google-build-using-namespace)
using Routing::Isis::AreaId;
using ::testing::ElementsAre;
using testsupport::eag;
using testsupport::messageOf;
using testsupport::parse;
using testsupport::srlg;

IgpFlexAlgoDefinition definition(std::uint8_t algo,
                                 std::initializer_list<std::uint32_t> excludeAny = {1, 2}) {
    IgpFlexAlgoDefinition d;
    d.flexAlgoIs(algo);
    d.metricTypeIs(1);
    d.priorityIs(100);
    d.excludeAnyIs(eag(excludeAny));
    d.excludeSrlgIs(srlg({77}));
    return d;
}

// ---- flexible-algorithm constraints and definitions ---------------------------------------------

TEST(IgpFlexAlgoEag, PushPopAndWritesWithinTheLengthOnlyPublishingTheIndex) {
    auto e = igpFlexAlgoEagFactory();
    IgpTest::RecordingObserver<std::uint32_t> rec(e->publisher());
    EXPECT_THROW(e->valuePop(), Poldo::EmptyVectorException);
    e->valuePush(10);
    e->valuePush(20);
    EXPECT_EQ(e->valuePop(), 20u);
    ASSERT_EQ(rec.size(), 3u);
    EXPECT_EQ(*rec[1].keyAs<std::uint32_t>(), 1u);
    EXPECT_EQ(*rec[2].oldAs<std::uint32_t>(), 20u);
    auto three = eag({1, 2, 3});
    EXPECT_THROW(three->valueIs(3, 9), Poldo::VectorOutOfRangeException);
    EXPECT_THROW((void)three->value(3), Poldo::VectorOutOfRangeException);
    three->valueIs(2, 9);
    EXPECT_THAT(three->values(), ElementsAre(1u, 2u, 9u));

    EXPECT_TRUE(eag({1, 2, 3})->compare(eag({1, 2, 3}).get()));
    EXPECT_FALSE(eag({1, 2, 3})->compare(eag({3, 2, 1}).get()));
    EXPECT_FALSE(eag({1, 2})->compare(eag({1, 2, 3}).get()));
    EXPECT_FALSE(eag({})->compare(nullptr));
    EXPECT_EQ(eag({3, 1, 2})->toStrep(), "[3, 1, 2]");
    EXPECT_EQ(srlg({30, 4, 17})->toStrep(), "[4, 17, 30]");
    EXPECT_TRUE(srlg({30, 4, 17})->compare(srlg({17, 30, 4}).get()));
    EXPECT_FALSE(srlg({4, 17, 30})->compare(srlg({4, 17, 31}).get()));
    EXPECT_FALSE(srlg({})->compare(nullptr));
}

TEST(IgpFlexAlgoDefinition, IdentityOfTheConstraintObjectsDecidesEqualityOrderAndHash) {
    const IgpFlexAlgoDefinition a = definition(128);
    const IgpFlexAlgoDefinition twin = definition(128);
    const IgpFlexAlgoDefinition copy = a;  // NOLINT(performance-unnecessary-copy-initialization)
    EXPECT_FALSE(IgpFlexAlgoDefinition::isEq(a, twin));
    EXPECT_EQ(a <=> twin, reinterpret_cast<std::uintptr_t>(a.excludeAny().get()) <=>
                              reinterpret_cast<std::uintptr_t>(twin.excludeAny().get()));
    EXPECT_TRUE(IgpFlexAlgoDefinition::isEq(a, copy));
    EXPECT_EQ(a <=> copy, std::strong_ordering::equal);
    EXPECT_EQ(a.hash(77), copy.hash(77));
    EXPECT_NE(a.hash(0), twin.hash(0));
    const IgpFlexAlgoDefinition d1;
    const IgpFlexAlgoDefinition d2;
    EXPECT_NE(d1.includeAny(), d1.includeAll());
    EXPECT_NE(d1.excludeAny(), d2.excludeAny()) << "each default definition has objects of its own";
}

TEST(IgpFlexAlgoDefinition, CombineTakesNonEmptyListsOfTheSameOrALowerFragmentAndUnitesSrlgs) {
    for (const std::uint8_t fragment : {std::uint8_t{5}, std::uint8_t{3}, std::uint8_t{0}}) {
        IgpFlexAlgoDefinition mine = definition(128);
        mine.lspFragmentIdIs(3);
        IgpFlexAlgoDefinition other;
        other.excludeAnyIs(eag({7}));
        other.includeAllIs(eag({8, 9}));
        other.excludeSrlgIs(srlg({78}));
        other.lspFragmentIdIs(fragment);
        const IgpFlexAlgoEag* before = mine.excludeAny().get();
        mine.combineSubTlvs(other);
        EXPECT_EQ(mine.excludeAny()->values(),
                  (fragment > 3 ? std::vector<std::uint32_t>{1, 2} : std::vector<std::uint32_t>{7}))
            << unsigned{fragment};
        EXPECT_EQ(mine.excludeAny().get(), before);
        EXPECT_THAT(mine.includeAll()->values(), ElementsAre(8u, 9u)) << "an empty list takes any fragment's";
        EXPECT_TRUE(mine.includeAny()->values().empty());
        EXPECT_EQ(mine.excludeSrlg()->toStrep(), "[77, 78]");
    }
    IgpFlexAlgoDefinition self = definition(128);
    self.combineSubTlvs(IgpFlexAlgoDefinition(self));  // shared lists: every non-empty one is emptied
    EXPECT_TRUE(self.excludeAny()->values().empty());
    EXPECT_EQ(self.excludeSrlg()->toStrep(), "[77]");
}

TEST(IgpFlexAlgoDefinition, TextRoundTripsIntoNewObjectsAndNoneIsANullPointer) {
    IgpFlexAlgoDefinition d = definition(128);
    d.includeAllIs(eag({3}));
    d.lspFragmentIdIs(3);
    const std::string text = Kest::strep(d);
    EXPECT_EQ(text,
              "Value('Routing::IgpCommon::IgpFlexAlgoDefinition', ** {'flexAlgo': 128, 'metricType': 1, "
              "'calcType': 0, 'priority': 100, 'excludeAny': [1, 2], 'includeAny': [], 'includeAll': [3], "
              "'excludeSrlg': [77], 'lspFragmentId': 3})");
    const auto back = parse<IgpFlexAlgoDefinition>(text);
    EXPECT_EQ(Kest::strep(back), text);
    EXPECT_NE(back.excludeAny().get(), d.excludeAny().get());
    EXPECT_EQ(back.excludeAny()->useCount(), 1u);
    std::string none = text;
    none.replace(none.find("[1, 2]"), 6, "None");
    EXPECT_FALSE(parse<IgpFlexAlgoDefinition>(none).excludeAny());
    EXPECT_EQ(Kest::strep(parse<IgpFlexAlgoDefinition>(none)), none);
    std::string bad = text;
    bad.replace(bad.find("[77]"), 4, "[4294967296]");
    EXPECT_EQ(messageOf<Kest::AttributeParseException>([&] {
                  parse<IgpFlexAlgoDefinition>(bad);
              }).rfind("attribute 'excludeSrlg': ", 0),
              0u);
}

// ---- the node's collections ------------------------------------------------------------------

TEST(IgpFlexAlgoDefinitionCol, PublishesByIdentityWithADefaultOldDefinitionAndComparesContent) {
    auto col = igpFlexAlgoDefinitionColFactory();
    IgpTest::RecordingObserver<std::uint8_t, IgpFlexAlgoDefinition> rec(col->publisher());
    col->fadIs(128, definition(128));
    ASSERT_EQ(rec.size(), 1u);
    EXPECT_EQ(rec[0].oldAs<IgpFlexAlgoDefinition>()->excludeAny()->valueCount(), 0u);
    EXPECT_EQ(col->fad(200).priority(), 0u) << "an absent algorithm reads as a default definition";
    IgpFlexAlgoDefinition same = col->fad(128);
    col->fadIs(128, same);
    EXPECT_EQ(rec.size(), 1u) << "the stored constraint objects: no change";
    same.priorityIs(101);
    col->fadIs(128, same);
    col->fadIs(129, definition(129));
    col->fadDel(200);
    col->fadDel(129);
    ASSERT_EQ(rec.size(), 4u);
    EXPECT_EQ(rec[2].oldAs<IgpFlexAlgoDefinition>()->priority(), 0u);
    EXPECT_EQ(rec[3].oldAs<IgpFlexAlgoDefinition>()->flexAlgo(), 129u);

    auto a = igpFlexAlgoDefinitionColFactory();
    auto b = igpFlexAlgoDefinitionColFactory();
    EXPECT_TRUE(a->compareFadCol(b.get()));
    a->fadIs(128, definition(128));
    EXPECT_FALSE(b->compareFadCol(a.get()));
    IgpFlexAlgoDefinition twin = definition(128);
    twin.lspFragmentIdIs(9);  // the fragment is no part of the comparison
    b->fadIs(128, twin);
    EXPECT_TRUE(a->compareFadCol(b.get()));
    b->fadIs(128, definition(128, {2, 1}));
    EXPECT_FALSE(a->compareFadCol(b.get())) << "word order matters";
    twin.calcTypeIs(1);
    b->fadIs(128, twin);
    EXPECT_FALSE(a->compareFadCol(b.get()));
    b->fadDel(128);
    b->fadIs(129, definition(129));
    a->fadIs(128, IgpFlexAlgoDefinition());
    EXPECT_TRUE(a->compareFadCol(b.get())) << "an absent algorithm compares as a default definition";
}

TEST(IgpMsdCol, WritingBeyondTheBoundExtendsTheSpanDeletingNeverShrinksIt) {
    auto col = igpMsdColFactory();
    IgpTest::RecordingObserver<std::uint32_t, IgpMsd> rec(col->publisher());
    col->msdIs(2, IgpMsd(1, 8));
    col->msdIs(2, IgpMsd(1, 8));
    col->msdIs(2, IgpMsd(1, 9));
    col->msdIs(5, IgpMsd());  // the default value, but beyond the bound
    EXPECT_EQ(col->span(), 6u);
    ASSERT_EQ(rec.size(), 3u);
    EXPECT_FALSE(rec[0].hasOldValue);
    EXPECT_EQ(*rec[1].oldAs<IgpMsd>(), IgpMsd(1, 8));
    EXPECT_FALSE(rec[2].hasOldValue);
    auto other = igpMsdColFactory();
    other->msdIs(2, IgpMsd(1, 9));
    other->msdIs(5, IgpMsd());
    EXPECT_TRUE(col->compareMsdCol(other.get()));
    EXPECT_EQ(col->msdDel(2), IgpMsd(1, 9));
    EXPECT_EQ(col->span(), 6u);
    EXPECT_FALSE(col->compareMsdCol(other.get()));
    EXPECT_FALSE(col->compareMsdCol(igpMsdColFactory().get())) << "spans differ";
    col->msdIs(1, IgpMsd(1, 8));
    col->msdIs(4, IgpMsd(2, 3));
    std::vector<std::uint32_t> seen;
    for (auto it = col->begin(); it != col->end(); ++it) {  // present MSDs only, deletable on the way
        seen.push_back((*it).position);
        col->msdDel(it);
    }
    EXPECT_THAT(seen, ElementsAre(1u, 4u));
    EXPECT_EQ(col->begin(), col->end());
    EXPECT_EQ(parse<IgpMsd>(Kest::strep(IgpMsd(1, 8))), IgpMsd(1, 8));
}

TEST(IgpMultiTopologyIdCol, APresentIdIsNoChangeTextIsSortedAndCompareIsSetEquality) {
    auto a = igpMultiTopologyIdColFactory();
    IgpTest::RecordingObserver<IgpMultiTopologyId> rec(a->publisher());
    for (std::uint16_t id : {7, 0, 2, 7}) {
        a->mtIdValueIs(IgpMultiTopologyId(id));
    }
    EXPECT_EQ(rec.size(), 3u);
    EXPECT_EQ(a->toStrep(), "[0, 2, 7]");
    auto b = igpMultiTopologyIdColFactory();
    b->mtIdValueIs(IgpMultiTopologyId(7));
    b->mtIdValueIs(IgpMultiTopologyId(0));
    EXPECT_FALSE(a->compareMtIdCol(nullptr));
    EXPECT_FALSE(b->compareMtIdCol(a.get()));
    b->mtIdValueIs(IgpMultiTopologyId(3));
    EXPECT_FALSE(a->compareMtIdCol(b.get())) << "same count, different ids";
    b->mtIdValueDel(IgpMultiTopologyId(3));
    b->mtIdValueIs(IgpMultiTopologyId(2));
    EXPECT_TRUE(a->compareMtIdCol(b.get()));
}

TEST(IsisAreaIdCol, OrdersByTextOverwritesTheFlagAndComparesWithoutFlagsAndPrefixMetricsAscend) {
    auto col = isisAreaIdColFactory();
    for (const char* a : {"49.0002", "39.0840.0001", "49.0001"}) {
        col->areaIdIs(parse<AreaId>(a), true);
    }
    col->areaIdIs(parse<AreaId>("49.0001"), false);
    std::vector<std::string> order;
    for (const auto& [id, flag] : col->areaId()) {
        order.push_back(id.stringValue() + (flag ? "+" : ""));
    }
    EXPECT_THAT(order, ElementsAre("39.0840.0001+", "49.0001", "49.0002+"));
    auto other = isisAreaIdColFactory();
    for (const char* a : {"49.0002", "39.0840.0001", "49.0003"}) {
        other->areaIdIs(parse<AreaId>(a), false);
    }
    EXPECT_FALSE(col->compareAreaIds(other.get())) << "same count, different areas";
    other->areaIdDel(parse<AreaId>("49.0003"));
    other->areaIdIs(parse<AreaId>("49.0001"), true);
    EXPECT_TRUE(col->compareAreaIds(other.get()));
    EXPECT_THROW(parse<AreaIdIndex>("3"), Kest::RangeException);

    auto m = igpFlexAlgoPrefixMetricFactory();
    m->metricIs(130, 30);
    m->metricIs(128, 10);
    std::vector<std::pair<unsigned, std::uint32_t>> seen(m->metric().begin(), m->metric().end());
    EXPECT_THAT(seen, ElementsAre(std::pair(128u, 10u), std::pair(130u, 30u)));
    EXPECT_EQ(m->metric(5), 0u);
}

// ---- SR capabilities -------------------------------------------------------------------------

SrSidRange range(std::uint32_t size, std::uint32_t first) {
    return SrSidRange(size, Lumo::MplsLabel(first));
}
SrSidRangeIndex at(unsigned i) {
    return SrSidRangeIndex(static_cast<std::uint8_t>(i));
}

TEST(SrCapabilities, PublishOnlyRealChangesAndRefuseIndexEight) {
    auto caps = SrCapabilities::SrCapabilitiesIs();
    caps->numRangesIs(255);
    IgpTest::RecordingObserver<SrSidRangeIndex, SrSidRange, std::uint8_t> rec(caps->publisher());
    caps->sidLabelRangeIs(at(5), SrSidRange());
    EXPECT_EQ(caps->sidLabelRangeDel(at(3)), SrSidRange());
    EXPECT_EQ(caps->numRangesInc(0), 255u);
    EXPECT_TRUE(rec.empty());
    EXPECT_EQ(caps->numRangesInc(1), 0u);           // wraps
    caps->sidLabelRangeIs(at(2), range(0, 24000));  // zero-sized with a label: an entry all the same
    caps->sidLabelRangeIs(at(7), range(10, 700));
    ASSERT_EQ(rec.size(), 3u);
    EXPECT_EQ(*rec[0].oldAs<std::uint8_t>(), 255u);
    EXPECT_EQ(rec[1].keyAs<SrSidRangeIndex>()->value(), 2u);
    const auto before = caps->sidLabelRange();
    const std::string index8 = "cannot access index 8 of an array with size 8";
    EXPECT_EQ(messageOf<Kest::RangeException>([&] { caps->sidLabelRangeIs(at(8), range(10, 20)); }), index8);
    EXPECT_EQ(messageOf<Kest::RangeException>([&] { caps->sidLabelRangeDel(at(8)); }), index8);
    EXPECT_EQ(caps->sidLabelRange(), before);
    caps->sidLabelRangeDelAll();
    ASSERT_EQ(rec.size(), 5u);
    EXPECT_EQ(*rec[3].oldAs<SrSidRange>(), range(0, 24000));
    EXPECT_EQ(rec[4].keyAs<SrSidRangeIndex>()->value(), 7u);
    EXPECT_EQ(SrSidRange().startingSid().value(), 1048576u) << "the no-label starting SID";
    EXPECT_EQ(range(8000, 16000).hash(9), Kest::HashState(9).mix32(8000).mix32(16000).result());
    EXPECT_EQ(parse<SrSidRange>(Kest::strep(range(8000, 16000))), range(8000, 16000));
}

TEST(SrCapabilities, CompareSeesFlagsCountAndTheRangesBelowTheCount) {
    auto a = SrCapabilities::SrCapabilitiesIs();
    auto b = SrCapabilities::SrCapabilitiesIs();
    for (const auto& c : {a, b}) {
        for (unsigned i = 0; i < 8; ++i) {
            c->sidLabelRangeIs(at(i), range(100 + i, 1000 * (i + 1)));
        }
        c->numRangesIs(2);
    }
    EXPECT_TRUE(a->compare(b.get()));
    b->sidLabelRangeIs(at(2), range(1, 1));
    EXPECT_TRUE(a->compare(b.get())) << "entry 2 lies beyond a count of 2";
    b->sidLabelRangeIs(at(1), range(1, 1));
    EXPECT_FALSE(a->compare(b.get()));
    b->sidLabelRangeIs(at(1), range(101, 2000));
    b->sidLabelRangeIs(at(2), range(102, 3000));
    b->srCapFlagIs(SrCapabilityFlags(1));
    EXPECT_FALSE(a->compare(b.get()));
    b->srCapFlagIs(SrCapabilityFlags());
    b->numRangesIs(9);
    EXPECT_FALSE(a->compare(b.get()));
    a->numRangesIs(9);
    EXPECT_EQ(messageOf<Kest::RangeException>([&] { a->compare(b.get()); }),
              "Routing::IgpCommon::SrSidRangeIndex::value < Routing::IgpCommon::SrSidRangeIndex::min or > "
              "Routing::IgpCommon::SrSidRangeIndex::max not allowed");
}

// ---- bindings and the parsed content ---------------------------------------------------------

TEST(SidLabelBindingUpdate, PublishesExactlyTheAttributesThatDifferInAttributeOrder) {
    auto mine = testsupport::binding(4);
    auto theirs = testsupport::binding(4);
    IgpTest::RecordingObserver<std::uint16_t, LabelSid, std::uint8_t> rec(mine->publisher());
    mine->updateAttr(theirs);
    EXPECT_TRUE(rec.empty());
    theirs->flagsIs(SidLabelBinding::SidLabelBindingFlags(0x10));
    theirs->rangeIs(9);
    theirs->baseLabelSidIs(LabelSid(0x80, 20000, false));  // an invalid SID differs from the default
    theirs->basePrefixSidIs(PrefixSid(0x40, 10, 0, true));
    theirs->lspFragmentIdIs(0);
    mine->updateAttr(theirs);
    using Attr = SidLabelBinding::Attr;
    EXPECT_THAT(rec.attrs(), ElementsAre(Attr::flags, Attr::range, Attr::baseLabelSid, Attr::basePrefixSid,
                                         Attr::lspFragmentId));
    EXPECT_EQ(*rec[1].oldAs<std::uint16_t>(), 4u);
    EXPECT_EQ(*rec[4].oldAs<std::uint8_t>(), 3u);
    EXPECT_EQ(mine->toStrep(), theirs->toStrep());
    EXPECT_EQ(theirs->useCount(), 1u);
}

TEST(IsisLspParsedContent, AnEqualKeyFindsTheMemberAndDeletionsHandItBack) {
    auto parsed = isisLspParsedContentFactory();
    auto first = parsed->neighborIs(testsupport::nbrKey(2, {"10.0.0.1"}));
    first->igpMetricIs(30);
    EXPECT_EQ(parsed->neighborIs(testsupport::nbrKey(2, {"10.0.0.1"})), first);
    EXPECT_EQ(first->igpMetric(), 30u);
    EXPECT_NE(parsed->neighborIs(testsupport::nbrKey(2, {"10.0.0.2"})), first);
    auto p = parsed->prefixIs(testsupport::pfxKey("10.1.0.0/16"));
    EXPECT_EQ(parsed->prefixIs(testsupport::pfxKey("10.1.0.0/16")), p);
    EXPECT_NE(parsed->prefixIs(testsupport::pfxKey("10.1.0.0/16", 2)), p);
    ASSERT_NE(p->prefixMetric(), nullptr);
    auto none = parsed->parsedSrLgIs(Lumo::IpGenAddr());
    EXPECT_EQ(parsed->parsedSrLgIs(Lumo::IpGenAddr()), none);
    EXPECT_NE(parsed->parsedSrLgIs(Lumo::IpGenAddr(Lumo::IpAddr(0))), none);
    EXPECT_NE(parsed->parsedSrLgIs(Lumo::IpGenAddr(Lumo::Ip6Addr())), none);
    EXPECT_EQ(parsed->parsedSrLg().size(), 3u);

    EXPECT_EQ(parsed->neighborDel(testsupport::nbrKey(3, {"10.0.0.1"})), nullptr);
    EXPECT_EQ(parsed->prefixDel(testsupport::pfxKey("10.1.0.0/17")), nullptr);
    const auto n = parsed->neighborDel(testsupport::nbrKey(2, {"10.0.0.1"}));
    const auto s = parsed->parsedSrLgDel(Lumo::IpGenAddr());
    EXPECT_EQ(n, first);
    EXPECT_EQ(s, none);
    EXPECT_EQ(parsed->neighbor().size() + parsed->prefix().size() + parsed->parsedSrLg().size(), 5u);
}

// ---- creation --------------------------------------------------------------------------------

template <class T, class Static, class Factory>
void expectSoleReferenceAndBalancedTracker(Static viaStatic, Factory viaFactory) {
    SCOPED_TRACE(T::typeData().name);
    const std::uint64_t start = T::allocTracker().live();
    {
        Poldo::Ptr<T> a = viaStatic();
        Poldo::Ptr<T> b = viaFactory();
        EXPECT_EQ(a->useCount() + b->useCount(), 2u);
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
    expectSoleReferenceAndBalancedTracker<Neighbor>(
        [] { return Neighbor::NeighborIs(testsupport::nbrKey(1)); },
        [] { return neighborFactory(testsupport::nbrKey(1)); });
    // A definition owns its four constraint objects alone, whether built or read.
    const std::uint64_t eags = IgpFlexAlgoEag::allocTracker().live();
    {
        const IgpFlexAlgoDefinition d;
        const IgpFlexAlgoDefinition read = parse<IgpFlexAlgoDefinition>(Kest::strep(d));
        EXPECT_EQ(read.excludeAny()->useCount() + read.includeAll()->useCount(), 2u);
        EXPECT_EQ(IgpFlexAlgoEag::allocTracker().live(), eags + 6);
    }
    EXPECT_EQ(IgpFlexAlgoEag::allocTracker().live(), eags);
}

}  // namespace
