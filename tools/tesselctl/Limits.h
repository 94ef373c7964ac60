// How long tesselctl waits for what. Tests make them short.
#pragma once

#include <chrono>
#include <functional>

namespace tesselctl {

// Ends a wait early: while a wait lasts, `descriptor` is watched too, and when it becomes readable
// `stop` reads it and says whether to give up. Without a descriptor nothing interrupts.
struct Interruption {
    int descriptor = -1;
    std::function<bool()> stop;
};

struct Limits {
    // Until a connection stands, and until the service has answered the key. The service runs on
    // this machine and answers in less than a millisecond, unless a long command of somebody else's
    // blocks it.
    std::chrono::milliseconds handshake{5000};
    // For the answer to a command. Installations take minutes and wait for a person to type a
    // password; 0 is for ever.
    std::chrono::milliseconds answer{std::chrono::minutes(15)};
    // How long a connection must stay open unasked to show that the service is free, for a busy one
    // closes it at once: a glance before the key is shown once more, and surely before the key is
    // called refused.
    std::chrono::milliseconds glance{20};
    std::chrono::milliseconds quiet{300};
    // How long to wait for the other client of a busy service to go: two commands at the same
    // moment both succeed.
    std::chrono::milliseconds patience{1000};
    // How long the service may take to notice that we have gone, before we go all the same.
    std::chrono::milliseconds farewell{300};

    Interruption interruption;
};

}  // namespace tesselctl
