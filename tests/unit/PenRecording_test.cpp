#include <gmock/gmock.h>
#include <linux/input-event-codes.h>

#include <cstdlib>

#include "PenTesting.h"
#include "TemporaryFolder.h"
#include "driver/Pen.h"
#include "driver/Recording.h"

namespace {

using driver::Event;
using driver::ParseEvent;
using driver::Recording;

const std::string kTablet =
    "N: A tablet # 5\n"
    "I: 0003 f7e5 7101 0100\n"
    "B: 01 00 00 00 00 00 00 00 00\n"
    "B: 01 00 00 00 00 00 00 00 00\n"
    "B: 01 00 00 00 00 00 00 00 00\n"
    "B: 01 00 00 00 00 00 00 00 00\n"
    "B: 01 00 00 00 00 00 00 00 00\n"
    "B: 01 03 04 00 00 00 00 00 00\n"
    "A: 00 0 100 0 0\n"
    "A: 01 -5 50 0 0 200\n"
    "A: 18 0 2047 0 0 0\n";

class PenRecording : public ::testing::Test {
  protected:
    std::string File(const std::string& content) {
        return folder.Write("recording", content).string();
    }
    std::string ProblemOf(const std::string& content) {
        Recording recording(File(content));
        while (recording.Next()) {
        }
        return recording.Problem();
    }

