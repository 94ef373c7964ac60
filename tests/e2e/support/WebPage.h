// A web page of somebody who means harm, and a real browser inside the sandbox that opens it.
//
// The page makes the browser send commands to ports of the loopback in every shape that a page
// has, each again and again, and tells when all of them have failed or been answered. One of the
// ports is that of a server which writes down what really comes. Threads: the class's own answer
// the browser; its members are for the test's. All throw Failed.
#pragma once

#include <atomic>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "support/Sandbox.h"

// How bytes of the page's choice get out of a browser.
enum class Shape { kFetch, kForm, kWebSocket, kHostName, kTls };
constexpr Shape kShapes[] = {Shape::kFetch, Shape::kForm, Shape::kWebSocket, Shape::kHostName,
                             Shape::kTls};

class WebPage {
  public:
    // In everything that the page sends there are these words as messages.
    static constexpr char kEvilWord[] = "evilWord";
    static constexpr char kEvilChannel[] = "evilChannel";

    // Whether there is a browser.
    static bool CanBeOpened();
    static constexpr char kMissing[] =
        "there is no browser: the package chromium-headless-shell is not installed";

    // Sends every shape TIMES times to each of the PORTS, once it is open.
    WebPage(Sandbox& itsSandbox, const std::vector<int>& ports, int times);
    ~WebPage();
    WebPage(const WebPage&) = delete;
    WebPage& operator=(const WebPage&) = delete;

    // Returns when the page is done and the browser has ended.
    void Open();
    // What came to the server that writes down, of that shape: what stood in each connection up to
    // the end of a request's head.
    std::vector<std::string> Arrived(Shape shape) const;

  private:
    // A connection of the browser's.
    struct Visitor {
        Descriptor connection;
        bool ofPage;
        std::string bytes;
    };

    void Serve();
    void Accept(const Descriptor& listener, std::vector<Visitor>& visitors) const;
    // Whether there is more to come.
    bool Read(Visitor& visitor) const;
    void Finish(Visitor& visitor);
    void AnswerAsPage(const Visitor& visitor);

    Sandbox& sandbox;
    std::string text;
    Descriptor page;
    Descriptor witness;
    std::atomic<bool> done{false};
    std::atomic<bool> stopping{false};
    mutable std::mutex mutex;
    std::vector<std::string> arrived;
    std::thread server;
};
