// What becomes of pen events: each test in a process of its own, because what was told last is the
// process's.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>

#include <cmath>
#include <functional>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "CFTestSupport.h"
#include "CoreGraphics/Event.h"
#include "PenPoster.h"
#include "RunLoopUntil.h"
#include "core/Helpers.h"
#include "tablet/TabletManager.h"
#include "unit/support/ForkedTest.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// Takes down what it is told, in its order.
class Listener : public PressureReplier {
  public:
    int replyTabletEvent(const std::string& text) override { return Note("event " + text); }
    int replyPressure(int value) override { return Note("pressure " + std::to_string(value)); }
    int reply(const std::wstring& text) override {
        return Note("reply " + Helpers::wstringToUtf8(text));
    }
    int replyCursor(const std::wstring& text) override {
        return Note("word " + Helpers::wstringToUtf8(text));
    }

    // Since the last call.
    std::vector<std::string> Told() { return std::exchange(told, {}); }

  private:
    int Note(const std::string& text) {
        told.push_back(text);
        return 0;
    }

    std::vector<std::string> told;
};

struct Scene {
    Listener commandServer;
    Listener tabletServer;

    Scene() { TabletManager::Init(&commandServer, &tabletServer); }

    std::vector<std::string> Told() {
        EXPECT_THAT(commandServer.Told(), IsEmpty());
        return tabletServer.Told();
    }
    std::vector<std::string> After(const penEvents::Record& record) {
        __CGEvent event(record);
        EXPECT_EQ(&event, TabletManager::TabletTapCallBack(
                              nullptr, static_cast<CGEventType>(record.type), &event, nullptr));
        return Told();
    }
};

void WithScene(const std::function<void(Scene& scene)>& body) {
    InChild([&body] {
        Scene scene;
        body(scene);
    });
}

penEvents::Record Down(double x, double y, double pressure = 0) {
    return PenEvent(penEvents::kDown, x, y, pressure);
}
penEvents::Record Up(double x, double y) {
    return PenEvent(penEvents::kUp, x, y);
}
penEvents::Record Drag(double x, double y, double pressure = 0) {
    return PenEvent(penEvents::kDragged, x, y, pressure);
}
penEvents::Record Point(double pressure) {
    return PenEvent(penEvents::kPointer, 5, 5, pressure);
}
penEvents::Record Near(std::int64_t enter, std::int64_t type = penEvents::kPen) {
    return PenEvent(penEvents::kProximity, 5, 5, 0, type, enter);
}

TEST(PenData, APenDownWhileNobodyListens_StillSendsTheTextWithThePosition) {
    WithScene([](Scene& scene) {
        EXPECT_THAT(scene.After(Down(640, 400, 0.5)), ElementsAre("event d640_400"));
    });
}

TEST(PenData, APenDown_TellsNoPressure) {
    WithScene([](Scene& scene) {
        TabletManager::listening = true;
        EXPECT_THAT(scene.After(Down(640, 400, 0.5)), ElementsAre("event d640_400"));
    });
}

TEST(PenData, WhileNobodyListens_UpDragsAndPressureAreNothing) {
    WithScene([](Scene& scene) {
        EXPECT_THAT(scene.After(Up(1, 2)), IsEmpty());
        EXPECT_THAT(scene.After(Drag(3, 4, 0.5)), IsEmpty());
        EXPECT_THAT(scene.After(Point(0.5)), IsEmpty());
        // Nor are they remembered.
        TabletManager::listening = true;
        EXPECT_THAT(scene.After(Drag(3, 4, 0.5)), ElementsAre("pressure 255", "event m3_4"));
    });
}

TEST(PenData, AStroke_IsDownDragsAndUpWithTheirPositions) {
    WithScene([](Scene& scene) {
        TabletManager::listening = true;
        EXPECT_THAT(scene.After(Down(640, 400)), ElementsAre("event d640_400"));
        EXPECT_THAT(scene.After(Drag(700, 410, 0.25)),
                    ElementsAre("pressure 127", "event m700_410"));
        EXPECT_THAT(scene.After(Up(700, 410)), ElementsAre("event u700_410"));
    });
}

