#include "IsisDecoder/Encoder.h"

#include <cstring>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>

#include "IsisDecoder/Decoder.h"

namespace Routing::IsisDecoder {

namespace {

namespace IC = Routing::IgpCommon;
using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t headerLength = 27;
constexpr std::size_t maxTlvValue = 255;

class Writer {
public:
    Writer& u8(unsigned v) {
        b_.push_back(static_cast<std::uint8_t>(v));
        return *this;
    }
    Writer& u16(unsigned v) { return u8(v >> 8).u8(v); }
    Writer& u24(std::uint32_t v) { return u8(v >> 16).u8(v >> 8).u8(v); }
    Writer& u32(std::uint32_t v) { return u8(v >> 24).u8(v >> 16).u8(v >> 8).u8(v); }
    Writer& f32(float f) {
        std::uint32_t bits;
        static_assert(sizeof bits == sizeof f);
        std::memcpy(&bits, &f, sizeof bits);
        return u32(bits);
    }
    template <class Range>
    Writer& raw(const Range& r) {
        b_.insert(b_.end(), std::begin(r), std::end(r));
        return *this;
    }
    Writer& raw(const std::uint8_t* p, std::size_t n) {
        b_.insert(b_.end(), p, p + n);
        return *this;
    }
    /// A TLV or sub-TLV: type, length, value.
    Writer& tlv(unsigned type, const Writer& value) {
        if (value.size() > maxTlvValue) {
            throw std::length_error("TLV " + std::to_string(type) + " value of " +
                                    std::to_string(value.size()) + " octets");
        }
        return u8(type).u8(static_cast<unsigned>(value.size())).raw(value.b_);
    }
    std::size_t size() const noexcept { return b_.size(); }
    const Bytes& bytes() const noexcept { return b_; }

private:
    Bytes b_;
};

Writer& nodeIdBytes(Writer& w, const IC::IgpNodeId& id) {
    for (unsigned i = 0; i < 7; ++i) {
        w.u8(id.bytes().slot(i));
    }
    return w;
}

Writer& v6(Writer& w, const Lumo::Ip6Addr& a) {
    return w.raw(a.bytes());
}

// A prefix in the fewest octets its length needs (RFC 5305 4, RFC 5308 2).
Writer& prefixBits(Writer& w, const Lumo::IpGenPrefix& p) {
    const std::size_t n = (p.length() + 7u) / 8u;
    if (p.isIpv4()) {
        const auto b = p.ipv4Addr().bytes();
        return w.raw(b.data(), n);
    }
    return w.raw(p.ipv6Addr().bytes().data(), n);
}

// A SID value: 3 octets when the V and L flags of `labelMask` are set, else 4 (RFC 8667 2.1).
Writer& sidValue(Writer& w, std::uint8_t flags, std::uint8_t labelMask, std::uint32_t value) {
    return (flags & labelMask) == labelMask ? w.u24(value) : w.u32(value);
}

Writer prefixSidSubTlv(const IC::PrefixSid& sid) {
    Writer v;
    v.u8(sid.flags()).u8(sid.algorithm());
    sidValue(v, sid.flags(), IC::PrefixSid::labelFlagsMask, sid.value());
    return v;
}

// ---- node-wide TLVs -------------------------------------------------------------

Writer srBlockSubTlv(const SrBlockPlan& b) {
    Writer v;
    v.u8(b.flags);
    for (const auto& [size, first] : b.ranges) {
        v.u24(size);
        v.tlv(1, Writer().u24(first));  // SID/label sub-TLV holding a label (RFC 8667 2.3)
    }
    return v;
}

Writer fadSubTlv(const FadPlan& f) {
    Writer v;
    v.u8(f.algo).u8(f.metricType).u8(f.calcType).u8(f.priority);
    const std::pair<unsigned, const std::vector<std::uint32_t>*> words[] = {
        {1, &f.excludeAny}, {2, &f.includeAny}, {3, &f.includeAll}, {5, &f.excludeSrlg}};
    for (const auto& [type, list] : words) {
        if (list->empty()) {
            continue;
        }
        Writer w;
        for (const std::uint32_t x : *list) {
            w.u32(x);
        }
        v.tlv(type, w);
    }
    return v;
}

void nodeTlvs(const LspPlan& s, std::vector<Writer>& out) {
    if (!s.areas.empty()) {
        Writer v;
        for (const auto& a : s.areas) {
            v.u8(static_cast<unsigned>(a.size())).raw(a);
        }
        out.push_back(Writer().tlv(1, v));
    }
    if (!s.mtIds.empty()) {
        Writer v;
        for (const std::uint16_t mt : s.mtIds) {
            v.u16(mt);
        }
        out.push_back(Writer().tlv(229, v));
    }
    if (!s.hostName.empty()) {
        out.push_back(Writer().tlv(137, Writer().raw(s.hostName)));
    }
    if (!s.routerIdV4.isZero()) {
        out.push_back(Writer().tlv(134, Writer().u32(s.routerIdV4.value())));
    }
    if (!s.routerIdV6.isZero()) {
        Writer v;
        v6(v, s.routerIdV6);
        out.push_back(Writer().tlv(140, v));
    }
    if (s.srgb || s.srlb || !s.msds.empty() || !s.fads.empty()) {
        Writer v;
        v.u32(s.routerIdV4.value()).u8(0);  // RFC 7981 2: router ID, flags
        if (s.srgb) {
            v.tlv(2, srBlockSubTlv(*s.srgb));
        }
        if (s.srlb) {
            v.tlv(22, srBlockSubTlv(*s.srlb));
        }
        if (!s.msds.empty()) {
            Writer m;
            for (const auto& [type, value] : s.msds) {
                m.u8(type).u8(value);
            }
            v.tlv(23, m);
        }
        for (const FadPlan& f : s.fads) {
            v.tlv(26, fadSubTlv(f));
        }
        out.push_back(Writer().tlv(242, v));
    }
    for (const BindingPlan& b : s.bindings) {
        Writer v;
        v.u8(b.flags).u8(0).u16(b.range).u8(b.prefix.length());
        prefixBits(v, b.prefix);
        if (b.label) {
            v.tlv(1, Writer().u24(*b.label));
        }
        if (b.prefixSid) {
            v.tlv(3, prefixSidSubTlv(*b.prefixSid));
        }
        out.push_back(Writer().tlv(149, v));
    }
}

// ---- entries packed into TLVs ------------------------------------------------------

Writer linkEntry(const LinkPlan& l) {
    Writer sub;
    if (l.localV4) {
        sub.tlv(6, Writer().u32(l.localV4->value()));
    }
    if (l.remoteV4) {
        sub.tlv(8, Writer().u32(l.remoteV4->value()));
    }
    if (l.localV6) {
        Writer a;
        sub.tlv(12, v6(a, *l.localV6));
    }
    if (l.remoteV6) {
        Writer a;
        sub.tlv(13, v6(a, *l.remoteV6));
    }
    if (l.te) {
        sub.tlv(3, Writer().u32(l.adminGroup));
        sub.tlv(9, Writer().f32(l.maxBw));
        sub.tlv(10, Writer().f32(l.maxRsvBw));
        Writer bw;
        for (const float f : l.unrsvBw) {
            bw.f32(f);
        }
        sub.tlv(11, bw);
        if (!l.extAdminGroup.empty()) {
            Writer w;
            for (const std::uint32_t x : l.extAdminGroup) {
                w.u32(x);
            }
            sub.tlv(14, w);
        }
        sub.tlv(18, Writer().u24(l.teMetric));
    }
    for (const auto& sid : l.adjSids) {
        Writer v;
        v.u8(sid.flags()).u8(sid.weight());
        sub.tlv(31, sidValue(v, sid.flags(), IC::AdjacencySid::labelFlagsMask, sid.value()));
    }
    for (const auto& sid : l.lanAdjSids) {
        Writer v;
        v.u8(sid.flags()).u8(sid.weight()).raw(sid.systemId().bytes());
        sub.tlv(32, sidValue(v, sid.flags(), IC::AdjacencySid::labelFlagsMask, sid.value()));
    }
    Writer e;
    nodeIdBytes(e, l.neighbor).u24(l.metric);
    if (sub.size() > maxTlvValue) {
        throw std::length_error("sub-TLVs of one neighbor exceed 255 octets");
    }
    return e.u8(static_cast<unsigned>(sub.size())).raw(sub.bytes());
}

Writer prefixEntry(const PrefixPlan& p) {
    Writer sub;
    if (p.sid) {
        sub.tlv(3, prefixSidSubTlv(*p.sid));
    }
    for (const auto& [algo, metric] : p.flexAlgoMetrics) {
        sub.tlv(6, Writer().u8(algo).u32(metric));  // RFC 9350 8.1
    }
    Writer e;
    e.u32(p.metric);
    const bool hasSub = sub.size() != 0;
    if (p.prefix.isIpv4()) {
        // RFC 5305 4: up/down, sub-TLV presence and the length in one octet.
        e.u8((p.down ? 0x80u : 0u) | (hasSub ? 0x40u : 0u) | p.prefix.length());
    } else {
        // RFC 5308 2: U, X and S flags, then the length.
        e.u8((p.down ? 0x80u : 0u) | (hasSub ? 0x20u : 0u)).u8(p.prefix.length());
    }
    prefixBits(e, p.prefix);
    if (hasSub) {
        e.u8(static_cast<unsigned>(sub.size())).raw(sub.bytes());
    }
    return e;
}

Writer srlgEntryV4(const LinkPlan& l) {
    Writer v;
    nodeIdBytes(v, l.neighbor).u8(1);  // numbered: addresses follow (RFC 5307 1.4)
    v.u32(l.localV4->value()).u32(l.remoteV4 ? l.remoteV4->value() : 0);
    for (const std::uint32_t x : l.srlgs) {
        v.u32(x);
    }
    return v;
}

Writer srlgEntryV6(const LinkPlan& l) {
    Writer v;
    nodeIdBytes(v, l.neighbor).u8(l.remoteV6 ? 1 : 0);  // NA: a neighbor address follows (RFC 6119 4.3)
    v6(v, *l.localV6);
    if (l.remoteV6) {
        v6(v, *l.remoteV6);
    }
    for (const std::uint32_t x : l.srlgs) {
        v.u32(x);
    }
    return v;
}

/// Entries of one TLV type, packed into as few TLVs as fit; `mtId` (when
/// given) opens each TLV's value (RFC 5120 7.2 to 7.4).
class Packer {
public:
    Packer(std::vector<Writer>& out, unsigned type, int mtId) : out_(out), type_(type), mtId_(mtId) {}
    ~Packer() { flush(); }
    Packer(const Packer&) = delete;
    Packer& operator=(const Packer&) = delete;

