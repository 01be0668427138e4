// An LSP builder, the captures of the data folder, and one line per node
// attribute, neighbor, prefix and SRLG record (lists in a line sorted, floats
// "%g", value types' fields joined by '/') to compare with independent decodes.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "IgpCommon/IgpLsp.h"
#include "IgpCommon/framework/AttrDesc.h"
#include "IsisDecoder/Decoder.h"
#include "IsisDecoder/Frame.h"
#include "IsisDecoder/Pcap.h"

namespace DecoderTest {

namespace IC = Routing::IgpCommon;
using Bytes = std::vector<std::uint8_t>;
using Lines = std::set<std::string>;

inline std::string dataPath(const std::string& name) {
    return std::string(IGPDECODER_TESTDATA) + "/" + name;
}

inline std::string readText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    EXPECT_TRUE(in) << "cannot open " << path;
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Appends big-endian fields; chainable so a TLV reads like its layout.
class Enc {
public:
    Enc() = default;
    Enc(std::initializer_list<std::uint8_t> b) : b_(b) {}
    Enc& u8(unsigned v) {
        b_.push_back(static_cast<std::uint8_t>(v));
        return *this;
    }
    Enc& u16(unsigned v) { return u8(v >> 8).u8(v); }
    Enc& u24(std::uint32_t v) { return u8(v >> 16).u8(v >> 8).u8(v); }
    Enc& u32(std::uint32_t v) { return u8(v >> 24).u8(v >> 16).u8(v >> 8).u8(v); }
    Enc& raw(const Bytes& v) {
        b_.insert(b_.end(), v.begin(), v.end());
        return *this;
    }
    Enc& raw(std::initializer_list<std::uint8_t> v) { return raw(Bytes(v)); }
    Enc& raw(const Enc& v) { return raw(v.b_); }
    // A TLV or sub-TLV: type, length of `value`, value.
    Enc& tlv(unsigned type, const Enc& value) {
        return u8(type).u8(static_cast<unsigned>(value.size())).raw(value);
    }
    // An extended IS reachability entry to 1921.6800.10<sys>.00 with its sub-TLVs.
    Enc& isEntry(std::uint8_t sys, std::uint32_t metric, const Enc& subs = {}) {
        return raw({0x19, 0x21, 0x68, 0x00, 0x10, sys, 0}).u24(metric).u8(unsigned(subs.size())).raw(subs);
    }
    std::size_t size() const { return b_.size(); }
    const Bytes& bytes() const { return b_; }

private:
    Bytes b_;
};

// The node 1921.6800.10<sys>.<pn> that the LSPs built here name.
inline Enc nbrId(std::uint8_t sys, std::uint8_t pn = 0) {
    return Enc{0x19, 0x21, 0x68, 0x00, 0x10, sys, pn};
}
inline IC::IgpNodeId nodeId(std::uint8_t sys) {
    return IC::IgpNodeId::fromBytes(nbrId(sys).bytes().data());
}

struct LspFields {
    unsigned level = 2;
    std::uint8_t sys = 0x01;  // last octet of the system ID 1921.6800.10xx
    std::uint8_t fragment = 0;
    std::uint32_t seq = 1;
    std::uint16_t lifetime = 1199;
    std::uint8_t flags = 0x03;
};

inline Bytes buildLsp(const LspFields& f, const Enc& tlvs) {
    Enc e{0x83, 27, 1, 6, static_cast<std::uint8_t>(f.level == 1 ? 18 : 20), 1, 0, 0};
    e.u16(0).u16(f.lifetime).raw({0x19, 0x21, 0x68, 0x00, 0x10, f.sys, 0, f.fragment});
    e.u32(f.seq).u16(0).u8(f.flags).raw(tlvs);
    Bytes pdu = e.bytes();
    pdu[8] = static_cast<std::uint8_t>(pdu.size() >> 8);
    pdu[9] = static_cast<std::uint8_t>(pdu.size());
    Routing::IsisDecoder::fillLspChecksum(pdu);
    return pdu;
}

inline Bytes buildLsp(const Enc& tlvs) {
    return buildLsp(LspFields{}, tlvs);
}

inline std::vector<Bytes> readPdus(const std::string& name) {
    std::ifstream in(dataPath(name), std::ios::binary);
    return Routing::IsisDecoder::readPcap(in);
}

inline bool isLsp(const Bytes& pdu) {
    return Routing::IsisDecoder::pduKind(pdu) == Routing::IsisDecoder::PduKind::lsp;
}

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

/// "0000.0000.0003.02": the system identifier and the pseudonode number.
inline std::string nodeIdText(const IC::IgpNodeId& id) {
    std::string s;
    for (unsigned i = 0; i < 7; ++i) {
        s += cat(i % 2 == 0 && i > 0 ? "." : "", hex(id.byte(IC::IgpNodeIdIndex(i))).substr(2));
    }
    return s;
}

/// `head` (if any), then the parts in sorted order, joined by `sep`.
inline std::string sortedJoin(std::vector<std::string> parts, const char* sep, std::string head = "") {
    std::sort(parts.begin(), parts.end());
    for (const auto& p : parts) {
        head.append(head.empty() ? "" : sep).append(p);
    }
    return head;
}

template <class T>
std::string valueText(const T& v) {
    if constexpr (std::is_arithmetic_v<T>) {
        return cat(+v);  // floats as "%g", octets as numbers
    } else if constexpr (Kest::ValueForm<T>) {
        std::string s;
        std::apply([&](const auto&... a) { (s.append("/").append(valueText(a.get(v))), ...); },
                   T::kestAttrs());
        return s.substr(1);
    } else {
        return Kest::strep(v).c_str();
    }
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
    const auto put = [&](bool present, const std::string& line) {
        present ? (void)out.insert(line) : void();
    };
    put(true, cat("flags ol=", n.flags().overloadBit(), " att=", n.flags().attachedBit()));
    put(!n.hostName().empty(), "host " + n.hostName());
    put(!n.ipv4RouterId().isZero(), cat("te-id ", n.ipv4RouterId()));
    put(!n.ipv6RouterId().isZero(), cat("te-id6 ", n.ipv6RouterId()));
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
    if (const auto& c = n.srCapabilities()) {
        out.insert(cat("srgb I", c->srCapFlag().mplsIpv4(), " V", c->srCapFlag().mplsIpv6(), ranges(*c)));
    }
    put(bool(n.srlb()), n.srlb() ? "srlb" + ranges(*n.srlb()) : "");
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

/// The key, then each carried attribute as "name=value", members as
/// "key:value" (a set's as themselves) joined by ','.
inline std::string neighborLine(const IC::Neighbor& n) {
    const auto& k = n.key();
    std::vector<std::string> parts;
    const auto addresses = [&](const char* name, const auto& set) {
        for (const auto& a : set) {
            parts.push_back(cat(name, "=", a));
        }
    };
    addresses("l4", k.localIpv4Addr());
    addresses("r4", k.remoteIpv4Addr());
    addresses("l6", k.localIpv6Addr());
    addresses("r6", k.remoteIpv6Addr());
    Kest::forEachAttr<IC::Neighbor>([&](const auto& d) {
        using D = std::remove_cvref_t<decltype(d)>;
        if constexpr (Kest::ScalarDesc<D>) {
            if constexpr (!D::isKey && !std::is_same_v<typename D::Value,
                                                       std::remove_cvref_t<decltype(n.attrsPresent())>>) {
                if (d.carried(n)) {
                    parts.push_back(cat(d.name, "=", valueText(d.get(n))));
                }
            }
        } else if constexpr (Kest::MembersDesc<D>) {
            std::vector<std::string> members;
            Kest::forEachMember(d, n, [&](const auto& key, const auto& v) {
                if constexpr (D::kind == Kest::AttrKind::array) {
                    members.push_back(cat(unsigned{key.value()}, ":", valueText(v)));
                } else if constexpr (std::is_same_v<Kest::MemberKey<D>, Kest::MemberValue<D>>) {
                    members.push_back(valueText(v));
                } else {
                    members.push_back(cat(valueText(key), ":", valueText(v)));
                }
            });
            if (d.carried(n) && !members.empty()) {
                parts.push_back(cat(d.name, "=", sortedJoin(members, ",")));
            }
        }
    });
    return sortedJoin(std::move(parts), " ", cat("nbr ", nodeIdText(k.nodeId()), " mt", k.mtId().value()));
}

inline std::string prefixLine(const IC::Prefix& p) {
    std::string s = cat("pfx ", p.prefixKey().prefix(), " mt", p.prefixKey().mtId().value());
    s += p.hasValidReachability() ? cat(" m", p.metric()) : std::string(" unreachable");
    s += p.flags().isisDown() ? " down" : "";
    s += p.prefixSid().isValid() ? cat(" sid=", p.prefixSid().value(), "/", hex(p.prefixSid().flags())) : "";
    for (auto it = p.prefixMetric()->metric().begin(); it != p.prefixMetric()->metric().end(); ++it) {
        s += cat(" fa", unsigned{it->first}, "=", it->second);
    }
    if (const auto& b = p.sidLabelBinding()) {
        s += cat(" bind=", IC::SidLabelBinding::flagsToStrep(b->flags()), "/r", b->range(), "/f",
                 unsigned{b->lspFragmentId()});
        const auto& l = b->baseLabelSid();
        const auto& sid = b->basePrefixSid();
        s += l.isValid() ? cat(l.hasMplsLabel() ? "/label=" : "/index=", l.value()) : "";
        s += sid.isValid() ? cat("/psid=", sid.value(), "/", hex(sid.flags())) : "";
    }
    return s;
}

// A collection's member: a pointer, or a keyed member holding one.
template <class Member>
const auto& deref(const Member& m) {
    if constexpr (requires { m.value; }) {
        return *m.value;
    } else {
        return *m;
    }
}

/// The lines of a decoded LSP (with its SRLG records) or a database entry.
template <class Content>
Lines linesOf(const Content& c) {
    Lines out;
    addNodeLines(*c.node(), out);
    for (const auto& n : c.neighbor()) {
        out.insert(neighborLine(deref(n)));
    }
    for (const auto& p : c.prefix()) {
        out.insert(prefixLine(deref(p)));
    }
    if constexpr (requires { c.parsedSrLg(); }) {
        for (const auto& r : c.parsedSrLg()) {
            std::vector<std::string> v;
            for (const auto x : r->srlgValue()) {
                v.push_back(std::to_string(x));
            }
            out.insert(cat("srlg ", r->localAddr(), " ", sortedJoin(v, ",")));
        }
    }
    return out;
}

/// Fails with the lines each side has that the other lacks.
inline void expectSameLines(const Lines& want, const Lines& got, const std::string& where) {
    std::vector<std::string> missing, extra;
    std::set_difference(want.begin(), want.end(), got.begin(), got.end(), std::back_inserter(missing));
    std::set_difference(got.begin(), got.end(), want.begin(), want.end(), std::back_inserter(extra));
    EXPECT_TRUE(missing.empty() && extra.empty())
        << where << "\n  expected only: " << sortedJoin(missing, "\n    ")
        << "\n  decoded only: " << sortedJoin(extra, "\n    ");
}

}  // namespace DecoderTest
