#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "load/Connection.h"
#include "load/KeyFile.h"
#include "load/Measurements.h"
#include "support/Clock.h"
#include "support/Failure.h"
#include "support/Processor.h"

namespace {

constexpr std::int64_t kMostMilliseconds = 10000;
constexpr useconds_t kPause = 20;

// Written by the child just before it becomes the server.
struct SharedTime {
    volatile std::int64_t atExec = 0;
};

// Standard output is where our figures go.
void BeSilent() {
    const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        dup2(nowhere, stream);
    }
}

class Child {
  public:
    Child(const std::vector<std::string>& command, int processor) : shared(MapShared()) {
        std::vector<char*> arguments;
        for (const std::string& word : command) {
            arguments.push_back(const_cast<char*>(word.c_str()));
        }
        arguments.push_back(nullptr);
        process = fork();
        if (process < 0) {
            FailWithErrno("fork");
        }
        if (process == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            StayOn(processor);
            BeSilent();
            shared->atExec = Now();
            execv(arguments[0], arguments.data());
            _exit(127);
        }
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    // Not SIGTERM: some servers lose it right after they have begun to listen.
    ~Child() {
        kill(process, SIGKILL);
        while (waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
        }
        munmap(shared, sizeof *shared);
    }

    std::int64_t TimeOfExec() const { return shared->atExec; }
    void FailIfEnded() const {
        siginfo_t information = {};
        if (waitid(P_PID, static_cast<id_t>(process), &information, WEXITED | WNOHANG | WNOWAIT) ==
                0 &&
            information.si_pid == process) {
            throw Failure("the server has ended by itself");
        }
    }

  private:
    static SharedTime* MapShared() {
        void* const page =
            mmap(nullptr, sizeof(SharedTime), PROT_READ | PROT_WRITE,
                 // cppcheck-suppress invalidFunctionArg ; what is anonymous has no file
                 MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (page == MAP_FAILED) {
            FailWithErrno("mmap");
        }
        return new (page) SharedTime;
    }

    SharedTime* shared;
    pid_t process;
};

bool AllListen(const std::string& keyFile) {
    const auto file = ReadKeyFile(keyFile);
    return file && IsListening(file->commandPort) && IsListening(file->pressurePort) &&
           IsListening(file->airAppsPort);
}

}  // namespace

Figures MeasureStart(const Options& options) {
    const bool isService = options.Has("key-file");
    const std::string keyFile = isService ? options.Text("key-file") : "";
    const int port = isService ? 0 : static_cast<int>(options.Number("port"));
    // One that an earlier service has left would tell of ports that are closed.
    if (isService) {
        unlink(keyFile.c_str());
    }
    const Child child(options.Command(), static_cast<int>(options.Number("server-cpu")));
    const Deadline deadline(kMostMilliseconds);
    while (!(isService ? AllListen(keyFile) : IsListening(port))) {
        child.FailIfEnded();
        if (deadline.IsOver()) {
            throw Failure("the server does not listen");
        }
        usleep(kPause);
    }
    return {{"start", static_cast<double>(Now() - child.TimeOfExec())}};
}
