// Starting programs and opening documents.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <string>

#include "apps/ProcessManager.h"
#include "core/Helpers.h"
#include "unit/ApplicationTesting.h"
#include "unit/support/ForkedTest.h"
#include "unit/support/LaunchAnswer.h"
#include "unit/support/NoDescriptors.h"
#include "unit/support/OwnRoot.h"
#include "unit/support/Waiting.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace fs = std::filesystem;

namespace {

void Quietly(const std::function<void()>& body) {
    InChild([&body] {
        Helpers::logprint("opens the log");
        Printed();
        body();
    });
}

std::wstring Wide(const std::string& utf8) {
    return Helpers::wstringFromUtf8(utf8).c_str();
}

// A program that writes its arguments, each followed by a bar, to the file "ran" and goes on with
// DOES.
std::string MakeProgram(const std::string& name, const std::string& does = {}) {
    const std::string path = Home() + "/" + name;
    applicationtest::WriteProgram(
        path, "#!/bin/sh\nprintf '%s|' \"$@\" >>'" + Home() + "/ran'\n" + does + "\n");
    return path;
}

bool WaitUntilRan() {
    return WaitUntil([] { return Exists(Home() + "/ran"); });
}

TEST(StartProcess, OfNothing_FailsWithTheStatusOfAMissingFileDeliberately) {
    Quietly([] {
        EXPECT_FALSE(ProcessManager::StartProcess(L""));
        EXPECT_FALSE(ProcessManager::StartProcess(Wide(Home() + "/none.txt")));
        EXPECT_THAT(Printed(), ElementsAre("Unable to start application, error -43", "fnfErr",
                                           "Unable to open document, error -43", "fnfErr"));
    });
}

TEST(StartProcessWithArguments, RunsFolderAndNameTogetherAndReturnsWhenItHasClosedItsOutput) {
    Quietly([] {
        MakeProgram("my program", "sleep 0.2; echo >'" + Home() + "/done'; echo output");
        EXPECT_TRUE(ProcessManager::StartProcessWithArguments(Wide(Home() + "/my"), L" program",
                                                              L"-a 'b c' \"$((1 + 1))\""));
        EXPECT_TRUE(Exists(Home() + "/done"));
        // The arguments are the shell's to read.
        EXPECT_EQ("-a|b c|2|", ReadFile(Home() + "/ran"));
        EXPECT_THAT(Printed(), ElementsAre("ProcessOpenManager::open : ''" + Home() +
                                               "/my program' -a 'b c' \"$((1 + 1))\"'",
                                           "received: "));
    });
}

TEST(StartProcessWithArguments, WhoseShellCannotBeStarted_SucceedsDeliberately) {
    Quietly([] {
        const std::string program = MakeProgram("program");
        const NoDescriptors none;
        EXPECT_TRUE(ProcessManager::StartProcessWithArguments(Wide(program), L"-a"));
        const std::string line = "'" + program + "' -a";
        EXPECT_THAT(Printed(),
                    ElementsAre("ProcessOpenManager::open : '" + line + "'",
                                "Error : can not open stream from command '" + line + "'",
                                "Fallback failed."));
        EXPECT_FALSE(Exists(Home() + "/ran"));
    });
}

TEST(StartProcessWithArguments, WithoutArguments_LaunchesAndDoesNotWait) {
    Quietly([] {
        MakeProgram("program", "sleep 0.2; echo >'" + Home() + "/done'");
        EXPECT_TRUE(
            ProcessManager::StartProcessWithArguments(Wide(Home()) + L"/", L"program", L""));
        EXPECT_FALSE(Exists(Home() + "/done"));
        EXPECT_TRUE(WaitUntilRan());
        EXPECT_THAT(Printed(), IsEmpty());
        EXPECT_TRUE(WaitUntil([] { return Exists(Home() + "/done"); }));
    });
}

TEST(StartProcessWithArguments, WhenLaunchServicesIsGone_RunsItThroughTheShellAndDoesNotWait) {
    Quietly([] {
        const std::string program =
            MakeProgram("Gr??e", "sleep 0.2; echo >'" + Home() + "/done'; echo output");
        LetLaunchingAnswer(kLSServerCommunicationErr);
        EXPECT_TRUE(
            ProcessManager::StartProcessWithArguments(Wide(Home() + "/"), L"Gr\u00F6\u00DFe", L""));
        EXPECT_FALSE(Exists(Home() + "/done"));
        EXPECT_THAT(Printed(), ElementsAre("Unable to start application, error -10822",
                                           "kLSServerCommunicationErr",
                                           "Attempting low-level fallback (no unicode support)",
                                           "ProcessOpenManager::open : ''" + program + "''"));
        EXPECT_TRUE(WaitUntil([] { return Exists(Home() + "/done"); }));
        EXPECT_EQ("|", ReadFile(Home() + "/ran"));
    });
}

TEST(StartProcessWithArguments, WhenTheShellIsGoneAsWell_Fails) {
    Quietly([] {
        const std::string program = MakeProgram("program");
        LetLaunchingAnswer(kLSServerCommunicationErr);
        const NoDescriptors none;
        EXPECT_FALSE(ProcessManager::StartProcessWithArguments(Wide(program), L""));
        EXPECT_THAT(
            Printed(),
            ElementsAre("Unable to start application, error -10822", "kLSServerCommunicationErr",
                        "Attempting low-level fallback (no unicode support)",
                        "ProcessOpenManager::open : ''" + program + "''",
                        "Error : can not open stream from command ''" + program + "''",
                        "Fallback failed."));
        EXPECT_FALSE(Exists(Home() + "/ran"));
    });
}

TEST(StartProcessWithArguments, WithAnyOtherError_FailsWithoutTheShell) {
    Quietly([] {
        const std::string program = MakeProgram("program");
        for (const OSStatus status : {OSStatus{kLSUnknownErr}, OSStatus{kLSNoExecutableErr}}) {
            LetLaunchingAnswer(status);
            EXPECT_FALSE(ProcessManager::StartProcessWithArguments(Wide(program), L""));
            EXPECT_THAT(Printed(),
                        ElementsAre("Unable to start application, error " + std::to_string(status),
                                    GetMacOSStatusErrorString(status)));
        }
        EXPECT_FALSE(Exists(Home() + "/ran"));
    });
}

TEST(OpenDocument, WhenLaunchServicesIsGone_FailsWithoutTheShell) {
    Quietly([] {
        MakeProgram("text.txt");
        LetLaunchingAnswer(kLSServerCommunicationErr);
        EXPECT_FALSE(ProcessManager::StartProcess(Wide(Home() + "/text.txt")));
        EXPECT_THAT(Printed(), ElementsAre("Unable to open document, error -10822",
                                           "kLSServerCommunicationErr"));
        EXPECT_FALSE(Exists(Home() + "/ran"));
    });
}

TEST(OpenProcessWithArguments, OfAProgramThatReads_DoesNotHang) {
    Quietly([] {
        const std::string program = MakeProgram("program", "cat >/dev/null; echo over");
        EXPECT_TRUE(ProcessManager::OpenProcessWithArguments(Wide(program), L""));
        EXPECT_TRUE(Exists(Home() + "/ran"));
    });
}

TEST(StartApp, WithTwoWords_TellsTheirNumberInTheSameWordsForBoth) {
    Quietly([] {
        EXPECT_FALSE(ProcessManager::StartAirApp({L"startAirApplication", L"Notes"}));
        EXPECT_FALSE(ProcessManager::StartNativeApp({L"x"}));
        const std::string text =
            "ProcessManager::StartAirApp - wrong number of argumets. Expected atleast 3, got ";
        EXPECT_THAT(Printed(), ElementsAre(text + "2", text + "1"));
    });
}

TEST(HotReboot, StartsTheProgramAnewAndEndsWithStatus0) {
    const Outcome outcome = RunForked([] {
        Helpers::setProcessPath(MakeProgram("it's me", "echo started"));
        ProcessManager::HotReboot();
    });
    EXPECT_EQ(0, outcome.status);
    EXPECT_THAT(outcome.output, HasSubstr("[HOTREBOOT] Rebooting into: [HOTREBOOT]\n"));
    EXPECT_THAT(outcome.output, HasSubstr("/it's me\"'\n"));
}

TEST(HotReboot, WithoutAShell_SaysSoAndReturns) {
    const Outcome outcome = RunForked([] {
        Helpers::setProcessPath("/nothing");
        const NoDescriptors none;
        ProcessManager::HotReboot();
        std::printf("returned\n");
    });
    EXPECT_THAT(outcome.output, HasSubstr("returned"));
    EXPECT_THAT(outcome.errors, HasSubstr("Popen: Unable to hotreboot: "));
}

void InARootOfItsOwn(const std::function<void()>& body) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can have an /Applications of its own";
    }
    const Outcome outcome = RunForked([&] {
        if (!EnterARootOfItsOwn(Home())) {
            std::printf("no root of its own\n");
            return;
        }
        unsetenv("DISPLAY");
        unsetenv("WAYLAND_DISPLAY");
        Helpers::logprint("opens the log");
        Printed();
        body();
    });
    EXPECT_EQ(0, outcome.status);
    if (outcome.output.find("no root of its own") != std::string::npos) {
        GTEST_SKIP() << "root may not mount here";
    }
}

