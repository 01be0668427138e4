// The LSP decoder and the per-level keepers against arbitrary PDUs, as an agent uses them: decode
// each received PDU and hand what decodes to the keeper of both levels (one takes it, the other
// must ignore it).
//
// Input: one mode byte, then records of a 2-byte big-endian length and that many bytes. Each record
// is copied into a buffer of its own exact size, so that a read past its end is a sanitizer report
// rather than a read of the next record. Each PDU's checksum is recomputed before decoding, so that
// mutations reach the TLVs instead of dying at the checksum check, unless mode bit 0 keeps the
// checksums as received.
//
// Keepers fed the same PDUs raw (receivePdu, which takes unchanged refreshes without decoding) must
// agree with them. A receive rebuilds at most the entry of the LSP's node, so after each PDU the
// checks look at that entry and at counts; the whole databases are compared once, at the end.
//   Each PDU: no crash, leak or read outside the buffer; a rejected PDU leaves no object alive and
//   moves no keeper's counts (entries, fragments, ignored LSPs); the other level's keeper ignores an
//   LSP and its entry for that node stays as it was; the entry of the LSP's node sits under its own
//   id with its own node, and is equal in the raw and the decoded keeper of each level; both paths
//   agree on the outcome and on every count.
//   Each input: every entry of every keeper sits under its own node id with its own node, every
//   entry of a decoded keeper equals the raw keeper's, and the decoded databases dump (which prints
//   every decoded value); after teardown no tracked object is alive.
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "EntryState.h"
#include "FuzzSupport.h"
#include "IgpCommon/IgpLsp.h"
#include "IsisDecoder/Decoder.h"
#include "IsisDecoder/LspKeeper.h"

namespace {

namespace IC = Routing::IgpCommon;
namespace D = Routing::IsisDecoder;

/// Sets the ISO 10589 7.3.11 checksum so that the sum over LSP ID .. PDU length adds up.
void fixChecksum(std::vector<std::uint8_t>& pdu) {
    constexpr std::size_t headerLength = 27;
    if (pdu.size() < headerLength) {
        return;
    }
    const std::size_t declared = (std::size_t{pdu[8]} << 8) | pdu[9];
    const std::size_t end = std::min(declared, pdu.size());
    if (end < headerLength) {
        return;
    }
    D::fillLspChecksum(std::span(pdu).first(end));
}

/// The entry of `id`, checked to sit under its own id with its own node; null when absent.
const IC::IgpLsp* entryOf(const D::LspKeeper& keeper, const IC::IgpNodeId& id) {
    const auto entry = keeper.database()->lsp(id);
    if (entry) {
        IgpFuzz::check(entry->nodeId() == id, "an entry is not found under its own node id");
        IgpFuzz::check(entry->node() != nullptr && entry->node()->nodeId() == id,
                       "an entry without its own node");
    }
    return entry.get();  // the database keeps it
}

void checkDatabase(const D::LspKeeper& keeper) {
    const IC::IgpLspDatabase& db = *keeper.database();
    std::size_t entries = 0;
    for (auto it = db.lsp().begin(); it != db.lsp().end(); ++it) {
        const IC::IgpLsp& entry = **it;
        IgpFuzz::check(db.lsp(entry.nodeId()).get() == &entry, "an entry is not found under its own node id");
        IgpFuzz::check(entry.node() != nullptr && entry.node()->nodeId() == entry.nodeId(),
                       "an entry without its own node");
        ++entries;
    }
    IgpFuzz::check(entries == db.lspCount(), "the database counts another number of entries");
}

/// What a keeper holds, in numbers that an added or dropped entry or fragment moves.
struct Counts {
    std::uint32_t entries = 0;
    std::size_t fragments = 0;
    std::size_t ignored = 0;

    static Counts of(const D::LspKeeper& k) {
        return {k.database()->lspCount(), k.fragmentCount(), k.ignoredCount()};
    }
    bool operator==(const Counts&) const = default;
};

/// The keepers of both levels, fed decoded LSPs (`l1`, `l2`) or raw PDUs (`p1`, `p2`).
struct Keepers {
    D::LspKeeper l1{IC::igpLevelIsisLevel1};
    D::LspKeeper l2{IC::igpLevelIsisLevel2};
    D::LspKeeper p1{IC::igpLevelIsisLevel1};
    D::LspKeeper p2{IC::igpLevelIsisLevel2};

