// Neighbor: compare-before-write setters and their notifications, bulk deletions and the
// observed/unobserved split, the attribute merge (what it publishes, in which order, and that a
// no-op merge allocates nothing), and the dump text.
#include "IgpCommon/Neighbor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "support/AllocationCounter.h"
#include "support/RecordingObserver.h"

namespace {

using namespace Routing::IgpCommon;  // NOLINT(google-build-using-namespace)
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

using Attrs = Neighbor::NeighborAttrsPresent;
using Rec = IgpTest::RecordingObserver<Attrs, std::uint32_t, float, BwIndex, AdminGroupIndex, AdjacencySid,
                                       LanAdjacencySid, LinkDelay>;
using A = Neighbor::Attr;

/// Allocations of every registered Drimm tracker together.
std::uint64_t drimmAllocations() {
    std::uint64_t n = 0;
    Drimm::AllocTracker::forEach([&n](const Drimm::AllocTracker& t) { n += t.allocations(); });
    return n;
}

NeighborKey key() {
    static constexpr std::uint8_t bytes[7] = {0x19, 0x21, 0x68, 0x00, 0x10, 0x01, 0x00};
    return NeighborKey(IgpNodeId::fromBytes(bytes), IgpMultiTopologyId(0));
}

Lumo::IpAddr v4(const char* text) {
    return Kest::strepToValue(Poldo::String(text), static_cast<Lumo::IpAddr*>(nullptr));
}
Lumo::Ip6Addr v6(const char* text) {
    return Kest::strepToValue(Poldo::String(text), static_cast<Lumo::Ip6Addr*>(nullptr));
}
Routing::Isis::SystemId sysId(std::uint8_t last) {
    return Routing::Isis::SystemId({0, 0, 0, 0, 0, last});
}

Attrs allAttrs() {
    return Attrs(Attrs::validMask);
}

std::string dump(const Neighbor& n) {
    std::ostringstream os;
    n.formatContent(os);
    return os.str();
}

/// A neighbor carrying something in every attribute.
Poldo::Ptr<Neighbor> populated() {
    auto n = neighborFactory(key());
    n->attrsPresentIs(allAttrs());
    n->adminGroupIs(0xff);
    n->maxLinkBwIs(1e9f);
    n->maxReserveLinkBwIs(5e8f);
    n->teDefMetricIs(20);
    n->igpMetricIs(10);
    n->unreservedBwIs(BwIndex(0), 100.0f);
    n->unreservedBwIs(BwIndex(5), 500.0f);
    n->extAdminGroupIs(AdminGroupIndex(1), 0x11);
    n->extAdminGroupIs(AdminGroupIndex(40), 0);
    n->srlgValuesIs(7);
    n->srlgValuesIs(9);
    n->adjSidIs(AdjacencySid(0x30, 16001, 0));
    n->lanAdjSidIs(LanAdjacencySid(0x30, 16002, 1, sysId(2)));
    n->linkDelayIs(LinkDelay(1500, false));
    return n;
}

template <class Set>
std::vector<typename Set::key_type> sorted(const Set& s) {
    std::vector<typename Set::key_type> v;
    for (auto it = s.begin(); it != s.end(); ++it) {
        v.push_back(*it);
    }
    std::sort(v.begin(), v.end());
    return v;
}

std::vector<std::pair<unsigned, std::uint32_t>> words(const Neighbor& n) {
    std::vector<std::pair<unsigned, std::uint32_t>> v;
    for (auto it = n.extAdminGroup().begin(); it != n.extAdminGroup().end(); ++it) {
        v.emplace_back(it->key.value(), it->value);
    }
    std::sort(v.begin(), v.end());
    return v;
}

// ---- setters ---------------------------------------------------------------------------------

// ---- every described attribute -------------------------------------------------------------

// Another value of each type an attribute holds: a new attribute of a new type does not compile
// here until it has one.
std::uint32_t another(std::uint32_t v) {
    return v + 1;
}
float another(float v) {
    return v * 2.0f + 1.0f;  // distinct at any magnitude
}
Attrs another(Attrs v) {
    return Attrs(static_cast<std::uint8_t>(v.value() ^ 1u));
}
LinkDelay another(LinkDelay v) {
    return LinkDelay(v.delay() + 1, !v.anomalous());
}
// A member the populated neighbor lacks (an index it holds 0 at, for the array).
BwIndex newKey(BwIndex) {
    return BwIndex(7);
}
AdminGroupIndex newKey(AdminGroupIndex) {
    return AdminGroupIndex(63);
}
std::uint32_t newKey(std::uint32_t) {
    return 8;
}
AdjacencySid newKey(AdjacencySid) {
    return AdjacencySid(0x30, 16009, 0);
}
LanAdjacencySid newKey(LanAdjacencySid) {
    return LanAdjacencySid(0x30, 16009, 0, sysId(9));
}

/// Changes `d`'s attribute of `n` once: a scalar to another value, a new member into a collection.
template <class D>
void changeOne(const D& d, Neighbor& n) {
    if constexpr (Kest::ScalarDesc<D>) {
        d.set(n, another(d.get(n)));
    } else {
        using K = Kest::MemberKey<D>;
        using V = Kest::MemberValue<D>;
        const K k = newKey(K());
        if constexpr (std::is_same_v<K, V>) {
            Kest::putMember(d, n, k, k);
        } else {
            Kest::putMember(d, n, k, another(V()));
        }
    }
}

template <class F>
void forEachWritable(F&& f) {
    Kest::forEachAttr<Neighbor>([&](const auto& d) {
        using D = std::remove_cvref_t<decltype(d)>;
        if constexpr (Kest::MembersDesc<D>) {
            f(d);
        } else if constexpr (Kest::ScalarDesc<D>) {
            if constexpr (!D::isKey) {
                f(d);
            }
        }
    });
}

TEST(NeighborAttributes, EverySetterPublishesOnceWithItsIdentifierAndOldValueAndNeverForAnEqualValue) {
    forEachWritable([](const auto& d) {
        using D = std::remove_cvref_t<decltype(d)>;
        SCOPED_TRACE(d.name);
        auto n = populated();
        Rec rec(n->publisher());
        if constexpr (Kest::ScalarDesc<D>) {
            const auto old = d.get(*n);
            d.set(*n, old);
            EXPECT_TRUE(rec.empty());
            changeOne(d, *n);
            ASSERT_EQ(rec.size(), 1u);
            EXPECT_FALSE(rec[0].hasKey);
            ASSERT_NE(rec[0].template oldAs<typename D::Value>(), nullptr);
            EXPECT_EQ(*rec[0].template oldAs<typename D::Value>(), old);
            EXPECT_EQ(d.get(*n), another(old));
        } else {
            const auto k = newKey(Kest::MemberKey<D>());
            const auto before = Kest::findMember(d, *n, k);
            changeOne(d, *n);
            changeOne(d, *n);
            ASSERT_EQ(rec.size(), 1u);
            ASSERT_NE(rec[0].template keyAs<Kest::MemberKey<D>>(), nullptr);
            EXPECT_EQ(*rec[0].template keyAs<Kest::MemberKey<D>>(), k);
            // An array's slot always holds a value; a collection's new member had none.
            EXPECT_EQ(rec[0].hasOldValue, before.has_value());
            EXPECT_TRUE(Kest::findMember(d, *n, k).has_value());
        }
        EXPECT_EQ(rec[0].attr, d.id);
        EXPECT_EQ(rec[0].attrName, d.name);
    });
}

TEST(NeighborAttributes, EveryScalarReadsBackFromItsText) {
    forEachWritable([](const auto& d) {
        using D = std::remove_cvref_t<decltype(d)>;
        // Floats have no reader: they are written, never read back.
        if constexpr (Kest::ScalarDesc<D>) {
            if constexpr (!std::is_floating_point_v<typename D::Value>) {
                SCOPED_TRACE(d.name);
                const auto n = populated();
                for (const auto v : {d.get(*n), another(d.get(*n))}) {
                    const auto back =
                        Kest::strepToValue(Kest::strep(v), static_cast<typename D::Value*>(nullptr));
                    EXPECT_TRUE(Kest::sameValue(back, v)) << Kest::strep(v);
                }
            }
        }
    });
}

/// What a scalar of `first` should hold once united with `later`.
template <class D>
typename D::Value unitedScalar(const D& d, const Neighbor& first, const Neighbor& later) {
    using V = typename D::Value;
    if constexpr (std::totally_ordered<V>) {
        if (d.unite == Kest::Unite::least) {
            return std::min(d.get(first), d.get(later));
        }
    }
    if constexpr (requires(V v) { v.value(); }) {
        if (d.unite == Kest::Unite::flagsOfAll) {
            return V(static_cast<std::uint8_t>(d.get(first).value() | d.get(later).value()));
        }
    }
    return d.get(first);
}

TEST(NeighborAttributes, FragmentsUniteByEachAttributesRule) {
    // `into` carries everything; `from` differs in every attribute.
    const auto into = populated();
    const auto from = populated();
    forEachWritable([&](const auto& d) { changeOne(d, *from); });
    const auto before = populated();
    Kest::uniteAttrs(*into, *from);
    forEachWritable([&](const auto& d) {
        using D = std::remove_cvref_t<decltype(d)>;
        SCOPED_TRACE(d.name);
        if constexpr (Kest::ScalarDesc<D>) {
            const auto want = unitedScalar(d, *before, *from);
            EXPECT_TRUE(Kest::sameValue(d.get(*into), want)) << Kest::strep(d.get(*into));
        } else {
            const auto k = newKey(Kest::MemberKey<D>());
            const auto got = Kest::findMember(d, *into, k);
            if (d.unite == Kest::Unite::membersOfAll) {
                EXPECT_TRUE(got.has_value());  // the later fragment's member joined
            } else {
                EXPECT_EQ(got, Kest::findMember(d, *before, k));  // the first carrier's kept
            }
        }
    });
    // A fragment that carries nothing takes each attribute from the first that does.
    const auto bare = neighborFactory(key());
    bare->igpMetricIs(std::numeric_limits<std::uint32_t>::max());
    Kest::uniteAttrs(*bare, *before);
    EXPECT_EQ(Kest::firstDifference(*bare, *before), "");
}

TEST(NeighborSetters, NaNBandwidthIsAChangeEveryTime) {
    auto n = neighborFactory(key());
    Rec rec(n->publisher());
    const float nan = std::numeric_limits<float>::quiet_NaN();
    n->maxLinkBwIs(nan);
    n->maxLinkBwIs(nan);
    ASSERT_EQ(rec.size(), 2u);
    EXPECT_EQ(*rec[0].oldAs<float>(), 0.0f);
    ASSERT_NE(rec[1].oldAs<float>(), nullptr);
    EXPECT_TRUE(std::isnan(*rec[1].oldAs<float>()));
    EXPECT_TRUE(std::isnan(n->maxLinkBw()));
}

TEST(NeighborSetters, UnreservedBwPublishesItsIndexAndRefusesIndexEight) {
    auto n = neighborFactory(key());
    Rec rec(n->publisher());
    n->unreservedBwIs(BwIndex(3), 7.0f);
    n->unreservedBwIs(BwIndex(3), 7.0f);
    n->unreservedBwIs(BwIndex(3), 9.0f);
    ASSERT_EQ(rec.size(), 2u);
    EXPECT_EQ(rec[0].attr, A::unreservedBw);
    EXPECT_EQ(*rec[0].keyAs<BwIndex>(), BwIndex(3));
    EXPECT_EQ(*rec[0].oldAs<float>(), 0.0f);
    EXPECT_EQ(*rec[1].oldAs<float>(), 7.0f);

    rec.clear();
    const auto before = n->unreservedBw();
    EXPECT_THAT([&] { n->unreservedBwIs(BwIndex(8), 1.0f); },
                ::testing::ThrowsMessage<Kest::RangeException>(
                    ::testing::StrEq("cannot access index 8 of an array with size 8")));
    EXPECT_THAT([&] { n->unreservedBwDel(BwIndex(8)); },
                ::testing::ThrowsMessage<Kest::RangeException>(
                    ::testing::StrEq("cannot access index 8 of an array with size 8")));
    EXPECT_TRUE(rec.empty());
    EXPECT_EQ(n->unreservedBw(), before);
}

TEST(NeighborSetters, UnreservedBwDeletionPublishesOnlyForNonZeroEntries) {
    auto n = neighborFactory(key());
    n->unreservedBwIs(BwIndex(1), 10.0f);
    n->unreservedBwIs(BwIndex(6), 60.0f);
    Rec rec(n->publisher());
    n->unreservedBwDel(BwIndex(2));
    EXPECT_TRUE(rec.empty());
    n->unreservedBwDel(BwIndex(1));
    ASSERT_EQ(rec.size(), 1u);
    EXPECT_EQ(*rec[0].keyAs<BwIndex>(), BwIndex(1));
    EXPECT_EQ(*rec[0].oldAs<float>(), 10.0f);

    rec.clear();
    n->unreservedBwIs(BwIndex(0), 5.0f);
    rec.clear();
    n->unreservedBwDelAll();
    ASSERT_EQ(rec.size(), 2u);
    EXPECT_EQ(*rec[0].keyAs<BwIndex>(), BwIndex(0));
    EXPECT_EQ(*rec[0].oldAs<float>(), 5.0f);
    EXPECT_EQ(*rec[1].keyAs<BwIndex>(), BwIndex(6));
    EXPECT_EQ(*rec[1].oldAs<float>(), 60.0f);
    EXPECT_EQ(n->unreservedBw(), Neighbor::UnreservedBwArray());
}

TEST(NeighborSetters, ExtAdminGroupInsertReplaceDeleteAndAStoredZeroIsPresent) {
    auto n = neighborFactory(key());
    Rec rec(n->publisher());
    EXPECT_EQ(n->extAdminGroup(AdminGroupIndex(5)), 0u);
    n->extAdminGroupIs(AdminGroupIndex(5), 0);
    EXPECT_TRUE(n->extAdminGroup().contains(AdminGroupIndex(5)));
    EXPECT_EQ(n->extAdminGroup().size(), 1u);
    n->extAdminGroupIs(AdminGroupIndex(5), 0);
    n->extAdminGroupIs(AdminGroupIndex(5), 0xabc);
    n->extAdminGroupDel(AdminGroupIndex(5));
    n->extAdminGroupDel(AdminGroupIndex(5));

    ASSERT_EQ(rec.size(), 3u);
    for (const auto& r : rec.records()) {
        EXPECT_EQ(r.attr, A::extAdminGroup);
        ASSERT_NE(r.keyAs<AdminGroupIndex>(), nullptr);
        EXPECT_EQ(*r.keyAs<AdminGroupIndex>(), AdminGroupIndex(5));
    }
    EXPECT_FALSE(rec[0].hasOldValue);
    EXPECT_EQ(*rec[1].oldAs<std::uint32_t>(), 0u);
    EXPECT_EQ(*rec[2].oldAs<std::uint32_t>(), 0xabcu);
    EXPECT_TRUE(n->extAdminGroup().empty());
}

TEST(NeighborSetters, RemovingPublishesTheOldMemberAndNothingForAnAbsentOne) {
    auto n = populated();
    Rec rec(n->publisher());
    n->srlgValuesDel(43);
    n->adjSidDel(AdjacencySid(0x30, 16001, 1));  // another weight: another member
    n->extAdminGroupDel(AdminGroupIndex(2));
    EXPECT_TRUE(rec.empty());
    n->adjSidDel(AdjacencySid(0x30, 16001, 0));
    ASSERT_EQ(rec.size(), 1u);
    EXPECT_EQ(*rec[0].oldAs<AdjacencySid>(), AdjacencySid(0x30, 16001, 0));
    EXPECT_TRUE(n->adjSid().empty());
}

// ---- bulk deletion ---------------------------------------------------------------------------

void fillCollections(Neighbor& n) {
    for (std::uint8_t i = 0; i < 10; ++i) {
        n.extAdminGroupIs(AdminGroupIndex(static_cast<std::uint8_t>(i * 6)), i);
        n.srlgValuesIs(100u + i);
        n.adjSidIs(AdjacencySid(0x30, 16000u + i, i));
        n.lanAdjSidIs(LanAdjacencySid(0x30, 17000u + i, 0, sysId(i)));
    }
}

void deleteAll(Neighbor& n) {
    n.extAdminGroupDelAll();
    n.srlgValuesDelAll();
    n.adjSidDelAll();
    n.lanAdjSidDelAll();
}

TEST(NeighborDelAll, NeverObservedClearsEveryCollection) {
    auto n = neighborFactory(key());
    fillCollections(*n);
    ASSERT_TRUE(n->publisher().initialState());
    deleteAll(*n);
    EXPECT_TRUE(n->extAdminGroup().empty());
    EXPECT_TRUE(n->srlgValues().empty());
    EXPECT_TRUE(n->adjSid().empty());
    EXPECT_TRUE(n->lanAdjSid().empty());
}

TEST(NeighborDelAll, OnceObservedPublishesEveryMemberEvenAfterTheObserverLeft) {
    auto n = neighborFactory(key());
    fillCollections(*n);
    { Rec first(n->publisher()); }
    ASSERT_EQ(n->publisher().observerCount(), 0u);
    Rec rec(n->publisher());
    deleteAll(*n);
    ASSERT_EQ(rec.size(), 40u);

    std::vector<unsigned> groupKeys;
    std::vector<std::uint32_t> srlgs;
    std::vector<AdjacencySid> adjs;
    std::vector<LanAdjacencySid> lans;
    for (std::size_t i = 0; i < rec.size(); ++i) {
        const auto& r = rec[i];
        ASSERT_TRUE(r.hasOldValue) << i;
        switch (i / 10) {
            case 0:
                ASSERT_EQ(r.attr, A::extAdminGroup) << i;
                groupKeys.push_back(r.keyAs<AdminGroupIndex>()->value());
                EXPECT_EQ(*r.oldAs<std::uint32_t>() * 6, groupKeys.back());
                break;
            case 1:
                ASSERT_EQ(r.attr, A::srlgValues) << i;
                srlgs.push_back(*r.oldAs<std::uint32_t>());
                break;
            case 2:
                ASSERT_EQ(r.attr, A::adjSid) << i;
                adjs.push_back(*r.oldAs<AdjacencySid>());
                break;
            default:
                ASSERT_EQ(r.attr, A::lanAdjSid) << i;
                lans.push_back(*r.oldAs<LanAdjacencySid>());
                break;
        }
    }
    std::sort(groupKeys.begin(), groupKeys.end());
    std::sort(srlgs.begin(), srlgs.end());
    std::sort(adjs.begin(), adjs.end());
    std::sort(lans.begin(), lans.end());
    EXPECT_THAT(groupKeys, ElementsAre(0, 6, 12, 18, 24, 30, 36, 42, 48, 54));
    EXPECT_THAT(srlgs, ElementsAre(100, 101, 102, 103, 104, 105, 106, 107, 108, 109));
    EXPECT_EQ(adjs.front(), AdjacencySid(0x30, 16000, 0));
    EXPECT_EQ(adjs.back(), AdjacencySid(0x30, 16009, 9));
    EXPECT_EQ(lans.front(), LanAdjacencySid(0x30, 17000, 0, sysId(0)));
    EXPECT_EQ(lans.back(), LanAdjacencySid(0x30, 17009, 0, sysId(9)));
    EXPECT_TRUE(n->extAdminGroup().empty());
    EXPECT_TRUE(n->lanAdjSid().empty());
}

// ---- updateAttr ------------------------------------------------------------------------------

TEST(NeighborUpdateAttr, FromAnIdenticalNeighborPublishesAndAllocatesNothing) {
    auto mine = populated();
    const Poldo::Ptr<const Neighbor> other = populated();
    Rec rec(mine->publisher());
    rec.clear();
    const std::uint64_t drimmBefore = drimmAllocations();
    const testsupport::AllocationScope heap;
    mine->updateAttr(other);
    const std::uint64_t heapAllocations = heap.count();
    EXPECT_EQ(drimmAllocations(), drimmBefore);
    EXPECT_EQ(heapAllocations, 0u);
    EXPECT_TRUE(rec.empty());
    EXPECT_EQ(dump(*mine), dump(*other));
}

TEST(NeighborUpdateAttr, AMergeThatGrowsACollectionIsSeenByBothCounters) {
    // Guards the test above: counters that never move would make it pass for nothing.
    auto mine = neighborFactory(key());
    auto other = neighborFactory(key());
    for (std::uint32_t i = 0; i < 16; ++i) {
        other->srlgValuesIs(i);
    }
    const std::uint64_t neighborsBefore = Neighbor::allocTracker().allocations();
    const testsupport::AllocationScope heap;
    mine->updateAttr(other);
    EXPECT_GT(heap.count(), 0u);
    auto third = neighborFactory(key());
    EXPECT_EQ(Neighbor::allocTracker().allocations(), neighborsBefore + 1);
}

TEST(NeighborUpdateAttr, FromANeighborDifferingInOneAttributePublishesExactlyThatChange) {
    forEachWritable([](const auto& d) {
        SCOPED_TRACE(d.name);
        auto mine = populated();
        auto other = populated();
        changeOne(d, *other);
        Rec rec(mine->publisher());
        mine->updateAttr(other);
        ASSERT_EQ(rec.size(), 1u);
        EXPECT_EQ(rec[0].attr, d.id);
        EXPECT_EQ(Kest::firstDifference(*mine, *other), "");
    });
}

TEST(NeighborUpdateAttr, AFullUpdatePublishesInTheMergeOrder) {
    auto mine = populated();
    auto other = neighborFactory(key());
    other->adminGroupIs(1);
    other->maxLinkBwIs(2.0f);
    other->maxReserveLinkBwIs(3.0f);
    other->teDefMetricIs(4);
    other->igpMetricIs(5);
    other->unreservedBwIs(BwIndex(2), 20.0f);
    other->unreservedBwIs(BwIndex(7), 70.0f);
    other->extAdminGroupIs(AdminGroupIndex(2), 0x22);
    other->srlgValuesIs(11);
    other->adjSidIs(AdjacencySid(0x30, 16001, 5));
    other->lanAdjSidIs(LanAdjacencySid(0x30, 16003, 1, sysId(3)));

    Rec rec(mine->publisher());
    mine->updateAttr(other);
    EXPECT_THAT(rec.attrs(),
                ElementsAre(A::attrsPresent, A::adminGroup, A::maxLinkBw, A::maxReserveLinkBw, A::igpMetric,
                            A::teDefMetric,                                                      //
                            A::unreservedBw, A::unreservedBw, A::unreservedBw, A::unreservedBw,  // 0, 2, 5, 7
                            A::extAdminGroup, A::extAdminGroup, A::extAdminGroup,  // +2, -1, -40
                            A::srlgValues, A::srlgValues, A::srlgValues,           // +11, -7, -9
                            A::adjSid, A::adjSid,                                  // +w5, -w0
                            A::lanAdjSid, A::lanAdjSid,                            // +3, -2
                            A::linkDelay));
    ASSERT_EQ(rec.size(), 21u);
    std::vector<unsigned> bwIndexes;
    for (std::size_t i = 6; i < 10; ++i) {
        bwIndexes.push_back(rec[i].keyAs<BwIndex>()->value());
    }
    EXPECT_THAT(bwIndexes, ElementsAre(0, 2, 5, 7));
    // Each collection: additions (no old value) first, then removals.
    for (std::size_t first : {10u, 13u, 16u, 18u}) {
        EXPECT_FALSE(rec[first].hasOldValue) << first;
        EXPECT_TRUE(rec[first + 1].hasOldValue) << first;
    }
    EXPECT_EQ(*rec[10].keyAs<AdminGroupIndex>(), AdminGroupIndex(2));
    EXPECT_EQ(*rec[13].keyAs<std::uint32_t>(), 11u);
    EXPECT_TRUE(rec[14].hasOldValue && rec[15].hasOldValue);
    // An adjacency SID that differs only in its weight is another member: added, the old one removed.
    EXPECT_EQ(*rec[16].keyAs<AdjacencySid>(), AdjacencySid(0x30, 16001, 5));
    EXPECT_EQ(*rec[17].oldAs<AdjacencySid>(), AdjacencySid(0x30, 16001, 0));
    EXPECT_EQ(*rec[19].oldAs<LanAdjacencySid>(), LanAdjacencySid(0x30, 16002, 1, sysId(2)));
    EXPECT_EQ(dump(*mine), dump(*other));
}

TEST(NeighborUpdateAttr, CollectionsEndEqualToTheOthersWhateverTheirIterationOrder) {
    auto mine = neighborFactory(key());
    auto other = neighborFactory(key());
    for (std::uint32_t i = 0; i < 60; ++i) {
        if (i % 3 != 0) {
            mine->srlgValuesIs(1000 + i * 7);
            mine->extAdminGroupIs(AdminGroupIndex(static_cast<std::uint8_t>(i)), i);
            mine->adjSidIs(AdjacencySid(0x30, 20000 + i, 0));
        }
        if (i % 2 != 0) {
            other->srlgValuesIs(1000 + i * 7);
            other->extAdminGroupIs(AdminGroupIndex(static_cast<std::uint8_t>(i)), i % 4 == 1 ? i : i + 1);
            other->adjSidIs(AdjacencySid(0x30, 20000 + i, 0));
        }
    }
    Rec rec(mine->publisher());
    mine->updateAttr(other);
    EXPECT_EQ(sorted(mine->srlgValues()), sorted(other->srlgValues()));
    EXPECT_EQ(sorted(mine->adjSid()), sorted(other->adjSid()));
    EXPECT_EQ(words(*mine), words(*other));
    EXPECT_FALSE(rec.empty());

    // A second merge finds nothing left to do.
    rec.clear();
    mine->updateAttr(other);
    EXPECT_TRUE(rec.empty());
}

TEST(NeighborUpdateAttr, ClearFlagsDoNotStopTheCopy) {
    auto mine = neighborFactory(key());
    mine->attrsPresentIs(allAttrs());
    auto other = neighborFactory(key());
    other->adminGroupIs(7);
    other->maxLinkBwIs(8.0f);
    other->teDefMetricIs(9);
    other->unreservedBwIs(BwIndex(4), 4.0f);
    other->extAdminGroupIs(AdminGroupIndex(3), 3);
    other->srlgValuesIs(5);
    mine->updateAttr(other);
    EXPECT_EQ(mine->attrsPresent(), Attrs());
    EXPECT_EQ(mine->adminGroup(), 7u);
    EXPECT_EQ(mine->maxLinkBw(), 8.0f);
    EXPECT_EQ(mine->teDefMetric(), 9u);
    EXPECT_EQ(mine->unreservedBw(BwIndex(4)), 4.0f);
    EXPECT_EQ(mine->extAdminGroup(AdminGroupIndex(3)), 3u);
    EXPECT_TRUE(mine->srlgValuesHas(5));
}

// ---- dump text -------------------------------------------------------------------------------

const std::string kLine1 =
    "          ngb=1921.6800.1001, localIpv4Addr=[ ], localIpv6Addr=[ ], remoteIpv4Addr=[ ], "
    "remoteIpv6Addr=[ ]\n";

std::string zeros64() {
    std::string s;
    for (int i = 0; i < 64; ++i) {
        s += i ? ", 0" : "0";
    }
    return s;
}

TEST(NeighborFormat, BareNeighborPrintsTheKeyLineAndTheMetric) {
    auto n = neighborFactory(key());
    n->igpMetricIs(10);
    EXPECT_EQ(dump(*n), kLine1 + "                    igpMetric=10\n");
}

TEST(NeighborFormat, EveryAddressIsFollowedByOneBlank) {
    NeighborKey k = key();
    k.localIpv4AddrIs(v4("10.0.0.1"));
    k.localIpv6AddrIs(v6("2001:db8::1"));
    k.remoteIpv4AddrIs(v4("10.0.0.2"));
    k.remoteIpv6AddrIs(v6("2001:db8::2"));
    auto n = neighborFactory(k);
    EXPECT_EQ(dump(*n),
              "          ngb=1921.6800.1001, localIpv4Addr=[ 10.0.0.1 ], localIpv6Addr=[ 2001:db8::1 ], "
              "remoteIpv4Addr=[ 10.0.0.2 ], remoteIpv6Addr=[ 2001:db8::2 ]\n"
              "                    igpMetric=0\n");
}

TEST(NeighborFormat, TeAttributesInTheirOrderWithAll64AdminGroupWords) {
    auto n = neighborFactory(key());
    n->attrsPresentIs(allAttrs());
    n->igpMetricIs(10);
    n->adminGroupIs(255);
    n->maxLinkBwIs(1.25e9f);
    n->maxReserveLinkBwIs(0.5f);
    n->teDefMetricIs(20);
    n->unreservedBwIs(BwIndex(0), 1.25e9f);
    n->unreservedBwIs(BwIndex(7), 100.0f);
    n->extAdminGroupIs(AdminGroupIndex(0), 3);
    n->extAdminGroupIs(AdminGroupIndex(63), 4294967295u);
    n->linkDelayIs(LinkDelay::fromWord(0xFF000000u | 1500));  // reserved bits ignored
    std::string groups = "3";
    for (int i = 1; i < 63; ++i) {
        groups += ", 0";
    }
    groups += ", 4294967295";
    EXPECT_EQ(
        dump(*n),
        kLine1 +
            "                    igpMetric=10, adminGroup=255, maxLinkBw=1.25e+09, maxReserveLinkBw=0.5, "
            "teDefMetric=20, unreservedBw=[1.25e+09, 0, 0, 0, 0, 0, 0, 100], extAdminGroup=[" +
            groups + "], linkDelay=1500 (anomalous)\n");
}

TEST(NeighborFormat, FlagBitsAloneDecideWhichTeAttributesPrint) {
    auto n = neighborFactory(key());
    n->adminGroupIs(1);
    n->teDefMetricIs(2);
    Attrs flags;
    flags.maxLinkBwIs(true);
    flags.extAdminGroupIs(true);
    n->attrsPresentIs(flags);
    EXPECT_EQ(dump(*n),
              kLine1 + "                    igpMetric=0, maxLinkBw=0, extAdminGroup=[" + zeros64() + "]\n");
}

TEST(NeighborFormat, SrlgsFollowTheSetNotTheirFlag) {
    auto n = neighborFactory(key());
    Attrs srlgFlag;
    srlgFlag.srlgValuesIs(true);
    n->attrsPresentIs(srlgFlag);
    EXPECT_EQ(dump(*n), kLine1 + "                    igpMetric=0\n");
    n->attrsPresentIs(Attrs());
    n->srlgValuesIs(77);
    EXPECT_EQ(dump(*n), kLine1 + "                    igpMetric=0, srlg=[77]\n");
}

TEST(NeighborFormat, SidsPrintTheirFlagsInHexAndTheStreamIsDecimalAfterwards) {
    auto n = neighborFactory(key());
    n->igpMetricIs(10);
    n->adjSidIs(AdjacencySid(0x30, 16001, 0));
    n->lanAdjSidIs(LanAdjacencySid(0x30, 16002, 1, sysId(2)));
    std::ostringstream os;
    n->formatContent(os);
    os << 255;
    EXPECT_EQ(os.str(), kLine1 +
                            "                    igpMetric=10, adjSid=[{16001, flags=0x30, wt=0}], "
                            "lanAdjSid=[{16002, flags=0x30, wt=1, sysID=0000.0000.0002}]\n255");
}

// ---- creation --------------------------------------------------------------------------------

TEST(NeighborCreation, FactoryAndNeighborIsGiveOneCountedReferenceAndAreTracked) {
    Drimm::AllocTracker& t = Neighbor::allocTracker();
    const std::uint64_t allocs = t.allocations();
    const std::uint64_t live = t.live();
    {
        auto a = neighborFactory(key());
        auto b = Neighbor::NeighborIs(key());
        EXPECT_EQ(a->useCount(), 1u);
        EXPECT_EQ(b->useCount(), 1u);
        EXPECT_EQ(a->key(), key());
        EXPECT_EQ(t.allocations(), allocs + 2);
        EXPECT_EQ(t.live(), live + 2);
    }
    EXPECT_EQ(t.live(), live);
}

}  // namespace
