#include "Filters.h"

#include <arpa/inet.h>

#include <charconv>
#include <cstdio>
#include <ctime>

namespace IgpLsdb {

namespace {

// 'text', built by appending: g++ 12 at -O3 warns (restrict) on "literal" + std::string.
std::string quoted(std::string_view text) {
    std::string q = "'";
    q += text;
    q += '\'';
    return q;
}

bool number(std::string_view s, auto& out) {
    const char* end = s.data() + s.size();
    const auto r = std::from_chars(s.data(), end, out);
    return !s.empty() && r.ec == std::errc() && r.ptr == end;
}

// Days since 1970-01-01 of a proleptic Gregorian date (H. Hinnant's days_from_civil).
std::int64_t daysFromCivil(std::int64_t y, unsigned m, unsigned d) {
    y -= m <= 2 ? 1 : 0;
    const std::int64_t era = (y >= 0 ? y : y - 399) / 400;
    const auto yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<std::int64_t>(doe) - 719468;
}

// "YYYY-MM-DDTHH:MM:SS[.ffffff][Z|+HH:MM|-HH:MM]" (a blank may stand for the T).
std::optional<std::int64_t> parseTime(std::string_view s) {
    if (s.size() < 19 || s[4] != '-' || s[7] != '-' || (s[10] != 'T' && s[10] != 't' && s[10] != ' ') ||
        s[13] != ':' || s[16] != ':') {
        return std::nullopt;
    }
    int year = 0;
    unsigned month = 0, day = 0, hour = 0, minute = 0, second = 0;
    if (!number(s.substr(0, 4), year) || !number(s.substr(5, 2), month) || !number(s.substr(8, 2), day) ||
        !number(s.substr(11, 2), hour) || !number(s.substr(14, 2), minute) ||
        !number(s.substr(17, 2), second) || month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 ||
        minute > 59 || second > 60) {
        return std::nullopt;
    }
    s.remove_prefix(19);
    std::int64_t micros = 0;
    if (!s.empty() && s.front() == '.') {
        s.remove_prefix(1);
        unsigned digits = 0;
        while (!s.empty() && s.front() >= '0' && s.front() <= '9') {
            if (digits++ < 6) {
                micros = micros * 10 + (s.front() - '0');
            }
            s.remove_prefix(1);
        }
        if (digits == 0) {
            return std::nullopt;
        }
        for (; digits < 6; ++digits) {
            micros *= 10;
        }
    }
    std::int64_t offset = 0;
    if (s == "Z" || s == "z" || s.empty()) {
        s = {};
    } else if (s.size() == 6 && (s[0] == '+' || s[0] == '-') && s[3] == ':') {
        unsigned oh = 0, om = 0;
        if (!number(s.substr(1, 2), oh) || !number(s.substr(4, 2), om) || oh > 23 || om > 59) {
            return std::nullopt;
        }
        offset = (s[0] == '+' ? 1 : -1) * static_cast<std::int64_t>(oh * 3600 + om * 60);
    } else {
        return std::nullopt;
    }
    const std::int64_t seconds = daysFromCivil(year, month, day) * 86400 + hour * 3600 + minute * 60 + second;
    return (seconds - offset) * 1000000 + micros;
}

std::string_view prefixPart(std::string_view keyText) {
    return keyText.substr(0, keyText.find(';'));  // "2001:db8::/64;mtId 2"
}

}  // namespace

std::string timeText(std::int64_t microseconds) {
    std::int64_t seconds = microseconds / 1000000;
    std::int64_t micros = microseconds % 1000000;
    if (micros < 0) {
        micros += 1000000;
        --seconds;
    }
    const auto t = static_cast<std::time_t>(seconds);
    std::tm tm{};
    ::gmtime_r(&t, &tm);
    char out[96];
    std::snprintf(out, sizeof out, "%04d-%02d-%02dT%02d:%02d:%02d.%06dZ", tm.tm_year + 1900, tm.tm_mon + 1,
                  tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec, static_cast<int>(micros));
    return out;
}

std::optional<Moment> Moment::parse(std::string_view text, std::string& error) {
    Moment m;
    if (const std::size_t colon = text.find(':'); colon != std::string_view::npos && colon < 4) {
        m.isFrame_ = number(text.substr(0, colon), m.capture_) && number(text.substr(colon + 1), m.frame_) &&
                     m.capture_ > 0;
    } else if (number(text, m.frame_)) {
        m.isFrame_ = true;
        m.capture_ = 1;
    }
    if (m.isFrame_) {
        return m;
    }
    if (const auto t = parseTime(text)) {
        m.time_ = *t;
        return m;
    }
    error = quoted(text) +
            " is neither a frame (N, or C:N for the C-th capture) nor a time (2024-05-01T10:00:00Z)";
    return std::nullopt;
}

int Moment::compare(const FrameRef& f) const noexcept {
    if (isFrame_) {
        if (f.capture != capture_) {
            return f.capture < capture_ ? -1 : 1;
        }
        return f.frame < frame_ ? -1 : (f.frame > frame_ ? 1 : 0);
    }
    return f.time < time_ ? -1 : (f.time > time_ ? 1 : 0);
}

std::optional<PrefixFilter> PrefixFilter::parse(std::string_view text, std::string& error) {
    const std::size_t slash = text.find('/');
    const std::string address(text.substr(0, slash));
    const bool v6 = address.find(':') != std::string::npos;
    unsigned char octets[16] = {};
    unsigned length = v6 ? 128 : 32;
    const unsigned maxLength = length;
    if (::inet_pton(v6 ? AF_INET6 : AF_INET, address.c_str(), octets) != 1 ||
        (slash != std::string_view::npos &&
         (!number(text.substr(slash + 1), length) || length > maxLength))) {
        error = quoted(text) + " is not an IPv4 or IPv6 prefix (10.1.0.0/24, 2001:db8::/64)";
        return std::nullopt;
    }
    // The advertised prefix has no host bits.
    for (unsigned bit = length; bit < maxLength; ++bit) {
        octets[bit / 8] &= static_cast<unsigned char>(~(0x80u >> (bit % 8)));
    }
    char canonical[INET6_ADDRSTRLEN] = {};
    ::inet_ntop(v6 ? AF_INET6 : AF_INET, octets, canonical, sizeof canonical);
    PrefixFilter p;
    p.text_ = std::string(canonical) + "/" + std::to_string(length);
    return p;
}

bool PrefixFilter::sameAs(std::string_view keyText) const {
    return prefixPart(keyText) == text_;
}

bool PrefixFilter::advertisedBy(const IC::IgpLsp& entry) const {
    for (const auto& m : entry.prefix()) {
        if (sameAs(*IgpLsdb::text(m.key.prefix()))) {
            return true;
        }
    }
    return false;
}

bool PrefixFilter::concerns(const Change& c) const {
    if (c.entity == "prefix") {
        return sameAs(c.entityKey);
    }
    return c.entity == "lsp" && c.attr == "prefix" && c.key && sameAs(*c.key);
}

}  // namespace IgpLsdb
