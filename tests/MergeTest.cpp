// IgpLsp::updateNeighbors and updatePrefixes: the merge of a parsed LSP into its entry (which
// objects survive, which are adopted, what is published and allocated) and the SRLG fold.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
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
using NbrRec = IgpTest::RecordingObserver<NeighborKey, std::uint32_t>;

// The sample LSP's keys, and a neighbor and a prefix only an older LSP has.
const NeighborKey kV4 = nbrKey(2, {"10.0.0.1"}, {"10.0.0.2"});
const NeighborKey kV6 = nbrKey(3, {"fe80::1"}, {"fe80::2"}, 2);
const NeighborKey kUnnumbered(nodeId(4, 1), IgpMultiTopologyId(0));
const NeighborKey kGone = nbrKey(5, {"10.0.5.1"});
const PrefixKey pReach = pfxKey("10.1.0.0/16");
const LanAdjacencySid kLanSid(0x30, 24010, 0, Routing::Isis::SystemId({1, 2, 3, 4, 5, 6}));
const LanAdjacencySid kOldLanSid(0x30, 24011, 0, Routing::Isis::SystemId({1, 2, 3, 4, 5, 7}));
const PrefixKey pReach6 = pfxKey("2001::/32", 2);
const PrefixKey pUnreach = pfxKey("10.2.0.0/24");
const PrefixKey pGone = pfxKey("10.9.0.0/16");

