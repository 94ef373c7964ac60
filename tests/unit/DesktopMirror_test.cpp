// What the desktop shows of the user's preferences: through the public calls that write them.
#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "CommandTesting.h"
#include "Desktop/AssociationsFile.h"
#include "Desktop/DesktopEntry.h"
#include "Desktop/FileTypes.h"
#include "PropertyListTesting.h"

namespace {

using filestest::Environment;
using filestest::TemporaryFolder;
using filestest::WriteFile;

std::string Content(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

void WriteInFolders(const std::string& path, const std::string& text) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    WriteFile(path, text);
}

std::set<std::string> Names(const std::string& folder) {
    std::set<std::string> names;
    std::error_code none;
    for (const auto& entry : std::filesystem::directory_iterator(folder, none)) {
        names.insert(entry.path().filename());
    }
    return names;
}

class Desktop : public ::testing::Test {
  protected:
    Desktop() { std::filesystem::create_directories(preferences); }

    TemporaryFolder folder;
    const Environment home{"HOME", folder.Path().c_str()};
    const Environment configurationHome{"XDG_CONFIG_HOME", nullptr};
    const Environment dataHome{"XDG_DATA_HOME", nullptr};
    const std::string data = folder / "system/share";
    const Environment dataFolders{"XDG_DATA_DIRS", data.c_str()};
    const std::string preferences = folder / "Library/Preferences";
    const std::string configuration = folder / ".config";
};

// --- Login items

class MirroredLoginItems : public Desktop {
  protected:
    bool Synchronize(CFPropertyListRef items) {
        CFPreferencesSetAppValue(CFSTR("AutoLaunchedApplicationDictionary"), items,
                                 CFSTR("loginwindow"));
        return CFPreferencesAppSynchronize(CFSTR("loginwindow"));
    }
    bool SetItems(const std::vector<std::string>& paths) {
        const Owned<CFMutableArrayRef> items = MakeArray();
        for (const std::string& path : paths) {
            const Owned<CFMutableDictionaryRef> item = MakeDictionary();
            Set(item, "Hide", kCFBooleanTrue);
            Set(item, "Path", path.c_str());
            CFArrayAppendValue(items, item);
        }
        return Synchronize(items);
    }
    // The one file in the folder.
    std::string OnlyEntry() {
        const std::set<std::string> names = Names(autostart);
        EXPECT_EQ(names.size(), 1u);
        return names.empty() ? std::string() : autostart + "/" + *names.begin();
    }
    std::string Line(const std::string& text, const std::string& key) {
        const std::string beginning = "\n" + key + "=";
        const std::size_t start = text.find(beginning);
        if (start == std::string::npos) return "<none>";
        const std::size_t from = start + beginning.size();
        return text.substr(from, text.find('\n', from) - from);
    }

