// The IGP common library: the shared in-memory model of an IS-IS link-state
// database. Including this header declares every public type of
// Routing::IgpCommon, of its framework (Kest, Poldo) and of its platform
// types (Lumo, Routing::Isis, Umbo, Drimm).
//
// Where to start: LspDatabase.h (the database, its entries and the merge of a
// received LSP), ParsedContent.h (what an agent fills from an LSP), and
// framework/Publisher.h (how to observe changes).
#pragma once

// Foundation
#include "IgpCommon/framework/Array.h"
#include "IgpCommon/framework/Assert.h"
#include "IgpCommon/framework/BitSet.h"
#include "IgpCommon/framework/BoundedIndex.h"
#include "IgpCommon/framework/DenseBoolSet.h"
#include "IgpCommon/framework/Entity.h"
#include "IgpCommon/framework/Exceptions.h"
#include "IgpCommon/framework/FlatMap.h"
#include "IgpCommon/framework/Hash.h"
#include "IgpCommon/framework/HashMap2018.h"
#include "IgpCommon/framework/Ptr.h"
#include "IgpCommon/framework/Publisher.h"
#include "IgpCommon/framework/RbTreeMap.h"
#include "IgpCommon/framework/String.h"
#include "IgpCommon/framework/Text.h"
#include "IgpCommon/framework/ThreadControl.h"
#include "IgpCommon/framework/TypeData.h"

// Platform types
#include "IgpCommon/platform/Drimm.h"
#include "IgpCommon/platform/Isis.h"
#include "IgpCommon/platform/Lumo.h"
#include "IgpCommon/platform/Umbo.h"

// Identifiers and keys
#include "IgpCommon/FlagSets.h"
#include "IgpCommon/Identifiers.h"
#include "IgpCommon/IgpNodeId.h"
#include "IgpCommon/NeighborKey.h"
#include "IgpCommon/PrefixKey.h"

// SR and TE attributes
#include "IgpCommon/FlexAlgo.h"
#include "IgpCommon/NodeAttrCollections.h"
#include "IgpCommon/SidLabelBinding.h"
#include "IgpCommon/SidValues.h"
#include "IgpCommon/SrCapabilities.h"

// Database entities
#include "IgpCommon/LspDatabase.h"
#include "IgpCommon/Neighbor.h"
#include "IgpCommon/Node.h"
#include "IgpCommon/ParsedContent.h"
#include "IgpCommon/Prefix.h"
