// Kest::RbTreeMap: key order, duplicate refusal, and walks that survive changes.
#include "IgpCommon/framework/RbTreeMap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace {

using Map = Kest::RbTreeMap<int, std::string>;

Map makeMap(std::initializer_list<int> keys) {
    Map m;
    for (int k : keys) {
        m.insert(k, "v" + std::to_string(k));
    }
    return m;
}

std::vector<int> keysOf(const Map& m) {
    std::vector<int> keys;
    for (const auto& [k, v] : m) {
        keys.push_back(k);
    }
    return keys;
}

TEST(RbTreeMapTest, IteratesInKeyOrderWhateverTheInsertionOrder) {
    Map m = makeMap({50, 10, 40, 20, 30, -5});
    EXPECT_EQ(keysOf(m), (std::vector<int>{-5, 10, 20, 30, 40, 50}));
    EXPECT_EQ(m.size(), 6u);

    Kest::RbTreeMap<int, int, std::greater<int>> reversed;
    for (int k : {3, 1, 2}) {
        reversed.insert(k, k * 10);
    }
    std::vector<int> seen;
    for (const auto& [k, v] : reversed) {
        seen.push_back(k);
        EXPECT_EQ(v, k * 10);
    }
    EXPECT_EQ(seen, (std::vector<int>{3, 2, 1}));
}

TEST(RbTreeMapTest, FindAssignAndEraseReturnTheStoredValues) {
    Map m = makeMap({1, 2, 3});
    ASSERT_NE(m.find(2), nullptr);
    EXPECT_EQ(*m.find(2), "v2");
    EXPECT_EQ(m.find(4), nullptr);
    EXPECT_TRUE(m.contains(3));
    EXPECT_FALSE(m.contains(0));

    *m.findMutable(2) = "changed";
    EXPECT_EQ(*m.find(2), "changed");
    EXPECT_EQ(m.findMutable(9), nullptr);

    EXPECT_EQ(m.assign(2, "overwritten"), "overwritten");
    EXPECT_EQ(m.size(), 3u);
    EXPECT_EQ(*m.find(2), "overwritten");
    m.assign(7, "new");
    EXPECT_EQ(keysOf(m), (std::vector<int>{1, 2, 3, 7}));

    std::string removed;
    EXPECT_TRUE(m.erase(2, &removed));
    EXPECT_EQ(removed, "overwritten");
    EXPECT_FALSE(m.erase(2, &removed));
    EXPECT_EQ(removed, "overwritten") << "a failed erase leaves the output alone";
    EXPECT_TRUE(m.erase(7));
    EXPECT_EQ(keysOf(m), (std::vector<int>{1, 3}));

    m.clear();
    EXPECT_TRUE(m.empty());
    EXPECT_EQ(m.begin(), m.end());
}

TEST(RbTreeMapTest, InsertReturnsTheStoredValueForWritingInPlace) {
    Map m;
    std::string& v = m.insert(4, "four");
    v += "!";
    EXPECT_EQ(*m.find(4), "four!");
}

TEST(RbTreeMapDeathTest, InsertingADuplicateKeyAborts) {
    Map m = makeMap({1, 2});
    EXPECT_DEATH(m.insert(2, "again"), "insertion of a duplicate key");
}

TEST(RbTreeMapTest, VersionMovesOnStructuralChangesOnly) {
    Map m = makeMap({1});
    const auto v0 = m.version();
    m.assign(1, "same key");
    EXPECT_EQ(m.version(), v0) << "overwriting keeps the walk's place";
    EXPECT_FALSE(m.erase(5));
    EXPECT_EQ(m.version(), v0);
    m.assign(2, "new key");
    EXPECT_NE(m.version(), v0);
}

// ---- walks that change the map ------------------------------------------------------

