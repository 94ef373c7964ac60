#include "loads/Half.h"

#include <algorithm>

namespace {

std::string Cut(Random& random, const std::string& whole) {
    return whole.substr(
        0, static_cast<std::size_t>(random.Between(1, static_cast<int>(whole.size()))));
}

}  // namespace

Half Half::OfChannelMessage(Random& random) {
    const std::string command = "sendDataToChannel";
    const std::string lastBlank = command + " nobody half ";
    const std::string text = Cut(random, lastBlank + "tag");
    if (text.size() < command.size()) {
        // No command at all, and those are answered kindly on this port.
        return {text, "Success ", true};
    }
    if (text.size() <= lastBlank.size()) {
        return {text, "SyntaxError Wrong number of arguments, expected: 3 - ", false};
    }
    return {text, "Success DataSentToChannelError=" + text.substr(lastBlank.size()), true};
}

Half Half::OfPressureCommand(Random& random) {
    const std::string command = "getDriverVersion";
    const std::string text = Cut(random, command + " for me");
    if (text.size() < command.size()) {
        return {text, "SyntaxError Unknown command", false};
    }
    return {text, "Success DriverVersion=", false};
}

bool Half::IsRightAnswer(const std::string& answer) const {
    return isWhole ? answer == beginning : answer.compare(0, beginning.size(), beginning) == 0;
}
