// With real connections, in a process of its own for each test: the channels are the process's.

#include "net/AppsCommunicationServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "core/Helpers.h"
#include "net/Outbox.h"
#include "unit/support/ForkedTest.h"
#include "unit/support/ServerTesting.h"
#include "unit/support/ServiceTesting.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Apps = Visible<AppsCommunicationServer>;

// Runs BODY in a process of its own, with a server that listens and with nothing printed yet.
void WithServer(const std::function<void(Apps& server)>& body) {
    InChild([&body] {
        Apps server;
        ASSERT_NE(-1, server.init());
        Printed();
        body(server);
    });
}

// Runs BODY as the clients of the apps-communication port of a whole service.
void WithService(const std::function<void(int port)>& body) {
    InChild([&body] { Serve([&body](const Published& published) { body(published.appsPort); }); });
}

TEST(AppsCommunicationServer, AsksForNoKeyAndHasItsName) {
    const AppsCommunicationServer server;
    EXPECT_FALSE(server.isCommandServer());
    EXPECT_EQ("Apps Communication Server", server.name());
}

TEST(AppsCommunicationServer, ANewConnection_IsLoggedUnderItsName) {
    WithServer([](Apps& server) {
        server.authorized = true;
        const Connection connection(server);
        EXPECT_TRUE(connection.WasKept());
        EXPECT_THAT(Printed(),
                    ElementsAre("New connection: id=" + std::to_string(connection.socket) +
                                ", port=" + std::to_string(server.port) +
                                ", name=Apps Communication Server"));
    });
}

TEST(AppsCommunicationServer, AnUnknownCommand_SucceedsWithNothing) {
    WithServer([](Apps& server) {
        const Connection connection(server);
        EXPECT_EQ(Status::kSuccess, connection.Deliver("platform|"));
        EXPECT_EQ("Success |", connection.peer.Receive(9));
        EXPECT_EQ(Status::kSyntaxError, connection.Deliver("|"));
        EXPECT_EQ("SyntaxError No command found. - Success", connection.peer.ReceiveMessage());
    });
}

TEST(AppsCommunicationServer, ARegistration_IsBroadcastInItsExactForm) {
    WithServer([](Apps& server) {
        const Connection connection(server);
        Printed();
        EXPECT_EQ(0, server.broadcastRegisteredChannel(connection.socket, "clock"));
        EXPECT_EQ("BroadcastRegisteredChannel=clock|", connection.peer.Receive(33));
        EXPECT_EQ(0, server.broadcastUnRegisteredChannel(connection.socket, "clock"));
        EXPECT_EQ("BroadcastUnRegisteredChannel=clock|", connection.peer.Receive(35));
        EXPECT_THAT(Printed(), ElementsAre("BroadcastRegisteredChannel=clock|",
                                           "BroadcastUnRegisteredChannel=clock|"));
    });
}

TEST(AppsCommunicationServer, ANameWithOtherLetters_IsBroadcastWithQuestionMarks) {
    WithServer([](Apps& server) {
        const Connection connection(server);
        Printed();
        server.broadcastRegisteredChannel(connection.socket, "caf\u00E9");
        server.broadcastUnRegisteredChannel(connection.socket, "\u20ACuro");
        EXPECT_EQ("BroadcastRegisteredChannel=caf?", connection.peer.ReceiveMessage());
        EXPECT_EQ("BroadcastUnRegisteredChannel=?uro", connection.peer.ReceiveMessage());
        EXPECT_THAT(Printed(), ElementsAre("BroadcastRegisteredChannel=caf?|",
                                           "BroadcastUnRegisteredChannel=?uro|"));
    });
}

