#include "tesselctl/History.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "tesselctl/Descriptor.h"

namespace tesselctl {
namespace {

constexpr std::size_t kMostLines = 1000;

void MakeFoldersOf(const std::string& path) {
    for (std::size_t slash = path.find('/', 1); slash != std::string::npos;
         slash = path.find('/', slash + 1))
        mkdir(path.substr(0, slash).c_str(), 0700);
}

bool WriteAll(const Descriptor& file, const std::string& text) {
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t written = write(file.Get(), text.data() + done, text.size() - done);
        if (written == -1 && errno != EINTR) return false;
        if (written > 0) done += static_cast<std::size_t>(written);
    }
    return true;
}

// The new file takes the old one's place whole, so that nothing is lost when the disk is full.
void Replace(const std::string& path, const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines)
        text += line + '\n';
    const std::string next = path + ".new";
    // NOLINTNEXTLINE(cert-err33-c): mostly there is none; one that stays is told by the next call
    std::remove(next.c_str());
    const Descriptor file = OpenFile(next.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600);
    if (!file.Valid() || !WriteAll(file, text)) return;
    // NOLINTNEXTLINE(cert-err33-c): the old history stays, which nobody needs to be told
    std::rename(next.c_str(), path.c_str());
}

}  // namespace

std::string HistoryPath(const std::string& home) {
    const char* state = std::getenv("XDG_STATE_HOME");
    // A relative path there is to be ignored.
    const bool set = state != nullptr && state[0] == '/';
    return (set ? std::string(state) : home + "/.local/state") + "/tesselctl/history";
}

std::vector<std::string> History::Load() {
    std::vector<std::string> lines;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);)
        if (!line.empty()) lines.push_back(line);
    if (lines.size() > 2 * kMostLines) {
        lines.erase(lines.begin(), lines.end() - static_cast<std::ptrdiff_t>(kMostLines));
        Replace(path, lines);
    }
    return lines;
}

void History::Append(const std::string& line) {
    MakeFoldersOf(path);
    const Descriptor file = OpenFile(path.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    if (!file.Valid()) return;
    // A file that somebody made by hand may be open to others.
    fchmod(file.Get(), 0600);
    WriteAll(file, line + '\n');
}

}  // namespace tesselctl
