// Decoding of one received IS-IS LSP PDU (ISO 10589 9.9) into the parsed
// content an agent merges into its database.
//
// A malformed LSP is rejected whole: the result then holds a DecodeError and
// no content, so nothing of a bad LSP can reach a database.
//
// Links are keyed by neighbor, topology and interface addresses; link
// identifiers (RFC 5307 1.1) are not part of the key. So parallel unnumbered
// links to one neighbor become one link, with the best (lowest) metric of
// their entries and the TE attributes and adjacency SIDs of each. An SRLG TLV
// of an unnumbered link (RFC 5307 1.4, TLV 138 without addresses) puts its
// SRLGs onto the links to its neighbor without addresses that the same LSP
// fragment describes (onto every link to that neighbor there when none is
// without addresses), not into an SRLG record: filed under no address, the
// merge would fold it onto every link without an IPv4 address.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "IgpCommon/IgpLsp.h"

namespace Routing::IsisDecoder {

/// The fixed part of an LSP, as received.
struct LspHeader {
    std::uint8_t level = 0;  // 1 or 2, from the PDU type
    std::uint8_t maxAreaAddresses = 0;
    std::uint16_t pduLength = 0;
    std::uint16_t remainingLifetime = 0;
    std::array<std::uint8_t, 6> systemId{};
    std::uint8_t pseudonode = 0;
    std::uint8_t fragment = 0;
    std::uint32_t sequenceNumber = 0;
    std::uint16_t checksum = 0;
    std::uint8_t flags = 0;  // P, ATT (4 bits), OL, IS type (2 bits)

    bool partitionRepair() const noexcept { return (flags & 0x80) != 0; }
    bool attached() const noexcept { return (flags & 0x78) != 0; }
    bool overload() const noexcept { return (flags & 0x04) != 0; }
    std::uint8_t isType() const noexcept { return flags & 0x03; }
    bool isPurge() const noexcept { return remainingLifetime == 0; }
    /// System identifier and pseudonode: the originating node.
    Routing::IgpCommon::IgpNodeId nodeId() const noexcept;
    /// "1921.6800.1001.00-02"
    std::string lspIdText() const;
};

struct DecodedLsp {
    LspHeader header;
    Poldo::Ptr<Routing::IgpCommon::IsisLspParsedContent> content;
    /// The PDU the content was decoded from, up to its PDU length: what an
    /// LSP keeper holds, floods and decodes again.
    std::vector<std::uint8_t> octets;
};

struct DecodeError {
    enum class Reason : std::uint8_t {
        truncatedHeader,  // fewer octets than the fixed header
        badHeader,        // discriminator, header length, versions, ID length or PDU type
        badPduLength,     // PDU length field below the header length
        truncatedPdu,     // PDU length field beyond the octets received
        badChecksum,
        tlvOverrun,       // a TLV's length runs past the end of the PDU
        subTlvOverrun,    // a sub-TLV's (or sub-TLV block's) length runs past its parent
        truncatedEntry,   // an entry inside a TLV runs past the TLV's end
        badLength,        // a fixed-size value, or a list of fixed-size items, of the wrong length
        badPrefixLength,  // prefix length beyond the address family's
        badSidLength,     // SID/label length not 3 or 4, or not matching the V/L flags
    };

    Reason reason = Reason::truncatedHeader;
    std::uint8_t tlv = 0;    // the TLV being decoded, 0 for the header
    std::size_t offset = 0;  // octet offset in the PDU of the faulty element
    std::string detail;

    std::string message() const;
};

const char* reasonName(DecodeError::Reason r) noexcept;

/// Either a decoded LSP or the reason it was rejected.
class DecodeResult {
public:
    DecodeResult(DecodedLsp lsp) : v_(std::move(lsp)) {}
    DecodeResult(DecodeError err) : v_(std::move(err)) {}

