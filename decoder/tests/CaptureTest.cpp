// Decoding captured LSPs: the lab's FRR traffic and the crafted files, checked
// against the independent decodes beside them (frames.tsv, the manifest).

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
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

TEST(DecoderCapture, CraftedSrTeValues) {
    const auto frames = readPcap(dataPath("crafted-sr-te.pcap"));
    ASSERT_EQ(frames.size(), 3u);
    const auto f0 = decodeLsp(frames[0].pdu);
    const auto f1 = decodeLsp(frames[1].pdu);
    const auto f2 = decodeLsp(frames[2].pdu);
    ASSERT_TRUE(f0.ok() && f1.ok() && f2.ok());

    const auto& n = *f0.lsp().content->node();
    EXPECT_EQ(n.hostName(), "craft-a");
    EXPECT_EQ(n.ipv4RouterId(), Lumo::IpAddr(0xc0000201));
    EXPECT_EQ(n.isisAreaIdCol()->areaId().size(), 3u);  // one of them 13 octets
    ASSERT_TRUE(n.srCapabilities() && n.srlb() && n.msdCol() && n.fadCol());
    EXPECT_EQ(n.srCapabilities()->numRanges(), 2);
    EXPECT_EQ(n.srCapabilities()->sidLabelRange(IC::SrSidRangeIndex(0)),
              IC::SrSidRange(8000, Lumo::MplsLabel(16000)));
    EXPECT_EQ(n.srlb()->numRanges(), 2);
    EXPECT_EQ(n.srlb()->sidLabelRange(IC::SrSidRangeIndex(1)), IC::SrSidRange(500, Lumo::MplsLabel(40000)));
    EXPECT_EQ(n.msdCol()->msd(0), IC::IgpMsd(1, 10));
    EXPECT_EQ(n.msdCol()->msd(1), IC::IgpMsd(2, 8));
    // Three definitions split over the second router capability TLV.
    EXPECT_EQ(n.fadCol()->fadCount(), 3u);
    EXPECT_EQ(n.fadCol()->fad(128).priority(), 200);
    EXPECT_EQ(n.fadCol()->fad(128).excludeSrlg()->toStrep(), "[100, 200]");
    EXPECT_EQ(n.fadCol()->fad(129).priority(), 100);
    EXPECT_EQ(n.fadCol()->fad(130).includeAll()->valueCount(), 2u);  // bit 63 needs a second word
    EXPECT_EQ(f0.lsp().content->parsedSrCapFragId(), 0);

    // Fragment 1: links; the anomalous neighbour with metric 0xFFFFFE and no sub-TLVs.
    const auto& links = *f1.lsp().content;
    bool sawMaxMetric = false;
    std::size_t lanSids = 0;
    for (auto it = links.neighbor().begin(); it != links.neighbor().end(); ++it) {
        sawMaxMetric |= (*it)->igpMetric() == 0xFFFFFE;
        lanSids += (*it)->lanAdjSid().size();
    }
    EXPECT_TRUE(sawMaxMetric);
    EXPECT_EQ(lanSids, 4u);
    EXPECT_EQ(links.parsedSrLg().size(), 4u);

    // Fragment 2: prefixes and bindings.
    const auto& pfx = *f2.lsp().content;
    auto p = [&](const char* t) {
        return pfx.prefix(IC::PrefixKey(Kest::strepToValue(t, static_cast<Lumo::IpGenPrefix*>(nullptr)),
                                        IC::IgpMultiTopologyId(0)));
    };
    ASSERT_TRUE(p("192.0.2.1/32") && p("198.51.100.0/24") && p("203.0.113.128/25"));
    EXPECT_EQ(p("192.0.2.1/32")->prefixSid().value(), 1u);
    EXPECT_EQ(p("198.51.100.0/24")->prefixSid().value(), 16999u);
    EXPECT_EQ(p("203.0.113.128/25")->prefixSid().value(), 4095u);
    EXPECT_TRUE(p("10.0.0.0/8")->flags().isisDown());
    std::size_t bindings = 0;
    for (auto it = pfx.prefix().begin(); it != pfx.prefix().end(); ++it) {
        if ((*it)->sidLabelBinding()) {
            ++bindings;
            EXPECT_EQ((*it)->sidLabelBinding()->lspFragmentId(), 2);
        }
    }
    EXPECT_EQ(bindings, 4u);
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
