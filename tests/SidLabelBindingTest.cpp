// SidLabelBinding: its text forms and attribute-by-attribute update.
#include "IgpCommon/SidLabelBinding.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>

#include "support/RecordingObserver.h"

namespace {

using Routing::IgpCommon::LabelSid;
using Routing::IgpCommon::PrefixSid;
using Routing::IgpCommon::SidLabelBinding;
using Flags = SidLabelBinding::SidLabelBindingFlags;
using Attr = SidLabelBinding::Attr;
using ::testing::ElementsAre;

using Recorder = IgpTest::RecordingObserver<Flags, std::uint16_t, LabelSid, PrefixSid, std::uint8_t>;

std::string formatted(const SidLabelBinding& b) {
    std::ostringstream os;
    b.formatContent(os);
    return os.str();
}

// ---- text ----------------------------------------------------------------------------------

TEST(SidLabelBindingText, DefaultBindingShowsDashRangeAndFragmentOnly) {
    auto b = SidLabelBinding::SidLabelBindingIs();
    EXPECT_EQ(b->toStrep(), "sidLabelBinding={flags=-, range=0, lspFragmentId=0}");
    EXPECT_EQ(formatted(*b), b->toStrep());
}

TEST(SidLabelBindingText, ValidLabelThenValidPrefixSidAndFragmentAsDecimal) {
    auto b = SidLabelBinding::SidLabelBindingIs();
    b->flagsIs(Flags(0x13));
    b->rangeIs(4);
    b->lspFragmentIdIs(65);  // 'A' if it were streamed as a character
    b->baseLabelSidIs(LabelSid(0x80, 16000, true));
    b->basePrefixSidIs(PrefixSid(0x40, 7, 0, true));
    const std::string expected =
        "sidLabelBinding={flags=FMA, range=4, lspFragmentId=65, LabelSID={mpls=16000}, "
        "PrefixSID={7, flags=0x40, algo=0}}";
    EXPECT_EQ(b->toStrep(), expected);
    EXPECT_EQ(formatted(*b), expected);
}

TEST(SidLabelBindingText, AnInvalidSidIsLeftOutWithItsSeparator) {
    auto b = SidLabelBinding::SidLabelBindingIs();
    b->rangeIs(2);
    b->baseLabelSidIs(LabelSid(0x80, 16000, false));
    b->basePrefixSidIs(PrefixSid(0x40, 7, 0, true));
    EXPECT_EQ(b->toStrep(),
              "sidLabelBinding={flags=-, range=2, lspFragmentId=0, PrefixSID={7, flags=0x40, algo=0}}");

    b->baseLabelSidIs(LabelSid(0x80, 16000, true));
    b->basePrefixSidIs(PrefixSid(0x40, 7, 0, false));
    EXPECT_EQ(b->toStrep(), "sidLabelBinding={flags=-, range=2, lspFragmentId=0, LabelSID={mpls=16000}}");
}

TEST(SidLabelBindingText, LabelSidWithoutFlagsPrintsAnIndex) {
    auto b = SidLabelBinding::SidLabelBindingIs();
    b->baseLabelSidIs(LabelSid(0, 42, true));
    EXPECT_EQ(b->toStrep(), "sidLabelBinding={flags=-, range=0, lspFragmentId=0, LabelSID={index=42}}");
}

TEST(SidLabelBindingText, FlagLettersComeInFMSDAOrder) {
    EXPECT_EQ(SidLabelBinding::flagsToStrep(Flags(0x13)), "FMA");
    EXPECT_EQ(SidLabelBinding::flagsToStrep(Flags()), "-");
    EXPECT_EQ(SidLabelBinding::flagsToStrep(Flags(0x1F)), "FMSDA");
    EXPECT_EQ(SidLabelBinding::flagsToStrep(Flags(0x04)), "S");
    EXPECT_EQ(SidLabelBinding::flagsToStrep(Flags(0x08)), "D");
}

// ---- updateAttr ----------------------------------------------------------------------------

class SidLabelBindingUpdate : public ::testing::Test {
protected:
    static Poldo::Ptr<SidLabelBinding> populated() {
        auto b = SidLabelBinding::SidLabelBindingIs();
        b->flagsIs(Flags(0x01));
        b->rangeIs(8);
        b->baseLabelSidIs(LabelSid(0x80, 20000, true));
        b->basePrefixSidIs(PrefixSid(0x40, 9, 0, true));
        b->lspFragmentIdIs(3);
        return b;
    }

