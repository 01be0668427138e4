// IgpLsp::updateNeighbors and updatePrefixes: the merge of a parsed LSP into its entry (which
// objects survive, which are adopted, what is published and allocated) and the SRLG fold.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "IgpCommon/LspDatabase.h"
#include "IgpCommon/ParsedContent.h"
#include "support/AllocationCounter.h"
#include "support/RecordingObserver.h"

namespace {

using namespace Routing::IgpCommon;
using Lumo::Ip6Addr;
using Lumo::IpAddr;
using Lumo::IpGenAddr;
using NbrRec = IgpTest::RecordingObserver<NeighborKey, std::uint32_t>;
using PfxRec = IgpTest::RecordingObserver<PrefixKey>;

IgpNodeId nodeId(std::uint8_t last, std::uint8_t pseudonode = 0) {
    const std::array<std::uint8_t, 7> b{0x19, 0x21, 0x68, 0x00, 0x10, last, pseudonode};
    return IgpNodeId::fromBytes(b.data());
}
IpAddr v4(std::uint8_t a, std::uint8_t b, std::uint8_t c, std::uint8_t d) {
    return IpAddr((std::uint32_t{a} << 24) | (std::uint32_t{b} << 16) | (std::uint32_t{c} << 8) | d);
}
Ip6Addr v6(std::uint16_t first, std::uint8_t last) {
    std::array<std::uint8_t, 16> b{static_cast<std::uint8_t>(first >> 8), static_cast<std::uint8_t>(first)};
    b[15] = last;
    return Ip6Addr::fromBytes(b.data());
}
PrefixKey pfxKey(IpAddr a, std::uint8_t len, std::uint16_t mt = 0) {
    return PrefixKey(Lumo::IpGenPrefix(a, len), IgpMultiTopologyId(mt));
}
PrefixKey pfxKey6(const Ip6Addr& a, std::uint8_t len, std::uint16_t mt = 0) {
    return PrefixKey(Lumo::IpGenPrefix(a, len), IgpMultiTopologyId(mt));
}

// The keys of the sample LSP: a numbered IPv4 link, an IPv6 link in topology 2, an unnumbered
// link, and one neighbor and prefix that only the older LSP has.
NeighborKey kV4() {
    NeighborKey k(nodeId(2), IgpMultiTopologyId(0));
    k.localIpv4AddrIs(v4(10, 0, 0, 1));
    k.remoteIpv4AddrIs(v4(10, 0, 0, 2));
    return k;
}
NeighborKey kV6() {
    NeighborKey k(nodeId(3), IgpMultiTopologyId(2));
    k.localIpv6AddrIs(v6(0xfe80, 1));
    k.remoteIpv6AddrIs(v6(0xfe80, 2));
    return k;
}
NeighborKey kUnnumbered() {
    return NeighborKey(nodeId(4, 1), IgpMultiTopologyId(0));
}
NeighborKey kGone() {
    NeighborKey k(nodeId(5), IgpMultiTopologyId(0));
    k.localIpv4AddrIs(v4(10, 0, 5, 1));
    return k;
}
PrefixKey pReach() {
    return pfxKey(v4(10, 1, 0, 0), 16);
}
PrefixKey pReach6() {
    return pfxKey6(v6(0x2001, 0), 32, 2);
}
PrefixKey pUnreach() {
    return pfxKey(v4(10, 2, 0, 0), 24);
}
PrefixKey pGone() {
    return pfxKey(v4(10, 9, 0, 0), 16);
}

// The sample LSP, every call a new object with equal contents.
Poldo::Ptr<IsisLspParsedContent> sampleLsp(bool withBindings) {
    auto parsed = isisLspParsedContentFactory();
    parsed->nodeIs(nodeFactory(nodeId(1)));

    auto a = parsed->neighborIs(kV4());
    a->attrsPresentIs(Neighbor::NeighborAttrsPresent(0x3f));
    a->adminGroupIs(0x11);
    a->maxLinkBwIs(1.25e9f);
    a->maxReserveLinkBwIs(1e9f);
    a->unreservedBwIs(BwIndex(0), 5e8f);
    a->unreservedBwIs(BwIndex(7), 1e8f);
    a->extAdminGroupIs(AdminGroupIndex(0), 0xff);
    a->extAdminGroupIs(AdminGroupIndex(3), 0x1);
    a->teDefMetricIs(20);
    a->igpMetricIs(10);
    a->adjSidIs(AdjacencySid(0x30, 24001, 0));
    a->adjSidIs(AdjacencySid(0x20, 24002, 1));
    auto b = parsed->neighborIs(kV6());
    b->igpMetricIs(30);
    b->lanAdjSidIs(LanAdjacencySid(0x30, 24010, 0, Routing::Isis::SystemId({1, 2, 3, 4, 5, 6})));
    parsed->neighborIs(kUnnumbered())->igpMetricIs(40);
    parsed->parsedSrLgIs(IpGenAddr(v4(10, 0, 0, 1)))->srlgValueIs(100);
    parsed->parsedSrLgIs(IpGenAddr(v6(0xfe80, 1)))->srlgValueIs(200);
    parsed->parsedSrLgIs(IpGenAddr())->srlgValueIs(300);

    auto p = parsed->prefixIs(pReach());
    p->hasValidReachabilityIs(true);
    p->metricIs(10);
    p->prefixSidIs(PrefixSid(0x40, 100, 0, true));
    p->prefixMetric()->metricIs(128, 15);
    p->prefixMetric()->metricIs(129, 25);
    auto q = parsed->prefixIs(pReach6());
    q->hasValidReachabilityIs(true);
    q->metricIs(20);
    auto u = parsed->prefixIs(pUnreach());
    PrefixFlags down;
    down.isisDownIs(true);
    u->flagsIs(down);
    if (withBindings) {
        for (const auto& bound : {p, u}) {
            auto binding = sidLabelBindingFactory();
            binding->rangeIs(4);
            binding->baseLabelSidIs(LabelSid(0x80, 16000, true));
            bound->sidLabelBindingIs(binding);
        }
    }
    return parsed;
}

// An older LSP of the same node: some keys shared with the sample, others only here.
Poldo::Ptr<IsisLspParsedContent> olderLsp() {
    auto parsed = isisLspParsedContentFactory();
    parsed->neighborIs(kV4())->igpMetricIs(99);
    parsed->neighborIs(kGone())->igpMetricIs(5);
    parsed->prefixIs(pReach())->metricIs(99);
    parsed->prefixIs(pGone());
    return parsed;
}

void merge(IgpLsp& entry, const Poldo::Ptr<IsisLspParsedContent>& parsed) {
    entry.updateNeighbors(parsed);
    entry.updatePrefixes(parsed);
}

template <class Map>
auto keysOf(const Map& m) {
    std::vector<std::remove_cvref_t<decltype(m.begin()->key)>> keys;
    for (auto it = m.begin(); it != m.end(); ++it) {
        keys.push_back(it->key);
    }
    std::sort(keys.begin(), keys.end());
    return keys;
}
std::vector<NeighborKey> parsedNeighborKeys(const IsisLspParsedContent& parsed) {
    std::vector<NeighborKey> keys;
    for (auto it = parsed.neighbor().begin(); it != parsed.neighbor().end(); ++it)
        keys.push_back((*it)->key());
    std::sort(keys.begin(), keys.end());
    return keys;
}
std::vector<PrefixKey> parsedPrefixKeys(const IsisLspParsedContent& parsed) {
    std::vector<PrefixKey> keys;
    for (auto it = parsed.prefix().begin(); it != parsed.prefix().end(); ++it)
        keys.push_back((*it)->prefixKey());
    std::sort(keys.begin(), keys.end());
    return keys;
}

std::uint64_t allocationsOverAllTrackers() {
    std::uint64_t n = 0;
    Drimm::AllocTracker::forEach([&](const Drimm::AllocTracker& t) { n += t.allocations(); });
    return n;
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
        for (const auto& o : onMembers)
            n += o->size();
        return n;
    }
    IgpTest::RecordingObserver<> onEntry;
    std::vector<std::unique_ptr<IgpTest::RecordingObserver<>>> onMembers;
};

