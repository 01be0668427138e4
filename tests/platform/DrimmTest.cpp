// The slab allocator and the per-type allocation trackers, on one thread and on many.
#include "IgpCommon/platform/Drimm.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "IgpCommon/framework/Ptr.h"

namespace {

using Drimm::AllocTracker;
using Drimm::Slab;

class SlabThing final : public Poldo::RefCounted, public Drimm::SlabAllocated<SlabThing> {
public:
    static constexpr std::uint64_t badTag = ~std::uint64_t{0};
    explicit SlabThing(std::uint64_t tag) : tag_(tag) {
        if (tag == badTag) {
            throw std::invalid_argument("bad tag");
        }
    }
    static AllocTracker& allocTracker() {
        static AllocTracker tracker("DrimmTest::SlabThing");
        return tracker;
    }
    std::uint64_t tag_;
    char payload_[36] = {};
};

class HeapThing final : public Poldo::RefCounted, public Drimm::HeapAllocated<HeapThing> {
public:
    explicit HeapThing(std::uint64_t tag) : tag_(tag) {}
    static AllocTracker& allocTracker() {
        static AllocTracker tracker("DrimmTest::HeapThing");
        return tracker;
    }
    std::uint64_t tag_;
};

/// A tracker's counters relative to when the Delta was made.
struct Delta {
    const AllocTracker& t;
    std::uint64_t allocations0 = t.allocations(), frees0 = t.frees(), live0 = t.live();
    std::uint64_t allocations() const { return t.allocations() - allocations0; }
    std::uint64_t frees() const { return t.frees() - frees0; }
    std::int64_t live() const { return static_cast<std::int64_t>(t.live() - live0); }
};

constexpr std::size_t classBytes(std::size_t size) {
    return (std::max<std::size_t>(size, 1) + 15) / 16 * 16;
}

TEST(DrimmTracker, CountsBothMixinsOncePerObjectAndAThrowingConstructorGivesTheMemoryBack) {
    const Delta slab{SlabThing::allocTracker()};
    const Delta heap{HeapThing::allocTracker()};
    const std::uint64_t bytes0 = Slab::bytesInUse();
    {
        Poldo::Ptr<SlabThing> a = Poldo::makePtr<SlabThing>(1);
        Poldo::Ptr<SlabThing> a2 = a;  // a second count is no second object
        Poldo::Ptr<const SlabThing> b = Poldo::makePtr<SlabThing>(2);
        Poldo::Ptr<HeapThing> h = Poldo::makePtr<HeapThing>(3);
        EXPECT_EQ(slab.allocations(), 2u);
        EXPECT_EQ(heap.live(), 1);
        // Only the slab mixin goes through Slab's counters.
        EXPECT_EQ(Slab::bytesInUse(), bytes0 + 2 * classBytes(sizeof(SlabThing)));
        a.reset();
        EXPECT_EQ(slab.live(), 2);
        a2.reset();
        EXPECT_EQ(slab.live(), 1);
        EXPECT_EQ(slab.frees(), 1u);
        EXPECT_EQ(b->tag_, 2u);
    }
    EXPECT_EQ(slab.frees(), 2u);
    EXPECT_EQ(slab.live(), 0);
    EXPECT_EQ(heap.allocations(), 1u);
    EXPECT_EQ(heap.frees(), 1u);
    EXPECT_EQ(Slab::bytesInUse(), bytes0);

    EXPECT_THROW(Poldo::makePtr<SlabThing>(SlabThing::badTag), std::invalid_argument);
    EXPECT_EQ(slab.allocations(), 3u);
    EXPECT_EQ(slab.frees(), 3u);
    EXPECT_EQ(Slab::bytesInUse(), bytes0);
}

TEST(DrimmTracker, RegistryListsEveryLiveTrackerInBuildOrderAlsoWhenBuiltConcurrently) {
    SlabThing::allocTracker();  // built on first use: this test must not rely on another having run
    const std::vector<const AllocTracker*> all = AllocTracker::all();
    EXPECT_EQ(std::count_if(all.begin(), all.end(),
                            [](const AllocTracker* t) { return t->typeName() == "DrimmTest::SlabThing"; }),
              1);
    {
        AllocTracker local("DrimmTest::Local");
        std::vector<std::string> seen;
        AllocTracker::forEach([&seen](const AllocTracker& t) { seen.push_back(t.typeName()); });
        EXPECT_EQ(std::count(seen.begin(), seen.end(), "DrimmTest::Local"), 1);
        EXPECT_EQ(seen.back(), "DrimmTest::Local");
        const std::uint64_t total0 = AllocTracker::totalLive();
        local.allocated();
        local.allocated();
        local.freed();
        EXPECT_EQ(AllocTracker::totalLive(), total0 + 1);
        EXPECT_EQ(local.live(), 1u);
        local.freed();
        EXPECT_EQ(AllocTracker::totalLive(), total0);
    }
    EXPECT_EQ(AllocTracker::all(), all) << "a destroyed tracker leaves the registry";

    std::vector<std::thread> threads;
    std::vector<std::unique_ptr<AllocTracker>> made(16);
    for (std::size_t i = 0; i < made.size(); ++i) {
        threads.emplace_back(
            [&made, i] { made[i] = std::make_unique<AllocTracker>("DrimmTest::T" + std::to_string(i)); });
    }
    for (std::thread& t : threads) {
        t.join();
    }
    EXPECT_EQ(AllocTracker::all().size(), all.size() + made.size());
    made.clear();
    EXPECT_EQ(AllocTracker::all().size(), all.size());
}

TEST(DrimmSlab, CountsBytesBySizeClassAndBlocksDoNotOverlap) {
    const std::uint64_t bytes0 = Slab::bytesInUse();
    std::vector<std::pair<unsigned char*, std::size_t>> blocks;
    for (const std::size_t size : {0u, 1u, 17u, 512u, 513u}) {  // 513: beyond the classes, counted exactly
        blocks.emplace_back(static_cast<unsigned char*>(Slab::allocate(size)), size);
        std::memset(blocks.back().first, static_cast<int>(blocks.size() - 1), size);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(blocks.back().first) % 16, 0u);
    }
    EXPECT_EQ(Slab::bytesInUse(), bytes0 + 16 + 16 + 32 + 512 + 513);
    // Every class, enough blocks to span several refills and more than one chunk.
    for (std::size_t size = 16; size <= 512; size += 16) {
        for (int i = 0; i < 200; ++i) {
            auto* p = static_cast<unsigned char*>(Slab::allocate(size));
            std::memset(p, static_cast<int>(blocks.size() % 251), size);
            blocks.emplace_back(p, size);
        }
    }
    std::set<unsigned char*> distinct;
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        const auto [p, size] = blocks[i];
        distinct.insert(p);
        ASSERT_TRUE(std::all_of(p, p + size, [i](unsigned char c) { return c == i % 251; })) << i;
    }
    EXPECT_EQ(distinct.size(), blocks.size());
    for (const auto& [p, size] : blocks) {
        Slab::deallocate(p, size);
    }
    Slab::deallocate(nullptr, 16);
    EXPECT_EQ(Slab::bytesInUse(), bytes0);
}

