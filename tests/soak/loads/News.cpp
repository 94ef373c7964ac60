#include "loads/News.h"

#include "support/Waiting.h"

namespace {

std::string Text(News::What what, const std::string& name) {
    return "that " + name + (what == News::What::kRegistered ? " has registered" : " has gone");
}

}  // namespace

void News::Told(What what, const std::string& name) {
    if (expected.erase({what, name}) == 0 && allowed.erase({what, name}) == 0) {
        throw Failed("was told twice, or without reason, " + Text(what, name));
    }
}

void News::NothingIsOverdue(const std::string& reader, std::chrono::seconds patience) const {
    const auto latest = std::chrono::steady_clock::now() - patience;
    for (const auto& [key, time] : expected) {
        if (time < latest) {
            throw Failed(reader + " was not told " + Text(key.first, key.second));
        }
    }
}
