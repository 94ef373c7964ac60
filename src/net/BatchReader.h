// Reads what a client has sent, for the server that then decodes and frames it. Knows no protocol.
#pragma once

#include <string>

enum class Received {
    kBatch,    // some bytes
    kNothing,  // none this time; an error has been logged unless there was just nothing to read
    kClosed,   // the peer has closed the connection
};

// Appends to BATCH what SOCKET gives now: chunks of 512 bytes until one comes short. So that one
// client cannot keep the others waiting, a batch also ends at kLargestBatch bytes, at the end of a
// UTF-8 sequence; the run loop comes back for the rest.
// A message of 64 KiB, with the words around it, fits in one.
constexpr std::size_t kLargestBatch = 72u << 10;
Received ReceiveBatch(int socket, std::string& batch);
