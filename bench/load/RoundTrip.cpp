#include <algorithm>
#include <vector>

#include "load/Dialect.h"
#include "load/Measurements.h"
#include "load/Repeated.h"
#include "support/Clock.h"
#include "support/Failure.h"

namespace {

constexpr std::size_t kWarmUp = 300;

}  // namespace

Figures MeasureRoundTrip(const Options& options) {
    const auto dialect = DialectFrom(options);
    const ProcessClock server(static_cast<pid_t>(options.Number("process")));
    const auto clients = static_cast<std::size_t>(options.Number("clients", 1));
    std::vector<Connection> connections;
    std::size_t length = 0;
    // Each asks before the next one connects, so that no queue of unaccepted connections overflows.
    for (std::size_t count = 0; count < clients; ++count) {
        connections.push_back(Enter(*dialect));
        length = dialect->AskOnce(connections.back());
    }
    for (std::size_t count = 0; count < std::max(kWarmUp, clients); ++count) {
        dialect->AskOnce(connections[count % clients]);
    }
    const Repeated expected(dialect->Answer());
    std::string answer(length, '\0');
    std::vector<std::int64_t> samples;
    samples.reserve(1 << 20);

    const Deadline deadline(options.Number("milliseconds"));
    const std::int64_t cpuBefore = server.Read();
    std::int64_t now = Now();
    while (!deadline.IsOver(now)) {
        for (const Connection& connection : connections) {
            const std::int64_t sent = now;
            connection.Send(dialect->Request());
            connection.Receive(&answer[0], length);
            now = Now();
            samples.push_back(now - sent);
            if (!expected.Matches(0, answer.data(), length)) {
                throw Failure("a wrong answer");
            }
        }
    }
    const auto cpu = static_cast<double>(server.Read() - cpuBefore);
    Figures figures = Summary(samples);
    figures["cpu"] = cpu / figures["count"];
    return figures;
}
