// IgpLspDatabase and IgpLsp: adding, replacing and removing entries and members, what each
// publishes, who keeps which reference, and that nothing is left once everything is dropped.
#include "IgpCommon/LspDatabase.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <any>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "IgpCommon/ParsedContent.h"
#include "IgpCommon/framework/Exceptions.h"
#include "tests/support/Builders.h"
#include "tests/support/RecordingObserver.h"

namespace {

using namespace Routing::IgpCommon;
using testsupport::nbrKey;
using testsupport::nodeId;

// Keeps the old value as a raw pointer: a copied Ptr would disturb the use counts looked at.
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
    const K& key(std::size_t i) const { return *rec_[i].template keyAs<K>(); }
    const void* old(std::size_t i) const { return std::any_cast<const void*>(rec_[i].extra); }

private:
    IgpTest::RecordingObserver<K> rec_;
};

Poldo::Ptr<IgpLsp> entryWithNode(const IgpNodeId& id) {
    auto e = igpLspFactory(id);
    e->nodeIs(nodeFactory(id));
    return e;
}

// The database's entries and an entry's neighbors and prefixes share one contract.
struct DatabaseSide {
    using Container = IgpLspDatabase;
    using Key = IgpNodeId;
    using Value = IgpLsp;
    static constexpr Kest::AttrId attr = IgpLspDatabase::Attr::lsp;
    static Poldo::Ptr<Container> container() { return igpLspDatabaseFactory(igpLevelIsisLevel2); }
    static Key key(int i) { return nodeId(static_cast<std::uint8_t>(i)); }
    static Poldo::Ptr<Value> make(const Key& k) { return entryWithNode(k); }
    static void put(Container& c, const Key&, const Poldo::Ptr<Value>& v) { c.lspIs(v); }
    static Poldo::Ptr<Value> get(const Container& c, const Key& k) { return c.lsp(k); }
    static Poldo::Ptr<Value> del(Container& c, const Key& k) { return c.lspDel(k); }
    static void delAll(Container& c) { c.lspDelAll(); }
    static std::uint32_t size(const Container& c) { return c.lspCount(); }
    static Key keyOf(const Value& v) { return v.nodeId(); }
    static constexpr bool nullRemoves = false;  // a null entry throws instead
};
struct NeighborSide {
    using Container = IgpLsp;
    using Key = NeighborKey;
    using Value = Neighbor;
    static constexpr Kest::AttrId attr = IgpLsp::Attr::neighbor;
    static Poldo::Ptr<Container> container() { return igpLspFactory(nodeId(1)); }
    static Key key(int i) { return nbrKey(static_cast<std::uint8_t>(i), {"10.0.0.1"}); }
    static Poldo::Ptr<Value> make(const Key& k) { return neighborFactory(k); }
    static void put(Container& e, const Key& k, const Poldo::Ptr<Value>& v) { e.neighborIs(k, v); }
    static Poldo::Ptr<Value> get(const Container& e, const Key& k) { return e.neighbor(k); }
    static Poldo::Ptr<Value> del(Container& e, const Key& k) { return e.neighborDel(k); }
    static void delAll(Container& e) { e.neighborDelAll(); }
    static std::uint32_t size(const Container& e) { return e.neighbor().size(); }
    static Key keyOf(const Value& v) { return v.key(); }
    static constexpr bool nullRemoves = true;
};
struct PrefixSide {
    using Container = IgpLsp;
    using Key = PrefixKey;
    using Value = Prefix;
    static constexpr Kest::AttrId attr = IgpLsp::Attr::prefix;
    static Poldo::Ptr<Container> container() { return igpLspFactory(nodeId(1)); }
    static Key key(int i) {
        return PrefixKey(Lumo::IpGenPrefix(Lumo::IpAddr(0x0a000000u + (i << 8)), 24), {});
    }
    static Poldo::Ptr<Value> make(const Key& k) { return prefixFactory(k); }
    static void put(Container& e, const Key& k, const Poldo::Ptr<Value>& v) { e.prefixIs(k, v); }
    static Poldo::Ptr<Value> get(const Container& e, const Key& k) { return e.prefix(k); }
    static Poldo::Ptr<Value> del(Container& e, const Key& k) { return e.prefixDel(k); }
    static void delAll(Container& e) { e.prefixDelAll(); }
    static std::uint32_t size(const Container& e) { return e.prefix().size(); }
    static Key keyOf(const Value& v) { return v.prefixKey(); }
    static constexpr bool nullRemoves = true;
};

