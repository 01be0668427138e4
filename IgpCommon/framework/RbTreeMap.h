// Kest::RbTreeMap: an ordered map (a red-black tree) with resumable iteration.
//
// Members are kept in key order (Compare). Inserting a key that is present is
// a programming error (assertion "insertion of a duplicate key"); use
// `assign` to insert or overwrite. An iterator stays usable while the map
// changes under it: when the map's version moved since the iterator last
// stood on a member, stepping on resumes at the successor of the last key it
// visited, so a walk neither repeats nor skips a surviving key and tolerates
// the removal of any member, including the current one. Comparing iterators
// never moves them. Costs are those of
// std::map: logarithmic look-up, one node allocation per member.
#pragma once

#include <cstdint>
#include <functional>
#include <iterator>
#include <map>
#include <utility>

#include "IgpCommon/framework/Assert.h"

namespace Kest {

template <class K, class V, class Compare = std::less<K>>
class RbTreeMap {
    using Tree = std::map<K, V, Compare>;

public:
    using key_type = K;
    using mapped_type = V;
    using value_type = typename Tree::value_type;

    class iterator {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = typename Tree::value_type;
        using difference_type = std::ptrdiff_t;
        using pointer = const value_type*;
        using reference = const value_type&;

        iterator() = default;

        /// The current member. After a change of the map it is found again by
        /// its key; if it was removed, the iterator moves on to its successor.
        const value_type& operator*() const {
            if (version_ != map_->version_ && !atEnd_) {
                it_ = map_->tree_.lower_bound(lastKey_);
                version_ = map_->version_;
                remember();
            }
            return *it_;
        }
        const value_type* operator->() const { return &**this; }

        iterator& operator++() {
            it_ = version_ == map_->version_ ? std::next(it_) : map_->tree_.upper_bound(lastKey_);
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
        friend class RbTreeMap;
        iterator(const RbTreeMap* m, typename Tree::const_iterator it)
            : map_(m), it_(it), version_(m->version_) {
            remember();
        }
        void remember() const {
            atEnd_ = it_ == map_->tree_.end();
            if (!atEnd_) {
                lastKey_ = it_->first;
            }
        }
        // Where the iterator stands in the map as it is now: an end iterator
        // stays at the end; otherwise the last key visited or its successor.
        typename Tree::const_iterator position() const {
            if (version_ == map_->version_ || atEnd_) {
                return atEnd_ ? map_->tree_.end() : it_;
            }
            return map_->tree_.lower_bound(lastKey_);
        }

        const RbTreeMap* map_ = nullptr;
        mutable typename Tree::const_iterator it_{};
        mutable K lastKey_{};
        mutable std::uint32_t version_ = 0;
        mutable bool atEnd_ = true;
    };
    using const_iterator = iterator;

    RbTreeMap() = default;
    explicit RbTreeMap(Compare cmp) : tree_(std::move(cmp)) {}

    std::size_t size() const noexcept { return tree_.size(); }
    bool empty() const noexcept { return tree_.empty(); }
    std::uint32_t version() const noexcept { return version_; }

    iterator begin() const { return iterator(this, tree_.begin()); }
    iterator end() const { return iterator(this, tree_.end()); }

    const V* find(const K& k) const {
        const auto it = tree_.find(k);
        return it == tree_.end() ? nullptr : &it->second;
    }
    /// The stored value for writing in place, or null.
    V* findMutable(const K& k) {
        const auto it = tree_.find(k);
        return it == tree_.end() ? nullptr : &it->second;
    }
    bool contains(const K& k) const { return tree_.find(k) != tree_.end(); }

    /// Inserts a member whose key must be absent.
    V& insert(const K& k, V v) {
        auto [it, inserted] = tree_.emplace(k, std::move(v));
        KEST_ASSERT_MSG(inserted, "insertion of a duplicate key");
        ++version_;
        return it->second;
    }
    /// Inserts or overwrites.
    V& assign(const K& k, V v) {
        auto [it, inserted] = tree_.insert_or_assign(k, std::move(v));
        if (inserted) {
            ++version_;
        }
        return it->second;
    }
    /// Removes the member with that key; moves its value into `removed` when given.
    bool erase(const K& k, V* removed = nullptr) {
        const auto it = tree_.find(k);
        if (it == tree_.end()) {
            return false;
        }
        if (removed) {
            *removed = std::move(it->second);
        }
        tree_.erase(it);
        ++version_;
        return true;
    }
    void clear() noexcept {
        tree_.clear();
        ++version_;
    }

private:
    Tree tree_;
    std::uint32_t version_ = 0;
};

}  // namespace Kest
