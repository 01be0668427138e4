// The receive side of one IS-IS level: keeps the newest copy of every LSP
// fragment and merges each node's current fragments into its database entry.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>

#include "IgpCommon/IgpLsp.h"
#include "IsisDecoder/Decoder.h"

namespace Routing::IsisDecoder {

class LspKeeper {
public:
    enum class Outcome : std::uint8_t {
        installed,  // newer than what was held; the node's entry was merged
        purged,     // lifetime 0: the fragment is gone (and the entry, with its last fragment)
        ignored,    // not newer than what is held, or another level's LSP
    };

    explicit LspKeeper(Routing::IgpCommon::IgpLevel level);

    Outcome receive(const DecodedLsp& lsp);

    const Poldo::Ptr<Routing::IgpCommon::IgpLspDatabase>& database() const noexcept { return db_; }
    /// LSPs dropped as older or equal, or of the other level.
    std::size_t ignoredCount() const noexcept { return ignored_; }
    /// Fragments currently held (purged ones excluded).
    std::size_t fragmentCount() const noexcept;
    /// Fragments currently held of one node (purged ones excluded).
    std::size_t fragmentCount(const Routing::IgpCommon::IgpNodeId& id) const noexcept;

private:
    struct Fragment {
        std::uint32_t seq = 0;
        // Null once purged: the sequence number stays to refuse older copies.
        Poldo::Ptr<Routing::IgpCommon::IsisLspParsedContent> content;
    };
    using Fragments = std::map<std::uint8_t, Fragment>;

    void rebuild(const Routing::IgpCommon::IgpNodeId& id, const Fragments& frags);

    Routing::IgpCommon::IgpLevel level_;
    Poldo::Ptr<Routing::IgpCommon::IgpLspDatabase> db_;
    std::map<Routing::IgpCommon::IgpNodeId, Fragments> nodes_;
    std::size_t ignored_ = 0;
};

}  // namespace Routing::IsisDecoder
