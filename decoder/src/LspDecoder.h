// The decoder's internals: a bounded cursor over the PDU, the readers of
// common fields, and the decoder of one LSP's TLVs, whose TLV families live
// in files of their own (NodeTlvs, IsReachability, IpReachability, Srlg,
// Binding).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "IgpCommon/IgpLsp.h"
#include "IsisDecoder/CodePoints.h"
#include "IsisDecoder/Decoder.h"

namespace Routing::IsisDecoder::detail {

namespace IC = Routing::IgpCommon;
using Reason = DecodeError::Reason;

inline constexpr std::size_t headerLength = 27;

// The parts of a content that TLV families fill: the node's own attributes;
// the links with the SRLG records (which fold onto them); the prefixes with
// the bindings.
enum ContentParts : unsigned {
    nodePart = 1,
    linksPart = 2,
    prefixesPart = 4,
    allParts = 7,
};
inline constexpr std::uint32_t labelMask = 0xFFFFF;  // a 3-octet label carries 20 bits (RFC 8667 2.1)

// Whether `pdu` passes lspChecksumValid(), given that `valid` does and that the
// two have the same length and differ at most in octets [from, to) of the
// checksummed range: both Fletcher sums are linear in the octets, so only the
// difference over that range is summed (a refresh changes just the sequence
// number and the checksum). Needs at least 27 octets and 12 <= from <= to.
bool checksumValidAfterEdit(std::span<const std::uint8_t> valid, std::span<const std::uint8_t> pdu,
                            std::size_t from, std::size_t to) noexcept;

// Thrown inside the decoder only; decodeLsp turns it into a DecodeError.
struct Failure {
    DecodeError error;
};

[[noreturn]] inline void fail(Reason r, std::uint8_t tlv, std::size_t offset, std::string detail) {
    throw Failure{DecodeError{r, tlv, offset, std::move(detail)}};
}
// fail() with a fixed text, kept out of line: the checks of every read call
// it, and their fast paths stay short.
[[noreturn, gnu::cold, gnu::noinline]] void failWith(Reason r, std::uint8_t tlv, std::size_t offset,
                                                     const char* detail);

// A bounded view of part of the PDU. Every read checks the bound first, so no
// read can leave the buffer; offsets are reported relative to the PDU start.
class Cursor {
public:
    Cursor(const std::uint8_t* pdu, std::size_t begin, std::size_t end, std::uint8_t tlv) noexcept
        : pdu_(pdu), pos_(begin), end_(end), tlv_(tlv) {}

    std::size_t pos() const noexcept { return pos_; }
    std::size_t remaining() const noexcept { return end_ - pos_; }
    bool empty() const noexcept { return pos_ == end_; }
    std::uint8_t tlv() const noexcept { return tlv_; }

    void need(std::size_t n, Reason r, std::size_t at, const char* what) const {
        if (remaining() < n) [[unlikely]] {
            failWith(r, tlv_, at, what);
        }
    }
    std::uint8_t u8() {
        check(1);
        return pdu_[pos_++];
    }
    std::uint16_t u16() {
        const std::uint8_t* p = bytes(2);
        return static_cast<std::uint16_t>((p[0] << 8) | p[1]);
    }
    std::uint32_t u24() {
        const std::uint8_t* p = bytes(3);
        return (std::uint32_t{p[0]} << 16) | (std::uint32_t{p[1]} << 8) | p[2];
    }
    std::uint32_t u32() {
        const std::uint8_t* p = bytes(4);
        return (std::uint32_t{p[0]} << 24) | (std::uint32_t{p[1]} << 16) | (std::uint32_t{p[2]} << 8) | p[3];
    }
    float f32() {
        const std::uint32_t bits = u32();
        float f;
        std::memcpy(&f, &bits, sizeof f);
        return f;
    }
    const std::uint8_t* bytes(std::size_t n) {
        check(n);
        const std::uint8_t* p = pdu_ + pos_;
        pos_ += n;
        return p;
    }
    void skip(std::size_t n) { bytes(n); }
    // The next `n` octets; `r` at `at` when they are not all there.
    const std::uint8_t* bytes(std::size_t n, Reason r, std::size_t at, const char* what) {
        need(n, r, at, what);
        const std::uint8_t* p = pdu_ + pos_;
        pos_ += n;
        return p;
    }
    // The next `n` octets as a cursor of their own; `r` when they are not all there.
    Cursor sub(std::size_t n, Reason r, std::size_t at, const char* what) {
        need(n, r, at, what);
        Cursor c(pdu_, pos_, pos_ + n, tlv_);
        pos_ += n;
        return c;
    }

private:
    void check(std::size_t n) const {
        if (remaining() < n) [[unlikely]] {
            failWith(Reason::truncatedEntry, tlv_, pos_, "value runs past its container");
        }
    }

