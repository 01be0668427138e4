// What the fuzz targets share: checks that trap (libFuzzer keeps the input as a crash), the census
// of live objects, the PDU-record input, entries of two databases compared through the descriptions.
#pragma once

#include <concepts>
#include <cstdint>
#include <cstdio>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "IgpCommon/IgpLsp.h"
#include "IgpCommon/platform/Drimm.h"
#include "IsisDecoder/Decoder.h"

namespace IgpFuzz {

[[noreturn]] inline void fail(std::string_view what, std::string_view detail = {}) {
    std::fprintf(stderr, "\n*** fuzz check failed: %.*s\n    %.*s\n", static_cast<int>(what.size()),
                 what.data(), static_cast<int>(detail.size()), detail.data());
    std::fflush(stderr);
    __builtin_trap();
}

/// The detail is only built when the check fails: printing on every input would cost more than
/// the operations checked.
template <class Detail = std::string_view>
void check(bool ok, std::string_view what, Detail&& detail = {}) {
    if (!ok) {
        if constexpr (std::invocable<Detail>) {
            fail(what, std::string(std::forward<Detail>(detail)()));
        } else {
            fail(what, detail);
        }
    }
}

/// Runs `body` and checks that it left no tracked object alive.
template <std::invocable Body>
void leavesNothingAlive(std::string_view what, Body&& body) {
    const std::uint64_t before = Drimm::AllocTracker::totalLive();
    std::forward<Body>(body)();
    const std::uint64_t after = Drimm::AllocTracker::totalLive();
    check(after == before, what, [&] { return std::to_string(after - before) + " more objects alive"; });
}

/// Calls `f(pdu)` for each record after the mode byte: a 2-byte big-endian length and that many
/// octets, copied into a buffer of its own exact size (a read past the PDU reads past the
/// allocation). Unless mode bit 0 keeps them as received, each LSP checksum (ISO 10589 7.3.11) is
/// recomputed, so that mutations reach the TLVs instead of dying at the checksum check.
template <class F>
void forEachPdu(std::span<const std::uint8_t> input, F&& f) {
    if (input.empty()) {
        return;
    }
    const bool fixSums = (input[0] & 1) == 0;
    for (auto rest = input.subspan(1); rest.size() >= 2;) {
        const std::size_t length =
            std::min<std::size_t>(std::size_t{rest[0]} << 8 | rest[1], rest.size() - 2);
        std::vector<std::uint8_t> pdu(rest.begin() + 2,
                                      rest.begin() + 2 + static_cast<std::ptrdiff_t>(length));
        rest = rest.subspan(2 + length);
        const std::size_t end = pdu.size() < 27 ? 0 : std::min(std::size_t{pdu[8]} << 8 | pdu[9], pdu.size());
        if (fixSums && end >= 27) {
            Routing::IsisDecoder::fillLspChecksum(std::span(pdu).first(end));
        }
        f(pdu);
    }
}

/// Two entries (or absences) of different databases hold equal nodes, neighbors and prefixes; `why`
/// names the first difference.
inline bool sameEntry(const Routing::IgpCommon::IgpLsp* a, const Routing::IgpCommon::IgpLsp* b,
                      std::string& why) {
    if (a == nullptr || b == nullptr) {
        why = "present in one only";
        return a == b;
    }
    const auto members = [&](const auto& mine, const auto& theirs, const auto& find) {
        bool same = mine.size() == theirs.size();
        for (auto it = mine.begin(); same && it != mine.end(); ++it) {
            const auto other = find(it->key);
            same = other && Kest::sameAttrs(*it->value, *other);
        }
        return same;
    };
    why = "node";
    if ((a->node() == nullptr) != (b->node() == nullptr) ||
        (a->node() && !Kest::sameAttrs(*a->node(), *b->node()))) {
        return false;
    }
    why = "neighbors";
    if (!members(a->neighbor(), b->neighbor(), [&](const auto& k) { return b->neighbor(k); })) {
        return false;
    }
    why = "prefixes";
    return members(a->prefix(), b->prefix(), [&](const auto& k) { return b->prefix(k); });
}

}  // namespace IgpFuzz
