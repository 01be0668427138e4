// Change publication: how an observed entity tells its observers what changed.
//
// Every observed entity (database, LSP entry, node, neighbor, prefix, and the
// attribute objects under them) owns a Poldo::Publisher, reached through
// `publisher()`. Each real change of one of its attributes, and only a real
// change, is published once as a Poldo::Notification carrying:
//   - the entity and its reflected type (Kest::TypeData);
//   - the attribute identifier (130 and up, in declaration order) and name;
//   - the key or index of the member that changed, for collections;
//   - the old value: null for an insertion, else the value before the change.
// Everything is read type-safely and without allocation; the pointers it
// hands out are valid only during the callback.
//
// Writing an observer (for example the change feed of an incremental SPF):
//
//     class SpfFeed : public Poldo::Observer {
//       public:
//         void onChange(const Poldo::Notification& n) override {
//             if (n.attr() == IgpLsp::Attr::neighbor) {
//                 if (const NeighborKey* key = n.key<NeighborKey>()) {
//                     const bool added = !n.hasOldValue();
//                     schedule(*key, added);
//                 }
//             }
//         }
//     };
//     SpfFeed feed;
//     lsp->publisher().observerIs(feed);
//     ...                                  // merges publish into feed
//     lsp->publisher().observerDel(feed);  // before feed goes away
//
// The publisher does not own its observers: unregister an observer before it
// is destroyed. An observer may register or unregister observers, and may
// change entities, from inside a callback; an observer registered during a
// publication first hears the next one.
//
// A publisher is in its initial state until an observer registers for the first
// time; it leaves it for good then, even if every observer unregisters later.
// Some bulk deletions (`xDelAll()`) consult that state: in the initial state,
// where nobody could be listening, they remove everything in one sweep.
//
// Costs: a publisher is one pointer. Publishing to a publisher in its initial
// state is a single test; the notification is not even built.
#pragma once

#include <cstdint>
#include <string_view>
#include <type_traits>

#include "IgpCommon/framework/TypeData.h"

namespace Poldo {

using AttrId = Kest::AttrId;

/// Identifies a C++ type without RTTI: one tag object per type.
class TypeTag {
public:
    template <class T>
    static constexpr const TypeTag* of() noexcept {
        return &holder<std::remove_cv_t<T>>;
    }

private:
    constexpr TypeTag() noexcept = default;
    template <class T>
    static const TypeTag holder;
};
template <class T>
inline constexpr TypeTag TypeTag::holder{};

/// A type-erased, typed view of one value (a key, an old value, the entity).
class ValueRef {
public:
    constexpr ValueRef() noexcept = default;
    template <class T>
    static ValueRef of(const T* p) noexcept {
        ValueRef r;
        r.p_ = p;
        r.tag_ = TypeTag::of<T>();
        return r;
    }

    bool present() const noexcept { return p_ != nullptr; }
    /// The value when it is present and of type T, else null.
    template <class T>
    const T* as() const noexcept {
        return tag_ == TypeTag::of<T>() ? static_cast<const T*>(p_) : nullptr;
    }
    const void* raw() const noexcept { return p_; }

private:
    const void* p_ = nullptr;
    const TypeTag* tag_ = nullptr;
};

/// One published change.
class Notification {
public:
    using KeyEq = bool (*)(const void*, const void*) noexcept;

    Notification(ValueRef entity, const Kest::TypeData& type, AttrId attr, ValueRef key, KeyEq keyEq,
                 ValueRef oldValue) noexcept
        : entity_(entity), type_(&type), attr_(attr), key_(key), keyEq_(keyEq), oldValue_(oldValue) {}

    /// The entity that changed, when it is an E.
    template <class E>
    const E* entity() const noexcept {
        return entity_.as<E>();
    }
    const Kest::TypeData& entityType() const noexcept { return *type_; }

    AttrId attr() const noexcept { return attr_; }
    /// The attribute's declared name ("" for an identifier the type does not know).
    std::string_view attrName() const noexcept {
        const Kest::AttrData* a = type_->attr(attr_);
        return a ? a->name : std::string_view{};
    }

    bool hasKey() const noexcept { return key_.present(); }
    /// The key or index of the member that changed, when it is a K.
    template <class K>
    const K* key() const noexcept {
        return key_.as<K>();
    }
    /// Compares the notification's key with `other` by the key type's own
    /// equality; false when there is no key or it is of another type.
    template <class K>
    bool keyIsEq(const K& other) const noexcept {
        const K* k = key<K>();
        return k != nullptr && keyEq_ != nullptr && keyEq_(k, &other);
    }

    /// False for an insertion (there was no value before).
    bool hasOldValue() const noexcept { return oldValue_.present(); }
    /// The value before the change, when it is a V.
    template <class V>
    const V* oldValue() const noexcept {
        return oldValue_.as<V>();
    }

private:
    ValueRef entity_;
    const Kest::TypeData* type_;
    AttrId attr_;
    ValueRef key_;
    KeyEq keyEq_;
    ValueRef oldValue_;
};

class Observer {
public:
    virtual ~Observer() = default;
    virtual void onChange(const Notification& n) = 0;
};

/// Adapts any callable taking `const Notification&` to an Observer.
template <class F>
class FunctionObserver final : public Observer {
public:
    explicit FunctionObserver(F f) : f_(std::move(f)) {}
    void onChange(const Notification& n) override { f_(n); }

private:
    F f_;
};

class Publisher {
public:
    Publisher() noexcept = default;
    Publisher(const Publisher&) = delete;
    Publisher& operator=(const Publisher&) = delete;
    ~Publisher();

    /// Registers `o` (once; registering it again changes nothing).
    void observerIs(Observer& o);
    /// Unregisters `o`; unknown observers are ignored.
    void observerDel(Observer& o) noexcept;
    std::uint32_t observerCount() const noexcept;
    /// True until the first observer registers.
    bool initialState() const noexcept { return list_ == nullptr; }

    /// Publishes a change of `attr` of `entity`; `key` and `oldValue` may be
    /// null (no key; an insertion).
    template <class E, class K, class V>
    void publish(const E& entity, AttrId attr, const K* key, const V* oldValue) const {
        if (list_ == nullptr) {
            return;
        }
        Notification::KeyEq eq = nullptr;
        if constexpr (!std::is_void_v<K>) {
            eq = [](const void* a, const void* b) noexcept -> bool {
                return *static_cast<const K*>(a) == *static_cast<const K*>(b);
            };
        }
        dispatch(
            Notification(ValueRef::of(&entity), E::typeData(), attr, makeRef(key), eq, makeRef(oldValue)));
    }
    /// Publishes a change of a plain attribute.
    template <class E, class V>
    void publish(const E& entity, AttrId attr, const V& oldValue) const {
        publish<E, void, V>(entity, attr, nullptr, &oldValue);
    }

private:
    template <class T>
    static ValueRef makeRef(const T* p) noexcept {
        if constexpr (std::is_void_v<T>) {
            return ValueRef();
        } else {
            return p ? ValueRef::of(p) : ValueRef();
        }
    }
    void dispatch(const Notification& n) const;

    struct List;
    List* list_ = nullptr;
};

}  // namespace Poldo
