#include <Carbon/Carbon.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <set>
#include <string>
#include <thread>

#include "CFTestSupport.h"
#include "TemporaryFolder.h"

namespace {

ProcessSerialNumber Number(pid_t pid) {
    return {0, static_cast<UInt32>(pid)};
}

// A child that waits to be ended.
class Child {
  public:
    // Runs PROGRAM, or nothing but this very program when there is none.
    explicit Child(const std::string& program = std::string()) : pid(fork()) {
        EXPECT_NE(pid, -1);
        if (pid != 0) return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (!program.empty()) {
            execl(program.c_str(), program.c_str(), "1000", static_cast<char*>(nullptr));
            _exit(127);
        }
        for (;;)
            pause();
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child() {
        if (!waited && pid > 0) {
            kill(pid, SIGKILL);
            Wait();
        }
    }

    pid_t Pid() const { return pid; }
    int Wait() {
        int status = 0;
        waitpid(pid, &status, 0);
        waited = true;
        return status;
    }
    // Whether the child has become the program called NAME; to the kernel names end after 15 bytes.
    // It has its name a moment before its arguments.
    bool Becomes(const std::string& name) const {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (std::chrono::steady_clock::now() < deadline) {
            if (FirstLineOf("comm") == name.substr(0, 15) && !FirstLineOf("cmdline").empty()) {
                return true;
            }
            std::this_thread::yield();
        }
        return false;
    }

  private:
    std::string FirstLineOf(const std::string& name) const {
        std::ifstream file("/proc/" + std::to_string(pid) + "/" + name);
        std::string line;
        std::getline(file, line);
        return line;
    }

    const pid_t pid;
    bool waited = false;
};

std::set<pid_t> Walk() {
    std::set<pid_t> all;
    ProcessSerialNumber psn = {0, kNoProcess};
    UInt32 before = 0;
    while (GetNextProcess(&psn) == noErr) {
        EXPECT_EQ(psn.highLongOfPSN, 0u);
        EXPECT_GT(psn.lowLongOfPSN, before);
        before = psn.lowLongOfPSN;
        all.insert(static_cast<pid_t>(psn.lowLongOfPSN));
    }
    EXPECT_EQ(psn.lowLongOfPSN, UInt32{kNoProcess});
    return all;
}

ProcessInfoRec NewRecord() {
    ProcessInfoRec info = {};
    info.processInfoLength = sizeof info;
    return info;
}

std::string IdentifierOf(pid_t pid) {
    const ProcessSerialNumber psn = Number(pid);
    const Owned<CFDictionaryRef> information = ProcessInformationCopyDictionary(
        &psn, static_cast<UInt32>(kProcessDictionaryIncludeAllInformationMask));
    if (information == nullptr) return "<no information>";
    const void* const value = CFDictionaryGetValue(information, kCFBundleIdentifierKey);
    return value == nullptr ? "<none>" : TextOf(static_cast<CFStringRef>(value));
}

class ProcessesOfBundles : public ::testing::Test {
  protected:
    // The program's file, which is a copy of sleep(1), or a script.
    std::string MakeApplication(const std::string& name, const std::string& program,
                                const std::string& entries, bool isScript = false) {
        folder.Write(name + ".app/Contents/Info.plist",
                     "<plist version=\"1.0\"><dict>" + entries + "</dict></plist>");
        const std::filesystem::path file = folder.Write(name + ".app/Contents/MacOS/" + program,
                                                        "#!/bin/sh\nwhile :; do sleep 1; done\n");
        if (!isScript) {
            std::filesystem::copy_file("/bin/sleep", file,
                                       std::filesystem::copy_options::overwrite_existing);
        }
        std::filesystem::permissions(file, std::filesystem::perms::owner_all);
        return file.string();
    }

