// The commands that compute from the databases rather than show them:
//
//   igp-lsdb routes --from NODE [--level N] [--json] [--follow] CAPTURE...
//   igp-lsdb topology --from NODE [--level N] [--json] CAPTURE...
//   igp-lsdb graph [--format dot|json] [--level N] [CAPTURE...]
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <optional>
#include <string_view>

namespace IgpLsdb {

/// Adds the commands to `app`. The function returned runs the one the
/// command line chose, once it is parsed, and returns its exit status; it
/// returns nothing when another command was chosen.
std::function<std::optional<int>()> addRouteCommands(CLI::App& app);

/// Whether `word` names one of these commands.
bool isRouteCommand(std::string_view word);

}  // namespace IgpLsdb
