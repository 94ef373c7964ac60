// The server with real connections, in a process of its own for each test: which port it finds
// depends on the random numbers, and the log, the pass key and the pen data's listener are the
// process's.

#include "net/Server.h"

#include <Carbon/Carbon.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <ostream>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "commands/CommandHandler.h"
#include "core/Helpers.h"
#include "net/ConnectionAuthorization.h"
#include "net/Outbox.h"
#include "tablet/TabletManager.h"
#include "unit/support/ForkedTest.h"
#include "unit/support/Kernel.h"
#include "unit/support/ServerTesting.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using CommandServer = Visible<Server>;

constexpr int kFirstPort = 3400;
constexpr int kLastPort = 3655;
constexpr int kDraws = 25;

std::string Text(int number) {
    return std::to_string(number);
}

// A server that asks for no key and gives the same status to everything.
class Echo : public CommandServer {
  public:
    explicit Echo(Status status = Status::kNothingHandled) {
        onCommand = [status](int, std::wstring&) { return status; };
    }
    bool isCommandServer() const override { return false; }
};

// Runs BODY in a process of its own, with a server that listens and with nothing printed yet.
template <typename AnyServer>
void WithServer(const std::function<void(AnyServer& server)>& body) {
    InChild([&body] {
        AnyServer server;
        ASSERT_NE(-1, server.init());
        Printed();
        body(server);
    });
}

// The lines about a message that is being handled, and MORE.
std::vector<std::string> Processing(const std::string& message,
                                    const std::vector<std::string>& more = {}) {
    std::vector<std::string> lines = {"Processing command:", message};
    lines.insert(lines.end(), more.begin(), more.end());
    return lines;
}

// --- What it is

TEST(Server, AsItStands_IsTheCommandServer) {
    const Server server;
    EXPECT_TRUE(server.isCommandServer());
    EXPECT_EQ("Command Server", server.name());
}

TEST(Server, BeforeItsStart_HasNoListenerAndNobody) {
    CommandServer server;
    EXPECT_EQ(-1, server.getServerFD());
    EXPECT_EQ("", server.pendingInput);
    EXPECT_TRUE(server.clients.empty());
    EXPECT_EQ(0, server.currentClient);
    EXPECT_EQ(0, server.authorizedClient);
    EXPECT_EQ(-1, Server::activePressureListener);
}

// --- Its start

TEST(Init, ListensAndSaysWhere) {
    InChild([] {
        Helpers::logprint("opens the log");
        Printed();
        CommandServer server;
        const int port = server.init();
        EXPECT_GE(port, kFirstPort);
        EXPECT_LE(port, kLastPort);
        EXPECT_EQ(port, server.port);
        EXPECT_NE(-1, server.getServerFD());
        EXPECT_EQ(server.serverSocket, server.getServerFD());
        EXPECT_EQ("Listener starting...", Printed().front());
        EXPECT_EQ(L"Listen [" + Helpers::intToWString(port) + L"] succesful, waiting for clients",
                  Helpers::getLastLog());
        const Peer peer(port);
    });
}

TEST(Init, SetsTheOptionsOfTheListener) {
    WithServer<CommandServer>([](CommandServer& server) {
        const auto option = [&server](int name) {
            int value = -1;
            socklen_t length = sizeof value;
            getsockopt(server.getServerFD(), SOL_SOCKET, name, &value, &length);
            return value;
        };
        EXPECT_EQ(1, option(SO_REUSEADDR));
        EXPECT_EQ(0, option(SO_REUSEPORT));
        EXPECT_EQ(1, option(SO_ACCEPTCONN));
        EXPECT_EQ(O_NONBLOCK, fcntl(server.getServerFD(), F_GETFL) & O_NONBLOCK);
        EXPECT_EQ(FD_CLOEXEC, fcntl(server.getServerFD(), F_GETFD));
        // For a listener these fields are the connections that wait, and how many may.
        tcp_info info = {};
        socklen_t length = sizeof info;
        ASSERT_EQ(0, getsockopt(server.getServerFD(), IPPROTO_TCP, TCP_INFO, &info, &length));
        EXPECT_EQ(10u, info.tcpi_sacked);
    });
}

TEST(Init, ListensOnTheLoopbackAlone) {
    WithServer<CommandServer>([](CommandServer& server) {
        sockaddr_in address = {};
        socklen_t length = sizeof address;
        ASSERT_EQ(
            0, getsockname(server.getServerFD(), reinterpret_cast<sockaddr*>(&address), &length));
        EXPECT_EQ(AF_INET, address.sin_family);
        EXPECT_EQ(INADDR_LOOPBACK, ntohl(address.sin_addr.s_addr));
        EXPECT_EQ(server.port, ntohs(address.sin_port));
    });
}

TEST(Init, ForgetsTheCountAndTheAuthorization) {
    InChild([] {
        CommandServer server;
        server.clientCount = 7;
        server.authorized = true;
        server.init();
        EXPECT_EQ(0, server.clientCount);
        EXPECT_FALSE(server.authorized);
    });
}

// What the next draws will be; afterwards the same numbers come again.
std::vector<int> NextDraws(unsigned seed, int count = kDraws) {
    srandom(seed);
    std::vector<int> ports;
    for (int i = 0; i < count; ++i) {
        ports.push_back(kFirstPort + static_cast<int>(random() & 0xFF));
    }
    srandom(seed);
    return ports;
}

