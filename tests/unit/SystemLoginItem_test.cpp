// In a process of its own for each test: most of them change who the process is. What only root can
// do is tested as root.

#include "core/SystemLoginItem.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "CoreFoundation/RunLoop.h"
#include "HIToolbox/Event.h"
#include "apps/ProcessOpenManager.h"
#include "core/Helpers.h"
#include "core/Owners.h"
#include "unit/support/ForkedTest.h"
#include "unit/support/Kernel.h"
#include "unit/support/Sanitizers.h"
#include "unit/support/Waiting.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// A user that every system has; neither root nor whoever runs the test.
constexpr uid_t kUser = 1;
constexpr char kNoFile[] = "Logfile does not exist, not logging";

bool IsRoot() {
    return getuid() == 0 && geteuid() == 0;
}

// Whether a test may decide who is at the console, and a reason if not.
std::string WhyNobodyCanBePutAtTheConsole() {
    if (!IsRoot()) {
        return "only root can become somebody else";
    }
    if (access("/run/systemd/seats/seat0", F_OK) == 0) {
        return "logind knows better who is at the console";
    }
    if (getpwuid(kUser) == nullptr) {
        return "there is no such user";
    }
    const Outcome console = RunForked([] { std::puts(PutAtTheConsole(kUser) ? "yes" : "no"); });
    return console.output == "yes\n" ? "" : "no console of the test's own to be had here";
}

#define SKIP_UNLESS_SOMEBODY_CAN_BE_PUT_AT_THE_CONSOLE()            \
    do {                                                            \
        const std::string reason = WhyNobodyCanBePutAtTheConsole(); \
        if (!reason.empty()) {                                      \
            GTEST_SKIP() << reason;                                 \
        }                                                           \
    } while (false)

// A process called NAME that does nothing, until the child process that started it ends.
pid_t Launch(const std::string& name) {
    const std::string program = Home() + "/" + name;
    std::error_code error;
    std::filesystem::copy_file("/bin/sleep", program, std::filesystem::copy_options::skip_existing,
                               error);
    EXPECT_FALSE(error) << error.message();
    const char* const words[] = {name.c_str(), "100", nullptr};
    pid_t process = -1;
    EXPECT_EQ(0, posix_spawn(&process, program.c_str(), nullptr, nullptr,
                             const_cast<char* const*>(words), environ));
    return process;
}

void End(pid_t process) {
    kill(process, SIGKILL);
    int status;
    EXPECT_EQ(process, waitpid(process, &status, 0));
}

// Sends the handler an event as the event manager does.
OSStatus Tell(UInt32 kind, pid_t process) {
    const ProcessSerialNumber serialNumber = {0, static_cast<UInt32>(process)};
    OpaqueEventRef event{kEventClassApplication,  kind,          kEventParamProcessID,
                         typeProcessSerialNumber, &serialNumber, sizeof serialNumber};
    return SystemLoginItem::AppLaunchedEventHandler(nullptr, &event, nullptr);
}

std::vector<gid_t> Groups() {
    std::vector<gid_t> groups(static_cast<std::size_t>(getgroups(0, nullptr)));
    getgroups(static_cast<int>(groups.size()), groups.data());
    std::sort(groups.begin(), groups.end());
    return groups;
}

std::vector<gid_t> GroupsInTheDatabase(uid_t uid) {
    const passwd* const entry = getpwuid(uid);
    gid_t groups[64];
    int count = 64;
    EXPECT_NE(-1, getgrouplist(entry->pw_name, entry->pw_gid, groups, &count));
    std::sort(groups, groups + count);
    return std::vector<gid_t>(groups, groups + count);
}

