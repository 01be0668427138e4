#include "Routes.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "Capture.h"
#include "IsisDecoder/Frame.h"
#include "IsisRoutes/Routes.h"
#include "Json.h"
#include "Lsdb.h"
#include "NodeFilter.h"
#include "Report.h"

namespace IgpLsdb {

namespace {

namespace IR = Routing::IsisRoutes;

constexpr int exitOutputFailed = 1;
constexpr int exitBadInput = 2;

struct RouteOptions {
    std::vector<std::string> captures;
    unsigned level = 0;
    bool json = false;
    bool follow = false;
    std::string from;
    std::string format = "dot";
};

bool fail(const std::string& name, const std::string& why) {
    std::cerr << "igp-lsdb: " << name << ": " << why << '\n';
    return false;
}

// Opens every capture before reading any, so that a bad name stops the run
// before anything is printed.
bool readCaptures(Lsdb& lsdb, const std::vector<std::string>& paths) {
    std::vector<std::unique_ptr<Capture>> captures;
    std::string error;
    if (paths.empty()) {
        captures.push_back(Capture::openBuiltIn(error));
        if (!captures.back()) {
            return fail(Capture::builtInName, error);
        }
    }
    for (const std::string& path : paths) {
        captures.push_back(Capture::open(path, error));
        if (!captures.back()) {
            return fail(path, error);
        }
        if (!Routing::IsisDecoder::linkTypeSupported(captures.back()->linkType())) {
            return fail(path,
                        "link type " + std::to_string(captures.back()->linkType()) + " is not supported");
        }
    }
    for (std::size_t i = 0; i < captures.size(); ++i) {
        if (!lsdb.read(*captures[i], i + 1)) {
            return fail(captures[i]->name(), captures[i]->error());
        }
    }
    return true;
}

// Flushes the output and lists what was malformed, as the other commands do:
// status 1 when the output could not be written (a closed pipe included).
int finish(const Lsdb& lsdb) {
    std::cout.flush();
    if (!std::cout) {
        std::cerr << "igp-lsdb: cannot write the output\n";
        return exitOutputFailed;
    }
    printMalformed(std::cerr, lsdb);
    return 0;
}

HostNames namesOf(const Lsdb& lsdb) {
    HostNames names;
    for (const unsigned level : lsdb.levels()) {
        names.noteAll(*lsdb.keeper(level).database());
    }
    return names;
}

// The one router --from names, in any level.
std::optional<IC::IgpNodeId> findRoot(const Lsdb& lsdb, const std::string& from, const HostNames& names) {
    const NodeFilter filter(std::vector<std::string>{from});
    std::map<std::uint64_t, IC::IgpNodeId> systems;
    for (const unsigned level : lsdb.levels()) {
        for (const auto& entry : lsdb.keeper(level).database()->lsp()) {
            if (!entry->nodeId().isPnodeId() && filter.matches(entry->nodeId(), names)) {
                systems.emplace(entry->nodeId().toU64(), entry->nodeId());
            }
        }
    }
    if (systems.size() != 1) {
        std::cerr << "igp-lsdb: " << (systems.empty() ? "no router matches '" : "several routers match '")
                  << from << "'\n";
        return std::nullopt;
    }
    return systems.begin()->second;
}

std::string idText(const IC::IgpNodeId& id) {
    return id.toStrep().c_str();
}

// "2024-05-01T10:00:00.123456Z"
std::string timeText(std::int64_t micros) {
    // Floored, so that a time before 1970 still prints its microseconds positive.
    const std::int64_t rest = ((micros % 1000000) + 1000000) % 1000000;
    const auto seconds = static_cast<std::time_t>((micros - rest) / 1000000);
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    char text[48];
    const std::size_t n = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &utc);
    std::snprintf(text + n, sizeof text - n, ".%06dZ", static_cast<int>(rest));
    return text;
}

std::string nameOf(const IC::IgpNodeId& id, const HostNames& names) {
    const auto name = names.of(id);
    if (!name) {
        return idText(id);
    }
    if (id.isPnodeId()) {
        const std::string full = idText(id);
        return *name + full.substr(full.size() - 3);  // "r1.02"
    }
    return *name;
}

Json hostJson(const IC::IgpNodeId& id, const HostNames& names) {
    const auto name = names.of(id);
    return name ? Json(*name) : Json(nullptr);
}

const char* familyName(IR::Family f) {
    return f == IR::Family::ipv4 ? "ipv4" : "ipv6";
}

std::string outLabelText(const IR::NextHop& nh, IR::Family f) {
    switch (nh.op) {
        case IR::LabelOp::pop:
            return "implicit-null";
        case IR::LabelOp::swap:
            if (nh.outLabel == (f == IR::Family::ipv4 ? 0u : 2u)) {
                return std::to_string(nh.outLabel) + " (explicit-null)";
            }
            return std::to_string(nh.outLabel);
        case IR::LabelOp::none:
            break;
    }
    return "-";
}

Json outLabelJson(const IR::NextHop& nh) {
    switch (nh.op) {
        case IR::LabelOp::pop:
            return "implicit-null";
        case IR::LabelOp::swap:
            return nh.outLabel;
        case IR::LabelOp::none:
            break;
    }
    return nullptr;
}

template <class T>
Json optJson(const std::optional<T>& v) {
    return v ? Json(*v) : Json(nullptr);
}

template <class T>
std::string optText(const std::optional<T>& v) {
    return v ? std::to_string(*v) : "-";
}

Json routeJson(const IR::Route& r, const HostNames& names) {
    Json j;
    j["prefix"] = r.prefix.stringValue().c_str();
    j["metric"] = r.metric;
    j["local"] = r.local;
    j["default"] = r.isDefault;
    j["sid"] = optJson(r.sidIndex);
    j["inLabel"] = optJson(r.inLabel);
    Json origins = Json::array();
    for (const auto& o : r.originators) {
        origins.push_back(idText(o));
    }
    j["originators"] = origins;
    Json hops = Json::array();
    for (const auto& nh : r.nextHops) {
        hops.push_back({{"systemId", idText(nh.systemId)},
                        {"hostname", hostJson(nh.systemId, names)},
                        {"address", nh.address ? Json(nh.address->stringValue().c_str()) : Json(nullptr)},
                        {"outLabel", outLabelJson(nh)}});
    }
    j["nextHops"] = hops;
    return j;
}

// Columns padded to their widest cell, the last one unpadded.
void printColumns(std::ostream& os, const std::vector<std::vector<std::string>>& rows) {
    std::vector<std::size_t> width;
    for (const auto& row : rows) {
        width.resize(std::max(width.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i) {
            width[i] = std::max(width[i], row[i].size());
        }
    }
    for (const auto& row : rows) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            line += row[i];
            if (i + 1 < row.size()) {
                line += std::string(width[i] - row[i].size() + 2, ' ');
            }
        }
        while (!line.empty() && line.back() == ' ') {
            line.pop_back();
        }
        os << line << '\n';
    }
}

