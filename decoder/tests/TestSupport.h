// Test-only helpers: an LSP builder that fills lengths and the checksum, and
// a reader of classic libpcap files carrying IS-IS over 802.3/LLC.
#pragma once

#include <cstdint>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "IsisDecoder/Decoder.h"

namespace DecoderTest {

using Bytes = std::vector<std::uint8_t>;

/// A file of the tests' data folder.
inline std::string dataPath(const std::string& name) {
    return std::string(IGPDECODER_TESTDATA) + "/" + name;
}

inline std::string readText(const std::string& path) {
    std::ifstream in(path);
    if (!in) {
        throw std::runtime_error("cannot open " + path);
    }
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

// Appends big-endian fields; chainable so a TLV reads like its layout.
class Enc {
public:
    Enc() = default;
    Enc(std::initializer_list<std::uint8_t> b) : b_(b) {}
    Enc& u8(unsigned v) {
        b_.push_back(static_cast<std::uint8_t>(v));
        return *this;
    }
    Enc& u16(unsigned v) { return u8(v >> 8).u8(v); }
    Enc& u24(std::uint32_t v) { return u8(v >> 16).u8(v >> 8).u8(v); }
    Enc& u32(std::uint32_t v) { return u8(v >> 24).u8(v >> 16).u8(v >> 8).u8(v); }
    Enc& raw(const Bytes& v) {
        b_.insert(b_.end(), v.begin(), v.end());
        return *this;
    }
    Enc& raw(std::initializer_list<std::uint8_t> v) {
        b_.insert(b_.end(), v.begin(), v.end());
        return *this;
    }
    Enc& raw(const Enc& v) { return raw(v.b_); }
    // A TLV or sub-TLV: type, length of `value`, value.
    Enc& tlv(unsigned type, const Enc& value) {
        return u8(type).u8(static_cast<unsigned>(value.size())).raw(value);
    }
    std::size_t size() const { return b_.size(); }
    const Bytes& bytes() const { return b_; }

private:
    Bytes b_;
};

struct LspFields {
    unsigned level = 2;
    std::uint8_t sys = 0x01;  // last octet of the system ID 1921.6800.10xx
    std::uint8_t pseudonode = 0;
    std::uint8_t fragment = 0;
    std::uint32_t seq = 1;
    std::uint16_t lifetime = 1199;
    std::uint8_t flags = 0x03;
};

inline Bytes buildLsp(const LspFields& f, const Enc& tlvs) {
    Enc e{0x83, 27, 1, 6, static_cast<std::uint8_t>(f.level == 1 ? 18 : 20), 1, 0, 0};
    e.u16(0).u16(f.lifetime).raw({0x19, 0x21, 0x68, 0x00, 0x10, f.sys, f.pseudonode, f.fragment});
    e.u32(f.seq).u16(0).u8(f.flags).raw(tlvs);
    Bytes pdu = e.bytes();
    pdu[8] = static_cast<std::uint8_t>(pdu.size() >> 8);
    pdu[9] = static_cast<std::uint8_t>(pdu.size());
    Routing::IsisDecoder::fillLspChecksum(pdu);
    return pdu;
}

inline Bytes buildLsp(const Enc& tlvs) {
    return buildLsp(LspFields{}, tlvs);
}

struct Frame {
    unsigned number;  // 1-based, as tshark counts
    Bytes pdu;        // from the IS-IS discriminator, trimmed to the 802.3 length
};

// Classic libpcap, linktype 1; keeps the 802.3 + LLC 0xFEFE03 frames.
inline std::vector<Frame> readPcap(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw std::runtime_error("cannot open " + path);
    }
    const Bytes file((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (file.size() < 24) {
        throw std::runtime_error("short pcap " + path);
    }
    const std::uint32_t magicLe = file[0] | (file[1] << 8) | (file[2] << 16) | (std::uint32_t{file[3]} << 24);
    bool le;
    if (magicLe == 0xa1b2c3d4 || magicLe == 0xa1b23c4d) {
        le = true;
    } else if (magicLe == 0xd4c3b2a1 || magicLe == 0x4d3cb2a1) {
        le = false;
    } else {
        throw std::runtime_error("not a classic pcap " + path);
    }
    auto rd32 = [&](std::size_t at) -> std::uint32_t {
        const std::uint32_t a = file[at], b = file[at + 1], c = file[at + 2], d = file[at + 3];
        return le ? (a | b << 8 | c << 16 | d << 24) : (d | c << 8 | b << 16 | a << 24);
    };
    if (rd32(20) != 1) {
        throw std::runtime_error("linktype is not Ethernet in " + path);
    }
    std::vector<Frame> frames;
    std::size_t at = 24;
    unsigned number = 0;
    while (at + 16 <= file.size()) {
        const std::uint32_t caplen = rd32(at + 8);
        at += 16;
        if (at + caplen > file.size()) {
            throw std::runtime_error("truncated record in " + path);
        }
        ++number;
        const std::uint8_t* f = file.data() + at;
        at += caplen;
        if (caplen < 17) {
            continue;
        }
        const unsigned typeLen = (f[12] << 8) | f[13];
        if (typeLen > 1500 || f[14] != 0xFE || f[15] != 0xFE || f[16] != 0x03 || 14u + typeLen > caplen ||
            typeLen < 3) {
            continue;
        }
        frames.push_back(Frame{number, Bytes(f + 17, f + 14 + typeLen)});
    }
    return frames;
}

inline bool isLspFrame(const Frame& f) {
    return f.pdu.size() > 4 && f.pdu[0] == 0x83 && ((f.pdu[4] & 0x1F) == 18 || (f.pdu[4] & 0x1F) == 20);
}

}  // namespace DecoderTest
