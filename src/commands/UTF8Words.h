// The words of a message that is UTF-8, as views of it: for commands that pass on what may be long,
// and need no copy of it. A word that quotes cut out of the message in several pieces is put
// together here.
//
// Owner: whoever handles the message, which must outlive it. Used by one thread at a time.
#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

class UTF8Words {
  public:
    // The words as Helpers::splitCommand finds them.
    explicit UTF8Words(const std::string& message);
    UTF8Words(const UTF8Words&) = delete;
    UTF8Words& operator=(const UTF8Words&) = delete;

    bool empty() const { return words.empty(); }
    std::size_t size() const { return words.size(); }
    std::string_view operator[](std::size_t number) const { return words[number]; }

  private:
    std::vector<std::string_view> words;
    // A deque's elements stay where they are.
    std::deque<std::string> joined;
};
