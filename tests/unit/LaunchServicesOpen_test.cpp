// Launch Services: launching applications and opening documents. xdg-open is a stand-in in a folder
// that is the whole search path; it writes down how it was called.

#include <CarbonCore/MacErrors.h>
#include <CoreFoundation/CoreFoundation.h>
#include <LaunchServices/LSInfo.h>
#include <LaunchServices/LSOpen.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "unit/ApplicationTesting.h"
#include "unit/FilesTesting.h"
#include "unit/support/Waiting.h"

namespace {

namespace fs = std::filesystem;

using applicationtest::Bundle;
using applicationtest::IsRunning;
using applicationtest::MakeBundle;
using applicationtest::MakeFolder;
using applicationtest::Programs;
using applicationtest::ReadWhole;
using applicationtest::RefOf;
using applicationtest::StayingProgram;
using applicationtest::WriteProgram;
using filestest::TemporaryFolder;
using filestest::WriteFile;

constexpr FSRef kEmptyRef = {};

OSStatus Launch(const FSRef& ref) {
    const LSLaunchFSRefSpec launch = {
        &ref, 0, nullptr, nullptr, kLSLaunchDefaults | kLSLaunchDontAddToRecents, nullptr};
    return LSOpenFromRefSpec(&launch, nullptr);
}

OSStatus Launch(const std::string& path) {
    return Launch(RefOf(path));
}

OSStatus OpenDocuments(const std::vector<FSRef>& documents) {
    const LSLaunchFSRefSpec launch = {nullptr, documents.size(),  documents.data(),
                                      nullptr, kLSLaunchDefaults, nullptr};
    return LSOpenFromRefSpec(&launch, nullptr);
}

OSStatus OpenApplication(const FSRef& ref) {
    LSApplicationParameters parameters = {};
    parameters.flags = kLSLaunchDefaults;
    parameters.application = &ref;
    return LSOpenApplication(&parameters, nullptr);
}

OSStatus OpenAnything(const FSRef& ref) {
    return LSOpenFSRef(&ref, nullptr);
}

void ExpectNoChildren() {
    siginfo_t child;
    EXPECT_EQ(waitid(P_ALL, 0, &child, WEXITED | WNOHANG | WNOWAIT), -1);
    EXPECT_EQ(errno, ECHILD);
}

class LaunchServicesOpen : public testing::Test {
  protected:
    LaunchServicesOpen() : programs(folder.Path()), path("PATH", (folder / "bin").c_str()) {
        MakeFolder(folder / "bin");
    }

    // A bundle whose program stays, and is called NAME.
    std::string StayingBundle(const std::string& name) const {
        const std::string bundle = folder / name + ".app";
        MakeBundle(bundle, {"com.example.stays", name, "1", StayingProgram(folder.Path())});
        return bundle;
    }

    // A bundle whose program writes the file "ran" and ends.
    std::string ShortBundle(const std::string& name, const std::string& executable) const {
        const std::string bundle = folder / name + ".app";
        MakeBundle(bundle, {"com.example.short", executable, "1",
                            "#!/bin/sh\necho \"$0\" >> '" + folder / "ran" + "'\n"});
        return bundle;
    }
    // Waits until a program of ShortBundle has run COUNT times; what it was called.
    std::string Ran(std::size_t count = 1) const {
        const auto lines = [this] {
            const std::string text = ReadWhole(folder / "ran");
            return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
        };
        EXPECT_TRUE(WaitUntil([&] { return lines() >= count; }));
        EXPECT_EQ(lines(), count);
        return ReadWhole(folder / "ran");
    }

    void StandInForXdgOpen(const std::string& body) const {
        WriteProgram(folder / "bin/xdg-open", "#!/bin/sh\nprintf '%s|' \"$@\" >> '" +
                                                  folder / "calls" + "'\necho noise\n" + body +
                                                  "\n");
    }
    std::string Calls() const { return ReadWhole(folder / "calls"); }

