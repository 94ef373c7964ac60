#include "net/BrowserGuard.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr Beginning kClient = Beginning::kClient;
constexpr Beginning kBrowser = Beginning::kBrowser;
constexpr Beginning kUndecided = Beginning::kUndecided;

TEST(TakeFor, RequestLines_AreBrowsers) {
    for (const std::string line :
         {"GET / HTTP/1.1", "POST /auth%20x| HTTP/1.0", "PRI * HTTP/2.0", "OPTIONS * HTTP/1.1",
          "CONNECT 127.0.0.1:3426 HTTP/1.1", "GET http://127.0.0.1/ HTTP/1.1",
          "GET /\xC3\xA9 HTTP/1.1", "M-SEARCH2 * HTTP/1.1"}) {
        EXPECT_EQ(kBrowser, TakeFor(line + "\r\n")) << line;
        EXPECT_EQ(kBrowser, TakeFor(line + "\n")) << line;
        EXPECT_EQ(kBrowser, TakeFor(line + "\r\nHost: x\r\n\r\nplatform|")) << line;
    }
}

TEST(TakeFor, AMethodThatIsACommand_IsABrowsersWithTheRestOfTheLine) {
    // Pages may choose methods of their own, with a bar in them.
    EXPECT_EQ(kBrowser, TakeFor("registerChannel /evil| HTTP/1.1\r\n"));
    EXPECT_EQ(kBrowser, TakeFor("hello| / HTTP/1.1\r\n"));
    EXPECT_EQ(kClient, TakeFor("registerChannel /evil|"));
    EXPECT_EQ(kClient, TakeFor("registerChannel /evil| HTTP/1.1"));
}

TEST(TakeFor, WhatIsNearlyARequestLine_IsAClients) {
    for (const std::string_view line :
         {"", "\r", " ", "GET", "GET /", "GET  / HTTP/1.1", "GET / HTTP/1.1 ", "GET / http/1.1",
          "GET / HTTP/1", "GET / HTTP/11", "GET / HTTP/1.x", "GET / HTTP/x.1", "GET / HTTP/1,1",
          "GET / HTTPS/1", "G(T / HTTP/1.1", " GET / HTTP/1.1", "GET /\x7F HTTP/1.1",
          "GET / HTTP/1.1|", "sendDataToChannel a GET / HTTP/1.1"}) {
        EXPECT_EQ(kClient, TakeFor(std::string(line) + "\n")) << line;
    }
}

TEST(TakeFor, Commands_AreClientsFromTheirFirstByteOn) {
    for (const std::string_view command :
         {"auth {0}|", "platform|", "get", "getCoreVersion|", "registerChannel clock|\n",
          "GETCOREVERSION|", "GET x|", "GET ,|", "GET /\x7F", "GET / x", "GET / HTTX", "PLATFORM|",
          "|", "\n", "\r\n", "\x16|", "\x17\x03", "\xC3\xA9|"}) {
        EXPECT_EQ(kClient, TakeFor(command)) << command;
    }
}

TEST(TakeFor, EveryBeginningOfABrowsersFirstLine_IsKeptBack) {
    for (const std::string_view line :
         {"GET /index HTTP/1.1\r\n", "OPTIONS * HTTP/1.0\n", "DELETE http://x/ HTTP/1.1\r\n"}) {
        for (std::size_t size = 0; size < line.size(); ++size) {
            EXPECT_EQ(kUndecided, TakeFor(line.substr(0, size))) << line.substr(0, size);
        }
        EXPECT_EQ(kBrowser, TakeFor(line));
    }
}

TEST(TakeFor, TheBeginningOfTLS_IsABrowsers) {
    EXPECT_EQ(kUndecided, TakeFor("\x16"));
    EXPECT_EQ(kBrowser, TakeFor("\x16\x03"));
    EXPECT_EQ(kBrowser, TakeFor("\x16\x03\x01\x02|platform|"));
}

