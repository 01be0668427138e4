// Lumo: network value types (IPv4 and IPv6 addresses, prefixes, MPLS labels).
//
// Contract: every type here is a small, regular value (copyable, comparable
// with == and <=> as a strong ordering) with a seeded hash, hash(seed), made
// by Kest::HashState from the raw value, and one canonical text form that
// operator<< and stringValue() write and the constructor from
// Kest::CharRange& reads, so that Kest::strep and Kest::strepToValue work.
// Readers are strict: no white space is skipped, and a reader stops at the
// first character that cannot continue the value (strepToValue then insists
// that the whole text was used). A number outside its range raises
// Kest::RangeException, any other malformed text Kest::ParseException.
//
// IpAddr and Ip6Addr also have an unseeded hash(): a fixed mixer of the
// address alone, identical in every process, for tables that are shared or
// persisted and so cannot use the process-wide random seed. Anyone can find
// addresses that collide under it, so no table of addresses that arrive from
// the network may use it, not even as a step before a seeded hash: the
// library's keys feed the address bytes themselves to their seeded hash.
//
// Costs: no type allocates except for the strings that stringValue() returns;
// comparisons and hashes are a few instructions (Ip6Addr: 16 bytes).
#pragma once

#include <array>
#include <bit>
#include <compare>
#include <cstdint>
#include <ostream>

#include "IgpCommon/framework/Hash.h"
#include "IgpCommon/framework/String.h"
#include "IgpCommon/framework/Text.h"

namespace Lumo {

enum class Family : std::uint8_t { none = 0, ipv4 = 1, ipv6 = 2 };

/// An IPv4 address, held as a host-order 32-bit number. Text: "10.0.0.1";
/// the reader takes four decimal octets (0 to 255, no leading zeros, which
/// some tools read as octal).
class IpAddr {
public:
    constexpr IpAddr() noexcept = default;
    constexpr explicit IpAddr(std::uint32_t hostOrder) noexcept : value_(hostOrder) {}
    explicit IpAddr(Kest::CharRange& r);

    /// From four bytes in network order (as in a packet).
    static IpAddr fromBytes(const std::uint8_t* fourBytesNetworkOrder) noexcept;

    constexpr std::uint32_t value() const noexcept { return value_; }
    /// The four bytes in network order.
    std::array<std::uint8_t, 4> bytes() const noexcept;
    constexpr bool isZero() const noexcept { return value_ == 0; }

    /// The unseeded hash: the murmur3 fmix32 finalizer of the value.
    std::uint32_t hash() const noexcept;
    std::uint32_t hash(std::uint32_t seed) const noexcept {
        return Kest::WordHash(seed).word(value_).result();
    }

    Poldo::String stringValue() const;

    friend constexpr bool operator==(const IpAddr&, const IpAddr&) noexcept = default;
    friend constexpr std::strong_ordering operator<=>(const IpAddr&, const IpAddr&) noexcept = default;

private:
    std::uint32_t value_ = 0;
};

std::ostream& operator<<(std::ostream& os, const IpAddr& a);

/// An IPv6 address: 16 bytes in network order, ordered bytewise unsigned.
/// Text is written in the RFC 5952 canonical form; the reader takes any RFC
/// 4291 form (compressed, embedded IPv4, either case).
class Ip6Addr {
public:
    constexpr Ip6Addr() noexcept = default;
    explicit Ip6Addr(Kest::CharRange& r);

    static Ip6Addr fromBytes(const std::uint8_t* sixteen) noexcept;

    const std::array<std::uint8_t, 16>& bytes() const noexcept { return bytes_; }
    bool isZero() const noexcept;

    /// The unseeded hash: MurmurHash3 (x86, 32-bit) of the 16 bytes with seed 0.
    std::uint32_t hash() const noexcept;
    std::uint32_t hash(std::uint32_t seed) const noexcept;

    Poldo::String stringValue() const;

    /// As two words: comparing the byte arrays calls memcmp out of line, and
    /// keys holding addresses are compared on every look-up.
    friend constexpr bool operator==(const Ip6Addr& a, const Ip6Addr& b) noexcept {
        using Words = std::array<std::uint64_t, 2>;
        const auto x = std::bit_cast<Words>(a.bytes_);
        const auto y = std::bit_cast<Words>(b.bytes_);
        return ((x[0] ^ y[0]) | (x[1] ^ y[1])) == 0;
    }
    friend constexpr std::strong_ordering operator<=>(const Ip6Addr&, const Ip6Addr&) noexcept = default;

private:
    std::array<std::uint8_t, 16> bytes_{};
};

std::ostream& operator<<(std::ostream& os, const Ip6Addr& a);

/// An address of either family, or none. Text: the address's own text, or
/// "none". Ordered by family (none < IPv4 < IPv6), then address.
class IpGenAddr {
public:
    constexpr IpGenAddr() noexcept = default;
    constexpr IpGenAddr(IpAddr a) noexcept : family_(Family::ipv4), v4_(a) {}
    constexpr IpGenAddr(const Ip6Addr& a) noexcept : family_(Family::ipv6), v6_(a) {}
    explicit IpGenAddr(Kest::CharRange& r);

