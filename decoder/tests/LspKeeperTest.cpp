// The per-level keeper: newest copy per fragment, purges, and a node's entry
// as the union of its current fragments.

#include <gtest/gtest.h>

#include "IgpCommon/platform/Umbo.h"
#include "IsisDecoder/LspKeeper.h"
#include "ModelText.h"
#include "TestSupport.h"

namespace {

using namespace DecoderTest;
using namespace Routing::IsisDecoder;
namespace IC = Routing::IgpCommon;
using Outcome = LspKeeper::Outcome;

IC::IgpNodeId node(std::uint8_t sys) {
    const std::uint8_t b[7] = {0x19, 0x21, 0x68, 0x00, 0x10, sys, 0};
    return IC::IgpNodeId::fromBytes(b);
}
IC::PrefixKey pkey(const char* t) {
    return IC::PrefixKey(Kest::strepToValue(t, static_cast<Lumo::IpGenPrefix*>(nullptr)),
                         IC::IgpMultiTopologyId(0));
}

DecodedLsp lsp(std::uint8_t fragment, std::uint32_t seq, const Enc& tlvs, std::uint16_t lifetime = 1199,
               std::uint8_t flags = 0x03) {
    LspFields f;
    f.flags = flags;
    f.fragment = fragment;
    f.seq = seq;
    f.lifetime = lifetime;
    const auto r = decodeLsp(buildLsp(f, tlvs));
    EXPECT_TRUE(r.ok());
    return r.ok() ? r.lsp() : DecodedLsp{};
}

std::string dumpOf(const IC::IgpLspDatabase& db) {
    const auto ctx = Umbo::DumpContext::dumpContextIs();
    db.dumpState(ctx, 0);
    return ctx->text();
}

Enc prefix(std::uint8_t third, std::uint32_t metric) {
    return Enc().u32(metric).u8(24).raw({10, 0, third});
}
Enc neighbor(std::uint8_t sys) {
    return Enc{0x19, 0x21, 0x68, 0x00, 0x10, sys, 0}.u24(10).u8(0);
}

TEST(LspKeeper, NodeEntryIsTheUnionOfItsFragments) {
    LspKeeper k(IC::igpLevelIsisLevel2);
    EXPECT_EQ(k.receive(lsp(0, 1, Enc().tlv(137, Enc{'a'}).tlv(135, prefix(1, 5)))), Outcome::installed);
    // The overload bit of a fragment other than 0 does not count (ISO 10589 7.3.4.4).
    EXPECT_EQ(k.receive(lsp(1, 1, Enc().tlv(22, neighbor(2)).tlv(135, prefix(2, 6)), 1199, 0x07)),
              Outcome::installed);
    const auto entry = k.database()->lsp(node(1));
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->node()->hostName(), "a");
    EXPECT_EQ(entry->prefix().size(), 2u);
    EXPECT_EQ(entry->neighbor().size(), 1u);
    EXPECT_EQ(k.fragmentCount(), 2u);
    EXPECT_FALSE(entry->node()->flags().overloadBit());
    k.receive(lsp(0, 2, Enc().tlv(137, Enc{'a'}), 1199, 0x07));
    EXPECT_TRUE(entry->node()->flags().overloadBit());
    EXPECT_EQ(entry->prefix().size(), 1u);
}

