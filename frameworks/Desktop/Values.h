// Looking into a property list that may hold anything.
//
// Threads: any, while nobody changes the list. Failure: null, or an empty text, for what is not
// there or of another type.
#pragma once

#include <string_view>

#include "CoreFoundation/Array.h"
#include "CoreFoundation/Dictionary.h"
#include "CoreFoundation/Object.h"

namespace frameworks {

const __CFArray* ArrayIn(const Object& dictionary, std::string_view key);
std::string_view TextIn(const Object& dictionary, std::string_view key);

}  // namespace frameworks
