// The attribute entities a node holds: flex-algo definitions and their constraints, the node's
// collections and SR capabilities - what each publishes, compares, writes and owns.
#include "IgpCommon/NodeAttrCollections.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
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
using testsupport::messageOf;
using testsupport::parse;
using testsupport::srlg;

IgpFlexAlgoDefinition definition(std::uint8_t algo,
                                 std::initializer_list<std::uint32_t> excludeAny = {1, 2}) {
    IgpFlexAlgoDefinition d;
    d.flexAlgoIs(algo);
    d.excludeAnyIs(eag(excludeAny));
    d.excludeSrlgIs(srlg({77}));
    return d;
}

TEST(IgpFlexAlgoDefinition, ConstraintObjectsDecideEqualityCombineAndTextRoundTrips) {
    EXPECT_FALSE(eag({1, 2, 3})->compare(eag({3, 2, 1}).get()));
    EXPECT_FALSE(eag({1, 2})->compare(eag({1, 2, 3}).get()));
    EXPECT_FALSE(eag({})->compare(nullptr));
    EXPECT_EQ(srlg({30, 4, 17, 9, 25})->toStrep(), "[4, 9, 17, 25, 30]");
    EXPECT_TRUE(srlg({30, 4, 17})->compare(srlg({17, 30, 4}).get()));

    IgpFlexAlgoDefinition a = definition(128);
    const IgpFlexAlgoDefinition twin = definition(128);
    const IgpFlexAlgoDefinition copy = a;  // NOLINT(performance-unnecessary-copy-initialization)
    EXPECT_FALSE(IgpFlexAlgoDefinition::isEq(a, twin)) << "the very constraint objects decide";
    EXPECT_TRUE(IgpFlexAlgoDefinition::isEq(a, copy));
    EXPECT_EQ(a.hash(77), copy.hash(77));
    EXPECT_NE(a.hash(0), twin.hash(0));

    // Non-empty lists come from the same or a lower fragment, into our objects; SRLGs unite.
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
        EXPECT_EQ(mine.excludeAny()->toStrep(), fragment > 3 ? "[1, 2]" : "[7]");
        EXPECT_EQ(mine.excludeAny().get(), before);
        EXPECT_EQ(mine.includeAll()->toStrep(), "[8, 9]") << "an empty list takes any fragment's";
        EXPECT_EQ(mine.excludeSrlg()->toStrep(), "[77, 78]");
    }
    a.combineSubTlvs(IgpFlexAlgoDefinition(a));  // shared lists: every non-empty one is emptied
    EXPECT_TRUE(a.excludeAny()->values().empty());

    IgpFlexAlgoDefinition d = definition(128);
    d.lspFragmentIdIs(3);
    std::string text = Kest::strep(d);
    EXPECT_EQ(text,
              "Value('Routing::IgpCommon::IgpFlexAlgoDefinition', ** {'flexAlgo': 128, 'metricType': 0, "
              "'calcType': 0, 'priority': 0, 'excludeAny': [1, 2], 'includeAny': [], 'includeAll': [], "
              "'excludeSrlg': [77], 'lspFragmentId': 3})");
    EXPECT_EQ(Kest::strep(parse<IgpFlexAlgoDefinition>(text)), text);
    EXPECT_FALSE(parse<IgpFlexAlgoDefinition>(text.replace(text.find("[1, 2]"), 6, "None")).excludeAny());
}

