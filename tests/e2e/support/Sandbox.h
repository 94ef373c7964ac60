// A small machine for one test: a root of its own with the Mac's folders, a network with nothing
// but a loopback, a process table with nothing but what the test starts. Made by bubblewrap, backed
// by a private temporary folder that the test looks into from outside, gone with its owner.
//
// Works for a suite that runs as root (ids are switched for real) and as an ordinary user (who then
// is the sandbox's user). One thread at a time. Every operation throws Failed.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "support/Packet.h"

// The person at the sandbox's console.
constexpr uid_t kUserId = 1000;
constexpr char kUserName[] = "anna";
constexpr char kUserHome[] = "/Users/anna";
constexpr char kRootHome[] = "/root";
// Another person with an account there.
constexpr uid_t kStrangerId = 1001;

constexpr char kServiceFolder[] =
    "/Library/Application Support/Velto/TesselCore.app/Contents/MacOS";
constexpr char kServiceFile[] =
    "/Library/Application Support/Velto/TesselCore.app/Contents/MacOS/TesselCore";
constexpr char kClientFile[] = "/tesselctl";

enum class Identity { kUser, kRoot, kRootWithUsersEffectiveId, kStranger };

struct Program {
    // Where it lies inside the sandbox; the first argument is its name for itself.
    std::string path;
    std::vector<std::string> arguments;
    std::map<std::string, std::string> environment;
    std::string workingFolder = "/";
    Identity identity = Identity::kUser;
    std::vector<gid_t> groups;
    // RLIMIT_NOFILE, or 0 for the suite's own.
    int openFiles = 0;
    std::vector<int> ignoredSignals;
    std::vector<int> closedDescriptors;
};

// Asks bubblewrap to make the folders above BOUND for everybody: those that it makes unasked are
// nobody's but root's.
void AddWayTo(const std::filesystem::path& bound, std::vector<std::string>& arguments);

class Sandbox {
  public:
    // MORE are added to what bubblewrap is told last: mounts and modes of the test's own.
    explicit Sandbox(std::vector<std::string> more = {});
    ~Sandbox();
    Sandbox(const Sandbox&) = delete;
    Sandbox& operator=(const Sandbox&) = delete;

    // Whether the suite runs as root and can therefore start programs as root and as somebody else.
    static bool CanSwitchUsers();

    // Where a path of the sandbox lies outside: /Users, /Library, /System, /Applications, /etc,
    // /tmp, /root, /usr/sbin (which is empty but for what the test puts there), /dev/console.
    std::filesystem::path Outside(const std::string& path) const;
    // Beside the sandbox: for what the test captures.
    std::filesystem::path Aside(const std::string& name) const;

    // What the test makes there belongs to the sandbox's user afterwards.
    void GiveToUser(const std::string& path) const;
    void MakeUsersFile(const std::string& path, const std::string& content) const;
    void MakeUsersFolder(const std::string& path) const;

    // One more line in /etc/group, with the user as a member.
    void AddGroup(const std::string& name, gid_t id) const;
    // A script of tests/fixtures/stand-ins, found before any program of the system with its name.
    void InstallStandIn(const std::string& name) const;

    Descriptor Connect(int port);
    // A socket that listens to the sandbox's loopback, on a port that the system has chosen.
    Descriptor Listen();
    // A TCP socket of the sandbox's network, not connected and never blocking.
    Descriptor NewSocket();
    // Takes every port from first to last, until FreePorts.
    void OccupyPorts(int first, int last);
    void FreePorts();
    // Every port of the sandbox's loopback that somebody listens on, as "address:port" in
    // hexadecimal, as a little-endian kernel writes it.
    std::vector<std::string> Listeners();
    bool Listens(int port);
    // How many bytes a connection holds that its service side has not read yet.
    std::size_t UnreadBytes(int servicePort, int clientPort);

    // Of the sandbox: /proc most of all.
    std::string Read(const std::string& path);
    std::vector<std::string> List(const std::string& path);
    std::string ReadLink(const std::string& path);

    pid_t Start(const Program& program, int standardInput, int standardOutput, int standardError);
    // A program that does nothing, at that path, started as root or as the suite's user. Ends with
    // the sandbox.
    void LaunchIdleProgram(const std::string& path);
    // What waitpid tells once the program has ended.
    std::optional<int> StatusIfEnded(pid_t program);
    void Kill(pid_t program, int signal);

  private:
    void MakeFolders() const;
    std::vector<std::string> BubblewrapArguments(int helperSocket) const;
    void StartBubblewrap();
    void EndBubblewrap();
    Packet Ask(Packet request);

    const std::vector<std::string> more;
    std::filesystem::path folder;
    pid_t bubblewrap = -1;
    std::mutex oneAtATime;
    Descriptor helper;
};
