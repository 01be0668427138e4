// The lab's six routers against the routes computed from the capture of the
// lab: each router's database at the end of the capture, rooted at it, must
// give the tables it listed with `show isis route prefix-sid` (prefixes,
// metrics, next hops, SIDs, label operations) and the tree it listed with
// `show isis topology` (data/rN.routes.txt). IPv6 next hops are link-local
// addresses whose MACs end in the router's number and the peer's, so the test
// compares routers there; where a route has several next hops these routers
// print the first one's label operation on every line, so only the incoming
// label is compared.

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
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

std::string dataPath(const std::string& name) {
    return std::string(IGPROUTES_TESTDATA) + "/" + name;
}

// One route of a listing.
struct Row {
    std::string metric;
    std::vector<std::string> nextHops;  // as printed
    std::string sid;
    std::string op;  // of the first line
};

struct Table {
    unsigned level = 0;
    IR::Family family = IR::Family::ipv4;
    std::map<std::string, Row> rows;
};

std::vector<Table> readListing(const std::string& path) {
    std::ifstream in(path);
    EXPECT_TRUE(in) << path;
    static const std::regex title(R"(IS-IS L(\d) (IPv4|IPv6) routing table:)");
    static const std::regex first(R"(^ (\S+) +(\d+) +(\S+) +(\S+) +(\S+) +(\S.*?) *$)");
    static const std::regex more(R"(^ {3,}(\S+) +(\S+) +(\S+) +(\S.*?) *$)");
    std::vector<Table> tables;
    Row* last = nullptr;
    std::smatch m;
    for (std::string line; std::getline(in, line);) {
        if (line.rfind("=====", 0) == 0 && line.find("topology") != std::string::npos) {
            break;
        }
        if (std::regex_search(line, m, title)) {
            tables.push_back({static_cast<unsigned>(std::stoul(m[1])),
                              m[2] == "IPv4" ? IR::Family::ipv4 : IR::Family::ipv6,
                              {}});
            last = nullptr;
        } else if (!tables.empty() && std::regex_match(line, m, first) && m[1] != "Prefix") {
            last = &tables.back().rows[m[1]];
            *last = {m[2], {}, m[5], m[6]};
            if (m[4] != "-") {
                last->nextHops.push_back(m[4]);
            }
        } else if (last != nullptr && std::regex_match(line, m, more)) {
            last->nextHops.push_back(m[2]);
        }
    }
    return tables;
}

IC::IgpNodeId labRouter(unsigned n) {
    const std::uint8_t bytes[7] = {0, 0, 0, 0, 0, static_cast<std::uint8_t>(n), 0};
    return IC::IgpNodeId::fromBytes(bytes);
}

// The lab routers' databases at the end of the capture, per level.
class LabRoutes : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        std::ifstream in(IGPROUTES_LAB_CAPTURE, std::ios::binary);
        const auto pdus = ID::readPcap(in);
        for (const unsigned level : {1u, 2u}) {
            keepers_[level] = std::make_unique<ID::LspKeeper>(static_cast<IC::IgpLevel>(level));
            for (const auto& pdu : pdus) {
                if (ID::pduKind(pdu) == ID::PduKind::lsp && ID::lspLevel(pdu) == level) {
                    keepers_[level]->receivePdu(pdu);
                }
            }
        }
    }
    static void TearDownTestSuite() { keepers_.clear(); }

    static Poldo::Ptr<IC::IgpLspDatabase> db(unsigned level) { return keepers_.at(level)->database(); }

    static inline std::map<unsigned, std::unique_ptr<ID::LspKeeper>> keepers_;
};

std::string text(const Lumo::IpGenPrefix& p) {
    return p.stringValue().c_str();
}

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

std::string nextHopText(const IR::NextHop& nh, IR::Family family) {
    return family == IR::Family::ipv6 ? routerName(nh.systemId.byte(IC::IgpNodeIdIndex(5)))
           : nh.address               ? nh.address->stringValue().c_str()
                                      : "?";
}

std::string labelText(std::uint32_t label, IR::Family family) {
    const bool explicitNull = label == (family == IR::Family::ipv4 ? 0u : 2u);
    return explicitNull ? "null" : std::to_string(label);
}

// The route in the listing's words: SID column and the first line's operation.
Row rowOf(const IR::Route& r, IR::Family family) {
    Row row;
    row.metric = std::to_string(r.metric);
    for (const auto& nh : r.nextHops) {
        row.nextHops.push_back(nextHopText(nh, family));
    }
    row.sid = r.sidIndex ? std::to_string(*r.sidIndex) : r.inLabel ? std::to_string(*r.inLabel) : "-";
    row.op = "-";
    if (r.inLabel) {
        const std::string in = std::to_string(*r.inLabel);
        if (r.nextHops.empty() || r.nextHops.front().op == IR::LabelOp::pop) {
            row.op = "Pop(" + in + ")";
        } else if (r.nextHops.front().op == IR::LabelOp::swap) {
            row.op = "Swap(" + in + ", " + labelText(r.nextHops.front().outLabel, family) + ")";
        }
    }
    return row;
}

std::string incomingLabel(const std::string& op) {
    const auto open = op.find('(');
    return open == std::string::npos ? "-" : op.substr(open + 1, op.find_first_of(",)") - open - 1);
}

