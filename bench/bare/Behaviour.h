// What a bare server does with its clients.
#pragma once

class Behaviour {
  public:
    Behaviour() = default;
    Behaviour(const Behaviour&) = delete;
    Behaviour& operator=(const Behaviour&) = delete;
    virtual ~Behaviour() = default;

    virtual void Came(int /*client*/) {}
    // What can be read, a client or what the behaviour watches itself. False when it has come to
    // its end.
    virtual bool Serve(int socket) = 0;
    virtual void Went(int /*client*/) {}
};
