// The tablets for people to look at: which there are, what they can do, and whether they can be
// read.
//
// Threads: any. Failure: what cannot be read is listed with the reason.
#pragma once

#include <string>

#include "driver/TabletFinder.h"

namespace driver {

// Several lines, which end with a line feed.
std::string Describe(const FoundTablet& tablet);

std::string ListOfTablets();

}  // namespace driver
