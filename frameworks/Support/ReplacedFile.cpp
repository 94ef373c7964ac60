#include "Support/ReplacedFile.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/random.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <optional>

namespace frameworks {
namespace {

constexpr int kMostLinks = 40;
constexpr int kMostNames = 100;

bool FailWith(int error) {
    errno = error;
    return false;
}

std::optional<std::string> LinkContent(const std::string& path) {
    char content[PATH_MAX];
    const ssize_t length = readlink(path.c_str(), content, sizeof content);
    if (length < 0) return std::nullopt;
    return std::string(content, static_cast<std::size_t>(length));
}

// With its closing "/"; empty for a name alone.
std::string FolderOf(const std::string& path) {
    return path.substr(0, path.rfind('/') + 1);
}

// Whether somebody else has put the link into a folder for everybody, and so could choose which
// file is replaced. Not every system refuses to follow such a link.
bool IsStrangersLink(const std::string& path, const struct stat& link) {
    struct stat folder;
    if (stat((FolderOf(path) + ".").c_str(), &folder) != 0) return true;
    const bool isForEverybody = (folder.st_mode & S_ISVTX) != 0 && (folder.st_mode & S_IWOTH) != 0;
    return isForEverybody && link.st_uid != geteuid() && link.st_uid != folder.st_uid;
}

// Where PATH leads, be there a file or only a place for one.
std::optional<std::string> FollowLinks(std::string path) {
    for (int links = 0; links <= kMostLinks; ++links) {
        struct stat status;
        if (lstat(path.c_str(), &status) != 0) {
            return errno == ENOENT ? std::optional(std::move(path)) : std::nullopt;
        }
        if (!S_ISLNK(status.st_mode)) return path;
        if (IsStrangersLink(path, status)) {
            errno = EACCES;
            return std::nullopt;
        }
        const std::optional<std::string> content = LinkContent(path);
        if (!content || content->empty()) return std::nullopt;
        path = content->front() == '/' ? *content : FolderOf(path) + *content;
    }
    errno = ELOOP;
    return std::nullopt;
}

std::string RandomName() {
    std::uint64_t number = 0;
    while (getrandom(&number, sizeof number, 0) == -1 && errno == EINTR) {
    }
    char name[32];
    // As short as this it fits wherever the file's own name does.
    std::snprintf(name, sizeof name, ".new-%016llx", static_cast<unsigned long long>(number));
    return name;
}

// 0 when STATUS is that of a file that may be replaced, or an error number.
int Refusal(const std::string& path, const struct stat& status) {
    if (S_ISDIR(status.st_mode)) return EISDIR;
    if (!S_ISREG(status.st_mode)) return EINVAL;
    return faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) == 0 ? 0 : errno;
}

}  // namespace

ReplacedFile::~ReplacedFile() {
    Discard();
}

bool ReplacedFile::Open(const std::string& path, Link link, mode_t mode) {
    if (IsOpen()) return FailWith(EBUSY);
    if (path.empty()) return FailWith(ENOENT);
    std::optional<std::string> end = link == Link::kFollowed ? FollowLinks(path) : path;
    if (!end) return false;
    target = std::move(*end);
    struct stat status;
    bool exists = lstat(target.c_str(), &status) == 0;
    if (!exists && errno != ENOENT) return false;
    if (exists && S_ISLNK(status.st_mode)) {
        // One that has come in the meantime, or one to be replaced.
        exists = false;
    }
    if (exists) {
        const int refusal = Refusal(target, status);
        if (refusal != 0) return FailWith(refusal);
    }
    for (int names = 0; names < kMostNames; ++names) {
        std::string name = FolderOf(target) + RandomName();
        // Nobody else reads it before its owner and mode are what they are to be.
        file = UniqueDescriptor(open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC,
                                     exists ? S_IRUSR | S_IWUSR : mode));
        if (file.IsOpen()) {
            beside = std::move(name);
            return !exists || TakeOver(status);
        }
        if (errno != EEXIST && errno != EINTR) return false;
    }
    return false;
}

// Gives the new file what the old one has.
bool ReplacedFile::TakeOver(const struct stat& replaced) {
    struct stat made;
    const bool taken = fstat(file.Get(), &made) == 0 &&
                       ((made.st_uid == replaced.st_uid && made.st_gid == replaced.st_gid) ||
                        fchown(file.Get(), replaced.st_uid, replaced.st_gid) == 0) &&
                       fchmod(file.Get(), replaced.st_mode & (S_IRWXU | S_IRWXG | S_IRWXO)) == 0;
    if (!taken) {
        Discard();
    }
    return taken;
}

bool ReplacedFile::Write(std::string_view bytes) {
    if (!IsOpen()) return FailWith(EBADF);
    while (!bytes.empty()) {
        const ssize_t written = write(file.Get(), bytes.data(), bytes.size());
        if (written > 0) {
            bytes.remove_prefix(static_cast<std::size_t>(written));
        } else if (written == 0 || errno != EINTR) {
            Discard();
            return false;
        }
    }
    return true;
}

bool ReplacedFile::KeepReplaced(std::string_view ending) {
    if (!IsOpen()) return FailWith(EBADF);
    struct stat status;
    if (stat(target.c_str(), &status) != 0) return errno == ENOENT;
    if (status.st_size == 0 || !kept.empty()) return true;
    for (int number = 1; number <= kMostNames; ++number) {
        std::string name = target + std::string(ending);
        if (number > 1) {
            name += "-" + std::to_string(number);
        }
        if (link(target.c_str(), name.c_str()) == 0) {
            kept = std::move(name);
            return true;
        }
        if (errno != EEXIST) return false;
    }
    return false;
}

bool ReplacedFile::Commit(Durability durability) {
    if (!IsOpen()) return FailWith(EBADF);
    if (durability == Durability::kSurvivesCrashes) {
        int synced = 0;
        do {
            synced = fdatasync(file.Get());
        } while (synced == -1 && errno == EINTR);
        if (synced == -1) {
            Discard();
            return false;
        }
    }
    if (rename(beside.c_str(), target.c_str()) != 0) {
        Discard();
        return false;
    }
    beside.clear();
    kept.clear();
    file.Close();
    return true;
}

void ReplacedFile::Discard() {
    const int before = errno;
    file.Close();
    if (!beside.empty()) {
        unlink(beside.c_str());
        beside.clear();
    }
    if (!kept.empty()) {
        unlink(kept.c_str());
        kept.clear();
    }
    errno = before;
}

bool ReplaceFile(const std::string& path, std::string_view content, ReplacedFile::Link link,
                 ReplacedFile::Durability durability, mode_t mode) {
    ReplacedFile file;
    return file.Open(path, link, mode) && file.Write(content) && file.Commit(durability);
}

}  // namespace frameworks