// Listens on PORT, or leaves it to whoever does already.
void Occupy(int port) {
    const int occupant = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    if (bind(occupant, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
        EXPECT_EQ(0, listen(occupant, 1));
    }
    // cppcheck-suppress resourceLeak ; it listens until the test's process ends
}

TEST(Init, WithThePortTaken_SaysSoAndDrawsAnother) {
    InChild([] {
        Helpers::logprint("opens the log");
        const std::vector<int> ports = NextDraws(2026);
        Occupy(ports[0]);
        Occupy(ports[1]);
        Printed();
        CommandServer server;
        const int port = server.init();
        const std::vector<std::string> lines = Printed();
        ASSERT_GE(lines.size(), 4u);
        EXPECT_EQ("Listener starting...", lines[0]);
        EXPECT_EQ("Attempted port " + Text(ports[0]) + ", already taken.", lines[1]);
        EXPECT_EQ("Attempted port " + Text(ports[1]) + ", already taken.", lines[2]);
        EXPECT_EQ("Listen [" + Text(port) + "] succesful, waiting for clients", lines.back());
        EXPECT_THAT(ports, testing::Contains(port));
    });
}

TEST(Init, WithAllTwentyFiveDrawsTaken_GivesUpAndSpeaksOfFifty) {
    InChild([] {
        Helpers::logprint("opens the log");
        const std::vector<int> ports = NextDraws(11);
        for (const int port : std::set<int>(ports.begin(), ports.end())) {
            Occupy(port);
        }
        Printed();
        CommandServer server;
        EXPECT_EQ(-1, server.init());
        std::vector<std::string> wanted = {"Listener starting..."};
        for (const int port : ports) {
            wanted.push_back("Attempted port " + Text(port) + ", already taken.");
        }
        wanted.push_back("No free port found after 50 attempts, giving up!");
        EXPECT_EQ(wanted, Printed());
        EXPECT_EQ(-1, server.getServerFD());
    });
}

TEST(Init, OfASecondServer_TakesAnotherPort) {
    InChild([] {
        NextDraws(5);
        CommandServer one;
        const int first = one.init();
        NextDraws(5);
        CommandServer other;
        EXPECT_NE(first, other.init());
    });
}

TEST(Init, ThatCannotMakeASocket_SaysSo) {
    InChild([] {
        Helpers::logprint("opens the log");
        Printed();
        LetFail(SYS_socket, EMFILE);
        CommandServer server;
        EXPECT_EQ(-1, server.init());
        EXPECT_THAT(Printed(), ElementsAre("Listener starting...", "can not create socket"));
        EXPECT_EQ(-1, server.getServerFD());
        server.deinit(true);
        EXPECT_THAT(Printed(), IsEmpty());
    });
}

TEST(Init, ThatCannotListen_SaysSo) {
    InChild([] {
        Helpers::logprint("opens the log");
        Printed();
        const std::vector<int> before = OpenDescriptors();
        LetFail(SYS_listen, EADDRINUSE);
        CommandServer server;
        EXPECT_EQ(-1, server.init());
        const std::vector<std::string> lines = Printed();
        EXPECT_EQ("Listen [" + Text(server.port) + "] succesful, waiting for clients",
                  lines[lines.size() - 2]);
        EXPECT_EQ("error listen failed", lines.back());
        EXPECT_EQ(-1, server.getServerFD());
        EXPECT_EQ(before, OpenDescriptors());
    });
}

// --- New connections

TEST(NewConnection, IsLoggedCountedAndKept) {
    WithServer<CommandServer>([](CommandServer& server) {
        const Connection one(server);
        EXPECT_TRUE(one.WasKept());
        EXPECT_EQ(1, server.clientCount);
        EXPECT_THAT(Printed(), ElementsAre("New connection: id=" + Text(one.socket) + ", port=" +
                                           Text(server.port) + ", name=Command Server"));
        const Connection other(server);
        EXPECT_EQ(2, server.clientCount);
        // Nobody's input is being handled yet, and nobody is in the table of clients.
        EXPECT_EQ(0, server.currentClient);
        EXPECT_TRUE(server.clients.empty());
    });
}

TEST(NewConnection, SendsEveryReplyAtOnce) {
    WithServer<CommandServer>([](CommandServer& server) {
        const Connection connection(server);
        int noDelay = 0;
        socklen_t length = sizeof noDelay;
        getsockopt(connection.socket, IPPROTO_TCP, TCP_NODELAY, &noDelay, &length);
        EXPECT_EQ(1, noDelay);
    });
}

TEST(NewConnection, WhileAClientIsAuthorized_IsTurnedAwayWithoutAWord) {
    WithServer<CommandServer>([](CommandServer& server) {
        server.authorized = true;
        const Connection connection(server);
        EXPECT_FALSE(connection.WasKept());
        EXPECT_EQ(0, server.clientCount);
        EXPECT_THAT(Printed(), IsEmpty());
        EXPECT_EQ("", connection.peer.ReceiveTheRest());
    });
}

TEST(NewConnection, OfAServerThatAsksForNoKey_IsNeverTurnedAway) {
    WithServer<Echo>([](Echo& server) {
        server.authorized = true;
        const Connection connection(server);
        EXPECT_TRUE(connection.WasKept());
        EXPECT_EQ(1, server.clientCount);
    });
}

TEST(ServerCallBack, OfAnyOtherEvent_IsSaidAndChangesNothing) {
    WithServer<CommandServer>([](CommandServer& server) {
        for (const CFSocketCallBackType type :
             {CFSocketCallBackType{kCFSocketReadCallBack},
              CFSocketCallBackType{kCFSocketWriteCallBack}, CFSocketCallBackType{0}}) {
            EXPECT_EQ(1, server.serverCallBack(nullptr, type, nullptr, nullptr, nullptr));
            EXPECT_THAT(Printed(),
                        ElementsAre("Unknown server action [" + Text(server.port) + "]"));
        }
        EXPECT_EQ(0, server.clientCount);
        server.authorized = true;
        EXPECT_EQ(1,
                  server.serverCallBack(nullptr, kCFSocketReadCallBack, nullptr, nullptr, nullptr));
    });
}

// --- The callback of a client

TEST(ClientCallBack, ToRead_Receives) {
    WithServer<Echo>([](Echo& server) {
        const Connection connection(server);
        connection.peer.Send("hello|");
        connection.WaitForBytes(6);
        int client = connection.socket;
        EXPECT_EQ(1,
                  server.clientCallBack(nullptr, kCFSocketReadCallBack, nullptr, nullptr, &client));
        EXPECT_THAT(server.commands, ElementsAre(L"hello"));
    });
}

TEST(ClientCallBack, OfAnyOtherEvent_IsSaidAndReceivesNothing) {
    WithServer<Echo>([](Echo& server) {
        const Connection connection(server);
        connection.peer.Send("hello|");
        connection.WaitForBytes(6);
        Printed();
        int client = connection.socket;
        for (const CFSocketCallBackType type :
             {CFSocketCallBackType{kCFSocketWriteCallBack},
              CFSocketCallBackType{kCFSocketAcceptCallBack}, CFSocketCallBackType{0}}) {
            EXPECT_EQ(1, server.clientCallBack(nullptr, type, nullptr, nullptr, &client));
            EXPECT_THAT(Printed(), ElementsAre("Unexpected client option"));
        }
        EXPECT_THAT(server.commands, IsEmpty());
        connection.WaitForBytes(6);
    });
}

// A listener and its clients on the main run loop, as the connection manager puts them there.
template <typename AnyServer>
class OnTheLoop {
  public:
    static void Serve(AnyServer& itsServer) {
        server = &itsServer;
        const auto socket = CFOwner<CFSocketRef>::Adopt(
            CFSocketCreateWithNative(kCFAllocatorDefault, itsServer.getServerFD(),
                                     kCFSocketAcceptCallBack, Accepted, nullptr));
        Add(socket.Get());
        RunApplicationEventLoop();
    }

  private:
    static void Add(CFSocketRef socket) {
        const auto source = CFOwner<CFRunLoopSourceRef>::Adopt(
            CFSocketCreateRunLoopSource(kCFAllocatorDefault, socket, 0));
        CFRunLoopAddSource(CFRunLoopGetCurrent(), source.Get(), kCFRunLoopCommonModes);
    }
    static void Accepted(CFSocketRef socket, CFSocketCallBackType type, CFDataRef address,
                         const void* data, void* info) {
        const int client = *static_cast<const CFSocketNativeHandle*>(data);
        EXPECT_EQ(1, server->serverCallBack(socket, type, address, data, info));
        CFSocketContext context = {0, new int(client), nullptr,
                                   [](const void* cell) { delete static_cast<const int*>(cell); },
                                   nullptr};
        const auto wrapper = CFOwner<CFSocketRef>::Adopt(CFSocketCreateWithNative(
            kCFAllocatorDefault, client, kCFSocketReadCallBack, Readable, &context));
        CFSocketSetSocketFlags(wrapper.Get(), kCFSocketAutomaticallyReenableReadCallBack);
        Outbox::Open(client, wrapper.Get());
        Add(wrapper.Get());
    }
    static void Readable(CFSocketRef socket, CFSocketCallBackType type, CFDataRef address,
                         const void* data, void* info) {
        server->clientCallBack(socket, type, address, data, info);
    }

    static AnyServer* server;
};

template <typename AnyServer>
AnyServer* OnTheLoop<AnyServer>::server = nullptr;

TEST(EndOfTheService, EndsTheApplicationEventLoopAndClosesEverything) {
    WithServer<Echo>([](Echo& server) {
        server.onCommand = [](int, std::wstring& message) {
            return message == L"end" ? Status::kEndService : Status::kSuccess;
        };
        const int port = server.port;
        const int listener = server.getServerFD();
        // All that the peers send is there before the loop runs, so no thread is needed.
        const Peer asker(port);
        asker.Send("a|b|");
        asker.EndSending();
        const Peer ender(port);
        ender.Send("c|end|never|");
        OnTheLoop<Echo>::Serve(server);
        EXPECT_THAT(server.commands, testing::UnorderedElementsAre(L"a", L"b", L"c", L"end"));
        EXPECT_EQ("Success |Success |", asker.ReceiveTheRest());
        EXPECT_EQ("Success |", ender.ReceiveTheRest());
        EXPECT_EQ(-1, server.getServerFD());
        EXPECT_EQ(-1, fcntl(listener, F_GETFD));
        EXPECT_EQ("deinit server", Printed().back());
    });
}

TEST(RunLoop, ServesManyClientsUntilEachHasGone) {
    WithServer<Echo>([](Echo& server) {
        constexpr int kClients = 30;
        int gone = 0;
        server.onCommand = [&gone](int, std::wstring& message) {
            CommandHandler::SetReply(message);
            if (++gone == kClients) {
                QuitApplicationEventLoop();
            }
            return Status::kSuccess;
        };
        // The backlog is ten: the peers come and go on a thread of their own.
        std::vector<std::string> answers;
        std::thread peers([&answers, port = server.port] {
            for (int i = 0; i < kClients; ++i) {
                const Peer peer(port);
                peer.Send("number " + Text(i) + "|");
                answers.push_back(peer.ReceiveMessage());
            }
        });
        OnTheLoop<Echo>::Serve(server);
        peers.join();
        for (int i = 0; i < kClients; ++i) {
            EXPECT_EQ("Success number " + Text(i), answers[static_cast<std::size_t>(i)]);
        }
    });
}

// --- Receiving

TEST(Receive, MakesTheClientTheCurrentOne) {
    WithServer<Echo>([](Echo& server) {
        const Connection one(server);
        const Connection other(server);
        one.Deliver("x|");
        EXPECT_EQ(one.socket, server.currentClient);
        other.Deliver("x|");
        EXPECT_EQ(other.socket, server.currentClient);
    });
}

TEST(Receive, OfSeveralMessages_HandlesThemInTheirOrderAndKeepsTheRest) {
    WithServer<Echo>([](Echo& server) {
        const Connection connection(server);
        Printed();
        EXPECT_EQ(Status::kNothingHandled, connection.Deliver("a|b|c"));
        EXPECT_THAT(server.commands, ElementsAre(L"a", L"b"));
        EXPECT_EQ("c", server.pendingInput);
        EXPECT_THAT(Printed(), ElementsAre("Processing command:", "a", "Processing command:", "b"));
        connection.Deliver("d|");
        EXPECT_THAT(server.commands, ElementsAre(L"a", L"b", L"cd"));
        EXPECT_EQ("", server.pendingInput);
    });
}

TEST(Receive, TellsTheHandlerWhoSentIt) {
    WithServer<Echo>([](Echo& server) {
        std::vector<int> senders;
        server.onCommand = [&senders](int client, std::wstring&) {
            senders.push_back(client);
            return Status::kNothingHandled;
        };
        const Connection one(server);
        const Connection other(server);
        one.Deliver("x|");
        other.Deliver("x|x|");
        EXPECT_THAT(senders, ElementsAre(one.socket, other.socket, other.socket));
    });
}

TEST(Receive, LineEndsAndNuls_AreDropped) {
    WithServer<Echo>([](Echo& server) {
        const Connection connection(server);
        connection.Deliver(std::string("x\r\n|\0y\0|\r\n", 10));
        EXPECT_THAT(server.commands, ElementsAre(L"x", L"y"));
        EXPECT_EQ("", server.pendingInput);
    });
}

TEST(Receive, OfTwoBars_IsAnEmptyMessage) {
    WithServer<Echo>([](Echo& server) {
        const Connection connection(server);
        Printed();
        connection.Deliver("||");
        EXPECT_THAT(server.commands, ElementsAre(L"", L""));
        EXPECT_THAT(Printed(), ElementsAre("Processing command:", "", "Processing command:", ""));
    });
}

TEST(Receive, OfTwoClientsHalves_JoinsThem) {
    WithServer<Echo>([](Echo& server) {
        const Connection one(server);
        const Connection other(server);
        EXPECT_EQ(Status::kNothingHandled, one.Deliver("plat"));
        other.Deliver("form|x");
        one.Deliver("|");
        EXPECT_THAT(server.commands, ElementsAre(L"platform", L"x"));
    });
}

TEST(Receive, OfAHalfWhoseClientHasGone_GivesItToTheNext) {
    WithServer<Echo>([](Echo& server) {
        Connection one(server);
        one.Deliver("plat");
        one.peer.Close();
        EXPECT_EQ(Status::kCloseClient, one.Receive());
        const Connection other(server);
        other.Deliver("form|");
        EXPECT_THAT(server.commands, ElementsAre(L"platform"));
    });
}

TEST(Receive, DecodesUtf8) {
    WithServer<Echo>([](Echo& server) {
        const Connection connection(server);
        connection.Deliver("caf\xC3\xA9 \xF0\x9F\x96\x8A|");
        EXPECT_THAT(server.commands, ElementsAre(L"caf\u00E9 \U0001F58A"));
    });
}

TEST(Receive, OfABatchThatIsNoUtf8_TakesTheFailureTextForAllOfIt) {
    WithServer<Echo>([](Echo& server) {
        const Connection connection(server);
        connection.Deliver("good|bad \xFF|good|");
        EXPECT_THAT(server.commands, IsEmpty());
        EXPECT_EQ("Utf8 conversion failed", server.pendingInput);
        connection.Deliver("|");
        EXPECT_THAT(server.commands, ElementsAre(L"Utf8 conversion failed"));
    });
}

TEST(Receive, OfACharacterCutByTheBatch_DecodesEachPartAsItStands) {
    WithServer<Echo>([](Echo& server) {
        const Connection connection(server);
        connection.Deliver("a\xC3");
        connection.Deliver("\xA9|");
        EXPECT_THAT(server.commands, IsEmpty());
        EXPECT_EQ("Utf8 conversion failedUtf8 conversion failed", server.pendingInput);
    });
}

TEST(Receive, OfMessagesAroundTheSizeOfAChunk_HandlesThemWithoutWaiting) {
    WithServer<Echo>([](Echo& server) {
        const Connection connection(server);
        for (const std::size_t size : {510u, 511u, 512u, 513u, 1023u, 1024u, 1025u, 20000u}) {
            server.commands.clear();
            connection.Deliver(std::string(size - 1, 'x') + "|");
            EXPECT_THAT(server.commands, ElementsAre(std::wstring(size - 1, L'x')));
        }
    });
}

TEST(Receive, OfACharacterAcrossTheChunksOfOneBatch_IsWhole) {
    WithServer<Echo>([](Echo& server) {
        const Connection connection(server);
        connection.Deliver(std::string(511, 'x') + "\xC3\xA9|");
        EXPECT_THAT(server.commands, ElementsAre(std::wstring(511, L'x') + L"\u00E9"));
    });
}

TEST(Receive, OfAFullChunkBehindWhichThePeerCloses_HandlesItFirst) {
    WithServer<Echo>([](Echo& server) {
        Connection connection(server);
        connection.peer.Send(std::string(511, 'x') + "|");
        connection.WaitForBytes(512);
        connection.peer.Close();
        EXPECT_EQ(Status::kNothingHandled, connection.Receive());
        EXPECT_EQ(1u, server.commands.size());
        EXPECT_EQ(Status::kCloseClient, connection.Receive());
    });
}

TEST(Receive, OfAnHTTPRequest_ClosesTheClientAndKeepsNothingOfIt) {
    WithServer<Echo>([](Echo& server) {
        const Connection other(server);
        other.Deliver("plat");
        const Connection browser(server);
        Printed();
        EXPECT_EQ(Status::kCloseClient,
                  browser.Deliver("POST / HTTP/1.1\r\nHost: a\r\n\r\nquit|hello|x"));
        EXPECT_THAT(Printed(),
                    ElementsAre("error web browser refused [" + Text(server.port) + "]",
                                "connection id " + Text(browser.socket), "deinit client"));
        EXPECT_FALSE(browser.IsOpen());
        EXPECT_EQ(1, server.clientCount);
        EXPECT_THAT(server.commands, IsEmpty());
        other.Deliver("form|");
        EXPECT_THAT(server.commands, ElementsAre(L"platform"));
    });
}

TEST(Receive, OfAnHTTPRequestInPieces_KeepsNothingOfIt) {
    WithServer<Echo>([](Echo& server) {
        const Connection browser(server);
        EXPECT_EQ(Status::kNothingHandled, browser.Deliver("GET /he"));
        EXPECT_EQ("", server.pendingInput);
        EXPECT_EQ(Status::kCloseClient, browser.Deliver("llo| HTTP/1.1\n"));
        EXPECT_EQ("", server.pendingInput);
        EXPECT_THAT(server.commands, IsEmpty());
    });
}

TEST(Receive, OfARequestLineThatIsNotTheFirst_IsACommandLikeAnyOther) {
    WithServer<Echo>([](Echo& server) {
        const Connection connection(server);
        connection.Deliver("x|");
        connection.Deliver("GET / HTTP/1.1\n|");
        EXPECT_THAT(server.commands, ElementsAre(L"x", L"GET / HTTP/1.1"));
        EXPECT_TRUE(connection.IsOpen());
    });
}

TEST(Receive, OfACommandThatBeginsLikeARequest_AnswersIt) {
    WithServer<Echo>([](Echo& server) {
        const Connection connection(server);
        connection.Deliver("GE");
        connection.Deliver("T x|");
        EXPECT_THAT(server.commands, ElementsAre(L"GET x"));
    });
}

TEST(Receive, OfTheEndOfAClientWhoseFirstLineIsKeptBack_ForgetsTheLine) {
    WithServer<Echo>([](Echo& server) {
        Connection connection(server);
        connection.Deliver("GET /");
        connection.peer.Close();
        EXPECT_EQ(Status::kCloseClient, connection.Receive());
        const Connection next(server);
        next.Deliver(" HTTP/1.1\n|");
        EXPECT_THAT(server.commands, ElementsAre(L" HTTP/1.1"));
    });
}

TEST(Receive, WithNothingThere_IsSilent) {
    WithServer<Echo>([](Echo& server) {
        const Connection connection(server);
        Printed();
        EXPECT_EQ(Status::kNothingHandled, server.handleReceive(connection.socket));
        EXPECT_THAT(Printed(), IsEmpty());
        EXPECT_TRUE(connection.IsOpen());
    });
}

TEST(Receive, OfTheEnd_ClosesTheClient) {
    WithServer<Echo>([](Echo& server) {
        Connection connection(server);
        connection.peer.Close();
        Printed();
        EXPECT_EQ(Status::kCloseClient, connection.Receive());
        EXPECT_THAT(Printed(),
                    ElementsAre("error connection closed [" + Text(server.port) + "]",
                                "connection id " + Text(connection.socket), "deinit client"));
        EXPECT_EQ(-1, server.currentClient);
        EXPECT_EQ(0, server.clientCount);
        EXPECT_FALSE(connection.IsOpen());
        EXPECT_EQ(-1, fcntl(connection.socket, F_GETFD));
    });
}

TEST(Receive, OfAnError_SaysSoAndClosesWithTheNextEvent) {
    WithServer<Echo>([](Echo& server) {
        Connection connection(server);
        connection.peer.Reset();
        Printed();
        EXPECT_EQ(Status::kNothingHandled, connection.Receive());
        EXPECT_THAT(Printed(), ElementsAre("error receive error"));
        EXPECT_EQ("receive error: Connection reset by peer\n", PrintedErrors());
        EXPECT_TRUE(connection.IsOpen());
        EXPECT_EQ(connection.socket, server.currentClient);
        EXPECT_EQ(Status::kCloseClient, connection.Receive());
        EXPECT_FALSE(connection.IsOpen());
    });
}

TEST(Receive, LogsWhatComes_OnlyWhileThatIsAskedFor) {
    WithServer<Echo>([](Echo& server) {
        const Connection connection(server);
        Printed();
        EXPECT_FALSE(displayLogMessages);
        connection.Deliver("a");
        EXPECT_THAT(Printed(), IsEmpty());
        displayLogMessages = true;
        connection.Deliver("b 100%|");
        EXPECT_THAT(Printed(),
                    ElementsAre("Received Command Server[" + Text(server.port) + "]: b 100%%|",
                                "Processing command:", "ab 100%"));
    });
}

TEST(Receive, StartsWithoutAnError) {
    WithServer<Echo>([](Echo& server) {
        server.onCommand = [](int, std::wstring&) {
            EXPECT_EQ(0, errno);
            Helpers::logprint("reason");
            return Status::kFailure;
        };
        const Connection connection(server);
        errno = ENOTEMPTY;
        connection.Deliver("x|");
        EXPECT_EQ("Failure reason - Success", connection.peer.ReceiveMessage());
    });
}

TEST(Receive, OfOneMessageInManyPieces_CostsNoMoreThanItsLength) {
    WithServer<Echo>([](Echo& server) {
        const Connection connection(server);
        const std::string piece(500, 'x');
        for (int i = 0; i < 4000; ++i) {
            connection.Deliver(piece);
        }
        EXPECT_EQ(2000000u, server.pendingInput.size());
        connection.Deliver("|");
        EXPECT_EQ(2000000u, server.commands[0].size());
    });
}

// --- What becomes of each status

// The name of a test for what TEXT says.
std::string LettersOf(std::string text) {
    text.erase(std::remove_if(text.begin(), text.end(),
                              [](char letter) { return std::isalnum(letter) == 0; }),
               text.end());
    return text;
}

struct Answer {
    Status status;
    const char* reply;
};

// What the test runner writes behind the test's name.
void PrintTo(const Answer& answer, std::ostream* stream) {
    *stream << answer.reply;
}

class Answers : public testing::TestWithParam<Answer> {};

INSTANTIATE_TEST_SUITE_P(Statuses, Answers,
                         testing::Values(Answer{Status::kYes, "True"}, Answer{Status::kNo, "False"},
                                         Answer{Status::kIconReady, "IconReady"},
                                         Answer{Status::kIconMissing, "IconMissing"},
                                         Answer{Status::kSuccess, "Success "}),
                         [](const testing::TestParamInfo<Answer>& itsInfo) {
                             return LettersOf(itsInfo.param.reply);
                         });

TEST_P(Answers, AreSentWithTheirBarAndLoggedWithIt) {
    const Answer answer = GetParam();
    WithServer<Echo>([answer](Echo& server) {
        server.onCommand = [answer](int, std::wstring&) { return answer.status; };
        const Connection connection(server);
        Printed();
        EXPECT_EQ(answer.status, connection.Deliver("do|"));
        const std::string reply = std::string(answer.reply) + "|";
        EXPECT_EQ(reply, connection.peer.Receive(reply.size()));
        EXPECT_TRUE(connection.peer.HasNothing());
        EXPECT_EQ(Processing("do", {reply}), Printed());
        EXPECT_TRUE(connection.IsOpen());
    });
}

TEST_P(Answers, LeaveTheBatchGoingOn) {
    const Answer answer = GetParam();
    WithServer<Echo>([answer](Echo& server) {
        server.onCommand = [answer](int, std::wstring&) { return answer.status; };
        const Connection connection(server);
        connection.Deliver("do|do|do|");
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(answer.reply, connection.peer.ReceiveMessage());
        }
    });
}

