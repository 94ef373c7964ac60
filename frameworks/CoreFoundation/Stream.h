// The objects behind CFReadStreamRef and CFWriteStreamRef: a file to be read, and one to be
// replaced.
//
// Threads: one at a time. Failure: as said per operation. A stream has a state that only goes
// forward: it is opened once and closed once.
#pragma once

#include <CoreFoundation/CFStream.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "CoreFoundation/Object.h"
#include "Support/ReplacedFile.h"
#include "Support/UniqueDescriptor.h"

struct __CFReadStream final : frameworks::Object {
    static constexpr const frameworks::Type& kType = frameworks::kReadStreamType;

    explicit __CFReadStream(std::string itsPath) : Object(kType), path(std::move(itsPath)) {}

    bool Open();
    void Close();
    // MOST bytes from where the last reading ended, or all there are when they are fewer. Nothing
    // when the stream is not open or the file cannot be read.
    std::optional<std::string> Read(std::size_t most);
    const std::string& Path() const { return path; }

    std::string Describe() const override;

  private:
    const std::string path;
    frameworks::UniqueDescriptor file;
    bool wasOpened = false;
};

struct __CFWriteStream final : frameworks::Object {
    static constexpr const frameworks::Type& kType = frameworks::kWriteStreamType;

    explicit __CFWriteStream(std::string itsPath) : Object(kType), path(std::move(itsPath)) {}

    bool Open();
    void Close();
    // The file's new contents, which it has when the answer is true. Once for each stream. A file
    // that the last reader of its path refused stays beside, with ".unreadable" behind its name;
    // one that could not be read is not opened at all.
    bool Replace(std::string_view content);
    const std::string& Path() const { return path; }

    std::string Describe() const override;

  private:
    const std::string path;
    std::optional<frameworks::ReplacedFile> file;
    bool wasOpened = false;
};
