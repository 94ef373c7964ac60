// The command-line client in a sandbox while it runs, for the commands that go on until they are
// stopped. It is killed if the test does not end it. Throws Failed.
#pragma once

#include <fcntl.h>
#include <sys/wait.h>

#include <csignal>
#include <string>
#include <vector>

#include "support/Files.h"
#include "support/ProgramRun.h"
#include "support/Sandbox.h"
#include "support/Waiting.h"

class RunningClient {
  public:
    RunningClient(Sandbox& itsSandbox, std::vector<std::string> arguments)
        : sandbox(itsSandbox), name("client-" + arguments.at(0)) {
        const Descriptor in(open("/dev/null", O_RDONLY | O_CLOEXEC));
        const Descriptor out = Create(OutputFile());
        const Descriptor err = Create(ErrorsFile());
        Program program;
        program.path = kClientFile;
        program.arguments = std::move(arguments);
        program.arguments.insert(program.arguments.begin(), kClientFile);
        program.environment = {{"HOME", kUserHome}, {"PATH", "/usr/bin:/bin"}, {"TERM", "dumb"}};
        program.workingFolder = kUserHome;
        pid = sandbox.Start(program, in.Get(), out.Get(), err.Get());
    }
    ~RunningClient() {
        try {
            if (pid != -1) {
                sandbox.Kill(pid, SIGKILL);
            }
        } catch (const Failed&) {
            // It has gone with the sandbox.
        }
    }
    RunningClient(const RunningClient&) = delete;
    RunningClient& operator=(const RunningClient&) = delete;

    std::string Output() const { return ReadFile(OutputFile()); }
    std::string Errors() const { return ReadFile(ErrorsFile()); }
    void WaitForOutput(const std::string& text) const {
        WaitUntil(name + " has said " + text + ", not only " + Output() + Errors(),
                  [&] { return Contains(Output(), text); });
    }
    void Signal(int signal) { sandbox.Kill(pid, signal); }

    ProgramRun WaitForEnd() {
        std::optional<int> status;
        WaitUntil(name + " has ended",
                  [&] { return (status = sandbox.StatusIfEnded(pid)).has_value(); });
        pid = -1;
        return {WIFEXITED(*status) ? WEXITSTATUS(*status) : -1, Output(), Errors()};
    }

  private:
    static Descriptor Create(const std::filesystem::path& path) {
        return Descriptor(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    }
    std::filesystem::path OutputFile() const { return sandbox.Aside(name + ".out"); }
    std::filesystem::path ErrorsFile() const { return sandbox.Aside(name + ".err"); }

    Sandbox& sandbox;
    const std::string name;
    pid_t pid = -1;
};