    const std::string autostart = configuration + "/autostart";
    const std::string list = preferences + "/loginwindow.plist";
};

TEST_F(MirroredLoginItems, AnApplication_BecomesAnEntryThatStartsItsExecutable) {
    const std::string app = folder / "Some Maker/Some App.app";
    WriteInFolders(
        app + "/Contents/Info.plist",
        XMLDocument("<dict><key>CFBundleExecutable</key><string>run me</string></dict>"));
    ASSERT_TRUE(SetItems({app}));
    const std::string entry = OnlyEntry();
    EXPECT_NE(entry.find("/login-item-Some-App-"), std::string::npos);
    const std::string text = Content(entry);
    EXPECT_EQ(text.substr(0, 33), "[Desktop Entry]\nType=Application\n");
    EXPECT_EQ(Line(text, "Name"), "Some App");
    EXPECT_EQ(Line(text, "Exec"), "\"" + app + "/Contents/MacOS/run me\"");
    EXPECT_EQ(Line(text, "TryExec"), app + "/Contents/MacOS/run me");
    EXPECT_EQ(Line(text, "X-Login-Item"), app);
    EXPECT_TRUE(CFEqual(ValueAt(ReadList(list), "AutoLaunchedApplicationDictionary"),
                        CFPropertyListRef(Owned<CFPropertyListRef>(CFPreferencesCopyAppValue(
                            CFSTR("AutoLaunchedApplicationDictionary"), CFSTR("loginwindow"))))));
}

TEST_F(MirroredLoginItems, AnEntry_IsAccepted_ByTheDesktopsOwnValidator) {
    if (RunCommand("command -v desktop-file-validate").status != 0) {
        GTEST_SKIP() << "desktop-file-validate is not here";
    }
    ASSERT_TRUE(SetItems({"/Applications/Tricky \"$HOME\" `x` 100% \\ \xC3\xA4.app"}));
    const CommandResult result =
        RunCommand("desktop-file-validate " + Quoted(OnlyEntry()) + " 2>&1");
    EXPECT_EQ(result.status, 0) << result.output;
}

// What stands behind "Exec=" is read as the desktop reads it: first the escapes of a value, then
// the quotes.
TEST_F(MirroredLoginItems, APathWithEveryKindOfCharacter_IsStartedAsItIs) {
    const std::string app = "/Applications/a b\"c'd`e$f\\g%h;i=j#k\xC3\xA4\nl\tm (n) & <o>|*?~.app";
    ASSERT_TRUE(SetItems({app}));
    const std::string exec = Line(Content(OnlyEntry()), "Exec");
    std::string value;
    for (std::size_t position = 0; position < exec.size(); ++position) {
        if (exec[position] != '\\') {
            value += exec[position];
            continue;
        }
        const char next = exec[++position];
        value += next == 'n'   ? '\n'
                 : next == 't' ? '\t'
                 : next == 'r' ? '\r'
                 : next == 's' ? ' '
                               : next;
    }
    ASSERT_FALSE(value.empty());
    ASSERT_EQ(value.front(), '"');
    ASSERT_EQ(value.back(), '"');
    std::string argument;
    for (std::size_t position = 1; position + 1 < value.size(); ++position) {
        if (value[position] == '\\' || (value[position] == '%' && value[position + 1] == '%')) {
            ++position;
        }
        argument += value[position];
    }
    const std::string name = app.substr(14, app.size() - 14 - 4);
    EXPECT_EQ(argument, app + "/Contents/MacOS/" + name);
}

TEST_F(MirroredLoginItems, AProgram_IsStartedItself_AndADocument_IsOpened) {
    const std::string program = folder / "program";
    WriteFile(program, "#!/bin/sh\n");
    ASSERT_EQ(chmod(program.c_str(), 0755), 0);
    ASSERT_TRUE(SetItems({program}));
    EXPECT_EQ(Line(Content(OnlyEntry()), "Exec"), "\"" + program + "\"");
    const std::string document = folder / "document.txt";
    WriteFile(document, "text");
    ASSERT_TRUE(SetItems({document}));
    EXPECT_EQ(Line(Content(OnlyEntry()), "Exec"), "xdg-open \"" + document + "\"");
    EXPECT_EQ(Line(Content(OnlyEntry()), "TryExec"), "<none>");
}

TEST_F(MirroredLoginItems, SeveralItems_AreAnEntryEach_AlsoWhenTheyAreCalledAlike) {
    ASSERT_TRUE(SetItems({"/Applications/A.app", "/Other/A.app", "/Applications/B.app",
                          "/Applications/B.app", "/Applications/B.app/"}));
    EXPECT_EQ(Names(autostart).size(), 3u);
}

TEST_F(MirroredLoginItems, AnItemThatHasGoneFromTheList_LosesItsEntry) {
    ASSERT_TRUE(SetItems({"/Applications/A.app", "/Applications/B.app"}));
    ASSERT_TRUE(SetItems({"/Applications/B.app"}));
    EXPECT_EQ(Line(Content(OnlyEntry()), "X-Login-Item"), "/Applications/B.app");
    ASSERT_TRUE(SetItems({}));
    EXPECT_TRUE(Names(autostart).empty());
    ASSERT_TRUE(SetItems({"/Applications/A.app"}));
    ASSERT_TRUE(Synchronize(nullptr));
    EXPECT_TRUE(Names(autostart).empty());
}

TEST_F(MirroredLoginItems, WhatIsNotFromHere_IsNeverTouched) {
    const std::string others =
        "[Desktop Entry]\nType=Application\nName=Other\nExec=\"/Applications/A.app\"\n";
    std::filesystem::create_directories(autostart);
    WriteFile(autostart + "/other.desktop", others);
    // Called like ours, but not ours.
    WriteFile(autostart + "/login-item-A-0123456789abcdef.desktop", others);
    WriteFile(folder / "elsewhere", others + "X-Login-Item=/x\n");
    ASSERT_EQ(
        symlink((folder / "elsewhere").c_str(), (autostart + "/login-item-link.desktop").c_str()),
        0);
    WriteFile(autostart + "/login-item-notes.txt", "X-Login-Item=/x\n");
    ASSERT_TRUE(SetItems({"/Applications/A.app"}));
    EXPECT_EQ(Names(autostart).size(), 5u);
    ASSERT_TRUE(SetItems({}));
    EXPECT_EQ(Names(autostart),
              (std::set<std::string>{"other.desktop", "login-item-A-0123456789abcdef.desktop",
                                     "login-item-link.desktop", "login-item-notes.txt"}));
    EXPECT_EQ(Content(autostart + "/other.desktop"), others);
    EXPECT_TRUE(std::filesystem::is_symlink(autostart + "/login-item-link.desktop"));
}

TEST_F(MirroredLoginItems, AForeignFileWhereOursWouldBe_StaysAndTheCallSucceeds) {
    ASSERT_TRUE(SetItems({"/Applications/A.app"}));
    const std::string entry = OnlyEntry();
    WriteFile(entry, "theirs\n");
    ASSERT_TRUE(SetItems({"/Applications/A.app", "/Applications/B.app"}));
    EXPECT_EQ(Content(entry), "theirs\n");
    EXPECT_EQ(Names(autostart).size(), 2u);
}

TEST_F(MirroredLoginItems, WhatTheUserHasSwitchedOff_StaysOff_AsLongAsItStartsTheSame) {
    const std::string app = folder / "A.app";
    ASSERT_TRUE(SetItems({app}));
    const std::string entry = OnlyEntry();
    const std::string off = Content(entry) + "Hidden=true\n";
    WriteFile(entry, off);
    ASSERT_TRUE(SetItems({app, "/Applications/B.app"}));
    EXPECT_EQ(Content(entry), off);
    // Another executable now.
    WriteInFolders(app + "/Contents/Info.plist",
                   XMLDocument("<dict><key>CFBundleExecutable</key><string>new</string></dict>"));
    ASSERT_TRUE(SetItems({app}));
    EXPECT_EQ(Line(Content(entry), "Exec"), "\"" + app + "/Contents/MacOS/new\"");
    EXPECT_EQ(Content(entry).find("Hidden"), std::string::npos);
}

TEST_F(MirroredLoginItems, WhatIsNoItem_IsPassedOver) {
    WriteFile(list, XMLDocument("<dict><key>AutoLaunchedApplicationDictionary</key><array>"
                                "<string>/Applications/X.app</string><dict/><array/>"
                                "<dict><key>Path</key><integer>1</integer></dict>"
                                "<dict><key>Path</key><string></string></dict>"
                                "<dict><key>Path</key><string>/</string></dict>"
                                "<dict><key>Path</key><string>not/absolute.app</string></dict>"
                                "<dict><key>Path</key><string>/Applications/A.app</string></dict>"
                                "</array></dict>"));
    CFPreferencesSetAppValue(CFSTR("other key"), kCFBooleanTrue, CFSTR("loginwindow"));
    ASSERT_TRUE(CFPreferencesAppSynchronize(CFSTR("loginwindow")));
    EXPECT_EQ(Line(Content(OnlyEntry()), "X-Login-Item"), "/Applications/A.app");
}

TEST_F(MirroredLoginItems, AValueThatIsNoArray_CountsAsNoItems) {
    ASSERT_TRUE(SetItems({"/Applications/A.app"}));
    ASSERT_TRUE(Synchronize(CFSTR("text")));
    EXPECT_TRUE(Names(autostart).empty());
}

TEST_F(MirroredLoginItems, WithoutItems_NoFolderIsMade) {
    ASSERT_TRUE(SetItems({}));
    EXPECT_FALSE(std::filesystem::exists(configuration));
}

TEST_F(MirroredLoginItems, OfOtherApplications_AreNone) {
    const Owned<CFMutableArrayRef> items = MakeArray();
    const Owned<CFMutableDictionaryRef> item = MakeDictionary();
    Set(item, "Path", "/Applications/A.app");
    CFArrayAppendValue(items, item);
    CFPreferencesSetAppValue(CFSTR("AutoLaunchedApplicationDictionary"), items, CFSTR("other"));
    ASSERT_TRUE(CFPreferencesAppSynchronize(CFSTR("other")));
    EXPECT_FALSE(std::filesystem::exists(autostart));
}

TEST_F(MirroredLoginItems, TheConfigurationFolder_IsTheOneThatIsNamed) {
    const std::string named = folder / "named/deep";
    const Environment there("XDG_CONFIG_HOME", named.c_str());
    ASSERT_TRUE(SetItems({"/Applications/A.app"}));
    EXPECT_EQ(Names(named + "/autostart").size(), 1u);
    EXPECT_FALSE(std::filesystem::exists(configuration));
    const Environment relative("XDG_CONFIG_HOME", "not/absolute");
    ASSERT_TRUE(SetItems({"/Applications/A.app"}));
    EXPECT_EQ(Names(autostart).size(), 1u);
}

TEST_F(MirroredLoginItems, AFolderThatCannotBeMade_FailsNothing) {
    WriteFile(configuration, "a file");
    EXPECT_TRUE(SetItems({"/Applications/A.app"}));
    EXPECT_EQ(Content(configuration), "a file");
    EXPECT_NE(ValueAt(ReadList(list), "AutoLaunchedApplicationDictionary"), nullptr);
}

// --- Default applications

constexpr char kGlobs[] =
    "# comment\n"
    "50:text/plain:*.txt\n50:text/plain:*.text\n50:image/png:*.png\n"
    "50:text/x-csrc:*.c\n50:text/x-c++src:*.C:cs\n"
    "50:application/x-compressed-tar:*.tar.gz\n"
    "40:weak/type:*.both\n60:strong/type:*.both\n";

class MirroredHandlers : public Desktop {
  protected:
    void SetUp() override {
        WriteInFolders(data + "/mime/globs2", kGlobs);
        for (const char* const name : {"org.example.Editor", "org.example.Viewer"}) {
            WriteInFolders(data + "/applications/" + name + ".desktop", "[Desktop Entry]\n");
        }
    }

