#include <CarbonCore/MacErrors.h>
#include <HIServices/Processes.h>
#include <sys/prctl.h>

#include "CFTestSupport.h"
#include "HIServices/SessionShell.h"
#include "ProcessTesting.h"

namespace {

using namespace processtest;
using filestest::TemporaryFolder;

// The name, or the status in words.
std::string NameOf(pid_t pid) {
    const ProcessSerialNumber psn = {0, static_cast<UInt32>(pid)};
    CFStringRef name = nullptr;
    const OSStatus status = CopyProcessName(&psn, &name);
    if (status != noErr) return "status " + std::to_string(status);
    return TextOf(Owned<CFStringRef>(name));
}

// A process that has been started is for a moment still what started it.
void ExpectName(const Child& child, const std::string& expected) {
    BecomesTrue([&] { return NameOf(child.Pid()) == expected; });
    EXPECT_EQ(NameOf(child.Pid()), expected);
}

const std::string kNotThere = "status " + std::to_string(procNotFound);

TEST(Processes, Name_IsThatOfTheProgram) {
    const TemporaryFolder folder;
    for (const std::string name :
         {"SystemUIServer", "x", "two words", "fourteen chars", "fifteen charact",
          "sixteen characte", "a)b (c", "\xC3\xA4\xC3\xB6\xC3\xBC",
          "A Name Of Many More Than The Fifteen Characters That The Kernel Keeps"}) {
        ExpectName(Start(MakeSleeper(folder, name)), name);
    }
}

// The kernel cuts after 15 bytes, which is inside the eighth letter here.
TEST(Processes, Name_ThatTheKernelCutsInsideACharacter_IsWhole) {
    const TemporaryFolder folder;
    const std::string name = "\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4\xC3\xA4!";
    ExpectName(Start(MakeSleeper(folder, name)), name);
}

TEST(Processes, Name_ThatIsNotUtf8_ShowsQuestionMarks) {
    const TemporaryFolder folder;
    ExpectName(Start(MakeSleeper(folder, "not \xFF UTF-8")), "not ? UTF-8");
}

TEST(Processes, Name_OfAScript_IsTheScripts) {
    const TemporaryFolder folder;
    const std::string name = "a script with quite a long name";
    const Child child =
        Start(MakeScript(folder, name, "#!/bin/sh\nwhile :; do sleep 0.01; done\n"));
    ExpectName(child, name);
    const Child withOption =
        Start(MakeScript(folder, name + " too", "#!/bin/sh -e\nwhile :; do sleep 0.01; done\n"));
    ExpectName(withOption, name + " too");
}

TEST(Processes, Name_OfAProgramThatWasReplaced_IsTheOldOne) {
    const TemporaryFolder folder;
    const std::string name = "replaced by an update while it runs";
    const Child child = Start(MakeSleeper(folder, name));
    ExpectName(child, name);
    std::filesystem::remove(folder / name);
    EXPECT_EQ(NameOf(child.Pid()), name);
}

TEST(Processes, Name_ThatTheProcessGaveItself_IsAsTheKernelKeepsIt) {
    const pid_t pid = fork();
    ASSERT_NE(pid, -1);
    if (pid == 0) {
        prctl(PR_SET_NAME, "called by itself something long");
        pause();
        _exit(0);
    }
    ExpectName(Child(pid), "called by itsel");
}

TEST(Processes, Name_OfAProcessThatHasEnded_IsNotFound) {
    const TemporaryFolder folder;
    Child child = Start(MakeSleeper(folder, "ends"));
    const pid_t pid = child.Pid();
    ExpectName(child, "ends");
    child.End();
    // Ended but not collected yet, and then gone.
    EXPECT_TRUE(BecomesTrue([pid] { return NameOf(pid) == kNotThere; }));
    const auto status = frameworks::StatusOf(pid);
    EXPECT_TRUE(status && status->isZombie);
    child.Collect();
    EXPECT_EQ(NameOf(pid), kNotThere);
}

TEST(Processes, Name_OfAKernelThread_IsNotFound) {
    pid_t thread = 0;
    frameworks::ForEachProcess([&thread](pid_t pid, ino_t) {
        const auto status = frameworks::StatusOf(pid);
        if (status && status->isKernelThread) thread = pid;
    });
    if (thread == 0) GTEST_SKIP() << "the kernel's threads are not to be seen here";
    EXPECT_EQ(NameOf(thread), kNotThere);
}

TEST(Processes, Name_OfANumberThatNoProcessHas_IsNotFound) {
    EXPECT_EQ(NameOf(0), kNotThere);
    EXPECT_EQ(NameOf(0x7FFFFFFF), kNotThere);
    EXPECT_EQ(NameOf(-1), kNotThere);
    const ProcessSerialNumber high = {1, static_cast<UInt32>(getpid())};
    CFStringRef name = CFSTR("as it was");
    EXPECT_EQ(CopyProcessName(&high, &name), procNotFound);
    EXPECT_EQ(TextOf(name), "as it was");
}

TEST(Processes, Name_WithoutPointers_IsRefused) {
    const ProcessSerialNumber psn = {0, static_cast<UInt32>(getpid())};
    CFStringRef name = nullptr;
    EXPECT_EQ(CopyProcessName(nullptr, &name), paramErr);
    EXPECT_EQ(CopyProcessName(&psn, nullptr), paramErr);
}

TEST(Processes, Name_OfTheSessionShell_IsSystemUIServer) {
    const TemporaryFolder folder;
    const Child child = Start(MakeSleeper(folder, "desktop"));
    ExpectName(child, "desktop");
    const std::uint64_t startTime = frameworks::StatusOf(child.Pid())->startTime;
    // Another process that had the number before.
    frameworks::NameSessionShell(child.Pid(), startTime - 1);
    EXPECT_EQ(NameOf(child.Pid()), "desktop");
    frameworks::NameSessionShell(child.Pid(), startTime);
    EXPECT_EQ(NameOf(child.Pid()), "SystemUIServer");
    frameworks::NameSessionShell(0, 0);
    EXPECT_EQ(NameOf(child.Pid()), "desktop");
}

}  // namespace
