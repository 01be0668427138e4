// The per-level keeper: newest copy per fragment, purges, the refresh
// shortcut, and a node's entry as the union of its current fragments.

#include <gtest/gtest.h>
#include <malloc.h>

#include <map>
#include <numeric>

#include "IgpCommon/platform/Drimm.h"
#include "IgpCommon/platform/Umbo.h"
#include "IsisDecoder/LspKeeper.h"
#include "TestSupport.h"

namespace {

using namespace DecoderTest;
using namespace Routing::IsisDecoder;
using Outcome = LspKeeper::Outcome;

const IC::IgpNodeId node1 = nodeId(1);

Bytes pdu(std::uint8_t fragment, std::uint32_t seq, const Enc& tlvs, std::uint16_t lifetime = 1199,
          std::uint8_t flags = 0x03) {
    return buildLsp(LspFields{.fragment = fragment, .seq = seq, .lifetime = lifetime, .flags = flags}, tlvs);
}
DecodedLsp lsp(std::uint8_t fragment, std::uint32_t seq, const Enc& tlvs, std::uint16_t lifetime = 1199) {
    const auto r = decodeLsp(pdu(fragment, seq, tlvs, lifetime));
    EXPECT_TRUE(r.ok());
    return r.ok() ? r.lsp() : DecodedLsp{};
}

std::string dumpOf(const IC::IgpLspDatabase& db) {
    const auto ctx = Umbo::DumpContext::dumpContextIs();
    db.dumpState(ctx, 0);
    return ctx->text();
}

Lines heldLines(const LspKeeper& k) {
    const auto e = k.database()->lsp(node1);
    return e ? linesOf(*e) : Lines{};
}

Enc prefix(std::uint8_t third, std::uint32_t metric) {
    return Enc().tlv(135, Enc().u32(metric).u8(24).raw({10, 0, third}));
}

TEST(LspKeeper, NewerCopiesReplaceAndPurgesRemoveAndBlockOlderOnes) {
    LspKeeper k(IC::igpLevelIsisLevel2);
    EXPECT_EQ(k.receive(lsp(0, 5, prefix(1, 5).raw(prefix(2, 5)))), Outcome::installed);
    EXPECT_EQ(k.receive(lsp(1, 3, Enc().tlv(22, Enc().isEntry(2, 10)))), Outcome::installed);
    EXPECT_EQ(k.receive(lsp(0, 5, prefix(3, 5))), Outcome::ignored);
    EXPECT_EQ(k.receive(lsp(0, 4, prefix(3, 5))), Outcome::ignored);
    EXPECT_EQ(k.receive(decodeLsp(buildLsp(LspFields{.level = 1, .seq = 9}, Enc())).lsp()), Outcome::ignored);
    EXPECT_EQ(cat(k.ignoredCount(), "/", k.fragmentCount()), "3/2");
    // Seq 6 drops 10.0.2.0/24 and changes a metric; a purge of the same number removes fragment 1.
    EXPECT_EQ(k.receive(lsp(0, 6, prefix(1, 7))), Outcome::installed);
    EXPECT_EQ(k.receive(lsp(1, 3, Enc(), 0)), Outcome::purged);
    EXPECT_EQ(heldLines(k), (Lines{"flags ol=0 att=0", "pfx 10.0.1.0/24 mt0 m7"}));

    EXPECT_EQ(k.receive(lsp(0, 7, Enc(), 0)), Outcome::purged);
    EXPECT_EQ(cat(k.database()->lspCount(), "/", k.fragmentCount()), "0/0");
    // The copy that was purged may still be in flight; it must not come back.
    EXPECT_EQ(k.receive(lsp(0, 6, prefix(1, 7))), Outcome::ignored);
    EXPECT_EQ(k.receive(lsp(0, 8, prefix(1, 7))), Outcome::installed);
    EXPECT_EQ(k.database()->lspCount(), 1u);
}

// One prefix, link or flex-algo definition that two fragments carry: the
// entry keeps what each said, the first fragment winning where both say it;
// purging the second fragment gives back exactly the first one's entry.
TEST(LspKeeper, KeyInTwoFragmentsKeepsWhatEachSaid) {
    const Enc wide = Enc().u32(5).u8(0x40 | 24).raw({10, 0, 1}).u8(8).tlv(3, Enc{0x40, 0}.u32(7));
    const Enc narrow = Enc{5, 0x80, 0x80, 0x80, 10, 0, 1, 0, 255, 255, 255, 0};
    const Enc binding = Enc{0, 0}.u16(1).u8(24).raw({10, 0, 1}).tlv(1, Enc().u24(90000));
    const auto fad = [](std::uint8_t prio, const Enc& subs) {
        return Enc().tlv(242, Enc().u32(0x0a000001).u8(0).tlv(26, Enc{128, 0, 0, prio}.raw(subs)));
    };
    const struct {
        const char* what;
        Enc first, second;
        const char* line;
    } cases[] = {
        {"narrow after wide", Enc().tlv(135, wide), Enc().tlv(128, narrow),
         "pfx 10.0.1.0/24 mt0 m5 sid=7/0x40"},
        {"wide after narrow", Enc().tlv(128, narrow), Enc().tlv(135, wide),
         "pfx 10.0.1.0/24 mt0 m5 sid=7/0x40"},
        {"binding after reachability", Enc().tlv(135, wide), Enc().tlv(149, binding),
         "pfx 10.0.1.0/24 mt0 m5 sid=7/0x40 bind=-/r1/f1/label=90000"},
        {"reachability after binding", Enc().tlv(149, binding), Enc().tlv(135, wide),
         "pfx 10.0.1.0/24 mt0 m5 sid=7/0x40 bind=-/r1/f0/label=90000"},
        {"link described twice", Enc().tlv(22, Enc().isEntry(2, 10, Enc().tlv(31, Enc{0x30, 0}.u24(24001)))),
         Enc().tlv(22, Enc().isEntry(2, 10, Enc().tlv(31, Enc{0x30, 0}.u24(24002)).tlv(18, Enc().u24(100)))),
         "nbr 1921.6800.1002.00 mt0 adjSid=48/24001/0,48/24002/0 igpMetric=10 teDefMetric=100"},
        {"definition split", fad(10, Enc().tlv(1, Enc().u32(1))),
         fad(20, Enc().tlv(3, Enc().u32(4)).tlv(5, Enc().u32(100))),
         "fad 128 m0 c0 p10 ex=[1] any=[] all=[4] srlg=[100]"},
    };
    for (const auto& c : cases) {
        LspKeeper k(IC::igpLevelIsisLevel2), alone(IC::igpLevelIsisLevel2);
        k.receive(lsp(0, 1, c.first));
        alone.receive(lsp(0, 1, c.first));
        k.receive(lsp(1, 1, c.second));
        expectSameLines({"flags ol=0 att=0", c.line}, heldLines(k), c.what);
        k.receive(lsp(1, 2, Enc(), 0));
        expectSameLines(heldLines(alone), heldLines(k), cat(c.what, ", the second purged"));
    }
}

// The refresh of an unchanged fragment is taken without decoding; anything
// else that differs in flags or TLVs goes through the decoder and the merge.
TEST(LspKeeper, PduRefreshesOfUnchangedFragmentsSkipTheMerge) {
    const Enc tlvs = prefix(1, 5).tlv(22, Enc().isEntry(2, 10));
    const Enc changed = prefix(1, 9).tlv(22, Enc().isEntry(2, 10));
    LspKeeper k(IC::igpLevelIsisLevel2);
    EXPECT_EQ(k.receivePdu(pdu(0, 1, tlvs)), Outcome::installed);
    const std::string before = dumpOf(*k.database());
    const auto entry = k.database()->lsp(node1);
    const auto prefixBefore = entry->prefix().begin()->value;

    EXPECT_EQ(k.receivePdu(pdu(0, 2, tlvs)), Outcome::refreshed);
    EXPECT_EQ(k.receivePdu(pdu(0, 3, tlvs, 600)), Outcome::refreshed);
    EXPECT_EQ(k.refreshedCount(), 2u);
    EXPECT_EQ(dumpOf(*k.database()), before);
    EXPECT_EQ(entry->prefix().begin()->value, prefixBefore);
    EXPECT_EQ(k.fragment(node1, 0)->header.sequenceNumber, 3u);
    const auto heldOctets = [&] {
        const auto f = k.fragment(node1, 0);
        return f ? Bytes(f->octets.begin(), f->octets.end()) : Bytes();
    };
    EXPECT_EQ(heldOctets(), pdu(0, 3, tlvs, 600));
    // The sequence number was taken: the copies in between are old now.
    EXPECT_EQ(k.receivePdu(pdu(0, 3, tlvs)), Outcome::ignored);
    EXPECT_EQ(k.receivePdu(pdu(0, 2, changed)), Outcome::ignored);

    // The overload bit alone, then a metric alone, are changes.
    EXPECT_EQ(k.receivePdu(pdu(0, 4, tlvs, 1199, 0x07)), Outcome::installed);
    EXPECT_TRUE(entry->node()->flags().overloadBit());
    EXPECT_EQ(k.receivePdu(pdu(0, 5, changed, 1199, 0x07)), Outcome::installed);
    const Lines now = heldLines(k);
    EXPECT_TRUE(now.count("pfx 10.0.1.0/24 mt0 m9"));
    EXPECT_EQ(heldOctets(), pdu(0, 5, changed, 1199, 0x07));

    // A copy that would be a refresh but for a corrupted checksum, sequence
    // number or length is rejected and changes nothing.
    for (const std::size_t at : {24u, 20u, 23u, 25u, 9u}) {
        Bytes bad = pdu(0, 6, changed, 1199, 0x07);
        bad[at] += 1;
        DecodeError why;
        EXPECT_EQ(k.receivePdu(bad, &why), Outcome::rejected) << at;
        EXPECT_NE(why.message(), "") << at;
    }
    EXPECT_EQ(k.receivePdu(Bytes(20, 0x83)), Outcome::rejected);
    // Nor does one that fails after some of its TLVs were read, and nothing
    // of it stays alive in the keeper.
    const std::uint64_t live = Drimm::AllocTracker::totalLive();
    EXPECT_EQ(k.receivePdu(pdu(0, 6, prefix(1, 9).raw({135, 200}))), Outcome::rejected);
    EXPECT_EQ(Drimm::AllocTracker::totalLive(), live);
    EXPECT_EQ(heldLines(k), now);

    // A purge is never a refresh; after it, copies install again, held as
    // they came whatever their length.
    EXPECT_EQ(k.receivePdu(pdu(0, 7, Enc(), 0, 0x07)), Outcome::purged);
    EXPECT_FALSE(k.database()->lsp(node1));
    EXPECT_FALSE(k.fragment(node1, 0));
    // A longer copy than the one held before the purge.
    const Enc longer = Enc(tlvs).raw(prefix(2, 7));
    EXPECT_EQ(k.receivePdu(pdu(0, 8, longer)), Outcome::installed);
    EXPECT_EQ(heldOctets(), pdu(0, 8, longer));
    EXPECT_EQ(k.receivePdu(pdu(0, 9, tlvs)), Outcome::installed);
    EXPECT_EQ(heldOctets(), pdu(0, 9, tlvs));
    EXPECT_EQ(dumpOf(*k.database()), before);
    // A copy installed from a decoded LSP holds no octets to compare with.
    EXPECT_EQ(k.receive(lsp(0, 10, tlvs)), Outcome::installed);
    EXPECT_EQ(k.receivePdu(pdu(0, 11, tlvs)), Outcome::installed);
    EXPECT_EQ(k.refreshedCount(), 2u);
}

// Octets of copies that were replaced go back to the keeper: a node's
// fragments taken again and again, one size then another, take no more heap
// than the first copies did. (A fault here is memory the keeper keeps for
// good, which no other test sees.)
TEST(LspKeeper, ReplacedFragmentsGiveTheirOctetsBack) {
    if (!Drimm::Slab::pooling()) {
        GTEST_SKIP() << "built with AddressSanitizer: mallinfo2 does not see its heap";
    }
    // About 1000 octets: each copy takes a block of the same size class.
    const auto fragment = [](std::uint8_t f, unsigned prefixes) {
        Enc e;
        for (unsigned t = 0; t < 4; ++t) {
            Enc v;
            for (unsigned i = 0; i < prefixes / 4; ++i) {
                v.u32(10).u8(24).raw({10, f, static_cast<std::uint8_t>(t * 30 + i)});
            }
            e.tlv(135, v);
        }
        return e;
    };
    constexpr std::uint8_t fragments = 200;
    LspKeeper k(IC::igpLevelIsisLevel2);
    std::uint32_t seq = 0;
    const auto round = [&](unsigned prefixes) {
        ++seq;
        for (std::uint8_t f = 0; f < fragments; ++f) {
            ASSERT_EQ(k.receivePdu(buildLsp({.fragment = f, .seq = seq}, fragment(f, prefixes))),
                      Outcome::installed);
        }
    };
    round(120);
    round(116);
    const std::size_t before = mallinfo2().uordblks;
    for (unsigned i = 0; i < 3; ++i) {
        round(120);
        round(116);
    }
    EXPECT_EQ(k.fragmentCount(), fragments);
    // Each round replaces 200 KB of octets.
    const auto grown = static_cast<std::int64_t>(mallinfo2().uordblks) - static_cast<std::int64_t>(before);
    EXPECT_LT(grown, 50'000);
}

const Bytes local6 = {0x20, 0x01, 0xd, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};

// Fragment f of a node of 256: a prefix of its own; a node-wide value, an
// SRLG record of each family away from its link, and a prefix and a link that two fragments
// carry, spread over a few others. `stale` is an earlier copy with other keys
// and a host name in fragment 0 that outranks fragment 9's.
Enc fragmentTlvs(unsigned f, bool stale) {
    const auto third = static_cast<std::uint8_t>(f);
    if (stale) {
        return (f == 0 ? Enc().tlv(137, Enc{'o', 'l', 'd'}) : Enc())
            .raw(Enc().tlv(135, Enc().u32(1).u8(24).raw({10, third, 9})));
    }
    const Enc shared = Enc().tlv(135, Enc().u32(5).u8(24).raw({192, 0, 2})),
              link = Enc().tlv(22, Enc().isEntry(3, 10));
    const std::map<unsigned, Enc> extra = {
        {0, Enc().tlv(1, Enc{3, 0x49, 0, 1})},
        {130, Enc().tlv(1, Enc{3, 0x49, 0, 2})},
        {9, Enc().tlv(137, Enc{'r', '9'})},
        {4, Enc().tlv(22, Enc().isEntry(2, 10, Enc().tlv(6, Enc{10, 255, 0, 1}).tlv(8, Enc{10, 255, 0, 2})))},
        // RFC 5307 1.4, numbered: the link of fragment 4
        {250, Enc().tlv(138, nbrId(2).u8(1).raw({10, 255, 0, 1, 10, 255, 0, 2}).u32(77))},
        {6, Enc().tlv(22, Enc().isEntry(4, 10, Enc().tlv(12, Enc().raw(local6))))},
        // RFC 6119 4.3: IPv6, the link of fragment 6 by its interface address
        {252, Enc().tlv(139, nbrId(4).u8(1).raw(local6).raw(Bytes(16, 2)).u32(200))},
        {17, shared},
        {33, shared},
        {60, link},
        {61, link}};
    Enc e = Enc().tlv(135, Enc().u32(f + 1).u8(24).raw({10, third, 1}));
    return extra.count(f) ? e.raw(extra.at(f)) : e;
}

// The database of one PDU carrying the TLVs of the given fragments in order.
std::string unionDump(const std::vector<unsigned>& fragments) {
    Enc all;
    for (const unsigned f : fragments) {
        all.raw(fragmentTlvs(f, false));
    }
    LspKeeper k(IC::igpLevelIsisLevel2);
    EXPECT_EQ(k.receivePdu(pdu(0, 1, all)), Outcome::installed);
    return dumpOf(*k.database());
}

// A node of 256 fragments received one by one, out of order, over an earlier
// copy of each, then partly purged, has the entry of one PDU carrying the
// union of what it holds; the overload bit of fragments other than 0 does
// not count (ISO 10589 7.3.4.4).
TEST(LspKeeper, FragmentByFragmentEqualsTheUnion) {
    LspKeeper k(IC::igpLevelIsisLevel2);
    const auto send = [&](unsigned f, std::uint32_t seq, bool stale, std::uint16_t lifetime = 1199) {
        return k.receivePdu(pdu(static_cast<std::uint8_t>(f), seq,
                                lifetime == 0 ? Enc() : fragmentTlvs(f, stale), lifetime,
                                f == 0 ? 0x03 : 0x07));
    };
    std::vector<unsigned> held(256);
    std::iota(held.begin(), held.end(), 0u);
    for (const unsigned f : held) {
        ASSERT_EQ(send(255 - f, 1, true), Outcome::installed);
    }
    // Evens downwards, then odds upwards: the SRLG record comes before its
    // link, fragment 33 before 17.
    for (const unsigned i : held) {
        ASSERT_EQ(send(i < 128 ? 254 - 2 * i : 2 * i - 255, 2, false), Outcome::installed);
    }
    EXPECT_EQ(dumpOf(*k.database()), unionDump(held));
    EXPECT_EQ(k.fragmentCount(node1), 256u);

    for (const unsigned f : {250u, 9u, 17u, 60u, 4u, 252u}) {
        ASSERT_EQ(send(f, 2, false, 0), Outcome::purged);
        held.erase(std::find(held.begin(), held.end(), f));
        EXPECT_EQ(dumpOf(*k.database()), unionDump(held)) << "after purging fragment " << f;
    }
    std::size_t seen = 0;
    k.forEachFragment([&](const LspKeeper::HeldFragment& f) {
        EXPECT_NE(f.header.fragment, 250u);
        EXPECT_EQ(f.header.sequenceNumber, 2u);
        EXPECT_TRUE(lspChecksumValid(f.octets));
        ++seen;
    });
    EXPECT_EQ(seen, 250u);
}

// When a node's second fragment comes, the records its first one holds are
// read from the held octets: what another node's records were filed under
// before plays no part. Node 3's link at 10.255.0.1 folds no record, though
// node 1 files one there.
TEST(LspKeeper, RecordsOfOneNodeAreIndexedApartFromAnothers) {
    const auto record = [](std::uint8_t local, std::uint32_t value) {
        return Enc().tlv(138, nbrId(2).u8(1).u32(0x0aff0000u | local).u32(0x0aff0001u + local).u32(value));
    };
    const Enc link = Enc().tlv(22, Enc().isEntry(2, 10, Enc().tlv(6, Enc{10, 255, 0, 1})));
    const auto send = [](LspKeeper& k, std::uint8_t sys, std::uint8_t fragment, const Enc& tlvs) {
        return k.receivePdu(buildLsp({.sys = sys, .fragment = fragment}, tlvs));
    };
    LspKeeper k(IC::igpLevelIsisLevel2), alone(IC::igpLevelIsisLevel2);
    ASSERT_EQ(send(k, 1, 0, record(1, 77)), Outcome::installed);
    ASSERT_EQ(send(k, 1, 1, prefix(1, 5)), Outcome::installed);
    ASSERT_EQ(send(k, 3, 0, record(5, 88)), Outcome::installed);
    ASSERT_EQ(send(k, 3, 1, link), Outcome::installed);
    ASSERT_EQ(send(alone, 3, 0, record(5, 88).raw(link)), Outcome::installed);
    const auto entry = k.database()->lsp(nodeId(3));
    const auto want = alone.database()->lsp(nodeId(3));
    ASSERT_TRUE(entry && want && want->neighbor().size() == 1);
    expectSameLines(linesOf(*want), linesOf(*entry), "node 3");
    // Down to whether the link has SRLGs at all.
    ASSERT_EQ(entry->neighbor().size(), 1u);
    EXPECT_EQ(entry->neighbor().begin()->value->attrsPresent(),
              want->neighbor().begin()->value->attrsPresent());
}

// SRLG records that reach links of other fragments (RFC 5307 1.4, RFC 6119
// 4.3), sent after those links, then replaced and dropped: the entry is
// always the one that a single PDU of the same TLVs gives, down to whether a
// link has SRLGs at all. Fragment 1's link also has an SRLG of its own, from
// an unnumbered record to its neighbor.
TEST(LspKeeper, SrlgRecordsOfOtherFragmentsFoldOntoLinks) {
    const auto record = [](std::uint8_t nbr, bool numbered, std::uint8_t local, std::uint32_t value) {
        return Enc().tlv(
            138, nbrId(nbr).u8(numbered).u32(0x0aff0000u | local).u32(0x0aff0001u + local).u32(value));
    };
    const auto record6 = [](std::uint32_t value) {
        return Enc().tlv(139, nbrId(3).u8(0).raw(local6).u32(value));
    };
    const Enc link1 = Enc().tlv(22, Enc().isEntry(2, 10, Enc().tlv(6, Enc{10, 255, 0, 1})));
    const Enc link3 =
        Enc().tlv(22, Enc().isEntry(3, 10, Enc().tlv(6, Enc{10, 255, 0, 5}).tlv(12, Enc().raw(local6))));
    std::map<std::uint8_t, Enc> held = {
        {0, prefix(1, 10)}, {1, Enc(link1).raw(record(2, false, 1, 55))}, {2, record(2, true, 1, 77)},
        {3, link3},         {4, record(3, true, 5, 88).raw(record6(99))}, {5, record(3, true, 5, 66)}};
    LspKeeper k(IC::igpLevelIsisLevel2);
    const auto expectUnion = [&](const std::string& what) {
        Enc all;
        for (const auto& [f, tlvs] : held) {
            all.raw(tlvs);
        }
        LspKeeper one(IC::igpLevelIsisLevel2);
        ASSERT_EQ(one.receivePdu(pdu(0, 1, all)), Outcome::installed);
        EXPECT_EQ(dumpOf(*k.database()), dumpOf(*one.database())) << what;
        const auto mine = k.database()->lsp(node1);
        for (const auto& n : one.database()->lsp(node1)->neighbor()) {
            const auto m = mine->neighbor(n.key);
            ASSERT_TRUE(m) << what;
            EXPECT_EQ(m->attrsPresent().srlgValues(), n.value->attrsPresent().srlgValues()) << what;
        }
    };
    std::uint32_t seq = 1;
    for (const auto& [f, tlvs] : held) {
        ASSERT_EQ(k.receivePdu(pdu(f, seq, tlvs)), Outcome::installed);
    }
    const std::string all = dumpOf(*k.database());
    for (const char* value : {"55", "66", "77", "88", "99"}) {
        EXPECT_NE(all.find(value), std::string::npos) << value;
    }
    expectUnion("records after their links");
    const auto replace = [&](std::uint8_t f, const Enc& tlvs, const std::string& what) {
        held[f] = tlvs;
        ASSERT_EQ(k.receivePdu(pdu(f, ++seq, tlvs)), Outcome::installed);
        expectUnion(what);
    };
    replace(2, record(2, true, 1, 78), "the record of a link with an SRLG of its own replaced");
    replace(4, record(3, true, 5, 89).raw(record6(98)), "records replaced");
    replace(5, prefix(5, 10), "a second record at one address dropped");
    replace(4, prefix(4, 10), "both records of a link dropped");
    held.erase(2);
    ASSERT_EQ(k.receivePdu(pdu(2, ++seq, Enc(), 0)), Outcome::purged);
    expectUnion("a record purged");
}

}  // namespace
