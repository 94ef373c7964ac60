#include "system/CFPreferencesManager.h"

#include <optional>

#include "apps/ProcessManager.h"
#include "core/Helpers.h"
#include "core/Owners.h"
#include "system/Utf8Of.h"

namespace {

constexpr char launchServicesPlist[] = "~/Library/Preferences/com.apple.LaunchServices.plist";
constexpr wchar_t kRegister[] =
    L"/System/Library/Frameworks/CoreServices.framework/Versions/A/Frameworks/"
    L"LaunchServices.framework/Versions/A/Support/lsregister";
constexpr wchar_t kRegisterArguments[] = L"-kill -domain local -domain system -domain user";

// Constant strings of the compiler cannot be named constants, so they are functions.
CFStringRef HandlersKey() {
    return CFSTR("LSHandlers");
}
CFStringRef TagKey() {
    return CFSTR("LSHandlerContentTag");
}
CFStringRef TagClassKey() {
    return CFSTR("LSHandlerContentTagClass");
}
CFStringRef ExtensionClass() {
    return CFSTR("public.filename-extension");
}
CFStringRef RoleKey() {
    return CFSTR("LSHandlerRoleAll");
}
CFStringRef LoginItemsKey() {
    return CFSTR("AutoLaunchedApplicationDictionary");
}
CFStringRef LoginWindow() {
    return CFSTR("loginwindow");
}
CFStringRef PathKey() {
    return CFSTR("Path");
}
CFStringRef HideKey() {
    return CFSTR("Hide");
}

using StringOwner = CFOwner<CFStringRef>;
using ArrayOwner = CFOwner<CFMutableArrayRef>;
using DictionaryOwner = CFOwner<CFMutableDictionaryRef>;

StringOwner MakeString(const std::string& text) {
    return StringOwner::Adopt(
        CFStringCreateWithCString(kCFAllocatorDefault, text.c_str(), kCFStringEncodingUTF8));
}

DictionaryOwner MakeDictionary() {
    return DictionaryOwner::Adopt(CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
}

ArrayOwner MakeArray() {
    return ArrayOwner::Adopt(CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks));
}

// VALUE as what it is expected to be, or null.
CFDictionaryRef AsDictionary(CFTypeRef value) {
    return value != nullptr && CFGetTypeID(value) == CFDictionaryGetTypeID()
               ? static_cast<CFDictionaryRef>(value)
               : nullptr;
}

CFArrayRef AsArray(CFTypeRef value) {
    return value != nullptr && CFGetTypeID(value) == CFArrayGetTypeID()
               ? static_cast<CFArrayRef>(value)
               : nullptr;
}

CFMutableArrayRef Changeable(CFArrayRef array) {
    return const_cast<CFMutableArrayRef>(array);
}

CFMutableDictionaryRef Changeable(CFDictionaryRef dictionary) {
    return const_cast<CFMutableDictionaryRef>(dictionary);
}

bool Holds(CFDictionaryRef dictionary, CFStringRef key, CFStringRef expected) {
    const CFTypeRef value = CFDictionaryGetValue(dictionary, key);
    return value != nullptr && CFEqual(value, expected);
}

// The Launch Services preferences as they are in the file.
struct Preferences {
    CFOwner<CFURLRef> url = CFOwner<CFURLRef>::Adopt(CFPreferencesManager::GetLSPlistURL());
    // What a new file is written in.
    CFPropertyListFormat format = kCFPropertyListBinaryFormat_v1_0;
    CFOwner<CFPropertyListRef> root;

