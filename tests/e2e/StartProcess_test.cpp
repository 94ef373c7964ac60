// startProcess: applications, programs and documents by their path. xdg-open is a stand-in.
#include <gmock/gmock.h>

#include <csignal>

#include "support/Applications.h"
#include "support/Files.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

class StartProcess : public ApplicationsTest {
  protected:
    // Waits until the program of the application NAME has been started COUNT times.
    void WaitForStarts(const std::string& name, std::size_t count) {
        WaitUntil(name + " has been started",
                  [&] { return StartsOf(sandbox, name).size() >= count; });
        EXPECT_EQ(StartsOf(sandbox, name).size(), count);
    }
};

TEST_F(StartProcess, OfAnApplication_StartsItOnce) {
    MakeApplication(sandbox, "/Applications/Draw.app", {"com.example.draw"});
    EXPECT_EQ(PrintedFor("startProcess /Applications/Draw.app", "Success "), "");
    WaitForStarts("Draw", 1);
    EXPECT_EQ(Ask("startProcess /Applications/Draw.app/"), "Success ");
    EXPECT_TRUE(IsRunning(sandbox, StartsOf(sandbox, "Draw").at(0)));
    EXPECT_EQ(StartsOf(sandbox, "Draw").size(), 1U);
}

TEST_F(StartProcess, OfAPathWithoutAnExtension_StartsAProgram) {
    InstallTool(sandbox, "/Users/Shared/my program");
    EXPECT_EQ(Ask("startProcess '/Users/Shared/my program'"), "Success ");
    WaitUntil("it has run", [&] { return CallsOf(sandbox, "my program") == "|\n"; });
}

TEST_F(StartProcess, OfADocument_OpensItWithItsApplication) {
    InstallTool(sandbox, "/stand-ins/xdg-open");
    sandbox.MakeUsersFile("/Users/Shared/Größe & \"mehr\" $(id).txt", "text");
    EXPECT_EQ(PrintedFor("startProcess '/Users/Shared/Größe & \"mehr\" $(id).txt'", "Success "),
              "");
    EXPECT_EQ(CallsOf(sandbox, "xdg-open"), "/Users/Shared/Größe & \"mehr\" $(id).txt|\n");
}

TEST_F(StartProcess, OfADocumentThatNothingOpens_Fails) {
    InstallTool(sandbox, "/stand-ins/xdg-open", "exit 3\n");
    sandbox.MakeUsersFile("/Users/Shared/letter.txt", "text");
    Printed();
    EXPECT_THAT(Ask("startProcess /Users/Shared/letter.txt"),
                StartsWith("Failure kLSApplicationNotFoundErr - "));
    EXPECT_THAT(Printed(), HasSubstr("Unable to open document, error -10814\n"
                                     "kLSApplicationNotFoundErr\n"));
}

// Only the small letters make an application of it.
TEST_F(StartProcess, OfAnApplicationInCapitals_OpensADocument) {
    InstallTool(sandbox, "/stand-ins/xdg-open");
    MakeApplication(sandbox, "/Applications/Draw.APP", {"com.example.draw"});
    EXPECT_EQ(Ask("startProcess /Applications/Draw.APP"), "Success ");
    EXPECT_EQ(CallsOf(sandbox, "xdg-open"), "/Applications/Draw.APP|\n");
}

TEST_F(StartProcess, OfWhatIsNotThere_FailsWithTheStatusOfAMissingFile) {
    Printed();
    EXPECT_THAT(Ask("startProcess /Applications/None.app"), StartsWith("Failure fnfErr - "));
    EXPECT_THAT(Ask("startProcess /none"), StartsWith("Failure fnfErr - "));
    EXPECT_THAT(Printed(), HasSubstr("Unable to start application, error -43\nfnfErr\n"));
    EXPECT_THAT(Ask("startProcess /none.txt"), StartsWith("Failure fnfErr - "));
    EXPECT_THAT(Printed(), HasSubstr("Unable to open document, error -43\nfnfErr\n"));
}

TEST_F(StartProcess, WithoutAPath_FailsLikeOneThatIsNotThere) {
    for (const char* const command : {"startProcess", "startProcess ", "startProcess ''"}) {
        Printed();
        EXPECT_THAT(Ask(command), StartsWith("Failure fnfErr - ")) << command;
        EXPECT_THAT(Printed(), HasSubstr("Unable to start application, error -43\nfnfErr\n"));
    }
}

