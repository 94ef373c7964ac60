// The environment of the programs that are started for the user.

#include "Support/UserEnvironment.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "unit/ApplicationTesting.h"
#include "unit/FilesTesting.h"
#include "unit/support/Waiting.h"

namespace {

using applicationtest::AsOrdinaryUser;
using applicationtest::WriteProgram;
using filestest::TemporaryFolder;
using frameworks::EnvironmentOfUser;
using frameworks::FindProgram;
using frameworks::ValueIn;
using Variable = filestest::Environment;

std::string Value(const char* name) {
    return std::string(ValueIn(EnvironmentOfUser(), name));
}

TEST(UserEnvironment, OfTheUserWhoStartedTheProcess_IsItsOwn) {
    const Variable plain("UNIT_TEST_PLAIN", "a=b c");
    const Variable home("HOME", "/somewhere");
    EXPECT_EQ(Value("UNIT_TEST_PLAIN"), "a=b c");
    EXPECT_EQ(Value("HOME"), "/somewhere");
}

TEST(UserEnvironment, KeepsToItselfWhatTheServiceManagerSaid) {
    const Variable notify("NOTIFY_SOCKET", "/run/notify");
    const Variable journal("JOURNAL_STREAM", "1:2");
    EXPECT_EQ(Value("NOTIFY_SOCKET"), "");
    EXPECT_EQ(Value("JOURNAL_STREAM"), "");
}

TEST(UserEnvironment, WithoutAnything_HasASearchPathAndAHome) {
    const Variable path("PATH", nullptr);
    const Variable home("HOME", nullptr);
    const Variable user("USER", nullptr);
    EXPECT_NE(Value("PATH").find("/usr/bin"), std::string::npos);
    EXPECT_EQ(Value("HOME").substr(0, 1), "/");
    EXPECT_NE(Value("USER"), "");
}

TEST(UserEnvironment, AfterAnIdentitySwitch_IsThatOfTheNewUser) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can become somebody else";
    const Variable plain("UNIT_TEST_PLAIN", "root's");
    const Variable home("HOME", "/root");
    const Variable user("USER", "root");
    const Variable runtime("XDG_RUNTIME_DIR", "/run/user/0");
    const Variable display("DISPLAY", ":77");
    const Variable path("PATH", "/opt/bin:/usr/bin:/bin");
    const Variable numbers("LC_NUMERIC", "C");
    AsOrdinaryUser([] {
        EXPECT_EQ(Value("UNIT_TEST_PLAIN"), "");
        EXPECT_EQ(Value("USER"), "nobody");
        EXPECT_EQ(Value("LOGNAME"), "nobody");
        EXPECT_EQ(Value("HOME"), "/nonexistent");
        EXPECT_NE(Value("XDG_RUNTIME_DIR"), "/run/user/0");
        EXPECT_NE(Value("DISPLAY"), ":77");
        EXPECT_EQ(Value("PATH"), "/opt/bin:/usr/bin:/bin");
        EXPECT_EQ(Value("LC_NUMERIC"), "C");
    });
}

// A program with that environment, of the user that this process is now. It becomes no other one: a
// process has no environment while it does.
class Program {
  public:
    explicit Program(std::vector<std::string> variables) {
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        pid = fork();
        if (pid == 0) {
            variables.insert(variables.begin(), {"sh", "-c", "echo; kill -STOP $$"});
            std::vector<char*> environment;
            for (std::size_t index = 3; index < variables.size(); ++index) {
                environment.push_back(variables[index].data());
            }
            environment.push_back(nullptr);
            char* const words[] = {variables[0].data(), variables[1].data(), variables[2].data(),
                                   nullptr};
            dup2(ends[1], STDOUT_FILENO);
            execve("/bin/sh", words, environment.data());
            _exit(127);
        }
        close(ends[1]);
        char ready = 0;
        EXPECT_EQ(read(ends[0], &ready, 1), 1);
        close(ends[0]);
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;
    ~Program() {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }

  private:
    pid_t pid;
};

TEST(UserEnvironment, WithoutADisplay_TakesThatOfAProgramOfTheSameUser) {
    const Variable display("DISPLAY", nullptr);
    const Variable wayland("WAYLAND_DISPLAY", nullptr);
    AsOrdinaryUser([] {
        const Program far({"DISPLAY=localhost:10.0", "SSH_CONNECTION=1 2 3 4"});
        const Program near({"DISPLAY=:78", "XAUTHORITY=/tmp/auth", "SECRET=own", "PATH=/bin"});
        EXPECT_EQ(Value("DISPLAY"), ":78");
        EXPECT_EQ(Value("XAUTHORITY"), "/tmp/auth");
        EXPECT_EQ(Value("SECRET"), "");
        EXPECT_EQ(Value("SSH_CONNECTION"), "");
    });
}

TEST(UserEnvironment, WithoutADisplay_TakesNoneOfAnotherUser) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can become somebody else";
    const Variable display("DISPLAY", nullptr);
    const Variable wayland("WAYLAND_DISPLAY", nullptr);
    const Program roots({"DISPLAY=:79", "PATH=/bin"});
    AsOrdinaryUser([] { EXPECT_NE(Value("DISPLAY"), ":79"); });
}

TEST(UserEnvironment, ValueIn_GoesByTheWholeName) {
    const frameworks::Environment environment = {"ABC=1", "AB=2", "A", "EMPTY="};
    EXPECT_EQ(ValueIn(environment, "AB"), "2");
    EXPECT_EQ(ValueIn(environment, "A"), "");
    EXPECT_EQ(ValueIn(environment, "EMPTY"), "");
    EXPECT_EQ(ValueIn(environment, "B"), "");
}

TEST(UserEnvironment, FindProgram_TakesTheFirstThatCanBeRun) {
    const TemporaryFolder folder;
    applicationtest::MakeFolder(folder / "first/tool");
    applicationtest::MakeFolder(folder / "second");
    applicationtest::MakeFolder(folder / "third");
    WriteProgram(folder / "third/tool", "#!/bin/sh\n");
    filestest::WriteFile(folder / "second/tool", "not executable");
    const frameworks::Environment environment = {"PATH=" + folder / "first" + ":" +
                                                 folder / "second" + "::" + folder / "third"};
    EXPECT_EQ(FindProgram(environment, "tool"), folder / "third/tool");
    EXPECT_EQ(FindProgram(environment, "other"), "");
    EXPECT_EQ(FindProgram({}, "tool"), "");
}

}  // namespace
