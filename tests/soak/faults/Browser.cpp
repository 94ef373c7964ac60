// A web page tries what it can: none of it is a message, nobody is answered, and nobody else's
// messages meet what it sends. On the pressure port PenLoad does it, which has to know who spoke
// last there.
#include "faults/Browser.h"

#include "Talk.h"
#include "faults/Fault.h"

namespace {

class Browser : public Fault {
  public:
    Browser() : Fault("HTTP requests", false) {}

    void Begin(World& world, Random& random) override {
        const KeyFile& keys = world.service->Keys();
        for (const int port : {keys.commandPort, keys.appsPort}) {
            const BetweenDoors between(world.doors);
            SendHTTP(world, random, port);
        }
    }
    std::chrono::milliseconds Time(Random& /*random*/) const override { return {}; }
    void End(World& /*world*/) override {}
};

}  // namespace

void SendHTTP(World& world, Random& random, int port) {
    Talk page(world, port, "HTTP requests",
              [](const std::string& message) { return message.compare(0, 8, "PenData.") == 0; });
    try {
        page.Send(random.Of(std::vector<std::string>{
            "GET /platform| HTTP/1.1\r\nHost: localhost\r\n\r\n",
            "POST / HTTP/1.1\r\nContent-Type: text/plain\r\n\r\nregisterChannel evil|",
            "OPTIONS * HTTP/1.1\r\n\r\n", "GET / HTTP/1.1\r\nUpgrade: websocket\r\n\r\n"}));
    } catch (const Talk::Ended&) {
        // Closed meanwhile.
    }
    page.ExpectClosed();
}

std::unique_ptr<Fault> MakeBrowser() {
    return std::make_unique<Browser>();
}