TEST(DrimmSlab, ReusesAFreedBlockOfTheSameClass) {
    if (!Slab::pooling()) {
        GTEST_SKIP() << "built with AddressSanitizer: the slab passes every call to the heap";
    }
    void* p = Slab::allocate(40);
    Slab::deallocate(p, 40);
    void* q = Slab::allocate(48);  // 40 and 48 share the 48-byte class
    EXPECT_EQ(q, p);
    Slab::deallocate(q, 48);
    void* other = Slab::allocate(100);
    EXPECT_NE(other, p);
    void* again = Slab::allocate(33);
    EXPECT_EQ(again, p);
    Slab::deallocate(other, 100);
    Slab::deallocate(again, 33);

    Poldo::Ptr<SlabThing> first = Poldo::makePtr<SlabThing>(7);
    const void* firstAddr = first.get();
    first.reset();
    EXPECT_EQ(static_cast<const void*>(Poldo::makePtr<SlabThing>(8).get()), firstAddr);
}

TEST(DrimmSlab, EndingThreadHandsItsBlocksToTheDepot) {
    if (!Slab::pooling()) {
        GTEST_SKIP() << "built with AddressSanitizer: the slab keeps no caches";
    }
    std::uint64_t cachedAtEnd = 0;
    std::uint64_t depotAtEnd = 0;
    std::thread worker([&] {
        std::vector<void*> v;
        for (int i = 0; i < 10; ++i) {
            v.push_back(Slab::allocate(200));
        }
        for (void* p : v) {
            Slab::deallocate(p, 200);
        }
        cachedAtEnd = Slab::threadCachedBlocks();
        depotAtEnd = Slab::depotFreeBlocks();
    });
    worker.join();
    EXPECT_GE(cachedAtEnd, 10u);
    EXPECT_EQ(Slab::depotFreeBlocks(), depotAtEnd + cachedAtEnd);

    // A thread that only frees gives everything back too, in batches and at its end.
    std::vector<void*> made;
    for (int i = 0; i < 300; ++i) {
        made.push_back(Slab::allocate(200));
    }
    const std::uint64_t depotBefore = Slab::depotFreeBlocks();
    const std::uint64_t mainCached = Slab::threadCachedBlocks();
    std::thread freer([&made] {
        for (void* p : made) {
            Slab::deallocate(p, 200);
        }
    });
    freer.join();
    EXPECT_EQ(Slab::depotFreeBlocks(), depotBefore + 300);
    EXPECT_EQ(Slab::threadCachedBlocks(), mainCached);
}

