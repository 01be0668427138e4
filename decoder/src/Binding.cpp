// SID/label bindings, RFC 8667 2.4 (TLV 149) and 2.5 (TLV 150: the same
// after an MT ID, binding the prefix of that topology).

#include "LspDecoder.h"

namespace Routing::IsisDecoder::detail {

void LspDecoder::binding(Item& it, IC::IgpMultiTopologyId mt) {
    Cursor& v = it.value;
    v.need(5, Reason::badLength, it.start, "binding TLV too short");
    const std::uint8_t flags = v.u8();
    v.skip(1);
    const std::uint16_t range = v.u16();
    const std::size_t lenAt = v.pos();
    const std::uint8_t len = v.u8();
    const auto p = readPrefix(v, len, (flags & 0x80) != 0, lenAt);

    auto b = IC::sidLabelBindingFactory();
    b->flagsIs(IC::SidLabelBinding::SidLabelBindingFlags::fromProtocolOctet(flags));
    b->rangeIs(range);
    b->lspFragmentIdIs(h_.fragment);
    while (!v.empty()) {
        Item s = nextItem(v, Reason::subTlvOverrun);
        if (s.type == SidSubTlv::sidLabel) {
            b->baseLabelSidIs(readSidLabel(s));
        } else if (s.type == SidSubTlv::prefixSid) {
            s.value.need(2, Reason::badLength, s.start, "prefix SID too short");
            const std::uint8_t sidFlags = s.value.u8();
            const std::uint8_t algo = s.value.u8();
            const std::uint32_t value =
                readSidValue(s.value, sidFlags, IC::PrefixSid::labelFlagsMask, s.start);
            b->basePrefixSidIs(IC::PrefixSid(sidFlags, value, algo, true));
        }
    }
    content_->prefixIs(IC::PrefixKey(p, mt))->sidLabelBindingIs(b);
}

}  // namespace Routing::IsisDecoder::detail