TEST(AppsCommunicationServer, Data_IsForwardedInItsExactForm) {
    WithServer([](Apps& server) {
        const Connection connection(server);
        Printed();
        EXPECT_EQ(0, server.sendDataToChannel(connection.socket, "radio", "it is noon"));
        EXPECT_EQ("ForwardDataToChannel radio it is noon|", connection.peer.Receive(38));
        EXPECT_EQ(0, server.sendDataToChannel(connection.socket, "", ""));
        EXPECT_EQ("ForwardDataToChannel  |", connection.peer.Receive(23));
        EXPECT_EQ(0, server.sendDataToChannel(connection.socket, "\u00E9", "\u00E8"));
        EXPECT_EQ("ForwardDataToChannel ? ?|", connection.peer.Receive(25));
        EXPECT_THAT(Printed(), ElementsAre("ForwardDataToChannel radio it is noon|",
                                           "ForwardDataToChannel  |", "ForwardDataToChannel ? ?|"));
    });
}

TEST(AppsCommunicationServer, LongData_IsNarrowedWhereverAnotherLetterStands) {
    WithServer([](Apps& server) {
        const Connection connection(server);
        const std::string begin = "ForwardDataToChannel radio ";
        for (const std::size_t at : {0u, 4095u, 4096u, 4097u, 9000u, 9999u}) {
            std::string data(10000, 'x');
            std::string expected = begin + data + "|";
            expected[begin.size() + at] = '?';
            data.replace(at, 1, "\u20AC");
            EXPECT_EQ(0, server.sendDataToChannel(connection.socket, "radio", data));
            EXPECT_EQ(expected, connection.peer.Receive(expected.size())) << at;
        }
    });
}

TEST(AppsCommunicationServer, DataWithABar_ArrivesAsTwoMessages) {
    WithServer([](Apps& server) {
        const Connection connection(server);
        EXPECT_EQ(0, server.sendDataToChannel(connection.socket, "radio", "one|two"));
        EXPECT_EQ("ForwardDataToChannel radio one", connection.peer.ReceiveMessage());
        EXPECT_EQ("two", connection.peer.ReceiveMessage());
    });
}

TEST(AppsCommunicationServer, WhatItPushes_DoesNotDependOnTheCurrentClient) {
    WithServer([](Apps& server) {
        const Connection connection(server);
        server.currentClient = -1;
        EXPECT_EQ(0, server.broadcastRegisteredChannel(connection.socket, "x"));
        EXPECT_EQ("BroadcastRegisteredChannel=x", connection.peer.ReceiveMessage());
    });
}

TEST(AppsCommunicationServer, WhatItPushes_MayHave32Bytes) {
    WithServer([](Apps& server) {
        const Connection connection(server);
        // "BroadcastRegisteredChannel=" and the bar are 28.
        EXPECT_EQ(0, server.broadcastRegisteredChannel(connection.socket, "four"));
        EXPECT_EQ(32u, connection.peer.Receive(32).size());
    });
}

TEST(AppsCommunicationServer, BytesToAChannel_GoOutAsTheyAreAndUnlogged) {
    WithServer([](Apps& server) {
        const Connection connection(server);
        Printed();
        EXPECT_EQ(0, server.sendToChannel(connection.socket, "\xE9 no bar"));
        EXPECT_EQ("\xE9 no bar", connection.peer.Receive(8));
        EXPECT_THAT(Printed(), IsEmpty());
    });
}

TEST(AppsCommunicationServer, WhatCannotBeSent_IsAFailureThatIsNotLoggedHere) {
    WithServer([](Apps& server) {
        EXPECT_EQ(-1, server.sendToChannel(12345, "lost"));
        EXPECT_THAT(Printed(), IsEmpty());
        EXPECT_EQ(-1, server.broadcastRegisteredChannel(12345, "lost"));
        EXPECT_EQ(-1, server.broadcastUnRegisteredChannel(12345, "lost"));
        EXPECT_EQ(-1, server.sendDataToChannel(12345, "lost", "too"));
        EXPECT_THAT(Printed(), ElementsAre("BroadcastRegisteredChannel=lost|",
                                           "BroadcastUnRegisteredChannel=lost|",
                                           "ForwardDataToChannel lost too|"));
    });
}

