#include "loads/PenLoad.h"

#include <cctype>
#include <cstdio>
#include <vector>

#include "faults/Browser.h"
#include "loads/Half.h"
#include "support/Waiting.h"

namespace {

constexpr char kVersion[] = "Success DriverVersion=";
// Not among those of strokes, so that the first of a stroke is always another one.
constexpr int kPressureBetween = 600;

// Down, up, and one between them: without it the pressure would stay that between strokes, which is
// then not told again.
constexpr int kShortest = 3;

// The pen's value that the service makes PRESSURE of.
double ValueOf(int pressure) {
    return (pressure < 0 ? pressure : pressure + 0.5) * 2.000031 / 1024.0;
}

bool IsWord(const std::string& message) {
    return message.compare(0, 8, "PenData.") == 0;
}

bool IsVersion(const std::string& answer) {
    return answer.compare(0, sizeof kVersion - 1, kVersion) == 0;
}

std::string Position(char kind, std::uint64_t x, std::uint64_t y) {
    return kind + std::to_string(x) + "_" + std::to_string(y) + " ";
}

std::string Readable(const std::string& stream) {
    std::string text;
    for (const std::string& message : MessagesOf(stream)) {
        text += message;
    }
    return text;
}

std::string Record(int pressure) {
    char digits[16];
    std::snprintf(digits, sizeof digits, "%.4d", pressure);
    return std::string(digits, 5);
}

}  // namespace

void PenLoad::Step() {
    if (!listener) {
        Come();
    }
    (this->*NextDeed())();
}

// One of each kind first, so that a short run has had them all; later there are more strokes
// between them. The service remembers each connection of this port, so there are not too many.
PenLoad::Deed PenLoad::NextDeed() {
    if (deeds.empty()) {
        deeds = {&PenLoad::ReplayARecording, &PenLoad::LoseTheListener,  &PenLoad::KillThePoster,
                 &PenLoad::AskAndGo,         &PenLoad::BreakAMessageOff, &PenLoad::LetABrowserTry};
        deeds.resize(deeds.size() + (isFirstRound ? 1 : 18), &PenLoad::DrawAStroke);
        random.Shuffle(deeds);
        isFirstRound = false;
    }
    const Deed deed = deeds.back();
    deeds.pop_back();
    return deed;
}

void PenLoad::Come() {
    if (!poster) {
        StartPoster();
    }
    const BetweenDoors between(world.doors);
    listener = Guest();
    StartTablet();
    Listen();
}

Talk PenLoad::Guest() {
    world.tally.Count("pressure clients");
    return Talk(world, world.service->Keys().pressurePort, "pen", IsWord);
}

void PenLoad::StartPoster() {
    poster = std::make_unique<Poster>(world.sandbox);
}

void PenLoad::StartTablet() {
    // Not answered by itself.
    if (!IsVersion(listener.Ask("startTablet|getDriverVersion"))) {
        throw Failed("startTablet is not followed by the answer to the next question");
    }
}

// A refusal is right while there are no descriptors.
void PenLoad::Listen() {
    const Deadline deadline(world.options.patience);
    for (;;) {
        const Weather::Mark asked = world.weather.Now();
        const std::string answer = listener.Ask("listenTablet x PenPoster");
        if (answer == "Success ") {
            return;
        }
        if (world.weather.FairSince(asked) || deadline.Passed()) {
            throw Failed("listenTablet was answered " + answer);
        }
    }
}

std::string PenLoad::Post(int events) {
    std::string stream = Record(kPressureBetween);
    poster->Post(Event(penEvents::kPointer, 0, 0, ValueOf(kPressureBetween)));
    for (int i = 0; i < events; ++i) {
        const std::uint64_t number = ++posted;
        const std::uint64_t x = number % 30011;
        const std::uint64_t y = number / 30011 % 30011;
        const int pressure = static_cast<int>(number % 511) + 1;
        const auto type = i == 0            ? penEvents::kDown
                          : i == events - 1 ? penEvents::kUp
                                            : penEvents::kDragged;
        poster->Post(
            Event(type, static_cast<double>(x), static_cast<double>(y), ValueOf(pressure)));
        if (type == penEvents::kDragged) {
            stream += Record(pressure) + Position('m', x, y);
        } else {
            stream += Position(type == penEvents::kDown ? 'd' : 'u', x, y);
        }
    }
    GoesOn();
    return stream;
}

