// The node identifier: names every router and LAN pseudonode in the database.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ostream>

#include "IgpCommon/framework/Array.h"
#include "IgpCommon/framework/BoundedIndex.h"
#include "IgpCommon/framework/Hash.h"
#include "IgpCommon/framework/String.h"
#include "IgpCommon/framework/Text.h"
#include "IgpCommon/framework/TypeData.h"

namespace Routing::IgpCommon {

/// Index of the seven bytes of an IgpNodeId: 0..6.
struct IgpNodeIdIndex : Kest::BoundedIndex<IgpNodeIdIndex, 0, 6> {
    static constexpr const char kestTypeName[] = "Routing::IgpCommon::IgpNodeIdIndex";
    using BoundedIndex::BoundedIndex;
};

/// Seven bytes: the six-byte IS-IS system identifier, most significant byte
/// first as on the wire, then the pseudonode number (0 for a router). The
/// all-zero identifier means "no node". A byte equal to 0 counts as absent:
/// deleting a byte stores 0. The hash mixes all seven bytes, zeros too:
/// skipping them would make 01 00 02 … and 01 02 00 … collide under every seed.
class IgpNodeId {
public:
    using Bytes = Kest::Array<std::uint8_t, IgpNodeIdIndex, 7>;

    IgpNodeId() noexcept = default;
    /// The seven bytes, in wire order.
    static IgpNodeId fromBytes(const std::uint8_t* seven) noexcept;
    /// Not supported: an IgpNodeId holds an array and is built from bytes,
    /// never parsed; this stops the process with
    /// "No String constructor for IgpNodeId - has collection".
    [[noreturn]] explicit IgpNodeId(Kest::CharRange& range);

    /// Byte `index`; an index above 6 raises the array range exception.
    std::uint8_t byte(IgpNodeIdIndex index) const { return bytes_[index]; }
    void byteIs(IgpNodeIdIndex index, unsigned value) &;
    /// Stores 0 at `index` and returns the byte that was there.
    std::uint8_t byteDel(IgpNodeIdIndex index) &;
    /// Deletes the byte an iterator over bytes() stands at, as byteDel(index).
    std::uint8_t byteDel(const Bytes::iterator& it) & { return byteDel(it.index()); }
    void byteDelAll() & noexcept;
    static constexpr std::uint32_t byteCount() noexcept { return 7; }
    static constexpr bool byteHas(IgpNodeIdIndex index) noexcept { return index.value() < 7; }
    const Bytes& bytes() const noexcept { return bytes_; }

    /// The bytes as a big-endian number in the upper 56 bits; the lowest 8 bits are 0.
    std::uint64_t toU64() const noexcept;
    bool isPnodeId() const noexcept { return bytes_.slot(6) != 0; }
    /// "1921.6800.1001", with ".03" appended for pseudonode 3.
    Poldo::String toStrep() const;
    explicit operator bool() const noexcept { return toU64() != 0; }

    static bool isEq(const IgpNodeId& a, const IgpNodeId& b) noexcept {
        return a.word(0) == b.word(0) && a.word(3) == b.word(3);
    }
    friend bool operator==(const IgpNodeId& a, const IgpNodeId& b) noexcept { return isEq(a, b); }
    /// The bytes as an unsigned byte string, byte 0 first.
    friend std::strong_ordering operator<=>(const IgpNodeId& a, const IgpNodeId& b) noexcept;
    std::uint32_t hash(std::uint32_t seed) const noexcept;
    /// The seven bytes as a little-endian number, byte 0 lowest: how a key's
    /// hash takes them in whole words (a key never mixes an identifier's hash
    /// made with a seed everybody knows).
    std::uint64_t littleEndian() const noexcept {
        return Kest::detail::loadLe32(&bytes_.slot(0)) |
               (std::uint64_t{Kest::detail::loadLe32(&bytes_.slot(3)) >> 8} << 32);
    }

    /// The generic text form (the byte array); dumps use toStrep().
    friend std::ostream& operator<<(std::ostream& os, const IgpNodeId& id);

    static const Kest::TypeData& typeData() noexcept;
    const Kest::TypeData& fwkType() const noexcept { return typeData(); }

private:
    // Two overlapping 4-byte words cover the seven bytes: comparing the arrays
    // would call memcmp out of line, and every look-up compares node ids.
    std::uint32_t word(std::size_t at) const noexcept {
        std::uint32_t w;
        std::memcpy(&w, &bytes_.slot(at), sizeof w);
        return w;
    }

    Bytes bytes_;
};

}  // namespace Routing::IgpCommon
