// From the first line that the service prints until it listens, and the ways in which it does not
// get there.
#include <gmock/gmock.h>
#include <sys/socket.h>

#include <csignal>
#include <set>

#include "support/Files.h"
#include "support/Service.h"

namespace {

using testing::ContainsRegex;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsSupersetOf;
using testing::Not;

constexpr int kFirstPort = 3400;
constexpr int kLastPort = 3655;

// The first lines, up to the one that starts with `last`, that one included.
std::vector<std::string> LinesUpTo(const std::string& text, const std::string& last) {
    std::vector<std::string> lines;
    for (const std::string& line : Lines(text)) {
        lines.push_back(line);
        if (line.rfind(last, 0) == 0) {
            break;
        }
    }
    return lines;
}

TEST(StartUp, AsAUser_PrintsBannerIdentityAndFolderThenStartsTheServers) {
    Sandbox sandbox;
    sandbox.MakeUsersFolder(Service::kDock);
    Service service(sandbox);
    service.WaitUntilListening();
    service.WaitForOutput("Starting server...\n");
    EXPECT_THAT(
        LinesUpTo(service.Output(), "Listener starting..."),
        ElementsAre(
            "Tessel Core Mac - Version 2.07 RC0 (PID: " + std::to_string(service.Pid()) + ")",
            "User id: 1000, group id: 1000, real id: 1000", "Running as user: do normal stuff.",
            "Logfile does not exist, not logging", kServiceFolder, "Starting server...",
            "Listener starting..."));
}

TEST(StartUp, AsAUser_StaysThatUser) {
    Sandbox sandbox;
    Service service(sandbox);
    service.WaitUntilListening();
    EXPECT_EQ(service.StatusField("Uid"), "1000\t1000\t1000\t1000");
    EXPECT_EQ(service.StatusField("Gid"), "1000\t1000\t1000\t1000");
    EXPECT_THAT(service.Output(), Not(HasSubstr("UI Server")));
}

TEST(StartUp, CalledByANameWithoutAFolder_LogsAnEmptyFolder) {
    Sandbox sandbox;
    sandbox.MakeUsersFolder(Service::kDock);
    Start start;
    start.name = "TesselCore";
    Service service(sandbox, start);
    service.WaitUntilListening();
    service.WaitForOutput("Starting server...\n");
    EXPECT_THAT(service.Output(), HasSubstr("not logging\n\nStarting server...\n"));
}

TEST(StartUp, Arguments_AreNoOptions) {
    Sandbox sandbox;
    Start start;
    start.name = "./TesselCore --help";
    Service service(sandbox, start);
    service.WaitUntilListening();
    EXPECT_THAT(service.Authorized().Ask("platform"), "Success MACOSX");
}

TEST(StartUp, WithAnEmptyHome_ListensAndMakesItsFolders) {
    Sandbox sandbox;
    ASSERT_TRUE(std::filesystem::is_empty(sandbox.Outside(kUserHome)));
    Service service(sandbox);
    service.WaitUntilListening();
    EXPECT_EQ(service.Authorized().Ask("platform"), "Success MACOSX");
    EXPECT_EQ(ModeOf(sandbox.Outside(Service::kSupportFolder)), 0700U);
    EXPECT_EQ(ModeOf(sandbox.Outside(Service::kSupportFolder) / "Tessel Dock"), 0700U);
}

TEST(StartUp, WithoutHOME_TheHomeIsThatOfThePasswordEntry) {
    Sandbox sandbox;
    Start start;
    start.environment["HOME"] = "";
    Service service(sandbox, start);
    service.WaitUntilListening();
    EXPECT_EQ(service.Authorized().Ask("platform"), "Success MACOSX");
}

TEST(StartUp, WithAnotherHOME_EverythingOfTheUsersIsThere) {
    Sandbox sandbox;
    sandbox.MakeUsersFile("/Users/Shared/other home/tesselLog.txt", "");
    Start start;
    start.environment["HOME"] = "/Users/Shared/other home";
    Service service(sandbox, start);
    service.WaitForOutput("waiting for clients\n", 3);
    const std::filesystem::path home = sandbox.Outside("/Users/Shared/other home");
    WaitUntil("the key file is there", [&] {
        return std::filesystem::exists(home / "Library/Application Support/Velto/tesselAuth.key");
    });
    EXPECT_THAT(ReadFile(home / "tesselLog.txt"), HasSubstr(" - Starting server...\n"));
    EXPECT_TRUE(std::filesystem::is_empty(sandbox.Outside(kUserHome)));
}

TEST(StartUp, TheThreePorts_AreDifferentFromTheRangeAndOnTheLoopbackOnly) {
    Sandbox sandbox;
    Service service(sandbox);
    service.WaitUntilListening();
    const std::set<int> ports = {service.Keys().commandPort, service.Keys().pressurePort,
                                 service.Keys().appsPort};
    EXPECT_EQ(ports.size(), 3U);
    for (const int port : ports) {
        EXPECT_GE(port, kFirstPort);
        EXPECT_LE(port, kLastPort);
        service.WaitForOutput("Listen [" + std::to_string(port) +
                              "] succesful, waiting for clients\n");
    }
    const std::vector<std::string> listeners = sandbox.Listeners();
    EXPECT_EQ(listeners.size(), 3U);
    for (const std::string& listener : listeners) {
        EXPECT_EQ(listener.substr(0, 9), "0100007F:") << listener;
    }
}

TEST(StartUp, TheServers_StartInTheOrderCommandPressureApps) {
    Sandbox sandbox;
    Service service(sandbox);
    service.WaitUntilListening();
    service.WaitForOutput("waiting for clients\n", 3);
    const auto listening = [&](int port) {
        return service.Output().find("Listen [" + std::to_string(port) + "]");
    };
    EXPECT_LT(listening(service.Keys().commandPort), listening(service.Keys().pressurePort));
    EXPECT_LT(listening(service.Keys().pressurePort), listening(service.Keys().appsPort));
    service.WaitForOutput("Start pressure processing thread.\n");
}

TEST(StartUp, TwoServicesOfOneUser_TakeDifferentPorts) {
    Sandbox sandbox;
    Service first(sandbox);
    first.WaitUntilListening();
    Service second(sandbox);
    second.WaitUntilListening();
    EXPECT_EQ(first.Authorized().Ask("platform"), "Success MACOSX");
    EXPECT_EQ(second.Authorized().Ask("platform"), "Success MACOSX");
}

TEST(StartUp, APortInUse_IsSaidAndAnotherOneTaken) {
    Sandbox sandbox;
    // All but a quarter: three servers with 25 draws each find a free one, and hardly ever at once.
    sandbox.OccupyPorts(kFirstPort, kFirstPort + 191);
    Service service(sandbox);
    service.WaitUntilListening();
    for (const int port :
         {service.Keys().commandPort, service.Keys().pressurePort, service.Keys().appsPort}) {
        EXPECT_GT(port, kFirstPort + 191);
        EXPECT_LE(port, kLastPort);
    }
    EXPECT_EQ(service.Authorized().Ask("platform"), "Success MACOSX");
}

TEST(StartUp, WithoutAFreePort_GivesUpAfterTwentyFiveDrawsAServerAndEndsWithStatusZero) {
    Sandbox sandbox;
    sandbox.OccupyPorts(kFirstPort, kLastPort);
    Service service(sandbox);
    EXPECT_EQ(service.WaitForExit(), Exit::Status(0));
    const std::string output = service.Output();
    EXPECT_EQ(CountOf(output, "Listener starting...\n"), 3U);
    EXPECT_EQ(CountOf(output, "Attempted port "), 75U);
    EXPECT_THAT(output, ContainsRegex("Attempted port 3[4-6][0-9][0-9], already taken\\.\n"));
    EXPECT_EQ(CountOf(output, "No free port found after 50 attempts, giving up!\n"), 3U);
    EXPECT_THAT(output, HasSubstr("Quitting...\n"));
    EXPECT_THAT(ReadFile(sandbox.Outside(Service::kKeyFile)),
                HasSubstr("\t<commandPort>-1</commandPort> \n"
                          "\t<pressurePort>-1</pressurePort> \n"
                          "\t<airAppsPort>-1</airAppsPort> \n"));
}

TEST(StartUp, WithoutAFreePort_EndsWithStatusZeroEveryTime) {
    // The pressure thread is just starting while the process ends.
    Sandbox sandbox;
    sandbox.OccupyPorts(kFirstPort, kLastPort);
    for (int run = 0; run < 20; ++run) {
        Service service(sandbox);
        EXPECT_EQ(service.WaitForExit(), Exit::Status(0)) << "run " << run;
        EXPECT_THAT(service.Output(), HasSubstr("Quitting...\n"));
    }
}

TEST(StartUp, WithTheStandardDescriptorsClosed_ServesAsEver) {
    Sandbox sandbox;
    Start start;
    start.closedDescriptors = {0, 1, 2};
    Service service(sandbox, start);
    service.WaitUntilListening();
    EXPECT_EQ(service.Authorized().Ask("platform"), "Success MACOSX");
    const std::string folder = "/proc/" + std::to_string(service.Pid()) + "/fd/";
    for (const char* const standard : {"0", "1", "2"}) {
        EXPECT_EQ(sandbox.ReadLink(folder + standard), "/dev/null");
    }
}

TEST(StartUp, StandardInput_IsNeitherWrittenToNorClosed) {
    Sandbox sandbox;
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
    Client watcher{Descriptor(pair[0])};
    Descriptor theirs(pair[1]);
    Start start;
    start.standardInput = theirs.Get();
    Service service(sandbox, start);
    theirs.Close();
    service.WaitUntilListening();
    // A client that comes and goes without a word is what makes a server close something.
    service.ConnectToPressure().Close();
    service.ConnectToApps().Close();
    service.ConnectToCommand().Close();
    service.WaitForOutput("deinit client\n", 2);
    EXPECT_EQ(service.Authorized().Ask("platform"), "Success MACOSX");
    watcher.ExpectSilence();
}

class RootStartUp : public testing::Test {
  protected:
    void SetUp() override {
        if (!Sandbox::CanSwitchUsers()) {
            GTEST_SKIP() << "only a suite that runs as root can start the service as root";
        }
        sandbox.emplace();
        sandbox->AddGroup("admin", 80);
        sandbox->AddGroup("pens", 2000);
        sandbox->MakeUsersFolder(Service::kDock);
    }

