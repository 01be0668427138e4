#include "IgpCommon/Identifiers.h"

namespace Routing::IgpCommon {

const Kest::TypeData& IgpMultiTopologyId::typeData() noexcept {
    static constexpr Kest::AttrData attrs[] = {
        {"value", Kest::firstValueAttrId, Kest::AttrKind::scalar},
        {"defaultValue", Kest::firstValueAttrId + 1, Kest::AttrKind::constant},
    };
    static constexpr Kest::TypeData t{IgpMultiTopologyId::kestTypeName, Kest::TypeKind::value, attrs};
    return t;
}

const Kest::EnumTable& igpLevelTable() noexcept {
    static constexpr Kest::EnumEntry entries[] = {
        {"igpLevelNone", igpLevelNone},
        {"igpLevelIsisLevel1", igpLevelIsisLevel1},
        {"igpLevelIsisLevel2", igpLevelIsisLevel2},
    };
    static constexpr Kest::EnumTable t{"Routing::IgpCommon::IgpLevel", entries};
    return t;
}

const Kest::EnumTable& igpProtoTable() noexcept {
    static constexpr Kest::EnumEntry entries[] = {
        {"igpProtoIsis", igpProtoIsis},
        {"igpProtoOspf2", igpProtoOspf2},
        {"igpProtoOspf3", igpProtoOspf3},
    };
    static constexpr Kest::EnumTable t{"Routing::IgpCommon::IgpProto", entries};
    return t;
}

IgpLevel IgpLevelInstance(unsigned value) { return static_cast<IgpLevel>(igpLevelTable().checkedValue(value)); }
IgpLevel IgpLevelInstance(const Poldo::String& name) { return static_cast<IgpLevel>(igpLevelTable().valueOf(name)); }
Poldo::String stringValue(IgpLevel v) { return igpLevelTable().nameOf(v); }
std::ostream& operator<<(std::ostream& os, IgpLevel v) { return os << stringValue(v); }
IgpLevel sequenceToValue(Kest::CharRange& r, IgpLevel* out) {
    const auto v = static_cast<IgpLevel>(igpLevelTable().read(r));
    if (out) {
        *out = v;
    }
    return v;
}

IgpProto IgpProtoInstance(unsigned value) { return static_cast<IgpProto>(igpProtoTable().checkedValue(value)); }
IgpProto IgpProtoInstance(const Poldo::String& name) { return static_cast<IgpProto>(igpProtoTable().valueOf(name)); }
Poldo::String stringValue(IgpProto v) { return igpProtoTable().nameOf(v); }
std::ostream& operator<<(std::ostream& os, IgpProto v) { return os << stringValue(v); }
IgpProto sequenceToValue(Kest::CharRange& r, IgpProto* out) {
    const auto v = static_cast<IgpProto>(igpProtoTable().read(r));
    if (out) {
        *out = v;
    }
    return v;
}

}  // namespace Routing::IgpCommon
