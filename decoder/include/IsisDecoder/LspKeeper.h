// The receive side of one IS-IS level: keeps the newest copy of every LSP
// fragment, as octets, and merges each node's current fragments into its
// database entry.
//
// A node's entry is the union of its fragments: a node-wide value from the
// lowest fragment that carries it (the overload and attached bits from
// fragment 0 alone), a link or prefix that several fragments carry put
// together with the lowest fragment winning, the SRLG records of all of them
// folded onto the links. Receiving one fragment costs in proportion to that
// fragment and to what it changes: the keeper knows which fragments carry
// each link, prefix and SRLG record, decodes the old and the new copy of the
// fragment that changed (and, for a key that other fragments carry too,
// those fragments; a link that only an SRLG record of the changed fragment
// reaches is taken from the entry instead) and merges only the keys whose
// union changed.
#pragma once

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <memory_resource>
#include <optional>
#include <set>
#include <span>
#include <utility>
#include <vector>

#include "IgpCommon/IgpLsp.h"
#include "IsisDecoder/Decoder.h"

namespace Routing::IsisDecoder {

class LspKeeper {
public:
    enum class Outcome : std::uint8_t {
        installed,  // newer than what was held; the node's entry was merged
        refreshed,  // newer, with the held copy's flags and TLVs: only the sequence number was taken
        purged,     // lifetime 0: the fragment is gone (and the entry, with its last fragment)
        ignored,    // not newer than what is held, another level's LSP, or not from decodeLsp()
        rejected,   // malformed (receivePdu only); nothing changed
    };

    explicit LspKeeper(Routing::IgpCommon::IgpLevel level);
    LspKeeper(LspKeeper&&) noexcept = default;
    // The index's containers draw on the keeper's own pool: assigning one
    // keeper over another would free the old index into a pool already gone.
    LspKeeper& operator=(LspKeeper&&) = delete;
    LspKeeper(const LspKeeper&) = delete;
    LspKeeper& operator=(const LspKeeper&) = delete;

    /// Takes the octets of an LSP that decodeLsp() produced; one without
    /// octets or content is ignored.
    Outcome receive(const DecodedLsp& lsp);

    /// Decodes one LSP PDU and receives it, except that a newer copy of a
    /// fragment whose flags and TLVs are octet for octet those of the copy
    /// held (the periodic refresh of an unchanged LSP) is neither decoded
    /// nor merged: its checksum is verified and its header taken. Only copies
    /// received this way are compared so. A malformed PDU changes nothing;
    /// `error`, when given, says why.
    Outcome receivePdu(std::span<const std::uint8_t> pdu, DecodeError* error = nullptr);

    const Poldo::Ptr<Routing::IgpCommon::IgpLspDatabase>& database() const noexcept { return db_; }
    /// LSPs dropped as older or equal, or of the other level.
    std::size_t ignoredCount() const noexcept { return ignored_; }
    /// Newer copies taken by receivePdu() without decoding.
    std::size_t refreshedCount() const noexcept { return refreshed_; }
    /// Fragments currently held (purged ones excluded).
    std::size_t fragmentCount() const noexcept { return held_; }
    /// Fragments currently held of one node (purged ones excluded).
    std::size_t fragmentCount(const Routing::IgpCommon::IgpNodeId& id) const noexcept;

