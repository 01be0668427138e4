// SrCapabilities (flags, range count, eight label ranges), SrSidRange and SrSidRangeIndex.
#include "IgpCommon/SrCapabilities.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "IgpCommon/framework/Hash.h"
#include "support/RecordingObserver.h"

namespace {

using Routing::IgpCommon::SrCapabilities;
using Routing::IgpCommon::SrCapabilityFlags;
using Routing::IgpCommon::SrSidRange;
using Routing::IgpCommon::SrSidRangeIndex;
using ::testing::ElementsAre;
using ::testing::StrEq;
using ::testing::ThrowsMessage;

using Recorder = IgpTest::RecordingObserver<SrSidRangeIndex, SrSidRange, SrCapabilityFlags, std::uint8_t>;

constexpr const char kIndex8[] = "cannot access index 8 of an array with size 8";
constexpr const char kIndexTypeRange[] =
    "Routing::IgpCommon::SrSidRangeIndex::value < Routing::IgpCommon::SrSidRangeIndex::min or > "
    "Routing::IgpCommon::SrSidRangeIndex::max not allowed";

SrSidRange range(std::uint32_t size, std::uint32_t first) {
    return SrSidRange(size, Lumo::MplsLabel(first));
}

SrCapabilityFlags ipv4Only() {
    SrCapabilityFlags f;
    f.mplsIpv4Is(true);
    return f;
}

// ---- publication --------------------------------------------------------------------------

TEST(SrCapabilitiesPublish, ScalarSettersPublishOnlyRealChangesWithTheOldValue) {
    auto caps = SrCapabilities::SrCapabilitiesIs();
    Recorder rec(caps->publisher());

    caps->srCapFlagIs(SrCapabilityFlags());
    caps->numRangesIs(0);
    EXPECT_TRUE(rec.empty()) << "writing the current values published";

    caps->srCapFlagIs(ipv4Only());
    caps->numRangesIs(3);
    caps->numRangesIs(3);
    ASSERT_THAT(rec.attrs(), ElementsAre(SrCapabilities::Attr::srCapFlag, SrCapabilities::Attr::numRanges));
    ASSERT_NE(rec[0].oldAs<SrCapabilityFlags>(), nullptr);
    EXPECT_EQ(*rec[0].oldAs<SrCapabilityFlags>(), SrCapabilityFlags());
    ASSERT_NE(rec[1].oldAs<std::uint8_t>(), nullptr);
    EXPECT_EQ(*rec[1].oldAs<std::uint8_t>(), 0u);
    EXPECT_FALSE(rec[1].hasKey);
    EXPECT_EQ(caps->srCapFlag(), ipv4Only());
    EXPECT_EQ(caps->numRanges(), 3u);
}

TEST(SrCapabilitiesPublish, RangeSetterPublishesIndexKeyAndOldEntryOnlyOnChange) {
    auto caps = SrCapabilities::SrCapabilitiesIs();
    Recorder rec(caps->publisher());

    caps->sidLabelRangeIs(SrSidRangeIndex(5), range(100, 16000));
    caps->sidLabelRangeIs(SrSidRangeIndex(5), range(100, 16000));  // its current value
    caps->sidLabelRangeIs(SrSidRangeIndex(5), range(200, 16000));

    ASSERT_EQ(rec.size(), 2u);
    for (std::size_t i = 0; i < rec.size(); ++i) {
        EXPECT_EQ(rec[i].attr, SrCapabilities::Attr::sidLabelRange);
        EXPECT_EQ(rec[i].attrName, "sidLabelRange");
        ASSERT_NE(rec[i].keyAs<SrSidRangeIndex>(), nullptr);
        EXPECT_EQ(rec[i].keyAs<SrSidRangeIndex>()->value(), 5u);
        EXPECT_TRUE(rec[i].hasOldValue);
    }
    EXPECT_EQ(*rec[0].oldAs<SrSidRange>(), SrSidRange());
    EXPECT_EQ(*rec[1].oldAs<SrSidRange>(), range(100, 16000));
    EXPECT_EQ(caps->sidLabelRange(SrSidRangeIndex(5)), range(200, 16000));
}

TEST(SrCapabilitiesPublish, NumRangesIncWrapsFrom255ToZeroAndPublishesOnce) {
    auto caps = SrCapabilities::SrCapabilitiesIs();
    caps->numRangesIs(255);
    Recorder rec(caps->publisher());

    EXPECT_EQ(caps->numRangesInc(1), 0u);
    EXPECT_EQ(caps->numRanges(), 0u);
    ASSERT_EQ(rec.size(), 1u);
    EXPECT_EQ(rec[0].attr, SrCapabilities::Attr::numRanges);
    ASSERT_NE(rec[0].oldAs<std::uint8_t>(), nullptr);
    EXPECT_EQ(*rec[0].oldAs<std::uint8_t>(), 255u);

    EXPECT_EQ(caps->numRangesInc(0), 0u);
    EXPECT_EQ(rec.size(), 1u) << "adding zero is no change";
}

TEST(SrCapabilitiesPublish, IndexEightIsRefusedBySetterGetterAndDeleterWithoutAnyChange) {
    auto caps = SrCapabilities::SrCapabilitiesIs();
    caps->sidLabelRangeIs(SrSidRangeIndex(7), range(1, 2));
    const SrCapabilities::SidLabelRangeArray before = caps->sidLabelRange();
    Recorder rec(caps->publisher());

    EXPECT_THAT([&] { caps->sidLabelRangeIs(SrSidRangeIndex(8), range(10, 20)); },
                ThrowsMessage<Kest::RangeException>(StrEq(kIndex8)));
    EXPECT_THAT([&] { caps->sidLabelRangeDel(SrSidRangeIndex(8)); },
                ThrowsMessage<Kest::RangeException>(StrEq(kIndex8)));
    EXPECT_THAT([&] { (void)caps->sidLabelRange(SrSidRangeIndex(8)); },
                ThrowsMessage<Kest::RangeException>(StrEq(kIndex8)));

    EXPECT_TRUE(rec.empty());
    EXPECT_EQ(caps->sidLabelRange(), before);
}

TEST(SrCapabilitiesPublish, DeletingADefaultEntryPublishesNothingAndReturnsTheDefault) {
    auto caps = SrCapabilities::SrCapabilitiesIs();
    Recorder rec(caps->publisher());
    EXPECT_EQ(caps->sidLabelRangeDel(SrSidRangeIndex(3)), SrSidRange());
    EXPECT_TRUE(rec.empty());
}

TEST(SrCapabilitiesPublish, RangeZeroWithARealStartingSidIsPresentAndDeletable) {
    auto caps = SrCapabilities::SrCapabilitiesIs();
    const SrSidRange zeroSized = range(0, 24000);
    ASSERT_FALSE(zeroSized == SrSidRange());

    Recorder rec(caps->publisher());
    caps->sidLabelRangeIs(SrSidRangeIndex(2), zeroSized);
    ASSERT_EQ(rec.size(), 1u) << "a zero-sized range with a label was taken for the default";
    EXPECT_TRUE(caps->sidLabelRange().present(SrSidRangeIndex(2)));

    EXPECT_EQ(caps->sidLabelRangeDel(SrSidRangeIndex(2)), zeroSized) << "the entry as it was";
    ASSERT_EQ(rec.size(), 2u);
    EXPECT_EQ(*rec[1].oldAs<SrSidRange>(), zeroSized);
    EXPECT_FALSE(caps->sidLabelRange().present(SrSidRangeIndex(2)));
    EXPECT_EQ(caps->sidLabelRange(SrSidRangeIndex(2)), SrSidRange());
}

TEST(SrCapabilitiesPublish, DelAllPublishesOneRemovalPerPresentEntryInIndexOrder) {
    auto caps = SrCapabilities::SrCapabilitiesIs();
    caps->sidLabelRangeIs(SrSidRangeIndex(1), range(10, 100));
    caps->sidLabelRangeIs(SrSidRangeIndex(4), range(40, 400));
    caps->sidLabelRangeIs(SrSidRangeIndex(7), range(70, 700));
    Recorder rec(caps->publisher());

    caps->sidLabelRangeDelAll();

    ASSERT_EQ(rec.size(), 3u);
    const std::uint8_t expectedIndex[] = {1, 4, 7};
    for (std::size_t i = 0; i < 3; ++i) {
        const unsigned k = expectedIndex[i];
        ASSERT_NE(rec[i].keyAs<SrSidRangeIndex>(), nullptr);
        EXPECT_EQ(rec[i].keyAs<SrSidRangeIndex>()->value(), k);
        ASSERT_NE(rec[i].oldAs<SrSidRange>(), nullptr);
        EXPECT_EQ(*rec[i].oldAs<SrSidRange>(), range(10 * k, 100 * k));
    }
    EXPECT_EQ(caps->sidLabelRange(), SrCapabilities::SidLabelRangeArray());
    rec.clear();
    caps->sidLabelRangeDelAll();
    EXPECT_TRUE(rec.empty());
}

// ---- compare ------------------------------------------------------------------------------

class SrCapabilitiesCompare : public ::testing::Test {
protected:
    Poldo::Ptr<SrCapabilities> a = SrCapabilities::SrCapabilitiesIs();
    Poldo::Ptr<SrCapabilities> b = SrCapabilities::SrCapabilitiesIs();

