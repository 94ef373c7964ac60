// Clients that ask and ask, each on a thread of its own, until the service goes or they are told to
// stop.
#pragma once

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "support/Client.h"

class Load {
  public:
    Load() = default;
    ~Load();
    Load(const Load&) = delete;
    Load& operator=(const Load&) = delete;

    // Sends `question` over and over; every answer must begin with `answer`. That the connection
    // ends is no failure.
    void Add(Client client, std::string question, std::string answer);
    // How many right answers there have been so far, of all clients.
    int Answers() const { return answers; }
    // Ends all clients. Throws Failed for the first wrong answer there was.
    void Stop();

  private:
    void Run(Client client, const std::string& question, const std::string& answer);

    std::atomic<bool> stopping{false};
    std::atomic<int> answers{0};
    std::mutex wrongMutex;
    std::string wrong;
    std::vector<std::thread> threads;
};
