// igp-lsdb's text and JSON renderers fed databases decoded from arbitrary LSPs (input as the decoder
// target's): whatever a router puts in an LSP, a host name above all, the text cannot be forged and
// the JSON stays valid. README.md lists the checks.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <string_view>

#include "Changes.h"
#include "Escape.h"
#include "FuzzSupport.h"
#include "IsisDecoder/Decoder.h"
#include "Json.h"
#include "Lsdb.h"
#include "NodeFilter.h"
#include "Report.h"

namespace {

namespace ID = Routing::IsisDecoder;
using IgpFuzz::check;

/// Whether `s` is valid UTF-8 (RFC 3629), with no control character (C0, DEL, C1) but those in `allowed`.
bool cleanUtf8(std::string_view s, std::string_view allowed) {
    constexpr std::uint32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
    for (std::size_t i = 0, n = 0; i < s.size(); i += n) {
        const auto c = static_cast<unsigned char>(s[i]);
        n = c < 0x80 ? 1 : (c & 0xE0) == 0xC0 ? 2 : (c & 0xF0) == 0xE0 ? 3 : (c & 0xF8) == 0xF0 ? 4 : 0;
        if (n == 0 || i + n > s.size()) {
            return false;
        }
        std::uint32_t cp = n == 1 ? c : c & (0x7Fu >> n);
        for (std::size_t k = 1; k < n; ++k) {
            const auto cc = static_cast<unsigned char>(s[i + k]);
            if ((cc & 0xC0) != 0x80) {
                return false;
            }
            cp = cp << 6 | (cc & 0x3F);
        }
        const bool control = cp < 0x20 || (cp >= 0x7F && cp < 0xA0);
        if ((control && (n > 1 || allowed.find(static_cast<char>(c)) == std::string_view::npos)) ||
            cp < least[n] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
            return false;  // a control, overlong, out of range or a surrogate
        }
    }
    return true;
}

/// The octets an escaped text stands for: \xNN is one octet, anything else itself.
std::string unescaped(std::string_view s) {
    std::string out;
    for (std::size_t i = 0; i < s.size(); ++i) {
        if (s[i] == '\\' && i + 3 < s.size() && s[i + 1] == 'x') {
            out += static_cast<char>(std::stoi(std::string(s.substr(i + 2, 2)), nullptr, 16));
            i += 3;
        } else {
            out += s[i];
        }
    }
    return out;
}

void checkEscaped(std::string_view raw) {
    const std::string e = IgpLsdb::escaped(raw);
    check(cleanUtf8(e, ""), "an escaped text holds a control character or invalid UTF-8", [&] { return e; });
    check(unescaped(e) == raw, "an escaped text does not read back to its octets", [&] { return e; });
}

std::size_t count(const std::string& s, char c) {
    return static_cast<std::size_t>(std::count(s.begin(), s.end(), c));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1) {
        return 0;
    }
    checkEscaped(std::string_view(reinterpret_cast<const char*>(data), size));

    IgpLsdb::HostNames names;
    IgpLsdb::ChangeFeed feed([&](const IgpLsdb::Change& c) {
        const std::string line = IgpLsdb::changeLine(c, false, names);
        check(cleanUtf8(line, "\t") && count(line, '\t') == 8, "a change line that can be forged",
              [&] { return line; });
        const std::string json = IgpLsdb::jsonText(IgpLsdb::changeJson(c, names), true);
        check(IgpLsdb::Json::accept(json), "a change's JSON does not parse", [&] { return json; });
    });
    IgpLsdb::Lsdb lsdb(0);
    for (const unsigned level : lsdb.levels()) {
        feed.watch(*lsdb.keeper(level).database());
    }
    unsigned frame = 0;
    IgpFuzz::forEachPdu({data, size}, [&](std::span<const std::uint8_t> pdu) {
        const ID::DecodeResult d = ID::decodeLsp(pdu);
        if (!d.ok()) {
            return;
        }
        const unsigned level = d.lsp().header.level;
        feed.begin({1, ++frame}, level, d.lsp().header.nodeId());
        lsdb.keeper(level).receive(d.lsp());
        if (const auto entry = lsdb.keeper(level).database()->lsp(d.lsp().header.nodeId())) {
            names.note(*entry);
        }
        feed.end();
    });

    std::size_t entries = 0;
    for (const unsigned level : lsdb.levels()) {
        const auto& db = *lsdb.keeper(level).database();
        entries += db.lspCount();
        names.noteAll(db);
        for (const auto& entry : db.lsp()) {
            if (entry->node()) {
                checkEscaped(std::string_view(entry->node()->hostName()));
            }
        }
    }
    const IgpLsdb::NodeFilter all;
    std::ostringstream text;
    IgpLsdb::printDump(text, lsdb, all, names);
    const std::string dump = text.str();
    check(cleanUtf8(dump, "\n"), "the dump holds a control character or invalid UTF-8");
    std::size_t nodeLines = 0;
    std::istringstream lines(dump);
    for (std::string line; std::getline(lines, line);) {
        nodeLines +=
            line.substr(std::min(line.find_first_not_of(' '), line.size())).starts_with("node=") ? 1 : 0;
    }
    check(nodeLines == entries, "the dump's node lines are not one per entry", [&] {
        return std::to_string(nodeLines) + " node lines, " + std::to_string(entries) + " entries\n" + dump;
    });

    const std::string json = IgpLsdb::jsonText(IgpLsdb::dumpJson(lsdb, all, names), false);
    const IgpLsdb::Json doc = IgpLsdb::Json::parse(json, nullptr, false);
    check(!doc.is_discarded(), "the dump's JSON does not parse");
    std::size_t jsonNodes = 0;
    for (const auto& level : doc.at("levels")) {
        jsonNodes += level.at("nodes").size();
    }
    check(jsonNodes == entries, "the dump's JSON has not one node per entry");
    check(IgpLsdb::Json::accept(IgpLsdb::jsonText(IgpLsdb::statsJson(lsdb, {}, all, names), true)),
          "the statistics' JSON does not parse");

    return 0;
}
