// igp-lsdb: IS-IS link-state databases from packet captures.
//
//   igp-lsdb summary [CAPTURE...]  one line per LSP fragment, as a router lists its database
//   igp-lsdb detail [CAPTURE...]   each node with its fragments and contents
//   igp-lsdb dump [CAPTURE...]     each level's database as the library dumps it
//   igp-lsdb events CAPTURE...     one line per change while the LSPs are merged
//   igp-lsdb events -i IFACE --follow    the same, live, each line as soon as it is known
//   igp-lsdb diff A B              the changes that B's LSPs make to the databases of A
//   igp-lsdb stats CAPTURE...      counts per level, what was skipped or malformed, what is missing
//
// With no capture the views read the one built into the binary.

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <functional>
#include <iostream>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Capture.h"
#include "Changes.h"
#include "Diff.h"
#include "Filters.h"
#include "IsisDecoder/Frame.h"
#include "Json.h"
#include "Lsdb.h"
#include "NodeFilter.h"
#include "Report.h"
#include "Routes.h"
#include "Views.h"

namespace {

using namespace IgpLsdb;

constexpr int exitOutputFailed = 1;
constexpr int exitBadInput = 2;
constexpr int exitCutShort = 3;
constexpr const char* seedNote =
    "Reproducible output: the library's hash tables iterate in an order that follows its random hash\n"
    "seed, so igp-lsdb sorts what it prints: LSPs by LSP ID, nodes by node ID and each node's members\n"
    "and sets as text, changes within one LSP by entity and key; JSON documents are sorted too. The same\n"
    "captures give the same output whatever the seed, and the seed stays secret. IGPCOMMON_HASH_SEED\n"
    "still fixes it (see the library's README); --random-seed is accepted and does nothing.\n\n"
    "Moments (--since, --until, --from, --to): a frame number N (of the first capture), C:N (frame N of\n"
    "the C-th capture), or a time in RFC 3339 (2024-05-01T10:00:00.5Z; without an offset, UTC).\n\n"
    "Captures: pcap or pcapng, plain or gzip-compressed; '-' reads standard input. With no capture,\n"
    "summary, detail and dump show a capture built into the tool and say so on standard error.\n"
    "-i IFACE captures live (IS-IS frames only) until interrupted, then prints as for a capture file.\n\n"
    "Exit status: 0 when every capture was read whole (malformed PDUs are reported on stderr and\n"
    "change nothing); 1 when the output could not be written (full disk, closed pipe); 2 when a\n"
    "capture is missing, unreadable or not a capture, or the command line is wrong (nothing is\n"
    "printed); 3 when a capture ends early (cut short in mid-record, or corrupt): everything before\n"
    "the last whole frame was read and shown, and a warning names the file and that frame; also\n"
    "when a live capture dropped frames.";

struct Options {
    std::vector<std::string> captures;
    bool json = false;
    std::string level;
    std::vector<std::string> nodes;
    std::string prefix;
    std::string since;
    std::string until;
    std::string from;
    std::string to;
    bool separate = false;
    bool randomSeed = false;
    std::string interface;  // -i: a live capture instead of files
    bool follow = false;    // events: each change written out as soon as it is known
};

/// The options each subcommand takes besides --json, --level and --node.
enum Takes : unsigned {
    takesPrefix = 1,
    takesSince = 2,
    takesUntil = 4,
    takesFromTo = 8,
    takesSeparate = 16,
    takesFollow = 32,
};

/// A command line's options, checked and turned into what the runs use.
struct Settings {
    unsigned level = 0;
    Selection sel;
    std::optional<Moment> from;
    std::optional<Moment> to;

    /// False with a message on stderr when an option's value is wrong.
    bool take(const Options& o) {
        if (!o.level.empty()) {
            const char last = o.level.back();
            level = static_cast<unsigned>(last - '0');
        }
        sel.nodes = NodeFilter(o.nodes);
        std::string error;
        const auto moment = [&](const std::string& text, const char* name, std::optional<Moment>& out) {
            if (text.empty()) {
                return true;
            }
            out = Moment::parse(text, error);
            if (!out) {
                std::cerr << "igp-lsdb: " << name << ": " << error << '\n';
            }
            return out.has_value();
        };
        if (!o.prefix.empty()) {
            sel.prefix = PrefixFilter::parse(o.prefix, error);
            if (!sel.prefix) {
                std::cerr << "igp-lsdb: --prefix: " << error << '\n';
                return false;
            }
        }
        return moment(o.since, "--since", sel.window.since) && moment(o.until, "--until", sel.window.until) &&
               moment(o.from, "--from", from) && moment(o.to, "--to", to);
    }
};

class Run {
public:
    Run(Options o, Settings s)
        : opt_(std::move(o)), set_(std::move(s)), progress_(::isatty(STDERR_FILENO) == 1) {}

