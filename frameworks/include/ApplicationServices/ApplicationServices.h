// All of the Application Services that the layer offers. Each header says what it is backed by and
// what differs from the Mac.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <CoreGraphics/CoreGraphics.h>
#include <HIServices/Icons.h>
#include <HIServices/Processes.h>
#include <ImageIO/ImageIO.h>
#include <LaunchServices/IconsCore.h>
#include <LaunchServices/UTCoreTypes.h>