TEST(AppsCommunicationServer, OfAClientWithoutAChannel_ClosesLikeAnyServer) {
    WithServer([](Apps& server) {
        Connection connection(server);
        connection.peer.Close();
        Printed();
        EXPECT_EQ(Status::kCloseClient, connection.Receive());
        EXPECT_THAT(
            Printed(),
            ElementsAre("error connection closed [" + std::to_string(server.port) + "]",
                        "connection id " + std::to_string(connection.socket), "deinit client"));
        server.deinit(true);
        EXPECT_THAT(Printed(), ElementsAre("deinit server"));
    });
}

// --- Channels between clients

// A client that has registered NAME.
class Application : public Peer {
  public:
    Application(int port, const std::string& name) : Peer(port) {
        Send("registerChannel " + name + "|");
        EXPECT_EQ("Success ChannelRegistered=true", ReceiveMessage());
    }
};

TEST(Channels, ANewOne_IsToldToTheOthersAlone) {
    WithService([](int port) {
        const Application clock(port, "clock");
        const Application radio(port, "radio");
        EXPECT_EQ("BroadcastRegisteredChannel=radio", clock.ReceiveMessage());
        const Application phone(port, "'caf\xC3\xA9 \xE2\x82\xAC'");
        EXPECT_EQ("BroadcastRegisteredChannel=caf? ?", clock.ReceiveMessage());
        EXPECT_EQ("BroadcastRegisteredChannel=caf? ?", radio.ReceiveMessage());
        EXPECT_TRUE(phone.HasNothing());
    });
}

TEST(Channels, Data_GoesToTheChannelOfThatNameWithItsSender) {
    WithService([](int port) {
        const Application clock(port, "clock");
        const Application radio(port, "radio");
        clock.ReceiveMessage();
        radio.Send("sendDataToChannel clock \"it is noon\" 7|");
        EXPECT_EQ("ForwardDataToChannel radio it is noon", clock.ReceiveMessage());
        EXPECT_EQ("Success DataSentToChannel=7", radio.ReceiveMessage());
        // To itself, too, and first.
        radio.Send("sendDataToChannel radio x 8|");
        EXPECT_EQ("ForwardDataToChannel radio x", radio.ReceiveMessage());
        EXPECT_EQ("Success DataSentToChannel=8", radio.ReceiveMessage());
    });
}

TEST(Channels, DataForNobody_IsAnErrorInTheReplyText) {
    WithService([](int port) {
        const Application clock(port, "clock");
        for (const char* const name : {"radio", "cloc", "clocks", "Clock", "''"}) {
            clock.Send("sendDataToChannel " + std::string(name) + " data tag|");
            EXPECT_EQ("Success DataSentToChannelError=tag", clock.ReceiveMessage()) << name;
        }
    });
}

TEST(Channels, OneNameTwice_BelongsToTheLowerNumber) {
    WithService([](int port) {
        const Application first(port, "clock");
        const Application second(port, "clock");
        EXPECT_EQ("BroadcastRegisteredChannel=clock", first.ReceiveMessage());
        const Application sender(port, "sender");
        first.ReceiveMessage();
        second.ReceiveMessage();
        sender.Send("sendDataToChannel clock data tag|");
        EXPECT_EQ("Success DataSentToChannel=tag", sender.ReceiveMessage());
        EXPECT_EQ("ForwardDataToChannel sender data", first.ReceiveMessage());
        EXPECT_TRUE(second.HasNothing());
    });
}

TEST(Channels, RegisteringAgain_ReplacesTheNameAndTellsTheOthersAlone) {
    WithService([](int port) {
        const Application clock(port, "clock");
        const Application radio(port, "radio");
        clock.ReceiveMessage();
        radio.Send("registerChannel television|");
        EXPECT_EQ("Success ChannelRegistered=true", radio.ReceiveMessage());
        EXPECT_EQ("BroadcastRegisteredChannel=television", clock.ReceiveMessage());
        clock.Send("sendDataToChannel radio x 1|sendDataToChannel television x 2|");
        EXPECT_EQ("Success DataSentToChannelError=1", clock.ReceiveMessage());
        EXPECT_EQ("Success DataSentToChannel=2", clock.ReceiveMessage());
        EXPECT_EQ("ForwardDataToChannel clock x", radio.ReceiveMessage());
    });
}

