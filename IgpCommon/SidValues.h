// Segment identifiers (RFC 8667): the adjacency SIDs a neighbor keeps, the
// prefix SID of a prefix and the base SIDs of a SID/label binding.
//
// All are values sharing the base SrSid: `flags` is the SID's flags octet as
// received, in protocol bit order, and `value` is an index into a SID range
// or a literal MPLS label; which one follows from the flags (valueLength).
// Ordering compares flags before value, so SIDs sort by kind, then number.
#pragma once

#include <compare>
#include <cstdint>
#include <ostream>
#include <tuple>

#include "IgpCommon/framework/String.h"
#include "IgpCommon/framework/Text.h"
#include "IgpCommon/framework/TypeData.h"
#include "IgpCommon/platform/Isis.h"

namespace Routing::IgpCommon {

class SrSid {
public:
    SrSid() noexcept = default;
    SrSid(std::uint8_t flags, std::uint32_t value) noexcept : value_(value), flags_(flags) {}
    explicit SrSid(Kest::CharRange& r);
    virtual ~SrSid() = default;
    SrSid(const SrSid&) = default;
    SrSid& operator=(const SrSid&) = default;

    std::uint8_t flags() const noexcept { return flags_; }
    void flagsIs(std::uint8_t v) & noexcept { flags_ = v; }
    std::uint32_t value() const noexcept { return value_; }
    void valueIs(std::uint32_t v) & noexcept { value_ = v; }

    /// Bytes the value takes on the wire: 3 for a label, 4 for an index. The
    /// base stops the process ("Not implemented"): it is never used alone.
    virtual unsigned valueLength() const;

    static bool isEq(const SrSid& a, const SrSid& b) noexcept {
        return &a == &b || (a.value_ == b.value_ && a.flags_ == b.flags_);
    }
    friend bool operator==(const SrSid& a, const SrSid& b) noexcept { return isEq(a, b); }
    friend std::strong_ordering operator<=>(const SrSid& a, const SrSid& b) noexcept {
        return std::tie(a.flags_, a.value_) <=> std::tie(b.flags_, b.value_);
    }
    std::uint32_t hash(std::uint32_t seed) const noexcept;
    friend std::ostream& operator<<(std::ostream& os, const SrSid& s);

    static constexpr const char kestTypeName[] = "Routing::IgpCommon::SrSid";
    static constexpr auto kestAttrs() {
        return std::tuple{Kest::attr("flags", &SrSid::flags_), Kest::attr("value", &SrSid::value_)};
    }
    static const Kest::TypeData& typeData() noexcept;
    virtual const Kest::TypeData& fwkType() const noexcept { return typeData(); }

protected:
    // Value first: the flags and the derived types' one-byte fields then share
    // the last word, so an adjacency or prefix SID takes 16 bytes with its vptr.
    std::uint32_t value_ = 0;
    std::uint8_t flags_ = 0;
};

/// A point-to-point adjacency SID (RFC 8667 2.2.1).
class AdjacencySid : public SrSid {
public:
    /// Value flag and local flag of the adjacency SID flags: both set means a label.
    static constexpr std::uint8_t labelFlagsMask = 0x30;

    AdjacencySid() noexcept = default;
    AdjacencySid(std::uint8_t flags, std::uint32_t value, std::uint8_t weight) noexcept
        : SrSid(flags, value), weight_(weight) {}
    explicit AdjacencySid(Kest::CharRange& r);

    std::uint8_t weight() const noexcept { return weight_; }
    void weightIs(std::uint8_t v) & noexcept { weight_ = v; }
    unsigned valueLength() const override { return (flags_ & labelFlagsMask) == labelFlagsMask ? 3 : 4; }

