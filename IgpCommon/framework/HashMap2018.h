// Kest::HashMap2018: the keyed hash collection of the data model.
//
// One engine serves three shapes of member:
//   - internal key: the member is an entity pointer that carries its key
//     (KeyFunktor reads it from the member), e.g. the neighbors of a parsed LSP;
//   - external key: the member is a Kest::HashMapEntry holding a key copy
//     beside the value, e.g. the neighbors of a database entry;
//   - set: the member is the key itself, e.g. the address sets of a key.
//
// Contract
//   - Every collection type has its own 32-bit salt, XORed into the process
//     seed (Kest::HashHelper::hashSeed32()) for every hash of its keys.
//   - Iteration order depends only on the contents, the seed and the salt:
//     members are kept ordered by (hash, key), never by insertion history or
//     capacity. Two equal sets therefore iterate alike, which is what lets a
//     key compare, hash and print its sets element by element in step.
//   - An iterator tolerates the removal of its current member (through the
//     iterator or by key) and then continues with the next member. Any other
//     modification while an iterator is positioned is a programming error,
//     caught by the assertion "version_ == hashMap_->version()".
//   - Keys need ==, < (from <=>) and a seeded hash (a `hash(seed)` member or
//     an integral type).
//
// Layout and costs
//   An ordered linear-probing table (Amble and Knuth's ordered hash table):
//   a member's home slot is given by the top bits of its hash, members sit in
//   slot order sorted by (hash, key) with no wrap-around, so a slot order walk
//   is the (hash, key) order whatever the table's size. Look-ups stop at the
//   first larger hash, so a miss costs about as much as a hit. Insertion shifts
//   the rest of a run right by one, erasure shifts it back. Up to `InlineN`
//   members live inside the object itself (all of them "at home" in slot 0, a
//   plain sorted array), so the small sets that are the norm never allocate.
#pragma once

#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include "IgpCommon/framework/Assert.h"
#include "IgpCommon/framework/Hash.h"
#include "IgpCommon/framework/Text.h"

namespace Kest {

/// A member of an external-key map: the key copy and the value.
template <class K, class V>
struct HashMapEntry {
    K key;
    V value;
};

/// KeyFunktor of sets: the member is its own key.
struct IdentityKey {
    template <class T>
    constexpr const T& operator()(const T& v) const noexcept {
        return v;
    }
};

/// KeyFunktor of external-key maps.
struct EntryKey {
    template <class K, class V>
    constexpr const K& operator()(const HashMapEntry<K, V>& e) const noexcept {
        return e.key;
    }
};

template <class Member, class Key, class KeyFunktor, std::uint32_t Salt, unsigned InlineN = 0>
class HashMap2018 {
    struct Slot {
        std::uint32_t hash;
        bool used;
        alignas(Member) unsigned char raw[sizeof(Member)];

        Member& m() noexcept { return *std::launder(reinterpret_cast<Member*>(raw)); }
        const Member& m() const noexcept { return *std::launder(reinterpret_cast<const Member*>(raw)); }
    };
    static constexpr std::uint32_t npos = ~std::uint32_t{0};

public:
    using member_type = Member;
    using key_type = Key;
    static constexpr std::uint32_t salt = Salt;

    /// The seed of every hash of this collection's keys.
    static std::uint32_t seed() noexcept { return HashHelper::hashSeed32() ^ Salt; }
    static std::uint32_t hashOf(const Key& k) noexcept { return HashHelper::hash(k, seed()); }

    /// Removal-tolerant, version-checked iterator (see the header comment).
    class iterator {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = Member;
        using difference_type = std::ptrdiff_t;
        using pointer = const Member*;
        using reference = const Member&;

        iterator() noexcept = default;

        const Member& operator*() const noexcept {
            KEST_ASSERT_MSG(version_ == hashMap_->version(), "version_ == hashMap_->version()");
            return hashMap_->slots_[pos_].m();
        }
        const Member* operator->() const noexcept { return &**this; }