TEST(DrimmSlab, ManyThreadsKeepContentsAndCountsConsistent) {
    constexpr int threadCount = 8;
    const Delta slab{SlabThing::allocTracker()};
    const Delta heap{HeapThing::allocTracker()};
    const std::uint64_t bytes0 = Slab::bytesInUse();
    // Objects pass through this pool so that many are freed by another thread than their maker's.
    std::mutex poolMutex;
    std::vector<Poldo::Ptr<SlabThing>> pool;
    std::vector<std::uint64_t> made(threadCount, 0);
    std::vector<int> corrupt(threadCount, 0);
    const auto work = [&](int t) {
        const auto u = static_cast<std::size_t>(t);
        std::mt19937 rng(static_cast<unsigned>(t) + 1);
        std::vector<std::pair<unsigned char*, std::size_t>> raw;
        std::vector<Poldo::Ptr<SlabThing>> mine;
        const auto freeRaw = [&] {
            for (const auto& [p, size] : raw) {
                corrupt[u] += !std::all_of(p, p + size, [t](unsigned char c) { return c == t; });
                Slab::deallocate(p, size);
            }
            raw.clear();
        };
        for (int i = 0; i < 4000; ++i) {
            const std::uint64_t tag = (static_cast<std::uint64_t>(t) << 32) | static_cast<std::uint64_t>(i);
            const unsigned op = rng() % 4;
            if (op == 0) {
                mine.push_back(Poldo::makePtr<SlabThing>(tag));
                ++made[u];
            } else if (op == 1) {
                corrupt[u] += Poldo::makePtr<HeapThing>(tag)->tag_ != tag;
            } else if (op == 2) {
                const std::size_t size = 1 + rng() % 600;
                raw.emplace_back(static_cast<unsigned char*>(Slab::allocate(size)), size);
                std::memset(raw.back().first, t, size);
            } else if (!mine.empty()) {
                const std::lock_guard lock(poolMutex);
                pool.push_back(std::move(mine.back()));
                mine.pop_back();
                if (pool.size() > 32) {
                    pool.erase(pool.begin(), pool.begin() + 16);
                }
            }
            if (raw.size() > 64) {
                freeRaw();
            }
            if (mine.size() > 64) {
                for (const auto& m : mine) {
                    corrupt[u] += (m->tag_ >> 32) != static_cast<std::uint64_t>(t);
                }
                mine.clear();
            }
        }
        freeRaw();
    };
    std::vector<std::thread> threads;
    for (int t = 0; t < threadCount; ++t) {
        threads.emplace_back(work, t);
    }
    for (std::thread& th : threads) {
        th.join();
    }
    pool.clear();

    std::uint64_t totalMade = 0;
    for (int t = 0; t < threadCount; ++t) {
        totalMade += made[static_cast<std::size_t>(t)];
        EXPECT_EQ(corrupt[static_cast<std::size_t>(t)], 0) << "thread " << t;
    }
    EXPECT_GT(totalMade, 0u);
    EXPECT_EQ(slab.allocations(), totalMade);
    EXPECT_EQ(slab.frees(), totalMade);
    EXPECT_EQ(heap.allocations(), heap.frees());
    EXPECT_EQ(heap.live(), 0);
    EXPECT_EQ(Slab::bytesInUse(), bytes0);
}

}  // namespace
