// Typed descriptions of an entity's attributes, written once per entity and
// read by everything that walks attributes generically: the reflected type
// record, deep equality, the union of an object's fragments, and outside the
// library the change texts and JSON of the tools.
//
//     static constexpr auto kestAttrDescs() {
//         return std::tuple{Kest::keyAttr("key", Attr::key, &X::key),
//                           Kest::scalarAttr("metric", Attr::metric, &X::metric, &X::metricIs),
//                           Kest::setAttr("tags", Attr::tags, &X::tags, &X::tagsIs),
//                           Kest::operationAttr("updateAttr", Attr::updateAttr)};
//     }
//
// The description must name every identifier of the entity's Attr
// enumeration, in declaration order, up to its `kestEnd` marker: the
// reflected record is built from it and refuses to compile otherwise.
//
// Every description has a name, an identifier and a kind. Scalars read and
// write one value; members (a fixed array, a keyed map, a set) are walked as
// (key, value) pairs, a set's member being its own key and value. Values
// compare with `sameValue`: floats by their bits, so that a NaN equals the NaN
// it was copied from.
#pragma once

#include <array>
#include <bit>
#include <concepts>
#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

#include "IgpCommon/framework/TypeData.h"

namespace Kest {

/// How the fragments of one object combine into one: taken from the first
/// fragment that carries it, the least of them, the flags of all, the members
/// of all (each member's value from the first that has it), or not at all
/// (the key, operations), or by a rule of the attribute's own.
enum class Unite : std::uint8_t { never, firstCarrier, least, flagsOfAll, membersOfAll, ownRule };

/// Deep equality of two attribute values; pointers compare what they point to.
template <class V>
constexpr bool sameValue(const V& a, const V& b) {
    if constexpr (requires {
                      a.get();
                      *a;
                  }) {
        return a == b || (a && b && sameValue(*a, *b));
    } else if constexpr (std::is_same_v<V, float>) {
        return std::bit_cast<std::uint32_t>(a) == std::bit_cast<std::uint32_t>(b);
    } else if constexpr (std::is_same_v<V, double>) {
        return std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b);
    } else if constexpr (requires { kestSameContent(a, b); }) {
        // Objects without an equality operator name their comparison, found by argument lookup.
        return kestSameContent(a, b);
    } else {
        return a == b;
    }
}

/// An attribute every object carries.
struct AlwaysCarried {
    template <class E>
    constexpr bool operator()(const E&) const noexcept {
        return true;
    }
};

/// The names of an attribute in the tools' JSON when they differ from its own.
struct JsonNames {
    std::string_view attr;            ///< empty: the attribute's name
    std::string_view key = "index";   ///< a map member's key
    std::string_view value = "word";  ///< a map member's value
    bool omitted = false;             ///< not written at all
    bool nullUnlessCarried = false;   ///< null where the object does not carry it
};

/// JSON names for an attribute the tools leave out of their documents.
constexpr JsonNames omittedFromJson() noexcept {
    JsonNames j;
    j.omitted = true;
    return j;
}

/// JSON names for an attribute written as null where the object does not carry it.
constexpr JsonNames nullUnlessCarried(std::string_view attr = {}) noexcept {
    JsonNames j{attr};
    j.nullUnlessCarried = true;
    return j;
}

template <class Get, class E>
using ReadType = std::remove_cvref_t<std::invoke_result_t<const Get&, const E&>>;

// ---- the kinds of description ---------------------------------------------

/// One value, read by `get` and written by `set` (no setter for the key); a
/// pointer is one value too, compared by what it points to. `merge(into,
/// from)` unites fragments where the attribute has a rule of its own.
template <class E, class Get, class Set, class Carried, AttrKind Kind = AttrKind::scalar,
          class Merge = std::nullptr_t>
struct ScalarAttr {
    using Entity = E;
    using Value = ReadType<Get, E>;
    using MergeRule = Merge;
    static constexpr AttrKind kind = Kind;
    static constexpr bool isKey = std::is_same_v<Set, std::nullptr_t>;
    std::string_view name;
    AttrId id;
    Get getter;
    Set setter;
    Unite unite;
    Carried carried;
    JsonNames json;
    Merge merge{};

    Value get(const E& e) const { return std::invoke(getter, e); }
    void set(E& e, const Value& v) const requires(!isKey) { std::invoke(setter, e, v); }
};

