// The link-state database of one IGP level and its entries.
//
// An IgpLspDatabase holds one IgpLsp per originating node, keyed by node
// identifier. An IgpLsp holds what that node advertises: its Node, its
// neighbors and its prefixes. A received LSP is merged into its entry with
// updateNeighbors and updatePrefixes (and Node::updateNodeAttrs), so that
// unchanged objects keep their identity, changed ones are updated in place,
// new ones are adopted and vanished ones are removed, each change published
// once. Merging an LSP that did not change publishes nothing and allocates
// nothing.
//
// IgpLspDatabase::lspMerge does all of it for one received LSP:
//
//     auto db = igpLspDatabaseFactory(igpLevelIsisLevel2);
//     auto parsed = isisLspParsedContentFactory();
//     ...                                       // the agent fills parsed
//     db->lspMerge(parsed);
#pragma once

#include <cstdint>

#include "IgpCommon/Identifiers.h"
#include "IgpCommon/IgpNodeId.h"
#include "IgpCommon/Neighbor.h"
#include "IgpCommon/NeighborKey.h"
#include "IgpCommon/Node.h"
#include "IgpCommon/Prefix.h"
#include "IgpCommon/PrefixKey.h"
#include "IgpCommon/framework/Entity.h"
#include "IgpCommon/framework/HashMap2018.h"
#include "IgpCommon/framework/Ptr.h"
#include "IgpCommon/framework/TypeData.h"
#include "IgpCommon/platform/Drimm.h"
#include "IgpCommon/platform/Umbo.h"

namespace Routing::IgpCommon {

class IsisLspParsedContent;

/// What one node advertises in its LSP.
class IgpLsp final : public Kest::ObservedEntity<IgpLsp>, public Drimm::SlabAllocated<IgpLsp> {
public:
    struct Attr {
        enum : Kest::AttrId {
            nodeId = 130,
            node,
            neighbor,
            prefix,
            nodeRawPtr,
            updateNeighbors,
            updatePrefixes,
        };
    };
    // Keyed by the members' own keys: an entry stores one pointer per member.
    using NeighborMap = Kest::EntityMap<Poldo::Ptr<Neighbor>, NeighborKey, detail::NeighborKeyOf, 0xFA6B2D10>;
    using PrefixMap = Kest::EntityMap<Poldo::Ptr<Prefix>, PrefixKey, detail::PrefixKeyOf, 0xF9668554>;

    /// An entry with that node identifier, no node and no members.
    static Poldo::Ptr<IgpLsp> IgpLspIs(const IgpNodeId& nodeId);

    /// The originating node; also the entry's key in the database. Never changes.
    const IgpNodeId& nodeId() const noexcept { return nodeId_; }
    const Poldo::Ptr<Node>& node() const noexcept { return node_; }
    void nodeIs(const Poldo::Ptr<Node>& v) { writeAttr(Attr::node, node_, v); }
    Node* nodeRawPtr() const noexcept { return node_.get(); }

    /// The neighbor with that key, or null.
    Poldo::Ptr<Neighbor> neighbor(const NeighborKey& key) const;
    /// Every neighbor: entries with `key` (the neighbor's own) and `value`.
    const NeighborMap& neighbor() const noexcept { return neighbor_; }
    /// Puts or replaces the member of `key`; null removes it. The key must be
    /// the neighbor's own (else the process stops with "key == Map::keyOf(value)").
    void neighborIs(const NeighborKey& key, const Poldo::Ptr<Neighbor>& nbr);
    /// Removes and returns the member of `key` (null when absent).
    Poldo::Ptr<Neighbor> neighborDel(const NeighborKey& key);
    /// Removes every neighbor: in one sweep while nobody ever observed this
    /// entry, else one published removal each.
    void neighborDelAll();
    /// Makes room for `n` neighbors in all, so that adding members up to that
    /// count never regrows the table for load (a run that spills past its
    /// end may still rebuild it once); never shrinks it. Neither the
    /// iteration order nor anything published depends on the room. A caller
    /// about to add many members reserves size() plus their number at once.
    void neighborReserve(std::uint32_t n) { neighbor_.reserve(n); }

    Poldo::Ptr<Prefix> prefix(const PrefixKey& key) const;
    const PrefixMap& prefix() const noexcept { return prefix_; }
    void prefixIs(const PrefixKey& key, const Poldo::Ptr<Prefix>& pfx);
    Poldo::Ptr<Prefix> prefixDel(const PrefixKey& key);
    void prefixDelAll();
    /// The same for the prefixes.
    void prefixReserve(std::uint32_t n) { prefix_.reserve(n); }

