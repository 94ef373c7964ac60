#include <Carbon/Carbon.h>

#include "apps/Paths.h"
#include "apps/RmDir.h"
#include "direct/Measurements.h"
#include "direct/Memory.h"
#include "support/Clock.h"
#include "support/Failure.h"

Figures MeasureRemove(const Options& options) {
    const std::string path = options.Text("path");
    const PathReference folder = ReferenceTo(path);
    if (!folder.isFolder) {
        throw Failure("there is no folder " + path);
    }
    const double before = ResidentMemory();
    const std::int64_t start = Now();
    const bool removed = RmDir().remove(&folder.ref, 1) == 1;
    const std::int64_t end = Now();
    if (!removed || MayExist(path)) {
        throw Failure(path + " is still there");
    }
    return {{"time", static_cast<double>(end - start)},
            {"memory before", before},
            {"memory after", ResidentMemory()}};
}
