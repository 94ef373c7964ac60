#include "load/Relay.h"

#include <utility>

#include "load/Bus.h"
#include "load/KeyFile.h"
#include "load/Mqtt.h"
#include "support/Failure.h"

namespace {

constexpr char kRegistered[] = "Success ChannelRegistered=true|";
constexpr char kTold[] = "BroadcastRegisteredChannel=";

void Expect(const Connection& connection, const std::string& bytes) {
    if (connection.Receive(bytes.size()) != bytes) {
        throw Failure("something else than " + bytes);
    }
}

void Register(const Connection& connection, const std::string& name) {
    connection.Send("registerChannel " + name + "|");
    Expect(connection, kRegistered);
}

class ServiceRelay : public Relay {
  public:
    explicit ServiceRelay(int itsPort) : port(itsPort) {}

    int Port() const override { return port; }

    void GreetReceiver(const Connection& receiver) override {
        Register(receiver, "receiver" + std::to_string(registered++));
    }

  protected:
    // Every receiver has been told of the later ones.
    void ReadWhatWasTold(const std::vector<Connection>& all) const {
        for (std::size_t one = 0; one < all.size(); ++one) {
            for (std::size_t later = one + 1; later < all.size(); ++later) {
                Expect(all[one], kTold + ("receiver" + std::to_string(later)) + "|");
            }
        }
    }

  private:
    const int port;
    int registered = 0;
};

class ChannelRelay : public ServiceRelay {
  public:
    ChannelRelay(int itsPort, const std::string& data) : ServiceRelay(itsPort) {
        request = "sendDataToChannel receiver0 " + data + " 1|";
        forwarded = "ForwardDataToChannel sender " + data + "|";
        answer = "Success DataSentToChannel=1|";
    }

    void GreetSender(const Connection& sender, const std::vector<Connection>& receivers) override {
        ReadWhatWasTold(receivers);
        Register(sender, "sender");
        for (const Connection& receiver : receivers) {
            Expect(receiver, std::string(kTold) + "sender|");
        }
    }
};

class RegistrationRelay : public ServiceRelay {
  public:
    explicit RegistrationRelay(int itsPort) : ServiceRelay(itsPort) {
        request = "registerChannel newcomer|";
        forwarded = std::string(kTold) + "newcomer|";
        answer = kRegistered;
    }

    void GreetSender(const Connection& /*sender*/,
                     const std::vector<Connection>& receivers) override {
        ReadWhatWasTold(receivers);
    }
};

// Gives back what it gets, so the words are as long as what the service makes of them.
class BareRelay : public Relay {
  public:
    BareRelay(int itsPort, std::string words) : port(itsPort) {
        request = std::move(words);
        forwarded = request;
    }

    int Port() const override { return port; }
    void GreetReceiver(const Connection& /*receiver*/) override {}
    // That all have been accepted shows when all have got something.
    void GreetSender(const Connection& sender, const std::vector<Connection>& receivers) override {
        const std::string hello = "hello|";
        sender.Send(hello);
        for (const Connection& receiver : receivers) {
            Expect(receiver, hello);
        }
    }

  private:
    const int port;
};

class RedisRelay : public Relay {
  public:
    RedisRelay(int itsPort, const std::string& data, int receivers) : port(itsPort) {
        request = Array({"PUBLISH", kChannel, data});
        forwarded = Array({"message", kChannel, data});
        answer = ":" + std::to_string(receivers) + "\r\n";
    }

    int Port() const override { return port; }
    void GreetReceiver(const Connection& receiver) override {
        receiver.Send(Array({"SUBSCRIBE", kChannel}));
        Expect(receiver, "*3\r\n" + Bulk("subscribe") + Bulk(kChannel) + ":1\r\n");
    }
    void GreetSender(const Connection& /*sender*/,
                     const std::vector<Connection>& /*receivers*/) override {}

  private:
    static constexpr char kChannel[] = "bench";

    static std::string Bulk(const std::string& text) {
        return "$" + std::to_string(text.size()) + "\r\n" + text + "\r\n";
    }
    static std::string Array(const std::vector<std::string>& texts) {
        std::string array = "*" + std::to_string(texts.size()) + "\r\n";
        for (const std::string& text : texts) {
            array += Bulk(text);
        }
        return array;
    }

    const int port;
};

class MosquittoRelay : public Relay {
  public:
    MosquittoRelay(int itsPort, const std::string& data) : port(itsPort) {
        request = mqtt::Publication(kTopic, data);
        forwarded = request;
    }

    int Port() const override { return port; }
    void GreetReceiver(const Connection& receiver) override {
        mqtt::Enter(receiver);
        mqtt::Subscribe(receiver, kTopic);
    }
    void GreetSender(const Connection& sender,
                     const std::vector<Connection>& /*receivers*/) override {
        mqtt::Enter(sender);
    }

  private:
    static constexpr char kTopic[] = "bench";

    const int port;
};

// From one client straight to another one, with no answer asked for.
class DbusRelay : public Relay {
  public:
    DbusRelay(int itsPort, std::string itsData) : port(itsPort), data(std::move(itsData)) {}

    int Port() const override { return port; }
    void GreetReceiver(const Connection& receiver) override { name = bus::Enter(receiver); }
    void GreetSender(const Connection& sender, const std::vector<Connection>& receivers) override {
        bus::Enter(sender);
        request = bus::Tell(name, data);
        sender.Send(request);
        // The daemon adds who it is from.
        forwarded = bus::Take(receivers.at(0)).bytes;
        if (forwarded.find(data) == std::string::npos) {
            throw Failure("the bus has refused the call");
        }
    }

  private:
    const int port;
    const std::string data;
    std::string name;
};

int AppsPortFrom(const Options& options) {
    const auto file = ReadKeyFile(options.Text("key-file"));
    if (!file) {
        throw Failure("no complete key file at " + options.Text("key-file"));
    }
    return file->airAppsPort;
}

}  // namespace

std::unique_ptr<Relay> RelayFrom(const Options& options) {
    const std::string name = options.Text("dialect");
    const std::string data(static_cast<std::size_t>(options.Number("size", 32)), 'x');
    if (name == "channel") return std::make_unique<ChannelRelay>(AppsPortFrom(options), data);
    if (name == "registration") return std::make_unique<RegistrationRelay>(AppsPortFrom(options));
    const int port = static_cast<int>(options.Number("port"));
    if (name == "bare-channel") {
        return std::make_unique<BareRelay>(port, "ForwardDataToChannel sender " + data + "|");
    }
    if (name == "bare-registration") {
        return std::make_unique<BareRelay>(port, std::string(kTold) + "newcomer|");
    }
    if (name == "redis") {
        return std::make_unique<RedisRelay>(port, data,
                                            static_cast<int>(options.Number("receivers", 1)));
    }
    if (name == "mosquitto") return std::make_unique<MosquittoRelay>(port, data);
    if (name == "dbus") return std::make_unique<DbusRelay>(port, data);
    throw Failure("nothing is known about how " + name + " passes messages on");
}
