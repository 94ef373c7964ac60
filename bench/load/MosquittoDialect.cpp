#include <unistd.h>

#include <string>

#include "load/Dialects.h"
#include "load/Mqtt.h"

namespace {

// As long as a command of the service.
constexpr char kPayload[] = "platform|";

class MosquittoDialect : public Dialect {
  public:
    explicit MosquittoDialect(int itsPort)
        : port(itsPort),
          topic("bench/" + std::to_string(getpid())),
          message(mqtt::Publication(topic, kPayload)) {}

    int Port() const override { return port; }

    void Greet(const Connection& connection) const override {
        mqtt::Enter(connection);
        mqtt::Subscribe(connection, topic);
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