    TemporaryFolder folder;
};

TEST(PenRecordingEvent, OfTheUsualForm_IsItsNumbers) {
    const std::optional<Event> event =
        ParseEvent("E: 12.000345 0003 0018 -1234\t# EV_ABS / ABS_PRESSURE -1234");
    ASSERT_TRUE(event);
    EXPECT_EQ(event->microseconds, 12000345);
    EXPECT_EQ(event->type, EV_ABS);
    EXPECT_EQ(event->code, ABS_PRESSURE);
    EXPECT_EQ(event->value, -1234);
    EXPECT_EQ(ParseEvent("E: 0.000001 0001 014a 0001\r")->code, BTN_TOUCH);
    EXPECT_EQ(ParseEvent("E:0.0 0 0 0")->value, 0);
}

TEST(PenRecordingEvent, OfAnotherForm_IsNone) {
    for (const char* const line : {"",
                                   "E",
                                   "E:",
                                   "E: ",
                                   "F: 0.0 0 0 0",
                                   "E: 1 0 0 0",
                                   "E: 1.0 0 0",
                                   "E: 1.0 0 0 0 0",
                                   "E: 1.0 10000 0 0",
                                   "E: 1.0 0 10000 0",
                                   "E: 1.0 0 0 2147483648",
                                   "E: 1.0 0 0 x",
                                   "E: 1.0 0 0 1x",
                                   "E: 1.0 -1 0 0",
                                   "E: -1.0 0 0 0",
                                   "E: 1.1000000 0 0 0",
                                   "E: 1.-1 0 0 0",
                                   "E: 99999999999999999999.0 0 0 0",
                                   "E: 9223372036854775807.0 0 0 0",
                                   "E: 1.0 0 0 # 0",
                                   "E: 1. 0 0 0",
                                   "E: .1 0 0 0"}) {
        EXPECT_FALSE(ParseEvent(line)) << line;
    }
}

TEST_F(PenRecording, Description_SaysWhatTheTabletCan) {
    Recording recording(File("# EVEMU 1.3\n" + kTablet + "P: 00\nL: 00 1\nS: 00 1\n\n# the end\n"));
    EXPECT_EQ(recording.Problem(), "");
    const driver::TabletModel& model = recording.Model();
    EXPECT_EQ(model.name, "A tablet # 5");
    EXPECT_EQ(model.vendor, 0xf7e5);
    EXPECT_EQ(model.product, 0x7101);
    EXPECT_TRUE(model.hasPen);
    EXPECT_TRUE(model.hasEraser);
    EXPECT_TRUE(model.hasTouch);
    EXPECT_FALSE(model.hasCursor);
    EXPECT_EQ(model.x->highest, 100);
    EXPECT_EQ(model.y->lowest, -5);
    EXPECT_EQ(model.pressure->highest, 2047);
    EXPECT_FALSE(recording.Next());
    EXPECT_EQ(recording.Problem(), "");
}

TEST_F(PenRecording, Events_ComeInTheirOrder_BetweenCommentsAndEmptyLines) {
    Recording recording(
        File(kTablet + "# Waiting\nE: 0.1 0003 0000 0007\n\n   # note\nE: 0.2 0000 0000 0000"));
    EXPECT_EQ(recording.Next()->value, 7);
    EXPECT_EQ(recording.Next()->type, EV_SYN);
    EXPECT_FALSE(recording.Next());
    EXPECT_EQ(recording.Problem(), "");
}

TEST_F(PenRecording, MalformedLine_IsNamed) {
    EXPECT_THAT(ProblemOf(kTablet + "E: 0.1 0003 0000 0007\nE: nonsense\nE: 0.2 0 0 0\n"),
                ::testing::EndsWith("recording, line 13: this is no event"));
    EXPECT_THAT(ProblemOf(kTablet + "E: 0.1 0003 0000 0007\nN: late\n"),
                ::testing::HasSubstr("line 13"));
    for (const char* const line :
         {"nonsense", "I: 0003", "I: 10000 0 0 0", "B: xx 00", "B: 99 00", "B: 01 100", "B: 01 -1",
          "A: 00 0", "A: 00 0 100 0", "A: 00 0 100 0 0 0 0", "A: 00 0 99999999999 0 0"}) {
        EXPECT_THAT(ProblemOf(std::string(line) + "\n" + kTablet),
                    ::testing::EndsWith("line 1: this is no description of a device"))
            << line;
    }
}

TEST_F(PenRecording, DescriptionOfMoreCodesThanThereAre_IsRefused) {
    std::string keys = kTablet;
    for (int line = 0; line < 100; ++line) {
        keys += "B: 01 00 00 00 00 00 00 00 00\n";
    }
    EXPECT_THAT(ProblemOf(keys), ::testing::HasSubstr("no description"));
}

TEST_F(PenRecording, DeviceThatIsNoTablet_IsRefused) {
    EXPECT_THAT(ProblemOf(""), ::testing::HasSubstr("no tablet"));
    EXPECT_THAT(ProblemOf("N: A mouse\nE: 0.0 0 0 0\n"), ::testing::HasSubstr("no tablet"));
    EXPECT_THAT(ProblemOf(kTablet.substr(0, kTablet.find("A: 01"))),
                ::testing::HasSubstr("no tablet"));
}

TEST_F(PenRecording, FileThatIsNotThere_IsNamed) {
    EXPECT_EQ(Recording("/nowhere/at all").Problem(), "/nowhere/at all: No such file or directory");
    EXPECT_THAT(Recording(folder.Path().string()).Problem(), ::testing::HasSubstr("no tablet"));
}

TEST(PenRecordings, OfTheStrokes_AreTheirRecords) {
    for (const char* const stroke : pentest::kStrokes) {
        Recording recording(pentest::RecordingOf(stroke));
        ASSERT_EQ(recording.Problem(), "") << stroke;
        driver::Pen pen(recording.Model(), {1920, 1080});
        pentest::Records records;
        while (const std::optional<Event> event = recording.Next()) {
            const driver::PenEvents events = pen.Take(*event);
            records.insert(records.end(), events.begin(), events.end());
        }
        EXPECT_EQ(recording.Problem(), "");
        const driver::PenEvents last = pen.Leave();
        EXPECT_EQ(last.begin(), last.end()) << "the stroke is not complete";
        EXPECT_EQ(records, pentest::RecordsOf(stroke)) << stroke;
    }
}

// The files are those that their maker makes.
TEST(PenRecordings, OfTheStrokes_CanBeMadeAgain) {
    const TemporaryFolder folder;
    const std::string command =
        "'" + std::string(PEN_RECORDINGS) + "/make-recordings' '" + folder.Path().string() + "'";
    ASSERT_EQ(std::system(command.c_str()), 0);
    for (const char* const stroke : pentest::kStrokes) {
        for (const char* const suffix : {".evemu", ".records", ".stream"}) {
            const auto content = [&](const std::filesystem::path& path) {
                std::ostringstream text;
                text << std::ifstream(path / (std::string(stroke) + suffix)).rdbuf();
                return text.str();
            };
            EXPECT_EQ(content(folder.Path()), content(PEN_RECORDINGS)) << stroke << suffix;
        }
    }
}

}  // namespace
