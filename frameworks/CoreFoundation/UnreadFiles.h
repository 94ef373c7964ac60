// Files that a stream could not take in as what they should be. Whoever replaces one of them would
// destroy what nobody has seen; so readers note here how they fared, and writers look it up.
//
// Threads: any. Failure: where memory runs out for a note there is none.
#pragma once

#include <string>

namespace frameworks {

enum class Reading {
    // Nothing stands against replacing the file; so does nothing that is known of it.
    kDone,
    // The system did not let it be read, now or as a whole.
    kFailed,
    // It was read, and is not what it should be.
    kRefused
};

// The last one of a path counts.
void NoteReading(const std::string& path, Reading outcome) noexcept;
Reading LastReadingOf(const std::string& path);

}  // namespace frameworks
