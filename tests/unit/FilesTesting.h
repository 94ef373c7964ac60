// What the tests of files and folders share: a folder of their own that goes with them, and a child
// process to try things in that cannot be undone, such as giving up an identity.
//
// Failure: a folder that cannot be made fails the test.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

namespace filestest {

class TemporaryFolder {
  public:
    TemporaryFolder() {
        std::string pattern = std::filesystem::temp_directory_path() / "layer-test.XXXXXX";
        EXPECT_NE(mkdtemp(pattern.data()), nullptr);
        path = std::filesystem::canonical(pattern);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }

    const std::string& Path() const { return path; }
    std::string operator/(const std::string& name) const { return path + "/" + name; }

  private:
    std::string path;
};

inline void WriteFile(const std::string& path, const std::string& text = std::string()) {
    std::ofstream(path, std::ios::binary) << text;
    EXPECT_TRUE(std::filesystem::exists(path));
}

// Sets an environment variable, or takes it away where VALUE is null, for as long as it lives.
class Environment {
  public:
    Environment(const char* itsName, const char* value) : name(itsName) {
        const char* const before = std::getenv(name);
        wasSet = before != nullptr;
        old = wasSet ? before : "";
        Set(value);
    }
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;
    ~Environment() { Set(wasSet ? old.c_str() : nullptr); }

  private:
    void Set(const char* value) {
        if (value == nullptr) {
            unsetenv(name);
        } else {
            setenv(name, value, 1);
        }
    }

    const char* const name;
    bool wasSet;
    std::string old;
};

// Runs WORK in a child process, whose expectations count here as well.
inline void InAChild(const std::function<void()>& work) {
    std::fflush(nullptr);
    const pid_t child = fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
        // Its failures are printed by the child itself, which must not go on with the other tests.
        try {
            work();
        } catch (const std::exception& exception) {
            ADD_FAILURE() << exception.what();
        }
        std::fflush(nullptr);
        _exit(::testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    while (waitpid(child, &status, 0) == -1 && errno == EINTR) {
    }
    EXPECT_EQ(status, 0) << "in the child process";
}

}  // namespace filestest