TEST(Success, CarriesTheReplyTextOnce) {
    WithServer<Echo>([](Echo& server) {
        bool isFirst = true;
        server.onCommand = [&isFirst](int, std::wstring&) {
            if (isFirst) {
                CommandHandler::SetReply(L"UUID={x}");
            }
            isFirst = false;
            return Status::kSuccess;
        };
        const Connection connection(server);
        connection.Deliver("do|do|");
        EXPECT_EQ("Success UUID={x}|Success |", connection.peer.Receive(26));
    });
}

TEST(Success, WithOtherLetters_LeavesWithQuestionMarks) {
    WithServer<Echo>([](Echo& server) {
        server.onCommand = [](int, std::wstring&) {
            CommandHandler::SetReply(L"caf\u00E9 \u20AC\U0001F58A");
            return Status::kSuccess;
        };
        const Connection connection(server);
        Printed();
        connection.Deliver("do|");
        EXPECT_EQ("Success caf? ??", connection.peer.ReceiveMessage());
        EXPECT_EQ("Success caf? ??|", Printed().back());
    });
}

struct Refusal {
    Status status;
    const char* word;
};

void PrintTo(const Refusal& refusal, std::ostream* stream) {
    *stream << refusal.word;
}

class Refusals : public testing::TestWithParam<Refusal> {};

