// The shell at a terminal: the program runs on one of the test's own making, which types and reads.

#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "unit/TesselctlTesting.h"

namespace {

using namespace tesselctltest;

class Terminal {
  public:
    explicit Terminal(const std::string& home) {
        const winsize size{24, 100, 0, 0};
        child = forkpty(&master, nullptr, nullptr, &size);
        if (child != 0) return;
        setenv("TERM", "vt100", 1);
        setenv("HOME", home.c_str(), 1);
        unsetenv("XDG_STATE_HOME");
        // No locale at all: the shell has to find one that can write UTF-8.
        unsetenv("LANG");
        unsetenv("LC_ALL");
        unsetenv("LC_CTYPE");
        execl(TESSELCTL_PROGRAM, "tesselctl", "shell", nullptr);
        _exit(127);
    }
    ~Terminal() {
        if (child > 0) {
            kill(child, SIGKILL);
            waitpid(child, nullptr, 0);
        }
        if (master != -1) close(master);
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    void Type(const std::string& keys) {
        EXPECT_EQ(static_cast<ssize_t>(keys.size()), write(master, keys.data(), keys.size()));
    }

    // Waits until a text has appeared behind what was waited for before.
    void WaitFor(const std::string& text) {
        const auto deadline = std::chrono::steady_clock::now() + kPatience;
        for (;;) {
            const std::size_t found = screen.find(text, seen);
            if (found != std::string::npos) {
                seen = found + text.size();
                return;
            }
            pollfd polled{master, POLLIN, 0};
            poll(&polled, 1, 100);
            char bytes[4096];
            const ssize_t got = polled.revents != 0 ? read(master, bytes, sizeof bytes) : 0;
            if (got > 0) screen.append(bytes, static_cast<std::size_t>(got));
            const bool ended = got == -1 && errno == EIO;
            if (!ended && std::chrono::steady_clock::now() < deadline) continue;
            ADD_FAILURE() << "\"" << text << "\" did not appear in:\n" << screen.substr(seen);
            return;
        }
    }

    // The exit status, or 1000 + the signal.
    int WaitForEnd() {
        const auto deadline = std::chrono::steady_clock::now() + kPatience;
        int status = 0;
        while (waitpid(child, &status, WNOHANG) == 0) {
            if (std::chrono::steady_clock::now() > deadline) return -1;
            pollfd polled{master, POLLIN, 0};
            poll(&polled, 1, 10);
            char bytes[4096];
            if (polled.revents != 0 && read(master, bytes, sizeof bytes) == -1) usleep(1000);
        }
        child = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
    }

    bool IsLineMode() const {
        termios modes{};
        return tcgetattr(master, &modes) == 0 && (modes.c_lflag & ICANON) != 0;
    }
    void Signal(int signal) const { kill(child, signal); }

  private:
    int master = -1;
    pid_t child = -1;
    std::string screen;
    std::size_t seen = 0;
};

constexpr const char* kPrompt = "tesselctl> ";
constexpr const char* kUp = "\033[A";
constexpr const char* kInterrupt = "\003";
constexpr const char* kEndOfInput = "\004";

class TesselctlPrompt : public testing::Test {
  protected:
    void ServeOn(const ScriptedService& service) {
        home.WriteKeyFile(service.Port(), service.Port(), service.Port());
    }
    TemporaryHome home;
    const std::string historyFile = home.Path() + "/.local/state/tesselctl/history";
};

std::string Echo(const std::string& command) {
    return "Success <" + command + ">|";
}

TEST_F(TesselctlPrompt, Commands_AreCompletedAnsweredAndRemembered) {
    ScriptedService service(Authorizing(Echo));
    ServeOn(service);
    {
        Terminal terminal(home.Path());
        terminal.WaitFor("Connected.");
        terminal.WaitFor(kPrompt);
        terminal.Type("checkEx\t/a\r");
        terminal.WaitFor("<checkExists /a>");
        terminal.WaitFor(kPrompt);
        terminal.Type("userCanA\t");
        // What is typed already stays where it is; only the rest appears.
        terminal.WaitFor("dminister");
        terminal.Type("\t");
        terminal.WaitFor("userCanAdministerAirApps");
        terminal.WaitFor("userCanAdministerNativeApps");
        terminal.Type("N\t\r");
        terminal.WaitFor("<userCanAdministerNativeApps >");
        terminal.WaitFor(kPrompt);
        terminal.Type("quit\r");
        EXPECT_EQ(0, terminal.WaitForEnd());
    }
    EXPECT_EQ("checkExists /a\nuserCanAdministerNativeApps \nquit\n", ReadFile(historyFile));
    Terminal next(home.Path());
    next.WaitFor(kPrompt);
    next.Type(std::string(kUp) + kUp + kUp + "b\r");
    next.WaitFor("<checkExists /ab>");
    next.WaitFor(kPrompt);
    next.Type(kEndOfInput);
    EXPECT_EQ(0, next.WaitForEnd());
}

TEST_F(TesselctlPrompt, WhatIsTyped_ReachesTheServiceAsUtf8) {
    ScriptedService service(Authorizing([](const std::string& command) {
        return command == "checkExists \xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80" ? "True|" : "False|";
    }));
    ServeOn(service);
    Terminal terminal(home.Path());
    terminal.WaitFor(kPrompt);
    terminal.Type("checkExists \xC3\xA9\xE2\x82\xACx\x7F\xF0\x9F\x98\x80\r");
    terminal.WaitFor("True\r\n");
}

TEST_F(TesselctlPrompt, WhatTheServiceSendsUnasked_IsShownAboveTheLineThatIsTyped) {
    ScriptedService service([](Client& client, int) {
        client.Read();
        client.Send("authOk|CurrentAttachedDevices=0X0001|");
        // Half a line has been typed when this comes.
        client.Read();
        client.Send("True|");
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        client.Send("CurrentAttachedDevices=0X0002|");
        EXPECT_EQ("platform", client.Read());
        client.Send("Success MACOSX|");
        client.WaitForGoodbye();
    });
    ServeOn(service);
    Terminal terminal(home.Path());
    terminal.WaitFor("* CurrentAttachedDevices=0X0001\r\n");
    terminal.WaitFor(kPrompt);
    terminal.Type("checkExists /\r");
    terminal.WaitFor("True");
    terminal.Type("plat");
    terminal.WaitFor("* CurrentAttachedDevices=0X0002\r\n");
    terminal.WaitFor("tesselctl> plat");
    terminal.Type("form\r");
    terminal.WaitFor("MACOSX");
}

TEST_F(TesselctlPrompt, ControlC_DiscardsTheLineOnly) {
    ScriptedService service(Authorizing(Echo));
    ServeOn(service);
    Terminal terminal(home.Path());
    terminal.WaitFor(kPrompt);
    terminal.Type("garbage");
    terminal.WaitFor("garbage");
    terminal.Type(kInterrupt);
    terminal.WaitFor("^C");
    terminal.WaitFor(kPrompt);
    terminal.Type("platform\r");
    terminal.WaitFor("<platform>");
}

TEST_F(TesselctlPrompt, ControlC_EndsTheWaitForAnAnswer) {
    ScriptedService service([](Client& client, int number) {
        client.Read();
        client.Send("authOk|");
        client.Read();
        if (number > 0) client.Send("Success again|");
        client.WaitForGoodbye();
    });
    ServeOn(service);
    Terminal terminal(home.Path());
    terminal.WaitFor(kPrompt);
    terminal.Type("createUUID\r");
    terminal.WaitFor("createUUID\r\n");
    terminal.Type(kInterrupt);
    terminal.WaitFor("no longer waiting for createUUID; the service may still be at it");
    terminal.WaitFor(kPrompt);
    terminal.Type("createUUID\r");
    terminal.WaitFor("again");
}

TEST_F(TesselctlPrompt, AServiceThatGoesAway_IsNoticedAtThePromptAndFoundAgain) {
    ScriptedService service([](Client& client, int number) {
        client.Read();
        client.Send("authOk|");
        if (number == 0) return;
        client.Read();
        client.Send("Success back|");
        client.WaitForGoodbye();
    });
    ServeOn(service);
    Terminal terminal(home.Path());
    terminal.WaitFor(
        "the command server has closed the connection; the next command connects anew");
    terminal.WaitFor(kPrompt);
    terminal.Type("platform\r");
    terminal.WaitFor("back");
}

TEST_F(TesselctlPrompt, WithoutAService_ThePromptIsThereAllTheSame) {
    Terminal terminal(home.Path());
    terminal.WaitFor("there is no key file");
    terminal.WaitFor(kPrompt);
    ScriptedService service(Authorizing(Echo));
    ServeOn(service);
    terminal.Type("platform\r");
    terminal.WaitFor("<platform>");
}

TEST_F(TesselctlPrompt, ASignalThatEndsIt_LeavesTheTerminalAsItWas) {
    ScriptedService service(Authorizing(Echo));
    ServeOn(service);
    Terminal terminal(home.Path());
    terminal.WaitFor(kPrompt);
    terminal.Type("x");
    terminal.WaitFor("x");
    EXPECT_FALSE(terminal.IsLineMode());
    terminal.Signal(SIGTERM);
    EXPECT_EQ(128 + SIGTERM, terminal.WaitForEnd());
    EXPECT_TRUE(terminal.IsLineMode());
}

}  // namespace
