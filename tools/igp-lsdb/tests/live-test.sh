#!/usr/bin/env bash
# Live capture in a network namespace (unshare): the lab capture replayed by tcpreplay onto a veth pair,
# igp-lsdb -i on the other end; after the interrupt, events --follow and dump print what they print for
# the file.   live-test.sh TOOL SCRATCH_DIR   (from the repository root; exit 77: skipped)
set -euo pipefail
tool=$(realpath "$1")
scratch=$2
lab=decoder/tests/data/frr-initial.pcap
mkdir -p "$scratch"

skip() { echo "SKIPPED: $*"; exit 77; }
command -v ip >/dev/null || skip "ip (Debian iproute2) is not installed"
command -v tcpreplay >/dev/null || skip "tcpreplay (Debian tcpreplay) is not installed"

if [[ ${IGP_LSDB_LIVE_INSIDE:-} == "" ]]; then
    flags=-rn  # a user namespace too, unless root
    ((EUID != 0)) || flags=-n
    unshare $flags true 2>"$scratch/unshare.err" ||
        skip "this machine allows no network namespace: unshare $flags failed: $(cat "$scratch/unshare.err")"
    IGP_LSDB_LIVE_INSIDE=1 exec unshare $flags "$0" "$@"
fi

pids=()
trap 'for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done' EXIT
ip link add va type veth peer name vb
ip link set va up
ip link set vb up
# IPv6 would send router solicitations and the like: the filter drops them, but quiet is simpler.
sysctl -qw net.ipv6.conf.vb.disable_ipv6=1 2>/dev/null || true

"$tool" events "$lab" >"$scratch/events.expected"
"$tool" dump "$lab" >"$scratch/dump.expected"

"$tool" events -i vb --follow >"$scratch/events.out" 2>"$scratch/events.err" &
pids+=($!)
"$tool" dump -i vb >"$scratch/dump.out" 2>"$scratch/dump.err" &
pids+=($!)
for _ in $(seq 100); do
    grep -q "listening on vb" "$scratch/events.err" && grep -q "listening on vb" "$scratch/dump.err" && break
    sleep 0.1
done
for run in events dump; do
    grep -q "listening on vb" "$scratch/$run.err" || { cat "$scratch/$run.err"; echo "$run -i did not start"; exit 1; }
done

# dump -i is held still while the frames come, and interrupted before it goes on: what the kernel
# received before the interrupt is still read.
kill -STOP "${pids[1]}"
tcpreplay -q -i va --mbps=10 "$lab" >"$scratch/tcpreplay.out" 2>&1 || { cat "$scratch/tcpreplay.out"; exit 1; }

# --follow writes each change as it is merged: wait for the last one, then interrupt both.
want=$(wc -l <"$scratch/events.expected")
for _ in $(seq 100); do
    [[ $(wc -l <"$scratch/events.out") -ge $want ]] && break
    sleep 0.1
done
status=0
for pid in "${pids[@]}"; do
    kill -INT "$pid"
    kill -CONT "$pid"
    wait "$pid" || { echo "igp-lsdb -i exited with status $? after the interrupt"; status=1; }
done
pids=()

# The capture times (the second field) are those of the replay, not the file's.
diff -u <(cut -f1,3- "$scratch/events.expected") <(cut -f1,3- "$scratch/events.out") ||
    { echo "events -i differs from events of the file"; status=1; }
diff -u "$scratch/dump.expected" "$scratch/dump.out" || { echo "dump -i differs from dump of the file"; status=1; }
[[ $status -eq 0 ]] && echo "live: $(wc -l <"$scratch/events.out") change lines and the dump equal the file's"
exit $status