        iterator& operator++() noexcept {
            if (version_ != hashMap_->version()) {
                // Only the removal of the current member is allowed: its
                // successor now stands at the current slot or after it.
                KEST_ASSERT_MSG(hashMap_->erasedCurrent(version_, pos_), "version_ == hashMap_->version()");
                version_ = hashMap_->version();
                pos_ = hashMap_->nextUsed(pos_);
            } else {
                pos_ = hashMap_->nextUsed(pos_ + 1);
            }
            return *this;
        }
        iterator operator++(int) noexcept {
            iterator old = *this;
            ++*this;
            return old;
        }
        friend bool operator==(const iterator& a, const iterator& b) noexcept { return a.pos_ == b.pos_; }

    private:
        friend class HashMap2018;
        iterator(const HashMap2018* m, std::uint32_t pos) noexcept
            : hashMap_(m), pos_(pos), version_(m->version_) {}

        const HashMap2018* hashMap_ = nullptr;
        std::uint32_t pos_ = 0;
        std::uint32_t version_ = 0;
    };
    using const_iterator = iterator;

    /// Unchecked constant iteration for hot read-only walks (key equality,
    /// hashing): no version check, so the collection must not change meanwhile.
    class Unchecked {
    public:
        const Member& operator*() const noexcept { return p_->m(); }
        const Member* operator->() const noexcept { return &p_->m(); }
        Unchecked& operator++() noexcept {
            do {
                ++p_;
            } while (p_ != end_ && !p_->used);
            return *this;
        }
        friend bool operator==(const Unchecked& a, const Unchecked& b) noexcept { return a.p_ == b.p_; }

    private:
        friend class HashMap2018;
        Unchecked(const Slot* p, const Slot* end) noexcept : p_(p), end_(end) {
            while (p_ != end_ && !p_->used) {
                ++p_;
            }
        }
        const Slot* p_;
        const Slot* end_;
    };

    HashMap2018() noexcept { resetToEmpty(); }
    HashMap2018(const HashMap2018& o) { copyFrom(o); }
    HashMap2018(HashMap2018&& o) noexcept { moveFrom(std::move(o)); }
    HashMap2018& operator=(const HashMap2018& o) {
        if (this != &o) {
            HashMap2018 copy(o);
            destroyAll();
            moveFrom(std::move(copy));
        }
        return *this;
    }
    HashMap2018& operator=(HashMap2018&& o) noexcept {
        if (this != &o) {
            destroyAll();
            moveFrom(std::move(o));
        }
        return *this;
    }
    ~HashMap2018() { destroyAll(); }

    std::uint32_t size() const noexcept { return size_; }
    bool empty() const noexcept { return size_ == 0; }
    /// Changes with every insertion, removal and replacement.
    std::uint32_t version() const noexcept { return version_; }

    iterator begin() const noexcept { return iterator(this, nextUsed(0)); }
    iterator end() const noexcept { return iterator(this, slotCount_); }
    Unchecked uncheckedBegin() const noexcept { return Unchecked(slots_, slots_ + slotCount_); }
    Unchecked uncheckedEnd() const noexcept { return Unchecked(slots_ + slotCount_, slots_ + slotCount_); }

    /// The member with that key, or null.
    const Member* find(const Key& k) const noexcept {
        const std::uint32_t i = locate(hashOf(k), k);
        return i == npos ? nullptr : &slots_[i].m();
    }
    bool contains(const Key& k) const noexcept { return find(k) != nullptr; }
    /// An iterator at the member with that key, or end().
    iterator findIter(const Key& k) const noexcept {
        const std::uint32_t i = locate(hashOf(k), k);
        return iterator(this, i == npos ? slotCount_ : i);
    }

