#include <string>

#include "load/Bus.h"
#include "load/Dialects.h"
#include "support/Failure.h"

namespace {

class DbusDialect : public Dialect {
  public:
    explicit DbusDialect(int itsPort)
        : port(itsPort), ping(bus::CallDaemon("org.freedesktop.DBus.Peer", "Ping")) {}

    int Port() const override { return port; }
    void Greet(const Connection& connection) const override { bus::Enter(connection); }
    const std::string& Request() const override { return ping; }
    const std::string& Answer() const override { return unknown; }

    std::size_t AskOnce(const Connection& connection) const override {
        connection.Send(ping);
        const bus::Message answer = bus::Take(connection);
        if (answer.type != bus::kReturn) {
            throw Failure("the bus has refused the call");
        }
        return answer.bytes.size();
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
