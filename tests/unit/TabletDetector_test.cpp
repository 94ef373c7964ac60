// How the dock's settings are read; tests/e2e/Tablets_test.cpp plugs tablets in.
#include "tablet/TabletDetector.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "unit/support/ForkedTest.h"

namespace {

const std::string kMarker = "<autostart>true</autostart>";

std::string SettingsFile() {
    const std::string folder =
        Home() +
        "/Library/Preferences/"
        "veltoid-desktop-launcher.5E2A91C07B3D48F6A0C1E9D27F84B3A6C05D1E98.1/Local Store/default/"
        "xml";
    std::filesystem::create_directories(folder);
    return folder + "/usersSettings.xml";
}

bool IsEnabledBy(const std::string& settings) {
    WriteFile(SettingsFile(), settings);
    return TabletDetector::IsStartOnAttachEnabled();
}

TEST(TabletDetector, StartOnAttach_IsEnabledByItsMarkerAnywhereInTheText) {
    InChild([] {
        EXPECT_FALSE(TabletDetector::IsStartOnAttachEnabled());
        EXPECT_FALSE(IsEnabledBy(""));
        EXPECT_TRUE(IsEnabledBy(kMarker));
        EXPECT_TRUE(IsEnabledBy("<settings>\n" + kMarker + "</settings>"));
        EXPECT_FALSE(IsEnabledBy("<autostart> true </autostart>"));
    });
}

// The settings are a text, and a text ends with its first NUL.
TEST(TabletDetector, AMarkerBehindANul_DoesNotCount) {
    InChild([] {
        const std::string nul(1, '\0');
        EXPECT_FALSE(IsEnabledBy("<settings>" + nul + kMarker));
        EXPECT_FALSE(IsEnabledBy(nul + kMarker));
        EXPECT_TRUE(IsEnabledBy(kMarker + nul));
    });
}

TEST(TabletDetector, AFifoForASettingsFile_IsNotWaitedFor) {
    InChild([] {
        ASSERT_EQ(0, mkfifo(SettingsFile().c_str(), 0600));
        EXPECT_FALSE(TabletDetector::IsStartOnAttachEnabled());
    });
}

}  // namespace
