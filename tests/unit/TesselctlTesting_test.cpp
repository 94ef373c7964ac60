#include "unit/TesselctlTesting.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

extern char** environ;

namespace tesselctltest {
namespace {

int BindAnywhere(int& port) {
    const int bound = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const any = reinterpret_cast<sockaddr*>(&address);
    if (bind(bound, any, size) != 0 || getsockname(bound, any, &size) != 0) std::abort();
    port = ntohs(address.sin_port);
    return bound;
}

int ListenAnywhere(int& port) {
    const int listener = BindAnywhere(port);
    if (listen(listener, 50) != 0) std::abort();
    return listener;
}

void SetPatience(int fd) {
    const timeval time{kPatience.count(), 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &time, sizeof time);
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &time, sizeof time);
}

}  // namespace

std::string KeyFileText(int commandPort, int pressurePort, int appsPort, const std::string& key) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?> \n<root> \n\t<commandPort>" +
           std::to_string(commandPort) + "</commandPort> \n\t<pressurePort>" +
           std::to_string(pressurePort) + "</pressurePort> \n\t<airAppsPort>" +
           std::to_string(appsPort) + "</airAppsPort> \n\t<authKey>" + key +
           "</authKey> \n</root> \n";
}

void WriteFile(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::trunc) << text;
}

void AppendFile(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::app) << text;
}

std::string ReadFile(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

TemporaryHome::TemporaryHome() {
    std::string form = (std::filesystem::temp_directory_path() / "tesselctl-test-XXXXXX").string();
    if (mkdtemp(form.data()) == nullptr) std::abort();
    path = form;
}

TemporaryHome::~TemporaryHome() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}

std::string TemporaryHome::KeyFile() const {
    return path + "/Library/Application Support/Velto/tesselAuth.key";
}

void TemporaryHome::WriteKeyFile(int commandPort, int pressurePort, int appsPort,
                                 const std::string& key) const {
    std::filesystem::create_directories(std::filesystem::path(KeyFile()).parent_path());
    WriteFile(KeyFile(), KeyFileText(commandPort, pressurePort, appsPort, key));
}

int DeadPort() {
    // Bound for as long as the tests run, so that nobody else gets it; a port without listen()
    // refuses connections.
    int port = 0;
    BindAnywhere(port);
    return port;
}

std::string Client::Read() {
    for (;;) {
        const std::size_t bar = pending.find('|');
        if (bar != std::string::npos) {
            std::string message = pending.substr(0, bar);
            pending.erase(0, bar + 1);
            return message;
        }
        char bytes[4096];
        const ssize_t got = recv(socket, bytes, sizeof bytes, 0);
        if (got <= 0) return "<closed>";
        pending.append(bytes, static_cast<std::size_t>(got));
    }
}

void Client::Send(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t sent = send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0) return;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
}

void Client::WaitForGoodbye() {
    while (Read() != "<closed>") {
    }
}

ScriptedService::ScriptedService(Script played)
    : script(std::move(played)), listener(ListenAnywhere(port)), acceptor([this] { Accept(); }) {}

ScriptedService::~ScriptedService() {
    {
        const std::lock_guard<std::mutex> lock(mutex);
        ending = true;
        for (const int open : sockets)
            shutdown(open, SHUT_RDWR);
    }
    shutdown(listener, SHUT_RDWR);
    acceptor.join();
    for (std::thread& player : players)
        player.join();
    close(listener);
}

int ScriptedService::Connections() {
    const std::lock_guard<std::mutex> lock(mutex);
    return static_cast<int>(players.size());
}

void ScriptedService::Accept() {
    for (;;) {
        const int accepted = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        const std::lock_guard<std::mutex> lock(mutex);
        if (accepted == -1 || ending) {
            if (accepted != -1) close(accepted);
            return;
        }
        SetPatience(accepted);
        sockets.push_back(accepted);
        const int number = static_cast<int>(players.size());
        players.emplace_back([this, accepted, number] {
            Client client(accepted);
            script(client, number);
            const std::lock_guard<std::mutex> closing(mutex);
            for (int& open : sockets)
                if (open == accepted) open = -1;
            close(accepted);
        });
    }
}

ScriptedService::Script Authorizing(std::function<std::string(const std::string&)> answers) {
    return [answers = std::move(answers)](Client& client, int) {
        if (client.Read() != std::string("auth ") + kKey) return;
        client.Send("authOk|CurrentAttachedDevices=|");
        for (;;) {
            const std::string command = client.Read();
            if (command == "<closed>") return;
            client.Send(answers(command));
        }
    };
}

