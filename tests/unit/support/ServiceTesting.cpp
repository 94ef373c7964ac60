#include "unit/support/ServiceTesting.h"

#include <Carbon/Carbon.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <thread>

#include "net/ConnectionManager.h"
#include "unit/support/ForkedTest.h"
#include "unit/support/ServerTesting.h"

namespace {

// What stands between <NAME> and </NAME> in TEXT.
std::string ElementOf(const std::string& text, const std::string& name) {
    const std::string opening = "<" + name + ">";
    const std::size_t start = text.find(opening);
    const std::size_t end = text.find("</" + name + ">");
    if (start == std::string::npos || end == std::string::npos) {
        ADD_FAILURE() << "no " << name << " in '" << text << "'";
        return std::string();
    }
    return text.substr(start + opening.size(), end - start - opening.size());
}

}  // namespace

Published ReadPublished() {
    const std::string text = ReadFile(Home() + "/Library/Application Support/Velto/tesselAuth.key");
    Published published;
    published.commandPort = std::atoi(ElementOf(text, "commandPort").c_str());
    published.pressurePort = std::atoi(ElementOf(text, "pressurePort").c_str());
    published.appsPort = std::atoi(ElementOf(text, "airAppsPort").c_str());
    published.key = ElementOf(text, "authKey");
    return published;
}

void Serve(const std::function<void(const Published& published)>& clients) {
    ASSERT_EQ(1, ConnectionManager::Init());
    std::thread thread([&clients] {
        const Published published = ReadPublished();
        {
            // A loop that does not run yet would not notice that it is to end.
            const Peer first(published.appsPort);
            first.Send("are you there|");
            EXPECT_EQ("Success ", first.ReceiveMessage());
        }
        clients(published);
        QuitApplicationEventLoop();
    });
    ConnectionManager::HandleRequests();
    thread.join();
}
