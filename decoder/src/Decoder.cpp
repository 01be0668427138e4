#include "IsisDecoder/Decoder.h"

#include "DecoderInternal.h"

#include <bit>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

namespace Routing::IsisDecoder {

namespace IC = Routing::IgpCommon;
using Reason = DecodeError::Reason;

namespace {

constexpr std::size_t headerLength = 27;
constexpr std::uint32_t labelMask = 0xFFFFF;  // a 3-octet label carries 20 bits (RFC 8667 2.1)

// Thrown inside the decoder only; decodeLsp turns it into a DecodeError.
struct Failure {
    DecodeError error;
};

[[noreturn]] void fail(Reason r, std::uint8_t tlv, std::size_t offset, std::string detail) {
    throw Failure{DecodeError{r, tlv, offset, std::move(detail)}};
}

// A bounded view of part of the PDU. Every read checks the bound first, so no
// read can leave the buffer; offsets are reported relative to the PDU start.
class Cursor {
public:
    Cursor(const std::uint8_t* pdu, std::size_t begin, std::size_t end, std::uint8_t tlv) noexcept
        : pdu_(pdu), pos_(begin), end_(end), tlv_(tlv) {}

    std::size_t pos() const noexcept { return pos_; }
    std::size_t remaining() const noexcept { return end_ - pos_; }
    bool empty() const noexcept { return pos_ == end_; }
    std::uint8_t tlv() const noexcept { return tlv_; }

    void need(std::size_t n, Reason r, std::size_t at, std::string_view what) const {
        if (remaining() < n) {
            fail(r, tlv_, at, std::string(what));
        }
    }
    std::uint8_t u8() { return static_cast<std::uint8_t>(take(1)); }
    std::uint16_t u16() { return static_cast<std::uint16_t>(take(2)); }
    std::uint32_t u24() { return take(3); }
    std::uint32_t u32() { return take(4); }
    float f32() {
        const std::uint32_t bits = take(4);
        float f;
        std::memcpy(&f, &bits, sizeof f);
        return f;
    }
    const std::uint8_t* bytes(std::size_t n) {
        check(n);
        const std::uint8_t* p = pdu_ + pos_;
        pos_ += n;
        return p;
    }
    void skip(std::size_t n) { bytes(n); }
    // The next `n` octets as a cursor of their own; `r` when they are not all there.
    Cursor sub(std::size_t n, Reason r, std::size_t at, const char* what) {
        need(n, r, at, what);
        Cursor c(pdu_, pos_, pos_ + n, tlv_);
        pos_ += n;
        return c;
    }

private:
    void check(std::size_t n) const {
        if (remaining() < n) {
            fail(Reason::truncatedEntry, tlv_, pos_, "value runs past its container");
        }
    }
    std::uint32_t take(std::size_t n) {
        check(n);
        std::uint32_t v = 0;
        for (std::size_t i = 0; i < n; ++i) {
            v = (v << 8) | pdu_[pos_ + i];
        }
        pos_ += n;
        return v;
    }

