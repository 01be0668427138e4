// The receive side of one IS-IS level: keeps the newest copy of every LSP
// fragment and merges each node's current fragments into its database entry.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
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
        ignored,    // not newer than what is held, or another level's LSP
        rejected,   // malformed (receivePdu only); nothing changed
    };

    explicit LspKeeper(Routing::IgpCommon::IgpLevel level);

    Outcome receive(const DecodedLsp& lsp);

    /// Decodes one LSP PDU and receives it, except that a newer copy of a
    /// fragment whose flags and TLVs are octet for octet those of the copy
    /// held (the periodic refresh of an unchanged LSP) is neither decoded
    /// nor merged: its checksum is verified and its sequence number taken.
    /// Fragments received this way are held as octets too, for that
    /// comparison. A malformed PDU changes nothing; `error`, when given,
    /// says why.
    Outcome receivePdu(std::span<const std::uint8_t> pdu, DecodeError* error = nullptr);

    const Poldo::Ptr<Routing::IgpCommon::IgpLspDatabase>& database() const noexcept { return db_; }
    /// LSPs dropped as older or equal, or of the other level.
    std::size_t ignoredCount() const noexcept { return ignored_; }
    /// Newer copies taken by receivePdu() without decoding.
    std::size_t refreshedCount() const noexcept { return refreshed_; }
    /// Fragments currently held (purged ones excluded).
    std::size_t fragmentCount() const noexcept;
    /// Fragments currently held of one node (purged ones excluded).
    std::size_t fragmentCount(const Routing::IgpCommon::IgpNodeId& id) const noexcept;

private:
    struct Fragment {
        std::uint32_t seq = 0;
        // Null once purged: the sequence number stays to refuse older copies.
        Poldo::Ptr<Routing::IgpCommon::IsisLspParsedContent> content;
        // The PDU as received by receivePdu(); empty otherwise.
        std::vector<std::uint8_t> octets;
    };
    using Fragments = std::map<std::uint8_t, Fragment>;

    Fragment* heldFragment(const Routing::IgpCommon::IgpNodeId& id, std::uint8_t fragment);
    void rebuild(const Routing::IgpCommon::IgpNodeId& id, const Fragments& frags);

    Routing::IgpCommon::IgpLevel level_;
    Poldo::Ptr<Routing::IgpCommon::IgpLspDatabase> db_;
    std::map<Routing::IgpCommon::IgpNodeId, Fragments> nodes_;
    std::size_t ignored_ = 0;
    std::size_t refreshed_ = 0;
};

}  // namespace Routing::IsisDecoder
