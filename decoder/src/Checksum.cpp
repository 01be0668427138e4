// The LSP checksum of ISO 10589 7.3.11.
#include <bit>
#include <cstring>

#include "LspDecoder.h"

namespace Routing::IsisDecoder {

using detail::headerLength;

namespace {

// The two Fletcher sums of ISO 10589 7.3.11 (the algorithm of RFC 1008 and
// ISO 8473 Annex C) over `data`, each reduced mod 255. The modulo is
// deferred: from reduced sums, n more octets leave c1 below 255 (n + 1)^2,
// so 64-bit sums reduced every `chunk` octets never overflow.
struct FletcherSums {
    std::uint32_t c0;
    std::uint32_t c1;
};

// A block of K 8-octet words at once. Their even octets b0 b2 b4 b6 and
// odd ones b1 b3 b5 b7 go to the four 16-bit lanes of two words: A sums the
// lanes over the words, and B sums A after each word, so B holds the sum of
// (K - k) times word k's lanes. An octet i of the n = 8K octets enters
// n - i running sums, and n - i = 8 (K - k) - j for octet j of word k: so c1
// gains n c0 + 8 (lanes of B) - (j times lane j of A), c0 the lanes of A.
// With 15 words a lane of the even and odd B together stays below
// 2 * 255 * 15 * 16 / 2 < 2^16, and the lane sums of A below 2^16 too, so
// multiplying by a constant adds lanes into the top one without carries.
constexpr std::size_t blockWords = 15;
constexpr std::uint64_t lanes = 0x00FF00FF00FF00FFull;
constexpr std::uint64_t spread = 0x0001000100010001ull;  // top lane: x0 + x1 + x2 + x3
constexpr std::uint64_t ramp = 0x0000000100020003ull;    // top lane: x1 + 2 x2 + 3 x3

FletcherSums fletcher(std::span<const std::uint8_t> data) noexcept {
    constexpr std::size_t chunk = std::size_t{1} << 20;
    std::uint64_t c0 = 0;
    std::uint64_t c1 = 0;
    const std::uint8_t* p = data.data();
    std::size_t left = data.size();
    while (left != 0) {
        std::size_t n = left < chunk ? left : chunk;
        left -= n;
        while (n >= 8) {
            const std::size_t words = n / 8 < blockWords ? n / 8 : blockWords;
            std::uint64_t aEven = 0, aOdd = 0, bEven = 0, bOdd = 0;
            for (std::size_t k = 0; k < words; ++k, p += 8) {
                std::uint64_t v;
                std::memcpy(&v, p, 8);
                if constexpr (std::endian::native == std::endian::big) {
                    v = __builtin_bswap64(v);  // b0 in the low octet, as on x86-64
                }
                aEven += v & lanes;
                aOdd += (v >> 8) & lanes;
                bEven += aEven;
                bOdd += aOdd;
            }
            // Octet j of a word sits in lane j / 2 of A: j = 2 lane (+ 1 if odd).
            const std::uint64_t a = aEven + aOdd;
            const std::uint64_t weighted = 2 * ((a * ramp) >> 48) + ((aOdd * spread) >> 48);
            const std::uint64_t b = bEven + bOdd;
            const std::uint64_t bPairs = (b & 0x0000FFFF0000FFFFull) + ((b >> 16) & 0x0000FFFF0000FFFFull);
            const std::uint64_t bSum = (bPairs & 0xFFFFFFFFu) + (bPairs >> 32);
            const std::uint64_t octets = 8 * words;
            c1 += octets * c0 + 8 * bSum - weighted;
            c0 += (a * spread) >> 48;
            n -= octets;
        }
        for (; n != 0; --n, ++p) {
            c0 += *p;
            c1 += c0;
        }
        c0 %= 255;
        c1 %= 255;
    }
    return {static_cast<std::uint32_t>(c0), static_cast<std::uint32_t>(c1)};
}

// The LSP ID starts the checksummed range, the checksum is octets 24 and 25.
constexpr std::size_t checksumFrom = 12;
constexpr std::size_t checksumAt = 24;

}  // namespace

bool lspChecksumValid(std::span<const std::uint8_t> pdu) noexcept {
    if (pdu.size() < headerLength) {
        return false;
    }
    // ISO 10589 7.3.11: both Fletcher sums over LSP ID .. end are 0 mod 255.
    const FletcherSums s = fletcher(pdu.subspan(checksumFrom));
    return s.c0 == 0 && s.c1 == 0;
}

void fillLspChecksum(std::span<std::uint8_t> pdu) noexcept {
    if (pdu.size() < headerLength) {
        return;
    }
    // ISO 8473 Annex C.2 (RFC 1008): with the checksum octets 0, choose them
    // so that both sums end at 0; a 0 result is sent as 255, 0 meaning "no
    // checksum".
    pdu[checksumAt] = pdu[checksumAt + 1] = 0;
    const FletcherSums s = fletcher(pdu.subspan(checksumFrom));
    const auto len = static_cast<std::int64_t>(pdu.size() - checksumFrom);
    const std::int64_t pos = checksumAt - checksumFrom + 1;  // 1-based, in the summed range
    std::int64_t x = ((len - pos) * s.c0 - s.c1) % 255;
    if (x <= 0) {
        x += 255;
    }
    std::int64_t y = (s.c1 - (len - pos + 1) * s.c0) % 255;
    if (y <= 0) {
        y += 255;
    }
    pdu[checksumAt] = static_cast<std::uint8_t>(x);
    pdu[checksumAt + 1] = static_cast<std::uint8_t>(y);
}

namespace detail {

bool checksumValidAfterEdit(std::span<const std::uint8_t> valid, std::span<const std::uint8_t> pdu,
                            std::size_t from, std::size_t to) noexcept {
    if (pdu.size() != valid.size() || pdu.size() < headerLength || from < checksumFrom || to < from ||
        to > pdu.size()) {
        return false;
    }
    // Octet i enters c0 once and c1 once per running sum from it to the end:
    // (size - i) times. Differences are kept non-negative mod 255.
    std::uint64_t d0 = 0;
    std::uint64_t d1 = 0;
    for (std::size_t i = from; i < to; ++i) {
        const std::uint64_t d = 255u + pdu[i] - valid[i];
        d0 += d;
        d1 += d * (pdu.size() - i);
    }
    return d0 % 255 == 0 && d1 % 255 == 0;
}

}  // namespace detail

bool lspChecksumAccepted(const LspHeader& h, std::span<const std::uint8_t> pdu) noexcept {
    // A purge may carry checksum 0 (its body is gone); anything else must add up.
    if (h.isPurge() && h.checksum == 0) {
        return true;
    }
    return h.checksum != 0 && lspChecksumValid(pdu.first(h.pduLength));
}

}  // namespace Routing::IsisDecoder
