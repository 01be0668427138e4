// A neighbor: one adjacency advertised in an LSP, keyed by NeighborKey, with
// the link's traffic-engineering attributes (RFC 5305, RFC 7308) and its
// adjacency SIDs (RFC 8667).
#pragma once

#include <cstdint>
#include <ostream>

#include "IgpCommon/FlagSets.h"
#include "IgpCommon/NeighborKey.h"
#include "IgpCommon/SidValues.h"
#include "IgpCommon/framework/Array.h"
#include "IgpCommon/framework/BoundedIndex.h"
#include "IgpCommon/framework/Entity.h"
#include "IgpCommon/framework/HashMap2018.h"
#include "IgpCommon/framework/Ptr.h"
#include "IgpCommon/framework/TypeData.h"
#include "IgpCommon/platform/Drimm.h"

namespace Routing::IgpCommon {

/// The eight priority levels of the unreserved bandwidth: 0..7.
struct BwIndex : Kest::BoundedIndex<BwIndex, 0, 7> {
    static constexpr const char kestTypeName[] = "Routing::IgpCommon::BwIndex";
    using BoundedIndex::BoundedIndex;
};

/// The 64 words of the extended administrative group: 0..63.
struct AdminGroupIndex : Kest::BoundedIndex<AdminGroupIndex, 0, 63> {
    static constexpr const char kestTypeName[] = "Routing::IgpCommon::AdminGroupIndex";
    using BoundedIndex::BoundedIndex;
};

class Neighbor final : public Kest::ObservedEntity<Neighbor>, public Drimm::HeapAllocated<Neighbor> {
public:
    using NeighborAttrsPresent = detail::NeighborAttrsPresent;
    struct Attr {
        enum : Kest::AttrId {
            key = 130,
            attrsPresent,
            adminGroup,
            maxLinkBw,
            maxReserveLinkBw,
            unreservedBw,
            extAdminGroup,
            teDefMetric,
            igpMetric,
            srlgValues,
            adjSid,
            lanAdjSid,
            updateAttr,
        };
    };
    using UnreservedBwArray = Kest::Array<float, BwIndex, 8>;
    // Inline room where links usually have members: the first extended admin
    // group word (in the room the table's address takes anyway), up to two
    // SRLGs and two adjacency SIDs (one protected, one not). LAN adjacency
    // SIDs appear on LAN links only, so they take no room inline.
    using ExtAdminGroupMap = Kest::HashMap<AdminGroupIndex, std::uint32_t, 0x7D2E74F6, 1>;
    using SrlgValueSet = Kest::HashSet<std::uint32_t, 0x78085E43, 2>;
    using AdjSidSet = Kest::HashSet<AdjacencySid, 0xDDAD3AD3, 2>;
    using LanAdjSidSet = Kest::HashSet<LanAdjacencySid, 0x6F5620EA, 0>;

    static Poldo::Ptr<Neighbor> NeighborIs(const NeighborKey& key);

    /// The adjacency's identity; never changes.
    const NeighborKey& key() const noexcept { return key_; }
    /// Which optional TE attributes the LSP carried. Written only by
    /// attrsPresentIs and updateAttr; no attribute setter touches it.
    NeighborAttrsPresent attrsPresent() const noexcept { return attrsPresent_; }
    void attrsPresentIs(NeighborAttrsPresent v) { writeAttr(Attr::attrsPresent, attrsPresent_, v); }

    std::uint32_t adminGroup() const noexcept { return adminGroup_; }
    void adminGroupIs(std::uint32_t v) { writeAttr(Attr::adminGroup, adminGroup_, v); }
    /// Bandwidths are kept exactly as advertised (IEEE floats, bytes per second).
    float maxLinkBw() const noexcept { return maxLinkBw_; }
    void maxLinkBwIs(float v) { writeAttr(Attr::maxLinkBw, maxLinkBw_, v); }
    float maxReserveLinkBw() const noexcept { return maxReserveLinkBw_; }
    void maxReserveLinkBwIs(float v) { writeAttr(Attr::maxReserveLinkBw, maxReserveLinkBw_, v); }

    /// Unreserved bandwidth at priority `i`; an index above 7 raises
    /// "cannot access index <i> of an array with size 8".
    float unreservedBw(BwIndex i) const { return unreservedBw_[i]; }
    const UnreservedBwArray& unreservedBw() const noexcept { return unreservedBw_; }
    void unreservedBwIs(BwIndex i, float v);
    /// Resets priority `i` to 0.0 (publishing only when it was not 0.0).
    void unreservedBwDel(BwIndex i);
    void unreservedBwDel(const UnreservedBwArray::iterator& it) { unreservedBwDel(it.index()); }
    void unreservedBwDelAll();

