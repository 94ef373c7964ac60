#include "tesselctl/Listener.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <vector>

namespace tesselctl {
namespace {

struct CloseFolder {
    void operator()(DIR* folder) const { closedir(folder); }
};

std::vector<std::string> NamesIn(const std::string& path) {
    std::vector<std::string> names;
    const std::unique_ptr<DIR, CloseFolder> folder(opendir(path.c_str()));
    if (!folder) return names;
    while (const dirent* entry = readdir(folder.get()))
        names.emplace_back(entry->d_name);
    return names;
}

// The inode of the socket that listens on 127.0.0.1 or on every address, or an empty text.
// Addresses stand in the table as the machine's own view of the four bytes.
std::string ListeningInode(std::istream& table, int port) {
    constexpr const char* kListening = "0A";
    std::string line;
    std::getline(table, line);  // the headings
    while (std::getline(table, line)) {
        std::istringstream fields(line);
        std::string slot, local, remote, state, queues, timer, retransmits, user, timeout, inode;
        fields >> slot >> local >> remote >> state >> queues >> timer >> retransmits >> user >>
            timeout >> inode;
        const std::size_t colon = local.find(':');
        if (state != kListening || colon == std::string::npos) continue;
        const unsigned long address = std::strtoul(local.c_str(), nullptr, 16);
        const unsigned long listeningPort = std::strtoul(local.c_str() + colon + 1, nullptr, 16);
        if (listeningPort != static_cast<unsigned long>(port)) continue;
        if (address == htonl(INADDR_LOOPBACK) || address == INADDR_ANY) return inode;
    }
    return {};
}

bool HoldsSocket(const std::string& descriptors, const std::string& link) {
    for (const std::string& name : NamesIn(descriptors)) {
        char target[64];
        const ssize_t length = readlink((descriptors + '/' + name).c_str(), target, sizeof target);
        if (length > 0 && std::string(target, static_cast<std::size_t>(length)) == link)
            return true;
    }
    return false;
}

}  // namespace

Listener FindListener(int port, const std::string& proc) {
    Listener listener;
    std::ifstream table(proc + "/net/tcp");
    if (!table) return listener;
    listener.known = true;
    const std::string inode = ListeningInode(table, port);
    if (inode.empty()) return listener;
    listener.present = true;
    const std::string link = "socket:[" + inode + ']';
    for (const std::string& name : NamesIn(proc)) {
        char* end = nullptr;
        const long process = std::strtol(name.c_str(), &end, 10);
        if (process <= 0 || *end != '\0') continue;
        if (!HoldsSocket(proc + '/' + name + "/fd", link)) continue;
        listener.process = static_cast<pid_t>(process);
        std::ifstream comm(proc + '/' + name + "/comm");
        std::getline(comm, listener.name);
        break;
    }
    return listener;
}

}  // namespace tesselctl
