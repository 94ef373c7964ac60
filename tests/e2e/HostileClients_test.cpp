// Clients that mean harm by their patience or their number. Those that never read, break off or
// send too much are in BadInput_test.cpp, those that wait in a channel in Channels_test.cpp, and a
// service without descriptors in BadInput_test.cpp (Descriptors).
#include <gmock/gmock.h>
#include <sys/resource.h>

#include <chrono>
#include <thread>

#include "support/Files.h"
#include "support/Service.h"

namespace {

using std::chrono::milliseconds;
using testing::StartsWith;

Start WithDescriptors(int most) {
    Start start;
    start.openFiles = most;
    return start;
}

class HostileClients : public testing::Test {
  protected:
    explicit HostileClients(Start start = {}) : service(sandbox, std::move(start)) {
        service.WaitUntilListening();
    }

    Sandbox sandbox;
    Service service;
};

// The unfinished message is the server's, so every letter may spoil the next command of another
// client on the same port: that one alone, and no other port's.
TEST_F(HostileClients, ThatSendsALetterNowAndThen_SpoilsTheNextCommandAndNoMore) {
    constexpr int kLetters = 40;
    Client dribblesToPressure = service.ConnectToPressure();
    Client dribblesToApps = service.ConnectToApps();
    Client dock = service.Authorized();
    Client pressure = service.ConnectToPressure();
    Client watcher = service.ConnectToApps();
    EXPECT_EQ(watcher.Ask("registerChannel watcher"), "Success ChannelRegistered=true");
    for (int letter = 0; letter < kLetters; ++letter) {
        dribblesToPressure.Send("x");
        dribblesToApps.Send("x");
        dribblesToPressure.WaitUntilRead(sandbox);
        dribblesToApps.WaitUntilRead(sandbox);
        EXPECT_EQ(dock.Ask("platform"), "Success MACOSX");
        EXPECT_THAT(pressure.Ask("getDriverVersion"), StartsWith("SyntaxError Unknown command - "));
        EXPECT_THAT(pressure.Ask("getDriverVersion"), StartsWith("Success DriverVersion="));
        EXPECT_EQ(watcher.Ask("sendDataToChannel watcher a b"), "Success ");
        EXPECT_EQ(watcher.Ask("sendDataToChannel watcher a b"), "ForwardDataToChannel watcher a");
        EXPECT_EQ(watcher.Receive(), "Success DataSentToChannel=b");
    }
}

TEST_F(HostileClients, ThatSendsOneMessageByteByByteForSeconds_HoldsUpNobody) {
    const std::string message = "registerChannel slowpoke|";
    Client slow = service.ConnectToApps();
    Client dock = service.Authorized();
    Client pressure = service.ConnectToPressure();
    for (const char byte : message) {
        slow.Send(std::string(1, byte));
        std::this_thread::sleep_for(milliseconds(40));
        EXPECT_EQ(dock.Ask("platform"), "Success MACOSX");
        EXPECT_THAT(pressure.Ask("getDriverVersion"), StartsWith("Success DriverVersion="));
    }
    EXPECT_EQ(slow.Receive(), "Success ChannelRegistered=true");
}

TEST_F(HostileClients, ThatGuessesKeys_IsClosedEveryTimeAndTheDockComesInBetween) {
    constexpr std::size_t kGuesses = kSanitized ? 200 : 1000;
    std::string guess = service.Keys().key;
    std::size_t closed = 0;
    const auto comeAndGo = [&](const auto& act) {
        {
            Client client = service.ConnectToCommand();
            act(client);
        }
        service.WaitForOutput("deinit client\n", ++closed);
    };
    for (std::size_t number = 0; number < kGuesses; ++number) {
        // One letter is another one, or two of them.
        guess = service.Keys().key;
        for (const std::size_t at : {1 + number % 36, 1 + number * 7 % 36}) {
            guess[at] = guess[at] == '0' ? '1' : '0';
        }
        if (guess == service.Keys().key) {
            guess += "0";
        }
        comeAndGo([&](Client& client) {
            client.Send("auth " + guess + "|platform|");
            client.ExpectClosed();
        });
        if (number % 20 != 0) {
            continue;
        }
        comeAndGo([&](Client& dock) {
            service.Authorize(dock);
            Client guesses = service.ConnectToCommand();
            guesses.TrySend("auth " + guess + "|platform|");
            guesses.ExpectClosed();
            EXPECT_EQ(dock.Ask("platform"), "Success MACOSX");
        });
    }
    EXPECT_EQ(CountOf(service.Output(), "Authorization successful.\n"), (kGuesses + 19) / 20);
    EXPECT_EQ(CountOf(service.Output(), "Authorization failed!\n"), kGuesses);
}

class HostileCrowd : public HostileClients {
  protected:
    static constexpr int kEach = 1000;

