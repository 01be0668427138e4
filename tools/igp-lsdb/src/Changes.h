// Following a database's changes: one Change per change notification, with
// the LSP that caused it, the entity and attribute, the key or index, and the
// old and new values as text.
//
// The new value is read when the merge that published the change is over
// (end()), not inside the notification: a merge may still be filling the new
// object then (a prefix's SID/label binding is installed empty, then updated).
// A change whose old and new texts are equal at that point changed nothing a
// reader could see (a binding replaced by an equal one) and is not reported.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "IgpCommon/IgpLsp.h"
#include "Lsdb.h"
#include "Render.h"

namespace IgpLsdb {

struct Change {
    FrameRef where;
    unsigned level = 0;
    IC::IgpNodeId node;     // the originator of the LSP being merged
    std::string entity;     // "lsdb", "lsp", "node", "neighbor" or "prefix"
    std::string entityKey;  // the neighbor's or prefix's key; empty for the others
    std::string attr;       // the attribute's declared name
    Text key;               // the member's key or index, for collections
    Text oldValue;
    Text newValue;
};

/// One merge's changes in an order the hash seed does not decide: by entity
/// (lsdb, lsp, node, neighbor, prefix) and entity key, an entity's attributes
/// in publication order, one attribute's changes by key.
std::vector<Change> sortedChanges(std::vector<Change> changes);

/// Observes databases and everything in them. Declare it before the
/// databases it watches, so that it outlives every object it is registered on.
class ChangeFeed final : public Poldo::Observer {
public:
    using Sink = std::function<void(const Change&)>;

    explicit ChangeFeed(Sink sink) : sink_(std::move(sink)) {}

    /// Watches `db`, its entries and their nodes, neighbors and prefixes, and
    /// whatever joins them later.
    void watch(const IC::IgpLspDatabase& db);

    /// Opens a merge: what is heard until end() belongs to this LSP.
    void begin(const FrameRef& where, unsigned level, const IC::IgpNodeId& node);
    /// Closes the merge and hands its changes to the sink, in sortedChanges() order.
    void end();

    void onChange(const Poldo::Notification& n) override;

private:
    struct Pending {
        Change change;
        std::function<Text()> newValue;
    };

    void watchEntry(const IC::IgpLsp& entry);
    void onDatabase(const IC::IgpLspDatabase& db, const Poldo::Notification& n, Pending& p);
    void onEntry(const IC::IgpLsp& entry, const Poldo::Notification& n, Pending& p);
    static void onNode(const IC::Node& node, const Poldo::Notification& n, Pending& p);
    static void onNeighbor(const IC::Neighbor& nbr, const Poldo::Notification& n, Pending& p);
    static void onPrefix(const IC::Prefix& pfx, const Poldo::Notification& n, Pending& p);

    Sink sink_;
    Change context_;
    std::vector<Pending> pending_;
};

}  // namespace IgpLsdb
