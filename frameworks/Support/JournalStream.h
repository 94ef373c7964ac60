// A descriptor whose lines go to the system's journal.
//
// Backed by journald's socket for the standard output of services. Threads: any. Failure: a
// descriptor that is not open where there is no journal.
#pragma once

#include <string_view>

#include "Support/UniqueDescriptor.h"

namespace frameworks {

constexpr char kJournalSocket[] = "/run/systemd/journal/stdout";

// IDENTIFIER is what the lines are filed under: a program's name.
UniqueDescriptor OpenJournalStream(std::string_view identifier,
                                   const char* socketPath = kJournalSocket);

}  // namespace frameworks