std::optional<std::string> PenLoad::NextPieceWithin(std::chrono::milliseconds patience) {
    const Deadline deadline(patience);
    Line& line = listener.TheLine();
    std::string& input = line.Input();
    for (bool goesOn = true;;) {
        std::size_t end = 0;
        if (!input.empty()) {
            const char first = input[0];
            if (first == '-' || std::isdigit(static_cast<unsigned char>(first)) != 0) {
                end = input.size() >= 5 ? 5 : 0;
            } else {
                const bool isPosition = first == 'd' || first == 'm' || first == 'u';
                const std::size_t last = input.find(isPosition ? ' ' : '|');
                end = last == std::string::npos ? 0 : last + 1;
            }
        }
        if (end != 0) {
            std::string piece = input.substr(0, end);
            input.erase(0, end);
            return piece;
        }
        if (!goesOn) {
            throw Failed("the service closed the connection of the one who gets pen data");
        }
        if (deadline.Passed()) {
            return std::nullopt;
        }
        line.WaitForInput(deadline.Milliseconds());
        goesOn = line.Read();
    }
}

// Waits for it as for an answer.
std::string PenLoad::NextPiece() {
    if (std::optional<std::string> piece = NextPieceWithin(world.options.patience)) {
        return *std::move(piece);
    }
    throw Failed("pen data that was accepted has not come; there is \"" +
                 Readable(listener.TheLine().Input()) + "\"");
}

// A word comes as often as the port has ever given the connection's number away, and that at once.
void PenLoad::Expect(const std::string& stream) {
    std::string last;
    for (const std::string& message : MessagesOf(stream)) {
        std::string expected = message;
        if (expected.size() > 2 && expected.compare(expected.size() - 2, 2, "\\0") == 0) {
            expected.replace(expected.size() - 2, 2, std::string(1, '\0'));
        }
        std::string piece = NextPiece();
        while (IsWord(piece) && piece == last) {
            piece = NextPiece();
        }
        if (piece != expected) {
            throw Failed("pen data is lost, doubled or reordered: expected \"" + message +
                         "\", got \"" + Readable(piece) + "\"");
        }
        last = piece;
    }
}

void PenLoad::SkipTo(const std::string& piece) {
    while (NextPiece() != piece) {
    }
}

void PenLoad::DrawAStroke() {
    const int events = random.OneIn(10) ? 20000 : random.Between(kShortest, 4000);
    const auto start = std::chrono::steady_clock::now();
    const std::string stream = Post(events);
    // In pieces, so that it is seen that it goes on.
    for (std::size_t at = 0; at < stream.size();) {
        std::size_t end = stream.find(' ', std::min(stream.size() - 1, at + 10000));
        end = end == std::string::npos ? stream.size() : end + 1;
        Expect(stream.substr(at, end - at));
        GoesOn();
        at = end;
    }
    world.tally.Count("pen events", static_cast<std::uint64_t>(events) + 1);
    // At full speed while it lasts, and then a pause.
    owed += events / static_cast<double>(world.options.penRate);
    owed -= std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    for (; owed > 0 && !world.verdict.Ended(); owed -= 0.05) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        GoesOn();
    }
}

bool PenLoad::HearsAWord() {
    listener.Ask("getDriverVersion");
    near = near == 1 ? 0 : 1;
    poster->Post(Event(penEvents::kProximity, 0, 0, 0, penEvents::kPen, near));
    const std::string word = near == 1 ? "PenData.PROXIMITY_IN|" : "PenData.PROXIMITY_OUT|";
    while (const auto piece = NextPieceWithin(std::chrono::milliseconds(500))) {
        if (*piece == word) {
            return true;
        }
    }
    return false;
}

// Words are sent as long as the one who spoke last is there, and that may be one who has gone
// without the service's having noticed. When they are sent, it has, and all that was posted before
// them has been dealt with.
void PenLoad::MakeSureOfWords() {
    const Deadline deadline(world.options.patience);
    while (!HearsAWord()) {
        if (deadline.Passed()) {
            throw Failed("a client of the pressure port that speaks is told no words");
        }
    }
}

// In the middle of a stroke. Nobody may get the number of its connection before all that was posted
// has been dealt with, which a guest who spoke last is told by a word that is posted last.
void PenLoad::LoseTheListener() {
    const DoorsClosed closed(world.doors);
    Talk guest = Guest();
    guest.Ask("getDriverVersion");
    Post(random.Between(kShortest, 3000));
    const Farewell farewell =
        random.Of(std::vector<Farewell>{Farewell::kClose, Farewell::kReset, Farewell::kHalfClose});
    std::this_thread::sleep_for(random.Milliseconds(0, 5));
    listener.End(farewell);
    const Talk last = std::move(listener);
    listener = std::move(guest);
    MakeSureOfWords();
    StartTablet();
    world.tally.Count("fault: pen clients that went in the middle of a stroke");
}

