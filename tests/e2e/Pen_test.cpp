// The road of pen data: from a tablet driver's process through a tap to the clients of the pressure
// port, byte for byte.
#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <future>
#include <limits>

#include "support/Files.h"
#include "support/Pen.h"
#include "support/Service.h"

namespace {

using penEvents::kDown;
using penEvents::kDragged;
using penEvents::kEraser;
using penEvents::kPen;
using penEvents::kPointer;
using penEvents::kProximity;
using penEvents::kUp;
using std::string_literals::operator""s;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

const std::string& kListenToPoster = *new std::string("listenTablet x PenPoster");
const std::string& kStopListening = *new std::string("stopListenTablet x PenPoster");

class PenTest : public testing::Test {
  protected:
    PenTest() { service.WaitUntilListening(); }

    // A client for which the answer proves that its connection has been accepted.
    Client Accepted() {
        Client client = service.ConnectToPressure();
        EXPECT_THAT(client.Ask("getDriverVersion"), StartsWith("Success DriverVersion="));
        return client;
    }
    // A client that gets everything that PROCESS posts from now on.
    Client Listener(const std::string& process = kPosterName) {
        Client client = service.ConnectToPressure();
        client.Send("listenTablet x " + process + "|startTablet|");
        EXPECT_EQ(client.Receive(), "Success ");
        service.WaitForOutput("Active pressure listener: ");
        return client;
    }
    static void Expect(Client& client, const std::string& stream) {
        EXPECT_EQ(MessagesOf(client.ReceiveExactBytes(stream.size())), MessagesOf(stream));
    }