    void checkCountsAgree() const {
        IgpFuzz::check(Counts::of(p1) == Counts::of(l1) && Counts::of(p2) == Counts::of(l2),
                       "the keepers fed raw PDUs and decoded ones count other entries, fragments or "
                       "ignored LSPs");
    }
    void checkEntryAgrees(const IC::IgpNodeId& id) const {
        checkSame(entryOf(l1, id), entryOf(p1, id));
        checkSame(entryOf(l2, id), entryOf(p2, id));
    }
    /// Every entry of each level, and the dump of what was decoded: the dump prints every
    /// attribute of every entry, hostile values included.
    void checkWhole() const {
        for (const D::LspKeeper* k : {&l1, &l2, &p1, &p2}) {
            checkDatabase(*k);
        }
        checkCountsAgree();
        for (const auto& [decoded, raw] : {std::pair{&l1, &p1}, std::pair{&l2, &p2}}) {
            const IC::IgpLspDatabase& db = *decoded->database();
            for (auto it = db.lsp().begin(); it != db.lsp().end(); ++it) {
                const IC::IgpNodeId& id = (*it)->nodeId();
                checkSame(entryOf(*decoded, id), entryOf(*raw, id));
            }
            auto sink = Umbo::DumpContext::discardingDumpContextIs();
            db.dumpState(sink, 0);
        }
    }

private:
    static void checkSame(const IC::IgpLsp* decoded, const IC::IgpLsp* raw) {
        IgpFuzz::check(IgpFuzz::sameEntry(decoded, raw),
                       "the keepers fed raw PDUs and decoded ones hold another entry for a node", [&] {
                           return "decoded:\n" + IgpFuzz::EntryState::of(decoded).text() + "raw:\n" +
                                  IgpFuzz::EntryState::of(raw).text();
                       });
    }
};

/// receivePdu() of the same PDU to the raw keepers: the same outcome as the decoded path (a
/// refresh where that installed), the same counts and the same entry for the LSP's node.
void receiveRaw(std::span<const std::uint8_t> pdu, Keepers& k, const D::DecodedLsp* decoded,
                D::LspKeeper::Outcome decodedOutcome) {
    using Outcome = D::LspKeeper::Outcome;
    D::DecodeError why;
    const Outcome o1 = k.p1.receivePdu(pdu, &why);
    const Outcome o2 = k.p2.receivePdu(pdu, &why);
    if (decoded == nullptr) {
        IgpFuzz::check(o1 == Outcome::rejected && o2 == Outcome::rejected, "receivePdu took a malformed PDU");
    } else {
        const bool level1 = decoded->header.level == 1;
        const Outcome mine = level1 ? o1 : o2;
        const Outcome other = level1 ? o2 : o1;
        IgpFuzz::check(other == Outcome::ignored, "receivePdu took the other level's LSP");
        IgpFuzz::check(
            mine == decodedOutcome || (mine == Outcome::refreshed && decodedOutcome == Outcome::installed),
            "receivePdu and receive disagree on a PDU");
    }
    // A rejected PDU moves no count on either path, so agreeing counts also say that receivePdu
    // took nothing of it.
    k.checkCountsAgree();
    if (decoded != nullptr) {
        k.checkEntryAgrees(decoded->header.nodeId());
    }
}

void receive(std::span<const std::uint8_t> record, bool fixSum, Keepers& k) {
    // A buffer of its own exact size: reading past the PDU reads past the allocation.
    std::vector<std::uint8_t> buf(record.begin(), record.end());
    if (fixSum) {
        fixChecksum(buf);
    }
    const Counts before1 = Counts::of(k.l1);
    const Counts before2 = Counts::of(k.l2);
    const IgpFuzz::Census census = IgpFuzz::Census::now();

    const D::DecodeResult result = D::decodeLsp(buf);
    if (!result.ok()) {
        const std::string message = result.error().message();
        IgpFuzz::check(!message.empty(), "a rejection without a message");
        IgpFuzz::check(Counts::of(k.l1) == before1 && Counts::of(k.l2) == before2,
                       "a rejected PDU changed a keeper");
        receiveRaw(buf, k, nullptr, D::LspKeeper::Outcome::rejected);
        const std::string leftAlive = IgpFuzz::Census::now().differenceFrom(census);
        IgpFuzz::check(leftAlive.empty(), "a rejected PDU left objects alive", leftAlive);
        return;
    }
    const D::DecodedLsp& lsp = result.lsp();
    IgpFuzz::check(lsp.header.level == 1 || lsp.header.level == 2, "a decoded LSP of no level");
    IgpFuzz::check(lsp.content != nullptr, "a decoded LSP without content");
    const IC::IgpNodeId id = lsp.header.nodeId();
    IgpFuzz::check(lsp.content->node() != nullptr && lsp.content->node()->nodeId() == id,
                   "decoded content without the originator's node");
    (void)lsp.header.lspIdText();

    D::LspKeeper& mine = lsp.header.level == 1 ? k.l1 : k.l2;
    D::LspKeeper& other = lsp.header.level == 1 ? k.l2 : k.l1;
    Counts otherBefore = lsp.header.level == 1 ? before2 : before1;
    const IgpFuzz::EntryState otherEntryBefore = IgpFuzz::EntryState::of(entryOf(other, id));
    IgpFuzz::check(other.receive(lsp) == D::LspKeeper::Outcome::ignored,
                   "a keeper took the other level's LSP");
    ++otherBefore.ignored;
    IgpFuzz::check(Counts::of(other) == otherBefore &&
                       same(IgpFuzz::EntryState::of(entryOf(other, id)), otherEntryBefore),
                   "an ignored LSP changed the other level's keeper");
    const D::LspKeeper::Outcome outcome = mine.receive(lsp);
    receiveRaw(buf, k, &lsp, outcome);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const IgpFuzz::Census before = IgpFuzz::Census::now();
    {
        const bool fixSum = (data[0] & 1) == 0;
        Keepers k;
        std::span<const std::uint8_t> rest(data + 1, size - 1);
        while (rest.size() >= 2) {
            const std::size_t length =
                std::min<std::size_t>((std::size_t{rest[0]} << 8) | rest[1], rest.size() - 2);
            receive(rest.subspan(2, length), fixSum, k);
            rest = rest.subspan(2 + length);
        }
        k.checkWhole();
    }
    const std::string leftAlive = IgpFuzz::Census::now().differenceFrom(before);
    IgpFuzz::check(leftAlive.empty(), "objects alive after teardown", leftAlive);
    return 0;
}
