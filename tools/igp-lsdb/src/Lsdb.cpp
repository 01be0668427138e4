#include "Lsdb.h"

#include <chrono>

#include "IsisDecoder/Decoder.h"
#include "IsisDecoder/Frame.h"

namespace IgpLsdb {

LspCounters& LspCounters::operator+=(const LspCounters& o) noexcept {
    received += o.received;
    installed += o.installed;
    purges += o.purges;
    ignoredAsOld += o.ignoredAsOld;
    return *this;
}

Lsdb::Lsdb(unsigned level) {
    for (unsigned l : {1u, 2u}) {
        if (level == 0 || level == l) {
            levels_.push_back(l);
            keepers_[l] =
                std::make_unique<ID::LspKeeper>(l == 1 ? IC::igpLevelIsisLevel1 : IC::igpLevelIsisLevel2);
            lspCounters_[l];
            completeness_[l];
        }
    }
}

template <class MessageFn>
void Lsdb::noteMalformed(const FrameRef& where, const Capture& capture, unsigned level, const char* reason,
                         MessageFn message) {
    ++malformedTotal_;
    ++malformedCounts_[{level, reason}];
    if (malformed_.size() < maxListedMalformed) {
        malformed_.push_back({where, capture.name(), level, reason, message()});
    }
}

bool Lsdb::read(Capture& capture, std::size_t index, const ProgressFn& progress) {
    using Clock = std::chrono::steady_clock;
    auto nextReport = Clock::now();
    CapturedFrame frame;
    while (!stopped_ && capture.next(frame)) {
        const FrameRef where{index, frame.number, frame.timeMicros};
        if (stopAt && stopAt(where)) {
            stopped_ = true;
            break;
        }
        ++frames_.frames;
        last_ = where;
        if (progress && Clock::now() >= nextReport) {
            progress(capture, frame.number);
            nextReport = Clock::now() + std::chrono::milliseconds(200);
        }
        const ID::FrameResult r = ID::isisPduOfFrame(capture.linkType(), frame.bytes);
        switch (r.status) {
            case ID::FrameResult::Status::isis:
                break;
            case ID::FrameResult::Status::notIsis:
                ++frames_.notIsis;
                continue;
            default:
                noteMalformed(where, capture, 0, ID::frameStatusName(r.status), [&] {
                    return std::string("link-layer frame: ") + ID::frameStatusName(r.status);
                });
                continue;
        }
        if (ID::pduKind(r.pdu) != ID::PduKind::lsp) {
            ++frames_.otherIsis;
            // PDU types 24 and 25: level-1 and level-2 CSNPs (ISO 10589 section 9.10).
            const unsigned type = ID::pduKind(r.pdu) == ID::PduKind::snp ? r.pdu[4] & 0x1fu : 0;
            const unsigned csnpLevel = type == 24 ? 1 : type == 25 ? 2 : 0;
            if (keepers_.contains(csnpLevel)) {
                completeness_[csnpLevel].csnp(r.pdu, *keepers_[csnpLevel]);
            }
            continue;
        }
        ++frames_.lsps;
        lsp(where, capture, r.pdu);
    }
    return capture.error().empty();
}

const FrameRef* Lsdb::receivedIn(unsigned level, const IC::IgpNodeId& id, std::uint8_t fragment) const {
    const auto byLevel = receivedIn_.find(level);
    if (byLevel == receivedIn_.end()) {
        return nullptr;
    }
    const auto it = byLevel->second.find(id.toU64() | fragment);
    return it == byLevel->second.end() ? nullptr : &it->second;
}

void Lsdb::lsp(const FrameRef& where, const Capture& capture, std::span<const std::uint8_t> pdu) {
    const unsigned level = ID::lspLevel(pdu);
    if (!keepers_.contains(level)) {
        return;
    }
    const ID::DecodeResult d = ID::decodeLsp(pdu);
    if (!d.ok()) {
        const ID::DecodeError& e = d.error();
        noteMalformed(where, capture, level, ID::reasonName(e.reason), [&] { return e.message(); });
        return;
    }
    const ID::LspHeader& h = d.lsp().header;
    LspCounters& c = lspCounters_[level][h.nodeId()];
    ++c.received;
    Completeness& completeness = completeness_[level];
    completeness.carried(lspIdValue(h));
    if (beforeMerge) {
        beforeMerge(where, level, h.nodeId());
    }
    const ID::LspKeeper::Outcome outcome = keepers_[level]->receive(d.lsp());
    if (afterMerge) {
        afterMerge();
    }
    const std::uint64_t fragmentKey = h.nodeId().toU64() | h.fragment;
    switch (outcome) {
        case ID::LspKeeper::Outcome::installed:
        case ID::LspKeeper::Outcome::refreshed:
            ++c.installed;
            receivedIn_[level][fragmentKey] = where;
            completeness.arrived(lspIdValue(h));
            break;
        case ID::LspKeeper::Outcome::purged:
            ++c.purges;
            receivedIn_[level].erase(fragmentKey);
            break;
        case ID::LspKeeper::Outcome::ignored:
        case ID::LspKeeper::Outcome::rejected:  // not from receive(): decoded above
            ++c.ignoredAsOld;
            break;
    }
}

}  // namespace IgpLsdb