TEST(IgpNodeCollections, PublicationAndContentComparisonOfDefinitionsMsdsTopologiesAndAreas) {
    auto fads = igpFlexAlgoDefinitionColFactory();
    IgpTest::RecordingObserver<std::uint8_t, IgpFlexAlgoDefinition> rec(fads->publisher());
    fads->fadIs(128, definition(128));
    fads->fadIs(128, fads->fad(128));  // the stored constraint objects: no change
    fads->fadDel(200);
    ASSERT_EQ(rec.size(), 1u);
    EXPECT_EQ(rec[0].oldAs<IgpFlexAlgoDefinition>()->excludeAny()->valueCount(), 0u);
    auto other = igpFlexAlgoDefinitionColFactory();
    EXPECT_FALSE(other->compareFadCol(fads.get()));
    IgpFlexAlgoDefinition twin = definition(128);
    twin.lspFragmentIdIs(9);  // the fragment is no part of the comparison
    other->fadIs(128, twin);
    EXPECT_TRUE(fads->compareFadCol(other.get()));
    other->fadIs(128, definition(128, {2, 1}));
    EXPECT_FALSE(fads->compareFadCol(other.get())) << "word order matters";
    other->fadDel(128);
    other->fadIs(129, definition(129));
    fads->fadIs(128, IgpFlexAlgoDefinition());
    EXPECT_TRUE(fads->compareFadCol(other.get())) << "an absent algorithm compares as a default definition";

    // MSDs: writing beyond the bound extends the span, deleting never shrinks it.
    auto msds = igpMsdColFactory();
    msds->msdIs(2, IgpMsd(1, 8));
    msds->msdIs(5, IgpMsd());
    EXPECT_EQ(msds->span(), 6u);
    auto same = igpMsdColFactory();
    same->msdIs(2, IgpMsd(1, 8));
    same->msdIs(5, IgpMsd());
    EXPECT_TRUE(msds->compareMsdCol(same.get()));
    EXPECT_EQ(msds->msdDel(2), IgpMsd(1, 8));
    EXPECT_EQ(msds->span(), 6u);
    EXPECT_FALSE(msds->compareMsdCol(same.get()));
    EXPECT_FALSE(msds->compareMsdCol(igpMsdColFactory().get())) << "spans differ";
    msds->msdIs(1, IgpMsd(1, 8));
    msds->msdIs(4, IgpMsd(2, 3));
    std::vector<std::uint32_t> seen;
    for (auto it = msds->begin(); it != msds->end(); ++it) {  // present MSDs only, deletable on the way
        seen.push_back((*it).position);
        msds->msdDel(it);
    }
    EXPECT_THAT(seen, ElementsAre(1u, 4u));

    auto mt = igpMultiTopologyIdColFactory();
    auto mt2 = igpMultiTopologyIdColFactory();
    for (std::uint16_t id : {7, 0, 2}) {
        mt->mtIdValueIs(IgpMultiTopologyId(id));
        mt2->mtIdValueIs(IgpMultiTopologyId(id == 2 ? 3 : id));
    }
    EXPECT_EQ(mt->toStrep(), "[0, 2, 7]");
    EXPECT_FALSE(mt->compareMtIdCol(nullptr));
    EXPECT_FALSE(mt->compareMtIdCol(mt2.get())) << "same count, different ids";

    auto areas = isisAreaIdColFactory();
    auto areas2 = isisAreaIdColFactory();
    for (const char* area : {"49.0002", "39.0840.0001", "49.0001"}) {
        areas->areaIdIs(parse<AreaId>(area), true);
        areas2->areaIdIs(parse<AreaId>(area), false);
    }
    areas->areaIdIs(parse<AreaId>("49.0001"), false);
    EXPECT_FALSE(*areas->areaId().find(parse<AreaId>("49.0001"))) << "a present area takes the new flag";
    EXPECT_TRUE(areas->compareAreaIds(areas2.get())) << "flags aside";
    areas2->areaIdDel(parse<AreaId>("49.0001"));
    areas2->areaIdIs(parse<AreaId>("49.0003"), false);
    EXPECT_FALSE(areas->compareAreaIds(areas2.get())) << "same count, different areas";
}

