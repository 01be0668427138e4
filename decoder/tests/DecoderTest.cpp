// LSPs built octet by octet for what the captures do not show, and malformed
// ones checked for the reason and offset of their rejection.

#include <gtest/gtest.h>

#include <set>
#include <tuple>

#include "IsisDecoder/Decoder.h"
#include "IsisDecoder/LspKeeper.h"
#include "TestSupport.h"

namespace {

using namespace DecoderTest;
using namespace Routing::IsisDecoder;
using Reason = DecodeError::Reason;

TEST(DecoderHeader, FieldsOfTheHeader) {
    const LspFields f{.level = 1, .sys = 7, .fragment = 3, .seq = 0x01020304, .lifetime = 600, .flags = 0x0f};
    const Bytes pdu = buildLsp(f, Enc().tlv(137, Enc{'r', '7'}));
    const auto r = decodeLsp(pdu);
    ASSERT_TRUE(r.ok()) << r.error().message();
    const auto& h = r.lsp().header;
    EXPECT_EQ(cat(unsigned{h.level}, " ", h.lspIdText(), " ", h.sequenceNumber, " ", h.remainingLifetime, " ",
                  h.pduLength, " ", h.checksum, " ", unsigned{h.isType()}),
              cat("1 1921.6800.1007.00-03 16909060 600 ", pdu.size(), " ", pdu[24] << 8 | pdu[25], " 3"));
    EXPECT_EQ(r.lsp().content->node()->nodeId(), h.nodeId());
}

// What each TLV family puts into the model, as the lines of TestSupport.h.
TEST(DecoderContent, EachTlvFamilyGivesItsLines) {
    // The TE sub-TLVs the crafted captures lack; RFC 8570 4.1 reserved bits in the delay.
    const Enc te =
        Enc()
            .tlv(31, Enc{0x30, 0}.u24(0xF15001))                                   // label: 20 bits kept
            .tlv(31, Enc{0x80, 7}.u32(123456))                                     // F flag, index
            .tlv(32, Enc{0x30, 1}.raw({0x19, 0x21, 0x68, 0x00, 0x10, 9}).u24(16))  // 6-octet system ID
            .tlv(33, Enc().u32(0xFF0005DC));  // A bit, reserved bits ignored, 1500 us
    const std::tuple<const char*, LspFields, Enc, Lines> cases[] = {
        {"links",
         {},
         Enc()
             .tlv(22, Enc().isEntry(2, 10, te))
             .tlv(222, Enc().u16(0x0002).raw(nbrId(3, 5)).u24(0xFFFFFE).u8(0)),
         {"flags ol=0 att=0",
          "nbr 1921.6800.1002.00 mt0 adjSid=128/123456/7,48/86017/0 igpMetric=10 "
          "lanAdjSid=48/16/1/1921.6800.1009 linkDelay=1/1500/1",
          "nbr 1921.6800.1003.05 mt2 igpMetric=16777214"}},
        {"narrow prefix, binding of an index",
         {.fragment = 2},
         Enc()
             .tlv(128, Enc{0x8a, 0x80, 0x80, 0x80, 172, 16, 1, 9, 255, 255, 255, 0})  // host bits cleared
             .tlv(150, Enc().u16(2).raw(Enc{0x80, 0}
                                            .u16(4)
                                            .u8(64)
                                            .raw({0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0})
                                            .tlv(1, Enc().u32(300)))),
         {"flags ol=0 att=0", "pfx 172.16.1.0/24 mt0 m10 down",
          "pfx 2001:db8::/64 mt2 unreachable bind=F/r4/f2/index=300"}},
        {"capabilities",
         {.fragment = 1},
         Enc().tlv(242, Enc{10, 0, 0, 1, 0x00}
                            .tlv(2, Enc{0xc0}.u24(8000).tlv(1, Enc().u24(16000)))
                            .tlv(22, Enc{0x00}.u24(1000).tlv(1, Enc().u24(15000)))
                            .tlv(26, Enc{128, 1, 0, 200})),
         {"flags ol=0 att=0", "srgb I1 V1 16000/8000", "srlb 15000/1000",
          "fad 128 m1 c0 p200 ex=[] any=[] all=[] srlg=[]"}},
    };
    for (const auto& [what, header, tlvs, lines] : cases) {
        const auto r = decodeLsp(buildLsp(header, tlvs));
        ASSERT_TRUE(r.ok()) << what << ": " << r.error().message();
        expectSameLines(lines, linesOf(*r.lsp().content), what);
        if (header.fragment == 1) {  // what the keeper needs to unite fragments
            const auto& content = *r.lsp().content;
            EXPECT_EQ(content.parsedSrCapFragId(), 1);
            EXPECT_EQ(content.parsedSrlbFragId(), 1);
            EXPECT_EQ(content.node()->fadCol()->fad(128).lspFragmentId(), 1);
        }
    }
}

// Unnumbered links (RFC 5307 1.1): no key holds their identifiers, so parallel
// ones to one neighbor are one link with the best metric, and an unnumbered
// SRLG TLV belongs to that neighbor's unnumbered link alone.
TEST(DecoderContent, UnnumberedLinksParallelAndTheirSrlgs) {
    const Enc ids1 = Enc().tlv(4, Enc().u32(1).u32(11));
    const Enc ids2 = Enc().tlv(4, Enc().u32(2).u32(12));
    const Enc tlvs = Enc()
                         .tlv(138, nbrId(2).u8(0).u32(1).u32(11).u32(300))  // before its link
                         .tlv(22, Enc()
                                      .isEntry(2, 30, ids1)
                                      .isEntry(2, 10, ids2)
                                      .isEntry(3, 5, ids1)
                                      .isEntry(5, 7, Enc().tlv(6, Enc{10, 1, 0, 1}).tlv(8, Enc{10, 1, 0, 2})))
                         .tlv(2, Enc{0}.raw({0x0a, 0x80, 0x80, 0x80}).raw(nbrId(6)))
                         .tlv(138, nbrId(5).u8(1).raw({10, 1, 0, 1, 10, 1, 0, 2}).u32(44));
    const Bytes pdu = buildLsp(tlvs);
    const auto d = decodeLsp(pdu);
    ASSERT_TRUE(d.ok());
    EXPECT_FALSE(d.lsp().content->parsedSrLg(Lumo::IpGenAddr()));
    LspKeeper k(IC::igpLevelIsisLevel2);
    ASSERT_EQ(k.receivePdu(pdu), LspKeeper::Outcome::installed);
    expectSameLines({"flags ol=0 att=0", "nbr 1921.6800.1002.00 mt0 igpMetric=10 srlgValues=300",
                     "nbr 1921.6800.1003.00 mt0 igpMetric=5", "nbr 1921.6800.1006.00 mt0 igpMetric=10",
                     "nbr 1921.6800.1005.00 mt0 igpMetric=7 l4=10.1.0.1 r4=10.1.0.2 srlgValues=44"},
                    linesOf(*k.database()->lsp(d.lsp().header.nodeId())), "the entry");
}

// A workspace fills the content of its last decoding again once the caller
// has let go of it: the next LSP then decodes exactly as into a new content.
// A content the caller still holds is left as it is.
TEST(DecoderWorkspace, ContentRecycledOnlyOnceReleased) {
    const auto srlgs = [](std::uint8_t net, std::uint32_t value) {
        Enc e;
        for (std::uint8_t i = 1; i <= 5; ++i) {  // more records than the table keeps in place
            e.tlv(138, nbrId(2).u8(1).raw({10, net, i, 1, 10, net, i, 2}).u32(value + i));
        }
        return e;
    };
    const auto prefixes = [](std::uint8_t net, std::uint8_t n) {
        Enc e;
        for (std::uint8_t i = 0; i < n; ++i) {
            e.u32(10 + i).u8(24).raw({10, net, i});
        }
        return e;
    };
    const Bytes big = buildLsp(
        {.fragment = 1, .flags = 0x0b},
        Enc()
            .tlv(137, Enc{'b', 'i', 'g'})
            .tlv(22, Enc().isEntry(2, 10).isEntry(3, 20).isEntry(4, 30, Enc().tlv(6, Enc{10, 9, 0, 1})))
            .tlv(135, prefixes(1, 6))
            .raw(srlgs(1, 100))
            .tlv(242, Enc{10, 0, 0, 1, 0x00}
                          .tlv(2, Enc{0xc0}.u24(8000).tlv(1, Enc().u24(16000)))
                          .tlv(22, Enc{0x00}.u24(1000).tlv(1, Enc().u24(15000)))));
    const Bytes small =
        buildLsp({.sys = 9, .flags = 0x07},
                 Enc().tlv(22, Enc().isEntry(5, 7)).tlv(135, prefixes(2, 2)).raw(srlgs(2, 200)));
    const auto linesAndIds = [](const IC::IsisLspParsedContent& c) {
        Lines l = linesOf(c);
        l.insert(cat("frag ", unsigned{c.parsedSrCapFragId()}, " ", unsigned{c.parsedSrlbFragId()}));
        l.insert(cat("keys ", c.neighborKey() == IC::NeighborKey(), " ", c.prefixKey() == IC::PrefixKey()));
        return l;
    };
    const Lines bigAlone = linesAndIds(*decodeLsp(big).lsp().content);
    const Lines smallAlone = linesAndIds(*decodeLsp(small).lsp().content);
    ASSERT_TRUE(bigAlone.count("frag 1 1") && bigAlone.count("srlg 10.1.5.1 105"))
        << "the case lost its point";

    auto& made = IC::IsisLspParsedContent::allocTracker();
    DecodeWorkspace ws;
    const auto held = decodeLsp(small, ws);
    auto before = made.allocations();
    auto other = decodeLsp(big, ws);
    EXPECT_EQ(made.allocations() - before, 1u) << "the content the caller holds was not left alone";
    expectSameLines(bigAlone, linesAndIds(*other.lsp().content), "a new content");
    other.lsp().content->neighborKeyIs(
        IC::NeighborKey(held.lsp().header.nodeId(), IC::IgpMultiTopologyId(2)));
    other.lsp().content->prefixKeyIs(IC::PrefixKey(Lumo::IpGenPrefix(), IC::IgpMultiTopologyId(2)));

    // Released, the content of the larger LSP takes the smaller one, then the larger one again.
    before = made.allocations();
    other = DecodeResult(DecodeError{});
    other = decodeLsp(small, ws);
    expectSameLines(smallAlone, linesAndIds(*other.lsp().content), "recycled for a smaller LSP");
    other = DecodeResult(DecodeError{});
    other = decodeLsp(big, ws);
    expectSameLines(bigAlone, linesAndIds(*other.lsp().content), "recycled for a larger LSP");
    EXPECT_EQ(made.allocations() - before, 0u) << "a released content was not filled again";
    expectSameLines(smallAlone, linesAndIds(*held.lsp().content), "the content held all along");
}

// A released content builds its next node, neighbors and SRLG records in the
// storage of those nobody took: each is then exactly what a new content's
// decoding builds, whatever the earlier one carried or had done to it. One
// that the caller took is left as it was. A rejected PDU, which built more
// than there was storage for, leaves no more objects alive than before it.
TEST(DecoderWorkspace, MembersBuiltInReleasedStorageAreNew) {
    const auto v4 = [](std::uint8_t n, std::uint8_t host) { return Enc{10, n, 0, host}; };
    const auto srlg = [&](std::uint8_t n, std::uint32_t values) {
        Enc e = nbrId(n).u8(1).raw(v4(n, 1)).raw(v4(n, 2));
        for (std::uint32_t i = 0; i < values; ++i) {
            e.u32(100 * n + i);
        }
        return Enc().tlv(138, e);
    };
    Enc unrsv;
    for (std::uint32_t i = 0; i < 8; ++i) {
        unrsv.u32(0x4e6e6b28 + i);
    }
    Enc fullTlvs;  // a link's sub-TLVs fill most of a TLV
    for (std::uint8_t n = 2; n <= 4; ++n) {
        fullTlvs.tlv(22,
                     Enc().isEntry(n, 10 * n,
                                   Enc()
                                       .tlv(3, Enc().u32(0x11))
                                       .tlv(6, v4(n, 1))
                                       .tlv(8, v4(n, 2))
                                       .tlv(9, Enc().u32(0x4e6e6b28))
                                       .tlv(10, Enc().u32(0x4e000000))
                                       .tlv(11, unrsv)
                                       .tlv(14, Enc().u32(1).u32(2).u32(3))
                                       .tlv(18, Enc().u24(77))
                                       .tlv(31, Enc{0x30, 0}.u24(16000 + n))
                                       .tlv(31, Enc{0xb0, 1}.u24(17000 + n))
                                       .tlv(31, Enc{0x70, 2}.u24(18000 + n))
                                       .tlv(32, Enc{0x30, 1}.raw({0x19, 0x21, 0x68, 0x00, 0x10, 9}).u24(16))
                                       .tlv(33, Enc().u32(0x800005DC))));
        fullTlvs.raw(srlg(n, 5));
    }
    const Bytes full =
        buildLsp({.flags = 0x0b}, Enc()
                                      .tlv(1, Enc{3, 0x49, 0, 1})
                                      .tlv(137, Enc{'f', 'u', 'l', 'l'})
                                      .tlv(134, Enc{10, 0, 0, 1})
                                      .raw(fullTlvs)
                                      .tlv(242, Enc{10, 0, 0, 1, 0x00}
                                                    .tlv(2, Enc{0xc0}.u24(8000).tlv(1, Enc().u24(16000)))
                                                    .tlv(22, Enc{0x00}.u24(1000).tlv(1, Enc().u24(15000)))));
    const Bytes bare = buildLsp(
        {.fragment = 1},
        Enc().tlv(22, Enc().isEntry(5, 1).isEntry(6, 2).isEntry(7, 3)).raw(srlg(5, 0)).raw(srlg(6, 0)));
    const auto freshFull = decodeLsp(full);
    const auto fresh = decodeLsp(bare);
    ASSERT_TRUE(freshFull.ok() && fresh.ok());
    const IC::IsisLspParsedContent& want = *fresh.lsp().content;
    const IC::NeighborKey key2 = freshFull.lsp().content->neighbor().front()->key();
    ASSERT_EQ(freshFull.lsp().content->neighbor().size(), 3u);
    ASSERT_EQ(freshFull.lsp().content->parsedSrLg().size(), 3u);
    ASSERT_NE(Kest::firstDifference(*freshFull.lsp().content->node(), *want.node()), "");
    const std::string fullLine = neighborLine(*freshFull.lsp().content->neighbor(key2));
    for (const char* attr :
         {"adjSid=112", "extAdminGroup=0:1,1:2,2:3", "lanAdjSid=", "linkDelay=", "unreservedBw="}) {
        ASSERT_NE(fullLine.find(attr), std::string::npos) << "the case lost its point: " << fullLine;
    }

    DecodeWorkspace ws;
    Poldo::Ptr<IC::Neighbor> taken;
    Poldo::Ptr<IC::NeighborSrlg> takenSrlg;
    {
        const auto r = decodeLsp(full, ws);
        const IC::IsisLspParsedContent& c = *r.lsp().content;
        Poldo::FunctionObserver seen([](const Poldo::Notification&) {});
        const auto touch = [&](const auto& e) {
            e->publisher().observerIs(seen);
            e->publisher().observerDel(seen);
            e->runtimeFlagsIs(0x60000000u);
        };
        touch(c.node());
        for (const auto& n : c.neighbor()) {
            touch(n);
        }
        for (const auto& rec : c.parsedSrLg()) {
            rec->runtimeFlagsIs(0x60000000u);
        }
        taken = c.neighbor(key2);
        takenSrlg = c.parsedSrLg().front();
    }
    ws.release();

    auto& nodes = IC::Node::allocTracker();
    auto& neighbors = IC::Neighbor::allocTracker();
    auto& srlgs = IC::NeighborSrlg::allocTracker();
    const std::uint64_t made[] = {nodes.allocations(), neighbors.allocations(), srlgs.allocations()};
    {
        const auto r = decodeLsp(bare, ws);
        const IC::IsisLspParsedContent& c = *r.lsp().content;
        // Storage for the node, two of three neighbors and two of three records.
        EXPECT_EQ(nodes.allocations() - made[0], 0u);
        EXPECT_EQ(neighbors.allocations() - made[1], 1u);
        EXPECT_EQ(srlgs.allocations() - made[2], 0u);
        EXPECT_EQ(c.spareNeighbors() + c.spareSrlgs() + c.spareNodes(), 0u);
        const auto asNew = [](const auto& e, const auto& fresh, const std::string& what) {
            EXPECT_EQ(Kest::firstDifference(*e, *fresh), "") << what;
            EXPECT_EQ(e->useCountWord(), 1u) << what;
            EXPECT_TRUE(e->publisher().initialState()) << what;
        };
        asNew(c.node(), want.node(), "node");
        EXPECT_EQ(c.neighbor().size(), want.neighbor().size());
        for (const auto& n : c.neighbor()) {
            asNew(n, want.neighbor(n->key()), cat("neighbor ", neighborLine(*n)));
            EXPECT_NE(n, taken);
        }
        EXPECT_EQ(c.parsedSrLg().size(), want.parsedSrLg().size());
        for (const auto& rec : c.parsedSrLg()) {
            const auto w = want.parsedSrLg(rec->localAddr());
            ASSERT_TRUE(w) << rec->localAddr();
            EXPECT_TRUE(rec->srlgValue().empty()) << rec->localAddr();
            EXPECT_EQ(rec->useCountWord(), 1u) << rec->localAddr();
            EXPECT_NE(rec, takenSrlg);
        }
    }
    EXPECT_EQ(Kest::firstDifference(*taken, *freshFull.lsp().content->neighbor(key2)), "");
    EXPECT_EQ(taken->useCountWord(), 0x60000001u);
    EXPECT_EQ(takenSrlg->srlgValue().size(), 5u);
    EXPECT_EQ(takenSrlg->useCountWord(), 0x60000001u);

    ws.release();
    const std::uint64_t live = Drimm::AllocTracker::totalLive();
    Enc five;
    for (std::uint8_t n = 2; n <= 6; ++n) {
        five.isEntry(n, 1);
    }
    EXPECT_FALSE(decodeLsp(buildLsp(Enc().tlv(22, five).raw(srlg(8, 0)).tlv(135, Enc{1})), ws).ok());
    ws.release();
    EXPECT_EQ(Drimm::AllocTracker::totalLive(), live) << "a rejected PDU left storage behind";
}

// ---- malformed LSPs ----

// A valid LSP that `edit` breaks, its checksum refilled.
Bytes broken(const Enc& tlvs, void (*edit)(Bytes&)) {
    Bytes pdu = buildLsp(tlvs);
    edit(pdu);
    fillLspChecksum(pdu);
    return pdu;
}

Bytes one(unsigned type, const Enc& value) {
    return buildLsp(Enc().tlv(type, value));
}

// The crafted-invalid capture's defects (a cut header or PDU, overruns, bad
// prefix lengths) are pinned by the tool's outputs for it; these are the rest.
TEST(DecoderMalformed, EachDefectRejectedWithReasonAndOffset) {
    // TLVs start at offset 27; a TLV's value at 29.
    const Enc nbr = nbrId(2).u24(10);
    const Enc cap = Enc{1, 2, 3, 4, 0};
    const std::tuple<const char*, Bytes, Reason, unsigned, std::size_t> cases[] = {
        {"discriminator", broken(Enc(), [](Bytes& p) { p[0] = 0x82; }), Reason::badHeader, 0, 0},
        {"ID length 4", broken(Enc(), [](Bytes& p) { p[3] = 4; }), Reason::badHeader, 0, 3},
        {"CSNP type", broken(Enc(), [](Bytes& p) { p[4] = 24; }), Reason::badHeader, 0, 4},
        {"PDU length short", broken(Enc(), [](Bytes& p) { p[9] = 26; }), Reason::badPduLength, 0, 8},
        {"lone type octet", buildLsp(Enc().tlv(137, Enc{'a'}).u8(1)), Reason::tlvOverrun, 1, 30},
        {"sub-TLV overrun", one(22, Enc(nbr).u8(4).raw({3, 4, 0, 0})), Reason::subTlvOverrun, 22, 40},
        {"IS entry short", one(22, nbrId(2).u16(1)), Reason::truncatedEntry, 22, 29},
        {"admin group 3 octets", one(22, Enc(nbr).u8(5).tlv(3, Enc{0, 0, 1})), Reason::badLength, 22, 40},
        {"empty extended admin group", one(22, Enc(nbr).u8(2).tlv(14, Enc())), Reason::badLength, 22, 40},
        {"empty host name", one(137, Enc()), Reason::badLength, 137, 27},
        {"zero area length", one(1, Enc{0}), Reason::badLength, 1, 29},
        {"area overruns TLV", one(1, Enc{3, 0x49, 0}), Reason::truncatedEntry, 1, 29},
        {"TE router id 5", one(134, Enc{1, 2, 3, 4, 5}), Reason::badLength, 134, 27},
        {"MT odd", one(229, Enc{0, 2, 0}), Reason::badLength, 229, 27},
        {"narrow IS count", one(2, Enc{0}.raw(nbrId(2))), Reason::badLength, 2, 27},
        {"narrow IP count", one(128, Enc{10, 0, 0, 0, 10, 0, 0, 0}), Reason::badLength, 128, 27},
        {"prefix octets missing", one(135, Enc().u32(1).u8(24).raw({10, 1})), Reason::truncatedEntry, 135,
         29},
        {"v6 S bit without length", one(236, Enc().u32(1).u8(0x20).u8(0)), Reason::truncatedEntry, 236, 29},
        {"prefix SID V without L",
         one(135, Enc().u32(1).u8(0x40 | 8).u8(10).u8(7).tlv(3, Enc{0x08, 0}.u24(5))), Reason::badSidLength,
         135, 36},
        {"prefix SID index in 3",
         one(135, Enc().u32(1).u8(0x40 | 8).u8(10).u8(7).tlv(3, Enc{0x00, 0}.u24(5))), Reason::badSidLength,
         135, 36},
        {"adj SID label in 4", one(22, Enc(nbr).u8(8).tlv(31, Enc{0x30, 0}.u32(5))), Reason::badSidLength, 22,
         40},
        {"binding label 2 octets", one(149, Enc{0, 0}.u16(1).u8(8).u8(10).tlv(1, Enc{1, 2})),
         Reason::badSidLength, 149, 35},
        {"SRGB index start", one(242, Enc(cap).tlv(2, Enc{0}.u24(10).tlv(1, Enc().u32(5)))),
         Reason::badSidLength, 242, 40},
        {"SRGB without range", one(242, Enc(cap).tlv(2, Enc{0x80})), Reason::badLength, 242, 34},
        {"MSD odd", one(242, Enc(cap).tlv(23, Enc{1})), Reason::badLength, 242, 34},
        {"FAD admin group 2", one(242, Enc(cap).tlv(26, Enc{128, 0, 0, 1}.tlv(1, Enc{0, 1}))),
         Reason::badLength, 242, 40},
        {"SRLG count", one(138, nbrId(2).u8(1).u32(1).u32(2).u16(7)), Reason::badLength, 138, 27},
        {"v6 SRLG NA short", one(139, nbrId(2).u8(1).raw(Bytes(16, 1))), Reason::badLength, 139, 27},
        {"flex metric 4", one(135, Enc().u32(1).u8(0x40 | 8).u8(10).u8(6).tlv(6, Enc{128, 0, 0, 1})),
         Reason::badLength, 135, 36},
    };
    for (const auto& [name, pdu, reason, tlv, offset] : cases) {
        const auto r = decodeLsp(pdu);
        ASSERT_FALSE(r.ok()) << name;
        EXPECT_EQ(cat(unsigned(r.error().reason), " ", unsigned{r.error().tlv}, " ", r.error().offset),
                  cat(unsigned(reason), " ", tlv, " ", offset))
            << name << ": " << r.error().message();
    }
}

// The checksum covers all from the LSP ID on; 0 is for purges alone; filling
// it gives what the routers sent, over PDU lengths of most residues mod 8.
TEST(DecoderChecksum, CoverageZeroForPurgesAndTheRoutersSums) {
    Bytes good = buildLsp(Enc().tlv(137, Enc{'r', '1'}).tlv(135, Enc().u32(1).u8(8).raw({10})));
    for (std::size_t i = 10; i < good.size(); ++i) {
        Bytes bad = good;
        bad[i] ^= 0x5a;
        const auto r = decodeLsp(bad);
        EXPECT_TRUE(i < 12 ? r.ok() : !r.ok() && r.error().reason == Reason::badChecksum) << i;
    }
    Bytes purge = buildLsp(LspFields{.lifetime = 0}, Enc()), live = buildLsp(Enc());
    purge[24] = purge[25] = live[24] = live[25] = 0;
    good.insert(good.end(), {0, 0, 0, 0, 0});  // beyond the PDU length: ignored
    EXPECT_EQ(cat(decodeLsp(purge).ok(), decodeLsp(live).ok(), decodeLsp(good).ok()), "101");

    std::set<std::size_t> tails;
    for (const auto& f : readPdus("frr-initial.pcap")) {
        if (isLsp(f)) {
            Bytes pdu(f.begin(), f.begin() + (f[8] << 8 | f[9]));
            const Bytes sent = pdu;
            fillLspChecksum(pdu);
            EXPECT_EQ(pdu, sent);
            tails.insert((pdu.size() - 12) % 8);
        }
    }
    EXPECT_GE(tails.size(), 7u);
}

// Every prefix of a rich LSP, its PDU length and checksum refilled, decodes
// or is rejected, and never reads past its copy (ASan).
TEST(DecoderMalformed, EveryTruncationIsRejectedWithoutReadingPastTheBuffer) {
    const Bytes full = buildLsp(
        Enc()
            .tlv(22, Enc().isEntry(2, 10, Enc().tlv(6, Enc{10, 1, 0, 1}).tlv(31, Enc{0x30, 0}.u24(16))))
            .tlv(135, Enc().u32(1).u8(0x40 | 32).raw({10, 0, 0, 1}).u8(8).tlv(3, Enc{0x40, 0}.u32(1)))
            .tlv(242, Enc{1, 2, 3, 4, 0}.tlv(2, Enc{0x80}.u24(8000).tlv(1, Enc().u24(16000)))));
    std::size_t rejected = 0;
    for (std::size_t n = 27; n < full.size(); ++n) {
        Bytes cut(full.begin(), full.begin() + static_cast<std::ptrdiff_t>(n));
        cut[9] = static_cast<std::uint8_t>(n);  // n < 256
        fillLspChecksum(cut);
        rejected += decodeLsp(cut).ok() ? 0 : 1;
    }
    // Only the cuts at TLV boundaries (27 and after each whole TLV) are well formed.
    EXPECT_EQ(rejected, full.size() - 27 - 3);
}

}  // namespace
