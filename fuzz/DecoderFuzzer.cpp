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
// Checks: no crash, leak or read outside the buffer; a rejected PDU leaves both databases exactly as
// they were (their dumps before and after are equal) and leaves no object alive; whatever is in a
// database sits under its own node id and dumps; keepers fed the same PDUs raw (receivePdu, which
// takes unchanged refreshes without decoding) agree with them on every outcome and database; after
// teardown no tracked object is alive.
//
// A record is one PDU today. To fuzz link-layer frames, let `pduOf` parse the record as a frame.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "IgpCommon/IgpLsp.h"
#include "IsisDecoder/Decoder.h"
#include "IsisDecoder/LspKeeper.h"

namespace {

namespace IC = Routing::IgpCommon;
namespace D = Routing::IsisDecoder;

/// The PDU a record carries, or nothing when the record is no PDU at all.
std::optional<std::span<const std::uint8_t>> pduOf(std::span<const std::uint8_t> record) {
    return record;
}

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

std::string dump(const D::LspKeeper& keeper) {
    auto ctx = Umbo::DumpContext::dumpContextIs();
    keeper.database()->dumpState(ctx, 0);
    return ctx->text();
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

/// The keepers of both levels, fed decoded LSPs (`l1`, `l2`) or raw PDUs (`p1`, `p2`).
struct Keepers {
    D::LspKeeper l1{IC::igpLevelIsisLevel1};
    D::LspKeeper l2{IC::igpLevelIsisLevel2};
    D::LspKeeper p1{IC::igpLevelIsisLevel1};
    D::LspKeeper p2{IC::igpLevelIsisLevel2};
};

/// receivePdu() of the same PDU to the raw keepers: the same outcome as the
/// decoded path (a refresh where that installed), and the same databases.
void receiveRaw(std::span<const std::uint8_t> pdu, Keepers& k, std::optional<D::LspKeeper::Outcome> decoded,
                unsigned level) {
    using Outcome = D::LspKeeper::Outcome;
    D::DecodeError why;
    const Outcome o1 = k.p1.receivePdu(pdu, &why);
    const Outcome o2 = k.p2.receivePdu(pdu, &why);
    if (!decoded) {
        IgpFuzz::check(o1 == Outcome::rejected && o2 == Outcome::rejected, "receivePdu took a malformed PDU");
    } else {
        const Outcome mine = level == 1 ? o1 : o2;
        const Outcome other = level == 1 ? o2 : o1;
        IgpFuzz::check(other == Outcome::ignored, "receivePdu took the other level's LSP");
        IgpFuzz::check(mine == *decoded || (mine == Outcome::refreshed && *decoded == Outcome::installed),
                       "receivePdu and receive disagree on a PDU");
    }
    IgpFuzz::check(dump(k.p1) == dump(k.l1) && dump(k.p2) == dump(k.l2),
                   "the keepers fed raw PDUs and decoded ones hold different databases");
}

void receive(std::span<const std::uint8_t> record, bool fixSum, Keepers& k) {
    D::LspKeeper& l1 = k.l1;
    D::LspKeeper& l2 = k.l2;
    const auto pdu = pduOf(record);
    if (!pdu) {
        return;
    }
    // A buffer of its own exact size: reading past the PDU reads past the allocation.
    std::vector<std::uint8_t> buf(pdu->begin(), pdu->end());
    if (fixSum) {
        fixChecksum(buf);
    }
    const std::string before1 = dump(l1);
    const std::string before2 = dump(l2);
    const IgpFuzz::Census census = IgpFuzz::Census::now();

    const D::DecodeResult result = D::decodeLsp(buf);
    if (!result.ok()) {
        const std::string message = result.error().message();
        IgpFuzz::check(!message.empty(), "a rejection without a message");
        IgpFuzz::check(dump(l1) == before1 && dump(l2) == before2, "a rejected PDU changed a database");
        const std::string leftAlive = IgpFuzz::Census::now().differenceFrom(census);
        IgpFuzz::check(leftAlive.empty(), "a rejected PDU left objects alive", leftAlive);
        receiveRaw(buf, k, std::nullopt, 0);
        return;
    }
    const D::DecodedLsp& lsp = result.lsp();
    IgpFuzz::check(lsp.header.level == 1 || lsp.header.level == 2, "a decoded LSP of no level");
    IgpFuzz::check(lsp.content != nullptr, "a decoded LSP without content");
    IgpFuzz::check(lsp.content->node() != nullptr && lsp.content->node()->nodeId() == lsp.header.nodeId(),
                   "decoded content without the originator's node");
    (void)lsp.header.lspIdText();

    D::LspKeeper& mine = lsp.header.level == 1 ? l1 : l2;
    D::LspKeeper& other = lsp.header.level == 1 ? l2 : l1;
    const std::string otherBefore = lsp.header.level == 1 ? before2 : before1;
    IgpFuzz::check(other.receive(lsp) == D::LspKeeper::Outcome::ignored,
                   "a keeper took the other level's LSP");
    IgpFuzz::check(dump(other) == otherBefore, "an ignored LSP changed the other level's database");
    const D::LspKeeper::Outcome outcome = mine.receive(lsp);
    checkDatabase(mine);
    receiveRaw(buf, k, outcome, lsp.header.level);
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
    }
    const std::string leftAlive = IgpFuzz::Census::now().differenceFrom(before);
    IgpFuzz::check(leftAlive.empty(), "objects alive after teardown", leftAlive);
    return 0;
}
