#include "Report.h"

#include <iomanip>

#include "Escape.h"
#include "Filters.h"
#include "Render.h"
#include "SortedText.h"

namespace IgpLsdb {

namespace {

std::string counted(std::size_t n, const std::string& what) {
    return std::to_string(n) + " " + what + (n == 1 ? "" : "s");
}

}  // namespace

std::vector<Poldo::Ptr<IC::IgpLsp>> selectedEntries(const IC::IgpLspDatabase& db, const NodeFilter& filter,
                                                    const HostNames& names) {
    std::vector<Poldo::Ptr<IC::IgpLsp>> out;
    for (const auto& entry : db.lsp()) {
        if (filter.matches(entry->nodeId(), names)) {
            out.push_back(entry);
        }
    }
    return out;
}

namespace {

/// The library's dump of one entry, escaped line by line. The host name is the
/// only text in it that a router chooses freely; it is escaped where it stands,
/// found by its known bytes, so that a line break inside it cannot pass for the
/// end of a line. Nothing ahead of it on the node's line comes from the LSP but
/// numbers and flag names, so the first match is the name itself.
std::string escapedEntryDump(IC::IgpLevel level, const Poldo::Ptr<IC::IgpLsp>& entry) {
    auto one = IC::igpLspDatabaseFactory(level);
    one->lspIs(entry);
    const auto ctx = Umbo::DumpContext::dumpContextIs();
    one->dumpState(ctx, 0);
    const std::string text = ctx->text();
    const std::string hostName = entry->node() ? std::string(entry->node()->hostName()) : std::string();
    const std::string key = ", hostname=" + hostName;
    const std::size_t at = hostName.empty() ? std::string::npos : text.find(key);
    if (at == std::string::npos) {
        return printable(text, true);
    }
    const std::size_t nameAt = at + key.size() - hostName.size();
    return printable(std::string_view(text).substr(0, nameAt), true) + escaped(hostName) +
           printable(std::string_view(text).substr(at + key.size()), true);
}

}  // namespace

void printDump(std::ostream& out, const Lsdb& lsdb, const NodeFilter& filter, const HostNames& names) {
    for (const unsigned level : lsdb.levels()) {
        const IC::IgpLspDatabase& db = *lsdb.keeper(level).database();
        std::size_t nodes = 0;
        std::size_t pseudonodes = 0;
        std::string dump;
        for (const auto& entry : selectedEntries(db, filter, names)) {
            (entry->nodeId().isPnodeId() ? pseudonodes : nodes) += 1;
            dump += escapedEntryDump(db.level(), entry);
        }
        out << "== IS-IS level-" << level << " database: " << counted(nodes, "node") << ", "
            << counted(pseudonodes, "pseudonode") << '\n';
        out << sortedDump(dump);
    }
}

std::string changeLine(const Change& c, bool severalCaptures, const HostNames& names) {
    std::string frame = "-\t-";
    if (c.where.capture != 0) {
        frame = severalCaptures ? std::to_string(c.where.capture) + ":" : "";
        frame += std::to_string(c.where.frame) + "\t" + timeText(c.where.time);
    }
    const auto field = [](const Text& t) { return t ? *t : std::string("-"); };
    std::string entity = c.entity;
    if (!c.entityKey.empty()) {
        entity += " " + c.entityKey;
    }
    return frame + "\tL" + std::to_string(c.level) + "\t" + nodeLabel(c.node, names.of(c.node)) + "\t" +
           entity + "\t" + c.attr + "\t" + field(c.key) + "\t" + field(c.oldValue) + "\t" + field(c.newValue);
}

namespace {

IC::IgpNodeId nodeIdOf(LspIdValue id) {
    std::uint8_t seven[7];
    for (std::size_t i = 0; i < 7; ++i) {
        seven[i] = static_cast<std::uint8_t>(id >> (56 - 8 * i));
    }
    return IC::IgpNodeId::fromBytes(seven);
}

}  // namespace

std::string lspIdLabel(LspIdValue id, const HostNames& names) {
    const std::string text = lspIdText(id);
    const auto host = names.ofSystem(id >> 16);
    return host ? escaped(*host) + text.substr(14) : text;
}

std::vector<LevelStats> levelStats(const Lsdb& lsdb, const NodeFilter& filter, const HostNames& names) {
    std::vector<LevelStats> out;
    for (const unsigned level : lsdb.levels()) {
        LevelStats s;
        s.level = level;
        const ID::LspKeeper& keeper = lsdb.keeper(level);
        for (const auto& entry : selectedEntries(*keeper.database(), filter, names)) {
            (entry->nodeId().isPnodeId() ? s.pseudonodes : s.nodes) += 1;
            s.neighbors += entry->neighbor().size();
            s.prefixes += entry->prefix().size();
        }
        for (const auto& [id, counters] : lsdb.lspCounters(level)) {
            if (filter.matches(id, names)) {
                s.lsps += counters;
                s.fragments += keeper.fragmentCount(id);
            }
        }
        const Completeness& completeness = lsdb.completeness(level);
        s.csnps = completeness.csnps();
        const auto selected = [&](LspIdValue id) {
            return filter.any() || filter.matches(nodeIdOf(id), names);
        };
        for (const LspIdValue id : completeness.listedNeverCarried()) {
            if (selected(id)) {
                s.listedNeverCarried.push_back(id);
            }
        }
        for (const LspIdValue id : completeness.heldNotListed(keeper)) {
            if (selected(id)) {
                s.heldNotListed.push_back(id);
            }
        }
        for (const auto& [where, n] : lsdb.malformedCounts()) {
            if (where.first == level) {
                s.malformed[where.second] += n;
            }
        }
        out.push_back(std::move(s));
    }
    return out;
}

std::map<std::string, std::size_t> malformedFrames(const Lsdb& lsdb) {
    std::map<std::string, std::size_t> out;
    for (const auto& [where, n] : lsdb.malformedCounts()) {
        if (where.first == 0) {
            out[where.second] += n;
        }
    }
    return out;
}

void printStats(std::ostream& out, const Lsdb& lsdb, const NodeFilter& filter, const HostNames& names) {
    const std::vector<LevelStats> stats = levelStats(lsdb, filter, names);
    std::map<std::string, bool> reasons;
    for (const LevelStats& s : stats) {
        for (const auto& [reason, n] : s.malformed) {
            reasons[reason] = true;
        }
    }
    const auto row = [&](const std::string& name, auto value) {
        out << std::left << std::setw(24) << name << std::right;
        for (const LevelStats& s : stats) {
            out << std::setw(10) << value(s);
        }
        out << '\n';
    };
    out << std::setw(24) << "";
    for (const LevelStats& s : stats) {
        out << std::setw(10) << "level-" + std::to_string(s.level);
    }
    out << '\n';
    row("nodes", [](const LevelStats& s) { return s.nodes; });
    row("pseudonodes", [](const LevelStats& s) { return s.pseudonodes; });
    row("neighbors", [](const LevelStats& s) { return s.neighbors; });
    row("prefixes", [](const LevelStats& s) { return s.prefixes; });
    row("fragments", [](const LevelStats& s) { return s.fragments; });
    row("LSPs received", [](const LevelStats& s) { return s.lsps.received; });
    row("  installed", [](const LevelStats& s) { return s.lsps.installed; });
    row("  purges", [](const LevelStats& s) { return s.lsps.purges; });
    row("  ignored as old", [](const LevelStats& s) { return s.lsps.ignoredAsOld; });
    row("malformed LSPs", [](const LevelStats& s) {
        std::size_t n = 0;
        for (const auto& [reason, count] : s.malformed) {
            n += count;
        }
        return n;
    });
    for (const auto& byReason : reasons) {
        const std::string& reason = byReason.first;  // clang 14 cannot capture a structured binding
        row("  " + reason, [&reason](const LevelStats& s) {
            const auto it = s.malformed.find(reason);
            return it == s.malformed.end() ? std::size_t{0} : it->second;
        });
    }
    row("CSNPs read", [](const LevelStats& s) { return s.csnps; });
    row("  LSPs never carried", [](const LevelStats& s) { return s.listedNeverCarried.size(); });
    row("  held, not listed", [](const LevelStats& s) { return s.heldNotListed.size(); });
    const FrameCounters& f = lsdb.frameCounters();
    out << "frames: " << f.frames << " read, " << f.lsps << " LSPs, " << f.otherIsis
        << " other IS-IS PDUs (hellos, SNPs), " << f.notIsis << " not IS-IS";
    std::size_t badFrames = 0;
    std::string detail;
    for (const auto& [reason, n] : malformedFrames(lsdb)) {
        badFrames += n;
        detail += (detail.empty() ? " (" : ", ") + reason + " " + std::to_string(n);
    }
    out << ", " << badFrames << " malformed link-layer frames" << (detail.empty() ? "" : detail + ")")
        << '\n';
    const auto list = [&](unsigned level, const char* what, const std::vector<LspIdValue>& ids) {
        if (ids.empty()) {
            return;
        }
        out << "level-" << level << " " << what << ":";
        for (const LspIdValue id : ids) {
            out << ' ' << lspIdLabel(id, names);
        }
        out << '\n';
    };
    for (const LevelStats& s : stats) {
        list(s.level, "LSPs that CSNPs listed and the capture never carried", s.listedNeverCarried);
        list(s.level, "LSPs held that the last CSNP covering them, sent after them, did not list",
             s.heldNotListed);
    }
}

void printMalformed(std::ostream& out, const Lsdb& lsdb) {
    const std::vector<Malformed>& listed = lsdb.malformed();
    if (lsdb.malformedTotal() == 0) {
        return;
    }
    out << "igp-lsdb: " << counted(lsdb.malformedTotal(), "malformed PDU")
        << " ignored, nothing of them merged:\n";
    for (const Malformed& m : listed) {
        out << "  " << m.captureName << " frame " << m.where.frame << " (" << timeText(m.where.time) << "): ";
        if (m.level != 0) {
            out << "level-" << m.level << " LSP: ";
        }
        out << escaped(m.message) << '\n';
    }
    if (lsdb.malformedTotal() > listed.size()) {
        out << "  ... " << lsdb.malformedTotal() - listed.size() << " more not listed; all by reason:";
        const char* sep = " ";
        for (const auto& [where, n] : lsdb.malformedCounts()) {
            out << sep << (where.first == 0 ? "frame" : "level-" + std::to_string(where.first) + " LSP")
                << ' ' << where.second << ' ' << n;
            sep = ", ";
        }
        out << '\n';
    }
}

}  // namespace IgpLsdb
