// IP reachability: TLVs 128, 130, 135, 235, 236, 237 and the prefix sub-TLVs.

#include "LspDecoder.h"

namespace Routing::IsisDecoder::detail {

void LspDecoder::prefixSubTlvs(Cursor& subs, const Poldo::Ptr<IC::Prefix>& pfx) {
    while (!subs.empty()) {
        Item s = nextItem(subs, Reason::subTlvOverrun);
        Cursor& v = s.value;
        if (s.type == PrefixSubTlv::prefixSid) {
            v.need(2, Reason::badLength, s.start, "prefix SID too short");
            const std::uint8_t flags = v.u8();
            const std::uint8_t algo = v.u8();
            const std::uint32_t value = readSidValue(v, flags, IC::PrefixSid::labelFlagsMask, s.start);
            // The model keeps the default algorithm's SID only.
            if (algo == 0) {
                pfx->prefixSidIs(IC::PrefixSid(flags, value, 0, true));
            }
        } else if (s.type == PrefixSubTlv::flexAlgoPrefixMetric) {
            expectLength(s, 5, "flex-algo prefix metric is not 5 octets");
            const std::uint8_t algo = v.u8();
            pfx->prefixMetric()->metricIs(algo, v.u32());
        }
    }
}

Poldo::Ptr<IC::Prefix> LspDecoder::addPrefix(const Lumo::IpGenPrefix& p, IC::IgpMultiTopologyId mt,
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
void LspDecoder::v4Prefixes(Item& it, IC::IgpMultiTopologyId mt) {
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
void LspDecoder::v6Prefixes(Item& it, IC::IgpMultiTopologyId mt) {
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
void LspDecoder::narrowPrefixes(Item& it) {
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
        addPrefix(Lumo::IpGenPrefix(addr, static_cast<std::uint8_t>(len)).masked(), IC::IgpMultiTopologyId(0),
                  def & 0x3F, (def & 0x80) != 0);
    }
}

}  // namespace Routing::IsisDecoder::detail
