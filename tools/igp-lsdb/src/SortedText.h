// Text in an order that the library's hash seed does not decide.
//
// The library dumps and prints collections in their hash tables' order, which
// follows the process's random hash seed. igp-lsdb sorts what it prints
// instead, so that its output is the same from run to run without anybody
// fixing, and so publishing, the seed.
#pragma once

#include <string>
#include <string_view>

namespace IgpLsdb {

/// `line` with the members of each set-valued list that the library writes
/// ("localIpv4Addr=[ a b ]", "adjSid=[{...}, {...}]", ...) sorted as text.
/// Arrays whose positions mean something (unreservedBw, SRGB, MSD) stay as they are.
std::string sortSetLists(std::string_view line);

/// A database dump with its node blocks in node identifier order, each node's
/// header line first and then its members (a member: a line and the deeper
/// indented lines under it) sorted as text, and every line's set lists sorted.
std::string sortedDump(std::string_view dump);

}  // namespace IgpLsdb
