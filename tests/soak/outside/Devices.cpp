#include "outside/Devices.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>

#include "support/Waiting.h"

Devices::Devices() {
    int to[2];
    int from[2];
    if (pipe2(to, O_CLOEXEC) != 0 || pipe2(from, O_CLOEXEC) != 0) {
        throw Failed("no pipes");
    }
    plugger = fork();
    if (plugger == -1) {
        throw Failed("fork");
    }
    if (plugger == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(to[0], STDIN_FILENO);
        dup2(from[1], STDOUT_FILENO);
        setenv("LD_PRELOAD", "libumockdev-preload.so.0", 1);
        execl(SOAK_PLUGGER, SOAK_PLUGGER, static_cast<char*>(nullptr));
        _exit(127);
    }
    ::close(to[0]);
    ::close(from[1]);
    toPlugger = Descriptor(to[1]);
    fromPlugger = Descriptor(from[0]);
    folder = ReadLine();
}

Devices::~Devices() {
    toPlugger.Close();
    waitpid(plugger, nullptr, 0);
}

std::string Devices::ReadLine() {
    std::string line;
    for (;;) {
        char letter = 0;
        const ssize_t count = read(fromPlugger.Get(), &letter, 1);
        if (count == 1 && letter == '\n') {
            return line;
        }
        if (count == 1) {
            line += letter;
        } else if (count == 0 || errno != EINTR) {
            throw Failed("the program that plugs devices has ended");
        }
    }
}

void Devices::Tell(const std::string& line) {
    if (write(toPlugger.Get(), line.data(), line.size()) != static_cast<ssize_t>(line.size()) ||
        ReadLine() != "done") {
        throw Failed("the program that plugs devices does not obey");
    }
}

void Devices::Plug(const std::string& name, const std::string& vendor, const std::string& product) {
    Tell("plug " + name + " " + vendor + " " + product + "\n");
}

void Devices::Unplug(const std::string& name) {
    Tell("unplug " + name + "\n");
}
