// Neighbor, Prefix and Node beyond their described attributes: the merges' order, what they keep,
// share and refuse, bulk deletions, and the dump lines.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

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

Routing::Isis::SystemId sysId(std::uint8_t last) {
    return Routing::Isis::SystemId({0, 0, 0, 0, 0, last});
}

// ---- Neighbor --------------------------------------------------------------------------------

using NRec =
    IgpTest::RecordingObserver<std::uint32_t, float, BwIndex, AdminGroupIndex, AdjacencySid, LanAdjacencySid>;
using NA = Neighbor::Attr;

TEST(NeighborSetters, NaNIsAlwaysAChangeIndexEightIsRefusedAndAbsentMembersPublishNothing) {
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
}

TEST(NeighborDelAll, OnceObservedPublishesEveryMemberEvenAfterTheObserverLeft) {
    auto n = neighborFactory(nbrKey(1));
    for (std::uint8_t i = 0; i < 3; ++i) {
        n->extAdminGroupIs(AdminGroupIndex(static_cast<std::uint8_t>(i * 6)), i);
        n->srlgValuesIs(100u + i);
        n->adjSidIs(AdjacencySid(0x30, 16000u + i, i));
        n->lanAdjSidIs(LanAdjacencySid(0x30, 17000u + i, 0, sysId(i)));
    }
    { NRec gone(n->publisher()); }
    NRec rec(n->publisher());
    n->extAdminGroupDelAll();
    n->srlgValuesDelAll();
    n->adjSidDelAll();
    n->lanAdjSidDelAll();
    EXPECT_TRUE(n->extAdminGroup().empty() && n->srlgValues().empty() && n->adjSid().empty() &&
                n->lanAdjSid().empty());
    EXPECT_THAT(rec.attrs(),
                ElementsAre(NA::extAdminGroup, NA::extAdminGroup, NA::extAdminGroup, NA::srlgValues,
                            NA::srlgValues, NA::srlgValues, NA::adjSid, NA::adjSid, NA::adjSid, NA::lanAdjSid,
                            NA::lanAdjSid, NA::lanAdjSid));
}

TEST(NeighborUpdateAttr, ScalarsThenEachCollectionsAdditionsBeforeItsRemovalsAndANoOpAllocatesNothing) {
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

    other->attrsPresentIs(Neighbor::NeighborAttrsPresent());
    other->unreservedBwIs(BwIndex(2), 20.0f);
    other->extAdminGroupIs(AdminGroupIndex(2), 0x22);
    other->extAdminGroupDel(AdminGroupIndex(1));
    other->srlgValuesIs(11);
    other->srlgValuesDel(7);
    other->adjSidIs(AdjacencySid(0x30, 16001, 5));
    other->adjSidDel(AdjacencySid(0x30, 16001, 0));
    other->lanAdjSidDelAll();
    other->lanAdjSidIs(LanAdjacencySid(0x30, 16003, 1, sysId(3)));
    other->linkDelayIs(LinkDelay(9, true));
    for (std::uint32_t i = 0; i < 60; ++i) {  // many members: the tables' iteration orders differ
        other->srlgValuesIs(1000 + i * 7);
        mine->srlgValuesIs(2000 + i * 7);
    }
    rec.clear();
    mine->updateAttr(other);
    EXPECT_EQ(Kest::firstDifference(*mine, *other), "");
    const auto attrs = rec.attrs();
    ASSERT_EQ(attrs.size(), 11u + 120u);
    EXPECT_THAT(std::vector(attrs.begin(), attrs.begin() + 6),
                ElementsAre(NA::attrsPresent, NA::unreservedBw, NA::extAdminGroup, NA::extAdminGroup,
                            NA::srlgValues, NA::srlgValues));
    EXPECT_FALSE(rec[2].hasOldValue);
    EXPECT_TRUE(rec[3].hasOldValue);
    for (std::size_t i = 4; i < 4 + 61; ++i) {
        EXPECT_FALSE(rec[i].hasOldValue) << i;  // every srlg addition before the first removal
    }
    EXPECT_THAT(std::vector(attrs.end() - 5, attrs.end()),
                ElementsAre(NA::adjSid, NA::adjSid, NA::lanAdjSid, NA::lanAdjSid, NA::linkDelay));
}

