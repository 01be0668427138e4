// Text that a sender cannot forge: whatever octets a router put in an LSP (a
// host name above all) come out as one line of valid UTF-8 that shows them.
#pragma once

#include <string>
#include <string_view>

namespace IgpLsdb {

/// `s` with every control octet (C0, DEL and the C1 controls U+0080 to
/// U+009F), every backslash and every octet that is not part of a valid UTF-8
/// sequence written as \xNN; other UTF-8 characters are kept. The result holds
/// no line break, is valid UTF-8, and tells apart any two different inputs.
std::string escaped(std::string_view s);

}  // namespace IgpLsdb
