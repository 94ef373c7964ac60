// "setAsStartup", "removeAsStartup", and what every start does to the login items. What the service
// writes is read by plistutil, and the other way round.
#include <gmock/gmock.h>

#include "support/Applications.h"
#include "support/Files.h"
#include "support/PropertyLists.h"
#include "support/Service.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr char kPreferences[] = "/Users/anna/Library/Preferences";
constexpr char kList[] = "/Users/anna/Library/Preferences/loginwindow.plist";
const std::string kRootsList = std::string(kRootHome) + "/Library/Preferences/loginwindow.plist";
constexpr char kAutostart[] = "/Users/anna/.config/autostart";

std::string Item(const std::string& path) {
    return "<dict><key>Hide</key><true/><key>Path</key><string>" + path + "</string></dict>";
}

std::string Items(const std::string& items) {
    return "<dict><key>AutoLaunchedApplicationDictionary</key><array>" + items + "</array></dict>";
}

// The service is not running yet, because it takes the dock off the list when it starts.
class LoginItems : public testing::Test {
  protected:
    void Give(const std::string& content) { sandbox.MakeUsersFile(kList, PropertyList(content)); }
    std::string Content() const { return ContentOf(sandbox.Outside(kList)); }

    void StartService() {
        client.reset();
        service.reset();
        service.emplace(sandbox);
        client.emplace(service->WaitUntilListening().Authorized());
    }
    void Ask(const std::string& command) { EXPECT_EQ(client->Ask(command), "Success "); }

    std::vector<std::string> AutostartEntries() const {
        std::vector<std::string> names;
        std::error_code none;
        for (const auto& entry :
             std::filesystem::directory_iterator(sandbox.Outside(kAutostart), none)) {
            names.push_back(entry.path().filename().string());
        }
        return names;
    }

    Sandbox sandbox;
    std::optional<Service> service;
    std::optional<Client> client;
};

TEST_F(LoginItems, SetAsStartup_WithoutAList_MakesABinaryOneWithTheDockHidden) {
    StartService();
    Ask("setAsStartup");
    EXPECT_EQ(Content(), Items(Item(Service::kDock)));
    EXPECT_TRUE(IsBinary(sandbox.Outside(kList)));
    EXPECT_THAT(service->Output(), HasSubstr("\nEntering AddAsStartupItem\n"));
}

TEST_F(LoginItems, SetAsStartup_ASecondTime_DoesNothingMore) {
    StartService();
    Ask("setAsStartup");
    Ask("setAsStartup now please");
    EXPECT_EQ(Content(), Items(Item(Service::kDock)));
    service->WaitForOutput("Entering AddAsStartupItem\n", 2);
}

TEST_F(LoginItems, SetAsStartup_WithAnItemOfThatNameElsewhere_DoesNothing) {
    StartService();
    const std::string before = Items(Item("/Other/Tessel Dock.app"));
    Give(before);
    Ask("setAsStartup");
    EXPECT_EQ(Content(), before);
}

TEST_F(LoginItems, SetAsStartup_WithAnItemThatHoldsTheNameAsASubstringOnly_DoesNothing) {
    StartService();
    const std::string before = Items(Item("/Old/My Tessel Dock.app.backup/Contents/x"));
    Give(before);
    Ask("setAsStartup");
    EXPECT_EQ(Content(), before);
}

TEST_F(LoginItems, SetAsStartup_WithAnItemOfThatNameInOtherCase_AddsTheDock) {
    StartService();
    Give(Items(Item("/Other/tessel dock.app")));
    Ask("setAsStartup");
    EXPECT_EQ(Content(), Items(Item("/Other/tessel dock.app") + Item(Service::kDock)));
}

