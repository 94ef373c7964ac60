// Waits between two attempts, or until another program may be done. For the thread that handles
// commands, which it holds up.
#pragma once

// Whoever reads the log sees what has been logged before the wait, not behind it.
void Pause(unsigned seconds);