    const std::uint8_t* pdu_;
    std::size_t pos_;
    std::size_t end_;
    std::uint8_t tlv_;
};

// One TLV or sub-TLV: its type, where it starts and its value.
struct Item {
    std::uint8_t type;
    std::size_t start;
    Cursor value;
};

// The next TLV or sub-TLV of `c`, `overrun` when its header or value does not fit.
inline Item nextItem(Cursor& c, Reason overrun) {
    const std::size_t start = c.pos();
    const std::uint8_t* typeAndLength = c.bytes(2, overrun, start, "type and length octets do not fit");
    return Item{typeAndLength[0], start,
                c.sub(typeAndLength[1], overrun, start, "length runs past the end of its container")};
}

inline void expectLength(const Item& it, std::size_t n, const char* what) {
    if (it.value.remaining() != n) [[unlikely]] {
        failWith(Reason::badLength, it.value.tlv(), it.start, what);
    }
}

inline void expectMultiple(const Item& it, std::size_t unit, bool allowEmpty, const char* what) {
    const std::size_t n = it.value.remaining();
    if (n % unit != 0 || (n == 0 && !allowEmpty)) [[unlikely]] {
        failWith(Reason::badLength, it.value.tlv(), it.start, what);
    }
}

inline Lumo::IpAddr readV4(Cursor& c) {
    return Lumo::IpAddr::fromBytes(c.bytes(4));
}
inline Lumo::Ip6Addr readV6(Cursor& c) {
    return Lumo::Ip6Addr::fromBytes(c.bytes(16));
}

// A prefix of `len` bits stored in the fewest octets (RFC 5305 4, RFC 5308 2).
Lumo::IpGenPrefix readPrefix(Cursor& c, std::uint8_t len, bool v6, std::size_t at);
// The failure of readSidValue(): flags and length disagree.
[[noreturn, gnu::cold, gnu::noinline]] void failSidValue(const Cursor& c, std::uint8_t flags, std::size_t at);
// A SID whose flags' V and L bits say label (both set, 3 octets) or index
// (both clear, 4 octets) (RFC 8667 2.1, 2.2.1); anything else is inconsistent.
inline std::uint32_t readSidValue(Cursor& c, std::uint8_t flags, std::uint8_t vlMask, std::size_t at) {
    const std::uint8_t vl = flags & vlMask;
    const std::size_t n = c.remaining();
    if (vl == vlMask && n == 3) {
        return c.u24() & labelMask;
    }
    if (vl == 0 && n == 4) {
        return c.u32();
    }
    failSidValue(c, flags, at);
}
// A SID/label sub-TLV (RFC 8667 2.3).
IC::LabelSid readSidLabel(const Item& it);

/// The fixed header, checked; throws Failure.
LspHeader readHeader(std::span<const std::uint8_t> pdu);

class LspDecoder {
public:
    // Only the TLVs of `parts` are read (see ContentParts).
    LspDecoder(const std::uint8_t* pdu, const LspHeader& h, DecodeWorkspace& workspace,
               unsigned parts = allParts)
        : pdu_(pdu), h_(h), parts_(parts), link_(workspace.link_), spare_(workspace.content_) {}
    LspDecoder(const LspDecoder&) = delete;
    LspDecoder& operator=(const LspDecoder&) = delete;
    // A rejected PDU leaves no more objects alive than there were before it:
    // the content keeps no storage of what this decoding built.
    ~LspDecoder() {
        if (!done_ && content_) {
            content_->keepNoMoreSpares();
        }
    }

    Poldo::Ptr<IC::IsisLspParsedContent> run();

private:
    void makeContent();
    void decodeTlv(Item& it);
    static unsigned partOf(std::uint8_t type) noexcept;
    static IC::IgpMultiTopologyId readMtId(Item& it);

    // Node-wide TLVs (NodeTlvs.cpp).
    void areas(Item& it);
    void hostName(Item& it);
    void teRouterId(Item& it);
    void teRouterIdV6(Item& it);
    void topologies(Item& it);
    void routerCapability(Item& it);
    void srBlock(Item& s, Poldo::Ptr<IC::SrCapabilities>& block);
    void flexAlgoDefinition(Item& s);
    void finish();

