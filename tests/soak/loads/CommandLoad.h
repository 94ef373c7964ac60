// The client with the key: commands of all kinds, one at a time and many in a packet, and
// applications that are installed, started, stopped and removed. It comes and goes as docks do not:
// resets, half closed, in the middle of its key and of a message. Each answer is the one to its
// question alone, as far as the protocol allows; refusals are accepted while the service is
// deprived of something, and never else.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Talk.h"
#include "Worker.h"
#include "loads/DeviceLoad.h"
#include "loads/Packages.h"

class CommandLoad : public Worker {
  public:
    CommandLoad(World& itsWorld, DeviceLoad& itsDevices);

  private:
    struct Question {
        std::string text;
        // All that are right in fair weather.
        std::vector<std::string> answers;
        // The answer only begins so.
        bool isBeginning = false;
        // Right as well while the service is deprived of something: how a refusal begins.
        std::vector<std::string> refusals = {};
    };

    void Step() override;
    void PartWithAll() override;

    void Come();
    void Go();
    void AskManyAtOnce();
    void AskForUUID();
    void InstallAndRemove();
    bool IsThere(const Package& package);
    // Whether it was answered as done.
    bool Remove(const Package& package);
    void TryWrongKey();
    void BreakTheKeyOff();
    void EndWhatWasBrokenOff();
    void Intrude();
    Question AnyQuestion();
    std::string Ask(const Question& question);
    void Check(const Question& question, const std::string& answer, Weather::Mark asked);

    DeviceLoad& devices;
    const std::vector<Package> packages;
    Talk talk;
    int stepsLeft = 0;
    int lastNumber = 0;
    bool authorized = false;
    std::set<std::string> uuids;
};
