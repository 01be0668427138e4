#include "AllocCounter.h"

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace IgpBench::AllocCounter {

namespace {

// The benchmarks run on one thread. Relaxed loads and stores keep concurrent
// use free of data races without paying for locked read-modify-writes; a
// count could only be lost if two threads allocated at once.
std::atomic<std::uint64_t> calls{0};
std::atomic<std::int64_t> live{0};
std::atomic<std::int64_t> chunks{0};
std::atomic<std::int64_t> blocks{0};

constexpr std::size_t slabChunkSize = std::size_t{64} * 1024;
constexpr std::int64_t chunkHeader = 8;

void bump(std::atomic<std::int64_t>& c, std::int64_t by) noexcept {
    c.store(c.load(std::memory_order_relaxed) + by, std::memory_order_relaxed);
}

std::int64_t held(void* p) noexcept {
    return static_cast<std::int64_t>(malloc_usable_size(p)) + chunkHeader;
}

void* counted(void* p, std::size_t size) noexcept {
    if (p != nullptr) {
        const std::int64_t bytes = held(p);
        bump(live, bytes);
        if (size == slabChunkSize) {
            bump(chunks, bytes);
        } else {
            calls.store(calls.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
            bump(blocks, 1);
        }
    }
    return p;
}

void* allocate(std::size_t size) {
    void* p = counted(std::malloc(size == 0 ? 1 : size), size);
    if (p == nullptr) {
        throw std::bad_alloc();
    }
    return p;
}

void* allocateAligned(std::size_t size, std::align_val_t align) {
    const auto a = static_cast<std::size_t>(align);
    void* raw = nullptr;
    if (posix_memalign(&raw, a < sizeof(void*) ? sizeof(void*) : a, size == 0 ? 1 : size) != 0) {
        throw std::bad_alloc();
    }
    return counted(raw, size);
}

void release(void* p) noexcept {
    if (p != nullptr) {
        bump(live, -held(p));
        bump(blocks, -1);
        std::free(p);
    }
}

}  // namespace

std::uint64_t allocations() noexcept {
    return calls.load(std::memory_order_relaxed);
}
std::int64_t liveBytes() noexcept {
    return live.load(std::memory_order_relaxed);
}
std::int64_t slabChunkBytes() noexcept {
    return chunks.load(std::memory_order_relaxed);
}
std::int64_t liveBlocks() noexcept {
    return blocks.load(std::memory_order_relaxed);
}

}  // namespace IgpBench::AllocCounter

using IgpBench::AllocCounter::allocate;
using IgpBench::AllocCounter::allocateAligned;
using IgpBench::AllocCounter::release;

void* operator new(std::size_t n) {
    return allocate(n);
}
void* operator new[](std::size_t n) {
    return allocate(n);
}
void* operator new(std::size_t n, const std::nothrow_t&) noexcept {
    try {
        return allocate(n);
    } catch (...) {
        return nullptr;
    }
}
void* operator new[](std::size_t n, const std::nothrow_t&) noexcept {
    try {
        return allocate(n);
    } catch (...) {
        return nullptr;
    }
}
void* operator new(std::size_t n, std::align_val_t a) {
    return allocateAligned(n, a);
}
void* operator new[](std::size_t n, std::align_val_t a) {
    return allocateAligned(n, a);
}
void* operator new(std::size_t n, std::align_val_t a, const std::nothrow_t&) noexcept {
    try {
        return allocateAligned(n, a);
    } catch (...) {
        return nullptr;
    }
}
void* operator new[](std::size_t n, std::align_val_t a, const std::nothrow_t&) noexcept {
    try {
        return allocateAligned(n, a);
    } catch (...) {
        return nullptr;
    }
}

void operator delete(void* p) noexcept {
    release(p);
}
void operator delete[](void* p) noexcept {
    release(p);
}
void operator delete(void* p, std::size_t) noexcept {
    release(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    release(p);
}
void operator delete(void* p, const std::nothrow_t&) noexcept {
    release(p);
}
void operator delete[](void* p, const std::nothrow_t&) noexcept {
    release(p);
}
void operator delete(void* p, std::align_val_t) noexcept {
    release(p);
}
void operator delete[](void* p, std::align_val_t) noexcept {
    release(p);
}
void operator delete(void* p, std::size_t, std::align_val_t) noexcept {
    release(p);
}
void operator delete[](void* p, std::size_t, std::align_val_t) noexcept {
    release(p);
}
void operator delete(void* p, std::align_val_t, const std::nothrow_t&) noexcept {
    release(p);
}
void operator delete[](void* p, std::align_val_t, const std::nothrow_t&) noexcept {
    release(p);
}