    // Starts a program that does nothing under that name, and leaves it running.
    void Launch(const std::string& name) { sandbox->LaunchIdleProgram("/Applications/" + name); }

    static Start AsRoot() {
        Start start;
        start.identity = Identity::kRoot;
        return start;
    }

    static void ExpectToBeTheUserForGood(const Service& service) {
        EXPECT_EQ(service.StatusField("Uid"), "1000\t1000\t1000\t1000");
        EXPECT_EQ(service.StatusField("Gid"), "1000\t1000\t1000\t1000");
        EXPECT_EQ(service.StatusField("Groups"), "80 1000 2000");
        for (const char* const set : {"CapEff", "CapPrm", "CapInh", "CapAmb"}) {
            EXPECT_EQ(service.StatusField(set), "0000000000000000") << set;
        }
    }

    std::optional<Sandbox> sandbox;
};

TEST_F(RootStartUp, WithNobodyLoggedIn_SaysSoAndWaits) {
    Service service(*sandbox, AsRoot());
    service.WaitForOutput("Waiting for UI Server to start.\n");
    EXPECT_THAT(Lines(service.Output()), ElementsAre("Tessel Core Mac - Version 2.07 RC0 (PID: " +
                                                         std::to_string(service.Pid()) + ")",
                                                     "User id: 0, group id: 0, real id: 0",
                                                     "Running as root: check for UI Server.",
                                                     "Waiting for UI Server to start."));
    EXPECT_TRUE(sandbox->Listeners().empty());
    EXPECT_EQ(service.Stop(SIGTERM), Exit::Signal(SIGTERM));
}

TEST_F(RootStartUp, OtherLaunches_AreShownAndIgnored) {
    Service service(*sandbox, AsRoot());
    service.WaitForOutput("Waiting for UI Server to start.\n");
    for (const char* const name :
         {"Finder", "SystemUIServer2", "systemuiserver", "SystemUIServerHelperTool", "SystemUI"}) {
        Launch(name);
        service.WaitForErrors(std::string(name) + "\n");
    }
    EXPECT_THAT(service.Output(), Not(HasSubstr("User logged in")));
    EXPECT_EQ(service.StatusField("Uid"), "0\t0\t0\t0");
    EXPECT_TRUE(sandbox->Listeners().empty());
    EXPECT_EQ(service.Stop(SIGTERM), Exit::Signal(SIGTERM));
}

TEST_F(RootStartUp, WhenTheUserInterfaceServerIsLaunched_BecomesTheConsoleUserAndServes) {
    Service service(*sandbox, AsRoot());
    service.WaitForOutput("Waiting for UI Server to start.\n");
    Launch("SystemUIServer");
    service.WaitUntilListening();
    service.WaitForOutput("Starting server...\n");
    EXPECT_THAT(Lines(service.Output()),
                IsSupersetOf({"User logged in (login window), starting copy!",
                              "Logfile does not exist, not logging", "User logged in...",
                              "Starting server..."}));
    EXPECT_THAT(service.Errors(), HasSubstr("SystemUIServer\n"));
    EXPECT_THAT(service.Errors(), HasSubstr("Performed user switch (from root to normal user)\n"));
    ExpectToBeTheUserForGood(service);
    EXPECT_EQ(OwnerOf(sandbox->Outside(Service::kKeyFile)), kUserId);
    EXPECT_EQ(service.Authorized().Ask("platform"), "Success MACOSX");
}

TEST_F(RootStartUp, AfterTheSwitch_ShellCommandsRunAsTheConsoleUser) {
    sandbox->InstallStandIn("id");
    Service service(*sandbox, AsRoot());
    service.WaitForOutput("Waiting for UI Server to start.\n");
    Launch("SystemUIServer");
    service.WaitUntilListening();
    EXPECT_EQ(service.Authorized().Ask("userCanPerformDockUpdate"),
              "Success UserCanPerformDockUpdate=true");
    EXPECT_THAT(ReadFile(sandbox->Outside("/tmp/id.identities")),
                testing::StartsWith("uid=1000(anna) gid=1000(anna) groups=1000(anna),"));
    EXPECT_THAT(ReadFile(sandbox->Outside("/tmp/id.status")),
                testing::StartsWith("Uid:\t1000\t1000\t1000\t1000\nGid:\t1000\t1000\t1000\t1000\n"
                                    "CapPrm:\t0000000000000000\nCapEff:\t0000000000000000\n"));
}

TEST_F(RootStartUp, ASecondUserInterfaceServerAfterTheSwitch_LeavesTheServersRunning) {
    Service service(*sandbox, AsRoot());
    service.WaitForOutput("Waiting for UI Server to start.\n");
    Launch("SystemUIServer");
    service.WaitUntilListening();
    Client client = service.Authorized();
    Launch("Another one/SystemUIServer");
    service.WaitForOutput("User logged in (login window), starting copy!\n", 2);
    EXPECT_EQ(client.Ask("platform"), "Success MACOSX");
    EXPECT_EQ(service.Stop(SIGTERM), Exit::Status(1));
}

TEST_F(RootStartUp, ALaunchUnderAnotherNameFirst_DoesNotKeepItFromSeeingTheRealOne) {
    Service service(*sandbox, AsRoot());
    service.WaitForOutput("Waiting for UI Server to start.\n");
    Launch("Finder");
    Launch("Dock");
    Launch("SystemUIServer");
    service.WaitUntilListening();
    EXPECT_EQ(service.Authorized().Ask("platform"), "Success MACOSX");
}

TEST_F(RootStartUp, WithNobodyAtTheConsole_GoesOnAsRoot) {
    ASSERT_EQ(chown(sandbox->Outside("/dev/console").c_str(), 0, 0), 0);
    Service service(*sandbox, AsRoot());
    service.WaitForOutput("Waiting for UI Server to start.\n");
    Launch("SystemUIServer");
    service.WaitForOutput("waiting for clients\n", 3);
    EXPECT_EQ(service.StatusField("Uid"), "0\t0\t0\t0");
    const std::string support =
        std::string(kRootHome) + "/Library/Application Support/Velto/tesselAuth.key";
    WaitUntil("the key file is there",
              [&] { return std::filesystem::exists(sandbox->Outside(support)); });
    EXPECT_FALSE(std::filesystem::exists(sandbox->Outside(Service::kKeyFile)));
}

TEST_F(RootStartUp, WithTheHOMEOfSomebodyElse_LeavesThatHomeAlone) {
    Start start = AsRoot();
    start.environment["HOME"] = kUserHome;
    Service service(*sandbox, start);
    service.WaitForOutput("Waiting for UI Server to start.\n");
    EXPECT_TRUE(std::filesystem::is_empty(sandbox->Outside(kUserHome)));
    EXPECT_EQ(service.Stop(SIGTERM), Exit::Signal(SIGTERM));
}

TEST_F(RootStartUp, WithAnotherEffectiveUser_SwitchesAtOnceWithoutWaiting) {
    Start start;
    start.identity = Identity::kRootWithUsersEffectiveId;
    Service service(*sandbox, start);
    service.WaitForOutput("User id: 0, ");
    if (Contains(service.Output(), "real id: 0\n")) {
        EXPECT_EQ(service.Stop(SIGTERM), Exit::Signal(SIGTERM));
        GTEST_SKIP() << "this kernel resets the effective id when a sandboxed program is started";
    }
    service.WaitUntilListening();
    service.WaitForOutput("Starting server...\n");
    EXPECT_THAT(service.Output(), HasSubstr("User id: 0, group id: 0, real id: 1000\n"));
    EXPECT_THAT(service.Output(), HasSubstr("Running as normal user, but UID wrong.\n"));
    EXPECT_THAT(service.Output(), HasSubstr("User logged in...\n"));
    EXPECT_THAT(service.Output(), Not(HasSubstr("UI Server")));
    ExpectToBeTheUserForGood(service);
    EXPECT_EQ(service.Authorized().Ask("platform"), "Success MACOSX");
    // Not through its own signal handler: a program with two user ids trusts no environment, so a
    // sanitizer does not learn from its options that the handler is meant to be as it is.
    EXPECT_EQ(service.Stop(SIGKILL), Exit::Signal(SIGKILL));
}

TEST_F(RootStartUp, TerminatedWhileItWaits_EndsByTheSignalWithoutACrashLine) {
    for (const int signal : {SIGTERM, SIGINT}) {
        Service service(*sandbox, AsRoot());
        service.WaitForOutput("Waiting for UI Server to start.\n");
        EXPECT_EQ(service.Stop(signal), Exit::Signal(signal));
        EXPECT_THAT(service.Output(), Not(HasSubstr("[CRASH]")));
    }
}

}  // namespace
