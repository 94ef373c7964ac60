// What comes in from clients that are broken, rude or unlucky: nothing of it may end, block or wear
// out the service.
#include <gmock/gmock.h>

#include <csignal>
#include <future>
#include <random>

#include "support/Files.h"
#include "support/Load.h"
#include "support/Service.h"

namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class BadInput : public testing::Test {
  protected:
    BadInput() { service.WaitUntilListening(); }

    // How many descriptors the service has when nobody is connected. Both threads open some of
    // theirs behind the key file: one that has served a client has them all.
    std::size_t DescriptorsAtRest() {
        service.WaitUntilBothThreadsServe();
        return service.OpenDescriptors();
    }

    // Every port serves a new client, whatever went before.
    void ExpectAllToServe() {
        // The first message of each ends what others have left unfinished.
        Client apps = service.ConnectToApps();
        apps.Ask("");
        EXPECT_EQ(apps.Ask("hello"), "Success ");
        Client pressure = service.ConnectToPressure();
        pressure.Ask("");
        EXPECT_THAT(pressure.Ask("hello"), StartsWith("SyntaxError Unknown command - "));
        // What others have left unfinished spoils one attempt, and the old authorized client may
        // still be going.
        WaitUntil("a client can authorize and is answered", [&] {
            Client client = service.ConnectToCommand();
            try {
                service.Authorize(client);
                return client.Ask("platform") == "Success MACOSX";
            } catch (const Failed&) {
                return false;
            }
        });
    }

    Sandbox sandbox;
    Service service{sandbox};
};

TEST_F(BadInput, Garbage_IsSurvivedOnEveryPort) {
    std::mt19937 random(20081);
    for (int round = 0; round < 30; ++round) {
        std::string garbage(1 + random() % 5000, '\0');
        for (char& byte : garbage) {
            byte = static_cast<char>(random());
        }
        service.ConnectToApps().TrySend(garbage);
        service.ConnectToPressure().TrySend(garbage);
        service.ConnectToCommand().TrySend(garbage);
    }
    ExpectAllToServe();
}

TEST_F(BadInput, AnHTTPRequest_IsClosedOnEveryPortAndTouchesNobodysMessage) {
    const std::string request =
        "POST / HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: text/plain\r\n\r\n"
        "hello|platform|registerChannel evil|startTablet|auth ";
    struct Server {
        int port;
        Client (Service::*connect)() const;
        // To half a message from before, and "lo".
        std::string answer;
    };
    for (const Server& server :
         {Server{service.Keys().commandPort, &Service::ConnectToCommand, ""},
          Server{service.Keys().pressurePort, &Service::ConnectToPressure,
                 "SyntaxError Unknown command - "},
          Server{service.Keys().appsPort, &Service::ConnectToApps, "Success "}}) {
        Client inTheMiddle = (service.*server.connect)();
        inTheMiddle.Send("hel");
        inTheMiddle.WaitUntilRead(sandbox);
        Client browser = (service.*server.connect)();
        browser.TrySend(request);
        browser.ExpectClosed();
        service.WaitForOutput("error web browser refused [" + std::to_string(server.port) + "]");
        inTheMiddle.Send("lo|");
        if (server.answer.empty()) {
            inTheMiddle.ExpectClosed();
        } else {
            EXPECT_THAT(inTheMiddle.Receive(), StartsWith(server.answer));
        }
    }
    EXPECT_EQ(CountOf(service.Output(), "Processing command:\nhello\n"), 4u);
    for (const std::string word : {"platform", "registerChannel", "startTablet", "POST", "auth"}) {
        EXPECT_THAT(service.Output(), Not(HasSubstr("Processing command:\n" + word)));
    }
}

TEST_F(BadInput, GarbageOfAnAuthorizedClient_IsAnsweredAndForgotten) {
    std::mt19937 random(20082);
    Client client = service.Authorized();
    for (int round = 0; round < 30; ++round) {
        std::string garbage(1 + random() % 3000, '\0');
        // Valid UTF-8 of all lengths, quotes, blanks and control characters, but no bar.
        for (char& byte : garbage) {
            byte = static_cast<char>(1 + random() % 123);
        }
        EXPECT_THAT(client.Ask("~" + garbage), StartsWith("SyntaxError "));
    }
    EXPECT_EQ(client.Ask("platform"), "Success MACOSX");
}

TEST_F(BadInput, AConnectionThatEndsAtAnyByte_IsCleanedUp) {
    const std::size_t before = DescriptorsAtRest();
    const std::string dialogue = "auth " + service.Keys().key + "|platform|createUUID|";
    for (std::size_t length = 0; length <= dialogue.size(); ++length) {
        for (const bool withReset : {false, true}) {
            Client client = service.ConnectToCommand();
            client.TrySend(dialogue.substr(0, length));
            if (withReset) {
                client.Reset();
            }
        }
    }
    WaitUntil("all connections are closed", [&] { return service.OpenDescriptors() == before; });
    ExpectAllToServe();
}