std::size_t countAttr(const std::vector<IgpTest::Record>& recs, Kest::AttrId attr) {
    return static_cast<std::size_t>(
        std::count_if(recs.begin(), recs.end(), [&](const IgpTest::Record& r) { return r.attr == attr; }));
}

// ---- membership and identity --------------------------------------------------------------

TEST(IgpLspMerge, AfterBothMergesTheEntryHoldsExactlyTheParsedKeys) {
    auto entry = igpLspFactory(nodeId(1));
    merge(*entry, olderLsp());
    auto parsed = sampleLsp(true);

    merge(*entry, parsed);

    EXPECT_EQ(keysOf(entry->neighbor()), parsedNeighborKeys(*parsed));
    EXPECT_EQ(keysOf(entry->prefix()), parsedPrefixKeys(*parsed));
    EXPECT_EQ(entry->neighbor(kGone()), nullptr);
    EXPECT_EQ(entry->prefix(pGone()), nullptr);
}

TEST(IgpLspMerge, MembersPresentBeforeKeepTheirIdentityAndTakeTheParsedAttributes) {
    auto entry = igpLspFactory(nodeId(1));
    merge(*entry, olderLsp());
    const Neighbor* oldNbr = entry->neighbor(kV4()).get();
    const Prefix* oldPfx = entry->prefix(pReach()).get();
    auto parsed = sampleLsp(false);

    merge(*entry, parsed);

    ASSERT_EQ(entry->neighbor(kV4()).get(), oldNbr);
    ASSERT_EQ(entry->prefix(pReach()).get(), oldPfx);
    EXPECT_NE(oldNbr, parsed->neighbor(kV4()).get());
    EXPECT_EQ(oldNbr->igpMetric(), 10u);
    EXPECT_EQ(oldNbr->teDefMetric(), 20u);
    EXPECT_EQ(oldNbr->extAdminGroup(AdminGroupIndex(3)), 0x1u);
    EXPECT_TRUE(oldNbr->adjSidHas(AdjacencySid(0x20, 24002, 1)));
    EXPECT_EQ(oldPfx->metric(), 10u);
    EXPECT_TRUE(oldPfx->hasValidReachability());
    EXPECT_EQ(oldPfx->prefixSid(), PrefixSid(0x40, 100, 0, true));
    EXPECT_EQ(oldPfx->prefixMetric()->metric(129), 25u);
}

