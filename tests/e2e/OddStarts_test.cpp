// Started in ways in which nobody means to start it: it serves, or ends and says why.
#include <gmock/gmock.h>

#include <csignal>

#include "support/Files.h"
#include "support/Service.h"

namespace {

using testing::AnyOf;
using testing::HasSubstr;
using testing::StartsWith;

namespace fs = std::filesystem;

void ExpectToServe(Service& service) {
    EXPECT_EQ(service.Authorized().Ask("platform"), "Success MACOSX");
    EXPECT_THAT(service.ConnectToPressure().Ask("hello"), StartsWith("SyntaxError "));
    EXPECT_EQ(service.ConnectToApps().Ask("hello"), "Success ");
}

// Seven of eight combinations: one bit for each of the three.
class ClosedDescriptors : public testing::TestWithParam<int> {};

TEST_P(ClosedDescriptors, AreReplacedByOnesThatNothingGetsInto) {
    Sandbox sandbox;
    sandbox.MakeUsersFile(Service::kLogFile, "");
    Start start;
    for (int standard = 0; standard <= 2; ++standard) {
        if ((GetParam() & 1 << standard) != 0) {
            start.closedDescriptors.push_back(standard);
        }
    }
    Service service(sandbox, start);
    service.WaitUntilListening();
    ExpectToServe(service);
    const std::string folder = "/proc/" + std::to_string(service.Pid()) + "/fd/";
    for (int standard = 0; standard <= 2; ++standard) {
        const std::string target = sandbox.ReadLink(folder + std::to_string(standard));
        if (standard == 0 || (GetParam() & 1 << standard) != 0) {
            EXPECT_EQ(target, "/dev/null") << standard;
        } else {
            EXPECT_THAT(target, testing::EndsWith(standard == 1 ? ".out" : ".err"));
        }
    }
    EXPECT_EQ(service.Stop(SIGTERM), Exit::Status(1));
    // What is printed at the end got into none of the files.
    EXPECT_THAT(ReadFile(sandbox.Outside(Service::kKeyFile)), testing::EndsWith("</root> \n"));
    for (const std::string& line : Lines(service.Log())) {
        EXPECT_THAT(line, testing::ContainsRegex("^[0-9]{5} - "));
    }
}

INSTANTIATE_TEST_SUITE_P(InEveryCombination, ClosedDescriptors, testing::Range(1, 8));

// Only a folder of the user's own, named in full, is taken for the home; otherwise it is that of
// the password entry.
class OddHome : public testing::Test {
  protected:
    void ExpectTheOneOfThePasswordEntry(const Start& start) {
        std::filesystem::remove(sandbox.Outside(Service::kKeyFile));
        Service service(sandbox, start);
        service.WaitUntilListening();
        ExpectToServe(service);
    }
    void ExpectTheOneOfThePasswordEntryInsteadOf(const std::string& home) {
        SCOPED_TRACE(home.substr(0, 100));
        Start start;
        start.environment["HOME"] = home;
        ExpectTheOneOfThePasswordEntry(start);
    }

    Sandbox sandbox;
};

TEST_F(OddHome, ThatIsEmpty_IsNotTaken) {
    Start start;
    start.emptyVariables = {"HOME"};
    ExpectTheOneOfThePasswordEntry(start);
}

TEST_F(OddHome, ThatIsRelative_IsNotTaken) {
    for (const char* const home : {"Users/anna", ".", "..", "~", "~anna"}) {
        ExpectTheOneOfThePasswordEntryInsteadOf(home);
    }
}

TEST_F(OddHome, OfFourKilobytes_IsNotTaken) {
    ExpectTheOneOfThePasswordEntryInsteadOf("/Users/anna/" + std::string(4096, 'x'));
    std::string folders = "/Users/anna";
    while (folders.size() < 4096) {
        folders += "/../anna";
    }
    ExpectTheOneOfThePasswordEntryInsteadOf(folders);
}

TEST_F(OddHome, NearlyAsLongAsAPathMayBe_IsTakenForAsMuchAsFits) {
    // The folder is there, but no path of a file in it can be said.
    std::string home = "/Users/anna";
    while (home.size() + 8 < 4095) {
        home += "/../anna";
    }
    Start start;
    start.environment["HOME"] = home;
    Service service(sandbox, start);
    service.WaitForOutput("waiting for clients\n", 3);
    service.WaitForOutput(
        "Call to Unable to open key authorization file to write:  returned error ");
}

TEST_F(OddHome, ThatIsNotThere_IsNotTaken) {
    ExpectTheOneOfThePasswordEntryInsteadOf("/System/nobody");
}

TEST_F(OddHome, ThatIsAFile_IsNotTaken) {
    sandbox.MakeUsersFile("/Users/Shared/file", "kept");
    ExpectTheOneOfThePasswordEntryInsteadOf("/Users/Shared/file");
    EXPECT_EQ(ReadFile(sandbox.Outside("/Users/Shared/file")), "kept");
}

TEST_F(OddHome, ThatIsNowhere_LetsNobodyAuthorizeAndIsSaid) {
    fs::remove_all(sandbox.Outside(kUserHome));
    Start start;
    start.environment["HOME"] = "";
    Service service(sandbox, start);
    service.WaitForOutput("waiting for clients\n", 3);
    service.WaitForOutput(
        "Call to Unable to open key authorization file to write:  returned error ");
    EXPECT_FALSE(fs::exists(sandbox.Outside(kUserHome)));
}

TEST(FewDescriptors, OfSixteen_ThereAreEnoughToServe) {
    Sandbox sandbox;
    sandbox.MakeUsersFile(Service::kLogFile, "");
    Start start;
    start.openFiles = 16;
    Service service(sandbox, start);
    service.WaitUntilListening();
    ExpectToServe(service);
    // One after the other, however many.
    for (int round = 0; round < 20; ++round) {
        ExpectToServe(service);
    }
}

TEST(FewDescriptors, OfFewerThanItNeeds_LetItEndAndSayWhy) {
    if (kSanitized) {
        GTEST_SKIP() << "the sanitizer needs descriptors for its own checks";
    }
    Sandbox sandbox;
    // With three it cannot even load its libraries.
    for (int limit = 4; limit < 16; ++limit) {
        SCOPED_TRACE("of " + std::to_string(limit));
        Start start;
        start.openFiles = limit;
        Service service(sandbox, start);
        WaitUntil("it serves or ends", [&] {
            return !service.Running() ||
                   Contains(service.OutputSoFar(), "Start pressure processing thread.");
        });
        // It may still find out that there are too few.
        const Exit exit = service.Running() ? service.Stop(SIGTERM) : service.WaitForExit();
        if (exit == Exit::Status(0)) {
            EXPECT_THAT(service.Output(), HasSubstr("can not create socket\n"));
        } else if (!Contains(service.Errors(), "no descriptors for a run loop: ")) {
            EXPECT_EQ(exit, Exit::Status(1));
            EXPECT_THAT(service.Output(),
                        HasSubstr("[CRASH] Program terminated unexpectedly. Signal:\n15\n"));
        }
    }
}

}  // namespace
