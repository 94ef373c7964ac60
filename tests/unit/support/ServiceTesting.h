// The three servers as the connection manager runs them, for a child process, with the test as
// their clients.
#pragma once

#include <functional>
#include <string>

// What the service has published.
struct Published {
    int commandPort = 0;
    int pressurePort = 0;
    int appsPort = 0;
    std::string key;
};

Published ReadPublished();

// Starts the three servers, and serves on this thread, which is the main one, while CLIENTS runs on
// another one; ends the service when it is done.
void Serve(const std::function<void(const Published& published)>& clients);
