// Property lists: strings, numbers, truth values, dates, data, arrays and dictionaries as a file.
//
// Read and written with libplist, which is loaded when the first property list is met. That library
// trusts its input more than a file deserves, so everything is looked at first: what is nested too
// deep, or would grow too large by naming one object many times, never reaches it. What has been
// read is written again without loss.
//
// Owner: the reader owns what it is given. Threads: any, while nobody changes a list. Failure:
// nothing, for what is no property list, is beyond the limits below, or holds what has no object
// here (texts in other encodings than UTF-8 or with the character NUL, the references of keyed
// archives).
#pragma once

#include <CoreFoundation/CFPropertyList.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "CoreFoundation/Object.h"

namespace frameworks {

// Files of the system stay far below these: the arrays and dictionaries within each other, the
// bytes of the file, and about what its objects take, each as often as it is named.
constexpr std::size_t kDeepestPropertyList = 256;
constexpr std::size_t kLargestPropertyList = std::size_t{16} << 20;
constexpr std::size_t kLargestContents = std::size_t{64} << 20;

// Whether arrays and dictionaries may be changed by whoever reads them.
enum class Containers { kFrozen, kMutable };

// BYTES are XML or the binary form. Which of them is stored when FORMAT is not null and there is a
// list.
Ref<const Object> ReadPropertyList(std::string_view bytes, Containers containers,
                                   CFPropertyListFormat* format = nullptr);

// The entries of dictionaries are in the order of their keys.
std::optional<std::string> WritePropertyList(const Object& list, CFPropertyListFormat format);

// With everything in it, and frozen.
Ref<const Object> CopyPropertyList(const Object& list);

}  // namespace frameworks