INSTANTIATE_TEST_SUITE_P(Statuses, Refusals,
                         testing::Values(Refusal{Status::kFailure, "Failure"},
                                         Refusal{Status::kSyntaxError, "SyntaxError"}),
                         [](const testing::TestParamInfo<Refusal>& itsInfo) {
                             return LettersOf(itsInfo.param.word);
                         });

TEST_P(Refusals, TellTheLastLineAndTheLastErrorAndLogTheCommandAgain) {
    const Refusal refusal = GetParam();
    WithServer<Echo>([refusal](Echo& server) {
        server.onCommand = [refusal](int, std::wstring&) {
            Helpers::logprint("not the last line");
            Helpers::logprint("the reason");
            errno = ENOENT;
            return refusal.status;
        };
        const Connection connection(server);
        Printed();
        EXPECT_EQ(refusal.status, connection.Deliver("do it|"));
        const std::string reply =
            refusal.word + std::string(" the reason - No such file or directory|");
        EXPECT_EQ(reply, connection.peer.Receive(reply.size()));
        EXPECT_TRUE(connection.peer.HasNothing());
        EXPECT_EQ(Processing("do it", {"not the last line", "the reason",
                                       "Processing command:", "do it", reply}),
                  Printed());
        EXPECT_TRUE(connection.IsOpen());
    });
}

