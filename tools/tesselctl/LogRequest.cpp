#include "tesselctl/LogRequest.h"

#include <cstdlib>

namespace tesselctl {
namespace {

std::optional<std::size_t> CountOf(const std::string& text) {
    if (text.empty() || text.size() > 9 ||
        text.find_first_not_of("0123456789") != std::string::npos)
        return std::nullopt;
    return std::strtoul(text.c_str(), nullptr, 10);
}

}  // namespace

std::string ParseLog(Arguments& arguments, LogRequest& log) {
    while (!arguments.AtEnd()) {
        std::optional<std::string> value;
        if (arguments.TakeFlag("-f") || arguments.TakeFlag("--follow")) {
            log.follow = true;
        } else if (arguments.TakeFlag("--enable")) {
            log.enable = true;
        } else if (arguments.TakeOption("-n", value) || arguments.TakeOption("--lines", value)) {
            const bool all = value && *value == "all";
            log.lines = value && !all ? CountOf(*value) : std::nullopt;
            if (!log.lines && !all) return Wrong("-n needs a number of lines or 'all'");
        } else {
            return Wrong("'log' does not take " + arguments.Peek());
        }
    }
    if (log.enable && log.follow)
        return Wrong("--enable only makes the file, it does not follow it");
    return {};
}

}  // namespace tesselctl
