// Database entries in comparable form, compared field by field: after each operation the targets
// compare the entries it touched, and printing them for that would cost more than the operation.
// The printed forms only describe a failure.
#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <sstream>
#include <string>
#include <utility>

#include "EntryMirror.h"

namespace IgpFuzz {

inline bool same(const IgpTest::NeighborState& a, const IgpTest::NeighborState& b) {
    return IgpTest::sameState(a, b);
}

/// The binding's identity aside: it only routes a mirror's notifications.
inline bool same(const IgpTest::PrefixState& a, const IgpTest::PrefixState& b) {
    const auto sameBinding = [](const IgpTest::BindingState& x, const IgpTest::BindingState& y) {
        return x.flags == y.flags && x.range == y.range && x.fragment == y.fragment && x.label == y.label &&
               x.prefixSid == y.prefixSid;
    };
    return a.flags == b.flags && a.metric == b.metric && a.sid == b.sid && a.reachable == b.reachable &&
           a.binding.has_value() == b.binding.has_value() &&
           (!a.binding || sameBinding(*a.binding, *b.binding));
}

inline std::string formatted(const Routing::IgpCommon::Node& n) {
    std::ostringstream os;
    n.formatContent(os);
    return os.str();
}

inline bool sameFlexMetrics(const Routing::IgpCommon::Prefix& a, const Routing::IgpCommon::Prefix& b) {
    if (!a.prefixMetric() || !b.prefixMetric()) {
        return a.prefixMetric() == b.prefixMetric();
    }
    const auto& x = a.prefixMetric()->metric();
    const auto& y = b.prefixMetric()->metric();
    return std::equal(x.begin(), x.end(), y.begin(), y.end(), [](const auto& m, const auto& n) {
        return m.first == n.first && m.second == n.second;
    });
}

/// Two entries (or absences) of different databases hold equal nodes, neighbors and prefixes:
/// looked up by key, so no copy is made.
inline bool sameEntry(const Routing::IgpCommon::IgpLsp* a, const Routing::IgpCommon::IgpLsp* b) {
    if (a == nullptr || b == nullptr) {
        return a == b;
    }
    if ((a->node() == nullptr) != (b->node() == nullptr) ||
        (a->node() && formatted(*a->node()) != formatted(*b->node())) ||
        a->neighbor().size() != b->neighbor().size() || a->prefix().size() != b->prefix().size()) {
        return false;
    }
    for (auto it = a->neighbor().begin(); it != a->neighbor().end(); ++it) {
        const auto theirs = b->neighbor(it->key);
        if (!theirs || !same(IgpTest::snap(*it->value), IgpTest::snap(*theirs))) {
            return false;
        }
    }
    for (auto it = a->prefix().begin(); it != a->prefix().end(); ++it) {
        const auto theirs = b->prefix(it->key);
        if (!theirs || !same(IgpTest::snap(*it->value), IgpTest::snap(*theirs)) ||
            !sameFlexMetrics(*it->value, *theirs)) {
            return false;
        }
    }
    return true;
}

/// One entry, or its absence: the node as printed (its collections are compared by content), the
/// neighbors and prefixes (with their flex-algo metrics) by key.
struct EntryState {
    struct PrefixState {
        IgpTest::PrefixState attrs;
        IgpTest::FlexMetrics flex;
    };
    bool present = false;
    std::string node;
    std::map<Routing::IgpCommon::NeighborKey, IgpTest::NeighborState> neighbors;
    std::map<Routing::IgpCommon::PrefixKey, PrefixState> prefixes;

    static EntryState of(const Routing::IgpCommon::IgpLsp* entry) {
        EntryState s;
        if (entry == nullptr) {
            return s;
        }
        s.present = true;
        if (entry->node()) {
            s.node = formatted(*entry->node());
        }
        for (auto it = entry->neighbor().begin(); it != entry->neighbor().end(); ++it) {
            s.neighbors.emplace(it->key, IgpTest::snap(*it->value));
        }
        for (auto it = entry->prefix().begin(); it != entry->prefix().end(); ++it) {
            s.prefixes.emplace(it->key, PrefixState{IgpTest::snap(*it->value), IgpTest::flexOf(*it->value)});
        }
        return s;
    }

    friend bool same(const EntryState& a, const EntryState& b) {
        return a.present == b.present && a.node == b.node &&
               std::equal(a.neighbors.begin(), a.neighbors.end(), b.neighbors.begin(), b.neighbors.end(),
                          [](const auto& x, const auto& y) {
                              return x.first == y.first && same(x.second, y.second);
                          }) &&
               std::equal(a.prefixes.begin(), a.prefixes.end(), b.prefixes.begin(), b.prefixes.end(),
                          [](const auto& x, const auto& y) {
                              return x.first == y.first && same(x.second.attrs, y.second.attrs) &&
                                     x.second.flex == y.second.flex;
                          });
    }

    std::string text() const {
        if (!present) {
            return "absent\n";
        }
        std::string out = node + "\n";
        for (const auto& [k, s] : neighbors) {
            out += "  " + k.toStrep() + ": " + IgpTest::text(s) + "\n";
        }
        for (const auto& [k, s] : prefixes) {
            out += "  " + Kest::strep(k) + ": " + IgpTest::text(s.attrs) + " flex=" + IgpTest::text(s.flex) +
                   "\n";
        }
        return out;
    }
};

}  // namespace IgpFuzz
