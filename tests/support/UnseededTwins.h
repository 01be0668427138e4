// Two IPv6 addresses that share Lumo::Ip6Addr::hash(), the unseeded mixer:
// what a sender can compute, and so what no key may hash alike.
#pragma once

#include <array>
#include <cstdint>
#include <unordered_map>
#include <utility>

#include "IgpCommon/platform/Lumo.h"

namespace testsupport {

/// By the birthday bound: about 2^16 addresses of 2001:db8::/32 until two share the 32-bit hash.
inline std::pair<Lumo::Ip6Addr, Lumo::Ip6Addr> unseededHashTwins() {
    std::unordered_map<std::uint32_t, Lumo::Ip6Addr> seen;
    for (std::uint32_t i = 0;; ++i) {
        std::array<std::uint8_t, 16> b{0x20, 0x01, 0x0d, 0xb8};
        // Two words vary: the mixer maps one varying word to the hash one to one.
        b[10] = static_cast<std::uint8_t>(i >> 24);
        b[11] = static_cast<std::uint8_t>(i >> 16);
        b[14] = static_cast<std::uint8_t>(i >> 8);
        b[15] = static_cast<std::uint8_t>(i);
        const Lumo::Ip6Addr a = Lumo::Ip6Addr::fromBytes(b.data());
        const auto [it, inserted] = seen.emplace(a.hash(), a);
        if (!inserted) {
            return {it->second, a};
        }
    }
}

}  // namespace testsupport
