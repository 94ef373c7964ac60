// Recorded tablets: an event line is read as it stands or refused, and a pen that is drawn from one
// does nothing that no pen can do.
//
// An input is a recording.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Require.h"
#include "Surroundings.h"
#include "driver/Pen.h"
#include "driver/Recording.h"

namespace {

constexpr driver::Screen kScreen = {1920, 1080};

bool IsBlank(char character) {
    return character == ' ' || character == '\t' || character == '\r';
}

// No field can be this: it has a blank.
constexpr char kPoint[] = "the point";

// The fields of an event line: its numbers as they are written. The point right behind the first
// one is a field of its own.
std::vector<std::string> FieldsOf(std::string_view line) {
    std::vector<std::string> fields;
    bool isOpen = false;
    for (const char character : line.substr(2, line.find('#') - 2)) {
        if (character == '.' && isOpen && fields.size() == 1) {
            fields.emplace_back(kPoint);
            isOpen = false;
        } else if (IsBlank(character)) {
            isOpen = false;
        } else {
            if (!isOpen) fields.emplace_back();
            isOpen = true;
            fields.back() += character;
        }
    }
    return fields;
}

// Whether FIELD is a number within the two, without anything around it.
bool IsNumber(std::string field, int base, long long lowest, long long highest) {
    const bool isNegative = field[0] == '-' && lowest < 0;
    if (isNegative) field.erase(0, 1);
    const char* const digits = base == 10 ? "0123456789" : "0123456789abcdefABCDEF";
    if (field.empty() || field.find_first_not_of(digits) != field.npos) return false;
    field.erase(0, std::min(field.find_first_not_of('0'), field.size() - 1));
    if (field.size() > 15) return false;
    const long long number = (isNegative ? -1 : 1) * std::stoll(field, nullptr, base);
    return number >= lowest && number <= highest;
}

// 0 may be written with a sign.
std::string WithoutSignOfNothing(const std::string& field) {
    const bool isNothing = field.size() > 1 && field.find_first_not_of('0', 1) == field.npos;
    return field[0] == '-' && isNothing ? field.substr(1) : field;
}

// What the rules say of a line that begins with "E:".
bool IsEvent(std::string_view line) {
    const std::vector<std::string> fields = FieldsOf(line);
    return fields.size() == 6 && fields[1] == kPoint &&
           IsNumber(WithoutSignOfNothing(fields[0]), 10, 0, 1LL << 40) &&
           IsNumber(fields[2], 10, 0, 999999) && IsNumber(fields[3], 16, 0, 0xFFFF) &&
           IsNumber(fields[4], 16, 0, 0xFFFF) && IsNumber(fields[5], 10, INT32_MIN, INT32_MAX);
}

std::string LineOf(const driver::Event& event) {
    char line[80];
    std::snprintf(line, sizeof line, "E: %lld.%06d %04x %04x %d",
                  static_cast<long long>(event.microseconds / 1000000),
                  static_cast<int>(event.microseconds % 1000000), event.type, event.code,
                  event.value);
    return line;
}

bool AreEqual(const driver::Event& one, const driver::Event& other) {
    return one.microseconds == other.microseconds && one.type == other.type &&
           one.code == other.code && one.value == other.value;
}

void LookAtLine(std::string_view line) {
    const std::optional<driver::Event> event = driver::ParseEvent(line);
    if (line.substr(0, 2) != "E:") {
        Require(!event, "an event begins with its letter");
        return;
    }
    if (event) {
        const std::optional<driver::Event> again = driver::ParseEvent(LineOf(*event));
        Require(again && AreEqual(*again, *event), "an event is read as it was written");
    }
    Require(event.has_value() == IsEvent(line), "an event is all its numbers and nothing else");
}

// Watches what the driver tells of a pen.
class Watcher {
  public:
    void Watch(const driver::PenEvents& events) {
        for (const penEvents::Record& record : events) {
            Watch(record);
        }
    }
    bool IsAtRest() const { return tool == 0 && !isDown && pressure == 0; }

  private:
    void Watch(const penEvents::Record& record) {
        Require(record.version == penEvents::kVersion, "a record has the version");
        Require(record.x >= 0 && record.x <= kScreen.width - 1 && record.y >= 0 &&
                    record.y <= kScreen.height - 1,
                "a pen is on the screen");
        Require(record.pressure >= 0 && record.pressure <= 1, "a pressure is between 0 and 1");
        Require(record.pointerType >= penEvents::kPen && record.pointerType <= penEvents::kEraser,
                "a tool is one of the three");
        if (record.type == penEvents::kProximity) {
            Require((record.enterProximity == 1) == (tool == 0), "a tool comes and goes in turns");
            Require(!isDown, "a tool is lifted before it goes");
            Require(tool == 0 || (record.pointerType == tool && pressure == 0),
                    "it goes without a pressure");
            tool = record.enterProximity == 1 ? record.pointerType : 0;
            return;
        }
        Require(tool != 0 && record.pointerType == tool && record.enterProximity == 1,
                "only a tool that is near does anything");
        switch (record.type) {
            case penEvents::kDown:
                Require(!isDown, "what is down does not come down");
                isDown = true;
                break;
            case penEvents::kUp:
                Require(isDown, "what is up is not lifted");
                isDown = false;
                break;
            case penEvents::kDragged:
                Require(isDown, "only what touches is dragged");
                pressure = record.pressure;
                break;
            case penEvents::kPointer:
                Require(!isDown, "only what does not touch hovers");
                pressure = record.pressure;
                break;
            default:
                Require(false, "an event is one of the five");
        }
    }

    std::int64_t tool = 0;
    bool isDown = false;
    // That was told last.
    double pressure = 0;
};

std::size_t LinesOf(std::string_view text) {
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 1;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Surroundings::File& file = *new Surroundings::File("recording.evemu");
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    for (std::size_t from = 0; from < text.size();) {
        const std::size_t end = std::min(text.find('\n', from), text.size());
        LookAtLine(text.substr(from, end - from));
        from = end + 1;
    }

    file.Hold(text);
    driver::Recording recording(file.Path());
    const bool isTablet = recording.Problem().empty();
    Require(!isTablet || recording.Model().IsTablet(), "what can be played is a tablet");
    driver::Pen pen(recording.Model(), kScreen);
    Watcher watcher;
    std::size_t events = 0;
    while (const std::optional<driver::Event> event = recording.Next()) {
        ++events;
        watcher.Watch(pen.Take(*event));
    }
    Require(isTablet || events == 0, "what is no tablet is not played");
    Require(events <= LinesOf(text), "an event has a line");
    Require(!recording.Next(), "the end is the end");
    watcher.Watch(pen.Leave());
    Require(watcher.IsAtRest(), "a pen that has left has left");
    return 0;
}
