// Many applications on the apps-communication port that come, tell each other things, and go:
// politely, by a reset, by closing one direction only, or in the middle of a message. Every message
// is numbered and holds its own check; every question's answer is recognised by its tag.
#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <list>
#include <string>

#include "Line.h"
#include "Worker.h"
#include "loads/ChannelLedger.h"
#include "loads/News.h"

class ChannelLoad : public Worker {
  public:
    explicit ChannelLoad(World& itsWorld) : Worker(itsWorld, "channels") {}

  private:
    using Clock = std::chrono::steady_clock;
    enum class State { kConnecting, kRegistering, kRegistered, kLeaving, kGone };
    struct Question {
        Clock::time_point asked;
        ChannelLedger::Number target = 0;
        ChannelLedger::Number message = 0;
    };
    struct Application {
        ChannelLedger::Number number = 0;
        std::string name;
        Line line;
        State state = State::kConnecting;
        Clock::time_point since;
        Clock::time_point leavesAt;
        std::deque<Question> asked;
        News news;
    };
    using Applications = std::list<Application>;

    void Step() override;
    void PartWithAll() override;

    void Turn(int milliseconds);
    void Come();
    void FinishConnecting(Application& application);
    void Register(Application& application);
    void SendMessages();
    void SendMessage(Application& sender);
    void ReadFrom(Application& application);
    void Understand(Application& application, const std::string& message);
    void TakeAnswer(Application& application, const std::string& answer);
    void TakeMessage(Application& application, const std::string& message);
    void SendAway(Application& application, Farewell farewell);
    void IsGone(Application& application);
    void BreakAMessageOff();
    void AskAndExpect(Application& application, const std::string& question,
                      const std::function<bool(const std::string&)>& isRight);
    void CheckDeadlines();
    bool IsQuiet() const;
    Application* AnyRegistered();

    Applications applications;
    ChannelLedger ledger;
    // The last to go; the service may hear of it later than of somebody who came after that.
    std::deque<std::pair<Clock::time_point, std::string>> departed;
    ChannelLedger::Number lastApplication = 0;
    ChannelLedger::Number lastMessage = 0;
    int connecting = 0;
    bool holding = false;
    double mayBeSent = 0;
    Clock::time_point lastAllowance = Clock::now();
    Clock::time_point lastCheck = Clock::now();
    Clock::time_point nextHalf = Clock::now() + std::chrono::seconds(2);
};
