// Kest::HashMap2018: the keyed hash collection of the data model.
//
// One engine serves three shapes of member:
//   - internal key: the member is an entity pointer that carries its key
//     (KeyFunktor reads it from the member), e.g. the neighbors of a parsed
//     LSP; Kest::EntityMap presents such a map as {key, value} entries, e.g.
//     the neighbors of a database entry, without storing a key twice;
//   - external key: the member is a Kest::HashMapEntry holding a key copy
//     beside the value, e.g. a neighbor's extended admin groups;
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
//   a member's home slot is its hash's fraction of the bucket count, members
//   sit in slot order sorted by (hash, key) with no wrap-around, so a slot
//   order walk is the (hash, key) order whatever the table's size. Look-ups
//   stop at the first larger hash, so a miss costs about as much as a hit.
//   Insertion shifts the rest of a run right by one, erasure shifts it back.
//   findOrInsert inserts at the slot its look-up stopped at, so a key is
//   hashed once; callers that look one key up several times pass its hash.
//   The table is one heap block (a 16-byte header, then the slots), sized to
//   a load of at most 3/4; reserve() sizes it exactly.
//
//   The collection object itself is small: up to `InlineN` members (at most
//   15) in place, sharing the room with the table's address, plus one 32-bit
//   word for the state (heap or inline, the inline count, the last erasure
//   and a 22-bit version). Inline members form a plain array in (hash, key)
//   order; a look-up among them compares keys without hashing. So an IPv4
//   set with one inline member takes 12 bytes and never allocates.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
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
    friend bool operator==(const HashMapEntry&, const HashMapEntry&) = default;
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
    static_assert(InlineN <= 15, "the inline count and an inline erasure are kept in four bits each");

    struct Slot {
        std::uint32_t hash;
        bool used;
        alignas(Member) unsigned char raw[sizeof(Member)];

        Member& m() noexcept { return *std::launder(reinterpret_cast<Member*>(raw)); }
        const Member& m() const noexcept { return *std::launder(reinterpret_cast<const Member*>(raw)); }
    };
    // A heap table: this header, then the slots.
    struct Block {
        std::uint32_t buckets;
        std::uint32_t slotCount;
        std::uint32_t size;
        std::uint32_t erasedSlot;
    };
    static constexpr std::size_t slotsOffset =
        (sizeof(Block) + alignof(Slot) - 1) / alignof(Slot) * alignof(Slot);
    static constexpr std::size_t blockAlign = alignof(Slot) > alignof(Block) ? alignof(Slot) : alignof(Block);
    static constexpr std::size_t inlineBytes = InlineN * sizeof(Member);
    static constexpr std::size_t addressBytes = sizeof(void*);
    static constexpr std::size_t storageBytes = inlineBytes > addressBytes ? inlineBytes : addressBytes;
    // Inline storage exists only with InlineN > 0; without it, a collection
    // that has no heap table is empty.
    static constexpr bool hasInline = InlineN > 0;

    // state_, from the top: the members are in a heap table; the last change
    // was an erasure; inline, the erased position and the member count; then
    // the version.
    static constexpr std::uint32_t heapBit = 1u << 31;
    static constexpr std::uint32_t erasedBit = 1u << 30;
    static constexpr unsigned erasedShift = 26;
    static constexpr unsigned countShift = 22;
    static constexpr std::uint32_t fourBits = 0xFu;
    static constexpr std::uint32_t versionMask = (1u << countShift) - 1;
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
            return hashMap_->memberAt(pos_);
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
            : hashMap_(m), pos_(pos), version_(m->version()) {}

        const HashMap2018* hashMap_ = nullptr;
        std::uint32_t pos_ = 0;
        std::uint32_t version_ = 0;
    };
    using const_iterator = iterator;

    /// Unchecked constant iteration for hot read-only walks (key equality,
    /// hashing): no version check, so the collection must not change meanwhile.
    class Unchecked {
    public:
        const Member& operator*() const noexcept { return m_->memberAt(pos_); }
        const Member* operator->() const noexcept { return &m_->memberAt(pos_); }
        Unchecked& operator++() noexcept {
            pos_ = m_->nextUsed(pos_ + 1);
            return *this;
        }
        friend bool operator==(const Unchecked& a, const Unchecked& b) noexcept { return a.pos_ == b.pos_; }

    private:
        friend class HashMap2018;
        Unchecked(const HashMap2018* m, std::uint32_t pos) noexcept : m_(m), pos_(pos) {}
        const HashMap2018* m_;
        std::uint32_t pos_;
    };

    HashMap2018() noexcept = default;
    HashMap2018(const HashMap2018& o) { copyFrom(o); }
    HashMap2018(HashMap2018&& o) noexcept { moveFrom(std::move(o)); }
    HashMap2018& operator=(const HashMap2018& o) {
        if (this != &o) {
            HashMap2018 copy(o);
            destroyAll();
            moveFrom(std::move(copy));
            touch();
        }
        return *this;
    }
    HashMap2018& operator=(HashMap2018&& o) noexcept {
        if (this != &o) {
            destroyAll();
            moveFrom(std::move(o));
            touch();
        }
        return *this;
    }
    ~HashMap2018() { destroyAll(); }

    std::uint32_t size() const noexcept { return isHeap() ? block()->size : inlineCount(); }
    bool empty() const noexcept { return size() == 0; }
    /// Changes with every insertion, removal and replacement (it counts modulo 2^22).
    std::uint32_t version() const noexcept { return state_ & versionMask; }

    iterator begin() const noexcept { return iterator(this, nextUsed(0)); }
    iterator end() const noexcept { return iterator(this, endPos()); }
    Unchecked uncheckedBegin() const noexcept { return Unchecked(this, nextUsed(0)); }
    Unchecked uncheckedEnd() const noexcept { return Unchecked(this, endPos()); }

    /// Calls `f(member)` for every member in iteration order, with no
    /// iterator between: for hot read-only walks (hashing a key's sets), where
    /// `f` must not change the collection.
    template <class F>
    void forEachUnchecked(F&& f) const noexcept(noexcept(f(std::declval<const Member&>()))) {
        if (!isHeap()) {
            if constexpr (hasInline) {
                for (std::uint32_t i = 0, n = inlineCount(); i < n; ++i) {
                    f(*inlineAt(i));
                }
            }
            return;
        }
        const Slot* s = slots();
        for (std::uint32_t i = 0, n = block()->slotCount; i < n; ++i) {
            if (s[i].used) {
                f(s[i].m());
            }
        }
    }

    /// The first member in iteration order; the collection must not be empty.
    const Member& front() const noexcept {
        KEST_ASSERT_MSG(!empty(), "!empty()");
        return memberAt(nextUsed(0));
    }

    /// The member with that key, or null.
    const Member* find(const Key& k) const noexcept {
        const std::uint32_t i = findPos(k);
        return i == npos ? nullptr : &memberAt(i);
    }
    /// The same with the key's hash, hashOf(k), computed once by a caller
    /// that looks the key up more than once.
    const Member* find(const Key& k, std::uint32_t h) const noexcept {
        const std::uint32_t i = isHeap() ? locate(h, k) : inlineFind(k);
        return i == npos ? nullptr : &memberAt(i);
    }
    bool contains(const Key& k) const noexcept { return findPos(k) != npos; }
    /// An iterator at the member with that key, or end().
    iterator findIter(const Key& k) const noexcept {
        const std::uint32_t i = findPos(k);
        return iterator(this, i == npos ? endPos() : i);
    }
    /// The same with the key's hash, hashOf(k), computed by the caller.
    iterator findIter(const Key& k, std::uint32_t h) const noexcept {
        const std::uint32_t i = isHeap() ? locate(h, k) : inlineFind(k);
        return iterator(this, i == npos ? endPos() : i);
    }

    /// Inserts `m` unless a member with its key is present. Returns the member
    /// now stored under the key and whether it is the new one.
    std::pair<const Member*, bool> insert(Member m) {
        return findOrInsert(KeyFunktor()(m), [&m]() -> Member&& { return std::move(m); });
    }
    /// The same with the hash of m's key, hashOf(key), computed by the caller.
    std::pair<const Member*, bool> insert(Member m, std::uint32_t h) {
        return findOrInsert(KeyFunktor()(m), h, [&m]() -> Member&& { return std::move(m); });
    }

    /// The member with key `k`, or else a new one made by `make()` (it must
    /// carry `k` and must not touch this collection), and whether it is new.
    /// A look-up that inserts on a miss: the key is hashed once, and only in
    /// a heap table; nothing is made when the key is present.
    template <class Make>
    std::pair<const Member*, bool> findOrInsert(const Key& k, Make&& make) {
        return findOrInsertWith(
            k, [&k] { return hashOf(k); }, make);
    }
    /// The same with the key's hash, hashOf(k), computed by the caller.
    template <class Make>
    std::pair<const Member*, bool> findOrInsert(const Key& k, std::uint32_t h, Make&& make) {
        return findOrInsertWith(
            k, [h] { return h; }, make);
    }

    /// Replaces the member at `pos` by `m`, which must carry the same key, and
    /// returns the previous member.
    Member replace(iterator pos, Member m) {
        KEST_ASSERT_MSG(pos.version_ == version(), "version_ == hashMap_->version()");
        Member& cur = memberAt(pos.pos_);
        const Key& fwkKey = KeyFunktor()(cur);
        KEST_ASSERT_MSG(fwkKey == KeyFunktor()(m), "fwkKey() == KeyFunktor()( _value )");
        Member old = std::exchange(cur, std::move(m));
        touch();
        return old;
    }

    /// Removes the member with that key; moves it into `removed` when given.
    bool erase(const Key& k, Member* removed = nullptr) {
        const std::uint32_t i = findPos(k);
        if (i == npos) {
            return false;
        }
        eraseAt(i, removed);
        return true;
    }
    /// Removes the member an iterator stands at; the iterator may go on.
    void erase(iterator pos, Member* removed = nullptr) {
        KEST_ASSERT_MSG(pos.version_ == version(), "version_ == hashMap_->version()");
        eraseAt(pos.pos_, removed);
    }

    /// Removes every member in one sweep and gives back heap storage.
    void clear() noexcept {
        destroyAll();
        touch();
    }

    /// Makes room for `n` members: inserting them never grows the table for
    /// load. A run that spills past the few spare slots after the last bucket
    /// still rebuilds it once with more (rare, and up to the seed).
    void reserve(std::uint32_t n) {
        if (n > InlineN && (!isHeap() || n > maxLoad(block()->buckets))) {
            const std::uint32_t buckets = bucketsFor(n);
            rebuild(buckets, slackFor(buckets));
        }
    }

