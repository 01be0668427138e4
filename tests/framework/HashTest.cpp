// Seeded hashing: the HalfSipHash core, Kest::HashState, and the keys that hash whole words at once.
#include "IgpCommon/framework/Hash.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <random>
#include <set>
#include <vector>

#include "IgpCommon/IgpNodeId.h"
#include "IgpCommon/NeighborKey.h"
#include "IgpCommon/PrefixKey.h"
#include "IgpCommon/platform/Lumo.h"

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

// The keys' hashes as the items each key is documented to stream, one at a time through HashState:
// the oracle that the keys' word-at-a-time hashes must match bit for bit (dumps and iteration
// orders under a fixed seed depend on the values).
namespace streamed {

using namespace Routing::IgpCommon;

Kest::HashState& mix16Bytes(Kest::HashState& s, const Lumo::Ip6Addr& a) {
    return s.mixBytes(a.bytes().data(), 16);
}
Kest::HashState& mixNodeId(Kest::HashState& s, const IgpNodeId& id) {
    for (std::size_t i = 0; i < 7; ++i) {
        s.mix8(id.bytes().slot(i));
    }
    return s;
}
std::uint32_t hash(const IgpNodeId& id, std::uint32_t seed) {
    Kest::HashState s(seed);
    return mixNodeId(s, id).result();
}
std::uint32_t hash(const Lumo::IpGenAddr& a, std::uint32_t seed) {
    Kest::HashState s(seed);
    s.mix8(static_cast<std::uint8_t>(a.family()));
    a.isIpv4() ? s.mix32(a.ipv4().value()) : a.isIpv6() ? mix16Bytes(s, a.ipv6()) : s;
    return s.result();
}
std::uint32_t hash(const Lumo::IpGenPrefix& p, std::uint32_t seed) {
    Kest::HashState s(seed);
    s.mix8(p.family()).mix8(p.length());
    p.isIpv4() ? s.mix32(p.ipv4Addr().value()) : p.isIpv6() ? mix16Bytes(s, p.ipv6Addr()) : s;
    return s.result();
}
std::uint32_t hash(const PrefixKey& k, std::uint32_t seed) {
    Kest::HashState s(seed);
    const Lumo::IpGenPrefix& p = k.prefix();
    p.isIpv4() ? s.mix32(p.ipv4Addr().value()) : p.isIpv6() ? mix16Bytes(s, p.ipv6Addr()) : s;
    return s.mix8(p.family()).mix8(p.length()).mix16(k.mtId().value()).result();
}
template <class Set>
void mixSet(Kest::HashState& s, const Set& set) {
    for (auto it = set.uncheckedBegin(); it != set.uncheckedEnd(); ++it) {
        if constexpr (std::is_same_v<typename Set::key_type, Lumo::IpAddr>) {
            s.mix32(it->value());
        } else {
            mix16Bytes(s, *it);
        }
    }
}
std::uint32_t hash(const NeighborKey& k, std::uint32_t seed) {
    Kest::HashState s(seed);
    const std::uint32_t sizes[] = {k.remoteIpv4Addr().size(), k.remoteIpv6Addr().size(),
                                   k.localIpv4Addr().size(), k.localIpv6Addr().size()};
    if (sizes[0] < 0xff && sizes[1] < 0xff && sizes[2] < 0xff && sizes[3] < 0xff) {
        for (const std::uint32_t n : sizes) {
            s.mix8(static_cast<std::uint8_t>(n));
        }
    } else {
        s.mix32(0xffffffffu);
        for (const std::uint32_t n : sizes) {
            s.mix32(n);
        }
    }
    mixSet(s, k.remoteIpv4Addr());
    mixSet(s, k.remoteIpv6Addr());
    mixSet(s, k.localIpv4Addr());
    mixSet(s, k.localIpv6Addr());
    return mixNodeId(s, k.nodeId()).mix16(k.mtId().value()).result();
}

}  // namespace streamed

