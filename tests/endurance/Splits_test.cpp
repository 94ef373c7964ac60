// Every command of every server, sent in two pieces that arrive apart, is answered as in one.
#include <gmock/gmock.h>

#include <filesystem>
#include <functional>
#include <numeric>
#include <regex>
#include <set>

#include "Counts.h"
#include "support/Applications.h"
#include "support/Files.h"

namespace {

namespace fs = std::filesystem;

constexpr char kApps[] = "/Applications/Tessel Dock/Apps";
constexpr char kAirNotes[] = "/Applications/Tessel Dock/Apps/Notes.app";

enum class Port { kCommand, kPressure, kChannels };
// How long the command takes, and so how many splits a short run can try.
enum class Speed { kQuick, kSlow };

struct Row {
    Port port;
    Speed speed;
    const char* command;
    // With which the answer begins.
    const char* answer;
    std::function<void()> prepare = [] {};
};

std::string NameOf(const std::string& command) {
    return command.substr(0, command.find(' '));
}

// Every answer to createUUID is another one.
std::string Shape(const std::string& answer) {
    static const std::regex& uuid =
        *new std::regex("[0-9A-Fa-f]{8}(-[0-9A-Fa-f]{4}){3}-[0-9A-Fa-f]{12}");
    return std::regex_replace(answer, uuid, "UUID");
}

class Splits : public ApplicationsTest {
  protected:
    Splits() {
        sandbox.GiveToUser("/Applications");
        sandbox.MakeUsersFolder(kApps);
        sandbox.MakeUsersFolder("/Users/Shared/Velto/Data");
        sandbox.MakeUsersFile("/Users/Shared/Velto/file", "");
        sandbox.MakeUsersFile("/Users/Shared/Notes.air", "");
        sandbox.MakeUsersFile("/Users/Shared/A.pkg/Contents/Info.plist", "");
        MakeApplication(sandbox, "/Users/Shared/made/Notes.app", {"com.example.notes", "exit 0\n"});
        MakeApplication(sandbox, "/Applications/Draw.app", {"com.example.draw", "exit 0\n"});
        MakeApplication(sandbox, "/Applications/Stay.app", {"com.example.stay"});
        MakeApplication(sandbox, "/Applications/Run.app", {"com.example.run"});
        InstallTool(sandbox, "/usr/sbin/installer");
        InstallTool(sandbox, "/stand-ins/ditto");
        InstallTool(sandbox, kAirInstaller,
                    "mkdir -p \"$4\" && cp -r /Users/Shared/made/Notes.app \"$4\"\n");
        InstallTool(sandbox, kPkexec, kAgrees);
        Ask("startNativeApplication run com.example.run");
        WaitUntil("it runs", [&] { return StartsOf(sandbox, "Run").size() == 1; });
    }

    void MakeAirNotes() {
        if (!fs::exists(sandbox.Outside(kAirNotes))) {
            MakeApplication(sandbox, kAirNotes, {"com.example.notes", "exit 0\n"});
        }
    }
    void RemoveAirNotes() { fs::remove_all(sandbox.Outside(kAirNotes)); }
    void MakeGone() {
        if (!fs::exists(sandbox.Outside("/Applications/Gone.app"))) {
            MakeApplication(sandbox, "/Applications/Gone.app", {"com.example.gone", "exit 0\n"});
        }
    }
    void LetStayRun() {
        if (Ask("isNativeAppRunning stay com.example.stay") != "Success NativeAppIsRunning=stay") {
            const std::size_t before = StartsOf(sandbox, "Stay").size();
            Ask("startNativeApplication stay com.example.stay");
            WaitUntil("it runs", [&] { return StartsOf(sandbox, "Stay").size() > before; });
        }
    }

