// One-line texts of database values and objects, for change lines and JSON.
// Values use the library's canonical text forms (Kest::strep); neighbors,
// prefixes and nodes their own dump text on one line; the node's attribute
// collections, which have no text form of their own, are written as lists of
// their members' forms. Every text goes through escaped() (Escape.h): a host
// name is whatever the LSP carried.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "IgpCommon/IgpLsp.h"

namespace IgpLsdb {

namespace IC = Routing::IgpCommon;

/// escaped(s); line breaks kept when `keepNewlines`.
std::string printable(std::string_view s, bool keepNewlines = false);

/// An absent value (a null object, a removed member) has no text.
using Text = std::optional<std::string>;

template <class T>
Text text(const T& v) {
    return printable(std::string_view(Kest::strep(v)));
}
Text text(const IC::IgpNodeId& id);
Text text(const IC::NeighborKey& key);
Text text(const IC::PrefixKey& key);
Text text(const Poldo::Ptr<IC::IgpLsp>& entry);
Text text(const Poldo::Ptr<IC::Node>& node);
Text text(const Poldo::Ptr<IC::Neighbor>& nbr);
Text text(const Poldo::Ptr<IC::Prefix>& pfx);
Text text(const Poldo::Ptr<IC::IsisAreaIdCol>& areas);
Text text(const Poldo::Ptr<IC::SrCapabilities>& caps);
Text text(const Poldo::Ptr<IC::IgpMsdCol>& msds);
Text text(const Poldo::Ptr<IC::IgpFlexAlgoDefinitionCol>& fads);
Text text(const Poldo::Ptr<IC::IgpMultiTopologyIdCol>& mts);
Text text(const Poldo::Ptr<IC::IgpFlexAlgoPrefixMetric>& metrics);
Text text(const Poldo::Ptr<IC::SidLabelBinding>& binding);

/// "0000.0000.0001.02 (r1)" when the host name is known, else the identifier.
std::string nodeLabel(const IC::IgpNodeId& id, const std::optional<std::string>& hostName);

}  // namespace IgpLsdb
