// The two threads that serve clients, at work at the same time: no client gets what belongs to
// another.
#include <gmock/gmock.h>

#include <future>

#include "support/Files.h"
#include "support/Load.h"
#include "support/Service.h"

namespace {

using testing::StartsWith;

class Threads : public testing::Test {
  protected:
    Threads() { service.WaitUntilListening(); }

    Sandbox sandbox;
    Service service{sandbox};
};

TEST_F(Threads, EveryClient_GetsItsOwnAnswersWhileAllPortsAreBusy) {
    constexpr int kAnswers = kSanitized ? 3000 : 15000;
    Load load;
    load.Add(service.Authorized(), "getCommonUserDir",
             "Success CommonUserDir=/Users/Shared/Velto/");
    for (int i = 0; i < 2; ++i) {
        load.Add(service.ConnectToPressure(), "nonsense", "SyntaxError Unknown command - ");
        load.Add(service.ConnectToPressure(), "", "SyntaxError No command found. - ");
        load.Add(service.ConnectToApps(), "nonsense", "Success ");
    }
    WaitUntil(
        "there have been enough answers", [&] { return load.Answers() > kAnswers; }, kPatience * 3);
    load.Stop();
}

TEST_F(Threads, TheReasonOfARefusal_IsNeverTheOtherThreads) {
    constexpr int kAnswers = kSanitized ? 3000 : 15000;
    Load load;
    load.Add(service.Authorized(), "createUUID x",
             "SyntaxError Wrong number of arguments, expected: 0 - ");
    load.Add(service.ConnectToPressure(), "nonsense", "SyntaxError Unknown command - ");
    load.Add(service.ConnectToPressure(), "", "SyntaxError No command found. - ");
    WaitUntil(
        "there have been enough answers", [&] { return load.Answers() > kAnswers; }, kPatience * 3);
    load.Stop();
}

TEST_F(Threads, AConnectionWhoseNumberTheOtherThreadHadBefore_IsServedByItsOwnServer) {
    constexpr int kConnections = kSanitized ? 200 : 500;
    // Both threads close and accept all the time, so numbers wander between them.
    std::future<void> pressure = std::async(std::launch::async, [&] {
        for (int i = 0; i < kConnections; ++i) {
            EXPECT_THAT(service.ConnectToPressure().Ask("nonsense"),
                        StartsWith("SyntaxError Unknown command - "));
        }
    });
    std::future<void> apps = std::async(std::launch::async, [&] {
        for (int i = 0; i < kConnections; ++i) {
            EXPECT_EQ(service.ConnectToApps().Ask("nonsense"), "Success ");
        }
    });
    pressure.get();
    apps.get();
}

TEST_F(Threads, ThePressureThread_ServesWhileACommandTakesItsTime) {
    Client command = service.Authorized();
    Client pressure = service.ConnectToPressure();
    EXPECT_EQ(command.Ask("exit"), "QuitAcknowledged");
    const auto acknowledged = std::chrono::steady_clock::now();
    command.Send("platform|");
    int served = 0;
    while (std::chrono::steady_clock::now() - acknowledged < std::chrono::milliseconds(500)) {
        EXPECT_THAT(pressure.Ask("hello"), StartsWith("SyntaxError "));
        ++served;
    }
    EXPECT_GT(served, 10);
    EXPECT_EQ(command.Receive(), "Success MACOSX");
    EXPECT_GE(std::chrono::steady_clock::now() - acknowledged, std::chrono::milliseconds(900));
}

TEST_F(Threads, WhatThePressureThreadLogs_IsPrintedWithoutTheMainThreadsHelp) {
    service.ConnectToPressure().Ask("nonsense");
    service.WaitForOutput("Processing command:\nnonsense\nUnknown command\n");
}

TEST_F(Threads, FiveHundredClients_AreAllServed) {
    std::vector<Client> clients;
    for (int i = 0; i < 500; ++i) {
        clients.push_back(service.ConnectToApps());
        // One at a time: only ten may wait to be accepted.
        ASSERT_EQ(clients.back().Ask("hello"), "Success ");
    }
    for (int round = 0; round < 3; ++round) {
        for (Client& client : clients) {
            ASSERT_EQ(client.Ask("hello"), "Success ");
        }
    }
}

}  // namespace