// Holds all that the process is against what user UID ought to be.
void ExpectToBe(uid_t uid) {
    uid_t realUser, effectiveUser, savedUser;
    gid_t realGroup, effectiveGroup, savedGroup;
    ASSERT_EQ(0, getresuid(&realUser, &effectiveUser, &savedUser));
    ASSERT_EQ(0, getresgid(&realGroup, &effectiveGroup, &savedGroup));
    EXPECT_EQ(uid, realUser);
    EXPECT_EQ(uid, effectiveUser);
    EXPECT_EQ(uid, savedUser);
    const gid_t group = getpwuid(uid)->pw_gid;
    EXPECT_EQ(group, realGroup);
    EXPECT_EQ(group, effectiveGroup);
    EXPECT_EQ(group, savedGroup);
    EXPECT_EQ(GroupsInTheDatabase(uid), Groups());
    // And for good.
    EXPECT_EQ(-1, seteuid(0));
    EXPECT_EQ(-1, setuid(0));
    EXPECT_EQ(-1, setegid(0));
    EXPECT_EQ(-1, setreuid(0, 0));
}

std::string IdentityLine(uid_t user, gid_t group, uid_t effectiveUser) {
    return "User id: " + std::to_string(user) + ", group id: " + std::to_string(group) +
           ", real id: " + std::to_string(effectiveUser);
}

// --- As a user

TEST(SystemLoginItem, HasNoTestForTheUIServer) {
    EXPECT_FALSE(SystemLoginItem::IsUIServerRunning());
}

TEST(SystemLoginItem, StartedAsAUser_ReturnsAtOnceAndChangesNothing) {
    InChild([] {
        if (IsRoot()) {
            ASSERT_EQ(0, setgid(kUser));
            ASSERT_EQ(0, setuid(kUser));
        }
        const uid_t user = getuid();
        const std::vector<gid_t> groups = Groups();
        SystemLoginItem::WaitForAndTransformToLoginUser();
        EXPECT_EQ(user, getuid());
        EXPECT_EQ(user, geteuid());
        EXPECT_EQ(groups, Groups());
        // Nothing is logged, so no log file has been looked for.
        EXPECT_THAT(Printed(), ElementsAre(IdentityLine(user, getgid(), user),
                                           "Running as user: do normal stuff."));
        EXPECT_EQ(L"", Helpers::getLastLog());
        EXPECT_EQ("", PrintedErrors());
    });
}

TEST(SystemLoginItem, StartedAsAUserWithRootsRights_IsAUserAllTheSame) {
    if (!IsRoot()) {
        GTEST_SKIP() << "only root can have two users";
    }
    InChild([] {
        ASSERT_EQ(0, setreuid(kUser, 0));
        SystemLoginItem::WaitForAndTransformToLoginUser();
        EXPECT_EQ(kUser, getuid());
        EXPECT_EQ(0u, geteuid());
        EXPECT_THAT(Printed(), ElementsAre(IdentityLine(kUser, getgid(), 0),
                                           "Running as user: do normal stuff."));
    });
}

// --- The launch of applications

TEST(AppLaunchedEventHandler, ShowsTheNameOfWhateverIsLaunched) {
    InChild([] {
        const pid_t process = Launch("Some Program");
        EXPECT_TRUE(WaitUntil([process] {
            PrintedErrors();
            Tell(kEventAppLaunched, process);
            return PrintedErrors() == "Some Program\n";
        }));
        EXPECT_EQ(noErr, Tell(kEventAppLaunched, process));
        EXPECT_THAT(Printed(), IsEmpty());
        End(process);
    });
}

TEST(AppLaunchedEventHandler, OfAProcessThatHasGone_ShowsThatItHasNoName) {
    InChild([] {
        const pid_t process = Launch("Some Program");
        End(process);
        EXPECT_EQ(noErr, Tell(kEventAppLaunched, process));
        EXPECT_EQ("<undefined>\n", PrintedErrors());
        EXPECT_THAT(Printed(), IsEmpty());
    });
}

