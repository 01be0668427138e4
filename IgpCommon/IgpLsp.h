// Umbrella header of the IGP common library: including it declares every
// public type of Routing::IgpCommon, its framework and its platform types.
#pragma once

#include "IgpCommon/framework/Assert.h"
#include "IgpCommon/framework/Array.h"
#include "IgpCommon/framework/BitSet.h"
#include "IgpCommon/framework/BoundedIndex.h"
#include "IgpCommon/framework/Exceptions.h"
#include "IgpCommon/framework/Hash.h"
#include "IgpCommon/framework/HashMap2018.h"
#include "IgpCommon/framework/Publisher.h"
#include "IgpCommon/framework/Ptr.h"
#include "IgpCommon/framework/RbTreeMap.h"
#include "IgpCommon/framework/String.h"
#include "IgpCommon/framework/Text.h"
#include "IgpCommon/framework/ThreadControl.h"
#include "IgpCommon/framework/TypeData.h"

#include "IgpCommon/Identifiers.h"
#include "IgpCommon/IgpNodeId.h"