private:
    static constexpr auto noLast = [](Member&) noexcept {};

public:
    /// clear() then reserve(n), but a heap table that has room for `n`
    /// members and at most `maxTimes` the buckets they need (an empty
    /// collection needs two), or at most 256 buckets whatever they need, is
    /// emptied in place: a collection refilled again and again keeps its one
    /// block, also when some fills are empty. A larger one is given back,
    /// since a walk visits every slot; so is a table whose members now fit
    /// inline. `last(Member&)` sees each member just before it is destroyed,
    /// in the same walk, and may move from it.
    template <class Last = decltype(noLast)>
    void clearFor(std::uint32_t n, std::uint32_t maxTimes, const Last& last = noLast) {
        constexpr std::uint64_t smallTable = 256;
        if (isHeap() && (n > InlineN || !hasInline) && n <= maxLoad(block()->buckets) &&
            block()->buckets <= std::max(std::uint64_t{maxTimes} * bucketsFor(n), smallTable)) {
            destroyMembers(block(), last);
            touch();
            return;
        }
        destroyAll(last);
        touch();
        reserve(n);
    }

private:
    // ---- geometry ------------------------------------------------------
    // A heap table has `buckets` home slots, any number of them: a hash's
    // home is its fraction of the bucket count (h * buckets / 2^32), which
    // keeps homes in hash order and lets a table be sized to its contents.
    static std::uint32_t homeIn(std::uint32_t h, std::uint32_t buckets) noexcept {
        return static_cast<std::uint32_t>((std::uint64_t{h} * buckets) >> 32);
    }
    static constexpr std::uint32_t maxLoad(std::uint32_t buckets) noexcept {
        return static_cast<std::uint32_t>(std::uint64_t{buckets} * 3 / 4);
    }
    /// The fewest buckets that hold `n` members within the load limit.
    static constexpr std::uint32_t bucketsFor(std::uint32_t n) noexcept {
        const std::uint32_t b = n + (n + 2) / 3;
        return b < 2 ? 2 : b;
    }
    /// Slots after the last bucket for runs that spill past it (a table whose
    /// run reaches its end is rebuilt with more). A full table spills at most
    /// its load less one, which bounds the slack of small tables.
    static std::uint32_t slackFor(std::uint32_t buckets) noexcept {
        const std::uint32_t wide = 2 + static_cast<std::uint32_t>(std::bit_width(buckets)) / 2;
        const std::uint32_t atMost = maxLoad(buckets) - 1;
        return wide < atMost ? wide : atMost;
    }

    bool isHeap() const noexcept { return (state_ & heapBit) != 0; }
    std::uint32_t inlineCount() const noexcept { return (state_ >> countShift) & fourBits; }
    void inlineCountIs(std::uint32_t n) noexcept {
        state_ = (state_ & ~(fourBits << countShift)) | (n << countShift);
    }
    Block* block() const noexcept {
        Block* b;
        std::memcpy(&b, storage_, addressBytes);
        return b;
    }
    void blockIs(Block* b) noexcept {
        std::memcpy(storage_, &b, addressBytes);
        state_ = (state_ & versionMask) | heapBit;
    }
    static Slot* slotsOf(Block* b) noexcept {
        return std::launder(reinterpret_cast<Slot*>(reinterpret_cast<unsigned char*>(b) + slotsOffset));
    }
    Slot* slots() const noexcept { return slotsOf(block()); }

    void* inlineRaw(std::uint32_t i) noexcept { return storage_ + std::size_t{i} * sizeof(Member); }
    Member* inlineAt(std::uint32_t i) noexcept { return std::launder(static_cast<Member*>(inlineRaw(i))); }
    const Member* inlineAt(std::uint32_t i) const noexcept {
        return std::launder(reinterpret_cast<const Member*>(storage_ + std::size_t{i} * sizeof(Member)));
    }

    const Member& memberAt(std::uint32_t pos) const noexcept {
        if constexpr (hasInline) {
            if (!isHeap()) {
                return *inlineAt(pos);
            }
        }
        return slots()[pos].m();
    }
    Member& memberAt(std::uint32_t pos) noexcept {
        if constexpr (hasInline) {
            if (!isHeap()) {
                return *inlineAt(pos);
            }
        }
        return slots()[pos].m();
    }

    std::uint32_t endPos() const noexcept { return isHeap() ? block()->slotCount : InlineN; }
    std::uint32_t nextUsed(std::uint32_t i) const noexcept {
        if (!isHeap()) {
            return i < inlineCount() ? i : InlineN;
        }
        const Slot* s = slots();
        const std::uint32_t n = block()->slotCount;
        if (block()->size == 0) {
            return n;  // a table emptied in place keeps its slots
        }
        while (i < n && !s[i].used) {
            ++i;
        }
        return i;
    }

    /// A new version; forgets the last erasure.
    void touch() noexcept {
        state_ =
            (state_ & ~(erasedBit | (fourBits << erasedShift) | versionMask)) | ((state_ + 1) & versionMask);
    }
    void touchErased(std::uint32_t pos) noexcept {
        touch();
        state_ |= erasedBit;
        if (isHeap()) {
            block()->erasedSlot = pos;
        } else {
            state_ |= pos << erasedShift;
        }
    }
    bool erasedCurrent(std::uint32_t iterVersion, std::uint32_t pos) const noexcept {
        if ((state_ & erasedBit) == 0 || version() != ((iterVersion + 1) & versionMask)) {
            return false;
        }
        return (isHeap() ? block()->erasedSlot : (state_ >> erasedShift) & fourBits) == pos;
    }

    std::uint32_t findPos(const Key& k) const noexcept {
        return isHeap() ? locate(hashOf(k), k) : inlineFind(k);
    }

    // ---- inline members: a plain array in (hash, key) order -------------
    // So few that keys are compared directly: an inline look-up hashes nothing.
    std::uint32_t inlineFind(const Key& k) const noexcept {
        if constexpr (hasInline) {
            const std::uint32_t n = inlineCount();
            for (std::uint32_t i = 0; i < n; ++i) {
                if (KeyFunktor()(*inlineAt(i)) == k) {
                    return i;
                }
            }
        }
        return npos;
    }

    /// Puts `m` (absent) in its place among fewer than InlineN members; its
    /// hash is needed only to order it among others.
    const Member* inlinePlace(Member& m) {
        const Key& k = KeyFunktor()(m);
        const std::uint32_t n = inlineCount();
        if (n >= InlineN) {
            return nullptr;  // never: the caller checked; tells the compiler the bound
        }
        std::uint32_t at = 0;
        if (n > 0) {
            const std::uint32_t h = hashOf(k);
            for (; at < n; ++at) {
                const Key& ak = KeyFunktor()(*inlineAt(at));
                const std::uint32_t ah = hashOf(ak);
                if (h < ah || (h == ah && k < ak)) {
                    break;
                }
            }
        }
        for (std::uint32_t j = n; j > at; --j) {
            ::new (inlineRaw(j)) Member(std::move(*inlineAt(j - 1)));
            inlineAt(j - 1)->~Member();
        }
        ::new (inlineRaw(at)) Member(std::move(m));
        inlineCountIs(n + 1);
        touch();
        return inlineAt(at);
    }

    // `k` is not read once `make()` ran: it may be a member that make moves.
    template <class Hash, class Make>
    std::pair<const Member*, bool> findOrInsertWith(const Key& k, Hash hash, Make& make) {
        if (!isHeap()) {
            const std::uint32_t found = inlineFind(k);
            if (found != npos) {
                return {inlineAt(found), false};
            }
            if constexpr (hasInline) {
                if (inlineCount() < InlineN) {
                    Member m = make();
                    return {inlinePlace(m), true};
                }
            }
            const std::uint32_t h = hash();
            // Made before the table grows: if making fails, nothing changed.
            Member m = make();
            grow();
            return {placeAbsent(h, m), true};
        }
        const std::uint32_t h = hash();
        std::uint32_t at = 0;
        const std::uint32_t found = locate(h, k, &at);
        if (found != npos) {
            return {&slots()[found].m(), false};
        }
        Member m = make();
        if (placeAt(at, h, m)) {
            return {&slots()[at].m(), true};
        }
        grow();
        return {placeAbsent(h, m), true};
    }

    // ---- heap table ----------------------------------------------------

    /// Places `m`, whose key is absent and hashes to `h`, growing as needed.
    const Member* placeAbsent(std::uint32_t h, Member& m) {
        for (;;) {
            std::uint32_t at = 0;
            locate(h, KeyFunktor()(m), &at);
            if (placeAt(at, h, m)) {
                return &slots()[at].m();
            }
            grow();
        }
    }

    /// Finds the slot of key `k` with hash `h`; with `insertAt`, also the slot
    /// where it would be inserted when absent.
    std::uint32_t locate(std::uint32_t h, const Key& k, std::uint32_t* insertAt = nullptr) const noexcept {
        const Block* b = block();
        const Slot* s = slots();
        const std::uint32_t n = b->slotCount;
        std::uint32_t i = homeIn(h, b->buckets);
        for (; i < n && s[i].used; ++i) {
            if (s[i].hash < h) {
                continue;
            }
            if (s[i].hash > h) {
                break;
            }
            const Key& sk = KeyFunktor()(s[i].m());
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
        Block* b = block();
        if (b->size + 1 > maxLoad(b->buckets)) {
            return false;
        }
        Slot* s = slots();
        std::uint32_t gap = at;
        while (gap < b->slotCount && s[gap].used) {
            ++gap;
        }
        if (gap == b->slotCount) {
            return false;
        }
        for (std::uint32_t j = gap; j > at; --j) {
            moveSlot(s[j - 1], s[j]);
        }
        s[at].hash = h;
        ::new (static_cast<void*>(s[at].raw)) Member(std::move(m));
        s[at].used = true;
        ++b->size;
        touch();
        return true;
    }

    void eraseAt(std::uint32_t i, Member* removed) {
        if constexpr (hasInline) {
            if (!isHeap()) {
                if (removed) {
                    *removed = std::move(*inlineAt(i));
                }
                inlineAt(i)->~Member();
                const std::uint32_t n = inlineCount();
                for (std::uint32_t j = i + 1; j < n; ++j) {
                    ::new (inlineRaw(j - 1)) Member(std::move(*inlineAt(j)));
                    inlineAt(j)->~Member();
                }
                inlineCountIs(n - 1);
                touchErased(i);
                return;
            }
        }
        Block* b = block();
        Slot* s = slots();
        if (removed) {
            *removed = std::move(s[i].m());
        }
        s[i].m().~Member();
        s[i].used = false;
        std::uint32_t j = i + 1;
        while (j < b->slotCount && s[j].used && homeIn(s[j].hash, b->buckets) < j) {
            moveSlot(s[j], s[j - 1]);
            ++j;
        }
        --b->size;
        touchErased(i);
    }

    /// Move-constructs slot `to` (empty) from slot `from`, leaving `from` empty.
    static void moveSlot(Slot& from, Slot& to) noexcept {
        to.hash = from.hash;
        ::new (static_cast<void*>(to.raw)) Member(std::move(from.m()));
        to.used = true;
        from.m().~Member();
        from.used = false;
    }

    void grow() {
        if (!isHeap()) {
            // Room for two at least: a set that outgrows its inline members,
            // or gets its first one without any, often gets one more.
            const std::uint32_t n = inlineCount() + 1;
            const std::uint32_t buckets = bucketsFor(n < 2 ? 2 : n);
            rebuild(buckets, slackFor(buckets));
            return;
        }
        const Block* b = block();
        if (b->size + 1 > maxLoad(b->buckets)) {
            const std::uint32_t wanted = bucketsFor(b->size + 1);
            const std::uint32_t buckets = wanted > 2 * b->buckets ? wanted : 2 * b->buckets;
            rebuild(buckets, slackFor(buckets));
        } else {
            // A run reached the end of the table: more room after the last bucket.
            rebuild(b->buckets, 2 * (b->slotCount - b->buckets) + 4);
        }
    }

    static Block* allocateBlock(std::uint32_t buckets, std::uint32_t count, std::uint32_t size) {
        void* raw = ::operator new (slotsOffset + sizeof(Slot) * count, std::align_val_t{blockAlign});
        Block* b = ::new (raw) Block{buckets, count, size, 0};
        Slot* s = slotsOf(b);
        for (std::uint32_t i = 0; i < count; ++i) {
            s[i].used = false;
        }
        return b;
    }
    static void freeBlock(Block* b) noexcept { ::operator delete (b, std::align_val_t{blockAlign}); }

    /// Re-lays every member into a heap table of `buckets` buckets; the slot
    /// count is what the members need plus `slack`.
    void rebuild(std::uint32_t buckets, std::uint32_t slack) {
        const bool fromHeap = isHeap();
        const std::uint32_t count = size();
        // The members' hashes, in (hash, key) order.
        std::uint32_t inlineHashes[hasInline ? InlineN : 1] = {};
        const std::uint32_t from = fromHeap ? block()->slotCount : count;
        if constexpr (hasInline) {
            if (!fromHeap) {
                for (std::uint32_t i = 0; i < count; ++i) {
                    inlineHashes[i] = hashOf(KeyFunktor()(*inlineAt(i)));
                }
            }
        }
        const auto hashAt = [&](std::uint32_t i) { return fromHeap ? slots()[i].hash : inlineHashes[i]; };
        const auto usedAt = [&](std::uint32_t i) { return !fromHeap || slots()[i].used; };
        std::uint32_t need = 0;
        for (std::uint32_t i = 0; i < from; ++i) {
            if (usedAt(i)) {
                const std::uint32_t home = homeIn(hashAt(i), buckets);
                need = (home > need ? home : need) + 1;
            }
        }
        Block* fresh = allocateBlock(buckets, (need > buckets ? need : buckets) + slack, count);
        Slot* to = slotsOf(fresh);
        std::uint32_t next = 0;
        for (std::uint32_t i = 0; i < from; ++i) {
            if (!usedAt(i)) {
                continue;
            }
            const std::uint32_t h = hashAt(i);
            const std::uint32_t home = homeIn(h, buckets);
            const std::uint32_t at = home > next ? home : next;
            Member* m = &memberAt(i);
            to[at].hash = h;
            ::new (static_cast<void*>(to[at].raw)) Member(std::move(*m));
            to[at].used = true;
            m->~Member();
            next = at + 1;
        }
        if (fromHeap) {
            freeBlock(block());
        }
        blockIs(fresh);
        touch();
    }

    // ---- storage -------------------------------------------------------
    /// Destroys every member and gives back the heap table: empty and
    /// inline, the version kept.
    /// Destroys a heap table's members, leaving it empty. The walk ends at
    /// the last member: an emptied table costs nothing.
    template <class Last = decltype(noLast)>
    static void destroyMembers(Block* b, const Last& last = noLast) noexcept {
        Slot* s = slotsOf(b);
        for (std::uint32_t i = 0, left = b->size; left != 0; ++i) {
            if (s[i].used) {
                last(s[i].m());
                s[i].m().~Member();
                s[i].used = false;
                --left;
            }
        }
        b->size = 0;
    }

    template <class Last = decltype(noLast)>
    void destroyAll(const Last& last = noLast) noexcept {
        if (isHeap()) {
            Block* b = block();
            if constexpr (!std::is_trivially_destructible_v<Member>) {
                destroyMembers(b, last);
            }
            freeBlock(b);
        } else if constexpr (hasInline) {
            const std::uint32_t n = inlineCount();
            for (std::uint32_t i = 0; i < n; ++i) {
                last(*inlineAt(i));
                inlineAt(i)->~Member();
            }
        }
        state_ &= versionMask;
    }

    /// Copies `o` slot for slot (same seed and salt, so the same layout) into
    /// this empty, inline collection.
    void copyFrom(const HashMap2018& o) {
        if (!o.isHeap()) {
            if constexpr (hasInline) {
                const std::uint32_t n = o.inlineCount();
                std::uint32_t i = 0;
                try {
                    for (; i < n; ++i) {
                        ::new (inlineRaw(i)) Member(*o.inlineAt(i));
                    }
                } catch (...) {
                    inlineCountIs(i);
                    destroyAll();
                    throw;
                }
                inlineCountIs(n);
            }
            return;
        }
        const Block* ob = o.block();
        const Slot* os = o.slots();
        blockIs(allocateBlock(ob->buckets, ob->slotCount, 0));
        Block* b = block();
        Slot* s = slots();
        try {
            for (std::uint32_t i = 0; i < ob->slotCount; ++i) {
                if (os[i].used) {
                    s[i].hash = os[i].hash;
                    ::new (static_cast<void*>(s[i].raw)) Member(os[i].m());
                    s[i].used = true;
                    ++b->size;
                }
            }
        } catch (...) {
            destroyAll();
            throw;
        }
    }

    /// Takes over `o`'s members into this empty, inline collection; `o` is
    /// left empty.
    void moveFrom(HashMap2018&& o) noexcept {
        if (o.isHeap()) {
            blockIs(o.block());
        } else if constexpr (hasInline) {
            const std::uint32_t n = o.inlineCount();
            for (std::uint32_t i = 0; i < n; ++i) {
                ::new (inlineRaw(i)) Member(std::move(*o.inlineAt(i)));
                o.inlineAt(i)->~Member();
            }
            inlineCountIs(n);
        }
        o.state_ &= versionMask;
        o.touch();
    }

    // The inline members, or the address of the heap table (copied in and
    // out, so it needs no alignment of its own).
    alignas(hasInline ? alignof(Member) : 1) unsigned char storage_[storageBytes];
    std::uint32_t state_ = 0;
};

