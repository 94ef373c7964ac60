// Small applications that talk to each other through the service, both ends played by the
// command-line client.
#include <gmock/gmock.h>

#include "TesselctlRunning.h"
#include "support/Service.h"

namespace {

using testing::HasSubstr;

class TesselctlChannel : public testing::Test {
  protected:
    TesselctlChannel() { service.WaitUntilListening(); }

    ProgramRun Send(std::vector<std::string> words) {
        words.insert(words.begin(), {kClientFile, "channel", "send"});
        return RunProgram(sandbox, words);
    }
    // Until somebody listens there.
    void SendOnceHeard(const std::string& channel, const std::string& data) {
        WaitUntil("somebody listens on channel " + channel, [&] {
            return Send({"radio", channel, data}).status == 0;
        });
    }

    Sandbox sandbox;
    Service service{sandbox};
};

TEST_F(TesselctlChannel, WhatIsSent_IsHeard) {
    RunningClient clock(sandbox, {"channel", "listen", "my clock"});
    SendOnceHeard("my clock", "first");
    const ProgramRun sent = Send({"my radio", "my clock", "it's", "\"noon\"", " ", ""});
    EXPECT_EQ(sent.status, 0);
    EXPECT_EQ(sent.output, "");
    EXPECT_EQ(sent.errors, "");
    clock.WaitForOutput("noon");
    clock.Signal(SIGINT);
    const ProgramRun heard = clock.WaitForEnd();
    EXPECT_EQ(heard.output, "radio first\nmy radio it's \"noon\"   \n");
    EXPECT_EQ(heard.status, 0);
    EXPECT_THAT(heard.errors, HasSubstr("tesselctl: channel my radio was registered\n"
                                        "tesselctl: channel my radio has gone\n"));
}

TEST_F(TesselctlChannel, SentToNobody_IsAFailure) {
    const ProgramRun sent = Send({"radio", "clock", "x"});
    EXPECT_EQ(sent.status, 1);
    EXPECT_THAT(sent.errors, HasSubstr("channel clock did not get it"));
    const ProgramRun own = Send({"radio", "radio", "x"});
    EXPECT_EQ(own.status, 1);
    EXPECT_THAT(own.errors, HasSubstr("nobody but tesselctl itself"));
}

TEST_F(TesselctlChannel, LettersThatTheServiceDoesNotPassOn_BecomeQuestionMarks) {
    RunningClient clock(sandbox, {"channel", "listen", "\u00FChr"});
    SendOnceHeard("\u00FChr", "caf\u00E9 \u20AC");
    clock.WaitForOutput("radio caf? ?\n");
}

TEST_F(TesselctlChannel, LongData_ArriveWhole) {
    const std::string word(30000, 'x');
    RunningClient clock(sandbox, {"channel", "listen", "clock"});
    SendOnceHeard("clock", "first");
    EXPECT_EQ(Send({"radio", "clock", word, "end"}).status, 0);
    clock.WaitForOutput("x end\n");
    EXPECT_EQ(clock.Output(), "radio first\nradio " + word + " end\n");
}

TEST_F(TesselctlChannel, TheFirstOfTwoWithOneName_HearsIt) {
    service.WaitUntilBothThreadsServe();
    RunningClient first(sandbox, {"channel", "listen", "clock"});
    // Who connects while nobody else does gets the lowest number, and that makes the first.
    service.WaitForOutput("registerChannel clock");
    SendOnceHeard("clock", "one");
    Client second = service.ConnectToApps();
    EXPECT_EQ(second.Ask("registerChannel clock"), "Success ChannelRegistered=true");
    EXPECT_EQ(Send({"radio", "clock", "two"}).status, 0);
    first.WaitForOutput("radio two\n");
}

TEST_F(TesselctlChannel, WhenTheServiceGoesAway_TheListenerSaysSo) {
    RunningClient clock(sandbox, {"channel", "listen", "clock"});
    SendOnceHeard("clock", "first");
    service.Stop(SIGTERM);
    const ProgramRun heard = clock.WaitForEnd();
    EXPECT_EQ(heard.status, 3);
    EXPECT_THAT(heard.errors, HasSubstr("tesselctl: the service has gone away\n"));
}

}  // namespace
