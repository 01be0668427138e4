#!/usr/bin/env python3
"""Writes fuzz seed corpora from the project's captures (from the repository root), each file named
after a hash of its contents; README.md says what each corpus holds.

    python3 fuzz/seeds.py capture OUT
    python3 fuzz/seeds.py decoder OUT PCAP... [--limit N] [--sequence N] [--keep-checksums]
"""
import argparse
import gzip
import hashlib
import os
import struct

DECODER = os.path.join("decoder", "tests", "data")
TOOL = os.path.join("tools", "igp-lsdb", "tests", "data")
NOT_LSPS = (15, 16, 17, 24, 25, 26, 27)  # hellos and sequence-number PDUs


def pcap_records(data):
    """The (offset, end) of each record of a classic pcap, and its endianness."""
    endian = {b"\xd4\xc3\xb2\xa1": "<", b"\x4d\x3c\xb2\xa1": "<", b"\xa1\xb2\xc3\xd4": ">",
              b"\xa1\xb2\x3c\x4d": ">"}[data[:4]]
    out, at = [], 24
    while at + 16 <= len(data):
        end = at + 16 + struct.unpack(endian + "I", data[at + 8:at + 12])[0]
        out.append((at + 16, end))
        at = end
    return out, endian


def first_blocks(data, n):
    at = 0
    for _ in range(n):
        at += struct.unpack("<I", data[at + 4:at + 8])[0]
    return data[:at]


def write(out, content):
    with open(os.path.join(out, hashlib.sha1(content).hexdigest()[:16]), "wb") as f:
        f.write(content)


def capture_seeds(out):
    read = lambda *p: open(os.path.join(*p), "rb").read()
    head = lambda data, n: data[:pcap_records(data)[0][n - 1][1]]  # the header and n records
    captures = [read(DECODER, name) for name in ("crafted-invalid.pcap", "crafted-mt.pcap", "crafted-sr-te.pcap")]
    captures += [head(read(DECODER, "frr-initial.pcap"), 12), head(read(TOOL, "frr-lsps-sll.pcap"), 6),
                 head(read(TOOL, "frr-lsps-sll2.pcap"), 6), first_blocks(read(TOOL, "frr-lsps-vlan.pcapng"), 8)]
    captures += [gzip.compress(captures[2], mtime=0), gzip.compress(captures[-1], mtime=0)]
    for capture in captures:
        write(out, b"\x80" + capture)


def lsp_pdus(path):
    data = open(path, "rb").read()
    records, endian = pcap_records(data)
    assert struct.unpack(endian + "I", data[20:24])[0] == 1, f"{path}: not Ethernet"
    for start, end in records:
        frame = data[start:end]
        length = struct.unpack(">H", frame[12:14])[0] if len(frame) >= 17 else 9999
        pdu = frame[17:14 + length]
        if length <= 1500 and frame[14:17] == b"\xfe\xfe\x03" and (
                len(pdu) < 5 or pdu[0] != 0x83 or (pdu[4] & 0x1F) not in NOT_LSPS):
            yield pdu


def decoder_seeds(args):
    record = lambda pdu: struct.pack(">H", len(pdu)) + pdu
    mode = b"\x01" if args.keep_checksums else b"\x00"
    for path in args.pcaps:
        pdus = list(lsp_pdus(path))
        distinct = list(dict.fromkeys(pdus))[:args.limit]
        first = pdus[:args.sequence]
        refreshed = [p[:20] + struct.pack(">I", (struct.unpack(">I", p[20:24])[0] + 1) & 0xFFFFFFFF) + p[24:]
                     if len(p) >= 27 else p for p in first]
        for content in [record(p) for p in distinct] + [b"".join(map(record, first)),
                                                          b"".join(map(record, first + refreshed))]:
            write(args.out, mode + content)
        for i, pdu in enumerate(distinct[:4]):
            changed = bytearray(pdu)
            changed[min(27 + (7 * i + 1) % max(1, len(pdu) - 27), len(changed) - 1)] ^= 0x40
            write(args.out, mode + record(bytes(changed)))


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("target", choices=("capture", "decoder"))
    ap.add_argument("out")
    ap.add_argument("pcaps", nargs="*")
    ap.add_argument("--limit", type=int, default=40, help="distinct LSPs taken per capture")
    ap.add_argument("--sequence", type=int, default=12, help="LSPs in each capture's sequence input")
    ap.add_argument("--keep-checksums", action="store_true", help="mode 1: decode checksums as captured")
    args = ap.parse_args()
    os.makedirs(args.out, exist_ok=True)
    capture_seeds(args.out) if args.target == "capture" else decoder_seeds(args)


if __name__ == "__main__":
    main()