/// An internal-key map of entity pointers that reads like an external-key
/// one: each member is seen as an Entry {key, value}, the key being the one
/// the entity carries (read through KeyFunktor), so no key is stored twice.
/// Dereferencing an iterator yields the Entry by value; `it->key` and
/// `it->value` work as with HashMapEntry members.
template <class Member, class Key, class KeyFunktor, std::uint32_t Salt>
class EntityMap {
    using Table = HashMap2018<Member, Key, KeyFunktor, Salt>;

public:
    struct Entry {
        const Key& key;
        const Member& value;
    };
    using member_type = Member;
    using key_type = Key;
    using mapped_type = Member;
    static constexpr std::uint32_t salt = Salt;

    static std::uint32_t seed() noexcept { return Table::seed(); }
    static std::uint32_t hashOf(const Key& k) noexcept { return Table::hashOf(k); }
    static const Key& keyOf(const Member& m) noexcept { return KeyFunktor()(m); }

    /// The table's iterator, with the same removal tolerance and checks.
    class iterator {
    public:
        using iterator_category = std::input_iterator_tag;
        using iterator_concept = std::forward_iterator_tag;
        using value_type = Entry;
        using difference_type = std::ptrdiff_t;
        using reference = Entry;
        struct pointer {
            Entry entry;
            const Entry* operator->() const noexcept { return &entry; }
        };

