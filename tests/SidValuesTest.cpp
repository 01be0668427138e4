// SID values: value length, equality, order, hash, the pretty and the generic text forms.
#include "IgpCommon/SidValues.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

#include "IgpCommon/framework/Hash.h"
#include "IgpCommon/platform/Lumo.h"
#include "IgpCommon/platform/Umbo.h"
#include "tests/support/TextHelpers.h"

namespace {

using Routing::IgpCommon::AdjacencySid;
using Routing::IgpCommon::LabelSid;
using Routing::IgpCommon::LanAdjacencySid;
using Routing::IgpCommon::PrefixSid;
using Routing::IgpCommon::SrSid;
using Routing::Isis::SystemId;
using testsupport::messageOf;
using testsupport::parse;
using testsupport::text;

SystemId sys(std::uint8_t last, std::uint8_t first = 0x19) {
    return SystemId(std::array<std::uint8_t, 6>{first, 0x21, 0x68, 0x00, 0x10, last});
}
const SystemId kSys = sys(0x01);

// RFC 8667 2.1, 2.2: the V and L flags together mean a 3-octet label, otherwise a 4-octet index.
TEST(SidValueLength, FollowsTheValueAndLocalFlagsOfEachKind) {
    EXPECT_EQ(AdjacencySid(0x30, 16, 0).valueLength(), 3u);
    EXPECT_EQ(AdjacencySid(0xf0, 16, 0).valueLength(), 3u);
    EXPECT_EQ(AdjacencySid(0x20, 16, 0).valueLength(), 4u);
    EXPECT_EQ(AdjacencySid(0x10, 16, 0).valueLength(), 4u);
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
    const AdjacencySid adj(0x30, 1, 0);
    EXPECT_EQ(static_cast<const SrSid&>(adj).valueLength(), 3u) << "through the base, the override answers";
}

TEST(SidValueLengthDeathTest, BaseAloneIsNotImplemented) {
    const SrSid bare(0x30, 16);
    EXPECT_DEATH((void)bare.valueLength(), "Not implemented");
}

/// `a` equals a copy of itself and differs from each of `others` (each one field changed).
template <class T>
void expectEveryFieldCounts(const T& a, std::initializer_list<T> others) {
    EXPECT_EQ(a, T(a));
    for (const T& o : others) {
        EXPECT_NE(a, o) << text(o);
    }
}

TEST(SidEquality, EveryFieldTakesPart) {
    expectEveryFieldCounts(SrSid(1, 2), {SrSid(0, 2), SrSid(1, 3)});
    expectEveryFieldCounts(
        AdjacencySid(0x30, 100, 7),
        {AdjacencySid(0x20, 100, 7), AdjacencySid(0x30, 101, 7), AdjacencySid(0x30, 100, 8)});
    expectEveryFieldCounts(LanAdjacencySid(0x30, 100, 7, kSys),
                           {LanAdjacencySid(0x31, 100, 7, kSys), LanAdjacencySid(0x30, 99, 7, kSys),
                            LanAdjacencySid(0x30, 100, 6, kSys), LanAdjacencySid(0x30, 100, 7, sys(0x02)),
                            LanAdjacencySid(0x30, 100, 7, sys(0x01, 0x91))});
    expectEveryFieldCounts(PrefixSid(0x40, 100, 1, true),
                           {PrefixSid(0x41, 100, 1, true), PrefixSid(0x40, 0, 1, true),
                            PrefixSid(0x40, 100, 0, true), PrefixSid(0x40, 100, 1, false)});
    expectEveryFieldCounts(LabelSid(0x80, 3, true),
                           {LabelSid(0x00, 3, true), LabelSid(0x80, 4, true), LabelSid(0x80, 3, false)});
}

TEST(SidOrder, FlagsBeforeValueThenTheDerivedFields) {
    EXPECT_LT(SrSid(0x10, 1000000), SrSid(0x20, 1));
    EXPECT_LT(SrSid(0x20, 1), SrSid(0x20, 2));
    EXPECT_LT(AdjacencySid(0x10, 1000, 9), AdjacencySid(0x30, 1, 0));
    EXPECT_LT(AdjacencySid(0x30, 1, 200), AdjacencySid(0x30, 2, 0));
    EXPECT_LT(AdjacencySid(0x30, 1, 1), AdjacencySid(0x30, 1, 2));
    // LAN SIDs: adjacency fields first, then the system id as a big-endian number.
    const auto lan = [](std::uint8_t weight, std::array<std::uint8_t, 6> id) {
        return LanAdjacencySid(0x30, 1, weight, SystemId(id));
    };
    EXPECT_LT(lan(1, {0xff, 0xff, 0xff, 0xff, 0xff, 0xff}), lan(2, {0, 0, 0, 0, 0, 0}));
    EXPECT_LT(lan(1, {0, 0, 0, 0, 0, 0xff}), lan(1, {0, 0, 0, 0, 1, 0x00}));
    EXPECT_LT(lan(1, {0x7f, 0xff, 0xff, 0xff, 0xff, 0xff}), lan(1, {0x80, 0, 0, 0, 0, 0}));
    EXPECT_GT(lan(1, {0, 1, 0, 0, 0, 0}), lan(1, {0, 0, 0xff, 0xff, 0xff, 0xff}));
    // Prefix SIDs: flags, value, algorithm, and whether it is valid last.
    EXPECT_LT(PrefixSid(0x00, 500, 1, true), PrefixSid(0x40, 100, 0, false));
    EXPECT_LT(PrefixSid(0x40, 100, 0, true), PrefixSid(0x40, 101, 0, false));
    EXPECT_LT(PrefixSid(0x40, 100, 0, true), PrefixSid(0x40, 100, 1, false));
    EXPECT_LT(PrefixSid(0x40, 100, 1, false), PrefixSid(0x40, 100, 1, true));
    EXPECT_LT(LabelSid(0x00, 900, true), LabelSid(0x80, 3, false));
    EXPECT_LT(LabelSid(0x80, 3, false), LabelSid(0x80, 3, true));
    EXPECT_LT(LabelSid(0x80, 3, true), LabelSid(0x80, 4, false));
}

TEST(SidHash, ItemsOfTheirOwnWidthsInFieldOrder) {
    for (const std::uint32_t seed : {0u, 1u, 0x5bd1e995u}) {
        SCOPED_TRACE(seed);
        const auto h = [seed] { return Kest::HashState(seed); };
        EXPECT_EQ(SrSid(0x40, 0x12345678).hash(seed), h().mix8(0x40).mix32(0x12345678).result());
        EXPECT_EQ(AdjacencySid(0x30, 24001, 9).hash(seed), h().mix8(0x30).mix32(24001).mix8(9).result());
        EXPECT_EQ(LanAdjacencySid(0x30, 24001, 9, kSys).hash(seed),
                  h().mix8(0x30).mix32(24001).mix8(9).mixBytes(kSys.bytes().data(), 6).result());
        EXPECT_EQ(PrefixSid(0x40, 100, 1, true).hash(seed),
                  h().mix8(0x40).mix32(100).mix8(1).mix8(1).result());
        EXPECT_EQ(PrefixSid(0x40, 100, 0, false).hash(seed),
                  h().mix8(0x40).mix32(100).mix8(0).mix8(0).result());
        EXPECT_EQ(LabelSid(0x80, 16000, true).hash(seed), h().mix8(0x80).mix32(16000).mix8(1).result());
    }
}

TEST(SidPrettyText, PrefixSidShowsLowercaseHexFlagsAndLabelSidAnIndexOrAnMplsLabel) {
    EXPECT_EQ(PrefixSid(0x40, 100, 0, true).toStrep(), "PrefixSID={100, flags=0x40, algo=0}");
    EXPECT_EQ(PrefixSid(0x4c, 16000, 10, false).toStrep(), "PrefixSID={16000, flags=0x4c, algo=10}");
    EXPECT_EQ(PrefixSid(0x00, 0, 255, true).toStrep(), "PrefixSID={0, flags=0x0, algo=255}");
    EXPECT_EQ(PrefixSid(0x0a, 4294967295u, 1, true).toStrep(), "PrefixSID={4294967295, flags=0xa, algo=1}");
    EXPECT_EQ(LabelSid(0x00, 5, true).toStrep(), "LabelSID={index=5}");
    EXPECT_EQ(LabelSid(0x00, 0x800001, true).toStrep(), "LabelSID={index=8388609}");  // an index is no label
    EXPECT_EQ(LabelSid(0x80, 24000, true).toStrep(), "LabelSID={mpls=24000}");
    EXPECT_EQ(LabelSid(0x01, 3, false).toStrep(), "LabelSID={mpls=3 (implicit-null)}");
    EXPECT_EQ(LabelSid(0x80, 0x800000, true).toStrep(), "LabelSID={mpls=8388608 (withdraw)}");
    EXPECT_EQ(messageOf<Kest::RangeException>([] { (void)LabelSid(0x80, 0x800001, true).toStrep(); }),
              "Lumo::MplsLabel::value < Lumo::MplsLabel::min or > Lumo::MplsLabel::luWithdraw not allowed");
}

template <class T>
void expectRoundTrips(std::initializer_list<T> values) {
    for (const T& v : values) {
        EXPECT_EQ(parse<T>(text(v)), v) << text(v);
    }
}

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
    expectRoundTrips({SrSid(), SrSid(255, 4294967295u), SrSid(0x40, 16)});
    expectRoundTrips({AdjacencySid(), AdjacencySid(0x30, 24001, 255), AdjacencySid(0x20, 1, 0)});
    expectRoundTrips(
        {LanAdjacencySid(), LanAdjacencySid(0x30, 24001, 3, kSys),
         LanAdjacencySid(0xff, 0, 0, SystemId(std::array<std::uint8_t, 6>{0xab, 0xcd, 0xef, 1, 2, 3}))});
    expectRoundTrips({PrefixSid(), PrefixSid(0x4c, 16000, 128, true), PrefixSid(0, 1, 1, false)});
    expectRoundTrips({LabelSid(), LabelSid(0x80, 0x800000, true), LabelSid(0, 99, false)});
}

TEST(SidText, ReaderNamesTheAttributeOutOfRangeAndRefusesOtherKinds) {
    const auto attributeError = [](auto read) { return messageOf<Kest::AttributeParseException>(read); };
    EXPECT_EQ(
        attributeError([] {
            parse<LanAdjacencySid>(
                "Value('Routing::IgpCommon::LanAdjacencySid', ** {'flags': 48, 'value': 1, 'weight': 0, "
                "'systemId': 1921.68001.1001})");
        }).rfind("attribute 'systemId': ", 0),
        0u);
    EXPECT_EQ(attributeError([] {
                  parse<PrefixSid>(
                      "Value('Routing::IgpCommon::PrefixSid', ** {'flags': 256, 'value': 1, 'algorithm': 0, "
                      "'isValid': True})");
              }),
              "attribute 'flags': number 256 does not fit in 8 bits");
    EXPECT_EQ(
        attributeError([] {
            parse<AdjacencySid>(
                "Value('Routing::IgpCommon::AdjacencySid', ** {'flags': 0, 'value': 4294967296, 'weight': "
                "0})");
        }),
        "attribute 'value': number 4294967296 does not fit in 32 bits");
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
