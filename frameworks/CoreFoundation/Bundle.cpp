#include "CoreFoundation/Bundle.h"

#include <sys/stat.h>

#include <cerrno>
#include <new>

#include "CoreFoundation/PropertyList.h"
#include "CoreFoundation/String.h"
#include "Support/ReadFile.h"

using frameworks::Checked;
using frameworks::CheckedMutable;
using frameworks::Ref;

namespace {

constexpr const char* kInfoFiles[] = {"/Contents/Info.plist", "/Info.plist"};
constexpr char kResources[] = "/Contents/Resources/";

frameworks::Immortal<__CFString> identifierKey("CFBundleIdentifier");

bool IsFolder(const std::string& path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

Ref<const __CFDictionary> EmptyDictionary() {
    auto empty = Ref<__CFDictionary>::Adopt(
        new __CFDictionary(&kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    empty->Freeze();
    return Ref<const __CFDictionary>::Adopt(empty.Leak());
}

// The first of the files that exists counts, whatever it says.
Ref<const __CFDictionary> ReadInfo(const std::string& bundle) {
    for (const char* const file : kInfoFiles) {
        const std::optional<std::string> bytes =
            frameworks::ReadRegularFile((bundle + file).c_str(), frameworks::kLargestPropertyList);
        if (!bytes && (errno == ENOENT || errno == ENOTDIR)) continue;
        if (!bytes) break;
        Ref<const frameworks::Object> list =
            frameworks::ReadPropertyList(*bytes, frameworks::Containers::kFrozen);
        if (!list || &list->ObjectType() != &__CFDictionary::kType) break;
        return Ref<const __CFDictionary>::Adopt(static_cast<const __CFDictionary*>(list.Leak()));
    }
    return EmptyDictionary();
}

std::string_view TextOrNothing(CFStringRef string, const char* call) {
    return string == nullptr ? std::string_view() : Checked<__CFString>(string, call).Text();
}

}  // namespace

const CFStringRef kCFBundleIdentifierKey = identifierKey.Get();

Ref<__CFBundle> __CFBundle::OfFolder(std::string path) {
    return IsFolder(path) ? Ref<__CFBundle>::Adopt(new __CFBundle(std::move(path)))
                          : Ref<__CFBundle>();
}

const __CFDictionary& __CFBundle::Info() {
    const std::lock_guard<std::mutex> lock(mutex);
    if (!info) {
        info = ReadInfo(path);
    }
    return *info;
}

Ref<__CFURL> __CFBundle::Resource(std::string_view name, std::string_view extension,
                                  std::string_view folder) const {
    std::string file = path + kResources;
    if (!folder.empty()) {
        file.append(folder).append("/");
    }
    file.append(name);
    if (!extension.empty()) {
        file.append(".").append(extension);
    }
    struct stat status;
    if (name.empty() || stat(file.c_str(), &status) != 0) return {};
    return __CFURL::OfPath(file, S_ISDIR(status.st_mode));
}

std::string __CFBundle::Describe() const {
    return DescribeHead() + "{" + path + "}";
}

CFTypeID CFBundleGetTypeID() {
    return __CFBundle::kType.id;
}

CFBundleRef CFBundleCreate(CFAllocatorRef, CFURLRef bundleURL) {
    const __CFURL& url = Checked<__CFURL>(bundleURL, "CFBundleCreate");
    try {
        const std::optional<std::string> path = url.Path();
        return path ? __CFBundle::OfFolder(*path).Leak() : nullptr;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

CFDictionaryRef CFBundleGetInfoDictionary(CFBundleRef bundle) {
    __CFBundle& object = CheckedMutable<__CFBundle>(bundle, "CFBundleGetInfoDictionary");
    try {
        return &object.Info();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

CFURLRef CFBundleCopyResourceURL(CFBundleRef bundle, CFStringRef resourceName,
                                 CFStringRef resourceType, CFStringRef subDirName) {
    const char* const call = "CFBundleCopyResourceURL";
    const __CFBundle& object = Checked<__CFBundle>(bundle, call);
    const std::string_view name = Checked<__CFString>(resourceName, call).Text();
    const std::string_view type = TextOrNothing(resourceType, call);
    const std::string_view folder = TextOrNothing(subDirName, call);
    try {
        return object.Resource(name, type, folder).Leak();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
