#include "IsisDecoder/Pcap.h"

#include <iterator>
#include <stdexcept>

namespace Routing::IsisDecoder {

namespace {

constexpr std::size_t headerLength = 27;
using Bytes = std::vector<std::uint8_t>;

void le32(std::ostream& out, std::uint32_t v) {
    const char b[4] = {static_cast<char>(v), static_cast<char>(v >> 8), static_cast<char>(v >> 16),
                       static_cast<char>(v >> 24)};
    out.write(b, 4);
}
void le16(std::ostream& out, std::uint16_t v) {
    const char b[2] = {static_cast<char>(v), static_cast<char>(v >> 8)};
    out.write(b, 2);
}

}  // namespace

void writePcap(std::ostream& out, const std::vector<Bytes>& pdus, unsigned level) {
    le32(out, 0xa1b2c3d4);  // microsecond timestamps, written little-endian
    le16(out, 2);
    le16(out, 4);
    le32(out, 0);      // GMT offset
    le32(out, 0);      // timestamp accuracy
    le32(out, 65535);  // snap length
    le32(out, 1);      // Ethernet
    std::uint32_t n = 0;
    for (const Bytes& pdu : pdus) {
        if (pdu.size() < headerLength || pdu.size() + 3 > 1500) {
            throw std::length_error("not an LSP that fits an 802.3 frame");
        }
        Bytes f = {0x01, 0x80, 0xC2, 0x00, 0x00, static_cast<std::uint8_t>(level == 1 ? 0x14 : 0x15)};
        // The sender's MAC: a locally administered address from the system ID.
        f.insert(f.end(), {0x02, pdu[14], pdu[15], pdu[16], pdu[17], 0x01});
        const std::size_t length = pdu.size() + 3;
        f.push_back(static_cast<std::uint8_t>(length >> 8));
        f.push_back(static_cast<std::uint8_t>(length));
        f.insert(f.end(), {0xFE, 0xFE, 0x03});
        f.insert(f.end(), pdu.begin(), pdu.end());
        if (f.size() < 60) {
            f.resize(60, 0);  // the minimum Ethernet frame, without FCS
        }
        // A fixed clock: the same topology gives the same file.
        le32(out, 1700000000u + n / 1000);
        le32(out, (n % 1000) * 1000);
        le32(out, static_cast<std::uint32_t>(f.size()));
        le32(out, static_cast<std::uint32_t>(f.size()));
        out.write(reinterpret_cast<const char*>(f.data()), static_cast<std::streamsize>(f.size()));
        ++n;
    }
}

std::vector<Bytes> readPcap(std::istream& in) {
    const Bytes file((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (file.size() < 24) {
        throw std::runtime_error("not a pcap file: shorter than its header");
    }
    const std::uint32_t magic =
        file[0] | (file[1] << 8) | (file[2] << 16) | (static_cast<std::uint32_t>(file[3]) << 24);
    bool little;
    if (magic == 0xa1b2c3d4 || magic == 0xa1b23c4d) {
        little = true;
    } else if (magic == 0xd4c3b2a1 || magic == 0x4d3cb2a1) {
        little = false;
    } else {
        throw std::runtime_error("not a classic pcap file");
    }
    auto rd32 = [&](std::size_t at) {
        const std::uint32_t a = file[at], b = file[at + 1], c = file[at + 2], d = file[at + 3];
        return little ? (a | b << 8 | c << 16 | d << 24) : (d | c << 8 | b << 16 | a << 24);
    };
    if (rd32(20) != 1) {
        throw std::runtime_error("pcap link type is not Ethernet");
    }
    std::vector<Bytes> pdus;
    std::size_t at = 24;
    while (at + 16 <= file.size()) {
        const std::uint32_t caplen = rd32(at + 8);
        at += 16;
        if (caplen > file.size() - at) {
            throw std::runtime_error("truncated pcap record");
        }
        const std::uint8_t* f = file.data() + at;
        at += caplen;
        if (caplen < 17) {
            continue;
        }
        const unsigned length = (f[12] << 8) | f[13];
        const bool llc = f[14] == 0xFE && f[15] == 0xFE && f[16] == 0x03;
        if (length > 1500 || length < 3 || !llc || 14u + length > caplen) {
            continue;
        }
        pdus.emplace_back(f + 17, f + 14 + length);
    }
    return pdus;
}

}  // namespace Routing::IsisDecoder
