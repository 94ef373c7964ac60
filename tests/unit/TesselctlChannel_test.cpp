// "tesselctl channel", as a person or a script runs it.

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>

#include "unit/TesselctlTerminal.h"
#include "unit/TesselctlTesting.h"

namespace {

using namespace tesselctltest;
using Words = std::vector<std::string>;

class TesselctlChannel : public testing::Test {
  protected:
    void ServeOn(const ScriptedService& service) {
        home.WriteKeyFile(DeadPort(), DeadPort(), service.Port());
    }
    Words Arguments(Words words) const {
        words.insert(words.begin(), {"--home", home.Path(), "channel"});
        return words;
    }
    Outcome Run(const Words& words) const { return RunProgram(Arguments(words)); }

    TemporaryHome home;
};

TEST_F(TesselctlChannel, Listen_ShowsWhatIsSentToIt) {
    ScriptedService service([](Client& client, int) {
        EXPECT_EQ("registerChannel 'my \"clock\"'", client.Read());
        client.Send("ForwardDataToChannel early one|Success ChannelRegistered=true|");
        client.Send("BroadcastRegisteredChannel=radio|ForwardDataToChannel radio it  is noon|");
        client.Send("ForwardDataToChannel  |BroadcastUnRegisteredChannel=radio|");
    });
    ServeOn(service);
    const Outcome outcome = Run({"listen", "my \"clock\""});
    EXPECT_EQ("early one\nradio it  is noon\n \n", outcome.output);
    EXPECT_EQ(
        "tesselctl: channel radio was registered\n"
        "tesselctl: channel radio has gone\n"
        "tesselctl: the service has gone away\n",
        outcome.errors);
    EXPECT_EQ(3, outcome.status);
}

TEST_F(TesselctlChannel, Listen_EndsAtControlC) {
    ScriptedService service([](Client& client, int) {
        client.Read();
        client.Send("Success ChannelRegistered=true|ForwardDataToChannel a b|");
        client.WaitForGoodbye();
    });
    ServeOn(service);
    RunningProgram listening(Arguments({"listen", "clock"}));
    listening.WaitForOutput("a b\n");
    listening.Signal(SIGINT);
    const Outcome outcome = listening.Finish();
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ("", outcome.errors);
}

TEST_F(TesselctlChannel, Listen_ShowsEveryMessageOfABurstAtOnce) {
    std::string burst = "Success ChannelRegistered=true|";
    std::string lines;
    for (int i = 0; i < 3000; i++) {
        burst += "ForwardDataToChannel a " + std::to_string(i) + '|';
        lines += "a " + std::to_string(i) + '\n';
    }
    ScriptedService service([&](Client& client, int) {
        client.Read();
        client.Send(burst);
        client.WaitForGoodbye();
    });
    ServeOn(service);
    RunningProgram listening(Arguments({"listen", "clock"}));
    listening.WaitForOutput("a 2999\n");
    listening.Signal(SIGINT);
    EXPECT_EQ(lines, listening.Finish().output);
}

const std::string kHostile =
    "a \033[2Jb\033]0;owned\007\tc\x9B"
    "31m";

TEST_F(TesselctlChannel, WhatOthersSend_ReachesAPipeAsItIs) {
    ScriptedService service([](Client& client, int) {
        client.Read();
        client.Send("Success ChannelRegistered=true|ForwardDataToChannel " + kHostile + "|");
    });
    ServeOn(service);
    EXPECT_EQ(kHostile + "\n", Run({"listen", "clock"}).output);
}

TEST_F(TesselctlChannel, WhatOthersSend_NeverSteersATerminal) {
    ScriptedService service([](Client& client, int) {
        client.Read();
        client.Send("Success ChannelRegistered=true|BroadcastRegisteredChannel=\033[2Jx|");
        client.Send("ForwardDataToChannel " + kHostile + "|");
        client.WaitForGoodbye();
    });
    ServeOn(service);
    Terminal terminal(home.Path(), {"channel", "listen", "clock"});
    terminal.WaitFor("this is channel clock now; Control-C ends it\r\n");
    terminal.WaitFor("channel ^[[2Jx was registered\r\n");
    terminal.WaitFor("a ^[[2Jb^[]0;owned^G^Ic\\x9b31m\r\n");
    EXPECT_EQ(std::string::npos, terminal.Screen().find('\033'));
    terminal.Type("\003");
    EXPECT_EQ(0, terminal.WaitForEnd());
}

// Answers a registration, and then the message to be sent with what `answer` says.
ScriptedService::Script Receiving(const std::string& message, const std::string& answer) {
    return [=](Client& client, int) {
        EXPECT_EQ("registerChannel radio", client.Read());
        client.Send("Success ChannelRegistered=true|");
        EXPECT_EQ(message, client.Read());
        client.Send(answer);
        client.WaitForGoodbye();
    };
}

TEST_F(TesselctlChannel, Send_SaysNothingWhenItWentWell) {
    ScriptedService service(
        Receiving("sendDataToChannel clock \"it is noon\" 1", "Success DataSentToChannel=1|"));
    ServeOn(service);
    const Outcome outcome = Run({"send", "radio", "clock", "it", "is noon"});
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ("", outcome.output);
    EXPECT_EQ("", outcome.errors);
}

TEST_F(TesselctlChannel, Send_QuotesWhateverTheDataHold) {
    ScriptedService service(Receiving("sendDataToChannel clock \"\" 1",
                                      "BroadcastRegisteredChannel=x|Success DataSentToChannel=1|"));
    ServeOn(service);
    EXPECT_EQ(0, Run({"send", "radio", "clock", ""}).status);
    ScriptedService other(Receiving("sendDataToChannel clock \"it's \"'\"so\" --x' 1",
                                    "Success DataSentToChannel=1|"));
    ServeOn(other);
    EXPECT_EQ(0, Run({"send", "radio", "clock", "it's", "\"so\"", "--x"}).status);
}

TEST_F(TesselctlChannel, Send_ToNobodyIsAFailure) {
    ScriptedService service(
        Receiving("sendDataToChannel clock x 1", "Success DataSentToChannelError=1|"));
    ServeOn(service);
    const Outcome outcome = Run({"send", "radio", "clock", "x"});
    EXPECT_EQ(1, outcome.status);
    EXPECT_EQ("", outcome.output);
    EXPECT_EQ(
        "tesselctl: channel clock did not get it: nobody has registered it, or whoever has does "
        "not read\n",
        outcome.errors);
}

TEST_F(TesselctlChannel, Send_ThatComesBackReachedNobodyElse) {
    ScriptedService service(Receiving("sendDataToChannel radio x 1",
                                      "ForwardDataToChannel radio x|Success DataSentToChannel=1|"));
    ServeOn(service);
    const Outcome outcome = Run({"send", "radio", "radio", "x"});
    EXPECT_EQ(1, outcome.status);
    EXPECT_EQ("tesselctl: nobody but tesselctl itself has registered channel radio\n",
              outcome.errors);
}

TEST_F(TesselctlChannel, AnAnswerOfAnotherCommand_IsNotTakenForSuccess) {
    ScriptedService service([](Client& client, int) {
        client.Read();
        client.Send("Success \033[2J|");
        client.WaitForGoodbye();
    });
    ServeOn(service);
    const Outcome outcome = Run({"send", "radio", "clock", "x"});
    EXPECT_EQ(3, outcome.status);
    EXPECT_EQ(std::string::npos, outcome.errors.find('\033'));
    EXPECT_EQ("tesselctl: the service gives an answer of another command:",
              outcome.errors.substr(0, 58));
}

TEST_F(TesselctlChannel, ARefusalAndALostConnection_AreTold) {
    ScriptedService service([](Client& client, int number) {
        client.Read();
        if (number > 0) return;
        client.Send("SyntaxError Wrong number of arguments, expected: 1 - Success|");
        client.WaitForGoodbye();
    });
    ServeOn(service);
    EXPECT_EQ(2, Run({"listen", "clock"}).status);
    const Outcome outcome = Run({"listen", "clock"});
    EXPECT_EQ(3, outcome.status);
    EXPECT_EQ("tesselctl: the connection was lost before the answer to registerChannel\n",
              outcome.errors);
}

TEST_F(TesselctlChannel, WhatCannotBeSaid_IsRefusedBeforeAnythingIsSent) {
    const auto check = [&](const Words& words, const std::string& complaint) {
        const Outcome outcome = Run(words);
        EXPECT_EQ(64, outcome.status) << complaint;
        EXPECT_EQ("tesselctl: " + complaint + "\n", outcome.errors);
    };
    check({"send", "a", "b", "x|y"},
          "the data holds a vertical bar, which ends a command and cannot be sent");
    check({"send", "a", "b", "x", "y\nz"}, "the data holds a line feed, which the service drops");
    check({"send", "a", "b\r", "x"},
          "the name of a channel holds a carriage return, which the service drops");
    check({"send", "\xFF", "b", "x"},
          "the name of a channel is not valid UTF-8, which is all that the service reads");
    check({"listen", "a|b"},
          "the name of a channel holds a vertical bar, which ends a command and cannot be sent");
    const std::string help = " (see 'tesselctl --help')";
    check({}, "'channel' needs 'listen' or 'send'" + help);
    check({"lists"}, "'channel' needs 'listen' or 'send'" + help);
    check({"listen"}, "'channel listen' needs the name of a channel" + help);
    check({"listen", ""}, "a channel needs a name" + help);
    check({"listen", "a", "b"}, "'channel listen' takes one name" + help);
    check({"send", "a", "b"},
          "'channel send' needs the sender's channel, the receiver's, and the data" + help);
    check({"send", "a", "", "x"}, "a channel needs a name" + help);
}

TEST_F(TesselctlChannel, ABusyService_IsWaitedForWithAProgressLine) {
    std::atomic<bool> seen{false};
    ScriptedService service([&](Client& client, int) {
        client.Read();
        while (!seen)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        client.Send("Success ChannelRegistered=true|");
        client.WaitForGoodbye();
    });
    ServeOn(service);
    Terminal terminal(home.Path(), {"channel", "listen", "clock"});
    terminal.WaitFor(" waiting for the service  0:00");
    seen = true;
    // The line goes before anything else is said.
    terminal.WaitFor(std::string("\r") + std::string(31, ' ') + "\r");
    terminal.WaitFor("this is channel clock now");
}

}  // namespace
