#include "support/ProgramRun.h"

#include <fcntl.h>
#include <sys/wait.h>

#include <csignal>

#include "support/Files.h"
#include "support/Waiting.h"

ProgramRun RunProgram(Sandbox& sandbox, const std::vector<std::string>& arguments,
                      const std::string& input, Identity identity) {
    const auto aside = [&](const char* name) { return sandbox.Aside(name); };
    const auto create = [](const std::filesystem::path& path) {
        return Descriptor(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    };
    WriteFile(aside("program.in"), input);
    const Descriptor in(open(aside("program.in").c_str(), O_RDONLY | O_CLOEXEC));
    const Descriptor out = create(aside("program.out"));
    const Descriptor err = create(aside("program.err"));
    Program program;
    program.path = arguments.at(0);
    program.arguments = arguments;
    program.identity = identity;
    program.environment = {{"HOME", kUserHome}, {"PATH", "/usr/bin:/bin"}, {"TERM", "dumb"}};
    const pid_t pid = sandbox.Start(program, in.Get(), out.Get(), err.Get());
    std::optional<int> status;
    try {
        WaitUntil(arguments[0] + " has ended",
                  [&] { return (status = sandbox.StatusIfEnded(pid)).has_value(); });
    } catch (const Failed&) {
        sandbox.Kill(pid, SIGKILL);
        throw;
    }
    return {WIFEXITED(*status) ? WEXITSTATUS(*status) : -1, ReadFile(aside("program.out")),
            ReadFile(aside("program.err"))};
}
