#include <unistd.h>

#include <string>

#include "load/Dialects.h"
#include "support/Failure.h"

namespace {

// As long as a command of the service.
constexpr char kPayload[] = "platform|";

enum class Packet : unsigned char { kConnect = 0x10, kPublish = 0x30, kSubscribe = 0x82 };

std::string Text(const std::string& text) {
    return std::string({static_cast<char>(text.size() >> 8), static_cast<char>(text.size())}) +
           text;
}

// BODY is short enough for a length of one byte.
std::string Framed(Packet type, const std::string& body) {
    return std::string({static_cast<char>(type), static_cast<char>(body.size())}) + body;
}

class MosquittoDialect : public Dialect {
  public:
    explicit MosquittoDialect(int itsPort)
        : port(itsPort),
          topic("bench/" + std::to_string(getpid())),
          message(Framed(Packet::kPublish, Text(topic) + kPayload)) {}

    int Port() const override { return port; }

    void Greet(const Connection& connection) const override {
        const char kCleanSession = 2;
        const std::string protocol = Text("MQTT") + std::string({4, kCleanSession, 0, 0});
        connection.Send(Framed(Packet::kConnect, protocol + Text("")));
        if (connection.Receive(4) != std::string({0x20, 2, 0, 0})) {
            throw Failure("the broker has refused the connection");
        }
        const std::string identifier({0, 1});
        connection.Send(Framed(Packet::kSubscribe, identifier + Text(topic) + '\0'));
        if (connection.Receive(5) != std::string({'\x90', 3, 0, 1, 0})) {
            throw Failure("the broker has refused the subscription");
        }
    }

    const std::string& Request() const override { return message; }
    const std::string& Answer() const override { return message; }

  private:
    const int port;
    const std::string topic;
    const std::string message;
};

}  // namespace

std::unique_ptr<Dialect> MakeMosquittoDialect(int port) {
    return std::make_unique<MosquittoDialect>(port);
}
