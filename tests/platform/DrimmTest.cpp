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
    explicit SlabThing(std::uint64_t tag) : tag_(tag) {
        if (tag == badTag) {
            throw std::invalid_argument("bad tag");
        }
    }
    static AllocTracker& allocTracker();
    static constexpr std::uint64_t badTag = ~std::uint64_t{0};

    std::uint64_t tag_;
    char payload_[36] = {};
};

class HeapThing final : public Poldo::RefCounted, public Drimm::HeapAllocated<HeapThing> {
public:
    explicit HeapThing(std::uint64_t tag) : tag_(tag) {}
    static AllocTracker& allocTracker();

    std::uint64_t tag_;
};

AllocTracker& SlabThing::allocTracker() {
    static AllocTracker tracker("DrimmTest::SlabThing");
    return tracker;
}

AllocTracker& HeapThing::allocTracker() {
    static AllocTracker tracker("DrimmTest::HeapThing");
    return tracker;
}

constexpr std::size_t classBytes(std::size_t size) {
    return (std::max<std::size_t>(size, 1) + 15) / 16 * 16;
}

struct Counts {
    std::uint64_t allocations;
    std::uint64_t frees;
    std::uint64_t live;
};

Counts countsOf(const AllocTracker& t) {
    return {t.allocations(), t.frees(), t.live()};
}

// ---- trackers -----------------------------------------------------------------

TEST(DrimmTracker, CountsBothMixinsThroughPtrAndNew) {
    AllocTracker& slab = SlabThing::allocTracker();
    AllocTracker& heap = HeapThing::allocTracker();
    const Counts slab0 = countsOf(slab);
    const Counts heap0 = countsOf(heap);
    const std::uint64_t bytes0 = Slab::bytesInUse();
    {
        Poldo::Ptr<SlabThing> a = Poldo::makePtr<SlabThing>(1);
        Poldo::Ptr<SlabThing> a2 = a;  // a second count is no second object
        Poldo::Ptr<const SlabThing> b = Poldo::makePtr<SlabThing>(2);
        Poldo::Ptr<HeapThing> h = Poldo::makePtr<HeapThing>(3);
        EXPECT_EQ(slab.allocations(), slab0.allocations + 2);
        EXPECT_EQ(slab.live(), slab0.live + 2);
        EXPECT_EQ(slab.frees(), slab0.frees);
        EXPECT_EQ(heap.live(), heap0.live + 1);
        // Only the slab mixin goes through Slab's counters.
        EXPECT_EQ(Slab::bytesInUse(), bytes0 + 2 * classBytes(sizeof(SlabThing)));
        a.reset();
        EXPECT_EQ(slab.live(), slab0.live + 2);
        a2.reset();
        EXPECT_EQ(slab.live(), slab0.live + 1);
        EXPECT_EQ(slab.frees(), slab0.frees + 1);
        EXPECT_EQ(b->tag_, 2u);
    }
    EXPECT_EQ(slab.allocations(), slab0.allocations + 2);
    EXPECT_EQ(slab.frees(), slab0.frees + 2);
    EXPECT_EQ(slab.live(), slab0.live);
    EXPECT_EQ(heap.allocations(), heap0.allocations + 1);
    EXPECT_EQ(heap.frees(), heap0.frees + 1);
    EXPECT_EQ(heap.live(), heap0.live);
    EXPECT_EQ(Slab::bytesInUse(), bytes0);
}

TEST(DrimmTracker, ConstructorThatThrowsGivesTheMemoryBack) {
    const Counts before = countsOf(SlabThing::allocTracker());
    const std::uint64_t bytes0 = Slab::bytesInUse();
    EXPECT_THROW(Poldo::makePtr<SlabThing>(SlabThing::badTag), std::invalid_argument);
    const Counts after = countsOf(SlabThing::allocTracker());
    EXPECT_EQ(after.allocations, before.allocations + 1);
    EXPECT_EQ(after.frees, before.frees + 1);
    EXPECT_EQ(after.live, before.live);
    EXPECT_EQ(Slab::bytesInUse(), bytes0);
}