TEST_F(StartProcess, OfAFolderOrAPlainFile_IsNoApplication) {
    sandbox.MakeUsersFile("/Users/Shared/plain", "text");
    EXPECT_THAT(Ask("startProcess /Users/Shared/plain"),
                StartsWith("Failure kLSNotAnApplicationErr - "));
    EXPECT_THAT(Ask("startProcess /Users"), StartsWith("Failure kLSNotAnApplicationErr - "));
}

TEST_F(StartProcess, OfABrokenBundle_FailsAndSaysWhy) {
    MakeApplication(sandbox, "/Applications/Draw.app", {"com.example.draw"});
    std::filesystem::remove(sandbox.Outside("/Applications/Draw.app/Contents/MacOS/Program"));
    EXPECT_THAT(Ask("startProcess /Applications/Draw.app"),
                StartsWith("Failure kLSNoExecutableErr - "));
    std::filesystem::remove_all(sandbox.Outside("/Applications/Draw.app/Contents"));
    EXPECT_THAT(Ask("startProcess /Applications/Draw.app"),
                StartsWith("Failure kLSNoExecutableErr - "));
}

TEST_F(StartProcess, OfABundleWithoutAnInfoPlist_StartsTheProgramOfItsName) {
    MakeApplication(sandbox, "/Applications/Draw.app", {"com.example.draw", kStays, "Draw"});
    std::filesystem::remove(sandbox.Outside("/Applications/Draw.app/Contents/Info.plist"));
    EXPECT_EQ(Ask("startProcess /Applications/Draw.app"), "Success ");
    WaitForStarts("Draw", 1);
}

TEST_F(StartProcess, OfAnApplicationThatDiesAtOnce_SucceedsEveryTimeAndLeavesNothingBehind) {
    MakeApplication(sandbox, "/Applications/Draw.app", {"com.example.draw", "exit 1\n"});
    for (std::size_t start = 1; start <= 3; ++start) {
        EXPECT_EQ(Ask("startProcess /Applications/Draw.app"), "Success ");
        WaitForStarts("Draw", start);
        const pid_t program = StartsOf(sandbox, "Draw").back();
        WaitUntil("it has gone", [&] {
            try {
                sandbox.Read("/proc/" + std::to_string(program) + "/stat");
                return false;
            } catch (const Failed&) {
                return true;
            }
        });
    }
}

TEST_F(StartProcess, WithNamesOfAllKinds_StartsThem) {
    for (const char* const name : {"Zürich 日本", "it\"s a name", "$(touch x) & more", "-rf"}) {
        const std::string bundle = std::string("/Applications/") + name + ".app";
        MakeApplication(sandbox, bundle, {"com.example.named"});
        EXPECT_EQ(Ask("startProcess '" + bundle + "'"), "Success ");
        WaitForStarts(name, 1);
    }
    EXPECT_FALSE(std::filesystem::exists(sandbox.Outside("/tmp/x")));
}

TEST_F(StartProcess, WithMoreWords_ReadsThePathAlone) {
    InstallTool(sandbox, "/Users/Shared/program");
    EXPECT_EQ(Ask("startProcess /Users/Shared/program a b c"), "Success ");
    WaitUntil("it has run", [&] { return CallsOf(sandbox, "program") == "|\n"; });
}

TEST_F(StartProcess, WhatIsStarted_StaysWhenTheServiceGoes) {
    MakeApplication(sandbox, "/Applications/Draw.app", {"com.example.draw"});
    EXPECT_EQ(Ask("startProcess /Applications/Draw.app"), "Success ");
    WaitForStarts("Draw", 1);
    EXPECT_EQ(service.Stop(SIGTERM), Exit::Status(1));
    EXPECT_TRUE(IsRunning(sandbox, StartsOf(sandbox, "Draw").at(0)));
}

// Nothing is there to open documents with: the service of Launch Services cannot be reached.
class StartProcessOnABareDesktop : public ApplicationsTest {
  protected:
    StartProcessOnABareDesktop() : ApplicationsTest({}, With("PATH", "/stand-ins")) {}
};

TEST_F(StartProcessOnABareDesktop, OfADocument_Fails) {
    sandbox.MakeUsersFile("/Users/Shared/letter.txt", "text");
    EXPECT_THAT(Ask("startProcess /Users/Shared/letter.txt"),
                StartsWith("Failure kLSServerCommunicationErr - "));
    service.WaitForOutput("Unable to open document, error -10822\nkLSServerCommunicationErr\n");
}

}  // namespace
