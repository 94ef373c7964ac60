// Launch Services: finding applications by their bundle identifier. Opening has its own tests.
//
// The user's home is a folder of the test's own, so what is found lies in its folder Applications.

#include <CarbonCore/MacErrors.h>
#include <CoreFoundation/CoreFoundation.h>
#include <LaunchServices/LSInfo.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <string>

#include "LaunchServices/ApplicationFolder.h"
#include "unit/ApplicationTesting.h"
#include "unit/CFTestSupport.h"
#include "unit/FilesTesting.h"
#include "unit/support/Waiting.h"

namespace {

namespace fs = std::filesystem;

using applicationtest::Bundle;
using applicationtest::MakeBundle;
using applicationtest::MakeFolder;
using applicationtest::PathOf;
using applicationtest::RefOf;
using filestest::TemporaryFolder;
using filestest::WriteFile;

constexpr FSRef kEmptyRef = {};

Bundle Called(const std::string& identifier, const std::string& version = "1") {
    Bundle bundle;
    bundle.identifier = identifier;
    bundle.version = version;
    return bundle;
}

// The path, or the name of the status.
std::string Find(const std::string& identifier) {
    const auto text = MakeString(identifier.c_str());
    FSRef ref = {};
    const OSStatus status =
        LSFindApplicationForInfo(kLSUnknownCreator, text, nullptr, &ref, nullptr);
    return status == noErr ? PathOf(ref) : "status " + std::to_string(status);
}

const std::string kNotFound = "status " + std::to_string(kLSApplicationNotFoundErr);

OSStatus Register(const std::string& path) {
    const FSRef ref = RefOf(path);
    return LSRegisterFSRef(&ref, true);
}

class LaunchServices : public testing::Test {
  protected:
    LaunchServices()
        : place("TMPDIR", fs::exists("/dev/shm") ? "/dev/shm" : nullptr),
          home("HOME", folder.Path().c_str()) {
        MakeFolder(folder / "Applications");
        MakeFolder(folder / "elsewhere");
    }

    std::string App(const std::string& name) const { return folder / "Applications/" + name; }
    std::string Elsewhere(const std::string& name) const { return folder / "elsewhere/" + name; }
    void WriteInfo(const std::string& bundle, const std::string& text) const {
        MakeFolder(bundle + "/Contents/MacOS");
        WriteFile(bundle + "/Contents/Info.plist", text);
    }

