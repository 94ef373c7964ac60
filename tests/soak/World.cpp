#include "World.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "support/Files.h"
#include "support/Pen.h"

namespace fs = std::filesystem;

namespace {

constexpr char kClock[] = "/tmp/clock-offset";
constexpr char kShimInside[] = "/ServiceShim.so";
constexpr std::uintmax_t kLongLog = 4u << 20;

void ShortenIfLong(const fs::path& log) {
    std::error_code none;
    const std::uintmax_t size = fs::file_size(log, none);
    if (!none && size > kLongLog) {
        // It is appended to, so that it goes on at its new end.
        fs::resize_file(log, 0, none);
    }
}

}  // namespace

World::World(const Options& itsOptions)
    : options(itsOptions), disk(fs::temp_directory_path()), sandbox(Mounts()) {
    WriteFile(sandbox.Outside(kClock), std::string(sizeof(std::int64_t), '\0'));
    // Everything is written to the log as well, as far as there is room for it.
    sandbox.MakeUsersFile(Service::kLogFile, "");
    service = std::make_unique<Service>(sandbox, HowToStart());
    service->WaitUntilListening();
}

World::~World() = default;

std::vector<std::string> World::Mounts() const {
    std::vector<std::string> mounts = PenMounts();
    const std::string bed = devices.Folder();
    mounts.insert(mounts.end(),
                  {"--chmod", "0777", "/", "--perms", "0755", "--dir",
                   fs::path(bed).parent_path().string(), "--bind", bed, bed, "--ro-bind", SOAK_SHIM,
                   kShimInside, "--ro-bind", SOAK_SIGNAL_STORM, "/SignalStorm"});
    return mounts;
}

Start World::HowToStart() const {
    Start start;
    start.environment = {{"LD_PRELOAD", std::string(SOAK_PRELOADED) + ":" + kShimInside},
                         {"UMOCKDEV_DIR", devices.Folder()},
                         {"SOAK_CLOCK", kClock}};
    return start;
}

Descriptor World::Connect(int port) {
    Descriptor made = sandbox.NewSocket();
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<in_port_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(made.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 &&
        errno != EINPROGRESS) {
        throw Failed(std::string("cannot connect: ") + std::strerror(errno));
    }
    pollfd waited = {made.Get(), POLLOUT, 0};
    const int patience = static_cast<int>(options.patience.count()) * 1000;
    int error = 0;
    socklen_t length = sizeof error;
    if (poll(&waited, 1, patience) != 1 ||
        getsockopt(made.Get(), SOL_SOCKET, SO_ERROR, &error, &length) != 0 || error != 0) {
        throw Failed(std::string("no connection came about: ") + std::strerror(error));
    }
    return made;
}

void World::ShortenLogs() const {
    ShortenIfLong(sandbox.Outside(Service::kLogFile));
    for (const fs::directory_entry& entry : fs::directory_iterator(sandbox.Aside(""))) {
        if (entry.path().extension() == ".out") {
            ShortenIfLong(entry.path());
        }
    }
    std::error_code none;
    for (const fs::directory_entry& entry : fs::directory_iterator(sandbox.Outside("/tmp"))) {
        if (entry.path().extension() == ".calls" || entry.path().extension() == ".pids") {
            ShortenIfLong(entry.path());
        }
    }
}

void World::SetClock(std::int64_t seconds) const {
    const fs::path file = sandbox.Outside(kClock);
    const Descriptor clock(open(file.c_str(), O_WRONLY | O_CLOEXEC));
    if (pwrite(clock.Get(), &seconds, sizeof seconds, 0) != sizeof seconds) {
        throw Failed("the clock cannot be set");
    }
}