// One prefix, link or flex-algo definition that two fragments carry: the
// entry keeps what each said, the first fragment winning where both say it;
// purging the second fragment gives back exactly the first one's entry.
TEST(LspKeeper, KeyInTwoFragmentsKeepsWhatEachSaid) {
    const Enc wide = Enc().u32(5).u8(0x40 | 24).raw({10, 0, 1}).u8(8).tlv(3, Enc{0x40, 0}.u32(7));
    const Enc narrow = Enc{5, 0x80, 0x80, 0x80, 10, 0, 1, 0, 255, 255, 255, 0};
    const Enc binding = Enc{0, 0}.u16(1).u8(24).raw({10, 0, 1}).tlv(1, Enc().u24(90000));
    auto link = [](const Enc& subs) {
        return Enc{0x19, 0x21, 0x68, 0x00, 0x10, 2, 0}.u24(10).u8(subs.size()).raw(subs);
    };
    const Enc adj1 = Enc().tlv(31, Enc{0x30, 0}.u24(24001));
    const Enc adj2te = Enc().tlv(31, Enc{0x30, 0}.u24(24002)).tlv(18, Enc().u24(100));
    auto fad = [](unsigned prio, const Enc& subs) {
        return Enc().u32(0x0a000001).u8(0).tlv(26, Enc{128, 0, 0, static_cast<std::uint8_t>(prio)}.raw(subs));
    };
    const struct {
        const char* what;
        Enc first, second;
        Lines lines;
    } cases[] = {
        {"narrow after wide",
         Enc().tlv(135, wide),
         Enc().tlv(128, narrow),
         {"pfx 10.0.1.0/24 mt0 m5 sid=7/0x40"}},
        {"wide after narrow",
         Enc().tlv(128, narrow),
         Enc().tlv(135, wide),
         {"pfx 10.0.1.0/24 mt0 m5 sid=7/0x40"}},
        {"binding after reachability",
         Enc().tlv(135, wide),
         Enc().tlv(149, binding),
         {"pfx 10.0.1.0/24 mt0 m5 sid=7/0x40 bind=-/r1/f1/label=90000"}},
        {"reachability after binding",
         Enc().tlv(149, binding),
         Enc().tlv(135, wide),
         {"pfx 10.0.1.0/24 mt0 m5 sid=7/0x40 bind=-/r1/f0/label=90000"}},
        {"link described twice",
         Enc().tlv(22, link(adj1)),
         Enc().tlv(22, link(adj2te)),
         {"nbr 1921.6800.1002.00 mt0 m10 adj=24001/0x30/w0 adj=24002/0x30/w0 te=100"}},
        {"definition split",
         Enc().tlv(242, fad(10, Enc().tlv(1, Enc().u32(1)))),
         Enc().tlv(242, fad(20, Enc().tlv(3, Enc().u32(4)).tlv(5, Enc().u32(100)))),
         {"fad 128 m0 c0 p10 ex=[1] any=[] all=[4] srlg=[100]"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        LspKeeper k(IC::igpLevelIsisLevel2), alone(IC::igpLevelIsisLevel2);
        k.receive(lsp(0, 1, c.first));
        alone.receive(lsp(0, 1, c.first));
        k.receive(lsp(1, 1, c.second));
        Lines want = c.lines;
        want.insert("flags ol=0 att=0");
        expectSameLines(want, entryLines(*k.database()->lsp(node(1))), "both fragments");
        k.receive(lsp(1, 2, Enc(), 0));
        expectSameLines(entryLines(*alone.database()->lsp(node(1))), entryLines(*k.database()->lsp(node(1))),
                        "the second purged");
    }
}

TEST(LspKeeper, OlderAndEqualCopiesAreIgnoredAndNewerOnesReplace) {
    LspKeeper k(IC::igpLevelIsisLevel2);
    k.receive(lsp(0, 5, Enc().tlv(135, prefix(1, 5).raw(prefix(2, 5)))));
    EXPECT_EQ(k.receive(lsp(0, 5, Enc().tlv(135, prefix(3, 5)))), Outcome::ignored);
    EXPECT_EQ(k.receive(lsp(0, 4, Enc().tlv(135, prefix(3, 5)))), Outcome::ignored);
    EXPECT_EQ(k.ignoredCount(), 2u);
    LspFields l1;
    l1.level = 1;
    l1.seq = 9;
    EXPECT_EQ(k.receive(decodeLsp(buildLsp(l1, Enc())).lsp()), Outcome::ignored);
    EXPECT_EQ(k.ignoredCount(), 3u);

    // Seq 6 drops 10.0.2.0/24 and changes a metric; the entry follows.
    EXPECT_EQ(k.receive(lsp(0, 6, Enc().tlv(135, prefix(1, 7)))), Outcome::installed);
    const auto entry = k.database()->lsp(node(1));
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->prefix().size(), 1u);
    EXPECT_EQ(entry->prefix(pkey("10.0.1.0/24"))->metric(), 7u);
}

TEST(LspKeeper, PurgesRemoveFragmentsThenTheEntryAndBlockOlderCopies) {
    LspKeeper k(IC::igpLevelIsisLevel2);
    k.receive(lsp(0, 3, Enc().tlv(135, prefix(1, 5))));
    k.receive(lsp(1, 3, Enc().tlv(22, neighbor(2))));
    // A purge of the same number removes fragment 1 and its neighbor.
    EXPECT_EQ(k.receive(lsp(1, 3, Enc(), 0)), Outcome::purged);
    auto entry = k.database()->lsp(node(1));
    ASSERT_TRUE(entry);
    EXPECT_TRUE(entry->neighbor().empty());
    EXPECT_EQ(entry->prefix().size(), 1u);

    EXPECT_EQ(k.receive(lsp(0, 4, Enc(), 0)), Outcome::purged);
    EXPECT_FALSE(k.database()->lsp(node(1)));
    EXPECT_EQ(k.database()->lspCount(), 0u);
    // The copy that was purged may still be in flight; it must not come back.
    EXPECT_EQ(k.receive(lsp(0, 3, Enc().tlv(135, prefix(1, 5)))), Outcome::ignored);
    EXPECT_EQ(k.database()->lspCount(), 0u);
    EXPECT_EQ(k.receive(lsp(0, 5, Enc().tlv(135, prefix(1, 5)))), Outcome::installed);
    EXPECT_EQ(k.database()->lspCount(), 1u);
}

// The refresh of an unchanged fragment is taken without decoding; anything
// else that differs in flags or TLVs goes through the decoder and the merge.
TEST(LspKeeper, PduRefreshesOfUnchangedFragmentsSkipTheMerge) {
    const Enc tlvs = Enc().tlv(135, prefix(1, 5)).tlv(22, neighbor(2));
    const auto pdu = [&](std::uint32_t seq, const Enc& body, std::uint8_t flags = 0x03,
                         std::uint16_t lifetime = 1199) {
        LspFields f;
        f.seq = seq;
        f.flags = flags;
        f.lifetime = lifetime;
        return buildLsp(f, body);
    };
    LspKeeper k(IC::igpLevelIsisLevel2);
    EXPECT_EQ(k.receivePdu(pdu(1, tlvs)), Outcome::installed);
    const std::string before = dumpOf(*k.database());
    const auto entry = k.database()->lsp(node(1));
    const auto prefixBefore = entry->prefix(pkey("10.0.1.0/24"));

    EXPECT_EQ(k.receivePdu(pdu(2, tlvs)), Outcome::refreshed);
    EXPECT_EQ(k.receivePdu(pdu(3, tlvs, 0x03, 600)), Outcome::refreshed);
    EXPECT_EQ(k.refreshedCount(), 2u);
    EXPECT_EQ(dumpOf(*k.database()), before);
    EXPECT_EQ(k.database()->lsp(node(1))->prefix(pkey("10.0.1.0/24")), prefixBefore);
    // The sequence number was taken: the copies in between are old now.
    EXPECT_EQ(k.receivePdu(pdu(3, tlvs)), Outcome::ignored);
    EXPECT_EQ(k.receivePdu(pdu(2, Enc().tlv(135, prefix(1, 9)))), Outcome::ignored);

    // The overload bit alone, then a metric alone, are changes.
    EXPECT_EQ(k.receivePdu(pdu(4, tlvs, 0x07)), Outcome::installed);
    EXPECT_TRUE(entry->node()->flags().overloadBit());
    EXPECT_EQ(k.receivePdu(pdu(5, Enc().tlv(135, prefix(1, 9)).tlv(22, neighbor(2)), 0x07)),
              Outcome::installed);
    EXPECT_EQ(entry->prefix(pkey("10.0.1.0/24"))->metric(), 9u);

    // A copy that would be a refresh but for a corrupted checksum or body is
    // rejected and changes nothing.
    Bytes bad = pdu(6, Enc().tlv(135, prefix(1, 9)).tlv(22, neighbor(2)), 0x07);
    bad[24] ^= 0xFF;
    DecodeError why;
    EXPECT_EQ(k.receivePdu(bad, &why), Outcome::rejected);
    EXPECT_EQ(why.reason, DecodeError::Reason::badChecksum);
    EXPECT_EQ(k.receivePdu(Bytes(bad.begin(), bad.begin() + 20)), Outcome::rejected);
    for (const std::size_t at : {20u, 23u, 25u}) {  // sequence number or checksum octets moved
        Bytes moved = pdu(6, Enc().tlv(135, prefix(1, 9)).tlv(22, neighbor(2)), 0x07);
        moved[at] += 1;
        EXPECT_EQ(k.receivePdu(moved, &why), Outcome::rejected) << at;
    }
    EXPECT_EQ(entry->prefix(pkey("10.0.1.0/24"))->metric(), 9u);

    // A purge is never a refresh; after it, the same octets install again.
    EXPECT_EQ(k.receivePdu(pdu(7, Enc(), 0x07, 0)), Outcome::purged);
    EXPECT_FALSE(k.database()->lsp(node(1)));
    EXPECT_EQ(k.receivePdu(pdu(8, tlvs)), Outcome::installed);
    EXPECT_EQ(dumpOf(*k.database()), before);

    // A copy installed from a decoded LSP holds no octets to compare with.
    EXPECT_EQ(k.receive(lsp(0, 9, tlvs)), Outcome::installed);
    EXPECT_EQ(k.receivePdu(pdu(10, tlvs)), Outcome::installed);
    EXPECT_EQ(k.refreshedCount(), 2u);
}

}  // namespace

