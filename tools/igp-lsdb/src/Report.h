// The text outputs: database dumps, change lines, statistics and the report
// of malformed PDUs.
#pragma once

#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "Changes.h"
#include "Lsdb.h"
#include "NodeFilter.h"

namespace IgpLsdb {

/// The entries of one level that a filter selects.
std::vector<Poldo::Ptr<IC::IgpLsp>> selectedEntries(const IC::IgpLspDatabase& db, const NodeFilter& filter,
                                                    const HostNames& names);

/// Each level's header line, then the library's dump of its selected entries.
void printDump(std::ostream& out, const Lsdb& lsdb, const NodeFilter& filter, const HostNames& names);

/// One change as a tab-separated line: frame, capture time, level, node,
/// entity, attribute, key or index, old value, new value ("-" for what is
/// absent). The frame is "N" with one capture, "C:N" for frame N of the C-th
/// capture with several; frame and time are "-" for a change computed by a diff.
std::string changeLine(const Change& c, bool severalCaptures, const HostNames& names);

struct LevelStats {
    unsigned level = 0;
    std::size_t nodes = 0;
    std::size_t pseudonodes = 0;
    std::size_t neighbors = 0;
    std::size_t prefixes = 0;
    std::size_t fragments = 0;
    LspCounters lsps;
    std::size_t csnps = 0;
    std::vector<LspIdValue> listedNeverCarried;
    std::vector<LspIdValue> heldNotListed;
    std::map<std::string, std::size_t> malformed;  // by reason
};

std::vector<LevelStats> levelStats(const Lsdb& lsdb, const NodeFilter& filter, const HostNames& names);
/// Malformed frames whose link-layer wrapping was already wrong, by reason.
std::map<std::string, std::size_t> malformedFrames(const Lsdb& lsdb);

/// "r6.00-02" when the system's host name is known, else "0000.0000.0006.00-02".
std::string lspIdLabel(LspIdValue id, const HostNames& names);

void printStats(std::ostream& out, const Lsdb& lsdb, const NodeFilter& filter, const HostNames& names);

/// The malformed frames, one line each for the first Lsdb::maxListedMalformed
/// and counts by reason for all when there were more; nothing when there were none.
void printMalformed(std::ostream& out, const Lsdb& lsdb);

}  // namespace IgpLsdb
