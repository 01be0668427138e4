#include "IgpCommon/IgpNodeId.h"

#include "Define.h"

#include <cstring>
#include <iomanip>

#include "IgpCommon/framework/Assert.h"
#include "IgpCommon/framework/Hash.h"

namespace Routing::IgpCommon {

using Kest::AttrKind;

IgpNodeId IgpNodeId::fromBytes(const std::uint8_t* seven) noexcept {
    IgpNodeId id;
    for (std::size_t i = 0; i < 7; ++i) {
        id.bytes_.slot(i) = seven[i];
    }
    return id;
}

IgpNodeId::IgpNodeId(Kest::CharRange&) {
    Kest::noStringConstructor("IgpNodeId");
}

void IgpNodeId::byteIs(IgpNodeIdIndex index, unsigned value) & {
    bytes_.set(index, static_cast<std::uint8_t>(value));
}

std::uint8_t IgpNodeId::byteDel(IgpNodeIdIndex index) & {
    const std::uint8_t old = bytes_[index];
    if (old != 0) {
        bytes_.set(index, 0);
    }
    return old;
}

void IgpNodeId::byteDelAll() & noexcept {
    for (std::size_t i = 0; i < 7; ++i) {
        bytes_.slot(i) = 0;
    }
}

std::uint64_t IgpNodeId::toU64() const noexcept {
    const auto b = [this](std::size_t i) { return std::uint32_t{bytes_.slot(i)}; };
    const std::uint32_t upper = (b(0) << 24) | (b(1) << 16) | (b(2) << 8) | b(3);
    std::uint32_t lower = (b(4) << 24) | (b(5) << 16);
    if (b(6) != 0) {
        lower |= b(6) << 8;
    }
    return (std::uint64_t{upper} << 32) | lower;
}

Poldo::String IgpNodeId::toStrep() const {
    Poldo::OStringStream os;
    os << std::hex << std::setfill('0');
    const auto put = [&](std::size_t i) { os << std::setw(2) << unsigned{bytes_.slot(i)}; };
    put(0);
    put(1);
    os << '.';
    put(2);
    put(3);
    os << '.';
    put(4);
    put(5);
    if (isPnodeId()) {
        os << '.';
        put(6);
    }
    return os.str();
}

std::strong_ordering operator<=>(const IgpNodeId& a, const IgpNodeId& b) noexcept {
    if (&a == &b) {
        return std::strong_ordering::equal;
    }
    const int c = std::memcmp(&a.bytes_.slot(0), &b.bytes_.slot(0), 7);
    return c < 0   ? std::strong_ordering::less
           : c > 0 ? std::strong_ordering::greater
                   : std::strong_ordering::equal;
}

std::uint32_t IgpNodeId::hash(std::uint32_t seed) const noexcept {
    const std::uint64_t id = littleEndian();
    return Kest::WordHash(seed)
        .word(static_cast<std::uint32_t>(id))
        .result(static_cast<std::uint32_t>(id >> 32), 3);
}

std::ostream& operator<<(std::ostream& os, const IgpNodeId& id) {
    return os << id.bytes_;
}

IGP_DEFINE_TYPE_DATA(IgpNodeId, "Routing::IgpCommon::IgpNodeId", value,
                     {"byte", Kest::firstValueAttrId, AttrKind::array},
                     {"toU64", Kest::firstValueAttrId + 1, AttrKind::function},
                     {"isPnodeId", Kest::firstValueAttrId + 2, AttrKind::function},
                     {"toStrep", Kest::firstValueAttrId + 3, AttrKind::function})

}  // namespace Routing::IgpCommon
