// The small per-node attribute collections: flexible-algorithm definitions,
// maximum SID depths, multi-topology identifiers, area addresses, and the
// per-algorithm metrics of a prefix. Each is an entity wrapping one framework
// collection. The comparisons return true for "the same".
#pragma once

#include <compare>
#include <cstdint>
#include <ostream>
#include <tuple>

#include "IgpCommon/FlexAlgo.h"
#include "IgpCommon/Identifiers.h"
#include "IgpCommon/framework/Array.h"
#include "IgpCommon/framework/BoundedIndex.h"
#include "IgpCommon/framework/Entity.h"
#include "IgpCommon/framework/FlatMap.h"
#include "IgpCommon/framework/HashMap2018.h"
#include "IgpCommon/framework/Ptr.h"
#include "IgpCommon/framework/RbTreeMap.h"
#include "IgpCommon/framework/String.h"
#include "IgpCommon/framework/Text.h"
#include "IgpCommon/framework/TypeData.h"
#include "IgpCommon/platform/Drimm.h"
#include "IgpCommon/platform/Isis.h"

namespace Routing::IgpCommon {

/// Index of the three area-address slots: 0..2.
struct AreaIdIndex : Kest::BoundedIndex<AreaIdIndex, 0, 2> {
    static constexpr const char kestTypeName[] = "Routing::IgpCommon::AreaIdIndex";
    using BoundedIndex::BoundedIndex;
};

/// One maximum SID depth (RFC 8491): its type and value.
class IgpMsd {
public:
    constexpr IgpMsd() noexcept = default;
    constexpr IgpMsd(std::uint8_t msdType, std::uint8_t msdValue) noexcept
        : msdType_(msdType), msdValue_(msdValue) {}
    explicit IgpMsd(Kest::CharRange& r);

    constexpr std::uint8_t msdType() const noexcept { return msdType_; }
    constexpr void msdTypeIs(std::uint8_t v) & noexcept { msdType_ = v; }
    constexpr std::uint8_t msdValue() const noexcept { return msdValue_; }
    constexpr void msdValueIs(std::uint8_t v) & noexcept { msdValue_ = v; }

    std::uint32_t hash(std::uint32_t seed) const noexcept;
    static constexpr bool isEq(const IgpMsd& a, const IgpMsd& b) noexcept {
        return a.msdType_ == b.msdType_ && a.msdValue_ == b.msdValue_;
    }
    friend constexpr bool operator==(const IgpMsd&, const IgpMsd&) noexcept = default;
    friend constexpr std::strong_ordering operator<=>(const IgpMsd&, const IgpMsd&) noexcept = default;
    friend std::ostream& operator<<(std::ostream& os, const IgpMsd& m);

    static constexpr const char kestTypeName[] = "Routing::IgpCommon::IgpMsd";
    static constexpr auto kestAttrs() {
        return std::tuple{Kest::attr("msdType", &IgpMsd::msdType_),
                          Kest::attr("msdValue", &IgpMsd::msdValue_)};
    }
    static const Kest::TypeData& typeData() noexcept;
    const Kest::TypeData& fwkType() const noexcept { return typeData(); }

private:
    std::uint8_t msdType_ = 0;
    std::uint8_t msdValue_ = 0;
};

/// Flexible-algorithm definitions by algorithm number, ascending.
class IgpFlexAlgoDefinitionCol final : public Kest::ObservedEntity<IgpFlexAlgoDefinitionCol>,
                                       public Drimm::SlabAllocated<IgpFlexAlgoDefinitionCol> {
public:
    struct Attr {
        enum : Kest::AttrId { fad = 130 };
    };
    using FadMap = Kest::RbTreeMap<std::uint8_t, IgpFlexAlgoDefinition>;
    using KestFad = FadMap::value_type;

    static Poldo::Ptr<IgpFlexAlgoDefinitionCol> IgpFlexAlgoDefinitionColIs();

    /// A copy of the definition of `algo`, or a fresh default one when absent.
    IgpFlexAlgoDefinition fad(std::uint8_t algo) const;
    const FadMap& fad() const noexcept { return fad_; }
    std::size_t fadCount() const noexcept { return fad_.size(); }
    /// Stores `def` for `algo` unless an identical definition (same numbers,
    /// same constraint objects) is there; publishes the previous definition
    /// (a default one for an insertion).
    void fadIs(std::uint8_t algo, const IgpFlexAlgoDefinition& def);
    void fadDel(std::uint8_t algo);
    void fadDel(const FadMap::iterator& it) { fadDel(it->first); }
    void fadDelAll();

    /// Same number of definitions, and each of ours equal by content (numbers
    /// but the fragment, constraint words in order, SRLG sets) to the other's
    /// definition of that algorithm or, when it has none, to a default one.
    bool compareFadCol(const IgpFlexAlgoDefinitionCol* other) const;

    static const Kest::TypeData& typeData() noexcept;
    static Drimm::AllocTracker& allocTracker();

private:
    IgpFlexAlgoDefinitionCol() = default;
    FadMap fad_;
};

/// Maximum SID depths by position. The upper bound is one past the highest
/// position ever written and is never lowered: a collection whose last MSD
/// was deleted still spans that position.
class IgpMsdCol final : public Kest::ObservedEntity<IgpMsdCol>, public Drimm::SlabAllocated<IgpMsdCol> {
public:
    struct Attr {
        enum : Kest::AttrId { msd = 130 };
    };

