// Decoding captured LSPs: the lab's FRR traffic, the crafted files and
// lspgen's databases, checked against the independent decodes beside them
// (frames.tsv from tshark, the crafted manifest).

#include <gtest/gtest.h>

#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "IsisDecoder/Decoder.h"
#include "IsisDecoder/LspKeeper.h"
#include "TestSupport.h"

namespace {

using namespace DecoderTest;
using namespace Routing::IsisDecoder;
using Reason = DecodeError::Reason;

// The LSP rows of a frames.tsv, in capture order, cells by column name.
std::vector<std::map<std::string, std::string>> readTsv(const std::string& name) {
    std::istringstream in(readText(dataPath(name)));
    std::vector<std::string> cols;
    std::vector<std::map<std::string, std::string>> rows;
    for (std::string line; std::getline(in, line);) {
        std::istringstream ls(line);
        std::vector<std::string> cells;
        for (std::string cell; std::getline(ls, cell, '\t');) {
            cells.push_back(cell);
        }
        if (cols.empty()) {
            cols = cells;
        } else if (cells.size() > 5 && !cells[5].empty()) {
            auto& row = rows.emplace_back();
            for (std::size_t i = 0; i < cells.size() && i < cols.size(); ++i) {
                row[cols[i]] = cells[i];
            }
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
    const std::string toCraftB =
        std::string("nbr 1921.6800.1002.00 mt0 adjSid=12/12/7,240/24002/0,48/24001/0 adminGroup=5 ") +
        "extAdminGroup=0:5,1:0,2:2147483648 igpMetric=10 l4=10.10.12.1 l6=2001:db8:12::1 "
        "maxLinkBw=1.25e+09 " +
        "maxReserveLinkBw=1e+09 r4=10.10.12.2 r6=2001:db8:12::2 teDefMetric=1000 " +
        "unreservedBw=0:1e+09,1:9e+08,2:8e+08,3:7e+08,4:6e+08,5:5e+08,6:4e+08,7:3e+08";
    const std::string toCraftC =
        std::string("nbr 1921.6800.1003.05 mt0 adminGroup=2 igpMetric=20 l4=10.10.100.1 ") +
        "lanAdjSid=112/24012/10/1921.6800.1004,12/77/0/1921.6800.1004,176/24011/0/1921.6800.1004," +
        "48/24010/0/1921.6800.1003 srlgValues=400";
    const struct {
        const char* file;
        unsigned frame;
        Lines lines;
    } cases[] = {
        {"crafted-sr-te.pcap",
         1,
         {"area 39.752f.0100.0014.0000.9000.0001", "area 49.0010", "area 49.0011",
          "fad 128 m1 c0 p200 ex=[1] any=[6, 1] all=[8] srlg=[100, 200]",
          "fad 129 m2 c0 p100 ex=[] any=[] all=[] srlg=[]",
          "fad 130 m0 c0 p0 ex=[] any=[] all=[0, 2147483648] srlg=[]", "flags ol=0 att=0", "host craft-a",
          "msd 1:10", "msd 2:8", "srgb I1 V1 16000/8000 100000/1000", "srlb 15000/1000 40000/500",
          "te-id 192.0.2.1", "te-id6 2001:db8:ffff::1"}},
        {"crafted-sr-te.pcap",
         2,
         {"flags ol=0 att=0", "nbr 1921.6800.1002.00 mt0 igpMetric=10 linkDelay=1/1500/0", toCraftB, toCraftC,
          "nbr 1921.6800.1004.00 mt0 igpMetric=16777214", "srlg 10.10.12.1 100,200,300",
          "srlg 2001:db8:100::1 600", "srlg 2001:db8:12::1 100,500"}},
        {"crafted-sr-te.pcap",
         3,
         {"flags ol=0 att=0", "pfx 10.0.0.0/8 mt0 m100 down", "pfx 192.0.2.1/32 mt0 m0 sid=1/0x40 fa128=500",
          "pfx 192.0.2.101/32 mt0 unreachable bind=-/r10/f2/psid=101/0x00",
          "pfx 192.0.2.200/32 mt0 unreachable bind=M/r1/f2/label=90000",
          "pfx 198.51.100.0/24 mt0 m20 sid=16999/0x2c", "pfx 2001:db8:a::/48 mt0 m30",
          "pfx 2001:db8:b::/127 mt0 m5 down",
          "pfx 2001:db8:cc::/64 mt2 unreachable bind=FA/r4/f2/psid=500/0x00",
          "pfx 2001:db8:ffff::1/128 mt0 m0 sid=2001/0x40",
          "pfx 2001:db8:ffff::100/128 mt0 unreachable bind=FS/r1/f2/psid=300/0x40",
          "pfx 203.0.113.128/25 mt0 m7 sid=4095/0x30"}},
        {"crafted-mt.pcap",
         1,
         {"area 49.0010",
          "flags ol=0 att=1",
          "host craft-b",
          "mt 0",
          "mt 2",
          "mt 3",
          "mt 4",
          "nbr 1921.6800.1002.03 mt0 igpMetric=10",
          "nbr 1921.6800.1002.03 mt2 igpMetric=10",
          "nbr 1921.6800.1005.00 mt0 adjSid=48/15001/0 igpMetric=10",
          "nbr 1921.6800.1005.00 mt2 adjSid=176/15002/0 igpMetric=15 l6=2001:db8:25::2",
          "nbr 1921.6800.1005.00 mt4 igpMetric=40",
          "pfx 10.10.25.0/24 mt0 m10",
          "pfx 10.30.0.0/16 mt3 m10 sid=30/0x00",
          "pfx 172.20.0.0/16 mt0 m20",
          "pfx 172.21.0.0/16 mt0 m63 down",
          "pfx 192.0.2.2/32 mt0 m0 sid=2/0x40",
          "pfx 2001:db8:25::/64 mt2 m15",
          "pfx 2001:db8:e0::/44 mt2 m100 down",
          "pfx 2001:db8:ffff::2/128 mt0 m0 sid=1002/0x40",
          "pfx 2001:db8:ffff::2/128 mt2 m0 sid=2002/0x50",
          "pfx ff3e::/16 mt4 m10",
          "srgb I1 V0 16000/4000"}},
        {"crafted-mt.pcap",
         2,
         {"area 49.0010", "flags ol=0 att=0", "host craft-b", "mt 0", "mt 2",
          "nbr 1921.6800.1001.00 mt0 igpMetric=10 l4=10.10.12.2 r4=10.10.12.1",
          "nbr 1921.6800.1001.00 mt2 igpMetric=10 l6=2001:db8:12::2 r6=2001:db8:12::1",
          "pfx 192.0.2.2/32 mt0 m0 sid=2/0x40", "pfx 2001:db8:ffff::2/128 mt2 m0 sid=1002/0x40"}},
        {"crafted-mt.pcap",
         3,
         {"flags ol=0 att=0", "nbr 1921.6800.1002.00 mt0 igpMetric=0",
          "nbr 1921.6800.1005.00 mt0 igpMetric=0", "nbr 1921.6800.1006.00 mt0 igpMetric=0"}},
        {"crafted-mt.pcap",
         4,
         {"area 49.0010", "flags ol=1 att=0", "host craft-e", "nbr 1921.6800.1002.03 mt0 igpMetric=10",
          "pfx 192.0.2.5/32 mt0 m0"}},
        {"crafted-mt.pcap", 5, {"flags ol=0 att=0"}},
        {"crafted-mt.pcap", 6, {"flags ol=0 att=0"}},
        {"crafted-mt.pcap", 7, {"flags ol=0 att=0"}},
    };
    for (const auto& c : cases) {
        const auto r = decodeLsp(readPdus(c.file).at(c.frame - 1));  // every frame of these is an LSP
        ASSERT_TRUE(r.ok()) << r.error().message();
        expectSameLines(c.lines, linesOf(*r.lsp().content), cat(c.file, " frame ", c.frame));
    }
}

TEST(DecoderCapture, EveryCraftedInvalidLspIsRejectedForTheManifestsDefect) {
    const std::map<std::string, Reason> byDefect = {
        {"checksum error", Reason::badChecksum},
        {"TLV overrun", Reason::tlvOverrun},
        {"sub-TLV overrun", Reason::subTlvOverrun},
        {"truncated PDU", Reason::truncatedPdu},
        {"bad prefix length", Reason::badPrefixLength},
        {"truncated header", Reason::truncatedHeader},
        {"missing sub-TLV block", Reason::truncatedEntry},
        {"inconsistent prefix-SID flags/length", Reason::badSidLength},
    };
    // The manifest is an array of flat records.
    const std::string manifest = readText(dataPath("crafted-manifest.json"));
    static const std::regex record(R"x(\{[^{}]*"file": "crafted-invalid.pcap"[^{}]*\})x");
    static const std::regex frame(R"x("frame": (\d+))x"), expect(R"x("expect": "([^"]*)")x");
    std::map<unsigned, std::string> defects;
    for (std::sregex_iterator it(manifest.begin(), manifest.end(), record), end; it != end; ++it) {
        const std::string rec = it->str();
        std::smatch n, e;
        ASSERT_TRUE(std::regex_search(rec, n, frame) && std::regex_search(rec, e, expect)) << rec;
        defects[static_cast<unsigned>(std::stoul(n[1]))] = e[1];
    }
    const auto pdus = readPdus("crafted-invalid.pcap");
    ASSERT_EQ(pdus.size(), 9u);
    ASSERT_EQ(defects.size(), 9u);
    for (const auto& [frame, defect] : defects) {
        const auto r = decodeLsp(pdus.at(frame - 1));
        ASSERT_FALSE(r.ok()) << frame;
        EXPECT_EQ(r.error().reason, byDefect.at(defect)) << frame << ": " << r.error().message();
    }
}

// The two synthetic 1,000-node databases of lspgen (BNG Blaster): every LSP
// decodes to tshark's counts, and the keeper ends with the topology the
// generator describes, each link seen from both ends.
TEST(DecoderCapture, LspgenDatabasesDecodeWhole) {
    const struct {
        const char* file;
        std::size_t lsps, externals;
        unsigned frame;
        const char* host;
        std::size_t neighbors, prefixes;  // of that frame, as tshark counts them
    } files[] = {{"lspgen/isis-1k.pcap", 1000, 0, 1, "node432", 4, 10},
                 {"lspgen/isis-1k-dense.pcap", 1922, 40, 3, "node185", 1, 84}};
    for (const auto& file : files) {
        SCOPED_TRACE(file.file);
        LspKeeper keeper(IC::igpLevelIsisLevel2);
        const auto pdus = readPdus(file.file);
        for (std::size_t i = 0; i < pdus.size(); ++i) {
            const auto r = decodeLsp(pdus[i]);
            ASSERT_TRUE(r.ok()) << "frame " << i + 1 << ": " << r.error().message();
            EXPECT_EQ(r.lsp().header.level, 2);  // from the PDU type, although sent to the level-1 address
            if (i + 1 == file.frame) {
                EXPECT_EQ(r.lsp().content->node()->hostName(), file.host);
                EXPECT_EQ(r.lsp().content->neighbor().size(), file.neighbors);
                EXPECT_EQ(r.lsp().content->prefix().size(), file.prefixes);
            }
            EXPECT_EQ(keeper.receive(r.lsp()), LspKeeper::Outcome::installed);
        }
        EXPECT_EQ(keeper.fragmentCount(), file.lsps);
        ASSERT_EQ(keeper.database()->lspCount(), 1000u);
        std::set<std::pair<std::string, std::string>> links;
        for (const auto& e : keeper.database()->lsp()) {
            // A /31 and a /127 per link, a loopback of each family, the externals.
            EXPECT_EQ(e->prefix().size(), 2 * (e->neighbor().size() + 1 + file.externals));
            for (const auto& nb : e->neighbor()) {
                links.emplace(nodeIdText(e->nodeId()), nodeIdText(nb.value->key().nodeId()));
            }
        }
        EXPECT_EQ(links.size(), 4000u);  // average degree 4
        for (const auto& [a, b] : links) {
            EXPECT_TRUE(links.count({b, a})) << a << " lists " << b << ", not the reverse";
        }
    }
}

}  // namespace
