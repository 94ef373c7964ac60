// The command-line client and the service together: what a person at a terminal gets.
#include <gmock/gmock.h>

#include <csignal>

#include "support/Files.h"
#include "support/ProgramRun.h"
#include "support/Service.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

class Tesselctl : public testing::Test {
  protected:
    ProgramRun Run(std::vector<std::string> arguments, const std::string& input = {}) {
        arguments.insert(arguments.begin(), kClientFile);
        return RunProgram(sandbox, arguments, input);
    }

    Sandbox sandbox;
};

TEST_F(Tesselctl, AnAnswer_IsPrintedAndToldByTheExitStatus) {
    Service service(sandbox);
    service.WaitUntilListening();
    const ProgramRun platform = Run({"platform"});
    EXPECT_EQ(platform.output, "MACOSX\n");
    EXPECT_EQ(platform.errors, "");
    EXPECT_EQ(platform.status, 0);
    EXPECT_EQ(Run({"checkExists", "/Users"}).status, 0);
    EXPECT_EQ(Run({"checkExists", "/nothing"}).status, 1);
    const ProgramRun unknown = Run({"nonsense"});
    EXPECT_EQ(unknown.status, 2);
    EXPECT_EQ(unknown.output, "");
    EXPECT_THAT(unknown.errors, HasSubstr("Unknown command"));
}

TEST_F(Tesselctl, AWordWithBlanksAndQuotes_ArrivesAsItIs) {
    sandbox.MakeUsersFile("/Users/Shared/My \"best\" disk/it's ü", "");
    Service service(sandbox);
    service.WaitUntilListening();
    EXPECT_EQ(Run({"checkExists", "/Users/Shared/My \"best\" disk/it's ü"}).output, "True\n");
    EXPECT_EQ(Run({"checkExists", "/Users/Shared/My \"best\" disk/its ü"}).output, "False\n");
}

TEST_F(Tesselctl, OneRunAfterTheOther_IsServedEveryTime) {
    Service service(sandbox);
    service.WaitUntilListening();
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(Run({"getCoreVersion"}).output, "CoreVersion=2.07.0\n");
    }
}

TEST_F(Tesselctl, WithoutAService_ExitsWithThree) {
    EXPECT_EQ(Run({"platform"}).status, 3);
    {
        Service service(sandbox);
        service.WaitUntilListening();
        EXPECT_EQ(Run({"platform"}).status, 0);
    }
    const ProgramRun stale = Run({"platform"});
    EXPECT_EQ(stale.status, 3);
    EXPECT_THAT(stale.errors, HasSubstr("the service is not running"));
}

TEST_F(Tesselctl, WhileAnotherClientIsAuthorized_SaysThatTheServiceIsBusy) {
    Service service(sandbox);
    service.WaitUntilListening();
    Client other = service.Authorized();
    const ProgramRun busy = Run({"platform"});
    EXPECT_EQ(busy.status, 3);
    EXPECT_THAT(busy.errors, HasSubstr("busy"));
    EXPECT_EQ(other.Ask("platform"), "Success MACOSX");
}

TEST_F(Tesselctl, Status_TellsVersionProcessAndPorts) {
    Service service(sandbox);
    service.WaitUntilListening();
    const ProgramRun status = Run({"status"});
    EXPECT_EQ(status.status, 0);
    for (const std::string& part :
         {std::string("2.07.0"), std::to_string(service.Pid()) + " (TesselCore)",
          std::to_string(service.Keys().commandPort), std::to_string(service.Keys().pressurePort),
          std::to_string(service.Keys().appsPort)}) {
        EXPECT_THAT(status.output, HasSubstr(part));
    }
}

TEST_F(Tesselctl, TheLog_IsShownOnceTheUserHasMadeTheFile) {
    EXPECT_EQ(Run({"log", "--enable"}).status, 0);
    Service service(sandbox);
    service.WaitUntilListening();
    EXPECT_EQ(Run({"platform"}).status, 0);
    EXPECT_THAT(Run({"log"}).output, HasSubstr(" - Success MACOSX|\n"));
}

TEST_F(Tesselctl, TheShell_KeepsOneConnectionForAllCommands) {
    Service service(sandbox);
    service.WaitUntilListening();
    const ProgramRun shell = Run({"shell"}, "platform\ngetCoreVersion\n");
    EXPECT_EQ(shell.status, 0);
    EXPECT_EQ(shell.output, "MACOSX\nCoreVersion=2.07.0\n");
    EXPECT_EQ(CountOf(service.Output(), "Authorization successful."), 1U);
}

}  // namespace
