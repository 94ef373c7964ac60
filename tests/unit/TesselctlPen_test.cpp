// "tesselctl pen", as a person or a script runs it.

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <atomic>
#include <csignal>
#include <filesystem>

#include "unit/TesselctlTerminal.h"
#include "unit/TesselctlTesting.h"

namespace {

using namespace tesselctltest;
using namespace std::string_literals;
using Words = std::vector<std::string>;

constexpr const char* kAsked = "listenTablet tesselctl StylusPadDriver";

// A short stroke, as the pressure server sends it.
const std::string kStroke = "PenData.PROXIMITY_IN|PenData.USE_TIP|0000\0"s + "d10_20 " + "0255\0"s +
                            "m30_20 " + "0511\0"s + "m50_40 u50_40 PenData.PROXIMITY_OUT|";
const std::string kStrokeAsLines =
    "proximity in\ntool pen\npressure 0\ndown 10 20\npressure 255\nmove 30 20\npressure 511\n"
    "move 50 40\nup 50 40\nproximity out\n";

class TesselctlPen : public testing::Test {
  protected:
    // Takes the request for pen data, and answers it.
    static void Begin(Client& client) {
        EXPECT_EQ(kAsked, client.Read());
        client.Send("Success |");
        EXPECT_EQ("startTablet", client.Read());
    }

    void ServeOn(const ScriptedService& service) {
        home.WriteKeyFile(DeadPort(), service.Port(), DeadPort());
    }

    Words Arguments(Words words) const {
        words.insert(words.begin(), {"--home", home.Path(), "pen"});
        return words;
    }
    Outcome Run(const Words& words = {}) const { return RunProgram(Arguments(words)); }