/// Members addressed by a key: a fixed array (every index holds a value), a
/// keyed map or a set (the member is its own key). The getter and setter may
/// reach through a pointer the entity always holds.
template <class E, AttrKind Kind, class Get, class Set, class Carried, class Holder = std::nullptr_t>
struct MembersAttr {
    using Entity = E;
    using Collection = ReadType<Get, E>;
    static constexpr AttrKind kind = Kind;
    std::string_view name;
    AttrId id;
    Get getter;
    Set setter;
    Unite unite;
    Carried carried;
    JsonNames json;
    Holder holder{};  ///< reads the pointer to the collection, when the entity reaches it through one

    const Collection& of(const E& e) const { return std::invoke(getter, e); }
};

/// An operation listed among the attributes (it never holds a value).
struct OperationAttr {
    static constexpr AttrKind kind = AttrKind::function;
    std::string_view name;
    AttrId id;
    JsonNames json{};
};

// ---- building descriptions ------------------------------------------------

template <class E, class V>
constexpr auto keyAttr(std::string_view name, AttrId id, V (E::*get)() const noexcept) {
    return ScalarAttr<E, decltype(get), std::nullptr_t, AlwaysCarried>{name,         id, get, nullptr,
                                                                       Unite::never, {}, {}};
}

template <class E, class V, class S, class Carried = AlwaysCarried>
constexpr auto scalarAttr(std::string_view name, AttrId id, V (E::*get)() const noexcept, void (E::*set)(S),
                          Unite unite = Unite::firstCarrier, Carried carried = {}, JsonNames json = {}) {
    return ScalarAttr<E, decltype(get), decltype(set), Carried>{name, id, get, set, unite, carried, json};
}

/// A pointer to an object of its own: fragments unite by sharing the first
/// one that is set, which nothing writes through.
template <class E, class V, class S>
constexpr auto pointerAttr(std::string_view name, AttrId id, V (E::*get)() const noexcept, void (E::*set)(S),
                           JsonNames json = {}) {
    const auto isSet = [get](const E& e) { return static_cast<bool>(std::invoke(get, e)); };
    return ScalarAttr<E, decltype(get), decltype(set), decltype(isSet), AttrKind::pointer>{
        name, id, get, set, Unite::firstCarrier, isSet, json};
}

/// A pointer whose fragments unite by `merge(into, from)`, called for every
/// fragment united into the object.
template <class E, class V, class S, class Merge>
constexpr auto pointerAttr(std::string_view name, AttrId id, V (E::*get)() const noexcept, void (E::*set)(S),
                           JsonNames json, Merge merge) {
    const auto isSet = [get](const E& e) { return static_cast<bool>(std::invoke(get, e)); };
    return ScalarAttr<E, decltype(get), decltype(set), decltype(isSet), AttrKind::pointer, Merge>{
        name, id, get, set, Unite::ownRule, isSet, json, merge};
}

template <AttrKind Kind, class E, class C, class Set, class Carried = AlwaysCarried>
constexpr auto membersAttr(std::string_view name, AttrId id, const C& (E::*get)() const noexcept, Set set,
                           Unite unite = Unite::membersOfAll, Carried carried = {}, JsonNames json = {}) {
    return MembersAttr<E, Kind, decltype(get), Set, Carried>{name, id, get, set, unite, carried, json};
}

/// Members of a collection the entity reaches through the pointer `holder`
/// reads (the attribute's own value, replaced whole); `get` (any callable)
/// reads the collection and `set` adds one member.
template <AttrKind Kind, class E, class P, class Get, class Set>
constexpr auto membersAttrOf(std::string_view name, AttrId id, const P& (E::*holder)() const noexcept,
                             Get get, Set set, JsonNames json = {}) {
    return MembersAttr<E, Kind, Get, Set, AlwaysCarried, decltype(holder)>{
        name, id, get, set, Unite::membersOfAll, {}, json, holder};
}

constexpr OperationAttr operationAttr(std::string_view name, AttrId id) noexcept {
    return {name, id, {}};
}

// ---- members, whatever their collection -----------------------------------

namespace detail {
template <class C>
concept FixedArray = requires(const C& c, std::size_t i) {
    c.slot(i);
    C::size();
};
template <class C>
concept KeyedMap = requires(const C& c) {
    c.begin()->value;
};
template <class C>
concept PairMap = requires(const C& c) {
    c.begin()->second;
};
template <class V>
concept FlagSet = requires(const V& v) {
    { v.value() } -> std::same_as<std::uint8_t>;
    V(std::uint8_t{});
};
}  // namespace detail

template <class D>
concept MembersDesc = requires {
    typename D::Collection;
};
template <class D>
concept ScalarDesc = requires {
    typename D::Value;
};

