// Counted ownership: Poldo::RefCounted and Poldo::Ptr, on one thread and on many.
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
    using Base::Base;
};

using Poldo::Ptr;

// No conversion drops const, goes down the hierarchy, or hides a raw pointer.
static_assert(!std::is_constructible_v<Ptr<Derived>, Ptr<const Derived>>);
static_assert(!std::is_constructible_v<Ptr<Derived>, Ptr<Base>>);
static_assert(!std::is_convertible_v<Derived*, Ptr<Derived>>);
static_assert(!std::is_convertible_v<Ptr<Derived>, Derived*>);
static_assert(!std::is_convertible_v<Ptr<Derived>, bool>);
static_assert(std::is_convertible_v<Ptr<Derived>, Ptr<const Base>>);
static_assert(std::is_nothrow_move_constructible_v<Ptr<Derived>>);

TEST(PtrTest, EveryWayOfHandingOverKeepsTheCountAndTheLastUserDestroysOnce) {
    int destroyed = 0;
    int destroyedOther = 0;
    Ptr<Derived> a = Poldo::makePtr<Derived>(&destroyed);
    Derived* raw = a.detach();
    EXPECT_FALSE(a);
    Ptr<Derived> owner(raw, Poldo::adopt);
    EXPECT_EQ(raw->useCount(), 1u);
    Ptr<Derived> retained(raw);  // a raw pointer retained
    Ptr<Base> base = std::move(retained);
    Ptr<const Base> constBase = base;
    EXPECT_TRUE(raw->useCount() == 3u && retained.get() == nullptr && constBase == base);

    Ptr<Derived> other = Poldo::makePtr<Derived>(&destroyedOther);
    Ptr<Derived> x = Poldo::makePtr<Derived>(&destroyed);
    x = other;  // releases the old object
    EXPECT_EQ(destroyed, 1);
    Ptr<Derived>& self = x;
    x = self;
    x = std::move(self);  // self-move must keep the object alive
    EXPECT_TRUE(x == other && other->useCount() == 2u);
    x = nullptr;
    other.reset();
    EXPECT_EQ(destroyedOther, 1);

    // Runtime flags share the count's word but never change the count.
    owner->runtimeFlagsIs(0x60000000u);
    EXPECT_EQ(owner->useCountWord(), 0x60000003u);
    owner->runtimeFlagsIs(0xFFFFFFFFu & ~0x40000000u);  // bits outside the flag mask are ignored
    EXPECT_EQ(owner->runtimeFlags(), 0x20000000u);
    EXPECT_EQ(owner->useCount(), 3u);
    owner.reset();
    base.reset();
    EXPECT_EQ(destroyed, 1) << "flags must not kill the object early";
    constBase.reset();
    EXPECT_EQ(destroyed, 2) << "flags must not keep the object alive";
}

// Flags share the count's word: changing them must not lose a concurrent count change. (Concurrent
// last drops are left to the thread-sharing suite.)
TEST(PtrTest, AtomicCountsSurviveConcurrentCopiesAndFlagChanges) {
    int destroyed = 0;
    Poldo::ThreadControl::multiThreadedIs(true);
    Ptr<Derived> shared = Poldo::makePtr<Derived>(&destroyed);
    std::vector<std::thread> workers;
    for (int t = 0; t < 4; ++t) {
        workers.emplace_back([&shared] {
            for (int i = 0; i < 20000; ++i) {
                Ptr<Derived> copy = shared;
                Ptr<const Base> moved = std::move(copy);
                if ((i & 1023) == 0) {
                    moved->runtimeFlagsIs((i & 2048) ? 0x20000000u : 0x40000000u);
                }
            }
        });
    }
    for (std::thread& w : workers) {
        w.join();
    }
    EXPECT_EQ(shared->useCount(), 1u);
    shared.reset();
    EXPECT_EQ(destroyed, 1);
    Poldo::ThreadControl::multiThreadedIs(false);
}

}  // namespace
