#include <CarbonCore/MacErrors.h>
#include <CoreFoundation/CFUserNotification.h>
#include <fcntl.h>
#include <sys/wait.h>

#include <chrono>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "CoreFoundation/String.h"
#include "Support/ChildProcess.h"
#include "Support/StandardError.h"
#include "Support/UniqueDescriptor.h"
#include "Support/UserEnvironment.h"

using frameworks::Checked;
using frameworks::Environment;
using frameworks::FindProgram;
using frameworks::ValueIn;

namespace {

struct Alert {
    CFOptionFlags level;
    std::string_view header;
    std::string_view message;
};

using Words = std::vector<std::string>;
using Clock = std::chrono::steady_clock;

// What the header and the message look like in one text.
std::string Together(const Alert& alert) {
    std::string text(alert.header);
    if (!alert.message.empty()) {
        text.append("\n\n").append(alert.message);
    }
    return text;
}

Words WordsForZenity(const std::string& program, const Alert& alert) {
    const char* const kinds[] = {"--error", "--info", "--warning", "--info"};
    return {program, kinds[alert.level], "--no-markup", "--title=" + std::string(alert.header),
            "--text=" +
                (alert.message.empty() ? std::string(alert.header) : std::string(alert.message))};
}

Words WordsForKdialog(const std::string& program, const Alert& alert) {
    const char* const kinds[] = {"--error", "--msgbox", "--sorry", "--msgbox"};
    return {program, "--title", std::string(alert.header), kinds[alert.level], Together(alert)};
}

enum class End { kAnswered, kClosed, kNotShown };

// A dialog that was closed and one that could not be shown end alike, but nobody reads and closes
// one that fast.
constexpr std::chrono::seconds kShortestReading{1};

End Run(const Words& words, const Environment& environment) {
    const frameworks::UniqueDescriptor nowhere(open("/dev/null", O_RDWR | O_CLOEXEC));
    if (!nowhere.IsOpen()) return End::kNotShown;
    const Clock::time_point start = Clock::now();
    const pid_t child = frameworks::StartProgram(words, environment, nowhere.Get(), nowhere.Get());
    if (child == -1) return End::kNotShown;
    const int status = frameworks::WaitForChild(child);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return End::kAnswered;
    return Clock::now() - start < kShortestReading ? End::kNotShown : End::kClosed;
}

struct Shower {
    const char* name;
    Words (*wordsFor)(const std::string& program, const Alert& alert);
};

constexpr Shower kShowers[] = {{"zenity", WordsForZenity}, {"kdialog", WordsForKdialog}};

// True when the dialog was shown and its button was pressed.
bool ShowDialog(const Alert& alert) {
    const Environment environment = frameworks::EnvironmentOfUser();
    if (ValueIn(environment, "DISPLAY").empty() &&
        ValueIn(environment, "WAYLAND_DISPLAY").empty()) {
        return false;
    }
    for (const Shower& shower : kShowers) {
        const std::string program = FindProgram(environment, shower.name);
        if (program.empty()) continue;
        const End end = Run(shower.wordsFor(program, alert), environment);
        if (end != End::kNotShown) return end == End::kAnswered;
    }
    return false;
}

CFOptionFlags Show(const Alert& alert) {
    if (ShowDialog(alert)) return kCFUserNotificationDefaultResponse;
    // Whoever has closed a dialog need not have read it.
    frameworks::WriteToStandardError(Together(alert) + "\n");
    return kCFUserNotificationCancelResponse;
}

}  // namespace

SInt32 CFUserNotificationDisplayAlert(CFTimeInterval timeout, CFOptionFlags flags, CFURLRef,
                                      CFURLRef soundURL, CFURLRef localizationURL,
                                      CFStringRef alertHeader, CFStringRef alertMessage,
                                      CFStringRef defaultButtonTitle,
                                      CFStringRef alternateButtonTitle,
                                      CFStringRef otherButtonTitle, CFOptionFlags* responseFlags) {
    const char* const call = "CFUserNotificationDisplayAlert";
    const std::string_view header = Checked<__CFString>(alertHeader, call).Text();
    const std::string_view message = alertMessage == nullptr
                                         ? std::string_view()
                                         : Checked<__CFString>(alertMessage, call).Text();
    if (timeout != 0 || flags > kCFUserNotificationPlainAlertLevel || soundURL != nullptr ||
        localizationURL != nullptr || defaultButtonTitle != nullptr ||
        alternateButtonTitle != nullptr || otherButtonTitle != nullptr) {
        return paramErr;
    }
    try {
        const CFOptionFlags response = Show({flags, header, message});
        if (responseFlags != nullptr) {
            *responseFlags = response;
        }
        return 0;
    } catch (const std::bad_alloc&) {
        return memFullErr;
    }
}
