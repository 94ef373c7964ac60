// Keeps web browsers out. Any page can make its reader's browser connect to a port of 127.0.0.1 and
// send what the page likes, wrapped into an HTTP request or into the beginning of TLS or of WebRTC.
// No client of the service speaks any of them, so a connection that begins with it is refused
// before a byte of it gets among the commands.
//
// Owner and thread: the server that asks, one guard each. Knows only the first line of a
// connection, and keeps that back for as long as it may still become a request's: "GE" may be the
// beginning of both "GET / HTTP/1.1" and a command. Never fails.
//
// The first line of a request: RFC 9112, section 3. A TLS handshake's head: RFC 8446, section 5.1.
// WebRTC's greeting: RFC 8489, section 5, and behind its length RFC 6544, section 3.
#pragma once

#include <map>
#include <string>
#include <string_view>

// What the first bytes of a connection, as far as they have come, are taken for.
enum class Beginning { kClient, kBrowser, kUndecided };
Beginning TakeFor(std::string_view bytes);

class BrowserGuard {
  public:
    // A new connection, whose number may have been another one's before.
    void Expect(int client);
    void Forget(int client);
    // To be asked about everything that a client sends. With kClient, BATCH is to be handled, and
    // what had been kept back stands in it before the rest; with kUndecided there is nothing to be
    // handled yet. A connection that was never announced is a client's.
    Beginning Judge(int client, std::string& batch);

  private:
    // What has been kept back, of connections that nothing has been handled of.
    std::map<int, std::string> beginnings;
};
