#include "IgpCommon/SidLabelBinding.h"

#include "Define.h"

namespace Routing::IgpCommon {

using Kest::AttrKind;

Poldo::Ptr<SidLabelBinding> SidLabelBinding::SidLabelBindingIs() {
    return Poldo::Ptr<SidLabelBinding>(new SidLabelBinding(), Poldo::adopt);
}

Poldo::Ptr<SidLabelBinding> sidLabelBindingFactory() {
    return SidLabelBinding::SidLabelBindingIs();
}

void SidLabelBinding::baseLabelSidIs(const LabelSid& v) {
    writeAttr(Attr::baseLabelSid, baseLabelSid_, v);
}

void SidLabelBinding::basePrefixSidIs(const PrefixSid& v) {
    writeAttr(Attr::basePrefixSid, basePrefixSid_, v);
}

void SidLabelBinding::updateAttr(const Poldo::Ptr<const SidLabelBinding>& other) {
    flagsIs(other->flags_);
    rangeIs(other->range_);
    baseLabelSidIs(other->baseLabelSid_);
    basePrefixSidIs(other->basePrefixSid_);
    lspFragmentIdIs(other->lspFragmentId_);
}

Poldo::String SidLabelBinding::flagsToStrep(SidLabelBindingFlags flags) {
    Poldo::String s;
    if (flags.addressFamily()) {
        s += 'F';
    }
    if (flags.mirrorContext()) {
        s += 'M';
    }
    if (flags.flood()) {
        s += 'S';
    }
    if (flags.leaked()) {
        s += 'D';
    }
    if (flags.attached()) {
        s += 'A';
    }
    return s.empty() ? "-" : s;
}

std::ostream& SidLabelBinding::formatContent(std::ostream& os) const {
    os << "sidLabelBinding={flags=" << flagsToStrep(flags_) << ", range=" << unsigned{range_}
       << ", lspFragmentId=" << unsigned{lspFragmentId_};
    if (baseLabelSid_.isValid()) {
        os << ", " << baseLabelSid_.toStrep();
    }
    if (basePrefixSid_.isValid()) {
        os << ", " << basePrefixSid_.toStrep();
    }
    return os << "}";
}

Poldo::String SidLabelBinding::toStrep() const {
    Poldo::OStringStream os;
    formatContent(os);
    return os.str();
}

IGP_DEFINE_TYPE_DATA(SidLabelBinding, "Routing::IgpCommon::SidLabelBinding", entity,
                     {"flags", Attr::flags, AttrKind::scalar}, {"range", Attr::range, AttrKind::scalar},
                     {"baseLabelSid", Attr::baseLabelSid, AttrKind::scalar},
                     {"basePrefixSid", Attr::basePrefixSid, AttrKind::scalar},
                     {"lspFragmentId", Attr::lspFragmentId, AttrKind::scalar})

IGP_DEFINE_ALLOC_TRACKER(SidLabelBinding, "Routing::IgpCommon::SidLabelBinding")

}  // namespace Routing::IgpCommon
