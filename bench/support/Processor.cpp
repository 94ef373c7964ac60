#include "support/Processor.h"

#include <sched.h>

#include "support/Failure.h"

void StayOn(int processor) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(static_cast<unsigned>(processor), &set);
    if (sched_setaffinity(0, sizeof set, &set) != 0) {
        FailWithErrno("sched_setaffinity");
    }
}
