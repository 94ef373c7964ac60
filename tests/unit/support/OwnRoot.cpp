#include "unit/support/OwnRoot.h"

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>

namespace fs = std::filesystem;

bool EnterARootOfItsOwn(const std::string& folder) {
    const fs::path root = fs::path(folder) / "root";
    fs::create_directory(root);
    if (unshare(CLONE_NEWNS) != 0 ||
        mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        // In memory, so that nothing of it can be removed with the folder.
        mount("none", root.c_str(), "tmpfs", 0, "mode=755") != 0) {
        return false;
    }
    for (const fs::directory_entry& entry : fs::directory_iterator("/")) {
        const fs::path here = root / entry.path().filename();
        if (entry.is_symlink()) {
            fs::copy_symlink(entry.path(), here);
        } else if (entry.is_directory() && here.filename() != "Applications" &&
                   here.filename() != "Library") {
            fs::create_directory(here);
            if (mount(entry.path().c_str(), here.c_str(), nullptr, MS_BIND | MS_REC, nullptr) !=
                0) {
                return false;
            }
        }
    }
    fs::create_directory(root / "Applications");
    fs::create_directory(root / "Library");
    return chroot(root.c_str()) == 0 && chdir("/") == 0;
}
