#include "IgpCommon/platform/Isis.h"

#include <algorithm>
#include <string>

#include "IgpCommon/framework/Assert.h"
#include "IgpCommon/framework/Exceptions.h"

namespace Routing::Isis {

namespace {

/// The run of hex digits at the current position (not consumed).
std::string_view hexRun(const Kest::CharRange& r) noexcept {
    const char* p = r.current();
    while (p != r.end() && Kest::hexDigitValue(*p) >= 0) {
        ++p;
    }
    return {r.current(), static_cast<std::size_t>(p - r.current())};
}

std::uint8_t hexByte(const char* two) noexcept {
    return static_cast<std::uint8_t>((Kest::hexDigitValue(two[0]) << 4) | Kest::hexDigitValue(two[1]));
}

void appendHexByte(std::string& s, std::uint8_t b) {
    s += Kest::lowerHexDigits[b >> 4];
    s += Kest::lowerHexDigits[b & 0xf];
}

}  // namespace

// ---- SystemId -----------------------------------------------------------------

SystemId::SystemId() {
    // Deliberately the text constructor: the zero ID is whatever its text reads as.
    Kest::CharRange r("0000.0000.0000");
    *this = SystemId(r);
}

SystemId::SystemId(Kest::CharRange& r) : bytes_{} {
    std::array<std::uint8_t, 6> b{};
    for (std::size_t g = 0; g < 3; ++g) {
        if (g > 0) {
            r.expect(".");
        }
        const std::string_view run = hexRun(r);
        if (run.size() > 4) {
            throw Kest::RangeException("Routing::Isis::SystemId group " + std::string(run) +
                                       " has more than four hex digits");
        }
        if (run.size() < 4) {
            r.advance(run.size());
            r.fail("expected four hex digits in a system ID group");
        }
        b[2 * g] = hexByte(run.data());
        b[2 * g + 1] = hexByte(run.data() + 2);
        r.advance(4);
    }
    bytes_ = b;
}

SystemId SystemId::fromBytes(const std::uint8_t* six) noexcept {
    std::array<std::uint8_t, 6> b;
    std::copy_n(six, 6, b.begin());
    return SystemId(b);
}

std::uint8_t SystemId::byte(unsigned i) const noexcept {
    KEST_ASSERT_MSG(i < 6, "system ID byte index below 6");
    return bytes_[i];
}

std::uint32_t SystemId::hash(std::uint32_t seed) const noexcept {
    return Kest::HashState(seed).mixBytes(bytes_.data(), bytes_.size()).result();
}

Poldo::String SystemId::stringValue() const {
    std::string s;
    s.reserve(14);
    for (std::size_t i = 0; i < 6; ++i) {
        if (i == 2 || i == 4) {
            s += '.';
        }
        appendHexByte(s, bytes_[i]);
    }
    return s;
}

std::ostream& operator<<(std::ostream& os, const SystemId& id) {
    return os << id.stringValue();
}

// ---- AreaId -------------------------------------------------------------------

AreaId::AreaId(Kest::CharRange& r) {
    if (r.consume("none")) {
        return;
    }
    AreaId a;
    std::string_view run = hexRun(r);
    if (run.size() != 2) {
        if (run.size() < 2) {
            r.advance(run.size());
        }
        r.fail("expected two hex digits as the first byte of an area address");
    }
    a.bytes_[0] = hexByte(run.data());
    a.length_ = 1;
    r.advance(2);
    while (r.peek() == '.') {
        r.advance(1);
        run = hexRun(r);
        if (run.size() != 2 && run.size() != 4) {
            r.fail("expected two or four hex digits in an area address group");
        }
        if (a.length_ + run.size() / 2 > maxLength) {
            throw Kest::RangeException("Routing::Isis::AreaId of more than 13 bytes not allowed");
        }
        for (std::size_t i = 0; i < run.size(); i += 2) {
            a.bytes_[a.length_++] = hexByte(run.data() + i);
        }
        r.advance(run.size());
        if (run.size() == 2) {
            if (r.peek() == '.') {
                // Only the last byte of an odd length stands alone: "49.01.0001" is not canonical.
                r.fail("a two-digit group must end an area address");
            }
            break;
        }
    }
    *this = a;
}

AreaId AreaId::fromBytes(const std::uint8_t* p, std::size_t n) {
    if (n < 1 || n > maxLength) {
        throw Kest::RangeException("Routing::Isis::AreaId length " + std::to_string(n) +
                                   " < 1 or > 13 not allowed");
    }
    AreaId a;
    std::copy_n(p, n, a.bytes_.begin());
    a.length_ = static_cast<std::uint8_t>(n);
    return a;
}

bool AreaId::isEq(const AreaId& a, const AreaId& b) noexcept {
    return a.length_ == b.length_ &&
           std::equal(a.bytes_.begin(), a.bytes_.begin() + a.length_, b.bytes_.begin());
}

std::strong_ordering operator<=>(const AreaId& a, const AreaId& b) noexcept {
    if (a.length_ != b.length_) {
        return a.length_ <=> b.length_;
    }
    const auto x = a.bytes();
    const auto y = b.bytes();
    return std::lexicographical_compare_three_way(x.begin(), x.end(), y.begin(), y.end());
}

std::uint32_t AreaId::hash(std::uint32_t seed) const noexcept {
    // HalfSipHash folds the item count into its last word, so "no area" and
    // a one-byte 00 area hash differently without mixing the length.
    Kest::HashState s(seed);
    for (std::uint8_t b : bytes()) {
        s.mix8(b);
    }
    return s.result();
}

Poldo::String AreaId::stringValue() const {
    if (length_ == 0) {
        return "none";
    }
    std::string s;
    s.reserve(2 + 5 * 6 + 3);
    appendHexByte(s, bytes_[0]);
    for (std::size_t i = 1; i < length_; i += 2) {
        s += '.';
        appendHexByte(s, bytes_[i]);
        if (i + 1 < length_) {
            appendHexByte(s, bytes_[i + 1]);
        }
    }
    return s;
}

std::ostream& operator<<(std::ostream& os, const AreaId& a) {
    return os << a.stringValue();
}

}  // namespace Routing::Isis