// The flags alone decide (a flagged default prints, an unflagged value not); the SIDs' hex flags
// leave the stream decimal.
TEST(NeighborFormat, FlaggedAttributesOnlyAndTheStreamIsDecimalAfterwards) {
    auto n = neighborFactory(nbrKey(1, {"10.0.0.1", "2001:db8::1"}, {"10.0.0.2", "2001:db8::2"}));
    n->adminGroupIs(1);
    n->attrsPresentIs(Neighbor::NeighborAttrsPresent(0x12));
    n->srlgValuesIs(77);
    n->linkDelayIs(LinkDelay::fromWord(0xFF000000u | 1500));  // reserved bits ignored
    n->lanAdjSidIs(LanAdjacencySid(0x30, 16002, 1, sysId(2)));
    std::string zeros = "0";
    for (int i = 1; i < 64; ++i) {
        zeros += ", 0";
    }
    std::ostringstream os;
    n->formatContent(os);
    os << 255;
    EXPECT_EQ(os.str(),
              "          ngb=1921.6800.1001, localIpv4Addr=[ 10.0.0.1 ], localIpv6Addr=[ 2001:db8::1 ], "
              "remoteIpv4Addr=[ 10.0.0.2 ], remoteIpv6Addr=[ 2001:db8::2 ]\n"
              "                    igpMetric=0, maxLinkBw=0, extAdminGroup=[" +
                  zeros +
                  "], linkDelay=1500 (anomalous), srlg=[77], "
                  "lanAdjSid=[{16002, flags=0x30, wt=1, sysID=0000.0000.0002}]\n255");
}

// ---- Prefix ----------------------------------------------------------------------------------

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
std::vector<std::pair<unsigned, std::uint32_t>> metrics(const Prefix& p) {
    std::vector<std::pair<unsigned, std::uint32_t>> v;
    for (const auto& [algo, m] : p.prefixMetric()->metric()) {
        v.emplace_back(algo, m);
    }
    return v;
}

