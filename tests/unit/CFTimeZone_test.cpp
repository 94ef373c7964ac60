#include <CoreFoundation/CFTimeZone.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <optional>

#include "CFTestSupport.h"
#include "CoreFoundation/TimeZone.h"

namespace {

namespace fs = std::filesystem;

// Files of a system of our own in a folder that goes with the test.
class TimeZoneName : public testing::Test {
  protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "timezone-test-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        root = pattern;
        fs::create_directories(root / "etc");
    }
    void TearDown() override { fs::remove_all(root); }

    std::string NameWith(const char* tz) const {
        const std::string localtime = (root / "etc/localtime").string();
        const std::string timezone = (root / "etc/timezone").string();
        const std::string zoneinfo = (root / "zoneinfo").string();
        frameworks::TimeZoneSources sources;
        sources.tz = tz;
        sources.localtimeLink = localtime.c_str();
        sources.timezoneFile = timezone.c_str();
        sources.zoneinfoFolder = zoneinfo.c_str();
        return frameworks::SystemTimeZoneName(sources);
    }

    void LinkLocaltime(const fs::path& target) const {
        fs::remove(root / "etc/localtime");
        fs::create_symlink(target, root / "etc/localtime");
    }

    void WriteFile(const fs::path& name, const std::string& text) const {
        fs::create_directories((root / name).parent_path());
        std::ofstream(root / name) << text;
    }

    fs::path root;
};

TEST_F(TimeZoneName, WhenNothingTells_IsGMT) {
    EXPECT_EQ(NameWith(nullptr), "GMT");
    EXPECT_EQ(NameWith(""), "GMT");
}

TEST_F(TimeZoneName, TheVariable_MayBeANameWithOrWithoutColon) {
    EXPECT_EQ(NameWith("Europe/Zurich"), "Europe/Zurich");
    EXPECT_EQ(NameWith(":Europe/Zurich"), "Europe/Zurich");
    EXPECT_EQ(NameWith("America/North_Dakota/New_Salem"), "America/North_Dakota/New_Salem");
    EXPECT_EQ(NameWith("America/Port-au-Prince"), "America/Port-au-Prince");
    EXPECT_EQ(NameWith("Etc/GMT+1"), "Etc/GMT+1");
    EXPECT_EQ(NameWith("Mideast/Riyadh87"), "Mideast/Riyadh87");
    EXPECT_EQ(NameWith("Japan"), "Japan");
}

TEST_F(TimeZoneName, TheVariable_MayBeAPathBelowAZoneinfoFolder) {
    EXPECT_EQ(NameWith("/usr/share/zoneinfo/Asia/Tokyo"), "Asia/Tokyo");
    EXPECT_EQ(NameWith(":/usr/share/zoneinfo/Asia/Tokyo"), "Asia/Tokyo");
    EXPECT_EQ(NameWith("/etc/zoneinfo/posix/Asia/Tokyo"), "Asia/Tokyo");
    EXPECT_EQ(NameWith("/usr/share/zoneinfo/right/Asia/Tokyo"), "Asia/Tokyo");
}

TEST_F(TimeZoneName, AVariableThatNamesNoZone_IsPassedOver) {
    WriteFile("etc/timezone", "Europe/Oslo\n");
    for (const char* tz :
         {"", ":", "CET-1CEST,M3.5.0,M10.5.0/3", "<+03>-3", "UTC0", "CET-1CEST", "/some/where",
          "/etc/localtime", ":/etc/localtime", "/usr/share/zoneinfo/",
          "/usr/share/zoneinfo/localtime", "/usr/share/zoneinfo/posixrules", "../Europe/Zurich",
          "Europe//Zurich", "Europe/", "a b/c", "Europe/Z\xC3\xBCrich"}) {
        EXPECT_EQ(NameWith(tz), "Europe/Oslo") << tz;
    }
}

TEST_F(TimeZoneName, WhereZonesAreInstalled_AOneWordNameMustBeAmongThem) {
    WriteFile("etc/timezone", "Europe/Oslo\n");
    WriteFile("zoneinfo/EST5EDT", "");
    WriteFile("zoneinfo/Japan", "");
    EXPECT_EQ(NameWith("EST5EDT"), "EST5EDT");
    EXPECT_EQ(NameWith("Japan"), "Japan");
    EXPECT_EQ(NameWith("Nonsense"), "Europe/Oslo");
    EXPECT_EQ(NameWith("CET-1CEST"), "Europe/Oslo");
    // Zones of two words are taken at their word: the older ones are not installed everywhere.
    EXPECT_EQ(NameWith("US/Samoa"), "US/Samoa");
}

TEST_F(TimeZoneName, TheVariable_ComesBeforeTheFiles) {
    WriteFile("etc/timezone", "Europe/Oslo\n");
    LinkLocaltime("/usr/share/zoneinfo/Europe/Paris");
    EXPECT_EQ(NameWith("Asia/Tokyo"), "Asia/Tokyo");
}

TEST_F(TimeZoneName, TheLink_ComesBeforeTheFile) {
    WriteFile("etc/timezone", "Europe/Oslo\n");
    LinkLocaltime("/usr/share/zoneinfo/Europe/Paris");
    EXPECT_EQ(NameWith(nullptr), "Europe/Paris");
}

TEST_F(TimeZoneName, TheLink_MayBeRelative) {
    LinkLocaltime("../usr/share/zoneinfo/Europe/Paris");
    EXPECT_EQ(NameWith(nullptr), "Europe/Paris");
}

