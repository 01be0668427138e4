#include "Views.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <sstream>

#include "Escape.h"
#include "Render.h"
#include "SortedText.h"

namespace IgpLsdb {

namespace {

std::string counted(std::size_t n, const char* what) {
    return std::to_string(n) + " " + what + (n == 1 ? "" : "s");
}

std::string hex(unsigned value, int digits) {
    char out[16];
    std::snprintf(out, sizeof out, "0x%0*x", digits, value);
    return out;
}

/// The columns `s` takes: one per character, UTF-8 continuation octets taking none.
std::size_t columns(std::string_view s) {
    return static_cast<std::size_t>(std::count_if(
        s.begin(), s.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; }));
}

/// The width of a table's first column: that of its widest entry.
std::size_t idWidth(const std::vector<LspRow>& rows, const HostNames& names) {
    std::size_t width = columns("LSP ID");
    for (const LspRow& r : rows) {
        width = std::max(width, columns(lspIdLabel(*r.header, names)));
    }
    return width;
}

void printRows(std::ostream& out, const std::vector<LspRow>& rows, const HostNames& names,
               const std::string& indent) {
    const std::size_t width = idWidth(rows, names);
    char line[160];
    std::snprintf(line, sizeof line, "%-*s  %6s  %-10s  %-6s  %8s  %s", static_cast<int>(width), "LSP ID",
                  "PduLen", "SeqNumber", "Chksum", "Holdtime", "ATT/P/OL");
    out << indent << line << '\n';
    for (const LspRow& r : rows) {
        const ID::LspHeader& h = *r.header;
        std::snprintf(line, sizeof line, "  %6u  %-10s  %-6s  %8u  %d/%d/%d", h.pduLength,
                      hex(h.sequenceNumber, 8).c_str(), hex(h.checksum, 4).c_str(), r.holdtime,
                      h.attached() ? 1 : 0, h.partitionRepair() ? 1 : 0, h.overload() ? 1 : 0);
        const std::string id = lspIdLabel(h, names);
        // The label may hold multi-octet characters: pad it by hand, not by printf.
        out << indent << id << std::string(width - std::min(width, columns(id)), ' ') << line << '\n';
    }
}

Json frameJson(const FrameRef& f) {
    return Json{{"capture", f.capture}, {"frame", f.frame}, {"time", timeText(f.time)}};
}

Json rowJson(const LspRow& r, const HostNames& names) {
    const ID::LspHeader& h = *r.header;
    const auto host = names.of(h.nodeId());
    return Json{
        {"lspId", h.lspIdText()},   {"hostname", host ? Json(escaped(*host)) : Json()},
        {"length", h.pduLength},    {"sequenceNumber", h.sequenceNumber},
        {"checksum", h.checksum},   {"remainingLifetime", r.holdtime},
        {"attached", h.attached()}, {"partitionRepair", h.partitionRepair()},
        {"overload", h.overload()}, {"received", frameJson(r.received)},
    };
}

/// The entries of a level that `sel` shows, by node identifier.
std::vector<Poldo::Ptr<IC::IgpLsp>> shownEntries(const IC::IgpLspDatabase& db, const Selection& sel,
                                                 const HostNames& names) {
    std::vector<Poldo::Ptr<IC::IgpLsp>> out;
    for (const auto& entry : db.lsp()) {
        if (sel.node(entry->nodeId(), entry.get(), names)) {
            out.push_back(entry);
        }
    }
    std::sort(out.begin(), out.end(), [](const auto& x, const auto& y) { return x->nodeId() < y->nodeId(); });
    return out;
}

/// The held fragments of one node that `sel` shows.
std::vector<LspRow> rowsOf(const std::vector<LspRow>& all, const IC::IgpNodeId& id) {
    std::vector<LspRow> out;
    for (const LspRow& r : all) {
        if (r.header->nodeId() == id) {
            out.push_back(r);
        }
    }
    return out;
}

/// "ngb=0000.0000.0003.02" and "sysID=0000.0000.0001" with the system's host name beside.
std::string withHostNames(std::string line, const HostNames& names) {
    const auto next = [&line](std::size_t from) {
        return std::min(line.find("ngb=", from), line.find("sysID=", from));
    };
    // The search goes on after what was inserted: a host name may hold a tag itself.
    for (std::size_t at = next(0); at != std::string::npos; at = next(at)) {
        const std::size_t start = line.find('=', at) + 1;
        std::size_t end = start;
        while (end < line.size() &&
               (std::isxdigit(static_cast<unsigned char>(line[end])) || line[end] == '.')) {
            ++end;
        }
        const auto system = systemIdOfText(std::string_view(line).substr(start, end - start));
        const auto host = system ? names.ofSystem(*system) : std::nullopt;
        const std::string beside = host ? " (" + escaped(*host) + ")" : "";
        line.insert(end, beside);
        at = end + beside.size();
    }
    return line;
}

/// The library's dump of one entry, each member with host names beside the
/// neighbors' identifiers and the topology of each link, in sorted order.
std::string entryDetail(const IC::IgpLsp& entry, const HostNames& names) {
    std::string block;
    {
        std::ostringstream os;
        entry.node()->formatContent(os);
        std::string line = os.str();
        while (!line.empty() && line.back() == '\n') {
            line.pop_back();
        }
        // The node's line holds the host name as received: one line whatever it holds.
        block += "  " + escaped(line) + "\n";
    }
    for (const auto& m : entry.neighbor()) {
        std::ostringstream os;
        m.value->formatContent(os);
        // Each line escaped whole: the library writes some one-octet numbers as characters.
        std::string text = os.str();
        const std::size_t eol = text.find('\n');
        std::string first = escaped(text.substr(0, eol));
        if (const unsigned mt = m.key.mtId().value(); mt != 0) {
            // As the prefixes show theirs: only a topology other than the standard one, after the ID.
            first.insert(std::min(first.find(','), first.size()), ", mtId=" + std::to_string(mt));
        }
        first = withHostNames(first, names);
        const std::string rest = eol == std::string::npos ? "" : text.substr(eol + 1);
        block += "  " + first + "\n";
        for (std::size_t at = 0; at < rest.size();) {
            const std::size_t next = rest.find('\n', at);
            const std::string l = rest.substr(at, next - at);
            if (!l.empty()) {
                block += "  " + withHostNames(escaped(l), names) + "\n";
            }
            at = next == std::string::npos ? rest.size() : next + 1;
        }
    }
    for (const auto& m : entry.prefix()) {
        std::ostringstream os;
        m.value->formatContent(os);
        std::string line = os.str();
        while (!line.empty() && line.back() == '\n') {
            line.pop_back();
        }
        block += "  " + escaped(line) + "\n";
    }
    return sortedDump(block);
}

}  // namespace

