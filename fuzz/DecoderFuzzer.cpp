// The LSP decoder and the per-level keepers against arbitrary PDUs (see forEachPdu), each PDU decoded
// for the keepers of both levels and given raw (receivePdu) to two more. README.md lists the checks.
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "FuzzSupport.h"
#include "IsisDecoder/LspKeeper.h"

namespace {

namespace IC = Routing::IgpCommon;
namespace D = Routing::IsisDecoder;
using IgpFuzz::check;
using Outcome = D::LspKeeper::Outcome;

/// The entry of `id`, checked to sit under its own id with its own node; null when absent.
const IC::IgpLsp* entryOf(const D::LspKeeper& keeper, const IC::IgpNodeId& id) {
    const auto entry = keeper.database()->lsp(id);
    check(!entry || (entry->nodeId() == id && entry->node() && entry->node()->nodeId() == id),
          "an entry not under its own node id or without its own node");
    return entry.get();  // the database keeps it
}

/// What a keeper holds, in numbers that an added or dropped entry or fragment moves.
struct Counts {
    std::uint32_t entries = 0;
    std::size_t fragments = 0;
    std::size_t ignored = 0;

    explicit Counts(const D::LspKeeper& k)
        : entries(k.database()->lspCount()), fragments(k.fragmentCount()), ignored(k.ignoredCount()) {}
    bool operator==(const Counts&) const = default;
};

/// The keepers of both levels, fed decoded LSPs (`decoded`) or raw PDUs (`raw`).
struct Keepers {
    D::LspKeeper decoded[2]{D::LspKeeper(IC::igpLevelIsisLevel1), D::LspKeeper(IC::igpLevelIsisLevel2)};
    D::LspKeeper raw[2]{D::LspKeeper(IC::igpLevelIsisLevel1), D::LspKeeper(IC::igpLevelIsisLevel2)};

    void checkAgree(const IC::IgpNodeId* id) const {
        for (int l = 0; l < 2; ++l) {
            check(Counts(raw[l]) == Counts(decoded[l]),
                  "the keepers fed raw PDUs and decoded ones count other entries, fragments or ignored LSPs");
            if (id) {
                std::string why;
                check(IgpFuzz::sameEntry(entryOf(decoded[l], *id), entryOf(raw[l], *id), why),
                      "the keepers fed raw PDUs and decoded ones hold another entry for a node", why);
            }
        }
    }

    void checkWhole() const {
        checkAgree(nullptr);
        for (const auto* keepers : {decoded, raw}) {
            for (int l = 0; l < 2; ++l) {
                const IC::IgpLspDatabase& db = *keepers[l].database();
                std::uint32_t entries = 0;
                for (auto it = db.lsp().begin(); it != db.lsp().end(); ++it, ++entries) {
                    const IC::IgpNodeId& id = (*it)->nodeId();
                    check(entryOf(keepers[l], id) == it->get(),
                          "an entry is not found under its own node id");
                    std::string why;
                    check(IgpFuzz::sameEntry(entryOf(decoded[l], id), entryOf(raw[l], id), why),
                          "the keepers fed raw PDUs and decoded ones hold another entry for a node", why);
                }
                check(entries == db.lspCount(), "the database counts another number of entries");
                auto sink = Umbo::DumpContext::discardingDumpContextIs();
                db.dumpState(sink, 0);
            }
        }
    }
};

void receive(std::span<const std::uint8_t> pdu, Keepers& k) {
    const Counts before[2] = {Counts(k.decoded[0]), Counts(k.decoded[1])};
    D::DecodeError why;
    const std::uint64_t alive = Drimm::AllocTracker::totalLive();
    const D::DecodeResult result = D::decodeLsp(pdu);
    if (!result.ok()) {
        check(!result.error().message().empty(), "a rejection without a message");
        for (auto& raw : k.raw) {
            check(raw.receivePdu(pdu, &why) == Outcome::rejected, "receivePdu took a malformed PDU");
        }
        // Agreeing counts also say that receivePdu took nothing of it.
        check(Counts(k.decoded[0]) == before[0] && Counts(k.decoded[1]) == before[1],
              "a rejected PDU changed a keeper");
        k.checkAgree(nullptr);
        check(Drimm::AllocTracker::totalLive() == alive, "a rejected PDU left objects alive");
        return;
    }
    const D::DecodedLsp& lsp = result.lsp();
    const int mine = lsp.header.level - 1;
    check(mine == 0 || mine == 1, "a decoded LSP of no level");
    const IC::IgpNodeId id = lsp.header.nodeId();
    check(lsp.content && lsp.content->node() && lsp.content->node()->nodeId() == id,
          "decoded content without the originator's node");
    (void)lsp.header.lspIdText();

    D::LspKeeper& other = k.decoded[1 - mine];
    const IC::IgpLsp* otherEntry = entryOf(other, id);
    check(other.receive(lsp) == Outcome::ignored, "a keeper took the other level's LSP");
    Counts otherBefore = before[1 - mine];
    ++otherBefore.ignored;
    check(Counts(other) == otherBefore && entryOf(other, id) == otherEntry,
          "an ignored LSP changed the other level's keeper");
    const Outcome decoded = k.decoded[mine].receive(lsp);
    const Outcome raw = k.raw[mine].receivePdu(pdu, &why);
    check(k.raw[1 - mine].receivePdu(pdu, &why) == Outcome::ignored, "receivePdu took the other level's LSP");
    check(raw == decoded || (raw == Outcome::refreshed && decoded == Outcome::installed),
          "receivePdu and receive disagree on a PDU");
    k.checkAgree(&id);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    IgpFuzz::leavesNothingAlive("objects alive after teardown", [&] {
        Keepers k;
        IgpFuzz::forEachPdu({data, size}, [&](std::span<const std::uint8_t> pdu) { receive(pdu, k); });
        k.checkWhole();
    });
    return 0;
}