TEST(IgpLspMerge, NewMembersAreTheParsedObjectsThemselves) {
    auto entry = igpLspFactory(nodeId(1));
    merge(*entry, olderLsp());
    auto parsed = sampleLsp(true);

    merge(*entry, parsed);

    for (const auto& k : {kV6(), kUnnumbered()}) {
        EXPECT_EQ(entry->neighbor(k), parsed->neighbor(k)) << k.toStrep();
    }
    for (const auto& k : {pReach6(), pUnreach()}) {
        EXPECT_EQ(entry->prefix(k), parsed->prefix(k)) << k;
    }
}

TEST(IgpLspMerge, EmptyParsedContentRemovesEveryMemberWithOneRemovalEach) {
    auto entry = igpLspFactory(nodeId(1));
    merge(*entry, sampleLsp(true));
    IgpTest::RecordingObserver<NeighborKey, PrefixKey> rec(entry->publisher());

    merge(*entry, isisLspParsedContentFactory());

    EXPECT_TRUE(entry->neighbor().empty());
    EXPECT_TRUE(entry->prefix().empty());
    ASSERT_EQ(rec.size(), 6u);
    std::set<NeighborKey> nbrs;
    std::set<PrefixKey> pfxs;
    for (const auto& r : rec.records()) {
        EXPECT_TRUE(r.hasOldValue);
        if (r.attr == IgpLsp::Attr::neighbor) {
            nbrs.insert(*r.keyAs<NeighborKey>());
        } else {
            EXPECT_EQ(r.attr, IgpLsp::Attr::prefix);
            pfxs.insert(*r.keyAs<PrefixKey>());
        }
    }
    EXPECT_EQ(nbrs, (std::set<NeighborKey>{kV4(), kV6(), kUnnumbered()}));
    EXPECT_EQ(pfxs, (std::set<PrefixKey>{pReach(), pReach6(), pUnreach()}));
}

