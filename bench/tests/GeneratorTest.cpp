// Smoke tests of the benchmark generator at a small size: what it encodes
// decodes to what it builds, its PDUs are valid, it is deterministic, and its
// churn changes exactly what it says.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>

#include "AllocCounter.h"
#include "IsisDecoder/Decoder.h"
#include "IsisDecoder/LspKeeper.h"
#include "gen/Compare.h"
#include "gen/Encoder.h"
#include "gen/Generator.h"

namespace {

using namespace IgpBench;
namespace Dec = Routing::IsisDecoder;

Poldo::Ptr<IC::IgpLspDatabase> buildDb(const std::vector<LspPlan>& lsps, IC::IgpLevel level) {
    auto db = IC::igpLspDatabaseFactory(level);
    for (const LspPlan& s : lsps) {
        mergeContent(*db, buildContent(s));
    }
    return db;
}

std::string dumpText(const IC::IgpLspDatabase& db) {
    const auto ctx = Umbo::DumpContext::dumpContextIs();
    db.dumpState(ctx, 0);
    return ctx->text();
}

struct RoundTripCase {
    std::uint32_t routers;
    unsigned level;
    std::uint64_t seed;
};

void PrintTo(const RoundTripCase& c, std::ostream* os) {
    *os << "r" << c.routers << "_l" << c.level << "_s" << c.seed;
}

class GeneratorRoundTrip : public ::testing::TestWithParam<RoundTripCase> {};

TEST_P(GeneratorRoundTrip, PcapDecodesThroughTheKeeperToTheGeneratedDatabase) {
    const RoundTripCase c = GetParam();
    const Topology t = generate(c.routers, c.seed);
    EncodeParams params;
    params.level = c.level;
    params.sequence = 7;
    std::stringstream pcap;
    writePcap(pcap, encodeTopology(t, params), c.level);
    const std::vector<Bytes> pdus = readPcap(pcap);

    const auto level = c.level == 1 ? IC::igpLevelIsisLevel1 : IC::igpLevelIsisLevel2;
    Dec::LspKeeper keeper(level);
    std::map<IC::IgpNodeId, unsigned> fragments;
    for (const Bytes& pdu : pdus) {
        ASSERT_LE(pdu.size(), params.maxPduSize);
        ASSERT_TRUE(Dec::lspChecksumValid(pdu));
        const auto r = Dec::decodeLsp(pdu);
        ASSERT_TRUE(r.ok()) << r.error().message();
        EXPECT_EQ(r.lsp().header.level, c.level);
        EXPECT_EQ(r.lsp().header.sequenceNumber, 7u);
        // Fragments of a node arrive numbered 0, 1, 2, ...
        EXPECT_EQ(r.lsp().header.fragment, fragments[r.lsp().header.nodeId()]++);
        ASSERT_EQ(keeper.receive(r.lsp()), Dec::LspKeeper::Outcome::installed);
    }
    ASSERT_EQ(fragments.size(), t.lsps.size());
    unsigned fragmented = 0;
    for (const auto& [id, n] : fragments) {
        fragmented += n > 1 ? 1 : 0;
    }
    EXPECT_GT(fragmented, 0u) << "no LSP needed a second fragment";

    const auto generated = buildDb(t.lsps, level);
    EXPECT_EQ(firstDifference(*generated, *keeper.database()), "");
    EXPECT_EQ(firstDifference(*keeper.database(), *generated), "");
    EXPECT_EQ(dumpText(*generated), dumpText(*keeper.database()));
}

INSTANTIATE_TEST_SUITE_P(Sizes, GeneratorRoundTrip,
                         ::testing::Values(RoundTripCase{8, 2, 1}, RoundTripCase{40, 2, 3},
                                           RoundTripCase{64, 1, 99}));

TEST(Generator, TopologyHasTheAdvertisedShape) {
    const Topology t = generate(400, 5);
    ASSERT_EQ(t.routers, 400u);
    EXPECT_EQ(t.pseudonodes, 50u);
    EXPECT_EQ(t.lsps.size(), 450u);
    EXPECT_EQ(t.bindings, 2u * 400u);
    std::size_t routerNeighbors = 0, routerPrefixes = 0, mt2 = 0, lan = 0, parallelKeys = 0;
    for (std::size_t i = 0; i < t.routers; ++i) {
        const LspPlan& s = t.lsps[i];
        ASSERT_FALSE(s.isPseudonode());
        routerNeighbors += s.links.size();
        routerPrefixes += s.prefixEntries();
        std::map<IC::IgpNodeId, unsigned> perNeighbor;
        for (const LinkPlan& l : s.links) {
            mt2 += l.mtId == 2 ? 1 : 0;
            lan += l.neighbor.isPnodeId() ? 1 : 0;
            parallelKeys += l.mtId == 0 && ++perNeighbor[l.neighbor] == 2 ? 1 : 0;
        }
    }
    const double nbrs = static_cast<double>(routerNeighbors) / t.routers;
    const double pfxs = static_cast<double>(routerPrefixes) / t.routers;
    EXPECT_GT(nbrs, 7.0);
    EXPECT_LT(nbrs, 9.5);
    EXPECT_GT(pfxs, 18.0);
    EXPECT_LT(pfxs, 22.0);
    EXPECT_GT(mt2, 0u);
    EXPECT_GT(lan, 0u);
    EXPECT_GT(parallelKeys, 0u);
    for (std::size_t i = t.routers; i < t.lsps.size(); ++i) {
        EXPECT_TRUE(t.lsps[i].isPseudonode());
        EXPECT_GE(t.lsps[i].links.size(), 3u);
    }
}

TEST(Generator, SameSeedSameBytesOtherSeedOtherBytes) {
    auto bytes = [](std::uint64_t seed) {
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
    EXPECT_EQ(churn.metricChanges, t.neighbors / 100);
    EXPECT_EQ(churn.prefixRemovals, (t.prefixes - t.bindings) / 100);
    std::size_t removed = 0;
    for (std::size_t k = 0; k < churn.lspIndex.size(); ++k) {
        removed += t.lsps[churn.lspIndex[k]].prefixes.size() - churn.changed[k].prefixes.size();
    }
    EXPECT_EQ(removed, churn.prefixRemovals);

    auto db = buildDb(t.lsps, IC::igpLevelIsisLevel2);
    const auto reference = buildDb(t.lsps, IC::igpLevelIsisLevel2);
    std::size_t prefixesBefore = 0, prefixesAfter = 0;
    for (auto it = db->lsp().begin(); it != db->lsp().end(); ++it) {
        prefixesBefore += (*it)->prefix().size();
    }
    for (const LspPlan& s : churn.changed) {
        mergeContent(*db, buildContent(s));
    }
    for (auto it = db->lsp().begin(); it != db->lsp().end(); ++it) {
        prefixesAfter += (*it)->prefix().size();
    }
    EXPECT_EQ(prefixesBefore - prefixesAfter, churn.prefixRemovals);
    EXPECT_NE(firstDifference(*db, *reference), "");
    for (const std::size_t i : churn.lspIndex) {
        mergeContent(*db, buildContent(t.lsps[i]));
    }
    EXPECT_EQ(firstDifference(*db, *reference), "");
}

TEST(Generator, ComparisonFindsAChangedAttribute) {
    const Topology t = generate(8, 2);
    auto changed = t.lsps;
    changed[3].links[1].teMetric += 1;
    EXPECT_NE(
        firstDifference(*buildDb(t.lsps, IC::igpLevelIsisLevel2), *buildDb(changed, IC::igpLevelIsisLevel2))
            .find("teDefMetric"),
        std::string::npos);
    changed = t.lsps;
    changed[0].bindings[1].range += 1;
    EXPECT_NE(
        firstDifference(*buildDb(t.lsps, IC::igpLevelIsisLevel2), *buildDb(changed, IC::igpLevelIsisLevel2))
            .find("sidLabelBinding"),
        std::string::npos);
}

TEST(Generator, ToolWritesTheEncodedTopology) {
    const std::string path = ::testing::TempDir() + "igp-lsdb-gen-test.pcap";
    const std::string cmd =
        std::string(IGPLSDB_GEN_TOOL) + " --routers 20 --seed 9 --level 1 -o " + path + " 2>/dev/null";
    ASSERT_EQ(std::system(cmd.c_str()), 0);
    std::ifstream in(path, std::ios::binary);
    EncodeParams params;
    params.level = 1;
    EXPECT_EQ(readPcap(in), encodeTopology(generate(20, 9), params));
    std::remove(path.c_str());
}

TEST(Generator, ToolAnswersHelpAndRefusesBadArguments) {
    const auto run = [](const std::string& args) {
        const int status =
            std::system((std::string(IGPLSDB_GEN_TOOL) + " " + args + " >/dev/null 2>&1").c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    };
    EXPECT_EQ(run("--help"), 0);
    EXPECT_NE(run("--level 3 -o /dev/null"), 0);
    EXPECT_NE(run("--routers"), 0);
    EXPECT_NE(run("--routers 12abc -o /dev/null"), 0);
    EXPECT_NE(run("--bogus 1"), 0);
}

}  // namespace

namespace {

using namespace IgpBench;

// A smaller PDU size splits each LSP into more fragments; whatever the split,
// every fragment fits and the keeper puts the same database back together.
TEST(Encoder, AnyFragmentSizeDecodesToTheSameDatabase) {
    const Topology t = generate(16, 21);
    const auto generated = buildDb(t.lsps, IC::igpLevelIsisLevel2);
    for (const std::size_t maxPdu : {300u, 600u, 1492u}) {
        EncodeParams params;
        params.maxPduSize = maxPdu;
        Dec::LspKeeper keeper(IC::igpLevelIsisLevel2);
        std::size_t fragments = 0;
        for (const LspPlan& s : t.lsps) {
            const auto pdus = encodeLsp(s, params);
            fragments += pdus.size();
            for (const Bytes& pdu : pdus) {
                ASSERT_LE(pdu.size(), maxPdu);
                const auto r = Dec::decodeLsp(pdu);
                ASSERT_TRUE(r.ok()) << r.error().message();
                keeper.receive(r.lsp());
            }
        }
        EXPECT_GT(fragments, t.lsps.size()) << maxPdu;
        EXPECT_EQ(firstDifference(*generated, *keeper.database()), "") << maxPdu;
    }
}

TEST(Encoder, RefusesWhatTheFormatCannotCarry) {
    const Topology t = generate(8, 1);
    EncodeParams tiny;
    tiny.maxPduSize = 100;  // the node-wide TLVs alone take more
    EXPECT_THROW(encodeLsp(t.lsps[0], tiny), std::length_error);
    LspPlan crowded = t.lsps[0];
    LinkPlan& lan = crowded.links[0];
    for (std::uint32_t i = 0; i < 20; ++i) {
        lan.lanAdjSids.emplace_back(0x30, 15000 + i, 0, Routing::Isis::SystemId({0, 0, 0, 0, 0, 1}));
    }
    EXPECT_THROW(encodeLsp(crowded), std::length_error);
}

// Hand-made captures: byte order, frames that are not IS-IS, damage.
TEST(Pcap, ReaderKeepsLlcFramesOfEitherByteOrderAndRefusesDamage) {
    const Bytes beHeader = {0xa1, 0xb2, 0xc3, 0xd4, 0, 2, 0,    4,    0, 0, 0, 0,
                            0,    0,    0,    0,    0, 0, 0xff, 0xff, 0, 0, 0, 1};
    auto record = [](const Bytes& frame) {
        const auto n = static_cast<std::uint8_t>(frame.size());
        Bytes r(16 + frame.size(), 0);
        r[11] = n;
        r[15] = n;
        std::copy(frame.begin(), frame.end(), r.begin() + 16);
        return r;
    };
    Bytes macs(12, 0x02);
    Bytes llc = macs;
    llc.insert(llc.end(), {0x00, 0x06, 0xFE, 0xFE, 0x03, 0x83, 0x1b, 0x01});
    Bytes ipv4 = macs;
    ipv4.insert(ipv4.end(), {0x08, 0x00, 0x45, 0x00, 0x00, 0x14, 0x00});
    struct Case {
        const char* name;
        Bytes file;
        std::vector<Bytes> pdus;  // empty with `throws`
        bool throws;
    };
    Bytes both = beHeader;
    for (const Bytes& f : {record(ipv4), record(llc)}) {
        both.insert(both.end(), f.begin(), f.end());
    }
    Bytes truncated = beHeader;
    const Bytes r = record(llc);
    truncated.insert(truncated.end(), r.begin(), r.end() - 2);
    const std::vector<Case> cases = {
        {"big-endian, IPv4 frame skipped", both, {{0x83, 0x1b, 0x01}}, false},
        {"not a pcap", Bytes(24, 0x55), {}, true},
        {"truncated record", truncated, {}, true},
    };
    for (const Case& c : cases) {
        std::istringstream in(std::string(c.file.begin(), c.file.end()));
        if (c.throws) {
            EXPECT_THROW(readPcap(in), std::runtime_error) << c.name;
        } else {
            EXPECT_EQ(readPcap(in), c.pdus) << c.name;
        }
    }
}

// The memory figures rest on this accounting: a block counts while alive, as
// one allocation, and the slab's 64 KiB chunks count apart.
TEST(AllocCounter, CountsLiveBlocksAndKeepsSlabChunksApart) {
    const std::uint64_t calls0 = AllocCounter::allocations();
    const std::int64_t live0 = AllocCounter::liveBytes();
    const std::int64_t chunks0 = AllocCounter::slabChunkBytes();
    // Direct calls through a volatile pointer: a new-expression whose result
    // goes nowhere may be left out by the compiler.
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
