// Thousands of signals a second to every thread of the service, so that whatever it waits for is
// interrupted. Its handler does nothing (inside/ServiceShim.cpp).
#include <csignal>

#include "faults/Fault.h"
#include "support/ProgramRun.h"

namespace {

class Signals : public Fault {
  public:
    Signals() : Fault("signals in every system call", false) {}

    void Begin(World& world, Random& random) override {
        const std::string rate = std::to_string(random.Of(std::vector<int>{100, 1000, 5000}));
        const std::string time = std::to_string(random.Between(200, 2000));
        const ProgramRun run =
            RunProgram(world.sandbox, {"/SignalStorm", std::to_string(world.service->Pid()),
                                       std::to_string(SIGURG), rate, time});
        if (run.status != 0) {
            throw Failed("SignalStorm: " + run.errors);
        }
        world.tally.Count("signals sent", std::stoull(run.output));
    }
    std::chrono::milliseconds Time(Random& /*random*/) const override { return {}; }
    void End(World& /*world*/) override {}
};

}  // namespace

std::unique_ptr<Fault> MakeSignals() {
    return std::make_unique<Signals>();
}