// ---- observers that change the entry during a merge -----------------------------------------

// The merge looks the next member up before it merges the current one; an
// observer that removes members meanwhile makes it look again, so no update
// lands on a member of another key or on a slot that moved.
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
        const PrefixKey p = pfxKey(v4(10, 50, i, 0), 24);
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
    EXPECT_EQ(keysOf(entry->neighbor()), parsedNeighborKeys(*second));
    EXPECT_EQ(keysOf(entry->prefix()), parsedPrefixKeys(*second));
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

TEST(IgpLspMerge, SecondMergeOfEqualContentPublishesAndAllocatesNothing) {
    auto entry = igpLspFactory(nodeId(1));
    auto first = sampleLsp(false);
    {
        const testsupport::AllocationScope firstMerge;
        merge(*entry, first);
        // The first merge must allocate (the member tables): proof that the counter counts at all.
        ASSERT_GT(firstMerge.count(), 0u);
    }
    auto again = sampleLsp(false);  // built before counting: only the merge is measured
    EverywhereObservers observers(*entry);
    const std::uint64_t live0 = Drimm::AllocTracker::totalLive();
    const std::uint64_t trackerAllocs0 = allocationsOverAllTrackers();
    const testsupport::AllocationScope heap;

    merge(*entry, again);

    EXPECT_EQ(heap.count(), 0u) << "heap allocations during the merge";
    EXPECT_EQ(allocationsOverAllTrackers(), trackerAllocs0);
    EXPECT_EQ(Drimm::AllocTracker::totalLive(), live0);
    EXPECT_EQ(observers.total(), 0u);
}

TEST(IgpLspMerge, MergingTheVeryContentAlreadyMergedPublishesNothing) {
    auto entry = igpLspFactory(nodeId(1));
    auto parsed = sampleLsp(false);
    merge(*entry, parsed);
    EverywhereObservers observers(*entry);
    const testsupport::AllocationScope heap;

    merge(*entry, parsed);

    EXPECT_EQ(heap.count(), 0u);
    EXPECT_EQ(observers.total(), 0u);
    EXPECT_EQ(entry->neighbor().size(), 3u);
    EXPECT_EQ(entry->prefix().size(), 3u);
}

TEST(IgpLspMerge, EveryMergeReplacesTheBindingOfEachPrefixThatCarriesOne) {
    auto entry = igpLspFactory(nodeId(1));
    merge(*entry, sampleLsp(true));
    auto again = sampleLsp(true);
    std::size_t withBinding = 0;
    for (auto it = again->prefix().begin(); it != again->prefix().end(); ++it) {
        withBinding += (*it)->sidLabelBinding() ? 1 : 0;
    }
    ASSERT_EQ(withBinding, 2u);
    const SidLabelBinding* before = entry->prefix(pReach())->sidLabelBinding().get();
    EverywhereObservers observers(*entry);
    const std::uint64_t bindings0 = SidLabelBinding::allocTracker().allocations();
    const std::uint64_t trackerAllocs0 = allocationsOverAllTrackers();
    const std::uint64_t live0 = Drimm::AllocTracker::totalLive();

    merge(*entry, again);

    EXPECT_EQ(SidLabelBinding::allocTracker().allocations() - bindings0, withBinding);
    EXPECT_EQ(allocationsOverAllTrackers() - trackerAllocs0, withBinding)
        << "nothing but bindings is created";
    EXPECT_EQ(Drimm::AllocTracker::totalLive(), live0) << "each new binding replaces one that is freed";
    const auto& after = entry->prefix(pReach())->sidLabelBinding();
    ASSERT_NE(after, nullptr);
    EXPECT_NE(after.get(), before);
    EXPECT_NE(after, again->prefix(pReach())->sidLabelBinding()) << "a copy, not the parsed binding";
    EXPECT_EQ(after->toStrep(), again->prefix(pReach())->sidLabelBinding()->toStrep());
    // Only the binding pointers of the two bound prefixes changed.
    EXPECT_EQ(observers.total(), withBinding);
    for (const auto& o : observers.onMembers) {
        for (const auto& r : o->records()) {
            EXPECT_EQ(r.attr, Prefix::Attr::sidLabelBinding);
        }
    }
}

