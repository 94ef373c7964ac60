// The measurements, one file each. Times are in nanoseconds; "cpu" is the server's time on a
// processor for one request, or for one connection.
//
// All take the dialect's options (Dialect.h), --process PID (the server), --milliseconds TIME (how
// long to measure; warming up comes before).
#pragma once

#include "load/Figures.h"
#include "support/Options.h"

// One request at a time: the time until the whole answer is there. With --clients COUNT, the
// connections ask in turn.
Figures MeasureRoundTrip(const Options& options);

// A new connection for every request: the time from connecting until the first answer.
Figures MeasureConnecting(const Options& options);

// One client that asks without waiting, with up to --window COUNT answers outstanding: "rate" is
// the number of answers a second.
Figures MeasurePipeline(const Options& options);

// Starts the command behind "--" on --server-cpu CPU and measures the time from its exec until it
// listens: on --port PORT, or on all three ports of the file --key-file PATH. Then it is killed.
Figures MeasureStart(const Options& options);
