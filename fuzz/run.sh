#!/usr/bin/env bash
# Builds the fuzz targets (fuzz preset, build/fuzz) and runs each for SECONDS seconds from its
# committed seed corpus. Exits non-zero on the first target that finds something; the input that
# broke it is kept in build/fuzz/findings/.
#
#   fuzz/run.sh SECONDS [TARGET...]      TARGET: text, merge, decoder (default: all three)
#
# New inputs that a run finds go to build/fuzz/corpus/<target> (not to the committed seeds), so
# repeated local runs build on each other. FUZZ_ARGS adds libFuzzer options.
set -euo pipefail

if (($# < 1)) || ! [[ $1 =~ ^[0-9]+$ ]] || (($1 < 1)); then
    echo "usage: $0 SECONDS [text|merge|decoder]..." >&2
    exit 2
fi
seconds=$1
shift
targets=("$@")
((${#targets[@]})) || targets=(text merge decoder)

cd "$(dirname "${BASH_SOURCE[0]}")/.."
build=build/fuzz

cmake --preset fuzz >/dev/null
cmake --build "$build" -j2 --target "${targets[@]/#/igpcommon_fuzz_}"

mkdir -p "$build/findings"
read -r -a extra <<<"${FUZZ_ARGS:-}"
summary=()
for t in "${targets[@]}"; do
    work="$build/corpus/$t"
    mkdir -p "$work"
    log="$build/fuzz-$t.log"
    echo "== igpcommon_fuzz_$t: ${seconds}s"
    # A merge program needs room for many steps from the start; a decoder input for a few PDUs.
    case $t in
        merge) sizing=(-max_len=2048 -len_control=0) ;;
        decoder) sizing=(-max_len=16384) ;;
        *) sizing=() ;;
    esac
    rc=0
    "$build/fuzz/igpcommon_fuzz_$t" "$work" "fuzz/corpus/$t" "${sizing[@]}" \
        -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
        -artifact_prefix="$build/findings/$t-" "${extra[@]}" >"$log" 2>&1 || rc=$?
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
    if ((rc != 0)); then
        tail -n 60 "$log"
        echo "== igpcommon_fuzz_$t FOUND SOMETHING (exit $rc) after ${runs:-?} executions; input in $build/findings/" >&2
        exit 1
    fi
    summary+=("$(printf '%-24s %10s executions in %ss, corpus %s inputs' "igpcommon_fuzz_$t" "${runs:-?}" "$seconds" \
        "$(find "$work" -type f | wc -l)")")
done
printf '%s\n' "== fuzz summary" "${summary[@]}"
