// The sending side of every client connection: a message goes out whole or not at all, and nobody
// ever waits for a slow reader.
//
// Client sockets are non-blocking, so the system may take only the beginning of a message. The rest
// is kept here and sent when the client's socket can be written again. A message to a client that
// has left more than kMostWaiting bytes unread is refused.
//
// A client is known by its socket number. A number that is not (or no longer) a client's is refused
// with EBADF, so a message for somebody who has gone reaches no other descriptor. Whoever holds the
// number now gets it, if it is a client.
//
// Threads: every function may be called on every thread. A client's wrapper is kept until Close,
// also when the run loop that served it has ended before.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <cstddef>
#include <string>

class Outbox {
  public:
    Outbox() = delete;

    static constexpr std::size_t kMostWaiting = 16u << 20;

    // SOCKET is a client from now on; WRAPPER is asked to tell when it can be written.
    static void Open(int socket, CFSocketRef wrapper);
    // Drops what still waits, invalidates the wrapper and closes the descriptor. False, and nothing
    // is closed, when SOCKET is no client.
    static bool Close(int socket);

    // The number of bytes taken over (all of them), or -1 with errno.
    static long Send(int socket, const std::string& bytes);
    // While one of these lives, what its thread sends to the client that it sends to first is
    // gathered, and leaves in one piece at the end: two sends would wake that client up twice. One
    // at a time, and for a moment only. A client that is too far behind is refused at once; that
    // one has just gone shows with the next message.
    class Gathering {
      public:
        Gathering();
        Gathering(const Gathering&) = delete;
        Gathering& operator=(const Gathering&) = delete;
        ~Gathering();

      private:
        friend class Outbox;

        long Add(int itsSocket, const std::string& more);

        int socket = -1;
        std::string bytes;
    };

    // Whether a part of an earlier message to the client SOCKET waits.
    static bool IsWaiting(int socket);
    // To be called when SOCKET can be written: sends what waits, as far as it goes.
    static void Flush(int socket);

  private:
    static Gathering*& GatheringOfThisThread();
    static bool MayGather(int socket);
    static long SendAtOnce(int socket, const std::string& bytes);
};
