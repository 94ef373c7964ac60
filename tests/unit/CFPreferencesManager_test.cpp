#include "system/CFPreferencesManager.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "PropertyListTesting.h"
#include "core/Helpers.h"

namespace {

using filestest::TemporaryFolder;

CFArrayRef ArrayAt(CFTypeRef dictionary, const char* key) {
    return static_cast<CFArrayRef>(ValueAt(dictionary, key));
}

CFTypeRef At(CFArrayRef array, CFIndex index) {
    return CFArrayGetValueAtIndex(array, index);
}

Owned<CFMutableDictionaryRef> Handler(const char* tag, const char* tagClass, const char* bundleId) {
    Owned<CFMutableDictionaryRef> handler = MakeDictionary();
    Set(handler, "LSHandlerContentTag", tag);
    Set(handler, "LSHandlerContentTagClass", tagClass);
    Set(handler, "LSHandlerRoleAll", bundleId);
    return handler;
}

constexpr char kExtension[] = "public.filename-extension";

class CFPreferencesManagerTest : public testing::Test {
  protected:
    void SetUp() override { std::filesystem::create_directories(preferences); }

    Owned<CFPropertyListRef> List(CFPropertyListFormat* format = nullptr) const {
        return ReadList(preferences + "/com.apple.LaunchServices.plist", format);
    }

