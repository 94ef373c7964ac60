// While one lives, the thread that made it is interrupted a thousand times a second, in whatever
// system call it is.
#pragma once

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <thread>

class Interruptions {
  public:
    Interruptions() {
        struct sigaction action = {};
        action.sa_handler = [](int) {};
        // Without SA_RESTART.
        sigaction(SIGURG, &action, &before);
        interrupter = std::thread([this, interrupted = pthread_self()] {
            while (!stopping) {
                pthread_kill(interrupted, SIGURG);
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        });
    }
    Interruptions(const Interruptions&) = delete;
    Interruptions& operator=(const Interruptions&) = delete;
    ~Interruptions() {
        stopping = true;
        interrupter.join();
        sigaction(SIGURG, &before, nullptr);
    }

  private:
    struct sigaction before = {};
    std::atomic<bool> stopping{false};
    std::thread interrupter;
};
