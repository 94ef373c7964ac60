// Who has sent what to whom, and what became of it: finds every channel message that was accepted
// and is lost, that came twice, too early, to somebody else, or in spite of having been refused.
// Applications are known by numbers that are never given twice.
//
// What cannot be known is not held against anybody: whether a message that its sender did not live
// to see answered has been accepted, and what was under way to one who has gone.
//
// One thread. Throws Failed for whatever is wrong.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <utility>

class ChannelLedger {
  public:
    using Number = std::uint64_t;

    void Sent(Number sender, Number target, Number message);
    void Answered(Number sender, Number target, Number message, bool accepted);
    void Arrived(Number sender, Number target, Number message);
    void SenderIsGone(Number sender);
    // It has said that it goes, and may be refused from now on what is sent to it.
    void TargetIsLeaving(Number target) { leavingTargets.insert(target); }
    // It reads nothing any more.
    void TargetIsGone(Number target);
    // It has been sent all that it ever will be: what was accepted has arrived.
    void TargetHasReadAll(Number target) const;
    // Nothing that was accepted has been under way for that long.
    void NothingIsOverdue(std::chrono::seconds patience) const;

    // Something that was accepted has not arrived yet.
    bool IsAnythingUnderWay() const;
    std::uint64_t Accepted() const { return accepted; }
    std::uint64_t Delivered() const { return delivered; }
    bool IsGone(Number target) const { return goneTargets.count(target) != 0; }

  private:
    enum class Fate { kUnknown, kAccepted, kRefused, kNeverTold };
    struct Message {
        Number number;
        std::chrono::steady_clock::time_point sent;
        Fate fate = Fate::kUnknown;
        bool arrived = false;
        // A later one of the same sender has arrived.
        bool overtaken = false;
    };
    using Pair = std::pair<Number, Number>;
    using Messages = std::deque<Message>;

    Message& Find(Number sender, Number target, Number message, const char* event);
    void Settle(std::map<Pair, Messages>::iterator pair);

    // By target first.
    std::map<Pair, Messages> pairs;
    std::set<Number> leavingTargets;
    std::set<Number> goneTargets;
    std::uint64_t accepted = 0;
    std::uint64_t delivered = 0;
};
