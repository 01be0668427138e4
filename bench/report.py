#!/usr/bin/env python3
"""Runs the database benchmarks and prints the ratios they are judged by.

Every ratio divides two measurements of the same run (CPU time per element or
per LSP), so a loaded machine slows both sides alike. The memory figures come
from a separate process (igp-lsdb-bench --memory=N), so that its peak RSS is
the build's and nothing else's.

    bench/report.py                          # every size, memory at 50k routers
    bench/report.py --repetitions 3          # steadier: medians of 3, in random order
    bench/report.py --sizes 1k --memory 1000
    bench/report.py --from-json run.json     # ratios of an earlier run

Shapes: 1k, 10k and 50k routers; "dense" (2,000 routers with about 40 neighbors
and 290 prefixes each); "256" (one node of 256 fragments against the same
prefixes on 256 nodes). Instruction counts of the receive path come from
bench/callgrind.sh.
"""

import argparse
import json
import os
import subprocess
import sys
import tempfile

TARGETS = {
    "refresh_vs_floor": 2.5,
    "lookup_vs_absl": 1.25,
    "per_lsp_growth": 1.5,
    "bytes_per_neighbor": 320,
    "bytes_per_prefix": 160,
    "ingest_vs_floor": 3.0,
    "ingest_heap_bytes_per_lsp": 4096,  # keeper plus database, on the 10k shape
    "ingest_allocs_over_kept": 4,  # allocations per LSP beyond the objects the database keeps
    "fragments_vs_nodes": 3.0,
}

SHAPES = ["1k", "10k", "50k", "dense", "256"]


def run_benchmarks(binary, sizes, bench_filter, repetitions):
    """One process per size, so that no size runs in a heap another one shaped."""
    merged = None
    for size in sizes:
        out = tempfile.NamedTemporaryFile(suffix=".json", delete=False)
        out.close()
        pattern = "^(%s)/%s($|/)" % (bench_filter or "[A-Za-z0-9]+", size)
        cmd = [binary, "--benchmark_out=" + out.name, "--benchmark_out_format=json",
               "--benchmark_filter=" + pattern]
        if repetitions > 1:
            # Repetitions in random order spread a noisy neighbour's load over
            # every scenario alike instead of over whichever ran meanwhile.
            cmd += ["--benchmark_repetitions=%d" % repetitions, "--benchmark_report_aggregates_only=true",
                    "--benchmark_enable_random_interleaving=true"]
        subprocess.run(cmd, check=True)
        with open(out.name) as f:
            data = json.load(f)
        os.unlink(out.name)
        if merged is None:
            merged = data
        else:
            merged["benchmarks"] += data["benchmarks"]
    return merged


def results(data):
    """run name -> counters and times; the median when repeated."""
    plain, medians = {}, {}
    for b in data["benchmarks"]:
        # "Build/1k/manual_time" and "Memory/1k/iterations:1" are "Build/1k" and "Memory/1k".
        name = "/".join(b.get("run_name", b["name"]).split("/")[:2])
        if b.get("error_occurred"):
            print("benchmark %s failed: %s" % (name, b.get("error_message")), file=sys.stderr)
            continue
        if b.get("run_type") == "aggregate":
            if b.get("aggregate_name") == "median":
                medians[name] = b
        else:
            plain[name] = b
    plain.update(medians)
    return plain


def size_key(size):
    return SHAPES.index(size) if size in SHAPES else len(SHAPES)


def verdict(value, limit):
    return "ok" if value <= limit else "MISSED"


def ns(seconds):
    return "%.0f ns" % (seconds * 1e9) if seconds < 1e-5 else "%.2f us" % (seconds * 1e6)


