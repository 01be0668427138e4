// Flexible-algorithm definitions (RFC 9350): the metric and calculation type,
// priority and constraints a node advertises for one algorithm number. The
// constraints live in two small shared entities: an ordered list of extended
// admin-group words and a set of SRLG values.
#pragma once

#include <compare>
#include <cstdint>
#include <ostream>
#include <tuple>
#include <vector>

#include "IgpCommon/framework/Entity.h"
#include "IgpCommon/framework/HashMap2018.h"
#include "IgpCommon/framework/Ptr.h"
#include "IgpCommon/framework/String.h"
#include "IgpCommon/framework/Text.h"
#include "IgpCommon/framework/TypeData.h"
#include "IgpCommon/platform/Drimm.h"

namespace Routing::IgpCommon {

/// An extended admin-group constraint: 32-bit words in advertisement order.
class IgpFlexAlgoEag final : public Kest::ObservedEntity<IgpFlexAlgoEag>,
                             public Drimm::SlabAllocated<IgpFlexAlgoEag> {
public:
    struct Attr {
        enum : Kest::AttrId { value = 130 };
    };

    static Poldo::Ptr<IgpFlexAlgoEag> IgpFlexAlgoEagIs();

    std::uint32_t valueCount() const noexcept { return static_cast<std::uint32_t>(value_.size()); }
    /// Word `index`; an index at or beyond the length raises Poldo::VectorOutOfRangeException.
    std::uint32_t value(std::uint32_t index) const;
    const std::vector<std::uint32_t>& values() const noexcept { return value_; }
    void valuePush(std::uint32_t word);
    /// Removes and returns the last word; an empty list raises Poldo::EmptyVectorException.
    std::uint32_t valuePop();
    void valuePopAll();
    /// Overwrites word `index`; never appends.
    void valueIs(std::uint32_t index, std::uint32_t word);

    /// Same words in the same order; false against null.
    bool compare(const IgpFlexAlgoEag* other) const noexcept;
    /// "[1, 2, 3]", "[]" when empty.
    Poldo::String toStrep() const;

    static const Kest::TypeData& typeData() noexcept;
    static Drimm::AllocTracker& allocTracker();

private:
    IgpFlexAlgoEag() = default;
    std::vector<std::uint32_t> value_;
};

/// An exclude-SRLG constraint: a set of SRLG values.
class IgpFlexAlgoSrlg final : public Kest::ObservedEntity<IgpFlexAlgoSrlg>,
                              public Drimm::SlabAllocated<IgpFlexAlgoSrlg> {
public:
    struct Attr {
        enum : Kest::AttrId { value = 130 };
    };
    using ValueSet = Kest::HashSet<std::uint32_t, 0x9ED0C5D1, 2>;

    static Poldo::Ptr<IgpFlexAlgoSrlg> IgpFlexAlgoSrlgIs();

    const ValueSet& value() const noexcept { return value_; }
    bool valueHas(std::uint32_t srlg) const noexcept { return value_.contains(srlg); }
    void valueIs(std::uint32_t srlg);
    void valueDel(std::uint32_t srlg);
    void valueDelAll();

    /// Same values, in any order; false against null.
    bool compare(const IgpFlexAlgoSrlg* other) const noexcept;
    /// The values sorted ascending, "[4, 17, 30]".
    Poldo::String toStrep() const;

    static const Kest::TypeData& typeData() noexcept;
    static Drimm::AllocTracker& allocTracker();

private:
    IgpFlexAlgoSrlg() = default;
    ValueSet value_;
};

Poldo::Ptr<IgpFlexAlgoEag> igpFlexAlgoEagFactory();
Poldo::Ptr<IgpFlexAlgoSrlg> igpFlexAlgoSrlgFactory();

// Entity references in text forms: the referenced list or set as "[...]", or
// None for a null pointer. Reading one creates a new entity.
std::ostream& operator<<(std::ostream& os, const Poldo::Ptr<IgpFlexAlgoEag>& p);
std::ostream& operator<<(std::ostream& os, const Poldo::Ptr<IgpFlexAlgoSrlg>& p);
Poldo::Ptr<IgpFlexAlgoEag> kestReadText(Kest::CharRange& r, Poldo::Ptr<IgpFlexAlgoEag>*);
Poldo::Ptr<IgpFlexAlgoSrlg> kestReadText(Kest::CharRange& r, Poldo::Ptr<IgpFlexAlgoSrlg>*);

/// One flexible-algorithm definition. A value, but its constraints are shared
/// entities: copying a definition shares them, and equality, order and hash
/// look at their identity, not their contents (compare contents with the
/// constraints' own `compare`).
class IgpFlexAlgoDefinition {
public:
    /// Numbers 0 and four fresh, empty constraint objects (never shared
    /// between two default definitions).
    IgpFlexAlgoDefinition();
    /// Reads the generic form; constraints in the text become new objects,
    /// "None" a null pointer.
    explicit IgpFlexAlgoDefinition(Kest::CharRange& r);

