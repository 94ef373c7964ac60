// "associateFileTypes" and "unassociateFileTypes". What the service writes is read by plistutil,
// and the other way round.
#include <gmock/gmock.h>

#include <random>

#include "support/Applications.h"
#include "support/Files.h"
#include "support/PropertyLists.h"
#include "support/Service.h"

namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr char kPreferences[] = "/Users/anna/Library/Preferences";
constexpr char kList[] = "/Users/anna/Library/Preferences/com.apple.LaunchServices.plist";
constexpr char kRegister[] =
    "/System/Library/Frameworks/CoreServices.framework/Versions/A/Frameworks/"
    "LaunchServices.framework/Versions/A/Support/lsregister";
constexpr char kRegistersCall[] = "-kill|-domain|local|-domain|system|-domain|user|\n";
const std::string kDock = "veltoid-desktop-launcher.5E2A91C07B3D48F6A0C1E9D27F84B3A6C05D1E98.1";

// Keys in the order in which they are written.
std::string Handler(const std::string& tag, const std::string& application = kDock,
                    const std::string& tagClass = "public.filename-extension") {
    return "<dict><key>LSHandlerContentTag</key><string>" + tag +
           "</string><key>LSHandlerContentTagClass</key><string>" + tagClass +
           "</string><key>LSHandlerRoleAll</key><string>" + application + "</string></dict>";
}

std::string Handlers(const std::string& handlers) {
    return "<dict><key>LSHandlers</key>" +
           (handlers.empty() ? "<array/>" : "<array>" + handlers + "</array>") + "</dict>";
}

class FileTypes : public ApplicationsTest {
  protected:
    void Give(const std::string& content) { sandbox.MakeUsersFile(kList, PropertyList(content)); }
    std::string Content() const { return ContentOf(sandbox.Outside(kList)); }
    std::string Bytes() const { return ReadFile(sandbox.Outside(kList)); }
    bool HasList() const { return std::filesystem::exists(sandbox.Outside(kList)); }
};

TEST_F(FileTypes, Associate_WithoutAList_MakesABinaryOne) {
    EXPECT_EQ(Ask("associateFileTypes png"), "True");
    EXPECT_EQ(Content(), Handlers(Handler("png")));
    EXPECT_TRUE(IsBinary(sandbox.Outside(kList)));
}

TEST_F(FileTypes, Associate_OfSeveral_AppendsThemInTheirOrderAsGiven) {
    EXPECT_EQ(Ask("associateFileTypes png .JPG 'tar gz' ''  a"), "True");
    EXPECT_EQ(Content(), Handlers(Handler("png") + Handler(".JPG") + Handler("tar gz") +
                                  Handler("") + Handler("a")));
}

TEST_F(FileTypes, Associate_Twice_LeavesOneHandler) {
    EXPECT_EQ(Ask("associateFileTypes png"), "True");
    EXPECT_EQ(Ask("associateFileTypes png png"), "True");
    EXPECT_EQ(Content(), Handlers(Handler("png")));
}

TEST_F(FileTypes, Associate_WithAnotherHandler_ChangesItsRoleAndLeavesItsOtherKeys) {
    const auto handler = [](const std::string& application) {
        std::string text = Handler("png", application);
        text.insert(text.size() - 7, "<key>LSHandlerRoleViewer</key><string>x</string>");
        return text;
    };
    Give(Handlers(Handler("gif", "org.example.gif") + handler("org.example.png")));
    EXPECT_EQ(Ask("associateFileTypes png"), "True");
    EXPECT_EQ(Content(), Handlers(Handler("gif", "org.example.gif") + handler(kDock)));
    EXPECT_FALSE(IsBinary(sandbox.Outside(kList))) << "it was not";
}

TEST_F(FileTypes, Associate_WithAHandlerOfAnotherTagClass_AppendsOneAndLeavesThat) {
    const std::string other = Handler("png", "org.example.png", "public.mime-type");
    Give(Handlers(other));
    EXPECT_EQ(Ask("associateFileTypes png"), "True");
    EXPECT_EQ(Content(), Handlers(other + Handler("png")));
    EXPECT_EQ(Ask("unassociateFileTypes png"), "True");
    EXPECT_EQ(Content(), Handlers(other));
}

TEST_F(FileTypes, Associate_LooksForTheExtensionLetterByLetter) {
    const std::string others = Handler("PNG", "x") + Handler("pn", "x") + Handler("pngs", "x");
    Give(Handlers(others));
    EXPECT_EQ(Ask("associateFileTypes png"), "True");
    EXPECT_EQ(Content(), Handlers(others + Handler("png")));
}

