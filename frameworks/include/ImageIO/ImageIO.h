// All of Image I/O that the layer offers.
#pragma once

#include <ImageIO/CGImageDestination.h>
