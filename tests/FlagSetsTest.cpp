// The flag sets: raw range, algebra, named accessors, text forms, and the binding flags' protocol octet.
#include "IgpCommon/FlagSets.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/TextHelpers.h"

namespace {

using Routing::IgpCommon::NodeFlags;
using Routing::IgpCommon::PrefixFlags;
using Routing::IgpCommon::SrCapabilityFlags;
using Routing::IgpCommon::detail::NeighborAttrsPresent;
using Routing::IgpCommon::detail::SidLabelBindingFlags;
namespace d = Routing::IgpCommon::detail;
using testsupport::parse;
using testsupport::text;

/// A flag's named getter and setter.
template <class T>
struct Flag {
    bool (T::*get)() const noexcept;
    void (T::*set)(bool) & noexcept;
};

/// Each type's named accessors in declaration order: the k-th must be bit k.
template <class T>
std::vector<Flag<T>> namedFlags();
template <>
std::vector<Flag<NodeFlags>> namedFlags() {
    return {{&NodeFlags::overloadBit, &NodeFlags::overloadBitIs},
            {&NodeFlags::attachedBit, &NodeFlags::attachedBitIs}};
}
template <>
std::vector<Flag<SrCapabilityFlags>> namedFlags() {
    return {{&SrCapabilityFlags::mplsIpv4, &SrCapabilityFlags::mplsIpv4Is},
            {&SrCapabilityFlags::mplsIpv6, &SrCapabilityFlags::mplsIpv6Is}};
}
template <>
std::vector<Flag<PrefixFlags>> namedFlags() {
    return {{&PrefixFlags::isisDown, &PrefixFlags::isisDownIs}};
}
template <>
std::vector<Flag<SidLabelBindingFlags>> namedFlags() {
    using F = SidLabelBindingFlags;
    return {{&F::addressFamily, &F::addressFamilyIs},
            {&F::mirrorContext, &F::mirrorContextIs},
            {&F::flood, &F::floodIs},
            {&F::leaked, &F::leakedIs},
            {&F::attached, &F::attachedIs}};
}
template <>
std::vector<Flag<NeighborAttrsPresent>> namedFlags() {
    using F = NeighborAttrsPresent;
    return {{&F::adminGroup, &F::adminGroupIs},
            {&F::maxLinkBw, &F::maxLinkBwIs},
            {&F::maxReserveLinkBw, &F::maxReserveLinkBwIs},
            {&F::unreservedBw, &F::unreservedBwIs},
            {&F::extAdminGroup, &F::extAdminGroupIs},
            {&F::teDefMetric, &F::teDefMetricIs},
            {&F::srlgValues, &F::srlgValuesIs}};
}

template <class T>
class FlagSet : public ::testing::Test {};
using AllFlagSets =
    ::testing::Types<NodeFlags, SrCapabilityFlags, PrefixFlags, SidLabelBindingFlags, NeighborAttrsPresent>;
TYPED_TEST_SUITE(FlagSet, AllFlagSets);

TYPED_TEST(FlagSet, EveryValidValueRoundTripsThroughTextAndHashesItsByte) {
    constexpr unsigned max = TypeParam::validMask;
    EXPECT_EQ(max, (1u << TypeParam::flagCount) - 1);
    for (unsigned v = 0; v <= max; ++v) {
        const TypeParam f(static_cast<unsigned char>(v));
        EXPECT_EQ(f.value(), v);
        EXPECT_EQ(static_cast<bool>(f), v != 0);
        EXPECT_EQ(parse<TypeParam>(text(f)).value(), v) << text(f);
        EXPECT_EQ(f.hash(3), Kest::HashState(3).mix8(static_cast<std::uint8_t>(v)).result());
    }
}

TYPED_TEST(FlagSet, RawValueWithABitAboveTheLastFlagIsRefused) {
    const std::string name = TypeParam::kestTypeName;
    const std::string expected = name + "::value < " + name + "::min or > " + name + "::max not allowed";
    for (unsigned v = TypeParam::validMask + 1u; v <= 255; ++v) {
        EXPECT_EQ(
            testsupport::messageOf<Kest::RangeException>([v] { TypeParam(static_cast<unsigned char>(v)); }),
            expected)
            << v;
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

TYPED_TEST(FlagSet, TheKthNamedAccessorReadsAndWritesBitKAlone) {
    const auto flags = namedFlags<TypeParam>();
    ASSERT_EQ(flags.size(), TypeParam::flagCount);
    for (unsigned k = 0; k < flags.size(); ++k) {
        TypeParam one;
        (one.*flags[k].set)(true);
        EXPECT_EQ(one.value(), 1u << k) << k;
        (one.*flags[k].set)(true);  // setting a set flag changes nothing
        EXPECT_EQ(one.value(), 1u << k) << k;
        TypeParam allBut(TypeParam::validMask);
        (allBut.*flags[k].set)(false);
        EXPECT_EQ(allBut.value(), TypeParam::validMask & ~(1u << k)) << k;
        for (unsigned j = 0; j < flags.size(); ++j) {
            EXPECT_EQ((one.*flags[j].get)(), j == k) << k << ' ' << j;
            EXPECT_EQ((allBut.*flags[j].get)(), j != k) << k << ' ' << j;
        }
    }
    TypeParam f;
    f.template flagIs<0>(true);
    EXPECT_TRUE(f.template flag<0>());
    EXPECT_EQ(f.value(), 1u);
}

TEST(FlagSetText, EachTypeListsItsFlagNamesInBitOrderAndPrefixFlagsIsABareBoolean) {
    EXPECT_EQ(text(NodeFlags(2)),
              "Value('Routing::IgpCommon::NodeFlags', ** {'overloadBit': False, 'attachedBit': True})");
    EXPECT_EQ(text(SrCapabilityFlags(1)),
              "Value('Routing::IgpCommon::SrCapabilityFlags', ** {'mplsIpv4': True, 'mplsIpv6': False})");
    EXPECT_EQ(text(NeighborAttrsPresent(NeighborAttrsPresent::teDefMetric_)),
              "Value('Routing::IgpCommon::Neighbor::NeighborAttrsPresent', ** {'adminGroup': False, "
              "'maxLinkBw': False, 'maxReserveLinkBw': False, 'unreservedBw': False, 'extAdminGroup': False, "
              "'teDefMetric': True, 'srlgValues': False})");
    EXPECT_EQ(
        text(SidLabelBindingFlags(4 + 16)),
        "Value('Routing::IgpCommon::SidLabelBinding::SidLabelBindingFlags', ** {'addressFamily': False, "
        "'mirrorContext': False, 'flood': True, 'leaked': False, 'attached': True})");
    EXPECT_EQ(text(PrefixFlags(1)), "True");
    EXPECT_EQ(text(PrefixFlags()), "False");
    for (const char* bad :
         {"Value('Routing::IgpCommon::NodeFlags', ** {'attachedBit': True, 'overloadBit': False})",
          "Value('Routing::IgpCommon::NodeFlags', ** {'overloadBit': False})",
          "Value('Routing::IgpCommon::NodeFlags', ** {'overloadBit': false, 'attachedBit': True})",
          "Value('Routing::IgpCommon::NodeFlags', ** {'overloadBit': 0, 'attachedBit': 1})", "2"}) {
        EXPECT_THROW(parse<NodeFlags>(bad), Kest::ParseException) << bad;
    }
    for (const char* bad :
         {"true", "1", "Value('Routing::IgpCommon::PrefixFlags', ** {'isisDown': True})", "True "}) {
        EXPECT_THROW(parse<PrefixFlags>(bad), Kest::ParseException) << bad;
    }
}

// RFC 8667 2.4: the first flag is the octet's most significant bit; the low three bits are reserved.
TEST(SidLabelBindingFlags, ProtocolOctetRunsOppositeToTheBitsAndIgnoresReservedBits) {
    const SidLabelBindingFlags fa = SidLabelBindingFlags::fromProtocolOctet(0x88);
    EXPECT_TRUE(fa.addressFamily() && fa.attached());
    EXPECT_EQ(fa.value(), 17);
    EXPECT_EQ(fa.protocolOctet(), 0x88);
    EXPECT_EQ(SidLabelBindingFlags::fromProtocolOctet(0x07), SidLabelBindingFlags());
    EXPECT_EQ(SidLabelBindingFlags::fromProtocolOctet(0xff).value(), 31);
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
    const M all[] = {d::addressFamilyBitMask, d::mirrorContextBitMask, d::floodBitMask, d::leakedBitMask,
                     d::attachedBitMask};
    std::string names;
    for (unsigned i = 0; i < 5; ++i) {
        EXPECT_EQ(all[i], 0x80u >> i);
        EXPECT_EQ(parse<M>(text(all[i])), all[i]);
        EXPECT_EQ(Routing::IgpCommon::SidLabelBindingFlagsBitsMaskInstance(static_cast<unsigned>(all[i])),
                  all[i]);
        EXPECT_EQ(Routing::IgpCommon::SidLabelBindingFlagsBitsMaskInstance(d::stringValue(all[i])), all[i]);
        names += Kest::strep(all[i]) + " ";
    }
    EXPECT_EQ(names, "addressFamilyBitMask mirrorContextBitMask floodBitMask leakedBitMask attachedBitMask ");
    EXPECT_THROW(Routing::IgpCommon::SidLabelBindingFlagsBitsMaskInstance(0x04u), Kest::RangeException);
    EXPECT_THROW(Routing::IgpCommon::SidLabelBindingFlagsBitsMaskInstance(0u), Kest::RangeException);
    EXPECT_THROW(Routing::IgpCommon::SidLabelBindingFlagsBitsMaskInstance(Poldo::String("flood")),
                 Kest::ParseException);
    EXPECT_EQ(d::stringValue(static_cast<M>(3)), "3");

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
    EXPECT_THROW(parse<M>("floodBitMask "), Kest::ParseException);
}

}  // namespace