TEST_F(FileTypes, ForeignKeysAndValues_StayAsTheyAre) {
    const std::string handler =
        "<dict><key>LSHandlerContentType</key><string>public.html</string>"
        "<key>LSHandlerPreferredVersions</key><dict><key>LSHandlerRoleAll</key><string>-</string>"
        "</dict></dict>";
    const std::string content =
        "<dict><key>Architectures</key><dict/><key>Count</key><integer>-9007199254740993</integer>"
        "<key>Empty</key><string></string><key>LSHandlers</key><array>" +
        handler +
        "</array><key>Ratio</key><real>0.25</real><key>Seen</key><false/>"
        "<key>Title</key><string>B\xC3\xBC"
        "cher &amp; \xF0\x9F\x96\x8A</string>"
        "<key>When</key><date>2008-02-29T12:00:00Z</date></dict>";
    Give(content);
    const std::string before = Content();
    sandbox.MakeUsersFile(kList, Binary(PropertyList(content)));
    EXPECT_EQ(Ask("associateFileTypes png jpg"), "True");
    EXPECT_EQ(Ask("unassociateFileTypes jpg png"), "True");
    EXPECT_EQ(Content(), before);
    EXPECT_TRUE(IsBinary(sandbox.Outside(kList))) << "it was";
}

TEST_F(FileTypes, Unassociate_RemovesTheFirstHandlerOnly) {
    Give(Handlers(Handler("gif") + Handler("png", "a") + Handler("png", "b")));
    EXPECT_EQ(Ask("unassociateFileTypes png"), "True");
    EXPECT_EQ(Content(), Handlers(Handler("gif") + Handler("png", "b")));
    EXPECT_EQ(Ask("unassociateFileTypes png png"), "True");
    EXPECT_EQ(Content(), Handlers(Handler("gif")));
}

TEST_F(FileTypes, Unassociate_WithoutAList_AnswersFalseAndWritesNothing) {
    EXPECT_EQ(Ask("unassociateFileTypes png"), "False");
    EXPECT_FALSE(HasList());
}

TEST_F(FileTypes, Unassociate_OfWhatHasNoHandler_WritesTheListBack) {
    Give("<dict><key>A</key><string>b</string></dict>");
    EXPECT_EQ(Ask("unassociateFileTypes png"), "True");
    EXPECT_EQ(Content(), "<dict><key>A</key><string>b</string></dict>");
}

TEST_F(FileTypes, WithoutAnExtension_AreASyntaxErrorWithTheLineBefore) {
    for (const char* const command : {"associateFileTypes", "unassociateFileTypes"}) {
        EXPECT_THAT(Ask(command), StartsWith(std::string("SyntaxError ") + command + " - "));
    }
    EXPECT_FALSE(HasList());
}

TEST_F(FileTypes, TheDatabase_IsRestartedOncePerCommandWhateverTheOutcome) {
    InstallTool(sandbox, kRegister);
    EXPECT_EQ(Ask("associateFileTypes png jpg gif"), "True");
    EXPECT_EQ(CallsOf(sandbox, "lsregister"), kRegistersCall);
    EXPECT_EQ(Ask("unassociateFileTypes png jpg"), "True");
    EXPECT_EQ(CountOf(CallsOf(sandbox, "lsregister"), kRegistersCall), 2U);
    Protect(sandbox, kPreferences);
    EXPECT_EQ(Ask("associateFileTypes png jpg"), "False");
    EXPECT_EQ(CountOf(CallsOf(sandbox, "lsregister"), kRegistersCall), 3U);
    EXPECT_THAT(Ask("associateFileTypes"), StartsWith("SyntaxError "));
    EXPECT_EQ(CountOf(CallsOf(sandbox, "lsregister"), kRegistersCall), 3U);
}

TEST_F(FileTypes, ListsWithWrongTypesAtEveryLevel_AreWrittenBackAsTheyAre) {
    for (const char* const content :
         {"<string>x</string>", "<array><string>x</string></array>",
          "<dict><key>LSHandlers</key><string>x</string></dict>",
          "<dict><key>LSHandlers</key><dict><key>png</key><true/></dict></dict>"}) {
        Give(content);
        EXPECT_EQ(Ask("associateFileTypes png"), "True") << content;
        EXPECT_EQ(Ask("unassociateFileTypes png"), "True") << content;
        EXPECT_EQ(Content(), content);
    }
}

