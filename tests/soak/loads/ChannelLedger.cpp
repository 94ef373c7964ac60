#include "loads/ChannelLedger.h"

#include <string>

#include "support/Waiting.h"

namespace {

std::string Name(ChannelLedger::Number sender, ChannelLedger::Number target,
                 ChannelLedger::Number message) {
    return "message " + std::to_string(message) + " from a" + std::to_string(sender) + " to a" +
           std::to_string(target);
}

}  // namespace

void ChannelLedger::Sent(Number sender, Number target, Number message) {
    pairs[{target, sender}].push_back({message, std::chrono::steady_clock::now()});
}

ChannelLedger::Message& ChannelLedger::Find(Number sender, Number target, Number message,
                                            const char* event) {
    const auto pair = pairs.find({target, sender});
    if (pair != pairs.end()) {
        for (Message& known : pair->second) {
            if (known.number == message) {
                return known;
            }
        }
    }
    throw Failed(Name(sender, target, message) + event);
}

void ChannelLedger::Answered(Number sender, Number target, Number message, bool wasAccepted) {
    accepted += wasAccepted;
    if (IsGone(target)) {
        return;
    }
    if (!wasAccepted && leavingTargets.count(target) == 0) {
        throw Failed(Name(sender, target, message) + " was refused, and its target was there");
    }
    Message& known =
        Find(sender, target, message, " was answered and never sent, or answered twice");
    if (wasAccepted && known.overtaken && !known.arrived) {
        throw Failed(Name(sender, target, message) + " was accepted, and a later one overtook it");
    }
    if (!wasAccepted && known.arrived) {
        throw Failed(Name(sender, target, message) + " was refused, and has arrived");
    }
    known.fate = wasAccepted ? Fate::kAccepted : Fate::kRefused;
    Settle(pairs.find({target, sender}));
}

void ChannelLedger::Arrived(Number sender, Number target, Number message) {
    Message& arrived = Find(sender, target, message, " arrived twice, or was never sent");
    if (arrived.arrived) {
        throw Failed(Name(sender, target, message) + " arrived twice");
    }
    if (arrived.fate == Fate::kRefused) {
        throw Failed(Name(sender, target, message) + " arrived, and had been refused");
    }
    if (arrived.overtaken) {
        throw Failed(Name(sender, target, message) + " arrived after a later one");
    }
    arrived.arrived = true;
    ++delivered;
    const auto pair = pairs.find({target, sender});
    for (Message& earlier : pair->second) {
        if (&earlier == &arrived) {
            break;
        }
        if (!earlier.arrived) {
            if (earlier.fate == Fate::kAccepted) {
                throw Failed(Name(sender, target, earlier.number) +
                             " was accepted and is lost: a later one has arrived");
            }
            earlier.overtaken = true;
        }
    }
    Settle(pair);
}

// Forgets what nothing more will be heard of.
void ChannelLedger::Settle(std::map<Pair, Messages>::iterator pair) {
    Messages& messages = pair->second;
    const auto isSettled = [](const Message& message) {
        switch (message.fate) {
            case Fate::kAccepted:
                return message.arrived;
            case Fate::kNeverTold:
                return message.arrived || message.overtaken;
            case Fate::kRefused:
                return true;
            case Fate::kUnknown:
                return false;
        }
        return false;
    };
    while (!messages.empty() && isSettled(messages.front())) {
        messages.pop_front();
    }
    if (messages.empty()) {
        pairs.erase(pair);
    }
}

void ChannelLedger::SenderIsGone(Number sender) {
    for (auto pair = pairs.begin(); pair != pairs.end();) {
        const auto here = pair++;
        if (here->first.second != sender) {
            continue;
        }
        for (Message& message : here->second) {
            if (message.fate == Fate::kUnknown) {
                message.fate = Fate::kNeverTold;
            }
        }
        Settle(here);
    }
}

void ChannelLedger::TargetIsGone(Number target) {
    leavingTargets.erase(target);
    goneTargets.insert(target);
    pairs.erase(pairs.lower_bound({target, 0}), pairs.lower_bound({target + 1, 0}));
}

void ChannelLedger::TargetHasReadAll(Number target) const {
    for (auto pair = pairs.lower_bound({target, 0});
         pair != pairs.end() && pair->first.first == target; ++pair) {
        for (const Message& message : pair->second) {
            if (message.fate == Fate::kAccepted && !message.arrived) {
                throw Failed(Name(pair->first.second, target, message.number) +
                             " was accepted and never came before the end of the connection");
            }
        }
    }
}

void ChannelLedger::NothingIsOverdue(std::chrono::seconds patience) const {
    const auto latest = std::chrono::steady_clock::now() - patience;
    for (const auto& [pair, messages] : pairs) {
        for (const Message& message : messages) {
            if (message.fate == Fate::kAccepted && !message.arrived && message.sent < latest) {
                throw Failed(Name(pair.second, pair.first, message.number) +
                             " was accepted and has not come in " +
                             std::to_string(patience.count()) + " s");
            }
        }
    }
}

bool ChannelLedger::IsAnythingUnderWay() const {
    for (const auto& pair : pairs) {
        for (const Message& message : pair.second) {
            if (message.fate == Fate::kAccepted && !message.arrived) {
                return true;
            }
        }
    }
    return false;
}
