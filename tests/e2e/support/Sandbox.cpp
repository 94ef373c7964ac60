#include "support/Sandbox.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <utility>

#include "support/Files.h"
#include "support/Waiting.h"

namespace fs = std::filesystem;

namespace {

constexpr char kHelperInside[] = "/SandboxHelper";

[[noreturn]] void Fail(const std::string& what) {
    throw Failed(what + ": " + std::strerror(errno));
}

fs::path NewFolder() {
    std::string pattern = (fs::temp_directory_path() / "tesselcore-e2e-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
        Fail(pattern);
    }
    return pattern;
}

// Tests leave folders behind that nobody may enter.
void RemoveWhole(const fs::path& folder) {
    std::error_code ignored;
    if (fs::is_directory(fs::symlink_status(folder, ignored))) {
        fs::permissions(folder, fs::perms::owner_all, fs::perm_options::add, ignored);
        for (const fs::directory_entry& entry : fs::directory_iterator(folder, ignored)) {
            RemoveWhole(entry.path());
        }
    }
    fs::remove(folder, ignored);
}

// The system's programs and libraries. What is a link to /usr on this machine is one inside.
// /usr/sbin is left out: tests put their own tools there, and need none of the system's.
void AddSystem(std::vector<std::string>& arguments) {
    arguments.insert(arguments.end(), {"--perms", "0755", "--dir", "/usr"});
    for (const fs::directory_entry& entry : fs::directory_iterator("/usr")) {
        const std::string path = entry.path().string();
        if (path == "/usr/sbin") {
            continue;
        }
        if (entry.is_symlink()) {
            arguments.insert(arguments.end(),
                             {"--symlink", fs::read_symlink(entry.path()).string(), path});
        } else {
            arguments.insert(arguments.end(), {"--ro-bind", path, path});
        }
    }
    for (const char* const name : {"/bin", "/sbin", "/lib", "/lib32", "/lib64", "/libx32"}) {
        const fs::path path = name;
        if (fs::is_symlink(path)) {
            arguments.insert(arguments.end(), {"--symlink", fs::read_symlink(path).string(), name});
        } else if (fs::exists(path)) {
            arguments.insert(arguments.end(), {"--ro-bind", name, name});
        }
    }
    // Those of another machine, when the service is built for one.
    if (const std::string libraries = E2E_LIBRARIES; !libraries.empty()) {
        arguments.insert(arguments.end(), {"--ro-bind", libraries, E2E_LIBRARIES_INSIDE});
    }
}

// The kernel writes an address as the number that its bytes make. What order that is says the
// kernel and not the compiler, because emulated tests look at the machine's own: 127.0.0.1 becomes
// 0100007F.
std::string InOneByteOrder(std::string table) {
    for (std::size_t at = 0; (at = table.find(" 7F000001:", at)) != std::string::npos;) {
        table.replace(at, 9, " 0100007F");
    }
    return table;
}

}  // namespace

void AddWayTo(const fs::path& bound, std::vector<std::string>& arguments) {
    fs::path way;
    for (const fs::path& name : bound.parent_path()) {
        way /= name;
        arguments.insert(arguments.end(), {"--perms", "0755", "--dir", way.string()});
    }
}

bool Sandbox::CanSwitchUsers() {
    return geteuid() == 0;
}

Sandbox::Sandbox(std::vector<std::string> itsMore) : more(std::move(itsMore)), folder(NewFolder()) {
    try {
        MakeFolders();
        StartBubblewrap();
    } catch (...) {
        EndBubblewrap();
        RemoveWhole(folder);
        throw;
    }
}

Sandbox::~Sandbox() {
    EndBubblewrap();
    if (getenv("E2E_KEEP") == nullptr) {
        RemoveWhole(folder);
    }
}

fs::path Sandbox::Outside(const std::string& path) const {
    return folder / "inside" / path.substr(1);
}

fs::path Sandbox::Aside(const std::string& name) const {
    return folder / name;
}

