#include "IgpCommon/LspDatabase.h"

#include <string_view>

#include "Define.h"
#include "IgpCommon/ParsedContent.h"
#include "IgpCommon/framework/Assert.h"
#include "IgpCommon/framework/Exceptions.h"

namespace Routing::IgpCommon {

// ---- IgpLsp ---------------------------------------------------------------------

Poldo::Ptr<IgpLsp> IgpLsp::IgpLspIs(const IgpNodeId& nodeId) {
    return Poldo::Ptr<IgpLsp>(new IgpLsp(nodeId), Poldo::adopt);
}

Poldo::Ptr<IgpLsp> igpLspFactory(const IgpNodeId& nodeId) {
    return IgpLsp::IgpLspIs(nodeId);
}

Poldo::Ptr<Neighbor> IgpLsp::neighbor(const NeighborKey& key) const {
    const auto e = neighbor_.find(key);
    return e ? e->value : nullptr;
}

Poldo::Ptr<Prefix> IgpLsp::prefix(const PrefixKey& key) const {
    const auto e = prefix_.find(key);
    return e ? e->value : nullptr;
}

void IgpLsp::neighborIs(const NeighborKey& key, const Poldo::Ptr<Neighbor>& nbr) {
    entryPut(Attr::neighbor, neighbor_, key, nbr);
}
Poldo::Ptr<Neighbor> IgpLsp::neighborDel(const NeighborKey& key) {
    return entryTake(Attr::neighbor, neighbor_, key);
}
void IgpLsp::neighborDelAll() {
    entriesClear(Attr::neighbor, neighbor_);
}

void IgpLsp::prefixIs(const PrefixKey& key, const Poldo::Ptr<Prefix>& pfx) {
    entryPut(Attr::prefix, prefix_, key, pfx);
}
Poldo::Ptr<Prefix> IgpLsp::prefixDel(const PrefixKey& key) {
    return entryTake(Attr::prefix, prefix_, key);
}
void IgpLsp::prefixDelAll() {
    entriesClear(Attr::prefix, prefix_);
}

namespace {

// The SRLG records of a parsed content by the first local address of a
// neighbor's family. Only that address names the link's record; a neighbor
// without one matches a record under the empty address, which is looked up
// once per merge rather than once per such neighbor.
class SrlgRecords {
public:
    explicit SrlgRecords(const IsisLspParsedContent::SrlgMap& records) noexcept : records_(records) {}

    // Most LSPs carry no SRLG: then no address needs hashing.
    bool empty() const noexcept { return records_.empty(); }

    template <class Set>
    const NeighborSrlg* of(const Set& localAddrs) noexcept {
        if (localAddrs.empty()) {
            if (!emptyLooked_) {
                const auto* record = records_.find(Lumo::IpGenAddr());
                emptyRecord_ = record ? *record : nullptr;
                emptyLooked_ = true;
            }
            return emptyRecord_.get();
        }
        return find(Lumo::IpGenAddr(*localAddrs.uncheckedBegin()));
    }

private:
    const NeighborSrlg* find(const Lumo::IpGenAddr& addr) const noexcept {
        const auto* record = records_.find(addr);
        return record ? record->get() : nullptr;
    }

    const IsisLspParsedContent::SrlgMap& records_;
    // Held: observers of the neighbors it is folded into run meanwhile.
    Poldo::Ptr<NeighborSrlg> emptyRecord_;
    bool emptyLooked_ = false;
};

// Folds an SRLG record, if there is one, into `p`.
void foldSrlg(const NeighborSrlg* record, Neighbor& p) {
    if (record == nullptr) {
        return;
    }
    Neighbor::NeighborAttrsPresent present = p.attrsPresent();
    present.srlgValuesIs(true);
    p.attrsPresentIs(present);
    const auto& values = record->srlgValue();
    for (auto it = values.begin(); it != values.end(); ++it) {
        p.srlgValuesIs(*it);
    }
}

// Watches a collection through the first pass of a merge, which only adds
// members under the parsed keys: when nobody else (an observer) changed the
// collection meanwhile and every member held before matched a parsed key, the
// collection holds the parsed keys alone, and the second pass (a walk over
// every slot and a look-up of every key in the parsed content) has nothing to
// remove. Always so for a new entry and for an unchanged LSP.
template <class Map>
class FirstPass {
public:
    explicit FirstPass(const Map& mine) noexcept
        : mine_(mine), before_(mine.size()), version_(mine.version()) {}

