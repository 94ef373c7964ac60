// The scripts that the service writes and runs: their bytes, where they lie, and what becomes of
// one that cannot be written. The scripts of installations, upgrades and removals are also in the
// tests of those.
#include <gmock/gmock.h>

#include "support/Applications.h"
#include "support/Files.h"
#include "support/ProgramRun.h"

namespace {

using testing::ContainsRegex;
using testing::HasSubstr;

namespace fs = std::filesystem;

constexpr char kProgramInScript[] =
    "/Library/Application Support/Velto/TesselCore.app/Contents/MacOS/TesselCore";

TEST(CoreScripts, TheUpdatesScript_IsThisToTheByte) {
    Sandbox sandbox;
    sandbox.AddGroup("admin", 80);
    sandbox.MakeUsersFolder(Service::kDock);
    // Called, and doing nothing.
    InstallTool(sandbox, kPkexec);
    Service service(sandbox);
    Client client = service.WaitUntilListening().Authorized();
    client.Send("update '/Users/Shared/new version'|");
    EXPECT_EQ(service.WaitForExit(), Exit::Status(0));
    const std::string script = std::string(kTemporaryFolder) + "TesselCoreUpdate.sh";
    const std::string folder = "/Users/Shared/new version";
    const std::string program = kProgramInScript;
    EXPECT_EQ(ReadFile(sandbox.Outside(script)),
              "#!/bin/sh \nif [ -f '" + folder + "/TesselCoreUpdate.zip' ] \nthen \nbunzip2 -f '" +
                  folder + "/TesselCoreUpdate.zip' \nmv '" + folder +
                  "/TesselCoreUpdate.zip.out' '" + folder + "/TesselCore' \nchmod +x '" + folder +
                  "/TesselCore' \nmv -f '" + program + "' '" + program + ".bck' \nmv -f '" +
                  folder + "/TesselCore' '" + program +
                  "' \nchgrp -R admin '/Library/Application Support/Velto/TesselCore.app' \n"
                  "chmod -R 775 '/Library/Application Support/Velto/TesselCore.app' \nfi \n");
    EXPECT_EQ(ModeOf(sandbox.Outside(script)), 0777U);
    EXPECT_EQ(CallsOf(sandbox, "pkexec"),
              "--disable-internal-agent|--keep-cwd|/bin/sh|" + script + "|\n");
}

TEST(CoreScripts, TheRemovalsScript_IsThisToTheByte) {
    Sandbox sandbox;
    sandbox.AddGroup("admin", 80);
    InstallTool(sandbox, kPkexec);
    Service service(sandbox);
    EXPECT_EQ(service.WaitForExit(), Exit::Status(0));
    const std::string script = std::string(kTemporaryFolder) + "TesselCoreUninstall.sh";
    EXPECT_EQ(ReadFile(sandbox.Outside(script)),
              "#!/bin/sh \nrm -rf '/Library/Application Support/Velto/' \n"
              "rm -rf '/Users/anna/Library/Application Support/TesselCore/' \n");
    EXPECT_EQ(ModeOf(sandbox.Outside(script)), 0777U);
    EXPECT_EQ(CallsOf(sandbox, "pkexec"),
              "--disable-internal-agent|--keep-cwd|/bin/sh|" + script + "|\n");
}

// The application "Notes", which only an administrator may remove.
class Scripts : public ApplicationsTest {
  protected:
    explicit Scripts(std::vector<std::string> more = {}, Start start = {})
        : ApplicationsTest(std::move(more), std::move(start)) {
        sandbox.GiveToUser("/Applications");
        InstallTool(sandbox, kPkexec, kAgrees);
        MakeNotes("/Applications/Notes.app");
    }

