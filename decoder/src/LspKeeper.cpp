#include "IsisDecoder/LspKeeper.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <memory_resource>
#include <type_traits>

#include "LspDecoder.h"

namespace Routing::IsisDecoder {

namespace IC = Routing::IgpCommon;

namespace {

// Node attributes of several fragments: the overload and attached bits count
// in fragment 0 only (ISO 10589 7.3.4.4); the rest is united as the node's
// description says: from the first fragment that carries it, the area and
// topology lists and flexible-algorithm definitions from all.
void uniteNode(IC::Node& into, const IC::Node& from, std::uint8_t fragment) {
    if (fragment == 0) {
        into.flagsIs(from.flags());
    }
    Kest::uniteAttrs(into, from);
}

// A link that a later fragment describes again under the same key: each TE
// attribute comes from the first fragment that carries it, the metric is the
// best of them (as within one fragment, for parallel links the key cannot
// tell apart), and the adjacency SIDs and SRLGs of all are kept.
void uniteNeighbor(IC::Neighbor& into, const IC::Neighbor& from) {
    Kest::uniteAttrs(into, from);
}

// A prefix that a later fragment carries again (a narrow copy beside a wide
// one, a binding apart from the reachability): reachability, metric and
// flags, the SID, each algorithm's metric and the binding each come from the
// first fragment that has them.
void unitePrefix(IC::Prefix& into, const IC::Prefix& from) {
    Kest::uniteAttrs(into, from);
}

// Whether a fragment's node carries anything uniteNode() takes from a fragment
// other than 0.
bool carriesNodeWide(const IC::Node& n) {
    return Kest::carriesUnited(n);
}

// Whether a fragment's links carry SRLGs of their own: the entry's copy of
// such a link cannot tell them from the ones folded from records.
bool carriesLinkSrlg(const IC::IsisLspParsedContent& c) {
    for (const auto& n : c.neighbor()) {
        if (n->attrsPresent().srlgValues() || !n->srlgValues().empty()) {
            return true;
        }
    }
    return false;
}

// The addresses whose SRLG records the merge folds onto a link: its first
// local IPv4 and first local IPv6 address, the empty address for a family
// the key has none of.
std::array<Lumo::IpGenAddr, 2> foldAddresses(const IC::NeighborKey& k) {
    std::array<Lumo::IpGenAddr, 2> a;
    if (!k.localIpv4Addr().empty()) {
        a[0] = Lumo::IpGenAddr(*k.localIpv4Addr().uncheckedBegin());
    }
    if (!k.localIpv6Addr().empty()) {
        a[1] = Lumo::IpGenAddr(*k.localIpv6Addr().uncheckedBegin());
    }
    return a;
}

void foldSrlg(const IC::IsisLspParsedContent& parsed, const Lumo::IpGenAddr& addr, IC::Neighbor& p) {
    if (parsed.parsedSrLg().empty()) {
        return;
    }
    const auto* record = parsed.parsedSrLg().find(addr);
    if (record == nullptr) {
        return;
    }
    IC::Neighbor::NeighborAttrsPresent present = p.attrsPresent();
    present.srlgValuesIs(true);
    p.attrsPresentIs(present);
    const auto& values = (*record)->srlgValue();
    for (auto it = values.begin(); it != values.end(); ++it) {
        p.srlgValuesIs(*it);
    }
}

// The fragments that carry `key`, none when it is new to the table.
template <class Map, class Key>
auto& carry(Map& map, const Key& key) {
    return map.findOrInsert(key, [&] { return typename Map::member_type{key, {}}; }).first->from;
}

// The same for a prefix, held in the table by `p`.
template <class Map>
auto& carry(Map& map, const Poldo::Ptr<IC::Prefix>& p) {
    return map.findOrInsert(p->prefixKey(), [&] { return typename Map::member_type{p, {}}; }).first->from;
}

// Whether a table of `size` keys that is about to hold `total` is worth
// sizing for them at once: only when they more than double it. Fewer regrow
// it at most once, by doubling, whereas a table sized exactly for each
// fragment would be rebuilt by every fragment that adds anything.
bool roomWanted(std::size_t size, std::size_t total) {
    return total > 2 * size;
}

// Makes room for `added` more keys (some may be there already) when
// roomWanted: an empty table is sized once for its first fragment's keys,
// and a large fragment does not regrow a small table several times over.
template <class Map>
void makeRoom(Map& map, std::size_t added) {
    if (roomWanted(map.size(), map.size() + added)) {
        map.reserve(static_cast<std::uint32_t>(map.size() + added));
    }
}

// LSP PDU octets (ISO 10589 9.9): remaining lifetime, LSP ID, sequence number,
// checksum, then the flags and the TLVs.
constexpr std::size_t lifetimeAt = 10;
constexpr std::size_t lspIdAt = 12;
constexpr std::size_t seqAt = 20;
constexpr std::size_t flagsAt = 26;

// The same PDU but for lifetime, sequence number and checksum. The held copy
// was decoded whole, so a copy that matches it and passes the checksum is
// as well formed as it was.
bool sameButHeader(std::span<const std::uint8_t> pdu, std::span<const std::uint8_t> held) {
    const auto same = [&](std::size_t from, std::size_t to) {
        return std::memcmp(pdu.data() + from, held.data() + from, to - from) == 0;
    };
    return pdu.size() == held.size() && same(0, lifetimeAt) && same(lspIdAt, seqAt) &&
           same(flagsAt, pdu.size());
}

template <class Map, class Key>
std::vector<Key> inEntryOrder(std::vector<Key> keys) {
    std::vector<std::pair<std::uint32_t, Key*>> order;
    order.reserve(keys.size());
    for (auto& k : keys) {
        order.emplace_back(Map::hashOf(k), &k);
    }
    std::sort(order.begin(), order.end(), [](const auto& a, const auto& b) {
        return a.first != b.first ? a.first < b.first : *a.second < *b.second;
    });
    std::vector<Key> sorted;
    sorted.reserve(keys.size());
    for (const auto& [h, k] : order) {
        sorted.push_back(std::move(*k));
    }
    return sorted;
}

// The content of octets that decoded when they were taken.
Poldo::Ptr<IC::IsisLspParsedContent> decodeHeld(const IC::IgpNodeId& id, std::span<const std::uint8_t> octets,
                                                DecodeWorkspace& workspace) {
    if (auto content = decodeAcceptedLsp(octets, workspace)) {
        return content;
    }
    auto empty = IC::isisLspParsedContentFactory();
    empty->nodeIs(IC::nodeFactory(id));
    return empty;
}

}  // namespace

LspKeeper::LspKeeper(IC::IgpLevel level)
    : level_(level),
      db_(IC::igpLspDatabaseFactory(level)),
      // A chunk of at most 256 blocks: the pool's chunks otherwise grow to
      // thousands of blocks, and for octets a large chunk's unused tail
      // weighs more than a heap block per fragment would.
      pool_(std::make_unique<std::pmr::unsynchronized_pool_resource>(std::pmr::pool_options{256, 0})),
      nodes_(pool_.get()) {}

// The new block is taken before the old one goes: a failed allocation
// leaves the octets as they were.
void LspKeeper::Octets::assign(std::span<const std::uint8_t> from) {
    if (from.size() != size_) {
        auto* const to = from.empty() ? nullptr : static_cast<std::uint8_t*>(pool_->allocate(from.size(), 1));
        clear();
        data_ = to;
        size_ = from.size();
    }
    if (!from.empty()) {
        std::memmove(data_, from.data(), from.size());
    }
}

void LspKeeper::Octets::clear() noexcept {
    if (data_ != nullptr) {
        pool_->deallocate(data_, size_, 1);
        data_ = nullptr;
        size_ = 0;
    }
}

// Inline numbers ascending; past seven, the heap set, and back inline once
// seven or fewer are left, so that the word alone says none() and isOnly().
void LspKeeper::FragmentSet::set(std::uint8_t f, bool on) {
    if (onHeap()) {
        Bits& b = *bits();
        b.set(f, on);
        if (on || b.count() > inlineMax) {
            return;
        }
        const Bits left = b;
        release();
        for (unsigned i = 0; i < 256; ++i) {
            if (left.test(i)) {
                set(static_cast<std::uint8_t>(i));
            }
        }
        return;
    }
    std::array<std::uint8_t, inlineMax + 1> n{};
    unsigned c = count();
    for (unsigned i = 0; i < c; ++i) {
        n[i] = static_cast<std::uint8_t>(w_ >> (8 * (i + 1)));
    }
    const auto at = std::lower_bound(n.begin(), n.begin() + c, f);
    const bool has = at != n.begin() + c && *at == f;
    if (has == on) {
        return;
    }
    if (on) {
        std::copy_backward(at, n.begin() + c, n.begin() + c + 1);
        *at = f;
        ++c;
    } else {
        std::copy(at + 1, n.begin() + c, at);
        --c;
    }
    if (c > inlineMax) {
        auto b = std::make_unique<Bits>();
        for (unsigned i = 0; i < c; ++i) {
            b->set(n[i]);
        }
        w_ = held(b.release());
        return;
    }
    std::uintptr_t w = c == 0 ? 0 : inlineTag | (std::uintptr_t{c} << 1);
    for (unsigned i = 0; i < c; ++i) {
        w |= std::uintptr_t{n[i]} << (8 * (i + 1));
    }
    w_ = w;
}

std::size_t LspKeeper::fragmentCount(const IC::IgpNodeId& id) const noexcept {
    const auto it = nodes_.find(id.toU64());
    return it == nodes_.end() ? 0 : it->second.held;
}

std::optional<LspKeeper::HeldFragment> LspKeeper::fragment(const IC::IgpNodeId& id,
                                                           std::uint8_t number) const {
    const auto node = nodes_.find(id.toU64());
    if (node == nodes_.end()) {
        return std::nullopt;
    }
    const auto f = node->second.fragments.find(number);
    if (f == node->second.fragments.end() || !f->second.held) {
        return std::nullopt;
    }
    return HeldFragment{f->second.header, f->second.octets};
}

// ISO 10589 7.3.16: a newer sequence number wins; a purge also replaces the
// copy of the same number that it removes.
bool LspKeeper::newer(const LspHeader& h, NodeMap::iterator node) {
    if (node == nodes_.end() || node->first != h.nodeId().toU64()) {
        return true;
    }
    const auto held = node->second.fragments.find(h.fragment);
    if (held == node->second.fragments.end()) {
        return true;
    }
    const Fragment& f = held->second;
    if (h.sequenceNumber > f.header.sequenceNumber ||
        (h.isPurge() && h.sequenceNumber == f.header.sequenceNumber && f.held)) {
        return true;
    }
    ++ignored_;
    return false;
}

LspKeeper::Outcome LspKeeper::receive(const DecodedLsp& lsp) {
    const LspHeader& h = lsp.header;
    if (h.level != static_cast<unsigned>(level_) || !lsp.content || lsp.octets.empty()) {
        ++ignored_;
        return Outcome::ignored;
    }
    const auto at = nodes_.lower_bound(h.nodeId().toU64());
    if (!newer(h, at)) {
        return Outcome::ignored;
    }
    const Outcome o = [&] {
        // The keeper merges contents of its own: the caller's stays as it was.
        Poldo::Ptr<IC::IsisLspParsedContent> content;
        if (!h.isPurge()) {
            content = decodeAcceptedLsp(lsp.octets, workspace_);
            if (!content) {
                ++ignored_;
                return Outcome::ignored;
            }
        }
        return take(h, lsp.octets, content, false, at);
    }();
    // What was decoded is the database's now, or dropped.
    workspace_.release();
    return o;
}

LspKeeper::Outcome LspKeeper::receivePdu(std::span<const std::uint8_t> pdu, DecodeError* error) {
    const auto h = decodeLspHeader(pdu);
    const std::uint64_t id = h ? h->nodeId().toU64() : 0;
    auto at = h ? nodes_.lower_bound(id) : nodes_.end();
    if (h && !h->isPurge() && at != nodes_.end() && at->first == id) {
        const auto held = at->second.fragments.find(h->fragment);
        const auto body = pdu.first(h->pduLength);
        if (held != at->second.fragments.end()) {
            Fragment& f = held->second;
            // Held octets from a PDU passed the checksum when installed, so
            // only the new sequence number and checksum need summing.
            if (f.held && f.fromPdu && h->sequenceNumber > f.header.sequenceNumber && h->checksum != 0 &&
                sameButHeader(body, f.octets) &&
                detail::checksumValidAfterEdit(f.octets, body, seqAt, flagsAt)) {
                f.header = *h;
                std::copy(body.begin() + lifetimeAt, body.begin() + flagsAt,
                          f.octets.bytes().begin() + lifetimeAt);
                ++refreshed_;
                return Outcome::refreshed;
            }
        }
    }
    const Outcome o = [&] {
        DecodeResult r = decodeLspContent(pdu, workspace_);
        if (!r) {
            if (error != nullptr) {
                *error = r.error();
            }
            return Outcome::rejected;
        }
        DecodedLsp& lsp = r.lsp();
        if (lsp.header.level != static_cast<unsigned>(level_)) {
            ++ignored_;
            return Outcome::ignored;
        }
        if (!h || id != lsp.header.nodeId().toU64()) {
            at = nodes_.lower_bound(lsp.header.nodeId().toU64());
        }
        if (!newer(lsp.header, at)) {
            return Outcome::ignored;
        }
        return take(lsp.header, pdu.first(lsp.header.pduLength), lsp.header.isPurge() ? nullptr : lsp.content,
                    true, at);
    }();
    // What was decoded is the database's now, or dropped; a rejected PDU
    // leaves nothing behind.
    workspace_.release();
    return o;
}

LspKeeper::Outcome LspKeeper::take(const LspHeader& h, std::span<const std::uint8_t> octets,
                                   const Poldo::Ptr<IC::IsisLspParsedContent>& content, bool fromPdu,
                                   NodeMap::iterator at) {
    const IC::IgpNodeId id = h.nodeId();
    NodeState& node = nodes_.try_emplace(at, id.toU64(), pool_.get())->second;
    Fragment& f = node.fragments[h.fragment];
    // The old copy tells which keys it carried; a node left with one
    // fragment is merged whole and needs no such account.
    const std::size_t heldAfter = node.held - (f.held ? 1 : 0) + (content ? 1 : 0);
    const Poldo::Ptr<IC::IsisLspParsedContent> before =
        f.held && heldAfter >= 2 ? decodeHeld(id, f.octets, workspace_) : nullptr;
    if (content) {
        f.octets.assign(octets);  // before the header: a failed copy leaves the old one whole
    }
    const bool wasNodeWide = f.held && f.nodeWide;
    f.header = h;
    f.fromPdu = fromPdu;
    if (content) {
        f.nodeWide = carriesNodeWide(*content->node());
        f.srlg = !content->parsedSrLg().empty();
        f.linkSrlg = carriesLinkSrlg(*content);
        node.held += f.held ? 0 : 1;
        held_ += f.held ? 0 : 1;
        f.held = true;
    } else {
        f.octets.clear();
        f.nodeWide = false;
        f.srlg = false;
        f.linkSrlg = false;
        node.held -= f.held ? 1 : 0;
        held_ -= f.held ? 1 : 0;
        f.held = false;
    }
    const bool nodeTouched = h.fragment == 0 || wasNodeWide || f.nodeWide;
    merge(id, update(id, node, h.fragment, before, content, nodeTouched));
    return h.isPurge() ? Outcome::purged : Outcome::installed;
}

// The union of the node's fragments differs from what it was only in the
// keys that the old or the new copy of fragment `number` carries (and in the
// links that an SRLG record of either folds onto): their union is built again
// from the fragments that carry them now, lowest first (or, for such a link,
// from the entry's copy), into `after`, which then holds every key the merge
// has to touch.
LspKeeper::Delta LspKeeper::update(const IC::IgpNodeId& id, NodeState& node, std::uint8_t number,
                                   const Poldo::Ptr<IC::IsisLspParsedContent>& before,
                                   const Poldo::Ptr<IC::IsisLspParsedContent>& after, bool nodeTouched) {
    Delta d;
    d.content = after;
    refolded_.clear();
    if (!d.content) {
        d.content = IC::isisLspParsedContentFactory();
        d.content->nodeIs(IC::nodeFactory(id));
    }
    IC::IsisLspParsedContent& delta = *d.content;
    if (node.held <= 1) {
        node.neighbors.clear();
        node.prefixes.clear();
        node.srlgs.clear();
        node.linksByAddr.clear();
        node.indexed = false;
        if (node.held == 0) {
            d.nodeGone = true;
            return d;
        }
        // One fragment is the union by itself, but that the overload and
        // attached bits count in fragment 0 only (ISO 10589 7.3.4.4).
        const auto only = std::find_if(node.fragments.begin(), node.fragments.end(),
                                       [](const auto& f) { return f.second.held; });
        if (only->first != number) {
            d.content = decodeHeld(id, only->second.octets, workspace_);
        }
        if (only->first != 0) {
            d.content->node()->flagsIs(IC::NodeFlags());
        }
        d.whole = true;
        return d;
    }
    // The other fragments decoded in this update, each once.
    // This update's own bookkeeping, on the stack unless a large fragment
    // outgrows it; all of it goes when the update returns.
    std::array<std::byte, 2048> arena;
    std::pmr::monotonic_buffer_resource scratch(arena.data(), arena.size());
    std::pmr::map<std::uint8_t, Poldo::Ptr<IC::IsisLspParsedContent>> decoded(&scratch);
    if (!node.indexed) {
        // A second fragment: index what was held so far, one fragment, which
        // the entry holds as it is: its keys are the entry's, and only its
        // SRLG records, which the entry folds into links, need decoding.
        const Poldo::Ptr<IC::IgpLsp> entry = db_->lsp(id);
        // Room for the held fragment's prefixes and the new one's at once.
        makeRoom(node.prefixes, (entry ? entry->prefix().size() : 0) + (after ? after->prefix().size() : 0));
        for (const auto& [num, f] : node.fragments) {
            if (!f.held || num == number) {
                continue;
            }
            if (!entry) {
                index(node, num, *decoded.emplace(num, decodeHeld(id, f.octets, workspace_)).first->second);
                continue;
            }
            indexKeys(node, num, *entry);
            if (f.srlg) {
                const auto addrs = srlgAddresses(f.octets, workspace_);
                // Room for the new fragment's records too.
                makeRoom(node.srlgs, addrs.size() + (after ? after->parsedSrLg().size() : 0));
                for (const auto& a : addrs) {
                    carry(node.srlgs, a).set(num);
                }
            }
        }
        if (before) {
            index(node, number, *before);
        }
        node.indexed = true;
    }

    // Another fragment's content, decoded no further than the parts asked
    // for: an SRLG record that folds onto another fragment's link needs that
    // fragment's links, not its prefixes.
    std::pmr::map<std::uint8_t, std::pair<unsigned, Poldo::Ptr<IC::IsisLspParsedContent>>> partial(&scratch);
    const auto contentOf = [&](std::uint8_t f,
                               unsigned parts = detail::allParts) -> const IC::IsisLspParsedContent& {
        if (f == number) {
            return *after;
        }
        if (const auto it = decoded.find(f); it != decoded.end()) {
            return *it->second;
        }
        const auto& octets = node.fragments.at(f).octets;
        auto& [has, content] = partial[f];
        if (!content || (has & parts) != parts) {
            has |= parts;
            content = has == detail::allParts ? nullptr : decodeAcceptedParts(octets, has, workspace_);
            if (!content) {
                content = decodeHeld(id, octets, workspace_);
                has = detail::allParts;
            }
        }
        return *content;
    };

    // Keys new to the index are new to the entry.
    d.linksNew = !before;
    d.prefixesNew = !before;

    // Links.
    using NeighborAt = decltype(node.neighbors)::iterator;
    std::pmr::vector<NeighborAt> links(&scratch);
    links.reserve((before ? before->neighbor().size() : 0) + (after ? after->neighbor().size() : 0));
    if (before) {
        for (const auto& n : before->neighbor()) {
            const auto it = node.neighbors.find(n->key());
            if (it != node.neighbors.end()) {
                it->second.reset(number);
                links.push_back(it);
            }
        }
    }
    if (after) {
        for (const auto& n : after->neighbor()) {
            const auto [it, added] = node.neighbors.try_emplace(n);
            if (added) {
                fileLink(node, it->first->key());
            }
            d.linksNew = d.linksNew && added;
            it->second.set(number);
            if (!before || !before->neighbor(n->key())) {
                links.push_back(it);
            }
        }
    }
    // `number` carries a key exactly when `after` (the delta) does. The new
    // copy's own member takes the other fragments' in place when it comes
    // first; else their union is built apart and copied over it. A member
    // the new copy lacks is built in the delta.
    const auto uniteCarried = [&](const FragmentSet& from, const auto& mine, const auto& memberOf,
                                  const auto& build, const auto& unite) {
        const bool inPlace = mine && from.first() == number;
        auto u = inPlace ? mine : nullptr;
        from.forEach([&](std::uint8_t f) {
            if (inPlace && f == number) {
                return;
            }
            const auto m = memberOf(f);
            if (!u) {
                u = build();
                u->updateAttr(m);
            } else {
                unite(*u, *m);
            }
        });
        if (mine && !inPlace) {
            mine->updateAttr(u);
        }
    };
    const auto uniteLink = [&](const IC::NeighborKey& k, const FragmentSet& from) {
        if (from.isOnly(number)) {
            return;  // `after` has it as it is
        }
        const Poldo::Ptr<IC::Neighbor> mine = from.has(number) ? after->neighbor(k) : nullptr;
        uniteCarried(
            from, mine, [&](std::uint8_t f) { return contentOf(f, detail::linksPart).neighbor(k); },
            [&] { return mine ? IC::neighborFactory(k) : delta.neighborIs(k); }, uniteNeighbor);
    };
    // The links in the delta that `number` does not carry (built here or
    // refolded below), by their keys' addresses in the index.
    std::pmr::set<const IC::NeighborKey*> apart(&scratch);
    for (const NeighborAt it : links) {
        if (it->second.none()) {
            fileLink(node, it->first->key(), false);
            d.goneNeighbors.push_back(it->first->key());
            node.neighbors.erase(it);
        } else {
            uniteLink(it->first->key(), it->second);
            if (!it->second.has(number)) {
                apart.insert(&it->first->key());
            }
        }
    }

    // SRLG records, and the links they fold onto.
    std::pmr::vector<Lumo::IpGenAddr> srlgAddrs(&scratch);
    srlgAddrs.reserve((before ? before->parsedSrLg().size() : 0) + (after ? after->parsedSrLg().size() : 0));
    const auto touchSrlg = [&](const IC::IsisLspParsedContent& c, bool set) {
        for (auto it = c.parsedSrLg().begin(); it != c.parsedSrLg().end(); ++it) {
            carry(node.srlgs, (*it)->localAddr()).set(number, set);
            srlgAddrs.push_back((*it)->localAddr());
        }
    };
    if (before) {
        touchSrlg(*before, false);
    }
    if (after) {
        makeRoom(node.srlgs, after->parsedSrLg().size());
        touchSrlg(*after, true);
    }
    // Records no fragment carries any more go first: a link folds none of them.
    for (const auto& a : srlgAddrs) {
        if (const auto* c = node.srlgs.find(a); c != nullptr && c->from.none()) {
            node.srlgs.erase(a);
        }
    }
    // Each link to merge needs the union of the records it folds.
    std::pmr::vector<Lumo::IpGenAddr> filed(&scratch);
    const auto uniteRecords = [&](const IC::NeighborKey& k) {
        for (const auto& a : foldAddresses(k)) {
            const auto* from = node.srlgs.find(a);
            if (from == nullptr || from->from.isOnly(number) ||
                std::find(filed.begin(), filed.end(), a) != filed.end()) {
                continue;
            }
            filed.push_back(a);
            const auto record = delta.parsedSrLgIs(a);
            from->from.forEach([&](std::uint8_t f) {
                if (f == number) {
                    return;  // already in `record`
                }
                if (const auto theirs = contentOf(f, detail::linksPart).parsedSrLg(a)) {
                    for (auto v = theirs->srlgValue().begin(); v != theirs->srlgValue().end(); ++v) {
                        record->srlgValueIs(*v);
                    }
                }
            });
        }
    };
    if (!node.srlgs.empty()) {
        for (const auto& n : delta.neighbor()) {
            uniteRecords(n->key());
        }
    }
    // A link that only other fragments carry is in the entry as their union
    // with every record at its addresses folded in. When the old copy of
    // fragment `number` had no record, records were only added: the entry's
    // copy with the new values folded in is the link to merge. Else, when
    // none of its fragments gives it SRLGs of its own, the entry's copy
    // without SRLGs is their union. Only otherwise are they decoded.
    const Poldo::Ptr<IC::IgpLsp> entry = srlgAddrs.empty() ? nullptr : db_->lsp(id);
    const bool recordsAdded = !before || before->parsedSrLg().empty();
    const auto refoldLink = [&](const IC::NeighborKey& k, const FragmentSet& from) {
        const Poldo::Ptr<IC::Neighbor> held = entry ? entry->neighbor(k) : nullptr;
        apart.insert(&k);
        if (held && recordsAdded) {
            const Poldo::Ptr<IC::Neighbor> u = delta.neighborIs(k);
            u->updateAttr(held);
            refolded_.emplace_back(u.get(), held);
            return;
        }
        bool own = false;
        from.forEach([&](std::uint8_t f) { own = own || node.fragments.at(f).linkSrlg; });
        if (held && !own) {
            const Poldo::Ptr<IC::Neighbor> u = delta.neighborIs(k);
            u->updateAttr(held);
            IC::Neighbor::NeighborAttrsPresent present = u->attrsPresent();
            present.srlgValuesIs(false);
            u->attrsPresentIs(present);
            u->srlgValuesDelAll();
            refolded_.emplace_back(u.get(), held);
        } else {
            uniteLink(k, from);
            d.linksNew = false;  // merge looks its member up
        }
        uniteRecords(k);
    };
    // Room in the delta, at once, for every link that the records may refold.
    std::size_t refolds = 0;
    for (const auto& a : srlgAddrs) {
        for (auto l = node.linksByAddr.lower_bound(LinkAt(a, nullptr));
             l != node.linksByAddr.end() && l->first == a; ++l) {
            ++refolds;
        }
    }
    if (refolds != 0) {
        delta.neighborReserve(static_cast<std::uint32_t>(delta.neighbor().size() + refolds));
    }
    for (const auto& a : srlgAddrs) {
        for (auto l = node.linksByAddr.lower_bound(LinkAt(a, nullptr));
             l != node.linksByAddr.end() && l->first == a; ++l) {
            // A link already in the delta is there with its union: `after`
            // carries it, or it was built above.
            const FragmentSet& from = node.neighbors.find(*l->second)->second;
            if (!from.has(number) && apart.count(l->second) == 0) {
                refoldLink(*l->second, from);
            }
        }
    }

    std::sort(refolded_.begin(), refolded_.end(),
              [](const auto& a, const auto& b) { return std::less<const void*>()(a.first, b.first); });

    // Prefixes.
    // The keys, not the members: an insertion moves the table's members.
    std::pmr::vector<const IC::PrefixKey*> prefixes(&scratch);
    prefixes.reserve((before ? before->prefix().size() : 0) + (after ? after->prefix().size() : 0));
    if (before) {
        for (const auto& p : before->prefix()) {
            if (const auto* c = node.prefixes.find(p->prefixKey())) {
                c->from.reset(number);
                prefixes.push_back(&p->prefixKey());
            }
        }
    }
    if (after) {
        makeRoom(node.prefixes, after->prefix().size());
        for (const auto& p : after->prefix()) {
            FragmentSet& from = carry(node.prefixes, p);
            d.prefixesNew = d.prefixesNew && from.none();
            from.set(number);
            // A prefix that only the new copy carries is in it as it is.
            if (!from.isOnly(number) && (!before || !before->prefix(p->prefixKey()))) {
                prefixes.push_back(&p->prefixKey());
            }
        }
    }
    for (const IC::PrefixKey* key : prefixes) {
        const auto* c = node.prefixes.find(*key);
        const FragmentSet& from = c->from;
        if (from.none()) {
            d.gonePrefixes.push_back(*key);
            node.prefixes.erase(*key);
            continue;
        }
        if (from.isOnly(number)) {
            continue;
        }
        const Poldo::Ptr<IC::Prefix> mine = from.has(number) ? after->prefix(*key) : nullptr;
        uniteCarried(
            from, mine, [&](std::uint8_t f) { return contentOf(f).prefix(*key); },
            [&] { return mine ? IC::prefixFactory(*key) : delta.prefixIs(*key); }, unitePrefix);
    }

    d.linksAfter = node.neighbors.size();
    d.prefixesAfter = node.prefixes.size();

    // Node attributes.
    d.nodeChanged = nodeTouched || !db_->lsp(id);
    if (d.nodeChanged) {
        auto all = IC::nodeFactory(id);
        bool srCapSeen = false;
        bool srlbSeen = false;
        for (const auto& [num, f] : node.fragments) {
            if (!f.held || (num != 0 && !f.nodeWide)) {
                continue;
            }
            const IC::IsisLspParsedContent& c = contentOf(num, detail::nodePart);
            uniteNode(*all, *c.node(), num);
            if (!srCapSeen && c.node()->srCapabilities()) {
                delta.parsedSrCapFragIdIs(c.parsedSrCapFragId());
                srCapSeen = true;
            }
            if (!srlbSeen && c.node()->srlb()) {
                delta.parsedSrlbFragIdIs(c.parsedSrlbFragId());
                srlbSeen = true;
            }
        }
        delta.nodeIs(all);
    }
    return d;
}

// SRLG records are filed under an address of either family, never the empty
// one: a link is filed, or unfiled, under the addresses it has.
void LspKeeper::fileLink(NodeState& node, const IC::NeighborKey& key, bool on) {
    for (const auto& a : foldAddresses(key)) {
        if (a.isNone()) {
            continue;
        }
        if (on) {
            node.linksByAddr.emplace(a, &key);
        } else {
            node.linksByAddr.erase(LinkAt(a, &key));
        }
    }
}

// A parsed content's collections hold members; an entry's give (key, member).
template <class Keys>
void LspKeeper::indexKeys(NodeState& node, std::uint8_t number, const Keys& c) {
    constexpr bool entry = std::is_same_v<Keys, IC::IgpLsp>;
    for (const auto& n : c.neighbor()) {
        const Poldo::Ptr<IC::Neighbor>* member;
        if constexpr (entry) {
            member = &n.value;
        } else {
            member = &n;
        }
        const auto [it, added] = node.neighbors.try_emplace(*member);
        if (added) {
            fileLink(node, it->first->key());
        }
        it->second.set(number);
    }
    makeRoom(node.prefixes, c.prefix().size());
    for (const auto& p : c.prefix()) {
        if constexpr (entry) {
            carry(node.prefixes, p.value).set(number);
        } else {
            carry(node.prefixes, p).set(number);
        }
    }
}

void LspKeeper::index(NodeState& node, std::uint8_t number, const IC::IsisLspParsedContent& c) {
    indexKeys(node, number, c);
    for (auto it = c.parsedSrLg().begin(); it != c.parsedSrLg().end(); ++it) {
        carry(node.srlgs, (*it)->localAddr()).set(number);
    }
}

// Merges the changed part of a node's union into its entry, as merging the
// whole union (IgpLsp::updateNeighbors, updatePrefixes, Node::updateNodeAttrs)
// would: keys that are not in the delta would have gone through updateAttr
// unchanged.
void LspKeeper::merge(const IC::IgpNodeId& id, const Delta& d) {
    if (d.nodeGone) {
        db_->lspDel(id);
        return;
    }
    if (d.whole) {
        db_->lspMerge(d.content);
        return;
    }
    const IC::IsisLspParsedContent& c = *d.content;
    Poldo::Ptr<IC::IgpLsp> entry = db_->lsp(id);
    const bool created = !entry;
    if (created) {
        entry = IC::igpLspFactory(id);
        entry->nodeIs(c.node());
    } else if (d.nodeChanged) {
        entry->node()->updateNodeAttrs(c.nodeRawPtr());
    }
    // The delta's new members go in before the gone ones come out, so the
    // entry peaks at the keys it ends with (the index's) plus the gone ones.
    const std::size_t linksPeak = d.linksAfter + d.goneNeighbors.size();
    if (roomWanted(entry->neighbor().size(), linksPeak)) {
        entry->neighborReserve(static_cast<std::uint32_t>(linksPeak));
    }
    const std::size_t prefixesPeak = d.prefixesAfter + d.gonePrefixes.size();
    if (roomWanted(entry->prefix().size(), prefixesPeak)) {
        entry->prefixReserve(static_cast<std::uint32_t>(prefixesPeak));
    }
    for (auto it = c.neighbor().begin(); it != c.neighbor().end(); ++it) {
        const Poldo::Ptr<IC::Neighbor>& p = *it;
        for (const auto& a : foldAddresses(p->key())) {
            foldSrlg(c, a, *p);
        }
        // A refolded link's member was looked up already; the other links
        // are all new when the delta says so.
        Poldo::Ptr<IC::Neighbor> existing;
        const auto held = std::lower_bound(
            refolded_.begin(), refolded_.end(), p.get(),
            [](const auto& r, const IC::Neighbor* n) { return std::less<const void*>()(r.first, n); });
        if (held != refolded_.end() && held->first == p.get()) {
            existing = held->second;
        } else if (!d.linksNew) {
            existing = entry->neighbor(p->key());
        }
        if (existing) {
            existing->updateAttr(p);
        } else {
            entry->neighborIs(p->key(), p);
        }
    }
    // Removals in the order the whole merge's second pass would meet them:
    // the entry's own iteration order, (hash, key).
    for (const auto& k : inEntryOrder<IC::IgpLsp::NeighborMap>(d.goneNeighbors)) {
        entry->neighborDel(k);
    }
    for (auto it = c.prefix().begin(); it != c.prefix().end(); ++it) {
        const Poldo::Ptr<IC::Prefix>& p = *it;
        if (const auto existing = d.prefixesNew ? nullptr : entry->prefix(p->prefixKey())) {
            existing->updateAttr(p);
        } else {
            entry->prefixIs(p->prefixKey(), p);
        }
    }
    for (const auto& k : inEntryOrder<IC::IgpLsp::PrefixMap>(d.gonePrefixes)) {
        entry->prefixDel(k);
    }
    if (created) {
        db_->lspIs(entry);
    }
    refolded_.clear();
}

}  // namespace Routing::IsisDecoder
