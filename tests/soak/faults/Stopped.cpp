// The service is stopped and goes on later.
#include <csignal>

#include "faults/Fault.h"

namespace {

class Stopped : public Fault {
  public:
    Stopped() : Fault("stopped and continued", false) {}

    void Begin(World& world, Random& /*random*/) override { world.service->Signal(SIGSTOP); }
    void End(World& world) override { world.service->Signal(SIGCONT); }
};

}  // namespace

std::unique_ptr<Fault> MakeStopped() {
    return std::make_unique<Stopped>();
}
