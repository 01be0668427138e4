#include "Generator.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <unordered_set>

namespace IgpBench {

namespace {

// Address plan (all documentation or private space):
//   router loopbacks      10.128.0.0 + n /32, 2001:db8:ffff::n /128  (n = router index + 1)
//   point-to-point link L 10.0.0.0 + 2L /31,   2001:db8:1::2L /127
//   LAN k                 10.64.0.0 + 16k /28, 2001:db8:2:k::/64
//   service prefixes      100.64.0.0 + 16i /28
//   bindings              198.18.0.0 + i /32,  2001:db8:3::n /128
constexpr std::uint32_t maxRouters = 131072;  // the binding block holds that many
constexpr std::uint32_t srgbFirst = 16000;
constexpr std::uint32_t srgbSize = 131072;
constexpr std::uint32_t srlbFirst = 15000;
constexpr std::uint32_t srlbSize = 1000;
constexpr std::uint32_t v6LoopbackIndexBase = 65536;

IC::IgpNodeId nodeId(std::uint32_t router, std::uint8_t pseudonode = 0) {
    const std::uint32_t n = router + 1;
    const std::uint8_t b[7] = {0x19,
                               0x21,
                               0x68,
                               static_cast<std::uint8_t>(n >> 16),
                               static_cast<std::uint8_t>(n >> 8),
                               static_cast<std::uint8_t>(n),
                               pseudonode};
    return IC::IgpNodeId::fromBytes(b);
}

Routing::Isis::SystemId systemId(std::uint32_t router) {
    const IC::IgpNodeId id = nodeId(router);
    std::array<std::uint8_t, 6> b{};
    for (unsigned i = 0; i < 6; ++i) {
        b[i] = id.bytes().slot(i);
    }
    return Routing::Isis::SystemId(b);
}

Lumo::IpAddr v4(std::uint32_t base, std::uint32_t offset) {
    return Lumo::IpAddr(base + offset);
}

constexpr std::uint32_t dotted(unsigned a, unsigned b, unsigned c, unsigned d) {
    return (a << 24) | (b << 16) | (c << 8) | d;
}

/// 2001:db8:<g2>:<g3>::<low as two groups>
Lumo::Ip6Addr v6(std::uint16_t g2, std::uint16_t g3, std::uint32_t low) {
    std::uint8_t b[16] = {0x20, 0x01, 0x0d, 0xb8};
    b[4] = static_cast<std::uint8_t>(g2 >> 8);
    b[5] = static_cast<std::uint8_t>(g2);
    b[6] = static_cast<std::uint8_t>(g3 >> 8);
    b[7] = static_cast<std::uint8_t>(g3);
    b[12] = static_cast<std::uint8_t>(low >> 24);
    b[13] = static_cast<std::uint8_t>(low >> 16);
    b[14] = static_cast<std::uint8_t>(low >> 8);
    b[15] = static_cast<std::uint8_t>(low);
    return Lumo::Ip6Addr::fromBytes(b);
}

Lumo::IpGenPrefix prefix4(Lumo::IpAddr a, std::uint8_t len) {
    return Lumo::IpGenPrefix(a, len);
}
Lumo::IpGenPrefix prefix6(const Lumo::Ip6Addr& a, std::uint8_t len) {
    return Lumo::IpGenPrefix(a, len);
}

// The attributes both ends of a point-to-point link advertise alike.
struct P2pLink {
    std::uint32_t a = 0, b = 0;
    std::uint32_t metric = 0;
    std::uint32_t adminGroup = 0;
    float maxBw = 0;
    std::uint32_t teMetric = 0;
    std::vector<std::uint32_t> extAdminGroup;
    std::vector<std::uint32_t> srlgs;
    bool srlgV6 = false;
    bool mt2 = false;
};

P2pLink drawLink(Rng& rng, std::uint32_t a, std::uint32_t b, std::size_t index) {
    static constexpr float bandwidths[] = {1.25e9f, 5e9f, 1.25e10f};  // 10, 40, 100 Gb/s in bytes/s
    P2pLink l;
    l.a = a;
    l.b = b;
    l.metric = 10 * (1 + rng.below(20));
    l.adminGroup = 1u << rng.below(8);
    l.maxBw = bandwidths[rng.below(3)];
    l.teMetric = l.metric + rng.below(100);
    if (rng.chance(25)) {
        l.extAdminGroup.push_back(static_cast<std::uint32_t>(rng.next() >> 32));
        if (rng.chance(50)) {
            l.extAdminGroup.push_back(static_cast<std::uint32_t>(rng.next() >> 32));
        }
    }
    if (rng.chance(50)) {
        const std::uint32_t first = 1 + rng.below(500);
        l.srlgs.push_back(first);
        if (rng.chance(50)) {
            l.srlgs.push_back(first + 1 + rng.below(500));
        }
        l.srlgV6 = rng.chance(50);
    }
    l.mt2 = index % 5 == 0;
    return l;
}

struct Lan {
    std::vector<std::uint32_t> members;
    IC::IgpNodeId pseudonode;
};

// Adjacency and LAN adjacency SIDs are labels (V and L set) from the SRLB.
constexpr std::uint8_t adjSidV4Flags = 0x30;
constexpr std::uint8_t adjSidV6Flags = 0xB0;  // F: an IPv6 adjacency

void fillRouterNode(LspPlan& s, std::uint32_t i, Rng& rng) {
    const std::uint32_t n = i + 1;
    char name[16];
    std::snprintf(name, sizeof name, "rtr-%06u", static_cast<unsigned>(n));
    s.hostName = name;
    s.attached = i % 97 == 3;
    s.overload = i % 211 == 5;
    s.areas.push_back({0x49, 0x00, 0x01});
    if (rng.chance(10)) {
        s.areas.push_back({0x49, 0x00, 0x02});
    }
    s.routerIdV4 = v4(dotted(10, 128, 0, 0), n);
    s.routerIdV6 = v6(0xffff, 0, n);
    s.mtIds = {0, 2};
    SrBlockPlan srgb;
    srgb.flags = 0xC0;  // MPLS IPv4 and IPv6
    srgb.ranges.emplace_back(srgbSize, srgbFirst);
    if (rng.chance(10)) {
        srgb.ranges.emplace_back(1000, 900000);
    }
    s.srgb = srgb;
    s.srlb = SrBlockPlan{0, {{srlbSize, srlbFirst}}};
    s.msds = {{1, 10}};  // base MPLS imposition
    s.fads.push_back(FadPlan{128, 0, 0, 128, {}, {}, {}, {}});
    s.fads.push_back(FadPlan{129, 1, 0, 100, {0x1}, {}, {}, {7, 9}});
}

void addRouterPrefixes(LspPlan& s, std::uint32_t i, Rng& rng) {
    const std::uint32_t n = i + 1;
    PrefixPlan lo4;
    lo4.prefix = prefix4(v4(dotted(10, 128, 0, 0), n), 32);
    lo4.metric = 10;
    lo4.sid = IC::PrefixSid(0x40, n, 0, true);  // N: a node SID
    lo4.flexAlgoMetrics = {{128, 10}, {129, 10}};
    s.prefixes.push_back(lo4);
    PrefixPlan lo6;
    lo6.prefix = prefix6(v6(0xffff, 0, n), 128);
    lo6.metric = 10;
    lo6.sid = IC::PrefixSid(0x40, v6LoopbackIndexBase + n, 0, true);
    lo6.flexAlgoMetrics = {{128, 10}, {129, 10}};
    s.prefixes.push_back(lo6);
    PrefixPlan mt2 = lo6;
    mt2.mtId = 2;
    mt2.sid.reset();
    mt2.flexAlgoMetrics.clear();
    s.prefixes.push_back(mt2);
    PrefixPlan service;
    service.prefix = prefix4(v4(dotted(100, 64, 0, 0), 16 * i), 28);
    service.metric = 100 + rng.below(900);
    service.down = rng.chance(5);
    s.prefixes.push_back(service);

    BindingPlan b4;
    b4.prefix = prefix4(v4(dotted(198, 18, 0, 0), i), 32);
    b4.range = static_cast<std::uint16_t>(1 + rng.below(8));
    b4.prefixSid = IC::PrefixSid(0, 100000 + i, 0, true);
    s.bindings.push_back(b4);
    BindingPlan b6;
    b6.prefix = prefix6(v6(3, 0, n), 128);
    b6.flags = static_cast<std::uint8_t>(0x80 | (i % 3 == 0 ? 0x20 : 0));
    b6.range = 1;
    b6.label = 24000 + i % 8000;
    s.bindings.push_back(b6);
}

}  // namespace

Topology generate(std::uint32_t routers, std::uint64_t seed) {
    if (routers < 8 || routers > maxRouters) {
        throw std::invalid_argument("router count must be within 8.." + std::to_string(maxRouters));
    }
    Rng rng(seed);
    Topology t;
    t.routers = routers;

    // A ring with next and next-but-one neighbors, plus random chords (some of
    // them parallel to ring links, which only their addresses tell apart).
    std::vector<P2pLink> links;
    const std::size_t chords = routers + routers / 4;
    links.reserve(2 * std::size_t{routers} + chords);
    for (std::uint32_t i = 0; i < routers; ++i) {
        links.push_back(drawLink(rng, i, (i + 1) % routers, links.size()));
        links.push_back(drawLink(rng, i, (i + 2) % routers, links.size()));
    }
    for (std::size_t c = 0; c < chords; ++c) {
        const std::uint32_t a = rng.below(routers);
        std::uint32_t b = rng.below(routers - 1);
        b += b >= a ? 1 : 0;
        links.push_back(drawLink(rng, a, b, links.size()));
    }

    std::vector<Lan> lans(std::max<std::uint32_t>(1, routers / 8));
    std::vector<std::uint8_t> pseudonodesOf(routers, 0);
    for (Lan& lan : lans) {
        const std::uint32_t size = 3 + rng.below(3);
        while (lan.members.size() < size) {
            const std::uint32_t m = rng.below(routers);
            if (std::find(lan.members.begin(), lan.members.end(), m) == lan.members.end()) {
                lan.members.push_back(m);
            }
        }
        // The router with the highest system ID is the designated one (ISO 10589 8.4.5).
        const std::uint32_t dis = *std::max_element(lan.members.begin(), lan.members.end());
        if (pseudonodesOf[dis] == 255) {
            throw std::logic_error("a router is designated on more than 255 LANs");
        }
        lan.pseudonode = nodeId(dis, ++pseudonodesOf[dis]);
    }

    t.lsps.resize(routers);
    std::vector<std::uint32_t> nextLabel(routers, srlbFirst);
    for (std::uint32_t i = 0; i < routers; ++i) {
        t.lsps[i].id = nodeId(i);
        fillRouterNode(t.lsps[i], i, rng);
    }

    // Point-to-point adjacencies, both directions, then their subnets.
    std::vector<std::vector<LinkPlan>> mt2Links(routers);
    for (std::size_t l = 0; l < links.size(); ++l) {
        const P2pLink& link = links[l];
        for (int side = 0; side < 2; ++side) {
            const std::uint32_t self = side == 0 ? link.a : link.b;
            const std::uint32_t peer = side == 0 ? link.b : link.a;
            const auto idx = static_cast<std::uint32_t>(l);
            LinkPlan s;
            s.neighbor = nodeId(peer);
            s.metric = link.metric;
            s.localV4 = v4(dotted(10, 0, 0, 0), 2 * idx + static_cast<std::uint32_t>(side));
            s.remoteV4 = v4(dotted(10, 0, 0, 0), 2 * idx + static_cast<std::uint32_t>(1 - side));
            s.localV6 = v6(1, 0, 2 * idx + static_cast<std::uint32_t>(side));
            s.remoteV6 = v6(1, 0, 2 * idx + static_cast<std::uint32_t>(1 - side));
            s.te = true;
            s.adminGroup = link.adminGroup;
            s.maxBw = link.maxBw;
            s.maxRsvBw = link.maxBw * 0.75f;
            s.unrsvBw.fill(s.maxRsvBw);
            s.teMetric = link.teMetric;
            s.extAdminGroup = link.extAdminGroup;
            s.adjSids.emplace_back(adjSidV4Flags, nextLabel[self]++, 0);
            s.adjSids.emplace_back(adjSidV6Flags, nextLabel[self]++, 0);
            s.srlgs = link.srlgs;
            s.srlgV6 = link.srlgV6;
            LspPlan& lsp = t.lsps[self];
            lsp.links.push_back(s);

            PrefixPlan sub4;
            sub4.prefix = prefix4(v4(dotted(10, 0, 0, 0), 2 * idx), 31);
            sub4.metric = link.metric;
            lsp.prefixes.push_back(sub4);
            PrefixPlan sub6;
            sub6.prefix = prefix6(v6(1, 0, 2 * idx), 127);
            sub6.metric = link.metric;
            lsp.prefixes.push_back(sub6);

            if (link.mt2) {
                LinkPlan m;
                m.neighbor = s.neighbor;
                m.mtId = 2;
                m.metric = link.metric;
                m.localV6 = s.localV6;
                m.remoteV6 = s.remoteV6;
                m.adjSids.emplace_back(adjSidV6Flags, nextLabel[self]++, 0);
                mt2Links[self].push_back(m);
            }
        }
    }

    // LAN adjacencies: each member to the pseudonode, the pseudonode to each member.
    for (std::size_t k = 0; k < lans.size(); ++k) {
        const Lan& lan = lans[k];
        const auto kk = static_cast<std::uint32_t>(k);
        LspPlan pn;
        pn.id = lan.pseudonode;
        for (std::size_t m = 0; m < lan.members.size(); ++m) {
            const std::uint32_t self = lan.members[m];
            const auto mm = static_cast<std::uint32_t>(m);
            LinkPlan s;
            s.neighbor = lan.pseudonode;
            s.metric = 10;
            s.localV4 = v4(dotted(10, 64, 0, 0), 16 * kk + 1 + mm);
            s.localV6 = v6(2, static_cast<std::uint16_t>(kk), 1 + mm);
            s.te = true;
            s.adminGroup = 1;
            s.maxBw = 1.25e9f;
            s.maxRsvBw = 1.25e9f;
            s.unrsvBw.fill(1.25e9f);
            s.teMetric = 10;
            for (const std::uint32_t other : lan.members) {
                if (other != self) {
                    s.lanAdjSids.emplace_back(adjSidV4Flags, nextLabel[self]++, 0, systemId(other));
                }
            }
            LspPlan& lsp = t.lsps[self];
            lsp.links.push_back(s);
            PrefixPlan sub4;
            sub4.prefix = prefix4(v4(dotted(10, 64, 0, 0), 16 * kk), 28);
            sub4.metric = 10;
            lsp.prefixes.push_back(sub4);
            PrefixPlan sub6;
            sub6.prefix = prefix6(v6(2, static_cast<std::uint16_t>(kk), 0), 64);
            sub6.metric = 10;
            lsp.prefixes.push_back(sub6);

            LinkPlan back;
            back.neighbor = nodeId(self);
            back.metric = 0;  // ISO 10589 7.2.9: zero from the pseudonode
            pn.links.push_back(back);
        }
        t.lsps.push_back(std::move(pn));
    }

    for (std::uint32_t i = 0; i < routers; ++i) {
        LspPlan& s = t.lsps[i];
        s.links.insert(s.links.end(), mt2Links[i].begin(), mt2Links[i].end());
        addRouterPrefixes(s, i, rng);
        if (nextLabel[i] > srlbFirst + srlbSize) {
            throw std::logic_error("a router ran out of local block labels");
        }
    }

    t.pseudonodes = static_cast<std::uint32_t>(lans.size());
    for (const LspPlan& s : t.lsps) {
        t.neighbors += s.links.size();
        t.prefixes += s.prefixEntries();
        t.bindings += s.bindings.size();
    }
    return t;
}

namespace {

IC::NeighborKey keyOf(const LinkPlan& l) {
    IC::NeighborKey key(l.neighbor, IC::IgpMultiTopologyId(l.mtId));
    if (l.localV4) {
        key.localIpv4AddrIs(*l.localV4);
    }
    if (l.remoteV4) {
        key.remoteIpv4AddrIs(*l.remoteV4);
    }
    if (l.localV6) {
        key.localIpv6AddrIs(*l.localV6);
    }
    if (l.remoteV6) {
        key.remoteIpv6AddrIs(*l.remoteV6);
    }
    return key;
}

Poldo::Ptr<IC::SrCapabilities> srBlock(const SrBlockPlan& plan, bool withFlags) {
    auto block = IC::srCapabilitiesFactory();
    if (withFlags) {
        IC::SrCapabilityFlags f;
        f.mplsIpv4Is((plan.flags & 0x80) != 0);
        f.mplsIpv6Is((plan.flags & 0x40) != 0);
        block->srCapFlagIs(f);
    }
    for (const auto& [size, first] : plan.ranges) {
        block->sidLabelRangeIs(IC::SrSidRangeIndex(block->numRanges()),
                               IC::SrSidRange(size, Lumo::MplsLabel(first)));
        block->numRangesInc(1);
    }
    return block;
}

void buildNode(const LspPlan& s, IC::IsisLspParsedContent& content) {
    auto node = IC::nodeFactory(s.id);
    content.nodeIs(node);
    IC::NodeFlags flags;
    flags.overloadBitIs(s.overload);
    flags.attachedBitIs(s.attached);
    node->flagsIs(flags);
    if (!s.hostName.empty()) {
        node->hostNameIs(Poldo::String(s.hostName));
    }
    node->ipv4RouterIdIs(s.routerIdV4);
    node->ipv6RouterIdIs(s.routerIdV6);
    if (!s.areas.empty()) {
        auto areas = IC::isisAreaIdColFactory();
        for (const auto& a : s.areas) {
            areas->areaIdIs(Routing::Isis::AreaId::fromBytes(a.data(), a.size()), true);
        }
        node->isisAreaIdColIs(areas);
    }
    if (!s.mtIds.empty()) {
        auto mts = IC::igpMultiTopologyIdColFactory();
        for (const std::uint16_t mt : s.mtIds) {
            mts->mtIdValueIs(IC::IgpMultiTopologyId(mt));
        }
        node->mtIdColIs(mts);
    }
    // Node-wide TLVs travel in fragment 0.
    if (s.srgb) {
        node->srCapabilitiesIs(srBlock(*s.srgb, true));
        content.parsedSrCapFragIdIs(0);
    }
    if (s.srlb) {
        node->srlbIs(srBlock(*s.srlb, false));
        content.parsedSrlbFragIdIs(0);
    }
    if (!s.msds.empty()) {
        auto msds = IC::igpMsdColFactory();
        std::uint32_t pos = 0;
        for (const auto& [type, value] : s.msds) {
            msds->msdIs(pos++, IC::IgpMsd(type, value));
        }
        node->msdColIs(msds);
    }
    if (!s.fads.empty()) {
        auto fads = IC::igpFlexAlgoDefinitionColFactory();
        for (const FadPlan& f : s.fads) {
            IC::IgpFlexAlgoDefinition def;
            def.flexAlgoIs(f.algo);
            def.metricTypeIs(f.metricType);
            def.calcTypeIs(f.calcType);
            def.priorityIs(f.priority);
            for (const std::uint32_t w : f.excludeAny) {
                def.excludeAny()->valuePush(w);
            }
            for (const std::uint32_t w : f.includeAny) {
                def.includeAny()->valuePush(w);
            }
            for (const std::uint32_t w : f.includeAll) {
                def.includeAll()->valuePush(w);
            }
            for (const std::uint32_t v : f.excludeSrlg) {
                def.excludeSrlg()->valueIs(v);
            }
            fads->fadIs(f.algo, def);
        }
        node->fadColIs(fads);
    }
}

void buildNeighbor(const LinkPlan& l, IC::IsisLspParsedContent& content) {
    const auto nbr = content.neighborIs(keyOf(l));
    nbr->igpMetricIs(l.metric);
    if (l.te) {
        IC::Neighbor::NeighborAttrsPresent present;
        present.adminGroupIs(true);
        present.maxLinkBwIs(true);
        present.maxReserveLinkBwIs(true);
        present.unreservedBwIs(true);
        present.teDefMetricIs(true);
        present.extAdminGroupIs(!l.extAdminGroup.empty());
        nbr->attrsPresentIs(present);
        nbr->adminGroupIs(l.adminGroup);
        nbr->maxLinkBwIs(l.maxBw);
        nbr->maxReserveLinkBwIs(l.maxRsvBw);
        for (unsigned p = 0; p < 8; ++p) {
            nbr->unreservedBwIs(IC::BwIndex(p), l.unrsvBw[p]);
        }
        for (std::size_t w = 0; w < l.extAdminGroup.size(); ++w) {
            nbr->extAdminGroupIs(IC::AdminGroupIndex(static_cast<unsigned>(w)), l.extAdminGroup[w]);
        }
        nbr->teDefMetricIs(l.teMetric);
    }
    for (const auto& sid : l.adjSids) {
        nbr->adjSidIs(sid);
    }
    for (const auto& sid : l.lanAdjSids) {
        nbr->lanAdjSidIs(sid);
    }
    if (!l.srlgs.empty()) {
        const auto rec4 = content.parsedSrLgIs(Lumo::IpGenAddr(*l.localV4));
        for (const std::uint32_t v : l.srlgs) {
            rec4->srlgValueIs(v);
        }
        if (l.srlgV6) {
            const auto rec6 = content.parsedSrLgIs(Lumo::IpGenAddr(*l.localV6));
            for (const std::uint32_t v : l.srlgs) {
                rec6->srlgValueIs(v);
            }
        }
    }
}

void buildPrefix(const PrefixPlan& p, IC::IsisLspParsedContent& content) {
    const auto pfx = content.prefixIs(IC::PrefixKey(p.prefix, IC::IgpMultiTopologyId(p.mtId)));
    pfx->hasValidReachabilityIs(true);
    pfx->metricIs(p.metric);
    IC::PrefixFlags f;
    f.isisDownIs(p.down);
    pfx->flagsIs(f);
    if (p.sid) {
        pfx->prefixSidIs(*p.sid);
    }
    for (const auto& [algo, metric] : p.flexAlgoMetrics) {
        pfx->prefixMetric()->metricIs(algo, metric);
    }
}

void buildBinding(const BindingPlan& b, IC::IsisLspParsedContent& content) {
    auto binding = IC::sidLabelBindingFactory();
    binding->flagsIs(IC::SidLabelBinding::SidLabelBindingFlags::fromProtocolOctet(b.flags));
    binding->rangeIs(b.range);
    binding->lspFragmentIdIs(0);
    if (b.label) {
        binding->baseLabelSidIs(IC::LabelSid(IC::PrefixSid::labelFlagsMask, *b.label, true));
    }
    if (b.prefixSid) {
        binding->basePrefixSidIs(*b.prefixSid);
    }
    content.prefixIs(IC::PrefixKey(b.prefix, IC::IgpMultiTopologyId(0)))->sidLabelBindingIs(binding);
}

}  // namespace

Poldo::Ptr<IC::IsisLspParsedContent> buildContent(const LspPlan& lsp, BuildParts parts) {
    auto content = IC::isisLspParsedContentFactory();
    buildNode(lsp, *content);
    // Sized from the counts, as a decoder that counted the TLV entries does.
    if (parts.neighbors) {
        content->neighborReserve(static_cast<std::uint32_t>(lsp.links.size()));
        std::uint32_t srlgRecords = 0;
        for (const LinkPlan& l : lsp.links) {
            srlgRecords += l.srlgs.empty() ? 0 : (l.srlgV6 ? 2 : 1);
        }
        content->parsedSrLgReserve(srlgRecords);
        for (const LinkPlan& l : lsp.links) {
            buildNeighbor(l, *content);
        }
    }
    if (parts.prefixes) {
        // Bindings may name advertised prefixes: at most this many.
        content->prefixReserve(static_cast<std::uint32_t>(lsp.bindings.size() + lsp.prefixes.size()));
        for (const BindingPlan& b : lsp.bindings) {
            buildBinding(b, *content);
        }
        for (const PrefixPlan& p : lsp.prefixes) {
            buildPrefix(p, *content);
        }
    }
    return content;
}

void mergeContent(IC::IgpLspDatabase& db, const Poldo::Ptr<IC::IsisLspParsedContent>& content) {
    db.lspMerge(content);
}

Churn makeChurn(const Topology& base, std::uint32_t percent, std::uint64_t seed) {
    Rng rng(seed);
    // Flat indices over all neighbor entries and over all reachable prefixes.
    std::vector<std::pair<std::size_t, std::size_t>> nbrs, pfxs;
    for (std::size_t i = 0; i < base.lsps.size(); ++i) {
        for (std::size_t j = 0; j < base.lsps[i].links.size(); ++j) {
            nbrs.emplace_back(i, j);
        }
        for (std::size_t j = 0; j < base.lsps[i].prefixes.size(); ++j) {
            pfxs.emplace_back(i, j);
        }
    }
    auto pick = [&](std::size_t total) {
        const std::size_t want = std::max<std::size_t>(1, total * percent / 100);
        std::unordered_set<std::size_t> chosen;
        while (chosen.size() < want) {
            chosen.insert(rng.below(static_cast<std::uint32_t>(total)));
        }
        std::vector<std::size_t> out(chosen.begin(), chosen.end());
        std::sort(out.begin(), out.end());
        return out;
    };
    const auto metricPicks = pick(nbrs.size());
    const auto prefixPicks = pick(pfxs.size());

    std::vector<std::vector<std::size_t>> metricAt(base.lsps.size()), dropAt(base.lsps.size());
    for (const std::size_t k : metricPicks) {
        metricAt[nbrs[k].first].push_back(nbrs[k].second);
    }
    for (const std::size_t k : prefixPicks) {
        dropAt[pfxs[k].first].push_back(pfxs[k].second);
    }
    Churn c;
    for (std::size_t i = 0; i < base.lsps.size(); ++i) {
        if (metricAt[i].empty() && dropAt[i].empty()) {
            continue;
        }
        LspPlan s = base.lsps[i];
        for (const std::size_t j : metricAt[i]) {
            s.links[j].metric += 1;
        }
        // Ascending indices: erase from the back so the others stay valid.
        for (auto it = dropAt[i].rbegin(); it != dropAt[i].rend(); ++it) {
            s.prefixes.erase(s.prefixes.begin() + static_cast<std::ptrdiff_t>(*it));
        }
        c.lspIndex.push_back(i);
        c.changed.push_back(std::move(s));
    }
    c.metricChanges = metricPicks.size();
    c.prefixRemovals = prefixPicks.size();
    return c;
}

}  // namespace IgpBench