/// Key and value types of a members description.
template <class C>
struct MemberTypes;
template <detail::FixedArray C>
struct MemberTypes<C> {
    using Key = typename C::index_type;
    using Value = std::remove_cvref_t<decltype(std::declval<const C&>().slot(0))>;
};
template <class C>
requires(!detail::FixedArray<C> && detail::KeyedMap<C>) struct MemberTypes<C> {
    using Key = typename C::key_type;
    using Value = std::remove_cvref_t<decltype(std::declval<const C&>().begin()->value)>;
};
template <class C>
requires(!detail::FixedArray<C> && detail::PairMap<C>) struct MemberTypes<C> {
    using Key = typename C::key_type;
    using Value = std::remove_cvref_t<decltype(std::declval<const C&>().begin()->second)>;
};
template <class C>
requires(!detail::FixedArray<C> && !detail::KeyedMap<C> && !detail::PairMap<C>) struct MemberTypes<C> {
    using Key = typename C::key_type;
    using Value = Key;
};

template <MembersDesc D>
using MemberKey = typename MemberTypes<typename D::Collection>::Key;
template <MembersDesc D>
using MemberValue = typename MemberTypes<typename D::Collection>::Value;

/// Calls `f(key, value)` for every member (every index of an array).
template <MembersDesc D, class E, class F>
void forEachMember(const D& d, const E& e, F&& f) {
    using C = typename D::Collection;
    const C& c = d.of(e);
    if constexpr (detail::FixedArray<C>) {
        for (std::size_t i = 0; i < C::size(); ++i) {
            f(MemberKey<D>(static_cast<std::uint8_t>(i)), c.slot(i));
        }
    } else if constexpr (detail::KeyedMap<C>) {
        for (auto it = c.begin(); it != c.end(); ++it) {
            f(it->key, it->value);
        }
    } else if constexpr (detail::PairMap<C>) {
        for (auto it = c.begin(); it != c.end(); ++it) {
            f(it->first, it->second);
        }
    } else {
        for (auto it = c.begin(); it != c.end(); ++it) {
            f(*it, *it);
        }
    }
}

/// The member of `key`, or nothing.
template <MembersDesc D, class E>
std::optional<MemberValue<D>> findMember(const D& d, const E& e, const MemberKey<D>& key) {
    using C = typename D::Collection;
    const C& c = d.of(e);
    if constexpr (detail::FixedArray<C>) {
        return c[key];
    } else if constexpr (detail::KeyedMap<C>) {
        const auto* m = c.find(key);
        return m ? std::optional<MemberValue<D>>(m->value) : std::nullopt;
    } else if constexpr (detail::PairMap<C>) {
        const auto* v = c.find(key);
        return v ? std::optional<MemberValue<D>>(*v) : std::nullopt;
    } else {
        return c.contains(key) ? std::optional<MemberValue<D>>(key) : std::nullopt;
    }
}

/// Stores one member through the entity's setter.
template <MembersDesc D, class E>
void putMember(const D& d, E& e, const MemberKey<D>& key, const MemberValue<D>& value) {
    using C = typename D::Collection;
    if constexpr (!detail::FixedArray<C> && !detail::KeyedMap<C> && !detail::PairMap<C>) {
        (void)key;
        std::invoke(d.setter, e, value);
    } else {
        std::invoke(d.setter, e, key, value);
    }
}

/// The number of members (every index of an array counts).
template <MembersDesc D, class E>
std::size_t memberCount(const D& d, const E& e) {
    using C = typename D::Collection;
    if constexpr (detail::FixedArray<C>) {
        return C::size();
    } else {
        return d.of(e).size();
    }
}

// ---- walking an entity's descriptions -------------------------------------

template <class E>
constexpr auto attrDescs() {
    return E::kestAttrDescs();
}

/// Calls `f(desc)` for every description, in declaration order.
template <class E, class F>
constexpr void forEachAttr(F&& f) {
    std::apply([&](const auto&... d) { (f(d), ...); }, attrDescs<E>());
}

/// Calls `f(desc)` for the description of `id`; false when there is none.
template <class E, class F>
bool visitAttr(AttrId id, F&& f) {
    bool found = false;
    forEachAttr<E>([&](const auto& d) {
        if (d.id == id) {
            found = true;
            f(d);
        }
    });
    return found;
}