TEST_F(BadInput, AThousandConnectionsThatSayNothing_LeaveNoDescriptor) {
    const std::size_t before = DescriptorsAtRest();
    for (int i = 0; i < 334; ++i) {
        service.ConnectToApps().Close();
        service.ConnectToPressure().Reset();
        Client client = service.ConnectToCommand();
        client.ShutDownSending();
        // No more at a time than wait in the listeners' queues: the system makes the others wait.
        if (i % 8 == 7) {
            ExpectAllToServe();
        }
    }
    WaitUntil("all connections are closed", [&] { return service.OpenDescriptors() == before; });
    ExpectAllToServe();
}

TEST_F(BadInput, AClientThatLeavesItsAnswersUnread_IsCleanedUp) {
    const std::size_t before = DescriptorsAtRest();
    {
        Client client = service.Authorized();
        client.Send("platform|platform|platform|");
        client.Reset();
    }
    {
        Client client = service.ConnectToApps();
        client.Send("x|x|x|");
        client.Reset();
    }
    WaitUntil("all connections are closed", [&] { return service.OpenDescriptors() == before; });
    ExpectAllToServe();
}

TEST_F(BadInput, TenThousandEmptyMessages_AreAnsweredOneByOne) {
    constexpr int kCount = 10000;
    Client client = service.Authorized();
    std::future<void> sender = std::async(
        std::launch::async, [&] { client.Send(std::string(kCount, '|') + "platform|"); });
    Client reader = service.ConnectToApps();
    EXPECT_EQ(reader.Ask("hello"), "Success ");
    sender.get();
    for (int i = 0; i < kCount; ++i) {
        ASSERT_THAT(client.Receive(), StartsWith("SyntaxError No command found. - ")) << i;
    }
    EXPECT_EQ(client.Receive(), "Success MACOSX");
}

TEST_F(BadInput, FiftyMegabytesWithoutABar_AreOneMessageInTheEndAndHoldUpNobody) {
    constexpr std::size_t kSize = 50 * 1000 * 1000;
    constexpr std::size_t kPiece = 1000;
    Client large = service.ConnectToApps();
    Client other = service.ConnectToPressure();
    Client command = service.Authorized();
    std::future<void> sender = std::async(std::launch::async, [&] {
        const std::string piece(kPiece, 'x');
        for (std::size_t sent = 0; sent < kSize; sent += kPiece) {
            large.Send(piece);
        }
    });
    int served = 0;
    while (sender.wait_for(std::chrono::milliseconds(20)) != std::future_status::ready) {
        EXPECT_EQ(command.Ask("platform"), "Success MACOSX");
        EXPECT_THAT(other.Ask("nonsense"), StartsWith("SyntaxError "));
        ++served;
    }
    sender.get();
    EXPECT_GT(served, 0);
    large.Send("|");
    EXPECT_EQ(large.Receive(), "Success ");
    EXPECT_EQ(large.Ask("hello"), "Success ");
    EXPECT_EQ(command.Ask("platform"), "Success MACOSX");
}

TEST_F(BadInput, AMessageOfManyThousandWords_IsAnswered) {
    Client client = service.Authorized();
    std::string words = "platform";
    for (int i = 0; i < 100000; ++i) {
        words += " x";
    }
    EXPECT_EQ(client.Ask(words), "Success MACOSX");
    EXPECT_EQ(client.Ask("platform" + std::string(100000, ' ')), "Success MACOSX");
}

TEST_F(BadInput, AClientThatPipelinesAndReadsLate_GetsEveryAnswerInItsOrder) {
    constexpr int kCount = 100000;
    const std::string padding(150, 'x');
    const auto command = [&](int number) {
        return "fixFilePermissions /" + std::to_string(number) + padding;
    };
    Client client = service.Authorized();
    Client other = service.ConnectToApps();
    Client pressure = service.ConnectToPressure();
    std::future<void> sender = std::async(std::launch::async, [&] {
        std::string commands;
        for (int i = 0; i < kCount; ++i) {
            commands += command(i) + "|";
            if (commands.size() > 10000) {
                client.Send(commands);
                commands.clear();
            }
        }
        client.Send(commands);
    });
    // So many bytes unread: the service has stopped reading from the client that does not take its
    // answers.
    WaitUntil("the service waits for the slow reader",
              [&] { return client.UnreadByService(sandbox) > 50000; });
    EXPECT_EQ(other.Ask("hello"), "Success ");
    EXPECT_THAT(pressure.Ask("hello"), StartsWith("SyntaxError "));
    for (int i = 0; i < kCount; ++i) {
        ASSERT_THAT(client.Receive(), StartsWith("SyntaxError " + command(i) + " - "));
    }
    sender.get();
    EXPECT_EQ(client.Ask("platform"), "Success MACOSX");
}

