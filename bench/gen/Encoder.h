// Encoding of generated LSPs as IS-IS LSP PDUs (ISO 10589 9.9 with the TLVs
// of RFC 5305, 5308, 5120, 6119, 7981, 8491, 8667 and 9350) and a classic
// pcap writer and reader for them.
//
// Node-wide TLVs and bindings go first, so they always land in fragment 0;
// neighbors, prefixes and SRLGs follow, packed into as few TLVs as their
// 255-octet limit allows and into as few fragments as the PDU size allows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <istream>
#include <ostream>
#include <vector>

#include "Generator.h"

namespace IgpBench {

using Bytes = std::vector<std::uint8_t>;

struct EncodeParams {
    unsigned level = 2;
    std::uint32_t sequence = 1;
    std::uint16_t lifetime = 1199;
    // originatingLSPBufferSize (ISO 10589 7.3.4): the largest PDU we send.
    std::size_t maxPduSize = 1492;
};

/// The fragments of one node's LSP, fragment 0 first, checksums filled in.
/// Throws std::length_error if the LSP does not fit 256 fragments or a
/// single entry does not fit one TLV.
std::vector<Bytes> encodeLsp(const LspPlan& lsp, const EncodeParams& params = {});

/// Every fragment of every LSP of the topology, in LSP order.
std::vector<Bytes> encodeTopology(const Topology& topology, const EncodeParams& params = {});

/// Fills the ISO 10589 7.3.11 checksum (octets 24 and 25) of a complete LSP.
void fillLspChecksum(Bytes& pdu);

/// A classic pcap (link type Ethernet) of one 802.3 frame with LLC FE FE 03
/// per PDU, sent to AllL1ISs or AllL2ISs after `level`.
void writePcap(std::ostream& out, const std::vector<Bytes>& pdus, unsigned level);

/// The IS-IS PDUs of the 802.3 + LLC frames of a classic pcap (other frames
/// are skipped). Throws std::runtime_error for a file that is not a pcap.
std::vector<Bytes> readPcap(std::istream& in);

}  // namespace IgpBench
