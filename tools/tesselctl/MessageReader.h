// Cuts the service's byte stream into messages.
//
// Nearly everything that the service sends ends with a vertical bar. Pen data does not: a pressure
// is four digits and a NUL, a pen event is a letter and a position ended by a space ("d640_400 ").
// Both can stand between any two messages, so they are told apart by their content; no message
// begins like either of them.
//
// Owner: a Connection. Threads: none of its own.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace tesselctl {

struct Message {
    bool framed;       // ended by a vertical bar; else pen data
    std::string text;  // without what ended it
};

class MessageReader {
  public:
    void Append(std::string_view bytes) { pending.append(bytes); }

    // The next whole message, or nothing until more bytes are there.
    std::optional<Message> Next();

    // Everything that has come and was not handed out, message or not.
    std::string TakeBytes();

    // The bytes of a message that is not whole yet.
    std::size_t PendingSize() const { return pending.size() - start; }
    std::string_view Pending() const { return std::string_view(pending).substr(start); }

  private:
    Message Take(bool framed, std::size_t length);

    std::string pending;
    std::size_t start = 0;  // where the next message begins
    std::size_t searched =
        0;  // no bar stands before this offset: a long message is searched once only
};

}  // namespace tesselctl
