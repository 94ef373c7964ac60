// Icon families as they are in a file and in memory: an icon in several sizes.
//
// All numbers are big-endian. IconsCore.h reads a family, and Icons.h takes one image out of it.
#pragma once

#include <CarbonCore/MacTypes.h>

extern "C" {

enum : OSType {
    // 128 by 128 pixels of 32 bits.
    kThumbnail32BitData = 0x69743332,  // 'it32'
    kIconFamilyType = 0x69636E73       // 'icns'
};

#pragma pack(push, 2)
// Its data follow the eight bytes of type and size, which are counted in the size.
struct IconFamilyElement {
    OSType elementType;
    SInt32 elementSize;
    unsigned char elementData[1];
};

struct IconFamilyResource {
    OSType resourceType;
    SInt32 resourceSize;
    IconFamilyElement elements[1];
};
#pragma pack(pop)

using IconFamilyPtr = IconFamilyResource*;
using IconFamilyHandle = IconFamilyPtr*;

}  // extern "C"
