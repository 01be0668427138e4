// Node: the merge (content comparison of the collections, what is kept, what is taken, in which order
// it is published, and its refusals), the gathered unions of fragments, and the dump line.
#include "IgpCommon/Node.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <sstream>
#include <string>

#include "tests/support/Builders.h"
#include "tests/support/RecordingObserver.h"

namespace {

using namespace Routing::IgpCommon;  // NOLINT(google-build-using-namespace)
using ::testing::ElementsAre;
using testsupport::formatted;
using AreaPtr = Poldo::Ptr<IsisAreaIdCol>;
using CapsPtr = Poldo::Ptr<SrCapabilities>;
using MsdPtr = Poldo::Ptr<IgpMsdCol>;
using FadPtr = Poldo::Ptr<IgpFlexAlgoDefinitionCol>;
using MtPtr = Poldo::Ptr<IgpMultiTopologyIdCol>;
using Rec = IgpTest::RecordingObserver<NodeFlags, Poldo::String, AreaPtr, Lumo::IpAddr, Lumo::Ip6Addr,
                                       CapsPtr, MsdPtr, FadPtr, MtPtr>;
using A = Node::Attr;

const char kSrSidRangeIndexError[] =
    "Routing::IgpCommon::SrSidRangeIndex::value < Routing::IgpCommon::SrSidRangeIndex::min or > "
    "Routing::IgpCommon::SrSidRangeIndex::max not allowed";

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

/// Nine ranges declared, the eight the array holds all equal.
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
        d.priorityIs(128);
        d.excludeAnyIs(testsupport::eag({1, 2}));
        d.excludeSrlgIs(testsupport::srlg({17, 4}));
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

/// A node with every attribute set; each call builds new collection objects.
Poldo::Ptr<Node> fullNode() {
    auto n = nodeFactory(testsupport::nodeId(1));
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

Poldo::Ptr<Node> bareNode() {
    return nodeFactory(testsupport::nodeId(1));
}

// ---- updateNodeAttrs -------------------------------------------------------------------------

TEST(NodeUpdateDeathTest, AnotherNodeIdStopsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    auto mine = nodeFactory(testsupport::nodeId(1));
    auto other = nodeFactory(testsupport::nodeId(2));
    EXPECT_DEATH(mine->updateNodeAttrs(other.get()), "nodeId\\(\\) == arg->nodeId\\(\\)");
}

TEST(NodeUpdate, CollectionsEqualByContentAreKeptAndOnlyTheOthersReplaced) {
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
    EXPECT_EQ(Kest::firstDifference(*mine, *other), "isisAreaIdCol");
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
}

TEST(NodeUpdate, AFullUpdatePublishesInTheMergeOrderBothWays) {
    auto mine = bareNode();
    auto other = fullNode();
    Rec rec(mine->publisher());
    mine->updateNodeAttrs(other.get());
    const auto order = ElementsAre(A::flags, A::hostName, A::isisAreaIdCol, A::srCapabilities, A::srlb,
                                   A::msdCol, A::fadCol, A::mtIdCol, A::ipv4RouterId, A::ipv6RouterId);
    EXPECT_THAT(rec.attrs(), order);
    EXPECT_EQ(formatted(*mine), formatted(*other));

    // Back to the bare node: every collection differs (ours set, theirs null), same order.
    rec.clear();
    mine->updateNodeAttrs(bareNode().get());
    EXPECT_THAT(rec.attrs(), order);
    EXPECT_EQ(*rec[6].oldAs<FadPtr>(), other->fadCol());
    EXPECT_EQ(formatted(*mine), "  node=1921.6800.1001, flags=<>\n");
}

TEST(NodeUpdate, SrBlocksDeclaringNineRangesRaiseTheRangeIndexError) {
    for (const auto set : {&Node::srCapabilitiesIs, &Node::srlbIs}) {
        auto mine = bareNode();
        auto other = bareNode();
        ((*mine).*set)(nineRanges());
        ((*other).*set)(nineRanges());
        EXPECT_THAT([&] { mine->updateNodeAttrs(other.get()); },
                    ::testing::ThrowsMessage<Kest::RangeException>(::testing::StrEq(kSrSidRangeIndexError)));
    }
}

// ---- the union of fragments, by the description -----------------------------

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
    auto second = fullNode();  // flags and every value: only the gathered lists and the unset ones count
    second->hostNameIs("r2");
    second->srlbIs(block(0, {{1, 2}}));
    second->mtIdColIs(nullptr);
    auto u = bareNode();
    Kest::uniteAttrs(*u, *first);
    Kest::uniteAttrs(*u, *second);
    // The second's values but the flags, the first's host name, SRLB, definition and topologies.
    auto want = fullNode();
    want->flagsIs(NodeFlags());
    want->isisAreaIdCol()->areaIdIs(testsupport::parse<Routing::Isis::AreaId>("49.0002"), false);
    want->fadCol()->fadIs(128, def);
    want->mtIdColIs(mtIds({}));
    EXPECT_EQ(Kest::firstDifference(*u, *want), "");
    EXPECT_EQ(formatted(*first), firstText);  // the union's lists are its own
}

// ---- dump text -------------------------------------------------------------------------------

// The SR section: an SRLB or definitions alone print nothing without the capabilities.
TEST(NodeFormat, TheSrSectionNeedsTheCapabilities) {
    auto n = bareNode();
    n->srlbIs(block(0, {{1000, 15000}}));
    EXPECT_EQ(formatted(*n), "  node=1921.6800.1001, flags=<>\n");
    n->srCapabilitiesIs(block(2, {}));
    n->srlbIs(block(0, {}));
    EXPECT_EQ(formatted(*n),
              "  node=1921.6800.1001, flags=<>, SR Cap={flags=<V6>, numSRGB= 0, numSRLB=0 SRLB=[]\n");
    n->srlbIs(nullptr);
    n->fadColIs(igpFlexAlgoDefinitionColFactory());
    EXPECT_EQ(formatted(*n),
              "  node=1921.6800.1001, flags=<>, SR Cap={flags=<V6>, numSRGB= 0, numFads=0 "
              "flexAlgoDefinitions=[  ]\n");
}

TEST(NodeFormat, NineRangeBlockThrowsAfterTheRangeTextWasWritten) {
    auto n = bareNode();
    n->srCapabilitiesIs(nineRanges());
    std::ostringstream os;
    EXPECT_THAT([&] { n->formatContent(os); },
                ::testing::ThrowsMessage<Kest::RangeException>(::testing::StrEq(kSrSidRangeIndexError)));
    std::string ranges;
    for (unsigned i = 0; i < 8; ++i) {
        ranges += "(range=100 base=" + std::to_string(16000 + 100 * i) + ")";
    }
    EXPECT_EQ(os.str(),
              "  node=1921.6800.1001, flags=<>, SR Cap={flags=<V4>, numSRGB= 9, SRGB=[" + ranges + "(range=");
}

}  // namespace
