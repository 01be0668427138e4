#include "Escape.h"

#include <cstdint>

namespace IgpLsdb {

namespace {

void putEscaped(std::string& out, unsigned char c) {
    constexpr const char* hex = "0123456789abcdef";
    out += "\\x";
    out += hex[c >> 4];
    out += hex[c & 0xf];
}

// The length of the well-formed UTF-8 sequence at the start of `s`, or 0
// (RFC 3629 section 4: no overlong forms, no surrogates, nothing past U+10FFFF).
std::size_t sequenceLength(std::string_view s) {
    const auto b = [&](std::size_t i) { return static_cast<unsigned char>(s[i]); };
    const unsigned char c = b(0);
    std::size_t n = 0;
    unsigned char lo = 0x80;
    unsigned char hi = 0xbf;
    if (c >= 0xc2 && c <= 0xdf) {
        n = 2;
    } else if (c >= 0xe0 && c <= 0xef) {
        n = 3;
        lo = c == 0xe0 ? 0xa0 : 0x80;
        hi = c == 0xed ? 0x9f : 0xbf;
    } else if (c >= 0xf0 && c <= 0xf4) {
        n = 4;
        lo = c == 0xf0 ? 0x90 : 0x80;
        hi = c == 0xf4 ? 0x8f : 0xbf;
    } else {
        return 0;
    }
    if (s.size() < n || b(1) < lo || b(1) > hi) {
        return 0;
    }
    for (std::size_t i = 2; i < n; ++i) {
        if (b(i) < 0x80 || b(i) > 0xbf) {
            return 0;
        }
    }
    return n;
}

}  // namespace

std::string escaped(std::string_view s) {
    std::string out;
    out.reserve(s.size());
    while (!s.empty()) {
        const auto c = static_cast<unsigned char>(s.front());
        if (c < 0x80) {
            if (c < 0x20 || c == 0x7f || c == '\\') {
                putEscaped(out, c);
            } else {
                out += static_cast<char>(c);
            }
            s.remove_prefix(1);
            continue;
        }
        const std::size_t n = sequenceLength(s);
        // U+0080..U+009F, the C1 controls, are written as C2 80..C2 9F.
        const bool c1 = n == 2 && c == 0xc2 && static_cast<unsigned char>(s[1]) < 0xa0;
        if (n == 0 || c1) {
            const std::size_t k = c1 ? 2 : 1;
            for (std::size_t i = 0; i < k; ++i) {
                putEscaped(out, static_cast<unsigned char>(s[i]));
            }
            s.remove_prefix(k);
            continue;
        }
        out.append(s.substr(0, n));
        s.remove_prefix(n);
    }
    return out;
}

}  // namespace IgpLsdb
