#include <Carbon/Carbon.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "CFTestSupport.h"
#include "TemporaryFolder.h"

namespace {

std::string InfoPlist(const std::string& entries) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>" + entries +
           "</dict></plist>\n";
}

Owned<CFURLRef> Address(const std::filesystem::path& path) {
    const std::string text = path.string();
    return CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault,
                                                   reinterpret_cast<const UInt8*>(text.data()),
                                                   static_cast<CFIndex>(text.size()), true);
}

Owned<CFBundleRef> Bundle(const std::filesystem::path& path) {
    return CFBundleCreate(kCFAllocatorDefault, Address(path));
}

std::string Value(CFBundleRef bundle, const char* key) {
    const Owned<CFStringRef> name = MakeString(key);
    const void* const value = CFDictionaryGetValue(CFBundleGetInfoDictionary(bundle), name);
    if (value == nullptr) return "<none>";
    return CFGetTypeID(value) == CFStringGetTypeID() ? TextOf(static_cast<CFStringRef>(value))
                                                     : "<no text>";
}

std::string PathOf(CFURLRef url) {
    UInt8 path[4096];
    if (url == nullptr || !CFURLGetFileSystemRepresentation(url, true, path, sizeof path)) {
        return "<none>";
    }
    return reinterpret_cast<const char*>(path);
}

class CFBundle : public ::testing::Test {
  protected:
    TemporaryFolder folder;
    const std::filesystem::path app = folder.Path() / "Some App.app";
};

TEST_F(CFBundle, IdentifierKey_IsItsText) {
    EXPECT_EQ(TextOf(kCFBundleIdentifierKey), "CFBundleIdentifier");
}

TEST_F(CFBundle, GetInfoDictionary_HasWhatTheFileSays) {
    folder.Write("Some App.app/Contents/Info.plist",
                 InfoPlist("<key>CFBundleGetInfoString</key><string>1.0.0 of today</string>"
                           "<key>LSBackgroundOnly</key><true/>"));
    const Owned<CFBundleRef> bundle = Bundle(app);
    ASSERT_NE(bundle, nullptr);
    EXPECT_EQ(CFGetTypeID(bundle), CFBundleGetTypeID());
    EXPECT_EQ(Value(bundle, "CFBundleGetInfoString"), "1.0.0 of today");
    EXPECT_EQ(Value(bundle, "LSBackgroundOnly"), "<no text>");
    EXPECT_EQ(Value(bundle, "CFBundleName"), "<none>");
}

TEST_F(CFBundle, GetInfoDictionary_OfABinaryFile_HasWhatItSays) {
    // {"a": "b"}
    const std::string objects(
        "\xD1\x01\x02\x51"
        "a\x51"
        "b",
        7);
    const std::string table("\x08\x0B\x0D", 3);
    const std::string trailer = std::string(6, '\0') + "\x01\x01" + std::string(7, '\0') + "\x03" +
                                std::string(8, '\0') + std::string(7, '\0') + "\x0F";
    folder.Write("Some App.app/Contents/Info.plist", "bplist00" + objects + table + trailer);
    EXPECT_EQ(Value(Bundle(app), "a"), "b");
}

TEST_F(CFBundle, GetInfoDictionary_OfAFlatBundle_IsFoundAtItsTop) {
    folder.Write("Some App.app/Info.plist", InfoPlist("<key>a</key><string>flat</string>"));
    EXPECT_EQ(Value(Bundle(app), "a"), "flat");
    folder.Write("Some App.app/Contents/Info.plist",
                 InfoPlist("<key>a</key><string>deep</string>"));
    EXPECT_EQ(Value(Bundle(app), "a"), "deep");
}

TEST_F(CFBundle, GetInfoDictionary_WithoutAFile_IsEmpty) {
    std::filesystem::create_directories(app);
    const Owned<CFBundleRef> bundle = Bundle(app);
    ASSERT_NE(bundle, nullptr);
    EXPECT_EQ(CFDictionaryGetCount(CFBundleGetInfoDictionary(bundle)), 0);
}

TEST_F(CFBundle, GetInfoDictionary_OfABrokenFile_IsEmpty) {
    std::string deep;
    for (int level = 0; level < 100000; ++level) {
        deep += "<array>";
    }
    for (const std::string& content :
         {std::string(), std::string("not a property list"), std::string("<plist><dict></plist>"),
          std::string("<plist><array/></plist>"), std::string("<plist><string>a</string></plist>"),
          std::string("bplist00"), "<plist>" + deep, std::string(100, '\0'),
          "bplist00" + std::string(32, '\xFF')}) {
        folder.Write("Some App.app/Contents/Info.plist", content);
        EXPECT_EQ(CFDictionaryGetCount(CFBundleGetInfoDictionary(Bundle(app))), 0)
            << content.substr(0, 40);
    }
}

// A pipe in the file's place would keep the reader waiting for ever.
TEST_F(CFBundle, GetInfoDictionary_OfAPipe_IsEmpty) {
    std::filesystem::create_directories(app / "Contents");
    ASSERT_EQ(mkfifo((app / "Contents/Info.plist").c_str(), 0600), 0);
    EXPECT_EQ(CFDictionaryGetCount(CFBundleGetInfoDictionary(Bundle(app))), 0);
}