    void MakeNotes(const std::string& path) {
        MakeApplication(sandbox, path, {"com.example.notes"});
        Protect(sandbox, path + "/Contents/MacOS");
    }
    bool Exists(const std::string& path) const {
        return fs::exists(fs::symlink_status(sandbox.Outside(path)));
    }
};

TEST_F(Scripts, OfAFolderWithATilde_NamesTheUsersHomeInstead) {
    fs::rename(sandbox.Outside("/Applications/Notes.app"), sandbox.Outside("/Applications/~.app"));
    EXPECT_EQ(Ask("uninstallAirApp Notes com.example.notes"),
              "Success AirAppUninstallFailed=Notes");
    EXPECT_EQ(ReadFile(sandbox.Outside(std::string(kTemporaryFolder) + "TesselAppNotes.sh")),
              "#!/bin/sh \nrm -rf '/Applications//Users/anna.app'\n");
    EXPECT_TRUE(Exists("/Applications/~.app/Contents/MacOS/Program"));
}

TEST_F(Scripts, OfNamesWithPercentSigns_TakeThemAsTheyAre) {
    fs::rename(sandbox.Outside("/Applications/Notes.app"),
               sandbox.Outside("/Applications/100%s%n.app"));
    EXPECT_EQ(Ask("uninstallAirApp %s%n com.example.notes"), "Success AirAppUninstallStarted=%s%n");
    EXPECT_EQ(ReadFile(sandbox.Outside(std::string(kTemporaryFolder) + "TesselApp%s%n.sh")),
              "#!/bin/sh \nrm -rf '/Applications/100%s%n.app'\n");
    EXPECT_FALSE(Exists("/Applications/100%s%n.app"));
}

TEST_F(Scripts, OfTheSameName_AreOverwrittenAndStay) {
    Ask("uninstallAirApp Notes com.example.notes");
    MakeNotes("/Applications/N.app");
    EXPECT_EQ(Ask("uninstallAirApp Notes com.example.notes"),
              "Success AirAppUninstallStarted=Notes");
    EXPECT_EQ(ReadFile(sandbox.Outside(std::string(kTemporaryFolder) + "TesselAppNotes.sh")),
              "#!/bin/sh \nrm -rf '/Applications/N.app'\n");
}

TEST_F(Scripts, ThatCannotBeWritten_AreNotRun) {
    EXPECT_THAT(PrintedFor("uninstallAirApp no/folder com.example.notes",
                           "Success AirAppUninstallFailed=no/folder"),
                HasSubstr("Target path:" + std::string(kTemporaryFolder) +
                          "TesselAppno/folder.sh\n"
                          "Call to Creating script file in support dir returned error 2\n"));
    EXPECT_EQ(CallsOf(sandbox, "pkexec"), "");
    EXPECT_TRUE(Exists("/Applications/Notes.app/Contents/MacOS/Program"));
}

// Whoever was first with the name could put other scripts there.
TEST_F(Scripts, WhenTheTemporaryFolderIsSomebodyElses_LieInAnotherOneDeliberately) {
    const fs::path planted = sandbox.Outside("/tmp/TemporaryItems-1000");
    fs::remove_all(planted);
    fs::create_directory(planted);
    fs::permissions(planted, fs::perms(0777));
    EXPECT_THAT(PrintedFor("uninstallAirApp Notes com.example.notes",
                           "Success AirAppUninstallStarted=Notes"),
                ContainsRegex("Target path:/tmp/TemporaryItems-1000\\.[A-Za-z0-9]+/"
                              "TesselAppNotes\\.sh\n"));
    EXPECT_TRUE(fs::is_empty(planted));
}

TEST_F(Scripts, WhenTheTemporaryFolderIsALink_LieInAnotherOneDeliberately) {
    const fs::path planted = sandbox.Outside("/tmp/TemporaryItems-1000");
    fs::remove_all(planted);
    sandbox.MakeUsersFolder("/Users/anna/private");
    fs::permissions(sandbox.Outside("/Users/anna/private"), fs::perms(0700));
    fs::create_symlink("/Users/anna/private", planted);
    EXPECT_THAT(PrintedFor("uninstallAirApp Notes com.example.notes",
                           "Success AirAppUninstallStarted=Notes"),
                ContainsRegex("Target path:/tmp/TemporaryItems-1000\\.[A-Za-z0-9]+/"));
    EXPECT_TRUE(fs::is_empty(sandbox.Outside("/Users/anna/private")));
}

// Two pages of memory for scripts.
class ScriptsOnAFullDisk : public Scripts {
  protected:
    ScriptsOnAFullDisk()
        : Scripts({"--perms", "1777", "--size", "8192", "--tmpfs", "/small"},
                  With("TMPDIR", "/small")) {
        RunProgram(sandbox, {"/bin/sh", "-c", "cat /dev/zero >/small/full"});
    }
};

TEST_F(ScriptsOnAFullDisk, AreNotLeftHalfWrittenAndRun) {
    EXPECT_THAT(PrintedFor("uninstallAirApp Notes com.example.notes",
                           "Success AirAppUninstallFailed=Notes"),
                HasSubstr("Call to Creating script file in support dir returned error 28\n"));
    EXPECT_EQ(RunProgram(sandbox, {"/usr/bin/find", "/small", "-name", "*.sh"}).output, "");
    EXPECT_TRUE(Exists("/Applications/Notes.app/Contents/MacOS/Program"));
}

}  // namespace
