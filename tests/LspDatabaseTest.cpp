// IgpLspDatabase and IgpLsp: adding, replacing and removing entries and members, what each
// publishes, who keeps which reference, that nothing is left once everything is dropped, and the dump.
#include "IgpCommon/LspDatabase.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <any>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "IgpCommon/ParsedContent.h"
#include "IgpCommon/framework/Exceptions.h"
#include "IgpCommon/platform/Umbo.h"
#include "tests/support/Builders.h"
#include "tests/support/RecordingObserver.h"

namespace {

using namespace Routing::IgpCommon;  // NOLINT(google-build-using-namespace)
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

// An entry's neighbors and prefixes share one contract.
struct NeighborSide {
    using Key = NeighborKey;
    using Value = Neighbor;
    static constexpr Kest::AttrId attr = IgpLsp::Attr::neighbor;
    static auto container() { return igpLspFactory(nodeId(1)); }
    static Key key(int i) { return nbrKey(static_cast<std::uint8_t>(i), {"10.0.0.1"}); }
    static Poldo::Ptr<Value> make(const Key& k) { return neighborFactory(k); }
    static void put(IgpLsp& e, const Key& k, const Poldo::Ptr<Value>& v) { e.neighborIs(k, v); }
    static Poldo::Ptr<Value> get(const IgpLsp& e, const Key& k) { return e.neighbor(k); }
    static Poldo::Ptr<Value> del(IgpLsp& e, const Key& k) { return e.neighborDel(k); }
    static void delAll(IgpLsp& e) { e.neighborDelAll(); }
};
struct PrefixSide {
    using Key = PrefixKey;
    using Value = Prefix;
    static constexpr Kest::AttrId attr = IgpLsp::Attr::prefix;
    static auto container() { return igpLspFactory(nodeId(1)); }
    static Key key(int i) {
        return PrefixKey(Lumo::IpGenPrefix(Lumo::IpAddr(0x0a000000u + (i << 8)), 24), {});
    }
    static Poldo::Ptr<Value> make(const Key& k) { return prefixFactory(k); }
    static void put(IgpLsp& e, const Key& k, const Poldo::Ptr<Value>& v) { e.prefixIs(k, v); }
    static Poldo::Ptr<Value> get(const IgpLsp& e, const Key& k) { return e.prefix(k); }
    static Poldo::Ptr<Value> del(IgpLsp& e, const Key& k) { return e.prefixDel(k); }
    static void delAll(IgpLsp& e) { e.prefixDelAll(); }
};

template <class Side>
class KeyedMembers : public ::testing::Test {};
using Sides = ::testing::Types<NeighborSide, PrefixSide>;
TYPED_TEST_SUITE(KeyedMembers, Sides);

TYPED_TEST(KeyedMembers, PutReplacesDeleteOrNullRemovesEachPublishingThePrevious) {
    using S = TypeParam;
    auto c = S::container();
    const auto k = S::key(1);
    auto a = S::make(k);
    S::put(*c, k, a);
    RawRecorder<typename S::Key, Poldo::Ptr<typename S::Value>> rec(c->publisher());
    S::put(*c, k, a);
    EXPECT_EQ(S::del(*c, S::key(2)), nullptr);
    EXPECT_EQ(rec.size(), 0u) << "the same object again, or an unknown key, changes nothing";
    auto b = S::make(k);
    S::put(*c, k, b);
    ASSERT_EQ(rec.size(), 1u);
    EXPECT_EQ(rec.attr(0), S::attr);
    EXPECT_EQ(rec.key(0), k);
    EXPECT_EQ(rec.old(0), a.get());
    EXPECT_EQ(S::get(*c, k), b);
    EXPECT_EQ(a->useCount(), 1u) << "the container let go of the previous one";
    EXPECT_EQ(S::del(*c, k)->useCount(), 2u) << "the container's reference, handed back";
    S::put(*c, k, nullptr);  // absent and null: nothing at all
    S::put(*c, k, b);
    S::put(*c, k, nullptr);
    ASSERT_EQ(rec.size(), 4u);
    EXPECT_EQ(rec.old(3), b.get());
    EXPECT_EQ(S::get(*c, k), nullptr);
    EXPECT_EQ(b->useCount(), 1u);
}

TYPED_TEST(KeyedMembers, DeleteAllPublishesOneRemovalEachWhenObservedAndEmptiesEitherWay) {
    using S = TypeParam;
    for (const int observers : {0, 1, 2}) {  // 1: registered once and gone again
        SCOPED_TRACE(observers);
        auto c = S::container();
        std::vector<Poldo::Ptr<typename S::Value>> held;
        for (int i = 1; i <= 6; ++i) {
            S::put(*c, S::key(i), held.emplace_back(S::make(S::key(i))));
        }
        std::optional<RawRecorder<typename S::Key, Poldo::Ptr<typename S::Value>>> rec;
        if (observers > 0) {
            rec.emplace(c->publisher());
        }
        if (observers == 1) {
            rec.reset();
        }
        S::delAll(*c);
        std::vector<const void*> olds;
        for (std::size_t i = 0; rec && i < rec->size(); ++i) {
            EXPECT_EQ(rec->attr(i), S::attr);
            olds.push_back(rec->old(i));
        }
        for (int i = 1; i <= 6; ++i) {
            EXPECT_EQ(S::get(*c, S::key(i)), nullptr);
            EXPECT_EQ(held[i - 1]->useCount(), 1u);
            EXPECT_EQ(std::count(olds.begin(), olds.end(), held[i - 1].get()), rec ? 1 : 0);
        }
    }
}

// An entry files its members by their own keys: another key is a caller's fault that must stop the
// process rather than file the member where look-ups cannot find it.
TEST(KeyedMembersDeathTest, PuttingAMemberUnderAnotherKeyAborts) {
    auto e = igpLspFactory(nodeId(1));
    EXPECT_DEATH(NeighborSide::put(*e, NeighborSide::key(1), NeighborSide::make(NeighborSide::key(2))),
                 "key == Map::keyOf\\(value\\)");
    EXPECT_DEATH(PrefixSide::put(*e, PrefixSide::key(1), PrefixSide::make(PrefixSide::key(2))),
                 "key == Map::keyOf\\(value\\)");
}

// The width is the indentation count plus two, so the largest counts wrap.
TEST(IgpLspDatabaseDump, EachIndentationIncludingTheWrappedWidths) {
    auto db = igpLspDatabaseFactory(igpLevelIsisLevel2);
    EXPECT_THROW(db->lspIs(nullptr), Kest::MutatorNullPointerException);
    db->lspIs(entryWithNode(nodeId(1)));
    db->lsp(nodeId(1))->neighborIs(nbrKey(2), neighborFactory(nbrKey(2)));
    for (const auto& [count, pad] : {std::pair<unsigned, std::string>{0u, "  "},
                                     {4u, "      "},
                                     {4294967294u, ""},
                                     {4294967295u, " "}}) {
        auto ctx = Umbo::DumpContext::dumpContextIs();
        db->dumpState(ctx, count);
        EXPECT_EQ(ctx->text(),
                  pad + "  node=1921.6800.1001, flags=<>\n" + pad +
                      "          ngb=1921.6800.1002, localIpv4Addr=[ ], localIpv6Addr=[ ], "
                      "remoteIpv4Addr=[ ], remoteIpv6Addr=[ ]\n                    igpMetric=0\n")
            << count;
    }
}

TEST(IgpLspDatabaseDumpDeathTest, EntryWithoutNodeStopsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    auto db = igpLspDatabaseFactory(igpLevelIsisLevel2);
    db->lspIs(igpLspFactory(nodeId(1)));
    auto ctx = Umbo::DumpContext::dumpContextIs();
    EXPECT_DEATH(db->dumpState(ctx, 0), "a dumped entry has a node");
}

}  // namespace