TEST(Channels, OfAClientThatGoes_IsFreedAndTheOthersAreTold) {
    WithService([](int port) {
        const Application clock(port, "clock");
        const Application phone(port, "phone");
        clock.ReceiveMessage();
        {
            const Application radio(port, "radio");
            clock.ReceiveMessage();
            phone.ReceiveMessage();
        }
        EXPECT_EQ("BroadcastUnRegisteredChannel=radio", clock.ReceiveMessage());
        EXPECT_EQ("BroadcastUnRegisteredChannel=radio", phone.ReceiveMessage());
        clock.Send("sendDataToChannel radio x tag|");
        EXPECT_EQ("Success DataSentToChannelError=tag", clock.ReceiveMessage());
    });
}

TEST(Channels, OfAClientThatGoes_AreFreedBeforeTheClientIsClosed) {
    InChild([] {
        Serve([](const Published& published) {
            const Application clock(published.appsPort, "clock");
            {
                const Application radio(published.appsPort, "radio");
                clock.ReceiveMessage();
            }
            EXPECT_EQ("BroadcastUnRegisteredChannel=radio", clock.ReceiveMessage());
        });
        const std::vector<std::string> lines = Printed();
        const auto told =
            std::find(lines.begin(), lines.end(), "BroadcastUnRegisteredChannel=radio|");
        ASSERT_NE(lines.end(), told);
        ASSERT_NE(lines.end(), told + 1);
        EXPECT_EQ("deinit client", *(told + 1));
    });
}

TEST(Channels, ACallerWithoutOne_IsToldThatNothingWasFound) {
    InChild([] {
        Serve([](const Published& published) {
            const Application clock(published.appsPort, "clock");
            const Peer stranger(published.appsPort);
            Printed();
            stranger.Send("sendDataToChannel clock data tag|");
            EXPECT_EQ("Success DataSentToChannelError=tag", stranger.ReceiveMessage());
            EXPECT_TRUE(clock.HasNothing());
        });
        EXPECT_THAT(Printed(),
                    testing::IsSupersetOf(
                        {"HandleCommandFromSocket::sendDataToChannel - caller not registered",
                         "HandleCommandFromSocket::sendDataToChannel - can not find target"}));
    });
}

TEST(Channels, ATransfer_NamesBothInTheLog) {
    InChild([] {
        Serve([](const Published& published) {
            const Application clock(published.appsPort, "clock");
            const Application radio(published.appsPort, "radi\xC3\xB3");
            radio.Send("sendDataToChannel clock data tag|");
            EXPECT_EQ("Success DataSentToChannel=tag", radio.ReceiveMessage());
        });
        EXPECT_THAT(Printed(), testing::IsSupersetOf(
                                   {"HandleCommandFromSocket::sendDataToChannel  sender radi?",
                                    "HandleCommandFromSocket::sendDataToChannel  receiver clock"}));
    });
}

TEST(Channels, TheirCommands_CountTheirArguments) {
    WithService([](int port) {
        const Peer peer(port);
        for (const char* const message : {"registerChannel|", "registerChannel a b|"}) {
            peer.Send(message);
            EXPECT_EQ("SyntaxError Wrong number of arguments, expected: 1 - Success",
                      peer.ReceiveMessage());
        }
        for (const char* const message :
             {"sendDataToChannel|", "sendDataToChannel a b|", "sendDataToChannel a b c d|"}) {
            peer.Send(message);
            EXPECT_EQ("SyntaxError Wrong number of arguments, expected: 3 - Success",
                      peer.ReceiveMessage());
        }
    });
}

}  // namespace
