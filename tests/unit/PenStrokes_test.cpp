#include <linux/input-event-codes.h>

#include <climits>
#include <initializer_list>

#include "PenTesting.h"
#include "driver/Pen.h"

namespace {

using pentest::Record;
using pentest::Records;

// The screen is as many pixels as the tablet has units, plus one: a unit is a pixel.
constexpr driver::Screen kScreen = {101, 51};

driver::TabletModel Model() {
    driver::TabletModel model;
    model.x = driver::Axis{0, 100};
    model.y = driver::Axis{0, 50};
    model.pressure = driver::Axis{0, 1000};
    model.hasTouch = model.hasPen = true;
    return model;
}

struct Said {
    std::uint16_t type;
    std::uint16_t code;
    std::int32_t value;
};

// A tablet that says what it is told to.
class Tablet {
  public:
    explicit Tablet(const driver::TabletModel& model = Model(), driver::Screen screen = kScreen)
        : pen(model, screen) {}

    // The events of one report.
    Records Says(std::initializer_list<Said> values) {
        for (const Said& said : values) {
            const driver::PenEvents none = pen.Take({0, said.type, said.code, said.value});
            EXPECT_EQ(none.begin(), none.end());
        }
        return AsVector(pen.Take({0, EV_SYN, SYN_REPORT, 0}));
    }
    Records Leaves() { return AsVector(pen.Leave()); }

  private:
    static Records AsVector(const driver::PenEvents& events) {
        return Records(events.begin(), events.end());
    }

