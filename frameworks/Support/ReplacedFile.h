// A file that is written as a whole or not at all: beside the one that is meant, and renamed over
// it. Whoever reads finds the old contents or the new ones, also after a crash where that was asked
// for.
//
// The mode, owner and group of the file that is replaced stay; where they cannot stay, and where
// the file may not be written, it is not replaced. What is not a regular file is never replaced.
//
// Owner: whoever has one; nothing is left beside the file when it goes without Commit. Threads: one
// at a time. Failure: false, with errno; the file is then as it was.
#pragma once

#include <sys/stat.h>

#include <string>
#include <string_view>

#include "Support/UniqueDescriptor.h"

namespace frameworks {

class ReplacedFile {
  public:
    // What becomes of a link at the path.
    enum class Link { kFollowed, kReplaced };
    // Whether the contents are on the medium when the file is replaced. It takes milliseconds.
    enum class Durability { kNone, kSurvivesCrashes };

    ReplacedFile() = default;
    ReplacedFile(const ReplacedFile&) = delete;
    ReplacedFile& operator=(const ReplacedFile&) = delete;
    ~ReplacedFile();

    // A file that is new gets MODE, less what the process does not grant anybody.
    bool Open(const std::string& path, Link link, mode_t mode);
    bool IsOpen() const { return file.IsOpen(); }
    bool Write(std::string_view bytes);
    // Leaves the old file, where there is one that holds something, under a name of its own: ENDING
    // behind the old one, and a number where that is taken. It goes if the new one is not
    // committed.
    bool KeepReplaced(std::string_view ending);
    // Nothing can be written afterwards, whatever the answer.
    bool Commit(Durability durability);

  private:
    bool TakeOver(const struct stat& replaced);
    void Discard();

    // With all links followed, where they are.
    std::string target;
    // Empty when there is no file beside the target.
    std::string beside;
    // The other name of the old file, or empty.
    std::string kept;
    UniqueDescriptor file;
};

// All three steps in one.
bool ReplaceFile(const std::string& path, std::string_view content, ReplacedFile::Link link,
                 ReplacedFile::Durability durability, mode_t mode);

}  // namespace frameworks