namespace {

// Fragment f of a node of 256: a prefix of its own; a node-wide value, an
// SRLG record away from its link, and a prefix and a link that two fragments
// carry, spread over a few others. `stale` is an earlier copy with other keys
// and a host name in fragment 0 that outranks fragment 9's.
Enc fragmentTlvs(unsigned f, bool stale) {
    Enc e;
    if (stale) {
        if (f == 0) {
            e.tlv(137, Enc{'o', 'l', 'd'});
        }
        return e.tlv(135, Enc().u32(1).u8(24).raw({10, static_cast<std::uint8_t>(f), 9}));
    }
    e.tlv(135, Enc().u32(f + 1).u8(24).raw({10, static_cast<std::uint8_t>(f), 1}));
    const Enc link = Enc{0x19, 0x21, 0x68, 0x00, 0x10, 2, 0}
                         .u24(10)
                         .u8(12)
                         .tlv(6, Enc{10, 255, 0, 1})
                         .tlv(8, Enc{10, 255, 0, 2});
    switch (f) {
        case 0:
            return e.tlv(1, Enc{3, 0x49, 0, 1});
        case 130:
            return e.tlv(1, Enc{3, 0x49, 0, 2});
        case 9:
            return e.tlv(137, Enc{'r', '9'});
        case 4:
            return e.tlv(22, link);
        case 250:  // RFC 5307 1.4, numbered: the link of fragment 4
            return e.tlv(138,
                         Enc{0x19, 0x21, 0x68, 0x00, 0x10, 2, 0, 1, 10, 255, 0, 1, 10, 255, 0, 2}.u32(77));
        case 17:
        case 33:
            return e.tlv(135, Enc().u32(5).u8(24).raw({192, 0, 2}));
        case 60:
        case 61:
            return e.tlv(22, neighbor(3));
        default:
            return e;
    }
}

// The database of one PDU carrying the TLVs of the given fragments in order.
std::string unionDump(const std::vector<unsigned>& fragments) {
    Enc all;
    for (const unsigned f : fragments) {
        all.raw(fragmentTlvs(f, false));
    }
    LspFields one;
    one.flags = 0x07;
    LspKeeper k(IC::igpLevelIsisLevel2);
    EXPECT_EQ(k.receivePdu(buildLsp(one, all)), Outcome::installed);
    return dumpOf(*k.database());
}

// A node of 256 fragments received one by one, out of order, over an earlier
// copy of each, then partly purged, has the entry of one PDU carrying the
// union of what it holds.
TEST(LspKeeper, FragmentByFragmentEqualsTheUnion) {
    LspKeeper k(IC::igpLevelIsisLevel2);
    const auto send = [&](unsigned f, std::uint32_t seq, bool stale, std::uint16_t lifetime = 1199) {
        LspFields l;
        l.fragment = static_cast<std::uint8_t>(f);
        l.seq = seq;
        l.lifetime = lifetime;
        l.flags = f == 0 ? 0x07 : 0x03;
        return k.receivePdu(buildLsp(l, lifetime == 0 ? Enc() : fragmentTlvs(f, stale)));
    };
    for (unsigned f = 256; f-- > 0;) {
        ASSERT_EQ(send(f, 1, true), Outcome::installed);
    }
    // Evens downwards, then odds upwards: the SRLG record comes before its
    // link, fragment 33 before 17.
    for (unsigned f = 256; f-- > 0;) {
        if (f % 2 == 0) {
            ASSERT_EQ(send(f, 2, false), Outcome::installed);
        }
    }
    for (unsigned f = 1; f < 256; f += 2) {
        ASSERT_EQ(send(f, 2, false), Outcome::installed);
    }
    std::vector<unsigned> held;
    for (unsigned f = 0; f < 256; ++f) {
        held.push_back(f);
    }
    EXPECT_EQ(dumpOf(*k.database()), unionDump(held));
    EXPECT_EQ(k.fragmentCount(node(1)), 256u);

    for (const unsigned f : {250u, 9u, 17u, 60u, 4u}) {
        ASSERT_EQ(send(f, 2, false, 0), Outcome::purged);
        held.erase(std::find(held.begin(), held.end(), f));
        EXPECT_EQ(dumpOf(*k.database()), unionDump(held)) << "after purging fragment " << f;
    }
    const auto header = k.fragment(node(1), 33);
    ASSERT_TRUE(header);
    EXPECT_EQ(header->header.sequenceNumber, 2u);
    EXPECT_EQ(header->octets.size(), header->header.pduLength);
    EXPECT_FALSE(k.fragment(node(1), 250));
    std::size_t seen = 0;
    k.forEachFragment([&](const LspKeeper::HeldFragment& f) {
        EXPECT_NE(f.header.fragment, 250u);
        EXPECT_TRUE(lspChecksumValid(f.octets));
        ++seen;
    });
    EXPECT_EQ(seen, 251u);
}

}  // namespace