    HostileCrowd() : HostileClients(WithDescriptors(4 * kEach)) {
        // This process holds the other ends.
        getrlimit(RLIMIT_NOFILE, &before);
        rlimit more = before;
        more.rlim_cur = before.rlim_max;
        setrlimit(RLIMIT_NOFILE, &more);
    }
    ~HostileCrowd() override { setrlimit(RLIMIT_NOFILE, &before); }

    rlimit before = {};
};

TEST_F(HostileCrowd, OfAThousandSilentConnectionsToEachPort_HoldsUpNobodyAndLeavesNothing) {
    if (before.rlim_max < 4 * kEach) {
        GTEST_SKIP() << "this process may not have " << 4 * kEach << " descriptors";
    }
    service.WaitUntilBothThreadsServe();
    const std::size_t descriptors = service.OpenDescriptors();
    {
        std::vector<Client> crowd;
        for (int i = 0; i < kEach; ++i) {
            crowd.push_back(service.ConnectToCommand());
            crowd.push_back(service.ConnectToPressure());
            crowd.push_back(service.ConnectToApps());
            // No more at a time than wait in a listener's queue: the system makes the others wait.
            if (i % 8 == 7) {
                WaitUntil("all are accepted",
                          [&] { return service.OpenDescriptors() >= descriptors + crowd.size(); });
            }
        }
        Client dock = service.Authorized();
        Client pressure = service.ConnectToPressure();
        Client apps = service.ConnectToApps();
        for (int i = 0; i < 50; ++i) {
            EXPECT_EQ(dock.Ask("platform"), "Success MACOSX");
            EXPECT_THAT(pressure.Ask("getDriverVersion"), StartsWith("Success DriverVersion="));
            EXPECT_EQ(apps.Ask("hello"), "Success ");
        }
    }
    WaitUntil("all are closed", [&] { return service.OpenDescriptors() == descriptors; });
    EXPECT_EQ(service.Authorized().Ask("platform"), "Success MACOSX");
}

class HostileCrowdWithFewDescriptors : public HostileClients {
  protected:
    static constexpr std::size_t kMost = 256;

    HostileCrowdWithFewDescriptors() : HostileClients(WithDescriptors(kMost)) {}

    void SetUp() override {
        if (Contains(E2E_SANITIZERS, "undefined")) {
            GTEST_SKIP() << "the sanitizer needs descriptors for its own checks";
        }
    }
};

TEST_F(HostileCrowdWithFewDescriptors, TheDockIsServed_AndEverybodyOnceTheCrowdHasGone) {
    service.WaitUntilBothThreadsServe();
    const std::size_t descriptors = service.OpenDescriptors();
    Client dock = service.Authorized();
    {
        std::vector<Client> crowd;
        while (service.OpenDescriptors() < kMost) {
            const std::size_t accepted = CountOf(service.OutputSoFar(), "New connection: ");
            crowd.push_back(crowd.size() % 2 == 0 ? service.ConnectToApps()
                                                  : service.ConnectToPressure());
            WaitUntil("one more is accepted, or there are no more descriptors", [&] {
                return CountOf(service.OutputSoFar(), "New connection: ") > accepted ||
                       service.OpenDescriptors() >= kMost;
            });
            ASSERT_LE(crowd.size(), kMost);
        }
        for (int i = 0; i < 5; ++i) {
            crowd.push_back(service.ConnectToApps());
            crowd.push_back(service.ConnectToPressure());
        }
        EXPECT_EQ(dock.Ask("platform"), "Success MACOSX");
        EXPECT_EQ(crowd.at(0).Ask("hello"), "Success ");
        EXPECT_THAT(crowd.at(1).Ask("getDriverVersion"), StartsWith("Success DriverVersion="));
    }
    EXPECT_EQ(service.ConnectToApps().Ask("hello"), "Success ");
    EXPECT_THAT(service.ConnectToPressure().Ask("getDriverVersion"),
                StartsWith("Success DriverVersion="));
    EXPECT_EQ(dock.Ask("platform"), "Success MACOSX");
    dock.Close();
    WaitUntil("all are closed", [&] { return service.OpenDescriptors() == descriptors; });
    EXPECT_EQ(service.Authorized().Ask("platform"), "Success MACOSX");
}

}  // namespace