    Poldo::Ptr<SidLabelBinding> mine = populated();
    Poldo::Ptr<SidLabelBinding> theirs = populated();
};

TEST_F(SidLabelBindingUpdate, IdenticalBindingPublishesNothing) {
    Recorder rec(mine->publisher());
    mine->updateAttr(theirs);
    EXPECT_TRUE(rec.empty());
}

TEST_F(SidLabelBindingUpdate, OnlyTheFragmentChangedPublishesExactlyThatAttribute) {
    theirs->lspFragmentIdIs(4);
    Recorder rec(mine->publisher());
    mine->updateAttr(theirs);
    ASSERT_THAT(rec.attrs(), ElementsAre(Attr::lspFragmentId));
    ASSERT_NE(rec[0].oldAs<std::uint8_t>(), nullptr);
    EXPECT_EQ(*rec[0].oldAs<std::uint8_t>(), 3u);
    EXPECT_EQ(mine->lspFragmentId(), 4u);
}

TEST_F(SidLabelBindingUpdate, ValidityOfTheBaseLabelSidAloneIsAChange) {
    theirs->baseLabelSidIs(LabelSid(0x80, 20000, false));
    Recorder rec(mine->publisher());
    mine->updateAttr(theirs);
    ASSERT_THAT(rec.attrs(), ElementsAre(Attr::baseLabelSid));
    ASSERT_NE(rec[0].oldAs<LabelSid>(), nullptr);
    EXPECT_TRUE(rec[0].oldAs<LabelSid>()->isValid());
    EXPECT_FALSE(mine->baseLabelSid().isValid());
}

TEST_F(SidLabelBindingUpdate, SeveralChangesPublishInAttributeOrderAndKeepTheObject) {
    theirs->flagsIs(Flags(0x10));
    theirs->rangeIs(9);
    theirs->baseLabelSidIs(LabelSid(0x80, 20001, true));
    theirs->basePrefixSidIs(PrefixSid(0x40, 10, 0, true));
    theirs->lspFragmentIdIs(0);
    const SidLabelBinding* before = mine.get();

    Recorder rec(mine->publisher());
    mine->updateAttr(theirs);

    EXPECT_THAT(rec.attrs(), ElementsAre(Attr::flags, Attr::range, Attr::baseLabelSid, Attr::basePrefixSid,
                                         Attr::lspFragmentId));
    EXPECT_THAT(rec.attrs(), ElementsAre(130, 131, 132, 133, 134));
    ASSERT_EQ(rec.size(), 5u);
    EXPECT_EQ(*rec[0].oldAs<Flags>(), Flags(0x01));
    EXPECT_EQ(*rec[1].oldAs<std::uint16_t>(), 8u);
    EXPECT_EQ(*rec[2].oldAs<LabelSid>(), LabelSid(0x80, 20000, true));
    EXPECT_EQ(*rec[3].oldAs<PrefixSid>(), PrefixSid(0x40, 9, 0, true));
    EXPECT_EQ(*rec[4].oldAs<std::uint8_t>(), 3u);

    EXPECT_EQ(mine.get(), before);
    EXPECT_EQ(mine->toStrep(), theirs->toStrep());
    EXPECT_EQ(mine->baseLabelSid(), theirs->baseLabelSid());
    EXPECT_EQ(mine->basePrefixSid(), theirs->basePrefixSid());
}

TEST(SidLabelBindingLifetime, CreatorsHandOutTheOnlyReferenceAndTheTrackerReturnsToItsStart) {
    const std::uint64_t start = SidLabelBinding::allocTracker().live();
    {
        auto a = SidLabelBinding::SidLabelBindingIs();
        auto b = Routing::IgpCommon::sidLabelBindingFactory();
        EXPECT_EQ(a->useCount(), 1u);
        EXPECT_EQ(b->useCount(), 1u);
        EXPECT_EQ(SidLabelBinding::allocTracker().live(), start + 2);
        a->updateAttr(b);
        EXPECT_EQ(b->useCount(), 1u) << "updateAttr kept a reference to its argument";
    }
    EXPECT_EQ(SidLabelBinding::allocTracker().live(), start);
}

}  // namespace