    using JsonOf = std::function<Json(const Lsdb&, const Selection&, const HostNames&)>;
    using PrintText = std::function<void(std::ostream&, const Lsdb&, const Selection&, const HostNames&)>;

    /// Builds the database of the captures up to --until (the built-in
    /// capture when none is named) and prints it as `json` or `text` make it.
    int view(const JsonOf& json, const PrintText& text) {
        Lsdb lsdb(set_.level);
        stopAt(lsdb, set_.sel.window.until);
        if (!build(lsdb, opt_.captures, true)) {
            return exitBadInput;
        }
        learnNames(lsdb);
        errno = 0;
        if (opt_.json) {
            std::cout << jsonText(json(lsdb, set_.sel, names_), false) << '\n';
        } else {
            text(std::cout, lsdb, set_.sel, names_);
        }
        outputWritten();
        return finish({&lsdb});
    }

    int dump() {
        return view(
            [](const Lsdb& l, const Selection& s, const HostNames& n) { return dumpJson(l, s.nodes, n); },
            [](std::ostream& out, const Lsdb& l, const Selection& s, const HostNames& n) {
                printDump(out, l, s.nodes, n);
            });
    }

    int stats() {
        return view([&](const Lsdb& l, const Selection& s,
                        const HostNames& n) { return statsJson(l, opt_.captures, s.nodes, n); },
                    [](std::ostream& out, const Lsdb& l, const Selection& s, const HostNames& n) {
                        printStats(out, l, s.nodes, n);
                    });
    }

    int events() {
        Lsdb* current = nullptr;
        ChangeFeed feed([&](const Change& c) {
            // The node's entry carries its host name once it is in the database.
            if (const auto entry = current->keeper(c.level).database()->lsp(c.node)) {
                names_.note(*entry);
            }
            if (set_.sel.window.contains(c.where)) {
                emit(c, opt_.captures.size() > 1);
            }
        });
        Lsdb lsdb(set_.level);
        current = &lsdb;
        stopAt(lsdb, set_.sel.window.until);
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
        Lsdb a(set_.level);
        Lsdb b(set_.level);
        const std::vector<std::string>& all = opt_.captures;
        bool ok = false;
        // A diff's window is its two moments: --since/--until name them as --from/--to do.
        const std::optional<Moment> from = set_.from ? set_.from : set_.sel.window.since;
        const std::optional<Moment> to = set_.to ? set_.to : set_.sel.window.until;
        if (from || to) {
            // Two moments of one sequence of captures; before the first frame without --from.
            if (from) {
                stopAt(a, from);
                ok = build(a, all, false);
            } else {
                ok = true;
            }
            stopAt(b, to);
            ok = ok && build(b, all, false);
        } else if (opt_.separate) {
            ok = build(a, {all.at(0)}, false) && build(b, {all.at(1)}, false);
        } else {
            // What an agent that heard A holds, and what it holds once it has heard B too.
            ok = build(a, {all.at(0)}, false) && build(b, all, false);
        }
        if (!ok) {
            return exitBadInput;
        }
        learnNames(a);
        learnNames(b);
        for (const unsigned level : a.levels()) {
            feed.watch(*a.keeper(level).database());
        }
        applyDiff(a, b, feed, [&](const IC::IgpNodeId& id) { return set_.sel.nodes.matches(id, names_); });
        checkDiff(a, b);
        return finish({&a, &b});
    }

private:
    static void stopAt(Lsdb& lsdb, const std::optional<Moment>& end) {
        if (end) {
            lsdb.stopAt = [end](const FrameRef& f) { return end->compare(f) > 0; };
        }
    }

