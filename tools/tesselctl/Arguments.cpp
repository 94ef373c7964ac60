#include "tesselctl/Arguments.h"

namespace tesselctl {

bool Arguments::TakeFlag(std::string_view name) {
    if (AtEnd() || Peek() != name) return false;
    at++;
    return true;
}

bool Arguments::TakeOption(std::string_view name, std::optional<std::string>& value) {
    if (AtEnd()) return false;
    const std::string& argument = Peek();
    if (argument.compare(0, name.size(), name) != 0) return false;
    std::string joined = argument.substr(name.size());
    if (joined.empty()) {
        at++;
        value = AtEnd() ? std::optional<std::string>() : Take();
        return true;
    }
    const bool isLong = name.size() > 2;
    if (isLong && joined[0] != '=') return false;
    at++;
    value = isLong ? joined.substr(1) : joined;
    return true;
}

std::string Wrong(const std::string& what) {
    return what + " (see 'tesselctl --help')";
}

}  // namespace tesselctl
