// The few calls that every bare server makes.
#pragma once

#include <cstddef>

#include "support/Descriptor.h"

Descriptor Listen(int port);
// Without delay, and non-blocking; -1 when there is none.
int Accept(int listener);
void Watch(int epoll, int socket);
// False when the client is gone. A full socket is waited for: the only client that fills it is the
// one that is being measured.
bool SendAll(int client, const char* bytes, std::size_t length);
