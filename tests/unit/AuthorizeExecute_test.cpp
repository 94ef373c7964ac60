// What becomes of a tool's output. Root runs it at once; for anybody else pkexec is a stand-in that
// agrees. Who is asked, and how, is tested with the layer's own calls.
#include "apps/AuthorizeExecute.h"

#include <Security/Security.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <string>

#include "core/Helpers.h"
#include "unit/support/ForkedTest.h"
#include "unit/support/Interruptions.h"

using testing::ElementsAre;

namespace {

void Quietly(const std::function<void()>& body) {
    InChild([&body] {
        mkdir((Home() + "/bin").c_str(), 0755);
        const std::string pkexec = Home() + "/bin/pkexec";
        WriteFile(pkexec, "#!/bin/sh\nshift\nexec \"$@\"\n");
        chmod(pkexec.c_str(), 0755);
        setenv("PATH", (Home() + "/bin:/usr/bin:/bin").c_str(), 1);
        Helpers::logprint("opens the log");
        Printed();
        body();
    });
}

OSStatus RunScript(const std::string& text) {
    const std::string script = Home() + "/script.sh";
    WriteFile(script, text);
    return AuthorizeExecute::StartElevatedScript(script);
}

TEST(AuthorizeExecute, OfAnEmptyPath_IsRefusedWithoutADialog) {
    Quietly([] {
        EXPECT_NE(0, AuthorizeExecute::StartElevatedScript(""));
        EXPECT_THAT(Printed(), ElementsAre("AuthorizeScript: Script path zero length, invalid."));
    });
}

TEST(AuthorizeExecute, OfAScriptThatPrintsNothing_Is0HoweverItEnds) {
    Quietly([] {
        EXPECT_EQ(0, RunScript("exit 1\n"));
        EXPECT_THAT(Printed(),
                    ElementsAre("", "Script exit code: 0", "Script exit result code: noErr"));
    });
}

TEST(AuthorizeExecute, TheCode_IsTheFirstLetterOfTheOutputLess0) {
    Quietly([] {
        EXPECT_EQ(5, RunScript("echo 5 and more\n"));
        EXPECT_EQ(0, RunScript("echo 0\n"));
        EXPECT_EQ('n' - '0', RunScript("echo no\n"));
        EXPECT_EQ(' ' - '0', RunScript("echo ' 3'\n"));
    });
}

TEST(AuthorizeExecute, OfALongOutput_OnlyTheLastChunkOf128Counts) {
    Quietly([] {
        // Written at once, so that it is read in chunks that are full.
        EXPECT_EQ(7, RunScript("printf '%0128d7 and the rest' 1\n"));
        EXPECT_EQ(Printed().at(0), std::string(127, '0') + "17 and the rest");
        EXPECT_EQ(1, RunScript("printf '1%0127d' 2\n"));
        EXPECT_EQ(3, RunScript("printf '%0256d3' 1\n"));
    });
}

TEST(AuthorizeExecute, OfOutputThatComesBitByBit_TheLastBitCounts) {
    Quietly([] { EXPECT_EQ(4, RunScript("echo 1; sleep 0.1; echo 2; sleep 0.1; printf 4\n")); });
}

TEST(AuthorizeExecute, OfAToolThatIsWaitedFor_IsCollectedAlsoWhenSignalsInterrupt) {
    Quietly([] {
        const Interruptions interruptions;
        EXPECT_EQ(6, RunScript("printf 1; sleep 0.2; printf 6\n"));
        EXPECT_EQ(Printed().at(0), "16");
    });
}

TEST(AuthorizeExecute, AZeroByte_CutsItsChunkShort) {
    Quietly([] {
        EXPECT_EQ(6, RunScript("printf '6a\\000b'\n"));
        EXPECT_EQ("6a", Printed().at(0));
    });
}

TEST(AuthorizeExecute, TheErrorOutput_IsNotCollected) {
    Quietly([] {
        EXPECT_EQ(0, RunScript("echo 5 >&2\n"));
        EXPECT_EQ("", Printed().at(0));
    });
}

TEST(AuthorizeExecute, ATool_GetsItsArgumentsAsTheyAre) {
    Quietly([] {
        EXPECT_EQ('a' - '0', AuthorizeExecute::StartElevatedTool("/usr/bin/printf",
                                                                 {"%s|", "a b", "", "it's $HOME"}));
        EXPECT_EQ("a b||it's $HOME|", Printed().at(0));
    });
}

TEST(AuthorizeExecute, OfAToolThatIsNotThere_IsTheStatusOfThat) {
    Quietly([] {
        const OSStatus status = AuthorizeExecute::StartElevatedTool(Home() + "/nothing", {});
        EXPECT_EQ(errAuthorizationToolExecuteFailure, status);
        EXPECT_THAT(Printed(),
                    ElementsAre("AuthorizeScript: Authorization failed, or script encountered "
                                "errors: -60031"));
    });
}

}  // namespace
