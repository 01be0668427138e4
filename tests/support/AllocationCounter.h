// Counts the heap allocations of the test executable, for tests that prove an
// operation allocates nothing. The global allocation functions can be replaced
// only once per program, so every test uses this one counter.
#pragma once

#include <cstdint>

namespace testsupport {

/// Allocations through any form of global operator new since the process started.
std::uint64_t allocationCount() noexcept;

/// Allocations made while it was alive.
class AllocationScope {
public:
    AllocationScope() noexcept : start_(allocationCount()) {}
    std::uint64_t count() const noexcept { return allocationCount() - start_; }

private:
    std::uint64_t start_;
};

}  // namespace testsupport