TEST_P(Refusals, WithoutALineOfTheirOwn_TellTheLineBefore) {
    const Refusal refusal = GetParam();
    WithServer<Echo>([refusal](Echo& server) {
        server.onCommand = [refusal](int, std::wstring&) { return refusal.status; };
        const Connection connection(server);
        connection.Deliver("do it|");
        EXPECT_EQ(refusal.word + std::string(" do it - Success"), connection.peer.ReceiveMessage());
    });
}

TEST_P(Refusals, AreNotChangedByALogFile) {
    const Refusal refusal = GetParam();
    InChild([refusal] {
        WriteFile(Home() + "/tesselLog.txt", "");
        Echo server;
        server.onCommand = [refusal](int, std::wstring&) {
            errno = ENOTEMPTY;
            Helpers::logprint("the reason");
            return refusal.status;
        };
        ASSERT_NE(-1, server.init());
        const Connection connection(server);
        connection.Deliver("do|");
        EXPECT_EQ(refusal.word + std::string(" the reason - Directory not empty"),
                  connection.peer.ReceiveMessage());
    });
}

TEST_P(Refusals, LeaveTheReplyTextForTheNextSuccess) {
    const Refusal refusal = GetParam();
    WithServer<Echo>([refusal](Echo& server) {
        server.onCommand = [refusal](int, std::wstring& message) {
            if (message == L"succeed") {
                return Status::kSuccess;
            }
            CommandHandler::SetReply(L"left behind");
            return refusal.status;
        };
        const Connection connection(server);
        connection.Deliver("refuse|succeed|");
        connection.peer.ReceiveMessage();
        EXPECT_EQ("Success left behind", connection.peer.ReceiveMessage());
    });
}

TEST(StartOfPenData, MakesTheClientTheListenerWithoutAReply) {
    WithServer<Echo>([](Echo& server) {
        server.onCommand = [](int, std::wstring&) { return Status::kStartPenData; };
        TabletManager::previousProximityStatus = 5;
        const Connection connection(server);
        Printed();
        EXPECT_EQ(Status::kStartPenData, connection.Deliver("startTablet|"));
        EXPECT_EQ(connection.socket, Server::activePressureListener);
        EXPECT_TRUE(TabletManager::listening);
        EXPECT_EQ(-1, TabletManager::previousProximityStatus);
        EXPECT_EQ(
            Processing("startTablet", {"Active pressure listener: " + Text(connection.socket)}),
            Printed());
        EXPECT_TRUE(connection.peer.HasNothing());
    });
}

TEST(StopOfPenData, OfTheListener_EndsItWithoutAReply) {
    WithServer<Echo>([](Echo& server) {
        server.onCommand = [](int, std::wstring& message) {
            return message == L"start" ? Status::kStartPenData : Status::kStopPenData;
        };
        const Connection connection(server);
        connection.Deliver("start|");
        TabletManager::previousProximityStatus = 5;
        Printed();
        EXPECT_EQ(Status::kStopPenData, connection.Deliver("stop|"));
        EXPECT_EQ(-1, Server::activePressureListener);
        EXPECT_FALSE(TabletManager::listening);
        EXPECT_EQ(-1, TabletManager::previousProximityStatus);
        EXPECT_EQ(Processing("stop"), Printed());
        EXPECT_TRUE(connection.peer.HasNothing());
    });
}

TEST(StopOfPenData, OfAnybodyElse_ChangesNothing) {
    WithServer<Echo>([](Echo& server) {
        server.onCommand = [](int, std::wstring& message) {
            return message == L"start" ? Status::kStartPenData : Status::kStopPenData;
        };
        const Connection listener(server);
        const Connection other(server);
        listener.Deliver("start|");
        TabletManager::previousProximityStatus = 5;
        EXPECT_EQ(Status::kStopPenData, other.Deliver("stop|"));
        EXPECT_EQ(listener.socket, Server::activePressureListener);
        EXPECT_TRUE(TabletManager::listening);
        EXPECT_EQ(5, TabletManager::previousProximityStatus);
        EXPECT_TRUE(other.peer.HasNothing());
    });
}

TEST(StartOfPenData, OfAnotherClient_TakesItOver) {
    WithServer<Echo>([](Echo& server) {
        server.onCommand = [](int, std::wstring&) { return Status::kStartPenData; };
        const Connection one(server);
        const Connection other(server);
        one.Deliver("start|");
        other.Deliver("start|");
        EXPECT_EQ(other.socket, Server::activePressureListener);
    });
}

