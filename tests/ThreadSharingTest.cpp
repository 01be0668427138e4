// A database's entities shared across threads by counted pointers (Poldo::ThreadControl on): readers
// take and drop references while the counts must come out exact, and no object of any type outlives
// the database.
// Also built into igpcommon_thread_tests for ThreadSanitizer.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <thread>
#include <vector>

#include "IgpCommon/LspDatabase.h"
#include "IgpCommon/ParsedContent.h"

namespace {

using namespace Routing::IgpCommon;  // NOLINT(google-build-using-namespace)

IgpNodeId nodeId(std::uint8_t n) {
    const std::array<std::uint8_t, 7> b{0, 0, 0, 0, 0, n, 0};
    return IgpNodeId::fromBytes(b.data());
}

TEST(ThreadSharing, ConcurrentReadersLeaveEveryCountAsItWas) {
    const std::uint64_t liveBefore = Drimm::AllocTracker::totalLive();
    Poldo::ThreadControl::multiThreadedIs(true);
    auto db = igpLspDatabaseFactory(igpLevelIsisLevel2);
    for (std::uint8_t n = 8; n <= 128; n += 8) {
        auto e = igpLspFactory(nodeId(n));
        e->nodeIs(nodeFactory(nodeId(n)));
        auto parsed = isisLspParsedContentFactory();
        for (std::uint8_t i = 1; i <= 4; ++i) {
            parsed->neighborIs(NeighborKey(nodeId(static_cast<std::uint8_t>(n + i)), IgpMultiTopologyId(0)));
            auto p = parsed->prefixIs(
                PrefixKey(Lumo::IpGenPrefix(Lumo::IpAddr(0x0a000000u | (n << 8) | i), 32), {}));
            p->hasValidReachabilityIs(true);
            p->prefixMetric()->metricIs(128, 5);
            p->sidLabelBindingIs(sidLabelBindingFactory());
        }
        parsed->parsedSrLgIs(Lumo::IpGenAddr(Lumo::IpAddr(0x0a000001u)))->srlgValueIs(7);
        e->updateNeighbors(parsed);
        e->updatePrefixes(parsed);
        e->updatePrefixes(parsed);  // a second binding replaces the first
        db->lspIs(e);
    }
    const auto counts = [&db] {
        std::vector<std::uint32_t> c;
        for (const auto& e : db->lsp()) {
            c.push_back(e->useCount() + e->node()->useCount());
            for (const auto& n : e->neighbor()) {
                c.push_back(n.value->useCount());
            }
            for (const auto& p : e->prefix()) {
                c.push_back(p.value->useCount());
            }
        }
        return c;
    };
    const std::vector<std::uint32_t> before = counts();
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&db] {
            for (int round = 0; round < 200; ++round) {
                std::vector<Poldo::Ptr<IgpLsp>> entries;
                std::vector<Poldo::Ptr<Node>> nodes;
                std::vector<Poldo::Ptr<Neighbor>> neighbors;
                std::vector<Poldo::Ptr<Prefix>> prefixes;
                for (const auto& e : db->lsp()) {
                    entries.push_back(db->lsp(e->nodeId()));
                    nodes.push_back(e->node());
                    for (const auto& n : e->neighbor()) {
                        neighbors.push_back(e->neighbor(n.key));
                        prefixes.push_back(e->prefix().begin()->value);
                    }
                }
            }
        });
    }
    for (std::thread& t : threads) {
        t.join();
    }
    EXPECT_EQ(counts(), before);

    db.reset();
    Poldo::ThreadControl::multiThreadedIs(false);
    EXPECT_EQ(Drimm::AllocTracker::totalLive(), liveBefore) << "an object outlived the database";
}

}  // namespace
