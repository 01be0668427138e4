#include "Completeness.h"

#include <cstdio>

namespace IgpLsdb {

namespace {

constexpr std::size_t csnpHeaderLength = 33;  // ISO 10589 section 9.10, with 6-octet system IDs
constexpr std::uint8_t lspEntriesTlv = 9;
constexpr std::size_t lspEntryLength = 16;  // lifetime 2, LSP ID 8, sequence number 4, checksum 2

LspIdValue idAt(std::span<const std::uint8_t> p) {
    LspIdValue v = 0;
    for (std::size_t i = 0; i < 8; ++i) {
        v = v << 8 | p[i];
    }
    return v;
}

}  // namespace

LspIdValue lspIdValue(const ID::LspHeader& h) noexcept {
    LspIdValue v = 0;
    for (const std::uint8_t o : h.systemId) {
        v = v << 8 | o;
    }
    return (v << 8 | h.pseudonode) << 8 | h.fragment;
}

std::string lspIdText(LspIdValue id) {
    char out[24];
    std::snprintf(out, sizeof out, "%04x.%04x.%04x.%02x-%02x", static_cast<unsigned>(id >> 48 & 0xffff),
                  static_cast<unsigned>(id >> 32 & 0xffff), static_cast<unsigned>(id >> 16 & 0xffff),
                  static_cast<unsigned>(id >> 8 & 0xff), static_cast<unsigned>(id & 0xff));
    return out;
}

bool Completeness::csnp(std::span<const std::uint8_t> pdu, const ID::LspKeeper& keeper) {
    // Header length 33 and an ID length of 6 (written 0 or 6): anything else is not read.
    if (pdu.size() < csnpHeaderLength || pdu[1] != csnpHeaderLength || (pdu[3] != 0 && pdu[3] != 6)) {
        return false;
    }
    const std::size_t length =
        std::min<std::size_t>(pdu.size(), static_cast<std::size_t>(pdu[8]) << 8 | pdu[9]);
    const LspIdValue start = idAt(pdu.subspan(17));
    const LspIdValue end = idAt(pdu.subspan(25));
    std::map<LspIdValue, bool> listed;  // by LSP ID: listed with a non-zero lifetime
    for (std::size_t at = csnpHeaderLength; at < length;) {
        if (at + 2 > length || at + 2 + pdu[at + 1] > length) {
            return false;
        }
        const std::uint8_t type = pdu[at];
        const std::size_t tlvLength = pdu[at + 1];
        if (type == lspEntriesTlv) {
            for (std::size_t e = at + 2; e + lspEntryLength <= at + 2 + tlvLength; e += lspEntryLength) {
                const bool alive = (pdu[e] | pdu[e + 1]) != 0;
                listed[idAt(pdu.subspan(e + 2))] = alive;
            }
        }
        at += 2 + tlvLength;
    }
    ++csnps_;
    for (const auto& [id, alive] : listed) {
        if (alive) {
            listed_.insert(id);
        }
    }
    keeper.forEachFragment([&](const ID::LspKeeper::HeldFragment& f) {
        const LspIdValue id = lspIdValue(f.header);
        if (id >= start && id <= end) {
            lastVerdict_[id] = listed.contains(id);
        }
    });
    return true;
}

std::vector<LspIdValue> Completeness::listedNeverCarried() const {
    std::vector<LspIdValue> out;
    for (const LspIdValue id : listed_) {
        if (!carried_.contains(id)) {
            out.push_back(id);
        }
    }
    return out;
}

std::vector<LspIdValue> Completeness::heldNotListed(const ID::LspKeeper& keeper) const {
    std::vector<LspIdValue> out;
    keeper.forEachFragment([&](const ID::LspKeeper::HeldFragment& f) {
        const LspIdValue id = lspIdValue(f.header);
        if (const auto it = lastVerdict_.find(id); it != lastVerdict_.end() && !it->second) {
            out.push_back(id);
        }
    });
    return out;
}

}  // namespace IgpLsdb
