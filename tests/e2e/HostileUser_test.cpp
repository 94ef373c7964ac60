// Another person with an account on the machine. What such a person can do with a connection from
// before the dock's is in Authorization_test.cpp, with a tablet driver in
// HostilePenDriver_test.cpp, with files in HostileLinks_test.cpp.
#include <gmock/gmock.h>

#include <csignal>

#include "support/Files.h"
#include "support/ProgramRun.h"
#include "support/Service.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class HostileUser : public testing::Test {
  protected:
    void SetUp() override {
        if (!Sandbox::CanSwitchUsers()) {
            GTEST_SKIP() << "only root can be somebody else";
        }
        sandbox.emplace();
    }
    void StartService() {
        service.emplace(*sandbox);
        service->WaitUntilListening();
    }
    ProgramRun Do(const std::vector<std::string>& arguments,
                  Identity identity = Identity::kStranger) {
        return RunProgram(*sandbox, arguments, {}, identity);
    }
    // What somebody who connects to PORT and sends BYTES is answered, as far as LENGTH or to the
    // connection's end.
    std::string Talk(int port, const std::string& bytes, int length = 10000,
                     Identity identity = Identity::kStranger) {
        const ProgramRun run =
            Do({"/bin/bash", "-c",
                "exec 3<>/dev/tcp/127.0.0.1/$0 || exit 9; printf %s \"$1\" >&3; head -c $2 <&3",
                std::to_string(port), bytes, std::to_string(length)},
               identity);
        if (run.status == 9) {
            throw Failed("no connection: " + run.errors);
        }
        return run.output;
    }
    void ExpectDenied(const std::vector<std::string>& arguments) {
        const ProgramRun run = Do(arguments);
        EXPECT_NE(run.status, 0) << arguments.back();
        EXPECT_THAT(run.output, IsEmpty()) << arguments.back();
        EXPECT_THAT(run.errors, HasSubstr("Permission denied")) << arguments.back();
    }

    std::optional<Sandbox> sandbox;
    std::optional<Service> service;
};

TEST_F(HostileUser, CannotReadTheKeyFileNorEnterItsFolder) {
    StartService();
    ASSERT_THAT(Do({"/bin/cat", Service::kKeyFile}, Identity::kUser).output,
                HasSubstr(service->Keys().key));
    ExpectDenied({"/bin/cat", Service::kKeyFile});
    ExpectDenied({"/bin/ls", Service::kSupportFolder});
    ExpectDenied({"/bin/ls", std::string(Service::kSupportFolder) + "/Tessel Dock"});
    EXPECT_EQ(ModeOf(sandbox->Outside(Service::kSupportFolder)), 0700U);
}

// One that an installer has made, as installers do.
TEST_F(HostileUser, InAFolderThatWasThereAndIsOpen_CannotReadTheKeyFileEither) {
    sandbox->MakeUsersFolder(Service::kSupportFolder);
    StartService();
    ASSERT_THAT(Do({"/bin/ls", Service::kSupportFolder}).output, HasSubstr("tesselAuth.key\n"));
    ExpectDenied({"/bin/cat", Service::kKeyFile});
}

TEST_F(HostileUser, CannotLookIntoTheServiceNorEndIt) {
    StartService();
    const std::string process = "/proc/" + std::to_string(service->Pid());
    ExpectDenied({"/bin/cat", process + "/environ"});
    ExpectDenied({"/bin/cat", process + "/mem"});
    ExpectDenied({"/bin/ls", process + "/fd/"});
    EXPECT_THAT(Do({"/bin/cat", process + "/cmdline"}).output, Not(HasSubstr(service->Keys().key)));
    const ProgramRun run = Do({"/bin/bash", "-c", "kill -9 $0", std::to_string(service->Pid())});
    EXPECT_THAT(run.errors, HasSubstr("Operation not permitted"));
    EXPECT_TRUE(service->Running());
}

TEST_F(HostileUser, WithoutTheKey_GetsNothingFromTheCommandPort) {
    StartService();
    const int port = service->Keys().commandPort;
    for (const char* const attempt :
         {"platform|", "auth|platform|", "auth x|platform|", "auth {} |exit|", "|",
          "registerChannel x|", "startTablet|", "update /tmp|"}) {
        EXPECT_EQ(Talk(port, attempt), "") << attempt;
    }
    EXPECT_THAT(service->Output(), Not(HasSubstr("Authorization successful.")));
    // The same words from somebody who has the key.
    EXPECT_EQ(Talk(port, "auth " + service->Keys().key + "|platform|", 7), "authOk|");
}

TEST_F(HostileUser, WhileTheDockIsThere_IsClosedUnreadByTheCommandPort) {
    StartService();
    Client dock = service->Authorized();
    const std::size_t commands = CountOf(service->Output(), "Processing command:");
    EXPECT_EQ(Talk(service->Keys().commandPort, "auth " + service->Keys().key + "|platform|"), "");
    EXPECT_EQ(Talk(service->Keys().commandPort, "platform|"), "");
    EXPECT_EQ(dock.Ask("platform"), "Success MACOSX");
    EXPECT_EQ(CountOf(service->Output(), "Processing command:"), commands + 1);
}

// There is nothing by which the service could tell one local user from another.
TEST_F(HostileUser, MayUseThePortsThatAskForNoKeyLikeAnybody) {
    StartService();
    Client clock = service->ConnectToApps();
    EXPECT_EQ(clock.Ask("registerChannel clock"), "Success ChannelRegistered=true");
    const std::string registered = "Success ChannelRegistered=true|";
    EXPECT_EQ(Talk(service->Keys().appsPort, "registerChannel radio|",
                   static_cast<int>(registered.size())),
              registered);
    EXPECT_EQ(clock.Receive(), "BroadcastRegisteredChannel=radio");
    EXPECT_EQ(Talk(service->Keys().pressurePort, "getDriverVersion|", 8), "Success ");
}

}  // namespace