std::string levelTitle(unsigned level, IR::Family f, IC::IgpMultiTopologyId mt) {
    return "Level-" + std::to_string(level) + (f == IR::Family::ipv4 ? " IPv4" : " IPv6") + ", topology " +
           std::to_string(mt.value());
}

void printRoutes(std::ostream& os, IR::RouteTable& t, IR::Family f, const HostNames& names) {
    std::vector<std::vector<std::string>> rows = {
        {"Prefix", "Metric", "SID", "In label", "Next hop", "Address", "Out label"}};
    for (const auto& [prefix, r] : t.routes()) {
        std::vector<std::string> first = {prefix.stringValue().c_str(), std::to_string(r.metric),
                                          optText(r.sidIndex), optText(r.inLabel)};
        if (r.nextHops.empty()) {
            first.insert(first.end(), {"local", "-", "-"});
            rows.push_back(first);
            continue;
        }
        for (std::size_t i = 0; i < r.nextHops.size(); ++i) {
            const auto& nh = r.nextHops[i];
            std::vector<std::string> row = i == 0 ? first : std::vector<std::string>(4, "");
            row.insert(row.end(), {nameOf(nh.systemId, names),
                                   nh.address ? std::string(nh.address->stringValue().c_str()) : "-",
                                   outLabelText(nh, f)});
            rows.push_back(row);
        }
    }
    printColumns(os, rows);
}