void Sandbox::MakeFolders() const {
    for (const char* const made :
         {"/Applications", "/Library", "/System", "/Users/Shared", "/etc", "/tmp", "/root", "/dev",
          "/stand-ins", "/usr/sbin", kUserHome, kServiceFolder}) {
        fs::create_directories(Outside(made));
    }
    for (const char* const everybodys : {"/Users/Shared", "/tmp"}) {
        fs::permissions(Outside(everybodys), fs::perms::all | fs::perms::sticky_bit);
    }
    GiveToUser(kUserHome);
    WriteFile(Outside("/dev/console"), "");
    GiveToUser("/dev/console");
    const std::string ids = std::to_string(kUserId);
    WriteFile(Outside("/etc/passwd"), std::string("root:x:0:0:root:") + kRootHome + ":/bin/sh\n" +
                                          kUserName + ":x:" + ids + ":" + ids +
                                          ":Anna:" + kUserHome + ":/bin/sh\n");
    WriteFile(Outside("/etc/group"), std::string("root:x:0:\n") + kUserName + ":x:" + ids + ":\n");
    WriteFile(Outside("/etc/nsswitch.conf"), "passwd: files\ngroup: files\nhosts: files\n");
    WriteFile(Outside("/etc/hosts"), "127.0.0.1 localhost\n");
}

std::vector<std::string> Sandbox::BubblewrapArguments(int helperSocket) const {
    std::vector<std::string> arguments = {"bwrap",         "--die-with-parent", "--unshare-net",
                                          "--unshare-pid", "--unshare-ipc",     "--unshare-uts"};
    if (!CanSwitchUsers()) {
        const std::string id = std::to_string(kUserId);
        arguments.insert(arguments.end(), {"--unshare-user", "--uid", id, "--gid", id});
    }
    arguments.insert(arguments.end(), {"--tmpfs", "/", "--proc", "/proc", "--dev", "/dev"});
    AddSystem(arguments);
    for (const char* const own : {"/Applications", "/Library", "/System", "/Users", "/etc", "/tmp",
                                  "/root", "/stand-ins", "/usr/sbin", "/dev/console"}) {
        arguments.insert(arguments.end(), {"--bind", Outside(own).string(), own});
    }
    // Where the programs count what is run through, in the build that does.
    if (const std::string profiles = E2E_PROFILES; !profiles.empty()) {
        AddWayTo(profiles, arguments);
        arguments.insert(arguments.end(), {"--bind", profiles, profiles});
    }
    arguments.insert(arguments.end(), {"--ro-bind", E2E_HELPER, kHelperInside});
    arguments.insert(arguments.end(), {"--ro-bind", E2E_SERVICE, kServiceFile});
    arguments.insert(arguments.end(), {"--ro-bind", E2E_CLIENT, kClientFile});
    arguments.insert(arguments.end(), more.begin(), more.end());
    arguments.insert(arguments.end(),
                     {"--chdir", "/", kHelperInside, std::to_string(helperSocket)});
    return arguments;
}