TEST(PenData, AFullPress_Is511AndHalfOfIt255) {
    WithScene([](Scene& scene) {
        TabletManager::listening = true;
        EXPECT_THAT(scene.After(Point(1)), ElementsAre("pressure 511"));
        EXPECT_THAT(scene.After(Point(0.5)), ElementsAre("pressure 255"));
        EXPECT_THAT(scene.After(Point(0)), ElementsAre("pressure 0"));
    });
}

TEST(PenData, AnUnchangedPressure_IsNotSentAgain) {
    WithScene([](Scene& scene) {
        TabletManager::listening = true;
        EXPECT_THAT(scene.After(Point(0.5)), ElementsAre("pressure 255"));
        EXPECT_THAT(scene.After(Point(0.5)), IsEmpty());
        // Not even when it is another one that rounds to the same.
        EXPECT_THAT(scene.After(Point(0.4999)), IsEmpty());
        EXPECT_THAT(scene.After(Drag(1, 1, 0.5)), ElementsAre("event m1_1"));
        EXPECT_THAT(scene.After(Point(0.6)), ElementsAre("pressure 307"));
    });
}

TEST(PenData, ADragWithoutAChangeOfPosition_SendsOnlyItsPressure) {
    WithScene([](Scene& scene) {
        TabletManager::listening = true;
        EXPECT_THAT(scene.After(Down(640, 400)), ElementsAre("event d640_400"));
        EXPECT_THAT(scene.After(Drag(640, 400, 0.5)), ElementsAre("pressure 255"));
        EXPECT_THAT(scene.After(Drag(640.9, 400.9, 0.5)), IsEmpty());
        EXPECT_THAT(scene.After(Drag(641, 400, 0.5)), ElementsAre("event m641_400"));
        EXPECT_THAT(scene.After(Drag(641, 401, 0.5)), ElementsAre("event m641_401"));
    });
}

TEST(PenData, ThePositionThatADragIsHeldAgainst_IsThatOfTheLastTextOfAnyKind) {
    WithScene([](Scene& scene) {
        TabletManager::listening = true;
        scene.After(Point(0));
        EXPECT_THAT(scene.After(Up(10, 20)), ElementsAre("event u10_20"));
        EXPECT_THAT(scene.After(Drag(10, 20)), IsEmpty());
    });
}

TEST(PenData, ThePressureOfADrag_ComesBeforeItsPosition) {
    WithScene([](Scene& scene) {
        TabletManager::listening = true;
        EXPECT_THAT(scene.After(Drag(7, 8, 1)), ElementsAre("pressure 511", "event m7_8"));
    });
}

TEST(PenData, Positions_AreTruncatedTowardZero) {
    WithScene([](Scene& scene) {
        EXPECT_THAT(scene.After(Down(640.99, 400.99)), ElementsAre("event d640_400"));
        EXPECT_THAT(scene.After(Down(-3.7, -0.5)), ElementsAre("event d-3_0"));
    });
}

TEST(PenData, NumbersThatAreNone_AreSomeNumberAndNoHarm) {
    WithScene([](Scene& scene) {
        TabletManager::listening = true;
        const double infinite = std::numeric_limits<double>::infinity();
        const double none = std::nan("");
        EXPECT_THAT(scene.After(Down(infinite, -infinite)),
                    ElementsAre("event d2147483647_-2147483648"));
        EXPECT_THAT(scene.After(Down(none, 1e300)), ElementsAre("event d0_2147483647"));
        EXPECT_THAT(scene.After(Point(infinite)), ElementsAre("pressure 2147483647"));
        EXPECT_THAT(scene.After(Point(none)), ElementsAre("pressure 0"));
        EXPECT_THAT(scene.After(Point(-1)), ElementsAre("pressure -511"));
    });
}

