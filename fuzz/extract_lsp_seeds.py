#!/usr/bin/env python3
"""Writes the decoder fuzzer's seed corpus from packet captures.

Reads classic libpcap files (linktype 1: 802.3 length, LLC FE FE 03, then the IS-IS PDU), keeps the
LSPs (PDU types 18 and 20, and PDUs whose header is too broken to tell) and writes, in the fuzzer's
input format (a mode byte, then records of a 2-byte big-endian length and the PDU):
  - each distinct LSP on its own;
  - per capture, the first LSPs in capture order as one input (so the keeper sees newer copies,
    other fragments and purges);
  - a few LSPs with one octet changed, so that the corpus starts with PDUs that pass the
    (recomputed) checksum and break a TLV.
The mode byte is 0 (the fuzzer recomputes every checksum), or with --keep-checksums 1 (the fuzzer
decodes the checksums as captured: for captures whose defects include bad checksums).
Files are named after a hash of their contents; --limit bounds the LSPs taken per capture.
"""
import argparse
import hashlib
import pathlib
import struct

# Hellos and sequence-number PDUs; everything else that is IS-IS, malformed headers included, is kept.
OTHER_TYPES = (15, 16, 17, 24, 25, 26, 27)


def pcap_frames(path):
    data = pathlib.Path(path).read_bytes()
    magic = data[:4]
    if magic in (b"\xd4\xc3\xb2\xa1", b"\x4d\x3c\xb2\xa1"):
        endian = "<"
    elif magic in (b"\xa1\xb2\xc3\xd4", b"\xa1\xb2\x3c\x4d"):
        endian = ">"
    else:
        raise SystemExit(f"{path}: not a classic pcap")
    linktype = struct.unpack(endian + "I", data[20:24])[0]
    if linktype != 1:
        raise SystemExit(f"{path}: linktype {linktype}, expected 1 (Ethernet)")
    at = 24
    while at + 16 <= len(data):
        incl = struct.unpack(endian + "I", data[at + 8:at + 12])[0]
        yield data[at + 16:at + 16 + incl]
        at += 16 + incl


def lsp_pdus(path):
    for frame in pcap_frames(path):
        if len(frame) < 17:
            continue
        length = struct.unpack(">H", frame[12:14])[0]
        if length > 1500 or frame[14:17] != b"\xfe\xfe\x03":
            continue
        pdu = frame[17:14 + length]
        if len(pdu) < 5 or pdu[0] != 0x83 or (pdu[4] & 0x1F) not in OTHER_TYPES:
            yield pdu


def record(pdu):
    return struct.pack(">H", len(pdu)) + pdu


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("out", help="corpus directory to write")
    ap.add_argument("pcaps", nargs="+")
    ap.add_argument("--limit", type=int, default=40, help="distinct LSPs taken per capture")
    ap.add_argument("--sequence", type=int, default=12, help="LSPs in each capture's sequence input")
    ap.add_argument("--keep-checksums", action="store_true", help="mode 1: decode checksums as captured")
    args = ap.parse_args()

    out = pathlib.Path(args.out)
    out.mkdir(parents=True, exist_ok=True)
    written = set()

    def write(content):
        name = hashlib.sha1(content).hexdigest()[:16]
        if name not in written:
            (out / name).write_bytes(content)
            written.add(name)

    mode = b"\x01" if args.keep_checksums else b"\x00"
    for path in args.pcaps:
        pdus = list(lsp_pdus(path))
        distinct = list(dict.fromkeys(pdus))[: args.limit]
        for pdu in distinct:
            write(mode + record(pdu))
        write(mode + b"".join(record(p) for p in pdus[: args.sequence]))
        # Each LSP again with the next sequence number: the periodic refresh.
        refreshed = []
        for pdu in pdus[: args.sequence]:
            again = bytearray(pdu)
            if len(again) >= 27:
                again[20:24] = struct.pack(">I", (struct.unpack(">I", pdu[20:24])[0] + 1) & 0xFFFFFFFF)
            refreshed.append(bytes(again))
        write(mode + b"".join(record(p) for p in pdus[: args.sequence] + refreshed))
        for i, pdu in enumerate(distinct[:4]):
            changed = bytearray(pdu)
            at = 27 + (7 * i + 1) % max(1, len(pdu) - 27)
            changed[min(at, len(changed) - 1)] ^= 0x40
            write(mode + record(bytes(changed)))
    print(f"{len(written)} inputs in {out}")


if __name__ == "__main__":
    main()
