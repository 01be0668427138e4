// Neighbor, Prefix and Node. Every described attribute is checked over the description, so that a
// new one is covered once described: its setter publishes exactly once, an equal write publishes
// nothing, its value shows in the dump, and fragments unite by its rule. The rest is what the
// description cannot say: the merges' order, what they keep, share and refuse, bulk deletions, and
// the dump lines.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <concepts>
#include <cstdint>
#include <limits>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>

#include "IgpCommon/Neighbor.h"
#include "IgpCommon/Node.h"
#include "IgpCommon/Prefix.h"
#include "tests/support/AllocationCounter.h"
#include "tests/support/Builders.h"
#include "tests/support/RecordingObserver.h"

namespace {

using namespace Routing::IgpCommon;  // NOLINT(google-build-using-namespace)
using ::testing::ElementsAre;
using testsupport::formatted;
using testsupport::messageOf;
using testsupport::nbrKey;

template <class E>
struct Sample;
template <>
struct Sample<Neighbor> {
    static Poldo::Ptr<Neighbor> full() { return testsupport::fullNeighbor(); }
    /// Carries nothing: the igpMetric unites by the least, so it starts at the most.
    static Poldo::Ptr<Neighbor> bare() {
        auto n = neighborFactory(testsupport::nbrKey(1));
        n->igpMetricIs(std::numeric_limits<std::uint32_t>::max());
        return n;
    }
};
template <>
struct Sample<Prefix> {
    static Poldo::Ptr<Prefix> full() { return testsupport::fullPrefix(); }
    static Poldo::Ptr<Prefix> bare() { return prefixFactory(testsupport::pfxKey("10.0.0.0/8")); }
};

/// One of two node collections that differ in content.
template <class C>
Poldo::Ptr<C> variant(std::uint8_t k) {
    if constexpr (std::is_same_v<C, IsisAreaIdCol>) {
        auto c = isisAreaIdColFactory();
        c->areaIdIs(testsupport::parse<Routing::Isis::AreaId>(k == 1 ? "49.0001" : "49.0002"), false);
        return c;
    } else if constexpr (std::is_same_v<C, SrCapabilities>) {
        auto c = srCapabilitiesFactory();
        c->sidLabelRangeIs(SrSidRangeIndex(0), SrSidRange(100u * k, Lumo::MplsLabel(16000)));
        c->numRangesIs(1);
        return c;
    } else if constexpr (std::is_same_v<C, IgpMsdCol>) {
        auto c = igpMsdColFactory();
        c->msdIs(k, IgpMsd(1, 8));
        return c;
    } else if constexpr (std::is_same_v<C, IgpFlexAlgoDefinitionCol>) {
        auto c = igpFlexAlgoDefinitionColFactory();
        IgpFlexAlgoDefinition d;
        d.flexAlgoIs(static_cast<std::uint8_t>(127 + k));
        c->fadIs(d.flexAlgo(), d);
        return c;
    } else {
        auto c = igpMultiTopologyIdColFactory();
        c->mtIdValueIs(IgpMultiTopologyId(k));
        return c;
    }
}
template <>
struct Sample<Node> {
    /// Flags clear: the first fragment alone decides them, so a bare union keeps its own.
    static Poldo::Ptr<Node> full() {
        auto n = bare();
        n->hostNameIs("r1");
        n->ipv4RouterIdIs(testsupport::v4("1.1.1.1"));
        n->ipv6RouterIdIs(testsupport::v6("2001:db8::1"));
        n->isisAreaIdColIs(variant<IsisAreaIdCol>(1));
        n->srCapabilitiesIs(variant<SrCapabilities>(1));
        n->srlbIs(variant<SrCapabilities>(1));
        n->msdColIs(variant<IgpMsdCol>(1));
        n->fadColIs(variant<IgpFlexAlgoDefinitionCol>(1));
        n->mtIdColIs(variant<IgpMultiTopologyIdCol>(1));
        return n;
    }
    static Poldo::Ptr<Node> bare() { return nodeFactory(testsupport::nodeId(1)); }
};

// Another value of each type an attribute holds (an attribute of a new type does not compile here
// until it has one), and a member key the full samples lack (for an array, an index holding the
// default).
struct Other {
    static std::uint32_t another(std::uint32_t v) { return v + 1; }
    static float another(float v) { return v * 2.0f + 1.0f; }
    static bool another(bool v) { return !v; }
    template <class F>
    requires requires { F::validMask; }
    static F another(F v) { return F(static_cast<unsigned char>(v.value() ^ 1u)); }
    static LinkDelay another(LinkDelay v) { return LinkDelay(v.delay() + 1, !v.anomalous()); }
    static std::string another(const std::string& v) { return v + "x"; }
    static Lumo::IpAddr another(Lumo::IpAddr v) { return Lumo::IpAddr(v.value() + 1); }
    static Lumo::Ip6Addr another(Lumo::Ip6Addr v) {
        return testsupport::v6(v == testsupport::v6("::1") ? "::2" : "::1");
    }
    template <class C>
    static Poldo::Ptr<C> another(const Poldo::Ptr<C>& v) {
        return v && kestSameContent(*v, *variant<C>(1)) ? variant<C>(2) : variant<C>(1);
    }
    static PrefixSid another(PrefixSid v) { return PrefixSid(v.flags(), v.value() + 1, v.algorithm(), true); }
    static Poldo::Ptr<SidLabelBinding> another(const Poldo::Ptr<SidLabelBinding>& v) {
        return testsupport::binding(static_cast<std::uint16_t>((v ? v->range() : 0) + 1));
    }
    static BwIndex newKey(BwIndex) { return BwIndex(7); }
    static AdminGroupIndex newKey(AdminGroupIndex) { return AdminGroupIndex(63); }
    static std::uint32_t newKey(std::uint32_t) { return 8; }
    static std::uint8_t newKey(std::uint8_t) { return 200; }
    static AdjacencySid newKey(AdjacencySid) { return AdjacencySid(0x30, 16009, 0); }
    static LanAdjacencySid newKey(LanAdjacencySid) {
        return LanAdjacencySid(0x30, 16009, 0, Routing::Isis::SystemId({0, 0, 0, 0, 0, 9}));
    }
};

/// Changes `d`'s attribute of `e` once: a scalar to another value, a new member into a collection.
template <class D, class E>
void changeOne(const D& d, E& e) {
    if constexpr (Kest::ScalarDesc<D>) {
        d.set(e, Other::another(d.get(e)));
    } else {
        using K = Kest::MemberKey<D>;
        using V = Kest::MemberValue<D>;
        if constexpr (std::is_same_v<K, V>) {
            Kest::putMember(d, e, Other::newKey(K()), Other::newKey(K()));
        } else {
            Kest::putMember(d, e, Other::newKey(K()), Other::another(V()));
        }
    }
}

/// Calls `f(d)` for every description with a setter.
template <class E, class F>
void forEachWritable(F&& f) {
    Kest::forEachAttr<E>([&](const auto& d) {
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

template <class E>
class DescribedAttributes : public ::testing::Test {};
using Described = ::testing::Types<Neighbor, Prefix, Node>;
TYPED_TEST_SUITE(DescribedAttributes, Described);

TYPED_TEST(DescribedAttributes,
           EverySetterPublishesOnceWithItsIdentifierAndOldValueShowsInTheDumpAndAnEqualWriteNothing) {
    using E = TypeParam;
    forEachWritable<E>([](const auto& d) {
        using D = std::remove_cvref_t<decltype(d)>;
        SCOPED_TRACE(d.name);
        auto e = Sample<E>::full();
        const std::string text = formatted(*e);
        IgpTest::RecordingObserver<> rec(e->publisher());
        if constexpr (Kest::ScalarDesc<D>) {
            using V = typename D::Value;
            rec.onRecord([](const Poldo::Notification& n, IgpTest::Record& r) {
                if (const V* v = n.oldValue<V>()) {
                    r.oldValue = *v;
                }
            });
            const V old = d.get(*e);
            d.set(*e, old);
            EXPECT_TRUE(rec.empty());
            changeOne(d, *e);
            ASSERT_EQ(rec.size(), 1u);
            EXPECT_NE(formatted(*e), text) << "the value shows in the dump";
            EXPECT_FALSE(rec[0].hasKey);
            ASSERT_NE(rec[0].template oldAs<V>(), nullptr);
            EXPECT_TRUE(Kest::sameValue(*rec[0].template oldAs<V>(), old));
            EXPECT_TRUE(Kest::sameValue(d.get(*e), Other::another(old)));
        } else {
            using K = Kest::MemberKey<D>;
            rec.onRecord([](const Poldo::Notification& n, IgpTest::Record& r) {
                if (const K* k = n.key<K>()) {
                    r.key = *k;
                }
            });
            const auto before = Kest::findMember(d, *e, Other::newKey(K()));
            changeOne(d, *e);
            changeOne(d, *e);
            EXPECT_NE(formatted(*e), text) << "the value shows in the dump";
            EXPECT_TRUE(Kest::findMember(d, *e, Other::newKey(K())).has_value());
            if constexpr (!std::is_same_v<decltype(d.holder), std::nullptr_t>) {
                EXPECT_TRUE(rec.empty()) << "a collection behind a pointer publishes on its own object";
                return;
            }
            ASSERT_EQ(rec.size(), 1u);
            ASSERT_NE(rec[0].template keyAs<K>(), nullptr);
            EXPECT_EQ(*rec[0].template keyAs<K>(), Other::newKey(K()));
            EXPECT_EQ(rec[0].hasOldValue, before.has_value());  // an array's slot always holds one
        }
        EXPECT_EQ(rec[0].attr, d.id);
        EXPECT_EQ(rec[0].attrName, d.name);
    });
}

/// What a scalar of `first` should hold once united with `later`.
template <class D, class E>
typename D::Value unitedScalar(const D& d, const E& first, const E& later) {
    using V = typename D::Value;
    if constexpr (std::totally_ordered<V>) {
        if (d.unite == Kest::Unite::least) {
            return std::min(d.get(first), d.get(later));
        }
    }
    if constexpr (requires { V::validMask; }) {
        if (d.unite == Kest::Unite::flagsOfAll) {
            return V(static_cast<unsigned char>(d.get(first).value() | d.get(later).value()));
        }
    }
    return d.get(first);
}

TYPED_TEST(DescribedAttributes, FragmentsUniteByEachAttributesRule) {
    using E = TypeParam;
    // `into` carries everything; `from` differs in every attribute.
    const auto into = Sample<E>::full();
    const auto from = Sample<E>::full();
    forEachWritable<E>([&](const auto& d) { changeOne(d, *from); });
    const auto before = Sample<E>::full();
    Kest::uniteAttrs(*into, *from);
    forEachWritable<E>([&](const auto& d) {
        using D = std::remove_cvref_t<decltype(d)>;
        SCOPED_TRACE(d.name);
        if constexpr (Kest::ScalarDesc<D>) {
            // A rule of its own gathers from every fragment: `from`'s other member joins.
            EXPECT_TRUE(d.unite == Kest::Unite::ownRule
                            ? !Kest::sameValue(d.get(*into), d.get(*before))
                            : Kest::sameValue(d.get(*into), unitedScalar(d, *before, *from)));
        } else {
            const auto k = Other::newKey(Kest::MemberKey<D>());
            if (d.unite == Kest::Unite::membersOfAll) {
                EXPECT_TRUE(Kest::findMember(d, *into, k).has_value());
            } else {
                EXPECT_EQ(Kest::findMember(d, *into, k), Kest::findMember(d, *before, k));
            }
        }
    });
    // A fragment that carries nothing takes each attribute from the first that does.
    const auto bare = Sample<E>::bare();
    Kest::uniteAttrs(*bare, *before);
    EXPECT_EQ(Kest::firstDifference(*bare, *before), "");
}

using NRec =
    IgpTest::RecordingObserver<std::uint32_t, float, BwIndex, AdminGroupIndex, AdjacencySid, LanAdjacencySid>;
using NA = Neighbor::Attr;

TEST(NeighborSetters, NaNIsAlwaysAChangeIndexEightIsRefusedAbsentMembersPublishNothingDelAllEachMember) {
    auto n = testsupport::fullNeighbor();
    NRec rec(n->publisher());
    n->maxLinkBwIs(std::numeric_limits<float>::quiet_NaN());
    n->maxLinkBwIs(std::numeric_limits<float>::quiet_NaN());
    ASSERT_EQ(rec.size(), 2u);
    EXPECT_TRUE(std::isnan(*rec[1].oldAs<float>()));
    rec.clear();
    EXPECT_EQ(messageOf<Kest::RangeException>([&] { n->unreservedBwIs(BwIndex(8), 1.0f); }),
              "cannot access index 8 of an array with size 8");
    n->unreservedBwDel(BwIndex(2));
    n->srlgValuesDel(43);
    n->adjSidDel(AdjacencySid(0x30, 16001, 1));  // another weight: another member
    n->extAdminGroupDel(AdminGroupIndex(2));
    EXPECT_TRUE(rec.empty());
    n->extAdminGroupDel(AdminGroupIndex(40));  // a stored zero is a member
    n->unreservedBwDelAll();
    ASSERT_EQ(rec.size(), 3u);
    EXPECT_EQ(rec[1].keyAs<BwIndex>()->value(), 0u) << "only the non-zero entries";
    EXPECT_EQ(*rec[2].oldAs<float>(), 500.0f);
    rec.clear();
    n->extAdminGroupDelAll();
    n->srlgValuesDelAll();
    n->adjSidDelAll();
    n->lanAdjSidDelAll();
    EXPECT_TRUE(n->extAdminGroup().empty() && n->srlgValues().empty() && n->lanAdjSid().empty());
    EXPECT_THAT(rec.attrs(),
                ElementsAre(NA::extAdminGroup, NA::srlgValues, NA::srlgValues, NA::adjSid, NA::lanAdjSid));
}

TEST(NeighborUpdateAttr, ANoOpAllocatesNothingAndACollectionsAdditionsComeBeforeItsRemovals) {
    auto mine = testsupport::fullNeighbor();
    auto other = testsupport::fullNeighbor();
    NRec rec(mine->publisher());
    const std::uint64_t tracked = testsupport::trackedAllocations();
    {
        const testsupport::AllocationScope heap;
        mine->updateAttr(Poldo::Ptr<const Neighbor>(other));
        EXPECT_EQ(heap.count(), 0u);
    }
    EXPECT_EQ(testsupport::trackedAllocations(), tracked);
    EXPECT_TRUE(rec.empty());
    for (std::uint32_t i = 0; i < 60; ++i) {  // many members: the tables' iteration orders differ
        other->srlgValuesIs(1000 + i * 7);
        mine->srlgValuesIs(2000 + i * 7);
    }
    rec.clear();
    mine->updateAttr(other);
    EXPECT_EQ(Kest::firstDifference(*mine, *other), "");
    ASSERT_EQ(rec.size(), 120u);
    for (std::size_t i = 0; i < 120; ++i) {
        EXPECT_EQ(rec[i].hasOldValue, i >= 60) << i;
    }
}

// The flags alone decide (a flagged default prints, an unflagged value not); the SIDs' hex flags
// leave the stream decimal.
TEST(NeighborFormat, FlaggedAttributesOnlyAndTheStreamIsDecimalAfterwards) {
    auto n = neighborFactory(nbrKey(1, {"2001:db8::1"}, {"10.0.0.2"}));
    n->adminGroupIs(1);
    n->attrsPresentIs(Neighbor::NeighborAttrsPresent(0x02));
    n->linkDelayIs(LinkDelay::fromWord(0xFF000000u | 1500));  // reserved bits ignored
    n->lanAdjSidIs(LanAdjacencySid(0x30, 16002, 1, Routing::Isis::SystemId({0, 0, 0, 0, 0, 2})));
    std::ostringstream os;
    n->formatContent(os);
    os << 255;
    EXPECT_EQ(
        os.str(),
        "          ngb=1921.6800.1001, localIpv4Addr=[ ], localIpv6Addr=[ 2001:db8::1 ], "
        "remoteIpv4Addr=[ 10.0.0.2 ], remoteIpv6Addr=[ ]\n                    igpMetric=0, maxLinkBw=0, "
        "linkDelay=1500 (anomalous), lanAdjSid=[{16002, flags=0x30, wt=1, sysID=0000.0000.0002}]\n255");
}

using BindingPtr = Poldo::Ptr<SidLabelBinding>;
using PRec = IgpTest::RecordingObserver<std::uint32_t, PrefixSid, bool, BindingPtr>;
using PA = Prefix::Attr;
const PrefixFlags down(1);

Poldo::Ptr<Prefix> unreachable() {
    return prefixFactory(testsupport::pfxKey("10.0.0.0/8"));
}
Poldo::Ptr<Prefix> reachable(std::initializer_list<std::pair<std::uint8_t, std::uint32_t>> metrics) {
    auto p = unreachable();
    p->hasValidReachabilityIs(true);
    p->metricIs(10);
    p->prefixSidIs(PrefixSid(0x40, 1, 0, true));
    for (const auto& [algo, m] : metrics) {
        p->prefixMetric()->metricIs(algo, m);
    }
    return p;
}

TEST(PrefixUpdateAttr, ReachableOverwritesItsAlgorithmsInOurObjectAndANoOpAllocatesNothing) {
    auto mine = reachable({{128, 5}, {129, 6}});
    auto other = reachable({{128, 50}});
    other->metricIs(20);
    other->flagsIs(down);
    other->prefixSidIs(PrefixSid(0x40, 2, 0, true));
    const auto ourMetrics = mine->prefixMetric();
    PRec rec(mine->publisher());
    mine->updateAttr(other);
    EXPECT_EQ(mine->prefixMetric(), ourMetrics);
    EXPECT_EQ(ourMetrics->metric(128), 50u);
    EXPECT_EQ(ourMetrics->metric(129), 6u) << "ours kept";
    EXPECT_THAT(rec.attrs(), ElementsAre(PA::flags, PA::metric, PA::prefixSid));
    EXPECT_EQ(*rec[1].oldAs<std::uint32_t>(), 10u);

    for (bool reach : {true, false}) {
        auto a = reach ? reachable({{128, 5}, {129, 6}}) : unreachable();
        auto b = reach ? reachable({{128, 5}, {129, 6}}) : unreachable();
        PRec quiet(a->publisher());
        const testsupport::AllocationScope heap;
        a->updateAttr(b);
        EXPECT_EQ(heap.count(), 0u) << reach;
        EXPECT_TRUE(quiet.empty()) << reach;
    }
}

// An unreachable fragment brings only its SID and binding; an unreachable prefix prints only its key
// and binding.
TEST(PrefixAttributes, UnionOfAnUnreachableFragmentAndDumpLines) {
    auto reach = reachable({});
    reach->prefixSidIs(PrefixSid());
    auto bound = unreachable();
    bound->flagsIs(down);
    bound->metricIs(99);
    bound->prefixSidIs(PrefixSid(0x40, 9, 0, true));
    bound->sidLabelBindingIs(testsupport::binding(4));
    Kest::uniteAttrs(*reach, *bound);
    EXPECT_EQ(reach->flags(), PrefixFlags());
    EXPECT_EQ(reach->metric(), 10u);
    EXPECT_EQ(reach->prefixSid(), PrefixSid(0x40, 9, 0, true));
    EXPECT_EQ(reach->sidLabelBinding(), bound->sidLabelBinding());

    EXPECT_EQ(
        formatted(*bound) + formatted(*prefixFactory(testsupport::pfxKey("10.0.0.0/8", 2))),
        "          prefix=10.0.0.0/8, sidLabelBinding={flags=-, range=4, lspFragmentId=3, PrefixSID={100, "
        "flags=0x40, algo=0}}\n"
        "          prefix=10.0.0.0/8, mtId=2\n");
}

/// Nine ranges declared, the eight the array holds all set.
Poldo::Ptr<SrCapabilities> nineRanges() {
    auto c = srCapabilitiesFactory();
    c->srCapFlagIs(SrCapabilityFlags(1));
    for (std::uint8_t i = 0; i < 8; ++i) {
        c->sidLabelRangeIs(SrSidRangeIndex(i), SrSidRange(100, Lumo::MplsLabel(16000u + 100u * i)));
    }
    c->numRangesIs(9);
    return c;
}
const char kRangeIndexError[] =
    "Routing::IgpCommon::SrSidRangeIndex::value < Routing::IgpCommon::SrSidRangeIndex::min or > "
    "Routing::IgpCommon::SrSidRangeIndex::max not allowed";

TEST(NodeUpdateDeathTest, AnotherNodeIdStopsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(Sample<Node>::bare()->updateNodeAttrs(nodeFactory(testsupport::nodeId(2)).get()),
                 "nodeId\\(\\) == arg->nodeId\\(\\)");
}

// A block declaring nine ranges (the array holds eight) can neither be merged nor written.
TEST(NodeUpdate, NineRangesAreRefusedByTheMergeAndTheDump) {
    for (const auto set : {&Node::srCapabilitiesIs, &Node::srlbIs}) {
        auto a = Sample<Node>::bare();
        auto b = Sample<Node>::bare();
        ((*a).*set)(nineRanges());
        ((*b).*set)(nineRanges());
        EXPECT_EQ(messageOf<Kest::RangeException>([&] { a->updateNodeAttrs(b.get()); }), kRangeIndexError);
    }
    auto n = Sample<Node>::bare();
    n->srCapabilitiesIs(nineRanges());
    EXPECT_EQ(messageOf<Kest::RangeException>([&] { formatted(*n); }), kRangeIndexError);
}

}  // namespace
