#include "apps/DirectoryTraverser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <set>
#include <string>

#include "apps/Paths.h"
#include "core/Helpers.h"
#include "unit/support/ForkedTest.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace fs = std::filesystem;

namespace {

constexpr char kComplaint[] =
    "Error : DirectoryTraverser::DirectoryTraverser - can not traverse through directory.";

void Quietly(const std::function<void()>& body) {
    InChild([&body] {
        Helpers::logprint("opens the log");
        Printed();
        body();
    });
}

TEST(DirectoryTraverser, ListsEveryEntryOnceHoweverManyThereAre) {
    for (const int count : {0, 1, 15, 16, 17, 31, 32, 33, 64, 1000}) {
        Quietly([count] {
            fs::create_directory(Home() + "/folder");
            std::set<std::string> expected;
            for (int file = 0; file < count; ++file) {
                const std::string path = Home() + "/folder/" + std::to_string(file);
                WriteFile(path, "");
                expected.insert(fs::canonical(path));
            }
            const PathReference folder = ReferenceTo(Home() + "/folder");
            DirectoryTraverser entries(&folder.ref, 0);
            std::set<std::string> found;
            int steps = 0;
            for (const FSRef* entry = entries.First(); entry != nullptr; entry = entries.Next()) {
                found.insert(PathOfReference(*entry));
                ++steps;
            }
            EXPECT_EQ(expected, found);
            EXPECT_EQ(count, steps);
            EXPECT_EQ(nullptr, entries.Next());
            EXPECT_THAT(Printed(), IsEmpty());
        });
    }
}

TEST(DirectoryTraverser, First_BeginsAnew) {
    Quietly([] {
        fs::create_directory(Home() + "/folder");
        WriteFile(Home() + "/folder/a", "");
        WriteFile(Home() + "/folder/b", "");
        const PathReference folder = ReferenceTo(Home() + "/folder");
        DirectoryTraverser entries(&folder.ref, 0);
        const FSRef* const first = entries.First();
        const FSRef* const second = entries.Next();
        EXPECT_NE(first, second);
        EXPECT_EQ(nullptr, entries.Next());
        EXPECT_EQ(first, entries.First());
        EXPECT_EQ(second, entries.Next());
    });
}

TEST(DirectoryTraverser, OnlyAFolderWithSomethingInIt_CountsAsOneDeliberately) {
    Quietly([] {
        fs::create_directories(Home() + "/folder/full/inner");
        fs::create_directory(Home() + "/folder/empty");
        WriteFile(Home() + "/folder/file", "not empty");
        fs::create_directory_symlink(Home() + "/folder/full", Home() + "/folder/link");
        const PathReference folder = ReferenceTo(Home() + "/folder");
        DirectoryTraverser entries(&folder.ref, 0);
        std::set<std::string> folders;
        for (const FSRef* entry = entries.First(); entry != nullptr; entry = entries.Next()) {
            if (entries.CurrentIsDirectory()) {
                folders.insert(fs::path(PathOfReference(*entry)).filename());
            }
        }
        EXPECT_THAT(folders, ElementsAre("full"));
        EXPECT_FALSE(entries.CurrentIsDirectory());
    });
}

TEST(DirectoryTraverser, OfNothing_SaysSoAndIsEmpty) {
    Quietly([] {
        WriteFile(Home() + "/file", "");
        const PathReference file = ReferenceTo(Home() + "/file");
        const FSRef never = {};
        for (const FSRef* const folder : {&file.ref, &never}) {
            DirectoryTraverser entries(folder, 0);
            EXPECT_EQ(nullptr, entries.First());
            EXPECT_EQ(nullptr, entries.Next());
            EXPECT_FALSE(entries.CurrentIsDirectory());
            EXPECT_THAT(Printed(), ElementsAre(kComplaint));
        }
    });
}

}  // namespace
