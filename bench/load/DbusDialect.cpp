#include <cstdint>
#include <cstring>
#include <string>

#include "load/Dialects.h"
#include "support/Failure.h"

namespace {

constexpr char kCall = 1;
constexpr char kReturn = 2;
constexpr char kVersion = 1;
constexpr std::size_t kHeaderLength = 16;

void Align(std::string& bytes, std::size_t to) {
    bytes.resize((bytes.size() + to - 1) / to * to, '\0');
}

void Append(std::string& bytes, std::uint32_t number) {
    char raw[sizeof number];
    std::memcpy(raw, &number, sizeof raw);
    bytes.append(raw, sizeof raw);
}

std::uint32_t NumberAt(const std::string& bytes, std::size_t offset) {
    std::uint32_t number;
    std::memcpy(&number, bytes.data() + offset, sizeof number);
    return number;
}

// One header field: its code and a variant that holds a text.
void AppendField(std::string& bytes, char code, char type, const std::string& text) {
    Align(bytes, 8);
    bytes += {code, 1, type, '\0'};
    Append(bytes, static_cast<std::uint32_t>(text.size()));
    bytes += text + '\0';
}

// A method call without arguments to the daemon itself. The serial may be the same every time: the
// daemon only hands it back.
std::string Call(const std::string& interface, const std::string& member) {
    std::string fields;
    AppendField(fields, 1, 'o', "/org/freedesktop/DBus");
    AppendField(fields, 2, 's', interface);
    AppendField(fields, 3, 's', member);
    AppendField(fields, 6, 's', "org.freedesktop.DBus");
    // The byte order is the machine's.
    const std::uint16_t one = 1;
    const bool little = *reinterpret_cast<const char*>(&one) == 1;
    std::string message = {little ? 'l' : 'B', kCall, 0, kVersion};
    Append(message, 0);
    Append(message, 1);
    Append(message, static_cast<std::uint32_t>(fields.size()));
    message += fields;
    Align(message, 8);
    return message;
}

struct Message {
    char type;
    std::size_t length;
};

Message TakeMessage(const Connection& connection) {
    const std::string header = connection.Receive(kHeaderLength);
    const std::size_t fields = (NumberAt(header, 12) + 7u) / 8 * 8;
    const std::size_t rest = fields + NumberAt(header, 4);
    connection.Receive(rest);
    return {header[1], kHeaderLength + rest};
}

class DbusDialect : public Dialect {
  public:
    explicit DbusDialect(int itsPort)
        : port(itsPort), ping(Call("org.freedesktop.DBus.Peer", "Ping")) {}

    int Port() const override { return port; }

    void Greet(const Connection& connection) const override {
        connection.Send(std::string(1, '\0') + "AUTH ANONYMOUS\r\n");
        if (connection.ReceiveUntil('\n').compare(0, 3, "OK ") != 0) {
            throw Failure("the bus has refused the connection");
        }
        connection.Send("BEGIN\r\n" + Call("org.freedesktop.DBus", "Hello"));
        // The answer, and a signal that tells of the connection's new name.
        TakeMessage(connection);
        TakeMessage(connection);
    }

    const std::string& Request() const override { return ping; }
    const std::string& Answer() const override { return unknown; }

    std::size_t AskOnce(const Connection& connection) const override {
        connection.Send(ping);
        const Message answer = TakeMessage(connection);
        if (answer.type != kReturn) {
            throw Failure("the bus has refused the call");
        }
        return answer.length;
    }

  private:
    const int port;
    const std::string ping;
    const std::string unknown;
};

}  // namespace

std::unique_ptr<Dialect> MakeDbusDialect(int port) {
    return std::make_unique<DbusDialect>(port);
}
