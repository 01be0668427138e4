#include "IgpCommon/PrefixKey.h"

#include "Define.h"

#include "IgpCommon/framework/Hash.h"

namespace Routing::IgpCommon {

using Kest::AttrKind;

namespace {

// Thomas Wang's 32-bit integer hash, with the prefix length folded in first so
// that 10.0.0.0/8 and 10.0.0.0/16 part ways.
constexpr std::uint32_t scramble(std::uint32_t h, std::uint8_t length) noexcept {
    std::uint32_t k = length ^ h;
    k = ~k + (k << 15);
    k = k ^ (k >> 12);
    k = k + (k << 2);
    k = k ^ (k >> 4);
    k = k * 2057;
    k = k ^ (k >> 16);
    return k;
}

}  // namespace

PrefixKey::PrefixKey(Kest::CharRange& r) : PrefixKey(Kest::readValue<PrefixKey>(r)) {}

std::uint32_t PrefixKey::hash(std::uint32_t seed) const noexcept {
    std::uint32_t h = 0;
    if (prefix_.isIpv4()) {
        h = scramble(prefix_.ipv4Addr().value(), prefix_.length());
    } else if (prefix_.isIpv6()) {
        h = scramble(prefix_.ipv6Addr().hash(), prefix_.length());
    }
    return Kest::HashState(seed).mix32(h).mix32(mtId_.hash(0)).result();
}

std::ostream& operator<<(std::ostream& os, const PrefixKey& k) {
    return Kest::writeValue(os, k);
}

IGP_DEFINE_TYPE_DATA(PrefixKey, PrefixKey::kestTypeName, value, {"prefix", 2, AttrKind::scalar},
                     {"mtId", 3, AttrKind::scalar})

}  // namespace Routing::IgpCommon