TEST(PenData, TheFirstProximityEvent_SendsBothWordsProximityFirst) {
    WithScene([](Scene& scene) {
        EXPECT_THAT(scene.After(Near(1)),
                    ElementsAre("word PenData.PROXIMITY_IN", "word PenData.USE_TIP"));
    });
}

// -1 is what both begin with, so it is no change.
TEST(PenData, TheFirstProximityEventWithFieldsOfMinusOne_SendsNothing) {
    WithScene([](Scene& scene) {
        EXPECT_THAT(scene.After(Near(-1, -1)), IsEmpty());
        EXPECT_THAT(scene.After(Near(-1, penEvents::kPen)), ElementsAre("word PenData.USE_TIP"));
        EXPECT_THAT(scene.After(Near(1, penEvents::kPen)),
                    ElementsAre("word PenData.PROXIMITY_IN"));
    });
}

TEST(PenData, AProximityEventWithoutAChange_SendsNothing) {
    WithScene([](Scene& scene) {
        scene.After(Near(1));
        EXPECT_THAT(scene.After(Near(1)), IsEmpty());
        EXPECT_THAT(scene.After(Near(0)), ElementsAre("word PenData.PROXIMITY_OUT"));
        EXPECT_THAT(scene.After(Near(0, penEvents::kEraser)),
                    ElementsAre("word PenData.USE_ERASER"));
    });
}

TEST(PenData, AProximityEventThatChangesBoth_SendsTheProximityWordFirst) {
    WithScene([](Scene& scene) {
        scene.After(Near(0, penEvents::kPen));
        EXPECT_THAT(scene.After(Near(1, penEvents::kEraser)),
                    ElementsAre("word PenData.PROXIMITY_IN", "word PenData.USE_ERASER"));
    });
}

TEST(PenData, AProximityBelowZero_IsUnknown_AndAboveOneIsIn) {
    WithScene([](Scene& scene) {
        scene.After(Near(0));
        EXPECT_THAT(scene.After(Near(-7)), ElementsAre("word PenData.PROXIMITY_UNKNOWN"));
        EXPECT_THAT(scene.After(Near(std::numeric_limits<std::int64_t>::min())),
                    ElementsAre("word PenData.PROXIMITY_UNKNOWN"));
        EXPECT_THAT(scene.After(Near(std::int64_t{1} << 32)),
                    ElementsAre("word PenData.PROXIMITY_IN"));
    });
}

TEST(PenData, PointersThatAreNeitherPenNorEraser_AreUnknown) {
    WithScene([](Scene& scene) {
        scene.After(Near(1, penEvents::kPen));
        EXPECT_THAT(scene.After(Near(1, penEvents::kCursor)),
                    ElementsAre("word PenData.USE_UNKNOWN"));
        EXPECT_THAT(scene.After(Near(1, 0)), ElementsAre("word PenData.USE_UNKNOWN"));
        // Only its lower half is a pen's.
        EXPECT_THAT(scene.After(Near(1, (std::int64_t{1} << 32) + penEvents::kPen)),
                    ElementsAre("word PenData.USE_UNKNOWN"));
    });
}

TEST(PenData, ProximityIsTold_WhetherOrNotAnybodyListens) {
    WithScene([](Scene& scene) {
        TabletManager::listening = true;
        EXPECT_EQ(2u, scene.After(Near(1)).size());
        TabletManager::listening = false;
        EXPECT_THAT(scene.After(Near(0)), ElementsAre("word PenData.PROXIMITY_OUT"));
    });
}

// What a client's start and stop reset is the proximity alone.
TEST(PenData, AfterListeningBeganAnew_OnlyTheProximityIsSentAgain) {
    WithScene([](Scene& scene) {
        TabletManager::listening = true;
        scene.After(Near(1));
        scene.After(Drag(3, 4, 0.5));
        TabletManager::previousProximityStatus = -1;
        EXPECT_THAT(scene.After(Near(1)), ElementsAre("word PenData.PROXIMITY_IN"));
        EXPECT_THAT(scene.After(Drag(3, 4, 0.5)), IsEmpty());
    });
}