    /// One held fragment: its header as last received (the remaining
    /// lifetime as it arrived) and its PDU octets.
    struct HeldFragment {
        const LspHeader& header;
        std::span<const std::uint8_t> octets;
    };
    /// The held fragment of that node and number, if any (not once purged).
    std::optional<HeldFragment> fragment(const Routing::IgpCommon::IgpNodeId& id, std::uint8_t number) const;
    /// Calls `fn(HeldFragment)` for every held fragment, by node identifier
    /// then fragment number.
    template <class Fn>
    void forEachFragment(Fn&& fn) const {
        for (const auto& [id, node] : nodes_) {
            for (const auto& [num, f] : node.fragments) {
                if (f.held) {
                    fn(HeldFragment{f.header, f.octets});
                }
            }
        }
    }

private:
    // The fragments that carry one key. Most keys are carried by one
    // fragment or a few: up to seven numbers sit, ascending, in the word
    // itself (its low bit set, the count in the next three); a key of more
    // fragments has a 256-bit set on the heap. The word is 0 when empty.
    class FragmentSet {
    public:
        FragmentSet() noexcept = default;
        explicit FragmentSet(std::uint8_t only) noexcept { set(only); }
        FragmentSet(const FragmentSet& o) : w_(o.onHeap() ? held(new Bits(*o.bits())) : o.w_) {}
        FragmentSet(FragmentSet&& o) noexcept : w_(o.w_) { o.w_ = 0; }
        FragmentSet& operator=(const FragmentSet& o) {
            if (this != &o) {
                FragmentSet copy(o);
                *this = std::move(copy);
            }
            return *this;
        }
        FragmentSet& operator=(FragmentSet&& o) noexcept {
            if (this != &o) {
                release();
                w_ = o.w_;
                o.w_ = 0;
            }
            return *this;
        }
        ~FragmentSet() { release(); }

        bool none() const noexcept { return w_ == 0; }
        /// Whether fragment `f` alone carries the key.
        bool isOnly(std::uint8_t f) const noexcept {
            return w_ == (inlineTag | (1u << 1) | (std::uintptr_t{f} << 8));
        }
        void set(std::uint8_t f, bool on = true);
        void reset(std::uint8_t f) { set(f, false); }
        bool has(std::uint8_t f) const noexcept {
            if (onHeap()) {
                return bits()->test(f);
            }
            const unsigned n = count();
            for (unsigned i = 0; i < n; ++i) {
                if (static_cast<std::uint8_t>(w_ >> (8 * (i + 1))) == f) {
                    return true;
                }
            }
            return false;
        }
        /// The lowest fragment; only when not none().
        std::uint8_t first() const noexcept {
            if (onHeap()) {
                const Bits& b = *bits();
                unsigned f = 0;
                while (!b.test(f)) {
                    ++f;
                }
                return static_cast<std::uint8_t>(f);
            }
            return static_cast<std::uint8_t>(w_ >> 8);
        }
        /// Calls fn(number) for each fragment, lowest first.
        template <class Fn>
        void forEach(Fn&& fn) const {
            if (onHeap()) {
                const Bits& b = *bits();
                for (unsigned f = 0; f < 256; ++f) {
                    if (b.test(f)) {
                        fn(static_cast<std::uint8_t>(f));
                    }
                }
                return;
            }
            const unsigned n = count();
            for (unsigned i = 0; i < n; ++i) {
                fn(static_cast<std::uint8_t>(w_ >> (8 * (i + 1))));
            }
        }

    private:
        using Bits = std::bitset<256>;
        static constexpr std::uintptr_t inlineTag = 1;
        static constexpr unsigned inlineMax = 7;
        static_assert(sizeof(std::uintptr_t) == 8, "seven numbers and a count in one word");
        static std::uintptr_t held(Bits* b) noexcept { return reinterpret_cast<std::uintptr_t>(b); }
        bool onHeap() const noexcept { return w_ != 0 && (w_ & inlineTag) == 0; }
        Bits* bits() const noexcept { return reinterpret_cast<Bits*>(w_); }
        unsigned count() const noexcept { return w_ == 0 ? 0 : static_cast<unsigned>((w_ >> 1) & 7); }
        void release() noexcept {
            if (onHeap()) {
                delete bits();
            }
            w_ = 0;
        }
        std::uintptr_t w_ = 0;
    };

