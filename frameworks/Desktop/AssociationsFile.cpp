#include "Desktop/AssociationsFile.h"

#include <algorithm>

namespace frameworks {
namespace {

constexpr std::string_view kGroup = "[Default Applications]";
constexpr std::string_view kWhiteSpace = " \t\r\n";

std::string_view Trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(kWhiteSpace);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(kWhiteSpace) - first + 1);
}

bool IsGroup(std::string_view line) {
    return !line.empty() && line.front() == '[';
}

std::string_view KeyOf(std::string_view line) {
    const std::size_t equals = line.find('=');
    return equals == std::string_view::npos ? std::string_view() : Trimmed(line.substr(0, equals));
}

std::vector<std::string_view> ApplicationsOf(std::string_view line) {
    std::vector<std::string_view> applications;
    std::string_view rest = Trimmed(line.substr(line.find('=') + 1));
    while (!rest.empty()) {
        const std::string_view application = rest.substr(0, rest.find(';'));
        rest.remove_prefix(std::min(application.size() + 1, rest.size()));
        if (!application.empty()) {
            applications.push_back(application);
        }
    }
    return applications;
}

std::size_t PlaceOf(std::string_view application,
                    const std::vector<std::string_view>& applications) {
    const auto found = std::find(applications.begin(), applications.end(), application);
    return found == applications.end() ? 0
                                       : static_cast<std::size_t>(found - applications.begin()) + 1;
}

void TakeOut(std::string_view application, std::vector<std::string_view>& applications) {
    applications.erase(std::remove(applications.begin(), applications.end(), application),
                       applications.end());
}

std::string LineOf(std::string_view type, const std::vector<std::string_view>& applications) {
    std::string line = std::string(type) + "=";
    for (const std::string_view application : applications) {
        line.append(application).append(";");
    }
    return line + "\n";
}

}  // namespace

AssociationsFile::AssociationsFile(std::string_view text) {
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size() - 1);
        lines.emplace_back(text.substr(0, end + 1));
        text.remove_prefix(end + 1);
    }
}

std::vector<std::size_t> AssociationsFile::LinesFor(std::string_view type) const {
    std::vector<std::size_t> places;
    bool isInGroup = false;
    for (std::size_t place = 0; place < lines.size(); ++place) {
        const std::string_view line = Trimmed(lines[place]);
        if (IsGroup(line)) {
            isInGroup = line == kGroup;
        } else if (isInGroup && !line.empty() && line.front() != '#' && KeyOf(line) == type) {
            places.push_back(place);
        }
    }
    return places;
}

std::optional<AssociationsFile::Places> AssociationsFile::PutInFront(std::string_view type,
                                                                     std::string_view application) {
    Places before;
    bool isChanged = false;
    for (const std::size_t line : LinesFor(type)) {
        std::vector<std::string_view> applications = ApplicationsOf(lines[line]);
        before.push_back(PlaceOf(application, applications));
        if (before.back() == 1) continue;
        TakeOut(application, applications);
        applications.insert(applications.begin(), application);
        lines[line] = LineOf(type, applications);
        isChanged = true;
    }
    if (before.empty()) {
        Add(LineOf(type, {application}));
        isChanged = true;
    }
    return isChanged ? std::optional(std::move(before)) : std::nullopt;
}

void AssociationsFile::PutBack(std::string_view type, std::string_view application,
                               const Places& before) {
    const std::vector<std::size_t> found = LinesFor(type);
    // From behind, so that the lines before stay where they are.
    for (std::size_t count = found.size(); count > 0; --count) {
        const std::size_t line = found[count - 1];
        const std::size_t place = count <= before.size() ? before[count - 1] : 0;
        std::vector<std::string_view> applications = ApplicationsOf(lines[line]);
        // Who has taken it away since does not get it back.
        if (PlaceOf(application, applications) == 0) continue;
        TakeOut(application, applications);
        if (place > 0) {
            const std::size_t ahead = std::min(place - 1, applications.size());
            applications.insert(applications.begin() + static_cast<std::ptrdiff_t>(ahead),
                                application);
        }
        if (applications.empty()) {
            lines.erase(lines.begin() + static_cast<std::ptrdiff_t>(line));
        } else {
            lines[line] = LineOf(type, applications);
        }
    }
}

// At the end of the group, before the blank lines that part it from the next one.
void AssociationsFile::Add(std::string line) {
    std::size_t place = 0;
    while (place < lines.size() && Trimmed(lines[place]) != kGroup) {
        ++place;
    }
    const bool hasGroup = place < lines.size();
    std::size_t end = hasGroup ? place + 1 : place;
    while (end < lines.size() && !IsGroup(Trimmed(lines[end]))) {
        ++end;
    }
    while (end > 0 && end > place + 1 && Trimmed(lines[end - 1]).empty()) {
        --end;
    }
    if (end > 0 && lines[end - 1].find('\n') == std::string::npos) {
        lines[end - 1] += '\n';
    }
    std::vector<std::string> added;
    if (!hasGroup) {
        if (end > 0) {
            added.emplace_back("\n");
        }
        added.push_back(std::string(kGroup) + "\n");
    }
    added.push_back(std::move(line));
    lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(end), added.begin(), added.end());
}

std::string AssociationsFile::Text() const {
    std::string text;
    for (const std::string& line : lines) {
        text += line;
    }
    return text;
}

}  // namespace frameworks
