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
    Kest::HashState s(seed);
    if (prefix_.isIpv4()) {
        s.mix32(prefix_.ipv4Addr().value());
    } else if (prefix_.isIpv6()) {
        s.mixBytes(prefix_.ipv6Addr().bytes().data(), 16);
    }
    return s.mix8(prefix_.family()).mix8(prefix_.length()).mix16(mtId_.value()).result();
}

std::ostream& operator<<(std::ostream& os, const PrefixKey& k) {
    return Kest::writeValue(os, k);
}

IGP_DEFINE_TYPE_DATA(PrefixKey, PrefixKey::kestTypeName, value, {"prefix", 2, AttrKind::scalar},
                     {"mtId", 3, AttrKind::scalar})

}  // namespace Routing::IgpCommon
