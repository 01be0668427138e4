#!/usr/bin/env python3
"""Derives the tool's test captures from the lab capture committed with the decoder tests.

Run once; the outputs are committed:  python3 tools/igp-lsdb/tests/make-test-captures.py

Every output carries the lab's own LSP bytes; only the link-layer wrapping changes:
  data/frr-initial-lsps.pcap        the 133 LSP frames, as captured (the built-in capture)
  tests/data/frr-lsps-sll.pcap      the same LSPs as Linux cooked frames (SLL, linktype 113)
  tests/data/frr-lsps-sll2.pcap     the same LSPs as Linux cooked v2 frames (SLL2, linktype 276)
  tests/data/frr-lsps-vlan.pcapng   pcapng; level-1 LSPs under one 802.1Q tag, level-2 LSPs under
                                    two stacked tags (802.1ad outer, 802.1Q inner)
  tests/data/frr-early.pcap         the LSP frames among the capture's first EARLY_FRAMES frames:
                                    the lab before it converged, the "before" side of diff tests
  tests/data/frr-purges.pcap        the 133 LSP frames, then purges (header-only LSPs, lifetime 0,
                                    a newer sequence number) of r4's level-1 LSP and of fragment 2
                                    of r6's level-2 LSP: a node that goes away and one that shrinks
  tests/data/frr-delay.pcap         the last LSP of the capture that carries the 1500 us link delay,
                                    sent again (sequence number one higher) with 2000 us, anomalous
  tests/data/sr-te-fapm.pcap        crafted-sr-te.pcap with fragment 2 sent again (sequence number 2)
                                    with the flex-algo 128 prefix metric of 192.0.2.1/32 at 600, not 500
  tests/data/frr-csnp-gaps.pcap     the LSPs and CSNPs with two gaps only the CSNPs show: the level-2
                                    LSP 0000.0000.0006.00-02 left out though listed, and the last
                                    level-2 CSNP sent again a second later covering LSP IDs up to
                                    0000.0000.0003.ff-ff in two TLVs, without 0000.0000.0001.02-00
  tests/data/odd-hostnames.pcap     frames 1-4 of crafted-mt.pcap, craft-e's host name replaced by
                                    ODD_NAME: a forged node line naming craft-e as a neighbor, a NUL,
                                    a backslash, ff, a C1 control, a surrogate, a cut sequence
  tests/data/hostile-hostname.pcap  the 133 LSP frames, r1's level-2 host name (TLV 137) replaced by
                                    HOSTILE_NAME: a NUL, a line break that starts a forged node line,
                                    a terminal escape, a backslash, a C1 control, valid UTF-8 of two
                                    to four octets, and invalid UTF-8 (a stray octet, a sequence cut
                                    short, an overlong form, a surrogate, a code point past U+10FFFF)
"""
import os
import struct
import sys

EARLY_FRAMES = 250
ROOT = os.path.normpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", ".."))
SOURCE = os.path.join(ROOT, "decoder", "tests", "data", "frr-initial.pcap")
SR_TE = os.path.join(ROOT, "decoder", "tests", "data", "crafted-sr-te.pcap")
MT = os.path.join(ROOT, "decoder", "tests", "data", "crafted-mt.pcap")
TOOL = os.path.join(ROOT, "tools", "igp-lsdb")


def read_pcap(path):
    with open(path, "rb") as f:
        data = f.read()
    magic = struct.unpack("<I", data[:4])[0]
    endian = "<" if magic in (0xA1B2C3D4, 0xA1B23C4D) else ">"
    header = data[:24]
    linktype = struct.unpack(endian + "I", data[20:24])[0]
    assert linktype == 1, "expected Ethernet"
    frames, at, number = [], 24, 0
    while at + 16 <= len(data):
        sec, frac, caplen, origlen = struct.unpack(endian + "IIII", data[at:at + 16])
        at += 16
        number += 1
        frames.append((number, sec, frac, data[at:at + caplen]))
        at += caplen
    return endian, header, frames


def lsp_level(frame):
    """1 or 2 for an 802.3/LLC IS-IS LSP frame, else None."""
    if len(frame) < 22 or frame[14:17] != b"\xfe\xfe\x03" or frame[17] != 0x83:
        return None
    return {18: 1, 20: 2}.get(frame[21] & 0x1F)


def pcap_bytes(endian, header, linktype, records):
    out = bytearray(header[:20] + struct.pack(endian + "I", linktype))
    for sec, frac, frame in records:
        out += struct.pack(endian + "IIII", sec, frac, len(frame), len(frame)) + frame
    return bytes(out)


def sll(frame):
    # packet type 2 (multicast), ARPHRD_ETHER, 6-octet source address, ETH_P_802_2; then LLC onwards.
    return struct.pack(">HHH8sH", 2, 1, 6, frame[6:12] + b"\0\0", 0x0004) + frame[14:]


def sll2(frame):
    # ETH_P_802_2, reserved, interface index 3, ARPHRD_ETHER, packet type 2, address.
    return struct.pack(">HHIHBB8s", 0x0004, 0, 3, 1, 2, 6, frame[6:12] + b"\0\0") + frame[14:]


