// Opens the folders that references lead to.
//
// A reference's path had no symbolic link in it when it was made. One that is there now has been
// put in the place of a folder since, and what is deleted or listed behind it is not what the
// reference named; so such a path is not followed.
//
// Threads: any. Failure: a descriptor that is not open, with errno; ENOENT for a path that has been
// led away.
#pragma once

#include <string>
#include <string_view>

#include "Support/UniqueDescriptor.h"

namespace frameworks {

// PATH is that of a reference, and is a folder's.
UniqueDescriptor OpenFolder(const std::string& path);

// The folder and the name in PATH, which is that of a reference; the root has no name.
struct Location {
    std::string folder;
    std::string name;
};
Location LocationOf(std::string_view path);

}  // namespace frameworks
