// Seeded hashing: the HalfSipHash core, Kest::HashState and the process seed.
#include "IgpCommon/framework/Hash.h"

#include <gtest/gtest.h>

#include <unistd.h>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

/// An independent, byte-at-a-time HalfSipHash with 32-bit output, written from
/// the published algorithm; checked against the reference vectors below before
/// it serves as the oracle for the library's streaming core.
template <int C, int D>
std::uint32_t referenceHalfSip(const std::vector<std::uint8_t>& msg, std::uint32_t k0, std::uint32_t k1) {
    std::uint32_t v0 = k0, v1 = k1, v2 = 0x6c796765u ^ k0, v3 = 0x74656462u ^ k1;
    const auto rotl = [](std::uint32_t x, int b) { return (x << b) | (x >> (32 - b)); };
    const auto round = [&] {
        v0 += v1;
        v1 = rotl(v1, 5);
        v1 ^= v0;
        v0 = rotl(v0, 16);
        v2 += v3;
        v3 = rotl(v3, 8);
        v3 ^= v2;
        v0 += v3;
        v3 = rotl(v3, 7);
        v3 ^= v0;
        v2 += v1;
        v1 = rotl(v1, 13);
        v1 ^= v2;
        v2 = rotl(v2, 16);
    };
    const auto compress = [&](std::uint32_t m) {
        v3 ^= m;
        for (int i = 0; i < C; ++i)
            round();
        v0 ^= m;
    };
    const std::size_t whole = msg.size() / 4 * 4;
    for (std::size_t i = 0; i < whole; i += 4) {
        compress(std::uint32_t{msg[i]} | std::uint32_t{msg[i + 1]} << 8 | std::uint32_t{msg[i + 2]} << 16 |
                 std::uint32_t{msg[i + 3]} << 24);
    }
    std::uint32_t last = static_cast<std::uint32_t>(msg.size()) << 24;
    for (std::size_t i = whole; i < msg.size(); ++i) {
        last |= std::uint32_t{msg[i]} << (8 * (i - whole));
    }
    compress(last);
    v2 ^= 0xffu;
    for (int i = 0; i < D; ++i)
        round();
    return v1 ^ v3;
}

constexpr std::uint32_t refK0 = 0x03020100u;
constexpr std::uint32_t refK1 = 0x07060504u;
// Published HalfSipHash-2-4 32-bit vectors: key 00..07, message 00 01 .. of length 0..4.
constexpr std::uint32_t refVectors[] = {0x5b9f35a9u, 0xb85a4727u, 0x03a662fau, 0x04e7fe8au, 0x89466e2au};

std::vector<std::uint8_t> counting(std::size_t n) {
    std::vector<std::uint8_t> v;
    v.reserve(n);
    for (std::size_t i = 0; i < n; ++i) {
        v.push_back(static_cast<std::uint8_t>(i));
    }
    return v;
}

TEST(HashTest, CoreMatchesThePublishedVectorsAndAnIndependentOracleForAnyItemWidths) {
    for (std::size_t n = 0; n < std::size(refVectors); ++n) {
        Kest::detail::HalfSipStream<2, 4> s(refK0, refK1);
        for (std::uint8_t b : counting(n)) {
            s.append(b, 1);
        }
        EXPECT_EQ(s.result(), refVectors[n]) << "length " << n;
        EXPECT_EQ((referenceHalfSip<2, 4>(counting(n), refK0, refK1)), refVectors[n])
            << "oracle, length " << n;
    }
    Kest::detail::HalfSipStream<2, 4> halves(refK0, refK1);
    halves.append(0x0100u, 2);
    halves.append(0x0302u, 2);
    EXPECT_EQ(halves.result(), refVectors[4]);

    // Longer messages, both round counts, items of random width 1..4 bytes, little-endian.
    std::mt19937 rng(99u);
    for (std::size_t n = 0; n < 70; ++n) {
        std::vector<std::uint8_t> msg(n);
        for (auto& b : msg) {
            b = static_cast<std::uint8_t>(rng());
        }
        const std::uint32_t k0 = rng();
        const std::uint32_t k1 = rng();
        Kest::detail::HalfSipStream<2, 4> s24(k0, k1);
        Kest::detail::HalfSipStream<1, 3> s13(k0, k1);
        for (std::size_t i = 0; i < n;) {
            const unsigned w = std::min<unsigned>(1 + rng() % 4, static_cast<unsigned>(n - i));
            std::uint32_t v = 0;
            for (unsigned j = 0; j < w; ++j) {
                v |= std::uint32_t{msg[i + j]} << (8 * j);
            }
            s24.append(v, w);
            s13.append(v, w);
            i += w;
        }
        EXPECT_EQ(s24.result(), (referenceHalfSip<2, 4>(msg, k0, k1))) << "length " << n;
        EXPECT_EQ(s13.result(), (referenceHalfSip<1, 3>(msg, k0, k1))) << "length " << n;
    }
}

