#include "core/Helpers.h"

#include <Carbon/Carbon.h>
#include <uuid/uuid.h>

#include <algorithm>

#include "core/Owners.h"

namespace {

// Never destroyed: the other thread may still ask while the process ends.
struct Process {
    std::wstring processImage;
    std::wstring processPath;
};

Process& TheProcess() {
    static Process& process = *new Process();
    return process;
}

// What ends a message, and what is dropped wherever it stands.
constexpr wchar_t kTerminator = L'|';
constexpr wchar_t kMarks[] = {kTerminator, L'\n', L'\r', L'\0'};
constexpr std::size_t kMarkCount = sizeof kMarks / sizeof kMarks[0];

// The longest path that the File Manager is asked for, its NUL included.
constexpr UInt32 kPathSize = 1024;

// The path of a folder that the Folder Manager knows, without a "/" at its end; empty when it
// cannot be found.
std::string PathOfFolder(FSVolumeRefNum domain, OSType type, Boolean create) {
    FSRef folder;
    UInt8 path[kPathSize];
    if (FSFindFolder(domain, type, create, &folder) != noErr ||
        FSRefMakePath(&folder, path, sizeof path) != noErr) {
        return std::string();
    }
    return reinterpret_cast<const char*>(path);
}

}  // namespace

std::vector<std::wstring> Helpers::splitIntoCommands(std::wstring* pending,
                                                     const std::wstring& received) {
    // What is pending was cleaned when it came and holds no bar: only what is new is looked at, so
    // that a message that arrives in many pieces costs no more than its length.
    std::vector<std::wstring> messages;
    for (std::size_t from = 0; from < received.size();) {
        const std::size_t found = received.find_first_of(kMarks, from, kMarkCount);
        const std::size_t end = std::min(found, received.size());
        pending->append(received, from, end - from);
        if (end < received.size() && received[end] == kTerminator) {
            messages.push_back(std::move(*pending));
            pending->clear();
        }
        from = end + 1;
    }
    return messages;
}

std::vector<std::wstring> Helpers::splitCommand(std::wstring message) {
    constexpr wchar_t kNoQuote = L'\0';
    std::vector<std::wstring> words;
    std::wstring word;
    wchar_t openQuote = kNoQuote;
    for (const wchar_t unit : message) {
        const bool isQuote = unit == L'"' || unit == L'\'';
        if (openQuote == kNoQuote && unit == L' ') {
            words.push_back(std::move(word));
            word.clear();
        } else if (openQuote == kNoQuote && isQuote) {
            openQuote = unit;
        } else if (unit == openQuote && isQuote) {
            openQuote = kNoQuote;
        } else {
            word.push_back(unit);
        }
    }
    if (!word.empty()) {
        words.push_back(std::move(word));
    }
    return words;
}

std::string Helpers::replaceTildeWithHomeDir(const std::string& text) {
    const std::string home = PathOfFolder(kUserDomain, kCurrentUserFolderType, kDontCreateFolder);
    return replace(text, "~", home.empty() ? "[FAIL]" : home);
}

void Helpers::splitPath(const std::string& path, std::string& folder, std::string& name) {
    name.clear();
    const std::size_t slash = path.rfind('/');
    if (slash != std::string::npos) {
        name = path.substr(slash + 1);
        folder = path.substr(0, slash + 1);
    }
}

std::string Helpers::splitLastPathComponent(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string Helpers::removeExtension(const std::string& name) {
    const std::size_t dot = name.rfind('.');
    return dot == std::string::npos ? std::string() : name.substr(0, dot);
}

std::wstring Helpers::getExtension(const std::wstring& path) {
    const std::size_t dot = path.rfind(L'.');
    return dot == std::wstring::npos ? std::wstring() : path.substr(dot);
}

void Helpers::setProcessPath(const std::string& argv0) {
    Process& process = TheProcess();
    process.processImage = stringToWString(argv0);
    const std::size_t slash = process.processImage.rfind(L'/');
    if (slash != std::wstring::npos) {
        process.processPath = process.processImage.substr(0, slash);
    }
}

std::wstring Helpers::getCurrentPath() {
    return TheProcess().processPath;
}

std::wstring Helpers::getCurrentProcessImage() {
    return TheProcess().processImage;
}

CFBundleRef Helpers::getBundleRef(const std::string& path) {
    FSRef folder;
    if (FSPathMakeRef(reinterpret_cast<const UInt8*>(path.c_str()), &folder, nullptr) != noErr) {
        return nullptr;
    }
    const auto url = CFOwner<CFURLRef>::Adopt(CFURLCreateFromFSRef(kCFAllocatorDefault, &folder));
    return url ? CFBundleCreate(kCFAllocatorDefault, url.Get()) : nullptr;
}

std::string Helpers::getTempFolder() {
    for (const OSType type : {kChewableItemsFolderType, kTemporaryFolderType}) {
        const std::string path = PathOfFolder(kOnAppropriateDisk, type, kCreateFolder);
        if (!path.empty()) {
            return path + "/";
        }
    }
    return "/tmp/";
}

std::string Helpers::getSupportPath() {
    return replaceTildeWithHomeDir("~/Library/Application Support/Velto/");
}

std::string Helpers::generateUUID() {
    uuid_t id;
    char text[37];
    uuid_generate(id);
    uuid_unparse(id, text);
    return std::string("{") + text + "}";
}
