#!/usr/bin/env python3
"""Derives the tool's test captures from the decoder tests' (run once, outputs committed; data/README.md
says what each holds):  python3 tools/igp-lsdb/tests/make-test-captures.py"""
import os
import struct

EARLY_FRAMES = 250
ROOT = os.path.normpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", ".."))
DECODER_DATA = os.path.join(ROOT, "decoder", "tests", "data")
TOOL = os.path.join(ROOT, "tools", "igp-lsdb")
HOSTILE_NAME = (b"r1\x00cut\n  node=0000.0000.0099.00, flags=<>, hostname=forged\r\x1b[2J"
                b"\\x41\xff\xc3\xa9\xc2\x85\xe2\x82\xac\xe2\x82A\xe0\x80\x80\xed\xa0\x80\xf0\x9f\x98\x80"
                b"\xf4\x90\x80\x80\xf0\x8f\xbf\xbf")
ODD_NAME = (b"e\nnode=0000.0000.0009, ngb=1921.6800.1005 x\x00\\ \xc3\xa9 \xff \xc2\x85 \xed\xa0\x80 \xe2\x82A "
            b"\xf0\x9f\x98\x80")


def read_pcap(name):
    """(endian, file header, [(frame number, seconds, fraction, frame)]) of an Ethernet pcap."""
    data = open(os.path.join(DECODER_DATA, name), "rb").read()
    endian = "<" if struct.unpack("<I", data[:4])[0] in (0xA1B2C3D4, 0xA1B23C4D) else ">"
    assert struct.unpack(endian + "I", data[20:24])[0] == 1, "expected Ethernet"
    frames, at = [], 24
    while at + 16 <= len(data):
        sec, frac, caplen, _ = struct.unpack(endian + "IIII", data[at:at + 16])
        frames.append((len(frames) + 1, sec, frac, data[at + 16:at + 16 + caplen]))
        at += 16 + caplen
    return endian, data[:24], frames


def pcap_bytes(endian, header, records, linktype=1):
    out = bytearray(header[:20] + struct.pack(endian + "I", linktype))
    for sec, frac, frame in records:
        out += struct.pack(endian + "IIII", sec, frac, len(frame), len(frame)) + frame
    return bytes(out)


def pcapng_bytes(records):
    def block(kind, body):
        body += b"\0" * (-len(body) % 4)
        return struct.pack("<II", kind, 12 + len(body)) + body + struct.pack("<I", 12 + len(body))
    out = block(0x0A0D0D0A, struct.pack("<IHHq", 0x1A2B3C4D, 1, 0, -1)) + block(1, struct.pack("<HHI", 1, 0, 0))
    for sec, frac, frame in records:  # microsecond timestamps, the interface's default
        ts = sec * 1000000 + frac
        out += block(6, struct.pack("<IIIII", 0, ts >> 32, ts & 0xFFFFFFFF, len(frame), len(frame)) + frame)
    return out


def kind(frame):  # the IS-IS PDU type of an 802.3/LLC frame, else None
    ok = len(frame) >= 22 and frame[14:17] == b"\xfe\xfe\x03" and frame[17] == 0x83
    return frame[21] & 0x1F if ok else None


def with_pdu(frame, pdu):
    return frame[:12] + struct.pack(">H", 3 + len(pdu)) + b"\xfe\xfe\x03" + pdu


def with_checksum(pdu, newer=0):
    """The sequence number `newer` higher, the ISO 10589 7.3.11 checksum filled (octets 24-25)."""
    pdu = bytearray(pdu)
    pdu[20:24] = struct.pack(">I", struct.unpack(">I", pdu[20:24])[0] + newer)
    pdu[24:26] = b"\0\0"
    c0 = c1 = 0
    for b in pdu[12:]:
        c0 = (c0 + b) % 255
        c1 = (c1 + c0) % 255
    length = len(pdu) - 12
    pdu[24] = ((length - 13) * c0 - c1) % 255 or 255
    pdu[25] = (c1 - (length - 12) * c0) % 255 or 255
    return bytes(pdu)


def purge(level, lsp_id, seq):  # as ISO 10589 7.3.16.4 sends it: the header alone, remaining lifetime 0
    pdu = struct.pack(">BBBBBBBBHH8sIHB", 0x83, 27, 1, 0, 16 + 2 * level, 1, 0, 0, 27, 0, bytes.fromhex(lsp_id),
                      seq, 0, 0x03)
    return with_pdu(bytes.fromhex("0180c200001" + "45"[level - 1] + "020000000004"), pdu)


