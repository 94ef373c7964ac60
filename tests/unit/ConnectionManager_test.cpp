// The three servers together, in a process of its own for each test.

#include "net/ConnectionManager.h"

#include <Carbon/Carbon.h>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "core/Helpers.h"
#include "unit/support/ForkedTest.h"
#include "unit/support/Kernel.h"
#include "unit/support/ServerTesting.h"
#include "unit/support/ServiceTesting.h"
#include "unit/support/Waiting.h"

using testing::ElementsAre;

namespace {

std::string Attempt(const Published& published) {
    return "auth " + published.key + "|";
}

// The lines of LINES that are among WANTED, in their order.
std::vector<std::string> Of(const std::vector<std::string>& lines,
                            const std::set<std::string>& wanted) {
    std::vector<std::string> found;
    for (const std::string& line : lines) {
        if (wanted.count(line) != 0) {
            found.push_back(line);
        }
    }
    return found;
}

TEST(ConnectionManager, Starts_TheThreeServersInTheirOrderAndThenThePressureThread) {
    InChild([] {
        std::vector<std::string> lines;
        Serve([&lines](const Published& published) {
            lines = Printed();
            lines.erase(std::remove_if(lines.begin(), lines.end(),
                                       [](const std::string& line) {
                                           return line.find("already taken") != std::string::npos;
                                       }),
                        lines.end());
            const auto listens = [](int port) {
                return "Listen [" + std::to_string(port) + "] succesful, waiting for clients";
            };
            ASSERT_GE(lines.size(), 8u);
            lines.resize(8);
            EXPECT_THAT(lines, ElementsAre("Logfile does not exist, not logging",
                                           "Listener starting...", listens(published.commandPort),
                                           "Listener starting...", listens(published.pressurePort),
                                           "Listener starting...", listens(published.appsPort),
                                           "Start pressure processing thread."));
        });
    });
}

TEST(ConnectionManager, ServesAllThreePorts) {
    InChild([] {
        Serve([](const Published& published) {
            const Peer command(published.commandPort);
            command.Send(Attempt(published) + "platform|");
            EXPECT_TRUE(command.ReceiveGreeting());
            EXPECT_EQ("Success MACOSX", command.ReceiveMessage());
            const Peer pressure(published.pressurePort);
            pressure.Send("x y|");
            EXPECT_EQ("SyntaxError Unknown command - Success", pressure.ReceiveMessage());
            const Peer apps(published.appsPort);
            apps.Send("x|");
            EXPECT_EQ("Success ", apps.ReceiveMessage());
        });
    });
}

TEST(ConnectionManager, HandsOutItsServers) {
    InChild([] {
        EXPECT_EQ(nullptr, ConnectionManager::GetCommandServer());
        EXPECT_EQ(nullptr, ConnectionManager::GetAppsCommunicationServer());
        Serve([](const Published&) {
            ASSERT_NE(nullptr, ConnectionManager::GetCommandServer());
            ASSERT_NE(nullptr, ConnectionManager::GetAppsCommunicationServer());
            EXPECT_EQ("Command Server", ConnectionManager::GetCommandServer()->name());
            EXPECT_EQ("Apps Communication Server",
                      ConnectionManager::GetAppsCommunicationServer()->name());
        });
    });
}

TEST(ConnectionManager, AtTheEnd_ThePressureThreadEndsBeforeTheServersClose) {
    InChild([] {
        Serve([](const Published& published) {
            const Peer pressure(published.pressurePort);
            pressure.Send("x|");
            pressure.ReceiveMessage();
        });
        EXPECT_THAT(
            Of(Printed(), {"Start pressure processing thread.",
                           "End of pressure processing thread.", "deinit server"}),
            ElementsAre("Start pressure processing thread.", "End of pressure processing thread.",
                        "deinit server", "deinit server", "deinit server"));
    });
}

TEST(ConnectionManager, AtTheEnd_TheServersNoLongerListen) {
    InChild([] {
        Published ports;
        Serve([&ports](const Published& published) { ports = published; });
        for (const int port : {ports.commandPort, ports.pressurePort, ports.appsPort}) {
            const int peer = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
            sockaddr_in address = {};
            address.sin_family = AF_INET;
            address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            address.sin_port = htons(static_cast<std::uint16_t>(port));
            EXPECT_EQ(-1,
                      connect(peer, reinterpret_cast<const sockaddr*>(&address), sizeof address));
            EXPECT_EQ(ECONNREFUSED, errno);
            close(peer);
        }
    });
}

TEST(ConnectionManager, WithoutAPort_StartsNothingAndSaysSoInTheFile) {
    InChild([] {
        Helpers::logprint("opens the log");
        const std::vector<int> before = OpenDescriptors();
        LetFail(SYS_bind, EADDRINUSE);
        EXPECT_EQ(0, ConnectionManager::Init());
        const Published published = ReadPublished();
        EXPECT_EQ(-1, published.commandPort);
        EXPECT_EQ(-1, published.pressurePort);
        EXPECT_EQ(-1, published.appsPort);
        EXPECT_EQ(38u, published.key.size());
        EXPECT_THAT(
            Of(Printed(),
               {"No free port found after 50 attempts, giving up!",
                "Start pressure processing thread.", "End of pressure processing thread."}),
            ElementsAre("No free port found after 50 attempts, giving up!",
                        "No free port found after 50 attempts, giving up!",
                        "No free port found after 50 attempts, giving up!",
                        "Start pressure processing thread.", "End of pressure processing thread."));
        // Nothing but what a run loop and the watch for tablets need has stayed open.
        std::size_t listeners = 0;
        for (const int descriptor : OpenDescriptors()) {
            int family = AF_UNSPEC;
            socklen_t length = sizeof family;
            if (getsockopt(descriptor, SOL_SOCKET, SO_DOMAIN, &family, &length) == 0 &&
                family == AF_INET &&
                std::find(before.begin(), before.end(), descriptor) == before.end()) {
                ++listeners;
            }
        }
        EXPECT_EQ(0u, listeners);
    });
}

TEST(ConnectionManager, WithoutAThreadForPenData_SaysSoAndDoesNotStart) {
    InChild([] {
        // No thread gets a stack that is larger than all memory.
        pthread_attr_t attributes;
        pthread_attr_init(&attributes);
        ASSERT_EQ(0, pthread_attr_setstacksize(&attributes, ~std::size_t{0xFFFF}));
        ASSERT_EQ(0, pthread_setattr_default_np(&attributes));
        pthread_attr_destroy(&attributes);
        EXPECT_EQ(0, ConnectionManager::Init());
        EXPECT_THAT(
            Of(Printed(), {"can not create pressure thread", "Start pressure processing thread.",
                           "End of pressure processing thread."}),
            ElementsAre("can not create pressure thread"));
    });
}

TEST(ConnectionManager, EveryRun_DrawsOtherPorts) {
    // The random numbers start with the time, in microseconds: eight runs are not all alike.
    std::set<std::string> ports;
    for (int run = 0; run < 8; ++run) {
        ports.insert(RunForked([] {
                         Serve([](const Published& published) {
                             std::fprintf(stderr, "%d %d %d", published.commandPort,
                                          published.pressurePort, published.appsPort);
                         });
                     }).errors);
    }
    EXPECT_GT(ports.size(), 1u);
}

TEST(ConnectionManager, WhileAClientIsAuthorized_ClosesFurtherOnesUnread) {
    InChild([] {
        Serve([](const Published& published) {
            auto first = std::make_unique<Peer>(published.commandPort);
            first->Send(Attempt(published));
            EXPECT_TRUE(first->ReceiveGreeting());
            for (int i = 0; i < 50; ++i) {
                const Peer further(published.commandPort);
                EXPECT_EQ("", further.ReceiveTheRest());
            }
            // Pressure and applications are not concerned.
            const Peer apps(published.appsPort);
            apps.Send("x|");
            EXPECT_EQ("Success ", apps.ReceiveMessage());
            first->Send("platform|");
            EXPECT_EQ("Success MACOSX", first->ReceiveMessage());
            first.reset();
            // The next one is let in as soon as the first one's end has been noticed.
            EXPECT_TRUE(WaitUntil([&published] {
                const Peer next(published.commandPort);
                pollfd ready = {next.Socket(), POLLIN, 0};
                if (poll(&ready, 1, 50) != 0) {
                    return false;
                }
                next.Send(Attempt(published));
                return next.ReceiveGreeting();
            }));
        });
    });
}

TEST(ConnectionManager, EveryDescriptor_IsNotInheritedByOtherPrograms) {
    InChild([] {
        WriteFile(Home() + "/tesselLog.txt", "");
        const std::vector<int> before = OpenDescriptors();
        Serve([&before](const Published& published) {
            const Peer command(published.commandPort);
            command.Send(Attempt(published));
            command.ReceiveMessage();
            const Peer pressure(published.pressurePort);
            pressure.Send("x|");
            pressure.ReceiveMessage();
            int checked = 0;
            for (const int descriptor : OpenDescriptors()) {
                if (std::find(before.begin(), before.end(), descriptor) == before.end()) {
                    EXPECT_EQ(FD_CLOEXEC, fcntl(descriptor, F_GETFD)) << descriptor;
                    ++checked;
                }
            }
            // Three listeners, two connections with both ends, the log, two run loops.
            EXPECT_GE(checked, 10);
        });
    });
}

TEST(ConnectionManager, AThousandConnections_LeaveNoDescriptor) {
    InChild([] {
        Serve([](const Published& published) {
            constexpr int kBunches = 42;
            constexpr int kInABunch = 24;
            const int ports[] = {published.commandPort, published.pressurePort, published.appsPort};
            const std::size_t before = OpenDescriptors().size();
            for (int bunch = 0; bunch < kBunches; ++bunch) {
                for (int i = 3; i < kInABunch; ++i) {
                    const Peer peer(ports[i % 3]);
                    if (i % 2 == 0) {
                        peer.Send("half");
                    }
                }
                // No more at a time than wait in the listeners' queues: the system makes the
                // others wait for a second. These come behind all of the bunch.
                const Peer last[] = {Peer(ports[0]), Peer(ports[1]), Peer(ports[2])};
                for (const Peer& peer : last) {
                    peer.Send("x|");
                }
                EXPECT_TRUE(last[0].IsAtTheEnd());
                last[1].ReceiveMessage();
                last[2].ReceiveMessage();
            }
            EXPECT_TRUE(WaitUntil([before] { return OpenDescriptors().size() <= before; }));
        });
    });
}

TEST(ConnectionManager, ANumberThatChangesThreads_IsServedByItsNewServer) {
    InChild([] {
        Serve([](const Published& published) {
            std::thread threads[2];
            for (std::thread& thread : threads) {
                thread = std::thread([&published] {
                    for (int i = 0; i < 300; ++i) {
                        {
                            const Peer apps(published.appsPort);
                            apps.Send("x y|");
                            EXPECT_EQ("Success ", apps.ReceiveMessage());
                        }
                        const Peer pressure(published.pressurePort);
                        pressure.Send("x y|");
                        EXPECT_EQ("SyntaxError Unknown command - Success",
                                  pressure.ReceiveMessage());
                    }
                });
            }
            for (std::thread& thread : threads) {
                thread.join();
            }
        });
    });
}

TEST(ConnectionManager, TwoThreads_DoNotTellEachOthersReasonsOrReplies) {
    InChild([] {
        Serve([](const Published& published) {
            std::thread pressures([&published] {
                const Peer peer(published.pressurePort);
                for (int i = 0; i < 500; ++i) {
                    peer.Send("|");
                    EXPECT_EQ("SyntaxError No command found. - Success", peer.ReceiveMessage());
                }
            });
            const Peer peer(published.commandPort);
            peer.Send(Attempt(published));
            EXPECT_TRUE(peer.ReceiveGreeting());
            for (int i = 0; i < 250; ++i) {
                peer.Send("getCoreVersion|nonsense x|");
                EXPECT_EQ("Success CoreVersion=2.07.0", peer.ReceiveMessage());
                EXPECT_EQ("SyntaxError Unknown command - Success", peer.ReceiveMessage());
            }
            pressures.join();
        });
    });
}

TEST(ConnectionManager, AClientThatReadsLate_GetsEveryAnswerInItsOrder) {
    InChild([] {
        Serve([](const Published& published) {
            const Peer peer(published.appsPort);
            constexpr int kMessages = 100000;
            std::thread sender([&peer] {
                std::string messages;
                for (int i = 0; i < kMessages; ++i) {
                    messages += i % 2 == 0 ? "x|" : "|";
                }
                peer.Send(messages);
            });
            // The others are served meanwhile: one of another port, because clients of the same
            // port share what is pending, and a message of this one may just be there by half.
            const Peer other(published.commandPort);
            other.Send(Attempt(published));
            EXPECT_TRUE(other.ReceiveGreeting());
            for (int i = 0; i < 100; ++i) {
                other.Send("platform|");
                EXPECT_EQ("Success MACOSX", other.ReceiveMessage());
            }
            const std::string pair = "Success |SyntaxError No command found. - Success|";
            std::string wanted;
            for (int i = 0; i < kMessages / 2; ++i) {
                wanted += pair;
            }
            EXPECT_TRUE(wanted == peer.Receive(wanted.size()));
            sender.join();
        });
    });
}

TEST(ConnectionManager, AClientThatNeverReads_HoldsUpNobodyElse) {
    InChild([] {
        Serve([](const Published& published) {
            auto silent = std::make_unique<Peer>(published.appsPort);
            ASSERT_EQ(0, fcntl(silent->Socket(), F_SETFL, O_NONBLOCK));
            const std::string messages(100000, '|');
            // Until the service does not take any more, which it must not do for ever.
            const auto isFull = [&] {
                pollfd ready = {silent->Socket(), POLLOUT, 0};
                while (poll(&ready, 1, 200) == 1) {
                    if (send(silent->Socket(), messages.data(), messages.size(), MSG_NOSIGNAL) <
                        0) {
                        return errno == EAGAIN;
                    }
                }
                return true;
            };
            EXPECT_TRUE(isFull());
            const Peer other(published.appsPort);
            for (int i = 0; i < 100; ++i) {
                other.Send("x|");
                EXPECT_EQ("Success ", other.ReceiveMessage());
            }
            silent.reset();
            other.Send("x|");
            EXPECT_EQ("Success ", other.ReceiveMessage());
        });
    });
}

TEST(ConnectionManager, WithoutDescriptors_WaitsForThemAndServesThoseItHas) {
    InChild([] {
        Serve([](const Published& published) {
            const Peer served(published.appsPort);
            served.Send("x|");
            EXPECT_EQ("Success ", served.ReceiveMessage());
            // What is open now is all there may be, but for one, which the next peer takes.
            std::vector<int> filling;
            rlimit limit;
            ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &limit));
            limit.rlim_cur = 200;
            ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &limit));
            for (int next = dup(STDERR_FILENO); next != -1; next = dup(STDERR_FILENO)) {
                filling.push_back(next);
            }
            close(filling.back());
            filling.pop_back();
            const Peer late(published.appsPort);
            late.Send("x|");
            served.Send("x|");
            EXPECT_EQ("Success ", served.ReceiveMessage());
            for (const int descriptor : filling) {
                close(descriptor);
            }
            EXPECT_EQ("Success ", late.ReceiveMessage());
        });
    });
}

}  // namespace
