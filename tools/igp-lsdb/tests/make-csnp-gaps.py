#!/usr/bin/env python3
"""Derives data/frr-csnp-gaps.pcap from the lab capture committed with the decoder tests, for the
completeness counts of `igp-lsdb stats`. Run once from the repository root; the output is committed:

    python3 tools/igp-lsdb/tests/make-csnp-gaps.py

The lab capture's LSPs and CSNPs (hellos and PSNPs left out, to keep the file small) with two
gaps a receiver could notice only from the CSNPs:
  - every frame carrying the level-2 LSP 0000.0000.0006.00-02 left out, although the CSNPs list it;
  - the last level-2 CSNP sent again one second after the last frame, covering the LSP IDs up to
    0000.0000.0003.ff-ff only, its entries in two LSP entries TLVs, and without its entry for
    0000.0000.0001.02-00: that LSP is held and no longer listed; r6's, out of the range, are not
    the CSNP's to list.
"""
import os
import struct

ROOT = os.path.normpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", ".."))
SOURCE = os.path.join(ROOT, "decoder", "tests", "data", "frr-initial.pcap")
OUTPUT = os.path.join(ROOT, "tools", "igp-lsdb", "tests", "data", "frr-csnp-gaps.pcap")
LLC = 17  # Ethernet header (14) and LLC (3) before the IS-IS PDU
L1_LSP, L2_LSP, L1_CSNP, L2_CSNP = 18, 20, 24, 25
MISSING = bytes.fromhex("0000000000060002")
UNLISTED = bytes.fromhex("0000000000010200")
RANGE_END = bytes.fromhex("000000000003ffff")


def frames(data):
    endian = "<" if struct.unpack("<I", data[:4])[0] == 0xA1B2C3D4 else ">"
    at = 24
    while at < len(data):
        sec, usec, caplen, length = struct.unpack(endian + "IIII", data[at:at + 16])
        yield endian, sec, usec, data[at + 16:at + 16 + caplen]
        at += 16 + caplen


def narrowed(frame):
    """The CSNP `frame` covering LSP IDs up to RANGE_END, without UNLISTED, in two LSP entries TLVs
    (ISO 10589 section 9.10: header of 33 octets, end LSP ID at octets 25 to 32)."""
    pdu = frame[LLC:]
    entries, at = [], pdu[1]
    while at < len(pdu):
        tlv, length = pdu[at], pdu[at + 1]
        if tlv == 9:
            entries += [pdu[e:e + 16] for e in range(at + 2, at + 2 + length, 16)]
        at += 2 + length
    kept = [e for e in entries if e[2:10] <= RANGE_END and e[2:10] != UNLISTED]
    assert len(kept) == len(entries) - 4, "expected r1.02-00 and r6's three fragments to go"
    body = b"".join(bytes([9, 16 * len(part)]) + b"".join(part) for part in (kept[:-1], kept[-1:]))
    out = bytearray(pdu[:33]) + body
    out[25:33] = RANGE_END
    struct.pack_into(">H", out, 8, len(out))
    ethernet = bytearray(frame[:LLC])
    struct.pack_into(">H", ethernet, 12, 3 + len(out))
    return bytes(ethernet + out)


def main():
    with open(SOURCE, "rb") as f:
        data = f.read()
    kept, last_csnp, endian = [], None, "<"
    for endian, sec, usec, frame in frames(data):
        kind = frame[LLC + 4] & 0x1F
        if kind not in (L1_LSP, L2_LSP, L1_CSNP, L2_CSNP):
            continue
        if kind == L2_LSP and frame[LLC + 12:LLC + 20] == MISSING:
            continue
        if kind == L2_CSNP:
            last_csnp = frame
        kept.append((sec, usec, frame))
    sec, usec, _ = kept[-1]
    kept.append((sec + 1, usec, narrowed(last_csnp)))
    with open(OUTPUT, "wb") as f:
        f.write(data[:24])
        for sec, usec, frame in kept:
            f.write(struct.pack(endian + "IIII", sec, usec, len(frame), len(frame)) + frame)
    print(OUTPUT, len(kept), "frames")


if __name__ == "__main__":
    main()
