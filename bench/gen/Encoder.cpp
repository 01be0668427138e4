#include "Encoder.h"

#include "IsisDecoder/Decoder.h"

namespace IgpBench {

void fillLspChecksum(Bytes& pdu) {
    Routing::IsisDecoder::fillLspChecksum(pdu);
}

std::vector<Bytes> encodeTopology(const Topology& topology, const EncodeParams& params) {
    std::vector<Bytes> all;
    all.reserve(topology.lsps.size() * 2);
    for (const LspPlan& s : topology.lsps) {
        for (Bytes& f : encodeLsp(s, params)) {
            all.push_back(std::move(f));
        }
    }
    return all;
}

}  // namespace IgpBench
