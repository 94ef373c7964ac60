// How the service ends when a signal asks it to, or forces it.
#include <gmock/gmock.h>

#include <csignal>

#include "support/Files.h"
#include "support/Load.h"
#include "support/Service.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

constexpr char kCrashLine[] = "[CRASH] Program terminated unexpectedly. Signal:";

class FatalSignals : public testing::TestWithParam<int> {};

TEST_P(FatalSignals, LeaveTwoLinesInTheLogAndStatusOne) {
    Sandbox sandbox;
    sandbox.MakeUsersFile(Service::kLogFile, "");
    Service service(sandbox);
    service.WaitUntilListening();
    // Stays connected, so that nothing is logged beside the signal.
    Client client = service.Authorized();
    EXPECT_EQ(client.Ask("platform"), "Success MACOSX");
    EXPECT_EQ(service.Stop(GetParam()), Exit::Status(1));
    const std::string number = std::to_string(GetParam());
    const std::string tag = service.Log().substr(0, 5) + " - ";
    EXPECT_THAT(service.Log(), EndsWith(tag + kCrashLine + "\n" + tag + number + "\n"));
    EXPECT_THAT(service.Output(), EndsWith(std::string(kCrashLine) + "\n" + number + "\n"));
    EXPECT_THAT(service.Errors(), testing::ContainsRegex("^Error: .+\n$"));
}

INSTANTIATE_TEST_SUITE_P(Each, FatalSignals,
                         testing::Values(SIGABRT, SIGFPE, SIGILL, SIGINT, SIGSEGV, SIGTERM),
                         [](const testing::TestParamInfo<int>& number) {
                             return std::string("SIG") + sigabbrev_np(number.param);
                         });

TEST(Signals, WithoutALogFile_TheLinesArePrintedAllTheSame) {
    Sandbox sandbox;
    Service service(sandbox);
    service.WaitUntilListening();
    EXPECT_EQ(service.Stop(SIGTERM), Exit::Status(1));
    EXPECT_THAT(service.Output(), EndsWith(std::string(kCrashLine) + "\n15\n"));
}

TEST(Signals, AnInterruptIgnoredByTheParent_StaysIgnored) {
    Sandbox sandbox;
    Start start;
    start.ignoredSignals = {SIGINT};
    Service service(sandbox, start);
    service.WaitUntilListening();
    Client client = service.Authorized();
    service.Signal(SIGINT);
    EXPECT_EQ(client.Ask("platform"), "Success MACOSX");
    EXPECT_TRUE(service.Running());
    EXPECT_EQ(service.Stop(SIGTERM), Exit::Status(1));
    EXPECT_EQ(CountOf(service.Output(), kCrashLine), 1U);
}

TEST(Signals, ATerminationIgnoredByTheParent_StaysIgnored) {
    Sandbox sandbox;
    Start start;
    start.ignoredSignals = {SIGTERM};
    Service service(sandbox, start);
    service.WaitUntilListening();
    Client client = service.Authorized();
    service.Signal(SIGTERM);
    EXPECT_EQ(client.Ask("platform"), "Success MACOSX");
    EXPECT_EQ(service.Stop(SIGINT), Exit::Status(1));
    EXPECT_THAT(service.Output(), EndsWith(std::string(kCrashLine) + "\n2\n"));
}

TEST(Signals, ASecondSignal_ChangesNothing) {
    Sandbox sandbox;
    for (int run = 0; run < 10; ++run) {
        Service service(sandbox);
        service.WaitUntilListening();
        service.Signal(SIGTERM);
        service.Signal(SIGTERM);
        service.Signal(SIGINT);
        EXPECT_EQ(service.WaitForExit(), Exit::Status(1)) << "run " << run;
        EXPECT_EQ(CountOf(service.Output(), kCrashLine), 1U) << "run " << run;
    }
}

TEST(Signals, ToldToEndUnderLoad_ItEndsEveryTimeAndLosesNoLine) {
    constexpr int kRuns = 50;
    Sandbox sandbox;
    for (int run = 0; run < kRuns; ++run) {
        sandbox.MakeUsersFile(Service::kLogFile, "");
        const int signal = run % 2 == 0 ? SIGTERM : SIGINT;
        Load load;
        Service service(sandbox);
        service.WaitUntilListening();
        load.Add(service.Authorized(), "getCommonUserDir", "Success CommonUserDir=");
        load.Add(service.ConnectToPressure(), "nonsense", "SyntaxError Unknown command - ");
        load.Add(service.ConnectToApps(), "nonsense", "Success ");
        WaitUntil("all are being answered", [&] { return load.Answers() > 30 + run; });
        ASSERT_EQ(service.Stop(signal), Exit::Status(1)) << "run " << run;
        load.Stop();
        // Whatever else is logged meanwhile, the number follows at once.
        const std::string number = std::to_string(signal) + "\n";
        const std::string tag = service.Log().substr(0, 5) + " - ";
        EXPECT_THAT(service.Output(), HasSubstr(std::string(kCrashLine) + "\n" + number))
            << "run " << run;
        EXPECT_THAT(service.Log(), HasSubstr(tag + kCrashLine + "\n" + tag + number))
            << "run " << run;
        EXPECT_THAT(service.Errors(), HasSubstr("Error: ")) << "run " << run;
    }
}

TEST(Signals, ToldToEndDuringALongCommand_ItEnds) {
    Sandbox sandbox;
    Service service(sandbox);
    service.WaitUntilListening();
    Client client = service.Authorized();
    // The acknowledgement comes first, then a second of waiting on the thread that handles
    // commands.
    EXPECT_EQ(client.Ask("exit"), "QuitAcknowledged");
    EXPECT_EQ(service.Stop(SIGTERM), Exit::Status(1));
    EXPECT_THAT(service.Output(), EndsWith(std::string(kCrashLine) + "\n15\n"));
}

TEST(Signals, WritingToAClientThatHasGone_KillsNothing) {
    Sandbox sandbox;
    Service service(sandbox);
    service.WaitUntilListening();
    for (int i = 0; i < 50; ++i) {
        Client client = service.ConnectToApps();
        std::string questions;
        for (int question = 0; question < 200; ++question) {
            questions += "nonsense|";
        }
        client.TrySend(questions);
        if (i % 2 == 0) {
            client.Reset();
        } else {
            client.Close();
        }
    }
    EXPECT_EQ(service.ConnectToApps().Ask("hello"), "Success ");
    EXPECT_EQ(service.Authorized().Ask("platform"), "Success MACOSX");
    EXPECT_THAT(service.Output(), Not(HasSubstr(kCrashLine)));
}

}  // namespace
