// "update": the service ends, replaces its own program by one that has been downloaded, and starts
// it.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cstdlib>
#include <set>

#include "support/Applications.h"
#include "support/Files.h"
#include "support/OwnBundle.h"
#include "support/ProgramRun.h"
#include "support/Service.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr gid_t kAdmin = 80;
constexpr char kScript[] = "/tmp/TemporaryItems-1000/TesselCoreUpdate.sh";
constexpr char kPacked[] = "/TesselCoreUpdate.zip";
// What the program before the update is called afterwards.
const std::string kOld = std::string(kServiceFile) + ".bck";

// May change the bundle's group, so that no administrator is asked.
Start MemberOfAdmin() {
    Start start;
    start.groups = {kAdmin};
    return start;
}

class SelfUpdate : public testing::Test {
  protected:
    SelfUpdate() {
        sandbox.MakeUsersFolder(Service::kDock);
        program = ReadFile(bundle.Outside(kServiceFile));
    }

    void MakeAdministrator() { sandbox.AddGroup("admin", kAdmin); }

    // The update is what the service is without its symbols: the same program, but another file.
    void Pack(const std::string& folder) {
        const std::string plain = folder + "/packing";
        sandbox.MakeUsersFile(plain, program);
        ASSERT_EQ(RunProgram(sandbox, {E2E_STRIP, plain}).status, 0);
        update = ReadFile(sandbox.Outside(plain));
        ASSERT_NE(update.size(), program.size());
        ASSERT_EQ(RunProgram(sandbox, {"/usr/bin/bzip2", plain}).status, 0);
        std::filesystem::rename(sandbox.Outside(plain + ".bz2"), sandbox.Outside(folder + kPacked));
    }

    // The service ends after "update FOLDER", which is not answered.
    Exit Update(Service& service, const std::string& folder) {
        Client client = service.WaitUntilListening().Authorized();
        keys = ReadFile(sandbox.Outside(Service::kKeyFile));
        client.Send("update " + folder + "|");
        client.ExpectClosed();
        return service.WaitForExit();
    }

    bool NewKeysAreThere() const {
        const std::string now = ReadFileIfAny(sandbox.Outside(Service::kKeyFile));
        return now != keys && Contains(now, "</root> \n");
    }

    // The processes of the service's program that are there.
    std::vector<std::string> Running() {
        std::vector<std::string> found;
        for (const std::string& entry : sandbox.List("/proc")) {
            try {
                if (entry.find_first_not_of("0123456789") == std::string::npos &&
                    sandbox.ReadLink("/proc/" + entry + "/exe") == kServiceFile) {
                    found.push_back(entry);
                }
            } catch (const Failed&) {
                // Not ours to look at, or gone.
            }
        }
        return found;
    }

    void ExpectUpdated() {
        WaitUntil("the new program has written its keys", [&] { return NewKeysAreThere(); });
        const KeyFile now = ParseKeyFile(ReadFile(sandbox.Outside(Service::kKeyFile)));
        EXPECT_NE(now.key, ParseKeyFile(keys).key);
        WaitUntil("it listens", [&] { return sandbox.Listens(now.commandPort); });
        Client client(sandbox.Connect(now.commandPort));
        EXPECT_EQ(client.Ask("auth " + now.key), "authOk");
        EXPECT_EQ(Running().size(), 1U);
        EXPECT_TRUE(ReadFile(bundle.Outside(kServiceFile)) == update) << "it is not the new one";
        EXPECT_TRUE(ReadFile(bundle.Outside(kOld)) == program) << "it is not the old one";
        EXPECT_EQ(ModeOf(bundle.Outside(kServiceFile)), 0775U);
    }

    void ExpectUntouched() {
        EXPECT_TRUE(ReadFile(bundle.Outside(kServiceFile)) == program);
        EXPECT_FALSE(std::filesystem::exists(bundle.Outside(kOld)));
        EXPECT_FALSE(NewKeysAreThere());
        EXPECT_TRUE(Running().empty());
    }

    OwnBundle bundle;
    Sandbox sandbox{bundle.Mount()};
    std::string program;
    std::string update;
    std::string keys;
};

constexpr char kFolder[] = "/Users/anna/Downloads/update";

TEST_F(SelfUpdate, OfAnAdministrator_KeepsTheOldProgramAndStartsTheNewOne) {
    if (!Sandbox::CanSwitchUsers()) {
        GTEST_SKIP() << "only root can put the service into a group";
    }
    MakeAdministrator();
    Pack(kFolder);
    Service service(sandbox, MemberOfAdmin());
    EXPECT_EQ(Update(service, kFolder), Exit::Status(0));
    ExpectUpdated();
    EXPECT_THAT(service.Output(), HasSubstr("\nQuitting...\nChecking updates...\n"));
    EXPECT_THAT(service.Output(), HasSubstr("\nUpdating!\nScripts: Writing script...\n"));
    EXPECT_THAT(service.Output(), HasSubstr(std::string("\n[HOTREBOOT] Rebooting into: "
                                                        "[HOTREBOOT]\n") +
                                            kServiceFile + "\n"));
    struct stat status;
    ASSERT_EQ(stat(bundle.Outside(kServiceFile).c_str(), &status), 0);
    EXPECT_EQ(status.st_gid, kAdmin);
    EXPECT_FALSE(std::filesystem::exists(sandbox.Outside(std::string(kFolder) + kPacked)));
}