Outcome RunProgram(const std::vector<std::string>& arguments, const std::string& input) {
    int in[2];
    int out[2];
    int err[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0)
        std::abort();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_adddup2(&actions, err[1], 2);
    std::vector<std::string> words = {"tesselctl"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    pid_t child = -1;
    const int spawned =
        posix_spawn(&child, TESSELCTL_PROGRAM, &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(in[0]);
    close(out[1]);
    close(err[1]);
    Outcome outcome{-1, {}, {}};
    if (spawned != 0) return outcome;

    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    std::string_view rest = input;
    if (rest.empty()) close(std::exchange(in[1], -1));
    struct Source {
        int fd;
        std::string* text;
    };
    Source sources[2] = {{out[0], &outcome.output}, {err[0], &outcome.errors}};
    while (sources[0].fd != -1 || sources[1].fd != -1) {
        pollfd polled[3] = {
            {sources[0].fd, POLLIN, 0}, {sources[1].fd, POLLIN, 0}, {in[1], POLLOUT, 0}};
        poll(polled, 3, 100);
        if (std::chrono::steady_clock::now() > deadline) {
            kill(child, SIGKILL);
            outcome.errors += "<killed: it took too long>";
            break;
        }
        for (int i = 0; i < 2; i++) {
            if (polled[i].revents == 0) continue;
            char bytes[4096];
            const ssize_t got = read(sources[i].fd, bytes, sizeof bytes);
            if (got > 0)
                sources[i].text->append(bytes, static_cast<std::size_t>(got));
            else
                close(std::exchange(sources[i].fd, -1));
        }
        if (in[1] == -1 || polled[2].revents == 0) continue;
        const ssize_t written = write(in[1], rest.data(), rest.size());
        if (written > 0) rest.remove_prefix(static_cast<std::size_t>(written));
        if (written <= 0 || rest.empty()) close(std::exchange(in[1], -1));
    }
    for (const Source& source : sources)
        if (source.fd != -1) close(source.fd);
    if (in[1] != -1) close(in[1]);
    int status = 0;
    while (waitpid(child, &status, 0) == -1 && errno == EINTR) {
    }
    outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
    return outcome;
}

RunningProgram::RunningProgram(const std::vector<std::string>& arguments) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, output.c_str(), O_WRONLY | O_CREAT, 0600);
    posix_spawn_file_actions_addopen(&actions, 2, errors.c_str(), O_WRONLY | O_CREAT, 0600);
    std::vector<std::string> words = {"tesselctl"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    if (posix_spawn(&child, TESSELCTL_PROGRAM, &actions, nullptr, argv.data(), environ) != 0)
        std::abort();
    posix_spawn_file_actions_destroy(&actions);
}

RunningProgram::~RunningProgram() {
    if (child == -1) return;
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
}

void RunningProgram::WaitFor(const std::string& text, const std::string& file) const {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (ReadFile(file).find(text) == std::string::npos) {
        if (std::chrono::steady_clock::now() > deadline) {
            ADD_FAILURE() << '"' << text << "\" did not appear in:\n"
                          << ReadFile(output) << ReadFile(errors);
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

void RunningProgram::WaitForOutput(const std::string& text) const {
    WaitFor(text, output);
}

void RunningProgram::WaitForErrors(const std::string& text) const {
    WaitFor(text, errors);
}

void RunningProgram::Signal(int signal) const {
    kill(child, signal);
}

Outcome RunningProgram::Finish() {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    int status = 0;
    while (waitpid(child, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            ADD_FAILURE() << "it does not end";
            return {-1, ReadFile(output), ReadFile(errors)};
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    child = -1;
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status), ReadFile(output),
            ReadFile(errors)};
}

namespace {

TEST(TesselctlTesting, ScriptedService_PlaysTheScriptForEachConnection) {
    TemporaryHome home;
    ScriptedService service(
        Authorizing([](const std::string& c) { return "Success <" + c + ">|"; }));
    home.WriteKeyFile(service.Port(), service.Port(), service.Port());
    EXPECT_EQ("<a>\n", RunProgram({"--home", home.Path(), "a"}).output);
    EXPECT_EQ("<b>\n", RunProgram({"--home", home.Path(), "b"}).output);
    EXPECT_EQ(2, service.Connections());
}

}  // namespace
}  // namespace tesselctltest
