#include "tesselctl/PenEvent.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

#include "tesselctl/Printable.h"

namespace tesselctl {
namespace {

struct Word {
    std::string_view message;
    PenWhat what;
    std::string_view word;
};

constexpr Word kWords[] = {
    {"PenData.PROXIMITY_IN", PenWhat::kProximity, "in"},
    {"PenData.PROXIMITY_OUT", PenWhat::kProximity, "out"},
    {"PenData.PROXIMITY_UNKNOWN", PenWhat::kProximity, "unknown"},
    {"PenData.USE_TIP", PenWhat::kTool, "pen"},
    {"PenData.USE_ERASER", PenWhat::kTool, "eraser"},
    {"PenData.USE_UNKNOWN", PenWhat::kTool, "unknown"},
};

struct Name {
    PenWhat what;
    char letter;  // before a position, else 0
    const char* name;
};

constexpr Name kNames[] = {
    {PenWhat::kPressure, 0, "pressure"},   {PenWhat::kDown, 'd', "down"},
    {PenWhat::kMove, 'm', "move"},         {PenWhat::kUp, 'u', "up"},
    {PenWhat::kProximity, 0, "proximity"}, {PenWhat::kTool, 0, "tool"},
    {PenWhat::kOther, 0, "message"},
};

const char* NameOf(PenWhat what) {
    for (const Name& name : kNames)
        if (name.what == what) return name.name;
    return "";
}

// The number at the beginning, which it takes away.
bool TakeNumber(std::string_view& text, int& number) {
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    if (result.ec != std::errc()) return false;
    text.remove_prefix(static_cast<std::size_t>(result.ptr - text.data()));
    return true;
}

bool ReadPosition(std::string_view message, PenEvent& event) {
    for (const Name& name : kNames)
        if (name.letter != 0 && !message.empty() && message[0] == name.letter)
            event.what = name.what;
    if (event.what == PenWhat::kOther) return false;
    message.remove_prefix(1);
    if (!TakeNumber(message, event.x) || message.empty() || message[0] != '_') return false;
    message.remove_prefix(1);
    return TakeNumber(message, event.y) && message.empty();
}

bool ReadPressure(std::string_view message, PenEvent& event) {
    constexpr std::size_t kDigits = 4;
    event.what = PenWhat::kPressure;
    return message.size() == kDigits && message[0] != '-' && TakeNumber(message, event.pressure) &&
           message.empty();
}

// "12.000345"
std::string Seconds(long long microseconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%lld.%06lld", microseconds / 1000000, microseconds % 1000000);
    return text;
}

}  // namespace

PenEvent ReadPenEvent(std::string_view message) {
    for (const Word& word : kWords)
        if (message == word.message) return {word.what, 0, 0, 0, std::string(word.word)};
    PenEvent event;
    if (ReadPosition(message, event)) return event;
    event = {};
    if (ReadPressure(message, event)) return event;
    return {PenWhat::kOther, 0, 0, 0, std::string(message)};
}

std::string PenLine(const PenEvent& event) {
    const std::string name = NameOf(event.what);
    switch (event.what) {
        case PenWhat::kPressure:
            return name + ' ' + std::to_string(event.pressure);
        case PenWhat::kDown:
        case PenWhat::kMove:
        case PenWhat::kUp:
            return name + ' ' + std::to_string(event.x) + ' ' + std::to_string(event.y);
        case PenWhat::kProximity:
        case PenWhat::kTool:
        case PenWhat::kOther:
            break;
    }
    return name + ' ' + Printable(event.word);
}

std::string PenJson(const PenEvent& event, long long time) {
    const std::string name = NameOf(event.what);
    std::string object = "{\"time\":" + Seconds(time) + ",\"event\":\"" + name + "\",";
    switch (event.what) {
        case PenWhat::kPressure:
            return object + "\"pressure\":" + std::to_string(event.pressure) + '}';
        case PenWhat::kDown:
        case PenWhat::kMove:
        case PenWhat::kUp:
            return object + "\"x\":" + std::to_string(event.x) +
                   ",\"y\":" + std::to_string(event.y) + '}';
        case PenWhat::kProximity:
        case PenWhat::kTool:
        case PenWhat::kOther:
            break;
    }
    return object + '"' + name + "\":" + JsonString(event.word) + '}';
}

}  // namespace tesselctl
