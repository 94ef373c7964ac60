// The folders in the user's home may not be changed.
#include "faults/Fault.h"

namespace fs = std::filesystem;

namespace {

class ReadOnlyHome : public Fault {
  public:
    ReadOnlyHome() : Fault("home folder read-only", true) {}

    void Begin(World& world, Random& /*random*/) override {
        const fs::path home = world.sandbox.Outside(kUserHome);
        std::vector<fs::path> folders = {home};
        for (const fs::directory_entry& entry : fs::recursive_directory_iterator(home)) {
            if (entry.is_directory()) {
                folders.push_back(entry.path());
            }
        }
        for (const fs::path& folder : folders) {
            before.emplace_back(folder, fs::status(folder).permissions());
            fs::permissions(folder, fs::perms::all & ~fs::perms(0222) & before.back().second);
        }
    }
    void End(World& /*world*/) override {
        for (const auto& [folder, permissions] : before) {
            fs::permissions(folder, permissions);
        }
        before.clear();
    }

  private:
    std::vector<std::pair<fs::path, fs::perms>> before;
};

}  // namespace

std::unique_ptr<Fault> MakeReadOnlyHome() {
    return std::make_unique<ReadOnlyHome>();
}
