#include "direct/Memory.h"

#include <unistd.h>

#include <fstream>

#include "support/Failure.h"

double ResidentMemory() {
    std::ifstream file("/proc/self/statm");
    long size = 0;
    long resident = 0;
    if (!(file >> size >> resident)) {
        throw Failure("/proc tells no memory");
    }
    return static_cast<double>(resident * (sysconf(_SC_PAGESIZE) / 1024));
}
