// Shared-risk link groups: TLVs 138 (RFC 5307 1.4) and 139 (RFC 6119 4.3).

#include <algorithm>

#include "LspDecoder.h"

namespace Routing::IsisDecoder::detail {

// RFC 5307 1.4: neighbor, flags (bit 0: numbered), local and remote
// address or link identifiers, then 4-octet SRLGs.
void LspDecoder::srlgV4(Item& it) {
    Cursor& v = it.value;
    if (v.remaining() < 16 || (v.remaining() - 16) % 4 != 0) {
        fail(Reason::badLength, Tlv::srlg, it.start, "SRLG TLV length not 16 + 4k");
    }
    const auto neighbor = IC::IgpNodeId::fromBytes(v.bytes(7));
    const bool numbered = (v.u8() & 0x01) != 0;
    const auto local = readV4(v);
    v.skip(4);
    if (!numbered) {
        // Link identifiers, not addresses: the record would be filed
        // under the empty address, which every link without an IPv4
        // address folds. The SRLGs go onto the neighbor's links without
        // addresses instead, once the whole LSP is read.
        UnnumberedSrlg u{neighbor, {}};
        while (!v.empty()) {
            u.values.push_back(v.u32());
        }
        unnumberedSrlgs_.push_back(std::move(u));
        return;
    }
    const auto rec = content_->parsedSrLgIs(Lumo::IpGenAddr(local));
    while (!v.empty()) {
        rec->srlgValueIs(v.u32());
    }
}

// RFC 6119 4.3: neighbor, flags (NA: a neighbor address follows), local
// IPv6 address, optional neighbor address, then 4-octet SRLGs.
void LspDecoder::srlgV6(Item& it) {
    Cursor& v = it.value;
    v.need(24, Reason::badLength, it.start, "IPv6 SRLG TLV too short");
    v.skip(7);
    const bool hasNeighbor = (v.u8() & 0x01) != 0;
    const auto local = readV6(v);
    if (hasNeighbor) {
        v.need(16, Reason::badLength, it.start, "IPv6 SRLG TLV too short for its neighbor address");
        v.skip(16);
    }
    if (v.remaining() % 4 != 0) {
        fail(Reason::badLength, Tlv::ipv6Srlg, it.start, "IPv6 SRLG values not a multiple of 4 octets");
    }
    const auto rec = content_->parsedSrLgIs(Lumo::IpGenAddr(local));
    while (!v.empty()) {
        rec->srlgValueIs(v.u32());
    }
}

void LspDecoder::attachUnnumberedSrlgs() {
    const auto attach = [](IC::Neighbor& n, const std::vector<std::uint32_t>& values) {
        auto present = n.attrsPresent();
        present.srlgValuesIs(true);
        n.attrsPresentIs(present);
        for (const std::uint32_t v : values) {
            n.srlgValuesIs(v);
        }
    };
    for (const auto& u : unnumberedSrlgs_) {
        // The links to that neighbor without addresses; when it has none (the
        // link identifiers name a link the key cannot tell from the numbered
        // ones), every link to that neighbor, so that no SRLG is lost.
        bool addressless = false;
        for (const auto& n : content_->neighbor()) {
            addressless = addressless || (n->key().nodeId() == u.neighbor && n->key().addressesEmpty());
        }
        for (const auto& n : content_->neighbor()) {
            if (n->key().nodeId() == u.neighbor && (!addressless || n->key().addressesEmpty())) {
                attach(*n, u.values);
            }
        }
    }
}

}  // namespace Routing::IsisDecoder::detail

namespace Routing::IsisDecoder {

// The same records as srlgV4() and srlgV6() file, read by the same rules:
// the keeper indexes a held fragment's SRLG records this way rather than
// decoding the whole fragment again. Lengths are checked as if the octets
// had not been accepted before.
std::span<const Lumo::IpGenAddr> srlgAddresses(std::span<const std::uint8_t> pdu,
                                               DecodeWorkspace& workspace) {
    using detail::headerLength;
    std::vector<Lumo::IpGenAddr>& out = workspace.srlgAddrs_;
    out.clear();
    if (pdu.size() < headerLength) {
        return out;
    }
    const std::size_t end = std::min<std::size_t>(pdu.size(), (std::size_t{pdu[8]} << 8) | pdu[9]);
    std::size_t at = headerLength;
    while (at + 2 <= end) {
        const std::uint8_t type = pdu[at];
        const std::size_t len = pdu[at + 1];
        const std::uint8_t* v = pdu.data() + at + 2;
        if (at + 2 + len > end) {
            return out;
        }
        at += 2 + len;
        if (type == Tlv::srlg) {
            // RFC 5307 1.4: unnumbered records go onto links, not under an address.
            if (len >= 16 && (len - 16) % 4 == 0 && (v[7] & 0x01) != 0) {
                out.emplace_back(Lumo::IpAddr::fromBytes(v + 8));
            }
        } else if (type == Tlv::ipv6Srlg && len >= 24) {
            // RFC 6119 4.3: a neighbor address follows the local one when NA is set.
            const std::size_t values = (v[7] & 0x01) != 0 ? 40 : 24;
            if (len >= values && (len - values) % 4 == 0) {
                out.emplace_back(Lumo::Ip6Addr::fromBytes(v + 8));
            }
        }
    }
    return out;
}

}  // namespace Routing::IsisDecoder