template <class Side>
class KeyedMembers : public ::testing::Test {};
using Sides = ::testing::Types<DatabaseSide, NeighborSide, PrefixSide>;
using EntrySides = ::testing::Types<NeighborSide, PrefixSide>;
TYPED_TEST_SUITE(KeyedMembers, Sides);

TYPED_TEST(KeyedMembers, PutReplacesAndDeleteHandsBackEachPublishingThePrevious) {
    using S = TypeParam;
    auto c = S::container();
    const auto k = S::key(1);
    auto a = S::make(k);
    S::put(*c, k, a);
    RawRecorder<typename S::Key, Poldo::Ptr<typename S::Value>> rec(c->publisher());
    S::put(*c, k, a);
    EXPECT_EQ(S::del(*c, S::key(2)), nullptr);
    EXPECT_EQ(rec.size(), 0u) << "the same object again, or an unknown key, changes nothing";
    EXPECT_EQ(a->useCount(), 2u);

    auto b = S::make(k);
    S::put(*c, k, b);
    ASSERT_EQ(rec.size(), 1u);
    EXPECT_EQ(rec.attr(0), S::attr);
    EXPECT_EQ(rec.key(0), k);
    EXPECT_EQ(rec.old(0), a.get());
    EXPECT_EQ(S::get(*c, k), b);
    EXPECT_EQ(a->useCount(), 1u) << "the container let go of the previous one";
    if constexpr (!S::nullRemoves) {
        EXPECT_THROW(S::put(*c, k, nullptr), Kest::MutatorNullPointerException);
    }
    {
        const auto removed = S::del(*c, k);
        ASSERT_EQ(removed, b);
        EXPECT_EQ(removed->useCount(), 2u) << "the container's reference, handed back";
    }
    std::size_t published = 2;
    if constexpr (S::nullRemoves) {
        S::put(*c, k, nullptr);  // absent and null: nothing at all
        S::put(*c, k, b);
        S::put(*c, k, nullptr);
        published = 4;
    }
    ASSERT_EQ(rec.size(), published);
    EXPECT_EQ(rec.old(published - 1), b.get());
    EXPECT_EQ(S::size(*c), 0u);
    EXPECT_EQ(S::get(*c, k), nullptr);
    EXPECT_EQ(b->useCount(), 1u);
}

// An entry keeps its members by their own keys, so putting one under another key is a caller's
// fault that must stop the process rather than file the member where look-ups cannot find it.
template <class Side>
class EntryMembersDeathTest : public ::testing::Test {};
TYPED_TEST_SUITE(EntryMembersDeathTest, EntrySides);

TYPED_TEST(EntryMembersDeathTest, PuttingAMemberUnderAnotherKeyAborts) {
    using S = TypeParam;
    auto e = igpLspFactory(nodeId(1));
    EXPECT_DEATH(S::put(*e, S::key(1), S::make(S::key(2))), "key == Map::keyOf\\(value\\)");
}