/// The reflected attribute records, checked against the Attr enumeration:
/// one description per identifier from the first up to `kestEnd`, in order.
template <class E>
constexpr auto attrDataOf() {
    constexpr auto descs = attrDescs<E>();
    constexpr std::size_t n = std::tuple_size_v<decltype(descs)>;
    static_assert(n == static_cast<std::size_t>(E::Attr::kestEnd - firstEntityAttrId),
                  "the description must name every attribute identifier");
    return [&]<std::size_t... I>(std::index_sequence<I...>) {
        static_assert(((std::get<I>(descs).id == firstEntityAttrId + I) && ...),
                      "the description must follow the identifiers' order");
        const auto one = [](const auto& d) {
            std::uint32_t salt = 0;
            if constexpr (MembersDesc<std::remove_cvref_t<decltype(d)>>) {
                using C = typename std::remove_cvref_t<decltype(d)>::Collection;
                if constexpr (requires { C::salt; }) {
                    salt = C::salt;
                }
            }
            return AttrData{d.name, d.id, d.kind, salt};
        };
        return std::array<AttrData, n>{one(std::get<I>(descs))...};
    }
    (std::make_index_sequence<n>{});
}

/// The name of the first attribute in which two objects differ, their keys
/// included; empty when they are deeply equal.
template <class E>
std::string_view firstDifference(const E& a, const E& b) {
    std::string_view differs;
    forEachAttr<E>([&](const auto& d) {
        using D = std::remove_cvref_t<decltype(d)>;
        bool same = true;
        if constexpr (ScalarDesc<D>) {
            same = sameValue(d.get(a), d.get(b));
        } else if constexpr (MembersDesc<D>) {
            same = memberCount(d, a) == memberCount(d, b);
            forEachMember(d, a, [&](const auto& k, const auto& v) {
                const auto theirs = findMember(d, b, k);
                same = same && theirs && sameValue(v, *theirs);
            });
        }
        if (!same && differs.empty()) {
            differs = d.name;
        }
    });
    return differs;
}

/// Whether two objects hold equal values in every attribute, their keys included.
template <class E>
bool sameAttrs(const E& a, const E& b) {
    return firstDifference(a, b).empty();
}

/// Whether `e` carries an attribute that uniteAttrs() would take from it into
/// an object that lacks it (flags, united apart, are not counted).
template <class E>
bool carriesUnited(const E& e) {
    bool any = false;
    forEachAttr<E>([&](const auto& d) {
        if constexpr (requires { d.carried(e); }) {
            any = any || (d.unite != Unite::never && d.carried(e));
        }
    });
    return any;
}

/// Adds what `from` (a later fragment of the same object) says to `into`,
/// each attribute by its own rule. Whether `into` already carries an
/// attribute is read before anything is written, as flags are united too.
template <class E>
void uniteAttrs(E& into, const E& from) {
    constexpr std::size_t n = std::tuple_size_v<decltype(attrDescs<E>())>;
    std::array<bool, n> had{};
    std::size_t i = 0;
    forEachAttr<E>([&](const auto& d) {
        if constexpr (requires { d.carried(into); }) {
            had[i] = d.carried(into);
        }
        ++i;
    });
    i = 0;
    forEachAttr<E>([&](const auto& d) {
        using D = std::remove_cvref_t<decltype(d)>;
        const bool hadIt = had[i++];
        if constexpr (ScalarDesc<D>) {
            if constexpr (!D::isKey) {
                using V = typename D::Value;
                if (d.unite == Unite::firstCarrier && !hadIt && d.carried(from)) {
                    d.set(into, d.get(from));
                }
                if constexpr (std::totally_ordered<V>) {
                    if (d.unite == Unite::least && d.get(from) < d.get(into)) {
                        d.set(into, d.get(from));
                    }
                }
                if constexpr (detail::FlagSet<V>) {
                    if (d.unite == Unite::flagsOfAll) {
                        d.set(into, V(static_cast<std::uint8_t>(d.get(into).value() | d.get(from).value())));
                    }
                }
                if constexpr (!std::is_same_v<typename D::MergeRule, std::nullptr_t>) {
                    if (d.unite == Unite::ownRule) {
                        std::invoke(d.merge, into, from);
                    }
                }
            }
        } else if constexpr (MembersDesc<D>) {
            if (d.unite == Unite::membersOfAll) {
                // A member both carry keeps the value of the first.
                forEachMember(d, from, [&](const auto& k, const auto& v) {
                    if (std::is_same_v<MemberKey<D>, MemberValue<D>> || !findMember(d, into, k)) {
                        putMember(d, into, k, v);
                    }
                });
            } else if (d.unite == Unite::firstCarrier && !hadIt && d.carried(from)) {
                forEachMember(d, from, [&](const auto& k, const auto& v) { putMember(d, into, k, v); });
            }
        }
    });
}

}  // namespace Kest
