// Kest::RbTreeMap and Kest::FlatMap share one contract: key order, duplicate refusal, and walks that
// survive changes. Each case runs on both.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "IgpCommon/framework/FlatMap.h"
#include "IgpCommon/framework/RbTreeMap.h"

namespace {

struct Tree {
    template <class V, class Cmp = std::less<int>>
    using Map = Kest::RbTreeMap<int, V, Cmp>;
};
// One inline member: the cases cross from inline storage to heap arrays of 4, 8 and 16.
struct Flat {
    template <class V, class Cmp = std::less<int>>
    using Map = Kest::FlatMap<int, V, 1, Cmp>;
};

class KindNames {
public:
    template <class T>
    static std::string GetName(int) {
        return std::is_same_v<T, Tree> ? "RbTreeMap" : "FlatMap";
    }
};

// Long strings: a member lost or destroyed twice while moving shows under ASan.
std::string val(int k) {
    return std::string(32, 'v') + std::to_string(k);
}

template <class M>
M makeMap(std::initializer_list<int> keys) {
    M m;
    for (int k : keys) {
        m.insert(k, val(k));
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

template <class Kind>
class OrderedMapTest : public ::testing::Test {
protected:
    using Map = typename Kind::template Map<std::string>;
};
using Kinds = ::testing::Types<Tree, Flat>;
TYPED_TEST_SUITE(OrderedMapTest, Kinds, KindNames);

template <class Kind>
class OrderedMapDeathTest : public OrderedMapTest<Kind> {};
TYPED_TEST_SUITE(OrderedMapDeathTest, Kinds, KindNames);

TYPED_TEST(OrderedMapTest, IteratesInTheComparatorsOrderThroughGrowth) {
    using Map = typename TestFixture::Map;
    Map m;
    std::map<int, std::string> model;
    for (int k : {50, 10, 40, 20, 30, -5, 45, 0, 35}) {
        m.insert(k, val(k));
        model[k] = val(k);
        ASSERT_EQ(keysOf(m), keysOf(model));
    }
    typename TypeParam::template Map<int, std::greater<int>> reversed;
    for (int k : {3, 1, 2}) {
        reversed.insert(k, k * 10);
    }
    EXPECT_EQ(keysOf(reversed), (std::vector<int>{3, 2, 1}));
    EXPECT_EQ(*reversed.find(2), 20);
}

TYPED_TEST(OrderedMapTest, FindAssignInsertAndEraseWorkOnTheStoredValues) {
    using Map = typename TestFixture::Map;
    Map m = makeMap<Map>({1, 2, 3});
    EXPECT_EQ(*m.find(2), val(2));
    EXPECT_EQ(m.find(4), nullptr);
    EXPECT_EQ(m.find(0), nullptr);
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
    EXPECT_FALSE(m.erase(0));
    EXPECT_EQ(m.version(), v0);
    m.assign(7, "new");
    EXPECT_NE(m.version(), v0);
    EXPECT_EQ(keysOf(m), (std::vector<int>{1, 2, 3, 4, 7}));
    EXPECT_EQ(m.size(), 5u);

    std::string removed;
    EXPECT_TRUE(m.erase(2, &removed));
    EXPECT_EQ(removed, "overwritten");
    EXPECT_FALSE(m.erase(2, &removed));
    EXPECT_EQ(removed, "overwritten") << "a failed erase leaves the output alone";
    EXPECT_EQ(keysOf(m), (std::vector<int>{1, 3, 4, 7}));
    EXPECT_EQ(*m.find(3), val(3));
    EXPECT_EQ(*m.find(7), "new");

    const Map copy(m);
    Map moved(std::move(m));
    EXPECT_EQ(keysOf(copy), keysOf(moved));
    EXPECT_EQ(*moved.find(4), "four!");
    moved.clear();
    EXPECT_TRUE(moved.empty());
    EXPECT_EQ(moved.begin(), moved.end());
    moved.assign(3, val(3));  // usable again
    EXPECT_EQ(keysOf(moved), std::vector<int>{3});
    EXPECT_EQ(keysOf(copy), (std::vector<int>{1, 3, 4, 7})) << "a copy is independent";
}

TYPED_TEST(OrderedMapDeathTest, InsertingADuplicateKeyAborts) {
    using Map = typename TestFixture::Map;
    Map m = makeMap<Map>({1, 2});
    EXPECT_DEATH(m.insert(2, "again"), "insertion of a duplicate key");
    EXPECT_DEATH(m.insert(1, "again"), "insertion of a duplicate key");
}

// ---- walks that change the map ------------------------------------------------------

template <class Map>
struct WalkCase {
    const char* what;
    std::initializer_list<int> keys;
    std::function<void(Map&, int)> atKey;
    std::vector<int> visited;
    std::vector<int> remaining;
};

TYPED_TEST(OrderedMapTest, AWalkContinuesAfterErasuresInsertionsAndReplacementsWithoutRepeatsOrSkips) {
    using Map = typename TestFixture::Map;
    const WalkCase<Map> cases[] = {
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
             m.insert(k, "back again");
         },
         {1, 2, 3},
         {1, 2, 3}},
        {"clearing ends the walk", {1, 2, 3}, [](Map& m, int) { m.clear(); }, {1}, {}},
    };
    for (const WalkCase<Map>& c : cases) {
        SCOPED_TRACE(c.what);
        Map m = makeMap<Map>(c.keys);
        std::vector<int> visited;
        for (auto it = m.begin(); it != m.end(); ++it) {
            visited.push_back(it->first);
            c.atKey(m, it->first);
        }
        EXPECT_EQ(visited, c.visited);
        EXPECT_EQ(keysOf(m), c.remaining);
    }
}

TYPED_TEST(OrderedMapTest, ReadingAfterTheCurrentMemberWasErasedShowsItsSuccessor) {
    using Map = typename TestFixture::Map;
    Map m = makeMap<Map>({1, 2, 3, 4});
    auto it = ++m.begin();
    m.erase(2);
    EXPECT_EQ(it->first, 3);
    EXPECT_EQ(it->second, val(3));
    ++it;
    EXPECT_EQ(it->first, 4);
    m.erase(4);
    ++it;
    EXPECT_EQ(it, m.end());
}

// A comparison used to move the iterator to the successor, and the next step then skipped it.
TYPED_TEST(OrderedMapTest, ComparingWithEndAfterErasingTheCurrentMemberDoesNotSkipItsSuccessor) {
    using Map = typename TestFixture::Map;
    Map m = makeMap<Map>({1, 2, 3, 4});
    auto it = ++m.begin();
    m.erase(2);
    EXPECT_NE(it, m.end());
    ++it;
    ASSERT_NE(it, m.end());
    EXPECT_EQ(it->first, 3);
}

TYPED_TEST(OrderedMapTest, RandomChangesDuringWalksNeitherRepeatNorSkipSurvivors) {
    std::mt19937 rng(424242u);
    std::uniform_int_distribution<int> keyDist(0, 399);
    for (int round = 0; round < 40; ++round) {
        typename TypeParam::template Map<int> m;
        std::map<int, int> model;
        for (int i = 0; i < round * 5; ++i) {  // from empty and one inline member up to big maps
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
        ASSERT_EQ(m.size(), model.size());
    }
}

}  // namespace