// The sample LSP, every call a new object with equal contents.
Poldo::Ptr<IsisLspParsedContent> sampleLsp(bool withBindings) {
    auto parsed = isisLspParsedContentFactory();
    parsed->nodeIs(nodeFactory(nodeId(1)));
    auto a = parsed->neighborIs(kV4);
    a->updateAttr(testsupport::fullNeighbor());  // something in every attribute
    a->srlgValuesDelAll();                       // the fold brings them
    auto b = parsed->neighborIs(kV6);
    b->igpMetricIs(30);
    b->lanAdjSidIs(kLanSid);
    parsed->neighborIs(kUnnumbered)->igpMetricIs(40);
    parsed->parsedSrLgIs(IpGenAddr(v4("10.0.0.1")))->srlgValueIs(100);
    parsed->parsedSrLgIs(IpGenAddr(v6("fe80::1")))->srlgValueIs(200);
    parsed->parsedSrLgIs(IpGenAddr())->srlgValueIs(300);

    auto p = parsed->prefixIs(pReach);
    p->hasValidReachabilityIs(true);
    p->metricIs(10);
    p->prefixSidIs(PrefixSid(0x40, 100, 0, true));
    p->prefixMetric()->metricIs(128, 15);
    p->prefixMetric()->metricIs(129, 25);
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

/// An entry holding the sample LSP, merged over an older LSP that shares some keys.
Poldo::Ptr<IgpLsp> entryAfterOlderLsp() {
    auto older = isisLspParsedContentFactory();
    older->neighborIs(kV4)->igpMetricIs(99);
    older->neighborIs(kV6)->lanAdjSidIs(kOldLanSid);
    older->neighborIs(kGone)->igpMetricIs(5);
    older->prefixIs(pReach)->metricIs(99);
    older->prefixIs(pGone);
    auto entry = igpLspFactory(nodeId(1));
    merge(*entry, older);
    return entry;
}

// Observers on the entry and on each of its current neighbors and prefixes.
struct EverywhereObservers {
    explicit EverywhereObservers(IgpLsp& entry) : onEntry(entry.publisher()) {
        for (auto it = entry.neighbor().begin(); it != entry.neighbor().end(); ++it) {
            onMembers.push_back(std::make_unique<IgpTest::RecordingObserver<>>(it->value->publisher()));
        }
        for (auto it = entry.prefix().begin(); it != entry.prefix().end(); ++it) {
            onMembers.push_back(std::make_unique<IgpTest::RecordingObserver<>>(it->value->publisher()));
        }
    }
    std::size_t total() const {
        std::size_t n = onEntry.size();
        for (const auto& o : onMembers) {
            n += o->size();
        }
        return n;
    }
    IgpTest::RecordingObserver<> onEntry;
    std::vector<std::unique_ptr<IgpTest::RecordingObserver<>>> onMembers;
};

// ---- membership and identity --------------------------------------------------------------

TEST(IgpLspMerge, KeptMembersKeepTheirIdentityAndTakeTheParsedAttributesNewOnesAreTheParsedObjects) {
    auto entry = entryAfterOlderLsp();
    const Neighbor* oldNbr = entry->neighbor(kV4).get();
    const Neighbor* oldLan = entry->neighbor(kV6).get();
    const Prefix* oldPfx = entry->prefix(pReach).get();
    auto parsed = sampleLsp(true);
    merge(*entry, parsed);

    EXPECT_EQ(entry->neighbor().size() + entry->prefix().size(), 6u);
    EXPECT_EQ(entry->neighbor(kGone), nullptr);
    EXPECT_EQ(entry->prefix(pGone), nullptr);
    ASSERT_EQ(entry->neighbor(kV4).get(), oldNbr);
    ASSERT_EQ(entry->neighbor(kV6).get(), oldLan);
    ASSERT_EQ(entry->prefix(pReach).get(), oldPfx);
    EXPECT_EQ(Kest::firstDifference(*oldNbr, *parsed->neighbor(kV4)), "");
    EXPECT_EQ(Kest::firstDifference(*oldLan, *parsed->neighbor(kV6)), "");
    EXPECT_EQ(Kest::firstDifference(*oldPfx, *parsed->prefix(pReach)), "");
    EXPECT_EQ(entry->neighbor(kUnnumbered), parsed->neighbor(kUnnumbered));
    EXPECT_EQ(entry->prefix(pReach6), parsed->prefix(pReach6));
    EXPECT_EQ(entry->prefix(pUnreach), parsed->prefix(pUnreach));
}

// ---- observers that change the entry during a merge -----------------------------------------

// An observer that removes members while the merge walks the parsed content
// must not make an update land on a member of another key or on a slot that
// moved; the removed members come back as the parsed ones.
TEST(IgpLspMerge, MembersAnObserverRemovesMidMergeComeBackAsTheParsedOnes) {
    bool fired = false;
    Poldo::Ptr<IgpLsp> entry;
    Poldo::FunctionObserver removeOthers([&](const Poldo::Notification& n) {
        if (std::exchange(fired, true)) {
            return;
        }
        std::vector<NeighborKey> nbrs;
        for (auto it = entry->neighbor().begin(); it != entry->neighbor().end(); ++it) {
            if (it->value.get() != n.entity<Neighbor>()) {
                nbrs.push_back(it->key);
            }
        }
        for (const auto& k : nbrs) {
            entry->neighborDel(k);
        }
        entry->prefixDelAll();
    });
    entry = igpLspFactory(nodeId(1));
    auto first = isisLspParsedContentFactory();
    auto second = isisLspParsedContentFactory();
    for (std::uint8_t i = 0; i < 12; ++i) {
        const NeighborKey k(nodeId(static_cast<std::uint8_t>(20 + i)), IgpMultiTopologyId(0));
        first->neighborIs(k)->igpMetricIs(i);
        second->neighborIs(k)->igpMetricIs(100u + i);
        const PrefixKey p = pfxKey(("10.50." + std::to_string(i) + ".0/24").c_str());
        for (const auto& [content, metric] : {std::pair{first, i + 0u}, std::pair{second, 100u + i}}) {
            content->prefixIs(p)->hasValidReachabilityIs(true);
            content->prefixIs(p)->metricIs(metric);
        }
    }
    merge(*entry, first);
    for (auto it = entry->neighbor().begin(); it != entry->neighbor().end(); ++it) {
        it->value->publisher().observerIs(removeOthers);
    }

    merge(*entry, second);

    ASSERT_TRUE(fired);
    EXPECT_EQ(entry->neighbor().size(), 12u);
    EXPECT_EQ(entry->prefix().size(), 12u);
    for (auto it = entry->neighbor().begin(); it != entry->neighbor().end(); ++it) {
        EXPECT_EQ(it->value->key(), it->key);
        EXPECT_EQ(it->value->igpMetric(), second->neighbor(it->key)->igpMetric()) << it->key.toStrep();
    }
    for (auto it = entry->prefix().begin(); it != entry->prefix().end(); ++it) {
        EXPECT_EQ(it->value->prefixKey(), it->key);
        EXPECT_EQ(it->value->metric(), second->prefix(it->key)->metric()) << it->key;
    }
    for (auto it = first->neighbor().begin(); it != first->neighbor().end(); ++it) {
        (*it)->publisher().observerDel(removeOthers);
    }
}

// ---- a merge that changes nothing -----------------------------------------------------------

// Equal content again costs nothing, but for the binding of each prefix that carries one: the
// merge replaces it by a copy (two prefixes carry one), freeing the one it replaces.
TEST(IgpLspMerge, MergingEqualContentAgainPublishesAndAllocatesOnlyTheBindingCopies) {
    for (const bool withBindings : {false, true}) {
        for (const bool sameObject : {false, true}) {
            SCOPED_TRACE(std::string(withBindings ? "with bindings, " : "") +
                         (sameObject ? "the very content already merged" : "an equal copy"));
            auto entry = igpLspFactory(nodeId(1));
            auto first = sampleLsp(withBindings);
            merge(*entry, first);
            auto again = sameObject ? first : sampleLsp(withBindings);  // built before counting
            const SidLabelBinding* before = entry->prefix(pReach)->sidLabelBinding().get();
            EverywhereObservers observers(*entry);
            const std::uint64_t live0 = Drimm::AllocTracker::totalLive();
            const std::uint64_t trackerAllocs0 = testsupport::trackedAllocations();
            const testsupport::AllocationScope heap;
            merge(*entry, again);
            const std::size_t bound = withBindings ? 2 : 0;
            if (!withBindings) {
                EXPECT_EQ(heap.count(), 0u) << "heap allocations during the merge";
            }
            EXPECT_EQ(testsupport::trackedAllocations() - trackerAllocs0, bound);
            EXPECT_EQ(Drimm::AllocTracker::totalLive(), live0);
            EXPECT_EQ(observers.total(), bound);
            for (const auto& o : observers.onMembers) {
                for (const auto attr : o->attrs()) {
                    EXPECT_EQ(attr, Prefix::Attr::sidLabelBinding);
                }
            }
            if (withBindings) {
                const auto& after = entry->prefix(pReach)->sidLabelBinding();
                EXPECT_NE(after.get(), before);
                if (!sameObject) {  // the same content's prefix is the entry's own
                    EXPECT_NE(after, again->prefix(pReach)->sidLabelBinding())
                        << "a copy, not the parsed one";
                }
            }
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
    EXPECT_EQ(entry->node(), parsed->node());
    EXPECT_EQ(entry->neighbor(kV4), parsed->neighbor(kV4));
    EXPECT_TRUE(entry->neighbor(kV4)->srlgValuesHas(100)) << "SRLGs are folded as by updateNeighbors";

    const Node* node = entry->nodeRawPtr();
    auto next = sampleLsp(false);
    next->node()->hostNameIs("new");
    next->neighbor(kV4)->igpMetricIs(77);
    next->prefixIs(pGone);
    EXPECT_EQ(db->lspMerge(next), entry);
    EXPECT_EQ(rec.size(), 1u);
    EXPECT_EQ(entry->nodeRawPtr(), node);
    EXPECT_EQ(node->hostName(), "new");
    EXPECT_EQ(entry->neighbor(kV4), parsed->neighbor(kV4));
    EXPECT_EQ(entry->neighbor(kV4)->igpMetric(), 77u);
    EXPECT_EQ(entry->prefix(pGone), next->prefix(pGone));

    const auto bare = igpLspFactory(nodeId(2));  // an entry without a node takes the parsed one
    db->lspIs(bare);
    auto other = isisLspParsedContentFactory();
    other->nodeIs(nodeFactory(nodeId(2)));
    EXPECT_EQ(db->lspMerge(other), bare);
    EXPECT_EQ(bare->node(), other->node());
}

// ---- the SRLG fold --------------------------------------------------------------------------

std::set<std::uint32_t> srlgsOf(const Neighbor& n) {
    std::set<std::uint32_t> s;
    for (auto it = n.srlgValues().begin(); it != n.srlgValues().end(); ++it) {
        s.insert(*it);
    }
    return s;
}

// Each family's first local address (in iteration order) names its record; a family without a
// local address takes the empty address's record, remote addresses name none.
TEST(IgpLspSrlgFold, TheFirstLocalAddressOfEachFamilyOrElseTheEmptyAddressNamesTheRecord) {
    auto parsed = isisLspParsedContentFactory();
    auto unnumbered = parsed->neighborIs(nbrKey(2, {}, {"10.0.0.2", "fe80::2"}));
    auto numbered = parsed->neighborIs(nbrKey(3, {"10.0.1.1", "fe80::9"}));
    auto v4Only = parsed->neighborIs(nbrKey(4, {"10.0.0.1", "10.0.0.3", "10.0.0.4", "10.0.0.5"}));
    parsed->parsedSrLgIs(IpGenAddr())->srlgValueIs(300);
    parsed->parsedSrLgIs(IpGenAddr(v4("10.0.0.2")))->srlgValueIs(2);
    parsed->parsedSrLgIs(IpGenAddr(v6("fe80::2")))->srlgValueIs(2);
    parsed->parsedSrLgIs(IpGenAddr(Lumo::IpAddr(0)))->srlgValueIs(2);
    for (std::uint8_t i = 1; i <= 5; ++i) {
        parsed->parsedSrLgIs(IpGenAddr(Lumo::IpAddr(0x0a000000u + i)))->srlgValueIs(100u + i);
    }
    const Lumo::IpAddr first = *v4Only->key().localIpv4Addr().uncheckedBegin();
    igpLspFactory(nodeId(1))->updateNeighbors(parsed);
    EXPECT_EQ(srlgsOf(*unnumbered), (std::set<std::uint32_t>{300}));
    EXPECT_TRUE(unnumbered->attrsPresent().srlgValues());
    EXPECT_TRUE(srlgsOf(*numbered).empty());
    EXPECT_FALSE(numbered->attrsPresent().srlgValues());
    EXPECT_EQ(srlgsOf(*v4Only), (std::set<std::uint32_t>{300, 100u + (first.value() & 0xff)}));
}

TEST(IgpLspSrlgFold, BothFamiliesUniteOnTheParsedNeighborAndReachTheExistingOneThroughUpdateAttr) {
    const NeighborKey k = nbrKey(2, {"10.0.0.1", "fe80::1"});
    auto entry = igpLspFactory(nodeId(1));
    auto existing = neighborFactory(k);
    existing->srlgValuesIs(1);
    existing->srlgValuesIs(2);
    entry->neighborIs(k, existing);
    auto parsed = isisLspParsedContentFactory();
    auto incoming = parsed->neighborIs(k);
    incoming->attrsPresentIs(Neighbor::NeighborAttrsPresent(0x01));
    for (const std::uint32_t v : {2, 3}) {
        parsed->parsedSrLgIs(IpGenAddr(v4("10.0.0.1")))->srlgValueIs(v);
        parsed->parsedSrLgIs(IpGenAddr(v6("fe80::1")))->srlgValueIs(v + 1);
    }
    NbrRec onIncoming(incoming->publisher());
    entry->updateNeighbors(parsed);

    EXPECT_EQ(entry->neighbor(k), existing);
    EXPECT_EQ(srlgsOf(*incoming), (std::set<std::uint32_t>{2, 3, 4}));
    EXPECT_EQ(incoming->attrsPresent().value(), 0x41);
    const auto attrs = onIncoming.attrs();
    EXPECT_EQ(std::count(attrs.begin(), attrs.end(), Neighbor::Attr::attrsPresent), 1);
    EXPECT_EQ(std::count(attrs.begin(), attrs.end(), Neighbor::Attr::srlgValues), 3);
    EXPECT_EQ(Kest::firstDifference(*existing, *incoming), "");
}

}  // namespace
