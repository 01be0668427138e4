// A SID/label binding (RFC 8667 2.4): binds a range of prefixes to a base
// label or a base prefix SID. A Prefix owns at most one.
#pragma once

#include <cstdint>
#include <ostream>

#include "IgpCommon/FlagSets.h"
#include "IgpCommon/SidValues.h"
#include "IgpCommon/framework/Entity.h"
#include "IgpCommon/framework/Ptr.h"
#include "IgpCommon/framework/String.h"
#include "IgpCommon/framework/TypeData.h"
#include "IgpCommon/platform/Drimm.h"

namespace Routing::IgpCommon {

class SidLabelBinding final : public Kest::ObservedEntity<SidLabelBinding>,
                              public Drimm::SlabAllocated<SidLabelBinding> {
public:
    using SidLabelBindingFlags = detail::SidLabelBindingFlags;
    using SidLabelBindingFlagsBitsMask = detail::SidLabelBindingFlagsBitsMask;
    using enum detail::SidLabelBindingFlagsBitsMask;

    struct Attr {
        enum : Kest::AttrId { flags = 130, range, baseLabelSid, basePrefixSid, lspFragmentId };
    };

    static Poldo::Ptr<SidLabelBinding> SidLabelBindingIs();

    SidLabelBindingFlags flags() const noexcept { return flags_; }
    void flagsIs(SidLabelBindingFlags v) { writeAttr(Attr::flags, flags_, v); }
    std::uint16_t range() const noexcept { return range_; }
    void rangeIs(std::uint16_t v) { writeAttr(Attr::range, range_, v); }
    const LabelSid& baseLabelSid() const noexcept { return baseLabelSid_; }
    void baseLabelSidIs(const LabelSid& v);
    const PrefixSid& basePrefixSid() const noexcept { return basePrefixSid_; }
    void basePrefixSidIs(const PrefixSid& v);
    /// The LSP fragment that carried the binding.
    std::uint8_t lspFragmentId() const noexcept { return lspFragmentId_; }
    void lspFragmentIdIs(std::uint8_t v) { writeAttr(Attr::lspFragmentId, lspFragmentId_, v); }

    /// Brings this binding up to `other` attribute by attribute (flags, range,
    /// base label SID, base prefix SID, fragment), one notification per change.
    /// `other` must not be null.
    void updateAttr(const Poldo::Ptr<const SidLabelBinding>& other);

    /// Equal in everything updateAttr copies.
    bool operator==(const SidLabelBinding& o) const noexcept {
        return flags_ == o.flags_ && range_ == o.range_ && baseLabelSid_ == o.baseLabelSid_ &&
               basePrefixSid_ == o.basePrefixSid_ && lspFragmentId_ == o.lspFragmentId_;
    }

    /// The flag letters F, M, S, D, A of the set flags in that order, or "-".
    static Poldo::String flagsToStrep(SidLabelBindingFlags flags);
    /// "sidLabelBinding={flags=F, range=4, lspFragmentId=0, LabelSID={...}, PrefixSID={...}}";
    /// a SID that is not valid is left out.
    std::ostream& formatContent(std::ostream& os) const;
    Poldo::String toStrep() const;

    static const Kest::TypeData& typeData() noexcept;
    static Drimm::AllocTracker& allocTracker();

private:
    SidLabelBinding() = default;

    SidLabelBindingFlags flags_;
    std::uint16_t range_ = 0;
    LabelSid baseLabelSid_;
    PrefixSid basePrefixSid_;
    std::uint8_t lspFragmentId_ = 0;
};

Poldo::Ptr<SidLabelBinding> sidLabelBindingFactory();

}  // namespace Routing::IgpCommon
