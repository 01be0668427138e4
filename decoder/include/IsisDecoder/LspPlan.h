// A plain description of what one IS-IS node advertises (all its LSP
// fragments together), that the encoder (Encoder.h) turns into LSP PDUs.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "IgpCommon/IgpLsp.h"

namespace Routing::IsisDecoder {

/// One adjacency as one side advertises it (an IS reachability entry).
struct LinkPlan {
    Routing::IgpCommon::IgpNodeId neighbor;
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
    std::vector<Routing::IgpCommon::AdjacencySid> adjSids;
    std::vector<Routing::IgpCommon::LanAdjacencySid> lanAdjSids;
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
    std::optional<Routing::IgpCommon::PrefixSid> sid;  // algorithm 0 only: the model keeps no other
    std::vector<std::pair<std::uint8_t, std::uint32_t>> flexAlgoMetrics;
};

/// A SID/label binding (TLV 149) on a prefix that is advertised for nothing else.
struct BindingPlan {
    Lumo::IpGenPrefix prefix;
    std::uint8_t flags = 0;  // protocol octet; 0x80 (F) for IPv6
    std::uint16_t range = 0;
    // A 3-octet label (SID/label sub-TLV) or a prefix SID sub-TLV.
    std::optional<std::uint32_t> label;
    std::optional<Routing::IgpCommon::PrefixSid> prefixSid;
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
    Routing::IgpCommon::IgpNodeId id;
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

}  // namespace Routing::IsisDecoder
