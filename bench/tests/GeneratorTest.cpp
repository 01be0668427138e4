// The benchmark generator at a small size, and the allocation counter the
// memory figures rest on.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <tuple>

#include "AllocCounter.h"
#include "IsisDecoder/Decoder.h"
#include "IsisDecoder/LspKeeper.h"
#include "gen/Compare.h"
#include "gen/Encoder.h"
#include "gen/Generator.h"

namespace {

using namespace IgpBench;
namespace Dec = Routing::IsisDecoder;

Poldo::Ptr<IC::IgpLspDatabase> buildDb(const std::vector<LspPlan>& lsps,
                                       IC::IgpLevel level = IC::igpLevelIsisLevel2) {
    auto db = IC::igpLspDatabaseFactory(level);
    for (const LspPlan& s : lsps) {
        mergeContent(*db, buildContent(s));
    }
    return db;
}

// Through a pcap, the decoder and the keeper back to the generated database,
// whatever the level and however small the PDUs that split each LSP.
TEST(Generator, EncodedTopologiesDecodeThroughTheKeeperToTheGeneratedDatabase) {
    const struct {
        std::uint32_t routers;
        unsigned level;
        std::uint64_t seed;
        std::size_t maxPdu;
    } cases[] = {{8, 2, 1, 1492}, {40, 2, 3, 1492}, {64, 1, 99, 1492}, {16, 2, 21, 300}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.routers);
        const Topology t = generate(c.routers, c.seed);
        EncodeParams params{.level = c.level, .sequence = 7, .maxPduSize = c.maxPdu};
        std::stringstream pcap;
        writePcap(pcap, encodeTopology(t, params), c.level);
        const auto level = c.level == 1 ? IC::igpLevelIsisLevel1 : IC::igpLevelIsisLevel2;
        Dec::LspKeeper keeper(level);
        std::map<IC::IgpNodeId, unsigned> fragments;
        for (const Bytes& pdu : readPcap(pcap)) {
            ASSERT_LE(pdu.size(), c.maxPdu);
            const auto r = Dec::decodeLsp(pdu);
            ASSERT_TRUE(r.ok()) << r.error().message();
            const auto& h = r.lsp().header;  // fragments of a node numbered 0, 1, 2, ...
            EXPECT_EQ(std::tuple(h.level, h.sequenceNumber, h.fragment),
                      std::tuple(c.level, 7u, fragments[h.nodeId()]++));
            ASSERT_EQ(keeper.receive(r.lsp()), Dec::LspKeeper::Outcome::installed);
        }
        ASSERT_EQ(fragments.size(), t.lsps.size());
        EXPECT_TRUE(
            std::any_of(fragments.begin(), fragments.end(), [](const auto& f) { return f.second > 1; }));
        const auto generated = buildDb(t.lsps, level);
        EXPECT_EQ(firstDifference(*generated, *keeper.database()), "");
        EXPECT_EQ(firstDifference(*keeper.database(), *generated), "");
    }
}

TEST(Generator, TopologyHasTheAdvertisedShapeAndDependsOnTheSeedAlone) {
    const Topology t = generate(400, 5);
    using Counts = std::array<std::size_t, 3>;
    EXPECT_EQ((Counts{t.pseudonodes, t.lsps.size(), t.bindings}), (Counts{50, 450, 800}));
    const auto bytes = [](std::uint64_t seed) {
        std::ostringstream os;
        writePcap(os, encodeTopology(generate(30, seed)), 2);
        return os.str();
    };
    EXPECT_EQ(bytes(11), bytes(11));
    EXPECT_NE(bytes(11), bytes(12));
}