TEST(AppLaunchedEventHandler, OfAnotherKindOfEvent_ShowsNothing) {
    InChild([] {
        const pid_t process = Launch("SystemUIServer");
        for (const UInt32 kind : {1u, 4u, 6u}) {
            EXPECT_EQ(noErr, Tell(kind, process));
        }
        EXPECT_EQ("", PrintedErrors());
        EXPECT_THAT(Printed(), IsEmpty());
        End(process);
    });
}

TEST(AppLaunchedEventHandler, KnowsTheUIServerByItsExactName) {
    InChild([] {
        for (const char* const name : {"SystemUIServer2", "systemuiserver", "xSystemUIServer",
                                       "SystemUIServe", "SystemUIServer "}) {
            const pid_t process = Launch(name);
            EXPECT_TRUE(WaitUntil([process, name] {
                PrintedErrors();
                Tell(kEventAppLaunched, process);
                return PrintedErrors() == name + std::string("\n");
            })) << name;
            EXPECT_THAT(Printed(), IsEmpty()) << name;
            End(process);
        }
    });
}

TEST(AppLaunchedEventHandler, OfTheUIServer_LogsTheUserIn) {
    InChild([] {
        const pid_t process = Launch("SystemUIServer");
        // Until the process has become its program.
        EXPECT_TRUE(WaitUntil([process] {
            EXPECT_EQ(noErr, Tell(kEventAppLaunched, process));
            return PrintedErrors() == "SystemUIServer\n";
        }));
        EXPECT_THAT(Printed(), ElementsAre("User logged in (login window), starting copy!", kNoFile,
                                           "User logged in...", kNoFile));
        End(process);
    });
}

// --- Becoming the user at the console

TEST(OnUserLoggedIn, BecomesTheConsoleUserForGood) {
    SKIP_UNLESS_SOMEBODY_CAN_BE_PUT_AT_THE_CONSOLE();
    InChild([] {
        ASSERT_TRUE(PutAtTheConsole(kUser));
        const gid_t many[] = {0, 4, 5};
        ASSERT_EQ(0, setgroups(3, many));
        SystemLoginItem::OnUserLoggedIn();
        ExpectToBe(kUser);
        EXPECT_THAT(Printed(), ElementsAre(kNoFile, "User logged in...", kNoFile));
    });
}

TEST(OnUserLoggedIn, RunsShellCommandsAsTheConsoleUser) {
    SKIP_UNLESS_SOMEBODY_CAN_BE_PUT_AT_THE_CONSOLE();
    InChild([] {
        ASSERT_TRUE(PutAtTheConsole(kUser));
        SystemLoginItem::OnUserLoggedIn();
        std::string output;
        ProcessOpenManager::getInstance()->open("id -u; id -ru; id -G; grep ^Uid /proc/self/status",
                                                "r", &output, false);
        std::string groups;
        for (const gid_t group : GroupsInTheDatabase(kUser)) {
            groups += (groups.empty() ? "" : " ") + std::to_string(group);
        }
        EXPECT_EQ("1\n1\n" + groups + "\nUid:\t1\t1\t1\t1\n", output);
    });
}

TEST(OnUserLoggedIn, WithNobodyAtTheConsole_StaysRoot) {
    SKIP_UNLESS_SOMEBODY_CAN_BE_PUT_AT_THE_CONSOLE();
    InChild([] {
        ASSERT_TRUE(PutAtTheConsole(0));
        const std::vector<gid_t> groups = Groups();
        SystemLoginItem::OnUserLoggedIn();
        EXPECT_EQ(0u, getuid());
        EXPECT_EQ(0u, geteuid());
        EXPECT_EQ(groups, Groups());
        EXPECT_THAT(Printed(), ElementsAre(kNoFile, "User logged in...", kNoFile));
    });
}

TEST(OnUserLoggedIn, AsAUser_GoesOnAsThatUser) {
    InChild([] {
        if (IsRoot()) {
            ASSERT_EQ(0, setgid(kUser));
            ASSERT_EQ(0, setuid(kUser));
        }
        const uid_t user = getuid();
        SystemLoginItem::OnUserLoggedIn();
        EXPECT_EQ(user, getuid());
        EXPECT_EQ(user, geteuid());
        EXPECT_EQ("User logged in...", Printed()[1]);
    });
}

