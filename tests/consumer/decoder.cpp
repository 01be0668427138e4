// Smallest receiver built against an installed IgpCommon with its decoder: an LSP PDU with a host
// name goes through IgpCommon::IsisDecoder's keeper into a database.
#include <cstdio>
#include <vector>

#include "IsisDecoder/CodePoints.h"
#include "IsisDecoder/Decoder.h"
#include "IsisDecoder/LspKeeper.h"

int main() {
    namespace D = Routing::IsisDecoder;
    // ISO 10589 9.9: header, LSP ID 1921.6800.1001.00-00, sequence 1, then TLV 137 "r1".
    std::vector<std::uint8_t> pdu = {0x83, 27, 1, 6, D::PduType::level2Lsp, 1, 0, 0, 0, 0, 0x04, 0xaf};
    const std::uint8_t lspId[8] = {0x19, 0x21, 0x68, 0x00, 0x10, 0x01, 0, 0};
    pdu.insert(pdu.end(), lspId, lspId + 8);
    const std::uint8_t rest[] = {0, 0, 0, 1, 0, 0, 0x03, D::Tlv::hostName, 2, 'r', '1'};
    pdu.insert(pdu.end(), rest, rest + sizeof rest);
    pdu[9] = static_cast<std::uint8_t>(pdu.size());
    D::fillLspChecksum(pdu);

    D::LspKeeper keeper(Routing::IgpCommon::igpLevelIsisLevel2);
    const bool installed = keeper.receivePdu(pdu) == D::LspKeeper::Outcome::installed;
    const auto id = D::decodeLspHeader(pdu)->nodeId();
    const auto entry = keeper.database()->lsp(id);
    const bool ok = installed && entry && entry->node()->hostName() == "r1";
    std::puts(ok ? "IgpCommon decoder consumer: ok" : "IgpCommon decoder consumer: unexpected result");
    return ok ? 0 : 1;
}
