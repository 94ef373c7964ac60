// Running tools with an administrator's rights. pkexec and sudo are stand-ins in a folder that is
// the whole search path; they write down how they were called.

#include <Security/Security.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "unit/ApplicationTesting.h"
#include "unit/FilesTesting.h"
#include "unit/support/Waiting.h"

namespace {

namespace fs = std::filesystem;

using applicationtest::AsOrdinaryUser;
using applicationtest::ReadWhole;
using applicationtest::WriteProgram;
using filestest::TemporaryFolder;
using Variable = filestest::Environment;

constexpr AuthorizationFlags kAsk = kAuthorizationFlagInteractionAllowed |
                                    kAuthorizationFlagExtendRights | kAuthorizationFlagPreAuthorize;

class Authorization {
  public:
    Authorization() {
        EXPECT_EQ(AuthorizationCreate(nullptr, kAuthorizationEmptyEnvironment,
                                      kAuthorizationFlagDefaults, &reference),
                  errAuthorizationSuccess);
    }
    Authorization(const Authorization&) = delete;
    Authorization& operator=(const Authorization&) = delete;
    ~Authorization() {
        EXPECT_EQ(AuthorizationFree(reference, kAuthorizationFlagDefaults),
                  errAuthorizationSuccess);
    }

    OSStatus Ask(AuthorizationFlags flags = kAsk, const char* right = "system.privilege.admin") {
        AuthorizationItem item = {right, 0, nullptr, 0};
        const AuthorizationRights rights = {1, &item};
        return AuthorizationCopyRights(reference, &rights, kAuthorizationEmptyEnvironment, flags,
                                       nullptr);
    }

    OSStatus Execute(const std::string& tool, std::vector<const char*> arguments = {}) {
        arguments.push_back(nullptr);
        return AuthorizationExecuteWithPrivileges(
            reference, tool.c_str(), kAuthorizationFlagDefaults,
            const_cast<char* const*>(arguments.data()), &pipe);
    }

    // What the tool prints, to its end.
    std::string ReadAll() {
        std::string all;
        char piece[256];
        for (ssize_t length = 0; (length = read(fileno(pipe), piece, sizeof piece)) > 0;) {
            all.append(piece, static_cast<std::size_t>(length));
        }
        std::fclose(pipe);
        pipe = nullptr;
        return all;
    }

    AuthorizationRef reference = nullptr;
    FILE* pipe = nullptr;
};

class AuthorizationTest : public testing::Test {
  protected:
    AuthorizationTest() : path("PATH", (folder / "bin").c_str()), askpass("SUDO_ASKPASS", nullptr) {
        fs::permissions(folder.Path(), fs::perms::all);
        applicationtest::MakeFolder(folder / "bin");
        WriteProgram(folder / "tool", "#!/bin/sh\necho run >> '" + folder / "runs" +
                                          "'\necho \"$0 got $*\"\necho complaint >&2\n");
    }

    // A stand-in that writes its arguments to the file "calls", one a line, and goes on with BODY.
    void StandIn(const std::string& name, const std::string& body) {
        WriteProgram(folder / "bin/" + name, "#!/bin/sh\nprintf '%s\\n' \"$@\" >> '" +
                                                 folder / "calls" + "'\n" + body + "\n");
    }
    std::string Calls() const { return ReadWhole(folder / "calls"); }
    std::string Runs() const { return ReadWhole(folder / "runs"); }

