// The lab's six routers against the routes computed from the capture of the
// lab: for every router and level, the database the capture leaves behind,
// rooted at that router, must give the routing tables the router listed with
// `show isis route prefix-sid` (data/rN.routes.txt): the same prefixes,
// metrics, next hops, SIDs and label operations.
//
// What the listings hold that LSPs do not is left out: interface names, and
// the IPv6 next hops, which are link-local addresses; the lab's interface
// MACs end in the router's number and the peer's, so fe80::ff:fe00:305 is r3
// and the test compares routers. Where a route has several next hops these
// routers print the first one's label operation on every line, so only the
// incoming label is compared there.

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
        std::ifstream in(dataPath("frr-initial.pcap"), std::ios::binary);
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

// The router behind a next hop as printed: an IPv4 address as it is, a
// link-local address by the router number its MAC carries.
std::string nextHopText(const std::string& printed, IR::Family family) {
    if (family == IR::Family::ipv4) {
        return printed;
    }
    const auto colon = printed.rfind(':');
    const unsigned mac = static_cast<unsigned>(std::stoul(printed.substr(colon + 1), nullptr, 16));
    return "r" + std::to_string(mac >> 8);
}

std::string nextHopText(const IR::NextHop& nh, IR::Family family) {
    if (family == IR::Family::ipv4) {
        return nh.address ? nh.address->stringValue().c_str() : "?";
    }
    return "r" + std::to_string(nh.systemId.byte(IC::IgpNodeIdIndex(5)));
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
        const std::string router = "r" + std::to_string(n);
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

}  // namespace
