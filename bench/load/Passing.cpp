#include <vector>

#include "load/Measurements.h"
#include "load/Relay.h"
#include "support/Clock.h"
#include "support/Failure.h"

namespace {

constexpr int kWarmUp = 200;

class Passing {
  public:
    Passing(Relay& itsRelay, std::size_t count) : relay(itsRelay) {
        for (std::size_t number = 0; number < count; ++number) {
            receivers.emplace_back(relay.Port());
            relay.GreetReceiver(receivers.back());
        }
        sender.emplace_back(relay.Port());
        relay.GreetSender(sender.back(), receivers);
        room.resize(relay.Forwarded().size() + relay.Answer().size());
    }

    // From before the send until the last receiver has it all.
    std::int64_t Once() {
        const std::int64_t sent = Now();
        sender.back().Send(relay.Request());
        for (const Connection& receiver : receivers) {
            Take(receiver, relay.Forwarded());
        }
        const std::int64_t there = Now();
        Take(sender.back(), relay.Answer());
        return there - sent;
    }

  private:
    void Take(const Connection& connection, const std::string& expected) {
        connection.Receive(&room[0], expected.size());
        if (room.compare(0, expected.size(), expected) != 0) {
            throw Failure("something else was passed on");
        }
    }

    Relay& relay;
    std::vector<Connection> receivers;
    std::vector<Connection> sender;
    std::string room;
};

}  // namespace

Figures MeasurePassing(const Options& options) {
    const auto relay = RelayFrom(options);
    const ProcessClock server(static_cast<pid_t>(options.Number("process")));
    Passing passing(*relay, static_cast<std::size_t>(options.Number("receivers", 1)));
    for (int count = 0; count < kWarmUp; ++count) {
        passing.Once();
    }
    std::vector<std::int64_t> samples;
    samples.reserve(1 << 20);
    const std::int64_t cpuBefore = server.Read();
    for (const Deadline deadline(options.Number("milliseconds")); !deadline.IsOver();) {
        samples.push_back(passing.Once());
    }
    const auto cpu = static_cast<double>(server.Read() - cpuBefore);
    Figures figures = Summary(samples);
    figures["cpu"] = cpu / figures["count"];
    return figures;
}