TEST(DrimmTracker, RegistryListsEveryTracker) {
    SlabThing::allocTracker();
    HeapThing::allocTracker();
    const std::vector<const AllocTracker*> all = AllocTracker::all();
    const auto named = [&all](const char* name) {
        return std::count_if(all.begin(), all.end(),
                             [name](const AllocTracker* t) { return t->typeName() == name; });
    };
    EXPECT_EQ(named("DrimmTest::SlabThing"), 1);
    EXPECT_EQ(named("DrimmTest::HeapThing"), 1);

    {
        AllocTracker local("DrimmTest::Local");
        std::vector<std::string> seen;
        AllocTracker::forEach([&seen](const AllocTracker& t) { seen.push_back(t.typeName()); });
        EXPECT_EQ(std::count(seen.begin(), seen.end(), "DrimmTest::Local"), 1);
        EXPECT_EQ(seen.back(), "DrimmTest::Local");  // in the order they were built

        const std::uint64_t total0 = AllocTracker::totalLive();
        local.allocated();
        local.allocated();
        local.freed();
        EXPECT_EQ(AllocTracker::totalLive(), total0 + 1);
        EXPECT_EQ(local.allocations(), 2u);
        EXPECT_EQ(local.frees(), 1u);
        EXPECT_EQ(local.live(), 1u);
        local.freed();
        EXPECT_EQ(AllocTracker::totalLive(), total0);
    }
    const std::vector<const AllocTracker*> later = AllocTracker::all();
    EXPECT_TRUE(std::none_of(later.begin(), later.end(),
                             [](const AllocTracker* t) { return t->typeName() == "DrimmTest::Local"; }));
    EXPECT_EQ(later.size(), all.size());
}

TEST(DrimmTracker, TrackersBuiltConcurrentlyAllRegister) {
    const std::size_t before = AllocTracker::all().size();
    std::vector<std::thread> threads;
    std::vector<std::unique_ptr<AllocTracker>> made(16);
    for (std::size_t i = 0; i < made.size(); ++i) {
        threads.emplace_back(
            [&made, i] { made[i] = std::make_unique<AllocTracker>("DrimmTest::T" + std::to_string(i)); });
    }
    for (std::thread& t : threads) {
        t.join();
    }
    EXPECT_EQ(AllocTracker::all().size(), before + made.size());
    made.clear();
    EXPECT_EQ(AllocTracker::all().size(), before);
}

// ---- slab ---------------------------------------------------------------------

TEST(DrimmSlab, CountsBytesBySizeClass) {
    const std::uint64_t bytes0 = Slab::bytesInUse();
    void* a = Slab::allocate(0);
    void* b = Slab::allocate(1);
    void* c = Slab::allocate(17);
    void* d = Slab::allocate(512);
    void* e = Slab::allocate(513);  // beyond the classes: counted exactly
    EXPECT_EQ(Slab::bytesInUse(), bytes0 + 16 + 16 + 32 + 512 + 513);
    for (void* p : {a, b, c, d, e}) {
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % 16, 0u);
    }
    EXPECT_EQ(std::set<void*>({a, b, c, d, e}).size(), 5u);
    Slab::deallocate(a, 0);
    Slab::deallocate(b, 1);
    Slab::deallocate(c, 17);
    Slab::deallocate(d, 512);
    Slab::deallocate(e, 513);
    Slab::deallocate(nullptr, 16);
    EXPECT_EQ(Slab::bytesInUse(), bytes0);
}

TEST(DrimmSlab, BlocksDoNotOverlap) {
    // Every class, enough blocks to span several refills and more than one chunk.
    std::vector<std::pair<unsigned char*, std::size_t>> blocks;
    for (std::size_t size = 16; size <= 512; size += 16) {
        for (int i = 0; i < 200; ++i) {
            auto* p = static_cast<unsigned char*>(Slab::allocate(size));
            std::memset(p, static_cast<int>(blocks.size() % 251), size);
            blocks.emplace_back(p, size);
        }
    }
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        const auto [p, size] = blocks[i];
        ASSERT_TRUE(std::all_of(p, p + size, [i](unsigned char c) { return c == i % 251; })) << i;
    }
    for (const auto& [p, size] : blocks) {
        Slab::deallocate(p, size);
    }
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