    /// Before each change of our own.
    void beforeChange() noexcept { foreign_ |= mine_.version() != version_; }
    /// After it, before its publication (where observers may run).
    void changed() noexcept { version_ = mine_.version(); }
    void matched() noexcept { ++matched_; }
    bool onlyTheirs() noexcept {
        beforeChange();
        return !foreign_ && matched_ == before_;
    }

private:
    const Map& mine_;
    const std::uint32_t before_;
    std::uint32_t version_;
    std::uint32_t matched_ = 0;
    bool foreign_ = false;
};

}  // namespace

void IgpLsp::updateNeighbors(const Poldo::Ptr<IsisLspParsedContent>& parsed) noexcept {
    const IsisLspParsedContent& content = *parsed;
    const auto& theirs = content.neighbor();
    // Sized once for what the entry will hold; a refresh finds it large enough.
    neighbor_.reserve(theirs.size());
    FirstPass<NeighborMap> pass(neighbor_);
    SrlgRecords srlgs(content.parsedSrLg());
    for (auto it = theirs.begin(); it != theirs.end(); ++it) {
        const Poldo::Ptr<Neighbor>& p = *it;
        const NeighborKey& k = p->key();
        if (!srlgs.empty()) {
            foldSrlg(srlgs.of(k.localIpv4Addr()), *p);
            foldSrlg(srlgs.of(k.localIpv6Addr()), *p);
        }
        pass.beforeChange();
        // One look-up: a neighbor held under k takes over p's attributes, else p is adopted.
        const auto [member, adopted] = neighbor_.findOrInsert(k, NeighborMap::hashOf(k), [&p] { return p; });
        if (adopted) {
            pass.changed();
            publishMember<NeighborKey, Poldo::Ptr<Neighbor>>(Attr::neighbor, k, nullptr);
        } else {
            pass.matched();
            (*member)->updateAttr(p);
        }
    }
    if (pass.onlyTheirs()) {
        return;
    }
    for (auto it = neighbor_.begin(); it != neighbor_.end(); ++it) {
        if (theirs.find(it->key) == nullptr) {
            neighborDel(it->key);
        }
    }
}

void IgpLsp::updatePrefixes(const Poldo::Ptr<IsisLspParsedContent>& parsed) noexcept {
    const auto& theirs = parsed->prefix();
    prefix_.reserve(theirs.size());
    FirstPass<PrefixMap> pass(prefix_);
    for (auto it = theirs.begin(); it != theirs.end(); ++it) {
        const Poldo::Ptr<Prefix>& p = *it;
        const PrefixKey& k = p->prefixKey();
        pass.beforeChange();
        const auto [member, adopted] = prefix_.findOrInsert(k, PrefixMap::hashOf(k), [&p] { return p; });
        if (adopted) {
            pass.changed();
            publishMember<PrefixKey, Poldo::Ptr<Prefix>>(Attr::prefix, k, nullptr);
        } else {
            pass.matched();
            (*member)->updateAttr(p);
        }
    }
    if (pass.onlyTheirs()) {
        return;
    }
    for (auto it = prefix_.begin(); it != prefix_.end(); ++it) {
        if (theirs.find(it->key) == nullptr) {
            prefixDel(it->key);
        }
    }
}

using Kest::AttrKind;
IGP_DEFINE_ENTITY(IgpLsp, {"nodeId", Attr::nodeId, AttrKind::scalar}, {"node", Attr::node, AttrKind::pointer},
                  {"neighbor", Attr::neighbor, AttrKind::hashCollection, NeighborMap::salt},
                  {"prefix", Attr::prefix, AttrKind::hashCollection, PrefixMap::salt},
                  {"nodeRawPtr", Attr::nodeRawPtr, AttrKind::function},
                  {"updateNeighbors", Attr::updateNeighbors, AttrKind::function},
                  {"updatePrefixes", Attr::updatePrefixes, AttrKind::function})

// ---- IgpLspDatabase ----------------------------------------------------------------

Poldo::Ptr<IgpLspDatabase> IgpLspDatabase::IgpLspDatabaseIs(IgpLevel level) {
    return Poldo::Ptr<IgpLspDatabase>(new IgpLspDatabase(level), Poldo::adopt);
}

Poldo::Ptr<IgpLspDatabase> igpLspDatabaseFactory(IgpLevel level) {
    return IgpLspDatabase::IgpLspDatabaseIs(level);
}

Poldo::Ptr<IgpLsp> IgpLspDatabase::lsp(const IgpNodeId& nodeId) const {
    const auto* e = lsp_.find(nodeId);
    return e ? *e : nullptr;
}

void IgpLspDatabase::lspIs(const Poldo::Ptr<IgpLsp>& entry) {
    if (!entry) {
        throw Kest::MutatorNullPointerException("Routing::IgpCommon::IgpLspDatabase", "lsp", Attr::lsp);
    }
    const std::uint32_t hash = LspMap::hashOf(entry->nodeId());
    const auto it = lsp_.findIter(entry->nodeId(), hash);
    if (it == lsp_.end()) {
        lsp_.insert(entry, hash);
        publishMember<IgpNodeId, Poldo::Ptr<IgpLsp>>(Attr::lsp, entry->nodeId(), nullptr);
        return;
    }
    if (*it == entry) {
        return;
    }
    // The previous entry is dropped only after observers have seen it.
    const Poldo::Ptr<IgpLsp> previous = lsp_.replace(it, entry);
    publishMember(Attr::lsp, entry->nodeId(), &previous);
}

Poldo::Ptr<IgpLsp> IgpLspDatabase::lspMerge(const Poldo::Ptr<IsisLspParsedContent>& parsed) {
    if (!parsed || !parsed->node()) {
        throw Kest::MutatorNullPointerException("Routing::IgpCommon::IgpLspDatabase", "lsp", Attr::lsp);
    }
    const IgpNodeId& nodeId = parsed->node()->nodeId();
    const std::uint32_t hash = LspMap::hashOf(nodeId);
    if (const auto* found = lsp_.find(nodeId, hash)) {
        // Held: an observer may remove the entry while it is merged.
        Poldo::Ptr<IgpLsp> entry = *found;
        if (Node* node = entry->nodeRawPtr()) {
            node->updateNodeAttrs(parsed->nodeRawPtr());
        } else {
            entry->nodeIs(parsed->node());
        }
        entry->updateNeighbors(parsed);
        entry->updatePrefixes(parsed);
        return entry;
    }
    // Filled before it is stored, so that the database's observers see it whole.
    Poldo::Ptr<IgpLsp> entry = igpLspFactory(nodeId);
    entry->nodeIs(parsed->node());
    entry->updateNeighbors(parsed);
    entry->updatePrefixes(parsed);
    lsp_.insert(entry, hash);
    publishMember<IgpNodeId, Poldo::Ptr<IgpLsp>>(Attr::lsp, entry->nodeId(), nullptr);
    return entry;
}

Poldo::Ptr<IgpLsp> IgpLspDatabase::lspDel(const IgpNodeId& nodeId) {
    Poldo::Ptr<IgpLsp> removed;
    if (!lsp_.erase(nodeId, &removed)) {
        return nullptr;
    }
    publishMember(Attr::lsp, removed->nodeId(), &removed);
    return removed;
}

void IgpLspDatabase::lspDelAll() {
    if (publisher().initialState()) {
        lsp_.clear();
        return;
    }
    for (auto it = lsp_.begin(); it != lsp_.end(); ++it) {
        const IgpNodeId nodeId = (*it)->nodeId();
        lspDel(nodeId);
    }
}

void IgpLspDatabase::dumpState(const Poldo::Ptr<Umbo::DumpContext const>& dumpCtx,
                               unsigned indentCount) const noexcept {
    const std::uint32_t width = indentCount + 2u;
    if (lsp_.empty()) {
        return;
    }
    // Written whole with their lengths: a line holds whatever octets a router sent
    // (a NUL in a host name among them), which a printf "%s" would cut short.
    constexpr std::string_view spaces = "                                ";
    const auto emit = [&](const Poldo::String& text) {
        for (std::uint32_t left = width; left != 0;) {
            const std::uint32_t n = left < spaces.size() ? left : static_cast<std::uint32_t>(spaces.size());
            dumpCtx->write(spaces.substr(0, n));
            left -= n;
        }
        dumpCtx->write(text);
    };
    for (auto it = lsp_.begin(); it != lsp_.end(); ++it) {
        const IgpLsp& entry = **it;
        const Poldo::Ptr<Node> node = entry.node();
        KEST_ASSERT_MSG(node, "a dumped entry has a node");
        Poldo::OStringStream os;
        node->formatContent(os);
        emit(os.str());
        for (auto n = entry.neighbor().begin(); n != entry.neighbor().end(); ++n) {
            os.str("");
            n->value->formatContent(os);
            emit(os.str());
        }
        for (auto p = entry.prefix().begin(); p != entry.prefix().end(); ++p) {
            os.str("");
            p->value->formatContent(os);
            emit(os.str());
        }
    }
}

IGP_DEFINE_ENTITY(IgpLspDatabase, {"level", Attr::level, AttrKind::scalar},
                  {"lsp", Attr::lsp, AttrKind::hashCollection, LspMap::salt},
                  {"dumpState", Attr::dumpState, AttrKind::function})

}  // namespace Routing::IgpCommon
