// Counted ownership: Poldo::RefCounted and Poldo::Ptr.
#include "IgpCommon/framework/Ptr.h"

#include <gtest/gtest.h>

#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

struct Base : Poldo::RefCounted {
    explicit Base(int* destroyed) : destroyed_(destroyed) {}
    virtual ~Base() { ++*destroyed_; }
    int* destroyed_;
};

struct Derived final : Base {
    Derived(int* destroyed, int v) : Base(destroyed), value(v) {}
    int value;
};

using Poldo::Ptr;

// Conversions that must not compile.
static_assert(!std::is_convertible_v<Ptr<const Derived>, Ptr<Derived>>);
static_assert(!std::is_constructible_v<Ptr<Derived>, Ptr<const Derived>>);
static_assert(!std::is_constructible_v<Ptr<Derived>, const Ptr<const Derived>&>);
static_assert(!std::is_convertible_v<Ptr<Base>, Ptr<Derived>>);
static_assert(!std::is_constructible_v<Ptr<Derived>, Ptr<Base>>);
static_assert(!std::is_convertible_v<Derived*, Ptr<Derived>>);
static_assert(!std::is_convertible_v<Ptr<Derived>, Derived*>);
static_assert(!std::is_convertible_v<Ptr<Derived>, bool>);
// ... and those that must.
static_assert(std::is_convertible_v<Ptr<Derived>, Ptr<const Derived>>);
static_assert(std::is_convertible_v<Ptr<Derived>, Ptr<Base>>);
static_assert(std::is_convertible_v<Ptr<Derived>, Ptr<const Base>>);
static_assert(std::is_constructible_v<Ptr<Derived>, Derived*>);
static_assert(std::is_nothrow_move_constructible_v<Ptr<Derived>>);

TEST(PtrTest, CreatorAdoptAndDetachHandOverTheCountAndTheLastUserDestroysOnce) {
    int destroyed = 0;
    {
        Ptr<Derived> p = Poldo::makePtr<Derived>(&destroyed, 7);
        EXPECT_EQ(p->useCount(), 1u);
        {
            Ptr<Derived> q = p;
            EXPECT_EQ(p->useCount(), 2u);
        }
        EXPECT_EQ(p->useCount(), 1u);
        Derived* raw = p.detach();
        EXPECT_FALSE(p);
        EXPECT_EQ(raw->useCount(), 1u);
        Ptr<Derived> owner(raw, Poldo::adopt);
        EXPECT_EQ(raw->useCount(), 1u);
        Ptr<Derived> again(raw);  // a raw pointer retained
        EXPECT_EQ(raw->useCount(), 2u);
        EXPECT_EQ(destroyed, 0);
    }
    EXPECT_EQ(destroyed, 1);
}

TEST(PtrTest, MovesConversionsAndAssignmentsKeepTheCountRight) {
    int destroyedA = 0;
    int destroyedB = 0;
    Ptr<Derived> a = Poldo::makePtr<Derived>(&destroyedA, 1);
    Derived* raw = a.get();
    Ptr<Derived> b = std::move(a);
    Ptr<Derived> c;
    c = std::move(b);
    Ptr<Base> base = std::move(c);
    EXPECT_TRUE(a.get() == nullptr && b.get() == nullptr && c.get() == nullptr);
    EXPECT_EQ(base.get(), static_cast<Base*>(raw));
    EXPECT_EQ(raw->useCount(), 1u);

    Ptr<Derived> d(raw);
    Ptr<const Derived> cd = d;
    Ptr<const Base> cb = base;
    EXPECT_EQ(raw->useCount(), 4u);
    EXPECT_TRUE(cd == d && cb == base);
    d.reset();
    base.reset();
    cd.reset();
    EXPECT_EQ(cb->useCount(), 1u);
    EXPECT_EQ(destroyedA, 0);

    Ptr<Derived> other = Poldo::makePtr<Derived>(&destroyedB, 2);
    Ptr<Derived> keep = other;
    Ptr<Derived> x = Poldo::makePtr<Derived>(&destroyedA, 3);
    x = other;  // releases the old object
    EXPECT_EQ(destroyedA, 1);
    EXPECT_EQ(other->useCount(), 3u);
    const Ptr<Derived>& alias = x;
    x = alias;
    EXPECT_EQ(other->useCount(), 3u);
    Ptr<Derived>& self = x;
    x = std::move(self);  // self-move must keep the object alive
    EXPECT_EQ(x, other);
    EXPECT_EQ(other->useCount(), 3u);
    x = nullptr;
    other = nullptr;
    EXPECT_EQ(keep->useCount(), 1u);
    keep = nullptr;
    EXPECT_EQ(destroyedB, 1);
    cb.reset();
    EXPECT_EQ(destroyedA, 2);
}

