#include <optional>

#include "load/Dialect.h"
#include "load/Measurements.h"
#include "support/Clock.h"

namespace {

constexpr int kWarmUp = 50;

}  // namespace

Figures MeasureConnecting(const Options& options) {
    const auto dialect = DialectFrom(options);
    const ProcessClock server(static_cast<pid_t>(options.Number("process")));
    for (int count = 0; count < kWarmUp; ++count) {
        dialect->AskOnce(Enter(*dialect));
    }
    std::vector<std::int64_t> samples;
    samples.reserve(1 << 16);

    const Deadline deadline(options.Number("milliseconds"));
    const std::int64_t cpuBefore = server.Read();
    while (!deadline.IsOver()) {
        const std::int64_t start = Now();
        const Connection connection = Enter(*dialect);
        dialect->AskOnce(connection);
        samples.push_back(Now() - start);
    }
    const auto cpu = static_cast<double>(server.Read() - cpuBefore);
    Figures figures = Summary(samples);
    figures["cpu"] = cpu / figures["count"];
    return figures;
}
