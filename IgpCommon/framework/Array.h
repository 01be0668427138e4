// Fixed and growable arrays of the data model.
//
// Kest::Array<T, Index, N, First> has N slots addressed by a bounded index type
// (IgpNodeIdIndex, SrSidRangeIndex, BwIndex, ...); every accessor checks the
// index against N and raises "cannot access index <i> of an array with size <N>".
// An element equal to T{} counts as absent: deleting an element stores T{}.
//
// Kest::DynArray<T> grows on demand: the first allocation holds the requested
// index + 4 entries, later ones the larger of twice the capacity and the
// requested index + 1. It refuses, by assertion, to grow past 2003003 entries:
// positions come from protocol fields, and such a request is a corrupted
// index, not a real need. Reading beyond the storage gives T{}.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "IgpCommon/framework/Assert.h"
#include "IgpCommon/framework/Exceptions.h"
#include "IgpCommon/framework/Text.h"

namespace Kest {

template <class T, class Index, std::size_t N, std::size_t First = 0>
class Array {
public:
    using index_type = Index;

    static constexpr std::size_t size() noexcept { return N; }
    /// True when `i` addresses a slot.
    static constexpr bool has(Index i) noexcept { return slotOf(i) < N; }

    const T& operator[](Index i) const { return a_[checked(i)]; }
    const T& at(Index i) const { return a_[checked(i)]; }
    void set(Index i, T v) { a_[checked(i)] = std::move(v); }
    bool present(Index i) const { return !(a_[checked(i)] == T{}); }

    /// Walks the present (non-default) elements in index order.
    class iterator {
    public:
        Index index() const noexcept { return Index(static_cast<std::uint8_t>(pos_ + First)); }
        const T& operator*() const noexcept { return a_->a_[pos_]; }
        const T* operator->() const noexcept { return &a_->a_[pos_]; }
        iterator& operator++() noexcept {
            pos_ = a_->nextPresent(pos_ + 1);
            return *this;
        }
        friend bool operator==(const iterator& x, const iterator& y) noexcept { return x.pos_ == y.pos_; }

    private:
        friend class Array;
        iterator(const Array* a, std::size_t pos) noexcept : a_(a), pos_(pos) {}
        const Array* a_;
        std::size_t pos_;
    };
    iterator begin() const noexcept { return iterator(this, nextPresent(0)); }
    iterator end() const noexcept { return iterator(this, N); }

    /// Direct access by position 0..N-1 (no index type): for walks.
    const T& slot(std::size_t pos) const noexcept { return a_[pos]; }
    T& slot(std::size_t pos) noexcept { return a_[pos]; }

    friend bool operator==(const Array&, const Array&) = default;

    /// The generic text form of an array: every slot in order, "[a, b, ...]".
    friend std::ostream& operator<<(std::ostream& os, const Array& a) {
        os << '[';
        for (std::size_t i = 0; i < N; ++i) {
            if (i > 0) {
                os << ", ";
            }
            writeText(os, a.a_[i]);
        }
        return os << ']';
    }

private:
    std::size_t nextPresent(std::size_t pos) const noexcept {
        while (pos < N && a_[pos] == T{}) {
            ++pos;
        }
        return pos;
    }
    static constexpr std::size_t slotOf(Index i) noexcept {
        return static_cast<std::size_t>(i.value()) - First;
    }
    static std::size_t checked(Index i) {
        const std::size_t s = slotOf(i);
        if (s >= N) {
            throw RangeException::arrayIndex(static_cast<long long>(i.value()), N);
        }
        return s;
    }

    std::array<T, N> a_{};
};

template <class T>
class DynArray {
public:
    /// Requests of this many entries or more are refused.
    static constexpr std::uint32_t maxEntries = 2003004;

    DynArray() = default;
    DynArray(const DynArray& o) : capacity_(o.capacity_) {
        if (capacity_ > 0) {
            data_ = std::make_unique<T[]>(capacity_);
            std::copy(o.data_.get(), o.data_.get() + capacity_, data_.get());
        }
    }
    DynArray& operator=(const DynArray& o) {
        if (this != &o) {
            DynArray copy(o);
            *this = std::move(copy);
        }
        return *this;
    }
    DynArray(DynArray&&) noexcept = default;
    DynArray& operator=(DynArray&&) noexcept = default;

    std::uint32_t capacity() const noexcept { return capacity_; }
    /// The element at `i`, or T{} beyond the storage.
    T get(std::uint32_t i) const { return i < capacity_ ? data_[i] : T{}; }
    /// The element at `i` for writing, growing the storage when needed.
    /// Every index from 2003003 up is refused, however large the storage.
    T& at(std::uint32_t i) {
        const std::uint64_t newEntries = std::uint64_t{i} + 1;
        KEST_ASSERT_MSG(newEntries < maxEntries, "newEntries < 2003004");
        if (i >= capacity_) {
            grow(i);
        }
        return data_[i];
    }

private:
    void grow(std::uint32_t index) {
        std::uint32_t cap =
            capacity_ == 0 ? index + 4 : (2 * capacity_ > index + 1 ? 2 * capacity_ : index + 1);
        cap = cap < maxEntries - 1 ? cap : maxEntries - 1;
        auto fresh = std::make_unique<T[]>(cap);
        std::move(data_.get(), data_.get() + capacity_, fresh.get());
        data_ = std::move(fresh);
        capacity_ = cap;
    }

    std::unique_ptr<T[]> data_;
    std::uint32_t capacity_ = 0;
};

}  // namespace Kest
