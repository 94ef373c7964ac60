#include "tesselctl/LogReader.h"

#include <algorithm>
#include <cerrno>

namespace tesselctl {
namespace {

constexpr std::size_t kPiece = 65536;
constexpr std::size_t kTail = 64;

// Up to `most` bytes from an offset; fewer at the end of the file.
std::string ReadAt(int fd, off_t offset, std::size_t most) {
    std::string bytes(most, '\0');
    std::size_t got = 0;
    while (got < most) {
        const ssize_t n =
            pread(fd, bytes.data() + got, most - got, offset + static_cast<off_t>(got));
        if (n == -1 && errno == EINTR) continue;
        if (n <= 0) break;
        got += static_cast<std::size_t>(n);
    }
    bytes.resize(got);
    return bytes;
}

bool SameFile(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

}  // namespace

bool LogReader::Open() {
    Descriptor opened = OpenFile(path.c_str(), O_RDONLY | O_NONBLOCK);
    struct stat status {};
    if (!opened.Valid() || fstat(opened.Get(), &status) == -1) return false;
    if (!S_ISREG(status.st_mode)) {
        errno = EINVAL;
        return false;
    }
    file = std::move(opened);
    identity = status;
    StartOver();
    return true;
}

void LogReader::StartOver() {
    position = 0;
    tail.clear();
}

void LogReader::Remember(const std::string& text) {
    position += static_cast<off_t>(text.size());
    tail += text;
    if (tail.size() > kTail) tail.erase(0, tail.size() - kTail);
}

off_t LogReader::StartOfLastLines(std::size_t count, off_t end) const {
    if (count == 0) return end;
    // Backwards, piece by piece: a log may be larger than what anybody wants to see of it.
    for (off_t piece = end; piece > 0;) {
        const off_t from = std::max<off_t>(0, piece - static_cast<off_t>(kPiece));
        const std::string bytes = ReadAt(file.Get(), from, static_cast<std::size_t>(piece - from));
        for (std::size_t at = bytes.size(); at-- > 0;) {
            const off_t behind = from + static_cast<off_t>(at) + 1;
            // The line feed at the very end ends the last line and begins none.
            if (bytes[at] == '\n' && behind != end && --count == 0) return behind;
        }
        piece = from;
    }
    return 0;
}

void LogReader::GoToLastLines(std::size_t count) {
    struct stat status {};
    if (fstat(file.Get(), &status) == -1) return;
    position = StartOfLastLines(count, status.st_size);
    const off_t length = std::min(position, static_cast<off_t>(kTail));
    tail = ReadAt(file.Get(), position - length, static_cast<std::size_t>(length));
}

bool LogReader::Rewritten(off_t size) const {
    if (size < position) return true;
    const off_t from = position - static_cast<off_t>(tail.size());
    return ReadAt(file.Get(), from, tail.size()) != tail;
}

LogUpdate LogReader::Poll() {
    struct stat status {};
    if (file.Valid()) {
        if (fstat(file.Get(), &status) == 0) {
            if (status.st_size != position && Rewritten(status.st_size)) {
                StartOver();
                return {LogChange::kEmptied, {}};
            }
            std::string text = ReadAt(file.Get(), position, kPiece);
            Remember(text);
            if (!text.empty()) return {LogChange::kMore, std::move(text)};
        }
        // Read to its end, so nothing is lost when the name belongs to another file now.
        if (stat(path.c_str(), &status) == 0 && SameFile(status, identity))
            return {LogChange::kNothing, {}};
        file = Descriptor();
        if (Open()) return {LogChange::kReplaced, {}};
        return {LogChange::kGone, {}};
    }
    if (Open()) return {LogChange::kReplaced, {}};
    return {LogChange::kNothing, {}};
}

}  // namespace tesselctl
