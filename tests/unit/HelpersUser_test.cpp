// Every test runs in a process of its own: the answer is found once in a process's life.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "core/Helpers.h"
#include "unit/support/ForkedTest.h"
#include "unit/support/Kernel.h"

using testing::ElementsAre;

namespace {

// A program in the place of id that writes down its arguments and prints ANSWER.
void AnswerFor(const std::string& answer) {
    const std::string folder = Home() + "/bin";
    mkdir(folder.c_str(), 0700);
    WriteFile(folder + "/id",
              "#!/bin/sh\necho \"$@\" >> " + Home() + "/asked\ncat <<'END'\n" + answer + "\nEND\n");
    ASSERT_EQ(0, chmod((folder + "/id").c_str(), 0700));
    ASSERT_EQ(0, setenv("PATH", (folder + ":/usr/bin:/bin").c_str(), 1));
}

std::vector<std::string> Asked() {
    return Lines(ReadFile(Home() + "/asked"));
}

std::string ConsoleUser() {
    return std::to_string(Helpers::GetCurrentUserUID());
}

TEST(Administrator, IsAMemberOfGroup80NamedAdmin) {
    InChild([] {
        AnswerFor("uid=501(pat) gid=20(staff) groups=20(staff),80(admin)");
        EXPECT_TRUE(Helpers::isUserAdminType());
        EXPECT_THAT(Asked(), ElementsAre(ConsoleUser()));
    });
}

TEST(Administrator, NeedsNumberAndName) {
    for (const char* const answer :
         {"uid=501(pat) gid=20(staff) groups=20(staff)", "groups=81(admin)", "groups=80(wheel)",
          "groups=80(administrators)", "groups=80 (admin)", ""}) {
        InChild([answer] {
            AnswerFor(answer);
            EXPECT_FALSE(Helpers::isUserAdminType()) << answer;
        });
    }
}

TEST(Administrator, IsWhoeversAnswerHoldsTheTextAnywhere) {
    InChild([] {
        AnswerFor("groups=20(staff),180(admin)");
        EXPECT_TRUE(Helpers::isUserAdminType());
    });
}

TEST(Administrator, IsFoundInAnAnswerOfAnyLength) {
    InChild([] {
        // Across the end of a chunk of the reader, too.
        AnswerFor(std::string(122, 'x') + "80(admin)" + std::string(5000, 'y'));
        EXPECT_TRUE(Helpers::isUserAdminType());
    });
}

TEST(Administrator, IsAskedForOnceWhateverTheAnswer) {
    for (const bool isAdmin : {true, false}) {
        InChild([isAdmin] {
            AnswerFor(isAdmin ? "80(admin)" : "20(staff)");
            EXPECT_EQ(isAdmin, Helpers::isUserAdminType());
            AnswerFor(isAdmin ? "20(staff)" : "80(admin)");
            EXPECT_EQ(isAdmin, Helpers::isUserAdminType());
            EXPECT_EQ(isAdmin, Helpers::isUserAdminType());
            EXPECT_EQ(1u, Asked().size());
        });
    }
}

TEST(Administrator, IsNobodyWhenThereIsNoId) {
    InChild([] {
        ASSERT_EQ(0, setenv("PATH", Home().c_str(), 1));
        EXPECT_FALSE(Helpers::isUserAdminType());
    });
}

TEST(Administrator, TheQuestion_IsTheShellCommandId) {
    InChild([] {
        AnswerFor("80(admin)");
        Helpers::isUserAdminType();
        EXPECT_THAT(Printed(), ElementsAre("Logfile does not exist, not logging",
                                           "ProcessOpenManager::open : 'id " + ConsoleUser() + "'",
                                           "received: "));
    });
}

// Users that every system has, neither root nor the one that runs the test.
constexpr uid_t kOne = 1;
constexpr uid_t kOther = 2;

TEST(ConsoleUser, IsTheOwnerOfTheConsole) {
    if (access("/run/systemd/seats/seat0", F_OK) == 0) {
        GTEST_SKIP() << "logind knows better than a console of the test's own";
    }
    if (geteuid() != 0 || getpwuid(kOne) == nullptr) {
        GTEST_SKIP() << "only root can put somebody at the console";
    }
    InChild([] {
        if (PutAtTheConsole(kOne)) {
            EXPECT_EQ(kOne, Helpers::GetCurrentUserUID());
            ASSERT_EQ(0, chown("/dev/console", kOther, 0));
            EXPECT_EQ(kOther, Helpers::GetCurrentUserUID());
            ASSERT_EQ(0, chown("/dev/console", 0, 0));
            EXPECT_EQ(0u, Helpers::GetCurrentUserUID());
        } else {
            std::puts("no console of the test's own here");
        }
    });
}

TEST(Administrator, IsRememberedForEachUser) {
    if (access("/run/systemd/seats/seat0", F_OK) == 0 || geteuid() != 0 ||
        getpwuid(kOne) == nullptr || getpwuid(kOther) == nullptr) {
        GTEST_SKIP() << "only root can put somebody at the console, and not where logind runs";
    }
    InChild([] {
        if (!PutAtTheConsole(kOne)) {
            std::puts("no console of the test's own here");
            return;
        }
        AnswerFor("80(admin)");
        EXPECT_TRUE(Helpers::isUserAdminType());
        AnswerFor("20(staff)");
        ASSERT_EQ(0, chown("/dev/console", kOther, 0));
        EXPECT_FALSE(Helpers::isUserAdminType());
        ASSERT_EQ(0, chown("/dev/console", kOne, 0));
        EXPECT_TRUE(Helpers::isUserAdminType());
        EXPECT_THAT(Asked(), ElementsAre("1", "2"));
    });
}

}  // namespace
