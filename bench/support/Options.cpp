#include "support/Options.h"

#include <cstdlib>

#include "support/Failure.h"

Options::Options(int argc, char** argv, int first) {
    int next = first;
    for (; next < argc && std::string(argv[next]) != "--"; next += 2) {
        const std::string name = argv[next];
        if (name.compare(0, 2, "--") != 0 || next + 1 == argc) {
            throw Failure("not an option with its value: " + name);
        }
        values[name.substr(2)] = argv[next + 1];
    }
    for (++next; next < argc; ++next) {
        command.emplace_back(argv[next]);
    }
}

bool Options::Has(const std::string& name) const {
    return values.count(name) != 0;
}

std::string Options::Text(const std::string& name) const {
    const auto found = values.find(name);
    if (found == values.end()) {
        throw Failure("missing: --" + name);
    }
    return found->second;
}

long Options::Number(const std::string& name) const {
    const std::string text = Text(name);
    char* end = nullptr;
    const long number = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0') {
        throw Failure("not a number: --" + name + " " + text);
    }
    return number;
}

long Options::Number(const std::string& name, long otherwise) const {
    return Has(name) ? Number(name) : otherwise;
}
