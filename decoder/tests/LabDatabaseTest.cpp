// The differential test of the lab capture: every LSP of frr-initial.pcap goes
// through the per-level keepers in capture order, and what they hold at the
// end must be what the six routers listed with `show isis database detail`.
// The listings and the keepers are both turned into the lines of
// ModelText.h; the small reader below knows just the lines FRR 8.4 prints
// for what the model keeps, and ignores the rest (authentication, protocols,
// interface addresses, SR algorithms, the RFC 8570 link attributes).

#include <gtest/gtest.h>

#include <map>
#include <regex>
#include <sstream>
#include <string>

#include "IsisDecoder/Decoder.h"
#include "IsisDecoder/LspKeeper.h"
#include "ModelText.h"
#include "TestSupport.h"

namespace {

using namespace DecoderTest;
using namespace Routing::IsisDecoder;

struct Listing {
    std::map<std::string, Lines> nodes;  // by "r2.00": host name and pseudonode
    std::size_t lsps = 0;
};

std::string mtNumber(const std::string& name) {
    static const std::map<std::string, std::string> ids = {
        {"", "0"}, {"ipv4-unicast", "0"}, {"ipv6-unicast", "2"}};
    const auto it = ids.find(name);
    return it == ids.end() ? "?" + name : it->second;
}

// "F:0 B:0, V:1, L:1, S:0, P:0" as the adjacency SID flags octet (RFC 8667 2.2.1).
std::string adjFlags(const std::string& text) {
    static const std::regex bit("([FBVLSP]):([01])");
    unsigned v = 0;
    for (std::sregex_iterator it(text.begin(), text.end(), bit), end; it != end; ++it) {
        v |= (*it)[2] == "1" ? 0x80u >> std::string("FBVLSP").find((*it)[1].str()) : 0u;
    }
    return hex(v);
}

// "NODE NO-PHP EXPLICIT-NULL" as the prefix SID flags octet (RFC 8667 2.1.1).
std::string prefixSidFlags(const std::string& words) {
    static const std::map<std::string, unsigned> bits = {
        {"READVERTISED", 0x80}, {"NODE", 0x40},  {"NO-PHP", 0x20}, {"EXPLICIT-NULL", 0x10},
        {"VALUE", 0x08},        {"LOCAL", 0x04}, {"PHP", 0}};
    unsigned v = 0;
    std::istringstream in(words);
    for (std::string w; in >> w;) {
        if (!bits.count(w)) {
            return "?" + w;
        }
        v |= bits.at(w);
    }
    return hex(v);
}

Listing readListing(const std::string& file) {
    static const std::regex lsp(
        R"((\S+)\.([0-9a-f]{2})-([0-9a-f]{2}) +\*? +(\d+) +(0x\S+) +(0x\S+) +\d+ +(\d)/\d/(\d))");
    static const std::regex is(R"((?:Extended|MT|IS) Reachability: (\S+) \(Metric: (\d+)\) ?(\S*))");
    static const std::regex ip(
        R"((?:Extended IP|MT IPv6|IPv6|IP) Reachability: (\S+) \(Metric: (\d+)\) ?(\S*))");
    static const std::regex srgb(R"(Segment Routing: I:(\d) V:(\d), Global Block Base: (\d+) Range: (\d+))");
    static const std::regex srlb(R"(SR Local Block Base: (\d+) Range: (\d+))");
    static const std::regex adj(R"((Lan-)?Adjacency-SID: (\d+), Weight: (\d+), Flags: (.*))");
    static const std::regex sid(R"(SR Prefix-SID (?:Index|Label): (\d+), Algorithm: 0, Flags: (.*))");
    static const std::regex unrsv(R"(\[(\d)\]: (\S+))");
    static const std::map<std::string, std::string> nodeItems = {{"Area Address", "area "},
                                                                 {"Hostname", "host "},
                                                                 {"TE Router ID", "te-id "},
                                                                 {"IPv6 TE Router ID", "te-id6 "},
                                                                 {"Node Maximum SID Depth", "msd 1:"}};
    static const std::map<std::string, std::string> linkItems = {{"Administrative Group", "ag="},
                                                                 {"Local Interface IP Address(es)", "l4="},
                                                                 {"Remote Interface IP Address(es)", "r4="},
                                                                 {"Local Interface IPv6 Address(es)", "l6="},
                                                                 {"Remote Interface IPv6 Address(es)", "r6="},
                                                                 {"Maximum Bandwidth", "bw="},
                                                                 {"Maximum Reservable Bandwidth", "rsv="},
                                                                 {"Traffic Engineering Metric", "te="}};

    Listing out;
    Lines* node = nullptr;
    std::string head;  // the neighbor or prefix being read, and its parts
    std::vector<std::string> parts;
    std::string unreserved[8];
    auto flush = [&] {
        if (!head.empty()) {
            node->insert(joinSorted(head, parts));
        }
        head.clear();
        parts.clear();
    };
    std::istringstream in(readText(dataPath(file)));
    std::smatch m;
    for (std::string line; std::getline(in, line);) {
        const std::string t = line.substr(std::min(line.find_first_not_of(' '), line.size()));
        if (std::regex_match(line, m, lsp)) {
            flush();
            node = &out.nodes[m[1].str() + "." + m[2].str()];
            node->insert(cat("lsp ", m[3], " seq=", m[5], " len=", m[4], " cksum=", m[6]));
            if (m[3] == "00") {
                node->insert(cat("flags ol=", m[8], " att=", m[7]));
            }
            ++out.lsps;
            continue;
        }
        if (node == nullptr) {
            continue;
        }
        const std::string key = t.substr(0, t.find(": "));
        const std::string value = t.size() > key.size() + 2 ? t.substr(key.size() + 2) : "";
        if (std::regex_match(t, m, is)) {
            flush();
            head = cat("nbr ", m[1], " mt", mtNumber(m[3]), " m", m[2]);
        } else if (std::regex_match(t, m, ip)) {
            flush();
            head = cat("pfx ", m[1], " mt", mtNumber(m[3]), " m", m[2]);
        } else if (nodeItems.count(key)) {
            node->insert(nodeItems.at(key) + value);
        } else if (key == "MT Router Info") {
            node->insert("mt " + mtNumber(value));
        } else if (std::regex_match(t, m, srgb)) {
            node->insert(cat("srgb I", m[1], " V", m[2], " ", m[3], "/", m[4]));
        } else if (std::regex_match(t, m, srlb)) {
            node->insert(cat("srlb ", m[1], "/", m[2]));
        } else if (linkItems.count(key)) {
            parts.push_back(linkItems.at(key) + value.substr(0, value.find(' ')));
        } else if (std::regex_match(t, m, adj)) {
            parts.push_back(cat(m[1].matched ? "lan=" : "adj=", m[2], "/", adjFlags(m[4]), "/w", m[3],
                                m[1].matched ? "/" : ""));
        } else if (key == "Neighbor-ID") {
            parts.back() += value;  // completes the LAN adjacency SID above
        } else if (std::regex_search(t, m, unrsv)) {
            for (std::sregex_iterator it(t.begin(), t.end(), unrsv), end; it != end; ++it) {
                unreserved[std::stoi((*it)[1])] = (*it)[2];
            }
            if (m[1] == "6") {
                std::string s = "unrsv=";
                for (int p = 0; p < 8; ++p) {
                    s += (p ? "," : "") + unreserved[p];
                }
                parts.push_back(s);
            }
        } else if (std::regex_match(t, m, sid)) {
            head += cat(" sid=", m[1], "/", prefixSidFlags(m[2]));
        }
    }
    flush();
    // Under metric-style transition a prefix is listed twice, narrow and wide,
    // but it is one prefix of the model: the narrow line goes when the wide
    // one says the same and more (the prefix SID).
    for (auto& [name, lines] : out.nodes) {
        for (auto it = lines.begin(); it != lines.end();) {
            const auto next = std::next(it);
            const bool covered =
                it->starts_with("pfx ") && next != lines.end() && next->starts_with(*it + " ");
            it = covered ? lines.erase(it) : next;
        }
    }
    return out;
}

// Feeds the lab capture to both keepers and renders what they hold by the
// listings' names, with the header of each fragment they kept.
struct LabRun {
    LspKeeper l1{Routing::IgpCommon::igpLevelIsisLevel1};
    LspKeeper l2{Routing::IgpCommon::igpLevelIsisLevel2};
    std::map<std::string, LspHeader> held[2];  // by LSP ID, per level