TEST(OnUserLoggedIn, ThatTheSystemRefuses_GoesOn) {
    SKIP_UNLESS_SOMEBODY_CAN_BE_PUT_AT_THE_CONSOLE();
    InChild([] {
        ASSERT_TRUE(PutAtTheConsole(kUser));
        LetFail(SYS_setresuid, EPERM);
        LetFail(SYS_setreuid, EPERM);
        LetFail(SYS_setuid, EPERM);
        SystemLoginItem::OnUserLoggedIn();
        EXPECT_EQ(0u, getuid());
        EXPECT_EQ(0u, geteuid());
        const std::vector<std::string> lines = Printed();
        EXPECT_EQ("User logged in...", lines[1]);
        EXPECT_EQ(kNoFile, lines.back());
    });
}

TEST(OnUserLoggedIn, LogsBeforeTheSwitchIntoRootsFile) {
    SKIP_UNLESS_SOMEBODY_CAN_BE_PUT_AT_THE_CONSOLE();
    InChild([] {
        const std::string log = Home() + "/tesselLog.txt";
        WriteFile(log, "");
        const int file = open(log.c_str(), O_RDONLY | O_CLOEXEC);
        ASSERT_TRUE(PutAtTheConsole(kUser));
        SystemLoginItem::OnUserLoggedIn();
        Helpers::logprint("after the switch");
        char text[1000] = "";
        const ssize_t length = read(file, text, sizeof text - 1);
        ASSERT_GT(length, 0);
        const std::string tag = Helpers::getSessionId();
        EXPECT_EQ(tag + " - Log file initialization succeeded.\n" + tag + " - User logged in...\n",
                  std::string(text));
        // The user's home has none.
        EXPECT_THAT(Printed(), ElementsAre("Log file initialization succeeded.",
                                           "User logged in...", kNoFile, "after the switch"));
    });
}

// --- The whole way

TEST(SystemLoginItem, WithAnotherEffectiveUser_SwitchesAtOnceWithoutWaiting) {
    SKIP_UNLESS_SOMEBODY_CAN_BE_PUT_AT_THE_CONSOLE();
    InChild([] {
        ASSERT_TRUE(PutAtTheConsole(kUser));
        constexpr uid_t kOther = 2;
        const gid_t group = getgid();
        ASSERT_EQ(0, setreuid(0, kOther));
        SystemLoginItem::WaitForAndTransformToLoginUser();
        ExpectToBe(kUser);
        EXPECT_THAT(Printed(), ElementsAre(IdentityLine(0, group, kOther), kNoFile,
                                           "Running as normal user, but UID wrong.",
                                           "User logged in...", kNoFile));
        EXPECT_EQ("", PrintedErrors());
    });
}

std::vector<std::string> toLaunch;
std::vector<pid_t> launched;
// What has been shown of launches, and what was to be.
std::string shown;
std::string wanted;

// Launches the programs of toLaunch one after the other, each when the one before has been shown.
void LaunchTheNext(CFRunLoopObserverRef /*observer*/, CFRunLoopActivity /*activity*/,
                   void* /*info*/) {
    shown += PrintedErrors();
    if (shown == wanted && launched.size() < toLaunch.size()) {
        const std::string& name = toLaunch[launched.size()];
        wanted += name + "\n";
        launched.push_back(Launch(name));
    }
}

// Runs BODY in a process that sees no others but its own, with PROGRAMS launched one after
// the other as soon as a run loop waits for them.
void WithLaunches(const std::vector<std::string>& programs, const std::function<void()>& body) {
    InChild([&] {
        ASSERT_TRUE(LeaveTheProcessTable());
        InChild([&] {
            ASSERT_TRUE(EnterTheNewProcessTable());
            toLaunch = programs;
            const auto observer = CFOwner<CFRunLoopObserverRef>::Adopt(CFRunLoopObserverCreate(
                kCFAllocatorDefault, kCFRunLoopBeforeWaiting, true, 0, LaunchTheNext, nullptr));
            CFRunLoopAddObserver(CFRunLoopGetCurrent(), observer.Get(), kCFRunLoopCommonModes);
            body();
        });
    });
}

