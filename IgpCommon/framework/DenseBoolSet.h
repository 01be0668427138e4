// Kest::DenseBoolSet: a small set of named yes/no flags packed in one byte.
//
// Flag k (counted from 0 in declaration order) is bit k. Bits above the last
// flag are always 0: a raw byte with such a bit is refused with the range
// exception "<T>::value < <T>::min or > <T>::max not allowed", and the
// complement and difference stay within the declared flags. A flag set
// declares its names and one accessor trio per flag:
//
//     class NodeFlags : public Kest::DenseBoolSet<NodeFlags, 2> {
//       public:
//         using DenseBoolSet::DenseBoolSet;
//         static constexpr const char kestTypeName[] = "Routing::IgpCommon::NodeFlags";
//         KEST_FLAGS(overloadBit, attachedBit)  // overloadBit(), overloadBitIs(bool), overloadBit_, ...
//     };
//
// KEST_FLAGS names each flag once: it declares the names in bit order
// (kestFlagNames) and every flag's accessors.
//
// Its text form then follows from the names: with one flag the bare boolean,
// with more "Value('<type>', ** {'<flag>': True, ...})" listing every flag in
// bit order.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <ostream>
#include <string_view>
#include <tuple>
#include <utility>

#include "IgpCommon/framework/BitSet.h"
#include "IgpCommon/framework/Exceptions.h"
#include "IgpCommon/framework/Hash.h"
#include "IgpCommon/framework/Text.h"
#include "IgpCommon/framework/TypeData.h"

namespace Kest {

template <class Derived, unsigned NumFlags>
class DenseBoolSet {
    static_assert(NumFlags >= 1 && NumFlags <= 8, "a dense bool set is one byte");

public:
    /// Every declared flag set: the largest valid value.
    static constexpr std::uint8_t validMask = static_cast<std::uint8_t>((1u << NumFlags) - 1);
    static constexpr unsigned flagCount = NumFlags;

    constexpr DenseBoolSet() noexcept = default;
    /// Takes the raw byte; a bit above the last flag is refused.
    explicit DenseBoolSet(unsigned char raw) : value_(raw) {
        if ((raw & ~validMask) != 0) {
            throw RangeException::boundedValue(Derived::kestTypeName);
        }
    }

    constexpr std::uint8_t value() const noexcept { return value_; }
    constexpr explicit operator bool() const noexcept { return value_ != 0; }

    /// Flag k by its bit number.
    template <unsigned K>
    constexpr bool flag() const noexcept {
        static_assert(K < NumFlags);
        return (value_ >> K) & 1u;
    }
    template <unsigned K>
    constexpr void flagIs(bool on) & noexcept {
        static_assert(K < NumFlags);
        value_ = static_cast<std::uint8_t>(on ? (value_ | (1u << K)) : (value_ & ~(1u << K)));
    }

    // The set algebra, limited to the declared flags.
    constexpr Derived unionWith(const Derived& o) const noexcept { return make(value_ | o.value_); }
    constexpr Derived intersection(const Derived& o) const noexcept { return make(value_ & o.value_); }
    constexpr Derived symmetricDifference(const Derived& o) const noexcept { return make(value_ ^ o.value_); }
    constexpr Derived difference(const Derived& o) const noexcept { return make(value_ & ~o.value_); }
    constexpr Derived complement() const noexcept { return make(~value_); }
    friend constexpr Derived operator|(const Derived& a, const Derived& b) noexcept { return a.unionWith(b); }
    friend constexpr Derived operator&(const Derived& a, const Derived& b) noexcept {
        return a.intersection(b);
    }
    friend constexpr Derived operator^(const Derived& a, const Derived& b) noexcept {
        return a.symmetricDifference(b);
    }
    friend constexpr Derived operator~(const Derived& a) noexcept { return a.complement(); }

    friend constexpr bool operator==(const DenseBoolSet& a, const DenseBoolSet& b) noexcept {
        return a.value_ == b.value_;
    }
    friend constexpr std::strong_ordering operator<=>(const DenseBoolSet& a, const DenseBoolSet& b) noexcept {
        return Poldo::BitSet::compare(a.value_, b.value_);
    }
    constexpr std::uint32_t hash(std::uint32_t seed) const noexcept {
        return HashState(seed).mix8(value_).result();
    }

    /// One text attribute per flag, in bit order.
    static constexpr auto kestAttrs() { return attrsOf(std::make_index_sequence<NumFlags>{}); }
    friend std::ostream& operator<<(std::ostream& os, const DenseBoolSet& s) {
        return writeValue(os, static_cast<const Derived&>(s));
    }
    /// Reads the text form; the value starts empty and takes each flag read.
    explicit DenseBoolSet(CharRange& r) : value_(readValue<Derived>(r).value_) {}