std::vector<std::uint8_t> leBytes(std::uint64_t v, unsigned n) {
    std::vector<std::uint8_t> out;
    for (unsigned i = 0; i < n; ++i) {
        out.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
    }
    return out;
}

TEST(HashTest, HashStateHashesTheConcatenatedLittleEndianBytesOfItsItems) {
    std::mt19937_64 rng(7u);
    for (int trial = 0; trial < 200; ++trial) {
        const auto seed = static_cast<std::uint32_t>(rng());
        Kest::HashState items(seed);
        Kest::HashState bytes(seed);
        const int count = static_cast<int>(rng() % 9);
        for (int i = 0; i < count; ++i) {
            const std::uint64_t v = rng();
            std::vector<std::uint8_t> b;
            switch (rng() % 4) {
                case 0:
                    items.mix8(static_cast<std::uint8_t>(v));
                    b = leBytes(v, 1);
                    break;
                case 1:
                    items.mix16(static_cast<std::uint16_t>(v));
                    b = leBytes(v, 2);
                    break;
                case 2:
                    items.mix32(static_cast<std::uint32_t>(v));
                    b = leBytes(v, 4);
                    break;
                default:
                    items.mix64(v);
                    b = leBytes(v, 8);
                    break;
            }
            for (std::uint8_t x : b) {
                bytes.mix8(x);
            }
        }
        ASSERT_EQ(items.result(), bytes.result()) << "trial " << trial;
    }
    // Mixing one 4-byte item equals mixing its four bytes one by one.
    EXPECT_EQ(Kest::HashState(5).mix32(0x44332211u).result(),
              Kest::HashState(5).mix8(0x11).mix8(0x22).mix8(0x33).mix8(0x44).result());
}

TEST(HashTest, TheGenericMixUsesTheItemsOwnWidth) {
    enum class Small : std::uint16_t { a = 0x1234 };
    enum Wide : std::int64_t { wide = -2 };
    EXPECT_EQ(Kest::HashState(1).mix(true).result(), Kest::HashState(1).mix8(1).result());
    EXPECT_EQ(Kest::HashState(1).mix(std::int16_t{-1}).result(), Kest::HashState(1).mix16(0xffff).result());
    EXPECT_EQ(Kest::HashState(1).mix(Small::a).result(), Kest::HashState(1).mix16(0x1234).result());
    EXPECT_EQ(Kest::HashState(1).mix(wide).result(), Kest::HashState(1).mix64(~std::uint64_t{1}).result());
    EXPECT_EQ(Kest::HashState(1).mix(std::uint32_t{9}).result(), Kest::HashHelper::hash(std::uint32_t{9}, 1));
    // The width is part of the input: the same number as different items hashes differently.
    EXPECT_NE(Kest::HashState(1).mix8(1).result(), Kest::HashState(1).mix16(1).result());
    EXPECT_NE(Kest::HashState(1).mix8(0).result(), Kest::HashState(1).result());
}

TEST(HashTest, DifferentSeedsGiveDifferentHashes) {
    std::set<std::uint32_t> results;
    for (std::uint32_t seed = 0; seed < 64; ++seed) {
        results.insert(Kest::HashState(seed).mix32(0xabcdef01u).result());
        results.insert(Kest::HashState(seed << 20).mix32(0xabcdef01u).result());
    }
    EXPECT_EQ(results.size(), 127u);  // seed 0 appears twice
}

/// Sets an environment variable for the scope of a test.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const char* value) : name_(name) { ::setenv(name, value, 1); }
    ~ScopedEnv() { ::unsetenv(name_); }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    const char* name_;
};

// The seed is chosen when the library loads, so only a fresh process can show it:
// the "threadsafe" death-test style runs the statement in a re-executed copy of
// this binary, which inherits the environment set here.
TEST(HashSeedDeathTest, TheEnvironmentVariableFixesTheSeedInDecimalOrHex) {
    const std::string savedStyle = GTEST_FLAG_GET(death_test_style);
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const std::pair<const char*, const char*> cases[] = {{"0x1234abcd", "seed=305441741\n"},
                                                         {"3000000000", "seed=3000000000\n"}};
    for (const auto& [text, seed] : cases) {
        ScopedEnv env("IGPCOMMON_HASH_SEED", text);
        EXPECT_EXIT(
            {
                std::fprintf(stderr, "seed=%u\n", static_cast<unsigned>(Kest::HashHelper::hashSeed32()));
                std::fflush(stderr);
                std::_Exit(0);
            },
            ::testing::ExitedWithCode(0), seed);
    }
    GTEST_FLAG_SET(death_test_style, savedStyle);
}

}  // namespace
