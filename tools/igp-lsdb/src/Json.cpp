#include "Json.h"

#include <algorithm>
#include <tuple>

#include "Filters.h"
#include "Render.h"
#include "Report.h"

namespace IgpLsdb {

namespace {

Json valueJson(const Poldo::Ptr<IC::IgpFlexAlgoEag>& words);
Json valueJson(const Poldo::Ptr<IC::IgpFlexAlgoSrlg>& srlgs);
Json valueJson(const Poldo::Ptr<IC::SidLabelBinding>& b);
Json valueJson(const Poldo::Ptr<IC::IsisAreaIdCol>& areas);
Json valueJson(const Poldo::Ptr<IC::SrCapabilities>& caps);
Json valueJson(const Poldo::Ptr<IC::IgpMsdCol>& msds);
Json valueJson(const Poldo::Ptr<IC::IgpFlexAlgoDefinitionCol>& fads);
Json valueJson(const Poldo::Ptr<IC::IgpMultiTopologyIdCol>& topologies);

template <class T>
concept FlagSet = requires(const T& v) {
    T::kestFlagNames;
    { v.value() } -> std::same_as<std::uint8_t>;
};

// Value types turn into JSON through their reflected attributes: numbers and
// booleans as such, flag sets as an object of their named flags, value types
// with attributes (SIDs, ranges) as objects of them, anything else as its
// canonical text.
template <class T>
Json valueJson(const T& v) {
    if constexpr (std::is_same_v<T, bool> || std::is_arithmetic_v<T>) {
        return v;
    } else if constexpr (FlagSet<T>) {
        Json o = Json::object();
        unsigned bit = 0;
        for (const std::string_view name : T::kestFlagNames) {
            o[std::string(name)] = ((v.value() >> bit++) & 1u) != 0;
        }
        return o;
    } else if constexpr (std::is_same_v<T, Lumo::MplsLabel>) {
        return v.value();
    } else if constexpr (std::is_same_v<T, IC::IgpMultiTopologyId> ||
                         std::is_same_v<T, IC::AdminGroupIndex> || std::is_same_v<T, IC::BwIndex>) {
        return v.value();
    } else if constexpr (std::is_same_v<T, IC::LinkDelay>) {
        return v.present() ? Json{{"delay", v.delay()}, {"anomalous", v.anomalous()}} : Json();
    } else if constexpr (Kest::ValueForm<T>) {
        Json o = Json::object();
        std::apply([&](const auto&... attr) { ((o[std::string(attr.name)] = valueJson(attr.get(v))), ...); },
                   T::kestAttrs());
        return o;
    } else {
        return *text(v);
    }
}

Json valueJson(const Poldo::Ptr<IC::IgpFlexAlgoEag>& words) {
    return words ? Json(words->values()) : Json();
}

Json valueJson(const Poldo::Ptr<IC::IgpFlexAlgoSrlg>& srlgs) {
    if (!srlgs) {
        return Json();
    }
    std::vector<std::uint32_t> v(srlgs->value().begin(), srlgs->value().end());
    std::sort(v.begin(), v.end());
    return v;
}

Json valueJson(const Poldo::Ptr<IC::SidLabelBinding>& b) {
    if (!b) {
        return Json();
    }
    return Json{{"flags", valueJson(b->flags())},
                {"range", b->range()},
                {"baseLabelSid", valueJson(b->baseLabelSid())},
                {"basePrefixSid", valueJson(b->basePrefixSid())},
                {"lspFragmentId", b->lspFragmentId()}};
}

// The members of a set or list, each through `each`, in ascending order of their JSON.
template <class Range, class Fn>
Json sortedArray(const Range& range, Fn&& each) {
    std::vector<Json> items;
    for (const auto& member : range) {
        items.push_back(each(member));
    }
    std::sort(items.begin(), items.end());
    return Json(std::move(items));
}

template <class Set>
Json sortedValues(const Set& set) {
    return sortedArray(set, [](const auto& v) { return valueJson(v); });
}

// Addresses sort as numbers, not as text: collect them first.
template <class Set>
Json sortedAddresses(const Set& set) {
    using Addr = std::decay_t<decltype(*set.begin())>;
    std::vector<Addr> v(set.begin(), set.end());
    std::sort(v.begin(), v.end());
    Json out = Json::array();
    for (const Addr& a : v) {
        out.push_back(*text(a));
    }
    return out;
}

Json optionalText(const Text& t) {
    return t ? Json(*t) : Json();
}

// The node's collections: null when absent, areas in their text order, MSDs
// by position over the whole span (absent ones as zeros), definitions by
// algorithm, topologies sorted.
Json valueJson(const Poldo::Ptr<IC::IsisAreaIdCol>& areas) {
    if (!areas) {
        return Json();
    }
    Json out = Json::array();
    for (const auto& [area, flag] : areas->areaId()) {
        out.push_back(*text(area));
    }
    return out;
}

Json valueJson(const Poldo::Ptr<IC::SrCapabilities>& caps) {
    if (!caps) {
        return Json();
    }
    Json ranges = Json::array();
    for (unsigned i = 0; i < caps->numRanges() && i < 8; ++i) {
        ranges.push_back(valueJson(caps->sidLabelRange(IC::SrSidRangeIndex(static_cast<std::uint8_t>(i)))));
    }
    return Json{{"flags", valueJson(caps->srCapFlag())}, {"ranges", std::move(ranges)}};
}

Json valueJson(const Poldo::Ptr<IC::IgpMsdCol>& msds) {
    if (!msds) {
        return Json();
    }
    Json out = Json::array();
    for (std::uint32_t p = msds->lowerBound(); p < msds->upperBound(); ++p) {
        out.push_back(valueJson(msds->msd(p)));
    }
    return out;
}

Json valueJson(const Poldo::Ptr<IC::IgpFlexAlgoDefinitionCol>& fads) {
    if (!fads) {
        return Json();
    }
    Json out = Json::array();
    for (const auto& [algo, def] : fads->fad()) {
        out.push_back(valueJson(def));
    }
    return out;
}

Json valueJson(const Poldo::Ptr<IC::IgpMultiTopologyIdCol>& topologies) {
    return topologies ? sortedValues(topologies->mtIdValue()) : Json();
}

// An entity's described attributes by their JSON names: scalars as values,
// arrays in index order, maps as sorted {key, value} objects, sets sorted.
// The key is the caller's: it is written field by field.
template <class E>
void describedJson(Json& out, const E& e) {
    Kest::forEachAttr<E>([&](const auto& d) {
        using D = std::remove_cvref_t<decltype(d)>;
        const auto name = [&] { return std::string(d.json.attr.empty() ? d.name : d.json.attr); };
        if (d.json.omitted) {
            return;
        }
        if constexpr (Kest::ScalarDesc<D>) {
            if constexpr (!D::isKey) {
                const bool absent = d.json.nullUnlessCarried && !d.carried(e);
                out[name()] = absent ? Json() : valueJson(d.get(e));
            }
        } else if constexpr (Kest::MembersDesc<D>) {
            Json items = Json::array();
            Kest::forEachMember(d, e, [&](const auto& k, const auto& v) {
                if constexpr (D::kind == Kest::AttrKind::array) {
                    items.push_back(valueJson(v));
                } else if constexpr (std::is_same_v<Kest::MemberKey<D>, Kest::MemberValue<D>>) {
                    items.push_back(valueJson(k));
                } else {
                    items.push_back(Json{{std::string(d.json.key), valueJson(k)},
                                         {std::string(d.json.value), valueJson(v)}});
                }
            });
            if constexpr (D::kind != Kest::AttrKind::array) {
                std::sort(items.begin(), items.end());
            }
            out[name()] = std::move(items);
        }
    });
}

Json neighborJson(const IC::Neighbor& n) {
    const IC::NeighborKey& k = n.key();
    Json out{
        {"neighbor", *text(k.nodeId())},
        {"mtId", k.mtId().value()},
        {"localIpv4", sortedAddresses(k.localIpv4Addr())},
        {"remoteIpv4", sortedAddresses(k.remoteIpv4Addr())},
        {"localIpv6", sortedAddresses(k.localIpv6Addr())},
        {"remoteIpv6", sortedAddresses(k.remoteIpv6Addr())},
    };
    describedJson(out, n);
    return out;
}

Json prefixJson(const IC::Prefix& p) {
    // Reachability leads the described attributes: its place is held here.
    Json out{{"prefix", *text(p.prefixKey().prefix())},
             {"mtId", p.prefixKey().mtId().value()},
             {"reachable", Json()}};
    describedJson(out, p);
    return out;
}

Json malformedJson(const Malformed& m) {
    return Json{{"capture", m.captureName}, {"captureIndex", m.where.capture},
                {"frame", m.where.frame},   {"time", timeText(m.where.time)},
                {"level", m.level},         {"reason", m.reason},
                {"message", m.message}};
}

}  // namespace

Json malformedJsonList(const Lsdb& lsdb) {
    Json out = Json::array();
    for (const Malformed& m : lsdb.malformed()) {
        out.push_back(malformedJson(m));
    }
    return out;
}

namespace {

Json lspIds(const std::vector<LspIdValue>& ids) {
    Json out = Json::array();
    for (const LspIdValue id : ids) {
        out.push_back(lspIdText(id));
    }
    return out;
}

Json counts(const std::map<std::string, std::size_t>& byReason) {
    Json out = Json::object();
    for (const auto& [reason, n] : byReason) {
        out[reason] = n;
    }
    return out;
}

}  // namespace

Json nodeJson(unsigned level, const IC::IgpLsp& entry, std::size_t fragments, const HostNames& names) {
    const IC::Node& node = *entry.node();
    std::vector<Poldo::Ptr<IC::Neighbor>> nbrs;
    for (const auto& m : entry.neighbor()) {
        nbrs.push_back(m.value);
    }
    std::sort(nbrs.begin(), nbrs.end(), [](const auto& x, const auto& y) { return x->key() < y->key(); });
    std::vector<Poldo::Ptr<IC::Prefix>> pfxs;
    for (const auto& m : entry.prefix()) {
        pfxs.push_back(m.value);
    }
    std::sort(pfxs.begin(), pfxs.end(),
              [](const auto& x, const auto& y) { return x->prefixKey() < y->prefixKey(); });
    Json neighbors = Json::array();
    for (const auto& n : nbrs) {
        neighbors.push_back(neighborJson(*n));
    }
    Json prefixes = Json::array();
    for (const auto& p : pfxs) {
        prefixes.push_back(prefixJson(*p));
    }
    const auto hostName = names.of(entry.nodeId());
    Json out{
        {"level", level},
        {"nodeId", *text(entry.nodeId())},
        {"pseudonode", entry.nodeId().isPnodeId()},
        {"hostname", entry.nodeId().isPnodeId() || !hostName ? Json() : Json(printable(*hostName))},
        {"fragments", fragments},
    };
    describedJson(out, node);
    out["neighbors"] = std::move(neighbors);
    out["prefixes"] = std::move(prefixes);
    return out;
}

Json dumpJson(const Lsdb& lsdb, const NodeFilter& filter, const HostNames& names) {
    Json levels = Json::array();
    for (const unsigned level : lsdb.levels()) {
        auto entries = selectedEntries(*lsdb.keeper(level).database(), filter, names);
        std::sort(entries.begin(), entries.end(),
                  [](const auto& x, const auto& y) { return x->nodeId() < y->nodeId(); });
        Json nodes = Json::array();
        for (const auto& entry : entries) {
            nodes.push_back(
                nodeJson(level, *entry, lsdb.keeper(level).fragmentCount(entry->nodeId()), names));
        }
        levels.push_back(Json{{"level", level}, {"nodes", std::move(nodes)}});
    }
    return Json{{"kind", "dump"},
                {"version", jsonVersion},
                {"levels", std::move(levels)},
                {"malformed", malformedJsonList(lsdb)}};
}

Json changeJson(const Change& c, const HostNames& names) {
    const auto hostName = names.of(c.node);
    return Json{
        {"kind", "change"},
        {"capture", c.where.capture == 0 ? Json() : Json(c.where.capture)},
        {"frame", c.where.capture == 0 ? Json() : Json(c.where.frame)},
        {"time", c.where.capture == 0 ? Json() : Json(timeText(c.where.time))},
        {"level", c.level},
        {"node", *text(c.node)},
        {"hostname", hostName ? Json(printable(*hostName)) : Json()},
        {"entity", c.entity},
        {"entityKey", c.entityKey.empty() ? Json() : Json(c.entityKey)},
        {"attr", c.attr},
        {"key", optionalText(c.key)},
        {"old", optionalText(c.oldValue)},
        {"new", optionalText(c.newValue)},
    };
}

Json statsJson(const Lsdb& lsdb, const std::vector<std::string>& captures, const NodeFilter& filter,
               const HostNames& names) {
    Json levels = Json::array();
    for (const LevelStats& s : levelStats(lsdb, filter, names)) {
        levels.push_back(Json{
            {"level", s.level},
            {"nodes", s.nodes},
            {"pseudonodes", s.pseudonodes},
            {"neighbors", s.neighbors},
            {"prefixes", s.prefixes},
            {"fragments", s.fragments},
            {"lspsReceived", s.lsps.received},
            {"installed", s.lsps.installed},
            {"purges", s.lsps.purges},
            {"ignoredAsOld", s.lsps.ignoredAsOld},
            {"completeness", Json{{"csnps", s.csnps},
                                  {"listedNeverCarried", lspIds(s.listedNeverCarried)},
                                  {"heldNotListed", lspIds(s.heldNotListed)}}},
            {"malformed", counts(s.malformed)},
        });
    }
    const FrameCounters& f = lsdb.frameCounters();
    return Json{
        {"kind", "stats"},
        {"version", jsonVersion},
        {"captures", captures},
        {"frames", Json{{"read", f.frames},
                        {"lsps", f.lsps},
                        {"otherIsis", f.otherIsis},
                        {"notIsis", f.notIsis},
                        {"malformed", counts(malformedFrames(lsdb))}}},
        {"levels", std::move(levels)},
        {"malformed", malformedJsonList(lsdb)},
    };
}

std::string jsonText(const Json& j, bool compact) {
    // Every string was made printable ASCII, but a wrong octet must not abort an export.
    return j.dump(compact ? -1 : 2, ' ', false, Json::error_handler_t::replace);
}

}  // namespace IgpLsdb
