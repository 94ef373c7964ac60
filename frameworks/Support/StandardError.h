// Writing to standard error past the C streams.
//
// A stream that was once used for wide characters loses every narrow text without a word, so what
// must be seen goes to the descriptor itself, in one write, and so in one piece. Threads: any.
// Failure: what cannot be written is dropped; there is nowhere left to say so.
#pragma once

#include <string_view>

namespace frameworks {

void WriteToStandardError(std::string_view text);

}  // namespace frameworks
