// Bounded index types: 8-bit values with a fixed range [Min, Max].
//
// Building an index from an integer does not check its bounds, so that an
// array accessor can report the index it was given ("cannot access index 7 of
// an array with size 7"). Two ways do check and raise the index type's own
// message "<T>::value < <T>::min or > <T>::max not allowed":
// reading it from text, and `checked(n)` for integers that must be refused
// with that message. A derived index type declares only its name:
//
//     struct BwIndex : Kest::BoundedIndex<BwIndex, 0, 7> {
//         static constexpr const char kestTypeName[] = "Routing::IgpCommon::BwIndex";
//         using BoundedIndex::BoundedIndex;
//     };
#pragma once

#include <compare>
#include <cstdint>
#include <ostream>

#include "IgpCommon/framework/Exceptions.h"
#include "IgpCommon/framework/Hash.h"
#include "IgpCommon/framework/Text.h"
#include "IgpCommon/framework/TypeData.h"

namespace Kest {

template <class Derived, std::uint8_t Min, std::uint8_t Max>
class BoundedIndex {
public:
    static constexpr std::uint8_t min = Min;
    static constexpr std::uint8_t max = Max;

    constexpr BoundedIndex() noexcept = default;
    /// Unchecked: an out-of-range index is reported by whoever uses it.
    constexpr BoundedIndex(std::uint8_t v) noexcept : value_(v) {}  // NOLINT(google-explicit-constructor)
    /// Reads the bare decimal form and checks the bounds.
    explicit BoundedIndex(CharRange& r) : value_(checkedValue(readUnsignedBits(r, 64))) {}

    /// Builds an index from an integer, refusing one outside the bounds with
    /// the type's own message.
    static Derived checked(std::uint64_t v) {
        Derived d;
        d.value_ = checkedValue(v);
        return d;
    }

    constexpr std::uint8_t value() const noexcept { return value_; }
    constexpr void valueIs(std::uint8_t v) & noexcept { value_ = v; }

    constexpr std::uint32_t hash(std::uint32_t seed) const noexcept {
        return HashState(seed).mix8(value_).result();
    }
    friend constexpr bool operator==(const BoundedIndex&, const BoundedIndex&) noexcept = default;
    friend constexpr std::strong_ordering operator<=>(const BoundedIndex&,
                                                      const BoundedIndex&) noexcept = default;
    friend std::ostream& operator<<(std::ostream& os, const BoundedIndex& i) {
        writeUnsigned(os, i.value_);
        return os;
    }

    static const TypeData& typeData() noexcept {
        static constexpr TypeData t{Derived::kestTypeName, TypeKind::value, attrs_};
        return t;
    }
    const TypeData& fwkType() const noexcept { return typeData(); }

private:
    static std::uint8_t checkedValue(std::uint64_t v) {
        if (v < Min || v > Max) {
            throw RangeException::boundedValue(Derived::kestTypeName);
        }
        return static_cast<std::uint8_t>(v);
    }

    static constexpr AttrData attrs_[] = {{"value", firstValueAttrId, AttrKind::scalar},
                                          {"min", firstValueAttrId + 1, AttrKind::constant},
                                          {"max", firstValueAttrId + 2, AttrKind::constant}};

    std::uint8_t value_ = 0;
};

}  // namespace Kest