def with_hostname(frame, name, newer=1):  # the LSP with its dynamic host name TLV (137) holding `name`
    pdu = bytearray(frame[17:17 + struct.unpack(">H", frame[12:14])[0] - 3])
    at = 27
    while at + 2 <= len(pdu) and pdu[at] != 137:
        at += 2 + pdu[at + 1]
    assert at + 2 <= len(pdu), "no host name TLV"
    pdu[at:at + 2 + pdu[at + 1]] = bytes([137, len(name)]) + name
    pdu[8:10] = struct.pack(">H", len(pdu))
    return with_pdu(frame, with_checksum(pdu, newer))


def replaced(frame, old, new):  # the LSP again, one sequence number later, `old` octets (hex) now `new`
    return frame[:17] + with_checksum(frame[17:].replace(bytes.fromhex(old), bytes.fromhex(new)), 1)


def narrowed_csnp(frame, range_end, unlisted):
    """The CSNP up to `range_end` without `unlisted`, in two TLVs 9 (ISO 10589 9.10: end LSP ID at 25-32)."""
    pdu, entries, at = frame[17:], [], frame[18]
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


def main():
    endian, header, frames = read_pcap("frr-initial.pcap")
    lsps = [(n, s, f, fr, kind(fr) // 2 - 8) for n, s, f, fr in frames if kind(fr) in (18, 20)]
    plain = [(s, f, fr) for _, s, f, fr, _ in lsps]
    delay = [r for r in plain if bytes.fromhex("2104000005dc") in r[2]][-1]
    r1 = bytes.fromhex("0000000000010000")
    csnps = [(s, f, fr) for n, s, f, fr in frames if kind(fr) in (18, 20, 24, 25)
             and not (kind(fr) == 20 and fr[29:37] == bytes.fromhex("0000000000060002"))]
    last_csnp = [fr for _, _, fr in csnps if kind(fr) == 25][-1]
    csnps.append((csnps[-1][0] + 1, csnps[-1][1],
                  narrowed_csnp(last_csnp, bytes.fromhex("000000000003ffff"), bytes.fromhex("0000000000010200"))))
    mt_endian, mt_header, mt = read_pcap("crafted-mt.pcap")
    te_endian, te_header, te = read_pcap("crafted-sr-te.pcap")
    outputs = {
        "../../data/frr-initial-lsps.pcap": pcap_bytes(endian, header, plain),
        "frr-lsps-sll.pcap": pcap_bytes(endian, header, [  # packet type 2, ARPHRD_ETHER, address, ETH_P_802_2
            (s, f, struct.pack(">HHH8sH", 2, 1, 6, fr[6:12] + b"\0\0", 4) + fr[14:]) for s, f, fr in plain], 113),
        "frr-lsps-sll2.pcap": pcap_bytes(endian, header, [  # ETH_P_802_2, interface 3, ARPHRD_ETHER, type 2
            (s, f, struct.pack(">HHIHBB8s", 4, 0, 3, 1, 2, 6, fr[6:12] + b"\0\0") + fr[14:]) for s, f, fr in plain], 276),
        "frr-lsps-vlan.pcapng": pcapng_bytes([(s, f, fr[:12] + (
            struct.pack(">HH", 0x8100, 10) if lvl == 1 else struct.pack(">HHHH", 0x88A8, 100, 0x8100, 20)) + fr[12:])
            for _, s, f, fr, lvl in lsps]),
        "frr-early.pcap": pcap_bytes(endian, header, [(s, f, fr) for n, s, f, fr, _ in lsps if n <= EARLY_FRAMES]),
        "frr-purges.pcap": pcap_bytes(endian, header, plain + [(lsps[-1][1] + 1, 0, purge(1, "0000000000040000", 4)),
                                                               (lsps[-1][1] + 2, 0, purge(2, "0000000000060002", 2))]),
        "hostile-hostname.pcap": pcap_bytes(endian, header, [
            (s, f, with_hostname(fr, HOSTILE_NAME) if lvl == 2 and fr[29:37] == r1 else fr) for _, s, f, fr, lvl in lsps]),
        "frr-delay.pcap": pcap_bytes(endian, header, [  # RFC 8570 sub-TLV 33
            (delay[0] + 1, delay[1], replaced(delay[2], "2104000005dc", "2104800007d0"))]),
        "frr-csnp-gaps.pcap": pcap_bytes(endian, header, csnps),
        "odd-hostnames.pcap": pcap_bytes(mt_endian, mt_header, [
            (s, f, with_hostname(fr, ODD_NAME, 0) if n == 4 else fr) for n, s, f, fr in mt[:4]]),
        "sr-te-fapm.pcap": pcap_bytes(te_endian, te_header, [  # flex-algo prefix metric sub-TLV, algorithm 128
            (s, f, replaced(fr, "060580000001f4", "06058000000258") if n == 3 else fr) for n, s, f, fr in te]),
    }
    for name, data in outputs.items():
        open(os.path.normpath(os.path.join(TOOL, "tests", "data", name)), "wb").write(data)


if __name__ == "__main__":
    main()