    void add(const Writer& entry) {
        const std::size_t head = mtId_ >= 0 ? 2 : 0;
        if (head + entry.size() > maxTlvValue) {
            throw std::length_error("an entry of TLV " + std::to_string(type_) + " exceeds 255 octets");
        }
        if (value_.size() + entry.size() > maxTlvValue) {
            flush();
        }
        if (value_.size() == 0 && mtId_ >= 0) {
            value_.u16(static_cast<unsigned>(mtId_));
        }
        value_.raw(entry.bytes());
    }
    void flush() {
        if (value_.size() > 0) {
            out_.push_back(Writer().tlv(type_, value_));
            value_ = Writer();
        }
    }

private:
    std::vector<Writer>& out_;
    unsigned type_;
    int mtId_;
    Writer value_;
};

void entryTlvs(const LspPlan& s, std::vector<Writer>& out) {
    // Per topology: TLV 22 for MT 0, 222 for the others; likewise for prefixes.
    std::map<std::uint16_t, std::vector<const LinkPlan*>> linksByMt;
    for (const LinkPlan& l : s.links) {
        linksByMt[l.mtId].push_back(&l);
    }
    for (const auto& [mt, links] : linksByMt) {
        Packer p(out, mt == 0 ? 22 : 222, mt == 0 ? -1 : mt);
        for (const LinkPlan* l : links) {
            p.add(linkEntry(*l));
        }
    }
    std::map<std::pair<bool, std::uint16_t>, std::vector<const PrefixPlan*>> prefixesByKind;
    for (const PrefixPlan& p : s.prefixes) {
        prefixesByKind[{p.prefix.isIpv6(), p.mtId}].push_back(&p);
    }
    for (const auto& [kind, prefixes] : prefixesByKind) {
        const auto [isV6, mt] = kind;
        const unsigned type = isV6 ? (mt == 0 ? 236 : 237) : (mt == 0 ? 135 : 235);
        Packer p(out, type, mt == 0 ? -1 : mt);
        for (const PrefixPlan* x : prefixes) {
            p.add(prefixEntry(*x));
        }
    }
    // One SRLG TLV per link: each names its link, so they are not packed.
    for (const LinkPlan& l : s.links) {
        if (!l.srlgs.empty() && l.localV4) {
            out.push_back(Writer().tlv(138, srlgEntryV4(l)));
        }
    }
    for (const LinkPlan& l : s.links) {
        if (!l.srlgs.empty() && l.srlgV6 && l.localV6) {
            out.push_back(Writer().tlv(139, srlgEntryV6(l)));
        }
    }
}

Bytes header(const LspPlan& s, std::uint8_t fragment, const EncodeParams& params) {
    Writer h;
    h.u8(0x83).u8(headerLength).u8(1).u8(6).u8(params.level == 1 ? 18 : 20).u8(1).u8(0).u8(0);
    h.u16(0).u16(params.lifetime);  // PDU length filled in later
    nodeIdBytes(h, s.id).u8(fragment);
    h.u32(params.sequence).u16(0);
    // ATT (default metric), OL, and IS type 3 (level 1 and 2).
    h.u8((s.attached ? 0x08u : 0u) | (s.overload ? 0x04u : 0u) | 0x03u);
    return h.bytes();
}

}  // namespace

std::vector<Bytes> encodeLsp(const LspPlan& lsp, const EncodeParams& params) {
    std::vector<Writer> nodeWide, entries;
    nodeTlvs(lsp, nodeWide);
    entryTlvs(lsp, entries);

    std::vector<Bytes> fragments;
    fragments.push_back(header(lsp, 0, params));
    auto place = [&](const Writer& tlv) {
        if (fragments.back().size() + tlv.size() > params.maxPduSize) {
            if (fragments.size() == 256) {
                throw std::length_error("LSP needs more than 256 fragments");
            }
            fragments.push_back(header(lsp, static_cast<std::uint8_t>(fragments.size()), params));
        }
        fragments.back().insert(fragments.back().end(), tlv.bytes().begin(), tlv.bytes().end());
    };
    for (const Writer& t : nodeWide) {
        place(t);
    }
    // The content says these came in fragment 0 (binding and flex-algo fragment IDs).
    if (fragments.size() != 1) {
        throw std::length_error("node-wide TLVs do not fit fragment 0");
    }
    for (const Writer& t : entries) {
        place(t);
    }
    for (Bytes& f : fragments) {
        f[8] = static_cast<std::uint8_t>(f.size() >> 8);
        f[9] = static_cast<std::uint8_t>(f.size());
        fillLspChecksum(f);
    }
    return fragments;
}

}  // namespace Routing::IsisDecoder
