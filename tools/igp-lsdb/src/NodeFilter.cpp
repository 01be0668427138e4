#include "NodeFilter.h"

#include <cctype>

namespace IgpLsdb {

namespace {

// "xxxx.xxxx.xxxx" or "xxxx.xxxx.xxxx.xx" in hex: the seven node octets, and
// whether the pseudonode octet was written.
std::optional<std::pair<std::uint64_t, bool>> parseNodeId(const std::string& s) {
    if (s.size() != 14 && s.size() != 17) {
        return std::nullopt;
    }
    std::uint64_t v = 0;
    unsigned digits = 0;
    for (std::size_t i = 0; i < s.size(); ++i) {
        const bool dotHere = i == 4 || i == 9 || i == 14;
        if (dotHere) {
            if (s[i] != '.') {
                return std::nullopt;
            }
            continue;
        }
        if (std::isxdigit(static_cast<unsigned char>(s[i])) == 0) {
            return std::nullopt;
        }
        const char c = static_cast<char>(std::tolower(static_cast<unsigned char>(s[i])));
        v = v << 4 | static_cast<std::uint64_t>(c <= '9' ? c - '0' : c - 'a' + 10);
        ++digits;
    }
    const bool withPseudonode = digits == 14;
    if (!withPseudonode) {
        v <<= 8;
    }
    return std::make_pair(v << 8, withPseudonode);  // IgpNodeId::toU64 leaves the lowest octet 0
}

}  // namespace

std::uint64_t systemOf(const IC::IgpNodeId& id) noexcept {
    return id.toU64() >> 16;
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
    const auto it = names_.find(systemOf(id));
    if (it == names_.end()) {
        return std::nullopt;
    }
    return it->second;
}

NodeFilter::NodeFilter(std::string pattern) : pattern_(std::move(pattern)) {
    if (const auto parsed = parseNodeId(pattern_)) {
        id_ = parsed->first;
        exact_ = parsed->second;
    }
}

bool NodeFilter::matches(const IC::IgpNodeId& id, const HostNames& names) const {
    if (any()) {
        return true;
    }
    if (id_) {
        return exact_ ? id.toU64() == *id_ : systemOf(id) == *id_ >> 16;
    }
    const auto name = names.of(id);
    return name && *name == pattern_;
}

}  // namespace IgpLsdb
