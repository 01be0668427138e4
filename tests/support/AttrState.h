// An entity's described attributes in comparable form: a scalar as its value, members as an ordered
// map (a set's members map to themselves). Nothing names an attribute: a described one is covered.
#pragma once

#include <algorithm>
#include <cstddef>
#include <map>
#include <sstream>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <variant>

#include "IgpCommon/framework/AttrDesc.h"
#include "IgpCommon/framework/Publisher.h"
#include "IgpCommon/framework/Text.h"

namespace IgpTest {

template <class D>
struct StateOfDesc {
    using type = std::monostate;
};
template <Kest::ScalarDesc D>
struct StateOfDesc<D> {
    using type = typename D::Value;
};
template <Kest::MembersDesc D>
struct StateOfDesc<D> {
    using type = std::map<Kest::MemberKey<D>, Kest::MemberValue<D>>;
};

template <class... D>
std::tuple<typename StateOfDesc<D>::type...> stateTupleOf(const std::tuple<D...>&);

template <class E>
using AttrState = decltype(stateTupleOf(Kest::attrDescs<E>()));

namespace detail {
template <class E, class F>
void forEachSlot(F&& f) {
    constexpr auto descs = Kest::attrDescs<E>();
    [&]<std::size_t... I>(std::index_sequence<I...>) {
        (f(std::get<I>(descs), std::integral_constant<std::size_t, I>{}), ...);
    }
    (std::make_index_sequence<std::tuple_size_v<decltype(descs)>>{});
}

template <class D, class E, class S>
void readInto(const D& d, const E& e, S& slot) {
    if constexpr (Kest::ScalarDesc<D>) {
        slot = d.get(e);
    } else if constexpr (Kest::MembersDesc<D>) {
        slot.clear();
        Kest::forEachMember(d, e, [&](const auto& k, const auto& v) { slot[k] = v; });
    }
}
}  // namespace detail

/// Every attribute of `e`, read through its description.
template <class E>
AttrState<E> snapAttrs(const E& e) {
    AttrState<E> s;
    detail::forEachSlot<E>([&](const auto& d, auto i) { detail::readInto(d, e, std::get<i()>(s)); });
    return s;
}

/// Re-reads what one notification says changed: the whole scalar, or the one member of the key it
/// carries. False when the notification names no attribute that publishes, or lacks its key.
template <class E>
bool rereadAttr(AttrState<E>& s, const E& e, const Poldo::Notification& n) {
    bool placed = false;
    detail::forEachSlot<E>([&](const auto& d, auto i) {
        using D = std::remove_cvref_t<decltype(d)>;
        if (d.id != n.attr()) {
            return;
        }
        auto& slot = std::get<i()>(s);
        if constexpr (Kest::ScalarDesc<D>) {
            if constexpr (!D::isKey) {
                slot = d.get(e);
                placed = true;
            }
        } else if constexpr (Kest::MembersDesc<D>) {
            if (const auto* k = n.key<Kest::MemberKey<D>>()) {
                if (const auto v = Kest::findMember(d, e, *k)) {
                    slot[*k] = *v;
                } else {
                    slot.erase(*k);
                }
                placed = true;
            }
        }
    });
    return placed;
}

/// Writes a state into `e` through the setters: every scalar, and every member added (a fixed
/// array's indexes all written).
template <class E>
void applyState(E& e, const AttrState<E>& s) {
    detail::forEachSlot<E>([&](const auto& d, auto i) {
        using D = std::remove_cvref_t<decltype(d)>;
        const auto& slot = std::get<i()>(s);
        if constexpr (Kest::ScalarDesc<D>) {
            if constexpr (!D::isKey) {
                d.set(e, slot);
            }
        } else if constexpr (Kest::MembersDesc<D>) {
            for (const auto& [k, v] : slot) {
                Kest::putMember(d, e, k, v);
            }
        }
    });
}

/// A state drawn attribute by attribute: `pick(std::type_identity<V>{})` gives a scalar of type V,
/// `pick(std::type_identity<std::map<K, V>>{})` the members of a collection.
template <class E, class Pick>
AttrState<E> drawState(Pick&& pick) {
    AttrState<E> s;
    detail::forEachSlot<E>([&](const auto& d, auto i) {
        using D = std::remove_cvref_t<decltype(d)>;
        auto& slot = std::get<i()>(s);
        using S = std::remove_cvref_t<decltype(slot)>;
        if constexpr (Kest::ScalarDesc<D>) {
            if constexpr (!D::isKey) {
                slot = pick(std::type_identity<S>{});
            }
        } else if constexpr (Kest::MembersDesc<D>) {
            slot = pick(std::type_identity<S>{});
        }
    });
    return s;
}

/// Equal states: values by Kest::sameValue, but a float zero equals the other zero (setters compare
/// with `!=`, so writing it is no change).
template <class... T>
bool sameState(const std::tuple<T...>& a, const std::tuple<T...>& b) {
    const auto value = []<class V>(const V& x, const V& y) {
        if constexpr (std::is_same_v<V, float>) {
            return x == y || Kest::sameValue(x, y);
        } else {
            return Kest::sameValue(x, y);
        }
    };
    const auto one = [&]<class V>(const V& x, const V& y) {
        if constexpr (requires { x.begin()->second; }) {
            return x.size() == y.size() &&
                   std::equal(x.begin(), x.end(), y.begin(), [&](const auto& p, const auto& q) {
                       return p.first == q.first && value(p.second, q.second);
                   });
        } else if constexpr (std::is_same_v<V, std::monostate>) {
            return true;
        } else {
            return value(x, y);
        }
    };
    return [&]<std::size_t... I>(std::index_sequence<I...>) {
        return (one(std::get<I>(a), std::get<I>(b)) && ...);
    }
    (std::index_sequence_for<T...>{});
}

/// "name=value" for each attribute that holds one, to describe a failure.
template <class E>
std::string stateText(const AttrState<E>& s) {
    std::ostringstream os;
    detail::forEachSlot<E>([&](const auto& d, auto i) {
        const auto& slot = std::get<i()>(s);
        using S = std::remove_cvref_t<decltype(slot)>;
        if constexpr (!std::is_same_v<S, std::monostate>) {
            os << d.name << '=';
            if constexpr (requires { slot.begin()->second; }) {
                for (const auto& [k, v] : slot) {
                    os << Kest::strep(k) << ':' << Kest::strep(v) << ',';
                }
            } else if constexpr (requires { slot->toStrep(); }) {
                os << (slot ? slot->toStrep() : "null");
            } else if constexpr (requires { slot.get(); }) {
                os << (slot ? "(a collection)" : "null");
            } else {
                os << Kest::strep(slot);
            }
            os << ' ';
        }
    });
    return os.str();
}

}  // namespace IgpTest
