// The shell at a terminal: the program runs on one of the test's own making, which types and reads.

#include <gtest/gtest.h>

#include <csignal>
#include <thread>

#include "unit/TesselctlTerminal.h"
#include "unit/TesselctlTesting.h"

namespace {

using namespace tesselctltest;

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
        Terminal terminal(home.Path(), {"shell"});
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
    Terminal next(home.Path(), {"shell"});
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
    Terminal terminal(home.Path(), {"shell"});
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
    Terminal terminal(home.Path(), {"shell"});
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

TEST_F(TesselctlPrompt, AnAnswer_NeverSteersTheTerminal) {
    ScriptedService service(
        Authorizing([](const std::string&) { return "Success \033]0;owned\007\t|"; }));
    ServeOn(service);
    Terminal terminal(home.Path(), {"platform"});
    EXPECT_EQ(0, terminal.WaitForEnd());
    EXPECT_EQ("^[]0;owned^G^I\r\n", terminal.Screen());
}

TEST_F(TesselctlPrompt, ControlC_DiscardsTheLineOnly) {
    ScriptedService service(Authorizing(Echo));
    ServeOn(service);
    Terminal terminal(home.Path(), {"shell"});
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
    Terminal terminal(home.Path(), {"shell"});
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
    Terminal terminal(home.Path(), {"shell"});
    terminal.WaitFor(
        "the command server has closed the connection; the next command connects anew");
    terminal.WaitFor(kPrompt);
    terminal.Type("platform\r");
    terminal.WaitFor("back");
}

TEST_F(TesselctlPrompt, WithoutAService_ThePromptIsThereAllTheSame) {
    Terminal terminal(home.Path(), {"shell"});
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
    Terminal terminal(home.Path(), {"shell"});
    terminal.WaitFor(kPrompt);
    terminal.Type("x");
    terminal.WaitFor("x");
    EXPECT_FALSE(terminal.IsLineMode());
    terminal.Signal(SIGTERM);
    EXPECT_EQ(128 + SIGTERM, terminal.WaitForEnd());
    EXPECT_TRUE(terminal.IsLineMode());
}

}  // namespace
