// The walk over an LSP's TLVs and the dispatch to each family.

#include "LspDecoder.h"

namespace Routing::IsisDecoder::detail {

Poldo::Ptr<IC::IsisLspParsedContent> LspDecoder::run() {
    content_ = IC::isisLspParsedContentFactory();
    node_ = IC::nodeFactory(h_.nodeId());
    content_->nodeIs(node_);
    IC::NodeFlags flags;
    flags.overloadBitIs(h_.overload());
    flags.attachedBitIs(h_.attached());
    node_->flagsIs(flags);

    Cursor all(pdu_, headerLength, h_.pduLength, 0);
    while (!all.empty()) {
        const std::size_t start = all.pos();
        const std::uint8_t type = pdu_[start];
        if (all.remaining() < 2) {
            fail(Reason::tlvOverrun, type, start, "TLV length octet missing");
        }
        const std::uint8_t len = pdu_[start + 1];
        all.skip(2);
        if (all.remaining() < len) {
            fail(Reason::tlvOverrun, type, start,
                 "TLV " + std::to_string(type) + " length " + std::to_string(len) + " runs past the PDU end");
        }
        Item it{type, start, Cursor(pdu_, start + 2, start + 2 + len, type)};
        all.skip(len);
        decodeTlv(it);
    }
    finish();
    return content_;
}

// Which part of the content a TLV fills.
unsigned LspDecoder::partOf(std::uint8_t type) noexcept {
    switch (type) {
        case Tlv::isNeighbors:
        case Tlv::extendedIsReachability:
        case Tlv::mtIsReachability:
        case Tlv::srlg:
        case Tlv::ipv6Srlg:
            return linksPart;
        case Tlv::ipInternalReachability:
        case Tlv::ipExternalReachability:
        case Tlv::extendedIpReachability:
        case Tlv::mtIpReachability:
        case Tlv::ipv6Reachability:
        case Tlv::mtIpv6Reachability:
        case Tlv::sidLabelBinding:
        case Tlv::mtSidLabelBinding:
            return prefixesPart;
        default:
            return nodePart;
    }
}

void LspDecoder::decodeTlv(Item& it) {
    if (parts_ != allParts && (parts_ & partOf(it.type)) == 0) {
        return;
    }
    switch (it.type) {
        case Tlv::areaAddresses:
            areas(it);
            break;
        case Tlv::isNeighbors:
            narrowNeighbors(it);
            break;
        case Tlv::extendedIsReachability:
            wideNeighbors(it, IC::IgpMultiTopologyId(0));
            break;
        case Tlv::mtIsReachability:
            wideNeighbors(it, readMtId(it));
            break;
        case Tlv::ipInternalReachability:
        case Tlv::ipExternalReachability:
            narrowPrefixes(it);
            break;
        case Tlv::extendedIpReachability:
            v4Prefixes(it, IC::IgpMultiTopologyId(0));
            break;
        case Tlv::mtIpReachability:
            v4Prefixes(it, readMtId(it));
            break;
        case Tlv::ipv6Reachability:
            v6Prefixes(it, IC::IgpMultiTopologyId(0));
            break;
        case Tlv::mtIpv6Reachability:
            v6Prefixes(it, readMtId(it));
            break;
        case Tlv::teRouterId:
            teRouterId(it);
            break;
        case Tlv::hostName:
            hostName(it);
            break;
        case Tlv::srlg:
            srlgV4(it);
            break;
        case Tlv::ipv6Srlg:
            srlgV6(it);
            break;
        case Tlv::ipv6TeRouterId:
            teRouterIdV6(it);
            break;
        case Tlv::sidLabelBinding:
            binding(it, IC::IgpMultiTopologyId(0));
            break;
        case Tlv::mtSidLabelBinding:
            binding(it, readMtId(it));
            break;
        case Tlv::multiTopology:
            topologies(it);
            break;
        case Tlv::routerCapability:
            routerCapability(it);
            break;
        default:
            break;  // unknown or not modelled: skipped by length
    }
}

// RFC 5120 7.2: four reserved bits, then the 12-bit topology.
IC::IgpMultiTopologyId LspDecoder::readMtId(Item& it) {
    it.value.need(2, Reason::badLength, it.start, "no room for the MT ID");
    return IC::IgpMultiTopologyId(static_cast<std::uint16_t>(it.value.u16() & 0x0FFF));
}

}  // namespace Routing::IsisDecoder::detail