TEST(Generator, ChurnChangesWhatItCountsAndRestoringUndoesIt) {
    const Topology t = generate(200, 8);
    const Churn churn = makeChurn(t, 1, 4);
    ASSERT_GT(churn.prefixRemovals, 0u);
    auto db = buildDb(t.lsps);
    const auto reference = buildDb(t.lsps);
    const auto prefixCount = [&] {
        std::size_t n = 0;
        for (const auto& e : db->lsp()) {
            n += e->prefix().size();
        }
        return n;
    };
    const std::size_t before = prefixCount();
    for (const LspPlan& s : churn.changed) {
        mergeContent(*db, buildContent(s));
    }
    EXPECT_EQ(before - prefixCount(), churn.prefixRemovals);
    EXPECT_NE(firstDifference(*db, *reference), "");
    for (const std::size_t i : churn.lspIndex) {
        mergeContent(*db, buildContent(t.lsps[i]));
    }
    EXPECT_EQ(firstDifference(*db, *reference), "");
    // The comparison names the attribute that differs.
    auto changed = t.lsps;
    changed[3].links[1].teMetric += 1;
    EXPECT_NE(firstDifference(*reference, *buildDb(changed)).find("teDefMetric"), std::string::npos);
}

TEST(Encoder, RefusesWhatTheFormatCannotCarry) {
    const Topology t = generate(8, 1);
    EncodeParams tiny;
    tiny.maxPduSize = 100;  // the node-wide TLVs alone take more
    EXPECT_THROW(encodeLsp(t.lsps[0], tiny), std::length_error);
    LspPlan crowded = t.lsps[0];
    for (std::uint32_t i = 0; i < 20; ++i) {
        crowded.links[0].lanAdjSids.emplace_back(0x30, 15000 + i, 0,
                                                 Routing::Isis::SystemId({0, 0, 0, 0, 0, 1}));
    }
    EXPECT_THROW(encodeLsp(crowded), std::length_error);
}

// Hand-made captures: byte order, frames that are not IS-IS, damage.
TEST(Pcap, ReaderKeepsLlcFramesOfEitherByteOrderAndRefusesDamage) {
    Bytes file = {0xa1, 0xb2, 0xc3, 0xd4, 0, 2, 0, 4, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 0, 0, 0, 1};
    const auto record = [&](std::initializer_list<std::uint8_t> tail) {
        const auto n = static_cast<std::uint8_t>(12 + tail.size());
        file.insert(file.end(), {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, n, 0, 0, 0, n});
        file.insert(file.end(), 12, 0x02);  // the MAC addresses
        file.insert(file.end(), tail);
    };
    const auto read = [](const Bytes& f) {
        std::istringstream in(std::string(f.begin(), f.end()));
        return readPcap(in);
    };
    record({0x08, 0x00, 0x45, 0x00, 0x00, 0x14, 0x00});        // IPv4: skipped
    record({0x00, 0x06, 0xFE, 0xFE, 0x03, 0x83, 0x1b, 0x01});  // 802.3 + LLC
    EXPECT_EQ(read(file), (std::vector<Bytes>{{0x83, 0x1b, 0x01}}));
    file.resize(file.size() - 2);
    EXPECT_THROW(read(file), std::runtime_error);
    EXPECT_THROW(read(Bytes(24, 0x55)), std::runtime_error);
}

// A block counts while alive, as one allocation, and the slab's 64 KiB chunks
// count apart. Through a volatile pointer: a new-expression whose result goes
// nowhere may be left out.
TEST(AllocCounter, CountsLiveBlocksAndKeepsSlabChunksApart) {
    const std::uint64_t calls0 = AllocCounter::allocations();
    const std::int64_t live0 = AllocCounter::liveBytes();
    const std::int64_t chunks0 = AllocCounter::slabChunkBytes();
    void* volatile block = ::operator new(1000);
    EXPECT_EQ(AllocCounter::allocations(), calls0 + 1);
    EXPECT_GE(AllocCounter::liveBytes() - live0, 1008);
    EXPECT_LE(AllocCounter::liveBytes() - live0, 1040);
    ::operator delete(block);
    EXPECT_EQ(AllocCounter::liveBytes(), live0);
    void* volatile chunk = ::operator new(64 * 1024);
    EXPECT_EQ(AllocCounter::allocations(), calls0 + 1);
    EXPECT_GE(AllocCounter::slabChunkBytes() - chunks0, 64 * 1024);
    ::operator delete(chunk);
}

}  // namespace
