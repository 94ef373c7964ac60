#include "load/Bus.h"

#include <cstdint>
#include <cstring>

#include "support/Failure.h"

namespace bus {
namespace {

constexpr char kNoReplyExpected = 1;
constexpr char kVersion = 1;
constexpr std::size_t kHeaderLength = 16;

enum Field : char { kPath = 1, kInterface = 2, kMember = 3, kDestination = 6, kSignature = 8 };

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
void AppendField(std::string& bytes, Field code, char type, const std::string& text) {
    Align(bytes, 8);
    bytes += {code, 1, type, '\0'};
    Append(bytes, static_cast<std::uint32_t>(text.size()));
    bytes += text + '\0';
}

// FIELDS begin where the header's fixed part ends.
std::string Call(char flags, const std::string& fields, const std::string& body) {
    // The byte order is the machine's.
    const std::uint16_t one = 1;
    const bool little = *reinterpret_cast<const char*>(&one) == 1;
    std::string message = {little ? 'l' : 'B', kCall, flags, kVersion};
    Append(message, static_cast<std::uint32_t>(body.size()));
    Append(message, 1);
    Append(message, static_cast<std::uint32_t>(fields.size()));
    message += fields;
    Align(message, 8);
    return message + body;
}

}  // namespace

Message Take(const Connection& connection) {
    std::string bytes = connection.Receive(kHeaderLength);
    const std::size_t fields = (NumberAt(bytes, 12) + 7u) / 8 * 8;
    bytes += connection.Receive(fields + NumberAt(bytes, 4));
    return {bytes[1], bytes};
}

std::string Enter(const Connection& connection) {
    connection.Send(std::string(1, '\0') + "AUTH ANONYMOUS\r\n");
    if (connection.ReceiveUntil('\n').compare(0, 3, "OK ") != 0) {
        throw Failure("the bus has refused the connection");
    }
    connection.Send("BEGIN\r\n" + CallDaemon("org.freedesktop.DBus", "Hello"));
    // The answer, whose body is a text; and a signal that tells of the connection's new name.
    const std::string answer = Take(connection).bytes;
    Take(connection);
    const std::size_t body = answer.size() - NumberAt(answer, 4);
    return answer.substr(body + sizeof(std::uint32_t), NumberAt(answer, body));
}

std::string CallDaemon(const std::string& interface, const std::string& member) {
    std::string fields;
    AppendField(fields, kPath, 'o', "/org/freedesktop/DBus");
    AppendField(fields, kInterface, 's', interface);
    AppendField(fields, kMember, 's', member);
    AppendField(fields, kDestination, 's', "org.freedesktop.DBus");
    return Call(0, fields, std::string());
}

std::string Tell(const std::string& whom, const std::string& text) {
    std::string fields;
    AppendField(fields, kPath, 'o', "/bench");
    AppendField(fields, kInterface, 's', "bench.Channel");
    AppendField(fields, kMember, 's', "Data");
    AppendField(fields, kDestination, 's', whom);
    // A signature's length is one byte.
    Align(fields, 8);
    fields += {kSignature, 1, 'g', '\0', 1, 's', '\0'};
    std::string body;
    Append(body, static_cast<std::uint32_t>(text.size()));
    body += text + '\0';
    return Call(kNoReplyExpected, fields, body);
}

}  // namespace bus
