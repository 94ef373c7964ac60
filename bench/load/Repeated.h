// A stream that repeats one text for ever, to hold received bytes against.
#pragma once

#include <cstddef>
#include <string>

class Repeated {
  public:
    // An empty text stands for anything.
    explicit Repeated(const std::string& text);

    // Whether BYTES are what the stream holds from OFFSET on.
    bool Matches(std::size_t offset, const char* bytes, std::size_t length) const;

  private:
    const std::size_t period;
    std::string stretch;
};
