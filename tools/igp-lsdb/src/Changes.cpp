#include "Changes.h"

#include "SortedText.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <tuple>

namespace IgpLsdb {

namespace {

int entityRank(std::string_view entity) {
    constexpr std::string_view order[] = {"lsdb", "lsp", "node", "neighbor", "prefix"};
    return static_cast<int>(std::find(std::begin(order), std::end(order), entity) - std::begin(order));
}

// Notifications hand out const entities; the pending change keeps its own
// counted reference so the entity is still there when the merge is over.
template <class E>
Poldo::Ptr<E> hold(const E& e) {
    return Poldo::Ptr<E>(const_cast<E*>(&e));
}

template <class V>
Text oldText(const Poldo::Notification& n) {
    const V* v = n.oldValue<V>();
    return v ? text(*v) : std::nullopt;
}

template <class K>
Text keyText(const Poldo::Notification& n) {
    const K* k = n.key<K>();
    return k ? text(*k) : std::nullopt;
}

// The new value of a plain attribute, read back with `get` once the merge is over.
template <class E, class Get>
void readBack(const E& e, std::function<Text()>& newValue, Get get) {
    newValue = [e = hold(e), get] { return text(get(*e)); };
}

// The old and new texts of a change, from the attribute's description: a
// scalar is read back whole, a member by its key once the merge is over, a
// collection held through a pointer whole when the pointer is replaced.
template <class E>
void describedChange(const E& entity, const Poldo::Notification& n, Change& change,
                     std::function<Text()>& newValue) {
    Kest::visitAttr<E>(n.attr(), [&](const auto& d) {
        using D = std::remove_cvref_t<decltype(d)>;
        if constexpr (Kest::ScalarDesc<D>) {
            change.oldValue = oldText<typename D::Value>(n);
            readBack(entity, newValue, [d](const E& x) { return d.get(x); });
        } else if constexpr (Kest::MembersDesc<D>) {
            const auto* k = n.key<Kest::MemberKey<D>>();
            if constexpr (!std::is_same_v<std::remove_cvref_t<decltype(d.holder)>, std::nullptr_t>) {
                if (k == nullptr) {  // the collection replaced whole
                    change.oldValue = oldText<Kest::ReadType<decltype(d.holder), E>>(n);
                    readBack(entity, newValue, [d](const E& x) { return std::invoke(d.holder, x); });
                    return;
                }
            }
            if (k == nullptr) {
                return;
            }
            change.key = text(*k);
            change.oldValue = oldText<Kest::MemberValue<D>>(n);
            newValue = [e = hold(entity), d, key = *k] {
                const auto v = Kest::findMember(d, *e, key);
                return v ? text(*v) : std::nullopt;
            };
        }
    });
}

}  // namespace

void ChangeFeed::watch(const IC::IgpLspDatabase& db) {
    db.publisher().observerIs(*this);
    for (const auto& entry : db.lsp()) {
        watchEntry(*entry);
    }
}

void ChangeFeed::watchEntry(const IC::IgpLsp& entry) {
    entry.publisher().observerIs(*this);
    if (entry.node()) {
        entry.node()->publisher().observerIs(*this);
    }
    for (const auto& m : entry.neighbor()) {
        m.value->publisher().observerIs(*this);
    }
    for (const auto& m : entry.prefix()) {
        m.value->publisher().observerIs(*this);
    }
}

std::vector<Change> sortedChanges(std::vector<Change> changes) {
    // The library publishes a merge's members in hash order, which the seed
    // decides: order them by entity and key instead. An entity's attributes
    // keep the order they were published in (declaration order), and one
    // attribute's changes go by key.
    struct Item {
        std::size_t firstOfAttr;
        std::size_t index;
    };
    std::vector<Item> items;
    for (std::size_t i = 0; i < changes.size(); ++i) {
        std::size_t first = i;
        for (std::size_t j = 0; j < i; ++j) {
            if (changes[j].entity == changes[i].entity && changes[j].entityKey == changes[i].entityKey &&
                changes[j].attr == changes[i].attr) {
                first = j;
                break;
            }
        }
        items.push_back({first, i});
    }
    const auto tie = [&](const Item& it) {
        const Change& c = changes[it.index];
        return std::tuple<int, const std::string&, std::size_t, const Text&, const Text&, const Text&>(
            entityRank(c.entity), c.entityKey, it.firstOfAttr, c.key, c.oldValue, c.newValue);
    };
    std::stable_sort(items.begin(), items.end(),
                     [&](const Item& a, const Item& b) { return tie(a) < tie(b); });
    std::vector<Change> out;
    out.reserve(changes.size());
    for (const Item& it : items) {
        out.push_back(std::move(changes[it.index]));
    }
    return out;
}

void ChangeFeed::begin(const FrameRef& where, unsigned level, const IC::IgpNodeId& node) {
    context_ = Change{where, level, node, {}, {}, {}, {}, {}, {}};
    pending_.clear();
}

void ChangeFeed::end() {
    // The sink may start another merge; work on a list of our own.
    std::vector<Pending> done;
    done.swap(pending_);
    std::vector<Change> changes;
    for (Pending& p : done) {
        p.change.newValue = p.newValue();
        // Values print their sets in hash order; the seed must not show.
        for (Text* t : {&p.change.oldValue, &p.change.newValue}) {
            if (*t) {
                **t = sortSetLists(**t);
            }
        }
        if (p.change.oldValue != p.change.newValue) {
            changes.push_back(std::move(p.change));
        }
    }
    for (const Change& c : sortedChanges(std::move(changes))) {
        sink_(c);
    }
}

void ChangeFeed::onChange(const Poldo::Notification& n) {
    Pending p{context_, {}};
    p.change.attr = std::string(n.attrName());
    if (const auto* db = n.entity<IC::IgpLspDatabase>()) {
        onDatabase(*db, n, p);
    } else if (const auto* entry = n.entity<IC::IgpLsp>()) {
        onEntry(*entry, n, p);
    } else if (const auto* node = n.entity<IC::Node>()) {
        onNode(*node, n, p);
    } else if (const auto* nbr = n.entity<IC::Neighbor>()) {
        onNeighbor(*nbr, n, p);
    } else if (const auto* pfx = n.entity<IC::Prefix>()) {
        onPrefix(*pfx, n, p);
    } else {
        return;  // attribute objects are watched through their owners
    }
    pending_.push_back(std::move(p));
}

void ChangeFeed::onDatabase(const IC::IgpLspDatabase& db, const Poldo::Notification& n, Pending& p) {
    p.change.entity = "lsdb";
    const IC::IgpNodeId* key = n.key<IC::IgpNodeId>();
    if (key == nullptr) {
        p.newValue = [] { return Text(); };
        return;
    }
    p.change.key = text(*key);
    p.change.oldValue = oldText<Poldo::Ptr<IC::IgpLsp>>(n);
    if (const auto entry = db.lsp(*key)) {
        watchEntry(*entry);
    }
    p.newValue = [db = hold(db), id = *key] { return text(db->lsp(id)); };
}

void ChangeFeed::onEntry(const IC::IgpLsp& entry, const Poldo::Notification& n, Pending& p) {
    p.change.entity = "lsp";
    const auto e = hold(entry);
    switch (n.attr()) {
        case IC::IgpLsp::Attr::node:
            p.change.oldValue = oldText<Poldo::Ptr<IC::Node>>(n);
            if (entry.node()) {
                entry.node()->publisher().observerIs(*this);
            }
            p.newValue = [e] { return text(e->node()); };
            return;
        case IC::IgpLsp::Attr::neighbor: {
            const IC::NeighborKey key = *n.key<IC::NeighborKey>();
            p.change.key = text(key);
            p.change.oldValue = oldText<Poldo::Ptr<IC::Neighbor>>(n);
            if (const auto nbr = entry.neighbor(key)) {
                nbr->publisher().observerIs(*this);
            }
            p.newValue = [e, key] { return text(e->neighbor(key)); };
            return;
        }
        case IC::IgpLsp::Attr::prefix: {
            const IC::PrefixKey key = *n.key<IC::PrefixKey>();
            p.change.key = text(key);
            p.change.oldValue = oldText<Poldo::Ptr<IC::Prefix>>(n);
            if (const auto pfx = entry.prefix(key)) {
                pfx->publisher().observerIs(*this);
            }
            p.newValue = [e, key] { return text(e->prefix(key)); };
            return;
        }
        default:
            p.newValue = [] { return Text(); };
    }
}

void ChangeFeed::onNode(const IC::Node& node, const Poldo::Notification& n, Pending& p) {
    p.change.entity = "node";
    p.newValue = [] { return Text(); };
    describedChange(node, n, p.change, p.newValue);
}

void ChangeFeed::onNeighbor(const IC::Neighbor& nbr, const Poldo::Notification& n, Pending& p) {
    p.change.entity = "neighbor";
    p.change.entityKey = *text(nbr.key());
    p.newValue = [] { return Text(); };
    describedChange(nbr, n, p.change, p.newValue);
}

void ChangeFeed::onPrefix(const IC::Prefix& pfx, const Poldo::Notification& n, Pending& p) {
    p.change.entity = "prefix";
    p.change.entityKey = *text(pfx.prefixKey());
    p.newValue = [] { return Text(); };
    describedChange(pfx, n, p.change, p.newValue);
}

}  // namespace IgpLsdb
