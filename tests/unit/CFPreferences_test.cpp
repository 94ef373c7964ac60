#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "CoreFoundation/Preferences.h"
#include "CoreFoundation/String.h"
#include "PropertyListTesting.h"

namespace {

using filestest::InAChild;
using filestest::TemporaryFolder;
using filestest::WriteFile;

std::string Content(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

Owned<CFPropertyListRef> Value(const char* key, const char* application) {
    return CFPreferencesCopyAppValue(MakeString(key), MakeString(application));
}

std::string Text(const char* key, const char* application) {
    const Owned<CFPropertyListRef> value = Value(key, application);
    if (value == nullptr) return "<none>";
    return CFGetTypeID(value) == CFStringGetTypeID()
               ? TextOf(static_cast<CFStringRef>(CFPropertyListRef(value)))
               : "<no text>";
}

void SetValue(const char* key, CFPropertyListRef value, const char* application) {
    CFPreferencesSetAppValue(MakeString(key), value, MakeString(application));
}

bool Synchronize(const char* application) {
    return CFPreferencesAppSynchronize(MakeString(application));
}

class CFPreferences : public ::testing::Test {
  protected:
    void SetUp() override { std::filesystem::create_directories(preferences); }

    TemporaryFolder folder;
    const filestest::Environment home{"HOME", folder.Path().c_str()};
    const std::string preferences = folder / "Library/Preferences";
    const std::string path = preferences + "/some.app.plist";
};

TEST_F(CFPreferences, CopyAppValue_OfWhatWasNeverSet_IsNull) {
    EXPECT_EQ(Value("key", "some.app"), nullptr);
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_TRUE(Synchronize("some.app"));
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(CFPreferences, CopyAppValue_IsWhatTheFileSays) {
    WriteFile(path, XMLDocument("<dict><key>key</key><string>value</string></dict>"));
    EXPECT_EQ(Text("key", "some.app"), "value");
    EXPECT_EQ(Text("other", "some.app"), "<none>");
    EXPECT_EQ(Text("key", "other.app"), "<none>");
}

TEST_F(CFPreferences, CopyAppValue_OfWhatWasSet_IsItBeforeItIsWritten) {
    WriteFile(path, XMLDocument("<dict><key>key</key><string>old</string></dict>"));
    SetValue("key", CFSTR("new"), "some.app");
    EXPECT_EQ(Text("key", "some.app"), "new");
    EXPECT_NE(Content(path).find("old"), std::string::npos);
    SetValue("key", nullptr, "some.app");
    EXPECT_EQ(Text("key", "some.app"), "<none>");
    EXPECT_TRUE(Synchronize("some.app"));
    EXPECT_EQ(Content(path).find("old"), std::string::npos);
}

TEST_F(CFPreferences, CopyAppValue_AfterAnotherProgramWroteTheFile_IsWhatItWrote) {
    SetValue("key", CFSTR("ours"), "some.app");
    ASSERT_TRUE(Synchronize("some.app"));
    EXPECT_EQ(Text("key", "some.app"), "ours");
    WriteFile(path, XMLDocument("<dict><key>key</key><string>theirs</string></dict>"));
    EXPECT_EQ(Text("key", "some.app"), "theirs");
}

TEST_F(CFPreferences, CopyAppValue_CannotBeChanged) {
    WriteFile(path, XMLDocument("<dict><key>key</key><array/></dict>"));
    const Owned<CFPropertyListRef> value = Value("key", "some.app");
    auto* const array =
        const_cast<CFMutableArrayRef>(static_cast<CFArrayRef>(CFPropertyListRef(value)));
    EXPECT_DEATH(CFArrayAppendValue(array, CFSTR("x")), "the array is immutable");
}

TEST_F(CFPreferences, CopyAppValue_OfAFileThatIsNone_IsNull) {
    for (const std::string& content :
         {std::string("nonsense"), XMLDocument("<array/>"), std::string()}) {
        WriteFile(path, content);
        EXPECT_EQ(Value("key", "some.app"), nullptr);
    }
}

TEST_F(CFPreferences, Synchronize_MakesABinaryFileForTheUserAlone) {
    SetValue("key", CFSTR("value"), "some.app");
    EXPECT_FALSE(std::filesystem::exists(path));
    ASSERT_TRUE(Synchronize("some.app"));
    struct stat status;
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600u);
    CFPropertyListFormat format = kCFPropertyListXMLFormat_v1_0;
    EXPECT_EQ(TextAt(ReadList(path, &format), "key"), "value");
    EXPECT_EQ(format, kCFPropertyListBinaryFormat_v1_0);
}

TEST_F(CFPreferences, Synchronize_MakesTheFolders) {
    std::filesystem::remove_all(folder / "Library");
    SetValue("key", CFSTR("value"), "some.app");
    ASSERT_TRUE(Synchronize("some.app"));
    EXPECT_EQ(Text("key", "some.app"), "value");
    std::filesystem::remove_all(folder / "Library");
    SetValue("key", CFSTR("again"), "some.app");
    ASSERT_TRUE(Synchronize("some.app"));
    EXPECT_EQ(TextAt(ReadList(path), "key"), "again");
}

TEST_F(CFPreferences, Synchronize_KeepsForeignKeysAndTheFormat) {
    const std::string foreign =
        "<key>foreign</key><dict><key>date</key><date>4001-01-01T00:00:00Z</date>"
        "<key>number</key><integer>18446744073709551615</integer></dict>";
    WriteFile(path, XMLDocument("<dict>" + foreign + "<key>key</key><true/></dict>"));
    const Owned<CFPropertyListRef> before = ReadList(path);
    SetValue("key", CFSTR("value"), "some.app");
    SetValue("more", kCFBooleanFalse, "some.app");
    ASSERT_TRUE(Synchronize("some.app"));
    CFPropertyListFormat format = kCFPropertyListBinaryFormat_v1_0;
    const Owned<CFPropertyListRef> after = ReadList(path, &format);
    EXPECT_EQ(format, kCFPropertyListXMLFormat_v1_0);
    EXPECT_TRUE(CFEqual(ValueAt(before, "foreign"), ValueAt(after, "foreign")));
    EXPECT_EQ(TextAt(after, "key"), "value");
    EXPECT_EQ(ValueAt(after, "more"), kCFBooleanFalse);
    EXPECT_EQ(CFDictionaryGetCount(static_cast<CFDictionaryRef>(CFPropertyListRef(after))), 3);
}

TEST_F(CFPreferences, Synchronize_MergesWithWhatOthersWroteInTheMeantime) {
    SetValue("ours", CFSTR("1"), "some.app");
    WriteFile(path, XMLDocument("<dict><key>theirs</key><string>2</string></dict>"));
    ASSERT_TRUE(Synchronize("some.app"));
    const Owned<CFPropertyListRef> list = ReadList(path);
    EXPECT_EQ(TextAt(list, "ours"), "1");
    EXPECT_EQ(TextAt(list, "theirs"), "2");
}

TEST_F(CFPreferences, Synchronize_WithNull_RemovesTheKeyAlone) {
    WriteFile(path, XMLDocument("<dict><key>a</key><true/><key>b</key><true/></dict>"));
    SetValue("a", nullptr, "some.app");
    SetValue("absent", nullptr, "some.app");
    ASSERT_TRUE(Synchronize("some.app"));
    const Owned<CFPropertyListRef> list = ReadList(path);
    EXPECT_EQ(ValueAt(list, "a"), nullptr);
    EXPECT_EQ(ValueAt(list, "b"), kCFBooleanTrue);
}

TEST_F(CFPreferences, Synchronize_RemovingWhatIsNotThere_WritesNothing) {
    const std::string text = XMLDocument("<dict ><key>b</key><true/></dict>");
    WriteFile(path, text);
    SetValue("a", nullptr, "some.app");
    EXPECT_TRUE(Synchronize("some.app"));
    EXPECT_EQ(Content(path), text);
    SetValue("a", nullptr, "other.app");
    EXPECT_TRUE(Synchronize("other.app"));
    EXPECT_FALSE(std::filesystem::exists(preferences + "/other.app.plist"));
}

TEST_F(CFPreferences, Synchronize_WritesOneApplicationsValuesOnly) {
    SetValue("key", CFSTR("one"), "one.app");
    SetValue("key", CFSTR("two"), "two.app");
    ASSERT_TRUE(Synchronize("one.app"));
    EXPECT_TRUE(std::filesystem::exists(preferences + "/one.app.plist"));
    EXPECT_FALSE(std::filesystem::exists(preferences + "/two.app.plist"));
    EXPECT_EQ(Text("key", "two.app"), "two");
    ASSERT_TRUE(Synchronize("two.app"));
}

TEST_F(CFPreferences, Synchronize_WithAFileThatIsNoPropertyList_LeavesItAndFails) {
    for (const std::string& content :
         {std::string("nonsense"), XMLDocument("<array/>"),
          XMLDocument("<dict><key>a</key><true/></dict>").substr(0, 170)}) {
        WriteFile(path, content);
        SetValue("key", CFSTR("value"), "some.app");
        EXPECT_FALSE(Synchronize("some.app"));
        EXPECT_EQ(Content(path), content);
        // Kept for the next time.
        EXPECT_EQ(Text("key", "some.app"), "value");
    }
    std::filesystem::remove(path);
    EXPECT_TRUE(Synchronize("some.app"));
    EXPECT_EQ(TextAt(ReadList(path), "key"), "value");
}

TEST_F(CFPreferences, Synchronize_OfAnEmptyFile_WritesIt) {
    WriteFile(path, "");
    SetValue("key", CFSTR("value"), "some.app");
    EXPECT_TRUE(Synchronize("some.app"));
    EXPECT_EQ(TextAt(ReadList(path), "key"), "value");
}

TEST_F(CFPreferences, Synchronize_ThatFails_KeepsWhatWasSetLast) {
    WriteFile(path, "nonsense");
    SetValue("key", CFSTR("first"), "some.app");
    SetValue("other", CFSTR("kept"), "some.app");
    ASSERT_FALSE(Synchronize("some.app"));
    SetValue("key", CFSTR("second"), "some.app");
    ASSERT_FALSE(Synchronize("some.app"));
    std::filesystem::remove(path);
    ASSERT_TRUE(Synchronize("some.app"));
    EXPECT_EQ(TextAt(ReadList(path), "key"), "second");
    EXPECT_EQ(TextAt(ReadList(path), "other"), "kept");
}

TEST_F(CFPreferences, Synchronize_OfAListThatMayNotBeWritten_FailsAndLeavesIt) {
    const std::string text = XMLDocument("<dict><key>b</key><true/></dict>");
    WriteFile(path, text);
    ASSERT_EQ(chmod(path.c_str(), 0444), 0);
    ASSERT_EQ(chmod(folder.Path().c_str(), 0755), 0);
    ASSERT_EQ(chmod(preferences.c_str(), 0555), 0);
    InAChild([&] {
        constexpr uid_t kNobody = 65534;
        if (geteuid() == 0) {
            ASSERT_EQ(setresuid(kNobody, kNobody, kNobody), 0);
        }
        // Another user's environment would not say where the home is.
        frameworks::Preferences& inner = frameworks::Preferences::Get();
        inner.Set(path, *MakeString("key"),
                  frameworks::Ref<const frameworks::Object>::Retain(CFSTR("value")));
        EXPECT_FALSE(inner.Synchronize(path));
        const auto kept = inner.Copy(path, *MakeString("key"));
        ASSERT_TRUE(kept);
        EXPECT_TRUE(CFEqual(kept.Get(), CFSTR("value")));
    });
    EXPECT_EQ(Content(path), text);
    ASSERT_EQ(chmod(preferences.c_str(), 0755), 0);
}

TEST_F(CFPreferences, Synchronize_OnAFullMedium_FailsAndLeavesTheList) {
    const std::string text = XMLDocument("<dict><key>b</key><true/></dict>");
    WriteFile(path, text);
    InAChild([&] {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{100, 100};
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
        SetValue("key", CFSTR("value"), "some.app");
        EXPECT_FALSE(Synchronize("some.app"));
    });
    EXPECT_EQ(Content(path), text);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(preferences), {}), 1);
}

