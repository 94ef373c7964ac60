#include "commands/PressureCommands.h"

#include "commands/CommandHandler.h"
#include "core/Helpers.h"
#include "core/Owners.h"
#include "tablet/TabletManager.h"

namespace {

Status StartTablet(const Words& /*words*/) {
    Helpers::logprint("Sending pressure started");
    return Status::kStartPenData;
}

Status StopTablet(const Words& /*words*/) {
    Helpers::logprint("Sending pressure stopped");
    return Status::kStopPenData;
}

CFOwner<CFStringRef> ProcessName(const Words& words) {
    return CFOwner<CFStringRef>::Adopt(Helpers::wstringToCFString(words[2]));
}

Status ListenTablet(const Words& words) {
    const auto name = ProcessName(words);
    return name && TabletManager::InstallTap(name.Get()) ? Status::kSuccess : Status::kFailure;
}

Status StopListenTablet(const Words& words) {
    const auto name = ProcessName(words);
    return name && TabletManager::UninstallTap(name.Get(), true) ? Status::kSuccess
                                                                 : Status::kFailure;
}

Status GetDriverVersion(const Words& /*words*/) {
    CommandHandler::SetReply(L"DriverVersion=" + TabletManager::GetDriverVersion());
    return Status::kSuccess;
}

constexpr Command kRows[] = {
    {"startTablet", kAnyNumberOfArguments, StartTablet},
    {"stopTablet", kAnyNumberOfArguments, StopTablet},
    {"listenTablet", 2, ListenTablet},
    {"stopListenTablet", 2, StopListenTablet},
    {"getDriverVersion", kAnyNumberOfArguments, GetDriverVersion},
};

}  // namespace

bool RunPressureCommand(const Words& words, Status& status) {
    return RunCommand(kRows, words, status);
}
