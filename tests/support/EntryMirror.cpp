#include "EntryMirror.h"

namespace IgpTest {

namespace {

using Binding = Poldo::Ptr<SidLabelBinding>;

FlexMap flexOf(const Prefix& p) {
    return std::get<FlexMap>(snapAttrs(p));
}
/// Every attribute but the per-algorithm metrics: their contents never publish.
AttrState<Prefix> published(const Prefix& p) {
    auto s = snapAttrs(p);
    std::get<FlexMap>(s).clear();
    return s;
}

template <class E>
std::string differs(const char* what, const AttrState<E>& a, const AttrState<E>& b) {
    return sameState(a, b) ? std::string()
                           : std::string(what) + ": " + stateText<E>(a) + " vs " + stateText<E>(b);
}

template <class Coll>
auto objectsOf(const Coll& c) {
    std::map<std::remove_cvref_t<decltype(c.begin()->key)>, const void*> m;
    for (auto it = c.begin(); it != c.end(); ++it) {
        m[it->key] = it->value.get();
    }
    return m;
}

/// Each merged member: one of the parsed keys, the object held before under its key or else the
/// parsed one, and `same(member, parsed, held)` says nothing.
template <class Coll, class Before, class Find, class Same>
std::string membersFault(const Coll& merged, std::size_t parsedSize, const Before& before, Find&& parsedOf,
                         Same&& same) {
    if (merged.size() != parsedSize) {
        return "the entry's members are not the parsed ones";
    }
    for (auto it = merged.begin(); it != merged.end(); ++it) {
        const auto theirs = parsedOf(it->key);
        const auto held = before.find(it->key);
        if (!theirs) {
            return "a member the parsed content lacks";
        }
        if (it->value.get() != (held != before.end() ? held->second : theirs.get())) {
            return "a member did not keep its identity";
        }
        if (auto why = same(*it->value, *theirs, held != before.end()); !why.empty()) {
            return why;
        }
    }
    return {};
}

}  // namespace

std::string mergeFault(IgpLsp& entry, const Poldo::Ptr<IsisLspParsedContent>& parsed) {
    const auto neighborsBefore = objectsOf(entry.neighbor());
    const auto prefixesBefore = objectsOf(entry.prefix());
    std::map<PrefixKey, FlexMap> flexBefore;
    for (auto it = entry.prefix().begin(); it != entry.prefix().end(); ++it) {
        flexBefore[it->key] = flexOf(*it->value);
    }
    entry.updateNeighbors(parsed);
    entry.updatePrefixes(parsed);
    if (entry.node() && parsed->node()) {
        entry.node()->updateNodeAttrs(parsed->nodeRawPtr());
    }

    auto why = membersFault(
        entry.neighbor(), parsed->neighbor().size(), neighborsBefore,
        [&](const NeighborKey& k) { return parsed->neighbor(k); },
        [](const Neighbor& mine, const Neighbor& theirs, bool) {
            return differs<Neighbor>("neighbor", snapAttrs(mine), snapAttrs(theirs));
        });
    if (why.empty()) {
        why = membersFault(
            entry.prefix(), parsed->prefix().size(), prefixesBefore,
            [&](const PrefixKey& k) { return parsed->prefix(k); },
            [&](const Prefix& mine, const Prefix& theirs, bool held) {
                const bool reachable = theirs.hasValidReachability();
                FlexMap flex = held && !reachable ? FlexMap() : flexOf(theirs);
                if (held && reachable) {
                    flex.merge(flexBefore.at(mine.prefixKey()));  // keeps the ones `theirs` has
                }
                if (flexOf(mine) != flex) {
                    return std::string("per-algorithm metrics of ")
                        .append(stateText<Prefix>(snapAttrs(mine)));
                }
                return differs<Prefix>("prefix", published(mine), published(theirs));
            });
    }
    if (why.empty() && entry.node() && parsed->node()) {
        why = differs<Node>("node", snapAttrs(*entry.node()), snapAttrs(*parsed->node()));
    }
    return why;
}

Mirror::Mirror(const Poldo::Ptr<IgpLsp>& entry) : entry_(entry) {
    watch(entry_);
    if (entry_->node()) {
        node_ = snapAttrs(*entry_->node());
        watch(entry_->node());
    }
}

Mirror::~Mirror() {
    for (const auto& f : unwatch_) {
        f();
    }
}

/// The prefix's attributes with a copy of its binding, which the binding's notifications update.
AttrState<Prefix> Mirror::snapPrefix(const Prefix& p) {
    auto s = published(p);
    if (Binding& b = std::get<Binding>(s)) {
        watch(b);
        auto copy = sidLabelBindingFactory();
        copy->updateAttr(b);
        b = copy;
    }
    return s;
}

void Mirror::onChange(const Poldo::Notification& n) {
    ++notifications_;
    const SidLabelBinding* binding = n.entity<SidLabelBinding>();
    const Prefix* pfx = n.entity<Prefix>();
    if (binding || (pfx && n.attr() == Prefix::Attr::sidLabelBinding)) {
        ++bindingNotifications_;
    }
    if (n.entity<IgpLsp>() != nullptr) {
        const NeighborKey* nk = n.key<NeighborKey>();
        const PrefixKey* pk = n.key<PrefixKey>();
        if (n.attr() == IgpLsp::Attr::neighbor && nk) {
            if (const auto nbr = entry_->neighbor(*nk)) {
                neighbors_[*nk] = snapAttrs(*nbr);
                watch(nbr);
            } else {
                neighbors_.erase(*nk);
            }
        } else if (n.attr() == IgpLsp::Attr::prefix && pk) {
            if (const auto p = entry_->prefix(*pk)) {
                watch(p);
                prefixes_[*pk] = snapPrefix(*p);
            } else {
                prefixes_.erase(*pk);
            }
        } else if (n.attr() == IgpLsp::Attr::node && entry_->node()) {
            node_ = snapAttrs(*entry_->node());
            watch(entry_->node());
        } else {
            ++unexpected_;
        }
    } else if (const Node* node = n.entity<Node>()) {
        if (node != entry_->nodeRawPtr()) {
            ++fromDetached_;
        } else if (!rereadAttr(node_, *node, n)) {
            ++unexpected_;
        }
    } else if (const Neighbor* nbr = n.entity<Neighbor>()) {
        const auto it = neighbors_.find(nbr->key());
        if (it == neighbors_.end() || entry_->neighbor(nbr->key()).get() != nbr) {
            ++fromDetached_;
        } else if (!rereadAttr(it->second, *nbr, n)) {
            ++unexpected_;
        }
    } else if (pfx) {
        const auto it = prefixes_.find(pfx->prefixKey());
        if (it == prefixes_.end() || entry_->prefix(pfx->prefixKey()).get() != pfx) {
            ++fromDetached_;
        } else if (n.attr() == Prefix::Attr::sidLabelBinding) {
            std::get<Binding>(it->second) = std::get<Binding>(snapPrefix(*pfx));
        } else if (n.attr() != Prefix::Attr::prefixMetric && !rereadAttr(it->second, *pfx, n)) {
            ++unexpected_;  // (the per-algorithm metrics publish only when their object is replaced)
        }
    } else if (binding) {
        SidLabelBinding* copy = nullptr;
        for (auto it = entry_->prefix().begin(); it != entry_->prefix().end(); ++it) {
            const auto mirrored = prefixes_.find(it->key);
            if (it->value->sidLabelBinding().get() == binding && mirrored != prefixes_.end()) {
                copy = std::get<Binding>(mirrored->second).get();
            }
        }
        if (copy == nullptr) {
            ++fromDetached_;
        } else {
            copy->updateAttr(Poldo::Ptr<const SidLabelBinding>(binding));  // each change publishes itself
        }
    } else {
        ++unexpected_;
    }
}

std::string Mirror::fault() const {
    if (unexpected_ || fromDetached_) {
        return std::to_string(unexpected_) + " notifications the mirror could not place, " +
               std::to_string(fromDetached_) + " from objects the entry no longer holds";
    }
    if (neighbors_.size() != entry_->neighbor().size() || prefixes_.size() != entry_->prefix().size()) {
        return "the mirror has other members";
    }
    std::string why;
    for (const auto& [k, s] : neighbors_) {
        const auto nbr = entry_->neighbor(k);
        why = nbr ? differs<Neighbor>("unpublished change", s, snapAttrs(*nbr)) : "a member the mirror lacks";
        if (!why.empty()) {
            return why;
        }
    }
    for (const auto& [k, s] : prefixes_) {
        const auto p = entry_->prefix(k);
        why = p ? differs<Prefix>("unpublished change", s, published(*p)) : "a member the mirror lacks";
        if (!why.empty()) {
            return why;
        }
    }
    return entry_->node() ? differs<Node>("unpublished change", node_, snapAttrs(*entry_->node())) : why;
}

}  // namespace IgpTest
