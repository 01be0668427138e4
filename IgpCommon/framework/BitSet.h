// Three-way comparison of small bit sets.
#pragma once

#include <compare>
#include <cstdint>

namespace Poldo {

struct BitSet {
    /// Orders two bit sets by their highest differing bit: the set that has it
    /// is greater. This is the numeric order of the raw words, so a set sorts
    /// after every set made only of lower flags.
    static constexpr std::strong_ordering compare(std::uint64_t a, std::uint64_t b) noexcept {
        return a <=> b;
    }
};

}  // namespace Poldo
