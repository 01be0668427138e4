// Link-layer framing of captured IS-IS PDUs: finds the PDU inside one captured
// frame of a known link type, so that a capture reader can hand it to the decoder.
//
// IS-IS runs directly over the data link (ISO 10589 8.4.8): on Ethernet in an
// 802.3 frame whose LLC header is DSAP 0xFE, SSAP 0xFE, control 0x03. Handled:
//   - Ethernet (linktype 1): 802.3 length + LLC, after any number of 802.1Q or
//     802.1ad tags; the PDU is cut at the 802.3 length, so padding is dropped;
//   - Linux cooked captures SLL (113) and SLL2 (276), whose protocol field is
//     ETH_P_802_2 (LLC follows) or a VLAN tag type (a tag, then as Ethernet).
// The level is never taken from the destination MAC: the PDU type says it.
#pragma once

#include <cstdint>
#include <span>

namespace Routing::IsisDecoder {

/// The link types (pcap LINKTYPE_ values) that frames are read from.
enum class LinkType : std::uint32_t {
    ethernet = 1,
    linuxSll = 113,
    linuxSll2 = 276,
};

/// Whether a capture's link type is one of LinkType.
bool linkTypeSupported(std::uint32_t linkType) noexcept;

struct FrameResult {
    enum class Status : std::uint8_t {
        isis,                 // `pdu` holds the IS-IS PDU, from its discriminator on
        notIsis,              // another protocol: nothing to do with it
        truncated,            // the frame ends inside its link-layer headers
        badLength,            // the 802.3 length runs past the captured octets, or leaves no PDU
        unsupportedLinkType,  // not one of LinkType
    };

    Status status = Status::notIsis;
    std::span<const std::uint8_t> pdu;

    bool isIsis() const noexcept { return status == Status::isis; }
};

/// "isis", "notIsis", "truncated", "badLength", "unsupportedLinkType".
const char* frameStatusName(FrameResult::Status s) noexcept;

/// The IS-IS PDU carried in `frame`, or why there is none.
FrameResult isisPduOfFrame(std::uint32_t linkType, std::span<const std::uint8_t> frame) noexcept;

/// What an IS-IS PDU is, from its PDU type (ISO 10589 9.5 to 9.13).
enum class PduKind : std::uint8_t { lsp, hello, snp, other };

/// The kind of `pdu` (which starts at the discriminator); `other` when it is
/// too short to tell or of an unknown type.
PduKind pduKind(std::span<const std::uint8_t> pdu) noexcept;

/// 1 or 2 for a level-1 or level-2 LSP, else 0.
unsigned lspLevel(std::span<const std::uint8_t> pdu) noexcept;

}  // namespace Routing::IsisDecoder