struct Table {
    unsigned level;
    IR::Family family;
    std::unique_ptr<IR::RouteTable> routes;
};

std::vector<Table> tablesOf(const Lsdb& lsdb, const IC::IgpNodeId& root, bool rootPresentOnly) {
    std::vector<Table> out;
    for (const unsigned level : lsdb.levels()) {
        const auto db = lsdb.keeper(level).database();
        if (rootPresentOnly && !db->lsp(root)) {
            continue;
        }
        for (const IR::Family f : {IR::Family::ipv4, IR::Family::ipv6}) {
            out.push_back({level, f, std::make_unique<IR::RouteTable>(db, root, f)});
        }
    }
    return out;
}

Json fromJson(const IC::IgpNodeId& root, const HostNames& names) {
    return {{"systemId", idText(root)}, {"hostname", hostJson(root, names)}};
}

int routes(const RouteOptions& o) {
    Lsdb lsdb(o.level);
    if (!readCaptures(lsdb, o.captures)) {
        return exitBadInput;
    }
    const HostNames names = namesOf(lsdb);
    const auto root = findRoot(lsdb, o.from, names);
    if (!root) {
        return exitBadInput;
    }
    auto tables = tablesOf(lsdb, *root, true);
    if (o.json) {
        Json doc;
        doc["kind"] = "routes";
        doc["version"] = jsonVersion;
        doc["from"] = fromJson(*root, names);
        Json list = Json::array();
        for (Table& t : tables) {
            Json routes = Json::array();
            for (const auto& [prefix, r] : t.routes->routes()) {
                routes.push_back(routeJson(r, names));
            }
            list.push_back({{"level", t.level},
                            {"family", familyName(t.family)},
                            {"topology", t.routes->topology().value()},
                            {"routes", routes}});
        }
        doc["tables"] = list;
        std::cout << jsonText(doc, false) << '\n';
        return finish(lsdb);
    }
    bool first = true;
    for (Table& t : tables) {
        std::cout << (first ? "" : "\n") << levelTitle(t.level, t.family, t.routes->topology())
                  << " routes of " << nameOf(*root, names) << " (" << idText(*root) << ")\n";
        printRoutes(std::cout, *t.routes, t.family, names);
        first = false;
    }
    return finish(lsdb);
}

// What --follow compares from one merge to the next.
struct Seen {
    std::uint64_t metric;
    std::vector<std::string> hops;
    friend bool operator==(const Seen&, const Seen&) = default;
};