    TemporaryFolder folder;
};

TEST(Processes, Walk_MeetsEveryProcessOnce) {
    const Child child;
    const std::set<pid_t> all = Walk();
    EXPECT_EQ(all.count(getpid()), 1u);
    EXPECT_EQ(all.count(1), 1u);
    EXPECT_EQ(all.count(child.Pid()), 1u);
}

TEST(Processes, Walk_ThatBeginsAnew_SeesWhatIsNew) {
    const std::set<pid_t> before = Walk();
    const Child child;
    EXPECT_EQ(before.count(child.Pid()), 0u);
    EXPECT_EQ(Walk().count(child.Pid()), 1u);
}

TEST(Processes, Walk_MayBeginAnywhere_AndTwoMayTakeTurns) {
    ProcessSerialNumber psn = Number(getpid() - 1);
    ASSERT_EQ(GetNextProcess(&psn), noErr);
    EXPECT_EQ(psn.lowLongOfPSN, static_cast<UInt32>(getpid()));
    ProcessSerialNumber first = {0, kNoProcess};
    ProcessSerialNumber second = {0, kNoProcess};
    ASSERT_EQ(GetNextProcess(&first), noErr);
    ASSERT_EQ(GetNextProcess(&second), noErr);
    EXPECT_EQ(first.lowLongOfPSN, second.lowLongOfPSN);
    ASSERT_EQ(GetNextProcess(&first), noErr);
    ASSERT_EQ(GetNextProcess(&second), noErr);
    EXPECT_EQ(first.lowLongOfPSN, second.lowLongOfPSN);
}

TEST(Processes, Walk_LeavesOutWhatBelongsToAnotherUser_ButNotRoots) {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to become other users";
    const auto becomeAndWait = [](uid_t user) {
        const pid_t pid = fork();
        if (pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            // Nobody may look into it any more: its folder in /proc is root's.
            if (setresuid(user, user, user) != 0 || prctl(PR_SET_DUMPABLE, 0) != 0) _exit(1);
            for (;;)
                pause();
        }
        return pid;
    };
    const pid_t stranger = becomeAndWait(65533);
    const pid_t own = becomeAndWait(65534);
    const pid_t user = fork();
    ASSERT_NE(user, -1);
    if (user == 0) {
        if (setresuid(65534, 65534, 65534) != 0) _exit(2);
        const auto isMet = [](pid_t pid) { return Walk().count(pid) == 1; };
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        // Until it is no longer root's.
        while (isMet(stranger) && std::chrono::steady_clock::now() < deadline) {
        }
        _exit(!isMet(stranger) && isMet(own) && isMet(getpid()) && isMet(getppid()) ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(user, &status, 0), user);
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(Walk().count(stranger), 1u);
    for (const pid_t waiting : {stranger, own}) {
        kill(waiting, SIGKILL);
        waitpid(waiting, &status, 0);
    }
}

TEST(Processes, Walk_WithoutAPlaceForTheNumber_IsRefused) {
    EXPECT_EQ(GetNextProcess(nullptr), paramErr);
}

TEST(Processes, Information_OfAProgram_IsNotInTheBackgroundOnly) {
    const ProcessSerialNumber psn = Number(getpid());
    ProcessInfoRec info = NewRecord();
    info.processMode = 0xFFFFFFFF;
    ASSERT_EQ(GetProcessInformation(&psn, &info), noErr);
    EXPECT_EQ(info.processMode & modeOnlyBackground, 0u);
    EXPECT_EQ(info.processNumber.lowLongOfPSN, psn.lowLongOfPSN);
}

TEST(Processes, Information_WithALengthNameOrFileThatIsNotSupported_IsRefused) {
    const ProcessSerialNumber psn = Number(getpid());
    ProcessInfoRec info = NewRecord();
    info.processInfoLength = 8;
    EXPECT_EQ(GetProcessInformation(&psn, &info), paramErr);
    info = NewRecord();
    unsigned char name[256];
    info.processName = name;
    EXPECT_EQ(GetProcessInformation(&psn, &info), paramErr);
    info = NewRecord();
    FSRef file;
#if defined(__LP64__)
    info.processAppRef = &file;
#else
    info.processAppSpec = reinterpret_cast<struct FSSpec*>(&file);
#endif
    EXPECT_EQ(GetProcessInformation(&psn, &info), paramErr);
    EXPECT_EQ(GetProcessInformation(nullptr, &info), paramErr);
    EXPECT_EQ(GetProcessInformation(&psn, nullptr), paramErr);
    EXPECT_EQ(ProcessInformationCopyDictionary(&psn, 1), nullptr);
    EXPECT_EQ(ProcessInformationCopyDictionary(nullptr, 0xFFFFFFFF), nullptr);
}

TEST(Processes, NumbersOfNoProcess_AreNotFound) {
    Child gone;
    kill(gone.Pid(), SIGKILL);
    gone.Wait();
    for (const ProcessSerialNumber psn :
         {ProcessSerialNumber{0, 0}, ProcessSerialNumber{1, static_cast<UInt32>(getpid())},
          ProcessSerialNumber{0, 0xFFFFFFFF}, ProcessSerialNumber{0, 0x80000000},
          ProcessSerialNumber{0, 0x7FFFFFFF}, Number(gone.Pid())}) {
        ProcessInfoRec info = NewRecord();
        EXPECT_EQ(GetProcessInformation(&psn, &info), procNotFound) << psn.lowLongOfPSN;
        EXPECT_EQ(ProcessInformationCopyDictionary(&psn, 0xFFFFFFFF), nullptr);
        EXPECT_EQ(KillProcess(&psn), procNotFound) << psn.lowLongOfPSN;
    }
}

TEST(Processes, ProcessThatHasEndedButIsNotWaitedFor_IsNotFound) {
    const Child zombie;
    kill(zombie.Pid(), SIGKILL);
    siginfo_t ended;
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(zombie.Pid()), &ended, WEXITED | WNOWAIT), 0);
    const ProcessSerialNumber psn = Number(zombie.Pid());
    ProcessInfoRec info = NewRecord();
    EXPECT_EQ(GetProcessInformation(&psn, &info), procNotFound);
    EXPECT_EQ(KillProcess(&psn), procNotFound);
}

TEST(Processes, KernelThread_IsInTheBackgroundOnly) {
    // The father of them all, where they can be seen.
    std::ifstream file("/proc/2/comm");
    std::string name;
    if (!std::getline(file, name) || name != "kthreadd") GTEST_SKIP() << "no kernel threads here";
    const ProcessSerialNumber psn = Number(2);
    ProcessInfoRec info = NewRecord();
    ASSERT_EQ(GetProcessInformation(&psn, &info), noErr);
    EXPECT_EQ(info.processMode & modeOnlyBackground, UInt32{modeOnlyBackground});
    EXPECT_EQ(ProcessInformationCopyDictionary(&psn, 0xFFFFFFFF), nullptr);
    EXPECT_EQ(KillProcess(&psn), procNotFound);
}

TEST(Processes, KillProcess_EndsItAtOnce) {
    Child child;
    const ProcessSerialNumber psn = Number(child.Pid());
    ASSERT_EQ(KillProcess(&psn), noErr);
    const int status = child.Wait();
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGKILL);
    EXPECT_EQ(KillProcess(nullptr), paramErr);
}

