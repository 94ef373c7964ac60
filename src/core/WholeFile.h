// A file that somebody else may read at any moment: it holds the old contents or the new ones,
// whole, also when the disk is full half-way.
//
// The new contents are written beside the file and renamed over it; its mode stays. What else lies
// there (a link, a FIFO, a second name of another file) is replaced, and neither followed nor
// waited for. Only in a folder that takes no other file is the one that is there written in place.
//
// Owner: whoever has one; what has not been committed goes with it. Threads: one at a time.
// Failure: the number of the system's error, and the file is as it was before; 0 when all went
// well.
#pragma once

#include <string>

class WholeFile {
  public:
    WholeFile() = default;
    ~WholeFile();
    WholeFile(const WholeFile&) = delete;
    WholeFile& operator=(const WholeFile&) = delete;

    enum class Readers { kAsBefore, kOwnerAlone };

    // Fails where opening PATH to be written fails. With kOwnerAlone nobody else can open the new
    // contents, not even for the moment before they are written.
    int Open(const std::string& path, Readers readers = Readers::kAsBefore);
    // Replaces the file by TEXT. Nothing can be done afterwards, whatever the answer.
    int Commit(const std::string& text);

  private:
    int OpenBeside(int mode);
    int OpenInPlace();
    int WriteAndClose(const std::string& text);
    void Discard();

    std::string target;
    // What of the rights is granted at the most.
    unsigned granted = 0777;
    // Empty when the file is written in place.
    std::string beside;
    int descriptor = -1;
};
