// An application on the disk, as far as it matters for finding and launching it.
//
// Threads: one at a time. Failure: a bundle whose Info.plist is missing or broken has no identifier
// and no version, and its executable is called like the bundle.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "LaunchServices/FileStamp.h"

namespace frameworks {

// Whether PATH is named like an application.
bool IsNamedLikeApplication(std::string_view path);

// The executable of the application at PATH, be it there or not. Empty when the Info.plist names
// one that would lie elsewhere.
std::string ExecutableOf(const std::string& bundle);

// Whether it lies in somebody's trash.
bool IsInTrash(std::string_view path);

// With all letters of ASCII small.
std::string InLowerCase(std::string_view text);

class ApplicationBundle {
  public:
    explicit ApplicationBundle(std::string itsPath);

    // Reads the Info.plist again if it has changed; whether it has.
    bool Refresh();
    // Whether it was read too shortly after it was written to be sure, or says too little to be all
    // that there will be.
    bool IsUnsettled() const { return !read.IsSettled() || identifier.empty(); }

    const std::string& Path() const { return path; }
    // In small letters.
    const std::string& Identifier() const { return identifier; }
    // The numbers of CFBundleVersion.
    const std::vector<unsigned long>& Version() const { return version; }
    // An Info.plist is there that says nothing.
    bool IsBroken() const { return isBroken; }

  private:
    void Read();

    std::string path;
    std::string usualInfo;
    FileStamp read;
    std::string identifier;
    std::vector<unsigned long> version;
    bool isBroken = false;
};

}  // namespace frameworks