int follow(const RouteOptions& o) {
    // The root is named before the LSPs that name it are read: a first pass learns the names.
    IC::IgpNodeId root;
    HostNames names;
    {
        Lsdb scan(o.level);
        if (!readCaptures(scan, o.captures)) {
            return exitBadInput;
        }
        names = namesOf(scan);
        const auto found = findRoot(scan, o.from, names);
        if (!found) {
            return exitBadInput;
        }
        root = *found;
    }
    Lsdb lsdb(o.level);
    auto tables = tablesOf(lsdb, root, false);
    std::vector<std::map<Lumo::IpGenPrefix, Seen>> seen(tables.size());
    FrameRef where;
    lsdb.beforeMerge = [&](const FrameRef& w, unsigned, const IC::IgpNodeId&) { where = w; };
    lsdb.afterMerge = [&] {
        for (std::size_t i = 0; i < tables.size(); ++i) {
            Table& t = tables[i];
            std::map<Lumo::IpGenPrefix, Seen> now;
            for (const auto& [prefix, r] : t.routes->routes()) {
                Seen s{r.metric, {}};
                for (const auto& nh : r.nextHops) {
                    s.hops.push_back(nameOf(nh.systemId, names));
                }
                now.emplace(prefix, std::move(s));
            }
            std::set<Lumo::IpGenPrefix> keys;
            for (const auto* m : {&seen[i], &now}) {
                for (const auto& [k, v] : *m) {
                    keys.insert(k);
                }
            }
            for (const auto& k : keys) {
                const auto a = seen[i].find(k);
                const auto b = now.find(k);
                const Seen* oldS = a == seen[i].end() ? nullptr : &a->second;
                const Seen* newS = b == now.end() ? nullptr : &b->second;
                if (oldS != nullptr && newS != nullptr && *oldS == *newS) {
                    continue;
                }
                const auto side = [](const Seen* s) -> Json {
                    if (s == nullptr) {
                        return nullptr;
                    }
                    return {{"metric", s->metric}, {"nextHops", s->hops}};
                };
                const auto metricText = [](const Seen* s) { return s ? std::to_string(s->metric) : "-"; };
                const auto hopsText = [](const Seen* s) {
                    if (s == nullptr) {
                        return std::string("-");
                    }
                    std::string out;
                    for (const auto& h : s->hops) {
                        out += (out.empty() ? "" : ",") + h;
                    }
                    return out.empty() ? std::string("local") : out;
                };
                if (o.json) {
                    Json j;
                    j["kind"] = "route-change";
                    j["capture"] = where.capture;
                    j["frame"] = where.frame;
                    j["time"] = timeText(where.time);
                    j["level"] = t.level;
                    j["family"] = familyName(t.family);
                    j["prefix"] = k.stringValue().c_str();
                    j["old"] = side(oldS);
                    j["new"] = side(newS);
                    std::cout << jsonText(j, true) << '\n';
                } else {
                    std::cout << where.capture << ':' << where.frame << ' ' << timeText(where.time) << " L"
                              << t.level << ' ' << (t.family == IR::Family::ipv4 ? "IPv4 " : "IPv6 ")
                              << k.stringValue().c_str() << " metric " << metricText(oldS) << " -> "
                              << metricText(newS) << ", via " << hopsText(oldS) << " -> " << hopsText(newS)
                              << '\n';
                }
            }
            seen[i] = std::move(now);
        }
    };
    if (!readCaptures(lsdb, o.captures)) {
        return exitBadInput;
    }
    return finish(lsdb);
}

const char* vertexType(const IR::Vertex& v) {
    if (v.id.isPnodeId()) {
        return "pseudonode";
    }
    return v.overloaded ? "router (overloaded)" : "router";
}

int topology(const RouteOptions& o) {
    Lsdb lsdb(o.level);
    if (!readCaptures(lsdb, o.captures)) {
        return exitBadInput;
    }
    const HostNames names = namesOf(lsdb);
    const auto root = findRoot(lsdb, o.from, names);
    if (!root) {
        return exitBadInput;
    }
    Json list = Json::array();
    bool first = true;
    for (Table& t : tablesOf(lsdb, *root, true)) {
        // IPv6 has a tree of its own only in a topology of its own.
        if (t.family == IR::Family::ipv6 && t.routes->topology().value() == 0) {
            continue;
        }
        const auto vertices = t.routes->vertices();
        const auto joined = [&](const std::vector<IC::IgpNodeId>& ids) {
            std::string out;
            for (const auto& id : ids) {
                out += (out.empty() ? "" : ",") + nameOf(id, names);
            }
            return out.empty() ? std::string("-") : out;
        };
        if (o.json) {
            Json vs = Json::array();
            for (const auto& v : vertices) {
                Json hops = Json::array();
                for (const auto& h : v.nextHops) {
                    hops.push_back(idText(h));
                }
                Json parents = Json::array();
                for (const auto& p : v.parents) {
                    parents.push_back(idText(p));
                }
                vs.push_back({{"nodeId", idText(v.id)},
                              {"hostname", hostJson(v.id, names)},
                              {"pseudonode", v.id.isPnodeId()},
                              {"overloaded", v.overloaded},
                              {"distance", v.distance},
                              {"nextHops", hops},
                              {"parents", parents}});
            }
            list.push_back(
                {{"level", t.level}, {"topology", t.routes->topology().value()}, {"vertices", vs}});
            continue;
        }
        std::cout << (first ? "" : "\n") << "Level-" << t.level << ", topology "
                  << t.routes->topology().value() << ", from " << nameOf(*root, names) << " ("
                  << idText(*root) << ")\n";
        std::vector<std::vector<std::string>> rows = {{"Vertex", "Type", "Distance", "Next hops", "Parents"}};
        for (const auto& v : vertices) {
            rows.push_back({nameOf(v.id, names), vertexType(v), std::to_string(v.distance),
                            joined(v.nextHops), joined(v.parents)});
        }
        printColumns(std::cout, rows);
        first = false;
    }
    if (o.json) {
        Json doc;
        doc["kind"] = "topology";
        doc["version"] = jsonVersion;
        doc["from"] = fromJson(*root, names);
        doc["trees"] = list;
        std::cout << jsonText(doc, false) << '\n';
    }
    return finish(lsdb);
}

