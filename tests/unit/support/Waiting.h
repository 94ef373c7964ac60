// Waiting for a condition with a deadline. Generous, because the machine may be busy with other
// tests, and sanitizers take their time.
#pragma once

#include <chrono>
#include <thread>

constexpr std::chrono::seconds kPatience{20};
// Below the time after which the test runner ends a test.
constexpr std::chrono::seconds kLongestTest{100};

// False when CONDITION has not become true in time.
template <typename Condition>
bool WaitUntil(const Condition& condition, std::chrono::milliseconds patience = kPatience) {
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}