    /// Merges the parsed neighbors into this entry. First, for every parsed
    /// neighbor, the SRLG records of its first local IPv4 and first local
    /// IPv6 address are folded into it (setting its srlgValues flag); a family
    /// without a local address is looked up under the empty address, so a
    /// record stored there reaches every neighbor lacking one family; then a
    /// neighbor held under the same key takes over its attributes, or else the
    /// parsed neighbor itself becomes the member. Second, every member whose
    /// key the parsed content lacks is removed. A fatal error ends the process.
    void updateNeighbors(const Poldo::Ptr<IsisLspParsedContent>& parsed) noexcept;
    /// The same two passes for the prefixes, without SRLGs.
    void updatePrefixes(const Poldo::Ptr<IsisLspParsedContent>& parsed) noexcept;

    static const Kest::TypeData& typeData() noexcept;
    static Drimm::AllocTracker& allocTracker();

private:
    explicit IgpLsp(const IgpNodeId& nodeId) noexcept : nodeId_(nodeId) {}

    const IgpNodeId nodeId_;
    Poldo::Ptr<Node> node_;
    NeighborMap neighbor_;
    PrefixMap prefix_;
};

namespace detail {
struct LspNodeIdOf {
    const IgpNodeId& operator()(const Poldo::Ptr<IgpLsp>& lsp) const noexcept { return lsp->nodeId(); }
};
}  // namespace detail

/// The database of one level: one entry per originating node.
class IgpLspDatabase final : public Kest::ObservedEntity<IgpLspDatabase>,
                             public Drimm::SlabAllocated<IgpLspDatabase> {
public:
    struct Attr {
        enum : Kest::AttrId { level = 130, lsp, dumpState };
    };
    using LspMap = Kest::HashMap2018<Poldo::Ptr<IgpLsp>, IgpNodeId, detail::LspNodeIdOf, 0xA3BE44FE>;

    static Poldo::Ptr<IgpLspDatabase> IgpLspDatabaseIs(IgpLevel level);

    IgpLevel level() const noexcept { return level_; }

    /// The entry of that node, or null.
    Poldo::Ptr<IgpLsp> lsp(const IgpNodeId& nodeId) const;
    /// Every entry.
    const LspMap& lsp() const noexcept { return lsp_; }
    std::uint32_t lspCount() const noexcept { return lsp_.size(); }
    /// Adds the entry, or replaces the entry of the same node by this object
    /// (whole-object replacement: nothing is merged). Re-adding the stored
    /// object does nothing. A null entry raises Kest::MutatorNullPointerException.
    void lspIs(const Poldo::Ptr<IgpLsp>& entry);
    /// Merges a received LSP into the entry of its node (the parsed node's
    /// identifier) and returns the entry. A known node's entry is updated in
    /// place: Node::updateNodeAttrs (or, when the entry has no node, the
    /// parsed node is taken), then updateNeighbors and updatePrefixes. An
    /// unknown node gets a new entry that adopts the parsed node, neighbors
    /// and prefixes; it is stored, and its addition published, once filled.
    /// Each real change is published once, on the object that changed; an
    /// unchanged LSP publishes and allocates nothing but the new SID/label
    /// binding that Prefix::updateAttr installs on a prefix that has one.
    /// Cost: one hash of the node identifier and one of each neighbor and
    /// prefix key, plus, when members have gone, a walk of the entry and a
    /// look-up of each of its keys in the parsed content. A new entry takes
    /// three allocations (the entry and its two tables, each sized once) and
    /// now and then a larger table of entries. A null content,
    /// or one without a node, raises Kest::MutatorNullPointerException and
    /// changes nothing; a range exception of the node merge leaves the
    /// neighbors and prefixes unmerged.
    Poldo::Ptr<IgpLsp> lspMerge(const Poldo::Ptr<IsisLspParsedContent>& parsed);
    /// Removes and returns the entry of that node (null when absent).
    Poldo::Ptr<IgpLsp> lspDel(const IgpNodeId& nodeId);
    /// Removes every entry: in one sweep while nobody ever observed the
    /// database, else one published removal each.
    void lspDelAll();

    /// Writes every entry's node, neighbors and prefixes, each text indented
    /// by `indentCount` + 2 blanks (the sum wraps in 32 bits; a width of 0
    /// writes the text unindented). Every entry must have a node.
    void dumpState(const Poldo::Ptr<Umbo::DumpContext const>& dumpCtx, unsigned indentCount) const noexcept;

    static const Kest::TypeData& typeData() noexcept;
    static Drimm::AllocTracker& allocTracker();

private:
    explicit IgpLspDatabase(IgpLevel level) noexcept : level_(level) {}

    const IgpLevel level_;
    LspMap lsp_;
};

Poldo::Ptr<IgpLsp> igpLspFactory(const IgpNodeId& nodeId);
Poldo::Ptr<IgpLspDatabase> igpLspDatabaseFactory(IgpLevel level);

}  // namespace Routing::IgpCommon
