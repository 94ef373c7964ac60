#include "core/Helpers.h"

#include <Carbon/Carbon.h>
#include <uuid/uuid.h>

#include <string_view>
#include <utility>

#include "core/Owners.h"
#include "core/Tokenizer.h"

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

constexpr char kTerminator = '|';
// What ends a message, and what is dropped wherever it stands.
constexpr char kMessageMarks[] = {kTerminator, '\n', '\r', '\0'};
// The word that is being read.
class WideWord {
  public:
    void Append(std::wstring_view piece) { text.append(piece); }
    bool IsEmpty() const { return text.empty(); }
    std::wstring Take() { return std::exchange(text, std::wstring()); }

  private:
    std::wstring text;
};

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

std::vector<std::string> Helpers::splitIntoCommands(std::string* pending, std::string received) {
    // What is pending was cleaned when it came and holds no bar: only what is new is looked at, so
    // that a message that arrives in many pieces costs no more than its length.
    std::vector<std::string> messages;
    NextMark<std::string, sizeof kMessageMarks> marks(received, kMessageMarks);
    for (std::size_t from = 0; from < received.size();) {
        const std::size_t end = marks.From(from);
        const bool terminated = end < received.size() && received[end] == kTerminator;
        const bool isAll = from == 0 && end + 1 >= received.size();
        if (isAll && pending->empty()) {
            received.resize(end);
            pending->swap(received);
        } else {
            pending->append(received, from, end - from);
        }
        if (terminated) {
            messages.push_back(std::exchange(*pending, std::string()));
        }
        if (isAll) {
            break;
        }
        from = end + 1;
    }
    return messages;
}

std::vector<std::wstring> Helpers::splitCommand(const std::wstring& message) {
    std::vector<std::wstring> words;
    WideWord word;
    ForEachWord(std::wstring_view(message), word, [&] { words.push_back(word.Take()); });
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
