// Umbo: agent infrastructure for dumping state and for cheap byte hashing.
//
// DumpContext is the sink that every dump writes into. It is an entity, held
// through Poldo::Ptr<DumpContext const>, and comes in three kinds: one that
// writes to a caller's std::ostream (not owned: the stream must outlive the
// context), one that collects the text in a string, and one that keeps
// nothing and only counts bytes, to measure the cost of formatting alone.
// write() is const so that a dump can write through a pointer to const; a
// context is not thread-safe, give each dumping thread its own.
//
// _objDumpPrintf formats printf-style into a context: on the stack when the
// result is shorter than 1 KiB, else into one heap buffer of the exact size.
//
// HashMix is Bob Jenkins' one-at-a-time hash over bytes: unkeyed and
// identical in every process, for checksums and tests of dumps, not for hash
// tables exposed to peers (use Kest::HashState there). A byte costs three
// additions, shifts and xors; value() costs three more and does not disturb
// the state, so mixing can go on after it.
#pragma once

#include <cstdint>
#include <ostream>
#include <string_view>

#include "IgpCommon/framework/Ptr.h"
#include "IgpCommon/framework/String.h"

namespace Umbo {

class DumpContext final : public Poldo::RefCounted {
public:
    /// Writes to `out`, which the caller keeps alive.
    static Poldo::Ptr<DumpContext> dumpContextIs(std::ostream& out);
    /// Collects everything written; read it with text().
    static Poldo::Ptr<DumpContext> dumpContextIs();
    /// Counts bytes and keeps nothing.
    static Poldo::Ptr<DumpContext> discardingDumpContextIs();

    void write(std::string_view s) const;
    /// Bytes written so far, whatever the kind.
    std::uint64_t bytesWritten() const noexcept { return bytes_; }
    /// The collected text; empty for the other kinds.
    Poldo::String text() const { return text_; }

    ~DumpContext() = default;

private:
    enum class Kind : std::uint8_t { stream, collect, discard };
    explicit DumpContext(Kind kind, std::ostream* out = nullptr) noexcept : kind_(kind), out_(out) {}

    Kind kind_;
    std::ostream* out_;
    mutable Poldo::String text_;
    mutable std::uint64_t bytes_ = 0;
};

/// printf into `ctx`. A null context is a broken invariant (asserted).
void _objDumpPrintf(const Poldo::Ptr<DumpContext const>& ctx, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

class HashMix {
public:
    explicit HashMix(std::uint32_t start = 0) noexcept : h_(start) {}

    void mix(std::uint8_t b) noexcept {
        h_ += b;
        h_ += h_ << 10;
        h_ ^= h_ >> 6;
    }

    /// The final avalanche applied to a copy of the state.
    std::uint32_t value() const noexcept {
        std::uint32_t h = h_;
        h += h << 3;
        h ^= h >> 11;
        h += h << 15;
        return h;
    }

private:
    std::uint32_t h_;
};

}  // namespace Umbo
