// IS-IS identifiers: the 6-byte system ID and the 1 to 13 byte area address.
//
// Contract: both are regular values (==, <=> as a strong ordering, a seeded
// hash(seed) built with Kest::HashState from the raw bytes) with one
// canonical text form, written by operator<< and stringValue() and read by
// the constructor from Kest::CharRange& (so Kest::strepToValue works).
// Readers are strict and stop at the first character that cannot continue
// the value; a group with too many hex digits, or an area beyond 13 bytes,
// raises Kest::RangeException, any other malformed text Kest::ParseException.
//
// Costs: fixed-size storage, no allocation except the strings that
// stringValue() returns. SystemId's default constructor reads the text
// "0000.0000.0000", so it costs a short parse rather than a plain zero fill;
// build hot arrays of system IDs from bytes instead.
#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <span>

#include "IgpCommon/framework/Hash.h"
#include "IgpCommon/framework/String.h"
#include "IgpCommon/framework/Text.h"

namespace Routing::Isis {

/// A system ID. Text: three dot-separated groups of four lowercase hex digits,
/// "1921.6800.1001"; the reader takes either case. Ordered bytewise unsigned,
/// which is the order of the big-endian 48-bit number.
class SystemId {
public:
    /// 0000.0000.0000, read from its text.
    SystemId();
    explicit SystemId(const std::array<std::uint8_t, 6>& bytes) noexcept : bytes_(bytes) {}
    explicit SystemId(Kest::CharRange& r);

    static SystemId fromBytes(const std::uint8_t* six) noexcept;

    const std::array<std::uint8_t, 6>& bytes() const noexcept { return bytes_; }
    /// Byte `i` (0 to 5); an index beyond that is a broken invariant (asserted).
    std::uint8_t byte(unsigned i) const noexcept;

    std::uint32_t hash(std::uint32_t seed) const noexcept;

    Poldo::String stringValue() const;

    friend bool operator==(const SystemId&, const SystemId&) noexcept = default;
    friend std::strong_ordering operator<=>(const SystemId&, const SystemId&) noexcept = default;

private:
    std::array<std::uint8_t, 6> bytes_;
};

std::ostream& operator<<(std::ostream& os, const SystemId& id);

/// An area address of 1 to 13 bytes; the default, empty value means "no
/// area" and is written "none". Text: the first byte as two hex digits, then
/// every following pair of bytes as "." and four digits, and a last odd byte
/// as "." and two digits: "49.0001", "49.0001.02". Ordered by length, then
/// bytes.
class AreaId {
public:
    static constexpr std::size_t maxLength = 13;

    constexpr AreaId() noexcept = default;
    explicit AreaId(Kest::CharRange& r);

    /// `n` must be 1 to 13, else Kest::RangeException.
    static AreaId fromBytes(const std::uint8_t* p, std::size_t n);

    std::size_t length() const noexcept { return length_; }
    bool isEmpty() const noexcept { return length_ == 0; }
    std::span<const std::uint8_t> bytes() const noexcept { return {bytes_.data(), length_}; }

    static bool isEq(const AreaId& a, const AreaId& b) noexcept;
    friend bool operator==(const AreaId& a, const AreaId& b) noexcept { return isEq(a, b); }
    friend std::strong_ordering operator<=>(const AreaId& a, const AreaId& b) noexcept;

    std::uint32_t hash(std::uint32_t seed) const noexcept;

    Poldo::String stringValue() const;

private:
    std::array<std::uint8_t, maxLength> bytes_{};  // unused bytes stay zero
    std::uint8_t length_ = 0;
};

std::ostream& operator<<(std::ostream& os, const AreaId& a);

}  // namespace Routing::Isis