    /// Inserts `m` unless a member with its key is present. Returns the member
    /// now stored under the key and whether it is the new one.
    std::pair<const Member*, bool> insert(Member m) {
        const Key& k = KeyFunktor()(m);
        const std::uint32_t h = hashOf(k);
        for (;;) {
            std::uint32_t at = 0;
            const std::uint32_t found = locate(h, k, &at);
            if (found != npos) {
                return {&slots_[found].m(), false};
            }
            if (placeAt(at, h, m)) {
                return {&slots_[at].m(), true};
            }
            grow();
        }
    }

    /// Replaces the member at `pos` by `m`, which must carry the same key, and
    /// returns the previous member.
    Member replace(iterator pos, Member m) {
        KEST_ASSERT_MSG(pos.version_ == version_, "version_ == hashMap_->version()");
        Slot& s = slots_[pos.pos_];
        const Key& fwkKey = KeyFunktor()(s.m());
        KEST_ASSERT_MSG(fwkKey == KeyFunktor()(m), "fwkKey() == KeyFunktor()( _value )");
        Member old = std::exchange(s.m(), std::move(m));
        ++version_;
        return old;
    }

    /// Removes the member with that key; moves it into `removed` when given.
    bool erase(const Key& k, Member* removed = nullptr) {
        const std::uint32_t i = locate(hashOf(k), k);
        if (i == npos) {
            return false;
        }
        eraseSlot(i, removed);
        return true;
    }
    /// Removes the member an iterator stands at; the iterator may go on.
    void erase(iterator pos, Member* removed = nullptr) {
        KEST_ASSERT_MSG(pos.version_ == version_, "version_ == hashMap_->version()");
        eraseSlot(pos.pos_, removed);
    }

    /// Removes every member in one sweep and gives back heap storage.
    void clear() noexcept {
        destroyAll();
        resetToEmpty();
        ++version_;
    }

    /// Makes room for `n` members without further growth.
    void reserve(std::uint32_t n) {
        if (n > InlineN && (isInline() || n > maxLoad(bucketBits()))) {
            std::uint32_t bits = 2;
            while (maxLoad(bits) < n) {
                ++bits;
            }
            rebuild(bits, minSlack(bits));
        }
    }

private:
    // ---- geometry ------------------------------------------------------
    bool isInline() const noexcept { return shift_ >= 32; }
    std::uint32_t bucketBits() const noexcept { return isInline() ? 0 : 32 - shift_; }
    std::uint32_t home(std::uint32_t h) const noexcept { return isInline() ? 0 : h >> shift_; }
    static constexpr std::uint32_t maxLoad(std::uint32_t bits) noexcept { return (3u << bits) / 4; }
    static constexpr std::uint32_t minSlack(std::uint32_t bits) noexcept { return bits + 4; }

    std::uint32_t nextUsed(std::uint32_t i) const noexcept {
        while (i < slotCount_ && !slots_[i].used) {
            ++i;
        }
        return i;
    }
    bool erasedCurrent(std::uint32_t iterVersion, std::uint32_t pos) const noexcept {
        return erasedVersion_ == version_ && version_ == iterVersion + 1 && erasedSlot_ == pos;
    }

    /// Finds the slot of key `k` with hash `h`; with `insertAt`, also the slot
    /// where it would be inserted when absent.
    std::uint32_t locate(std::uint32_t h, const Key& k, std::uint32_t* insertAt = nullptr) const noexcept {
        std::uint32_t i = home(h);
        for (; i < slotCount_ && slots_[i].used; ++i) {
            const Slot& s = slots_[i];
            if (s.hash < h) {
                continue;
            }
            if (s.hash > h) {
                break;
            }
            const Key& sk = KeyFunktor()(s.m());
            if (sk == k) {
                return i;
            }
            if (k < sk) {
                break;
            }
        }
        if (insertAt) {
            *insertAt = i;
        }
        return npos;
    }

