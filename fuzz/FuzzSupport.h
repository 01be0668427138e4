// Helpers the fuzz targets share: a failed check prints what broke and traps, so that libFuzzer
// keeps the input as a crash; the allocation trackers' census shows what an operation left alive.
#pragma once

#include <concepts>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "IgpCommon/platform/Drimm.h"

namespace IgpFuzz {

[[noreturn]] inline void fail(std::string_view what, std::string_view detail = {}) {
    std::fprintf(stderr, "\n*** fuzz check failed: %.*s\n", static_cast<int>(what.size()), what.data());
    if (!detail.empty()) {
        std::fprintf(stderr, "    %.*s\n", static_cast<int>(detail.size()), detail.data());
    }
    std::fflush(stderr);
    __builtin_trap();
}

inline void check(bool ok, std::string_view what, std::string_view detail = {}) {
    if (!ok) {
        fail(what, detail);
    }
}

/// The same, with a detail that is only built when the check fails: the checks run on every
/// input, and printing the compared states each time would cost more than comparing them.
template <std::invocable Detail>
void check(bool ok, std::string_view what, Detail&& detail) {
    if (!ok) {
        fail(what, std::string(std::forward<Detail>(detail)()));
    }
}

/// Live objects per tracked type, in registration order.
struct Census {
    std::vector<std::uint64_t> live;

    static Census now() {
        Census c;
        Drimm::AllocTracker::forEach([&c](const Drimm::AllocTracker& t) { c.live.push_back(t.live()); });
        return c;
    }
    /// The types whose count differs from `before` (a type registered since counts from zero).
    std::string differenceFrom(const Census& before) const {
        std::string out;
        std::size_t i = 0;
        Drimm::AllocTracker::forEach([&](const Drimm::AllocTracker& t) {
            const std::uint64_t was = i < before.live.size() ? before.live[i] : 0;
            if (i < live.size() && live[i] != was) {
                out += t.typeName() + " " + std::to_string(was) + " -> " + std::to_string(live[i]) + "; ";
            }
            ++i;
        });
        return out;
    }
};

}  // namespace IgpFuzz
