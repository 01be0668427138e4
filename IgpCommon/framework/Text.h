// Canonical text forms of values ("streps").
//
// Every value type has one canonical, one-line text form that this header
// writes and reads:
//   - an enumeration: its enumerator's name (igpLevelIsisLevel1);
//   - a value type with one attribute: that attribute's bare form (5);
//   - a value type with more: Value('<full type name>', ** {'<attr>': <form>, ...})
//     with every attribute in declaration order.
// Numbers are plain decimal, booleans True and False. Readers are strict: no
// white space is skipped, every fixed piece must stand verbatim, attributes
// must come in declaration order, and a value is handed out only when it was
// read whole. A value type opts in by declaring
//     static constexpr const char kestTypeName[] = "Routing::IgpCommon::X";
//     static constexpr auto kestAttrs() { return std::tuple{Kest::attr("a", &X::a_), ...}; }
// and then gets its writer, reader and Kest::strepToValue from here.
#pragma once

#include <charconv>
#include <concepts>
#include <cstdint>
#include <limits>
#include <ostream>
#include <span>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

#include "IgpCommon/framework/Exceptions.h"
#include "IgpCommon/framework/String.h"

namespace Kest {

/// A cursor over text: beginning, current read position, end.
class CharRange {
public:
    constexpr CharRange(const char* begin, const char* end) noexcept
        : begin_(begin), cur_(begin), end_(end) {}
    constexpr explicit CharRange(std::string_view text) noexcept
        : CharRange(text.data(), text.data() + text.size()) {}

    constexpr const char* begin() const noexcept { return begin_; }
    constexpr const char* current() const noexcept { return cur_; }
    constexpr const char* end() const noexcept { return end_; }
    constexpr std::size_t offset() const noexcept { return static_cast<std::size_t>(cur_ - begin_); }
    constexpr bool atEnd() const noexcept { return cur_ == end_; }
    constexpr std::string_view rest() const noexcept { return {cur_, static_cast<std::size_t>(end_ - cur_)}; }
    /// The next character, or '\0' at the end.
    constexpr char peek() const noexcept { return atEnd() ? '\0' : *cur_; }
    constexpr void advance(std::size_t n) noexcept { cur_ += n; }

    /// Consumes `piece` when the text at the current position starts with it.
    constexpr bool consume(std::string_view piece) noexcept {
        if (!rest().starts_with(piece)) {
            return false;
        }
        cur_ += piece.size();
        return true;
    }
    /// Consumes `piece` or fails with a parse error.
    void expect(std::string_view piece) {
        if (!consume(piece)) {
            fail("expected \"" + std::string(piece) + "\"");
        }
    }
    /// Throws a ParseException that says what was expected and where.
    [[noreturn]] void fail(const std::string& what) const;
    /// The check-all-consumed guard: fails when text is left over.
    void checkAllConsumed() const;

private:
    const char* begin_;
    const char* cur_;
    const char* end_;
};

// ---- pieces --------------------------------------------------------------

bool readBool(CharRange& r);
void writeBool(std::ostream& os, bool v);

/// Reads decimal digits (at least one) as an unsigned value of `bits` width;
/// a number that does not fit raises the range exception.
std::uint64_t readUnsignedBits(CharRange& r, unsigned bits);
std::int64_t readSignedBits(CharRange& r, unsigned bits);
void writeUnsigned(std::ostream& os, std::uint64_t v);
void writeSigned(std::ostream& os, std::int64_t v);

/// Reads a run of identifier characters [A-Za-z0-9_] (possibly empty).
std::string_view readIdentifier(CharRange& r) noexcept;

/// The value of a hexadecimal digit (either case), or -1.
constexpr int hexDigitValue(char c) noexcept {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}
/// Lowercase hexadecimal digits by value.
inline constexpr char lowerHexDigits[] = "0123456789abcdef";

// ---- enumerations ----------------------------------------------------------

struct EnumEntry {
    std::string_view name;
    std::uint32_t value;
};

/// The name and number table of an enumeration.
struct EnumTable {
    std::string_view typeName;
    std::span<const EnumEntry> entries;

    const EnumEntry* byValue(std::uint32_t v) const noexcept;
    const EnumEntry* byName(std::string_view n) const noexcept;

