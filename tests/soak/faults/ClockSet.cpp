// The clock is set, forward or back, by seconds or by years, and set right again. The service is
// told another time of day than the machine's (inside/ServiceShim.cpp): its clock alone goes wrong.
#include "faults/Fault.h"

namespace {

class ClockSet : public Fault {
  public:
    ClockSet() : Fault("clock set", false) {}

    void Begin(World& world, Random& random) override {
        constexpr std::int64_t kHour = 3600;
        world.SetClock(
            random.Of(std::vector<std::int64_t>{1, -1, kHour, -kHour, 24 * kHour, -24 * kHour,
                                                20 * 365 * 24 * kHour, -20 * 365 * 24 * kHour}));
    }
    void End(World& world) override { world.SetClock(0); }
};

}  // namespace

std::unique_ptr<Fault> MakeClockSet() {
    return std::make_unique<ClockSet>();
}
