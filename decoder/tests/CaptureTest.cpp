// Decoding captured LSPs: the lab's FRR traffic and the crafted files, checked
// against the independent decodes beside them (tshark's frames.tsv, and the
// lines transcribed from tshark and the crafted manifest).

#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "IsisDecoder/Decoder.h"
#include "IsisDecoder/LspKeeper.h"
#include "TestSupport.h"

namespace {

using namespace DecoderTest;
using namespace Routing::IsisDecoder;

// The LSP rows (those with an LSP ID) of a frames.tsv, cells by column name.
std::vector<std::map<std::string, std::string>> readTsv(const std::string& name) {
    std::istringstream in(readText(dataPath(name)));
    std::vector<std::string> cols;
    std::vector<std::map<std::string, std::string>> rows;
    for (std::string line; std::getline(in, line);) {
        std::istringstream ls(line);
        std::map<std::string, std::string> row;
        const bool header = cols.empty();
        for (std::string cell; std::getline(ls, cell, '\t');) {
            if (header) {
                cols.push_back(cell);
            } else if (row.size() < cols.size()) {
                row.emplace(cols[row.size()], cell);
            }
        }
        if (row.count("lsp_id") && !row["lsp_id"].empty()) {
            rows.push_back(row);
        }
    }
    return rows;
}

// Every LSP decodes with tshark's header fields, and each TLV family tshark
// lists left its mark in the content (and none that it does not list).
TEST(DecoderCapture, EveryCapturedLspMatchesTshark) {
    for (const std::string file : {"frr-initial", "crafted-sr-te", "crafted-mt"}) {
        const auto rows = readTsv(file + ".frames.tsv");
        std::size_t lsps = 0;
        for (const auto& pdu : readPdus(file + ".pcap")) {
            if (!isLsp(pdu)) {
                continue;
            }
            SCOPED_TRACE(cat(file, " LSP ", lsps));
            ASSERT_LT(lsps, rows.size());
            const auto& row = rows[lsps++];
            const auto r = decodeLsp(pdu);
            ASSERT_TRUE(r.ok()) << r.error().message();
            const auto& h = r.lsp().header;
            EXPECT_EQ(cat(unsigned{h.level}, " ", h.lspIdText(), " ", hex(h.sequenceNumber, 8), " ",
                          h.remainingLifetime, " ", hex(h.checksum, 4), " ", h.pduLength, " ", h.attached(),
                          "/", h.partitionRepair(), "/", h.overload()),
                      cat(row.at("level"), " ", row.at("lsp_id"), " ", row.at("seq"), " ", row.at("lifetime"),
                          " ", row.at("checksum"), " ", row.at("pdu_length"), " ", row.at("att_p_ol")));
            const std::string tlvs = "," + (row.count("tlv_types") ? row.at("tlv_types") : "") + ",";
            const auto has = [&](std::initializer_list<int> types) {
                return std::any_of(types.begin(), types.end(),
                                   [&](int t) { return tlvs.find(cat(",", t, ",")) != std::string::npos; });
            };
            const auto& c = *r.lsp().content;
            const auto& n = *c.node();
            EXPECT_EQ(has({137}), !n.hostName().empty());
            EXPECT_EQ(has({1}), static_cast<bool>(n.isisAreaIdCol()));
            EXPECT_EQ(has({229}), static_cast<bool>(n.mtIdCol()));
            EXPECT_EQ(has({2, 22, 222}), !c.neighbor().empty());
            EXPECT_EQ(has({128, 130, 135, 235, 236, 237, 149, 150}), !c.prefix().empty());
            EXPECT_EQ(has({134}), !n.ipv4RouterId().isZero());
            EXPECT_EQ(has({138, 139}), !c.parsedSrLg().empty());
        }
        EXPECT_EQ(lsps, rows.size()) << file;
        EXPECT_GE(lsps, 3u) << file;
    }
}

// Everything the model keeps of each crafted LSP, transcribed from tshark's
// decode; where tshark stops (the second SRGB range, TLVs 139 and 150, prefix
// sub-TLV 6, FAD exclude-SRLG) from the manifest and the octets themselves.
// What the model has no place for (algo 128's prefix SID, RFC 8570 link
// attributes but the delay, FAD flags, prefix attribute flags and tags) leaves no line; a
// second TLV 22 entry for craft-b without addresses is a link of its own, and
// narrow entries fold into wide ones of the same key. The unnumbered SRLG TLV
// names craft-c.05, whose only link here is numbered: its SRLG goes onto that
// link, and onto no other neighbor.
TEST(DecoderCapture, CraftedLspsHoldWhatTheIndependentDecodesShow) {
    // data/crafted.lines.txt: "# FILE FRAME", then the lines the model gives for that LSP.
    std::istringstream in(readText(dataPath("crafted.lines.txt")));
    std::vector<std::pair<std::string, Lines>> cases;
    for (std::string line; std::getline(in, line);) {
        if (line.starts_with("# ")) {
            cases.emplace_back(line.substr(2), Lines{});
        } else if (!line.empty()) {
            ASSERT_FALSE(cases.empty()) << "a line before the first \"# FILE FRAME\"";
            cases.back().second.insert(line);
        }
    }
    ASSERT_EQ(cases.size(), 10u);
    for (const auto& [where, lines] : cases) {
        const auto space = where.find(' ');
        const unsigned frame = static_cast<unsigned>(std::stoul(where.substr(space + 1)));
        const auto r = decodeLsp(readPdus(where.substr(0, space)).at(frame - 1));  // every frame is an LSP
        ASSERT_TRUE(r.ok()) << r.error().message();
        expectSameLines(lines, linesOf(*r.lsp().content), where);
    }
}

}  // namespace
