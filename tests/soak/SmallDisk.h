// A disk of its own for everything that the service and those around it write, small enough to be
// filled. It is a tmpfs that only this process and its children see, and takes the place of the
// folder for temporary files (TMPDIR).
//
// To be made before there are threads: who is not root becomes the root of a user namespace of his
// own for it. All throw Failed.
#pragma once

#include <filesystem>

class SmallDisk {
  public:
    // In that folder.
    explicit SmallDisk(const std::filesystem::path& where);
    ~SmallDisk();
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;

    // Until nothing more can be written.
    void Fill() const;
    void Free() const;

  private:
    std::filesystem::path Filler() const { return folder / "filler"; }

    std::filesystem::path folder;
};
