// Random sequences of LSP merges into one entry, drawn as the merge fuzzer draws them but from a
// seeded generator: after every merge the entry is what the merge model says (so history does not
// matter), and a mirror fed by notifications alone equals it (no change goes unpublished).
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>

#include "IgpCommon/framework/Hash.h"
#include "support/EntryMirror.h"

namespace {

using namespace Routing::IgpCommon;

/// FuzzedDataProvider's interface over a seeded generator. Integers are small half of the time, so
/// that keys recur (and merges keep members) and values repeat (and merges meet equal ones).
struct RandomSource {
    std::mt19937 rng;

    template <class T>
    T ConsumeIntegralInRange(T lo, T hi) {
        return static_cast<T>(lo + rng() % (static_cast<std::uint64_t>(hi - lo) + 1));
    }
    template <class T>
    T ConsumeIntegral() {
        return static_cast<T>(rng() % 2 ? rng() % 4 : rng());
    }
    bool ConsumeBool() { return rng() % 2 != 0; }
    std::string ConsumeRandomLengthString(std::size_t) { return std::string(rng() % 3, 'r'); }
};

TEST(IgpLspMergeProperty, EveryMergeLeavesWhatTheModelSaysAndPublishesEveryChange) {
    const std::uint32_t seed = 20240611u;
    SCOPED_TRACE("generator seed " + std::to_string(seed) + ", hash seed " +
                 std::to_string(Kest::HashHelper::hashSeed32()) + " (IGPCOMMON_HASH_SEED reproduces it)");
    RandomSource source{std::mt19937(seed)};
    const IgpNodeId id = IgpTest::pools::nodeIdOf(1, 0);
    for (int iteration = 0; iteration < 400; ++iteration) {
        auto entry = igpLspFactory(id);
        entry->nodeIs(nodeFactory(id));
        const IgpTest::Mirror mirror(entry);
        for (int m = 1 + static_cast<int>(source.rng() % 5); m > 0; --m) {
            std::string fault = IgpTest::mergeFault(*entry, IgpTest::drawLsp(id, source));
            if (fault.empty()) {
                fault = mirror.fault();
            }
            ASSERT_EQ(fault, "") << "iteration " << iteration;
        }
    }
}

}  // namespace