constexpr char kDockFolder[] = "//Applications//Tessel Dock//Tessel Dock.app//Contents//MacOS//";

TEST(StartTesselDock, StartsTheDocksExecutableInItsFixedPlace) {
    InARootOfItsOwn([] {
        applicationtest::MakeBundle(
            "/Applications/Tessel Dock/Tessel Dock.app",
            {"com.example.dock", "Tessel Dock", "1", "#!/bin/sh\necho >'" + Home() + "/ran'\n"});
        EXPECT_TRUE(ProcessManager::StartTesselDock(""));
        EXPECT_TRUE(WaitUntilRan());
        EXPECT_THAT(Printed(), ElementsAre("Opening manager at:", kDockFolder));
    });
}

TEST(StartTesselDock, WithArguments_RunsItThroughTheShell) {
    InARootOfItsOwn([] {
        applicationtest::MakeBundle("/Applications/Tessel Dock/Tessel Dock.app",
                                    {"com.example.dock", "Tessel Dock", "1",
                                     "#!/bin/sh\nprintf '%s|' \"$@\" >'" + Home() + "/ran'\n"});
        EXPECT_TRUE(ProcessManager::StartTesselDock("-a b"));
        EXPECT_EQ("-a|b|", ReadFile(Home() + "/ran"));
    });
}

