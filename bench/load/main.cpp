// Runs one measurement and prints its figures as one line of JSON.
//
//     bench-load MEASUREMENT [--cpu CPU] --option value ... [-- COMMAND ...]
//
// The measurements and their options are in Measurements.h and Dialect.h.

#include <cstdio>
#include <string>

#include "load/Measurements.h"
#include "support/Failure.h"
#include "support/Limits.h"
#include "support/Options.h"
#include "support/Processor.h"

namespace {

struct Row {
    const char* name;
    Figures (*measure)(const Options&);
};

constexpr Row kRows[] = {
    {"round-trip", MeasureRoundTrip},
    {"connecting", MeasureConnecting},
    {"pipeline", MeasurePipeline},
    {"passing", MeasurePassing},
    {"pen", MeasurePen},
    {"pen-sustained", MeasurePenSustained},
    {"start", MeasureStart},
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
        AllowManyDescriptors();
        std::puts(AsJson(Measure(argv[1], options)).c_str());
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "bench-load: %s\n", failure.what());
        return 1;
    }
}
