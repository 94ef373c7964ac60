// Without the dock, an administrator's service removes itself at its start.
#include <gmock/gmock.h>

#include "support/Applications.h"
#include "support/Files.h"
#include "support/OwnBundle.h"
#include "support/Service.h"

namespace {

using testing::HasSubstr;
using testing::Not;

constexpr gid_t kAdmin = 80;
constexpr char kScript[] = "/tmp/TemporaryItems-1000/TesselCoreUninstall.sh";
constexpr char kOwnData[] = "/Users/anna/Library/Application Support/TesselCore";

class SelfRemoval : public testing::Test {
  protected:
    SelfRemoval() { sandbox.MakeUsersFile(std::string(kOwnData) + "/data", "data"); }

    void MakeAdministrator() { sandbox.AddGroup("admin", kAdmin); }
    bool IsThere() const { return std::filesystem::exists(bundle.Outside(kServiceFile)); }
    bool HasData() const { return std::filesystem::exists(sandbox.Outside(kOwnData)); }
    void ExpectNoServers() {
        EXPECT_EQ(sandbox.Listeners(), std::vector<std::string>());
        EXPECT_FALSE(std::filesystem::exists(sandbox.Outside(Service::kKeyFile)));
    }

    OwnBundle bundle;
    Sandbox sandbox{bundle.Mount()};
};

TEST_F(SelfRemoval, OfAnAdministratorsServiceWithoutTheDock_RemovesItAndItsData) {
    if (!Sandbox::CanSwitchUsers()) {
        GTEST_SKIP() << "only root can put the service into a group";
    }
    MakeAdministrator();
    // May change the bundle's group, so that no administrator is asked.
    Start start;
    start.groups = {kAdmin};
    Service service(sandbox, start);
    EXPECT_EQ(service.WaitForExit(), Exit::Status(0));
    WaitUntil("the script is done", [&] { return !IsThere() && !HasData(); });
    EXPECT_THAT(service.Output(), HasSubstr("\nUninstalling!\nScripts: Writing script...\n"));
    EXPECT_THAT(service.Output(), Not(HasSubstr("Starting server...")));
    ExpectNoServers();
}

TEST_F(SelfRemoval, OfAnAdministratorWhoMayNotChangeTheBundle_AsksForRights) {
    MakeAdministrator();
    InstallTool(sandbox, kPkexec, kAgrees);
    Service service(sandbox);
    EXPECT_EQ(service.WaitForExit(), Exit::Status(0));
    EXPECT_FALSE(IsThere());
    EXPECT_FALSE(HasData());
    EXPECT_EQ(CallsOf(sandbox, "pkexec"),
              std::string("--disable-internal-agent|--keep-cwd|/bin/sh|") + kScript + "|\n");
    EXPECT_EQ(ReadFile(sandbox.Outside(kScript)),
              "#!/bin/sh \nrm -rf '/Library/Application Support/Velto/' \n"
              "rm -rf '/Users/anna/Library/Application Support/TesselCore/' \n");
    ExpectNoServers();
}

TEST_F(SelfRemoval, ThatFails_EndsTheServiceAllTheSame) {
    MakeAdministrator();
    InstallTool(sandbox, kPkexec, "exit 126\n");
    Service service(sandbox);
    EXPECT_EQ(service.WaitForExit(), Exit::Status(0));
    EXPECT_TRUE(IsThere());
    EXPECT_TRUE(HasData());
    ExpectNoServers();
}

TEST_F(SelfRemoval, WithoutTheDock_AndNoAdministrator_StartUpContinuesNormally) {
    Service service(sandbox);
    service.WaitUntilListening();
    EXPECT_THAT(service.Output(), Not(HasSubstr("Uninstalling!")));
    EXPECT_TRUE(IsThere());
    EXPECT_TRUE(HasData());
}

TEST_F(SelfRemoval, WithTheDock_AnAdministratorsServiceStays) {
    MakeAdministrator();
    sandbox.MakeUsersFolder(Service::kDock);
    Service service(sandbox);
    service.WaitUntilListening();
    EXPECT_THAT(service.Output(), Not(HasSubstr("Uninstalling!")));
    EXPECT_TRUE(IsThere());
}

}  // namespace