TEST(RbTreeMapTest, ErasingTheCurrentMemberContinuesAtItsSuccessor) {
    Map m = makeMap({1, 2, 3, 4, 5, 6});
    std::vector<int> visited;
    for (auto it = m.begin(); it != m.end(); ++it) {
        visited.push_back(it->first);
        if (it->first % 2 == 0) {
            EXPECT_TRUE(m.erase(it->first));
        }
    }
    EXPECT_EQ(visited, (std::vector<int>{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(keysOf(m), (std::vector<int>{1, 3, 5}));

    std::vector<int> all;
    for (auto it = m.begin(); it != m.end(); ++it) {
        all.push_back(it->first);
        m.erase(it->first);
    }
    EXPECT_EQ(all, (std::vector<int>{1, 3, 5}));
    EXPECT_TRUE(m.empty());
}

TEST(RbTreeMapTest, ErasingLaterMembersSkipsOnlyThose) {
    Map m = makeMap({1, 2, 3, 4, 5, 6, 7});
    std::vector<int> visited;
    for (auto it = m.begin(); it != m.end(); ++it) {
        visited.push_back(it->first);
        if (it->first == 2) {
            m.erase(3);
            m.erase(5);
        }
        if (it->first == 6) {
            m.erase(7);  // the last one: the walk ends here
        }
    }
    EXPECT_EQ(visited, (std::vector<int>{1, 2, 4, 6}));
}

TEST(RbTreeMapTest, InsertionsBeforeTheCurrentKeyAreNotVisitedAndThoseAfterAre) {
    Map m = makeMap({10, 20, 30});
    std::vector<int> visited;
    for (auto it = m.begin(); it != m.end(); ++it) {
        const int k = it->first;
        visited.push_back(k);
        if (k == 20) {
            m.insert(5, "before");
            m.insert(15, "just before");
            m.insert(25, "just after");
            m.insert(40, "at the end");
        }
        if (k == 25) {
            m.insert(26, "right after the current one");
        }
    }
    EXPECT_EQ(visited, (std::vector<int>{10, 20, 25, 26, 30, 40}));
}

TEST(RbTreeMapTest, ReplacingTheCurrentMemberDoesNotRepeatIt) {
    Map m = makeMap({1, 2, 3});
    std::vector<int> visited;
    for (auto it = m.begin(); it != m.end(); ++it) {
        const int k = it->first;
        visited.push_back(k);
        m.erase(k);
        m.insert(k, "back again");  // same key, new node
    }
    EXPECT_EQ(visited, (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(*m.find(2), "back again");
}

TEST(RbTreeMapTest, ClearingDuringAWalkEndsIt) {
    Map m = makeMap({1, 2, 3});
    int steps = 0;
    for (auto it = m.begin(); it != m.end(); ++it) {
        ++steps;
        m.clear();
    }
    EXPECT_EQ(steps, 1);
}

TEST(RbTreeMapTest, ReadingAfterTheCurrentMemberWasErasedShowsItsSuccessor) {
    Map m = makeMap({1, 2, 3, 4});
    auto it = m.begin();
    ++it;
    ASSERT_EQ(it->first, 2);
    m.erase(2);
    EXPECT_EQ(it->first, 3);
    EXPECT_EQ(it->second, "v3");
    ++it;
    EXPECT_EQ(it->first, 4);
    m.erase(4);
    ++it;
    EXPECT_EQ(it, m.end());
}

TEST(RbTreeMapTest, ComparingWithEndAfterErasingTheCurrentMemberDoesNotSkipItsSuccessor) {
    Map m = makeMap({1, 2, 3, 4});
    auto it = m.begin();
    ++it;
    ASSERT_EQ(it->first, 2);
    m.erase(2);
    EXPECT_NE(it, m.end());
    ++it;
    ASSERT_NE(it, m.end());
    EXPECT_EQ(it->first, 3);
}

TEST(RbTreeMapTest, RandomChangesDuringWalksNeitherRepeatNorSkipSurvivors) {
    std::mt19937 rng(424242u);
    std::uniform_int_distribution<int> keyDist(0, 399);
    std::uniform_int_distribution<int> opDist(0, 9);
    for (int round = 0; round < 30; ++round) {
        Kest::RbTreeMap<int, int> m;
        std::map<int, int> model;
        for (int i = 0; i < 200; ++i) {
            const int k = keyDist(rng);
            m.assign(k, i);
            model[k] = i;
        }
        std::set<int> touched;  // keys erased or inserted at some point of the walk
        std::vector<int> visited;
        for (auto it = m.begin(); it != m.end(); ++it) {
            const int cur = it->first;
            ASSERT_TRUE(visited.empty() || visited.back() < cur) << "a walk goes strictly up";
            ASSERT_EQ(it->second, model.at(cur));
            visited.push_back(cur);
            const int k = keyDist(rng);
            switch (opDist(rng)) {
                case 0:
                case 1:
                    m.erase(cur);
                    model.erase(cur);
                    break;
                case 2:
                case 3:
                    m.erase(k);
                    model.erase(k);
                    touched.insert(k);
                    break;
                case 4:
                case 5:
                    if (!m.contains(k)) {
                        m.insert(k, -k);
                        model[k] = -k;
                        touched.insert(k);
                    }
                    break;
                default:
                    break;
            }
        }
        // Every key present from start to end of the walk was visited.
        for (const auto& [k, v] : model) {
            if (touched.count(k) == 0) {
                EXPECT_TRUE(std::binary_search(visited.begin(), visited.end(), k))
                    << "round " << round << " key " << k;
            }
        }
        std::vector<int> remaining;
        for (const auto& [k, v] : m) {
            remaining.push_back(k);
        }
        std::vector<int> expected;
        for (const auto& [k, v] : model) {
            expected.push_back(k);
        }
        ASSERT_EQ(remaining, expected);
    }
}

}  // namespace
