#include "tesselctl/PenView.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <vector>

namespace {

using namespace tesselctl;
using namespace std::chrono_literals;

const EventRate::Time kStart{std::chrono::hours(1000)};

std::vector<std::string> LinesOf(const std::string& picture) {
    std::vector<std::string> lines;
    std::istringstream text(picture);
    for (std::string line; std::getline(text, line);)
        lines.push_back(line);
    return lines;
}

TEST(TesselctlPenView, ABar_IsFilledByItsShare) {
    EXPECT_EQ("..........", Bar(0, 10, false));
    EXPECT_EQ("#####.....", Bar(0.5, 10, false));
    EXPECT_EQ("##########", Bar(1, 10, false));
    EXPECT_EQ("", Bar(0.5, 0, false));
    EXPECT_EQ("    ", Bar(0, 4, true));
    EXPECT_EQ("\u2588\u2588  ", Bar(0.5, 4, true));
    EXPECT_EQ("\u2588\u2588\u258C ", Bar(0.625, 4, true));
    EXPECT_EQ("\u2588\u2588\u2588\u2588", Bar(1, 4, true));
}

TEST(TesselctlPenView, ThePicture_ShowsThePenAsItIsNow) {
    PenView view(false);
    EXPECT_EQ(3U, LinesOf(view.Picture(80, kStart)).size());
    for (const char* const message : {"PenData.PROXIMITY_IN", "PenData.USE_ERASER", "0256",
                                      "d640_400", "m700_410", "0255", "nonsense"})
        view.Take(ReadPenEvent(message), kStart);
    const std::vector<std::string> lines = LinesOf(view.Picture(60, kStart));
    ASSERT_EQ(3U, lines.size());
    EXPECT_EQ("pressure   ###################..................  255   50 %", lines[0]);
    EXPECT_EQ("tool       eraser    proximity  in        position  700, 410", lines[1]);
    EXPECT_EQ("events     6/s       in all     6         Control-C ends it", lines[2]);
    EXPECT_EQ(static_cast<std::size_t>(PenView::kLines), lines.size());
}

// The recording is the one that the command in front of the picture plays.
TEST(TesselctlPenView, TheReadmesPicture_IsWhatItsRecordingGives) {
    std::ifstream readme(TESSELCTL_DOCUMENTS "/../README.md");
    std::vector<std::string> shown;
    for (std::string line; shown.size() < PenView::kLines && std::getline(readme, line);)
        if (!shown.empty() || line.compare(0, 15, "    pressure   ") == 0)
            shown.push_back(line.substr(4));
    ASSERT_EQ(static_cast<std::size_t>(PenView::kLines), shown.size());
    const std::size_t total = shown[2].find("in all");
    ASSERT_NE(std::string::npos, total);
    std::ifstream stream(TESSELCTL_DOCUMENTS "/../tests/fixtures/pen/slow-pressure-ramp.stream");
    PenView view(true);
    std::string line;
    for (int left = std::stoi(shown[2].substr(total + 6)); left > 0; left--) {
        ASSERT_TRUE(std::getline(stream, line));
        // A bar, or the two signs for a NUL or a blank.
        line.resize(line.size() - (line.back() == '|' ? 1 : 2));
        view.Take(ReadPenEvent(line), kStart);
    }
    const std::vector<std::string> lines = LinesOf(view.Picture(79, kStart));
    EXPECT_EQ(lines[0], shown[0]);
    EXPECT_EQ(lines[1], shown[1]);
    EXPECT_EQ(lines[2].substr(lines[2].find("in all")), shown[2].substr(total));
}

TEST(TesselctlPenView, APenThatIsLifted_IsUp) {
    PenView view(false);
    view.Take(ReadPenEvent("d1_2"), kStart);
    EXPECT_NE(std::string::npos, view.Picture(100, kStart).find("1, 2          down\n"));
    view.Take(ReadPenEvent("u1_2"), kStart);
    EXPECT_NE(std::string::npos, view.Picture(100, kStart).find("1, 2          up\n"));
}

TEST(TesselctlPenView, NoLine_IsLongerThanTheTerminalIsWide) {
    PenView view(false);
    view.Take(ReadPenEvent("u-2147483648_-2147483648"), kStart);
    view.Take(ReadPenEvent("9999"), kStart);
    for (std::size_t width = 0; width < 120; width++)
        for (const std::string& line : LinesOf(view.Picture(width, kStart)))
            ASSERT_LE(line.size(), width);
}

TEST(TesselctlPenView, TheRate_CountsTheLastSecond) {
    EventRate rate;
    for (int i = 0; i < 100; i++)
        rate.Count(kStart + i * 20ms);
    EXPECT_EQ(50, rate.PerSecond(kStart + 1999ms));
    EXPECT_EQ(25, rate.PerSecond(kStart + 2499ms));
    EXPECT_EQ(0, rate.PerSecond(kStart + 5s));
}

TEST(TesselctlPenView, WhileNothingChanges_NothingIsToBeDrawn) {
    PenView view(false);
    EXPECT_TRUE(view.Changed(kStart));
    view.Picture(80, kStart);
    EXPECT_FALSE(view.Changed(kStart));
    EXPECT_TRUE(view.IsQuiet());
    view.Take(ReadPenEvent("d1_2"), kStart);
    EXPECT_TRUE(view.Changed(kStart));
    view.Picture(80, kStart);
    EXPECT_FALSE(view.Changed(kStart));
    // The rate is still to fall.
    EXPECT_FALSE(view.IsQuiet());
    EXPECT_TRUE(view.Changed(kStart + 2s));
    view.Picture(80, kStart + 2s);
    EXPECT_TRUE(view.IsQuiet());
    view.Take(ReadPenEvent("nonsense"), kStart);
    EXPECT_FALSE(view.Changed(kStart + 2s));
}

}  // namespace
