#include "Desktop/DefaultApplications.h"

#include <dirent.h>
#include <sys/stat.h>

#include <cerrno>
#include <charconv>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Desktop/AssociationsFile.h"
#include "Desktop/DesktopFolders.h"
#include "Desktop/FileTypes.h"
#include "Desktop/Values.h"
#include "LaunchServices/ApplicationBundle.h"
#include "Support/ReadFile.h"
#include "Support/ReplacedFile.h"

namespace frameworks {
namespace {

constexpr std::string_view kEnding = ".desktop";
constexpr std::string_view kExtensionClass = "public.filename-extension";
constexpr char kNoteHead[] =
    "# What Launch Services' preferences have put into mimeapps.list, to be taken out again.\n";
constexpr std::size_t kLargestFile = std::size_t{4} << 20;
constexpr mode_t kMode = S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH;

struct CloseFolder {
    void operator()(DIR* folder) const { closedir(folder); }
};

// A type's application, by the type.
using Defaults = std::map<std::string, std::string, std::less<>>;

// What has been put in front for a type, and where it was before.
struct Noted {
    std::string application;
    AssociationsFile::Places before;
};
using Notes = std::map<std::string, Noted, std::less<>>;

// The desktop entries there are, by their name in small letters.
class DesktopEntries {
  public:
    explicit DesktopEntries(const std::vector<std::string>& folders) {
        for (const std::string& folder : folders) {
            List(folder + "/applications");
        }
    }

    // Empty when there is none.
    std::string_view For(std::string_view bundleIdentifier) const {
        const auto found = names.find(InLowerCase(bundleIdentifier) + std::string(kEnding));
        return found == names.end() ? std::string_view() : std::string_view(found->second);
    }

  private:
    void List(const std::string& path) {
        const std::unique_ptr<DIR, CloseFolder> folder(opendir(path.c_str()));
        if (folder == nullptr) return;
        while (const dirent* const found = readdir(folder.get())) {
            const std::string_view name = found->d_name;
            const bool isEntry = name.size() > kEnding.size() &&
                                 name.substr(name.size() - kEnding.size()) == kEnding;
            // What means something else in the list cannot be named there.
            if (isEntry && name.find_first_of(";=\n\r") == std::string_view::npos) {
                names.try_emplace(InLowerCase(name), name);
            }
        }
    }

    std::map<std::string, std::string, std::less<>> names;
};

Defaults DefaultsOf(const __CFArray* handlers) {
    Defaults defaults;
    if (handlers == nullptr || handlers->Values().empty()) return defaults;
    const std::vector<std::string> folders = DataFolders();
    const DesktopEntries entries(folders);
    std::optional<FileTypes> types;
    std::set<std::string_view> seen;
    for (const void* const value : handlers->Values()) {
        const Object& handler = *static_cast<const Object*>(value);
        const std::string_view extension = TextIn(handler, "LSHandlerContentTag");
        if (extension.empty() || TextIn(handler, "LSHandlerContentTagClass") != kExtensionClass ||
            !seen.insert(extension).second) {
            continue;
        }
        const std::string_view entry = entries.For(TextIn(handler, "LSHandlerRoleAll"));
        if (entry.empty()) continue;
        if (!types) {
            types.emplace(folders);
        }
        const std::string_view type = types->TypeOf(extension);
        if (!type.empty()) {
            defaults.try_emplace(std::string(type), entry);
        }
    }
    return defaults;
}

// An empty text where there is no file.
std::optional<std::string> ReadOrEmpty(const std::string& path) {
    std::optional<std::string> text = ReadRegularFile(path.c_str(), kLargestFile);
    if (!text && errno == ENOENT) return std::string();
    return text;
}

// Where it was stands behind the application, each place behind a semicolon; a note that ends
// earlier, or says something else there, means that it was nowhere.
Noted ReadNoted(std::string_view text) {
    Noted noted;
    noted.application = text.substr(0, text.find(';'));
    text.remove_prefix(noted.application.size());
    while (!text.empty()) {
        text.remove_prefix(1);
        const std::string_view digits = text.substr(0, text.find(';'));
        std::size_t place = 0;
        std::from_chars(digits.data(), digits.data() + digits.size(), place);
        noted.before.push_back(place);
        text.remove_prefix(digits.size());
    }
    return noted;
}

Notes ReadNotes(std::string_view text) {
    Notes notes;
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(line.size() < text.size() ? line.size() + 1 : line.size());
        const std::size_t equals = line.find('=');
        if (equals != std::string_view::npos && line.front() != '#') {
            notes.insert_or_assign(std::string(line.substr(0, equals)),
                                   ReadNoted(line.substr(equals + 1)));
        }
    }
    return notes;
}

std::string TextOf(const Notes& notes) {
    std::string text = notes.empty() ? "" : kNoteHead;
    for (const auto& [type, noted] : notes) {
        text.append(type).append("=").append(noted.application);
        for (const std::size_t place : noted.before) {
            text.append(";").append(std::to_string(place));
        }
        text.append("\n");
    }
    return text;
}

// What is noted and no longer wanted goes back to where it was, and what is wanted comes to the
// front. What is noted afterwards.
Notes Change(AssociationsFile& file, const Defaults& wanted, const Notes& notes) {
    Notes now;
    for (const auto& [type, noted] : notes) {
        const auto found = wanted.find(type);
        if (found == wanted.end() || found->second != noted.application) {
            file.PutBack(type, noted.application, noted.before);
        } else {
            now.emplace(type, noted);
        }
    }
    for (const auto& [type, application] : wanted) {
        std::optional<AssociationsFile::Places> before = file.PutInFront(type, application);
        if (before) {
            // Where it was in the first place counts.
            now.try_emplace(type, Noted{application, std::move(*before)});
        }
    }
    return now;
}

bool Replace(const std::string& path, const std::string& before, const std::string& now) {
    return before == now || ReplaceFile(path, now, ReplacedFile::Link::kFollowed,
                                        ReplacedFile::Durability::kSurvivesCrashes, kMode);
}

}  // namespace

void MirrorHandlers(const __CFArray* handlers) {
    const std::string folder = ConfigurationFolder();
    if (folder.empty()) return;
    const std::string path = folder + "/mimeapps.list";
    const std::string notePath = folder + "/launch-services-defaults.list";
    const std::optional<std::string> text = ReadOrEmpty(path);
    const std::optional<std::string> note = ReadOrEmpty(notePath);
    if (!text || !note) return;
    AssociationsFile file(*text);
    const Defaults wanted = DefaultsOf(handlers);
    const Notes now = Change(file, wanted, ReadNotes(*note));
    if (!wanted.empty() && !MakeFolder(folder)) return;
    // In this order: what is noted without having been written would be taken from the user's own.
    if (Replace(path, *text, file.Text())) {
        Replace(notePath, *note, TextOf(now));
    }
}

}  // namespace frameworks
