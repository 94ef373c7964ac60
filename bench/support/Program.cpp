#include "support/Program.h"

#include <exception>
#include <string>

#include "support/Failure.h"
#include "support/Processor.h"

namespace {

Figures Measure(int argc, char** argv, std::initializer_list<Measurement> measurements) {
    if (argc < 2) {
        throw Failure("which measurement?");
    }
    const Options options(argc, argv, 2);
    if (options.Has("cpu")) {
        StayOn(static_cast<int>(options.Number("cpu")));
    }
    const std::string name = argv[1];
    for (const Measurement& measurement : measurements) {
        if (name == measurement.name) {
            return measurement.measure(options);
        }
    }
    throw Failure("unknown measurement: " + name);
}

}  // namespace

int RunMeasurement(int argc, char** argv, std::initializer_list<Measurement> measurements,
                   std::FILE* output) {
    try {
        std::fprintf(output, "%s\n", AsJson(Measure(argc, argv, measurements)).c_str());
        return 0;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s: %s\n", argv[0], failure.what());
        return 1;
    }
}
