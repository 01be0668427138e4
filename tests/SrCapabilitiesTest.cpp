// SrCapabilities (flags, range count, eight label ranges), SrSidRange and SrSidRangeIndex.
#include "IgpCommon/SrCapabilities.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <tuple>
#include <utility>

#include "IgpCommon/framework/Hash.h"
#include "tests/support/RecordingObserver.h"
#include "tests/support/TextHelpers.h"

namespace {

using Routing::IgpCommon::SrCapabilities;
using Routing::IgpCommon::SrCapabilityFlags;
using Routing::IgpCommon::SrSidRange;
using Routing::IgpCommon::SrSidRangeIndex;
using ::testing::ElementsAre;
using testsupport::messageOf;
using testsupport::parse;
using A = SrCapabilities::Attr;
using Recorder = IgpTest::RecordingObserver<SrSidRangeIndex, SrSidRange, SrCapabilityFlags, std::uint8_t>;

constexpr const char kIndex8[] = "cannot access index 8 of an array with size 8";
constexpr const char kIndexTypeRange[] =
    "Routing::IgpCommon::SrSidRangeIndex::value < Routing::IgpCommon::SrSidRangeIndex::min or > "
    "Routing::IgpCommon::SrSidRangeIndex::max not allowed";

SrSidRange range(std::uint32_t size, std::uint32_t first) {
    return SrSidRange(size, Lumo::MplsLabel(first));
}
SrSidRangeIndex at(unsigned i) {
    return SrSidRangeIndex(static_cast<std::uint8_t>(i));
}

// ---- publication --------------------------------------------------------------------------

TEST(SrCapabilitiesPublish, SettersPublishOnlyRealChangesWithTheOldValueAndTheIndexAsKey) {
    auto caps = SrCapabilities::SrCapabilitiesIs();
    Recorder rec(caps->publisher());
    caps->srCapFlagIs(SrCapabilityFlags());
    caps->numRangesIs(0);
    caps->sidLabelRangeIs(at(5), SrSidRange());
    EXPECT_TRUE(rec.empty()) << "writing the current values published";

    caps->srCapFlagIs(SrCapabilityFlags(1));
    caps->numRangesIs(3);
    caps->numRangesIs(3);
    caps->sidLabelRangeIs(at(5), range(100, 16000));
    caps->sidLabelRangeIs(at(5), range(100, 16000));
    caps->sidLabelRangeIs(at(5), range(200, 16000));
    ASSERT_THAT(rec.attrs(), ElementsAre(A::srCapFlag, A::numRanges, A::sidLabelRange, A::sidLabelRange));
    EXPECT_EQ(*rec[0].oldAs<SrCapabilityFlags>(), SrCapabilityFlags());
    EXPECT_EQ(*rec[1].oldAs<std::uint8_t>(), 0u);
    EXPECT_FALSE(rec[1].hasKey);
    EXPECT_EQ(rec[2].attrName, "sidLabelRange");
    for (std::size_t i : {2u, 3u}) {
        ASSERT_NE(rec[i].keyAs<SrSidRangeIndex>(), nullptr);
        EXPECT_EQ(rec[i].keyAs<SrSidRangeIndex>()->value(), 5u);
    }
    EXPECT_EQ(*rec[2].oldAs<SrSidRange>(), SrSidRange());
    EXPECT_EQ(*rec[3].oldAs<SrSidRange>(), range(100, 16000));
    EXPECT_EQ(caps->sidLabelRange(at(5)), range(200, 16000));
}

TEST(SrCapabilitiesPublish, NumRangesIncWrapsFrom255ToZeroAndPublishesOnce) {
    auto caps = SrCapabilities::SrCapabilitiesIs();
    caps->numRangesIs(255);
    Recorder rec(caps->publisher());
    EXPECT_EQ(caps->numRangesInc(1), 0u);
    EXPECT_EQ(caps->numRanges(), 0u);
    EXPECT_EQ(caps->numRangesInc(0), 0u);  // adding zero is no change
    ASSERT_THAT(rec.attrs(), ElementsAre(A::numRanges));
    EXPECT_EQ(*rec[0].oldAs<std::uint8_t>(), 255u);
}

TEST(SrCapabilitiesPublish, IndexEightIsRefusedBySetterGetterAndDeleterWithoutAnyChange) {
    auto caps = SrCapabilities::SrCapabilitiesIs();
    caps->sidLabelRangeIs(at(7), range(1, 2));
    const SrCapabilities::SidLabelRangeArray before = caps->sidLabelRange();
    Recorder rec(caps->publisher());
    EXPECT_EQ(messageOf<Kest::RangeException>([&] { caps->sidLabelRangeIs(at(8), range(10, 20)); }), kIndex8);
    EXPECT_EQ(messageOf<Kest::RangeException>([&] { caps->sidLabelRangeDel(at(8)); }), kIndex8);
    EXPECT_EQ(messageOf<Kest::RangeException>([&] { (void)caps->sidLabelRange(at(8)); }), kIndex8);
    EXPECT_TRUE(rec.empty());
    EXPECT_EQ(caps->sidLabelRange(), before);
}

TEST(SrCapabilitiesPublish, AZeroSizedRangeWithALabelIsAnEntryButTheDefaultIsNone) {
    auto caps = SrCapabilities::SrCapabilitiesIs();
    Recorder rec(caps->publisher());
    EXPECT_EQ(caps->sidLabelRangeDel(at(3)), SrSidRange());
    EXPECT_TRUE(rec.empty()) << "deleting an absent entry published";

    const SrSidRange zeroSized = range(0, 24000);
    caps->sidLabelRangeIs(at(2), zeroSized);
    ASSERT_EQ(rec.size(), 1u) << "a zero-sized range with a label was taken for the default";
    EXPECT_TRUE(caps->sidLabelRange().present(at(2)));
    EXPECT_EQ(caps->sidLabelRangeDel(at(2)), zeroSized) << "the entry as it was";
    ASSERT_EQ(rec.size(), 2u);
    EXPECT_EQ(*rec[1].oldAs<SrSidRange>(), zeroSized);
    EXPECT_FALSE(caps->sidLabelRange().present(at(2)));
}

TEST(SrCapabilitiesPublish, DelAllPublishesOneRemovalPerPresentEntryInIndexOrder) {
    auto caps = SrCapabilities::SrCapabilitiesIs();
    for (unsigned k : {7u, 1u, 4u}) {
        caps->sidLabelRangeIs(at(k), range(10 * k, 100 * k));
    }
    Recorder rec(caps->publisher());
    caps->sidLabelRangeDelAll();
    ASSERT_EQ(rec.size(), 3u);
    const unsigned expectedIndex[] = {1, 4, 7};
    for (std::size_t i = 0; i < 3; ++i) {
        const unsigned k = expectedIndex[i];
        EXPECT_EQ(rec[i].keyAs<SrSidRangeIndex>()->value(), k);
        EXPECT_EQ(*rec[i].oldAs<SrSidRange>(), range(10 * k, 100 * k));
    }
    EXPECT_EQ(caps->sidLabelRange(), SrCapabilities::SidLabelRangeArray());
    caps->sidLabelRangeDelAll();
    EXPECT_EQ(rec.size(), 3u);
}

// ---- compare ------------------------------------------------------------------------------

/// Two blocks with equal flags, count `count` and `entries` equal ranges.
std::pair<Poldo::Ptr<SrCapabilities>, Poldo::Ptr<SrCapabilities>> equalBlocks(unsigned entries,
                                                                              unsigned count) {
    auto a = SrCapabilities::SrCapabilitiesIs();
    auto b = SrCapabilities::SrCapabilitiesIs();
    for (const auto& c : {a, b}) {
        for (unsigned i = 0; i < entries; ++i) {
            c->sidLabelRangeIs(at(i), range(100 + i, 1000 * (i + 1)));
        }
        c->numRangesIs(static_cast<std::uint8_t>(count));
    }
    return {a, b};
}

TEST(SrCapabilitiesCompare, FlagsCountAndTheRangesBelowTheCountDecide) {
    Poldo::Ptr<SrCapabilities> a;
    Poldo::Ptr<SrCapabilities> b;
    std::tie(a, b) = equalBlocks(3, 2);
    EXPECT_TRUE(a->compare(b.get()));
    b->sidLabelRangeIs(at(2), range(1, 1));
    EXPECT_TRUE(a->compare(b.get())) << "entry 2 lies beyond a count of 2";
    b->sidLabelRangeIs(at(1), range(1, 1));
    EXPECT_FALSE(a->compare(b.get())) << "entry 1 lies within a count of 2";

    std::tie(a, b) = equalBlocks(2, 2);
    b->numRangesIs(1);
    EXPECT_FALSE(a->compare(b.get()));
    b->numRangesIs(2);
    b->srCapFlagIs(SrCapabilityFlags(1));
    EXPECT_FALSE(a->compare(b.get()));

    std::tie(a, b) = equalBlocks(0, 0);
    a->sidLabelRangeIs(at(0), range(8000, 16000));
    EXPECT_TRUE(a->compare(b.get())) << "a count of zero ignores the ranges";
    EXPECT_TRUE(b->compare(a.get()));
}

TEST(SrCapabilitiesCompare, ACountOfNineRaisesTheIndexTypesErrorUnlessADifferenceComesFirst) {
    const auto [a, b] = equalBlocks(8, 9);
    const auto compare = [a = a, b = b] { return a->compare(b.get()); };
    EXPECT_EQ(messageOf<Kest::RangeException>(compare), kIndexTypeRange);
    b->sidLabelRangeIs(at(6), range(1, 1));
    bool same = true;
    EXPECT_NO_THROW(same = compare());
    EXPECT_FALSE(same);
}

// ---- SrSidRange and SrSidRangeIndex -------------------------------------------------------

TEST(SrSidRange, DefaultTextOrderAndHash) {
    EXPECT_EQ(SrSidRange().range(), 0u);
    EXPECT_EQ(SrSidRange().startingSid().value(), 1048576u) << "the no-label starting SID";
    const std::string text =
        "Value('Routing::IgpCommon::SrSidRange', ** {'range': 8000, 'startingSid': 16000})";
    EXPECT_EQ(Kest::strep(range(8000, 16000)), text);
    EXPECT_EQ(parse<SrSidRange>(text), range(8000, 16000));
    EXPECT_EQ(
        parse<SrSidRange>("Value('Routing::IgpCommon::SrSidRange', ** {'range': 1, 'startingSid': 8388608})")
            .startingSid()
            .value(),
        0x800000u);
    EXPECT_EQ(messageOf<Kest::AttributeParseException>([] {
                  parse<SrSidRange>(
                      "Value('Routing::IgpCommon::SrSidRange', ** {'range': 1, 'startingSid': 8388609})");
              }).rfind("attribute 'startingSid': ", 0),
              0u);

    EXPECT_LT(range(1, 900000), range(2, 100));
    EXPECT_LT(range(5, 100), range(5, 101));
    for (std::uint32_t seed : {0u, 1u, 0xDEADBEEFu}) {
        EXPECT_EQ(range(8000, 16000).hash(seed), Kest::HashState(seed).mix32(8000).mix32(16000).result())
            << "seed " << seed;
    }
}

TEST(SrSidRangeIndex, TextAcceptsSevenAndRefusesEightWithItsOwnMessage) {
    EXPECT_EQ(parse<SrSidRangeIndex>("7").value(), 7u);
    EXPECT_EQ(messageOf<Kest::RangeException>([] { parse<SrSidRangeIndex>("8"); }), kIndexTypeRange);
}

}  // namespace
