// igp-lsdb: IS-IS link-state databases from packet captures.
//
//   igp-lsdb dump [CAPTURE...]     each level's database (the built-in capture when none is given)
//   igp-lsdb events CAPTURE...     one line per change while the LSPs are merged
//   igp-lsdb events -i IFACE --follow    the same, live, each line as soon as it is known
//   igp-lsdb diff A B              the changes that turn A's databases into B's
//   igp-lsdb stats CAPTURE...      counts per level, and what was skipped or malformed

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Capture.h"
#include "Changes.h"
#include "Diff.h"
#include "IsisDecoder/Frame.h"
#include "Json.h"
#include "Lsdb.h"
#include "NodeFilter.h"
#include "Report.h"
#include "Routes.h"

namespace {

using namespace IgpLsdb;

constexpr int exitOutputFailed = 1;
constexpr int exitBadInput = 2;
constexpr int exitCutShort = 3;
constexpr const char* seedNote =
    "Reproducible output: the library's hash tables iterate in an order that follows its random hash\n"
    "seed, so igp-lsdb sorts what it prints: dump nodes by node ID and each node's members and sets as\n"
    "text, changes within one LSP by entity and key; JSON dumps and statistics are sorted too. The same\n"
    "captures give the same output whatever the seed, and the seed stays secret. IGPCOMMON_HASH_SEED\n"
    "still fixes it (see the library's README); --random-seed is accepted and does nothing.\n\n"
    "Captures: pcap or pcapng, plain or gzip-compressed; '-' reads standard input. With no capture,\n"
    "dump shows a capture built into the tool and says so on standard error. -i IFACE captures live\n"
    "(IS-IS frames only) until interrupted, then prints as for a capture file.\n\n"
    "Exit status: 0 when every capture was read whole (malformed PDUs are reported on stderr and\n"
    "change nothing); 1 when the output could not be written (full disk, closed pipe); 2 when a\n"
    "capture is missing, unreadable or not a capture, or the command line is wrong (nothing is\n"
    "printed); 3 when a capture ends early (cut short in mid-record, or corrupt): everything before\n"
    "the last whole frame was read and shown, and a warning names the file and that frame; also\n"
    "when a live capture dropped frames.";

struct Options {
    std::vector<std::string> captures;
    bool json = false;
    unsigned level = 0;
    std::string node;
    bool randomSeed = false;
    std::string interface;  // -i: a live capture instead of files
    bool follow = false;    // events: each change written out as soon as it is known
};

class Run {
public:
    explicit Run(Options o)
        : opt_(std::move(o)), filter_(opt_.node), progress_(::isatty(STDERR_FILENO) == 1) {}

    int dump() {
        return report(
            true, [&](const Lsdb& l) { return dumpJson(l, filter_, names_); },
            [&](const Lsdb& l) { printDump(std::cout, l, filter_, names_); });
    }

    int stats() {
        return report(
            false, [&](const Lsdb& l) { return statsJson(l, opt_.captures, filter_, names_); },
            [&](const Lsdb& l) { printStats(std::cout, l, filter_, names_); });
    }

    int events() {
        Lsdb* current = nullptr;
        ChangeFeed feed([&](const Change& c) {
            // The node's entry carries its host name once it is in the database.
            if (const auto entry = current->keeper(c.level).database()->lsp(c.node)) {
                names_.note(*entry);
            }
            emit(c, opt_.captures.size() > 1);
        });
        Lsdb lsdb(opt_.level);
        current = &lsdb;
        for (const unsigned level : lsdb.levels()) {
            feed.watch(*lsdb.keeper(level).database());
        }
        lsdb.beforeMerge = [&](const FrameRef& where, unsigned level, const IC::IgpNodeId& id) {
            feed.begin(where, level, id);
        };
        lsdb.afterMerge = [&] { feed.end(); };
        if (!build(lsdb, opt_.captures, false)) {
            return exitBadInput;
        }
        return finish({&lsdb});
    }

    int diff() {
        ChangeFeed feed([&](const Change& c) { emit(c, false); });
        Lsdb a(opt_.level);
        Lsdb b(opt_.level);
        if (!build(a, {opt_.captures.at(0)}, false) || !build(b, {opt_.captures.at(1)}, false)) {
            return exitBadInput;
        }
        learnNames(a);
        learnNames(b);
        for (const unsigned level : a.levels()) {
            feed.watch(*a.keeper(level).database());
        }
        applyDiff(a, b, feed, [&](const IC::IgpNodeId& id) { return wanted(id); });
        checkDiff(a, b);
        return finish({&a, &b});
    }

private:
    bool wanted(const IC::IgpNodeId& id) {
        const bool match = filter_.matches(id, names_);
        matched_ = matched_ || match;
        return match;
    }

    void emit(const Change& c, bool severalCaptures) {
        if (!wanted(c.node)) {
            return;
        }
        if (opt_.json) {
            std::cout << jsonText(changeJson(c, names_), true) << '\n';
        } else {
            std::cout << changeLine(c, severalCaptures, names_) << '\n';
        }
        if (opt_.follow) {
            std::cout.flush();
        }
        if (!outputWritten()) {
            Capture::stopAll();  // nobody reads what a live capture would go on to print
        }
    }

