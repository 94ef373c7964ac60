// With real connections, in a process of its own for each test: the pen data's listener is the
// process's.

#include "net/PressureServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "core/Helpers.h"
#include "net/Outbox.h"
#include "unit/support/ForkedTest.h"
#include "unit/support/ServerTesting.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Pressure = Visible<PressureServer>;
using Other = Visible<Server>;

// Runs BODY in a process of its own, with a server that listens and with nothing printed yet.
void WithServer(const std::function<void(Pressure& server)>& body) {
    InChild([&body] {
        Pressure server;
        ASSERT_NE(-1, server.init());
        Printed();
        body(server);
    });
}

TEST(PressureServer, AsksForNoKeyAndHasItsName) {
    const PressureServer server;
    EXPECT_FALSE(server.isCommandServer());
    EXPECT_EQ("Pressure Server", server.name());
}

TEST(PressureServer, ANewConnection_IsLoggedUnderItsName) {
    WithServer([](Pressure& server) {
        const Connection connection(server);
        EXPECT_EQ(1, server.clientCount);
        EXPECT_THAT(
            Printed(),
            ElementsAre("New connection: id=" + std::to_string(connection.socket) +
                        ", port=" + std::to_string(server.port) + ", name=Pressure Server"));
    });
}

TEST(PressureServer, TurnsNobodyAway) {
    WithServer([](Pressure& server) {
        server.authorized = true;
        EXPECT_TRUE(Connection(server).WasKept());
    });
}

TEST(PressureServer, ItsCommands_AreThePressureCommands) {
    WithServer([](Pressure& server) {
        const Connection connection(server);
        connection.Deliver("platform|");
        EXPECT_EQ("SyntaxError Unknown command - Success", connection.peer.ReceiveMessage());
        connection.Deliver("|");
        EXPECT_EQ("SyntaxError No command found. - Success", connection.peer.ReceiveMessage());
    });
}

TEST(PressureServer, ABroadcast_ReachesEveryConnectionInTheOrderOfAcceptance) {
    WithServer([](Pressure& server) {
        std::vector<std::unique_ptr<Connection>> connections;
        for (int i = 0; i < 5; ++i) {
            connections.push_back(std::make_unique<Connection>(server));
        }
        Printed();
        EXPECT_EQ(0, server.replyCursor(L"PenData.Proximity 1"));
        for (const auto& connection : connections) {
            EXPECT_EQ("PenData.Proximity 1|", connection->peer.Receive(20));
        }
        EXPECT_EQ(std::vector<std::string>(5, "PenData.Proximity 1|"), Printed());
    });
}

TEST(PressureServer, ABroadcast_GoesOutBeforeAnybodyHasSentAnything) {
    WithServer([](Pressure& server) {
        const Connection connection(server);
        EXPECT_EQ(0, server.currentClient);
        server.replyCursor(L"word");
        EXPECT_EQ("word|", connection.peer.Receive(5));
    });
}

TEST(PressureServer, ABroadcastWithoutConnections_IsNothing) {
    WithServer([](Pressure& server) {
        EXPECT_EQ(0, server.replyCursor(L"word"));
        EXPECT_THAT(Printed(), IsEmpty());
    });
}

TEST(PressureServer, ABroadcastOf32Bytes_ReachesEverybodyAllTheSame) {
    WithServer([](Pressure& server) {
        const Connection one(server);
        const Connection other(server);
        EXPECT_EQ(0, server.replyCursor(std::wstring(31, L'x')));
        EXPECT_EQ(std::string(31, 'x') + "|", one.peer.Receive(32));
        EXPECT_EQ(std::string(31, 'x') + "|", other.peer.Receive(32));
    });
}

