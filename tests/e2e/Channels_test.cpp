// Channels between small applications, through the service's front door.
#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>

#include "support/Files.h"
#include "support/Service.h"

namespace {

using testing::AnyOf;
using testing::Each;
using testing::HasSubstr;
using testing::Not;

class Channels : public testing::Test {
  protected:
    Channels() { service.WaitUntilListening(); }

    // A client that has registered NAME.
    Client Application(const std::string& name) {
        Client client = service.ConnectToApps();
        EXPECT_EQ(client.Ask("registerChannel " + name), "Success ChannelRegistered=true");
        return client;
    }
    static void Skip(Client& client, int messages) {
        for (int i = 0; i < messages; ++i) {
            client.Receive();
        }
    }

    Sandbox sandbox;
    Service service{sandbox};
};

TEST_F(Channels, ANewOne_IsToldToTheRegisteredOnesAloneAndNotToItself) {
    Client clock = Application("clock");
    Client stranger = service.ConnectToApps();
    EXPECT_EQ(stranger.Ask("hello"), "Success ");
    Client radio = Application("radio");
    EXPECT_EQ(clock.Receive(), "BroadcastRegisteredChannel=radio");
    stranger.ExpectSilence();
    // Nor is it told of those that were there before.
    radio.ExpectSilence(std::chrono::milliseconds(20));
}

TEST_F(Channels, ARegistrationIsTold_BeforeItIsAnswered) {
    Client clock = Application("clock");
    Client radio = Application("radio");
    service.WaitForOutput(
        "BroadcastRegisteredChannel=radio|\n"
        "Success ChannelRegistered=true|\n");
}

TEST_F(Channels, RegisteringAnotherName_ReplacesTheFirstAndAnnouncesItToTheOthersOnly) {
    Client clock = Application("clock");
    Client radio = Application("radio");
    clock.Receive();
    EXPECT_EQ(radio.Ask("registerChannel television"), "Success ChannelRegistered=true");
    EXPECT_EQ(clock.Receive(), "BroadcastRegisteredChannel=television");
    EXPECT_EQ(clock.Ask("sendDataToChannel radio x 1"), "Success DataSentToChannelError=1");
    EXPECT_EQ(clock.Ask("sendDataToChannel television x 2"), "Success DataSentToChannel=2");
    EXPECT_EQ(radio.Receive(), "ForwardDataToChannel clock x");
    // The name that was given up is not told to be gone.
    clock.ExpectSilence();
}

TEST_F(Channels, DataForAName_GoesToItsRegisteredClientAndNamesTheSender) {
    Client clock = Application("clock");
    Client radio = Application("radio");
    Client phone = Application("phone");
    Skip(clock, 2);
    Skip(radio, 1);
    EXPECT_EQ(radio.Ask("sendDataToChannel clock \"it is noon\" tag-7"),
              "Success DataSentToChannel=tag-7");
    EXPECT_EQ(clock.Receive(), "ForwardDataToChannel radio it is noon");
    phone.ExpectSilence();
    service.WaitForOutput(
        "HandleCommandFromSocket::sendDataToChannel  sender radio\n"
        "HandleCommandFromSocket::sendDataToChannel  receiver clock\n"
        "ForwardDataToChannel radio it is noon|\n"
        "Success DataSentToChannel=tag-7|\n");
}

TEST_F(Channels, DataForItsOwnName_ComesBackBeforeTheAnswer) {
    Client radio = Application("radio");
    EXPECT_EQ(radio.Ask("sendDataToChannel radio x 8"), "ForwardDataToChannel radio x");
    EXPECT_EQ(radio.Receive(), "Success DataSentToChannel=8");
}

TEST_F(Channels, TwoOfOneName_AreServedByTheLowerNumber) {
    Client first = Application("clock");
    Client second = Application("clock");
    Client sender = Application("sender");
    Skip(first, 2);
    Skip(second, 1);
    for (int tag = 0; tag < 3; ++tag) {
        EXPECT_EQ(sender.Ask("sendDataToChannel clock x " + std::to_string(tag)),
                  "Success DataSentToChannel=" + std::to_string(tag));
        EXPECT_EQ(first.Receive(), "ForwardDataToChannel sender x");
    }
    second.ExpectSilence();
    first.Close();
    EXPECT_EQ(second.Receive(), "BroadcastUnRegisteredChannel=clock");
    EXPECT_EQ(sender.Receive(), "BroadcastUnRegisteredChannel=clock");
    EXPECT_EQ(sender.Ask("sendDataToChannel clock x 9"), "Success DataSentToChannel=9");
    EXPECT_EQ(second.Receive(), "ForwardDataToChannel sender x");
}

TEST_F(Channels, ANameThatNobodyHas_IsToldInTheAnswer) {
    Client clock = Application("clock");
    for (const char* const name : {"radio", "cloc", "clocks", "Clock", "''"}) {
        EXPECT_EQ(clock.Ask("sendDataToChannel " + std::string(name) + " data tag"),
                  "Success DataSentToChannelError=tag")
            << name;
    }
    service.WaitForOutput("can not find target", 5);
    EXPECT_THAT(service.Output(), Not(HasSubstr("caller not registered")));
}

TEST_F(Channels, AnUnregisteredCaller_IsLoggedTwiceAndSendsNothing) {
    Client clock = Application("clock");
    Client stranger = service.ConnectToApps();
    EXPECT_EQ(stranger.Ask("sendDataToChannel clock data tag"),
              "Success DataSentToChannelError=tag");
    service.WaitForOutput(
        "HandleCommandFromSocket::sendDataToChannel - caller not registered\n"
        "HandleCommandFromSocket::sendDataToChannel - can not find target\n"
        "Success DataSentToChannelError=tag|\n");
    clock.ExpectSilence();
}

TEST_F(Channels, OtherNumbersOfWords_AreSyntaxErrors) {
    Client client = service.ConnectToApps();
    for (const char* const command : {"registerChannel", "registerChannel a b"}) {
        EXPECT_EQ(client.Ask(command),
                  "SyntaxError Wrong number of arguments, expected: 1 - Success");
    }
    for (const char* const command :
         {"sendDataToChannel", "sendDataToChannel a b", "sendDataToChannel a b c d"}) {
        EXPECT_EQ(client.Ask(command),
                  "SyntaxError Wrong number of arguments, expected: 3 - Success");
    }
    EXPECT_EQ(client.Ask(""), "SyntaxError No command found. - Success");
    EXPECT_EQ(client.Ask("platform"), "Success ");
}

TEST_F(Channels, NamesAndDataWithBlanks_AreKept) {
    Client clock = Application("'kitchen clock'");
    Client radio = Application("\"bed room radio\"");
    EXPECT_EQ(clock.Receive(), "BroadcastRegisteredChannel=bed room radio");
    EXPECT_EQ(radio.Ask("sendDataToChannel 'kitchen clock' 'a  b ' 'tag 1'"),
              "Success DataSentToChannel=tag 1");
    EXPECT_EQ(clock.Receive(), "ForwardDataToChannel bed room radio a  b ");
}

TEST_F(Channels, NamesWithOtherLetters_AreFoundAsTheyAreAndToldWithQuestionMarks) {
    Client clock = Application("café");
    Client radio = Application("'rádio €'");
    EXPECT_EQ(clock.Receive(), "BroadcastRegisteredChannel=r?dio ?");
    EXPECT_EQ(radio.Ask("sendDataToChannel café straße tag"), "Success DataSentToChannel=tag");
    EXPECT_EQ(clock.Receive(), "ForwardDataToChannel r?dio ? stra?e");
    // What is told is not the name.
    EXPECT_EQ(radio.Ask("sendDataToChannel caf? x tag"), "Success DataSentToChannelError=tag");
    radio.Close();
    EXPECT_EQ(clock.Receive(), "BroadcastUnRegisteredChannel=r?dio ?");
}

TEST_F(Channels, ABarInTheData_EndsTheMessageThere) {
    Client clock = Application("clock");
    EXPECT_EQ(clock.Ask("sendDataToChannel clock one|two tag"),
              "SyntaxError Wrong number of arguments, expected: 3 - Success");
    EXPECT_EQ(clock.Receive(), "Success ");
}

TEST_F(Channels, AnApplicationThatGoes_IsFreedAndToldToTheOthers) {
    Client clock = Application("clock");
    Client phone = Application("phone");
    clock.Receive();
    {
        Client radio = Application("radio");
        Skip(clock, 1);
        Skip(phone, 1);
    }
    EXPECT_EQ(clock.Receive(), "BroadcastUnRegisteredChannel=radio");
    EXPECT_EQ(phone.Receive(), "BroadcastUnRegisteredChannel=radio");
    EXPECT_EQ(clock.Ask("sendDataToChannel radio x tag"), "Success DataSentToChannelError=tag");
}

TEST_F(Channels, AClientWithoutAChannelThatGoes_IsNobodysNews) {
    Client clock = Application("clock");
    service.ConnectToApps().Ask("hello");
    service.WaitForOutput("deinit client");
    clock.ExpectSilence();
}

// The service stands still while both happen, so that it finds them at once, the message first.
TEST_F(Channels, ATargetThatIsResetBetweenLookupAndSend_IsAnErrorInTheAnswer) {
    Client target = Application("target");
    Client sender = Application("sender");
    Client witness = Application("witness");
    Skip(sender, 1);
    service.Signal(SIGSTOP);
    WaitUntil("the service stands still",
              [&] { return service.StatusField("State").front() == 'T'; });
    sender.Send("sendDataToChannel target x 1|");
    WaitUntil("the message is there", [&] { return sender.UnreadByService(sandbox) > 0; });
    target.Reset();
    service.Signal(SIGCONT);
    EXPECT_EQ(sender.Receive(), "Success DataSentToChannelError=1");
    EXPECT_EQ(sender.Receive(), "BroadcastUnRegisteredChannel=target");
    EXPECT_EQ(witness.Receive(), "BroadcastUnRegisteredChannel=target");
    EXPECT_EQ(sender.Ask("sendDataToChannel target x 2"), "Success DataSentToChannelError=2");
}

TEST_F(Channels, ATargetThatClosesBetweenLookupAndSend_IsSentToAndThenToldToBeGone) {
    Client target = Application("target");
    Client sender = Application("sender");
    Skip(target, 1);
    service.Signal(SIGSTOP);
    WaitUntil("the service stands still",
              [&] { return service.StatusField("State").front() == 'T'; });
    sender.Send("sendDataToChannel target x 1|");
    WaitUntil("the message is there", [&] { return sender.UnreadByService(sandbox) > 0; });
    target.Close();
    service.Signal(SIGCONT);
    EXPECT_EQ(sender.Receive(), "Success DataSentToChannel=1");
    EXPECT_EQ(sender.Receive(), "BroadcastUnRegisteredChannel=target");
}

TEST_F(Channels, ManyTargetsThatVanishWhileTheyAreSentTo_LeaveAServiceThatGoesOn) {
    Client sender = Application("sender");
    for (int round = 0; round < 50; ++round) {
        Client target = Application("target");
        EXPECT_EQ(sender.Receive(), "BroadcastRegisteredChannel=target");
        std::string burst;
        for (int i = 0; i < 20; ++i) {
            burst += "sendDataToChannel target x 1|";
        }
        sender.Send(burst);
        target.Reset();
        std::vector<std::string> told;
        for (int i = 0; i < 21; ++i) {
            told.push_back(sender.Receive());
        }
        ASSERT_THAT(told,
                    Each(AnyOf("Success DataSentToChannel=1", "Success DataSentToChannelError=1",
                               "BroadcastUnRegisteredChannel=target")));
        ASSERT_EQ(std::count(told.begin(), told.end(), "BroadcastUnRegisteredChannel=target"), 1);
    }
}

TEST_F(Channels, FiveHundred_AreAllToldAndAllReached) {
    constexpr int kChannels = kSanitized ? 150 : 500;
    std::vector<Client> clients;
    for (int i = 0; i < kChannels; ++i) {
        clients.push_back(Application("channel" + std::to_string(i)));
    }
    for (int i = 0; i < kChannels; ++i) {
        for (int later = i + 1; later < kChannels; ++later) {
            ASSERT_EQ(clients[static_cast<std::size_t>(i)].Receive(),
                      "BroadcastRegisteredChannel=channel" + std::to_string(later));
        }
    }
    for (int i = 0; i < kChannels; ++i) {
        ASSERT_EQ(clients.front().Ask("sendDataToChannel channel" + std::to_string(i) + " hello " +
                                      std::to_string(i)),
                  i == 0 ? "ForwardDataToChannel channel0 hello"
                         : "Success DataSentToChannel=" + std::to_string(i));
        if (i == 0) {
            ASSERT_EQ(clients.front().Receive(), "Success DataSentToChannel=0");
        } else {
            ASSERT_EQ(clients[static_cast<std::size_t>(i)].Receive(),
                      "ForwardDataToChannel channel0 hello");
        }
    }
    clients.back().Close();
    for (int i = 0; i + 1 < kChannels; ++i) {
        ASSERT_EQ(clients[static_cast<std::size_t>(i)].Receive(),
                  "BroadcastUnRegisteredChannel=channel" + std::to_string(kChannels - 1));
    }
}

TEST_F(Channels, AMegabyte_ArrivesWhole) {
    Client clock = Application("clock");
    Client radio = Application("radio");
    clock.Receive();
    std::string data(1 << 20, 'x');
    for (std::size_t i = 0; i < data.size(); ++i) {
        data[i] = static_cast<char>('a' + i % 26);
    }
    for (int tag = 0; tag < 3; ++tag) {
        radio.Send("sendDataToChannel clock " + data + " " + std::to_string(tag) + "|");
        // Not EXPECT_EQ: nobody wants to read a megabyte.
        EXPECT_TRUE(clock.Receive() == "ForwardDataToChannel radio " + data);
        EXPECT_EQ(radio.Receive(), "Success DataSentToChannel=" + std::to_string(tag));
    }
}

TEST_F(Channels, MegabytesForATargetThatDoesNotRead_DelayNobodyAndArriveWhole) {
    constexpr int kPieces = 10;
    Client sleeper = Application("sleeper");
    Client radio = Application("radio");
    Client clock = Application("clock");
    Skip(sleeper, 2);
    Skip(radio, 1);
    const std::string data(1 << 20, 'x');
    for (int tag = 0; tag < kPieces; ++tag) {
        EXPECT_EQ(radio.Ask("sendDataToChannel sleeper " + data + " " + std::to_string(tag)),
                  "Success DataSentToChannel=" + std::to_string(tag));
        EXPECT_EQ(radio.Ask("sendDataToChannel clock tick x"), "Success DataSentToChannel=x");
        EXPECT_EQ(clock.Receive(), "ForwardDataToChannel radio tick");
    }
    for (int tag = 0; tag < kPieces; ++tag) {
        EXPECT_TRUE(sleeper.Receive() == "ForwardDataToChannel radio " + data);
    }
}

TEST_F(Channels, ATargetThatNeverReads_IsSentNoMoreThanSixteenMegabytes) {
    Client sleeper = Application("sleeper");
    Client radio = Application("radio");
    const std::string data(1 << 20, 'x');
    int tag = 0;
    std::string answer;
    do {
        answer = radio.Ask("sendDataToChannel sleeper " + data + " " + std::to_string(++tag));
    } while (answer == "Success DataSentToChannel=" + std::to_string(tag) && tag < 100);
    EXPECT_EQ(answer, "Success DataSentToChannelError=" + std::to_string(tag));
    EXPECT_GT(tag, 16);
    // Every message that was accepted comes, and none of the others.
    EXPECT_EQ(sleeper.Receive(), "BroadcastRegisteredChannel=radio");
    for (int i = 1; i < tag; ++i) {
        EXPECT_TRUE(sleeper.Receive() == "ForwardDataToChannel radio " + data);
    }
    EXPECT_EQ(radio.Ask("sendDataToChannel sleeper again 1"), "Success DataSentToChannel=1");
    EXPECT_EQ(sleeper.Receive(), "ForwardDataToChannel radio again");
}

TEST_F(Channels, AtTheEndOfTheService_ItsClientsAreClosed) {
    Client clock = Application("clock");
    EXPECT_EQ(service.Stop(SIGTERM), Exit::Status(1));
    clock.ExpectClosed();
}

}  // namespace