    static Poldo::Ptr<IgpMsdCol> IgpMsdColIs();

    /// A present MSD: a position below the upper bound that holds a value other than (0, 0).
    struct Entry {
        std::uint32_t position;
        IgpMsd msd;
    };
    /// Walks the present MSDs in ascending position. Deleting the current one
    /// (msdDel) while walking is allowed; writing another position is not.
    class const_iterator {
    public:
        using value_type = Entry;
        using difference_type = std::ptrdiff_t;
        const_iterator() = default;
        Entry operator*() const { return {position_, col_->msd(position_)}; }
        const_iterator& operator++() {
            ++position_;
            skipAbsent();
            return *this;
        }
        const_iterator operator++(int) {
            const_iterator before = *this;
            ++*this;
            return before;
        }
        std::uint32_t position() const noexcept { return position_; }
        friend bool operator==(const const_iterator& a, const const_iterator& b) noexcept {
            return a.position_ == b.position_;
        }

    private:
        friend class IgpMsdCol;
        const_iterator(const IgpMsdCol* col, std::uint32_t position) : col_(col), position_(position) {
            skipAbsent();
        }
        void skipAbsent() {
            while (position_ < col_->upperBound_ && col_->msd(position_) == IgpMsd()) {
                ++position_;
            }
        }
        const IgpMsdCol* col_ = nullptr;
        std::uint32_t position_ = 0;
    };

    const_iterator begin() const { return const_iterator(this, lowerBound_); }
    const_iterator end() const { return const_iterator(this, upperBound_); }

    /// The MSD at `position`, (0, 0) beyond the storage.
    IgpMsd msd(std::uint32_t position) const { return msd_.get(position); }
    void msdIs(std::uint32_t position, IgpMsd v);
    /// Resets `position` to (0, 0) and returns what was there.
    IgpMsd msdDel(std::uint32_t position);
    /// Deletes the MSD the iterator stands on, as msdDel(position).
    IgpMsd msdDel(const const_iterator& it) { return msdDel(it.position()); }
    void msdDelAll();
    std::uint32_t lowerBound() const noexcept { return lowerBound_; }
    std::uint32_t upperBound() const noexcept { return upperBound_; }
    /// Positions in use: upper bound minus lower bound.
    std::uint32_t span() const noexcept { return upperBound_ - lowerBound_; }

    /// Same span and the same MSD at every position of it.
    bool compareMsdCol(const IgpMsdCol* other) const;