TEST(DrimmSlab, ManyThreadsKeepCountsConsistent) {
    constexpr int threadCount = 8;
    constexpr int rounds = 4000;
    const Counts slab0 = countsOf(SlabThing::allocTracker());
    const Counts heap0 = countsOf(HeapThing::allocTracker());
    const std::uint64_t bytes0 = Slab::bytesInUse();

    // Objects pass through this pool so that many are freed by another thread than their maker's.
    std::mutex poolMutex;
    std::vector<Poldo::Ptr<SlabThing>> pool;
    std::vector<std::uint64_t> made(threadCount, 0);
    std::vector<int> corrupt(threadCount, 0);

    std::vector<std::thread> threads;
    for (int t = 0; t < threadCount; ++t) {
        threads.emplace_back([&, t] {
            std::mt19937 rng(static_cast<unsigned>(t) + 1);
            std::vector<std::pair<void*, std::size_t>> raw;
            std::vector<Poldo::Ptr<SlabThing>> mine;
            for (int i = 0; i < rounds; ++i) {
                const std::uint64_t tag =
                    (static_cast<std::uint64_t>(t) << 32) | static_cast<std::uint64_t>(i);
                switch (rng() % 4) {
                    case 0:
                        mine.push_back(Poldo::makePtr<SlabThing>(tag));
                        ++made[static_cast<std::size_t>(t)];
                        break;
                    case 1: {
                        const Poldo::Ptr<HeapThing> h = Poldo::makePtr<HeapThing>(tag);
                        corrupt[static_cast<std::size_t>(t)] += h->tag_ != tag;
                        break;
                    }
                    case 2: {
                        const std::size_t size = 1 + rng() % 600;
                        auto* p = static_cast<unsigned char*>(Slab::allocate(size));
                        std::memset(p, t, size);
                        raw.emplace_back(p, size);
                        break;
                    }
                    default:
                        if (!mine.empty()) {
                            const std::lock_guard lock(poolMutex);
                            pool.push_back(std::move(mine.back()));
                            mine.pop_back();
                            if (pool.size() > 32) {
                                pool.erase(pool.begin(), pool.begin() + 16);
                            }
                        }
                        break;
                }
                if (raw.size() > 64) {
                    for (const auto& [p, size] : raw) {
                        const auto* b = static_cast<unsigned char*>(p);
                        corrupt[static_cast<std::size_t>(t)] += !std::all_of(
                            b, b + size, [t](unsigned char c) { return c == static_cast<unsigned char>(t); });
                        Slab::deallocate(p, size);
                    }
                    raw.clear();
                }
                if (mine.size() > 64) {
                    for (const auto& m : mine) {
                        corrupt[static_cast<std::size_t>(t)] +=
                            (m->tag_ >> 32) != static_cast<std::uint64_t>(t);
                    }
                    mine.clear();
                }
            }
            for (const auto& [p, size] : raw) {
                Slab::deallocate(p, size);
            }
        });
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
    const Counts slab1 = countsOf(SlabThing::allocTracker());
    const Counts heap1 = countsOf(HeapThing::allocTracker());
    EXPECT_GT(totalMade, 0u);
    EXPECT_EQ(slab1.allocations - slab0.allocations, totalMade);
    EXPECT_EQ(slab1.frees - slab0.frees, totalMade);
    EXPECT_EQ(slab1.live, slab0.live);
    EXPECT_EQ(heap1.allocations - heap0.allocations, heap1.frees - heap0.frees);
    EXPECT_EQ(heap1.live, heap0.live);
    EXPECT_EQ(Slab::bytesInUse(), bytes0);
}

}  // namespace
