// Umbrella header of the IGP common library: including it declares every
// public type of Routing::IgpCommon, its framework and its platform types.
#pragma once

#include "IgpCommon/framework/Assert.h"
