// A recorded stroke on its whole way: from the driver through the service's tap to a person's
// terminal, or to a picture.
#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <sstream>

#include "TesselctlRunning.h"
#include "support/Service.h"

namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr char kDriver[] = "/StylusPadDriver";

struct Record {
    int type;
    double x;
    double y;
    double pressure;
    int tool;
    int near;
};

std::vector<Record> RecordsOf(const std::string& name) {
    std::istringstream text(
        ReadFile(std::filesystem::path(E2E_FIXTURES) / "pen" / (name + ".records")));
    std::vector<Record> records;
    for (Record record{}; text >> record.type >> record.x >> record.y >> record.pressure >>
                          record.tool >> record.near;) {
        records.push_back(record);
    }
    return records;
}

// What a client that listens from the first event on is sent, each piece as it is on the wire.
std::vector<std::string> SentFor(const std::vector<Record>& records) {
    std::vector<std::string> sent;
    int pressureBefore = -1;
    int nearBefore = -1;
    int toolBefore = -1;
    std::string placeBefore;
    for (const Record& record : records) {
        if (record.type == 24) {
            if (record.near != nearBefore) {
                sent.push_back(record.near != 0 ? "PenData.PROXIMITY_IN|"
                                                : "PenData.PROXIMITY_OUT|");
            }
            if (record.tool != toolBefore) {
                sent.push_back(record.tool == 3 ? "PenData.USE_ERASER|" : "PenData.USE_TIP|");
            }
            nearBefore = record.near;
            toolBefore = record.tool;
            continue;
        }
        const std::string place = std::to_string(static_cast<int>(record.x)) + "_" +
                                  std::to_string(static_cast<int>(record.y)) + " ";
        const bool moves = record.type == 6 && place != placeBefore;
        if (record.type == 6 || record.type == 23) {
            const int pressure = static_cast<int>(record.pressure / 2.000031 * 1024);
            if (pressure != pressureBefore) {
                char text[8];
                std::snprintf(text, sizeof text, "%.4d", pressure);
                sent.emplace_back(text, 5);
            }
            pressureBefore = pressure;
        }
        if (record.type == 1 || record.type == 2 || moves) {
            sent.push_back((record.type == 1 ? "d" : record.type == 2 ? "u" : "m") + place);
            placeBefore = place;
        }
    }
    return sent;
}

std::string LineOf(const std::string& piece) {
    static const std::map<std::string, std::string> kWords = {
        {"PenData.PROXIMITY_IN|", "proximity in\n"},
        {"PenData.PROXIMITY_OUT|", "proximity out\n"},
        {"PenData.USE_TIP|", "tool pen\n"},
        {"PenData.USE_ERASER|", "tool eraser\n"},
        {"d", "down "},
        {"m", "move "},
        {"u", "up "}};
    if (piece.back() == '\0') {
        return "pressure " + std::to_string(std::stoi(piece)) + "\n";
    }
    if (piece.back() == '|') {
        return kWords.at(piece);
    }
    std::string place = piece.substr(1, piece.size() - 2) + "\n";
    place[place.find('_')] = ' ';
    return kWords.at(piece.substr(0, 1)) + place;
}

class TesselctlPen : public testing::Test {
  protected:
    // A driver that can be tapped and stands still until Play.
    void StartDriver(const std::string& recording) {
        Program driver;
        driver.path = kDriver;
        driver.arguments = {
            kDriver,   "--screen", "1920x1080", "--replay", "/pen/" + recording + ".evemu",
            "--speed", "max"};
        const Descriptor nothing(open("/dev/null", O_RDWR | O_CLOEXEC));
        process = sandbox.Start(driver, nothing.Get(), nothing.Get(), nothing.Get());
        WaitUntil("the driver can be tapped", [&] {
            return Contains(sandbox.Read("/proc/net/unix"),
                            "@CGEventTap." + std::to_string(process));
        });
        sandbox.Kill(process, SIGSTOP);
    }
    // Plays the recording as soon as the client listens, and then goes.
    void Play() {
        service.WaitForOutput("Active pressure listener: ", ++plays);
        sandbox.Kill(process, SIGCONT);
    }

    Sandbox sandbox{{"--ro-bind", E2E_DRIVER, kDriver, "--ro-bind",
                     std::string(E2E_FIXTURES) + "/pen", "/pen"}};
    Service service{sandbox};

  private:
    pid_t process = -1;
    std::size_t plays = 0;
};

// Each recording has a service of its own, which remembers nothing of another one.
class TesselctlPenStroke : public TesselctlPen, public testing::WithParamInterface<const char*> {};

TEST_P(TesselctlPenStroke, ArrivesAsOneLineForEachEvent) {
    service.WaitUntilListening();
    std::string expected;
    for (const std::string& piece : SentFor(RecordsOf(GetParam()))) {
        expected += LineOf(piece);
    }
    StartDriver(GetParam());
    RunningClient pen(sandbox, {"pen"});
    Play();
    pen.WaitForOutput("proximity out\n");
    WaitUntil("all has come", [&] { return pen.Output().size() >= expected.size(); });
    pen.Signal(SIGINT);
    const ProgramRun run = pen.WaitForEnd();
    EXPECT_EQ(run.output, expected);
    EXPECT_EQ(run.errors, "");
    EXPECT_EQ(run.status, 0);
    // The service is left as it was found.
    service.WaitForOutput("Sending pressure stopped");
    service.WaitForOutput("TabletManager::UninstallTap: Tap uninstalled");
}

INSTANTIATE_TEST_SUITE_P(Of, TesselctlPenStroke,
                         testing::Values("slow-pressure-ramp", "fast-hatching", "pen-eraser-pen"),
                         [](const testing::TestParamInfo<const char*>& recording) {
                             std::string name = recording.param;
                             name.erase(std::remove(name.begin(), name.end(), '-'), name.end());
                             return name;
                         });