    const TemporaryFolder folder;
    const Variable path;
    const Variable askpass;
};

// In root's home, unless it is told to stay.
constexpr char kLetsIn[] =
    "shift; if [ \"$1\" = --keep-cwd ]; then shift; else cd /; fi; exec \"$@\"";

TEST_F(AuthorizationTest, WithPkexec_RunsTheToolOnceThroughIt) {
    StandIn("pkexec", kLetsIn);
    AsOrdinaryUser([this] {
        Authorization authorization;
        ASSERT_EQ(authorization.Ask(), errAuthorizationSuccess);
        EXPECT_EQ(Calls(), "") << "nobody is asked before there is a tool to name";
        ASSERT_EQ(authorization.Execute(folder / "tool", {"a b", "it's", "\"", "$HOME", ""}),
                  errAuthorizationSuccess);
        EXPECT_EQ(authorization.ReadAll(), folder / "tool" + " got a b it's \" $HOME \n");
    });
    EXPECT_EQ(Calls(), "--disable-internal-agent\n--keep-cwd\n" + folder / "tool" +
                           "\na b\nit's\n\"\n$HOME\n\n");
    EXPECT_EQ(Runs(), "run\n");
}

// A package may be named from there.
TEST_F(AuthorizationTest, WithPkexec_TheToolRunsInTheFolderInWhichTheProcessIs) {
    StandIn("pkexec", kLetsIn);
    WriteProgram(folder / "where", "#!/bin/sh\npwd -P\n");
    AsOrdinaryUser([this] {
        ASSERT_EQ(chdir(folder.Path().c_str()), 0);
        Authorization authorization;
        ASSERT_EQ(authorization.Ask(), errAuthorizationSuccess);
        ASSERT_EQ(authorization.Execute(folder / "where"), errAuthorizationSuccess);
        EXPECT_EQ(authorization.ReadAll(), fs::canonical(folder.Path()).string() + "\n");
    });
}

TEST_F(AuthorizationTest, WhenTheDialogIsDismissed_Execute_IsCanceledAndNothingRuns) {
    StandIn("pkexec", "exit 126");
    AsOrdinaryUser([this] {
        Authorization authorization;
        ASSERT_EQ(authorization.Ask(), errAuthorizationSuccess);
        EXPECT_EQ(authorization.Execute(folder / "tool"), errAuthorizationCanceled);
        EXPECT_EQ(authorization.pipe, nullptr);
    });
    EXPECT_EQ(Runs(), "");
}

TEST_F(AuthorizationTest, WhenTheRightsAreRefused_Execute_IsDeniedAndNothingRuns) {
    StandIn("pkexec", "echo 'Not authorized' >&2; exit 127");
    AsOrdinaryUser([this] {
        Authorization authorization;
        ASSERT_EQ(authorization.Ask(), errAuthorizationSuccess);
        EXPECT_EQ(authorization.Execute(folder / "tool"), errAuthorizationDenied);
    });
    EXPECT_EQ(Runs(), "");
}

TEST_F(AuthorizationTest, WithNobodyToAsk_CopyRights_SaysSo) {
    AsOrdinaryUser([this] {
        Authorization authorization;
        EXPECT_EQ(authorization.Ask(), errAuthorizationInteractionNotAllowed);
        EXPECT_EQ(authorization.Execute(folder / "tool"), errAuthorizationDenied);
    });
    EXPECT_EQ(Runs(), "");
}

TEST_F(AuthorizationTest, WhenWhoCouldBeAskedGoesAway_Execute_SaysSo) {
    fs::permissions(folder / "bin", fs::perms::all);
    StandIn("pkexec", kLetsIn);
    AsOrdinaryUser([this] {
        Authorization authorization;
        ASSERT_EQ(authorization.Ask(), errAuthorizationSuccess);
        fs::remove(folder / "bin/pkexec");
        EXPECT_EQ(authorization.Execute(folder / "tool"), errAuthorizationInteractionNotAllowed);
    });
}

TEST_F(AuthorizationTest, WithoutPkexec_SudoIsAskedWithoutATerminal) {
    StandIn("sudo", "while [ \"$1\" != -- ]; do shift; done; shift; exec \"$@\"");
    AsOrdinaryUser([this] {
        Authorization authorization;
        ASSERT_EQ(authorization.Ask(), errAuthorizationSuccess);
        ASSERT_EQ(authorization.Execute(folder / "tool", {"a b"}), errAuthorizationSuccess);
        EXPECT_EQ(authorization.ReadAll(), folder / "tool" + " got a b\n");
    });
    EXPECT_EQ(Calls().substr(0, 6), "-n\n--\n");
    EXPECT_EQ(Runs(), "run\n");
}

TEST_F(AuthorizationTest, WithAnAskpassProgram_SudoMayUseIt) {
    const Variable program("SUDO_ASKPASS", "/bin/false");
    StandIn("sudo", "while [ \"$1\" != -- ]; do shift; done; shift; exec \"$@\"");
    AsOrdinaryUser([this] {
        Authorization authorization;
        ASSERT_EQ(authorization.Ask(), errAuthorizationSuccess);
        ASSERT_EQ(authorization.Execute(folder / "tool"), errAuthorizationSuccess);
        authorization.ReadAll();
    });
    EXPECT_EQ(Calls().substr(0, 6), "-A\n--\n");
}

TEST_F(AuthorizationTest, WhenSudoRefuses_Execute_IsDenied) {
    StandIn("sudo", "echo 'a password is required' >&2; exit 1");
    AsOrdinaryUser([this] {
        Authorization authorization;
        ASSERT_EQ(authorization.Ask(), errAuthorizationSuccess);
        EXPECT_EQ(authorization.Execute(folder / "tool"), errAuthorizationDenied);
    });
    EXPECT_EQ(Runs(), "");
}

TEST_F(AuthorizationTest, WithSudo_ASilentToolThatFails_HasRun) {
    StandIn("sudo", "while [ \"$1\" != -- ]; do shift; done; shift; exec \"$@\"");
    WriteProgram(folder / "silent", "#!/bin/sh\nexit 1\n");
    AsOrdinaryUser([this] {
        Authorization authorization;
        ASSERT_EQ(authorization.Ask(), errAuthorizationSuccess);
        ASSERT_EQ(authorization.Execute(folder / "silent"), errAuthorizationSuccess);
        EXPECT_EQ(authorization.ReadAll(), "");
    });
}

TEST_F(AuthorizationTest, WithBoth_PkexecIsAsked) {
    StandIn("pkexec", kLetsIn);
    StandIn("sudo", "exit 1");
    AsOrdinaryUser([this] {
        Authorization authorization;
        ASSERT_EQ(authorization.Ask(), errAuthorizationSuccess);
        ASSERT_EQ(authorization.Execute(folder / "tool"), errAuthorizationSuccess);
        EXPECT_NE(authorization.ReadAll(), "");
    });
}

TEST_F(AuthorizationTest, Execute_OfASilentTool_GivesAnEmptyPipe) {
    StandIn("pkexec", kLetsIn);
    WriteProgram(folder / "silent", "#!/bin/sh\necho complaint >&2\nexit 3\n");
    AsOrdinaryUser([this] {
        Authorization authorization;
        ASSERT_EQ(authorization.Ask(), errAuthorizationSuccess);
        ASSERT_EQ(authorization.Execute(folder / "silent"), errAuthorizationSuccess);
        EXPECT_EQ(authorization.ReadAll(), "");
    });
}

TEST_F(AuthorizationTest, Execute_OfASilentToolThatEndsLikeARefusal_IsTakenForOne) {
    StandIn("pkexec", kLetsIn);
    WriteProgram(folder / "silent", "#!/bin/sh\nexit 127\n");
    WriteProgram(folder / "telling", "#!/bin/sh\necho told\nexit 127\n");
    AsOrdinaryUser([this] {
        Authorization authorization;
        ASSERT_EQ(authorization.Ask(), errAuthorizationSuccess);
        EXPECT_EQ(authorization.Execute(folder / "silent"), errAuthorizationDenied);
        ASSERT_EQ(authorization.Execute(folder / "telling"), errAuthorizationSuccess);
        EXPECT_EQ(authorization.ReadAll(), "told\n");
    });
}

TEST_F(AuthorizationTest, Execute_ReturnsWhenTheToolHasPrinted) {
    StandIn("pkexec", kLetsIn);
    WriteProgram(folder / "slow", "#!/bin/sh\necho 1\nwhile [ ! -e '" + folder / "go" +
                                      "' ]; do /bin/sleep 0.02; done\necho 2\n");
    AsOrdinaryUser([this] {
        Authorization authorization;
        ASSERT_EQ(authorization.Ask(), errAuthorizationSuccess);
        ASSERT_EQ(authorization.Execute(folder / "slow"), errAuthorizationSuccess);
        // The tool is still at it.
        filestest::WriteFile(folder / "go");
        EXPECT_EQ(authorization.ReadAll(), "1\n2\n");
    });
}

TEST_F(AuthorizationTest, Execute_OfAToolThatReads_GivesItNothing) {
    StandIn("pkexec", kLetsIn);
    AsOrdinaryUser([] {
        Authorization authorization;
        ASSERT_EQ(authorization.Ask(), errAuthorizationSuccess);
        ASSERT_EQ(authorization.Execute("/bin/cat"), errAuthorizationSuccess);
        EXPECT_EQ(authorization.ReadAll(), "");
    });
}

TEST_F(AuthorizationTest, Execute_OfMuchOutput_GivesAllOfIt) {
    StandIn("pkexec", kLetsIn);
    WriteProgram(folder / "long", "#!/bin/sh\nhead -c 300000 /dev/zero\n");
    const Variable usual("PATH", (folder / "bin" + ":/usr/bin:/bin").c_str());
    AsOrdinaryUser([this] {
        Authorization authorization;
        ASSERT_EQ(authorization.Ask(), errAuthorizationSuccess);
        ASSERT_EQ(authorization.Execute(folder / "long"), errAuthorizationSuccess);
        EXPECT_EQ(authorization.ReadAll().size(), 300000u);
    });
}

TEST_F(AuthorizationTest, Execute_OfWhatIsNoTool_Fails) {
    StandIn("pkexec", kLetsIn);
    AsOrdinaryUser([this] {
        Authorization authorization;
        ASSERT_EQ(authorization.Ask(), errAuthorizationSuccess);
        EXPECT_EQ(authorization.Execute(folder / "none"), errAuthorizationToolExecuteFailure);
        EXPECT_EQ(authorization.Execute("tool"), errAuthorizationToolExecuteFailure);
        EXPECT_EQ(authorization.Execute(""), errAuthorizationToolExecuteFailure);
    });
    EXPECT_EQ(Calls(), "");
}

TEST_F(AuthorizationTest, AfterFree_NoChildIsLeft) {
    StandIn("pkexec", kLetsIn);
    WriteProgram(folder / "stays", "#!/bin/sh\necho 1\nexec >&-\nwhile [ ! -e '" + folder / "go" +
                                       "' ]; do /bin/sleep 0.02; done\n");
    AsOrdinaryUser([this] {
        {
            Authorization authorization;
            ASSERT_EQ(authorization.Ask(), errAuthorizationSuccess);
            ASSERT_EQ(authorization.Execute(folder / "tool"), errAuthorizationSuccess);
            authorization.ReadAll();
            ASSERT_EQ(authorization.Execute(folder / "stays"), errAuthorizationSuccess);
            EXPECT_EQ(authorization.ReadAll(), "1\n");
        }
        // Freeing has not waited for the one that goes on without its output.
        filestest::WriteFile(folder / "go");
        EXPECT_TRUE(WaitUntil([] {
            siginfo_t ended;
            return waitid(P_ALL, 0, &ended, WEXITED | WNOHANG | WNOWAIT) == -1 && errno == ECHILD;
        }));
    });
}

TEST_F(AuthorizationTest, AsRoot_NobodyIsAsked) {
    if (geteuid() != 0) GTEST_SKIP() << "only as root";
    StandIn("pkexec", "exit 126");
    StandIn("sudo", "exit 1");
    Authorization authorization;
    EXPECT_EQ(authorization.Ask(kAuthorizationFlagDefaults), errAuthorizationSuccess);
    ASSERT_EQ(authorization.Execute(folder / "tool", {"x"}), errAuthorizationSuccess);
    EXPECT_EQ(authorization.ReadAll(), folder / "tool" + " got x\n");
    EXPECT_EQ(Calls(), "");
}

TEST_F(AuthorizationTest, CopyRights_ThatMayAskNobody_SaysSo) {
    StandIn("pkexec", kLetsIn);
    AsOrdinaryUser([] {
        Authorization authorization;
        for (const AuthorizationFlags flags :
             {AuthorizationFlags{kAuthorizationFlagDefaults},
              AuthorizationFlags{kAuthorizationFlagInteractionAllowed},
              AuthorizationFlags{kAuthorizationFlagExtendRights}}) {
            EXPECT_EQ(authorization.Ask(flags), errAuthorizationInteractionNotAllowed);
        }
    });
}

TEST_F(AuthorizationTest, CopyRights_OfAnotherRight_IsDenied) {
    StandIn("pkexec", kLetsIn);
    Authorization authorization;
    EXPECT_EQ(authorization.Ask(kAsk, "system.preferences"), errAuthorizationDenied);
    EXPECT_EQ(authorization.Ask(kAsk, ""), errAuthorizationDenied);
}

TEST_F(AuthorizationTest, BadArguments_AreRefused) {
    Authorization authorization;
    AuthorizationItem item = {"system.privilege.admin", 0, nullptr, 0};
    AuthorizationItem nameless = {nullptr, 0, nullptr, 0};
    const AuthorizationRights rights = {1, &item};
    const AuthorizationRights none = {0, nullptr};
    const AuthorizationRights namelessRights = {1, &nameless};
    AuthorizationRights* given = nullptr;
    AuthorizationRef made = nullptr;
    const auto copy = [&](AuthorizationRef reference, const AuthorizationRights* wanted,
                          AuthorizationFlags flags = kAsk, AuthorizationRights** out = nullptr) {
        return AuthorizationCopyRights(reference, wanted, nullptr, flags, out);
    };
    EXPECT_EQ(AuthorizationCreate(&rights, nullptr, 0, &made), errAuthorizationInvalidSet);
    EXPECT_EQ(AuthorizationCreate(nullptr, nullptr, 1, &made), errAuthorizationInvalidFlags);
    EXPECT_EQ(AuthorizationCreate(nullptr, nullptr, 0, nullptr), errAuthorizationInvalidPointer);
    EXPECT_EQ(made, nullptr);
    EXPECT_EQ(copy(nullptr, &rights), errAuthorizationInvalidRef);
    EXPECT_EQ(copy(authorization.reference, nullptr), errAuthorizationInvalidSet);
    EXPECT_EQ(copy(authorization.reference, &none), errAuthorizationInvalidSet);
    EXPECT_EQ(copy(authorization.reference, &namelessRights), errAuthorizationInvalidSet);
    EXPECT_EQ(copy(authorization.reference, &rights, 1 << 3), errAuthorizationInvalidFlags);
    EXPECT_EQ(copy(authorization.reference, &rights, kAsk, &given), errAuthorizationInvalidPointer);
    EXPECT_EQ(AuthorizationFree(nullptr, 0), errAuthorizationInvalidRef);
    EXPECT_EQ(AuthorizationFree(authorization.reference, 1), errAuthorizationInvalidFlags);

    char* const arguments[] = {nullptr};
    FILE* pipe = nullptr;
    const auto execute = [&](AuthorizationRef reference, const char* tool, AuthorizationFlags flags,
                             char* const* words, FILE** out) {
        return AuthorizationExecuteWithPrivileges(reference, tool, flags, words, out);
    };
    AuthorizationRef const reference = authorization.reference;
    EXPECT_EQ(execute(nullptr, "/bin/true", 0, arguments, &pipe), errAuthorizationInvalidRef);
    EXPECT_EQ(execute(reference, nullptr, 0, arguments, &pipe), errAuthorizationInvalidPointer);
    EXPECT_EQ(execute(reference, "/bin/true", 0, nullptr, &pipe), errAuthorizationInvalidPointer);
    EXPECT_EQ(execute(reference, "/bin/true", 0, arguments, nullptr),
              errAuthorizationInvalidPointer);
    EXPECT_EQ(execute(reference, "/bin/true", 1, arguments, &pipe), errAuthorizationInvalidFlags);
    EXPECT_EQ(execute(reference, "/bin/true", 0, arguments, &pipe), errAuthorizationDenied);
    EXPECT_EQ(pipe, nullptr);
}

TEST_F(AuthorizationTest, Free_OfWhatWasFreed_IsRefused) {
    AuthorizationRef reference = nullptr;
    ASSERT_EQ(AuthorizationCreate(nullptr, nullptr, 0, &reference), errAuthorizationSuccess);
    EXPECT_EQ(AuthorizationFree(reference, 0), errAuthorizationSuccess);
    EXPECT_EQ(AuthorizationFree(reference, 0), errAuthorizationInvalidRef);
}

}  // namespace
