// The entries of a folder, one after the other, without "." and "..".
//
// Little is read at first and ever more then: a folder may be opened again and again for its first
// entries, and the C library's streams read a thousand at once.
//
// Owner: whoever opens it; the descriptor goes with it. Threads: one at a time. Failure: what it
// was made of is no folder, or cannot be read: it is not open, with errno; Next gives nothing, and
// Error the number of the error that ended the entries, or 0.
#pragma once

#include <dirent.h>

#include <cstddef>
#include <memory>

#include "Support/UniqueDescriptor.h"

namespace frameworks {

class FolderStream {
  public:
    FolderStream() = default;
    // ITSFOLDER has been opened as a folder, if it is open.
    explicit FolderStream(UniqueDescriptor itsFolder);

    bool IsOpen() const { return folder.IsOpen(); }
    // Good until the next call. Null at the end.
    const dirent64* Next();
    int Error() const { return error; }

    // Whether an entry of this folder is itself a folder; a link to one is not.
    bool IsFolder(const dirent64& entry) const;
    // Opens an entry that is a folder.
    UniqueDescriptor OpenEntry(const char* name) const;

  private:
    bool ReadMore();

    UniqueDescriptor folder;
    std::unique_ptr<char[]> entries;
    std::size_t size = 0;
    std::size_t filled = 0;
    std::size_t next = 0;
    int error = 0;
};

}  // namespace frameworks
