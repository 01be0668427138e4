// Encoding of planned LSPs as IS-IS LSP PDUs (ISO 10589 9.9 with the TLVs
// of RFC 5305, 5308, 5120, 6119, 7981, 8491, 8667 and 9350): what tests,
// benchmarks, generators and fuzz seeds send to the decoder.
//
// Node-wide TLVs and bindings go first, so they always land in fragment 0;
// neighbors, prefixes and SRLGs follow, packed into as few TLVs as their
// 255-octet limit allows and into as few fragments as the PDU size allows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "IsisDecoder/LspPlan.h"

namespace Routing::IsisDecoder {

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
std::vector<std::vector<std::uint8_t>> encodeLsp(const LspPlan& lsp, const EncodeParams& params = {});

}  // namespace Routing::IsisDecoder