TEST_F(FileTypes, HandlersOfWrongTypes_ArePassedOver) {
    const std::string odd =
        "<string>png</string><integer>1</integer><array><string>png</string></array><dict/>"
        "<dict><key>LSHandlerContentTag</key><integer>1</integer>"
        "<key>LSHandlerContentTagClass</key><string>public.filename-extension</string></dict>"
        "<dict><key>LSHandlerContentTag</key><string>png</string>"
        "<key>LSHandlerContentTagClass</key><true/></dict>";
    Give(Handlers(odd));
    const std::string before = Content();
    EXPECT_EQ(Ask("associateFileTypes png"), "True");
    EXPECT_THAT(Content(), HasSubstr(Handler("png") + "</array>"));
    EXPECT_EQ(Ask("unassociateFileTypes png"), "True");
    EXPECT_EQ(Content(), before);
}

TEST_F(FileTypes, Unassociate_InAListThatIsNone_AnswersFalseAndLeavesIt) {
    const std::string binary = Binary(PropertyList(Handlers(Handler("png"))));
    const std::string text = PropertyList(Handlers(Handler("png")));
    std::vector<std::string> broken = {"bplist00", "<plist>", "not a list",
                                       std::string("\0\xFF\x80", 3)};
    for (std::size_t length = 1; length < binary.size(); length += binary.size() / 8) {
        broken.push_back(binary.substr(0, length));
    }
    for (std::size_t length = 60; length < text.size() - 20; length += text.size() / 8) {
        broken.push_back(text.substr(0, length));
    }
    std::mt19937 random(4);
    for (int count = 0; count < 8; ++count) {
        std::string bytes(300, '\0');
        for (char& byte : bytes) {
            byte = static_cast<char>(random());
        }
        broken.push_back("bplist00" + bytes);
    }
    for (const std::string& bytes : broken) {
        sandbox.MakeUsersFile(kList, bytes);
        EXPECT_EQ(Ask("unassociateFileTypes png"), "False") << testing::PrintToString(bytes);
        EXPECT_EQ(Bytes(), bytes);
    }
}

// Nothing could be read from it, by the system as little as by the service.
TEST_F(FileTypes, Associate_InAListThatIsNone_DeliberatelyStartsANewOneAndKeepsTheOldBeside) {
    const std::string broken = "bplist00 and nothing more";
    sandbox.MakeUsersFile(kList, broken);
    EXPECT_EQ(Ask("associateFileTypes png gif"), "True");
    EXPECT_EQ(Content(), Handlers(Handler("png") + Handler("gif")));
    EXPECT_EQ(ReadFile(sandbox.Outside(kList + std::string(".unreadable"))), broken);
    EXPECT_THAT(sandbox.List(kPreferences), testing::SizeIs(2));
}

TEST_F(FileTypes, Associate_InAListThatMayBeWrittenButNotRead_AnswersFalseAndLeavesIt) {
    const std::string before = Handlers(Handler("gif", "org.example.gif"));
    Give(before);
    std::filesystem::permissions(sandbox.Outside(kList), std::filesystem::perms(0200));
    EXPECT_EQ(Ask("associateFileTypes png"), "False");
    std::filesystem::permissions(sandbox.Outside(kList), std::filesystem::perms(0600));
    EXPECT_EQ(Content(), before);
    EXPECT_EQ(Ask("associateFileTypes png"), "True") << "once it can be read again";
}

TEST_F(FileTypes, InAFolderOrAFileThatCannotBeWritten_AnswerFalseAndStayAsTheyAre) {
    const std::string before = Handlers(Handler("gif", "org.example.gif"));
    Give(before);
    const auto folder = sandbox.Outside(kPreferences);
    const auto file = sandbox.Outside(kList);
    const auto expectFailure = [&] {
        EXPECT_EQ(Ask("associateFileTypes png"), "False");
        EXPECT_EQ(Ask("unassociateFileTypes gif"), "False");
        EXPECT_EQ(Content(), before);
    };
    std::filesystem::permissions(folder, std::filesystem::perms(0555));
    expectFailure();
    std::filesystem::permissions(folder, std::filesystem::perms(0755));
    std::filesystem::permissions(file, std::filesystem::perms(0444));
    expectFailure();
    std::filesystem::permissions(file, std::filesystem::perms(0000));
    EXPECT_EQ(Ask("associateFileTypes png"), "False");
    std::filesystem::permissions(file, std::filesystem::perms(0644));
    EXPECT_EQ(Content(), before);
}

