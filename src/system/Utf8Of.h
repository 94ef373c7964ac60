// The text of a value that a property list or a caller has given, as UTF-8.
//
// Threads: any. Failure: nothing for what is no text, and where memory has run out.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <optional>
#include <string>

// VALUE may be null or of any type. A text of any length comes whole.
std::optional<std::string> Utf8Of(CFTypeRef value);
