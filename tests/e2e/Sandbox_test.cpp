// The tests' own ground: what the other tests take for granted.
#include <gmock/gmock.h>

#include "support/Files.h"
#include "support/ProgramRun.h"
#include "support/Sandbox.h"
#include "support/Service.h"
#include "support/Waiting.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(Sandbox, TwoOfThem_DoNotSeeEachOthersPorts) {
    Sandbox first;
    Sandbox second;
    first.OccupyPorts(3400, 3400);
    second.OccupyPorts(3400, 3400);
    EXPECT_TRUE(first.Listens(3400));
    EXPECT_FALSE(first.Listens(3401));
    first.FreePorts();
    EXPECT_THAT(first.Listeners(), IsEmpty());
    EXPECT_THAT(second.Listeners(), ElementsAre("0100007F:0D48"));
}

TEST(Sandbox, Programs_RunAsTheSandboxesUser) {
    Sandbox sandbox;
    EXPECT_EQ(RunProgram(sandbox, {"/usr/bin/id"}).output,
              "uid=1000(anna) gid=1000(anna) groups=1000(anna)\n");
    EXPECT_EQ(RunProgram(sandbox, {"/bin/sh", "-c", "exit 7"}).status, 7);
    EXPECT_EQ(RunProgram(sandbox, {"/bin/sh", "-c", "kill -9 $$"}).status, -1);
}

TEST(Sandbox, TheMachineOutside_IsOutOfReach) {
    Sandbox sandbox;
    const std::string outside = std::filesystem::current_path().string();
    const ProgramRun look = RunProgram(
        sandbox, {"/bin/sh", "-c", "ls '" + outside + "' /home; echo x >/usr/bin/x; ls /proc"});
    EXPECT_THAT(look.errors, HasSubstr("Read-only file system"));
    EXPECT_THAT(look.errors, HasSubstr("cannot access '/home'"));
    EXPECT_FALSE(Contains(look.output, std::to_string(getpid()) + "\n"));
}

TEST(Sandbox, AWaitInVain_FailsAfterItsDeadline) {
    EXPECT_THROW(WaitUntil(
                     "never", [] { return false; }, std::chrono::milliseconds(20)),
                 Failed);
    Sandbox sandbox;
    EXPECT_THROW(sandbox.Connect(3400), Failed);
}

}  // namespace
