#include "apps/Pause.h"

#include <chrono>
#include <cstdio>
#include <thread>

void Pause(unsigned seconds) {
    std::fflush(stdout);
    // Goes on after a signal, as sleep() would not.
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
}
