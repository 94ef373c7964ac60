// Sends signals to every thread of a process, one after the other.
// Usage: SignalStorm PROCESS SIGNAL A-SECOND MILLISECONDS   says how many there were
#include <dirent.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

namespace {

std::vector<int> ThreadsOf(const std::string& process) {
    std::vector<int> threads;
    DIR* const folder = opendir(("/proc/" + process + "/task").c_str());
    while (const dirent* const entry = folder == nullptr ? nullptr : readdir(folder)) {
        if (entry->d_name[0] != '.') {
            threads.push_back(std::atoi(entry->d_name));
        }
    }
    if (folder != nullptr) {
        closedir(folder);
    }
    return threads;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 5) {
        return 2;
    }
    const int process = std::atoi(argv[1]);
    const int signal = std::atoi(argv[2]);
    const std::chrono::microseconds pause(1000000 / std::atoi(argv[3]));
    const auto end =
        std::chrono::steady_clock::now() + std::chrono::milliseconds(std::atoi(argv[4]));
    long sent = 0;
    while (std::chrono::steady_clock::now() < end) {
        for (const int thread : ThreadsOf(argv[1])) {
            sent += syscall(SYS_tgkill, process, thread, signal) == 0;
            std::this_thread::sleep_for(pause);
        }
    }
    std::cout << sent << std::endl;
}
