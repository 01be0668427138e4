#include "IgpCommon/FlagSets.h"

#include <gtest/gtest.h>

#include "support/TextHelpers.h"

#include <sstream>
#include <string>

namespace {

using Routing::IgpCommon::NodeFlags;
using Routing::IgpCommon::PrefixFlags;
using Routing::IgpCommon::SrCapabilityFlags;
using Routing::IgpCommon::detail::NeighborAttrsPresent;
using Routing::IgpCommon::detail::SidLabelBindingFlags;
namespace d = Routing::IgpCommon::detail;

using testsupport::parse;
using testsupport::text;

// ---- every flag set alike -------------------------------------------------------------------------

template <class T>
class FlagSet : public ::testing::Test {};
using AllFlagSets =
    ::testing::Types<NodeFlags, SrCapabilityFlags, PrefixFlags, SidLabelBindingFlags, NeighborAttrsPresent>;
TYPED_TEST_SUITE(FlagSet, AllFlagSets);

TYPED_TEST(FlagSet, EveryValidValueRoundTripsThroughText) {
    constexpr unsigned max = TypeParam::validMask;
    EXPECT_EQ(max, (1u << TypeParam::flagCount) - 1);
    for (unsigned v = 0; v <= max; ++v) {
        const TypeParam f(static_cast<unsigned char>(v));
        EXPECT_EQ(f.value(), v);
        EXPECT_EQ(static_cast<bool>(f), v != 0);
        const TypeParam back = parse<TypeParam>(text(f));
        EXPECT_EQ(back, f) << text(f);
        EXPECT_EQ(back.value(), v);
        EXPECT_EQ(back.hash(3), f.hash(3));
        EXPECT_EQ(f.hash(3), Kest::HashState(3).mix8(static_cast<std::uint8_t>(v)).result());
    }
}

TYPED_TEST(FlagSet, RawValueWithABitAboveTheLastFlagIsRefused) {
    const std::string name = TypeParam::kestTypeName;
    const std::string expected = name + "::value < " + name + "::min or > " + name + "::max not allowed";
    for (unsigned v = TypeParam::validMask + 1u; v <= 255; ++v) {
        try {
            const TypeParam f(static_cast<unsigned char>(v));
            ADD_FAILURE() << v << " was taken as " << unsigned{f.value()};
        } catch (const Kest::RangeException& e) {
            EXPECT_EQ(std::string(e.what()), expected) << v;
        }
    }
}

TYPED_TEST(FlagSet, AlgebraStaysWithinTheDeclaredFlags) {
    constexpr unsigned max = TypeParam::validMask;
    for (unsigned a = 0; a <= max; ++a) {
        const TypeParam fa(static_cast<unsigned char>(a));
        EXPECT_EQ((~fa).value(), max & ~a) << a;
        EXPECT_EQ(fa.complement().complement(), fa);
        for (unsigned b = 0; b <= max; ++b) {
            const TypeParam fb(static_cast<unsigned char>(b));
            EXPECT_EQ((fa | fb).value(), a | b);
            EXPECT_EQ((fa & fb).value(), a & b);
            EXPECT_EQ((fa ^ fb).value(), a ^ b);
            EXPECT_EQ(fa.difference(fb).value(), a & ~b & max);
            EXPECT_EQ(fa == fb, a == b);
            EXPECT_EQ(fa <=> fb, a <=> b);  // the numeric order of the raw values
        }
    }
}

// ---- NodeFlags ----------------------------------------------------------------------------------

TEST(NodeFlags, RawValuesNameTheFlags) {
    try {
        const NodeFlags f(4);
        ADD_FAILURE() << "NodeFlags(4) was taken as " << unsigned{f.value()};
    } catch (const Kest::RangeException& e) {
        EXPECT_STREQ(e.what(),
                     "Routing::IgpCommon::NodeFlags::value < Routing::IgpCommon::NodeFlags::min or > "
                     "Routing::IgpCommon::NodeFlags::max not allowed");
    }
    const NodeFlags both(3);
    EXPECT_TRUE(both.overloadBit());
    EXPECT_TRUE(both.attachedBit());
    EXPECT_TRUE(NodeFlags(1).overloadBit());
    EXPECT_FALSE(NodeFlags(1).attachedBit());
    EXPECT_EQ(NodeFlags::overloadBit_, 1);
    EXPECT_EQ(NodeFlags::attachedBit_, 2);
    EXPECT_EQ((~NodeFlags()).value(), 3);  // never 255
    EXPECT_EQ(~NodeFlags(), both);
    EXPECT_FALSE(static_cast<bool>(NodeFlags()));
}

TEST(NodeFlags, SettersLeaveOtherFlagsAlone) {
    NodeFlags f;
    f.attachedBitIs(true);
    EXPECT_EQ(f.value(), NodeFlags::attachedBit_);
    f.overloadBitIs(true);
    EXPECT_EQ(f.value(), 3);
    f.attachedBitIs(false);
    EXPECT_EQ(f.value(), NodeFlags::overloadBit_);
    f.overloadBitIs(true);  // setting a set flag changes nothing
    EXPECT_EQ(f.value(), 1);
    f.overloadBitIs(false);
    EXPECT_EQ(f, NodeFlags());
    f.flagIs<1>(true);
    EXPECT_TRUE(f.flag<1>());
    EXPECT_FALSE(f.flag<0>());

    NeighborAttrsPresent n(127);
    n.unreservedBwIs(false);
    EXPECT_EQ(n.value(), 127 - NeighborAttrsPresent::unreservedBw_);
    n.srlgValuesIs(false);
    n.adminGroupIs(false);
    EXPECT_EQ(n.value(), 0x36);
    n.unreservedBwIs(true);
    EXPECT_EQ(n.value(), 0x3e);
}

TEST(NodeFlags, OrderIsByHighestDifferingFlag) {
    const NodeFlags overload(1), attached(2), both(3);
    EXPECT_LT(NodeFlags(), overload);
    EXPECT_LT(overload, attached);
    EXPECT_LT(attached, both);
    EXPECT_NE(overload, attached);
    EXPECT_EQ(overload | attached, both);
    EXPECT_EQ(both.difference(attached), overload);
    EXPECT_EQ(both ^ overload, attached);
    EXPECT_EQ(both & attached, attached);
}

TEST(NodeFlags, TextListsBothFlagsInBitOrder) {
    NodeFlags f;
    f.attachedBitIs(true);
    EXPECT_EQ(text(f),
              "Value('Routing::IgpCommon::NodeFlags', ** {'overloadBit': False, 'attachedBit': True})");
    EXPECT_EQ(parse<NodeFlags>(
                  "Value('Routing::IgpCommon::NodeFlags', ** {'overloadBit': True, 'attachedBit': False})"),
              NodeFlags(1));
    for (const char* bad :
         {"Value('Routing::IgpCommon::NodeFlags', ** {'attachedBit': True, 'overloadBit': False})",
          "Value('Routing::IgpCommon::NodeFlags', ** {'overloadBit': False})",
          "Value('Routing::IgpCommon::NodeFlags', ** {'overloadBit': false, 'attachedBit': True})",
          "Value('Routing::IgpCommon::NodeFlags', ** {'overloadBit': 0, 'attachedBit': 1})", "2"}) {
        EXPECT_THROW(parse<NodeFlags>(bad), Kest::ParseException) << bad;
    }
}

// ---- the other flag sets --------------------------------------------------------------------

TEST(SrCapabilityFlags, ComplementAndText) {
    SrCapabilityFlags v4;
    v4.mplsIpv4Is(true);
    EXPECT_EQ(v4.value(), SrCapabilityFlags::mplsIpv4_);
    SrCapabilityFlags v6;
    v6.mplsIpv6Is(true);
    EXPECT_EQ(v6.value(), SrCapabilityFlags::mplsIpv6_);
    EXPECT_EQ(~v4, v6);
    EXPECT_TRUE((~v4).mplsIpv6());
    EXPECT_FALSE((~v4).mplsIpv4());
    EXPECT_EQ(text(v4 | v6),
              "Value('Routing::IgpCommon::SrCapabilityFlags', ** {'mplsIpv4': True, 'mplsIpv6': True})");
}

TEST(PrefixFlags, TextIsTheBareBoolean) {
    PrefixFlags down;
    down.isisDownIs(true);
    EXPECT_EQ(down.value(), PrefixFlags::isisDown_);
    EXPECT_EQ(text(down), "True");
    EXPECT_EQ(text(PrefixFlags()), "False");
    EXPECT_EQ(parse<PrefixFlags>("True"), down);
    EXPECT_EQ(parse<PrefixFlags>("False"), PrefixFlags());
    EXPECT_THROW(PrefixFlags(2), Kest::RangeException);
    EXPECT_EQ(~down, PrefixFlags());
    EXPECT_EQ(~PrefixFlags(), down);
    for (const char* bad :
         {"true", "1", "Value('Routing::IgpCommon::PrefixFlags', ** {'isisDown': True})", "True "}) {
        EXPECT_THROW(parse<PrefixFlags>(bad), Kest::ParseException) << bad;
    }
}

TEST(NeighborAttrsPresent, SevenFlagsAndText) {
    EXPECT_THROW(NeighborAttrsPresent(128), Kest::RangeException);
    const NeighborAttrsPresent all(127);
    EXPECT_TRUE(all.adminGroup() && all.maxLinkBw() && all.maxReserveLinkBw() && all.unreservedBw() &&
                all.extAdminGroup() && all.teDefMetric() && all.srlgValues());
    EXPECT_EQ(NeighborAttrsPresent::adminGroup_ | NeighborAttrsPresent::maxLinkBw_ |
                  NeighborAttrsPresent::maxReserveLinkBw_ | NeighborAttrsPresent::unreservedBw_ |
                  NeighborAttrsPresent::extAdminGroup_ | NeighborAttrsPresent::teDefMetric_ |
                  NeighborAttrsPresent::srlgValues_,
              127);
    EXPECT_EQ(NeighborAttrsPresent::extAdminGroup_, 16);
    EXPECT_EQ(NeighborAttrsPresent::teDefMetric_, 32);
    EXPECT_EQ(NeighborAttrsPresent::srlgValues_, 64);
    NeighborAttrsPresent te;
    te.teDefMetricIs(true);
    EXPECT_EQ(text(te),
              "Value('Routing::IgpCommon::Neighbor::NeighborAttrsPresent', ** {'adminGroup': False, "
              "'maxLinkBw': False, 'maxReserveLinkBw': False, 'unreservedBw': False, 'extAdminGroup': False, "
              "'teDefMetric': True, 'srlgValues': False})");
    EXPECT_EQ((~te).value(), 127 - 32);
}

TEST(SidLabelBindingFlags, TextMasksAndProtocolOctet) {
    SidLabelBindingFlags f;
    f.floodIs(true);
    f.attachedIs(true);
    EXPECT_EQ(f.value(), SidLabelBindingFlags::flood_ | SidLabelBindingFlags::attached_);
    EXPECT_EQ(f.value(), 4 + 16);
    EXPECT_EQ(
        text(f),
        "Value('Routing::IgpCommon::SidLabelBinding::SidLabelBindingFlags', ** {'addressFamily': False, "
        "'mirrorContext': False, 'flood': True, 'leaked': False, 'attached': True})");
    EXPECT_EQ(SidLabelBindingFlags::addressFamily_, 1);
    EXPECT_EQ(SidLabelBindingFlags::mirrorContext_, 2);
    EXPECT_EQ(SidLabelBindingFlags::leaked_, 8);
    EXPECT_THROW(SidLabelBindingFlags(32), Kest::RangeException);

    const SidLabelBindingFlags fa = SidLabelBindingFlags::fromProtocolOctet(0x88);
    EXPECT_TRUE(fa.addressFamily());
    EXPECT_TRUE(fa.attached());
    EXPECT_FALSE(fa.flood() || fa.leaked() || fa.mirrorContext());
    EXPECT_EQ(fa.value(), 17);
    EXPECT_EQ(fa.protocolOctet(), 0x88);
    EXPECT_EQ(SidLabelBindingFlags::fromProtocolOctet(0x07),
              SidLabelBindingFlags());  // reserved bits ignored
    EXPECT_EQ(SidLabelBindingFlags::fromProtocolOctet(0xff).value(), 31);
    EXPECT_EQ(SidLabelBindingFlags(31).protocolOctet(), 0xf8);
    for (unsigned v = 0; v < 32; ++v) {
        const SidLabelBindingFlags x(static_cast<unsigned char>(v));
        EXPECT_EQ(SidLabelBindingFlags::fromProtocolOctet(x.protocolOctet()), x) << v;
        EXPECT_EQ(x.protocolOctet() & 0x07, 0) << v;
    }
    // Flag k alone maps to the mask that carries the same name.
    for (unsigned k = 0; k < 5; ++k) {
        const SidLabelBindingFlags one(static_cast<unsigned char>(1u << k));
        const auto mask = static_cast<d::SidLabelBindingFlagsBitsMask>(one.protocolOctet());
        EXPECT_EQ(d::stringValue(mask), std::string(SidLabelBindingFlags::kestFlagNames[k]) + "BitMask") << k;
    }
}

TEST(SidLabelBindingFlagsBitsMask, NamesNumbersAndText) {
    using M = d::SidLabelBindingFlagsBitsMask;
    EXPECT_EQ(d::addressFamilyBitMask, 0x80u);
    EXPECT_EQ(d::mirrorContextBitMask, 0x40u);
    EXPECT_EQ(d::floodBitMask, 0x20u);
    EXPECT_EQ(d::leakedBitMask, 0x10u);
    EXPECT_EQ(d::attachedBitMask, 0x08u);
    EXPECT_EQ(d::SidLabelBindingFlagsBitsMaskInstance(0x20u), d::floodBitMask);
    EXPECT_EQ(d::SidLabelBindingFlagsBitsMaskInstance(Poldo::String("leakedBitMask")), d::leakedBitMask);
    EXPECT_THROW(d::SidLabelBindingFlagsBitsMaskInstance(0x04u), Kest::RangeException);
    EXPECT_THROW(d::SidLabelBindingFlagsBitsMaskInstance(0u), Kest::RangeException);
    EXPECT_THROW(d::SidLabelBindingFlagsBitsMaskInstance(Poldo::String("flood")), Kest::ParseException);
    EXPECT_EQ(d::stringValue(d::mirrorContextBitMask), "mirrorContextBitMask");
    EXPECT_EQ(d::stringValue(static_cast<M>(3)), "3");
    EXPECT_EQ(text(d::attachedBitMask), "attachedBitMask");
    EXPECT_EQ(Kest::strep(d::addressFamilyBitMask), "addressFamilyBitMask");

    Kest::CharRange r(std::string_view("attachedBitMask, rest"));
    M out = d::floodBitMask;
    EXPECT_EQ(d::sequenceToValue(r, &out), d::attachedBitMask);
    EXPECT_EQ(out, d::attachedBitMask);
    EXPECT_EQ(r.rest(), ", rest");
    Kest::CharRange none(std::string_view("leakedBitMask"));
    EXPECT_EQ(d::sequenceToValue(none, nullptr), d::leakedBitMask);
    Kest::CharRange bad(std::string_view("leakedBit"));
    EXPECT_THROW(d::sequenceToValue(bad, &out), Kest::ParseException);
    EXPECT_EQ(out, d::attachedBitMask);  // untouched by the failed read
    EXPECT_EQ(parse<M>("floodBitMask"), d::floodBitMask);
    EXPECT_THROW(parse<M>("floodBitMask "), Kest::ParseException);
    for (const M m : {d::addressFamilyBitMask, d::mirrorContextBitMask, d::floodBitMask, d::leakedBitMask,
                      d::attachedBitMask}) {
        EXPECT_EQ(parse<M>(text(m)), m);
        EXPECT_EQ(d::SidLabelBindingFlagsBitsMaskInstance(static_cast<unsigned>(m)), m);
    }
}

}  // namespace
