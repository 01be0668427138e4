// The process hash seed: random per process, fixed by IGPCOMMON_HASH_SEED, and keys found to collide
// under one seed scatter under another. The seed is chosen when the library loads, so the process
// properties run in fresh processes ("threadsafe" death tests re-execute this binary) that write
// what they saw to a file.
#include <gtest/gtest.h>

#include <unistd.h>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "IgpCommon/LspDatabase.h"
#include "IgpCommon/framework/Hash.h"

namespace {

using namespace Routing::IgpCommon;  // NOLINT(google-build-using-namespace)

IgpNodeId nodeId(std::uint32_t i) {
    std::array<std::uint8_t, 7> bytes{0x19, 0x21, 0x68};
    for (unsigned b = 0; b < 3; ++b) {
        bytes[3 + b] = static_cast<std::uint8_t>(i >> (16 - 8 * b));
    }
    return IgpNodeId::fromBytes(bytes.data());
}

/// What `body` returns in a fresh process with the seed variable set to `seed` (unset for null).
template <class Body>
std::string inFreshProcess(const char* seed, Body body) {
    static int call = 0;
    ::setenv("IGPCOMMON_TEST_PARENT", std::to_string(::getpid()).c_str(), 0);  // the child's file name
    const std::string path = ::testing::TempDir() + "igpcommon-seed-" + std::getenv("IGPCOMMON_TEST_PARENT") +
                             "-" + std::to_string(call++);
    seed != nullptr ? ::setenv("IGPCOMMON_HASH_SEED", seed, 1) : ::unsetenv("IGPCOMMON_HASH_SEED");
    EXPECT_EXIT(
        {
            std::ofstream(path) << body();
            std::_Exit(0);
        },
        ::testing::ExitedWithCode(0), "");
    ::unsetenv("IGPCOMMON_HASH_SEED");
    std::ifstream in(path);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::remove(path.c_str());
    return text;
}

/// Twelve entries with their nodes, inserted in ascending or descending order, dumped.
template <bool ascending>
std::string dump() {
    auto db = igpLspDatabaseFactory(igpLevelIsisLevel2);
    for (std::uint32_t i = 1; i <= 12; ++i) {
        auto entry = igpLspFactory(nodeId(ascending ? 0x1000u + i : 0x100du - i));
        entry->nodeIs(nodeFactory(entry->nodeId()));
        db->lspIs(entry);
    }
    auto ctx = Umbo::DumpContext::dumpContextIs();
    db->dumpState(ctx, 0);
    return ctx->text();
}

// Every child replays the test up to its own call, so all of them run before anything is asserted.
TEST(HashSeedProcessDeathTest, RandomUnlessTheVariableFixesItAndAMalformedOneStopsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const std::string seeds[] = {inFreshProcess(nullptr, Kest::HashHelper::hashSeed32),
                                 inFreshProcess("", Kest::HashHelper::hashSeed32)};
    const std::string one = inFreshProcess("12345", dump<true>);
    const std::string two = inFreshProcess("12345", dump<false>);
    const std::string other = inFreshProcess("54321", dump<true>);
    ::setenv("IGPCOMMON_HASH_SEED", "4294967296", 1);
    EXPECT_DEATH(std::_Exit(0), "IGPCOMMON_HASH_SEED='4294967296' is not a hash seed");
    ::unsetenv("IGPCOMMON_HASH_SEED");
    EXPECT_FALSE(seeds[0].empty());
    EXPECT_NE(seeds[0], seeds[1]);  // unset or empty: random, and two random seeds agree once in 2^32
    EXPECT_NE(one.find("1921.6800.100c"), std::string::npos) << one;
    EXPECT_EQ(one, two);
    EXPECT_NE(one, other);  // the seed decides the tables' order
}

TEST(HashSeed, ParsesWholeDecimalOrHexNumbersOfThirtyTwoBitsOnly) {
    using Kest::HashHelper;
    EXPECT_EQ(HashHelper::parseSeed("010"), 10u);  // decimal, not octal
    EXPECT_EQ(HashHelper::parseSeed("4294967295"), 0xffffffffu);
    EXPECT_EQ(HashHelper::parseSeed("0X00000000012"), 0x12u);
    for (const char* bad : {"", "0x", "12abc", "4294967296", "0x100000000", "99999999999999999999999", "-1",
                            "+1", " 1", "1 ", "0x-1", "0xg"}) {
        EXPECT_FALSE(HashHelper::parseSeed(bad).has_value()) << "'" << bad << "'";
    }
}

// Node ids found to share one home slot of a 1024-slot table, or one full hash, under one seed
// spread under another.
TEST(HashSeed, NodeIdsCraftedToCollideUnderOneSeedDoNotCollideUnderAnother) {
    const std::uint32_t seedA = 0x1234abcdu ^ 0xA3BE44FEu;  // the database's entry collection salt
    const std::uint32_t seedB = seedA ^ 3u;
    std::vector<IgpNodeId> sameSlot, sameHash;
    std::unordered_map<std::uint32_t, IgpNodeId> byHash;
    for (std::uint32_t i = 0; sameSlot.size() < 64 || sameHash.empty(); ++i) {
        const std::uint32_t h = nodeId(i).hash(seedA);
        if (sameSlot.size() < 64 && (sameSlot.empty() || h >> 22 == sameSlot[0].hash(seedA) >> 22)) {
            sameSlot.push_back(nodeId(i));
        }
        if (const auto [it, inserted] = byHash.emplace(h, nodeId(i)); !inserted && sameHash.empty()) {
            sameHash = {it->second, nodeId(i)};
        }
    }
    std::set<std::uint32_t> slotsUnderB;
    for (const IgpNodeId& id : sameSlot) {
        slotsUnderB.insert(id.hash(seedB) >> 22);
    }
    EXPECT_GE(slotsUnderB.size(), 56u);  // 64 ids over 1024 slots at random fill about 62
    EXPECT_NE(sameHash[0].hash(seedB), sameHash[1].hash(seedB));
}

}  // namespace
