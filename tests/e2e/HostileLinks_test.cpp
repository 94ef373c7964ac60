// What lies where the service writes: links, second names of other files, FIFOs, other people's
// files. In places where everybody may lay something nothing of it is followed or written to. In
// the user's home only the user can, and a link is how users move files; but nothing there keeps
// the service waiting.
//
// The icon, which lies where everybody may write, is in Icon_test.cpp; scripts are in
// Scripts_test.cpp as well, property lists that cannot be written in FileTypes_test.cpp.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/Applications.h"
#include "support/Files.h"
#include "support/Service.h"

namespace {

using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace fs = std::filesystem;

enum class Plant { kLink, kSecondName, kFifo, kFile, kFolder };
constexpr Plant kPlants[] = {Plant::kLink, Plant::kSecondName, Plant::kFifo, Plant::kFile,
                             Plant::kFolder};
std::ostream& operator<<(std::ostream& stream, Plant plant) {
    constexpr const char* kNames[] = {"a link", "a second name", "a FIFO", "a file", "a folder"};
    return stream << kNames[static_cast<int>(plant)];
}

class HostileLinks : public testing::Test {
  protected:
    static constexpr char kPrecious[] = "/Users/anna/precious";

    HostileLinks() {
        sandbox.MakeUsersFile(kPrecious, "precious");
        fs::permissions(sandbox.Outside(kPrecious), fs::perms(0640));
    }

    // What belongs to OWNER, in place of whatever is at PATH.
    void Lay(Plant plant, const std::string& path, uid_t owner = kUserId) {
        const fs::path place = sandbox.Outside(path);
        sandbox.MakeUsersFolder(fs::path(path).parent_path().string());
        fs::remove_all(place);
        switch (plant) {
            case Plant::kLink:
                fs::create_symlink(kPrecious, place);
                break;
            case Plant::kSecondName:
                fs::create_hard_link(sandbox.Outside(kPrecious), place);
                return;
            case Plant::kFifo:
                ASSERT_EQ(mkfifo(place.c_str(), 0666), 0);
                break;
            case Plant::kFile:
                WriteFile(place, "theirs");
                break;
            case Plant::kFolder:
                fs::create_directory(place);
                break;
        }
        if (Sandbox::CanSwitchUsers()) {
            ASSERT_EQ(lchown(place.c_str(), owner, owner), 0);
        }
    }
    void ExpectPreciousIsUntouched() {
        EXPECT_EQ(ReadFile(sandbox.Outside(kPrecious)), "precious");
        EXPECT_EQ(ModeOf(sandbox.Outside(kPrecious)), 0640U);
    }
    bool IsRegular(const std::string& path) const {
        return fs::is_regular_file(fs::symlink_status(sandbox.Outside(path)));
    }