    void emit(const Change& c, bool severalCaptures) {
        if (!set_.sel.nodes.matches(c.node, names_) || (set_.sel.prefix && !set_.sel.prefix->concerns(c))) {
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
            for (const auto& entry : selectedEntries(*b.keeper(level).database(), set_.sel.nodes, names_)) {
                const auto ours = a.keeper(level).database()->lsp(entry->nodeId());
                if (!ours || nodeJson(level, *ours, 0, names_) != nodeJson(level, *entry, 0, names_)) {
                    std::cerr << "igp-lsdb: after the changes, level-" << level << " node "
                              << entry->nodeId().toStrep()
                              << " still differs from the one it was compared with\n";
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
        if (!set_.sel.nodes.any() && !anyMatch(built)) {
            std::cerr << "igp-lsdb: no node matches '" << set_.sel.nodes.pattern() << "'\n";
        }
        return status_;
    }

    bool anyMatch(std::initializer_list<const Lsdb*> built) {
        for (const Lsdb* lsdb : built) {
            for (const unsigned level : lsdb->levels()) {
                if (!selectedEntries(*lsdb->keeper(level).database(), set_.sel.nodes, names_).empty()) {
                    return true;
                }
                for (const auto& [id, counters] : lsdb->lspCounters(level)) {
                    if (set_.sel.nodes.matches(id, names_)) {
                        return true;
                    }
                }
            }
        }
        return false;
    }

    Options opt_;
    Settings set_;
    HostNames names_;
    bool progress_;
    int status_ = 0;
    int outputErrno_ = 0;
};

/// One subcommand: what it is called, says of itself, takes, and does.
struct Command {
    const char* name;
    const char* help;
    unsigned takes;
    bool capturesRequired;
    const char* capturesHelp;
    std::function<int(Run&)> run;
};

const std::vector<Command>& commands() {
    static const std::vector<Command> all = {
        {"summary",
         "One line per LSP fragment, per level, by LSP ID, as a router lists its database:\n"
         "LSP ID (with the host name), length, sequence number, checksum, remaining lifetime\n"
         "aged to the end of the capture, ATT/P/OL",
         takesPrefix | takesSince | takesUntil, false,
         "Captures, read in order ('-': standard input; none: the built-in one)",
         [](Run& r) { return r.view(summaryJson, printSummary); }},
        {"detail",
         "Each node by node ID with its fragments' headers, its attributes, neighbors (with\n"
         "their host names and topologies) and prefixes, sorted",
         takesPrefix | takesSince | takesUntil, false,
         "Captures, read in order ('-': standard input; none: the built-in one)",
         [](Run& r) { return r.view(detailJson, printDetail); }},
        {"dump", "Each level's database as the library dumps it, nodes and members sorted", takesUntil, false,
         "Captures, read in order ('-': standard input; none: the built-in one)",
         [](Run& r) { return r.dump(); }},
        {"events",
         "One line per change while the LSPs are merged: frame, capture time, level,\n"
         "node, entity, attribute, key, old value, new value",
         takesPrefix | takesSince | takesUntil | takesFollow, false,
         "Captures, read in order ('-': standard input)", [](Run& r) { return r.events(); }},
        {"diff",
         "The changes that turn the databases at the end of A into those at the end of A then B\n"
         "(--separate: of B alone; --from/--to or --since/--until: at two moments of the captures),\n"
         "as events lines",
         takesPrefix | takesSince | takesUntil | takesFromTo | takesSeparate, true,
         "Captures A and B (with --from/--to: any number)", [](Run& r) { return r.diff(); }},
        {"stats",
         "Per level: nodes, pseudonodes, neighbors, prefixes, fragments, purges, LSPs ignored\n"
         "as old, malformed PDUs by reason",
         takesUntil, false, "Captures, read in order ('-': standard input)",
         [](Run& r) { return r.stats(); }},
    };
    return all;
}

void addOptions(CLI::App& cmd, Options& opt, unsigned takes) {
    cmd.add_flag("--json", opt.json, "Write JSON (see docs/igp-lsdb-json.md)");
    cmd.add_option("--level", opt.level, "Only this IS-IS level: 1, 2, L1 or L2")
        ->transform(CLI::IsMember({"1", "2", "L1", "L2"}, CLI::ignore_case));
    cmd.add_option_function<std::vector<std::string>>(
           "--node",
           [&opt](const std::vector<std::string>& v) {
               opt.nodes.insert(opt.nodes.end(), v.begin(), v.end());
           },
           "Only this node; may be repeated. A system ID (0000.0000.0001, with its\n"
           "pseudonodes), node ID (0000.0000.0001.02), LSP ID (0000.0000.0001.02-00),\n"
           "NET (49.0001.0000.0000.0001.00) or host name (any letter case)")
        ->allow_extra_args(false);
    if ((takes & takesPrefix) != 0) {
        cmd.add_option("--prefix", opt.prefix, "Only the nodes that advertise this prefix, and its changes");
    }
    if ((takes & takesSince) != 0) {
        cmd.add_option("--since", opt.since, "Only what was received from this moment on");
    }
    if ((takes & takesUntil) != 0) {
        cmd.add_option("--until", opt.until, "Read the captures up to this moment, included");
    }
    if ((takes & takesFromTo) != 0) {
        cmd.add_option("--from", opt.from, "Compare the databases at this moment...");
        cmd.add_option("--to", opt.to, "...with those at this one");
    }
    if ((takes & takesFollow) != 0) {
        cmd.add_flag("--follow", opt.follow, "Write each change out as soon as it is merged (with -i: live)");
    }
    if ((takes & takesSeparate) != 0) {
        cmd.add_flag("--separate", opt.separate, "Compare the databases of A alone and of B alone");
    }
    cmd.add_option("-i,--interface", opt.interface,
                   "Capture live on this network interface (IS-IS frames only) until interrupted");
    // Once kept the seed random where the tool fixed it; the tool no longer fixes it.
    cmd.add_flag("--random-seed", opt.randomSeed, "Accepted for compatibility; does nothing (see below)");
}

int usage(const std::string& message) {
    std::cerr << "igp-lsdb: " << message << "\nRun 'igp-lsdb --help' for usage.\n";
    return exitBadInput;
}

// CLI11 says "A subcommand is required" where the word given is no subcommand:
// name it. Options that take a value are skipped with their value.
std::optional<std::string> unknownSubcommand(int argc, char** argv) {
    static const std::set<std::string> withValue = {"-i",      "--interface", "--level", "--node", "--prefix",
                                                    "--since", "--until",     "--from",  "--to"};
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--") {
            return std::nullopt;
        }
        if (arg.starts_with("-")) {
            i += withValue.contains(arg) ? 1 : 0;
            continue;
        }
        for (const Command& c : commands()) {
            if (arg == c.name) {
                return std::nullopt;
            }
        }
        if (isRouteCommand(arg)) {
            return std::nullopt;
        }
        return arg;
    }
    return std::nullopt;
}

std::string lowerFirst(std::string s) {
    if (!s.empty()) {
        s[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(s[0])));
    }
    return s;
}

/// What CLI11 found wrong, in the tool's words where its own are vague.
std::string parseErrorText(const CLI::ParseError& e,
                           const std::vector<std::pair<CLI::App*, const Command*>>& subs) {
    const std::string what = e.what();
    if (dynamic_cast<const CLI::ExtrasError*>(&e) != nullptr) {
        // "The following argument(s) was/were not expected: a b"
        const std::string extras =
            what.substr(what.find(": ") == std::string::npos ? 0 : what.find(": ") + 2);
        const std::string first = extras.substr(0, extras.find(' '));
        return (first.starts_with("-") ? "unknown option '" : "unexpected argument '") + first + "'";
    }
    if (dynamic_cast<const CLI::RequiredError*>(&e) != nullptr && what.starts_with("captures ")) {
        for (const auto& [sub, command] : subs) {
            if (sub->parsed()) {
                return std::string(command->name) + " needs a capture";
            }
        }
    }
    return lowerFirst(what);
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app(
        "IS-IS link-state databases from packet captures (pcap or pcapng; Ethernet with 802.3\n"
        "LLC and 802.1Q tags, Linux cooked SLL and SLL2).",
        "igp-lsdb");
    app.footer(seedNote);
    app.require_subcommand(1);
    app.set_version_flag("--version", std::string("igp-lsdb ") + IGP_LSDB_VERSION);
    Options opt;
    // Options may come before the subcommand too: the main command takes them all.
    addOptions(app, opt, ~0u);

    std::vector<std::pair<CLI::App*, const Command*>> subs;
    for (const Command& c : commands()) {
        CLI::App* sub = app.add_subcommand(c.name, c.help);
        auto* captures = sub->add_option("captures", opt.captures, c.capturesHelp);
        if (c.capturesRequired) {
            captures->required();
        }
        addOptions(*sub, opt, c.takes);
        sub->footer(seedNote);
        subs.emplace_back(sub, &c);
    }

    const auto routeCommands = addRouteCommands(app);

    if (const auto word = unknownSubcommand(argc, argv)) {
        return usage("unknown subcommand '" + *word + "'");
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        if (e.get_exit_code() == 0) {
            return app.exit(e);  // --help, --version
        }
        return usage(parseErrorText(e, subs));
    }
    if (const auto rc = routeCommands()) {
        return *rc;
    }
    for (const auto& [sub, command] : subs) {
        if (!sub->parsed()) {
            continue;
        }
        // An option given before the subcommand must be one it takes.
        for (const CLI::Option* o : app.get_options()) {
            if (o->count() > 0 && !o->get_lnames().empty() &&
                sub->get_option_no_throw("--" + o->get_lnames().front()) == nullptr &&
                o->get_name() != "--help" && o->get_name() != "--version") {
                return usage(std::string(command->name) + " does not take --" + o->get_lnames().front());
            }
        }
        const bool fromTo = !opt.from.empty() || !opt.to.empty() || !opt.since.empty() || !opt.until.empty();
        if (std::string(command->name) == "diff" && !fromTo && opt.captures.size() != 2) {
            return usage("diff compares two captures, A and B (or, with --from/--to, two moments)");
        }
        if (std::string(command->name) == "diff" && fromTo && opt.separate) {
            return usage("diff takes --separate or --from/--to, not both");
        }
        Settings settings;
        if (!settings.take(opt)) {
            return exitBadInput;
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
        Run run(std::move(opt), std::move(settings));
        return command->run(run);
    }
    return usage("a subcommand is required");
}
