// A process that can open nothing any more.
#pragma once

#include <unistd.h>

#include <vector>

// As long as it lives. What watches for leaks at the end of the process needs some again.
class NoDescriptors {
  public:
    NoDescriptors() {
        for (int taken = dup(STDERR_FILENO); taken != -1; taken = dup(STDERR_FILENO)) {
            all.push_back(taken);
        }
    }
    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;
    ~NoDescriptors() {
        for (const int taken : all) {
            close(taken);
        }
    }

  private:
    std::vector<int> all;
};
