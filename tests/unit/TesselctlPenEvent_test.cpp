#include "tesselctl/PenEvent.h"

#include <gtest/gtest.h>

namespace {

using namespace tesselctl;

std::string Line(std::string_view message) {
    return PenLine(ReadPenEvent(message));
}

std::string Json(std::string_view message, long long time = 0) {
    return PenJson(ReadPenEvent(message), time);
}

TEST(TesselctlPenEvent, EveryMessageAboutThePen_IsOneLine) {
    EXPECT_EQ("pressure 0", Line("0000"));
    EXPECT_EQ("pressure 511", Line("0511"));
    EXPECT_EQ("down 640 400", Line("d640_400"));
    EXPECT_EQ("move 700 -10", Line("m700_-10"));
    EXPECT_EQ("up -2147483648 2147483647", Line("u-2147483648_2147483647"));
    EXPECT_EQ("proximity in", Line("PenData.PROXIMITY_IN"));
    EXPECT_EQ("proximity out", Line("PenData.PROXIMITY_OUT"));
    EXPECT_EQ("proximity unknown", Line("PenData.PROXIMITY_UNKNOWN"));
    EXPECT_EQ("tool pen", Line("PenData.USE_TIP"));
    EXPECT_EQ("tool eraser", Line("PenData.USE_ERASER"));
    EXPECT_EQ("tool unknown", Line("PenData.USE_UNKNOWN"));
}

TEST(TesselctlPenEvent, EverythingElse_IsAMessageThatCannotSteerATerminal) {
    for (const char* const other : {"", "12", "00511", "-511", "51 1", "d", "d1", "d1_", "d1_2_3",
                                    "d_2", "x1_2", "d99999999999_1", "PenData.", "dead"}) {
        EXPECT_EQ(PenWhat::kOther, ReadPenEvent(other).what) << other;
        EXPECT_EQ(std::string("message ") + other, Line(other));
    }
    EXPECT_EQ("message ^[[2J", Line("\033[2J"));
}

TEST(TesselctlPenEvent, AsJson_IsAnObjectWithItsTime) {
    EXPECT_EQ("{\"time\":1.000042,\"event\":\"pressure\",\"pressure\":37}", Json("0037", 1000042));
    EXPECT_EQ("{\"time\":0.000000,\"event\":\"down\",\"x\":640,\"y\":-4}", Json("d640_-4"));
    EXPECT_EQ("{\"time\":0.000000,\"event\":\"proximity\",\"proximity\":\"in\"}",
              Json("PenData.PROXIMITY_IN"));
    EXPECT_EQ("{\"time\":0.000000,\"event\":\"tool\",\"tool\":\"eraser\"}",
              Json("PenData.USE_ERASER"));
    EXPECT_EQ("{\"time\":0.000000,\"event\":\"message\",\"message\":\"\\\"\\u001b\"}",
              Json("\"\033"));
}

}  // namespace
