// Node-wide TLVs: area addresses (ISO 10589 9.9), host name (RFC 5301), TE
// router IDs (RFC 5305, 6119), topologies (RFC 5120) and the router
// capability (RFC 7981) with its SR and flex-algo sub-TLVs.

#include "LspDecoder.h"

namespace Routing::IsisDecoder::detail {

// ISO 10589 9.9: area addresses, each a length octet and 1 to 13 octets.
void LspDecoder::areas(Item& it) {
    if (!areas_) {
        areas_ = IC::isisAreaIdColFactory();
    }
    if (it.value.empty()) {
        fail(Reason::badLength, Tlv::areaAddresses, it.start, "empty area address TLV");
    }
    while (!it.value.empty()) {
        const std::size_t at = it.value.pos();
        const std::uint8_t n = it.value.u8();
        if (n == 0 || n > Isis::AreaId::maxLength) {
            fail(Reason::badLength, Tlv::areaAddresses, at, "area address length " + std::to_string(n));
        }
        it.value.need(n, Reason::truncatedEntry, at, "area address runs past the TLV end");
        areas_->areaIdIs(Isis::AreaId::fromBytes(it.value.bytes(n), n), true);
    }
}

// RFC 5301 3: 1 to 255 octets of name.
void LspDecoder::hostName(Item& it) {
    if (it.value.empty()) {
        fail(Reason::badLength, Tlv::hostName, it.start, "empty host name");
    }
    const std::size_t n = it.value.remaining();
    const auto* p = it.value.bytes(n);
    node_->hostNameIs(Poldo::String(reinterpret_cast<const char*>(p), n));
}

// RFC 5305 4.3.
void LspDecoder::teRouterId(Item& it) {
    expectLength(it, 4, "TE router ID is not 4 octets");
    node_->ipv4RouterIdIs(readV4(it.value));
}

// RFC 6119 4.1.
void LspDecoder::teRouterIdV6(Item& it) {
    expectLength(it, 16, "IPv6 TE router ID is not 16 octets");
    node_->ipv6RouterIdIs(readV6(it.value));
}

// RFC 5120 7.1: 2-octet entries, O and A bits above a 12-bit topology.
void LspDecoder::topologies(Item& it) {
    expectMultiple(it, 2, false, "MT TLV length not a multiple of 2");
    if (!mtIds_) {
        mtIds_ = IC::igpMultiTopologyIdColFactory();
    }
    while (!it.value.empty()) {
        mtIds_->mtIdValueIs(IC::IgpMultiTopologyId(static_cast<std::uint16_t>(it.value.u16() & 0x0FFF)));
    }
}

// RFC 8667 3.1 and 3.3: flags, then ranges of a 3-octet size and a
// SID/label sub-TLV holding the first label.
void LspDecoder::srBlock(Item& s, Poldo::Ptr<IC::SrCapabilities>& block) {
    Cursor& v = s.value;
    v.need(1, Reason::badLength, s.start, "SR block without flags");
    const std::uint8_t flags = v.u8();
    if (!block) {
        block = IC::srCapabilitiesFactory();
    }
    if (s.type == CapabilitySubTlv::srCapabilities) {
        IC::SrCapabilityFlags f;
        f.mplsIpv4Is((flags & 0x80) != 0);
        f.mplsIpv6Is((flags & 0x40) != 0);
        block->srCapFlagIs(f);
    }
    if (v.empty()) {
        fail(Reason::badLength, s.value.tlv(), s.start, "SR block without a range");
    }
    while (!v.empty()) {
        const std::size_t at = v.pos();
        v.need(3, Reason::truncatedEntry, at, "SR range runs past the sub-TLV end");
        const std::uint32_t size = v.u24();
        Item label = nextItem(v, Reason::subTlvOverrun);
        if (label.type != SidSubTlv::sidLabel) {
            fail(Reason::badLength, s.value.tlv(), label.start, "SR range without a SID/label sub-TLV");
        }
        if (label.value.remaining() != 3) {
            fail(Reason::badSidLength, s.value.tlv(), label.start, "SR range start is not a 3-octet label");
        }
        const std::uint32_t first = label.value.u24() & labelMask;
        // The model holds eight ranges and compares no more than that.
        if (block->numRanges() < 8) {
            block->sidLabelRangeIs(IC::SrSidRangeIndex(block->numRanges()),
                                   IC::SrSidRange(size, Lumo::MplsLabel(first)));
            block->numRangesInc(1);
        }
    }
}

// RFC 9350 5.1 (TLV 242 sub-TLV 26) and its sub-TLVs 6.1 to 6.5.
void LspDecoder::flexAlgoDefinition(Item& s) {
    Cursor& v = s.value;
    v.need(4, Reason::badLength, s.start, "flex-algo definition too short");
    IC::IgpFlexAlgoDefinition fad;
    fad.flexAlgoIs(v.u8());
    fad.metricTypeIs(v.u8());
    fad.calcTypeIs(v.u8());
    fad.priorityIs(v.u8());
    fad.lspFragmentIdIs(h_.fragment);
    while (!v.empty()) {
        Item f = nextItem(v, Reason::subTlvOverrun);
        const Poldo::Ptr<IC::IgpFlexAlgoEag>* eag = nullptr;
        switch (f.type) {
            case FadSubTlv::excludeAdminGroup:
                eag = &fad.excludeAny();
                break;
            case FadSubTlv::includeAnyAdminGroup:
                eag = &fad.includeAny();
                break;
            case FadSubTlv::includeAllAdminGroup:
                eag = &fad.includeAll();
                break;
            case FadSubTlv::excludeSrlg:
                expectMultiple(f, 4, false, "exclude SRLG length not a positive multiple of 4");
                while (!f.value.empty()) {
                    fad.excludeSrlg()->valueIs(f.value.u32());
                }
                break;
            default:
                break;
        }
        if (eag != nullptr) {
            expectMultiple(f, 4, false, "admin group length not a positive multiple of 4");
            (*eag)->valuePopAll();
            while (!f.value.empty()) {
                (*eag)->valuePush(f.value.u32());
            }
        }
    }
    if (!fads_) {
        fads_ = IC::igpFlexAlgoDefinitionColFactory();
    }
    fads_->fadIs(fad.flexAlgo(), fad);
}

void LspDecoder::routerCapability(Item& it) {
    Cursor& v = it.value;
    v.need(5, Reason::badLength, it.start, "router capability TLV too short");
    v.skip(5);  // router ID and flags
    while (!v.empty()) {
        Item s = nextItem(v, Reason::subTlvOverrun);
        switch (s.type) {
            case CapabilitySubTlv::srCapabilities:
                srBlock(s, srgb_);
                content_->parsedSrCapFragIdIs(h_.fragment);
                break;
            case CapabilitySubTlv::srLocalBlock:
                srBlock(s, srlb_);
                content_->parsedSrlbFragIdIs(h_.fragment);
                break;
            case CapabilitySubTlv::nodeMsd:
                expectMultiple(s, 2, false, "node MSD length not a positive multiple of 2");
                if (!msds_) {
                    msds_ = IC::igpMsdColFactory();
                }
                while (!s.value.empty()) {
                    const std::uint8_t type = s.value.u8();
                    msds_->msdIs(msdCount_++, IC::IgpMsd(type, s.value.u8()));
                }
                break;
            case CapabilitySubTlv::flexAlgoDefinition:
                flexAlgoDefinition(s);
                break;
            default:
                break;
        }
    }
}

void LspDecoder::finish() {
    attachUnnumberedSrlgs();
    if (areas_) {
        node_->isisAreaIdColIs(areas_);
    }
    if (mtIds_) {
        node_->mtIdColIs(mtIds_);
    }
    if (srgb_) {
        node_->srCapabilitiesIs(srgb_);
    }
    if (srlb_) {
        node_->srlbIs(srlb_);
    }
    if (msds_) {
        node_->msdColIs(msds_);
    }
    if (fads_) {
        node_->fadColIs(fads_);
    }
}

}  // namespace Routing::IsisDecoder::detail
