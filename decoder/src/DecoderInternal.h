// Decoder entry points for the decoder's own components.
#pragma once

#include <cstdint>
#include <span>

#include "IgpCommon/IgpLsp.h"

namespace Routing::IsisDecoder {

/// The content of a PDU that decodeLsp() accepted before (a held copy):
/// decoded again without verifying its checksum or copying its octets.
/// Null if it does not decode.
Poldo::Ptr<Routing::IgpCommon::IsisLspParsedContent> decodeAcceptedLsp(std::span<const std::uint8_t> pdu);

}  // namespace Routing::IsisDecoder
