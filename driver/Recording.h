// A recorded tablet: the text that evemu-record writes, the device first and then what it said.
//
//     N: name
//     I: bus vendor product version            (hexadecimal)
//     B: type byte byte ...                    (hexadecimal: the codes of that type, as bits;
//     several
//                                               lines of one type follow each other)
//     A: axis lowest highest fuzz flat [resolution]        (axis hexadecimal)
//     E: seconds.microseconds type code value              (type and code hexadecimal)
//
// Everything else, and everything behind a "#", is passed over, except that a name may hold one.
//
// Owner: whoever plays it. Threads: one. Failure: a message that names the line; what came before
// it has been played by then, because a recording is read as it is played.
#pragma once

#include <fstream>
#include <optional>
#include <string>
#include <string_view>

#include "driver/Event.h"
#include "driver/TabletModel.h"

namespace driver {

class Recording {
  public:
    // Reads the device's description, up to the first event.
    explicit Recording(const std::string& itsPath);

    // Empty when all is well.
    const std::string& Problem() const { return problem; }
    const TabletModel& Model() const { return model; }

    // The next event, or nothing at the end and after a problem.
    std::optional<Event> Next();

  private:
    // False when the line is malformed.
    bool ReadDescription(std::string_view line);
    bool ReadIdentity(std::string_view text);
    bool ReadCodes(std::string_view text);
    bool ReadAxis(std::string_view text);
    void NoteCode(unsigned type, unsigned code);
    bool ReadLine();
    void Fail(const std::string& what);

    const std::string path;
    std::ifstream file;
    std::string problem;
    TabletModel model;
    std::string line;
    std::size_t lineNumber = 0;
    // The line that was read is an event that was not handed out yet.
    bool hasEvent = false;
    // How many codes of the type have been described; a type's lines go on where the last one
    // ended.
    unsigned describedType = 0;
    unsigned describedCodes = 0;
};

// "E: 12.000345 0003 0000 1234"; nothing for anything else.
std::optional<Event> ParseEvent(std::string_view line);

}  // namespace driver
