#include "support/Service.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <sstream>

#include "support/Files.h"
#include "support/Waiting.h"

namespace {

// With this status a sanitizer ends the service, so that no status of its own is mistaken for it.
constexpr int kSanitizerStatus = 97;

void AddSanitizerOptions(std::map<std::string, std::string>& environment) {
    const std::string status = "exitcode=" + std::to_string(kSanitizerStatus);
    const std::pair<const char*, const char*> all[] = {
        {"ASAN_OPTIONS", ":detect_leaks=1:detect_stack_use_after_return=1:strict_string_checks=1"},
        {"LSAN_OPTIONS", ":print_suppressions=0"},
        {"UBSAN_OPTIONS", ":halt_on_error=1:print_stacktrace=1"},
        // The service logs and ends in its signal handler: that is how it is meant to be.
        {"TSAN_OPTIONS",
         ":halt_on_error=1:report_signal_unsafe=0:second_deadlock_stack=1:atexit_sleep_ms=50"}};
    for (const auto& [name, options] : all) {
        environment[name] = status + options;
        if (const char* const given = getenv(name)) {
            environment[name] += std::string(":") + given;
        }
    }
}

Descriptor OutputFile(const std::filesystem::path& path) {
    Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600));
    if (!file) {
        throw Failed("cannot write " + path.string());
    }
    return file;
}

std::string Between(const std::string& text, const std::string& start, const std::string& end) {
    const std::size_t from = text.find(start);
    const std::size_t to = text.find(end);
    if (from == std::string::npos || to == std::string::npos) {
        throw Failed("no " + start + " in the key file: " + text);
    }
    return text.substr(from + start.size(), to - from - start.size());
}

// The fields of a /proc/PID/stat from the third, the state, on. The name before it may hold blanks
// and brackets.
std::string AfterName(const std::string& stat) {
    const std::size_t end = stat.rfind(") ");
    if (end == std::string::npos) {
        throw Failed("the process has ended");
    }
    return stat.substr(end + 2);
}

int PortIn(const std::string& text, const std::string& name) {
    return std::stoi(Between(text, "<" + name + ">", "</" + name + ">"));
}

}  // namespace

KeyFile ParseKeyFile(const std::string& text) {
    return {PortIn(text, "commandPort"), PortIn(text, "pressurePort"), PortIn(text, "airAppsPort"),
            Between(text, "<authKey>", "</authKey>")};
}

std::ostream& operator<<(std::ostream& stream, const Exit& exit) {
    return exit.signal != 0 ? stream << "killed by signal " << exit.signal
                            : stream << "exit status " << exit.status;
}

Service::Service(Sandbox& place, Start start) : sandbox(place) {
    static std::atomic<int> runs{0};
    // cppcheck-suppress useInitializationList ; not without the counter
    name = "run" + std::to_string(++runs);
    const bool asRoot = start.identity != Identity::kUser;
    const std::string home = asRoot ? kRootHome : kUserHome;
    keyFilePath = sandbox.Outside(kKeyFile);
    logFilePath = sandbox.Outside(kLogFile);
    oldKeyFile = ReadFileIfAny(keyFilePath);

    Program program;
    program.path = kServiceFile;
    program.arguments = {start.name.empty() ? kServiceFile : start.name};
    program.identity = start.identity;
    program.environment = {{"HOME", home},
                           {"USER", asRoot ? "root" : kUserName},
                           {"LOGNAME", asRoot ? "root" : kUserName},
                           {"SHELL", "/bin/sh"},
                           {"PATH", "/stand-ins:/usr/bin:/bin"}};
    AddSanitizerOptions(program.environment);
    for (const auto& [variable, value] : start.environment) {
        if (value.empty()) {
            program.environment.erase(variable);
        } else {
            program.environment[variable] = value;
        }
    }
    for (const std::string& variable : start.emptyVariables) {
        program.environment[variable].clear();
    }
    program.groups = start.groups;
    program.openFiles = start.openFiles;
    program.ignoredSignals = start.ignoredSignals;
    program.closedDescriptors = start.closedDescriptors;

    const Descriptor output = OutputFile(sandbox.Aside(name + ".out"));
    const Descriptor errors = OutputFile(sandbox.Aside(name + ".err"));
    const Descriptor nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
    pid = sandbox.Start(program, start.standardInput == -1 ? nothing.Get() : start.standardInput,
                        output.Get(), errors.Get());
}

Service::~Service() {
    try {
        if (!ended && !Running()) {
            ADD_FAILURE() << "the service ended by itself: " << exit;
        } else if (!ended) {
            EXPECT_EQ(Stop(SIGTERM), Exit::Status(1)) << "at the end of the test";
        }
        CheckSanitizers();
    } catch (const std::exception& failure) {
        ADD_FAILURE() << failure.what();
    }
    if (testing::Test::HasFailure() || std::uncaught_exceptions() > 0) {
        ShowWhatHappened();
    }
}

