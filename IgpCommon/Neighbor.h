// A neighbor: one adjacency advertised in an LSP, keyed by NeighborKey, with
// the link's traffic-engineering attributes (RFC 5305, RFC 7308, RFC 8570) and
// its adjacency SIDs (RFC 8667).
#pragma once

#include <compare>
#include <cstdint>
#include <ostream>
#include <tuple>

#include "IgpCommon/FlagSets.h"
#include "IgpCommon/NeighborKey.h"
#include "IgpCommon/SidValues.h"
#include "IgpCommon/framework/Array.h"
#include "IgpCommon/framework/AttrDesc.h"
#include "IgpCommon/framework/BoundedIndex.h"
#include "IgpCommon/framework/Entity.h"
#include "IgpCommon/framework/HashMap2018.h"
#include "IgpCommon/framework/Ptr.h"
#include "IgpCommon/framework/Spares.h"
#include "IgpCommon/framework/Text.h"
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

/// A unidirectional link delay (RFC 8570 4.1): microseconds in 24 bits and
/// the anomalous (A) bit. A link that advertises none holds the absent delay.
class LinkDelay {
public:
    static constexpr std::uint32_t maxDelay = 0xFFFFFF;

    LinkDelay() noexcept = default;
    LinkDelay(std::uint32_t delay, bool anomalous) noexcept
        : delay_(delay & maxDelay), present_(true), anomalous_(anomalous) {}
    /// The sub-TLV's four octets: the A bit on top, seven reserved bits
    /// (ignored on receipt), then the delay.
    static LinkDelay fromWord(std::uint32_t word) noexcept { return {word & maxDelay, (word >> 31) != 0}; }
    explicit LinkDelay(Kest::CharRange& r);

    bool present() const noexcept { return present_; }
    std::uint32_t delay() const noexcept { return delay_; }
    bool anomalous() const noexcept { return anomalous_; }

    friend bool operator==(const LinkDelay&, const LinkDelay&) noexcept = default;
    friend auto operator<=>(const LinkDelay& a, const LinkDelay& b) noexcept {
        return std::tie(a.present_, a.delay_, a.anomalous_) <=> std::tie(b.present_, b.delay_, b.anomalous_);
    }
    friend std::ostream& operator<<(std::ostream& os, const LinkDelay& d);

    static constexpr const char kestTypeName[] = "Routing::IgpCommon::LinkDelay";
    static constexpr auto kestAttrs() {
        return std::tuple{Kest::attr("present", &LinkDelay::present_),
                          Kest::attr("delay", &LinkDelay::delay_),
                          Kest::attr("anomalous", &LinkDelay::anomalous_)};
    }

private:
    std::uint32_t delay_ = 0;
    bool present_ = false;
    bool anomalous_ = false;
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
            linkDelay,
            kestEnd,  ///< one past the last identifier
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

    /// The link's delay; only a delay that is present is printed.
    LinkDelay linkDelay() const noexcept { return linkDelay_; }
    void linkDelayIs(LinkDelay v) { writeAttr(Attr::linkDelay, linkDelay_, v); }

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
    /// removing those it lacks; last the link delay. The caller guarantees
    /// equal keys.
    void updateAttr(const Poldo::Ptr<const Neighbor>& other);

    /// The dump text: the key line, then the metric line with the TE
    /// attributes whose flags are set, SRLGs and SIDs.
    std::ostream& formatContent(std::ostream& os) const;

    static const Kest::TypeData& typeData() noexcept;
    static Drimm::AllocTracker& allocTracker();

    /// Every attribute, once: what tools print, compare, unite and mirror.
    /// The flagged TE attributes are carried when their flag is set, the
    /// delay when present; fragments unite the smaller metric and all
    /// members.
    static constexpr auto kestAttrDescs();

private:
    friend class Poldo::Spares<Neighbor>;
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
    LinkDelay linkDelay_;
};

