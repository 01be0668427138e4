#include "IgpCommon/platform/Lumo.h"

#include <algorithm>
#include <string>

#include "IgpCommon/framework/Exceptions.h"

namespace Lumo {

namespace {

bool isDigit(char c) noexcept {
    return c >= '0' && c <= '9';
}

const char* scanDigits(const Kest::CharRange& r) noexcept {
    const char* p = r.current();
    while (p != r.end() && isDigit(*p)) {
        ++p;
    }
    return p;
}

/// Reads at least one decimal digit. The value saturates instead of wrapping,
/// so an absurdly long number still reads as "too big" for the caller's check.
std::uint64_t readDecimal(Kest::CharRange& r, const char* what) {
    const char* first = r.current();
    const char* last = scanDigits(r);
    if (last == first) {
        r.fail(std::string("expected ") + what);
    }
    constexpr std::uint64_t cap = std::uint64_t{1} << 40;
    std::uint64_t v = 0;
    for (const char* p = first; p != last; ++p) {
        v = std::min(cap, v * 10 + static_cast<std::uint64_t>(*p - '0'));
    }
    r.advance(static_cast<std::size_t>(last - first));
    return v;
}

std::uint32_t fmix32(std::uint32_t h) noexcept {
    h ^= h >> 16;
    h *= 0x85ebca6bu;
    h ^= h >> 13;
    h *= 0xc2b2ae35u;
    h ^= h >> 16;
    return h;
}

std::uint32_t rotl32(std::uint32_t x, int b) noexcept {
    return (x << b) | (x >> (32 - b));
}

void writeHexGroup(std::string& out, std::uint16_t g) {
    bool started = false;
    for (int shift = 12; shift >= 0; shift -= 4) {
        const unsigned nibble = (g >> shift) & 0xfu;
        if (nibble != 0 || started || shift == 0) {
            out += Kest::lowerHexDigits[nibble];
            started = true;
        }
    }
}

[[noreturn]] void throwPrefixLength(unsigned len, unsigned max, const char* family) {
    throw Kest::RangeException("Lumo::IpGenPrefix::length " + std::to_string(len) + " > " +
                               std::to_string(max) + " not allowed for an " + family + " prefix");
}

}  // namespace

// ---- IpAddr -------------------------------------------------------------------

IpAddr::IpAddr(Kest::CharRange& r) {
    std::uint32_t v = 0;
    for (int i = 0; i < 4; ++i) {
        if (i > 0) {
            r.expect(".");
        }
        const char* first = r.current();
        const char* last = scanDigits(r);
        if (last - first > 1 && *first == '0') {
            r.fail("leading zero in an IPv4 octet");
        }
        const std::uint64_t octet = readDecimal(r, "a decimal octet of an IPv4 address");
        if (octet > 255) {
            throw Kest::RangeException("Lumo::IpAddr octet " + std::string(first, last) +
                                       " > 255 not allowed");
        }
        v = (v << 8) | static_cast<std::uint32_t>(octet);
    }
    value_ = v;
}

IpAddr IpAddr::fromBytes(const std::uint8_t* fourBytesNetworkOrder) noexcept {
    const std::uint8_t* p = fourBytesNetworkOrder;
    return IpAddr((std::uint32_t{p[0]} << 24) | (std::uint32_t{p[1]} << 16) | (std::uint32_t{p[2]} << 8) |
                  std::uint32_t{p[3]});
}

std::array<std::uint8_t, 4> IpAddr::bytes() const noexcept {
    return {static_cast<std::uint8_t>(value_ >> 24), static_cast<std::uint8_t>(value_ >> 16),
            static_cast<std::uint8_t>(value_ >> 8), static_cast<std::uint8_t>(value_)};
}

std::uint32_t IpAddr::hash() const noexcept {
    return fmix32(value_);
}

Poldo::String IpAddr::stringValue() const {
    std::string s;
    s.reserve(15);
    for (std::uint8_t b : bytes()) {
        if (!s.empty()) {
            s += '.';
        }
        s += std::to_string(b);
    }
    return s;
}

std::ostream& operator<<(std::ostream& os, const IpAddr& a) {
    return os << a.stringValue();
}

// ---- Ip6Addr ------------------------------------------------------------------

Ip6Addr::Ip6Addr(Kest::CharRange& r) {
    std::array<std::uint16_t, 8> groups{};
    int n = 0;
    int gap = -1;  // index in groups where "::" stands
    if (r.consume("::")) {
        gap = 0;
    }
    for (;;) {
        if (gap == n && Kest::hexDigitValue(r.peek()) < 0) {
            break;  // "::" ends the address
        }
        const char* first = r.current();
        const char* last = first;
        while (last != r.end() && Kest::hexDigitValue(*last) >= 0) {
            ++last;
        }
        if (last == first) {
            r.fail("expected a hexadecimal group of an IPv6 address");
        }
        if (last != r.end() && *last == '.') {
            // A dotted quad is the last 32 bits.
            if (n > 6) {
                r.fail("too many groups in an IPv6 address");
            }
            const IpAddr v4(r);
            groups[static_cast<std::size_t>(n++)] = static_cast<std::uint16_t>(v4.value() >> 16);
            groups[static_cast<std::size_t>(n++)] = static_cast<std::uint16_t>(v4.value());
            break;
        }
        if (last - first > 4) {
            throw Kest::RangeException("Lumo::Ip6Addr group " + std::string(first, last) +
                                       " has more than four hex digits");
        }
        if (n == 8) {
            r.fail("too many groups in an IPv6 address");
        }
        std::uint16_t g = 0;
        for (const char* p = first; p != last; ++p) {
            g = static_cast<std::uint16_t>((g << 4) | Kest::hexDigitValue(*p));
        }
        groups[static_cast<std::size_t>(n++)] = g;
        r.advance(static_cast<std::size_t>(last - first));
        if (r.rest().starts_with("::")) {
            if (gap >= 0) {
                r.fail("a second \"::\" in an IPv6 address");
            }
            r.advance(2);
            gap = n;
        } else if (r.consume(":")) {
            // another group must follow; the loop insists on it
        } else {
            break;
        }
    }
    if (gap >= 0) {
        if (n > 7) {
            r.fail("\"::\" with eight groups in an IPv6 address");
        }
        // Move the groups after "::" to the end; the gap reads as zeros.
        const int tail = n - gap;
        std::array<std::uint16_t, 8> full{};
        std::copy_n(groups.begin(), gap, full.begin());
        std::copy_n(groups.begin() + gap, tail, full.end() - tail);
        groups = full;
    } else if (n != 8) {
        r.fail("too few groups in an IPv6 address");
    }
    for (std::size_t i = 0; i < 8; ++i) {
        bytes_[2 * i] = static_cast<std::uint8_t>(groups[i] >> 8);
        bytes_[2 * i + 1] = static_cast<std::uint8_t>(groups[i]);
    }
}

Ip6Addr Ip6Addr::fromBytes(const std::uint8_t* sixteen) noexcept {
    Ip6Addr a;
    std::copy_n(sixteen, 16, a.bytes_.begin());
    return a;
}

bool Ip6Addr::isZero() const noexcept {
    return std::all_of(bytes_.begin(), bytes_.end(), [](std::uint8_t b) { return b == 0; });
}

std::uint32_t Ip6Addr::hash() const noexcept {
    std::uint32_t h = 0;
    for (std::size_t i = 0; i < 16; i += 4) {
        std::uint32_t k = std::uint32_t{bytes_[i]} | (std::uint32_t{bytes_[i + 1]} << 8) |
                          (std::uint32_t{bytes_[i + 2]} << 16) | (std::uint32_t{bytes_[i + 3]} << 24);
        k *= 0xcc9e2d51u;
        k = rotl32(k, 15);
        k *= 0x1b873593u;
        h ^= k;
        h = rotl32(h, 13);
        h = h * 5 + 0xe6546b64u;
    }
    return fmix32(h ^ 16u);
}

std::uint32_t Ip6Addr::hash(std::uint32_t seed) const noexcept {
    return Kest::WordHash(seed).bytes16(bytes_.data()).result();
}

Poldo::String Ip6Addr::stringValue() const {
    std::array<std::uint16_t, 8> g{};
    for (std::size_t i = 0; i < 8; ++i) {
        g[i] = static_cast<std::uint16_t>((bytes_[2 * i] << 8) | bytes_[2 * i + 1]);
    }
    std::string s;
    s.reserve(39);
    if (g[0] == 0 && g[1] == 0 && g[2] == 0 && g[3] == 0 && g[4] == 0 && g[5] == 0xffff) {
        // IPv4-mapped: the embedded address reads better as a dotted quad.
        s = "::ffff:";
        s += IpAddr::fromBytes(&bytes_[12]).stringValue();
        return s;
    }
    // The longest run of two or more zero groups; the first one wins a tie.
    int bestStart = -1;
    int bestLen = 1;
    for (int i = 0; i < 8;) {
        if (g[static_cast<std::size_t>(i)] != 0) {
            ++i;
            continue;
        }
        int j = i;
        while (j < 8 && g[static_cast<std::size_t>(j)] == 0) {
            ++j;
        }
        if (j - i > bestLen) {
            bestStart = i;
            bestLen = j - i;
        }
        i = j;
    }
    for (int i = 0; i < 8; ++i) {
        if (i == bestStart) {
            s += "::";
            i += bestLen - 1;
            continue;
        }
        if (!s.empty() && s.back() != ':') {
            s += ':';
        }
        writeHexGroup(s, g[static_cast<std::size_t>(i)]);
    }
    return s;
}

std::ostream& operator<<(std::ostream& os, const Ip6Addr& a) {
    return os << a.stringValue();
}

// ---- IpGenAddr ----------------------------------------------------------------

IpGenAddr::IpGenAddr(Kest::CharRange& r) {
    if (r.consume("none")) {
        return;
    }
    // Look ahead over the characters an address may hold: a ':' means IPv6.
    const char* p = r.current();
    bool colon = false;
    while (p != r.end() && (Kest::hexDigitValue(*p) >= 0 || *p == '.' || *p == ':')) {
        colon = colon || *p == ':';
        ++p;
    }
    if (colon) {
        *this = IpGenAddr(Ip6Addr(r));
    } else {
        *this = IpGenAddr(IpAddr(r));
    }
}

std::uint32_t IpGenAddr::hash() const noexcept {
    switch (family_) {
        case Family::ipv4:
            return v4_.hash();
        case Family::ipv6:
            return v6_.hash();
        case Family::none:
            break;
    }
    return 0;
}

std::uint32_t IpGenAddr::hash(std::uint32_t seed) const noexcept {
    // The family byte, then the address: words that straddle the address's own.
    const std::uint32_t family = static_cast<std::uint8_t>(family_);
    Kest::WordHash h(seed);
    if (isIpv4()) {
        const std::uint32_t v = v4_.value();
        return h.word(family | (v << 8)).result(v >> 24, 1);
    }
    if (isIpv6()) {
        const std::uint8_t* b = v6_.bytes().data();
        return h.word(family | (Kest::detail::loadLe32(b) << 8))
            .word(Kest::detail::loadLe32(b + 3))
            .word(Kest::detail::loadLe32(b + 7))
            .word(Kest::detail::loadLe32(b + 11))
            .result(b[15], 1);
    }
    return h.result(family, 1);
}

Poldo::String IpGenAddr::stringValue() const {
    switch (family_) {
        case Family::ipv4:
            return v4_.stringValue();
        case Family::ipv6:
            return v6_.stringValue();
        case Family::none:
            break;
    }
    return "none";
}

std::ostream& operator<<(std::ostream& os, const IpGenAddr& a) {
    return os << a.stringValue();
}

// ---- IpGenPrefix --------------------------------------------------------------

IpGenPrefix::IpGenPrefix(IpAddr addr, std::uint8_t len) : addr_(addr), length_(len) {
    if (len > 32) {
        throwPrefixLength(len, 32, "IPv4");
    }
}

IpGenPrefix::IpGenPrefix(const Ip6Addr& addr, std::uint8_t len) : addr_(addr), length_(len) {
    if (len > 128) {
        throwPrefixLength(len, 128, "IPv6");
    }
}

IpGenPrefix::IpGenPrefix(Kest::CharRange& r) {
    if (r.consume("none")) {
        return;
    }
    const IpGenAddr a(r);
    if (a.isNone()) {
        r.fail("expected an address before \"/\"");
    }
    r.expect("/");
    const std::uint64_t len = readDecimal(r, "a prefix length");
    const unsigned max = a.isIpv4() ? 32 : 128;
    if (len > max) {
        throwPrefixLength(static_cast<unsigned>(len), max, a.isIpv4() ? "IPv4" : "IPv6");
    }
    addr_ = a;
    length_ = static_cast<std::uint8_t>(len);
}

IpGenPrefix IpGenPrefix::masked() const {
    // The length was checked when the prefix was made: no constructor checks it again.
    IpGenPrefix out = *this;
    if (isIpv4()) {
        const std::uint32_t mask = length_ == 0 ? 0 : ~std::uint32_t{0} << (32 - length_);
        out.addr_ = IpGenAddr(IpAddr(ipv4Addr().value() & mask));
    } else if (isIpv6() && length_ < 128) {
        std::array<std::uint8_t, 16> b = ipv6Addr().bytes();
        const unsigned whole = length_ / 8u;
        b[whole] = static_cast<std::uint8_t>(b[whole] & (0xff00u >> (length_ % 8u)));
        std::fill(b.begin() + whole + 1, b.end(), std::uint8_t{0});
        out.addr_ = IpGenAddr(Ip6Addr::fromBytes(b.data()));
    }
    return out;
}

std::uint32_t IpGenPrefix::hash(std::uint32_t seed) const noexcept {
    // The family and length bytes, then the address: words that straddle the address's own.
    const std::uint32_t head = std::uint32_t{family()} | (std::uint32_t{length_} << 8);
    Kest::WordHash h(seed);
    if (isIpv4()) {
        const std::uint32_t v = ipv4Addr().value();
        return h.word(head | (v << 16)).result(v >> 16, 2);
    }
    if (isIpv6()) {
        const std::uint8_t* b = ipv6Addr().bytes().data();
        return h.word(head | (Kest::detail::loadLe32(b) << 16))
            .word(Kest::detail::loadLe32(b + 2))
            .word(Kest::detail::loadLe32(b + 6))
            .word(Kest::detail::loadLe32(b + 10))
            .result(b[14] | (std::uint32_t{b[15]} << 8), 2);
    }
    return h.result(head, 2);
}

Poldo::String IpGenPrefix::stringValue() const {
    if (addr_.isNone()) {
        return "none";
    }
    return addr_.stringValue() + "/" + std::to_string(length_);
}

std::ostream& operator<<(std::ostream& os, const IpGenPrefix& p) {
    return os << p.stringValue();
}

// ---- MplsLabel ----------------------------------------------------------------

namespace {

[[noreturn]] void throwLabelRange() {
    throw Kest::RangeException::boundedValue("Lumo::MplsLabel", "luWithdraw");
}

}  // namespace

MplsLabel::MplsLabel(std::uint32_t value) : value_(value) {
    if (value > luWithdraw) {
        throwLabelRange();
    }
}

MplsLabel::MplsLabel(Kest::CharRange& r) {
    const std::uint64_t v = readDecimal(r, "a decimal MPLS label");
    if (v > luWithdraw) {
        throwLabelRange();
    }
    value_ = static_cast<std::uint32_t>(v);
}

Poldo::String MplsLabel::prettyString() const {
    const char* name = nullptr;
    switch (value_) {
        case 0:
            name = "ipv4-explicit-null";
            break;
        case 1:
            name = "router-alert";
            break;
        case 2:
            name = "ipv6-explicit-null";
            break;
        case 3:
            name = "implicit-null";
            break;
        case 7:
            name = "entropy-label-indicator";
            break;
        case 13:
            name = "gal";
            break;
        case 14:
            name = "oam-alert";
            break;
        case 15:
            name = "extension";
            break;
        case luWithdraw:
            name = "withdraw";
            break;
        default:
            break;
    }
    std::string s = std::to_string(value_);
    if (name != nullptr) {
        s += " (";
        s += name;
        s += ')';
    }
    return s;
}

Poldo::String MplsLabel::stringValue() const {
    return std::to_string(value_);
}

std::ostream& operator<<(std::ostream& os, const MplsLabel& l) {
    Kest::writeUnsigned(os, l.value());  // decimal whatever base the stream was left in
    return os;
}

}  // namespace Lumo
