// The process hash seed: random per process, fixed by IGPCOMMON_HASH_SEED, and what it buys: keys
// found to collide under one seed are scattered under another.
//
// A seed is chosen once, when the library loads, so the first two properties need fresh processes:
// gtest's "threadsafe" death-test style re-executes this binary for each EXPECT_EXIT, with the
// environment of the moment; the child writes what it saw to a file that the parent reads back.
#include <gtest/gtest.h>

#include <unistd.h>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <unordered_map>
#include <vector>

#include "IgpCommon/LspDatabase.h"
#include "IgpCommon/framework/Hash.h"

namespace {

using namespace Routing::IgpCommon;

constexpr const char* seedVariable = "IGPCOMMON_HASH_SEED";

/// Sets (or, with null, unsets) an environment variable for a scope and restores it after.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const char* value) : name_(name) {
        if (const char* old = std::getenv(name)) {
            old_ = old;
            hadOld_ = true;
        }
        if (value != nullptr) {
            ::setenv(name, value, 1);
        } else {
            ::unsetenv(name);
        }
    }
    ~ScopedEnv() {
        if (hadOld_) {
            ::setenv(name_, old_.c_str(), 1);
        } else {
            ::unsetenv(name_);
        }
    }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    const char* name_;
    std::string old_;
    bool hadOld_ = false;
};

using Body = void (*)(std::ostream&);

/// Runs `body` in a fresh process of this binary with the seed variable set to `seed` (unset for
/// null) and returns what it wrote. Parent and child must agree on the file: the parent's process
/// id travels to the child in the environment.
std::string inFreshProcess(const char* seed, Body body, int call) {
    if (std::getenv("IGPCOMMON_TEST_PARENT") == nullptr) {
        ::setenv("IGPCOMMON_TEST_PARENT", std::to_string(::getpid()).c_str(), 0);
    }
    const std::string path = ::testing::TempDir() + "igpcommon-seed-" + std::getenv("IGPCOMMON_TEST_PARENT") +
                             "-" + ::testing::UnitTest::GetInstance()->current_test_info()->name() + "-" +
                             std::to_string(call);
    const std::string savedStyle = GTEST_FLAG_GET(death_test_style);
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    {
        const ScopedEnv env(seedVariable, seed);
        EXPECT_EXIT(
            {
                {
                    std::ofstream out(path);
                    body(out);
                }
                std::_Exit(0);
            },
            ::testing::ExitedWithCode(0), "");
    }
    GTEST_FLAG_SET(death_test_style, savedStyle);
    std::ifstream in(path);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::remove(path.c_str());
    return text;
}

void writeSeed(std::ostream& out) {
    out << Kest::HashHelper::hashSeed32();
}

IgpNodeId nodeId(std::uint8_t a, std::uint8_t b, std::uint8_t c) {
    const std::array<std::uint8_t, 7> bytes{0x19, 0x21, 0x68, a, b, c, 0};
    return IgpNodeId::fromBytes(bytes.data());
}

/// Twelve entries, each with its node and three prefixes, inserted in the order of `ids`.
void writeDump(std::ostream& out, const std::vector<std::uint8_t>& ids) {
    auto db = igpLspDatabaseFactory(igpLevelIsisLevel2);
    for (const std::uint8_t n : ids) {
        auto entry = igpLspFactory(nodeId(0, 0x10, n));
        entry->nodeIs(nodeFactory(entry->nodeId()));
        entry->node()->hostNameIs(std::string("r").append(std::to_string(n)));
        for (std::uint32_t p = 1; p <= 3; ++p) {
            entry->prefixIs(
                PrefixKey(Lumo::IpGenPrefix(Lumo::IpAddr(0x0a000000u | (n << 8) | p), 32),
                          IgpMultiTopologyId(0)),
                prefixFactory(PrefixKey(Lumo::IpGenPrefix(Lumo::IpAddr(0x0a000000u | (n << 8) | p), 32),
                                        IgpMultiTopologyId(0))));
        }
        db->lspIs(entry);
    }
    auto ctx = Umbo::DumpContext::dumpContextIs();
    db->dumpState(ctx, 0);
    out << ctx->text();
}

