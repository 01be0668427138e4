// The flag sets of the database: node, SR capability, prefix and SID/label
// binding flags, and the record of which TE attributes a neighbor carries.
//
// The binding flags and the neighbor's attribute record are nested in their
// owners (SidLabelBinding::SidLabelBindingFlags, Neighbor::NeighborAttrsPresent);
// they are defined here, in detail, so that every flag set sits in one place,
// and the owners name them.
#pragma once

#include <cstdint>
#include <ostream>
#include <string_view>

#include "IgpCommon/framework/DenseBoolSet.h"
#include "IgpCommon/framework/String.h"
#include "IgpCommon/framework/Text.h"

namespace Routing::IgpCommon {

/// The overload and attached bits of an LSP (ISO 10589 9.9: LSP header flags).
class NodeFlags : public Kest::DenseBoolSet<NodeFlags, 2> {
public:
    using DenseBoolSet::DenseBoolSet;
    static constexpr const char kestTypeName[] = "Routing::IgpCommon::NodeFlags";
    KEST_FLAGS(overloadBit, attachedBit)
};

/// The MPLS data planes of the SR capabilities sub-TLV (RFC 8667 3.1: I and V flags).
class SrCapabilityFlags : public Kest::DenseBoolSet<SrCapabilityFlags, 2> {
public:
    using DenseBoolSet::DenseBoolSet;
    static constexpr const char kestTypeName[] = "Routing::IgpCommon::SrCapabilityFlags";
    KEST_FLAGS(mplsIpv4, mplsIpv6)
};

/// The IS-IS up/down bit of a prefix (RFC 5305 4). Its text form is the bare boolean.
class PrefixFlags : public Kest::DenseBoolSet<PrefixFlags, 1> {
public:
    using DenseBoolSet::DenseBoolSet;
    static constexpr const char kestTypeName[] = "Routing::IgpCommon::PrefixFlags";
    KEST_FLAGS(isisDown)
};

namespace detail {

/// The flags of a SID/label binding (RFC 8667 2.4). Internal bit k is the k-th
/// flag; in the protocol's flags octet the first flag is the most significant
/// bit, so the two run in opposite directions (see SidLabelBindingFlagsBitsMask).
class SidLabelBindingFlags : public Kest::DenseBoolSet<SidLabelBindingFlags, 5> {
public:
    using DenseBoolSet::DenseBoolSet;
    static constexpr const char kestTypeName[] = "Routing::IgpCommon::SidLabelBinding::SidLabelBindingFlags";
    KEST_FLAGS(addressFamily, mirrorContext, flood, leaked, attached)

    /// The flags named by a protocol flags octet (bits outside the five flags are ignored).
    static SidLabelBindingFlags fromProtocolOctet(std::uint8_t octet) noexcept;
    /// The protocol flags octet of these flags.
    std::uint8_t protocolOctet() const noexcept;
};

/// The masks of the binding flags in the protocol's flags octet.
enum SidLabelBindingFlagsBitsMask : std::uint32_t {
    addressFamilyBitMask = 0x80,
    mirrorContextBitMask = 0x40,
    floodBitMask = 0x20,
    leakedBitMask = 0x10,
    attachedBitMask = 0x08,
};

const Kest::EnumTable& sidLabelBindingFlagsBitsMaskTable() noexcept;
SidLabelBindingFlagsBitsMask SidLabelBindingFlagsBitsMaskInstance(unsigned value);
SidLabelBindingFlagsBitsMask SidLabelBindingFlagsBitsMaskInstance(const Poldo::String& name);
Poldo::String stringValue(SidLabelBindingFlagsBitsMask v);
std::ostream& operator<<(std::ostream& os, SidLabelBindingFlagsBitsMask v);
SidLabelBindingFlagsBitsMask sequenceToValue(Kest::CharRange& r, SidLabelBindingFlagsBitsMask* out);

/// Which optional TE attributes a neighbor's LSP carried.
class NeighborAttrsPresent : public Kest::DenseBoolSet<NeighborAttrsPresent, 7> {
public:
    using DenseBoolSet::DenseBoolSet;
    static constexpr const char kestTypeName[] = "Routing::IgpCommon::Neighbor::NeighborAttrsPresent";
    KEST_FLAGS(adminGroup, maxLinkBw, maxReserveLinkBw, unreservedBw, extAdminGroup, teDefMetric, srlgValues)
};

}  // namespace detail

// The bit-mask enumeration's functions, callable by their own names (an
// unsigned or a string argument finds nothing in `detail` by itself).
using detail::SidLabelBindingFlagsBitsMaskInstance;
using detail::sidLabelBindingFlagsBitsMaskTable;

}  // namespace Routing::IgpCommon
