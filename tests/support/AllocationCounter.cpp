#include "AllocationCounter.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

// Every global allocation function is replaced, so each heap block is counted however asked for.

namespace {

std::atomic<std::uint64_t> gAllocations{0};

void* countedAlloc(std::size_t n, std::size_t align) {
    gAllocations.fetch_add(1, std::memory_order_relaxed);
    void* p = nullptr;
    if (align <= alignof(std::max_align_t)) {
        p = std::malloc(n == 0 ? 1 : n);
    } else if (posix_memalign(&p, align, n == 0 ? 1 : n) != 0) {
        p = nullptr;
    }
    if (p == nullptr) {
        throw std::bad_alloc();
    }
    return p;
}

}  // namespace

std::uint64_t testsupport::allocationCount() noexcept {
    return gAllocations.load(std::memory_order_relaxed);
}

// clang-format off
void* operator new(std::size_t n) { return countedAlloc(n, alignof(std::max_align_t)); }
void* operator new[](std::size_t n) { return countedAlloc(n, alignof(std::max_align_t)); }
void* operator new(std::size_t n, std::align_val_t a) { return countedAlloc(n, static_cast<std::size_t>(a)); }
void* operator new[](std::size_t n, std::align_val_t a) { return countedAlloc(n, static_cast<std::size_t>(a)); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
void operator delete(void* p, std::align_val_t) noexcept { std::free(p); }
void operator delete[](void* p, std::align_val_t) noexcept { std::free(p); }
void operator delete(void* p, std::size_t, std::align_val_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t, std::align_val_t) noexcept { std::free(p); }
// clang-format on
