#include "IgpCommon/Prefix.h"

#include "Define.h"

namespace Routing::IgpCommon {

Prefix::Prefix(const PrefixKey& key) : prefixKey_(key), prefixMetric_(igpFlexAlgoPrefixMetricFactory()) {}

Poldo::Ptr<Prefix> Prefix::PrefixIs(const PrefixKey& key) {
    return Poldo::Ptr<Prefix>(new Prefix(key), Poldo::adopt);
}

Poldo::Ptr<Prefix> prefixFactory(const PrefixKey& key) {
    return Prefix::PrefixIs(key);
}

void Prefix::updateAttr(const Poldo::Ptr<const Prefix>& other) {
    const Prefix& o = *other;
    if (!o.sidLabelBinding_) {
        if (sidLabelBinding_) {
            sidLabelBindingIs(nullptr);
        }
    } else {
        // Held apart first: `other` may be this very prefix.
        const Poldo::Ptr<const SidLabelBinding> theirs = o.sidLabelBinding_;
        sidLabelBindingIs(sidLabelBindingFactory());
        sidLabelBinding_->updateAttr(theirs);
    }

    if (o.hasValidReachability_) {
        hasValidReachabilityIs(true);
        flagsIs(o.flags_);
        metricIs(o.metric_);
        prefixSidIs(o.prefixSid_);
        // The walk resumes after the last algorithm visited if the collection
        // changes under it (it is our own when a prefix merges itself).
        const auto& theirs = o.prefixMetric_->metric();
        for (auto it = theirs.begin(); it != theirs.end(); ++it) {
            prefixMetric_->metricIs(it->first, it->second);
        }
    } else {
        hasValidReachabilityIs(false);
        flagsIs(o.flags_);
        metricIs(0);
        prefixSidIs(PrefixSid());
        prefixMetric_->metricDelAll();
    }
}

std::ostream& Prefix::formatContent(std::ostream& os) const {
    os << "          prefix=" << prefixKey_.prefix();
    if (prefixKey_.mtId().value() != 0) {
        os << ", mtId=" << prefixKey_.mtId();
    }
    if (hasValidReachability_) {
        os << ", flags=<" << (flags_.isisDown() ? "down" : "") << ">, metric=" << metric_;
        if (prefixSid_.isValid()) {
            os << ", " << prefixSid_.toStrep();
        }
        const auto& metrics = prefixMetric_->metric();
        if (!metrics.empty()) {
            os << ", prefixMetrics=[ ";
            // An 8-bit count of the entries written decides the separator, so
            // with 256 entries it wraps and a separator follows the last one.
            std::uint8_t written = 0;
            for (const auto& [algo, metric] : metrics) {
                os << '(';
                os.put(static_cast<char>(algo));
                os << ", " << metric << ')';
                ++written;
                if (written != metrics.size()) {
                    os << ", ";
                }
            }
            os << "]";
        }
    }
    if (sidLabelBinding_) {
        os << ", " << sidLabelBinding_->toStrep();
    }
    return os << "\n";
}

IGP_DEFINE_DESCRIBED_ENTITY(Prefix)

}  // namespace Routing::IgpCommon
