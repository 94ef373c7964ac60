#include "load/Dialect.h"

#include <utility>

#include "load/Dialects.h"
#include "load/KeyFile.h"
#include "support/Failure.h"

namespace {

constexpr char kPlatform[] = "platform|";
constexpr char kPlatformAnswer[] = "Success MACOSX|";
// What the apps-communication port answers to every word that it does not know.
constexpr char kUnknown[] = "question|";
constexpr char kUnknownAnswer[] = "Success |";

// Where a question and its answer are all there is to say.
class PlainDialect : public Dialect {
  public:
    PlainDialect(int itsPort, std::string question, std::string reply)
        : port(itsPort), request(std::move(question)), answer(std::move(reply)) {}

    int Port() const override { return port; }
    void Greet(const Connection& /*connection*/) const override {}
    const std::string& Request() const override { return request; }
    const std::string& Answer() const override { return answer; }

  private:
    const int port;
    const std::string request;
    const std::string answer;
};

// The service's command port, which asks for the pass key first.
class CommandDialect : public PlainDialect {
  public:
    explicit CommandDialect(const KeyFile& file)
        : PlainDialect(file.commandPort, kPlatform, kPlatformAnswer), key(file.authKey) {}

    void Greet(const Connection& connection) const override {
        connection.Send("auth " + key + "|");
        if (connection.ReceiveUntil('|') != "authOk|") {
            throw Failure("the service has refused the key");
        }
        // What is plugged in is told unasked.
        connection.ReceiveUntil('|');
    }

  private:
    const std::string key;
};

// A server that says a line of its own first.
class MpdDialect : public PlainDialect {
  public:
    explicit MpdDialect(int itsPort) : PlainDialect(itsPort, "ping\n", "OK\n") {}

    void Greet(const Connection& connection) const override { connection.ReceiveUntil('\n'); }
};

KeyFile KeyFileFrom(const Options& options) {
    const auto file = ReadKeyFile(options.Text("key-file"));
    if (!file) {
        throw Failure("no complete key file at " + options.Text("key-file"));
    }
    return *file;
}

}  // namespace

std::size_t Dialect::AskOnce(const Connection& connection) const {
    connection.Send(Request());
    if (connection.Receive(Answer().size()) != Answer()) {
        throw Failure("another answer than expected to " + Request());
    }
    return Answer().size();
}

Connection Enter(const Dialect& dialect) {
    Connection connection(dialect.Port());
    dialect.Greet(connection);
    return connection;
}

std::unique_ptr<Dialect> DialectFrom(const Options& options) {
    const std::string name = options.Text("dialect");
    if (name == "command") {
        return std::make_unique<CommandDialect>(KeyFileFrom(options));
    }
    if (name == "apps") {
        return std::make_unique<PlainDialect>(KeyFileFrom(options).airAppsPort, kUnknown,
                                              kUnknownAnswer);
    }
    const int port = static_cast<int>(options.Number("port"));
    if (name == "bare-command") {
        return std::make_unique<PlainDialect>(port, kPlatform, kPlatformAnswer);
    }
    if (name == "bare-apps") {
        return std::make_unique<PlainDialect>(port, kUnknown, kUnknownAnswer);
    }
    if (name == "redis") return std::make_unique<PlainDialect>(port, "PING\r\n", "+PONG\r\n");
    if (name == "mpd") return std::make_unique<MpdDialect>(port);
    if (name == "mosquitto") return MakeMosquittoDialect(port);
    if (name == "dbus") return MakeDbusDialect(port);
    throw Failure("unknown dialect: " + name);
}
