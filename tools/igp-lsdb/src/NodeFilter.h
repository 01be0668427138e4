// Host names of the systems in the databases, and the --node filter.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

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
    /// The name of a system given as systemOf() gives it.
    std::optional<std::string> ofSystem(std::uint64_t system) const;

private:
    std::map<std::uint64_t, std::string> names_;
};

/// Which nodes the --node options select; a node matches when any one of
/// them selects it, and every node when none was given. Each is one of
///   a system ID    0000.0000.0001              the system and its pseudonodes
///   a node ID      0000.0000.0001.02           that node alone
///   an LSP ID      0000.0000.0001.02-00        its node alone
///   a NET          49.0001.0000.0000.0001.00   the system and its pseudonodes
///   a host name    R1                          likewise; letter case does not matter
///   host name and pseudonode, or LSP ID with a host name: r1.02, r1.02-00   that node alone
class NodeFilter {
public:
    NodeFilter() = default;
    explicit NodeFilter(const std::vector<std::string>& patterns);

    bool any() const noexcept { return patterns_.empty(); }
    /// The patterns as given, separated by ", ".
    std::string pattern() const;
    bool matches(const IC::IgpNodeId& id, const HostNames& names) const;

private:
    struct Pattern {
        std::string text;
        std::optional<std::uint64_t> id;         // IgpNodeId::toU64 of the identifier given
        bool exact = false;                      // a node, not a system
        std::optional<std::uint8_t> pseudonode;  // of "host.02", when the whole text is no host name
        std::string host;                        // the host name part of "host.02-00"
    };
    std::vector<Pattern> patterns_;
};

/// The system identifier part of a node identifier, as a number.
std::uint64_t systemOf(const IC::IgpNodeId& id) noexcept;
/// The systemOf() of a system or node identifier written out, if it is one.
std::optional<std::uint64_t> systemIdOfText(std::string_view text);

}  // namespace IgpLsdb