    // In memory where that is possible: a disk takes seconds for hundreds of bundles.
    const filestest::Environment place;
    const TemporaryFolder folder;
    const filestest::Environment home;
};

std::string Identified(const std::string& identifier) {
    return "<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key>" + identifier +
           "</dict></plist>";
}

TEST_F(LaunchServices, Find_OfAnApplicationOfTheUsers_FindsIt) {
    MakeBundle(App("One.app"), Called("com.example.one"));
    MakeBundle(App("Two.app"), Called("com.example.two"));
    EXPECT_EQ(Find("com.example.one"), App("One.app"));
    EXPECT_EQ(Find("com.example.two"), App("Two.app"));
    EXPECT_EQ(Find("com.example.three"), kNotFound);
}

TEST_F(LaunchServices, Find_DoesNotMindLetterCase) {
    MakeBundle(App("One.app"), Called("com.Example.ONE"));
    EXPECT_EQ(Find("COM.example.one"), App("One.app"));
}

TEST_F(LaunchServices, Find_TakesTheWholeIdentifier) {
    MakeBundle(App("One.app"), Called("com.example.one"));
    for (const char* const part : {"com.example.on", "com.example.one.", "", " com.example.one"}) {
        EXPECT_EQ(Find(part), kNotFound) << part;
    }
}

TEST_F(LaunchServices, Find_LooksTwoFoldersDeep) {
    MakeBundle(App("Maker/One.app"), Called("com.example.one"));
    MakeBundle(App("Maker/Suite/Two.app"), Called("com.example.two"));
    MakeBundle(App("Maker/Suite/More/Three.app"), Called("com.example.three"));
    MakeBundle(App(".hidden/Four.app"), Called("com.example.four"));
    EXPECT_EQ(Find("com.example.one"), App("Maker/One.app"));
    EXPECT_EQ(Find("com.example.two"), App("Maker/Suite/Two.app"));
    EXPECT_EQ(Find("com.example.three"), kNotFound);
    EXPECT_EQ(Find("com.example.four"), kNotFound);
}

TEST_F(LaunchServices, Find_LooksIntoNoApplication) {
    MakeBundle(App("One.app"), Called("com.example.one"));
    MakeBundle(App("One.app/Inner.app"), Called("com.example.inner"));
    EXPECT_EQ(Find("com.example.inner"), kNotFound);
}

TEST_F(LaunchServices, Find_GivesNamesOfAnyBytes) {
    const std::string names[] = {"With Blanks.app", "It's \"quoted\".app",
                                 "M\xC3\xBC\xE6\x9D\xB1.app", "line\nbreak.app", "\xFF.app"};
    int number = 0;
    for (const std::string& name : names) {
        const std::string identifier = "com.example.name" + std::to_string(number++);
        MakeBundle(App(name), Called(identifier));
        EXPECT_EQ(Find(identifier), App(name));
    }
}

TEST_F(LaunchServices, Find_OfAnIdentifierWithOtherLetters_FindsIt) {
    MakeBundle(App("One.app"), Called("com.example.M\xC3\xBCnchen &amp; Co"));
    EXPECT_EQ(Find("com.example.M\xC3\xBCnchen & Co"), App("One.app"));
}

TEST_F(LaunchServices, Find_PassesOverBundlesThatSayNothing) {
    MakeFolder(App("Empty.app"));
    MakeFolder(App("No Info.app/Contents/MacOS"));
    MakeFolder(App("Folder.app/Contents/Info.plist"));
    WriteInfo(App("Broken.app"), "<plist><dict><key>CFBundleIdentifier</key><string>com.example.b");
    WriteInfo(App("Nothing.app"), "");
    WriteInfo(App("Bytes.app"), std::string("bplist00\xFF\xFF\xFF\x00\x01", 13));
    WriteInfo(App("Array.app"), "<plist><array><string>com.example.b</string></array></plist>");
    WriteInfo(App("Number.app"), Identified("<integer>5</integer>"));
    WriteInfo(App("None.app"), "<plist><dict/></plist>");
    WriteFile(App("File.app"), "no folder");
    fs::create_symlink("/dev/zero", App("Zero.app"));
    MakeFolder(App("Endless.app/Contents"));
    fs::create_symlink("/dev/zero", App("Endless.app/Contents/Info.plist"));
    MakeFolder(App("Pipe.app/Contents"));
    ASSERT_EQ(mkfifo(App("Pipe.app/Contents/Info.plist").c_str(), 0644), 0);
    MakeBundle(App("Zz good.app"), Called("com.example.good"));
    EXPECT_EQ(Find("com.example.b"), kNotFound);
    EXPECT_EQ(Find(""), kNotFound);
    EXPECT_EQ(Find("5"), kNotFound);
    EXPECT_EQ(Find("com.example.good"), App("Zz good.app"));
}

TEST_F(LaunchServices, Find_OfABundleWithoutTheFolderContents_FindsIt) {
    MakeFolder(App("Flat.app"));
    WriteFile(App("Flat.app/Info.plist"), Identified("<string>com.example.flat</string>"));
    EXPECT_EQ(Find("com.example.flat"), App("Flat.app"));
}

TEST_F(LaunchServices, Find_OfSeveralWithOneIdentifier_TakesTheHighestVersion) {
    MakeBundle(App("A.app"), Called("com.example.one", "1.3"));
    MakeBundle(App("B.app"), Called("com.example.one", "1.20"));
    MakeBundle(App("C.app"), Called("com.example.one", "1.20"));
    MakeBundle(App("D.app"), Called("com.example.one", "beta"));
    EXPECT_EQ(Find("com.example.one"), App("B.app"));
    MakeBundle(App("Folder/E.app"), Called("com.example.one", "2"));
    EXPECT_EQ(Find("com.example.one"), App("Folder/E.app"));
    fs::remove_all(App("Folder"));
    fs::remove_all(App("B.app"));
    EXPECT_EQ(Find("com.example.one"), App("C.app"));
}

TEST_F(LaunchServices, Find_OfALinkToABundle_FindsNothing) {
    MakeBundle(Elsewhere("One.app"), Called("com.example.one"));
    MakeBundle(Elsewhere("Folder/Two.app"), Called("com.example.two"));
    fs::create_symlink(Elsewhere("One.app"), App("One.app"));
    fs::create_symlink(Elsewhere("Folder"), App("Folder"));
    EXPECT_EQ(Find("com.example.one"), kNotFound);
    EXPECT_EQ(Find("com.example.two"), kNotFound);
}

TEST_F(LaunchServices, Find_WhenTheApplicationsFolderItselfIsALink_GivesTheRealPath) {
    fs::remove(folder / "Applications");
    fs::create_directory_symlink(folder / "elsewhere", folder / "Applications");
    MakeBundle(Elsewhere("One.app"), Called("com.example.one"));
    EXPECT_EQ(Find("com.example.one"), Elsewhere("One.app"));
}

TEST_F(LaunchServices, Find_WithoutAnApplicationsFolder_FindsNothing) {
    fs::remove(folder / "Applications");
    EXPECT_EQ(Find("com.example.one"), kNotFound);
    MakeBundle(App("One.app"), Called("com.example.one"));
    EXPECT_EQ(Find("com.example.one"), App("One.app"));
}

// An installer makes the bundle first and writes into it afterwards.
TEST_F(LaunchServices, Find_WhileSomethingIsInstalled_SeesEveryStep) {
    EXPECT_EQ(Find("com.example.one"), kNotFound);
    MakeFolder(App("One.app/Contents/MacOS"));
    EXPECT_EQ(Find("com.example.one"), kNotFound);
    WriteFile(App("One.app/Contents/Info.plist"), "<plist><dict>");
    EXPECT_EQ(Find("com.example.one"), kNotFound);
    WriteFile(App("One.app/Contents/Info.plist"), Identified("<string>com.example.one</string>"));
    EXPECT_EQ(Find("com.example.one"), App("One.app"));
    WriteFile(App("One.app/Contents/Info.plist"), Identified("<string>com.example.two</string>"));
    EXPECT_EQ(Find("com.example.one"), kNotFound);
    EXPECT_EQ(Find("com.example.two"), App("One.app"));
    fs::remove_all(App("One.app"));
    EXPECT_EQ(Find("com.example.two"), kNotFound);
}

// What has been there for a while is not read again, and all that changes is still seen.
TEST_F(LaunchServices, Find_LongAfterTheLastChange_StillSeesEveryChange) {
    MakeBundle(App("One.app"), Called("com.example.one"));
    MakeBundle(App("Folder/Two.app"), Called("com.example.two"));
    MakeFolder(App("Folder/Empty.app"));
    // Times are only trusted when they are old enough for any disk's clock to have moved on.
    const auto isOld = [this] {
        struct stat status;
        EXPECT_EQ(stat(App("Folder").c_str(), &status), 0);
        const auto age = std::chrono::system_clock::now() -
                         std::chrono::system_clock::from_time_t(status.st_ctim.tv_sec);
        return age > std::chrono::milliseconds(3200);
    };
    ASSERT_TRUE(WaitUntil(isOld));
    EXPECT_EQ(Find("com.example.one"), App("One.app"));
    EXPECT_EQ(Find("com.example.one"), App("One.app"));
    WriteFile(App("One.app/Contents/Info.plist"), Identified("<string>com.example.new</string>"));
    EXPECT_EQ(Find("com.example.one"), kNotFound);
    EXPECT_EQ(Find("com.example.new"), App("One.app"));
    MakeFolder(App("Folder/Empty.app/Contents"));
    WriteFile(App("Folder/Empty.app/Contents/Info.plist"),
              Identified("<string>com.example.filled</string>"));
    EXPECT_EQ(Find("com.example.filled"), App("Folder/Empty.app"));
    MakeBundle(App("Folder/Three.app"), Called("com.example.three"));
    EXPECT_EQ(Find("com.example.three"), App("Folder/Three.app"));
    fs::rename(App("Folder/Two.app"), App("Two.app"));
    EXPECT_EQ(Find("com.example.two"), App("Two.app"));
    fs::remove_all(App("Folder"));
    EXPECT_EQ(Find("com.example.three"), kNotFound);
    EXPECT_EQ(Find("com.example.two"), App("Two.app"));
}

TEST_F(LaunchServices, Find_AmongFiveHundredBundles_FindsEachOfThem) {
    for (int number = 0; number < 500; ++number) {
        const std::string text = std::to_string(number);
        MakeBundle(App("Folder " + std::to_string(number % 7) + "/App " + text + ".app"),
                   Called("com.example.app" + text));
    }
    for (int number = 0; number < 500; number += 50) {
        const std::string text = std::to_string(number);
        EXPECT_EQ(Find("com.example.app" + text),
                  App("Folder " + std::to_string(number % 7) + "/App " + text + ".app"));
    }
    EXPECT_EQ(Find("com.example.app500"), kNotFound);
}

TEST_F(LaunchServices, Find_InTheTrash_SaysSo) {
    const std::string trash = folder / ".local/share/Trash/files/";
    MakeBundle(trash + "One.app", Called("com.example.one", "9"));
    EXPECT_EQ(Find("com.example.one"), kNotFound);
    ASSERT_EQ(Register(trash + "One.app"), noErr);
    EXPECT_EQ(Find("com.example.one"), "status " + std::to_string(kLSAppInTrashErr));
    // One that is not in the trash counts before it, whatever their versions.
    MakeBundle(App("One.app"), Called("com.example.one", "1"));
    EXPECT_EQ(Find("com.example.one"), App("One.app"));
}

TEST_F(LaunchServices, Find_WithWhatIsNotOffered_IsRefused) {
    const CFStringRef text = CFSTR("com.example.one");
    FSRef ref = {};
    CFURLRef url = nullptr;
    EXPECT_EQ(LSFindApplicationForInfo(kLSUnknownCreator, nullptr, nullptr, &ref, nullptr),
              paramErr);
    EXPECT_EQ(LSFindApplicationForInfo(0x41424344, text, nullptr, &ref, nullptr), paramErr);
    EXPECT_EQ(LSFindApplicationForInfo(kLSUnknownCreator, text, text, &ref, nullptr), paramErr);
    EXPECT_EQ(LSFindApplicationForInfo(kLSUnknownCreator, text, nullptr, nullptr, nullptr),
              paramErr);
    EXPECT_EQ(LSFindApplicationForInfo(kLSUnknownCreator, text, nullptr, &ref, &url), paramErr);
}

TEST_F(LaunchServices, Find_ThatFails_LeavesTheReferenceAsItWas) {
    FSRef ref = RefOf(folder.Path());
    const FSRef before = ref;
    EXPECT_EQ(LSFindApplicationForInfo(kLSUnknownCreator, CFSTR("com.example.none"), nullptr, &ref,
                                       nullptr),
              kLSApplicationNotFoundErr);
    EXPECT_TRUE(std::equal(std::begin(ref.hidden), std::end(ref.hidden), before.hidden));
}

TEST_F(LaunchServices, Register_OfABundleElsewhere_MakesItKnownUntilItHasGone) {
    MakeBundle(Elsewhere("One.app"), Called("com.example.elsewhere"));
    EXPECT_EQ(Find("com.example.elsewhere"), kNotFound);
    EXPECT_EQ(Register(Elsewhere("One.app")), noErr);
    EXPECT_EQ(Register(Elsewhere("One.app")), noErr);
    EXPECT_EQ(Find("com.example.elsewhere"), Elsewhere("One.app"));
    const FSRef ref = RefOf(Elsewhere("One.app"));
    fs::remove_all(Elsewhere("One.app"));
    EXPECT_EQ(LSRegisterFSRef(&ref, true), fnfErr);
    EXPECT_EQ(Find("com.example.elsewhere"), kNotFound);
    // It has been forgotten, so one that comes in its place is unknown.
    MakeBundle(Elsewhere("One.app"), Called("com.example.elsewhere"));
    EXPECT_EQ(Find("com.example.elsewhere"), kNotFound);
}

TEST_F(LaunchServices, Register_OfABundleThatIsKnownAnyway_ChangesNothing) {
    MakeBundle(App("A.app"), Called("com.example.one"));
    MakeBundle(App("B.app"), Called("com.example.one"));
    EXPECT_EQ(Register(App("B.app")), noErr);
    EXPECT_EQ(Find("com.example.one"), App("A.app"));
}

TEST_F(LaunchServices, Register_OfAFolder_RegistersWhatLiesInIt) {
    MakeBundle(Elsewhere("One.app"), Called("com.example.one"));
    MakeBundle(Elsewhere("Two.app"), Called("com.example.two"));
    MakeBundle(Elsewhere("Inner/Three.app"), Called("com.example.three"));
    EXPECT_EQ(Register(folder / "elsewhere"), noErr);
    EXPECT_EQ(Find("com.example.one"), Elsewhere("One.app"));
    EXPECT_EQ(Find("com.example.two"), Elsewhere("Two.app"));
    EXPECT_EQ(Find("com.example.three"), kNotFound);
}

TEST_F(LaunchServices, Register_OfWhatHasNothingToRegister_SaysSo) {
    MakeFolder(Elsewhere("Empty"));
    WriteFile(Elsewhere("file"));
    MakeFolder(Elsewhere("No Info.app"));
    WriteInfo(Elsewhere("No Identifier.app"), Identified("<integer>5</integer>"));
    WriteInfo(Elsewhere("Broken.app"), "<plist><dict>");
    EXPECT_EQ(Register(Elsewhere("Empty")), kLSNoRegistrationInfoErr);
    EXPECT_EQ(Register(Elsewhere("file")), kLSNoRegistrationInfoErr);
    EXPECT_EQ(Register(Elsewhere("No Info.app")), kLSNoRegistrationInfoErr);
    EXPECT_EQ(Register(Elsewhere("No Identifier.app")), kLSNoRegistrationInfoErr);
    EXPECT_EQ(Register(Elsewhere("Broken.app")), kLSDataErr);
    EXPECT_EQ(Register(folder / "elsewhere"), kLSNoRegistrationInfoErr);
}

TEST_F(LaunchServices, Register_OfNoReference_IsRefused) {
    FSRef garbage;
    std::fill(std::begin(garbage.hidden), std::end(garbage.hidden), UInt8{0x5A});
    EXPECT_EQ(LSRegisterFSRef(&kEmptyRef, true), fnfErr);
    EXPECT_EQ(LSRegisterFSRef(&garbage, true), fnfErr);
    EXPECT_EQ(LSRegisterFSRef(nullptr, true), paramErr);
}

}  // namespace
