// All of the High Level Toolbox that the layer offers.
#pragma once

#include <HIToolbox/CarbonEvents.h>
#include <HIToolbox/CarbonEventsCore.h>
