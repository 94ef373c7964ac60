#include "apps/Pause.h"

#include <unistd.h>

#include <cstdio>

void Pause(unsigned seconds) {
    std::fflush(stdout);
    sleep(seconds);
}
