#include <CoreFoundation/CFURL.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <unistd.h>

#include <string>

#include "CFTestSupport.h"

namespace {

Owned<CFURLRef> OfText(const char* text) {
    const Owned<CFStringRef> string = MakeString(text);
    return CFURLCreateWithString(kCFAllocatorDefault, string, nullptr);
}

Owned<CFURLRef> OfPath(const std::string& path, bool isFolder = false) {
    return CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault,
                                                   reinterpret_cast<const UInt8*>(path.data()),
                                                   static_cast<CFIndex>(path.size()), isFolder);
}

std::string PathOf(CFURLRef url) {
    UInt8 buffer[PATH_MAX];
    if (!CFURLGetFileSystemRepresentation(url, true, buffer, sizeof buffer)) {
        return "<no path>";
    }
    return reinterpret_cast<const char*>(buffer);
}

TEST(CFURL, CreateWithString_OfAFileAddress_HasItsPath) {
    EXPECT_EQ(PathOf(OfText("file:///Users/ann/Library/Preferences/com.example.plist")),
              "/Users/ann/Library/Preferences/com.example.plist");
    EXPECT_EQ(PathOf(OfText("file://localhost/tmp/a")), "/tmp/a");
    EXPECT_EQ(PathOf(OfText("FILE://LocalHost/tmp/a")), "/tmp/a");
    EXPECT_EQ(PathOf(OfText("file:/tmp/a")), "/tmp/a");
}

TEST(CFURL, CreateWithString_OfWhatAnAddressCannotHold_GivesNull) {
    for (const char* text : {"", "file:///Users/ann lee/x", "file:///a\tb", "file:///a\n",
                             "file:///Z\xC3\xBCrich", "file:///a\"b", "file:///a<b", "file:///a>b",
                             "file:///a\\b", "file:///a^b", "file:///a`b", "file:///a{b",
                             "file:///a|b", "file:///a}b", "file:///a\x7F", "file:///a\x01"}) {
        EXPECT_EQ(OfText(text), nullptr) << text;
    }
}

TEST(CFURL, CreateWithString_OfABrokenEscape_GivesNull) {
    for (const char* text : {"file:///%", "file:///%4", "file:///%zz", "file:///%4g", "file:///a%",
                             "file:///100%/x"}) {
        EXPECT_EQ(OfText(text), nullptr) << text;
    }
}

TEST(CFURL, CreateWithString_OfASecondFragment_GivesNull) {
    EXPECT_NE(OfText("file:///a#b"), nullptr);
    EXPECT_EQ(OfText("file:///a#b#c"), nullptr);
}

TEST(CFURL, CreateWithString_TakesEveryLegalCharacter) {
    EXPECT_NE(OfText("scheme+1.-:abcXYZ019-_.!~*'();/?:@&=+$,[]%20%fF#"), nullptr);
}

TEST(CFURL, GetPath_UndoesEscapes) {
    EXPECT_EQ(PathOf(OfText("file:///ann%20lee/100%25/Z%C3%bCrich")),
              "/ann lee/100%/Z\xC3\xBCrich");
    EXPECT_EQ(PathOf(OfText("file:///a%2520b")), "/a%20b");
    EXPECT_EQ(PathOf(OfText("file:///a%20")), "/a ");
}

TEST(CFURL, GetPath_LeavesOutQueryAndFragment) {
    EXPECT_EQ(PathOf(OfText("file:///a/b?c/d")), "/a/b");
    EXPECT_EQ(PathOf(OfText("file:///a/b#c/d")), "/a/b");
    EXPECT_EQ(PathOf(OfText("file:///a/b%3Fc%23d")), "/a/b?c#d");
}

TEST(CFURL, GetPath_OfAFolder_HasNoClosingSlash) {
    EXPECT_EQ(PathOf(OfText("file:///tmp/")), "/tmp");
    EXPECT_EQ(PathOf(OfText("file:///")), "/");
    EXPECT_EQ(PathOf(OfPath("/tmp/", true)), "/tmp");
    EXPECT_EQ(PathOf(OfPath("/", true)), "/");
}

TEST(CFURL, GetPath_OfAnotherHost_IsRefused) {
    EXPECT_EQ(PathOf(OfText("file://server/tmp/a")), "<no path>");
    // What a home folder that was not found makes of an address.
    EXPECT_EQ(PathOf(OfText("file://[FAIL]/Library/Preferences/a.plist")), "<no path>");
}

TEST(CFURL, GetPath_OfAnotherScheme_IsRefused) {
    EXPECT_EQ(PathOf(OfText("http://localhost/tmp/a")), "<no path>");
    EXPECT_EQ(PathOf(OfText("/tmp/a")), "<no path>");
    EXPECT_EQ(PathOf(OfText("files:///tmp/a")), "<no path>");
}

