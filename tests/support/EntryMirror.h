// An entry's neighbors, prefixes and bindings in comparable form, and a mirror that rebuilds them
// from change notifications alone: whatever the mirror lacks after a merge was changed without
// being published. Shared by the merge property tests and the merge fuzzer.
//
// The mirror registers with the entry and with every neighbor, prefix and binding it learns of,
// and keeps a pointer to each so that all of them outlive it.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "AttrState.h"
#include "IgpCommon/LspDatabase.h"
#include "IgpCommon/ParsedContent.h"

namespace IgpTest {

using namespace Routing::IgpCommon;
using FlexMetrics = std::map<unsigned, std::uint32_t>;

// ---- snapshots: every attribute that publishes, in comparable form --------------------------

using NeighborState = AttrState<Neighbor>;
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

BindingState snap(const SidLabelBinding& b);
inline NeighborState snap(const Neighbor& n) {
    return snapAttrs(n);
}
PrefixState snap(const Prefix& p);
FlexMetrics flexOf(const Prefix& p);

inline std::string text(const NeighborState& s) {
    return stateText<Neighbor>(s);
}
std::string text(const PrefixState& s);
std::string text(const FlexMetrics& m);

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

    void onChange(const Poldo::Notification& n) override;

private:
    void onEntry(const Poldo::Notification& n);
    void watchBinding(const Poldo::Ptr<SidLabelBinding>& b);
    void reread(PrefixState& s, const Prefix& pfx, const Poldo::Notification& n);
    void reread(BindingState& s, const SidLabelBinding& b, const Poldo::Notification& n);

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
