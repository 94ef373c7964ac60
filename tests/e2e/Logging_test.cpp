// The log file: whose it is, when it is written, and what stands in it.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <csignal>
#include <ctime>

#include "support/Files.h"
#include "support/Load.h"
#include "support/Service.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr std::size_t kLargestLog = 512000;

// The messages of a log, without their tags, which must all be the same.
std::vector<std::string> Messages(const std::string& log) {
    std::vector<std::string> messages;
    std::string tag;
    for (const std::string& line : Lines(log)) {
        constexpr std::size_t kTagLength = 5;
        constexpr char kBetween[] = " - ";
        if (line.find_first_not_of("0123456789") != kTagLength ||
            line.compare(kTagLength, sizeof kBetween - 1, kBetween) != 0) {
            throw Failed("not a line of the log: \"" + line + "\"");
        }
        if (!tag.empty() && line.compare(0, kTagLength, tag) != 0) {
            throw Failed("two tags in one run: \"" + line + "\"");
        }
        tag = line.substr(0, kTagLength);
        messages.push_back(line.substr(kTagLength + sizeof kBetween - 1));
    }
    return messages;
}

std::vector<std::string> LinesSinceTheLogIsOpen(const std::string& output) {
    const std::vector<std::string> lines = Lines(output);
    // cppcheck-suppress returnDanglingLifetime ; the lines between the two are copied
    return {std::find(lines.begin(), lines.end(), "Log file initialization succeeded."),
            lines.end()};
}

// A run from its start to its end by a signal, with a command in between.
void RunOnce(Sandbox& sandbox) {
    Service service(sandbox);
    service.WaitUntilListening();
    EXPECT_EQ(service.Authorized().Ask("platform"), "Success MACOSX");
}

TEST(Logging, WithoutTheFile_NothingIsMadeAndEveryMessageIsPrinted) {
    Sandbox sandbox;
    Service service(sandbox);
    service.WaitUntilListening();
    EXPECT_EQ(service.Authorized().Ask("platform"), "Success MACOSX");
    service.WaitForOutput("Logfile does not exist, not logging\n");
    service.WaitForOutput("Processing command:\nplatform\nSuccess MACOSX|\n");
    EXPECT_EQ(service.Stop(SIGTERM), Exit::Status(1));
    EXPECT_FALSE(std::filesystem::exists(sandbox.Outside(Service::kLogFile)));
    EXPECT_THAT(service.Output(), HasSubstr("[CRASH] Program terminated unexpectedly. Signal:\n"));
}

TEST(Logging, AFileMadeDuringTheRun_StaysEmptyUntilTheNextStart) {
    Sandbox sandbox;
    {
        Service service(sandbox);
        service.WaitUntilListening();
        service.WaitForOutput("Logfile does not exist, not logging\n");
        sandbox.MakeUsersFile(Service::kLogFile, "");
        EXPECT_EQ(service.Authorized().Ask("platform"), "Success MACOSX");
        EXPECT_EQ(service.Stop(SIGTERM), Exit::Status(1));
        EXPECT_EQ(service.Log(), "");
    }
    RunOnce(sandbox);
    EXPECT_THAT(ReadFile(sandbox.Outside(Service::kLogFile)),
                HasSubstr(" - Log file initialization succeeded.\n"));
}

TEST(Logging, EveryLine_StartsWithTheTagOfTheRun) {
    Sandbox sandbox;
    sandbox.MakeUsersFolder(Service::kDock);
    sandbox.MakeUsersFile(Service::kLogFile, "");
    const time_t before = time(nullptr);
    Service service(sandbox);
    service.WaitUntilListening();
    const time_t after = time(nullptr);
    EXPECT_EQ(service.Authorized().Ask("platform"), "Success MACOSX");
    const std::string log = service.Log();
    std::vector<std::string> messages = Messages(log);
    messages.resize(4);
    EXPECT_THAT(messages, ElementsAre("Log file initialization succeeded.", kServiceFolder,
                                      "Starting server...", "Listener starting..."));
    const std::string tag = log.substr(0, 5);
    std::vector<std::string> possible;
    for (time_t second = before; second <= after; ++second) {
        const std::string text = std::to_string(second);
        possible.push_back(text.substr(text.size() - 5));
    }
    EXPECT_THAT(possible, testing::Contains(tag));
}

TEST(Logging, StandardOutputAndTheFile_HoldTheSameMessages) {
    Sandbox sandbox;
    sandbox.MakeUsersFile(Service::kLogFile, "");
    Service service(sandbox);
    service.WaitUntilListening();
    Client client = service.Authorized();
    client.Ask("platform");
    client.Ask("nonsense");
    service.ConnectToApps().Ask("hello");
    EXPECT_EQ(service.Stop(SIGTERM), Exit::Status(1));
    EXPECT_EQ(LinesSinceTheLogIsOpen(service.Output()), Messages(service.Log()));
}

