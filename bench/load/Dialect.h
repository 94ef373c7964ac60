// How one talks to a server: what to do on a new connection, what to ask, what comes back. The
// measurements know servers by this alone; a new server, or a new question to one, is a class here.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "load/Connection.h"
#include "support/Options.h"

class Dialect {
  public:
    Dialect() = default;
    Dialect(const Dialect&) = delete;
    Dialect& operator=(const Dialect&) = delete;
    virtual ~Dialect() = default;

    virtual int Port() const = 0;
    // Takes a new connection to where it may ask.
    virtual void Greet(const Connection& connection) const = 0;
    virtual const std::string& Request() const = 0;
    // The bytes of every answer, or nothing when they differ in a running number.
    virtual const std::string& Answer() const = 0;
    // Asks once, and says how long an answer is; all are equally long.
    virtual std::size_t AskOnce(const Connection& connection) const;
};

// A connection that has been greeted.
Connection Enter(const Dialect& dialect);

// By the options --dialect NAME and --port PORT, or --key-file PATH for the service:
// command, apps: the service's command and apps-communication port
// bare-command, bare-apps: the yardstick, with the words of either
// redis, mpd, mosquitto, dbus
std::unique_ptr<Dialect> DialectFrom(const Options& options);
