// All applications that are known: those in the usual folders and those that were registered.
//
// Owner: the process, which has one. Threads: any. Failure: as said per call.
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "LaunchServices/ApplicationBundle.h"
#include "LaunchServices/ApplicationFolder.h"

namespace frameworks {

class ApplicationCatalog {
  public:
    static ApplicationCatalog& Get();

    // The path of the application with that identifier. Those in the trash count only when there is
    // no other. Nothing when there is none at all.
    std::optional<std::string> Find(std::string_view identifier);

    enum class Registration { kDone, kNothingToRegister, kBroken };
    // PATH is a bundle's or a folder's.
    Registration Register(const std::string& path);

  private:
    // "/Applications/Some Maker/Some Suite/Some Program.app" is found, nothing deeper.
    static constexpr int kLevels = 2;

    ApplicationCatalog() = default;
    void RefreshListing();
    void ForEach(const std::function<void(ApplicationBundle&)>& visit);
    // By what is known.
    std::optional<std::string> Match(std::string_view identifier);
    Registration RegisterBundle(const std::string& path);
    Registration RegisterFolder(const std::string& path);

    std::mutex mutex;
    ApplicationFolder everybodys{"/Applications", kLevels};
    std::optional<ApplicationFolder> users;
    // By path.
    std::map<std::string, ApplicationBundle> registered;
};

}  // namespace frameworks
