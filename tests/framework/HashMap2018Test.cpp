// Kest::HashMap2018: one container contract, checked for every shape of member.
#include "IgpCommon/framework/HashMap2018.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <compare>
#include <cstdint>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "IgpCommon/framework/Ptr.h"
#include "tests/support/AllocationCounter.h"

namespace {

// ---- member shapes ------------------------------------------------------------

/// A key whose hash takes only four values (the key's two lowest bits moved to
/// the top), whatever the seed: long runs of equal hashes that must be ordered
/// by key.
struct CollidingKey {
    std::uint32_t v = 0;
    std::uint32_t hash(std::uint32_t /*seed*/) const noexcept { return (v & 3u) << 30; }
    friend bool operator==(const CollidingKey&, const CollidingKey&) = default;
    friend std::strong_ordering operator<=>(const CollidingKey&, const CollidingKey&) = default;
};

/// A counted entity that carries its own key; counts live instances.
struct Entity : Poldo::RefCounted {
    Entity(std::uint32_t k, std::uint32_t p) : key(k), payload(p) { ++live; }
    ~Entity() { --live; }
    std::uint32_t key;
    std::uint32_t payload;
    static inline int live = 0;
};

struct EntityKey {
    const std::uint32_t& operator()(const Poldo::Ptr<Entity>& e) const noexcept { return e->key; }
};

// Each traits type maps a numeric id (and a payload where the member has room for
// one) to the member; ids order like the keys they make.
struct PlainSet {
    using Map = Kest::HashSet<std::uint32_t, 0x51a7u>;
    using Member = Map::member_type;
    static std::uint32_t key(std::uint32_t id) { return id; }
    static Member make(std::uint32_t id, std::uint32_t) { return id; }
    static std::uint32_t id(const Member& m) { return m; }
    static std::optional<std::uint32_t> payload(const Member&) { return std::nullopt; }
    static constexpr std::uint32_t largeCount = 100000;
};

struct InlineSet {
    using Map = Kest::HashSet<std::uint32_t, 0x2a2au, 2>;
    using Member = Map::member_type;
    static std::uint32_t key(std::uint32_t id) { return id; }
    static Member make(std::uint32_t id, std::uint32_t) { return id; }
    static std::uint32_t id(const Member& m) { return m; }
    static std::optional<std::uint32_t> payload(const Member&) { return std::nullopt; }
    static constexpr std::uint32_t largeCount = 100000;
};

struct ExternalKeyMap {
    using Map = Kest::HashMap<std::uint32_t, std::string, 0xe0e0u>;
    using Member = Map::member_type;
    static std::uint32_t key(std::uint32_t id) { return id; }
    // A long string: heap-allocated, so a lost or doubly destroyed member shows under ASan.
    static Member make(std::uint32_t id, std::uint32_t p) {
        return {id, std::string(40, 'x') + std::to_string(p)};
    }
    static std::uint32_t id(const Member& m) { return m.key; }
    static std::optional<std::uint32_t> payload(const Member& m) {
        return static_cast<std::uint32_t>(std::stoul(m.value.substr(40)));
    }
    static constexpr std::uint32_t largeCount = 100000;
};

struct InternalKeyMap {
    using Map = Kest::HashMap2018<Poldo::Ptr<Entity>, std::uint32_t, EntityKey, 0x1e1eu, 3>;
    using Member = Map::member_type;
    static std::uint32_t key(std::uint32_t id) { return id; }
    static Member make(std::uint32_t id, std::uint32_t p) { return Poldo::makePtr<Entity>(id, p); }
    static std::uint32_t id(const Member& m) { return m->key; }
    static std::optional<std::uint32_t> payload(const Member& m) { return m->payload; }
    static constexpr std::uint32_t largeCount = 100000;
};

struct CollidingMap {
    using Map = Kest::HashMap<CollidingKey, std::uint32_t, 0xc011u>;
    using Member = Map::member_type;
    static CollidingKey key(std::uint32_t id) { return {id}; }
    static Member make(std::uint32_t id, std::uint32_t p) { return {{id}, p}; }
    static std::uint32_t id(const Member& m) { return m.key.v; }
    static std::optional<std::uint32_t> payload(const Member& m) { return m.value; }
    // Runs of a quarter of the members make every operation linear: keep it moderate.
    static constexpr std::uint32_t largeCount = 6000;
};

using Shapes = ::testing::Types<PlainSet, InlineSet, ExternalKeyMap, InternalKeyMap, CollidingMap>;

class ShapeNames {
public:
    template <class T>
    static std::string GetName(int) {
        if constexpr (std::is_same_v<T, PlainSet>)
            return "PlainSet";
        if constexpr (std::is_same_v<T, InlineSet>)
            return "InlineSet";
        if constexpr (std::is_same_v<T, ExternalKeyMap>)
            return "ExternalKeyMap";
        if constexpr (std::is_same_v<T, InternalKeyMap>)
            return "InternalKeyMap";
        if constexpr (std::is_same_v<T, CollidingMap>)
            return "CollidingMap";
        return "Unknown";
    }
};

// ---- helpers ------------------------------------------------------------------

template <class Tr>
std::vector<std::uint32_t> walk(const typename Tr::Map& m) {
    std::vector<std::uint32_t> ids;
    for (const auto& member : m) {
        ids.push_back(Tr::id(member));
    }
    return ids;
}

template <class Tr>
std::vector<std::uint32_t> uncheckedWalk(const typename Tr::Map& m) {
    std::vector<std::uint32_t> ids;
    for (auto it = m.uncheckedBegin(); it != m.uncheckedEnd(); ++it) {
        ids.push_back(Tr::id(*it));
    }
    return ids;
}

/// The documented order: strictly increasing (hash, key).
template <class Tr>
::testing::AssertionResult inCanonicalOrder(const typename Tr::Map& m) {
    std::optional<std::pair<std::uint32_t, std::uint32_t>> prev;
    std::uint32_t n = 0;
    for (const auto& member : m) {
        const std::uint32_t id = Tr::id(member);
        const std::pair<std::uint32_t, std::uint32_t> cur{Tr::Map::hashOf(Tr::key(id)), id};
        if (prev && !(*prev < cur)) {
            return ::testing::AssertionFailure()
                   << "member " << id << " (hash " << cur.first << ") follows member " << prev->second
                   << " (hash " << prev->first << ")";
        }
        prev = cur;
        ++n;
    }
    if (n != m.size()) {
        return ::testing::AssertionFailure() << "walk saw " << n << " members, size() says " << m.size();
    }
    return ::testing::AssertionSuccess();
}

template <class Tr>
void insertAll(typename Tr::Map& m, const std::vector<std::uint32_t>& ids) {
    for (std::uint32_t id : ids) {
        m.insert(Tr::make(id, id));
    }
}

std::vector<std::uint32_t> randomIds(std::mt19937& rng, std::size_t n, std::uint32_t range) {
    std::set<std::uint32_t> s;
    std::uniform_int_distribution<std::uint32_t> d(0, range - 1);
    while (s.size() < n) {
        s.insert(d(rng));
    }
    std::vector<std::uint32_t> v(s.begin(), s.end());
    std::shuffle(v.begin(), v.end(), rng);
    return v;
}

template <class Tr>
class HashMap2018Test : public ::testing::Test {
protected:
    void TearDown() override { EXPECT_EQ(Entity::live, 0) << "entities leaked or destroyed twice"; }
};
TYPED_TEST_SUITE(HashMap2018Test, Shapes, ShapeNames);

template <class Tr>
class HashMap2018DeathTest : public HashMap2018Test<Tr> {};
TYPED_TEST_SUITE(HashMap2018DeathTest, Shapes, ShapeNames);

// ---- the contract -------------------------------------------------------------

TYPED_TEST(HashMap2018Test, InsertFindEraseAndDuplicateInsertKeepsTheFirst) {
    using Tr = TypeParam;
    typename Tr::Map m;
    EXPECT_TRUE(m.empty());
    EXPECT_EQ(m.begin(), m.end());
    EXPECT_EQ(m.find(Tr::key(1)), nullptr);
    EXPECT_FALSE(m.erase(Tr::key(1)));

    for (std::uint32_t id : {5u, 1u, 9u, 3u}) {
        const auto [member, inserted] = m.insert(Tr::make(id, 100 + id));
        EXPECT_TRUE(inserted);
        ASSERT_NE(member, nullptr);
        EXPECT_EQ(Tr::id(*member), id);
    }
    EXPECT_EQ(m.size(), 4u);

    const std::uint32_t before = m.version();
    const auto [kept, inserted] = m.insert(Tr::make(9, 999));
    EXPECT_FALSE(inserted);
    EXPECT_EQ(m.size(), 4u);
    EXPECT_EQ(m.version(), before) << "a refused insertion changes nothing";
    ASSERT_NE(kept, nullptr);
    EXPECT_EQ(kept, m.find(Tr::key(9)));
    if (Tr::payload(*kept)) {
        EXPECT_EQ(*Tr::payload(*kept), 109u);
    }

    EXPECT_TRUE(m.contains(Tr::key(3)));
    EXPECT_FALSE(m.contains(Tr::key(4)));
    EXPECT_EQ(m.findIter(Tr::key(4)), m.end());
    ASSERT_NE(m.findIter(Tr::key(1)), m.end());
    EXPECT_EQ(Tr::id(*m.findIter(Tr::key(1))), 1u);

    typename Tr::Member removed{};
    EXPECT_TRUE(m.erase(Tr::key(5), &removed));
    EXPECT_EQ(Tr::id(removed), 5u);
    if (Tr::payload(removed)) {
        EXPECT_EQ(*Tr::payload(removed), 105u);
    }
    EXPECT_FALSE(m.erase(Tr::key(5)));
    EXPECT_EQ(m.size(), 3u);
    EXPECT_TRUE(inCanonicalOrder<Tr>(m));

    m.clear();
    EXPECT_TRUE(m.empty());
    EXPECT_EQ(m.begin(), m.end());
    EXPECT_FALSE(m.contains(Tr::key(1)));
    m.insert(Tr::make(7, 7));
    EXPECT_EQ(walk<Tr>(m), std::vector<std::uint32_t>{7});
}

TYPED_TEST(HashMap2018Test, RandomOperationsAgreeWithAnOrderedModel) {
    using Tr = TypeParam;
    std::mt19937 rng(20180611u);
    std::uniform_int_distribution<std::uint32_t> idDist(0, 2999);
    std::uniform_int_distribution<int> opDist(0, 99);
    typename Tr::Map m;
    std::map<std::uint32_t, std::uint32_t> model;  // id -> payload
    for (int step = 0; step < 30000; ++step) {
        const std::uint32_t id = idDist(rng);
        const int op = opDist(rng);
        if (op < 55) {
            // Half the insertions look up first and make the member only on a miss.
            int made = 0;
            const auto make = [&] {
                ++made;
                return Tr::make(id, static_cast<std::uint32_t>(step));
            };
            const auto key = Tr::key(id);
            const auto [member, inserted] = op < 30   ? m.insert(make())
                                            : op < 45 ? m.findOrInsert(key, make)
                                                      : m.findOrInsert(key, Tr::Map::hashOf(key), make);
            const bool modelInserted = model.emplace(id, static_cast<std::uint32_t>(step)).second;
            ASSERT_EQ(inserted, modelInserted) << "step " << step << " id " << id;
            ASSERT_EQ(made, op < 30 || inserted ? 1 : 0) << "step " << step << " id " << id;
            if (Tr::payload(*member)) {
                ASSERT_EQ(*Tr::payload(*member), model.at(id));
            }
        } else if (op < 90) {
            ASSERT_EQ(m.erase(Tr::key(id)), model.erase(id) == 1) << "step " << step << " id " << id;
        } else {
            const auto key = Tr::key(id);
            const auto* found = op < 95 ? m.find(key) : m.find(key, Tr::Map::hashOf(key));
            ASSERT_EQ(found != nullptr, model.count(id) == 1) << "step " << step << " id " << id;
        }
        ASSERT_EQ(m.size(), model.size());
        if (step % 2500 == 0 || step == 29999) {
            std::vector<std::uint32_t> ids = walk<Tr>(m);
            ASSERT_TRUE(inCanonicalOrder<Tr>(m)) << "step " << step;
            ASSERT_EQ(uncheckedWalk<Tr>(m), ids);
            std::sort(ids.begin(), ids.end());
            std::vector<std::uint32_t> expected;
            for (const auto& [k, v] : model) {
                expected.push_back(k);
            }
            ASSERT_EQ(ids, expected) << "step " << step;
        }
    }
}

TYPED_TEST(HashMap2018Test, EqualContentsIterateAlikeWhateverTheHistory) {
    using Tr = TypeParam;
    std::mt19937 rng(77u);
    for (const std::size_t n : {std::size_t{0}, std::size_t{1}, std::size_t{2}, std::size_t{3},
                                std::size_t{6}, std::size_t{50}, std::size_t{700}}) {
        SCOPED_TRACE("size " + std::to_string(n));
        std::vector<std::uint32_t> finalIds = randomIds(rng, n, 50000);

        typename Tr::Map ascending;
        std::vector<std::uint32_t> sorted = finalIds;
        std::sort(sorted.begin(), sorted.end());
        insertAll<Tr>(ascending, sorted);

        typename Tr::Map descending;
        insertAll<Tr>(descending, std::vector<std::uint32_t>(sorted.rbegin(), sorted.rend()));

        // Grown big first, then deleted back down to the final contents.
        typename Tr::Map shrunk;
        std::vector<std::uint32_t> extras;
        for (std::uint32_t i = 0; i < 4000; ++i) {
            extras.push_back(50000 + i * 7);
        }
        insertAll<Tr>(shrunk, extras);
        insertAll<Tr>(shrunk, finalIds);
        std::shuffle(extras.begin(), extras.end(), rng);
        for (std::uint32_t e : extras) {
            ASSERT_TRUE(shrunk.erase(Tr::key(e)));
        }

        // Churn: every member inserted, removed and inserted again, with noise in between.
        typename Tr::Map churned;
        for (std::uint32_t id : finalIds) {
            churned.insert(Tr::make(id, 1));
            churned.insert(Tr::make(id + 100000, 1));
        }
        for (std::uint32_t id : finalIds) {
            churned.erase(Tr::key(id));
        }
        std::shuffle(finalIds.begin(), finalIds.end(), rng);
        for (std::uint32_t id : finalIds) {
            churned.insert(Tr::make(id, 2));
            churned.erase(Tr::key(id + 100000));
        }

        const std::vector<std::uint32_t> reference = walk<Tr>(ascending);
        ASSERT_EQ(reference.size(), n);
        EXPECT_TRUE(inCanonicalOrder<Tr>(ascending));
        EXPECT_EQ(walk<Tr>(descending), reference);
        EXPECT_EQ(walk<Tr>(shrunk), reference);
        EXPECT_EQ(walk<Tr>(churned), reference);
        EXPECT_EQ(uncheckedWalk<Tr>(shrunk), reference);
    }
}

TYPED_TEST(HashMap2018Test, CopyAndMovePreserveContentsAndOrder) {
    using Tr = TypeParam;
    std::mt19937 rng(5u);
    for (const std::size_t n : {std::size_t{0}, std::size_t{2}, std::size_t{3}, std::size_t{300}}) {
        SCOPED_TRACE("size " + std::to_string(n));
        typename Tr::Map original;
        insertAll<Tr>(original, randomIds(rng, n, 10000));
        const std::vector<std::uint32_t> reference = walk<Tr>(original);

        typename Tr::Map copy(original);
        EXPECT_EQ(walk<Tr>(copy), reference);
        EXPECT_EQ(copy.size(), original.size());

        typename Tr::Map assigned;
        insertAll<Tr>(assigned, {123456, 234567, 345678, 456789});
        assigned = original;
        EXPECT_EQ(walk<Tr>(assigned), reference);
        EXPECT_FALSE(assigned.contains(Tr::key(123456)));

        // The copy is independent of the original.
        copy.insert(Tr::make(999999, 0));
        if (!reference.empty()) {
            copy.erase(Tr::key(reference.front()));
        }
        EXPECT_EQ(walk<Tr>(original), reference);

        typename Tr::Map moved(std::move(assigned));
        EXPECT_EQ(walk<Tr>(moved), reference);
        EXPECT_TRUE(assigned.empty());  // NOLINT(bugprone-use-after-move): the moved-from state is specified
        EXPECT_EQ(assigned.begin(), assigned.end());
        assigned.insert(Tr::make(42, 42));
        EXPECT_EQ(walk<Tr>(assigned), std::vector<std::uint32_t>{42});

        typename Tr::Map moveAssigned;
        insertAll<Tr>(moveAssigned, {1, 2, 3});
        moveAssigned = std::move(moved);
        EXPECT_EQ(walk<Tr>(moveAssigned), reference);
        EXPECT_TRUE(moved.empty());  // NOLINT(bugprone-use-after-move)
        for (std::uint32_t id : reference) {
            EXPECT_TRUE(moveAssigned.contains(Tr::key(id)));
        }
        typename Tr::Map& self = moveAssigned;
        moveAssigned = self;
        EXPECT_EQ(walk<Tr>(moveAssigned), reference);
    }
}

TYPED_TEST(HashMap2018Test, RemovingTheCurrentMemberDuringIterationVisitsEveryOtherMemberOnce) {
    using Tr = TypeParam;
    // Three members fit the inline arrays and get every subset removed; a big table gets a random
    // half, every member, and none but the last.
    for (const std::size_t n : {std::size_t{3}, std::size_t{3000}}) {
        for (const bool throughIterator : {true, false}) {
            for (unsigned pattern = 0; pattern < (n == 3 ? 8u : 3u); ++pattern) {
                SCOPED_TRACE(std::string(throughIterator ? "erase(it)" : "erase(key)") + " size " +
                             std::to_string(n) + " pattern " + std::to_string(pattern));
                std::mt19937 rng(900u + pattern);
                typename Tr::Map m;
                const std::vector<std::uint32_t> ids = randomIds(rng, n, 1000000);
                insertAll<Tr>(m, ids);
                const std::vector<std::uint32_t> order = walk<Tr>(m);

                std::vector<std::uint32_t> visited;
                std::set<std::uint32_t> erased;
                std::bernoulli_distribution coin(0.5);
                for (auto it = m.begin(); it != m.end(); ++it) {
                    const std::uint32_t id = Tr::id(*it);
                    const bool drop = n == 3         ? ((pattern >> visited.size()) & 1u) != 0
                                      : pattern == 0 ? coin(rng)
                                      : pattern == 1 ? true
                                                     : id == order.back();
                    visited.push_back(id);
                    if (drop) {
                        typename Tr::Member removed{};
                        if (throughIterator) {
                            m.erase(it, &removed);
                        } else {
                            ASSERT_TRUE(m.erase(Tr::key(id), &removed));
                        }
                        ASSERT_EQ(Tr::id(removed), id);
                        erased.insert(id);
                    }
                }
                EXPECT_EQ(visited, order) << "each member once, in the order of an undisturbed walk";
                EXPECT_EQ(m.size(), ids.size() - erased.size());
                for (std::uint32_t id : ids) {
                    ASSERT_EQ(m.contains(Tr::key(id)), erased.count(id) == 0) << id;
                }
                EXPECT_TRUE(inCanonicalOrder<Tr>(m));
            }
        }
    }
}

TYPED_TEST(HashMap2018Test, LookupsAndRefusedChangesDuringIterationAreHarmless) {
    using Tr = TypeParam;
    typename Tr::Map m;
    insertAll<Tr>(m, {10, 20, 30, 40, 50});
    std::vector<std::uint32_t> visited;
    for (auto it = m.begin(); it != m.end(); ++it) {
        visited.push_back(Tr::id(*it));
        EXPECT_FALSE(m.insert(Tr::make(30, 0)).second);
        EXPECT_FALSE(m.erase(Tr::key(31)));
        EXPECT_TRUE(m.contains(Tr::key(50)));
    }
    std::sort(visited.begin(), visited.end());
    EXPECT_EQ(visited, (std::vector<std::uint32_t>{10, 20, 30, 40, 50}));
}

TYPED_TEST(HashMap2018Test, ReplaceSwapsTheMemberOfTheSameKeyAndReturnsTheOldOne) {
    using Tr = TypeParam;
    typename Tr::Map m;
    insertAll<Tr>(m, {1, 2, 3, 4});
    const std::vector<std::uint32_t> order = walk<Tr>(m);
    const std::uint32_t before = m.version();
    typename Tr::Member old = m.replace(m.findIter(Tr::key(3)), Tr::make(3, 333));
    EXPECT_EQ(Tr::id(old), 3u);
    EXPECT_NE(m.version(), before);
    EXPECT_EQ(walk<Tr>(m), order);
    if (Tr::payload(old)) {
        EXPECT_EQ(*Tr::payload(old), 3u);
        EXPECT_EQ(*Tr::payload(*m.find(Tr::key(3))), 333u);
    }
}

TYPED_TEST(HashMap2018Test, ALargeTableStaysCorrect) {
    using Tr = TypeParam;
    const std::uint32_t n = Tr::largeCount;
    typename Tr::Map m;
    // A fixed permutation of 0..n-1 scaled apart, so ids are neither dense nor sorted.
    for (std::uint32_t i = 0; i < n; ++i) {
        const auto id =
            static_cast<std::uint32_t>((std::uint64_t{i} * 7919u) % n * 3);  // 7919: prime, coprime to n
        ASSERT_TRUE(m.insert(Tr::make(id, i)).second) << i;
    }
    ASSERT_EQ(m.size(), n);
    for (std::uint32_t i = 0; i < n; ++i) {
        ASSERT_TRUE(m.contains(Tr::key(i * 3))) << i;
        ASSERT_FALSE(m.contains(Tr::key(i * 3 + 1))) << i;
    }
    EXPECT_TRUE(inCanonicalOrder<Tr>(m));
    for (std::uint32_t i = 0; i < n; i += 2) {
        ASSERT_TRUE(m.erase(Tr::key(i * 3)));
    }
    EXPECT_EQ(m.size(), n / 2);
    for (std::uint32_t i = 0; i < n; ++i) {
        ASSERT_EQ(m.contains(Tr::key(i * 3)), i % 2 == 1) << i;
    }
    EXPECT_TRUE(inCanonicalOrder<Tr>(m));

    typename Tr::Map reserved;
    reserved.reserve(n);
    for (const auto& member : m) {
        reserved.insert(Tr::make(Tr::id(member), 0));
    }
    EXPECT_EQ(walk<Tr>(reserved), walk<Tr>(m));
}

// ---- programming errors -------------------------------------------------------

TYPED_TEST(HashMap2018DeathTest, RemovingAnotherMemberDuringIterationAborts) {
    using Tr = TypeParam;
    typename Tr::Map m;
    insertAll<Tr>(m, {1, 2, 3});  // in place where the map has room for three
    const std::vector<std::uint32_t> order = walk<Tr>(m);
    EXPECT_DEATH(
        {
            auto it = m.begin();
            m.erase(Tr::key(order[2]));
            ++it;
        },
        "version_ == hashMap_->version\\(\\)");
    EXPECT_DEATH(
        {
            auto it = m.findIter(Tr::key(order[2]));
            m.erase(Tr::key(order[1]));  // the one before: the current member shifts
            ++it;
        },
        "version_ == hashMap_->version\\(\\)");
    EXPECT_DEATH(
        {
            auto it = m.begin();
            m.erase(it);
            m.erase(Tr::key(order[2]));  // a second removal
            ++it;
        },
        "version_ == hashMap_->version\\(\\)");
}

TYPED_TEST(HashMap2018DeathTest, InsertingDuringIterationAborts) {
    using Tr = TypeParam;
    typename Tr::Map m;
    insertAll<Tr>(m, {1, 2, 3});
    EXPECT_DEATH(
        {
            auto it = m.begin();
            m.insert(Tr::make(4, 4));
            ++it;
        },
        "version_ == hashMap_->version\\(\\)");
    EXPECT_DEATH(
        {
            auto it = m.begin();
            m.insert(Tr::make(4, 4));
            (void)Tr::id(*it);
        },
        "version_ == hashMap_->version\\(\\)");
}

TYPED_TEST(HashMap2018DeathTest, ReplacingWithAMemberOfAnotherKeyAborts) {
    using Tr = TypeParam;
    typename Tr::Map m;
    insertAll<Tr>(m, {1, 2, 3});
    EXPECT_DEATH(m.replace(m.findIter(Tr::key(2)), Tr::make(5, 0)),
                 "fwkKey\\(\\) == KeyFunktor\\(\\)\\( _value \\)");
}

// ---- collisions ---------------------------------------------------------------

TEST(HashMap2018CollisionTest, EqualHashesIterateInKeyOrder) {
    CollidingMap::Map m;
    std::mt19937 rng(3u);
    const std::vector<std::uint32_t> ids = randomIds(rng, 500, 100000);
    insertAll<CollidingMap>(m, ids);
    std::vector<std::uint32_t> expected = ids;
    std::sort(expected.begin(), expected.end(),
              [](std::uint32_t a, std::uint32_t b) { return std::pair(a & 3u, a) < std::pair(b & 3u, b); });
    EXPECT_EQ(walk<CollidingMap>(m), expected);
}

struct ConstantHashKey {
    std::uint32_t v = 0;
    // The last bucket: the run always spills past the end of the table.
    std::uint32_t hash(std::uint32_t) const noexcept { return 0xffffffffu; }
    friend bool operator==(const ConstantHashKey&, const ConstantHashKey&) = default;
    friend std::strong_ordering operator<=>(const ConstantHashKey&, const ConstantHashKey&) = default;
};

TEST(HashMap2018CollisionTest, ASingleHashValueDegradesToASortedRun) {
    Kest::HashSet<ConstantHashKey, 7u, 2> s;
    for (std::uint32_t i = 0; i < 400; ++i) {
        s.insert(ConstantHashKey{(i * 37u) % 400u});
    }
    ASSERT_EQ(s.size(), 400u);
    for (std::uint32_t i = 0; i < 400; i += 3) {
        ASSERT_TRUE(s.erase(ConstantHashKey{i}));
    }
    std::uint32_t prev = 0;
    bool first = true;
    std::uint32_t count = 0;
    for (const ConstantHashKey& k : s) {
        EXPECT_NE(k.v % 3, 0u);
        if (!first) {
            EXPECT_LT(prev, k.v);
        }
        prev = k.v;
        first = false;
        ++count;
    }
    EXPECT_EQ(count, s.size());
    EXPECT_FALSE(s.contains(ConstantHashKey{3}));
    EXPECT_TRUE(s.contains(ConstantHashKey{4}));
}

TEST(HashMap2018SaltTest, TheSeedIsTheProcessSeedXorTheSalt) {
    using A = Kest::HashSet<std::uint32_t, 0u>;
    using B = Kest::HashSet<std::uint32_t, 0xdeadbeefu>;
    EXPECT_EQ(A::seed(), Kest::HashHelper::hashSeed32());
    EXPECT_EQ(B::seed(), Kest::HashHelper::hashSeed32() ^ 0xdeadbeefu);
    EXPECT_EQ(B::hashOf(12345u), Kest::HashState(B::seed()).mix32(12345u).result());
}

TEST(HashMap2018InlineTest, OutgrowingTheInlineArrayKeepsTheOrderAndClearReturnsToIt) {
    using Set = InlineSet::Map;  // room for two in place
    Set grown;
    Set fresh;
    for (std::uint32_t m = 1; m <= 3; ++m) {
        grown.insert(m);
    }
    for (std::uint32_t m = 3; m >= 2; --m) {
        fresh.insert(m);
    }
    grown.erase(1u);  // two members again, still in the heap table
    EXPECT_EQ(walk<InlineSet>(grown), walk<InlineSet>(fresh))
        << "a heap table and the inline array order alike";

    grown.clear();
    const testsupport::AllocationScope scope;
    for (std::uint32_t m = 3; m >= 2; --m) {
        grown.insert(m);
    }
    EXPECT_EQ(scope.count(), 0u) << "cleared, the members are in place again";
    EXPECT_EQ(walk<InlineSet>(grown), walk<InlineSet>(fresh));
}

}  // namespace