    Sandbox sandbox;
};

// --- The key file

TEST_F(HostileLinks, AtTheKeyFile_AreReplacedAndNotWrittenTo) {
    for (const Plant plant : {Plant::kLink, Plant::kSecondName, Plant::kFifo, Plant::kFile}) {
        Lay(plant, Service::kKeyFile);
        Service service(sandbox);
        service.WaitUntilListening();
        EXPECT_EQ(service.Authorized().Ask("platform"), "Success MACOSX");
        EXPECT_TRUE(IsRegular(Service::kKeyFile)) << plant;
        // Its folder can be entered by everybody.
        EXPECT_EQ(ModeOf(sandbox.Outside(Service::kKeyFile)), 0600U) << plant;
        ExpectPreciousIsUntouched();
    }
}

TEST_F(HostileLinks, AFolderAtTheKeyFile_LeavesAServiceThatNobodyCommands) {
    Lay(Plant::kFolder, Service::kKeyFile);
    Service service(sandbox);
    service.WaitForOutput("waiting for clients\n", 3);
    service.WaitForOutput(
        "Call to Unable to open key authorization file to write:  returned error 21\n");
    EXPECT_TRUE(fs::is_empty(sandbox.Outside(Service::kKeyFile)));
}

TEST_F(HostileLinks, AtTheOldKeyFileOfTheDock_AreDeletedAndNotFollowed) {
    const std::string old = std::string(Service::kSupportFolder) + "/Tessel Dock/tesselAuth.key";
    for (const Plant plant : {Plant::kLink, Plant::kSecondName, Plant::kFifo}) {
        Lay(plant, old);
        Service service(sandbox);
        service.WaitUntilListening();
        WaitUntil("it is gone",
                  [&] { return !fs::exists(fs::symlink_status(sandbox.Outside(old))); });
        ExpectPreciousIsUntouched();
    }
}

// How a user has a folder on another disk.
TEST_F(HostileLinks, InPlaceOfTheUsersOwnSupportFolder_AreFollowed) {
    sandbox.MakeUsersFolder("/Users/anna/elsewhere");
    sandbox.MakeUsersFolder("/Users/anna/Library/Application Support");
    fs::create_symlink("/Users/anna/elsewhere", sandbox.Outside(Service::kSupportFolder));
    sandbox.GiveToUser(Service::kSupportFolder);
    Service service(sandbox);
    service.WaitForOutput("waiting for clients\n", 3);
    const fs::path key = sandbox.Outside("/Users/anna/elsewhere/tesselAuth.key");
    WaitUntil("the key file is there", [&] { return fs::exists(key); });
    EXPECT_EQ(ModeOf(key), 0600U);
}

// --- The log

TEST_F(HostileLinks, OfTheUsersOwnAtTheLog_LeadTheLogWhereTheUserWantsIt) {
    for (const Plant plant : {Plant::kLink, Plant::kSecondName}) {
        WriteFile(sandbox.Outside(kPrecious), "");
        Lay(plant, Service::kLogFile);
        Service service(sandbox);
        service.WaitUntilListening();
        EXPECT_THAT(ReadFile(sandbox.Outside(kPrecious)),
                    HasSubstr(" - Log file initialization succeeded.\n"))
            << plant;
    }
}

TEST_F(HostileLinks, ToNothingAtTheLog_MakeNoFile) {
    fs::create_symlink("/Users/anna/nothing", sandbox.Outside(Service::kLogFile));
    Service service(sandbox);
    service.WaitUntilListening();
    service.WaitForOutput("Logfile does not exist, not logging\n");
    EXPECT_FALSE(fs::exists(sandbox.Outside("/Users/anna/nothing")));
}

TEST_F(HostileLinks, AFifoAtTheLog_TurnsLoggingOffAndKeepsNobodyWaiting) {
    Lay(Plant::kFifo, Service::kLogFile);
    Service service(sandbox);
    service.WaitUntilListening();
    service.WaitForOutput("Unable to open logfile\n");
    EXPECT_EQ(service.Authorized().Ask("platform"), "Success MACOSX");
}

// --- Scripts

// An administrator's service without a dock writes a script that removes it, and ends.
class HostileScripts : public HostileLinks {
  protected:
    static constexpr char kFolder[] = "/tmp/TemporaryItems-1000";

