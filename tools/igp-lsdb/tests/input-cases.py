#!/usr/bin/env python3
"""igp-lsdb on captures made on the spot, standard input, or a failing output, compared with its output for
the equivalent whole capture.   input-cases.py TOOL SCRATCH_DIR CASE  (from the repository root)"""
import gzip
import os
import struct
import subprocess
import sys
import zlib

LAB = os.path.join("decoder", "tests", "data", "frr-initial.pcap")
EXIT_OUTPUT_FAILED, EXIT_BAD_INPUT, EXIT_CUT_SHORT = 1, 2, 3


def check(ok, what):
    ok or sys.exit(f"{sys.argv[3]}: {what}")


def run(tool, args, stdin=None, stdout=subprocess.PIPE):
    p = subprocess.run([tool] + args, input=stdin, stdout=stdout, stderr=subprocess.PIPE)
    return p.returncode, p.stdout, p.stderr.decode(errors="replace")


def records(path):  # the file header and each record (header and data) of a classic pcap
    data = open(path, "rb").read()
    out, at = [], 24
    while at + 16 <= len(data):
        caplen = struct.unpack("<I", data[at + 8:at + 12])[0]
        out.append(data[at:at + 16 + caplen])
        at += 16 + caplen
    return data[:24], out


def write(path, data):
    open(path, "wb").write(data)
    return path


def expect_whole(tool, scratch, header, recs, got, what):  # `got` (status, stdout): the dump of `recs`, whole
    rc, want, err = run(tool, ["dump", write(os.path.join(scratch, "whole.pcap"), header + b"".join(recs))])
    check(rc == 0 and want, f"the whole capture of {len(recs)} frames: status {rc}\n{err}")
    check(got[1] == want, f"{what}: the database differs from that of the {len(recs)} frames before the cut")


def cut_short(tool, scratch):
    header, recs = records(LAB)
    # 400000 octets hold 470 whole frames and part of the 471st.
    data = header + b"".join(recs)
    cut = write(os.path.join(scratch, "cut.pcap"), data[:400000])
    rc, out, err = run(tool, ["dump", cut])
    check(rc == EXIT_CUT_SHORT, f"status {rc}, expected {EXIT_CUT_SHORT}\n{err}")
    check(cut in err and "after frame 470," in err, f"the warning names neither file nor last frame:\n{err}")
    expect_whole(tool, scratch, header, recs[:470], (rc, out), "cut short")
    # A cut inside a record header, not only inside a frame.
    rc, out, err = run(tool, ["stats", write(cut, data[:len(header) + len(b"".join(recs[:100])) + 7])])
    check(rc == EXIT_CUT_SHORT and "after frame 100," in err, f"cut in a record header: status {rc}\n{err}")
    check(b"frames: 100 read" in out, "cut in a record header: not every frame before it was read")


def cut_short_gzip(tool, scratch):
    header, recs = records(LAB)
    # Flushed after each record, so that a cut at a flush point ends on a whole frame in a stream
    # that has no end: the cut must be noticed although libpcap sees a clean end of file.
    z = zlib.compressobj(6, zlib.DEFLATED, 31)
    data, ends = z.compress(header), []
    for r in recs:
        data += z.compress(r) + z.flush(zlib.Z_FULL_FLUSH)
        ends.append(len(data))
    data += z.flush()
    rc, out, err = run(tool, ["dump", write(os.path.join(scratch, "whole.pcap.gz"), data)])
    check(rc == 0, f"the whole compressed capture: status {rc}\n{err}")
    for name, cut, frames in (("at a frame", ends[299], 300), ("in a frame", ends[299] + 40, 300)):
        path = write(os.path.join(scratch, "cut.pcap.gz"), data[:cut])
        rc, out, err = run(tool, ["dump", path])
        check(rc == EXIT_CUT_SHORT, f"gzip cut {name}: status {rc}, expected {EXIT_CUT_SHORT}\n{err}")
        check(f"after frame {frames}," in err, f"gzip cut {name}: the warning names the wrong frame:\n{err}")
        expect_whole(tool, scratch, header, recs[:frames], (rc, out), f"gzip cut {name}")


