// Seeded hashing of values.
//
// Every hash in the library is made by a Kest::HashState: started from a
// 32-bit seed, fed items of 1, 2, 4 or 8 bytes, read as a 32-bit result.
//
// The mixer is HalfSipHash-1-3 (Aumasson and Bernstein's SipHash on 32-bit
// words, one compression and three finalization rounds; the variant the Linux
// kernel uses for its hash tables). It is a keyed function: without the seed,
// nobody who can inject LSPs can precompute keys that collide in our tables,
// which unkeyed mixers such as MurmurHash cannot promise. It also works on
// 32-bit words, so the few short items that a key consists of cost a handful
// of additions, rotations and xors each. The items are hashed as the
// concatenation of their little-endian bytes; the 32-bit seed is expanded to
// the function's 64-bit key.
//
// The process-wide seed, Kest::HashHelper::hashSeed32(), is random, chosen
// once when the library is loaded. Set the environment variable
// IGPCOMMON_HASH_SEED to fix it, for example to make the iteration order of
// hash collections, and so a dump, reproducible: decimal digits, or 0x (or 0X)
// and hexadecimal digits, for a number from 0 to 4294967295 (0xffffffff);
// nothing else, not even a sign or white space. An empty value counts as
// unset. Any other value stops the process while the library loads, before
// main() runs: a line on stderr names the variable and the value, then
// std::abort(). A mistyped seed must not pass for a random one (a test that
// expects reproducible output would then flicker), nor for a fixed one (a
// deployment that meant to fix it for a test would run with it), and a
// library being loaded has nobody to return an error to.
#pragma once

#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>
#include <type_traits>

namespace Kest {

namespace detail {

template <class T>
struct HashItem {
    using type = std::make_unsigned_t<T>;
};
template <class T>
requires std::is_enum_v<T>
struct HashItem<T> {
    using type = std::make_unsigned_t<std::underlying_type_t<T>>;
};
template <>
struct HashItem<bool> {
    using type = unsigned char;
};

constexpr std::uint32_t rotl(std::uint32_t x, int b) noexcept {
    return (x << b) | (x >> (32 - b));
}

/// The four bytes at `p` as a little-endian word: one load, whatever the alignment.
inline std::uint32_t loadLe32(const std::uint8_t* p) noexcept {
    std::uint32_t w;
    std::memcpy(&w, p, sizeof w);
    if constexpr (std::endian::native == std::endian::big) {
        w = (w >> 24) | ((w >> 8) & 0xff00u) | ((w << 8) & 0xff0000u) | (w << 24);
    }
    return w;
}

/// The second key word the 32-bit seed expands to (the first is the seed).
constexpr std::uint32_t seedKey1(std::uint32_t seed) noexcept {
    return rotl(seed, 16) ^ 0x9e3779b9u;
}

/// HalfSipHash state with C compression and D finalization rounds.
template <int C, int D>
class HalfSip {
public:
    constexpr HalfSip(std::uint32_t k0, std::uint32_t k1) noexcept
        : v0_(k0), v1_(k1), v2_(0x6c796765u ^ k0), v3_(0x74656462u ^ k1) {}

    [[gnu::always_inline]] constexpr void compress(std::uint32_t m) noexcept {
        v3_ ^= m;
        for (int i = 0; i < C; ++i) {
            round();
        }
        v0_ ^= m;
    }

    /// `last` holds the final (length << 24 | up to three trailing bytes) word.
    [[gnu::always_inline]] constexpr std::uint32_t finish(std::uint32_t last) const noexcept {
        HalfSip s = *this;
        s.compress(last);
        s.v2_ ^= 0xffu;
        for (int i = 0; i < D; ++i) {
            s.round();
        }
        return s.v1_ ^ s.v3_;
    }

private:
    [[gnu::always_inline]] constexpr void round() noexcept {
        v0_ += v1_;
        v1_ = rotl(v1_, 5);
        v1_ ^= v0_;
        v0_ = rotl(v0_, 16);
        v2_ += v3_;
        v3_ = rotl(v3_, 8);
        v3_ ^= v2_;
        v0_ += v3_;
        v3_ = rotl(v3_, 7);
        v3_ ^= v0_;
        v2_ += v1_;
        v1_ = rotl(v1_, 13);
        v1_ ^= v2_;
        v2_ = rotl(v2_, 16);
    }

    std::uint32_t v0_, v1_, v2_, v3_;
};

/// Byte stream over a HalfSip core: buffers up to three pending bytes.
template <int C, int D>
class HalfSipStream {
public:
    constexpr HalfSipStream(std::uint32_t k0, std::uint32_t k1) noexcept : core_(k0, k1) {}

    /// Appends the `bytes` low bytes of `v` (1 to 4), little-endian.
    constexpr void append(std::uint32_t v, unsigned bytes) noexcept {
        length_ += bytes;
        if (pendingBits_ == 0 && bytes == 4) {
            core_.compress(v);
            return;
        }
        pending_ |= std::uint64_t{v} << pendingBits_;
        pendingBits_ += 8 * bytes;
        if (pendingBits_ >= 32) {
            core_.compress(static_cast<std::uint32_t>(pending_));
            pending_ >>= 32;
            pendingBits_ -= 32;
        }
    }

