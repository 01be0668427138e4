// Every LSP of frr-initial.pcap through the per-level keepers: they end holding
// what the six routers listed with `show isis database detail`. The reader
// knows just the lines FRR 8.4 prints for what the model keeps.

#include <gtest/gtest.h>

#include <map>
#include <regex>
#include <sstream>
#include <string>

#include "IsisDecoder/Decoder.h"
#include "IsisDecoder/LspKeeper.h"
#include "TestSupport.h"

namespace {

using namespace DecoderTest;
using namespace Routing::IsisDecoder;

std::string mtNumber(const std::string& name) {
    return name.empty() || name == "ipv4-unicast" ? "0" : name == "ipv6-unicast" ? "2" : "?" + name;
}

// "F:0 B:0, V:1, L:1, S:0, P:0" (RFC 8667 2.2.1) or "NODE NO-PHP" (2.1.1.) as the flags octet.
unsigned flagOctet(const std::string& text, const std::map<std::string, unsigned>& bits) {
    static const std::regex word(R"(([A-Z-]+)(?::([01]))?)");
    unsigned v = 0;
    for (std::sregex_iterator it(text.begin(), text.end(), word), end; it != end; ++it) {
        const auto bit = bits.find((*it)[1]);
        v |= bit == bits.end() ? 0x100u : (*it)[2] == "0" ? 0u : bit->second;  // 0x100: a word not known
    }
    return v;
}

struct Listing {
    std::map<std::string, Lines> nodes;  // by "r2.00": host name and pseudonode
    std::size_t lsps = 0;
};

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
    static const std::map<std::string, unsigned> adjBits = {{"F", 0x80}, {"B", 0x40}, {"V", 0x20},
                                                            {"L", 0x10}, {"S", 0x08}, {"P", 0x04}};
    static const std::map<std::string, unsigned> sidBits = {
        {"READVERTISED", 0x80}, {"NODE", 0x40},  {"NO-PHP", 0x20}, {"EXPLICIT-NULL", 0x10},
        {"VALUE", 0x08},        {"LOCAL", 0x04}, {"PHP", 0}};
    static const std::map<std::string, std::string> nodeItems = {{"Area Address", "area "},
                                                                 {"Hostname", "host "},
                                                                 {"TE Router ID", "te-id "},
                                                                 {"IPv6 TE Router ID", "te-id6 "},
                                                                 {"Node Maximum SID Depth", "msd 1:"}};
    // FRR's names of a link's attributes and addresses, and the model's (a tab between).
    static const std::map<std::string, std::string> linkItems = [] {
        std::map<std::string, std::string> names;
        std::istringstream in(readText(dataPath("frr-link-names.tsv")));
        for (std::string line; std::getline(in, line);) {
            const auto tab = line.find('\t');
            names.emplace(line.substr(0, tab), line.substr(tab + 1));
        }
        return names;
    }();

