#!/usr/bin/env python3
"""Derives data/odd-hostnames.pcap from the decoder's crafted multi-topology capture, for the
escaping of the names routers send. Run once from the repository root; the output is committed:

    python3 tools/igp-lsdb/tests/make-odd-hostnames.py

Frames 1 to 4 of crafted-mt.pcap, with the host name (TLV 137) of craft-e (frame 4) replaced by
octets that no text view may print as they are: a line break followed by a forged node line
(naming craft-e itself as a neighbor, which a view must not annotate without end), a NUL, a
backslash, an octet that is not UTF-8 (ff), a C1 control (c2 85), a UTF-16 surrogate (ed a0 80)
and a sequence cut short (e2 82 before a letter), between well-formed UTF-8 (c3 a9, f0 9f 98 80)
that stays as it is. The checksum and the lengths are recomputed.
"""
import importlib.util
import os
import struct

ROOT = os.path.normpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", ".."))
SOURCE = os.path.join(ROOT, "decoder", "tests", "data", "crafted-mt.pcap")
OUTPUT = os.path.join(ROOT, "tools", "igp-lsdb", "tests", "data", "odd-hostnames.pcap")
LLC = 17
NAME = b"e\nnode=0000.0000.0009, ngb=1921.6800.1005 x\x00\\ \xc3\xa9 \xff \xc2\x85 \xed\xa0\x80 \xe2\x82A \xf0\x9f\x98\x80"

# The pcap reading and writing and the LSP checksum of the other captures' generator.
_source = importlib.util.spec_from_file_location(
    "captures", os.path.join(os.path.dirname(os.path.abspath(__file__)), "make-test-captures.py"))
captures = importlib.util.module_from_spec(_source)
_source.loader.exec_module(captures)


def renamed(frame):
    pdu = bytearray(frame[LLC:])
    at = 27  # the LSP header (ISO 10589 section 9.9)
    while at < len(pdu):
        tlv, length = pdu[at], pdu[at + 1]
        if tlv == 137:
            pdu[at:at + 2 + length] = bytes([137, len(NAME)]) + NAME
            break
        at += 2 + length
    else:
        raise SystemExit("no host name TLV")
    struct.pack_into(">H", pdu, 8, len(pdu))
    pdu = captures.with_checksum(pdu)
    ethernet = bytearray(frame[:LLC])
    struct.pack_into(">H", ethernet, 12, 3 + len(pdu))
    return bytes(ethernet) + pdu


def main():
    endian, header, frames = captures.read_pcap(SOURCE)
    records = [(sec, frac, frame) for _, sec, frac, frame in frames[:4]]
    sec, frac, frame = records[3]
    records[3] = (sec, frac, renamed(frame))
    with open(OUTPUT, "wb") as f:
        f.write(captures.pcap_bytes(endian, header, 1, records))
    print(OUTPUT, len(records), "frames")


if __name__ == "__main__":
    main()
