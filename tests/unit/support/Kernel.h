// What a child process asks of the kernel to bring about what is hard to meet otherwise. All of it
// lasts as long as the process.
#pragma once

#include <sys/types.h>

#include <vector>

// The user stays root, if it is, but may do no more than anybody else.
void GiveUpRootsRights();

// From now on the system call NUMBER (SYS_...) does nothing but fail with ERROR. Several may fail.
void LetFail(long number, int error);

// Lets the user with that id be the owner of /dev/console, for this process alone. False when the
// process may not do that: only root can, and not in every container.
bool PutAtTheConsole(uid_t user);

// Lets the processes that are forked from now on see only each other, in a process table of their
// own that goes with the first of them. That one must call the second function. False when the
// process may not do that.
bool LeaveTheProcessTable();
bool EnterTheNewProcessTable();

// From now on this process has a network to itself, with nothing but 127.0.0.1 in it, so that
// nobody else's ports come in the way. False when the process may not do that: only root can.
bool EnterANetworkOfItsOwn();

// The descriptors above the standard ones that are open now.
std::vector<int> OpenDescriptors();