    Listing out;
    Lines* node = nullptr;
    std::string head;  // the neighbor or prefix being read, and its parts
    std::vector<std::string> parts, sids[2], unreserved;
    const auto flush = [&] {
        for (const auto& [name, set] : {std::pair("adjSid=", &sids[0]), std::pair("lanAdjSid=", &sids[1])}) {
            if (!set->empty()) {
                parts.push_back(name + sortedJoin(*set, ","));
            }
        }
        if (!head.empty()) {
            node->insert(sortedJoin(parts, " ", head));
        }
        head.clear();
        parts.clear();
        sids[0] = sids[1] = {};
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
        const std::string word = value.substr(0, value.find(' '));
        if (std::regex_match(t, m, is)) {
            flush();
            head = cat("nbr ", m[1], " mt", mtNumber(m[3]));
            parts.push_back(cat("igpMetric=", m[2]));
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
        } else if (key == "Administrative Group") {
            parts.push_back(cat("adminGroup=", std::stoul(word, nullptr, 16)));
        } else if (linkItems.count(key)) {
            parts.push_back(linkItems.at(key) + word + (key.starts_with("Normal") ? "/0" : "") +
                            (key.starts_with("Anomalous") ? "/1" : ""));
        } else if (std::regex_match(t, m, adj)) {
            sids[m[1].matched].push_back(
                cat(flagOctet(m[4], adjBits), "/", m[2], "/", m[3], m[1].matched ? "/" : ""));
        } else if (key == "Neighbor-ID") {
            sids[1].back() += value;  // completes the LAN adjacency SID above
        } else if (std::regex_search(t, m, unrsv)) {
            for (std::sregex_iterator it(t.begin(), t.end(), unrsv), end; it != end; ++it) {
                unreserved.push_back(cat((*it)[1], ":", (*it)[2]));
            }
            if (unreserved.size() == 8) {
                parts.push_back("unreservedBw=" + sortedJoin(unreserved, ","));
                unreserved.clear();
            }
        } else if (std::regex_match(t, m, sid)) {
            head += cat(" sid=", m[1], "/", hex(flagOctet(m[2], sidBits)));
        }
    }
    flush();
    // Under metric-style transition a prefix is listed twice, narrow and wide,
    // but it is one prefix of the model: the narrow line goes when the wide
    // one says the same and more (the prefix SID).
    for (auto& [name, lines] : out.nodes) {
        for (auto it = lines.begin(); it != lines.end();) {
            const auto next = std::next(it);
            it = it->starts_with("pfx ") && next != lines.end() && next->starts_with(*it + " ")
                     ? lines.erase(it)
                     : next;
        }
    }
    return out;
}

TEST(LabDatabase, KeepersHoldWhatEveryRouterListed) {
    LspKeeper keepers[2] = {LspKeeper(IC::igpLevelIsisLevel1), LspKeeper(IC::igpLevelIsisLevel2)};
    for (const auto& pdu : readPdus("frr-initial.pcap")) {
        if (isLsp(pdu)) {
            DecodeError why;
            EXPECT_NE(keepers[lspLevel(pdu) - 1].receivePdu(pdu, &why), LspKeeper::Outcome::rejected)
                << why.message();
        }
    }
    // What each keeper holds by the listings' names, with the header of each fragment held.
    std::map<std::string, Lines> held[2];
    for (unsigned level = 0; level < 2; ++level) {
        const auto& db = *keepers[level].database();
        std::map<std::string, std::string> hosts;  // system ID text to host name
        for (const auto& e : db.lsp()) {
            hosts[nodeIdText(e->nodeId()).substr(0, 14)] += e->node()->hostName();
        }
        for (const auto& e : db.lsp()) {
            const std::string id = nodeIdText(e->nodeId());
            held[level][hosts[id.substr(0, 14)] + id.substr(14)] = linesOf(*e);
        }
        keepers[level].forEachFragment([&](const LspKeeper::HeldFragment& f) {
            const std::string id = f.header.lspIdText();
            held[level][hosts[id.substr(0, 14)] + id.substr(14, 3)].insert(
                cat("lsp ", id.substr(18), " seq=", hex(f.header.sequenceNumber, 8),
                    " len=", f.header.pduLength, " cksum=", hex(f.header.checksum, 4)));
        });
    }
    for (const auto& [router, level] : std::initializer_list<std::pair<const char*, unsigned>>{
             {"r1", 2}, {"r2", 1}, {"r2", 2}, {"r3", 1}, {"r3", 2}, {"r4", 1}, {"r5", 1}, {"r6", 2}}) {
        const std::string file = cat("frr-show/", router, ".database-detail.level-", level, ".txt");
        SCOPED_TRACE(file);
        const Listing want = readListing(file);
        const auto& got = held[level - 1];
        EXPECT_EQ(want.lsps, keepers[level - 1].fragmentCount());
        ASSERT_EQ(want.nodes.size(), got.size());
        for (const auto& [name, lines] : want.nodes) {
            expectSameLines(lines, got.count(name) ? got.at(name) : Lines{}, name);
        }
    }
}

}  // namespace
