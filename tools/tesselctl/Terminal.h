// What tesselctl says: answers on standard output, complaints as one line each on standard error.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tesselctl {

// Writes the bytes as they are and at once. False when they could not be written; a reader that has
// gone away ("| head") is not a failure worth a complaint, anything else is complained about here,
// once.
bool Say(std::string_view text);

// "tesselctl: " + text, one line.
void Complain(std::string_view text);

// Whether standard output is a terminal, whose control characters must not come from elsewhere.
bool OutputIsSeen();

// Whether it is one on which a line can be written over.
bool OutputIsTerminal();

// The columns of that terminal, 80 when it does not tell.
std::size_t TerminalWidth();

// Whether everything said so far has reached standard output.
bool EverythingSaid();

}  // namespace tesselctl