TEST_F(TesselctlPen, Raw_WritesTheBytesAsTheServiceSendsThem) {
    service.WaitUntilListening();
    std::string expected;
    for (const std::string& piece : SentFor(RecordsOf("pen-eraser-pen"))) {
        expected += piece;
    }
    StartDriver("pen-eraser-pen");
    RunningClient pen(sandbox, {"pen", "--raw"});
    Play();
    WaitUntil("all has come", [&] { return pen.Output().size() >= expected.size(); });
    pen.Signal(SIGINT);
    EXPECT_EQ(pen.WaitForEnd().output, expected);
}

TEST_F(TesselctlPen, Json_IsAnObjectALine) {
    service.WaitUntilListening();
    StartDriver("pen-eraser-pen");
    RunningClient pen(sandbox, {"pen", "--json", "--app", "StylusPadDriver"});
    Play();
    pen.WaitForOutput("\"event\":\"tool\",\"tool\":\"eraser\"}\n");
    pen.Signal(SIGINT);
    const std::string output = pen.WaitForEnd().output;
    EXPECT_THAT(output, StartsWith("{\"time\":0."));
    EXPECT_THAT(output, HasSubstr(",\"event\":\"down\",\"x\":433,\"y\":347}\n"));
}

TEST_F(TesselctlPen, APlot_IsAPictureOfTheStrokes) {
    service.WaitUntilListening();
    StartDriver("fast-hatching");
    RunningClient pen(sandbox, {"pen", "--plot", "stroke.png"});
    Play();
    pen.WaitForOutput("proximity out\n");
    pen.Signal(SIGINT);
    const ProgramRun run = pen.WaitForEnd();
    EXPECT_EQ(run.errors, "");
    EXPECT_EQ(run.status, 0);
    const std::string picture = ReadFile(sandbox.Outside(std::string(kUserHome) + "/stroke.png"));
    EXPECT_THAT(picture, StartsWith("\x89PNG\r\n\x1A\n"));
    EXPECT_THAT(picture, HasSubstr("IEND"));
    EXPECT_GT(picture.size(), 20000U);
}

// A pen that is put away and taken up by another run: the tap of the first one is gone, or every
// event would be told twice.
TEST_F(TesselctlPen, OneRunAfterTheOther_GetsEveryEventOnce) {
    service.WaitUntilListening();
    for (int run = 0; run < 2; ++run) {
        StartDriver("fast-hatching");
        RunningClient pen(sandbox, {"pen"});
        Play();
        pen.WaitForOutput("proximity out\n");
        pen.Signal(SIGINT);
        EXPECT_EQ(CountOf(pen.WaitForEnd().output, "down "), 40U);
    }
}

TEST_F(TesselctlPen, WhenTheServiceGoesAway_SaysSo) {
    service.WaitUntilListening();
    StartDriver("pen-eraser-pen");
    RunningClient pen(sandbox, {"pen"});
    Play();
    pen.WaitForOutput("tool eraser\n");
    service.Stop(SIGTERM);
    const ProgramRun run = pen.WaitForEnd();
    EXPECT_EQ(run.errors, "tesselctl: the service has gone away\n");
    EXPECT_EQ(run.status, 3);
}

TEST_F(TesselctlPen, WithoutTheDriver_SaysThatItDoesNotRun) {
    service.WaitUntilListening();
    const ProgramRun run = RunProgram(sandbox, {kClientFile, "pen"});
    EXPECT_EQ(run.errors, "tesselctl: no application called StylusPadDriver runs\n");
    EXPECT_EQ(run.output, "");
    EXPECT_EQ(run.status, 1);
}

// Pen data that somebody else gets, through a tap of the same name, too.
TEST_F(TesselctlPen, WithoutTheDriver_TakesNothingFromWhoeverGetsPenData) {
    service.WaitUntilListening();
    StartDriver("pen-eraser-pen");
    Client other = service.ConnectToPressure();
    other.Send("listenTablet x StylusPadDriver|startTablet|");
    EXPECT_EQ(other.Receive(), "Success ");
    service.WaitForOutput("Active pressure listener: ");
    const ProgramRun run = RunProgram(sandbox, {kClientFile, "pen", "--app", "StylusPadDrvier"});
    EXPECT_EQ(run.errors, "tesselctl: no application called StylusPadDrvier runs\n");
    EXPECT_EQ(run.status, 1);
    // Whoever spoke last has gone, and words would reach nobody.
    EXPECT_EQ(other.Ask("getDriverVersion"), "Success DriverVersion=none");
    Play();
    std::string expected;
    for (const std::string& piece : SentFor(RecordsOf("pen-eraser-pen"))) {
        expected += piece;
    }
    EXPECT_EQ(other.ReceiveExactBytes(expected.size()), expected);
    EXPECT_THAT(service.Output(), Not(HasSubstr("TabletManager::UninstallTap")));
}

// The system takes connections that the service has no descriptor left for.
TEST(TesselctlPenPort, ThatIsFull_IsToldSo) {
    Sandbox sandbox;
    Start start;
    start.openFiles = 24;
    Service service(sandbox, start);
    service.WaitUntilListening();
    std::vector<Client> clients;
    for (int i = 0; i < 20; ++i) {
        clients.push_back(service.ConnectToPressure());
    }
    const ProgramRun run = RunProgram(sandbox, {kClientFile, "--timeout", "0.5", "pen"});
    EXPECT_EQ(run.status, 3);
    EXPECT_THAT(run.errors, HasSubstr("it can serve"));
}

}  // namespace
