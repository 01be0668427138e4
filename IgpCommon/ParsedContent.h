// The parsed content of one received LSP: the scratch object a protocol agent
// fills while it decodes an LSP, then merges into the originating node's
// database entry (IgpLsp::updateNeighbors, updatePrefixes, Node::updateNodeAttrs).
//
// Its neighbors, prefixes and SRLG records are found-or-created by their own
// key, so building the same key twice yields one member. Nothing observes it:
// it has no publisher and publishes nothing.
#pragma once

#include <cstdint>

#include "IgpCommon/Neighbor.h"
#include "IgpCommon/NeighborKey.h"
#include "IgpCommon/Node.h"
#include "IgpCommon/Prefix.h"
#include "IgpCommon/PrefixKey.h"
#include "IgpCommon/framework/HashMap2018.h"
#include "IgpCommon/framework/Ptr.h"
#include "IgpCommon/framework/Spares.h"
#include "IgpCommon/framework/TypeData.h"
#include "IgpCommon/platform/Drimm.h"
#include "IgpCommon/platform/Lumo.h"

namespace Routing::IgpCommon {

class IsisLspParsedContent;

/// The SRLGs (RFC 5307 1.4, RFC 6119 4.3) of the link with one local address.
/// Created only through IsisLspParsedContent::parsedSrLgIs.
class NeighborSrlg final : public Poldo::RefCounted, public Drimm::SlabAllocated<NeighborSrlg> {
public:
    using SrlgValueSet = Kest::HashSet<std::uint32_t, 0x04324977, 2>;

    const Lumo::IpGenAddr& localAddr() const noexcept { return localAddr_; }
    const SrlgValueSet& srlgValue() const noexcept { return srlgValue_; }
    bool srlgValueHas(std::uint32_t v) const noexcept { return srlgValue_.contains(v); }
    void srlgValueIs(std::uint32_t v) { srlgValue_.insert(v); }
    void srlgValueDel(std::uint32_t v) { srlgValue_.erase(v); }
    void srlgValueDelAll() noexcept { srlgValue_.clear(); }

    static const Kest::TypeData& typeData() noexcept;
    const Kest::TypeData& fwkType() const noexcept { return typeData(); }
    static Drimm::AllocTracker& allocTracker();

private:
    friend class IsisLspParsedContent;
    friend class Poldo::Spares<NeighborSrlg>;
    explicit NeighborSrlg(const Lumo::IpGenAddr& localAddr) noexcept : localAddr_(localAddr) {}