    HostileScripts() {
        sandbox.AddGroup("admin", 80);
        // Called, and doing nothing.
        InstallTool(sandbox, kPkexec);
    }
    // Where the script was that has been run.
    std::string ScriptThatWasRun() {
        const std::size_t before = CallsOf(sandbox, "pkexec").size();
        Service service(sandbox);
        EXPECT_EQ(service.WaitForExit(), Exit::Status(0));
        std::string call = CallsOf(sandbox, "pkexec").substr(before);
        call.erase(0, call.find("/tmp/"));
        return call.substr(0, call.find('|'));
    }
    void ExpectToBeOurScript(const std::string& path) {
        EXPECT_TRUE(IsRegular(path));
        EXPECT_THAT(ReadFile(sandbox.Outside(path)), StartsWith("#!/bin/sh \nrm -rf '/Library/"));
        const std::string folder = fs::path(path).parent_path().string();
        EXPECT_EQ(ModeOf(sandbox.Outside(folder)), 0700U);
        EXPECT_EQ(OwnerOf(sandbox.Outside(folder)), OwnerOf(sandbox.Outside(kPrecious)));
    }
};

TEST_F(HostileScripts, InAPlantedTemporaryFolder_AreNeverRun) {
    for (const Plant plant : kPlants) {
        Lay(plant, kFolder, kStrangerId);
        if (plant == Plant::kFolder) {
            // Whoever owns it could exchange what is in it.
            WriteFile(sandbox.Outside(std::string(kFolder) + "/TesselCoreUninstall.sh"), "theirs");
            fs::permissions(sandbox.Outside(kFolder), fs::perms(0777));
        }
        const std::string script = ScriptThatWasRun();
        EXPECT_THAT(script, StartsWith(std::string(kFolder) + ".")) << plant;
        ExpectToBeOurScript(script);
        ExpectPreciousIsUntouched();
        if (plant == Plant::kFolder) {
            EXPECT_EQ(ReadFile(sandbox.Outside(std::string(kFolder) + "/TesselCoreUninstall.sh")),
                      "theirs");
        }
    }
}

TEST_F(HostileScripts, AtANameInTheUsersOwnTemporaryFolder_AreReplaced) {
    for (const Plant plant : {Plant::kLink, Plant::kSecondName, Plant::kFifo, Plant::kFile}) {
        Lay(plant, std::string(kFolder) + "/TesselCoreUninstall.sh");
        fs::permissions(sandbox.Outside(kFolder), fs::perms(0700));
        const std::string script = ScriptThatWasRun();
        EXPECT_EQ(script, std::string(kFolder) + "/TesselCoreUninstall.sh") << plant;
        ExpectToBeOurScript(script);
        ExpectPreciousIsUntouched();
    }
}

// --- What clients let everybody write

TEST_F(HostileLinks, OfAnotherUserInTheSharedFolder_GetNobodysRightsChanged) {
    if (!Sandbox::CanSwitchUsers()) {
        GTEST_SKIP() << "only root can lay something for somebody else";
    }
    sandbox.MakeUsersFolder("/Users/anna/private");
    fs::permissions(sandbox.Outside("/Users/anna/private"), fs::perms(0700));
    const std::string shared = "/Users/Shared/Velto/";
    Service service(sandbox);
    Client client = service.WaitUntilListening().Authorized();
    sandbox.MakeUsersFolder("/Users/Shared/Velto");
    EXPECT_EQ(client.Ask("fixDirectoryPermissions " + shared),
              "Success DirectoryPermissionsFixed=" + shared);
    // Now everybody may.
    Lay(Plant::kLink, shared + "link", kStrangerId);
    EXPECT_EQ(client.Ask("fixFilePermissions " + shared + "link"), "Success ");
    fs::create_symlink("/Users/anna", sandbox.Outside(shared + "home"));
    ASSERT_EQ(lchown(sandbox.Outside(shared + "home").c_str(), kStrangerId, kStrangerId), 0);
    EXPECT_EQ(client.Ask("fixFilePermissions " + shared + "home/precious"), "Success ");
    EXPECT_EQ(client.Ask("fixDirectoryPermissions " + shared + "home/private"), "Success ");
    Lay(Plant::kSecondName, shared + "name");
    EXPECT_EQ(client.Ask("fixFilePermissions " + shared + "name"), "Success ");
    ExpectPreciousIsUntouched();
    EXPECT_EQ(ModeOf(sandbox.Outside("/Users/anna/private")), 0700U);
    // A link that the user has laid is the user's business.
    fs::remove(sandbox.Outside(shared + "name"));
    Lay(Plant::kLink, shared + "link");
    EXPECT_EQ(client.Ask("fixFilePermissions " + shared + "link"),
              "Success FilePermissionsFixed=" + shared + "link");
    EXPECT_EQ(ModeOf(sandbox.Outside(kPrecious)), 0666U);
}

// --- Property lists and the desktop's files

TEST_F(HostileLinks, AtThePropertyLists_AreFollowedInTheUsersHomeAndAFifoIsRefused) {
    constexpr char kList[] = "/Users/anna/Library/Preferences/com.apple.LaunchServices.plist";
    Service service(sandbox);
    Client client = service.WaitUntilListening().Authorized();
    fs::remove(sandbox.Outside(kPrecious));
    Lay(Plant::kLink, kList);
    EXPECT_EQ(client.Ask("associateFileTypes png"), "True");
    EXPECT_TRUE(fs::is_symlink(fs::symlink_status(sandbox.Outside(kList))));
    EXPECT_THAT(ReadFile(sandbox.Outside(kPrecious)), HasSubstr("LSHandlers"));
    Lay(Plant::kFifo, kList);
    EXPECT_EQ(client.Ask("associateFileTypes gif"), "False");
    EXPECT_EQ(client.Ask("platform"), "Success MACOSX");
    EXPECT_FALSE(IsRegular(kList));
}

TEST_F(HostileLinks, AFifoAtTheLoginItems_KeepsNobodyWaiting) {
    constexpr char kList[] = "/Users/anna/Library/Preferences/loginwindow.plist";
    Lay(Plant::kFifo, kList);
    Service service(sandbox);
    Client client = service.WaitUntilListening().Authorized();
    client.Ask("setAsStartup");
    EXPECT_EQ(client.Ask("platform"), "Success MACOSX");
    EXPECT_FALSE(IsRegular(kList));
}

}  // namespace
