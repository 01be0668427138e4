#include "IsisDecoder/Frame.h"

namespace Routing::IsisDecoder {

namespace {

using Status = FrameResult::Status;
using Bytes = std::span<const std::uint8_t>;

constexpr std::uint16_t ethP8022 = 0x0004;  // Linux cooked: an 802.2 LLC frame follows
constexpr std::uint16_t maxLength8023 = 1500;
constexpr std::size_t llcLength = 3;

std::uint16_t be16(Bytes b, std::size_t at) noexcept {
    return static_cast<std::uint16_t>(b[at] << 8 | b[at + 1]);
}

bool isVlanTagType(std::uint16_t type) noexcept {
    return type == 0x8100 || type == 0x88a8 || type == 0x9100;
}

FrameResult result(Status s, Bytes pdu = {}) noexcept {
    return FrameResult{s, pdu};
}

// `llc` starts at the LLC header and holds the PDU and whatever follows it.
FrameResult afterLlc(Bytes llc) noexcept {
    if (llc.size() < llcLength) {
        return result(Status::truncated);
    }
    if (llc[0] != 0xFE || llc[1] != 0xFE || llc[2] != 0x03) {
        return result(Status::notIsis);
    }
    if (llc.size() == llcLength) {
        return result(Status::badLength);
    }
    return result(Status::isis, llc.subspan(llcLength));
}

// `at` points at an Ethernet type/length field; VLAN tags are skipped one by one.
FrameResult fromTypeLength(Bytes frame, std::size_t at) noexcept {
    for (;;) {
        if (frame.size() < at + 2) {
            return result(Status::truncated);
        }
        const std::uint16_t typeLength = be16(frame, at);
        if (isVlanTagType(typeLength)) {
            at += 4;  // tag protocol identifier and tag control information
            continue;
        }
        if (typeLength > maxLength8023) {
            return result(Status::notIsis);  // an EtherType: IS-IS has none
        }
        const Bytes payload = frame.subspan(at + 2);
        const FrameResult r = afterLlc(payload);
        if (!r.isIsis()) {
            return r;
        }
        if (typeLength > payload.size() || typeLength <= llcLength) {
            return result(Status::badLength);
        }
        // The length covers LLC and PDU; what lies beyond is padding.
        return result(Status::isis, payload.subspan(llcLength, typeLength - llcLength));
    }
}

// Linux cooked captures carry the protocol in a field of their own.
FrameResult fromCookedProtocol(Bytes frame, std::size_t headerLength, std::size_t protocolAt) noexcept {
    if (frame.size() < headerLength) {
        return result(Status::truncated);
    }
    const std::uint16_t protocol = be16(frame, protocolAt);
    if (protocol == ethP8022) {
        return afterLlc(frame.subspan(headerLength));
    }
    if (isVlanTagType(protocol)) {
        return fromTypeLength(frame, headerLength + 2);  // past the tag control information
    }
    return result(Status::notIsis);
}

}  // namespace

bool linkTypeSupported(std::uint32_t linkType) noexcept {
    switch (static_cast<LinkType>(linkType)) {
        case LinkType::ethernet:
        case LinkType::linuxSll:
        case LinkType::linuxSll2:
            return true;
    }
    return false;
}

const char* frameStatusName(FrameResult::Status s) noexcept {
    switch (s) {
        case Status::isis:
            return "isis";
        case Status::notIsis:
            return "notIsis";
        case Status::truncated:
            return "truncated";
        case Status::badLength:
            return "badLength";
        case Status::unsupportedLinkType:
            return "unsupportedLinkType";
    }
    return "unknown";
}

FrameResult isisPduOfFrame(std::uint32_t linkType, std::span<const std::uint8_t> frame) noexcept {
    switch (static_cast<LinkType>(linkType)) {
        case LinkType::ethernet:
            return fromTypeLength(frame, 12);  // after destination and source MAC
        case LinkType::linuxSll:
            return fromCookedProtocol(frame, 16, 14);
        case LinkType::linuxSll2:
            return fromCookedProtocol(frame, 20, 0);
    }
    return result(Status::unsupportedLinkType);
}

PduKind pduKind(std::span<const std::uint8_t> pdu) noexcept {
    if (pdu.size() < 5 || pdu[0] != 0x83) {
        return PduKind::other;
    }
    switch (pdu[4] & 0x1F) {
        case 18:
        case 20:
            return PduKind::lsp;
        case 15:
        case 16:
        case 17:
            return PduKind::hello;
        case 24:
        case 25:
        case 26:
        case 27:
            return PduKind::snp;
        default:
            return PduKind::other;
    }
}

unsigned lspLevel(std::span<const std::uint8_t> pdu) noexcept {
    if (pduKind(pdu) != PduKind::lsp) {
        return 0;
    }
    return (pdu[4] & 0x1F) == 18 ? 1 : 2;
}

}  // namespace Routing::IsisDecoder
