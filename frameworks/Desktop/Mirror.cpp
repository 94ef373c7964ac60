#include "Desktop/Mirror.h"

#include <sys/stat.h>

#include <exception>
#include <optional>

#include "CarbonCore/HomeFolder.h"
#include "CoreFoundation/Dictionary.h"
#include "CoreFoundation/String.h"
#include "Desktop/DefaultApplications.h"
#include "Desktop/LoginItems.h"
#include "Desktop/Values.h"

namespace frameworks {
namespace {

constexpr char kLoginItems[] = "/Library/Preferences/loginwindow.plist";
constexpr char kLoginItemsKey[] = "AutoLaunchedApplicationDictionary";
constexpr char kLaunchServices[] = "/Library/Preferences/com.apple.LaunchServices.plist";
constexpr char kHandlersKey[] = "LSHandlers";

bool IsSameFile(const std::string& one, const std::string& other) {
    struct stat statusOfOne;
    struct stat statusOfOther;
    return stat(one.c_str(), &statusOfOne) == 0 && stat(other.c_str(), &statusOfOther) == 0 &&
           statusOfOne.st_dev == statusOfOther.st_dev && statusOfOne.st_ino == statusOfOther.st_ino;
}

}  // namespace

void MirrorPropertyList(const std::string& path, const Object& list) noexcept {
    try {
        const std::optional<std::string> home = HomeFolder();
        if (!home) return;
        if (IsSameFile(path, *home + kLoginItems)) {
            MirrorLoginItems(ArrayIn(list, kLoginItemsKey));
        } else if (IsSameFile(path, *home + kLaunchServices)) {
            MirrorHandlers(ArrayIn(list, kHandlersKey));
        }
    } catch (const std::exception&) {
        // Memory has run out, or a folder has gone while it was read.
    }
}

}  // namespace frameworks