bool Selection::node(const IC::IgpNodeId& id, const IC::IgpLsp* entry, const HostNames& names) const {
    return nodes.matches(id, names) && (!prefix || (entry != nullptr && prefix->advertisedBy(*entry)));
}

std::string lspIdLabel(const ID::LspHeader& h, const HostNames& names) {
    const auto host = names.of(h.nodeId());
    if (!host) {
        return h.lspIdText();
    }
    char tail[8];
    std::snprintf(tail, sizeof tail, ".%02x-%02x", h.pseudonode, h.fragment);
    return escaped(*host) + tail;
}

std::vector<LspRow> lspRows(const Lsdb& lsdb, unsigned level, const Selection& sel, const HostNames& names) {
    std::vector<LspRow> out;
    const ID::LspKeeper& keeper = lsdb.keeper(level);
    const IC::IgpLspDatabase& db = *keeper.database();
    const FrameRef& last = lsdb.lastFrame();
    keeper.forEachFragment([&](const ID::LspKeeper::HeldFragment& f) {
        const ID::LspHeader& h = f.header;
        const auto entry = db.lsp(h.nodeId());
        if (!sel.node(h.nodeId(), entry.get(), names)) {
            return;
        }
        LspRow row{&h, {}, h.remainingLifetime};
        if (const FrameRef* in = lsdb.receivedIn(level, h.nodeId(), h.fragment)) {
            row.received = *in;
            const std::int64_t elapsed = std::max<std::int64_t>(0, (last.time - in->time) / 1000000);
            row.holdtime = static_cast<unsigned>(std::max<std::int64_t>(0, h.remainingLifetime - elapsed));
        }
        if (sel.window.contains(row.received)) {
            out.push_back(row);
        }
    });
    // The keeper goes by node identifier and fragment number, which is LSP ID order.
    return out;
}

