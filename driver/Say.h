// Telling people something, on standard error, under the program's name.
#pragma once

#include <string>

namespace driver {

void Say(const std::string& text);

}  // namespace driver