void writeDumpAscending(std::ostream& out) {
    writeDump(out, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
}

void writeDumpDescending(std::ostream& out) {
    writeDump(out, {12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1});
}

TEST(HashSeedProcessDeathTest, TwoProcessesWithoutTheVariableChooseDifferentSeeds) {
    const std::string first = inFreshProcess(nullptr, writeSeed, 0);
    const std::string second = inFreshProcess(nullptr, writeSeed, 1);
    ASSERT_FALSE(first.empty());
    ASSERT_FALSE(second.empty());
    // Two random 32-bit seeds agree once in 2^32 runs.
    EXPECT_NE(first, second);
}

TEST(HashSeedProcessDeathTest, TheVariableMakesDumpsReproducibleWhateverTheInsertionOrder) {
    const std::string one = inFreshProcess("12345", writeDumpAscending, 0);
    const std::string two = inFreshProcess("12345", writeDumpDescending, 1);
    const std::string other = inFreshProcess("54321", writeDumpAscending, 2);
    ASSERT_NE(one.find("r12"), std::string::npos) << one;
    EXPECT_EQ(one, two);
    // The dump follows the tables' order, which the seed decides: another seed, another order.
    EXPECT_NE(one, other);
}

// An attacker who knew the seed could pick node ids that share one home bucket, or one full hash,
// and turn every lookup into a walk over all of them. Searched under seed A, the same ids spread
// out under seed B. Identifiers whose non-zero bytes form the same sequence hash alike under any
// seed (the identifier's hash skips zero bytes), so the search takes ids without zero bytes.
TEST(HashSeed, NodeIdsCraftedToCollideUnderOneSeedDoNotCollideUnderAnother) {
    constexpr std::uint32_t lspSalt = 0xA3BE44FEu;  // the database's entry collection
    const std::uint32_t seedA = 0x1234abcdu ^ lspSalt;
    const std::uint32_t seedB = 0x1234abceu ^ lspSalt;
    const auto bucket = [](std::uint32_t hash) { return hash >> 22; };  // home slot in a 1024-slot table

    std::vector<IgpNodeId> sameBucket;
    std::unordered_map<std::uint32_t, IgpNodeId> byHash;
    std::vector<IgpNodeId> sameHash;
    std::uint32_t targetBucket = 0;
    for (std::uint32_t i = 0; i < 255u * 255u * 255u && (sameBucket.size() < 64 || sameHash.empty()); ++i) {
        const IgpNodeId id =
            nodeId(static_cast<std::uint8_t>(1 + i % 255), static_cast<std::uint8_t>(1 + i / 255 % 255),
                   static_cast<std::uint8_t>(1 + i / (255 * 255)));
        const std::uint32_t h = id.hash(seedA);
        if (i == 0) {
            targetBucket = bucket(h);
        }
        if (bucket(h) == targetBucket && sameBucket.size() < 64) {
            sameBucket.push_back(id);
        }
        if (sameHash.empty()) {
            const auto [it, inserted] = byHash.emplace(h, id);
            if (!inserted) {
                sameHash = {it->second, id};
            }
        }
    }
    ASSERT_EQ(sameBucket.size(), 64u);
    ASSERT_EQ(sameHash.size(), 2u);
    ASSERT_FALSE(sameHash[0] == sameHash[1]);
    ASSERT_EQ(sameHash[0].hash(seedA), sameHash[1].hash(seedA));

    std::set<std::uint32_t> bucketsUnderB;
    for (const IgpNodeId& id : sameBucket) {
        bucketsUnderB.insert(bucket(id.hash(seedB)));
    }
    // 64 ids over 1024 buckets at random fill about 62 of them; one bucket was the attack.
    EXPECT_GE(bucketsUnderB.size(), 56u);
    EXPECT_NE(sameHash[0].hash(seedB), sameHash[1].hash(seedB));
}

}  // namespace