    driver::Pen pen;
};

constexpr Said X(std::int32_t value) {
    return {EV_ABS, ABS_X, value};
}
constexpr Said Y(std::int32_t value) {
    return {EV_ABS, ABS_Y, value};
}
constexpr Said Pressure(std::int32_t value) {
    return {EV_ABS, ABS_PRESSURE, value};
}
constexpr Said Tool(std::uint16_t code, bool isNear = true) {
    return {EV_KEY, code, isNear ? 1 : 0};
}
constexpr Said Touch(bool isDown) {
    return {EV_KEY, BTN_TOUCH, isDown ? 1 : 0};
}

using penEvents::kCursor;
using penEvents::kDown;
using penEvents::kDragged;
using penEvents::kEraser;
using penEvents::kPen;
using penEvents::kPointer;
using penEvents::kProximity;
using penEvents::kUp;

TEST(PenStrokes, ToolThatComesAndGoes_IsTwoProximityEvents) {
    Tablet tablet;
    EXPECT_EQ(tablet.Says({X(10), Y(20), Tool(BTN_TOOL_PEN)}),
              (Records{Record(kProximity, 10, 20)}));
    EXPECT_EQ(tablet.Says({Tool(BTN_TOOL_PEN, false)}),
              (Records{Record(kProximity, 10, 20, 0, kPen, 0)}));
}

TEST(PenStrokes, Stroke_IsDownDragsAndUp) {
    Tablet tablet;
    tablet.Says({X(10), Y(20), Tool(BTN_TOOL_PEN)});
    EXPECT_EQ(tablet.Says({X(11)}), (Records{Record(kPointer, 11, 20)}));
    EXPECT_EQ(tablet.Says({Pressure(100), Touch(true)}),
              (Records{Record(kDown, 11, 20, 0.1), Record(kDragged, 11, 20, 0.1)}));
    EXPECT_EQ(tablet.Says({X(12), Pressure(500)}), (Records{Record(kDragged, 12, 20, 0.5)}));
    EXPECT_EQ(tablet.Says({Pressure(1000)}), (Records{Record(kDragged, 12, 20, 1)}));
    EXPECT_EQ(tablet.Says({Pressure(0), Touch(false)}),
              (Records{Record(kUp, 12, 20, 0), Record(kPointer, 12, 20, 0)}));
    EXPECT_EQ(tablet.Says({X(13)}), (Records{Record(kPointer, 13, 20, 0)}));
    EXPECT_EQ(tablet.Says({Tool(BTN_TOOL_PEN, false)}),
              (Records{Record(kProximity, 13, 20, 0, kPen, 0)}));
}

TEST(PenStrokes, Report_WithoutAChange_IsNoEvent) {
    Tablet tablet;
    EXPECT_EQ(tablet.Says({}), Records());
    tablet.Says({X(10), Tool(BTN_TOOL_PEN)});
    EXPECT_EQ(tablet.Says({}), Records());
    EXPECT_EQ(tablet.Says({X(10), {EV_MSC, MSC_SERIAL, 7}, {EV_ABS, ABS_TILT_X, 9}}), Records());
}

TEST(PenStrokes, NothingIsSaidOfATabletWithoutATool) {
    Tablet tablet;
    EXPECT_EQ(tablet.Says({X(10), Y(10), Pressure(500)}), Records());
    EXPECT_EQ(tablet.Says({Touch(true)}), Records());
}

TEST(PenStrokes, ToolThatLeavesWhileItTouches_IsLiftedFirst) {
    Tablet tablet;
    tablet.Says({X(10), Tool(BTN_TOOL_PEN)});
    tablet.Says({Touch(true), Pressure(100)});
    tablet.Says({X(20), Pressure(300)});
    EXPECT_EQ(tablet.Says({Tool(BTN_TOOL_PEN, false)}),
              (Records{Record(kUp, 20, 0, 0), Record(kPointer, 20, 0, 0),
                       Record(kProximity, 20, 0, 0, kPen, 0)}));
}

TEST(PenStrokes, PressureThatWasTold_IsTakenBackBeforeTheToolLeaves) {
    Tablet tablet;
    tablet.Says({X(10), Tool(BTN_TOOL_PEN)});
    tablet.Says({Touch(true), Pressure(100)});
    tablet.Says({Touch(false), Pressure(50)});
    EXPECT_EQ(tablet.Says({Tool(BTN_TOOL_PEN, false)}),
              (Records{Record(kPointer, 10, 0, 0), Record(kProximity, 10, 0, 0, kPen, 0)}));
}

// Whoever reads the pressure from drags and pointer events would miss it otherwise.
TEST(PenStrokes, PressureThatChangesWithTheTouch_IsToldBehindIt) {
    Tablet tablet;
    tablet.Says({X(10), Tool(BTN_TOOL_PEN)});
    EXPECT_EQ(tablet.Says({Touch(true), Pressure(300)}),
              (Records{Record(kDown, 10, 0, 0.3), Record(kDragged, 10, 0, 0.3)}));
    EXPECT_EQ(tablet.Says({Touch(false), Pressure(0)}),
              (Records{Record(kUp, 10, 0, 0), Record(kPointer, 10, 0, 0)}));
    EXPECT_EQ(tablet.Says({{EV_ABS, ABS_DISTANCE, 5}}), Records());
}

TEST(PenStrokes, TouchThatLeavesThePressureAsItWasTold_IsOneEvent) {
    Tablet tablet;
    tablet.Says({X(10), Tool(BTN_TOOL_PEN)});
    tablet.Says({Pressure(20)});
    EXPECT_EQ(tablet.Says({Touch(true)}), (Records{Record(kDown, 10, 0, 0.02)}));
    EXPECT_EQ(tablet.Says({Touch(false)}), (Records{Record(kUp, 10, 0, 0.02)}));
}

TEST(PenStrokes, ToolThatComesTouching_IsNearAndDownWithItsPressure) {
    Tablet tablet;
    EXPECT_EQ(tablet.Says({X(10), Tool(BTN_TOOL_PEN), Touch(true), Pressure(200)}),
              (Records{Record(kProximity, 10, 0, 0.2), Record(kDown, 10, 0, 0.2),
                       Record(kDragged, 10, 0, 0.2)}));
}

TEST(PenStrokes, ToolThatIsTurnedRoundWhileItTouches_TellsThePressureOfBoth) {
    Tablet tablet;
    tablet.Says({X(10), Tool(BTN_TOOL_PEN), Touch(true), Pressure(200)});
    EXPECT_EQ(
        tablet.Says({Tool(BTN_TOOL_PEN, false), Tool(BTN_TOOL_RUBBER), Pressure(400)}),
        (Records{Record(kUp, 10, 0, 0), Record(kPointer, 10, 0, 0),
                 Record(kProximity, 10, 0, 0, kPen, 0), Record(kProximity, 10, 0, 0.4, kEraser),
                 Record(kDown, 10, 0, 0.4, kEraser), Record(kDragged, 10, 0, 0.4, kEraser)}));
}

TEST(PenStrokes, Tools_AreOfThreeTypes) {
    const struct {
        std::uint16_t code;
        std::int64_t type;
    } tools[] = {{BTN_TOOL_PEN, kPen},      {BTN_TOOL_BRUSH, kPen},     {BTN_TOOL_PENCIL, kPen},
                 {BTN_TOOL_AIRBRUSH, kPen}, {BTN_TOOL_RUBBER, kEraser}, {BTN_TOOL_MOUSE, kCursor},
                 {BTN_TOOL_LENS, kCursor}};
    for (const auto& tool : tools) {
        Tablet tablet;
        EXPECT_EQ(tablet.Says({Tool(tool.code)}),
                  (Records{Record(kProximity, 0, 0, 0, tool.type)}));
    }
    Tablet tablet;
    EXPECT_EQ(tablet.Says({Tool(BTN_TOOL_FINGER)}), Records());
}

TEST(PenStrokes, ToolThatIsTurnedRoundWithinAReport_LeavesAndComes) {
    Tablet tablet;
    tablet.Says({X(5), Tool(BTN_TOOL_PEN)});
    EXPECT_EQ(
        tablet.Says({Tool(BTN_TOOL_PEN, false), Tool(BTN_TOOL_RUBBER)}),
        (Records{Record(kProximity, 5, 0, 0, kPen, 0), Record(kProximity, 5, 0, 0, kEraser)}));
}

// Some devices say that the pen is there as long as its eraser is.
TEST(PenStrokes, EraserBesideAPen_IsTheEraser) {
    Tablet tablet;
    tablet.Says({Tool(BTN_TOOL_PEN)});
    EXPECT_EQ(
        tablet.Says({Tool(BTN_TOOL_RUBBER)}),
        (Records{Record(kProximity, 0, 0, 0, kPen, 0), Record(kProximity, 0, 0, 0, kEraser)}));
    EXPECT_EQ(
        tablet.Says({Tool(BTN_TOOL_RUBBER, false)}),
        (Records{Record(kProximity, 0, 0, 0, kEraser, 0), Record(kProximity, 0, 0, 0, kPen)}));
}

TEST(PenStrokes, CursorWithItsLeftButtonPressed_IsDown) {
    Tablet tablet;
    tablet.Says({X(5), Tool(BTN_TOOL_MOUSE)});
    EXPECT_EQ(tablet.Says({{EV_KEY, BTN_LEFT, 1}}), (Records{Record(kDown, 5, 0, 0, kCursor)}));
    EXPECT_EQ(tablet.Says({X(6)}), (Records{Record(kDragged, 6, 0, 0, kCursor)}));
    EXPECT_EQ(tablet.Says({{EV_KEY, BTN_LEFT, 0}}), (Records{Record(kUp, 6, 0, 0, kCursor)}));
    Tablet pen;
    pen.Says({Tool(BTN_TOOL_PEN)});
    EXPECT_EQ(pen.Says({{EV_KEY, BTN_LEFT, 1}}), Records());
}

TEST(PenStrokes, Positions_CoverTheScreenFromEdgeToEdge) {
    Tablet tablet(Model(), {1920, 1080});
    EXPECT_EQ(tablet.Says({Tool(BTN_TOOL_PEN)}), (Records{Record(kProximity, 0, 0)}));
    EXPECT_EQ(tablet.Says({X(100), Y(50)}), (Records{Record(kPointer, 1919, 1079)}));
    EXPECT_EQ(tablet.Says({X(50), Y(25)}), (Records{Record(kPointer, 959.5, 539.5)}));
}

TEST(PenStrokes, RangesThatDoNotBeginAtZero_AreTakenAsTheyAre) {
    driver::TabletModel model = Model();
    model.x = driver::Axis{-50, 50};
    model.pressure = driver::Axis{200, 1200};
    Tablet tablet(model);
    EXPECT_EQ(tablet.Says({X(-50), Pressure(200), Tool(BTN_TOOL_PEN)}),
              (Records{Record(kProximity, 0, 0, 0)}));
    EXPECT_EQ(tablet.Says({X(0), Pressure(700)}), (Records{Record(kPointer, 50, 0, 0.5)}));
}

TEST(PenStrokes, ValuesOutOfRange_AreTheNearestWithin) {
    Tablet tablet;
    EXPECT_EQ(tablet.Says({X(INT_MIN), Y(INT_MAX), Pressure(INT_MAX), Tool(BTN_TOOL_PEN)}),
              (Records{Record(kProximity, 0, 50, 1), Record(kPointer, 0, 50, 1)}));
    EXPECT_EQ(tablet.Says({X(INT_MAX), Y(INT_MIN), Pressure(INT_MIN)}),
              (Records{Record(kPointer, 100, 0, 0)}));
}

TEST(PenStrokes, AxisOfOneValue_IsItsBeginning) {
    driver::TabletModel model = Model();
    model.x = driver::Axis{7, 7};
    model.pressure = driver::Axis{INT_MIN, INT_MAX};
    Tablet tablet(model);
    EXPECT_EQ(tablet.Says({X(7), Pressure(INT_MAX), Tool(BTN_TOOL_PEN)}),
              (Records{Record(kProximity, 0, 0, 1), Record(kPointer, 0, 0, 1)}));
}

TEST(PenStrokes, TabletWithoutPressure_PressesFullyWhileItTouches) {
    driver::TabletModel model = Model();
    model.pressure.reset();
    Tablet tablet(model);
    EXPECT_EQ(tablet.Says({Tool(BTN_TOOL_PEN)}), (Records{Record(kProximity, 0, 0, 0)}));
    EXPECT_EQ(tablet.Says({Touch(true)}),
              (Records{Record(kDown, 0, 0, 1), Record(kDragged, 0, 0, 1)}));
    EXPECT_EQ(tablet.Says({Touch(false)}),
              (Records{Record(kUp, 0, 0, 0), Record(kPointer, 0, 0, 0)}));
}

TEST(PenStrokes, TabletWithoutATouchKey_TouchesWhileItPresses) {
    driver::TabletModel model = Model();
    model.hasTouch = false;
    Tablet tablet(model);
    tablet.Says({Tool(BTN_TOOL_PEN)});
    EXPECT_EQ(tablet.Says({Pressure(10)}),
              (Records{Record(kDown, 0, 0, 0.01), Record(kDragged, 0, 0, 0.01)}));
    EXPECT_EQ(tablet.Says({Pressure(0)}),
              (Records{Record(kUp, 0, 0, 0), Record(kPointer, 0, 0, 0)}));
}

TEST(PenStrokes, WhatWasDroppedInARecording_IsPassedOverToTheNextReport) {
    Tablet tablet;
    tablet.Says({X(10), Tool(BTN_TOOL_PEN)});
    EXPECT_EQ(tablet.Says({X(20), {EV_SYN, SYN_DROPPED, 0}, X(30), Touch(true)}), Records());
    EXPECT_EQ(tablet.Says({Y(1)}), (Records{Record(kPointer, 20, 1)}));
}

TEST(PenStrokes, DeviceThatGoes_TakesItsToolAway) {
    Tablet tablet;
    tablet.Says({X(10), Tool(BTN_TOOL_PEN)});
    tablet.Says({Touch(true), Pressure(100)});
    EXPECT_EQ(tablet.Leaves(), (Records{Record(kUp, 10, 0, 0), Record(kPointer, 10, 0, 0),
                                        Record(kProximity, 10, 0, 0, kPen, 0)}));
    EXPECT_EQ(tablet.Leaves(), Records());
}

}  // namespace