    const Lumo::IpGenAddr localAddr_;
    SrlgValueSet srlgValue_;
};

namespace detail {
struct LocalAddrOf {
    const Lumo::IpGenAddr& operator()(const Poldo::Ptr<NeighborSrlg>& s) const noexcept {
        return s->localAddr();
    }
};
}  // namespace detail

class IsisLspParsedContent final : public Poldo::RefCounted,
                                   public Drimm::HeapAllocated<IsisLspParsedContent> {
public:
    struct Attr {
        enum : Kest::AttrId {
            node = 130,
            parsedSrCapFragId,
            parsedSrlbFragId,
            neighborKey,
            neighbor,
            parsedSrLg,
            prefixKey,
            prefix,
            nodeRawPtr,
        };
    };
    // Each member carries its key; a member's key never changes.
    using NeighborMap =
        Kest::HashMap2018<Poldo::Ptr<Neighbor>, NeighborKey, detail::NeighborKeyOf, 0x17A25829>;
    // An LSP names the SRLGs of a few links at most: up to four records in
    // place are found without hashing, as the merge does for every neighbor.
    using SrlgMap =
        Kest::HashMap2018<Poldo::Ptr<NeighborSrlg>, Lumo::IpGenAddr, detail::LocalAddrOf, 0xDA4A436F, 4>;
    using PrefixMap = Kest::HashMap2018<Poldo::Ptr<Prefix>, PrefixKey, detail::PrefixKeyOf, 0x9FAF01C0>;

    static Poldo::Ptr<IsisLspParsedContent> IsisLspParsedContentIs();

    const Poldo::Ptr<Node>& node() const noexcept { return node_; }
    void nodeIs(const Poldo::Ptr<Node>& v) noexcept { node_ = v; }
    /// Makes a new node with that id this content's node, built where an
    /// earlier node of it was when nobody else held that one (see recycle()).
    const Poldo::Ptr<Node>& nodeNew(const IgpNodeId& nodeId);
    Node* nodeRawPtr() const noexcept { return node_.get(); }
    /// The LSP fragment that carried the SR capabilities.
    std::uint8_t parsedSrCapFragId() const noexcept { return parsedSrCapFragId_; }
    void parsedSrCapFragIdIs(std::uint8_t v) noexcept { parsedSrCapFragId_ = v; }
    /// The LSP fragment that carried the SR local block.
    std::uint8_t parsedSrlbFragId() const noexcept { return parsedSrlbFragId_; }
    void parsedSrlbFragIdIs(std::uint8_t v) noexcept { parsedSrlbFragId_ = v; }
    /// Scratch keys an agent may keep while it builds a member; the library never reads them.
    const NeighborKey& neighborKey() const noexcept { return neighborKey_; }
    void neighborKeyIs(const NeighborKey& v) { neighborKey_ = v; }
    const PrefixKey& prefixKey() const noexcept { return prefixKey_; }
    void prefixKeyIs(const PrefixKey& v) noexcept { prefixKey_ = v; }

    /// The neighbor with that key, created with default attributes when absent.
    Poldo::Ptr<Neighbor> neighborIs(const NeighborKey& key);
    Poldo::Ptr<Neighbor> neighbor(const NeighborKey& key) const;
    const NeighborMap& neighbor() const noexcept { return neighbor_; }
    /// Removes and returns the neighbor with that key (null when absent).
    Poldo::Ptr<Neighbor> neighborDel(const NeighborKey& key);
    void neighborDelAll() noexcept { neighbor_.clear(); }
    /// Makes room for `n` neighbors in all, so that a decoder that counted
    /// them fills the collection without regrowing it (one heap block).
    void neighborReserve(std::uint32_t n) { neighbor_.reserve(n); }

    Poldo::Ptr<Prefix> prefixIs(const PrefixKey& key);
    Poldo::Ptr<Prefix> prefix(const PrefixKey& key) const;
    const PrefixMap& prefix() const noexcept { return prefix_; }
    Poldo::Ptr<Prefix> prefixDel(const PrefixKey& key);
    void prefixDelAll() noexcept { prefix_.clear(); }
    void prefixReserve(std::uint32_t n) { prefix_.reserve(n); }

    /// The SRLG record of the link with that local address (the empty
    /// address is an ordinary key), created empty when absent.
    Poldo::Ptr<NeighborSrlg> parsedSrLgIs(const Lumo::IpGenAddr& localAddr);
    Poldo::Ptr<NeighborSrlg> parsedSrLg(const Lumo::IpGenAddr& localAddr) const;
    const SrlgMap& parsedSrLg() const noexcept { return parsedSrLg_; }
    Poldo::Ptr<NeighborSrlg> parsedSrLgDel(const Lumo::IpGenAddr& localAddr);
    void parsedSrLgDelAll() noexcept { parsedSrLg_.clear(); }
    void parsedSrLgReserve(std::uint32_t n) { parsedSrLg_.reserve(n); }

    /// Makes this content what a fresh one is (no node, fragment ids 0,
    /// default scratch keys, every collection empty) with room for that many
    /// members, as the reserves above make it; a collection keeps its heap
    /// table when that fits (HashMap2018::clearFor), so that a decoder
    /// reusing one content allocates no tables. The node, neighbors and SRLG
    /// records that nobody else holds are destroyed and their storage kept,
    /// never more of a kind than the content held at once: nodeNew,
    /// neighborIs and parsedSrLgIs build their next ones there
    /// (Poldo::Spares). A member that someone took is left as it is. Only
    /// for a content that nobody else holds.
    void recycle(std::uint32_t neighbors, std::uint32_t prefixes, std::uint32_t srlgs);
    /// The next recycle() keeps no more storage than the last one left:
    /// what was built since (a rejected decoding) is freed, so that it
    /// leaves no more objects alive than there were before it.
    void keepNoMoreSpares() noexcept { keepNoMore_ = true; }
    /// Storage kept for nodes, neighbors and SRLG records (counted as live
    /// by their allocation trackers).
    std::uint32_t spareNodes() const noexcept { return spareNodes_.rooms.size(); }
    std::uint32_t spareNeighbors() const noexcept { return spareNeighbors_.rooms.size(); }
    std::uint32_t spareSrlgs() const noexcept { return spareSrlgs_.rooms.size(); }

    static const Kest::TypeData& typeData() noexcept;
    const Kest::TypeData& fwkType() const noexcept { return typeData(); }
    static Drimm::AllocTracker& allocTracker();

private:
    template <class T>
    struct SpareRooms {
        Poldo::Spares<T> rooms;
        std::uint32_t afterRecycle = 0;  // rooms kept when the last recycle ended
    };
    template <class T>
    auto spare(SpareRooms<T>& spares) const noexcept;

    IsisLspParsedContent() = default;

    Poldo::Ptr<Node> node_;
    std::uint8_t parsedSrCapFragId_ = 0;
    std::uint8_t parsedSrlbFragId_ = 0;
    NeighborKey neighborKey_;
    NeighborMap neighbor_;
    SrlgMap parsedSrLg_;
    PrefixKey prefixKey_;
    PrefixMap prefix_;
    bool keepNoMore_ = false;
    SpareRooms<Node> spareNodes_;
    SpareRooms<Neighbor> spareNeighbors_;
    SpareRooms<NeighborSrlg> spareSrlgs_;
};

Poldo::Ptr<IsisLspParsedContent> isisLspParsedContentFactory();

}  // namespace Routing::IgpCommon