    // IS reachability (IsReachability.cpp).

    void addNeighbor(const IC::NeighborKey& key, std::uint32_t metric, const LinkAttrs& a);
    void wideNeighbors(Item& it, IC::IgpMultiTopologyId mt);
    void narrowNeighbors(Item& it);

    // IP reachability (IpReachability.cpp).
    void prefixSubTlvs(Cursor& subs, const Poldo::Ptr<IC::Prefix>& pfx);
    Poldo::Ptr<IC::Prefix> addPrefix(const Lumo::IpGenPrefix& p, IC::IgpMultiTopologyId mt,
                                     std::uint32_t metric, bool down);
    void v4Prefixes(Item& it, IC::IgpMultiTopologyId mt);
    void v6Prefixes(Item& it, IC::IgpMultiTopologyId mt);
    void narrowPrefixes(Item& it);

    // SID/label bindings (Binding.cpp).
    void binding(Item& it, IC::IgpMultiTopologyId mt);

    // SRLGs (Srlg.cpp).
    struct UnnumberedSrlg {
        IC::IgpNodeId neighbor;
        std::vector<std::uint32_t> values;
    };
    void srlgV4(Item& it);
    void srlgV6(Item& it);
    void attachUnnumberedSrlgs();

    const std::uint8_t* pdu_;
    const LspHeader& h_;
    unsigned parts_;
    bool done_ = false;
    Poldo::Ptr<IC::IsisLspParsedContent> content_;
    Poldo::Ptr<IC::Node> node_;
    Poldo::Ptr<IC::IsisAreaIdCol> areas_;
    Poldo::Ptr<IC::IgpMultiTopologyIdCol> mtIds_;
    Poldo::Ptr<IC::SrCapabilities> srgb_;
    Poldo::Ptr<IC::SrCapabilities> srlb_;
    Poldo::Ptr<IC::IgpMsdCol> msds_;
    std::uint32_t msdCount_ = 0;
    Poldo::Ptr<IC::IgpFlexAlgoDefinitionCol> fads_;
    std::vector<UnnumberedSrlg> unnumberedSrlgs_;
    // One IS reachability entry's sub-TLVs at a time: reused, so that an
    // entry with adjacency SIDs allocates nothing once an earlier one (of
    // this LSP or, with a caller's workspace, of an earlier one) has.
    LinkAttrs& link_;
    // The workspace's content, filled again when no one else holds it.
    Poldo::Ptr<IC::IsisLspParsedContent>& spare_;
};

}  // namespace Routing::IsisDecoder::detail

namespace Routing::IsisDecoder {

/// decodeLsp() but for the octets, left empty: for a caller that keeps them
/// in storage of its own.
DecodeResult decodeLspContent(std::span<const std::uint8_t> pdu, DecodeWorkspace& workspace);

/// The content of a PDU that decodeLsp() accepted before (a held copy):
/// decoded again without verifying its checksum or copying its octets.
/// Null if it does not decode.
Poldo::Ptr<Routing::IgpCommon::IsisLspParsedContent> decodeAcceptedLsp(std::span<const std::uint8_t> pdu);
Poldo::Ptr<Routing::IgpCommon::IsisLspParsedContent> decodeAcceptedLsp(std::span<const std::uint8_t> pdu,
                                                                       DecodeWorkspace& workspace);

/// Part of such a PDU's content, as decodeAcceptedLsp() gives it but for the
/// TLVs of the other parts (ContentParts), which are skipped. Null if it
/// does not decode.
Poldo::Ptr<Routing::IgpCommon::IsisLspParsedContent> decodeAcceptedParts(std::span<const std::uint8_t> pdu,
                                                                         unsigned parts);
Poldo::Ptr<Routing::IgpCommon::IsisLspParsedContent> decodeAcceptedParts(std::span<const std::uint8_t> pdu,
                                                                         unsigned parts,
                                                                         DecodeWorkspace& workspace);

/// The local addresses that the SRLG records of a PDU that decodeLsp()
/// accepted before are filed under, as decoding it would file them (once per
/// TLV, so an address may repeat), without decoding the rest. They are held
/// in the workspace until its next use.
std::span<const Lumo::IpGenAddr> srlgAddresses(std::span<const std::uint8_t> pdu, DecodeWorkspace& workspace);

}  // namespace Routing::IsisDecoder