    // A held PDU's octets in one block of the keeper's pool, copied whole
    // (a vector on a pool allocator constructs them one by one).
    class Octets {
    public:
        explicit Octets(std::pmr::memory_resource* pool) noexcept : pool_(pool) {}
        Octets(const Octets&) = delete;
        Octets& operator=(const Octets&) = delete;
        ~Octets() { clear(); }

        void assign(std::span<const std::uint8_t> from);
        void clear() noexcept;
        std::span<std::uint8_t> bytes() noexcept { return {data_, size_}; }
        operator std::span<const std::uint8_t>() const noexcept { return {data_, size_}; }

    private:
        std::pmr::memory_resource* pool_;
        std::uint8_t* data_ = nullptr;
        std::size_t size_ = 0;
    };

    // Built by its node's map with the keeper's pool, which its octets draw
    // on too: a fragment costs no heap block of its own.
    struct Fragment {
        using allocator_type = std::pmr::polymorphic_allocator<>;
        explicit Fragment(const allocator_type& a) noexcept : octets(a.resource()) {}

        LspHeader header;
        // The PDU as received; empty once purged, when the header stays to
        // refuse older copies.
        Octets octets;
        bool held = false;
        bool fromPdu = false;   // received by receivePdu(): eligible for the refresh shortcut
        bool nodeWide = false;  // carries a node-wide value besides the header flags
        bool srlg = false;      // carries an SRLG record
        bool linkSrlg = false;  // carries a link with SRLGs of its own (not folded from a record)
    };

    // A key of a node's entry and the fragments that carry it. `from` is
    // mutable: the table hands out its members as const, for their keys.
    template <class Key>
    struct Carried {
        Key key;
        mutable FragmentSet from;
    };
    struct CarriedKey {
        template <class Key>
        const Key& operator()(const Carried<Key>& c) const noexcept {
            return c.key;
        }
        // A prefix is held by a member with its key (the entry's, once
        // merged): no copy of the key.
        const Routing::IgpCommon::PrefixKey& operator()(
            const Carried<Poldo::Ptr<Routing::IgpCommon::Prefix>>& c) const noexcept {
            return c.key->prefixKey();
        }
    };
    // Seeded tables of one heap block each: their keys come from the
    // senders, so no sender can aim at a bucket (see Kest::HashMap2018).
    template <class Key, std::uint32_t Salt>
    using CarriedMap = Kest::HashMap2018<Carried<Key>, Key, CarriedKey, Salt>;
    using PrefixesCarried = Kest::HashMap2018<Carried<Poldo::Ptr<Routing::IgpCommon::Prefix>>,
                                              Routing::IgpCommon::PrefixKey, CarriedKey, 0x5C1E7A93>;
    using SrlgsCarried = CarriedMap<Lumo::IpGenAddr, 0xB2D4096E>;

    // Links by key, each held by a member with that key (the entry's, once
    // merged) rather than by a copy of the key.
    struct LinkOrder {
        using is_transparent = void;
        static const Routing::IgpCommon::NeighborKey& keyOf(
            const Routing::IgpCommon::NeighborKey& k) noexcept {
            return k;
        }
        static const Routing::IgpCommon::NeighborKey& keyOf(
            const Poldo::Ptr<Routing::IgpCommon::Neighbor>& n) noexcept {
            return n->key();
        }
        template <class A, class B>
        bool operator()(const A& a, const B& b) const noexcept {
            return keyOf(a) < keyOf(b);
        }
    };
    using LinkAt = std::pair<Lumo::IpGenAddr, const Routing::IgpCommon::NeighborKey*>;
    struct LinkAtOrder {
        bool operator()(const LinkAt& a, const LinkAt& b) const noexcept {
            if (a.first != b.first) {
                return a.first < b.first;
            }
            return std::less<const void*>()(a.second, b.second);
        }
    };