// WordHash against HashState over random words and tails of 0 to 3 bytes; then every key type of
// every family and set shape (empty, one member, several, more than 254 in one set), with node ids
// whose bytes may be zero, against the streamed oracle under random seeds.
TEST(HashTest, KeysHashedByWholeWordsMatchTheirStreamedItemsBitForBit) {
    using namespace Routing::IgpCommon;
    std::mt19937 rng(2024u);
    for (int trial = 0; trial < 300; ++trial) {
        const auto seed = static_cast<std::uint32_t>(rng());
        Kest::WordHash words(seed);
        Kest::HashState items(seed);
        for (int i = 0, n = static_cast<int>(rng() % 6); i < n; ++i) {
            const auto w = static_cast<std::uint32_t>(rng());
            words.word(w);
            items.mix32(w);
        }
        const unsigned tailBytes = rng() % 4;
        const std::uint32_t tail =
            tailBytes == 0 ? 0 : static_cast<std::uint32_t>(rng()) >> (32 - 8 * tailBytes);
        for (unsigned b = 0; b < tailBytes; ++b) {
            items.mix8(static_cast<std::uint8_t>(tail >> (8 * b)));
        }
        ASSERT_EQ(words.result(tail, tailBytes), items.result()) << "trial " << trial;
    }

    const auto byte = [&rng] { return static_cast<std::uint8_t>(rng() % 3 == 0 ? 0 : rng()); };
    const auto v4 = [&rng] { return Lumo::IpAddr(static_cast<std::uint32_t>(rng())); };
    const auto bytes = [&]<std::size_t N>(std::array<std::uint8_t, N> b) {
        for (auto& x : b) {
            x = byte();
        }
        return b;
    };
    const auto v6 = [&] { return Lumo::Ip6Addr::fromBytes(bytes(std::array<std::uint8_t, 16>{}).data()); };
    const auto node = [&] { return IgpNodeId::fromBytes(bytes(std::array<std::uint8_t, 7>{}).data()); };
    const auto times = [](unsigned n, auto add) {
        for (; n > 0; --n) {
            add();
        }
    };
    for (int trial = 0; trial < 300; ++trial) {
        SCOPED_TRACE(trial);
        const auto seed = static_cast<std::uint32_t>(rng());
        const IgpMultiTopologyId mt(static_cast<std::uint16_t>(rng() % 2 ? rng() : 0));
        const IgpNodeId id = node();
        EXPECT_EQ(id.hash(seed), streamed::hash(id, seed));

        const Lumo::IpGenAddr addrs[] = {Lumo::IpGenAddr(), Lumo::IpGenAddr(v4()), Lumo::IpGenAddr(v6())};
        const Lumo::IpGenPrefix prefixes[] = {
            Lumo::IpGenPrefix(), Lumo::IpGenPrefix(v4(), static_cast<std::uint8_t>(rng() % 33)),
            Lumo::IpGenPrefix(v6(), static_cast<std::uint8_t>(rng() % 129))};
        for (int f = 0; f < 3; ++f) {
            EXPECT_EQ(addrs[f].hash(seed), streamed::hash(addrs[f], seed)) << addrs[f];
            EXPECT_EQ(prefixes[f].hash(seed), streamed::hash(prefixes[f], seed)) << prefixes[f];
            const PrefixKey pk(prefixes[f], mt);
            EXPECT_EQ(pk.hash(seed), streamed::hash(pk, seed)) << prefixes[f];
        }
        EXPECT_EQ(addrs[2].ipv6().hash(seed),
                  Kest::HashState(seed).mixBytes(addrs[2].ipv6().bytes().data(), 16).result());

        NeighborKey nk(id, mt);
        // Now and then 255 addresses or more (255 exactly first), where the sizes take a word each.
        times(trial % 50 == 0 ? 255 + trial / 5 : rng() % 4, [&] { nk.remoteIpv4AddrIs(v4()); });
        times(rng() % 4, [&] { nk.remoteIpv6AddrIs(v6()); });
        times(rng() % 4, [&] { nk.localIpv4AddrIs(v4()); });
        times(rng() % 4, [&] { nk.localIpv6AddrIs(v6()); });
        EXPECT_EQ(nk.hash(seed), streamed::hash(nk, seed)) << nk.toStrep();
    }
}

}  // namespace