TEST_F(LoginItems, SetAsStartup_KeepsTheItemsAndTheKeysThatAreNotItsOwn) {
    StartService();
    // In the order in which keys are written.
    const std::string foreign =
        "<dict><key>Alias</key><data>AAEC</data><key>Order</key><integer>-3</integer>"
        "<key>Path</key><string>/A.app</string><key>Since</key><date>2008-02-29T12:00:00Z</date>"
        "<key>Weight</key><real>0.5</real></dict>";
    Give("<dict><key>AutoLaunchedApplicationDictionary</key><array>" + foreign +
         "</array><key>DisableScreenLock</key><true/></dict>");
    const std::string before = Content();
    Ask("setAsStartup");
    Ask("removeAsStartup");
    EXPECT_EQ(Content(), before);
    EXPECT_FALSE(IsBinary(sandbox.Outside(kList))) << "it was not";
}

TEST_F(LoginItems, SetAsStartup_OfABinaryList_KeepsItBinary) {
    StartService();
    sandbox.MakeUsersFile(kList, Binary(PropertyList(Items(Item("/A.app")))));
    Ask("setAsStartup");
    EXPECT_EQ(Content(), Items(Item("/A.app") + Item(Service::kDock)));
    EXPECT_TRUE(IsBinary(sandbox.Outside(kList)));
}

TEST_F(LoginItems, RemoveAsStartup_OfSeveralItemsWithTheName_RemovesTheFirstOnly) {
    StartService();
    Give(Items(Item("/A.app") + Item("/Other/Tessel Dock.app/x") + Item(Service::kDock)));
    Ask("removeAsStartup");
    EXPECT_EQ(Content(), Items(Item("/A.app") + Item(Service::kDock)));
    Ask("removeAsStartup anything");
    EXPECT_EQ(Content(), Items(Item("/A.app")));
    Ask("removeAsStartup");
    EXPECT_EQ(Content(), Items(Item("/A.app")));
}

TEST_F(LoginItems, RemoveAsStartup_WithoutAList_MakesNone) {
    StartService();
    Ask("removeAsStartup");
    EXPECT_FALSE(std::filesystem::exists(sandbox.Outside(kList)));
}

TEST_F(LoginItems, AnyStart_TakesTheDockOffTheListBeforeTheServersAreThere) {
    Give(Items(Item(Service::kDock) + Item("/A.app")));
    StartService();
    EXPECT_EQ(Content(), Items(Item("/A.app")));
}

TEST_F(LoginItems, AStartAsRoot_ClearsTheItemsOfTheUserThatItIsAtThatMoment) {
    if (!Sandbox::CanSwitchUsers()) {
        GTEST_SKIP() << "only root can start as root";
    }
    Give(Items(Item(Service::kDock)));
    const std::filesystem::path roots = sandbox.Outside(kRootsList);
    std::filesystem::create_directories(roots.parent_path());
    WriteFile(roots, PropertyList(Items(Item(Service::kDock) + Item("/A.app"))));
    Start start;
    start.identity = Identity::kRoot;
    service.emplace(sandbox, start);
    service->WaitForOutput("Waiting for UI Server to start.\n");
    EXPECT_EQ(ContentOf(roots), Items(Item("/A.app")));
    EXPECT_EQ(Content(), Items(Item(Service::kDock)));
    // The signal thread is there only when the service has become somebody.
    service->Signal(SIGKILL);
    EXPECT_EQ(service->WaitForExit(), Exit::Signal(SIGKILL));
}

TEST_F(LoginItems, ListsWithWrongTypesAtEveryLevel_StopTheWorkQuietlyAndStayAsTheyAre) {
    for (const char* const content :
         {"<string>x</string>", "<array><string>x</string></array>", "<integer>7</integer>",
          "<dict><key>AutoLaunchedApplicationDictionary</key><string>x</string></dict>",
          "<dict><key>AutoLaunchedApplicationDictionary</key><dict/></dict>"}) {
        Give(content);
        // What could not be written is kept for the next time, so each list has a service of its
        // own.
        StartService();
        const std::string before = ReadFile(sandbox.Outside(kList));
        Ask("setAsStartup");
        Ask("removeAsStartup");
        EXPECT_EQ(ReadFile(sandbox.Outside(kList)), before);
    }
}

