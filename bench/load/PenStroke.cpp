#include "load/PenStroke.h"

#include <cstdio>

#include "load/KeyFile.h"
#include "support/Failure.h"

namespace {

constexpr std::size_t kColumns = 1000;
constexpr std::size_t kRows = 700;
constexpr std::size_t kPressures = 511;

int XOf(std::size_t number) {
    return static_cast<int>(1000 + number % kColumns);
}

int YOf(std::size_t number) {
    return static_cast<int>(100 + number % kRows);
}

int PressureOf(std::size_t number) {
    return static_cast<int>(number % kPressures);
}

// The middle of what the service takes for PRESSURE.
double ShareOf(int pressure) {
    return (pressure + 0.5) / 1024.0 * 2.000031;
}

Connection ListenThroughTheService(PenPoster& poster, const std::string& path) {
    const auto file = ReadKeyFile(path);
    if (!file) {
        throw Failure("no complete key file at " + path);
    }
    Connection client(file->pressurePort);
    client.Send("listenTablet bench bench-load|startTablet|");
    if (client.ReceiveUntil('|') != "Success |") {
        throw Failure("the service does not tap this process");
    }
    poster.Accept();
    return client;
}

Connection ListenThroughTheBareServer(PenPoster& poster, int port) {
    Connection client(port);
    client.Send(std::to_string(getpid()) + "|");
    if (client.ReceiveUntil('|') != "|") {
        throw Failure("the bare server does not tap this process");
    }
    poster.Accept();
    return client;
}

}  // namespace

PenStroke PenStrokeFrom(const Options& options) {
    const std::string name = options.Text("event");
    if (name == "touch") return PenStroke::kTouches;
    if (name == "drag") return PenStroke::kDrags;
    throw Failure("--event is touch or drag, not " + name);
}

penEvents::Record EventOf(PenStroke stroke, std::size_t number) {
    const auto type = stroke == PenStroke::kTouches ? penEvents::kDown : penEvents::kDragged;
    return {penEvents::kVersion,
            type,
            XOf(number) + 0.25,
            YOf(number) + 0.75,
            ShareOf(PressureOf(number)),
            penEvents::kPen,
            1};
}

std::string BytesOf(PenStroke stroke, std::size_t number) {
    char bytes[64];
    int length = 0;
    if (stroke == PenStroke::kTouches) {
        length = std::snprintf(bytes, sizeof bytes, "d%d_%d ", XOf(number), YOf(number));
    } else {
        length = std::snprintf(bytes, sizeof bytes, "%04d%cm%d_%d ", PressureOf(number), '\0',
                               XOf(number), YOf(number));
    }
    return std::string(bytes, static_cast<std::size_t>(length));
}

Connection ListenTo(PenPoster& poster, const Options& options) {
    const std::string name = options.Text("dialect");
    if (name == "pen") return ListenThroughTheService(poster, options.Text("key-file"));
    if (name == "bare-pen") {
        return ListenThroughTheBareServer(poster, static_cast<int>(options.Number("port")));
    }
    throw Failure("no pen data come from " + name);
}
