// Counts the heap allocations of the test executable, for tests that prove an
// operation allocates nothing. The global allocation functions can be replaced
// only once per program, so every test uses this one counter.
#pragma once

#include <cstdint>

#include "IgpCommon/platform/Drimm.h"

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

/// Objects created so far, over every type's allocation tracker.
inline std::uint64_t trackedAllocations() {
    std::uint64_t n = 0;
    Drimm::AllocTracker::forEach([&n](const Drimm::AllocTracker& t) { n += t.allocations(); });
    return n;
}

}  // namespace testsupport