    LabRun() {
        for (const auto& f : readPcap(dataPath("frr-initial.pcap"))) {
            if (!isLspFrame(f)) {
                continue;
            }
            const auto r = decodeLsp(f.pdu);
            EXPECT_TRUE(r.ok()) << "frame " << f.number << ": " << r.error().message();
            if (!r.ok()) {
                continue;
            }
            const auto& h = r.lsp().header;
            LspKeeper& k = h.level == 1 ? l1 : l2;
            const auto outcome = k.receive(r.lsp());
            if (outcome == LspKeeper::Outcome::installed) {
                held[h.level - 1][h.lspIdText()] = h;
            } else if (outcome == LspKeeper::Outcome::purged) {
                held[h.level - 1].erase(h.lspIdText());
            }
        }
    }

    std::map<std::string, Lines> render(unsigned level) const {
        const auto& db = *(level == 1 ? l1 : l2).database();
        std::map<std::string, std::string> hosts;  // system ID text to host name
        for (const auto& e : db.lsp()) {
            hosts[nodeIdText(e->nodeId()).substr(0, 14)] += e->node()->hostName();
        }
        std::map<std::string, Lines> out;
        for (const auto& e : db.lsp()) {
            const std::string id = nodeIdText(e->nodeId());
            out[hosts[id.substr(0, 14)] + id.substr(14)] = entryLines(*e);
        }
        for (const auto& [lspId, h] : held[level - 1]) {
            out[hosts[lspId.substr(0, 14)] + lspId.substr(14, 3)].insert(
                cat("lsp ", lspId.substr(18), " seq=", hex(h.sequenceNumber, 8), " len=", h.pduLength,
                    " cksum=", hex(h.checksum, 4)));
        }
        return out;
    }
};

TEST(LabDatabase, KeepersHoldWhatEveryRouterListed) {
    const LabRun run;
    const std::map<std::string, Lines> keepers[2] = {run.render(1), run.render(2)};
    const struct {
        const char* router;
        unsigned level;
    } listings[] = {{"r1", 2}, {"r2", 1}, {"r2", 2}, {"r3", 1}, {"r3", 2}, {"r4", 1}, {"r5", 1}, {"r6", 2}};
    for (const auto& l : listings) {
        const std::string file = cat("frr-show/", l.router, ".database-detail.level-", l.level, ".txt");
        SCOPED_TRACE(file);
        const Listing want = readListing(file);
        const auto& got = keepers[l.level - 1];
        EXPECT_EQ(want.lsps, (l.level == 1 ? run.l1 : run.l2).fragmentCount());
        ASSERT_EQ(want.nodes.size(), got.size());
        for (const auto& [name, lines] : want.nodes) {
            expectSameLines(lines, got.count(name) ? got.at(name) : Lines{}, name);
        }
    }
}

}  // namespace