def stdin_and_gzip(tool, scratch):
    lab = open(LAB, "rb").read()
    rc, want, err = run(tool, ["events", LAB])
    check(rc == 0 and want, f"events of the lab capture: status {rc}\n{err}")
    packed = write(os.path.join(scratch, "lab.pcap.gz"), gzip.compress(lab))
    for what, args, stdin in (("standard input", ["events", "-"], lab),
                              ("a gzip file", ["events", packed], None),
                              ("gzip on standard input", ["events", "-"], gzip.compress(lab))):
        rc, out, err = run(tool, args, stdin=stdin)
        check(rc == 0 and err == "", f"{what}: status {rc}\n{err}")
        check(out == want, f"{what}: the events differ from those of the file")
    rc, out, err = run(tool, ["dump", "-", "-"], stdin=lab)
    check(rc == EXIT_BAD_INPUT and not out, f"'-' twice: status {rc}, {len(out)} octets out")


def empty_name(tool, scratch):
    for args in (["dump", ""], ["dump", LAB, ""], ["stats", ""]):
        rc, out, err = run(tool, args)
        check(rc == EXIT_BAD_INPUT, f"{args}: status {rc}, expected {EXIT_BAD_INPUT}")
        check(not out, f"{args}: something was printed ({len(out)} octets): the built-in capture?")
        check(err.startswith("igp-lsdb: ") and "empty" in err, f"{args}: the message does not say why:\n{err}")


def failed_writes(tool, scratch):
    for args in (["dump", LAB], ["events", LAB], ["stats", "--json", LAB]):
        with open("/dev/full", "wb") as full:
            rc, _, err = run(tool, args, stdout=full)
        check(rc == EXIT_OUTPUT_FAILED, f"{args} > /dev/full: status {rc}, expected {EXIT_OUTPUT_FAILED}\n{err}")
        check("No space left on device" in err, f"{args} > /dev/full: the message does not say why:\n{err}")
    # A reader that went away: a pipe closed before the tool writes.
    r, w = os.pipe()
    os.close(r)
    rc, _, err = run(tool, ["events", LAB], stdout=w)
    os.close(w)
    check(rc == EXIT_OUTPUT_FAILED and "Broken pipe" in err, f"closed pipe: status {rc}\n{err}")


def malformed_flood(tool, scratch):
    # Zero-length records: each one a malformed frame, 16 octets of file apiece.
    header, _ = records(LAB)
    sizes = {}
    for n in (20000, 2000000):
        path = os.path.join(scratch, f"flood-{n}.pcap")
        # Written in pieces: the tool's peak RSS counts what this process holds when it forks.
        with open(path, "wb") as f:
            f.write(header)
            for _ in range(n // 10000):
                f.write(struct.pack("<IIII", 1700000000, 0, 0, 0) * 10000)
        with open(os.path.join(scratch, "out"), "wb") as out, open(os.path.join(scratch, "err"), "wb") as err:
            _, status, usage = os.wait4(subprocess.Popen([tool, "stats", path], stdout=out, stderr=err).pid, 0)
        sizes[n] = usage.ru_maxrss
        check(status == 0, f"{n} malformed frames: status {os.waitstatus_to_exitcode(status)}")
        os.remove(path)
    out = open(os.path.join(scratch, "out"), encoding="utf-8").read()
    err = open(os.path.join(scratch, "err"), encoding="utf-8").read().splitlines()
    print(f"peak RSS: {sizes[20000]} KiB for 20000 malformed frames, {sizes[2000000]} KiB for 2000000")
    check(sizes[2000000] - sizes[20000] < 16 * 1024,
          f"memory grows with malformed frames: {sizes[20000]} KiB, then {sizes[2000000]} KiB")
    check("2000000 malformed link-layer frames (truncated 2000000)" in out, f"not all counted:\n{out}")
    listed = [line for line in err if line.startswith("  ") and not line.startswith("  ...")]
    check(err[0] == "igp-lsdb: 2000000 malformed PDUs ignored, nothing of them merged:", f"{err[:1]}")
    check(len(listed) == 1000 and listed[-1].endswith("frame 1000 (2023-11-14T22:13:20.000000Z): link-layer frame: truncated"),
          f"{len(listed)} frames listed, expected the first 1000")
    check(err[-1] == "  ... 1999000 more not listed; all by reason: frame truncated 2000000", f"{err[-1:]}")


CASES = {"cut-short": cut_short, "cut-short-gzip": cut_short_gzip, "stdin-gzip": stdin_and_gzip,
         "empty-name": empty_name, "failed-writes": failed_writes, "malformed-flood": malformed_flood}

if __name__ == "__main__":
    tool, scratch, case = sys.argv[1:4]
    os.makedirs(scratch, exist_ok=True)
    CASES[case](tool, scratch)
    print(f"{case}: passed")
