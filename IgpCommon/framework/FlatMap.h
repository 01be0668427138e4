// Kest::FlatMap: an ordered map kept as a sorted array, for maps that hold a
// member or two, such as a prefix's per-algorithm metrics.
//
// Its interface and walk contract are RbTreeMap's: members in key order
// (Compare); inserting a key that is present is a programming error
// (assertion "insertion of a duplicate key"), `assign` inserts or
// overwrites; an iterator stays usable while the map changes under it and,
// once the map's version moved, resumes at the successor of the last key it
// visited, so a walk neither repeats nor skips a surviving key and tolerates
// the removal of any member. Comparing iterators never moves them.
//
// Costs: up to `InlineN` members live in the object itself; more move to
// one heap array that doubles as it fills and is given back by clear().
// Look-up is a binary search; insertion and removal move the members after
// the position. References to values stay valid until the next insertion
// or removal (unlike RbTreeMap's, which stay valid until their own removal).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iterator>
#include <new>
#include <utility>

#include "IgpCommon/framework/Assert.h"

namespace Kest {

template <class K, class V, unsigned InlineN = 1, class Compare = std::less<K>>
class FlatMap {
public:
    using key_type = K;
    using mapped_type = V;
    using value_type = std::pair<const K, V>;

    class iterator {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = typename FlatMap::value_type;
        using difference_type = std::ptrdiff_t;
        using pointer = const value_type*;
        using reference = const value_type&;

        iterator() = default;

        /// The current member. After a change of the map it is found again by
        /// its key; if it was removed, the iterator moves on to its successor.
        const value_type& operator*() const {
            if (version_ != map_->version_ && !atEnd_) {
                pos_ = map_->lowerBound(lastKey_);
                version_ = map_->version_;
                remember();
            }
            return map_->data()[pos_];
        }
        const value_type* operator->() const { return &**this; }

        iterator& operator++() {
            pos_ = version_ == map_->version_ ? pos_ + 1 : map_->upperBound(lastKey_);
            version_ = map_->version_;
            remember();
            return *this;
        }
        iterator operator++(int) {
            iterator old = *this;
            ++*this;
            return old;
        }
        /// Compares where the two iterators would read now; comparing never
        /// moves an iterator.
        friend bool operator==(const iterator& a, const iterator& b) { return a.position() == b.position(); }

    private:
        friend class FlatMap;
        iterator(const FlatMap* m, std::uint32_t pos) : map_(m), pos_(pos), version_(m->version_) {
            remember();
        }
        void remember() const {
            atEnd_ = pos_ >= map_->size_;
            if (!atEnd_) {
                lastKey_ = map_->data()[pos_].first;
            }
        }
        // Where the iterator stands in the map as it is now: an end iterator
        // stays at the end; otherwise the last key visited or its successor.
        std::uint32_t position() const {
            if (atEnd_) {
                return map_->size_;
            }
            return version_ == map_->version_ ? pos_ : map_->lowerBound(lastKey_);
        }

        const FlatMap* map_ = nullptr;
        mutable std::uint32_t pos_ = 0;
        mutable K lastKey_{};
        mutable std::uint32_t version_ = 0;
        mutable bool atEnd_ = true;
    };
    using const_iterator = iterator;

    FlatMap() noexcept = default;
    FlatMap(const FlatMap& o) : FlatMap() { appendAll(o); }
    FlatMap(FlatMap&& o) noexcept : FlatMap() { take(o); }
    FlatMap& operator=(const FlatMap& o) {
        if (this != &o) {
            FlatMap copy(o);
            release();
            take(copy);
            ++version_;
        }
        return *this;
    }
    FlatMap& operator=(FlatMap&& o) noexcept {
        if (this != &o) {
            release();
            take(o);
            ++version_;
        }
        return *this;
    }
    ~FlatMap() { release(); }

    std::size_t size() const noexcept { return size_; }
    bool empty() const noexcept { return size_ == 0; }
    std::uint32_t version() const noexcept { return version_; }

    iterator begin() const { return iterator(this, 0); }
    iterator end() const { return iterator(this, size_); }

    const V* find(const K& k) const {
        const std::uint32_t i = lowerBound(k);
        return i < size_ && !Compare()(k, data()[i].first) ? &data()[i].second : nullptr;
    }
    /// The stored value for writing in place, or null.
    V* findMutable(const K& k) { return const_cast<V*>(std::as_const(*this).find(k)); }
    bool contains(const K& k) const { return find(k) != nullptr; }

