#include "CarbonCore/FileReference.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <deque>
#include <mutex>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

namespace frameworks {
namespace {

// The root's entry, which is its own folder.
constexpr std::uint32_t kRoot = 0;
constexpr std::uint32_t kMark = 0x46535265;
// A table this small is not worth looking through.
constexpr std::size_t kSmallTable = 1024;

struct Content {
    std::uint32_t mark;
    std::uint32_t checkSum;
    // The entry of the file's folder, or of the file itself when there is no name.
    std::uint32_t entry;
    std::uint32_t generation;
    std::uint8_t nameLength;
    // Unused bytes are 0, so that references to the same file are the same bytes.
    char name[63];
};
static_assert(sizeof(Content) == sizeof(FSRef), "an FSRef has room for exactly this");

std::uint32_t CheckSum(Content content) {
    content.checkSum = 0;
    std::uint32_t words[sizeof content / sizeof(std::uint32_t)];
    std::memcpy(words, &content, sizeof content);
    std::uint32_t sum = 2166136261u;
    for (const std::uint32_t word : words) {
        sum = (sum ^ word) * 16777619u;
        // The multiplication carries nothing downwards.
        sum ^= sum >> 15;
    }
    return sum;
}

std::optional<Content> ContentOf(const FSRef& ref) {
    Content content;
    std::memcpy(&content, &ref, sizeof content);
    if (content.mark != kMark || content.checkSum != CheckSum(content)) return std::nullopt;
    return content;
}

// Takes the first component off PATH, which begins with "/".
std::string_view TakeComponent(std::string_view& path) {
    path.remove_prefix(1);
    const std::string_view component = path.substr(0, path.find('/'));
    path.remove_prefix(component.size());
    return component;
}

struct Key {
    std::uint32_t folder;
    std::string_view name;

    bool operator==(const Key& other) const { return folder == other.folder && name == other.name; }
};

struct HashOfKey {
    std::size_t operator()(const Key& key) const {
        return std::hash<std::string_view>()(key.name) ^ (std::size_t{key.folder} * 0x9E3779B1u);
    }
};

class Table {
  public:
    static Table& Get() {
        static Table& table = *new Table();
        return table;
    }

    // The entry of PATH and its generation.
    std::pair<std::uint32_t, std::uint32_t> Intern(std::string_view path) {
        const std::lock_guard<std::mutex> lock(mutex);
        if (index.size() >= worthSweeping) {
            Sweep();
        }
        std::uint32_t entry = kRoot;
        while (!path.empty()) {
            entry = Intern(entry, TakeComponent(path));
        }
        return {entry, entries[entry].generation};
    }

    std::optional<std::string> Path(std::uint32_t entry, std::uint32_t generation) {
        const std::lock_guard<std::mutex> lock(mutex);
        if (entry >= entries.size() || entries[entry].generation != generation) {
            return std::nullopt;
        }
        return PathLocked(entry);
    }

    std::size_t Size() {
        const std::lock_guard<std::mutex> lock(mutex);
        return index.size();
    }

  private:
    struct Entry {
        std::string name;
        std::uint32_t folder = kRoot;
        std::uint32_t generation = 1;
        bool used = false;
    };

    Table() : entries(1) {}

    std::uint32_t Intern(std::uint32_t folder, std::string_view name) {
        const auto found = index.find(Key{folder, name});
        if (found != index.end()) return found->second;
        if (freeEntries.empty()) {
            freeEntries.reserve(entries.size() + 1);
            entries.emplace_back();
            freeEntries.push_back(static_cast<std::uint32_t>(entries.size() - 1));
        }
        const std::uint32_t number = freeEntries.back();
        Entry& entry = entries[number];
        entry.name = name;
        entry.folder = folder;
        // The index borrows the name; entries do not move.
        index.emplace(Key{folder, entry.name}, number);
        entry.used = true;
        freeEntries.pop_back();
        return number;
    }

    // Empty for the root.
    std::string PathLocked(std::uint32_t entry) const {
        std::vector<const std::string*> names;
        std::size_t length = 0;
        for (; entry != kRoot; entry = entries[entry].folder) {
            names.push_back(&entries[entry].name);
            length += 1 + names.back()->size();
        }
        std::string path;
        path.reserve(length);
        for (auto name = names.rbegin(); name != names.rend(); ++name) {
            path.append(1, '/').append(**name);
        }
        return path;
    }

    bool HasGone(std::uint32_t entry) const {
        struct stat status;
        return lstat(PathLocked(entry).c_str(), &status) != 0 &&
               (errno == ENOENT || errno == ENOTDIR);
    }

    void Sweep() {
        // What lies in a folder that has gone has gone as well, and is found to be so while the
        // folder's name is still known: entries are given back behind the loop.
        std::vector<std::uint32_t> gone;
        for (std::uint32_t entry = kRoot + 1; entry < entries.size(); ++entry) {
            if (entries[entry].used && HasGone(entry)) {
                gone.push_back(entry);
            }
        }
        for (const std::uint32_t number : gone) {
            Entry& entry = entries[number];
            index.erase(Key{entry.folder, entry.name});
            entry.used = false;
            ++entry.generation;
            std::string().swap(entry.name);
            freeEntries.push_back(number);
        }
        worthSweeping = std::max(kSmallTable, 2 * index.size());
    }

    std::mutex mutex;
    std::deque<Entry> entries;
    std::unordered_map<Key, std::uint32_t, HashOfKey> index;
    std::vector<std::uint32_t> freeEntries;
    std::size_t worthSweeping = kSmallTable;
};

}  // namespace

FSRef MakeRef(std::string_view path) {
    Content content{};
    content.mark = kMark;
    const std::size_t slash = path.rfind('/');
    std::string_view folder = path;
    const std::string_view name = path.substr(slash + 1);
    if (name.size() <= sizeof content.name) {
        content.nameLength = static_cast<std::uint8_t>(name.copy(content.name, name.size()));
        folder = path.substr(0, slash);
    }
    std::tie(content.entry, content.generation) = Table::Get().Intern(folder);
    content.checkSum = CheckSum(content);
    FSRef ref;
    std::memcpy(&ref, &content, sizeof ref);
    return ref;
}

bool IsRef(const FSRef& ref) {
    return ContentOf(ref).has_value();
}

std::optional<std::string> PathOf(const FSRef& ref) {
    const std::optional<Content> content = ContentOf(ref);
    if (!content) return std::nullopt;
    std::optional<std::string> path = Table::Get().Path(content->entry, content->generation);
    if (!path) return std::nullopt;
    if (content->nameLength != 0) {
        path->append(1, '/').append(content->name, content->nameLength);
    }
    if (path->empty()) {
        *path = "/";
    }
    return path;
}

std::size_t ReferenceTableSize() {
    return Table::Get().Size();
}

}  // namespace frameworks
