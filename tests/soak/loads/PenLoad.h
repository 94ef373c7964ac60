// Pen data at full speed, byte for byte: strokes of numbered events from a stand-in for the driver,
// and recorded ones from the driver itself. The client that listens is replaced in all ways there
// are, also in the middle of a stroke; what posts the events is killed and comes again; others of
// the port come, ask and go, also in the middle of a message.
//
// This thread is the only one that uses the pressure port, so that it knows who spoke last there,
// and whose half message meets whose bar.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Talk.h"
#include "Worker.h"
#include "support/Pen.h"

class PenLoad : public Worker {
  public:
    explicit PenLoad(World& itsWorld) : Worker(itsWorld, "pen") {}

  private:
    using Deed = void (PenLoad::*)();

    void Step() override;
    void PartWithAll() override;

    Deed NextDeed();
    void Come();
    void StartPoster();
    void Listen();
    void StartTablet();
    // Posts a stroke of so many events; the bytes that have to come of it.
    std::string Post(int events);
    void DrawAStroke();
    bool HearsAWord();
    void MakeSureOfWords();
    void LoseTheListener();
    void ReplayARecording();
    void KillThePoster();
    void AskAndGo();
    void BreakAMessageOff();
    void LetABrowserTry();
    Talk Guest();
    std::optional<std::string> NextPieceWithin(std::chrono::milliseconds patience);
    std::string NextPiece();
    void Expect(const std::string& stream);
    void SkipTo(const std::string& piece);

    std::unique_ptr<Poster> poster;
    Talk listener;
    // How many events there have been so far.
    std::uint64_t posted = 0;
    std::int64_t near = 0;
    double owed = 0;
    std::vector<Deed> deeds;
    bool isFirstRound = true;
};
