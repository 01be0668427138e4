// A node: the node-wide attributes one LSP advertises about its originator
// (flags, host name, area addresses, router identifiers, SR capabilities and
// local block, maximum SID depths, flexible-algorithm definitions, topologies).
// The six collections are shared by pointer and replaced as a whole when
// their contents differ.
#pragma once

#include <cstdint>
#include <ostream>
#include <tuple>

#include "IgpCommon/FlagSets.h"
#include "IgpCommon/IgpNodeId.h"
#include "IgpCommon/NodeAttrCollections.h"
#include "IgpCommon/SrCapabilities.h"
#include "IgpCommon/framework/AttrDesc.h"
#include "IgpCommon/framework/Entity.h"
#include "IgpCommon/framework/Ptr.h"
#include "IgpCommon/framework/Spares.h"
#include "IgpCommon/framework/String.h"
#include "IgpCommon/framework/TypeData.h"
#include "IgpCommon/platform/Drimm.h"
#include "IgpCommon/platform/Lumo.h"

namespace Routing::IgpCommon {

class Node final : public Kest::ObservedEntity<Node>, public Drimm::SlabAllocated<Node> {
public:
    struct Attr {
        enum : Kest::AttrId {
            nodeId = 130,
            flags,
            hostName,
            isisAreaIdCol,
            ipv4RouterId,
            ipv6RouterId,
            srCapabilities,
            srlb,
            msdCol,
            fadCol,
            mtIdCol,
            updateNodeAttrs,
            kestEnd,  ///< one past the last identifier
        };
    };

    static Poldo::Ptr<Node> NodeIs(const IgpNodeId& nodeId);

    const IgpNodeId& nodeId() const noexcept { return nodeId_; }
    NodeFlags flags() const noexcept { return flags_; }
    void flagsIs(NodeFlags v) { writeAttr(Attr::flags, flags_, v); }
    const Poldo::String& hostName() const noexcept { return hostName_; }
    void hostNameIs(const Poldo::String& v) { writeAttr(Attr::hostName, hostName_, v); }
    Lumo::IpAddr ipv4RouterId() const noexcept { return ipv4RouterId_; }
    void ipv4RouterIdIs(Lumo::IpAddr v) { writeAttr(Attr::ipv4RouterId, ipv4RouterId_, v); }
    const Lumo::Ip6Addr& ipv6RouterId() const noexcept { return ipv6RouterId_; }
    void ipv6RouterIdIs(const Lumo::Ip6Addr& v) { writeAttr(Attr::ipv6RouterId, ipv6RouterId_, v); }

    // The collections; the setters compare pointer identity only.
    const Poldo::Ptr<IsisAreaIdCol>& isisAreaIdCol() const noexcept { return isisAreaIdCol_; }
    void isisAreaIdColIs(const Poldo::Ptr<IsisAreaIdCol>& v) {
        writeAttr(Attr::isisAreaIdCol, isisAreaIdCol_, v);
    }
    /// The SR capabilities and global block (SRGB).
    const Poldo::Ptr<SrCapabilities>& srCapabilities() const noexcept { return srCapabilities_; }
    void srCapabilitiesIs(const Poldo::Ptr<SrCapabilities>& v) {
        writeAttr(Attr::srCapabilities, srCapabilities_, v);
    }
    /// The SR local block.
    const Poldo::Ptr<SrCapabilities>& srlb() const noexcept { return srlb_; }
    void srlbIs(const Poldo::Ptr<SrCapabilities>& v) { writeAttr(Attr::srlb, srlb_, v); }
    const Poldo::Ptr<IgpMsdCol>& msdCol() const noexcept { return msdCol_; }
    void msdColIs(const Poldo::Ptr<IgpMsdCol>& v) { writeAttr(Attr::msdCol, msdCol_, v); }
    const Poldo::Ptr<IgpFlexAlgoDefinitionCol>& fadCol() const noexcept { return fadCol_; }
    void fadColIs(const Poldo::Ptr<IgpFlexAlgoDefinitionCol>& v) { writeAttr(Attr::fadCol, fadCol_, v); }
    const Poldo::Ptr<IgpMultiTopologyIdCol>& mtIdCol() const noexcept { return mtIdCol_; }
    void mtIdColIs(const Poldo::Ptr<IgpMultiTopologyIdCol>& v) { writeAttr(Attr::mtIdCol, mtIdCol_, v); }

    /// Brings this node up to `arg`, which must have the same node identifier
    /// (else the process stops with "nodeId() == arg->nodeId()"): flags, host
    /// name; then each collection, keeping our own object when both are set
    /// and equal by content, otherwise sharing arg's (null included); then the
    /// router identifiers. Comparing SR blocks that declare more than eight
    /// ranges raises the SrSidRangeIndex range exception.
    void updateNodeAttrs(const Node* arg);

    /// The dump line of the node.
    std::ostream& formatContent(std::ostream& os) const;