    bool ok() const noexcept { return v_.index() == 0; }
    explicit operator bool() const noexcept { return ok(); }
    /// Only when ok().
    const DecodedLsp& lsp() const { return std::get<DecodedLsp>(v_); }
    DecodedLsp& lsp() { return std::get<DecodedLsp>(v_); }
    /// Only when !ok().
    const DecodeError& error() const { return std::get<DecodeError>(v_); }

private:
    std::variant<DecodedLsp, DecodeError> v_;
};

namespace detail {
class LspDecoder;

// What the sub-TLVs of one IS reachability entry said; kept apart until the
// addresses, which belong to the key, are all known.
struct LinkAttrs {
    Routing::IgpCommon::Neighbor::NeighborAttrsPresent present;
    std::uint32_t adminGroup = 0;
    float maxBw = 0, maxRsvBw = 0;
    std::array<float, 8> unrsvBw{};
    std::vector<std::uint32_t> extAdminGroup;
    std::uint32_t teMetric = 0;
    Routing::IgpCommon::LinkDelay delay;
    std::vector<Routing::IgpCommon::AdjacencySid> adjSids;
    std::vector<Routing::IgpCommon::LanAdjacencySid> lanAdjSids;

    // Empty again, the vectors keeping their room for the next entry.
    void reset() noexcept {
        present = {};
        adminGroup = 0;
        maxBw = maxRsvBw = 0;
        unrsvBw = {};
        extAdminGroup.clear();
        teMetric = 0;
        delay = {};
        adjSids.clear();
        lanAdjSids.clear();
    }
};
}  // namespace detail

/// Scratch room that decoding one LSP needs and that a caller decoding many
/// (an LSP keeper) keeps from one to the next, so that it is allocated once.
/// What it holds between two decodings means nothing. One thread at a time.
///
/// It keeps the content of the last decoding too: when the caller has let go
/// of it by the next decoding (nobody else holds it), that one is emptied and
/// filled instead of a new one, its tables keeping their heap blocks. A
/// content still held is never touched: the next decoding makes a new one.
class DecodeWorkspace {
public:
    DecodeWorkspace();
    /// Empties the content of the last decoding, keeping its tables' room,
    /// when nobody else holds it. A caller done with what it decoded calls
    /// this so that no object of a decoded (or rejected) PDU outlives its use
    /// here until the next decoding. The storage of the node, neighbors and
    /// SRLG records that nobody took is kept for the next decoding to build
    /// in (their allocation trackers count it as live); a rejected PDU keeps
    /// no more of it than there was before it.
    void release();

private:
    friend class detail::LspDecoder;
    friend std::span<const Lumo::IpGenAddr> srlgAddresses(std::span<const std::uint8_t> pdu,
                                                          DecodeWorkspace& workspace);
    detail::LinkAttrs link_;
    Poldo::Ptr<Routing::IgpCommon::IsisLspParsedContent> content_;
    std::vector<Lumo::IpGenAddr> srlgAddrs_;
};

/// Decodes one LSP PDU starting at the common header (discriminator 0x83).
/// Octets beyond the PDU length field (link padding) are ignored.
DecodeResult decodeLsp(std::span<const std::uint8_t> pdu);
/// The same, with scratch room the caller reuses.
DecodeResult decodeLsp(std::span<const std::uint8_t> pdu, DecodeWorkspace& workspace);

/// The fixed header of an LSP PDU, checked as decodeLsp() checks it (its
/// checksum aside), or nothing when it is malformed.
std::optional<LspHeader> decodeLspHeader(std::span<const std::uint8_t> pdu);

/// The ISO 10589 7.3.11 check of an LSP: the Fletcher sum from the LSP ID to
/// the end of `pdu` (the PDU length octets) is zero. Needs at least 27 octets.
bool lspChecksumValid(std::span<const std::uint8_t> pdu) noexcept;

/// Sets the checksum (octets 24 and 25) of the complete LSP `pdu` so that
/// lspChecksumValid() holds; `pdu` ends at its PDU length. Needs at least
/// 27 octets, else does nothing.
void fillLspChecksum(std::span<std::uint8_t> pdu) noexcept;

/// Whether decodeLsp() accepts the checksum of the PDU with header `h`: it
/// verifies and is not 0, or `h` is a purge with checksum 0.
bool lspChecksumAccepted(const LspHeader& h, std::span<const std::uint8_t> pdu) noexcept;

}  // namespace Routing::IsisDecoder