    static bool isEq(const AdjacencySid& a, const AdjacencySid& b) noexcept {
        return &a == &b || (SrSid::isEq(a, b) && a.weight_ == b.weight_);
    }
    friend bool operator==(const AdjacencySid& a, const AdjacencySid& b) noexcept { return isEq(a, b); }
    friend std::strong_ordering operator<=>(const AdjacencySid& a, const AdjacencySid& b) noexcept {
        return std::tie(a.flags_, a.value_, a.weight_) <=> std::tie(b.flags_, b.value_, b.weight_);
    }
    std::uint32_t hash(std::uint32_t seed) const noexcept;
    friend std::ostream& operator<<(std::ostream& os, const AdjacencySid& s);

    static constexpr const char kestTypeName[] = "Routing::IgpCommon::AdjacencySid";
    static constexpr auto kestAttrs() {
        return std::tuple{Kest::attr("flags", &AdjacencySid::flags_),
                          Kest::attr("value", &AdjacencySid::value_),
                          Kest::attr("weight", &AdjacencySid::weight_)};
    }
    static const Kest::TypeData& typeData() noexcept;
    const Kest::TypeData& fwkType() const noexcept override { return typeData(); }

protected:
    std::uint8_t weight_ = 0;
};

/// An adjacency SID on a LAN, naming the neighbor's system (RFC 8667 2.2.2).
class LanAdjacencySid : public AdjacencySid {
public:
    LanAdjacencySid() noexcept = default;
    LanAdjacencySid(std::uint8_t flags, std::uint32_t value, std::uint8_t weight,
                    const Isis::SystemId& systemId) noexcept
        : AdjacencySid(flags, value, weight), systemId_(systemId) {}
    explicit LanAdjacencySid(Kest::CharRange& r);

    const Isis::SystemId& systemId() const noexcept { return systemId_; }
    void systemIdIs(const Isis::SystemId& v) & noexcept { systemId_ = v; }

    static bool isEq(const LanAdjacencySid& a, const LanAdjacencySid& b) noexcept {
        return &a == &b || (AdjacencySid::isEq(a, b) && a.systemId_ == b.systemId_);
    }
    friend bool operator==(const LanAdjacencySid& a, const LanAdjacencySid& b) noexcept { return isEq(a, b); }
    /// The adjacency SID order, then the system identifier as a big-endian number.
    friend std::strong_ordering operator<=>(const LanAdjacencySid& a, const LanAdjacencySid& b) noexcept {
        if (const auto c = static_cast<const AdjacencySid&>(a) <=> static_cast<const AdjacencySid&>(b);
            c != 0) {
            return c;
        }
        return a.systemId_ <=> b.systemId_;
    }
    std::uint32_t hash(std::uint32_t seed) const noexcept;
    friend std::ostream& operator<<(std::ostream& os, const LanAdjacencySid& s);

    static constexpr const char kestTypeName[] = "Routing::IgpCommon::LanAdjacencySid";
    static constexpr auto kestAttrs() {
        return std::tuple{Kest::attr("flags", &LanAdjacencySid::flags_),
                          Kest::attr("value", &LanAdjacencySid::value_),
                          Kest::attr("weight", &LanAdjacencySid::weight_),
                          Kest::attr("systemId", &LanAdjacencySid::systemId_)};
    }
    static const Kest::TypeData& typeData() noexcept;
    const Kest::TypeData& fwkType() const noexcept override { return typeData(); }

private:
    Isis::SystemId systemId_;
};

/// The prefix SID of one algorithm (RFC 8667 2.1).
class PrefixSid : public SrSid {
public:
    /// Value flag and local flag of the prefix SID flags: both set means a label.
    static constexpr std::uint8_t labelFlagsMask = 0x0c;

    PrefixSid() noexcept = default;
    PrefixSid(std::uint8_t flags, std::uint32_t value, std::uint8_t algorithm, bool isValid) noexcept
        : SrSid(flags, value), algorithm_(algorithm), isValid_(isValid) {}
    explicit PrefixSid(Kest::CharRange& r);