    /// Puts a new member at slot `at`, shifting the rest of its run right.
    /// False when the table must grow first.
    bool placeAt(std::uint32_t at, std::uint32_t h, Member& m) {
        if (!isInline() && size_ + 1 > maxLoad(bucketBits())) {
            return false;
        }
        std::uint32_t gap = at;
        while (gap < slotCount_ && slots_[gap].used) {
            ++gap;
        }
        if (gap == slotCount_) {
            return false;
        }
        for (std::uint32_t j = gap; j > at; --j) {
            moveSlot(j - 1, j);
        }
        slots_[at].hash = h;
        ::new (static_cast<void*>(slots_[at].raw)) Member(std::move(m));
        slots_[at].used = true;
        ++size_;
        ++version_;
        return true;
    }

    void eraseSlot(std::uint32_t i, Member* removed) {
        if (removed) {
            *removed = std::move(slots_[i].m());
        }
        slots_[i].m().~Member();
        slots_[i].used = false;
        std::uint32_t j = i + 1;
        while (j < slotCount_ && slots_[j].used && home(slots_[j].hash) < j) {
            moveSlot(j, j - 1);
            ++j;
        }
        --size_;
        ++version_;
        erasedSlot_ = i;
        erasedVersion_ = version_;
    }

    /// Move-constructs slot `to` (empty) from slot `from`, leaving `from` empty.
    void moveSlot(std::uint32_t from, std::uint32_t to) noexcept {
        Slot& f = slots_[from];
        Slot& t = slots_[to];
        t.hash = f.hash;
        ::new (static_cast<void*>(t.raw)) Member(std::move(f.m()));
        t.used = true;
        f.m().~Member();
        f.used = false;
    }

    void grow() {
        if (isInline()) {
            std::uint32_t bits = 2;
            while (maxLoad(bits) < size_ + 1) {
                ++bits;
            }
            rebuild(bits, minSlack(bits));
        } else if (size_ + 1 > maxLoad(bucketBits())) {
            rebuild(bucketBits() + 1, minSlack(bucketBits() + 1));
        } else {
            // A run reached the end of the table: more room after the last bucket.
            rebuild(bucketBits(), 2 * (slotCount_ - (1u << bucketBits())) + 4);
        }
    }

    /// Re-lays every member into 2^bits buckets; the slot count is what the
    /// members need plus `slack`.
    void rebuild(std::uint32_t bits, std::uint32_t slack) {
        const std::uint32_t shift = 32 - bits;
        std::uint32_t need = 0;
        for (std::uint32_t i = 0; i < slotCount_; ++i) {
            if (slots_[i].used) {
                const std::uint32_t h = slots_[i].hash >> shift;
                need = (h > need ? h : need) + 1;
            }
        }
        const std::uint32_t buckets = 1u << bits;
        const std::uint32_t count = (need > buckets ? need : buckets) + slack;
        Slot* fresh =
            static_cast<Slot*>(::operator new (sizeof(Slot) * count, std::align_val_t{alignof(Slot)}));
        for (std::uint32_t i = 0; i < count; ++i) {
            fresh[i].used = false;
        }
        std::uint32_t next = 0;
        for (std::uint32_t i = 0; i < slotCount_; ++i) {
            Slot& s = slots_[i];
            if (!s.used) {
                continue;
            }
            const std::uint32_t h = s.hash >> shift;
            const std::uint32_t to = h > next ? h : next;
            fresh[to].hash = s.hash;
            ::new (static_cast<void*>(fresh[to].raw)) Member(std::move(s.m()));
            fresh[to].used = true;
            s.m().~Member();
            s.used = false;
            next = to + 1;
        }
        releaseStorage();
        slots_ = fresh;
        slotCount_ = count;
        shift_ = static_cast<std::uint8_t>(shift);
        ++version_;
    }

    // ---- storage -------------------------------------------------------
    Slot* inlineSlots() noexcept {
        if constexpr (InlineN > 0) {
            return inline_;
        } else {
            return nullptr;
        }
    }

    void resetToEmpty() noexcept {
        slots_ = inlineSlots();
        slotCount_ = InlineN;
        shift_ = 32;
        size_ = 0;
        for (std::uint32_t i = 0; i < InlineN; ++i) {
            slots_[i].used = false;
        }
    }