TYPED_TEST(KeyedMembers, DeleteAllPublishesOneRemovalEachWhenObservedAndEmptiesEitherWay) {
    using S = TypeParam;
    using Rec = RawRecorder<typename S::Key, Poldo::Ptr<typename S::Value>>;
    for (const int observers : {0, 1, 2}) {  // 1: registered once and gone again
        SCOPED_TRACE(observers);
        auto c = S::container();
        std::vector<Poldo::Ptr<typename S::Value>> held;
        for (int i = 1; i <= 6; ++i) {
            S::put(*c, S::key(i), held.emplace_back(S::make(S::key(i))));
        }
        std::optional<Rec> rec;
        if (observers > 0) {
            rec.emplace(c->publisher());
        }
        if (observers == 1) {
            rec.reset();
        }
        EXPECT_EQ(c->publisher().initialState(), observers == 0);
        S::delAll(*c);
        EXPECT_EQ(S::size(*c), 0u);
        std::vector<const void*> olds;
        for (std::size_t i = 0; rec && i < rec->size(); ++i) {
            EXPECT_EQ(rec->attr(i), S::attr);
            olds.push_back(rec->old(i));
            EXPECT_EQ(rec->key(i), S::keyOf(*static_cast<const typename S::Value*>(olds.back())));
        }
        for (const auto& v : held) {
            EXPECT_EQ(v->useCount(), 1u);
            EXPECT_EQ(std::count(olds.begin(), olds.end(), v.get()), rec ? 1 : 0) << "one removal per member";
        }
    }
}

// ---- what differs between the database and an entry ---------------------------------------

TEST(IgpLspDatabase, AReplacedEntrySurvivesUnchangedAndItsNodeReplacedPublishesThePrevious) {
    auto db = igpLspDatabaseFactory(igpLevelIsisLevel1);
    auto first = entryWithNode(nodeId(1));
    first->neighborIs(nbrKey(2, {"10.0.0.1"}), neighborFactory(nbrKey(2, {"10.0.0.1"})));
    const Node* firstNode = first->nodeRawPtr();
    db->lspIs(first);
    db->lspIs(entryWithNode(nodeId(1)));
    EXPECT_EQ(first->useCount(), 1u);
    EXPECT_EQ(first->nodeRawPtr(), firstNode);
    EXPECT_NE(first->neighbor(nbrKey(2, {"10.0.0.1"})), nullptr);
    EXPECT_EQ(db->level(), igpLevelIsisLevel1);

    RawRecorder<int, Poldo::Ptr<Node>> rec(first->publisher());
    first->nodeIs(first->node());
    first->nodeIs(nodeFactory(nodeId(1)));
    ASSERT_EQ(rec.size(), 1u) << "the same node is no change, another publishes the previous";
    EXPECT_EQ(rec.attr(0), IgpLsp::Attr::node);
    EXPECT_EQ(rec.old(0), firstNode);
}

// ---- nothing left behind --------------------------------------------------------------------

TEST(IgpLspDatabaseLifetime, DroppingTheDatabaseAndEveryEntryPointerLeavesNoObjectAlive) {
    const auto liveByType = [] {
        std::map<std::string, std::uint64_t> live;
        Drimm::AllocTracker::forEach([&](const Drimm::AllocTracker& t) {
            if (t.live() != 0) {  // trackers register when first used
                live[t.typeName()] = t.live();
            }
        });
        return live;
    };
    const auto live0 = liveByType();
    const std::uint64_t total0 = Drimm::AllocTracker::totalLive();
    {
        auto db = igpLspDatabaseFactory(igpLevelIsisLevel2);
        Poldo::Ptr<IgpLsp> kept;
        for (std::uint8_t n = 1; n <= 3; ++n) {
            auto parsed = isisLspParsedContentFactory();
            parsed->nodeIs(nodeFactory(nodeId(n)));
            parsed->neighborIs(nbrKey(static_cast<std::uint8_t>(n + 1), {"10.0.0.1"}));
            parsed->parsedSrLgIs(Lumo::IpGenAddr(testsupport::v4("10.0.0.1")))->srlgValueIs(7);
            auto pfx = parsed->prefixIs(PrefixSide::key(n));
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
    EXPECT_EQ(liveByType(), live0);
}

}  // namespace
