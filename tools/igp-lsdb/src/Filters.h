// What the --since/--until/--from/--to and --prefix options select, and the
// text form of capture times.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Changes.h"
#include "Lsdb.h"

namespace IgpLsdb {

/// A capture time as RFC 3339 UTC with microseconds: "2024-05-01T10:00:00.000000Z".
std::string timeText(std::int64_t microseconds);

/// A point in the captures read: a frame ("N", frame N of the first capture;
/// "C:N", frame N of the C-th) or a time (RFC 3339; no offset means UTC).
class Moment {
public:
    /// Null with `error` set when `text` is neither form.
    static std::optional<Moment> parse(std::string_view text, std::string& error);

    /// Negative when `f` comes before this moment, 0 at it, positive after it:
    /// frames by their capture and number, times by the clock.
    int compare(const FrameRef& f) const noexcept;

private:
    bool isFrame_ = false;
    std::size_t capture_ = 0;
    unsigned frame_ = 0;
    std::int64_t time_ = 0;
};

/// The frames from `since` to `until`, both included; either may be open.
struct Window {
    std::optional<Moment> since;
    std::optional<Moment> until;

    bool contains(const FrameRef& f) const noexcept {
        return (!since || since->compare(f) >= 0) && (!until || until->compare(f) <= 0);
    }
    bool open() const noexcept { return !since && !until; }
};

/// A --prefix: an IPv4 or IPv6 prefix ("10.1.0.0/24"; an address alone is a host prefix).
class PrefixFilter {
public:
    static std::optional<PrefixFilter> parse(std::string_view text, std::string& error);

    const std::string& text() const noexcept { return text_; }
    /// Whether the entry advertises the prefix, in any topology.
    bool advertisedBy(const IC::IgpLsp& entry) const;
    /// Whether the change is about the prefix: its own attributes, or its arrival or removal.
    bool concerns(const Change& c) const;

private:
    bool sameAs(std::string_view keyText) const;
    std::string text_;  // canonical, as the library writes prefixes
};

}  // namespace IgpLsdb
