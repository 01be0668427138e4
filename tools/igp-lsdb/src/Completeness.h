// How complete a capture's database is, as the complete sequence number PDUs
// (CSNPs) it carries tell: the LSPs they list that the capture never
// carried, and LSPs held that a CSNP sent after them no longer lists.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "IsisDecoder/LspKeeper.h"

namespace IgpLsdb {

namespace ID = Routing::IsisDecoder;

/// An LSP ID as a number: system ID, pseudonode and fragment octets in order.
using LspIdValue = std::uint64_t;

LspIdValue lspIdValue(const ID::LspHeader& h) noexcept;

class Completeness {
public:
    /// The LSP ID of an LSP received: the capture carried it.
    void carried(LspIdValue id) { carried_.insert(id); }
    /// A newer copy of the fragment arrived: the CSNPs before it said nothing of it.
    void arrived(LspIdValue id) { lastVerdict_.erase(id); }

    /// Takes one CSNP of this level, whose held fragments `keeper` has at the
    /// time it was captured. False when the PDU is too short or its entries
    /// run past it; nothing is taken from it then.
    bool csnp(std::span<const std::uint8_t> pdu, const ID::LspKeeper& keeper);

    /// LSP IDs that some CSNP listed with a non-zero lifetime and that no LSP of the capture carried.
    std::vector<LspIdValue> listedNeverCarried() const;
    /// Fragments held at the end whose newest copy the last CSNP covering their ID, sent after
    /// it arrived, did not list.
    std::vector<LspIdValue> heldNotListed(const ID::LspKeeper& keeper) const;
    std::size_t csnps() const noexcept { return csnps_; }

private:
    std::set<LspIdValue> carried_;
    std::set<LspIdValue> listed_;
    // For a held fragment covered by a CSNP after its newest copy arrived:
    // whether the last such CSNP listed it. Forgotten when a newer copy arrives.
    std::map<LspIdValue, bool> lastVerdict_;
    std::size_t csnps_ = 0;
};

/// "0000.0000.0001.02-00"
std::string lspIdText(LspIdValue id);

}  // namespace IgpLsdb
