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

bool AssociationsFile::PutInFront(std::string_view type, std::string_view application) {
    const std::vector<std::size_t> places = LinesFor(type);
    if (places.empty()) {
        Add(LineOf(type, {application}));
        return true;
    }
    bool isChanged = false;
    for (const std::size_t place : places) {
        std::vector<std::string_view> applications = ApplicationsOf(lines[place]);
        if (!applications.empty() && applications.front() == application) continue;
        applications.erase(std::remove(applications.begin(), applications.end(), application),
                           applications.end());
        applications.insert(applications.begin(), application);
        lines[place] = LineOf(type, applications);
        isChanged = true;
    }
    return isChanged;
}

void AssociationsFile::TakeOut(std::string_view type, std::string_view application) {
    const std::vector<std::size_t> places = LinesFor(type);
    // From behind, so that the places before stay what they are.
    for (auto place = places.rbegin(); place != places.rend(); ++place) {
        std::vector<std::string_view> applications = ApplicationsOf(lines[*place]);
        const auto end = std::remove(applications.begin(), applications.end(), application);
        if (end == applications.end()) continue;
        applications.erase(end, applications.end());
        if (applications.empty()) {
            lines.erase(lines.begin() + static_cast<std::ptrdiff_t>(*place));
        } else {
            lines[*place] = LineOf(type, applications);
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