TEST_F(BadInput, AClientThatNeverReads_HoldsUpNobodyAndCanBeGotRidOf) {
    const std::size_t before = DescriptorsAtRest();
    {
        Client rude = service.ConnectToApps();
        std::atomic<bool> stopping{false};
        std::future<void> sender = std::async(std::launch::async, [&] {
            std::string many;
            for (int i = 0; i < 1000; ++i) {
                many += "nonsense|";
            }
            while (!stopping && rude.TrySend(many)) {
            }
        });
        WaitUntil("the service waits for the one that does not read",
                  [&] { return rude.UnreadByService(sandbox) > 50000; });
        EXPECT_EQ(service.ConnectToApps().Ask("hello"), "Success ");
        EXPECT_EQ(service.Authorized().Ask("platform"), "Success MACOSX");
        EXPECT_THAT(service.ConnectToPressure().Ask("x"), StartsWith("SyntaxError "));
        stopping = true;
        // The sender is stuck in the kernel's full buffers; ending the connection frees it.
        rude.ShutDownSending();
        sender.get();
        rude.Reset();
    }
    WaitUntil("all connections are closed", [&] { return service.OpenDescriptors() == before; });
    ExpectAllToServe();
}

class Descriptors : public testing::Test {
  protected:
    void SetUp() override {
        if (Contains(E2E_SANITIZERS, "undefined")) {
            GTEST_SKIP()
                << "the sanitizer needs descriptors for its own checks, and takes it for a "
                   "finding when it gets none";
        }
        Start start;
        start.openFiles = kLimit;
        service.emplace(sandbox, start);
        service->WaitUntilListening();
    }

    // Until the service has as many as it may have, and `more` clients that it cannot accept.
    std::vector<Client> Exhaust(int more) {
        std::vector<Client> clients;
        while (service->OpenDescriptors() < kLimit) {
            if (clients.size() > kLimit) {
                throw Failed("the service accepts more clients than it has descriptors for");
            }
            const std::size_t accepted = CountOf(service->OutputSoFar(), "New connection: ");
            clients.push_back(service->ConnectToApps());
            WaitUntil("the service has accepted one more", [&] {
                return CountOf(service->OutputSoFar(), "New connection: ") > accepted ||
                       service->OpenDescriptors() >= kLimit;
            });
        }
        for (int i = 0; i < more; ++i) {
            clients.push_back(service->ConnectToApps());
        }
        return clients;
    }

    // A fixed stretch of time, because that is what is measured: the share of it that the service
    // computes.
    void ExpectIdleness() {
        constexpr std::chrono::milliseconds kStretch{1000};
        const std::chrono::milliseconds before = service->ProcessorTime();
        std::this_thread::sleep_for(kStretch);
        EXPECT_LT((service->ProcessorTime() - before).count(), kStretch.count() / 20);
    }

    static constexpr std::size_t kLimit = 40;
    Sandbox sandbox;
    std::optional<Service> service;
};

TEST_F(Descriptors, WhenThereAreNoMore_TheServiceDoesNotSpinAndServesThoseItHas) {
    Client early = service->Authorized();
    std::vector<Client> clients = Exhaust(5);
    ExpectIdleness();
    EXPECT_EQ(early.Ask("platform"), "Success MACOSX");
    EXPECT_EQ(clients.at(0).Ask("hello"), "Success ");
    // No pipe can be made for the question whether the user is an administrator.
    EXPECT_EQ(early.Ask("userCanPerformDockUpdate"), "Success UserCanPerformDockUpdate=false");
}

TEST_F(Descriptors, WhenTheyAreFreeAgain_TheServiceServesThoseWhoWaitedAndNewOnes) {
    std::vector<Client> clients = Exhaust(5);
    Client waiting = std::move(clients.back());
    clients.clear();
    EXPECT_EQ(waiting.Ask("hello"), "Success ");
    EXPECT_EQ(service->ConnectToApps().Ask("hello"), "Success ");
    EXPECT_THAT(service->ConnectToPressure().Ask("hello"), StartsWith("SyntaxError "));
    EXPECT_EQ(service->Authorized().Ask("platform"), "Success MACOSX");
}

TEST_F(Descriptors, OnThePressurePort_RunOutAndComeBackAsWell) {
    Client early = service->ConnectToPressure();
    EXPECT_THAT(early.Ask("hello"), StartsWith("SyntaxError "));
    std::vector<Client> clients = Exhaust(0);
    Client waiting = service->ConnectToPressure();
    ExpectIdleness();
    EXPECT_THAT(early.Ask("hello"), StartsWith("SyntaxError "));
    clients.clear();
    EXPECT_THAT(waiting.Ask("hello"), StartsWith("SyntaxError "));
}

}  // namespace
