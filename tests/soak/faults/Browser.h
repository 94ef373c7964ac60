// An HTTP request that a browser sends to a port, for whatever page wants it to. Throws Failed
// unless the connection is closed without an answer.
#pragma once

#include "World.h"

void SendHTTP(World& world, Random& random, int port);