// ---- a key that differs in one field --------------------------------------------------------

struct NeighborKeyChange {
    const char* what;
    std::function<void(NeighborKey&)> apply;
};

TEST(IgpLspMerge, NeighborKeyDifferingInOneFieldIsARemovalPlusAnInsertion) {
    const std::vector<NeighborKeyChange> changes{
        {"mtId", [](NeighborKey& k) { k.mtIdIs(IgpMultiTopologyId(2)); }},
        {"pseudonode byte", [](NeighborKey& k) { k.nodeIdIs(nodeId(2, 1)); }},
        {"local IPv4 replaced",
         [](NeighborKey& k) {
             k.localIpv4AddrDel(v4(10, 0, 0, 1));
             k.localIpv4AddrIs(v4(10, 0, 0, 3));
         }},
        {"remote IPv4 added", [](NeighborKey& k) { k.remoteIpv4AddrIs(v4(10, 0, 0, 4)); }},
        {"local IPv6 added", [](NeighborKey& k) { k.localIpv6AddrIs(v6(0xfe80, 7)); }},
        {"remote IPv6 added", [](NeighborKey& k) { k.remoteIpv6AddrIs(v6(0xfe80, 8)); }},
    };
    for (const auto& change : changes) {
        SCOPED_TRACE(change.what);
        NeighborKey changed = kV4();
        change.apply(changed);
        ASSERT_NE(changed, kV4());
        auto entry = igpLspFactory(nodeId(1));
        merge(*entry, sampleLsp(false));
        Poldo::Ptr<Neighbor> old = entry->neighbor(kV4());
        auto parsed = isisLspParsedContentFactory();
        auto fresh = parsed->neighborIs(changed);
        fresh->igpMetricIs(10);
        IgpTest::RecordingObserver<NeighborKey> rec(entry->publisher());

        entry->updateNeighbors(parsed);

        EXPECT_EQ(entry->neighbor(changed), fresh);
        EXPECT_EQ(entry->neighbor(kV4()), nullptr);
        EXPECT_EQ(old->useCount(), 1u) << "the entry let go of the old neighbor";
        ASSERT_EQ(rec.size(), 4u);  // the changed key in, then the three sample keys out
        EXPECT_EQ(*rec[0].keyAs<NeighborKey>(), changed);
        EXPECT_FALSE(rec[0].hasOldValue);
        std::set<NeighborKey> removed;
        for (std::size_t i = 1; i < rec.size(); ++i) {
            EXPECT_TRUE(rec[i].hasOldValue);
            removed.insert(*rec[i].keyAs<NeighborKey>());
        }
        EXPECT_EQ(removed, (std::set<NeighborKey>{kV4(), kV6(), kUnnumbered()}));
    }
}

