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

TEST(IgpFlexAlgoEag, CompareSeesOrderAndLengthAndSrlgsAreASortedSet) {
    EXPECT_FALSE(eag({1, 2, 3})->compare(eag({3, 2, 1}).get()));
    EXPECT_FALSE(eag({1, 2})->compare(eag({1, 2, 3}).get()));
    EXPECT_FALSE(eag({})->compare(nullptr));
    EXPECT_EQ(eag({3, 1, 2})->toStrep(), "[3, 1, 2]");
    EXPECT_EQ(srlg({30, 4, 17})->toStrep(), "[4, 17, 30]");
    EXPECT_TRUE(srlg({30, 4, 17})->compare(srlg({17, 30, 4}).get()));
    EXPECT_FALSE(srlg({4, 17, 30})->compare(srlg({4, 17, 31}).get()));
}

TEST(IgpFlexAlgoDefinition, IdentityOfTheConstraintObjectsDecidesEqualityOrderAndHash) {
    const IgpFlexAlgoDefinition a = definition(128);
    const IgpFlexAlgoDefinition twin = definition(128);
    const IgpFlexAlgoDefinition copy = a;  // NOLINT(performance-unnecessary-copy-initialization)
    EXPECT_FALSE(IgpFlexAlgoDefinition::isEq(a, twin));
    EXPECT_EQ(a <=> twin, reinterpret_cast<std::uintptr_t>(a.excludeAny().get()) <=>
                              reinterpret_cast<std::uintptr_t>(twin.excludeAny().get()));
    EXPECT_TRUE(IgpFlexAlgoDefinition::isEq(a, copy));
    EXPECT_EQ(a.hash(77), copy.hash(77));
    EXPECT_NE(a.hash(0), twin.hash(0));
    const IgpFlexAlgoDefinition d;
    EXPECT_NE(d.includeAny(), d.includeAll()) << "each default definition has objects of its own";
}

TEST(IgpFlexAlgoDefinition, CombineTakesNonEmptyListsOfTheSameOrALowerFragmentAndUnitesSrlgs) {
    for (const std::uint8_t fragment : {std::uint8_t{5}, std::uint8_t{3}}) {
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
        EXPECT_EQ(mine.excludeSrlg()->toStrep(), "[77, 78]");
    }
    IgpFlexAlgoDefinition self = definition(128);
    self.combineSubTlvs(IgpFlexAlgoDefinition(self));  // shared lists: every non-empty one is emptied
    EXPECT_TRUE(self.excludeAny()->values().empty());
    EXPECT_EQ(self.excludeSrlg()->toStrep(), "[77]");
}

TEST(IgpFlexAlgoDefinition, TextRoundTripsIntoNewObjectsAndNoneIsANullPointer) {
    IgpFlexAlgoDefinition d = definition(128);
    d.lspFragmentIdIs(3);
    const std::string text = Kest::strep(d);
    EXPECT_EQ(text,
              "Value('Routing::IgpCommon::IgpFlexAlgoDefinition', ** {'flexAlgo': 128, 'metricType': 1, "
              "'calcType': 0, 'priority': 100, 'excludeAny': [1, 2], 'includeAny': [], 'includeAll': [], "
              "'excludeSrlg': [77], 'lspFragmentId': 3})");
    EXPECT_EQ(Kest::strep(parse<IgpFlexAlgoDefinition>(text)), text);
    std::string none = text;
    none.replace(none.find("[1, 2]"), 6, "None");
    EXPECT_FALSE(parse<IgpFlexAlgoDefinition>(none).excludeAny());
}

// ---- the node's collections ------------------------------------------------------------------

TEST(IgpFlexAlgoDefinitionCol, PublishesByIdentityWithADefaultOldDefinitionAndComparesContent) {
    auto col = igpFlexAlgoDefinitionColFactory();
    IgpTest::RecordingObserver<std::uint8_t, IgpFlexAlgoDefinition> rec(col->publisher());
    col->fadIs(128, definition(128));
    ASSERT_EQ(rec.size(), 1u);
    EXPECT_EQ(rec[0].oldAs<IgpFlexAlgoDefinition>()->excludeAny()->valueCount(), 0u);
    IgpFlexAlgoDefinition same = col->fad(128);
    col->fadIs(128, same);
    EXPECT_EQ(rec.size(), 1u) << "the stored constraint objects: no change";
    col->fadIs(129, definition(129));
    col->fadDel(200);
    col->fadDel(129);
    ASSERT_EQ(rec.size(), 3u);
    EXPECT_EQ(rec[2].oldAs<IgpFlexAlgoDefinition>()->flexAlgo(), 129u);

    auto a = igpFlexAlgoDefinitionColFactory();
    auto b = igpFlexAlgoDefinitionColFactory();
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
    col->msdIs(5, IgpMsd());  // the default value, but beyond the bound
    EXPECT_EQ(col->span(), 6u);
    ASSERT_EQ(rec.size(), 2u);
    EXPECT_FALSE(rec[1].hasOldValue);
    auto other = igpMsdColFactory();
    other->msdIs(2, IgpMsd(1, 8));
    other->msdIs(5, IgpMsd());
    EXPECT_TRUE(col->compareMsdCol(other.get()));
    EXPECT_EQ(col->msdDel(2), IgpMsd(1, 8));
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
}