// The service sends only what has changed; the recordings' bytes are those of a service that has
// sent nothing yet.
void PenLoad::ReplayARecording() {
    MakeSureOfWords();
    poster->Post(Event(penEvents::kProximity, 0, 0, 0, penEvents::kCursor, 7));
    poster->Post(Event(penEvents::kProximity, 0, 0, 0, -1, 7));
    poster->Post(Event(penEvents::kDragged, 5, 5, ValueOf(kPressureBetween)));
    poster->Post(Event(penEvents::kDragged, -1, -1, ValueOf(-1)));
    SkipTo("m-1_-1 ");
    StartTablet();
    near = 0;
    const std::string stroke = random.Of(
        std::vector<std::string>{"slow-pressure-ramp", "fast-hatching", "pen-eraser-pen"});
    const pid_t driver = StartReplay(world.sandbox, stroke);
    const Deadline deadline(world.options.patience);
    for (;;) {
        const Weather::Mark asked = world.weather.Now();
        listener.Send("listenTablet x StylusPadDriver|");
        const std::string answer = NextPiece();
        if (answer == "Success |") {
            break;
        }
        if (IsWord(answer)) {
            throw Failed("a word that nobody posted: " + answer);
        }
        if (world.weather.FairSince(asked) || deadline.Passed()) {
            throw Failed("listenTablet was answered " + answer);
        }
    }
    Expect(StreamOf(stroke));
    WaitUntil(
        "the driver has ended", [&] { return world.sandbox.StatusIfEnded(driver).has_value(); },
        world.options.patience);
    listener.Send("stopListenTablet x StylusPadDriver|");
    // The last word may be told more than once.
    std::string answer = NextPiece();
    while (IsWord(answer)) {
        answer = NextPiece();
    }
    if (answer != "Success |") {
        throw Failed("stopListenTablet was answered " + answer);
    }
    world.tally.Count("recorded strokes");
}

void PenLoad::KillThePoster() {
    poster->Kill();
    WaitUntil(
        "the poster has ended", [this] { return poster->HasEnded(); }, world.options.patience);
    // The tap of one that has ended costs nothing, but stays in the list.
    if (listener.Ask("stopListenTablet x PenPoster") != "Success ") {
        throw Failed("stopListenTablet was refused");
    }
    StartPoster();
    Listen();
    world.tally.Count("fault: drivers that were killed");
}

void PenLoad::AskAndGo() {
    const BetweenDoors between(world.doors);
    Talk guest = Guest();
    for (int i = random.Between(1, 20); i > 0; --i) {
        const Weather::Mark asked = world.weather.Now();
        const std::string answer = guest.Ask("getDriverVersion");
        if (answer != std::string(kVersion) + "1.0.0" && world.weather.FairSince(asked)) {
            throw Failed("the driver's version was answered as " + answer);
        }
    }
    guest.Send("getDriverVersion|");
    guest.End(
        random.Of(std::vector<Farewell>{Farewell::kClose, Farewell::kReset, Farewell::kHalfClose}));
}

void PenLoad::BreakAMessageOff() {
    const BetweenDoors between(world.doors);
    const Half half = Half::OfPressureCommand(random);
    Talk guest = Guest();
    // The answer says that the half has been read as well.
    guest.Send("getDriverVersion|" + half.Text());
    guest.Receive();
    guest.End(
        random.Of(std::vector<Farewell>{Farewell::kClose, Farewell::kReset, Farewell::kHalfClose}));
    const std::string answer = listener.Ask("");
    if (!half.IsRightAnswer(answer)) {
        throw Failed("the bar behind \"" + half.Text() + "\" was answered " + answer);
    }
    world.tally.Count("fault: messages broken off, pressure");
}

void PenLoad::LetABrowserTry() {
    const BetweenDoors between(world.doors);
    SendHTTP(world, random, world.service->Keys().pressurePort);
    world.tally.Count("fault: HTTP requests, pressure");
}

void PenLoad::PartWithAll() {
    if (!listener) {
        return;
    }
    if (listener.Ask("stopListenTablet x PenPoster") != "Success " ||
        !IsVersion(listener.Ask("stopTablet|getDriverVersion"))) {
        throw Failed("the pen data cannot be ended");
    }
    poster->End();
    WaitUntil(
        "the poster has ended", [this] { return poster->HasEnded(); }, world.options.patience);
    poster.reset();
    listener.End(Farewell::kHalfClose);
    listener = Talk();
}
