// IS reachability: TLVs 2, 22 and 222 and the link sub-TLVs.

#include "LspDecoder.h"

namespace Routing::IsisDecoder::detail {

namespace {

// Inlined into the loop over an entry's sub-TLVs: a call per sub-TLV costs
// more than most of them take to read.
[[gnu::always_inline]] inline void linkSubTlv(Item& s, IC::NeighborKey& key, LinkAttrs& a) {
    Cursor& v = s.value;
    switch (s.type) {
        case LinkSubTlv::adminGroup:
            expectLength(s, 4, "admin group is not 4 octets");
            a.adminGroup = v.u32();
            a.present.adminGroupIs(true);
            break;
        case LinkSubTlv::ipv4InterfaceAddress:
            expectLength(s, 4, "IPv4 interface address is not 4 octets");
            key.localIpv4AddrIs(readV4(v));
            break;
        case LinkSubTlv::ipv4NeighborAddress:
            expectLength(s, 4, "IPv4 neighbor address is not 4 octets");
            key.remoteIpv4AddrIs(readV4(v));
            break;
        case LinkSubTlv::maxLinkBandwidth:
            expectLength(s, 4, "maximum link bandwidth is not 4 octets");
            a.maxBw = v.f32();
            a.present.maxLinkBwIs(true);
            break;
        case LinkSubTlv::maxReservableBandwidth:
            expectLength(s, 4, "maximum reservable bandwidth is not 4 octets");
            a.maxRsvBw = v.f32();
            a.present.maxReserveLinkBwIs(true);
            break;
        case LinkSubTlv::unreservedBandwidth:
            expectLength(s, 32, "unreserved bandwidth is not 32 octets");
            for (auto& bw : a.unrsvBw) {
                bw = v.f32();
            }
            a.present.unreservedBwIs(true);
            break;
        case LinkSubTlv::ipv6InterfaceAddress:
            expectLength(s, 16, "IPv6 interface address is not 16 octets");
            key.localIpv6AddrIs(readV6(v));
            break;
        case LinkSubTlv::ipv6NeighborAddress:
            expectLength(s, 16, "IPv6 neighbor address is not 16 octets");
            key.remoteIpv6AddrIs(readV6(v));
            break;
        case LinkSubTlv::extendedAdminGroup:
            expectMultiple(s, 4, false, "extended admin group length not a positive multiple of 4");
            a.extAdminGroup.clear();
            while (!v.empty()) {
                a.extAdminGroup.push_back(v.u32());
            }
            a.present.extAdminGroupIs(true);
            break;
        case LinkSubTlv::teDefaultMetric:
            expectLength(s, 3, "TE default metric is not 3 octets");
            a.teMetric = v.u24();
            a.present.teDefMetricIs(true);
            break;
        case LinkSubTlv::unidirLinkDelay:
            expectLength(s, 4, "unidirectional link delay is not 4 octets");
            a.delay = IC::LinkDelay::fromWord(v.u32());
            break;
        case LinkSubTlv::adjacencySid: {
            v.need(2, Reason::badLength, s.start, "adjacency SID too short");
            const std::uint8_t flags = v.u8();
            const std::uint8_t weight = v.u8();
            const std::uint32_t value = readSidValue(v, flags, IC::AdjacencySid::labelFlagsMask, s.start);
            a.adjSids.emplace_back(flags, value, weight);
            break;
        }
        case LinkSubTlv::lanAdjacencySid: {
            v.need(8, Reason::badLength, s.start, "LAN adjacency SID too short");
            const std::uint8_t flags = v.u8();
            const std::uint8_t weight = v.u8();
            const auto sys = Isis::SystemId::fromBytes(v.bytes(6));
            const std::uint32_t value = readSidValue(v, flags, IC::AdjacencySid::labelFlagsMask, s.start);
            a.lanAdjSids.emplace_back(flags, value, weight, sys);
            break;
        }
        default:
            break;
    }
}

}  // namespace

void LspDecoder::addNeighbor(const IC::NeighborKey& key, std::uint32_t metric, const LinkAttrs& a) {
    // One hash: whether the key was new shows in the count.
    const std::size_t held = content_->neighbor().size();
    const auto nbr = content_->neighborIs(key);
    const bool again = content_->neighbor().size() == held;
    // Parallel links the key cannot tell apart (unnumbered ones) are one
    // link: the best metric of them.
    if (!again || metric < nbr->igpMetric()) {
        nbr->igpMetricIs(metric);
    }
    // A link described over several entries keeps what each one said.
    nbr->attrsPresentIs(IC::Neighbor::NeighborAttrsPresent(nbr->attrsPresent().value() | a.present.value()));
    if (a.present.adminGroup()) {
        nbr->adminGroupIs(a.adminGroup);
    }
    if (a.present.maxLinkBw()) {
        nbr->maxLinkBwIs(a.maxBw);
    }
    if (a.present.maxReserveLinkBw()) {
        nbr->maxReserveLinkBwIs(a.maxRsvBw);
    }
    if (a.present.unreservedBw()) {
        for (unsigned p = 0; p < 8; ++p) {
            nbr->unreservedBwIs(IC::BwIndex(p), a.unrsvBw[p]);
        }
    }
    if (a.present.extAdminGroup()) {
        // The model holds 64 words (2048 groups); words beyond are dropped.
        for (std::size_t i = 0; i < a.extAdminGroup.size() && i < 64; ++i) {
            nbr->extAdminGroupIs(IC::AdminGroupIndex(static_cast<unsigned>(i)), a.extAdminGroup[i]);
        }
    }
    if (a.present.teDefMetric()) {
        nbr->teDefMetricIs(a.teMetric);
    }
    if (a.delay.present()) {
        nbr->linkDelayIs(a.delay);
    }
    for (const auto& s : a.adjSids) {
        nbr->adjSidIs(s);
    }
    for (const auto& s : a.lanAdjSids) {
        nbr->lanAdjSidIs(s);
    }
}

// RFC 5305 3 (TLV 22) and RFC 5120 7.2 (TLV 222, after the MT ID).
void LspDecoder::wideNeighbors(Item& it, IC::IgpMultiTopologyId mt) {
    Cursor& v = it.value;
    LinkAttrs& a = link_;
    while (!v.empty()) {
        const std::size_t at = v.pos();
        v.need(11, Reason::truncatedEntry, at, "IS reachability entry runs past the TLV end");
        IC::NeighborKey key(IC::IgpNodeId::fromBytes(v.bytes(7)), mt);
        const std::uint32_t metric = v.u24();
        const std::size_t blockAt = v.pos();
        const std::uint8_t subLen = v.u8();
        Cursor subs = v.sub(subLen, Reason::subTlvOverrun, blockAt, "sub-TLV block runs past the TLV end");
        a.reset();
        while (!subs.empty()) {
            Item s = nextItem(subs, Reason::subTlvOverrun);
            linkSubTlv(s, key, a);
        }
        addNeighbor(key, metric, a);
    }
}

// ISO 10589 9.9 (TLV 2): a virtual-flag octet, then 11-octet entries.
void LspDecoder::narrowNeighbors(Item& it) {
    Cursor& v = it.value;
    if (v.empty() || (v.remaining() - 1) % 11 != 0) {
        fail(Reason::badLength, Tlv::isNeighbors, it.start, "IS neighbors length not 1 + 11k");
    }
    v.skip(1);
    while (!v.empty()) {
        const std::uint8_t metric = v.u8() & 0x3F;
        v.skip(3);  // delay, expense and error metrics
        IC::NeighborKey key(IC::IgpNodeId::fromBytes(v.bytes(7)), IC::IgpMultiTopologyId(0));
        addNeighbor(key, metric, LinkAttrs{});
    }
}

}  // namespace Routing::IsisDecoder::detail