    /// Extended admin-group word `i`, 0 when absent.
    std::uint32_t extAdminGroup(AdminGroupIndex i) const noexcept;
    const ExtAdminGroupMap& extAdminGroup() const noexcept { return extAdminGroup_; }
    void extAdminGroupIs(AdminGroupIndex i, std::uint32_t word);
    void extAdminGroupDel(AdminGroupIndex i);
    void extAdminGroupDelAll();

    std::uint32_t teDefMetric() const noexcept { return teDefMetric_; }
    void teDefMetricIs(std::uint32_t v) { writeAttr(Attr::teDefMetric, teDefMetric_, v); }
    std::uint32_t igpMetric() const noexcept { return igpMetric_; }
    void igpMetricIs(std::uint32_t v) { writeAttr(Attr::igpMetric, igpMetric_, v); }

    const SrlgValueSet& srlgValues() const noexcept { return srlgValues_; }
    bool srlgValuesHas(std::uint32_t v) const noexcept { return srlgValues_.contains(v); }
    void srlgValuesIs(std::uint32_t v) { memberInsert(Attr::srlgValues, srlgValues_, v); }
    void srlgValuesDel(std::uint32_t v) { memberErase(Attr::srlgValues, srlgValues_, v); }
    void srlgValuesDelAll() { membersClear(Attr::srlgValues, srlgValues_); }

    /// The whole SID is the member: a SID differing in flags or weight is another member.
    const AdjSidSet& adjSid() const noexcept { return adjSid_; }
    bool adjSidHas(const AdjacencySid& s) const noexcept { return adjSid_.contains(s); }
    void adjSidIs(const AdjacencySid& s) { memberInsert(Attr::adjSid, adjSid_, s); }
    void adjSidDel(const AdjacencySid& s) { memberErase(Attr::adjSid, adjSid_, s); }
    void adjSidDelAll() { membersClear(Attr::adjSid, adjSid_); }

    const LanAdjSidSet& lanAdjSid() const noexcept { return lanAdjSid_; }
    bool lanAdjSidHas(const LanAdjacencySid& s) const noexcept { return lanAdjSid_.contains(s); }
    void lanAdjSidIs(const LanAdjacencySid& s) { memberInsert(Attr::lanAdjSid, lanAdjSid_, s); }
    void lanAdjSidDel(const LanAdjacencySid& s) { memberErase(Attr::lanAdjSid, lanAdjSid_, s); }
    void lanAdjSidDelAll() { membersClear(Attr::lanAdjSid, lanAdjSid_); }

    /// Makes every attribute but the key equal to `other`'s, each step
    /// publishing only real changes: attrsPresent; adminGroup, maxLinkBw,
    /// maxReserveLinkBw, igpMetric, teDefMetric (igpMetric first); the eight
    /// unreserved bandwidths; then the extended admin groups, SRLGs, adjacency
    /// and LAN adjacency SIDs, each by adding the other's members and then
    /// removing those it lacks. The caller guarantees equal keys.
    void updateAttr(const Poldo::Ptr<const Neighbor>& other);

    /// The dump text: the key line, then the metric line with the TE
    /// attributes whose flags are set, SRLGs and SIDs.
    std::ostream& formatContent(std::ostream& os) const;

    static const Kest::TypeData& typeData() noexcept;
    static Drimm::AllocTracker& allocTracker();

private:
    explicit Neighbor(const NeighborKey& key) : key_(key) {}

    // Ordered for size: the first field fills the base's last four bytes.
    std::uint32_t igpMetric_ = 0;
    const NeighborKey key_;
    NeighborAttrsPresent attrsPresent_;
    std::uint32_t adminGroup_ = 0;
    float maxLinkBw_ = 0.0f;
    float maxReserveLinkBw_ = 0.0f;
    std::uint32_t teDefMetric_ = 0;
    UnreservedBwArray unreservedBw_;
    ExtAdminGroupMap extAdminGroup_;
    SrlgValueSet srlgValues_;
    AdjSidSet adjSid_;
    LanAdjSidSet lanAdjSid_;
};

Poldo::Ptr<Neighbor> neighborFactory(const NeighborKey& key);

namespace detail {
/// Reads a neighbor's key: the collections of neighbors are keyed by it.
struct NeighborKeyOf {
    const NeighborKey& operator()(const Poldo::Ptr<Neighbor>& n) const noexcept { return n->key(); }
};
}  // namespace detail

}  // namespace Routing::IgpCommon
