// The behaviours that there are.
#pragma once

#include <memory>
#include <string>

#include "bare/Behaviour.h"
#include "support/Options.h"

// --answers one|each|all, with --answer TEXT.
std::unique_ptr<Behaviour> MakeAnswering(const Options& options);

// What one client sends goes to all others, a message in one send.
std::unique_ptr<Behaviour> MakeRelaying();

// A client that sends a process number and a bar gets what the service sends of each pen event of
// that process; TOGETHER in one send.
std::unique_ptr<Behaviour> MakePenHop(int epoll, bool together);
