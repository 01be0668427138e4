// The base of observed entities: a use count, a change publisher, the
// reflected type, and the compare-then-write step that every setter shares.
//
//     class Node final : public Kest::ObservedEntity<Node>, ... {
//         void flagsIs(NodeFlags f) { writeAttr(Attr::flags, flags_, f); }
//     };
//
// writeAttr stores and publishes only a real change, with the old value; the
// comparison is `!=`, so a NaN is always a change. Scratch entities, which
// nobody observes, derive from Poldo::RefCounted alone.
#pragma once

#include <utility>

#include "IgpCommon/framework/Assert.h"
#include "IgpCommon/framework/HashMap2018.h"
#include "IgpCommon/framework/Ptr.h"
#include "IgpCommon/framework/Publisher.h"
#include "IgpCommon/framework/TypeData.h"

namespace Kest {

namespace detail {
/// Holds an entity's publisher ahead of its use count, so that the base ends
/// in four bytes of padding where the entity's first 4-byte field fits.
class PublisherHolder {
protected:
    mutable Poldo::Publisher publisher_;
};
}  // namespace detail

template <class Derived>
class ObservedEntity : private detail::PublisherHolder, public Poldo::RefCounted {
public:
    /// Observers register here; see Poldo::Publisher.
    Poldo::Publisher& publisher() const noexcept { return publisher_; }
    const TypeData& fwkType() const noexcept { return Derived::typeData(); }

protected:
    ObservedEntity() noexcept = default;
    ~ObservedEntity() = default;

    /// Compare, store, publish: true when the value changed.
    template <class V, class N>
    bool writeAttr(AttrId id, V& field, N&& value) {
        if (!(field != value)) {
            return false;
        }
        V old = std::exchange(field, std::forward<N>(value));
        publisher_.publish(self(), id, old);
        return true;
    }
    /// Publishes a change of a collection member: its key or index and the
    /// old member (null for an insertion).
    template <class K, class V>
    void publishMember(AttrId id, const K& key, const V* old) const {
        publisher_.publish<Derived, K, V>(self(), id, &key, old);
    }
    const Derived& self() const noexcept { return static_cast<const Derived&>(*this); }

    // ---- set-like collections (the member is its own key) ----

    /// Adds `k`; publishes the insertion (no old value) when it was absent.
    template <class Set, class K>
    bool memberInsert(AttrId id, Set& set, const K& k) {
        if (!set.insert(k).second) {
            return false;
        }
        publishMember<K, K>(id, k, nullptr);
        return true;
    }
    /// Removes `k`; publishes it as the old value when it was present.
    template <class Set, class K>
    bool memberErase(AttrId id, Set& set, const K& k) {
        if (!set.erase(k)) {
            return false;
        }
        publishMember(id, k, &k);
        return true;
    }
    /// Empties the set: in one sweep while nobody ever observed this entity,
    /// else member by member, one notification each.
    template <class Set>
    void membersClear(AttrId id, Set& set) {
        if (publisher_.initialState()) {
            set.clear();
            return;
        }
        for (auto it = set.begin(); it != set.end(); ++it) {
            const typename Set::key_type k = *it;
            memberErase(id, set, k);
        }
    }
    /// Makes `mine` hold exactly the members of `theirs`: first every member of
    /// theirs is added, then every member of mine that theirs lacks is removed.
    template <class Set>
    void membersSync(AttrId id, Set& mine, const Set& theirs) {
        // In a merge of an unchanged LSP the sets are always the same.
        if (sameMembers(mine, theirs)) {
            return;
        }
        for (auto it = theirs.begin(); it != theirs.end(); ++it) {
            memberInsert(id, mine, *it);
        }
        for (auto it = mine.begin(); it != mine.end(); ++it) {
            if (!theirs.contains(*it)) {
                const typename Set::key_type k = *it;
                memberErase(id, mine, k);
            }
        }
    }

    // ---- maps of entities keyed by their own key (Kest::EntityMap) ----

    /// Puts, replaces or (with a null value) removes the member of `key`,
    /// publishing the key and the previous member; storing the member already
    /// there does nothing. A non-null value must carry `key` as its own key
    /// (else the process stops with "key == Map::keyOf(value)"). A replaced
    /// member is dropped after publication.
    template <class Map, class V>
    void entryPut(AttrId id, Map& map, const typename Map::key_type& key, const V& value) {
        // One hash of the key serves the look-up, the insertion on a miss and
        // a replacement.
        const std::uint32_t h = Map::hashOf(key);
        if (!value) {
            const auto it = map.findIter(key, h);
            if (it != map.end()) {
                V removed;
                map.erase(it, &removed);
                publishMember(id, Map::keyOf(removed), &removed);
            }
            return;
        }
        KEST_ASSERT_MSG(key == Map::keyOf(value), "key == Map::keyOf(value)");
        const auto [member, inserted] = map.findOrInsert(key, h, [&value] { return value; });
        if (inserted) {
            publishMember<typename Map::key_type, V>(id, key, nullptr);
            return;
        }
        if (*member == value) {
            return;
        }
        const V old = map.replace(map.findIter(key, h), value);
        publishMember(id, key, &old);
    }
    /// Removes the member of `key` and hands it back (null when absent).
    template <class Map>
    typename Map::member_type entryTake(AttrId id, Map& map, const typename Map::key_type& key) {
        typename Map::member_type removed;
        if (map.erase(key, &removed)) {
            publishMember(id, Map::keyOf(removed), &removed);
        }
        return removed;
    }
    /// Removes every member: in one sweep while nobody ever observed this
    /// entity, else one published removal each, dropping each member at once.
    template <class Map>
    void entriesClear(AttrId id, Map& map) {
        if (publisher_.initialState()) {
            map.clear();
            return;
        }
        for (auto it = map.begin(); it != map.end(); ++it) {
            entryTake(id, map, it->key);
        }
    }
};

}  // namespace Kest
