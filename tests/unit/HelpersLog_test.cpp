// Every test runs in a process and a home folder of its own: whether there can be a log file is
// found out once in a process's life.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <thread>
#include <vector>

#include "core/Helpers.h"
#include "unit/support/ForkedTest.h"
#include "unit/support/Kernel.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr std::size_t kLargestLogFile = 512000;

std::string LogFile() {
    return Home() + "/tesselLog.txt";
}

// The messages in the log file; each line must have this run's tag before it.
std::vector<std::string> Logged() {
    const std::string before = Helpers::getSessionId() + " - ";
    std::vector<std::string> messages = Lines(ReadFile(LogFile()));
    for (std::string& message : messages) {
        EXPECT_EQ(before, message.substr(0, before.size()));
        message.erase(0, before.size());
    }
    return messages;
}

TEST(Logging, WithoutAFile_MakesNoneAndPrintsEveryMessage) {
    InChild([] {
        Helpers::logprint(L"one");
        Helpers::logprint("two");
        EXPECT_THAT(Printed(), ElementsAre("Logfile does not exist, not logging", "one", "two"));
        EXPECT_FALSE(Exists(LogFile()));
    });
}

TEST(Logging, AFileMadeDuringTheRun_StaysEmpty) {
    InChild([] {
        Helpers::logprint("one");
        WriteFile(LogFile(), "");
        Helpers::logprint("two");
        EXPECT_EQ("", ReadFile(LogFile()));
        EXPECT_THAT(Printed(), ElementsAre("Logfile does not exist, not logging", "one", "two"));
    });
}

TEST(Logging, AFileThatIsThere_IsOpenedByTheFirstMessage) {
    InChild([] {
        WriteFile(LogFile(), "");
        EXPECT_EQ("", ReadFile(LogFile()));
        Helpers::logprint("Starting server...");
        EXPECT_THAT(Logged(),
                    ElementsAre("Log file initialization succeeded.", "Starting server..."));
        EXPECT_THAT(Printed(),
                    ElementsAre("Log file initialization succeeded.", "Starting server..."));
    });
}

TEST(Logging, EveryLine_IsInTheFileAtOnce) {
    InChild([] {
        WriteFile(LogFile(), "");
        for (int i = 1; i <= 5; ++i) {
            Helpers::logprint("line");
            EXPECT_EQ(static_cast<std::size_t>(i) + 1, Logged().size());
        }
    });
}

TEST(Logging, ALine_IsTagBlankHyphenBlankMessage) {
    InChild([] {
        WriteFile(LogFile(), "");
        Helpers::logprint("Starting server...");
        const std::string tag = Helpers::getSessionId();
        EXPECT_EQ(tag + " - Log file initialization succeeded.\n" + tag + " - Starting server...\n",
                  ReadFile(LogFile()));
    });
}

TEST(Logging, TheTag_IsTheLastFiveDigitsOfTheTimeOfTheFirstLine) {
    InChild([] {
        const std::time_t before = std::time(nullptr);
        const std::string tag = Helpers::getSessionId();
        const std::time_t after = std::time(nullptr);
        std::vector<std::string> possible;
        for (std::time_t time = before; time <= after; ++time) {
            const std::string digits = std::to_string(time);
            possible.push_back(digits.substr(digits.size() - 5));
        }
        EXPECT_THAT(possible, testing::Contains(tag));
    });
}

TEST(Logging, TheTag_StaysTheSame) {
    InChild([] {
        const std::string tag = Helpers::getSessionId();
        const std::time_t then = std::time(nullptr);
        // Only another second could give another tag.
        while (std::time(nullptr) == then) {
            std::this_thread::yield();
        }
        EXPECT_EQ(tag, Helpers::getSessionId());
    });
}

TEST(Logging, ALargeFile_IsEmptiedAtTheStart) {
    InChild([] {
        WriteFile(LogFile(), std::string(kLargestLogFile + 1, 'x'));
        Helpers::logprint("one");
        EXPECT_THAT(Logged(), ElementsAre("Log file initialization succeeded.", "one"));
    });
}

TEST(Logging, AFileOfExactlyTheLargestSize_IsAppendedTo) {
    InChild([] {
        const std::string old = std::string(kLargestLogFile - 1, 'x') + "\n";
        WriteFile(LogFile(), old);
        Helpers::logprint("one");
        const std::string tag = Helpers::getSessionId();
        EXPECT_EQ(old + tag + " - Log file initialization succeeded.\n" + tag + " - one\n",
                  ReadFile(LogFile()));
    });
}

