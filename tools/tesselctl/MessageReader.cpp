#include "tesselctl/MessageReader.h"

#include <algorithm>

namespace tesselctl {
namespace {

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// The length of a number with an optional minus sign at the beginning of the text, or 0. No
// position has more than ten digits.
std::size_t NumberLength(std::string_view text) {
    const std::size_t sign = !text.empty() && text[0] == '-' ? 1 : 0;
    std::size_t end = sign;
    while (end < text.size() && end < sign + 10 && IsDigit(text[end]))
        end++;
    return end > sign ? end : 0;
}

// The length of pen data without its last byte at the beginning of the text, or 0 when it is none
// or not whole yet.
std::size_t PenDataLength(std::string_view text) {
    if (text.size() >= 5 && text[4] == '\0' && std::all_of(text.begin(), text.begin() + 4, IsDigit))
        return 4;
    constexpr std::string_view kPenEvents = "dmu";
    if (text.empty() || kPenEvents.find(text[0]) == std::string_view::npos) return 0;
    const std::size_t x = NumberLength(text.substr(1));
    if (x == 0 || text.size() <= 1 + x || text[1 + x] != '_') return 0;
    const std::size_t y = NumberLength(text.substr(2 + x));
    const std::size_t end = 2 + x + y;
    return y > 0 && end < text.size() && text[end] == ' ' ? end : 0;
}

}  // namespace

Message MessageReader::Take(bool framed, std::size_t length) {
    Message message{framed, pending.substr(start, length)};
    start += length + 1;
    searched = start;
    if (start == pending.size()) {
        pending.clear();
        start = searched = 0;
    }
    return message;
}

std::optional<Message> MessageReader::Next() {
    const std::size_t penData = PenDataLength(Pending());
    if (penData > 0) return Take(false, penData);
    const std::size_t bar = pending.find('|', searched);
    if (bar != std::string::npos) return Take(true, bar - start);
    searched = pending.size();
    // What has been handed out goes only now, so that many messages in one piece cost one move.
    pending.erase(0, start);
    searched -= start;
    start = 0;
    return std::nullopt;
}

std::string MessageReader::TakeBytes() {
    std::string bytes = pending.substr(start);
    pending.clear();
    start = searched = 0;
    return bytes;
}

}  // namespace tesselctl
