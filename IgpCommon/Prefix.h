// A reachable prefix advertised in an LSP (RFC 5305 4, RFC 5308, RFC 5120),
// keyed by PrefixKey, with its flags, metric, prefix SID, per-algorithm
// metrics and an optional SID/label binding.
//
// `hasValidReachability` splits a prefix's life in two: an unreachable prefix
// carries only its key, its flags and possibly a binding; merging one resets
// the metric, the SID and the per-algorithm metrics.
#pragma once

#include <cstdint>
#include <ostream>
#include <tuple>

#include "IgpCommon/FlagSets.h"
#include "IgpCommon/NodeAttrCollections.h"
#include "IgpCommon/PrefixKey.h"
#include "IgpCommon/SidLabelBinding.h"
#include "IgpCommon/SidValues.h"
#include "IgpCommon/framework/AttrDesc.h"
#include "IgpCommon/framework/Entity.h"
#include "IgpCommon/framework/Ptr.h"
#include "IgpCommon/framework/TypeData.h"
#include "IgpCommon/platform/Drimm.h"

namespace Routing::IgpCommon {

class Prefix final : public Kest::ObservedEntity<Prefix>, public Drimm::SlabAllocated<Prefix> {
public:
    struct Attr {
        enum : Kest::AttrId {
            prefixKey = 130,
            flags,
            metric,
            prefixSid,
            prefixMetric,
            hasValidReachability,
            sidLabelBinding,
            updateAttr,
            kestEnd,  ///< one past the last identifier
        };
    };

    /// A prefix with that key and a fresh, empty per-algorithm metric collection.
    static Poldo::Ptr<Prefix> PrefixIs(const PrefixKey& key);

    const PrefixKey& prefixKey() const noexcept { return prefixKey_; }
    PrefixFlags flags() const noexcept { return flags_; }
    void flagsIs(PrefixFlags v) { writeAttr(Attr::flags, flags_, v); }
    std::uint32_t metric() const noexcept { return metric_; }
    void metricIs(std::uint32_t v) { writeAttr(Attr::metric, metric_, v); }
    /// The prefix SID of the default algorithm.
    const PrefixSid& prefixSid() const noexcept { return prefixSid_; }
    void prefixSidIs(const PrefixSid& v) { writeAttr(Attr::prefixSid, prefixSid_, v); }
    /// Never null while the prefix is used: merges and the dump rely on it.
    const Poldo::Ptr<IgpFlexAlgoPrefixMetric>& prefixMetric() const noexcept { return prefixMetric_; }
    void prefixMetricIs(const Poldo::Ptr<IgpFlexAlgoPrefixMetric>& v) {
        writeAttr(Attr::prefixMetric, prefixMetric_, v);
    }
    bool hasValidReachability() const noexcept { return hasValidReachability_; }
    void hasValidReachabilityIs(bool v) { writeAttr(Attr::hasValidReachability, hasValidReachability_, v); }
    const Poldo::Ptr<SidLabelBinding>& sidLabelBinding() const noexcept { return sidLabelBinding_; }
    void sidLabelBindingIs(const Poldo::Ptr<SidLabelBinding>& v) {
        writeAttr(Attr::sidLabelBinding, sidLabelBinding_, v);
    }

    /// Brings this prefix up to `other` (same key, not checked):
    /// - binding: removed when `other` has none; otherwise a new binding
    ///   object is installed on every such merge and then updated from the
    ///   other's, so observers see a new pointer each time;
    /// - reachable `other`: reachability, flags, metric and SID are copied and
    ///   its per-algorithm metrics added or overwritten (ours that it lacks stay);
    /// - unreachable `other`: reachability false, its flags copied, metric 0,
    ///   a default SID, and the per-algorithm metrics cleared in one step.
    void updateAttr(const Poldo::Ptr<const Prefix>& other);

    /// The dump line of the prefix.
    std::ostream& formatContent(std::ostream& os) const;

    static const Kest::TypeData& typeData() noexcept;
    static Drimm::AllocTracker& allocTracker();

    /// Every attribute, once: what tools print, compare, unite and mirror.
    /// Fragments unite flags and metric with the reachability of the first
    /// reachable one, the first valid SID, each algorithm's metric from the
    /// first that has it and the first binding.
    static constexpr auto kestAttrDescs();

private:
    explicit Prefix(const PrefixKey& key);

    // Ordered for size: the metric fills the base's last four bytes, and the
    // flags and reachability the key's last two (it may overlap them).
    std::uint32_t metric_ = 0;
    [[no_unique_address]] const PrefixKey prefixKey_;
    PrefixFlags flags_;
    bool hasValidReachability_ = false;
    PrefixSid prefixSid_;
    Poldo::Ptr<IgpFlexAlgoPrefixMetric> prefixMetric_;
    Poldo::Ptr<SidLabelBinding> sidLabelBinding_;
};

constexpr auto Prefix::kestAttrDescs() {
    using P = Prefix;
    using Kest::Unite;
    using MetricMap = IgpFlexAlgoPrefixMetric::MetricMap;
    constexpr auto first = Unite::firstCarrier;
    constexpr auto reachable = [](const P& p) { return p.hasValidReachability(); };
    return std::tuple{
        Kest::keyAttr("prefixKey", Attr::prefixKey, &P::prefixKey),
        Kest::scalarAttr("flags", Attr::flags, &P::flags, &P::flagsIs, first, reachable),
        Kest::scalarAttr("metric", Attr::metric, &P::metric, &P::metricIs, first, reachable),
        Kest::scalarAttr("prefixSid", Attr::prefixSid, &P::prefixSid, &P::prefixSidIs, first,
                         [](const P& p) { return p.prefixSid().isValid(); }),
        Kest::membersAttrOf<Kest::AttrKind::pointer, P>(
            "prefixMetric", Attr::prefixMetric, &P::prefixMetric,
            [](const P& p) -> const MetricMap& { return p.prefixMetric()->metric(); },
            [](P& p, std::uint8_t algo, std::uint32_t m) { p.prefixMetric()->metricIs(algo, m); },
            Kest::JsonNames{"flexAlgoMetrics", "algorithm", "metric"}),
        Kest::scalarAttr("hasValidReachability", Attr::hasValidReachability, &P::hasValidReachability,
                         &P::hasValidReachabilityIs, first, reachable, Kest::JsonNames{"reachable"}),
        Kest::pointerAttr("sidLabelBinding", Attr::sidLabelBinding, &P::sidLabelBinding,
                          &P::sidLabelBindingIs, Kest::JsonNames{"binding"}),
        Kest::operationAttr("updateAttr", Attr::updateAttr),
    };
}

Poldo::Ptr<Prefix> prefixFactory(const PrefixKey& key);

namespace detail {
/// Reads a prefix's key: the collections of prefixes are keyed by it.
struct PrefixKeyOf {
    const PrefixKey& operator()(const Poldo::Ptr<Prefix>& p) const noexcept { return p->prefixKey(); }
};
}  // namespace detail

}  // namespace Routing::IgpCommon