    constexpr std::uint32_t result() const noexcept {
        return core_.finish((length_ << 24) | static_cast<std::uint32_t>(pending_));
    }

private:
    HalfSip<C, D> core_;
    std::uint64_t pending_ = 0;
    std::uint32_t pendingBits_ = 0;
    std::uint32_t length_ = 0;
};

}  // namespace detail

/// The framework's incremental hash: start from a seed, mix items, read the result.
class HashState {
public:
    /// Expands the 32-bit seed to the mixer's two key words.
    constexpr explicit HashState(std::uint32_t seed) noexcept : s_(seed, detail::seedKey1(seed)) {}

    constexpr HashState& mix8(std::uint8_t v) noexcept {
        s_.append(v, 1);
        return *this;
    }
    constexpr HashState& mix16(std::uint16_t v) noexcept {
        s_.append(v, 2);
        return *this;
    }
    constexpr HashState& mix32(std::uint32_t v) noexcept {
        s_.append(v, 4);
        return *this;
    }
    constexpr HashState& mix64(std::uint64_t v) noexcept {
        s_.append(static_cast<std::uint32_t>(v), 4);
        s_.append(static_cast<std::uint32_t>(v >> 32), 4);
        return *this;
    }
    /// Mixes an integer, bool or enumeration as one item of its own width.
    template <class T>
    requires(std::is_integral_v<T> || std::is_enum_v<T>) constexpr HashState& mix(T v) noexcept {
        using U = typename detail::HashItem<T>::type;
        const U u = static_cast<U>(v);
        if constexpr (sizeof(U) == 1) {
            return mix8(u);
        } else if constexpr (sizeof(U) == 2) {
            return mix16(u);
        } else if constexpr (sizeof(U) == 4) {
            return mix32(u);
        } else {
            static_assert(sizeof(U) == 8, "items are 1, 2, 4 or 8 bytes");
            return mix64(u);
        }
    }
    /// Mixes `n` bytes as `n` one-byte items, four at a time: an address's bytes
    /// reach the keyed mixer themselves, never through an unkeyed digest of them.
    constexpr HashState& mixBytes(const std::uint8_t* p, std::size_t n) noexcept {
        std::size_t i = 0;
        for (; i + 4 <= n; i += 4) {
            mix32(std::uint32_t{p[i]} | (std::uint32_t{p[i + 1]} << 8) | (std::uint32_t{p[i + 2]} << 16) |
                  (std::uint32_t{p[i + 3]} << 24));
        }
        for (; i < n; ++i) {
            mix8(p[i]);
        }
        return *this;
    }
    /// Mixes a pointer's address as an 8-byte item (identity-based hashes).
    HashState& mixAddress(const void* p) noexcept { return mix64(reinterpret_cast<std::uintptr_t>(p)); }

    constexpr std::uint32_t result() const noexcept { return s_.result(); }

private:
    detail::HalfSipStream<1, 3> s_;
};

/// The same hash as HashState, for a key laid out in whole 32-bit words and
/// at most three trailing bytes: each word goes straight to the mixer, with
/// none of HashState's bookkeeping of pending bytes per item. word(w) equals
/// HashState::mix32(w) on a state that holds a multiple of four bytes, so a
/// key whose items fit its words hashes to the same value either way.
class WordHash {
public:
    constexpr explicit WordHash(std::uint32_t seed) noexcept : core_(seed, detail::seedKey1(seed)) {}

    /// Four bytes, little-endian.
    [[gnu::always_inline]] constexpr WordHash& word(std::uint32_t w) noexcept {
        core_.compress(w);
        length_ += 4;
        return *this;
    }
    /// The sixteen bytes at `p` in order, as HashState::mixBytes(p, 16).
    [[gnu::always_inline]] WordHash& bytes16(const std::uint8_t* p) noexcept {
        return word(detail::loadLe32(p))
            .word(detail::loadLe32(p + 4))
            .word(detail::loadLe32(p + 8))
            .word(detail::loadLe32(p + 12));
    }
    /// The result once the `tailBytes` (0 to 3) low bytes of `tail`, the rest
    /// of which must be zero, have been added.
    constexpr std::uint32_t result(std::uint32_t tail = 0, std::uint32_t tailBytes = 0) const noexcept {
        return core_.finish(((length_ + tailBytes) << 24) | tail);
    }

private:
    detail::HalfSip<1, 3> core_;
    std::uint32_t length_ = 0;
};

/// A type with its own seeded hash.
template <class T>
concept SelfHashing = requires(const T& v, std::uint32_t seed) {
    { v.hash(seed) } -> std::convertible_to<std::uint32_t>;
};

struct HashHelper {
    /// The process-wide seed of every hash collection.
    static std::uint32_t hashSeed32() noexcept { return seed_; }

    /// Reads a seed as IGPCOMMON_HASH_SEED gives it (see the top of this
    /// file): nullopt for empty text and for anything but a whole decimal or
    /// 0x-hexadecimal number of at most 32 bits.
    static std::optional<std::uint32_t> parseSeed(std::string_view text) noexcept;

    /// The single-attribute hash: one value hashed on its own from `seed`.
    template <class T>
    static std::uint32_t hash(const T& v, std::uint32_t seed) noexcept {
        if constexpr (SelfHashing<T>) {
            return v.hash(seed);
        } else {
            return HashState(seed).mix(v).result();
        }
    }

private:
    static const std::uint32_t seed_;
};

}  // namespace Kest