    TemporaryHome home;
};

TEST_F(TesselctlPen, OnAPipe_EveryEventIsALine) {
    ScriptedService service([](Client& client, int) {
        Begin(client);
        client.Send(kStroke);
    });
    ServeOn(service);
    const Outcome outcome = Run();
    EXPECT_EQ(kStrokeAsLines, outcome.output);
    EXPECT_EQ("tesselctl: the service has gone away\n", outcome.errors);
    EXPECT_EQ(3, outcome.status);
}

TEST_F(TesselctlPen, AStreamInSingleBytes_GivesTheSameLines) {
    ScriptedService service([](Client& client, int) {
        Begin(client);
        for (const char byte : kStroke)
            client.Send({&byte, 1});
    });
    ServeOn(service);
    EXPECT_EQ(kStrokeAsLines, Run().output);
}

TEST_F(TesselctlPen, Raw_GivesTheBytesAsTheyCome) {
    // Not whole and not about the pen, too. What comes before the answer is not lost, and the
    // answer itself is no pen data.
    const std::string more = "\xFF\033[2J|half a mess\0age"s;
    ScriptedService service([&](Client& client, int) {
        client.Read();
        client.Send("PenData.USE_TIP|0001\0d1_2 Success |"s);
        client.Read();
        client.Send(kStroke + more);
    });
    ServeOn(service);
    EXPECT_EQ("PenData.USE_TIP|0001\0d1_2 "s + kStroke + more, Run({"--raw"}).output);
}

TEST_F(TesselctlPen, Json_GivesAnObjectALine) {
    ScriptedService service([](Client& client, int) {
        Begin(client);
        client.Send("PenData.USE_ERASER|0037\0d1_2 \033\"|"s);
    });
    ServeOn(service);
    std::string output = Run({"--json"}).output;
    // The time is what a test cannot know.
    for (std::size_t at = 0; (at = output.find("\"time\":", at)) != std::string::npos;) {
        at += 7;
        const std::size_t end = output.find(',', at);
        const std::string time = output.substr(at, end - at);
        EXPECT_EQ(time.size() - 7, time.find('.')) << time;
        EXPECT_EQ(std::string::npos, time.find_first_not_of("0123456789.")) << time;
        output.replace(at, end - at, "T");
    }
    EXPECT_EQ(
        "{\"time\":T,\"event\":\"tool\",\"tool\":\"eraser\"}\n"
        "{\"time\":T,\"event\":\"pressure\",\"pressure\":37}\n"
        "{\"time\":T,\"event\":\"down\",\"x\":1,\"y\":2}\n"
        "{\"time\":T,\"event\":\"message\",\"message\":\"\\u001b\\\"\"}\n",
        output);
}

TEST_F(TesselctlPen, ControlC_EndsItWithItsThanksToTheService) {
    std::atomic<bool> thanked{false};
    ScriptedService service([&](Client& client, int) {
        Begin(client);
        client.Send("d1_2 ");
        EXPECT_EQ("stopTablet", client.Read());
        EXPECT_EQ("stopListenTablet tesselctl StylusPadDriver", client.Read());
        thanked = true;
        client.WaitForGoodbye();
    });
    ServeOn(service);
    RunningProgram pen(Arguments({}));
    pen.WaitForOutput("down 1 2\n");
    pen.Signal(SIGINT);
    const Outcome outcome = pen.Finish();
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ("down 1 2\n", outcome.output);
    EXPECT_EQ("", outcome.errors);
    EXPECT_TRUE(thanked);
}

TEST_F(TesselctlPen, AnotherSignal_EndsItAsCleanlyAndShows) {
    ScriptedService service([&](Client& client, int) {
        Begin(client);
        client.Send("d1_2 ");
        EXPECT_EQ("stopTablet", client.Read());
        client.WaitForGoodbye();
    });
    ServeOn(service);
    RunningProgram pen(Arguments({}));
    pen.WaitForOutput("down 1 2\n");
    pen.Signal(SIGTERM);
    EXPECT_EQ(128 + SIGTERM, pen.Finish().status);
}

TEST_F(TesselctlPen, ControlC_EndsAFlood) {
    ScriptedService service([&](Client& client, int) {
        Begin(client);
        std::string flood;
        for (int i = 0; i < 1000; i++)
            flood += "m1_2 ";
        // Until the connection ends.
        const timeval second{1, 0};
        setsockopt(client.Socket(), SOL_SOCKET, SO_SNDTIMEO, &second, sizeof second);
        while (send(client.Socket(), flood.data(), flood.size(), MSG_NOSIGNAL) > 0) {
        }
    });
    ServeOn(service);
    RunningProgram pen(Arguments({}));
    pen.WaitForOutput("move 1 2\n");
    pen.Signal(SIGINT);
    EXPECT_EQ(0, pen.Finish().status);
}

TEST_F(TesselctlPen, AReaderThatHasSeenEnough_EndsItAtOnce) {
    std::atomic<bool> thanked{false};
    ScriptedService service([&](Client& client, int) {
        Begin(client);
        client.Send("d1_2 ");
        // Nothing more comes that could not be written.
        thanked = client.Read() == "stopTablet";
        client.WaitForGoodbye();
    });
    ServeOn(service);
    const std::string command = std::string(TESSELCTL_PROGRAM) + " --home '" + home.Path() +
                                "' pen | head -n 1 >'" + home.Path() + "/out'";
    EXPECT_EQ(0, WEXITSTATUS(std::system(command.c_str())));
    EXPECT_EQ("down 1 2\n", ReadFile(home.Path() + "/out"));
    EXPECT_TRUE(thanked);
}

// startTablet would take the pen data away from whoever has them, and stopListenTablet somebody
// else's tap.
TEST_F(TesselctlPen, WhenNoSuchApplicationRuns_ItSaysSoAndTakesNothingFromAnybody) {
    std::atomic<bool> saidMore{true};
    ScriptedService service([&](Client& client, int) {
        EXPECT_EQ("listenTablet tesselctl 'My \"Pen\"'", client.Read());
        client.Send("Failure listenTablet tesselctl My \"Pen\" - Success|");
        saidMore = client.Read() != "<closed>";
    });
    ServeOn(service);
    const Outcome outcome = Run({"--app", "My \"Pen\""});
    EXPECT_EQ("tesselctl: no application called My \"Pen\" runs\n", outcome.errors);
    EXPECT_EQ("", outcome.output);
    EXPECT_EQ(1, outcome.status);
    EXPECT_FALSE(saidMore);
}

TEST_F(TesselctlPen, AnApplicationThatLetsNobodyWatch_IsToldFromNone) {
    ScriptedService service([&](Client& client, int) {
        client.Read();
        client.Send("Failure PressureTap: Tap port is null - Permission denied|");
        client.WaitForGoodbye();
    });
    ServeOn(service);
    const Outcome outcome = Run();
    EXPECT_EQ("tesselctl: StylusPadDriver runs, but does not let the service watch its pen\n",
              outcome.errors);
    EXPECT_EQ(1, outcome.status);
}

TEST_F(TesselctlPen, AServiceThatDoesNotKnowTheCommand_IsToldSo) {
    std::atomic<bool> saidMore{true};
    ScriptedService service([&](Client& client, int) {
        client.Read();
        client.Send("SyntaxError Unknown command - Success|");
        saidMore = client.Read() != "<closed>";
    });
    ServeOn(service);
    const Outcome outcome = Run();
    EXPECT_FALSE(saidMore);
    EXPECT_EQ("tesselctl: listenTablet was not understood: Unknown command - Success\n",
              outcome.errors);
    EXPECT_EQ(2, outcome.status);
}

TEST_F(TesselctlPen, AFullPort_IsNotWaitedForLong_AndATapThatItMayStillGetIsTakenBack) {
    // The system takes the connection and the service never does, or only later.
    std::atomic<bool> takenBack{false};
    ScriptedService service([&](Client& client, int) {
        takenBack = client.Read() == kAsked &&
                    client.Read() == "stopListenTablet tesselctl StylusPadDriver" &&
                    client.Read() == "<closed>";
    });
    ServeOn(service);
    const Outcome outcome = RunProgram({"--home", home.Path(), "--timeout", "0.2", "pen"});
    EXPECT_TRUE(takenBack);
    EXPECT_EQ(
        "tesselctl: the pressure server does not answer: it has as many clients as it can serve\n",
        outcome.errors);
    EXPECT_EQ(3, outcome.status);
}

TEST_F(TesselctlPen, AServiceWithoutAPressureServer_IsToldSo) {
    home.WriteKeyFile(DeadPort(), -1, DeadPort());
    const Outcome outcome = Run();
    EXPECT_EQ(
        "tesselctl: the service runs without its pressure server: it found no free port for it\n",
        outcome.errors);
    EXPECT_EQ(3, outcome.status);
    const TemporaryHome fresh;
    EXPECT_EQ(3, RunProgram({"--home", fresh.Path(), "pen"}).status);
}

TEST_F(TesselctlPen, WhatHasNoEnd_IsNotReadForEver) {
    ScriptedService service([&](Client& client, int) {
        Begin(client);
        client.Send(std::string(3 << 20, 'x'));
        client.WaitForGoodbye();
    });
    ServeOn(service);
    const Outcome outcome = Run();
    EXPECT_EQ(
        "tesselctl: what the pressure server sends has no end: it does not speak the service's "
        "language\n",
        outcome.errors);
    EXPECT_EQ(3, outcome.status);
}

TEST_F(TesselctlPen, Mistakes_ExitWithSixtyFourBeforeAnythingIsSent) {
    for (const Words& words : {Words{"--raw", "--json"}, Words{"--plot"}, Words{"--app", ""},
                               Words{"more"}, Words{"--app", "a|b"}, Words{"--app", "a\nb"}}) {
        const Outcome outcome = Run(words);
        EXPECT_EQ(64, outcome.status) << words[0];
        EXPECT_EQ("tesselctl: ", outcome.errors.substr(0, 11));
        EXPECT_EQ(outcome.errors.size() - 1, outcome.errors.find('\n')) << outcome.errors;
    }
}

TEST_F(TesselctlPen, APlot_IsWrittenAtTheEnd) {
    ScriptedService service([](Client& client, int) {
        Begin(client);
        client.Send(kStroke);
        client.Read();
        client.WaitForGoodbye();
    });
    ServeOn(service);
    const std::string file = home.Path() + "/stroke.png";
    RunningProgram pen(Arguments({"--plot", file}));
    pen.WaitForOutput("proximity out\n");
    EXPECT_FALSE(std::filesystem::exists(file));
    // As somebody does who ends a whole group of processes.
    pen.Signal(SIGINT);
    pen.Signal(SIGINT);
    const Outcome outcome = pen.Finish();
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ("", outcome.errors);
    EXPECT_EQ(kStrokeAsLines, outcome.output);
    // 40 x 20 pixels of the screen three times as large, with their margin.
    const std::string bytes = ReadFile(file);
    EXPECT_EQ("\x89PNG\r\n\x1A\n\0\0\0\rIHDR\0\0\0\xA8\0\0\0\x6C"s, bytes.substr(0, 24));
    EXPECT_EQ("IEND", bytes.substr(bytes.size() - 8, 4));
}

TEST_F(TesselctlPen, APlot_IsWrittenAlsoWhenTheServiceGoesAway) {
    ScriptedService service([](Client& client, int) {
        Begin(client);
        client.Send(kStroke);
    });
    ServeOn(service);
    const std::string file = home.Path() + "/stroke.png";
    const Outcome outcome = Run({"--raw", "--plot", file});
    EXPECT_EQ(3, outcome.status);
    EXPECT_EQ(kStroke, outcome.output);
    EXPECT_TRUE(std::filesystem::exists(file));
}

TEST_F(TesselctlPen, WithoutAStroke_ThereIsNoPlot) {
    ScriptedService service([](Client& client, int) {
        Begin(client);
        client.Send("PenData.USE_TIP|");
        client.Read();
        client.WaitForGoodbye();
    });
    ServeOn(service);
    const std::string file = home.Path() + "/stroke.png";
    RunningProgram pen(Arguments({"--plot", file}));
    pen.WaitForOutput("tool pen\n");
    pen.Signal(SIGINT);
    const Outcome outcome = pen.Finish();
    EXPECT_EQ(1, outcome.status);
    EXPECT_EQ("tesselctl: nothing was drawn, so there is no " + file + "\n", outcome.errors);
    EXPECT_FALSE(std::filesystem::exists(file));
}

TEST_F(TesselctlPen, APlotThatCannotBeWritten_IsToldBeforeAnythingIsDrawn) {
    const std::string file = home.Path() + "/none/stroke.png";
    const Outcome outcome = Run({"--plot", file});
    EXPECT_EQ(74, outcome.status);
    EXPECT_EQ("tesselctl: cannot write " + file + ": No such file or directory\n", outcome.errors);
}

TEST_F(TesselctlPen, OnATerminal_ItIsDrawnInPlaceAndEndsBelow) {
    ScriptedService service([](Client& client, int) {
        Begin(client);
        client.Send("PenData.PROXIMITY_IN|PenData.USE_TIP|0256\0d640_400 "s);
        client.Read();
        client.WaitForGoodbye();
    });
    ServeOn(service);
    Terminal terminal(home.Path(), {"pen"}, {{"LANG", "en_US.UTF-8"}});
    terminal.WaitFor("256   50 %");
    terminal.WaitFor("tool       pen       proximity  in        position  640, 400      down");
    terminal.WaitFor("events     4/s");
    terminal.WaitFor("in all     4");
    // The rate falls to nothing, in the same three lines.
    terminal.WaitFor("\033[2A");
    terminal.WaitFor("events     0/s");
    terminal.Type("\003");
    EXPECT_EQ(0, terminal.WaitForEnd());
    const std::string& screen = terminal.Screen();
    EXPECT_NE(std::string::npos, screen.find("\u2588"));
    EXPECT_EQ("\r\n", screen.substr(screen.size() - 2));
}

TEST_F(TesselctlPen, OnATerminal_ItIsDrawnAtMostThirtyTimesASecond) {
    constexpr std::chrono::milliseconds kTime{600};
    ScriptedService service([&](Client& client, int) {
        Begin(client);
        const auto end = std::chrono::steady_clock::now() + kTime;
        for (int x = 0; std::chrono::steady_clock::now() < end; x++) {
            client.Send("m" + std::to_string(x) + "_1 ");
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        client.Send("u7777_1 ");
        client.Read();
        client.WaitForGoodbye();
    });
    ServeOn(service);
    Terminal terminal(home.Path(), {"pen"});
    terminal.WaitFor("7777, 1");
    const std::string& screen = terminal.Screen();
    std::size_t pictures = 0;
    for (std::size_t at = 0; (at = screen.find("pressure ", at)) != std::string::npos; at++)
        pictures++;
    EXPECT_GT(pictures, 3U);
    EXPECT_LT(pictures, 20U);
    EXPECT_EQ(std::string::npos, screen.find("\u2588"));
}

TEST_F(TesselctlPen, WhatTheServiceSays_NeverSteersTheTerminal) {
    ScriptedService service([](Client& client, int) {
        Begin(client);
        client.Send("\033]0;owned\007|PenData.\033[2J|d1_2 ");
        client.Read();
        client.WaitForGoodbye();
    });
    ServeOn(service);
    // A terminal on which nothing can be drawn over gets lines.
    Terminal terminal(home.Path(), {"pen"}, {{"TERM", "dumb"}});
    terminal.WaitFor("message ^[]0;owned^G\r\nmessage PenData.^[[2J\r\ndown 1 2\r\n");
    EXPECT_EQ(std::string::npos, terminal.Screen().find('\033'));
    Terminal drawn(home.Path(), {"pen"});
    drawn.WaitFor("1, 2");
    EXPECT_EQ(std::string::npos, drawn.Screen().find("owned"));
    EXPECT_EQ(std::string::npos, drawn.Screen().find("\033[2J"));
}

TEST_F(TesselctlPen, AnotherSizeOfTheTerminal_IsDrawnFor) {
    ScriptedService service([](Client& client, int) {
        Begin(client);
        client.Send("d1_2 ");
        client.Read();
        client.WaitForGoodbye();
    });
    ServeOn(service);
    Terminal terminal(home.Path(), {"pen"});
    terminal.WaitFor("Control-C ends it");
    terminal.Resize(24, 30);
    // One column stays free.
    terminal.WaitFor("\rpressure   ......    0    0 %\033[K\r\n");
}

}  // namespace