    constexpr Family family() const noexcept { return family_; }
    constexpr bool isIpv4() const noexcept { return family_ == Family::ipv4; }
    constexpr bool isIpv6() const noexcept { return family_ == Family::ipv6; }
    constexpr bool isNone() const noexcept { return family_ == Family::none; }
    /// The IPv4 address, or 0.0.0.0 when this is not an IPv4 address.
    constexpr IpAddr ipv4() const noexcept { return v4_; }
    /// The IPv6 address, or :: when this is not an IPv6 address.
    constexpr const Ip6Addr& ipv6() const noexcept { return v6_; }

    /// Unseeded, deterministic: the address's own hash, 0 for none.
    std::uint32_t hash() const noexcept;
    std::uint32_t hash(std::uint32_t seed) const noexcept;

    Poldo::String stringValue() const;

    // The other family's member stays zero, so member-wise comparison is
    // exactly "family first, then the address".
    friend constexpr bool operator==(const IpGenAddr&, const IpGenAddr&) noexcept = default;
    friend constexpr std::strong_ordering operator<=>(const IpGenAddr&, const IpGenAddr&) noexcept = default;

private:
    Family family_ = Family::none;
    IpAddr v4_;
    Ip6Addr v6_;
};

std::ostream& operator<<(std::ostream& os, const IpGenAddr& a);

/// An address and a prefix length. The address is kept exactly as given:
/// host bits are not cleared, because a router's own interface address with
/// its length ("10.1.2.3/24") is a useful value too; use masked() to get the
/// network. Text: "10.0.0.0/8", "2001:db8::/32", or "none".
/// Equal when family, length and address are; ordered by family, then
/// address, then length.
class IpGenPrefix {
public:
    constexpr IpGenPrefix() noexcept = default;
    /// A length above 32 raises Kest::RangeException.
    IpGenPrefix(IpAddr addr, std::uint8_t len);
    /// A length above 128 raises Kest::RangeException.
    IpGenPrefix(const Ip6Addr& addr, std::uint8_t len);
    explicit IpGenPrefix(Kest::CharRange& r);

    constexpr const IpGenAddr& address() const noexcept { return addr_; }
    constexpr IpAddr ipv4Addr() const noexcept { return addr_.ipv4(); }
    constexpr const Ip6Addr& ipv6Addr() const noexcept { return addr_.ipv6(); }
    constexpr std::uint8_t length() const noexcept { return length_; }
    /// 1 for IPv4, 2 for IPv6, 0 for none (the numbers of Lumo::Family).
    constexpr std::uint8_t family() const noexcept { return static_cast<std::uint8_t>(addr_.family()); }
    constexpr bool isIpv4() const noexcept { return addr_.isIpv4(); }
    constexpr bool isIpv6() const noexcept { return addr_.isIpv6(); }

    /// The same prefix with every bit beyond length() cleared.
    IpGenPrefix masked() const;

    std::uint32_t hash(std::uint32_t seed) const noexcept;

    Poldo::String stringValue() const;

    friend constexpr bool operator==(const IpGenPrefix&, const IpGenPrefix&) noexcept = default;
    friend constexpr std::strong_ordering operator<=>(const IpGenPrefix&,
                                                      const IpGenPrefix&) noexcept = default;

private:
    IpGenAddr addr_;  // first: the order is address (family included), then length
    std::uint8_t length_ = 0;
};

std::ostream& operator<<(std::ostream& os, const IpGenPrefix& p);

/// An MPLS label value: 0 to 2^20 - 1, plus 0x800000, the value BGP labeled
/// unicast uses to withdraw (RFC 8277). The constructor and the reader refuse
/// anything above luWithdraw with the fixed text of
/// Kest::RangeException::boundedValue. Text: the decimal number.
class MplsLabel {
public:
    static constexpr std::uint32_t min = 0;
    static constexpr std::uint32_t luWithdraw = 0x800000;

    constexpr MplsLabel() noexcept = default;
    explicit MplsLabel(std::uint32_t value);
    explicit MplsLabel(Kest::CharRange& r);

    constexpr std::uint32_t value() const noexcept { return value_; }

    /// The number, and for the reserved labels 0 to 15 and for luWithdraw
    /// their IANA names in parentheses: "3 (implicit-null)".
    Poldo::String prettyString() const;

    std::uint32_t hash(std::uint32_t seed) const noexcept {
        return Kest::WordHash(seed).word(value_).result();
    }

    Poldo::String stringValue() const;

    friend constexpr bool operator==(const MplsLabel&, const MplsLabel&) noexcept = default;
    friend constexpr std::strong_ordering operator<=>(const MplsLabel&, const MplsLabel&) noexcept = default;

private:
    std::uint32_t value_ = 0;
};

std::ostream& operator<<(std::ostream& os, const MplsLabel& l);

}  // namespace Lumo