    /// False once a write to standard output has failed; the first failure's errno is kept.
    bool outputWritten() {
        if (!std::cout && outputErrno_ == 0) {
            outputErrno_ = errno != 0 ? errno : EIO;
        }
        return outputErrno_ == 0;
    }

    void learnNames(const Lsdb& lsdb) {
        for (const unsigned level : lsdb.levels()) {
            names_.noteAll(*lsdb.keeper(level).database());
        }
    }

    /// Builds the database of the captures and prints it as `json` or `text` make it.
    template <class JsonOf, class PrintText>
    int report(bool builtInWhenNone, JsonOf json, PrintText text) {
        Lsdb lsdb(opt_.level);
        if (!build(lsdb, opt_.captures, builtInWhenNone)) {
            return exitBadInput;
        }
        learnNames(lsdb);
        errno = 0;
        if (opt_.json) {
            std::cout << jsonText(json(lsdb), false) << '\n';
        } else {
            text(lsdb);
        }
        outputWritten();
        return finish({&lsdb});
    }

    // Opens every capture before reading any, so that a bad name stops the run
    // before anything is printed. A capture that ends early is reported, and
    // what was read of it stays: the run goes on and ends with exitCutShort.
    bool build(Lsdb& lsdb, const std::vector<std::string>& paths, bool builtInWhenNone) {
        std::vector<std::unique_ptr<Capture>> captures;
        std::string error;
        if (!opt_.interface.empty()) {
            if (!paths.empty()) {
                std::cerr << "igp-lsdb: -i reads an interface; it takes no capture files\n";
                return false;
            }
            captures.push_back(Capture::openLive(opt_.interface, error));
            if (!captures.back()) {
                return fail(opt_.interface, error);
            }
            std::cerr << "igp-lsdb: listening on " << opt_.interface << " (" << Capture::liveFilter
                      << "); interrupt to stop\n";
        } else if (paths.empty() && builtInWhenNone) {
            captures.push_back(Capture::openBuiltIn(error));
            if (!captures.back()) {
                return fail(Capture::builtInName, error);
            }
            std::cerr << "igp-lsdb: no capture named: showing the built-in capture of a six-router lab\n";
        } else if (paths.empty()) {
            std::cerr << "igp-lsdb: a capture is needed (a file, '-' for standard input, or -i INTERFACE)\n";
            return false;
        }
        bool stdinTaken = false;
        for (const std::string& path : paths) {
            if (path.empty()) {
                std::cerr << "igp-lsdb: an empty capture name was given\n";
                return false;
            }
            if (path == "-" && std::exchange(stdinTaken, true)) {
                std::cerr << "igp-lsdb: standard input ('-') can be read only once\n";
                return false;
            }
            captures.push_back(Capture::open(path, error));
            if (!captures.back()) {
                return fail(path, error);
            }
        }
        for (const auto& c : captures) {
            if (!Routing::IsisDecoder::linkTypeSupported(c->linkType())) {
                return fail(c->name(), "link type " + std::to_string(c->linkType()) +
                                           " is not supported (Ethernet, Linux cooked SLL and SLL2 are)");
            }
        }
        for (std::size_t i = 0; i < captures.size(); ++i) {
            Capture& c = *captures[i];
            // A live capture has no end to count towards, and its progress would mix with --follow's lines.
            const bool showing = progress_ && !c.live();
            const bool whole = lsdb.read(c, i + 1, showing ? ProgressFn(showProgress) : ProgressFn());
            if (showing) {
                std::cerr << "\r\033[K" << std::flush;
            }
            if (!whole) {
                std::cerr << "igp-lsdb: " << c.name() << ": warning: the capture ends early after frame "
                          << c.lastFrame() << ", its last whole frame (" << c.error()
                          << "); what came before is shown\n";
                status_ = exitCutShort;
            }
            if (const std::uint64_t lost = c.dropped(); lost != 0) {
                std::cerr << "igp-lsdb: " << c.name() << ": warning: " << lost
                          << " frames were dropped before they could be read; the database may lack them\n";
                status_ = exitCutShort;
            }
        }
        return true;
    }

    static void showProgress(const Capture& c, unsigned frames) {
        std::cerr << "\r\033[Kigp-lsdb: reading " << c.name() << ": ";
        if (const double p = c.progress(); p >= 0) {
            std::cerr << static_cast<int>(p * 100) << "%, ";
        }
        std::cerr << frames << " frames" << std::flush;
    }

    static bool fail(const std::string& name, const std::string& why) {
        std::cerr << "igp-lsdb: " << name << ": " << why << '\n';
        return false;
    }

    // The library's merges are trusted to turn a into b; say so loudly if a node still differs.
    void checkDiff(const Lsdb& a, const Lsdb& b) {
        for (const unsigned level : a.levels()) {
            for (const auto& entry : selectedEntries(*b.keeper(level).database(), filter_, names_)) {
                const auto ours = a.keeper(level).database()->lsp(entry->nodeId());
                if (!ours || nodeJson(level, *ours, 0, names_) != nodeJson(level, *entry, 0, names_)) {
                    std::cerr << "igp-lsdb: after the changes, level-" << level << " node "
                              << entry->nodeId().toStrep() << " still differs from the second capture's\n";
                }
            }
        }
    }

