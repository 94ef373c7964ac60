// Alerts. zenity and kdialog are stand-ins in a folder that is the whole search path; they write
// down how they were called.

#include <CarbonCore/MacErrors.h>
#include <CoreFoundation/CoreFoundation.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "unit/ApplicationTesting.h"
#include "unit/CFTestSupport.h"
#include "unit/FilesTesting.h"

namespace {

namespace fs = std::filesystem;

using applicationtest::ReadWhole;
using applicationtest::WriteProgram;
using filestest::TemporaryFolder;
using Variable = filestest::Environment;

class UserNotification : public testing::Test {
  protected:
    UserNotification()
        : path("PATH", (folder / "bin").c_str()),
          display("DISPLAY", ":0"),
          wayland("WAYLAND_DISPLAY", nullptr) {
        applicationtest::MakeFolder(folder / "bin");
    }

    void StandIn(const std::string& name, const std::string& body) {
        WriteProgram(folder / "bin/" + name, "#!/bin/sh\nprintf '%s\\n' " + name + " \"$@\" >> '" +
                                                 folder / "calls" + "'\n" + body + "\n");
    }
    std::string Calls() const { return ReadWhole(folder / "calls"); }

    struct Answer {
        SInt32 status;
        CFOptionFlags response;
        // What was written to standard error.
        std::string errors;
    };
    Answer Show(const char* header, const char* message,
                CFOptionFlags level = kCFUserNotificationStopAlertLevel) const {
        const auto title = MakeString(header);
        const auto text = MakeString(message == nullptr ? "" : message);
        const CFStringRef given = message == nullptr ? nullptr : static_cast<CFStringRef>(text);
        Answer answer = {-1, 99, {}};
        testing::internal::CaptureStderr();
        answer.status =
            CFUserNotificationDisplayAlert(0, level, nullptr, nullptr, nullptr, title, given,
                                           nullptr, nullptr, nullptr, &answer.response);
        answer.errors = testing::internal::GetCapturedStderr();
        return answer;
    }

