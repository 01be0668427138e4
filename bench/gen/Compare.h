// Content comparison of two databases, attribute by attribute, for checking
// that two ways of building a database (generated content, decoded PDUs)
// agree. Identity of shared objects is not compared, only what they hold.
#pragma once

#include <string>

#include "IgpCommon/IgpLsp.h"

namespace IgpBench {

/// The first difference found, described for a test message, or "" when the
/// two databases hold the same entries, nodes, neighbors and prefixes.
std::string firstDifference(const Routing::IgpCommon::IgpLspDatabase& a,
                            const Routing::IgpCommon::IgpLspDatabase& b);

}  // namespace IgpBench
