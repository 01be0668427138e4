// The slab allocator and the per-type allocation trackers, on one thread and on many.
#include "IgpCommon/platform/Drimm.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "IgpCommon/framework/Ptr.h"

namespace {

using Drimm::AllocTracker;
using Drimm::Slab;

/// A counted object under either allocation mixin; the tag ~0 makes its constructor throw.
template <template <class> class Mixin>
struct Thing final : Poldo::RefCounted, Mixin<Thing<Mixin>> {
    explicit Thing(std::uint64_t tag) : tag_(tag) {
        if (tag == ~std::uint64_t{0}) {
            throw std::invalid_argument("bad tag");
        }
    }
    static AllocTracker& allocTracker() {
        static AllocTracker tracker(std::is_base_of_v<Drimm::SlabAllocated<Thing>, Thing>
                                        ? "DrimmTest::SlabThing"
                                        : "DrimmTest::HeapThing");
        return tracker;
    }
    std::uint64_t tag_;
    char payload_[36] = {};
};
using SlabThing = Thing<Drimm::SlabAllocated>;
using HeapThing = Thing<Drimm::HeapAllocated>;

/// A tracker's counters (allocations, frees, live) and the slab's bytes in use, since the Delta was made.
struct Delta {
    const AllocTracker& t;
    std::uint64_t allocations0 = t.allocations(), frees0 = t.frees(), bytes0 = Slab::bytesInUse();
    std::vector<std::uint64_t> operator()() const {
        return {t.allocations() - allocations0, t.frees() - frees0, t.live(), Slab::bytesInUse() - bytes0};
    }
};
using Counts = std::vector<std::uint64_t>;

using Blocks = std::vector<std::pair<unsigned char*, std::size_t>>;

TEST(DrimmTracker, CountsBothMixinsOncePerObjectAndAThrowingConstructorGivesTheMemoryBack) {
    const Delta slab{SlabThing::allocTracker()};
    const Delta heap{HeapThing::allocTracker()};
    const std::uint64_t thingBytes = (sizeof(SlabThing) + 15) / 16 * 16;
    {
        Poldo::Ptr<SlabThing> a = Poldo::makePtr<SlabThing>(1);
        Poldo::Ptr<SlabThing> a2 = a;  // a second count is no second object
        Poldo::Ptr<const SlabThing> b = Poldo::makePtr<SlabThing>(2);
        Poldo::Ptr<HeapThing> h = Poldo::makePtr<HeapThing>(3);
        EXPECT_EQ(slab(), (Counts{2, 0, 2, 2 * thingBytes}));  // only the slab mixin uses Slab's bytes
        EXPECT_EQ(heap(), (Counts{1, 0, 1, 2 * thingBytes}));
        a.reset();
        a2.reset();
        EXPECT_EQ(slab(), (Counts{2, 1, 1, thingBytes}));
    }
    EXPECT_THROW(Poldo::makePtr<SlabThing>(~std::uint64_t{0}), std::invalid_argument);
    EXPECT_EQ(slab(), (Counts{3, 3, 0, 0}));
    EXPECT_EQ(heap(), (Counts{1, 1, 0, 0}));
}

TEST(DrimmTracker, RegistryListsEveryLiveTrackerInBuildOrderAlsoWhenBuiltConcurrently) {
    SlabThing::allocTracker();  // built on first use: this test must not rely on another having run
    const std::vector<const AllocTracker*> all = AllocTracker::all();
    std::vector<std::unique_ptr<AllocTracker>> made(16);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < made.size(); ++i) {
        threads.emplace_back([&made, i] { made[i] = std::make_unique<AllocTracker>("T"); });
    }
    for (std::thread& t : threads) {
        t.join();
    }
    std::vector<const AllocTracker*> seen;
    AllocTracker::forEach([&seen](const AllocTracker& t) { seen.push_back(&t); });
    EXPECT_EQ(std::vector(seen.begin(), seen.begin() + static_cast<std::ptrdiff_t>(all.size())), all);
    EXPECT_EQ(seen.size(), all.size() + made.size());
    const std::uint64_t total0 = AllocTracker::totalLive();
    made[3]->allocated();
    EXPECT_EQ(AllocTracker::totalLive(), total0 + 1);
    made[3]->freed();
    made.clear();
    EXPECT_EQ(AllocTracker::all(), all) << "a destroyed tracker leaves the registry";
}

