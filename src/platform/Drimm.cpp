#include "IgpCommon/platform/Drimm.h"

#include <algorithm>
#include <array>
#include <mutex>
#include <new>

#if defined(__SANITIZE_ADDRESS__)
#define DRIMM_PASS_THROUGH 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define DRIMM_PASS_THROUGH 1
#endif
#endif
#ifndef DRIMM_PASS_THROUGH
#define DRIMM_PASS_THROUGH 0
#endif

namespace Drimm {

namespace {

/// A process-lifetime object that is never destroyed: trackers and threads may
/// still reach it while static destructors run at exit.
template <class T>
class Immortal {
public:
    Immortal() { new (storage_) T(); }
    T& get() noexcept { return *std::launder(reinterpret_cast<T*>(storage_)); }

private:
    alignas(T) unsigned char storage_[sizeof(T)];
};

// ---- tracker registry -------------------------------------------------------

struct Registry {
    std::mutex mutex;
    std::vector<const AllocTracker*> trackers;
};

Registry& registry() {
    static Immortal<Registry> r;  // thread-safe initialisation of a function-local static
    return r.get();
}

}  // namespace

AllocTracker::AllocTracker(std::string_view typeName) : typeName_(typeName) {
    Registry& r = registry();
    const std::lock_guard lock(r.mutex);
    r.trackers.push_back(this);
}

AllocTracker::~AllocTracker() {
    Registry& r = registry();
    const std::lock_guard lock(r.mutex);
    std::erase(r.trackers, this);
}

std::vector<const AllocTracker*> AllocTracker::all() {
    Registry& r = registry();
    const std::lock_guard lock(r.mutex);
    return r.trackers;
}

std::uint64_t AllocTracker::totalLive() noexcept {
    Registry& r = registry();
    const std::lock_guard lock(r.mutex);
    std::uint64_t sum = 0;
    for (const AllocTracker* t : r.trackers) {
        sum += t->live();
    }
    return sum;
}

// ---- slab -------------------------------------------------------------------

namespace {

constexpr std::size_t classCount = Slab::maxSlabSize / Slab::granule;
constexpr std::size_t chunkSize = std::size_t{64} * 1024;

std::atomic<std::uint64_t> bytesInUse_{0};

constexpr std::size_t classOf(std::size_t size) noexcept {
    return size == 0 ? 0 : (size - 1) / Slab::granule;
}
constexpr std::size_t classSize(std::size_t c) noexcept {
    return (c + 1) * Slab::granule;
}
/// Blocks moved between a thread and the depot at a time: about 4 KiB, 8 to 64 blocks.
constexpr std::uint32_t batchOf(std::size_t c) noexcept {
    return static_cast<std::uint32_t>(std::clamp<std::size_t>(4096 / classSize(c), 8, 64));
}

struct FreeBlock {
    FreeBlock* next;
};

struct Depot {
    std::mutex mutex;
    std::array<FreeBlock*, classCount> free{};
    std::array<std::uint64_t, classCount> freeCount{};
    char* chunkCur = nullptr;
    std::size_t chunkLeft = 0;
    // Chunks are never given back; keeping them listed keeps them reachable for leak checkers.
    std::vector<void*> chunks;

    /// One block of class `c`; the caller holds the mutex.
    FreeBlock* takeLocked(std::size_t c) {
        if (FreeBlock* b = free[c]) {
            free[c] = b->next;
            --freeCount[c];
            return b;
        }
        const std::size_t size = classSize(c);
        if (chunkLeft < size) {
            // The tail of the old chunk, under 512 bytes, is given up.
            chunks.reserve(chunks.size() + 1);
            chunkCur = static_cast<char*>(::operator new(chunkSize));
            chunkLeft = chunkSize;
            chunks.push_back(chunkCur);
        }
        void* p = chunkCur;
        chunkCur += size;
        chunkLeft -= size;
        return new (p) FreeBlock{nullptr};
    }

