#include "tesselctl/Log.h"

#include <poll.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "tesselctl/ExitStatus.h"
#include "tesselctl/LogReader.h"
#include "tesselctl/Terminal.h"

namespace tesselctl {
namespace {

constexpr int kPollTime = 100;  // milliseconds

int Enable(const std::string& home, const std::string& path) {
    // For the user alone: the log holds every message that the service receives, the pass key among
    // them.
    const Descriptor made = OpenFile(path.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600);
    if (made.Valid()) {
        // Made by root in somebody's home, it is of no use to the service of that user unless he
        // owns it.
        struct stat folder {};
        if (geteuid() == 0 && stat(home.c_str(), &folder) == 0 &&
            fchown(made.Get(), folder.st_uid, folder.st_gid) == -1)
            Complain("cannot give " + path + " to the owner of " + home + ": " +
                     std::strerror(errno));
        Say(path + " is there now; the service writes to it from its next start on\n");
        return kExitSuccess;
    }
    if (errno == EEXIST) {
        Say(path + " is there already; the service writes to it if it was there at its start\n");
        return kExitSuccess;
    }
    Complain("cannot make " + path + ": " + std::strerror(errno));
    return kExitNegative;
}

int Refuse(const std::string& path) {
    if (errno == ENOENT)
        Complain("there is no log file " + path +
                 "; to switch the log on, run 'tesselctl log --enable' and restart the service");
    else if (errno == EINVAL)
        Complain(path + " is not a regular file, so the service cannot log to it");
    else
        Complain("cannot read " + path + ": " + std::strerror(errno));
    return kExitNegative;
}

// Prints all that is there now; false when nobody reads any more.
bool PrintNews(LogReader& reader, const std::string& path) {
    for (;;) {
        LogUpdate update = reader.Poll();
        switch (update.change) {
            case LogChange::kNothing:
                return true;
            case LogChange::kMore:
                if (!Say(update.text)) return false;
                break;
            case LogChange::kEmptied:
                Complain(path + " was emptied");
                break;
            case LogChange::kReplaced:
                Complain(path + " is a new file");
                break;
            case LogChange::kGone:
                Complain(path + " is gone; waiting for it to come back");
                return true;
        }
    }
}

// Waits a little; false when the reader of standard output has gone away meanwhile.
bool WaitForNews() {
    pollfd output{STDOUT_FILENO, 0, 0};
    return poll(&output, 1, kPollTime) <= 0;
}

}  // namespace

std::string LogFilePath(const std::string& home) {
    return home + "/tesselLog.txt";
}

int ShowLog(const std::string& home, const LogRequest& request) {
    const std::string path = LogFilePath(home);
    if (request.enable) return Enable(home, path);
    LogReader reader(path);
    if (!reader.Open()) return Refuse(path);
    if (request.lines) reader.GoToLastLines(*request.lines);
    while (PrintNews(reader, path) && request.follow && WaitForNews()) {
    }
    return kExitSuccess;
}

}  // namespace tesselctl
