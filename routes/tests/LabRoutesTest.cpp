// The lab's six routers: each one's database at the end of the capture,
// rooted at it, gives the tables and tree it listed (data/rN.routes.txt).
// IPv6 next hops are link-local addresses whose MACs end in the router's
// number and the peer's, so the test compares routers there.

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "IsisDecoder/Frame.h"
#include "IsisDecoder/LspKeeper.h"
#include "IsisDecoder/Pcap.h"
#include "IsisRoutes/Routes.h"

namespace {

namespace IC = Routing::IgpCommon;
namespace IR = Routing::IsisRoutes;
namespace ID = Routing::IsisDecoder;

// "rN", built by appending: g++ 12 at -O3 warns (restrict) on "literal" + std::string.
std::string routerName(unsigned long n) {
    std::string name = "r";
    name += std::to_string(n);
    return name;
}

// The router behind a next hop as printed: an IPv4 address as it is, a
// link-local address by the router number its MAC carries.
std::string nextHopText(const std::string& printed, IR::Family family) {
    return family == IR::Family::ipv4
               ? printed
               : routerName(std::stoul(printed.substr(printed.rfind(':') + 1), nullptr, 16) >> 8);
}

// One route of a listing: metric, SID column, the first line's label
// operation, then the next hops by nextHopText.
using Row = std::vector<std::string>;

// The routers of one `show isis topology` section: for each, the least
// distance listed and the first hops of the lines at that distance. These
// routers may list one router twice (once per kind of link that reaches it,
// or once directly and once behind a LAN), hence the merge.
using Reached = std::pair<std::uint64_t, std::set<std::string>>;

// A routing table and the tree the same section order gives it: IPv4, then
// IPv6, of each level.
struct Table {
    unsigned level = 0;
    IR::Family family = IR::Family::ipv4;
    std::map<std::string, Row> rows;
    std::map<std::string, Reached> tree;
};

std::vector<Table> readListing(const std::string& path) {
    std::ifstream in(path);
    EXPECT_TRUE(in) << path;
    static const std::regex title(R"(IS-IS L(\d) (IPv4|IPv6) routing table:)");
    static const std::regex first(R"(^ (\S+) +(\d+) +(\S+) +(\S+) +(\S+) +(\S.*?) *$)");
    static const std::regex more(R"(^ {3,}(\S+) +(\S+) +(\S+) +(\S.*?) *$)");
    static const std::regex router(R"(^(\S+) +(?:TE-)?IS +(\d+) +(\S+) +\S+ +\S+ *$)");
    static const std::regex moreHops(R"(^ {20,}(\S+) +\S+ *\S* *$)");
    std::vector<Table> tables;
    Row* last = nullptr;
    std::map<std::string, Reached>* tree = nullptr;
    std::size_t trees = 0;
    std::string lastRouter;  // the router whose line the next continuation belongs to
    bool inTopology = false;
    std::smatch m;
    for (std::string line; std::getline(in, line);) {
        if (line.rfind("=====", 0) == 0) {
            inTopology = line.find("show isis topology") != std::string::npos;
        } else if (!inTopology && std::regex_search(line, m, title)) {
            tables.push_back({static_cast<unsigned>(std::stoul(m[1])),
                              m[2] == "IPv4" ? IR::Family::ipv4 : IR::Family::ipv6,
                              {},
                              {}});
            last = nullptr;
        } else if (!inTopology && !tables.empty() && std::regex_match(line, m, first) && m[1] != "Prefix") {
            last = &tables.back().rows[m[1]];
            *last = {m[2], m[5], m[6]};
            if (m[4] != "-") {
                last->push_back(nextHopText(m[4], tables.back().family));
            }
        } else if (!inTopology && last != nullptr && std::regex_match(line, m, more)) {
            last->push_back(nextHopText(m[2], tables.back().family));
        } else if (inTopology && line.rfind("IS-IS paths to", 0) == 0) {
            tree = &tables.at(trees++).tree;
            lastRouter.clear();
        } else if (tree != nullptr && std::regex_match(line, m, router)) {
            const std::uint64_t d = std::stoull(m[2]);
            auto [it, fresh] = tree->try_emplace(m[1], Reached{d, {}});
            if (fresh || d < it->second.first) {
                it->second = {d, {}};
            }
            lastRouter = d == it->second.first ? std::string(m[1]) : std::string();
            if (!lastRouter.empty()) {
                it->second.second.insert(m[3]);
            }
        } else if (!lastRouter.empty() && tree != nullptr && std::regex_match(line, m, moreHops)) {
            (*tree)[lastRouter].second.insert(m[1]);
        } else if (!line.empty() && line[0] != ' ') {
            lastRouter.clear();
        }
    }
    EXPECT_EQ(trees, tables.size()) << path;
    return tables;
}

std::string nextHopText(const IR::NextHop& nh, IR::Family family) {
    return family == IR::Family::ipv6 ? routerName(nh.systemId.byte(IC::IgpNodeIdIndex(5)))
           : nh.address               ? nh.address->stringValue().c_str()
                                      : "?";
}

std::string labelText(std::uint32_t label, IR::Family family) {
    const bool explicitNull = label == (family == IR::Family::ipv4 ? 0u : 2u);
    return explicitNull ? "null" : std::to_string(label);
}

// A route in the listing's words: metric, next hops, SID column and the first
// line's label operation, or only the incoming label when there are several
// next hops (these routers print the first one's operation on every line).
std::string routeText(const std::string& metric, std::vector<std::string> hops, const std::string& sid,
                      const std::string& op) {
    std::sort(hops.begin(), hops.end());
    std::string s = metric + " [";
    for (const auto& h : hops) {
        s += " " + h;
    }
    const auto open = op.find('(');
    const std::string in =
        open == std::string::npos ? "-" : op.substr(open + 1, op.find_first_of(",)") - open - 1);
    return s + " ] " + sid + " " + (hops.size() > 1 ? in : op);
}

std::string routeText(const IR::Route& r, IR::Family family) {
    std::vector<std::string> hops;
    for (const auto& nh : r.nextHops) {
        hops.push_back(nextHopText(nh, family));
    }
    std::string op = "-";
    if (r.inLabel) {
        const std::string in = std::to_string(*r.inLabel);
        if (r.nextHops.empty() || r.nextHops.front().op == IR::LabelOp::pop) {
            op = "Pop(" + in + ")";
        } else if (r.nextHops.front().op == IR::LabelOp::swap) {
            op = "Swap(" + in + ", " + labelText(r.nextHops.front().outLabel, family) + ")";
        }
    }
    const std::string sid = r.sidIndex  ? std::to_string(*r.sidIndex)
                            : r.inLabel ? std::to_string(*r.inLabel)
                                        : "-";
    return routeText(std::to_string(r.metric), hops, sid, op);
}

TEST(LabRoutes, EveryRouterComputesTheTablesAndTreesItListed) {
    std::ifstream in(IGPROUTES_LAB_CAPTURE, std::ios::binary);
    const auto pdus = ID::readPcap(in);
    std::map<unsigned, std::unique_ptr<ID::LspKeeper>> keepers;  // per level
    for (const unsigned level : {1u, 2u}) {
        keepers[level] = std::make_unique<ID::LspKeeper>(static_cast<IC::IgpLevel>(level));
        for (const auto& pdu : pdus) {
            if (ID::pduKind(pdu) == ID::PduKind::lsp && ID::lspLevel(pdu) == level) {
                keepers[level]->receivePdu(pdu);
            }
        }
    }
    for (unsigned n = 1; n <= 6; ++n) {
        const std::string router = routerName(n);
        const std::string path =
            std::string(IGPROUTES_TESTDATA).append("/").append(router).append(".routes.txt");
        const auto tables = readListing(path);
        const std::uint8_t id[7] = {0, 0, 0, 0, 0, static_cast<std::uint8_t>(n), 0};
        const auto root = IC::IgpNodeId::fromBytes(id);
        ASSERT_FALSE(tables.empty()) << router;
        for (const Table& t : tables) {
            SCOPED_TRACE(router + " L" + std::to_string(t.level) +
                         (t.family == IR::Family::ipv4 ? " IPv4" : " IPv6"));
            IR::RouteTable table(keepers.at(t.level)->database(), root, t.family, IR::Options{true});
            std::map<std::string, std::string> listed, ours;
            for (const auto& [prefix, row] : t.rows) {
                listed[prefix] = routeText(row[0], {row.begin() + 3, row.end()}, row[1], row[2]);
            }
            for (const auto& [prefix, route] : table.routes()) {
                ours[prefix.stringValue().c_str()] = routeText(route, t.family);
            }
            EXPECT_EQ(listed, ours);

            std::map<std::string, Reached> reached;
            for (const auto& v : table.vertices()) {
                if (v.id.isPnodeId() || v.id == root) {
                    continue;
                }
                Reached& r = reached[routerName(v.id.byte(IC::IgpNodeIdIndex(5)))];
                r.first = v.distance;
                for (const auto& h : v.nextHops) {
                    r.second.insert(routerName(h.byte(IC::IgpNodeIdIndex(5))));
                }
            }
            EXPECT_EQ(t.tree, reached);
        }
    }
}

}  // namespace