    Sandbox sandbox{PenMounts()};
    Service service{sandbox};
};

// --- Recorded strokes, played by the real driver

class Strokes : public PenTest, public testing::WithParamInterface<const char*> {};

TEST_P(Strokes, ReachTheListenerAsExactlyTheirBytes) {
    const std::string stream = StreamOf(GetParam());
    const pid_t driver = StartReplay(sandbox, GetParam());
    Client client = Listener(kDriverName);
    Expect(client, stream);
    // The driver is done, and the client as well.
    WaitUntil("the driver has ended", [&] { return sandbox.StatusIfEnded(driver).has_value(); });
    client.ExpectSilence();
    EXPECT_EQ(client.Ask("stopListenTablet x StylusPadDriver"), "Success ");
}

TEST_P(Strokes, ReachEveryOtherClientAsTheirWords) {
    const std::string stream = StreamOf(GetParam());
    std::vector<Client> others;
    for (int i = 0; i < 5; ++i) {
        others.push_back(Accepted());
    }
    StartReplay(sandbox, GetParam());
    Client client = Listener(kDriverName);
    Expect(client, stream);
    for (Client& other : others) {
        Expect(other, WordsOf(stream));
        other.ExpectSilence(std::chrono::milliseconds(20));
    }
}

INSTANTIATE_TEST_SUITE_P(OfAllKinds, Strokes,
                         testing::Values("slow-pressure-ramp", "fast-hatching", "pen-eraser-pen"),
                         [](const auto& tested) {
                             std::string name = tested.param;
                             name.erase(std::remove(name.begin(), name.end(), '-'), name.end());
                             return name;
                         });

TEST_F(PenTest, AStrokeInItsOwnTime_IsTheSame) {
    StartReplay(sandbox, "pen-eraser-pen", "10");
    Client client = Listener(kDriverName);
    Expect(client, StreamOf("pen-eraser-pen"));
}

TEST_F(PenTest, AStrokeOfATapThatWasInstalledTwice_IsToldTwice) {
    Poster poster(sandbox);
    Client client = Listener();
    EXPECT_EQ(client.Ask(kListenToPoster), "Success ");
    poster.Post(Event(kDown, 640, 400));
    Expect(client, "d640_400 d640_400 ");
    // Each of them is removed for itself.
    EXPECT_EQ(client.Ask(kStopListening), "Success ");
    poster.Post(Event(kUp, 640, 400));
    Expect(client, "u640_400 ");
    EXPECT_EQ(client.Ask(kStopListening), "Success ");
    poster.Post(Event(kDown, 1, 1));
    EXPECT_EQ(client.Ask(kStopListening), "Success ");
    client.ExpectSilence();
}

// --- The commands

TEST_F(PenTest, StartTablet_IgnoresFurtherWordsAndIsNotAnswered) {
    Client client = service.ConnectToPressure();
    client.Send("startTablet now and here|getDriverVersion|");
    EXPECT_THAT(client.Receive(), StartsWith("Success DriverVersion="));
    service.WaitForOutput("\nSending pressure started\nActive pressure listener: ");
    client.Send("stopTablet now|getDriverVersion|");
    EXPECT_THAT(client.Receive(), StartsWith("Success DriverVersion="));
    service.WaitForOutput("\nSending pressure stopped\n");
}

TEST_F(PenTest, ListenTablet_WithAnotherNumberOfWords_IsASyntaxError) {
    Client client = service.ConnectToPressure();
    for (const char* const command : {"listenTablet", "listenTablet x", "listenTablet x y z",
                                      "stopListenTablet x", "stopListenTablet x y z"}) {
        EXPECT_EQ(client.Ask(command),
                  "SyntaxError Wrong number of arguments, expected: 2 - Success")
            << command;
    }
}

TEST_F(PenTest, ListenTablet_OnNoProcess_FailsWithWhatWasLoggedLast) {
    Client client = service.ConnectToPressure();
    EXPECT_THAT(client.Ask("listenTablet x nobody"),
                StartsWith("Failure listenTablet x nobody - "));
    service.WaitForOutput("Failure listenTablet x nobody - ");
    EXPECT_THAT(service.Output(), Not(HasSubstr("PressureTap:")));
}

TEST_F(PenTest, ListenTablet_OnAProcessThatPostsNothing_FailsForWantOfAPort) {
    sandbox.LaunchIdleProgram("/Applications/Idle Program");
    Client client = service.ConnectToPressure();
    std::string answer;
    WaitUntil("the process is found", [&] {
        answer = client.Ask("listenTablet x 'Idle Program'");
        return answer.rfind("Failure PressureTap: ", 0) == 0;
    });
    EXPECT_THAT(answer, StartsWith("Failure PressureTap: Tap port is null - "));
}

TEST_F(PenTest, ListenTablet_ReadsTheNameInItsThirdWord) {
    Poster poster(sandbox);
    Client client = service.ConnectToPressure();
    EXPECT_THAT(client.Ask("listenTablet PenPoster nobody"), StartsWith("Failure "));
    EXPECT_EQ(client.Ask("listenTablet nobody PenPoster"), "Success ");
    service.WaitForOutput("PressureTap: Process found\nPressureTap: Success\nSuccess |\n");
}

TEST_F(PenTest, StopListenTablet_OfWhatIsNotTapped_Succeeds) {
    EXPECT_EQ(service.ConnectToPressure().Ask("stopListenTablet x nobody"), "Success ");
}

TEST_F(PenTest, TheDriversVersion_IsThatOfItsBundle) {
    EXPECT_EQ(service.ConnectToPressure().Ask("getDriverVersion please"),
              "Success DriverVersion=1.0.0");
}

// --- Who gets what

TEST_F(PenTest, APenDownWhileNobodyHasAskedForIt_IsNothingToAnybody) {
    Poster poster(sandbox);
    Client client = service.ConnectToPressure();
    EXPECT_EQ(client.Ask(kListenToPoster), "Success ");
    poster.Post(Event(kDown, 1, 2));
    poster.Post(Event(kProximity, 1, 2));
    Expect(client, "PenData.PROXIMITY_IN|PenData.USE_TIP|");
}

TEST_F(PenTest, AClientThatAsksNext_GetsThePenDataInsteadOfTheFirst) {
    Poster poster(sandbox);
    Client first = Listener();
    poster.Post(Event(kDown, 1, 2));
    Expect(first, "d1_2 ");
    Client second = service.ConnectToPressure();
    second.Send("startTablet|getDriverVersion|");
    second.Receive();
    poster.Post(Event(kUp, 3, 4));
    poster.Post(Event(kProximity, 3, 4));
    Expect(second, "u3_4 PenData.PROXIMITY_IN|PenData.USE_TIP|");
    Expect(first, "PenData.PROXIMITY_IN|PenData.USE_TIP|");
}

TEST_F(PenTest, StopTablet_OfAnotherClient_ChangesNothing) {
    Poster poster(sandbox);
    Client listener = Listener();
    Client other = Accepted();
    other.Send("stopTablet|getDriverVersion|");
    other.Receive();
    poster.Post(Event(kDragged, 5, 6, 1));
    Expect(listener, "0511\0m5_6 "s);
}

TEST_F(PenTest, AfterAStopAndAStart_OnlyTheProximityIsToldAgain) {
    Poster poster(sandbox);
    Client client = Listener();
    poster.Post(Event(kProximity, 1, 2));
    poster.Post(Event(kDragged, 5, 6, 0.5));
    Expect(client, "PenData.PROXIMITY_IN|PenData.USE_TIP|0255\0m5_6 "s);
    client.Send("stopTablet|getDriverVersion|");
    client.Receive();
    // Nobody is sent to, but the words are everybody's.
    poster.Post(Event(kDown, 7, 8));
    poster.Post(Event(kProximity, 1, 2));
    Expect(client, "PenData.PROXIMITY_IN|");
    client.Send("startTablet|getDriverVersion|");
    client.Receive();
    poster.Post(Event(kProximity, 1, 2));
    poster.Post(Event(kDragged, 7, 8, 0.5));
    poster.Post(Event(kPointer, 7, 8, 0.5));
    poster.Post(Event(kUp, 7, 8));
    Expect(client, "PenData.PROXIMITY_IN|u7_8 ");
}

// Once the client that spoke last has gone, words reach nobody until another one speaks.
TEST_F(PenTest, AListenerThatVanishesInMidStroke_CostsTheOthersNothingOnceOneOfThemSpeaks) {
    Poster poster(sandbox);
    Client other = Accepted();
    Client third = Accepted();
    Client listener = Listener();
    poster.Post(Event(kProximity, 0, 0));
    for (Client* const client : {&other, &third, &listener}) {
        Expect(*client, "PenData.PROXIMITY_IN|PenData.USE_TIP|");
    }
    for (int x = 0; x < 1000; ++x) {
        poster.Post(Event(kDragged, x, 20, 0.5));
    }
    listener.ReceiveExactBytes(20);
    listener.Reset();
    service.WaitForOutput("error connection closed [" +
                          std::to_string(service.Keys().pressurePort) + "]");
    // It takes the pen data over, and what may be left of the stroke.
    other.Send("startTablet|getDriverVersion|");
    EXPECT_THAT(other.Receive(), HasSubstr("Success DriverVersion="));
    poster.Post(Event(kUp, 7, 8));
    poster.Post(Event(kProximity, 0, 0, 0, kPen, 0));
    poster.Post(Event(kDown, 9, 10));
    poster.Post(Event(kDragged, 11, 12, 0.25));
    EXPECT_THAT(other.Receive(), EndsWith("u7_8 PenData.PROXIMITY_OUT"));
    Expect(other, "d9_10 0127\0m11_12 "s);
    Expect(third, "PenData.PROXIMITY_OUT|");
}

// The listener is a number, which is not forgotten when its connection closes.
TEST_F(PenTest, WhoeverGetsTheNumberOfAListenerThatHasGone_GetsItsRecords) {
    Poster poster(sandbox);
    { const Client listener = Listener(); }
    service.WaitForOutput("error connection closed [" +
                          std::to_string(service.Keys().pressurePort) + "]");
    Client next = service.ConnectToApps();
    EXPECT_EQ(next.Ask("registerChannel painter"), "Success ChannelRegistered=true");
    poster.Post(Event(kDragged, 5, 6, 1));
    poster.Post(Event(kUp, 5, 6));
    Expect(next, "0511\0m5_6 u5_6 "s);
}

// --- Drivers that do not do as they should

TEST_F(PenTest, PacketsOfAnotherSizeVersionOrType_AreNothing) {
    Poster poster(sandbox);
    Client client = Listener();
    const penEvents::Record good = Event(kDown, 1, 2);
    const std::string bytes(reinterpret_cast<const char*>(&good), sizeof good);
    for (const std::size_t size : {0U, 1U, 8U, 47U}) {
        poster.Post(bytes.substr(0, size));
    }
    poster.Post(bytes + "x");
    poster.Post(bytes + bytes);
    poster.Post(std::string(60000, '\xFF'));
    penEvents::Record bad = good;
    for (const std::uint32_t version : {0u, 2u, 0x01000000u, 0xFFFFFFFFu}) {
        bad.version = version;
        poster.Post(bad);
    }
    for (const std::uint32_t type : {0u, 3u, 5u, 7u, 22u, 25u, 0xFFFFFFFFu}) {
        bad = good;
        bad.type = type;
        poster.Post(bad);
    }
    poster.Post(Event(kUp, 3, 4));
    Expect(client, "u3_4 ");
}

TEST_F(PenTest, CoordinatesAndPressureThatAreNoNumbers_AreSomeNumberAndNoHarm) {
    Poster poster(sandbox);
    Client client = Listener();
    const double infinite = std::numeric_limits<double>::infinity();
    poster.Post(Event(kDown, std::nan(""), infinite));
    poster.Post(Event(kUp, -infinite, 1e300, std::nan("")));
    poster.Post(Event(kPointer, 0, 0, std::nan("")));
    poster.Post(Event(kPointer, 0, 0, infinite));
    poster.Post(Event(kPointer, 0, 0, -0.5));
    poster.Post(Event(kDragged, 1, 2, 1));
    // Five characters of a pressure are sent, whatever it is.
    Expect(client,
           "d0_2147483647 u-2147483648_2147483647 0000\0"s + "21474" + "-0255"s + "0511\0m1_2 "s);
}

TEST_F(PenTest, AnotherUsersDriver_IsNotTapped_AndRootsIs) {
    if (!Sandbox::CanSwitchUsers()) {
        GTEST_SKIP() << "only root can be somebody else";
    }
    Client client = service.ConnectToPressure();
    {
        Poster stranger(sandbox, kUserId + 1);
        EXPECT_THAT(client.Ask(kListenToPoster), StartsWith("Failure "));
        EXPECT_THAT(service.Output(), Not(HasSubstr("PressureTap: Success")));
        stranger.Kill();
        WaitUntil("it has ended", [&] { return stranger.HasEnded(); });
    }
    Poster roots(sandbox, 0);
    EXPECT_EQ(client.Ask(kListenToPoster), "Success ");
    client.Send("startTablet|getDriverVersion|");
    client.Receive();
    roots.Post(Event(kDown, 1, 2));
    Expect(client, "d1_2 ");
}

TEST_F(PenTest, ADriverThatDiesInMidStream_LosesNothingThatItPosted_AndItsTapCostsNothing) {
    service.WaitUntilTheMainThreadServes();
    Client client = Accepted();
    const std::size_t before = service.OpenDescriptors();
    std::string expected = "d1_2 ";
    {
        Poster poster(sandbox);
        client.Send("startTablet|");
        EXPECT_EQ(client.Ask(kListenToPoster), "Success ");
        poster.Post(Event(kDown, 1, 2));
        for (int x = 10; x < 1010; ++x) {
            poster.Post(Event(kDragged, x, 20, 0.5));
            expected += (x == 10 ? "0255\0m"s : "m"s) + std::to_string(x) + "_20 ";
        }
        poster.End();
        WaitUntil("it has ended", [&] { return poster.HasEnded(); });
    }
    Expect(client, expected);
    WaitUntil("the tap's descriptor is closed",
              [&] { return service.OpenDescriptors() == before; });
    // A loop that woke up for a dead tap would be at it all the time.
    const auto worked = service.ProcessorTime();
    client.ExpectSilence(std::chrono::milliseconds(500));
    EXPECT_LT(service.ProcessorTime() - worked, std::chrono::milliseconds(100));
    EXPECT_EQ(client.Ask(kStopListening), "Success ");
    // The next one is another process.
    Poster next(sandbox);
    EXPECT_EQ(client.Ask(kListenToPoster), "Success ");
    next.Post(Event(kUp, 3, 4));
    Expect(client, "u3_4 ");
}

TEST_F(PenTest, ADriverThatIsKilledWhileItPosts_LeavesWholeTextsAndAServiceThatGoesOn) {
    service.WaitUntilTheMainThreadServes();
    Client client = Accepted();
    const std::size_t before = service.OpenDescriptors();
    Poster poster(sandbox);
    client.Send("startTablet|");
    EXPECT_EQ(client.Ask(kListenToPoster), "Success ");
    poster.Post(Event(kDown, 1, 2), std::numeric_limits<std::uint32_t>::max());
    client.ReceiveExactBytes(1000);
    poster.Kill();
    WaitUntil("the tap's descriptor is closed",
              [&] { return service.OpenDescriptors() == before; });
    client.Send("stopListenTablet x PenPoster|");
    const std::string rest = client.Receive();
    const std::size_t answer = rest.find("Success ");
    ASSERT_NE(answer, std::string::npos);
    EXPECT_EQ(rest.substr(answer), "Success ");
    for (const std::string& message : MessagesOf(rest.substr(0, answer))) {
        ASSERT_EQ(message, "d1_2 ");
    }
}

TEST_F(PenTest, ADriverThatFloods_KeepsNobodyWaiting) {
    constexpr std::uint32_t kEvents = kSanitized ? 40000 : 80000;
    Poster poster(sandbox);
    Client other = Accepted();
    Client command = service.Authorized();
    Client client = Listener();
    int asked = 0;
    // On a busy machine a flood may be over before as many have been answered.
    for (int flood = 0; asked <= 10 && flood < 20; ++flood) {
        // Every event is one text.
        poster.Post(Event(kDown, 1, 2), kEvents);
        auto counted = std::async(std::launch::async, [&] {
            client.ReceiveExactBytes(kEvents * std::string("d1_2 ").size());
        });
        while (counted.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
            EXPECT_THAT(other.Ask("getDriverVersion"), StartsWith("Success DriverVersion="));
            EXPECT_EQ(command.Ask("platform"), "Success MACOSX");
            ++asked;
        }
        counted.get();
    }
    EXPECT_GT(asked, 10);
    client.ExpectSilence();
}

// --- Readers that do not do as they should

TEST_F(PenTest, AListenerThatStopsReading_DelaysNeitherTheOthersNorTheTap_AndLosesNothing) {
    // Ten megabytes: more than the system keeps for a connection, and less than the service does.
    constexpr std::uint32_t kEvents = 400000;
    const std::string down = "d-2147483648_-2147483648 ";
    Poster poster(sandbox);
    Client other = Accepted();
    Client client = Listener();
    poster.Post(Event(kDown, -1e300, -1e300), kEvents);
    poster.Post(Event(kProximity, 1, 2));
    poster.Post(Event(kUp, 3, 4));
    // The tap has been read to its end while not one byte of it was.
    Expect(other, "PenData.PROXIMITY_IN|PenData.USE_TIP|");
    EXPECT_THAT(other.Ask("getDriverVersion"), StartsWith("Success DriverVersion="));
    for (std::uint32_t event = 0; event < kEvents; ++event) {
        ASSERT_EQ(client.ReceiveExactBytes(down.size()), down);
    }
    Expect(client, "PenData.PROXIMITY_IN|PenData.USE_TIP|u3_4 ");
}

TEST_F(PenTest, OtherClientsThatNeverRead_DelayNobody) {
    std::vector<Client> sleepers;
    for (int i = 0; i < 20; ++i) {
        sleepers.push_back(Accepted());
    }
    Poster poster(sandbox);
    Client client = Listener();
    std::string expected;
    for (int i = 0; i < 2000; ++i) {
        poster.Post(Event(kProximity, 0, 0, 0, i % 2 == 0 ? kPen : kEraser, i % 2));
        expected += i % 2 == 0 ? "PenData.PROXIMITY_OUT|PenData.USE_TIP|"
                               : "PenData.PROXIMITY_IN|PenData.USE_ERASER|";
    }
    Expect(client, expected);
    for (Client& sleeper : sleepers) {
        Expect(sleeper, expected);
    }
}

TEST_F(PenTest, WhileTheMainThreadIsBusy_PenDataFlow) {
    const std::string stream = StreamOf("fast-hatching");
    Client command = service.Authorized();
    StartReplay(sandbox, "fast-hatching");
    Client pressure = Accepted();
    // It answers, and sleeps for a second. The stroke takes a few milliseconds.
    EXPECT_EQ(command.Ask("exit"), "QuitAcknowledged");
    const auto begun = std::chrono::steady_clock::now();
    command.Send("platform|");
    pressure.Send("listenTablet x StylusPadDriver|startTablet|");
    EXPECT_EQ(pressure.Receive(), "Success ");
    Expect(pressure, stream);
    if (!kSanitized) {
        command.ExpectSilence(std::chrono::milliseconds(1));
    }
    EXPECT_EQ(command.Receive(), "Success MACOSX");
    EXPECT_GE(std::chrono::steady_clock::now() - begun, std::chrono::milliseconds(900));
}

}  // namespace