TEST(PressureServer, OnceTheClientThatSentLastHasClosed_BroadcastsReachNobody) {
    WithServer([](Pressure& server) {
        Connection sender(server);
        sender.Deliver("x|");
        sender.peer.ReceiveMessage();
        sender.peer.Close();
        sender.Receive();
        const Connection silent(server);
        const Connection next(server);
        Printed();
        EXPECT_EQ(0, server.replyCursor(L"lost"));
        EXPECT_THAT(Printed(), IsEmpty());
        EXPECT_TRUE(silent.peer.HasNothing());
        // Until some client sends a message again.
        next.Deliver("x|");
        next.peer.ReceiveMessage();
        server.replyCursor(L"found");
        EXPECT_EQ("found|", silent.peer.Receive(6));
        EXPECT_EQ("found|", next.peer.Receive(6));
    });
}

TEST(PressureServer, AConnectionThatHasClosed_IsPassedOver) {
    WithServer([](Pressure& server) {
        const Connection before(server);
        Connection gone(server);
        const Connection behind(server);
        gone.peer.Close();
        gone.Receive();
        before.Deliver("x|");
        before.peer.ReceiveMessage();
        Printed();
        EXPECT_EQ(0, server.replyCursor(L"word"));
        // It stands in the list for ever, so the log has a line for it.
        EXPECT_THAT(Printed(), ElementsAre("word|", "word|", "word|"));
        EXPECT_EQ("word|", before.peer.Receive(5));
        EXPECT_EQ("word|", behind.peer.Receive(5));
    });
}

TEST(PressureServer, ANumberThatAnotherServersConnectionGetsLater_ReceivesBroadcastsToo) {
    WithServer([](Pressure& server) {
        Other other;
        ASSERT_NE(-1, other.init());
        // The peer of the later connection comes first, so that the number is free for the
        // accepted socket.
        Connection gone(server);
        const int spare = dup(STDERR_FILENO);
        gone.peer.Close();
        gone.Receive();
        close(spare);
        const Connection later(other);
        const Connection staying(server);
        staying.Deliver("x|");
        staying.peer.ReceiveMessage();
        server.replyCursor(L"word");
        EXPECT_EQ("word|", staying.peer.Receive(5));
        if (later.socket == gone.socket) {
            EXPECT_EQ("word|", later.peer.Receive(5));
        } else {
            ADD_FAILURE() << later.socket << " is not " << gone.socket;
        }
    });
}

TEST(PressureServer, ANumberGivenOutTwice_ReceivesEveryBroadcastTwice) {
    WithServer([](Pressure& server) {
        Connection gone(server);
        const int spare = dup(STDERR_FILENO);
        gone.peer.Close();
        gone.Receive();
        close(spare);
        const Connection again(server);
        ASSERT_EQ(gone.socket, again.socket);
        again.Deliver("x|");
        again.peer.ReceiveMessage();
        server.replyCursor(L"word");
        EXPECT_EQ("word|word|", again.peer.Receive(10));
    });
}

TEST(PressureServer, AnotherEventThanAConnection_EntersNobody) {
    WithServer([](Pressure& server) {
        EXPECT_EQ(1,
                  server.serverCallBack(nullptr, kCFSocketReadCallBack, nullptr, nullptr, nullptr));
        EXPECT_THAT(Printed(),
                    ElementsAre("Unknown server action [" + std::to_string(server.port) + "]"));
        server.replyCursor(L"word");
        EXPECT_THAT(Printed(), IsEmpty());
    });
}

TEST(PressureServer, WhatIsGathered_LeavesInOnePieceAndInItsOrder) {
    WithServer([](Pressure& server) {
        const Connection listener(server);
        const Connection other(server);
        Server::activePressureListener = listener.socket;
        {
            const Outbox::Gathering together;
            server.replyPressure(37);
            server.replyTabletEvent("m1_2");
            // Another client does not wait.
            server.reply(L"word", other.socket);
            EXPECT_EQ("word|", other.peer.Receive(5));
            EXPECT_TRUE(listener.peer.HasNothing());
        }
        EXPECT_EQ(std::string("0037\0m1_2 ", 10), listener.peer.Receive(10));
        server.replyPressure(38);
        EXPECT_EQ(std::string("0038\0", 5), listener.peer.Receive(5));
    });
}