TEST(Logging, StandardOutputAndTheFile_HoldTheSameMessagesWhenEndedUnderLoad) {
    constexpr int kRuns = 20;
    Sandbox sandbox;
    for (int run = 0; run < kRuns; ++run) {
        sandbox.MakeUsersFile(Service::kLogFile, "");
        Load load;
        Service service(sandbox);
        service.WaitUntilListening();
        load.Add(service.Authorized(), "platform", "Success MACOSX");
        load.Add(service.ConnectToPressure(), "nonsense", "SyntaxError Unknown command - ");
        WaitUntil("both are being answered", [&] { return load.Answers() > 30; });
        ASSERT_EQ(service.Stop(SIGTERM), Exit::Status(1)) << "run " << run;
        load.Stop();
        ASSERT_EQ(LinesSinceTheLogIsOpen(service.Output()), Messages(service.Log()))
            << "run " << run;
    }
}

TEST(Logging, ACommand_IsLoggedWithItsReplyBarIncluded) {
    Sandbox sandbox;
    Service service(sandbox);
    service.WaitUntilListening();
    Client client = service.Authorized();
    client.Ask("platform x");
    service.WaitForOutput("Processing command:\nplatform x\nSuccess MACOSX|\n");
}

TEST(Logging, AFailedCommand_IsLoggedTwiceBeforeItsReply) {
    Sandbox sandbox;
    Service service(sandbox);
    service.WaitUntilListening();
    Client client = service.Authorized();
    const std::string answer = client.Ask("nonsense");
    service.WaitForOutput("Unknown command\nProcessing command:\nnonsense\n" + answer + "|\n");
    EXPECT_THAT(service.Output(), HasSubstr("Processing command:\nnonsense\n"));
}

TEST(Logging, WhatIsReceived_IsNotLoggedAsSuch) {
    Sandbox sandbox;
    Service service(sandbox);
    service.WaitUntilListening();
    service.Authorized().Ask("platform");
    service.WaitForOutput("Success MACOSX|\n");
    EXPECT_THAT(service.Output(), Not(HasSubstr("Received ")));
}

TEST(Logging, ACommandWithOtherLetters_IsLoggedInUtf8) {
    Sandbox sandbox;
    sandbox.MakeUsersFile(Service::kLogFile, "");
    Service service(sandbox);
    service.WaitUntilListening();
    service.Authorized().Ask("checkExists /Bücher/日本/🖊");
    service.WaitForOutput("Processing command:\ncheckExists /Bücher/日本/🖊\n");
    EXPECT_THAT(service.Log(), HasSubstr(" - checkExists /Bücher/日本/🖊\n"));
}

TEST(Logging, APercentSign_IsNoFormat) {
    Sandbox sandbox;
    Service service(sandbox);
    service.WaitUntilListening();
    service.Authorized().Ask("checkExists /%s%n%d%%");
    service.WaitForOutput("Processing command:\ncheckExists /%s%n%d%%\n");
}

TEST(Logging, AFileOfTheLargestSize_IsAppendedTo) {
    Sandbox sandbox;
    const std::string old = std::string(kLargestLog - 1, 'o') + "\n";
    sandbox.MakeUsersFile(Service::kLogFile, old);
    RunOnce(sandbox);
    const std::string log = ReadFile(sandbox.Outside(Service::kLogFile));
    EXPECT_TRUE(log.compare(0, old.size(), old) == 0);
    EXPECT_THAT(Messages(log.substr(old.size())).at(0), "Log file initialization succeeded.");
}

TEST(Logging, AFileOneByteLarger_IsEmptiedFirst) {
    Sandbox sandbox;
    sandbox.MakeUsersFile(Service::kLogFile, std::string(kLargestLog, 'o') + "\n");
    RunOnce(sandbox);
    EXPECT_THAT(Messages(ReadFile(sandbox.Outside(Service::kLogFile))).at(0),
                "Log file initialization succeeded.");
}

TEST(Logging, AFileThatGrowsBeyondTheSizeDuringTheRun_IsLeftAlone) {
    Sandbox sandbox;
    const std::string old = std::string(kLargestLog - 1, 'o') + "\n";
    sandbox.MakeUsersFile(Service::kLogFile, old);
    Service service(sandbox);
    service.WaitUntilListening();
    Client client = service.Authorized();
    for (int i = 0; i < 20; ++i) {
        client.Ask("platform");
    }
    EXPECT_TRUE(service.Log().compare(0, old.size(), old) == 0);
}

TEST(Logging, TwoRuns_FollowEachOtherInOneFile) {
    Sandbox sandbox;
    sandbox.MakeUsersFile(Service::kLogFile, "");
    RunOnce(sandbox);
    const std::string first = ReadFile(sandbox.Outside(Service::kLogFile));
    RunOnce(sandbox);
    const std::string both = ReadFile(sandbox.Outside(Service::kLogFile));
    EXPECT_THAT(both, StartsWith(first));
    EXPECT_EQ(CountOf(both, "Log file initialization succeeded.\n"), 2U);
}

