// Identifiers that travel with the node identifier: the topology number and
// the level and protocol enumerations.
#pragma once

#include <compare>
#include <cstdint>
#include <ostream>
#include <tuple>

#include "IgpCommon/IgpNodeId.h"
#include "IgpCommon/framework/Hash.h"
#include "IgpCommon/framework/String.h"
#include "IgpCommon/framework/Text.h"
#include "IgpCommon/framework/TypeData.h"

namespace Routing::IgpCommon {

/// A multi-topology identifier (RFC 5120); 0 is the standard topology. No
/// range is enforced on the 16-bit value.
class IgpMultiTopologyId {
public:
    static constexpr std::uint16_t defaultValue = 0;

    constexpr IgpMultiTopologyId() noexcept = default;
    constexpr explicit IgpMultiTopologyId(std::uint16_t v) noexcept : value_(v) {}
    /// Reads the bare decimal form.
    explicit IgpMultiTopologyId(Kest::CharRange& r);

    constexpr std::uint16_t value() const noexcept { return value_; }
    constexpr void valueIs(std::uint16_t v) & noexcept { value_ = v; }
    constexpr explicit operator bool() const noexcept { return value_ != 0; }

    static constexpr bool isEq(IgpMultiTopologyId a, IgpMultiTopologyId b) noexcept {
        return a.value_ == b.value_;
    }
    friend constexpr bool operator==(IgpMultiTopologyId, IgpMultiTopologyId) noexcept = default;
    friend constexpr std::strong_ordering operator<=>(IgpMultiTopologyId,
                                                      IgpMultiTopologyId) noexcept = default;
    /// The single-attribute hash of the value.
    constexpr std::uint32_t hash(std::uint32_t seed = 0) const noexcept {
        return Kest::HashState(seed).mix16(value_).result();
    }
    friend std::ostream& operator<<(std::ostream& os, IgpMultiTopologyId id);

    static constexpr const char kestTypeName[] = "Routing::IgpCommon::IgpMultiTopologyId";
    static constexpr auto kestAttrs() { return std::tuple{Kest::attr("value", &IgpMultiTopologyId::value_)}; }
    static const Kest::TypeData& typeData() noexcept;
    const Kest::TypeData& fwkType() const noexcept { return typeData(); }

private:
    std::uint16_t value_ = defaultValue;
};

// Defined after the class: they need kestAttrs() complete.
inline IgpMultiTopologyId::IgpMultiTopologyId(Kest::CharRange& r)
    : IgpMultiTopologyId(Kest::readValue<IgpMultiTopologyId>(r)) {}
inline std::ostream& operator<<(std::ostream& os, IgpMultiTopologyId id) {
    return Kest::writeValue(os, id);
}

/// The IGP level a database holds.
enum IgpLevel : std::uint32_t {
    igpLevelNone = 0,
    igpLevelIsisLevel1 = 1,
    igpLevelIsisLevel2 = 2,
};

/// The protocol; 0 is no valid protocol.
enum IgpProto : std::uint32_t {
    igpProtoIsis = 1,
    igpProtoOspf2 = 2,
    igpProtoOspf3 = 3,
};

const Kest::EnumTable& igpLevelTable() noexcept;
const Kest::EnumTable& igpProtoTable() noexcept;

/// The enumerator with that number; a number that names none raises the range exception.
IgpLevel IgpLevelInstance(unsigned value);
/// The enumerator with that name; an unknown name raises the parse exception.
IgpLevel IgpLevelInstance(const Poldo::String& name);
Poldo::String stringValue(IgpLevel v);
std::ostream& operator<<(std::ostream& os, IgpLevel v);
/// Reads an enumerator name; also stores it through `out` when that is not null.
IgpLevel sequenceToValue(Kest::CharRange& r, IgpLevel* out);

IgpProto IgpProtoInstance(unsigned value);
IgpProto IgpProtoInstance(const Poldo::String& name);
Poldo::String stringValue(IgpProto v);
std::ostream& operator<<(std::ostream& os, IgpProto v);
IgpProto sequenceToValue(Kest::CharRange& r, IgpProto* out);

}  // namespace Routing::IgpCommon
