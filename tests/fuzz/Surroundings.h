// What a fuzzer of the service runs in: a home folder of its own, and silence.
//
// Made on first use, once a process, and gone with it unless it dies.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include "Require.h"

class Surroundings {
  public:
    Surroundings() = delete;

    // The home folder, where everything may be written. The log on standard output goes nowhere: it
    // would take longer than what is tried.
    static const std::filesystem::path& Home() {
        static const std::filesystem::path& home = *new std::filesystem::path(Make());
        return home;
    }

    // A file that holds one input after the other.
    class File {
      public:
        // In the home folder, with the folders that lead there.
        explicit File(const std::string& name) : path(Home() / name) {
            std::filesystem::create_directories(path.parent_path());
            file = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        }

        std::string Path() const { return path.string(); }

        // The same file all the time: one that is emptied first is written to the disk at once.
        void Hold(std::string_view bytes) const {
            Require(
                pwrite(file, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()) &&
                    ftruncate(file, static_cast<off_t>(bytes.size())) == 0,
                "the input can be written");
        }

      private:
        const std::filesystem::path path;
        int file;
    };

  private:
    static std::string Make() {
        std::string pattern = (std::filesystem::temp_directory_path() / "fuzz.XXXXXX").string();
        Require(mkdtemp(pattern.data()) != nullptr, "there is a home folder");
        setenv("HOME", pattern.c_str(), 1);
        setenv("TMPDIR", pattern.c_str(), 1);
        const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
        Require(nowhere != -1 && dup2(nowhere, STDOUT_FILENO) != -1, "standard output can be shut");
        close(nowhere);
        std::atexit([] {
            std::error_code ignored;
            std::filesystem::remove_all(Home(), ignored);
        });
        return pattern;
    }
};
