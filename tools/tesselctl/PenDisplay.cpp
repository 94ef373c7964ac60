#include "tesselctl/PenDisplay.h"

#include <cstdlib>
#include <cstring>

#include "tesselctl/PenView.h"
#include "tesselctl/Terminal.h"

namespace tesselctl {
namespace {

using std::chrono::milliseconds;

// One line for each event.
class Lines : public PenDisplay {
  public:
    explicit Lines(bool asJson) : isJson(asJson) {}

    void Take(const PenEvent& event, Time now) override {
        const auto passed = std::chrono::duration_cast<std::chrono::microseconds>(now - start);
        waiting += isJson ? PenJson(event, passed.count()) : PenLine(event);
        waiting += '\n';
    }

    bool Show(Watch& watch, Time) override {
        const bool goesOn = waiting.empty() || watch.Say(waiting);
        waiting.clear();
        return goesOn;
    }

  private:
    const bool isJson;
    const Time start = std::chrono::steady_clock::now();
    std::string waiting;
};

// A picture that is drawn over the one before.
class Drawn : public PenDisplay {
  public:
    explicit Drawn(bool blocks) : view(blocks) {}

    void Take(const PenEvent& event, Time now) override { view.Take(event, now); }

    bool Show(Watch& watch, Time now) override {
        const auto passed = std::chrono::ceil<milliseconds>(now - shown);
        if (passed < kFrame) {
            next = Deadline::In(kFrame - passed + milliseconds(1));
            return true;
        }
        const bool changed = view.Changed(now);
        shown = changed ? now : shown;
        const bool goesOn = !changed || watch.Say(Frame(now));
        // The rate falls while nothing comes, and once it is 0 nothing changes any more.
        next = Deadline::In(view.IsQuiet() ? milliseconds(0) : kFrame);
        return goesOn;
    }

    Deadline Next() const override { return next; }

    void Forget() override {
        isDrawn = false;
        shown = {};
        view.Redraw();
    }

    void End() override {
        Say(Frame(std::chrono::steady_clock::now()));
        Say("\n");
    }

  private:
    static constexpr milliseconds kFrame{40};

    // Goes up to the first line of the last picture, and clears what is behind each line's end. The
    // last column stays free: some terminals go on to the next line when it is written.
    std::string Frame(Time now) {
        std::string frame = "\r";
        if (isDrawn) frame += "\033[" + std::to_string(PenView::kLines - 1) + 'A';
        for (const char c : view.Picture(TerminalWidth() - 1, now)) {
            if (c == '\n') frame += "\033[K";
            frame += c;
        }
        isDrawn = true;
        return frame + "\033[K";
    }

    PenView view;
    bool isDrawn = false;
    Time shown{};
    Deadline next = Deadline::In(milliseconds(0));
};

bool ShowsUtf8() {
    for (const char* const name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const char* const value = std::getenv(name);
        if (value == nullptr || *value == '\0') continue;
        return std::strstr(value, "UTF-8") != nullptr || std::strstr(value, "utf8") != nullptr;
    }
    return false;
}

}  // namespace

std::unique_ptr<PenDisplay> MakePenDisplay(PenForm form) {
    if (form == PenForm::kPeople && OutputIsTerminal()) return std::make_unique<Drawn>(ShowsUtf8());
    return std::make_unique<Lines>(form == PenForm::kJson);
}

}  // namespace tesselctl