TEST(PenData, AnEventOfAnotherType_IsNothing) {
    WithScene([](Scene& scene) {
        TabletManager::listening = true;
        for (const std::uint32_t type : {0u, 3u, 5u, 22u, 25u}) {
            EXPECT_THAT(scene.After(PenEvent(type, 1, 2, 0.5)), IsEmpty()) << type;
        }
    });
}

// --- Taps, on this very process

// By a name that no other process has.
void WithTaps(const std::function<void(Scene& scene, CFStringRef thisProcess)>& body) {
    WithScene([&body](Scene& scene) {
        const std::string name = "pen" + std::to_string(getpid());
        ASSERT_EQ(0, prctl(PR_SET_NAME, name.c_str()));
        Helpers::logprint("begin");
        Printed();
        body(scene, MakeString(name.c_str()));
    });
}

TEST(PenTaps, OnAProcessThatIsNotThere_AreNotInstalledAndNothingIsSaid) {
    WithTaps([](Scene&, CFStringRef) {
        EXPECT_FALSE(TabletManager::InstallTap(MakeString("no program of this name")));
        EXPECT_THAT(Printed(), IsEmpty());
    });
}

TEST(PenTaps, OnAProcessThatPostsNothing_HaveNoPort) {
    WithTaps([](Scene&, CFStringRef name) {
        EXPECT_FALSE(TabletManager::InstallTap(name));
        EXPECT_THAT(Printed(),
                    ElementsAre("PressureTap: Process found", "PressureTap: Tap port is null"));
    });
}

TEST(PenTaps, OfAProcessThatPosts_TellItsEventsUntilTheyAreRemoved) {
    WithTaps([](Scene& scene, CFStringRef name) {
        PenPoster poster;
        Printed();
        ASSERT_TRUE(TabletManager::InstallTap(name));
        EXPECT_THAT(Printed(), ElementsAre("PressureTap: Process found", "PressureTap: Success"));
        poster.Accept();
        ASSERT_TRUE(poster.Post(Down(1, 2)));
        std::vector<std::string> told;
        EXPECT_TRUE(RunLoopUntil([&] { return !(told = scene.Told()).empty(); }));
        EXPECT_THAT(told, ElementsAre("event d1_2"));
        EXPECT_TRUE(TabletManager::UninstallTap(name, true));
        EXPECT_THAT(Printed(),
                    ElementsAre("TabletManager::UninstallTap: Trying to Uninstall Tap",
                                "TabletManager::UninstallTap: Tap is valid. Trying to Invalidate",
                                "TabletManager::UninstallTap: erase it",
                                "TabletManager::UninstallTap: Tap uninstalled"));
        EXPECT_FALSE(poster.Post(Down(3, 4)));
    });
}

TEST(PenTaps, RemovedOnceMore_AreASuccessWithoutATap) {
    WithTaps([](Scene&, CFStringRef) {
        EXPECT_TRUE(TabletManager::UninstallTap(MakeString("nobody"), true));
        EXPECT_THAT(Printed(), ElementsAre("TabletManager::UninstallTap: Trying to Uninstall Tap",
                                           "TabletManager::UninstallTap: Tap uninstalled"));
    });
}

TEST(PenTaps, RemovedByAnotherName_Stay) {
    WithTaps([](Scene&, CFStringRef name) {
        PenPoster poster;
        ASSERT_TRUE(TabletManager::InstallTap(name));
        poster.Accept();
        Printed();
        EXPECT_TRUE(TabletManager::UninstallTap(MakeString("nobody"), true));
        EXPECT_THAT(Printed(), ElementsAre("TabletManager::UninstallTap: Trying to Uninstall Tap",
                                           "TabletManager::UninstallTap: Tap uninstalled"));
        EXPECT_TRUE(poster.Post(Down(1, 2)));
        EXPECT_TRUE(TabletManager::UninstallTap(name, true));
    });
}

