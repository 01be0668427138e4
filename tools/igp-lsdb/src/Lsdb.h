// Building the per-level link-state databases from captured frames: each
// frame's IS-IS PDU is found, LSPs are decoded and handed to the level's
// LspKeeper; everything else is counted. A malformed PDU changes nothing: it
// is counted by level and reason, and the first maxListedMalformed are kept
// with their frames for the final report, so that memory stays flat whatever
// the capture holds.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "Capture.h"
#include "Completeness.h"
#include "IgpCommon/IgpLsp.h"
#include "IsisDecoder/LspKeeper.h"

namespace IgpLsdb {

namespace IC = Routing::IgpCommon;
namespace ID = Routing::IsisDecoder;

/// Where something was read: the capture's position on the command line
/// (1-based; 0 for changes computed by a diff) and the frame in it.
struct FrameRef {
    std::size_t capture = 0;
    unsigned frame = 0;
    std::int64_t time = 0;  // the frame's capture time, microseconds since 1970-01-01 UTC
};

struct Malformed {
    FrameRef where;
    std::string captureName;
    unsigned level = 0;  // from the PDU type; 0 when the frame itself was bad
    std::string reason;  // DecodeError or frame status name
    std::string message;
};

/// What happened to the LSPs of one node.
struct LspCounters {
    std::size_t received = 0;
    std::size_t installed = 0;
    std::size_t purges = 0;
    std::size_t ignoredAsOld = 0;

    LspCounters& operator+=(const LspCounters& o) noexcept;
};

struct FrameCounters {
    std::size_t frames = 0;
    std::size_t lsps = 0;       // LSP PDUs, well-formed or not, of every level
    std::size_t otherIsis = 0;  // hellos, sequence number PDUs
    std::size_t notIsis = 0;
};

/// Told how far reading has come, at most five times a second.
using ProgressFn = std::function<void(const Capture&, unsigned frames)>;

class Lsdb {
public:
    /// `level` 1 or 2 keeps only that level's LSPs; 0 keeps both.
    explicit Lsdb(unsigned level);

    /// Run around the merge of each well-formed LSP, so that an observer of the
    /// databases knows which LSP caused what it hears.
    std::function<void(const FrameRef&, unsigned level, const IC::IgpNodeId&)> beforeMerge;
    std::function<void()> afterMerge;

    /// Told of each frame before it is read: true ends reading there, this
    /// capture's frame and every later one unread (a moment to stop at).
    std::function<bool(const FrameRef&)> stopAt;

    /// Reads every frame of `capture`, the `index`-th one given (1-based).
    /// False on a read error, with capture.error() saying why.
    bool read(Capture& capture, std::size_t index, const ProgressFn& progress = {});

    /// The frame that brought the held copy of a fragment, if it is held.
    const FrameRef* receivedIn(unsigned level, const IC::IgpNodeId& id, std::uint8_t fragment) const;
    /// The last frame read; a default FrameRef before any.
    const FrameRef& lastFrame() const noexcept { return last_; }

    /// The levels kept, ascending.
    const std::vector<unsigned>& levels() const noexcept { return levels_; }
    const ID::LspKeeper& keeper(unsigned level) const { return *keepers_.at(level); }
    ID::LspKeeper& keeper(unsigned level) { return *keepers_.at(level); }

    /// LSP outcomes per node of a level.
    const std::map<IC::IgpNodeId, LspCounters>& lspCounters(unsigned level) const {
        return lspCounters_.at(level);
    }
    const FrameCounters& frameCounters() const noexcept { return frames_; }
    const Completeness& completeness(unsigned level) const { return completeness_.at(level); }
    /// The first maxListedMalformed malformed PDUs, in the order read.
    const std::vector<Malformed>& malformed() const noexcept { return malformed_; }
    /// Every malformed PDU, counted by level (0: the frame itself) and reason.
    const std::map<std::pair<unsigned, std::string>, std::size_t>& malformedCounts() const noexcept {
        return malformedCounts_;
    }
    std::size_t malformedTotal() const noexcept { return malformedTotal_; }

    static constexpr std::size_t maxListedMalformed = 1000;

private:
    void lsp(const FrameRef& where, const Capture& capture, std::span<const std::uint8_t> pdu);
    /// Counts a malformed PDU; `message` is only asked for when it is listed.
    template <class MessageFn>
    void noteMalformed(const FrameRef& where, const Capture& capture, unsigned level, const char* reason,
                       MessageFn message);

    std::vector<unsigned> levels_;
    std::map<unsigned, std::unique_ptr<ID::LspKeeper>> keepers_;
    std::map<unsigned, std::map<IC::IgpNodeId, LspCounters>> lspCounters_;
    std::map<unsigned, Completeness> completeness_;
    // Per level, by IgpNodeId::toU64 with the fragment number in its lowest octet.
    std::map<unsigned, std::map<std::uint64_t, FrameRef>> receivedIn_;
    FrameRef last_;
    bool stopped_ = false;
    FrameCounters frames_;
    std::vector<Malformed> malformed_;
    std::map<std::pair<unsigned, std::string>, std::size_t> malformedCounts_;
    std::size_t malformedTotal_ = 0;
};

}  // namespace IgpLsdb
