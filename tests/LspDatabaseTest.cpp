// IgpLspDatabase and IgpLsp: adding, replacing and removing entries and members, what each
// publishes, who keeps which reference, and that nothing is left once everything is dropped.
#include "IgpCommon/LspDatabase.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <any>
#include <array>
#include <cstdint>
#include <vector>

#include "IgpCommon/ParsedContent.h"
#include "IgpCommon/framework/Exceptions.h"
#include "support/RecordingObserver.h"

namespace {

using namespace Routing::IgpCommon;
using Lumo::IpAddr;

IgpNodeId nodeId(std::uint8_t last, std::uint8_t pseudonode = 0) {
    const std::array<std::uint8_t, 7> b{0x19, 0x21, 0x68, 0x00, 0x10, last, pseudonode};
    return IgpNodeId::fromBytes(b.data());
}

NeighborKey nbrKey(std::uint8_t node, std::uint32_t localV4) {
    NeighborKey k(nodeId(node), IgpMultiTopologyId(0));
    k.localIpv4AddrIs(IpAddr(localV4));
    return k;
}

PrefixKey pfxKey(std::uint32_t addr, std::uint8_t len) {
    return PrefixKey(Lumo::IpGenPrefix(IpAddr(addr), len), IgpMultiTopologyId(0));
}

// Records the key and, as a raw pointer, the old value: a copied Ptr would hold a count and
// disturb the use counts the tests look at.
template <class K, class V>
class RawRecorder {
public:
    explicit RawRecorder(Poldo::Publisher& p) : rec_(p) {
        rec_.onRecord([](const Poldo::Notification& n, IgpTest::Record& r) {
            const V* old = n.oldValue<V>();
            r.extra = static_cast<const void*>(old != nullptr ? old->get() : nullptr);
        });
    }
    std::size_t size() const { return rec_.size(); }
    Poldo::AttrId attr(std::size_t i) const { return rec_[i].attr; }
    const K* key(std::size_t i) const { return rec_[i].template keyAs<K>(); }
    bool hasOld(std::size_t i) const { return rec_[i].hasOldValue; }
    const void* old(std::size_t i) const { return std::any_cast<const void*>(rec_[i].extra); }

private:
    IgpTest::RecordingObserver<K> rec_;
};

Poldo::Ptr<IgpLsp> entryWithNode(const IgpNodeId& id) {
    auto e = igpLspFactory(id);
    e->nodeIs(nodeFactory(id));
    return e;
}

// ---- database -----------------------------------------------------------------------------

TEST(IgpLspDatabase, StoringTheStoredEntryAgainPublishesNothingAndKeepsCounts) {
    auto db = igpLspDatabaseFactory(igpLevelIsisLevel2);
    auto e = entryWithNode(nodeId(1));
    db->lspIs(e);
    RawRecorder<IgpNodeId, Poldo::Ptr<IgpLsp>> rec(db->publisher());
    const std::uint32_t before = e->useCount();

    db->lspIs(e);

    EXPECT_EQ(rec.size(), 0u);
    EXPECT_EQ(e->useCount(), before);
    EXPECT_EQ(db->lspCount(), 1u);
}

TEST(IgpLspDatabase, AnotherObjectWithTheSameNodeIdReplacesTheFirstWhichSurvivesUnchanged) {
    auto db = igpLspDatabaseFactory(igpLevelIsisLevel2);
    auto first = entryWithNode(nodeId(1));
    const Node* firstNode = first->nodeRawPtr();
    first->neighborIs(nbrKey(2, 0x0a000001), neighborFactory(nbrKey(2, 0x0a000001)));
    db->lspIs(first);
    RawRecorder<IgpNodeId, Poldo::Ptr<IgpLsp>> rec(db->publisher());
    auto second = entryWithNode(nodeId(1));

    db->lspIs(second);

    ASSERT_EQ(rec.size(), 1u);
    EXPECT_EQ(rec.attr(0), IgpLspDatabase::Attr::lsp);
    ASSERT_NE(rec.key(0), nullptr);
    EXPECT_EQ(*rec.key(0), nodeId(1));
    ASSERT_TRUE(rec.hasOld(0));
    EXPECT_EQ(rec.old(0), first.get());
    EXPECT_EQ(db->lsp(nodeId(1)), second);
    EXPECT_EQ(db->lspCount(), 1u);
    // The database let go of the first; only this test holds it, and it is as it was.
    EXPECT_EQ(first->useCount(), 1u);
    EXPECT_EQ(first->nodeRawPtr(), firstNode);
    EXPECT_EQ(first->neighbor().size(), 1u);
    EXPECT_NE(first->neighbor(nbrKey(2, 0x0a000001)), nullptr);
}

TEST(IgpLspDatabase, NullEntryThrowsAndChangesNothing) {
    auto db = igpLspDatabaseFactory(igpLevelIsisLevel1);
    auto e = entryWithNode(nodeId(1));
    db->lspIs(e);
    RawRecorder<IgpNodeId, Poldo::Ptr<IgpLsp>> rec(db->publisher());

    EXPECT_THROW(db->lspIs(nullptr), Kest::MutatorNullPointerException);

    EXPECT_EQ(rec.size(), 0u);
    EXPECT_EQ(db->lspCount(), 1u);
    EXPECT_EQ(db->lsp(nodeId(1)), e);
    EXPECT_EQ(db->level(), igpLevelIsisLevel1);
}

TEST(IgpLspDatabase, DeletingAnUnknownNodeReturnsNullAndPublishesNothing) {
    auto db = igpLspDatabaseFactory(igpLevelIsisLevel2);
    db->lspIs(entryWithNode(nodeId(1)));
    RawRecorder<IgpNodeId, Poldo::Ptr<IgpLsp>> rec(db->publisher());

    EXPECT_EQ(db->lspDel(nodeId(2)), nullptr);
    EXPECT_EQ(db->lspDel(nodeId(1, 1)), nullptr);

    EXPECT_EQ(rec.size(), 0u);
    EXPECT_EQ(db->lspCount(), 1u);
}

TEST(IgpLspDatabase, DeleteHandsBackTheEntryWithTheCollectionsReference) {
    auto db = igpLspDatabaseFactory(igpLevelIsisLevel2);
    auto e = entryWithNode(nodeId(1));
    IgpLsp* raw = e.get();
    db->lspIs(e);
    e.reset();
    ASSERT_EQ(raw->useCount(), 1u);
    RawRecorder<IgpNodeId, Poldo::Ptr<IgpLsp>> rec(db->publisher());

    const Poldo::Ptr<IgpLsp> removed = db->lspDel(nodeId(1));

    ASSERT_EQ(removed.get(), raw);
    EXPECT_EQ(removed->useCount(), 1u);
    EXPECT_EQ(db->lspCount(), 0u);
    EXPECT_EQ(db->lsp(nodeId(1)), nullptr);
    ASSERT_EQ(rec.size(), 1u);
    EXPECT_EQ(*rec.key(0), nodeId(1));
    EXPECT_EQ(rec.old(0), raw);
}

TEST(IgpLspDatabase, PseudonodeByteAloneMakesADifferentKey) {
    auto db = igpLspDatabaseFactory(igpLevelIsisLevel2);
    auto router = entryWithNode(nodeId(1));
    auto lan = entryWithNode(nodeId(1, 3));
    db->lspIs(router);
    db->lspIs(lan);

    EXPECT_EQ(db->lspCount(), 2u);
    EXPECT_EQ(db->lsp(nodeId(1)), router);
    EXPECT_EQ(db->lsp(nodeId(1, 3)), lan);
    EXPECT_EQ(db->lspDel(nodeId(1, 3)), lan);
    EXPECT_EQ(db->lsp(nodeId(1)), router);
}

TEST(IgpLspDatabase, DeleteAllPublishesOneRemovalPerEntryWhenObserved) {
    auto db = igpLspDatabaseFactory(igpLevelIsisLevel2);
    std::vector<Poldo::Ptr<IgpLsp>> held;
    for (std::uint8_t i = 1; i <= 5; ++i) {
        held.push_back(entryWithNode(nodeId(i)));
        db->lspIs(held.back());
    }
    RawRecorder<IgpNodeId, Poldo::Ptr<IgpLsp>> rec(db->publisher());

    db->lspDelAll();

    EXPECT_EQ(db->lspCount(), 0u);
    ASSERT_EQ(rec.size(), held.size());
    std::vector<bool> seen(held.size(), false);
    for (std::size_t i = 0; i < rec.size(); ++i) {
        EXPECT_EQ(rec.attr(i), IgpLspDatabase::Attr::lsp);
        ASSERT_NE(rec.key(i), nullptr);
        const std::size_t at = rec.key(i)->byte(Routing::IgpCommon::IgpNodeIdIndex(5)) - 1u;
        ASSERT_LT(at, held.size());
        EXPECT_FALSE(seen[at]) << "entry " << at << " removed twice";
        seen[at] = true;
        EXPECT_EQ(rec.old(i), held[at].get());
    }
    for (const auto& e : held) {
        EXPECT_EQ(e->useCount(), 1u);
    }
}

TEST(IgpLspDatabase, DeleteAllEmptiesTheDatabaseWhetherOrNotItWasEverObserved) {
    for (const bool observedOnce : {false, true}) {
        SCOPED_TRACE(observedOnce ? "observed once, then not" : "never observed");
        auto db = igpLspDatabaseFactory(igpLevelIsisLevel2);
        std::vector<Poldo::Ptr<IgpLsp>> held;
        for (std::uint8_t i = 1; i <= 4; ++i) {
            held.push_back(entryWithNode(nodeId(i)));
            db->lspIs(held.back());
        }
        if (observedOnce) {
            IgpTest::RecordingObserver<> gone(db->publisher());
        }
        EXPECT_EQ(db->publisher().initialState(), !observedOnce);

        db->lspDelAll();

        EXPECT_EQ(db->lspCount(), 0u);
        for (const auto& e : held) {
            EXPECT_EQ(e->useCount(), 1u);
            EXPECT_EQ(db->lsp(e->nodeId()), nullptr);
        }
    }
}

// ---- entry ---------------------------------------------------------------------------------

TEST(IgpLsp, NodeIsSamePointerIsANoOpAndAnotherPublishesThePrevious) {
    auto e = igpLspFactory(nodeId(1));
    auto n1 = nodeFactory(nodeId(1));
    e->nodeIs(n1);
    RawRecorder<int, Poldo::Ptr<Node>> rec(e->publisher());

    e->nodeIs(n1);
    EXPECT_EQ(rec.size(), 0u);

    auto n2 = nodeFactory(nodeId(1));
    e->nodeIs(n2);
    ASSERT_EQ(rec.size(), 1u);
    EXPECT_EQ(rec.attr(0), IgpLsp::Attr::node);
    EXPECT_EQ(rec.old(0), n1.get());
    EXPECT_EQ(e->node(), n2);
    EXPECT_EQ(n1->useCount(), 1u);
}

// The neighbor and prefix collections share one contract; each test runs it on both.
struct NeighborSide {
    using Key = NeighborKey;
    using Value = Neighbor;
    static constexpr Kest::AttrId attr = IgpLsp::Attr::neighbor;
    static Key key(int i) {
        return nbrKey(static_cast<std::uint8_t>(i), 0x0a000000u + static_cast<unsigned>(i));
    }
    static Poldo::Ptr<Value> make(const Key& k) { return neighborFactory(k); }
    static void put(IgpLsp& e, const Key& k, const Poldo::Ptr<Value>& v) { e.neighborIs(k, v); }
    static Poldo::Ptr<Value> get(const IgpLsp& e, const Key& k) { return e.neighbor(k); }
    static Poldo::Ptr<Value> del(IgpLsp& e, const Key& k) { return e.neighborDel(k); }
    static void delAll(IgpLsp& e) { e.neighborDelAll(); }
    static std::uint32_t size(const IgpLsp& e) { return e.neighbor().size(); }
};
struct PrefixSide {
    using Key = PrefixKey;
    using Value = Prefix;
    static constexpr Kest::AttrId attr = IgpLsp::Attr::prefix;
    static Key key(int i) { return pfxKey(0x0a000000u + (static_cast<unsigned>(i) << 8), 24); }
    static Poldo::Ptr<Value> make(const Key& k) { return prefixFactory(k); }
    static void put(IgpLsp& e, const Key& k, const Poldo::Ptr<Value>& v) { e.prefixIs(k, v); }
    static Poldo::Ptr<Value> get(const IgpLsp& e, const Key& k) { return e.prefix(k); }
    static Poldo::Ptr<Value> del(IgpLsp& e, const Key& k) { return e.prefixDel(k); }
    static void delAll(IgpLsp& e) { e.prefixDelAll(); }
    static std::uint32_t size(const IgpLsp& e) { return e.prefix().size(); }
};

template <class Side>
class IgpLspMembers : public ::testing::Test {};
using Sides = ::testing::Types<NeighborSide, PrefixSide>;
TYPED_TEST_SUITE(IgpLspMembers, Sides);

TYPED_TEST(IgpLspMembers, PutSameIsNoOpReplacePublishesPreviousNullRemoves) {
    using S = TypeParam;
    auto e = igpLspFactory(nodeId(1));
    const auto k = S::key(1);
    auto a = S::make(k);
    S::put(*e, k, a);
    RawRecorder<typename S::Key, Poldo::Ptr<typename S::Value>> rec(e->publisher());

    S::put(*e, k, a);
    EXPECT_EQ(rec.size(), 0u);
    EXPECT_EQ(a->useCount(), 2u);

    auto b = S::make(k);
    S::put(*e, k, b);
    ASSERT_EQ(rec.size(), 1u);
    EXPECT_EQ(rec.attr(0), S::attr);
    EXPECT_EQ(*rec.key(0), k);
    EXPECT_EQ(rec.old(0), a.get());
    EXPECT_EQ(S::get(*e, k), b);
    EXPECT_EQ(a->useCount(), 1u);

    S::put(*e, k, nullptr);
    ASSERT_EQ(rec.size(), 2u);
    EXPECT_EQ(*rec.key(1), k);
    EXPECT_EQ(rec.old(1), b.get());
    EXPECT_EQ(S::size(*e), 0u);
    EXPECT_EQ(b->useCount(), 1u);

    S::put(*e, S::key(2), nullptr);  // absent and null: nothing at all
    EXPECT_EQ(rec.size(), 2u);
    EXPECT_EQ(S::size(*e), 0u);
}

TYPED_TEST(IgpLspMembers, DeleteHandsBackTheMemberAndUnknownKeyGivesNull) {
    using S = TypeParam;
    auto e = igpLspFactory(nodeId(1));
    const auto k = S::key(1);
    S::put(*e, k, S::make(k));
    const auto* raw = S::get(*e, k).get();
    RawRecorder<typename S::Key, Poldo::Ptr<typename S::Value>> rec(e->publisher());

    EXPECT_EQ(S::del(*e, S::key(2)), nullptr);
    EXPECT_EQ(rec.size(), 0u);

    const auto removed = S::del(*e, k);
    ASSERT_EQ(removed.get(), raw);
    EXPECT_EQ(removed->useCount(), 1u);
    EXPECT_EQ(S::size(*e), 0u);
    ASSERT_EQ(rec.size(), 1u);
    EXPECT_EQ(*rec.key(0), k);
    EXPECT_EQ(rec.old(0), raw);
}

template <class Side>
class IgpLspMembersDeathTest : public ::testing::Test {};
TYPED_TEST_SUITE(IgpLspMembersDeathTest, Sides);

TYPED_TEST(IgpLspMembersDeathTest, PuttingAMemberUnderAnotherKeyAborts) {
    using S = TypeParam;
    auto e = igpLspFactory(nodeId(1));
    EXPECT_DEATH(S::put(*e, S::key(1), S::make(S::key(2))), "key == Map::keyOf\\(value\\)");
}

TYPED_TEST(IgpLspMembers, DeleteAllPublishesOneRemovalEachWhenObservedAndEmptiesEitherWay) {
    using S = TypeParam;
    for (const bool observed : {false, true}) {
        SCOPED_TRACE(observed ? "observed" : "never observed");
        auto e = igpLspFactory(nodeId(1));
        std::vector<Poldo::Ptr<typename S::Value>> held;
        for (int i = 1; i <= 6; ++i) {
            held.push_back(S::make(S::key(i)));
            S::put(*e, S::key(i), held.back());
        }
        IgpTest::RecordingObserver<typename S::Key> rec;
        if (observed) {
            rec.attach(e->publisher());
        }

        S::delAll(*e);

        EXPECT_EQ(S::size(*e), 0u);
        for (const auto& v : held) {
            EXPECT_EQ(v->useCount(), 1u);
        }
        if (observed) {
            ASSERT_EQ(rec.size(), held.size());
            std::vector<typename S::Key> keys;
            for (const auto& r : rec.records()) {
                EXPECT_EQ(r.attr, S::attr);
                EXPECT_TRUE(r.hasOldValue);
                keys.push_back(*r.template keyAs<typename S::Key>());
            }
            std::sort(keys.begin(), keys.end());
            for (int i = 1; i <= 6; ++i) {
                EXPECT_TRUE(std::binary_search(keys.begin(), keys.end(), S::key(i)))
                    << "no removal of member " << i;
            }
        }
    }
}

// ---- nothing left behind --------------------------------------------------------------------

TEST(IgpLspDatabaseLifetime, DroppingTheDatabaseAndEveryEntryPointerLeavesNoObjectAlive) {
    const std::uint64_t total0 = Drimm::AllocTracker::totalLive();
    std::vector<Drimm::AllocTracker*> trackers{&IgpLspDatabase::allocTracker(),
                                               &IgpLsp::allocTracker(),
                                               &Node::allocTracker(),
                                               &Neighbor::allocTracker(),
                                               &Prefix::allocTracker(),
                                               &IgpFlexAlgoPrefixMetric::allocTracker(),
                                               &SidLabelBinding::allocTracker(),
                                               &IsisLspParsedContent::allocTracker(),
                                               &NeighborSrlg::allocTracker()};
    std::vector<std::uint64_t> live0;
    for (const auto* t : trackers) {
        live0.push_back(t->live());
    }
    {
        auto db = igpLspDatabaseFactory(igpLevelIsisLevel2);
        Poldo::Ptr<IgpLsp> kept;
        for (std::uint8_t n = 1; n <= 3; ++n) {
            auto parsed = isisLspParsedContentFactory();
            parsed->nodeIs(nodeFactory(nodeId(n)));
            auto nbr = parsed->neighborIs(nbrKey(static_cast<std::uint8_t>(n + 1), 0x0a000001u + n));
            parsed->parsedSrLgIs(Lumo::IpGenAddr(IpAddr(0x0a000001u + n)))->srlgValueIs(7);
            auto pfx = parsed->prefixIs(pfxKey(0x0a010000u + n, 32));
            pfx->hasValidReachabilityIs(true);
            pfx->prefixMetric()->metricIs(128, 5);
            pfx->sidLabelBindingIs(sidLabelBindingFactory());
            auto e = igpLspFactory(nodeId(n));
            e->nodeIs(parsed->node());
            db->lspIs(e);
            e->updateNeighbors(parsed);
            e->updatePrefixes(parsed);
            e->updatePrefixes(parsed);  // a second binding replaces the first
            if (n == 2) {
                kept = e;
            }
        }
        IgpTest::RecordingObserver<> watcher(kept->publisher());
        db->lspDelAll();
        db.reset();
        EXPECT_GT(Drimm::AllocTracker::totalLive(), total0) << "the kept entry must still be alive";
        watcher.detach();
    }
    EXPECT_EQ(Drimm::AllocTracker::totalLive(), total0);
    for (std::size_t i = 0; i < trackers.size(); ++i) {
        EXPECT_EQ(trackers[i]->live(), live0[i]) << trackers[i]->typeName();
    }
}

}  // namespace
