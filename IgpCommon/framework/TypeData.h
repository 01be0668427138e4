// Reflected type descriptions.
//
// Each value type and entity answers typeData() (static) and fwkType() with a
// TypeData: its fully qualified name and its attributes in declaration order.
// Entities number their attributes from 130, value types from 2; the number is
// what a change notification carries, and the name is what a tool prints.
// Functions and constants that the type declares among its attributes are
// listed too, so the numbering matches the declaration order.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace Kest {

using AttrId = std::uint16_t;

/// First attribute identifier of an entity, and of a value type.
inline constexpr AttrId firstEntityAttrId = 130;
inline constexpr AttrId firstValueAttrId = 2;

enum class TypeKind : std::uint8_t { value, entity, enumeration };

enum class AttrKind : std::uint8_t {
    scalar,             ///< a single value
    array,              ///< a fixed array addressed by a bounded index
    dynArray,           ///< a growable array addressed by position
    hashCollection,     ///< a Kest::HashMap2018 (salted)
    orderedCollection,  ///< a Kest::RbTreeMap
    list,               ///< an ordered list of values
    pointer,            ///< a counted pointer to an entity
    function,           ///< an operation
    constant,           ///< a constant of the type
};

struct AttrData {
    std::string_view name;
    AttrId id;
    AttrKind kind;
    std::uint32_t salt = 0;  ///< hash collections only
};

struct TypeData {
    std::string_view name;
    TypeKind kind;
    std::span<const AttrData> attrs;

    /// The attribute with that identifier or name, or null.
    constexpr const AttrData* attr(AttrId id) const noexcept {
        for (const AttrData& a : attrs) {
            if (a.id == id) {
                return &a;
            }
        }
        return nullptr;
    }
    constexpr const AttrData* attr(std::string_view n) const noexcept {
        for (const AttrData& a : attrs) {
            if (a.name == n) {
                return &a;
            }
        }
        return nullptr;
    }
};

}  // namespace Kest
