#include "driver/Recording.h"

#include <linux/input-event-codes.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>

namespace driver {
namespace {

constexpr std::string_view kBlank = " \t\r";
constexpr int kDecimal = 10;
constexpr int kHexadecimal = 16;
// More seconds than any recording has, and few enough to count them in microseconds.
constexpr std::int64_t kMostSeconds = std::int64_t{1} << 40;
constexpr unsigned kMicroseconds = 1000000;

void SkipBlanks(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(kBlank), text.size()));
}

// Takes a number, which ends with a blank, a "." or the text, off the front of TEXT.
template <typename T>
bool TakeNumber(std::string_view& text, T& number, int base = kDecimal) {
    SkipBlanks(text);
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number, base);
    if (result.ec != std::errc()) return false;
    text.remove_prefix(static_cast<std::size_t>(result.ptr - text.data()));
    return text.empty() || text.front() == '.' || kBlank.find(text.front()) != kBlank.npos;
}

bool IsDone(std::string_view text) {
    return text.find_first_not_of(kBlank) == std::string_view::npos;
}

std::string_view WithoutComment(std::string_view text) {
    return text.substr(0, text.find('#'));
}

}  // namespace

std::optional<Event> ParseEvent(std::string_view line) {
    if (line.substr(0, 2) != "E:") return std::nullopt;
    std::string_view text = WithoutComment(line.substr(2));
    std::int64_t seconds = 0;
    unsigned microseconds = 0;
    Event event;
    if (!TakeNumber(text, seconds) || seconds < 0 || seconds > kMostSeconds || text.empty() ||
        text.front() != '.') {
        return std::nullopt;
    }
    text.remove_prefix(1);
    if (!TakeNumber(text, microseconds) || microseconds >= kMicroseconds ||
        !TakeNumber(text, event.type, kHexadecimal) ||
        !TakeNumber(text, event.code, kHexadecimal) || !TakeNumber(text, event.value) ||
        !IsDone(text)) {
        return std::nullopt;
    }
    event.microseconds = seconds * kMicroseconds + microseconds;
    return event;
}

Recording::Recording(const std::string& itsPath) : path(itsPath), file(itsPath) {
    if (!file) {
        problem = path + ": " + std::strerror(errno);
        return;
    }
    while (!hasEvent && ReadLine()) {
        hasEvent = line.compare(0, 2, "E:") == 0;
        if (!hasEvent && !ReadDescription(line)) {
            Fail("this is no description of a device");
            return;
        }
    }
    if (!model.IsTablet()) {
        problem = path + ": this device is no tablet: it has no pen, or no place on a plane";
    }
}

bool Recording::ReadLine() {
    ++lineNumber;
    return static_cast<bool>(std::getline(file, line));
}

void Recording::Fail(const std::string& what) {
    problem = path + ", line " + std::to_string(lineNumber) + ": " + what;
}

std::optional<Event> Recording::Next() {
    while (problem.empty() && (hasEvent || ReadLine())) {
        hasEvent = false;
        if (IsDone(WithoutComment(line))) continue;
        const std::optional<Event> event = ParseEvent(line);
        if (event) return event;
        Fail("this is no event");
    }
    return std::nullopt;
}

bool Recording::ReadDescription(std::string_view text) {
    if (text.size() < 2 || text[1] != ':') return IsDone(WithoutComment(text));
    const std::string_view rest = text.substr(2);
    switch (text[0]) {
        case 'N':
            model.name = rest.substr(std::min(rest.find_first_not_of(kBlank), rest.size()));
            return true;
        case 'I':
            return ReadIdentity(WithoutComment(rest));
        case 'B':
            return ReadCodes(WithoutComment(rest));
        case 'A':
            return ReadAxis(WithoutComment(rest));
        default:
            // Properties, lights and switches say nothing about a pen.
            return true;
    }
}

bool Recording::ReadIdentity(std::string_view text) {
    std::uint16_t bus = 0;
    std::uint16_t version = 0;
    return TakeNumber(text, bus, kHexadecimal) && TakeNumber(text, model.vendor, kHexadecimal) &&
           TakeNumber(text, model.product, kHexadecimal) &&
           TakeNumber(text, version, kHexadecimal) && IsDone(text);
}

bool Recording::ReadCodes(std::string_view text) {
    unsigned type = 0;
    if (!TakeNumber(text, type, kHexadecimal) || type > EV_MAX) return false;
    if (type != describedType) {
        describedType = type;
        describedCodes = 0;
    }
    while (!IsDone(text)) {
        std::uint8_t byte = 0;
        if (!TakeNumber(text, byte, kHexadecimal) || describedCodes > KEY_MAX) return false;
        for (unsigned bit = 0; bit < 8; ++bit) {
            if ((byte >> bit & 1) != 0) {
                NoteCode(type, describedCodes + bit);
            }
        }
        describedCodes += 8;
    }
    return true;
}

void Recording::NoteCode(unsigned type, unsigned code) {
    if (type != EV_KEY) return;
    switch (code) {
        case BTN_TOUCH:
            model.hasTouch = true;
            break;
        case BTN_TOOL_PEN:
            model.hasPen = true;
            break;
        case BTN_TOOL_RUBBER:
            model.hasEraser = true;
            break;
        case BTN_TOOL_MOUSE:
        case BTN_TOOL_LENS:
            model.hasCursor = true;
            break;
        default:
            break;
    }
}

bool Recording::ReadAxis(std::string_view text) {
    unsigned code = 0;
    Axis axis;
    std::int32_t fuzz = 0;
    std::int32_t flat = 0;
    std::int32_t resolution = 0;
    if (!TakeNumber(text, code, kHexadecimal) || !TakeNumber(text, axis.lowest) ||
        !TakeNumber(text, axis.highest) || !TakeNumber(text, fuzz) || !TakeNumber(text, flat) ||
        !(IsDone(text) || (TakeNumber(text, resolution) && IsDone(text)))) {
        return false;
    }
    switch (code) {
        case ABS_X:
            model.x = axis;
            break;
        case ABS_Y:
            model.y = axis;
            break;
        case ABS_PRESSURE:
            model.pressure = axis;
            break;
        default:
            break;
    }
    return true;
}

}  // namespace driver
