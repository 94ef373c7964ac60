#include "core/UninstallManager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>

#include "core/Helpers.h"
#include "unit/support/ForkedTest.h"
#include "unit/support/OwnRoot.h"

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr char kData[] = "/Library/Application Support/Velto/data";
constexpr char kDock[] = "/Applications/Tessel Dock/Tessel Dock.app";

// In a process with an /Applications and a /Library of its own, whose user is in these groups.
// Exits with 0 behind BODY.
Outcome WithGroups(const std::string& groups, const std::function<void()>& body) {
    return RunForked([&] {
        const std::string tool = Home() + "/bin/id";
        std::filesystem::create_directory(Home() + "/bin");
        WriteFile(tool, "#!/bin/sh\necho '" + groups + "'\n");
        ASSERT_EQ(0, chmod(tool.c_str(), 0700));
        ASSERT_EQ(0, setenv("PATH", (Home() + "/bin:/usr/bin:/bin").c_str(), 1));
        ASSERT_EQ(0, setenv("TMPDIR", Home().c_str(), 1));
        // Never the machine's own.
        ASSERT_TRUE(EnterARootOfItsOwn(Home()));
        std::filesystem::create_directories(std::filesystem::path(kData).parent_path());
        WriteFile(kData, "");
        Helpers::logprint("opens the log");
        Printed();
        body();
        std::puts(Exists(kData) ? "still there" : "gone");
    });
}

class UninstallManagerTest : public testing::Test {
  protected:
    void SetUp() override {
        const Outcome outcome =
            RunForked([] { std::puts(EnterARootOfItsOwn(Home()) ? "yes" : "no"); });
        if (outcome.output != "yes\n") {
            GTEST_SKIP() << "no root of the test's own to be had here";
        }
    }
};

TEST_F(UninstallManagerTest, UninstallCore_RemovesTheService) {
    const Outcome outcome = WithGroups("groups=80(admin)", [] {
        EXPECT_TRUE(UninstallManager::UninstallCore());
        EXPECT_EQ("Uninstalling!", Printed().at(0));
    });
    EXPECT_EQ(0, outcome.status);
    EXPECT_THAT(outcome.output, HasSubstr("gone\n"));
}

TEST_F(UninstallManagerTest, WithoutTheDock_OfAnAdministrator_RemovesTheServiceAndEndsWithZero) {
    const Outcome outcome =
        WithGroups("groups=80(admin)", [] { UninstallManager::UninstallIfDockMissing(); });
    EXPECT_EQ(0, outcome.status);
    EXPECT_THAT(outcome.output, HasSubstr("Uninstalling!\n"));
    EXPECT_THAT(outcome.output, Not(HasSubstr("gone\n"))) << "it goes no further";
}

TEST_F(UninstallManagerTest, WithoutTheDock_OfANonAdministrator_GoesOn) {
    const Outcome outcome = WithGroups("groups=20(staff)", [] {
        UninstallManager::UninstallIfDockMissing();
        EXPECT_THAT(Printed(), Not(Contains("Uninstalling!")));
    });
    EXPECT_THAT(outcome.output, HasSubstr("still there\n"));
}

TEST_F(UninstallManagerTest, WithTheDock_OfAnAdministrator_GoesOn) {
    const Outcome outcome = WithGroups("groups=80(admin)", [] {
        std::filesystem::create_directories(kDock);
        UninstallManager::UninstallIfDockMissing();
        EXPECT_THAT(Printed(), IsEmpty());
    });
    EXPECT_THAT(outcome.output, HasSubstr("still there\n"));
}

}  // namespace