    struct Handler {
        std::string extension;
        std::string bundle;
    };
    bool Associate(const std::vector<Handler>& handlers) {
        const Owned<CFMutableArrayRef> array = MakeArray();
        for (const Handler& handler : handlers) {
            const Owned<CFMutableDictionaryRef> entry = MakeDictionary();
            Set(entry, "LSHandlerContentTag", handler.extension.c_str());
            Set(entry, "LSHandlerContentTagClass", "public.filename-extension");
            Set(entry, "LSHandlerRoleAll", handler.bundle.c_str());
            CFArrayAppendValue(array, entry);
        }
        const Owned<CFMutableDictionaryRef> root = MakeDictionary();
        Set(root, "LSHandlers", static_cast<CFTypeRef>(CFMutableArrayRef(array)));
        return Write(root);
    }
    bool Write(CFPropertyListRef root) {
        return WriteList(root, list, kCFPropertyListBinaryFormat_v1_0) > 0;
    }

    const std::string list = preferences + "/com.apple.LaunchServices.plist";
    const std::string associations = configuration + "/mimeapps.list";
    const std::string note = configuration + "/launch-services-defaults.list";
};

TEST_F(MirroredHandlers, AnAssociation_BecomesTheDefaultApplicationOfTheType) {
    ASSERT_TRUE(Associate({{"txt", "org.example.editor"}, {"png", "org.example.Viewer"}}));
    EXPECT_EQ(Content(associations),
              "[Default Applications]\nimage/png=org.example.Viewer.desktop;\n"
              "text/plain=org.example.Editor.desktop;\n");
}

TEST_F(MirroredHandlers, TheDesktop_FindsTheApplication) {
    if (RunCommand("command -v gio").status != 0) GTEST_SKIP() << "gio is not here";
    WriteInFolders(data + "/applications/org.example.Editor.desktop",
                   "[Desktop Entry]\nType=Application\nName=Editor\nExec=true %f\n"
                   "MimeType=text/plain;\n");
    ASSERT_TRUE(Associate({{"txt", "org.example.editor"}}));
    const CommandResult found = RunCommand("gio mime text/plain 2>&1");
    EXPECT_NE(found.output.find("org.example.Editor.desktop"), std::string::npos) << found.output;
}

TEST_F(MirroredHandlers, TheLinesOfOthers_StayByteForByte) {
    const std::string before =
        "# mine\r\n\n[Added Associations]\ntext/plain=b.desktop;\n\n  [Default Applications]  \n"
        "# text/plain=c.desktop\n  x-scheme-handler/http = firefox.desktop ; \ngarbage\n\n"
        "[Removed Associations]\ntext/plain=d.desktop;\nno line feed at the end";
    std::filesystem::create_directories(configuration);
    WriteFile(associations, before);
    ASSERT_TRUE(Associate({{"txt", "org.example.editor"}}));
    std::string expected = before;
    expected.insert(expected.find("\n[Removed"), "text/plain=org.example.Editor.desktop;\n");
    EXPECT_EQ(Content(associations), expected);
    ASSERT_TRUE(Associate({}));
    EXPECT_EQ(Content(associations), before);
}

TEST_F(MirroredHandlers, AFileWithoutTheGroup_GetsItAtItsEnd) {
    std::filesystem::create_directories(configuration);
    WriteFile(associations, "[Added Associations]\na/b=c.desktop;");
    ASSERT_TRUE(Associate({{"txt", "org.example.editor"}, {"png", "org.example.viewer"}}));
    EXPECT_EQ(Content(associations),
              "[Added Associations]\na/b=c.desktop;\n\n[Default Applications]\n"
              "image/png=org.example.Viewer.desktop;\ntext/plain=org.example.Editor.desktop;\n");
}

TEST_F(MirroredHandlers, TheApplicationsThatAreThere_StayBehind_AndComeBack) {
    std::filesystem::create_directories(configuration);
    const std::string before = "[Default Applications]\ntext/plain=nano.desktop;vim.desktop;\n";
    WriteFile(associations, before);
    ASSERT_TRUE(Associate({{"txt", "org.example.editor"}}));
    EXPECT_EQ(Content(associations),
              "[Default Applications]\n"
              "text/plain=org.example.Editor.desktop;nano.desktop;vim.desktop;\n");
    ASSERT_TRUE(Associate({{"txt", "org.example.viewer"}}));
    EXPECT_EQ(Content(associations),
              "[Default Applications]\n"
              "text/plain=org.example.Viewer.desktop;nano.desktop;vim.desktop;\n");
    ASSERT_TRUE(Associate({}));
    EXPECT_EQ(Content(associations), before);
}

TEST_F(MirroredHandlers, WhatWasTheUsersChoiceBefore_IsNotTakenOut) {
    std::filesystem::create_directories(configuration);
    const std::string before = "[Default Applications]\ntext/plain=org.example.Editor.desktop\n";
    WriteFile(associations, before);
    ASSERT_TRUE(Associate({{"txt", "org.example.editor"}}));
    EXPECT_EQ(Content(associations), before);
    EXPECT_FALSE(std::filesystem::exists(note));
    ASSERT_TRUE(Associate({}));
    EXPECT_EQ(Content(associations), before);
}

TEST_F(MirroredHandlers, WhatWasAmongTheUsersApplications_GoesBackToItsPlace) {
    std::filesystem::create_directories(configuration);
    const std::string before =
        "[Default Applications]\n"
        "text/plain=nano.desktop;org.example.Editor.desktop;vim.desktop;\n";
    WriteFile(associations, before);
    ASSERT_TRUE(Associate({{"txt", "org.example.editor"}}));
    EXPECT_EQ(Content(associations),
              "[Default Applications]\n"
              "text/plain=org.example.Editor.desktop;nano.desktop;vim.desktop;\n");
    ASSERT_TRUE(Associate({{"txt", "org.example.editor"}}));
    ASSERT_TRUE(Associate({{"txt", "org.example.viewer"}}));
    EXPECT_EQ(Content(associations),
              "[Default Applications]\ntext/plain=org.example.Viewer.desktop;nano.desktop;"
              "org.example.Editor.desktop;vim.desktop;\n");
    ASSERT_TRUE(Associate({}));
    EXPECT_EQ(Content(associations), before);
    EXPECT_EQ(Content(note), "");
}

TEST_F(MirroredHandlers, AnApplicationThatTheUserHasMovedSince_StillGoesOutWhenItHadNoPlace) {
    std::filesystem::create_directories(configuration);
    ASSERT_TRUE(Associate({{"txt", "org.example.editor"}}));
    WriteFile(associations,
              "[Default Applications]\ntext/plain=vim.desktop;org.example.Editor.desktop;\n");
    ASSERT_TRUE(Associate({{"txt", "org.example.editor"}}));
    ASSERT_TRUE(Associate({}));
    EXPECT_EQ(Content(associations), "[Default Applications]\ntext/plain=vim.desktop;\n");
}

TEST_F(MirroredHandlers, ANoteWithoutPlaces_MeansThatTheApplicationHadNone) {
    std::filesystem::create_directories(configuration);
    for (const char* const places : {"", ";", ";x", ";-1", ";;", ";99999999999999999999999"}) {
        WriteFile(associations,
                  "[Default Applications]\ntext/plain=org.example.Editor.desktop;vim.desktop;\n");
        WriteFile(note, std::string("text/plain=org.example.Editor.desktop") + places + "\n");
        ASSERT_TRUE(Associate({}));
        EXPECT_EQ(Content(associations), "[Default Applications]\ntext/plain=vim.desktop;\n")
            << places;
    }
}

TEST_F(MirroredHandlers, AHandlerWithoutADesktopEntryOrAType_IsPassedOver) {
    ASSERT_TRUE(Associate({{"txt", "org.example.unknown"},
                           {"unknown", "org.example.editor"},
                           {"", "org.example.editor"},
                           {"png", ""},
                           {"png", "../../etc/passwd"}}));
    EXPECT_FALSE(std::filesystem::exists(configuration));
}

TEST_F(MirroredHandlers, OfSeveralForOneTypeOrExtension_TheFirstOneCounts) {
    ASSERT_TRUE(Associate({{"txt", "org.example.viewer"},
                           {"text", "org.example.editor"},
                           {"png", "org.example.unknown"},
                           {"png", "org.example.editor"}}));
    EXPECT_EQ(Content(associations),
              "[Default Applications]\ntext/plain=org.example.Viewer.desktop;\n");
}

TEST_F(MirroredHandlers, TypesAreFound_WithOrWithoutLetterCase_ByTheirWeight) {
    ASSERT_TRUE(Associate({{"TXT", "org.example.editor"},
                           {"C", "org.example.editor"},
                           {"c", "org.example.viewer"},
                           {"tar.gz", "org.example.viewer"},
                           {"both", "org.example.viewer"}}));
    EXPECT_EQ(Content(associations),
              "[Default Applications]\n"
              "application/x-compressed-tar=org.example.Viewer.desktop;\n"
              "strong/type=org.example.Viewer.desktop;\n"
              "text/plain=org.example.Editor.desktop;\n"
              "text/x-c++src=org.example.Editor.desktop;\n"
              "text/x-csrc=org.example.Viewer.desktop;\n");
}

TEST_F(MirroredHandlers, TheUsersOwnDesktopEntriesAndTypes_ComeFirst) {
    const std::string own = folder / ".local/share";
    WriteInFolders(own + "/applications/ORG.example.editor.desktop", "[Desktop Entry]\n");
    WriteInFolders(own + "/mime/globs2", "50:mine/own:*.txt\n50:mine/new:*.new\n");
    ASSERT_TRUE(Associate({{"txt", "org.example.editor"}, {"new", "org.example.viewer"}}));
    EXPECT_EQ(Content(associations),
              "[Default Applications]\nmine/new=org.example.Viewer.desktop;\n"
              "mine/own=ORG.example.editor.desktop;\n");
}

TEST_F(MirroredHandlers, WrongTypesAtEveryLevel_ArePassedOver) {
    for (const char* const content :
         {"<array/>", "<string>x</string>", "<dict/>", "<dict><key>LSHandlers</key><dict/></dict>",
          "<dict><key>LSHandlers</key><array><string>x</string><array/><dict/><true/>"
          "<dict><key>LSHandlerContentTag</key><array/>"
          "<key>LSHandlerContentTagClass</key><string>public.filename-extension</string>"
          "<key>LSHandlerRoleAll</key><string>org.example.editor</string></dict>"
          "<dict><key>LSHandlerContentTag</key><string>txt</string>"
          "<key>LSHandlerContentTagClass</key><string>public.mime-type</string>"
          "<key>LSHandlerRoleAll</key><string>org.example.editor</string></dict>"
          "<dict><key>LSHandlerContentTag</key><string>txt</string>"
          "<key>LSHandlerContentTagClass</key><string>public.filename-extension</string>"
          "<key>LSHandlerRoleAll</key><integer>1</integer></dict></array></dict>"}) {
        WriteFile(folder / "in", XMLDocument(content));
        const Owned<CFPropertyListRef> root = ReadList(folder / "in");
        ASSERT_NE(root, nullptr) << content;
        EXPECT_TRUE(Write(root));
        EXPECT_FALSE(std::filesystem::exists(associations)) << content;
    }
}

TEST_F(MirroredHandlers, WithoutAChange_TheFileIsNotWritten) {
    ASSERT_TRUE(Associate({{"txt", "org.example.editor"}}));
    struct stat before;
    struct stat after;
    ASSERT_EQ(stat(associations.c_str(), &before), 0);
    ASSERT_TRUE(Associate({{"txt", "org.example.editor"}, {"unknown", "org.example.editor"}}));
    ASSERT_EQ(stat(associations.c_str(), &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino);
}

TEST_F(MirroredHandlers, ListsOfOtherNames_AreNotMirrored) {
    const Owned<CFMutableDictionaryRef> root = MakeDictionary();
    const Owned<CFMutableArrayRef> handlers = MakeArray();
    const Owned<CFMutableDictionaryRef> entry = MakeDictionary();
    Set(entry, "LSHandlerContentTag", "txt");
    Set(entry, "LSHandlerContentTagClass", "public.filename-extension");
    Set(entry, "LSHandlerRoleAll", "org.example.editor");
    CFArrayAppendValue(handlers, entry);
    Set(root, "LSHandlers", static_cast<CFTypeRef>(CFMutableArrayRef(handlers)));
    EXPECT_GT(WriteList(root, preferences + "/other.plist", kCFPropertyListBinaryFormat_v1_0), 0);
    EXPECT_GT(WriteList(root, folder / "com.apple.LaunchServices.plist",
                        kCFPropertyListBinaryFormat_v1_0),
              0);
    EXPECT_FALSE(std::filesystem::exists(associations));
    // By whatever path it is reached.
    ASSERT_EQ(symlink(list.c_str(), (folder / "link").c_str()), 0);
    EXPECT_GT(WriteList(root, folder / "link", kCFPropertyListBinaryFormat_v1_0), 0);
    EXPECT_TRUE(std::filesystem::exists(associations));
}

TEST_F(MirroredHandlers, AFileThatCannotBeReadOrWritten_FailsNothing) {
    std::filesystem::create_directories(associations);
    EXPECT_TRUE(Associate({{"txt", "org.example.editor"}}));
    EXPECT_FALSE(std::filesystem::exists(note));
    std::filesystem::remove_all(configuration);
    WriteFile(configuration, "a file");
    EXPECT_TRUE(Associate({{"txt", "org.example.editor"}}));
    EXPECT_EQ(Content(configuration), "a file");
}

TEST_F(MirroredHandlers, AMimeappsListThatIsALink_StaysOne) {
    std::filesystem::create_directories(configuration);
    WriteFile(folder / "dotfile", "");
    ASSERT_EQ(symlink("../dotfile", associations.c_str()), 0);
    ASSERT_TRUE(Associate({{"txt", "org.example.editor"}}));
    EXPECT_TRUE(std::filesystem::is_symlink(associations));
    EXPECT_NE(Content(folder / "dotfile").find("text/plain="), std::string::npos);
}

TEST_F(MirroredHandlers, TheSystemsOwnTypes_AreRead) {
    if (!std::filesystem::exists("/usr/share/mime/globs2")) {
        GTEST_SKIP() << "shared-mime-info is not here";
    }
    const frameworks::FileTypes types({"/usr/share"});
    EXPECT_EQ(types.TypeOf("txt"), "text/plain");
    EXPECT_EQ(types.TypeOf("PNG"), "image/png");
    EXPECT_EQ(types.TypeOf("html"), "text/html");
    EXPECT_EQ(types.TypeOf("no such extension"), "");
    EXPECT_EQ(types.TypeOf(""), "");
}

TEST(FileTypes, LinesThatAreNone_ArePassedOver) {
    TemporaryFolder folder;
    WriteInFolders(folder / "mime/globs2",
                   "\n:\n::\n50\n50:\n50:text/plain\nx:text/plain:*.a\n50:plain:*.b\n"
                   "50:text/plain:c\n50:text/plain:*.\n50:text/plain:*.d*\n50:text/plain:*.[e]\n"
                   "50:text/good:*.good:unknown,cs:more:fields");
    const frameworks::FileTypes types({folder.Path(), folder / "none"});
    for (const char* const extension : {"a", "b", "c", "d", "e", "[e]", "d*", "GOOD"}) {
        EXPECT_EQ(types.TypeOf(extension), "") << extension;
    }
    EXPECT_EQ(types.TypeOf("good"), "text/good");
}

TEST(AssociationsFile, LinesThatOccurTwice_AreBothChanged) {
    frameworks::AssociationsFile file(
        "[Default Applications]\na/b=x;\n[Other]\na/b=x\n[Default Applications]\na/b = y ;x\n");
    using Places = frameworks::AssociationsFile::Places;
    EXPECT_EQ(file.PutInFront("a/b", "z"), Places({0, 0}));
    EXPECT_FALSE(file.PutInFront("a/b", "z"));
    EXPECT_EQ(file.Text(),
              "[Default Applications]\na/b=z;x;\n[Other]\na/b=x\n[Default Applications]\n"
              "a/b=z;y ;x;\n");
    file.PutBack("a/b", "z", {0, 0});
    EXPECT_EQ(file.PutInFront("a/b", "x"), Places({1, 2}));
    EXPECT_EQ(file.Text(),
              "[Default Applications]\na/b=x;\n[Other]\na/b=x\n[Default Applications]\n"
              "a/b=x;y ;\n");
    file.PutBack("a/b", "x", {1, 2});
    EXPECT_EQ(file.Text(),
              "[Default Applications]\na/b=x;\n[Other]\na/b=x\n[Default Applications]\n"
              "a/b=y ;x;\n");
    file.PutBack("a/b", "x", {});
    EXPECT_EQ(file.Text(),
              "[Default Applications]\n[Other]\na/b=x\n[Default Applications]\na/b=y ;\n");
}

TEST(AssociationsFile, APlaceThatIsFurtherBackThanTheLineReaches_IsItsEnd) {
    frameworks::AssociationsFile file("[Default Applications]\na/b=x;y;z;\n");
    file.PutBack("a/b", "x", {7});
    EXPECT_EQ(file.Text(), "[Default Applications]\na/b=y;z;x;\n");
    file.PutBack("a/b", "w", {1});
    EXPECT_EQ(file.Text(), "[Default Applications]\na/b=y;z;x;\n") << "it has gone since";
}

TEST(AssociationsFile, AnyText_StaysAsItIs) {
    for (const std::string text : {"", "\n", "\n\n\n", "x", "=", "[", "]\r\n[\r\n",
                                   "[Default Applications]", "a=b\n=c\n;\n"}) {
        EXPECT_EQ(frameworks::AssociationsFile(text).Text(), text);
        frameworks::AssociationsFile changed(text);
        ASSERT_TRUE(changed.PutInFront("a/b", "z"));
        EXPECT_EQ(changed.Text().substr(0, text.size()), text);
        EXPECT_NE(changed.Text().find("\na/b=z;\n"), std::string::npos);
    }
}

TEST(DesktopEntry, AValue_IsEscaped) {
    EXPECT_EQ(frameworks::EscapedValue(" a b\\c\n\t\r"), "\\sa b\\\\c\\n\\t\\r");
    EXPECT_EQ(frameworks::QuotedArgument("/a \"b\" $c `d` \\e 5%"),
              "\"/a \\\\\"b\\\\\" \\\\$c \\\\`d\\\\` \\\\\\\\e 5%%\"");
}

}  // namespace