TEST_F(CFBundle, GetInfoDictionary_OfAHugeFile_IsEmpty) {
    const auto file = folder.Write("Some App.app/Contents/Info.plist", "<plist>");
    std::filesystem::resize_file(file, std::uintmax_t{1} << 40);
    EXPECT_EQ(CFDictionaryGetCount(CFBundleGetInfoDictionary(Bundle(app))), 0);
}

TEST_F(CFBundle, GetInfoDictionary_CannotBeChanged) {
    std::filesystem::create_directories(app);
    const Owned<CFBundleRef> bundle = Bundle(app);
    auto* const info = const_cast<__CFDictionary*>(CFBundleGetInfoDictionary(bundle));
    EXPECT_DEATH(CFDictionarySetValue(info, CFSTR("a"), CFSTR("b")), "immutable");
}

TEST_F(CFBundle, GetInfoDictionary_OfAFileThatChanged_IsThatOfTheFirstTime) {
    folder.Write("Some App.app/Contents/Info.plist", InfoPlist("<key>a</key><string>1</string>"));
    const Owned<CFBundleRef> bundle = Bundle(app);
    EXPECT_EQ(Value(bundle, "a"), "1");
    folder.Write("Some App.app/Contents/Info.plist", InfoPlist("<key>a</key><string>2</string>"));
    EXPECT_EQ(Value(bundle, "a"), "1");
    EXPECT_EQ(Value(Bundle(app), "a"), "2");
}

TEST_F(CFBundle, Create_OfWhatIsNoFolder_IsNull) {
    EXPECT_EQ(Bundle(app), nullptr);
    EXPECT_EQ(Bundle(folder.Write("file.app", "x")), nullptr);
    const Owned<CFURLRef> elsewhere =
        CFURLCreateWithString(kCFAllocatorDefault, CFSTR("http://example.com/a.app"), nullptr);
    EXPECT_EQ(CFBundleCreate(kCFAllocatorDefault, elsewhere), nullptr);
}

TEST_F(CFBundle, CopyResourceURL_FindsAFileByNameAndType) {
    folder.Write("Some App.app/Contents/Resources/Icon.icns", "x");
    folder.Write("Some App.app/Contents/Resources/Sub/plain", "x");
    const Owned<CFBundleRef> bundle = Bundle(app);
    const auto find = [&](CFStringRef name, CFStringRef type, CFStringRef inside) {
        const Owned<CFURLRef> url = CFBundleCopyResourceURL(bundle, name, type, inside);
        return PathOf(url);
    };
    const std::string resources = (app / "Contents/Resources").string();
    EXPECT_EQ(find(CFSTR("Icon"), CFSTR("icns"), nullptr), resources + "/Icon.icns");
    EXPECT_EQ(find(CFSTR("Icon.icns"), nullptr, nullptr), resources + "/Icon.icns");
    EXPECT_EQ(find(CFSTR("plain"), nullptr, CFSTR("Sub")), resources + "/Sub/plain");
    EXPECT_EQ(find(CFSTR("Icon"), nullptr, nullptr), "<none>");
    EXPECT_EQ(find(CFSTR("Icon"), CFSTR("png"), nullptr), "<none>");
    EXPECT_EQ(find(CFSTR("Icon"), CFSTR("icns"), CFSTR("Sub")), "<none>");
    EXPECT_EQ(find(CFSTR(""), nullptr, nullptr), "<none>");
}

TEST_F(CFBundle, CopyResourceURL_OfALocalizedResource_IsNull) {
    folder.Write("Some App.app/Contents/Resources/English.lproj/Icon.icns", "x");
    EXPECT_EQ(CFBundleCopyResourceURL(Bundle(app), CFSTR("Icon"), CFSTR("icns"), nullptr), nullptr);
}

TEST_F(CFBundle, WrongAndNullReferences_Stop) {
    EXPECT_DEATH(CFBundleCreate(kCFAllocatorDefault, nullptr), "CFBundleCreate: expected a CFURL");
    EXPECT_DEATH(CFBundleGetInfoDictionary(nullptr), "CFBundleGetInfoDictionary");
    EXPECT_DEATH(CFBundleCopyResourceURL(nullptr, CFSTR("a"), nullptr, nullptr),
                 "CFBundleCopyResourceURL");
}

TEST_F(CFBundle, URLFromFSRef_IsThatOfTheFile) {
    const std::filesystem::path file = folder.Write("a b", "x");
    FSRef ref;
    ASSERT_EQ(FSPathMakeRef(reinterpret_cast<const UInt8*>(file.c_str()), &ref, nullptr), noErr);
    const Owned<CFURLRef> url = CFURLCreateFromFSRef(kCFAllocatorDefault, &ref);
    EXPECT_EQ(PathOf(url), file.string());
    std::filesystem::remove(file);
    EXPECT_EQ(CFURLCreateFromFSRef(kCFAllocatorDefault, &ref), nullptr);
    const FSRef none = {};
    EXPECT_EQ(CFURLCreateFromFSRef(kCFAllocatorDefault, &none), nullptr);
    EXPECT_DEATH(CFURLCreateFromFSRef(kCFAllocatorDefault, nullptr), "CFURLCreateFromFSRef");
}

}  // namespace