    Preferences() {
        if (url) {
            root = CFOwner<CFPropertyListRef>::Adopt(
                CFPreferencesManager::ReadPlistFromURL(url.Get(), &format));
        }
    }
    bool Write() const {
        return url && root &&
               CFPreferencesManager::WritePlistToURL(root.Get(), url.Get(), format) > 0;
    }
};

// The handlers of ROOT, which gets an empty array of them if there is none; null when what stands
// there is no array.
CFMutableArrayRef HandlersOf(CFDictionaryRef root) {
    if (CFDictionaryGetValue(root, HandlersKey()) == nullptr) {
        const ArrayOwner handlers = MakeArray();
        CFDictionarySetValue(Changeable(root), HandlersKey(), handlers.Get());
    }
    return Changeable(AsArray(CFDictionaryGetValue(root, HandlersKey())));
}

void SetHandler(CFMutableArrayRef handlers, CFStringRef ext, CFStringRef bundleId) {
    const CFDictionaryRef known =
        CFPreferencesManager::GetHandlerForFileExt(handlers, ext, nullptr);
    if (known != nullptr) {
        CFDictionarySetValue(Changeable(known), RoleKey(), bundleId);
        return;
    }
    const DictionaryOwner handler = MakeDictionary();
    CFDictionarySetValue(handler.Get(), TagKey(), ext);
    CFDictionarySetValue(handler.Get(), TagClassKey(), ExtensionClass());
    CFDictionarySetValue(handler.Get(), RoleKey(), bundleId);
    CFArrayAppendValue(handlers, handler.Get());
}

// The login items, or nothing when there are none or they are no array.
CFOwner<CFPropertyListRef> CopyLoginItems() {
    auto items = CFOwner<CFPropertyListRef>::Adopt(
        CFPreferencesCopyAppValue(LoginItemsKey(), LoginWindow()));
    return AsArray(items.Get()) != nullptr ? std::move(items) : CFOwner<CFPropertyListRef>();
}

void SetLoginItems(CFArrayRef items) {
    CFPreferencesSetAppValue(LoginItemsKey(), items, LoginWindow());
    CFPreferencesAppSynchronize(LoginWindow());
}

// The place of the first item whose path contains NAME, or -1.
CFIndex FindLoginItem(CFArrayRef items, CFStringRef name) {
    const std::optional<std::string> wanted = Utf8Of(name);
    for (CFIndex index = 0; wanted && index < CFArrayGetCount(items); ++index) {
        const CFDictionaryRef item = AsDictionary(CFArrayGetValueAtIndex(items, index));
        const std::optional<std::string> path =
            Utf8Of(item != nullptr ? CFDictionaryGetValue(item, PathKey()) : nullptr);
        if (path && path->find(*wanted) != std::string::npos) {
            return index;
        }
    }
    return -1;
}

}  // namespace

CFURLRef CFPreferencesManager::GetLSPlistURL() {
    const StringOwner text =
        MakeString("file://" + Helpers::replaceTildeWithHomeDir(launchServicesPlist));
    return text ? CFURLCreateWithString(kCFAllocatorDefault, text.Get(), nullptr) : nullptr;
}

CFPropertyListRef CFPreferencesManager::ReadPlistFromURL(CFURLRef url,
                                                         CFPropertyListFormat* format) {
    const auto stream =
        CFOwner<CFReadStreamRef>::Adopt(CFReadStreamCreateWithFile(kCFAllocatorDefault, url));
    if (!stream || !CFReadStreamOpen(stream.Get())) {
        return nullptr;
    }
    constexpr CFIndex kToTheEnd = 0;
    const CFPropertyListRef plist =
        CFPropertyListCreateFromStream(kCFAllocatorDefault, stream.Get(), kToTheEnd,
                                       kCFPropertyListMutableContainersAndLeaves, format, nullptr);
    CFReadStreamClose(stream.Get());
    return plist;
}

CFIndex CFPreferencesManager::WritePlistToURL(CFPropertyListRef plist, CFURLRef url,
                                              CFPropertyListFormat format) {
    const auto stream =
        CFOwner<CFWriteStreamRef>::Adopt(CFWriteStreamCreateWithFile(kCFAllocatorDefault, url));
    if (!stream || !CFWriteStreamOpen(stream.Get())) {
        return 0;
    }
    const CFIndex written = CFPropertyListWriteToStream(plist, stream.Get(), format, nullptr);
    CFWriteStreamClose(stream.Get());
    return written;
}

CFDictionaryRef CFPreferencesManager::GetHandlerForFileExt(CFArrayRef handlers, CFStringRef ext,
                                                           CFIndex* index) {
    for (CFIndex place = 0; place < CFArrayGetCount(handlers); ++place) {
        const CFDictionaryRef handler = AsDictionary(CFArrayGetValueAtIndex(handlers, place));
        if (handler != nullptr && Holds(handler, TagClassKey(), ExtensionClass()) &&
            Holds(handler, TagKey(), ext)) {
            if (index != nullptr) {
                *index = place;
            }
            return handler;
        }
    }
    return nullptr;
}

