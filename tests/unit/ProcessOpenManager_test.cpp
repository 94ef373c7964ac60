// Every test runs in a process of its own: the stream of the last command outlives its test.

#include "apps/ProcessOpenManager.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <vector>

#include "core/Helpers.h"
#include "unit/support/ForkedTest.h"
#include "unit/support/Interruptions.h"
#include "unit/support/Kernel.h"
#include "unit/support/Waiting.h"

using testing::ElementsAre;

namespace {

struct Ran {
    bool wasStarted;
    std::string output;
};

Ran RunCommand(const std::string& command, const char* mode = "r", bool redirects = false) {
    std::string output;
    const bool wasStarted =
        ProcessOpenManager::getInstance()->open(command.c_str(), mode, &output, redirects);
    return {wasStarted, output};
}

// Runs BODY behind the log's own first line.
void Quietly(const std::function<void()>& body) {
    InChild([&body] {
        Helpers::logprint("opens the log");
        Printed();
        body();
    });
}

constexpr char kReceived[] = "received: ";

TEST(ProcessOpenManager, IsOneForAll) {
    EXPECT_NE(nullptr, ProcessOpenManager::getInstance());
    EXPECT_EQ(ProcessOpenManager::getInstance(), ProcessOpenManager::getInstance());
}

// It was taken for done while it still ran, and an application that it installed for missing.
TEST(ProcessOpenManager, WaitsForTheCommand_AlsoWhenItIsInterruptedBySignals) {
    Quietly([] {
        const Interruptions interruptions;
        const Ran ran = RunCommand("printf one; sleep 0.2; printf two; sleep 0.1");
        EXPECT_TRUE(ran.wasStarted);
        EXPECT_EQ("onetwo", ran.output);
    });
}

TEST(ProcessOpenManager, CollectsWhatTheCommandPrints) {
    Quietly([] {
        const Ran ran = RunCommand("printf 'one\\ntwo'");
        EXPECT_TRUE(ran.wasStarted);
        EXPECT_EQ("one\ntwo", ran.output);
        EXPECT_THAT(Printed(),
                    ElementsAre("ProcessOpenManager::open : 'printf 'one\\ntwo''", kReceived));
    });
}

TEST(ProcessOpenManager, AppendsToWhatIsInTheOutput) {
    Quietly([] {
        std::string output = "before ";
        EXPECT_TRUE(ProcessOpenManager::getInstance()->open("printf behind", "r", &output, false));
        EXPECT_EQ("before behind", output);
    });
}

TEST(ProcessOpenManager, ReadsAndWritesWithTheBothWayMode) {
    Quietly([] {
        const Ran ran = RunCommand("echo both ways", "r+");
        EXPECT_TRUE(ran.wasStarted);
        EXPECT_EQ("both ways\n", ran.output);
    });
}

TEST(ProcessOpenManager, WithTheBothWayMode_ACommandThatReadsFindsTheEnd) {
    Quietly([] { EXPECT_EQ("end\n", RunCommand("cat; echo end", "r+").output); });
}

TEST(ProcessOpenManager, OutputOfAnyLength_ArrivesWholeInChunksOf127) {
    Quietly([] {
        for (const int length : {1, 126, 127, 128, 254, 255, 1000, 100000}) {
            const std::string command =
                "head -c " + std::to_string(length) + " /dev/zero | tr '\\0' x";
            const Ran ran = RunCommand(command);
            EXPECT_EQ(std::string(static_cast<std::size_t>(length), 'x'), ran.output);
            // A last chunk that is full leaves the end to be found by one more read.
            std::vector<std::string> wanted = {"ProcessOpenManager::open : '" + command + "'"};
            wanted.insert(wanted.end(), static_cast<std::size_t>((length + 126) / 127), kReceived);
            if (length % 127 == 0) {
                wanted.push_back("Error : zero bytes read from command '" + command + "'");
            }
            EXPECT_EQ(wanted, Printed());
        }
    });
}

TEST(ProcessOpenManager, OutputThatComesBitByBit_IsOneOutput) {
    Quietly([] {
        EXPECT_EQ("abc", RunCommand("printf a; sleep 0.1; printf b; sleep 0.1; printf c").output);
    });
}

TEST(ProcessOpenManager, ACommandThatPrintsNothing_IsSaidSoOnceAndSucceeds) {
    Quietly([] {
        const Ran ran = RunCommand("true");
        EXPECT_TRUE(ran.wasStarted);
        EXPECT_EQ("", ran.output);
        EXPECT_THAT(Printed(), ElementsAre("ProcessOpenManager::open : 'true'",
                                           "Error : zero bytes read from command 'true'"));
    });
}

TEST(ProcessOpenManager, ACommandThatFails_SucceedsHere) {
    Quietly([] {
        EXPECT_TRUE(RunCommand("exit 3").wasStarted);
        EXPECT_TRUE(RunCommand("kill -9 $$").wasStarted);
        const Ran ran = RunCommand("no-such-command-anywhere", "r", true);
        EXPECT_TRUE(ran.wasStarted);
        EXPECT_THAT(ran.output, testing::HasSubstr("no-such-command-anywhere"));
    });
}

TEST(ProcessOpenManager, AZeroByte_CutsItsChunkShort) {
    Quietly([] {
        EXPECT_EQ("ab", RunCommand("printf 'ab\\0cd'").output);
        // The next chunk is not concerned: the first 127 bytes are lost behind the zero byte.
        const Ran ran = RunCommand("printf 'ab\\0'; head -c 124 /dev/zero | tr '\\0' x; printf cd");
        EXPECT_EQ("abcd", ran.output);
    });
}

TEST(ProcessOpenManager, WithoutAnOutput_ReadsAllTheSame) {
    Quietly([] {
        EXPECT_TRUE(ProcessOpenManager::getInstance()->open("echo x", "r", nullptr, false));
        EXPECT_THAT(Printed(), ElementsAre("ProcessOpenManager::open : 'echo x'", kReceived));
    });
}

TEST(ProcessOpenManager, WithTheErrorStream_CollectsItToo) {
    Quietly([] {
        EXPECT_EQ("wrong\n", RunCommand("sh -c 'echo wrong >&2'", "r", true).output);
        // The command is logged as it was given.
        EXPECT_THAT(Printed(),
                    ElementsAre("ProcessOpenManager::open : 'sh -c 'echo wrong >&2''", kReceived));
        EXPECT_EQ("", PrintedErrors());
    });
}

TEST(ProcessOpenManager, WithoutTheErrorStream_LeavesItAlone) {
    Quietly([] {
        EXPECT_EQ("", RunCommand("echo wrong >&2").output);
        EXPECT_EQ("wrong\n", PrintedErrors());
    });
}

TEST(ProcessOpenManager, WithTheErrorStream_NamesTheWholeLineInItsComplaint) {
    Quietly([] {
        RunCommand("true", "r", true);
        EXPECT_THAT(Printed(), ElementsAre("ProcessOpenManager::open : 'true'",
                                           "Error : zero bytes read from command 'true 2>&1'"));
    });
}

TEST(ProcessOpenManager, ThatCannotOpenAStream_SaysSoAndLeavesTheOutput) {
    Quietly([] {
        std::string output = "before";
        EXPECT_FALSE(ProcessOpenManager::getInstance()->open("echo x", "nonsense", &output, true));
        EXPECT_EQ("before", output);
        EXPECT_THAT(Printed(),
                    ElementsAre("ProcessOpenManager::open : 'echo x'",
                                "Error : can not open stream from command 'echo x 2>&1'"));
        // And goes on.
        EXPECT_EQ("y\n", RunCommand("echo y").output);
    });
}

TEST(ProcessOpenManager, APercentSignInTheCommand_IsNoFormat) {
    Quietly([] {
        EXPECT_EQ("100%s", RunCommand("printf '100%%s'").output);
        EXPECT_THAT(Printed(),
                    ElementsAre("ProcessOpenManager::open : 'printf '100%%s''", kReceived));
    });
}

TEST(ProcessOpenManager, WithTheWriteMode_ReturnsAtOnceAndReadsNothing) {
    Quietly([] {
        const std::string done = Home() + "/done";
        // Reads until the stream is closed, which only the next call does.
        const Ran ran = RunCommand("cat; sleep 0.2; echo > " + done, "w");
        EXPECT_TRUE(ran.wasStarted);
        EXPECT_EQ("", ran.output);
        EXPECT_FALSE(Exists(done));
        EXPECT_EQ(1u, Printed().size());
        EXPECT_EQ("next\n", RunCommand("echo next").output);
        EXPECT_TRUE(Exists(done));
    });
}

TEST(ProcessOpenManager, TheNextCall_WaitsForACommandThatHasClosedItsOutput) {
    Quietly([] {
        const std::string done = Home() + "/done";
        const std::string pipe = Home() + "/pipe";
        ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
        EXPECT_EQ("x", RunCommand("printf x; exec >&-; read line < " + pipe +
                                  "; sleep 0.2; echo > " + done)
                           .output);
        EXPECT_FALSE(Exists(done));
        WriteFile(pipe, "go on\n");
        EXPECT_EQ("next\n", RunCommand("echo next").output);
        EXPECT_TRUE(Exists(done));
    });
}

TEST(ProcessOpenManager, AWriteCommandLeftBehind_IsWaitedForEvenWhenTheNextCannotStart) {
    Quietly([] {
        const std::string done = Home() + "/done";
        EXPECT_TRUE(RunCommand("cat; sleep 0.2; echo > " + done, "w").wasStarted);
        EXPECT_FALSE(RunCommand("echo x", "nonsense").wasStarted);
        EXPECT_TRUE(Exists(done));
        EXPECT_TRUE(RunCommand("echo x").wasStarted);
    });
}

TEST(ProcessOpenManager, AHundredCommands_LeaveOneStream) {
    Quietly([] {
        RunCommand("true");
        const std::size_t before = OpenDescriptors().size();
        for (int i = 0; i < 100; ++i) {
            EXPECT_EQ("x\n", RunCommand("echo x", i % 2 == 0 ? "r" : "r+").output);
        }
        EXPECT_EQ(before, OpenDescriptors().size());
    });
}

TEST(ProcessOpenManager, ItsStream_IsNotInheritedByOtherPrograms) {
    Quietly([] {
        for (const char* const mode : {"r", "r+", "w"}) {
            const std::vector<int> before = OpenDescriptors();
            RunCommand("cat", mode);
            for (const int descriptor : OpenDescriptors()) {
                if (!testing::Value(before, testing::Contains(descriptor))) {
                    EXPECT_EQ(FD_CLOEXEC, fcntl(descriptor, F_GETFD)) << mode;
                }
            }
        }
    });
}

TEST(ProcessOpenManager, ACommand_GetsNoneOfTheServicesDescriptors) {
    Quietly([] {
        const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        ASSERT_GT(socket, 2);
        const Ran ran = RunCommand("test -e /proc/self/fd/" + std::to_string(socket) +
                                   " && echo inherited || echo not");
        EXPECT_EQ("not\n", ran.output);
        close(socket);
    });
}

TEST(ProcessOpenManager, WhatWasLogged_CanBeSeenWhileTheCommandRuns) {
    Quietly([] {
        // Without the newest lines on its way out, whoever watches would wait for the command.
        const std::string seen = Home() + "/seen";
        RunCommand("cat /proc/$PPID/fd/1 > " + seen);
        EXPECT_THAT(ReadFile(seen), testing::HasSubstr("ProcessOpenManager::open : 'cat /proc"));
    });
}

}  // namespace
