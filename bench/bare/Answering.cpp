#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

#include "bare/Behaviours.h"
#include "bare/Sockets.h"
#include "support/Failure.h"

namespace {

enum class Answers { kOne, kEach, kAll };

constexpr std::size_t kSmall = 512;
constexpr std::size_t kLarge = 16384;

Answers AnswersFrom(const std::string& word) {
    if (word == "one") return Answers::kOne;
    if (word == "each") return Answers::kEach;
    if (word == "all") return Answers::kAll;
    throw Failure("--answers is one, each, all, relay, pen or pen-all, not " + word);
}

class Answering : public Behaviour {
  public:
    Answering(const std::string& text, Answers way)
        : answer(text), answers(way), room(way == Answers::kOne ? kSmall : kLarge) {
        for (std::size_t count = 0; answers == Answers::kAll && count < room; ++count) {
            repeated += answer;
        }
    }

    bool Serve(int client) override {
        char bytes[kLarge];
        const ssize_t length = recv(client, bytes, room, 0);
        if (length <= 0) {
            return length < 0 && (errno == EAGAIN || errno == EINTR);
        }
        if (answers == Answers::kOne) {
            return SendAll(client, answer.data(), answer.size());
        }
        const auto requests = static_cast<std::size_t>(std::count(bytes, bytes + length, '|'));
        if (answers == Answers::kAll) {
            return SendAll(client, repeated.data(), requests * answer.size());
        }
        for (std::size_t request = 0; request < requests; ++request) {
            if (!SendAll(client, answer.data(), answer.size())) {
                return false;
            }
        }
        return true;
    }

  private:
    const std::string answer;
    const Answers answers;
    const std::size_t room;
    std::string repeated;
};

}  // namespace

std::unique_ptr<Behaviour> MakeAnswering(const Options& options) {
    const std::string answers = options.Has("answers") ? options.Text("answers") : "one";
    return std::make_unique<Answering>(options.Text("answer"), AnswersFrom(answers));
}
