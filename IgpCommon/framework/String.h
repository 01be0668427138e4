// Strings and string streams of the runtime.
#pragma once

#include <sstream>
#include <string>

namespace Poldo {

using String = std::string;
using OStringStream = std::ostringstream;

}  // namespace Poldo
