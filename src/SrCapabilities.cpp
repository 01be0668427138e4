#include "IgpCommon/SrCapabilities.h"

#include "Define.h"

#include "IgpCommon/framework/Hash.h"

namespace Routing::IgpCommon {

using Kest::AttrKind;

SrSidRange::SrSidRange(Kest::CharRange& r) : SrSidRange(Kest::readValue<SrSidRange>(r)) {}

std::uint32_t SrSidRange::hash(std::uint32_t seed) const noexcept {
    return Kest::HashState(seed).mix32(range_).mix32(startingSid_.value()).result();
}

std::ostream& operator<<(std::ostream& os, const SrSidRange& r) {
    return Kest::writeValue(os, r);
}

IGP_DEFINE_TYPE_DATA(SrSidRange, SrSidRange::kestTypeName, value, {"range", 2, AttrKind::scalar},
                     {"startingSid", 3, AttrKind::scalar})

Poldo::Ptr<SrCapabilities> SrCapabilities::SrCapabilitiesIs() {
    return Poldo::Ptr<SrCapabilities>(new SrCapabilities(), Poldo::adopt);
}

Poldo::Ptr<SrCapabilities> srCapabilitiesFactory() {
    return SrCapabilities::SrCapabilitiesIs();
}

std::uint8_t SrCapabilities::numRangesInc(std::uint8_t n) {
    numRangesIs(static_cast<std::uint8_t>(numRanges_ + n));
    return numRanges_;
}

void SrCapabilities::sidLabelRangeIs(SrSidRangeIndex i, const SrSidRange& r) {
    const SrSidRange& stored = sidLabelRange_[i];
    if (stored == r) {
        return;
    }
    const SrSidRange old = stored;
    sidLabelRange_.set(i, r);
    publishMember(Attr::sidLabelRange, i, &old);
}

SrSidRange SrCapabilities::sidLabelRangeDel(SrSidRangeIndex i) {
    const SrSidRange old = sidLabelRange_[i];
    if (!(old == SrSidRange())) {
        sidLabelRange_.set(i, SrSidRange());
        publishMember(Attr::sidLabelRange, i, &old);
    }
    return old;
}

void SrCapabilities::sidLabelRangeDelAll() {
    for (auto it = sidLabelRange_.begin(); it != sidLabelRange_.end(); ++it) {
        sidLabelRangeDel(it.index());
    }
}

bool SrCapabilities::compare(const SrCapabilities* other) const {
    if (srCapFlag_ != other->srCapFlag_ || numRanges_ != other->numRanges_) {
        return false;
    }
    if (numRanges_ == 0) {
        return true;
    }
    for (unsigned i = 0;; ++i) {
        // Past the eighth range the index itself is refused, with its own message.
        const SrSidRangeIndex index = SrSidRangeIndex::checked(i);
        if (!(sidLabelRange_[index] == other->sidLabelRange_[index])) {
            return false;
        }
        if (i + 1 == numRanges_) {
            return true;
        }
    }
}

IGP_DEFINE_TYPE_DATA(SrCapabilities, "Routing::IgpCommon::SrCapabilities", entity,
                     {"srCapFlag", Attr::srCapFlag, AttrKind::scalar},
                     {"numRanges", Attr::numRanges, AttrKind::scalar},
                     {"sidLabelRange", Attr::sidLabelRange, AttrKind::array})

IGP_DEFINE_ALLOC_TRACKER(SrCapabilities, "Routing::IgpCommon::SrCapabilities")

}  // namespace Routing::IgpCommon