def tagged(frame, level):
    tags = struct.pack(">HH", 0x8100, 10) if level == 1 else struct.pack(">HHHH", 0x88A8, 100, 0x8100, 20)
    return frame[:12] + tags + frame[12:]


def pcapng_bytes(linktype, records):
    def block(kind, body):
        body += b"\0" * (-len(body) % 4)
        length = 12 + len(body)
        return struct.pack("<II", kind, length) + body + struct.pack("<I", length)

    out = bytearray(block(0x0A0D0D0A, struct.pack("<IHHq", 0x1A2B3C4D, 1, 0, -1)))
    out += block(1, struct.pack("<HHI", linktype, 0, 0))  # microsecond timestamps by default
    for sec, frac, frame in records:
        ts = sec * 1000000 + frac  # microseconds, like the source
        out += block(6, struct.pack("<IIIII", 0, ts >> 32, ts & 0xFFFFFFFF, len(frame), len(frame)) + frame)
    return bytes(out)


def purge(level, lsp_id, seq):
    """A purge as ISO 10589 7.3.16.4 sends it: the header alone, remaining lifetime 0."""
    pdu = struct.pack(">BBBBBBBBHH8sIHB", 0x83, 27, 1, 0, 18 if level == 1 else 20, 1, 0, 0, 27, 0,
                      lsp_id, seq, 0, 0x03)
    dst = bytes.fromhex("0180c2000014" if level == 1 else "0180c2000015")
    return dst + bytes.fromhex("020000000004") + struct.pack(">H", 3 + len(pdu)) + b"\xfe\xfe\x03" + pdu


def with_checksum(pdu):
    """Fills the ISO 10589 7.3.11 checksum (octets 24-25), summed from the LSP ID to the end."""
    pdu = bytearray(pdu)
    pdu[24:26] = b"\0\0"
    c0 = c1 = 0
    for b in pdu[12:]:
        c0 = (c0 + b) % 255
        c1 = (c1 + c0) % 255
    length, pos = len(pdu) - 12, 13
    x = ((length - pos) * c0 - c1) % 255 or 255
    y = (c1 - (length - pos + 1) * c0) % 255 or 255
    pdu[24], pdu[25] = x, y
    return bytes(pdu)


def fapm_changed(frame):
    """Fragment 2 of craft-a again, one sequence number later, its flex-algo prefix metric at 600."""
    sub_tlv = bytes.fromhex("060580000001f4")  # flex-algo prefix metric: algorithm 128, metric 500
    at = frame.index(sub_tlv)
    pdu = bytearray(frame[17:])
    at -= 17
    pdu[at + 3:at + 7] = struct.pack(">I", 600)
    pdu[20:24] = struct.pack(">I", struct.unpack(">I", pdu[20:24])[0] + 1)
    return frame[:17] + with_checksum(pdu)


HOSTILE_NAME = (b"r1\x00cut\n  node=0000.0000.0099.00, flags=<>, hostname=forged\r\x1b[2J"
                b"\\x41\xff\xc3\xa9\xc2\x85\xe2\x82\xac\xe2\x82A\xe0\x80\x80\xed\xa0\x80\xf0\x9f\x98\x80"
                b"\xf4\x90\x80\x80\xf0\x8f\xbf\xbf")


ODD_NAME = (b"e\nnode=0000.0000.0009, ngb=1921.6800.1005 x\x00\\ \xc3\xa9 \xff \xc2\x85 \xed\xa0\x80 \xe2\x82A "
            b"\xf0\x9f\x98\x80")


def with_pdu(frame, pdu):
    return frame[:12] + struct.pack(">H", 3 + len(pdu)) + b"\xfe\xfe\x03" + pdu


def with_hostname(frame, name, newer=True):
    """The LSP of an 802.3/LLC frame with its dynamic host name TLV (137) holding `name`."""
    pdu = bytearray(frame[17:17 + struct.unpack(">H", frame[12:14])[0] - 3])
    at = 27
    while at + 2 <= len(pdu) and pdu[at] != 137:
        at += 2 + pdu[at + 1]
    assert at + 2 <= len(pdu), "no host name TLV"
    pdu[at:at + 2 + pdu[at + 1]] = bytes([137, len(name)]) + name
    pdu[8:10] = struct.pack(">H", len(pdu))
    pdu[20:24] = struct.pack(">I", struct.unpack(">I", pdu[20:24])[0] + newer)
    return with_pdu(frame, with_checksum(pdu))


def narrowed_csnp(frame, range_end, unlisted):
    """The CSNP covering LSP IDs up to `range_end`, without `unlisted`, in two LSP entries TLVs
    (ISO 10589 9.10: a 33-octet header, the end LSP ID at octets 25 to 32)."""
    pdu, entries = frame[17:], []
    at = pdu[1]
    while at < len(pdu):
        if pdu[at] == 9:
            entries += [pdu[e:e + 16] for e in range(at + 2, at + 2 + pdu[at + 1], 16)]
        at += 2 + pdu[at + 1]
    kept = [e for e in entries if e[2:10] <= range_end and e[2:10] != unlisted]
    assert len(kept) == len(entries) - 4, "expected r1.02-00 and r6's three fragments to go"
    out = bytearray(pdu[:33]) + b"".join(bytes([9, 16 * len(p)]) + b"".join(p) for p in (kept[:-1], kept[-1:]))
    out[25:33] = range_end
    struct.pack_into(">H", out, 8, len(out))
    return with_pdu(frame, bytes(out))


