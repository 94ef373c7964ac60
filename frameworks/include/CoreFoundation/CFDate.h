// Times.
#pragma once

#include <CoreFoundation/CFBase.h>

// In seconds.
using CFTimeInterval = double;
