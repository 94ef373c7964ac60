// A process that takes the ports of the range before the service does. One that takes all of them
// is in StartUp_test.cpp (WithoutAFreePort_...), one that takes many there too (APortInUse_...).
#include <gmock/gmock.h>
#include <sys/socket.h>

#include <set>

#include "support/Files.h"
#include "support/ProgramRun.h"
#include "support/Service.h"

namespace {

using testing::HasSubstr;
using testing::Not;

constexpr int kFirstPort = 3400;
constexpr int kLastPort = 3655;

// Every server draws 25 times and gives up; with one of the three missing, there is no service.
TEST(HostilePorts, AllButThreeTaken_TheServiceUsesTheThreeOrEndsInAnOrderlyWay) {
    constexpr int kRuns = 10;
    Sandbox sandbox;
    const std::set<int> free = {kFirstPort, 3500, kLastPort};
    sandbox.OccupyPorts(kFirstPort + 1, 3499);
    sandbox.OccupyPorts(3501, kLastPort - 1);
    for (int run = 0; run < kRuns; ++run) {
        Service service(sandbox);
        std::string output;
        WaitUntil("the service has ended or listens", [&] {
            output = service.OutputSoFar();
            return !service.Running() || CountOf(output, "waiting for clients\n") == 3;
        });
        if (service.Running()) {
            service.WaitUntilListening();
            EXPECT_EQ(service.Authorized().Ask("platform"), "Success MACOSX");
        } else {
            output = service.Output();
            EXPECT_EQ(service.WaitForExit(), Exit::Status(0));
            const std::size_t failed =
                CountOf(output, "No free port found after 50 attempts, giving up!\n");
            EXPECT_GT(failed, 0U);
            EXPECT_EQ(CountOf(output, "waiting for clients\n"), 3 - failed);
            EXPECT_THAT(output, HasSubstr("Quitting...\n"));
        }
        const std::string file = ReadFile(sandbox.Outside(Service::kKeyFile));
        const KeyFile keys = ParseKeyFile(file);
        for (const int port : {keys.commandPort, keys.pressurePort, keys.appsPort}) {
            EXPECT_TRUE(port == -1 || free.count(port) == 1) << port;
        }
    }
}

// A liar at the port of a service that has gone can be sent its key by whoever has read the old
// file. It opens nothing any more.
TEST(HostilePorts, TheOldPortTakenBetweenTwoRuns_TheOldKeyIsWorthNothingAndTheFileLeadsElsewhere) {
    Sandbox sandbox;
    KeyFile old;
    {
        Service service(sandbox);
        old = service.WaitUntilListening().Keys();
    }
    for (const int port : {old.commandPort, old.pressurePort, old.appsPort}) {
        sandbox.OccupyPorts(port, port);
    }
    Service service(sandbox);
    service.WaitUntilListening();
    const std::set<int> taken = {old.commandPort, old.pressurePort, old.appsPort};
    for (const int port :
         {service.Keys().commandPort, service.Keys().pressurePort, service.Keys().appsPort}) {
        EXPECT_EQ(taken.count(port), 0U) << port;
    }
    EXPECT_NE(service.Keys().key, old.key);
    Client liar = service.ConnectToCommand();
    liar.Send("auth " + old.key + "|");
    liar.ExpectClosed();
    EXPECT_EQ(service.Authorized().Ask("platform"), "Success MACOSX");
}

// Nobody can share a port with the service, or take a part of its clients.
TEST(HostilePorts, OfARunningService_CannotBeTakenByAnybody) {
    Sandbox sandbox;
    Service service(sandbox);
    service.WaitUntilListening();
    for (const int port :
         {service.Keys().commandPort, service.Keys().pressurePort, service.Keys().appsPort}) {
        EXPECT_THROW(sandbox.OccupyPorts(port, port), Failed);
        for (const char* const address : {"127.0.0.1", "0.0.0.0"}) {
            const ProgramRun run =
                RunProgram(sandbox, {"/usr/bin/python3", "-c",
                                     "import socket, sys\n"
                                     "taken = socket.socket()\n"
                                     "for option in (socket.SO_REUSEADDR, socket.SO_REUSEPORT):\n"
                                     "    taken.setsockopt(socket.SOL_SOCKET, option, 1)\n"
                                     "taken.bind((sys.argv[1], int(sys.argv[2])))\n"
                                     "taken.listen()\n",
                                     address, std::to_string(port)});
            EXPECT_NE(run.status, 0) << address;
            EXPECT_THAT(run.errors, HasSubstr("Address already in use")) << address;
        }
    }
}

}  // namespace
