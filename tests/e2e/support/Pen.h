// Pens in a sandbox: the real driver that replays recordings, and a stand-in that posts what a test
// tells it to. All throw Failed.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "frameworks/CoreGraphics/PenEventRecord.h"
#include "support/Descriptor.h"
#include "support/Sandbox.h"

// Their names as processes.
constexpr char kDriverName[] = "StylusPadDriver";
constexpr char kPosterName[] = "PenPoster";

// What bubblewrap is told so that both are in the sandbox, the driver as a bundle where the service
// looks for its version, and the recordings.
std::vector<std::string> PenMounts();

// What the client that asked for pen data gets of a recording on a screen of 1920 x 1080.
std::string StreamOf(const std::string& stroke);
// The broadcasts in a stream: what every other client of the pressure port gets.
std::string WordsOf(const std::string& stream);
// A stream with a message a line, for people who compare two.
std::vector<std::string> MessagesOf(const std::string& stream);

// Replays, once TAPS have tapped it, on that screen. Returns when it can be tapped.
pid_t StartReplay(Sandbox& sandbox, const std::string& stroke, const std::string& speed = "max",
                  int taps = 1);

// One process that posts events.
class Poster {
  public:
    // Can be tapped when it is there. Runs as that user where the suite may choose.
    explicit Poster(Sandbox& itsSandbox, uid_t user = kUserId);

    // Returns when the poster has been told, which may be before it has posted.
    void Post(const penEvents::Record& record, std::uint32_t times = 1);
    void Post(const std::string& packet, std::uint32_t times = 1);
    // Ends when it has posted what it was told to.
    void End() { input.Close(); }
    void Kill();
    bool HasEnded();

  private:
    Sandbox& sandbox;
    Descriptor input;
    pid_t pid = -1;
};

penEvents::Record Event(penEvents::Type type, double x, double y, double pressure = 0,
                        std::int64_t pointerType = penEvents::kPen,
                        std::int64_t enterProximity = 1);