TEST(IgpLspMerge, PrefixKeyDifferingInOneFieldIsARemovalPlusAnInsertion) {
    for (const PrefixKey& changed :
         {pfxKey(v4(10, 1, 0, 0), 16, 2), pfxKey(v4(10, 1, 0, 0), 17), pfxKey(v4(10, 1, 0, 1), 16)}) {
        SCOPED_TRACE(::testing::PrintToString(changed.prefix().stringValue()) + " mtId " +
                     std::to_string(changed.mtId().value()));
        auto entry = igpLspFactory(nodeId(1));
        merge(*entry, sampleLsp(false));
        Poldo::Ptr<Prefix> old = entry->prefix(pReach());
        auto parsed = isisLspParsedContentFactory();
        auto fresh = parsed->prefixIs(changed);
        fresh->hasValidReachabilityIs(true);
        fresh->metricIs(10);
        IgpTest::RecordingObserver<PrefixKey> rec(entry->publisher());

        entry->updatePrefixes(parsed);

        EXPECT_EQ(entry->prefix(changed), fresh);
        EXPECT_EQ(entry->prefix(pReach()), nullptr);
        EXPECT_EQ(old->useCount(), 1u);
        ASSERT_EQ(rec.size(), 4u);
        EXPECT_EQ(*rec[0].keyAs<PrefixKey>(), changed);
        EXPECT_FALSE(rec[0].hasOldValue);
        EXPECT_EQ(countAttr(rec.records(), IgpLsp::Attr::prefix), 4u);
    }
}

// ---- the SRLG fold --------------------------------------------------------------------------

std::set<std::uint32_t> srlgsOf(const Neighbor& n) {
    std::set<std::uint32_t> s;
    for (auto it = n.srlgValues().begin(); it != n.srlgValues().end(); ++it)
        s.insert(*it);
    return s;
}

TEST(IgpLspSrlgFold, NeighborWithoutLocalAddressesTakesOnlyTheEmptyAddressRecord) {
    auto parsed = isisLspParsedContentFactory();
    NeighborKey k(nodeId(2), IgpMultiTopologyId(0));
    k.remoteIpv4AddrIs(v4(10, 0, 0, 2));  // remote addresses never name a record
    k.remoteIpv6AddrIs(v6(0xfe80, 2));
    auto unnumbered = parsed->neighborIs(k);
    NeighborKey both(nodeId(3), IgpMultiTopologyId(0));
    both.localIpv4AddrIs(v4(10, 0, 1, 1));
    both.localIpv6AddrIs(v6(0xfe80, 9));
    auto numbered = parsed->neighborIs(both);
    parsed->parsedSrLgIs(IpGenAddr())->srlgValueIs(300);
    parsed->parsedSrLgIs(IpGenAddr())->srlgValueIs(301);
    parsed->parsedSrLgIs(IpGenAddr(v4(10, 0, 0, 2)))->srlgValueIs(1);
    parsed->parsedSrLgIs(IpGenAddr(v6(0xfe80, 2)))->srlgValueIs(2);
    parsed->parsedSrLgIs(IpGenAddr(IpAddr(0)))->srlgValueIs(3);
    auto entry = igpLspFactory(nodeId(1));

    entry->updateNeighbors(parsed);

    EXPECT_EQ(srlgsOf(*unnumbered), (std::set<std::uint32_t>{300, 301}));
    EXPECT_TRUE(unnumbered->attrsPresent().srlgValues());
    EXPECT_TRUE(srlgsOf(*numbered).empty()) << "both families have a first address and neither has a record";
    EXPECT_FALSE(numbered->attrsPresent().srlgValues());
}

TEST(IgpLspSrlgFold, OnlyTheFirstLocalIpv4AddressInIterationOrderNamesTheRecord) {
    auto parsed = isisLspParsedContentFactory();
    NeighborKey k(nodeId(2), IgpMultiTopologyId(0));
    for (std::uint8_t i = 1; i <= 4; ++i) {
        k.localIpv4AddrIs(v4(10, 0, 0, i));
    }
    k.localIpv6AddrIs(v6(0xfe80, 1));  // a first IPv6 address without a record
    auto nbr = parsed->neighborIs(k);
    for (std::uint8_t i = 1; i <= 4; ++i) {
        parsed->parsedSrLgIs(IpGenAddr(v4(10, 0, 0, i)))->srlgValueIs(100u + i);
    }
    const IpAddr first = *nbr->key().localIpv4Addr().uncheckedBegin();
    auto entry = igpLspFactory(nodeId(1));

    entry->updateNeighbors(parsed);

    EXPECT_EQ(srlgsOf(*nbr), (std::set<std::uint32_t>{100u + (first.value() & 0xff)}))
        << "first is " << first;
    EXPECT_EQ(entry->neighbor(k), nbr);
}

