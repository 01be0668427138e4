// Test-only: one canonical line per node attribute, neighbor, prefix and SRLG
// record of the model, so that what the decoder and the keeper produced can
// be compared as sets of lines with what independent decoders printed.
// Lists inside a line are sorted; addresses and prefixes use the model's
// text forms; bandwidths are written with "%g".
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "IgpCommon/IgpLsp.h"

namespace DecoderTest {

namespace IC = Routing::IgpCommon;
using Lines = std::set<std::string>;

template <class... T>
std::string cat(const T&... v) {
    std::ostringstream os;
    (os << ... << v);
    return os.str();
}

inline std::string hex(unsigned v, int width = 2) {
    char b[16];
    std::snprintf(b, sizeof b, "0x%0*x", width, v);
    return b;
}

inline std::string num(double v) {
    char b[32];
    std::snprintf(b, sizeof b, "%g", v);
    return b;
}

/// "0000.0000.0003.02": the system identifier and the pseudonode number.
inline std::string nodeIdText(const IC::IgpNodeId& id) {
    char b[24];
    auto at = [&](unsigned i) { return id.byte(IC::IgpNodeIdIndex(i)); };
    std::snprintf(b, sizeof b, "%02x%02x.%02x%02x.%02x%02x.%02x", at(0), at(1), at(2), at(3), at(4), at(5),
                  at(6));
    return b;
}

/// `head` followed by the parts in sorted order.
inline std::string joinSorted(std::string head, std::vector<std::string> parts) {
    std::sort(parts.begin(), parts.end());
    for (const auto& p : parts) {
        head += " " + p;
    }
    return head;
}

inline std::string ranges(const IC::SrCapabilities& c) {
    std::string s;
    for (unsigned i = 0; i < c.numRanges() && i < 8; ++i) {
        const auto& r = c.sidLabelRange(IC::SrSidRangeIndex(i));
        s += cat(" ", r.startingSid().value(), "/", r.range());
    }
    return s;
}

inline void addNodeLines(const IC::Node& n, Lines& out) {
    out.insert(cat("flags ol=", n.flags().overloadBit(), " att=", n.flags().attachedBit()));
    if (!n.hostName().empty()) {
        out.insert("host " + n.hostName());
    }
    if (const auto& areas = n.isisAreaIdCol()) {
        for (auto it = areas->areaId().begin(); it != areas->areaId().end(); ++it) {
            out.insert(cat("area ", it->first));
        }
    }
    if (const auto& mts = n.mtIdCol()) {
        for (const auto& mt : mts->mtIdValue()) {
            out.insert(cat("mt ", mt.value()));
        }
    }
    if (!n.ipv4RouterId().isZero()) {
        out.insert(cat("te-id ", n.ipv4RouterId()));
    }
    if (!n.ipv6RouterId().isZero()) {
        out.insert(cat("te-id6 ", n.ipv6RouterId()));
    }
    if (const auto& c = n.srCapabilities()) {
        out.insert(cat("srgb I", c->srCapFlag().mplsIpv4(), " V", c->srCapFlag().mplsIpv6(), ranges(*c)));
    }
    if (const auto& c = n.srlb()) {
        out.insert("srlb" + ranges(*c));
    }
    if (const auto& msds = n.msdCol()) {
        for (std::uint32_t p = msds->lowerBound(); p < msds->upperBound(); ++p) {
            out.insert(cat("msd ", unsigned{msds->msd(p).msdType()}, ":", unsigned{msds->msd(p).msdValue()}));
        }
    }
    if (const auto& fads = n.fadCol()) {
        for (auto it = fads->fad().begin(); it != fads->fad().end(); ++it) {
            const auto& d = it->second;
            out.insert(cat("fad ", unsigned{d.flexAlgo()}, " m", unsigned{d.metricType()}, " c",
                           unsigned{d.calcType()}, " p", unsigned{d.priority()}, " ex=", d.excludeAny(),
                           " any=", d.includeAny(), " all=", d.includeAll(), " srlg=", d.excludeSrlg()));
        }
    }
}

inline std::string neighborLine(const IC::Neighbor& n) {
    const auto& k = n.key();
    std::vector<std::string> parts;
    for (const auto& a : k.localIpv4Addr()) {
        parts.push_back(cat("l4=", a));
    }
    for (const auto& a : k.remoteIpv4Addr()) {
        parts.push_back(cat("r4=", a));
    }
    for (const auto& a : k.localIpv6Addr()) {
        parts.push_back(cat("l6=", a));
    }
    for (const auto& a : k.remoteIpv6Addr()) {
        parts.push_back(cat("r6=", a));
    }
    const auto present = n.attrsPresent();
    if (present.adminGroup()) {
        parts.push_back("ag=" + hex(n.adminGroup(), 1));
    }
    if (present.maxLinkBw()) {
        parts.push_back("bw=" + num(n.maxLinkBw()));
    }
    if (present.maxReserveLinkBw()) {
        parts.push_back("rsv=" + num(n.maxReserveLinkBw()));
    }
    if (present.unreservedBw()) {
        std::string s = "unrsv=";
        for (unsigned p = 0; p < 8; ++p) {
            s += p != 0 ? "," : "";
            s += num(n.unreservedBw(IC::BwIndex(p)));
        }
        parts.push_back(s);
    }
    if (present.extAdminGroup()) {
        std::map<unsigned, std::uint32_t> words;
        for (const auto& e : n.extAdminGroup()) {
            words[e.key.value()] = e.value;
        }
        std::string s = "eag=";
        for (unsigned i = 0; !words.empty() && i <= words.rbegin()->first; ++i) {
            s += i != 0 ? "," : "";
            s += hex(words.count(i) ? words[i] : 0, 1);
        }
        parts.push_back(s);
    }
    if (present.teDefMetric()) {
        parts.push_back(cat("te=", n.teDefMetric()));
    }
    if (present.srlgValues()) {
        const std::set<std::uint32_t> v(n.srlgValues().begin(), n.srlgValues().end());
        std::string s = "srlg=";
        for (auto x : v) {
            s += cat(x == *v.begin() ? "" : ",", x);
        }
        parts.push_back(s);
    }
    for (const auto& s : n.adjSid()) {
        parts.push_back(cat("adj=", s.value(), "/", hex(s.flags()), "/w", unsigned{s.weight()}));
    }
    for (const auto& s : n.lanAdjSid()) {
        parts.push_back(
            cat("lan=", s.value(), "/", hex(s.flags()), "/w", unsigned{s.weight()}, "/", s.systemId()));
    }
    return joinSorted(cat("nbr ", nodeIdText(k.nodeId()), " mt", k.mtId().value(), " m", n.igpMetric()),
                      std::move(parts));
}

inline std::string prefixLine(const IC::Prefix& p) {
    std::string s = cat("pfx ", p.prefixKey().prefix(), " mt", p.prefixKey().mtId().value());
    s += p.hasValidReachability() ? cat(" m", p.metric()) : std::string(" unreachable");
    if (p.flags().isisDown()) {
        s += " down";
    }
    if (p.prefixSid().isValid()) {
        s += cat(" sid=", p.prefixSid().value(), "/", hex(p.prefixSid().flags()));
    }
    for (auto it = p.prefixMetric()->metric().begin(); it != p.prefixMetric()->metric().end(); ++it) {
        s += cat(" fa", unsigned{it->first}, "=", it->second);
    }
    if (const auto& b = p.sidLabelBinding()) {
        s += cat(" bind=", IC::SidLabelBinding::flagsToStrep(b->flags()), "/r", b->range(), "/f",
                 unsigned{b->lspFragmentId()});
        if (b->baseLabelSid().isValid()) {
            s += cat(b->baseLabelSid().hasMplsLabel() ? "/label=" : "/index=", b->baseLabelSid().value());
        }
        if (b->basePrefixSid().isValid()) {
            s += cat("/psid=", b->basePrefixSid().value(), "/", hex(b->basePrefixSid().flags()));
        }
    }
    return s;
}

/// Node, neighbor, prefix and SRLG lines of one decoded LSP.
inline Lines contentLines(const IC::IsisLspParsedContent& c) {
    Lines out;
    addNodeLines(*c.node(), out);
    for (const auto& n : c.neighbor()) {
        out.insert(neighborLine(*n));
    }
    for (const auto& p : c.prefix()) {
        out.insert(prefixLine(*p));
    }
    for (const auto& r : c.parsedSrLg()) {
        const std::set<std::uint32_t> v(r->srlgValue().begin(), r->srlgValue().end());
        std::string s = cat("srlg ", r->localAddr(), " ");
        for (auto x : v) {
            s += cat(x == *v.begin() ? "" : ",", x);
        }
        out.insert(s);
    }
    return out;
}

/// Node, neighbor and prefix lines of a database entry.
inline Lines entryLines(const IC::IgpLsp& e) {
    Lines out;
    addNodeLines(*e.node(), out);
    for (const auto& n : e.neighbor()) {
        out.insert(neighborLine(*n.value));
    }
    for (const auto& p : e.prefix()) {
        out.insert(prefixLine(*p.value));
    }
    return out;
}

/// Fails with the lines each side has that the other lacks.
inline void expectSameLines(const Lines& want, const Lines& got, const std::string& where) {
    std::vector<std::string> missing, extra;
    std::set_difference(want.begin(), want.end(), got.begin(), got.end(), std::back_inserter(missing));
    std::set_difference(got.begin(), got.end(), want.begin(), want.end(), std::back_inserter(extra));
    std::string text;
    for (const auto& l : missing) {
        text += "\n  expected only: " + l;
    }
    for (const auto& l : extra) {
        text += "\n  decoded only:  " + l;
    }
    EXPECT_TRUE(text.empty()) << where << text;
}

}  // namespace DecoderTest
