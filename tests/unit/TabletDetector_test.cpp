// How the dock's settings are read; tests/e2e/Tablets_test.cpp plugs tablets in.
#include "tablet/TabletDetector.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "unit/support/ForkedTest.h"
#include "unit/support/Waiting.h"

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

// The flags, as open takes them, of the descriptor by which another thread of this process reads
// FILE; -1 when there is none. As the system tells everybody: the descriptor is not ours to touch.
long FlagsOfReader(const std::string& file) {
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code hasGone;
        if (std::filesystem::read_symlink(entry.path(), hasGone) != file) continue;
        std::ifstream info("/proc/self/fdinfo/" + entry.path().filename().string());
        std::string word;
        while (info >> word && word != "flags:") {
        }
        long flags = -1;
        info >> std::oct >> flags;
        if (flags != -1 && (flags & O_ACCMODE) == O_RDONLY) {
            return flags;
        }
    }
    return -1;
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

TEST(TabletDetector, TheSettingsFile_IsNotInheritedByOtherPrograms) {
    InChild([] {
        // It is read for as long as the test likes.
        const std::string file = SettingsFile();
        ASSERT_EQ(0, mkfifo(file.c_str(), 0600));
        bool isEnabled = false;
        std::thread reader([&] { isEnabled = TabletDetector::IsStartOnAttachEnabled(); });
        const int writer = open(file.c_str(), O_WRONLY | O_CLOEXEC);
        EXPECT_TRUE(WaitUntil([&] {
            const long flags = FlagsOfReader(file);
            return flags != -1 && (flags & O_CLOEXEC) != 0;
        }));
        EXPECT_EQ(static_cast<ssize_t>(kMarker.size()),
                  write(writer, kMarker.data(), kMarker.size()));
        close(writer);
        reader.join();
        EXPECT_TRUE(isEnabled);
    });
}

}  // namespace
