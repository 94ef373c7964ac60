// What is looked at before a property list's bytes reach the library that reads them.
//
// Threads: any. Failure: false, or nothing, for what is malformed or beyond the limits of
// PropertyList.h.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace frameworks {

bool IsBinaryPropertyList(std::string_view bytes);

// Follows every object from the first one: none lies outside, none holds itself, and all of them
// together, each as often as it is named, stay within the limits.
bool IsSoundBinaryPropertyList(std::string_view bytes);

// The same property list with its elements and texts alone: no prolog, comments, attributes or
// unparsed sections are left, so that whoever reads it finds the depth that was counted here.
std::optional<std::string> PlainXMLPropertyList(std::string_view xml);

}  // namespace frameworks