bool CFPreferencesManager::AssociateFileExtensionToBundle(const std::string& ext,
                                                          const std::string& bundleId) {
    Preferences preferences;
    if (!preferences.root) {
        preferences.root =
            CFOwner<CFPropertyListRef>::Retain(CFPropertyListRef(MakeDictionary().Get()));
    }
    const StringOwner extension = MakeString(ext);
    const StringOwner bundle = MakeString(bundleId);
    const CFDictionaryRef root = AsDictionary(preferences.root.Get());
    if (root != nullptr && extension && bundle) {
        const CFMutableArrayRef handlers = HandlersOf(root);
        if (handlers != nullptr) {
            SetHandler(handlers, extension.Get(), bundle.Get());
        }
    }
    return preferences.Write();
}

bool CFPreferencesManager::UnassociateFileExtensionToBundle(const std::string& ext) {
    const Preferences preferences;
    const StringOwner extension = MakeString(ext);
    const CFDictionaryRef root = AsDictionary(preferences.root.Get());
    const CFArrayRef handlers =
        root != nullptr ? AsArray(CFDictionaryGetValue(root, HandlersKey())) : nullptr;
    CFIndex index = 0;
    if (handlers != nullptr && extension &&
        GetHandlerForFileExt(handlers, extension.Get(), &index) != nullptr) {
        CFArrayRemoveValueAtIndex(Changeable(handlers), index);
    }
    return preferences.Write();
}

void CFPreferencesManager::RestartLaunchServicesDB() {
    ProcessManager::StartProcessWithArguments(kRegister, kRegisterArguments);
}

bool CFPreferencesManager::CheckIfStartupItem(CFStringRef name) {
    const auto items = CopyLoginItems();
    return items && FindLoginItem(AsArray(items.Get()), name) != -1;
}

void CFPreferencesManager::AddAsStartupItem(CFStringRef path) {
    Helpers::logprint("Entering AddAsStartupItem");
    const std::optional<std::string> text = Utf8Of(path);
    const StringOwner name =
        text ? MakeString(Helpers::splitLastPathComponent(*text)) : StringOwner();
    if (!name || CheckIfStartupItem(name.Get())) {
        return;
    }
    const auto known = CFOwner<CFPropertyListRef>::Adopt(
        CFPreferencesCopyAppValue(LoginItemsKey(), LoginWindow()));
    if (known && AsArray(known.Get()) == nullptr) {
        // Whatever it is, it is not ours to replace.
        return;
    }
    const ArrayOwner items = known ? ArrayOwner::Adopt(CFArrayCreateMutableCopy(
                                         kCFAllocatorDefault, 0, AsArray(known.Get())))
                                   : MakeArray();
    const DictionaryOwner item = MakeDictionary();
    CFDictionarySetValue(item.Get(), HideKey(), kCFBooleanTrue);
    CFDictionarySetValue(item.Get(), PathKey(), path);
    CFArrayAppendValue(items.Get(), item.Get());
    SetLoginItems(items.Get());
}

void CFPreferencesManager::AddAsStartupItem(const std::wstring& path) {
    AddAsStartupItem(MakeString(Helpers::wstringToString(path)).Get());
}

void CFPreferencesManager::RemoveAsStartupItem(CFStringRef path) {
    const auto known = CopyLoginItems();
    const CFIndex index = known ? FindLoginItem(AsArray(known.Get()), path) : -1;
    if (index == -1) {
        return;
    }
    const auto items =
        ArrayOwner::Adopt(CFArrayCreateMutableCopy(kCFAllocatorDefault, 0, AsArray(known.Get())));
    CFArrayRemoveValueAtIndex(items.Get(), index);
    SetLoginItems(items.Get());
}

void CFPreferencesManager::RemoveAsStartupItem(const std::wstring& path) {
    RemoveAsStartupItem(MakeString(Helpers::wstringToString(path)).Get());
}
