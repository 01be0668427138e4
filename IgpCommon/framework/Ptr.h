// Counted ownership of entities.
//
// Every entity derives from Poldo::RefCounted, whose 32-bit use-count word is
// set to 1 by the entity's creator. Bits 29 and 30 of that word belong to the
// runtime (flags), so the count proper is (word & 0x9FFFFFFF); the entity is
// destroyed when that becomes 0. Poldo::Ptr<T> holds one count, like LLVM's
// IntrusiveRefCntPtr:
//
//     Poldo::Ptr<Node> node = nodeFactory(id);   // the creator's count, adopted
//     Poldo::Ptr<const Node> reader = node;      // count 2
//     Node* raw = node.get();                    // no count
//     Poldo::Ptr<Node> again(raw);               // count 3: a raw pointer is retained
//
// Counts are plain or atomic according to Poldo::ThreadControl.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

#include "IgpCommon/framework/Assert.h"
#include "IgpCommon/framework/ThreadControl.h"

namespace Poldo {

class RefCounted {
public:
    static constexpr std::uint32_t countMask = 0x9FFFFFFFu;
    static constexpr std::uint32_t flagMask = 0x60000000u;

    RefCounted(const RefCounted&) = delete;
    RefCounted& operator=(const RefCounted&) = delete;

    /// Number of users (the flag bits masked out).
    std::uint32_t useCount() const noexcept { return word_.load(std::memory_order_relaxed) & countMask; }
    /// The whole word, flags included.
    std::uint32_t useCountWord() const noexcept { return word_.load(std::memory_order_relaxed); }
    /// The runtime flags (bits 29 and 30); other bits of `flags` are ignored.
    std::uint32_t runtimeFlags() const noexcept { return useCountWord() & flagMask; }
    void runtimeFlagsIs(std::uint32_t flags) const noexcept;

    void retain() const noexcept {
        if (ThreadControl::multiThreaded()) {
            word_.fetch_add(1, std::memory_order_relaxed);
        } else {
            word_.store(word_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
        }
    }
    /// Drops one count; true when that was the last user.
    bool releaseIsLast() const noexcept {
        std::uint32_t now;
        if (ThreadControl::multiThreaded()) {
            now = word_.fetch_sub(1, std::memory_order_acq_rel) - 1;
        } else {
            now = word_.load(std::memory_order_relaxed) - 1;
            word_.store(now, std::memory_order_relaxed);
        }
        return (now & countMask) == 0;
    }

protected:
    RefCounted() noexcept : word_(1) {}
    ~RefCounted() = default;

private:
    mutable std::atomic<std::uint32_t> word_;
};

/// Tag for adopting the count that an entity's creator set.
struct AdoptTag {
    explicit AdoptTag() = default;
};
inline constexpr AdoptTag adopt{};

template <class T>
class Ptr {
public:
    using element_type = T;

    constexpr Ptr() noexcept = default;
    constexpr Ptr(std::nullptr_t) noexcept {}
    /// Retains a raw pointer (null allowed).
    explicit Ptr(T* raw) noexcept : p_(raw) {
        if (p_) {
            p_->retain();
        }
    }
    /// Takes over the count that the creator of `raw` set.
    Ptr(T* raw, AdoptTag) noexcept : p_(raw) {}

    Ptr(const Ptr& o) noexcept : Ptr(o.p_) {}
    Ptr(Ptr&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
    template <class U>
    requires std::is_convertible_v<U*, T*> Ptr(const Ptr<U>& o)
    noexcept : Ptr(static_cast<T*>(o.get())) {}
    template <class U>
    requires std::is_convertible_v<U*, T*> Ptr(Ptr<U>&& o)
    noexcept : p_(o.detach()) {}

    ~Ptr() { drop(p_); }

    Ptr& operator=(Ptr o) noexcept {
        swap(o);
        return *this;
    }

    void swap(Ptr& o) noexcept { std::swap(p_, o.p_); }
    void reset() noexcept { drop(std::exchange(p_, nullptr)); }

    T* get() const noexcept { return p_; }
    T& operator*() const noexcept { return *p_; }
    T* operator->() const noexcept { return p_; }
    explicit operator bool() const noexcept { return p_ != nullptr; }

    /// Gives up ownership without dropping the count (the caller takes it over).
    T* detach() noexcept { return std::exchange(p_, nullptr); }

    template <class U>
    friend bool operator==(const Ptr& a, const Ptr<U>& b) noexcept {
        return a.get() == b.get();
    }
    friend bool operator==(const Ptr& a, std::nullptr_t) noexcept { return a.p_ == nullptr; }

private:
    static void drop(T* p) noexcept {
        if (p && p->releaseIsLast()) {
            delete p;
        }
    }

    T* p_ = nullptr;
};

/// Creates an entity and adopts its creator's count.
template <class T, class... Args>
Ptr<T> makePtr(Args&&... args) {
    return Ptr<T>(new T(std::forward<Args>(args)...), adopt);
}

}  // namespace Poldo
