// logind's answers come from the real library, which finds them in the files of a /run of the
// test's own.
#include "Support/LoginSession.h"

#include "LoginTesting.h"

namespace {

using namespace logintest;
using frameworks::ActiveSessionOfTheSeat;
using frameworks::SeatState;

#define SKIP_UNLESS(ran) \
    if (!(ran)) GTEST_SKIP() << "mounts of one's own are not allowed here"

TEST(LoginSession, WithoutLogind_NothingIsKnown) {
    SKIP_UNLESS(WithOwnMounts([] {
        const SeatState seat = ActiveSessionOfTheSeat();
        EXPECT_FALSE(seat.isKnown);
        EXPECT_FALSE(seat.session);
    }));
}

TEST(LoginSession, WithoutTheSeat_NothingIsKnown) {
    SKIP_UNLESS(WithOwnMounts([] {
        MakeFolders();
        EXPECT_FALSE(ActiveSessionOfTheSeat().isKnown);
    }));
}

TEST(LoginSession, OfASeatWithNobody_IsKnownToBeNone) {
    SKIP_UNLESS(WithOwnMounts([] {
        MakeFolders();
        LeaveSeat();
        const SeatState seat = ActiveSessionOfTheSeat();
        EXPECT_TRUE(seat.isKnown);
        EXPECT_FALSE(seat.session);
    }));
}

TEST(LoginSession, OfAPersonAtADesktop_IsGraphical) {
    SKIP_UNLESS(WithOwnMounts([] {
        for (const char* const type : {"x11", "wayland", "mir"}) {
            TakeSeat("c1", 1234, "user", type, getpid());
            const SeatState seat = ActiveSessionOfTheSeat();
            ASSERT_TRUE(seat.isKnown);
            ASSERT_TRUE(seat.session);
            EXPECT_EQ(seat.session->id, "c1");
            EXPECT_EQ(seat.session->user, 1234u);
            EXPECT_TRUE(seat.session->isPersons);
            EXPECT_TRUE(seat.session->isGraphical) << type;
        }
    }));
}

TEST(LoginSession, OfAPersonAtATextTerminal_IsNotGraphical) {
    SKIP_UNLESS(WithOwnMounts([] {
        TakeSeat("7", 1234, "user", "tty", getpid());
        const SeatState seat = ActiveSessionOfTheSeat();
        ASSERT_TRUE(seat.session);
        EXPECT_TRUE(seat.session->isPersons);
        EXPECT_FALSE(seat.session->isGraphical);
    }));
}

TEST(LoginSession, OfALoginScreen_IsNobodys) {
    SKIP_UNLESS(WithOwnMounts([] {
        for (const char* const kind : {"greeter", "lock-screen"}) {
            TakeSeat("c1", 120, kind, "wayland", getpid());
            const SeatState seat = ActiveSessionOfTheSeat();
            ASSERT_TRUE(seat.session);
            EXPECT_FALSE(seat.session->isPersons) << kind;
        }
    }));
}

TEST(LoginSession, Leader_IsTheProcessThatLogindBeganWith) {
    SKIP_UNLESS(WithOwnMounts([] {
        TakeSeat("c1", 1234, "user", "x11", getpid());
        const auto session = ActiveSessionOfTheSeat().session;
        ASSERT_TRUE(session);
        const auto leader = frameworks::LeaderOf(*session);
        ASSERT_TRUE(leader);
        EXPECT_EQ(leader->pid, getpid());
        TakeSeat("c1", 1234, "user", "x11", 0x7FFFFFFF);
        EXPECT_FALSE(frameworks::LeaderOf(*session));
    }));
}

}  // namespace
