#include "Desktop/LoginItems.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Desktop/DesktopEntry.h"
#include "Desktop/DesktopFolders.h"
#include "Desktop/Values.h"
#include "LaunchServices/ApplicationBundle.h"
#include "Support/ReadFile.h"
#include "Support/ReplacedFile.h"

namespace frameworks {
namespace {

constexpr std::string_view kBeginning = "login-item-";
constexpr std::string_view kEnding = ".desktop";
constexpr std::string_view kMark = "X-Login-Item=";
constexpr std::size_t kLargestEntry = std::size_t{64} << 10;
constexpr std::size_t kLongestTitle = 40;
constexpr mode_t kMode = S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH;

struct CloseFolder {
    void operator()(DIR* folder) const { closedir(folder); }
};

struct Entry {
    // The line that says what is started.
    std::string start;
    std::string content;
};
// By the name of the file.
using Entries = std::map<std::string, Entry>;

std::string_view LastComponent(std::string_view path) {
    return path.substr(path.rfind('/') + 1);
}

// What people call the item.
std::string_view Title(std::string_view path) {
    std::string_view title = LastComponent(path);
    if (IsNamedLikeApplication(path)) {
        title = title.substr(0, title.rfind('.'));
    }
    return title;
}

// The same name for the same path at all times, and one that a person recognises.
std::string NameOf(std::string_view path) {
    std::string name(kBeginning);
    for (const char byte : Title(path).substr(0, kLongestTitle)) {
        const bool isPlain = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
                             (byte >= '0' && byte <= '9');
        name += isPlain ? byte : '-';
    }
    std::uint64_t sum = 14695981039346656037u;
    for (const char byte : path) {
        sum = (sum ^ static_cast<unsigned char>(byte)) * 1099511628211u;
    }
    char digits[17];
    std::snprintf(digits, sizeof digits, "%016llx", static_cast<unsigned long long>(sum));
    return name + "-" + digits + std::string(kEnding);
}

bool IsProgram(const std::string& path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           (status.st_mode & (S_IXUSR | S_IXGRP | S_IXOTH)) != 0;
}

// Nothing for an application that says that its executable lies elsewhere.
std::optional<Entry> EntryFor(const std::string& path) {
    const bool isApplication = IsNamedLikeApplication(path);
    const std::string program = isApplication ? ExecutableOf(path) : path;
    if (program.empty()) return std::nullopt;
    Entry entry;
    const bool isStarted = isApplication || IsProgram(path);
    entry.start =
        isStarted ? "Exec=" + QuotedArgument(program) : "Exec=xdg-open " + QuotedArgument(path);
    entry.content = "[Desktop Entry]\nType=Application\nName=" + EscapedValue(Title(path)) + "\n" +
                    entry.start + "\n" +
                    (isStarted ? "TryExec=" + EscapedValue(program) + "\n" : std::string()) +
                    std::string(kMark) + EscapedValue(path) + "\n";
    return entry;
}

Entries EntriesFor(const __CFArray* items) {
    Entries entries;
    if (items == nullptr) return entries;
    for (const void* const item : items->Values()) {
        std::string_view path = TextIn(*static_cast<const Object*>(item), "Path");
        while (path.size() > 1 && path.back() == '/') {
            path.remove_suffix(1);
        }
        if (path.size() < 2 || path.front() != '/') continue;
        if (std::optional<Entry> entry = EntryFor(std::string(path))) {
            entries.insert_or_assign(NameOf(path), std::move(*entry));
        }
    }
    return entries;
}

bool IsNamedLikeOurs(std::string_view name) {
    return name.size() > kBeginning.size() + kEnding.size() &&
           name.substr(0, kBeginning.size()) == kBeginning &&
           name.substr(name.size() - kEnding.size()) == kEnding;
}

bool HasLineThatBegins(std::string_view text, std::string_view beginning) {
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        if (line.substr(0, beginning.size()) == beginning) return true;
        text.remove_prefix(line.size() < text.size() ? line.size() + 1 : line.size());
    }
    return false;
}

bool HasLine(std::string_view text, const std::string& line) {
    return ("\n" + std::string(text) + "\n").find("\n" + line + "\n") != std::string::npos;
}

// What is in the file at PATH if that is one of ours.
std::optional<std::string> OurContent(const std::string& path) {
    struct stat status;
    if (lstat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
    std::optional<std::string> content = ReadRegularFile(path.c_str(), kLargestEntry);
    if (!content || !HasLineThatBegins(*content, kMark)) return std::nullopt;
    return content;
}

void Write(const std::string& folder, const Entries& entries) {
    if (entries.empty() || !MakeFolder(folder)) return;
    for (const auto& [name, entry] : entries) {
        const std::string path = folder + "/" + name;
        struct stat status;
        if (lstat(path.c_str(), &status) == 0) {
            const std::optional<std::string> content = OurContent(path);
            if (!content || HasLine(*content, entry.start)) continue;
        }
        ReplaceFile(path, entry.content, ReplacedFile::Link::kReplaced,
                    ReplacedFile::Durability::kNone, kMode);
    }
}

void RemoveAllBut(const std::string& folder, const Entries& entries) {
    const std::unique_ptr<DIR, CloseFolder> opened(opendir(folder.c_str()));
    if (opened == nullptr) return;
    std::vector<std::string> old;
    while (const dirent* const found = readdir(opened.get())) {
        if (IsNamedLikeOurs(found->d_name) && entries.find(found->d_name) == entries.end()) {
            old.emplace_back(found->d_name);
        }
    }
    for (const std::string& name : old) {
        const std::string path = folder + "/" + name;
        if (OurContent(path)) {
            unlink(path.c_str());
        }
    }
}

}  // namespace

void MirrorLoginItems(const __CFArray* items) {
    const std::string configuration = ConfigurationFolder();
    if (configuration.empty()) return;
    const std::string folder = configuration + "/autostart";
    const Entries entries = EntriesFor(items);
    RemoveAllBut(folder, entries);
    Write(folder, entries);
}

}  // namespace frameworks
