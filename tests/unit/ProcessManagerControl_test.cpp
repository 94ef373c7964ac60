// Finding and quitting what runs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <string>

#include "apps/ProcessManager.h"
#include "core/Helpers.h"
#include "core/Owners.h"
#include "unit/ApplicationTesting.h"
#include "unit/support/ForkedTest.h"
#include "unit/support/Waiting.h"

using testing::IsEmpty;

namespace {

// No other test's program is found, or asked to end, in the place of this one's.
std::string Name() {
    return "Stays" + std::to_string(getpid());
}

std::string Identifier() {
    return "com.example.stays" + std::to_string(getpid());
}

std::wstring Wide(const std::string& text) {
    return std::wstring(text.begin(), text.end());
}

// With a bundle Identifier() whose program, Name(), has been launched and ends with the test.
void WithAProgram(const std::function<void(pid_t)>& body) {
    InChild([&] {
        const std::string bundle = Home() + "/Stays.app";
        applicationtest::MakeBundle(
            bundle, {Identifier(), Name(), "1", applicationtest::StayingProgram(Home())});
        const applicationtest::Programs programs(Home());
        // cppcheck-suppress stlcstrParam ; it takes a wide string of C
        ASSERT_TRUE(ProcessManager::StartProcess(Helpers::wstringFromUtf8(bundle).c_str()));
        ASSERT_TRUE(programs.Wait(1));
        Printed();
        body(programs.Pids().at(0));
    });
}

CFOwner<CFStringRef> Text(const wchar_t* text) {
    return CFOwner<CFStringRef>::Adopt(Helpers::wstringToCFString(text));
}

pid_t FindByIdentifier(const wchar_t* identifier) {
    ProcessSerialNumber psn = {0, kNoProcess};
    const bool found = ProcessManager::FindPSNForProcessID(&psn, nullptr, Text(identifier).Get());
    return found ? static_cast<pid_t>(psn.lowLongOfPSN) : 0;
}

pid_t FindByName(const wchar_t* name) {
    ProcessSerialNumber psn = {0, kNoProcess};
    const bool found = ProcessManager::FindPSNForProcessID(&psn, Text(name).Get(), nullptr);
    return found ? static_cast<pid_t>(psn.lowLongOfPSN) : 0;
}

TEST(FindPSNForProcessID, ByIdentifier_FindsItAndComparesExactly) {
    WithAProgram([](pid_t program) {
        EXPECT_EQ(program, FindByIdentifier(Wide(Identifier()).c_str()));
        EXPECT_EQ(0, FindByIdentifier((L"C" + Wide(Identifier()).substr(1)).c_str()));
        EXPECT_EQ(0, FindByIdentifier(L"com.example.stay"));
        EXPECT_EQ(0, FindByIdentifier(L""));
    });
}

TEST(FindPSNForProcessID, ByName_FindsItAndComparesExactly) {
    WithAProgram([](pid_t program) {
        EXPECT_EQ(program, FindByName(Wide(Name()).c_str()));
        EXPECT_EQ(0, FindByName((L"s" + Wide(Name()).substr(1)).c_str()));
        EXPECT_EQ(0, FindByName(L"Stay"));
    });
}

TEST(FindPSNForProcessID, WithBoth_TheIdentifierAloneCounts) {
    WithAProgram([](pid_t program) {
        ProcessSerialNumber psn = {0, kNoProcess};
        EXPECT_TRUE(ProcessManager::FindPSNForProcessID(&psn, Text(L"another name").Get(),
                                                        Text(Wide(Identifier()).c_str()).Get()));
        EXPECT_EQ(static_cast<UInt32>(program), psn.lowLongOfPSN);
    });
}

TEST(FindPSNForProcessID, WithNeither_FindsNothing) {
    InChild([] {
        ProcessSerialNumber psn = {0, kNoProcess};
        EXPECT_FALSE(ProcessManager::FindPSNForProcessID(&psn, nullptr, nullptr));
        EXPECT_EQ(UInt32{kNoProcess}, psn.lowLongOfPSN);
    });
}

TEST(QuitApplication, OfWhatRuns_AsksItToEnd) {
    WithAProgram([](pid_t program) {
        EXPECT_TRUE(ProcessManager::QuitApplication(Wide(Identifier())));
        EXPECT_TRUE(WaitUntil([&] { return !applicationtest::IsRunning(program); }));
        EXPECT_EQ(0, FindByIdentifier(Wide(Identifier()).c_str()));
        EXPECT_THAT(Printed(), IsEmpty());
    });
}

TEST(QuitApplication, OfWhatDoesNotRun_SucceedsWithoutAWord) {
    InChild([] {
        Printed();
        EXPECT_TRUE(ProcessManager::QuitApplication(L"com.example.none"));
        EXPECT_TRUE(ProcessManager::QuitApplication(L""));
        EXPECT_THAT(Printed(), IsEmpty());
    });
}

TEST(QuitApplication, OfWhatIgnoresIt_SucceedsAndLeavesItRunning) {
    InChild([] {
        const std::string bundle = Home() + "/Stays.app";
        applicationtest::MakeBundle(bundle, {Identifier(), Name(), "1",
                                             "#!/bin/sh\ntrap '' TERM\necho $$ >'" + Home() +
                                                 "/pid.x'\nwhile :; do /bin/sleep 0.05; done\n"});
        const applicationtest::Programs programs(Home());
        // cppcheck-suppress stlcstrParam ; it takes a wide string of C
        ASSERT_TRUE(ProcessManager::StartProcess(Helpers::wstringFromUtf8(bundle).c_str()));
        ASSERT_TRUE(programs.Wait(1));
        EXPECT_TRUE(ProcessManager::QuitApplication(Wide(Identifier())));
        EXPECT_EQ(programs.Pids().at(0), FindByIdentifier(Wide(Identifier()).c_str()));
    });
}

}  // namespace