TEST(StartTesselDock, WithoutTheDock_TellsTheUserWhereToGetIt) {
    InARootOfItsOwn([] {
        EXPECT_FALSE(ProcessManager::StartTesselDock(""));
        EXPECT_THAT(Printed(), ElementsAre("Opening manager at:", kDockFolder,
                                           "Unable to start application, error -43", "fnfErr"));
        const std::string told = PrintedErrors();
        EXPECT_THAT(told, HasSubstr("Tessel Dock - Failure"));
        EXPECT_THAT(told,
                    HasSubstr("The Tessel Dock installation is corrupted. Please reinstall the "
                              "application. \n\nYou can find the latest Tessel Dock at: \n"
                              "http://www.example.com/dock/download\n\n"
                              "Our apologies for any inconvenience."));
    });
}

TEST(StartTesselDock, WithoutTheDocksProgram_TellsTheUserWhereToGetIt) {
    InARootOfItsOwn([] {
        const std::string bundle = "/Applications/Tessel Dock/Tessel Dock.app";
        applicationtest::MakeBundle(bundle, {"com.example.dock", "Tessel Dock", "1", ""});
        ASSERT_TRUE(std::filesystem::remove_all(bundle + "/Contents/MacOS") > 0);
        ASSERT_TRUE(std::filesystem::create_directory(bundle + "/Contents/Resources"));
        WriteFile(bundle + "/Contents/Resources/Icon.icns", "icns");
        EXPECT_FALSE(ProcessManager::StartTesselDock(""));
        EXPECT_THAT(PrintedErrors(), HasSubstr("The Tessel Dock installation is corrupted."));
    });
}

}  // namespace
