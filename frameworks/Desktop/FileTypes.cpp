#include "Desktop/FileTypes.h"

#include <charconv>
#include <optional>
#include <utility>

#include "LaunchServices/ApplicationBundle.h"
#include "Support/ReadFile.h"

namespace frameworks {
namespace {

constexpr std::size_t kLargestList = std::size_t{4} << 20;
constexpr std::string_view kAnyName = "*.";
constexpr std::string_view kByCase = "cs";

// Takes what stands before the next MARK off TEXT, and the mark.
std::string_view Take(std::string_view& text, char mark) {
    const std::string_view taken = text.substr(0, text.find(mark));
    text.remove_prefix(taken.size() < text.size() ? taken.size() + 1 : taken.size());
    return taken;
}

bool HasFlag(std::string_view flags, std::string_view flag) {
    while (!flags.empty()) {
        if (Take(flags, ',') == flag) return true;
    }
    return false;
}

}  // namespace

FileTypes::FileTypes(const std::vector<std::string>& folders) {
    for (const std::string& folder : folders) {
        const std::optional<std::string> list =
            ReadRegularFile((folder + "/mime/globs2").c_str(), kLargestList);
        if (list) {
            Read(*list);
        }
    }
}

void FileTypes::Read(std::string_view list) {
    while (!list.empty()) {
        ReadLine(Take(list, '\n'));
    }
}

// Such as "50:text/plain:*.txt", with more fields behind: flags, and whatever is added one day.
void FileTypes::ReadLine(std::string_view line) {
    if (line.empty() || line.front() == '#') return;
    const std::string_view digits = Take(line, ':');
    const std::string_view name = Take(line, ':');
    std::string_view pattern = Take(line, ':');
    const bool byCase = HasFlag(Take(line, ':'), kByCase);
    int weight = 0;
    if (std::from_chars(digits.data(), digits.data() + digits.size(), weight).ec != std::errc() ||
        name.find('/') == std::string_view::npos ||
        pattern.substr(0, kAnyName.size()) != kAnyName) {
        return;
    }
    pattern.remove_prefix(kAnyName.size());
    if (pattern.empty() || pattern.find_first_of("*?[\\") != std::string_view::npos) return;
    Types& chosen = byCase ? typesByCase : types;
    const auto [place, isNew] = chosen.try_emplace(
        byCase ? std::string(pattern) : InLowerCase(pattern), Type{weight, std::string(name)});
    // Among equals the first one counts.
    if (!isNew && place->second.weight < weight) {
        place->second = {weight, std::string(name)};
    }
}

std::string_view FileTypes::TypeOf(std::string_view extension) const {
    const auto exact = typesByCase.find(extension);
    if (exact != typesByCase.end()) return exact->second.name;
    const auto found = types.find(InLowerCase(extension));
    return found == types.end() ? std::string_view() : std::string_view(found->second.name);
}

}  // namespace frameworks
