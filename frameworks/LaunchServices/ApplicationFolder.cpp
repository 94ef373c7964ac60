#include "LaunchServices/ApplicationFolder.h"

#include <fcntl.h>

#include <utility>

#include "CarbonCore/FolderStream.h"

namespace frameworks {

ApplicationFolder::ApplicationFolder(std::string itsPath, int itsLevels)
    : path(std::move(itsPath)), levels(itsLevels) {}

void ApplicationFolder::RefreshListing() {
    const FileStamp now = FileStamp::Of(path.c_str());
    if (!listed.StillHolds(now)) {
        List();
        listed = now;
    }
    for (auto& [name, bundle] : bundles) {
        if (bundle.IsUnsettled()) {
            bundle.Refresh();
        }
    }
    for (auto& [name, folder] : folders) {
        folder->RefreshListing();
    }
}

void ApplicationFolder::List() {
    // What was known of those that are still there is kept.
    auto oldBundles = std::exchange(bundles, {});
    auto oldFolders = std::exchange(folders, {});
    FolderStream entries(
        UniqueDescriptor(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK)));
    if (!entries.IsOpen()) return;
    while (const dirent64* const entry = entries.Next()) {
        std::string name = entry->d_name;
        if (!entries.IsFolder(*entry)) continue;
        if (IsNamedLikeApplication(name)) {
            if (bundles.insert(oldBundles.extract(name)).position == bundles.end()) {
                bundles.emplace(name, path + "/" + name);
            }
        } else if (name.front() != '.' && levels > 0) {
            if (folders.insert(oldFolders.extract(name)).position == folders.end()) {
                folders.emplace(name,
                                std::make_unique<ApplicationFolder>(path + "/" + name, levels - 1));
            }
        }
    }
}

void ApplicationFolder::ForEach(const std::function<void(ApplicationBundle&)>& visit) {
    for (auto& [name, bundle] : bundles) {
        visit(bundle);
    }
    for (const auto& [name, folder] : folders) {
        folder->ForEach(visit);
    }
}

}  // namespace frameworks