TEST(CFURL, GetPath_WithoutAnAbsolutePath_IsRefused) {
    EXPECT_EQ(PathOf(OfText("file:")), "<no path>");
    EXPECT_EQ(PathOf(OfText("file://")), "<no path>");
    EXPECT_EQ(PathOf(OfText("file://localhost")), "<no path>");
    EXPECT_EQ(PathOf(OfText("file:tmp/a")), "<no path>");
}

TEST(CFURL, GetPath_WithAnEscapedNulByte_IsRefused) {
    EXPECT_EQ(PathOf(OfText("file:///tmp/a%00b")), "<no path>");
}

TEST(CFURL, GetPath_IntoABufferThatJustFits_Succeeds) {
    const Owned<CFURLRef> url = OfText("file:///a%20b/");
    UInt8 buffer[6] = {'#', '#', '#', '#', '#', '#'};
    EXPECT_EQ(CFURLGetFileSystemRepresentation(url, true, buffer, 5), 1);
    EXPECT_STREQ(reinterpret_cast<const char*>(buffer), "/a b");
    EXPECT_EQ(buffer[5], '#');
}

TEST(CFURL, GetPath_IntoABufferOneTooSmall_FailsAndLeavesIt) {
    const Owned<CFURLRef> url = OfText("file:///a%20b/");
    UInt8 buffer[5] = {'#', '#', '#', '#', '#'};
    EXPECT_EQ(CFURLGetFileSystemRepresentation(url, true, buffer, 4), 0);
    EXPECT_EQ(CFURLGetFileSystemRepresentation(url, true, buffer, 0), 0);
    EXPECT_EQ(CFURLGetFileSystemRepresentation(url, true, buffer, -1), 0);
    EXPECT_EQ(buffer[0], '#');
}

TEST(CFURL, OfAPath_GivesTheSamePathBack) {
    for (const char* path :
         {"/", "/Users/Shared/icon.png", "/ann lee/100%/a#b?c;d", "/Z\xC3\xBCrich",
          "/not UTF-8 \xFF\xC0\x80", "/line\nfeed", "/%20", "/a//b", "/[x]{y}|z"}) {
        EXPECT_EQ(PathOf(OfPath(path)), path);
    }
}

TEST(CFURL, OfARelativePath_StartsAtTheCurrentFolder) {
    char folder[PATH_MAX];
    ASSERT_NE(getcwd(folder, sizeof folder), nullptr);
    EXPECT_EQ(PathOf(OfPath("some file")), std::string(folder) + "/some file");
}

TEST(CFURL, OfPartOfABuffer_ReadsOnlyThatPart) {
    const Owned<CFURLRef> url = CFURLCreateFromFileSystemRepresentation(
        kCFAllocatorDefault, reinterpret_cast<const UInt8*>("/tmp/abc"), 6, false);
    EXPECT_EQ(PathOf(url), "/tmp/a");
}

TEST(CFURL, OfNoPath_GivesNull) {
    EXPECT_EQ(OfPath(""), nullptr);
    EXPECT_EQ(OfPath(std::string("/tmp\0/a", 7)), nullptr);
}

TEST(CFURL, EqualTexts_MakeEqualAddresses) {
    EXPECT_TRUE(CFEqual(OfText("file:///tmp/a"), OfText("file:///tmp/a")));
    EXPECT_EQ(CFHash(OfText("file:///tmp/a")), CFHash(OfText("file:///tmp/a")));
    EXPECT_TRUE(CFEqual(OfText("file:///tmp/a%20b"), OfPath("/tmp/a b")));
    EXPECT_FALSE(CFEqual(OfText("file:///tmp/a"), OfText("file:///tmp/b")));
    EXPECT_FALSE(CFEqual(OfPath("/tmp"), OfPath("/tmp", true)));
}

TEST(CFURLDeathTest, CreateWithString_WithABase_Stops) {
    const Owned<CFURLRef> base = OfText("file:///tmp/");
    EXPECT_DEATH(CFURLCreateWithString(kCFAllocatorDefault, CFSTR("a"), base),
                 "CFURLCreateWithString: a base is given");
}

TEST(CFURLDeathTest, NullAndWrongReferences_Stop) {
    UInt8 buffer[8];
    EXPECT_DEATH(CFURLCreateWithString(kCFAllocatorDefault, nullptr, nullptr),
                 "CFURLCreateWithString: expected a CFString, got a null reference");
    EXPECT_DEATH(CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault, nullptr, 1, false),
                 "CFURLCreateFromFileSystemRepresentation: there is no path");
    EXPECT_DEATH(CFURLGetFileSystemRepresentation(nullptr, true, buffer, sizeof buffer),
                 "CFURLGetFileSystemRepresentation: expected a CFURL, got a null reference");
    EXPECT_DEATH(CFURLGetFileSystemRepresentation(OfText("file:///a"), true, nullptr, 8),
                 "CFURLGetFileSystemRepresentation: the buffer is null");
}

}  // namespace
