// What "tesselctl pen" is asked for.
#pragma once

#include <string>

#include "tesselctl/Arguments.h"

namespace tesselctl {

// How the pen is shown: drawn on a terminal and a line for each event elsewhere; the bytes of the
// service; an object a line.
enum class PenForm { kPeople, kRaw, kJson };

struct PenRequest {
    PenForm form = PenForm::kPeople;
    std::string application = "StylusPadDriver";  // the process whose events are watched
    std::string plot;                             // the file to draw the strokes to, or empty
};

// What is wrong, or an empty text.
std::string ParsePen(Arguments& arguments, PenRequest& request);

}  // namespace tesselctl
