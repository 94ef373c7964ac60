#include "support/OwnBundle.h"

#include <unistd.h>

#include <cstdlib>

#include "support/Sandbox.h"
#include "support/Waiting.h"

namespace fs = std::filesystem;

OwnBundle::OwnBundle() {
    std::string pattern = (fs::temp_directory_path() / "tesselcore-bundle-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
        throw Failed("cannot make " + pattern);
    }
    folder = pattern;
    fs::permissions(folder, fs::perms(0755));
    fs::create_directories(Outside(kServiceFolder));
    fs::copy_file(E2E_SERVICE, Outside(kServiceFile));
    if (!Sandbox::CanSwitchUsers()) {
        return;
    }
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
        if (lchown(entry.path().c_str(), kUserId, kUserId) != 0) {
            throw Failed("cannot give away " + entry.path().string());
        }
    }
    if (lchown(folder.c_str(), kUserId, kUserId) != 0) {
        throw Failed("cannot give away " + folder.string());
    }
}

OwnBundle::~OwnBundle() {
    std::error_code ignored;
    fs::remove_all(folder, ignored);
}

std::vector<std::string> OwnBundle::Mount() const {
    return {"--bind", folder.string(), kBundleFolder};
}

fs::path OwnBundle::Outside(const std::string& path) const {
    return folder / fs::path(path).lexically_relative(kBundleFolder);
}
