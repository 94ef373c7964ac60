#include "core/Pause.h"

#include <cerrno>
#include <ctime>

#include "core/StandardOutput.h"

void Pause(unsigned seconds) {
    FlushStandardOutput();
    timespec left = {static_cast<time_t>(seconds), 0};
    // Goes on after a signal, as sleep() would not.
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}
