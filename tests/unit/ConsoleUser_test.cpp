#include <SystemConfiguration/SystemConfiguration.h>

#include "CFTestSupport.h"
#include "LoginTesting.h"
#include "Support/Users.h"
#include "SystemConfiguration/ConsoleUser.h"

namespace {

using namespace logintest;
using filestest::TemporaryFolder;
using filestest::WriteFile;
using frameworks::ConsoleUser;
using frameworks::FindConsoleUser;
using frameworks::LoginSession;
using frameworks::SeatState;
using frameworks::UserOf;

constexpr uid_t kDaemon = 1;
constexpr uid_t kNobodysNumber = 4000000;
const SeatState kNoLogind;

SeatState Seat(uid_t user, bool isPersons = true) {
    SeatState seat;
    seat.isKnown = true;
    seat.session = LoginSession{"c1", user, isPersons, true};
    return seat;
}

// A file that stands for the console's device.
class ConsoleOf {
  public:
    explicit ConsoleOf(uid_t owner) {
        WriteFile(folder / "console");
        if (owner != geteuid()) {
            EXPECT_EQ(chown(Path().c_str(), owner, static_cast<gid_t>(-1)), 0);
        }
    }
    std::string Path() const { return folder / "console"; }

  private:
    const TemporaryFolder folder;
};

bool IsRoot() {
    return geteuid() == 0;
}

TEST(ConsoleUser, WithLogind_IsTheUserOfTheActiveSession) {
    const auto user = FindConsoleUser(Seat(kDaemon), "/nonexistent");
    ASSERT_TRUE(user);
    EXPECT_EQ(user->name, UserOf(kDaemon)->name);
    EXPECT_EQ(user->uid, kDaemon);
    EXPECT_EQ(user->gid, UserOf(kDaemon)->group);
}

TEST(ConsoleUser, WithLogind_MayBeRoot) {
    const auto user = FindConsoleUser(Seat(0), "/nonexistent");
    ASSERT_TRUE(user);
    EXPECT_EQ(user->name, "root");
}

TEST(ConsoleUser, AtTheLoginScreen_IsNobody) {
    EXPECT_FALSE(FindConsoleUser(Seat(kDaemon, false), "/nonexistent"));
}

TEST(ConsoleUser, OfASeatWithNobody_IsNobodyWhoeverOwnsTheConsole) {
    SeatState empty;
    empty.isKnown = true;
    const uid_t owner = IsRoot() ? kDaemon : geteuid();
    const ConsoleOf console(owner);
    EXPECT_FALSE(FindConsoleUser(empty, console.Path().c_str()));
}

TEST(ConsoleUser, WithoutLogind_IsTheOwnerOfTheConsole) {
    const uid_t owner = IsRoot() ? kDaemon : geteuid();
    const ConsoleOf console(owner);
    const auto user = FindConsoleUser(kNoLogind, console.Path().c_str());
    ASSERT_TRUE(user);
    EXPECT_EQ(user->name, UserOf(owner)->name);
    EXPECT_EQ(user->uid, owner);
    EXPECT_EQ(user->gid, UserOf(owner)->group);
}

TEST(ConsoleUser, WithoutLogind_IsNobodyWhenRootOwnsTheConsole) {
    EXPECT_FALSE(FindConsoleUser(kNoLogind, "/proc/1"));
}

TEST(ConsoleUser, WithoutLogindAndConsole_IsNobody) {
    EXPECT_FALSE(FindConsoleUser(kNoLogind, "/nonexistent/console"));
}

TEST(ConsoleUser, WhomThePasswordDatabaseDoesNotKnow_IsNobody) {
    EXPECT_FALSE(FindConsoleUser(Seat(kNobodysNumber), "/nonexistent"));
    if (IsRoot()) {
        const ConsoleOf console(kNobodysNumber);
        EXPECT_FALSE(FindConsoleUser(kNoLogind, console.Path().c_str()));
    }
}

TEST(ConsoleUser, Copy_GivesWhatLogindSays) {
    const bool ran = WithOwnMounts([] {
        TakeSeat("c1", kDaemon, "user", "wayland", getpid());
        const Owned<SCDynamicStoreRef> store =
            SCDynamicStoreCreate(kCFAllocatorDefault, CFSTR("test"), nullptr, nullptr);
        uid_t uid = 77;
        gid_t gid = 77;
        const Owned<CFStringRef> name = SCDynamicStoreCopyConsoleUser(store, &uid, &gid);
        ASSERT_NE(name, nullptr);
        EXPECT_EQ(TextOf(name), UserOf(kDaemon)->name);
        EXPECT_EQ(uid, kDaemon);
        EXPECT_EQ(gid, UserOf(kDaemon)->group);
        // Neither the store nor the numbers are needed.
        const Owned<CFStringRef> again = SCDynamicStoreCopyConsoleUser(nullptr, nullptr, nullptr);
        EXPECT_EQ(TextOf(again), TextOf(name));
    });
    if (!ran) GTEST_SKIP() << "mounts of one's own are not allowed here";
}

TEST(ConsoleUser, Copy_ForNobody_GivesNullAndLeavesTheNumbers) {
    const bool ran = WithOwnMounts([] {
        TakeSeat("c1", kDaemon, "greeter", "wayland", getpid());
        uid_t uid = 77;
        gid_t gid = 77;
        EXPECT_EQ(SCDynamicStoreCopyConsoleUser(nullptr, &uid, &gid), nullptr);
        EXPECT_EQ(uid, 77u);
        EXPECT_EQ(gid, 77u);
    });
    if (!ran) GTEST_SKIP() << "mounts of one's own are not allowed here";
}

TEST(ConsoleUser, Create_WithACallback_GivesNull) {
    EXPECT_EQ(SCDynamicStoreCreate(
                  kCFAllocatorDefault, CFSTR("test"), [](SCDynamicStoreRef, CFArrayRef, void*) {},
                  nullptr),
              nullptr);
}

TEST(ConsoleUserDeathTest, Copy_OfAnotherType_Stops) {
    EXPECT_DEATH(SCDynamicStoreCopyConsoleUser(
                     reinterpret_cast<SCDynamicStoreRef>(CFSTR("no store")), nullptr, nullptr),
                 "SCDynamicStoreCopyConsoleUser: expected a SCDynamicStore, got a CFString");
}

}  // namespace