Service& Service::WaitUntilListening() {
    std::string content;
    WaitUntil("the service has written its key file", [&] {
        content = ReadFileIfAny(keyFilePath);
        if (!Running()) {
            throw Failed("the service ended instead of listening");
        }
        return content != oldKeyFile && Contains(content, "</root> \n");
    });
    keys = ParseKeyFile(content);
    for (const int port : {keys.commandPort, keys.pressurePort, keys.appsPort}) {
        WaitUntil("port " + std::to_string(port) + " is listened on",
                  [&] { return sandbox.Listens(port); });
    }
    return *this;
}

void Service::WaitUntilTheMainThreadServes() {
    ConnectToApps().Ask("hello");
    WaitForOutput("deinit client");
}

void Service::WaitUntilBothThreadsServe() {
    WaitUntilTheMainThreadServes();
    ConnectToPressure().Ask("hello");
    WaitForOutput("deinit client", 2);
}

void Service::WaitForOutput(const std::string& text, std::size_t times) const {
    WaitUntil("standard output holds \"" + text + "\"",
              [&] { return CountOf(OutputSoFar(), text) >= times; });
}

void Service::WaitForErrors(const std::string& text) const {
    WaitUntil("standard error holds \"" + text + "\"", [&] { return Contains(Errors(), text); });
}

std::string Service::Output() const {
    constexpr std::chrono::seconds kOfABusyOne{1};
    for (const Deadline deadline(kOfABusyOne); !IsAsleep() && !deadline.Passed();) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return OutputSoFar();
}

std::string Service::OutputSoFar() const {
    return ReadFile(sandbox.Aside(name + ".out"));
}

bool Service::IsAsleep() const {
    const std::string tasks = "/proc/" + std::to_string(pid) + "/task";
    try {
        for (const std::string& task : sandbox.List(tasks)) {
            if (Contains("RD",
                         AfterName(sandbox.Read(tasks + "/" + task + "/stat")).substr(0, 1))) {
                return false;
            }
        }
    } catch (const Failed&) {
        // It, or one of its threads, has ended meanwhile.
    }
    return true;
}

std::string Service::Errors() const {
    return ReadFile(sandbox.Aside(name + ".err"));
}

std::string Service::Log() const {
    return ReadFileIfAny(logFilePath);
}

Client Service::Authorized() const {
    Client client = ConnectToCommand();
    Authorize(client);
    return client;
}

void Service::Authorize(Client& client) const {
    const std::string answer = client.Ask("auth " + keys.key);
    if (answer != "authOk") {
        throw Failed("the key was answered with " + answer);
    }
    // What is plugged in is told to whoever has just been let in.
    const std::string devices = client.Receive();
    if (devices.rfind("CurrentAttachedDevices=", 0) != 0) {
        throw Failed("the key was answered with " + answer + " and " + devices);
    }
}

std::string Service::StatusField(const std::string& field) const {
    for (const std::string& line :
         Lines(sandbox.Read("/proc/" + std::to_string(pid) + "/status"))) {
        if (line.rfind(field + ":", 0) == 0) {
            std::string value = line.substr(field.size() + 1);
            value.erase(0, value.find_first_not_of(" \t"));
            value.erase(value.find_last_not_of(" \t") + 1);
            return value;
        }
    }
    throw Failed("the kernel tells no " + field);
}

std::size_t Service::OpenDescriptors() const {
    return sandbox.List("/proc/" + std::to_string(pid) + "/fd").size();
}

std::chrono::milliseconds Service::ProcessorTime() const {
    // utime and stime are fields 14 and 15.
    std::istringstream fields(AfterName(sandbox.Read("/proc/" + std::to_string(pid) + "/stat")));
    std::string skipped;
    for (int field = 3; field < 14; ++field) {
        fields >> skipped;
    }
    long user = 0;
    long system = 0;
    fields >> user >> system;
    return std::chrono::milliseconds((user + system) * 1000 / sysconf(_SC_CLK_TCK));
}

void Service::Signal(int signal) const {
    sandbox.Kill(pid, signal);
}

bool Service::Running() {
    if (exit == Exit() && !ended) {
        if (const std::optional<int> status = sandbox.StatusIfEnded(pid)) {
            ended = true;
            exit = WIFSIGNALED(*status) ? Exit::Signal(WTERMSIG(*status))
                                        : Exit::Status(WEXITSTATUS(*status));
        }
    }
    return !ended;
}

Exit Service::WaitForExit() {
    WaitUntil("the service has ended", [&] { return !Running(); });
    return exit;
}

Exit Service::Stop(int signal) {
    Signal(signal);
    return WaitForExit();
}

void Service::CheckSanitizers() const {
    const std::string errors = Errors();
    if (exit == Exit::Status(kSanitizerStatus) || Contains(errors, "Sanitizer:") ||
        Contains(errors, "runtime error:")) {
        ADD_FAILURE() << "a sanitizer found something:\n" << errors;
    }
}

void Service::ShowWhatHappened() const {
    constexpr std::size_t kShown = 40;
    std::cerr << "The service (" << (ended ? testing::PrintToString(exit) : "still running")
              << "), end of its standard output:\n"
              << LastLines(OutputSoFar(), kShown) << "  end of its standard error:\n"
              << LastLines(Errors(), kShown);
    if (const std::string log = Log(); !log.empty()) {
        std::cerr << "  end of its log:\n" << LastLines(log, kShown);
    }
}
