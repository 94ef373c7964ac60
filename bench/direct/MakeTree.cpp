#include <fcntl.h>
#include <sys/stat.h>

#include "direct/Measurements.h"
#include "support/Clock.h"
#include "support/Descriptor.h"
#include "support/Failure.h"

namespace {

constexpr long kFilesInAFolder = 1000;

Descriptor MakeFolder(const std::string& path) {
    if (mkdir(path.c_str(), S_IRWXU) != 0) {
        FailWithErrno("mkdir " + path);
    }
    Descriptor folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder.IsOpen()) {
        FailWithErrno("open " + path);
    }
    return folder;
}

void MakeFile(const Descriptor& folder, const std::string& name) {
    const Descriptor file(
        openat(folder.Get(), name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!file.IsOpen()) {
        FailWithErrno("create " + name);
    }
}

}  // namespace

Figures MakeTree(const Options& options) {
    const std::string path = options.Text("path");
    const std::int64_t start = Now();
    MakeFolder(path);
    for (long made = 0; made < options.Number("files"); made += kFilesInAFolder) {
        const Descriptor folder = MakeFolder(path + "/folder " + std::to_string(made));
        for (long file = 0; file < kFilesInAFolder; ++file) {
            MakeFile(folder, "file " + std::to_string(file));
        }
    }
    return {{"time", static_cast<double>(Now() - start)}};
}