    void fillEqual(unsigned entries) {
        for (unsigned i = 0; i < entries; ++i) {
            a->sidLabelRangeIs(SrSidRangeIndex(static_cast<std::uint8_t>(i)), range(100 + i, 1000 * (i + 1)));
            b->sidLabelRangeIs(SrSidRangeIndex(static_cast<std::uint8_t>(i)), range(100 + i, 1000 * (i + 1)));
        }
    }
};

TEST_F(SrCapabilitiesCompare, CountZeroIgnoresTheRanges) {
    a->sidLabelRangeIs(SrSidRangeIndex(0), range(8000, 16000));
    EXPECT_TRUE(a->compare(b.get()));
    EXPECT_TRUE(b->compare(a.get()));
}

TEST_F(SrCapabilitiesCompare, OnlyRangesBelowTheCountAreCompared) {
    fillEqual(3);
    a->numRangesIs(2);
    b->numRangesIs(2);
    b->sidLabelRangeIs(SrSidRangeIndex(2), range(1, 1));
    EXPECT_TRUE(a->compare(b.get())) << "entry 2 lies beyond a count of 2";
    b->sidLabelRangeIs(SrSidRangeIndex(1), range(1, 1));
    EXPECT_FALSE(a->compare(b.get())) << "entry 1 lies within a count of 2";
}

TEST_F(SrCapabilitiesCompare, FlagsOrCountDifferingIsADifference) {
    fillEqual(2);
    a->numRangesIs(2);
    b->numRangesIs(2);
    ASSERT_TRUE(a->compare(b.get()));
    b->numRangesIs(1);
    EXPECT_FALSE(a->compare(b.get()));
    b->numRangesIs(2);
    b->srCapFlagIs(ipv4Only());
    EXPECT_FALSE(a->compare(b.get()));
}

TEST_F(SrCapabilitiesCompare, CountNineWithEightEqualRangesThrowsTheIndexTypeRangeError) {
    fillEqual(8);
    a->numRangesIs(9);
    b->numRangesIs(9);
    EXPECT_THAT([&] { (void)a->compare(b.get()); },
                ThrowsMessage<Kest::RangeException>(StrEq(kIndexTypeRange)));
}

TEST_F(SrCapabilitiesCompare, CountNineWithADifferenceAmongTheFirstEightIsFalseWithoutThrowing) {
    fillEqual(8);
    a->numRangesIs(9);
    b->numRangesIs(9);
    b->sidLabelRangeIs(SrSidRangeIndex(6), range(1, 1));
    bool same = true;
    EXPECT_NO_THROW(same = a->compare(b.get()));
    EXPECT_FALSE(same);
}

// ---- SrSidRange and SrSidRangeIndex -------------------------------------------------------

TEST(SrSidRange, DefaultIsRangeZeroAndTheNoLabelStartingSid) {
    const SrSidRange r;
    EXPECT_EQ(r.range(), 0u);
    EXPECT_EQ(r.startingSid().value(), 1048576u);
    EXPECT_EQ(SrSidRange::noStartingSid, 1048576u);
}

TEST(SrSidRange, TextFormRoundTrips) {
    const std::string text =
        "Value('Routing::IgpCommon::SrSidRange', ** {'range': 8000, 'startingSid': 16000})";
    EXPECT_EQ(Kest::strep(range(8000, 16000)), text);
    const SrSidRange back = Kest::strepToValue(text, static_cast<SrSidRange*>(nullptr));
    EXPECT_EQ(back, range(8000, 16000));
    EXPECT_EQ(Kest::strep(back), text);
}

TEST(SrSidRange, StartingSidAboveTheLabelRangeNamesTheAttribute) {
    const std::string text =
        "Value('Routing::IgpCommon::SrSidRange', ** {'range': 1, 'startingSid': 8388609})";
    try {
        (void)Kest::strepToValue(text, static_cast<SrSidRange*>(nullptr));
        ADD_FAILURE() << "startingSid 0x800001 was accepted";
    } catch (const Kest::AttributeParseException& e) {
        EXPECT_EQ(e.attribute(), "startingSid");
    }
    // 0x800000 itself is still a label.
    const std::string top =
        "Value('Routing::IgpCommon::SrSidRange', ** {'range': 1, 'startingSid': 8388608})";
    EXPECT_EQ(Kest::strepToValue(top, static_cast<SrSidRange*>(nullptr)).startingSid().value(), 0x800000u);
}

TEST(SrSidRange, OrdersByRangeThenStartingSid) {
    EXPECT_LT(range(1, 900000), range(2, 100));
    EXPECT_LT(range(5, 100), range(5, 101));
    EXPECT_EQ(range(5, 100) <=> range(5, 100), std::strong_ordering::equal);
}

TEST(SrSidRange, HashMixesRangeThenTheStartingSidsOwnHash) {
    for (std::uint32_t seed : {0u, 1u, 0xDEADBEEFu}) {
        const SrSidRange r = range(8000, 16000);
        const std::uint32_t expected = Kest::HashState(seed)
                                           .mix32(8000)
                                           .mix32(Kest::HashHelper::hash(Lumo::MplsLabel(16000), 0))
                                           .result();
        EXPECT_EQ(r.hash(seed), expected) << "seed " << seed;
    }
    EXPECT_NE(range(1, 2).hash(7), range(2, 1).hash(7));
}

TEST(SrSidRangeIndex, TextAcceptsSevenAndRefusesEightWithItsOwnMessage) {
    EXPECT_EQ(Kest::strepToValue(std::string("7"), static_cast<SrSidRangeIndex*>(nullptr)).value(), 7u);
    EXPECT_THAT([] { (void)Kest::strepToValue(std::string("8"), static_cast<SrSidRangeIndex*>(nullptr)); },
                ThrowsMessage<Kest::RangeException>(StrEq(kIndexTypeRange)));
}

// ---- creation ------------------------------------------------------------------------------

TEST(SrCapabilitiesLifetime, CreatorsHandOutTheOnlyReferenceAndTheTrackerReturnsToItsStart) {
    const std::uint64_t start = SrCapabilities::allocTracker().live();
    {
        auto a = SrCapabilities::SrCapabilitiesIs();
        auto b = Routing::IgpCommon::srCapabilitiesFactory();
        EXPECT_EQ(a->useCount(), 1u);
        EXPECT_EQ(b->useCount(), 1u);
        EXPECT_EQ(SrCapabilities::allocTracker().live(), start + 2);
    }
    EXPECT_EQ(SrCapabilities::allocTracker().live(), start);
}

}  // namespace
