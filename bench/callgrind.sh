#!/usr/bin/env bash
# Instruction counts of the receive path's passes: each pass runs once under
# callgrind with collection on over its measured region only (igp-lsdb-bench
# --count-pass), and is printed per LSP, per PDU and per element. Instruction
# counts hold still on a loaded machine where times do not.
#
#   bench/callgrind.sh                      # the default set (below)
#   bench/callgrind.sh Ingest/10k Reflood/10k
#   BENCH=path/to/igp-lsdb-bench bench/callgrind.sh ...
#
# Passes: Ingest, IngestFloor, Reflood on 1k, 10k, 50k or dense;
# FragmentsIngest, NodesIngest, FragmentsRefresh, NodesRefresh on 256.
# Targets: ingest <= 3x its floor per element, reflood <= 3,000 instructions
# per LSP at 10k, one node of 256 fragments <= 3x the 256 nodes.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
bench=${BENCH:-$here/../build/default/bench/igp-lsdb-bench}
passes=("$@")
if [ ${#passes[@]} -eq 0 ]; then
    passes=(Ingest/1k IngestFloor/1k Ingest/10k IngestFloor/10k Ingest/dense IngestFloor/dense Reflood/10k
            FragmentsIngest/256 NodesIngest/256 FragmentsRefresh/256 NodesRefresh/256)
fi
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT

declare -A ir
printf '%-22s %16s %12s %12s %12s\n' pass instructions per_lsp per_pdu per_element
for p in "${passes[@]}"; do
    file=$out/$(echo "$p" | tr / _).out
    units=$(valgrind --tool=callgrind --instr-atstart=no --collect-atstart=no --callgrind-out-file="$file" \
        "$bench" --count-pass="$p" 2>"$out/log") || { cat "$out/log" >&2; exit 1; }
    # "totals:" is what the toggled regions collected ("summary:" stays 0 without instrumentation at start).
    total=$(sed -n 's/^totals: *\([0-9]*\).*/\1/p' "$file")
    lsps=$(echo "$units" | sed -n 's/.*lsps=\([0-9]*\).*/\1/p')
    pdus=$(echo "$units" | sed -n 's/.*pdus=\([0-9]*\).*/\1/p')
    elements=$(echo "$units" | sed -n 's/.*elements=\([0-9]*\).*/\1/p')
    ir[$p]=$total
    ir[$p/elements]=$elements
    awk -v p="$p" -v t="$total" -v l="$lsps" -v d="$pdus" -v e="$elements" \
        'BEGIN { printf "%-22s %16.0f %12.0f %12.0f %12.1f\n", p, t, t / l, t / d, t / e }'
done

# Ratios of passes counted over the same units (elements), where both ran.
ratio() {
    local label=$1 a=$2 b=$3 target=$4
    if [ -n "${ir[$a]:-}" ] && [ -n "${ir[$b]:-}" ]; then
        awk -v l="$label" -v a="${ir[$a]}" -v b="${ir[$b]}" -v ea="${ir[$a/elements]}" -v eb="${ir[$b/elements]}" \
            -v t="$target" 'BEGIN { r = (a / ea) / (b / eb);
                printf "  %-44s %8.2f   target <= %s %s\n", l, r, t, (r <= t ? "ok" : "MISSED") }'
    fi
}
echo
echo "Ratios of instructions per element:"
for s in 1k 10k 50k dense; do
    ratio "ingest / its floor, $s" "Ingest/$s" "IngestFloor/$s" 3
done
ratio "ingest: one node of 256 fragments / 256 nodes" FragmentsIngest/256 NodesIngest/256 3
ratio "refresh: one node of 256 fragments / 256 nodes" FragmentsRefresh/256 NodesRefresh/256 3
if [ -n "${ir[Reflood/10k]:-}" ]; then
    echo "  (reflood per LSP at 10k: target <= 3000 instructions)"
fi
