// All of Core Graphics that the layer offers.
#pragma once

#include <CoreGraphics/CGColorSpace.h>
#include <CoreGraphics/CGDataProvider.h>
#include <CoreGraphics/CGEvent.h>
#include <CoreGraphics/CGEventTypes.h>
#include <CoreGraphics/CGGeometry.h>
#include <CoreGraphics/CGImage.h>