TEST(Processes, KillProcess_OfAnotherUsers_IsRefused) {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to become another user";
    const pid_t user = fork();
    ASSERT_NE(user, -1);
    if (user == 0) {
        if (setresuid(65534, 65534, 65534) != 0) _exit(2);
        const ProcessSerialNumber psn = Number(getppid());
        _exit(KillProcess(&psn) == permErr ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(user, &status, 0), user);
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(ProcessesOfBundles, Identifier_IsThatOfTheBundleAroundTheProgram) {
    const Child child(MakeApplication(
        "Some App", "Some Program", "<key>CFBundleIdentifier</key><string>com.example.a</string>"));
    ASSERT_TRUE(child.Becomes("Some Program"));
    EXPECT_EQ(IdentifierOf(child.Pid()), "com.example.a");
    const ProcessSerialNumber psn = Number(child.Pid());
    ProcessInfoRec info = NewRecord();
    ASSERT_EQ(GetProcessInformation(&psn, &info), noErr);
    EXPECT_EQ(info.processMode & modeOnlyBackground, 0u);
}

TEST_F(ProcessesOfBundles, Identifier_OfABundleWithinABundle_IsThatOfTheInnerOne) {
    MakeApplication("Outer", "outer", "<key>CFBundleIdentifier</key><string>outer</string>");
    const Child child(MakeApplication("Outer.app/Contents/Helpers/Inner", "inner",
                                      "<key>CFBundleIdentifier</key><string>inner</string>"));
    ASSERT_TRUE(child.Becomes("inner"));
    EXPECT_EQ(IdentifierOf(child.Pid()), "inner");
}

TEST_F(ProcessesOfBundles, Identifier_OfAScript_IsThatOfTheBundleAroundTheScript) {
    const std::string script =
        MakeApplication("Script", "a script of many letters",
                        "<key>CFBundleIdentifier</key><string>com.example.script</string>", true);
    const Child child(script);
    ASSERT_TRUE(child.Becomes("a script of many letters"));
    EXPECT_EQ(IdentifierOf(child.Pid()), "com.example.script");
}

TEST_F(ProcessesOfBundles, Identifier_OfAProgramThatWasReplaced_IsStillFound) {
    const std::string program = MakeApplication(
        "Updated", "updated", "<key>CFBundleIdentifier</key><string>com.example.u</string>");
    const Child child(program);
    ASSERT_TRUE(child.Becomes("updated"));
    std::filesystem::remove(program);
    EXPECT_EQ(IdentifierOf(child.Pid()), "com.example.u");
}

TEST_F(ProcessesOfBundles, Identifier_ThatIsMissingOrNoText_IsNotThere) {
    const Child without(MakeApplication("Without", "without", ""));
    const Child odd(
        MakeApplication("Odd", "odd", "<key>CFBundleIdentifier</key><integer>5</integer>"));
    ASSERT_TRUE(without.Becomes("without"));
    ASSERT_TRUE(odd.Becomes("odd"));
    EXPECT_EQ(IdentifierOf(without.Pid()), "<none>");
    EXPECT_EQ(IdentifierOf(odd.Pid()), "<none>");
    EXPECT_EQ(IdentifierOf(getpid()), "<none>");
}

// What a program calls itself is no proof.
TEST_F(ProcessesOfBundles, Identifier_OfAProgramThatOnlyClaimsAPath_IsNotThere) {
    const std::string claimed = MakeApplication(
        "Claimed", "claimed", "<key>CFBundleIdentifier</key><string>com.example.c</string>");
    const pid_t liar = fork();
    ASSERT_NE(liar, -1);
    if (liar == 0) {
        execl("/bin/sleep", claimed.c_str(), "1000", static_cast<char*>(nullptr));
        _exit(127);
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    std::string line;
    while (line != "sleep" && std::chrono::steady_clock::now() < deadline) {
        std::ifstream file("/proc/" + std::to_string(liar) + "/comm");
        std::getline(file, line);
    }
    EXPECT_EQ(IdentifierOf(liar), "<none>");
    kill(liar, SIGKILL);
    waitpid(liar, nullptr, 0);
}

TEST_F(ProcessesOfBundles, Information_OfABundleMarkedSo_IsInTheBackgroundOnly) {
    for (const char* const value : {"<true/>", "<string>1</string>", "<integer>1</integer>"}) {
        const Child child(MakeApplication("Background", "background",
                                          std::string("<key>LSBackgroundOnly</key>") + value));
        ASSERT_TRUE(child.Becomes("background"));
        const ProcessSerialNumber psn = Number(child.Pid());
        ProcessInfoRec info = NewRecord();
        ASSERT_EQ(GetProcessInformation(&psn, &info), noErr);
        EXPECT_EQ(info.processMode & modeOnlyBackground, UInt32{modeOnlyBackground}) << value;
    }
    for (const char* const value :
         {"<false/>", "<string>0</string>", "<integer>0</integer>", "<array/>"}) {
        const Child child(MakeApplication("Foreground", "foreground",
                                          std::string("<key>LSBackgroundOnly</key>") + value));
        ASSERT_TRUE(child.Becomes("foreground"));
        const ProcessSerialNumber psn = Number(child.Pid());
        ProcessInfoRec info = NewRecord();
        ASSERT_EQ(GetProcessInformation(&psn, &info), noErr);
        EXPECT_EQ(info.processMode & modeOnlyBackground, 0u) << value;
    }
}

}  // namespace
