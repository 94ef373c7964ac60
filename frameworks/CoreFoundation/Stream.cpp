#include "CoreFoundation/Stream.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>

#include "CoreFoundation/URL.h"
#include "CoreFoundation/UnreadFiles.h"

using frameworks::Checked;
using frameworks::CheckedMutable;
using frameworks::LastReadingOf;
using frameworks::NoteReading;
using frameworks::Reading;
using frameworks::ReplacedFile;
using frameworks::UniqueDescriptor;

namespace {

constexpr mode_t kModeOfNewFiles = S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH;
constexpr char kEndingOfUnreadable[] = ".unreadable";

template <typename Stream>
Stream* MakeStream(CFURLRef url, const char* call) {
    const __CFURL& address = Checked<__CFURL>(url, call);
    try {
        std::optional<std::string> path = address.Path();
        return path ? new Stream(std::move(*path)) : nullptr;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

}  // namespace

bool __CFReadStream::Open() {
    if (wasOpened) return false;
    wasOpened = true;
    // Without waiting for whoever might write into a pipe.
    file = UniqueDescriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    struct stat status;
    if (!file.IsOpen() || fstat(file.Get(), &status) != 0) {
        NoteReading(path, errno == ENOENT ? Reading::kDone : Reading::kFailed);
        file.Close();
    } else if (!S_ISREG(status.st_mode)) {
        file.Close();
    }
    return file.IsOpen();
}

void __CFReadStream::Close() {
    wasOpened = true;
    file.Close();
}

std::optional<std::string> __CFReadStream::Read(std::size_t most) {
    if (!file.IsOpen()) return std::nullopt;
    constexpr std::size_t kPiece = std::size_t{64} << 10;
    std::string content;
    std::size_t length = 0;
    while (length < most) {
        content.resize(length + std::min(most - length, std::max(kPiece, length)));
        const ssize_t got = read(file.Get(), content.data() + length, content.size() - length);
        if (got == 0) break;
        if (got > 0) {
            length += static_cast<std::size_t>(got);
        } else if (errno != EINTR) {
            NoteReading(path, Reading::kFailed);
            return std::nullopt;
        }
    }
    content.resize(length);
    return content;
}

std::string __CFReadStream::Describe() const {
    return DescribeHead() + "{path = " + path + "}";
}

bool __CFWriteStream::Open() {
    if (wasOpened) return false;
    wasOpened = true;
    // It may be all right, and only out of reach for now.
    if (LastReadingOf(path) == Reading::kFailed) return false;
    file.emplace();
    if (!file->Open(path, ReplacedFile::Link::kFollowed, kModeOfNewFiles)) {
        file.reset();
    }
    return file.has_value();
}

void __CFWriteStream::Close() {
    wasOpened = true;
    file.reset();
}

bool __CFWriteStream::Replace(std::string_view content) {
    if (!file || !file->Write(content)) return false;
    if (LastReadingOf(path) == Reading::kRefused && !file->KeepReplaced(kEndingOfUnreadable)) {
        return false;
    }
    if (!file->Commit(ReplacedFile::Durability::kSurvivesCrashes)) return false;
    NoteReading(path, Reading::kDone);
    return true;
}

std::string __CFWriteStream::Describe() const {
    return DescribeHead() + "{path = " + path + "}";
}

CFReadStreamRef CFReadStreamCreateWithFile(CFAllocatorRef, CFURLRef fileURL) {
    return MakeStream<__CFReadStream>(fileURL, "CFReadStreamCreateWithFile");
}

CFWriteStreamRef CFWriteStreamCreateWithFile(CFAllocatorRef, CFURLRef fileURL) {
    return MakeStream<__CFWriteStream>(fileURL, "CFWriteStreamCreateWithFile");
}

Boolean CFReadStreamOpen(CFReadStreamRef stream) {
    return CheckedMutable<__CFReadStream>(stream, "CFReadStreamOpen").Open();
}

Boolean CFWriteStreamOpen(CFWriteStreamRef stream) {
    __CFWriteStream& opened = CheckedMutable<__CFWriteStream>(stream, "CFWriteStreamOpen");
    try {
        return opened.Open();
    } catch (const std::bad_alloc&) {
        opened.Close();
        return false;
    }
}

void CFReadStreamClose(CFReadStreamRef stream) {
    CheckedMutable<__CFReadStream>(stream, "CFReadStreamClose").Close();
}

void CFWriteStreamClose(CFWriteStreamRef stream) {
    CheckedMutable<__CFWriteStream>(stream, "CFWriteStreamClose").Close();
}