    std::uint8_t flexAlgo() const noexcept { return flexAlgo_; }
    void flexAlgoIs(std::uint8_t v) & noexcept { flexAlgo_ = v; }
    std::uint8_t metricType() const noexcept { return metricType_; }
    void metricTypeIs(std::uint8_t v) & noexcept { metricType_ = v; }
    std::uint8_t calcType() const noexcept { return calcType_; }
    void calcTypeIs(std::uint8_t v) & noexcept { calcType_ = v; }
    std::uint8_t priority() const noexcept { return priority_; }
    void priorityIs(std::uint8_t v) & noexcept { priority_ = v; }
    const Poldo::Ptr<IgpFlexAlgoEag>& excludeAny() const noexcept { return excludeAny_; }
    void excludeAnyIs(const Poldo::Ptr<IgpFlexAlgoEag>& v) & noexcept { excludeAny_ = v; }
    const Poldo::Ptr<IgpFlexAlgoEag>& includeAny() const noexcept { return includeAny_; }
    void includeAnyIs(const Poldo::Ptr<IgpFlexAlgoEag>& v) & noexcept { includeAny_ = v; }
    const Poldo::Ptr<IgpFlexAlgoEag>& includeAll() const noexcept { return includeAll_; }
    void includeAllIs(const Poldo::Ptr<IgpFlexAlgoEag>& v) & noexcept { includeAll_ = v; }
    const Poldo::Ptr<IgpFlexAlgoSrlg>& excludeSrlg() const noexcept { return excludeSrlg_; }
    void excludeSrlgIs(const Poldo::Ptr<IgpFlexAlgoSrlg>& v) & noexcept { excludeSrlg_ = v; }
    /// The LSP fragment that carried the definition.
    std::uint8_t lspFragmentId() const noexcept { return lspFragmentId_; }
    void lspFragmentIdIs(std::uint8_t v) & noexcept { lspFragmentId_ = v; }

    /// Merges the constraints of the same definition received in another
    /// fragment into the entities this definition points to (it changes no
    /// pointer). An empty admin-group list takes the other's words; a
    /// non-empty one is replaced by a non-empty list from the same or a
    /// lower-numbered fragment and kept against a higher-numbered one. SRLGs
    /// are always united. All eight constraint pointers must be non-null.
    void combineSubTlvs(const IgpFlexAlgoDefinition& other) const;

    /// Numbers equal and the very same constraint objects.
    static bool isEq(const IgpFlexAlgoDefinition& a, const IgpFlexAlgoDefinition& b) noexcept;
    friend bool operator==(const IgpFlexAlgoDefinition& a, const IgpFlexAlgoDefinition& b) noexcept {
        return isEq(a, b);
    }
    /// The four numbers, then the constraints' addresses, then the fragment.
    friend std::strong_ordering operator<=>(const IgpFlexAlgoDefinition& a,
                                            const IgpFlexAlgoDefinition& b) noexcept;
    std::uint32_t hash(std::uint32_t seed) const noexcept;
    /// Always true: a definition is never identical to a fresh default one,
    /// which owns constraint objects of its own.
    explicit operator bool() const noexcept { return true; }
    friend std::ostream& operator<<(std::ostream& os, const IgpFlexAlgoDefinition& d);

    static constexpr const char kestTypeName[] = "Routing::IgpCommon::IgpFlexAlgoDefinition";
    static constexpr auto kestAttrs() {
        using D = IgpFlexAlgoDefinition;
        return std::tuple{
            Kest::attr("flexAlgo", &D::flexAlgo_),          Kest::attr("metricType", &D::metricType_),
            Kest::attr("calcType", &D::calcType_),          Kest::attr("priority", &D::priority_),
            Kest::attr("excludeAny", &D::excludeAny_),      Kest::attr("includeAny", &D::includeAny_),
            Kest::attr("includeAll", &D::includeAll_),      Kest::attr("excludeSrlg", &D::excludeSrlg_),
            Kest::attr("lspFragmentId", &D::lspFragmentId_)};
    }
    static const Kest::TypeData& typeData() noexcept;
    const Kest::TypeData& fwkType() const noexcept { return typeData(); }

private:
    struct Empty {};
    explicit IgpFlexAlgoDefinition(Empty) noexcept {}

    std::uint8_t flexAlgo_ = 0;
    std::uint8_t metricType_ = 0;
    std::uint8_t calcType_ = 0;
    std::uint8_t priority_ = 0;
    Poldo::Ptr<IgpFlexAlgoEag> excludeAny_;
    Poldo::Ptr<IgpFlexAlgoEag> includeAny_;
    Poldo::Ptr<IgpFlexAlgoEag> includeAll_;
    Poldo::Ptr<IgpFlexAlgoSrlg> excludeSrlg_;
    std::uint8_t lspFragmentId_ = 0;
};

}  // namespace Routing::IgpCommon
