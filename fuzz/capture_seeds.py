#!/usr/bin/env python3
"""Writes the capture target's seeds: small captures of every kind the tool reads, each after one
octet that cuts the file at half its length.

    python3 fuzz/capture_seeds.py fuzz/corpus/capture      (from the repository root)
"""
import gzip
import hashlib
import os
import struct
import sys

DECODER = os.path.join("decoder", "tests", "data")
TOOL = os.path.join("tools", "igp-lsdb", "tests", "data")


def first_records(path, n):
    """A classic pcap's header and its first n records."""
    data = open(path, "rb").read()
    at = 24
    for _ in range(n):
        if at + 16 > len(data):
            break
        at += 16 + struct.unpack("<I", data[at + 8:at + 12])[0]
    return data[:at]


def first_blocks(path, n):
    """A pcapng's first n blocks (section header and interface description among them)."""
    data = open(path, "rb").read()
    at = 0
    for _ in range(n):
        at += struct.unpack("<I", data[at + 4:at + 8])[0]
    return data[:at]


def main(out):
    os.makedirs(out, exist_ok=True)
    captures = [open(os.path.join(DECODER, name), "rb").read()
                for name in ("crafted-invalid.pcap", "crafted-mt.pcap", "crafted-sr-te.pcap")]
    captures += [first_records(os.path.join(DECODER, "frr-initial.pcap"), 12),
                 first_records(os.path.join(TOOL, "frr-lsps-sll.pcap"), 6),
                 first_records(os.path.join(TOOL, "frr-lsps-sll2.pcap"), 6),
                 first_blocks(os.path.join(TOOL, "frr-lsps-vlan.pcapng"), 8)]
    captures += [gzip.compress(captures[2], mtime=0), gzip.compress(captures[-1], mtime=0)]
    for capture in captures:
        seed = b"\x80" + capture
        with open(os.path.join(out, hashlib.sha1(seed).hexdigest()[:16]), "wb") as f:
            f.write(seed)
    print(f"{len(captures)} seeds in {out}")


if __name__ == "__main__":
    main(sys.argv[1])
