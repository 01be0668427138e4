// Kest::FlatMap: RbTreeMap's contract on a sorted array, across inline and heap storage.
#include "IgpCommon/framework/FlatMap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

// Long strings: a member lost or destroyed twice while moving shows under ASan.
using Map = Kest::FlatMap<int, std::string, 1>;
using Contents = std::vector<std::pair<int, std::string>>;
std::string val(int k) {
    return std::string(32, 'v') + std::to_string(k);
}
Contents contents(const Map& m) {
    Contents v;
    for (const auto& [k, s] : m) {
        v.emplace_back(k, s);
    }
    return v;
}

TEST(FlatMapTest, KeepsKeyOrderAndValuesThroughGrowthCopyMoveAndClear) {
    Map m;
    std::map<int, std::string> model;
    for (int k : {50, 10, 40, 20, 30, -5, 45, 0, 35}) {  // inline, then heap arrays of 4, 8 and 16
        m.insert(k, val(k));
        model[k] = val(k);
        ASSERT_EQ(contents(m), Contents(model.begin(), model.end()));
    }
    const auto v0 = m.version();
    EXPECT_EQ(m.assign(20, "twenty"), "twenty");
    EXPECT_EQ(m.version(), v0) << "overwriting keeps the walk's place";
    EXPECT_FALSE(m.erase(7));
    EXPECT_EQ(m.version(), v0);
    std::string removed;
    EXPECT_TRUE(m.erase(-5, &removed));
    EXPECT_EQ(removed, val(-5));
    EXPECT_EQ(m.find(-5), nullptr);
    ASSERT_NE(m.findMutable(20), nullptr);
    *m.findMutable(20) = "changed";
    EXPECT_EQ(*m.find(20), "changed");

    const Map copy(m);
    Map moved(std::move(m));
    EXPECT_EQ(contents(copy), contents(moved));
    EXPECT_TRUE(m.empty());  // NOLINT(bugprone-use-after-move): a moved-from map is empty
    moved.clear();
    EXPECT_TRUE(moved.empty());
    moved.assign(3, val(3));  // usable again, inline
    EXPECT_EQ(contents(moved), (Contents{{3, val(3)}}));
}

TEST(FlatMapDeathTest, InsertingADuplicateKeyAborts) {
    Map m;
    m.insert(1, "a");
    m.insert(2, "b");
    EXPECT_DEATH(m.insert(2, "again"), "insertion of a duplicate key");
}

TEST(FlatMapTest, RandomChangesDuringWalksNeitherRepeatNorSkipSurvivors) {
    std::mt19937 rng(2718u);
    std::uniform_int_distribution<int> keyDist(0, 99);
    std::uniform_int_distribution<int> opDist(0, 9);
    for (int round = 0; round < 40; ++round) {
        Kest::FlatMap<int, int, 1> m;
        std::map<int, int> model;
        for (int i = 0; i < round; ++i) {  // from empty and one inline member up to heap arrays
            const int k = keyDist(rng);
            m.assign(k, i);
            model[k] = i;
        }
        std::set<int> touched;
        std::vector<int> visited;
        for (auto it = m.begin(); it != m.end(); ++it) {
            const int cur = it->first;
            ASSERT_TRUE(visited.empty() || visited.back() < cur) << "a walk goes strictly up";
            ASSERT_EQ(it->second, model.at(cur));
            visited.push_back(cur);
            const int k = keyDist(rng);
            const int op = opDist(rng);
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
        for (const auto& [k, v] : model) {
            if (touched.count(k) == 0) {
                EXPECT_TRUE(std::binary_search(visited.begin(), visited.end(), k)) << "skipped " << k;
            }
        }
        ASSERT_EQ(m.size(), model.size());
    }
}

}  // namespace