    void putLocked(std::size_t c, FreeBlock* first, FreeBlock* last, std::uint64_t n) noexcept {
        last->next = free[c];
        free[c] = first;
        freeCount[c] += n;
    }
};

Depot& depot() {
    static Immortal<Depot> d;
    return d.get();
}

/// A thread's free lists. Trivially destructible, so it stays usable while
/// other thread_local destructors of the same thread free objects.
struct ThreadCache {
    std::array<FreeBlock*, classCount> head;
    std::array<std::uint32_t, classCount> count;
    bool flusherArmed;
    bool exited;
};

constinit thread_local ThreadCache cache{};

/// Hands the thread's blocks to the depot when the thread ends.
struct CacheFlusher {
    ~CacheFlusher() {
        Depot& d = depot();
        const std::lock_guard lock(d.mutex);
        for (std::size_t c = 0; c < classCount; ++c) {
            FreeBlock* first = cache.head[c];
            if (first == nullptr) {
                continue;
            }
            FreeBlock* last = first;
            while (last->next != nullptr) {
                last = last->next;
            }
            d.putLocked(c, first, last, cache.count[c]);
            cache.head[c] = nullptr;
            cache.count[c] = 0;
        }
        cache.exited = true;
    }
    void arm() noexcept {}
};

thread_local CacheFlusher flusher;

void armFlusher() noexcept {
    if (!cache.flusherArmed) {
        cache.flusherArmed = true;
        flusher.arm();  // the first use registers its destructor for this thread
    }
}

void* allocateSmall(std::size_t c) {
    if (cache.exited) {
        Depot& d = depot();
        const std::lock_guard lock(d.mutex);
        return d.takeLocked(c);
    }
    if (cache.head[c] == nullptr) {
        armFlusher();
        Depot& d = depot();
        const std::lock_guard lock(d.mutex);
        const std::uint32_t n = batchOf(c);
        for (std::uint32_t i = 0; i < n; ++i) {
            FreeBlock* b = d.takeLocked(c);  // may throw bad_alloc: keep the list consistent
            b->next = cache.head[c];
            cache.head[c] = b;
            ++cache.count[c];
        }
    }
    FreeBlock* b = cache.head[c];
    cache.head[c] = b->next;
    --cache.count[c];
    return b;
}

void deallocateSmall(void* p, std::size_t c) noexcept {
    FreeBlock* b = new (p) FreeBlock{nullptr};
    if (cache.exited) {
        Depot& d = depot();
        const std::lock_guard lock(d.mutex);
        d.putLocked(c, b, b, 1);
        return;
    }
    armFlusher();
    b->next = cache.head[c];
    cache.head[c] = b;
    const std::uint32_t batch = batchOf(c);
    if (++cache.count[c] > 2 * batch) {
        // Give a batch back so that a thread that only frees does not hoard.
        FreeBlock* first = cache.head[c];
        FreeBlock* last = first;
        for (std::uint32_t i = 1; i < batch; ++i) {
            last = last->next;
        }
        cache.head[c] = last->next;
        cache.count[c] -= batch;
        Depot& d = depot();
        const std::lock_guard lock(d.mutex);
        d.putLocked(c, first, last, batch);
    }
}

}  // namespace

void* Slab::allocate(std::size_t size) {
    if (DRIMM_PASS_THROUGH || size > maxSlabSize) {
        void* p = ::operator new(size);
        bytesInUse_.fetch_add(size > maxSlabSize ? size : classSize(classOf(size)),
                              std::memory_order_relaxed);
        return p;
    }
    const std::size_t c = classOf(size);
    void* p = allocateSmall(c);
    bytesInUse_.fetch_add(classSize(c), std::memory_order_relaxed);
    return p;
}

void Slab::deallocate(void* p, std::size_t size) noexcept {
    if (p == nullptr) {
        return;
    }
    const std::size_t counted = size > maxSlabSize ? size : classSize(classOf(size));
    bytesInUse_.fetch_sub(counted, std::memory_order_relaxed);
    if (DRIMM_PASS_THROUGH || size > maxSlabSize) {
        ::operator delete(p);
        return;
    }
    deallocateSmall(p, classOf(size));
}

std::uint64_t Slab::bytesInUse() noexcept {
    return bytesInUse_.load(std::memory_order_relaxed);
}

bool Slab::pooling() noexcept {
    return !DRIMM_PASS_THROUGH;
}

std::uint64_t Slab::depotFreeBlocks() {
    Depot& d = depot();
    const std::lock_guard lock(d.mutex);
    std::uint64_t n = 0;
    for (std::uint64_t k : d.freeCount) {
        n += k;
    }
    return n;
}

std::uint64_t Slab::threadCachedBlocks() noexcept {
    std::uint64_t n = 0;
    for (std::uint32_t k : cache.count) {
        n += k;
    }
    return n;
}

}  // namespace Drimm