// A link of the drawing: both ends' metrics, either missing when only one end lists it.
struct Link {
    std::optional<std::uint32_t> ab;
    std::optional<std::uint32_t> ba;
};

std::string dotQuote(const std::string& s) {
    std::string out = "\"";
    for (const char c : s) {
        if (c == '"' || c == '\\') {
            out += '\\';
        }
        out += c;
    }
    return out + '"';
}

int graph(const RouteOptions& o) {
    Lsdb lsdb(o.level);
    if (!readCaptures(lsdb, o.captures)) {
        return exitBadInput;
    }
    const HostNames names = namesOf(lsdb);
    Json levels = Json::array();
    std::ostringstream dot;
    dot << "graph isis {\n  node [fontname=\"Helvetica\"];\n  edge [fontname=\"Helvetica\", fontsize=10];\n";
    for (const unsigned level : lsdb.levels()) {
        const auto& db = *lsdb.keeper(level).database();
        std::map<IC::IgpNodeId, Poldo::Ptr<IC::IgpLsp>> entries;
        for (const auto& e : db.lsp()) {
            if (e->node()) {
                entries.emplace(e->nodeId(), e);
            }
        }
        // Links of the standard topology, by their ends in order.
        std::map<std::pair<IC::IgpNodeId, IC::IgpNodeId>, Link> links;
        Json nodes = Json::array();
        Json edges = Json::array();
        for (const auto& [id, e] : entries) {
            const auto flags = e->node()->flags();
            nodes.push_back({{"nodeId", idText(id)},
                             {"hostname", hostJson(id, names)},
                             {"pseudonode", id.isPnodeId()},
                             {"overloaded", flags.overloadBit()},
                             {"attached", flags.attachedBit()}});
            std::map<IC::IgpNodeId, std::uint32_t> best;
            for (const auto& m : e->neighbor()) {
                if (m.key.mtId().value() != 0 || !entries.count(m.key.nodeId())) {
                    continue;
                }
                const auto it = best.find(m.key.nodeId());
                if (it == best.end() || m.value->igpMetric() < it->second) {
                    best[m.key.nodeId()] = m.value->igpMetric();
                }
            }
            for (const auto& [to, metric] : best) {
                edges.push_back({{"from", idText(id)}, {"to", idText(to)}, {"metric", metric}});
                if (id < to) {
                    links[{id, to}].ab = metric;
                } else {
                    links[{to, id}].ba = metric;
                }
            }
        }
        levels.push_back({{"level", level}, {"nodes", nodes}, {"links", edges}});

        const std::string prefix = "L" + std::to_string(level) + ":";
        dot << "  subgraph \"cluster_level" << level << "\" {\n    label=\"level " << level << "\";\n";
        for (const auto& [id, e] : entries) {
            const auto flags = e->node()->flags();
            std::string label = nameOf(id, names);
            if (!id.isPnodeId()) {
                label += "\\n" + idText(id);
            }
            if (flags.overloadBit()) {
                label += "\\noverloaded";
            }
            if (flags.attachedBit() && level == 1 && !id.isPnodeId()) {
                label += "\\nattached";
            }
            dot << "    " << dotQuote(prefix + idText(id)) << " [label=\"" << label
                << "\", shape=" << (id.isPnodeId() ? "ellipse, style=dashed" : "box")
                << (flags.overloadBit() ? ", color=red" : "") << "];\n";
        }
        for (const auto& [ends, l] : links) {
            std::string label;
            if (l.ab && l.ba && (*l.ab == *l.ba || ends.second.isPnodeId())) {
                // A pseudonode's links to its members cost nothing (ISO 10589 7.2.7): the member's counts.
                label = std::to_string(*l.ab);
            } else if (l.ab && l.ba && ends.first.isPnodeId()) {
                label = std::to_string(*l.ba);
            } else {
                label = (l.ab ? std::to_string(*l.ab) : "-") + " / " + (l.ba ? std::to_string(*l.ba) : "-");
            }
            dot << "    " << dotQuote(prefix + idText(ends.first)) << " -- "
                << dotQuote(prefix + idText(ends.second)) << " [label=\"" << label << "\""
                << (l.ab && l.ba ? "" : ", style=dotted") << "];\n";
        }
        dot << "  }\n";
    }
    dot << "}\n";
    if (o.format == "json") {
        Json doc;
        doc["kind"] = "graph";
        doc["version"] = jsonVersion;
        doc["levels"] = levels;
        std::cout << jsonText(doc, false) << '\n';
    } else {
        std::cout << dot.str();
    }
    return finish(lsdb);
}

}  // namespace

