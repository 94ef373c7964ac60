// The waits of what is tested, which need not take their time: this program's sleep() and
// nanosleep() stand in front of the system's.
//
// To be used in a child process (ForkedTest.h), for which it then lasts. One thread at a time.
#pragma once

#include <cstddef>
#include <functional>
#include <vector>

// From now on sleep(), and nanosleep() of whole seconds, return at once, and call DURING with how
// many sleeps there have been.
void SleepQuickly(std::function<void(std::size_t count)> during = {});

// How many seconds each of those sleeps would have taken.
const std::vector<unsigned>& Slept();