    const TemporaryFolder folder;
    const Variable path;
    const Variable display;
    const Variable wayland;
};

TEST_F(UserNotification, Alert_WithZenity_IsShownWithItsTextsAsTheyAre) {
    StandIn("zenity", "");
    StandIn("kdialog", "");
    const Answer answer =
        Show("Dock - Failure", "<b>Text</b> & \"quotes\" 'it' $HOME\n\nend\xC3\xA9");
    EXPECT_EQ(answer.status, 0);
    EXPECT_EQ(answer.response, CFOptionFlags{kCFUserNotificationDefaultResponse});
    EXPECT_EQ(answer.errors, "");
    EXPECT_EQ(Calls(),
              "zenity\n--error\n--no-markup\n--title=Dock - Failure\n--text=<b>Text</b> & "
              "\"quotes\" 'it' $HOME\n\nend\xC3\xA9\n");
}

TEST_F(UserNotification, Alert_OfEachLevel_IsOfThatKind) {
    StandIn("zenity", "");
    Show("h", "m", kCFUserNotificationStopAlertLevel);
    Show("h", "m", kCFUserNotificationNoteAlertLevel);
    Show("h", "m", kCFUserNotificationCautionAlertLevel);
    Show("h", "m", kCFUserNotificationPlainAlertLevel);
    std::string kinds;
    const std::string calls = Calls();
    for (std::size_t at = calls.find("zenity\n"); at != std::string::npos;
         at = calls.find("zenity\n", at + 1)) {
        kinds += calls.substr(at + 7, calls.find('\n', at + 7) - at - 7) + " ";
    }
    EXPECT_EQ(kinds, "--error --info --warning --info ");
}

TEST_F(UserNotification, Alert_WithoutZenity_IsShownByKdialog) {
    StandIn("kdialog", "");
    EXPECT_EQ(Show("Head", "Text").response, CFOptionFlags{kCFUserNotificationDefaultResponse});
    EXPECT_EQ(Calls(), "kdialog\n--title\nHead\n--error\nHead\n\nText\n");
}

TEST_F(UserNotification, Alert_IsWaitedFor) {
    StandIn("zenity", "/bin/sleep 0.2; echo answered >> '" + folder / "calls" + "'");
    Show("Head", "Text");
    EXPECT_NE(Calls().find("answered"), std::string::npos);
}

TEST_F(UserNotification, Alert_WithoutADisplay_IsWrittenAndNotWaitedFor) {
    const Variable none("DISPLAY", nullptr);
    StandIn("zenity", "/bin/sleep 60");
    const auto show = [this] {
        const Answer answer = Show("Head", "Text");
        EXPECT_EQ(answer.status, 0);
        EXPECT_EQ(answer.response, CFOptionFlags{kCFUserNotificationCancelResponse});
        EXPECT_EQ(answer.errors, "Head\n\nText\n");
    };
    // As somebody of whom no other program has a display either.
    fs::permissions(folder.Path(), fs::perms::all);
    applicationtest::AsOrdinaryUser(show);
    EXPECT_EQ(Calls(), "");
}

TEST_F(UserNotification, Alert_WithNothingToShowIt_IsWritten) {
    const Answer answer = Show("Head", "Text");
    EXPECT_EQ(answer.status, 0);
    EXPECT_EQ(answer.response, CFOptionFlags{kCFUserNotificationCancelResponse});
    EXPECT_EQ(answer.errors, "Head\n\nText\n");
}

TEST_F(UserNotification, Alert_WhoseDialogFails_IsWritten) {
    StandIn("zenity", "exit 1");
    const Answer answer = Show("Head", nullptr);
    EXPECT_EQ(answer.response, CFOptionFlags{kCFUserNotificationCancelResponse});
    EXPECT_EQ(answer.errors, "Head\n");
}

// One that has gone before anybody could read it was never to be seen.
TEST_F(UserNotification, Alert_WhenZenityFailsAtOnce_IsShownByKdialog) {
    StandIn("zenity", "exit 1");
    StandIn("kdialog", "");
    const Answer answer = Show("Head", "Text");
    EXPECT_EQ(answer.response, CFOptionFlags{kCFUserNotificationDefaultResponse});
    EXPECT_EQ(answer.errors, "");
    EXPECT_EQ(Calls(),
              "zenity\n--error\n--no-markup\n--title=Head\n--text=Text\n"
              "kdialog\n--title\nHead\n--error\nHead\n\nText\n");
}

TEST_F(UserNotification, Alert_WhenBothFailAtOnce_IsWritten) {
    StandIn("zenity", "exit 1");
    StandIn("kdialog", "kill -9 $$");
    const Answer answer = Show("Head", "Text");
    EXPECT_EQ(answer.response, CFOptionFlags{kCFUserNotificationCancelResponse});
    EXPECT_EQ(answer.errors, "Head\n\nText\n");
}

TEST_F(UserNotification, Alert_ThatIsClosed_IsNotShownAgainButWritten) {
    // Longer than a program takes that cannot show anything.
    StandIn("zenity", "/bin/sleep 1.2; exit 1");
    StandIn("kdialog", "");
    const Answer answer = Show("Head", nullptr);
    EXPECT_EQ(answer.response, CFOptionFlags{kCFUserNotificationCancelResponse});
    EXPECT_EQ(answer.errors, "Head\n");
    EXPECT_EQ(Calls().find("kdialog"), std::string::npos);
}

TEST_F(UserNotification, Alert_WithoutAPlaceForTheAnswer_IsShownAllTheSame) {
    StandIn("zenity", "");
    EXPECT_EQ(CFUserNotificationDisplayAlert(0, 0, nullptr, nullptr, nullptr, CFSTR("Head"),
                                             nullptr, nullptr, nullptr, nullptr, nullptr),
              0);
    EXPECT_EQ(Calls(), "zenity\n--error\n--no-markup\n--title=Head\n--text=Head\n");
}

TEST_F(UserNotification, Alert_WithWhatIsNotOffered_IsRefused) {
    StandIn("zenity", "");
    const CFStringRef text = CFSTR("x");
    const auto url =
        Owned<CFURLRef>(CFURLCreateWithString(nullptr, CFSTR("file:///sound"), nullptr));
    const auto show = [&](CFTimeInterval timeout, CFOptionFlags flags, CFURLRef sound,
                          CFURLRef texts, CFStringRef first, CFStringRef second,
                          CFStringRef third) {
        return CFUserNotificationDisplayAlert(timeout, flags, nullptr, sound, texts, text, text,
                                              first, second, third, nullptr);
    };
    EXPECT_EQ(show(1, 0, nullptr, nullptr, nullptr, nullptr, nullptr), paramErr);
    EXPECT_EQ(show(0, 1 << 5, nullptr, nullptr, nullptr, nullptr, nullptr), paramErr);
    EXPECT_EQ(show(0, 0, url, nullptr, nullptr, nullptr, nullptr), paramErr);
    EXPECT_EQ(show(0, 0, nullptr, url, nullptr, nullptr, nullptr), paramErr);
    EXPECT_EQ(show(0, 0, nullptr, nullptr, text, nullptr, nullptr), paramErr);
    EXPECT_EQ(show(0, 0, nullptr, nullptr, nullptr, text, nullptr), paramErr);
    EXPECT_EQ(show(0, 0, nullptr, nullptr, nullptr, nullptr, text), paramErr);
    EXPECT_EQ(Calls(), "");
}

TEST_F(UserNotification, Alert_WithAnIcon_IsShownWithoutIt) {
    StandIn("zenity", "");
    const auto icon =
        Owned<CFURLRef>(CFURLCreateWithString(nullptr, CFSTR("file:///Icon.icns"), nullptr));
    EXPECT_EQ(CFUserNotificationDisplayAlert(0, 0, icon, nullptr, nullptr, CFSTR("Head"), nullptr,
                                             nullptr, nullptr, nullptr, nullptr),
              0);
    EXPECT_EQ(Calls().find("Icon"), std::string::npos);
}

TEST_F(UserNotification, Alert_WithoutAHeader_Stops) {
    EXPECT_DEATH(CFUserNotificationDisplayAlert(0, 0, nullptr, nullptr, nullptr, nullptr, nullptr,
                                                nullptr, nullptr, nullptr, nullptr),
                 "CFUserNotificationDisplayAlert");
}

}  // namespace
