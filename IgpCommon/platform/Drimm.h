// Drimm: a slab allocator for small entities, and per-type allocation trackers.
//
// AllocTracker counts the allocations and frees of one type. Every tracker
// registers itself in a process-wide registry when it is built, so a test or
// an agent's health check can walk all of them and prove that no object of
// any type is left (totalLive() == 0). A type that uses one defines
//     static Drimm::AllocTracker& allocTracker();
// in its .cpp, returning a function-local static; building and registering
// a tracker is thread-safe. Counting costs three relaxed atomic updates.
//
// Slab hands out blocks in 32 size classes, multiples of 16 bytes up to 512;
// larger requests go to ::operator new. Each thread keeps a free list per
// class (no lock, no atomic on the fast path), refilled in batches from the
// global depot, which carves 64 KiB chunks under a mutex. A thread that
// frees more than two batches of a class gives one back to the depot, and a
// thread that ends gives back all it holds. Memory taken by the slab is
// never returned to the operating system while the process runs: it is
// reused for blocks of the same class only. Blocks are 16-byte aligned.
//
// Built with AddressSanitizer, Slab passes every call straight to
// ::operator new and ::operator delete, so that use-after-free and leaks of
// slab-allocated objects are still reported; pooling() then says false.
//
// SlabAllocated<T> and HeapAllocated<T> are mixins that give an entity class
// T its own operator new and delete, counted by T::allocTracker().
// Entities are final, so the sized operator delete gets sizeof(T).
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>
#include <string>
#include <string_view>
#include <vector>

namespace Drimm {

class AllocTracker {
public:
    /// Registers the tracker; `typeName` names the counted type in reports.
    explicit AllocTracker(std::string_view typeName);
    ~AllocTracker();
    AllocTracker(const AllocTracker&) = delete;
    AllocTracker& operator=(const AllocTracker&) = delete;

    const std::string& typeName() const noexcept { return typeName_; }
    std::uint64_t allocations() const noexcept { return allocations_.load(std::memory_order_relaxed); }
    std::uint64_t frees() const noexcept { return frees_.load(std::memory_order_relaxed); }
    std::uint64_t live() const noexcept { return live_.load(std::memory_order_relaxed); }

    void allocated() noexcept {
        allocations_.fetch_add(1, std::memory_order_relaxed);
        live_.fetch_add(1, std::memory_order_relaxed);
    }
    void freed() noexcept {
        frees_.fetch_add(1, std::memory_order_relaxed);
        live_.fetch_sub(1, std::memory_order_relaxed);
    }

    /// Calls `f(const AllocTracker&)` for every registered tracker, in the
    /// order they were built, over a snapshot taken under the registry's
    /// lock (so `f` may build trackers; they show up in the next walk).
    template <class F>
    static void forEach(F f) {
        for (const AllocTracker* t : all()) {
            f(*t);
        }
    }
    /// A snapshot of every registered tracker.
    static std::vector<const AllocTracker*> all();
    /// Live objects over all trackers.
    static std::uint64_t totalLive() noexcept;

private:
    std::string typeName_;
    std::atomic<std::uint64_t> allocations_{0};
    std::atomic<std::uint64_t> frees_{0};
    std::atomic<std::uint64_t> live_{0};
};

class Slab {
public:
    static constexpr std::size_t granule = 16;
    static constexpr std::size_t maxSlabSize = 512;

    /// A block of at least `size` bytes (at least one granule for 0).
    static void* allocate(std::size_t size);
    /// Gives back a block from allocate(); `size` must be the size asked for.
    static void deallocate(void* p, std::size_t size) noexcept;

    /// Bytes handed out and not yet given back, counted by size class
    /// (rounded up to 16) for small blocks and exactly for large ones.
    static std::uint64_t bytesInUse() noexcept;
    /// False when built with AddressSanitizer: every call goes to the heap.
    static bool pooling() noexcept;
    /// Free blocks held by the global depot, all classes (diagnostics).
    static std::uint64_t depotFreeBlocks();
    /// Free blocks cached by the calling thread, all classes (diagnostics).
    static std::uint64_t threadCachedBlocks() noexcept;
};

template <class T>
struct SlabAllocated {
    static void* operator new(std::size_t size) {
        void* p = Slab::allocate(size);
        T::allocTracker().allocated();
        return p;
    }
    static void operator delete(void* p, std::size_t size) noexcept {
        T::allocTracker().freed();
        Slab::deallocate(p, size);
    }
};

template <class T>
struct HeapAllocated {
    static void* operator new(std::size_t size) {
        void* p = ::operator new(size);
        T::allocTracker().allocated();
        return p;
    }
    // Unsized on purpose: clang before 19 declares the sized global delete only with -fsized-deallocation.
    static void operator delete(void* p, std::size_t) noexcept {
        T::allocTracker().freed();
        ::operator delete(p);
    }
};

}  // namespace Drimm