TEST(Logging, AFileThatGrowsBeyondTheSize_IsLeftAloneUntilItIsOpenedAgain) {
    InChild([] {
        WriteFile(LogFile(), std::string(kLargestLogFile, 'x'));
        Helpers::logprint("one");
        Helpers::logprint("two");
        EXPECT_GT(ReadFile(LogFile()).size(), kLargestLogFile);
        EXPECT_TRUE(Helpers::initFileLogging());
        EXPECT_THAT(Logged(), ElementsAre("Log file initialization succeeded."));
    });
}

TEST(Logging, OpeningAgain_AppendsAndSaysSoAgain) {
    InChild([] {
        WriteFile(LogFile(), "");
        EXPECT_TRUE(Helpers::initFileLogging());
        Helpers::logprint("one");
        EXPECT_TRUE(Helpers::initFileLogging());
        Helpers::logprint("two");
        EXPECT_THAT(Logged(), ElementsAre("Log file initialization succeeded.", "one",
                                          "Log file initialization succeeded.", "two"));
    });
}

TEST(Logging, OpeningAgain_FollowsTheHomeFolder) {
    InChild([] {
        const std::string other = Home() + "/other";
        ASSERT_EQ(0, mkdir(other.c_str(), 0700));
        WriteFile(LogFile(), "");
        WriteFile(other + "/tesselLog.txt", "");
        Helpers::logprint("User logged in...");
        setenv("HOME", other.c_str(), 1);
        EXPECT_TRUE(Helpers::initFileLogging());
        Helpers::logprint("afterwards");
        EXPECT_THAT(Logged(),
                    ElementsAre("Log file initialization succeeded.", "User logged in..."));
        const std::string tag = Helpers::getSessionId();
        EXPECT_EQ(tag + " - Log file initialization succeeded.\n" + tag + " - afterwards\n",
                  ReadFile(other + "/tesselLog.txt"));
    });
}

TEST(Logging, OnceRefused_OpensAFileLaterButNeverWritesToIt) {
    InChild([] {
        Helpers::logprint("User logged in...");
        WriteFile(LogFile(), "");
        EXPECT_TRUE(Helpers::initFileLogging());
        Helpers::logprint("afterwards");
        EXPECT_EQ("", ReadFile(LogFile()));
        EXPECT_THAT(Printed(),
                    ElementsAre("Logfile does not exist, not logging", "User logged in...",
                                "Log file initialization succeeded.", "afterwards"));
    });
}

TEST(Logging, AnExplicitOpeningWithoutAFile_IsARefusalToo) {
    InChild([] {
        EXPECT_FALSE(Helpers::initFileLogging());
        WriteFile(LogFile(), "");
        Helpers::logprint("one");
        EXPECT_EQ("", ReadFile(LogFile()));
    });
}

TEST(Logging, OnceClosed_GoesToStandardOutputOnly) {
    InChild([] {
        WriteFile(LogFile(), "");
        Helpers::logprint("one");
        Helpers::deInitFileLogging();
        Helpers::logprint("two");
        EXPECT_TRUE(Helpers::initFileLogging());
        Helpers::logprint("three");
        EXPECT_THAT(Logged(), ElementsAre("Log file initialization succeeded.", "one"));
        EXPECT_THAT(Printed(), ElementsAre("Log file initialization succeeded.", "one", "two",
                                           "Log file initialization succeeded.", "three"));
    });
}

TEST(Logging, ClosingWhatWasNeverOpened_TurnsLoggingOff) {
    InChild([] {
        WriteFile(LogFile(), "");
        Helpers::deInitFileLogging();
        Helpers::deInitFileLogging();
        Helpers::logprint("one");
        EXPECT_EQ("", ReadFile(LogFile()));
        EXPECT_THAT(Printed(), ElementsAre("one"));
    });
}

TEST(Logging, AFolderOfThatName_CannotBeOpenedToWrite) {
    InChild([] {
        ASSERT_EQ(0, mkdir(LogFile().c_str(), 0700));
        Helpers::logprint("one");
        EXPECT_THAT(Printed(), ElementsAre("Unable to open logfile", "one"));
        EXPECT_FALSE(Helpers::initFileLogging());
    });
}

TEST(Logging, AFifoOfThatName_IsNotWaitedFor) {
    InChild([] {
        ASSERT_EQ(0, mkfifo(LogFile().c_str(), 0600));
        Helpers::logprint("one");
        EXPECT_THAT(Printed(), ElementsAre("Unable to open logfile", "one"));
        EXPECT_FALSE(Helpers::initFileLogging());
    });
}

