// Readers of the fields that several TLV families share.

#include "LspDecoder.h"

#include <cstdio>

namespace Routing::IsisDecoder::detail {

// A prefix of `len` bits stored in the fewest octets (RFC 5305 4, RFC 5308 2).
Lumo::IpGenPrefix readPrefix(Cursor& c, std::uint8_t len, bool v6, std::size_t at) {
    if (len > (v6 ? 128 : 32)) {
        fail(Reason::badPrefixLength, c.tlv(), at, "prefix length " + std::to_string(len) + " out of range");
    }
    const std::size_t n = (len + 7u) / 8u;
    c.need(n, Reason::truncatedEntry, at, "prefix octets run past the TLV end");
    std::uint8_t buf[16] = {};
    std::memcpy(buf, c.bytes(n), n);
    // Bits past the length are cleared here, as IpGenPrefix::masked() would.
    if (len % 8 != 0) {
        buf[n - 1] &= static_cast<std::uint8_t>(0xFF00u >> (len % 8));
    }
    if (v6) {
        return Lumo::IpGenPrefix(Lumo::Ip6Addr::fromBytes(buf), len);
    }
    return Lumo::IpGenPrefix(Lumo::IpAddr::fromBytes(buf), len);
}

void failSidValue(const Cursor& c, std::uint8_t flags, std::size_t at) {
    char buf[80];
    std::snprintf(buf, sizeof buf, "SID flags 0x%02x do not match a %zu-octet value", flags, c.remaining());
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

}  // namespace Routing::IsisDecoder::detail
