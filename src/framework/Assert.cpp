#include "IgpCommon/framework/Assert.h"

#include <cstdio>
#include <cstdlib>

namespace Kest {

void assertFail(const char* text, const char* file, unsigned line, const char* function) noexcept {
    std::fprintf(stderr, "%s:%u: %s: Assertion `%s' failed.\n", file, line, function, text);
    std::fflush(stderr);
    std::abort();
}

void noStringConstructor(const char* typeName) noexcept {
    std::fprintf(stderr, "No String constructor for %s - has collection\n", typeName);
    std::fflush(stderr);
    std::abort();
}

void notImplemented(const char* function) noexcept {
    std::fprintf(stderr, "%s: Not implemented\n", function);
    std::fflush(stderr);
    std::abort();
}

}  // namespace Kest
