#include "Diff.h"

#include <set>

namespace IgpLsdb {

namespace {

// A received LSP's worth of content holding everything `entry` holds. The
// neighbors already carry their SRLGs, so no SRLG records are needed.
Poldo::Ptr<IC::IsisLspParsedContent> contentOf(const IC::IgpLsp& entry) {
    auto parsed = IC::isisLspParsedContentFactory();
    parsed->nodeIs(entry.node());
    for (const auto& m : entry.neighbor()) {
        parsed->neighborIs(m.key)->updateAttr(m.value);
    }
    for (const auto& m : entry.prefix()) {
        parsed->prefixIs(m.key)->updateAttr(m.value);
    }
    return parsed;
}

bool sameMetrics(const IC::IgpFlexAlgoPrefixMetric& x, const IC::IgpFlexAlgoPrefixMetric& y) {
    if (x.metricCount() != y.metricCount()) {
        return false;
    }
    for (const auto& [algo, metric] : x.metric()) {
        if (!y.metric().contains(algo) || y.metric(algo) != metric) {
            return false;
        }
    }
    return true;
}

// The prefix merge only adds and overwrites per-algorithm metrics, and their
// collection publishes nothing: where theirs differ, install a copy of theirs,
// which replaces ours whole and is published as a prefixMetric change.
void takeTheirMetrics(const IC::IgpLsp& ours, const IC::IgpLsp& theirs) {
    for (const auto& m : ours.prefix()) {
        const auto other = theirs.prefix(m.key);
        if (!other || sameMetrics(*m.value->prefixMetric(), *other->prefixMetric())) {
            continue;
        }
        auto copy = IC::igpFlexAlgoPrefixMetricFactory();
        for (const auto& [algo, metric] : other->prefixMetric()->metric()) {
            copy->metricIs(algo, metric);
        }
        m.value->prefixMetricIs(copy);
    }
}

void merge(IC::IgpLspDatabase& db, const IC::IgpLsp& theirs) {
    const auto parsed = contentOf(theirs);
    if (const auto entry = db.lsp(theirs.nodeId())) {
        takeTheirMetrics(*entry, theirs);
    }
    db.lspMerge(parsed);
}

}  // namespace

void applyDiff(Lsdb& a, const Lsdb& b, ChangeFeed& feed, const NodePredicate& wanted) {
    for (const unsigned level : a.levels()) {
        IC::IgpLspDatabase& ours = *a.keeper(level).database();
        const IC::IgpLspDatabase& theirs = *b.keeper(level).database();
        std::set<IC::IgpNodeId> ids;
        for (const IC::IgpLspDatabase* db : {static_cast<const IC::IgpLspDatabase*>(&ours), &theirs}) {
            for (const auto& entry : db->lsp()) {
                if (wanted(entry->nodeId())) {
                    ids.insert(entry->nodeId());
                }
            }
        }
        for (const IC::IgpNodeId& id : ids) {
            feed.begin(FrameRef{}, level, id);
            if (const auto entry = theirs.lsp(id)) {
                merge(ours, *entry);
            } else {
                ours.lspDel(id);
            }
            feed.end();
        }
    }
}

}  // namespace IgpLsdb
