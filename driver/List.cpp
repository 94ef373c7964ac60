#include "driver/List.h"

#include <cstdio>

#include "driver/Tablet.h"

namespace driver {
namespace {

std::string Range(const std::optional<Axis>& axis) {
    return axis ? std::to_string(axis->lowest) + " to " + std::to_string(axis->highest) : "none";
}

std::string Tools(const TabletModel& model) {
    std::string tools = "pen";
    if (model.hasEraser) tools += ", eraser";
    if (model.hasCursor) tools += ", cursor";
    return tools;
}

std::string Identity(const TabletModel& model) {
    char text[16];
    std::snprintf(text, sizeof text, "%04x:%04x", model.vendor, model.product);
    return text;
}

}  // namespace

std::string Describe(const FoundTablet& tablet) {
    std::string text = tablet.node + "  " + tablet.name + "\n";
    int error = 0;
    const std::optional<TabletModel> model = ReadModel(tablet.node, error);
    if (!model) {
        return text + "    cannot be read: " + WhyUnreadable(tablet.node, error) + "\n";
    }
    text += "    model " + Identity(*model) + ", tools: " + Tools(*model) + "\n";
    text += "    x " + Range(model->x) + ", y " + Range(model->y) + ", pressure " +
            Range(model->pressure) + "\n";
    return text;
}

std::string ListOfTablets() {
    std::string text;
    for (const FoundTablet& tablet : FindTablets()) {
        text += Describe(tablet);
    }
    return text.empty() ? "There is no tablet.\n" : text;
}

}  // namespace driver