TEST(IgpNodeCollections, TopologiesAndAreasCompareAsSetsAndAreasIgnoreTheirFlags) {
    auto a = igpMultiTopologyIdColFactory();
    auto b = igpMultiTopologyIdColFactory();
    for (std::uint16_t id : {7, 0, 2}) {
        a->mtIdValueIs(IgpMultiTopologyId(id));
        b->mtIdValueIs(IgpMultiTopologyId(id == 2 ? 3 : id));
    }
    EXPECT_EQ(a->toStrep(), "[0, 2, 7]");
    EXPECT_FALSE(a->compareMtIdCol(nullptr));
    EXPECT_FALSE(a->compareMtIdCol(b.get())) << "same count, different ids";

    auto col = isisAreaIdColFactory();
    for (const char* area : {"49.0002", "39.0840.0001", "49.0001"}) {
        col->areaIdIs(parse<AreaId>(area), true);
    }
    col->areaIdIs(parse<AreaId>("49.0001"), false);
    const bool* flag = col->areaId().find(parse<AreaId>("49.0001"));
    ASSERT_NE(flag, nullptr);
    EXPECT_FALSE(*flag) << "a present area takes the new flag";
    auto other = isisAreaIdColFactory();
    for (const char* area : {"49.0002", "39.0840.0001", "49.0003"}) {
        other->areaIdIs(parse<AreaId>(area), false);
    }
    EXPECT_FALSE(col->compareAreaIds(other.get())) << "same count, different areas";
    other->areaIdDel(parse<AreaId>("49.0003"));
    other->areaIdIs(parse<AreaId>("49.0001"), true);
    EXPECT_TRUE(col->compareAreaIds(other.get()));
}

// ---- SR capabilities -------------------------------------------------------------------------

SrSidRange range(std::uint32_t size, std::uint32_t first) {
    return SrSidRange(size, Lumo::MplsLabel(first));
}
SrSidRangeIndex at(unsigned i) {
    return SrSidRangeIndex(static_cast<std::uint8_t>(i));
}

TEST(SrCapabilities, PublishOnlyRealChangesAndCompareTheRangesBelowTheCount) {
    auto a = SrCapabilities::SrCapabilitiesIs();
    a->numRangesIs(255);
    IgpTest::RecordingObserver<SrSidRangeIndex, SrSidRange, std::uint8_t> rec(a->publisher());
    a->sidLabelRangeIs(at(5), SrSidRange());
    EXPECT_EQ(a->numRangesInc(0), 255u);
    EXPECT_TRUE(rec.empty());
    EXPECT_EQ(a->numRangesInc(2), 1u);           // wraps
    a->sidLabelRangeIs(at(1), range(0, 24000));  // zero-sized with a label: an entry all the same
    ASSERT_EQ(rec.size(), 2u);
    EXPECT_EQ(*rec[0].oldAs<std::uint8_t>(), 255u);
    EXPECT_EQ(messageOf<Kest::RangeException>([&] { a->sidLabelRangeIs(at(8), range(10, 20)); }),
              "cannot access index 8 of an array with size 8");
    EXPECT_EQ(SrSidRange().startingSid().value(), 1048576u) << "the no-label starting SID";

    auto b = SrCapabilities::SrCapabilitiesIs();
    b->numRangesIs(1);
    b->sidLabelRangeIs(at(1), range(1, 1));
    EXPECT_TRUE(a->compare(b.get())) << "entry 1 lies beyond a count of 1";
    b->sidLabelRangeIs(at(0), range(1, 1));
    EXPECT_FALSE(a->compare(b.get()));
    b->sidLabelRangeDel(at(0));
    b->srCapFlagIs(SrCapabilityFlags(1));
    EXPECT_FALSE(a->compare(b.get()));
    b->srCapFlagIs(SrCapabilityFlags());
    b->numRangesIs(9);
    EXPECT_FALSE(a->compare(b.get()));
    b->sidLabelRangeIs(at(1), range(0, 24000));
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
    EXPECT_EQ(mine->toStrep(), theirs->toStrep());
}

TEST(IsisLspParsedContent, AnEqualKeyFindsTheMemberAndDeletionsHandItBack) {
    auto parsed = isisLspParsedContentFactory();
    auto first = parsed->neighborIs(testsupport::nbrKey(2, {"10.0.0.1"}));
    EXPECT_EQ(parsed->neighborIs(testsupport::nbrKey(2, {"10.0.0.1"})), first);
    EXPECT_NE(parsed->neighborIs(testsupport::nbrKey(2, {"10.0.0.2"})), first);
    auto none = parsed->parsedSrLgIs(Lumo::IpGenAddr());
    EXPECT_NE(parsed->parsedSrLgIs(Lumo::IpGenAddr(Lumo::IpAddr(0))), none);
    EXPECT_EQ(parsed->neighborDel(testsupport::nbrKey(3, {"10.0.0.1"})), nullptr);
    EXPECT_EQ(parsed->neighborDel(testsupport::nbrKey(2, {"10.0.0.1"})), first);
    EXPECT_EQ(parsed->parsedSrLgDel(Lumo::IpGenAddr()), none);
    EXPECT_EQ(parsed->neighbor().size() + parsed->parsedSrLg().size(), 2u);
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
    expectSoleReferenceAndBalancedTracker<SrCapabilities>(&SrCapabilities::SrCapabilitiesIs,
                                                          &srCapabilitiesFactory);
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