    /// Inserts a member whose key must be absent.
    V& insert(const K& k, V v) {
        const std::uint32_t i = lowerBound(k);
        KEST_ASSERT_MSG(i == size_ || Compare()(k, data()[i].first), "insertion of a duplicate key");
        return insertAt(i, k, std::move(v));
    }
    /// Inserts or overwrites.
    V& assign(const K& k, V v) {
        const std::uint32_t i = lowerBound(k);
        if (i < size_ && !Compare()(k, data()[i].first)) {
            data()[i].second = std::move(v);
            return data()[i].second;
        }
        return insertAt(i, k, std::move(v));
    }
    /// Removes the member with that key; moves its value into `removed` when given.
    bool erase(const K& k, V* removed = nullptr) {
        const std::uint32_t i = lowerBound(k);
        if (i == size_ || Compare()(k, data()[i].first)) {
            return false;
        }
        value_type* d = data();
        if (removed) {
            *removed = std::move(d[i].second);
        }
        d[i].~value_type();
        for (std::uint32_t j = i + 1; j < size_; ++j) {
            ::new (static_cast<void*>(d + j - 1)) value_type(std::move(d[j]));
            d[j].~value_type();
        }
        --size_;
        ++version_;
        return true;
    }
    void clear() noexcept {
        release();
        ++version_;
    }

private:
    bool isInline() const noexcept { return capacity_ <= InlineN; }
    value_type* heap() const noexcept {
        value_type* p;
        std::memcpy(&p, storage_, addressBytes);
        return p;
    }
    value_type* data() noexcept {
        return isInline() ? std::launder(reinterpret_cast<value_type*>(storage_)) : heap();
    }
    const value_type* data() const noexcept {
        return isInline() ? std::launder(reinterpret_cast<const value_type*>(storage_)) : heap();
    }

    /// The first position whose key is not less than `k`.
    std::uint32_t lowerBound(const K& k) const {
        std::uint32_t lo = 0;
        std::uint32_t hi = size_;
        const value_type* d = data();
        while (lo < hi) {
            const std::uint32_t mid = lo + (hi - lo) / 2;
            if (Compare()(d[mid].first, k)) {
                lo = mid + 1;
            } else {
                hi = mid;
            }
        }
        return lo;
    }
    /// The first position whose key is greater than `k`.
    std::uint32_t upperBound(const K& k) const {
        const std::uint32_t i = lowerBound(k);
        return i < size_ && !Compare()(k, data()[i].first) ? i + 1 : i;
    }

    V& insertAt(std::uint32_t i, const K& k, V v) {
        if (size_ == capacity_) {
            grow();
        }
        value_type* d = data();
        for (std::uint32_t j = size_; j > i; --j) {
            ::new (static_cast<void*>(d + j)) value_type(std::move(d[j - 1]));
            d[j - 1].~value_type();
        }
        ::new (static_cast<void*>(d + i)) value_type(k, std::move(v));
        ++size_;
        ++version_;
        return d[i].second;
    }

    void grow() {
        const std::uint32_t capacity = capacity_ < 2 ? 4 : 2 * capacity_;
        auto* fresh = static_cast<value_type*>(
            ::operator new (sizeof(value_type) * capacity, std::align_val_t{alignof(value_type)}));
        value_type* d = data();
        for (std::uint32_t j = 0; j < size_; ++j) {
            ::new (static_cast<void*>(fresh + j)) value_type(std::move(d[j]));
            d[j].~value_type();
        }
        if (!isInline()) {
            ::operator delete (heap(), std::align_val_t{alignof(value_type)});
        }
        std::memcpy(storage_, &fresh, addressBytes);
        capacity_ = capacity;
    }

    void appendAll(const FlatMap& o) {
        try {
            for (std::uint32_t j = 0; j < o.size_; ++j) {
                insertAt(size_, o.data()[j].first, o.data()[j].second);
            }
        } catch (...) {
            release();
            throw;
        }
    }
    /// Takes over `o`'s members into this empty, inline map; `o` is left empty.
    void take(FlatMap& o) noexcept {
        if (!o.isInline()) {
            std::memcpy(storage_, o.storage_, addressBytes);
            capacity_ = o.capacity_;
            size_ = o.size_;
            o.capacity_ = InlineN;
        } else {
            value_type* from = o.data();
            value_type* to = data();
            for (std::uint32_t j = 0; j < o.size_; ++j) {
                ::new (static_cast<void*>(to + j)) value_type(std::move(from[j]));
                from[j].~value_type();
            }
            size_ = o.size_;
        }
        o.size_ = 0;
        ++o.version_;
    }

    /// Destroys every member and gives back the heap array.
    void release() noexcept {
        value_type* d = data();
        for (std::uint32_t j = 0; j < size_; ++j) {
            d[j].~value_type();
        }
        if (!isInline()) {
            ::operator delete (heap(), std::align_val_t{alignof(value_type)});
        }
        size_ = 0;
        capacity_ = InlineN;
    }

    static constexpr std::size_t inlineBytes = InlineN * sizeof(value_type);
    static constexpr std::size_t addressBytes = sizeof(void*);
    // The inline members, or the address of the heap array (copied in and
    // out, so it needs no alignment of its own).
    alignas(value_type) unsigned char storage_[inlineBytes > addressBytes ? inlineBytes : addressBytes];
    std::uint32_t version_ = 0;
    std::uint32_t size_ = 0;
    std::uint32_t capacity_ = InlineN;
};

}  // namespace Kest