TEST_F(CFPreferences, SetAppValue_CopiesEverything) {
    const Owned<CFMutableArrayRef> array = MakeArray();
    const Owned<CFMutableDictionaryRef> item = MakeDictionary();
    Set(item, "Path", "/Applications/A.app");
    CFArrayAppendValue(array, item);
    SetValue("key", array, "some.app");
    Set(item, "Path", "/Applications/B.app");
    CFArrayAppendValue(array, CFSTR("more"));
    const Owned<CFPropertyListRef> value = Value("key", "some.app");
    auto* const copy = static_cast<CFArrayRef>(CFPropertyListRef(value));
    ASSERT_EQ(CFArrayGetCount(copy), 1);
    EXPECT_EQ(TextAt(CFArrayGetValueAtIndex(copy, 0), "Path"), "/Applications/A.app");
    SetValue("key", nullptr, "some.app");
}

TEST_F(CFPreferences, AnApplicationWhoseNameIsAPath_HasNoPreferences) {
    for (const char* const application : {"", "/etc/passwd", "../../secret", "a/b"}) {
        SetValue("key", CFSTR("value"), application);
        EXPECT_EQ(Value("key", application), nullptr);
        EXPECT_FALSE(Synchronize(application));
    }
    EXPECT_TRUE(std::filesystem::is_empty(preferences));
}

