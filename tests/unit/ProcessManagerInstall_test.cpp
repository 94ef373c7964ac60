// Installing applications made for Adobe AIR. The waits take no time; /Applications and /Library
// are the test's own, where root runs it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "apps/ProcessManager.h"
#include "core/Helpers.h"
#include "unit/ApplicationTesting.h"
#include "unit/support/ForkedTest.h"
#include "unit/support/NoDescriptors.h"
#include "unit/support/OwnRoot.h"
#include "unit/support/Sleeping.h"

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace fs = std::filesystem;

namespace {

void Quietly(const std::function<void()>& body) {
    InChild([&body] {
        Helpers::logprint("opens the log");
        Printed();
        body();
    });
}

std::string Apps() {
    return ProcessManager::airAppInstallLocation;
}

applicationtest::Bundle Notes() {
    applicationtest::Bundle bundle;
    bundle.identifier = "com.example.notes";
    return bundle;
}

void MakeNotes(const std::string& name = "Notes") {
    applicationtest::MakeBundle(Apps() + name + ".app", Notes());
}

// With an installer that counts its runs in the file "runs" of the home and goes on with DOES.
void WithAnInstaller(const std::string& does, const std::function<void()>& body) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can have an /Applications of its own";
    }
    const Outcome outcome = RunForked([&] {
        if (!EnterARootOfItsOwn(Home())) {
            std::printf("no root of its own\n");
            return;
        }
        const std::string installer = Helpers::wstringToString(ProcessManager::installManager);
        fs::create_directories(fs::path(installer).parent_path());
        applicationtest::WriteProgram(installer,
                                      "#!/bin/sh\necho >>'" + Home() + "/runs'\n" + does);
        WriteFile(Home() + "/Notes.air", "");
        fs::create_directories(Apps());
        SleepQuickly();
        Helpers::logprint("opens the log");
        Printed();
        body();
    });
    EXPECT_EQ(0, outcome.status);
    if (outcome.output.find("no root of its own") != std::string::npos) {
        GTEST_SKIP() << "root may not mount here";
    }
}

bool Install(bool elevationAllowed = true) {
    return ProcessManager::InstallAirApplication(L"Notes", L"com.example.notes",
                                                 Home() + "/Notes.air", elevationAllowed);
}

std::size_t Runs() {
    return ReadFile(Home() + "/runs").size();
}

std::size_t CountOf(const std::vector<std::string>& lines, const std::string& line) {
    return static_cast<std::size_t>(std::count(lines.begin(), lines.end(), line));
}

TEST(IsOsAppInstalled, WithoutAName_IsNot) {
    Quietly([] {
        FSRef ref = {};
        EXPECT_EQ(0, ProcessManager::isOsAppInstalled(L"", L"com.example.notes", &ref));
        EXPECT_EQ(0, ProcessManager::isOsAppInstalled(L" ", L"com.example.notes", &ref));
        EXPECT_THAT(Printed(), ElementsAre("isOsAppInstalled: Argument null or empty.",
                                           "isOsAppInstalled: Argument null or empty."));
    });
}

TEST(IsOsAppInstalled, WithoutAnId_IsNot) {
    Quietly([] {
        FSRef ref = {};
        EXPECT_EQ(0, ProcessManager::isOsAppInstalled(L"Notes", L"", &ref));
        EXPECT_THAT(Printed(), ElementsAre("isOsAppInstalled: Second argument missing (App OSID) "
                                           "for widgetNotes"));
    });
}

TEST(IsOsAppInstalled, AsksLaunchServicesForTheId) {
    Quietly([] {
        FSRef ref = {};
        EXPECT_EQ(0, ProcessManager::isOsAppInstalled(L"Notes", L"com.example.notes", &ref));
        const std::string bundle = Home() + "/Applications/Any.app";
        applicationtest::MakeBundle(bundle, Notes());
        EXPECT_EQ(1, ProcessManager::isOsAppInstalled(L"Notes", L"com.example.notes", &ref));
        EXPECT_EQ(fs::canonical(bundle), applicationtest::PathOf(ref));
        EXPECT_THAT(Printed(), ElementsAre("isOsAppInstalled: Not Installed Notes",
                                           "isOsAppInstalled: Installed Notes"));
    });
}

