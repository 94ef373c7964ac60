// Goes through a list of arguments from the first to the last; an option's value may follow it or
// be joined to it ("--home=DIR", "-n5").
//
// Owner: whoever takes a command line apart; the list must outlive it. Threads: one.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tesselctl {

class Arguments {
  public:
    explicit Arguments(const std::vector<std::string>& all) : arguments(all) {}

    bool AtEnd() const { return at == arguments.size(); }
    // Whether there is one that begins with a hyphen; a hyphen alone is none.
    bool AtOption() const { return !AtEnd() && Peek().size() > 1 && Peek()[0] == '-'; }
    const std::string& Peek() const { return arguments[at]; }
    std::string Take() { return arguments[at++]; }
    std::vector<std::string> Rest() const {
        return {arguments.begin() + static_cast<std::ptrdiff_t>(at), arguments.end()};
    }

    bool TakeFlag(std::string_view name);
    // Whether the option stands here; its value, if it has one, goes to `value`.
    bool TakeOption(std::string_view name, std::optional<std::string>& value);

  private:
    const std::vector<std::string>& arguments;
    std::size_t at = 0;
};

// What is wrong with a command line, for people: `what` and where to look.
std::string Wrong(const std::string& what);

}  // namespace tesselctl