TEST(IgpLspSrlgFold, BothFamiliesRecordsUniteAndTheFlagIsPublishedOnce) {
    auto parsed = isisLspParsedContentFactory();
    NeighborKey k(nodeId(2), IgpMultiTopologyId(0));
    k.localIpv4AddrIs(v4(10, 0, 0, 1));
    k.localIpv6AddrIs(v6(0xfe80, 1));
    auto nbr = parsed->neighborIs(k);
    nbr->attrsPresentIs(Neighbor::NeighborAttrsPresent(0x01));
    auto r4 = parsed->parsedSrLgIs(IpGenAddr(v4(10, 0, 0, 1)));
    r4->srlgValueIs(1);
    r4->srlgValueIs(2);
    auto r6 = parsed->parsedSrLgIs(IpGenAddr(v6(0xfe80, 1)));
    r6->srlgValueIs(2);
    r6->srlgValueIs(3);
    NbrRec rec(nbr->publisher());
    auto entry = igpLspFactory(nodeId(1));

    entry->updateNeighbors(parsed);

    EXPECT_EQ(srlgsOf(*nbr), (std::set<std::uint32_t>{1, 2, 3}));
    EXPECT_EQ(nbr->attrsPresent().value(), 0x41);
    EXPECT_EQ(countAttr(rec.records(), Neighbor::Attr::attrsPresent), 1u);
    EXPECT_EQ(countAttr(rec.records(), Neighbor::Attr::srlgValues), 3u);
    EXPECT_EQ(entry->neighbor(k), nbr);
}

TEST(IgpLspSrlgFold, FoldGoesToTheParsedNeighborAndReachesTheExistingOneThroughUpdateAttr) {
    NeighborKey k(nodeId(2), IgpMultiTopologyId(0));
    k.localIpv4AddrIs(v4(10, 0, 0, 1));
    k.localIpv6AddrIs(v6(0xfe80, 1));
    auto entry = igpLspFactory(nodeId(1));
    auto existing = neighborFactory(k);
    existing->srlgValuesIs(1);
    existing->srlgValuesIs(2);
    entry->neighborIs(k, existing);
    auto parsed = isisLspParsedContentFactory();
    auto incoming = parsed->neighborIs(k);
    parsed->parsedSrLgIs(IpGenAddr(v4(10, 0, 0, 1)))->srlgValueIs(2);
    parsed->parsedSrLgIs(IpGenAddr(v6(0xfe80, 1)))->srlgValueIs(3);
    NbrRec onExisting(existing->publisher());
    NbrRec onIncoming(incoming->publisher());

    entry->updateNeighbors(parsed);

    EXPECT_EQ(entry->neighbor(k), existing);
    EXPECT_EQ(srlgsOf(*incoming), (std::set<std::uint32_t>{2, 3}));
    EXPECT_TRUE(incoming->attrsPresent().srlgValues());
    EXPECT_EQ(srlgsOf(*existing), (std::set<std::uint32_t>{2, 3}));
    EXPECT_TRUE(existing->attrsPresent().srlgValues());
    // The existing neighbor heard exactly updateAttr's steps: the flag, +3, then -1.
    ASSERT_EQ(onExisting.size(), 3u);
    EXPECT_EQ(onExisting[0].attr, Neighbor::Attr::attrsPresent);
    EXPECT_EQ(onExisting[1].attr, Neighbor::Attr::srlgValues);
    EXPECT_EQ(*onExisting[1].keyAs<std::uint32_t>(), 3u);
    EXPECT_FALSE(onExisting[1].hasOldValue);
    EXPECT_EQ(onExisting[2].attr, Neighbor::Attr::srlgValues);
    EXPECT_EQ(*onExisting[2].keyAs<std::uint32_t>(), 1u);
    EXPECT_TRUE(onExisting[2].hasOldValue);
    EXPECT_EQ(countAttr(onIncoming.records(), Neighbor::Attr::attrsPresent), 1u);
}

}  // namespace