TEST_F(CFPreferences, AHomeWithBlanksAndOtherLetters_IsAsGoodAsAnyOther) {
    const std::string strange = folder / "My H\xC3\xB6me % here";
    std::filesystem::create_directory(strange);
    const filestest::Environment there("HOME", strange.c_str());
    SetValue("key", CFSTR("value"), "some.app");
    ASSERT_TRUE(Synchronize("some.app"));
    EXPECT_EQ(TextAt(ReadList(strange + "/Library/Preferences/some.app.plist"), "key"), "value");
}

TEST_F(CFPreferences, SetAppValue_OfWhatIsNoPropertyList_Stops) {
    EXPECT_DEATH(SetValue("key", FileURL("/tmp"), "some.app"),
                 "CFPreferencesSetAppValue: the value is no property list");
    EXPECT_DEATH(CFPreferencesSetAppValue(nullptr, CFSTR("x"), CFSTR("some.app")),
                 "CFPreferencesSetAppValue: expected a CFString, got a null reference");
    EXPECT_DEATH(CFPreferencesCopyAppValue(CFSTR("key"), nullptr),
                 "CFPreferencesCopyAppValue: expected a CFString, got a null reference");
    EXPECT_DEATH(CFPreferencesAppSynchronize(nullptr), "CFPreferencesAppSynchronize: expected a");
}

}  // namespace
