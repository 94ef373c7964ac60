// From pen events to a picture.

#include "tesselctl/Plot.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cmath>
#include <filesystem>

#include "tesselctl/Png.h"
#include "tesselctl/ReplaceFile.h"
#include "unit/TesselctlTesting.h"

namespace {

using namespace tesselctl;
using namespace std::string_literals;
using tesselctltest::ReadFile;
using tesselctltest::TemporaryHome;
using tesselctltest::WriteFile;

constexpr Colour kWhite = {255, 255, 255};
constexpr Colour kBlack = {0, 0, 0};

std::vector<Stroke> StrokesOf(std::initializer_list<const char*> messages) {
    Strokes strokes;
    for (const char* const message : messages)
        strokes.Take(ReadPenEvent(message));
    return strokes.All();
}

// "x,y,pressure of 511 ..." of each stroke, those of the eraser behind a minus sign.
std::vector<std::string> Told(std::initializer_list<const char*> messages) {
    std::vector<std::string> told;
    for (const Stroke& stroke : StrokesOf(messages)) {
        std::string text = stroke.isEraser ? "-" : "";
        for (const StrokePoint& point : stroke.points)
            text += (text.size() > 1 ? " " : "") + std::to_string(std::lround(point.x)) + ',' +
                    std::to_string(std::lround(point.y)) + ',' +
                    std::to_string(std::lround(point.pressure * kFullPressure));
        told.push_back(text);
    }
    return told;
}

using Texts = std::vector<std::string>;

TEST(TesselctlStrokes, WhatLiesBetweenDownAndUp_IsAStroke) {
    EXPECT_EQ((Texts{"1,2,100 3,4,200 5,6,200", "7,8,200"}),
              Told({"0100", "d1_2", "0200", "m3_4", "u5_6", "d7_8", "u7_8"}));
    EXPECT_EQ(Texts{}, Told({"0100", "u5_6", "PenData.PROXIMITY_IN"}));
}

TEST(TesselctlStrokes, AStrokeWhoseBeginningCameBefore_BeginsWhereItIsKnown) {
    EXPECT_EQ((Texts{"3,4,0 5,6,0"}), Told({"m3_4", "m5_6"}));
}

TEST(TesselctlStrokes, ThePressureOfAPenThatRests_MakesItsPlaceWider) {
    EXPECT_EQ((Texts{"1,2,300 3,4,50"}),
              Told({"0100", "d1_2", "0300", "0200", "0050", "m3_4", "u3_4"}));
    EXPECT_EQ((Texts{"1,2,300"}), Told({"0100", "d1_2", "0300", "u1_2"}));
}

TEST(TesselctlStrokes, WhatIsToldTwice_IsDrawnOnce) {
    EXPECT_EQ((Texts{"1,2,0 3,4,0"}), Told({"d1_2", "d1_2", "m3_4", "u3_4", "u3_4"}));
}

TEST(TesselctlStrokes, TheEraser_HasStrokesOfItsOwn) {
    EXPECT_EQ((Texts{"1,2,0", "-3,4,0", "5,6,0"}),
              Told({"d1_2", "u1_2", "PenData.USE_ERASER", "d3_4", "u3_4", "PenData.USE_TIP", "d5_6",
                    "u5_6"}));
}

TEST(TesselctlStrokes, AFlood_IsKeptUpToItsLimit) {
    Strokes strokes;
    strokes.Take(ReadPenEvent("d0_0"));
    PenEvent move = ReadPenEvent("m0_0");
    for (std::size_t i = 0; i < Strokes::kMostPoints + 10; i++) {
        move.x++;
        strokes.Take(move);
    }
    EXPECT_TRUE(strokes.IsFull());
    EXPECT_EQ(Strokes::kMostPoints, strokes.All()[0].points.size());
    strokes.Take(ReadPenEvent("u0_0"));
    strokes.Take(ReadPenEvent("d5_5"));
    strokes.Take(ReadPenEvent("m5_5"));
    EXPECT_EQ(1U, strokes.All().size());
}

TEST(TesselctlCanvas, ALine_IsFullInTheMiddleSmoothAtTheEdgeAndNothingOutside) {
    Canvas canvas(40, 40, kWhite);
    canvas.Draw({10, 20, 5.25}, {30, 20, 5.25});
    canvas.Ink(kBlack);
    EXPECT_EQ(0, canvas.At(20, 20).red);
    EXPECT_EQ(0, canvas.At(20, 16).red);
    // The edge runs through this pixel, a quarter of it inside.
    EXPECT_NEAR(191, canvas.At(20, 14).red, 2);
    EXPECT_EQ(255, canvas.At(20, 13).red);
    EXPECT_EQ(255, canvas.At(3, 20).red);
    EXPECT_EQ(0, canvas.At(6, 20).red);
}

TEST(TesselctlCanvas, ALineThatCrossesItself_IsNoDarkerThere) {
    Canvas canvas(20, 20, kWhite);
    canvas.Draw({2, 10, 0.3}, {18, 10, 0.3});
    canvas.Draw({2, 10, 0.3}, {18, 10, 0.3});
    canvas.Ink(kBlack);
    const int once = canvas.At(10, 10).red;
    EXPECT_GT(once, 100);
    EXPECT_LT(once, 255);
    canvas.Draw({2, 10, 0.3}, {18, 10, 0.3});
    canvas.Ink(kBlack);
    EXPECT_LT(canvas.At(10, 10).red, once);
}

TEST(TesselctlCanvas, WhatLiesOutside_IsLost) {
    Canvas canvas(10, 10, kWhite);
    canvas.Draw({-1e9, -1e9, 3}, {-1e9, 1e9, 3});
    canvas.Draw({1e9, 5, 3}, {2e9, 5, 3});
    canvas.Ink(kBlack);
    EXPECT_EQ(std::vector<std::uint8_t>(300, 255), canvas.Pixels());
}

std::size_t InkedRows(const Canvas& canvas, std::size_t column) {
    std::size_t rows = 0;
    for (std::size_t y = 0; y < canvas.Height(); y++)
        rows += canvas.At(column, y).red < 128 ? 1 : 0;
    return rows;
}

Canvas Draw(const std::vector<Stroke>& strokes) {
    return *DrawStrokes(strokes, [] { return true; });
}

TEST(TesselctlPlot, TheWidthOfAStroke_FollowsThePressure) {
    std::vector<Stroke> strokes = {{false, {}}};
    for (int x = 0; x <= 1000; x++)
        strokes[0].points.push_back({x / 1.0, 0, x / 1000.0});
    const Canvas picture = Draw(strokes);
    EXPECT_EQ(1648U, picture.Width());
    EXPECT_EQ(48U, picture.Height());
    EXPECT_NEAR(2, static_cast<double>(InkedRows(picture, 24 + 80)), 1);
    EXPECT_NEAR(7.6, static_cast<double>(InkedRows(picture, 24 + 800)), 1);
    EXPECT_NEAR(13.4, static_cast<double>(InkedRows(picture, 24 + 1520)), 1);
    EXPECT_EQ(0U, InkedRows(picture, 2));
    EXPECT_EQ(0U, InkedRows(picture, 1646));
}

TEST(TesselctlPlot, ADot_IsADisc) {
    const Canvas picture = Draw(StrokesOf({"0511", "d5_5", "u5_5"}));
    EXPECT_EQ(48U, picture.Width());
    EXPECT_NEAR(14, static_cast<double>(InkedRows(picture, 24)), 1);
}

TEST(TesselctlPlot, PlacesFromEndToEndOfTheNumbers_GiveAPictureOfOrdinarySize) {
    const Canvas picture =
        Draw(StrokesOf({"0511", "d-2147483648_0", "m2147483647_0", "u0_-2147483647"}));
    EXPECT_EQ(1648U, picture.Width());
    EXPECT_EQ(848U, picture.Height());
    EXPECT_LT(picture.At(24, 824).red, 128);
}

TEST(TesselctlPlot, TheStairsOfWholePixels_AreSmoothed) {
    // One pixel up for every ten to the right, as a screen has it.
    std::vector<Stroke> strokes = {{false, {}}};
    for (int x = 0; x <= 500; x++)
        strokes[0].points.push_back({x / 1.0, static_cast<double>(x / 10), 0.5});
    const Canvas picture = Draw(strokes);
    const auto middle = [&](std::size_t column) {
        double sum = 0;
        double weight = 0;
        for (std::size_t y = 0; y < picture.Height(); y++) {
            const double ink = 255 - picture.At(column, y).red;
            sum += ink * static_cast<double>(y);
            weight += ink;
        }
        return sum / weight;
    };
    // Three pixels of the picture are one of the screen. A step would be 3 high; a straight line
    // rises by 1.2 over these 12 columns.
    double highest = 0;
    for (std::size_t column = 200; column < 1400; column++)
        highest = std::max(highest, middle(column + 12) - middle(column));
    EXPECT_LT(highest, 2.4);
    EXPECT_GT(highest, 1.1);
}

TEST(TesselctlPlot, TheEraser_HasAColourOfItsOwn) {
    const Canvas pen = Draw({{false, {{0, 0, 1}}}});
    const Canvas eraser = Draw({{true, {{0, 0, 1}}}});
    EXPECT_LT(pen.At(24, 24).red, pen.At(24, 24).blue);
    EXPECT_GT(eraser.At(24, 24).red, eraser.At(24, 24).blue + 50);
}

TEST(TesselctlPlot, ADrawingThatIsStopped_GivesNothing) {
    int asked = 0;
    EXPECT_FALSE(DrawStrokes(std::vector<Stroke>(10, Stroke{false, {{0, 0, 1}, {9, 9, 1}}}),
                             [&] { return ++asked < 3; }));
    EXPECT_EQ(3, asked);
}

std::uint32_t NumberAt(const std::string& bytes, std::size_t at) {
    std::uint32_t number = 0;
    for (std::size_t i = 0; i < 4; i++)
        number = number << 8 | static_cast<unsigned char>(bytes[at + i]);
    return number;
}

TEST(TesselctlPng, APicture_IsAPngFileOfItsSize) {
    const TemporaryHome home;
    const std::string file = home.Path() + "/a picture.png";
    const Canvas picture(30, 20, kBlack);
    EXPECT_EQ("", ReplaceFile(file, [&](std::FILE* to) { return WritePng(picture, to); }));
    const std::string bytes = ReadFile(file);
    ASSERT_GT(bytes.size(), 40U);
    EXPECT_EQ("\x89PNG\r\n\x1A\n\0\0\0\rIHDR"s, bytes.substr(0, 16));
    EXPECT_EQ(30U, NumberAt(bytes, 16));
    EXPECT_EQ(20U, NumberAt(bytes, 20));
    EXPECT_EQ("\x08\x02"s, bytes.substr(24, 2));  // eight bits, colours
    EXPECT_EQ("IEND", bytes.substr(bytes.size() - 8, 4));
}

std::string Write(const std::string& file, const std::string& text) {
    return ReplaceFile(file, [&](std::FILE* to) {
        std::fputs(text.c_str(), to);
        return std::string();
    });
}

TEST(TesselctlReplaceFile, ANewFile_ReplacesTheOldWholeAndHasAnOrdinaryMode) {
    const TemporaryHome home;
    const std::string file = home.Path() + "/file";
    umask(022);
    EXPECT_EQ("", Write(file, "one"));
    EXPECT_EQ("", Write(file, "two"));
    EXPECT_EQ("two", ReadFile(file));
    struct stat status {};
    ASSERT_EQ(0, stat(file.c_str(), &status));
    EXPECT_EQ(0644U, status.st_mode & 07777);
}

TEST(TesselctlReplaceFile, AFailure_LeavesTheOldFileAndNothingElse) {
    const TemporaryHome home;
    const std::string file = home.Path() + "/file";
    WriteFile(file, "old");
    EXPECT_EQ("no more", ReplaceFile(file, [](std::FILE* to) {
                  std::fputs("half", to);
                  return std::string("no more");
              }));
    EXPECT_EQ("old", ReadFile(file));
    const auto entries = std::filesystem::directory_iterator(home.Path());
    EXPECT_EQ(1, std::distance(begin(entries), end(entries)));
}

TEST(TesselctlReplaceFile, WhatIsNoRegularFile_IsNeverReplaced) {
    const TemporaryHome home;
    const std::string pipe = home.Path() + "/pipe";
    ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
    EXPECT_EQ("it is a folder", Write(home.Path(), "x"));
    EXPECT_EQ("it is not a regular file", Write(pipe, "x"));
    EXPECT_EQ("No such file or directory", Write(home.Path() + "/none/file", "x"));
    EXPECT_EQ("Not a directory", Write(pipe + "/file", "x"));
    EXPECT_TRUE(std::filesystem::is_fifo(pipe));
}

}  // namespace