    /// The number of enumerator `name`; a name that is none raises a parse error.
    std::uint32_t valueOf(std::string_view name) const;
    /// `v` when it names an enumerator, else the range exception.
    std::uint32_t checkedValue(std::uint64_t v) const;
    /// The enumerator's name; a number that names none is written as its digits.
    Poldo::String nameOf(std::uint32_t v) const;
    /// Reads an enumerator name at the current position.
    std::uint32_t read(CharRange& r) const;
};

/// The free functions every enumeration offers, in one place: the
/// enumerator by number (range exception when none) or by name (parse
/// exception when none), and reading a name at the cursor (also stored
/// through `out` when that is not null).
template <class E>
E enumInstance(const EnumTable& t, std::uint64_t value) {
    return static_cast<E>(t.checkedValue(value));
}
template <class E>
E enumInstance(const EnumTable& t, std::string_view name) {
    return static_cast<E>(t.valueOf(name));
}
template <class E>
E enumRead(const EnumTable& t, CharRange& r, E* out) {
    const auto v = static_cast<E>(t.read(r));
    if (out) {
        *out = v;
    }
    return v;
}

// ---- generic text of one value -------------------------------------------

template <class T>
concept Enumeration = std::is_enum_v<T> && requires(T e, CharRange& r) {
    { stringValue(e) } -> std::convertible_to<Poldo::String>;
    { sequenceToValue(r, static_cast<T*>(nullptr)) } -> std::same_as<T>;
};

template <class T>
concept ReadableFromText = std::constructible_from<T, CharRange&>;

/// A type that cannot have a reading constructor (an entity reference, say)
/// supplies `T kestReadText(CharRange&, T*)`, found by argument-dependent lookup.
template <class T>
concept HasReadHook = requires(CharRange& r) {
    { kestReadText(r, static_cast<T*>(nullptr)) } -> std::same_as<T>;
};

/// Writes `v` in its canonical form. Numbers are always written in decimal,
/// whatever base the stream was left in.
template <class T>
void writeText(std::ostream& os, const T& v) {
    if constexpr (std::is_same_v<T, bool>) {
        writeBool(os, v);
    } else if constexpr (std::is_integral_v<T> && std::is_unsigned_v<T>) {
        writeUnsigned(os, v);
    } else if constexpr (std::is_integral_v<T>) {
        writeSigned(os, v);
    } else if constexpr (std::is_enum_v<T>) {
        os << stringValue(v);
    } else {
        os << v;
    }
}

/// Reads one value of T at the current position.
template <class T>
T readText(CharRange& r) {
    if constexpr (std::is_same_v<T, bool>) {
        return readBool(r);
    } else if constexpr (std::is_integral_v<T> && std::is_unsigned_v<T>) {
        return static_cast<T>(readUnsignedBits(r, std::numeric_limits<T>::digits));
    } else if constexpr (std::is_integral_v<T>) {
        return static_cast<T>(readSignedBits(r, std::numeric_limits<T>::digits + 1));
    } else if constexpr (std::is_enum_v<T>) {
        return sequenceToValue(r, static_cast<T*>(nullptr));
    } else if constexpr (HasReadHook<T>) {
        return kestReadText(r, static_cast<T*>(nullptr));
    } else {
        static_assert(ReadableFromText<T>, "the type has no reader");
        return T(r);
    }
}

// ---- attribute descriptors of value types ---------------------------------

/// An attribute stored in a data member.
template <class T, class M>
struct MemberAttr {
    using Owner = T;
    using Type = M;
    std::string_view name;
    M T::*member;

    constexpr const M& get(const T& o) const noexcept { return o.*member; }
    constexpr void set(T& o, M v) const { o.*member = std::move(v); }
};

/// An attribute read and written through accessor functions (flags of a bit set).
template <class T, class V, class Get, class Set>
struct AccessorAttr {
    using Owner = T;
    using Type = V;
    std::string_view name;
    Get getter;
    Set setter;

    constexpr V get(const T& o) const { return static_cast<V>((o.*getter)()); }
    constexpr void set(T& o, V v) const { (o.*setter)(std::move(v)); }
};

template <class T, class M>
constexpr MemberAttr<T, M> attr(std::string_view name, M T::*member) noexcept {
    return {name, member};
}

template <class V, class T, class Get, class Set>
constexpr AccessorAttr<T, V, Get, Set> attr(std::string_view name, Get getter, Set setter) noexcept {
    return {name, getter, setter};
}

template <class T>
concept ValueForm = requires {
    { T::kestTypeName } -> std::convertible_to<std::string_view>;
    T::kestAttrs();
};

namespace detail {

/// Reads one attribute; a range error inside it is re-raised naming the attribute.
template <class T, class A>
void readAttr(CharRange& r, T& into, const A& a) {
    try {
        a.set(into, readText<typename A::Type>(r));
    } catch (const RangeException& e) {
        throw AttributeParseException(std::string(a.name), e.what());
    }
}

}  // namespace detail

/// Writes a value type in the generic form.
template <ValueForm T>
std::ostream& writeValue(std::ostream& os, const T& v) {
    constexpr auto attrs = T::kestAttrs();
    constexpr std::size_t n = std::tuple_size_v<decltype(attrs)>;
    if constexpr (n == 1) {
        writeText(os, std::get<0>(attrs).get(v));
    } else {
        os << "Value('" << T::kestTypeName << "', ** {";
        [&]<std::size_t... I>(std::index_sequence<I...>) {
            ((os << (I == 0 ? "'" : ", '") << std::get<I>(attrs).name << "': ",
              writeText(os, std::get<I>(attrs).get(v))),
             ...);
        }
        (std::make_index_sequence<n>{});
        os << "})";
    }
    return os;
}

/// Reads a value type in the generic form into a fresh default value, so that
/// a caller never sees a half-read one.
template <ValueForm T>
T readValue(CharRange& r) {
    constexpr auto attrs = T::kestAttrs();
    constexpr std::size_t n = std::tuple_size_v<decltype(attrs)>;
    T v{};
    if constexpr (n == 1) {
        std::get<0>(attrs).set(v, readText<typename std::tuple_element_t<0, decltype(attrs)>::Type>(r));
    } else {
        r.expect("Value('");
        r.expect(T::kestTypeName);
        r.expect("', ** {");
        [&]<std::size_t... I>(std::index_sequence<I...>) {
            ((r.expect(I == 0 ? "'" : ", '"), r.expect(std::get<I>(attrs).name), r.expect("': "),
              detail::readAttr(r, v, std::get<I>(attrs))),
             ...);
        }
        (std::make_index_sequence<n>{});
        r.expect("})");
    }
    return v;
}

/// The canonical form of any value as a string.
template <class T>
Poldo::String strep(const T& v) {
    Poldo::OStringStream os;
    writeText(os, v);
    return os.str();
}

/// Parses the whole of `text` as a T; text left over after the value is an error.
/// The pointer only selects the type.
template <class T>
T strepToValue(const Poldo::String& text, T*) {
    CharRange r(text);
    T v = readText<T>(r);
    r.checkAllConsumed();
    return v;
}

}  // namespace Kest
