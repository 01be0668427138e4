// Link-layer framing: every supported wrapping of one LSP yields exactly its
// PDU octets; other protocols, short frames and bad lengths say why not.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "IsisDecoder/Decoder.h"
#include "IsisDecoder/Frame.h"
#include "TestSupport.h"

namespace {

using namespace DecoderTest;
using namespace Routing::IsisDecoder;
using Status = FrameResult::Status;

constexpr std::uint32_t ethernet = 1, sll = 113, sll2 = 276;

const Bytes& samplePdu() {
    static const Bytes pdu = buildLsp(Enc().tlv(137, Enc().raw({'r', '1'})));
    return pdu;
}

// Destination: the level-1 multicast MAC, whatever the PDU's level.
const Bytes macs = {0x01, 0x80, 0xc2, 0x00, 0x00, 0x14, 0x02, 0x00, 0x00, 0x00, 0x00, 0x01};
Bytes llcPdu() {
    return Enc{0xFE, 0xFE, 0x03}.raw(samplePdu()).bytes();
}
// 802.3 length (LLC + PDU, or `length` when given), LLC, PDU, then `padding` zero octets.
Bytes dot3(std::size_t padding, int length = -1) {
    return Enc()
        .u16(length < 0 ? static_cast<unsigned>(llcPdu().size()) : static_cast<unsigned>(length))
        .raw(llcPdu())
        .raw(Bytes(padding, 0))
        .bytes();
}
Bytes tag(unsigned tpid, unsigned vid) {
    return Enc().u16(tpid).u16(vid).bytes();
}
Bytes cat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes& p : parts) {
        out.insert(out.end(), p.begin(), p.end());
    }
    return out;
}
// The cooked headers' link-layer address field holds a 6-octet MAC in 8 octets.
Bytes sllHeader(unsigned protocol) {
    return Enc().u16(2).u16(1).u16(6).raw({0x02, 0, 0, 0, 0, 1, 0, 0}).u16(protocol).bytes();
}
Bytes sll2Header(unsigned protocol) {
    return Enc().u16(protocol).u16(0).u32(3).u16(1).u8(2).u8(6).raw({0x02, 0, 0, 0, 0, 1, 0, 0}).bytes();
}

TEST(Frame, EveryWrappingYieldsThePduOrItsReason) {
    const Bytes ipv4 = Enc().u16(0x0800).raw({0x45, 0, 0, 20}).bytes();
    const struct {
        std::string name;
        std::uint32_t linkType;
        Bytes frame;
        Status status;
        std::size_t trailing = 0;  // past the PDU, that the span may keep: no 802.3 length to cut at
    } cases[] = {
        {"802.3 with padding", ethernet, cat({macs, dot3(9)}), Status::isis},
        {"802.1Q", ethernet, cat({macs, tag(0x8100, 10), dot3(0)}), Status::isis},
        {"three stacked tags", ethernet, cat({macs, tag(0x9100, 1), tag(0x88a8, 2), tag(0x8100, 3), dot3(4)}),
         Status::isis},
        {"EtherType IPv4", ethernet, cat({macs, ipv4}), Status::notIsis},
        {"LLC of SNAP", ethernet, cat({macs, Enc().u16(8).raw({0xAA, 0xAA, 0x03, 0, 0, 0, 8, 0}).bytes()}),
         Status::notIsis},
        {"length past the capture", ethernet, cat({macs, dot3(0, static_cast<int>(llcPdu().size() + 1))}),
         Status::badLength},
        {"length of the LLC alone", ethernet, cat({macs, dot3(0, 3)}), Status::badLength},
        {"LLC and nothing after", ethernet, cat({macs, Enc().u16(3).raw({0xFE, 0xFE, 0x03}).bytes()}),
         Status::badLength},
        {"no type field", ethernet, Bytes(13, 0), Status::truncated},
        {"cut inside a tag", ethernet, cat({macs, Enc().u16(0x8100).u16(10).bytes()}), Status::truncated},
        {"cut inside the LLC", ethernet, cat({macs, Enc().u16(40).raw({0xFE, 0xFE}).bytes()}),
         Status::truncated},
        {"SLL 802.2", sll, cat({sllHeader(0x0004), llcPdu(), Bytes(5, 0)}), Status::isis, 5},
        {"SLL tagged 802.3", sll, cat({sllHeader(0x8100), Enc().u16(10).bytes(), dot3(2)}), Status::isis},
        {"SLL IPv4", sll, cat({sllHeader(0x0800), Bytes(20, 0)}), Status::notIsis},
        {"SLL short header", sll, Bytes(15, 0), Status::truncated},
        {"SLL header alone", sll, sllHeader(0x0800), Status::notIsis},
        {"SLL2 802.2", sll2, cat({sll2Header(0x0004), llcPdu()}), Status::isis},
        {"SLL2 tagged 802.3", sll2, cat({sll2Header(0x88a8), Enc().u16(7).bytes(), tag(0x8100, 5), dot3(0)}),
         Status::isis},
        {"SLL2 IPv6", sll2, cat({sll2Header(0x86dd), Bytes(40, 0)}), Status::notIsis},
        {"SLL2 short header", sll2, Bytes(19, 0), Status::truncated},
        {"raw IP link type", 101, llcPdu(), Status::unsupportedLinkType},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const FrameResult r = isisPduOfFrame(c.linkType, c.frame);
        EXPECT_STREQ(frameStatusName(r.status), frameStatusName(c.status));
        if (c.status != Status::isis) {
            EXPECT_TRUE(r.pdu.empty());
            continue;
        }
        Bytes expected = samplePdu();
        expected.resize(expected.size() + c.trailing, 0);
        EXPECT_EQ(Bytes(r.pdu.begin(), r.pdu.end()), expected);
    }
}

TEST(Frame, PduKindsFollowTheType) {
    // The top three bits of the type are reserved and do not change it.
    const struct {
        std::uint8_t type;
        PduKind kind;
        unsigned level;
    } kinds[] = {{15, PduKind::hello, 0}, {17, PduKind::hello, 0},     {18, PduKind::lsp, 1},
                 {20, PduKind::lsp, 2},   {24, PduKind::snp, 0},       {27, PduKind::snp, 0},
                 {19, PduKind::other, 0}, {0xE0 | 20, PduKind::lsp, 2}};
    for (const auto& k : kinds) {
        const Bytes pdu = {0x83, 27, 1, 0, k.type};
        EXPECT_EQ(pduKind(pdu), k.kind) << int{k.type};
        EXPECT_EQ(lspLevel(pdu), k.level) << int{k.type};
    }
    EXPECT_EQ(pduKind(Bytes{0x83, 27, 1, 0}), PduKind::other);
    EXPECT_EQ(pduKind(Bytes{0x82, 27, 1, 0, 18}), PduKind::other);  // ES-IS, not IS-IS
}

}  // namespace
