// A process that can open nothing any more.
#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

// As long as it lives. What watches for leaks at the end of the process needs some again.
class NoDescriptors {
  public:
    NoDescriptors() {
        // Where a process may have a million, taking them all takes long.
        constexpr rlim_t kFewer = 256;
        EXPECT_EQ(0, getrlimit(RLIMIT_NOFILE, &before));
        rlimit fewer = before;
        fewer.rlim_cur = kFewer;
        EXPECT_EQ(0, setrlimit(RLIMIT_NOFILE, &fewer));
        for (int taken = dup(STDERR_FILENO); taken != -1; taken = dup(STDERR_FILENO)) {
            all.push_back(taken);
        }
        EXPECT_EQ(EMFILE, errno);
    }
    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;
    ~NoDescriptors() {
        for (const int taken : all) {
            close(taken);
        }
        setrlimit(RLIMIT_NOFILE, &before);
    }

  private:
    rlimit before = {};
    std::vector<int> all;
};
