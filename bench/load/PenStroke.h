// A stroke without end: what a pen does, one event after the other, and what a client has to get of
// it.
#pragma once

#include <cstddef>
#include <string>

#include "frameworks/CoreGraphics/PenEventRecord.h"
#include "load/Connection.h"
#include "load/PenPoster.h"
#include "support/Options.h"

// Of what the events consist.
enum class PenStroke {
    kTouches,  // the pen comes down elsewhere each time: one text an event
    kDrags,    // it moves and presses otherwise: a pressure and a text
};

// --event touch|drag
PenStroke PenStrokeFrom(const Options& options);

penEvents::Record EventOf(PenStroke stroke, std::size_t number);
std::string BytesOf(PenStroke stroke, std::size_t number);

// A client that gets, from now on, what POSTER posts. By the options --dialect pen and --key-file
// PATH, or --dialect bare-pen and --port PORT.
Connection ListenTo(PenPoster& poster, const Options& options);