    static const Kest::TypeData& typeData() noexcept;
    static Drimm::AllocTracker& allocTracker();

    /// Every attribute, once: what tools print, compare, unite and mirror.
    /// Fragments unite each value from the first fragment that carries it
    /// (router identifiers other than zero, a host name, a collection), but
    /// the flags, which the first fragment alone decides (ISO 10589 7.3.4.4),
    /// and the area addresses, topologies and flexible-algorithm definitions,
    /// which are gathered from all.
    static constexpr auto kestAttrDescs();

private:
    friend class Poldo::Spares<Node>;
    explicit Node(const IgpNodeId& nodeId) noexcept : nodeId_(nodeId) {}

    // The fragment unions of the gathered collections (see kestAttrDescs).
    static void uniteAreas(Node& into, const Node& from);
    static void uniteFads(Node& into, const Node& from);
    static void uniteMtIds(Node& into, const Node& from);

    const IgpNodeId nodeId_;
    NodeFlags flags_;
    Poldo::String hostName_;
    Poldo::Ptr<IsisAreaIdCol> isisAreaIdCol_;
    Lumo::IpAddr ipv4RouterId_;
    Lumo::Ip6Addr ipv6RouterId_;
    Poldo::Ptr<SrCapabilities> srCapabilities_;
    Poldo::Ptr<SrCapabilities> srlb_;
    Poldo::Ptr<IgpMsdCol> msdCol_;
    Poldo::Ptr<IgpFlexAlgoDefinitionCol> fadCol_;
    Poldo::Ptr<IgpMultiTopologyIdCol> mtIdCol_;
};

constexpr auto Node::kestAttrDescs() {
    using N = Node;
    using Kest::Unite;
    constexpr auto first = Unite::firstCarrier;
    return std::tuple{
        Kest::keyAttr("nodeId", Attr::nodeId, &N::nodeId),
        Kest::scalarAttr("flags", Attr::flags, &N::flags, &N::flagsIs, Unite::never),
        Kest::scalarAttr(
            "hostName", Attr::hostName, &N::hostName, &N::hostNameIs, first,
            [](const N& n) { return !n.hostName().empty(); }, Kest::omittedFromJson()),
        Kest::pointerAttr("isisAreaIdCol", Attr::isisAreaIdCol, &N::isisAreaIdCol, &N::isisAreaIdColIs,
                          Kest::JsonNames{"areas"}, &N::uniteAreas),
        Kest::scalarAttr(
            "ipv4RouterId", Attr::ipv4RouterId, &N::ipv4RouterId, &N::ipv4RouterIdIs, first,
            [](const N& n) { return !n.ipv4RouterId().isZero(); }, Kest::nullUnlessCarried()),
        Kest::scalarAttr(
            "ipv6RouterId", Attr::ipv6RouterId, &N::ipv6RouterId, &N::ipv6RouterIdIs, first,
            [](const N& n) { return !n.ipv6RouterId().isZero(); }, Kest::nullUnlessCarried()),
        Kest::pointerAttr("srCapabilities", Attr::srCapabilities, &N::srCapabilities, &N::srCapabilitiesIs,
                          Kest::JsonNames{"srgb"}),
        Kest::pointerAttr("srlb", Attr::srlb, &N::srlb, &N::srlbIs),
        Kest::pointerAttr("msdCol", Attr::msdCol, &N::msdCol, &N::msdColIs, Kest::JsonNames{"msd"}),
        Kest::pointerAttr("fadCol", Attr::fadCol, &N::fadCol, &N::fadColIs,
                          Kest::JsonNames{"flexAlgoDefinitions"}, &N::uniteFads),
        Kest::pointerAttr("mtIdCol", Attr::mtIdCol, &N::mtIdCol, &N::mtIdColIs, Kest::JsonNames{"topologies"},
                          &N::uniteMtIds),
        Kest::operationAttr("updateNodeAttrs", Attr::updateNodeAttrs),
    };
}

// Deep equality of the node's collections, for the descriptions: by content,
// as the merge compares them.
inline bool kestSameContent(const IsisAreaIdCol& a, const IsisAreaIdCol& b) {
    return a.compareAreaIds(&b);
}
inline bool kestSameContent(const SrCapabilities& a, const SrCapabilities& b) {
    return a.compare(&b);
}
inline bool kestSameContent(const IgpMsdCol& a, const IgpMsdCol& b) {
    return a.compareMsdCol(&b);
}
inline bool kestSameContent(const IgpFlexAlgoDefinitionCol& a, const IgpFlexAlgoDefinitionCol& b) {
    return a.compareFadCol(&b);
}
inline bool kestSameContent(const IgpMultiTopologyIdCol& a, const IgpMultiTopologyIdCol& b) {
    return a.compareMtIdCol(&b);
}

Poldo::Ptr<Node> nodeFactory(const IgpNodeId& nodeId);

}  // namespace Routing::IgpCommon