TEST_F(LabRoutes, EveryRouterComputesTheTablesItListed) {
    for (unsigned n = 1; n <= 6; ++n) {
        const std::string router = routerName(n);
        const auto tables = readListing(dataPath(router + ".routes.txt"));
        ASSERT_FALSE(tables.empty()) << router;
        for (const Table& t : tables) {
            SCOPED_TRACE(router + " L" + std::to_string(t.level) +
                         (t.family == IR::Family::ipv4 ? " IPv4" : " IPv6"));
            IR::RouteTable table(db(t.level), labRouter(n), t.family, IR::Options{true});
            std::set<std::string> ours;
            for (const auto& [prefix, route] : table.routes()) {
                ours.insert(text(prefix));
                const auto it = t.rows.find(text(prefix));
                if (it == t.rows.end()) {
                    ADD_FAILURE() << "not listed: " << text(prefix);
                    continue;
                }
                const Row& listed = it->second;
                const Row mine = rowOf(route, t.family);
                EXPECT_EQ(listed.metric, mine.metric) << text(prefix);
                std::multiset<std::string> hops;
                for (const auto& h : listed.nextHops) {
                    hops.insert(nextHopText(h, t.family));
                }
                EXPECT_EQ(hops, std::multiset<std::string>(mine.nextHops.begin(), mine.nextHops.end()))
                    << text(prefix);
                EXPECT_EQ(listed.sid, mine.sid) << text(prefix);
                if (listed.nextHops.size() > 1) {
                    EXPECT_EQ(incomingLabel(listed.op), incomingLabel(mine.op)) << text(prefix);
                } else {
                    EXPECT_EQ(listed.op, mine.op) << text(prefix);
                }
            }
            for (const auto& [prefix, row] : t.rows) {
                EXPECT_TRUE(ours.count(prefix)) << "listed but not computed: " << prefix;
            }
        }
    }
}

// The routers of one `show isis topology` section: for each, the least
// distance listed and the first hops of the lines at that distance. These
// routers may list one router twice (once per kind of link that reaches it,
// or once directly and once behind a LAN), hence the merge.
struct Reached {
    std::uint64_t distance = 0;
    std::set<std::string> hops;
};

std::vector<std::map<std::string, Reached>> readTrees(const std::string& path) {
    std::ifstream in(path);
    static const std::regex router(R"(^(\S+) +(?:TE-)?IS +(\d+) +(\S+) +\S+ +\S+ *$)");
    static const std::regex more(R"(^ {20,}(\S+) +\S+ *\S* *$)");
    std::vector<std::map<std::string, Reached>> trees;
    std::string last;  // the router whose line the next continuation belongs to
    std::smatch m;
    bool inTopology = false;
    for (std::string line; std::getline(in, line);) {
        if (line.rfind("=====", 0) == 0) {
            inTopology = line.find("show isis topology") != std::string::npos;
        } else if (inTopology && line.rfind("IS-IS paths to", 0) == 0) {
            trees.emplace_back();
            last.clear();
        } else if (!trees.empty() && std::regex_match(line, m, router)) {
            const std::uint64_t d = std::stoull(m[2]);
            auto [it, fresh] = trees.back().try_emplace(m[1], Reached{d, {}});
            if (fresh || d < it->second.distance) {
                it->second = {d, {}};
            }
            last = d == it->second.distance ? std::string(m[1]) : std::string();
            if (!last.empty()) {
                it->second.hops.insert(m[3]);
            }
        } else if (!last.empty() && !trees.empty() && std::regex_match(line, m, more)) {
            trees.back()[last].hops.insert(m[1]);
        } else if (!line.empty() && line[0] != ' ') {
            last.clear();
        }
    }
    return trees;
}

TEST_F(LabRoutes, EveryRouterComputesTheTreeItListed) {
    for (unsigned n = 1; n <= 6; ++n) {
        const std::string router = routerName(n);
        const auto tables = readListing(dataPath(router + ".routes.txt"));
        const auto trees = readTrees(dataPath(router + ".routes.txt"));
        // One tree per routing table, in the same order: IPv4 then IPv6 of each level.
        ASSERT_EQ(trees.size(), tables.size()) << router;
        for (std::size_t i = 0; i < trees.size(); ++i) {
            SCOPED_TRACE(router + " tree " + std::to_string(i));
            IR::RouteTable table(db(tables[i].level), labRouter(n), tables[i].family);
            std::map<std::string, Reached> ours;
            for (const auto& v : table.vertices()) {
                if (v.id.isPnodeId() || v.id == labRouter(n)) {
                    continue;
                }
                Reached& r = ours[routerName(v.id.byte(IC::IgpNodeIdIndex(5)))];
                r.distance = v.distance;
                for (const auto& h : v.nextHops) {
                    r.hops.insert(routerName(h.byte(IC::IgpNodeIdIndex(5))));
                }
            }
            ASSERT_EQ(ours.size(), trees[i].size());
            for (const auto& [name, listed] : trees[i]) {
                ASSERT_TRUE(ours.count(name)) << name;
                EXPECT_EQ(listed.distance, ours[name].distance) << name;
                EXPECT_EQ(listed.hops, ours[name].hops) << name;
            }
        }
    }
}

}  // namespace
