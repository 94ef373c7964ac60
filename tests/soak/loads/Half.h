// A message that is broken off, and what becomes of it: the unfinished end of what a server has
// received is the server's, so the next bar that any of its clients sends ends it, and that client
// gets the answer. Whoever breaks one off has to see to it that nobody else of that port sends
// anything until then.
#pragma once

#include <string>

#include "Random.h"

class Half {
  public:
    // Of a message that would be sent to the channel of nobody.
    static Half OfChannelMessage(Random& random);
    static Half OfPressureCommand(Random& random);

    const std::string& Text() const { return text; }
    // Of him who sends the bar.
    bool IsRightAnswer(const std::string& answer) const;

  private:
    Half(std::string itsText, std::string itsBeginning, bool itIsWhole)
        : text(std::move(itsText)), beginning(std::move(itsBeginning)), isWhole(itIsWhole) {}

    std::string text;
    std::string beginning;
    // The answer is that and nothing more.
    bool isWhole;
};
