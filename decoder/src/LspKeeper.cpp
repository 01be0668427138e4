#include "IsisDecoder/LspKeeper.h"

namespace Routing::IsisDecoder {

namespace IC = Routing::IgpCommon;

LspKeeper::LspKeeper(IC::IgpLevel level) : level_(level), db_(IC::igpLspDatabaseFactory(level)) {}

std::size_t LspKeeper::fragmentCount() const noexcept {
    std::size_t n = 0;
    for (const auto& [id, frags] : nodes_) {
        for (const auto& [num, f] : frags) {
            n += f.content ? 1 : 0;
        }
    }
    return n;
}

std::size_t LspKeeper::fragmentCount(const IC::IgpNodeId& id) const noexcept {
    const auto it = nodes_.find(id);
    if (it == nodes_.end()) {
        return 0;
    }
    std::size_t n = 0;
    for (const auto& [num, f] : it->second) {
        n += f.content ? 1 : 0;
    }
    return n;
}

LspKeeper::Outcome LspKeeper::receive(const DecodedLsp& lsp) {
    const LspHeader& h = lsp.header;
    if (h.level != static_cast<unsigned>(level_) || !lsp.content) {
        ++ignored_;
        return Outcome::ignored;
    }
    const IC::IgpNodeId id = h.nodeId();
    Fragments& frags = nodes_[id];
    const auto held = frags.find(h.fragment);
    // ISO 10589 7.3.16: a newer sequence number wins; a purge also replaces
    // the copy of the same number that it removes.
    if (held != frags.end()) {
        const bool newer = h.sequenceNumber > held->second.seq;
        const bool purgesHeld = h.isPurge() && h.sequenceNumber == held->second.seq && held->second.content;
        if (!newer && !purgesHeld) {
            ++ignored_;
            return Outcome::ignored;
        }
    }
    Fragment& f = frags[h.fragment];
    f.seq = h.sequenceNumber;
    f.content = h.isPurge() ? nullptr : lsp.content;
    rebuild(id, frags);
    return h.isPurge() ? Outcome::purged : Outcome::installed;
}

namespace {

// Node attributes of several fragments: the overload and attached bits count
// in fragment 0 only (ISO 10589 7.3.4.4); the rest is taken from the first
// fragment that carries it, and the area and topology lists are united.
void uniteNode(IC::Node& into, const IC::Node& from, std::uint8_t fragment) {
    if (fragment == 0) {
        into.flagsIs(from.flags());
    }
    if (into.hostName().empty()) {
        into.hostNameIs(from.hostName());
    }
    if (into.ipv4RouterId().isZero()) {
        into.ipv4RouterIdIs(from.ipv4RouterId());
    }
    if (into.ipv6RouterId().isZero()) {
        into.ipv6RouterIdIs(from.ipv6RouterId());
    }
    if (const auto& areas = from.isisAreaIdCol()) {
        if (!into.isisAreaIdCol()) {
            into.isisAreaIdColIs(IC::isisAreaIdColFactory());
        }
        for (auto it = areas->areaId().begin(); it != areas->areaId().end(); ++it) {
            into.isisAreaIdCol()->areaIdIs(it->first, it->second);
        }
    }
    if (const auto& mts = from.mtIdCol()) {
        if (!into.mtIdCol()) {
            into.mtIdColIs(IC::igpMultiTopologyIdColFactory());
        }
        for (auto it = mts->mtIdValue().begin(); it != mts->mtIdValue().end(); ++it) {
            into.mtIdCol()->mtIdValueIs(*it);
        }
    }
    if (!into.srCapabilities()) {
        into.srCapabilitiesIs(from.srCapabilities());
    }
    if (!into.srlb()) {
        into.srlbIs(from.srlb());
    }
    if (!into.msdCol()) {
        into.msdColIs(from.msdCol());
    }
    if (const auto& fads = from.fadCol()) {
        if (!into.fadCol()) {
            into.fadColIs(IC::igpFlexAlgoDefinitionColFactory());
        }
        for (auto it = fads->fad().begin(); it != fads->fad().end(); ++it) {
            if (into.fadCol()->fad().find(it->first) == nullptr) {
                into.fadCol()->fadIs(it->first, it->second);
            }
        }
    }
}

}  // namespace

void LspKeeper::rebuild(const IC::IgpNodeId& id, const Fragments& frags) {
    auto all = IC::isisLspParsedContentFactory();
    all->nodeIs(IC::nodeFactory(id));
    bool any = false;
    bool srCapSeen = false;
    bool srlbSeen = false;
    for (const auto& [num, f] : frags) {
        if (!f.content) {
            continue;
        }
        any = true;
        const IC::IsisLspParsedContent& c = *f.content;
        uniteNode(*all->node(), *c.node(), num);
        if (!srCapSeen && c.node()->srCapabilities()) {
            all->parsedSrCapFragIdIs(c.parsedSrCapFragId());
            srCapSeen = true;
        }
        if (!srlbSeen && c.node()->srlb()) {
            all->parsedSrlbFragIdIs(c.parsedSrlbFragId());
            srlbSeen = true;
        }
        for (auto it = c.neighbor().begin(); it != c.neighbor().end(); ++it) {
            all->neighborIs((*it)->key())->updateAttr(*it);
        }
        for (auto it = c.prefix().begin(); it != c.prefix().end(); ++it) {
            all->prefixIs((*it)->prefixKey())->updateAttr(*it);
        }
        for (auto it = c.parsedSrLg().begin(); it != c.parsedSrLg().end(); ++it) {
            const auto rec = all->parsedSrLgIs((*it)->localAddr());
            for (auto v = (*it)->srlgValue().begin(); v != (*it)->srlgValue().end(); ++v) {
                rec->srlgValueIs(*v);
            }
        }
    }

    if (!any) {
        // The purged fragments stay behind as sequence numbers.
        db_->lspDel(id);
        return;
    }
    Poldo::Ptr<IC::IgpLsp> entry = db_->lsp(id);
    if (!entry) {
        entry = IC::igpLspFactory(id);
        entry->nodeIs(all->node());
        entry->updateNeighbors(all);
        entry->updatePrefixes(all);
        db_->lspIs(entry);
        return;
    }
    entry->node()->updateNodeAttrs(all->nodeRawPtr());
    entry->updateNeighbors(all);
    entry->updatePrefixes(all);
}

}  // namespace Routing::IsisDecoder