TEST(PrefixUpdateAttr, ReachableOverwritesItsAlgorithmsUnreachableResetsAndANoOpAllocatesNothing) {
    auto mine = reachable({{128, 5}, {129, 6}});
    auto other = reachable({{128, 50}});
    other->metricIs(20);
    other->flagsIs(down);
    other->prefixSidIs(PrefixSid(0x40, 2, 0, true));
    const auto ourMetrics = mine->prefixMetric();
    PRec rec(mine->publisher());
    mine->updateAttr(other);
    EXPECT_THAT(metrics(*mine), ElementsAre(std::pair(128u, 50u), std::pair(129u, 6u)));
    EXPECT_EQ(mine->prefixMetric(), ourMetrics);
    EXPECT_THAT(rec.attrs(), ElementsAre(PA::flags, PA::metric, PA::prefixSid));
    EXPECT_EQ(*rec[1].oldAs<std::uint32_t>(), 10u);

    auto gone = unreachable();
    gone->metricIs(99);  // an unreachable prefix's metric is not taken
    gone->prefixSidIs(PrefixSid(0x40, 7, 0, true));
    rec.clear();
    mine->updateAttr(gone);
    EXPECT_EQ(Kest::firstDifference(*mine, *unreachable()), "");
    EXPECT_THAT(rec.attrs(), ElementsAre(PA::hasValidReachability, PA::flags, PA::metric, PA::prefixSid));
    EXPECT_EQ(*rec[0].oldAs<bool>(), true);

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

TEST(PrefixUpdateAttr, EveryMergeFromABoundPrefixInstallsACopyOfItsBindingAndAnUnboundOneRemovesOurs) {
    auto mine = reachable({{128, 5}});
    PRec rec(mine->publisher());
    auto other = reachable({});
    other->sidLabelBindingIs(testsupport::binding(4));
    mine->updateAttr(other);
    const BindingPtr first = mine->sidLabelBinding();
    ASSERT_TRUE(first);
    EXPECT_NE(first, other->sidLabelBinding());
    EXPECT_EQ(first->toStrep(), other->sidLabelBinding()->toStrep());
    mine->updateAttr(mine);  // itself: still a new object, and no metric lost
    EXPECT_THAT(metrics(*mine), ElementsAre(std::pair(128u, 5u)));
    EXPECT_NE(mine->sidLabelBinding(), first);
    mine->updateAttr(reachable({}));
    EXPECT_FALSE(mine->sidLabelBinding());
    ASSERT_THAT(rec.attrs(), ElementsAre(PA::sidLabelBinding, PA::sidLabelBinding, PA::sidLabelBinding));
    EXPECT_EQ(*rec[1].oldAs<BindingPtr>(), first);
}

// Comparison looks through the pointers; an unreachable fragment brings only its SID and binding.
// An unreachable prefix prints only its key and binding; an algorithm prints as its raw byte.
TEST(PrefixAttributes, ComparisonUnionOfAnUnreachableFragmentAndDumpLines) {
    auto a = testsupport::fullPrefix();
    auto b = testsupport::fullPrefix();
    b->sidLabelBinding()->rangeIs(5);
    EXPECT_EQ(Kest::firstDifference(*a, *b), "sidLabelBinding");
    b->prefixMetric()->metricIs(128, 6);
    EXPECT_EQ(Kest::firstDifference(*a, *b), "prefixMetric");

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
    auto r = reachable({});
    r->prefixSidIs(PrefixSid(0x40, 1, 0, false));
    for (unsigned algo = 0; algo < 256; ++algo) {  // the eight-bit counter wraps: a separator is left
        r->prefixMetric()->metricIs(static_cast<std::uint8_t>(algo), algo + 1);
    }
    const std::string text = formatted(*r);
    const std::string head =
        std::string("          prefix=10.0.0.0/8, flags=<>, metric=10, prefixMetrics=[ (") + '\0' +
        ", 1), (\x01, 2), ";
    EXPECT_EQ(text.substr(0, head.size()), head);
    EXPECT_TRUE(text.ends_with(", (\xff, 256), ]\n"));
}

// ---- Node ------------------------------------------------------------------------------------

using AreaPtr = Poldo::Ptr<IsisAreaIdCol>;
using CapsPtr = Poldo::Ptr<SrCapabilities>;
using MsdPtr = Poldo::Ptr<IgpMsdCol>;
using FadPtr = Poldo::Ptr<IgpFlexAlgoDefinitionCol>;
using MtPtr = Poldo::Ptr<IgpMultiTopologyIdCol>;
using Rec = IgpTest::RecordingObserver<NodeFlags, Poldo::String, AreaPtr, Lumo::IpAddr, Lumo::Ip6Addr,
                                       CapsPtr, MsdPtr, FadPtr, MtPtr>;
using A = Node::Attr;

AreaPtr areas(const char* text) {
    auto c = isisAreaIdColFactory();
    c->areaIdIs(testsupport::parse<Routing::Isis::AreaId>(text), false);
    return c;
}
/// An SR block with the given flags and (range, first label) entries, its count set to match.
CapsPtr block(unsigned flags, std::initializer_list<std::pair<std::uint32_t, std::uint32_t>> ranges) {
    auto c = srCapabilitiesFactory();
    c->srCapFlagIs(SrCapabilityFlags(static_cast<unsigned char>(flags)));
    std::uint8_t i = 0;
    for (const auto& [range, base] : ranges) {
        c->sidLabelRangeIs(SrSidRangeIndex(i++), SrSidRange(range, Lumo::MplsLabel(base)));
    }
    c->numRangesIs(i);
    return c;
}
/// Nine ranges declared, the eight the array holds all set.
CapsPtr nineRanges() {
    auto c = block(1, {});
    for (std::uint8_t i = 0; i < 8; ++i) {
        c->sidLabelRangeIs(SrSidRangeIndex(i), SrSidRange(100, Lumo::MplsLabel(16000u + 100u * i)));
    }
    c->numRangesIs(9);
    return c;
}
FadPtr fads(std::initializer_list<std::uint8_t> algos) {
    auto c = igpFlexAlgoDefinitionColFactory();
    for (std::uint8_t a : algos) {
        IgpFlexAlgoDefinition d;
        d.flexAlgoIs(a);
        d.excludeAnyIs(testsupport::eag({1, 2}));
        c->fadIs(a, d);
    }
    return c;
}
MtPtr mtIds(std::initializer_list<std::uint16_t> ids) {
    auto c = igpMultiTopologyIdColFactory();
    for (std::uint16_t id : ids) {
        c->mtIdValueIs(IgpMultiTopologyId(id));
    }
    return c;
}
Poldo::Ptr<Node> bareNode() {
    return nodeFactory(testsupport::nodeId(1));
}
/// A node with every attribute set; each call builds new collection objects.
Poldo::Ptr<Node> fullNode() {
    auto n = bareNode();
    n->flagsIs(NodeFlags(3));
    n->hostNameIs("r1");
    n->isisAreaIdColIs(areas("49.0001"));
    n->ipv4RouterIdIs(testsupport::v4("1.1.1.1"));
    n->ipv6RouterIdIs(testsupport::v6("2001:db8::1"));
    n->srCapabilitiesIs(block(3, {{8000, 16000}}));
    n->srlbIs(block(0, {{1000, 15000}}));
    auto msd = igpMsdColFactory();
    msd->msdIs(2, IgpMsd(1, 8));
    n->msdColIs(msd);
    n->fadColIs(fads({129, 128}));
    n->mtIdColIs(mtIds({2, 0}));
    return n;
}
const char kRangeIndexError[] =
    "Routing::IgpCommon::SrSidRangeIndex::value < Routing::IgpCommon::SrSidRangeIndex::min or > "
    "Routing::IgpCommon::SrSidRangeIndex::max not allowed";

TEST(NodeUpdateDeathTest, AnotherNodeIdStopsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(bareNode()->updateNodeAttrs(nodeFactory(testsupport::nodeId(2)).get()),
                 "nodeId\\(\\) == arg->nodeId\\(\\)");
}

TEST(NodeUpdate, EqualContentIsKeptOthersReplacedInTheMergeOrderAndNineRangesRefused) {
    auto same = fullNode();
    Rec quiet(same->publisher());
    same->updateNodeAttrs(fullNode().get());
    EXPECT_TRUE(quiet.empty());

    auto mine = fullNode();
    auto other = fullNode();
    other->isisAreaIdColIs(areas("49.0002"));
    other->srlbIs(block(0, {{1000, 15001}}));
    other->msdColIs(nullptr);  // taken as null
    mine->fadColIs(nullptr);   // takes the argument's object itself
    auto held = bareNode();
    held->updateNodeAttrs(mine.get());  // a bare node takes the very objects
    Rec rec(mine->publisher());
    mine->updateNodeAttrs(other.get());
    EXPECT_THAT(rec.attrs(), ElementsAre(A::isisAreaIdCol, A::srlb, A::msdCol, A::fadCol));
    EXPECT_EQ(*rec[2].oldAs<MsdPtr>(), held->msdCol());
    Kest::forEachAttr<Node>([&](const auto& d) {
        if constexpr (std::remove_cvref_t<decltype(d)>::kind == Kest::AttrKind::pointer) {
            const bool kept = d.name == "srCapabilities" || d.name == "mtIdCol";
            EXPECT_EQ(d.get(*mine), d.get(kept ? *held : *other)) << d.name;
        }
    });

    // From bare to full and back: every attribute, in the merge order both ways.
    auto grown = bareNode();
    Rec all(grown->publisher());
    const auto order = ElementsAre(A::flags, A::hostName, A::isisAreaIdCol, A::srCapabilities, A::srlb,
                                   A::msdCol, A::fadCol, A::mtIdCol, A::ipv4RouterId, A::ipv6RouterId);
    grown->updateNodeAttrs(fullNode().get());
    EXPECT_THAT(all.attrs(), order);
    all.clear();
    grown->updateNodeAttrs(bareNode().get());
    EXPECT_THAT(all.attrs(), order);
    EXPECT_EQ(formatted(*grown), "  node=1921.6800.1001, flags=<>\n");

    for (const auto set : {&Node::srCapabilitiesIs, &Node::srlbIs}) {
        auto a = bareNode();
        auto b = bareNode();
        ((*a).*set)(nineRanges());
        ((*b).*set)(nineRanges());
        EXPECT_EQ(messageOf<Kest::RangeException>([&] { a->updateNodeAttrs(b.get()); }), kRangeIndexError);
    }
}

TEST(NodeDescription, FragmentsUniteFirstCarriersAndGatherAreasTopologiesAndDefinitions) {
    auto first = bareNode();
    first->hostNameIs("r1");
    first->isisAreaIdColIs(areas("49.0002"));
    first->mtIdColIs(mtIds({}));  // an empty list still makes the union's
    first->srlbIs(block(0, {{1000, 15000}}));
    first->fadColIs(fads({128}));
    IgpFlexAlgoDefinition def = first->fadCol()->fad(128);
    def.priorityIs(10);
    first->fadCol()->fadIs(128, def);
    const std::string firstText = formatted(*first);
    auto second = fullNode();
    second->hostNameIs("r2");
    second->srlbIs(block(0, {{1, 2}}));
    second->mtIdColIs(nullptr);
    auto u = bareNode();
    Kest::uniteAttrs(*u, *first);
    Kest::uniteAttrs(*u, *second);
    // The second's values but the flags; the first's host name, SRLB, definition and topologies.
    auto want = fullNode();
    want->flagsIs(NodeFlags());
    want->isisAreaIdCol()->areaIdIs(testsupport::parse<Routing::Isis::AreaId>("49.0002"), false);
    want->fadCol()->fadIs(128, def);
    want->mtIdColIs(mtIds({}));
    EXPECT_EQ(Kest::firstDifference(*u, *want), "");
    EXPECT_EQ(formatted(*first), firstText);  // the union's lists are its own
}

// The SR section needs the capabilities; a block of nine ranges throws once its ranges are written.
TEST(NodeFormat, TheSrSectionNeedsTheCapabilitiesAndNineRangesThrowMidLine) {
    auto n = bareNode();
    n->srlbIs(block(0, {{1000, 15000}}));
    EXPECT_EQ(formatted(*n), "  node=1921.6800.1001, flags=<>\n");
    n->srCapabilitiesIs(block(2, {}));
    n->srlbIs(nullptr);
    n->fadColIs(igpFlexAlgoDefinitionColFactory());
    EXPECT_EQ(formatted(*n),
              "  node=1921.6800.1001, flags=<>, SR Cap={flags=<V6>, numSRGB= 0, numFads=0 "
              "flexAlgoDefinitions=[  ]\n");
    n->srCapabilitiesIs(nineRanges());
    n->fadColIs(nullptr);
    std::ostringstream os;
    EXPECT_EQ(messageOf<Kest::RangeException>([&] { n->formatContent(os); }), kRangeIndexError);
    std::string ranges;
    for (unsigned i = 0; i < 8; ++i) {
        ranges += "(range=100 base=" + std::to_string(16000 + 100 * i) + ")";
    }
    EXPECT_EQ(os.str(),
              "  node=1921.6800.1001, flags=<>, SR Cap={flags=<V4>, numSRGB= 9, SRGB=[" + ranges + "(range=");
}

}  // namespace
