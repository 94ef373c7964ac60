// What the service does when the system has no memory for it.
//
// As with descriptors that have run out, it waits for better times: whoever asked waits with it and
// gets the memory in the end, so that nothing anywhere has to be undone half-way. When one and the
// same request has been in vain for a second, the service says so on standard error and ends with
// status 1, for its manager to start it anew.
//
// Threads: any may be the one that asks. Holds for operator new; what asks malloc itself gets its
// refusal.
#pragma once

// From now on. To be called before anything is allocated.
void WaitForMemoryWhenThereIsNone();
