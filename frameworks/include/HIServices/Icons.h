// Icon Services: the images of a family.
//
// Backed by frameworks/LaunchServices/IconFamily.h.
// What is here: taking the image of 128 by 128 pixels out of a family. Different from the Mac: any
// other type is refused (IconServices_test: GetIconFamilyData_OfAnotherType_IsRefused).
// Threads: any; a handle is for one thread at a time.
#pragma once

#include <CarbonCore/MacTypes.h>
#include <OSServices/IconStorage.h>

extern "C" {

// The handle gets the image's size: 65,536 bytes, of each pixel alpha, red, green and blue, from
// the top left one on. Pixels that lie packed in the family know no alpha and become opaque.
// noIconDataAvailableErr, and a handle of no bytes, when the family has no such image or a
// malformed one; paramErr for null handles and other types.
OSErr GetIconFamilyData(IconFamilyHandle iconFamily, OSType iconType, Handle h);

}  // extern "C"
