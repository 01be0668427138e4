// A database's entities shared across threads by counted pointers, with Poldo::ThreadControl on:
// readers on several threads take and drop references to entries, nodes, neighbors and prefixes
// while the counts must come out exact, and the last reference dropped on another thread than the
// owner's destroys everything once. Built into igpcommon_thread_tests for ThreadSanitizer too.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <thread>
#include <vector>

#include "IgpCommon/LspDatabase.h"
#include "IgpCommon/ParsedContent.h"

namespace {

using namespace Routing::IgpCommon;

struct MultiThreaded {
    MultiThreaded() { Poldo::ThreadControl::multiThreadedIs(true); }
    ~MultiThreaded() { Poldo::ThreadControl::multiThreadedIs(false); }
    MultiThreaded(const MultiThreaded&) = delete;
    MultiThreaded& operator=(const MultiThreaded&) = delete;
};

IgpNodeId nodeId(std::uint8_t n) {
    const std::array<std::uint8_t, 7> b{0, 0, 0, 0, 0, n, 0};
    return IgpNodeId::fromBytes(b.data());
}

Poldo::Ptr<IgpLsp> entry(std::uint8_t n) {
    auto e = igpLspFactory(nodeId(n));
    e->nodeIs(nodeFactory(nodeId(n)));
    auto parsed = isisLspParsedContentFactory();
    for (std::uint8_t i = 1; i <= 4; ++i) {
        parsed->neighborIs(NeighborKey(nodeId(static_cast<std::uint8_t>(n + i)), IgpMultiTopologyId(0)));
        parsed->prefixIs(PrefixKey(Lumo::IpGenPrefix(Lumo::IpAddr(0x0a000000u | (n << 8) | i), 32),
                                   IgpMultiTopologyId(0)));
    }
    e->updateNeighbors(parsed);
    e->updatePrefixes(parsed);
    return e;
}

/// Use counts of every entity the database reaches, in iteration order.
std::vector<std::uint32_t> counts(const IgpLspDatabase& db) {
    std::vector<std::uint32_t> c;
    for (auto it = db.lsp().begin(); it != db.lsp().end(); ++it) {
        c.push_back((*it)->useCount());
        c.push_back((*it)->node()->useCount());
        for (auto n = (*it)->neighbor().begin(); n != (*it)->neighbor().end(); ++n) {
            c.push_back(n->value->useCount());
        }
        for (auto p = (*it)->prefix().begin(); p != (*it)->prefix().end(); ++p) {
            c.push_back(p->value->useCount());
        }
    }
    return c;
}

std::uint64_t liveModelObjects() {
    return IgpLsp::allocTracker().live() + Node::allocTracker().live() + Neighbor::allocTracker().live() +
           Prefix::allocTracker().live() + IgpLspDatabase::allocTracker().live();
}

TEST(ThreadSharing, ReadersTakingAndDroppingReferencesLeaveEveryCountAsItWas) {
    const std::uint64_t liveBefore = liveModelObjects();
    {
        auto db = igpLspDatabaseFactory(igpLevelIsisLevel2);
        for (std::uint8_t n = 1; n <= 16; ++n) {
            db->lspIs(entry(static_cast<std::uint8_t>(n * 8)));
        }
        const std::vector<std::uint32_t> before = counts(*db);
        {
            const MultiThreaded on;
            std::vector<std::thread> readers;
            for (int t = 0; t < 4; ++t) {
                readers.emplace_back([&db] {
                    for (int round = 0; round < 200; ++round) {
                        std::vector<Poldo::Ptr<IgpLsp>> entries;
                        std::vector<Poldo::Ptr<Node>> nodes;
                        std::vector<Poldo::Ptr<Neighbor>> neighbors;
                        std::vector<Poldo::Ptr<Prefix>> prefixes;
                        for (auto it = db->lsp().begin(); it != db->lsp().end(); ++it) {
                            const Poldo::Ptr<IgpLsp>& e = entries.emplace_back(db->lsp((*it)->nodeId()));
                            nodes.push_back(e->node());
                            for (auto n = e->neighbor().begin(); n != e->neighbor().end(); ++n) {
                                neighbors.push_back(e->neighbor(n->key));
                                prefixes.push_back(e->prefix().begin()->value);
                            }
                        }
                    }
                });
            }
            for (std::thread& r : readers) {
                r.join();
            }
        }
        EXPECT_EQ(counts(*db), before);
    }
    EXPECT_EQ(liveModelObjects(), liveBefore);
}

TEST(ThreadSharing, TheLastReferenceDroppedOnAnotherThreadDestroysTheEntryOnce) {
    const std::uint64_t liveBefore = liveModelObjects();
    const MultiThreaded on;
    auto db = igpLspDatabaseFactory(igpLevelIsisLevel1);
    for (std::uint8_t n = 1; n <= 8; ++n) {
        db->lspIs(entry(static_cast<std::uint8_t>(n * 8)));
    }
    for (std::uint8_t n = 1; n <= 8; ++n) {
        // Whichever of four holders drops last destroys them, on its own thread, into its own slab cache.
        Poldo::Ptr<IgpLsp> removed = db->lspDel(nodeId(static_cast<std::uint8_t>(n * 8)));
        ASSERT_TRUE(removed);
        std::vector<std::thread> holders;
        for (int t = 0; t < 4; ++t) {
            holders.emplace_back(
                [mine = removed, node = removed->node(), nbr = removed->neighbor().begin()->value]() mutable {
                    const Poldo::Ptr<IgpLsp> copy = mine;
                    mine.reset();
                    node.reset();
                    nbr.reset();
                });
        }
        removed.reset();
        for (std::thread& h : holders) {
            h.join();
        }
    }
    EXPECT_EQ(db->lspCount(), 0u);
    db.reset();
    EXPECT_EQ(liveModelObjects(), liveBefore);
}

}  // namespace