    const std::uint8_t* pdu_;
    std::size_t pos_;
    std::size_t end_;
    std::uint8_t tlv_;
};

// One TLV or sub-TLV: its type, where it starts and its value.
struct Item {
    std::uint8_t type;
    std::size_t start;
    Cursor value;
};

// The next TLV or sub-TLV of `c`, `overrun` when its header or value does not fit.
Item nextItem(Cursor& c, Reason overrun) {
    const std::size_t start = c.pos();
    c.need(2, overrun, start, "type and length octets do not fit");
    const std::uint8_t type = c.u8();
    const std::uint8_t len = c.u8();
    Cursor value = c.sub(len, overrun, start, "length runs past the end of its container");
    return Item{type, start, value};
}

void expectLength(const Item& it, std::size_t n, const char* what) {
    if (it.value.remaining() != n) {
        fail(Reason::badLength, it.value.tlv(), it.start, what);
    }
}

void expectMultiple(const Item& it, std::size_t unit, bool allowEmpty, const char* what) {
    const std::size_t n = it.value.remaining();
    if (n % unit != 0 || (n == 0 && !allowEmpty)) {
        fail(Reason::badLength, it.value.tlv(), it.start, what);
    }
}

Lumo::IpAddr readV4(Cursor& c) {
    return Lumo::IpAddr::fromBytes(c.bytes(4));
}
Lumo::Ip6Addr readV6(Cursor& c) {
    return Lumo::Ip6Addr::fromBytes(c.bytes(16));
}

// A prefix of `len` bits stored in the fewest octets (RFC 5305 4, RFC 5308 2).
Lumo::IpGenPrefix readPrefix(Cursor& c, std::uint8_t len, bool v6, std::size_t at) {
    if (len > (v6 ? 128 : 32)) {
        fail(Reason::badPrefixLength, c.tlv(), at, "prefix length " + std::to_string(len) + " out of range");
    }
    const std::size_t n = (len + 7u) / 8u;
    c.need(n, Reason::truncatedEntry, at, "prefix octets run past the TLV end");
    std::uint8_t buf[16] = {};
    std::memcpy(buf, c.bytes(n), n);
    if (v6) {
        return Lumo::IpGenPrefix(Lumo::Ip6Addr::fromBytes(buf), len).masked();
    }
    return Lumo::IpGenPrefix(Lumo::IpAddr::fromBytes(buf), len).masked();
}

// A SID whose flags' V and L bits say label (both set, 3 octets) or index
// (both clear, 4 octets) (RFC 8667 2.1, 2.2.1); anything else is inconsistent.
std::uint32_t readSidValue(Cursor& c, std::uint8_t flags, std::uint8_t vlMask, std::size_t at) {
    const bool isLabel = (flags & vlMask) == vlMask;
    const bool isIndex = (flags & vlMask) == 0;
    const std::size_t n = c.remaining();
    if (isLabel && n == 3) {
        return c.u24() & labelMask;
    }
    if (isIndex && n == 4) {
        return c.u32();
    }
    char buf[80];
    std::snprintf(buf, sizeof buf, "SID flags 0x%02x do not match a %zu-octet value", flags, n);
    fail(Reason::badSidLength, c.tlv(), at, buf);
}

// RFC 8667 2.3: 3 octets carry a label, 4 an index.
IC::LabelSid readSidLabel(const Item& it) {
    Cursor v = it.value;
    if (v.remaining() == 3) {
        return IC::LabelSid(IC::PrefixSid::labelFlagsMask, v.u24() & labelMask, true);
    }
    if (v.remaining() == 4) {
        return IC::LabelSid(0, v.u32(), true);
    }
    fail(Reason::badSidLength, it.value.tlv(), it.start, "SID/label sub-TLV length not 3 or 4");
}

class LspDecoder {
public:
    LspDecoder(const std::uint8_t* pdu, const LspHeader& h) : pdu_(pdu), h_(h) {}

    Poldo::Ptr<IC::IsisLspParsedContent> run() {
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
                     "TLV " + std::to_string(type) + " length " + std::to_string(len) +
                         " runs past the PDU end");
            }
            Item it{type, start, Cursor(pdu_, start + 2, start + 2 + len, type)};
            all.skip(len);
            decodeTlv(it);
        }
        finish();
        return content_;
    }

