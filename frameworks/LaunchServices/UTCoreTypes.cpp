#include <LaunchServices/UTCoreTypes.h>

#include "CoreFoundation/String.h"

namespace {
frameworks::Immortal<__CFString> png("public.png");
}

const CFStringRef kUTTypePNG = png.Get();
