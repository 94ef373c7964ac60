#include "LaunchServices/ApplicationBundle.h"

#include <CoreFoundation/CFBundle.h>

#include <algorithm>
#include <cctype>
#include <charconv>

#include "CoreFoundation/Bundle.h"
#include "CoreFoundation/String.h"

namespace frameworks {
namespace {

constexpr std::string_view kExtension = ".app";

// The text under KEY, empty when there is none.
std::string_view TextUnder(const __CFDictionary& info, CFStringRef key) {
    const void* const value = info.Find(key, "Launch Services");
    if (value == nullptr || CFGetTypeID(value) != CFStringGetTypeID()) return {};
    return static_cast<CFStringRef>(value)->Text();
}

// "1.20" is newer than "1.3". What follows the numbers does not count.
std::vector<unsigned long> NumbersIn(std::string_view text) {
    std::vector<unsigned long> numbers;
    for (;;) {
        unsigned long number = 0;
        const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
        if (result.ec != std::errc()) return numbers;
        numbers.push_back(number);
        text.remove_prefix(static_cast<std::size_t>(result.ptr - text.data()));
        if (text.empty() || text.front() != '.') return numbers;
        text.remove_prefix(1);
    }
}

std::string_view NameOf(std::string_view path) {
    return path.substr(path.rfind('/') + 1);
}

}  // namespace

std::string InLowerCase(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](char letter) {
        return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
    });
    return lower;
}

bool IsNamedLikeApplication(std::string_view path) {
    return NameOf(path).size() > kExtension.size() &&
           path.substr(path.size() - kExtension.size()) == kExtension;
}

std::string ExecutableOf(const std::string& bundle) {
    const auto object = __CFBundle::OfFolder(bundle);
    const std::string_view named =
        object ? TextUnder(object->Info(), CFSTR("CFBundleExecutable")) : std::string_view();
    std::string name(named);
    if (name.empty()) {
        name = NameOf(bundle);
        name.resize(name.size() - kExtension.size());
    }
    if (name.find('/') != std::string::npos || name == "." || name == "..") return std::string();
    return bundle + "/Contents/MacOS/" + name;
}

bool IsInTrash(std::string_view path) {
    for (const std::string_view trash : {"/.local/share/Trash/", "/.Trash/", "/.Trash-"}) {
        if (path.find(trash) != std::string_view::npos) return true;
    }
    return false;
}

ApplicationBundle::ApplicationBundle(std::string itsPath)
    : path(std::move(itsPath)), usualInfo(path + "/Contents/Info.plist") {}

bool ApplicationBundle::Refresh() {
    FileStamp now = FileStamp::Of(usualInfo.c_str());
    if (!now.Exists()) {
        now = FileStamp::Of((path + "/Info.plist").c_str());
    }
    if (read.StillHolds(now)) return false;
    read = now;
    identifier.clear();
    version.clear();
    isBroken = false;
    if (now.Exists()) {
        Read();
    }
    return true;
}

void ApplicationBundle::Read() {
    const auto object = __CFBundle::OfFolder(path);
    if (!object) return;
    const __CFDictionary& info = object->Info();
    identifier = InLowerCase(TextUnder(info, kCFBundleIdentifierKey));
    version = NumbersIn(TextUnder(info, CFSTR("CFBundleVersion")));
    isBroken = CFDictionaryGetCount(&info) == 0;
}

}  // namespace frameworks
