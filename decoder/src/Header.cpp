// The fixed header of an LSP PDU (ISO 10589 9.9), the decoder's entry points
// and its error texts.
#include <cstdio>
#include <cstring>

#include "LspDecoder.h"

namespace Routing::IsisDecoder {

namespace detail {

namespace {

std::uint16_t be16(const std::uint8_t* p) noexcept {
    return static_cast<std::uint16_t>((p[0] << 8) | p[1]);
}

}  // namespace

void failWith(Reason r, std::uint8_t tlv, std::size_t offset, const char* detail) {
    fail(r, tlv, offset, detail);
}

LspHeader readHeader(std::span<const std::uint8_t> pdu) {
    if (pdu.size() < headerLength) {
        fail(Reason::truncatedHeader, 0, pdu.size(),
             "LSP header truncated at " + std::to_string(pdu.size()) + " octets");
    }
    const std::uint8_t* p = pdu.data();
    if (p[0] != 0x83) {
        fail(Reason::badHeader, 0, 0, "not an IS-IS PDU (discriminator)");
    }
    if (p[1] != headerLength) {
        fail(Reason::badHeader, 0, 1, "header length indicator is not 27");
    }
    if (p[2] != 1) {
        fail(Reason::badHeader, 0, 2, "protocol version is not 1");
    }
    if (p[3] != 0 && p[3] != 6) {
        fail(Reason::badHeader, 0, 3, "ID length is not 0 or 6");
    }
    const std::uint8_t type = p[4] & 0x1F;
    if (type != PduType::level1Lsp && type != PduType::level2Lsp) {
        fail(Reason::badHeader, 0, 4, "PDU type is not an LSP");
    }
    if (p[5] != 1) {
        fail(Reason::badHeader, 0, 5, "version is not 1");
    }
    LspHeader h;
    h.level = type == PduType::level1Lsp ? 1 : 2;
    h.maxAreaAddresses = p[7];
    h.pduLength = be16(p + 8);
    if (h.pduLength < headerLength) {
        fail(Reason::badPduLength, 0, 8, "PDU length below the header length");
    }
    if (h.pduLength > pdu.size()) {
        fail(Reason::truncatedPdu, 0, 8,
             "PDU length " + std::to_string(h.pduLength) + " > " + std::to_string(pdu.size()) +
                 " octets present");
    }
    h.remainingLifetime = be16(p + 10);
    std::memcpy(h.systemId.data(), p + 12, 6);
    h.pseudonode = p[18];
    h.fragment = p[19];
    h.sequenceNumber =
        (std::uint32_t{p[20]} << 24) | (std::uint32_t{p[21]} << 16) | (std::uint32_t{p[22]} << 8) | p[23];
    h.checksum = be16(p + 24);
    h.flags = p[26];
    return h;
}

}  // namespace detail

using namespace detail;

IC::IgpNodeId LspHeader::nodeId() const noexcept {
    std::uint8_t seven[7];
    std::memcpy(seven, systemId.data(), 6);
    seven[6] = pseudonode;
    return IC::IgpNodeId::fromBytes(seven);
}

std::string LspHeader::lspIdText() const {
    char buf[24];
    std::snprintf(buf, sizeof buf, "%02x%02x.%02x%02x.%02x%02x.%02x-%02x", systemId[0], systemId[1],
                  systemId[2], systemId[3], systemId[4], systemId[5], pseudonode, fragment);
    return buf;
}

const char* reasonName(DecodeError::Reason r) noexcept {
    switch (r) {
        case Reason::truncatedHeader:
            return "truncated header";
        case Reason::badHeader:
            return "bad header";
        case Reason::badPduLength:
            return "bad PDU length";
        case Reason::truncatedPdu:
            return "truncated PDU";
        case Reason::badChecksum:
            return "checksum error";
        case Reason::tlvOverrun:
            return "TLV overrun";
        case Reason::subTlvOverrun:
            return "sub-TLV overrun";
        case Reason::truncatedEntry:
            return "truncated entry";
        case Reason::badLength:
            return "bad length";
        case Reason::badPrefixLength:
            return "bad prefix length";
        case Reason::badSidLength:
            return "bad SID length";
    }
    return "unknown";
}

std::string DecodeError::message() const {
    std::string m = reasonName(reason);
    if (tlv != 0) {
        m += " in TLV " + std::to_string(tlv);
    }
    m += " at offset " + std::to_string(offset);
    if (!detail.empty()) {
        m += ": " + detail;
    }
    return m;
}

std::optional<LspHeader> decodeLspHeader(std::span<const std::uint8_t> pdu) {
    try {
        return readHeader(pdu);
    } catch (const Failure&) {
        return std::nullopt;
    }
}

// The content exists from the start, so that a workspace holds one content
// whatever it decoded or rejected.
DecodeWorkspace::DecodeWorkspace() : content_(IC::isisLspParsedContentFactory()) {}

void DecodeWorkspace::release() {
    if (content_ && content_->useCount() == 1) {  // a moved-from workspace holds none
        content_->recycle(static_cast<std::uint32_t>(content_->neighbor().size()),
                          static_cast<std::uint32_t>(content_->prefix().size()),
                          static_cast<std::uint32_t>(content_->parsedSrLg().size()));
    }
}

DecodeResult decodeLspContent(std::span<const std::uint8_t> pdu, DecodeWorkspace& workspace) {
    try {
        const LspHeader h = readHeader(pdu);
        const auto body = pdu.first(h.pduLength);
        if (!lspChecksumAccepted(h, body)) {
            fail(Reason::badChecksum, 0, 24, "checksum does not verify");
        }
        LspDecoder d(body.data(), h, workspace);
        auto content = d.run();
        return DecodedLsp{h, content, {}};
    } catch (const Failure& f) {
        return f.error;
    }
}

DecodeResult decodeLsp(std::span<const std::uint8_t> pdu, DecodeWorkspace& workspace) {
    DecodeResult r = decodeLspContent(pdu, workspace);
    if (r) {
        const auto body = pdu.first(r.lsp().header.pduLength);
        r.lsp().octets.assign(body.begin(), body.end());
    }
    return r;
}

DecodeResult decodeLsp(std::span<const std::uint8_t> pdu) {
    DecodeWorkspace workspace;
    return decodeLsp(pdu, workspace);
}

Poldo::Ptr<IC::IsisLspParsedContent> decodeAcceptedParts(std::span<const std::uint8_t> pdu, unsigned parts,
                                                         DecodeWorkspace& workspace) {
    try {
        const LspHeader h = readHeader(pdu);
        LspDecoder d(pdu.data(), h, workspace, parts);
        return d.run();
    } catch (const Failure&) {
        return nullptr;
    }
}

Poldo::Ptr<IC::IsisLspParsedContent> decodeAcceptedParts(std::span<const std::uint8_t> pdu, unsigned parts) {
    DecodeWorkspace workspace;
    return decodeAcceptedParts(pdu, parts, workspace);
}

Poldo::Ptr<IC::IsisLspParsedContent> decodeAcceptedLsp(std::span<const std::uint8_t> pdu,
                                                       DecodeWorkspace& workspace) {
    return decodeAcceptedParts(pdu, allParts, workspace);
}

Poldo::Ptr<IC::IsisLspParsedContent> decodeAcceptedLsp(std::span<const std::uint8_t> pdu) {
    DecodeWorkspace workspace;
    return decodeAcceptedLsp(pdu, workspace);
}

}  // namespace Routing::IsisDecoder
