// Runs one measurement of what the service does by itself, and prints its figures as one line of
// JSON on standard error: standard output is the service's log.
//
//     bench-direct MEASUREMENT [--cpu CPU] --option value ...
//
// The measurements and their options are in Measurements.h.

#include <cstdio>
#include <string>

#include "direct/Measurements.h"
#include "support/Failure.h"
#include "support/Options.h"
#include "support/Processor.h"

namespace {

struct Row {
    const char* name;
    Figures (*measure)(const Options&);
};

constexpr Row kRows[] = {
    {"make-tree", MakeTree},
    {"remove", MeasureRemove},
    {"lookup", MeasureLookup},
    {"lookup-gio", MeasureLookupByGio},
};

Figures Measure(const std::string& name, const Options& options) {
    for (const Row& row : kRows) {
        if (name == row.name) {
            return row.measure(options);
        }
    }
    throw Failure("unknown measurement: " + name);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        if (argc < 2) {
            throw Failure("which measurement?");
        }
        const Options options(argc, argv, 2);
        if (options.Has("cpu")) {
            StayOn(static_cast<int>(options.Number("cpu")));
        }
        std::fprintf(stderr, "%s\n", AsJson(Measure(argv[1], options)).c_str());
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "bench-direct: %s\n", failure.what());
        return 1;
    }
}
