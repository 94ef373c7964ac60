// The tests' hand inside the sandbox. The sandbox has a network, a process table and a root of its
// own, so what the tests want there is done by this program: it connects and hands the socket out,
// starts programs and tells how they ended, sends signals, opens files for the tests to read.
//
// Usage: SandboxHelper SOCKET-NUMBER   serve the tests until they close the socket
//        SandboxHelper                 do nothing until killed: a stand-in for any program, by the
//        name it is copied to
//
// One request is one packet, and so is its answer: "ok" and what was asked for, or "error" and the
// reason.
#include <arpa/inet.h>
#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <stdexcept>

#include "support/Packet.h"

namespace {

using Words = std::vector<std::string>;

[[noreturn]] void Fail(const std::string& what) {
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

int Number(const std::string& text) {
    return std::stoi(text);
}

sockaddr_in Loopback(int port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<in_port_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

Descriptor TcpSocket() {
    Descriptor made(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!made) {
        Fail("socket");
    }
    return made;
}

// Every send of a test is a packet of its own; what arrives together is what was sent together.
Descriptor ClientSocket() {
    Descriptor made = TcpSocket();
    const int on = 1;
    setsockopt(made.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return made;
}

// For a test that must not wait in this program's stead until a connection comes about.
Packet NewSocket() {
    Packet answer = {{"ok"}, {}};
    answer.descriptors.push_back(ClientSocket());
    return answer;
}

Packet Connect(const Words& words) {
    Descriptor made = ClientSocket();
    const sockaddr_in address = Loopback(Number(words.at(1)));
    if (connect(made.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        Fail("connect to " + words[1]);
    }
    Packet answer = {{"ok"}, {}};
    answer.descriptors.push_back(std::move(made));
    return answer;
}

std::vector<Descriptor>& OccupiedPorts() {
    static auto& ports = *new std::vector<Descriptor>;
    return ports;
}

Packet Occupy(const Words& words) {
    for (int port = Number(words.at(1)); port <= Number(words.at(2)); ++port) {
        Descriptor made = TcpSocket();
        const sockaddr_in address = Loopback(port);
        if (bind(made.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
            listen(made.Get(), 1) != 0) {
            Fail("bind " + std::to_string(port));
        }
        OccupiedPorts().push_back(std::move(made));
    }
    return {{"ok"}, {}};
}

Packet Listen() {
    Packet answer = {{"ok"}, {}};
    Descriptor made = TcpSocket();
    const sockaddr_in address = Loopback(0);
    if (bind(made.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(made.Get(), SOMAXCONN) != 0) {
        Fail("listen");
    }
    answer.descriptors.push_back(std::move(made));
    return answer;
}

Packet Open(const Words& words) {
    Descriptor file(open(words.at(1).c_str(), O_RDONLY | O_CLOEXEC));
    if (!file) {
        Fail("open " + words[1]);
    }
    Packet answer = {{"ok"}, {}};
    answer.descriptors.push_back(std::move(file));
    return answer;
}

Packet List(const Words& words) {
    DIR* const folder = opendir(words.at(1).c_str());
    if (folder == nullptr) {
        Fail("opendir " + words[1]);
    }
    Packet answer = {{"ok"}, {}};
    while (const dirent* const entry = readdir(folder)) {
        const std::string name = entry->d_name;
        if (name != "." && name != ".." && answer.words.size() < 10000) {
            answer.words.push_back(name);
        }
    }
    closedir(folder);
    return answer;
}

Packet ReadLink(const Words& words) {
    char target[4096];
    const ssize_t length = readlink(words.at(1).c_str(), target, sizeof target);
    if (length < 0) {
        Fail("readlink " + words[1]);
    }
    return {{"ok", std::string(target, static_cast<std::size_t>(length))}, {}};
}

Packet Kill(const Words& words) {
    if (kill(Number(words.at(1)), Number(words.at(2))) != 0) {
        Fail("kill " + words[1]);
    }
    return {{"ok"}, {}};
}

Packet Wait(const Words& words) {
    int status = 0;
    const pid_t ended = waitpid(Number(words.at(1)), &status, WNOHANG);
    if (ended < 0) {
        Fail("waitpid " + words[1]);
    }
    return ended == 0 ? Packet{{"ok"}, {}} : Packet{{"ok", std::to_string(status)}, {}};
}

struct Program {
    Words arguments;
    Words environment;
    std::string path;
    std::string workingFolder = "/";
    uid_t realUser = getuid();
    uid_t effectiveUser = getuid();
    gid_t group = getgid();
    std::vector<gid_t> groups;
    rlim_t openFiles = 0;
    std::vector<int> ignoredSignals;
    std::vector<int> closedDescriptors;
};

Program ReadProgram(const Words& words) {
    Program program;
    for (std::size_t i = 1; i + 1 < words.size(); i += 2) {
        const std::string& key = words[i];
        const std::string& value = words[i + 1];
        if (key == "argument") {
            program.arguments.push_back(value);
        } else if (key == "environment") {
            program.environment.push_back(value);
        } else if (key == "path") {
            program.path = value;
        } else if (key == "folder") {
            program.workingFolder = value;
        } else if (key == "user") {
            program.realUser = program.effectiveUser = static_cast<uid_t>(Number(value));
        } else if (key == "effective") {
            program.effectiveUser = static_cast<uid_t>(Number(value));
        } else if (key == "group") {
            program.group = static_cast<gid_t>(Number(value));
        } else if (key == "member") {
            program.groups.push_back(static_cast<gid_t>(Number(value)));
        } else if (key == "files") {
            program.openFiles = static_cast<rlim_t>(Number(value));
        } else if (key == "ignore") {
            program.ignoredSignals.push_back(Number(value));
        } else if (key == "close") {
            program.closedDescriptors.push_back(Number(value));
        } else {
            throw std::runtime_error("unknown setting " + key);
        }
    }
    return program;
}

std::vector<char*> Pointers(Words& words) {
    std::vector<char*> pointers;
    for (std::string& word : words) {
        pointers.push_back(word.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

bool Become(const Program& program) {
    if (getuid() != 0) {
        return true;  // The sandbox was made for this user.
    }
    return setgroups(program.groups.size(), program.groups.data()) == 0 &&
           setresgid(program.group, program.group, program.group) == 0 &&
           setresuid(program.realUser, program.effectiveUser, program.effectiveUser) == 0;
}

// In the child. Returns only when something went wrong.
void Run(Program& program, const Packet& request) {
    setsid();
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    for (int number = 1; number < NSIG; ++number) {
        signal(number, SIG_DFL);
    }
    for (const int ignored : program.ignoredSignals) {
        signal(ignored, SIG_IGN);
    }
    int standard = 0;
    for (const Descriptor& given : request.descriptors) {
        dup2(given.Get(), standard++);
    }
    for (const int closed : program.closedDescriptors) {
        close(closed);
    }
    if (program.openFiles != 0) {
        const rlimit limit = {program.openFiles, program.openFiles};
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    if (!Become(program) || chdir(program.workingFolder.c_str()) != 0) {
        return;
    }
    execve(program.path.c_str(), Pointers(program.arguments).data(),
           Pointers(program.environment).data());
}

Packet Start(const Packet& request) {
    Program program = ReadProgram(request.words);
    int news[2];
    if (pipe2(news, O_CLOEXEC) != 0) {
        Fail("pipe");
    }
    const Descriptor reader(news[0]);
    Descriptor writer(news[1]);
    const pid_t child = fork();
    if (child == -1) {
        Fail("fork");
    }
    if (child == 0) {
        Run(program, request);
        const int reason = errno;
        static_cast<void>(!write(writer.Get(), &reason, sizeof reason));
        _exit(127);
    }
    writer.Close();
    int reason = 0;
    if (read(reader.Get(), &reason, sizeof reason) > 0) {
        waitpid(child, nullptr, 0);
        errno = reason;
        Fail("start " + program.path);
    }
    return {{"ok", std::to_string(child)}, {}};
}

Packet Answer(const Packet& request) {
    const std::string& verb = request.words.at(0);
    if (verb == "socket") {
        return NewSocket();
    }
    if (verb == "connect") {
        return Connect(request.words);
    }
    if (verb == "occupy") {
        return Occupy(request.words);
    }
    if (verb == "free") {
        OccupiedPorts().clear();
        return {{"ok"}, {}};
    }
    if (verb == "listen") {
        return Listen();
    }
    if (verb == "open") {
        return Open(request.words);
    }
    if (verb == "list") {
        return List(request.words);
    }
    if (verb == "readlink") {
        return ReadLink(request.words);
    }
    if (verb == "kill") {
        return Kill(request.words);
    }
    if (verb == "wait") {
        return Wait(request.words);
    }
    if (verb == "start") {
        return Start(request);
    }
    throw std::runtime_error("unknown request " + verb);
}

void Serve(int tests) {
    // What the suite itself was started with is no business of the service.
    for (int number = STDERR_FILENO + 1; number < 1024; ++number) {
        if (number != tests) {
            close(number);
        }
    }
    fcntl(tests, F_SETFD, FD_CLOEXEC);
    SendPacket(tests, {{"ok", "ready"}, {}});
    while (const std::optional<Packet> request = ReceivePacket(tests)) {
        Packet answer;
        try {
            answer = Answer(*request);
        } catch (const std::exception& failure) {
            answer = {{"error", failure.what()}, {}};
        }
        if (!SendPacket(tests, answer)) {
            break;
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        for (;;) {
            pause();
        }
    }
    Serve(std::atoi(argv[1]));
    // Nothing to tidy: with this process the whole sandbox goes.
    _exit(0);
}
