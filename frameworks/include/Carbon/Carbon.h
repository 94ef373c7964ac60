// All of Carbon that the layer offers. Each header says what it is backed by and what differs from
// the Mac.
#pragma once

#include <AE/AEDataModel.h>
#include <AE/AEMach.h>
#include <AE/AppleEvents.h>
#include <CarbonCore/Debugging.h>
#include <CarbonCore/Files.h>
#include <CarbonCore/Folders.h>
#include <CarbonCore/MacErrors.h>
#include <CarbonCore/MacMemory.h>
#include <CarbonCore/MacTypes.h>
#include <CoreFoundation/CoreFoundation.h>
#include <HIServices/Icons.h>
#include <HIServices/Processes.h>
#include <HIToolbox/HIToolbox.h>
#include <LaunchServices/IconsCore.h>
#include <LaunchServices/LSInfo.h>
#include <LaunchServices/LSOpen.h>
#include <LaunchServices/UTCoreTypes.h>
#include <OSServices/IconStorage.h>
