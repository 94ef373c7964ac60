// Waiting for a condition with a deadline, and the one way in which the harness fails: an
// exception, which GoogleTest reports with its text as the failure of the test.
#pragma once

#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>

struct Failed : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// True when the service was built with a sanitizer: everything takes longer then.
constexpr bool kSanitized = sizeof(E2E_SANITIZERS) > 1;

// How long anything may take that ought to be quick. Generous, because the machine may be busy with
// other tests.
constexpr std::chrono::seconds kPatience{kSanitized ? 120 : 60};

class Deadline {
  public:
    explicit Deadline(std::chrono::milliseconds patience = kPatience)
        : end(std::chrono::steady_clock::now() + patience) {}

    bool Passed() const { return std::chrono::steady_clock::now() >= end; }

    // For poll(): at least 0.
    int Milliseconds() const {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            end - std::chrono::steady_clock::now());
        return left.count() < 0 ? 0 : static_cast<int>(left.count());
    }

  private:
    std::chrono::steady_clock::time_point end;
};

template <typename Condition>
void WaitUntil(const std::string& what, Condition condition,
               std::chrono::milliseconds patience = kPatience) {
    const Deadline deadline(patience);
    std::chrono::milliseconds pause{1};
    while (!condition()) {
        if (deadline.Passed()) {
            throw Failed("waited in vain until " + what);
        }
        std::this_thread::sleep_for(pause);
        if (pause < std::chrono::milliseconds(16)) {
            pause *= 2;
        }
    }
}