TEST(CloseOfAClient, ByItsCommand_StopsTheBatchAndClosesWithoutAReply) {
    WithServer<Echo>([](Echo& server) {
        server.onCommand = [](int, std::wstring&) { return Status::kCloseClient; };
        const Connection connection(server);
        Printed();
        EXPECT_EQ(Status::kCloseClient, connection.Deliver("close|more|"));
        EXPECT_THAT(server.commands, ElementsAre(L"close"));
        EXPECT_EQ(Processing("close", {"deinit client"}), Printed());
        EXPECT_EQ("", connection.peer.ReceiveTheRest());
        EXPECT_EQ(-1, server.currentClient);
        EXPECT_EQ(0, server.clientCount);
    });
}

TEST(EndOfTheService, WaitsASecondStopsTheBatchAndClosesClientAndListener) {
    WithServer<Echo>([](Echo& server) {
        server.onCommand = [](int, std::wstring&) { return Status::kEndService; };
        const Connection bystander(server);
        const Connection connection(server);
        Printed();
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(Status::kEndService, connection.Deliver("end|more|"));
        EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
        EXPECT_THAT(server.commands, ElementsAre(L"end"));
        EXPECT_EQ(Processing("end", {"deinit client", "deinit server"}), Printed());
        EXPECT_EQ("", connection.peer.ReceiveTheRest());
        EXPECT_EQ(-1, server.getServerFD());
        EXPECT_EQ(0, server.clientCount);
        EXPECT_TRUE(bystander.IsOpen());
        // At the end of the service everything is closed once more, and says nothing any more.
        server.deinit(true);
        EXPECT_THAT(Printed(), IsEmpty());
    });
}

TEST(QuitRequest, IsAcknowledgedWaitsASecondAndClosesNothing) {
    WithServer<Echo>([](Echo& server) {
        server.onCommand = [](int, std::wstring& message) {
            return message == L"exit" ? Status::kQuitRequested : Status::kYes;
        };
        const Connection connection(server);
        Printed();
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(Status::kQuitRequested, connection.Deliver("exit|dropped|"));
        EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
        EXPECT_THAT(server.commands, ElementsAre(L"exit"));
        EXPECT_EQ("QuitAcknowledged", connection.peer.ReceiveMessage());
        EXPECT_EQ(Processing("exit", {"QuitAcknowledged|"}), Printed());
        EXPECT_TRUE(connection.IsOpen());
        EXPECT_NE(-1, server.getServerFD());
        connection.Deliver("next|");
        EXPECT_EQ("True", connection.peer.ReceiveMessage());
    });
}

TEST(AnyOtherStatus, GetsNoReplyAndTheBatchGoesOn) {
    WithServer<Echo>([](Echo& server) {
        int next = 0;
        const std::vector<Status> statuses = {Status::kNothingHandled, static_cast<Status>(1),
                                              static_cast<Status>(-13), static_cast<Status>(99)};
        server.onCommand = [&](int, std::wstring&) {
            return statuses[static_cast<std::size_t>(next++)];
        };
        const Connection connection(server);
        EXPECT_EQ(static_cast<Status>(99), connection.Deliver("a|b|c|d|"));
        EXPECT_EQ(4u, server.commands.size());
        EXPECT_TRUE(connection.peer.HasNothing());
        EXPECT_TRUE(connection.IsOpen());
    });
}

TEST(Receive, ReturnsTheStatusOfTheLastCommand) {
    WithServer<Echo>([](Echo& server) {
        server.onCommand = [](int, std::wstring& message) {
            return message == L"yes" ? Status::kYes : Status::kNo;
        };
        const Connection connection(server);
        EXPECT_EQ(Status::kNo, connection.Deliver("yes|no|"));
        EXPECT_EQ(Status::kYes, connection.Deliver("no|yes|half"));
        EXPECT_EQ(Status::kNothingHandled, connection.Deliver("more of the half"));
    });
}

// --- Authorization

std::string Attempt() {
    return "auth " + ConnectionAuthorization::GetPassKey() + "|";
}

TEST(Gate, TheKey_IsAnsweredAuthOk) {
    WithServer<CommandServer>([](CommandServer& server) {
        const Connection connection(server);
        Printed();
        EXPECT_EQ(Status::kNothingHandled, connection.Deliver(Attempt()));
        EXPECT_EQ("authOk|", connection.peer.Receive(7));
        EXPECT_TRUE(server.authorized);
        EXPECT_EQ(connection.socket, server.authorizedClient);
        std::string attempt = Attempt();
        attempt.pop_back();
        EXPECT_EQ(Processing(attempt, {"Authorization successful.", "authOk|"}), Printed());
        EXPECT_THAT(server.commands, IsEmpty());
    });
}

TEST(Gate, AttemptAndCommandInOneBatch_AreBothHandled) {
    WithServer<CommandServer>([](CommandServer& server) {
        const Connection connection(server);
        EXPECT_EQ(Status::kSuccess, connection.Deliver(Attempt() + "platform|"));
        EXPECT_EQ("authOk|Success MACOSX|", connection.peer.Receive(22));
    });
}

TEST(Gate, AnythingElse_ClosesTheClientWithoutAWord) {
    for (const char* const message : {"platform|", "|", "auth|", "auth x|", "auth x y|"}) {
        WithServer<CommandServer>([message](CommandServer& server) {
            ConnectionAuthorization::GetPassKey();
            const Connection connection(server);
            Printed();
            EXPECT_EQ(Status::kNothingHandled,
                      connection.Deliver(message + std::string("platform|")));
            const std::vector<std::string> lines = Printed();
            ASSERT_GE(lines.size(), 4u) << message;
            EXPECT_EQ("Authorization failed!", lines[lines.size() - 2]);
            EXPECT_EQ("deinit client", lines.back());
            EXPECT_EQ(message, lines[1] + "|");
            EXPECT_EQ("", connection.peer.ReceiveTheRest());
            EXPECT_THAT(server.commands, IsEmpty());
            EXPECT_FALSE(server.authorized);
            EXPECT_EQ(0, server.clientCount);
        });
    }
}

TEST(Gate, AFailedAttempt_ConcernsThatClientAlone) {
    WithServer<CommandServer>([](CommandServer& server) {
        const Connection wrong(server);
        const Connection right(server);
        wrong.Deliver("auth x|");
        EXPECT_TRUE(right.IsOpen());
        right.Deliver(Attempt());
        EXPECT_EQ("authOk", right.peer.ReceiveMessage());
    });
}

TEST(Gate, ACommandBehindTheFirstBatch_NeedsNoKey) {
    WithServer<CommandServer>([](CommandServer& server) {
        const Connection connection(server);
        connection.Deliver(Attempt());
        connection.peer.ReceiveMessage();
        connection.Deliver("platform|");
        EXPECT_EQ("Success MACOSX", connection.peer.ReceiveMessage());
    });
}

TEST(Gate, AnAttemptOfTheAuthorizedClient_IsACommand) {
    WithServer<CommandServer>([](CommandServer& server) {
        const Connection connection(server);
        EXPECT_EQ(Status::kSyntaxError, connection.Deliver(Attempt() + Attempt()));
        connection.peer.ReceiveMessage();
        EXPECT_EQ("SyntaxError Unknown command - Success", connection.peer.ReceiveMessage());
    });
}

TEST(Gate, AClientThatWasThereBefore_IsServedWithoutAKey) {
    WithServer<CommandServer>([](CommandServer& server) {
        const Connection early(server);
        const Connection authorized(server);
        authorized.Deliver(Attempt());
        early.Deliver("platform|");
        EXPECT_EQ("Success MACOSX", early.peer.ReceiveMessage());
    });
}

