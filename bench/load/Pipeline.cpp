#include "load/Dialect.h"
#include "load/Measurements.h"
#include "load/Repeated.h"
#include "support/Clock.h"
#include "support/Failure.h"

namespace {

constexpr std::size_t kRoom = 65536;
constexpr std::int64_t kWarmUpMilliseconds = 20;

// Keeps a connection full of requests. Blocking calls suffice: a window is less than what the
// system takes without anybody reading.
class Pipeline {
  public:
    Pipeline(const Dialect& dialect, std::size_t most)
        : connection(Enter(dialect)),
          window(most),
          requestLength(dialect.Request().size()),
          answerLength(dialect.AskOnce(connection)),
          expected(dialect.Answer()),
          bytes(kRoom, '\0') {
        for (std::size_t count = 0; count < window; ++count) {
            requests += dialect.Request();
        }
    }

    std::size_t Answered() const { return received / answerLength; }

    // Sends when half of the window is free, takes what has come.
    void Step() {
        const std::size_t outstanding = asked - Answered();
        if (outstanding <= window / 2) {
            connection.Send(requests.data(), (window - outstanding) * requestLength);
            asked += window - outstanding;
        }
        Take();
    }

    void Finish() {
        while (Answered() < asked) {
            Take();
        }
    }

  private:
    void Take() {
        const std::size_t length = connection.ReceiveSome(&bytes[0], bytes.size());
        if (!expected.Matches(received, bytes.data(), length)) {
            throw Failure("a wrong answer");
        }
        received += length;
    }

    const Connection connection;
    const std::size_t window;
    const std::size_t requestLength;
    const std::size_t answerLength;
    const Repeated expected;
    std::string requests;
    std::string bytes;
    std::size_t asked = 0;
    std::size_t received = 0;
};

}  // namespace

Figures MeasurePipeline(const Options& options) {
    const auto dialect = DialectFrom(options);
    const ProcessClock server(static_cast<pid_t>(options.Number("process")));
    Pipeline pipeline(*dialect, static_cast<std::size_t>(options.Number("window")));
    for (const Deadline warmUp(kWarmUpMilliseconds); !warmUp.IsOver();) {
        pipeline.Step();
    }

    const std::size_t answeredBefore = pipeline.Answered();
    const std::int64_t cpuBefore = server.Read();
    const std::int64_t start = Now();
    for (const Deadline deadline(options.Number("milliseconds")); !deadline.IsOver();) {
        pipeline.Step();
    }
    const std::int64_t end = Now();
    const auto cpu = static_cast<double>(server.Read() - cpuBefore);
    const auto answered = static_cast<double>(pipeline.Answered() - answeredBefore);
    pipeline.Finish();
    return {{"count", answered},
            {"rate", answered / static_cast<double>(end - start) * 1e9},
            {"cpu", cpu / answered}};
}
