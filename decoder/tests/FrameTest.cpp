// Link-layer framing: every supported wrapping of one LSP yields exactly its
// PDU octets; other protocols, short frames and bad lengths say why not.

#include <gtest/gtest.h>

#include <tuple>

#include "IsisDecoder/Decoder.h"
#include "IsisDecoder/Frame.h"
#include "TestSupport.h"

namespace {

using namespace DecoderTest;
using namespace Routing::IsisDecoder;
using Status = FrameResult::Status;

TEST(Frame, EveryWrappingYieldsThePduOrItsReason) {
    constexpr std::uint32_t ethernet = 1, sll = 113, sll2 = 276;
    const Bytes pdu = buildLsp(Enc().tlv(137, Enc{'r', '1'}));
    const Enc llc = Enc{0xFE, 0xFE, 0x03}.raw(pdu);
    const auto n = static_cast<unsigned>(llc.size());
    // Destination: the level-1 multicast MAC, whatever the PDU's level.
    const Enc macs = Enc{0x01, 0x80, 0xc2, 0x00, 0x00, 0x14}.raw(Bytes(6, 2));
    const auto dot3 = [&](unsigned length, std::size_t padding = 0) {
        return Enc().u16(length).raw(llc).raw(Bytes(padding, 0));
    };
    // The cooked headers' link-layer address field holds a 6-octet MAC in 8 octets.
    const auto sllHeader = [](unsigned protocol) {
        return Enc().u16(2).u16(1).u16(6).raw(Bytes(8, 2)).u16(protocol);
    };
    const auto sll2Header = [](unsigned protocol) {
        return Enc().u16(protocol).u16(0).u32(3).u16(1).u8(2).u8(6).raw(Bytes(8, 2));
    };
    const struct {
        const char* name;
        std::uint32_t linkType;
        Enc frame;
        Status status;
        std::size_t trailing = 0;  // past the PDU, that the span may keep: no 802.3 length to cut at
    } cases[] = {
        {"802.3 with padding", ethernet, Enc(macs).raw(dot3(n, 9)), Status::isis},
        {"three stacked tags", ethernet,
         Enc(macs).u16(0x9100).u16(1).u16(0x88a8).u16(2).u16(0x8100).u16(3).raw(dot3(n, 4)), Status::isis},
        {"EtherType IPv4", ethernet, Enc(macs).u16(0x0800).raw({0x45, 0, 0, 20}), Status::notIsis},
        {"LLC of SNAP", ethernet, Enc(macs).u16(8).raw({0xAA, 0xAA, 0x03, 0, 0, 0, 8, 0}), Status::notIsis},
        {"length past the capture", ethernet, Enc(macs).raw(dot3(n + 1)), Status::badLength},
        {"length of the LLC alone", ethernet, Enc(macs).raw(dot3(3)), Status::badLength},
        {"LLC and nothing after", ethernet, Enc(macs).u16(3).raw({0xFE, 0xFE, 0x03}), Status::badLength},
        {"no type field", ethernet, Enc().raw(Bytes(13, 0)), Status::truncated},
        {"cut inside a tag", ethernet, Enc(macs).u16(0x8100).u16(10), Status::truncated},
        {"cut inside the LLC", ethernet, Enc(macs).u16(40).raw({0xFE, 0xFE}), Status::truncated},
        {"SLL 802.2", sll, sllHeader(0x0004).raw(llc).raw(Bytes(5, 0)), Status::isis, 5},
        {"SLL tagged 802.3", sll, sllHeader(0x8100).u16(10).raw(dot3(n, 2)), Status::isis},
        {"SLL IPv4", sll, sllHeader(0x0800).raw(Bytes(20, 0)), Status::notIsis},
        {"SLL short header", sll, Enc().raw(Bytes(15, 0)), Status::truncated},
        {"SLL header alone", sll, sllHeader(0x0800), Status::notIsis},
        {"SLL2 tagged 802.3", sll2, sll2Header(0x88a8).u16(7).u16(0x8100).u16(5).raw(dot3(n)), Status::isis},
        {"SLL2 IPv6", sll2, sll2Header(0x86dd).raw(Bytes(40, 0)), Status::notIsis},
        {"SLL2 short header", sll2, Enc().raw(Bytes(19, 0)), Status::truncated},
        {"raw IP link type", 101, llc, Status::unsupportedLinkType},
    };
    for (const auto& c : cases) {
        const FrameResult r = isisPduOfFrame(c.linkType, c.frame.bytes());
        EXPECT_STREQ(frameStatusName(r.status), frameStatusName(c.status)) << c.name;
        Bytes expected = c.status == Status::isis ? pdu : Bytes();
        expected.resize(expected.size() + c.trailing, 0);
        EXPECT_EQ(Bytes(r.pdu.begin(), r.pdu.end()), expected) << c.name;
    }
}

TEST(Frame, PduKindsFollowTheType) {
    // The top three bits of the type are reserved and do not change it.
    const std::tuple<std::uint8_t, PduKind, unsigned> kinds[] = {
        {15, PduKind::hello, 0}, {17, PduKind::hello, 0},     {18, PduKind::lsp, 1},
        {20, PduKind::lsp, 2},   {24, PduKind::snp, 0},       {27, PduKind::snp, 0},
        {19, PduKind::other, 0}, {0xE0 | 20, PduKind::lsp, 2}};
    for (const auto& [type, kind, level] : kinds) {
        const Bytes pdu = {0x83, 27, 1, 0, type};
        EXPECT_EQ(pduKind(pdu), kind) << int{type};
        EXPECT_EQ(lspLevel(pdu), level) << int{type};
    }
    EXPECT_EQ(pduKind(Bytes{0x83, 27, 1, 0}), PduKind::other);
    EXPECT_EQ(pduKind(Bytes{0x82, 27, 1, 0, 18}), PduKind::other);  // ES-IS, not IS-IS
}

}  // namespace