    static const TypeData& typeData() noexcept {
        static constexpr auto attrs = attrData(std::make_index_sequence<NumFlags>{});
        static constexpr TypeData t{Derived::kestTypeName, TypeKind::value, attrs};
        return t;
    }
    const TypeData& fwkType() const noexcept { return typeData(); }

protected:
    constexpr bool bit(unsigned k) const noexcept { return (value_ >> k) & 1u; }
    constexpr void bitIs(unsigned k, bool on) & noexcept {
        value_ = static_cast<std::uint8_t>(on ? (value_ | (1u << k)) : (value_ & ~(1u << k)));
    }

private:
    static constexpr Derived make(unsigned v) noexcept {
        Derived d;
        d.value_ = static_cast<std::uint8_t>(v & validMask);
        return d;
    }
    template <std::size_t... K>
    static constexpr auto attrsOf(std::index_sequence<K...>) {
        return std::tuple{attr<bool, Derived>(Derived::kestFlagNames[K], &DenseBoolSet::template flag<K>,
                                              &DenseBoolSet::template flagIs<K>)...};
    }
    // The flags in bit order, then the raw value. (The mask constants are
    // not attributes of the value.)
    template <std::size_t... K>
    static constexpr auto attrData(std::index_sequence<K...>) {
        return std::array<AttrData, NumFlags + 1>{
            AttrData{Derived::kestFlagNames[K], static_cast<AttrId>(firstValueAttrId + K),
                     AttrKind::scalar}...,
            AttrData{"value", static_cast<AttrId>(firstValueAttrId + NumFlags), AttrKind::scalar}};
    }

    std::uint8_t value_ = 0;
};

}  // namespace Kest

/// Declares flag `name` at bit `k`: `name()`, `name##Is(bool)` and the mask `name##_`.
#define KEST_FLAG(k, name)                                                        \
    static constexpr std::uint8_t name##_ = static_cast<std::uint8_t>(1u << (k)); \
    constexpr bool name() const noexcept {                                        \
        return this->bit(k);                                                      \
    }                                                                             \
    constexpr void name##Is(bool on)& noexcept {                                  \
        this->bitIs(k, on);                                                       \
    }

// KEST_FLAGS(a, b, ...): up to eight flags, bit 0 first.
#define KEST_DETAIL_CAT2(a, b) a##b
#define KEST_DETAIL_CAT(a, b) KEST_DETAIL_CAT2(a, b)
#define KEST_DETAIL_COUNT2(_1, _2, _3, _4, _5, _6, _7, _8, n, ...) n
#define KEST_DETAIL_COUNT(...) KEST_DETAIL_COUNT2(__VA_ARGS__, 8, 7, 6, 5, 4, 3, 2, 1, 0)
#define KEST_DETAIL_NAMES1(a) #a
#define KEST_DETAIL_NAMES2(a, ...) #a, KEST_DETAIL_NAMES1(__VA_ARGS__)
#define KEST_DETAIL_NAMES3(a, ...) #a, KEST_DETAIL_NAMES2(__VA_ARGS__)
#define KEST_DETAIL_NAMES4(a, ...) #a, KEST_DETAIL_NAMES3(__VA_ARGS__)
#define KEST_DETAIL_NAMES5(a, ...) #a, KEST_DETAIL_NAMES4(__VA_ARGS__)
#define KEST_DETAIL_NAMES6(a, ...) #a, KEST_DETAIL_NAMES5(__VA_ARGS__)
#define KEST_DETAIL_NAMES7(a, ...) #a, KEST_DETAIL_NAMES6(__VA_ARGS__)
#define KEST_DETAIL_NAMES8(a, ...) #a, KEST_DETAIL_NAMES7(__VA_ARGS__)
#define KEST_DETAIL_FLAGS1(k, a) KEST_FLAG(k, a)
#define KEST_DETAIL_FLAGS2(k, a, ...) KEST_FLAG(k, a) KEST_DETAIL_FLAGS1(k + 1, __VA_ARGS__)
#define KEST_DETAIL_FLAGS3(k, a, ...) KEST_FLAG(k, a) KEST_DETAIL_FLAGS2(k + 1, __VA_ARGS__)
#define KEST_DETAIL_FLAGS4(k, a, ...) KEST_FLAG(k, a) KEST_DETAIL_FLAGS3(k + 1, __VA_ARGS__)
#define KEST_DETAIL_FLAGS5(k, a, ...) KEST_FLAG(k, a) KEST_DETAIL_FLAGS4(k + 1, __VA_ARGS__)
#define KEST_DETAIL_FLAGS6(k, a, ...) KEST_FLAG(k, a) KEST_DETAIL_FLAGS5(k + 1, __VA_ARGS__)
#define KEST_DETAIL_FLAGS7(k, a, ...) KEST_FLAG(k, a) KEST_DETAIL_FLAGS6(k + 1, __VA_ARGS__)
#define KEST_DETAIL_FLAGS8(k, a, ...) KEST_FLAG(k, a) KEST_DETAIL_FLAGS7(k + 1, __VA_ARGS__)
#define KEST_FLAGS(...)                                                                   \
    static constexpr std::string_view kestFlagNames[] = {                                 \
        KEST_DETAIL_CAT(KEST_DETAIL_NAMES, KEST_DETAIL_COUNT(__VA_ARGS__))(__VA_ARGS__)}; \
    KEST_DETAIL_CAT(KEST_DETAIL_FLAGS, KEST_DETAIL_COUNT(__VA_ARGS__))(0, __VA_ARGS__)
