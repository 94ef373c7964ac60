// Reads a growing log file, which somebody else may empty or replace at any time.
//
// The service appends to its log and empties it at a start when it has become too large; people
// delete and create it. So besides the size and the identity of the file, the last bytes that were
// read are compared with what stands in their place now: a file that was emptied and has grown past
// the old end again is noticed too.
//
// Owner: one reader. Threads: one. Failure: a file that cannot be opened is gone, until it can be.
#pragma once

#include <sys/stat.h>

#include <string>

#include "tesselctl/Descriptor.h"

namespace tesselctl {

enum class LogChange {
    kNothing,
    kMore,      // text was appended
    kEmptied,   // the file was emptied; what it holds since then follows with kMore
    kReplaced,  // another file has its name; its text follows with kMore
    kGone       // the file is not there any more; told once
};

struct LogUpdate {
    LogChange change;
    std::string text;  // of kMore: the next piece
};

class LogReader {
  public:
    explicit LogReader(std::string name) : path(std::move(name)) {}

    // False with errno set when it cannot be opened for reading or is not a regular file (EINVAL).
    bool Open();

    // Reading begins with the last lines of the file (an unfinished one counts) instead of with its
    // first byte.
    void GoToLastLines(std::size_t count);

    // What there is to read or what has happened, without waiting. To be called until it says
    // kNothing or kGone.
    LogUpdate Poll();

  private:
    off_t StartOfLastLines(std::size_t count, off_t end) const;
    bool Rewritten(off_t size) const;
    void Remember(const std::string& text);
    void StartOver();

    std::string path;
    Descriptor file;
    struct stat identity {};
    off_t position = 0;
    std::string tail;  // the last bytes before the position
};

}  // namespace tesselctl