TEST_F(LoginItems, ItemsOfWrongTypes_ArePassedOver) {
    StartService();
    const std::string odd =
        "<string>/Tessel Dock.app</string><integer>1</integer><array/><dict/>"
        "<dict><key>Path</key><integer>1</integer></dict>"
        "<dict><key>Path</key><array><string>Tessel Dock.app</string></array></dict>";
    Give(Items(odd));
    const std::string before = Content();
    Ask("setAsStartup");
    EXPECT_THAT(Content(), HasSubstr(Item(Service::kDock) + "</array>"));
    Ask("removeAsStartup");
    EXPECT_EQ(Content(), before);
}

TEST_F(LoginItems, AListThatIsNone_StaysAsItIs) {
    StartService();
    const std::string whole = Binary(PropertyList(Items(Item("/A.app"))));
    for (const std::string& bytes :
         {whole.substr(0, whole.size() / 2), whole.substr(0, whole.size() - 1),
          std::string("bplist00"), std::string("\x01\x02\xFF\x00\x80", 5), std::string("<plist>"),
          PropertyList(Items(Item("/A.app"))).substr(0, 200)}) {
        sandbox.MakeUsersFile(kList, bytes);
        Ask("setAsStartup");
        Ask("removeAsStartup");
        EXPECT_EQ(ReadFile(sandbox.Outside(kList)), bytes);
    }
}

TEST_F(LoginItems, InAFolderThatTakesNoFiles_StayAsTheyAre) {
    StartService();
    const std::string before = Items(Item("/A.app"));
    Give(before);
    Protect(sandbox, kPreferences);
    Ask("setAsStartup");
    EXPECT_EQ(Content(), before);
    std::filesystem::permissions(sandbox.Outside(kPreferences), std::filesystem::perms(0755));
    std::filesystem::permissions(sandbox.Outside(kList), std::filesystem::perms(0444));
    Ask("removeAsStartup");
    EXPECT_EQ(Content(), before);
}

TEST_F(LoginItems, ThatAreWritten_KeepTheModeOfTheirFileAndLeaveNothingBeside) {
    StartService();
    Give(Items(Item("/A.app")));
    std::filesystem::permissions(sandbox.Outside(kList), std::filesystem::perms(0640));
    Ask("setAsStartup");
    EXPECT_EQ(ModeOf(sandbox.Outside(kList)), 0640U);
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(sandbox.Outside(kPreferences))) {
        names.push_back(entry.path().filename().string());
    }
    EXPECT_THAT(names, testing::ElementsAre("loginwindow.plist"));
}

// Each is a file in the desktop's autostart folder as well.
TEST_F(LoginItems, AThousandItems_AreKept) {
    StartService();
    std::string items;
    for (int number = 0; number < 1000; ++number) {
        items += Item("/Applications/Application " + std::to_string(number) + ".app");
    }
    Give(Items(items));
    Ask("setAsStartup");
    EXPECT_EQ(Content(), Items(items + Item(Service::kDock)));
    Ask("removeAsStartup");
    EXPECT_EQ(Content(), Items(items));
}

TEST_F(LoginItems, ShowInTheDesktopsAutostartFolderAsLongAsTheyAreOnTheList) {
    MakeApplication(sandbox, Service::kDock, {"com.example.dock"});
    sandbox.MakeUsersFile(std::string(kAutostart) + "/clock.desktop", "[Desktop Entry]\n");
    StartService();
    Ask("setAsStartup");
    ASSERT_EQ(AutostartEntries().size(), 2U);
    std::string text;
    for (const std::string& name : AutostartEntries()) {
        if (name != "clock.desktop") {
            text = ReadFile(sandbox.Outside(kAutostart) / name);
        }
    }
    EXPECT_THAT(text, HasSubstr("[Desktop Entry]\nType=Application\nName=Tessel Dock\n"));
    EXPECT_THAT(
        text, HasSubstr(std::string("\nExec=\"") + Service::kDock + "/Contents/MacOS/Program\"\n"));
    Ask("removeAsStartup");
    EXPECT_THAT(AutostartEntries(), testing::ElementsAre("clock.desktop"));
    EXPECT_EQ(ReadFile(sandbox.Outside(kAutostart) / "clock.desktop"), "[Desktop Entry]\n");
}

}  // namespace
