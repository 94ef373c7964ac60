// The entries of a folder, one after the other, without "." and "..".
//
// Owner: whoever opens it; the descriptor goes with it. Threads: one at a time. Failure: what it
// was made of is no folder, or cannot be read: it is not open, with errno; Next gives nothing, and
// Error the number of the error that ended the entries, or 0.
#pragma once

#include <dirent.h>

#include <memory>

#include "Support/UniqueDescriptor.h"

namespace frameworks {

class FolderStream {
  public:
    FolderStream() = default;
    explicit FolderStream(UniqueDescriptor folder);

    bool IsOpen() const { return stream != nullptr; }
    int Descriptor() const { return dirfd(stream.get()); }
    // Good until the next call. Null at the end.
    const dirent* Next();
    int Error() const { return error; }

    // Whether an entry of this folder is itself a folder; a link to one is not.
    bool IsFolder(const dirent& entry) const;
    // Opens an entry that is a folder.
    UniqueDescriptor OpenEntry(const char* name) const;

  private:
    struct Closer {
        void operator()(DIR* open) const { closedir(open); }
    };
    std::unique_ptr<DIR, Closer> stream;
    int error = 0;
};

}  // namespace frameworks