TEST(SystemLoginItem, StartedAsRoot_WaitsForTheUIServerThroughOtherLaunches) {
    SKIP_WHERE_ADDRESSES_ARE_WATCHED();
    SKIP_UNLESS_SOMEBODY_CAN_BE_PUT_AT_THE_CONSOLE();
    WithLaunches({"One Program", "SystemUIServer2", "SystemUIServer"}, [] {
        ASSERT_TRUE(PutAtTheConsole(0));
        SystemLoginItem::WaitForAndTransformToLoginUser();
        EXPECT_EQ(3u, launched.size());
        EXPECT_THAT(Printed(), ElementsAre(IdentityLine(0, getgid(), 0),
                                           "Running as root: check for UI Server.",
                                           "Waiting for UI Server to start.",
                                           "User logged in (login window), starting copy!", kNoFile,
                                           "User logged in...", kNoFile));
        shown += PrintedErrors();
        EXPECT_THAT(Lines(shown), ElementsAre("One Program", "SystemUIServer2", "SystemUIServer",
                                              "Performed user switch (from root to normal user)"));
    });
}

TEST(SystemLoginItem, StartedAsRoot_BecomesTheUserWhoHasLoggedIn) {
    SKIP_WHERE_ADDRESSES_ARE_WATCHED();
    SKIP_UNLESS_SOMEBODY_CAN_BE_PUT_AT_THE_CONSOLE();
    WithLaunches({"SystemUIServer"}, [] {
        ASSERT_TRUE(PutAtTheConsole(kUser));
        SystemLoginItem::WaitForAndTransformToLoginUser();
        ExpectToBe(kUser);
        EXPECT_EQ("User logged in (login window), starting copy!", Printed()[3]);
        EXPECT_EQ("SystemUIServer\nPerformed user switch (from root to normal user)\n",
                  shown + PrintedErrors());
    });
}

// Passes of the loop that the servers run in.
int passes = 0;

// Tells of the user interface server's launch once more, and in the next pass ends the loop.
void LaunchOnceMoreThenQuit(CFRunLoopObserverRef /*observer*/, CFRunLoopActivity /*activity*/,
                            void* /*info*/) {
    ++passes;
    if (passes == 1) {
        Tell(kEventAppLaunched, launched.back());
        __CFRunLoop::Main().Wake();
    } else {
        QuitApplicationEventLoop();
    }
}

TEST(SystemLoginItem, ASecondUIServerAfterTheSwitch_EndsNoOtherLoop) {
    SKIP_WHERE_ADDRESSES_ARE_WATCHED();
    SKIP_UNLESS_SOMEBODY_CAN_BE_PUT_AT_THE_CONSOLE();
    WithLaunches({"SystemUIServer"}, [] {
        ASSERT_TRUE(PutAtTheConsole(kUser));
        SystemLoginItem::WaitForAndTransformToLoginUser();
        Printed();
        const auto observer = CFOwner<CFRunLoopObserverRef>::Adopt(
            CFRunLoopObserverCreate(kCFAllocatorDefault, kCFRunLoopBeforeWaiting, true, 0,
                                    LaunchOnceMoreThenQuit, nullptr));
        CFRunLoopAddObserver(CFRunLoopGetCurrent(), observer.Get(), kCFRunLoopCommonModes);
        RunApplicationEventLoop();
        EXPECT_GE(passes, 2) << "the launch has ended it";
        EXPECT_EQ("User logged in (login window), starting copy!", Printed()[0]);
        ExpectToBe(kUser);
    });
}

}  // namespace
