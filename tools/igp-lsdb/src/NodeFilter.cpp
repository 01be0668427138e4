#include "NodeFilter.h"

#include <cctype>

namespace IgpLsdb {

namespace {

struct ParsedId {
    std::uint64_t id = 0;  // as IgpNodeId::toU64: system, pseudonode, then a 0 octet
    bool exact = false;    // names one node, not a system with its pseudonodes
};

/// Hex digit groups separated by dots, as "4,4,4,2"; null unless `s` is that form.
std::optional<std::vector<std::string>> hexGroups(std::string_view s) {
    std::vector<std::string> groups(1);
    for (const char c : s) {
        if (c == '.') {
            groups.emplace_back();
        } else if (std::isxdigit(static_cast<unsigned char>(c)) != 0) {
            groups.back() += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        } else {
            return std::nullopt;
        }
    }
    for (const std::string& g : groups) {
        if (g.empty()) {
            return std::nullopt;
        }
    }
    return groups;
}

std::uint64_t hexValue(const std::string& digits) {
    std::uint64_t v = 0;
    for (const char c : digits) {
        v = v << 4 | static_cast<std::uint64_t>(c <= '9' ? c - '0' : c - 'a' + 10);
    }
    return v;
}

// A system ID (xxxx.xxxx.xxxx), node ID (.xx), LSP ID (.xx-xx), or a NET:
// area (1 to 13 octets), system ID and selector (ISO 10589 section 7.1.1).
std::optional<ParsedId> parseId(std::string_view s) {
    bool lspId = false;
    if (const std::size_t dash = s.find('-'); dash != std::string_view::npos) {
        const std::string_view fragment = s.substr(dash + 1);
        if (fragment.size() != 2 || !hexGroups(fragment) ||
            s.substr(0, dash).find('.') == std::string_view::npos) {
            return std::nullopt;
        }
        s = s.substr(0, dash);
        lspId = true;
    }
    const auto groups = hexGroups(s);
    if (!groups) {
        return std::nullopt;
    }
    const std::vector<std::string>& g = *groups;
    const auto systemAt = [&](std::size_t i) {
        return g[i].size() == 4 && g[i + 1].size() == 4 && g[i + 2].size() == 4;
    };
    ParsedId out;
    if (g.size() == 3 && systemAt(0) && !lspId) {
        out.id = hexValue(g[0] + g[1] + g[2]) << 16;
    } else if (g.size() == 4 && systemAt(0) && g[3].size() == 2) {
        out.id = hexValue(g[0] + g[1] + g[2] + g[3]) << 8;
        out.exact = true;
    } else if (g.size() >= 5 && !lspId && systemAt(g.size() - 4) && g.back().size() == 2) {
        std::size_t digits = 0;
        for (const std::string& group : g) {
            digits += group.size();
        }
        if (digits % 2 != 0 || digits > 40) {
            return std::nullopt;
        }
        const std::size_t n = g.size();
        out.id = hexValue(g[n - 4] + g[n - 3] + g[n - 2]) << 16;
    } else {
        return std::nullopt;
    }
    return out;
}

bool sameIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (std::size_t i = 0; i < a.size(); ++i) {
        // Only ASCII letters fold: host names are octets, not a locale's text.
        if (std::tolower(static_cast<unsigned char>(a[i])) !=
            std::tolower(static_cast<unsigned char>(b[i]))) {
            return false;
        }
    }
    return true;
}

}  // namespace

std::uint64_t systemOf(const IC::IgpNodeId& id) noexcept {
    return id.toU64() >> 16;
}

std::optional<std::uint64_t> systemIdOfText(std::string_view text) {
    const auto parsed = parseId(text);
    if (!parsed) {
        return std::nullopt;
    }
    return parsed->id >> 16;
}

void HostNames::note(const IC::IgpLsp& entry) {
    const auto& node = entry.node();
    if (node && !node->hostName().empty() && !entry.nodeId().isPnodeId()) {
        names_[systemOf(entry.nodeId())] = std::string(node->hostName());
    }
}

void HostNames::noteAll(const IC::IgpLspDatabase& db) {
    for (const auto& entry : db.lsp()) {
        note(*entry);
    }
}

std::optional<std::string> HostNames::of(const IC::IgpNodeId& id) const {
    return ofSystem(systemOf(id));
}

std::optional<std::string> HostNames::ofSystem(std::uint64_t system) const {
    const auto it = names_.find(system);
    if (it == names_.end()) {
        return std::nullopt;
    }
    return it->second;
}

NodeFilter::NodeFilter(const std::vector<std::string>& patterns) {
    for (const std::string& text : patterns) {
        Pattern p{text, std::nullopt, false, std::nullopt, {}};
        if (const auto parsed = parseId(text)) {
            p.id = parsed->id;
            p.exact = parsed->exact;
        } else {
            // "r3.02" or "r3.02-00", as LSP IDs are shown with host names.
            std::string_view t = text;
            if (t.size() > 3 && t[t.size() - 3] == '-' && hexGroups(t.substr(t.size() - 2))) {
                t.remove_suffix(3);
            }
            if (t.size() > 3 && t[t.size() - 3] == '.' && hexGroups(t.substr(t.size() - 2))) {
                p.pseudonode =
                    static_cast<std::uint8_t>(hexValue(*hexGroups(t.substr(t.size() - 2)).value().data()));
                p.host = std::string(t.substr(0, t.size() - 3));
            }
        }
        patterns_.push_back(std::move(p));
    }
}

std::string NodeFilter::pattern() const {
    std::string out;
    for (const Pattern& p : patterns_) {
        out += (out.empty() ? "" : ", ") + p.text;
    }
    return out;
}

bool NodeFilter::matches(const IC::IgpNodeId& id, const HostNames& names) const {
    if (any()) {
        return true;
    }
    for (const Pattern& p : patterns_) {
        if (p.id) {
            if (p.exact ? id.toU64() == *p.id : systemOf(id) == *p.id >> 16) {
                return true;
            }
            continue;
        }
        const auto name = names.of(id);
        if (name && sameIgnoringCase(*name, p.text)) {
            return true;
        }
        if (name && p.pseudonode && sameIgnoringCase(*name, p.host) &&
            (id.toU64() >> 8 & 0xff) == *p.pseudonode) {
            return true;
        }
    }
    return false;
}

}  // namespace IgpLsdb