    std::vector<Row> Rows() {
        const auto air = [this] { MakeAirNotes(); };
        const auto noAir = [this] { RemoveAirNotes(); };
        const auto gone = [this] { MakeGone(); };
        const auto stay = [this] { LetStayRun(); };
        using P = Port;
        using S = Speed;
        return {
            {P::kCommand, S::kSlow, "exit", "QuitAcknowledged"},
            {P::kCommand, S::kQuick, "dockUpdateFinished", "Success "},
            {P::kCommand, S::kSlow, "setAsStartup", "Success "},
            {P::kCommand, S::kSlow, "removeAsStartup", "Success "},
            {P::kCommand, S::kQuick, "getIcon /Applications/Draw.app", "IconMissing"},
            {P::kCommand, S::kSlow, "userCanPerformDockUpdate", "Success UserCan"},
            {P::kCommand, S::kSlow, "userCanAdministerAirApps", "Success UserCan"},
            {P::kCommand, S::kSlow, "userCanAdministerNativeApps", "Success UserCan"},
            {P::kCommand, S::kQuick, "getCommonUserDir", "Success CommonUserDir="},
            {P::kCommand, S::kQuick, "getCoreVersion", "Success CoreVersion="},
            {P::kCommand, S::kQuick, "fixDirectoryPermissions /Users/Shared/Velto/Data",
             "Success DirectoryPermissionsFixed="},
            {P::kCommand, S::kQuick, "fixFilePermissions /Users/Shared/Velto/file",
             "Success FilePermissionsFixed="},
            {P::kCommand, S::kQuick, "createUUID", "Success UUID="},
            {P::kCommand, S::kSlow, "startProcess /Applications/Draw.app", "Success "},
            {P::kCommand, S::kQuick, "checkExists '/Users/Shared/Velto/file'", "True"},
            {P::kCommand, S::kQuick, "platform", "Success MACOSX"},
            {P::kCommand, S::kQuick, "getLocalCountryCode", "Success LocalCountryCode="},
            {P::kCommand, S::kSlow, "associateFileTypes png 'a b'", "True"},
            {P::kCommand, S::kSlow, "unassociateFileTypes png", "True"},
            {P::kCommand, S::kSlow, "uninstallAirApp Notes com.example.notes",
             "Success AirAppUninstallStarted=Notes", air},
            {P::kCommand, S::kSlow, "installAirApp Notes com.example.notes /Users/Shared/Notes.air",
             "Success AirAppInstallStarted=Notes", noAir},
            {P::kCommand, S::kSlow, "upgradeAirApp Notes com.example.notes /Users/Shared/Notes.air",
             "Success AirAppUpgradeStarted=Notes", air},
            {P::kCommand, S::kQuick, "isAirAppInstalled Draw com.example.draw",
             "Success AirAppIsInstalled=Draw"},
            {P::kCommand, S::kSlow, "startAirApplication draw com.example.draw",
             "Success AirAppIsStarted=draw"},
            {P::kCommand, S::kSlow, "installNativeApp draw x /Users/Shared/A.pkg",
             "Success NativeAppInstallStarted=draw"},
            {P::kCommand, S::kSlow, "uninstallNativeApp gone com.example.gone",
             "Success NativeAppUninstallStarted=gone", gone},
            {P::kCommand, S::kSlow, "upgradeNativeApp draw x /Users/Shared/A.pkg",
             "Success NativeAppUpgradeStarted=draw"},
            {P::kCommand, S::kQuick, "isNativeAppInstalled draw com.example.draw",
             "Success NativeAppIsInstalled=draw"},
            {P::kCommand, S::kSlow, "startNativeApplication draw com.example.draw",
             "Success NativeAppIsStarted=draw"},
            {P::kCommand, S::kSlow, "stopNativeApplication stay com.example.stay",
             "Success NativeAppIsStopped=stay", stay},
            {P::kCommand, S::kQuick, "isNativeAppRunning run com.example.run",
             "Success NativeAppIsRunning=run"},
            {P::kPressure, S::kQuick, "startTablet", ""},
            {P::kPressure, S::kQuick, "stopTablet", ""},
            {P::kPressure, S::kQuick, "listenTablet x Nobody", "Failure "},
            {P::kPressure, S::kQuick, "stopListenTablet x Nobody", ""},
            {P::kPressure, S::kQuick, "getDriverVersion", "Success DriverVersion="},
            {P::kChannels, S::kQuick, "registerChannel mine", "Success ChannelRegistered=true"},
            {P::kChannels, S::kQuick, "sendDataToChannel mine 'some data' 17",
             "ForwardDataToChannel mine some data|Success DataSentToChannel=17"},
        };
    }