    std::uint8_t algorithm() const noexcept { return algorithm_; }
    void algorithmIs(std::uint8_t v) & noexcept { algorithm_ = v; }
    /// The SID passed the agent's checks.
    bool isValid() const noexcept { return isValid_; }
    void isValidIs(bool v) & noexcept { isValid_ = v; }
    unsigned valueLength() const override { return (flags_ & labelFlagsMask) == labelFlagsMask ? 3 : 4; }
    /// "PrefixSID={100, flags=0x40, algo=0}"
    Poldo::String toStrep() const;

    static bool isEq(const PrefixSid& a, const PrefixSid& b) noexcept {
        return &a == &b || (SrSid::isEq(a, b) && a.algorithm_ == b.algorithm_ && a.isValid_ == b.isValid_);
    }
    friend bool operator==(const PrefixSid& a, const PrefixSid& b) noexcept { return isEq(a, b); }
    friend std::strong_ordering operator<=>(const PrefixSid& a, const PrefixSid& b) noexcept {
        return std::tie(a.flags_, a.value_, a.algorithm_, a.isValid_) <=>
               std::tie(b.flags_, b.value_, b.algorithm_, b.isValid_);
    }
    std::uint32_t hash(std::uint32_t seed) const noexcept;
    friend std::ostream& operator<<(std::ostream& os, const PrefixSid& s);

    static constexpr const char kestTypeName[] = "Routing::IgpCommon::PrefixSid";
    static constexpr auto kestAttrs() {
        return std::tuple{Kest::attr("flags", &PrefixSid::flags_), Kest::attr("value", &PrefixSid::value_),
                          Kest::attr("algorithm", &PrefixSid::algorithm_),
                          Kest::attr("isValid", &PrefixSid::isValid_)};
    }
    static const Kest::TypeData& typeData() noexcept;
    const Kest::TypeData& fwkType() const noexcept override { return typeData(); }

private:
    std::uint8_t algorithm_ = 0;
    bool isValid_ = false;
};

/// The base label or index of a SID/label binding (RFC 8667 2.3): any flag
/// set means an MPLS label, none an index.
class LabelSid : public SrSid {
public:
    LabelSid() noexcept = default;
    LabelSid(std::uint8_t flags, std::uint32_t value, bool isValid) noexcept
        : SrSid(flags, value), isValid_(isValid) {}
    explicit LabelSid(Kest::CharRange& r);

    bool isValid() const noexcept { return isValid_; }
    void isValidIs(bool v) & noexcept { isValid_ = v; }
    bool hasMplsLabel() const noexcept { return flags_ != 0; }
    unsigned valueLength() const override { return flags_ != 0 ? 3 : 4; }
    /// "LabelSID={mpls=<label>}" or "LabelSID={index=<n>}". A label above
    /// 0x800000 raises the MPLS label's range exception.
    Poldo::String toStrep() const;

    static bool isEq(const LabelSid& a, const LabelSid& b) noexcept {
        return &a == &b || (SrSid::isEq(a, b) && a.isValid_ == b.isValid_);
    }
    friend bool operator==(const LabelSid& a, const LabelSid& b) noexcept { return isEq(a, b); }
    friend std::strong_ordering operator<=>(const LabelSid& a, const LabelSid& b) noexcept {
        return std::tie(a.flags_, a.value_, a.isValid_) <=> std::tie(b.flags_, b.value_, b.isValid_);
    }
    std::uint32_t hash(std::uint32_t seed) const noexcept;
    friend std::ostream& operator<<(std::ostream& os, const LabelSid& s);

    static constexpr const char kestTypeName[] = "Routing::IgpCommon::LabelSid";
    static constexpr auto kestAttrs() {
        return std::tuple{Kest::attr("flags", &LabelSid::flags_), Kest::attr("value", &LabelSid::value_),
                          Kest::attr("isValid", &LabelSid::isValid_)};
    }
    static const Kest::TypeData& typeData() noexcept;
    const Kest::TypeData& fwkType() const noexcept override { return typeData(); }

private:
    bool isValid_ = false;
};

}  // namespace Routing::IgpCommon
