#include "Escape.h"

#include <cstdint>

namespace IgpLsdb {

namespace {

void putHex(std::string& out, unsigned char c) {
    constexpr char digits[] = "0123456789abcdef";
    out += "\\x";
    out += digits[c >> 4];
    out += digits[c & 0xF];
}

/// The length of the valid UTF-8 sequence at the start of `s` (RFC 3629 4:
/// no overlong forms, no surrogates, nothing above U+10FFFF), or 0.
std::size_t utf8Length(std::string_view s) {
    const auto at = [&](std::size_t i) { return static_cast<unsigned char>(s[i]); };
    const unsigned char lead = at(0);
    std::size_t n = 0;
    unsigned char lo = 0x80, hi = 0xBF;  // the range of the second octet
    if (lead >= 0xC2 && lead <= 0xDF) {
        n = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        n = 3;
        lo = lead == 0xE0 ? 0xA0 : 0x80;
        hi = lead == 0xED ? 0x9F : 0xBF;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        n = 4;
        lo = lead == 0xF0 ? 0x90 : 0x80;
        hi = lead == 0xF4 ? 0x8F : 0xBF;
    } else {
        return 0;
    }
    if (s.size() < n || at(1) < lo || at(1) > hi) {
        return 0;
    }
    for (std::size_t i = 2; i < n; ++i) {
        if (at(i) < 0x80 || at(i) > 0xBF) {
            return 0;
        }
    }
    return n;
}

}  // namespace

std::string escaped(std::string_view s) {
    std::string out;
    out.reserve(s.size());
    for (std::size_t i = 0; i < s.size();) {
        const auto c = static_cast<unsigned char>(s[i]);
        if (c < 0x80) {
            if (c < 0x20 || c == 0x7F || c == '\\') {
                putHex(out, c);
            } else {
                out += static_cast<char>(c);
            }
            ++i;
            continue;
        }
        const std::size_t n = utf8Length(s.substr(i));
        // U+0080 to U+009F are controls too: C2 80 to C2 9F.
        if (n == 0 || (n == 2 && c == 0xC2 && static_cast<unsigned char>(s[i + 1]) < 0xA0)) {
            putHex(out, c);
            ++i;
            continue;
        }
        out.append(s.substr(i, n));
        i += n;
    }
    return out;
}

}  // namespace IgpLsdb
