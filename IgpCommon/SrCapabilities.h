// SR capabilities: the segment-routing global block (SRGB) or local block
// (SRLB) a node advertises (RFC 8667 3.1, 3.3): flags and up to eight label
// ranges. A Node holds one instance for each block.
#pragma once

#include <compare>
#include <cstdint>
#include <ostream>
#include <tuple>

#include "IgpCommon/FlagSets.h"
#include "IgpCommon/framework/Array.h"
#include "IgpCommon/framework/BoundedIndex.h"
#include "IgpCommon/framework/Entity.h"
#include "IgpCommon/framework/Ptr.h"
#include "IgpCommon/framework/Text.h"
#include "IgpCommon/framework/TypeData.h"
#include "IgpCommon/platform/Drimm.h"
#include "IgpCommon/platform/Lumo.h"

namespace Routing::IgpCommon {

/// Index of the eight SID ranges: 0..7.
struct SrSidRangeIndex : Kest::BoundedIndex<SrSidRangeIndex, 0, 7> {
    static constexpr const char kestTypeName[] = "Routing::IgpCommon::SrSidRangeIndex";
    using BoundedIndex::BoundedIndex;
};

/// One label range: its size and first label. The default starting label,
/// one past the largest 20-bit label, means "no label"; a range is default
/// (absent) only when both fields are at their defaults.
class SrSidRange {
public:
    static constexpr std::uint32_t noStartingSid = 1048576;

    SrSidRange() = default;
    SrSidRange(std::uint32_t range, Lumo::MplsLabel startingSid) noexcept
        : range_(range), startingSid_(startingSid) {}
    /// Reads the generic form; a bad label names the attribute "startingSid".
    explicit SrSidRange(Kest::CharRange& r);

    std::uint32_t range() const noexcept { return range_; }
    void rangeIs(std::uint32_t v) & noexcept { range_ = v; }
    Lumo::MplsLabel startingSid() const noexcept { return startingSid_; }
    void startingSidIs(Lumo::MplsLabel v) & noexcept { startingSid_ = v; }

    std::uint32_t hash(std::uint32_t seed) const noexcept;
    static bool isEq(const SrSidRange& a, const SrSidRange& b) noexcept {
        return &a == &b || (a.range_ == b.range_ && a.startingSid_ == b.startingSid_);
    }
    friend bool operator==(const SrSidRange& a, const SrSidRange& b) noexcept { return isEq(a, b); }
    friend std::strong_ordering operator<=>(const SrSidRange& a, const SrSidRange& b) noexcept {
        return std::tie(a.range_, a.startingSid_) <=> std::tie(b.range_, b.startingSid_);
    }
    friend std::ostream& operator<<(std::ostream& os, const SrSidRange& r);

    static constexpr const char kestTypeName[] = "Routing::IgpCommon::SrSidRange";
    static constexpr auto kestAttrs() {
        return std::tuple{Kest::attr("range", &SrSidRange::range_),
                          Kest::attr("startingSid", &SrSidRange::startingSid_)};
    }
    static const Kest::TypeData& typeData() noexcept;
    const Kest::TypeData& fwkType() const noexcept { return typeData(); }

private:
    std::uint32_t range_ = 0;
    Lumo::MplsLabel startingSid_{noStartingSid};
};

class SrCapabilities final : public Kest::ObservedEntity<SrCapabilities>,
                             public Drimm::SlabAllocated<SrCapabilities> {
public:
    struct Attr {
        enum : Kest::AttrId { srCapFlag = 130, numRanges = 131, sidLabelRange = 132 };
    };
    using SidLabelRangeArray = Kest::Array<SrSidRange, SrSidRangeIndex, 8>;

    static Poldo::Ptr<SrCapabilities> SrCapabilitiesIs();

    SrCapabilityFlags srCapFlag() const noexcept { return srCapFlag_; }
    void srCapFlagIs(SrCapabilityFlags v) { writeAttr(Attr::srCapFlag, srCapFlag_, v); }

    /// The number of ranges advertised. Kept apart from the array: setting it
    /// never touches the ranges, and it may exceed 8.
    std::uint8_t numRanges() const noexcept { return numRanges_; }
    void numRangesIs(std::uint8_t v) { writeAttr(Attr::numRanges, numRanges_, v); }
    /// Adds `n` (wrapping at 256) and returns the new count.
    std::uint8_t numRangesInc(std::uint8_t n);

    /// Range `i`; an index above 7 raises "cannot access index <i> of an array with size 8".
    const SrSidRange& sidLabelRange(SrSidRangeIndex i) const { return sidLabelRange_[i]; }
    const SidLabelRangeArray& sidLabelRange() const noexcept { return sidLabelRange_; }
    void sidLabelRangeIs(SrSidRangeIndex i, const SrSidRange& r);
    /// Resets range `i` to the default and returns it as it was.
    SrSidRange sidLabelRangeDel(SrSidRangeIndex i);
    SrSidRange sidLabelRangeDel(const SidLabelRangeArray::iterator& it) {
        return sidLabelRangeDel(it.index());
    }
    void sidLabelRangeDelAll();

    /// True when the two hold the same flags, the same count and equal ranges
    /// below the count (ranges beyond the count are never compared). A count
    /// above 8 whose first eight ranges agree raises the SrSidRangeIndex range
    /// exception.
    bool compare(const SrCapabilities* other) const;

    static const Kest::TypeData& typeData() noexcept;
    static Drimm::AllocTracker& allocTracker();

private:
    SrCapabilities() = default;

    SrCapabilityFlags srCapFlag_;
    std::uint8_t numRanges_ = 0;
    SidLabelRangeArray sidLabelRange_;
};

Poldo::Ptr<SrCapabilities> srCapabilitiesFactory();

}  // namespace Routing::IgpCommon