TEST(Logging, AFileThatCannotBeRead_CountsAsNone) {
    Sandbox sandbox;
    sandbox.MakeUsersFile(Service::kLogFile, "");
    std::filesystem::permissions(sandbox.Outside(Service::kLogFile), std::filesystem::perms::none);
    {
        Service service(sandbox);
        service.WaitUntilListening();
        service.WaitForOutput("Logfile does not exist, not logging\n");
        EXPECT_EQ(service.Authorized().Ask("platform"), "Success MACOSX");
    }
    std::filesystem::permissions(sandbox.Outside(Service::kLogFile), std::filesystem::perms(0600));
    EXPECT_EQ(ReadFile(sandbox.Outside(Service::kLogFile)), "");
}

TEST(Logging, AFileThatCannotBeWritten_TurnsLoggingOff) {
    Sandbox sandbox;
    sandbox.MakeUsersFile(Service::kLogFile, "old\n");
    std::filesystem::permissions(sandbox.Outside(Service::kLogFile), std::filesystem::perms(0444));
    Service service(sandbox);
    service.WaitUntilListening();
    service.WaitForOutput("Unable to open logfile\n");
    EXPECT_EQ(service.Authorized().Ask("platform"), "Success MACOSX");
    EXPECT_EQ(service.Log(), "old\n");
}

TEST(Logging, AFolderOfThatName_TurnsLoggingOff) {
    Sandbox sandbox;
    sandbox.MakeUsersFolder(Service::kLogFile);
    Service service(sandbox);
    service.WaitUntilListening();
    service.WaitForOutput("Unable to open logfile\n");
    EXPECT_EQ(service.Authorized().Ask("platform"), "Success MACOSX");
    EXPECT_TRUE(std::filesystem::is_empty(sandbox.Outside(Service::kLogFile)));
}

class RootLogging : public testing::Test {
  protected:
    void SetUp() override {
        if (!Sandbox::CanSwitchUsers()) {
            GTEST_SKIP() << "only a suite that runs as root can start the service as root";
        }
        sandbox.emplace();
        sandbox->MakeUsersFolder(Service::kDock);
    }

    void RunFromRootToUser() {
        Start start;
        start.identity = Identity::kRoot;
        Service service(*sandbox, start);
        service.WaitForOutput("Waiting for UI Server to start.\n");
        sandbox->LaunchIdleProgram("/System/SystemUIServer");
        service.WaitUntilListening();
        EXPECT_EQ(service.Authorized().Ask("platform"), "Success MACOSX");
        EXPECT_EQ(service.Stop(SIGTERM), Exit::Status(1));
        output = service.Output();
    }

    const std::string rootsLog = std::string(kRootHome) + "/tesselLog.txt";
    std::optional<Sandbox> sandbox;
    std::string output;
};

TEST_F(RootLogging, AUsersFileAlone_IsOpenedButNeverWritten) {
    sandbox->MakeUsersFile(Service::kLogFile, "");
    RunFromRootToUser();
    EXPECT_EQ(ReadFile(sandbox->Outside(Service::kLogFile)), "");
    EXPECT_THAT(output, HasSubstr("Logfile does not exist, not logging\nUser logged in...\n"
                                  "Log file initialization succeeded.\n"));
}

TEST_F(RootLogging, WithAFileOfRootsToo_EachGetsItsPartOfTheRun) {
    sandbox->MakeUsersFile(Service::kLogFile, "");
    WriteFile(sandbox->Outside(rootsLog), "");
    RunFromRootToUser();
    EXPECT_THAT(Messages(ReadFile(sandbox->Outside(rootsLog))),
                ElementsAre("Log file initialization succeeded.", "User logged in..."));
    std::vector<std::string> users = Messages(ReadFile(sandbox->Outside(Service::kLogFile)));
    ASSERT_GE(users.size(), 5U);
    EXPECT_EQ(users.back(), "15");
    users.resize(3);
    EXPECT_THAT(users, ElementsAre("Log file initialization succeeded.", kServiceFolder,
                                   "Starting server..."));
}

TEST_F(RootLogging, AFileOfRootsAlone_GetsTheLinesUpToTheSwitch) {
    WriteFile(sandbox->Outside(rootsLog), "");
    RunFromRootToUser();
    EXPECT_THAT(Messages(ReadFile(sandbox->Outside(rootsLog))),
                ElementsAre("Log file initialization succeeded.", "User logged in..."));
    EXPECT_FALSE(std::filesystem::exists(sandbox->Outside(Service::kLogFile)));
    EXPECT_THAT(output, HasSubstr("User logged in...\nLogfile does not exist, not logging\n"));
}

}  // namespace