    void releaseStorage() noexcept {
        if (slots_ != inlineSlots()) {
            ::operator delete (slots_, std::align_val_t{alignof(Slot)});
        }
    }

    void destroyAll() noexcept {
        if constexpr (!std::is_trivially_destructible_v<Member>) {
            for (std::uint32_t i = 0; i < slotCount_; ++i) {
                if (slots_[i].used) {
                    slots_[i].m().~Member();
                    slots_[i].used = false;
                }
            }
        }
        releaseStorage();
        slots_ = inlineSlots();
    }

    /// Copies `o` slot for slot: same seed and salt, so the same layout.
    void copyFrom(const HashMap2018& o) {
        resetToEmpty();
        if (!o.isInline()) {
            slots_ = static_cast<Slot*>(
                ::operator new (sizeof(Slot) * o.slotCount_, std::align_val_t{alignof(Slot)}));
            slotCount_ = o.slotCount_;
            shift_ = o.shift_;
            for (std::uint32_t i = 0; i < slotCount_; ++i) {
                slots_[i].used = false;
            }
        }
        try {
            for (std::uint32_t i = 0; i < o.slotCount_; ++i) {
                if (o.slots_[i].used) {
                    slots_[i].hash = o.slots_[i].hash;
                    ::new (static_cast<void*>(slots_[i].raw)) Member(o.slots_[i].m());
                    slots_[i].used = true;
                    ++size_;
                }
            }
        } catch (...) {
            destroyAll();
            throw;
        }
    }

    void moveFrom(HashMap2018&& o) noexcept {
        resetToEmpty();
        if (!o.isInline()) {
            slots_ = o.slots_;
            slotCount_ = o.slotCount_;
            shift_ = o.shift_;
            size_ = o.size_;
        } else {
            for (std::uint32_t i = 0; i < InlineN; ++i) {
                if (o.slots_[i].used) {
                    slots_[i].hash = o.slots_[i].hash;
                    ::new (static_cast<void*>(slots_[i].raw)) Member(std::move(o.slots_[i].m()));
                    slots_[i].used = true;
                    o.slots_[i].m().~Member();
                    o.slots_[i].used = false;
                }
            }
            size_ = o.size_;
        }
        o.slots_ = o.inlineSlots();
        o.resetToEmpty();
        ++o.version_;
    }

    struct NoInline {};
    Slot* slots_;
    std::uint32_t slotCount_;
    std::uint32_t size_;
    std::uint32_t version_ = 0;
    std::uint32_t erasedVersion_ = ~std::uint32_t{0};
    std::uint32_t erasedSlot_ = 0;
    std::uint8_t shift_;
    static constexpr unsigned inlineSlots_ = (InlineN > 0) ? InlineN : 1;
    [[no_unique_address]] std::conditional_t<(InlineN > 0), Slot[inlineSlots_], NoInline> inline_;
};

/// The generic text form of a set: its members in iteration order, "[a, b]".
template <class K, std::uint32_t Salt, unsigned InlineN>
std::ostream& operator<<(std::ostream& os, const HashMap2018<K, K, IdentityKey, Salt, InlineN>& set) {
    os << '[';
    bool first = true;
    for (auto it = set.uncheckedBegin(); it != set.uncheckedEnd(); ++it) {
        os << (first ? "" : ", ");
        writeText(os, *it);
        first = false;
    }
    return os << ']';
}

/// A set of keys.
template <class K, std::uint32_t Salt, unsigned InlineN = 0>
using HashSet = HashMap2018<K, K, IdentityKey, Salt, InlineN>;

/// A map from key copies to values.
template <class K, class V, std::uint32_t Salt, unsigned InlineN = 0>
using HashMap = HashMap2018<HashMapEntry<K, V>, K, EntryKey, Salt, InlineN>;

}  // namespace Kest
