// Decoding captured LSPs: the lab's FRR traffic and the crafted files, checked
// against the independent decodes beside them (frames.tsv, the manifest).

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "IsisDecoder/Decoder.h"
#include "IsisDecoder/LspKeeper.h"
#include "ModelText.h"
#include "TestSupport.h"

namespace {

using namespace DecoderTest;
using namespace Routing::IsisDecoder;
namespace IC = Routing::IgpCommon;
using Reason = DecodeError::Reason;

// frames.tsv rows by frame number, columns by header name.
std::map<unsigned, std::map<std::string, std::string>> readTsv(const char* name) {
    std::istringstream in(readText(dataPath(name)));
    std::string line;
    std::vector<std::string> cols;
    std::map<unsigned, std::map<std::string, std::string>> rows;
    auto split = [](const std::string& s) {
        std::vector<std::string> out;
        std::string cell;
        std::istringstream ls(s);
        while (std::getline(ls, cell, '\t')) {
            out.push_back(cell);
        }
        return out;
    };
    std::getline(in, line);
    cols = split(line);
    while (std::getline(in, line)) {
        const auto cells = split(line);
        std::map<std::string, std::string> row;
        for (std::size_t i = 0; i < cells.size() && i < cols.size(); ++i) {
            row[cols[i]] = cells[i];
        }
        rows[static_cast<unsigned>(std::stoul(cells.at(0)))] = row;
    }
    return rows;
}

std::vector<unsigned> tlvList(const std::string& s) {
    std::vector<unsigned> out;
    std::istringstream in(s);
    std::string t;
    while (std::getline(in, t, ',')) {
        if (!t.empty()) {
            out.push_back(static_cast<unsigned>(std::stoul(t)));
        }
    }
    return out;
}

bool has(const std::vector<unsigned>& v, std::initializer_list<unsigned> any) {
    for (unsigned x : v) {
        for (unsigned y : any) {
            if (x == y) {
                return true;
            }
        }
    }
    return false;
}

std::string hex4(unsigned v) {
    char b[8];
    std::snprintf(b, sizeof b, "0x%04x", v);
    return b;
}
std::string hex8(unsigned v) {
    char b[12];
    std::snprintf(b, sizeof b, "0x%08x", v);
    return b;
}

// Checks a decoded LSP against its frames.tsv row: header fields, and that
// every TLV family the row lists left its mark in the content.
void checkAgainstRow(const DecodedLsp& d, const std::map<std::string, std::string>& row) {
    const auto& h = d.header;
    EXPECT_EQ(std::to_string(h.level), row.at("level"));
    EXPECT_EQ(h.lspIdText(), row.at("lsp_id"));
    EXPECT_EQ(hex8(h.sequenceNumber), row.at("seq"));
    EXPECT_EQ(std::to_string(h.remainingLifetime), row.at("lifetime"));
    EXPECT_EQ(hex4(h.checksum), row.at("checksum"));
    EXPECT_EQ(std::to_string(h.pduLength), row.at("pdu_length"));
    const std::string apo = std::string(h.attached() ? "1" : "0") + "/" + (h.partitionRepair() ? "1" : "0") +
                            "/" + (h.overload() ? "1" : "0");
    EXPECT_EQ(apo, row.at("att_p_ol"));

    const auto tlvs = tlvList(row.count("tlv_types") ? row.at("tlv_types") : "");
    const auto& c = *d.content;
    const auto& n = *c.node();
    EXPECT_EQ(has(tlvs, {137}), !n.hostName().empty());
    EXPECT_EQ(has(tlvs, {1}), static_cast<bool>(n.isisAreaIdCol()));
    EXPECT_EQ(has(tlvs, {229}), static_cast<bool>(n.mtIdCol()));
    EXPECT_EQ(has(tlvs, {2, 22, 222}), !c.neighbor().empty());
    EXPECT_EQ(has(tlvs, {128, 130, 135, 235, 236, 237, 149, 150}), !c.prefix().empty());
    EXPECT_EQ(has(tlvs, {134}), !n.ipv4RouterId().isZero());
    EXPECT_EQ(has(tlvs, {138, 139}), !c.parsedSrLg().empty());
}

TEST(DecoderCapture, EveryLabLspDecodesAndMatchesTheIndependentDecode) {
    const auto frames = readPcap(dataPath("frr-initial.pcap"));
    const auto rows = readTsv("frr-initial.frames.tsv");
    unsigned lsps = 0;
    for (const auto& f : frames) {
        if (!isLspFrame(f)) {
            continue;
        }
        ++lsps;
        SCOPED_TRACE("frame " + std::to_string(f.number));
        const auto r = decodeLsp(f.pdu);
        ASSERT_TRUE(r.ok()) << r.error().message();
        checkAgainstRow(r.lsp(), rows.at(f.number));
    }
    EXPECT_EQ(lsps, 133u);
}

// Picks the last copy of an LSP ID at one level from the lab capture.
DecodedLsp lastLabLsp(unsigned level, const std::string& lspId) {
    DecodedLsp found;
    for (const auto& f : readPcap(dataPath("frr-initial.pcap"))) {
        if (!isLspFrame(f)) {
            continue;
        }
        const auto r = decodeLsp(f.pdu);
        if (r.ok() && r.lsp().header.level == level && r.lsp().header.lspIdText() == lspId) {
            found = r.lsp();
        }
    }
    return found;
}

TEST(DecoderCapture, LabQuirksDecodeAsTheRoutersShowThem) {
    // r4 advertises its IPv4 prefix SID as the absolute label 20404 and its own SRGB/SRLB.
    const auto r4 = lastLabLsp(1, "0000.0000.0004.00-00");
    ASSERT_TRUE(r4.content);
    const auto lo4 = r4.content->prefix(
        IC::PrefixKey(Kest::strepToValue("10.0.0.4/32", static_cast<Lumo::IpGenPrefix*>(nullptr)),
                      IC::IgpMultiTopologyId(0)));
    ASSERT_TRUE(lo4);
    EXPECT_EQ(lo4->prefixSid().value(), 20404u);
    EXPECT_EQ(lo4->prefixSid().valueLength(), 3u);
    const auto& n4 = *r4.content->node();
    EXPECT_EQ(n4.hostName(), "r4");
    ASSERT_TRUE(n4.srCapabilities() && n4.srlb());
    EXPECT_EQ(n4.srCapabilities()->sidLabelRange(IC::SrSidRangeIndex(0)),
              IC::SrSidRange(8000, Lumo::MplsLabel(20000)));
    EXPECT_EQ(n4.srlb()->sidLabelRange(IC::SrSidRangeIndex(0)), IC::SrSidRange(1000, Lumo::MplsLabel(30000)));

    // r6: SRGB 100000-107999, single topology (no TLV 229), and narrow metrics beside the wide ones.
    const auto r6 = lastLabLsp(2, "0000.0000.0006.00-00");
    ASSERT_TRUE(r6.content);
    const auto& n6 = *r6.content->node();
    ASSERT_TRUE(n6.srCapabilities());
    EXPECT_EQ(n6.srCapabilities()->sidLabelRange(IC::SrSidRangeIndex(0)),
              IC::SrSidRange(8000, Lumo::MplsLabel(100000)));
    EXPECT_FALSE(n6.mtIdCol());
    ASSERT_TRUE(n6.msdCol());
    EXPECT_EQ(n6.msdCol()->msd(0).msdValue(), 16);
}

struct ManifestRecord {
    std::string file;
    unsigned frame = 0;
    std::string lspId, seq, expect;
    unsigned lifetime = 0, pduLength = 0;
};

// The manifest is a flat array of flat records; a small scanner is enough.
std::vector<ManifestRecord> readManifest() {
    const std::string text = readText(dataPath("crafted-manifest.json"));
    std::vector<ManifestRecord> out;
    std::size_t pos = 0;
    while ((pos = text.find('{', pos)) != std::string::npos) {
        const std::size_t end = text.find('}', pos);
        const std::string rec = text.substr(pos, end - pos);
        pos = end;
        auto raw = [&](const std::string& key) -> std::string {
            const std::size_t k = rec.find("\"" + key + "\"");
            if (k == std::string::npos) {
                return "";
            }
            std::size_t v = rec.find(':', k) + 1;
            while (rec[v] == ' ' || rec[v] == '\n') {
                ++v;
            }
            if (rec[v] == '"') {
                return rec.substr(v + 1, rec.find('"', v + 1) - v - 1);
            }
            return rec.substr(v, rec.find_first_of(",\n", v) - v);
        };
        ManifestRecord m;
        m.file = raw("file");
        m.frame = static_cast<unsigned>(std::stoul(raw("frame")));
        m.lspId = raw("lsp_id");
        m.seq = raw("seq");
        m.lifetime = static_cast<unsigned>(std::stoul(raw("lifetime")));
        m.pduLength = static_cast<unsigned>(std::stoul(raw("pdu_length")));
        m.expect = raw("expect");
        out.push_back(m);
    }
    return out;
}

TEST(DecoderCapture, CraftedLspsMatchTheManifest) {
    const auto manifest = readManifest();
    ASSERT_EQ(manifest.size(), 19u);
    unsigned checked = 0;
    for (const char* file : {"crafted-sr-te.pcap", "crafted-mt.pcap"}) {
        const auto frames = readPcap(dataPath(file));
        const auto rows =
            readTsv(std::string(file).replace(std::string(file).size() - 5, 5, ".frames.tsv").c_str());
        for (const auto& f : frames) {
            SCOPED_TRACE(std::string(file) + " frame " + std::to_string(f.number));
            const auto r = decodeLsp(f.pdu);
            ASSERT_TRUE(r.ok()) << r.error().message();
            checkAgainstRow(r.lsp(), rows.at(f.number));
            for (const auto& m : manifest) {
                if (m.file == file && m.frame == f.number) {
                    EXPECT_EQ(r.lsp().header.lspIdText(), m.lspId);
                    EXPECT_EQ(hex8(r.lsp().header.sequenceNumber), m.seq);
                    EXPECT_EQ(r.lsp().header.remainingLifetime, m.lifetime);
                    EXPECT_EQ(r.lsp().header.pduLength, m.pduLength);
                    ++checked;
                }
            }
        }
    }
    EXPECT_EQ(checked, 10u);
}

// Everything the model keeps of each crafted LSP, in the lines of ModelText.h,
// transcribed from tshark's decode; where tshark stops (the second SRGB
// range, TLVs 139 and 150, prefix sub-TLV 6, FAD exclude-SRLG) from the
// manifest and the octets themselves. What the model has no place for (algo
// 128's prefix SID, RFC 8570 link attributes, FAD flags, prefix attribute
// flags and tags) leaves no line; a second TLV 22 entry for craft-b without
// addresses is a link of its own, and narrow entries fold into wide ones of
// the same key. The unnumbered SRLG TLV names craft-c.05, whose only link here
// is numbered: its SRLG goes onto that link, and onto no other neighbor.
TEST(DecoderCapture, CraftedLspsHoldWhatTheIndependentDecodesShow) {
    const std::string toCraftB =
        std::string(
            "nbr 1921.6800.1002.00 mt0 m10 adj=12/0x0c/w7 adj=24001/0x30/w0 adj=24002/0xf0/w0 ag=0x5 ") +
        "bw=1.25e+09 eag=0x5,0x0,0x80000000 l4=10.10.12.1 l6=2001:db8:12::1 r4=10.10.12.2 " +
        "r6=2001:db8:12::2 rsv=1e+09 te=1000 unrsv=1e+09,9e+08,8e+08,7e+08,6e+08,5e+08,4e+08,3e+08";
    const std::string toCraftC =
        std::string("nbr 1921.6800.1003.05 mt0 m20 ag=0x2 l4=10.10.100.1 lan=24010/0x30/w0/1921.6800.1003 ") +
        "lan=24011/0xb0/w0/1921.6800.1004 lan=24012/0x70/w10/1921.6800.1004 lan=77/0x0c/w0/1921.6800.1004 " +
        "srlg=400";
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
         {"flags ol=0 att=0", "nbr 1921.6800.1002.00 mt0 m10", toCraftB, toCraftC,
          "nbr 1921.6800.1004.00 mt0 m16777214", "srlg 10.10.12.1 100,200,300", "srlg 2001:db8:100::1 600",
          "srlg 2001:db8:12::1 100,500"}},
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
          "nbr 1921.6800.1002.03 mt0 m10",
          "nbr 1921.6800.1002.03 mt2 m10",
          "nbr 1921.6800.1005.00 mt0 m10 adj=15001/0x30/w0",
          "nbr 1921.6800.1005.00 mt2 m15 adj=15002/0xb0/w0 l6=2001:db8:25::2",
          "nbr 1921.6800.1005.00 mt4 m40",
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
          "nbr 1921.6800.1001.00 mt0 m10 l4=10.10.12.2 r4=10.10.12.1",
          "nbr 1921.6800.1001.00 mt2 m10 l6=2001:db8:12::2 r6=2001:db8:12::1",
          "pfx 192.0.2.2/32 mt0 m0 sid=2/0x40", "pfx 2001:db8:ffff::2/128 mt2 m0 sid=1002/0x40"}},
        {"crafted-mt.pcap",
         3,
         {"flags ol=0 att=0", "nbr 1921.6800.1002.00 mt0 m0", "nbr 1921.6800.1005.00 mt0 m0",
          "nbr 1921.6800.1006.00 mt0 m0"}},
        {"crafted-mt.pcap",
         4,
         {"area 49.0010", "flags ol=1 att=0", "host craft-e", "nbr 1921.6800.1002.03 mt0 m10",
          "pfx 192.0.2.5/32 mt0 m0"}},
        {"crafted-mt.pcap", 5, {"flags ol=0 att=0"}},
        {"crafted-mt.pcap", 6, {"flags ol=0 att=0"}},
        {"crafted-mt.pcap", 7, {"flags ol=0 att=0"}},
    };
    std::map<std::string, std::vector<Frame>> files;
    for (const auto& c : cases) {
        if (!files.count(c.file)) {
            files[c.file] = readPcap(dataPath(c.file));
        }
        const auto& frames = files[c.file];
        ASSERT_LE(c.frame, frames.size());
        ASSERT_EQ(frames[c.frame - 1].number, c.frame);
        const auto r = decodeLsp(frames[c.frame - 1].pdu);
        ASSERT_TRUE(r.ok()) << r.error().message();
        expectSameLines(c.lines, contentLines(*r.lsp().content), cat(c.file, " frame ", c.frame));
    }
}