TEST(Logging, AFileThatGoesAway_IsNotMadeAnew) {
    InChild([] {
        WriteFile(LogFile(), "");
        Helpers::logprint("one");
        ASSERT_EQ(0, unlink(LogFile().c_str()));
        Helpers::logprint("two");
        EXPECT_FALSE(Exists(LogFile()));
    });
}

TEST(Logging, TheFile_IsNoBusinessOfOtherPrograms) {
    InChild([] {
        for (const std::size_t size : {std::size_t{0}, kLargestLogFile + 1}) {
            WriteFile(LogFile(), std::string(size, 'x'));
            ASSERT_TRUE(Helpers::initFileLogging());
            struct stat wanted;
            ASSERT_EQ(0, stat(LogFile().c_str(), &wanted));
            int found = 0;
            for (int descriptor = 0; descriptor < 1024; ++descriptor) {
                struct stat status;
                if (fstat(descriptor, &status) == 0 && status.st_ino == wanted.st_ino &&
                    status.st_dev == wanted.st_dev) {
                    ++found;
                    EXPECT_EQ(FD_CLOEXEC, fcntl(descriptor, F_GETFD) & FD_CLOEXEC);
                }
            }
            EXPECT_EQ(1, found);
        }
    });
}

TEST(Logging, AWideMessage_IsUtf8InTheFileAndOnStandardOutput) {
    InChild([] {
        WriteFile(LogFile(), "");
        Helpers::logprint(L"\u00E9 \u20AC \U0001F58A");
        EXPECT_EQ("\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x96\x8A", Logged().back());
        EXPECT_EQ("\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x96\x8A", Printed().back());
    });
}

TEST(Logging, ABytesMessage_IsWidenedByteByByte) {
    InChild([] {
        WriteFile(LogFile(), "");
        Helpers::logprint("opens the file");
        Helpers::logprint("\xE9");
        EXPECT_EQ("\xC3\xA9", Logged().back());
        EXPECT_EQ("\xC3\xA9", Printed().back());
        EXPECT_EQ(L"\u00E9", Helpers::getLastLog());
    });
}

TEST(Logging, AMessageThatIsNoText_IsLoggedAsError) {
    InChild([] {
        WriteFile(LogFile(), "");
        const std::wstring message = {L'a', static_cast<wchar_t>(0xD800)};
        Helpers::logprint("opens the file");
        Helpers::logprint(message);
        EXPECT_EQ("Error", Logged().back());
        EXPECT_EQ("Error", Printed().back());
        EXPECT_EQ(message, Helpers::getLastLog());
    });
}

TEST(Logging, AnEmptyMessage_IsALineAllTheSame) {
    InChild([] {
        WriteFile(LogFile(), "");
        Helpers::logprint(L"");
        Helpers::logprint("end");
        EXPECT_THAT(Logged(), ElementsAre("Log file initialization succeeded.", "", "end"));
        EXPECT_THAT(Printed(), ElementsAre("Log file initialization succeeded.", "", "end"));
    });
}

TEST(Logging, ANul_EndsTheMessageInTheLineButNotTheLine) {
    InChild([] {
        WriteFile(LogFile(), "");
        Helpers::logprint(std::wstring(L"ab\0cd", 5));
        Helpers::logprint("end");
        EXPECT_THAT(Logged(), ElementsAre("Log file initialization succeeded.", "ab", "end"));
        EXPECT_THAT(Printed(), ElementsAre("Log file initialization succeeded.", "ab", "end"));
    });
}

TEST(Logging, APercentSign_IsNoFormat) {
    InChild([] {
        WriteFile(LogFile(), "");
        Helpers::logprint("%s%n%d");
        Helpers::logprintf("[%s]", "%s%n%d");
        EXPECT_THAT(Logged(),
                    ElementsAre("Log file initialization succeeded.", "%s%n%d", "[%s%n%d]"));
        EXPECT_EQ("[%s%n%d]", Printed().back());
    });
}

TEST(WriteToLogFile, PrintsNothingAndIsNoLastLog) {
    InChild([] {
        WriteFile(LogFile(), "");
        Helpers::logprint("opens the file");
        Helpers::logprint("one");
        Printed();
        Helpers::writeToLogFile(L"file only");
        EXPECT_THAT(Printed(), IsEmpty());
        EXPECT_EQ("file only", Logged().back());
        EXPECT_EQ(L"one", Helpers::getLastLog());
    });
}