    TemporaryFolder folder;
    const filestest::Environment home{"HOME", folder.Path().c_str()};
    const std::string preferences = folder / "Library/Preferences";
};

TEST_F(CFPreferencesManagerTest, GetLSPlistURL_IsTheUsersList) {
    const Owned<CFURLRef> url = CFPreferencesManager::GetLSPlistURL();
    ASSERT_NE(url, nullptr);
    ASSERT_GT(
        CFPreferencesManager::WritePlistToURL(MakeDictionary(), url, kCFPropertyListXMLFormat_v1_0),
        0);
    EXPECT_NE(List(), nullptr);
}

// The path is put into a URL as it is.
TEST(CFPreferencesManagerURL, OfAHomeWithABlankInItsPath_IsNone) {
    const TemporaryFolder folder;
    std::filesystem::create_directories(folder / "my home/Library/Preferences");
    const filestest::Environment home{"HOME", (folder / "my home").c_str()};
    EXPECT_EQ(CFPreferencesManager::GetLSPlistURL(), nullptr);
    EXPECT_FALSE(CFPreferencesManager::AssociateFileExtensionToBundle("png", "org.example.png"));
    EXPECT_FALSE(CFPreferencesManager::UnassociateFileExtensionToBundle("png"));
}

TEST_F(CFPreferencesManagerTest, AssociatingAnExtensionTwice_LeavesOneHandlerWithTheSecondBundle) {
    EXPECT_TRUE(CFPreferencesManager::AssociateFileExtensionToBundle("png", "org.example.first"));
    EXPECT_TRUE(CFPreferencesManager::AssociateFileExtensionToBundle("png", "org.example.second"));
    CFPropertyListFormat format{};
    const Owned<CFPropertyListRef> list = List(&format);
    const CFArrayRef handlers = ArrayAt(list, "LSHandlers");
    ASSERT_EQ(CFArrayGetCount(handlers), 1);
    EXPECT_EQ(TextAt(At(handlers, 0), "LSHandlerContentTag"), "png");
    EXPECT_EQ(TextAt(At(handlers, 0), "LSHandlerContentTagClass"), kExtension);
    EXPECT_EQ(TextAt(At(handlers, 0), "LSHandlerRoleAll"), "org.example.second");
    EXPECT_EQ(format, kCFPropertyListBinaryFormat_v1_0);
}

TEST_F(CFPreferencesManagerTest, AHandlerOfAnotherTagClass_IsNotTouchedAndANewOneAppended) {
    const Owned<CFMutableArrayRef> handlers = MakeArray();
    CFArrayAppendValue(handlers, Handler("png", "public.mime-type", "org.example.mime"));
    const Owned<CFMutableDictionaryRef> root = MakeDictionary();
    Set(root, "LSHandlers", static_cast<CFTypeRef>(handlers));
    ASSERT_GT(WriteList(root, preferences + "/com.apple.LaunchServices.plist",
                        kCFPropertyListXMLFormat_v1_0),
              0);
    EXPECT_TRUE(CFPreferencesManager::AssociateFileExtensionToBundle("png", "org.example.new"));
    CFPropertyListFormat format{};
    const Owned<CFPropertyListRef> list = List(&format);
    const CFArrayRef now = ArrayAt(list, "LSHandlers");
    ASSERT_EQ(CFArrayGetCount(now), 2);
    EXPECT_EQ(TextAt(At(now, 0), "LSHandlerRoleAll"), "org.example.mime");
    EXPECT_EQ(TextAt(At(now, 1), "LSHandlerRoleAll"), "org.example.new");
    EXPECT_EQ(format, kCFPropertyListXMLFormat_v1_0) << "the format that was read is written";
}

TEST_F(CFPreferencesManagerTest, GetHandlerForFileExt_IsTheFirstExactOne) {
    const Owned<CFMutableArrayRef> handlers = MakeArray();
    CFArrayAppendValue(handlers, MakeString("png"));
    CFArrayAppendValue(handlers, Handler("PNG", kExtension, "a"));
    CFArrayAppendValue(handlers, Handler("png", "public.mime-type", "b"));
    CFArrayAppendValue(handlers, Handler("png", kExtension, "c"));
    CFArrayAppendValue(handlers, Handler("png", kExtension, "d"));
    CFIndex index = -7;
    const CFDictionaryRef found =
        CFPreferencesManager::GetHandlerForFileExt(handlers, MakeString("png"), &index);
    EXPECT_EQ(TextAt(found, "LSHandlerRoleAll"), "c");
    EXPECT_EQ(index, 3);
    EXPECT_EQ(CFPreferencesManager::GetHandlerForFileExt(handlers, MakeString("png"), nullptr),
              found);
    index = -7;
    EXPECT_EQ(CFPreferencesManager::GetHandlerForFileExt(handlers, MakeString("gif"), &index),
              nullptr);
    EXPECT_EQ(index, -7);
}

TEST_F(CFPreferencesManagerTest, ReadPlistFromURL_GivesContainersThatCanBeChanged) {
    EXPECT_TRUE(CFPreferencesManager::AssociateFileExtensionToBundle("png", "org.example.png"));
    const Owned<CFURLRef> url = CFPreferencesManager::GetLSPlistURL();
    CFPropertyListFormat format{};
    const Owned<CFPropertyListRef> list = CFPreferencesManager::ReadPlistFromURL(url, &format);
    const CFArrayRef handlers = ArrayAt(list, "LSHandlers");
    CFArrayAppendValue(const_cast<CFMutableArrayRef>(handlers), MakeString("more"));
    const CFIndex written = CFPreferencesManager::WritePlistToURL(list, url, format);
    EXPECT_EQ(static_cast<std::uintmax_t>(written),
              std::filesystem::file_size(preferences + "/com.apple.LaunchServices.plist"));
    EXPECT_EQ(CFArrayGetCount(ArrayAt(List(), "LSHandlers")), 2);
}

TEST_F(CFPreferencesManagerTest, WritePlistToURL_WhereNothingCanBeWritten_IsZeroBytes) {
    const Owned<CFURLRef> url = FileURL(folder / "none/list.plist");
    EXPECT_EQ(CFPreferencesManager::WritePlistToURL(MakeDictionary(), url,
                                                    kCFPropertyListBinaryFormat_v1_0),
              0);
    CFPropertyListFormat format{};
    EXPECT_EQ(CFPreferencesManager::ReadPlistFromURL(url, &format), nullptr);
}

TEST_F(CFPreferencesManagerTest, Unassociate_WithoutAList_IsFalseAndMakesNone) {
    EXPECT_FALSE(CFPreferencesManager::UnassociateFileExtensionToBundle("png"));
    EXPECT_TRUE(std::filesystem::is_empty(preferences));
}

TEST_F(CFPreferencesManagerTest, AddingAPath_WithAnItemWhoseLastComponentIsTheSame_DoesNothing) {
    CFPreferencesManager::AddAsStartupItem(L"/Other/A.app");
    CFPreferencesManager::AddAsStartupItem(L"/Applications/A.app");
    EXPECT_TRUE(CFPreferencesManager::CheckIfStartupItem(MakeString("/Other/A.app")));
    EXPECT_FALSE(CFPreferencesManager::CheckIfStartupItem(MakeString("/Applications/A.app")));
}

TEST_F(CFPreferencesManagerTest, CheckIfStartupItem_LooksForASubstringLetterByLetter) {
    EXPECT_FALSE(CFPreferencesManager::CheckIfStartupItem(MakeString("A.app")));
    CFPreferencesManager::AddAsStartupItem(L"/Applications/My A.app");
    EXPECT_TRUE(CFPreferencesManager::CheckIfStartupItem(MakeString("A.app")));
    EXPECT_TRUE(CFPreferencesManager::CheckIfStartupItem(MakeString("y A.")));
    EXPECT_FALSE(CFPreferencesManager::CheckIfStartupItem(MakeString("a.app")));
}

TEST_F(CFPreferencesManagerTest, RemovingASubstringOfSeveralItems_RemovesTheFirstOnly) {
    for (const wchar_t* const path : {L"/One/A", L"/Two/B", L"/Two/C"}) {
        CFPreferencesManager::AddAsStartupItem(path);
    }
    CFPreferencesManager::RemoveAsStartupItem(L"/Two/");
    EXPECT_TRUE(CFPreferencesManager::CheckIfStartupItem(MakeString("/One/A")));
    EXPECT_FALSE(CFPreferencesManager::CheckIfStartupItem(MakeString("/Two/B")));
    EXPECT_TRUE(CFPreferencesManager::CheckIfStartupItem(MakeString("/Two/C")));
}

// Three bytes a letter.
TEST_F(CFPreferencesManagerTest, AJapanesePath_IsFoundAddedOnceAndRemoved) {
    const Owned<CFStringRef> path = MakeString("/\u30A2\u30D7\u30EA/\u7B46\u5730\u56F3");
    const Owned<CFStringRef> name = MakeString("\u7B46\u5730");
    CFPreferencesManager::AddAsStartupItem(path);
    CFPreferencesManager::AddAsStartupItem(path);
    EXPECT_TRUE(CFPreferencesManager::CheckIfStartupItem(name));
    EXPECT_FALSE(CFPreferencesManager::CheckIfStartupItem(MakeString("\u5730\u7B46")));
    CFPreferencesManager::RemoveAsStartupItem(name);
    EXPECT_FALSE(CFPreferencesManager::CheckIfStartupItem(name)) << "it was there twice";
}

TEST_F(CFPreferencesManagerTest, RemovingAJapaneseName_LeavesTheItemsOfOtherNames) {
    CFPreferencesManager::AddAsStartupItem(L"/Applications/A.app");
    CFPreferencesManager::RemoveAsStartupItem(MakeString("\u7B46\u5730\u56F3"));
    EXPECT_TRUE(CFPreferencesManager::CheckIfStartupItem(MakeString("A.app")));
}

TEST_F(CFPreferencesManagerTest, NoName_IsThatOfNoItem) {
    CFPreferencesManager::AddAsStartupItem(L"/Applications/A.app");
    CFPreferencesManager::AddAsStartupItem(CFStringRef());
    CFPreferencesManager::RemoveAsStartupItem(CFStringRef());
    EXPECT_FALSE(CFPreferencesManager::CheckIfStartupItem(nullptr));
    EXPECT_TRUE(CFPreferencesManager::CheckIfStartupItem(MakeString("A.app")));
}

TEST_F(CFPreferencesManagerTest, AnItemThatIsAdded_IsHiddenAndOnTheUsersList) {
    CFPreferencesManager::AddAsStartupItem(L"/Applications/A.app");
    const Owned<CFPropertyListRef> list = ReadList(preferences + "/loginwindow.plist");
    const CFArrayRef items = ArrayAt(list, "AutoLaunchedApplicationDictionary");
    ASSERT_EQ(CFArrayGetCount(items), 1);
    EXPECT_EQ(TextAt(At(items, 0), "Path"), "/Applications/A.app");
    EXPECT_EQ(ValueAt(At(items, 0), "Hide"), kCFBooleanTrue);
    EXPECT_EQ(CFDictionaryGetCount(static_cast<CFDictionaryRef>(At(items, 0))), 2);
}

}  // namespace