    const TemporaryFolder folder;
    const Programs programs;
    const filestest::Environment path;
};

TEST_F(LaunchServicesOpen, Launch_RunsTheExecutableThatTheBundleNames) {
    const std::string bundle = ShortBundle("One", "it's a \"program\" \xC3\xA9");
    EXPECT_EQ(Launch(bundle), noErr);
    EXPECT_EQ(Ran(), bundle + "/Contents/MacOS/it's a \"program\" \xC3\xA9\n");
}

TEST_F(LaunchServicesOpen, Launch_OfABundleThatNamesNone_RunsTheOneCalledLikeIt) {
    const std::string bundle = ShortBundle("With Blanks", "");
    EXPECT_EQ(Launch(bundle), noErr);
    EXPECT_EQ(Ran(), bundle + "/Contents/MacOS/With Blanks\n");
    fs::remove(bundle + "/Contents/Info.plist");
    EXPECT_EQ(Launch(bundle), noErr);
    Ran(2);
    WriteFile(bundle + "/Contents/Info.plist", "broken");
    EXPECT_EQ(Launch(bundle), noErr);
    Ran(3);
}

TEST_F(LaunchServicesOpen, EveryWayToOpenAnApplication_LaunchesIt) {
    const std::string bundle = ShortBundle("One", "Program");
    EXPECT_EQ(OpenApplication(RefOf(bundle)), noErr);
    Ran(1);
    EXPECT_EQ(OpenAnything(RefOf(bundle)), noErr);
    Ran(2);
    EXPECT_EQ(Launch(bundle), noErr);
    Ran(3);
}

TEST_F(LaunchServicesOpen, Launch_OfAProgramWithoutABundle_RunsItEveryTime) {
    WriteProgram(folder / "program", StayingProgram(folder.Path()));
    EXPECT_EQ(Launch(folder / "program"), noErr);
    ASSERT_TRUE(programs.Wait(1));
    EXPECT_EQ(Launch(folder / "program"), noErr);
    EXPECT_TRUE(programs.Wait(2));
}

TEST_F(LaunchServicesOpen, Launch_OfABundlesExecutable_LaunchesTheBundle) {
    const std::string bundle = StayingBundle("Dock");
    EXPECT_EQ(Launch(folder.Path() + "//Dock.app//Contents//MacOS//Dock"), noErr);
    ASSERT_TRUE(programs.Wait(1));
    EXPECT_EQ(Launch(bundle), noErr);
    EXPECT_EQ(Launch(bundle + "/Contents/MacOS/Dock"), noErr);
    EXPECT_EQ(programs.Pids().size(), 1u);
}

TEST_F(LaunchServicesOpen, Launch_OfAnotherProgramInABundle_RunsIt) {
    const std::string bundle = StayingBundle("Dock");
    WriteProgram(bundle + "/Contents/MacOS/helper", StayingProgram(folder.Path()));
    EXPECT_EQ(Launch(bundle), noErr);
    ASSERT_TRUE(programs.Wait(1));
    EXPECT_EQ(Launch(bundle + "/Contents/MacOS/helper"), noErr);
    EXPECT_TRUE(programs.Wait(2));
}

TEST_F(LaunchServicesOpen, Launch_OfWhatIsRunning_StartsNoSecondOne) {
    const std::string bundle = StayingBundle("One");
    EXPECT_EQ(Launch(bundle), noErr);
    ASSERT_TRUE(programs.Wait(1));
    EXPECT_EQ(Launch(bundle), noErr);
    EXPECT_EQ(OpenApplication(RefOf(bundle)), noErr);
    EXPECT_EQ(OpenAnything(RefOf(bundle)), noErr);
    EXPECT_EQ(programs.Pids().size(), 1u);
    EXPECT_TRUE(IsRunning(programs.Pids().front()));
}

TEST_F(LaunchServicesOpen, Launch_RightAfterItWasKilled_StartsItAgain) {
    const std::string bundle = StayingBundle("One");
    for (std::size_t round = 1; round <= 20; ++round) {
        ASSERT_EQ(Launch(bundle), noErr);
        ASSERT_TRUE(programs.Wait(round));
        for (const pid_t pid : programs.Pids()) {
            kill(pid, SIGKILL);
        }
    }
}

TEST_F(LaunchServicesOpen, Launch_OfAProgramThatDiesAtOnce_SucceedsAndLeavesNoChild) {
    MakeBundle(folder / "One.app", {"com.example.one", "Program", "1", "#!/bin/sh\nkill -9 $$\n"});
    for (int round = 0; round < 10; ++round) {
        EXPECT_EQ(Launch(folder / "One.app"), noErr);
    }
    ExpectNoChildren();
}

TEST_F(LaunchServicesOpen, Launch_LeavesAProgramThatIsNobodysChildHere) {
    const std::string bundle = StayingBundle("One");
    ASSERT_EQ(Launch(bundle), noErr);
    ExpectNoChildren();
    ASSERT_TRUE(programs.Wait(1));
    const pid_t pid = programs.Pids().front();
    EXPECT_NE(getsid(pid), getsid(0));
    kill(pid, SIGKILL);
    EXPECT_TRUE(WaitUntil([&] { return !IsRunning(pid); }));
    ExpectNoChildren();
}

TEST_F(LaunchServicesOpen, Launch_GivesTheProgramTheUsersEnvironment) {
    const filestest::Environment home("HOME", folder.Path().c_str());
    const filestest::Environment mark("UNIT_TEST_MARK", "a b");
    const filestest::Environment notify("NOTIFY_SOCKET", "/run/x");
    MakeBundle(
        folder / "One.app",
        {"com.example.one", "Program", "1",
         "#!/bin/sh\necho \"$HOME|$UNIT_TEST_MARK|$NOTIFY_SOCKET|$PWD\" > '" + folder / "new" +
             "'\n/bin/mv '" + folder / "new" + "' '" + folder / "told" + "'\n"});
    ASSERT_EQ(Launch(folder / "One.app"), noErr);
    EXPECT_TRUE(WaitUntil([this] { return fs::exists(folder / "told"); }));
    EXPECT_EQ(ReadWhole(folder / "told"), folder.Path() + "|a b||/\n");
}

TEST_F(LaunchServicesOpen, Launch_OfABundleWithoutItsExecutable_SaysSo) {
    MakeBundle(folder / "None.app", {"com.example.none", "Program", "1", ""});
    MakeBundle(folder / "Away.app", {"com.example.away", "../../../bin/sh", "1", ""});
    MakeBundle(folder / "Dots.app", {"com.example.dots", "..", "1", ""});
    MakeFolder(folder / "Empty.app");
    for (const char* const name : {"None.app", "Away.app", "Dots.app", "Empty.app"}) {
        EXPECT_EQ(Launch(folder / name), kLSNoExecutableErr) << name;
    }
}

TEST_F(LaunchServicesOpen, Launch_OfAnExecutableThatCannotRun_SaysWhy) {
    MakeBundle(folder / "Closed.app", {"com.example.closed", "Program", "1", "#!/bin/sh\n"});
    fs::permissions(folder / "Closed.app/Contents/MacOS/Program", fs::perms::owner_read);
    MakeBundle(folder / "Formless.app", {"com.example.formless", "Program", "1", "no program"});
    MakeFolder(folder / "Folder.app/Contents/MacOS/Folder");
    EXPECT_EQ(Launch(folder / "Closed.app"), kLSNoLaunchPermissionErr);
    EXPECT_EQ(Launch(folder / "Formless.app"), kLSExecutableIncorrectFormat);
    EXPECT_EQ(Launch(folder / "Folder.app"), kLSNoLaunchPermissionErr);
    ExpectNoChildren();
}

TEST_F(LaunchServicesOpen, Launch_OfWhatIsNoApplication_SaysSo) {
    MakeFolder(folder / "folder");
    WriteFile(folder / "text", "text");
    EXPECT_EQ(Launch(folder / "folder"), kLSNotAnApplicationErr);
    EXPECT_EQ(Launch(folder / "text"), kLSNotAnApplicationErr);
}

TEST_F(LaunchServicesOpen, Launch_OfABundleInTheTrash_IsRefused) {
    MakeFolder(folder / ".local/share/Trash/files");
    const std::string bundle = ShortBundle("One", "Program");
    const std::string trashed = folder / ".local/share/Trash/files/One.app";
    fs::rename(bundle, trashed);
    EXPECT_EQ(Launch(trashed), kLSAppInTrashErr);
    EXPECT_FALSE(fs::exists(folder / "ran"));
}

TEST_F(LaunchServicesOpen, ReferencesToNothing_AreNotFound) {
    FSRef garbage;
    std::fill(std::begin(garbage.hidden), std::end(garbage.hidden), UInt8{0x5A});
    const FSRef gone = RefOf(ShortBundle("One", "Program"));
    fs::remove_all(folder / "One.app");
    for (const FSRef& ref : {kEmptyRef, garbage, gone}) {
        EXPECT_EQ(Launch(ref), fnfErr);
        EXPECT_EQ(OpenApplication(ref), fnfErr);
        EXPECT_EQ(OpenAnything(ref), fnfErr);
        EXPECT_EQ(OpenDocuments({ref}), fnfErr);
    }
}

TEST_F(LaunchServicesOpen, WhatIsNotOffered_IsRefused) {
    const FSRef ref = RefOf(ShortBundle("One", "Program"));
    FSRef launched = {};
    AEDesc parameters = {};
    const LSLaunchFSRefSpec good = {&ref, 0, nullptr, nullptr, kLSLaunchDefaults, nullptr};
    const auto open = [&](const auto& change) {
        LSLaunchFSRefSpec launch = good;
        change(launch);
        return LSOpenFromRefSpec(&launch, nullptr);
    };
    EXPECT_EQ(open([](LSLaunchFSRefSpec& launch) { launch.appRef = nullptr; }), paramErr);
    EXPECT_EQ(open([&](LSLaunchFSRefSpec& launch) {
                  launch.numDocs = 1;
                  launch.itemRefs = &ref;
              }),
              paramErr);
    EXPECT_EQ(open([](LSLaunchFSRefSpec& launch) {
                  launch.appRef = nullptr;
                  launch.numDocs = 1;
              }),
              paramErr);
    EXPECT_EQ(open([&](LSLaunchFSRefSpec& launch) { launch.passThruParams = &parameters; }),
              paramErr);
    EXPECT_EQ(open([](LSLaunchFSRefSpec& launch) { launch.launchFlags = 0x00080000; }), paramErr);
    EXPECT_EQ(LSOpenFromRefSpec(&good, &launched), paramErr);
    EXPECT_EQ(LSOpenFromRefSpec(nullptr, nullptr), paramErr);
    EXPECT_EQ(LSOpenFSRef(nullptr, nullptr), paramErr);
    EXPECT_EQ(LSOpenFSRef(&ref, &launched), paramErr);

    const auto openApplication = [&](const auto& change) {
        LSApplicationParameters application = {};
        application.flags = kLSLaunchDefaults;
        application.application = &ref;
        change(application);
        return LSOpenApplication(&application, nullptr);
    };
    EXPECT_EQ(openApplication([](LSApplicationParameters& it) { it.version = 1; }), paramErr);
    EXPECT_EQ(openApplication([](LSApplicationParameters& it) { it.flags = 2; }), paramErr);
    EXPECT_EQ(openApplication([](LSApplicationParameters& it) { it.application = nullptr; }),
              paramErr);
    EXPECT_EQ(openApplication([&](LSApplicationParameters& it) { it.initialEvent = &parameters; }),
              paramErr);
    EXPECT_EQ(LSOpenApplication(nullptr, nullptr), paramErr);
    EXPECT_FALSE(fs::exists(folder / "ran"));
}

TEST_F(LaunchServicesOpen, OpenDocument_HandsItsPathToXdgOpen) {
    StandInForXdgOpen("");
    const std::string name = "it's a \"letter\" $HOME\nM\xC3\xBCnchen.txt";
    WriteFile(folder / name, "text");
    EXPECT_EQ(OpenDocuments({RefOf(folder / name)}), noErr);
    EXPECT_EQ(Calls(), folder / name + "|");
    ExpectNoChildren();
}

TEST_F(LaunchServicesOpen, OpenDocument_OfSeveral_OpensEachUntilOneFails) {
    StandInForXdgOpen("[ \"${1%bad}\" = \"$1\" ] || exit 4");
    for (const char* const name : {"a", "b", "bad", "c"}) {
        WriteFile(folder / name);
    }
    const auto ref = [this](const char* name) { return RefOf(folder / name); };
    EXPECT_EQ(OpenDocuments({ref("a"), ref("b")}), noErr);
    EXPECT_EQ(Calls(), folder / "a" + "|" + folder / "b" + "|");
    EXPECT_EQ(OpenDocuments({ref("bad"), ref("c")}), kLSApplicationNotFoundErr);
    EXPECT_EQ(Calls(), folder / "a" + "|" + folder / "b" + "|" + folder / "bad" + "|");
}

TEST_F(LaunchServicesOpen, OpenDocument_OfAnApplication_LaunchesIt) {
    const std::string bundle = ShortBundle("One", "Program");
    EXPECT_EQ(OpenDocuments({RefOf(bundle + "/")}), noErr);
    EXPECT_EQ(Ran(), bundle + "/Contents/MacOS/Program\n");
}

TEST_F(LaunchServicesOpen, OpenDocument_ThatIsMarkedExecutable_IsOpenedAndNotRun) {
    StandInForXdgOpen("exit 0");
    WriteProgram(folder / "letter.txt", "#!/bin/sh\necho ran > '" + folder / "ran" + "'\n");
    EXPECT_EQ(OpenDocuments({RefOf(folder / "letter.txt")}), noErr);
    EXPECT_EQ(Calls(), folder / "letter.txt|");
    EXPECT_FALSE(fs::exists(folder / "ran"));
}

TEST_F(LaunchServicesOpen, OpenDocument_ThatFails_SaysWhy) {
    WriteFile(folder / "text");
    const FSRef text = RefOf(folder / "text");
    const auto endingWith = [&](const char* body) {
        StandInForXdgOpen(body);
        return OpenDocuments({text});
    };
    EXPECT_EQ(endingWith("exit 2"), fnfErr);
    EXPECT_EQ(endingWith("exit 3"), kLSApplicationNotFoundErr);
    EXPECT_EQ(endingWith("exit 4"), kLSApplicationNotFoundErr);
    EXPECT_EQ(endingWith("kill -9 $$"), kLSApplicationNotFoundErr);
}

TEST_F(LaunchServicesOpen, OpenDocument_WithoutXdgOpen_SaysThatThereIsNobodyToAsk) {
    WriteFile(folder / "text");
    EXPECT_EQ(OpenDocuments({RefOf(folder / "text")}), kLSServerCommunicationErr);
}

TEST_F(LaunchServicesOpen, OpenDocument_WhenXdgOpenStays_DoesNotWaitForIt) {
    StandInForXdgOpen("echo $$ > '" + folder.Path() + "/pid'; exec /bin/sleep 60");
    WriteFile(folder / "text");
    // This takes the three seconds that are given to it.
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(OpenDocuments({RefOf(folder / "text")}), noErr);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
    ASSERT_TRUE(programs.Wait(1));
    EXPECT_TRUE(IsRunning(programs.Pids().front()));
}

// A signal in the middle of the waiting made it wait without an end.
TEST_F(LaunchServicesOpen, OpenDocument_WhenXdgOpenStaysAndASignalComes_DoesNotWaitForItEither) {
    StandInForXdgOpen("echo $$ > '" + folder.Path() + "/pid'; exec /bin/sleep 60");
    WriteFile(folder / "text");
    struct sigaction before;
    struct sigaction interrupting = {};
    interrupting.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGALRM, &interrupting, &before), 0);
    // Once: a second signal would have ended the reading as well.
    const itimerval once = {{0, 0}, {1, 0}};
    ASSERT_EQ(setitimer(ITIMER_REAL, &once, nullptr), 0);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(OpenDocuments({RefOf(folder / "text")}), noErr);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
    EXPECT_EQ(sigaction(SIGALRM, &before, nullptr), 0);
    ASSERT_TRUE(programs.Wait(1));
}

TEST_F(LaunchServicesOpen, OpenAnything_OfWhatCannotBeLaunched_OpensItAsADocument) {
    StandInForXdgOpen("");
    MakeFolder(folder / "folder");
    WriteFile(folder / "text");
    EXPECT_EQ(OpenAnything(RefOf(folder / "folder")), noErr);
    EXPECT_EQ(OpenAnything(RefOf(folder / "text")), noErr);
    EXPECT_EQ(Calls(), folder / "folder" + "|" + folder / "text" + "|");
}

}  // namespace
