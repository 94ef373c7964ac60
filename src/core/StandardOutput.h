// Standard output as a service needs it: buffered like any file, yet up to date whenever the
// service waits.
#pragma once

// Opens /dev/null in the place of every standard descriptor that the parent has closed, so that no
// socket or file of the service ever gets the number 0, 1 or 2. To be called before anything is
// opened.
void OpenStandardDescriptors();

// Writes out what is buffered. What cannot be written is lost: there is no other place to say so.
void FlushStandardOutput();

// From now on standard output is flushed whenever this thread's run loop is about to wait: a reader
// sees every line at once, and a busy service pays for one write a turn instead of one a line.
void FlushStandardOutputBeforeWaiting();
