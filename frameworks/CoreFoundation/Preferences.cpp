#include "CoreFoundation/Preferences.h"

#include <CoreFoundation/CFPreferences.h>
#include <CoreFoundation/CFPropertyList.h>
#include <sys/stat.h>

#include <cerrno>
#include <new>
#include <optional>
#include <utility>

#include "CarbonCore/HomeFolder.h"
#include "CoreFoundation/Dictionary.h"
#include "CoreFoundation/PropertyList.h"
#include "CoreFoundation/String.h"
#include "Desktop/Mirror.h"
#include "Support/ReadFile.h"
#include "Support/ReplacedFile.h"

using frameworks::AnyObject;
using frameworks::Checked;
using frameworks::Misuse;
using frameworks::Object;
using frameworks::Preferences;
using frameworks::Ref;

namespace frameworks {
namespace {

constexpr const char* kCall = "CFPreferences";
constexpr char kLibrary[] = "/Library";
constexpr char kPreferences[] = "/Library/Preferences";
constexpr char kEnding[] = ".plist";

struct List {
    Ref<const Object> root;
    // What a new list is written in.
    CFPropertyListFormat format = kCFPropertyListBinaryFormat_v1_0;

    const __CFDictionary& Dictionary() const {
        return static_cast<const __CFDictionary&>(*root.Get());
    }
};

Ref<const Object> EmptyDictionary() {
    return Ref<const Object>::Adopt(
        new __CFDictionary(&kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
}

// An empty dictionary where there is no file yet, or an empty one. Nothing when there is something
// else.
std::optional<List> ReadList(const std::string& path, Containers containers) {
    List list;
    const std::optional<std::string> bytes = ReadRegularFile(path.c_str(), kLargestPropertyList);
    if (!bytes && errno != ENOENT) return std::nullopt;
    list.root = bytes && !bytes->empty() ? ReadPropertyList(*bytes, containers, &list.format)
                                         : EmptyDictionary();
    if (!list.root || &list.root->ObjectType() != &__CFDictionary::kType) return std::nullopt;
    return list;
}

bool WriteList(const std::string& path, const List& list) {
    const std::optional<std::string> bytes = WritePropertyList(*list.root, list.format);
    return bytes && ReplaceFile(path, *bytes, ReplacedFile::Link::kFollowed,
                                ReplacedFile::Durability::kSurvivesCrashes, S_IRUSR | S_IWUSR);
}

}  // namespace

Preferences& Preferences::Get() {
    static Preferences& preferences = *new Preferences();
    return preferences;
}

std::string Preferences::PathFor(std::string_view application) {
    if (application.empty() || application.find('/') != std::string_view::npos ||
        application.find('\0') != std::string_view::npos) {
        return std::string();
    }
    const std::optional<std::string> home = HomeFolder();
    if (!home) return std::string();
    // Made once already, but somebody may have deleted them since.
    mkdir((*home + kLibrary).c_str(), S_IRWXU);
    mkdir((*home + kPreferences).c_str(), S_IRWXU);
    return *home + kPreferences + "/" + std::string(application) + kEnding;
}

Ref<const Object> Preferences::Copy(const std::string& path, const __CFString& key) {
    {
        const std::lock_guard<std::mutex> lock(mutex);
        const auto changes = pending.find(path);
        if (changes != pending.end()) {
            const auto change = changes->second.find(key.Text());
            if (change != changes->second.end()) {
                return Ref<const Object>::Retain(change->second.Get());
            }
        }
    }
    const std::optional<List> list = ReadList(path, Containers::kFrozen);
    return list ? Ref<const Object>::Retain(
                      static_cast<const Object*>(list->Dictionary().Find(&key, kCall)))
                : Ref<const Object>();
}

void Preferences::Set(const std::string& path, const __CFString& key, Ref<const Object> value) {
    const std::lock_guard<std::mutex> lock(mutex);
    pending[path].insert_or_assign(std::string(key.Text()), std::move(value));
}

Preferences::Changes Preferences::Take(const std::string& path) {
    const std::lock_guard<std::mutex> lock(mutex);
    auto changes = pending.extract(path);
    return changes.empty() ? Changes() : std::move(changes.mapped());
}

void Preferences::PutBack(const std::string& path, Changes changes) {
    const std::lock_guard<std::mutex> lock(mutex);
    // What has been set in the meantime is newer.
    pending[path].merge(changes);
}

bool Preferences::Synchronize(const std::string& path) {
    const std::lock_guard<std::mutex> lock(writing);
    Changes changes = Take(path);
    if (changes.empty()) return true;
    std::optional<List> list = ReadList(path, Containers::kMutable);
    bool isDone = false;
    if (list) {
        auto& dictionary = const_cast<__CFDictionary&>(list->Dictionary());
        bool isChanged = false;
        for (const auto& [text, value] : changes) {
            const Ref<__CFString> key = __CFString::Make(text);
            if (value) {
                dictionary.Set(key.Get(), value.Get(), kCall);
                isChanged = true;
            } else {
                isChanged = dictionary.Remove(key.Get(), kCall) || isChanged;
            }
        }
        isDone = !isChanged || WriteList(path, *list);
    }
    if (isDone) {
        MirrorPropertyList(path, *list->root);
    } else {
        PutBack(path, std::move(changes));
    }
    return isDone;
}

}  // namespace frameworks

CFPropertyListRef CFPreferencesCopyAppValue(CFStringRef key, CFStringRef applicationID) {
    constexpr const char* kCall = "CFPreferencesCopyAppValue";
    const __CFString& name = Checked<__CFString>(key, kCall);
    const std::string_view application = Checked<__CFString>(applicationID, kCall).Text();
    try {
        const std::string path = Preferences::PathFor(application);
        return path.empty() ? nullptr : Preferences::Get().Copy(path, name).Leak();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void CFPreferencesSetAppValue(CFStringRef key, CFPropertyListRef value, CFStringRef applicationID) {
    constexpr const char* kCall = "CFPreferencesSetAppValue";
    const __CFString& name = Checked<__CFString>(key, kCall);
    const std::string_view application = Checked<__CFString>(applicationID, kCall).Text();
    try {
        Ref<const Object> copy;
        if (value != nullptr) {
            copy = frameworks::CopyPropertyList(AnyObject(value, kCall));
            if (!copy) Misuse(kCall, "the value is no property list");
        }
        const std::string path = Preferences::PathFor(application);
        if (!path.empty()) {
            Preferences::Get().Set(path, name, std::move(copy));
        }
    } catch (const std::bad_alloc&) {
        Misuse(kCall, "memory has run out");
    }
}

Boolean CFPreferencesAppSynchronize(CFStringRef applicationID) {
    const std::string_view application =
        Checked<__CFString>(applicationID, "CFPreferencesAppSynchronize").Text();
    try {
        const std::string path = Preferences::PathFor(application);
        return !path.empty() && Preferences::Get().Synchronize(path);
    } catch (const std::bad_alloc&) {
        return false;
    }
}
