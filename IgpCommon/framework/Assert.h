// Assertions for broken invariants.
//
// A failed assertion prints one line to stderr in the shape
//   <file>:<line>: <function>: Assertion `<text>' failed.
// and aborts the process. The text is what callers and death tests match on,
// so every assertion carries a fixed, meaningful text rather than a bare
// expression. Assertions stay on in release builds: they guard invariants
// whose violation would corrupt a routing database.
#pragma once

namespace Kest {

/// Prints the assertion line for `text` and aborts. Never returns.
[[noreturn]] void assertFail(const char* text, const char* file, unsigned line,
                             const char* function) noexcept;

/// Stops the process with "No String constructor for <typeName> - has collection":
/// the text reader of a value type that holds a collection.
[[noreturn]] void noStringConstructor(const char* typeName) noexcept;

/// Stops the process with "Not implemented": a virtual operation that the base
/// of a value family does not provide.
[[noreturn]] void notImplemented(const char* function) noexcept;

}  // namespace Kest

/// Checks `cond`; on failure reports `text` (defaults to the condition itself).
#define KEST_ASSERT_MSG(cond, text)                                              \
    do {                                                                         \
        if (!(cond)) [[unlikely]] {                                              \
            ::Kest::assertFail((text), __FILE__, __LINE__, __PRETTY_FUNCTION__); \
        }                                                                        \
    } while (false)

#define KEST_ASSERT(cond) KEST_ASSERT_MSG(cond, #cond)