private:
    void decodeTlv(Item& it) {
        switch (it.type) {
            case 1:
                areas(it);
                break;
            case 2:
                narrowNeighbors(it);
                break;
            case 22:
                wideNeighbors(it, IC::IgpMultiTopologyId(0));
                break;
            case 222:
                wideNeighbors(it, readMtId(it));
                break;
            case 128:
            case 130:
                narrowPrefixes(it);
                break;
            case 135:
                v4Prefixes(it, IC::IgpMultiTopologyId(0));
                break;
            case 235:
                v4Prefixes(it, readMtId(it));
                break;
            case 236:
                v6Prefixes(it, IC::IgpMultiTopologyId(0));
                break;
            case 237:
                v6Prefixes(it, readMtId(it));
                break;
            case 134:
                teRouterId(it);
                break;
            case 137:
                hostName(it);
                break;
            case 138:
                srlgV4(it);
                break;
            case 139:
                srlgV6(it);
                break;
            case 140:
                teRouterIdV6(it);
                break;
            case 149:
                binding(it, IC::IgpMultiTopologyId(0));
                break;
            case 150:
                binding(it, readMtId(it));
                break;
            case 229:
                topologies(it);
                break;
            case 242:
                routerCapability(it);
                break;
            default:
                break;  // unknown or not modelled: skipped by length
        }
    }

    // RFC 5120 7.2: four reserved bits, then the 12-bit topology.
    static IC::IgpMultiTopologyId readMtId(Item& it) {
        it.value.need(2, Reason::badLength, it.start, "no room for the MT ID");
        return IC::IgpMultiTopologyId(static_cast<std::uint16_t>(it.value.u16() & 0x0FFF));
    }

    // ISO 10589 9.9: area addresses, each a length octet and 1 to 13 octets.
    void areas(Item& it) {
        if (!areas_) {
            areas_ = IC::isisAreaIdColFactory();
        }
        if (it.value.empty()) {
            fail(Reason::badLength, 1, it.start, "empty area address TLV");
        }
        while (!it.value.empty()) {
            const std::size_t at = it.value.pos();
            const std::uint8_t n = it.value.u8();
            if (n == 0 || n > Isis::AreaId::maxLength) {
                fail(Reason::badLength, 1, at, "area address length " + std::to_string(n));
            }
            it.value.need(n, Reason::truncatedEntry, at, "area address runs past the TLV end");
            areas_->areaIdIs(Isis::AreaId::fromBytes(it.value.bytes(n), n), true);
        }
    }

    // RFC 5301 3: 1 to 255 octets of name.
    void hostName(Item& it) {
        if (it.value.empty()) {
            fail(Reason::badLength, 137, it.start, "empty host name");
        }
        const std::size_t n = it.value.remaining();
        const auto* p = it.value.bytes(n);
        node_->hostNameIs(Poldo::String(reinterpret_cast<const char*>(p), n));
    }

    // RFC 5305 4.3.
    void teRouterId(Item& it) {
        expectLength(it, 4, "TE router ID is not 4 octets");
        node_->ipv4RouterIdIs(readV4(it.value));
    }

    // RFC 6119 4.1.
    void teRouterIdV6(Item& it) {
        expectLength(it, 16, "IPv6 TE router ID is not 16 octets");
        node_->ipv6RouterIdIs(readV6(it.value));
    }

    // RFC 5120 7.1: 2-octet entries, O and A bits above a 12-bit topology.
    void topologies(Item& it) {
        expectMultiple(it, 2, false, "MT TLV length not a multiple of 2");
        if (!mtIds_) {
            mtIds_ = IC::igpMultiTopologyIdColFactory();
        }
        while (!it.value.empty()) {
            mtIds_->mtIdValueIs(IC::IgpMultiTopologyId(static_cast<std::uint16_t>(it.value.u16() & 0x0FFF)));
        }
    }

    // ---- neighbors ----

    // What the sub-TLVs of one IS reachability entry said; kept apart until the
    // addresses, which belong to the key, are all known.
    struct LinkAttrs {
        IC::Neighbor::NeighborAttrsPresent present;
        std::uint32_t adminGroup = 0;
        float maxBw = 0, maxRsvBw = 0;
        std::array<float, 8> unrsvBw{};
        std::vector<std::uint32_t> extAdminGroup;
        std::uint32_t teMetric = 0;
        std::vector<IC::AdjacencySid> adjSids;
        std::vector<IC::LanAdjacencySid> lanAdjSids;
    };

    void linkSubTlv(Item& s, IC::NeighborKey& key, LinkAttrs& a) {
        Cursor& v = s.value;
        switch (s.type) {
            case 3:  // RFC 5305 3.1
                expectLength(s, 4, "admin group is not 4 octets");
                a.adminGroup = v.u32();
                a.present.adminGroupIs(true);
                break;
            case 6:  // RFC 5305 3.2
                expectLength(s, 4, "IPv4 interface address is not 4 octets");
                key.localIpv4AddrIs(readV4(v));
                break;
            case 8:  // RFC 5305 3.3
                expectLength(s, 4, "IPv4 neighbor address is not 4 octets");
                key.remoteIpv4AddrIs(readV4(v));
                break;
            case 9:  // RFC 5305 3.4
                expectLength(s, 4, "maximum link bandwidth is not 4 octets");
                a.maxBw = v.f32();
                a.present.maxLinkBwIs(true);
                break;
            case 10:  // RFC 5305 3.5
                expectLength(s, 4, "maximum reservable bandwidth is not 4 octets");
                a.maxRsvBw = v.f32();
                a.present.maxReserveLinkBwIs(true);
                break;
            case 11:  // RFC 5305 3.6
                expectLength(s, 32, "unreserved bandwidth is not 32 octets");
                for (auto& bw : a.unrsvBw) {
                    bw = v.f32();
                }
                a.present.unreservedBwIs(true);
                break;
            case 12:  // RFC 6119 4.2
                expectLength(s, 16, "IPv6 interface address is not 16 octets");
                key.localIpv6AddrIs(readV6(v));
                break;
            case 13:  // RFC 6119 4.3
                expectLength(s, 16, "IPv6 neighbor address is not 16 octets");
                key.remoteIpv6AddrIs(readV6(v));
                break;
            case 14:  // RFC 7308 2
                expectMultiple(s, 4, false, "extended admin group length not a positive multiple of 4");
                a.extAdminGroup.clear();
                while (!v.empty()) {
                    a.extAdminGroup.push_back(v.u32());
                }
                a.present.extAdminGroupIs(true);
                break;
            case 18:  // RFC 5305 3.7
                expectLength(s, 3, "TE default metric is not 3 octets");
                a.teMetric = v.u24();
                a.present.teDefMetricIs(true);
                break;
            case 31: {  // RFC 8667 2.2.1
                v.need(2, Reason::badLength, s.start, "adjacency SID too short");
                const std::uint8_t flags = v.u8();
                const std::uint8_t weight = v.u8();
                const std::uint32_t value = readSidValue(v, flags, IC::AdjacencySid::labelFlagsMask, s.start);
                a.adjSids.emplace_back(flags, value, weight);
                break;
            }
            case 32: {  // RFC 8667 2.2.2
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

    void addNeighbor(const IC::NeighborKey& key, std::uint32_t metric, const LinkAttrs& a) {
        const bool again = content_->neighbor(key) != nullptr;
        const auto nbr = content_->neighborIs(key);
        // Parallel links the key cannot tell apart (unnumbered ones) are one
        // link: the best metric of them.
        if (!again || metric < nbr->igpMetric()) {
            nbr->igpMetricIs(metric);
        }
        // A link described over several entries keeps what each one said.
        nbr->attrsPresentIs(
            IC::Neighbor::NeighborAttrsPresent(nbr->attrsPresent().value() | a.present.value()));
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
        for (const auto& s : a.adjSids) {
            nbr->adjSidIs(s);
        }
        for (const auto& s : a.lanAdjSids) {
            nbr->lanAdjSidIs(s);
        }
    }

    // RFC 5305 3 (TLV 22) and RFC 5120 7.2 (TLV 222, after the MT ID).
    void wideNeighbors(Item& it, IC::IgpMultiTopologyId mt) {
        Cursor& v = it.value;
        while (!v.empty()) {
            const std::size_t at = v.pos();
            v.need(11, Reason::truncatedEntry, at, "IS reachability entry runs past the TLV end");
            IC::NeighborKey key(IC::IgpNodeId::fromBytes(v.bytes(7)), mt);
            const std::uint32_t metric = v.u24();
            const std::size_t blockAt = v.pos();
            const std::uint8_t subLen = v.u8();
            Cursor subs =
                v.sub(subLen, Reason::subTlvOverrun, blockAt, "sub-TLV block runs past the TLV end");
            LinkAttrs a;
            while (!subs.empty()) {
                Item s = nextItem(subs, Reason::subTlvOverrun);
                linkSubTlv(s, key, a);
            }
            addNeighbor(key, metric, a);
        }
    }

    // ISO 10589 9.9 (TLV 2): a virtual-flag octet, then 11-octet entries.
    void narrowNeighbors(Item& it) {
        Cursor& v = it.value;
        if (v.empty() || (v.remaining() - 1) % 11 != 0) {
            fail(Reason::badLength, 2, it.start, "IS neighbors length not 1 + 11k");
        }
        v.skip(1);
        while (!v.empty()) {
            const std::uint8_t metric = v.u8() & 0x3F;
            v.skip(3);  // delay, expense and error metrics
            IC::NeighborKey key(IC::IgpNodeId::fromBytes(v.bytes(7)), IC::IgpMultiTopologyId(0));
            addNeighbor(key, metric, LinkAttrs{});
        }
    }

    // ---- prefixes ----

    void prefixSubTlvs(Cursor& subs, const Poldo::Ptr<IC::Prefix>& pfx) {
        while (!subs.empty()) {
            Item s = nextItem(subs, Reason::subTlvOverrun);
            Cursor& v = s.value;
            if (s.type == 3) {  // RFC 8667 2.1
                v.need(2, Reason::badLength, s.start, "prefix SID too short");
                const std::uint8_t flags = v.u8();
                const std::uint8_t algo = v.u8();
                const std::uint32_t value = readSidValue(v, flags, IC::PrefixSid::labelFlagsMask, s.start);
                // The model keeps the default algorithm's SID only.
                if (algo == 0) {
                    pfx->prefixSidIs(IC::PrefixSid(flags, value, 0, true));
                }
            } else if (s.type == 6) {  // RFC 9350 8.1
                expectLength(s, 5, "flex-algo prefix metric is not 5 octets");
                const std::uint8_t algo = v.u8();
                pfx->prefixMetric()->metricIs(algo, v.u32());
            }
        }
    }

    Poldo::Ptr<IC::Prefix> addPrefix(const Lumo::IpGenPrefix& p, IC::IgpMultiTopologyId mt,
                                     std::uint32_t metric, bool down) {
        const auto pfx = content_->prefixIs(IC::PrefixKey(p, mt));
        pfx->hasValidReachabilityIs(true);
        pfx->metricIs(metric);
        IC::PrefixFlags f;
        f.isisDownIs(down);
        pfx->flagsIs(f);
        return pfx;
    }

    // RFC 5305 4 (TLV 135) and RFC 5120 7.3 (TLV 235, after the MT ID).
    void v4Prefixes(Item& it, IC::IgpMultiTopologyId mt) {
        Cursor& v = it.value;
        while (!v.empty()) {
            const std::size_t at = v.pos();
            v.need(5, Reason::truncatedEntry, at, "IP reachability entry runs past the TLV end");
            const std::uint32_t metric = v.u32();
            const std::uint8_t control = v.u8();
            const auto p = readPrefix(v, control & 0x3F, false, at);
            const auto pfx = addPrefix(p, mt, metric, (control & 0x80) != 0);
            if ((control & 0x40) != 0) {
                v.need(1, Reason::truncatedEntry, at, "sub-TLV length octet missing");
                const std::size_t blockAt = v.pos();
                const std::uint8_t subLen = v.u8();
                Cursor subs =
                    v.sub(subLen, Reason::subTlvOverrun, blockAt, "sub-TLV block runs past the TLV end");
                prefixSubTlvs(subs, pfx);
            }
        }
    }

    // RFC 5308 2 (TLV 236) and RFC 5120 7.4 (TLV 237, after the MT ID).
    void v6Prefixes(Item& it, IC::IgpMultiTopologyId mt) {
        Cursor& v = it.value;
        while (!v.empty()) {
            const std::size_t at = v.pos();
            v.need(6, Reason::truncatedEntry, at, "IPv6 reachability entry runs past the TLV end");
            const std::uint32_t metric = v.u32();
            const std::uint8_t control = v.u8();
            const std::uint8_t len = v.u8();
            const auto p = readPrefix(v, len, true, at);
            const auto pfx = addPrefix(p, mt, metric, (control & 0x80) != 0);
            if ((control & 0x20) != 0) {
                v.need(1, Reason::truncatedEntry, at, "sub-TLV length octet missing");
                const std::size_t blockAt = v.pos();
                const std::uint8_t subLen = v.u8();
                Cursor subs =
                    v.sub(subLen, Reason::subTlvOverrun, blockAt, "sub-TLV block runs past the TLV end");
                prefixSubTlvs(subs, pfx);
            }
        }
    }

    // RFC 1195 5 (TLVs 128, 130) with the up/down bit of RFC 5302 3.3:
    // 12-octet entries of metrics, address and mask.
    void narrowPrefixes(Item& it) {
        Cursor& v = it.value;
        if (v.remaining() % 12 != 0) {
            fail(Reason::badLength, it.type, it.start, "IP reachability length not a multiple of 12");
        }
        while (!v.empty()) {
            const std::size_t at = v.pos();
            const std::uint8_t def = v.u8();
            v.skip(3);
            const auto addr = readV4(v);
            const std::uint32_t mask = v.u32();
            // Only contiguous masks name a prefix the model can hold.
            const std::uint32_t inverted = ~mask;
            if ((inverted & (inverted + 1)) != 0) {
                fail(Reason::badPrefixLength, it.type, at, "non-contiguous subnet mask");
            }
            unsigned len = 0;
            for (std::uint32_t m = mask; m != 0; m <<= 1) {
                ++len;
            }
            addPrefix(Lumo::IpGenPrefix(addr, static_cast<std::uint8_t>(len)).masked(),
                      IC::IgpMultiTopologyId(0), def & 0x3F, (def & 0x80) != 0);
        }
    }

    // ---- SID/label binding, RFC 8667 2.4 (TLV 149) and 2.5 (TLV 150: the
    // same after an MT ID, binding the prefix of that topology) ----

    void binding(Item& it, IC::IgpMultiTopologyId mt) {
        Cursor& v = it.value;
        v.need(5, Reason::badLength, it.start, "binding TLV too short");
        const std::uint8_t flags = v.u8();
        v.skip(1);
        const std::uint16_t range = v.u16();
        const std::size_t lenAt = v.pos();
        const std::uint8_t len = v.u8();
        const auto p = readPrefix(v, len, (flags & 0x80) != 0, lenAt);

        auto b = IC::sidLabelBindingFactory();
        b->flagsIs(IC::SidLabelBinding::SidLabelBindingFlags::fromProtocolOctet(flags));
        b->rangeIs(range);
        b->lspFragmentIdIs(h_.fragment);
        while (!v.empty()) {
            Item s = nextItem(v, Reason::subTlvOverrun);
            if (s.type == 1) {  // RFC 8667 2.3
                b->baseLabelSidIs(readSidLabel(s));
            } else if (s.type == 3) {  // RFC 8667 2.1
                s.value.need(2, Reason::badLength, s.start, "prefix SID too short");
                const std::uint8_t sidFlags = s.value.u8();
                const std::uint8_t algo = s.value.u8();
                const std::uint32_t value =
                    readSidValue(s.value, sidFlags, IC::PrefixSid::labelFlagsMask, s.start);
                b->basePrefixSidIs(IC::PrefixSid(sidFlags, value, algo, true));
            }
        }
        content_->prefixIs(IC::PrefixKey(p, mt))->sidLabelBindingIs(b);
    }

    // ---- SRLGs ----

    // RFC 5307 1.4: neighbor, flags (bit 0: numbered), local and remote
    // address or link identifiers, then 4-octet SRLGs.
    void srlgV4(Item& it) {
        Cursor& v = it.value;
        if (v.remaining() < 16 || (v.remaining() - 16) % 4 != 0) {
            fail(Reason::badLength, 138, it.start, "SRLG TLV length not 16 + 4k");
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

    struct UnnumberedSrlg {
        IC::IgpNodeId neighbor;
        std::vector<std::uint32_t> values;
    };

    void attachUnnumberedSrlgs() {
        for (const auto& u : unnumberedSrlgs_) {
            for (const auto& n : content_->neighbor()) {
                if (n->key().nodeId() != u.neighbor || !n->key().addressesEmpty()) {
                    continue;
                }
                auto present = n->attrsPresent();
                present.srlgValuesIs(true);
                n->attrsPresentIs(present);
                for (const std::uint32_t v : u.values) {
                    n->srlgValuesIs(v);
                }
            }
        }
    }

    // RFC 6119 4.3: neighbor, flags (NA: a neighbor address follows), local
    // IPv6 address, optional neighbor address, then 4-octet SRLGs.
    void srlgV6(Item& it) {
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
            fail(Reason::badLength, 139, it.start, "IPv6 SRLG values not a multiple of 4 octets");
        }
        const auto rec = content_->parsedSrLgIs(Lumo::IpGenAddr(local));
        while (!v.empty()) {
            rec->srlgValueIs(v.u32());
        }
    }

    // ---- router capability, RFC 7981 2 ----

    // RFC 8667 3.1 and 3.3: flags, then ranges of a 3-octet size and a
    // SID/label sub-TLV holding the first label.
    void srBlock(Item& s, Poldo::Ptr<IC::SrCapabilities>& block) {
        Cursor& v = s.value;
        v.need(1, Reason::badLength, s.start, "SR block without flags");
        const std::uint8_t flags = v.u8();
        if (!block) {
            block = IC::srCapabilitiesFactory();
        }
        if (s.type == 2) {
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
            if (label.type != 1) {
                fail(Reason::badLength, s.value.tlv(), label.start, "SR range without a SID/label sub-TLV");
            }
            if (label.value.remaining() != 3) {
                fail(Reason::badSidLength, s.value.tlv(), label.start,
                     "SR range start is not a 3-octet label");
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
    void flexAlgoDefinition(Item& s) {
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
                case 1:
                    eag = &fad.excludeAny();
                    break;
                case 2:
                    eag = &fad.includeAny();
                    break;
                case 3:
                    eag = &fad.includeAll();
                    break;
                case 5:
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

    void routerCapability(Item& it) {
        Cursor& v = it.value;
        v.need(5, Reason::badLength, it.start, "router capability TLV too short");
        v.skip(5);  // router ID and flags
        while (!v.empty()) {
            Item s = nextItem(v, Reason::subTlvOverrun);
            switch (s.type) {
                case 2:
                    srBlock(s, srgb_);
                    content_->parsedSrCapFragIdIs(h_.fragment);
                    break;
                case 22:
                    srBlock(s, srlb_);
                    content_->parsedSrlbFragIdIs(h_.fragment);
                    break;
                case 23:  // RFC 8491 3
                    expectMultiple(s, 2, false, "node MSD length not a positive multiple of 2");
                    if (!msds_) {
                        msds_ = IC::igpMsdColFactory();
                    }
                    while (!s.value.empty()) {
                        const std::uint8_t type = s.value.u8();
                        msds_->msdIs(msdCount_++, IC::IgpMsd(type, s.value.u8()));
                    }
                    break;
                case 26:
                    flexAlgoDefinition(s);
                    break;
                default:
                    break;
            }
        }
    }

    void finish() {
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

    const std::uint8_t* pdu_;
    const LspHeader& h_;
    Poldo::Ptr<IC::IsisLspParsedContent> content_;
    Poldo::Ptr<IC::Node> node_;
    Poldo::Ptr<IC::IsisAreaIdCol> areas_;
    Poldo::Ptr<IC::IgpMultiTopologyIdCol> mtIds_;
    Poldo::Ptr<IC::SrCapabilities> srgb_;
    Poldo::Ptr<IC::SrCapabilities> srlb_;
    Poldo::Ptr<IC::IgpMsdCol> msds_;
    std::uint32_t msdCount_ = 0;
    Poldo::Ptr<IC::IgpFlexAlgoDefinitionCol> fads_;
    std::vector<UnnumberedSrlg> unnumberedSrlgs_;
};

std::uint16_t be16(const std::uint8_t* p) noexcept {
    return static_cast<std::uint16_t>((p[0] << 8) | p[1]);
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
    if (type != 18 && type != 20) {
        fail(Reason::badHeader, 0, 4, "PDU type is not an LSP");
    }
    if (p[5] != 1) {
        fail(Reason::badHeader, 0, 5, "version is not 1");
    }
    LspHeader h;
    h.level = type == 18 ? 1 : 2;
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

}  // namespace

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

namespace {

// The two Fletcher sums of ISO 10589 7.3.11 (the algorithm of RFC 1008 and
// ISO 8473 Annex C) over `data`, each reduced mod 255. The modulo is
// deferred: from reduced sums, n more octets leave c1 below 255 (n + 1)^2,
// so 64-bit sums reduced every `block` octets never overflow.
struct FletcherSums {
    std::uint32_t c0;
    std::uint32_t c1;
};

// Eight octets b0..b7 at once: c0 gains their sum S, c1 gains 8 c0 plus
// W = 8 b0 + 7 b1 + ... + 1 b7 (each octet enters that many running sums).
// The even and the odd octets go to 16-bit lanes; multiplying lanes x0..x3
// by 0x0001000100010001 leaves their prefix sums in the lanes (the total in
// the top one), and doing it again leaves 4 x0 + 3 x1 + 2 x2 + x3 on top.
// Lane values stay below 2^16, so no lane carries into the next.
struct EightSums {
    std::uint64_t s;
    std::uint64_t w;
};

inline EightSums eightOctets(const std::uint8_t* p) noexcept {
    constexpr std::uint64_t lanes = 0x00FF00FF00FF00FFull;
    constexpr std::uint64_t spread = 0x0001000100010001ull;
    std::uint64_t v;
    std::memcpy(&v, p, 8);
    if constexpr (std::endian::native == std::endian::big) {
        v = __builtin_bswap64(v);  // b0 in the low octet, as on x86-64
    }
    const std::uint64_t even = (v & lanes) * spread;        // b0 b2 b4 b6
    const std::uint64_t odd = ((v >> 8) & lanes) * spread;  // b1 b3 b5 b7
    const std::uint64_t both = even + odd;
    // Even octets weigh 2 (4, 3, 2, 1), odd ones one less.
    return {both >> 48, 2 * ((both * spread) >> 48) - (odd >> 48)};
}

FletcherSums fletcher(std::span<const std::uint8_t> data) noexcept {
    constexpr std::size_t block = std::size_t{1} << 20;
    std::uint64_t c0 = 0;
    std::uint64_t c1 = 0;
    const std::uint8_t* p = data.data();
    std::size_t left = data.size();
    while (left != 0) {
        std::size_t n = left < block ? left : block;
        left -= n;
        for (; n >= 8; n -= 8, p += 8) {
            const EightSums e = eightOctets(p);
            c1 += 8 * c0 + e.w;
            c0 += e.s;
        }
        for (; n != 0; --n, ++p) {
            c0 += *p;
            c1 += c0;
        }
        c0 %= 255;
        c1 %= 255;
    }
    return {static_cast<std::uint32_t>(c0), static_cast<std::uint32_t>(c1)};
}

// The LSP ID starts the checksummed range, the checksum is octets 24 and 25.
constexpr std::size_t checksumFrom = 12;
constexpr std::size_t checksumAt = 24;

}  // namespace

bool lspChecksumValid(std::span<const std::uint8_t> pdu) noexcept {
    if (pdu.size() < headerLength) {
        return false;
    }
    // ISO 10589 7.3.11: both Fletcher sums over LSP ID .. end are 0 mod 255.
    const FletcherSums s = fletcher(pdu.subspan(checksumFrom));
    return s.c0 == 0 && s.c1 == 0;
}

void fillLspChecksum(std::span<std::uint8_t> pdu) noexcept {
    if (pdu.size() < headerLength) {
        return;
    }
    // ISO 8473 Annex C.2 (RFC 1008): with the checksum octets 0, choose them
    // so that both sums end at 0; a 0 result is sent as 255, 0 meaning "no
    // checksum".
    pdu[checksumAt] = pdu[checksumAt + 1] = 0;
    const FletcherSums s = fletcher(pdu.subspan(checksumFrom));
    const auto len = static_cast<std::int64_t>(pdu.size() - checksumFrom);
    const std::int64_t pos = checksumAt - checksumFrom + 1;  // 1-based, in the summed range
    std::int64_t x = ((len - pos) * s.c0 - s.c1) % 255;
    if (x <= 0) {
        x += 255;
    }
    std::int64_t y = (s.c1 - (len - pos + 1) * s.c0) % 255;
    if (y <= 0) {
        y += 255;
    }
    pdu[checksumAt] = static_cast<std::uint8_t>(x);
    pdu[checksumAt + 1] = static_cast<std::uint8_t>(y);
}

bool lspChecksumAccepted(const LspHeader& h, std::span<const std::uint8_t> pdu) noexcept {
    // A purge may carry checksum 0 (its body is gone); anything else must add up.
    if (h.isPurge() && h.checksum == 0) {
        return true;
    }
    return h.checksum != 0 && lspChecksumValid(pdu.first(h.pduLength));
}

std::optional<LspHeader> decodeLspHeader(std::span<const std::uint8_t> pdu) {
    try {
        return readHeader(pdu);
    } catch (const Failure&) {
        return std::nullopt;
    }
}

DecodeResult decodeLsp(std::span<const std::uint8_t> pdu) {
    try {
        const LspHeader h = readHeader(pdu);
        const auto body = pdu.first(h.pduLength);
        if (!lspChecksumAccepted(h, body)) {
            fail(Reason::badChecksum, 0, 24, "checksum does not verify");
        }
        LspDecoder d(body.data(), h);
        auto content = d.run();
        return DecodedLsp{h, content, std::vector<std::uint8_t>(body.begin(), body.end())};
    } catch (const Failure& f) {
        return f.error;
    }
}

Poldo::Ptr<IC::IsisLspParsedContent> decodeAcceptedLsp(std::span<const std::uint8_t> pdu) {
    try {
        const LspHeader h = readHeader(pdu);
        LspDecoder d(pdu.data(), h);
        return d.run();
    } catch (const Failure&) {
        return nullptr;
    }
}

}  // namespace Routing::IsisDecoder
