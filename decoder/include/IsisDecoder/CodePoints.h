// The IS-IS code points the decoder reads: LSP PDU types, TLVs and their
// sub-TLVs, each beside the section that defines it.
#pragma once

#include <cstdint>

namespace Routing::IsisDecoder {

/// PDU types: the low five bits of the common header's octet 4.
namespace PduType {
inline constexpr std::uint8_t level1Lsp = 18;  // ISO 10589 9.8
inline constexpr std::uint8_t level2Lsp = 20;  // ISO 10589 9.9
}  // namespace PduType

/// TLVs of an LSP.
namespace Tlv {
inline constexpr std::uint8_t areaAddresses = 1;             // ISO 10589 9.9
inline constexpr std::uint8_t isNeighbors = 2;               // ISO 10589 9.9, narrow metrics
inline constexpr std::uint8_t extendedIsReachability = 22;   // RFC 5305 3
inline constexpr std::uint8_t ipInternalReachability = 128;  // RFC 1195 5
inline constexpr std::uint8_t ipExternalReachability = 130;  // RFC 1195 5
inline constexpr std::uint8_t teRouterId = 134;              // RFC 5305 4.3
inline constexpr std::uint8_t extendedIpReachability = 135;  // RFC 5305 4
inline constexpr std::uint8_t hostName = 137;                // RFC 5301 3
inline constexpr std::uint8_t srlg = 138;                    // RFC 5307 1.4
inline constexpr std::uint8_t ipv6Srlg = 139;                // RFC 6119 4.3
inline constexpr std::uint8_t ipv6TeRouterId = 140;          // RFC 6119 4.1
inline constexpr std::uint8_t sidLabelBinding = 149;         // RFC 8667 2.4
inline constexpr std::uint8_t mtSidLabelBinding = 150;       // RFC 8667 2.5
inline constexpr std::uint8_t mtIsReachability = 222;        // RFC 5120 7.2
inline constexpr std::uint8_t multiTopology = 229;           // RFC 5120 7.1
inline constexpr std::uint8_t mtIpReachability = 235;        // RFC 5120 7.3
inline constexpr std::uint8_t ipv6Reachability = 236;        // RFC 5308 2
inline constexpr std::uint8_t mtIpv6Reachability = 237;      // RFC 5120 7.4
inline constexpr std::uint8_t routerCapability = 242;        // RFC 7981 2
}  // namespace Tlv

/// Sub-TLVs of an IS reachability entry (TLVs 22, 222).
namespace LinkSubTlv {
inline constexpr std::uint8_t adminGroup = 3;               // RFC 5305 3.1
inline constexpr std::uint8_t linkIdentifiers = 4;          // RFC 5307 1.1
inline constexpr std::uint8_t ipv4InterfaceAddress = 6;     // RFC 5305 3.2
inline constexpr std::uint8_t ipv4NeighborAddress = 8;      // RFC 5305 3.3
inline constexpr std::uint8_t maxLinkBandwidth = 9;         // RFC 5305 3.4
inline constexpr std::uint8_t maxReservableBandwidth = 10;  // RFC 5305 3.5
inline constexpr std::uint8_t unreservedBandwidth = 11;     // RFC 5305 3.6
inline constexpr std::uint8_t ipv6InterfaceAddress = 12;    // RFC 6119 4.2
inline constexpr std::uint8_t ipv6NeighborAddress = 13;     // RFC 6119 4.3
inline constexpr std::uint8_t extendedAdminGroup = 14;      // RFC 7308 2
inline constexpr std::uint8_t teDefaultMetric = 18;         // RFC 5305 3.7
inline constexpr std::uint8_t adjacencySid = 31;            // RFC 8667 2.2.1
inline constexpr std::uint8_t lanAdjacencySid = 32;         // RFC 8667 2.2.2
inline constexpr std::uint8_t unidirLinkDelay = 33;         // RFC 8570 4.1
}  // namespace LinkSubTlv

/// Sub-TLVs of an IP reachability entry (TLVs 135, 235, 236, 237).
namespace PrefixSubTlv {
inline constexpr std::uint8_t prefixSid = 3;             // RFC 8667 2.1
inline constexpr std::uint8_t flexAlgoPrefixMetric = 6;  // RFC 9350 8.1
}  // namespace PrefixSubTlv

/// Sub-TLVs of a SID/label binding (TLVs 149, 150) and of an SR block.
namespace SidSubTlv {
inline constexpr std::uint8_t sidLabel = 1;   // RFC 8667 2.3
inline constexpr std::uint8_t prefixSid = 3;  // RFC 8667 2.1
}  // namespace SidSubTlv

/// Sub-TLVs of the router capability (TLV 242).
namespace CapabilitySubTlv {
inline constexpr std::uint8_t srCapabilities = 2;       // RFC 8667 3.1
inline constexpr std::uint8_t srLocalBlock = 22;        // RFC 8667 3.3
inline constexpr std::uint8_t nodeMsd = 23;             // RFC 8491 3
inline constexpr std::uint8_t flexAlgoDefinition = 26;  // RFC 9350 5.1
}  // namespace CapabilitySubTlv

/// Sub-TLVs of a flex-algo definition.
namespace FadSubTlv {
inline constexpr std::uint8_t excludeAdminGroup = 1;     // RFC 9350 6.1
inline constexpr std::uint8_t includeAnyAdminGroup = 2;  // RFC 9350 6.2
inline constexpr std::uint8_t includeAllAdminGroup = 3;  // RFC 9350 6.3
inline constexpr std::uint8_t excludeSrlg = 5;           // RFC 9350 6.5
}  // namespace FadSubTlv

}  // namespace Routing::IsisDecoder
