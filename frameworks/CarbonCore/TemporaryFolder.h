// A folder for temporary items that belongs to the user whom the process acts for, and to nobody
// else.
//
// It lies in TMPDIR or /tmp and has the same name in every process of that user. Somebody else may
// have been quicker with that name, to have our files written where he likes: a folder counts only
// if it is a folder, not a link, is the user's own and is closed to everybody else. Otherwise one
// with a name that nobody can have foreseen is made, and kept for as long as the process lives.
//
// Threads: any. Failure: 0 or what the system said; ENOENT when there is none and none is to be
// made.
#pragma once

#include <string>

namespace frameworks {

// Sets FOLDER; returns 0 or an error number.
int FindTemporaryFolder(bool makesIt, std::string& folder);

// The same in the folder BASE instead of TMPDIR or /tmp, and nothing is kept.
int FindTemporaryFolderIn(const std::string& base, bool makesIt, std::string& folder);

}  // namespace frameworks
