// Route computation at IGP scale: a full run (shortest paths and every route)
// from one router of a generated level-2 domain of 1k, 10k and 50k routers,
// against the incremental update after one prefix changes its metric and
// after one link changes its metric, in turns in the same benchmark.
//
// Counters: full_s, prefix_s and link_s are the mean thread CPU seconds of
// each pass; prefix_ratio and link_ratio divide the incremental passes by the
// full run measured beside them.
//
//   build/default/bench/igp-routes-bench [--benchmark_filter=Routes/10k]
//   build/default/bench/igp-routes-bench --count-pass=full|prefix|link/SIZE   (for callgrind)

#include <benchmark/benchmark.h>
#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#else
// Without valgrind's headers --count-pass runs, but counts nothing.
#define CALLGRIND_TOGGLE_COLLECT
#define CALLGRIND_START_INSTRUMENTATION
#define CALLGRIND_STOP_INSTRUMENTATION
#endif

#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>
#include <memory>
#include <string>

#include "IgpCommon/LspDatabase.h"
#include "IsisRoutes/Routes.h"
#include "gen/Generator.h"

namespace {

namespace IC = Routing::IgpCommon;
namespace IR = Routing::IsisRoutes;

double threadCpuSeconds() {
    timespec ts{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

// One domain, its database and the table of its first router, with the prefix
// and the link the incremental passes change.
struct Domain {
    explicit Domain(std::uint32_t routers) : db(IC::igpLspDatabaseFactory(IC::igpLevelIsisLevel2)) {
        const auto topology = IgpBench::generate(routers, 1);
        for (const auto& lsp : topology.lsps) {
            IgpBench::mergeContent(*db, IgpBench::buildContent(lsp));
        }
        const IC::IgpNodeId root = topology.lsps.front().id;
        table = std::make_unique<IR::RouteTable>(db, root, IR::Family::ipv4);
        // A prefix and a link of a router far from the root: the last one generated.
        const auto far = db->lsp(topology.lsps.at(routers - 1).id);
        for (const auto& m : far->prefix()) {
            if (m.key.prefix().isIpv4() && m.value->hasValidReachability()) {
                prefix = m.value;
                break;
            }
        }
        for (const auto& m : far->neighbor()) {
            if (m.key.mtId().value() == 0) {
                link = m.value;
                break;
            }
        }
    }

    double full() {
        const double t0 = threadCpuSeconds();
        table->recomputeAll();
        return threadCpuSeconds() - t0;
    }
    double prefixChange() {
        const double t0 = threadCpuSeconds();
        prefix->metricIs(prefix->metric() ^ 1);
        table->update();
        return threadCpuSeconds() - t0;
    }
    double linkChange() {
        const double t0 = threadCpuSeconds();
        link->igpMetricIs(link->igpMetric() ^ 1);
        table->update();
        return threadCpuSeconds() - t0;
    }

    Poldo::Ptr<IC::IgpLspDatabase> db;
    std::unique_ptr<IR::RouteTable> table;
    Poldo::Ptr<IC::Prefix> prefix;
    Poldo::Ptr<IC::Neighbor> link;
};

Domain& domain(std::uint32_t routers) {
    static std::map<std::uint32_t, std::unique_ptr<Domain>> domains;
    if (!domains.count(routers)) {
        domains.clear();  // one large domain in memory at a time
        domains[routers] = std::make_unique<Domain>(routers);
    }
    return *domains[routers];
}

void routes(benchmark::State& state, std::uint32_t routers) {
    Domain& d = domain(routers);
    double full = 0, prefix = 0, link = 0;
    for (auto _ : state) {
        full += d.full();
        prefix += d.prefixChange();
        link += d.linkChange();
    }
    const auto counters = d.table->counters();
    const auto n = static_cast<double>(state.iterations());
    state.counters["full_s"] = full / n;
    state.counters["prefix_s"] = prefix / n;
    state.counters["link_s"] = link / n;
    state.counters["prefix_ratio"] = prefix / full;
    state.counters["link_ratio"] = link / full;
    state.counters["routes"] = static_cast<double>(d.table->routes().size());
    state.counters["spf_runs"] = static_cast<double>(counters.spfRuns);
    state.counters["full_runs"] = static_cast<double>(counters.fullRuns);
    state.counters["prefix_updates"] = static_cast<double>(counters.prefixUpdates);
}

// One pass under callgrind, collection on over the pass alone.
int countPass(const std::string& passAndSize) {
    const auto slash = passAndSize.find('/');
    const std::string pass = passAndSize.substr(0, slash);
    const std::string size = slash == std::string::npos ? "1k" : passAndSize.substr(slash + 1);
    const std::uint32_t routers = size == "50k" ? 50000 : size == "10k" ? 10000 : 1000;
    Domain& d = domain(routers);
    CALLGRIND_START_INSTRUMENTATION;
    CALLGRIND_TOGGLE_COLLECT;
    if (pass == "full") {
        d.full();
    } else if (pass == "prefix") {
        d.prefixChange();
    } else if (pass == "link") {
        d.linkChange();
    } else {
        std::fprintf(stderr, "unknown pass %s (full, prefix, link)\n", pass.c_str());
        return 2;
    }
    CALLGRIND_TOGGLE_COLLECT;
    CALLGRIND_STOP_INSTRUMENTATION;
    std::printf("routes=%zu\n", d.table->routes().size());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strncmp(argv[i], "--count-pass=", 13) == 0) {
            return countPass(argv[i] + 13);
        }
    }
    for (const auto& [name, routers] : {std::pair{"1k", 1000u}, {"10k", 10000u}, {"50k", 50000u}}) {
        benchmark::RegisterBenchmark((std::string("Routes/") + name).c_str(), routes, routers)
            ->Unit(benchmark::kMillisecond);
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
