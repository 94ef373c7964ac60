#include <CarbonCore/MacMemory.h>

#include <algorithm>
#include <cstdlib>

Ptr NewPtrClear(Size byteCount) {
    if (byteCount < 0) {
        return nullptr;
    }
    // calloc may answer null for no bytes, which would look like a failure.
    return static_cast<Ptr>(std::calloc(static_cast<std::size_t>(std::max(byteCount, Size{1})), 1));
}

void DisposePtr(Ptr p) {
    std::free(p);
}