    Client& ClientOf(Port port) {
        return port == Port::kCommand ? client : port == Port::kPressure ? pressure : apps;
    }

    // What comes for the pieces. Some commands are not answered, so that it takes one more to know.
    std::string Answers(Port port, const std::vector<std::string>& pieces) {
        static const std::string kLast = "sendDataToChannel nobody x last";
        Client& asking = ClientOf(port);
        for (const std::string& piece : pieces) {
            if (&piece != &pieces.front()) {
                asking.WaitUntilRead(sandbox);
            }
            asking.Send(piece);
        }
        asking.Send(kLast + "|");
        std::string all;
        for (;;) {
            const std::string answer = asking.Receive();
            if (answer.rfind("SyntaxError Unknown command - ", 0) == 0 ||
                answer == "Success DataSentToChannelError=last") {
                return Shape(all);
            }
            all += answer + "|";
        }
    }

    Client pressure = service.ConnectToPressure();
    Client apps = service.ConnectToApps();
};

TEST_F(Splits, OfEveryCommandAtEveryByte_ChangeNoAnswer) {
    long splits = 0;
    for (const Row& row : Rows()) {
        SCOPED_TRACE(row.command);
        const std::string message = row.command + std::string("|");
        row.prepare();
        const std::string whole = Answers(row.port, {message});
        EXPECT_THAT(whole, testing::StartsWith(row.answer));
        // The first byte, and some more; of what takes its time only the first.
        const std::size_t step = FullCounts()                 ? 1
                                 : row.speed == Speed::kQuick ? message.size() / 4 + 1
                                                              : message.size();
        for (std::size_t at = 1; at < message.size(); at += step) {
            row.prepare();
            ASSERT_EQ(Answers(row.port, {message.substr(0, at), message.substr(at)}), whole)
                << "split behind " << at << " bytes";
            ++splits;
        }
    }
    Say(std::to_string(Rows().size()) + " commands of the three servers, split at " +
        std::to_string(splits) + " bytes: all answers as in one piece");
}

TEST_F(Splits, AreTriedOnEveryCommandThatThereIs) {
    std::set<std::string> tried = {"update"};
    for (const Row& row : Rows()) {
        tried.insert(NameOf(row.command));
    }
    std::set<std::string> all;
    const std::regex rowOfTable(R"re(\{"([A-Za-z]+)", [-0-9k])re");
    const fs::path sources = fs::path(E2E_FIXTURES).parent_path().parent_path() / "src/commands";
    for (const auto& file : fs::directory_iterator(sources)) {
        const std::string text = ReadFile(file.path());
        for (std::sregex_iterator row(text.begin(), text.end(), rowOfTable), end; row != end;
             ++row) {
            all.insert((*row)[1]);
        }
    }
    EXPECT_EQ(tried, all);
}

TEST(SplitEnd, OfTheCommandThatEndsTheService_ChangesNothing) {
    Sandbox sandbox;
    sandbox.MakeUsersFolder(Service::kDock);
    const std::string message = "update /Users/Shared|";
    // 0: in one piece.
    std::vector<std::size_t> cuts = {0, 9};
    if (FullCounts()) {
        cuts.resize(message.size());
        std::iota(cuts.begin(), cuts.end(), 0U);
    }
    for (const std::size_t at : cuts) {
        Service service(sandbox);
        Client client = service.WaitUntilListening().Authorized();
        if (at > 0) {
            client.Send(message.substr(0, at));
            client.WaitUntilRead(sandbox);
        }
        client.Send(message.substr(at));
        client.ExpectClosed();
        EXPECT_EQ(service.WaitForExit(), Exit::Status(1)) << "split behind " << at << " bytes";
    }
    Say("the command that ends the service, split at " + std::to_string(cuts.size() - 1) +
        " bytes: it ends as in one piece");
}

}  // namespace