TEST_F(FileTypes, TenThousandHandlers_AreKeptAndTheLastOneIsFound) {
    std::string handlers;
    for (int number = 0; number < 10000; ++number) {
        handlers += Handler("e" + std::to_string(number), "org.example.x");
    }
    sandbox.MakeUsersFile(kList, Binary(PropertyList(Handlers(handlers))));
    EXPECT_EQ(Ask("associateFileTypes e9999 png"), "True");
    handlers.resize(handlers.size() - Handler("e9999", "org.example.x").size());
    EXPECT_EQ(Content(), Handlers(handlers + Handler("e9999") + Handler("png")));
    EXPECT_EQ(Ask("unassociateFileTypes png e9999"), "True");
    EXPECT_EQ(Content(), Handlers(handlers));
}

TEST_F(FileTypes, ShowInTheDesktopsDefaultApplicationsAsLongAsTheyAreOnTheList) {
    constexpr char kDefaults[] = "/Users/anna/.config/mimeapps.list";
    const std::string data = "/Users/anna/.local/share";
    sandbox.MakeUsersFile(data + "/applications/" + kDock + ".desktop", "[Desktop Entry]\n");
    sandbox.MakeUsersFile(data + "/mime/globs2", "50:image/x-drawing:*.drw\n");
    const std::string before = "[Default Applications]\ntext/html=browser.desktop\n";
    sandbox.MakeUsersFile(kDefaults, before);
    EXPECT_EQ(Ask("associateFileTypes drw unheard-of"), "True");
    EXPECT_THAT(ReadFile(sandbox.Outside(kDefaults)),
                HasSubstr("image/x-drawing=" + kDock + ".desktop"));
    EXPECT_THAT(ReadFile(sandbox.Outside(kDefaults)), HasSubstr("text/html=browser.desktop\n"));
    EXPECT_EQ(Ask("unassociateFileTypes drw unheard-of"), "True");
    EXPECT_EQ(ReadFile(sandbox.Outside(kDefaults)), before);
}

// The folder for it holds no more than a few thousand bytes.
TEST(FileTypesOnAFullDisk, AreAllTried_AndOneThatFailsMakesTheAnswerFalse) {
    Sandbox sandbox({"--size", "32768", "--perms", "0777", "--tmpfs", kPreferences});
    sandbox.GiveToUser("/Users/anna/Library");
    InstallTool(sandbox, kRegister);
    Service service(sandbox);
    Client client = service.WaitUntilListening().Authorized();
    const std::string large(40000, 'x');
    EXPECT_EQ(client.Ask("associateFileTypes png " + large + " jpg"), "False");
    WriteFile(sandbox.Aside("list"), sandbox.Read(kList));
    EXPECT_EQ(ContentOf(sandbox.Aside("list")), Handlers(Handler("png") + Handler("jpg")));
    EXPECT_EQ(sandbox.List(kPreferences),
              std::vector<std::string>{"com.apple.LaunchServices.plist"});
    EXPECT_EQ(CallsOf(sandbox, "lsregister"), kRegistersCall);
}

// Its path is put into a URL as it is.
TEST(FileTypesInAHome, WithABlankInItsPath_HaveNoListAndAnswerFalse) {
    Sandbox sandbox;
    sandbox.MakeUsersFolder("/Users/anna/my home");
    Start start;
    start.environment["HOME"] = "/Users/anna/my home";
    Service service(sandbox, start);
    service.WaitForOutput("waiting for clients\n", 3);
    const std::string keys = "/Users/anna/my home/Library/Application Support/Velto/tesselAuth.key";
    WaitUntil("the keys are there",
              [&] { return Contains(ReadFileIfAny(sandbox.Outside(keys)), "</root> \n"); });
    const KeyFile file = ParseKeyFile(ReadFile(sandbox.Outside(keys)));
    Client client(sandbox.Connect(file.commandPort));
    EXPECT_EQ(client.Ask("auth " + file.key), "authOk");
    EXPECT_THAT(client.Receive(), StartsWith("CurrentAttachedDevices="));
    EXPECT_EQ(client.Ask("associateFileTypes png"), "False");
    EXPECT_EQ(client.Ask("unassociateFileTypes png"), "False");
}

}  // namespace