namespace detail {
/// Whether the neighbor carries the attribute of one flag of its attrsPresent.
template <bool (NeighborAttrsPresent::*Flag)() const noexcept>
struct FlagCarried {
    bool operator()(const Neighbor& n) const noexcept { return (n.attrsPresent().*Flag)(); }
};
}  // namespace detail

constexpr auto Neighbor::kestAttrDescs() {
    using N = Neighbor;
    using P = NeighborAttrsPresent;
    using Kest::AttrKind;
    using Kest::Unite;
    constexpr auto first = Unite::firstCarrier;
    return std::tuple{
        Kest::keyAttr("key", Attr::key, &N::key),
        Kest::scalarAttr("attrsPresent", Attr::attrsPresent, &N::attrsPresent, &N::attrsPresentIs,
                         Unite::flagsOfAll),
        Kest::scalarAttr("adminGroup", Attr::adminGroup, &N::adminGroup, &N::adminGroupIs, first,
                         detail::FlagCarried<&P::adminGroup>{}),
        Kest::scalarAttr("maxLinkBw", Attr::maxLinkBw, &N::maxLinkBw, &N::maxLinkBwIs, first,
                         detail::FlagCarried<&P::maxLinkBw>{}),
        Kest::scalarAttr("maxReserveLinkBw", Attr::maxReserveLinkBw, &N::maxReserveLinkBw,
                         &N::maxReserveLinkBwIs, first, detail::FlagCarried<&P::maxReserveLinkBw>{}),
        Kest::membersAttr<AttrKind::array>(
            "unreservedBw", Attr::unreservedBw,
            static_cast<const UnreservedBwArray& (N::*)() const noexcept>(&N::unreservedBw),
            static_cast<void (N::*)(BwIndex, float)>(&N::unreservedBwIs), first,
            detail::FlagCarried<&P::unreservedBw>{}),
        Kest::membersAttr<AttrKind::hashCollection>(
            "extAdminGroup", Attr::extAdminGroup,
            static_cast<const ExtAdminGroupMap& (N::*)() const noexcept>(&N::extAdminGroup),
            &N::extAdminGroupIs, first, detail::FlagCarried<&P::extAdminGroup>{}),
        Kest::scalarAttr("teDefMetric", Attr::teDefMetric, &N::teDefMetric, &N::teDefMetricIs, first,
                         detail::FlagCarried<&P::teDefMetric>{}),
        Kest::scalarAttr("igpMetric", Attr::igpMetric, &N::igpMetric, &N::igpMetricIs, Unite::least),
        Kest::membersAttr<AttrKind::hashCollection>("srlgValues", Attr::srlgValues, &N::srlgValues,
                                                    &N::srlgValuesIs, Unite::membersOfAll,
                                                    Kest::AlwaysCarried{}, Kest::JsonNames{"srlgs"}),
        Kest::membersAttr<AttrKind::hashCollection>("adjSid", Attr::adjSid, &N::adjSid, &N::adjSidIs,
                                                    Unite::membersOfAll, Kest::AlwaysCarried{},
                                                    Kest::JsonNames{"adjSids"}),
        Kest::membersAttr<AttrKind::hashCollection>("lanAdjSid", Attr::lanAdjSid, &N::lanAdjSid,
                                                    &N::lanAdjSidIs, Unite::membersOfAll,
                                                    Kest::AlwaysCarried{}, Kest::JsonNames{"lanAdjSids"}),
        Kest::operationAttr("updateAttr", Attr::updateAttr),
        Kest::scalarAttr("linkDelay", Attr::linkDelay, &N::linkDelay, &N::linkDelayIs, first,
                         [](const N& n) { return n.linkDelay().present(); }),
    };
}

Poldo::Ptr<Neighbor> neighborFactory(const NeighborKey& key);

namespace detail {
/// Reads a neighbor's key: the collections of neighbors are keyed by it.
struct NeighborKeyOf {
    const NeighborKey& operator()(const Poldo::Ptr<Neighbor>& n) const noexcept { return n->key(); }
};
}  // namespace detail

}  // namespace Routing::IgpCommon
