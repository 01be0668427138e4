#include "EntryMirror.h"

namespace IgpTest {

BindingState snap(const SidLabelBinding& b) {
    return {b.flags().value(), b.range(), b.lspFragmentId(), b.baseLabelSid(), b.basePrefixSid()};
}
PrefixState snap(const Prefix& p) {
    PrefixState s;
    s.flags = p.flags().value();
    s.metric = p.metric();
    s.sid = p.prefixSid();
    s.reachable = p.hasValidReachability();
    s.bindingObject = p.sidLabelBinding().get();
    if (p.sidLabelBinding())
        s.binding = snap(*p.sidLabelBinding());
    return s;
}
FlexMetrics flexOf(const Prefix& p) {
    FlexMetrics m;
    for (const auto& [algo, metric] : p.prefixMetric()->metric())
        m[algo] = metric;
    return m;
}

std::string text(const PrefixState& s) {
    std::ostringstream os;
    os << "flags=" << s.flags << " metric=" << s.metric << " sid=" << s.sid << " reach=" << s.reachable;
    if (s.binding) {
        os << " binding={" << s.binding->flags << ',' << s.binding->range << ',' << s.binding->fragment << ','
           << s.binding->label << ',' << s.binding->prefixSid << '}';
    }
    return os.str();
}
std::string text(const FlexMetrics& m) {
    std::ostringstream os;
    for (const auto& [a, v] : m)
        os << a << ':' << v << ',';
    return os.str();
}

void Mirror::onChange(const Poldo::Notification& n) {
    ++notifications_;
    if (n.entity<SidLabelBinding>() != nullptr ||
        (n.entity<Prefix>() != nullptr && n.attr() == Prefix::Attr::sidLabelBinding)) {
        ++bindingNotifications_;
    }
    if (n.entity<IgpLsp>() != nullptr) {
        onEntry(n);
    } else if (const Neighbor* nbr = n.entity<Neighbor>()) {
        const auto it = neighbors_.find(nbr->key());
        if (it == neighbors_.end() || entry_->neighbor(nbr->key()).get() != nbr) {
            ++fromDetached_;
        } else {
            if (!rereadAttr(it->second, *nbr, n))
                ++unexpected_;
        }
    } else if (const Prefix* pfx = n.entity<Prefix>()) {
        const auto it = prefixes_.find(pfx->prefixKey());
        if (it == prefixes_.end() || entry_->prefix(pfx->prefixKey()).get() != pfx) {
            ++fromDetached_;
        } else {
            reread(it->second, *pfx, n);
        }
    } else if (const SidLabelBinding* b = n.entity<SidLabelBinding>()) {
        PrefixState* owner = nullptr;
        for (auto& [k, s] : prefixes_) {
            const auto current = entry_->prefix(k);
            if (s.bindingObject == b && current && current->sidLabelBinding().get() == b)
                owner = &s;
        }
        if (owner == nullptr) {
            ++fromDetached_;
        } else {
            reread(*owner->binding, *b, n);
        }
    } else {
        ++unexpected_;
    }
}

void Mirror::onEntry(const Poldo::Notification& n) {
    if (n.attr() == IgpLsp::Attr::neighbor && n.key<NeighborKey>() != nullptr) {
        const NeighborKey& k = *n.key<NeighborKey>();
        if (const auto nbr = entry_->neighbor(k)) {
            neighbors_[k] = snap(*nbr);
            nbr->publisher().observerIs(*this);
            watchedNeighbors_.push_back(nbr);
        } else {
            neighbors_.erase(k);
        }
    } else if (n.attr() == IgpLsp::Attr::prefix && n.key<PrefixKey>() != nullptr) {
        const PrefixKey& k = *n.key<PrefixKey>();
        if (const auto pfx = entry_->prefix(k)) {
            prefixes_[k] = snap(*pfx);
            pfx->publisher().observerIs(*this);
            watchedPrefixes_.push_back(pfx);
            watchBinding(pfx->sidLabelBinding());
        } else {
            prefixes_.erase(k);
        }
    } else {
        ++unexpected_;
    }
}

void Mirror::watchBinding(const Poldo::Ptr<SidLabelBinding>& b) {
    if (b) {
        b->publisher().observerIs(*this);
        watchedBindings_.push_back(b);
    }
}

void Mirror::reread(PrefixState& s, const Prefix& pfx, const Poldo::Notification& n) {
    using A = Prefix::Attr;
    switch (n.attr()) {
        case A::flags:
            s.flags = pfx.flags().value();
            break;
        case A::metric:
            s.metric = pfx.metric();
            break;
        case A::prefixSid:
            s.sid = pfx.prefixSid();
            break;
        case A::hasValidReachability:
            s.reachable = pfx.hasValidReachability();
            break;
        case A::prefixMetric:
            break;  // the pointer; its contents never publish
        case A::sidLabelBinding:
            s.bindingObject = pfx.sidLabelBinding().get();
            s.binding.reset();
            if (pfx.sidLabelBinding())
                s.binding = snap(*pfx.sidLabelBinding());
            watchBinding(pfx.sidLabelBinding());
            break;
        default:
            ++unexpected_;
    }
}

void Mirror::reread(BindingState& s, const SidLabelBinding& b, const Poldo::Notification& n) {
    using A = SidLabelBinding::Attr;
    switch (n.attr()) {
        case A::flags:
            s.flags = b.flags().value();
            break;
        case A::range:
            s.range = b.range();
            break;
        case A::baseLabelSid:
            s.label = b.baseLabelSid();
            break;
        case A::basePrefixSid:
            s.prefixSid = b.basePrefixSid();
            break;
        case A::lspFragmentId:
            s.fragment = b.lspFragmentId();
            break;
        default:
            ++unexpected_;
    }
}

}  // namespace IgpTest
