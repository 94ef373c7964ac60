// Injects one fault after the other, all of them before one comes again.
#pragma once

#include <memory>
#include <vector>

#include "Worker.h"
#include "faults/Fault.h"

class Injector : public Worker {
  public:
    explicit Injector(World& itsWorld);

    // All of them have been injected at least once.
    bool HasInjectedAll() const { return rounds > 0; }

  private:
    void Step() override;
    void PartWithAll() override {}
    void Inject(Fault& fault);

    std::vector<std::unique_ptr<Fault>> faults;
    std::vector<Fault*> left;
    std::atomic<int> rounds{-1};
};
