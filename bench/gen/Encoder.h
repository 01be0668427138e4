// The generator's view of the decoder component's LSP encoder and pcap
// files (IsisDecoder/Encoder.h, IsisDecoder/Pcap.h), plus the encoding of a
// whole topology.
#pragma once

#include <cstdint>
#include <vector>

#include "Generator.h"
#include "IsisDecoder/Encoder.h"
#include "IsisDecoder/Pcap.h"

namespace IgpBench {

using Bytes = std::vector<std::uint8_t>;
using Routing::IsisDecoder::encodeLsp;
using Routing::IsisDecoder::EncodeParams;
using Routing::IsisDecoder::readPcap;
using Routing::IsisDecoder::writePcap;

/// Every fragment of every LSP of the topology, in LSP order.
std::vector<Bytes> encodeTopology(const Topology& topology, const EncodeParams& params = {});

/// Fills the ISO 10589 7.3.11 checksum (octets 24 and 25) of a complete LSP.
void fillLspChecksum(Bytes& pdu);

}  // namespace IgpBench
