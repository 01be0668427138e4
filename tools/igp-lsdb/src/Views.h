// The views an operator knows from a router: a summary with one line per LSP
// fragment (as `show isis database`), and a detail view of each node with
// its fragments' headers (as `show isis database detail`), in text and JSON.
#pragma once

#include <optional>
#include <ostream>
#include <vector>

#include "Filters.h"
#include "Json.h"
#include "Lsdb.h"
#include "NodeFilter.h"

namespace IgpLsdb {

/// What a view shows: the nodes the --node options select that advertise the
/// --prefix, and of them the fragments received within the window.
struct Selection {
    NodeFilter nodes;
    std::optional<PrefixFilter> prefix;
    Window window;

    /// Whether the node of `id` is shown; `entry` is its database entry, if any.
    bool node(const IC::IgpNodeId& id, const IC::IgpLsp* entry, const HostNames& names) const;
};

/// One held fragment as a router lists it.
struct LspRow {
    const ID::LspHeader* header = nullptr;
    FrameRef received;
    /// The remaining lifetime in the PDU less the seconds from its frame to
    /// the last frame read, and never below 0: what a router that received it
    /// then would show at the end of the capture.
    unsigned holdtime = 0;
};

/// The fragments of one level that `sel` shows, by LSP ID.
std::vector<LspRow> lspRows(const Lsdb& lsdb, unsigned level, const Selection& sel, const HostNames& names);

/// "r3.02-00" when the system's host name is known, else "0000.0000.0003.02-00".
std::string lspIdLabel(const ID::LspHeader& h, const HostNames& names);

void printSummary(std::ostream& out, const Lsdb& lsdb, const Selection& sel, const HostNames& names);
Json summaryJson(const Lsdb& lsdb, const Selection& sel, const HostNames& names);

void printDetail(std::ostream& out, const Lsdb& lsdb, const Selection& sel, const HostNames& names);
Json detailJson(const Lsdb& lsdb, const Selection& sel, const HostNames& names);

}  // namespace IgpLsdb