        iterator() noexcept = default;
        Entry operator*() const noexcept {
            const Member& m = *it_;
            return Entry{KeyFunktor()(m), m};
        }
        pointer operator->() const noexcept { return pointer{**this}; }
        iterator& operator++() noexcept {
            ++it_;
            return *this;
        }
        iterator operator++(int) noexcept {
            iterator old = *this;
            ++it_;
            return old;
        }
        friend bool operator==(const iterator& a, const iterator& b) noexcept { return a.it_ == b.it_; }

    private:
        friend class EntityMap;
        explicit iterator(typename Table::iterator it) noexcept : it_(it) {}
        typename Table::iterator it_;
    };
    using const_iterator = iterator;

    std::uint32_t size() const noexcept { return table_.size(); }
    bool empty() const noexcept { return table_.empty(); }
    std::uint32_t version() const noexcept { return table_.version(); }
    iterator begin() const noexcept { return iterator(table_.begin()); }
    iterator end() const noexcept { return iterator(table_.end()); }

    /// The member with that key, or nothing.
    std::optional<Entry> find(const Key& k) const noexcept {
        const Member* m = table_.find(k);
        if (m == nullptr) {
            return std::nullopt;
        }
        return Entry{KeyFunktor()(*m), *m};
    }
    /// The same with the key's hash, hashOf(k), computed by the caller.
    std::optional<Entry> find(const Key& k, std::uint32_t h) const noexcept {
        const Member* m = table_.find(k, h);
        if (m == nullptr) {
            return std::nullopt;
        }
        return Entry{KeyFunktor()(*m), *m};
    }
    bool contains(const Key& k) const noexcept { return table_.contains(k); }
    iterator findIter(const Key& k) const noexcept { return iterator(table_.findIter(k)); }
    /// The same with the key's hash, hashOf(k), computed by the caller.
    iterator findIter(const Key& k, std::uint32_t h) const noexcept {
        return iterator(table_.findIter(k, h));
    }

