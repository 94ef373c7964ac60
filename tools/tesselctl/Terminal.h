// What tesselctl says: answers on standard output, complaints as one line each on standard error.
#pragma once

#include <string>
#include <string_view>

namespace tesselctl {

// Writes the bytes as they are and at once. False when they could not be written; a reader that has
// gone away ("| head") is not a failure worth a complaint, anything else is complained about here,
// once.
bool Say(std::string_view text);

// "tesselctl: " + text, one line.
void Complain(std::string_view text);

// Whether everything said so far has reached standard output.
bool EverythingSaid();

}  // namespace tesselctl
