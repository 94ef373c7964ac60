#include "tesselctl/Icon.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "tesselctl/Descriptor.h"
#include "tesselctl/ExitStatus.h"
#include "tesselctl/Printable.h"
#include "tesselctl/Quoting.h"
#include "tesselctl/ReplaceFile.h"
#include "tesselctl/Report.h"
#include "tesselctl/Session.h"
#include "tesselctl/Terminal.h"

namespace tesselctl {
namespace {

constexpr std::string_view kSignature("\x89PNG\r\n\x1A\n", 8);
// Many times what 128 by 128 pixels can come to.
constexpr std::size_t kLargestPicture = std::size_t{1} << 20;

// The shared folder is everybody's: what lies there may be anything, and it is not waited for.
std::string ReadPicture(const std::string& path, std::string& picture) {
    const Descriptor file = OpenFile(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    struct stat status {};
    if (!file.Valid() || fstat(file.Get(), &status) != 0) return std::strerror(errno);
    if (!S_ISREG(status.st_mode)) return "it is not a regular file";
    char bytes[16384];
    for (;;) {
        const ssize_t got = read(file.Get(), bytes, sizeof bytes);
        if (got == -1 && errno == EINTR) continue;
        if (got == -1) return std::strerror(errno);
        if (got == 0) break;
        picture.append(bytes, static_cast<std::size_t>(got));
        if (picture.size() > kLargestPicture) return "it is too large for an icon";
    }
    return picture.compare(0, kSignature.size(), kSignature) == 0 ? "" : "it is not a PNG file";
}

std::string WriteAll(const std::string& bytes, std::FILE* file) {
    return std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size() &&
                   std::fflush(file) == 0
               ? std::string()
               : std::strerror(errno);
}

}  // namespace

int SaveIcon(const std::string& home, const Limits& limits, const IconRequest& request,
             const std::string& exported) {
    const Result<std::string> line = QuoteWords({"getIcon", request.bundle});
    if (!line.Ok()) return Report(line.GetProblem(), "getIcon");
    const auto refuse = [&](const std::string& why) {
        Complain("cannot write " + Printable(request.file) + ": " + why);
        return kExitOutput;
    };
    std::string why = WhyNotReplaceable(request.file);
    if (!why.empty()) return refuse(why);
    // Open until the icon is copied: nobody else can have another one exported meanwhile.
    Session session(home, limits);
    const Result<Answer> answer = session.Run(line.Value());
    if (answer.Ok() && answer.Value().word == Word::kIconMissing) {
        Complain(Printable(request.bundle) + " has no icon that the service can save");
        return kExitNegative;
    }
    if (!answer.Ok() || answer.Value().word != Word::kIconReady) return Report(answer, "getIcon");
    std::string picture;
    why = ReadPicture(exported, picture);
    if (!why.empty()) {
        Complain("cannot read the icon that the service has saved as " + exported + ": " + why);
        return kExitNegative;
    }
    why = ReplaceFile(request.file, [&](std::FILE* file) { return WriteAll(picture, file); });
    if (!why.empty()) return refuse(why);
    Say(Printable(request.file) + '\n');
    return kExitSuccess;
}

}  // namespace tesselctl
