// A page in a real browser, which can make it connect to every port of the loopback and send what
// it likes, wrapped as a browser wraps it.
#include <gmock/gmock.h>

#include "support/Files.h"
#include "support/Load.h"
#include "support/Service.h"
#include "support/WebPage.h"

namespace {

using testing::Each;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

constexpr int kTimes = 100;

class HostileWebPage : public testing::Test {
  protected:
    void SetUp() override {
        if (!WebPage::CanBeOpened()) {
            GTEST_SKIP() << WebPage::kMissing;
        }
        service.emplace(sandbox);
        service->WaitUntilListening();
    }

    std::vector<int> Ports() const {
        return {service->Keys().commandPort, service->Keys().pressurePort,
                service->Keys().appsPort};
    }
    std::size_t Refusals(int port) const {
        return CountOf(service->Output(),
                       "error web browser refused [" + std::to_string(port) + "]\n");
    }
    // Nothing that the page has sent was taken for a command, whatever the server.
    void ExpectNoEffect() const {
        const std::string output = service->Output();
        EXPECT_THAT(output, Not(HasSubstr(WebPage::kEvilWord)));
        EXPECT_THAT(output, Not(HasSubstr(WebPage::kEvilChannel)));
        EXPECT_THAT(output, Not(HasSubstr("Processing command:\nplatform")));
        EXPECT_THAT(output, Not(HasSubstr("Sending pressure started")));
        EXPECT_THAT(output, Not(HasSubstr("HTTP/")));
    }

    Sandbox sandbox;
    std::optional<Service> service;
};

// Not one of the shapes is known to be sent unless somebody has seen its bytes.
void ExpectToHaveArrived(const WebPage& page) {
    for (const Shape shape : kShapes) {
        EXPECT_THAT(page.Arrived(shape), SizeIs(testing::Ge(kTimes)))
            << "shape " << static_cast<int>(shape);
        if (shape != Shape::kTls) {
            EXPECT_THAT(page.Arrived(shape), Each(HasSubstr("|evilWord|")));
        }
    }
    EXPECT_THAT(page.Arrived(Shape::kHostName), Each(HasSubstr("Host: evil.example:")));
    EXPECT_THAT(page.Arrived(Shape::kHostName),
                testing::Contains(StartsWith("evilWord| /")).Times(kTimes * 3 / 4));
}

TEST_F(HostileWebPage, HasNoEffectOnAnyPortAndSpoilsNobodysMessage) {
    service->WaitUntilBothThreadsServe();
    Client watcher = service->ConnectToApps();
    EXPECT_EQ(watcher.Ask("registerChannel watcher"), "Success ChannelRegistered=true");
    // Half a message on every port: the unfinished end belongs to the server.
    Client command = service->ConnectToCommand();
    Client pressure = service->ConnectToPressure();
    Client apps = service->ConnectToApps();
    const std::string attempt = "auth " + service->Keys().key + "|";
    command.Send(attempt.substr(0, 20));
    pressure.Send("goodW");
    apps.Send("registerChannel cl");
    for (const Client* const client : {&command, &pressure, &apps}) {
        client->WaitUntilRead(sandbox);
    }
    const std::size_t descriptors = service->OpenDescriptors();

    WebPage page(sandbox, Ports(), kTimes);
    page.Open();
    ExpectToHaveArrived(page);
    for (const int port : Ports()) {
        EXPECT_GE(Refusals(port), kTimes * std::size(kShapes)) << port;
    }
    WaitUntil("all connections are closed",
              [&] { return service->OpenDescriptors() == descriptors; });
    ExpectNoEffect();

    command.Send(attempt.substr(20));
    EXPECT_EQ(command.Receive(), "authOk");
    pressure.Send("ord|");
    EXPECT_THAT(pressure.Receive(), StartsWith("SyntaxError Unknown command - "));
    service->WaitForOutput("Processing command:\ngoodWord\n");
    apps.Send("ock|");
    EXPECT_EQ(apps.Receive(), "Success ChannelRegistered=true");
    // The only news that there were.
    EXPECT_EQ(watcher.Receive(), "BroadcastRegisteredChannel=clock");
    EXPECT_EQ(watcher.Ask("sendDataToChannel evilChannel x 1"), "Success DataSentToChannelError=1");
    watcher.ExpectSilence();
}

TEST_F(HostileWebPage, WhileTheDockIsThere_IsNotEvenHeardByTheCommandPort) {
    Load dock;
    dock.Add(service->Authorized(), "getCoreVersion", "Success CoreVersion=");
    WaitUntil("the dock is answered", [&] { return dock.Answers() > 0; });

    WebPage page(sandbox, {service->Keys().commandPort}, kTimes);
    page.Open();
    ExpectToHaveArrived(page);
    const int answers = dock.Answers();
    WaitUntil("the dock is answered as before", [&] { return dock.Answers() > answers + 10; });
    dock.Stop();
    EXPECT_EQ(CountOf(service->Output(), "New connection: "), 1U);
    EXPECT_EQ(Refusals(service->Keys().commandPort), 0U);
    ExpectNoEffect();
}

// What WebRTC makes a browser send to an address of the page's choice; here without a browser,
// which sends nothing of it on a machine that has only a loopback.
TEST(HostileWebRtc, TheGreetingOfATurnServerAndOfAPeer_TouchNobodysMessage) {
    using std::string_literals::operator""s;
    const std::string kAllocate = "\0\3\0\x8\x21\x12\xA4\x42|platform|xy\0\x19\0\4\x11\0\0\0"s;
    const std::string kBinding = "\0\x1C\0\1\0\x8\x21\x12\xA4\x42|platform|xy\0\6\0\3a|b\0"s;
    Sandbox sandbox;
    Service service(sandbox);
    service.WaitUntilListening();
    Client pressure = service.ConnectToPressure();
    Client apps = service.ConnectToApps();
    pressure.Send("getDriver");
    apps.Send("registerChannel cl");
    pressure.WaitUntilRead(sandbox);
    apps.WaitUntilRead(sandbox);
    std::vector<Client> browsers;
    for (const std::string& greeting : {kAllocate, kBinding}) {
        for (const int port :
             {service.Keys().commandPort, service.Keys().pressurePort, service.Keys().appsPort}) {
            browsers.emplace_back(sandbox.Connect(port));
            browsers.back().Send(greeting);
            browsers.back().ExpectClosed();
        }
    }
    pressure.Send("Version|");
    EXPECT_THAT(pressure.Receive(), StartsWith("Success DriverVersion="));
    apps.Send("ock|");
    EXPECT_EQ(apps.Receive(), "Success ChannelRegistered=true");
    EXPECT_EQ(service.Authorized().Ask("platform"), "Success MACOSX");
    EXPECT_EQ(CountOf(service.Output(), "Processing command:\n"), 4U);
    EXPECT_EQ(CountOf(service.Output(), "error web browser refused ["), 6U);
}

}  // namespace
