// The service may open so few files more that it runs out of descriptors, or none.
#include "faults/Fault.h"
#include "support/ProgramRun.h"

namespace {

class NoDescriptors : public Fault {
  public:
    NoDescriptors() : Fault("descriptors exhausted", true) {}

    void Begin(World& world, Random& random) override {
        const auto more = static_cast<std::size_t>(random.Between(0, 3));
        SetLimit(world, std::to_string(world.service->OpenDescriptors() + more));
    }
    void End(World& world) override { SetLimit(world, "1024"); }

  private:
    // The soft limit, so that it can be given back.
    static void SetLimit(World& world, const std::string& limit) {
        const ProgramRun run = RunProgram(
            world.sandbox, {"/usr/bin/prlimit", "--pid", std::to_string(world.service->Pid()),
                            "--nofile=" + limit + ":"});
        if (run.status != 0) {
            throw Failed("prlimit: " + run.errors);
        }
    }
};

}  // namespace

std::unique_ptr<Fault> MakeNoDescriptors() {
    return std::make_unique<NoDescriptors>();
}
