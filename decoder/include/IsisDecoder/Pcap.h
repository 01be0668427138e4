// Classic pcap files of IS-IS LSPs over 802.3 with LLC FE FE 03.
#pragma once

#include <cstdint>
#include <istream>
#include <ostream>
#include <vector>

namespace Routing::IsisDecoder {

/// A classic pcap (link type Ethernet) of one 802.3 frame per PDU, sent to
/// AllL1ISs or AllL2ISs after `level`, with a fixed clock so that the same
/// PDUs give the same file. Throws std::length_error for a PDU that is not
/// an LSP fitting an 802.3 frame.
void writePcap(std::ostream& out, const std::vector<std::vector<std::uint8_t>>& pdus, unsigned level);

/// The IS-IS PDUs of the 802.3 + LLC frames of a classic pcap (other frames
/// are skipped). Throws std::runtime_error for a file that is not a pcap.
std::vector<std::vector<std::uint8_t>> readPcap(std::istream& in);

}  // namespace Routing::IsisDecoder
