// Removing applications that lie in the home's Applications folder.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <string>

#include "apps/ProcessManager.h"
#include "core/Helpers.h"
#include "unit/ApplicationTesting.h"
#include "unit/support/ForkedTest.h"
#include "unit/support/Kernel.h"
#include "unit/support/Sleeping.h"

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace fs = std::filesystem;

namespace {

// With nothing printed so far and waits that take no time.
void Quietly(const std::function<void()>& body) {
    InChild([&body] {
        SleepQuickly();
        Helpers::logprint("opens the log");
        Printed();
        body();
    });
}

applicationtest::Bundle Notes() {
    applicationtest::Bundle bundle;
    bundle.identifier = "com.example.notes";
    return bundle;
}

std::string MakeNotes() {
    const std::string bundle = Home() + "/Applications/Notes.app";
    applicationtest::MakeBundle(bundle, Notes());
    return bundle;
}

bool Uninstall(bool elevationAllowed = true) {
    return ProcessManager::UninstallOsApp(L"Notes", L"com.example.notes", elevationAllowed);
}

TEST(RemoveDirectory, WaitsASecondFirst) {
    Quietly([] {
        fs::create_directories(Home() + "/folder/inner");
        const FSRef folder = applicationtest::RefOf(Home() + "/folder");
        SleepQuickly([](std::size_t) { EXPECT_TRUE(Exists(Home() + "/folder/inner")); });
        EXPECT_EQ(1, ProcessManager::RemoveDirectory(&folder));
        EXPECT_FALSE(Exists(Home() + "/folder"));
        EXPECT_THAT(Slept(), ElementsAre(1u));
    });
}

TEST(RemoveDirectory, OfAReferenceToNothing_Fails) {
    Quietly([] {
        const FSRef never = {};
        EXPECT_EQ(0, ProcessManager::RemoveDirectory(&never));
    });
}

TEST(UninstallOsApp, WithoutANameOrAnId_IsTrueAndRemovesNothing) {
    Quietly([] {
        const std::string bundle = MakeNotes();
        EXPECT_TRUE(ProcessManager::UninstallOsApp(L"", L"com.example.notes", true));
        EXPECT_TRUE(ProcessManager::UninstallOsApp(L"Notes", L"", true));
        EXPECT_THAT(Printed(),
                    ElementsAre("UninstallAirApp: Argument null or empty.",
                                "UninstallAirApp: Second argument missing (Widget OSID) for widget "
                                "Notes"));
        EXPECT_TRUE(Exists(bundle));
    });
}

TEST(UninstallOsApp, OfWhatIsThere_RemovesIt) {
    Quietly([] {
        const std::string bundle = MakeNotes();
        EXPECT_TRUE(Uninstall(false));
        EXPECT_FALSE(Exists(bundle));
        EXPECT_EQ("found item unregistration res: fnfErr", Printed().back());
    });
}

TEST(UninstallOsApp, OfAnIdThatNobodyKnows_IsTrueWithoutTouchingAnything) {
    Quietly([] {
        EXPECT_TRUE(Uninstall());
        EXPECT_THAT(Printed(), ElementsAre("UninstallAirApp: Uninstallation started for Notes",
                                           "found item unregistration res: fnfErr"));
        EXPECT_THAT(Slept(), IsEmpty());
    });
}

TEST(UninstallOsApp, OfWhatLiesInTheTrash_IsTrueAndLeavesItThere) {
    Quietly([] {
        const std::string bundle = Home() + "/.local/share/Trash/files/Notes.app";
        applicationtest::MakeBundle(bundle, Notes());
        const FSRef ref = applicationtest::RefOf(bundle);
        ASSERT_EQ(noErr, LSRegisterFSRef(&ref, true));
        EXPECT_TRUE(Uninstall());
        EXPECT_TRUE(Exists(bundle));
        EXPECT_THAT(Slept(), IsEmpty());
    });
}

TEST(UninstallOsApp, WithElevationNotAllowed_OfWhatMayNotBeDeleted_FailsAndAsksNobody) {
    Quietly([] {
        const std::string bundle = MakeNotes();
        fs::permissions(bundle + "/Contents/MacOS", fs::perms(0555));
        GiveUpRootsRights();
        EXPECT_FALSE(Uninstall(false));
        EXPECT_TRUE(Exists(bundle));
        EXPECT_EQ("found item unregistration res: kLSNoRegistrationInfoErr", Printed().back());
        fs::permissions(bundle + "/Contents/MacOS", fs::perms(0755));
    });
}

// Deleting counted as done, but the folder is there for everybody to see.
TEST(UninstallOsApp, WhenTheLastAttemptWasTrusted_StillSeesThatTheFolderIsThere) {
    Quietly([] {
        const std::string bundle = MakeNotes();
        LetFail(SYS_unlinkat, EBUSY);
        EXPECT_FALSE(Uninstall());
        EXPECT_TRUE(Exists(bundle));
        EXPECT_THAT(Printed(), testing::Not(Contains(testing::HasSubstr("Starting script"))));
    });
}

}  // namespace
