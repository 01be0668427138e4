#include "IgpCommon/SidValues.h"

#include <gtest/gtest.h>

#include "support/TextHelpers.h"

#include <array>
#include <sstream>
#include <string>

#include "IgpCommon/framework/Hash.h"
#include "IgpCommon/platform/Lumo.h"
#include "IgpCommon/platform/Umbo.h"

namespace {

using Routing::IgpCommon::AdjacencySid;
using Routing::IgpCommon::LabelSid;
using Routing::IgpCommon::LanAdjacencySid;
using Routing::IgpCommon::PrefixSid;
using Routing::IgpCommon::SrSid;
using Routing::Isis::SystemId;

using testsupport::parse;
using testsupport::text;
SystemId sys(std::array<std::uint8_t, 6> b) {
    return SystemId(b);
}

const SystemId kSys = sys({0x19, 0x21, 0x68, 0x00, 0x10, 0x01});

// ---- value length ---------------------------------------------------------------------------

TEST(SidValueLength, FollowsTheValueAndLocalFlagsOfEachKind) {
    EXPECT_EQ(AdjacencySid(0x30, 16, 0).valueLength(), 3u);
    EXPECT_EQ(AdjacencySid(0xf0, 16, 0).valueLength(), 3u);
    EXPECT_EQ(AdjacencySid(0x20, 16, 0).valueLength(), 4u);
    EXPECT_EQ(AdjacencySid(0x10, 16, 0).valueLength(), 4u);
    EXPECT_EQ(AdjacencySid(0x00, 16, 0).valueLength(), 4u);
    EXPECT_EQ(LanAdjacencySid(0x30, 16, 0, kSys).valueLength(), 3u);
    EXPECT_EQ(LanAdjacencySid(0x20, 16, 0, kSys).valueLength(), 4u);
    EXPECT_EQ(PrefixSid(0x0c, 16, 0, true).valueLength(), 3u);
    EXPECT_EQ(PrefixSid(0x4c, 16, 0, true).valueLength(), 3u);
    EXPECT_EQ(PrefixSid(0x08, 16, 0, true).valueLength(), 4u);
    EXPECT_EQ(PrefixSid(0x04, 16, 0, true).valueLength(), 4u);
    EXPECT_EQ(PrefixSid(0x30, 16, 0, true).valueLength(), 4u);  // the adjacency bits mean nothing here
    EXPECT_EQ(LabelSid(0x00, 16, true).valueLength(), 4u);
    EXPECT_EQ(LabelSid(0x01, 16, true).valueLength(), 3u);
    EXPECT_EQ(LabelSid(0x80, 16, true).valueLength(), 3u);
    // Through the base: the override answers.
    const AdjacencySid adj(0x30, 1, 0);
    const SrSid& base = adj;
    EXPECT_EQ(base.valueLength(), 3u);
}

TEST(SidValueLengthDeathTest, BaseAloneIsNotImplemented) {
    const SrSid bare(0x30, 16);
    EXPECT_DEATH((void)bare.valueLength(), "Not implemented");
}

// ---- equality and order ----------------------------------------------------------------------

TEST(SidEquality, EveryFieldTakesPart) {
    EXPECT_EQ(SrSid(1, 2), SrSid(1, 2));
    EXPECT_NE(SrSid(1, 2), SrSid(0, 2));
    EXPECT_NE(SrSid(1, 2), SrSid(1, 3));

    const AdjacencySid adj(0x30, 100, 7);
    EXPECT_EQ(adj, AdjacencySid(0x30, 100, 7));
    EXPECT_NE(adj, AdjacencySid(0x20, 100, 7));
    EXPECT_NE(adj, AdjacencySid(0x30, 101, 7));
    EXPECT_NE(adj, AdjacencySid(0x30, 100, 8));

    const LanAdjacencySid lan(0x30, 100, 7, kSys);
    EXPECT_EQ(lan, LanAdjacencySid(0x30, 100, 7, kSys));
    EXPECT_NE(lan, LanAdjacencySid(0x31, 100, 7, kSys));
    EXPECT_NE(lan, LanAdjacencySid(0x30, 99, 7, kSys));
    EXPECT_NE(lan, LanAdjacencySid(0x30, 100, 6, kSys));
    EXPECT_NE(lan, LanAdjacencySid(0x30, 100, 7, sys({0x19, 0x21, 0x68, 0x00, 0x10, 0x02})));
    EXPECT_NE(lan, LanAdjacencySid(0x30, 100, 7, sys({0x91, 0x21, 0x68, 0x00, 0x10, 0x01})));

    const PrefixSid pfx(0x40, 100, 1, true);
    EXPECT_EQ(pfx, PrefixSid(0x40, 100, 1, true));
    EXPECT_NE(pfx, PrefixSid(0x41, 100, 1, true));
    EXPECT_NE(pfx, PrefixSid(0x40, 0, 1, true));
    EXPECT_NE(pfx, PrefixSid(0x40, 100, 0, true));
    EXPECT_NE(pfx, PrefixSid(0x40, 100, 1, false));

    const LabelSid lbl(0x80, 3, true);
    EXPECT_EQ(lbl, LabelSid(0x80, 3, true));
    EXPECT_NE(lbl, LabelSid(0x00, 3, true));
    EXPECT_NE(lbl, LabelSid(0x80, 4, true));
    EXPECT_NE(lbl, LabelSid(0x80, 3, false));
}

TEST(SidOrder, FlagsBeforeValueThenTheDerivedFields) {
    EXPECT_LT(SrSid(0x10, 1000000), SrSid(0x20, 1));
    EXPECT_LT(SrSid(0x20, 1), SrSid(0x20, 2));
    EXPECT_EQ(SrSid(0x20, 1) <=> SrSid(0x20, 1), std::strong_ordering::equal);

    EXPECT_LT(AdjacencySid(0x10, 1000, 9), AdjacencySid(0x30, 1, 0));
    EXPECT_LT(AdjacencySid(0x30, 1, 200), AdjacencySid(0x30, 2, 0));
    EXPECT_LT(AdjacencySid(0x30, 1, 1), AdjacencySid(0x30, 1, 2));

    // LAN SIDs: adjacency fields first, then the system id as a big-endian number.
    EXPECT_LT(LanAdjacencySid(0x30, 1, 1, sys({0xff, 0xff, 0xff, 0xff, 0xff, 0xff})),
              LanAdjacencySid(0x30, 1, 2, sys({0, 0, 0, 0, 0, 0})));
    EXPECT_LT(LanAdjacencySid(0x30, 1, 1, sys({0, 0, 0, 0, 0, 0xff})),
              LanAdjacencySid(0x30, 1, 1, sys({0, 0, 0, 0, 1, 0x00})));
    EXPECT_LT(LanAdjacencySid(0x30, 1, 1, sys({0x7f, 0xff, 0xff, 0xff, 0xff, 0xff})),
              LanAdjacencySid(0x30, 1, 1, sys({0x80, 0, 0, 0, 0, 0})));
    EXPECT_GT(LanAdjacencySid(0x30, 1, 1, sys({0, 1, 0, 0, 0, 0})),
              LanAdjacencySid(0x30, 1, 1, sys({0, 0, 0xff, 0xff, 0xff, 0xff})));

    // Prefix SIDs: flags, value, algorithm, and whether it is valid last.
    EXPECT_LT(PrefixSid(0x00, 500, 1, true), PrefixSid(0x40, 100, 0, false));
    EXPECT_LT(PrefixSid(0x40, 100, 0, true), PrefixSid(0x40, 101, 0, false));
    EXPECT_LT(PrefixSid(0x40, 100, 0, true), PrefixSid(0x40, 100, 1, false));
    EXPECT_LT(PrefixSid(0x40, 100, 1, false), PrefixSid(0x40, 100, 1, true));
    EXPECT_NE(PrefixSid(0x40, 100, 1, false) <=> PrefixSid(0x40, 100, 1, true), std::strong_ordering::equal);

    EXPECT_LT(LabelSid(0x00, 900, true), LabelSid(0x80, 3, false));
    EXPECT_LT(LabelSid(0x80, 3, false), LabelSid(0x80, 3, true));
    EXPECT_LT(LabelSid(0x80, 3, true), LabelSid(0x80, 4, false));
}

// ---- hashes ------------------------------------------------------------------------------------

std::uint32_t systemIdMix(const SystemId& id) {
    Umbo::HashMix m(0);
    for (std::size_t i = 0; i < 6; ++i)
        m.mix(id.bytes()[i]);
    return m.value();
}

TEST(SidHash, ItemsOfTheirOwnWidthsInFieldOrder) {
    for (const std::uint32_t seed : {0u, 1u, 0x5bd1e995u}) {
        SCOPED_TRACE(seed);
        EXPECT_EQ(SrSid(0x40, 0x12345678).hash(seed),
                  Kest::HashState(seed).mix8(0x40).mix32(0x12345678).result());
        EXPECT_EQ(AdjacencySid(0x30, 24001, 9).hash(seed),
                  Kest::HashState(seed).mix8(0x30).mix32(24001).mix8(9).result());
        const SystemId id = sys({0x19, 0x21, 0x68, 0x00, 0x10, 0x01});
        EXPECT_EQ(LanAdjacencySid(0x30, 24001, 9, id).hash(seed),
                  Kest::HashState(seed).mix8(0x30).mix32(24001).mix8(9).mix32(systemIdMix(id)).result());
        EXPECT_EQ(PrefixSid(0x40, 100, 1, true).hash(seed),
                  Kest::HashState(seed).mix8(0x40).mix32(100).mix8(1).mix8(1).result());
        EXPECT_EQ(PrefixSid(0x40, 100, 0, false).hash(seed),
                  Kest::HashState(seed).mix8(0x40).mix32(100).mix8(0).mix8(0).result());
        EXPECT_EQ(LabelSid(0x80, 16000, true).hash(seed),
                  Kest::HashState(seed).mix8(0x80).mix32(16000).mix8(1).result());
    }
    // Fields that differ make hashes differ.
    EXPECT_NE(PrefixSid(0x40, 100, 1, true).hash(0), PrefixSid(0x40, 100, 1, false).hash(0));
    EXPECT_NE(LanAdjacencySid(0x30, 1, 1, kSys).hash(0),
              LanAdjacencySid(0x30, 1, 1, sys({0x19, 0x21, 0x68, 0x00, 0x10, 0x02})).hash(0));
}

// ---- pretty text ------------------------------------------------------------------------------

TEST(PrefixSidToStrep, IndexLowercaseHexFlagsAndDecimalAlgorithm) {
    EXPECT_EQ(PrefixSid(0x40, 100, 0, true).toStrep(), "PrefixSID={100, flags=0x40, algo=0}");
    EXPECT_EQ(PrefixSid(0x4c, 16000, 10, false).toStrep(), "PrefixSID={16000, flags=0x4c, algo=10}");
    EXPECT_EQ(PrefixSid(0x00, 0, 255, true).toStrep(), "PrefixSID={0, flags=0x0, algo=255}");
    EXPECT_EQ(PrefixSid(0x0a, 4294967295u, 1, true).toStrep(), "PrefixSID={4294967295, flags=0xa, algo=1}");
}

TEST(LabelSidToStrep, IndexWithoutFlagsMplsLabelWithThem) {
    EXPECT_EQ(LabelSid(0x00, 5, true).toStrep(), "LabelSID={index=5}");
    EXPECT_EQ(LabelSid(0x00, 0x800001, true).toStrep(), "LabelSID={index=8388609}");  // an index is no label
    EXPECT_EQ(LabelSid(0x80, 24000, true).toStrep(),
              "LabelSID={mpls=" + Lumo::MplsLabel(24000).prettyString() + "}");
    EXPECT_EQ(LabelSid(0x80, 24000, true).toStrep(), "LabelSID={mpls=24000}");
    EXPECT_EQ(LabelSid(0x01, 3, false).toStrep(), "LabelSID={mpls=3 (implicit-null)}");
    EXPECT_EQ(LabelSid(0x80, 0x800000, true).toStrep(), "LabelSID={mpls=8388608 (withdraw)}");
    try {
        (void)LabelSid(0x80, 0x800001, true).toStrep();
        ADD_FAILURE() << "label 0x800001 printed";
    } catch (const Kest::RangeException& e) {
        EXPECT_STREQ(
            e.what(),
            "Lumo::MplsLabel::value < Lumo::MplsLabel::min or > Lumo::MplsLabel::luWithdraw not allowed");
    }
}

// ---- generic text ---------------------------------------------------------------------------

TEST(SidText, EveryKindWritesItsAttributesAndReadsThemBack) {
    EXPECT_EQ(text(SrSid(64, 100)), "Value('Routing::IgpCommon::SrSid', ** {'flags': 64, 'value': 100})");
    EXPECT_EQ(text(AdjacencySid(48, 24001, 5)),
              "Value('Routing::IgpCommon::AdjacencySid', ** {'flags': 48, 'value': 24001, 'weight': 5})");
    EXPECT_EQ(text(LanAdjacencySid(48, 24001, 5, kSys)),
              "Value('Routing::IgpCommon::LanAdjacencySid', ** {'flags': 48, 'value': 24001, 'weight': 5, "
              "'systemId': 1921.6800.1001})");
    EXPECT_EQ(text(PrefixSid(64, 100, 0, true)),
              "Value('Routing::IgpCommon::PrefixSid', ** {'flags': 64, 'value': 100, 'algorithm': 0, "
              "'isValid': True})");
    EXPECT_EQ(text(LabelSid(0, 7, false)),
              "Value('Routing::IgpCommon::LabelSid', ** {'flags': 0, 'value': 7, 'isValid': False})");

    for (const SrSid& s : {SrSid(), SrSid(255, 4294967295u), SrSid(0x40, 16)}) {
        EXPECT_EQ(parse<SrSid>(text(s)), s) << text(s);
    }
    for (const AdjacencySid& s : {AdjacencySid(), AdjacencySid(0x30, 24001, 255), AdjacencySid(0x20, 1, 0)}) {
        EXPECT_EQ(parse<AdjacencySid>(text(s)), s) << text(s);
    }
    for (const LanAdjacencySid& s :
         {LanAdjacencySid(), LanAdjacencySid(0x30, 24001, 3, kSys),
          LanAdjacencySid(0xff, 0, 0, sys({0xab, 0xcd, 0xef, 0x01, 0x23, 0x45}))}) {
        EXPECT_EQ(parse<LanAdjacencySid>(text(s)), s) << text(s);
    }
    for (const PrefixSid& s : {PrefixSid(), PrefixSid(0x4c, 16000, 128, true), PrefixSid(0, 1, 1, false)}) {
        EXPECT_EQ(parse<PrefixSid>(text(s)), s) << text(s);
    }
    for (const LabelSid& s : {LabelSid(), LabelSid(0x80, 0x800000, true), LabelSid(0, 99, false)}) {
        EXPECT_EQ(parse<LabelSid>(text(s)), s) << text(s);
    }
    EXPECT_EQ(
        parse<LanAdjacencySid>("Value('Routing::IgpCommon::LanAdjacencySid', ** {'flags': 48, 'value': 1, "
                               "'weight': 0, 'systemId': ABCD.EF01.2345})")
            .systemId(),
        sys({0xab, 0xcd, 0xef, 0x01, 0x23, 0x45}));
}

TEST(SidText, ReaderNamesTheAttributeOutOfRangeAndRefusesOtherKinds) {
    try {
        parse<LanAdjacencySid>(
            "Value('Routing::IgpCommon::LanAdjacencySid', ** {'flags': 48, 'value': 1, "
            "'weight': 0, 'systemId': 1921.68001.1001})");
        ADD_FAILURE() << "a five-digit system id group was read";
    } catch (const Kest::AttributeParseException& e) {
        EXPECT_EQ(e.attribute(), "systemId");
    }
    try {
        parse<PrefixSid>(
            "Value('Routing::IgpCommon::PrefixSid', ** {'flags': 256, 'value': 1, 'algorithm': 0, "
            "'isValid': True})");
        ADD_FAILURE() << "flags 256 were read";
    } catch (const Kest::AttributeParseException& e) {
        EXPECT_EQ(e.attribute(), "flags");
    }
    try {
        parse<AdjacencySid>(
            "Value('Routing::IgpCommon::AdjacencySid', ** {'flags': 0, 'value': 4294967296, "
            "'weight': 0})");
        ADD_FAILURE() << "a 33-bit value was read";
    } catch (const Kest::AttributeParseException& e) {
        EXPECT_EQ(e.attribute(), "value");
    }
    for (const char* bad : {
             // a base SID's text is no adjacency SID
             "Value('Routing::IgpCommon::SrSid', ** {'flags': 48, 'value': 1})",
             // the derived attribute missing, or before the base ones
             "Value('Routing::IgpCommon::AdjacencySid', ** {'flags': 48, 'value': 1})",
             "Value('Routing::IgpCommon::AdjacencySid', ** {'weight': 0, 'flags': 48, 'value': 1})",
             "Value('Routing::IgpCommon::AdjacencySid', ** {'flags': 48, 'value': 1, 'weight': 0}",
         }) {
        EXPECT_THROW(parse<AdjacencySid>(bad), Kest::ParseException) << bad;
    }
    EXPECT_THROW(
        parse<LabelSid>("Value('Routing::IgpCommon::LabelSid', ** {'flags': 0, 'value': 7, 'isValid': 1})"),
        Kest::ParseException);
}

}  // namespace