TEST(IsisAreaIdCol, AreasOrderAsTheirTextsDo) {
    // Prefixes of one another at either group parity, digits against letters
    // in either nibble, and the empty area, whose text is "none".
    std::vector<AreaId> areas{AreaId()};
    for (const char* text : {"49", "49.00", "49.0001", "49.0001.02", "49.0a", "49.09ff", "09", "0a", "90",
                             "a0", "00", "ff", "39.0840.0001", "ff.ffff.ffff.ffff.ffff.ffff.ffff"}) {
        areas.push_back(parse<AreaId>(text));
    }
    const AreaIdTextLess less;
    for (const AreaId& a : areas) {
        for (const AreaId& b : areas) {
            EXPECT_EQ(less(a, b), a.stringValue() < b.stringValue()) << a << " against " << b;
        }
    }
}

TEST(SrCapabilities, PublishOnlyRealChangesAndCompareTheRangesBelowTheCount) {
    const auto at = [](unsigned i) { return SrSidRangeIndex(static_cast<std::uint8_t>(i)); };
    auto a = SrCapabilities::SrCapabilitiesIs();
    a->numRangesIs(255);
    IgpTest::RecordingObserver<SrSidRangeIndex, SrSidRange, std::uint8_t> rec(a->publisher());
    a->sidLabelRangeIs(at(5), SrSidRange());
    EXPECT_EQ(a->numRangesInc(0), 255u);
    EXPECT_TRUE(rec.empty());
    EXPECT_EQ(a->numRangesInc(2), 1u);                                 // wraps
    a->sidLabelRangeIs(at(1), SrSidRange(0, Lumo::MplsLabel(24000)));  // zero-sized: an entry all the same
    ASSERT_EQ(rec.size(), 2u);
    EXPECT_EQ(*rec[0].oldAs<std::uint8_t>(), 255u);
    EXPECT_EQ(messageOf<Kest::RangeException>([&] { a->sidLabelRangeIs(at(8), SrSidRange()); }),
              "cannot access index 8 of an array with size 8");
    EXPECT_EQ(SrSidRange().startingSid().value(), 1048576u) << "the no-label starting SID";

    auto b = SrCapabilities::SrCapabilitiesIs();
    b->numRangesIs(1);
    b->sidLabelRangeIs(at(1), SrSidRange(1, Lumo::MplsLabel(1)));
    EXPECT_TRUE(a->compare(b.get())) << "entry 1 lies beyond a count of 1";
    b->sidLabelRangeIs(at(0), SrSidRange(1, Lumo::MplsLabel(1)));
    EXPECT_FALSE(a->compare(b.get()));
    b->sidLabelRangeDel(at(0));
    b->srCapFlagIs(SrCapabilityFlags(1));
    EXPECT_FALSE(a->compare(b.get()));
    b->srCapFlagIs(SrCapabilityFlags());
    b->numRangesIs(9);
    EXPECT_FALSE(a->compare(b.get()));
}

TEST(AttributeEntityLifetime, CreatorsHandOutTheOnlyReferenceAndADefinitionOwnsItsConstraints) {
    const std::uint64_t caps = SrCapabilities::allocTracker().live();
    const std::uint64_t eags = IgpFlexAlgoEag::allocTracker().live();
    {
        const auto a = SrCapabilities::SrCapabilitiesIs();
        const auto b = srCapabilitiesFactory();
        EXPECT_EQ(a->useCount() + b->useCount(), 2u);
        const IgpFlexAlgoDefinition read = parse<IgpFlexAlgoDefinition>(Kest::strep(IgpFlexAlgoDefinition()));
        EXPECT_EQ(read.excludeAny()->useCount() + read.includeAll()->useCount(), 2u);
        EXPECT_NE(read.includeAny(), read.includeAll());
        EXPECT_EQ(IgpFlexAlgoEag::allocTracker().live(), eags + 3);
    }
    EXPECT_EQ(SrCapabilities::allocTracker().live(), caps);
    EXPECT_EQ(IgpFlexAlgoEag::allocTracker().live(), eags);
}

}  // namespace
