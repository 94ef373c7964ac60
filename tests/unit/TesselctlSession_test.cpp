#include "tesselctl/Session.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>

#include "unit/TesselctlTesting.h"

namespace {

using namespace tesselctl;
using namespace std::chrono_literals;
using tesselctltest::Authorizing;
using tesselctltest::Client;
using tesselctltest::DeadPort;
using tesselctltest::kKey;
using tesselctltest::ScriptedService;
using tesselctltest::TemporaryHome;
using tesselctltest::WriteFile;

const std::string kAuth = std::string("auth ") + kKey;

// Short where a test waits for nothing to happen, long where it waits for something.
Limits ShortLimits() {
    Limits limits;
    limits.glance = 20ms;
    limits.quiet = 100ms;
    limits.patience = 200ms;
    return limits;
}

class TesselctlSession : public testing::Test {
  protected:
    // A home whose key file names this command port.
    void ServeOn(int port) { home.WriteKeyFile(port, port, port); }

    std::string ProblemOf(Trouble trouble, const std::optional<Problem>& problem) {
        if (!problem) return "<no problem>";
        EXPECT_EQ(static_cast<int>(trouble), static_cast<int>(problem->trouble)) << problem->text;
        return problem->text;
    }

    std::string Text(const Result<Answer>& answer) {
        return answer.Ok() ? answer.Value().text : "<" + answer.GetProblem().text + ">";
    }

