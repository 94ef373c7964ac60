// Text from elsewhere made fit to be seen: nothing in it can steer a terminal.
#pragma once

#include <string>
#include <string_view>

namespace tesselctl {

// Control characters become what people know them by ("^[" for escape, "^@" for NUL), those of the
// second set and bytes that are not UTF-8 "\x9b". Everything else stays as it is.
std::string Printable(std::string_view text);

// A JSON string with its quotes. It is ASCII: other characters are escaped, and a byte that is not
// UTF-8 becomes the replacement character.
std::string JsonString(std::string_view text);

}  // namespace tesselctl
