// Two hundred clients of the third port that all send to all others: no message is lost, doubled,
// out of its order or with the wrong one.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <random>

#include "Counts.h"
#include "support/Service.h"

namespace {

constexpr std::size_t kClients = 200;

struct Party {
    Descriptor connection;
    std::string received;
    // By the other party's number.
    std::vector<int> sentTo = std::vector<int>(kClients);
    std::vector<int> gotFrom = std::vector<int>(kClients);
    // What the service has to answer before the next one is sent; empty when it has.
    std::string awaited;
};

class Channels : public testing::Test {
  protected:
    Channels() {
        service.WaitUntilListening();
        for (std::size_t number = 0; number < kClients; ++number) {
            parties.emplace_back();
            parties.back().connection = sandbox.Connect(service.Keys().appsPort);
            const int connection = parties.back().connection.Get();
            Send(connection, "registerChannel c" + std::to_string(number) + "|");
            WaitForBytes(connection, "Success ChannelRegistered=true|");
        }
        // Everybody is told about everybody who has come later.
        for (std::size_t number = 0; number < kClients; ++number) {
            std::string told;
            for (std::size_t later = number + 1; later < kClients; ++later) {
                told += "BroadcastRegisteredChannel=c" + std::to_string(later) + "|";
            }
            WaitForBytes(parties[number].connection.Get(), told);
            const int flags = fcntl(parties[number].connection.Get(), F_GETFL);
            fcntl(parties[number].connection.Get(), F_SETFL, flags | O_NONBLOCK);
        }
    }

    // In one piece, or the messages of two clients would run into each other.
    static void Send(int connection, const std::string& text) {
        const ssize_t sent = send(connection, text.data(), text.size(), MSG_NOSIGNAL);
        if (sent != static_cast<ssize_t>(text.size())) {
            throw Failed("the service does not take what is sent");
        }
    }

    static void WaitForBytes(int connection, const std::string& expected) {
        std::string got(expected.size(), '\0');
        const ssize_t count =
            expected.empty() ? 0 : recv(connection, got.data(), got.size(), MSG_WAITALL);
        if (count != static_cast<ssize_t>(expected.size()) || got != expected) {
            throw Failed("expected \"" + expected + "\", received \"" + got + "\"");
        }
    }

    void SendNext(std::size_t sender) {
        Party& party = parties[sender];
        std::size_t receiver = random() % (kClients - 1);
        receiver += receiver >= sender ? 1 : 0;
        const std::string identifier = std::to_string(sent++);
        Send(party.connection.Get(),
             "sendDataToChannel c" + std::to_string(receiver) + " " + std::to_string(receiver) +
                 "." + std::to_string(party.sentTo[receiver]++) + " " + identifier + "|");
        party.awaited = "Success DataSentToChannel=" + identifier;
    }

    // A message from another one, "ForwardDataToChannel cSENDER RECEIVER.NUMBER", or the answer to
    // one's own.
    void Take(std::size_t receiver, const std::string& message) {
        Party& party = parties[receiver];
        std::size_t sender = 0;
        std::size_t meant = 0;
        int number = 0;
        if (std::sscanf(message.c_str(), "ForwardDataToChannel c%zu %zu.%d", &sender, &meant,
                        &number) == 3) {
            if (sender >= kClients || meant != receiver || number != party.gotFrom[sender]) {
                throw Failed("client " + std::to_string(receiver) + " got \"" + message +
                             "\" instead of number " +
                             std::to_string(sender < kClients ? party.gotFrom[sender] : -1));
            }
            ++party.gotFrom[sender];
            ++delivered;
        } else if (!party.awaited.empty() && message == party.awaited) {
            party.awaited.clear();
        } else {
            throw Failed("client " + std::to_string(receiver) + " got \"" + message + "\"");
        }
    }

    void Receive(std::size_t receiver) {
        Party& party = parties[receiver];
        char buffer[16384];
        const ssize_t count = recv(party.connection.Get(), buffer, sizeof buffer, 0);
        if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR)) {
            throw Failed("the service closed a connection");
        }
        party.received.append(buffer, count < 0 ? 0 : static_cast<std::size_t>(count));
        std::size_t from = 0;
        for (std::size_t bar = 0; (bar = party.received.find('|', from)) != std::string::npos;) {
            Take(receiver, party.received.substr(from, bar - from));
            from = bar + 1;
        }
        party.received.erase(0, from);
    }

    Sandbox sandbox;
    Service service{sandbox};
    std::vector<Party> parties;
    std::mt19937 random{200};
    long sent = 0;
    long delivered = 0;
};

TEST_F(Channels, AmongTwoHundredClients_EveryMessageArrivesOnceInOrderAtItsReceiver) {
    const long messages = Count(20000, 1000000);
    std::vector<pollfd> waited;
    for (const Party& party : parties) {
        waited.push_back({party.connection.Get(), POLLIN, 0});
    }
    const auto start = std::chrono::steady_clock::now();
    while (delivered < messages) {
        for (std::size_t sender = 0; sender < kClients && sent < messages; ++sender) {
            if (parties[sender].awaited.empty()) {
                SendNext(sender);
            }
        }
        if (poll(waited.data(), waited.size(), static_cast<int>(kPatience.count()) * 1000) <= 0) {
            throw Failed("nothing comes any more, after " + std::to_string(delivered) +
                         " messages");
        }
        for (std::size_t receiver = 0; receiver < kClients; ++receiver) {
            if (waited[receiver].revents != 0) {
                Receive(receiver);
            }
        }
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    // The answers to the last ones may still be on their way; nothing else may.
    for (std::size_t number = 0; number < kClients; ++number) {
        const Deadline deadline;
        while (!parties[number].awaited.empty() && !deadline.Passed()) {
            pollfd one = {parties[number].connection.Get(), POLLIN, 0};
            poll(&one, 1, 100);
            Receive(number);
        }
        EXPECT_TRUE(parties[number].awaited.empty()) << number;
        EXPECT_TRUE(parties[number].received.empty()) << number;
    }
    EXPECT_EQ(sent, messages);
    EXPECT_EQ(delivered, messages);
    for (std::size_t sender = 0; sender < kClients; ++sender) {
        for (std::size_t receiver = 0; receiver < kClients; ++receiver) {
            ASSERT_EQ(parties[sender].sentTo[receiver], parties[receiver].gotFrom[sender]);
        }
    }
    Say(std::to_string(delivered) + " channel messages among " + std::to_string(kClients) +
        " clients: each delivered once, in order, to its receiver; " +
        std::to_string(static_cast<long>(static_cast<double>(delivered) / took.count())) +
        " messages a second");
}

}  // namespace
