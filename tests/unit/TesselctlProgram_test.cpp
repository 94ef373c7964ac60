// The program itself, as a person or a script runs it.

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <thread>

#include "tesselctl/History.h"
#include "unit/TesselctlTesting.h"

namespace {

using namespace tesselctltest;
using tesselctl::History;
using tesselctl::HistoryPath;
using Words = std::vector<std::string>;

class TesselctlProgram : public testing::Test {
  protected:
    Outcome Run(Words arguments, const std::string& input = {}) {
        arguments.insert(arguments.begin(), {"--home", home.Path()});
        return RunProgram(arguments, input);
    }

    TemporaryHome home;
};

// A service that knows each kind of answer.
std::string Answers(const std::string& command) {
    if (command == "platform") return "Success MACOSX|";
    if (command == "dockUpdateFinished") return "Success |";
    if (command == "checkExists /") return "True|";
    if (command == "checkExists /none") return "CurrentAttachedDevices=0X0001|False|";
    if (command == "getIcon /X.app") return "IconMissing|";
    if (command == "exit") return "QuitAcknowledged|";
    if (command == "getCoreVersion") return "Success CoreVersion=2.07.0|";
    if (command == "startProcess /x") return "Failure Unable to start application - No such file|";
    return "SyntaxError Unknown command - Success|";
}

TEST_F(TesselctlProgram, EveryKindOfAnswer_HasItsOutputAndExitStatus) {
    ScriptedService service(Authorizing(Answers));
    home.WriteKeyFile(service.Port(), service.Port(), service.Port());
    const auto check = [&](const Words& command, int status, const std::string& output,
                           const std::string& errors) {
        const Outcome outcome = Run(command);
        EXPECT_EQ(status, outcome.status) << command[0];
        EXPECT_EQ(output, outcome.output) << command[0];
        EXPECT_EQ(errors, outcome.errors) << command[0];
    };
    check({"platform"}, 0, "MACOSX\n", "");
    check({"dockUpdateFinished"}, 0, "", "");
    check({"checkExists", "/"}, 0, "True\n", "");
    check({"checkExists", "/none"}, 1, "False\n", "");
    check({"getIcon", "/X.app"}, 1, "IconMissing\n", "");
    check({"exit"}, 0, "QuitAcknowledged\n", "");
    check({"startProcess", "/x"}, 1, "",
          "tesselctl: startProcess failed: Unable to start application - No such file\n");
    check({"what"}, 2, "", "tesselctl: what was not understood: Unknown command - Success\n");
    check({"checkExists", "a|b"}, 64, "",
          "tesselctl: argument 1 holds a vertical bar, which ends a command and cannot be sent\n");
}

TEST_F(TesselctlProgram, WithoutAService_ItSaysWhyAndExitsWithThree) {
    Outcome outcome = Run({"platform"});
    EXPECT_EQ(3, outcome.status);
    EXPECT_EQ("tesselctl: there is no key file " + home.KeyFile() +
                  ": no service has been started in this home\n",
              outcome.errors);
    const int port = DeadPort();
    home.WriteKeyFile(port, port, port);
    outcome = Run({"platform"});
    EXPECT_EQ(3, outcome.status);
    EXPECT_EQ("tesselctl: the service is not running: nobody listens on port " +
                  std::to_string(port) + ", " + home.KeyFile() + " was left by an earlier run\n",
              outcome.errors);
    EXPECT_EQ("", outcome.output);
}

TEST_F(TesselctlProgram, Mistakes_ExitWithSixtyFour) {
    for (const Words& arguments :
         {Words{}, Words{"--nonsense"}, Words{"--timeout", "x", "platform"},
          Words{"help", "nonsense"}, Words{"status", "x"}}) {
        const Outcome outcome = RunProgram(arguments);
        EXPECT_EQ(64, outcome.status);
        EXPECT_EQ("", outcome.output);
        EXPECT_EQ("tesselctl: ", outcome.errors.substr(0, 11));
        EXPECT_EQ(outcome.errors.size() - 1, outcome.errors.find('\n'));
    }
}

TEST_F(TesselctlProgram, HelpAndVersion_NeedNoService) {
    EXPECT_EQ(0, RunProgram({"--help"}).status);
    EXPECT_EQ("Usage: tesselctl", RunProgram({"--help"}).output.substr(0, 16));
    EXPECT_EQ(RunProgram({"--help"}).output, RunProgram({"help"}).output);
    EXPECT_EQ("tesselctl 2.07.0\n", RunProgram({"--version"}).output);
    EXPECT_EQ("tesselctl getIcon BUNDLE\n", RunProgram({"help", "getIcon"}).output.substr(0, 25));
}

TEST_F(TesselctlProgram, TheTimeout_EndsTheWaitForAnAnswer) {
    ScriptedService service(Authorizing([](const std::string&) { return ""; }));
    home.WriteKeyFile(service.Port(), service.Port(), service.Port());
    const Outcome outcome = Run({"--timeout", "0.1", "platform"});
    EXPECT_EQ(3, outcome.status);
    EXPECT_EQ(
        "tesselctl: no answer to platform within 0.1 seconds; the service may still be at it\n",
        outcome.errors);
}

TEST_F(TesselctlProgram, StartTablet_ReturnsAtOnceAndSaysWhatItIsWorth) {
    ScriptedService service([](Client& client, int) { client.WaitForGoodbye(); });
    home.WriteKeyFile(service.Port(), service.Port(), service.Port());
    const Outcome outcome = Run({"startTablet"});
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ(
        "tesselctl: startTablet holds for one connection, and that is closed now; use "
        "'tesselctl shell'\n",
        outcome.errors);
}

TEST_F(TesselctlProgram, StartTablet_ThatAServiceDoesNotKnowIsRefused) {
    ScriptedService service([](Client& client, int) {
        client.Read();
        client.Send("SyntaxError Unknown command - Success|");
        client.WaitForGoodbye();
    });
    home.WriteKeyFile(service.Port(), service.Port(), service.Port());
    const Outcome outcome = Run({"startTablet"});
    EXPECT_EQ(2, outcome.status);
    EXPECT_EQ("tesselctl: startTablet was not understood: Unknown command - Success\n",
              outcome.errors);
}

TEST_F(TesselctlProgram, AFullDisk_IsAnOutputError) {
    ScriptedService service(Authorizing(Answers));
    home.WriteKeyFile(service.Port(), service.Port(), service.Port());
    const std::string command = std::string(TESSELCTL_PROGRAM) + " --home '" + home.Path() +
                                "' platform >/dev/full 2>/dev/null";
    EXPECT_EQ(74, WEXITSTATUS(std::system(command.c_str())));
}

TEST_F(TesselctlProgram, Status_TellsARunningServiceWithVersionAndProcess) {
    ScriptedService service(Authorizing(Answers));
    const int dead = DeadPort();
    home.WriteKeyFile(service.Port(), service.Port(), dead);
    const Outcome outcome = Run({"status"});
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ("", outcome.errors);
    std::string name = ReadFile("/proc/self/comm");
    name.pop_back();
    const std::string port = std::to_string(service.Port());
    EXPECT_EQ(
        "service:        running\n"
        "version:        2.07.0\n"
        "process:        " +
            std::to_string(getpid()) + " (" + name +
            ")\n"
            "command port:   " +
            port +
            "\n"
            "pressure port:  " +
            port +
            "\n"
            "apps port:      " +
            std::to_string(dead) +
            " (nobody listens)\n"
            "key file:       " +
            home.KeyFile() + "\n",
        outcome.output);
}

// Takes the second for which a busy service is waited for.
TEST_F(TesselctlProgram, Status_OfABusyServiceIsRunning) {
    ScriptedService service([](Client&, int) {});
    home.WriteKeyFile(service.Port(), service.Port(), service.Port());
    const Outcome outcome = Run({"status"});
    EXPECT_EQ(0, outcome.status);
    EXPECT_NE(std::string::npos,
              outcome.output.find("service:        running\n"
                                  "version:        unknown (the service is busy with another "
                                  "authorized client; it serves one at a time)\n"
                                  "process:        " +
                                  std::to_string(getpid())))
        << outcome.output;
}

TEST_F(TesselctlProgram, Status_WithoutAServiceIsNotRunning) {
    const int port = DeadPort();
    home.WriteKeyFile(port, -1, port);
    const Outcome outcome = Run({"status"});
    EXPECT_EQ(3, outcome.status);
    EXPECT_EQ(
        "service:        not running\n"
        "command port:   " +
            std::to_string(port) +
            " (nobody listens)\n"
            "pressure port:  none\n"
            "apps port:      " +
            std::to_string(port) +
            " (nobody listens)\n"
            "key file:       " +
            home.KeyFile() + "\n",
        outcome.output);
    EXPECT_EQ("tesselctl: the service is not running", outcome.errors.substr(0, 37));
    const TemporaryHome fresh;
    const Outcome never = RunProgram({"--home", fresh.Path(), "status"});
    EXPECT_EQ(3, never.status);
    EXPECT_EQ("service:        not running\nkey file:       " + fresh.KeyFile() + "\n",
              never.output);
}

TEST_F(TesselctlProgram, TheShellOnAPipe_AnswersLineByLineWithoutAPrompt) {
    ScriptedService service(Authorizing(Answers));
    home.WriteKeyFile(service.Port(), service.Port(), service.Port());
    const Outcome outcome =
        Run({"shell"}, "platform\n\n  \ncheckExists /\r\na|b\nstartProcess /x\nexit");
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ("MACOSX\nTrue\nQuitAcknowledged\n", outcome.output);
    EXPECT_EQ(
        "tesselctl: the line holds a vertical bar, which ends a command and cannot be sent\n"
        "tesselctl: startProcess failed: Unable to start application - No such file\n",
        outcome.errors);
    EXPECT_EQ(1, service.Connections());
}

TEST_F(TesselctlProgram, TheShellOnAPipe_EndsWithTheStatusOfItsLastCommand) {
    ScriptedService service(Authorizing(Answers));
    home.WriteKeyFile(service.Port(), service.Port(), service.Port());
    EXPECT_EQ(1, Run({"shell"}, "platform\ncheckExists /none\nquit\nplatform\n").status);
    EXPECT_EQ(2, Run({"shell"}, "platform\nwhat\n\n").status);
    EXPECT_EQ(64, Run({"shell"}, "platform\na|b\n").status);
    EXPECT_EQ(0, Run({"shell"}, "").status);
}

TEST_F(TesselctlProgram, TheShell_HelpsWithoutAService) {
    const Outcome outcome = Run({"shell"}, "help\nhelp getIcon\nhelp nonsense\n");
    EXPECT_EQ(0, outcome.status);
    EXPECT_NE(std::string::npos, outcome.output.find("\n  quit "));
    EXPECT_NE(std::string::npos, outcome.output.find("\ntesselctl getIcon BUNDLE\n"));
    EXPECT_EQ("tesselctl: there is no command nonsense\n", outcome.errors);
}

TEST_F(TesselctlProgram, TheShell_ConnectsAnewWhenTheServiceHasGone) {
    std::promise<void> gone;
    ScriptedService service([&](Client& client, int number) {
        if (client.Read() != std::string("auth ") + kKey) return;
        client.Send("authOk|");
        client.Read();
        client.Send("Success " + std::to_string(number) + "|");
        if (number > 0) return;
        shutdown(client.Socket(), SHUT_RDWR);
        gone.set_value();
    });
    home.WriteKeyFile(service.Port(), service.Port(), service.Port());
    const std::string lines = home.Path() + "/lines";
    ASSERT_EQ(0, mkfifo(lines.c_str(), 0600));
    std::thread typist([&] {
        std::ofstream typed(lines);
        typed << "createUUID" << std::endl;
        gone.get_future().wait_for(kPatience);
        typed << "createUUID" << std::endl;
    });
    const std::string command = TESSELCTL_PROGRAM " --home '" + home.Path() + "' shell <'" + lines +
                                "' >'" + home.Path() + "/out' 2>'" + home.Path() + "/err'";
    EXPECT_EQ(0, WEXITSTATUS(std::system(command.c_str())));
    typist.join();
    EXPECT_EQ("0\n1\n", ReadFile(home.Path() + "/out"));
    EXPECT_EQ("tesselctl: the command server has closed the connection; connecting anew\n",
              ReadFile(home.Path() + "/err"));
}

TEST_F(TesselctlProgram, TheShell_KeepsAChannelOpen) {
    ScriptedService service([](Client& client, int number) {
        EXPECT_EQ(0, number);
        EXPECT_EQ("registerChannel me", client.Read());
        client.Send("Success ChannelRegistered=true|");
        EXPECT_EQ("sendDataToChannel me 'a b' 1", client.Read());
        client.Send("ForwardDataToChannel me a b|Success DataSentToChannel=1|");
        client.WaitForGoodbye();
    });
    home.WriteKeyFile(DeadPort(), DeadPort(), service.Port());
    EXPECT_EQ("ChannelRegistered=true\nDataSentToChannel=1\n",
              Run({"shell"}, "registerChannel me\nsendDataToChannel me 'a b' 1\n").output);
}

TEST(TesselctlHistory, Lines_SurviveInAFileForTheUserAlone) {
    const TemporaryHome home;
    const std::string path = home.Path() + "/state/tesselctl/history";
    History(path).Append("platform");
    History(path).Append("checkExists 'a b'");
    EXPECT_EQ((Words{"platform", "checkExists 'a b'"}), History(path).Load());
    struct stat status {};
    ASSERT_EQ(0, stat(path.c_str(), &status));
    EXPECT_EQ(0600U, status.st_mode & 07777);
    ASSERT_EQ(0, stat((home.Path() + "/state/tesselctl").c_str(), &status));
    EXPECT_EQ(0700U, status.st_mode & 07777);
}

TEST(TesselctlHistory, ALongFile_IsCutToItsLastThousandLines) {
    const TemporaryHome home;
    const std::string path = home.Path() + "/history";
    std::string all;
    for (int i = 0; i < 2001; i++)
        all += "line " + std::to_string(i) + "\n";
    WriteFile(path, all);
    const Words lines = History(path).Load();
    ASSERT_EQ(1000U, lines.size());
    EXPECT_EQ("line 1001", lines.front());
    EXPECT_EQ("line 2000", lines.back());
    EXPECT_EQ(all.substr(all.find("line 1001\n")), ReadFile(path));
    struct stat status {};
    ASSERT_EQ(0, stat(path.c_str(), &status));
    EXPECT_EQ(0600U, status.st_mode & 07777);
}

TEST(TesselctlHistory, WithoutAWritablePlace_NothingIsKeptAndNothingFails) {
    History history("/proc/nowhere/history");
    history.Append("platform");
    EXPECT_TRUE(history.Load().empty());
}

TEST(TesselctlHistory, ItsPlace_FollowsTheStateFolder) {
    unsetenv("XDG_STATE_HOME");
    EXPECT_EQ("/h/.local/state/tesselctl/history", HistoryPath("/h"));
    setenv("XDG_STATE_HOME", "/s", 1);
    EXPECT_EQ("/s/tesselctl/history", HistoryPath("/h"));
    setenv("XDG_STATE_HOME", "relative", 1);
    EXPECT_EQ("/h/.local/state/tesselctl/history", HistoryPath("/h"));
    unsetenv("XDG_STATE_HOME");
}

}  // namespace
