// The text of a desktop entry: what it starts, in the quoting that such files have.
//
// Threads: any. Failure: none.
#pragma once

#include <string>
#include <string_view>

namespace frameworks {

// A value as it stands behind "Key=".
std::string EscapedValue(std::string_view text);
// An argument as it stands in the value of "Exec": quoted, and then escaped as every value is.
std::string QuotedArgument(std::string_view argument);

}  // namespace frameworks
