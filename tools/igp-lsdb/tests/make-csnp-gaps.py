#!/usr/bin/env python3
"""Derives data/frr-csnp-gaps.pcap from the lab capture committed with the decoder tests, for the
completeness counts of `igp-lsdb stats`. Run once from the repository root; the output is committed:

    python3 tools/igp-lsdb/tests/make-csnp-gaps.py

The lab capture with two gaps a receiver could notice only from the CSNPs:
  - every frame carrying the level-2 LSP 0000.0000.0006.00-02 left out, although the CSNPs list it;
  - the last level-2 CSNP sent again one second after the last frame, without its entry for
    0000.0000.0001.02-00 (its authentication TLV is left as it was, and no longer verifies).
"""
import os
import struct

ROOT = os.path.normpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", ".."))
SOURCE = os.path.join(ROOT, "decoder", "tests", "data", "frr-initial.pcap")
OUTPUT = os.path.join(ROOT, "tools", "igp-lsdb", "tests", "data", "frr-csnp-gaps.pcap")
LLC = 17  # Ethernet header (14) and LLC (3) before the IS-IS PDU
L2_LSP, L2_CSNP = 20, 25
MISSING = bytes.fromhex("0000000000060002")
UNLISTED = bytes.fromhex("0000000000010200")


def frames(data):
    endian = "<" if struct.unpack("<I", data[:4])[0] == 0xA1B2C3D4 else ">"
    at = 24
    while at < len(data):
        sec, usec, caplen, length = struct.unpack(endian + "IIII", data[at:at + 16])
        yield endian, sec, usec, data[at + 16:at + 16 + caplen]
        at += 16 + caplen


def without_entry(frame, lsp_id):
    pdu = bytearray(frame[LLC:])
    at = pdu[1]
    while at < len(pdu):
        tlv, length = pdu[at], pdu[at + 1]
        if tlv == 9:
            for e in range(at + 2, at + 2 + length, 16):
                if pdu[e + 2:e + 10] == lsp_id:
                    del pdu[e:e + 16]
                    pdu[at + 1] -= 16
                    struct.pack_into(">H", pdu, 8, struct.unpack(">H", pdu[8:10])[0] - 16)
                    out = bytearray(frame[:LLC]) + pdu
                    struct.pack_into(">H", out, 12, struct.unpack(">H", out[12:14])[0] - 16)
                    return bytes(out)
        at += 2 + length
    raise SystemExit("the CSNP does not list " + lsp_id.hex())


def main():
    with open(SOURCE, "rb") as f:
        data = f.read()
    kept, last_csnp, endian = [], None, "<"
    for endian, sec, usec, frame in frames(data):
        kind = frame[LLC + 4] & 0x1F
        if kind == L2_LSP and frame[LLC + 12:LLC + 20] == MISSING:
            continue
        if kind == L2_CSNP:
            last_csnp = frame
        kept.append((sec, usec, frame))
    sec, usec, _ = kept[-1]
    kept.append((sec + 1, usec, without_entry(last_csnp, UNLISTED)))
    with open(OUTPUT, "wb") as f:
        f.write(data[:24])
        for sec, usec, frame in kept:
            f.write(struct.pack(endian + "IIII", sec, usec, len(frame), len(frame)) + frame)
    print(OUTPUT, len(kept), "frames")


if __name__ == "__main__":
    main()