    TemporaryHome home;
    Limits limits = ShortLimits();
};

TEST_F(TesselctlSession, ACommand_IsAnsweredAfterTheHandshake) {
    ScriptedService service(
        Authorizing([](const std::string& c) { return "Success <" + c + ">|"; }));
    ServeOn(service.Port());
    Session session(home.Path(), limits);
    EXPECT_EQ("<platform>", Text(session.Run("platform")));
    EXPECT_EQ("<checkExists \"a b\">", Text(session.Run("checkExists \"a b\"")));
    EXPECT_EQ(1, service.Connections());
}

// The short pauses make the parts arrive apart.
TEST_F(TesselctlSession, AnAnswerSplitAtEveryByte_IsTheSameAnswer) {
    const std::string stream = "authOk|CurrentAttachedDevices=0X1234|Success MACOSX|";
    const std::size_t authEnd = stream.find('|') + 1;
    for (std::size_t split = 1; split < stream.size(); split++) {
        ScriptedService service([&](Client& client, int) {
            if (client.Read() != kAuth) return;
            if (split < authEnd) {
                client.Send(stream.substr(0, split));
                std::this_thread::sleep_for(2ms);
                client.Send(stream.substr(split, authEnd - split));
            } else {
                client.Send(stream.substr(0, authEnd));
            }
            if (client.Read() != "platform") return;
            const std::size_t second = std::max(split, authEnd);
            client.Send(stream.substr(authEnd, second - authEnd));
            std::this_thread::sleep_for(2ms);
            client.Send(stream.substr(second));
            client.WaitForGoodbye();
        });
        ServeOn(service.Port());
        Session session(home.Path(), limits);
        ASSERT_EQ("MACOSX", Text(session.Run("platform"))) << split;
    }
}

TEST_F(TesselctlSession, MessagesThatAnswerNothing_AreNotTakenForTheAnswer) {
    ScriptedService service([](Client& client, int) {
        client.Read();
        client.Send("CurrentAttachedDevices=|authOk|CurrentAttachedDevices=0X0001|");
        client.Read();
        client.Send("BroadcastRegisteredChannel=Success|ForwardDataToChannel True False|");
        client.Send({"0511\0d1_2 PenData.USE_TIP|Success right|", 41});
        client.WaitForGoodbye();
    });
    ServeOn(service.Port());
    Session session(home.Path(), limits);
    std::vector<std::string> notices;
    session.OnNotice([&](const std::string& text) { notices.push_back(text); });
    EXPECT_EQ("right", Text(session.Run("platform")));
    EXPECT_EQ((std::vector<std::string>{
                  "CurrentAttachedDevices=0X0001", "BroadcastRegisteredChannel=Success",
                  "ForwardDataToChannel True False", "0511", "d1_2", "PenData.USE_TIP"}),
              notices);
}

TEST_F(TesselctlSession, CommandsOfTheOtherServers_GoThereWithoutAKey) {
    ScriptedService pressure([](Client& client, int) {
        EXPECT_EQ("getDriverVersion", client.Read());
        client.Send("Success DriverVersion=1.0|");
        client.WaitForGoodbye();
    });
    ScriptedService apps([](Client& client, int) {
        EXPECT_EQ("registerChannel a", client.Read());
        client.Send("Success ChannelRegistered=true|");
        EXPECT_EQ("sendDataToChannel a b c", client.Read());
        client.Send("ForwardDataToChannel a b|Success DataSentToChannel=c|");
        client.WaitForGoodbye();
    });
    home.WriteKeyFile(DeadPort(), pressure.Port(), apps.Port());
    Session session(home.Path(), limits);
    EXPECT_EQ("DriverVersion=1.0", Text(session.Run("getDriverVersion")));
    EXPECT_EQ("ChannelRegistered=true", Text(session.Run("registerChannel a")));
    EXPECT_EQ("DataSentToChannel=c", Text(session.Run("sendDataToChannel a b c")));
    EXPECT_EQ(1, apps.Connections());
}

TEST_F(TesselctlSession, WithoutAKeyFile_NoServiceWasEverStarted) {
    Session session(home.Path(), limits);
    ProblemOf(Trouble::kNoKeyFile, session.Open(Server::kCommand));
    ProblemOf(Trouble::kNoKeyFile, session.Open(Server::kPressure));
}

TEST_F(TesselctlSession, AKeyFileLeftBehind_NamesTheDeadPort) {
    const int port = DeadPort();
    ServeOn(port);
    Session session(home.Path(), limits);
    const std::string expected = "the service is not running: nobody listens on port " +
                                 std::to_string(port) + ", " + home.KeyFile() +
                                 " was left by an earlier run";
    EXPECT_EQ(expected, ProblemOf(Trouble::kNobodyListens, session.Open(Server::kCommand)));
    EXPECT_EQ(expected, ProblemOf(Trouble::kNobodyListens, session.Open(Server::kApps)));
}

TEST_F(TesselctlSession, APortThatTheServiceCouldNotOpen_IsSaidSo) {
    home.WriteKeyFile(3400, -1, 3402);
    Session session(home.Path(), limits);
    EXPECT_EQ("the service runs without its pressure server: it found no free port for it",
              ProblemOf(Trouble::kPortNotOpened, session.Open(Server::kPressure)));
}

TEST_F(TesselctlSession, ABusyService_ClosesEveryConnectionUnread) {
    ScriptedService service([](Client&, int) {});
    ServeOn(service.Port());
    Session session(home.Path(), limits);
    EXPECT_EQ("the service is busy with another authorized client; it serves one at a time",
              ProblemOf(Trouble::kBusy, session.Open(Server::kCommand)));
    EXPECT_GE(service.Connections(), 3);
}

TEST_F(TesselctlSession, AServiceThatBecomesFree_IsWaitedFor) {
    ScriptedService service([](Client& client, int number) {
        if (number < 4) return;
        if (client.Read() != kAuth) return;
        client.Send("authOk|");
        client.Read();
        client.Send("True|");
        client.WaitForGoodbye();
    });
    ServeOn(service.Port());
    limits.patience = 20s;
    Session session(home.Path(), limits);
    const auto answer = session.Run("checkExists /");
    ASSERT_TRUE(answer.Ok()) << answer.GetProblem().text;
    EXPECT_EQ(Word::kTrue, answer.Value().word);
    EXPECT_EQ(5, service.Connections());
}

TEST_F(TesselctlSession, AnotherClientThatWasFaster_CountsAsBusyAndIsWaitedFor) {
    // The key comes too late on the first two connections and is taken for a command.
    ScriptedService service([](Client& client, int number) {
        client.Read();
        client.Send(number < 2 ? "SyntaxError Unknown command - Success|" : "authOk|");
        client.WaitForGoodbye();
    });
    ServeOn(service.Port());
    Session session(home.Path(), limits);
    EXPECT_FALSE(session.Open(Server::kCommand));
    EXPECT_EQ(3, service.Connections());
}

TEST_F(TesselctlSession, ARefusedKey_IsToldFromABusyService) {
    std::atomic<int> keysShown{0};
    ScriptedService service([&](Client& client, int) {
        if (client.Read() == kAuth) keysShown++;
    });
    ServeOn(service.Port());
    Session session(home.Path(), limits);
    EXPECT_EQ("port " + std::to_string(service.Port()) + " refused the key in " + home.KeyFile() +
                  ": the file belongs to another run, or another program has taken the port",
              ProblemOf(Trouble::kKeyRefused, session.Open(Server::kCommand)));
    EXPECT_EQ(3, keysShown);
    EXPECT_EQ(3, service.Connections());
}

TEST_F(TesselctlSession, AServiceRestartedInBetween_IsFoundByItsNewKeyFile) {
    ScriptedService started(Authorizing([](const std::string&) { return "Success new|"; }));
    ScriptedService former([&](Client& client, int) {
        client.Read();
        ServeOn(started.Port());
    });
    ServeOn(former.Port());
    Session session(home.Path(), limits);
    EXPECT_EQ("new", Text(session.Run("platform")));
}

TEST_F(TesselctlSession, AServiceThatStopsWhileWeKnock_IsReportedAsGone) {
    // The key file disappears together with the service.
    ScriptedService former([&](Client& client, int) {
        client.Read();
        unlink(home.KeyFile().c_str());
    });
    ServeOn(former.Port());
    Session session(home.Path(), limits);
    ProblemOf(Trouble::kNoKeyFile, session.Open(Server::kCommand));
}

TEST_F(TesselctlSession, ASilentPort_IsGivenUpAfterTheHandshakeTime) {
    ScriptedService service([](Client& client, int) { client.WaitForGoodbye(); });
    ServeOn(service.Port());
    limits.handshake = 150ms;
    Session session(home.Path(), limits);
    EXPECT_EQ(
        "port " + std::to_string(service.Port()) +
            " gave no answer to the key within 0.15 seconds: the service is in the middle of a "
            "long command, or another program has taken the port",
        ProblemOf(Trouble::kSilent, session.Open(Server::kCommand)));
}

TEST_F(TesselctlSession, AStrangerOnThePort_IsRecognisedByWhatItSays) {
    // A protocol that greets first and never ends a message, one that answers and ends, and one
    // that answers with bars.
    for (const char* greeting :
         {"SSH-2.0-Test\r\n", "HTTP/1.0 400 Bad\r\n\r\n", "what|was|that|"}) {
        ScriptedService service([&](Client& client, int) {
            client.Send(greeting);
            if (greeting[0] == 'H') {
                client.Read();
                return;
            }
            client.WaitForGoodbye();
        });
        ServeOn(service.Port());
        limits.handshake = 150ms;
        Session session(home.Path(), limits);
        const std::string text = ProblemOf(Trouble::kForeign, session.Open(Server::kCommand));
        const std::string said(greeting, 4);
        EXPECT_NE(std::string::npos,
                  text.find(" belongs to something other than the service: it says \"" + said))
            << text;
        EXPECT_EQ(std::string::npos, text.find('\n'));
    }
}

TEST_F(TesselctlSession, AStrangerThatClosesFirstAndTalksLater_IsRecognisedToo) {
    ScriptedService service([](Client& client, int number) {
        if (number == 0) return;
        client.Send("+OK ready|");
        client.WaitForGoodbye();
    });
    ServeOn(service.Port());
    Session session(home.Path(), limits);
    EXPECT_EQ("port " + std::to_string(service.Port()) +
                  " belongs to something other than the service: it says \"+OK ready\"",
              ProblemOf(Trouble::kForeign, session.Open(Server::kCommand)));
}

TEST_F(TesselctlSession, AConnectionThatEndsBeforeTheAnswer_IsLostAndNotRepeated) {
    std::atomic<int> commands{0};
    ScriptedService service([&](Client& client, int) {
        client.Read();
        client.Send("authOk|");
        client.Read();
        commands++;
        client.Send("Succ");
    });
    ServeOn(service.Port());
    Session session(home.Path(), limits);
    const auto answer = session.Run("installAirApp a b c");
    ASSERT_FALSE(answer.Ok());
    EXPECT_EQ(Trouble::kConnectionLost, answer.GetProblem().trouble);
    EXPECT_EQ(
        "the connection was lost before the answer to installAirApp (it broke off after \"Succ\")",
        answer.GetProblem().text);
    EXPECT_EQ(1, commands);
}

TEST_F(TesselctlSession, AnAnswerThatDoesNotCome_IsWaitedForAsLongAsAllowed) {
    ScriptedService service(Authorizing([](const std::string&) { return ""; }));
    ServeOn(service.Port());
    limits.answer = std::chrono::milliseconds(120);
    Session session(home.Path(), limits);
    const auto answer = session.Run("platform");
    ASSERT_FALSE(answer.Ok());
    EXPECT_EQ(Trouble::kNoAnswerInTime, answer.GetProblem().trouble);
    EXPECT_EQ("no answer to platform within 0.12 seconds; the service may still be at it",
              answer.GetProblem().text);
}

TEST_F(TesselctlSession, NoticesWithoutEnd_DoNotKeepTheTimeOutFromComing) {
    std::atomic<bool> ended{false};
    ScriptedService service([&](Client& client, int) {
        client.Read();
        client.Send("authOk|");
        while (!ended)
            client.Send("PenData.USE_TIP|");
    });
    ServeOn(service.Port());
    limits.answer = std::chrono::milliseconds(120);
    Session session(home.Path(), limits);
    const auto answer = session.Run("platform");
    ended = true;
    ASSERT_FALSE(answer.Ok());
    EXPECT_EQ(Trouble::kNoAnswerInTime, answer.GetProblem().trouble);
}

TEST_F(TesselctlSession, ALateAnswer_NeverAnswersTheNextCommand) {
    ScriptedService service([](Client& client, int number) {
        client.Read();
        client.Send("authOk|");
        client.Read();
        if (number > 0) {
            client.Send("Success second|");
            client.WaitForGoodbye();
            return;
        }
        client.WaitForGoodbye();
        client.Send("Success first|");
    });
    ServeOn(service.Port());
    limits.answer = 100ms;
    Session session(home.Path(), limits);
    EXPECT_FALSE(session.Run("createUUID").Ok());
    limits.answer = 20s;
    EXPECT_EQ("second", Text(session.Run("createUUID")));
}

TEST_F(TesselctlSession, Update_SucceedsWhenTheServiceClosesTheConnection) {
    ScriptedService service([](Client& client, int) {
        client.Read();
        client.Send("authOk|");
        EXPECT_EQ("update /tmp/new", client.Read());
    });
    ServeOn(service.Port());
    Session session(home.Path(), limits);
    const auto answer = session.Run("update /tmp/new");
    ASSERT_TRUE(answer.Ok()) << answer.GetProblem().text;
    EXPECT_EQ(Word::kNone, answer.Value().word);
    EXPECT_EQ(-1, session.PollDescriptor(Server::kCommand));
}

TEST_F(TesselctlSession, Update_ThatIsRefused_HasAnAnswer) {
    ScriptedService service(Authorizing([](const std::string&) {
        return "SyntaxError Wrong number of arguments, expected: 1 - Success|";
    }));
    ServeOn(service.Port());
    Session session(home.Path(), limits);
    EXPECT_EQ("Wrong number of arguments, expected: 1 - Success", Text(session.Run("update")));
}

TEST_F(TesselctlSession, StartTablet_IsNotWaitedForAndIsReadBeforeWeGo) {
    std::atomic<bool> read{false};
    ScriptedService service([&](Client& client, int) {
        EXPECT_EQ("startTablet", client.Read());
        read = true;
        client.Send({"0511\0", 5});
        client.WaitForGoodbye();
    });
    ServeOn(service.Port());
    limits.farewell = 20s;
    Session session(home.Path(), limits);
    const auto answer = session.Run("startTablet");
    ASSERT_TRUE(answer.Ok()) << answer.GetProblem().text;
    EXPECT_EQ(Word::kNone, answer.Value().word);
    EXPECT_TRUE(session.Close(Server::kPressure));
    EXPECT_TRUE(read);
}

TEST_F(TesselctlSession, AServiceThatTakesNoNotice_DoesNotKeepUsFromGoing) {
    std::atomic<bool> ended{false};
    ScriptedService service([&](Client& client, int) {
        client.Read();
        while (!ended)
            std::this_thread::sleep_for(1ms);
    });
    ServeOn(service.Port());
    limits.farewell = 50ms;
    Session session(home.Path(), limits);
    ASSERT_TRUE(session.Run("startTablet").Ok());
    EXPECT_FALSE(session.Close(Server::kPressure));
    ended = true;
}

TEST_F(TesselctlSession, AServiceThatWentAwayBetweenCommands_IsConnectedAnew) {
    ScriptedService service([](Client& client, int number) {
        client.Read();
        client.Send("authOk|");
        client.Read();
        client.Send(number == 0 ? "Success before|" : "Success after|");
        if (number > 0) client.WaitForGoodbye();
    });
    ServeOn(service.Port());
    Session session(home.Path(), limits);
    int losses = 0;
    session.OnLoss([&](Server server) {
        EXPECT_EQ(Server::kCommand, server);
        losses++;
    });
    EXPECT_EQ("before", Text(session.Run("platform")));
    const Deadline deadline = Deadline::In(tesselctltest::kPatience);
    while (losses == 0 && !deadline.Passed())
        session.Receive(Server::kCommand);
    EXPECT_EQ("after", Text(session.Run("platform")));
    EXPECT_EQ(1, losses);
}

TEST_F(TesselctlSession, AnInterruption_EndsTheWaitAndTheConnection) {
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    ScriptedService service([&](Client& client, int) {
        client.Read();
        client.Send("authOk|");
        client.Read();
        EXPECT_EQ(2, write(ends[1], "ny", 2));
        client.WaitForGoodbye();
    });
    ServeOn(service.Port());
    limits.interruption = {ends[0], [&] {
                               char byte = 0;
                               return read(ends[0], &byte, 1) == 1 && byte == 'y';
                           }};
    Session session(home.Path(), limits);
    const auto answer = session.Run("installAirApp a b c");
    ASSERT_FALSE(answer.Ok());
    EXPECT_EQ(Trouble::kInterrupted, answer.GetProblem().trouble);
    EXPECT_EQ(-1, session.PollDescriptor(Server::kCommand));
    close(ends[0]);
    close(ends[1]);
}

TEST_F(TesselctlSession, ALongCommand_IsSentWhole) {
    const std::string data(3000000, 'x');
    std::size_t received = 0;
    ScriptedService service([&](Client& client, int) {
        received = client.Read().size();
        client.Send("Success |");
        client.WaitForGoodbye();
    });
    ServeOn(service.Port());
    Session session(home.Path(), limits);
    EXPECT_EQ("", Text(session.Run("sendDataToChannel a " + data + " t")));
    EXPECT_EQ(data.size() + 22, received);
}

}  // namespace
