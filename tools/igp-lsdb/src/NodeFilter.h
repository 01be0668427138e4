// Host names of the systems in the databases, and the --node filter.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "IgpCommon/IgpLsp.h"

namespace IgpLsdb {

namespace IC = Routing::IgpCommon;

/// The dynamic host name of each system (TLV 137), remembered once seen, so
/// that a system keeps its name after its LSPs are gone.
class HostNames {
public:
    /// Learns the name of one entry's system, when the entry advertises one.
    void note(const IC::IgpLsp& entry);
    void noteAll(const IC::IgpLspDatabase& db);
    /// The name of `id`'s system (pseudonodes take their system's name).
    std::optional<std::string> of(const IC::IgpNodeId& id) const;

private:
    std::map<std::uint64_t, std::string> names_;
};

/// Which nodes a --node option selects: a system identifier ("0000.0000.0001")
/// selects the system and its pseudonodes, a node identifier with its
/// pseudonode byte ("0000.0000.0001.02") that node alone, anything else is
/// taken as a host name and selects that system and its pseudonodes.
class NodeFilter {
public:
    NodeFilter() = default;
    explicit NodeFilter(std::string pattern);

    bool any() const noexcept { return pattern_.empty(); }
    const std::string& pattern() const noexcept { return pattern_; }
    bool matches(const IC::IgpNodeId& id, const HostNames& names) const;

private:
    std::string pattern_;
    std::optional<std::uint64_t> id_;  // IgpNodeId::toU64 of the identifier given
    bool exact_ = false;               // the pseudonode byte was given
};

/// The system identifier part of a node identifier, as a number.
std::uint64_t systemOf(const IC::IgpNodeId& id) noexcept;

}  // namespace IgpLsdb
