#include "IgpCommon/SidValues.h"

#include "IgpCommon/framework/Assert.h"
#include "IgpCommon/framework/Hash.h"
#include "IgpCommon/platform/Lumo.h"
#include "IgpCommon/platform/Umbo.h"

namespace Routing::IgpCommon {

namespace {

// The system identifier's own hash: all six bytes through the byte mixer.
std::uint32_t systemIdHash(const Isis::SystemId& id) noexcept {
    Umbo::HashMix mix(0);
    for (std::uint8_t b : id.bytes()) {
        mix.mix(b);
    }
    return mix.value();
}


}  // namespace

SrSid::SrSid(Kest::CharRange& r) : SrSid(Kest::readValue<SrSid>(r)) {}
unsigned SrSid::valueLength() const { Kest::notImplemented(__PRETTY_FUNCTION__); }
std::uint32_t SrSid::hash(std::uint32_t seed) const noexcept {
    return Kest::HashState(seed).mix8(flags_).mix32(value_).result();
}
std::ostream& operator<<(std::ostream& os, const SrSid& s) { return Kest::writeValue(os, s); }

AdjacencySid::AdjacencySid(Kest::CharRange& r) : AdjacencySid(Kest::readValue<AdjacencySid>(r)) {}
std::uint32_t AdjacencySid::hash(std::uint32_t seed) const noexcept {
    return Kest::HashState(seed).mix8(flags_).mix32(value_).mix8(weight_).result();
}
std::ostream& operator<<(std::ostream& os, const AdjacencySid& s) { return Kest::writeValue(os, s); }

LanAdjacencySid::LanAdjacencySid(Kest::CharRange& r) : LanAdjacencySid(Kest::readValue<LanAdjacencySid>(r)) {}
std::uint32_t LanAdjacencySid::hash(std::uint32_t seed) const noexcept {
    return Kest::HashState(seed).mix8(flags_).mix32(value_).mix8(weight_).mix32(systemIdHash(systemId_)).result();
}
std::ostream& operator<<(std::ostream& os, const LanAdjacencySid& s) { return Kest::writeValue(os, s); }

PrefixSid::PrefixSid(Kest::CharRange& r) : PrefixSid(Kest::readValue<PrefixSid>(r)) {}
std::uint32_t PrefixSid::hash(std::uint32_t seed) const noexcept {
    return Kest::HashState(seed).mix8(flags_).mix32(value_).mix8(algorithm_).mix8(isValid_).result();
}
std::ostream& operator<<(std::ostream& os, const PrefixSid& s) { return Kest::writeValue(os, s); }

Poldo::String PrefixSid::toStrep() const {
    Poldo::OStringStream os;
    os << "PrefixSID={" << value_ << ", flags=0x" << std::hex << unsigned{flags_} << std::dec
       << ", algo=" << unsigned{algorithm_} << "}";
    return os.str();
}

LabelSid::LabelSid(Kest::CharRange& r) : LabelSid(Kest::readValue<LabelSid>(r)) {}
std::uint32_t LabelSid::hash(std::uint32_t seed) const noexcept {
    return Kest::HashState(seed).mix8(flags_).mix32(value_).mix8(isValid_).result();
}
std::ostream& operator<<(std::ostream& os, const LabelSid& s) { return Kest::writeValue(os, s); }

Poldo::String LabelSid::toStrep() const {
    Poldo::OStringStream os;
    os << "LabelSID={";
    if (hasMplsLabel()) {
        os << "mpls=" << Lumo::MplsLabel(value_).prettyString();
    } else {
        os << "index=" << value_;
    }
    os << "}";
    return os.str();
}

#define IGPCOMMON_SID_TYPEDATA(Type, ...)                                                          \
    const Kest::TypeData& Type::typeData() noexcept {                                              \
        static constexpr Kest::AttrData attrs[] = {__VA_ARGS__};                                   \
        static constexpr Kest::TypeData t{Type::kestTypeName, Kest::TypeKind::value, attrs};       \
        return t;                                                                                  \
    }
IGPCOMMON_SID_TYPEDATA(SrSid, {"flags", 2, Kest::AttrKind::scalar}, {"value", 3, Kest::AttrKind::scalar},
                       {"valueLength", 4, Kest::AttrKind::function})
IGPCOMMON_SID_TYPEDATA(AdjacencySid, {"flags", 2, Kest::AttrKind::scalar}, {"value", 3, Kest::AttrKind::scalar},
                       {"valueLength", 4, Kest::AttrKind::function}, {"weight", 5, Kest::AttrKind::scalar})
IGPCOMMON_SID_TYPEDATA(LanAdjacencySid, {"flags", 2, Kest::AttrKind::scalar}, {"value", 3, Kest::AttrKind::scalar},
                       {"valueLength", 4, Kest::AttrKind::function}, {"weight", 5, Kest::AttrKind::scalar},
                       {"systemId", 6, Kest::AttrKind::scalar})
IGPCOMMON_SID_TYPEDATA(PrefixSid, {"flags", 2, Kest::AttrKind::scalar}, {"value", 3, Kest::AttrKind::scalar},
                       {"valueLength", 4, Kest::AttrKind::function}, {"algorithm", 5, Kest::AttrKind::scalar},
                       {"isValid", 6, Kest::AttrKind::scalar}, {"toStrep", 7, Kest::AttrKind::function})
IGPCOMMON_SID_TYPEDATA(LabelSid, {"flags", 2, Kest::AttrKind::scalar}, {"value", 3, Kest::AttrKind::scalar},
                       {"valueLength", 4, Kest::AttrKind::function}, {"isValid", 5, Kest::AttrKind::scalar},
                       {"hasMplsLabel", 6, Kest::AttrKind::function}, {"toStrep", 7, Kest::AttrKind::function})
#undef IGPCOMMON_SID_TYPEDATA

}  // namespace Routing::IgpCommon