TEST(TakeFor, TheGreetingOfWebRTC_IsABrowsers) {
    using std::string_literals::operator""s;
    const std::string allocate = "\0\3\0\x8\x21\x12\xA4\x42|platform|xy\0\x19\0\4\x11\0\0\0"s;
    EXPECT_EQ(kBrowser, TakeFor(allocate));
    EXPECT_EQ(kBrowser, TakeFor("\0\x1C"s + allocate));
    EXPECT_EQ(kBrowser, TakeFor(allocate.substr(0, 8)));
    // NULs count for nothing, in a command as before it.
    EXPECT_EQ(kClient, TakeFor("\0platform|"s));
    EXPECT_EQ(kClient, TakeFor(allocate.substr(0, 7)));
    EXPECT_EQ(kClient, TakeFor("\0\0\0\0platform|"s));
    EXPECT_EQ(kClient, TakeFor("x" + allocate));
}

TEST(TakeFor, ALineWithoutEnd_IsABrowsersWhenItIsAnAddress) {
    const std::string tooLong(64 << 10, 'x');
    EXPECT_EQ(kBrowser, TakeFor("GET /" + tooLong));
    EXPECT_EQ(kBrowser, TakeFor("registerChannel /a|" + tooLong));
    EXPECT_EQ(kClient, TakeFor("registerChannel a" + tooLong));
    EXPECT_EQ(kClient, TakeFor("sendDataToChannel /a " + tooLong));
    EXPECT_EQ(kClient, TakeFor(tooLong));
    EXPECT_EQ(kClient, TakeFor("hel(o /a|" + tooLong));
    EXPECT_EQ(kClient, TakeFor("hello| /a\x7F" + tooLong));
    EXPECT_EQ(kUndecided, TakeFor("GET /" + tooLong.substr(100)));
    // So much at least comes at once, and the command in it would be handled.
    EXPECT_EQ(kBrowser, TakeFor("hello| /" + tooLong.substr(0, 8 << 10)));
    EXPECT_EQ(kClient, TakeFor("hello| /" + tooLong.substr(0, 8000)));
}

// --- The guard

// What becomes of a new connection's batches; of a client's, what is to be handled stands there.
std::vector<std::string> Judged(BrowserGuard& guard, const std::vector<std::string>& batches) {
    constexpr int kNumber = 7;
    guard.Expect(kNumber);
    std::vector<std::string> outcomes;
    for (std::string batch : batches) {
        switch (guard.Judge(kNumber, batch)) {
            case kClient:
                outcomes.push_back(batch);
                break;
            case kBrowser:
                outcomes.push_back("refused");
                break;
            case kUndecided:
                outcomes.push_back("kept back");
                break;
        }
    }
    return outcomes;
}

using testing::ElementsAre;

TEST(BrowserGuard, ARequestInPieces_IsRefusedWithItsLastOne) {
    BrowserGuard guard;
    EXPECT_THAT(Judged(guard, {"G", "ET", " / HTTP", "/1.1\r\n"}),
                ElementsAre("kept back", "kept back", "kept back", "refused"));
}

TEST(BrowserGuard, WhatTurnsOutToBeAClients_IsHandledWhole) {
    BrowserGuard guard;
    EXPECT_THAT(Judged(guard, {"GE", "TX|", "GET / HTTP/1.1\n"}),
                ElementsAre("kept back", "GETX|", "GET / HTTP/1.1\n"));
}

TEST(BrowserGuard, ANumberThatIsUsedAgain_BeginsAnew) {
    BrowserGuard guard;
    EXPECT_THAT(Judged(guard, {"GE"}), ElementsAre("kept back"));
    EXPECT_THAT(Judged(guard, {"a|", "GE"}), ElementsAre("a|", "GE"));
    EXPECT_THAT(Judged(guard, {"GET / HTTP/1.1\n"}), ElementsAre("refused"));
}

TEST(BrowserGuard, AConnectionThatWasNotAnnounced_IsAClients) {
    BrowserGuard guard;
    std::string batch = "GET / HTTP/1.1\n";
    EXPECT_EQ(kClient, guard.Judge(3, batch));
    guard.Expect(3);
    guard.Forget(3);
    EXPECT_EQ(kClient, guard.Judge(3, batch));
    EXPECT_EQ("GET / HTTP/1.1\n", batch);
}

}  // namespace
