// Deletes a folder with all that is in it, entry by entry, and tries again where something is busy.
//
// For the thread that handles commands, which it may hold up for about a minute per busy entry.
// Every step is logged, indented by the depth. The last of the attempts at an entry (the 64th) and
// at a folder (the 5th) counts as a success whatever came of it: whether the folder is gone is for
// the caller to see.
#pragma once

#include <Carbon/Carbon.h>

#include <string>

class RmDir {
  public:
    // 1 for success, 0 for failure.
    int remove(const FSRef* folder, int depth);
    // TEXT behind OFFSET times two blanks.
    std::string generateWithOffset(const char* text, int offset) const;

  private:
    // What became of an entry that is no folder with something in it. False when it failed before
    // the last attempt.
    bool removeEntry(const FSRef* entry, int depth, OSStatus& status);
    // All entries; false as soon as one fails, and the folders behind it are left alone.
    bool removeEntries(const FSRef* folder, int depth, OSStatus& status);
    bool removeEmptied(const FSRef* folder, int depth);
    void logFailure(OSStatus status, int depth) const;
};
