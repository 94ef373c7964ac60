#include "tesselctl/Signals.h"

#include <cerrno>

namespace tesselctl {
namespace {

constexpr std::array<int, 5> kSignals = {SIGINT, SIGTERM, SIGHUP, SIGWINCH, SIGCONT};

volatile sig_atomic_t handlerPipe = -1;

void Forward(int signal) {
    const int saved = errno;
    const auto byte = static_cast<unsigned char>(signal);
    // A full pipe holds enough signals already.
    if (write(handlerPipe, &byte, 1) == -1) errno = saved;
    errno = saved;
}

void Prepare(int fd) {
    fcntl(fd, F_SETFD, FD_CLOEXEC);
    fcntl(fd, F_SETFL, O_NONBLOCK);
}

}  // namespace

Signals::Signals() {
    int ends[2];
    if (pipe(ends) == -1) return;
    readEnd = Descriptor(ends[0]);
    writeEnd = Descriptor(ends[1]);
    Prepare(ends[0]);
    Prepare(ends[1]);
    handlerPipe = ends[1];
    struct sigaction action {};
    action.sa_handler = Forward;
    action.sa_flags = SA_RESTART;
    for (std::size_t i = 0; i < kSignals.size(); i++) {
        sigaction(kSignals[i], &action, &former[i]);
        // Whoever runs it with "nohup" wants it to go on.
        if (kSignals[i] == SIGHUP && former[i].sa_handler == SIG_IGN)
            sigaction(kSignals[i], &former[i], nullptr);
    }
}

Signals::~Signals() {
    if (!readEnd.Valid()) return;
    for (std::size_t i = 0; i < kSignals.size(); i++) {
        // Who ends a whole group of processes often signals twice; the second signal may find the
        // program on its way out.
        if (hasBeenTold && former[i].sa_handler == SIG_DFL) former[i].sa_handler = SIG_IGN;
        sigaction(kSignals[i], &former[i], nullptr);
    }
    handlerPipe = -1;
}

std::optional<int> Signals::Take() {
    unsigned char byte = 0;
    if (!readEnd.Valid() || read(readEnd.Get(), &byte, 1) != 1) return std::nullopt;
    if (byte != SIGWINCH && byte != SIGCONT) hasBeenTold = true;
    return byte;
}

}  // namespace tesselctl
