// Deleting trees. What is busy is played by the kernel, and the waits take no time.
#include "apps/RmDir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "apps/Paths.h"
#include "core/Helpers.h"
#include "unit/support/ForkedTest.h"
#include "unit/support/Kernel.h"
#include "unit/support/Sleeping.h"

using testing::Each;
using testing::ElementsAre;
using testing::SizeIs;

namespace fs = std::filesystem;

namespace {

// In a folder "tree" of its own home, with nothing printed so far.
void Quietly(const std::function<void()>& body) {
    InChild([&body] {
        fs::create_directory(Home() + "/tree");
        Helpers::logprint("opens the log");
        Printed();
        body();
    });
}

std::string Tree() {
    return fs::canonical(Home()).string() + "/tree";
}

int Remove(const std::string& path) {
    const PathReference folder = ReferenceTo(path);
    return RmDir().remove(&folder.ref, 1);
}

std::size_t CountOf(const std::vector<std::string>& lines, const std::string& part) {
    return static_cast<std::size_t>(std::count_if(
        lines.begin(), lines.end(),
        [&](const std::string& line) { return line.find(part) != std::string::npos; }));
}

TEST(RmDir, Offset_IsTwoBlanksForEveryStep) {
    EXPECT_EQ("text", RmDir().generateWithOffset("text", 0));
    EXPECT_EQ("  text", RmDir().generateWithOffset("text", 1));
    EXPECT_EQ("      %s", RmDir().generateWithOffset("%s", 3));
}

TEST(RmDir, OfATree_DeletesItAndLogsEveryStepByItsDepth) {
    Quietly([] {
        fs::create_directories(Tree() + "/sub/empty");
        EXPECT_EQ(1, Remove(Tree()));
        EXPECT_FALSE(Exists(Tree()));
        EXPECT_THAT(Printed(), ElementsAre("  Deleting folder: " + Tree(),
                                           "      Deleting folder: " + Tree() + "/sub",
                                           "          Deleting file: " + Tree() + "/sub/empty"));
    });
}

TEST(RmDir, OfNothing_SaysThatAndFails) {
    Quietly([] {
        const FSRef never = {};
        EXPECT_EQ(0, RmDir().remove(&never, 1));
        const std::vector<std::string> printed = Printed();
        EXPECT_EQ("  Deleting folder: ", printed.at(0));
        // Once for the attempt, once for the end.
        EXPECT_EQ(2u, CountOf(printed, "    Unable to remove object, error paramErr"));
    });
}

TEST(RmDir, OfAManyTimesNestedTree_DeletesIt) {
    Quietly([] {
        std::string deep = Tree();
        for (int level = 0; level < 100; ++level) {
            deep += "/d";
        }
        fs::create_directories(deep);
        EXPECT_EQ(1, Remove(Tree()));
        EXPECT_FALSE(Exists(Tree()));
    });
}

TEST(RmDir, OfABusyEntry_TriesSixtyFourTimesAndThenTrustsItDeliberately) {
    Quietly([] {
        WriteFile(Tree() + "/busy", "");
        LetFail(SYS_unlinkat, EBUSY);
        SleepQuickly();
        EXPECT_EQ(1, Remove(Tree()));
        EXPECT_TRUE(Exists(Tree() + "/busy"));
        const std::vector<std::string> printed = Printed();
        EXPECT_EQ(64u, CountOf(printed, "      Deleting file: " + Tree() + "/busy"));
        EXPECT_EQ(64u, CountOf(printed, "      Unable to remove object, error fBsyErr"));
        // A second behind each, and behind each of the folder's own five attempts.
        EXPECT_THAT(Slept(), SizeIs(64 + 5));
        EXPECT_THAT(Slept(), Each(1u));
        EXPECT_EQ(5u, CountOf(printed, "Unable to remove object, error fBsyErr") - 64);
    });
}

TEST(RmDir, OfAnEntryThatFailsOtherwiseInTheSixtyFourthAttempt_TrustsItDeliberately) {
    Quietly([] {
        WriteFile(Tree() + "/busy", "");
        LetFail(SYS_unlinkat, EBUSY);
        SleepQuickly([](std::size_t count) {
            if (count == 63) {
                LetFail(SYS_unlinkat, EACCES);
            }
        });
        // The folder itself then fails in its first attempt.
        EXPECT_EQ(0, Remove(Tree()));
        const std::vector<std::string> printed = Printed();
        EXPECT_EQ(64u, CountOf(printed, "Deleting file: "));
        EXPECT_EQ("      Unable to remove object, error afpAccessDenied",
                  printed.at(printed.size() - 3));
        EXPECT_THAT(Slept(), SizeIs(63));
    });
}

TEST(RmDir, OfAnEntryThatFailsOtherwiseBefore_Fails) {
    Quietly([] {
        WriteFile(Tree() + "/busy", "");
        LetFail(SYS_unlinkat, EBUSY);
        SleepQuickly([](std::size_t count) {
            if (count == 62) {
                LetFail(SYS_unlinkat, EACCES);
            }
        });
        EXPECT_EQ(0, Remove(Tree()));
        const std::vector<std::string> printed = Printed();
        EXPECT_EQ(63u, CountOf(printed, "Deleting file: "));
        // The entry's own line, and the folder's that gives up.
        EXPECT_EQ("      Unable to remove object, error afpAccessDenied",
                  printed.at(printed.size() - 2));
        EXPECT_EQ("    Unable to remove object, error afpAccessDenied", printed.back());
    });
}

TEST(RmDir, OfAFolderThatFailsOtherwiseInItsFifthAttempt_TrustsItDeliberately) {
    Quietly([] {
        LetFail(SYS_unlinkat, EBUSY);
        SleepQuickly([](std::size_t count) {
            if (count == 4) {
                LetFail(SYS_unlinkat, EACCES);
            }
        });
        EXPECT_EQ(1, Remove(Tree()));
        EXPECT_TRUE(Exists(Tree()));
        EXPECT_THAT(Printed(), ElementsAre("  Deleting folder: " + Tree(),
                                           "    Unable to remove object, error fBsyErr",
                                           "    Unable to remove object, error fBsyErr",
                                           "    Unable to remove object, error fBsyErr",
                                           "    Unable to remove object, error fBsyErr",
                                           "    Unable to remove object, error afpAccessDenied"));
    });
}

TEST(RmDir, OfAFolderThatFailsOtherwiseBefore_SaysSoTwiceDeliberately) {
    Quietly([] {
        LetFail(SYS_unlinkat, EBUSY);
        SleepQuickly([](std::size_t count) {
            if (count == 3) {
                LetFail(SYS_unlinkat, EACCES);
            }
        });
        EXPECT_EQ(0, Remove(Tree()));
        EXPECT_THAT(Printed(), ElementsAre("  Deleting folder: " + Tree(),
                                           "    Unable to remove object, error fBsyErr",
                                           "    Unable to remove object, error fBsyErr",
                                           "    Unable to remove object, error fBsyErr",
                                           "    Unable to remove object, error afpAccessDenied",
                                           "    Unable to remove object, error afpAccessDenied"));
    });
}

// What comes in while the rest is deleted: a folder that is not empty is busy, on the Mac as well.
TEST(RmDir, OfAFolderThatIsFilledMeanwhile_WaitsFiveSecondsForIt) {
    Quietly([] {
        fs::create_directory(Tree() + "/empty");
        LetFail(SYS_unlinkat, ENOTEMPTY);
        SleepQuickly();
        EXPECT_EQ(1, Remove(Tree()));
        EXPECT_THAT(Slept(), SizeIs(64 + 5));
    });
}

TEST(RmDir, AfterAFailure_SkipsFoldersAndStillTriesFiles) {
    Quietly([] {
        // However they are listed, a folder that fails comes before the other one.
        for (const char* const name : {"one", "two"}) {
            fs::create_directory(Tree() + "/" + name);
            WriteFile(Tree() + "/" + name + "/kept", "");
            fs::permissions(Tree() + "/" + name, fs::perms(0555));
        }
        for (int file = 0; file < 20; ++file) {
            WriteFile(Tree() + "/file " + std::to_string(file), "");
        }
        GiveUpRootsRights();
        EXPECT_EQ(0, Remove(Tree()));
        const std::vector<std::string> printed = Printed();
        EXPECT_EQ(1u, CountOf(printed, "      Deleting folder: "));
        EXPECT_EQ(20u, CountOf(printed, "      Deleting file: " + Tree() + "/file "));
        EXPECT_EQ(2, std::distance(fs::directory_iterator(Tree()), fs::directory_iterator()));
        for (const char* const name : {"one", "two"}) {
            fs::permissions(Tree() + "/" + name, fs::perms(0755));
        }
    });
}

TEST(RmDir, OfATreeWithLinks_LeavesWhatTheyPointTo) {
    Quietly([] {
        fs::create_directory(Home() + "/precious");
        WriteFile(Home() + "/precious/file", "");
        fs::create_directory_symlink(Home() + "/precious", Tree() + "/link");
        EXPECT_EQ(1, Remove(Tree()));
        EXPECT_TRUE(Exists(Home() + "/precious/file"));
    });
}

TEST(RmDir, OfTenThousandFiles_LeavesNoDescriptorBehind) {
    Quietly([] {
        WriteFile(Home() + "/0", "");
        for (int folder = 0; folder < 10; ++folder) {
            const std::string path = Tree() + "/" + std::to_string(folder);
            fs::create_directory(path);
            for (int file = 0; file < 1000; ++file) {
                fs::create_hard_link(Home() + "/0", path + "/" + std::to_string(file));
            }
        }
        const std::vector<int> before = OpenDescriptors();
        EXPECT_EQ(1, Remove(Tree()));
        EXPECT_FALSE(Exists(Tree()));
        EXPECT_EQ(before, OpenDescriptors());
    });
}

}  // namespace