bool isRouteCommand(std::string_view word) {
    return word == "routes" || word == "topology" || word == "graph";
}

std::function<std::optional<int>()> addRouteCommands(CLI::App& app) {
    auto o = std::make_shared<RouteOptions>();
    const auto common = [&](CLI::App& cmd) {
        cmd.add_option("captures", o->captures, "Captures, read in order");
        cmd.add_option("--level", o->level, "Only this IS-IS level")->check(CLI::IsMember({1u, 2u}));
    };
    auto* routesCmd = app.add_subcommand(
        "routes",
        "The routing table a router computes from the databases: prefix, metric, SID,\n"
        "incoming label, next hops and their outgoing labels, per level and address family");
    common(*routesCmd);
    routesCmd->add_option("--from", o->from, "The router: a system ID (0000.0000.0001) or a host name")
        ->required();
    routesCmd->add_flag("--json", o->json, "Write JSON");
    routesCmd->add_flag("--follow", o->follow,
                        "Show how the routes change as each LSP is merged: frame, prefix, old and new\n"
                        "metric and next hops");

    auto* topologyCmd = app.add_subcommand(
        "topology",
        "The shortest-path tree of a router: each router and pseudonode with its distance,\n"
        "first-hop routers and parents, per level and topology");
    common(*topologyCmd);
    topologyCmd->add_option("--from", o->from, "The router: a system ID or a host name")->required();
    topologyCmd->add_flag("--json", o->json, "Write JSON");

    auto* graphCmd = app.add_subcommand(
        "graph",
        "Each level's routers, pseudonodes and links of the standard topology, for graphviz\n"
        "(dot) or any graph tool (json); with no capture, the built-in capture");
    common(*graphCmd);
    graphCmd->add_option("--format", o->format, "dot or json")->check(CLI::IsMember({"dot", "json"}));

    return [o, routesCmd, topologyCmd, graphCmd]() -> std::optional<int> {
        if (routesCmd->parsed() || topologyCmd->parsed() || graphCmd->parsed()) {
            // A closed pipe is a failed write like any other: reported, with a status.
            std::signal(SIGPIPE, SIG_IGN);
        }
        if (routesCmd->parsed()) {
            return o->follow ? follow(*o) : routes(*o);
        }
        if (topologyCmd->parsed()) {
            return topology(*o);
        }
        if (graphCmd->parsed()) {
            return graph(*o);
        }
        return std::nullopt;
    };
}

}  // namespace IgpLsdb
