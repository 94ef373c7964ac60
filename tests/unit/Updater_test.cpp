#include "core/Updater.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "core/Helpers.h"
#include "unit/support/ForkedTest.h"
#include "unit/support/OwnRoot.h"

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;

namespace {

void MakeTool(const std::string& name, const std::string& script) {
    const std::string path = Home() + "/bin/" + name;
    mkdir((Home() + "/bin").c_str(), 0700);
    WriteFile(path, "#!/bin/sh\n" + script);
    ASSERT_EQ(0, chmod(path.c_str(), 0700));
}

// In a process whose user is in these groups and who agrees to everything, with a folder for its
// scripts and nothing printed so far.
void WithGroups(const std::string& groups, const std::function<void()>& body) {
    InChild([&] {
        MakeTool("id", "echo '" + groups + "'\n");
        MakeTool("pkexec", "while [ \"$1\" != /bin/sh ]; do shift; done\nexec \"$@\"\n");
        ASSERT_EQ(0, setenv("PATH", (Home() + "/bin:/usr/bin:/bin").c_str(), 1));
        ASSERT_EQ(0, setenv("TMPDIR", Home().c_str(), 1));
        if (geteuid() == 0) {
            // Root changes the group of a program that is installed, only to see whether it may.
            EnterARootOfItsOwn(Home());
        }
        Helpers::logprint("opens the log");
        Printed();
        body();
    });
}

std::string Script() {
    return Helpers::getTempFolder() + "TesselCoreUpdate.sh";
}

TEST(Updater, WithoutARequest_InstallsNothing) {
    WithGroups("groups=80(admin)", [] {
        Updater::SetUpdatePath(L"/somewhere");
        EXPECT_FALSE(Updater::TryInstallUpdate());
        EXPECT_THAT(Printed(), IsEmpty());
        EXPECT_FALSE(Exists(Script()));
    });
}

TEST(Updater, OfANonAdministrator_InstallsNothing) {
    WithGroups("groups=20(staff)", [] {
        Updater::SetUpdatePath(L"/somewhere");
        Updater::updateRequested = true;
        EXPECT_FALSE(Updater::TryInstallUpdate());
        EXPECT_THAT(Printed(), Not(Contains("Updating!")));
        EXPECT_FALSE(Exists(Script()));
    });
}

TEST(Updater, CheckAndHandleUpdates_WithNothingToInstall_ReturnsWithALine) {
    WithGroups("groups=20(staff)", [] {
        Updater::updateRequested = true;
        Updater::CheckAndHandleUpdates();
        const std::vector<std::string> lines = Printed();
        EXPECT_EQ("Checking updates...", lines.at(0));
        EXPECT_THAT(lines, Not(Contains("Updating!")));
    });
}

// The script finds nothing in the folder and leaves everything as it is.
TEST(Updater, OfAnAdministrator_RunsTheScriptWithTheFolderInEveryPlace) {
    WithGroups("groups=80(admin)", [] {
        Updater::SetUpdatePath(L"/no such folder/\u00FC ### ");
        Updater::updateRequested = true;
        EXPECT_TRUE(Updater::TryInstallUpdate());
        EXPECT_THAT(Printed(), IsSupersetOf({"Updating!", "Scripts: Writing script..."}));
        std::string script = ReadFile(Script());
        const std::string beginning =
            "#!/bin/sh \nif [ -f '/no such folder/\u00FC ### /TesselCoreUpdate.zip' ] \n";
        EXPECT_EQ(beginning, script.substr(0, beginning.size()));
        // But for the folder's own there is no placeholder left.
        EXPECT_EQ(script, Helpers::replace(script, "'###", "'"));
        EXPECT_THAT(script, Not(HasSubstr("/no such folder/\u00FC /no such folder/")));
    });
}

TEST(Updater, ThatIsRefused_IsNotInstalled) {
    if (geteuid() == 0) {
        GTEST_SKIP() << "nobody is asked for root's rights when root is there";
    }
    WithGroups("groups=80(admin)", [] {
        MakeTool("pkexec", "exit 126\n");
        Updater::updateRequested = true;
        EXPECT_FALSE(Updater::TryInstallUpdate());
    });
}

}  // namespace
