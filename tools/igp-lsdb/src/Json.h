// The JSON outputs, described in docs/igp-lsdb-json.md and validated against
// tools/igp-lsdb/schema/igp-lsdb.schema.json. Every array whose order the
// hash seed would decide (nodes, neighbors, prefixes, address and SRLG sets,
// SIDs) is sorted, so that a document depends on the database contents alone.
#pragma once

#include <nlohmann/json.hpp>

#include "Changes.h"
#include "Lsdb.h"
#include "NodeFilter.h"

namespace IgpLsdb {

using Json = nlohmann::ordered_json;

/// The version of the documents' layout; it changes when a field changes meaning or goes away.
inline constexpr int jsonVersion = 1;

Json nodeJson(unsigned level, const IC::IgpLsp& entry, std::size_t fragments, const HostNames& names);
Json dumpJson(const Lsdb& lsdb, const NodeFilter& filter, const HostNames& names);
Json changeJson(const Change& c, const HostNames& names);
/// The malformed PDUs, as the documents list them.
Json malformedJsonList(const Lsdb& lsdb);
Json statsJson(const Lsdb& lsdb, const std::vector<std::string>& captures, const NodeFilter& filter,
               const HostNames& names);

/// A document as text: on one line when `compact` (JSON lines), else indented.
std::string jsonText(const Json& j, bool compact);

}  // namespace IgpLsdb