    // A node's fragments and, for each key of its entry, the fragments that
    // carry it. linksByAddr pairs the address an SRLG record is filed under
    // with the links that record folds onto (keys of the members of `neighbors`).
    //
    // The node-based containers draw on the keeper's pool: a link costs no
    // heap block of its own.
    struct NodeState {
        explicit NodeState(std::pmr::memory_resource* pool)
            : fragments(pool), neighbors(pool), linksByAddr(pool) {}
        std::pmr::map<std::uint8_t, Fragment> fragments;
        std::size_t held = 0;
        // A node of one fragment needs no index: that fragment is the union.
        bool indexed = false;
        std::pmr::map<Poldo::Ptr<Routing::IgpCommon::Neighbor>, FragmentSet, LinkOrder> neighbors;
        PrefixesCarried prefixes;
        SrlgsCarried srlgs;
        std::pmr::set<LinkAt, LinkAtOrder> linksByAddr;
    };

    // What merging one fragment changed in the union of its node.
    struct Delta {
        // The changed links and prefixes as the union has them, the SRLG
        // records they fold, and the node attributes when nodeChanged.
        Poldo::Ptr<Routing::IgpCommon::IsisLspParsedContent> content;
        bool nodeChanged = false;
        bool nodeGone = false;
        bool whole = false;        // `content` is the whole union: merged as such
        bool linksNew = false;     // the entry has none of the links of `content` but the refolded ones
        bool prefixesNew = false;  // the entry has none of the prefixes of `content`
        std::vector<Routing::IgpCommon::NeighborKey> goneNeighbors;
        std::vector<Routing::IgpCommon::PrefixKey> gonePrefixes;
        // The keys the union holds once merged (the index's): the entry's
        // links and prefixes after the merge.
        std::size_t linksAfter = 0;
        std::size_t prefixesAfter = 0;
    };

    // By IgpNodeId::toU64(): the identifiers' own order, compared as one word.
    using NodeMap = std::pmr::map<std::uint64_t, NodeState>;
    // `at` is where the LSP's node is or would go: nodes_.lower_bound() of
    // its identifier, looked up once per LSP.
    bool newer(const LspHeader& h, NodeMap::iterator at);
    Outcome take(const LspHeader& h, std::span<const std::uint8_t> octets,
                 const Poldo::Ptr<Routing::IgpCommon::IsisLspParsedContent>& content, bool fromPdu,
                 NodeMap::iterator at);
    Delta update(const Routing::IgpCommon::IgpNodeId& id, NodeState& node, std::uint8_t number,
                 const Poldo::Ptr<Routing::IgpCommon::IsisLspParsedContent>& before,
                 const Poldo::Ptr<Routing::IgpCommon::IsisLspParsedContent>& after, bool nodeTouched);
    void merge(const Routing::IgpCommon::IgpNodeId& id, const Delta& delta);
    static void index(NodeState& node, std::uint8_t number,
                      const Routing::IgpCommon::IsisLspParsedContent& c);
    static void fileLink(NodeState& node, const Routing::IgpCommon::NeighborKey& key, bool on = true);
    template <class Keys>
    static void indexKeys(NodeState& node, std::uint8_t number, const Keys& c);

    Routing::IgpCommon::IgpLevel level_;
    Poldo::Ptr<Routing::IgpCommon::IgpLspDatabase> db_;
    // Before the containers that draw on it, so that it outlives them.
    std::unique_ptr<std::pmr::unsynchronized_pool_resource> pool_;
    NodeMap nodes_;
    // Links of the delta that only other fragments carry, built from the
    // entry's member (which merge then updates without looking it up
    // again), by the delta's member; kept across updates for its room.
    std::vector<std::pair<const Routing::IgpCommon::Neighbor*, Poldo::Ptr<Routing::IgpCommon::Neighbor>>>
        refolded_;
    std::size_t held_ = 0;
    std::size_t ignored_ = 0;
    std::size_t refreshed_ = 0;
    DecodeWorkspace workspace_;
};

}  // namespace Routing::IsisDecoder
