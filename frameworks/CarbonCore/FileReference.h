// What stands in an FSRef.
//
// The 80 bytes hold a mark, a check sum, the file's own name, and the number of its folder in a
// table of the process, where a folder is a name and the number of the folder that it lies in. So a
// reference is plain memory that nobody has to give back, and a hundred thousand files of one
// folder cost one entry. A name that is too long for the 80 bytes becomes an entry of its own. When
// the table has doubled, the entries whose path no longer exists leave it; an old reference to such
// an entry is told from one to its successor by a generation.
//
// Owner: the process. Threads: any. Failure: memory that is no reference, or one whose folder has
// gone, has no path.
#pragma once

#include <CarbonCore/Files.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace frameworks {

// PATH is absolute, has no empty, "." or ".." component and no closing "/", and exists.
FSRef MakeRef(std::string_view path);

// Whether REF is a reference at all, be the file there or not.
bool IsRef(const FSRef& ref);

// Nothing is said about whether the file is (still) there.
std::optional<std::string> PathOf(const FSRef& ref);

// How many entries the table has. For tests.
std::size_t ReferenceTableSize();

}  // namespace frameworks
