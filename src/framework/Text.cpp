#include "IgpCommon/framework/Text.h"

#include <algorithm>

namespace Kest {

void CharRange::fail(const std::string& what) const {
    std::string shown(rest().substr(0, 24));
    throw ParseException(what + " at offset " + std::to_string(offset()) + " (before \"" + shown + "\")");
}

void CharRange::checkAllConsumed() const {
    if (!atEnd()) {
        fail("unexpected text after the value");
    }
}

bool readBool(CharRange& r) {
    if (r.consume("True")) {
        return true;
    }
    if (r.consume("False")) {
        return false;
    }
    r.fail("expected True or False");
}

void writeBool(std::ostream& os, bool v) {
    os << (v ? "True" : "False");
}

std::uint64_t readUnsignedBits(CharRange& r, unsigned bits) {
    const char* first = r.current();
    const char* last = first;
    while (last != r.end() && *last >= '0' && *last <= '9') {
        ++last;
    }
    if (last == first) {
        r.fail("expected a decimal number");
    }
    std::uint64_t v = 0;
    const auto [ptr, ec] = std::from_chars(first, last, v);
    const std::uint64_t max = bits >= 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << bits) - 1;
    if (ec == std::errc::result_out_of_range || v > max) {
        throw RangeException("number " + std::string(first, last) + " does not fit in " +
                             std::to_string(bits) + " bits");
    }
    r.advance(static_cast<std::size_t>(ptr - first));
    return v;
}

std::int64_t readSignedBits(CharRange& r, unsigned bits) {
    const bool negative = r.consume("-");
    const std::uint64_t magnitude = readUnsignedBits(r, 64);
    const std::uint64_t limit = std::uint64_t{1} << (bits - 1);
    if ((negative && magnitude > limit) || (!negative && magnitude >= limit)) {
        throw RangeException("number " + std::string(negative ? "-" : "") + std::to_string(magnitude) +
                             " does not fit in " + std::to_string(bits) + " signed bits");
    }
    return negative ? static_cast<std::int64_t>(0 - magnitude) : static_cast<std::int64_t>(magnitude);
}

void writeUnsigned(std::ostream& os, std::uint64_t v) {
    char buf[24];
    const auto [ptr, ec] = std::to_chars(buf, buf + sizeof buf, v);
    os.write(buf, ptr - buf);
}

void writeSigned(std::ostream& os, std::int64_t v) {
    char buf[24];
    const auto [ptr, ec] = std::to_chars(buf, buf + sizeof buf, v);
    os.write(buf, ptr - buf);
}

std::string_view readIdentifier(CharRange& r) noexcept {
    const char* first = r.current();
    const char* last = first;
    while (last != r.end() && ((*last >= 'a' && *last <= 'z') || (*last >= 'A' && *last <= 'Z') ||
                               (*last >= '0' && *last <= '9') || *last == '_')) {
        ++last;
    }
    r.advance(static_cast<std::size_t>(last - first));
    return {first, static_cast<std::size_t>(last - first)};
}

const EnumEntry* EnumTable::byValue(std::uint32_t v) const noexcept {
    const auto it =
        std::find_if(entries.begin(), entries.end(), [v](const EnumEntry& e) { return e.value == v; });
    return it == entries.end() ? nullptr : &*it;
}

const EnumEntry* EnumTable::byName(std::string_view n) const noexcept {
    const auto it =
        std::find_if(entries.begin(), entries.end(), [n](const EnumEntry& e) { return e.name == n; });
    return it == entries.end() ? nullptr : &*it;
}

std::uint32_t EnumTable::valueOf(std::string_view name) const {
    if (const EnumEntry* e = byName(name)) {
        return e->value;
    }
    throw ParseException("\"" + std::string(name) + "\" is no enumerator of " + std::string(typeName));
}

std::uint32_t EnumTable::checkedValue(std::uint64_t v) const {
    if (v <= std::numeric_limits<std::uint32_t>::max()) {
        if (const EnumEntry* e = byValue(static_cast<std::uint32_t>(v))) {
            return e->value;
        }
    }
    throw RangeException(std::to_string(v) + " is no enumerator of " + std::string(typeName));
}

Poldo::String EnumTable::nameOf(std::uint32_t v) const {
    if (const EnumEntry* e = byValue(v)) {
        return Poldo::String(e->name);
    }
    return std::to_string(v);
}

std::uint32_t EnumTable::read(CharRange& r) const {
    const char* start = r.current();
    const std::string_view name = readIdentifier(r);
    if (const EnumEntry* e = byName(name)) {
        return e->value;
    }
    r = CharRange(r.begin(), r.end());
    r.advance(static_cast<std::size_t>(start - r.begin()));
    r.fail("expected an enumerator of " + std::string(typeName));
}

}  // namespace Kest
