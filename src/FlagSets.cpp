#include "IgpCommon/FlagSets.h"

namespace Routing::IgpCommon::detail {

namespace {

// Internal bit k pairs with the protocol mask of the flag of the same name.
constexpr std::uint8_t protocolMasks[] = {addressFamilyBitMask, mirrorContextBitMask, floodBitMask,
                                          leakedBitMask, attachedBitMask};

}  // namespace

SidLabelBindingFlags SidLabelBindingFlags::fromProtocolOctet(std::uint8_t octet) noexcept {
    unsigned raw = 0;
    for (unsigned k = 0; k < 5; ++k) {
        if (octet & protocolMasks[k]) {
            raw |= 1u << k;
        }
    }
    return SidLabelBindingFlags(static_cast<unsigned char>(raw));
}

std::uint8_t SidLabelBindingFlags::protocolOctet() const noexcept {
    unsigned octet = 0;
    for (unsigned k = 0; k < 5; ++k) {
        if (bit(k)) {
            octet |= protocolMasks[k];
        }
    }
    return static_cast<std::uint8_t>(octet);
}

const Kest::EnumTable& sidLabelBindingFlagsBitsMaskTable() noexcept {
    static constexpr Kest::EnumEntry entries[] = {
        {"addressFamilyBitMask", addressFamilyBitMask},
        {"mirrorContextBitMask", mirrorContextBitMask},
        {"floodBitMask", floodBitMask},
        {"leakedBitMask", leakedBitMask},
        {"attachedBitMask", attachedBitMask},
    };
    static constexpr Kest::EnumTable t{"Routing::IgpCommon::SidLabelBinding::SidLabelBindingFlagsBitsMask",
                                       entries};
    return t;
}

SidLabelBindingFlagsBitsMask SidLabelBindingFlagsBitsMaskInstance(unsigned value) {
    return Kest::enumInstance<SidLabelBindingFlagsBitsMask>(sidLabelBindingFlagsBitsMaskTable(), value);
}
SidLabelBindingFlagsBitsMask SidLabelBindingFlagsBitsMaskInstance(const Poldo::String& name) {
    return Kest::enumInstance<SidLabelBindingFlagsBitsMask>(sidLabelBindingFlagsBitsMaskTable(), name);
}
Poldo::String stringValue(SidLabelBindingFlagsBitsMask v) {
    return sidLabelBindingFlagsBitsMaskTable().nameOf(v);
}
std::ostream& operator<<(std::ostream& os, SidLabelBindingFlagsBitsMask v) {
    return os << stringValue(v);
}
SidLabelBindingFlagsBitsMask sequenceToValue(Kest::CharRange& r, SidLabelBindingFlagsBitsMask* out) {
    return Kest::enumRead(sidLabelBindingFlagsBitsMaskTable(), r, out);
}

}  // namespace Routing::IgpCommon::detail
