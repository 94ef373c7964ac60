#include "load/Mqtt.h"

#include "support/Failure.h"

namespace mqtt {
namespace {

enum class Packet : unsigned char { kConnect = 0x10, kPublish = 0x30, kSubscribe = 0x82 };

std::string Text(const std::string& text) {
    return std::string({static_cast<char>(text.size() >> 8), static_cast<char>(text.size())}) +
           text;
}

std::string Framed(Packet type, const std::string& body) {
    std::string packet(1, static_cast<char>(type));
    // Seven bits a byte, the lowest first; the eighth says that more follow.
    std::size_t length = body.size();
    do {
        const std::size_t seven = length % 128;
        length /= 128;
        packet.push_back(static_cast<char>(length > 0 ? seven | 0x80 : seven));
    } while (length > 0);
    return packet + body;
}

}  // namespace

void Enter(const Connection& connection) {
    const char kCleanSession = 2;
    const std::string protocol = Text("MQTT") + std::string({4, kCleanSession, 0, 0});
    connection.Send(Framed(Packet::kConnect, protocol + Text("")));
    if (connection.Receive(4) != std::string({0x20, 2, 0, 0})) {
        throw Failure("the broker has refused the connection");
    }
}

void Subscribe(const Connection& connection, const std::string& topic) {
    const std::string identifier({0, 1});
    connection.Send(Framed(Packet::kSubscribe, identifier + Text(topic) + '\0'));
    if (connection.Receive(5) != std::string({'\x90', 3, 0, 1, 0})) {
        throw Failure("the broker has refused the subscription");
    }
}

std::string Publication(const std::string& topic, const std::string& payload) {
    return Framed(Packet::kPublish, Text(topic) + payload);
}

}  // namespace mqtt
