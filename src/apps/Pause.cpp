#include "apps/Pause.h"

#include <chrono>
#include <thread>

#include "core/StandardOutput.h"

void Pause(unsigned seconds) {
    FlushStandardOutput();
    // Goes on after a signal, as sleep() would not.
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
}