void printSummary(std::ostream& out, const Lsdb& lsdb, const Selection& sel, const HostNames& names) {
    for (const unsigned level : lsdb.levels()) {
        const std::vector<LspRow> rows = lspRows(lsdb, level, sel, names);
        out << "== IS-IS level-" << level << " database: " << counted(rows.size(), "LSP") << '\n';
        printRows(out, rows, names, "");
    }
}

Json summaryJson(const Lsdb& lsdb, const Selection& sel, const HostNames& names) {
    Json levels = Json::array();
    for (const unsigned level : lsdb.levels()) {
        Json lsps = Json::array();
        for (const LspRow& r : lspRows(lsdb, level, sel, names)) {
            lsps.push_back(rowJson(r, names));
        }
        levels.push_back(Json{{"level", level}, {"lsps", std::move(lsps)}});
    }
    return Json{{"kind", "summary"},
                {"version", jsonVersion},
                {"end", lsdb.lastFrame().frame == 0 ? Json() : frameJson(lsdb.lastFrame())},
                {"levels", std::move(levels)},
                {"malformed", malformedJsonList(lsdb)}};
}

void printDetail(std::ostream& out, const Lsdb& lsdb, const Selection& sel, const HostNames& names) {
    for (const unsigned level : lsdb.levels()) {
        const std::vector<LspRow> rows = lspRows(lsdb, level, sel, names);
        std::vector<Poldo::Ptr<IC::IgpLsp>> entries;
        std::size_t pseudonodes = 0;
        for (const auto& entry : shownEntries(*lsdb.keeper(level).database(), sel, names)) {
            if (!rowsOf(rows, entry->nodeId()).empty()) {
                entries.push_back(entry);
                pseudonodes += entry->nodeId().isPnodeId() ? 1 : 0;
            }
        }
        out << "== IS-IS level-" << level
            << " database detail: " << counted(entries.size() - pseudonodes, "node") << ", "
            << counted(pseudonodes, "pseudonode") << '\n';
        for (const auto& entry : entries) {
            const auto host = names.of(entry->nodeId());
            out << '\n' << entry->nodeId().toStrep() << (host ? " (" + escaped(*host) + ")" : "") << '\n';
            printRows(out, rowsOf(rows, entry->nodeId()), names, "  ");
            out << entryDetail(*entry, names);
        }
    }
}

Json detailJson(const Lsdb& lsdb, const Selection& sel, const HostNames& names) {
    Json levels = Json::array();
    for (const unsigned level : lsdb.levels()) {
        const std::vector<LspRow> rows = lspRows(lsdb, level, sel, names);
        Json nodes = Json::array();
        for (const auto& entry : shownEntries(*lsdb.keeper(level).database(), sel, names)) {
            const std::vector<LspRow> own = rowsOf(rows, entry->nodeId());
            if (own.empty()) {
                continue;
            }
            Json hostnames = Json::object();
            const auto name = [&](std::uint64_t system, const std::string& id) {
                if (const auto host = names.ofSystem(system)) {
                    hostnames[id.substr(0, 14)] = escaped(*host);
                }
            };
            name(systemOf(entry->nodeId()), std::string(entry->nodeId().toStrep()));
            std::vector<std::string> ids;
            for (const auto& m : entry->neighbor()) {
                ids.emplace_back(m.key.nodeId().toStrep());
            }
            std::sort(ids.begin(), ids.end());
            for (const std::string& id : ids) {
                name(*systemIdOfText(id), id);
            }
            Json lsps = Json::array();
            for (const LspRow& r : own) {
                lsps.push_back(rowJson(r, names));
            }
            Json node{{"node", nodeJson(level, *entry, own.size(), names)},
                      {"lsps", std::move(lsps)},
                      {"hostnames", std::move(hostnames)}};
            nodes.push_back(std::move(node));
        }
        levels.push_back(Json{{"level", level}, {"nodes", std::move(nodes)}});
    }
    return Json{{"kind", "detail"},
                {"version", jsonVersion},
                {"end", lsdb.lastFrame().frame == 0 ? Json() : frameJson(lsdb.lastFrame())},
                {"levels", std::move(levels)},
                {"malformed", malformedJsonList(lsdb)}};
}

}  // namespace IgpLsdb
