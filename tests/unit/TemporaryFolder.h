// A folder of a test's own, gone with everything in it at the end.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>

class TemporaryFolder {
  public:
    TemporaryFolder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "unit.XXXXXX").string();
        if (mkdtemp(pattern.data()) != nullptr) path = pattern;
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }

    const std::filesystem::path& Path() const { return path; }

    // Makes the folders that lead there, too.
    std::filesystem::path Write(const std::string& name, const std::string& content) const {
        const std::filesystem::path file = path / name;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << content;
        return file;
    }

  private:
    std::filesystem::path path;
};
