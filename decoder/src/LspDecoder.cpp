// The walk over an LSP's TLVs and the dispatch to each family.

#include "LspDecoder.h"

namespace Routing::IsisDecoder::detail {

Poldo::Ptr<IC::IsisLspParsedContent> LspDecoder::run() {
    makeContent();
    node_ = content_->nodeNew(h_.nodeId());
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
    done_ = true;
    return content_;
}

namespace {

// How the entries of a TLV are counted to size the content's tables.
enum class Entries : std::uint8_t {
    none,
    narrowLinks,     // ISO 10589 9.9: 11 octets each
    wideLinks,       // RFC 5305 3: 11 octets and a sub-TLV block
    narrowPrefixes,  // RFC 1195 5: 12 octets each
    v4Prefixes,      // RFC 5305 4
    v6Prefixes,      // RFC 5308 2
    one,             // a SID/label binding: one prefix
    srlg,            // one SRLG record at most
};

// What the walk knows of a TLV type: the part of the content it fills, how
// its entries count, and whether an MT ID (RFC 5120 7) comes first.
struct TlvRole {
    std::uint8_t part;
    Entries entries;
    std::uint8_t mtOctets;
};

constexpr std::array<TlvRole, 256> tlvRoles = [] {
    std::array<TlvRole, 256> r{};
    r.fill({nodePart, Entries::none, 0});
    r[Tlv::isNeighbors] = {linksPart, Entries::narrowLinks, 0};
    r[Tlv::extendedIsReachability] = {linksPart, Entries::wideLinks, 0};
    r[Tlv::mtIsReachability] = {linksPart, Entries::wideLinks, 2};
    r[Tlv::srlg] = {linksPart, Entries::srlg, 0};
    r[Tlv::ipv6Srlg] = {linksPart, Entries::srlg, 0};
    r[Tlv::ipInternalReachability] = {prefixesPart, Entries::narrowPrefixes, 0};
    r[Tlv::ipExternalReachability] = {prefixesPart, Entries::narrowPrefixes, 0};
    r[Tlv::extendedIpReachability] = {prefixesPart, Entries::v4Prefixes, 0};
    r[Tlv::mtIpReachability] = {prefixesPart, Entries::v4Prefixes, 2};
    r[Tlv::ipv6Reachability] = {prefixesPart, Entries::v6Prefixes, 0};
    r[Tlv::mtIpv6Reachability] = {prefixesPart, Entries::v6Prefixes, 2};
    r[Tlv::sidLabelBinding] = {prefixesPart, Entries::one, 0};
    r[Tlv::mtSidLabelBinding] = {prefixesPart, Entries::one, 0};
    return r;
}();

}  // namespace

// The content to fill: the workspace's when no one else holds it, else a
// new one, which the workspace keeps for next time. Its link, prefix and
// SRLG tables are sized once, from a count of the entries of the TLVs to be
// read, rather than left to grow by rehashing. The count is an upper bound
// (entries may repeat a key) that the PDU's length bounds; a malformed TLV
// ends it, and the walk proper reports it.
void LspDecoder::makeContent() {
    std::uint32_t links = 0;
    std::uint32_t prefixes = 0;
    std::uint32_t srlgs = 0;
    const std::size_t pduEnd = h_.pduLength;
    // Entries of `fixed` octets (`lenAt` octets in, the prefix length; `subFlag`
    // in the control octet `controlAt` octets in, a sub-TLV block follows), or
    // with the sub-TLV length at `fixed - 1` when subFlag is 0.
    const auto entries = [&](std::size_t at, std::size_t end, std::size_t fixed, std::size_t lenAt,
                             std::size_t controlAt, std::uint8_t subFlag, std::uint8_t lenMask) {
        std::uint32_t n = 0;
        while (at + fixed <= end) {
            std::size_t next = at + fixed;
            if (subFlag == 0) {
                next += pdu_[at + fixed - 1];
            } else {
                next += ((pdu_[at + lenAt] & lenMask) + 7u) / 8u;
                if ((pdu_[at + controlAt] & subFlag) != 0) {
                    next += next < end ? 1u + pdu_[next] : 1u;
                }
            }
            at = next;
            ++n;
        }
        return n;
    };
    std::size_t at = headerLength;
    while (at + 2 <= pduEnd) {
        const TlvRole& role = tlvRoles[pdu_[at]];
        const std::size_t len = pdu_[at + 1];
        const std::size_t value = at + 2 + role.mtOctets;
        const std::size_t end = at + 2 + len;
        if (end > pduEnd) {
            break;
        }
        at = end;
        if ((parts_ & role.part) == 0) {
            continue;
        }
        switch (role.entries) {
            case Entries::none:
                break;
            case Entries::narrowLinks:
                links += static_cast<std::uint32_t>(len / 11);
                break;
            case Entries::wideLinks:
                links += entries(value, end, 11, 0, 0, 0, 0);
                break;
            case Entries::narrowPrefixes:
                prefixes += static_cast<std::uint32_t>(len / 12);
                break;
            case Entries::v4Prefixes:
                prefixes += entries(value, end, 5, 4, 4, 0x40, 0x3F);
                break;
            case Entries::v6Prefixes:
                prefixes += entries(value, end, 6, 5, 4, 0x20, 0xFF);
                break;
            case Entries::one:
                ++prefixes;
                break;
            case Entries::srlg:
                ++srlgs;
                break;
        }
    }
    if (spare_ && spare_->useCount() == 1) {
        spare_->recycle(links, prefixes, srlgs);
        content_ = spare_;
        return;
    }
    content_ = IC::isisLspParsedContentFactory();
    spare_ = content_;
    if (links != 0) {
        content_->neighborReserve(links);
    }
    if (prefixes != 0) {
        content_->prefixReserve(prefixes);
    }
    if (srlgs != 0) {
        content_->parsedSrLgReserve(srlgs);
    }
}

// Which part of the content a TLV fills.
unsigned LspDecoder::partOf(std::uint8_t type) noexcept {
    return tlvRoles[type].part;
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