TEST(PenTaps, OfAProcessThatHasDied_AreInvalidAndRemovedAllTheSame) {
    WithTaps([](Scene&, CFStringRef name) {
        {
            PenPoster poster;
            ASSERT_TRUE(TabletManager::InstallTap(name));
            poster.Accept();
        }
        Printed();
        EXPECT_TRUE(TabletManager::UninstallTap(name, true));
        EXPECT_THAT(Printed(), ElementsAre("TabletManager::UninstallTap: Trying to Uninstall Tap",
                                           "TabletManager::UninstallTap: erase it",
                                           "TabletManager::UninstallTap: Tap uninstalled"));
    });
}

// On purpose: whoever installs twice gets everything twice, and removes twice.
TEST(PenTaps, InstalledTwiceOnOneName_AreTwoTaps) {
    WithTaps([](Scene& scene, CFStringRef name) {
        PenPoster poster;
        ASSERT_TRUE(TabletManager::InstallTap(name));
        poster.Accept();
        const int first = dup(poster.Tap());
        ASSERT_TRUE(TabletManager::InstallTap(name));
        poster.Accept();
        // To the second one alone, and then to the first.
        ASSERT_TRUE(poster.Post(Down(1, 2)));
        std::vector<std::string> told;
        EXPECT_TRUE(RunLoopUntil([&] { return !(told = scene.Told()).empty(); }));
        EXPECT_THAT(told, ElementsAre("event d1_2"));
        const penEvents::Record down = Down(3, 4);
        EXPECT_EQ(sizeof down, static_cast<std::size_t>(send(first, &down, sizeof down, 0)));
        EXPECT_TRUE(RunLoopUntil([&] { return !(told = scene.Told()).empty(); }));
        EXPECT_THAT(told, ElementsAre("event d3_4"));
        // The first goes first.
        EXPECT_TRUE(TabletManager::UninstallTap(name, true));
        EXPECT_EQ(-1, send(first, &down, sizeof down, MSG_NOSIGNAL));
        EXPECT_TRUE(poster.Post(down));
        close(first);
    });
}

TEST(PenTaps, RemovedWithoutErasing_StayInTheListInvalid) {
    WithTaps([](Scene&, CFStringRef name) {
        PenPoster poster;
        ASSERT_TRUE(TabletManager::InstallTap(name));
        TabletManager::UninstallTap(name, false);
        Printed();
        TabletManager::UninstallTap(name, true);
        EXPECT_THAT(Printed(), ElementsAre("TabletManager::UninstallTap: Trying to Uninstall Tap",
                                           "TabletManager::UninstallTap: erase it",
                                           "TabletManager::UninstallTap: Tap uninstalled"));
    });
}

TEST(PenTaps, Unload_EndsThemAllAndCountsThem) {
    WithTaps([](Scene&, CFStringRef name) {
        PenPoster poster;
        ASSERT_TRUE(TabletManager::InstallTap(name));
        ASSERT_TRUE(TabletManager::InstallTap(name));
        Printed();
        TabletManager::Unload();
        EXPECT_THAT(Printed(),
                    ElementsAre("TabletManager::Unload: start",
                                "TabletManager::Unload: Tap port iterator 0",
                                "TabletManager::UninstallTap: Trying to Uninstall Tap",
                                "TabletManager::UninstallTap: Tap is valid. Trying to Invalidate",
                                "TabletManager::UninstallTap: Tap uninstalled",
                                "TabletManager::Unload: erase it.",
                                "TabletManager::Unload: Tap port iterator 1",
                                "TabletManager::UninstallTap: Trying to Uninstall Tap",
                                "TabletManager::UninstallTap: Tap is valid. Trying to Invalidate",
                                "TabletManager::UninstallTap: Tap uninstalled",
                                "TabletManager::Unload: erase it.", "TabletManager::Unload: end"));
        TabletManager::Unload();
        EXPECT_THAT(Printed(),
                    ElementsAre("TabletManager::Unload: start", "TabletManager::Unload: end"));
    });
}

}  // namespace
