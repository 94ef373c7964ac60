#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <functional>
#include <future>
#include <vector>

#include "load/Measurements.h"
#include "load/PenStroke.h"
#include "support/Clock.h"
#include "support/Failure.h"

namespace {

constexpr std::int64_t kSecond = 1000000000;
constexpr std::size_t kParts = 10;

double ResidentKilobytes(long process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/statm");
    long all = 0;
    long resident = 0;
    if (!(file >> all >> resident)) {
        throw Failure("the measured process is gone");
    }
    return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1024;
}

void SleepUntil(std::int64_t time) {
    const timespec until = {time / kSecond, time % kSecond};
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
    }
}

// Takes what comes, and holds it against what has to come; when each event was there.
std::vector<std::int64_t> TakeAll(const Connection& client, PenStroke stroke, std::size_t count) {
    std::vector<std::int64_t> times(count);
    std::string bytes(64, '\0');
    for (std::size_t number = 0; number < count; ++number) {
        const std::string expected = BytesOf(stroke, number);
        client.Receive(&bytes[0], expected.size());
        times[number] = Now();
        if (bytes.compare(0, expected.size(), expected) != 0) {
            throw Failure("event " + std::to_string(number) + " was lost, or something else came");
        }
    }
    return times;
}

}  // namespace

Figures MeasurePenSustained(const Options& options) {
    const PenStroke stroke = PenStrokeFrom(options);
    const long process = options.Number("process");
    const ProcessClock server(static_cast<pid_t>(process));
    const std::int64_t gap = kSecond / options.Number("rate");
    const auto count = static_cast<std::size_t>(options.Number("rate") * options.Number("seconds"));
    PenPoster poster;
    const Connection client = ListenTo(poster, options);
    // On a thread of its own, so that what comes late delays nothing.
    auto reader = std::async(std::launch::async, TakeAll, std::cref(client), stroke, count);

    Figures figures;
    std::vector<std::int64_t> samples(count);
    std::int64_t cpu = server.Read();
    const std::int64_t start = Now();
    for (std::size_t number = 0; number < count; ++number) {
        SleepUntil(start + static_cast<std::int64_t>(number) * gap);
        samples[number] = Now();
        poster.Post(EventOf(stroke, number));
        const std::size_t part = (number + 1) * kParts / count;
        if (part != number * kParts / count) {
            const std::string name = std::to_string(part - 1);
            const std::int64_t now = server.Read();
            figures["cpu" + name] =
                static_cast<double>(now - cpu) / (static_cast<double>(count) / kParts);
            figures["resident" + name] = ResidentKilobytes(process);
            cpu = now;
        }
    }
    const std::vector<std::int64_t> times = reader.get();
    for (std::size_t number = 0; number < count; ++number) {
        samples[number] = times[number] - samples[number];
    }
    const Figures summary = Summary(std::move(samples));
    figures.insert(summary.begin(), summary.end());
    return figures;
}
