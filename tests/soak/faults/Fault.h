// A thing that goes wrong: it begins, holds for a while, and is taken back. The thread of the one
// who injects it is the only one. Throws Failed.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "World.h"

class Fault {
  public:
    Fault(std::string itsName, bool itDeprives) : name(std::move(itsName)), deprives(itDeprives) {}
    Fault(const Fault&) = delete;
    Fault& operator=(const Fault&) = delete;
    virtual ~Fault() = default;

    const std::string& Name() const { return name; }
    // The service may refuse what it needs that for.
    bool Deprives() const { return deprives; }

    virtual void Begin(World& world, Random& random) = 0;
    // How long it holds.
    virtual std::chrono::milliseconds Time(Random& random) const {
        return random.Milliseconds(100, 2000);
    }
    virtual void End(World& world) = 0;

  private:
    const std::string name;
    const bool deprives;
};

std::unique_ptr<Fault> MakeNoDescriptors();
std::unique_ptr<Fault> MakeFullDisk();
std::unique_ptr<Fault> MakeReadOnlyHome();
std::unique_ptr<Fault> MakeStopped();
std::unique_ptr<Fault> MakeClockSet();
std::unique_ptr<Fault> MakeSignals();
std::unique_ptr<Fault> MakeBrowser();
