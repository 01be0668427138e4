// Seeded hashing: the HalfSipHash core and Kest::HashState.
#include "IgpCommon/framework/Hash.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <set>
#include <vector>

namespace {

/// An independent, byte-at-a-time HalfSipHash with 32-bit output, written from the published
/// algorithm; checked against the reference vectors before it serves as the oracle.
template <int C, int D>
std::uint32_t referenceHalfSip(const std::vector<std::uint8_t>& msg, std::uint32_t k0, std::uint32_t k1) {
    std::uint32_t v[4] = {k0, k1, 0x6c796765u ^ k0, 0x74656462u ^ k1};
    const auto rotl = [](std::uint32_t x, int b) { return (x << b) | (x >> (32 - b)); };
    const auto round = [&] {
        // (a, b, shift of b, shift of a after the xor), as in the published round.
        const int steps[4][4] = {{0, 1, 5, 16}, {2, 3, 8, -1}, {0, 3, 7, -1}, {2, 1, 13, 16}};
        for (const auto& s : steps) {
            v[s[0]] += v[s[1]];
            v[s[1]] = rotl(v[s[1]], s[2]) ^ v[s[0]];
            v[s[0]] = s[3] > 0 ? rotl(v[s[0]], s[3]) : v[s[0]];
        }
    };
    const auto compress = [&](std::uint32_t m) {
        v[3] ^= m;
        for (int i = 0; i < C; ++i) {
            round();
        }
        v[0] ^= m;
    };
    std::uint32_t word = 0;
    for (std::size_t i = 0; i < msg.size(); ++i) {
        word |= std::uint32_t{msg[i]} << (8 * (i % 4));
        if (i % 4 == 3) {
            compress(word);
            word = 0;
        }
    }
    compress(word | static_cast<std::uint32_t>(msg.size()) << 24);
    v[2] ^= 0xffu;
    for (int i = 0; i < D; ++i) {
        round();
    }
    return v[1] ^ v[3];
}

// Both round counts against the oracle, over random keys, lengths and item widths 1..4 bytes; the
// first five messages are those of the published HalfSipHash-2-4 32-bit vectors (key 00..07,
// message 00 01 .. of length 0..4), which pin the oracle itself.
TEST(HashTest, CoreMatchesThePublishedVectorsAndAnIndependentOracleForAnyItemWidths) {
    const std::uint32_t published[] = {0x5b9f35a9u, 0xb85a4727u, 0x03a662fau, 0x04e7fe8au, 0x89466e2au};
    std::mt19937 rng(99u);
    for (std::size_t n = 0; n < 70; ++n) {
        std::vector<std::uint8_t> msg(n);
        for (std::size_t i = 0; i < n; ++i) {
            msg[i] = static_cast<std::uint8_t>(n < 5 ? i : rng());
        }
        const std::uint32_t k0 = n < 5 ? 0x03020100u : rng();
        const std::uint32_t k1 = n < 5 ? 0x07060504u : rng();
        Kest::detail::HalfSipStream<2, 4> s24(k0, k1);
        Kest::detail::HalfSipStream<1, 3> s13(k0, k1);
        for (std::size_t i = 0; i < n;) {
            const unsigned w = std::min<unsigned>(1 + rng() % 4, static_cast<unsigned>(n - i));
            std::uint32_t item = 0;
            for (unsigned j = 0; j < w; ++j) {
                item |= std::uint32_t{msg[i + j]} << (8 * j);
            }
            s24.append(item, w);
            s13.append(item, w);
            i += w;
        }
        EXPECT_EQ(s24.result(), (referenceHalfSip<2, 4>(msg, k0, k1))) << "length " << n;
        EXPECT_EQ(s13.result(), (referenceHalfSip<1, 3>(msg, k0, k1))) << "length " << n;
        EXPECT_TRUE(n >= 5 || s24.result() == published[n]) << "length " << n;
    }
}

// Items hash as their little-endian bytes in a row; the generic mix takes an item's own width, and
// the width is part of the input.
TEST(HashTest, HashStateHashesTheConcatenatedLittleEndianBytesOfItsItems) {
    std::mt19937_64 rng(7u);
    for (int trial = 0; trial < 200; ++trial) {
        const auto seed = static_cast<std::uint32_t>(rng());
        Kest::HashState items(seed);
        Kest::HashState bytes(seed);
        for (int i = 0, count = static_cast<int>(rng() % 9); i < count; ++i) {
            const std::uint64_t v = rng();
            const unsigned width = 1u << (rng() % 4);
            width == 1   ? items.mix8(static_cast<std::uint8_t>(v))
            : width == 2 ? items.mix16(static_cast<std::uint16_t>(v))
            : width == 4 ? items.mix32(static_cast<std::uint32_t>(v))
                         : items.mix64(v);
            for (unsigned b = 0; b < width; ++b) {
                bytes.mix8(static_cast<std::uint8_t>(v >> (8 * b)));
            }
        }
        ASSERT_EQ(items.result(), bytes.result()) << "trial " << trial;
    }
    enum class Small : std::uint16_t { a = 0x1234 };
    const auto h = [] { return Kest::HashState(1); };
    EXPECT_EQ(h().mix(true).mix(std::int16_t{-1}).mix(Small::a).result(),
              h().mix8(1).mix16(0xffff).mix16(0x1234).result());
    EXPECT_EQ(h().mix(std::uint32_t{9}).result(), Kest::HashHelper::hash(std::uint32_t{9}, 1));
    EXPECT_NE(h().mix8(1).result(), h().mix16(1).result());
    EXPECT_NE(h().mix8(0).result(), h().result());
    std::set<std::uint32_t> results{Kest::HashState(0).mix32(0xabcdef01u).result()};
    for (std::uint32_t bit = 0; bit < 32; ++bit) {
        results.insert(Kest::HashState(1u << bit).mix32(0xabcdef01u).result());
    }
    EXPECT_EQ(results.size(), 33u) << "every seed bit counts";
}

}  // namespace
