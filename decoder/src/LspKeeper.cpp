#include "IsisDecoder/LspKeeper.h"

#include <algorithm>

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

LspKeeper::Fragment* LspKeeper::heldFragment(const IC::IgpNodeId& id, std::uint8_t fragment) {
    const auto node = nodes_.find(id);
    if (node == nodes_.end()) {
        return nullptr;
    }
    const auto f = node->second.find(fragment);
    return f == node->second.end() ? nullptr : &f->second;
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
    f.octets.clear();
    rebuild(id, frags);
    return h.isPurge() ? Outcome::purged : Outcome::installed;
}

namespace {

// LSP PDU octets (ISO 10589 9.9): remaining lifetime, LSP ID, sequence number,
// checksum, then the flags and the TLVs.
constexpr std::size_t lifetimeAt = 10;
constexpr std::size_t lspIdAt = 12;
constexpr std::size_t seqAt = 20;
constexpr std::size_t flagsAt = 26;

// The same PDU but for lifetime, sequence number and checksum. The held copy
// was decoded whole, so a copy that matches it and passes the checksum is
// as well formed as it was.
bool sameButHeader(std::span<const std::uint8_t> pdu, const std::vector<std::uint8_t>& held) {
    const auto same = [&](std::size_t from, std::size_t to) {
        return std::equal(pdu.begin() + static_cast<std::ptrdiff_t>(from),
                          pdu.begin() + static_cast<std::ptrdiff_t>(to),
                          held.begin() + static_cast<std::ptrdiff_t>(from));
    };
    return pdu.size() == held.size() && same(0, lifetimeAt) && same(lspIdAt, seqAt) &&
           same(flagsAt, pdu.size());
}

}  // namespace

LspKeeper::Outcome LspKeeper::receivePdu(std::span<const std::uint8_t> pdu, DecodeError* error) {
    if (const auto h = decodeLspHeader(pdu); h && !h->isPurge()) {
        Fragment* held = heldFragment(h->nodeId(), h->fragment);
        const auto body = pdu.first(h->pduLength);
        if (held != nullptr && held->content && h->sequenceNumber > held->seq &&
            sameButHeader(body, held->octets) && lspChecksumAccepted(*h, body)) {
            held->seq = h->sequenceNumber;
            std::copy(body.begin(), body.end(), held->octets.begin());
            ++refreshed_;
            return Outcome::refreshed;
        }
    }
    const DecodeResult r = decodeLsp(pdu);
    if (!r) {
        if (error != nullptr) {
            *error = r.error();
        }
        return Outcome::rejected;
    }
    const Outcome outcome = receive(r.lsp());
    if (outcome == Outcome::installed) {
        const LspHeader& h = r.lsp().header;
        const auto body = pdu.first(h.pduLength);
        nodes_[h.nodeId()][h.fragment].octets.assign(body.begin(), body.end());
    }
    return outcome;
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
    // A definition that several fragments carry is put together: its numbers
    // from the lowest fragment, its constraints by combineSubTlvs. The union
    // gets constraint objects of its own, so that the fragments' decoded
    // definitions stay as they were received.
    if (const auto& fads = from.fadCol()) {
        if (!into.fadCol()) {
            into.fadColIs(IC::igpFlexAlgoDefinitionColFactory());
        }
        for (auto it = fads->fad().begin(); it != fads->fad().end(); ++it) {
            if (into.fadCol()->fad().find(it->first) != nullptr) {
                into.fadCol()->fad(it->first).combineSubTlvs(it->second);
                continue;
            }
            IC::IgpFlexAlgoDefinition own;
            own.flexAlgoIs(it->second.flexAlgo());
            own.metricTypeIs(it->second.metricType());
            own.calcTypeIs(it->second.calcType());
            own.priorityIs(it->second.priority());
            own.lspFragmentIdIs(it->second.lspFragmentId());
            own.combineSubTlvs(it->second);  // into empty lists: a copy
            into.fadCol()->fadIs(it->first, own);
        }
    }
}

// A link that a later fragment describes again under the same key: each TE
// attribute comes from the first fragment that carries it, the metric from
// the first fragment, and the adjacency SIDs of all are kept.
void uniteNeighbor(IC::Neighbor& into, const IC::Neighbor& from) {
    const auto have = into.attrsPresent();
    const auto add = from.attrsPresent();
    if (add.adminGroup() && !have.adminGroup()) {
        into.adminGroupIs(from.adminGroup());
    }
    if (add.maxLinkBw() && !have.maxLinkBw()) {
        into.maxLinkBwIs(from.maxLinkBw());
    }
    if (add.maxReserveLinkBw() && !have.maxReserveLinkBw()) {
        into.maxReserveLinkBwIs(from.maxReserveLinkBw());
    }
    if (add.unreservedBw() && !have.unreservedBw()) {
        for (unsigned p = 0; p < 8; ++p) {
            into.unreservedBwIs(IC::BwIndex(p), from.unreservedBw(IC::BwIndex(p)));
        }
    }
    if (add.extAdminGroup() && !have.extAdminGroup()) {
        for (const auto& w : from.extAdminGroup()) {
            into.extAdminGroupIs(w.key, w.value);
        }
    }
    if (add.teDefMetric() && !have.teDefMetric()) {
        into.teDefMetricIs(from.teDefMetric());
    }
    into.attrsPresentIs(IC::Neighbor::NeighborAttrsPresent(have.value() | add.value()));
    for (const auto& sid : from.adjSid()) {
        into.adjSidIs(sid);
    }
    for (const auto& sid : from.lanAdjSid()) {
        into.lanAdjSidIs(sid);
    }
}

// A prefix that a later fragment carries again (a narrow copy beside a wide
// one, a binding apart from the reachability): reachability, metric and
// flags, the SID, each algorithm's metric and the binding each come from the
// first fragment that has them.
void unitePrefix(IC::Prefix& into, const IC::Prefix& from) {
    if (from.hasValidReachability() && !into.hasValidReachability()) {
        into.hasValidReachabilityIs(true);
        into.flagsIs(from.flags());
        into.metricIs(from.metric());
    }
    if (from.prefixSid().isValid() && !into.prefixSid().isValid()) {
        into.prefixSidIs(from.prefixSid());
    }
    for (auto it = from.prefixMetric()->metric().begin(); it != from.prefixMetric()->metric().end(); ++it) {
        if (into.prefixMetric()->metric().find(it->first) == nullptr) {
            into.prefixMetric()->metricIs(it->first, it->second);
        }
    }
    if (from.sidLabelBinding() && !into.sidLabelBinding()) {
        const auto b = IC::sidLabelBindingFactory();
        b->updateAttr(from.sidLabelBinding());
        into.sidLabelBindingIs(b);
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
        for (const auto& n : c.neighbor()) {
            if (const auto held = all->neighbor(n->key())) {
                uniteNeighbor(*held, *n);
            } else {
                all->neighborIs(n->key())->updateAttr(n);
            }
        }
        for (const auto& p : c.prefix()) {
            if (const auto held = all->prefix(p->prefixKey())) {
                unitePrefix(*held, *p);
            } else {
                all->prefixIs(p->prefixKey())->updateAttr(p);
            }
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
    db_->lspMerge(all);
}

}  // namespace Routing::IsisDecoder
