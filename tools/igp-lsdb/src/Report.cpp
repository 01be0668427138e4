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

void printDump(std::ostream& out, const Lsdb& lsdb, const NodeFilter& filter, const HostNames& names) {
    for (const unsigned level : lsdb.levels()) {
        const IC::IgpLspDatabase& db = *lsdb.keeper(level).database();
        // The filtered entries go into a database of their own, so that the
        // library's dump writes them as it writes a whole database.
        auto shown = IC::igpLspDatabaseFactory(db.level());
        std::size_t pseudonodes = 0;
        for (const auto& entry : selectedEntries(db, filter, names)) {
            shown->lspIs(entry);
            pseudonodes += entry->nodeId().isPnodeId() ? 1 : 0;
        }
        out << "== IS-IS level-" << level << " database: " << counted(shown->lspCount() - pseudonodes, "node")
            << ", " << counted(pseudonodes, "pseudonode") << '\n';
        const auto ctx = Umbo::DumpContext::dumpContextIs();
        shown->dumpState(ctx, 0);
        out << printable(sortedDump(std::string_view(ctx->text())), true);
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
        for (const Malformed& m : lsdb.malformed()) {
            if (m.level == level) {
                ++s.malformed[m.reason];
            }
        }
        out.push_back(std::move(s));
    }
    return out;
}

std::map<std::string, std::size_t> malformedFrames(const Lsdb& lsdb) {
    std::map<std::string, std::size_t> out;
    for (const Malformed& m : lsdb.malformed()) {
        if (m.level == 0) {
            ++out[m.reason];
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

void printMalformed(std::ostream& out, const std::vector<Malformed>& malformed) {
    if (malformed.empty()) {
        return;
    }
    out << "igp-lsdb: " << counted(malformed.size(), "malformed PDU")
        << " ignored, nothing of them merged:\n";
    for (const Malformed& m : malformed) {
        out << "  " << m.captureName << " frame " << m.where.frame << " (" << timeText(m.where.time) << "): ";
        if (m.level != 0) {
            out << "level-" << m.level << " LSP: ";
        }
        out << m.message << '\n';
    }
}

}  // namespace IgpLsdb