TEST(DrimmSlab, CountsBytesBySizeClassBlocksDoNotOverlapAndAFreedBlockIsReused) {
    const std::uint64_t bytes0 = Slab::bytesInUse();
    Blocks blocks;
    // 513: beyond the classes, counted exactly. Then every class, over several refills and chunks.
    for (const std::size_t size : {0u, 1u, 17u, 512u, 513u}) {
        blocks.emplace_back(static_cast<unsigned char*>(Slab::allocate(size)), size);
    }
    EXPECT_EQ(Slab::bytesInUse(), bytes0 + 16 + 16 + 32 + 512 + 513);
    for (std::size_t size = 16; size <= 512; size += 16) {
        for (int i = 0; i < 200; ++i) {
            blocks.emplace_back(static_cast<unsigned char*>(Slab::allocate(size)), size);
        }
    }
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(blocks[i].first) % 16, 0u);
        std::memset(blocks[i].first, static_cast<int>(i % 251), blocks[i].second);
    }
    for (std::size_t i = 0; i < blocks.size(); ++i) {  // an overlap shows as a later fill
        const auto [p, size] = blocks[i];
        ASSERT_TRUE(std::all_of(p, p + size, [i](unsigned char c) { return c == i % 251; })) << i;
        Slab::deallocate(p, size);
    }
    Slab::deallocate(nullptr, 16);
    EXPECT_EQ(Slab::bytesInUse(), bytes0);
    if (Slab::pooling()) {  // with AddressSanitizer the slab passes every call to the heap
        void* p = Slab::allocate(40);
        Slab::deallocate(p, 40);
        void* other = Slab::allocate(100);
        EXPECT_EQ(Slab::allocate(33), p) << "33, 40 and 48 share the 48-byte class";
        Slab::deallocate(other, 100);
        Slab::deallocate(p, 48);
    }
}

TEST(DrimmSlab, AnEndingThreadHandsItsCachedBlocksToTheDepot) {
    if (!Slab::pooling()) {
        GTEST_SKIP() << "built with AddressSanitizer: the slab keeps no caches";
    }
    // A thread that only frees hands blocks back in batches, and the rest of its cache at its end.
    std::vector<void*> made(300);
    std::generate(made.begin(), made.end(), [] { return Slab::allocate(200); });
    const std::uint64_t depotBefore = Slab::depotFreeBlocks();
    const std::uint64_t mainCached = Slab::threadCachedBlocks();
    std::thread([&made] {
        for (void* p : made) {
            Slab::deallocate(p, 200);
        }
    }).join();
    EXPECT_EQ(Slab::depotFreeBlocks(), depotBefore + 300);
    EXPECT_EQ(Slab::threadCachedBlocks(), mainCached);
}

// Objects pass through a shared pool so that many are freed by another thread than their maker's.
TEST(DrimmSlab, ManyThreadsKeepContentsAndCountsConsistent) {
    constexpr std::size_t threadCount = 8;
    const Delta slab{SlabThing::allocTracker()};
    std::mutex poolMutex;
    std::vector<Poldo::Ptr<SlabThing>> pool;
    std::atomic<std::uint64_t> made = 0;
    std::atomic<int> corrupt = 0;
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < threadCount; ++t) {
        threads.emplace_back([&, t] {
            std::mt19937 rng(static_cast<unsigned>(t) + 1);
            Blocks raw;
            for (std::uint64_t i = 0; i < 4000; ++i) {
                if (rng() % 2 == 0) {
                    const std::size_t size = 1 + rng() % 600;
                    raw.emplace_back(static_cast<unsigned char*>(Slab::allocate(size)), size);
                    std::memset(raw.back().first, static_cast<int>(t), size);
                } else {
                    Poldo::Ptr<SlabThing> mine = Poldo::makePtr<SlabThing>(t);
                    ++made;
                    const std::lock_guard lock(poolMutex);
                    pool.push_back(std::move(mine));
                    if (pool.size() > 32) {
                        for (auto it = pool.begin(); it != pool.begin() + 16; ++it) {
                            corrupt += (*it)->tag_ >= threadCount;
                        }
                        pool.erase(pool.begin(), pool.begin() + 16);
                    }
                }
                if (raw.size() > 64 || i == 3999) {
                    for (const auto& [p, size] : raw) {
                        corrupt += !std::all_of(p, p + size, [t](unsigned char c) { return c == t; });
                        Slab::deallocate(p, size);
                    }
                    raw.clear();
                }
            }
        });
    }
    for (std::thread& th : threads) {
        th.join();
    }
    pool.clear();
    EXPECT_EQ(corrupt, 0);
    EXPECT_EQ(slab(), (Counts{made, made, 0, 0}));
}

}  // namespace
