#include "IgpCommon/Identifiers.h"

#include "Define.h"

namespace Routing::IgpCommon {

using Kest::AttrKind;

IGP_DEFINE_TYPE_DATA(IgpMultiTopologyId, IgpMultiTopologyId::kestTypeName, value, {"value", Kest::firstValueAttrId, AttrKind::scalar}, {"defaultValue", Kest::firstValueAttrId + 1, AttrKind::constant})

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

IgpLevel IgpLevelInstance(unsigned value) { return Kest::enumInstance<IgpLevel>(igpLevelTable(), value); }

IgpProto IgpProtoInstance(unsigned value) { return Kest::enumInstance<IgpProto>(igpProtoTable(), value); }

}  // namespace Routing::IgpCommon