TEST(Logprintf, OfAnInt_IsWhatSprintfMakesOfIt) {
    InChild([] {
        for (const int value : {0, 7, -7, 10, 3400, INT_MAX, INT_MIN}) {
            Helpers::logprintf("Attempted port %d, already taken.", value);
            EXPECT_EQ("Attempted port " + std::to_string(value) + ", already taken.",
                      Printed().back());
        }
        Helpers::logprintf("%d", INT_MIN);
        EXPECT_EQ("-2147483648", Printed().back());
    });
}

TEST(Logprintf, OfAString_IsWhatSprintfMakesOfIt) {
    InChild([] {
        Helpers::logprintf("Time zone: %s", "Europe/Zurich");
        EXPECT_EQ("Time zone: Europe/Zurich", Printed().back());
        Helpers::logprintf("[%s]", "");
        EXPECT_EQ("[]", Printed().back());
        const std::string longText(100000, 'x');
        Helpers::logprintf("'%s'", longText);
        EXPECT_EQ("'" + longText + "'", Printed().back());
    });
}

TEST(ReportError, NamesTheCallAndTheCode) {
    InChild([] {
        Helpers::reportError(-43, "FSPathMakeRef");
        EXPECT_EQ("Call to FSPathMakeRef returned error -43", Printed().back());
        Helpers::reportError(-43, L"FSPathMakeRef");
        EXPECT_EQ("Call to FSPathMakeRef returned error -43", Printed().back());
        Helpers::reportError(0, L"\u00E9");
        EXPECT_EQ(L"Call to \u00E9 returned error 0", Helpers::getLastLog());
    });
}

TEST(LastLog, IsEmptyAtFirstAndThenTheLastMessage) {
    InChild([] {
        EXPECT_EQ(L"", Helpers::getLastLog());
        Helpers::logprint("one");
        Helpers::logprint(L"two");
        EXPECT_EQ(L"two", Helpers::getLastLog());
        EXPECT_EQ(L"two", Helpers::getLastLog());
        Helpers::logprint("");
        EXPECT_EQ(L"", Helpers::getLastLog());
    });
}

TEST(LastLog, OfAUTF8Line_IsItsText) {
    InChild([] {
        Helpers::logprint("opens the log");
        Helpers::logprintUtf8("one", u8"caf\u00E9");
        EXPECT_EQ(L"caf\u00E9", Helpers::getLastLog());
        const std::string& kept = Helpers::logprintUtf8(std::string(u8"na\u00EFve"));
        EXPECT_EQ(u8"na\u00EFve", kept);
        EXPECT_EQ(L"na\u00EFve", Helpers::getLastLog());
        Helpers::logprintUtf8("Processing command:", "");
        EXPECT_EQ(L"", Helpers::getLastLog());
        EXPECT_THAT(Printed(),
                    ElementsAre("Logfile does not exist, not logging", "opens the log", "one",
                                u8"caf\u00E9", u8"na\u00EFve", "Processing command:", ""));
    });
}

TEST(LastLog, OfTheFirstLineOfAll_IsKeptWhole) {
    InChild([] {
        const std::string text(1000, 'x');
        EXPECT_EQ(text, Helpers::logprintUtf8(std::string(text)));
        EXPECT_THAT(Printed(), ElementsAre("Logfile does not exist, not logging", text));
    });
}

TEST(LastLog, BehindTheFirstMessage_IsWhatWasSaidAboutTheFile) {
    InChild([] {
        Helpers::logprint("one");
        EXPECT_EQ(L"Logfile does not exist, not logging", Helpers::getLastLog());
    });
    InChild([] {
        WriteFile(LogFile(), "");
        Helpers::logprint("one");
        EXPECT_EQ(L"Log file initialization succeeded.", Helpers::getLastLog());
    });
}

TEST(LastLog, OfAThread_IsNeverAnothers) {
    InChild([] {
        Helpers::logprint("opens the log");
        Helpers::logprint("mine");
        std::thread([] {
            EXPECT_EQ(L"", Helpers::getLastLog());
            Helpers::logprint("its own");
            EXPECT_EQ(L"its own", Helpers::getLastLog());
        }).join();
        EXPECT_EQ(L"mine", Helpers::getLastLog());
    });
}

TEST(LastError, IsTheSystemsTextForErrno) {
    for (const int error : {0, ENOENT, EACCES, ECONNRESET}) {
        errno = error;
        const std::wstring text = Helpers::getLastError();
        EXPECT_EQ(Helpers::stringToWString(std::strerror(error)), text);
    }
    errno = 0;
    EXPECT_EQ(L"Success", Helpers::getLastError());
    errno = 123456;
    EXPECT_EQ(L"Unknown error 123456", Helpers::getLastError());
}

