// The measurements, one file each. Times are in nanoseconds; "cpu" is the server's time on a
// processor for one request, or for one connection.
//
// All take the dialect's options (Dialect.h), --process PID (the server), --milliseconds TIME (how
// long to measure; warming up comes before).
#pragma once

#include "support/Figures.h"
#include "support/Options.h"

// One request at a time: the time until the whole answer is there. With --clients COUNT, the
// connections ask in turn.
Figures MeasureRoundTrip(const Options& options);

// A new connection for every request: the time from connecting until the first answer.
Figures MeasureConnecting(const Options& options);

// One client that asks without waiting, with up to --window COUNT answers outstanding: "rate" is
// the number of answers a second.
Figures MeasurePipeline(const Options& options);

// One message at a time from one client to others (Relay.h), up to --receivers COUNT of them: the
// time until the last one has it all.
Figures MeasurePassing(const Options& options);

// One pen event at a time, posted by this process (PenStroke.h): the time until a client has all
// that follows from it.
Figures MeasurePen(const Options& options);

// The same without waiting, --rate EVENTS a second for --seconds SECONDS; not one may be lost.
// "cpu0" to "cpu9" and "resident0" to "resident9" are the server's processor time for an event and
// its memory in kB, for each tenth of the time.
Figures MeasurePenSustained(const Options& options);

// Starts the command behind "--" on --server-cpu CPU and measures the time from its exec until it
// listens: on --port PORT, or on all three ports of the file --key-file PATH. Then it is killed.
Figures MeasureStart(const Options& options);
