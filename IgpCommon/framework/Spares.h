// Spare rooms of one entity type: the storage of entities that their last
// user gave up, kept to build the next ones in instead of a new allocation.
//
// A scratch object emptied and refilled again and again (a decoder's parsed
// content) builds the same kinds of members every time; most of them are
// dropped when it is emptied. Poldo::Spares destroys each such member where
// it stands and keeps its storage; make() builds a new member there, exactly
// as `new T(args...)` builds one (use count 1, no runtime flags, a publisher
// in its initial state, every attribute as its constructor sets it). An
// entity that someone else still holds is never touched.
//
// A kept room is still allocated: T::allocTracker() counts it as live until
// the spares are destroyed. T must let Spares<T> reach its constructor
// (`friend class Poldo::Spares<T>;`) and have T::operator delete from a
// Drimm mixin.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>
#include <utility>

#include "IgpCommon/framework/Ptr.h"

namespace Poldo {

template <class T>
class Spares {
public:
    Spares() noexcept = default;
    Spares(const Spares&) = delete;
    Spares& operator=(const Spares&) = delete;
    ~Spares() {
        while (head_ != nullptr) {
            Room* r = std::exchange(head_, head_->next);
            T::operator delete(static_cast<void*>(r), sizeof(T));
        }
    }

    /// Rooms kept now.
    std::uint32_t size() const noexcept { return size_; }

    /// Takes `p` (leaving it null) when it is the entity's only user: the
    /// entity is destroyed and its room kept. Else leaves `p` as it is.
    bool take(Ptr<T>& p) noexcept {
        if (!p || p->useCount() != 1) {
            return false;
        }
        // As a last release does before deleting: another thread's writes
        // before it dropped its count are seen before the entity is destroyed.
        std::atomic_thread_fence(std::memory_order_acquire);
        T* e = p.detach();
        e->~T();
        head_ = ::new (static_cast<void*>(e)) Room{head_};
        ++size_;
        return true;
    }

    /// A new entity, built in a kept room when there is one.
    template <class... Args>
    Ptr<T> make(Args&&... args) {
        if (head_ == nullptr) {
            return Ptr<T>(new T(std::forward<Args>(args)...), adopt);
        }
        Room* r = std::exchange(head_, head_->next);
        --size_;
        try {
            return Ptr<T>(::new (static_cast<void*>(r)) T(std::forward<Args>(args)...), adopt);
        } catch (...) {
            head_ = ::new (static_cast<void*>(r)) Room{head_};
            ++size_;
            throw;
        }
    }

private:
    struct Room {
        Room* next;
    };
    // A room is storage from T::operator new (the heap or the slab), aligned
    // for any fundamental type whatever alignof(T) is.
    static_assert(sizeof(T) >= sizeof(Room));

    Room* head_ = nullptr;
    std::uint32_t size_ = 0;
};

}  // namespace Poldo