TEST(DecoderCapture, EveryCraftedInvalidLspIsRejectedForItsDefect) {
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
    std::map<unsigned, std::string> expect;
    for (const auto& m : readManifest()) {
        if (m.file == "crafted-invalid.pcap") {
            expect[m.frame] = m.expect;
        }
    }
    const auto frames = readPcap(dataPath("crafted-invalid.pcap"));
    ASSERT_EQ(frames.size(), 9u);
    for (const auto& f : frames) {
        SCOPED_TRACE("frame " + std::to_string(f.number) + ": " + expect.at(f.number));
        const auto r = decodeLsp(f.pdu);
        ASSERT_FALSE(r.ok());
        EXPECT_EQ(r.error().reason, byDefect.at(expect.at(f.number))) << r.error().message();
    }
}

}  // namespace

// The two synthetic 1,000-node databases of lspgen (BNG Blaster). Every LSP
// decodes, and the keeper ends with the topology the generator describes.
TEST(DecoderCapture, LspgenDatabasesDecodeWhole) {
    struct Sample {
        unsigned frame;
        const char* host;
        std::size_t neighbors, v4, v6;  // of that frame, as tshark counts them
    };
    const struct {
        const char* file;
        std::size_t lsps, twoFragmentNodes, externals;
        std::vector<Sample> samples;
    } files[] = {
        {"lspgen/isis-1k.pcap",
         1000,
         0,
         0,
         {{1, "node432", 4, 5, 5}, {2, "node185", 1, 2, 2}, {3, "node13", 2, 3, 3}}},
        {"lspgen/isis-1k-dense.pcap",
         1922,
         922,
         40,
         {{1, "node432", 4, 45, 41}, {2, "", 0, 0, 4}, {3, "node185", 1, 42, 42}}},
    };
    for (const auto& file : files) {
        SCOPED_TRACE(file.file);
        LspKeeper keeper(IC::igpLevelIsisLevel2);
        std::map<std::string, unsigned> fragments;  // per system ID
        std::size_t lsps = 0, sampled = 0;
        for (const auto& f : readPcap(dataPath(file.file))) {
            ASSERT_TRUE(isLspFrame(f)) << f.number;
            const auto r = decodeLsp(f.pdu);
            ASSERT_TRUE(r.ok()) << "frame " << f.number << ": " << r.error().message();
            const auto& h = r.lsp().header;
            EXPECT_EQ(h.level, 2);  // from the PDU type, although sent to the level-1 address
            EXPECT_EQ(h.sequenceNumber, 1u);
            EXPECT_EQ(h.remainingLifetime, 65535);
            ++fragments[h.lspIdText().substr(0, 14)];
            ++lsps;
            for (const auto& s : file.samples) {
                if (s.frame == f.number) {
                    ++sampled;
                    const auto& c = *r.lsp().content;
                    std::size_t v4 = 0;
                    for (const auto& p : c.prefix()) {
                        v4 += p->prefixKey().prefix().isIpv4();
                    }
                    EXPECT_EQ(c.node()->hostName(), s.host);
                    EXPECT_EQ(c.neighbor().size(), s.neighbors);
                    EXPECT_EQ(v4, s.v4);
                    EXPECT_EQ(c.prefix().size() - v4, s.v6);
                }
            }
            EXPECT_EQ(keeper.receive(r.lsp()), LspKeeper::Outcome::installed);
        }
        EXPECT_EQ(lsps, file.lsps);
        EXPECT_EQ(sampled, file.samples.size());
        EXPECT_EQ(keeper.fragmentCount(), file.lsps);
        EXPECT_EQ(
            std::count_if(fragments.begin(), fragments.end(), [](const auto& n) { return n.second == 2; }),
            static_cast<long>(file.twoFragmentNodes));

        const auto& db = *keeper.database();
        ASSERT_EQ(db.lspCount(), 1000u);
        std::set<std::string> hosts;
        std::set<std::pair<std::string, std::string>> links;  // each link seen from both ends
        for (const auto& e : db.lsp()) {
            const auto& n = *e->node();
            SCOPED_TRACE(n.hostName());
            EXPECT_FALSE(e->nodeId().isPnodeId());
            hosts.insert(n.hostName());
            // nodeN is 192.168.0.0 + N - 1, written as twelve decimal digits.
            const unsigned ip = 0xC0A80000u + std::stoul(n.hostName().substr(4)) - 1;
            char sys[16];
            std::snprintf(sys, sizeof sys, "%03u%03u%03u%03u", ip >> 24, (ip >> 16) & 255, (ip >> 8) & 255,
                          ip & 255);
            EXPECT_EQ(nodeIdText(e->nodeId()), std::string(sys, 4) + "." + std::string(sys + 4, 4) + "." +
                                                   std::string(sys + 8, 4) + ".00");
            ASSERT_TRUE(n.srCapabilities());
            EXPECT_EQ(n.srCapabilities()->sidLabelRange(IC::SrSidRangeIndex(0)).startingSid().value(),
                      10000u);
            EXPECT_FALSE(n.srlb() || n.msdCol());
            // A /31 and a /127 per link, a loopback of each family with its SID, the externals.
            std::size_t v4 = 0, sids = 0;
            for (const auto& p : e->prefix()) {
                v4 += p.value->prefixKey().prefix().isIpv4();
                sids += p.value->prefixSid().isValid();
            }
            const std::size_t degree = e->neighbor().size();
            EXPECT_EQ(v4, degree + 1 + file.externals);
            EXPECT_EQ(e->prefix().size() - v4, degree + 1 + file.externals);
            EXPECT_EQ(sids, 2u);
            for (const auto& nb : e->neighbor()) {
                links.emplace(nodeIdText(e->nodeId()), nodeIdText(nb.value->key().nodeId()));
                EXPECT_TRUE(nb.value->key().addressesEmpty());
                EXPECT_EQ(nb.value->attrsPresent().value(), 0u);
            }
        }
        EXPECT_EQ(hosts.size(), 1000u);
        EXPECT_EQ(links.size(), 4000u);  // average degree 4
        for (const auto& [a, b] : links) {
            EXPECT_TRUE(links.count({b, a})) << a << " lists " << b << ", not the reverse";
        }
    }
}
