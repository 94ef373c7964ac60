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

// Where the next of several marks stands in a text. Each mark is looked for by itself, with the C
// library's fastest search, and only again behind where it was found: however many marks there are,
// the text is read once for each kind.
template <std::size_t kKinds>
class NextMark {
  public:
    NextMark(const std::wstring& itsText, const wchar_t (&itsMarks)[kKinds]) : text(itsText) {
        for (std::size_t kind = 0; kind < kKinds; ++kind) {
            places[kind] = {itsMarks[kind], text.find(itsMarks[kind])};
        }
    }

    // The first one from FROM on; the text's size when there is none. FROM never goes back.
    std::size_t From(std::size_t from) {
        std::size_t first = text.size();
        for (Place& place : places) {
            if (place.next < from) {
                place.next = text.find(place.mark, from);
            }
            first = std::min(first, place.next);
        }
        return first;
    }

  private:
    struct Place {
        wchar_t mark;
        // npos when there is none any more.
        std::size_t next;
    };

    const std::wstring& text;
    Place places[kKinds];
};

constexpr wchar_t kTerminator = L'|';
// What ends a message, and what is dropped wherever it stands.
constexpr wchar_t kMessageMarks[] = {kTerminator, L'\n', L'\r', L'\0'};
// What ends a word, and between what kinds of quotes it does not.
constexpr wchar_t kWordMarks[] = {L' ', L'"', L'\''};

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
    NextMark marks(received, kMessageMarks);
    for (std::size_t from = 0; from < received.size();) {
        const std::size_t end = marks.From(from);
        pending->append(received, from, end - from);
        if (end < received.size() && received[end] == kTerminator) {
            messages.push_back(std::move(*pending));
            pending->clear();
        }
        from = end + 1;
    }
    return messages;
}

std::vector<std::wstring> Helpers::splitCommand(const std::wstring& message) {
    std::vector<std::wstring> words;
    std::wstring word;
    NextMark marks(message, kWordMarks);
    for (std::size_t from = 0; from < message.size();) {
        std::size_t end = marks.From(from);
        word.append(message, from, end - from);
        if (end < message.size() && message[end] == L' ') {
            words.push_back(std::move(word));
            word.clear();
        } else if (end < message.size()) {
            // Up to the quote of its kind, or to the end when there is none.
            const std::size_t open = end;
            end = std::min(message.find(message[open], open + 1), message.size());
            word.append(message, open + 1, end - open - 1);
        }
        from = end + 1;
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
