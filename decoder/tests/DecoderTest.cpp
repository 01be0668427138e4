// Byte-level tests of decodeLsp: LSPs built octet by octet, each TLV family
// checked against the model values it must produce, and malformed LSPs
// checked for the reason and offset of their rejection.

#include <gtest/gtest.h>

#include <cstring>
#include <set>

#include "IsisDecoder/Decoder.h"
#include "IsisDecoder/LspKeeper.h"
#include "TestSupport.h"

namespace {

using namespace DecoderTest;
using namespace Routing::IsisDecoder;
namespace IC = Routing::IgpCommon;
using Reason = DecodeError::Reason;

IC::IgpNodeId nodeId(std::uint8_t sys, std::uint8_t pn = 0) {
    const std::uint8_t b[7] = {0x19, 0x21, 0x68, 0x00, 0x10, sys, pn};
    return IC::IgpNodeId::fromBytes(b);
}
Enc nbrId(std::uint8_t sys, std::uint8_t pn = 0) {
    return Enc{0x19, 0x21, 0x68, 0x00, 0x10, sys, pn};
}
Lumo::IpAddr v4(const char* t) {
    return Kest::strepToValue(t, static_cast<Lumo::IpAddr*>(nullptr));
}
Lumo::Ip6Addr v6(const char* t) {
    return Kest::strepToValue(t, static_cast<Lumo::Ip6Addr*>(nullptr));
}
IC::PrefixKey pkey(const char* t, std::uint16_t mt = 0) {
    return IC::PrefixKey(Kest::strepToValue(t, static_cast<Lumo::IpGenPrefix*>(nullptr)),
                         IC::IgpMultiTopologyId(mt));
}
Routing::Isis::AreaId area(const char* t) {
    return Kest::strepToValue(t, static_cast<Routing::Isis::AreaId*>(nullptr));
}
std::uint32_t floatBits(float f) {
    std::uint32_t u;
    std::memcpy(&u, &f, 4);
    return u;
}

DecodedLsp decodeOk(const Bytes& pdu) {
    const auto r = decodeLsp(pdu);
    if (!r.ok()) {
        ADD_FAILURE() << r.error().message();
        return {};
    }
    return r.lsp();
}

DecodeError decodeBad(const Bytes& pdu) {
    const auto r = decodeLsp(pdu);
    if (r.ok()) {
        ADD_FAILURE() << "decoded an LSP that should be rejected";
        return {};
    }
    return r.error();
}

TEST(DecoderHeader, FieldsAndNodeFlags) {
    LspFields f;
    f.level = 1;
    f.sys = 0x07;
    f.fragment = 3;
    f.seq = 0x01020304;
    f.lifetime = 600;
    f.flags = 0x0f;  // ATT default metric, OL, IS type 3
    const Bytes pdu = buildLsp(f, Enc().tlv(137, Enc{'r', '7'}));
    const auto d = decodeOk(pdu);
    ASSERT_TRUE(d.content);
    EXPECT_EQ(d.header.level, 1);
    EXPECT_EQ(d.header.pduLength, pdu.size());
    EXPECT_EQ(d.header.remainingLifetime, 600);
    EXPECT_EQ(d.header.sequenceNumber, 0x01020304u);
    EXPECT_EQ(d.header.lspIdText(), "1921.6800.1007.00-03");
    EXPECT_EQ(d.header.checksum, (pdu[24] << 8) | pdu[25]);
    EXPECT_EQ(d.header.isType(), 3);
    const auto& node = *d.content->node();
    EXPECT_EQ(node.nodeId(), nodeId(0x07));
    EXPECT_TRUE(node.flags().overloadBit());
    EXPECT_TRUE(node.flags().attachedBit());
    EXPECT_EQ(node.hostName(), "r7");
}

TEST(DecoderHeader, PaddingBeyondPduLengthIsIgnoredAndPurgeWithZeroChecksumAccepted) {
    Bytes pdu = buildLsp(Enc().tlv(137, Enc{'x'}));
    pdu.insert(pdu.end(), {0, 0, 0, 0, 0});
    EXPECT_TRUE(decodeLsp(pdu).ok());

    LspFields f;
    f.lifetime = 0;
    Bytes purge = buildLsp(f, Enc());
    purge[24] = purge[25] = 0;
    EXPECT_TRUE(decodeLsp(purge).ok());
    // Checksum 0 is the purge's privilege only.
    Bytes live = buildLsp(Enc());
    live[24] = live[25] = 0;
    EXPECT_EQ(decodeBad(live).reason, Reason::badChecksum);
}

TEST(DecoderNode, AreasHostnameRouterIdsTopologies) {
    const Enc tlvs = Enc()
                         .tlv(1, Enc{3, 0x49, 0x00, 0x01}.raw({2, 0x49, 0x02}))
                         .tlv(134, Enc{10, 0, 0, 1})
                         .tlv(140, Enc{0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1})
                         .tlv(229, Enc().u16(0x4000).u16(0x8002).u16(3))
                         .tlv(99, Enc{1, 2, 3});  // unknown: skipped
    const auto d = decodeOk(buildLsp(tlvs));
    ASSERT_TRUE(d.content);
    const auto& node = *d.content->node();
    ASSERT_TRUE(node.isisAreaIdCol());
    EXPECT_EQ(node.isisAreaIdCol()->areaId().size(), 2u);
    EXPECT_TRUE(node.isisAreaIdCol()->areaId(area("49.0001")));
    EXPECT_TRUE(node.isisAreaIdCol()->areaId(area("49.02")));
    EXPECT_EQ(node.ipv4RouterId(), v4("10.0.0.1"));
    EXPECT_EQ(node.ipv6RouterId(), v6("2001:db8::1"));
    ASSERT_TRUE(node.mtIdCol());
    EXPECT_EQ(node.mtIdCol()->toStrep(), "[0, 2, 3]");
    EXPECT_FALSE(node.srCapabilities());
}

TEST(DecoderNeighbors, ExtendedReachabilityWithTeAndAdjacencySids) {
    const Enc unrsv = [] {
        Enc e;
        for (int p = 0; p < 8; ++p) {
            e.u32(floatBits(100.0f * static_cast<float>(p)));
        }
        return e;
    }();
    const Enc subs = Enc()
                         .tlv(3, Enc().u32(0x11))
                         .tlv(6, Enc{10, 1, 0, 1})
                         .tlv(8, Enc{10, 1, 0, 2})
                         .tlv(9, Enc().u32(floatBits(1.25e9f)))
                         .tlv(10, Enc().u32(floatBits(1e9f)))
                         .tlv(11, unrsv)
                         .tlv(14, Enc().u32(5).u32(0x80000000))
                         .tlv(18, Enc().u24(77))
                         .tlv(31, Enc{0x30, 0}.u24(0xF15001))  // label: 20 bits kept
                         .tlv(31, Enc{0x80, 7}.u32(123456))    // F flag, index
                         .tlv(32, Enc{0x30, 1}
                                      .raw({0x19, 0x21, 0x68, 0x00, 0x10, 9})
                                      .u24(16))            // LAN adj-SID, 6-octet system ID
                         .tlv(33, Enc().u32(0xFF0005DC));  // A bit, reserved bits ignored, 1500 us
    const Enc entry = Enc().raw(nbrId(2)).u24(10).u8(static_cast<unsigned>(subs.size())).raw(subs);
    const Enc tlvs = Enc().tlv(22, entry).tlv(222, Enc().u16(0x0002).raw(nbrId(3, 5)).u24(0xFFFFFE).u8(0));
    const auto d = decodeOk(buildLsp(tlvs));
    ASSERT_TRUE(d.content);
    ASSERT_EQ(d.content->neighbor().size(), 2u);

    IC::NeighborKey key(nodeId(2), IC::IgpMultiTopologyId(0));
    key.localIpv4AddrIs(v4("10.1.0.1"));
    key.remoteIpv4AddrIs(v4("10.1.0.2"));
    const auto n = d.content->neighbor(key);
    ASSERT_TRUE(n);
    EXPECT_EQ(n->igpMetric(), 10u);
    EXPECT_EQ(n->adminGroup(), 0x11u);
    EXPECT_EQ(n->maxLinkBw(), 1.25e9f);
    EXPECT_EQ(n->unreservedBw(IC::BwIndex(7)), 700.0f);
    EXPECT_EQ(n->extAdminGroup(IC::AdminGroupIndex(1)), 0x80000000u);
    EXPECT_EQ(n->teDefMetric(), 77u);
    EXPECT_EQ(n->attrsPresent().value(), 0x3f);  // all but the SRLGs
    EXPECT_EQ(n->linkDelay(), IC::LinkDelay(1500, true));
    EXPECT_TRUE(n->adjSidHas(IC::AdjacencySid(0x30, 0x15001, 0)));
    EXPECT_TRUE(n->adjSidHas(IC::AdjacencySid(0x80, 123456, 7)));
    const std::uint8_t nine[6] = {0x19, 0x21, 0x68, 0x00, 0x10, 9};
    EXPECT_TRUE(n->lanAdjSidHas(IC::LanAdjacencySid(0x30, 16, 1, Routing::Isis::SystemId::fromBytes(nine))));

    const auto mt = d.content->neighbor(IC::NeighborKey(nodeId(3, 5), IC::IgpMultiTopologyId(2)));
    ASSERT_TRUE(mt);
    EXPECT_EQ(mt->igpMetric(), 0xFFFFFEu);
    EXPECT_EQ(mt->attrsPresent().value(), 0u);
}

TEST(DecoderNeighbors, Ipv6AddressesNarrowNeighborsAndSrlgs) {
    const Enc a6 = Enc{0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    const Enc b6 = Enc{0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2};
    const Enc subs = Enc().tlv(12, a6).tlv(13, b6);
    const Enc tlvs =
        Enc()
            .tlv(22, Enc().raw(nbrId(2)).u24(20).u8(static_cast<unsigned>(subs.size())).raw(subs))
            .tlv(2, Enc{0}.raw({0x0a, 0x80, 0x80, 0x80}).raw(nbrId(4)))  // narrow, metric 10
            .tlv(138, Enc().raw(nbrId(2)).u8(1).raw({10, 1, 0, 1}).raw({10, 1, 0, 2}).u32(100).u32(200))
            .tlv(138, Enc().raw(nbrId(2)).u8(0).u32(7).u32(8).u32(300))    // unnumbered
            .tlv(139, Enc().raw(nbrId(2)).u8(1).raw(a6).raw(b6).u32(400))  // with NA
            .tlv(139, Enc().raw(nbrId(2)).u8(0).raw(b6).u32(500));
    const auto d = decodeOk(buildLsp(tlvs));
    ASSERT_TRUE(d.content);
    IC::NeighborKey k6(nodeId(2), IC::IgpMultiTopologyId(0));
    k6.localIpv6AddrIs(v6("2001:db8::1"));
    k6.remoteIpv6AddrIs(v6("2001:db8::2"));
    EXPECT_EQ(d.content->neighbor(k6)->igpMetric(), 20u);
    EXPECT_EQ(d.content->neighbor(IC::NeighborKey(nodeId(4), IC::IgpMultiTopologyId(0)))->igpMetric(), 10u);

    const auto s4 = d.content->parsedSrLg(Lumo::IpGenAddr(v4("10.1.0.1")));
    ASSERT_TRUE(s4);
    EXPECT_EQ(s4->srlgValue().size(), 2u);
    EXPECT_TRUE(s4->srlgValueHas(100) && s4->srlgValueHas(200));
    // Unnumbered, for a neighbor with no unnumbered link: filed nowhere.
    EXPECT_FALSE(d.content->parsedSrLg(Lumo::IpGenAddr()));
    EXPECT_TRUE(
        d.content->neighbor(IC::NeighborKey(nodeId(4), IC::IgpMultiTopologyId(0)))->srlgValues().empty());
    EXPECT_TRUE(d.content->parsedSrLg(Lumo::IpGenAddr(v6("2001:db8::1")))->srlgValueHas(400));
    EXPECT_TRUE(d.content->parsedSrLg(Lumo::IpGenAddr(v6("2001:db8::2")))->srlgValueHas(500));
}

// Unnumbered links carry link identifiers (RFC 5307 1.1), which no key
// holds: parallel ones to one neighbor are one link with the best metric, and
// an unnumbered SRLG TLV belongs to that neighbor's unnumbered link alone,
// not to every link without an address.
TEST(DecoderNeighbors, UnnumberedLinksParallelAndTheirSrlgs) {
    const auto link = [](std::uint8_t sys, std::uint32_t metric, const Enc& subs) {
        return Enc().raw(nbrId(sys)).u24(metric).u8(static_cast<unsigned>(subs.size())).raw(subs);
    };
    const Enc ids1 = Enc().tlv(4, Enc().u32(1).u32(11));
    const Enc ids2 = Enc().tlv(4, Enc().u32(2).u32(12));
    const Enc numbered = Enc().tlv(6, Enc{10, 1, 0, 1}).tlv(8, Enc{10, 1, 0, 2});
    const Enc tlvs =
        Enc()
            .tlv(138, Enc().raw(nbrId(2)).u8(0).u32(1).u32(11).u32(300))  // before its link
            .tlv(22, link(2, 30, ids1).raw(link(2, 10, ids2)).raw(link(3, 5, ids1)).raw(link(5, 7, numbered)))
            .tlv(2, Enc{0}.raw({0x0a, 0x80, 0x80, 0x80}).raw(nbrId(6)))
            .tlv(138, Enc().raw(nbrId(5)).u8(1).raw({10, 1, 0, 1}).raw({10, 1, 0, 2}).u32(44));
    const Bytes pdu = buildLsp(tlvs);
    const auto d = decodeOk(pdu);
    ASSERT_TRUE(d.content);
    EXPECT_FALSE(d.content->parsedSrLg(Lumo::IpGenAddr()));
    const IC::NeighborKey to2(nodeId(2), IC::IgpMultiTopologyId(0));
    EXPECT_EQ(d.content->neighbor(to2)->igpMetric(), 10u);

    LspKeeper k(IC::igpLevelIsisLevel2);
    ASSERT_EQ(k.receivePdu(pdu), LspKeeper::Outcome::installed);
    const auto entry = k.database()->lsp(nodeId(1));
    ASSERT_TRUE(entry);
    const auto srlgsOf = [&](const IC::NeighborKey& key) {
        std::set<std::uint32_t> v;
        const auto n = entry->neighbor(key);
        EXPECT_TRUE(n) << key;
        for (auto it = n->srlgValues().begin(); n && it != n->srlgValues().end(); ++it) {
            v.insert(*it);
        }
        return v;
    };
    IC::NeighborKey to5(nodeId(5), IC::IgpMultiTopologyId(0));
    to5.localIpv4AddrIs(v4("10.1.0.1"));
    to5.remoteIpv4AddrIs(v4("10.1.0.2"));
    EXPECT_EQ(srlgsOf(to2), std::set<std::uint32_t>{300});
    EXPECT_EQ(srlgsOf(to5), std::set<std::uint32_t>{44});
    EXPECT_TRUE(srlgsOf(IC::NeighborKey(nodeId(3), IC::IgpMultiTopologyId(0))).empty());
    EXPECT_TRUE(srlgsOf(IC::NeighborKey(nodeId(6), IC::IgpMultiTopologyId(0))).empty());
    EXPECT_EQ(entry->neighbor(to2)->igpMetric(), 10u);
}

TEST(DecoderPrefixes, WideNarrowMtAndPrefixSubTlvs) {
    const Enc sid0 =
        Enc().tlv(3, Enc{0x40, 0}.u32(1)).tlv(3, Enc{0x40, 128}.u32(1001)).tlv(6, Enc{128}.u32(55));
    const Enc t135 = Enc()
                         .u32(10)
                         .u8(0x40 | 32)
                         .raw({192, 0, 2, 1})
                         .u8(static_cast<unsigned>(sid0.size()))
                         .raw(sid0)
                         .u32(20)
                         .u8(0x80 | 8)
                         .raw({10})  // up/down
                         .u32(30)
                         .u8(0x40 | 24)
                         .raw({198, 51, 100})
                         .u8(7)
                         .raw(Enc().tlv(3, Enc{0x0c, 0}.u24(16999)));  // V+L label
    const Enc t237 = Enc().u16(2).u32(5).u8(0x80).u8(44).raw({0x20, 0x01, 0x0d, 0xb8, 0x12, 0x30});
    const Enc t128 = Enc{0x8a, 0x80, 0x80, 0x80, 172, 16, 1, 9, 255, 255, 255, 0};  // host bits cleared
    const auto d = decodeOk(
        buildLsp(Enc().tlv(135, t135).tlv(237, t237).tlv(128, t128).tlv(235, Enc().u16(3).u32(1).u8(0))));
    ASSERT_TRUE(d.content);
    EXPECT_EQ(d.content->prefix().size(), 6u);

    const auto lo = d.content->prefix(pkey("192.0.2.1/32"));
    ASSERT_TRUE(lo);
    EXPECT_TRUE(lo->hasValidReachability());
    EXPECT_EQ(lo->metric(), 10u);
    EXPECT_FALSE(lo->flags().isisDown());
    EXPECT_EQ(lo->prefixSid(), IC::PrefixSid(0x40, 1, 0, true));  // algorithm 128 does not replace it
    EXPECT_EQ(lo->prefixMetric()->metric(128), 55u);

    EXPECT_TRUE(d.content->prefix(pkey("10.0.0.0/8"))->flags().isisDown());
    EXPECT_EQ(d.content->prefix(pkey("198.51.100.0/24"))->prefixSid(), IC::PrefixSid(0x0c, 16999, 0, true));
    const auto v6p = d.content->prefix(pkey("2001:db8:1230::/44", 2));
    ASSERT_TRUE(v6p);
    EXPECT_TRUE(v6p->flags().isisDown());
    const auto narrow = d.content->prefix(pkey("172.16.1.0/24"));
    ASSERT_TRUE(narrow);
    EXPECT_EQ(narrow->metric(), 10u);
    EXPECT_TRUE(narrow->flags().isisDown());
    EXPECT_TRUE(d.content->prefix(pkey("0.0.0.0/0", 3)));
}

TEST(DecoderBinding, RangeFlagsAndSids) {
    LspFields f;
    f.fragment = 2;
    const Enc b1 = Enc{0x00, 0}.u16(10).u8(24).raw({10, 9, 8}).tlv(3, Enc{0, 0}.u32(101));
    const Enc b2 = Enc{0x48, 0}.u16(1).u8(32).raw({10, 0, 0, 9}).tlv(1, Enc().u24(90000));  // F clear, M + A
    const Enc b3 =
        Enc{0x80, 0}.u16(4).u8(64).raw({0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0}).tlv(1, Enc().u32(300));
    const auto d = decodeOk(buildLsp(f, Enc().tlv(149, b1).tlv(149, b2).tlv(150, Enc().u16(2).raw(b3))));
    ASSERT_TRUE(d.content);

    const auto p1 = d.content->prefix(pkey("10.9.8.0/24"));
    ASSERT_TRUE(p1 && p1->sidLabelBinding());
    EXPECT_FALSE(p1->hasValidReachability());
    EXPECT_EQ(p1->sidLabelBinding()->range(), 10);
    EXPECT_EQ(p1->sidLabelBinding()->lspFragmentId(), 2);
    EXPECT_EQ(p1->sidLabelBinding()->basePrefixSid(), IC::PrefixSid(0, 101, 0, true));
    EXPECT_FALSE(p1->sidLabelBinding()->baseLabelSid().isValid());

    const auto b = d.content->prefix(pkey("10.0.0.9/32"))->sidLabelBinding();
    EXPECT_EQ(b->flags(), IC::SidLabelBinding::SidLabelBindingFlags::fromProtocolOctet(0x48));
    EXPECT_TRUE(b->flags().mirrorContext() && b->flags().attached() && !b->flags().addressFamily());
    EXPECT_TRUE(b->baseLabelSid().isValid());
    EXPECT_TRUE(b->baseLabelSid().hasMplsLabel());
    EXPECT_EQ(b->baseLabelSid().value(), 90000u);

    const auto b6 = d.content->prefix(pkey("2001:db8::/64", 2))->sidLabelBinding();
    ASSERT_TRUE(b6);
    EXPECT_FALSE(b6->baseLabelSid().hasMplsLabel());
    EXPECT_EQ(b6->baseLabelSid().value(), 300u);
}

TEST(DecoderCapability, SrBlocksMsdAndFlexAlgo) {
    LspFields f;
    f.fragment = 1;
    const Enc srgb = Enc{0xc0}.u24(8000).tlv(1, Enc().u24(16000)).u24(100).tlv(1, Enc().u24(30000));
    const Enc srlb = Enc{0x00}.u24(1000).tlv(1, Enc().u24(15000));
    const Enc fad128 = Enc{128, 1, 0, 200}
                           .tlv(1, Enc().u32(0x1))
                           .tlv(2, Enc().u32(0x2).u32(0x4))
                           .tlv(3, Enc().u32(0x8))
                           .tlv(4, Enc{0x80})
                           .tlv(5, Enc().u32(100).u32(200));
    const Enc cap = Enc{10, 0, 0, 1, 0x00}
                        .tlv(2, srgb)
                        .tlv(19, Enc{0, 1})
                        .tlv(22, srlb)
                        .tlv(23, Enc{1, 10, 2, 8})
                        .tlv(26, fad128)
                        .tlv(26, Enc{129, 2, 0, 100});
    const auto d = decodeOk(buildLsp(f, Enc().tlv(242, cap)));
    ASSERT_TRUE(d.content);
    EXPECT_EQ(d.content->parsedSrCapFragId(), 1);
    EXPECT_EQ(d.content->parsedSrlbFragId(), 1);
    const auto& node = *d.content->node();

    ASSERT_TRUE(node.srCapabilities());
    const auto& sr = *node.srCapabilities();
    EXPECT_TRUE(sr.srCapFlag().mplsIpv4() && sr.srCapFlag().mplsIpv6());
    EXPECT_EQ(sr.numRanges(), 2);
    EXPECT_EQ(sr.sidLabelRange(IC::SrSidRangeIndex(0)), IC::SrSidRange(8000, Lumo::MplsLabel(16000)));
    EXPECT_EQ(sr.sidLabelRange(IC::SrSidRangeIndex(1)), IC::SrSidRange(100, Lumo::MplsLabel(30000)));
    ASSERT_TRUE(node.srlb());
    EXPECT_EQ(node.srlb()->numRanges(), 1);
    EXPECT_EQ(node.srlb()->sidLabelRange(IC::SrSidRangeIndex(0)),
              IC::SrSidRange(1000, Lumo::MplsLabel(15000)));

    ASSERT_TRUE(node.msdCol());
    EXPECT_EQ(node.msdCol()->span(), 2u);
    EXPECT_EQ(node.msdCol()->msd(0), IC::IgpMsd(1, 10));
    EXPECT_EQ(node.msdCol()->msd(1), IC::IgpMsd(2, 8));

    ASSERT_TRUE(node.fadCol());
    EXPECT_EQ(node.fadCol()->fadCount(), 2u);
    const auto fad = node.fadCol()->fad(128);
    EXPECT_EQ(fad.metricType(), 1);
    EXPECT_EQ(fad.priority(), 200);
    EXPECT_EQ(fad.lspFragmentId(), 1);
    EXPECT_EQ(fad.excludeAny()->toStrep(), "[1]");
    EXPECT_EQ(fad.includeAny()->toStrep(), "[2, 4]");
    EXPECT_EQ(fad.includeAll()->toStrep(), "[8]");
    EXPECT_EQ(fad.excludeSrlg()->toStrep(), "[100, 200]");
    EXPECT_EQ(node.fadCol()->fad(129).metricType(), 2);
}

// ---- malformed LSPs ----

struct Bad {
    const char* name;
    Bytes pdu;
    Reason reason;
    std::uint8_t tlv;
    std::size_t offset;
};

// Builds a valid LSP, then lets `edit` break it and re-fills the checksum,
// so that each case carries exactly one defect.
Bytes broken(const Enc& tlvs, void (*edit)(Bytes&)) {
    Bytes pdu = buildLsp(tlvs);
    edit(pdu);
    fillLspChecksum(pdu);
    return pdu;
}

TEST(DecoderMalformed, EachDefectRejectedWithReasonAndOffset) {
    // TLVs start at offset 27; a TLV's value at 29.
    const Enc nbr = Enc().raw(nbrId(2)).u24(10);
    const std::vector<Bad> cases = {
        {"header cut",
         [] {
             Bytes p = buildLsp(Enc());
             p.resize(20);
             return p;
         }(),
         Reason::truncatedHeader, 0, 20},
        {"discriminator", broken(Enc(), [](Bytes& p) { p[0] = 0x82; }), Reason::badHeader, 0, 0},
        {"ID length 4", broken(Enc(), [](Bytes& p) { p[3] = 4; }), Reason::badHeader, 0, 3},
        {"CSNP type", broken(Enc(), [](Bytes& p) { p[4] = 24; }), Reason::badHeader, 0, 4},
        {"PDU length short", broken(Enc(), [](Bytes& p) { p[9] = 26; }), Reason::badPduLength, 0, 8},
        {"PDU length long", broken(Enc().tlv(137, Enc{'a'}), [](Bytes& p) { p[9] += 1; }),
         Reason::truncatedPdu, 0, 8},
        {"TLV overrun", broken(Enc().tlv(137, Enc{'a', 'b'}), [](Bytes& p) { p[28] = 3; }),
         Reason::tlvOverrun, 137, 27},
        {"lone type octet", broken(Enc().tlv(137, Enc{'a'}).u8(1), [](Bytes&) {}), Reason::tlvOverrun, 1, 30},
        {"sub-TLV block overrun", buildLsp(Enc().tlv(22, Enc(nbr).u8(4).tlv(3, Enc{1}))),
         Reason::subTlvOverrun, 22, 39},
        {"sub-TLV overrun", buildLsp(Enc().tlv(22, Enc(nbr).u8(4).raw({3, 4, 0, 0}))), Reason::subTlvOverrun,
         22, 40},
        {"IS entry short", buildLsp(Enc().tlv(22, Enc().raw(nbrId(2)).u16(1))), Reason::truncatedEntry, 22,
         29},
        {"admin group 3 octets", buildLsp(Enc().tlv(22, Enc(nbr).u8(5).tlv(3, Enc{0, 0, 1}))),
         Reason::badLength, 22, 40},
        {"empty host name", buildLsp(Enc().tlv(137, Enc())), Reason::badLength, 137, 27},
        {"zero area length", buildLsp(Enc().tlv(1, Enc{0})), Reason::badLength, 1, 29},
        {"area overruns TLV", buildLsp(Enc().tlv(1, Enc{3, 0x49, 0})), Reason::truncatedEntry, 1, 29},
        {"TE router id 5", buildLsp(Enc().tlv(134, Enc{1, 2, 3, 4, 5})), Reason::badLength, 134, 27},
        {"MT odd", buildLsp(Enc().tlv(229, Enc{0, 2, 0})), Reason::badLength, 229, 27},
        {"narrow IS count", buildLsp(Enc().tlv(2, Enc{0}.raw(nbrId(2)))), Reason::badLength, 2, 27},
        {"narrow IP count", buildLsp(Enc().tlv(128, Enc{10, 0, 0, 0, 10, 0, 0, 0})), Reason::badLength, 128,
         27},
        {"prefix length 33", buildLsp(Enc().tlv(135, Enc().u32(1).u8(33).raw({1, 2, 3, 4, 5}))),
         Reason::badPrefixLength, 135, 29},
        {"v6 prefix length 129", buildLsp(Enc().tlv(236, Enc().u32(1).u8(0).u8(129))),
         Reason::badPrefixLength, 236, 29},
        {"prefix octets missing", buildLsp(Enc().tlv(135, Enc().u32(1).u8(24).raw({10, 1}))),
         Reason::truncatedEntry, 135, 29},
        {"S bit without length", buildLsp(Enc().tlv(135, Enc().u32(1).u8(0x40 | 8).raw({10}))),
         Reason::truncatedEntry, 135, 29},
        {"prefix SID V without L",
         buildLsp(Enc().tlv(135, Enc().u32(1).u8(0x40 | 8).u8(10).u8(7).tlv(3, Enc{0x08, 0}.u24(5)))),
         Reason::badSidLength, 135, 36},
        {"prefix SID index in 3",
         buildLsp(Enc().tlv(135, Enc().u32(1).u8(0x40 | 8).u8(10).u8(7).tlv(3, Enc{0x00, 0}.u24(5)))),
         Reason::badSidLength, 135, 36},
        {"adj SID label in 4", buildLsp(Enc().tlv(22, Enc(nbr).u8(8).tlv(31, Enc{0x30, 0}.u32(5)))),
         Reason::badSidLength, 22, 40},
        {"binding label 2 octets", buildLsp(Enc().tlv(149, Enc{0, 0}.u16(1).u8(8).u8(10).tlv(1, Enc{1, 2}))),
         Reason::badSidLength, 149, 35},
        {"SRGB index start",
         buildLsp(Enc().tlv(242, Enc{1, 2, 3, 4, 0}.tlv(2, Enc{0}.u24(10).tlv(1, Enc().u32(5))))),
         Reason::badSidLength, 242, 40},
        {"SRGB without range", buildLsp(Enc().tlv(242, Enc{1, 2, 3, 4, 0}.tlv(2, Enc{0x80}))),
         Reason::badLength, 242, 34},
        {"MSD odd", buildLsp(Enc().tlv(242, Enc{1, 2, 3, 4, 0}.tlv(23, Enc{1}))), Reason::badLength, 242, 34},
        {"FAD admin group 2",
         buildLsp(Enc().tlv(242, Enc{1, 2, 3, 4, 0}.tlv(26, Enc{128, 0, 0, 1}.tlv(1, Enc{0, 1})))),
         Reason::badLength, 242, 40},
        {"SRLG count", buildLsp(Enc().tlv(138, Enc().raw(nbrId(2)).u8(1).u32(1).u32(2).u16(7))),
         Reason::badLength, 138, 27},
        {"v6 SRLG NA short", buildLsp(Enc().tlv(139, Enc().raw(nbrId(2)).u8(1).raw(Bytes(16, 1)))),
         Reason::badLength, 139, 27},
        {"flex metric 4",
         buildLsp(Enc().tlv(135, Enc().u32(1).u8(0x40 | 8).u8(10).u8(6).tlv(6, Enc{128, 0, 0, 1}))),
         Reason::badLength, 135, 36},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto r = decodeLsp(c.pdu);
        ASSERT_FALSE(r.ok());
        EXPECT_EQ(r.error().reason, c.reason) << r.error().message();
        EXPECT_EQ(r.error().tlv, c.tlv) << r.error().message();
        EXPECT_EQ(r.error().offset, c.offset) << r.error().message();
    }
}

TEST(DecoderMalformed, EveryChecksumOctetFlipIsCaught) {
    const Bytes good = buildLsp(Enc().tlv(137, Enc{'r', '1'}).tlv(135, Enc().u32(1).u8(8).raw({10})));
    ASSERT_TRUE(decodeLsp(good).ok());
    // Lifetime (10, 11) is outside the sum; everything from the LSP ID on is covered.
    for (std::size_t i = 12; i < good.size(); ++i) {
        Bytes bad = good;
        bad[i] ^= 0x5a;
        const auto r = decodeLsp(bad);
        ASSERT_FALSE(r.ok()) << "octet " << i;
        EXPECT_EQ(r.error().reason, Reason::badChecksum);
    }
    Bytes aged = good;
    aged[11] ^= 0x01;
    EXPECT_TRUE(decodeLsp(aged).ok());
}

// The checksums routers computed, octet for octet, over PDUs of nearly every
// length modulo 8 (the sum takes eight octets at a time).
TEST(DecoderChecksum, FillGivesTheRoutersChecksums) {
    std::size_t lsps = 0;
    std::set<std::size_t> tails;
    for (const auto& f : readPcap(dataPath("frr-initial.pcap"))) {
        if (!isLspFrame(f)) {
            continue;
        }
        Bytes pdu = f.pdu;
        pdu.resize((std::size_t{pdu[8]} << 8) | pdu[9]);
        const Bytes sent = pdu;
        fillLspChecksum(pdu);
        EXPECT_EQ(pdu, sent) << "frame " << f.number;
        EXPECT_TRUE(lspChecksumValid(pdu));
        tails.insert((pdu.size() - 12) % 8);
        ++lsps;
    }
    EXPECT_GT(lsps, 20u);
    EXPECT_GE(tails.size(), 7u);
}

TEST(DecoderMalformed, EveryTruncationIsRejectedWithoutReadingPastTheBuffer) {
    // Under ASan a read past the copy below is caught; every prefix of a rich
    // LSP, with the PDU length adjusted and the checksum refilled, either
    // decodes or is rejected with a reason, never anything else.
    const Enc subs = Enc().tlv(6, Enc{10, 1, 0, 1}).tlv(31, Enc{0x30, 0}.u24(16));
    const Bytes full = buildLsp(
        Enc()
            .tlv(22, Enc().raw(nbrId(2)).u24(10).u8(static_cast<unsigned>(subs.size())).raw(subs))
            .tlv(135, Enc().u32(1).u8(0x40 | 32).raw({10, 0, 0, 1}).u8(8).tlv(3, Enc{0x40, 0}.u32(1)))
            .tlv(242, Enc{1, 2, 3, 4, 0}.tlv(2, Enc{0x80}.u24(8000).tlv(1, Enc().u24(16000)))));
    std::size_t rejected = 0;
    for (std::size_t n = 27; n < full.size(); ++n) {
        Bytes cut(full.begin(), full.begin() + static_cast<std::ptrdiff_t>(n));
        cut[8] = static_cast<std::uint8_t>(n >> 8);
        cut[9] = static_cast<std::uint8_t>(n);
        fillLspChecksum(cut);
        const auto r = decodeLsp(cut);
        rejected += r.ok() ? 0 : 1;
    }
    // Only the cuts at TLV boundaries (27 and after each whole TLV) are well formed.
    EXPECT_EQ(rejected, full.size() - 27 - 3);
}

}  // namespace
