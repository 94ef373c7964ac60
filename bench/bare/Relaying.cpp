#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include "bare/Behaviours.h"
#include "bare/Sockets.h"

namespace {

constexpr std::size_t kRoom = 128u << 10;

class Relaying : public Behaviour {
  public:
    Relaying() : message(kRoom, '\0') {}

    void Came(int client) override { clients.push_back(client); }
    void Went(int client) override {
        clients.erase(std::remove(clients.begin(), clients.end(), client), clients.end());
        length = 0;
    }

    bool Serve(int client) override {
        const ssize_t received = recv(client, &message[length], message.size() - length, 0);
        if (received <= 0) {
            return received < 0 && (errno == EAGAIN || errno == EINTR);
        }
        length += static_cast<std::size_t>(received);
        // One client speaks at a time.
        if (message[length - 1] == '|') {
            for (const int other : clients) {
                if (other != client) {
                    SendAll(other, message.data(), length);
                }
            }
            length = 0;
        }
        return length < message.size();
    }

  private:
    std::vector<int> clients;
    std::string message;
    std::size_t length = 0;
};

}  // namespace

std::unique_ptr<Behaviour> MakeRelaying() {
    return std::make_unique<Relaying>();
}
