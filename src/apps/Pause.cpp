#include "apps/Pause.h"

#include <unistd.h>

#include "core/StandardOutput.h"

void Pause(unsigned seconds) {
    FlushStandardOutput();
    // NOLINTNEXTLINE(concurrency-mt-unsafe): an alarm is set only when the process ends
    sleep(seconds);
}
