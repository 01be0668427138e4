#include "IgpCommon/SidValues.h"

#include "Define.h"

#include "IgpCommon/framework/Assert.h"
#include "IgpCommon/framework/Hash.h"
#include "IgpCommon/platform/Lumo.h"

namespace Routing::IgpCommon {

using Kest::AttrKind;

SrSid::SrSid(Kest::CharRange& r) : SrSid(Kest::readValue<SrSid>(r)) {}
unsigned SrSid::valueLength() const {
    Kest::notImplemented(__PRETTY_FUNCTION__);
}
std::uint32_t SrSid::hash(std::uint32_t seed) const noexcept {
    return Kest::HashState(seed).mix8(flags_).mix32(value_).result();
}
std::ostream& operator<<(std::ostream& os, const SrSid& s) {
    return Kest::writeValue(os, s);
}

AdjacencySid::AdjacencySid(Kest::CharRange& r) : AdjacencySid(Kest::readValue<AdjacencySid>(r)) {}
std::uint32_t AdjacencySid::hash(std::uint32_t seed) const noexcept {
    return Kest::HashState(seed).mix8(flags_).mix32(value_).mix8(weight_).result();
}
std::ostream& operator<<(std::ostream& os, const AdjacencySid& s) {
    return Kest::writeValue(os, s);
}

LanAdjacencySid::LanAdjacencySid(Kest::CharRange& r) : LanAdjacencySid(Kest::readValue<LanAdjacencySid>(r)) {}
std::uint32_t LanAdjacencySid::hash(std::uint32_t seed) const noexcept {
    return Kest::HashState(seed)
        .mix8(flags_)
        .mix32(value_)
        .mix8(weight_)
        .mixBytes(systemId_.bytes().data(), 6)
        .result();
}
std::ostream& operator<<(std::ostream& os, const LanAdjacencySid& s) {
    return Kest::writeValue(os, s);
}

PrefixSid::PrefixSid(Kest::CharRange& r) : PrefixSid(Kest::readValue<PrefixSid>(r)) {}
std::uint32_t PrefixSid::hash(std::uint32_t seed) const noexcept {
    return Kest::HashState(seed).mix8(flags_).mix32(value_).mix8(algorithm_).mix8(isValid_).result();
}
std::ostream& operator<<(std::ostream& os, const PrefixSid& s) {
    return Kest::writeValue(os, s);
}

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
std::ostream& operator<<(std::ostream& os, const LabelSid& s) {
    return Kest::writeValue(os, s);
}

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

IGP_DEFINE_TYPE_DATA(SrSid, SrSid::kestTypeName, value, {"flags", 2, AttrKind::scalar},
                     {"value", 3, AttrKind::scalar}, {"valueLength", 4, AttrKind::function})
IGP_DEFINE_TYPE_DATA(AdjacencySid, AdjacencySid::kestTypeName, value, {"flags", 2, AttrKind::scalar},
                     {"value", 3, AttrKind::scalar}, {"valueLength", 4, AttrKind::function},
                     {"weight", 5, AttrKind::scalar})
IGP_DEFINE_TYPE_DATA(LanAdjacencySid, LanAdjacencySid::kestTypeName, value, {"flags", 2, AttrKind::scalar},
                     {"value", 3, AttrKind::scalar}, {"valueLength", 4, AttrKind::function},
                     {"weight", 5, AttrKind::scalar}, {"systemId", 6, AttrKind::scalar})
IGP_DEFINE_TYPE_DATA(PrefixSid, PrefixSid::kestTypeName, value, {"flags", 2, AttrKind::scalar},
                     {"value", 3, AttrKind::scalar}, {"valueLength", 4, AttrKind::function},
                     {"algorithm", 5, AttrKind::scalar}, {"isValid", 6, AttrKind::scalar},
                     {"toStrep", 7, AttrKind::function})
IGP_DEFINE_TYPE_DATA(LabelSid, LabelSid::kestTypeName, value, {"flags", 2, AttrKind::scalar},
                     {"value", 3, AttrKind::scalar}, {"valueLength", 4, AttrKind::function},
                     {"isValid", 5, AttrKind::scalar}, {"hasMplsLabel", 6, AttrKind::function},
                     {"toStrep", 7, AttrKind::function})

}  // namespace Routing::IgpCommon