    int finish(std::initializer_list<const Lsdb*> built) {
        if (outputWritten()) {
            std::cout.flush();
        }
        if (!outputWritten()) {
            std::cerr << "igp-lsdb: cannot write the output: " << std::strerror(outputErrno_) << '\n';
            return exitOutputFailed;
        }
        for (const Lsdb* lsdb : built) {
            printMalformed(std::cerr, *lsdb);
        }
        if (!filter_.any() && !matched_ && !anyMatch(built)) {
            std::cerr << "igp-lsdb: no node matches '" << filter_.pattern() << "'\n";
        }
        return status_;
    }

    bool anyMatch(std::initializer_list<const Lsdb*> built) {
        for (const Lsdb* lsdb : built) {
            for (const unsigned level : lsdb->levels()) {
                if (!selectedEntries(*lsdb->keeper(level).database(), filter_, names_).empty()) {
                    return true;
                }
                for (const auto& [id, counters] : lsdb->lspCounters(level)) {
                    if (filter_.matches(id, names_)) {
                        return true;
                    }
                }
            }
        }
        return false;
    }

    Options opt_;
    NodeFilter filter_;
    HostNames names_;
    bool progress_;
    bool matched_ = false;
    int status_ = 0;
    int outputErrno_ = 0;
};

void addCommonOptions(CLI::App& cmd, Options& opt, bool withJson = true) {
    if (withJson) {
        cmd.add_flag("--json", opt.json, "Write JSON (see docs/igp-lsdb-json.md)");
    }
    cmd.add_option("--level", opt.level, "Only this IS-IS level")->check(CLI::IsMember({1u, 2u}));
    cmd.add_option("--node", opt.node,
                   "Only this node: a system ID (0000.0000.0001, with its pseudonodes), a node ID\n"
                   "(0000.0000.0001.02) or a host name");
    cmd.add_option("-i,--interface", opt.interface,
                   "Capture live on this network interface (IS-IS frames only) until interrupted");
    // Once kept the seed random where the tool fixed it; the tool no longer fixes it.
    cmd.add_flag("--random-seed", opt.randomSeed, "Accepted for compatibility; does nothing (see below)");
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app(
        "IS-IS link-state databases from packet captures (pcap or pcapng; Ethernet with 802.3\n"
        "LLC and 802.1Q tags, Linux cooked SLL and SLL2).",
        "igp-lsdb");
    app.footer(seedNote);
    app.require_subcommand(1);
    Options opt;

    auto* dump = app.add_subcommand("dump",
                                    "Print each level's database, level by level (with no capture:\n"
                                    "the built-in capture of a six-router lab)");
    dump->add_option("captures", opt.captures, "Captures, read in order");
    addCommonOptions(*dump, opt);

    auto* events = app.add_subcommand("events",
                                      "One line per change while the LSPs are merged:\n"
                                      "frame, level, node, entity, attribute, key, old value, new value");
    events->add_option("captures", opt.captures, "Captures, read in order ('-': standard input)");
    events->add_flag("--follow", opt.follow, "Write each change out as soon as it is merged (with -i: live)");
    addCommonOptions(*events, opt);

    auto* diff = app.add_subcommand("diff",
                                    "The changes that turn the databases of capture A into those of\n"
                                    "capture B, in the events line format");
    diff->add_option("captures", opt.captures, "Captures A and B")->required()->expected(2);
    addCommonOptions(*diff, opt);

    auto* stats = app.add_subcommand("stats",
                                     "Per level: nodes, pseudonodes, neighbors, prefixes, fragments,\n"
                                     "purges, LSPs ignored as old, malformed PDUs by reason");
    stats->add_option("captures", opt.captures, "Captures, read in order ('-': standard input)");
    addCommonOptions(*stats, opt);

    const auto routeCommands = addRouteCommands(app);

    for (auto* cmd : {dump, events, diff, stats}) {
        cmd->footer(seedNote);
    }

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        const int rc = app.exit(e);
        return rc == 0 ? 0 : exitBadInput;
    }
    // A closed pipe is a failed write like any other: reported, with a status.
    std::signal(SIGPIPE, SIG_IGN);
    if (!opt.interface.empty()) {
        // The first interrupt ends the live capture and prints; a second one kills.
        std::signal(SIGINT, [](int) {
            Capture::stopAll();
            std::signal(SIGINT, SIG_DFL);
        });
        std::signal(SIGTERM, [](int) {
            Capture::stopAll();
            std::signal(SIGTERM, SIG_DFL);
        });
    }
    if (const auto rc = routeCommands()) {
        return *rc;
    }
    Run run(std::move(opt));
    if (dump->parsed()) {
        return run.dump();
    }
    if (events->parsed()) {
        return run.events();
    }
    if (diff->parsed()) {
        return run.diff();
    }
    return run.stats();
}