    static const Kest::TypeData& typeData() noexcept;
    static Drimm::AllocTracker& allocTracker();

private:
    IgpMsdCol() = default;
    Kest::DynArray<IgpMsd> msd_;
    std::uint32_t lowerBound_ = 0;
    std::uint32_t upperBound_ = 0;
};

/// The topologies a node takes part in.
class IgpMultiTopologyIdCol final : public Kest::ObservedEntity<IgpMultiTopologyIdCol>,
                                    public Drimm::SlabAllocated<IgpMultiTopologyIdCol> {
public:
    struct Attr {
        enum : Kest::AttrId { mtIdValue = 130 };
    };
    using MtIdSet = Kest::HashSet<IgpMultiTopologyId, 0xFD04F4D5, 2>;

    static Poldo::Ptr<IgpMultiTopologyIdCol> IgpMultiTopologyIdColIs();

    const MtIdSet& mtIdValue() const noexcept { return mtIdValue_; }
    bool mtIdValueHas(IgpMultiTopologyId id) const noexcept { return mtIdValue_.contains(id); }
    void mtIdValueIs(IgpMultiTopologyId id);
    void mtIdValueDel(IgpMultiTopologyId id);
    void mtIdValueDelAll();

    /// Same number of identifiers, every one of ours present in the other; false against null.
    bool compareMtIdCol(const IgpMultiTopologyIdCol* other) const noexcept;
    /// The identifiers sorted ascending, "[0, 2]".
    Poldo::String toStrep() const;

    static const Kest::TypeData& typeData() noexcept;
    static Drimm::AllocTracker& allocTracker();

private:
    IgpMultiTopologyIdCol() = default;
    MtIdSet mtIdValue_;
};

/// Orders area addresses by their text ("39.0840.0001" before "49.0001").
struct AreaIdTextLess {
    bool operator()(const Isis::AreaId& a, const Isis::AreaId& b) const noexcept;
};

/// The area addresses of a node, in text order, each with a flag. Publishes nothing.
class IsisAreaIdCol final : public Poldo::RefCounted, public Drimm::SlabAllocated<IsisAreaIdCol> {
public:
    using AreaIdMap = Kest::RbTreeMap<Isis::AreaId, bool, AreaIdTextLess>;
    using KestAreaId = AreaIdMap::value_type;

    static Poldo::Ptr<IsisAreaIdCol> IsisAreaIdColIs();

    const AreaIdMap& areaId() const noexcept { return areaId_; }
    /// The flag of `area`, false when absent.
    bool areaId(const Isis::AreaId& area) const;
    void areaIdIs(const Isis::AreaId& area, bool flag);
    void areaIdDel(const Isis::AreaId& area);
    void areaIdDel(const AreaIdMap::iterator& it) { areaIdDel(it->first); }
    void areaIdDelAll() noexcept { areaId_.clear(); }

    /// Same area addresses (the flags take no part).
    bool compareAreaIds(const IsisAreaIdCol* other) const;

    static const Kest::TypeData& typeData() noexcept;
    const Kest::TypeData& fwkType() const noexcept { return typeData(); }
    static Drimm::AllocTracker& allocTracker();

private:
    IsisAreaIdCol() = default;
    AreaIdMap areaId_;
};

/// A prefix's metric per flexible algorithm, by algorithm number ascending.
/// Publishes nothing.
class IgpFlexAlgoPrefixMetric final : public Poldo::RefCounted,
                                      public Drimm::SlabAllocated<IgpFlexAlgoPrefixMetric> {
public:
    // A prefix has a metric for one algorithm or two at most, usually none:
    // a sorted array with two in place keeps this object at 32 bytes, its
    // slab class, and a prefix of two flexible algorithms allocates nothing.
    using MetricMap = Kest::FlatMap<std::uint8_t, std::uint32_t, 2>;
    using KestMetric = MetricMap::value_type;

    static Poldo::Ptr<IgpFlexAlgoPrefixMetric> IgpFlexAlgoPrefixMetricIs();

    /// The metric of `algo`, 0 when absent.
    std::uint32_t metric(std::uint8_t algo) const;
    const MetricMap& metric() const noexcept { return metric_; }
    std::size_t metricCount() const noexcept { return metric_.size(); }
    void metricIs(std::uint8_t algo, std::uint32_t metric) { metric_.assign(algo, metric); }
    void metricDel(std::uint8_t algo) { metric_.erase(algo); }
    void metricDel(const MetricMap::iterator& it) { metricDel(it->first); }
    void metricDelAll() noexcept { metric_.clear(); }

    static const Kest::TypeData& typeData() noexcept;
    const Kest::TypeData& fwkType() const noexcept { return typeData(); }
    static Drimm::AllocTracker& allocTracker();

private:
    IgpFlexAlgoPrefixMetric() = default;
    MetricMap metric_;
};

Poldo::Ptr<IgpFlexAlgoDefinitionCol> igpFlexAlgoDefinitionColFactory();
Poldo::Ptr<IgpMsdCol> igpMsdColFactory();
Poldo::Ptr<IgpMultiTopologyIdCol> igpMultiTopologyIdColFactory();
Poldo::Ptr<IsisAreaIdCol> isisAreaIdColFactory();
Poldo::Ptr<IgpFlexAlgoPrefixMetric> igpFlexAlgoPrefixMetricFactory();

}  // namespace Routing::IgpCommon