    /// Inserts `m` under its own key unless that key is present; true when inserted.
    bool insert(Member m) { return table_.insert(std::move(m)).second; }
    /// The member of key `k` (hashing to `h`), or else a new one made by
    /// `make()`, which must carry `k`; see HashMap2018::findOrInsert.
    template <class Make>
    std::pair<const Member*, bool> findOrInsert(const Key& k, std::uint32_t h, Make&& make) {
        return table_.findOrInsert(k, h, std::forward<Make>(make));
    }
    /// Replaces the member at `pos` by `m`, which must carry the same key.
    Member replace(iterator pos, Member m) { return table_.replace(pos.it_, std::move(m)); }
    bool erase(const Key& k, Member* removed = nullptr) { return table_.erase(k, removed); }
    void erase(iterator pos, Member* removed = nullptr) { table_.erase(pos.it_, removed); }
    void clear() noexcept { table_.clear(); }
    void reserve(std::uint32_t n) { table_.reserve(n); }

private:
    Table table_;
};

/// Equal sets of one type iterate in the same order (the order depends on the
/// contents, seed and salt only), so one walk in step, without hashing, tells
/// whether two are equal.
template <class Set>
bool sameMembers(const Set& a, const Set& b) noexcept {
    if (a.size() != b.size()) {
        return false;
    }
    for (auto i = a.uncheckedBegin(), j = b.uncheckedBegin(); i != a.uncheckedEnd(); ++i, ++j) {
        if (!(*i == *j)) {
            return false;
        }
    }
    return true;
}

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
