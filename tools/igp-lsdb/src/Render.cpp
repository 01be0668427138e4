#include "Render.h"

#include "Escape.h"

#include <cstdio>
#include <sstream>

// GCC 12 follows the flag sets' accessor member pointers (Kest::strep of a
// flag set) into the one-octet object and reports reads past it that the
// non-virtual pointers never make.
#pragma GCC diagnostic ignored "-Warray-bounds"

namespace IgpLsdb {

namespace {

// A dump text on one line: runs of blanks and line breaks become one blank.
template <class E>
std::string oneLine(const E& entity) {
    std::ostringstream os;
    entity.formatContent(os);
    std::string out;
    bool blank = false;
    for (const char c : os.str()) {
        if (c == ' ' || c == '\n' || c == '\t') {
            blank = !out.empty();
            continue;
        }
        if (blank) {
            out += ' ';
            blank = false;
        }
        out += c;
    }
    return printable(out);
}

template <class Range, class Fn>
std::string list(const Range& range, Fn&& each) {
    std::string out = "[";
    for (const auto& member : range) {
        out += out.size() > 1 ? ", " : "";
        out += each(member);
    }
    return out + "]";
}

}  // namespace

std::string printable(std::string_view s, bool keepNewlines) {
    if (!keepNewlines) {
        return escaped(s);
    }
    std::string out;
    for (std::size_t end = s.find('\n'); end != std::string_view::npos; end = s.find('\n')) {
        out += escaped(s.substr(0, end)) + '\n';
        s.remove_prefix(end + 1);
    }
    return out + escaped(s);
}

Text text(const IC::IgpNodeId& id) {
    return std::string(id.toStrep());
}

namespace {

/// The smallest member of an address set: NeighborKey::toStrep() shows the
/// first in hash order, which the process's seed decides.
template <class Set>
void putSmallest(std::string& out, const char* tag, const Set& set) {
    if (set.empty()) {
        return;
    }
    auto smallest = set.uncheckedBegin();
    for (auto it = set.uncheckedBegin(); it != set.uncheckedEnd(); ++it) {
        if (*it < *smallest) {
            smallest = it;
        }
    }
    out += tag + std::string(smallest->stringValue());
}

}  // namespace

Text text(const IC::NeighborKey& key) {
    // NeighborKey::toStrep()'s form, "1921.6800.1001;lv410.0.0.1;rv410.0.0.2;mtId 2".
    std::string out(key.nodeId().toStrep());
    putSmallest(out, ";lv4", key.localIpv4Addr());
    putSmallest(out, ";rv4", key.remoteIpv4Addr());
    putSmallest(out, ";lv6", key.localIpv6Addr());
    putSmallest(out, ";rv6", key.remoteIpv6Addr());
    if (key.mtId().value() != 0) {
        out += ";mtId " + std::to_string(key.mtId().value());
    }
    return printable(out);
}

Text text(const IC::PrefixKey& key) {
    std::string out = *text(key.prefix());
    if (key.mtId().value() != 0) {
        out += ";mtId " + std::to_string(key.mtId().value());  // as NeighborKey::toStrep writes it
    }
    return out;
}

Text text(const Poldo::Ptr<IC::IgpLsp>& entry) {
    if (!entry) {
        return std::nullopt;
    }
    std::string out;
    if (entry->node() && !entry->node()->hostName().empty()) {
        out = "hostname=" + printable(std::string_view(entry->node()->hostName())) + ", ";
    }
    return out + "neighbors=" + std::to_string(entry->neighbor().size()) +
           ", prefixes=" + std::to_string(entry->prefix().size());
}

Text text(const Poldo::Ptr<IC::Node>& node) {
    return node ? Text(oneLine(*node)) : std::nullopt;
}

Text text(const Poldo::Ptr<IC::Neighbor>& nbr) {
    return nbr ? Text(oneLine(*nbr)) : std::nullopt;
}

Text text(const Poldo::Ptr<IC::Prefix>& pfx) {
    return pfx ? Text(oneLine(*pfx)) : std::nullopt;
}

Text text(const Poldo::Ptr<IC::IsisAreaIdCol>& areas) {
    if (!areas) {
        return std::nullopt;
    }
    return list(areas->areaId(), [](const auto& member) { return *text(member.first); });
}

Text text(const Poldo::Ptr<IC::SrCapabilities>& caps) {
    if (!caps) {
        return std::nullopt;
    }
    std::string ranges = "[";
    for (unsigned i = 0; i < caps->numRanges() && i < 8; ++i) {
        ranges +=
            (i ? ", " : "") + *text(caps->sidLabelRange(IC::SrSidRangeIndex(static_cast<std::uint8_t>(i))));
    }
    const IC::SrCapabilityFlags flags = caps->srCapFlag();
    return "{'srCapFlag': " + *text(flags) + ", 'numRanges': " + std::to_string(caps->numRanges()) +
           ", 'sidLabelRange': " + ranges + "]}";
}

Text text(const Poldo::Ptr<IC::IgpMsdCol>& msds) {
    if (!msds) {
        return std::nullopt;
    }
    std::string out = "[";
    for (std::uint32_t p = msds->lowerBound(); p < msds->upperBound(); ++p) {
        out += (p != msds->lowerBound() ? ", " : "") + *text(msds->msd(p));
    }
    return out + "]";
}

Text text(const Poldo::Ptr<IC::IgpFlexAlgoDefinitionCol>& fads) {
    if (!fads) {
        return std::nullopt;
    }
    return list(fads->fad(), [](const auto& member) { return *text(member.second); });
}

Text text(const Poldo::Ptr<IC::IgpMultiTopologyIdCol>& mts) {
    return mts ? Text(std::string(mts->toStrep())) : std::nullopt;
}

Text text(const Poldo::Ptr<IC::IgpFlexAlgoPrefixMetric>& metrics) {
    if (!metrics) {
        return std::nullopt;
    }
    std::string out = "{";
    for (const auto& [algo, metric] : metrics->metric()) {
        out += (out.size() > 1 ? ", " : "") + std::to_string(algo) + ": " + std::to_string(metric);
    }
    return out + "}";
}

Text text(const Poldo::Ptr<IC::SidLabelBinding>& binding) {
    return binding ? Text(printable(std::string_view(binding->toStrep()))) : std::nullopt;
}

std::string nodeLabel(const IC::IgpNodeId& id, const std::optional<std::string>& hostName) {
    std::string out(id.toStrep());
    if (hostName) {
        out += " (" + printable(*hostName) + ")";
    }
    return out;
}

}  // namespace IgpLsdb
