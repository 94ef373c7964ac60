// The applications in a folder and in the plain folders below it, read again as they change.
//
// Links and hidden folders are passed over, and nothing is looked for inside an application.
//
// Threads: one at a time. Failure: a folder that cannot be read has nothing in it.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "LaunchServices/ApplicationBundle.h"
#include "LaunchServices/FileStamp.h"

namespace frameworks {

class ApplicationFolder {
  public:
    // LEVELS of plain folders below this one are looked into.
    ApplicationFolder(std::string itsPath, int itsLevels);

    const std::string& Path() const { return path; }
    // Looks at the folders that have changed, and at what is not known for sure yet.
    void RefreshListing();
    // Folder by folder, in the order of their names.
    void ForEach(const std::function<void(ApplicationBundle&)>& visit);

  private:
    void List();

    std::string path;
    int levels;
    FileStamp listed;
    // By name.
    std::map<std::string, ApplicationBundle> bundles;
    std::map<std::string, std::unique_ptr<ApplicationFolder>> folders;
};

}  // namespace frameworks
