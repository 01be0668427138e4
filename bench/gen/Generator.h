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

/// One adjacency as one side advertises it (an IS reachability entry).
struct LinkPlan {
    IC::IgpNodeId neighbor;
    std::uint16_t mtId = 0;
    std::uint32_t metric = 0;
    std::optional<Lumo::IpAddr> localV4, remoteV4;
    std::optional<Lumo::Ip6Addr> localV6, remoteV6;
    // TE attributes (RFC 5305 3, RFC 7308); absent on pseudonode links.
    bool te = false;
    std::uint32_t adminGroup = 0;
    float maxBw = 0, maxRsvBw = 0;
    std::array<float, 8> unrsvBw{};
    std::uint32_t teMetric = 0;
    std::vector<std::uint32_t> extAdminGroup;
    std::vector<IC::AdjacencySid> adjSids;
    std::vector<IC::LanAdjacencySid> lanAdjSids;
    // SRLGs of the link: advertised by its local IPv4 address (TLV 138) and,
    // when srlgV6, also by its local IPv6 address (TLV 139).
    std::vector<std::uint32_t> srlgs;
    bool srlgV6 = false;
};

struct PrefixPlan {
    Lumo::IpGenPrefix prefix;
    std::uint16_t mtId = 0;
    std::uint32_t metric = 0;
    bool down = false;
    std::optional<IC::PrefixSid> sid;  // algorithm 0 only: the model keeps no other
    std::vector<std::pair<std::uint8_t, std::uint32_t>> flexAlgoMetrics;
};

/// A SID/label binding (TLV 149) on a prefix that is advertised for nothing else.
struct BindingPlan {
    Lumo::IpGenPrefix prefix;
    std::uint8_t flags = 0;  // protocol octet; 0x80 (F) for IPv6
    std::uint16_t range = 0;
    // A 3-octet label (SID/label sub-TLV) or a prefix SID sub-TLV.
    std::optional<std::uint32_t> label;
    std::optional<IC::PrefixSid> prefixSid;
};

struct SrBlockPlan {
    std::uint8_t flags = 0;                                       // protocol octet (I, V)
    std::vector<std::pair<std::uint32_t, std::uint32_t>> ranges;  // size, first label
};

struct FadPlan {
    std::uint8_t algo = 0, metricType = 0, calcType = 0, priority = 0;
    std::vector<std::uint32_t> excludeAny, includeAny, includeAll, excludeSrlg;
};

/// Everything one node advertises (all its fragments together).
struct LspPlan {
    IC::IgpNodeId id;
    bool overload = false;
    bool attached = false;
    std::string hostName;
    std::vector<std::vector<std::uint8_t>> areas;
    Lumo::IpAddr routerIdV4;
    Lumo::Ip6Addr routerIdV6;
    std::vector<std::uint16_t> mtIds;
    std::optional<SrBlockPlan> srgb, srlb;
    std::vector<std::pair<std::uint8_t, std::uint8_t>> msds;
    std::vector<FadPlan> fads;
    std::vector<LinkPlan> links;
    std::vector<PrefixPlan> prefixes;
    std::vector<BindingPlan> bindings;

    bool isPseudonode() const noexcept { return id.isPnodeId(); }
    /// Prefix entries of the parsed content: reachable prefixes plus bindings.
    std::size_t prefixEntries() const noexcept { return prefixes.size() + bindings.size(); }
};

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
