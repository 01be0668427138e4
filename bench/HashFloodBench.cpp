// Hash flooding: one node advertising many /128 prefixes chosen to collide in
// the prefix tables, against as many random /128 prefixes, merged in the same
// run. The ratio (crafted time over random time) is what an LSP sender can do
// to us: a table whose keys all share one hash walks all of them on every
// insertion and look-up.
//
//   CraftedVsRandom/<n>  addresses that share one value of the IPv6 address
//                        mixer that prefix keys once used before the seed
//                        (MurmurHash3's 32-bit body over the 16 bytes, solved
//                        for the last word), so they collided under every seed
//   AimedVsRandom/<n>    addresses found by brute force to share the top 12
//                        bits of their hash, and so one home slot, in the
//                        parsed content's prefix table under this process's
//                        seed: what a sender who knew the seed could do
//
// Run it with several seeds and with none; the ratio should not depend on it:
//   IGPCOMMON_HASH_SEED=7 build/default/bench/igp-hash-flood-bench
#include <benchmark/benchmark.h>
#include <time.h>

#include <array>
#include <cstdint>
#include <random>
#include <vector>

#include "IgpCommon/LspDatabase.h"
#include "IgpCommon/ParsedContent.h"

namespace {

namespace IC = Routing::IgpCommon;

using Addr = std::array<std::uint8_t, 16>;

constexpr std::uint32_t c1 = 0xcc9e2d51u;
constexpr std::uint32_t c2 = 0x1b873593u;

constexpr std::uint32_t rotl(std::uint32_t x, int r) {
    return (x << r) | (x >> (32 - r));
}
constexpr std::uint32_t rotr(std::uint32_t x, int r) {
    return (x >> r) | (x << (32 - r));
}
/// The multiplicative inverse of an odd number modulo 2^32 (Newton's iteration).
constexpr std::uint32_t inverse(std::uint32_t a) {
    std::uint32_t x = a;
    for (int i = 0; i < 5; ++i) {
        x *= 2 - a * x;
    }
    return x;
}
static_assert(inverse(c1) * c1 == 1 && inverse(5) * 5 == 1);

std::uint32_t wordAt(const Addr& a, std::size_t i) {
    return std::uint32_t{a[i]} | (std::uint32_t{a[i + 1]} << 8) | (std::uint32_t{a[i + 2]} << 16) |
           (std::uint32_t{a[i + 3]} << 24);
}

/// The old mixer's state after one 32-bit word.
std::uint32_t step(std::uint32_t h, std::uint32_t k) {
    k *= c1;
    k = rotl(k, 15);
    k *= c2;
    h ^= k;
    h = rotl(h, 13);
    return h * 5 + 0xe6546b64u;
}

/// Random first twelve bytes, then the last word that brings the old mixer to `target`.
Addr craftedAddr(std::mt19937& rng, std::uint32_t target) {
    Addr a{};
    for (std::size_t i = 0; i < 12; ++i) {
        a[i] = static_cast<std::uint8_t>(rng());
    }
    a[0] = 0x20;  // 2000::/8, global unicast
    std::uint32_t h = 0;
    for (std::size_t i = 0; i < 12; i += 4) {
        h = step(h, wordAt(a, i));
    }
    // step(h, k) == target, undone operation by operation.
    std::uint32_t k = rotr((target - 0xe6546b64u) * inverse(5), 13) ^ h;
    k *= inverse(c2);
    k = rotr(k, 15);
    k *= inverse(c1);
    for (std::size_t i = 0; i < 4; ++i) {
        a[12 + i] = static_cast<std::uint8_t>(k >> (8 * i));
    }
    return a;
}

Addr randomAddr(std::mt19937& rng) {
    Addr a{};
    for (auto& b : a) {
        b = static_cast<std::uint8_t>(rng());
    }
    a[0] = 0x20;
    return a;
}

IC::PrefixKey keyOf(const Addr& a) {
    return IC::PrefixKey(Lumo::IpGenPrefix(Lumo::Ip6Addr::fromBytes(a.data()), 128),
                         IC::IgpMultiTopologyId(0));
}

std::vector<IC::PrefixKey> crafted(std::size_t n) {
    std::mt19937 rng(1);
    std::vector<IC::PrefixKey> keys;
    std::uint32_t h = 0;
    for (std::size_t i = 0; i < n; ++i) {
        const Addr a = craftedAddr(rng, 0x5eed5eedu);
        if (i == 0) {
            for (std::size_t w = 0; w < 16; w += 4) {
                h = step(h, wordAt(a, w));
            }
            if (h != 0x5eed5eedu) {
                std::abort();  // the inverse is wrong: the benchmark would measure nothing
            }
        }
        keys.push_back(keyOf(a));
    }
    return keys;
}

std::vector<IC::PrefixKey> random(std::size_t n) {
    std::mt19937 rng(2);
    std::vector<IC::PrefixKey> keys;
    for (std::size_t i = 0; i < n; ++i) {
        keys.push_back(keyOf(randomAddr(rng)));
    }
    return keys;
}

/// Random addresses whose hash in the parsed content's prefix table starts with the same 12 bits.
std::vector<IC::PrefixKey> aimed(std::size_t n) {
    std::mt19937 rng(3);
    std::vector<IC::PrefixKey> keys;
    while (keys.size() < n) {
        const IC::PrefixKey k = keyOf(randomAddr(rng));
        if (IC::IsisLspParsedContent::PrefixMap::hashOf(k) >> 20 == 0x5eeu) {
            keys.push_back(k);
        }
    }
    return keys;
}

double threadCpuSeconds() {
    timespec ts{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

/// What the receive path does with one node's LSP: parse it into a content,
/// merge it into a fresh entry, then merge it again unchanged (a refresh).
double mergeSeconds(const std::vector<IC::PrefixKey>& keys) {
    const double t0 = threadCpuSeconds();
    const std::array<std::uint8_t, 7> idBytes{0x19, 0x21, 0x68, 0, 0, 0x01, 0};
    const IC::IgpNodeId id = IC::IgpNodeId::fromBytes(idBytes.data());
    auto db = IC::igpLspDatabaseFactory(IC::igpLevelIsisLevel2);
    auto entry = IC::igpLspFactory(id);
    entry->nodeIs(IC::nodeFactory(id));
    db->lspIs(entry);
    for (int pass = 0; pass < 2; ++pass) {
        auto parsed = IC::isisLspParsedContentFactory();
        for (const IC::PrefixKey& k : keys) {
            parsed->prefixIs(k)->hasValidReachabilityIs(true);
        }
        entry->updatePrefixes(parsed);
    }
    benchmark::DoNotOptimize(entry->prefix().size());
    return threadCpuSeconds() - t0;
}

/// Both key sets merged in turns (which goes first alternates), so that the
/// machine's load weighs on both alike; reports the ratio of their times.
void paired(benchmark::State& state, std::vector<IC::PrefixKey> (*attack)(std::size_t)) {
    const auto n = static_cast<std::size_t>(state.range(0));
    const std::vector<IC::PrefixKey> a = attack(n);
    const std::vector<IC::PrefixKey> b = random(n);
    double ta = 0;
    double tb = 0;
    bool aFirst = true;
    for (auto _ : state) {
        double sa = 0;
        double sb = 0;
        if (aFirst) {
            sa = mergeSeconds(a);
            sb = mergeSeconds(b);
        } else {
            sb = mergeSeconds(b);
            sa = mergeSeconds(a);
        }
        aFirst = !aFirst;
        ta += sa;
        tb += sb;
        state.SetIterationTime(sa + sb);
    }
    const auto iterations = static_cast<double>(state.iterations());
    state.counters["attack_us_per_prefix"] = ta / iterations / static_cast<double>(n) * 1e6;
    state.counters["random_us_per_prefix"] = tb / iterations / static_cast<double>(n) * 1e6;
    state.counters["ratio"] = ta / tb;
}

void craftedVsRandom(benchmark::State& state) {
    paired(state, crafted);
}
void aimedVsRandom(benchmark::State& state) {
    paired(state, aimed);
}

BENCHMARK(craftedVsRandom)
    ->Name("CraftedVsRandom")
    ->Arg(1000)
    ->Arg(4000)
    ->Arg(16000)
    ->UseManualTime()
    ->MinTime(1.0)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(aimedVsRandom)
    ->Name("AimedVsRandom")
    ->Arg(1000)
    ->Arg(4000)
    ->UseManualTime()
    ->MinTime(1.0)
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