TEST(PtrTest, RuntimeFlagBitsAreIgnoredByTheCount) {
    int destroyed = 0;
    Ptr<Derived> a = Poldo::makePtr<Derived>(&destroyed, 1);
    a->runtimeFlagsIs(0x60000000u);
    EXPECT_EQ(a->runtimeFlags(), 0x60000000u);
    EXPECT_EQ(a->useCount(), 1u);
    EXPECT_EQ(a->useCountWord(), 0x60000001u);
    {
        Ptr<Derived> b = a;
        Ptr<Derived> c = a;
        EXPECT_EQ(a->useCount(), 3u);
        EXPECT_EQ(a->runtimeFlags(), 0x60000000u);
        // Changing the flags keeps the count; bits outside the flag mask are ignored.
        a->runtimeFlagsIs(0xFFFFFFFFu & ~0x40000000u);
        EXPECT_EQ(a->runtimeFlags(), 0x20000000u);
        EXPECT_EQ(a->useCount(), 3u);
        a->runtimeFlagsIs(0x60000000u);
    }
    EXPECT_EQ(a->useCount(), 1u);
    EXPECT_EQ(destroyed, 0) << "flags must not kill the object early";
    a.reset();
    EXPECT_EQ(destroyed, 1) << "flags must not keep the object alive";
}

struct MultiThreadedGuard {
    MultiThreadedGuard() { Poldo::ThreadControl::multiThreadedIs(true); }
    ~MultiThreadedGuard() { Poldo::ThreadControl::multiThreadedIs(false); }
    MultiThreadedGuard(const MultiThreadedGuard&) = delete;
    MultiThreadedGuard& operator=(const MultiThreadedGuard&) = delete;
};

TEST(PtrTest, AtomicCountsSurviveConcurrentCopiesAndDestroyOnce) {
    constexpr int threads = 4;
    constexpr int cycles = 20000;
    int destroyed = 0;
    {
        MultiThreadedGuard guard;
        ASSERT_TRUE(Poldo::ThreadControl::multiThreaded());
        Ptr<Derived> shared = Poldo::makePtr<Derived>(&destroyed, 1);
        shared->runtimeFlagsIs(0x40000000u);
        std::vector<std::thread> workers;
        for (int t = 0; t < threads; ++t) {
            workers.emplace_back([&shared] {
                for (int i = 0; i < cycles; ++i) {
                    Ptr<Derived> copy = shared;
                    Ptr<const Base> asBase = copy;
                    Ptr<const Base> moved = std::move(asBase);
                    if ((i & 1023) == 0) {
                        // Flags may change while others count; the count must not suffer.
                        moved->runtimeFlagsIs((i & 2048) ? 0x20000000u : 0x40000000u);
                    }
                }
            });
        }
        for (std::thread& w : workers) {
            w.join();
        }
        EXPECT_EQ(shared->useCount(), 1u);
        EXPECT_EQ(destroyed, 0);
        shared.reset();
        EXPECT_EQ(destroyed, 1);
    }
    EXPECT_FALSE(Poldo::ThreadControl::multiThreaded());
}

TEST(PtrTest, ThreadsDroppingTheirOwnCopiesDestroyExactlyOnce) {
    int destroyed = 0;
    MultiThreadedGuard guard;
    for (int round = 0; round < 200; ++round) {
        Ptr<Derived> p = Poldo::makePtr<Derived>(&destroyed, round);
        std::vector<Ptr<Derived>> copies(4, p);
        p.reset();
        std::vector<std::thread> workers;
        for (Ptr<Derived>& c : copies) {
            workers.emplace_back([mine = std::move(c)]() mutable { mine.reset(); });
        }
        for (std::thread& w : workers) {
            w.join();
        }
        ASSERT_EQ(destroyed, round + 1);
    }
}

}  // namespace