TEST(Gate, WhenSuchAClientGoes_TheAuthorizedOneStaysSo) {
    WithServer<CommandServer>([](CommandServer& server) {
        Connection early(server);
        const Connection authorized(server);
        authorized.Deliver(Attempt());
        early.peer.Close();
        early.Receive();
        EXPECT_TRUE(server.authorized);
        authorized.Deliver("platform|");
        EXPECT_EQ("authOk|Success MACOSX|", authorized.peer.Receive(22));
    });
}

TEST(Gate, WhenTheAuthorizedClientHasGone_TheNextMustAuthorizeAgain) {
    WithServer<CommandServer>([](CommandServer& server) {
        Connection first(server);
        first.Deliver(Attempt());
        first.peer.ReceiveMessage();
        EXPECT_FALSE(Connection(server).WasKept());
        first.peer.Close();
        first.Receive();
        EXPECT_FALSE(server.authorized);
        const Connection second(server);
        ASSERT_TRUE(second.WasKept());
        second.Deliver("platform|");
        EXPECT_EQ("", second.peer.ReceiveTheRest());
        const Connection third(server);
        third.Deliver(Attempt());
        EXPECT_EQ("authOk", third.peer.ReceiveMessage());
    });
}

TEST(Gate, WithoutAKey_IsClosedToEverybody) {
    for (const char* const attempt : {"auth '' |", "auth |", "auth x|", "auth {}|"}) {
        WithServer<CommandServer>([attempt](CommandServer& server) {
            const Connection connection(server);
            connection.Deliver(attempt);
            EXPECT_FALSE(server.authorized);
            EXPECT_EQ("", connection.peer.ReceiveTheRest());
        });
    }
}

TEST(Gate, DoesNotExistOnOtherServers) {
    WithServer<Echo>([](Echo& server) {
        const Connection connection(server);
        connection.Deliver("do|");
        EXPECT_THAT(server.commands, ElementsAre(L"do"));
        EXPECT_FALSE(server.authorized);
    });
}

// --- Sending

TEST(Reply, GoesToTheSocketOrTheCurrentClient) {
    WithServer<Echo>([](Echo& server) {
        const Connection one(server);
        const Connection other(server);
        one.Deliver("x|");
        Printed();
        EXPECT_EQ(0, server.reply(L"to the current"));
        EXPECT_EQ(0, server.reply(L"to the other", other.socket));
        EXPECT_EQ("to the current|", one.peer.Receive(15));
        EXPECT_EQ("to the other|", other.peer.Receive(13));
        EXPECT_THAT(Printed(), ElementsAre("to the current|", "to the other|"));
    });
}

TEST(Reply, OfNothing_IsABar) {
    WithServer<Echo>([](Echo& server) {
        const Connection connection(server);
        EXPECT_EQ(0, server.reply(L"", connection.socket));
        EXPECT_EQ("|", connection.peer.Receive(1));
    });
}

TEST(Reply, BeforeAnybodyHasSentAnything_GoesOut) {
    WithServer<Echo>([](Echo& server) {
        const Connection connection(server);
        EXPECT_EQ(0, server.reply(L"hello", connection.socket));
        EXPECT_EQ("hello|", connection.peer.Receive(6));
    });
}

TEST(Reply, ToTheCurrentClientWhenThereNeverWasOne_FailsAndWritesNowhere) {
    const Outcome outcome = RunForked([] {
        int pipe[2];
        ASSERT_EQ(0, pipe2(pipe, O_CLOEXEC | O_NONBLOCK));
        Echo server;
        server.init();
        // The number of the current client is 0 before there is one.
        ASSERT_EQ(0, dup2(pipe[1], STDIN_FILENO));
        EXPECT_EQ(-1, server.reply(L"device list"));
        char byte;
        EXPECT_EQ(-1, read(pipe[0], &byte, 1));
        EXPECT_EQ(EAGAIN, errno);
    });
    EXPECT_EQ(0, outcome.status);
}

TEST(Reply, OnceTheCurrentClientHasClosed_ReachesNobody) {
    WithServer<Echo>([](Echo& server) {
        Connection current(server);
        const Connection other(server);
        current.Deliver("x|");
        current.peer.Close();
        current.Receive();
        Printed();
        EXPECT_EQ(-1, server.reply(L"lost", other.socket));
        EXPECT_EQ(-1, server.reply(L"lost"));
        EXPECT_THAT(Printed(), IsEmpty());
        EXPECT_TRUE(other.peer.HasNothing());
        // Until somebody sends again.
        other.Deliver("x|");
        EXPECT_EQ(0, server.reply(L"found", other.socket));
        EXPECT_EQ("found|", other.peer.Receive(6));
    });
}

TEST(Reply, OfExactly32Bytes_IsSentButCountsAsFailed) {
    WithServer<Echo>([](Echo& server) {
        const Connection connection(server);
        for (const std::size_t length : {30u, 31u, 32u, 63u}) {
            const std::wstring text(length, L'x');
            EXPECT_EQ(length == 31 ? -1 : 0, server.reply(text, connection.socket)) << length;
            EXPECT_EQ(std::string(length, 'x') + "|", connection.peer.Receive(length + 1));
        }
    });
}

TEST(Reply, ToWhoeverIsNoClient_FailsAfterItsLogLine) {
    WithServer<Echo>([](Echo& server) {
        for (const int socket : {-1, 0, 1, 12345}) {
            Printed();
            EXPECT_EQ(-1, server.reply(L"lost", socket));
            EXPECT_THAT(Printed(), ElementsAre("lost|"));
        }
    });
}

TEST(Reply, ToAPeerThatHasGone_FailsAndKillsNothing) {
    WithServer<Echo>([](Echo& server) {
        Connection connection(server);
        connection.peer.Reset();
        EXPECT_TRUE(connection.Receive() == Status::kNothingHandled);
        EXPECT_EQ(-1, server.reply(L"lost", connection.socket));
        EXPECT_EQ(-1, server.reply(L"lost", connection.socket));
    });
}

TEST(ReplyCursor, OfAPlainServer_ReachesNobody) {
    WithServer<Echo>([](Echo& server) {
        const Connection connection(server);
        connection.Deliver("x|");
        Printed();
        EXPECT_EQ(0, server.replyCursor(L"word"));
        EXPECT_THAT(Printed(), IsEmpty());
        EXPECT_TRUE(connection.peer.HasNothing());
    });
}

TEST(ReplyCursor, ReachesTheTableOfClientsInAscendingOrder) {
    WithServer<Echo>([](Echo& server) {
        Connection one(server);
        const Connection two(server);
        const Connection outsider(server);
        server.clients[two.socket] = L"two";
        server.clients[one.socket] = L"one";
        Printed();
        EXPECT_EQ(0, server.replyCursor(L"word"));
        EXPECT_EQ("word|", one.peer.Receive(5));
        EXPECT_EQ("word|", two.peer.Receive(5));
        EXPECT_TRUE(outsider.peer.HasNothing());
        EXPECT_THAT(Printed(), ElementsAre("word|", "word|"));
        // Who closes leaves the table.
        one.peer.Close();
        one.Receive();
        EXPECT_EQ(1u, server.clients.size());
        EXPECT_EQ(1u, server.clients.count(two.socket));
    });
}

class PenReplies : public testing::Test {
  protected:
    // Runs BODY with a server and a client that pen data goes to.
    static void WithListener(const std::function<void(Echo& server, Connection& listener)>& body) {
        WithServer<Echo>([&body](Echo& server) {
            Connection listener(server);
            Server::activePressureListener = listener.socket;
            Printed();
            body(server, listener);
        });
    }
};

