#include "IgpCommon/Identifiers.h"

#include "Define.h"

namespace Routing::IgpCommon {

using Kest::AttrKind;

IGP_DEFINE_TYPE_DATA(IgpMultiTopologyId, IgpMultiTopologyId::kestTypeName, value,
                     {"value", Kest::firstValueAttrId, AttrKind::scalar},
                     {"defaultValue", Kest::firstValueAttrId + 1, AttrKind::constant})

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

IgpLevel IgpLevelInstance(unsigned value) {
    return Kest::enumInstance<IgpLevel>(igpLevelTable(), value);
}
IgpLevel IgpLevelInstance(const Poldo::String& name) {
    return Kest::enumInstance<IgpLevel>(igpLevelTable(), name);
}
Poldo::String stringValue(IgpLevel v) {
    return igpLevelTable().nameOf(v);
}
std::ostream& operator<<(std::ostream& os, IgpLevel v) {
    return os << stringValue(v);
}
IgpLevel sequenceToValue(Kest::CharRange& r, IgpLevel* out) {
    return Kest::enumRead(igpLevelTable(), r, out);
}

IgpProto IgpProtoInstance(unsigned value) {
    return Kest::enumInstance<IgpProto>(igpProtoTable(), value);
}
IgpProto IgpProtoInstance(const Poldo::String& name) {
    return Kest::enumInstance<IgpProto>(igpProtoTable(), name);
}
Poldo::String stringValue(IgpProto v) {
    return igpProtoTable().nameOf(v);
}
std::ostream& operator<<(std::ostream& os, IgpProto v) {
    return os << stringValue(v);
}
IgpProto sequenceToValue(Kest::CharRange& r, IgpProto* out) {
    return Kest::enumRead(igpProtoTable(), r, out);
}

}  // namespace Routing::IgpCommon