TEST_F(TimeZoneName, TheLink_MayLeadThroughOtherLinks) {
    LinkLocaltime("choice");
    fs::create_symlink("/usr/share/zoneinfo/Europe/Paris", root / "etc/choice");
    EXPECT_EQ(NameWith(nullptr), "Europe/Paris");
}

TEST_F(TimeZoneName, TheLink_StopsAtTheFirstZone) {
    // The zone that was chosen is itself a link to the one that replaced it.
    fs::create_directories(root / "zoneinfo/US");
    fs::create_symlink("../America/Los_Angeles", root / "zoneinfo/US/Pacific");
    LinkLocaltime(root / "zoneinfo/US/Pacific");
    EXPECT_EQ(NameWith(nullptr), "US/Pacific");
}

TEST_F(TimeZoneName, ALinkThatGoesRound_TellsNothing) {
    LinkLocaltime("localtime");
    EXPECT_EQ(NameWith(nullptr), "GMT");
}

TEST_F(TimeZoneName, ALocaltimeThatIsNoLink_TellsNothing) {
    WriteFile("etc/localtime", "TZif2");
    EXPECT_EQ(NameWith(nullptr), "GMT");
    WriteFile("etc/timezone", "Europe/Oslo");
    EXPECT_EQ(NameWith(nullptr), "Europe/Oslo");
}

TEST_F(TimeZoneName, TheFile_IsReadUpToItsFirstBlank) {
    WriteFile("etc/timezone", "Europe/Oslo   # chosen by hand\n");
    EXPECT_EQ(NameWith(nullptr), "Europe/Oslo");
    WriteFile("etc/timezone", "Europe/Rome\r\n");
    EXPECT_EQ(NameWith(nullptr), "Europe/Rome");
}

TEST_F(TimeZoneName, AFileWithoutAZone_TellsNothing) {
    WriteFile("etc/timezone", "");
    EXPECT_EQ(NameWith(nullptr), "GMT");
    WriteFile("etc/timezone", "\n");
    EXPECT_EQ(NameWith(nullptr), "GMT");
    WriteFile("etc/timezone", "/usr/share/zoneinfo/Europe/Oslo\n");
    EXPECT_EQ(NameWith(nullptr), "GMT");
    WriteFile("etc/timezone", std::string(100000, 'x'));
    EXPECT_EQ(NameWith(nullptr), "GMT");
    fs::remove(root / "etc/timezone");
    fs::create_directory(root / "etc/timezone");
    EXPECT_EQ(NameWith(nullptr), "GMT");
}

// Sets TZ for one test.
class CFTimeZone : public testing::Test {
  protected:
    void SetUp() override {
        if (const char* value = getenv("TZ")) {
            before = value;
        }
    }
    void TearDown() override {
        if (before) {
            setenv("TZ", before->c_str(), 1);
        } else {
            unsetenv("TZ");
        }
        CFTimeZoneResetSystem();
    }

    static std::string SystemName() {
        const Owned<CFTimeZoneRef> zone = CFTimeZoneCopySystem();
        return TextOf(CFTimeZoneGetName(zone));
    }

    std::optional<std::string> before;
};

TEST_F(CFTimeZone, CopySystem_IsCachedUntilReset) {
    setenv("TZ", "Europe/Zurich", 1);
    CFTimeZoneResetSystem();
    EXPECT_EQ(SystemName(), "Europe/Zurich");
    setenv("TZ", "Asia/Tokyo", 1);
    EXPECT_EQ(SystemName(), "Europe/Zurich");
    CFTimeZoneResetSystem();
    EXPECT_EQ(SystemName(), "Asia/Tokyo");
}

TEST_F(CFTimeZone, AZoneInHand_OutlivesTheReset) {
    setenv("TZ", "Europe/Zurich", 1);
    CFTimeZoneResetSystem();
    const Owned<CFTimeZoneRef> zone = CFTimeZoneCopySystem();
    const CFStringRef name = CFTimeZoneGetName(zone);
    setenv("TZ", "Asia/Tokyo", 1);
    CFTimeZoneResetSystem();
    const Owned<CFTimeZoneRef> other = CFTimeZoneCopySystem();
    EXPECT_EQ(TextOf(name), "Europe/Zurich");
    EXPECT_EQ(CFTimeZoneGetName(zone), name);
    EXPECT_FALSE(CFEqual(zone, other));
}

TEST_F(CFTimeZone, ZonesOfOneName_AreEqual) {
    setenv("TZ", "Europe/Zurich", 1);
    CFTimeZoneResetSystem();
    const Owned<CFTimeZoneRef> one = CFTimeZoneCopySystem();
    CFTimeZoneResetSystem();
    const Owned<CFTimeZoneRef> other = CFTimeZoneCopySystem();
    ASSERT_NE(static_cast<CFTimeZoneRef>(one), static_cast<CFTimeZoneRef>(other));
    EXPECT_TRUE(CFEqual(one, other));
    EXPECT_EQ(CFHash(one), CFHash(other));
}

TEST(CFTimeZoneDeathTest, AWrongReference_Stops) {
    EXPECT_DEATH(CFTimeZoneGetName(nullptr),
                 "CFTimeZoneGetName: expected a CFTimeZone, got a null reference");
    EXPECT_DEATH(CFTimeZoneGetName(reinterpret_cast<CFTimeZoneRef>(CFSTR("GMT"))),
                 "CFTimeZoneGetName: expected a CFTimeZone, got a CFString");
}

}  // namespace