TEST_F(SelfUpdate, OfAnAdministratorWhoMayNotChangeTheBundle_AsksForRights) {
    MakeAdministrator();
    InstallTool(sandbox, kPkexec, kAgrees);
    Pack(kFolder);
    Service service(sandbox);
    EXPECT_EQ(Update(service, kFolder), Exit::Status(0));
    ExpectUpdated();
    EXPECT_EQ(CallsOf(sandbox, "pkexec"),
              std::string("--disable-internal-agent|--keep-cwd|/bin/sh|") + kScript + "|\n");
}

TEST_F(SelfUpdate, WhoseDialogIsDismissedOrRefused_EndsTheServiceAndLeavesTheOldProgram) {
    MakeAdministrator();
    Pack(kFolder);
    for (const char* const status : {"126", "127"}) {
        InstallTool(sandbox, kPkexec, std::string("exit ") + status + "\n");
        Service service(sandbox);
        EXPECT_EQ(Update(service, kFolder), Exit::Status(1));
        ExpectUntouched();
        EXPECT_THAT(service.Output(), HasSubstr("\nUpdating!\n"));
        EXPECT_THAT(service.Output(), Not(HasSubstr("HOTREBOOT")));
    }
}

TEST_F(SelfUpdate, FromANonAdministrator_QuitsAndLogsButNeitherUpdatesNorRestarts) {
    Pack(kFolder);
    Service service(sandbox);
    EXPECT_EQ(Update(service, kFolder), Exit::Status(1));
    ExpectUntouched();
    EXPECT_THAT(service.Output(), HasSubstr("\nQuitting...\nChecking updates...\n"));
    EXPECT_THAT(service.Output(), Not(HasSubstr("Updating!")));
    EXPECT_TRUE(std::filesystem::exists(sandbox.Outside(std::string(kFolder) + kPacked)));
}

// The command server is closed by the command, the others when the loop has ended.
TEST_F(SelfUpdate, ClosesTheCommandServerFirst_ThenThePressureThread_ThenTheOtherServers) {
    Service service(sandbox);
    EXPECT_EQ(Update(service, kFolder), Exit::Status(1));
    const std::set<std::string> steps = {"deinit server", "End of pressure processing thread.",
                                         "Quitting...", "Checking updates..."};
    std::vector<std::string> taken;
    for (const std::string& line : Lines(service.Output())) {
        if (steps.count(line) != 0) {
            taken.push_back(line);
        }
    }
    EXPECT_THAT(taken,
                ElementsAre("deinit server", "End of pressure processing thread.", "deinit server",
                            "deinit server", "Quitting...", "Checking updates..."));
}

TEST_F(SelfUpdate, EveryPlaceholder_IsReplacedByTheFolder_AndOneInTheFolderItselfStays) {
    const std::string folder = "/Users/anna/Up date ### ü/###";
    MakeAdministrator();
    InstallTool(sandbox, kPkexec, kAgrees);
    Pack(folder);
    Service service(sandbox);
    EXPECT_EQ(Update(service, "\"" + folder + "\""), Exit::Status(0));
    ExpectUpdated();
    const std::string script = ReadFile(sandbox.Outside(kScript));
    EXPECT_EQ(CountOf(script, folder + "/TesselCore"), 6U);
    EXPECT_EQ(CountOf(script, "###"), 12U) << "two in each of the six folders\n" << script;
}

TEST_F(SelfUpdate, WithoutAnythingDownloaded_StartsTheSameProgramAnew) {
    MakeAdministrator();
    InstallTool(sandbox, kPkexec, kAgrees);
    sandbox.MakeUsersFolder(kFolder);
    Service service(sandbox);
    EXPECT_EQ(Update(service, kFolder), Exit::Status(0));
    WaitUntil("it runs again", [&] { return NewKeysAreThere(); });
    EXPECT_TRUE(ReadFile(bundle.Outside(kServiceFile)) == program);
    EXPECT_FALSE(std::filesystem::exists(bundle.Outside(kOld)));
}

// The script goes on when unpacking has failed.
TEST_F(SelfUpdate, WithADownloadCutShort_DeliberatelyLeavesTheOldProgramUnderItsOtherName) {
    MakeAdministrator();
    InstallTool(sandbox, kPkexec, kAgrees);
    Pack(kFolder);
    const std::filesystem::path packed = sandbox.Outside(std::string(kFolder) + kPacked);
    std::filesystem::resize_file(packed, std::filesystem::file_size(packed) / 2);
    Service service(sandbox);
    EXPECT_EQ(Update(service, kFolder), Exit::Status(0));
    EXPECT_TRUE(ReadFile(bundle.Outside(kOld)) == program);
    EXPECT_FALSE(std::filesystem::exists(bundle.Outside(kServiceFile)));
    EXPECT_FALSE(NewKeysAreThere());
}

TEST_F(SelfUpdate, WithoutAPathOrWithTwo_IsASyntaxErrorAndNothingIsRecorded) {
    MakeAdministrator();
    Service service(sandbox);
    Client client = service.WaitUntilListening().Authorized();
    for (const char* const command : {"update", "update /tmp /tmp", "update  /tmp"}) {
        EXPECT_THAT(client.Ask(command),
                    StartsWith("SyntaxError Wrong number of arguments, expected: 1 - "));
    }
    EXPECT_EQ(client.Ask("platform"), "Success MACOSX");
}

TEST_F(SelfUpdate, PausesASecondAndDropsWhatFollowsInItsPacket) {
    Service service(sandbox);
    Client client = service.WaitUntilListening().Authorized();
    const auto asked = std::chrono::steady_clock::now();
    client.Send("update /tmp|platform|");
    client.ExpectClosed();
    EXPECT_GE(std::chrono::steady_clock::now() - asked, std::chrono::milliseconds(900));
    EXPECT_EQ(service.WaitForExit(), Exit::Status(1));
}

}  // namespace