TEST(GenerateAirInstallerArguments, PutsBothPathsBetweenDoubleQuotesAndEscapesNothing) {
    EXPECT_EQ(
        "-silent -eulaAccepted -location \"/Applications/Tessel Dock/Apps/\" \"/it's a \"x\"\"",
        ProcessManager::GenerateAirInstallerArguments("/it's a \"x\""));
}

TEST(InstallAirApplication, ThatTheFirstRunManages_IsNotRunAgain) {
    WithAnInstaller("", [] {
        MakeNotes();
        EXPECT_TRUE(Install());
        EXPECT_EQ(1u, Runs());
        EXPECT_EQ("Application Notes is registered.", Printed().back());
        EXPECT_THAT(Slept(), IsEmpty());
    });
}

TEST(InstallAirApplication, WithElevationNotAllowed_FailsAfterOneRun) {
    WithAnInstaller("", [] {
        EXPECT_FALSE(Install(false));
        EXPECT_EQ(1u, Runs());
        EXPECT_EQ("isOsAppInstalled: Not Installed Notes", Printed().back());
        EXPECT_THAT(Slept(), IsEmpty());
    });
}

TEST(InstallAirApplication, ThatNeverSucceeds_AsksTwentyOneTimesInAHundredSeconds) {
    WithAnInstaller("", [] {
        EXPECT_FALSE(Install());
        // As itself and with an administrator's rights.
        EXPECT_EQ(2u, Runs());
        EXPECT_THAT(Slept(), SizeIs(20));
        EXPECT_THAT(Slept(), Each(5u));
        EXPECT_EQ(1u + 20u + 1u, CountOf(Printed(), "isOsAppInstalled: Not Installed Notes"));
    });
}

TEST(InstallAirApplication, ThatSucceedsMeanwhile_StopsWaiting) {
    WithAnInstaller("", [] {
        SleepQuickly([](std::size_t count) {
            if (count == 3) {
                MakeNotes();
            }
        });
        EXPECT_TRUE(Install());
        EXPECT_THAT(Slept(), SizeIs(3));
        EXPECT_EQ("isOsAppInstalled: Installed Notes", Printed().back());
    });
}

TEST(InstallAirApplication, WhoseShellCannotBeStarted_Fails) {
    WithAnInstaller("", [] {
        const NoDescriptors none;
        EXPECT_FALSE(Install());
        EXPECT_EQ("can not start installer", Printed().back());
    });
}

TEST(TouchTesselApplications, RegistersTheFolderItselfOnceForEveryEntryDeliberately) {
    WithAnInstaller("", [] {
        MakeNotes("One");
        MakeNotes("Two");
        fs::create_directory(Apps() + "empty");
        WriteFile(Apps() + "file", "");
        ProcessManager::TouchTesselApplications();
        std::vector<std::string> printed = Printed();
        ASSERT_THAT(printed, SizeIs(4));
        std::sort(printed.begin(), printed.end());
        // noErr is the status of the folder, in which there is something to register.
        EXPECT_THAT(printed, ElementsAre("Info: folder is: " + Apps() + "One.app",
                                         "Info: folder is: " + Apps() + "Two.app",
                                         "found item registration res: noErr",
                                         "found item registration res: noErr"));
    });
}

TEST(TouchTesselApplications, OfAFolderWithNothingToRegister_SaysSo) {
    WithAnInstaller("", [] {
        fs::create_directories(Apps() + "no application/x");
        ProcessManager::TouchTesselApplications();
        EXPECT_THAT(Printed(),
                    ElementsAre("Info: folder is: " + Apps() + "no application",
                                "found item registration res: kLSNoRegistrationInfoErr"));
    });
}

TEST(TouchTesselApplications, WithoutTheFolder_DoesNothing) {
    WithAnInstaller("", [] {
        fs::remove_all(Apps());
        ProcessManager::TouchTesselApplications();
        WriteFile(Apps().substr(0, Apps().size() - 1), "");
        ProcessManager::TouchTesselApplications();
        EXPECT_THAT(Printed(), IsEmpty());
    });
}

TEST(UpgradeAirApplication, ThatWasNotThere_InstallsItAndWaitsForIt) {
    WithAnInstaller("", [] {
        EXPECT_FALSE(ProcessManager::UpgradeAirApplication(L"Notes", L"com.example.notes",
                                                           Home() + "/Notes.air"));
        EXPECT_EQ(2u, Runs());
        EXPECT_THAT(Slept(), SizeIs(20));
    });
}

}  // namespace
