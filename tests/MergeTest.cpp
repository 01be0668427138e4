// Merges where the random ones (the merge model) cannot reach: observers changing the entry mid-merge,
// exactly what is published and allocated, the database's merge of one LSP, and the SRLG fold.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "IgpCommon/LspDatabase.h"
#include "IgpCommon/ParsedContent.h"
#include "tests/support/AllocationCounter.h"
#include "tests/support/Builders.h"
#include "tests/support/RecordingObserver.h"

namespace {

using namespace Routing::IgpCommon;
using Lumo::IpGenAddr;
using testsupport::nbrKey;
using testsupport::nodeId;
using testsupport::pfxKey;
using testsupport::v4;
using testsupport::v6;

const NeighborKey kV4 = nbrKey(2, {"10.0.0.1"}, {"10.0.0.2"});
const NeighborKey kV6 = nbrKey(3, {"fe80::1"}, {"fe80::2"}, 2);
const NeighborKey kUnnumbered(nodeId(4, 1), IgpMultiTopologyId(0));
const PrefixKey pReach = pfxKey("10.1.0.0/16");
const PrefixKey pReach6 = pfxKey("2001::/32", 2);
const PrefixKey pUnreach = pfxKey("10.2.0.0/24");

// The sample LSP, every call a new object with equal contents.
Poldo::Ptr<IsisLspParsedContent> sampleLsp(bool withBindings) {
    auto parsed = isisLspParsedContentFactory();
    parsed->nodeIs(nodeFactory(nodeId(1)));
    auto a = parsed->neighborIs(kV4);
    a->updateAttr(testsupport::fullNeighbor());  // something in every attribute
    a->srlgValuesDelAll();                       // the fold brings them
    auto b = parsed->neighborIs(kV6);
    b->igpMetricIs(30);
    b->lanAdjSidIs(LanAdjacencySid(0x30, 24010, 0, Routing::Isis::SystemId({1, 2, 3, 4, 5, 6})));
    parsed->neighborIs(kUnnumbered)->igpMetricIs(40);
    parsed->parsedSrLgIs(IpGenAddr(v4("10.0.0.1")))->srlgValueIs(100);
    parsed->parsedSrLgIs(IpGenAddr(v6("fe80::1")))->srlgValueIs(200);
    parsed->parsedSrLgIs(IpGenAddr())->srlgValueIs(300);

    auto p = parsed->prefixIs(pReach);
    p->updateAttr(testsupport::fullPrefix());  // something in every attribute
    p->sidLabelBindingIs(nullptr);
    auto q = parsed->prefixIs(pReach6);
    q->hasValidReachabilityIs(true);
    q->metricIs(20);
    auto u = parsed->prefixIs(pUnreach);
    u->flagsIs(PrefixFlags(1));
    if (withBindings) {
        p->sidLabelBindingIs(testsupport::binding(4));
        u->sidLabelBindingIs(testsupport::binding(4));
    }
    return parsed;
}

void merge(IgpLsp& entry, const Poldo::Ptr<IsisLspParsedContent>& parsed) {
    entry.updateNeighbors(parsed);
    entry.updatePrefixes(parsed);
}

/// Every notification of the entry and of the members it holds now, by attribute.
struct Heard {
    explicit Heard(IgpLsp& entry) : entry_(&entry) {
        attrs.reserve(16);  // so that recording allocates nothing
        each([&](Poldo::Publisher& p) { p.observerIs(observer_); });
    }
    ~Heard() {
        each([&](Poldo::Publisher& p) { p.observerDel(observer_); });
    }
    template <class F>
    void each(F&& f) {
        f(entry_->publisher());
        for (auto it = entry_->neighbor().begin(); it != entry_->neighbor().end(); ++it) {
            f(it->value->publisher());
        }
        for (auto it = entry_->prefix().begin(); it != entry_->prefix().end(); ++it) {
            f(it->value->publisher());
        }
    }
    std::vector<Poldo::AttrId> attrs;

private:
    IgpLsp* entry_;
    Poldo::FunctionObserver<std::function<void(const Poldo::Notification&)>> observer_{
        [this](const Poldo::Notification& n) { attrs.push_back(n.attr()); }};
};

// An observer that removes members while the merge walks the parsed content must not make an update
// land on a member of another key or on a slot that moved: they come back as the parsed ones.
TEST(IgpLspMerge, ObserversChangingTheEntryMidMergeMisplaceNoUpdateAndKeepNoForeignMember) {
    bool fired = false;
    Poldo::Ptr<IgpLsp> entry = igpLspFactory(nodeId(1));
    Poldo::FunctionObserver removeOthers([&](const Poldo::Notification& n) {
        if (std::exchange(fired, true)) {
            return;
        }
        std::vector<NeighborKey> others;
        for (auto it = entry->neighbor().begin(); it != entry->neighbor().end(); ++it) {
            if (it->value.get() != n.entity<Neighbor>()) {
                others.push_back(it->key);
            }
        }
        for (const auto& k : others) {
            entry->neighborDel(k);
        }
        entry->prefixDelAll();
    });
    std::array<Poldo::Ptr<IsisLspParsedContent>, 2> lsps{isisLspParsedContentFactory(),
                                                         isisLspParsedContentFactory()};
    for (std::uint8_t i = 0; i < 12; ++i) {
        for (const std::uint32_t l : {0u, 1u}) {
            lsps[l]
                ->neighborIs(NeighborKey(nodeId(static_cast<std::uint8_t>(20 + i)), IgpMultiTopologyId(0)))
                ->igpMetricIs(100 * l + i);
            const auto p = lsps[l]->prefixIs(pfxKey(("10.50." + std::to_string(i) + ".0/24").c_str()));
            p->hasValidReachabilityIs(true);
            p->metricIs(100 * l + i);
        }
    }
    merge(*entry, lsps[0]);
    for (auto it = entry->neighbor().begin(); it != entry->neighbor().end(); ++it) {
        it->value->publisher().observerIs(removeOthers);
    }
    merge(*entry, lsps[1]);

    ASSERT_TRUE(fired);
    EXPECT_EQ(entry->neighbor().size() + entry->prefix().size(), 24u);
    for (auto it = entry->neighbor().begin(); it != entry->neighbor().end(); ++it) {
        EXPECT_EQ(Kest::firstDifference(*it->value, *lsps[1]->neighbor(it->key)), "") << it->key.toStrep();
    }
    for (auto it = entry->prefix().begin(); it != entry->prefix().end(); ++it) {
        EXPECT_EQ(Kest::firstDifference(*it->value, *lsps[1]->prefix(it->key)), "") << it->key;
    }

    // One that adds a member while the last one merges: the parsed content lacks it, so it goes.
    const NeighborKey extra = nbrKey(99);
    Poldo::FunctionObserver addExtra(
        [&](const Poldo::Notification&) { entry->neighborIs(extra, neighborFactory(extra)); });
    Poldo::Ptr<Neighbor> last;
    for (auto it = lsps[0]->neighbor().begin(); it != lsps[0]->neighbor().end(); ++it) {
        (*it)->publisher().observerDel(removeOthers);
        last = entry->neighbor((*it)->key());
    }
    last->publisher().observerIs(addExtra);
    merge(*entry, lsps[0]);
    last->publisher().observerDel(addExtra);
    EXPECT_EQ(entry->neighbor(extra), nullptr);
}

// Equal content again costs nothing, but for the binding of each prefix that carries one: the merge
// replaces it by a copy (two prefixes carry one), freeing the one it replaces. A change then
// publishes exactly itself, and an empty LSP one removal per member.
TEST(IgpLspMerge, EachMergePublishesAndAllocatesOnlyWhatChanged) {
    for (const bool withBindings : {false, true}) {
        for (const bool sameObject : {false, true}) {
            SCOPED_TRACE(std::string(withBindings ? "with bindings, " : "") +
                         (sameObject ? "the very content already merged" : "an equal copy"));
            auto entry = igpLspFactory(nodeId(1));
            auto first = sampleLsp(withBindings);
            merge(*entry, first);
            auto again = sameObject ? first : sampleLsp(withBindings);  // built before counting
            const SidLabelBinding* before = entry->prefix(pReach)->sidLabelBinding().get();
            std::vector<Poldo::AttrId> expected(withBindings ? 2 : 0, Prefix::Attr::sidLabelBinding);
            {
                Heard heard(*entry);
                const std::uint64_t live0 = Drimm::AllocTracker::totalLive();
                const std::uint64_t trackerAllocs0 = testsupport::trackedAllocations();
                const testsupport::AllocationScope heap;
                merge(*entry, again);
                if (!withBindings) {
                    EXPECT_EQ(heap.count(), 0u) << "heap allocations during the merge";
                }
                EXPECT_EQ(testsupport::trackedAllocations() - trackerAllocs0, expected.size());
                EXPECT_EQ(Drimm::AllocTracker::totalLive(), live0);
                EXPECT_EQ(heard.attrs, expected);
            }
            if (withBindings) {
                const auto& after = entry->prefix(pReach)->sidLabelBinding();
                EXPECT_NE(after.get(), before);
                if (!sameObject) {  // the same content's prefix is the entry's own
                    EXPECT_NE(after, again->prefix(pReach)->sidLabelBinding())
                        << "a copy, not the parsed one";
                }
                continue;
            }
            auto changed = sampleLsp(false);
            changed->neighbor(kV6)->igpMetricIs(31);
            changed->prefixDel(pUnreach);
            Heard heard(*entry);
            merge(*entry, changed);
            EXPECT_EQ(heard.attrs,
                      (std::vector<Poldo::AttrId>{Neighbor::Attr::igpMetric, IgpLsp::Attr::prefix}));
            heard.attrs.clear();
            merge(*entry, isisLspParsedContentFactory());
            EXPECT_EQ(heard.attrs, (std::vector<Poldo::AttrId>{IgpLsp::Attr::neighbor, IgpLsp::Attr::neighbor,
                                                               IgpLsp::Attr::neighbor, IgpLsp::Attr::prefix,
                                                               IgpLsp::Attr::prefix}));
        }
    }
}

// ---- the database's merge of one LSP ---------------------------------------------------------

TEST(IgpLspDatabaseMerge, ANewEntryAdoptsTheParsedObjectsAKnownOneMergesInPlaceNoNodeIsRefused) {
    auto db = igpLspDatabaseFactory(igpLevelIsisLevel2);
    EXPECT_THROW(db->lspMerge(nullptr), Kest::MutatorNullPointerException);
    EXPECT_THROW(db->lspMerge(isisLspParsedContentFactory()), Kest::MutatorNullPointerException);
    EXPECT_EQ(db->lspCount(), 0u);
    auto parsed = sampleLsp(true);
    std::size_t membersSeen = 0;
    IgpTest::RecordingObserver<IgpNodeId> rec(db->publisher());
    rec.onRecord([&](const Poldo::Notification&, IgpTest::Record&) {
        const auto entry = db->lsp(nodeId(1));
        membersSeen = entry ? entry->neighbor().size() + entry->prefix().size() : 0;
    });
    const std::uint64_t created0 = testsupport::trackedAllocations();
    const auto entry = db->lspMerge(parsed);
    EXPECT_EQ(testsupport::trackedAllocations() - created0, 1u) << "the entry; every other object is adopted";
    ASSERT_EQ(db->lsp(nodeId(1)), entry);
    ASSERT_EQ(rec.size(), 1u);
    EXPECT_FALSE(rec[0].hasOldValue);
    EXPECT_EQ(membersSeen, 6u) << "observers of the database see the entry whole";
    EXPECT_TRUE(entry->node() == parsed->node() && entry->neighbor(kV4) == parsed->neighbor(kV4));
    EXPECT_TRUE(entry->neighbor(kV4)->srlgValuesHas(100)) << "SRLGs are folded as by updateNeighbors";

    const Node* node = entry->nodeRawPtr();  // a known entry merges in place, its node too
    auto next = sampleLsp(false);
    next->node()->hostNameIs("new");
    EXPECT_EQ(db->lspMerge(next), entry);
    EXPECT_TRUE(rec.size() == 1u && entry->nodeRawPtr() == node && node->hostName() == "new");

    const auto bare = igpLspFactory(nodeId(2));  // an entry without a node takes the parsed one
    db->lspIs(bare);
    auto other = isisLspParsedContentFactory();
    other->nodeIs(nodeFactory(nodeId(2)));
    EXPECT_EQ(db->lspMerge(other), bare);
    EXPECT_EQ(bare->node(), other->node());
}

// ---- the SRLG fold --------------------------------------------------------------------------

std::set<std::uint32_t> srlgsOf(const Neighbor& n) {
    return {n.srlgValues().begin(), n.srlgValues().end()};
}

// Each family's first local address (in iteration order) names its record, both families unite; a
// family without a local address takes the empty address's record, remote addresses name none.
TEST(IgpLspSrlgFold, EachFamilysFirstLocalAddressOrElseTheEmptyAddressNamesTheRecord) {
    auto parsed = isisLspParsedContentFactory();
    auto unnumbered = parsed->neighborIs(nbrKey(2, {}, {"10.0.0.2", "fe80::2"}));
    auto numbered = parsed->neighborIs(nbrKey(3, {"10.0.1.1", "fe80::9"}));
    auto v4Only = parsed->neighborIs(nbrKey(4, {"10.0.0.1", "10.0.0.3", "10.0.0.4", "10.0.0.5"}));
    auto incoming = parsed->neighborIs(nbrKey(5, {"10.0.7.1", "fe80::7"}));
    incoming->attrsPresentIs(Neighbor::NeighborAttrsPresent(0x01));
    parsed->parsedSrLgIs(IpGenAddr())->srlgValueIs(300);
    for (const char* remote : {"10.0.0.2", "fe80::2", "0.0.0.0"}) {
        parsed->parsedSrLgIs(testsupport::parse<IpGenAddr>(remote))->srlgValueIs(2);
    }
    for (std::uint8_t i = 1; i <= 5; ++i) {
        parsed->parsedSrLgIs(IpGenAddr(Lumo::IpAddr(0x0a000000u + i)))->srlgValueIs(100u + i);
    }
    for (const std::uint32_t v : {2, 3}) {
        parsed->parsedSrLgIs(IpGenAddr(v4("10.0.7.1")))->srlgValueIs(v);
        parsed->parsedSrLgIs(IpGenAddr(v6("fe80::7")))->srlgValueIs(v + 1);
    }
    const Lumo::IpAddr first = *v4Only->key().localIpv4Addr().uncheckedBegin();
    igpLspFactory(nodeId(1))->updateNeighbors(parsed);

    EXPECT_EQ(srlgsOf(*unnumbered), (std::set<std::uint32_t>{300}));
    EXPECT_TRUE(unnumbered->attrsPresent().srlgValues());
    EXPECT_TRUE(srlgsOf(*numbered).empty());
    EXPECT_FALSE(numbered->attrsPresent().srlgValues());
    EXPECT_EQ(srlgsOf(*v4Only), (std::set<std::uint32_t>{300, 100u + (first.value() & 0xff)}));
    EXPECT_EQ(srlgsOf(*incoming), (std::set<std::uint32_t>{2, 3, 4}));
    EXPECT_EQ(incoming->attrsPresent().value(), 0x41);
}

}  // namespace
