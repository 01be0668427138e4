#include "IgpCommon/SrCapabilities.h"

#include "IgpCommon/framework/Hash.h"

namespace Routing::IgpCommon {

SrSidRange::SrSidRange(Kest::CharRange& r) : SrSidRange(Kest::readValue<SrSidRange>(r)) {}

std::uint32_t SrSidRange::hash(std::uint32_t seed) const noexcept {
    return Kest::HashState(seed).mix32(range_).mix32(Kest::HashHelper::hash(startingSid_, 0)).result();
}

std::ostream& operator<<(std::ostream& os, const SrSidRange& r) { return Kest::writeValue(os, r); }

const Kest::TypeData& SrSidRange::typeData() noexcept {
    static constexpr Kest::AttrData attrs[] = {
        {"range", 2, Kest::AttrKind::scalar},
        {"startingSid", 3, Kest::AttrKind::scalar},
    };
    static constexpr Kest::TypeData t{SrSidRange::kestTypeName, Kest::TypeKind::value, attrs};
    return t;
}

Poldo::Ptr<SrCapabilities> SrCapabilities::SrCapabilitiesIs() {
    return Poldo::Ptr<SrCapabilities>(new SrCapabilities(), Poldo::adopt);
}

Poldo::Ptr<SrCapabilities> srCapabilitiesFactory() { return SrCapabilities::SrCapabilitiesIs(); }

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

const Kest::TypeData& SrCapabilities::typeData() noexcept {
    static constexpr Kest::AttrData attrs[] = {
        {"srCapFlag", Attr::srCapFlag, Kest::AttrKind::scalar},
        {"numRanges", Attr::numRanges, Kest::AttrKind::scalar},
        {"sidLabelRange", Attr::sidLabelRange, Kest::AttrKind::array},
    };
    static constexpr Kest::TypeData t{"Routing::IgpCommon::SrCapabilities", Kest::TypeKind::entity, attrs};
    return t;
}

Drimm::AllocTracker& SrCapabilities::allocTracker() {
    static Drimm::AllocTracker t("Routing::IgpCommon::SrCapabilities");
    return t;
}

}  // namespace Routing::IgpCommon