TEST_F(PenReplies, APressureValue_IsFourDigitsAndANul) {
    WithListener([](Echo& server, Connection& listener) {
        EXPECT_EQ(0, server.replyPressure(37));
        EXPECT_EQ(std::string("0037\0", 5), listener.peer.Receive(5));
        for (const auto& [value, digits] :
             {std::pair<int, const char*>{0, "0000"}, {1, "0001"}, {999, "0999"}, {9999, "9999"}}) {
            EXPECT_EQ(0, server.replyPressure(value));
            EXPECT_EQ(std::string(digits, 5), listener.peer.Receive(5));
        }
        EXPECT_TRUE(listener.peer.HasNothing());
        EXPECT_THAT(Printed(), IsEmpty());
    });
}

TEST_F(PenReplies, APressureValueOutOfRange_SendsItsFirstFiveCharacters) {
    WithListener([](Echo& server, Connection& listener) {
        for (const auto& [value, sent] : {std::pair<int, const char*>{10000, "10000"},
                                          {12345, "12345"},
                                          {1234567, "12345"},
                                          {-1, "-0001"},
                                          {-12345, "-1234"},
                                          {2147483647, "21474"},
                                          {-2147483647 - 1, "-2147"}}) {
            EXPECT_EQ(0, server.replyPressure(value));
            EXPECT_EQ(sent, listener.peer.Receive(5)) << value;
        }
        EXPECT_TRUE(listener.peer.HasNothing());
    });
}

TEST_F(PenReplies, APressureValueThatCannotBeSent_IsSaidAndNoFailure) {
    WithListener([](Echo& server, Connection& listener) {
        ASSERT_TRUE(Outbox::Close(listener.socket));
        EXPECT_EQ(0, server.replyPressure(37));
        EXPECT_THAT(Printed(), ElementsAre("Send failure! [" + Text(server.port) + "]"));
    });
}

TEST_F(PenReplies, ATabletEvent_IsItsTextAndABlank) {
    WithListener([](Echo& server, Connection& listener) {
        EXPECT_EQ(0, server.replyTabletEvent("D 10 20"));
        EXPECT_EQ("D 10 20 ", listener.peer.Receive(8));
        EXPECT_EQ(0, server.replyTabletEvent("\xE9|"));
        EXPECT_EQ("\xE9| ", listener.peer.Receive(3));
        EXPECT_EQ(0, server.replyTabletEvent(""));
        EXPECT_EQ(" ", listener.peer.Receive(1));
        // Not even 32 bytes are a failure here.
        EXPECT_EQ(0, server.replyTabletEvent(std::string(31, 'x')));
        EXPECT_THAT(Printed(), IsEmpty());
    });
}

TEST_F(PenReplies, ATabletEventThatCannotBeSent_IsAFailure) {
    WithListener([](Echo& server, Connection& listener) {
        ASSERT_TRUE(Outbox::Close(listener.socket));
        EXPECT_EQ(-1, server.replyTabletEvent("D 10 20"));
        EXPECT_THAT(Printed(), IsEmpty());
    });
}

TEST_F(PenReplies, WithoutAListener_IsAFailureWithoutALine) {
    WithServer<Echo>([](Echo& server) {
        EXPECT_EQ(-1, server.replyPressure(37));
        EXPECT_EQ(-1, server.replyTabletEvent("D 10 20"));
        EXPECT_THAT(Printed(), IsEmpty());
    });
}

TEST_F(PenReplies, GoesOutEvenWhenNoClientIsTheCurrentOne) {
    WithListener([](Echo& server, Connection& listener) {
        server.currentClient = -1;
        EXPECT_EQ(0, server.replyPressure(37));
        EXPECT_EQ(0, server.replyTabletEvent("x"));
        EXPECT_EQ(std::string("0037\0x ", 7), listener.peer.Receive(7));
    });
}

TEST_F(PenReplies, TheListenerThatCloses_StaysTheListener) {
    WithListener([](Echo& /*server*/, Connection& listener) {
        listener.peer.Close();
        listener.Receive();
        EXPECT_EQ(listener.socket, Server::activePressureListener);
    });
}

// --- Closing

TEST(Deinit, OfAClient_ForgetsItAndClosesIt) {
    WithServer<Echo>([](Echo& server) {
        const Connection connection(server);
        const Connection other(server);
        connection.Deliver("x|");
        Printed();
        server.deinit(false);
        EXPECT_THAT(Printed(), ElementsAre("deinit client"));
        EXPECT_EQ(-1, server.currentClient);
        EXPECT_EQ(1, server.clientCount);
        EXPECT_FALSE(connection.IsOpen());
        EXPECT_TRUE(connection.peer.IsAtTheEnd());
        EXPECT_TRUE(other.IsOpen());
        EXPECT_NE(-1, server.getServerFD());
        // And only once.
        server.deinit(false);
        EXPECT_THAT(Printed(), IsEmpty());
        EXPECT_EQ(1, server.clientCount);
    });
}

TEST(Deinit, OfTheServer_ClosesTheListenerOnce) {
    WithServer<Echo>([](Echo& server) {
        const Connection connection(server);
        const int listener = server.getServerFD();
        connection.Deliver("x|");
        Printed();
        server.deinit(true);
        EXPECT_THAT(Printed(), ElementsAre("deinit client", "deinit server"));
        EXPECT_EQ(-1, server.getServerFD());
        EXPECT_EQ(-1, fcntl(listener, F_GETFD));
        EXPECT_EQ(0, server.clientCount);
        server.deinit(true);
        EXPECT_THAT(Printed(), IsEmpty());
    });
}

TEST(Deinit, OfAServerThatNeverReceivedAnything_ClosesNothingThatIsNotItsOwn) {
    WithServer<Echo>([](Echo& server) {
        ASSERT_NE(-1, fcntl(STDIN_FILENO, F_GETFD));
        const Connection silent(server);
        Printed();
        server.deinit(false);
        EXPECT_THAT(Printed(), IsEmpty());
        server.deinit(true);
        EXPECT_THAT(Printed(), ElementsAre("deinit server"));
        EXPECT_NE(-1, fcntl(STDIN_FILENO, F_GETFD));
        EXPECT_TRUE(silent.IsOpen());
    });
}

TEST(Deinit, OfAServerThatWasNeverStarted_DoesNothing) {
    InChild([] {
        CommandServer server;
        server.deinit(true);
        EXPECT_THAT(Printed(), IsEmpty());
        EXPECT_NE(-1, fcntl(STDIN_FILENO, F_GETFD));
    });
}

TEST(Deinit, OfTheAuthorizedClient_OpensTheGateForOthers) {
    WithServer<CommandServer>([](CommandServer& server) {
        const Connection connection(server);
        connection.Deliver(Attempt());
        server.deinit(false);
        EXPECT_FALSE(server.authorized);
        EXPECT_TRUE(Connection(server).WasKept());
    });
}

TEST(Deinit, OfAClient_LeavesAloneWhoeverHasItsNumberLater) {
    WithServer<Echo>([](Echo& server) {
        int pipe[2];
        ASSERT_EQ(0, pipe2(pipe, O_CLOEXEC | O_NONBLOCK));
        const Connection other(server);
        const Connection connection(server);
        connection.Deliver("x|");
        server.deinit(false);
        // The system gives out the lowest free number: the same again.
        ASSERT_EQ(connection.socket, fcntl(pipe[1], F_DUPFD_CLOEXEC, 0));
        server.deinit(false);
        other.Deliver("x|");
        EXPECT_EQ(-1, server.reply(L"lost", connection.socket));
        char byte;
        EXPECT_EQ(-1, read(pipe[0], &byte, 1));
        EXPECT_EQ(EAGAIN, errno);
        EXPECT_NE(-1, fcntl(connection.socket, F_GETFD));
    });
}

}  // namespace