def delay_changed(frame):
    """The LSP again, one sequence number later, each 1500 us link delay (RFC 8570 sub-TLV 33) now
    2000 us with the anomalous bit set."""
    pdu = bytearray(frame[17:].replace(bytes.fromhex("2104000005dc"), bytes.fromhex("2104800007d0")))
    pdu[20:24] = struct.pack(">I", struct.unpack(">I", pdu[20:24])[0] + 1)
    return frame[:17] + with_checksum(pdu)


def main():
    endian, header, frames = read_pcap(SOURCE)
    lsps = [(n, s, f, fr, lsp_level(fr)) for n, s, f, fr in frames if lsp_level(fr)]
    outputs = {
        os.path.join(TOOL, "data", "frr-initial-lsps.pcap"):
            pcap_bytes(endian, header, 1, [(s, f, fr) for _, s, f, fr, _ in lsps]),
        os.path.join(TOOL, "tests", "data", "frr-lsps-sll.pcap"):
            pcap_bytes(endian, header, 113, [(s, f, sll(fr)) for _, s, f, fr, _ in lsps]),
        os.path.join(TOOL, "tests", "data", "frr-lsps-sll2.pcap"):
            pcap_bytes(endian, header, 276, [(s, f, sll2(fr)) for _, s, f, fr, _ in lsps]),
        os.path.join(TOOL, "tests", "data", "frr-lsps-vlan.pcapng"):
            pcapng_bytes(1, [(s, f, tagged(fr, lvl)) for _, s, f, fr, lvl in lsps]),
        os.path.join(TOOL, "tests", "data", "frr-early.pcap"):
            pcap_bytes(endian, header, 1, [(s, f, fr) for n, s, f, fr, _ in lsps if n <= EARLY_FRAMES]),
        os.path.join(TOOL, "tests", "data", "frr-purges.pcap"):
            pcap_bytes(endian, header, 1, [(s, f, fr) for _, s, f, fr, _ in lsps] + [
                (lsps[-1][1] + 1, 0, purge(1, bytes.fromhex("0000000000040000"), 4)),
                (lsps[-1][1] + 2, 0, purge(2, bytes.fromhex("0000000000060002"), 2)),
            ]),
    }
    r1 = bytes.fromhex("0000000000010000")
    outputs[os.path.join(TOOL, "tests", "data", "hostile-hostname.pcap")] = pcap_bytes(
        endian, header, 1, [(s, f, with_hostname(fr, HOSTILE_NAME) if lvl == 2 and fr[29:37] == r1 else fr)
                            for _, s, f, fr, lvl in lsps])
    with_delay = [(s, f, fr) for _, s, f, fr, _ in lsps if bytes.fromhex("2104000005dc") in fr][-1]
    outputs[os.path.join(TOOL, "tests", "data", "frr-delay.pcap")] = pcap_bytes(
        endian, header, 1, [(with_delay[0] + 1, with_delay[1], delay_changed(with_delay[2]))])
    missing = bytes.fromhex("0000000000060002")
    kept = [(s, f, fr) for _, s, f, fr in frames if fr[14:17] == b"\xfe\xfe\x03" and fr[21] & 0x1F in (18, 20, 24, 25)
            and not (fr[21] & 0x1F == 20 and fr[29:37] == missing)]
    last_csnp = [fr for _, _, fr in kept if fr[21] & 0x1F == 25][-1]
    kept.append((kept[-1][0] + 1, kept[-1][1], narrowed_csnp(last_csnp, bytes.fromhex("000000000003ffff"),
                                                             bytes.fromhex("0000000000010200"))))
    outputs[os.path.join(TOOL, "tests", "data", "frr-csnp-gaps.pcap")] = pcap_bytes(endian, header, 1, kept)
    endian2, header2, mt = read_pcap(MT)
    outputs[os.path.join(TOOL, "tests", "data", "odd-hostnames.pcap")] = pcap_bytes(
        endian2, header2, 1, [(s, f, with_hostname(fr, ODD_NAME, False) if n == 4 else fr) for n, s, f, fr in mt[:4]])
    endian2, header2, sr_te = read_pcap(SR_TE)
    outputs[os.path.join(TOOL, "tests", "data", "sr-te-fapm.pcap")] = pcap_bytes(
        endian2, header2, 1, [(s, f, fapm_changed(fr) if n == 3 else fr) for n, s, f, fr in sr_te])
    for path, data in outputs.items():
        with open(path, "wb") as f:
            f.write(data)
        print(f"{os.path.relpath(path, ROOT)}: {len(data)} bytes")
    print(f"{len(lsps)} LSP frames of {len(frames)}, {sum(1 for l in lsps if l[0] <= EARLY_FRAMES)} early")
    return 0


if __name__ == "__main__":
    sys.exit(main())