void Sandbox::StartBubblewrap() {
    int pair[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair) != 0) {
        Fail("socketpair");
    }
    helper = Descriptor(pair[0]);
    const Descriptor theirs(pair[1]);
    const fs::path messages = Aside("bubblewrap.txt");
    std::vector<std::string> arguments = BubblewrapArguments(theirs.Get());
    std::vector<char*> pointers;
    for (std::string& argument : arguments) {
        pointers.push_back(argument.data());
    }
    pointers.push_back(nullptr);
    bubblewrap = fork();
    if (bubblewrap == -1) {
        Fail("fork");
    }
    if (bubblewrap == 0) {
        fcntl(theirs.Get(), F_SETFD, 0);
        const int output = open(messages.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        dup2(open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
        dup2(output, STDOUT_FILENO);
        dup2(output, STDERR_FILENO);
        execvp(pointers[0], pointers.data());
        dprintf(STDERR_FILENO, "%s: %s (is the package bubblewrap installed?)\n", pointers[0],
                std::strerror(errno));
        _exit(127);
    }
    pollfd ready = {helper.Get(), POLLIN, 0};
    const Deadline deadline;
    for (;;) {
        const int events = poll(&ready, 1, 20);
        if (events > 0) {
            break;
        }
        if (waitpid(bubblewrap, nullptr, WNOHANG) == bubblewrap) {
            bubblewrap = -1;
            throw Failed("no sandbox could be made here: " + ReadFileIfAny(messages));
        }
        if (deadline.Passed()) {
            throw Failed("the sandbox did not start in time: " + ReadFileIfAny(messages));
        }
    }
    if (!ReceivePacket(helper.Get())) {
        throw Failed("the sandbox ended at once: " + ReadFileIfAny(messages));
    }
}

void Sandbox::EndBubblewrap() {
    // The helper ends when its socket does, and with it everything else inside.
    helper.Close();
    if (bubblewrap == -1) {
        return;
    }
    const Deadline deadline;
    while (waitpid(bubblewrap, nullptr, WNOHANG) == 0) {
        if (deadline.Passed()) {
            kill(bubblewrap, SIGKILL);
            waitpid(bubblewrap, nullptr, 0);
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    bubblewrap = -1;
}

// cppcheck-suppress passedByValue ; the descriptors in it are handed over
Packet Sandbox::Ask(Packet request) {
    const std::lock_guard<std::mutex> lock(oneAtATime);
    if (!SendPacket(helper.Get(), request)) {
        throw Failed("the sandbox takes no request any more");
    }
    std::optional<Packet> answer = ReceivePacket(helper.Get());
    if (!answer || answer->words.empty()) {
        throw Failed("the sandbox is gone: " + ReadFileIfAny(Aside("bubblewrap.txt")));
    }
    if (answer->words[0] != "ok") {
        throw Failed("in the sandbox: " + answer->words.at(1));
    }
    answer->words.erase(answer->words.begin());
    return std::move(*answer);
}

void Sandbox::GiveToUser(const std::string& path) const {
    if (CanSwitchUsers() && lchown(Outside(path).c_str(), kUserId, kUserId) != 0) {
        Fail(path);
    }
}

void Sandbox::MakeUsersFolder(const std::string& path) const {
    if (fs::exists(fs::symlink_status(Outside(path)))) {
        return;
    }
    MakeUsersFolder(fs::path(path).parent_path().string());
    fs::create_directory(Outside(path));
    GiveToUser(path);
}

void Sandbox::MakeUsersFile(const std::string& path, const std::string& content) const {
    MakeUsersFolder(fs::path(path).parent_path().string());
    WriteFile(Outside(path), content);
    GiveToUser(path);
}

void Sandbox::AddGroup(const std::string& name, gid_t id) const {
    const fs::path file = Outside("/etc/group");
    WriteFile(file, ReadFile(file) + name + ":x:" + std::to_string(id) + ":" + kUserName + "\n");
}

void Sandbox::InstallStandIn(const std::string& name) const {
    const fs::path installed = Outside("/stand-ins") / name;
    fs::copy_file(fs::path(E2E_FIXTURES) / "stand-ins" / name, installed);
    fs::permissions(installed, fs::perms(0755));
}

Descriptor Sandbox::Connect(int port) {
    return std::move(Ask({{"connect", std::to_string(port)}, {}}).descriptors.at(0));
}

Descriptor Sandbox::Listen() {
    return std::move(Ask({{"listen"}, {}}).descriptors.at(0));
}

Descriptor Sandbox::NewSocket() {
    Descriptor made = std::move(Ask({{"socket"}, {}}).descriptors.at(0));
    fcntl(made.Get(), F_SETFL, fcntl(made.Get(), F_GETFL) | O_NONBLOCK);
    return made;
}

void Sandbox::OccupyPorts(int first, int last) {
    Ask({{"occupy", std::to_string(first), std::to_string(last)}, {}});
}

void Sandbox::FreePorts() {
    Ask({{"free"}, {}});
}

std::vector<std::string> Sandbox::Listeners() {
    std::vector<std::string> listeners;
    for (const char* const table : {"/proc/net/tcp", "/proc/net/tcp6"}) {
        for (const std::string& line : Lines(InOneByteOrder(Read(table)))) {
            std::istringstream fields(line);
            std::string number, local, remote, state;
            fields >> number >> local >> remote >> state;
            if (state == "0A") {
                listeners.push_back(local);
            }
        }
    }
    return listeners;
}

bool Sandbox::Listens(int port) {
    char address[16];
    std::snprintf(address, sizeof address, "0100007F:%04X", static_cast<unsigned>(port));
    for (const std::string& listener : Listeners()) {
        if (listener == address) {
            return true;
        }
    }
    return false;
}

std::size_t Sandbox::UnreadBytes(int servicePort, int clientPort) {
    char ends[48];
    std::snprintf(ends, sizeof ends, "0100007F:%04X 0100007F:%04X",
                  static_cast<unsigned>(servicePort), static_cast<unsigned>(clientPort));
    const std::string table = InOneByteOrder(Read("/proc/net/tcp"));
    const std::size_t row = table.find(ends);
    if (row == std::string::npos) {
        return 0;
    }
    // "state tx_queue:rx_queue" follows the two ends.
    std::istringstream fields(table.substr(row + std::strlen(ends), 40));
    std::string state, queues;
    fields >> state >> queues;
    return std::stoul(queues.substr(queues.find(':') + 1), nullptr, 16);
}

std::string Sandbox::Read(const std::string& path) {
    const Packet answer = Ask({{"open", path}, {}});
    return ReadAll(answer.descriptors.at(0).Get());
}

std::vector<std::string> Sandbox::List(const std::string& path) {
    return Ask({{"list", path}, {}}).words;
}

std::string Sandbox::ReadLink(const std::string& path) {
    return Ask({{"readlink", path}, {}}).words.at(0);
}

pid_t Sandbox::Start(const Program& program, int standardInput, int standardOutput,
                     int standardError) {
    Packet request = {{"start", "path", program.path, "folder", program.workingFolder}, {}};
    const auto add = [&](const char* key, const std::string& value) {
        request.words.insert(request.words.end(), {key, value});
    };
    for (const std::string& argument : program.arguments) {
        add("argument", argument);
    }
    for (const auto& [name, value] : program.environment) {
        add("environment", name + "=" + value);
    }
    if (program.identity == Identity::kUser) {
        add("user", std::to_string(kUserId));
        add("group", std::to_string(kUserId));
    } else if (program.identity == Identity::kStranger) {
        add("user", std::to_string(kStrangerId));
        add("group", std::to_string(kStrangerId));
    } else if (program.identity == Identity::kRootWithUsersEffectiveId) {
        add("effective", std::to_string(kUserId));
    }
    for (const gid_t group : program.groups) {
        add("member", std::to_string(group));
    }
    if (program.openFiles != 0) {
        add("files", std::to_string(program.openFiles));
    }
    for (const int ignored : program.ignoredSignals) {
        add("ignore", std::to_string(ignored));
    }
    for (const int closed : program.closedDescriptors) {
        add("close", std::to_string(closed));
    }
    for (const int standard : {standardInput, standardOutput, standardError}) {
        request.descriptors.emplace_back(fcntl(standard, F_DUPFD_CLOEXEC, 0));
    }
    return std::stoi(Ask(std::move(request)).words.at(0));
}

void Sandbox::LaunchIdleProgram(const std::string& path) {
    fs::create_directories(Outside(path).parent_path());
    fs::copy_file(E2E_HELPER, Outside(path));
    fs::permissions(Outside(path), fs::perms(0755));
    Program program;
    program.path = path;
    program.arguments = {path};
    program.identity = Identity::kRoot;
    const Descriptor nothing(open("/dev/null", O_RDWR | O_CLOEXEC));
    Start(program, nothing.Get(), nothing.Get(), nothing.Get());
}

std::optional<int> Sandbox::StatusIfEnded(pid_t program) {
    const std::vector<std::string> words = Ask({{"wait", std::to_string(program)}, {}}).words;
    return words.empty() ? std::nullopt : std::optional<int>(std::stoi(words[0]));
}

void Sandbox::Kill(pid_t program, int signal) {
    Ask({{"kill", std::to_string(program), std::to_string(signal)}, {}});
}
