// An entry's neighbors, prefixes and bindings in comparable form, and a mirror that rebuilds them
// from change notifications alone: whatever the mirror lacks after a merge was changed without
// being published. Shared by the merge property tests and the merge fuzzer.
//
// The mirror registers with the entry and with every neighbor, prefix and binding it learns of,
// and keeps a pointer to each so that all of them outlive it.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "IgpCommon/LspDatabase.h"
#include "IgpCommon/ParsedContent.h"

namespace IgpTest {

using namespace Routing::IgpCommon;
using FlexMetrics = std::map<unsigned, std::uint32_t>;

// ---- snapshots: every attribute that publishes, in comparable form --------------------------

struct NeighborState {
    unsigned attrsPresent = 0;
    std::uint32_t adminGroup = 0, teDefMetric = 0, igpMetric = 0;
    float maxLinkBw = 0, maxReserveLinkBw = 0;
    std::array<float, 8> unreservedBw{};
    std::map<unsigned, std::uint32_t> extAdminGroup;
    std::set<std::uint32_t> srlg;
    std::set<AdjacencySid> adjSid;
    std::set<LanAdjacencySid> lanAdjSid;
};
struct BindingState {
    unsigned flags = 0, range = 0, fragment = 0;
    LabelSid label;
    PrefixSid prefixSid;
};
struct PrefixState {
    unsigned flags = 0;
    std::uint32_t metric = 0;
    PrefixSid sid;
    bool reachable = false;
    const SidLabelBinding* bindingObject = nullptr;  // identity only, to route binding notifications
    std::optional<BindingState> binding;
};

BindingState snap(const SidLabelBinding& b) {
    return {b.flags().value(), b.range(), b.lspFragmentId(), b.baseLabelSid(), b.basePrefixSid()};
}
NeighborState snap(const Neighbor& n) {
    NeighborState s;
    s.attrsPresent = n.attrsPresent().value();
    s.adminGroup = n.adminGroup();
    s.teDefMetric = n.teDefMetric();
    s.igpMetric = n.igpMetric();
    s.maxLinkBw = n.maxLinkBw();
    s.maxReserveLinkBw = n.maxReserveLinkBw();
    for (std::uint8_t i = 0; i < 8; ++i)
        s.unreservedBw[i] = n.unreservedBw(BwIndex(i));
    for (auto it = n.extAdminGroup().begin(); it != n.extAdminGroup().end(); ++it)
        s.extAdminGroup[it->key.value()] = it->value;
    for (auto it = n.srlgValues().begin(); it != n.srlgValues().end(); ++it)
        s.srlg.insert(*it);
    for (auto it = n.adjSid().begin(); it != n.adjSid().end(); ++it)
        s.adjSid.insert(*it);
    for (auto it = n.lanAdjSid().begin(); it != n.lanAdjSid().end(); ++it)
        s.lanAdjSid.insert(*it);
    return s;
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

std::string text(const NeighborState& s) {
    std::ostringstream os;
    os << "present=" << s.attrsPresent << " ag=" << s.adminGroup << " te=" << s.teDefMetric
       << " igp=" << s.igpMetric << " bw=" << s.maxLinkBw << "/" << s.maxReserveLinkBw << " ubw=";
    for (const float f : s.unreservedBw)
        os << f << ',';
    os << " eag=";
    for (const auto& [i, w] : s.extAdminGroup)
        os << i << ':' << w << ',';
    os << " srlg=";
    for (const auto v : s.srlg)
        os << v << ',';
    os << " adj=";
    for (const auto& a : s.adjSid)
        os << a << ',';
    os << " lan=";
    for (const auto& a : s.lanAdjSid)
        os << a << ',';
    return os.str();
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

// ---- the mirror: rebuilds the entry from notifications alone --------------------------------

class Mirror final : public Poldo::Observer {
public:
    explicit Mirror(const Poldo::Ptr<IgpLsp>& entry) : entry_(entry) {
        entry_->publisher().observerIs(*this);
    }
    ~Mirror() override {
        entry_->publisher().observerDel(*this);
        for (const auto& n : watchedNeighbors_)
            n->publisher().observerDel(*this);
        for (const auto& p : watchedPrefixes_)
            p->publisher().observerDel(*this);
        for (const auto& b : watchedBindings_)
            b->publisher().observerDel(*this);
    }
    Mirror(const Mirror&) = delete;
    Mirror& operator=(const Mirror&) = delete;

    const std::map<NeighborKey, NeighborState>& neighbors() const { return neighbors_; }
    const std::map<PrefixKey, PrefixState>& prefixes() const { return prefixes_; }
    /// Notifications the mirror could not place: wrong attribute, key type or entity.
    unsigned unexpected() const { return unexpected_; }
    /// Notifications from objects that are no longer the entry's (nothing should change them).
    unsigned fromDetached() const { return fromDetached_; }
    /// Notifications heard, and those among them about SID/label bindings (which every merge of a
    /// prefix that carries one replaces, changed or not).
    unsigned notifications() const { return notifications_; }
    unsigned bindingNotifications() const { return bindingNotifications_; }

    void onChange(const Poldo::Notification& n) override {
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
                reread(it->second, *nbr, n);
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

private:
    void onEntry(const Poldo::Notification& n) {
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

    void watchBinding(const Poldo::Ptr<SidLabelBinding>& b) {
        if (b) {
            b->publisher().observerIs(*this);
            watchedBindings_.push_back(b);
        }
    }

    template <class K>
    const K* keyOr(const Poldo::Notification& n) {
        const K* k = n.key<K>();
        if (k == nullptr)
            ++unexpected_;
        return k;
    }

    template <class Set, class K>
    static void mirrorMember(Set& mine, bool present, const K& k) {
        if (present) {
            mine.insert(k);
        } else {
            mine.erase(k);
        }
    }

    void reread(NeighborState& s, const Neighbor& nbr, const Poldo::Notification& n) {
        using A = Neighbor::Attr;
        switch (n.attr()) {
            case A::attrsPresent:
                s.attrsPresent = nbr.attrsPresent().value();
                break;
            case A::adminGroup:
                s.adminGroup = nbr.adminGroup();
                break;
            case A::maxLinkBw:
                s.maxLinkBw = nbr.maxLinkBw();
                break;
            case A::maxReserveLinkBw:
                s.maxReserveLinkBw = nbr.maxReserveLinkBw();
                break;
            case A::teDefMetric:
                s.teDefMetric = nbr.teDefMetric();
                break;
            case A::igpMetric:
                s.igpMetric = nbr.igpMetric();
                break;
            case A::unreservedBw:
                if (const auto* i = keyOr<BwIndex>(n))
                    s.unreservedBw[i->value()] = nbr.unreservedBw(*i);
                break;
            case A::extAdminGroup:
                if (const auto* i = keyOr<AdminGroupIndex>(n)) {
                    if (nbr.extAdminGroup().contains(*i)) {
                        s.extAdminGroup[i->value()] = nbr.extAdminGroup(*i);
                    } else {
                        s.extAdminGroup.erase(i->value());
                    }
                }
                break;
            case A::srlgValues:
                if (const auto* v = keyOr<std::uint32_t>(n))
                    mirrorMember(s.srlg, nbr.srlgValuesHas(*v), *v);
                break;
            case A::adjSid:
                if (const auto* v = keyOr<AdjacencySid>(n))
                    mirrorMember(s.adjSid, nbr.adjSidHas(*v), *v);
                break;
            case A::lanAdjSid:
                if (const auto* v = keyOr<LanAdjacencySid>(n))
                    mirrorMember(s.lanAdjSid, nbr.lanAdjSidHas(*v), *v);
                break;
            default:
                ++unexpected_;
        }
    }

    void reread(PrefixState& s, const Prefix& pfx, const Poldo::Notification& n) {
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

    void reread(BindingState& s, const SidLabelBinding& b, const Poldo::Notification& n) {
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

    Poldo::Ptr<IgpLsp> entry_;
    std::map<NeighborKey, NeighborState> neighbors_;
    std::map<PrefixKey, PrefixState> prefixes_;
    // Held so that every publisher the mirror registered with outlives it.
    std::vector<Poldo::Ptr<Neighbor>> watchedNeighbors_;
    std::vector<Poldo::Ptr<Prefix>> watchedPrefixes_;
    std::vector<Poldo::Ptr<SidLabelBinding>> watchedBindings_;
    unsigned unexpected_ = 0;
    unsigned fromDetached_ = 0;
    unsigned notifications_ = 0;
    unsigned bindingNotifications_ = 0;
};

}  // namespace IgpTest
