#include <CarbonCore/MacErrors.h>
#include <CoreFoundation/CFUserNotification.h>
#include <fcntl.h>
#include <sys/wait.h>

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

// True when the dialog was shown and its button was pressed.
bool Run(const Words& words, const Environment& environment) {
    const frameworks::UniqueDescriptor nowhere(open("/dev/null", O_RDWR | O_CLOEXEC));
    if (!nowhere.IsOpen()) return false;
    const pid_t child = frameworks::StartProgram(words, environment, nowhere.Get(), nowhere.Get());
    if (child == -1) return false;
    const int status = frameworks::WaitForChild(child);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

bool ShowDialog(const Alert& alert) {
    const Environment environment = frameworks::EnvironmentOfUser();
    if (ValueIn(environment, "DISPLAY").empty() &&
        ValueIn(environment, "WAYLAND_DISPLAY").empty()) {
        return false;
    }
    const std::string zenity = FindProgram(environment, "zenity");
    if (!zenity.empty()) return Run(WordsForZenity(zenity, alert), environment);
    const std::string kdialog = FindProgram(environment, "kdialog");
    return !kdialog.empty() && Run(WordsForKdialog(kdialog, alert), environment);
}

CFOptionFlags Show(const Alert& alert) {
    if (ShowDialog(alert)) return kCFUserNotificationDefaultResponse;
    // A dialog that was closed and one that could not be shown end alike, so what nobody is known
    // to have read is written.
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