TEST(LastError, IsNotChangedByLogging) {
    for (const bool hasFile : {false, true}) {
        InChild([hasFile] {
            if (hasFile) {
                WriteFile(LogFile(), "");
            }
            errno = ENOTEMPTY;
            Helpers::logprint("one");
            EXPECT_EQ(ENOTEMPTY, errno);
            Helpers::logprintf("%d", 2);
            Helpers::logprintf("%s", "three");
            Helpers::reportError(4, "four");
            Helpers::writeToLogFile(L"five");
            Helpers::initFileLogging();
            EXPECT_EQ(ENOTEMPTY, errno);
            Helpers::deInitFileLogging();
            EXPECT_EQ(ENOTEMPTY, errno);
        });
    }
}

TEST(LastError, IsNotChangedByAnOutputThatIsGone) {
    const Outcome outcome = RunForked([] {
        Helpers::logprint("one");
        close(STDOUT_FILENO);
        setvbuf(stdout, nullptr, _IONBF, 0);
        errno = ENOTEMPTY;
        Helpers::logprint("two");
        EXPECT_EQ(ENOTEMPTY, errno);
    });
    EXPECT_EQ(0, outcome.status);
}

TEST(Version, TheBanner_IsALineOfStandardOutputAlone) {
    InChild([] {
        WriteFile(LogFile(), "");
        Helpers::printCoreVersion();
        EXPECT_THAT(Printed(), ElementsAre("Tessel Core Mac - Version 2.07 RC0 (PID: " +
                                           std::to_string(getpid()) + ")"));
        EXPECT_EQ("", ReadFile(LogFile()));
        EXPECT_EQ(L"", Helpers::getLastLog());
    });
}

TEST(Version, TheBanner_DoesNotSwallowWhatIsPrintedBehindIt) {
    InChild([] {
        std::puts("before");
        Helpers::printCoreVersion();
        std::puts("behind");
        Helpers::logprint("and logged");
        const std::vector<std::string> lines = Printed();
        ASSERT_EQ(5u, lines.size());
        EXPECT_EQ("before", lines[0]);
        EXPECT_EQ("behind", lines[2]);
        EXPECT_EQ("and logged", lines[4]);
    });
}

TEST(Version, TheText_HasAnEmptyReleaseCandidate) {
    EXPECT_EQ(L"2.07.0", Helpers::getCoreVersion());
}

TEST(Logging, FromManyThreadsAtOnce_WritesWholeLinesOnly) {
    InChild([] {
        constexpr int kThreads = 4;
        constexpr int kMessages = 500;
        WriteFile(LogFile(), "");
        const auto message = [](int thread, int number) {
            return "thread " + std::to_string(thread) + " says " + std::to_string(number) +
                   std::string(60, static_cast<char>('a' + thread));
        };
        std::vector<std::thread> threads;
        for (int thread = 0; thread < kThreads; ++thread) {
            threads.emplace_back([thread, &message] {
                for (int number = 0; number < kMessages; ++number) {
                    Helpers::logprint(message(thread, number));
                    ASSERT_EQ(Helpers::stringToWString(message(thread, number)),
                              number == 0 ? Helpers::stringToWString(message(thread, 0))
                                          : Helpers::getLastLog());
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        std::vector<std::string> wanted = {"Log file initialization succeeded."};
        for (int thread = 0; thread < kThreads; ++thread) {
            for (int number = 0; number < kMessages; ++number) {
                wanted.push_back(message(thread, number));
            }
        }
        EXPECT_THAT(Logged(), testing::UnorderedElementsAreArray(wanted));
        EXPECT_THAT(Printed(), testing::UnorderedElementsAreArray(wanted));
    });
}

TEST(Logging, ThatCannotReadTheFile_CountsItAsMissing) {
    InChild([] {
        WriteFile(LogFile(), "");
        ASSERT_EQ(0, chmod(LogFile().c_str(), 0200));
        GiveUpRootsRights();
        Helpers::logprint("one");
        EXPECT_THAT(Printed(), ElementsAre("Logfile does not exist, not logging", "one"));
    });
}

TEST(Logging, ThatCannotWriteTheFile_SaysSo) {
    InChild([] {
        WriteFile(LogFile(), "");
        ASSERT_EQ(0, chmod(LogFile().c_str(), 0400));
        GiveUpRootsRights();
        Helpers::logprint("one");
        EXPECT_THAT(Printed(), ElementsAre("Unable to open logfile", "one"));
    });
}

}  // namespace
