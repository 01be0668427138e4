#!/usr/bin/env bash
# Builds the fuzz targets and runs each for SECONDS seconds from its committed seeds (README.md).
# Fails on a finding, or when a target found no input beyond its seeds. FUZZ_ARGS adds libFuzzer options.
#   fuzz/run.sh SECONDS [TARGET...]      TARGET: text, merge, decoder, capture, render (default: all)
set -euo pipefail

if (($# < 1)) || ! [[ $1 =~ ^[0-9]+$ ]] || (($1 < 1)); then
    echo "usage: $0 SECONDS [text|merge|decoder|capture|render]..." >&2
    exit 2
fi
seconds=$1
shift
targets=("$@")
((${#targets[@]})) || targets=(text merge decoder capture render)

cd "$(dirname "${BASH_SOURCE[0]}")/.."
build=build/fuzz

cmake --preset fuzz >/dev/null
cmake --build "$build" -j2 --target "${targets[@]/#/igpcommon_fuzz_}"

mkdir -p "$build/findings"
read -r -a extra <<<"${FUZZ_ARGS:-}"
summary=()
idle=()
for t in "${targets[@]}"; do
    work="$build/corpus/$t"
    rm -rf "$work"
    mkdir -p "$work"
    log="$build/fuzz-$t.log"
    # The renderers take the decoder's inputs.
    seedDir="fuzz/corpus/$t"
    [[ $t == render ]] && seedDir=fuzz/corpus/decoder
    seeds=$(find "$seedDir" -type f | wc -l)
    echo "== igpcommon_fuzz_$t: ${seconds}s from $seeds seeds"
    case $t in
        # A merge program needs room for many steps; the threshold: README.md.
        merge) sizing=(-max_len=2048 -len_control=0 -entropic_feature_frequency_threshold=32) ;;
        # A decoder input holds a few PDUs.
        decoder | render) sizing=(-max_len=16384) ;;
        # A capture file of a few dozen frames.
        capture) sizing=(-max_len=65536) ;;
        *) sizing=() ;;
    esac
    rc=0
    "$build/fuzz/igpcommon_fuzz_$t" "$work" "$seedDir" "${sizing[@]}" \
        -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
        -artifact_prefix="$build/findings/$t-" "${extra[@]}" >"$log" 2>&1 || rc=$?
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
    if ((rc != 0)); then
        tail -n 60 "$log"
        echo "== igpcommon_fuzz_$t FOUND SOMETHING (exit $rc) after ${runs:-?} executions; input in $build/findings/" >&2
        exit 1
    fi
    # "Done N runs in S second(s)": the time libFuzzer itself counted.
    elapsed=$(sed -n 's/^Done [0-9]* runs in \([0-9]*\) second.*/\1/p' "$log" | tail -n 1)
    ((${elapsed:-0} > 0)) || elapsed=$seconds
    found=$(sed -n 's/^stat::new_units_added: *//p' "$log" | tail -n 1)
    summary+=("$(printf '%-24s %7s inputs/s (%s executions in %ss, load %s), %s new inputs beyond %s seeds' \
        "igpcommon_fuzz_$t" "$((${runs:-0} / elapsed))" "${runs:-?}" "$elapsed" "$(cut -d' ' -f1 /proc/loadavg)" \
        "${found:-?}" "$seeds")")
    if ((${found:-0} == 0)); then
        idle+=("$t")
    fi
done
printf '%s\n' "== fuzz summary" "${summary[@]}"
if ((${#idle[@]})); then
    echo "== FAILED: ${idle[*]} found no input beyond the seeds in ${seconds}s: only the seeds ran, nothing was explored" >&2
    exit 1
fi
