// Node: identity-only collection setters, the node merge (content comparison of the six
// collections, what is kept, what is taken, in which order it is published, and its refusals),
// and the dump line.
#include "IgpCommon/Node.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <sstream>
#include <string>

#include "support/RecordingObserver.h"

namespace {

using namespace Routing::IgpCommon;  // NOLINT(google-build-using-namespace)
using ::testing::ElementsAre;
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

IgpNodeId nodeId(std::uint8_t last = 0x01) {
    const std::uint8_t bytes[7] = {0x19, 0x21, 0x68, 0x00, 0x10, last, 0x00};
    return IgpNodeId::fromBytes(bytes);
}

template <class T>
T parse(const char* text) {
    return Kest::strepToValue(std::string(text), static_cast<T*>(nullptr));
}

NodeFlags flags(bool overload, bool attached) {
    NodeFlags f;
    f.overloadBitIs(overload);
    f.attachedBitIs(attached);
    return f;
}

AreaPtr areas(std::initializer_list<const char*> texts) {
    auto c = isisAreaIdColFactory();
    for (const char* t : texts) {
        c->areaIdIs(parse<Routing::Isis::AreaId>(t), false);
    }
    return c;
}

CapsPtr block(bool v4, bool v6, std::initializer_list<std::pair<std::uint32_t, std::uint32_t>> ranges) {
    auto c = srCapabilitiesFactory();
    SrCapabilityFlags f;
    f.mplsIpv4Is(v4);
    f.mplsIpv6Is(v6);
    c->srCapFlagIs(f);
    std::uint8_t i = 0;
    for (const auto& [range, base] : ranges) {
        c->sidLabelRangeIs(SrSidRangeIndex(i++), SrSidRange(range, Lumo::MplsLabel(base)));
    }
    c->numRangesIs(i);
    return c;
}

/// Nine ranges declared, the eight the array holds all equal.
CapsPtr nineRanges() {
    auto c = block(true, false, {});
    for (std::uint8_t i = 0; i < 8; ++i) {
        c->sidLabelRangeIs(SrSidRangeIndex(i), SrSidRange(100, Lumo::MplsLabel(16000u + 100u * i)));
    }
    c->numRangesIs(9);
    return c;
}

MsdPtr msds() {
    auto c = igpMsdColFactory();
    c->msdIs(2, IgpMsd(1, 8));
    return c;
}

Poldo::Ptr<IgpFlexAlgoEag> eag(std::initializer_list<std::uint32_t> words) {
    auto e = igpFlexAlgoEagFactory();
    for (std::uint32_t w : words) {
        e->valuePush(w);
    }
    return e;
}

IgpFlexAlgoDefinition fad(std::uint8_t algo) {
    IgpFlexAlgoDefinition d;
    d.flexAlgoIs(algo);
    d.priorityIs(128);
    d.excludeAnyIs(eag({1, 2}));
    d.excludeSrlg()->valueIs(17);
    d.excludeSrlg()->valueIs(4);
    return d;
}

FadPtr fads(std::initializer_list<std::uint8_t> algos) {
    auto c = igpFlexAlgoDefinitionColFactory();
    for (std::uint8_t a : algos) {
        c->fadIs(a, fad(a));
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
    auto n = nodeFactory(nodeId());
    n->flagsIs(flags(true, true));
    n->hostNameIs("r1");
    n->isisAreaIdColIs(areas({"49.0001"}));
    n->ipv4RouterIdIs(parse<Lumo::IpAddr>("1.1.1.1"));
    n->ipv6RouterIdIs(parse<Lumo::Ip6Addr>("2001:db8::1"));
    n->srCapabilitiesIs(block(true, true, {{8000, 16000}}));
    n->srlbIs(block(false, false, {{1000, 15000}}));
    n->msdColIs(msds());
    n->fadColIs(fads({129, 128}));
    n->mtIdColIs(mtIds({2, 0}));
    return n;
}

std::string dump(const Node& n) {
    std::ostringstream os;
    n.formatContent(os);
    return os.str();
}

// ---- setters ---------------------------------------------------------------------------------

TEST(NodeSetters, CollectionsCompareByIdentityOnly) {
    auto n = nodeFactory(nodeId());
    const MtPtr first = mtIds({0, 2});
    n->mtIdColIs(first);
    Rec rec(n->publisher());
    n->mtIdColIs(first);
    EXPECT_TRUE(rec.empty());
    n->mtIdColIs(mtIds({0, 2}));  // equal contents, another object
    ASSERT_EQ(rec.size(), 1u);
    EXPECT_EQ(rec[0].attr, A::mtIdCol);
    EXPECT_EQ(*rec[0].oldAs<MtPtr>(), first);
    EXPECT_NE(n->mtIdCol(), first);
}

// ---- updateNodeAttrs -------------------------------------------------------------------------

TEST(NodeUpdateDeathTest, AnotherNodeIdStopsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    auto mine = nodeFactory(nodeId(1));
    auto other = nodeFactory(nodeId(2));
    EXPECT_DEATH(mine->updateNodeAttrs(other.get()), "nodeId\\(\\) == arg->nodeId\\(\\)");
}

TEST(NodeUpdate, CollectionsEqualByContentAreKeptAndNothingIsPublished) {
    auto mine = fullNode();
    auto other = fullNode();
    const AreaPtr area = mine->isisAreaIdCol();
    const CapsPtr caps = mine->srCapabilities();
    const CapsPtr srlb = mine->srlb();
    const MsdPtr msd = mine->msdCol();
    const FadPtr fad = mine->fadCol();
    const MtPtr mt = mine->mtIdCol();
    ASSERT_NE(other->fadCol(), fad);
    Rec rec(mine->publisher());
    mine->updateNodeAttrs(other.get());
    EXPECT_TRUE(rec.empty());
    EXPECT_EQ(mine->isisAreaIdCol(), area);
    EXPECT_EQ(mine->srCapabilities(), caps);
    EXPECT_EQ(mine->srlb(), srlb);
    EXPECT_EQ(mine->msdCol(), msd);
    EXPECT_EQ(mine->fadCol(), fad);
    EXPECT_EQ(mine->mtIdCol(), mt);
}

TEST(NodeUpdate, AMissingCollectionInTheArgumentIsTakenAsNull) {
    auto mine = fullNode();
    auto other = fullNode();
    other->msdColIs(nullptr);
    const MsdPtr old = mine->msdCol();
    Rec rec(mine->publisher());
    mine->updateNodeAttrs(other.get());
    EXPECT_FALSE(mine->msdCol());
    ASSERT_EQ(rec.size(), 1u);
    EXPECT_EQ(rec[0].attr, A::msdCol);
    EXPECT_EQ(*rec[0].oldAs<MsdPtr>(), old);
}

TEST(NodeUpdate, AMissingCollectionHereTakesTheArgumentsObjectItself) {
    auto mine = fullNode();
    mine->fadColIs(nullptr);
    auto other = fullNode();
    Rec rec(mine->publisher());
    mine->updateNodeAttrs(other.get());
    EXPECT_EQ(mine->fadCol().get(), other->fadCol().get());
    ASSERT_EQ(rec.size(), 1u);
    EXPECT_EQ(rec[0].attr, A::fadCol);
    EXPECT_FALSE(*rec[0].oldAs<FadPtr>());
}

TEST(NodeUpdate, AFullUpdatePublishesInTheMergeOrder) {
    auto mine = nodeFactory(nodeId());
    auto other = fullNode();
    Rec rec(mine->publisher());
    mine->updateNodeAttrs(other.get());
    EXPECT_THAT(rec.attrs(), ElementsAre(A::flags, A::hostName, A::isisAreaIdCol, A::srCapabilities, A::srlb,
                                         A::msdCol, A::fadCol, A::mtIdCol, A::ipv4RouterId, A::ipv6RouterId));
    EXPECT_EQ(*rec[0].oldAs<NodeFlags>(), NodeFlags());
    EXPECT_EQ(*rec[1].oldAs<Poldo::String>(), "");
    EXPECT_EQ(dump(*mine), dump(*other));

    // Back to the bare node: every collection differs (ours set, theirs null), same order.
    rec.clear();
    auto bare = nodeFactory(nodeId());
    mine->updateNodeAttrs(bare.get());
    EXPECT_THAT(rec.attrs(), ElementsAre(A::flags, A::hostName, A::isisAreaIdCol, A::srCapabilities, A::srlb,
                                         A::msdCol, A::fadCol, A::mtIdCol, A::ipv4RouterId, A::ipv6RouterId));
    EXPECT_EQ(*rec[6].oldAs<FadPtr>(), other->fadCol());
    EXPECT_EQ(dump(*mine), "  node=1921.6800.1001, flags=<>\n");
}

TEST(NodeUpdate, ContentDifferencesReplaceOnlyTheCollectionsConcerned) {
    auto mine = fullNode();
    auto other = fullNode();
    other->isisAreaIdColIs(areas({"49.0002"}));
    other->srlbIs(block(false, false, {{1000, 15001}}));
    const CapsPtr keptCaps = mine->srCapabilities();
    Rec rec(mine->publisher());
    mine->updateNodeAttrs(other.get());
    EXPECT_THAT(rec.attrs(), ElementsAre(A::isisAreaIdCol, A::srlb));
    EXPECT_EQ(mine->isisAreaIdCol(), other->isisAreaIdCol());
    EXPECT_EQ(mine->srlb(), other->srlb());
    EXPECT_EQ(mine->srCapabilities(), keptCaps);
}

TEST(NodeUpdate, SrBlocksDeclaringNineRangesRaiseTheRangeIndexError) {
    auto mine = nodeFactory(nodeId());
    auto other = nodeFactory(nodeId());
    mine->srCapabilitiesIs(nineRanges());
    other->srCapabilitiesIs(nineRanges());
    EXPECT_THAT([&] { mine->updateNodeAttrs(other.get()); },
                ::testing::ThrowsMessage<Kest::RangeException>(::testing::StrEq(kSrSidRangeIndexError)));

    auto mine2 = nodeFactory(nodeId());
    auto other2 = nodeFactory(nodeId());
    mine2->srlbIs(nineRanges());
    other2->srlbIs(nineRanges());
    EXPECT_THROW(mine2->updateNodeAttrs(other2.get()), Kest::RangeException);
}

// ---- dump text -------------------------------------------------------------------------------

TEST(NodeFormat, FullNodeGolden) {
    EXPECT_EQ(
        dump(*fullNode()),
        "  node=1921.6800.1001, flags=<overload, attached>, hostname=r1, areaids=[ 49.0001 ], "
        "v4rtrid=1.1.1.1, "
        "v6rtrid=2001:db8::1, SR Cap={flags=<V4V6>, numSRGB= 1, SRGB=[(range=8000 base=16000)], "
        "numSRLB=1 SRLB=[(range=1000 base=15000)], numMsd=3 MSD=[(msdType=0 msdValue=0), "
        "(msdType=0 msdValue=0), (msdType=1 msdValue=8)], numFads=2 flexAlgoDefinitions=[ ( flexAlgo=128, "
        "metricType=0, calcType=0, priority=128, excludeAny=[1, 2], includeAny=[], includeAll=[], "
        "excludeSrlg=[4, 17] ), ( flexAlgo=129, metricType=0, calcType=0, priority=128, excludeAny=[1, 2], "
        "includeAny=[], includeAll=[], excludeSrlg=[4, 17] ) ], mtIds=[0, 2]\n");
}

TEST(NodeFormat, FlagWords) {
    auto n = nodeFactory(nodeId());
    EXPECT_EQ(dump(*n), "  node=1921.6800.1001, flags=<>\n");
    n->flagsIs(flags(false, true));
    EXPECT_EQ(dump(*n), "  node=1921.6800.1001, flags=<, attached>\n");
    n->flagsIs(flags(true, false));
    EXPECT_EQ(dump(*n), "  node=1921.6800.1001, flags=<overload>\n");
}

TEST(NodeFormat, SrSectionNeedsTheCapabilitiesAndPrintsAnEmptyLocalBlock) {
    auto n = nodeFactory(nodeId());
    n->srlbIs(block(false, false, {{1000, 15000}}));
    EXPECT_EQ(dump(*n), "  node=1921.6800.1001, flags=<>\n");

    n->srCapabilitiesIs(block(false, true, {}));
    n->srlbIs(block(false, false, {}));
    EXPECT_EQ(dump(*n),
              "  node=1921.6800.1001, flags=<>, SR Cap={flags=<V6>, numSRGB= 0, numSRLB=0 SRLB=[]\n");
    n->srlbIs(nullptr);
    EXPECT_EQ(dump(*n), "  node=1921.6800.1001, flags=<>, SR Cap={flags=<V6>, numSRGB= 0\n");
}

TEST(NodeFormat, EmptyFadCollection) {
    auto n = nodeFactory(nodeId());
    n->fadColIs(igpFlexAlgoDefinitionColFactory());
    EXPECT_EQ(dump(*n), "  node=1921.6800.1001, flags=<>, numFads=0 flexAlgoDefinitions=[  ]\n");
}

TEST(NodeFormat, NineRangeBlockThrowsAfterTheRangeTextWasWritten) {
    auto n = nodeFactory(nodeId());
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
