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
        m.insert(k, std::string("v").append(std::to_string(k)));
    }
    return m;
}

template <class M>
std::vector<int> keysOf(const M& m) {
    std::vector<int> keys;
    for (const auto& [k, v] : m) {
        keys.push_back(k);
    }
    return keys;
}

TEST(RbTreeMapTest, IteratesInTheComparatorsOrderWhateverTheInsertionOrder) {
    EXPECT_EQ(keysOf(makeMap({50, 10, 40, 20, 30, -5})), (std::vector<int>{-5, 10, 20, 30, 40, 50}));
    Kest::RbTreeMap<int, int, std::greater<int>> reversed;
    for (int k : {3, 1, 2}) {
        reversed.insert(k, k * 10);
    }
    EXPECT_EQ(keysOf(reversed), (std::vector<int>{3, 2, 1}));
    EXPECT_EQ(*reversed.find(2), 20);
}

TEST(RbTreeMapTest, FindAssignInsertAndEraseWorkOnTheStoredValues) {
    Map m = makeMap({1, 2, 3});
    EXPECT_EQ(*m.find(2), "v2");
    EXPECT_EQ(m.find(4), nullptr);
    EXPECT_FALSE(m.contains(0));
    *m.findMutable(2) = "changed";
    EXPECT_EQ(*m.find(2), "changed");
    EXPECT_EQ(m.findMutable(9), nullptr);
    m.insert(4, "four") += "!";  // insert hands back the stored value
    EXPECT_EQ(*m.find(4), "four!");

    const auto v0 = m.version();
    EXPECT_EQ(m.assign(2, "overwritten"), "overwritten");
    EXPECT_EQ(m.version(), v0) << "overwriting keeps a walk's place";
    EXPECT_FALSE(m.erase(5));
    EXPECT_EQ(m.version(), v0);
    m.assign(7, "new");
    EXPECT_NE(m.version(), v0);
    EXPECT_EQ(keysOf(m), (std::vector<int>{1, 2, 3, 4, 7}));

    std::string removed;
    EXPECT_TRUE(m.erase(2, &removed));
    EXPECT_EQ(removed, "overwritten");
    EXPECT_FALSE(m.erase(2, &removed));
    EXPECT_EQ(removed, "overwritten") << "a failed erase leaves the output alone";
    EXPECT_EQ(keysOf(m), (std::vector<int>{1, 3, 4, 7}));
    m.clear();
    EXPECT_TRUE(m.empty());
    EXPECT_EQ(m.begin(), m.end());
}

TEST(RbTreeMapDeathTest, InsertingADuplicateKeyAborts) {
    Map m = makeMap({1, 2});
    EXPECT_DEATH(m.insert(2, "again"), "insertion of a duplicate key");
}

// ---- walks that change the map ------------------------------------------------------

struct WalkCase {
    const char* what;
    std::initializer_list<int> keys;
    std::function<void(Map&, int)> atKey;
    std::vector<int> visited;
    std::vector<int> remaining;
};

TEST(RbTreeMapTest, AWalkContinuesAfterErasuresInsertionsAndReplacementsWithoutRepeatsOrSkips) {
    const WalkCase cases[] = {
        {"erasing the current member continues at its successor",
         {1, 2, 3, 4, 5, 6},
         [](Map& m, int k) {
             if (k % 2 == 0) {
                 EXPECT_TRUE(m.erase(k));
             }
         },
         {1, 2, 3, 4, 5, 6},
         {1, 3, 5}},
        {"erasing every member as it is visited",
         {1, 3, 5},
         [](Map& m, int k) { m.erase(k); },
         {1, 3, 5},
         {}},
        {"erasing later members skips only those",
         {1, 2, 3, 4, 5, 6, 7},
         [](Map& m, int k) {
             if (k == 2) {
                 m.erase(3);
                 m.erase(5);
             } else if (k == 6) {
                 m.erase(7);  // the last one: the walk ends here
             }
         },
         {1, 2, 4, 6},
         {1, 2, 4, 6}},
        {"insertions before the current key are not visited, those after are",
         {10, 20, 30},
         [](Map& m, int k) {
             if (k == 20) {
                 for (int n : {5, 15, 25, 40}) {
                     m.insert(n, "new");
                 }
             } else if (k == 25) {
                 m.insert(26, "right after the current one");
             }
         },
         {10, 20, 25, 26, 30, 40},
         {5, 10, 15, 20, 25, 26, 30, 40}},
        {"replacing the current member does not repeat it",
         {1, 2, 3},
         [](Map& m, int k) {
             m.erase(k);
             m.insert(k, "back again");  // same key, new node
         },
         {1, 2, 3},
         {1, 2, 3}},
        {"clearing ends the walk", {1, 2, 3}, [](Map& m, int) { m.clear(); }, {1}, {}},
    };
    for (const WalkCase& c : cases) {
        SCOPED_TRACE(c.what);
        Map m = makeMap(c.keys);
        std::vector<int> visited;
        for (auto it = m.begin(); it != m.end(); ++it) {
            visited.push_back(it->first);
            c.atKey(m, it->first);
        }
        EXPECT_EQ(visited, c.visited);
        EXPECT_EQ(keysOf(m), c.remaining);
    }
}

TEST(RbTreeMapTest, ReadingAfterTheCurrentMemberWasErasedShowsItsSuccessor) {
    Map m = makeMap({1, 2, 3, 4});
    auto it = ++m.begin();
    m.erase(2);
    EXPECT_EQ(it->first, 3);
    EXPECT_EQ(it->second, "v3");
    ++it;
    EXPECT_EQ(it->first, 4);
    m.erase(4);
    ++it;
    EXPECT_EQ(it, m.end());
}

// A comparison used to move the iterator to the successor, and the next step then skipped it.
TEST(RbTreeMapTest, ComparingWithEndAfterErasingTheCurrentMemberDoesNotSkipItsSuccessor) {
    Map m = makeMap({1, 2, 3, 4});
    auto it = ++m.begin();
    m.erase(2);
    EXPECT_NE(it, m.end());
    ++it;
    ASSERT_NE(it, m.end());
    EXPECT_EQ(it->first, 3);
}

TEST(RbTreeMapTest, RandomChangesDuringWalksNeitherRepeatNorSkipSurvivors) {
    std::mt19937 rng(424242u);
    std::uniform_int_distribution<int> keyDist(0, 399);
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
            const unsigned op = rng() % 10;
            if (op < 2) {
                m.erase(cur);
                model.erase(cur);
            } else if (op < 4) {
                m.erase(k);
                model.erase(k);
                touched.insert(k);
            } else if (op < 6 && !m.contains(k)) {
                m.insert(k, -k);
                model[k] = -k;
                touched.insert(k);
            }
        }
        // Every key present from start to end of the walk was visited.
        for (const auto& [k, v] : model) {
            if (touched.count(k) == 0) {
                EXPECT_TRUE(std::binary_search(visited.begin(), visited.end(), k))
                    << "round " << round << " key " << k;
            }
        }
        ASSERT_EQ(keysOf(m), keysOf(model));
    }
}

}  // namespace