TEST(PressureServer, WhatIsGatheredForNobody_IsRefusedAtOnce) {
    WithServer([](Pressure& server) {
        Server::activePressureListener = 12345;
        const Outbox::Gathering together;
        EXPECT_EQ(-1, server.replyTabletEvent("m1_2"));
        Printed();
        server.replyPressure(37);
        EXPECT_THAT(Printed(), ElementsAre("Send failure! [" + std::to_string(server.port) + "]"));
    });
}

TEST(PressureServer, WhatIsGatheredForAListenerTooFarBehind_IsRefusedAtOnceAndLogged) {
    WithServer([](Pressure& server) {
        const Connection listener(server);
        Server::activePressureListener = listener.socket;
        // What the system keeps, and more than is kept here.
        Outbox::Send(listener.socket, std::string(2 * Outbox::kMostWaiting, 'x'));
        Printed();
        const Outbox::Gathering together;
        EXPECT_EQ(0, server.replyPressure(37));
        EXPECT_THAT(Printed(), ElementsAre("Send failure! [" + std::to_string(server.port) + "]"));
        EXPECT_EQ(-1, server.replyTabletEvent("m1_2"));
    });
}

TEST(PressureServer, WhatIsGatheredForAListenerThatWasReset_IsLoggedFromTheSecondTimeOn) {
    WithServer([](Pressure& server) {
        Connection listener(server);
        Server::activePressureListener = listener.socket;
        listener.peer.Reset();
        pollfd state{listener.socket, POLLIN, 0};
        EXPECT_EQ(1, poll(&state, 1, 10000));
        {
            const Outbox::Gathering together;
            server.replyPressure(37);
        }
        Printed();
        for (int time = 0; time < 3; ++time) {
            const Outbox::Gathering together;
            EXPECT_EQ(0, server.replyPressure(38));
            EXPECT_THAT(Printed(),
                        ElementsAre("Send failure! [" + std::to_string(server.port) + "]"));
            EXPECT_EQ(-1, server.replyTabletEvent("m1_2"));
        }
    });
}

// The listener is not forgotten when its connection closes.
TEST(PressureServer, ANumberThatAnotherServersConnectionGetsAfterAListener_ReceivesItsRecords) {
    WithServer([](Pressure& server) {
        Other other;
        ASSERT_NE(-1, other.init());
        // The peer of the later connection comes first, so that the number is free for the
        // accepted socket.
        Connection gone(server);
        Server::activePressureListener = gone.socket;
        const int spare = dup(STDERR_FILENO);
        gone.peer.Close();
        gone.Receive();
        EXPECT_EQ(gone.socket, Server::activePressureListener);
        EXPECT_EQ(-1, server.replyTabletEvent("d1_2"));
        close(spare);
        const Connection later(other);
        ASSERT_EQ(gone.socket, later.socket);
        EXPECT_EQ(0, server.replyPressure(37));
        EXPECT_EQ(0, server.replyTabletEvent("d1_2"));
        EXPECT_EQ(std::string("0037\0d1_2 ", 10), later.peer.Receive(10));
    });
}

TEST(PressureServer, IsAReplierForPenData) {
    WithServer([](Pressure& server) {
        const Connection listener(server);
        const Connection other(server);
        Server::activePressureListener = listener.socket;
        PressureReplier& replier = server;
        EXPECT_EQ(0, replier.replyPressure(37));
        EXPECT_EQ(0, replier.replyTabletEvent("D 1 2"));
        EXPECT_EQ(0, replier.replyCursor(L"word"));
        // Records without a bar and messages with one come mixed.
        EXPECT_EQ(std::string("0037\0D 1 2 word|", 16), listener.peer.Receive(16));
        EXPECT_EQ("word|", other.peer.Receive(5));
        EXPECT_TRUE(other.peer.HasNothing());
    });
}

}  // namespace
