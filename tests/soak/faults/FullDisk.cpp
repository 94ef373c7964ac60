// Nothing more can be written anywhere: log, standard output, scripts, preferences, packages.
#include "faults/Fault.h"

namespace {

class FullDisk : public Fault {
  public:
    FullDisk() : Fault("disk full", true) {}

    void Begin(World& world, Random& /*random*/) override { world.disk.Fill(); }
    void End(World& world) override { world.disk.Free(); }
};

}  // namespace

std::unique_ptr<Fault> MakeFullDisk() {
    return std::make_unique<FullDisk>();
}
