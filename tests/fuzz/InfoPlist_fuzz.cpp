// An application's Info.plist: whatever it says, a bundle has a dictionary, and what is read of it
// keeps to the bundle.
#include <CoreFoundation/CoreFoundation.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "CoreFoundation/Dictionary.h"
#include "CoreFoundation/PropertyList.h"
#include "LaunchServices/ApplicationBundle.h"
#include "Require.h"
#include "Surroundings.h"
#include "core/Helpers.h"
#include "core/Owners.h"
#include "system/IconCreator.h"
#include "system/Utf8Of.h"

namespace {

constexpr char kInfo[] = "Applications/Some.app/Contents/Info.plist";

// The text under KEY, if there is one.
std::optional<std::string> TextUnder(CFDictionaryRef information, CFStringRef key) {
    return Utf8Of(CFDictionaryGetValue(information, key));
}

void LookAtExecutable(const std::string& bundle, const std::optional<std::string>& named) {
    const std::string executable = frameworks::ExecutableOf(bundle);
    if (executable.empty()) {
        Require(named && (named->find('/') != named->npos || *named == "." || *named == ".."),
                "an executable is refused only when it lies elsewhere");
        return;
    }
    const std::string folder = bundle + "/Contents/MacOS/";
    Require(executable.compare(0, folder.size(), folder) == 0, "an executable lies in its bundle");
    const std::string name = executable.substr(folder.size());
    Require(!name.empty() && name.find('/') == name.npos && name != "." && name != "..",
            "an executable is a file there");
    // What is read here ends with the first NUL; a name that holds one names nothing.
    if (named && !named->empty() && name.find('\0') == name.npos) {
        Require(name == *named, "an executable is the one that is named");
    }
}

void LookAtIcon(const std::string& bundle, const std::optional<std::string>& named) {
    const std::string icon = IconCreator::GetIconFileFromBundle(bundle);
    if (!named) {
        Require(icon.empty(), "no icon is named where none is");
        return;
    }
    Require(icon == *named || icon == *named + ".icns", "an icon is the one that is named");
    Require(icon.find('.') != icon.npos, "an icon has an extension");
}

void LookAtApplication(const std::string& path, CFDictionaryRef information) {
    frameworks::ApplicationBundle application(path);
    Require(application.Refresh(), "what is new is read");
    const std::string& identifier = application.Identifier();
    Require(std::none_of(identifier.begin(), identifier.end(),
                         [](char letter) { return letter >= 'A' && letter <= 'Z'; }),
            "an identifier is in small letters");
    const std::optional<std::string> named = TextUnder(information, kCFBundleIdentifierKey);
    const std::string expected = frameworks::InLowerCase(named.value_or(""));
    Require(identifier.compare(0, expected.size(), expected) == 0,
            "an identifier is the one that is named");
    const std::string version = TextUnder(information, CFSTR("CFBundleVersion")).value_or("");
    const auto dots = std::count(version.begin(), version.end(), '.');
    Require(application.Version().size() <= static_cast<std::size_t>(dots) + 1,
            "a version has no more numbers than are written");
    Require(application.Version().empty() ==
                    (version.empty() || version[0] < '0' || version[0] > '9') ||
                version.size() > 19,
            "a version has a number if it begins with one");
    Require(application.IsBroken() == (CFDictionaryGetCount(information) == 0),
            "what says nothing is broken");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Surroundings::File& file = *new Surroundings::File(kInfo);
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const std::string path = (Surroundings::Home() / "Applications/Some.app").string();
    file.Hold(bytes);

    const auto bundle = CFOwner<CFBundleRef>::Adopt(Helpers::getBundleRef(path));
    Require(bool(bundle), "a folder is a bundle, whatever its Info.plist says");
    const CFDictionaryRef information = CFBundleGetInfoDictionary(bundle.Get());
    Require(information != nullptr, "a bundle has a dictionary");
    const auto list = frameworks::ReadPropertyList(bytes, frameworks::Containers::kFrozen);
    if (list && CFGetTypeID(list.Get()) == CFDictionaryGetTypeID()) {
        Require(CFEqual(information, list.Get()), "the dictionary is what the file says");
    } else {
        Require(CFDictionaryGetCount(information) == 0, "a file that is none says nothing");
    }
    Require(CFBundleGetInfoDictionary(bundle.Get()) == information, "it is read once");
    LookAtExecutable(path, TextUnder(information, CFSTR("CFBundleExecutable")));
    LookAtIcon(path, TextUnder(information, CFSTR("CFBundleIconFile")));
    LookAtApplication(path, information);
    return 0;
}
