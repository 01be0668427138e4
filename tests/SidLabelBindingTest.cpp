// SidLabelBinding: its text forms and attribute-by-attribute update.
#include "IgpCommon/SidLabelBinding.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tests/support/Builders.h"
#include "tests/support/RecordingObserver.h"

namespace {

using Routing::IgpCommon::LabelSid;
using Routing::IgpCommon::PrefixSid;
using Routing::IgpCommon::SidLabelBinding;
using Flags = SidLabelBinding::SidLabelBindingFlags;
using Attr = SidLabelBinding::Attr;
using ::testing::ElementsAre;
using Recorder = IgpTest::RecordingObserver<Flags, std::uint16_t, LabelSid, PrefixSid, std::uint8_t>;

TEST(SidLabelBindingText, ShowsFlagLettersRangeFragmentAndOnlyTheValidSids) {
    struct Case {
        std::function<void(SidLabelBinding&)> set;
        std::string text;
    };
    const Case cases[] = {
        {[](SidLabelBinding&) {}, "sidLabelBinding={flags=-, range=0, lspFragmentId=0}"},
        {[](SidLabelBinding& b) {
             b.flagsIs(Flags(0x13));
             b.rangeIs(4);
             b.lspFragmentIdIs(65);  // 'A' if it were streamed as a character
             b.baseLabelSidIs(LabelSid(0x80, 16000, true));
             b.basePrefixSidIs(PrefixSid(0x40, 7, 0, true));
         },
         "sidLabelBinding={flags=FMA, range=4, lspFragmentId=65, LabelSID={mpls=16000}, "
         "PrefixSID={7, flags=0x40, algo=0}}"},
        {[](SidLabelBinding& b) {
             b.baseLabelSidIs(LabelSid(0x80, 16000, false));
             b.basePrefixSidIs(PrefixSid(0x40, 7, 0, true));
         },
         "sidLabelBinding={flags=-, range=0, lspFragmentId=0, PrefixSID={7, flags=0x40, algo=0}}"},
        {[](SidLabelBinding& b) {
             b.baseLabelSidIs(LabelSid(0, 42, true));
             b.basePrefixSidIs(PrefixSid(0x40, 7, 0, false));
         },
         "sidLabelBinding={flags=-, range=0, lspFragmentId=0, LabelSID={index=42}}"},
    };
    for (const Case& c : cases) {
        auto b = SidLabelBinding::SidLabelBindingIs();
        c.set(*b);
        EXPECT_EQ(b->toStrep(), c.text);
        EXPECT_EQ(testsupport::formatted(*b), c.text);
    }
    std::string letters;
    for (unsigned v : {0x13u, 0u, 0x1fu, 0x04u, 0x08u}) {
        letters += SidLabelBinding::flagsToStrep(Flags(static_cast<unsigned char>(v))) + " ";
    }
    EXPECT_EQ(letters, "FMA - FMSDA S D ");
}

Poldo::Ptr<SidLabelBinding> populated() {
    auto b = SidLabelBinding::SidLabelBindingIs();
    b->flagsIs(Flags(0x01));
    b->rangeIs(8);
    b->baseLabelSidIs(LabelSid(0x80, 20000, true));
    b->basePrefixSidIs(PrefixSid(0x40, 9, 0, true));
    b->lspFragmentIdIs(3);
    return b;
}

TEST(SidLabelBindingUpdate, PublishesExactlyTheAttributesThatDifferAndKeepsNoReferenceToItsArgument) {
    auto mine = populated();
    auto theirs = populated();
    Recorder rec(mine->publisher());
    mine->updateAttr(theirs);
    EXPECT_TRUE(rec.empty()) << "an identical binding";

    theirs->lspFragmentIdIs(4);
    mine->updateAttr(theirs);
    ASSERT_THAT(rec.attrs(), ElementsAre(Attr::lspFragmentId));
    EXPECT_EQ(*rec[0].oldAs<std::uint8_t>(), 3u);

    rec.clear();
    theirs->baseLabelSidIs(LabelSid(0x80, 20000, false));  // validity alone is a change
    mine->updateAttr(theirs);
    ASSERT_THAT(rec.attrs(), ElementsAre(Attr::baseLabelSid));
    EXPECT_TRUE(rec[0].oldAs<LabelSid>()->isValid());
    EXPECT_EQ(theirs->useCount(), 1u);
}

TEST(SidLabelBindingUpdate, SeveralChangesPublishInAttributeOrderAndKeepTheObject) {
    auto mine = populated();
    auto theirs = populated();
    theirs->flagsIs(Flags(0x10));
    theirs->rangeIs(9);
    theirs->baseLabelSidIs(LabelSid(0x80, 20001, true));
    theirs->basePrefixSidIs(PrefixSid(0x40, 10, 0, true));
    theirs->lspFragmentIdIs(0);
    const SidLabelBinding* before = mine.get();
    Recorder rec(mine->publisher());
    mine->updateAttr(theirs);

    EXPECT_THAT(rec.attrs(), ElementsAre(130, 131, 132, 133, 134));
    EXPECT_THAT(rec.attrs(), ElementsAre(Attr::flags, Attr::range, Attr::baseLabelSid, Attr::basePrefixSid,
                                         Attr::lspFragmentId));
    EXPECT_EQ(*rec[0].oldAs<Flags>(), Flags(0x01));
    EXPECT_EQ(*rec[1].oldAs<std::uint16_t>(), 8u);
    EXPECT_EQ(*rec[2].oldAs<LabelSid>(), LabelSid(0x80, 20000, true));
    EXPECT_EQ(*rec[3].oldAs<PrefixSid>(), PrefixSid(0x40, 9, 0, true));
    EXPECT_EQ(*rec[4].oldAs<std::uint8_t>(), 3u);
    EXPECT_EQ(mine.get(), before);
    EXPECT_EQ(mine->toStrep(), theirs->toStrep());
}

}  // namespace
