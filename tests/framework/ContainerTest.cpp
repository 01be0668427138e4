// Every map and set of the framework (Kest::RbTreeMap, Kest::FlatMap and the member shapes of
// Kest::HashMap2018) against a std::map model, then what each family promises during a walk.
#include <gtest/gtest.h>

#include <algorithm>
#include <compare>
#include <cstdint>
#include <map>
#include <memory>
#include <numeric>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "IgpCommon/framework/FlatMap.h"
#include "IgpCommon/framework/HashMap2018.h"
#include "IgpCommon/framework/Ptr.h"
#include "IgpCommon/framework/RbTreeMap.h"
#include "tests/support/AllocationCounter.h"

namespace {

using Id = std::uint32_t;
using Entries = std::vector<std::pair<Id, Id>>;  // (id, payload) in walk order

// Long strings: a member lost or destroyed twice while moving shows under ASan.
std::string val(Id p) {
    return std::string(32, 'v') + std::to_string(p);
}
Id payloadOf(const std::string& s) {
    return static_cast<Id>(std::stoul(s.substr(32)));
}

template <class Tr>
Entries walk(const auto& m) {
    Entries out;
    for (const auto& e : m) {
        out.push_back(Tr::entry(e));
    }
    return out;
}

// ---- adapters: one vocabulary over both families ---------------------------------------

template <class M>
struct Ordered {
    using Map = M;
    static constexpr Id large = 3000;
    static constexpr bool anyChange = true;
    static bool add(Map& m, Id id, Id p) { return !m.contains(id) && m.insert(id, val(p)) == val(p); }
    static Id stored(Id, Id p) { return p; }
    static std::optional<Id> payload(const Map& m, Id id) {
        const std::string* v = m.find(id);
        return v != nullptr ? std::optional<Id>(payloadOf(*v)) : std::nullopt;
    }
    /// The payload of the member erased, if there was one; the iterator, if given, is at it.
    static std::optional<Id> drop(Map& m, Id id, typename Map::iterator* = nullptr) {
        std::string out = val(123456);
        const bool done = m.erase(id, &out);
        EXPECT_EQ(out == val(123456), !done) << "a failed erase leaves the output alone";
        return done ? std::optional<Id>(payloadOf(out)) : std::nullopt;
    }
    static std::pair<Id, Id> entry(const auto& e) { return {e.first, payloadOf(e.second)}; }
    static bool before(Id a, Id b) { return a < b; }
    static void extraChecks(Map&, const Entries&) {}
};
struct Tree : Ordered<Kest::RbTreeMap<Id, std::string>> {};
// One inline member: histories cross from inline storage to heap arrays of 4, 8 and 16 and back.
struct Flat : Ordered<Kest::FlatMap<Id, std::string, 1>> {};

/// A key whose hash ignores the seed: (v & Mask) << 30 | Or.
template <Id Mask, Id Or>
struct FixedHashKey {
    Id v = 0;
    std::uint32_t hash(std::uint32_t) const noexcept { return (v & Mask) << 30 | Or; }
    friend std::strong_ordering operator<=>(const FixedHashKey&, const FixedHashKey&) = default;
};
using CollidingKey = FixedHashKey<3, 0>;               // four hash values: long runs ordered by key
using ConstantHashKey = FixedHashKey<0, 0xffffffffu>;  // the last bucket: a run that spills past the end
/// A counted entity that carries its own key; counts live instances.
struct Entity : Poldo::RefCounted {
    Entity(Id k, Id p) : key(k), payload(p) { ++live; }
    ~Entity() { --live; }
    Id key, payload;
    static inline int live = 0;
};
struct EntityKey {
    const Id& operator()(const Poldo::Ptr<Entity>& e) const noexcept { return e->key; }
};

Id idOf(Id v) {
    return v;
}
template <Id Mask, Id Or>
Id idOf(FixedHashKey<Mask, Or> k) {
    return k.v;
}

// A shape maps an id (and a payload where the member has room for one) to a member.
template <class M, class K = Id>
struct SetShape {
    using Map = M;
    static K key(Id id) { return K{id}; }
    static K make(Id id, Id) { return K{id}; }
    static std::pair<Id, Id> entry(const K& m) { return {idOf(m), idOf(m)}; }
};
struct ExternalKeyShape {
    using Map = Kest::HashMap<Id, std::string, 0xe0e0u>;
    static Id key(Id id) { return id; }
    static Map::member_type make(Id id, Id p) { return {id, val(p)}; }
    static std::pair<Id, Id> entry(const Map::member_type& m) { return {m.key, payloadOf(m.value)}; }
};
struct InternalKeyShape {
    using Map = Kest::HashMap2018<Poldo::Ptr<Entity>, Id, EntityKey, 0x1e1eu, 3>;
    static Id key(Id id) { return id; }
    static Poldo::Ptr<Entity> make(Id id, Id p) { return Poldo::makePtr<Entity>(id, p); }
    static std::pair<Id, Id> entry(const Poldo::Ptr<Entity>& m) { return {m->key, m->payload}; }
};

template <class S, Id Large = 100000>
struct Hashed : S {
    using Map = typename S::Map;
    using Member = typename Map::member_type;
    static constexpr Id large = Large;
    static constexpr bool anyChange = false;
    static bool add(Map& m, Id id, Id p) {
        const auto key = S::key(id);
        int made = 0;
        const auto make = [&] { return ++made, S::make(id, p); };
        // Four ways in, which must agree; the lookups build a member only on a miss.
        const auto [member, inserted] = p % 4 == 0   ? m.insert(make())
                                        : p % 4 == 1 ? m.insert(make(), Map::hashOf(key))
                                        : p % 4 == 2 ? m.findOrInsert(key, make)
                                                     : m.findOrInsert(key, Map::hashOf(key), make);
        EXPECT_EQ(made, p % 4 < 2 || inserted ? 1 : 0);
        EXPECT_EQ(member, m.find(key));
        return inserted && S::entry(*member).first == id;
    }
    // A set's member is its key: what it stores is the id.
    static Id stored(Id id, Id p) { return std::is_same_v<Member, decltype(S::key(0))> ? id : p; }
    static std::optional<Id> payload(const Map& m, Id id) {
        const auto key = S::key(id);
        const Member* found = id % 2 == 0 ? m.find(key) : m.find(key, Map::hashOf(key));
        EXPECT_EQ(m.contains(key), found != nullptr);
        return found != nullptr ? std::optional<Id>(S::entry(*found).second) : std::nullopt;
    }
    static std::optional<Id> drop(Map& m, Id id, typename Map::iterator* it = nullptr) {
        Member out{};
        if (!(it != nullptr ? (m.erase(*it, &out), true) : m.erase(S::key(id), &out))) {
            return std::nullopt;
        }
        EXPECT_EQ(S::entry(out).first, id);
        return S::entry(out).second;
    }
    static bool before(Id a, Id b) {
        return std::pair(Map::hashOf(S::key(a)), a) < std::pair(Map::hashOf(S::key(b)), b);
    }
    // The unchecked walk and a table reserved ahead. (sameMembers and replace are the neighbor keys'
    // and the database's, and checked there.)
    static void extraChecks(Map& m, const Entries& walked) {
        for (auto [it, i] = std::pair(m.uncheckedBegin(), std::size_t{0}); it != m.uncheckedEnd();
             ++it, ++i) {
            ASSERT_EQ(S::entry(*it), walked.at(i));
        }
        Map reserved;
        reserved.reserve(m.size());
        for (const auto& [id, p] : walked) {
            reserved.insert(S::make(id, p));
            ASSERT_EQ(S::entry(*m.findIter(S::key(id))).first, id);
        }
        EXPECT_EQ(walk<Hashed>(reserved), walked);
    }
};
struct PlainSet : Hashed<SetShape<Kest::HashSet<Id, 0x51a7u>>> {};
struct InlineSet : Hashed<SetShape<Kest::HashSet<Id, 0x2a2au, 2>>> {};
struct ExternalKeyMap : Hashed<ExternalKeyShape> {};
struct InternalKeyMap : Hashed<InternalKeyShape> {};
// Runs of a quarter of the members make every operation linear: keep it moderate.
struct CollidingSet : Hashed<SetShape<Kest::HashSet<CollidingKey, 0xc011u>, CollidingKey>, 6000> {};
struct ConstantSet : Hashed<SetShape<Kest::HashSet<ConstantHashKey, 7u, 2>, ConstantHashKey>, 400> {};

template <class Tr>
class ContainerTest : public ::testing::Test {
protected:
    void TearDown() override { EXPECT_EQ(Entity::live, 0) << "entities leaked or destroyed twice"; }
};
using Kinds = ::testing::Types<Tree, Flat, PlainSet, InlineSet, ExternalKeyMap, InternalKeyMap, CollidingSet,
                               ConstantSet>;
TYPED_TEST_SUITE(ContainerTest, Kinds);

// Grows to about two thousand members, shrinks to none, churns a few and then fills a large table:
// every storage size both ways. Equal contents walk in the documented order whatever the history.
TYPED_TEST(ContainerTest, ARandomHistoryMatchesAModelAndWalksInTheDocumentedOrder) {
    using Tr = TypeParam;
    std::mt19937 rng(20180611u);
    typename Tr::Map m;
    std::map<Id, Id> model;
    const auto step = [&](Id id, Id p, unsigned op) {
        const auto it = model.find(id);
        const std::optional<Id> had = it != model.end() ? std::optional<Id>(it->second) : std::nullopt;
        if (op < 60) {
            ASSERT_EQ(Tr::add(m, id, p), !had) << id;
            model.emplace(id, Tr::stored(id, p));
        } else if (op < 90) {
            ASSERT_EQ(Tr::drop(m, id), had) << id;
            model.erase(id);
        } else {
            ASSERT_EQ(Tr::payload(m, id), had);
        }
        ASSERT_EQ(m.size(), model.size());
        ASSERT_EQ(m.empty(), model.empty());
    };
    const auto check = [&] {
        Entries expected(model.begin(), model.end());
        std::sort(expected.begin(), expected.end(),
                  [](auto& a, auto& b) { return Tr::before(a.first, b.first); });
        ASSERT_EQ(walk<Tr>(m), expected);
        Tr::extraChecks(m, expected);
        // Copies are independent; a moved-from map is empty and usable. On the heap: g++ -O3 cannot
        // see that a map without inline members reads its storage only once it holds a table.
        const auto copy = std::make_unique<typename Tr::Map>(m);
        Tr::add(*copy, 999999, 0);
        const auto moved = std::make_unique<typename Tr::Map>();
        Tr::add(*moved, 1, 1);
        *moved = std::move(*copy);
        EXPECT_TRUE(copy->empty() && Tr::add(*copy, 42, 42));  // NOLINT(bugprone-use-after-move)
        *copy = *moved;
        EXPECT_TRUE(Tr::drop(*copy, 999999) && Tr::drop(*moved, 999999));
        ASSERT_EQ(walk<Tr>(*copy), expected);
        ASSERT_EQ(walk<Tr>(*moved), expected);
        ASSERT_EQ(walk<Tr>(m), expected);
    };
    for (Id i = 0; i < 6000; ++i) {
        step(rng() % 3000, i, rng() % 100);
        if (i % 1500 == 0) {
            check();
        }
    }
    std::vector<Id> all(3000);
    std::iota(all.begin(), all.end(), 0);
    std::shuffle(all.begin(), all.end(), rng);
    for (const Id id : all) {
        step(id, 0, 60);
    }
    for (Id i = 0; i < 1500; ++i) {
        step(rng() % 6, i, rng() % 100);
        check();
    }
    m.clear();
    model.clear();
    EXPECT_EQ(m.begin(), m.end());
    // Ids neither dense nor sorted (7919 is prime, coprime to every size used).
    for (Id i = 0; i < Tr::large; ++i) {
        step(static_cast<Id>(std::uint64_t{i} * 7919u % Tr::large * 3), i, 0);
    }
    for (Id i = 0; i < Tr::large; i += 2) {
        step(i * 3, 0, 60);
        step(i * 3 + 1, 0, 95);
    }
    check();
}

// After each change a walk goes on at the first member, in the map's order, after the last one it
// showed. Ordered maps allow any change; hash tables erasing the current member, by key or through
// the iterator. Refused changes are harmless. Reading or comparing an ordered map's iterator after
// its member was erased shows that successor too; a comparison used to move the iterator there and
// the next step skip it.
TYPED_TEST(ContainerTest, AWalkGoesOnAtTheSuccessorOfTheLastMemberItShowedWhateverChanged) {
    using Tr = TypeParam;
    std::mt19937 rng(424242u);
    const auto before = [](Id a, Id b) { return Tr::before(a, b); };
    for (Id round = 0; round < 64; ++round) {
        // From empty and inline members up to big tables; dropping the current member never, at
        // random or always.
        const Id n = round < 60 ? round * round / 16 : 3000;
        const unsigned dropShare = round % 3 * 50;
        typename Tr::Map m;
        std::map<Id, Id, decltype(before)> model(before);
        for (Id i = 0; i < n; ++i) {
            const Id k = rng() % (2 * n + 1);
            if (Tr::add(m, k, k)) {
                model.emplace(k, Tr::stored(k, k));
            }
        }
        auto expect = model.begin();
        for (auto it = m.begin(); it != m.end(); ++it) {
            ASSERT_NE(expect, model.end()) << round;
            ASSERT_EQ(Tr::entry(*it), (std::pair<Id, Id>(*expect))) << round;
            Id cur = expect->first;
            ASSERT_FALSE(Tr::add(m, cur, 7));
            ASSERT_FALSE(Tr::drop(m, 4000001).has_value());
            const Id k = rng() % (2 * n + 1);
            if (rng() % 100 < dropShare) {
                ASSERT_EQ(Tr::drop(m, cur, rng() % 2 == 0 ? &it : nullptr), expect->second);
                model.erase(cur);
                if (Tr::anyChange && model.upper_bound(cur) != model.end() && rng() % 3 != 0) {
                    ASSERT_NE(it, m.end());
                    if (rng() % 2 == 0) {
                        ASSERT_EQ(Tr::entry(*it).first, model.upper_bound(cur)->first);
                        cur = Tr::entry(*it).first;
                    }
                }
            } else if constexpr (Tr::anyChange) {
                const unsigned op = rng() % 6;
                if (op < 2) {
                    Tr::drop(m, k);
                    model.erase(k);
                } else if (op < 4) {
                    EXPECT_EQ(m.assign(k, val(k + 1000)), val(k + 1000));
                    model[k] = k + 1000;
                } else if (op == 4) {
                    Tr::drop(m, cur);
                    m.insert(cur, val(cur + 2000));
                    model[cur] = cur + 2000;
                } else if (round % 10 == 0) {
                    m.clear();
                    model.clear();
                }
            }
            expect = model.upper_bound(cur);
        }
        ASSERT_EQ(expect, model.end()) << round;
    }
}

template <class Kind>
class OrderedMapDeathTest : public ::testing::Test {};
using OrderedKinds = ::testing::Types<Tree, Flat>;
TYPED_TEST_SUITE(OrderedMapDeathTest, OrderedKinds);

TYPED_TEST(OrderedMapDeathTest, InsertingADuplicateKeyAborts) {
    typename TypeParam::Map m;
    m.insert(1, "a");
    m.insert(2, "b");
    EXPECT_DEATH(m.insert(2, "again"), "insertion of a duplicate key");
}

// ---- the hash tables: guards and seeds ---------------------------------------------------

template <class Tr>
class HashMap2018DeathTest : public ContainerTest<Tr> {};
using HashKinds =
    ::testing::Types<PlainSet, InlineSet, ExternalKeyMap, InternalKeyMap, CollidingSet, ConstantSet>;
TYPED_TEST_SUITE(HashMap2018DeathTest, HashKinds);

TYPED_TEST(HashMap2018DeathTest, ChangingAnythingButTheCurrentMemberDuringAWalkAborts) {
    using Tr = TypeParam;
    typename Tr::Map m;
    for (Id id : {1u, 2u, 3u}) {  // in place where the map has room for three
        Tr::add(m, id, id);
    }
    const Entries order = walk<Tr>(m);
    const char* guard = "version_ == hashMap_->version\\(\\)";
    EXPECT_DEATH(
        {
            auto it = m.findIter(Tr::key(order[2].first));
            Tr::drop(m, order[1].first);  // the one before: the current member shifts
            ++it;
        },
        guard);
    EXPECT_DEATH(
        {
            auto it = m.begin();
            Tr::add(m, 4, 4);
            (void)*it;
        },
        guard);
    EXPECT_DEATH(m.replace(m.findIter(Tr::key(2)), Tr::make(5, 0)),
                 "fwkKey\\(\\) == KeyFunktor\\(\\)\\( _value \\)");
}

TEST(HashMap2018Edges, TheSeedIsTheProcessSeedXorTheSaltAndClearReturnsToTheInlineArray) {
    using B = Kest::HashSet<Id, 0xdeadbeefu>;
    EXPECT_EQ((Kest::HashSet<Id, 0u>::seed()), Kest::HashHelper::hashSeed32());
    EXPECT_EQ(B::seed(), Kest::HashHelper::hashSeed32() ^ 0xdeadbeefu);
    EXPECT_EQ(B::hashOf(12345u), Kest::HashState(B::seed()).mix32(12345u).result());
    InlineSet::Map grown;
    for (Id m = 1; m <= 3; ++m) {
        grown.insert(m);
    }
    grown.clear();
    const testsupport::AllocationScope scope;
    grown.reserve(2);
    grown.insert(3u);
    grown.insert(2u);
    EXPECT_EQ(scope.count(), 0u) << "cleared, or reserved for no more than fit, the members are in place";
}

}  // namespace