def report(res, memory):
    sizes = sorted({name.split("/")[1] for name in res if "/" in name}, key=size_key)
    rows = []

    def get(scenario, size, counter):
        b = res.get("%s/%s" % (scenario, size))
        return None if b is None else b.get(counter)

    print("\nPer-element and per-LSP costs (CPU time):")
    print("%-20s" % "scenario" + "".join("%22s" % s for s in sizes))
    for scenario in ["ContentBuild", "Decode", "Ingest", "Reflood", "RefloodDecoded", "Build", "Refresh",
                     "RefreshFloor", "Lookup",
                     "LookupFloor", "LookupAbsl", "LookupAbslKeyCopies", "Churn", "Dump"]:
        cells = []
        for s in sizes:
            lsp = get(scenario, s, "per_lsp")
            unit = get(scenario, s, "per_change" if scenario == "Churn" else "per_elem")
            cells.append("%22s" % ("-" if lsp is None else "%s | %s" % (ns(lsp), ns(unit))))
        print("%-20s" % scenario + "".join(cells))
    print("  (each cell: per LSP | per element; Churn: per merged LSP | per change)")

    # The targets are judged on the pairs: two passes run in turns in one
    # benchmark, so that both see the same load and the same cache state.
    for s in sizes:
        v = get("RefreshVsFloor", s, "ratio")
        if v is not None:
            rows.append(("refresh / floor, per element, %s" % s, v, TARGETS["refresh_vs_floor"]))
        v = get("LookupVsAbsl", s, "ratio")
        if v is not None:
            rows.append(("our look-up / absl, %s" % s, v, TARGETS["lookup_vs_absl"]))
        for counter in ["allocs_nonbinding_per_lsp", "notif_nonbinding_per_lsp"]:
            v = get("Refresh", s, counter)
            if v is not None:
                rows.append(("refresh %s, %s" % (counter, s), v, 0.0))
    # The receive path: PDU octets through LspKeeper::receivePdu.
    for s in sizes:
        v = get("IngestVsFloor", s, "ratio")
        if v is not None:
            rows.append(("ingest / its floor, per element, %s" % s, v, TARGETS["ingest_vs_floor"]))
        v = get("IngestHeap", s, "heap_bytes_per_lsp")
        if v is not None and s == "10k":
            rows.append(("ingest heap per LSP, keeper + database, %s" % s, v, TARGETS["ingest_heap_bytes_per_lsp"]))
        allocs, kept = get("IngestHeap", s, "allocs_per_lsp"), get("IngestHeap", s, "db_objects_per_lsp")
        if allocs is not None and kept is not None:
            rows.append(("ingest allocs per LSP - db objects per LSP, %s" % s, allocs - kept,
                         TARGETS["ingest_allocs_over_kept"]))
    for what in ["Ingest", "Refresh"]:
        v = get("Fragments%sVsNodes" % what, "256", "ratio")
        if v is not None:
            rows.append(("%s: 1 node of 256 fragments / 256 nodes" % what.lower(), v, TARGETS["fragments_vs_nodes"]))
    for s in sizes:
        for scenario in ["Build", "Refresh"]:
            v = get(scenario + "Vs1k", s, "ratio")
            if v is not None:
                rows.append(("%s per LSP, %s / 1k" % (scenario.lower(), s), v, TARGETS["per_lsp_growth"]))
    for s in sizes:
        for counter, target in [("bytes_per_neighbor", TARGETS["bytes_per_neighbor"]),
                                ("bytes_per_prefix", TARGETS["bytes_per_prefix"])]:
            v = get("Memory", s, counter)
            if v is not None:
                rows.append(("%s (live accounting), %s" % (counter, s), v, target))
    if memory:
        n = "%dk" % (memory["routers"] // 1000)
        for counter, target in [("bytes_per_neighbor", TARGETS["bytes_per_neighbor"]),
                                ("bytes_per_prefix", TARGETS["bytes_per_prefix"])]:
            rows.append(("%s (mallinfo2), %s" % (counter, n), memory["mallinfo"][counter], target))

    print("\nTargets (ratios from pairs: two passes in turns within one benchmark, same load and cache state):")
    for label, value, limit in rows:
        print("  %-52s %10.3f   target <= %-6g %s" % (label, value, limit, verdict(value, limit)))

    def info(label, value):
        print("  %-56s %8.3f" % (label, value))

    def info_ratio(label, size, top, bottom, counter):
        a, b = get(top, size, counter), get(bottom, size, counter)
        if a and b:
            info("%s, %s" % (label, size), a / b)

    print("\nThe same ratios from separate benchmarks (each alone: its own cache state and load):")
    for s in sizes:
        info_ratio("refresh / floor, per element", s, "Refresh", "RefreshFloor", "per_elem")
        info_ratio("our look-up / absl", s, "LookupFloor", "LookupAbsl", "per_elem")
        for scenario in ["Build", "Refresh"]:
            a, b = get(scenario, sizes[0], "per_lsp"), get(scenario, s, "per_lsp")
            if a and b and s != sizes[0]:
                info("%s per LSP, %s / %s" % (scenario.lower(), s, sizes[0]), b / a)

    print("\nFor information:")
    for s in sizes:
        info_ratio("first build / building the parsed content", s, "Build", "ContentBuild", "per_lsp")
        v = get("LookupVsAbslKeyCopies", s, "ratio")
        if v is not None:
            info("our look-up / absl holding key copies (pair), %s" % s, v)
        info_ratio("look-up through the public API / absl", s, "Lookup", "LookupAbsl", "per_elem")
        info_ratio("ingest (decode + keeper) / first build", s, "Ingest", "Build", "per_lsp")
        info_ratio("reflood through receivePdu / decoded and received", s, "Reflood", "RefloodDecoded", "per_lsp")
        for scenario in ["Reflood", "RefloodDecoded"]:
            v = get(scenario, s, "allocs_per_pdu")
            if v is not None:
                info("%s allocations per PDU, %s" % (scenario, s), v)
        v = get("Refresh", s, "allocs_per_lsp")
        if v is not None:
            info("refresh allocations per LSP, bindings included, %s" % s, v)
        v = get("Refresh", s, "notif_per_lsp")
        if v is not None:
            info("refresh notifications per LSP, bindings included, %s" % s, v)
        v = get("Churn", s, "notif_nonbinding_per_change")
        if v is not None:
            info("churn notifications per change (1 expected), %s" % s, v)
    for s in sizes:
        v = get("IngestVsFloor", s, "a_per_unit")
        if v is not None:
            info("ingest through receivePdu, us per element, %s" % s, v * 1e6)
            info("its floor (keys walked and looked up), us per element, %s" % s,
                 get("IngestVsFloor", s, "b_per_unit") * 1e6)
        for counter in ["pdus_per_lsp", "allocs_per_lsp", "objects_kept_per_lsp", "db_objects_per_lsp",
                        "heap_bytes_per_lsp", "db_heap_bytes_per_lsp"]:
            v = get("IngestHeap", s, counter)
            if v is not None:
                info("ingest %s, %s" % (counter, s), v)
    for what in ["Ingest", "Refresh"]:
        for counter in ["a_per_unit", "b_per_unit"]:
            v = get("Fragments%sVsNodes" % what, "256", counter)
            if v is not None:
                info("%s per prefix, us, %s" % (what.lower(), "1 node of 256 fragments" if counter == "a_per_unit"
                                                 else "256 nodes"), v * 1e6)
    if memory:
        m = memory
        print("  %d routers (%d LSPs, %d neighbors, %d prefixes):" % (m["routers"], m["lsps"], m["neighbors"],
                                                                    m["prefixes"]))
        print("    bytes per node (entry) %.0f (mallinfo2), %.0f (live)" % (m["mallinfo"]["bytes_per_node"],
                                                                         m["live"]["bytes_per_node"]))
        print("    peak RSS of the build %.1f MiB, of which %.1f MiB before it (generator input);"
              " the database's heap (mallinfo2) %.1f MiB" %
              (m["peak_rss_build_kb"] / 1024, m["rss_before_build_kb"] / 1024,
               m["heap_full_build_bytes"] / 1048576))
        for what in ["node", "neighbor", "prefix"]:
            objs = m["objects_per_" + what]
            print("    objects per %-8s " % what + ", ".join("%s %.2f" % (k.split("::")[-1], v)
                                                        for k, v in sorted(objs.items())))
        print("    sizeof: " + ", ".join("%s %d" % kv for kv in m["sizeof"].items()))
    return all(value <= limit for _, value, limit in rows)


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    default_bin = os.path.join(here, "..", "build", "default", "bench", "igp-lsdb-bench")
    p = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    p.add_argument("--bench", default=default_bin, help="the igp-lsdb-bench binary (RelWithDebInfo build)")
    p.add_argument("--sizes", default=",".join(SHAPES),
                   help="comma-separated shapes to run (1k, 10k, 50k, dense, 256)")
    p.add_argument("--filter", default="", help="scenarios to run, a regex of whole names, e.g. 'Refresh.*|Lookup.*'")
    p.add_argument("--repetitions", type=int, default=1,
                   help="repeat each benchmark in random order and report medians (3 steadies a shared machine)")
    p.add_argument("--memory", type=int, default=50000, help="routers of the memory run; 0 skips it")
    p.add_argument("--from-json", help="report on a saved --benchmark_out JSON file instead of running")
    p.add_argument("--save-json", help="keep the run's JSON here")
    p.add_argument("--strict", action="store_true", help="exit 1 when a target is missed")
    args = p.parse_args()

    if args.from_json:
        with open(args.from_json) as f:
            data = json.load(f)
    else:
        data = run_benchmarks(args.bench, args.sizes.split(","), args.filter, args.repetitions)
        if args.save_json:
            with open(args.save_json, "w") as f:
                json.dump(data, f, indent=1)
    memory = None
    if args.memory and not args.from_json:
        out = subprocess.run([args.bench, "--memory=%d" % args.memory], check=True, capture_output=True, text=True)
        memory = json.loads(out.stdout)
    met = report(results(data), memory)
    if args.strict and not met:
        sys.exit(1)


if __name__ == "__main__":
    main()
