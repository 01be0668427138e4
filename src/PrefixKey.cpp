#include "IgpCommon/PrefixKey.h"

#include "Define.h"

#include "IgpCommon/framework/Hash.h"

namespace Routing::IgpCommon {

using Kest::AttrKind;

PrefixKey::PrefixKey(Kest::CharRange& r) : PrefixKey(Kest::readValue<PrefixKey>(r)) {}

std::uint32_t PrefixKey::hash(std::uint32_t seed) const noexcept {
    // The address bytes go to the keyed hash as they are: any unkeyed digest
    // of them first would let a sender choose addresses that share the digest,
    // and so the hash, under every seed.
    // The address fills whole words and the rest one more, so the words go to
    // the mixer as they are: the same hash as streaming the same bytes.
    Kest::WordHash h(seed);
    if (prefix_.isIpv4()) {
        h.word(prefix_.ipv4Addr().value());
    } else if (prefix_.isIpv6()) {
        h.bytes16(prefix_.ipv6Addr().bytes().data());
    }
    const std::uint32_t last = std::uint32_t{prefix_.family()} | (std::uint32_t{prefix_.length()} << 8) |
                               (std::uint32_t{mtId_.value()} << 16);
    return h.word(last).result();
}

std::ostream& operator<<(std::ostream& os, const PrefixKey& k) {
    return Kest::writeValue(os, k);
}

IGP_DEFINE_TYPE_DATA(PrefixKey, PrefixKey::kestTypeName, value, {"prefix", 2, AttrKind::scalar},
                     {"mtId", 3, AttrKind::scalar})

}  // namespace Routing::IgpCommon
