// Text a router sent (host names above all) made safe to print: it can
// neither start a line of its own nor end one early, nor mislead a terminal.
#pragma once

#include <string>
#include <string_view>

namespace IgpLsdb {

/// `s` with control octets (including DEL and the C1 controls), the
/// backslash, and octets that are not part of well-formed UTF-8 written as
/// \xNN; well-formed UTF-8 otherwise kept as it is.
std::string escaped(std::string_view s);

}  // namespace IgpLsdb
