// A deterministic generator of IS-IS link-state databases for benchmarks,
// tests and tools.
//
// generate() lays out a domain of N routers from a fixed seed: a ring of
// point-to-point links with random chords (about 6.5 links per router, some
// parallel), multi-access LANs of three to five routers each with a pseudonode
// (one LAN per eight routers), and a fifth of the point-to-point links also in
// the IPv6 topology (MT 2). Every router advertises about eight neighbors with
// addresses, TE attributes, adjacency SIDs and SRLGs, about twenty prefixes
// (loopbacks with prefix SIDs and flex-algo metrics, link subnets, a service
// prefix, two SID/label bindings), and its node attributes (areas, host name,
// router IDs, SRGB, SRLB, MSD, two flex-algo definitions, MT IDs).
//
// The result is a plain description (LspPlan, one per originating node) that
// buildContent() turns into the parsed content an agent's decoder would
// produce, and that the encoder (Encoder.h) turns into LSP PDUs; decoding
// those PDUs yields the same content.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "IgpCommon/IgpLsp.h"
#include "IsisDecoder/LspPlan.h"

namespace IgpBench {

namespace IC = Routing::IgpCommon;

/// SplitMix64: tiny, fast and the same on every platform (the standard
/// distributions are not), so a seed names one database everywhere.
class Rng {
public:
    explicit Rng(std::uint64_t seed) noexcept : s_(seed) {}
    std::uint64_t next() noexcept {
        std::uint64_t z = (s_ += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
    /// Uniform in [0, n) for n > 0 (multiply-shift; the bias is far below what matters here).
    std::uint32_t below(std::uint32_t n) noexcept {
        return static_cast<std::uint32_t>(((next() >> 32) * n) >> 32);
    }
    /// True with probability `percent` / 100.
    bool chance(std::uint32_t percent) noexcept { return below(100) < percent; }

private:
    std::uint64_t s_;
};

// The plans live beside the encoder, in the decoder component.
using Routing::IsisDecoder::BindingPlan;
using Routing::IsisDecoder::FadPlan;
using Routing::IsisDecoder::LinkPlan;
using Routing::IsisDecoder::LspPlan;
using Routing::IsisDecoder::PrefixPlan;
using Routing::IsisDecoder::SrBlockPlan;

struct Topology {
    std::uint32_t routers = 0;
    std::uint32_t pseudonodes = 0;
    std::size_t neighbors = 0;  // neighbor entries over all LSPs
    std::size_t prefixes = 0;   // prefix entries (bindings included)
    std::size_t bindings = 0;
    std::vector<LspPlan> lsps;  // routers first, then pseudonodes
};

/// The domain of `routers` routers (at least 8) drawn from `seed`.
Topology generate(std::uint32_t routers, std::uint64_t seed);

/// What to build of an LSP: everything, or only part of it (to attribute
/// memory to nodes, neighbors and prefixes separately).
struct BuildParts {
    bool neighbors = true;
    bool prefixes = true;
};

/// The parsed content a decoder produces for `lsp`, built through the
/// library's public API.
Poldo::Ptr<IC::IsisLspParsedContent> buildContent(const LspPlan& lsp, BuildParts parts = {});

/// The agent's merge of one parsed content into its database: a new entry,
/// or the node attributes, neighbors and prefixes merged into the existing one.
void mergeContent(IC::IgpLspDatabase& db, const Poldo::Ptr<IC::IsisLspParsedContent>& content);

/// A changed copy of part of a topology: `percent` of all neighbor entries
/// change their metric and `percent` of all reachable prefixes disappear.
/// Merging `changed` into a database of `base`, then the originals back,
/// makes the prefixes go and come back.
struct Churn {
    std::vector<std::size_t> lspIndex;  // into Topology::lsps, ascending
    std::vector<LspPlan> changed;       // parallel to lspIndex
    std::size_t metricChanges = 0;
    std::size_t prefixRemovals = 0;
};
Churn makeChurn(const Topology& base, std::uint32_t percent, std::uint64_t seed);

}  // namespace IgpBench
