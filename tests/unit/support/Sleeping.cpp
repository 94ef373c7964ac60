#include "unit/support/Sleeping.h"

#include <unistd.h>

#include <cerrno>
#include <ctime>

namespace {

struct Sleeping {
    bool isQuick = false;
    std::function<void(std::size_t)> during;
    std::vector<unsigned> slept;
};

Sleeping& TheSleeping() {
    static Sleeping& sleeping = *new Sleeping();
    return sleeping;
}

unsigned ReallySleep(unsigned seconds) {
    timespec left = {static_cast<time_t>(seconds), 0};
    if (nanosleep(&left, &left) == 0 || errno != EINTR) {
        return 0;
    }
    return static_cast<unsigned>(left.tv_sec);
}

}  // namespace

void SleepQuickly(std::function<void(std::size_t)> during) {
    TheSleeping().isQuick = true;
    TheSleeping().during = std::move(during);
}

const std::vector<unsigned>& Slept() {
    return TheSleeping().slept;
}

extern "C" unsigned sleep(unsigned seconds) {
    Sleeping& sleeping = TheSleeping();
    if (!sleeping.isQuick) {
        return ReallySleep(seconds);
    }
    sleeping.slept.push_back(seconds);
    if (sleeping.during) {
        sleeping.during(sleeping.slept.size());
    }
    return 0;
}
