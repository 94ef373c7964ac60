#include "HIServices/ProcessOf.h"

#include <climits>
#include <string>
#include <string_view>

namespace frameworks {
namespace {

constexpr std::string_view kExtension = ".app";

bool IsApplication(std::string_view path) {
    return path.size() > kExtension.size() &&
           path.substr(path.size() - kExtension.size()) == kExtension;
}

}  // namespace

pid_t PidOf(const ProcessSerialNumber& psn) {
    const bool isPid = psn.highLongOfPSN == 0 && psn.lowLongOfPSN <= INT_MAX;
    return isPid ? static_cast<pid_t>(psn.lowLongOfPSN) : 0;
}

std::optional<ProcessStatus> ProcessOf(const ProcessSerialNumber& psn) {
    const pid_t pid = PidOf(psn);
    if (pid == 0) return std::nullopt;
    std::optional<ProcessStatus> process = StatusOf(pid);
    if (process && process->isZombie) return std::nullopt;
    return process;
}

Ref<__CFBundle> BundleOf(const ProcessStatus& process) {
    if (process.isKernelThread) return {};
    std::string path = ProgramOf(process);
    for (std::size_t slash = path.rfind('/'); slash != std::string::npos; slash = path.rfind('/')) {
        path.resize(slash);
        if (!IsApplication(path)) continue;
        Ref<__CFBundle> bundle = __CFBundle::OfFolder(path);
        if (bundle) return bundle;
    }
    return {};
}

}  // namespace frameworks
