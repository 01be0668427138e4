#include "SortedText.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace IgpLsdb {

namespace {

// The lists that print a hash set or map, in the library's dump and text forms.
constexpr const char* setLists[] = {
    "localIpv4Addr=[", "localIpv6Addr=[", "remoteIpv4Addr=[", "remoteIpv6Addr=[", "areaids=[",
    "srlg=[",          "adjSid=[",        "lanAdjSid=[",      "prefixMetrics=[ ", "mtIds=["};

/// The position of the bracket that closes the one at `open`, or npos.
std::size_t closing(const std::string& s, std::size_t open) {
    int depth = 0;
    for (std::size_t i = open; i < s.size(); ++i) {
        const char c = s[i];
        if (c == '[' || c == '{' || c == '(') {
            ++depth;
        } else if (c == ']' || c == '}' || c == ')') {
            if (--depth == 0) {
                return i;
            }
        }
    }
    return std::string::npos;
}

/// Splits `body` at `sep` where no bracket is open.
std::vector<std::string> splitTopLevel(std::string_view body, std::string_view sep) {
    std::vector<std::string> out;
    int depth = 0;
    std::size_t start = 0;
    for (std::size_t i = 0; i < body.size(); ++i) {
        const char c = body[i];
        if (c == '[' || c == '{' || c == '(') {
            ++depth;
        } else if (c == ']' || c == '}' || c == ')') {
            --depth;
        } else if (depth == 0 && body.substr(i, sep.size()) == sep) {
            out.emplace_back(body.substr(start, i - start));
            start = i + sep.size();
            i = start - 1;
        }
    }
    out.emplace_back(body.substr(start));
    return out;
}

/// The members of one list body, sorted: "[ a b ]" lists are separated by
/// spaces, the others by ", "; a space inside the brackets stays where it was.
std::string sortedBody(std::string_view body) {
    const bool lead = body.starts_with(' ');
    const bool trail = body.size() > 1 && body.ends_with(' ');
    std::string_view inner = body.substr(lead ? 1 : 0, body.size() - (lead ? 1 : 0) - (trail ? 1 : 0));
    if (inner.empty()) {
        return std::string(body);
    }
    std::vector<std::string> items = splitTopLevel(inner, ", ");
    std::string_view sep = ", ";
    if (items.size() == 1 && lead && trail) {
        items = splitTopLevel(inner, " ");
        sep = " ";
    }
    std::sort(items.begin(), items.end());
    std::string out = lead ? " " : "";
    for (std::size_t i = 0; i < items.size(); ++i) {
        out += (i ? std::string(sep) : "") + items[i];
    }
    return out + (trail ? " " : "");
}

std::size_t indentOf(std::string_view line) {
    const std::size_t n = line.find_first_not_of(' ');
    return n == std::string_view::npos ? line.size() : n;
}

bool isNodeHeader(std::string_view line) {
    return line.substr(indentOf(line)).starts_with("node=");
}

/// The node identifier of a header line ("node=0000.0000.0001.02, ..."): the
/// fixed-width text sorts routers before their pseudonodes, in identifier order.
std::string_view nodeIdOf(std::string_view header) {
    header.remove_prefix(indentOf(header) + std::strlen("node="));
    return header.substr(0, header.find(','));
}

struct NodeBlock {
    std::string header;
    std::vector<std::string> members;  // each with its lines, newlines included
};

}  // namespace

std::string sortSetLists(std::string_view line) {
    std::string out(line);
    for (const char* list : setLists) {
        const std::size_t length = std::strlen(list);
        for (std::size_t at = out.find(list); at != std::string::npos; at = out.find(list, at + 1)) {
            // The list's own '[' (a "prefixMetrics=[ " body starts with its space).
            const std::size_t open = out.find('[', at);
            const std::size_t close = closing(out, open);
            if (close == std::string::npos || open >= at + length) {
                continue;
            }
            const std::string body = sortedBody(std::string_view(out).substr(open + 1, close - open - 1));
            out.replace(open + 1, close - open - 1, body);
        }
    }
    return out;
}

std::string sortedDump(std::string_view dump) {
    std::string before;  // anything ahead of the first node, as it came
    std::vector<NodeBlock> blocks;
    std::size_t memberIndent = std::string::npos;
    while (!dump.empty()) {
        const std::size_t end = dump.find('\n');
        const std::string_view raw = dump.substr(0, end);
        dump.remove_prefix(end == std::string_view::npos ? dump.size() : end + 1);
        const std::string line = sortSetLists(raw) + "\n";
        if (isNodeHeader(raw)) {
            blocks.push_back({line, {}});
            memberIndent = std::string::npos;
        } else if (blocks.empty()) {
            before += line;
        } else if (NodeBlock& b = blocks.back(); b.members.empty() || indentOf(raw) <= memberIndent) {
            b.members.push_back(line);
            memberIndent = indentOf(raw);
        } else {
            b.members.back() += line;
        }
    }
    std::stable_sort(blocks.begin(), blocks.end(), [](const NodeBlock& a, const NodeBlock& b) {
        return nodeIdOf(a.header) < nodeIdOf(b.header);
    });
    std::string out = before;
    for (NodeBlock& b : blocks) {
        std::sort(b.members.begin(), b.members.end());
        out += b.header;
        for (const std::string& m : b.members) {
            out += m;
        }
    }
    return out;
}

}  // namespace IgpLsdb
