// The changes that turn one set of databases into another.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Changes.h"
#include "Lsdb.h"

namespace IgpLsdb {

using NodePredicate = std::function<bool(const IC::IgpNodeId&)>;

/// Brings the databases of `a` to the contents of `b`, level by level and
/// node by node in identifier order, under `feed`'s eyes: each node of `b` is
/// merged into `a` as a received LSP would be, whole (its final content, not
/// the LSPs that led there, so that nothing in between shows), and each node
/// that `a` has and `b` lacks is removed. Only nodes `wanted` are touched.
void applyDiff(Lsdb& a, const Lsdb& b, ChangeFeed& feed, const NodePredicate& wanted);

}  // namespace IgpLsdb
