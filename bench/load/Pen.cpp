#include <vector>

#include "load/Measurements.h"
#include "load/PenStroke.h"
#include "support/Clock.h"
#include "support/Failure.h"

namespace {

constexpr std::size_t kWarmUp = 300;

}  // namespace

Figures MeasurePen(const Options& options) {
    const PenStroke stroke = PenStrokeFrom(options);
    const ProcessClock server(static_cast<pid_t>(options.Number("process")));
    PenPoster poster;
    const Connection client = ListenTo(poster, options);
    std::string bytes(64, '\0');
    std::size_t number = 0;
    const auto once = [&] {
        const penEvents::Record event = EventOf(stroke, number);
        const std::string expected = BytesOf(stroke, number);
        const std::int64_t posted = Now();
        poster.Post(event);
        client.Receive(&bytes[0], expected.size());
        const std::int64_t there = Now();
        if (bytes.compare(0, expected.size(), expected) != 0) {
            throw Failure("other pen data than was posted");
        }
        ++number;
        return there - posted;
    };
    while (number < kWarmUp) {
        once();
    }
    std::vector<std::int64_t> samples;
    samples.reserve(1 << 20);
    const std::int64_t cpuBefore = server.Read();
    for (const Deadline deadline(options.Number("milliseconds")); !deadline.IsOver();) {
        samples.push_back(once());
    }
    const auto cpu = static_cast<double>(server.Read() - cpuBefore);
    Figures figures = Summary(samples);
    figures["cpu"] = cpu / figures["count"];
    return figures;
}
