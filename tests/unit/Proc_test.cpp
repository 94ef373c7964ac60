#include "Support/Proc.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

namespace {

using frameworks::ParseStatus;

// A status line with everything behind the state as the kernel would have it.
std::string Line(const std::string& head, unsigned long flags = 0x400000,
                 const std::string& start = "4711") {
    return head + " 1 2 2 0 -1 " + std::to_string(flags) + " 100 0 0 0 1 2 3 4 20 0 1 0 " + start +
           " 1000000 200 18446744073709551615 1 1\n";
}

TEST(Proc, ParseStatus_TakesTheLineApart) {
    const auto status = ParseStatus(Line("42 (name) S"));
    ASSERT_TRUE(status);
    EXPECT_EQ(status->pid, 42);
    EXPECT_EQ(status->name, "name");
    EXPECT_EQ(status->startTime, 4711u);
    EXPECT_FALSE(status->isKernelThread);
    EXPECT_FALSE(status->isMereCopy);
    EXPECT_FALSE(status->isZombie);
}

TEST(Proc, ParseStatus_ReadsTheFlags) {
    EXPECT_TRUE(ParseStatus(Line("42 (name) S", 0x200040))->isKernelThread);
    EXPECT_TRUE(ParseStatus(Line("42 (name) S", 0x40))->isMereCopy);
    EXPECT_TRUE(ParseStatus(Line("42 (name) Z"))->isZombie);
}

TEST(Proc, ParseStatus_OfANameWithParenthesesAndBlanks_FindsItsEnd) {
    for (const std::string name : {"a) S 1 2", "((", "))", "a b", "a\nb", "", ") (", "(x) Z 0"}) {
        const auto status = ParseStatus(Line("42 (" + name + ") S"));
        ASSERT_TRUE(status) << name;
        EXPECT_EQ(status->name, name);
        EXPECT_EQ(status->startTime, 4711u);
        EXPECT_FALSE(status->isZombie) << name;
    }
}

TEST(Proc, ParseStatus_OfAnythingElse_GivesNothing) {
    const std::string whole = Line("42 (name) S");
    for (std::size_t length = 0; length < whole.find("4711"); ++length) {
        EXPECT_FALSE(ParseStatus(whole.substr(0, length))) << length;
    }
    for (const std::string line : {")(", "(name) S", "x (name) S 1 2 3", "42 name S 1 2 3"}) {
        EXPECT_FALSE(ParseStatus(line)) << line;
    }
    EXPECT_FALSE(ParseStatus(Line("42 (name) S", 0, "never")));
}

TEST(Proc, StatusOf_ThisProcess_IsItsOwn) {
    const auto status = frameworks::StatusOf(getpid());
    ASSERT_TRUE(status);
    EXPECT_EQ(status->pid, getpid());
    EXPECT_GT(status->startTime, 0u);
    EXPECT_FALSE(status->isKernelThread);
}

TEST(Proc, StatusOf_NoProcess_IsNothing) {
    EXPECT_FALSE(frameworks::StatusOf(0));
    EXPECT_FALSE(frameworks::StatusOf(-1));
    EXPECT_FALSE(frameworks::StatusOf(0x7FFFFFFF));
}

TEST(Proc, ForEachProcess_VisitsThisOneOnceAndWithTheSameInodeEveryTime) {
    std::vector<ino_t> inodes;
    for (int round = 0; round < 3; ++round) {
        frameworks::ForEachProcess([&inodes](pid_t pid, ino_t inode) {
            if (pid == getpid()) inodes.push_back(inode);
        });
    }
    ASSERT_EQ(inodes.size(), 3u);
    EXPECT_EQ(std::count(inodes.begin(), inodes.end(), inodes.front()), 3);
}

}  // namespace
